/* Linear filters. Included by qorcvmx.h. */

/**
 * Row stage of a separable filter: a horizontal kernel of any length over an image, row by row.
 *
 * Row r of the result goes to dstRows[r], a row of width * channels elements (16s, or 32f in the 32f forms) that may
 * lie anywhere; `dstRows` holds roiSize.height pointers. Tap i of `kernel` multiplies the pixel i - xAnchor places to
 * the right (the kernel is not reversed). Pixels beyond the left and right edges follow `borderType`, a pure mode from
 * qorBorderConst to qorBorderMirrorEdge; rows shorter than the kernel continue periodically. C3 forms treat each
 * channel alone.
 *
 * How a sum is formed and ends; the reciprocal is 1.0f / (float)divisor, clamps are to -32768 .. 32767, and conversions
 * truncate toward zero:
 *
 * - 32f: float sum in tap order, stored. These forms have no divisor.
 * - 16s C1, and 16s C3 with 3 or 5 taps: float sum in tap order, times the reciprocal, clamped, truncated.
 * - 8u16s, and 16s C3 of other lengths: 32-bit integer sum (wraps), converted to float, then as above.
 * - Low_16s C1 with 5 taps: integer sum, converted to float, times the reciprocal, truncated, low 16 bits.
 * - Low_16s otherwise: integer sum times (int)(16384.0f / (float)divisor), wrapping, shifted right by 14, low 16 bits.
 *
 * `borderValue` is one element in C1 forms; in C3 forms it points to three, and may be null unless the mode is
 * qorBorderConst. `buffer` has the size that the form's GetBufferSize function reports.
 *
 * Statuses, in this order: qorStatusNullPtr (src, dstRows, kernel, buffer); qorStatusBadSize (height, width, kernelSize
 * below 1); qorStatusBadAnchor (xAnchor outside 0 .. kernelSize - 1); qorStatusBadStep; qorStatusBadStepAlign (16s,
 * 32f); qorStatusBadArg (borderType); qorStatusNullPtr (borderValue of a C3 form, where needed); qorStatusBadArg
 * (divisor of 0). A null dstRows[r] gives qorStatusNullPtr when the stage reaches it: rows before it stay written.
 */
