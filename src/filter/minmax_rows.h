// Extremes over windows, the inner loops: over the rows of a band of the image, and along a row.
//
// Along a row the extreme over w pixels grows out of narrower ones: four extremes over s pixels, s apart, make one over
// 4 s. So a row is gone through about log4(w) times, in a tile that stays in the first cache and is wide enough for
// loops to run past its end. Over rows, all windows of a band of neighbouring outputs share their middle rows; what
// they differ in grows upward and downward from there.
#pragma once

#include <string.h>

#include "filter/extremes.h"
#include "frame/rows.h"

// A lone element, for what is shorter than any vector.
template <class T>
struct Lone {
  T v;
};
template <class T>
static inline void load(Lone<T>& to, const T* from) {
  memcpy(&to, from, sizeof to);
}
template <class T>
static inline void store(T* to, Lone<T> from) {
  memcpy(to, &from, sizeof from);
}
template <Extreme extreme, class T>
static inline Lone<T> extremeOf(Lone<T> a, Lone<T> b) {
  return {extremeOf<extreme>(a.v, b.v)};
}

// Calls block(x) for blocks of `length` elements that cover 0 .. count - 1; the last one is moved back to end there.
// So elements are done twice, and a block may not write where another reads. count is at least `length`.
template <class Block>
static inline void forBlocks(ptrdiff_t count, ptrdiff_t length, Block block) {
  for (ptrdiff_t x = 0;; x += length) {
    if (x > count - length) x = count - length;
    block(x);
    if (x == count - length) return;
  }
}

// ---- over rows

// The source rows behind a band of `count` output rows. The window of output i is the rows above[i] .. above[count -
// 2], the shared rows, and below[0] .. below[i - 1].
constexpr int32_t mostBandRows = 8;
template <class T>
struct Band {
  int32_t count;
  const T* shared;  // the first shared row; there is at least one
  ptrdiff_t step;
  int32_t sharedCount;
  const T* above[mostBandRows - 1];
  const T* below[mostBandRows - 1];
};

template <Extreme extreme, class Vector, ptrdiff_t group, class T>
static inline void bandBlock(const Band<T>& band, ptrdiff_t x, T* tile, ptrdiff_t tileStride) {
  constexpr ptrdiff_t n = lanes<Vector, T>;
  Vector sofar[group], more;
  for (ptrdiff_t g = 0; g < group; ++g) load(sofar[g], band.shared + x + g * n);
  const T* row = band.shared;
  for (int32_t r = 1; r < band.sharedCount; ++r) {
    row = rowAt(row, band.step, 1);
    for (ptrdiff_t g = 0; g < group; ++g) {
      load(more, row + x + g * n);
      sofar[g] = extremeOf<extreme>(sofar[g], more);
    }
  }
  T* out = tile + (band.count - 1) * tileStride;
  for (ptrdiff_t g = 0; g < group; ++g) store(out + g * n, sofar[g]);
  for (int32_t i = band.count - 2; i >= 0; --i) {
    out -= tileStride;
    for (ptrdiff_t g = 0; g < group; ++g) {
      load(more, band.above[i] + x + g * n);
      sofar[g] = extremeOf<extreme>(sofar[g], more);
      store(out + g * n, sofar[g]);
    }
  }
  for (int32_t i = 1; i < band.count; ++i) {
    out += tileStride;
    for (ptrdiff_t g = 0; g < group; ++g) {
      load(more, band.below[i - 1] + x + g * n);
      sofar[g] = i == 1 ? more : extremeOf<extreme>(sofar[g], more);
      load(more, out + g * n);
      store(out + g * n, extremeOf<extreme>(more, sofar[g]));
    }
  }
}

// The extremes over rows for `count` elements from column element `x` on, one output row a tile.
template <Extreme extreme, class T>
static void bandColumns(const Band<T>& band, ptrdiff_t x, ptrdiff_t count, T* tile, ptrdiff_t tileStride) {
  using Wide = typename LanesOf<T>::Wide;
  using Narrow = typename LanesOf<T>::Narrow;
  if (count >= 4 * lanes<Wide, T>) {
    forBlocks(count, 4 * lanes<Wide, T>,
              [&](ptrdiff_t i) { bandBlock<extreme, Wide, 4>(band, x + i, tile + i, tileStride); });
  } else if (count >= lanes<Wide, T>) {
    forBlocks(count, lanes<Wide, T>,
              [&](ptrdiff_t i) { bandBlock<extreme, Wide, 1>(band, x + i, tile + i, tileStride); });
  } else if (count >= lanes<Narrow, T>) {
    forBlocks(count, lanes<Narrow, T>,
              [&](ptrdiff_t i) { bandBlock<extreme, Narrow, 1>(band, x + i, tile + i, tileStride); });
  } else {
    forBlocks(count, 1, [&](ptrdiff_t i) { bandBlock<extreme, Lone<T>, 1>(band, x + i, tile + i, tileStride); });
  }
}

// ---- along a row

// Terms 0, apart, 2 * apart, ... and, as the last of them, `last`.
template <Extreme extreme, class Vector, int32_t terms, class T>
static inline Vector extremeOfTerms(const T* src, ptrdiff_t apart, ptrdiff_t last) {
  Vector result, more;
  load(result, src);
  for (int32_t t = 1; t < terms; ++t) {
    load(more, src + (t == terms - 1 ? last : t * apart));
    result = extremeOf<extreme>(result, more);
  }
  return result;
}

