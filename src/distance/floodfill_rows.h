// Tests and writes of flood fills, for many pixels of a row at a time. Pixels are named by the bits of a word: bit i is
// pixel i from some column on. What no bit names is neither read nor written.
#pragma once

#include <math.h>
#include <string.h>

#include <algorithm>
#include <type_traits>

#include "frame/frame.h"

#if defined(__AVX512BW__) && defined(__BMI2__)
#define QOR_FILL_VECTORS 1
#include <immintrin.h>
#elif defined(__SSE2__)
#include <immintrin.h>
#endif

// The lowest `count` bits, of 0 .. 64.
static inline uint64_t lowBits(int32_t count) { return count >= 64 ? ~uint64_t(0) : (uint64_t(1) << count) - 1; }

// Bit positions; `bits` is not 0.
static inline int32_t lowestBit(uint64_t bits) { return __builtin_ctzll(bits); }
static inline int32_t highestBit(uint64_t bits) { return 63 - __builtin_clzll(bits); }

// Length of the run of ones that begins at bit 0.
static inline int32_t onesFromZero(uint64_t bits) { return bits == ~uint64_t(0) ? 64 : lowestBit(~bits); }

namespace {

// One pixel, as often as a register holds it.
template <class T, int32_t channels>
struct Repeated {
#if QOR_FILL_VECTORS
  __m512i v;
#else
  T v[channels];
#endif
};

// Bounds of a value in each channel, both included.
template <class T, int32_t channels>
struct Bounds {
  Repeated<T, channels> low, high;
};

// What a step to a neighbour may change in each channel. Integers: the most by which a value may fall and rise. Floats:
// the shift that is added to the rise, and the greatest magnitude of the sum.
template <class T, int32_t channels>
struct Deltas {
  Repeated<T, channels> first, second;
};

}  // namespace

#if QOR_FILL_VECTORS

// Whole pixels that a register holds.
template <class T, int32_t channels>
constexpr int32_t fillBlock = 64 / int32_t(sizeof(T)) / channels;
template <class T, int32_t channels>
constexpr int32_t stepBlock = fillBlock<T, channels>;

static constexpr uint64_t everyThird = 0x1249249249249249;

// From pixels to their elements, and to the pixels all of whose elements are set.
template <int32_t channels>
static inline uint64_t elementsOf(uint64_t bits) {
  return channels == 1 ? bits : _pdep_u64(bits, everyThird) * 7;
}
template <int32_t channels>
static inline uint64_t pixelsOf(uint64_t bits) {
  return channels == 1 ? bits : _pext_u64(bits & bits >> 1 & bits >> 2, everyThird);
}

template <class T>
static inline __m512i loadElements(const T* p, uint64_t elements) {
  if constexpr (sizeof(T) == 1) return _mm512_maskz_loadu_epi8(elements, p);
  if constexpr (sizeof(T) == 2) return _mm512_maskz_loadu_epi16(__mmask32(elements), p);
  if constexpr (sizeof(T) == 4) return _mm512_maskz_loadu_epi32(__mmask16(elements), p);
}

template <class T>
static inline void storeElements(T* p, uint64_t elements, __m512i v) {
  if constexpr (sizeof(T) == 1) _mm512_mask_storeu_epi8(p, elements, v);
  if constexpr (sizeof(T) == 2) _mm512_mask_storeu_epi16(p, __mmask32(elements), v);
  if constexpr (sizeof(T) == 4) _mm512_mask_storeu_epi32(p, __mmask16(elements), v);
}

template <class T, int32_t channels>
static inline Repeated<T, channels> repeated(const T* pixel) {
  T all[64 / sizeof(T)];
  for (size_t i = 0; i < 64 / sizeof(T); ++i) all[i] = pixel[i % channels];
  return {_mm512_loadu_si512(all)};
}

template <class T>
static inline uint64_t between(__m512i v, __m512i low, __m512i high, uint64_t elements) {
  if constexpr (sizeof(T) == 1) {
    return _mm512_mask_cmple_epu8_mask(_mm512_mask_cmpge_epu8_mask(elements, v, low), v, high);
  } else if constexpr (sizeof(T) == 2) {
    return _mm512_mask_cmple_epu16_mask(_mm512_mask_cmpge_epu16_mask(__mmask32(elements), v, low), v, high);
  } else {
    const __m512 f = _mm512_castsi512_ps(v);
    const __mmask16 above = _mm512_mask_cmp_ps_mask(__mmask16(elements), f, _mm512_castsi512_ps(low), _CMP_GE_OQ);
    return _mm512_mask_cmp_ps_mask(above, f, _mm512_castsi512_ps(high), _CMP_LE_OQ);
  }
}

