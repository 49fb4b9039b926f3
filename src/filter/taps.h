// Weighted sums of a separable stage: taps in their stored order, and what becomes of a sum.
#pragma once

#include <limits>

#include "frame/clamp.h"
#include "frame/level.h"
#include "frame/loops.h"

namespace {

// Endings. Each turns the sum of a pixel into the element that is stored.

struct StoreFloat {
  float operator()(float sum) const { return sum; }
};

// The sum times the reciprocal of the divisor, clamped to the range of Dst, truncated toward zero. Dividing would round
// differently, so the reciprocal is part of the contract.
template <class Dst>
struct ScaleAndClamp {
  float reciprocal;
  explicit ScaleAndClamp(int32_t divisor) : reciprocal(1.0f / float(divisor)) {}

  template <class Sum>
  Dst operator()(Sum sum) const {
    constexpr float lowest = std::numeric_limits<Dst>::lowest(), highest = std::numeric_limits<Dst>::max();
    return Dst(int32_t(clamped(float(sum) * reciprocal, lowest, highest)));
  }
};

// A float as an integer where it may be out of range, which then gives the lowest integer at every level. Such sums
// have zeros in the 16 bits that are kept of them.
static inline int32_t truncated(float value) {
  return value < 2147483648.0f ? int32_t(value) : std::numeric_limits<int32_t>::lowest();
}

// Odd: no clamp; the low 16 bits of the truncated value are stored.
struct ScaleAndWrap {
  float reciprocal;
  explicit ScaleAndWrap(int32_t divisor) : reciprocal(1.0f / float(divisor)) {}
  int16_t operator()(int32_t sum) const { return int16_t(truncated(float(sum) * reciprocal)); }
};

// Odd: a 14-bit fixed-point reciprocal, so negative results round toward minus infinity, and overflow wraps.
struct ScaleByQ14 {
  int16_t factor;
  explicit ScaleByQ14(int32_t divisor) : factor(int16_t(int32_t(16384.0f / float(divisor)))) {}
  int16_t operator()(int32_t sum) const { return int16_t((sum * factor) >> 14); }
};

}  // namespace

// Where the taps of a stage read: tap(i) points to what tap i multiplies for the first element.
namespace {

template <class Src>
struct RowTaps {
  const Src* window;
  ptrdiff_t distance;  // from one tap to the next: the channels of a pixel
  const Src* tap(ptrdiff_t i) const { return window + i * distance; }
};

template <class Src>
struct ColumnTaps {
  const Src* const* rows;
  const Src* tap(ptrdiff_t i) const { return rows[i]; }
};

}  // namespace

// Sums of `taps` taps for each element, added to `sums` if the kernel goes on. pixels[i] points to what tap i
// multiplies for the first element; emit(x, sum) takes what comes out, which may be the next `sums`.
template <class Sum, int32_t taps, bool goesOn, bool emitsSums, class Src, class Tap, class Emit>
static inline void sumTaps(const Src* const* pixels, const Tap* kernel, const Sum* sums, ptrdiff_t count, Emit emit) {
  Sum weight[taps];
  const Src* pixel[taps];
  for (int32_t i = 0; i < taps; ++i) {
    weight[i] = Sum(kernel[i]);
    pixel[i] = pixels[i];
  }
  const auto element = [&](ptrdiff_t x) {
    Sum sum = weight[0] * Sum(pixel[0][x]);
    if (goesOn) sum = sums[x] + sum;
    for (int32_t i = 1; i < taps; ++i) sum = sum + weight[i] * Sum(pixel[i][x]);
    emit(x, sum);
  };
  if (emitsSums) {
    QOR_INDEPENDENT
    for (ptrdiff_t x = 0; x < count; ++x) element(x);
  } else {
    forElements(count, element);
  }
}

// A kernel of more than five taps: four at a time are added to a strip of sums that stays in the first-level cache.
template <class Sum, class Taps, class Tap, class Ending, class Dst>
static void filterWithLongKernel(const Taps& source, const Tap* kernel, int32_t kernelSize, const Ending ending,
                                 Dst* dst, ptrdiff_t count) {
  constexpr ptrdiff_t stripLength = 1024;
  Sum sums[stripLength];
  for (ptrdiff_t first = 0; first < count; first += stripLength) {
    const ptrdiff_t length = count - first < stripLength ? count - first : stripLength;
    Dst* const strip = dst + first;
    const auto keep = [&sums](ptrdiff_t x, Sum sum) { sums[x] = sum; };
    const auto finish = [ending, strip](ptrdiff_t x, Sum sum) { strip[x] = ending(sum); };
    decltype(source.tap(0)) pixels[4];
    for (int32_t tap = 0; tap < kernelSize; tap += 4) {
      const int32_t taps = kernelSize - tap < 4 ? kernelSize - tap : 4;
      for (int32_t i = 0; i < taps; ++i) pixels[i] = source.tap(tap + i) + first;
      const Tap* group = kernel + tap;
      if (tap == 0) {
        sumTaps<Sum, 4, false, true>(pixels, group, sums, length, keep);
      } else if (tap + 4 < kernelSize) {
        sumTaps<Sum, 4, true, true>(pixels, group, sums, length, keep);
      } else {
        switch (taps) {
          case 1: sumTaps<Sum, 1, true, false>(pixels, group, sums, length, finish); break;
          case 2: sumTaps<Sum, 2, true, false>(pixels, group, sums, length, finish); break;
          case 3: sumTaps<Sum, 3, true, false>(pixels, group, sums, length, finish); break;
          default: sumTaps<Sum, 4, true, false>(pixels, group, sums, length, finish); break;
        }
      }
    }
  }
}

// Filters `count` elements with a kernel of any length. Never inlined: a stage calls it from its serial and its
// parallel path, for one and for three channels.
template <class Sum, class Taps, class Tap, class Ending, class Dst>
__attribute__((noinline)) static void filterElements(const Taps source, const Tap* kernel, int32_t kernelSize,
                                                     const Ending ending, Dst* dst, ptrdiff_t count) {
  if (kernelSize > 5) return filterWithLongKernel<Sum>(source, kernel, kernelSize, ending, dst, count);
  const auto store = [ending, dst](ptrdiff_t x, Sum sum) { dst[x] = ending(sum); };
  const Sum* const noSums = nullptr;
  decltype(source.tap(0)) pixels[5];
  for (int32_t i = 0; i < kernelSize; ++i) pixels[i] = source.tap(i);
  switch (kernelSize) {
    case 1: sumTaps<Sum, 1, false, false>(pixels, kernel, noSums, count, store); break;
    case 2: sumTaps<Sum, 2, false, false>(pixels, kernel, noSums, count, store); break;
    case 3: sumTaps<Sum, 3, false, false>(pixels, kernel, noSums, count, store); break;
    case 4: sumTaps<Sum, 4, false, false>(pixels, kernel, noSums, count, store); break;
    default: sumTaps<Sum, 5, false, false>(pixels, kernel, noSums, count, store); break;
  }
}
