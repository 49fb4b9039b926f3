// Bounds between segments by cost, as the watershed's sweeps need them.
#pragma once

#include "frame/level.h"

// Marks, between pixels of different labels, the one of the higher cost with `borderValue`. `fourNeighbours` 1: among
// four neighbours; 0: among eight. The step of the cost plane is in bytes. Checks nothing.
QORLOCAL(void, ownBoundSegments_8u_C1IR,
         (uint8_t * markers, int32_t markerStep, const int32_t* cost, ptrdiff_t costStep, QoriSize roiSize,
          uint8_t borderValue, int32_t fourNeighbours));
QORLOCAL(void, ownBoundSegments_16u_C1IR,
         (uint16_t * markers, int32_t markerStep, const int32_t* cost, ptrdiff_t costStep, QoriSize roiSize,
          uint16_t borderValue, int32_t fourNeighbours));
