/* Image arithmetic. Included by qorcvmx.h. */

/**
 * Absolute difference of two images: dst = |src1 - src2|, pixel by pixel.
 *
 * The 32f form clears the sign of the rounded float difference, of a NaN too. `dst` may be one of the sources, with
 * the same step; other overlap is not supported.
 *
 * Statuses: qorStatusNullPtr (src1, src2, dst); qorStatusBadSize; qorStatusBadStep (src1Step, src2Step, dstStep);
 * qorStatusBadStepAlign (16u, 32f). The C3 form is the C1 form on a width of 3 * width, checks included: a width whose
 * triple wraps to a value below 1 gives qorStatusBadSize.
 */
/**@{*/
QORAPI(QorStatus, qoriAbsDiff_8u_C1R,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, uint8_t* dst, int32_t dstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAbsDiff_8u_C3R,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, uint8_t* dst, int32_t dstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAbsDiff_16u_C1R,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, uint16_t* dst, int32_t dstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAbsDiff_32f_C1R,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, float* dst, int32_t dstStep,
        QoriSize roiSize));
/**@}*/

/**
 * Absolute difference of an image and a constant: dst = |src - value|, pixel by pixel.
 *
 * In the integer forms `value` is first held to the range of the element type (0 to 255, 0 to 65535); no value is an
 * error. The 32f form uses it as it is and clears the sign of the rounded difference, of a NaN too. `dst` may be `src`,
 * with the same step.
 *
 * Statuses: qorStatusNullPtr (src, dst); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep); qorStatusBadStepAlign
 * (16u, 32f).
 */
/**@{*/
QORAPI(QorStatus, qoriAbsDiffC_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, int32_t value));
QORAPI(QorStatus, qoriAbsDiffC_16u_C1R,
       (const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, int32_t value));
QORAPI(QorStatus, qoriAbsDiffC_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float value));
/**@}*/

/**
 * Adds an image to a 32f accumulator: srcDst += src, in all pixels (C1IR) or under a mask (C1IMR).
 *
 * Every accumulator function works in 32-bit floats and rounds each operation by itself; nothing is held to a range. A
 * pixel is selected where its mask byte is not 0. One that is not selected is not skipped: a term of 0.0 is added to
 * it, so that -0.0 becomes +0.0, and where the source is 32f that term is the source times 0.0, so that an infinite or
 * NaN source makes the accumulator NaN. A 32f source may be `srcDst` itself, with the same step.
 *
 * Statuses: qorStatusNullPtr (src, mask, srcDst); qorStatusBadSize; qorStatusBadStep (srcStep); for 16u
 * qorStatusBadStepAlign (srcStep); qorStatusBadStep (maskStep, srcDstStep); qorStatusBadStepAlign (srcDstStep, and a
 * 32f srcStep).
 */
