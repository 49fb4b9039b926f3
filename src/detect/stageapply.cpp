// A detection stage of one kind of features, applied to all windows that are still alive.
//
// The corners of all features become offsets first, which the windows share.
//
// Odd: the offsets wrap in 32 bits. The 32s form scales nothing, and its products wrap. With three features, the 32f
// form adds the first product last.
#include <limits>

#include "detect/stage.h"
#include "detect/stage_rows.h"
#include "frame/frame.h"
#include "frame/kit/vectors.h"

namespace {

// What the members differ in: the types of cells, norms and values, and the order of the sums. Where `grouped`, the
// products of two and of three features are added in an order of their own.
struct Floats {
  using Cell = float;
  using Norm = float;
  using Value = float;
  static constexpr bool grouped = true;
  static BlockFloats sum(BlockFloats a, BlockFloats b, BlockFloats c, BlockFloats d) { return a - b - c + d; }
};
struct IntsToFloats {
  using Cell = int32_t;
  using Norm = float;
  using Value = float;
  static constexpr bool grouped = false;
  static BlockFloats sum(BlockInts a, BlockInts b, BlockInts c, BlockInts d) { return toFloats((a - b) + (d - c)); }
};
struct Ints {
  using Cell = int32_t;
  using Norm = int32_t;
  using Value = int32_t;
  static constexpr bool grouped = true;
  static BlockInts sum(BlockInts a, BlockInts b, BlockInts c, BlockInts d) { return (a - b) - (c - d); }
};

}  // namespace

// Four offsets a feature, in stored order.
template <class T>
static void offsetsOf(const Stage<T>& stage, int32_t rowLength, int32_t* offset) {
  for (int32_t k = 0; k < stage.classifierCount; ++k) {
    for (int32_t f = 0; f < stage.classifiers[k].featureCount; ++f) {
      const QoriHaarFeature<T>& feature = stage.classifiers[k].features[f];
      *offset++ = feature.ay * rowLength + feature.ax;
      *offset++ = feature.by * rowLength + feature.bx;
      *offset++ = feature.cy * rowLength + feature.cx;
      *offset++ = feature.dy * rowLength + feature.dx;
    }
  }
}

// A bit for each window of the block at `src` whose total is below the threshold.
template <class Member>
static inline uint32_t failingOf(const Block& block, const typename Member::Cell* src,
                                 const typename Member::Norm* norm, const Stage<typename Member::Value>& stage,
                                 const int32_t* offset, typename Member::Value threshold) {
  using Value = typename Member::Value;
  using Values = typename BlockOf<Value>::Type;
  const Values n = block.cells(norm);
  Values total = inBlock(Value(0));
  for (int32_t k = 0; k < stage.classifierCount; ++k) {
    const QoriHaarWeakClassifier<Value>& classifier = stage.classifiers[k];
    const auto product = [&](int32_t f) {
      const int32_t* o = offset + ptrdiff_t(4) * f;
      return Member::sum(block.cells(src + o[0]), block.cells(src + o[1]), block.cells(src + o[2]),
                         block.cells(src + o[3])) *
             inBlock(classifier.features[f].weight);
    };
    Values s;
    if (Member::grouped && k < stage.pairCount) {
      s = product(0) + product(1);
    } else if (Member::grouped && k < stage.pairOrTripleCount) {
      s = (product(1) + product(2)) + product(0);
    } else {
      s = inBlock(Value(0));
      for (int32_t f = 0; f < classifier.featureCount; ++f) s = s + product(f);
    }
    total = total + (inBlock(classifier.threshold) * n > s ? inBlock(classifier.val1) : inBlock(classifier.val2));
    offset += ptrdiff_t(4) * classifier.featureCount;
  }
  return bitsOf(inBlock(threshold) > total);
}

template <class Member, class Cell, class Norm, class T>
static QorStatus apply(const Cell* src, int32_t srcStep, const Norm* norm, int32_t normStep, uint8_t* mask,
                       int32_t maskStep, QoriSize roiSize, int32_t* positive, T threshold, const Stage<T>* state) {
  if (anyNull(src, norm, mask, positive, state)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<Cell>(srcStep, roiSize) || shortStep<Norm>(normStep, roiSize) ||
      shortStep<uint8_t>(maskStep, roiSize)) {
    return qorStatusBadStep;
  }
  if (misaligned<Cell>(srcStep | normStep)) return qorStatusBadStepAlign;
  int32_t* offsets = nullptr;
  // A stage without classifiers needs no table.
  if (state->featureCount > 0) {
    if (state->featureCount > std::numeric_limits<int32_t>::max() / 4) return qorStatusNoMemory;
    offsets = qorsMalloc_32s(4 * state->featureCount);
    if (!offsets) return qorStatusNoMemory;
    offsetsOf<T>(*state, srcStep / 4, offsets);
  }
  int32_t survivors = 0;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const Cell* cells = rowAt(src, srcStep, y);
    const Norm* norms = rowAt(norm, normStep, y);
    survivors += clearFailing(rowAt(mask, maskStep, y), roiSize.width, [=](const Block& block, ptrdiff_t x) {
      return failingOf<Member>(block, cells + x, norms + x, *state, offsets, threshold);
    });
  }
  if (offsets) qorsFree(offsets);
  *positive = survivors;
  return qorStatusOk;
}

QorStatus qoriApplyHaarClassifier_32f_C1R(const float* src, int32_t srcStep, const float* norm, int32_t normStep,
                                          uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t* positive,
                                          float threshold, const QoriHaarClassifier_32f* state) {
  return apply<Floats>(src, srcStep, norm, normStep, mask, maskStep, roiSize, positive, threshold, state);
}

QorStatus qoriApplyHaarClassifier_32s32f_C1R(const int32_t* src, int32_t srcStep, const float* norm, int32_t normStep,
                                             uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t* positive,
                                             float threshold, const QoriHaarClassifier_32f* state) {
  return apply<IntsToFloats>(src, srcStep, norm, normStep, mask, maskStep, roiSize, positive, threshold, state);
}

QorStatus qoriApplyHaarClassifier_32s_C1RSfs(const int32_t* src, int32_t srcStep, const int32_t* norm, int32_t normStep,
                                             uint8_t* mask, int32_t maskStep, QoriSize roiSize, int32_t* positive,
                                             int32_t threshold, const QoriHaarClassifier_32s* state) {
  return apply<Ints>(src, srcStep, norm, normStep, mask, maskStep, roiSize, positive, threshold, state);
}
