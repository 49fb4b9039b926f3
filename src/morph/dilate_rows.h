// The extreme of a few pieces of rows, element by element: the inner part of dilation and erosion by taps.
#pragma once

#include "filter/extremes.h"

namespace {

// Pieces of rows: one at src + offsets[i] for each i.
template <class T>
struct Pieces {
  const T* src;
  const ptrdiff_t* offsets;
  int32_t count;
};

// Takes the pieces' extreme for `vectors` vectors from element x on. Vectors stay in registers for all pieces.
template <Extreme extreme, class Vector, int32_t vectors, class T>
inline void extremeBlock(const Pieces<T>& pieces, T* dst, ptrdiff_t x, T start, bool more) {
  constexpr ptrdiff_t one = lanes<Vector, T>;
  Vector v[vectors];
  for (int32_t i = 0; i < vectors; ++i) {
    v[i] = more ? loadedAs<Vector>(dst + x + i * one) : inAllLanesOf<Vector>(start);
  }
  for (int32_t piece = 0; piece < pieces.count; ++piece) {
    const T* src = pieces.src + pieces.offsets[piece] + x;
    for (int32_t i = 0; i < vectors; ++i) {
      v[i] = extremeOf<extreme>(loadedAs<Vector>(src + i * one), v[i]);
    }
  }
  for (int32_t i = 0; i < vectors; ++i) store(dst + x + i * one, v[i]);
}

// Many vectors at a time, since each turn through the pieces costs as much as a few vectors. The last vector overlaps
// the one before it: an extreme may be taken twice.
template <Extreme extreme, class Vector, class T>
inline void extremeBlocks(const Pieces<T>& pieces, T* dst, ptrdiff_t length, T start, bool more) {
  constexpr ptrdiff_t one = lanes<Vector, T>;
  ptrdiff_t x = 0;
  for (; x <= length - 8 * one; x += 8 * one) extremeBlock<extreme, Vector, 8>(pieces, dst, x, start, more);
  if (x <= length - 4 * one) {
    extremeBlock<extreme, Vector, 4>(pieces, dst, x, start, more);
    x += 4 * one;
  }
  if (x <= length - 2 * one) {
    extremeBlock<extreme, Vector, 2>(pieces, dst, x, start, more);
    x += 2 * one;
  }
  if (x <= length - one) {
    extremeBlock<extreme, Vector, 1>(pieces, dst, x, start, more);
    x += one;
  }
  if (x < length) extremeBlock<extreme, Vector, 1>(pieces, dst, length - one, start, more);
}

// Each of `length` elements of dst becomes the extreme of its value before (with `more`) or of `start`, and of all
// pieces' elements at its place. dst must not overlap the pieces.
template <Extreme extreme, class T>
inline void extremeOfPieces(const Pieces<T>& pieces, T* dst, ptrdiff_t length, T start, bool more) {
  using Wide = typename LanesOf<T>::Wide;
  using Narrow = typename LanesOf<T>::Narrow;
  if (length >= lanes<Wide, T>) return extremeBlocks<extreme, Wide>(pieces, dst, length, start, more);
  if (length >= lanes<Narrow, T>) return extremeBlocks<extreme, Narrow>(pieces, dst, length, start, more);
  for (ptrdiff_t x = 0; x < length; ++x) {
    T value = more ? dst[x] : start;
    for (int32_t piece = 0; piece < pieces.count; ++piece) {
      value = extremeOf<extreme>(pieces.src[pieces.offsets[piece] + x], value);
    }
    dst[x] = value;
  }
}

}  // namespace
