// Pixels along a line after Bresenham, both ends included, one after the other.
#include <stdlib.h>
#include <string.h>

#include "frame/frame.h"

template <class T, int32_t channels>
static QorStatus sampleLine(const T* src, int32_t srcStep, QoriSize roiSize, T* dst, QoriPoint pt1, QoriPoint pt2) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T, channels>(srcStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep)) return qorStatusBadStepAlign;
  const auto outside = [=](QoriPoint p) { return p.x < 0 || p.y < 0 || p.x >= roiSize.width || p.y >= roiSize.height; };
  if (outside(pt1) || outside(pt2)) return qorStatusOutOfRange;

  constexpr size_t pixelBytes = channels * sizeof(T);
  const int32_t dx = abs(pt2.x - pt1.x), dy = abs(pt2.y - pt1.y);
  const ptrdiff_t alongX = (pt2.x < pt1.x ? -1 : 1) * ptrdiff_t(pixelBytes);
  const ptrdiff_t alongY = (pt2.y < pt1.y ? -1 : 1) * ptrdiff_t(srcStep);
  const bool steep = dx <= dy;  // a tie goes to y
  const int32_t major = steep ? dy : dx, minor = steep ? dx : dy, count = major + 1;
  // No image that passes the tests above is so large.
  if (count < 0) return qorStatusOverflow;
  const ptrdiff_t majorStep = steep ? alongY : alongX, minorStep = steep ? alongX : alongY;

  const T* const first = rowAt(src, srcStep, pt1.y) + ptrdiff_t(pt1.x) * channels;
  uint8_t* to = reinterpret_cast<uint8_t*>(dst);
  ptrdiff_t offset = 0;
  int64_t error = major;
  for (int32_t i = 0; i < count; ++i, to += pixelBytes) {
    memcpy(to, reinterpret_cast<const uint8_t*>(first) + offset, pixelBytes);
    error -= 2 * int64_t(minor);
    if (error < 0) {
      error += 2 * int64_t(major);
      offset += minorStep;
    }
    offset += majorStep;
  }
  return qorStatusOk;
}

QorStatus qoriSampleLine_8u_C1R(const uint8_t* src, int32_t srcStep, QoriSize roiSize, uint8_t* dst, QoriPoint pt1,
                                QoriPoint pt2) {
  return sampleLine<uint8_t, 1>(src, srcStep, roiSize, dst, pt1, pt2);
}
QorStatus qoriSampleLine_8u_C3R(const uint8_t* src, int32_t srcStep, QoriSize roiSize, uint8_t* dst, QoriPoint pt1,
                                QoriPoint pt2) {
  return sampleLine<uint8_t, 3>(src, srcStep, roiSize, dst, pt1, pt2);
}
QorStatus qoriSampleLine_16u_C1R(const uint16_t* src, int32_t srcStep, QoriSize roiSize, uint16_t* dst, QoriPoint pt1,
                                 QoriPoint pt2) {
  return sampleLine<uint16_t, 1>(src, srcStep, roiSize, dst, pt1, pt2);
}
QorStatus qoriSampleLine_16u_C3R(const uint16_t* src, int32_t srcStep, QoriSize roiSize, uint16_t* dst, QoriPoint pt1,
                                 QoriPoint pt2) {
  return sampleLine<uint16_t, 3>(src, srcStep, roiSize, dst, pt1, pt2);
}
QorStatus qoriSampleLine_32f_C1R(const float* src, int32_t srcStep, QoriSize roiSize, float* dst, QoriPoint pt1,
                                 QoriPoint pt2) {
  return sampleLine<float, 1>(src, srcStep, roiSize, dst, pt1, pt2);
}
QorStatus qoriSampleLine_32f_C3R(const float* src, int32_t srcStep, QoriSize roiSize, float* dst, QoriPoint pt1,
                                 QoriPoint pt2) {
  return sampleLine<float, 3>(src, srcStep, roiSize, dst, pt1, pt2);
}
