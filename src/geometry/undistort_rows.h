// Bilinear resampling of an image at given positions, a run of them at a time.
//
// Each pass over the run is a loop that compilers turn into vector code, but for the one that fetches the pixels: it
// takes two elements at a time, one pair after the other, into arrays. With gather instructions instead, a call was
// measured to take about twice as long.
#pragma once

#include <string.h>

#include "frame/frame.h"

namespace {

constexpr int32_t longestRun = 256;

// The image that is resampled.
template <class T>
struct Source {
  const T* image;
  int32_t step;
  QoriSize size;
};

// Two neighbouring elements, the first one lowest.
struct TwoFloats {
  float first, second;
};
inline uint16_t pairOf(uint8_t) { return 0; }
inline uint32_t pairOf(uint16_t) { return 0; }
inline TwoFloats pairOf(float) { return {}; }
template <class T>
using Pair = decltype(pairOf(T()));

inline float firstOf(uint16_t pair) { return float(pair & 0xff); }
inline float secondOf(uint16_t pair) { return float(pair >> 8); }
inline float firstOf(uint32_t pair) { return float(int32_t(pair & 0xffff)); }
inline float secondOf(uint32_t pair) { return float(int32_t(pair >> 16)); }
inline float firstOf(TwoFloats pair) { return pair.first; }
inline float secondOf(TwoFloats pair) { return pair.second; }

inline void put(float value, float& to) { to = value; }
template <class T>
inline void put(float value, T& to) {
  to = T(int32_t(value + 0.5f));
}

// What a run needs between its passes. Of each row of pixels, the 2 x channels elements of two neighbours are pairs one
// after the other, whatever the channels.
template <class T, int32_t channels, class Offset>
struct Run {
  uint8_t inside[longestRun];
  Offset offset[longestRun];  // in bytes, of the upper left one of the four pixels
  Pair<T> top[channels][longestRun], bottom[channels][longestRun];
  T values[longestRun * channels];
};

// 0 for a condition of 0, without the jump that compilers make of a choice.
inline float kept(float value, int32_t condition) {
  int32_t bits;
  memcpy(&bits, &value, sizeof bits);
  bits &= -condition;
  memcpy(&value, &bits, sizeof bits);
  return value;
}

// Takes positions apart into the offset of a pixel and fractions, which replace them. Returns how many lie inside, that
// is, with all four pixels around them; the others, NaN among them, are given that of the first pixel.
template <int32_t pixelBytes, class Offset>
inline int32_t placePixels(QoriSize size, int32_t step, float* __restrict sx, float* __restrict sy,
                           uint8_t* __restrict inside, Offset* __restrict offset, ptrdiff_t count) {
  // As floats they may be rounded up; but then the next smaller float is a whole number below the exact bound.
  const float right = float(size.width - 1), bottom = float(size.height - 1);
  int32_t insiders = 0;
  for (ptrdiff_t n = 0; n < count; ++n) {
    const uint8_t isInside = (sx[n] >= 0) & (sy[n] >= 0) & (sx[n] < right) & (sy[n] < bottom);
    const float x = kept(sx[n], isInside), y = kept(sy[n], isInside);
    const int32_t column = int32_t(x), row = int32_t(y);
    offset[n] = Offset(row) * step + Offset(column) * pixelBytes;
    sx[n] = x - float(column);
    sy[n] = y - float(row);
    inside[n] = isInside;
    insiders += isInside;
  }
  return insiders;
}

template <class T, int32_t channels, class Offset>
inline void fetchPairs(const Source<T>& source, Run<T, channels, Offset>& run, ptrdiff_t count) {
  const uint8_t* const top = reinterpret_cast<const uint8_t*>(source.image);
  const uint8_t* const bottom = rowAt(top, source.step, 1);
  for (ptrdiff_t n = 0; n < count; ++n) {
    ptrdiff_t offset = run.offset[n];
    // Keeps compilers from making vectors, which they fill lane by lane.
    __asm__("" : "+r"(offset));
    for (ptrdiff_t p = 0; p < channels; ++p) {
      memcpy(&run.top[p][n], top + offset + p * ptrdiff_t(sizeof(Pair<T>)), sizeof(Pair<T>));
      memcpy(&run.bottom[p][n], bottom + offset + p * ptrdiff_t(sizeof(Pair<T>)), sizeof(Pair<T>));
    }
  }
}

// Element e of the 2 x channels ones of a row.
template <ptrdiff_t e, class T, int32_t channels>
inline float element(const Pair<T> (&pairs)[channels][longestRun], ptrdiff_t n) {
  return e % 2 == 0 ? firstOf(pairs[e / 2][n]) : secondOf(pairs[e / 2][n]);
}

template <ptrdiff_t c, class T, int32_t channels, class Offset>
inline void interpolate(const Run<T, channels, Offset>& run, float a, float b, ptrdiff_t n, T& to) {
  const float right = element<c + channels, T>(run.bottom, n) * b + element<c + channels, T>(run.top, n) * (1 - b);
  const float left = element<c, T>(run.bottom, n) * b + element<c, T>(run.top, n) * (1 - b);
  put(right * a + left * (1 - a), to);
}

template <class T, int32_t channels, class Offset>
inline void interpolateAll(const Run<T, channels, Offset>& run, const float* __restrict sx, const float* __restrict sy,
                           T* __restrict to, ptrdiff_t count) {
  for (ptrdiff_t n = 0; n < count; ++n) {
    interpolate<0>(run, sx[n], sy[n], n, to[n * channels]);
    if constexpr (channels == 3) {
      interpolate<1>(run, sx[n], sy[n], n, to[n * channels + 1]);
      interpolate<2>(run, sx[n], sy[n], n, to[n * channels + 2]);
    }
  }
}

// Writes those of a run of at most `longestRun` pixels whose positions lie inside the source; leaves all others alone.
// Uses up the positions.
template <class T, int32_t channels, class Offset>
inline void resample(const Source<T>& source, float* sx, float* sy, T* dst, int32_t count) {
  Run<T, channels, Offset> run;
  const int32_t insiders =
      placePixels<channels * int32_t(sizeof(T))>(source.size, source.step, sx, sy, run.inside, run.offset, count);
  if (insiders == 0) return;
  fetchPairs<T, channels>(source, run, count);
  if (insiders == count) return interpolateAll(run, sx, sy, dst, count);
  interpolateAll(run, sx, sy, run.values, count);
  for (ptrdiff_t n = 0; n < count; ++n) {
    if (run.inside[n]) memcpy(dst + n * channels, run.values + n * channels, channels * sizeof(T));
  }
}

}  // namespace
