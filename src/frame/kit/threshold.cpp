// Thresholds: pixels beyond a threshold become a value, others are copied.
//
// Odd: the operation code is tested before the pointers. Float pixels are compared with a threshold of 0 or more by
// their bit patterns as signed integers. That is the order of numbers, but for these: every pixel with its sign bit
// set, -0.0 and NaN too, is below the threshold (so code 0 turns -0.0 into the value even at 0.0), and every NaN with a
// clear sign bit is above it. A threshold below 0 (and -0.0 or NaN, for which the patterns would tell nothing) is
// compared as a float: NaN pixels are then neither above nor below.
#include "frame/checks.h"
#include "frame/kit/images.h"
#include "frame/kit/runs.h"
#include "frame/loops.h"
#include "frame/rows.h"

// Bits of a float, read in place.
typedef int32_t __attribute__((may_alias)) FloatBits;

static inline FloatBits bitsOf(float value) {
  FloatBits bits;
  __builtin_memcpy(&bits, &value, sizeof bits);
  return bits;
}

static inline float floatOf(FloatBits bits) {
  float value;
  __builtin_memcpy(&value, &bits, sizeof value);
  return value;
}

namespace {

struct Above {
  template <class T>
  bool operator()(T pixel, T threshold) const {
    return pixel > threshold;
  }
};

struct Below {
  template <class T>
  bool operator()(T pixel, T threshold) const {
    return pixel < threshold;
  }
};

}  // namespace

// Replaces the pixels for which replaced(pixel) is true.
template <class T, class Replaced>
static void replaceRows(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize size, T value,
                        Replaced replaced) {
  const Runs runs = runsOf<T>(size, 1, srcStep, dstStep);
  for (int32_t y = 0; y < runs.count; ++y) {
    const T* srcRow = rowAt(src, srcStep, y);
    T* dstRow = rowAt(dst, dstStep, y);
    QOR_INDEPENDENT
    for (ptrdiff_t x = 0; x < runs.length; ++x) dstRow[x] = replaced(srcRow[x]) ? value : srcRow[x];
  }
}

template <class Beyond, class T>
static void replace(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize size, T threshold, T value) {
  replaceRows(src, srcStep, dst, dstStep, size, value, [=](T pixel) { return Beyond()(pixel, threshold); });
}

// The pixels move as bits: a NaN that is only copied keeps its own.
template <class Beyond>
static void replace(const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize size, float threshold,
                    float value) {
  const auto* srcBits = reinterpret_cast<const FloatBits*>(src);
  auto* dstBits = reinterpret_cast<FloatBits*>(dst);
  const FloatBits valueBits = bitsOf(value), thresholdBits = bitsOf(threshold);
  if (threshold >= 0 && thresholdBits >= 0) {
    replaceRows(srcBits, srcStep, dstBits, dstStep, size, valueBits,
                [=](FloatBits pixel) { return Beyond()(pixel, thresholdBits); });
  } else {
    replaceRows(srcBits, srcStep, dstBits, dstStep, size, valueBits,
                [=](FloatBits pixel) { return Beyond()(floatOf(pixel), threshold); });
  }
}

template <class T>
static QorStatus thresholdValue(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, T threshold,
                                T value, int32_t op) {
  if (op != kitBelow && op != kitAbove) return qorStatusUnsupported;
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (srcStep < 1 || dstStep < 1) return qorStatusBadStep;
  if (op == kitAbove) {
    replace<Above>(src, srcStep, dst, dstStep, roiSize, threshold, value);
  } else {
    replace<Below>(src, srcStep, dst, dstStep, roiSize, threshold, value);
  }
  return qorStatusOk;
}

QorStatus qoriThreshold_Val_8u_C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize,
                                   uint8_t threshold, uint8_t value, int32_t op) {
  return thresholdValue(src, srcStep, dst, dstStep, roiSize, threshold, value, op);
}

QorStatus qoriThreshold_Val_16u_C1R(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                                    QoriSize roiSize, uint16_t threshold, uint16_t value, int32_t op) {
  return thresholdValue(src, srcStep, dst, dstStep, roiSize, threshold, value, op);
}

QorStatus qoriThreshold_Val_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize,
                                    float threshold, float value, int32_t op) {
  return thresholdValue(src, srcStep, dst, dstStep, roiSize, threshold, value, op);
}

QorStatus qoriThreshold_GTVal_8u_C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                     QoriSize roiSize, uint8_t threshold, uint8_t value) {
  return thresholdValue(src, srcStep, dst, dstStep, roiSize, threshold, value, kitAbove);
}

QorStatus qoriThreshold_GTVal_16u_C1R(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                                      QoriSize roiSize, uint16_t threshold, uint16_t value) {
  return thresholdValue(src, srcStep, dst, dstStep, roiSize, threshold, value, kitAbove);
}

QorStatus qoriThreshold_GTVal_8u_C1IR(uint8_t* srcDst, int32_t srcDstStep, QoriSize roiSize, uint8_t threshold,
                                      uint8_t value) {
  return thresholdValue(srcDst, srcDstStep, srcDst, srcDstStep, roiSize, threshold, value, kitAbove);
}

QorStatus qoriThreshold_GTVal_16u_C1IR(uint16_t* srcDst, int32_t srcDstStep, QoriSize roiSize, uint16_t threshold,
                                       uint16_t value) {
  return thresholdValue(srcDst, srcDstStep, srcDst, srcDstStep, roiSize, threshold, value, kitAbove);
}

QorStatus qoriThreshold_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize,
                                float threshold, int32_t op) {
  return thresholdValue(src, srcStep, dst, dstStep, roiSize, threshold, threshold, op);
}

QorStatus qoriThreshold_LT_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize,
                                   float threshold) {
  return thresholdValue(src, srcStep, dst, dstStep, roiSize, threshold, threshold, kitBelow);
}

QorStatus qoriThreshold_LT_32f_C1IR(float* srcDst, int32_t srcDstStep, QoriSize roiSize, float threshold) {
  return thresholdValue(srcDst, srcDstStep, srcDst, srcDstStep, roiSize, threshold, threshold, kitBelow);
}
