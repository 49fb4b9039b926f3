/* Edges and features. Included by qorcvmx.h. */

/**
 * Scratch size in bytes of the Canny detectors for an image of `roiSize` pixels, stored in `bufferSize`.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize. A size beyond 2147483647 wraps without a status.
 */
QORAPI(QorStatus, qoriCannyGetSize, (QoriSize roiSize, int32_t* bufferSize));

/**
 * Canny edge detector on two derivative images (for instance of qoriFilterSobelNegVertBorder_* and
 * qoriFilterSobelHorizBorder_*): gradient magnitude |dx| + |dy|, non-maximum suppression along four directions,
 * hysteresis with two thresholds. `dst` gets 255 on edge pixels and 0 elsewhere.
 *
 * A pixel is a candidate if its magnitude is above `lowThresh` (truncated to an integer in the 16s form) and a maximum
 * across the edge; an edge is every candidate that an 8-connected path of candidates joins to one with a magnitude
 * above `highThresh`. Pixels outside the image count as magnitude 0.
 *
 * `dst` is first zeroed as one run of height * dstStep bytes, gaps between the rows and behind the last row included,
 * so that many bytes must be the caller's. `buffer` has the size that qoriCannyGetSize() reports. Never threaded.
 *
 * Statuses: qorStatusNullPtr (srcDx, srcDy, dst, buffer); qorStatusBadSize; qorStatusBadStep (srcDxStep, srcDyStep,
 * dstStep); qorStatusBadStepAlign (source steps); qorStatusBadArg (lowThresh below 0 or above highThresh).
 *
 * After J. Canny, "A computational approach to edge detection", IEEE Transactions on Pattern Analysis and Machine
 * Intelligence 8 (1986).
 */
/**@{*/
QORAPI(QorStatus, qoriCanny_16s8u_C1R,
       (const int16_t* srcDx, int32_t srcDxStep, const int16_t* srcDy, int32_t srcDyStep, uint8_t* dst, int32_t dstStep,
        QoriSize roiSize, float lowThresh, float highThresh, uint8_t* buffer));
QORAPI(QorStatus, qoriCanny_32f8u_C1R,
       (const float* srcDx, int32_t srcDxStep, const float* srcDy, int32_t srcDyStep, uint8_t* dst, int32_t dstStep,
        QoriSize roiSize, float lowThresh, float highThresh, uint8_t* buffer));
/**@}*/

/**
 * Both eigenvalues and eigenvectors of the matrix of slopes around each pixel, averaged over a window: what the picture
 * does there, and in which directions. `dst` has six floats a pixel: the larger eigenvalue, the smaller one, x and y of
 * the first eigenvector, x and y of the second.
 *
 * The slopes are those of the vertical and horizontal derivative filters (`kernelType` 0: Sobel of `apertureSize` 3 or
 * 5; 1: Scharr, 3 only), their squares and product are averaged over `avgWindow` x `avgWindow` pixels (3 or 5), all
 * with the edge pixels continued, and scaled so that 8-bit images of either aperture compare. A matrix of which one
 * eigenvalue is tiny against the other (a straight edge) gives six zeros; one that is nearly diagonal gives the axes as
 * eigenvectors; one of a flat region gives zeros.
 *
 * `buffer` has the size that the GetBufferSize function reports. Threads are used where the filters use them.
 *
 * In the 32f form a `dstStep` of 4 * width is taken, although each row writes 24 * width bytes: the caller has to give
 * at least that much, or rows overlap, the later one on top.
 *
 * Statuses: qorStatusNullPtr (src, dst, buffer); qorStatusBadSize; qorStatusBadStep (srcStep; dstStep, below 24 * width
 * in the 8u32f form, below 4 * width in the 32f form); qorStatusBadStepAlign (float steps); qorStatusBadArg
 * (kernelType); qorStatusBadSize (apertureSize, then avgWindow).
 */
/**@{*/
QORAPI(QorStatus, qoriEigenValsVecs_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, int32_t kernelType,
        int32_t apertureSize, int32_t avgWindow, uint8_t* buffer));
QORAPI(QorStatus, qoriEigenValsVecs_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, int32_t kernelType,
        int32_t apertureSize, int32_t avgWindow, uint8_t* buffer));
/**@}*/

/**
 * The smaller eigenvalue of the same matrix, one float a pixel: high at corners, near 0 on edges and in flat regions.
 *
 * Arguments and statuses are those of qoriEigenValsVecs_*; `dstStep` is at least 4 * width in both forms.
 */
/**@{*/
QORAPI(QorStatus, qoriMinEigenVal_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, int32_t kernelType,
        int32_t apertureSize, int32_t avgWindow, uint8_t* buffer));
QORAPI(QorStatus, qoriMinEigenVal_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, int32_t kernelType,
        int32_t apertureSize, int32_t avgWindow, uint8_t* buffer));
/**@}*/

/**
 * Scratch size in bytes of the corner measures, stored in `bufferSize`. It serves both kernel types, and depends on the
 * greatest number of threads at the time of the query.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize (also apertureSize or avgWindow other than 3 or 5). A size
 * beyond 2147483647 wraps without a status.
 */
/**@{*/
QORAPI(QorStatus, qoriEigenValsVecsGetBufferSize_32f_C1R,
       (QoriSize roiSize, int32_t apertureSize, int32_t avgWindow, int32_t* bufferSize));
QORAPI(QorStatus, qoriEigenValsVecsGetBufferSize_8u32f_C1R,
       (QoriSize roiSize, int32_t apertureSize, int32_t avgWindow, int32_t* bufferSize));
QORAPI(QorStatus, qoriMinEigenValGetBufferSize_32f_C1R,
       (QoriSize roiSize, int32_t apertureSize, int32_t avgWindow, int32_t* bufferSize));
QORAPI(QorStatus, qoriMinEigenValGetBufferSize_8u32f_C1R,
       (QoriSize roiSize, int32_t apertureSize, int32_t avgWindow, int32_t* bufferSize));
/**@}*/

/* --- lines --- */

/* --- gradient to gray --- */

/* --- arctangent --- */

/* --- line samples --- */

/* --- peaks --- */
