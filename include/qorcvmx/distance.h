/* Distance maps, inpainting and flood fills. Included by qorcvmx.h. */

/* --- chamfer distance --- */

/**
 * Chamfer distance: for every pixel the least sum of step costs on a way to a pixel of 0 in `src`. Pixels of 0 get 0;
 * where no pixel is 0 all others get the largest value of the type (255, 65535, 3.4028235e38), at which sums stop.
 *
 * `metrics` has the costs of a straight step, a diagonal step and, with the 5x5 masks, a knight's step (two pixels
 * along one axis and one along the other), as 32-bit integers or, for float results, as floats.
 * qoriGetDistanceTransformMask_* has common ones. Where a diagonal step costs as much as two straight ones or a
 * knight's as much as a straight and a diagonal one, the smaller mask is used. Distances are those of two passes over
 * the image; on images with a side below 4 the 5x5 masks take other ways to the same end. With diagonal steps cheaper
 * than straight ones the 3x3 masks give the last row ways through a row below the image.
 *
 * The in-place forms overwrite their source; `dst` may also be `src` in the 8u forms. Never threaded.
 *
 * Statuses: qorStatusNullPtr (src, dst, metrics); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep);
 * qorStatusBadStepAlign (dstStep); qorStatusBadMetric (a cost not above 0).
 *
 * After G. Borgefors, "Distance transformations in digital images", Computer Vision, Graphics, and Image Processing 34
 * (1986).
 */
/**@{*/
QORAPI(QorStatus, qoriDistanceTransform_3x3_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, const int32_t* metrics));
QORAPI(QorStatus, qoriDistanceTransform_3x3_8u16u_C1R,
       (const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, const int32_t* metrics));
QORAPI(QorStatus, qoriDistanceTransform_3x3_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, const float* metrics));
QORAPI(QorStatus, qoriDistanceTransform_3x3_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, const int32_t* metrics));
QORAPI(QorStatus, qoriDistanceTransform_5x5_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, const int32_t* metrics));
QORAPI(QorStatus, qoriDistanceTransform_5x5_8u16u_C1R,
       (const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, const int32_t* metrics));
QORAPI(QorStatus, qoriDistanceTransform_5x5_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, const float* metrics));
QORAPI(QorStatus, qoriDistanceTransform_5x5_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, const int32_t* metrics));
/**@}*/

/**
 * Common metrics for the chamfer distances: two values for a `kernelSize` of 3, three for 5. `normType` 0 counts moves
 * of a chess king, 1 counts straight steps, 2 comes near the Euclidean distance; in integers the latter is in units of
 * 1/2 (3x3: 2, 3) and 1/5 (5x5: 5, 7, 11) of a pixel.
 *
 * Statuses: qorStatusNullPtr (metrics); qorStatusBadSize (kernelSize); qorStatusBadArg (normType).
 */
/**@{*/
QORAPI(QorStatus, qoriGetDistanceTransformMask_32f, (int32_t kernelSize, int32_t normType, float* metrics));
QORAPI(QorStatus, qoriGetDistanceTransformMask_32s, (int32_t kernelSize, int32_t normType, int32_t* metrics));
/**@}*/

/**
 * The float metrics with both selectors in one: `maskType` is 10 * kernelSize + normType, that is 30, 31, 32, 50, 51
 * or 52.
 *
 * Statuses: qorStatusBadArg (units of maskType, tested first); then those of qoriGetDistanceTransformMask_32f().
 */
QORAPI(QorStatus, qoriGetDistanceTransformMask, (int32_t maskType, float* metrics));

/* --- true Euclidean distance --- */

/**
 * Scratch size in bytes of the true distances for an image of `roiSize` pixels, stored in `bufferSize`. It depends on
 * the greatest number of threads at the time of the query.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize. A size beyond 2147483647 wraps without a status.
 */
/**@{*/
QORAPI(QorStatus, qoriTrueDistanceTransformGetBufferSize_8u16u_C1RSfs, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriTrueDistanceTransformGetBufferSize_8u32f_C1R, (QoriSize roiSize, int32_t* bufferSize));
/**@}*/

