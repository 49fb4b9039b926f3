// Absolute difference of two images, or of an image and a constant.
//
// Odd: the float forms clear the sign bit of the rounded difference, of a NaN too; the three-channel form is the
// one-channel form on a triple width, checks and gate included.
#include <algorithm>
#include <limits>

#include "frame/frame.h"

static constexpr int32_t parallelPixels = 0x40000;

static inline uint8_t absDiffOf(uint8_t a, uint8_t b) { return a > b ? uint8_t(a - b) : uint8_t(b - a); }
static inline uint16_t absDiffOf(uint16_t a, uint16_t b) { return a > b ? uint16_t(a - b) : uint16_t(b - a); }
static inline float absDiffOf(float a, float b) { return __builtin_fabsf(a - b); }

template <class T>
static void absDiffRow(const T* src1, const T* src2, T* dst, int32_t width) {
  QOR_INDEPENDENT
  for (int32_t x = 0; x < width; ++x) dst[x] = absDiffOf(src1[x], src2[x]);
}

template <class T>
static void absDiffConstantRow(const T* src, T value, T* dst, int32_t width) {
  QOR_INDEPENDENT
  for (int32_t x = 0; x < width; ++x) dst[x] = absDiffOf(src[x], value);
}

template <class T>
static QorStatus absDiff(const T* src1, int32_t src1Step, const T* src2, int32_t src2Step, T* dst, int32_t dstStep,
                         QoriSize roiSize) {
  if (anyNull(src1, src2, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T>(src1Step, roiSize) || shortStep<T>(src2Step, roiSize) || shortStep<T>(dstStep, roiSize)) {
    return qorStatusBadStep;
  }
  if (misaligned<T>(src1Step | src2Step | dstStep)) return qorStatusBadStepAlign;
  runStripes(roiSize.height, pixels(roiSize) >= parallelPixels ? ownGetNumThreads() : serial,
             [=](int32_t row, int32_t rows) {
               for (int32_t y = row; y < row + rows; ++y) {
                 absDiffRow(rowAt(src1, src1Step, y), rowAt(src2, src2Step, y), rowAt(dst, dstStep, y), roiSize.width);
               }
             });
  return qorStatusOk;
}

template <class T>
static QorStatus absDiffConstant(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, T value) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T>(srcStep, roiSize) || shortStep<T>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep | dstStep)) return qorStatusBadStepAlign;
  runStripes(roiSize.height, pixels(roiSize) >= parallelPixels ? ownGetNumThreads() : serial,
             [=](int32_t row, int32_t rows) {
               for (int32_t y = row; y < row + rows; ++y) {
                 absDiffConstantRow(rowAt(src, srcStep, y), value, rowAt(dst, dstStep, y), roiSize.width);
               }
             });
  return qorStatusOk;
}

template <class T>
static T heldTo(int32_t value) {
  return T(std::clamp<int32_t>(value, 0, std::numeric_limits<T>::max()));
}

QorStatus qoriAbsDiff_8u_C1R(const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, uint8_t* dst,
                             int32_t dstStep, QoriSize roiSize) {
  return absDiff(src1, src1Step, src2, src2Step, dst, dstStep, roiSize);
}

QorStatus qoriAbsDiff_8u_C3R(const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, uint8_t* dst,
                             int32_t dstStep, QoriSize roiSize) {
  return absDiff(src1, src1Step, src2, src2Step, dst, dstStep, QoriSize{roiSize.width * 3, roiSize.height});
}

QorStatus qoriAbsDiff_16u_C1R(const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step,
                              uint16_t* dst, int32_t dstStep, QoriSize roiSize) {
  return absDiff(src1, src1Step, src2, src2Step, dst, dstStep, roiSize);
}

QorStatus qoriAbsDiff_32f_C1R(const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, float* dst,
                              int32_t dstStep, QoriSize roiSize) {
  return absDiff(src1, src1Step, src2, src2Step, dst, dstStep, roiSize);
}

QorStatus qoriAbsDiffC_8u_C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize,
                              int32_t value) {
  return absDiffConstant(src, srcStep, dst, dstStep, roiSize, heldTo<uint8_t>(value));
}

QorStatus qoriAbsDiffC_16u_C1R(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize,
                               int32_t value) {
  return absDiffConstant(src, srcStep, dst, dstStep, roiSize, heldTo<uint16_t>(value));
}

QorStatus qoriAbsDiffC_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize,
                               float value) {
  return absDiffConstant(src, srcStep, dst, dstStep, roiSize, value);
}
