/* Motion in sequences of images. Included by qorcvmx.h. */

/**
 * Updates a motion history image: each pixel of `mhi` holds the time at which it was last seen moving.
 *
 * Where `silhouette` is not 0, `mhi` becomes `timestamp`. Elsewhere it becomes 0 if it is below
 * timestamp - mhiDuration (one float subtraction) and stays if it is not. A silhouette of -0.0 is 0, a NaN is not.
 *
 * The 8u32f and 16u32f forms order floats by their bits: -0.0 lies below +0.0, NaN beyond the infinity of its sign. The
 * 32f form compares floats, where a NaN is not below anything; its `silhouette` may be `mhi` itself, with the same
 * step.
 *
 * Statuses: qorStatusNullPtr (silhouette, mhi); qorStatusBadSize; qorStatusBadStep (silhouetteStep, mhiStep);
 * qorStatusBadStepAlign (mhiStep, and silhouetteStep of 16u32f and 32f); qorStatusOutOfRange for a negative
 * `mhiDuration`. -0.0 and NaN are not negative.
 */
/**@{*/
QORAPI(QorStatus, qoriUpdateMotionHistory_8u32f_C1IR,
       (const uint8_t* silhouette, int32_t silhouetteStep, float* mhi, int32_t mhiStep, QoriSize roiSize,
        float timestamp, float mhiDuration));
QORAPI(QorStatus, qoriUpdateMotionHistory_16u32f_C1IR,
       (const uint16_t* silhouette, int32_t silhouetteStep, float* mhi, int32_t mhiStep, QoriSize roiSize,
        float timestamp, float mhiDuration));
QORAPI(QorStatus, qoriUpdateMotionHistory_32f_C1IR,
       (const float* silhouette, int32_t silhouetteStep, float* mhi, int32_t mhiStep, QoriSize roiSize, float timestamp,
        float mhiDuration));
/**@}*/

/* --- pyramidal optical flow --- */

/** Scratch memory and settings of qoriOpticalFlowPyrLK_*; opaque. */
typedef struct QoriOptFlowState QoriOptFlowState;

/**
 * Makes the state for qoriOpticalFlowPyrLK_*, stored in `state`, with scratch memory for as many threads as the library
 * may use at this time. Pyramid levels of fewer columns than `roiSize` and fewer rows get their gradients as whole
 * images, which pays where many windows overlap; in larger ones each window gets its own. `winSize` is the side of the
 * square windows; `hint` has no effect. Released by qoriOpticalFlowPyrLKFree_*.
 *
 * Statuses: qorStatusNullPtr (state); qorStatusBadSize (winSize below 1 or roiSize); qorStatusNoMemory.
 */
/**@{*/
QORAPI(QorStatus, qoriOpticalFlowPyrLKInitAlloc_8u_C1R,
       (QoriOptFlowState * *state, QoriSize roiSize, int32_t winSize, int32_t hint));
QORAPI(QorStatus, qoriOpticalFlowPyrLKInitAlloc_16u_C1R,
       (QoriOptFlowState * *state, QoriSize roiSize, int32_t winSize, int32_t hint));
QORAPI(QorStatus, qoriOpticalFlowPyrLKInitAlloc_32f_C1R,
       (QoriOptFlowState * *state, QoriSize roiSize, int32_t winSize, int32_t hint));
/**@}*/

/** Releases a state. Statuses: qorStatusNullPtr (state). */
/**@{*/
QORAPI(QorStatus, qoriOpticalFlowPyrLKFree_8u_C1R, (QoriOptFlowState * state));
QORAPI(QorStatus, qoriOpticalFlowPyrLKFree_16u_C1R, (QoriOptFlowState * state));
QORAPI(QorStatus, qoriOpticalFlowPyrLKFree_32f_C1R, (QoriOptFlowState * state));
/**@}*/

