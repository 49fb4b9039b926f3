// The next larger layer of a pyramid at any rate: each source pixel is spread by the kernel around its place in the
// output, along rows, then along columns, and each output pixel is divided by the sum of the weights that met in it.
//
// The spreading is turned round: a plan per dimension lists what meets in each output pixel, in the order of the source
// pixels, and the passes gather by it. Integer products are truncated one by one as the spreading has it, so the sums
// are the same in any order; float sums keep the order.
//
// Odd: a pixel that falls between two output pixels gives products truncated after adding 0.5, so negative ones are
// rounded towards 0 from above, while whole taps give exact products. Places beyond -100 truncate the other way.
// Weights hold for both dimensions and know nothing of where the source ends.
#include <float.h>
#include <string.h>

#include <algorithm>
#include <type_traits>

#include "frame/clamp.h"
#include "frame/kit/vectors.h"
#include "pyramid/layerstate.h"

// Where a source pixel meets the output: taps first .. last, at offsets from `index`.
struct Spread {
  int32_t index;
  float fraction;
  bool split;
  int32_t first, last;
};

template <class Tap>
static Spread spreadOf(int32_t number, const QoriPyramidLayerState& state) {
  const int32_t half = state.kernelSize / 2;
  const float position = float(number) * state.rate;
  Spread spread;
  spread.index = int32_t(100.0f + position) - 100;
  spread.fraction = position - float(spread.index);
  spread.split = spread.fraction > FLT_MIN;
  const int32_t reach = half - (static_cast<const Tap*>(state.kernel)[0] == Tap(0) ? 1 : 0);
  spread.first = spread.split ? 1 - half : -reach;
  spread.last = spread.split ? half : reach;
  return spread;
}

// The weight at offset t; `centre` is the middle tap.
template <class Tap>
static float shareOf(const Tap* centre, const Spread& spread, int32_t t) {
  if (!spread.split) return float(centre[t]);
  return float(centre[t - 1]) * spread.fraction + float(centre[t]) * (1.0f - spread.fraction);
}

static int32_t firstSource(const QoriPyramidLayerState& state) {
  const int32_t half = state.kernelSize / 2;
  return -std::min(half, int32_t(float(half) / state.rate + 0.5f));
}

template <class Tap>
static void makeWeights(const QoriPyramidLayerState& state, int32_t length) {
  const Tap* centre = static_cast<const Tap*>(state.kernel) + state.kernelSize / 2;
  float* weights = state.weights;
  for (int32_t e = 0; e < length; ++e) weights[e] = 0.0f;
  const int32_t first = firstSource(state);
  for (int32_t j = first; j <= length - 1 - first; ++j) {
    const Spread spread = spreadOf<Tap>(j, state);
    const int32_t last = std::min(spread.last, length - 1 - spread.index);
    for (int32_t t = std::max(spread.first, -spread.index); t <= last; ++t) {
      weights[spread.index + t] += shareOf(centre, spread, t);
    }
  }
  for (int32_t e = 0; e < length; ++e) {
    if (__builtin_fabsf(weights[e]) > FLT_MIN) weights[e] = 32768.0f / weights[e];
  }
}

// What the caller of a plan needs to know of it.
struct PlanFacts {
  int32_t contributions;  // the highest count
  bool anySplit;
  double magnitude;  // the highest sum of magnitudes of weights
  double gain;       // the same times the weight that the sum is multiplied by
};

