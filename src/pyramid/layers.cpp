// States of the pyramid layers: the normalised kernel and the scratch of both directions.
//
// Odd: the kernel's second half is never used, only compared, for the warning. The centre tap of a float kernel of sum
// 0 is replaced by one byte of the kernel's memory. Integer taps lose their lowest bit to a shift that rounds down, and
// the two directions round the quotient before it differently.
#include <float.h>
#include <string.h>

#include <algorithm>

#include "frame/kit/vectors.h"
#include "pyramid/layerstate.h"

enum class Direction { down, up };

// Hands out the parts of a block, or only counts them while there is no block.
struct Parts {
  uint8_t* block;
  int64_t used;
};

template <class Pointer>
static void takePart(Parts* parts, Pointer** part, int64_t length, int64_t rows, int64_t elementSize) {
  constexpr int64_t alignment = 64;
  const int64_t limit = int64_t(INT32_MAX) + 1;
  *part = parts->block == nullptr ? nullptr : reinterpret_cast<Pointer*>(parts->block + parts->used);
  const bool tooLarge = length > limit / rows || length * rows > limit / elementSize;
  const int64_t bytes = tooLarge ? limit : length * rows * elementSize;
  parts->used = std::min(limit, (parts->used + bytes + alignment - 1) & -alignment);
}

static void takePlan(Parts* parts, SpreadPlan* plan, int64_t pixels, int64_t elements, int64_t contributions) {
  takePart(parts, &plan->counts, pixels, 1, sizeof(int32_t));
  takePart(parts, &plan->places, elements, contributions, sizeof(int32_t));
  takePart(parts, &plan->shares, elements, contributions, sizeof(float));
  takePart(parts, &plan->taps, elements, contributions, sizeof(int32_t));
}

// All parts behind the record. Those that hold integers have room for the widest ones.
static void takeParts(Parts* parts, QoriPyramidLayerState* state, Direction direction) {
  const int64_t width = state->roiSize.width;
  const int64_t height = state->roiSize.height;
  const int64_t channels = state->channels;
  const int64_t elements = width * channels;
  const int64_t extended = (width + (state->kernelSize / 2) * 2) * channels;
  const bool isFloat = state->dataType == qor32f;
  takePart(parts, &state->kernel, state->kernelSize, 1, isFloat ? sizeof(float) : sizeof(int16_t));
  takePart(parts, &state->extendedRow, extended, 1, sizeof(int32_t));
  if (direction == Direction::down) {
    state->ringRows = int32_t(std::min<int64_t>(state->kernelSize, height));
    takePart(parts, &state->ring, elements, state->ringRows, isFloat ? sizeof(float) : sizeof(int64_t));
    takePart(parts, &state->window, state->kernelSize, 1, sizeof(void*));
    takePart(parts, &state->smoothRow, elements, 1, sizeof(int32_t));
    takePart(parts, &state->places, elements, 1, sizeof(int32_t));
    takePart(parts, &state->fractions, elements, 1, sizeof(float));
    takePart(parts, &state->resampledRows, elements, 2, sizeof(int32_t));
    return;
  }
  QoriSize smallest, largest;
  qoriGetPyramidUpROI(state->roiSize, &smallest, &largest, state->rate);
  const int64_t wide = int64_t(largest.width) * channels;
  // An output pixel takes from source pixels whose places lie in a stretch of the kernel's size. Places are a rate
  // apart, give or take the rounding of large floats.
  state->maxContributions = int32_t(float(state->kernelSize) / state->rate) + 12;
  state->ringRows = state->maxContributions;
  takePart(parts, &state->ring, wide, state->ringRows, sizeof(int32_t));
  takePart(parts, &state->ringTags, state->ringRows, 1, sizeof(int32_t));
  takePart(parts, &state->weights, std::max(largest.width, largest.height), 1, sizeof(float));
  takePart(parts, &state->elementWeights, wide, 1, sizeof(float));
  takePlan(parts, &state->rowPlan, largest.width, wide, state->maxContributions);
  takePlan(parts, &state->columnPlan, largest.height, largest.height, state->maxContributions);
  takePart(parts, &state->sums, wide, 1, isFloat ? sizeof(float) : sizeof(double));
}

static bool isSymmetric(const int16_t* kernel, int32_t half) {
  for (int32_t i = 1; i <= half; ++i) {
    if (kernel[half - i] != kernel[half + i]) return false;
  }
  return true;
}

static bool isSymmetric(const float* kernel, int32_t half) {
  for (int32_t i = 1; i <= half; ++i) {
    if (__builtin_fabsf(kernel[half - i] - kernel[half + i]) > FLT_MIN) return false;
  }
  return true;
}

// The sum of a symmetric kernel, in the type of Sum.
template <class Sum, class Tap>
static Sum kernelSum(const Tap* kernel, int32_t half) {
  Sum sides = 0;
  for (int32_t i = 0; i < half; ++i) sides += Sum(kernel[i]);
  return Sum(kernel[half]) + 2 * sides;
}

static void normalise(const float* kernel, float* taps, int32_t half, Direction) {
  const float sum = kernelSum<float>(kernel, half);
  if (__builtin_fabsf(sum) > FLT_MIN) {
    for (int32_t i = 0; i <= half; ++i) taps[i] = kernel[i] / sum;
  } else {
    // Required: the centre is the byte at offset `half`, not the tap at index `half`.
    for (int32_t i = 0; i < half; ++i) taps[i] = kernel[i];
    taps[half] = float(reinterpret_cast<const uint8_t*>(kernel)[half]);
  }
}

