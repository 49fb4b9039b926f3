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