// The plan of a dimension of `size` source and `length` output pixels of `channels` elements. Places count elements of
// the source with its frame.
template <class Tap>
static PlanFacts makePlan(const QoriPyramidLayerState& state, int32_t size, int32_t length, int32_t channels,
                          const SpreadPlan& plan) {
  constexpr bool isFloat = std::is_floating_point_v<Tap>;
  const int32_t half = state.kernelSize / 2;
  const Tap* centre = static_cast<const Tap*>(state.kernel) + half;
  const ptrdiff_t elements = ptrdiff_t(length) * channels;
  PlanFacts facts = {0, false, 0, 0};
  for (int32_t e = 0; e < length; ++e) plan.counts[e] = 0;
  for (int32_t j = firstSource(state); j < size + half; ++j) {
    const Spread spread = spreadOf<Tap>(j, state);
    const int32_t last = std::min(spread.last, length - 1 - spread.index);
    for (int32_t t = std::max(spread.first, -spread.index); t <= last; ++t) {
      const int32_t e = spread.index + t;
      if (plan.counts[e] == state.maxContributions) continue;  // never, by the choice of maxContributions
      const ptrdiff_t at = plan.counts[e]++ * elements + ptrdiff_t(e) * channels;
      for (int32_t c = 0; c < channels; ++c) {
        plan.places[at + c] = (j + half) * channels + c;
        plan.shares[at + c] = isFloat || spread.split ? shareOf(centre, spread, t) : 0.0f;
        plan.taps[at + c] = isFloat ? -1 : spread.split ? 0 : int32_t(centre[t]);
      }
      facts.anySplit |= spread.split;
    }
  }
  for (int32_t e = 0; e < length; ++e) facts.contributions = std::max(facts.contributions, plan.counts[e]);
  for (int32_t e = 0; e < length; ++e) {
    double magnitude = 0;
    for (int32_t s = 0; s < facts.contributions; ++s) {
      const ptrdiff_t at = s * elements + ptrdiff_t(e) * channels;
      for (int32_t c = 0; c < channels && s >= plan.counts[e]; ++c) {
        plan.places[at + c] = 0;
        plan.shares[at + c] = 0.0f;
        plan.taps[at + c] = 0;
      }
      magnitude += __builtin_fabs(double(plan.shares[at])) + __builtin_fabs(double(plan.taps[at]));
    }
    facts.magnitude = std::max(facts.magnitude, magnitude);
    facts.gain = std::max(facts.gain, magnitude * __builtin_fabs(double(state.weights[e])));
  }
  return facts;
}

// trunc(value) >> 8, held to 32 bits: next to weights that cancel out sums grow beyond any size.
static inline int32_t shifted8(float value) {
  const float inRange = clamped(value, -0x1.fffffep38f, 0x1.fffffep38f);
  const int32_t quotient = int32_t(inRange * 0x1p-8f);
  const float rest = inRange - float(quotient) * 256.0f;
  return quotient - (rest <= -1.0f ? 1 : 0);
}

// One bordered row becomes one row of the ring, by the plan.
template <bool anySplit, class Sum, class T>
static void spreadAlong(const T* row, const SpreadPlan& plan, int32_t contributions, const float* weights,
                        typename Layer<T>::Row* __restrict out, ptrdiff_t count) {
  constexpr ptrdiff_t block = 64;
  using Row = typename Layer<T>::Row;
  Sum sums[block];
  const Row* source = reinterpret_cast<const Row*>(row);
  for (ptrdiff_t first = 0; first < count; first += block) {
    const ptrdiff_t length = std::min(block, count - first);
    for (ptrdiff_t i = 0; i < length; ++i) sums[i] = Sum(0);
    for (ptrdiff_t s = 0; s < contributions; ++s) {
      const int32_t* places = plan.places + s * count + first;
      const float* shares = plan.shares + s * count + first;
      const int32_t* taps = plan.taps + s * count + first;
      for (ptrdiff_t i = 0; i < length; ++i) {
        const Row pixel = source[places[i]];
        if constexpr (std::is_floating_point_v<T>) {
          const float product = shares[i] * pixel;
          sums[i] += taps[i] != 0 ? product : 0.0f;
        } else {
          sums[i] += Sum(taps[i]) * Sum(pixel);
          if (anySplit) sums[i] += Sum(int32_t(shares[i] * float(pixel) + 0.5f));
        }
      }
    }
    for (ptrdiff_t i = 0; i < length; ++i) {
      const float value = float(sums[i]) * weights[first + i];
      if constexpr (std::is_floating_point_v<T>) {
        out[first + i] = value * 0x1p-15f;
      } else {
        out[first + i] = shifted8(value + 128.0f);
      }
    }
  }
}

// Adds one row of the ring to an output row's sums.
template <class Sum, class Row>
static void addRow(const Row* __restrict row, float share, int32_t tap, Sum* __restrict sums, ptrdiff_t count) {
  if constexpr (std::is_floating_point_v<Row>) {
    for (ptrdiff_t x = 0; x < count; ++x) sums[x] += share * row[x];
  } else if (share == 0.0f) {
    const Sum factor = Sum(tap);
    for (ptrdiff_t x = 0; x < count; ++x) sums[x] += factor * Sum(row[x]);
  } else if constexpr (std::is_floating_point_v<Sum>) {
    for (ptrdiff_t x = 0; x < count; ++x) sums[x] += Sum(__builtin_truncf(share * float(row[x]) + 0.5f));
  } else {
    for (ptrdiff_t x = 0; x < count; ++x) sums[x] += Sum(share * float(row[x]) + 0.5f);
  }
}

