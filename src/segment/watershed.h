// The two engines of the watershed. Both expect arguments that have been checked.
#pragma once

#include "frame/level.h"

#define WATERSHED_ENGINE(name, T)                                                                                \
  QORLOCAL(void, name,                                                                                           \
           (const uint8_t* src, int32_t srcStep, T* markers, int32_t markerStep, QoriSize roiSize, int32_t norm, \
            int32_t flag, uint8_t* buffer))
WATERSHED_ENGINE(ownSegmentWaterhedPQ_8u_C1IR, uint8_t);
WATERSHED_ENGINE(ownSegmentWaterhedPQ_8u16u_C1IR, uint16_t);
WATERSHED_ENGINE(ownSegmentWatershedSweeps_8u_C1IR, uint8_t);
WATERSHED_ENGINE(ownSegmentWatershedSweeps_8u16u_C1IR, uint16_t);
#undef WATERSHED_ENGINE

// Length of a row of labels in the sweeps' planes.
template <class T>
static inline int32_t watershedRow(int32_t width) {
  return (int32_t(sizeof(T)) * width + 31) & ~31;
}
