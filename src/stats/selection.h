// The pixels that a statistic looks at, block by block as one plain row: those of one channel, with a filling value in
// the place of the pixels that the mask leaves out. Reductions then know neither masks nor channels.
#pragma once

#include <string.h>

#include "frame/frame.h"

// An image, or two of them, and a mask. What a family does not have is null.
template <class T>
struct Region {
  const T* src1;
  int32_t src1Step;
  const T* src2;
  int32_t src2Step;
  const uint8_t* mask;
  int32_t maskStep;
  QoriSize size;
};

// Pixels of a block. Short enough that 32-bit sums of its 8-bit squares and of its 16-bit values cannot overflow, and
// that a block stays in the cache between the passes over it.
constexpr int32_t blockPixels = 1024;

// Room for one block that had to be gathered.
template <class T>
struct Gathered {
  T pixels[blockPixels];
};

// x where the mask byte is not 0, else `filling`, by its bits: no branch, and no arithmetic that a NaN could pass.
template <class T>
static inline T selectedOr(T x, uint8_t mask, T filling) {
  if constexpr (sizeof(T) == 4) {
    uint32_t bits, others;
    memcpy(&bits, &x, sizeof bits);
    memcpy(&others, &filling, sizeof others);
    others ^= (bits ^ others) & uint32_t(-int32_t(mask != 0));
    memcpy(&x, &others, sizeof x);
    return x;
  } else {
    return T(filling ^ ((x ^ filling) & -int32_t(mask != 0)));
  }
}

// Gives `count` pixels from `src` on, `channels` elements apart, as a plain row: in place where they are one already.
template <class T, int32_t channels, bool masked>
static inline const T* gather(const T* src, const uint8_t* mask, int32_t count, T filling, Gathered<T>& room) {
  if constexpr (channels == 1 && !masked) return src;
  T* const pixels = room.pixels;
  if constexpr (channels != 1) {
    QOR_INDEPENDENT
    for (ptrdiff_t x = 0; x < count; ++x) pixels[x] = src[x * channels];
    src = pixels;
  }
  if constexpr (masked) {
    QOR_INDEPENDENT
    for (ptrdiff_t x = 0; x < count; ++x) pixels[x] = selectedOr(src[x], mask[x], filling);
  }
  return pixels;
}

// Calls body(x, count) for the blocks of a row, from left to right.
template <class Body>
static inline void forBlocks(int32_t width, Body body) {
  for (int32_t x = 0; x < width;) {
    const int32_t count = width - x < blockPixels ? width - x : blockPixels;
    body(ptrdiff_t(x), count);
    x += count;
  }
}

static inline bool badCoi(int32_t coi) { return coi < 1 || coi > 3; }
