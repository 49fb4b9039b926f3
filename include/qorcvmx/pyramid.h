/* Image pyramids. Included by qorcvmx.h. */

/* --- 5x5 Gaussian levels --- */

/**
 * Scratch size in bytes of the 5x5 Gaussian levels for a source of `roiWidth` pixels a row, stored in `bufferSize`. It
 * does not depend on the data type (qor8u, qor8s or qor32f). `channels` is 1 or 3.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize (roiWidth below 1); qorStatusBadChannels;
 * qorStatusBadDataType. A size beyond 2147483647 wraps without a status.
 */
/**@{*/
QORAPI(QorStatus, qoriPyrDownGetBufSize_Gauss5x5,
       (int32_t roiWidth, QorDataType dataType, int32_t channels, int32_t* bufferSize));
QORAPI(QorStatus, qoriPyrUpGetBufSize_Gauss5x5,
       (int32_t roiWidth, QorDataType dataType, int32_t channels, int32_t* bufferSize));
/**@}*/

/**
 * Half-size image: each channel is filtered with the weights 1 4 6 4 1 (of 16) along rows and columns, and every other
 * column and row is kept. `roiSize` is the size of the source; `dst` has (width + 1) / 2 by (height + 1) / 2 pixels.
 *
 * Beyond its edges the image continues mirrored about the edge pixels, which are not repeated. Integer results are
 * rounded to nearest, halves upward. `buffer` has the size that qoriPyrDownGetBufSize_Gauss5x5() reports and need not
 * be aligned. `dst` may not overlap `src`. These functions use the calling thread only.
 *
 * Statuses: qorStatusNullPtr (src, dst, buffer); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep);
 * qorStatusBadStepAlign (both steps, 32f).
 */
