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
