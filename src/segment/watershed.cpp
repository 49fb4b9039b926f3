// Watershed from markers: the frame of the two engines.
#include "segment/watershed.h"

#include "frame/frame.h"

template <class T>
static QorStatus bufferSizeOf(QoriSize roiSize, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  const int32_t width = roiSize.width, height = roiSize.height, row = watershedRow<T>(width);
  const int32_t queue = 16 * width * height + int32_t(sizeof(T)) * (width + 2) * (height + 2) + 48;
  const int32_t sweeps = (2 * height + 2) * row + 4 * row * height + height + 66;
  *bufferSize = queue > sweeps ? queue : sweeps;
  return qorStatusOk;
}

template <class T, class Engine>
static QorStatus segmentWatershed(const uint8_t* src, int32_t srcStep, T* markers, int32_t markerStep, QoriSize roiSize,
                                  int32_t watershedNorm, int32_t flag, uint8_t* buffer, Engine queue, Engine sweeps) {
  if (anyNull(src, markers, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t>(srcStep, roiSize) || shortStep<T>(markerStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(markerStep)) return qorStatusBadStepAlign;
  if (flag & qorSegmentQueue) {
    if (watershedNorm != qorNormInf && watershedNorm != qorNormL1) return qorStatusBadArg;
    queue(src, srcStep, markers, markerStep, roiSize, watershedNorm, flag, buffer);
  } else {
    if (!(flag & qorSegmentDistance) || watershedNorm < qorNormInf || watershedNorm > qorNormFM) return qorStatusBadArg;
    sweeps(src, srcStep, markers, markerStep, roiSize, watershedNorm, flag, buffer);
  }
  return qorStatusOk;
}

QorStatus qoriSegmentWatershedGetBufferSize_8u_C1R(QoriSize roiSize, int32_t* bufferSize) {
  return bufferSizeOf<uint8_t>(roiSize, bufferSize);
}

QorStatus qoriSegmentWatershedGetBufferSize_8u16u_C1R(QoriSize roiSize, int32_t* bufferSize) {
  return bufferSizeOf<uint16_t>(roiSize, bufferSize);
}

QorStatus qoriSegmentWatershed_8u_C1IR(const uint8_t* src, int32_t srcStep, uint8_t* markers, int32_t markerStep,
                                       QoriSize roiSize, int32_t watershedNorm, int32_t flag, uint8_t* buffer) {
  return segmentWatershed(src, srcStep, markers, markerStep, roiSize, watershedNorm, flag, buffer,
                          ownSegmentWaterhedPQ_8u_C1IR, ownSegmentWatershedSweeps_8u_C1IR);
}

QorStatus qoriSegmentWatershed_8u16u_C1IR(const uint8_t* src, int32_t srcStep, uint16_t* markers, int32_t markerStep,
                                          QoriSize roiSize, int32_t watershedNorm, int32_t flag, uint8_t* buffer) {
  return segmentWatershed(src, srcStep, markers, markerStep, roiSize, watershedNorm, flag, buffer,
                          ownSegmentWaterhedPQ_8u16u_C1IR, ownSegmentWatershedSweeps_8u16u_C1IR);
}
