// Labels for the connected regions of an image: a flood fill from the first pixel of each.
#include <string.h>

#include <limits>

#include "frame/frame.h"
#include "frame/kit/images.h"

static QorStatus fill(uint8_t* image, int32_t step, QoriSize roiSize, QoriPoint seed, int32_t label, int32_t norm,
                      QoriConnectedComp* region, uint8_t* buffer) {
  return norm == qorNormL1 ? qoriFloodFill_4Con_8u_C1IR(image, step, roiSize, seed, uint8_t(label), region, buffer)
                           : qoriFloodFill_8Con_8u_C1IR(image, step, roiSize, seed, uint8_t(label), region, buffer);
}

static QorStatus fill(uint16_t* image, int32_t step, QoriSize roiSize, QoriPoint seed, int32_t label, int32_t norm,
                      QoriConnectedComp* region, uint8_t* buffer) {
  return norm == qorNormL1 ? qoriFloodFill_4Con_16u_C1IR(image, step, roiSize, seed, uint16_t(label), region, buffer)
                           : qoriFloodFill_8Con_16u_C1IR(image, step, roiSize, seed, uint16_t(label), region, buffer);
}

static void raise(uint8_t* image, int32_t step, QoriSize roiSize) {
  qoriThreshold_GTVal_8u_C1IR(image, step, roiSize, 0, 255);
}

static void raise(uint16_t* image, int32_t step, QoriSize roiSize) {
  qoriThreshold_GTVal_16u_C1IR(image, step, roiSize, 0, 65535);
}

// The first column from x on that holds the top value, or `width`.
static int32_t nextTop(const uint8_t* row, int32_t x, int32_t width) {
  if (x >= width) return width;
  const auto* found = static_cast<const uint8_t*>(memchr(row + x, 255, size_t(width - x)));
  return found ? int32_t(found - row) : width;
}

static int32_t nextTop(const uint16_t* row, int32_t x, int32_t width) {
  constexpr int32_t block = 32;
  for (; x <= width - block; x += block) {
    uint16_t top = 0;
    for (int32_t i = 0; i < block; ++i) top |= uint16_t(row[x + i] == 65535);
    if (top) break;
  }
  while (x < width && row[x] != 65535) ++x;
  return x;
}

template <class T>
static QorStatus labelMarkers(T* srcDst, int32_t srcDstStep, QoriSize roiSize, int32_t minLabel, int32_t maxLabel,
                              int32_t norm, int32_t* markersNum, uint8_t* buffer) {
  if (anyNull(srcDst, buffer, markersNum)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T>(srcDstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcDstStep)) return qorStatusBadStepAlign;
  if (minLabel < 1 || maxLabel >= std::numeric_limits<T>::max() || minLabel > maxLabel) return qorStatusBadArg;
  if (norm != qorNormL1 && norm != qorNormInf) return qorStatusBadArg;

  raise(srcDst, srcDstStep, roiSize);
  int32_t label = minLabel, count = 0;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const T* row = rowAt(srcDst, srcDstStep, y);
    for (int32_t x = 0; (x = nextTop(row, x, roiSize.width)) < roiSize.width; ++x) {
      QoriConnectedComp region;
      fill(srcDst, srcDstStep, roiSize, {x, y}, label, norm, &region, buffer);
      ++count;
      label = label == maxLabel ? minLabel : label + 1;
    }
  }
  *markersNum = count;
  return qorStatusOk;
}

QorStatus qoriLabelMarkersGetBufferSize_16u_C1R(QoriSize roiSize, int32_t* bufferSize) {
  return qoriFloodFillGetSize(roiSize, bufferSize);
}

QorStatus qoriLabelMarkersGetBufferSize_8u_C1R(QoriSize roiSize, int32_t* bufferSize) {
  return qoriLabelMarkersGetBufferSize_16u_C1R(roiSize, bufferSize);
}

QorStatus qoriLabelMarkers_8u_C1IR(uint8_t* srcDst, int32_t srcDstStep, QoriSize roiSize, int32_t minLabel,
                                   int32_t maxLabel, int32_t norm, int32_t* markersNum, uint8_t* buffer) {
  return labelMarkers(srcDst, srcDstStep, roiSize, minLabel, maxLabel, norm, markersNum, buffer);
}

QorStatus qoriLabelMarkers_16u_C1IR(uint16_t* srcDst, int32_t srcDstStep, QoriSize roiSize, int32_t minLabel,
                                    int32_t maxLabel, int32_t norm, int32_t* markersNum, uint8_t* buffer) {
  return labelMarkers(srcDst, srcDstStep, roiSize, minLabel, maxLabel, norm, markersNum, buffer);
}
