// Loops over the rows of the tracking loop's patches: gradients, and sums of products.
//
// Patches of 8-bit images hold pixels times 128 in 16 bits, and their gradients too. Vectors may reach up to a block
// behind the end of a row, where patches have room; what they find there does not count.
#pragma once

#include <immintrin.h>
#include <string.h>

#include "frame/loops.h"
#include "frame/rows.h"

namespace {

// Gradients are written in whole blocks of this many elements, and no vector has more.
constexpr int32_t patchBlock = 32;

// --- gradients of a patch: Scharr's weights, scaled so that a ramp of 1 a pixel has gradient 1 times the pixels' ---

inline int16_t held16(int32_t value) { return int16_t(value < -32768 ? -32768 : value > 32767 ? 32767 : value); }

// Row y of `across` and `down` from rows y, y + 1 and y + 2 of the patch.
inline void ownOptConvolution_16s_C1R(const int16_t* top, const int16_t* middle, const int16_t* bottom, int16_t* across,
                                      int16_t* down, int32_t width) {
  for (ptrdiff_t block = 0; block < width; block += patchBlock) {
    QOR_INDEPENDENT
    for (ptrdiff_t x = block; x < block + patchBlock; ++x) {
      const int32_t d = 3 * (top[x + 2] - top[x]) + 10 * (middle[x + 2] - middle[x]) + 3 * (bottom[x + 2] - bottom[x]);
      const int32_t s = 3 * (bottom[x] - top[x]) + 10 * (bottom[x + 1] - top[x + 1]) + 3 * (bottom[x + 2] - top[x + 2]);
      across[x] = held16((d + 16) >> 5);
      down[x] = held16((s + 16) >> 5);
    }
  }
}

inline void ownOptConvolution_32f_C1R(const float* top, const float* middle, const float* bottom, float* across,
                                      float* down, int32_t width) {
  constexpr float outer = 0.09375f, inner = 0.3125f;
  for (ptrdiff_t block = 0; block < width; block += patchBlock) {
    QOR_INDEPENDENT
    for (ptrdiff_t x = block; x < block + patchBlock; ++x) {
      across[x] =
          outer * (top[x + 2] - top[x]) + inner * (middle[x + 2] - middle[x]) + outer * (bottom[x + 2] - bottom[x]);
      const float above = outer * top[x] + inner * top[x + 1] + outer * top[x + 2];
      const float below = outer * bottom[x] + inner * bottom[x + 1] + outer * bottom[x + 2];
      down[x] = below - above;
    }
  }
}

// Bilinear interpolation of a gradient plane in fixed point of 15 bits.
struct PlaneWeights {
  int32_t topLeft, topRight, bottomLeft, bottomRight;
};

inline PlaneWeights planeWeights(float right, float below) {
  constexpr int32_t one = 32768, half = 16384;
  const int32_t a = int32_t(right * float(one) + 0.5f), b = int32_t(below * float(one) + 0.5f);
  const auto product = [](int32_t u, int32_t v) { return (u * v + half) >> 15; };
  return {product(one - a, one - b), product(a, one - b), product(one - a, b), product(a, b)};
}

// Reads up to a block behind the rows of the plane, where the scratch goes on.
inline void ownModifiedConvolution_16s_C1R(const int16_t* top, const int16_t* bottom, int16_t* dst, int32_t count,
                                           const PlaneWeights& w) {
  for (ptrdiff_t block = 0; block < count; block += patchBlock) {
    QOR_INDEPENDENT
    for (ptrdiff_t x = block; x < block + patchBlock; ++x) {
      dst[x] = int16_t((top[x] * w.topLeft + top[x + 1] * w.topRight + bottom[x] * w.bottomLeft +
                        bottom[x + 1] * w.bottomRight + 16384) >>
                       15);
    }
  }
}

// --- sums ---

// Of the gradients across (x) and down (y), multiplied with each other and with the difference of the images (d).
struct GradientSums {
  double xx, xy, yy;
};
struct MismatchSums {
  double xd, yd;
};

#if defined(__AVX512BW__)
constexpr int32_t shortLanes = 32;
using Shorts = __m512i;
using Longs = __m512i;
inline Shorts shortsAt(const int16_t* p) { return _mm512_loadu_si512(p); }
inline Shorts both(Shorts a, Shorts b) { return _mm512_and_si512(a, b); }
inline Shorts minus(Shorts a, Shorts b) { return _mm512_sub_epi16(a, b); }
inline Longs pairProducts(Shorts a, Shorts b) { return _mm512_madd_epi16(a, b); }
inline Longs plus(Longs a, Longs b) { return _mm512_add_epi32(a, b); }
inline Longs noLongs() { return _mm512_setzero_si512(); }
inline Longs lowInts(Longs a, Longs b) { return _mm512_maskz_unpacklo_epi32(0xffff, a, b); }
inline Longs highInts(Longs a, Longs b) { return _mm512_maskz_unpackhi_epi32(0xffff, a, b); }
inline Longs lowLongs(Longs a, Longs b) { return _mm512_maskz_unpacklo_epi64(0xff, a, b); }
inline Longs highLongs(Longs a, Longs b) { return _mm512_maskz_unpackhi_epi64(0xff, a, b); }
// The four quarters added up.
inline __m128i quarters(Longs v) {
  const __m256i half =
      _mm256_add_epi32(_mm512_maskz_extracti64x4_epi64(0xf, v, 0), _mm512_maskz_extracti64x4_epi64(0xf, v, 1));
  return _mm_add_epi32(_mm256_castsi256_si128(half), _mm256_extracti128_si256(half, 1));
}
inline Longs pairSums(Longs v) {
  return _mm512_add_epi64(_mm512_and_si512(v, _mm512_set1_epi64(0xffffffff)), _mm512_maskz_srli_epi64(0xff, v, 32));
}
inline Longs plusPairs(Longs a, Longs b) { return _mm512_add_epi64(a, b); }
#elif defined(__AVX2__)
constexpr int32_t shortLanes = 16;
using Shorts = __m256i;
using Longs = __m256i;
inline Shorts shortsAt(const int16_t* p) { return _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)); }
inline Shorts both(Shorts a, Shorts b) { return _mm256_and_si256(a, b); }
inline Shorts minus(Shorts a, Shorts b) { return _mm256_sub_epi16(a, b); }
inline Longs pairProducts(Shorts a, Shorts b) { return _mm256_madd_epi16(a, b); }
inline Longs plus(Longs a, Longs b) { return _mm256_add_epi32(a, b); }
inline Longs noLongs() { return _mm256_setzero_si256(); }
inline Longs lowInts(Longs a, Longs b) { return _mm256_unpacklo_epi32(a, b); }
inline Longs highInts(Longs a, Longs b) { return _mm256_unpackhi_epi32(a, b); }
inline Longs lowLongs(Longs a, Longs b) { return _mm256_unpacklo_epi64(a, b); }
inline Longs highLongs(Longs a, Longs b) { return _mm256_unpackhi_epi64(a, b); }
inline __m128i quarters(Longs v) { return _mm_add_epi32(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1)); }
inline Longs pairSums(Longs v) {
  return _mm256_add_epi64(_mm256_and_si256(v, _mm256_set1_epi64x(0xffffffff)), _mm256_srli_epi64(v, 32));
}
inline Longs plusPairs(Longs a, Longs b) { return _mm256_add_epi64(a, b); }
#else
constexpr int32_t shortLanes = 8;
using Shorts = __m128i;
using Longs = __m128i;
inline Shorts shortsAt(const int16_t* p) { return _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)); }
inline Shorts both(Shorts a, Shorts b) { return _mm_and_si128(a, b); }
inline Shorts minus(Shorts a, Shorts b) { return _mm_sub_epi16(a, b); }
inline Longs pairProducts(Shorts a, Shorts b) { return _mm_madd_epi16(a, b); }
inline Longs plus(Longs a, Longs b) { return _mm_add_epi32(a, b); }
inline Longs noLongs() { return _mm_setzero_si128(); }
inline Longs lowInts(Longs a, Longs b) { return _mm_unpacklo_epi32(a, b); }
inline Longs highInts(Longs a, Longs b) { return _mm_unpackhi_epi32(a, b); }
inline Longs lowLongs(Longs a, Longs b) { return _mm_unpacklo_epi64(a, b); }
inline Longs highLongs(Longs a, Longs b) { return _mm_unpackhi_epi64(a, b); }
inline __m128i quarters(Longs v) { return v; }
inline Longs pairSums(Longs v) {
  return _mm_add_epi64(_mm_and_si128(v, _mm_set1_epi64x(0xffffffff)), _mm_srli_epi64(v, 32));
}
inline Longs plusPairs(Longs a, Longs b) { return _mm_add_epi64(a, b); }
#endif

