// Rows of the Canny detector: gradient magnitudes, and the thinning of a row between the rows above and below it.
//
// Magnitudes are kept in one of three forms. In all of them 0 says "no candidate", and integer comparison orders them:
//   uint16_t  |dx| + |dy| - 1, for 16-bit gradients with a low threshold of 1 or more, under which a candidate has a
//             magnitude of 2 to 65536;
//   int32_t   |dx| + |dy|, for 16-bit gradients where a magnitude of 1 counts too, which makes one value too many;
//   int32_t   the bits of |dx| + |dy|, for float gradients: floats that are not negative have the order of their bits.
#pragma once

#include <string.h>

#include <algorithm>

#include "frame/level.h"
#include "frame/loops.h"

#include <immintrin.h>

namespace {

// ---- Magnitudes

inline uint16_t absolute(int16_t value) { return uint16_t(std::max(value, int16_t(-value))); }

// Keeps magnitudes above `low`, which is 1 or more.
inline void magnitudeRow(const int16_t* dx, const int16_t* dy, uint16_t* magnitudes, int32_t width, int32_t low) {
  const uint16_t least = uint16_t(low);
  QOR_INDEPENDENT
  for (int32_t x = 0; x < width; ++x) {
    const uint16_t m = uint16_t(absolute(dx[x]) + absolute(dy[x]) - ((dx[x] | dy[x]) != 0));
    magnitudes[x] = m >= least ? m : uint16_t(0);
  }
}

inline void magnitudeRow(const int16_t* dx, const int16_t* dy, int32_t* magnitudes, int32_t width, int32_t low) {
  QOR_INDEPENDENT
  for (int32_t x = 0; x < width; ++x) {
    const int32_t m = absolute(dx[x]) + absolute(dy[x]);
    magnitudes[x] = m > low ? m : 0;
  }
}

// The sum in double, rounded to float, is the float sum: 53 bits are enough to round a sum of two 24-bit numbers twice
// without harm. A NaN is above nothing and becomes 0.
inline void magnitudeRow(const float* dx, const float* dy, int32_t* magnitudes, int32_t width, float low) {
  QOR_INDEPENDENT
  for (int32_t x = 0; x < width; ++x) {
    const float sum = __builtin_fabsf(dx[x]) + __builtin_fabsf(dy[x]);
    const float m = sum > low ? sum : 0.0f;
    int32_t bits;
    memcpy(&bits, &m, sizeof bits);
    magnitudes[x] = bits;
  }
}

// ---- Vectors

#if defined(__AVX512BW__)
constexpr int32_t vectorBytes = 64;
#elif defined(__AVX2__)
constexpr int32_t vectorBytes = 32;
#else
constexpr int32_t vectorBytes = 16;
#endif

typedef int16_t Lanes16 __attribute__((vector_size(vectorBytes)));
typedef uint16_t UnsignedLanes16 __attribute__((vector_size(vectorBytes)));
typedef int32_t Lanes32 __attribute__((vector_size(vectorBytes)));

template <class Vector, class T>
inline Vector load(const T* p) {
  Vector v;
  memcpy(&v, p, sizeof v);
  return v;
}

// a where the lanes of `mask` are -1, b where they are 0.
template <class Mask, class Vector>
inline Vector select(Mask mask, Vector a, Vector b) {
  return Vector((mask & Mask(a)) | (~mask & Mask(b)));
}

// The lanes of a mask as bits, and the value of ay * 2378 - ax * 5741 in 16 bits with saturation.
#if defined(__AVX512BW__)
inline uint64_t bitsOf(Lanes16 mask) { return _mm512_movepi16_mask(__m512i(mask)); }
inline uint64_t bitsOf(Lanes32 mask) { return _mm512_movepi32_mask(__m512i(mask)); }
inline Lanes16 absoluteHeld(Lanes16 v) {
  return Lanes16(_mm512_min_epu16(_mm512_abs_epi16(__m512i(v)), _mm512_set1_epi16(32767)));
}
inline Lanes16 rise(Lanes16 ax, Lanes16 ay) {
  const __m512i weights = _mm512_set1_epi32(2378 << 16 | uint16_t(-5741));
  const __m512i low = _mm512_madd_epi16(_mm512_unpacklo_epi16(__m512i(ax), __m512i(ay)), weights);
  const __m512i high = _mm512_madd_epi16(_mm512_unpackhi_epi16(__m512i(ax), __m512i(ay)), weights);
  return Lanes16(_mm512_packs_epi32(low, high));
}
#elif defined(__AVX2__)
inline uint64_t bitsOf(Lanes16 mask) {
  const __m256i v = __m256i(mask);
  const __m128i bytes = _mm_packs_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  return uint32_t(_mm_movemask_epi8(bytes));
}
inline uint64_t bitsOf(Lanes32 mask) { return uint32_t(_mm256_movemask_ps(__m256(mask))); }
inline Lanes16 absoluteHeld(Lanes16 v) {
  return Lanes16(_mm256_min_epu16(_mm256_abs_epi16(__m256i(v)), _mm256_set1_epi16(32767)));
}
inline Lanes16 rise(Lanes16 ax, Lanes16 ay) {
  const __m256i weights = _mm256_set1_epi32(2378 << 16 | uint16_t(-5741));
  const __m256i low = _mm256_madd_epi16(_mm256_unpacklo_epi16(__m256i(ax), __m256i(ay)), weights);
  const __m256i high = _mm256_madd_epi16(_mm256_unpackhi_epi16(__m256i(ax), __m256i(ay)), weights);
  return Lanes16(_mm256_packs_epi32(low, high));
}
#else
inline uint64_t bitsOf(Lanes16 mask) {
  return uint32_t(_mm_movemask_epi8(_mm_packs_epi16(__m128i(mask), _mm_setzero_si128())));
}
inline uint64_t bitsOf(Lanes32 mask) { return uint32_t(_mm_movemask_ps(__m128(mask))); }
inline Lanes16 absoluteHeld(Lanes16 v) {
  return Lanes16(_mm_max_epi16(__m128i(v), _mm_subs_epi16(_mm_setzero_si128(), __m128i(v))));
}
inline Lanes16 rise(Lanes16 ax, Lanes16 ay) {
  const __m128i weights = _mm_set1_epi32(2378 << 16 | uint16_t(-5741));
  const __m128i low = _mm_madd_epi16(_mm_unpacklo_epi16(__m128i(ax), __m128i(ay)), weights);
  const __m128i high = _mm_madd_epi16(_mm_unpackhi_epi16(__m128i(ax), __m128i(ay)), weights);
  return Lanes16(_mm_packs_epi32(low, high));
}
#endif

// Writes `value` where a bit is set and 0 elsewhere, to 64 bytes.
inline void expand(uint64_t bits, uint8_t value, uint8_t* p) {
#if defined(__AVX512BW__)
  _mm512_storeu_si512(p, _mm512_maskz_set1_epi8(bits, char(value)));
#else
  for (int32_t i = 0; i < 64; i += 16) {
    const __m128i pick = _mm_set1_epi64x(int64_t(0x8040201008040201));
    const uint64_t ones = 0x0101010101010101;
    const __m128i copies = _mm_set_epi64x((bits >> (i + 8) & 255) * ones, (bits >> i & 255) * ones);
    const __m128i mask = _mm_cmpeq_epi8(_mm_and_si128(copies, pick), pick);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p + i), _mm_and_si128(mask, _mm_set1_epi8(char(value))));
  }
