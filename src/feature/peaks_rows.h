// Rows of the peak search: the extremes of three neighbours along a row, and the peaks among the pixels of a row. All
// is written once for vectors and for single elements, of which short rows consist.
//
// An extreme passes over NaN: it begins with a value that any number replaces.
#pragma once

#include <limits>
#include <type_traits>

#include "frame/frame.h"
#include "frame/lanes.h"

typedef int32_t Integers __attribute__((vector_size(vectorBytes)));

template <class T>
using Wide = std::conditional_t<std::is_same_v<T, float>, Floats, Integers>;
static constexpr ptrdiff_t atOnce = vectorBytes / 4;

#if defined(__AVX512BW__)
static inline Integers lesser(Integers a, Integers b) {
  return Integers(_mm512_maskz_min_epi32(0xffff, __m512i(a), __m512i(b)));
}
static inline Integers greater(Integers a, Integers b) {
  return Integers(_mm512_maskz_max_epi32(0xffff, __m512i(a), __m512i(b)));
}
static inline uint32_t bitsOf(Integers condition) { return _mm512_movepi32_mask(__m512i(condition)); }
#elif defined(__AVX2__)
static inline Integers lesser(Integers a, Integers b) { return Integers(_mm256_min_epi32(__m256i(a), __m256i(b))); }
static inline Integers greater(Integers a, Integers b) { return Integers(_mm256_max_epi32(__m256i(a), __m256i(b))); }
static inline uint32_t bitsOf(Integers condition) { return uint32_t(_mm256_movemask_ps(__m256(condition))); }
#else
static inline Integers chosen(Integers condition, Integers a, Integers b) { return (a & condition) | (b & ~condition); }
static inline Integers lesser(Integers a, Integers b) { return chosen(Integers(a < b), a, b); }
static inline Integers greater(Integers a, Integers b) { return chosen(Integers(a > b), a, b); }
static inline uint32_t bitsOf(Integers condition) { return uint32_t(_mm_movemask_ps(__m128(condition))); }
#endif
static inline uint32_t bitsOf(bool condition) { return condition; }

template <class T>
static inline std::enable_if_t<std::is_arithmetic_v<T>, T> lesser(T a, T b) {
  return a < b ? a : b;
}
template <class T>
static inline std::enable_if_t<std::is_arithmetic_v<T>, T> greater(T a, T b) {
  return a > b ? a : b;
}
static inline Floats magnitude(Floats v) { return Floats(Integers(v) & INT32_MAX); }
static inline float magnitude(float v) { return __builtin_fabsf(v); }

template <class V, class T>
static inline V taken(const T* from) {
  if constexpr (std::is_same_v<V, Floats>) {
    return loaded(from);
  } else if constexpr (std::is_same_v<V, Integers>) {
    return Integers(loaded(reinterpret_cast<const uint8_t*>(from)));
  } else {
    return *from;
  }
}
template <class V, class T>
static inline void put(T* to, V value) {
  if constexpr (std::is_same_v<V, T>) {
    *to = value;
  } else {
    store(reinterpret_cast<uint8_t*>(to), Bytes(value));
  }
}

// What no element is beyond: the start of a minimum, and of a maximum.
template <class T>
constexpr T uppermost = std::is_same_v<T, float> ? std::numeric_limits<T>::infinity() : std::numeric_limits<T>::max();
template <class T>
constexpr T lowermost = std::is_same_v<T, float> ? -uppermost<T> : std::numeric_limits<T>::lowest();

// The extremes of three neighbours, from the left one on: as many as V has lanes.
template <class V, class T>
static inline V ownSiftFilterMaxRow03(const T* left) {
  return greater(taken<V>(left + 2), greater(taken<V>(left + 1), greater(taken<V>(left), V{} + lowermost<T>)));
}
template <class V, class T>
static inline V ownSiftFilterMinRow03(const T* left) {
  return lesser(taken<V>(left + 2), lesser(taken<V>(left + 1), lesser(taken<V>(left), V{} + uppermost<T>)));
}

// The extremes of src[x - 1], src[x] and src[x + 1], one of each for each x.
template <class T>
static inline void extremesOfRow(const T* src, T* greatest, T* least, ptrdiff_t count) {
  const auto at = [=](auto kind, ptrdiff_t x) {
    using V = decltype(kind);
    put(greatest + x, ownSiftFilterMaxRow03<V>(src + x - 1));
    put(least + x, ownSiftFilterMinRow03<V>(src + x - 1));
  };
  ptrdiff_t x = 0;
  for (; x + atOnce <= count; x += atOnce) at(Wide<T>{}, x);
  if (x < count && count >= atOnce) {
    at(Wide<T>{}, count - atOnce);
  } else {
    for (; x < count; ++x) at(T{}, x);
  }
}

