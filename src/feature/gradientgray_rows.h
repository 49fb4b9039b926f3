// Rows of the gray conversion: three interleaved channels become one value a pixel.
//
// Levels with byte shuffles part the channels in registers: of three vectors each lane of 16 bytes holds the 48 bytes
// of as many pixels as fit there, a channel's elements stand in different places of the three, and one shuffle brings
// them into order. The other level runs the plain loops, whose arithmetic decides the result.
#pragma once

#include <math.h>

#include "frame/frame.h"
#include "frame/lanes.h"

// --- a pixel ---

// b, unless a is greater.
template <class T>
static inline T greaterOf(T a, T b) {
  return a > b ? a : b;
}

static inline uint8_t ownGradInf(uint8_t c0, uint8_t c1, uint8_t c2) { return greaterOf(greaterOf(c0, c1), c2); }
static inline uint16_t ownGradInf(uint16_t c0, uint16_t c1, uint16_t c2) { return greaterOf(greaterOf(c0, c1), c2); }
static inline float ownGradInf(float c0, float c1, float c2) {
  return greaterOf(greaterOf(__builtin_fabsf(c0), __builtin_fabsf(c1)), __builtin_fabsf(c2));
}

// The mean of integers, by thirds of 12 and 14 bits; the sum of floats, not a mean.
static inline uint8_t ownGradL1(uint8_t c0, uint8_t c1, uint8_t c2) {
  return uint8_t(((c0 + c1 + c2) * 1365 + 2048) >> 12);
}
static inline uint16_t ownGradL1(uint16_t c0, uint16_t c1, uint16_t c2) {
  return uint16_t(((c0 + c1 + c2) * 5461 + 8192) >> 14);
}
static inline float ownGradL1(float c0, float c1, float c2) {
  return __builtin_fabsf(c0) + __builtin_fabsf(c1) + __builtin_fabsf(c2);
}

// The root of the mean of the squares, rounded, of integers; of the sum of the squares of floats.
//
// No third of an integer comes nearer than 1/12 to the square of a number that ends in a half, so single precision
// decides the root of 8-bit values as double precision does.
constexpr float third = 1.0f / 3.0f;
static inline uint8_t ownGradL2(uint8_t c0, uint8_t c1, uint8_t c2) {
  return uint8_t(int32_t(sqrtf(float(c0 * c0 + c1 * c1 + c2 * c2) * third) + 0.5f));
}
static inline uint16_t ownGradL2(uint16_t c0, uint16_t c1, uint16_t c2) {
  const double squares = double(int64_t(c0) * c0 + int64_t(c1) * c1 + int64_t(c2) * c2);
  return uint16_t(int32_t(sqrt(squares / 3.0) + 0.5));
}
// A root taken in double and rounded to float is the root in float.
static inline float ownGradL2(float c0, float c1, float c2) { return sqrtf(c0 * c0 + c1 * c1 + c2 * c2); }

// --- vectors of pixels ---

#ifdef __AVX2__

typedef uint16_t Words __attribute__((vector_size(vectorBytes)));
typedef uint32_t Dwords __attribute__((vector_size(vectorBytes)));
typedef int32_t Integers __attribute__((vector_size(vectorBytes)));

