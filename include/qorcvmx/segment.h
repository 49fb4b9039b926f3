/* Segmentation. Included by qorcvmx.h. */

/* --- marker labels and segment bounds --- */

/**
 * Scratch size in bytes of qoriLabelMarkers_* for an image of `roiSize` pixels, stored in `bufferSize`: that of
 * qoriFloodFillGetSize().
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize.
 */
/**@{*/
QORAPI(QorStatus, qoriLabelMarkersGetBufferSize_8u_C1R, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriLabelMarkersGetBufferSize_16u_C1R, (QoriSize roiSize, int32_t* bufferSize));
/**@}*/

/**
 * Gives each connected region of non-zero pixels a label of its own, for instance as markers for a watershed. The
 * regions are numbered from `minLabel` in the order of their first pixels, row by row; after `maxLabel` the numbers
 * start at `minLabel` again, so several regions may share one. `markersNum` gets the number of regions. Pixels are
 * connected to their 4 neighbours (`norm` qorNormL1) or to 8 (qorNormInf).
 *
 * `buffer` has the size that the GetBufferSize function reports. Never threaded.
 *
 * Statuses: qorStatusNullPtr (srcDst, buffer, markersNum); qorStatusBadSize; qorStatusBadStep; qorStatusBadStepAlign;
 * qorStatusBadArg (labels that are not 1 <= minLabel <= maxLabel < 255, or 65535 in the 16u form; norm).
 */
/**@{*/
QORAPI(QorStatus, qoriLabelMarkers_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, int32_t minLabel, int32_t maxLabel, int32_t norm,
        int32_t* markersNum, uint8_t* buffer));
QORAPI(QorStatus, qoriLabelMarkers_16u_C1IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, int32_t minLabel, int32_t maxLabel, int32_t norm,
        int32_t* markersNum, uint8_t* buffer));
/**@}*/

/**
 * Draws lines of `borderValue`, one pixel wide, between areas of different values. Pixels are visited row by row, in
 * place: one becomes `borderValue` where the pixel above it or the one on its left is neither of its own value nor
 * `borderValue`; with `norm` qorNormInf instead of qorNormL1 the two diagonal pixels above it count too. A pixel just
 * marked no longer counts for its neighbours. The first row looks to the left only, and in an image one pixel wide
 * `norm` is qorNormL1.
 *
 * Threads are used only from inside a parallel region of the caller's that may open further ones: the first row of
 * each thread then sees the row above as it was before.
 *
 * Statuses: qorStatusNullPtr (srcDst); qorStatusBadSize; qorStatusBadStep; qorStatusBadStepAlign; qorStatusBadArg
 * (norm).
 */
/**@{*/
QORAPI(QorStatus, qoriBoundSegments_8u_C1IR,
       (uint8_t * srcDst, int32_t srcDstStep, QoriSize roiSize, uint8_t borderValue, int32_t norm));
QORAPI(QorStatus, qoriBoundSegments_16u_C1IR,
       (uint16_t * srcDst, int32_t srcDstStep, QoriSize roiSize, uint16_t borderValue, int32_t norm));
/**@}*/

/* --- watershed --- */

/** Options of the watershed and of the gradient segmentation, to be added up. */
enum {
  qorSegmentQueue = 1,    /**< flood from a queue; wins over qorSegmentDistance */
  qorSegmentDistance = 2, /**< flood in sweeps that also measure distances */
  qorSegmentBorder4 = 64, /**< mark the borders between segments, among 4 neighbours; wins over qorSegmentBorder8 */
  qorSegmentBorder8 = 128 /**< mark the borders between segments, among 8 neighbours */
};

/**
 * Scratch size in bytes of qoriSegmentWatershed_* for an image of `roiSize` pixels, stored in `bufferSize`. It suffices
 * for every norm and option.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize. A size beyond 2147483647 wraps without a status.
 */
/**@{*/
QORAPI(QorStatus, qoriSegmentWatershedGetBufferSize_8u_C1R, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriSegmentWatershedGetBufferSize_8u16u_C1R, (QoriSize roiSize, int32_t* bufferSize));
/**@}*/

