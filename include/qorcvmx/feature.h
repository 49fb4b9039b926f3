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
