// The engine of the fixed-kernel filters: a row stage and a column stage over a ring of rows.
#pragma once

#include "frame/level.h"

// Hard-coded row kernels, in the order of the engine's tables.
enum RowKernel {
  rowDx3,
  rowScharr3,
  rowDxNeg3,
  rowDxNeg5,
  rowDx2_3,
  rowDx2_5,
  rowSobel3,
  rowSobel5,
  rowAverage3,
  rowAverage5,
  rowLaplacian3
};

// Hard-coded column kernels. Not every element type has every one of them.
enum ColumnKernel {
  columnScharr3,
  columnDx3,
  columnSobel3,
  columnSobel5,
  columnDx5,
  columnDx2_3,
  columnDx2_5,
  columnLaplacian3,
  columnLaplacian5,  // adds to what dst holds already
  columnAverage3,
  columnAverage5,
  columnSobelNeg3,
  columnSobelNeg5
};

// A row kernel and a column kernel of the same length.
struct KernelPair {
  RowKernel row;
  ColumnKernel column;
};

// Filters `roiSize` pixels at `src`, a stripe of the image of `imageSize` pixels at `image` or all of it. `borderType`
// is a mode and the two flags. `divisor` counts in the 8u8s form only; the caller has checked that it is not 0.
// `buffer` is the scratch of one thread, as sized by convolutionScratch().
#define QOR_CONVOLUTION(form, Src, Dst)                                                                       \
  QORLOCAL(void, ownFilterConvolution_##form,                                                                 \
           (const Src* src, int32_t srcStep, Dst* dst, int32_t dstStep, QoriSize roiSize, KernelPair kernels, \
            QoriBorderType borderType, Src borderValue, int32_t divisor, uint8_t* buffer, const Src* image,   \
            QoriSize imageSize))
QOR_CONVOLUTION(32f, float, float);
QOR_CONVOLUTION(8u16s, uint8_t, int16_t);
QOR_CONVOLUTION(8u8s, uint8_t, int8_t);
QOR_CONVOLUTION(8u, uint8_t, uint8_t);
#undef QOR_CONVOLUTION