/**
 * Euclidean distance of every pixel to the nearest pixel of 0 in `src`, in pixels. First along each column, then along
 * each row, as the lower envelope of the parabolas that the columns give.
 *
 * The 16u form scales by 2^-scaleFactor, rounds and holds to 32767; a `scaleFactor` of -4 gives sixteenths of a pixel.
 * Images without any pixel of 0 give large values without a meaning. `buffer` has the size that the GetBufferSize
 * function reports and need not be aligned. Large images are shared out by rows among threads.
 *
 * Statuses: qorStatusNullPtr (src, dst, buffer); qorStatusBadSize; qorStatusBadStep (srcStep, then dstStep);
 * qorStatusBadStepAlign (dstStep).
 *
 * After P. Felzenszwalb and D. Huttenlocher, "Distance transforms of sampled functions", Theory of Computing 8 (2012).
 */
/**@{*/
QORAPI(QorStatus, qoriTrueDistanceTransform_8u16u_C1RSfs,
       (const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize, int32_t scaleFactor,
        uint8_t* buffer));
QORAPI(QorStatus, qoriTrueDistanceTransform_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer));
/**@}*/

/* --- fast marching --- */

/**
 * Size in bytes of the buffer of qoriFastMarching_8u32f_C1R() for images of `roiSize` pixels, stored in `bufferSize`. A
 * size beyond 2147483647 wraps without a status.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize.
 */
QORAPI(QorStatus, qoriFastMarchingGetBufferSize_8u32f_C1R, (QoriSize roiSize, int32_t* bufferSize));

/**
 * Distance of each pixel of a mask from its edge, by fast marching: the solution of |grad u| = 1 on the grid. Mask
 * pixels are those of `src` that are not 0; they get their distance from the nearest zero pixel, zero pixels get 0.
 *
 * With a `radius` above 0, zero pixels get the negative of their distance from the mask as far as that is not beyond
 * `radius`; those beside a mask pixel get -1e-10, so the sign tells what lies outside.
 *
 * A mask without any zero pixel gives values that start at 999999 in its corners and rise from there. Images of 6 rows
 * or more are worked on by two threads, whose results are those of one thread up to rounding (without any zero pixel,
 * up to where the values start).
 *
 * Statuses: qorStatusNullPtr (src, dst, buffer); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep);
 * qorStatusBadStepAlign (dstStep); qorStatusBadArg (radius below 0).
 */
QORAPI(QorStatus, qoriFastMarching_8u32f_C1R,
       (const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float radius,
        uint8_t* buffer));

/* --- inpainting --- */

/** How the known pixels around a pixel of a hole weigh in, passed as int32_t. */
enum {
  qorInpaintExtrapolate = 0, /**< by distance, difference in level and the direction the hole grows inward; the image
                                gradient adds a correction */
  qorInpaintIsophote = 1     /**< by distance and by how well they lie along a line of equal brightness */
};

/**
 * What inpainting knows of a hole: the order in which its pixels are filled, the weights of neighbours, and scratch
 * memory. Since calls write to it, two calls must not use one state at the same time.
 */
typedef struct QoriInpaintState QoriInpaintState_8u_C1R;
typedef struct QoriInpaintState QoriInpaintState_8u_C3R;

/**
 * Builds a state in a new block and stores its address in `*state`, which is left alone on failure. The caller gives
 * the block back through qoriInpaintFree_*. `mask` is not 0 in the hole. `distance` is the distance of each of its
 * pixels from its edge, as qoriFastMarching_8u32f_C1R() gives it for the same mask; pixels are filled in its order,
 * equal ones row by row. Both images may go after the call. Pixels up to `radius` away weigh in.
 *
 * Hole pixels whose distance is not above 0 are never filled. Pixels around the hole whose distance is above 0 are
 * filled as if they were in it, and as many of those that come last in the image are not.
 *
 * Memory is allocated: the block, and some that is freed before the call returns.
 *
 * Statuses: qorStatusNullPtr (mask, distance, state); qorStatusBadSize; qorStatusBadStep (maskImageStep,
 * distanceImageStep); qorStatusBadStepAlign (distanceImageStep); qorStatusBadArg (flags; radius not at least 1);
 * qorStatusNoMemory, also if the block would exceed 2147483647 bytes.
 */