// Those of the pixels `bits` from p on whose values lie between the bounds.
template <class T, int32_t channels>
static inline uint64_t matches(const Bounds<T, channels>& bounds, const T* p, uint64_t bits) {
  const uint64_t elements = elementsOf<channels>(bits);
  return pixelsOf<channels>(between<T>(loadElements(p, elements), bounds.low.v, bounds.high.v, elements));
}

// Those of the pixels `bits` that may be entered: pixel i from q on from pixel i from p on.
template <class T, int32_t channels>
static inline uint64_t allowed(const Deltas<T, channels>& deltas, const T* q, const T* p, uint64_t bits) {
  const uint64_t elements = elementsOf<channels>(bits);
  const __m512i to = loadElements(q, elements), from = loadElements(p, elements);
  const __m512i first = deltas.first.v, second = deltas.second.v;
  if constexpr (sizeof(T) == 1) {
    return pixelsOf<channels>(between<T>(to, _mm512_subs_epu8(from, first), _mm512_adds_epu8(from, second), elements));
  } else if constexpr (sizeof(T) == 2) {
    return pixelsOf<channels>(
        between<T>(to, _mm512_subs_epu16(from, first), _mm512_adds_epu16(from, second), elements));
  } else {
    const __m512 rise = _mm512_add_ps(_mm512_castsi512_ps(to), _mm512_castsi512_ps(first)) - _mm512_castsi512_ps(from);
    const __m512i magnitude = _mm512_castps_si512(rise) & _mm512_set1_epi32(0x7fffffff);
    return pixelsOf<channels>(_mm512_mask_cmp_ps_mask(__mmask16(elements), _mm512_castsi512_ps(magnitude),
                                                      _mm512_castsi512_ps(second), _CMP_LE_OQ));
  }
}

// Writes `value` to the pixels `bits` from p on.
template <class T, int32_t channels>
static inline void fillBits(T* p, uint64_t bits, const Repeated<T, channels>& value) {
  storeElements(p, elementsOf<channels>(bits), value.v);
}

// Writes `value` to `count` pixels.
template <class T, int32_t channels>
static inline void fillPixels(T* p, int32_t count, const Repeated<T, channels>& value) {
  constexpr int32_t block = fillBlock<T, channels>;
  for (; count > block; count -= block, p += block * channels) {
    storeElements(p, elementsOf<channels>(lowBits(block)), value.v);
  }
  storeElements(p, elementsOf<channels>(lowBits(count)), value.v);
}

// The pixels that are reached from `starts` along the row, inside `open`; q is the row from the word's first pixel on.
template <class T, int32_t channels>
static inline uint64_t reachedAlong(const Deltas<T, channels>& deltas, const T* q, uint64_t starts, uint64_t open) {
  const uint64_t right = open & ~uint64_t(1), left = open & open >> 1;
  uint64_t reached = starts;
  if ((starts << 1) & right) {
    // A carry runs through the pixels that can be left to the right; `starts` inside such a run stay set.
    const uint64_t leaving = allowed(deltas, q, q - channels, right) >> 1;
    reached |= ((starts & leaving) + leaving) ^ leaving;
  }
  if ((reached >> 1) & left & ~reached) {
    uint64_t entered = allowed(deltas, q, q + channels, left);
    reached |= entered & reached >> 1;
    for (int32_t d = 2; d < stepBlock<T, channels>; d *= 2) {
      entered &= entered >> d / 2;
      reached |= entered & reached >> d;
    }
  }
  return reached;
}

#else

#ifdef __AVX2__
constexpr int32_t byteBlock = 32;
#else
constexpr int32_t byteBlock = 16;
#endif
template <class T, int32_t channels>
constexpr int32_t fillBlock = sizeof(T) == 1 && channels == 1 ? byteBlock : 8;
template <class T, int32_t channels>
constexpr int32_t stepBlock = 64;

template <class T, int32_t channels>
static inline Repeated<T, channels> repeated(const T* pixel) {
  Repeated<T, channels> r;
  for (int32_t c = 0; c < channels; ++c) r.v[c] = pixel[c];
  return r;
}

