/* Geometry and restoration. Included by qorcvmx.h. */

/* --- sub-pixel copy --- */

/**
 * Copies a region from a position between the pixels, by bilinear interpolation: pixel (x, y) of `dst` comes from the
 * source pixels at columns x, x + 1 and rows y, y + 1, so `src` must hold one column and one row more than `roiSize`.
 *
 * `dx` and `dy` count only by their fractions; a negative one is raised by 1 and moves nothing to the left: -0.25 acts
 * as 0.75. `srcStep` is compared with a row of `roiSize`. Images may not overlap.
 *
 * Forms with an integer result weigh in fixed point, of 14 fraction bits for 8-bit and 15 for 16-bit sources, and round
 * to nearest; where both fractions are 0 they copy. The Sfs form gives the result times 2^-scaleFactor, rounded, held
 * to 0 .. 65535. Forms with a float result weigh in float and do not round.
 *
 * Statuses: qorStatusNullPtr (src, dst); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep); qorStatusBadStepAlign
 * (steps of elements larger than a byte).
 */
/**@{*/
QORAPI(QorStatus, qoriCopySubpix_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, float dx, float dy));
QORAPI(QorStatus, qoriCopySubpix_8u16u_C1R_Sfs,
       (const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, int32_t scaleFactor,
        float dx, float dy));
QORAPI(QorStatus, qoriCopySubpix_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float dx, float dy));
QORAPI(QorStatus, qoriCopySubpix_16u_C1R,
       (const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, float dx, float dy));
QORAPI(QorStatus, qoriCopySubpix_16u32f_C1R,
       (const uint16_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float dx, float dy));
QORAPI(QorStatus, qoriCopySubpix_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float dx, float dy));
/**@}*/

/**
 * Copies a window of `dstRoiSize` pixels whose centre is `point`, in pixels of the source, by bilinear interpolation;
 * what lies outside the source repeats its edge. The centre of a window of w columns is (w - 1) / 2 columns right of
 * its first one.
 *
 * `minPoint` and `maxPoint` get the first and the last column and row of the window whose pixels lie between four
 * pixels of the source. For a window beside the source there is none: with nothing but columns left of it minPoint.x is
 * the window's width, with nothing but columns right of it maxPoint.x is -1; the same with rows. Columns before
 * minPoint.x repeat the first column of the source and columns after maxPoint.x its last, interpolated along the column
 * only; rows likewise.
 *
 * Weights, rounding and `scaleFactor` are those of qoriCopySubpix_*. A position that is not a number counts as left of
 * (above) everything.
 *
 * Statuses: qorStatusNullPtr (src, dst, minPoint, maxPoint); qorStatusBadSize (either size); qorStatusBadStep (srcStep,
 * dstStep); qorStatusBadStepAlign (steps of elements larger than a byte).
 */
/**@{*/
QORAPI(QorStatus, qoriCopySubpixIntersect_8u_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, uint8_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPoint_32f point, QoriPoint* minPoint, QoriPoint* maxPoint));
QORAPI(QorStatus, qoriCopySubpixIntersect_8u16u_C1R_Sfs,
       (const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, uint16_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPoint_32f point, QoriPoint* minPoint, QoriPoint* maxPoint, int32_t scaleFactor));
QORAPI(QorStatus, qoriCopySubpixIntersect_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, float* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPoint_32f point, QoriPoint* minPoint, QoriPoint* maxPoint));
QORAPI(QorStatus, qoriCopySubpixIntersect_16u_C1R,
       (const uint16_t* src, int32_t srcStep, QoriSize srcRoiSize, uint16_t* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPoint_32f point, QoriPoint* minPoint, QoriPoint* maxPoint));
QORAPI(QorStatus, qoriCopySubpixIntersect_16u32f_C1R,
       (const uint16_t* src, int32_t srcStep, QoriSize srcRoiSize, float* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPoint_32f point, QoriPoint* minPoint, QoriPoint* maxPoint));
QORAPI(QorStatus, qoriCopySubpixIntersect_32f_C1R,
       (const float* src, int32_t srcStep, QoriSize srcRoiSize, float* dst, int32_t dstStep, QoriSize dstRoiSize,
        QoriPoint_32f point, QoriPoint* minPoint, QoriPoint* maxPoint));
