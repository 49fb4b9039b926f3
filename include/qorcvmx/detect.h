/* Object detection: integral images and what is read from them. Included by qorcvmx.h. */

/**
 * Upright integral image: cell (i, j) of `dst` is `val` plus the sum of the pixels with column below i and row below j.
 *
 * `roiSize` is the size of the source. `dst` has one column and one row more; its row 0 and its column 0 hold `val`.
 * The 32s plane wraps modulo 2^32. In the 32f plane each cell is the exact sum of its source row up to there, converted
 * to float, plus the float cell above. `src` and `dst` may not overlap.
 *
 * Statuses: qorStatusNullPtr (src, dst); qorStatusBadSize; qorStatusBadStep (srcStep below the width, dstStep below
 * 4 * (width + 1)); qorStatusBadStepAlign (dstStep).
 */
/**@{*/
QORAPI(QorStatus, qoriIntegral_8u32s_C1R,
       (const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep, QoriSize roiSize, int32_t val));
QORAPI(QorStatus, qoriIntegral_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float val));
/**@}*/

/**
 * Upright integral image and, in `sqr`, the integral image of the squared pixels, starting at `valSqr`.
 *
 * Both planes have the shape of qoriIntegral_*. The 32s square plane wraps modulo 2^32; in the 64f one each cell is the
 * exact sum of the squares of its source row plus the double above.
 *
 * Statuses: as qoriIntegral_*, with `sqr` and `sqrStep` tested as `dst` and `dstStep` are, the latter for elements of
 * 8 bytes where the square plane is 64f.
 */
/**@{*/
QORAPI(QorStatus, qoriSqrIntegral_8u32s_C1R,
       (const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep, int32_t* sqr, int32_t sqrStep,
        QoriSize roiSize, int32_t val, int32_t valSqr));
QORAPI(QorStatus, qoriSqrIntegral_8u32s64f_C1R,
       (const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep, double* sqr, int32_t sqrStep,
        QoriSize roiSize, int32_t val, double valSqr));
QORAPI(QorStatus, qoriSqrIntegral_8u32f64f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, double* sqr, int32_t sqrStep,
        QoriSize roiSize, float val, double valSqr));
/**@}*/

/**
 * Tilted integral image: each cell sums the pixels of the 45-degree cone above it.
 *
 * `dst` has two columns and two rows more than the source. Its rows 0 and 1 hold `val`. With s the source row y, and
 * prev, cur and next the rows y, y + 1 and y + 2 of the plane:
 *
 *     next[0] = cur[1]
 *     next[i] = s[i-1] + s[i] + cur[i-1] + cur[i+1] - prev[i]        i = 1 .. width - 1
 *     next[width] = s[width-1] + cur[width-1] + cur[width+1] - prev[width]
 *     next[width+1] = cur[width]
 *
 * The 32s plane wraps modulo 2^32. The 32f plane is computed in double, cell by cell, and *adds* the result of column
 * `width` to what that cell held before the call: clear the plane beforehand for the plain recurrence.
 *
 * Statuses: as qoriIntegral_*, with dstStep not below 4 * (width + 2).
 */
/**@{*/
QORAPI(QorStatus, qoriTiltedIntegral_8u32s_C1R,
       (const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep, QoriSize roiSize, int32_t val));
QORAPI(QorStatus, qoriTiltedIntegral_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float val));
/**@}*/

/**
 * Tilted integral image and, in `sqr`, that of the squared pixels, starting at `valSqr`.
 *
 * Both planes have the shape of qoriTiltedIntegral_*, and the 32f sum plane adds to its old column `width` as well; the
 * square planes never do.
 *
 * qoriTiltedSqrIntegral_8u32s_C1R treats column `width` as the columns before it, in both planes: it reads the byte
 * after the last pixel of each source row, which must be readable and takes part in the sums.
 *
 * Statuses: as qoriSqrIntegral_*, with steps for width + 2 cells.
 */
/**@{*/
QORAPI(QorStatus, qoriTiltedSqrIntegral_8u32s_C1R,
       (const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep, int32_t* sqr, int32_t sqrStep,
        QoriSize roiSize, int32_t val, int32_t valSqr));