// Sums of the lanes of four vectors, in 32 bits, which wrap.
inline __m128i laneSums(Longs a, Longs b, Longs c, Longs d) {
  const Longs ab = plus(lowInts(a, b), highInts(a, b)), cd = plus(lowInts(c, d), highInts(c, d));
  return quarters(plus(lowLongs(ab, cd), highLongs(ab, cd)));
}

// Sums of four rows or kinds, in doubles: all are whole numbers, so their order does not matter.
inline void addSums(double (&sums)[4], __m128i four) {
  _mm_storeu_pd(sums, _mm_add_pd(_mm_loadu_pd(sums), _mm_cvtepi32_pd(four)));
  _mm_storeu_pd(sums + 2, _mm_add_pd(_mm_loadu_pd(sums + 2), _mm_cvtepi32_pd(_mm_unpackhi_epi64(four, four))));
}

// For the last vector of a row of so many elements: all ones up to the last of them, zeros behind it.
inline Shorts lastMaskOf(int32_t elements) {
  alignas(64) static constexpr int16_t steps[2 * 32] = {-1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1,
                                                        -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1, -1};
  return shortsAt(steps + 32 - ((elements - 1) % shortLanes + 1));
}

// Products of a row, and their lanes' sums so far.
struct RowOfProducts {
  Longs x, y;
};
inline RowOfProducts mismatchOfRow(const int16_t* across, const int16_t* down, const int16_t* first,
                                   const int16_t* second, int32_t count, Shorts lastMask) {
  RowOfProducts sums = {noLongs(), noLongs()};
  for (int32_t x = 0; x < count; x += shortLanes) {
    const Shorts difference = minus(shortsAt(first + x), shortsAt(second + x));
    const Shorts d = count - x > shortLanes ? difference : both(difference, lastMask);
    sums.x = plus(sums.x, pairProducts(shortsAt(across + x), d));
    sums.y = plus(sums.y, pairProducts(shortsAt(down + x), d));
  }
  return sums;
}

