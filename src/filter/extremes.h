// Extremes of windows: what the minimum and maximum filters share with morphology.
#pragma once

#include "frame/lanes.h"
#include "frame/level.h"

enum class Extreme { max, min };

// The extreme of two values by the plain comparison, in float too: where one is NaN the result is b.
template <Extreme extreme, class T>
static inline T extremeOf(T a, T b) {
  return extreme == Extreme::max ? (a > b ? a : b) : (a < b ? a : b);
}

// The same of vectors, lane by lane.
template <Extreme extreme>
static inline NarrowBytes extremeOf(NarrowBytes a, NarrowBytes b) {
  return extreme == Extreme::max ? greater(a, b) : lesser(a, b);
}
template <Extreme extreme>
static inline NarrowFloats extremeOf(NarrowFloats a, NarrowFloats b) {
  return extreme == Extreme::max ? greater(a, b) : lesser(a, b);
}
#ifdef __AVX2__
template <Extreme extreme>
static inline Bytes extremeOf(Bytes a, Bytes b) {
  return extreme == Extreme::max ? greater(a, b) : lesser(a, b);
}
template <Extreme extreme>
static inline Floats extremeOf(Floats a, Floats b) {
  return extreme == Extreme::max ? greater(a, b) : lesser(a, b);
}
#endif

// The extreme over [x - anchorX, x - anchorX + maskWidth - 1] for each pixel x of a row of `width` pixels of `channels`
// interleaved channels, with the window cut off at the row's ends. Any maskWidth from 1 and any anchorX from 0 to
// maskWidth - 1. src and dst must not overlap.
QORLOCAL(void, ownFilterMaxRow_8u,
         (const uint8_t* src, uint8_t* dst, int32_t width, int32_t channels, int32_t maskWidth, int32_t anchorX));
QORLOCAL(void, ownFilterMinRow_8u,
         (const uint8_t* src, uint8_t* dst, int32_t width, int32_t channels, int32_t maskWidth, int32_t anchorX));
QORLOCAL(void, ownFilterMaxRow_32f,
         (const float* src, float* dst, int32_t width, int32_t channels, int32_t maskWidth, int32_t anchorX));
QORLOCAL(void, ownFilterMinRow_32f,
         (const float* src, float* dst, int32_t width, int32_t channels, int32_t maskWidth, int32_t anchorX));