/**@{*/
QORAPI(QorStatus, qoriInpaintInitAlloc_8u_C1R,
       (QoriInpaintState_8u_C1R * *state, const float* distance, int32_t distanceImageStep, const uint8_t* mask,
        int32_t maskImageStep, QoriSize roiSize, float radius, int32_t flags));
QORAPI(QorStatus, qoriInpaintInitAlloc_8u_C3R,
       (QoriInpaintState_8u_C3R * *state, const float* distance, int32_t distanceImageStep, const uint8_t* mask,
        int32_t maskImageStep, QoriSize roiSize, float radius, int32_t flags));
/**@}*/

/**
 * Copies `src` to `dst` and fills the state's hole there. A state serves any number of images.
 *
 * Statuses: qorStatusNullPtr (src, dst, state); qorStatusBadSize (also if `roiSize` or the number of channels is not
 * the state's); qorStatusBadStep (srcStep, dstStep).
 */
/**@{*/
QORAPI(QorStatus, qoriInpaint_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize,
        QoriInpaintState_8u_C1R* state));
QORAPI(QorStatus, qoriInpaint_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize,
        QoriInpaintState_8u_C3R* state));
/**@}*/

/** Frees a state. Statuses: qorStatusNullPtr (state). */
/**@{*/
QORAPI(QorStatus, qoriInpaintFree_8u_C1R, (QoriInpaintState_8u_C1R * state));
QORAPI(QorStatus, qoriInpaintFree_8u_C3R, (QoriInpaintState_8u_C3R * state));
/**@}*/

/* --- flood fill --- */

/** What a flood fill did. */
typedef struct {
  double area;     /**< number of pixels filled */
  double value[3]; /**< the new value; the second and third are 0 for one channel */
  QoriRect rect;   /**< bounding box of the pixels filled */
} QoriConnectedComp;

/**
 * Size in bytes of the buffer of qoriFloodFill_* for images of `roiSize` pixels, stored in `bufferSize`: the first for
 * the plain and the Range forms, the second for the Grad forms. Sizes beyond 32 bits lose their high bits.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize.
 */
/**@{*/
QORAPI(QorStatus, qoriFloodFillGetSize, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriFloodFillGetSize_Grad, (QoriSize roiSize, int32_t* bufferSize));
/**@}*/

/**
 * Fills, in place, the region of pixels around `seed` that have its value (in all three channels), with `newValue`.
 * 4Con forms go from a pixel to the 4 beside, above and below it, 8Con forms to all 8 around it.
 *
 * A seed that already has the value `newValue` ends the call with qorStatusOk, and nothing is written, `region`
 * included. A seed that is a NaN is filled alone.
 *
 * `srcDstStep` of 8u and 32f images with three channels is only compared with a row of one channel, and that of 32f
 * images only has to be even. Never threaded.
 *
 * Statuses: qorStatusNullPtr (srcDst, newValue, region, buffer); qorStatusBadSize; qorStatusBadStep;
 * qorStatusBadStepAlign; qorStatusOutOfRange (seed outside the image).
 */
/**@{*/
QORAPI(QorStatus, qoriFloodFill_4Con_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint8_t newValue,
        QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_4Con_8u_C3IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint8_t* newValue,
        QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_4Con_16u_C1IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint16_t newValue,
        QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_4Con_16u_C3IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint16_t* newValue,
        QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_4Con_32f_C1IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, float newValue, QoriConnectedComp* region,
        uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_4Con_32f_C3IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const float* newValue,
        QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_8Con_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint8_t newValue,
        QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_8Con_8u_C3IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint8_t* newValue,
        QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_8Con_16u_C1IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint16_t newValue,
        QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_8Con_16u_C3IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint16_t* newValue,
        QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_8Con_32f_C1IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, float newValue, QoriConnectedComp* region,
        uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_8Con_32f_C3IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const float* newValue,
        QoriConnectedComp* region, uint8_t* buffer));
/**@}*/