QORAPI(QorStatus, qoriTiltedSqrIntegral_8u32s64f_C1R,
       (const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep, double* sqr, int32_t sqrStep,
        QoriSize roiSize, int32_t val, double valSqr));
QORAPI(QorStatus, qoriTiltedSqrIntegral_8u32f64f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, double* sqr, int32_t sqrStep,
        QoriSize roiSize, float val, double valSqr));
/**@}*/

/**
 * Standard deviation of the pixels in a sliding window, read from upright planes.
 *
 * `src` and `sqr` are planes of sums and of squares, as qoriSqrIntegral_* makes them, and point at the cell of window
 * origin (0, 0). `roiSize` is the size of `dst`, the number of windows. For window (i, j) the rectangle `rect`, moved
 * by i columns and j rows, is read from its four corner cells in each plane; with N its area, the result is
 * sqrt(sqr / N - (src / N)^2), where a negative difference counts as 0.
 *
 * The Sfs form multiplies the root by 2^-scaleFactor (the low five bits of the factor's magnitude count), rounds it to
 * nearest and does not saturate: values beyond 32 bits become -2147483648.
 *
 * Large images of the 32f form are worked on by up to 32 threads.
 *
 * Statuses: qorStatusNullPtr (src, dst, sqr); qorStatusBadSize (roiSize); qorStatusBadStep (srcStep and sqrStep for
 * width + rect.x + rect.width cells, dstStep for width elements); qorStatusBadStepAlign; then qorStatusBadSize for a
 * rectangle with a negative x or y or a width or height below 1. The heights of the planes are not checked.
 */
/**@{*/
QORAPI(QorStatus, qoriRectStdDev_32s_C1RSfs,
       (const int32_t* src, int32_t srcStep, const int32_t* sqr, int32_t sqrStep, int32_t* dst, int32_t dstStep,
        QoriSize roiSize, QoriRect rect, int32_t scaleFactor));
QORAPI(QorStatus, qoriRectStdDev_32s32f_C1R,
       (const int32_t* src, int32_t srcStep, const double* sqr, int32_t sqrStep, float* dst, int32_t dstStep,
        QoriSize roiSize, QoriRect rect));
QORAPI(QorStatus, qoriRectStdDev_32f_C1R,
       (const float* src, int32_t srcStep, const double* sqr, int32_t sqrStep, float* dst, int32_t dstStep,
        QoriSize roiSize, QoriRect rect));
/**@}*/

/**
 * Standard deviation of the pixels in a sliding window turned by 45 degrees, read from tilted planes.
 *
 * As qoriRectStdDev_*, but the window of `rect` has its top corner at column x - y and row x + y; its `width` side runs
 * down and right, its `height` side down and left; its area is 2 * width * height. Columns left of the top corner are
 * read, so x - y may lead left of the pointers: the caller leaves room there.
 *
 * Statuses: as qoriRectStdDev_*, with srcStep and sqrStep for width + rect.width + rect.x + rect.y + rect.height - 1
 * cells.
 */
/**@{*/
QORAPI(QorStatus, qoriTiltedRectStdDev_32s_C1RSfs,
       (const int32_t* src, int32_t srcStep, const int32_t* sqr, int32_t sqrStep, int32_t* dst, int32_t dstStep,
        QoriSize roiSize, QoriRect rect, int32_t scaleFactor));
QORAPI(QorStatus, qoriTiltedRectStdDev_32s32f_C1R,
       (const int32_t* src, int32_t srcStep, const double* sqr, int32_t sqrStep, float* dst, int32_t dstStep,
        QoriSize roiSize, QoriRect rect));
QORAPI(QorStatus, qoriTiltedRectStdDev_32f_C1R,
       (const float* src, int32_t srcStep, const double* sqr, int32_t sqrStep, float* dst, int32_t dstStep,
        QoriSize roiSize, QoriRect rect));
/**@}*/

