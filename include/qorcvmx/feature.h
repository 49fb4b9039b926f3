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

/**
 * Scratch size in bytes of the line searches, stored in `bufferSize`.
 *
 * `delta` is the step between the distances and between the angles that are told apart, in pixels and radians.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize; qorStatusBadArg (delta.rho or delta.theta not above 0);
 * the warning qorStatusWarnSizeOverflow: the size is above 2147483647, and its low 32 bits were stored.
 */
QORAPI(QorStatus, qoriHoughLineGetSize_8u_C1R,
       (QoriSize roiSize, QoriPointPolar delta, int32_t maxLineCount, int32_t* bufferSize));

/**
 * Straight lines in an image of edges: every non-zero pixel votes for the lines through it, one for each angle of 0,
 * delta.theta, 2 * delta.theta, ... up to 3.14159. A line x * cos(theta) + y * sin(theta) = rho is found where more
 * than `threshold` votes meet and no line beside it, one step of angle or distance away, has more; of neighbours with
 * equally many the one of the least angle and distance is found. Angles do not wrap around.
 *
 * `lines` has room for `maxLineCount` lines and gets the `lineCount` strongest, strongest first; of equally strong ones
 * the least angle comes first, then the least distance. Distances are multiples of delta.rho, negative ones too.
 * `buffer` has the size that qoriHoughLineGetSize_8u_C1R() reports. Never threaded.
 *
 * The second form counts votes only for distances from region[0] to region[2] and angles from region[1] to region[3].
 * Both angles are held to 0 .. 3.14159 in the caller's array. A distance that lies more than 2147483647 steps away lets
 * no line be found, even as the upper end.
 *
 * A line at a distance for which there is no step (where delta.rho is coarse) is not found.
 *
 * Statuses: qorStatusNullPtr (src, lines, region, lineCount, buffer); qorStatusBadStep (srcStep below 1; it is not
 * compared with the width); qorStatusBadSize (roiSize, maxLineCount below 1); qorStatusBadArg (delta.rho not above 0 or
 * above width + height, delta.theta not above 0 or above 3.14159, threshold below 1); qorStatusBadRange (region[3] not
 * at least region[1], region[2] not at least region[0]; `lineCount` then gets 0); the warning
 * qorStatusWarnLinesTruncated (reserved: a full list is no reason for it).
 */
/**@{*/
QORAPI(QorStatus, qoriHoughLine_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, QoriPointPolar delta, int32_t threshold,
        QoriPointPolar* lines, int32_t maxLineCount, int32_t* lineCount, uint8_t* buffer));
QORAPI(QorStatus, qoriHoughLine_Region_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, QoriPointPolar* lines, float* region,
        int32_t maxLineCount, int32_t* lineCount, QoriPointPolar delta, int32_t threshold, uint8_t* buffer));
/**@}*/

/**
 * Gradients of three channels to gray: `dst` gets one value for the three of each pixel of `src`. `normType` tells how:
 *
 *   0  the largest channel; of floats the largest magnitude (NaN counts in an unspecified way, without harm);
 *   1  the mean of the channels, rounded, by thirds in fixed point; of floats the sum of the magnitudes, no mean;
 *   2  the root of the mean of the squares, rounded; of floats the root of the sum of the squares.
 *
 * Threads are used only where the call comes from inside an OpenMP region of the caller's. Then only the rows of the
 * longest of the threads' stripes are written, from the first row on: for the whole picture call from serial code.
 *
 * Statuses: qorStatusNullPtr (src, dst); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep); qorStatusBadStepAlign
 * (not 8u); qorStatusBadArg (normType).
 */
/**@{*/
QORAPI(QorStatus, qoriGradientColorToGray_8u_C3C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, int32_t normType));
QORAPI(QorStatus, qoriGradientColorToGray_16u_C3C1R,
       (const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, int32_t normType));
QORAPI(QorStatus, qoriGradientColorToGray_32f_C3C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, int32_t normType));
/**@}*/

