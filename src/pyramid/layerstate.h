// The state of the pyramid layers, and what both directions share.
#pragma once

#include "frame/frame.h"
#include "pyramid/rate.h"

// What meets in each output element of a pass of layer up. Contribution number s of element e stands at
// [s * length + e]; those from counts[e] on, up to the highest count, are filled with zeros.
struct SpreadPlan {
  int32_t* counts;  // one a pixel
  int32_t* places;  // element of the bordered row, or number of the bordered row
  float* shares;    // weight; of a whole tap of an integer kernel 0
  int32_t* taps;    // whole tap of an integer kernel, else 0; in float -1 for a contribution
};

// One block: the record, the taps, the scratch.
struct QoriPyramidLayerState {
  void* kernel;  // normalised: int16_t, or float for 32f
  int32_t kernelSize;
  QorDataType dataType;
  QoriSize roiSize;
  int32_t mode;
  float rate;
  int32_t channels;
  int32_t ringRows;
  void* extendedRow;  // a source row with its frame
  void* ring;         // rows after the horizontal pass
  // Down only.
  const void** window;  // the rows of the ring under the kernel
  void* smoothRow;      // a row after both passes
  int32_t* places;      // left neighbour of each resampled element
  float* fractions;     // and the share of the right one
  void* resampledRows;  // two rows
  // Up only.
  int32_t maxContributions;
  int32_t* ringTags;      // which bordered row each row of the ring holds
  float* weights;         // one a pixel of the larger dimension
  float* elementWeights;  // the same, one an element of a row
  SpreadPlan rowPlan, columnPlan;
  void* sums;
};

template <class T>
struct Layer;

template <>
struct Layer<uint8_t> {
  using Tap = int16_t;
  using Row = int32_t;   // what rows between the passes hold
  using Sum = int32_t;   // sums of usual kernels
  using Wide = int64_t;  // sums of any kernel
  static constexpr int32_t highest = 255, rowShift = 8, columnShift = 15;
  static constexpr int32_t lowestSmooth = INT16_MIN, highestSmooth = INT16_MAX;
};

template <>
struct Layer<uint16_t> {
  using Tap = int16_t;
  using Row = int32_t;
  using Sum = uint32_t;  // 65535 * 8 * 8192 just fits
  using Wide = int64_t;
  static constexpr int32_t highest = 65535, rowShift = 10, columnShift = 13;
  static constexpr int32_t lowestSmooth = INT32_MIN, highestSmooth = INT32_MAX;
};

template <>
struct Layer<float> {
  using Tap = float;
  using Row = float;
  using Sum = float;
  using Wide = float;
};

// The index inside 0 .. size - 1 that reflection about the edge pixels leads to, as often as it takes.
static inline ptrdiff_t bounced(ptrdiff_t index, ptrdiff_t size) {
  if (size == 1) return 0;
  const ptrdiff_t period = 2 * (size - 1);
  ptrdiff_t place = index % period;
  if (place < 0) place += period;
  return place < size ? place : period - place;
}

// Continues a row of `width` pixels by `half` pixels on both sides.
template <int32_t channels, class T>
static inline void extendRow(T* row, ptrdiff_t width, ptrdiff_t half) {
  for (ptrdiff_t i = 1; i <= half; ++i) {
    const ptrdiff_t left = bounced(-i, width), right = bounced(width - 1 + i, width);
    for (ptrdiff_t c = 0; c < channels; ++c) row[-i * channels + c] = row[left * channels + c];
    for (ptrdiff_t c = 0; c < channels; ++c) row[(width - 1 + i) * channels + c] = row[right * channels + c];
  }
}

static inline bool exceeds(QoriSize size, QoriSize limit) {
  return size.width > limit.width || size.height > limit.height;
}

// The checks of both directions up to that of the destination's size.
template <class T, int32_t channels>
static inline QorStatus checkLayer(const T* src, int32_t srcStep, QoriSize srcRoiSize, const T* dst, int32_t dstStep,
                                   QoriSize dstRoiSize, const QoriPyramidLayerState* state) {
  if (anyNull(src, dst, state)) return qorStatusNullPtr;
  if (emptySize(srcRoiSize)) return qorStatusBadSize;
  if (shortStep<T, channels>(srcStep, srcRoiSize) || shortStep<T, channels>(dstStep, dstRoiSize)) {
    return qorStatusBadStep;
  }
  if (misaligned<T>(srcStep | dstStep)) return qorStatusBadStepAlign;
  if (badRate(state->rate)) return qorStatusBadArg;
  return qorStatusOk;
}

// Make a state for any element type and number of channels; `kernel` is as the type has it.
QORLOCAL(QorStatus, ownPyramidLayerDownInitAlloc,
         (QoriPyramidLayerState * *state, QoriSize roiSize, const void* kernel, int32_t kernelSize, int32_t mode,
          float rate, QorDataType dataType, int32_t channels));
QORLOCAL(QorStatus, ownPyramidLayerUpInitAlloc,
         (QoriPyramidLayerState * *state, QoriSize roiSize, const void* kernel, int32_t kernelSize, int32_t mode,
          float rate, QorDataType dataType, int32_t channels));
QORLOCAL(QorStatus, qoriPyramidLayerDownFree, (QoriPyramidLayerState * state));
QORLOCAL(QorStatus, qoriPyramidLayerUpFree, (QoriPyramidLayerState * state));
