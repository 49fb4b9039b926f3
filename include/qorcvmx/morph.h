/* Morphology. Included by qorcvmx.h. */

/* --- structuring elements, dilation and erosion --- */

/**
 * What is known of a structuring element's shape; part of QoriMorphState. The arrays are there for an ellipse only.
 *
 * The records of this header may be read, never changed. One that lies at an odd address, because the caller's block
 * does, has to be copied before its fields are read.
 */
typedef struct {
  int32_t width, height;    /**< bounding box of the set taps; 1 by 1 for an empty element */
  int32_t anchorX, anchorY; /**< anchor in that box; may lie outside it for a rectangle, also below 0 */
  int32_t rowCount;         /**< rows with any set tap */
  int32_t runCount;         /**< distinct lengths of runs among them */
  int32_t* rowIndex;        /**< rowCount row numbers, from the top of the box */
  int32_t* rowRun;          /**< rowCount indices into the run arrays */
  int32_t* runLength;       /**< runCount lengths, descending */
  int32_t* runAnchor;       /**< runCount places of the anchor's column in a run */
} QoriMorphShape;

/** QoriMorphState::kind: how an element is worked on. */
enum {
  qorMorphGeneral = 0,   /**< tap by tap */
  qorMorphRectangle = 1, /**< all taps of a box are set, and none outside it */
  qorMorphEllipse = 2,   /**< a run a row, all with the anchor's column, equal lengths placed equally */
  qorMorphEmpty = 3      /**< no tap is set: the image is copied */
};

/**
 * State of dilation and erosion: a structuring element, its analysis and scratch memory, all in one block (but for the
 * `shape` of an empty element, a constant of the library's). Built by qoriMorphologyInit_* or
 * qoriMorphologyInitAlloc_*. Since calls write to `work`, two calls must not use one state at the same time.
 */
typedef struct {
  uint8_t* maskData;             /**< copy of the element's bytes, row by row */
  uint8_t* maskErode;            /**< maskData for a general element, else null */
  uint8_t* maskDilate;           /**< the same */
  void* work;                    /**< scratch; null for an empty element */
  QoriMorphShape* shape;         /**< null for a general element; a rectangle's has no arrays, nor room for them:
                                      of its fields only those up to rowIndex may be read */
  int32_t maskWidth, maskHeight; /**< the bounding box for rectangle and ellipse, else the size given */
  int32_t anchorX, anchorY;      /**< anchor in the rectangle of that size; may lie outside */
  int32_t rightExtent;           /**< general: maskWidth - anchorX - 1, else 0 */
  int32_t bottomExtent;          /**< general: maskHeight - anchorY - 1, else 0 */
  int32_t paddedStride;          /**< general: bytes of a padded row in `work`, else 0 */
  int32_t stateSize;             /**< bytes of the block */
  QorDataType dataType;          /**< qor8u or qor32f */
  int32_t channels;              /**< 1, 3 or 4 */
  int32_t roiWidth;              /**< width of the widest region to work on */
  int32_t reserved;              /**< -1 */
  int32_t kind;                  /**< qorMorphGeneral, ... */
} QoriMorphState;

/**
 * Bytes that a state needs for regions of up to `roiWidth` pixels and the structuring element `mask`, stored in `size`.
 * `mask` has maskSize.width * maskSize.height bytes, row by row without gaps; every byte but 0 is a set tap.
 *
 * The element is looked at with its anchor in the centre (half its width and height, rounded down). With another anchor
 * it can be of another kind, whose state is larger or smaller: a caller with such an anchor and a block of its own must
 * leave room for the kind that qoriMorphologyInit_* will find.
 *
 * Statuses: qorStatusNullPtr (mask); qorStatusBadSize (roiWidth, maskSize); qorStatusNoMemory; qorStatusNullPtr (size).
 * A size beyond 2147483647 wraps without a status.
 */
/**@{*/
QORAPI(QorStatus, qoriMorphologyGetSize_8u_C1R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphologyGetSize_8u_C3R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphologyGetSize_8u_C4R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphologyGetSize_32f_C1R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphologyGetSize_32f_C3R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphologyGetSize_32f_C4R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, int32_t* size));
/**@}*/

