// The kit's image routines. Internal, though they bear the names of exported ones.
//
// They test less than exported functions: qorStatusNullPtr, then qorStatusBadSize for a width or height below 1. Steps
// are not compared with widths; the callers have done that. None uses threads.
#pragma once

#include "frame/level.h"

// A list of declarations of one shape, for a few element types and channel counts.

#define KIT_COPY(name, T) \
  QORLOCAL(QorStatus, name, (const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize))
KIT_COPY(qoriCopy_8u_C1R, uint8_t);
KIT_COPY(qoriCopy_8u_C3R, uint8_t);
KIT_COPY(qoriCopy_8u_C4R, uint8_t);
KIT_COPY(qoriCopy_16s_C1R, int16_t);
KIT_COPY(qoriCopy_16u_C1R, uint16_t);
KIT_COPY(qoriCopy_32f_C1R, float);
KIT_COPY(qoriCopy_32f_C3R, float);
KIT_COPY(qoriCopy_32f_C4R, float);
#undef KIT_COPY

QORLOCAL(QorStatus, qoriSet_8u_C1R, (uint8_t value, uint8_t* dst, int32_t dstStep, QoriSize roiSize));

// dst = src2 - src1: the first argument is subtracted from the second. dst may be a source.
#define KIT_SUB(name)                                                                                              \
  QORLOCAL(QorStatus, name,                                                                                        \
           (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, float* dst, int32_t dstStep, \
            QoriSize roiSize))
KIT_SUB(qoriSub_32f_C1R);
KIT_SUB(qoriSub_32f_C3R);
KIT_SUB(qoriSub_32f_C4R);
#undef KIT_SUB

// srcDst = srcDst - src.
#define KIT_SUB_I(name) \
  QORLOCAL(QorStatus, name, (const float* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize))
KIT_SUB_I(qoriSub_32f_C1IR);
KIT_SUB_I(qoriSub_32f_C3IR);
KIT_SUB_I(qoriSub_32f_C4IR);
#undef KIT_SUB_I

// dst = max(src2 - src1, 0) scaled by 2^-scaleFactor: rounded to nearest with ties to even, held to 255.
#define KIT_SUB_SFS(name)                                                                               \
  QORLOCAL(QorStatus, name,                                                                             \
           (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, uint8_t* dst, \
            int32_t dstStep, QoriSize roiSize, int32_t scaleFactor))
KIT_SUB_SFS(qoriSub_8u_C1RSfs);
KIT_SUB_SFS(qoriSub_8u_C3RSfs);
KIT_SUB_SFS(qoriSub_8u_C4RSfs);
#undef KIT_SUB_SFS

// The same in place: srcDst = max(srcDst - src, 0), scaled.
#define KIT_SUB_ISFS(name)                                                                              \
  QORLOCAL(QorStatus, name,                                                                             \
           (const uint8_t* src, int32_t srcStep, uint8_t* srcDst, int32_t srcDstStep, QoriSize roiSize, \
            int32_t scaleFactor))
KIT_SUB_ISFS(qoriSub_8u_C1IRSfs);
KIT_SUB_ISFS(qoriSub_8u_C3IRSfs);
KIT_SUB_ISFS(qoriSub_8u_C4IRSfs);
#undef KIT_SUB_ISFS

// Thresholds. Tested in this order: an operation code that is neither kitBelow nor kitAbove gives qorStatusUnsupported;
// pointers; sizes; a step below 1 gives qorStatusBadStep. Pixels below (above) the threshold become `value`, others are
// copied. dst may be src.
enum { kitBelow = 0, kitAbove = 4 };

#define KIT_THRESHOLD_VAL(name, T) \
  QORLOCAL(                        \
      QorStatus, name,             \
      (const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, T threshold, T value, int32_t op))
KIT_THRESHOLD_VAL(qoriThreshold_Val_8u_C1R, uint8_t);
KIT_THRESHOLD_VAL(qoriThreshold_Val_16u_C1R, uint16_t);
// Compares bit patterns as signed integers where the threshold is not negative: a NaN without sign is above any, and
// all with sign, -0.0 and NaN too, is below.
KIT_THRESHOLD_VAL(qoriThreshold_Val_32f_C1R, float);
#undef KIT_THRESHOLD_VAL

