// Copies and fills of images. Steps are taken as they come.
#include <string.h>

#include "frame/checks.h"
#include "frame/kit/images.h"
#include "frame/kit/runs.h"
#include "frame/rows.h"

template <int32_t channels, class T>
static QorStatus copy(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  const Runs runs = runsOf<T>(roiSize, channels, srcStep, dstStep);
  for (int32_t y = 0; y < runs.count; ++y) {
    memcpy(rowAt(dst, dstStep, y), rowAt(src, srcStep, y), size_t(runs.length) * sizeof(T));
  }
  return qorStatusOk;
}

QorStatus qoriCopy_8u_C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize) {
  return copy<1>(src, srcStep, dst, dstStep, roiSize);
}

QorStatus qoriCopy_8u_C3R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize) {
  return copy<3>(src, srcStep, dst, dstStep, roiSize);
}

QorStatus qoriCopy_8u_C4R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize) {
  return copy<4>(src, srcStep, dst, dstStep, roiSize);
}

QorStatus qoriCopy_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize) {
  return copy<1>(src, srcStep, dst, dstStep, roiSize);
}

QorStatus qoriCopy_16u_C1R(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize) {
  return copy<1>(src, srcStep, dst, dstStep, roiSize);
}

QorStatus qoriCopy_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize) {
  return copy<1>(src, srcStep, dst, dstStep, roiSize);
}

QorStatus qoriCopy_32f_C3R(const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize) {
  return copy<3>(src, srcStep, dst, dstStep, roiSize);
}

QorStatus qoriCopy_32f_C4R(const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize) {
  return copy<4>(src, srcStep, dst, dstStep, roiSize);
}

QorStatus qoriSet_8u_C1R(uint8_t value, uint8_t* dst, int32_t dstStep, QoriSize roiSize) {
  if (anyNull(dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  const Runs runs = runsOf<uint8_t>(roiSize, 1, dstStep);
  for (int32_t y = 0; y < runs.count; ++y) memset(rowAt(dst, dstStep, y), value, size_t(runs.length));
  return qorStatusOk;
}