/**
 * Builds a state in the caller's block `state`, which may lie at any address. `mask` is copied and may go after the
 * call. Memory is allocated during the call and freed before it returns.
 *
 * Statuses: qorStatusNullPtr (mask); qorStatusBadSize (roiWidth, maskSize); qorStatusBadAnchor (anchor outside
 * maskSize); qorStatusNoMemory; qorStatusNullPtr (state).
 */
/**@{*/
QORAPI(QorStatus, qoriMorphologyInit_8u_C1R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState* state));
QORAPI(QorStatus, qoriMorphologyInit_8u_C3R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState* state));
QORAPI(QorStatus, qoriMorphologyInit_8u_C4R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState* state));
QORAPI(QorStatus, qoriMorphologyInit_32f_C1R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState* state));
QORAPI(QorStatus, qoriMorphologyInit_32f_C3R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState* state));
QORAPI(QorStatus, qoriMorphologyInit_32f_C4R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState* state));
/**@}*/

/**
 * Builds a state in a new block and stores its address in `*state`, which is left alone on failure. The caller gives
 * the block back through qoriMorphologyFree().
 *
 * Statuses: as qoriMorphologyInit_*, and qorStatusNoMemory, last, if there is no memory for the block.
 */
/**@{*/
QORAPI(QorStatus, qoriMorphologyInitAlloc_8u_C1R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState** state));
QORAPI(QorStatus, qoriMorphologyInitAlloc_8u_C3R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState** state));
QORAPI(QorStatus, qoriMorphologyInitAlloc_8u_C4R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState** state));
QORAPI(QorStatus, qoriMorphologyInitAlloc_32f_C1R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState** state));
QORAPI(QorStatus, qoriMorphologyInitAlloc_32f_C3R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState** state));
QORAPI(QorStatus, qoriMorphologyInitAlloc_32f_C4R,
       (int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor, QoriMorphState** state));
/**@}*/

/** Frees a state of any qoriMorphologyInitAlloc_*. Statuses: qorStatusNullPtr (state). */
QORAPI(QorStatus, qoriMorphologyFree, (QoriMorphState * state));

/**
 * Dilation (erosion): each pixel of `dst` is the largest (smallest) of the pixels of `src` under the set taps of the
 * state's element, channel by channel. Pixels outside the region are those of its nearest edge. An empty element copies
 * the image. `dst` and `src` must not overlap.
 *
 * The 32f forms compare plainly; where NaN is involved the result is any of the values. With an element of the general
 * kind a dilation gives at least -3.4028235e38, an erosion at most 3.4028235e38, also where all pixels are infinite.
 *
 * `state` must have been built for the same element type and channels; this is not checked.
 *
 * Statuses: qorStatusNullPtr (src, dst, state); qorStatusBadSize (roiSize); qorStatusBadStep (srcStep, dstStep); for
 * 32f qorStatusBadStepAlign; qorStatusBadArg (borderType is not qorBorderReplicate); qorStatusBadSize (a region wider
 * than the state's roiWidth).
 */
/**@{*/
QORAPI(QorStatus, qoriDilateBorderReplicate_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriDilateBorderReplicate_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriDilateBorderReplicate_8u_C4R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriDilateBorderReplicate_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriDilateBorderReplicate_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriDilateBorderReplicate_32f_C4R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriErodeBorderReplicate_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriErodeBorderReplicate_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriErodeBorderReplicate_8u_C4R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriErodeBorderReplicate_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriErodeBorderReplicate_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
QORAPI(QorStatus, qoriErodeBorderReplicate_32f_C4R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphState* state));
/**@}*/

/* --- compound operations --- */

/**
 * State of the compound operations: a state for the element, one for the element turned by 180 degrees, and a temporary
 * image. Two calls must not use one state at the same time.
 */