QORLOCAL(QorStatus, qoriThreshold_GTVal_8u_C1R,
         (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t threshold,
          uint8_t value));
QORLOCAL(QorStatus, qoriThreshold_GTVal_16u_C1R,
         (const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, uint16_t threshold,
          uint16_t value));
QORLOCAL(QorStatus, qoriThreshold_GTVal_8u_C1IR,
         (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, uint8_t threshold, uint8_t value));
QORLOCAL(QorStatus, qoriThreshold_GTVal_16u_C1IR,
         (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, uint16_t threshold, uint16_t value));
QORLOCAL(QorStatus, qoriThreshold_32f_C1R,
         (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float threshold,
          int32_t op));
QORLOCAL(QorStatus, qoriThreshold_LT_32f_C1R,
         (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float threshold));
QORLOCAL(QorStatus, qoriThreshold_LT_32f_C1IR, (float* srcDst, int32_t srcDstStep, QoriSize roiSize, float threshold));

// Border copies: a source region is placed in a larger destination, `topBorderHeight` rows and `leftBorderWidth` pixels
// from its origin. Tested in this order: pointers; a step below 1 gives qorStatusBadStep; sizes below 1, negative
// borders or a destination that cannot hold the source give qorStatusBadSize.
//
// The replicating form continues the edge pixels, whole pixels in C3 and C4. In place, srcDst points to the first
// source pixel, the source stays where it is and only the border is written.
#define KIT_REPLICATE(name, T)                                                                                \
  QORLOCAL(QorStatus, name,                                                                                   \
           (const T* src, int32_t srcStep, QoriSize srcRoiSize, T* dst, int32_t dstStep, QoriSize dstRoiSize, \
            int32_t topBorderHeight, int32_t leftBorderWidth))
KIT_REPLICATE(qoriCopyReplicateBorder_8u_C1R, uint8_t);
KIT_REPLICATE(qoriCopyReplicateBorder_8u_C3R, uint8_t);
KIT_REPLICATE(qoriCopyReplicateBorder_8u_C4R, uint8_t);
KIT_REPLICATE(qoriCopyReplicateBorder_32s_C1R, int32_t);
KIT_REPLICATE(qoriCopyReplicateBorder_32s_C3R, int32_t);
KIT_REPLICATE(qoriCopyReplicateBorder_32s_C4R, int32_t);
#undef KIT_REPLICATE

#define KIT_REPLICATE_I(name, T)                                                                               \
  QORLOCAL(QorStatus, name,                                                                                    \
           (T * srcDst, int32_t srcDstStep, QoriSize srcRoiSize, QoriSize dstRoiSize, int32_t topBorderHeight, \
            int32_t leftBorderWidth))
KIT_REPLICATE_I(qoriCopyReplicateBorder_8u_C1IR, uint8_t);
KIT_REPLICATE_I(qoriCopyReplicateBorder_8u_C3IR, uint8_t);
KIT_REPLICATE_I(qoriCopyReplicateBorder_8u_C4IR, uint8_t);
KIT_REPLICATE_I(qoriCopyReplicateBorder_32s_C1IR, int32_t);
KIT_REPLICATE_I(qoriCopyReplicateBorder_32s_C3IR, int32_t);
KIT_REPLICATE_I(qoriCopyReplicateBorder_32s_C4IR, int32_t);
#undef KIT_REPLICATE_I

#define KIT_CONSTANT(name, T)                                                                                 \
  QORLOCAL(QorStatus, name,                                                                                   \
           (const T* src, int32_t srcStep, QoriSize srcRoiSize, T* dst, int32_t dstStep, QoriSize dstRoiSize, \
            int32_t topBorderHeight, int32_t leftBorderWidth, T value))
KIT_CONSTANT(qoriCopyConstBorder_8u_C1R, uint8_t);
KIT_CONSTANT(qoriCopyConstBorder_16s_C1R, int16_t);
KIT_CONSTANT(qoriCopyConstBorder_16u_C1R, uint16_t);
#undef KIT_CONSTANT