/**@{*/
QORAPI(QorStatus, qoriFilterRowBorderPipeline_32f_C1R,
       (const float* src, int32_t srcStep, float* const* dstRows, QoriSize roiSize, const float* kernel,
        int32_t kernelSize, int32_t xAnchor, QoriBorderType borderType, float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterRowBorderPipeline_32f_C3R,
       (const float* src, int32_t srcStep, float* const* dstRows, QoriSize roiSize, const float* kernel,
        int32_t kernelSize, int32_t xAnchor, QoriBorderType borderType, const float* borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterRowBorderPipeline_16s_C1R,
       (const int16_t* src, int32_t srcStep, int16_t* const* dstRows, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t xAnchor, QoriBorderType borderType, int16_t borderValue, int32_t divisor,
        uint8_t* buffer));
QORAPI(QorStatus, qoriFilterRowBorderPipeline_16s_C3R,
       (const int16_t* src, int32_t srcStep, int16_t* const* dstRows, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t xAnchor, QoriBorderType borderType, const int16_t* borderValue, int32_t divisor,
        uint8_t* buffer));
QORAPI(QorStatus, qoriFilterRowBorderPipeline_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* const* dstRows, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t xAnchor, QoriBorderType borderType, uint8_t borderValue, int32_t divisor,
        uint8_t* buffer));
QORAPI(QorStatus, qoriFilterRowBorderPipeline_8u16s_C3R,
       (const uint8_t* src, int32_t srcStep, int16_t* const* dstRows, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t xAnchor, QoriBorderType borderType, const uint8_t* borderValue, int32_t divisor,
        uint8_t* buffer));
QORAPI(QorStatus, qoriFilterRowBorderPipeline_Low_16s_C1R,
       (const int16_t* src, int32_t srcStep, int16_t* const* dstRows, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t xAnchor, QoriBorderType borderType, int16_t borderValue, int32_t divisor,
        uint8_t* buffer));
QORAPI(QorStatus, qoriFilterRowBorderPipeline_Low_16s_C3R,
       (const int16_t* src, int32_t srcStep, int16_t* const* dstRows, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t xAnchor, QoriBorderType borderType, const int16_t* borderValue, int32_t divisor,
        uint8_t* buffer));
/**@}*/

/**
 * Scratch size in bytes of a row stage for a region of up to `roiSize` pixels and `kernelSize` taps, stored in
 * `bufferSize`. It depends on the greatest number of threads at the time of the query and not on the width.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize (width, height, kernelSize below 1).
 */
/**@{*/
QORAPI(QorStatus, qoriFilterRowBorderPipelineGetBufferSize_32f_C1R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterRowBorderPipelineGetBufferSize_32f_C3R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterRowBorderPipelineGetBufferSize_16s_C1R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterRowBorderPipelineGetBufferSize_16s_C3R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterRowBorderPipelineGetBufferSize_8u16s_C1R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterRowBorderPipelineGetBufferSize_8u16s_C3R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterRowBorderPipelineGetBufferSize_Low_16s_C1R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterRowBorderPipelineGetBufferSize_Low_16s_C3R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
/**@}*/

/**
 * Column stage of a separable filter: a vertical kernel of any length over rows that lie anywhere.
 *
 * `srcRows` holds roiSize.height + kernelSize - 1 pointers; row r of the result is the sum of kernel[i] *
 * srcRows[r + i]. The caller has put the rows above and below the image into the array; a pointer may appear many
 * times. C3 forms work on 3 * width elements a row.
 *
 * 32f: float sum in tap order, stored; no divisor. 16s, 16s8s, 16s8u: float sum in tap order, times 1.0f /
 * (float)divisor, clamped to the range of the result, truncated toward zero. Low_16s: 32-bit integer sum (wraps),
 * converted to float, times the reciprocal, truncated, low 16 bits.
 *
 * `buffer` has the size that the form's GetBufferSize function reports.
 *
 * Statuses, in this order: qorStatusNullPtr (srcRows, dst, kernel); qorStatusBadSize (height, width, kernelSize below
 * 1); qorStatusBadStep; qorStatusBadStepAlign (16s, 32f results); qorStatusNullPtr (buffer); qorStatusBadArg (divisor
 * of 0); qorStatusNullPtr (any of the pointers in srcRows; nothing has been written then).
 */
/**@{*/
QORAPI(QorStatus, qoriFilterColumnPipeline_32f_C1R,
       (const float* const* srcRows, float* dst, int32_t dstStep, QoriSize roiSize, const float* kernel,
        int32_t kernelSize, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterColumnPipeline_32f_C3R,
       (const float* const* srcRows, float* dst, int32_t dstStep, QoriSize roiSize, const float* kernel,
        int32_t kernelSize, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterColumnPipeline_16s_C1R,
       (const int16_t* const* srcRows, int16_t* dst, int32_t dstStep, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterColumnPipeline_16s_C3R,
       (const int16_t* const* srcRows, int16_t* dst, int32_t dstStep, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterColumnPipeline_16s8s_C1R,
       (const int16_t* const* srcRows, int8_t* dst, int32_t dstStep, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterColumnPipeline_16s8s_C3R,
       (const int16_t* const* srcRows, int8_t* dst, int32_t dstStep, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterColumnPipeline_16s8u_C1R,
       (const int16_t* const* srcRows, uint8_t* dst, int32_t dstStep, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterColumnPipeline_16s8u_C3R,
       (const int16_t* const* srcRows, uint8_t* dst, int32_t dstStep, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterColumnPipeline_Low_16s_C1R,
       (const int16_t* const* srcRows, int16_t* dst, int32_t dstStep, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterColumnPipeline_Low_16s_C3R,
       (const int16_t* const* srcRows, int16_t* dst, int32_t dstStep, QoriSize roiSize, const int16_t* kernel,
        int32_t kernelSize, int32_t divisor, uint8_t* buffer));
/**@}*/

/**
 * Scratch size in bytes of a column stage for a region of up to `roiSize` pixels and `kernelSize` taps, stored in
 * `bufferSize`. It depends on the greatest number of threads at the time of the query; the 32f forms, which are never
 * threaded, always report 32.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize (width, height, kernelSize below 1).
 */
/**@{*/
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_32f_C1R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_32f_C3R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_16s_C1R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_16s_C3R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_16s8s_C1R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_16s8s_C3R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_16s8u_C1R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_16s8u_C3R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_Low_16s_C1R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterColumnPipelineGetBufferSize_Low_16s_C3R,
       (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));
/**@}*/

/**
 * Derivative and smoothing filters with fixed 3x3 and 5x5 kernels.
 *
 * Each kernel is a correlation (not reversed), anchored at its centre: a row kernel times a column kernel.
 *
 * - SobelHoriz: smooth rows, bottom minus top. SobelVert: left minus right, smooth columns. SobelNegVert: its negative.
 *   SobelHorizSecond, SobelVertSecond: second derivative down the columns, along the rows. SobelCross: the mixed one.
 *   Taps are 1 2 1 and -1 0 1, or 1 4 6 4 1 and -1 -2 0 2 1; second derivatives 1 -2 1, or 1 0 -2 0 1.
 * - ScharrHoriz: 3 10 3 along the rows, bottom minus top. ScharrVert: right minus left, 3 10 3 down the columns. Always
 *   3x3: these take no `maskSize`.
 * - Laplacian: 3x3 has 2 in the corners and -8 in the centre; 5x5 is the sum of both second Sobel derivatives.
 * - Lowpass: the mean of the 9 or 25 pixels.
 *
 * `maskSize` is qorMaskSize3x3 or qorMaskSize5x5. `borderType` is a mode from qorBorderConst to qorBorderMirrorEdge,
 * plus qorBorderRowsAbove or qorBorderRowsBelow where the region is a part of a larger image: the filter then reads up
 * to half a kernel of rows above or below the region from memory. Left and right edges always follow the mode.
 * `borderValue` is the constant of qorBorderConst.
 *
 * 8u16s forms store the low 16 bits of the sum (it always fits). 8u8s forms multiply it by 1.0f / (float)divisor, clamp
 * to -128 .. 127 and truncate toward zero. The mean of the 8u Lowpass is (S * 7280 + 36400) >> 16 for 3x3, which keeps
 * a flat 255, and (S * 2621) >> 16 for 5x5, which makes it 254. 32f forms multiply the sum by 0.11111111f or 0.04f.
 *
 * Large images are worked on by several threads with the same result. The one exception: if the system gives a single
 * thread where several were asked for, the filter reads the rows above and below the region from memory, as if both
 * flags were set.
 *
 * `buffer` has the size that the form's GetBufferSize function reports. `dst` may not overlap `src`.
 *
 * Statuses, in this order: qorStatusNullPtr (src, dst, buffer); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep);
 * qorStatusBadStepAlign (32f: both steps, 8u16s: dstStep); qorStatusBadArg (the low four bits of borderType above 4,
 * bits 4 to 15 set without one of the two flags; then a divisor of 0); qorStatusBadMask (maskSize).
 */
/**@{*/
QORAPI(QorStatus, qoriFilterSobelHorizBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelHorizBorder_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelHorizBorder_8u8s_C1R,
       (const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelVertBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelVertBorder_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelVertBorder_8u8s_C1R,
       (const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelNegVertBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelNegVertBorder_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelNegVertBorder_8u8s_C1R,
       (const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelHorizSecondBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelHorizSecondBorder_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelHorizSecondBorder_8u8s_C1R,
       (const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelVertSecondBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelVertSecondBorder_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelVertSecondBorder_8u8s_C1R,
       (const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelCrossBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelCrossBorder_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterSobelCrossBorder_8u8s_C1R,
       (const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterScharrHorizBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterScharrHorizBorder_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        uint8_t borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterScharrHorizBorder_8u8s_C1R,
       (const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        uint8_t borderValue, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterScharrVertBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterScharrVertBorder_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        uint8_t borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterScharrVertBorder_8u8s_C1R,
       (const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        uint8_t borderValue, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterLaplacianBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterLaplacianBorder_8u16s_C1R,
       (const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterLaplacianBorder_8u8s_C1R,
       (const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, int32_t divisor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterLowpassBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, float borderValue, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterLowpassBorder_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriMaskSelector maskSize,
        QoriBorderType borderType, uint8_t borderValue, uint8_t* buffer));
/**@}*/

/**
 * Scratch size in bytes of a fixed-kernel filter for an image of `roiSize` pixels, stored in `bufferSize`. It depends
 * on the greatest number of threads at the time of the query, and wraps without a status beyond 2147483647.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize; qorStatusBadMask (maskSize).
 */
/**@{*/
QORAPI(QorStatus, qoriFilterSobelHorizGetBufferSize_32f_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelHorizGetBufferSize_8u16s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelHorizGetBufferSize_8u8s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelVertGetBufferSize_32f_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelVertGetBufferSize_8u16s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelVertGetBufferSize_8u8s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelNegVertGetBufferSize_32f_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelNegVertGetBufferSize_8u16s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelNegVertGetBufferSize_8u8s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelHorizSecondGetBufferSize_32f_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelHorizSecondGetBufferSize_8u16s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelHorizSecondGetBufferSize_8u8s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelVertSecondGetBufferSize_32f_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelVertSecondGetBufferSize_8u16s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelVertSecondGetBufferSize_8u8s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelCrossGetBufferSize_32f_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelCrossGetBufferSize_8u16s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterSobelCrossGetBufferSize_8u8s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterScharrHorizGetBufferSize_32f_C1R, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterScharrHorizGetBufferSize_8u16s_C1R, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterScharrHorizGetBufferSize_8u8s_C1R, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterScharrVertGetBufferSize_32f_C1R, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterScharrVertGetBufferSize_8u16s_C1R, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterScharrVertGetBufferSize_8u8s_C1R, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterLaplacianGetBufferSize_32f_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterLaplacianGetBufferSize_8u16s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterLaplacianGetBufferSize_8u8s_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterLowpassGetBufferSize_32f_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterLowpassGetBufferSize_8u_C1R,
       (QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize));
/**@}*/

/**
 * Sobel kernel of any odd size for the separable pipelines: tap j is the coefficient of x^j in
 * (x + 1)^(kernelSize - 1 - order) * (x - 1)^order, negated if `sign` is negative. `kernel` gets `kernelSize` taps. The
 * 16s form wraps on overflow; the 32f form is exact as long as the values fit in 24 bits.
 *
 * Statuses: qorStatusNullPtr (kernel); qorStatusBadSize (kernelSize below 1 or even, order negative or not below
 * kernelSize).
 */
/**@{*/
QORAPI(QorStatus, qoriGenSobelKernel_16s, (int16_t * kernel, int32_t kernelSize, int32_t order, int32_t sign));
QORAPI(QorStatus, qoriGenSobelKernel_32f, (float* kernel, int32_t kernelSize, int32_t order, int32_t sign));
/**@}*/

/**
 * Gaussian blur of a float image with a kernel of `kernelSize` x `kernelSize` taps (odd, at least 3) and the standard
 * deviation `sigma` in pixels. The taps are exp(-d^2 / (2 sigma^2)) over their sum; `sigma` is not checked, so 0 makes
 * them NaN.
 *
 * `borderType` is one of the modes 0 to 4, to which the flags qorBorderRowsAbove and qorBorderRowsBelow may be added
 * where real rows (kernelSize / 2 of them) lie above or below the region. `borderValue` counts in qorBorderConst only.
 * Along the columns, qorBorderMirrorEdge below the image repeats row 0 but not the last row when it bounces off them a
 * second time, which only kernels taller than the image reach. `dst` may not overlap `src`.
 *
 * `buffer` has the size that qoriFilterGaussGetBufferSize_32f_C1R() reports for this region and kernel; it holds a
 * whole intermediate image and need not be aligned. Large images are filtered along the rows by several threads.
 *
 * Statuses: qorStatusNullPtr (src, dst, buffer); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep below `width`);
 * qorStatusBadArg (kernelSize, borderType). A step that is at least `width` but too short for the row in bytes, or not
 * a multiple of 4, leaves `dst` unwritten and still gives qorStatusOk.
 */
QORAPI(QorStatus, qoriFilterGaussBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, int32_t kernelSize,
        float sigma, QoriBorderType borderType, float borderValue, uint8_t* buffer));

/**
 * Scratch size in bytes of the Gaussian blur, stored in `bufferSize`. It depends on the number of threads that the core
 * services report.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize; qorStatusBadArg (kernelSize below 3 or even). A size
 * beyond 2147483647 wraps without a status.
 */
QORAPI(QorStatus, qoriFilterGaussGetBufferSize_32f_C1R, (QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize));

/**
 * Minimum and maximum filters: each pixel becomes the smallest or largest value under a rectangle of `maskSize` pixels
 * whose pixel `anchor` (from its top left corner) lies on it.
 *
 * The rectangle is cut off at the edges of the region, which for an extreme is the same as repeating the edge pixels.
 * Nothing outside the region is read. The mask may be larger than the region. C3 and C4 forms treat each channel alone,
 * the fourth too. Extremes are those of the plain comparison: where a float image holds NaN, what comes out nearby is
 * not defined. These functions use the calling thread only.
 *
 * `buffer` has the size that the form's GetBufferSize function reports for this mask and at least this width. `dst` may
 * not overlap `src`.
 *
 * Statuses, in this order: qorStatusNullPtr (src, dst, buffer); qorStatusBadSize (roiSize); qorStatusBadMask (maskSize
 * below 1); qorStatusBadAnchor (anchor outside the mask); qorStatusBadStep (srcStep), qorStatusBadStepAlign (srcStep,
 * 32f), then the same for dstStep.
 */
/**@{*/
QORAPI(QorStatus, qoriFilterMaxBorderReplicate_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMaxBorderReplicate_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMaxBorderReplicate_8u_C4R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMaxBorderReplicate_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMaxBorderReplicate_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMaxBorderReplicate_32f_C4R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMinBorderReplicate_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMinBorderReplicate_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMinBorderReplicate_8u_C4R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMinBorderReplicate_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMinBorderReplicate_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
QORAPI(QorStatus, qoriFilterMinBorderReplicate_32f_C4R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize,
        QoriPoint anchor, uint8_t* buffer));
/**@}*/

/**
 * Scratch size in bytes of a minimum or maximum filter for a region of up to `width` pixels a row and a mask of
 * `maskSize`, stored in `bufferSize`: 2 * h * (width * bytes of a pixel + 32) + 4 * h * 8 + 32, with h as the mask's
 * height. It is taken in 32 bits and wraps without a status.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize (width below 1); qorStatusBadMask (maskSize below 1).
 */
/**@{*/
QORAPI(QorStatus, qoriFilterMaxGetBufferSize_8u_C1R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMaxGetBufferSize_8u_C3R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMaxGetBufferSize_8u_C4R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMaxGetBufferSize_32f_C1R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMaxGetBufferSize_32f_C3R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMaxGetBufferSize_32f_C4R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMinGetBufferSize_8u_C1R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMinGetBufferSize_8u_C3R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMinGetBufferSize_8u_C4R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMinGetBufferSize_32f_C1R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMinGetBufferSize_32f_C3R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFilterMinGetBufferSize_32f_C4R, (int32_t width, QoriSize maskSize, int32_t* bufferSize));
/**@}*/