/**
 * Watershed from markers: the labels in `markers` (non-zero; 0 is unlabelled) grow over the relief `src`, lowest pixels
 * first, until every pixel has one. `src` is only read.
 *
 * With qorSegmentQueue in `flag` the pixels wait in one queue a grey level, first in, first out; `watershedNorm` is
 * qorNormL1 (4 neighbours) or qorNormInf (8). With qorSegmentBorder4 or qorSegmentBorder8 a pixel that meets two labels
 * becomes a border; of both options together, markers that touch count as 8-connected and all else as 4-connected.
 *
 * With qorSegmentDistance (and not qorSegmentQueue) sweeps over the image find for each pixel the path from a marker
 * that has the lowest summit, and of those the shortest; `watershedNorm` says how distances are measured: qorNormL1 and
 * qorNormInf in steps, qorNormL2 with 10 and 14 for straight and diagonal steps, qorNormFM as fast marching does. The
 * borders are drawn at the end, on the side of the more distant pixel. Threads are used from 16 rows and 512 pixels on;
 * where two labels reach a pixel at the same cost, their number may decide which one it gets. Distances beyond 23 bits
 * spill into the levels.
 *
 * The label of borders is 255, or 65535 in the 8u16u form; a marker of that label floods like any other, but is not a
 * region. In an image one pixel wide every norm of the sweeps is qorNormL1. `buffer` has the size that the
 * GetBufferSize function reports.
 *
 * Statuses: qorStatusNullPtr (src, markers, buffer); qorStatusBadSize; qorStatusBadStep (srcStep, markerStep);
 * qorStatusBadStepAlign (markerStep); qorStatusBadArg (flag without an engine; watershedNorm).
 *
 * After L. Vincent and P. Soille, "Watersheds in digital spaces: an efficient algorithm based on immersion
 * simulations", IEEE Transactions on Pattern Analysis and Machine Intelligence 13 (1991).
 */
/**@{*/
QORAPI(QorStatus, qoriSegmentWatershed_8u_C1IR,
       (const uint8_t* src, int32_t srcStep, uint8_t* markers, int32_t markerStep, QoriSize roiSize,
        int32_t watershedNorm, int32_t flag, uint8_t* buffer));
QORAPI(QorStatus, qoriSegmentWatershed_8u16u_C1IR,
       (const uint8_t* src, int32_t srcStep, uint16_t* markers, int32_t markerStep, QoriSize roiSize,
        int32_t watershedNorm, int32_t flag, uint8_t* buffer));
/**@}*/

/* --- gradient segmentation --- */

/**
 * Scratch size in bytes of qoriSegmentGradient_* for an image of `roiSize` pixels, stored in `bufferSize`.
 *
 * Statuses: qorStatusNullPtr (bufferSize); qorStatusBadSize. A size beyond 2147483647 wraps without a status.
 */
/**@{*/
QORAPI(QorStatus, qoriSegmentGradientGetBufferSize_8u_C1R, (QoriSize roiSize, int32_t* bufferSize));
QORAPI(QorStatus, qoriSegmentGradientGetBufferSize_8u_C3R, (QoriSize roiSize, int32_t* bufferSize));
/**@}*/

/**
 * Grows the labels 1 to 254 in `markers` over the image: the pixel that differs least from a labelled neighbour comes
 * next, and takes the label of the neighbour it is most similar to. Pixels of three channels differ by the largest
 * difference of a channel. `watershedNorm` is qorNormL1 (4 neighbours) or qorNormInf (8). With qorSegmentBorder4 or
 * qorSegmentBorder8 in `flag` a pixel that meets another region's label becomes a border, label 254; with both,
 * neighbours are those of qorSegmentBorder8. Other options are not looked at.
 *
 * The outermost pixels of `markers` come out as 255 and take no part. A pixel that no label reaches stays 0. Where
 * nothing can grow, `markers` stays as it is, outermost pixels included. `src` is only read. `buffer` has the size that
 * the GetBufferSize function reports. Never threaded.
 *
 * Statuses: qorStatusNullPtr (src, markers, buffer); qorStatusBadSize; qorStatusBadStep (srcStep, markerStep);
 * qorStatusBadArg (watershedNorm).
 *
 * After F. Meyer, "Color image segmentation", International Conference on Image Processing and its Applications (1992).
 */
/**@{*/
QORAPI(QorStatus, qoriSegmentGradient_8u_C1IR,
       (const uint8_t* src, int32_t srcStep, uint8_t* markers, int32_t markerStep, QoriSize roiSize,
        int32_t watershedNorm, int32_t flag, uint8_t* buffer));
QORAPI(QorStatus, qoriSegmentGradient_8u_C3IR,
       (const uint8_t* src, int32_t srcStep, uint8_t* markers, int32_t markerStep, QoriSize roiSize,
        int32_t watershedNorm, int32_t flag, uint8_t* buffer));
/**@}*/
