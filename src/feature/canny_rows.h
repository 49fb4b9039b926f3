// Rows of the Canny detector: gradient magnitudes, and the thinning of a row between its two neighbours, 64 pixels at a
// time.
//
// Magnitudes are kept in one of three forms. In each of them 0 says that the pixel is no candidate, and comparing
// integers compares magnitudes:
//   uint16_t  |dx| + |dy| - 1, of 16-bit gradients and a low threshold of 1 or more: candidates then have a magnitude
//             of 2 to 65536, and half the memory does;
//   int32_t   |dx| + |dy|, of 16-bit gradients where a magnitude of 1 counts as well, which is one value too many;
//   int32_t   the bits of |dx| + |dy|, of float gradients: floats without a sign are in the order of their bits.
#pragma once

#include <string.h>

#include "frame/lanes.h"
#include "frame/level.h"
#include "frame/loops.h"

namespace {

// ---- Magnitudes

inline uint16_t absolute(int16_t value) {
  const int16_t opposite = int16_t(-value);
  return uint16_t(value > opposite ? value : opposite);
}

// Keeps magnitudes above `low`, which is 1 to 65535.
inline void magnitudeRow(const int16_t* dx, const int16_t* dy, uint16_t* magnitudes, int32_t width, int32_t low) {
  const uint16_t least = uint16_t(low);
  QOR_INDEPENDENT
  for (int32_t x = 0; x < width; ++x) {
    // A sum of 65536 wraps to 0 before 1 is taken off.
    const uint16_t m = uint16_t(absolute(dx[x]) + absolute(dy[x]) - ((dx[x] | dy[x]) != 0));
    magnitudes[x] = m >= least ? m : uint16_t(0);
  }
}

// Keeps all magnitudes; `low` is 0.
inline void magnitudeRow(const int16_t* dx, const int16_t* dy, int32_t* magnitudes, int32_t width, int32_t) {
  QOR_INDEPENDENT
  for (int32_t x = 0; x < width; ++x) magnitudes[x] = absolute(dx[x]) + absolute(dy[x]);
}

// Keeps magnitudes above `low`; a NaN is above nothing. The sum is due in double and then rounded to float. The float
// sum is the same: 53 bits are enough to round the sum of two 24-bit numbers twice without harm.
inline void magnitudeRow(const float* dx, const float* dy, int32_t* magnitudes, int32_t width, float low) {
  QOR_INDEPENDENT
  for (int32_t x = 0; x < width; ++x) {
    const float sum = __builtin_fabsf(dx[x]) + __builtin_fabsf(dy[x]);
    const float m = sum > low ? sum : 0.0f;
    memcpy(magnitudes + x, &m, sizeof m);
  }
}

// ---- Vectors

typedef int16_t Lanes16 __attribute__((vector_size(vectorBytes)));
typedef uint16_t UnsignedLanes16 __attribute__((vector_size(vectorBytes)));
typedef int32_t Lanes32 __attribute__((vector_size(vectorBytes)));

template <class Vector>
inline Vector load(const void* p) {
  Vector v;
  memcpy(&v, p, sizeof v);
  return v;
}

// a where the lanes of `mask` are -1, b where they are 0.
template <class Mask, class Vector>
inline Vector select(Mask mask, Vector a, Vector b) {
  return Vector((mask & Mask(a)) | (~mask & Mask(b)));
}

// What the compiler has no words for:
//   bitsOf      the lanes of a mask as bits;
//   absolutes   absolute values, 32767 for -32768;
//   rise        a * 5741 taken from b * 2378, held to 16 bits, for a and b of 0 to 32767;
//   writeBits   64 bytes: `value` where a bit is set, 0 elsewhere.
constexpr int32_t riseWeights = 2378 << 16 | uint16_t(-5741);

#if defined(__AVX512BW__)

inline uint64_t bitsOf(Lanes16 mask) { return _mm512_movepi16_mask(__m512i(mask)); }

inline uint64_t bitsOf(Lanes32 mask) { return _mm512_movepi32_mask(__m512i(mask)); }

inline Lanes16 absolutes(Lanes16 values) {
  return Lanes16(_mm512_min_epu16(_mm512_abs_epi16(__m512i(values)), _mm512_set1_epi16(32767)));
}

inline Lanes16 rise(Lanes16 a, Lanes16 b) {
  const __m512i weights = _mm512_set1_epi32(riseWeights);
  const __m512i low = _mm512_madd_epi16(_mm512_unpacklo_epi16(__m512i(a), __m512i(b)), weights);
  const __m512i high = _mm512_madd_epi16(_mm512_unpackhi_epi16(__m512i(a), __m512i(b)), weights);
  return Lanes16(_mm512_packs_epi32(low, high));
}

inline void writeBits(uint64_t bits, uint8_t value, uint8_t* p) {
  _mm512_storeu_si512(p, _mm512_maskz_set1_epi8(bits, char(value)));
}

#else

#if defined(__AVX2__)

inline uint64_t bitsOf(Lanes16 mask) {
  const __m256i v = __m256i(mask);
  const __m128i bytes = _mm_packs_epi16(_mm256_castsi256_si128(v), _mm256_extracti128_si256(v, 1));
  return uint32_t(_mm_movemask_epi8(bytes));
}

inline uint64_t bitsOf(Lanes32 mask) { return uint32_t(_mm256_movemask_ps(__m256(mask))); }

inline Lanes16 absolutes(Lanes16 values) {
  return Lanes16(_mm256_min_epu16(_mm256_abs_epi16(__m256i(values)), _mm256_set1_epi16(32767)));
}

inline Lanes16 rise(Lanes16 a, Lanes16 b) {
  const __m256i weights = _mm256_set1_epi32(riseWeights);
  const __m256i low = _mm256_madd_epi16(_mm256_unpacklo_epi16(__m256i(a), __m256i(b)), weights);
  const __m256i high = _mm256_madd_epi16(_mm256_unpackhi_epi16(__m256i(a), __m256i(b)), weights);
  return Lanes16(_mm256_packs_epi32(low, high));
}

#else

inline uint64_t bitsOf(Lanes16 mask) {
  return uint32_t(_mm_movemask_epi8(_mm_packs_epi16(__m128i(mask), _mm_setzero_si128())));
}

inline uint64_t bitsOf(Lanes32 mask) { return uint32_t(_mm_movemask_ps(__m128(mask))); }

inline Lanes16 absolutes(Lanes16 values) {
  return Lanes16(_mm_max_epi16(__m128i(values), _mm_subs_epi16(_mm_setzero_si128(), __m128i(values))));
}

inline Lanes16 rise(Lanes16 a, Lanes16 b) {
  const __m128i weights = _mm_set1_epi32(riseWeights);
  const __m128i low = _mm_madd_epi16(_mm_unpacklo_epi16(__m128i(a), __m128i(b)), weights);
  const __m128i high = _mm_madd_epi16(_mm_unpackhi_epi16(__m128i(a), __m128i(b)), weights);
  return Lanes16(_mm_packs_epi32(low, high));
}

#endif

inline void writeBits(uint64_t bits, uint8_t value, uint8_t* p) {
  const uint64_t copies = 0x0101010101010101;
  const __m128i bitOfByte = _mm_set1_epi64x(int64_t(0x8040201008040201));
  const __m128i values = _mm_set1_epi8(char(value));
  for (int32_t i = 0; i < 64; i += 16) {
    const __m128i pair = _mm_set_epi64x(int64_t((bits >> (i + 8) & 255) * copies), int64_t((bits >> i & 255) * copies));
    const __m128i set = _mm_cmpeq_epi8(_mm_and_si128(pair, bitOfByte), bitOfByte);
    _mm_storeu_si128(reinterpret_cast<__m128i*>(p + i), _mm_and_si128(set, values));
  }
}

#endif

// ---- Thinning

// Pixels that are looked at together, a bit each.
constexpr int32_t blockSize = 64;

// The pixels of a block that are left by thinning, and those of them above the high threshold.
struct Survivors {
  uint64_t all, strong;
};

// Which pairs of neighbours each pixel of a block is compared with: those above and below if steep, left and right if
// flat, otherwise those on a diagonal, which starts at the upper left if the signs are the same.
struct Directions {
  int32_t steep[blockSize], flat[blockSize], sameSign[blockSize];
};

template <class T>
inline void findDirections(const T* dx, const T* dy, Directions& directions) {
  for (int32_t x = 0; x < blockSize; ++x) {
    const float fx = dx[x], fy = dy[x];
    const float ax = __builtin_fabsf(fx), ay = __builtin_fabsf(fy);
    int32_t xBits, yBits;
    memcpy(&xBits, &fx, sizeof fx);
    memcpy(&yBits, &fy, sizeof fy);
    directions.steep[x] = ay > float(double(ax) * 2.414213562373095) ? -1 : 0;
    directions.flat[x] = float(double(ax) * 0.41421356237309503) > ay ? -1 : 0;
    directions.sameSign[x] = (xBits ^ yBits) >= 0 ? -1 : 0;  // the sign bit decides: -0.0 is negative
  }
}

template <class Vector, class Mask, class Magnitude>
inline Mask survivors(Mask steep, Mask flat, Mask sameSign, const Magnitude* above, const Magnitude* at,
                      const Magnitude* below) {
  const Vector m = load<Vector>(at);
  Vector prev = select(sameSign, load<Vector>(above - 1), load<Vector>(above + 1));
  Vector next = select(sameSign, load<Vector>(below + 1), load<Vector>(below - 1));
  prev = select(flat, load<Vector>(at - 1), prev);
  next = select(flat, load<Vector>(at + 1), next);
  prev = select(steep, load<Vector>(above), prev);
  next = select(steep, load<Vector>(below), next);
  // One-sided by contract: along the axes the first pixel of a plateau stays, along the diagonals none does.
  return Mask(m > prev) & (Mask(m > next) | (Mask(m == next) & (steep | flat)));
}

template <class T>
inline Survivors thinBlock(const T* dx, const T* dy, const int32_t* above, const int32_t* at, const int32_t* below,
                           int32_t high) {
  Directions directions;
  findDirections(dx, dy, directions);
  Survivors left = {0, 0};
  for (int32_t x = 0; x < blockSize; x += vectorBytes / 4) {
    const Lanes32 steep = load<Lanes32>(directions.steep + x);
    const Lanes32 flat = load<Lanes32>(directions.flat + x);
    const Lanes32 sameSign = load<Lanes32>(directions.sameSign + x);
    const Lanes32 mask = survivors<Lanes32>(steep, flat, sameSign, above + x, at + x, below + x);
    left.all |= bitsOf(mask) << x;
    left.strong |= bitsOf(mask & (load<Lanes32>(at + x) > high)) << x;
  }
  return left;
}

// The directions of 16-bit gradients in integers. 5741 / 2378 stands for 1 plus the root of 2, so closely that among
// all pairs of 0 to 32768 only three come out differently: those for which the product of the float rule, otherwise
// exact enough, rounds up to the whole number that it is compared with.
inline Survivors thinBlock(const int16_t* dx, const int16_t* dy, const uint16_t* above, const uint16_t* at,
                           const uint16_t* below, uint16_t high) {
  Survivors left = {0, 0};
  for (int32_t x = 0; x < blockSize; x += vectorBytes / 2) {
    const Lanes16 vx = load<Lanes16>(dx + x), vy = load<Lanes16>(dy + x);
    const Lanes16 ax = absolutes(vx), ay = absolutes(vy);
    // At the exceptions, (8527, 20586) and (20586, 8527), (26327, 10905), the rise is 1. A comparison that holds is -1.
    const Lanes16 steep = rise(ax, ay) > -(ax == 8527);
    const Lanes16 flat = rise(ay, ax) > -((ay == 8527) | (ay == 10905));
    const Lanes16 sameSign = (vx ^ vy) >= 0;
    const Lanes16 mask = survivors<UnsignedLanes16>(steep, flat, sameSign, above + x, at + x, below + x);
    left.all |= bitsOf(mask) << x;
    left.strong |= bitsOf(mask & Lanes16(load<UnsignedLanes16>(at + x) > high)) << x;
  }
  return left;
}

template <class Magnitude>
inline bool anyCandidate(const Magnitude* block) {
  Lanes32 any = {};
  for (int32_t x = 0; x < blockSize; x += int32_t(vectorBytes / sizeof *block)) any |= load<Lanes32>(block + x);
  return bitsOf(any != 0) != 0;
}

// Thins the block that starts at column x. All rows have `width` elements, those of magnitudes one more on each side.
template <class T, class Magnitude>
inline Survivors thinAt(int32_t x, const T* dx, const T* dy, const Magnitude* above, const Magnitude* at,
                        const Magnitude* below, Magnitude high, int32_t width) {
  int32_t first = x;
  T blockDx[blockSize], blockDy[blockSize];
  Magnitude rows[3][1 + blockSize + 1];
  if (x <= width - blockSize) {
    if (!anyCandidate(at + x)) return {0, 0};
  } else if (width > blockSize) {
    // The last whole block once more, of which the end is new.
    first = width - blockSize;
  } else {
    // A narrow image: one block, filled up with zeros.
    memset(blockDx, 0, sizeof blockDx);
    memset(blockDy, 0, sizeof blockDy);
    memset(rows, 0, sizeof rows);
    memcpy(blockDx, dx, width * sizeof *dx);
    memcpy(blockDy, dy, width * sizeof *dy);
    memcpy(rows[0], above - 1, (1 + width + 1) * sizeof *above);
    memcpy(rows[1], at - 1, (1 + width + 1) * sizeof *at);
    memcpy(rows[2], below - 1, (1 + width + 1) * sizeof *below);
    dx = blockDx;
    dy = blockDy;
    above = rows[0] + 1;
    at = rows[1] + 1;
    below = rows[2] + 1;
  }
  const Survivors left = thinBlock(dx + first, dy + first, above + first, at + first, below + first, high);
  return {left.all >> (x - first), left.strong >> (x - first)};
}

}  // namespace