/**
 * Directions of the vectors (srcX[i], srcY[i]) in degrees, from the positive x axis towards the positive y axis, by a
 * polynomial of two terms: off by up to about 0.14 degrees. Results reach a little below 0 and above 360; the vector
 * (0, 0) gives -0.1405.
 *
 * Elements are computed in fours with one division; coordinates so large or small that the product of four leaves the
 * range of float products give NaN or are off, and take their three neighbours with them. Never threaded.
 *
 * Statuses: qorStatusNullPtr (srcY, srcX, dst); qorStatusBadSize (length below 1).
 */
QORAPI(QorStatus, qoribFastArctan_32f, (const float* srcY, const float* srcX, float* dst, int32_t length));

/**
 * The pixels on the line from `pt1` to `pt2`, both included, after Bresenham: `dst` gets them one after the other,
 * max(|dx|, |dy|) + 1 in number. Never threaded.
 *
 * Statuses: qorStatusNullPtr (src, dst); qorStatusBadSize; qorStatusBadStep; qorStatusBadStepAlign (not 8u);
 * qorStatusOutOfRange (a point outside the image); qorStatusOverflow (more pixels than an int32_t can count).
 */
/**@{*/
QORAPI(QorStatus, qoriSampleLine_8u_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, uint8_t* dst, QoriPoint pt1, QoriPoint pt2));
QORAPI(QorStatus, qoriSampleLine_8u_C3R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, uint8_t* dst, QoriPoint pt1, QoriPoint pt2));
QORAPI(QorStatus, qoriSampleLine_16u_C1R,
       (const uint16_t* src, int32_t srcStep, QoriSize roiSize, uint16_t* dst, QoriPoint pt1, QoriPoint pt2));
QORAPI(QorStatus, qoriSampleLine_16u_C3R,
       (const uint16_t* src, int32_t srcStep, QoriSize roiSize, uint16_t* dst, QoriPoint pt1, QoriPoint pt2));
QORAPI(QorStatus, qoriSampleLine_32f_C1R,
       (const float* src, int32_t srcStep, QoriSize roiSize, float* dst, QoriPoint pt1, QoriPoint pt2));
QORAPI(QorStatus, qoriSampleLine_32f_C3R,
       (const float* src, int32_t srcStep, QoriSize roiSize, float* dst, QoriPoint pt1, QoriPoint pt2));
/**@}*/

/**
 * Local extrema: the positions of all pixels of a magnitude above `threshold` that are greatest among their neighbours
 * if positive, and least otherwise, row by row. Every pixel of a plateau counts. `normType` 0 looks at all eight
 * neighbours, 1 at the four direct ones. Floats count as equal within the smallest normal one; a NaN is no peak and
 * keeps no other pixel from being one, and no infinite pixel is a peak.
 *
 * Pixels nearer than `border` to the edge are left out; `border` is at least 1 and at most half of the width and of the
 * height. `peak` has room for `maxPeakCount` positions; the search ends when it is full. `peakCount` gets their number.
 * `buffer` has the size that the GetBufferSize function reports for the width. Never threaded.
 *
 * Statuses: qorStatusNullPtr (src, peak, peakCount, buffer); qorStatusBadSize (also maxPeakCount below 1 and border);
 * qorStatusBadStep; qorStatusBadStepAlign; qorStatusBadArg (normType).
 */
/**@{*/
QORAPI(QorStatus, qoriFindPeaks3x3_32f_C1R,
       (const float* src, int32_t srcStep, QoriSize roiSize, float threshold, QoriPoint* peak, int32_t maxPeakCount,
        int32_t* peakCount, int32_t normType, int32_t border, uint8_t* buffer));
QORAPI(QorStatus, qoriFindPeaks3x3_32s_C1R,
       (const int32_t* src, int32_t srcStep, QoriSize roiSize, int32_t threshold, QoriPoint* peak, int32_t maxPeakCount,
        int32_t* peakCount, int32_t normType, int32_t border, uint8_t* buffer));
/**@}*/

/**
 * Scratch size in bytes of the peak search in images of `width` columns, stored in `bufferSize`.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize (width below 1). A size beyond 2147483647 wraps without a
 * status.
 */
/**@{*/
QORAPI(QorStatus, qoriFindPeaks3x3GetBufferSize_32f_C1R, (int32_t width, int32_t* bufferSize));
QORAPI(QorStatus, qoriFindPeaks3x3GetBufferSize_32s_C1R, (int32_t width, int32_t* bufferSize));
/**@}*/
