/* Types, selectors and status codes that all functions share. */
#ifndef QORCVMX_TYPES_H
#define QORCVMX_TYPES_H

#include <stdint.h>

/**
 * Result of every function but qorcvGetLibVersion(). Zero is success. Negative values are errors: nothing has been
 * written, unless a function says otherwise. Positive values are warnings: the result has been written.
 */
typedef int32_t QorStatus;

enum {
  qorStatusOk = 0,                  /**< success */
  qorStatusZeroDenominator = 6,     /**< warning: the denominator of a relative norm was zero */
  qorStatusWarnSizeOverflow = 12,   /**< warning: the size exceeded 2147483647, the truncated value was stored */
  qorStatusWarnLinesTruncated = 33, /**< warning: more lines were found than there was room for */
  qorStatusKernelNotSymmetric = 38, /**< warning: the first half of the kernel was used for both halves */
  qorStatusOverflow = -2,           /**< a computed point count came out negative */
  qorStatusBadArg = -5,             /**< a value outside its allowed set or range */
  qorStatusBadSize = -6,            /**< a region, kernel or buffer size below its minimum */
  qorStatusBadRange = -7,           /**< an interval with its upper bound below its lower bound */
  qorStatusNullPtr = -8,            /**< a required pointer is null */
  qorStatusNoMemory = -9,           /**< an allocation failed */
  qorStatusOutOfRange = -11,        /**< a point outside the image, a negative tolerance or duration */
  qorStatusBadDataType = -12,       /**< a QorDataType that the function does not take */
  qorStatusBadStep = -14,           /**< a row step shorter than a row */
  qorStatusBadMask = -33,           /**< a mask size or mask content that is not allowed */
  qorStatusBadAnchor = -34,         /**< an anchor outside the mask or kernel */
  qorStatusBadCoi = -52,            /**< a channel of interest other than 1, 2 or 3 */
  qorStatusBadChannels = -53,       /**< a channel count other than 1 or 3 */
  qorStatusBadMetric = -56,         /**< distance metrics that are not positive or not ordered */
  qorStatusBadStepAlign = -108,     /**< a row step that is not a multiple of the element size */
  qorStatusUnsupported = -9999      /**< an internal operation code is not allowed; no exported function returns it */
};

/** Element type as a run-time argument. No function takes another value than these four. */
typedef int32_t QorDataType;

enum {
  qor8u = 1,  /**< unsigned 8-bit integer */
  qor8s = 3,  /**< signed 8-bit integer */
  qor16u = 5, /**< unsigned 16-bit integer */
  qor32f = 13 /**< 32-bit float */
};

/** Size of a region in pixels, whatever the number of channels. */
typedef struct {
  int32_t width;
  int32_t height;
} QoriSize;

/** Position of a pixel: column, then row. */
typedef struct {
  int32_t x;
  int32_t y;
} QoriPoint;

/** Position between pixels: column, then row. */
typedef struct {
  float x;
  float y;
} QoriPoint_32f;

/** A line in its normal form: distance from the origin in pixels, and angle of the normal in radians. */
typedef struct {
  float rho;
  float theta;
} QoriPointPolar;

/** Upright rectangle in pixels: left column, top row, size. */
typedef struct {
  int32_t x;
  int32_t y;
  int32_t width;
  int32_t height;
} QoriRect;

/** Treatment of the pixels beyond the edges of an image. Some filters take two flags beside the mode. */
typedef int32_t QoriBorderType;

enum {
  qorBorderConst = 0,      /**< every pixel outside is a given constant */
  qorBorderReplicate = 1,  /**< the edge pixel continues: aaa|abcd|ddd */
  qorBorderWrap = 2,       /**< the image repeats: bcd|abcd|abc */
  qorBorderMirror = 3,     /**< reflection about the edge pixel: dcb|abcd|cba; a width of 1 acts as MirrorEdge */
  qorBorderMirrorEdge = 4, /**< reflection that repeats the edge pixel: cba|abcd|dcb */
  qorBorderRowsAbove = 16, /**< flag: the rows above the region are real rows in memory, `step` bytes apart */
  qorBorderRowsBelow = 32  /**< flag: the rows below the region are real rows in memory, `step` bytes apart */
};

/** Size of a fixed kernel, as the two decimal digits of its width and height. */
typedef int32_t QoriMaskSelector;

enum {
  qorMaskSize3x3 = 33, /**< 3 by 3 */
  qorMaskSize5x5 = 55  /**< 5 by 5 */
};

/** Neighbourhood of a pixel, passed as int32_t. Each function says which of them it takes. */
enum {
  qorNormInf = 0, /**< the 8 pixels around it */
  qorNormL1 = 1,  /**< the 4 pixels beside, above and below it */
  qorNormL2 = 2,  /**< the 8 pixels, at their Euclidean distances */
  qorNormFM = 3   /**< as fast marching has it */
};

/**
 * A pyramid: the sizes and scales of its levels, with room for the caller's images. The caller fills in `levelImages`
 * and `levelSteps` (both zeroed by qoriPyramidInitAlloc()) and owns the images; each array has `topLevel` + 1 entries.
 */
typedef struct {
  void** levelImages;   /**< first pixel of each level */
  QoriSize* levelSizes; /**< size of each level in pixels; level 0 is the whole image */
  double* levelRates;   /**< scale of each level against level 0: 1, 1 / rate, 1 / rate^2, ... */
  int32_t* levelSteps;  /**< row step of each level in bytes */
  void* layerState;     /**< free for the caller's layer state; null at first */
  int32_t topLevel;     /**< index of the last level */
} QoriPyramid;

/** Version record of the library, see qorcvGetLibVersion(). */
typedef struct {
  int32_t major;
  int32_t minor;
  int32_t buildMajor;
  int32_t buildNumber;
  char target[4]; /**< zero-padded */
  const char* libraryName;
  const char* versionText;
  const char* buildDate;
} QorLibraryVersion;

#endif