template <class Sum>
static void finishRow(const Sum* sums, float weight, uint8_t* __restrict dst, ptrdiff_t count) {
  for (ptrdiff_t x = 0; x < count; ++x) {
    const float value = clamped(float(sums[x]) * weight + 2097152.0f, 0.0f, 2147483520.0f);
    dst[x] = uint8_t(std::min(int32_t(value) >> 22, 255));
  }
}

// The scale is 2^-22 like that of 8u, not 2^-20, which would make an image 4 times as bright.
template <class Sum>
static void finishRow(const Sum* sums, float weight, uint16_t* __restrict dst, ptrdiff_t count) {
  for (ptrdiff_t x = 0; x < count; ++x) {
    const double value = (double(float(sums[x]) * weight) + 2097152.0) * 0x1p-22;
    dst[x] = uint16_t(int32_t(value < 0.0 ? 0.0 : value > 65535.0 ? 65535.0 : value));
  }
}

static void finishRow(const float* sums, float weight, float* __restrict dst, ptrdiff_t count) {
  for (ptrdiff_t x = 0; x < count; ++x) dst[x] = sums[x] * weight * 0x1p-15f;
}

// A copy of the source with a frame of half the kernel on all sides; null if there is no memory.
template <class T>
static T* newBlock(int64_t elements) {
  if (elements > INT32_MAX) return nullptr;
  const int32_t len = int32_t(elements);
  if constexpr (std::is_same_v<T, uint8_t>) return qorsMalloc_8u(len);
  if constexpr (std::is_same_v<T, uint16_t>) return qorsMalloc_16u(len);
  if constexpr (std::is_same_v<T, float>) return qorsMalloc_32f(len);
}

template <class T, int32_t channels>
static T* copyWithBorder(const T* src, int32_t srcStep, QoriSize size, ptrdiff_t half) {
  const ptrdiff_t stride = (size.width + 2 * half) * channels;
  const ptrdiff_t rows = size.height + 2 * half;
  if (stride > INT32_MAX / rows) return nullptr;
  T* copy = newBlock<T>(stride * rows);
  if (copy == nullptr) return nullptr;
  for (ptrdiff_t y = 0; y < size.height; ++y) {
    T* row = copy + (half + y) * stride + half * channels;
    memcpy(row, rowAt(src, srcStep, y), size_t(size.width) * channels * sizeof(T));
    extendRow<channels>(row, size.width, half);
  }
  for (ptrdiff_t y = 0; y < rows; ++y) {
    const ptrdiff_t from = bounced(y - half, size.height) + half;
    if (from != y) memcpy(copy + y * stride, copy + from * stride, size_t(stride) * sizeof(T));
  }
  return copy;
}

// What both passes of a call work with.
template <class T>
struct Up {
  const QoriPyramidLayerState* state;
  const T* bordered;
  ptrdiff_t stride;
  PlanFacts facts;
  ptrdiff_t count;  // elements of an output row
};

// Row number `place` of the bordered copy after the row pass.
template <class Sum, class T>
static const typename Layer<T>::Row* spreadRow(const Up<T>& up, int32_t place) {
  using Row = typename Layer<T>::Row;
  const QoriPyramidLayerState& state = *up.state;
  const int32_t slot = place % state.ringRows;
  Row* out = static_cast<Row*>(state.ring) + slot * up.count;
  if (state.ringTags[slot] == place) return out;
  const T* source = up.bordered + place * up.stride;
  const T* row = source;
  if constexpr (!std::is_floating_point_v<T>) {
    // Vectors gather 32 bits.
    int32_t* widened = static_cast<int32_t*>(state.extendedRow);
    for (ptrdiff_t x = 0; x < up.stride; ++x) widened[x] = source[x];
    row = static_cast<const T*>(state.extendedRow);
  }
  if (up.facts.anySplit) {
    spreadAlong<true, Sum>(row, state.rowPlan, up.facts.contributions, state.elementWeights, out, up.count);
  } else {
    spreadAlong<false, Sum>(row, state.rowPlan, up.facts.contributions, state.elementWeights, out, up.count);
  }
  state.ringTags[slot] = place;
  return out;
}