// The area of the patches over which sums run, from its first element on.
template <class P>
struct PatchArea {
  const P *across, *down, *first, *second;
  int64_t stride;  // in bytes
  int32_t width, height;
};

// A row's sums are 32-bit integers, which wrap in windows of extreme contrast. That is why each row is summed up by
// itself.
inline GradientSums gradientSums(const PatchArea<int16_t>& a) {
  double sums[4] = {};
  const Shorts lastMask = lastMaskOf(a.width);
  for (int32_t y = 0; y < a.height; ++y) {
    const int16_t *across = rowAt(a.across, a.stride, y), *down = rowAt(a.down, a.stride, y);
    Longs xx = noLongs(), xy = xx, yy = xx;
    for (int32_t x = 0; x < a.width; x += shortLanes) {
      Shorts gx = shortsAt(across + x), gy = shortsAt(down + x);
      if (a.width - x <= shortLanes) gx = both(gx, lastMask), gy = both(gy, lastMask);
      xx = plus(xx, pairProducts(gx, gx));
      xy = plus(xy, pairProducts(gx, gy));
      yy = plus(yy, pairProducts(gy, gy));
    }
    addSums(sums, laneSums(xx, xy, yy, noLongs()));
  }
  return {sums[0], sums[1], sums[2]};
}

inline MismatchSums mismatchSums(const PatchArea<int16_t>& a) {
  double sums[4] = {};
  const Shorts lastMask = lastMaskOf(a.width);
  const auto row = [&](int32_t y) {
    return mismatchOfRow(rowAt(a.across, a.stride, y), rowAt(a.down, a.stride, y), rowAt(a.first, a.stride, y),
                         rowAt(a.second, a.stride, y), a.width, lastMask);
  };
  for (int32_t y = 0; y < a.height; y += 2) {
    const RowOfProducts even = row(y), odd = y + 1 < a.height ? row(y + 1) : RowOfProducts{noLongs(), noLongs()};
    addSums(sums, laneSums(even.x, even.y, odd.x, odd.y));
  }
  return {sums[0] + sums[2], sums[1] + sums[3]};
}

