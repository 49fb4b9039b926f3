// A detection stage of upright and tilted features, applied to all windows that are still alive.
//
// Each classifier picks its plane, so corners are turned into addresses where they are needed, and nothing is
// allocated.
//
// Odd: the 32s form wraps its products in 32 bits, but adds them up in 64; its scale counts by the low six bits.
#include "detect/stage.h"
#include "detect/stage_rows.h"
#include "frame/frame.h"

namespace {

// One of the two planes at a window: the cell that features are relative to, and the cells from row to row.
template <class Cell>
struct PlaneAt {
  const Cell* origin;
  ptrdiff_t rowLength;
};

}  // namespace

template <class T>
static inline bool isTilted(const QoriHaarWeakClassifier<T>& classifier) {
  return classifier.indexAndTilt & 1;
}

// The cells at the corners of a feature.
template <class T, class Cell, class Cells>
static inline void corners(const Block& block, const PlaneAt<Cell>& plane, const QoriHaarFeature<T>& feature, Cells& a,
                           Cells& b, Cells& c, Cells& d) {
  a = block.cells(plane.origin + (feature.ay * plane.rowLength + feature.ax));
  b = block.cells(plane.origin + (feature.by * plane.rowLength + feature.bx));
  c = block.cells(plane.origin + (feature.cy * plane.rowLength + feature.cx));
  d = block.cells(plane.origin + (feature.dy * plane.rowLength + feature.dx));
}

static inline BlockFloats sumOf(const Block& block, const PlaneAt<float>& plane,
                                const QoriHaarFeature<float>& feature) {
  BlockFloats a, b, c, d;
  corners(block, plane, feature, a, b, c, d);
  return ((a - b) - c) + d;
}

static inline BlockFloats sumOf(const Block& block, const PlaneAt<int32_t>& plane,
                                const QoriHaarFeature<float>& feature) {
  BlockInts a, b, c, d;
  corners(block, plane, feature, a, b, c, d);
  return toFloats((a - b) + (d - c));
}

// A bit for each window of the block whose total is below the threshold.
template <class Cell>
static inline uint32_t failingOf(const Block& block, const PlaneAt<Cell>& src, const PlaneAt<Cell>& tilt,
                                 const float* norm, const QoriHaarClassifier_32f& stage, float threshold, int32_t) {
  const BlockFloats n = block.cells(norm);
  BlockFloats total = inBlock(0.0f);
  for (int32_t k = 0; k < stage.classifierCount; ++k) {
    const QoriHaarWeakClassifier<float>& classifier = stage.classifiers[k];
    const PlaneAt<Cell> plane = isTilted(classifier) ? tilt : src;
    BlockFloats s = inBlock(0.0f);
    for (int32_t f = 0; f < classifier.featureCount; ++f) {
      const QoriHaarFeature<float>& feature = classifier.features[f];
      s = s + sumOf(block, plane, feature) * inBlock(feature.weight);
    }
    total = total + (inBlock(classifier.threshold) * n > s ? inBlock(classifier.val1) : inBlock(classifier.val2));
  }
  return bitsOf(inBlock(threshold) > total);
}

static inline uint32_t failingOf(const Block& block, const PlaneAt<int32_t>& src, const PlaneAt<int32_t>& tilt,
                                 const int32_t* norm, const QoriHaarClassifier_32s& stage, int32_t threshold,
                                 int32_t scaleFactor) {
  const BlockInts n = block.cells(norm);
  const BlockLongs lowNorm = lowHalf(n), highNorm = highHalf(n);
  const int64_t shift = -scaleFactor & 63;
  // Totals are wanted modulo 2^32 only.
  BlockLongs lowTotal = inHalf(0), highTotal = inHalf(0);
  for (int32_t k = 0; k < stage.classifierCount; ++k) {
    const QoriHaarWeakClassifier<int32_t>& classifier = stage.classifiers[k];
    const PlaneAt<int32_t> plane = isTilted(classifier) ? tilt : src;
    BlockLongs low = inHalf(0), high = inHalf(0);
    for (int32_t f = 0; f < classifier.featureCount; ++f) {
      const QoriHaarFeature<int32_t>& feature = classifier.features[f];
      BlockInts a, b, c, d;
      corners(block, plane, feature, a, b, c, d);
      const BlockInts product = ((a - b) - (c - d)) * inBlock(feature.weight);
      low = low + lowHalf(product);
      high = high + highHalf(product);
    }
    const BlockLongs least = inHalf(classifier.threshold), val1 = inHalf(classifier.val1),
                     val2 = inHalf(classifier.val2);
    lowTotal = lowTotal + ((low << shift) < least * lowNorm ? val1 : val2);
    highTotal = highTotal + ((high << shift) < least * highNorm ? val1 : val2);
  }
  int64_t totals[2 * blockLanes];
  storeHalf(totals, lowTotal);
  storeHalf(totals + blockLanes / blockHalves, highTotal);
  uint32_t failing = 0;
  for (int32_t i = 0; i < blockLanes; ++i) failing |= uint32_t(int32_t(totals[i]) < threshold) << i;
  return failing;
}