/**
 * A stage of a cascaded detector: weak classifiers, each a weighted sum of rectangle features that is compared with a
 * threshold in units of the window's deviation; opaque. Applying a stage changes nothing in it, so several threads may
 * use one at a time on different masks.
 */
/**@{*/
typedef struct QoriHaarClassifier_32f QoriHaarClassifier_32f;
typedef struct QoriHaarClassifier_32s QoriHaarClassifier_32s;
/**@}*/

/**
 * Makes a stage of `length` classifiers, stored in `state`; released by qoriHaarClassifierFree_*.
 *
 * Classifier i has `num[i]` features, a `threshold[i]`, and the value `val1[i]` for windows below the threshold or
 * `val2[i]` for others. `feature` and `weight` hold the rectangles of all classifiers, one after the other, relative to
 * the window. `feature` holds one rectangle even where `length` is 0. All arrays are copied.
 *
 * In the tilted forms a rectangle is turned by 45 degrees, as in qoriTiltedRectStdDev_*, with its top corner at (x, y);
 * such a stage is applied to a tilted plane.
 *
 * Statuses: qorStatusNullPtr (any pointer); qorStatusBadSize (`length` negative, an entry of `num` below 1);
 * qorStatusBadArg (a rectangle with a negative x or y, a width or height below 1 or, tilted, a height above x + 1);
 * qorStatusNoMemory. With qorStatusBadArg the forms other than qoriHaarClassifierInitAlloc_32f have tried to allocate
 * before, and store a null pointer in `state`.
 */
/**@{*/
QORAPI(QorStatus, qoriHaarClassifierInitAlloc_32f,
       (QoriHaarClassifier_32f * *state, const QoriRect* feature, const float* weight, const float* threshold,
        const float* val1, const float* val2, const int32_t* num, int32_t length));
QORAPI(QorStatus, qoriHaarClassifierInitAlloc_32s,
       (QoriHaarClassifier_32s * *state, const QoriRect* feature, const int32_t* weight, const int32_t* threshold,
        const int32_t* val1, const int32_t* val2, const int32_t* num, int32_t length));
QORAPI(QorStatus, qoriTiltedHaarClassifierInitAlloc_32f,
       (QoriHaarClassifier_32f * *state, const QoriRect* feature, const float* weight, const float* threshold,
        const float* val1, const float* val2, const int32_t* num, int32_t length));
QORAPI(QorStatus, qoriTiltedHaarClassifierInitAlloc_32s,
       (QoriHaarClassifier_32s * *state, const QoriRect* feature, const int32_t* weight, const int32_t* threshold,
        const int32_t* val1, const int32_t* val2, const int32_t* num, int32_t length));
/**@}*/

/** Releases a stage. Statuses: qorStatusNullPtr (state). */
/**@{*/
QORAPI(QorStatus, qoriHaarClassifierFree_32f, (QoriHaarClassifier_32f * state));
QORAPI(QorStatus, qoriHaarClassifierFree_32s, (QoriHaarClassifier_32s * state));
/**@}*/

/**
 * The window that a stage looks at: in `size` the largest column of the right corners (upright: the top right ones) of
 * all features and the largest row of the lowest ones; 0 by 0 for a stage without classifiers.
 *
 * Statuses: qorStatusNullPtr (state, size).
 */
/**@{*/
QORAPI(QorStatus, qoriGetHaarClassifierSize_32f, (const QoriHaarClassifier_32f* state, QoriSize* size));
QORAPI(QorStatus, qoriGetHaarClassifierSize_32s, (const QoriHaarClassifier_32s* state, QoriSize* size));
/**@}*/

/**
 * Turns classifiers of an upright stage into tilted ones, for qoriApplyMixedHaarClassifier_*: those whose byte in
 * `tiltMask`, one a classifier in the order of the arrays that the stage was made of, is not 0. A rectangle is turned
 * by 45 degrees about its top left corner (`anchorAtTop` not 0) or its bottom left corner.
 *
 * The 32s form makes squares of the rectangles: both sides are the width, and the bottom left corner keeps its place
 * as the lowest one.
 *
 * Statuses: qorStatusNullPtr (tiltMask, state); qorStatusBadArg (a stage that was made tilted, or in which classifiers
 * have been tilted before).
 */