/**@}*/

/* --- lens undistortion --- */

/**
 * Size in bytes of the optional buffer of the undistortion functions for images of `roiSize` pixels, stored in
 * `bufferSize`.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize.
 */
QORAPI(QorStatus, qoriUndistortGetSize, (QoriSize roiSize, int32_t* bufferSize));

/**
 * Corrects radial lens distortion: each destination pixel takes the source pixel that the camera's model puts there,
 * interpolated between four.
 *
 * With x = i - cx and y = j - cy, r = (x / fx)^2 + (y / fy)^2 and f = k1 r + k2 r^2, pixel (i, j) is taken from
 * (i + x f, j + y f). Focal lengths (`fx`, `fy`) and principal point (`cx`, `cy`) are in pixels. Only pixels of `dst`
 * are written whose source position lies inside the image, left of the last column and above the last row: with k1 and
 * k2 of 0 the last column and the last row keep what they hold. Integer results are rounded, halves up. `src` and `dst`
 * may not overlap.
 *
 * `buffer` has the size that qoriUndistortGetSize() reports and holds terms of the columns, or is null. It changes the
 * order of the sum f, hence the last bit of a position. Never threaded.
 *
 * Statuses: qorStatusNullPtr (src, dst); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep); qorStatusBadStepAlign
 * (16u and 32f); qorStatusBadArg (fx or fy is 0).
 */
/**@{*/
QORAPI(QorStatus, qoriUndistortRadial_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer, float fx,
        float fy, float cx, float cy, float k1, float k2));
QORAPI(QorStatus, qoriUndistortRadial_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer, float fx,
        float fy, float cx, float cy, float k1, float k2));
QORAPI(QorStatus, qoriUndistortRadial_16u_C1R,
       (const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer,
        float fx, float fy, float cx, float cy, float k1, float k2));
QORAPI(QorStatus, qoriUndistortRadial_16u_C3R,
       (const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer,
        float fx, float fy, float cx, float cy, float k1, float k2));
QORAPI(QorStatus, qoriUndistortRadial_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer, float fx,
        float fy, float cx, float cy, float k1, float k2));
QORAPI(QorStatus, qoriUndistortRadial_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer, float fx,
        float fy, float cx, float cy, float k1, float k2));
/**@}*/

/**
 * Source positions of all pixels in the model of qoriUndistortRadial_*(), extended by two tangential coefficients, as
 * two planes of coordinates for a remap: `xMap` the columns, `yMap` the rows. All are written, also those outside the
 * image.
 *
 * With s = x / fx, t = y / fy, r = s^2 + t^2 and g = 2 p2 s + 2 p1 t + k1 r + k2 r^2, they are i + x g + fx p2 r and
 * j + y g + fy p1 r. With p1 and p2 of 0 the positions are those of qoriUndistortRadial_*(), and `buffer` has the same
 * meaning; otherwise it is not used. Never threaded.
 *
 * Statuses: qorStatusNullPtr (xMap, yMap); qorStatusBadSize; qorStatusBadStep (xStep, yStep); qorStatusBadStepAlign;
 * qorStatusBadArg (fx or fy is 0).
 */
QORAPI(QorStatus, qoriCreateMapCameraUndistort_32f_C1R,
       (float* xMap, int32_t xStep, float* yMap, int32_t yStep, QoriSize roiSize, uint8_t* buffer, float fx, float fy,
        float cx, float cy, float k1, float k2, float p1, float p2));

/* --- super-resolution residuals --- */

/** Table of 2x2 kernels for the residuals below. Opaque. */
typedef struct QoriSRHNSpec_PSF2x2 QoriSRHNSpec_PSF2x2;
/** Table of 3x3 kernels. Opaque. */
typedef struct QoriSRHNSpec_PSF3x3 QoriSRHNSpec_PSF3x3;

/**
 * Creates a table of `phaseCount` kernels (point spread functions) from `psf`, which holds the four (nine) taps of each
 * of them, row by row. `psf` is copied. The record in `*state` belongs to the caller until qoriSRHNFree_*; it never
 * changes, so threads may share it.
 *
 * Statuses: qorStatusNullPtr (state, psf); qorStatusBadSize (phaseCount below 1); qorStatusNoMemory.
 */