// Which pixels have a magnitude above the threshold, as bits. That of integers is -1 or more; so the magnitude of the
// least integer, which no integer holds, is not needed.
template <class V>
static inline uint32_t bitsAbove(V v, float threshold) {
  return bitsOf(magnitude(v) > threshold);
}
template <class V>
static inline uint32_t bitsAbove(V v, int32_t threshold) {
  return bitsOf((v > threshold) | (v < -threshold));
}
// Which of them are the extreme of their sign.
constexpr float leastNormal = std::numeric_limits<float>::min();
template <class V, class T>
static inline uint32_t bitsOfExtremes(V v, V localMax, V localMin, uint32_t above, T) {
  if constexpr (std::is_same_v<T, float>) {
    return above & bitsOf(magnitude(v - (v > 0.0f ? localMax : localMin)) <= leastNormal);
  } else {
    return above & bitsOf(v == (v > 0 ? localMax : localMin));
  }
}
#ifdef __AVX512F__
static inline uint32_t bitsAbove(Floats v, float threshold) {
  return _mm512_cmp_ps_mask(__m512(magnitude(v)), _mm512_set1_ps(threshold), _CMP_GT_OQ);
}
static inline uint32_t bitsAbove(Integers v, int32_t threshold) {
  return _mm512_cmpgt_epi32_mask(__m512i(v), _mm512_set1_epi32(threshold)) |
         _mm512_cmplt_epi32_mask(__m512i(v), _mm512_set1_epi32(-threshold));
}
static inline uint32_t bitsOfExtremes(Floats v, Floats localMax, Floats localMin, uint32_t above, float) {
  const __mmask16 positive = _mm512_cmp_ps_mask(__m512(v), _mm512_setzero_ps(), _CMP_GT_OQ);
  const Floats off = v - Floats(_mm512_mask_mov_ps(__m512(localMin), positive, __m512(localMax)));
  return _mm512_mask_cmp_ps_mask(__mmask16(above), __m512(magnitude(off)), _mm512_set1_ps(leastNormal), _CMP_LE_OQ);
}
static inline uint32_t bitsOfExtremes(Integers v, Integers localMax, Integers localMin, uint32_t above, int32_t) {
  const __mmask16 positive = _mm512_cmpgt_epi32_mask(__m512i(v), _mm512_setzero_si512());
  const __m512i extreme = _mm512_mask_mov_epi32(__m512i(localMin), positive, __m512i(localMax));
  return _mm512_mask_cmpeq_epi32_mask(__mmask16(above), __m512i(v), extreme);
}
#endif

namespace {

// Where the peaks go.
struct Peaks {
  QoriPoint* peak;
  int32_t count, most;
};

}  // namespace

// Appends the peaks that the bits tell, at column x and those right of it, in one go where that can be done and leaves
// room for more: otherwise false, and nothing is appended. Without a branch on how many there are, which nobody
// foresees.
static inline bool appendAll(uint32_t bits, ptrdiff_t x, int32_t y, Peaks& peaks) {
#ifdef __AVX512F__
  const int32_t number = __builtin_popcount(bits);
  if (number >= peaks.most - peaks.count) return false;
  const __m512i ahead = _mm512_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15);
  const __m512i columns = _mm512_maskz_compress_epi32(
      __mmask16(bits), _mm512_maskz_add_epi32(0xffff, ahead, _mm512_set1_epi32(int32_t(x))));
  const __m512i row = _mm512_set1_epi64(int64_t(y) << 32);
  QoriPoint* const to = peaks.peak + peaks.count;
  const uint32_t places = (1u << number) - 1;
  const auto points = [=](__m256i eight) { return _mm512_maskz_cvtepu32_epi64(0xff, eight) | row; };
  _mm512_mask_storeu_epi64(to, __mmask8(places), points(_mm512_maskz_extracti32x8_epi32(0xff, columns, 0)));
  if (number > 8) {
    _mm512_mask_storeu_epi64(to + 8, __mmask8(places >> 8), points(_mm512_maskz_extracti32x8_epi32(0xff, columns, 1)));
  }
  peaks.count += number;
  return true;
#else
  (void)x, (void)y, (void)peaks;
  return bits == 0;
#endif
}

// Appends the peaks among the columns first .. limit - 1 of a row, until there is no more room: then false. Of the
// columns x from `x` on, extremes(V, x, localMax, localMin) tells the extremes.
template <class T, class Extremes>
static inline bool peaksOfRow(const T* src, int32_t y, ptrdiff_t first, ptrdiff_t limit, T threshold, Peaks& peaks,
                              Extremes extremes) {
  const auto bitsAt = [=](auto kind, ptrdiff_t x) {
    using V = decltype(kind);
    const V v = taken<V>(src + x);
    const uint32_t above = bitsAbove(v, threshold);
    if (above == 0) return above;
    V localMax, localMin;
    extremes(x, localMax, localMin);
    return bitsOfExtremes(v, localMax, localMin, above, threshold);
  };
  const auto append = [&](uint32_t bits, ptrdiff_t x) {
    if (appendAll(bits, x, y, peaks)) return true;
    for (; bits != 0; bits &= bits - 1) {
      peaks.peak[peaks.count++] = {int32_t(x) + __builtin_ctz(bits), y};
      if (peaks.count == peaks.most) return false;
    }
    return true;
  };
  ptrdiff_t x = first;
  for (; x + atOnce <= limit; x += atOnce) {
    if (!append(bitsAt(Wide<T>{}, x), x)) return false;
  }
  if (x < limit && limit - first >= atOnce) {
    // The last vector overlaps the one before, whose columns are done.
    const ptrdiff_t last = limit - atOnce, done = x - last;
    return append(bitsAt(Wide<T>{}, last) >> done << done, last);
  }
  for (; x < limit; ++x) {
    if (!append(bitsAt(T{}, x), x)) return false;
  }
  return true;
}
