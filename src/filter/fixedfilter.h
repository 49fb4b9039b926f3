// The frame that all fixed-kernel filters share: checks, gate, stripes, and the size of the scratch.
//
// Odd: a team of one, which a parallel call may end up with, counts as first and last thread at once. It gets both
// flags and reads the rows above and below the region from memory.
#pragma once

#include <algorithm>

#include "filter/convolution.h"
#include "frame/frame.h"

namespace {

// One call, or one thread's stripe of it.
template <class SrcType, class DstType>
struct FilterCall {
  using Src = SrcType;
  using Dst = DstType;
  const Src* src;
  int32_t srcStep;
  Dst* dst;
  int32_t dstStep;
  QoriSize roiSize;
  QoriMaskSelector maskSize;
  QoriBorderType borderType;
  Src borderValue;
  int32_t divisor;  // 1 in the forms that have none
  uint8_t* buffer;

  int32_t taps() const { return maskSize == qorMaskSize5x5 ? 5 : 3; }
};

}  // namespace

// Scratch of one thread: bytes for each column of the image (its width rounded up to 16) and a constant, for either
// mask. The stages' own sizes, which depend on the height, come on top. The constants of three functions differ from
// their family's for no reason that is left; callers count on the sizes.
struct FilterScratch {
  int32_t columnBytes3x3, base3x3, columnBytes5x5, base5x5;
};

static inline bool badMask(QoriMaskSelector maskSize) {
  return maskSize != qorMaskSize3x3 && maskSize != qorMaskSize5x5;
}

// A mode from 0 to 4. If any of the bits 4 to 15 is set, one of the two flags must be among them; the rest of them, and
// all bits above, are ignored.
static inline bool badFilterBorder(QoriBorderType borderType) {
  return (borderType & 15) > qorBorderMirrorEdge ||
         ((borderType & 0xfff0) && !(borderType & (qorBorderRowsAbove | qorBorderRowsBelow)));
}

template <class Call>
static QorStatus checkFilter(const Call& c) {
  using Src = typename Call::Src;
  using Dst = typename Call::Dst;
  if (anyNull(c.src, c.dst, c.buffer)) return qorStatusNullPtr;
  if (emptySize(c.roiSize)) return qorStatusBadSize;
  if (shortStep<Src>(c.srcStep, c.roiSize) || shortStep<Dst>(c.dstStep, c.roiSize)) return qorStatusBadStep;
  if (misaligned<Src>(c.srcStep) || misaligned<Dst>(c.dstStep)) return qorStatusBadStepAlign;
  if (badFilterBorder(c.borderType)) return qorStatusBadArg;
  if (c.divisor == 0) return qorStatusBadArg;
  if (badMask(c.maskSize)) return qorStatusBadMask;
  return qorStatusOk;
}

static inline int32_t roundedUpTo16(int32_t width) { return (width + 15) & ~15; }

// Scratch sizes of the separable stages that the engine's stages stand for.
static inline int32_t stageScratch(QoriSize roiSize, int32_t taps, const float*, const float*) {
  int32_t rows = 0, columns = 0;
  qoriFilterRowBorderPipelineGetBufferSize_32f_C1R(roiSize, taps, &rows);
  qoriFilterColumnPipelineGetBufferSize_32f_C1R(roiSize, taps, &columns);
  return rows + columns;
}

// The column stages to 16 and to 8 bits need the same.
static inline int32_t stageScratch(QoriSize roiSize, int32_t taps, const uint8_t*, const void*) {
  int32_t rows = 0, columns = 0;
  qoriFilterRowBorderPipelineGetBufferSize_8u16s_C1R(roiSize, taps, &rows);
  qoriFilterColumnPipelineGetBufferSize_16s_C1R(roiSize, taps, &columns);
  return rows + columns;
}

// Bytes for all threads. `extra` are further bytes for each of them.
template <class Src, class Dst>
static int32_t filterScratch(QoriSize roiSize, QoriMaskSelector maskSize, const FilterScratch& scratch,
                             int32_t extra = 32) {
  const int32_t width = roundedUpTo16(roiSize.width);
  const bool large = maskSize == qorMaskSize5x5;
  const int32_t rows =
      large ? scratch.columnBytes5x5 * width + scratch.base5x5 : scratch.columnBytes3x3 * width + scratch.base3x3;
  const int32_t stages =
      stageScratch(roiSize, large ? 5 : 3, static_cast<const Src*>(nullptr), static_cast<const Dst*>(nullptr));
  return owncvGetMaxNumThreads() * (rows + stages + extra);
}

