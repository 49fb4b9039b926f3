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

/* --- gaussian background model --- */

/* --- histogram background model --- */