/**
 * Tracks points from the image of `pyr1` to that of `pyr2`: at each level from `maxLevel` down to 0 a window about the
 * point is moved by Newton steps until the two images agree in it best. The pyramids have the element type of the
 * function, the same sizes and the same scales (those of `pyr1` count).
 *
 * `prevPts` are the points in the first image, `nextPts` the guesses for the second (often a copy of `prevPts`), which
 * the results replace; both in pixels of level 0. A level ends when a step is shorter than `threshold` pixels, when two
 * steps cancel each other, or after `maxIter` steps. Only what the windows have inside both images counts.
 *
 * `status[i]` becomes 0 for a tracked point; otherwise the point was lost at level status[i] - 1, because its window
 * left the image or shows no texture, and nextPts[i] is the position at which it was lost. `error[i]` is the root mean
 * square difference of the two windows (their last row and column left out) in the last level that saw the point.
 *
 * Points are shared out among as many threads as the state has memory for; results do not depend on it. One call at a
 * time may use a state.
 *
 * Statuses: qorStatusNullPtr (any pointer, or an array of a pyramid); qorStatusBadSize (numPoints or winSize below 1,
 * or winSize not that of the state); qorStatusBadArg (maxLevel negative or beyond the last level of a pyramid, maxIter
 * below 1, threshold negative).
 *
 * After B. D. Lucas and T. Kanade, "An iterative image registration technique with an application to stereo vision",
 * International Joint Conference on Artificial Intelligence (1981).
 */
/**@{*/
QORAPI(QorStatus, qoriOpticalFlowPyrLK_8u_C1R,
       (const QoriPyramid* pyr1, const QoriPyramid* pyr2, const QoriPoint_32f* prevPts, QoriPoint_32f* nextPts,
        uint8_t* status, float* error, int32_t numPoints, int32_t winSize, int32_t maxLevel, int32_t maxIter,
        float threshold, QoriOptFlowState* state));
QORAPI(QorStatus, qoriOpticalFlowPyrLK_16u_C1R,
       (const QoriPyramid* pyr1, const QoriPyramid* pyr2, const QoriPoint_32f* prevPts, QoriPoint_32f* nextPts,
        uint8_t* status, float* error, int32_t numPoints, int32_t winSize, int32_t maxLevel, int32_t maxIter,
        float threshold, QoriOptFlowState* state));
QORAPI(QorStatus, qoriOpticalFlowPyrLK_32f_C1R,
       (const QoriPyramid* pyr1, const QoriPyramid* pyr2, const QoriPoint_32f* prevPts, QoriPoint_32f* nextPts,
        uint8_t* status, float* error, int32_t numPoints, int32_t winSize, int32_t maxLevel, int32_t maxIter,
        float threshold, QoriOptFlowState* state));
/**@}*/

/** What qoriForegroundGaussian_* has learnt of a scene; opaque. */
typedef struct QoriFGGaussianState_8u QoriFGGaussianState_8u;

/**
 * Makes a background model of a scene seen by a fixed camera, stored in `state`. `src` is the first frame; later frames
 * have the same size and the same channels. For each pixel the model keeps five Gaussian components with weights.
 * `model` must not be null and is not read. Released by qoriForegroundGaussianFree_*. A pixel takes 170 bytes (C1) or
 * 332 (C3).
 *
 * Statuses: qorStatusNullPtr (src, model, state); qorStatusBadSize; qorStatusBadStep (srcStep); qorStatusNoMemory, with
 * `*state` as it was.
 */
/**@{*/
QORAPI(QorStatus, qoriForegroundGaussianInitAlloc_8u_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, const void* model, QoriFGGaussianState_8u** state));
QORAPI(QorStatus, qoriForegroundGaussianInitAlloc_8u_C3R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, const void* model, QoriFGGaussianState_8u** state));
/**@}*/

/** Releases a model. Statuses: qorStatusNullPtr (state). */
/**@{*/
QORAPI(QorStatus, qoriForegroundGaussianFree_8u_C1R, (QoriFGGaussianState_8u * state));
QORAPI(QorStatus, qoriForegroundGaussianFree_8u_C3R, (QoriFGGaussianState_8u * state));
/**@}*/

/**
 * Teaches the model the next frame and tells what it makes of it: in `ref` the background, with the channels of `src`,
 * and in `dst` a mask of one channel, 255 where the frame shows something else and 0 where it shows the background.
 *
 * A pixel belongs to the first component whose mean is less than 2.5 deviations away; the component then moves towards
 * the pixel. One that belongs to none starts a component of its own in place of the last. Components stand in the order
 * of weight over deviation. The first gives the background pixel; the first few, up to a total weight of 0.7 and the
 * one that passes it, count as background. Frame 200 alone is learnt at a rate of 1/200; all others weigh the same.
 *
 * The order may change while a frame is learnt. The mask is decided by the place that the component had before, with
 * the weights of the places afterwards. A component not yet in use has a mean of 0: pixels darker than 9 (C1) match it.
 *
 * `ref` and `dst` may be `src`. A call that fails is no frame. Call it with the size that the model was made for; a
 * smaller region takes the pixels of the model one after the other, whatever their place was.
 *
 * Statuses: qorStatusNullPtr (src, ref, dst, state); qorStatusBadSize (also a width or height above that of the model;
 * a model of the other number of channels); qorStatusBadStep (srcStep only).
 */
