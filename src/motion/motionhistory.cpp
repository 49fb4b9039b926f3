// Motion history: each pixel holds the time stamp at which it was last seen moving; stamps that are too old are
// cleared.
//
// Odd: with an integer silhouette floats are ordered by their bits, so -0.0 lies below +0.0 and a NaN beyond the
// infinity of its sign; with a float silhouette they are compared as floats.
#include <string.h>

#include <algorithm>
#include <type_traits>

#include "frame/frame.h"

// An integer in the order of the float's bits: the bits without the sign, all inverted for a negative value.
static inline int32_t ordered(float value) {
  int32_t bits;
  memcpy(&bits, &value, sizeof bits);
  return bits ^ ((bits >> 31) & 0x7fffffff);
}

template <class T>
static inline bool isBelow(float a, float b) {
  if constexpr (std::is_same_v<T, float>) {
    return a < b;
  } else {
    return ordered(a) < ordered(b);
  }
}

template <class T>
static inline void updateBlock(const T* silhouette, float* mhi, int32_t count, float timestamp, float oldest) {
  QOR_INDEPENDENT
  for (int32_t x = 0; x < count; ++x) {
    const float kept = isBelow<T>(mhi[x], oldest) ? 0.0f : mhi[x];
    mhi[x] = silhouette[x] != T(0) ? timestamp : kept;
  }
}

template <class T>
static QorStatus updateMotionHistory(const T* silhouette, int32_t silhouetteStep, float* mhi, int32_t mhiStep,
                                     QoriSize roiSize, float timestamp, float mhiDuration) {
  if (anyNull(silhouette, mhi)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T>(silhouetteStep, roiSize) || shortStep<float>(mhiStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(silhouetteStep) || misaligned<float>(mhiStep)) return qorStatusBadStepAlign;
  if (mhiDuration < 0) return qorStatusOutOfRange;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const T* s = rowAt(silhouette, silhouetteStep, y);
    float* h = rowAt(mhi, mhiStep, y);
    for (int32_t x = 0; x < roiSize.width;) {
      const int32_t count = std::min(prefetchBlock, roiSize.width - x);
      prefetchElements(rowAt(h + x, mhiStep, 1), count);
      prefetchElements(rowAt(s + x, silhouetteStep, 1), count);
      updateBlock(s + x, h + x, count, timestamp, timestamp - mhiDuration);
      x += count;
    }
  }
  return qorStatusOk;
}

QorStatus qoriUpdateMotionHistory_8u32f_C1IR(const uint8_t* silhouette, int32_t silhouetteStep, float* mhi,
                                             int32_t mhiStep, QoriSize roiSize, float timestamp, float mhiDuration) {
  return updateMotionHistory(silhouette, silhouetteStep, mhi, mhiStep, roiSize, timestamp, mhiDuration);
}

QorStatus qoriUpdateMotionHistory_16u32f_C1IR(const uint16_t* silhouette, int32_t silhouetteStep, float* mhi,
                                              int32_t mhiStep, QoriSize roiSize, float timestamp, float mhiDuration) {
  return updateMotionHistory(silhouette, silhouetteStep, mhi, mhiStep, roiSize, timestamp, mhiDuration);
}

QorStatus qoriUpdateMotionHistory_32f_C1IR(const float* silhouette, int32_t silhouetteStep, float* mhi, int32_t mhiStep,
                                           QoriSize roiSize, float timestamp, float mhiDuration) {
  return updateMotionHistory(silhouette, silhouetteStep, mhi, mhiStep, roiSize, timestamp, mhiDuration);
}