template <class Cell, class Norm, class T>
static QorStatus applyMixed(const Cell* src, int32_t srcStep, const Cell* tilt, int32_t tiltStep, const Norm* norm,
                            int32_t normStep, uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t* positive,
                            T threshold, const Stage<T>* state, int32_t scaleFactor) {
  if (anyNull(src, tilt, norm, mask, positive, state)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<Cell>(srcStep, roiSize) || shortStep<Cell>(tiltStep, roiSize) || shortStep<Norm>(normStep, roiSize) ||
      shortStep<uint8_t>(maskStep, roiSize)) {
    return qorStatusBadStep;
  }
  if (misaligned<Cell>(srcStep | tiltStep | normStep)) return qorStatusBadStepAlign;
  if (scaleFactor > 0) return qorStatusBadArg;
  int32_t survivors = 0;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const PlaneAt<Cell> srcRow = {rowAt(src, srcStep, y), srcStep / 4};
    const PlaneAt<Cell> tiltRow = {rowAt(tilt, tiltStep, ptrdiff_t(y) + 1) + 1, tiltStep / 4};
    const Norm* norms = rowAt(norm, normStep, y);
    survivors += clearFailing(rowAt(mask, maskStep, y), roiSize.width, [=](const Block& block, ptrdiff_t x) {
      const PlaneAt<Cell> srcHere = {srcRow.origin + x, srcRow.rowLength};
      const PlaneAt<Cell> tiltHere = {tiltRow.origin + x, tiltRow.rowLength};
      return failingOf(block, srcHere, tiltHere, norms + x, *state, threshold, scaleFactor);
    });
  }
  *positive = survivors;
  return qorStatusOk;
}

QorStatus qoriApplyMixedHaarClassifier_32f_C1R(const float* src, int32_t srcStep, const float* tilt, int32_t tiltStep,
                                               const float* norm, int32_t normStep, uint8_t* mask, int32_t maskStep,
                                               QoriSize roiSize, int32_t* positive, float threshold,
                                               const QoriHaarClassifier_32f* state) {
  return applyMixed(src, srcStep, tilt, tiltStep, norm, normStep, mask, maskStep, roiSize, positive, threshold, state,
                    0);
}

QorStatus qoriApplyMixedHaarClassifier_32s32f_C1R(const int32_t* src, int32_t srcStep, const int32_t* tilt,
                                                  int32_t tiltStep, const float* norm, int32_t normStep, uint8_t* mask,
                                                  int32_t maskStep, QoriSize roiSize, int32_t* positive,
                                                  float threshold, const QoriHaarClassifier_32f* state) {
  return applyMixed(src, srcStep, tilt, tiltStep, norm, normStep, mask, maskStep, roiSize, positive, threshold, state,
                    0);
}

QorStatus qoriApplyMixedHaarClassifier_32s_C1RSfs(const int32_t* src, int32_t srcStep, const int32_t* tilt,
                                                  int32_t tiltStep, const int32_t* norm, int32_t normStep,
                                                  uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t* positive,
                                                  int32_t threshold, const QoriHaarClassifier_32s* state,
                                                  int32_t scaleFactor) {
  return applyMixed(src, srcStep, tilt, tiltStep, norm, normStep, mask, maskStep, roiSize, positive, threshold, state,
                    scaleFactor);
}