template <class RowSum, class Sum, class T>
static void layerUp(const Up<T>& up, T* dst, int32_t dstStep, int32_t height) {
  const QoriPyramidLayerState& state = *up.state;
  Sum* sums = static_cast<Sum*>(state.sums);
  for (int32_t y = 0; y < height; ++y) {
    for (ptrdiff_t x = 0; x < up.count; ++x) sums[x] = Sum(0);
    for (ptrdiff_t s = 0; s < state.columnPlan.counts[y]; ++s) {
      const ptrdiff_t at = s * height + y;
      const auto* row = spreadRow<RowSum>(up, state.columnPlan.places[at]);
      addRow(row, state.columnPlan.shares[at], state.columnPlan.taps[at], sums, up.count);
    }
    finishRow(sums, state.weights[y], rowAt(dst, dstStep, y), up.count);
  }
}

template <class T, int32_t channels>
static QorStatus up(const T* src, int32_t srcStep, QoriSize srcRoiSize, T* dst, int32_t dstStep, QoriSize dstRoiSize,
                    QoriPyramidLayerState* state) {
  using Tap = typename Layer<T>::Tap;
  const QorStatus status = checkLayer<T, channels>(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, state);
  if (status != qorStatusOk) return status;
  QoriSize smallest, largest;
  qoriGetPyramidUpROI(srcRoiSize, &smallest, &largest, state->rate);
  if (exceeds(smallest, dstRoiSize) || exceeds(dstRoiSize, largest)) return qorStatusBadArg;
  if (exceeds(srcRoiSize, state->roiSize)) return qorStatusBadArg;
  const int32_t half = state->kernelSize / 2;
  T* bordered = copyWithBorder<T, channels>(src, srcStep, srcRoiSize, half);
  if (bordered == nullptr) return qorStatusNoMemory;

  makeWeights<Tap>(*state, std::max(dstRoiSize.width, dstRoiSize.height));
  const ptrdiff_t count = ptrdiff_t(dstRoiSize.width) * channels;
  for (ptrdiff_t x = 0; x < count; ++x) state->elementWeights[x] = state->weights[x / channels];
  const PlanFacts rows = makePlan<Tap>(*state, srcRoiSize.width, dstRoiSize.width, channels, state->rowPlan);
  const PlanFacts columns = makePlan<Tap>(*state, srcRoiSize.height, dstRoiSize.height, 1, state->columnPlan);
  qorsSet_32s(-1, state->ringTags, state->ringRows);
  const Up<T> call = {state, bordered, (ptrdiff_t(srcRoiSize.width) + 2 * half) * channels, rows, count};
  if constexpr (std::is_floating_point_v<T>) {
    layerUp<float, float>(call, dst, dstStep, dstRoiSize.height);
  } else {
    // Sums beyond 32 bits are taken in double, which holds them exactly. The limit leaves room for what each product
    // gains by rounding, which is far less than the products.
    constexpr double limit = 0x1p30;
    const double rowSum = rows.magnitude * Layer<T>::highest;
    const double rowResult = rows.gain * Layer<T>::highest / 256 + 2 + rows.contributions;
    const double columnSum = columns.magnitude * rowResult + columns.contributions;
    if (rowSum + rows.contributions <= limit && columnSum <= limit) {
      layerUp<int32_t, int32_t>(call, dst, dstStep, dstRoiSize.height);
    } else if (rowSum + rows.contributions <= limit) {
      layerUp<int32_t, double>(call, dst, dstStep, dstRoiSize.height);
    } else {
      layerUp<double, double>(call, dst, dstStep, dstRoiSize.height);
    }
  }
  qorsFree(bordered);
  return qorStatusOk;
}

#define LAYER_UP(form, T, channels)                                                                                \
  QorStatus qoriPyramidLayerUp_##form(const T* src, int32_t srcStep, QoriSize srcRoiSize, T* dst, int32_t dstStep, \
                                      QoriSize dstRoiSize, QoriPyramidLayerState* state) {                         \
    return up<T, channels>(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, state);                             \
  }
LAYER_UP(8u_C1R, uint8_t, 1)
LAYER_UP(8u_C3R, uint8_t, 3)
LAYER_UP(16u_C1R, uint16_t, 1)
LAYER_UP(16u_C3R, uint16_t, 3)
LAYER_UP(32f_C1R, float, 1)
LAYER_UP(32f_C3R, float, 3)
#undef LAYER_UP
