// The extreme of a few pieces of rows, element by element: the inner part of dilation and erosion by taps.
#pragma once

#include <immintrin.h>

#include "filter/extremes.h"

namespace {

// A vector of elements with what is done to it.
#define QOR_LANES(name, T, V, number, load, store, splat, larger, smaller) \
  struct name {                                                            \
    using Vector = V;                                                      \
    static constexpr int32_t count = number;                               \
    static Vector loaded(const T* p) { return load; }                      \
    static void stored(T* p, Vector v) { store; }                          \
    static Vector splatted(T value) { return splat; }                      \
    template <Extreme extreme>                                             \
    static Vector extremeOf(Vector a, Vector b) {                          \
      return extreme == Extreme::max ? larger(a, b) : smaller(a, b);       \
    }                                                                      \
  };
QOR_LANES(Bytes16, uint8_t, __m128i, 16, _mm_loadu_si128(reinterpret_cast<const __m128i*>(p)),
          _mm_storeu_si128(reinterpret_cast<__m128i*>(p), v), _mm_set1_epi8(char(value)), _mm_max_epu8, _mm_min_epu8)
QOR_LANES(Floats4, float, __m128, 4, _mm_loadu_ps(p), _mm_storeu_ps(p, v), _mm_set1_ps(value), _mm_max_ps, _mm_min_ps)
#if defined(__AVX512BW__)
// The masked forms, since GCC warns of the others' undefined lanes.
inline __m512 larger16(__m512 a, __m512 b) { return _mm512_maskz_max_ps(0xffff, a, b); }
inline __m512 smaller16(__m512 a, __m512 b) { return _mm512_maskz_min_ps(0xffff, a, b); }
QOR_LANES(Bytes64, uint8_t, __m512i, 64, _mm512_loadu_si512(p), _mm512_storeu_si512(p, v),
          _mm512_set1_epi8(char(value)), _mm512_max_epu8, _mm512_min_epu8)
QOR_LANES(Floats16, float, __m512, 16, _mm512_loadu_ps(p), _mm512_storeu_ps(p, v), _mm512_set1_ps(value), larger16,
          smaller16)
using WideBytes = Bytes64;
using WideFloats = Floats16;
#elif defined(__AVX2__)
QOR_LANES(Bytes32, uint8_t, __m256i, 32, _mm256_loadu_si256(reinterpret_cast<const __m256i*>(p)),
          _mm256_storeu_si256(reinterpret_cast<__m256i*>(p), v), _mm256_set1_epi8(char(value)), _mm256_max_epu8,
          _mm256_min_epu8)
QOR_LANES(Floats8, float, __m256, 8, _mm256_loadu_ps(p), _mm256_storeu_ps(p, v), _mm256_set1_ps(value), _mm256_max_ps,
          _mm256_min_ps)
using WideBytes = Bytes32;
using WideFloats = Floats8;
#else
using WideBytes = Bytes16;
using WideFloats = Floats4;
#endif
#undef QOR_LANES

template <class T>
struct LanesOf {
  using Wide = WideBytes;
  using Narrow = Bytes16;
};
template <>
struct LanesOf<float> {
  using Wide = WideFloats;
  using Narrow = Floats4;
};

// Pieces of rows: one at src + offsets[i] for each i.
template <class T>
struct Pieces {
  const T* src;
  const ptrdiff_t* offsets;
  int32_t count;
};

// Takes the pieces' extreme for `vectors` vectors from element x on. Vectors stay in registers for all pieces.
template <Extreme extreme, class Lanes, int32_t vectors, class T>
inline void extremeBlock(const Pieces<T>& pieces, T* dst, ptrdiff_t x, T start, bool more) {
  typename Lanes::Vector v[vectors];
  for (int32_t i = 0; i < vectors; ++i) {
    v[i] = more ? Lanes::loaded(dst + x + i * Lanes::count) : Lanes::splatted(start);
  }
  for (int32_t piece = 0; piece < pieces.count; ++piece) {
    const T* src = pieces.src + pieces.offsets[piece] + x;
    for (int32_t i = 0; i < vectors; ++i) {
      v[i] = Lanes::template extremeOf<extreme>(Lanes::loaded(src + i * Lanes::count), v[i]);
    }
  }
  for (int32_t i = 0; i < vectors; ++i) Lanes::stored(dst + x + i * Lanes::count, v[i]);
}

// Many vectors at a time, since each turn through the pieces costs as much as a few vectors. The last vector overlaps
// the one before it: an extreme may be taken twice.
template <Extreme extreme, class Lanes, class T>
inline void extremeBlocks(const Pieces<T>& pieces, T* dst, ptrdiff_t length, T start, bool more) {
  constexpr ptrdiff_t one = Lanes::count;
  ptrdiff_t x = 0;
  for (; x <= length - 8 * one; x += 8 * one) extremeBlock<extreme, Lanes, 8>(pieces, dst, x, start, more);
  if (x <= length - 4 * one) {
    extremeBlock<extreme, Lanes, 4>(pieces, dst, x, start, more);
    x += 4 * one;
  }
  if (x <= length - 2 * one) {
    extremeBlock<extreme, Lanes, 2>(pieces, dst, x, start, more);
    x += 2 * one;
  }
  if (x <= length - one) {
    extremeBlock<extreme, Lanes, 1>(pieces, dst, x, start, more);
    x += one;
  }
  if (x < length) extremeBlock<extreme, Lanes, 1>(pieces, dst, length - one, start, more);
}

// Each of `length` elements of dst becomes the extreme of its value before (with `more`) or of `start`, and of all
// pieces' elements at its place. dst must not overlap the pieces.
template <Extreme extreme, class T>
inline void extremeOfPieces(const Pieces<T>& pieces, T* dst, ptrdiff_t length, T start, bool more) {
  using Wide = typename LanesOf<T>::Wide;
  using Narrow = typename LanesOf<T>::Narrow;
  if (length >= Wide::count) return extremeBlocks<extreme, Wide>(pieces, dst, length, start, more);
  if (length >= Narrow::count) return extremeBlocks<extreme, Narrow>(pieces, dst, length, start, more);
  for (ptrdiff_t x = 0; x < length; ++x) {
    T value = more ? dst[x] : start;
    for (int32_t piece = 0; piece < pieces.count; ++piece) {
      value = extremeOf<extreme>(pieces.src[pieces.offsets[piece] + x], value);
    }
    dst[x] = value;
  }
}

}  // namespace