// Sum of the squared differences, none of which is beyond 15 bits.
inline double squaredError(const PatchArea<int16_t>& a) {
  Longs sums = noLongs();
  const Shorts lastMask = lastMaskOf(a.width);
  for (int32_t y = 0; y < a.height; ++y) {
    const int16_t *first = rowAt(a.first, a.stride, y), *second = rowAt(a.second, a.stride, y);
    for (int32_t x = 0; x < a.width; x += shortLanes) {
      Shorts d = minus(shortsAt(second + x), shortsAt(first + x));
      if (a.width - x <= shortLanes) d = both(d, lastMask);
      sums = plusPairs(sums, pairSums(pairProducts(d, d)));
    }
  }
  int64_t total = 0, lanes[sizeof sums / 8];
  memcpy(lanes, &sums, sizeof sums);
  for (const int64_t lane : lanes) total += lane;
  return double(total);
}

// Sums of doubles run in eight lanes, by the column, the same on every machine. Vectors go by reference, since not
// every level has registers for them.
using EightFloats = float __attribute__((vector_size(32)));
using EightInts = int32_t __attribute__((vector_size(32)));
using EightDoubles = double __attribute__((vector_size(64)));

inline double laneSum(const EightDoubles& l) {
  return ((l[0] + l[4]) + (l[2] + l[6])) + ((l[1] + l[5]) + (l[3] + l[7]));
}

// Calls body(across, down, difference) with eight elements of each at a time; behind the end of a row they are 0.
template <class Body>
inline void forEights(const PatchArea<float>& a, Body body) {
  static constexpr int32_t steps[2 * 8] = {-1, -1, -1, -1, -1, -1, -1, -1};
  EightInts lastMask;
  memcpy(&lastMask, steps + 8 - ((a.width - 1) % 8 + 1), sizeof lastMask);
  for (int32_t y = 0; y < a.height; ++y) {
    const float *across = rowAt(a.across, a.stride, y), *down = rowAt(a.down, a.stride, y);
    const float *first = rowAt(a.first, a.stride, y), *second = rowAt(a.second, a.stride, y);
    for (ptrdiff_t x = 0; x < a.width; x += 8) {
      EightFloats gx, gy, i, j;
      memcpy(&gx, across + x, sizeof gx);
      memcpy(&gy, down + x, sizeof gy);
      memcpy(&i, first + x, sizeof i);
      memcpy(&j, second + x, sizeof j);
      EightFloats d = i - j;
      if (a.width - x < 8) {
        gx = EightFloats(EightInts(gx) & lastMask);
        gy = EightFloats(EightInts(gy) & lastMask);
        d = EightFloats(EightInts(d) & lastMask);
      }
      body(__builtin_convertvector(gx, EightDoubles), __builtin_convertvector(gy, EightDoubles),
           __builtin_convertvector(d, EightDoubles));
    }
  }
}

inline GradientSums gradientSums(const PatchArea<float>& a) {
  EightDoubles xx = {}, xy = {}, yy = {};
  forEights(a, [&](const EightDoubles& gx, const EightDoubles& gy, const EightDoubles&) {
    xx += gx * gx;
    xy += gx * gy;
    yy += gy * gy;
  });
  return {laneSum(xx), laneSum(xy), laneSum(yy)};
}

inline MismatchSums mismatchSums(const PatchArea<float>& a) {
  EightDoubles xd = {}, yd = {};
  forEights(a, [&](const EightDoubles& gx, const EightDoubles& gy, const EightDoubles& d) {
    xd += gx * d;
    yd += gy * d;
  });
  return {laneSum(xd), laneSum(yd)};
}

inline double squaredError(const PatchArea<float>& a) {
  EightDoubles sums = {};
  forEights(a, [&](const EightDoubles&, const EightDoubles&, const EightDoubles& d) { sums += d * d; });
  return laneSum(sums);
}

}  // namespace