static void normalise(const int16_t* kernel, int16_t* taps, int32_t half, Direction direction) {
  const int32_t sum = kernelSum<int32_t>(kernel, half);
  const float sum4 = 4.0f * kernelSum<float>(kernel, half);
  for (int32_t i = 0; i <= half; ++i) {
    if (direction == Direction::down ? sum == 0 : !(__builtin_fabsf(sum4) > FLT_MIN)) {
      taps[i] = kernel[i];
    } else if (direction == Direction::down) {
      taps[i] = int16_t((kernel[i] * 16384 / sum) >> 1);
    } else {
      const float tap = float(4 * kernel[i]) / (sum4 * 0.5f) * 8192.0f + 0.5f;
      taps[i] = int16_t(int16_t(int32_t(tap)) >> 1);
    }
  }
}

template <class Tap>
static QorStatus storeKernel(const void* kernel, QoriPyramidLayerState* state, Direction direction) {
  const Tap* given = static_cast<const Tap*>(kernel);
  Tap* taps = static_cast<Tap*>(state->kernel);
  const int32_t half = state->kernelSize / 2;
  normalise(given, taps, half, direction);
  for (int32_t i = 0; i < half; ++i) taps[state->kernelSize - 1 - i] = taps[i];
  return isSymmetric(given, half) ? qorStatusOk : qorStatusKernelNotSymmetric;
}

static QorStatus initAlloc(QoriPyramidLayerState** state, QoriSize roiSize, const void* kernel, int32_t kernelSize,
                           int32_t mode, float rate, QorDataType dataType, int32_t channels, Direction direction) {
  if (anyNull(state, kernel)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (mode != 2 || badRate(rate) || kernelSize < 3 || kernelSize % 2 == 0) return qorStatusBadArg;
  if (channels != 1 && channels != 3) return qorStatusBadChannels;
  if (dataType != qor8u && dataType != qor16u && dataType != qor32f) return qorStatusBadDataType;

  QoriPyramidLayerState record = {};
  record.kernelSize = kernelSize;
  record.dataType = dataType;
  record.roiSize = roiSize;
  record.mode = mode;
  record.rate = rate;
  record.channels = channels;
  // The record, then the parts, aligned at 64 bytes at any address of the block.
  constexpr int64_t recordSize = sizeof record + 64;
  Parts parts = {nullptr, 0};
  takeParts(&parts, &record, direction);
  if (parts.used > INT32_MAX - recordSize) return qorStatusNoMemory;
  const int32_t size = int32_t(recordSize + parts.used);
  uint8_t* block = qorsMalloc_8u(size);
  if (block == nullptr) return qorStatusNoMemory;
  qorsSet_8u(255, block, size);
  parts = Parts{alignUp<uint8_t>(block + sizeof record, 64), 0};
  takeParts(&parts, &record, direction);
  const QorStatus status = dataType == qor32f ? storeKernel<float>(kernel, &record, direction)
                                              : storeKernel<int16_t>(kernel, &record, direction);
  memcpy(block, &record, sizeof record);
  *state = reinterpret_cast<QoriPyramidLayerState*>(block);
  return status;
}

QorStatus ownPyramidLayerDownInitAlloc(QoriPyramidLayerState** state, QoriSize roiSize, const void* kernel,
                                       int32_t kernelSize, int32_t mode, float rate, QorDataType dataType,
                                       int32_t channels) {
  return initAlloc(state, roiSize, kernel, kernelSize, mode, rate, dataType, channels, Direction::down);
}

QorStatus ownPyramidLayerUpInitAlloc(QoriPyramidLayerState** state, QoriSize roiSize, const void* kernel,
                                     int32_t kernelSize, int32_t mode, float rate, QorDataType dataType,
                                     int32_t channels) {
  return initAlloc(state, roiSize, kernel, kernelSize, mode, rate, dataType, channels, Direction::up);
}

QorStatus qoriPyramidLayerDownFree(QoriPyramidLayerState* state) {
  if (anyNull(state)) return qorStatusNullPtr;
  qorsFree(state);
  return qorStatusOk;
}

QorStatus qoriPyramidLayerUpFree(QoriPyramidLayerState* state) { return qoriPyramidLayerDownFree(state); }

#define LAYER_STATE(direction, form, Tap, dataType, channels)                                                         \
  QorStatus qoriPyramidLayer##direction##InitAlloc_##form(QoriPyramidLayerState** state, QoriSize roiSize,            \
                                                          const Tap* kernel, int32_t kernelSize, int32_t mode,        \
                                                          float rate) {                                               \
    return ownPyramidLayer##direction##InitAlloc(state, roiSize, kernel, kernelSize, mode, rate, dataType, channels); \
  }                                                                                                                   \
  QorStatus qoriPyramidLayer##direction##Free_##form(QoriPyramidLayerState* state) {                                  \
    return qoriPyramidLayer##direction##Free(state);                                                                  \
  }
#define LAYER_STATES(direction)                       \
  LAYER_STATE(direction, 8u_C1R, int16_t, qor8u, 1)   \
  LAYER_STATE(direction, 8u_C3R, int16_t, qor8u, 3)   \
  LAYER_STATE(direction, 16u_C1R, int16_t, qor16u, 1) \
  LAYER_STATE(direction, 16u_C3R, int16_t, qor16u, 3) \
  LAYER_STATE(direction, 32f_C1R, float, qor32f, 1)   \
  LAYER_STATE(direction, 32f_C3R, float, qor32f, 3)
LAYER_STATES(Down)
LAYER_STATES(Up)
#undef LAYER_STATES
#undef LAYER_STATE