template <class Src, class Dst>
static QorStatus filterBufferSize(QoriSize roiSize, QoriMaskSelector maskSize, const FilterScratch& scratch,
                                  int32_t* bufferSize, int32_t extra = 32) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (badMask(maskSize)) return qorStatusBadMask;
  *bufferSize = filterScratch<Src, Dst>(roiSize, maskSize, scratch, extra);
  return qorStatusOk;
}

// Runs body(stripe) on the stripes of a call that has been checked, in threads where each gets some `rowsPerThread`
// rows. `totalScratch` is what the call's size query reports.
template <class Call, class Body>
static void runFilter(const Call& c, int32_t totalScratch, Body body, int32_t rowsPerThread = 128) {
  const int32_t height = c.roiSize.height, mostThreads = owncvGetMaxNumThreads();
  const bool parallel = height >= 5 * mostThreads && c.roiSize.width >= 256 && mostThreads >= 2 &&
                        height >= 2 * rowsPerThread && runomp();
  if (!parallel) {
    body(c);
    return;
  }
  // The scratch has room for mostThreads, whatever the other answers are.
  const int32_t suggested = std::min(std::min(height / rowsPerThread, qorGetNumCoresOnDie()), ownGetNumThreads());
  const int32_t team = std::max(1, std::min(suggested, mostThreads));
  runTeam(height, team, [&](const Stripe& stripe) {
    Call part = c;
    part.src = rowAt(c.src, c.srcStep, stripe.row);
    part.dst = rowAt(c.dst, c.dstStep, stripe.row);
    part.roiSize.height = stripe.rows;
    part.buffer = c.buffer + ptrdiff_t(stripe.thread) * (totalScratch / stripe.teamSize);
    const bool first = stripe.thread == 0, last = stripe.thread == stripe.teamSize - 1;
    if (first || !last) part.borderType |= qorBorderRowsBelow;
    if (last || !first) part.borderType |= qorBorderRowsAbove;
    body(part);
  });
}

// One pass of the engine over a stripe of `whole`, by the element types.
static inline void convolve(const FilterCall<float, float>& c, KernelPair kernels,
                            const FilterCall<float, float>& whole) {
  ownFilterConvolution_32f(c.src, c.srcStep, c.dst, c.dstStep, c.roiSize, kernels, c.borderType, c.borderValue,
                           c.divisor, c.buffer, whole.src, whole.roiSize);
}

static inline void convolve(const FilterCall<uint8_t, int16_t>& c, KernelPair kernels,
                            const FilterCall<uint8_t, int16_t>& whole) {
  ownFilterConvolution_8u16s(c.src, c.srcStep, c.dst, c.dstStep, c.roiSize, kernels, c.borderType, c.borderValue,
                             c.divisor, c.buffer, whole.src, whole.roiSize);
}

static inline void convolve(const FilterCall<uint8_t, int8_t>& c, KernelPair kernels,
                            const FilterCall<uint8_t, int8_t>& whole) {
  ownFilterConvolution_8u8s(c.src, c.srcStep, c.dst, c.dstStep, c.roiSize, kernels, c.borderType, c.borderValue,
                            c.divisor, c.buffer, whole.src, whole.roiSize);
}

static inline void convolve(const FilterCall<uint8_t, uint8_t>& c, KernelPair kernels,
                            const FilterCall<uint8_t, uint8_t>& whole) {
  ownFilterConvolution_8u(c.src, c.srcStep, c.dst, c.dstStep, c.roiSize, kernels, c.borderType, c.borderValue,
                          c.divisor, c.buffer, whole.src, whole.roiSize);
}

// A filter of one pass, with its kernels for either mask.
template <class Call>
static QorStatus filterInOnePass(const Call& c, KernelPair kernels3x3, KernelPair kernels5x5,
                                 const FilterScratch& scratch, int32_t extra = 32) {
  if (const QorStatus status = checkFilter(c)) return status;
  const int32_t total = filterScratch<typename Call::Src, typename Call::Dst>(c.roiSize, c.maskSize, scratch, extra);
  runFilter(c, total, [&](const Call& stripe) { convolve(stripe, c.taps() == 5 ? kernels5x5 : kernels3x3, c); });
  return qorStatusOk;
}