#ifdef __AVX512BW__
static inline Bytes shuffled(Bytes v, Bytes order) { return Bytes(_mm512_shuffle_epi8(__m512i(v), __m512i(order))); }
static inline Words greater(Words a, Words b) { return Words(_mm512_max_epu16(__m512i(a), __m512i(b))); }
static inline Words scaledWords(Words v, int16_t factor) {
  return Words(_mm512_mulhrs_epi16(__m512i(v), _mm512_set1_epi16(factor)));
}
static inline Floats rootOf(Floats v) { return Floats(_mm512_maskz_sqrt_ps(0xffff, __m512(v))); }
static inline Integers squaresOfPairs(Dwords v) { return Integers(_mm512_madd_epi16(__m512i(v), __m512i(v))); }
static inline Integers truncated(Floats v) { return Integers(_mm512_maskz_cvttps_epi32(0xffff, __m512(v))); }
static inline Bytes inAllQuarters(const uint8_t* sixteen) {
  return Bytes(_mm512_maskz_broadcast_i32x4(0xffff, _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(sixteen))));
}
// 16 bytes from each of the addresses that lie 48 bytes apart.
static inline Bytes lanesApart(const uint8_t* p) {
  const auto quarter = [p](int32_t lane) {
    return _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(p + 48 * ptrdiff_t(lane)));
  };
  __m512i v = _mm512_zextsi128_si512(quarter(0));
  v = _mm512_maskz_inserti32x4(0xffff, v, quarter(1), 1);
  v = _mm512_maskz_inserti32x4(0xffff, v, quarter(2), 2);
  return Bytes(_mm512_maskz_inserti32x4(0xffff, v, quarter(3), 3));
}
#else
static inline Bytes shuffled(Bytes v, Bytes order) { return Bytes(_mm256_shuffle_epi8(__m256i(v), __m256i(order))); }
static inline Words greater(Words a, Words b) { return Words(_mm256_max_epu16(__m256i(a), __m256i(b))); }
static inline Words scaledWords(Words v, int16_t factor) {
  return Words(_mm256_mulhrs_epi16(__m256i(v), _mm256_set1_epi16(factor)));
}
static inline Floats rootOf(Floats v) { return Floats(_mm256_sqrt_ps(__m256(v))); }
static inline Integers squaresOfPairs(Dwords v) { return Integers(_mm256_madd_epi16(__m256i(v), __m256i(v))); }
static inline Integers truncated(Floats v) { return Integers(_mm256_cvttps_epi32(__m256(v))); }
static inline Bytes inAllQuarters(const uint8_t* sixteen) {
  return Bytes(_mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(sixteen))));
}
static inline Bytes lanesApart(const uint8_t* p) {
  return Bytes(_mm256_inserti128_si256(_mm256_castsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i_u*>(p))),
                                       _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(p + 48)), 1));
}
#endif

namespace {

// Element j of the vector k of a lane belongs to channel (elements * k + j) % 3. So each channel has one element in
// every place j, in one of the three vectors: `mask` chooses it there, and `order` sorts them by pixels.
template <class T>
struct Parting {
  uint8_t mask[3][16] = {}, order[3][16] = {};

  static constexpr int32_t elements = 16 / int32_t(sizeof(T));
  static constexpr int32_t maskOf(int32_t channel, int32_t k) { return (channel + 3 * elements - elements * k) % 3; }

  constexpr Parting() {
    for (int32_t byte = 0; byte < 16; ++byte) {
      const int32_t element = byte / int32_t(sizeof(T)), part = byte % int32_t(sizeof(T));
      mask[element % 3][byte] = 0xff;
      for (int32_t channel = 0; channel < 3; ++channel) {
        order[channel][byte] = uint8_t((3 * element + channel) % elements * int32_t(sizeof(T)) + part);
      }
    }
  }
};
template <class T>
constexpr Parting<T> parting;

template <class T>
struct VectorOf {
  using Type = Bytes;
};
template <>
struct VectorOf<uint16_t> {
  using Type = Words;
};
template <>
struct VectorOf<float> {
  using Type = Floats;
};

}  // namespace

template <class T, int32_t channel>
static inline typename VectorOf<T>::Type channelOf(Bytes a, Bytes b, Bytes c) {
  using Table = Parting<T>;
  const Bytes mixed = (a & inAllQuarters(parting<T>.mask[Table::maskOf(channel, 0)])) |
                      (b & inAllQuarters(parting<T>.mask[Table::maskOf(channel, 1)])) |
                      (c & inAllQuarters(parting<T>.mask[Table::maskOf(channel, 2)]));
  return typename VectorOf<T>::Type(shuffled(mixed, inAllQuarters(parting<T>.order[channel])));
}

static inline Floats magnitude(Floats v) { return Floats(Dwords(v) & (Dwords{} + 0x7fffffff)); }

static inline Bytes ownGradInf(Bytes c0, Bytes c1, Bytes c2) { return greater(greater(c0, c1), c2); }
static inline Words ownGradInf(Words c0, Words c1, Words c2) { return greater(greater(c0, c1), c2); }
static inline Floats ownGradInf(Floats c0, Floats c1, Floats c2) {
  return greater(greater(magnitude(c0), magnitude(c1)), magnitude(c2));
}

