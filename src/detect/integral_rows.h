// Rows of the upright integral images: prefix sums of pixels and of their squares, a vector at a time.
//
// The sums of one vector are formed in 32 bits, by adding it to itself moved by 1, 2, 4, ... places; what the row had
// before is added to all of them. Sums of squares that go into doubles are exact (a row would need 2^37 pixels to leave
// 53 bits), so it does not matter in which order they are formed.
//
// Stores that go past the cache were measured: half as slow again, since the next row reads what this one writes.
#pragma once

#include <immintrin.h>

#include "frame/level.h"

namespace {

#if defined(__AVX512BW__)
#define QOR_PREFIX_VECTORS
constexpr int32_t lanes = 16;
using Ints = __m512i;
using Doubles = __m512d;

inline Ints pixelsAt(const uint8_t* src) {
  // The masked form, since GCC warns of the other's undefined lanes.
  return _mm512_maskz_cvtepu8_epi32(0xffff, _mm_loadu_si128(reinterpret_cast<const __m128i*>(src)));
}
inline Ints squared(Ints values) { return _mm512_madd_epi16(values, values); }
inline Ints plus(Ints a, Ints b) { return _mm512_add_epi32(a, b); }
inline Doubles plus(Doubles a, Doubles b) { return _mm512_add_pd(a, b); }

inline Ints prefixSums(Ints v) {
  v = plus(v, _mm512_maskz_slli_epi64(0xff, v, 32));
  v = plus(v, _mm512_maskz_shuffle_epi32(0xcccc, v, _MM_PERM_BBBB));
  v = plus(v, _mm512_maskz_permutexvar_epi32(0xf0f0,
                                             _mm512_setr_epi32(0, 0, 0, 0, 3, 3, 3, 3, 0, 0, 0, 0, 11, 11, 11, 11), v));
  return plus(v, _mm512_maskz_permutexvar_epi32(0xff00, _mm512_set1_epi32(7), v));
}
inline Ints lastOf(Ints v) { return _mm512_maskz_permutexvar_epi32(0xffff, _mm512_set1_epi32(15), v); }
inline int32_t firstOf(Ints v) { return __v16si(v)[0]; }
inline double firstOf(Doubles v) { return v[0]; }
inline Doubles firstHalf(Ints v) {
  const __v16si i = __v16si(v);
  return __builtin_convertvector(__builtin_shufflevector(i, i, 0, 1, 2, 3, 4, 5, 6, 7), __v8df);
}
inline Doubles secondHalf(Ints v) {
  const __v16si i = __v16si(v);
  return __builtin_convertvector(__builtin_shufflevector(i, i, 8, 9, 10, 11, 12, 13, 14, 15), __v8df);
}
inline Ints noInts() { return _mm512_setzero_si512(); }
inline Doubles noDoubles() { return _mm512_setzero_pd(); }

inline void putCells(const int32_t* above, Ints sums, int32_t* cells) {
  _mm512_storeu_si512(cells, plus(sums, _mm512_loadu_si512(above)));
}
inline void putCells(const float* above, Ints sums, float* cells) {
  _mm512_storeu_ps(cells, _mm512_add_ps(_mm512_maskz_cvtepi32_ps(0xffff, sums), _mm512_loadu_ps(above)));
}
inline void putCells(const double* above, Doubles sums, double* cells) {
  _mm512_storeu_pd(cells, plus(sums, _mm512_loadu_pd(above)));
}

#elif defined(__AVX2__)
#define QOR_PREFIX_VECTORS
constexpr int32_t lanes = 8;
using Ints = __m256i;
using Doubles = __m256d;

inline Ints pixelsAt(const uint8_t* src) {
  return _mm256_cvtepu8_epi32(_mm_loadl_epi64(reinterpret_cast<const __m128i*>(src)));
}
inline Ints squared(Ints values) { return _mm256_madd_epi16(values, values); }
inline Ints plus(Ints a, Ints b) { return _mm256_add_epi32(a, b); }
inline Doubles plus(Doubles a, Doubles b) { return _mm256_add_pd(a, b); }

inline Ints prefixSums(Ints v) {
  const Ints zero = _mm256_setzero_si256();
  v = plus(v, _mm256_slli_epi64(v, 32));
  v = plus(v, _mm256_blend_epi32(zero, _mm256_shuffle_epi32(v, 0x55), 0xcc));
  return plus(v, _mm256_blend_epi32(zero, _mm256_permutevar8x32_epi32(v, _mm256_set1_epi32(3)), 0xf0));
}
inline Ints lastOf(Ints v) { return _mm256_permutevar8x32_epi32(v, _mm256_set1_epi32(7)); }
inline int32_t firstOf(Ints v) { return _mm_cvtsi128_si32(_mm256_castsi256_si128(v)); }
inline double firstOf(Doubles v) { return _mm_cvtsd_f64(_mm256_castpd256_pd128(v)); }
inline Doubles firstHalf(Ints v) { return _mm256_cvtepi32_pd(_mm256_castsi256_si128(v)); }
inline Doubles secondHalf(Ints v) { return _mm256_cvtepi32_pd(_mm256_extracti128_si256(v, 1)); }
inline Ints noInts() { return _mm256_setzero_si256(); }
inline Doubles noDoubles() { return _mm256_setzero_pd(); }

inline void putCells(const int32_t* above, Ints sums, int32_t* cells) {
  const Ints old = _mm256_loadu_si256(reinterpret_cast<const __m256i*>(above));
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(cells), plus(sums, old));
}
inline void putCells(const float* above, Ints sums, float* cells) {
  _mm256_storeu_ps(cells, _mm256_add_ps(_mm256_cvtepi32_ps(sums), _mm256_loadu_ps(above)));
}
inline void putCells(const double* above, Doubles sums, double* cells) {
  _mm256_storeu_pd(cells, plus(sums, _mm256_loadu_pd(above)));
}
#endif

