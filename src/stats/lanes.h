// The vectors of sums and norms: lanes of doubles and of 16-bit integers, beside the floats of all families.
#pragma once

#include "frame/lanes.h"

#if defined(__AVX512BW__)

typedef __m512d Doubles;
// Lane by lane |a| or |b|, whichever is larger.
static inline Doubles largerMagnitude(Doubles a, Doubles b) { return _mm512_maskz_range_pd(0xff, a, b, 0b1011); }
static inline Doubles widened(const float* values) { return _mm512_maskz_cvtps_pd(0xff, _mm256_loadu_ps(values)); }
// Lane i becomes lane i + n.
template <int n>
static inline Doubles rotated(Doubles x) {
  return __builtin_shufflevector(x, x, n & 7, (n + 1) & 7, (n + 2) & 7, (n + 3) & 7, (n + 4) & 7, (n + 5) & 7,
                                 (n + 6) & 7, (n + 7) & 7);
}

// The sign bits of the lanes, the first one lowest.
static inline uint32_t signsOf(Doubles x) { return _mm512_movepi64_mask(_mm512_castpd_si512(x)); }

typedef __m512i Words;
static inline Words loaded(const uint16_t* values) { return _mm512_loadu_si512(values); }
static inline Words allWords(int16_t value) { return _mm512_set1_epi16(value); }
static inline Words either(Words a, Words b) { return _mm512_xor_si512(a, b); }
static inline Words distances(Words a, Words b) {
  return _mm512_or_si512(_mm512_subs_epu16(a, b), _mm512_subs_epu16(b, a));
}
// Of unsigned lanes of 16 bits, the lower and the upper halves of the products.
static inline Words productsLow(Words a, Words b) { return _mm512_mullo_epi16(a, b); }
static inline Words productsHigh(Words a, Words b) { return _mm512_mulhi_epu16(a, b); }
// Of signed lanes, the sums of two neighbouring products, in lanes of 32 bits.
static inline Words pairs(Words a, Words b) { return _mm512_madd_epi16(a, b); }
// Lanes of 32 bits: sums, and their halves.
static inline Words sums(Words a, Words b) { return _mm512_add_epi32(a, b); }
static inline Words lowerHalves(Words a) { return _mm512_and_si512(a, _mm512_set1_epi32(0xffff)); }
static inline Words upperHalves(Words a) { return _mm512_maskz_srli_epi32(0xffff, a, 16); }

#elif defined(__AVX2__)

typedef __m256d Doubles;
static inline Doubles largerMagnitude(Doubles a, Doubles b) {
  return _mm256_max_pd(a, _mm256_andnot_pd(_mm256_set1_pd(-0.0), b));
}
static inline Doubles widened(const float* values) { return _mm256_cvtps_pd(_mm_loadu_ps(values)); }
template <int n>
static inline Doubles rotated(Doubles x) {
  return __builtin_shufflevector(x, x, n & 3, (n + 1) & 3, (n + 2) & 3, (n + 3) & 3);
}

static inline uint32_t signsOf(Doubles x) { return uint32_t(_mm256_movemask_pd(x)); }

typedef __m256i Words;
static inline Words loaded(const uint16_t* values) {
  return _mm256_loadu_si256(reinterpret_cast<const __m256i_u*>(values));
}
static inline Words allWords(int16_t value) { return _mm256_set1_epi16(value); }
static inline Words either(Words a, Words b) { return _mm256_xor_si256(a, b); }
static inline Words distances(Words a, Words b) {
  return _mm256_or_si256(_mm256_subs_epu16(a, b), _mm256_subs_epu16(b, a));
}
static inline Words productsLow(Words a, Words b) { return _mm256_mullo_epi16(a, b); }
static inline Words productsHigh(Words a, Words b) { return _mm256_mulhi_epu16(a, b); }
static inline Words pairs(Words a, Words b) { return _mm256_madd_epi16(a, b); }
static inline Words sums(Words a, Words b) { return _mm256_add_epi32(a, b); }
static inline Words lowerHalves(Words a) { return _mm256_and_si256(a, _mm256_set1_epi32(0xffff)); }
static inline Words upperHalves(Words a) { return _mm256_srli_epi32(a, 16); }

#else

typedef __m128d Doubles;
static inline Doubles largerMagnitude(Doubles a, Doubles b) {
  return _mm_max_pd(a, _mm_andnot_pd(_mm_set1_pd(-0.0), b));
}
static inline Doubles widened(const float* values) { return Doubles{values[0], values[1]}; }
template <int n>
static inline Doubles rotated(Doubles x) {
  return __builtin_shufflevector(x, x, n & 1, (n + 1) & 1);
}

static inline uint32_t signsOf(Doubles x) { return uint32_t(_mm_movemask_pd(x)); }

typedef __m128i Words;
static inline Words loaded(const uint16_t* values) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i_u*>(values));
}
static inline Words allWords(int16_t value) { return _mm_set1_epi16(value); }
static inline Words either(Words a, Words b) { return _mm_xor_si128(a, b); }
static inline Words distances(Words a, Words b) { return _mm_or_si128(_mm_subs_epu16(a, b), _mm_subs_epu16(b, a)); }
static inline Words productsLow(Words a, Words b) { return _mm_mullo_epi16(a, b); }
static inline Words productsHigh(Words a, Words b) { return _mm_mulhi_epu16(a, b); }
static inline Words pairs(Words a, Words b) { return _mm_madd_epi16(a, b); }
static inline Words sums(Words a, Words b) { return _mm_add_epi32(a, b); }
static inline Words lowerHalves(Words a) { return _mm_and_si128(a, _mm_set1_epi32(0xffff)); }
static inline Words upperHalves(Words a) { return _mm_srli_epi32(a, 16); }

#endif

constexpr ptrdiff_t doublesAtOnce = sizeof(Doubles) / sizeof(double);
constexpr ptrdiff_t floatsAtOnce = lanes<Floats, float>;
constexpr ptrdiff_t wordsAtOnce = sizeof(Words) / sizeof(uint16_t);

// Sum of signed lanes of 32 bits.
static inline int64_t sumOfSigned(Words x) {
  int32_t lanes[sizeof(Words) / sizeof(int32_t)];
  __builtin_memcpy(lanes, &x, sizeof x);
  int64_t sum = 0;
  for (const int32_t lane : lanes) sum += lane;
  return sum;
}