/**@{*/
QORAPI(QorStatus, qoriForegroundGaussian_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* ref, int32_t refStep, uint8_t* dst, int32_t dstStep,
        QoriSize roiSize, QoriFGGaussianState_8u* state));
QORAPI(QorStatus, qoriForegroundGaussian_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* ref, int32_t refStep, uint8_t* dst, int32_t dstStep,
        QoriSize roiSize, QoriFGGaussianState_8u* state));
/**@}*/

/** What qoriForegroundHistogram_* has learnt of a scene; opaque. */
typedef struct QoriFGHistogramState_8u QoriFGHistogramState_8u;

/**
 * Makes a background model of a scene that may itself move, as leaves or water do, stored in `state`. `src` is the
 * first frame; later frames have the same size and the same channels. For each pixel the model learns two small tables
 * with probabilities: single values, of the time when the pixel did not change from frame to frame, and pairs of values
 * (before, after), of the time when it did. `model` must not be null and is not read. Released by
 * qoriForegroundHistogramFree_*. A pixel takes 976 bytes (C1) or 980 (C3).
 *
 * Statuses: qorStatusNullPtr (src, model, state); qorStatusBadSize; qorStatusBadStep (srcStep); qorStatusNoMemory, with
 * `*state` as it was.
 */
/**@{*/
QORAPI(QorStatus, qoriForegroundHistogramInitAlloc_8u_C1R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, const void* model, QoriFGHistogramState_8u** state));
QORAPI(QorStatus, qoriForegroundHistogramInitAlloc_8u_C3R,
       (const uint8_t* src, int32_t srcStep, QoriSize roiSize, const void* model, QoriFGHistogramState_8u** state));
/**@}*/

/** Releases a model. Statuses: qorStatusNullPtr (state). */
/**@{*/
QORAPI(QorStatus, qoriForegroundHistogramFree_8u_C1R, (QoriFGHistogramState_8u * state));
QORAPI(QorStatus, qoriForegroundHistogramFree_8u_C3R, (QoriFGHistogramState_8u * state));
/**@}*/

/**
 * Decides for each pixel of a frame whether it is foreground (255 in the mask `dst`) or background (0).
 *
 * Two thresholds, found in the frame itself, tell which pixels changed from the previous frame and which differ from
 * the background image; only the first channel counts. A pixel that did neither is background. For one that changed
 * from the previous frame the table of pairs decides, and as long as it has too little training the answer is
 * foreground; otherwise the table of values decides, and as long as it has too little training the answer is
 * background. To be called once a frame, before qoriForegroundHistogramUpdate_*.
 *
 * The C1 form compares a pixel and the two pixels that follow it in memory, so it may read up to two bytes past each
 * row of the region, the last row too: the image must have them. `dst` must not share memory with `src`.
 *
 * Statuses: qorStatusNullPtr (src, dst, state); qorStatusBadSize (also a width or height above that of the model; a
 * smaller region is the model's top left part); qorStatusBadStep (srcStep only).
 */
/**@{*/
QORAPI(QorStatus, qoriForegroundHistogram_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize,
        QoriFGHistogramState_8u* state));
QORAPI(QorStatus, qoriForegroundHistogram_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize,
        QoriFGHistogramState_8u* state));
/**@}*/

/**
 * Teaches the model a frame, after qoriForegroundHistogram_* has seen the same one. `mask` tells which pixels are
 * foreground (not 0): usually what that call decided, perhaps cleaned. Background pixels also renew the background
 * image, at once where the pixel changed or differs from it, slowly elsewhere. The background image is copied to `ref`,
 * which has the channels of `src`. A mask that no frame has set counts as unchanged.
 *
 * Statuses: qorStatusNullPtr (src, mask, ref, state); qorStatusBadSize (also a width or height above that of the model;
 * a smaller region is the model's top left part); qorStatusBadStep (srcStep only).
 */
/**@{*/
QORAPI(QorStatus, qoriForegroundHistogramUpdate_8u_C1R,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, uint8_t* ref, int32_t refStep,
        QoriSize roiSize, QoriFGHistogramState_8u* state));
QORAPI(QorStatus, qoriForegroundHistogramUpdate_8u_C3R,
       (const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, uint8_t* ref, int32_t refStep,
        QoriSize roiSize, QoriFGHistogramState_8u* state));
/**@}*/