template <Extreme extreme, int32_t terms, class T>
static void termsRow(const T* src, ptrdiff_t apart, ptrdiff_t last, T* dst, ptrdiff_t count) {
  using Wide = typename LanesOf<T>::Wide;
  using Narrow = typename LanesOf<T>::Narrow;
  if (count >= lanes<Wide, T>) {
    forBlocks(count, lanes<Wide, T>,
              [=](ptrdiff_t x) { store(dst + x, extremeOfTerms<extreme, Wide, terms>(src + x, apart, last)); });
  } else if (count >= lanes<Narrow, T>) {
    forBlocks(count, lanes<Narrow, T>,
              [=](ptrdiff_t x) { store(dst + x, extremeOfTerms<extreme, Narrow, terms>(src + x, apart, last)); });
  } else {
    forBlocks(count, 1,
              [=](ptrdiff_t x) { store(dst + x, extremeOfTerms<extreme, Lone<T>, terms>(src + x, apart, last)); });
  }
}

// Extremes over up to this many pixels are taken at once.
constexpr int32_t mostTerms = 5;

// dst[x] = the extreme of `terms` elements from src[x] on, `apart` elements apart, but the last one at src[x + last].
template <Extreme extreme, class T>
static void termsRow(const T* src, int32_t terms, ptrdiff_t apart, ptrdiff_t last, T* dst, ptrdiff_t count) {
  switch (terms) {
    case 1: return termsRow<extreme, 1>(src, apart, last, dst, count);
    case 2: return termsRow<extreme, 2>(src, apart, last, dst, count);
    case 3: return termsRow<extreme, 3>(src, apart, last, dst, count);
    case 4: return termsRow<extreme, 4>(src, apart, last, dst, count);
    default: return termsRow<extreme, mostTerms>(src, apart, last, dst, count);
  }
}

// A tile holds its pixels and has room for one more vector and pixel, which loops may read and write: what they find
// there goes nowhere.
constexpr ptrdiff_t tileBytes = 4096, tileRoom = 128;

// dst[x] = the extreme over `maskWidth` pixels from tile[x] on. Uses up the tile.
template <Extreme extreme, class T>
static void windowRow(T* tile, int32_t maskWidth, int32_t channels, T* dst, ptrdiff_t count) {
  using Wide = typename LanesOf<T>::Wide;
  ptrdiff_t span = 1;
  for (; maskWidth > mostTerms * span; span *= 4) {
    // In place: what a vector reads has not been written yet.
    const ptrdiff_t apart = span * channels, end = count + (maskWidth - 4 * span) * channels;
    for (ptrdiff_t x = 0; x < end; x += lanes<Wide, T>) {
      store(tile + x, extremeOfTerms<extreme, Wide, 4>(tile + x, apart, 3 * apart));
    }
  }
  const auto terms = int32_t((maskWidth + span - 1) / span);
  termsRow<extreme>(tile, terms, span * channels, (maskWidth - span) * channels, dst, count);
}

template <int32_t channels, class T>
static inline void fillPixels(T* dst, const T* pixel, ptrdiff_t elements) {
  T value[channels];
  memcpy(value, pixel, sizeof value);
  for (ptrdiff_t x = 0; x < elements; x += channels) {
    for (int32_t c = 0; c < channels; ++c) dst[x + c] = value[c];
  }
}

template <class T>
static inline void fillPixels(T* dst, const T* pixel, ptrdiff_t elements, int32_t channels) {
  if (elements <= 0) return;
  if (channels == 1) return fillPixels<1>(dst, pixel, elements);
  if (channels == 3) return fillPixels<3>(dst, pixel, elements);
  return fillPixels<4>(dst, pixel, elements);
}

// row[x] = the extreme of row[x] and row[x + apart], for all x that have both.
template <Extreme extreme, class T>
static void widenRight(T* row, ptrdiff_t count, ptrdiff_t apart) {
  using Wide = typename LanesOf<T>::Wide;
  ptrdiff_t x = 0;
  for (; x + lanes<Wide, T> <= count - apart; x += lanes<Wide, T>) {
    store(row + x, extremeOfTerms<extreme, Wide, 2>(row + x, apart, apart));
  }
  for (; x < count - apart; ++x) store(row + x, extremeOfTerms<extreme, Lone<T>, 2>(row + x, apart, apart));
}

// row[x] = the extreme of row[x] and row[x - apart], for all x that have both.
template <Extreme extreme, class T>
static void widenLeft(T* row, ptrdiff_t count, ptrdiff_t apart) {
  using Wide = typename LanesOf<T>::Wide;
  ptrdiff_t x = count;
  for (; x - lanes<Wide, T> >= apart; x -= lanes<Wide, T>) {
    T* last = row + x - lanes<Wide, T>;
    store(last, extremeOfTerms<extreme, Wide, 2>(last, -apart, -apart));
  }
  for (; x > apart; --x) store(row + x - 1, extremeOfTerms<extreme, Lone<T>, 2>(row + x - 1, -apart, -apart));
}