#ifdef QOR_PREFIX_VECTORS
// Asks for the cells that are written a little later. The processor foresees them by itself, but only up to the end of
// a page, and planes are many pages: a fifth of the time of a large one. Past the plane it is harmless.
template <class Cell>
inline void fetchAhead(const Cell* cells) {
  __builtin_prefetch(reinterpret_cast<const void*>(reinterpret_cast<uintptr_t>(cells) + 2048), 1, 3);
}

// Writes one vector of cells from its own prefix sums and what the row had before, and moves on.
template <class Cell>
inline void advance(Ints& before, Ints sums, const Cell* above, Cell* cells) {
  fetchAhead(cells);
  putCells(above, plus(sums, before), cells);
  before = plus(before, lastOf(sums));
}
inline void advance(Doubles& before, Ints sums, const double* above, double* cells) {
  fetchAhead(cells);
  fetchAhead(cells + lanes / 2);
  putCells(above, plus(firstHalf(sums), before), cells);
  putCells(above + lanes / 2, plus(secondHalf(sums), before), cells + lanes / 2);
  before = plus(before, firstHalf(lastOf(sums)));
}

// What a row had before its first pixel, in the type in which the squares of a plane are summed up.
inline Ints nothing(const int32_t*) { return noInts(); }
inline Doubles nothing(const double*) { return noDoubles(); }
#endif

inline int32_t noSum(const int32_t*) { return 0; }
inline double noSum(const double*) { return 0; }

// Cells from column 1 on, below those of `above`.
template <class Cell>
inline void integralRow(const uint8_t* src, const Cell* above, Cell* cells, int32_t width) {
  int32_t sum = 0, x = 0;
#ifdef QOR_PREFIX_VECTORS
  Ints before = noInts();
  for (; x <= width - lanes; x += lanes) advance(before, prefixSums(pixelsAt(src + x)), above + x, cells + x);
  sum = firstOf(before);
#endif
  for (; x < width; ++x) {
    sum += src[x];
    cells[x] = Cell(sum) + above[x];
  }
}

template <class Cell, class Square>
inline void sqrIntegralRow(const uint8_t* src, const Cell* above, Cell* cells, const Square* squaresAbove,
                           Square* squares, int32_t width) {
  int32_t sum = 0, x = 0;
  auto squareSum = noSum(squares);
#ifdef QOR_PREFIX_VECTORS
  Ints before = noInts();
  auto squaresBefore = nothing(squares);
  for (; x <= width - lanes; x += lanes) {
    const Ints pixels = pixelsAt(src + x);
    advance(before, prefixSums(pixels), above + x, cells + x);
    advance(squaresBefore, prefixSums(squared(pixels)), squaresAbove + x, squares + x);
  }
  sum = firstOf(before);
  squareSum = firstOf(squaresBefore);
#endif
  for (; x < width; ++x) {
    sum += src[x];
    squareSum += src[x] * src[x];
    cells[x] = Cell(sum) + above[x];
    squares[x] = squareSum + squaresAbove[x];
  }
}

}  // namespace
