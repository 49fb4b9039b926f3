// Weighted sums of a separable stage: taps in their stored order, and what becomes of a sum.
#pragma once

#include <limits>

#include "frame/level.h"

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
    float scaled = float(sum) * reciprocal;
    scaled = scaled > lowest ? scaled : lowest;
    scaled = scaled < highest ? scaled : highest;
    return Dst(int32_t(scaled));
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

// Sums of `taps` taps for each element, added to `sums` if the kernel goes on. source(i) points to what tap i
// multiplies for the first element; emit(x, sum) takes what comes out.
template <class Sum, int32_t taps, bool goesOn, class Source, class Tap, class Emit>
static inline void sumTaps(Source source, const Tap* kernel, const Sum* sums, int32_t count, Emit emit) {
  Sum weight[taps];
  decltype(source(0)) pixel[taps];
  for (int32_t i = 0; i < taps; ++i) {
    weight[i] = Sum(kernel[i]);
    pixel[i] = source(i);
  }
  for (int32_t x = 0; x < count; ++x) {
    Sum sum = weight[0] * Sum(pixel[0][x]);
    if (goesOn) sum = sums[x] + sum;
    for (int32_t i = 1; i < taps; ++i) sum = sum + weight[i] * Sum(pixel[i][x]);
    emit(x, sum);
  }
}

// A kernel of more than five taps: four at a time are added to a strip of sums that stays in the first-level cache.
template <class Sum, class Source, class Tap, class Ending, class Dst>
static void filterWithLongKernel(Source source, const Tap* kernel, int32_t kernelSize, const Ending& ending, Dst* dst,
                                 int32_t count) {
  constexpr int32_t stripLength = 1024;
  Sum sums[stripLength];
  for (int32_t first = 0; first < count; first += stripLength) {
    const int32_t length = count - first < stripLength ? count - first : stripLength;
    const auto keep = [&sums](int32_t x, Sum sum) { sums[x] = sum; };
    const auto finish = [&ending, dst, first](int32_t x, Sum sum) { dst[first + x] = ending(sum); };
    int32_t tap = 0;
    const auto group = [&source, &tap, first](int32_t i) { return source(tap + i) + first; };
    sumTaps<Sum, 4, false>(group, kernel, sums, length, keep);
    for (tap = 4; tap < kernelSize - 4; tap += 4) sumTaps<Sum, 4, true>(group, kernel + tap, sums, length, keep);
    switch (kernelSize - tap) {
      case 1: sumTaps<Sum, 1, true>(group, kernel + tap, sums, length, finish); break;
      case 2: sumTaps<Sum, 2, true>(group, kernel + tap, sums, length, finish); break;
      case 3: sumTaps<Sum, 3, true>(group, kernel + tap, sums, length, finish); break;
      default: sumTaps<Sum, 4, true>(group, kernel + tap, sums, length, finish); break;
    }
  }
}

// Filters `count` elements with a kernel of any length.
template <class Sum, class Source, class Tap, class Ending, class Dst>
static void filterElements(Source source, const Tap* kernel, int32_t kernelSize, const Ending& ending, Dst* dst,
                           int32_t count) {
  const auto store = [&ending, dst](int32_t x, Sum sum) { dst[x] = ending(sum); };
  const Sum* const noSums = nullptr;
  switch (kernelSize) {
    case 1: sumTaps<Sum, 1, false>(source, kernel, noSums, count, store); break;
    case 2: sumTaps<Sum, 2, false>(source, kernel, noSums, count, store); break;
    case 3: sumTaps<Sum, 3, false>(source, kernel, noSums, count, store); break;
    case 4: sumTaps<Sum, 4, false>(source, kernel, noSums, count, store); break;
    case 5: sumTaps<Sum, 5, false>(source, kernel, noSums, count, store); break;
    default: filterWithLongKernel<Sum>(source, kernel, kernelSize, ending, dst, count); break;
  }
}