template <class T, int32_t channels>
static inline bool inside(const Bounds<T, channels>& bounds, const T* p) {
  bool all = true;
  for (int32_t c = 0; c < channels; ++c) all &= (p[c] >= bounds.low.v[c]) & (p[c] <= bounds.high.v[c]);
  return all;
}

template <class T, int32_t channels>
static inline uint64_t matches(const Bounds<T, channels>& bounds, const T* p, uint64_t bits) {
  if constexpr (sizeof(T) == 1 && channels == 1) {
    if (bits == lowBits(byteBlock)) {
#if defined(__AVX2__)
      const __m256i v = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p));
      const __m256i held = _mm256_min_epu8(_mm256_max_epu8(v, _mm256_set1_epi8(char(bounds.low.v[0]))),
                                           _mm256_set1_epi8(char(bounds.high.v[0])));
      return uint32_t(_mm256_movemask_epi8(_mm256_cmpeq_epi8(v, held)));
#elif defined(__SSE2__)
      const __m128i v = _mm_loadu_si128(reinterpret_cast<const __m128i*>(p));
      const __m128i held =
          _mm_min_epu8(_mm_max_epu8(v, _mm_set1_epi8(char(bounds.low.v[0]))), _mm_set1_epi8(char(bounds.high.v[0])));
      return uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(v, held)));
#endif
    }
  }
  uint64_t result = 0;
  for (uint64_t rest = bits; rest != 0; rest &= rest - 1) {
    const int32_t i = lowestBit(rest);
    result |= uint64_t(inside(bounds, p + ptrdiff_t(i) * channels)) << i;
  }
  return result;
}

template <class T, int32_t channels>
static inline bool stepAllowed(const Deltas<T, channels>& deltas, const T* q, const T* p) {
  bool all = true;
  for (int32_t c = 0; c < channels; ++c) {
    if constexpr (std::is_same_v<T, float>) {
      all &= fabs(double(q[c] + deltas.first.v[c] - p[c])) <= double(deltas.second.v[c]);
    } else {
      all &= uint32_t(q[c] + deltas.first.v[c] - p[c]) <= uint32_t(deltas.first.v[c] + deltas.second.v[c]);
    }
  }
  return all;
}

template <class T, int32_t channels>
static inline uint64_t allowed(const Deltas<T, channels>& deltas, const T* q, const T* p, uint64_t bits) {
  uint64_t result = 0;
  for (uint64_t rest = bits; rest != 0; rest &= rest - 1) {
    const int32_t i = lowestBit(rest);
    const ptrdiff_t offset = ptrdiff_t(i) * channels;
    result |= uint64_t(stepAllowed(deltas, q + offset, p + offset)) << i;
  }
  return result;
}

template <class T, int32_t channels>
static inline void fillPixels(T* p, int32_t count, const Repeated<T, channels>& value) {
  if constexpr (sizeof(T) == 1 && channels == 1) {
    memset(p, value.v[0], size_t(count));
  } else {
    for (ptrdiff_t x = 0; x < count; ++x) {
      for (ptrdiff_t c = 0; c < channels; ++c) p[x * channels + c] = value.v[c];
    }
  }
}

template <class T, int32_t channels>
static inline void fillBits(T* p, uint64_t bits, const Repeated<T, channels>& value) {
  while (bits != 0) {
    const int32_t first = lowestBit(bits), count = onesFromZero(bits >> first);
    fillPixels(p + ptrdiff_t(first) * channels, count, value);
    bits &= ~(lowBits(count) << first);
  }
}

template <class T, int32_t channels>
static inline uint64_t reachedAlong(const Deltas<T, channels>& deltas, const T* q, uint64_t starts, uint64_t open) {
  uint64_t reached = starts;
  for (uint64_t rest = starts; rest != 0; rest &= rest - 1) {
    const int32_t start = lowestBit(rest);
    const auto walk = [&](int32_t i, int32_t direction) {
      for (int32_t next = i + direction; next >= 0 && next < 64; i = next, next += direction) {
        const uint64_t bit = uint64_t(1) << next;
        if ((open & ~reached & bit) == 0) return;
        if (!stepAllowed(deltas, q + ptrdiff_t(next) * channels, q + ptrdiff_t(i) * channels)) return;
        reached |= bit;
      }
    };
    walk(start, 1);
    walk(start, -1);
  }
  return reached;
}

#endif