typedef struct {
  QoriMorphState* forward;   /**< the element as given */
  QoriMorphState* reflected; /**< the element and its anchor turned by 180 degrees */
  uint8_t* temp;             /**< temporary image */
  int32_t tempSize;          /**< its bytes: height * row, with a row of pixels rounded up to 32 bytes */
  int32_t reserved;          /**< 0 */
} QoriMorphAdvState;

/**
 * Bytes of the block that qoriMorphAdvInit_* needs for regions of `roiSize`, stored in `size`.
 *
 * The figure is for an element whose anchor is in the centre and which may be of the ellipse kind, while
 * qoriMorphAdvInit_* never makes an ellipse of it. Where the kind that it finds needs more (see
 * qoriMorphologyGetSize_*), the caller must bring more: 96 bytes, the temporary image, and two states of that kind.
 *
 * Statuses: qorStatusBadSize (roiSize.height); qorStatusNullPtr (size); then those of qoriMorphologyGetSize_* for a
 * roiWidth of roiSize.width. A size beyond 2147483647 wraps without a status.
 */
/**@{*/
QORAPI(QorStatus, qoriMorphAdvGetSize_8u_C1R,
       (QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphAdvGetSize_8u_C3R,
       (QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphAdvGetSize_8u_C4R,
       (QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphAdvGetSize_32f_C1R,
       (QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphAdvGetSize_32f_C3R,
       (QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphAdvGetSize_32f_C4R,
       (QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, int32_t* size));
/**@}*/

/**
 * Builds a state in the caller's block `state`, which may lie at any address. Elements that qoriMorphAdvInitAlloc_*
 * treats as ellipses are treated as general ones: the results are the same, but not the time they take.
 *
 * Statuses: qorStatusBadSize (roiSize.height); qorStatusNullPtr (state); then those of qoriMorphologyInit_* for a
 * roiWidth of roiSize.width. Of the block, the record at its start is left alone on failure.
 */
/**@{*/
QORAPI(QorStatus, qoriMorphAdvInit_8u_C1R,
       (QoriMorphAdvState * state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInit_8u_C3R,
       (QoriMorphAdvState * state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInit_8u_C4R,
       (QoriMorphAdvState * state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInit_32f_C1R,
       (QoriMorphAdvState * state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInit_32f_C3R,
       (QoriMorphAdvState * state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInit_32f_C4R,
       (QoriMorphAdvState * state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
/**@}*/

/**
 * Builds a state in new memory and stores its address in `*state`, which is left alone on failure. The caller gives it
 * back through qoriMorphAdvFree().
 *
 * Statuses: qorStatusNullPtr (state); those of qoriMorphologyInitAlloc_* for a roiWidth of roiSize.width;
 * qorStatusNoMemory, also for a height below 1, which is not tested before.
 */
/**@{*/
QORAPI(QorStatus, qoriMorphAdvInitAlloc_8u_C1R,
       (QoriMorphAdvState * *state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInitAlloc_8u_C3R,
       (QoriMorphAdvState * *state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInitAlloc_8u_C4R,
       (QoriMorphAdvState * *state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInitAlloc_32f_C1R,
       (QoriMorphAdvState * *state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInitAlloc_32f_C3R,
       (QoriMorphAdvState * *state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphAdvInitAlloc_32f_C4R,
       (QoriMorphAdvState * *state, QoriSize roiSize, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor));
/**@}*/

/** Frees a state of any qoriMorphAdvInitAlloc_*. Statuses: qorStatusNullPtr (state). */
QORAPI(QorStatus, qoriMorphAdvFree, (QoriMorphAdvState * state));

/**
 * Compound operations, from the dilation and the erosion of `src`. The second step of a chain takes the element turned
 * by 180 degrees.
 *
 * - Open: erosion, then dilation. Bright details smaller than the element go.
 * - Close: dilation, then erosion. Dark details smaller than the element go.
 * - Gradient: dilation less erosion.
 * - Tophat: `src` less its opening.
 * - Blackhat: the closing less `src`.
 *
 * Differences below 0 become 0; in the 32f forms -0.0 does too, and a NaN with its sign bit set, while other NaN stay.
 * `dst` and `src` must not overlap.
 *
 * Statuses: qorStatusNullPtr (src, dst, state); qorStatusBadSize (roiSize); qorStatusBadStep (srcStep, dstStep); for
 * 32f qorStatusBadStepAlign; qorStatusBadArg (borderType is not qorBorderReplicate); qorStatusBadSize (a region wider
 * than the state's, then one whose temporary image would have fewer bytes than tempSize). So a region must be as high
 * as the state's; a higher one is not refused, but the temporary image has no room for it.
 */
/**@{*/
QORAPI(QorStatus, qoriMorphOpenBorder_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphOpenBorder_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphOpenBorder_8u_C4R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphOpenBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphOpenBorder_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphOpenBorder_32f_C4R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphCloseBorder_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphCloseBorder_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphCloseBorder_8u_C4R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphCloseBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphCloseBorder_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphCloseBorder_32f_C4R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphGradientBorder_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphGradientBorder_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphGradientBorder_8u_C4R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphGradientBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphGradientBorder_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphGradientBorder_32f_C4R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphTophatBorder_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphTophatBorder_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphTophatBorder_8u_C4R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphTophatBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphTophatBorder_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphTophatBorder_32f_C4R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphBlackhatBorder_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphBlackhatBorder_8u_C3R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphBlackhatBorder_8u_C4R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphBlackhatBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphBlackhatBorder_32f_C3R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
QORAPI(QorStatus, qoriMorphBlackhatBorder_32f_C4R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        QoriMorphAdvState* state));
/**@}*/

/* --- reconstruction and grayscale structuring functions --- */

/**
 * State of the grayscale structuring functions: an element with a value for each tap.
 *
 * One block: this record, and maskWidth * maskHeight taps behind it, row by row, of int32_t for 8u images and of float
 * for 32f ones. It does not change once it is built, so threads may share it; `kernel` points into the block, so it may
 * not be moved.
 */
typedef struct {
  void* kernel;       /**< the taps */
  int32_t maskWidth;  /**< columns of the element */
  int32_t maskHeight; /**< rows of the element */
  int32_t anchorX;    /**< column of the tap that stands on the pixel */
  int32_t anchorY;    /**< its row */
  int32_t roiWidth;   /**< the widest region that the state serves */
  int32_t roiHeight;  /**< the highest one */
} QoriMorphGrayState;

/**
 * Bytes of the state for an element of `maskSize`: maskWidth * maskHeight * 4 + 32, in 32 bits that wrap.
 *
 * Statuses: qorStatusNullPtr (kernel, size); qorStatusBadSize (roiSize, maskSize).
 */
/**@{*/
QORAPI(QorStatus, qoriMorphGrayGetSize_8u_C1R,
       (QoriSize roiSize, const int32_t* kernel, QoriSize maskSize, int32_t* size));
QORAPI(QorStatus, qoriMorphGrayGetSize_32f_C1R,
       (QoriSize roiSize, const float* kernel, QoriSize maskSize, int32_t* size));
/**@}*/

/**
 * Builds a state for regions up to `roiSize` in the caller's memory of the size that GetSize reports, or in memory that
 * InitAlloc allocates. The taps are copied: `kernel` is the caller's own again after the call.
 *
 * Statuses: qorStatusNullPtr (state, kernel); qorStatusBadSize (roiSize, maskSize); qorStatusBadAnchor if `anchor` is
 * outside the element; qorStatusNoMemory (InitAlloc).
 */
/**@{*/
QORAPI(QorStatus, qoriMorphGrayInit_8u_C1R,
       (QoriMorphGrayState * state, QoriSize roiSize, const int32_t* kernel, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphGrayInit_32f_C1R,
       (QoriMorphGrayState * state, QoriSize roiSize, const float* kernel, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphGrayInitAlloc_8u_C1R,
       (QoriMorphGrayState * *state, QoriSize roiSize, const int32_t* kernel, QoriSize maskSize, QoriPoint anchor));
QORAPI(QorStatus, qoriMorphGrayInitAlloc_32f_C1R,
       (QoriMorphGrayState * *state, QoriSize roiSize, const float* kernel, QoriSize maskSize, QoriPoint anchor));
/**@}*/

/**
 * Gives back a state of InitAlloc (and of no other kind).
 *
 * Statuses: qorStatusNullPtr.
 */
/**@{*/
QORAPI(QorStatus, qoriMorphGrayFree_8u_C1R, (QoriMorphGrayState * state));
QORAPI(QorStatus, qoriMorphGrayFree_32f_C1R, (QoriMorphGrayState * state));
/**@}*/

/**
 * Grayscale dilation and erosion: each pixel becomes the maximum (minimum), over all taps of the element, of tap plus
 * pixel under it. Beyond the edges the nearest pixel of the region continues.
 *
 * The element is not reflected, and the erosion adds the taps too: pass negated taps for the textbook's erosion. 8u
 * results are held to 0 .. 255. The functions work in the calling thread; `dst` may not overlap `src`.
 *
 * Statuses: qorStatusNullPtr (src, dst, state); qorStatusBadSize; qorStatusBadStep (srcStep, dstStep);
 * qorStatusBadStepAlign (32f); qorStatusBadArg if `borderType` is not qorBorderReplicate; qorStatusBadSize if the
 * region is wider or higher than those of the state.
 */
/**@{*/
QORAPI(QorStatus, qoriGrayDilateBorder_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        const QoriMorphGrayState* state));
QORAPI(QorStatus, qoriGrayDilateBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        const QoriMorphGrayState* state));
QORAPI(QorStatus, qoriGrayErodeBorder_8u_C1R,
       (const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        const QoriMorphGrayState* state));
QORAPI(QorStatus, qoriGrayErodeBorder_32f_C1R,
       (const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
        const QoriMorphGrayState* state));
/**@}*/

/**
 * Bytes of the buffer of morphological reconstruction: 4 * width + height + 161 for 8u and 16 * width + height + 164
 * for 32f, in 32 bits that wrap.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize.
 */
/**@{*/
QORAPI(QorStatus, qoriMorphReconstructGetBufferSize_8u_C1, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriMorphReconstructGetBufferSize_32f_C1, (QoriSize roiSize, int32_t* bufferSize));
/**@}*/

/**
 * Morphological reconstruction, in place: the marker `srcDst` grows under the mask `src` (dilation) or shrinks over it
 * (erosion) until it stops changing.
 *
 * The result is the fixed point of taking, in each pixel, the maximum (minimum) over the pixel and its neighbours and
 * then clipping it to the mask. `norm` is qorNormInf for the 8 neighbours or qorNormL1 for the 4. A marker beyond the
 * mask is clipped first. No float may be NaN: it counts as a change forever and the call does not end. `buffer` has the
 * size that GetBufferSize reports and needs no alignment. Two threads share regions of at least 11 by 11 pixels.
 *
 * Statuses: qorStatusNullPtr (src, srcDst, buffer); qorStatusBadSize; qorStatusBadStep (srcStep, srcDstStep);
 * qorStatusBadStepAlign (32f); qorStatusBadArg (norm).
 */
/**@{*/
QORAPI(QorStatus, qoriMorphReconstructDilate_8u_C1IR,
       (const uint8_t* src, int32_t srcStep, uint8_t* srcDst, int32_t srcDstStep, QoriSize roiSize, uint8_t* buffer,
        int32_t norm));
QORAPI(QorStatus, qoriMorphReconstructDilate_32f_C1IR,
       (const float* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize, uint8_t* buffer,
        int32_t norm));
QORAPI(QorStatus, qoriMorphReconstructErode_8u_C1IR,
       (const uint8_t* src, int32_t srcStep, uint8_t* srcDst, int32_t srcDstStep, QoriSize roiSize, uint8_t* buffer,
        int32_t norm));
QORAPI(QorStatus, qoriMorphReconstructErode_32f_C1IR,
       (const float* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize, uint8_t* buffer,
        int32_t norm));
/**@}*/