/**@{*/
QORAPI(QorStatus, qoriTiltHaarFeatures_32f,
       (const uint8_t* tiltMask, int32_t anchorAtTop, QoriHaarClassifier_32f* state));
QORAPI(QorStatus, qoriTiltHaarFeatures_32s,
       (const uint8_t* tiltMask, int32_t anchorAtTop, QoriHaarClassifier_32s* state));
/**@}*/

/**
 * Applies a stage to all windows that are still alive: `mask` pixels that are not 0. A window below the stage's
 * `threshold` gets a 0 in `mask`; the others stay as they are, and `positive` is their number.
 *
 * `src` is an integral plane and points at the cell of window (0, 0); the features of each live window are read from
 * it, wherever they lie. `norm` holds a value for each window, usually its deviation from qoriRectStdDev_*. The sum of
 * feature sums times weights is compared with the classifier's threshold times `norm`; val1 where it is below, else
 * val2, is added to the window's total, and that is compared with `threshold`.
 *
 * The 32s form computes in 32 bits that wrap, and scales nothing.
 *
 * Statuses: qorStatusNullPtr; qorStatusBadSize; qorStatusBadStep; qorStatusBadStepAlign (srcStep, normStep);
 * qorStatusNoMemory, with `mask` and `positive` untouched. The size of the plane is not checked.
 */
/**@{*/
QORAPI(QorStatus, qoriApplyHaarClassifier_32f_C1R,
       (const float* src, int32_t srcStep, const float* norm, int32_t normStep, uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, int32_t* positive, float threshold, const QoriHaarClassifier_32f* state));
QORAPI(QorStatus, qoriApplyHaarClassifier_32s32f_C1R,
       (const int32_t* src, int32_t srcStep, const float* norm, int32_t normStep, uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, int32_t* positive, float threshold, const QoriHaarClassifier_32f* state));
QORAPI(QorStatus, qoriApplyHaarClassifier_32s_C1RSfs,
       (const int32_t* src, int32_t srcStep, const int32_t* norm, int32_t normStep, uint8_t* mask, int32_t maskStep,
        QoriSize roiSize, int32_t* positive, int32_t threshold, const QoriHaarClassifier_32s* state));
/**@}*/

/**
 * Applies a stage that holds upright and tilted classifiers: as qoriApplyHaarClassifier_*, but the features of tilted
 * classifiers are read from `tilt`, a plane of qoriTiltedIntegral_*, one row below and one column right of the window's
 * own cell.
 *
 * The 32s form adds up the products in 64 bits, and compares them, shifted left by -scaleFactor (its low six bits),
 * with the product of the classifier's threshold and `norm` in 64 bits.
 *
 * Statuses: as qoriApplyHaarClassifier_*, `tilt` and `tiltStep` being tested as `src` and `srcStep` are, but nothing is
 * allocated; qorStatusBadArg (scaleFactor above 0).
 */
/**@{*/
QORAPI(QorStatus, qoriApplyMixedHaarClassifier_32f_C1R,
       (const float* src, int32_t srcStep, const float* tilt, int32_t tiltStep, const float* norm, int32_t normStep,
        uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t* positive, float threshold,
        const QoriHaarClassifier_32f* state));
QORAPI(QorStatus, qoriApplyMixedHaarClassifier_32s32f_C1R,
       (const int32_t* src, int32_t srcStep, const int32_t* tilt, int32_t tiltStep, const float* norm, int32_t normStep,
        uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t* positive, float threshold,
        const QoriHaarClassifier_32f* state));
QORAPI(QorStatus, qoriApplyMixedHaarClassifier_32s_C1RSfs,
       (const int32_t* src, int32_t srcStep, const int32_t* tilt, int32_t tiltStep, const int32_t* norm,
        int32_t normStep, uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t* positive, int32_t threshold,
        const QoriHaarClassifier_32s* state, int32_t scaleFactor));
/**@}*/