#endif
}

// ---- Thinning

// Pixels that are looked at together: one bit each.
constexpr int32_t blockSize = 64;

inline bool anyCandidate(const void* block, int32_t bytes) {
  const uint8_t* p = static_cast<const uint8_t*>(block);
  Lanes32 any = {};
  for (int32_t i = 0; i < bytes; i += vectorBytes) any |= load<Lanes32>(p + i);
  return bitsOf(any != 0) != 0;
}

struct Survivors {
  uint64_t all;
  uint64_t strong;
};

template <class Vector, class Mask>
inline Mask maskOfSurvivors(Mask steep, Mask flat, Mask sameSign, const void* aboveRow, const void* atRow,
                            const void* belowRow) {
  constexpr ptrdiff_t size = sizeof(steep[0]);
  const uint8_t* above = static_cast<const uint8_t*>(aboveRow);
  const uint8_t* at = static_cast<const uint8_t*>(atRow);
  const uint8_t* below = static_cast<const uint8_t*>(belowRow);
  const Vector m = load<Vector>(at);
  Vector prev = select(sameSign, load<Vector>(above - size), load<Vector>(above + size));
  Vector next = select(sameSign, load<Vector>(below + size), load<Vector>(below - size));
  prev = select(flat, load<Vector>(at - size), prev);
  next = select(flat, load<Vector>(at + size), next);
  prev = select(steep, load<Vector>(above), prev);
  next = select(steep, load<Vector>(below), next);
  // Along the axes the first pixel of a plateau stays; along the diagonals none does.
  return Mask(m > prev) & (Mask(m > next) | (Mask(m == next) & (steep | flat)));
}