/**@{*/
QORAPI(QorStatus, qoriPyrDown_Gauss5x5_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrDown_Gauss5x5_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrDown_Gauss5x5_8s_C1R,
       (const int8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrDown_Gauss5x5_8s_C3R,
       (const int8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrDown_Gauss5x5_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrDown_Gauss5x5_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
/**@}*/

/**
 * Double-size image: zeros are put between the pixels and rows of the source, and each channel is filtered with the
 * weights 1 4 6 4 1 (of 8) along rows and columns. `roiSize` is the size of the source; `dst` has 2 * width by
 * 2 * height pixels.
 *
 * Before its first row and column the source continues mirrored about the edge pixels, which are not repeated; behind
 * its last row and column the edge pixels are repeated. Integer results are rounded to nearest, halves upward. `buffer`
 * has the size that qoriPyrUpGetBufSize_Gauss5x5() reports and need not be aligned. `dst` may not overlap `src`. These
 * functions use the calling thread only.
 *
 * Statuses: qorStatusNullPtr (src, dst, buffer); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep);
 * qorStatusBadStepAlign (both steps, 32f).
 */
/**@{*/
QORAPI(QorStatus, qoriPyrUp_Gauss5x5_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrUp_Gauss5x5_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrUp_Gauss5x5_8s_C1R,
       (const int8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrUp_Gauss5x5_8s_C3R,
       (const int8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrUp_Gauss5x5_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
QORAPI(QorStatus, qoriPyrUp_Gauss5x5_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
/**@}*/

/* --- pyramid record and general layers --- */

/**
 * State of the pyramid layers: opaque, made by InitAlloc for one kernel and rate, with scratch memory. It is changed by
 * every call that uses it, so no two calls may use it at the same time.
 */
typedef struct QoriPyramidLayerState QoriPyramidLayerState;

/**
 * The smallest and the largest size that the layer above a layer of `srcRoi` pixels may have. For a dimension n the
 * smallest is 1 if n is 1, else the larger of n + 1 and trunc((n - 1) * rate) + 1; the largest is the larger of n + 1
 * and trunc(n * rate). Products are taken in float; a size beyond 2147483647 is held to it.
 *
 * Statuses: qorStatusNullPtr (dstRoiMin, dstRoiMax); qorStatusBadSize; qorStatusBadArg if `rate` is not over 1 and at
 * most 10.
 */
QORAPI(QorStatus, qoriGetPyramidUpROI, (QoriSize srcRoi, QoriSize* dstRoiMin, QoriSize* dstRoiMax, float rate));

/**
 * The size of the layer below a layer of `srcRoi` pixels: about srcRoi / rate, at least 1, such that `srcRoi` lies in
 * the range that qoriGetPyramidUpROI() gives for it.
 *
 * Statuses: qorStatusNullPtr (dstRoi); qorStatusBadSize; qorStatusBadArg if `rate` is not over 1 and at most 10.
 */
QORAPI(QorStatus, qoriGetPyramidDownROI, (QoriSize srcRoi, QoriSize* dstRoi, float rate));

/**
 * Makes a pyramid record with the sizes and scales of the levels 0 (`roiSize` itself) to `level`, or to the level of
 * 1 by 1 pixel if that comes first. The images stay the caller's, who stores their addresses and steps in the record.
 *
 * Statuses: qorStatusNullPtr (pyramid); qorStatusBadSize; qorStatusBadArg if `rate` is not over 1 and at most 10 or
 * `level` is below 1; qorStatusNoMemory. `*pyramid` is written on success only.
 */
QORAPI(QorStatus, qoriPyramidInitAlloc, (QoriPyramid * *pyramid, int32_t level, QoriSize roiSize, float rate));

/**
 * Gives back the record and its arrays, but neither the images nor `layerState`.
 *
 * Statuses: qorStatusNullPtr.
 */
QORAPI(QorStatus, qoriPyramidFree, (QoriPyramid * pyramid));

/**
 * Makes the state of qoriPyramidLayerDown_* for source images of up to `roiSize` pixels.
 *
 * `kernel` has `kernelSize` taps, which serve rows and columns and are scaled to the sum 1. Only the first half and the
 * centre are read as such; the second half mirrors the first. Integer taps are kept in fixed point with 13 fractional
 * bits. A kernel of sum 0 is not scaled: integer taps stand for themselves / 8192, and the centre tap of a float kernel
 * is replaced by the value of the byte at offset kernelSize / 2 of the kernel's memory. `mode` must be 2 (reflection
 * about the edge pixels).
 *
 * Statuses: qorStatusNullPtr (state, kernel); qorStatusBadSize; qorStatusBadArg if `mode` is not 2, `rate` not over 1
 * and at most 10, or `kernelSize` below 3 or even; qorStatusNoMemory; qorStatusKernelNotSymmetric as a warning, with a
 * state that is as usable as any.
 */
/**@{*/
QORAPI(QorStatus, qoriPyramidLayerDownInitAlloc_8u_C1R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const int16_t* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerDownInitAlloc_8u_C3R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const int16_t* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerDownInitAlloc_16u_C1R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const int16_t* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerDownInitAlloc_16u_C3R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const int16_t* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerDownInitAlloc_32f_C1R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const float* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerDownInitAlloc_32f_C3R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const float* kernel, int32_t kernelSize, int32_t mode,
        float rate));
/**@}*/

/**
 * Makes the state of qoriPyramidLayerUp_* for source images of up to `roiSize` pixels.
 *
 * Arguments and statuses are those of qoriPyramidLayerDownInitAlloc_*. The two kinds of state cannot stand in for each
 * other.
 */
/**@{*/
QORAPI(QorStatus, qoriPyramidLayerUpInitAlloc_8u_C1R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const int16_t* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerUpInitAlloc_8u_C3R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const int16_t* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerUpInitAlloc_16u_C1R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const int16_t* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerUpInitAlloc_16u_C3R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const int16_t* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerUpInitAlloc_32f_C1R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const float* kernel, int32_t kernelSize, int32_t mode,
        float rate));
QORAPI(QorStatus, qoriPyramidLayerUpInitAlloc_32f_C3R,
       (QoriPyramidLayerState * *state, QoriSize roiSize, const float* kernel, int32_t kernelSize, int32_t mode,
        float rate));
/**@}*/

/**
 * Gives back a state of InitAlloc.
 *
 * Statuses: qorStatusNullPtr.
 */
/**@{*/
QORAPI(QorStatus, qoriPyramidLayerDownFree_8u_C1R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerDownFree_8u_C3R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerDownFree_16u_C1R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerDownFree_16u_C3R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerDownFree_32f_C1R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerDownFree_32f_C3R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerUpFree_8u_C1R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerUpFree_8u_C3R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerUpFree_16u_C1R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerUpFree_16u_C3R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerUpFree_32f_C1R, (QoriPyramidLayerState * state));
QORAPI(QorStatus, qoriPyramidLayerUpFree_32f_C3R, (QoriPyramidLayerState * state));
/**@}*/

/**
 * The next smaller layer: smooths `src` with the kernel of the state, along rows, then along columns, and takes pixels
 * at multiples of the rate, by linear interpolation, or every second pixel if the rate is 2 (within 0.00002).
 *
 * `dstRoiSize` must be what qoriGetPyramidDownROI() gives for `srcRoiSize`. Beyond the edges the image is reflected
 * about its edge pixels, as often as the kernel needs. Intermediate integers have 3 fractional bits. Where an image is
 * not larger than the kernel in both dimensions, products are cut to those bits one by one, so that the result may
 * differ in the last bits. The functions work in the calling thread; `dst` may not overlap `src`.
 *
 * Statuses: qorStatusNullPtr (src, dst, state); qorStatusBadSize (srcRoiSize); qorStatusBadStep (srcStep, dstStep);
 * qorStatusBadStepAlign (16u, 32f); qorStatusBadArg (dstRoiSize, or a source larger than the state's roiSize).
 */
/**@{*/
QORAPI(QorStatus, qoriPyramidLayerDown_8u_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, uint8_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerDown_8u_C3R,
       (const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, uint8_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerDown_16u_C1R,
       (const uint16_t* src, int32_t srcStep, QoriSize srcRoiSize, uint16_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerDown_16u_C3R,
       (const uint16_t* src, int32_t srcStep, QoriSize srcRoiSize, uint16_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerDown_32f_C1R,
       (const float* src, int32_t srcStep, QoriSize srcRoiSize, float* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerDown_32f_C3R,
       (const float* src, int32_t srcStep, QoriSize srcRoiSize, float* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
/**@}*/

/**
 * The next larger layer: spreads each pixel of `src`, by the kernel of the state, around its place at a multiple of the
 * rate, along rows, then along columns, and divides by the sum of the weights that met in a pixel.
 *
 * `dstRoiSize` must lie in the range that qoriGetPyramidUpROI() gives for `srcRoiSize`. Beyond the edges the image is
 * reflected about its edge pixels. The functions work in the calling thread; `dst` may not overlap `src`.
 *
 * Statuses: qorStatusNullPtr (src, dst, state); qorStatusBadSize (srcRoiSize); qorStatusBadStep (srcStep, dstStep);
 * qorStatusBadStepAlign (16u, 32f); qorStatusBadArg (dstRoiSize, or a source larger than the state's roiSize);
 * qorStatusNoMemory for the copy of the source that a call makes.
 */
/**@{*/
QORAPI(QorStatus, qoriPyramidLayerUp_8u_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, uint8_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerUp_8u_C3R,
       (const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, uint8_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerUp_16u_C1R,
       (const uint16_t* src, int32_t srcStep, QoriSize srcRoiSize, uint16_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerUp_16u_C3R,
       (const uint16_t* src, int32_t srcStep, QoriSize srcRoiSize, uint16_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerUp_32f_C1R,
       (const float* src, int32_t srcStep, QoriSize srcRoiSize, float* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
QORAPI(QorStatus, qoriPyramidLayerUp_32f_C3R,
       (const float* src, int32_t srcStep, QoriSize srcRoiSize, float* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPyramidLayerState* state));
/**@}*/