// The product rounded to its upper bits, (sum * 8 * 1365 + 2^14) >> 15, is the same number.
static inline Words thirdOfSum(Words c0, Words c1, Words c2) { return scaledWords(c0 + c1 + c2, 8 * 1365); }
static inline Bytes ownGradL1(Bytes c0, Bytes c1, Bytes c2) {
  const Words w0 = Words(c0), w1 = Words(c1), w2 = Words(c2);
  return Bytes(thirdOfSum(w0 & 0xff, w1 & 0xff, w2 & 0xff) | (thirdOfSum(w0 >> 8, w1 >> 8, w2 >> 8) << 8));
}
static inline Words ownGradL1(Words c0, Words c1, Words c2) {
  const Dwords d0 = Dwords(c0), d1 = Dwords(c1), d2 = Dwords(c2);
  const auto mean = [](Dwords a, Dwords b, Dwords c) { return ((a + b + c) * 5461 + 8192) >> 14; };
  return Words(mean(d0 & 0xffff, d1 & 0xffff, d2 & 0xffff) | (mean(d0 >> 16, d1 >> 16, d2 >> 16) << 16));
}
static inline Floats ownGradL1(Floats c0, Floats c1, Floats c2) {
  return magnitude(c0) + magnitude(c1) + magnitude(c2);
}

// Of the bytes at one place of each four.
static inline Dwords rootOfMeanSquare(Dwords c0, Dwords c1, Dwords c2) {
  const Integers squares = squaresOfPairs(c0 | (c1 << 16)) + squaresOfPairs(c2);
  return Dwords(truncated(rootOf(__builtin_convertvector(squares, Floats) * third) + 0.5f));
}
static inline Bytes ownGradL2(Bytes c0, Bytes c1, Bytes c2) {
  const Dwords d0 = Dwords(c0), d1 = Dwords(c1), d2 = Dwords(c2);
  const auto at = [=](int32_t bits) {
    return rootOfMeanSquare((d0 >> bits) & 0xff, (d1 >> bits) & 0xff, (d2 >> bits) & 0xff);
  };
  return Bytes(at(0) | (at(8) << 8) | (at(16) << 16) | (at(24) << 24));
}

// An estimate of the root in single precision is off by less than 0.02, so the result is `low` or the number above it,
// which integers decide: r is right as long as the sum of the squares is above 3 * r * (r - 1). The two are so near
// that 32 bits, which wrap, tell their difference.
static inline Dwords wideRootOfMeanSquare(Dwords c0, Dwords c1, Dwords c2) {
  const auto squared = [](Dwords c) {
    const Floats f = __builtin_convertvector(Integers(c), Floats);
    return f * f;
  };
  const Floats estimate = rootOf((squared(c0) + squared(c1) + squared(c2)) * third);
  const Integers low = truncated(estimate + 0.25f);
  const Integers over = Integers(c0 * c0 + c1 * c1 + c2 * c2) - 3 * (low * low + low);
  return Dwords(low - Integers(over > 0));
}
static inline Words ownGradL2(Words c0, Words c1, Words c2) {
  const Dwords d0 = Dwords(c0), d1 = Dwords(c1), d2 = Dwords(c2);
  return Words(wideRootOfMeanSquare(d0 & 0xffff, d1 & 0xffff, d2 & 0xffff) |
               (wideRootOfMeanSquare(d0 >> 16, d1 >> 16, d2 >> 16) << 16));
}
static inline Floats ownGradL2(Floats c0, Floats c1, Floats c2) { return rootOf(c0 * c0 + c1 * c1 + c2 * c2); }

static inline void storeBytes(void* to, Bytes from) { store(static_cast<uint8_t*>(to), from); }

// Calls gray(c0, c1, c2) with vectors of the three channels. The last vector of a row overlaps the one before.
template <class T, class Gray>
static inline void grayRow(const T* src, T* dst, ptrdiff_t width, Gray gray) {
  constexpr ptrdiff_t atOnce = vectorBytes / ptrdiff_t(sizeof(T));
  if (width < atOnce) {
    for (ptrdiff_t x = 0; x < width; ++x) dst[x] = gray(src[3 * x], src[3 * x + 1], src[3 * x + 2]);
    return;
  }
  for (ptrdiff_t x = 0;; x += atOnce) {
    if (x > width - atOnce) x = width - atOnce;
    const uint8_t* const from = reinterpret_cast<const uint8_t*>(src + 3 * x);
    const Bytes a = lanesApart(from), b = lanesApart(from + 16), c = lanesApart(from + 32);
    storeBytes(dst + x, Bytes(gray(channelOf<T, 0>(a, b, c), channelOf<T, 1>(a, b, c), channelOf<T, 2>(a, b, c))));
    if (x == width - atOnce) break;
  }
}

#else

template <class T, class Gray>
static inline void grayRow(const T* src, T* dst, ptrdiff_t width, Gray gray) {
  for (ptrdiff_t x = 0; x < width; ++x) dst[x] = gray(src[3 * x], src[3 * x + 1], src[3 * x + 2]);
}

#endif