inline Survivors thinBlock(const int16_t* dx, const int16_t* dy, const uint16_t* above, const uint16_t* at,
                           const uint16_t* below, uint16_t high) {
  constexpr int32_t lanes = vectorBytes / 2;
  Survivors survivors = {0, 0};
  for (int32_t x = 0; x < blockSize; x += lanes) {
    const Lanes16 vx = load<Lanes16>(dx + x), vy = load<Lanes16>(dy + x);
    const Lanes16 ax = absoluteHeld(vx), ay = absoluteHeld(vy);
    const Lanes16 steep = rise(ax, ay) + (ax == 8527) > 0;
    const Lanes16 flat = rise(ay, ax) + ((ay == 8527) | (ay == 10905)) > 0;
    const Lanes16 kept = maskOfSurvivors<UnsignedLanes16>(steep, flat, Lanes16((vx ^ vy) >= 0), above + x, at + x, below + x);
    survivors.all |= bitsOf(kept) << x;
    survivors.strong |= bitsOf(kept & Lanes16(load<UnsignedLanes16>(at + x) > high)) << x;
  }
  return survivors;
}

// The direction of each pixel of a block, as masks.
struct Directions {
  int32_t steep[blockSize], flat[blockSize], sameSign[blockSize];
};

inline float asFloat(int16_t value) { return float(value); }
inline float asFloat(float value) { return value; }

template <class T>
inline void findDirections(const T* dx, const T* dy, Directions& directions) {
  for (int32_t x = 0; x < blockSize; ++x) {
    const float fx = asFloat(dx[x]), fy = asFloat(dy[x]);
    const float ax = __builtin_fabsf(fx), ay = __builtin_fabsf(fy);
    int32_t xBits, yBits;
    memcpy(&xBits, &fx, sizeof fx);
    memcpy(&yBits, &fy, sizeof fy);
    directions.steep[x] = ay > float(double(ax) * 2.414213562373095) ? -1 : 0;
    directions.flat[x] = float(double(ax) * 0.41421356237309503) > ay ? -1 : 0;
    directions.sameSign[x] = (xBits ^ yBits) >= 0 ? -1 : 0;
  }
}

template <class T>
inline Survivors thinBlock(const T* dx, const T* dy, const int32_t* above, const int32_t* at, const int32_t* below,
                           int32_t high) {
  constexpr int32_t lanes = vectorBytes / 4;
  Directions directions;
  findDirections(dx, dy, directions);
  Survivors survivors = {0, 0};
  for (int32_t x = 0; x < blockSize; x += lanes) {
    const Lanes32 steep = load<Lanes32>(directions.steep + x), flat = load<Lanes32>(directions.flat + x);
    const Lanes32 kept = maskOfSurvivors<Lanes32>(steep, flat, load<Lanes32>(directions.sameSign + x), above + x, at + x, below + x);
    survivors.all |= bitsOf(kept) << x;
    survivors.strong |= bitsOf(kept & (load<Lanes32>(at + x) > high)) << x;
  }
  return survivors;
}

}  // namespace