/**
 * The same for the pixels whose values lie between s - `minDelta` and s + `maxDelta`, both included, in every channel,
 * with s the value of the seed before the call. Integer bounds are held to the range of the type.
 *
 * Values are compared as they stand in the image at the moment, so a `newValue` that lies between the bounds is met
 * again and again: `area` may then count pixels several times. Such a fill ends, at the latest after as many steps as
 * 64 times the pixels. Whenever a quarter as many spans as there are pixels are open, all of them are dropped, which
 * shows in images of a few pixels: in one of 2 x 2 nothing but the seed's row is filled. Dropped spans count in `area`,
 * not in `rect`.
 *
 * Statuses: as above; also qorStatusNullPtr for `minDelta` and `maxDelta` of three channels.
 */
/**@{*/
QORAPI(QorStatus, qoriFloodFill_Range4Con_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint8_t newValue, uint8_t minDelta,
        uint8_t maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range4Con_8u_C3IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint8_t* newValue,
        const uint8_t* minDelta, const uint8_t* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range4Con_16u_C1IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint16_t newValue, uint16_t minDelta,
        uint16_t maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range4Con_16u_C3IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint16_t* newValue,
        const uint16_t* minDelta, const uint16_t* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range4Con_32f_C1IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, float newValue, float minDelta,
        float maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range4Con_32f_C3IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const float* newValue,
        const float* minDelta, const float* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range8Con_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint8_t newValue, uint8_t minDelta,
        uint8_t maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range8Con_8u_C3IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint8_t* newValue,
        const uint8_t* minDelta, const uint8_t* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range8Con_16u_C1IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint16_t newValue, uint16_t minDelta,
        uint16_t maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range8Con_16u_C3IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint16_t* newValue,
        const uint16_t* minDelta, const uint16_t* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range8Con_32f_C1IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, float newValue, float minDelta,
        float maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Range8Con_32f_C3IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const float* newValue,
        const float* minDelta, const float* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
/**@}*/

/**
 * Fills, in place, all pixels that can be reached from `seed` by steps to neighbours in which the value falls by at
 * most `minDelta` and rises by at most `maxDelta`, in every channel. Values are those before the call. 32f forms take a
 * step from p to q if |q + (minDelta - maxDelta) / 2 - p| is at most (minDelta + maxDelta) / 2, in float.
 *
 * `region` is always written. `buffer` has the size that qoriFloodFillGetSize_Grad() reports. Steps in bytes are tested
 * as above, but those of 32f images must be multiples of 4.
 *
 * Statuses: as above; also qorStatusOutOfRange for a negative `minDelta` or `maxDelta` of 32f forms.
 */
/**@{*/
QORAPI(QorStatus, qoriFloodFill_Grad4Con_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint8_t newValue, uint8_t minDelta,
        uint8_t maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad4Con_8u_C3IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint8_t* newValue,
        const uint8_t* minDelta, const uint8_t* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad4Con_16u_C1IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint16_t newValue, uint16_t minDelta,
        uint16_t maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad4Con_16u_C3IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint16_t* newValue,
        const uint16_t* minDelta, const uint16_t* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad4Con_32f_C1IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, float newValue, float minDelta,
        float maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad4Con_32f_C3IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const float* newValue,
        const float* minDelta, const float* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad8Con_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint8_t newValue, uint8_t minDelta,
        uint8_t maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad8Con_8u_C3IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint8_t* newValue,
        const uint8_t* minDelta, const uint8_t* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad8Con_16u_C1IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, uint16_t newValue, uint16_t minDelta,
        uint16_t maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad8Con_16u_C3IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const uint16_t* newValue,
        const uint16_t* minDelta, const uint16_t* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad8Con_32f_C1IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, float newValue, float minDelta,
        float maxDelta, QoriConnectedComp* region, uint8_t* buffer));
QORAPI(QorStatus, qoriFloodFill_Grad8Con_32f_C3IR,
       (float* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const float* newValue,
        const float* minDelta, const float* maxDelta, QoriConnectedComp* region, uint8_t* buffer));
/**@}*/