/**@{*/
QORAPI(QorStatus, qoriSRHNInitAlloc_PSF2x2, (QoriSRHNSpec_PSF2x2 * *state, const float* psf, int32_t phaseCount));
QORAPI(QorStatus, qoriSRHNInitAlloc_PSF3x3, (QoriSRHNSpec_PSF3x3 * *state, const float* psf, int32_t phaseCount));
/**@}*/

/** Releases what qoriSRHNInitAlloc_* created. Statuses: qorStatusNullPtr. */
/**@{*/
QORAPI(QorStatus, qoriSRHNFree_PSF2x2, (QoriSRHNSpec_PSF2x2 * state));
QORAPI(QorStatus, qoriSRHNFree_PSF3x3, (QoriSRHNSpec_PSF3x3 * state));
/**@}*/

/**
 * Residuals of super-resolution: for each of `length` low-resolution samples what an estimate predicts for it, less
 * what was observed.
 *
 * Sample i is seen as the patch of 2x2 (3x3) pixels of the float image `hiRes` whose first pixel lies offset[i]
 * elements behind `hiRes`, weighted by kernel phase[i] of the table. residual[i] is the sum of the products, row by row
 * from left to right, less lowRes[i], all in floats. Offsets may be negative, and so may `hiResStep`, for an image
 * stored bottom-up.
 *
 * Neither offsets nor phases are checked: they must lie in the image and in the table.
 *
 * Statuses: qorStatusNullPtr (hiRes, lowRes, offset, phase, residual, state); qorStatusBadSize (length below 1);
 * qorStatusBadStep (hiResStep no multiple of 4, or from 0 to below 8, 12 for 3x3).
 */
/**@{*/
QORAPI(QorStatus, qoriSRHNCalcResidual_PSF2x2_8u32f_C1R,
       (const float* hiRes, int32_t hiResStep, const uint8_t* lowRes, const int32_t* offset, const uint16_t* phase,
        float* residual, int32_t length, const QoriSRHNSpec_PSF2x2* state));
QORAPI(QorStatus, qoriSRHNCalcResidual_PSF2x2_16u32f_C1R,
       (const float* hiRes, int32_t hiResStep, const uint16_t* lowRes, const int32_t* offset, const uint16_t* phase,
        float* residual, int32_t length, const QoriSRHNSpec_PSF2x2* state));
QORAPI(QorStatus, qoriSRHNCalcResidual_PSF3x3_8u32f_C1R,
       (const float* hiRes, int32_t hiResStep, const uint8_t* lowRes, const int32_t* offset, const uint16_t* phase,
        float* residual, int32_t length, const QoriSRHNSpec_PSF3x3* state));
QORAPI(QorStatus, qoriSRHNCalcResidual_PSF3x3_16u32f_C1R,
       (const float* hiRes, int32_t hiResStep, const uint16_t* lowRes, const int32_t* offset, const uint16_t* phase,
        float* residual, int32_t length, const QoriSRHNSpec_PSF3x3* state));
/**@}*/

/**
 * The way back: spreads weighted residuals into a gradient image, through the same kernels.
 *
 * For each sample in turn r is weights[weightIndex[i]] * residual[i], and each tap k adds k * r to its element of the
 * patch of `gradient` at offset[i]; patches that overlap accumulate. Never threaded. `weightIndex` is not checked
 * either.
 *
 * Statuses: qorStatusNullPtr (gradient, offset, phase, residual, weightIndex, weights, state); qorStatusBadSize (length
 * below 1); qorStatusBadStep (gradientStep, as above).
 */
/**@{*/
QORAPI(QorStatus, qoriSRHNUpdateGradient_PSF2x2_32f_C1R,
       (float* gradient, int32_t gradientStep, const int32_t* offset, const uint16_t* phase, const float* residual,
        const uint8_t* weightIndex, int32_t length, const float* weights, const QoriSRHNSpec_PSF2x2* state));
QORAPI(QorStatus, qoriSRHNUpdateGradient_PSF3x3_32f_C1R,
       (float* gradient, int32_t gradientStep, const int32_t* offset, const uint16_t* phase, const float* residual,
        const uint8_t* weightIndex, int32_t length, const float* weights, const QoriSRHNSpec_PSF3x3* state));
/**@}*/