/**@{*/
QORAPI(QorStatus, qoriAdd_8u32f_C1IR,
       (const uint8_t* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAdd_8s32f_C1IR,
       (const int8_t* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAdd_16u32f_C1IR,
       (const uint16_t* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAdd_8u32f_C1IMR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAdd_8s32f_C1IMR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAdd_16u32f_C1IMR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAdd_32f_C1IMR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
/**@}*/

/**
 * Adds the square of an image to a 32f accumulator: srcDst += src * src, in all pixels or under a mask.
 *
 * The square is rounded to float before it is added. The 32f form under a mask adds src * src * 1.0 or src * src * 0.0,
 * so a finite source whose square overflows gives NaN where it is not selected. Masks, overlap and statuses are those
 * of qoriAdd_*.
 */
/**@{*/
QORAPI(QorStatus, qoriAddSquare_8u32f_C1IR,
       (const uint8_t* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAddSquare_8s32f_C1IR,
       (const int8_t* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAddSquare_16u32f_C1IR,
       (const uint16_t* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAddSquare_32f_C1IR,
       (const float* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAddSquare_8u32f_C1IMR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAddSquare_8s32f_C1IMR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAddSquare_16u32f_C1IMR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAddSquare_32f_C1IMR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
/**@}*/

/**
 * Adds the product of two images to a 32f accumulator: srcDst += src1 * src2, in all pixels or under a mask.
 *
 * The product is rounded to float before it is added. Under a mask a product of integers that is 0 is +0.0; without
 * one, a negative value times 0 is -0.0. The 32f form under a mask adds src1 * src2 * 1.0 or src1 * src2 * 0.0. Masks
 * and overlap are those of qoriAdd_*.
 *
 * Statuses: qorStatusNullPtr (src1, src2, mask, srcDst); qorStatusBadSize; qorStatusBadStep (src1Step, src2Step); for
 * 16u qorStatusBadStepAlign (src1Step, src2Step); qorStatusBadStep (maskStep, srcDstStep); qorStatusBadStepAlign
 * (srcDstStep, and 32f source steps).
 */
/**@{*/
QORAPI(QorStatus, qoriAddProduct_8u32f_C1IR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAddProduct_8s32f_C1IR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAddProduct_16u32f_C1IR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, float* srcDst,
        int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAddProduct_32f_C1IR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize));
QORAPI(QorStatus, qoriAddProduct_8u32f_C1IMR,
       (const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAddProduct_8s32f_C1IMR,
       (const int8_t* src1, int32_t src1Step, const int8_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAddProduct_16u32f_C1IMR,
       (const uint16_t* src1, int32_t src1Step, const uint16_t* src2, int32_t src2Step, const uint8_t* mask,
        int32_t maskStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize));
QORAPI(QorStatus, qoriAddProduct_32f_C1IMR,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, const uint8_t* mask, int32_t maskStep,
        float* srcDst, int32_t srcDstStep, QoriSize roiSize));
/**@}*/

/**
 * Moves a 32f accumulator towards an image: srcDst += (src - srcDst) * alpha, in all pixels or under a mask.
 *
 * Under a mask, pixels that are not selected get a weight of 0.0 in place of `alpha`; an infinite or NaN source or
 * accumulator becomes NaN there. `alpha` may be any number: values outside 0 to 1 extrapolate. Overlap and statuses are
 * those of qoriAdd_*.
 */
/**@{*/
QORAPI(QorStatus, qoriAddWeighted_8u32f_C1IR,
       (const uint8_t* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize, float alpha));
QORAPI(QorStatus, qoriAddWeighted_8s32f_C1IR,
       (const int8_t* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize, float alpha));
QORAPI(QorStatus, qoriAddWeighted_16u32f_C1IR,
       (const uint16_t* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize, float alpha));
QORAPI(QorStatus, qoriAddWeighted_32f_C1IR,
       (const float* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize, float alpha));
QORAPI(QorStatus, qoriAddWeighted_8u32f_C1IMR,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize, float alpha));
QORAPI(QorStatus, qoriAddWeighted_8s32f_C1IMR,
       (const int8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize, float alpha));
QORAPI(QorStatus, qoriAddWeighted_16u32f_C1IMR,
       (const uint16_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize, float alpha));
QORAPI(QorStatus, qoriAddWeighted_32f_C1IMR,
       (const float* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst, int32_t srcDstStep,
        QoriSize roiSize, float alpha));
/**@}*/

/**
 * The blend of two images into a third: dst = src2 + (src1 - src2) * alpha.
 *
 * Always works in the calling thread. `dst` may be one of the sources, with the same step.
 *
 * Statuses: qorStatusNullPtr (src1, src2, dst); qorStatusBadSize; qorStatusBadStep (src1Step, src2Step, dstStep);
 * qorStatusBadStepAlign.
 */
QORAPI(QorStatus, qoriAddWeighted_32f_C1R,
       (const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, float* dst, int32_t dstStep,
        QoriSize roiSize, float alpha));
