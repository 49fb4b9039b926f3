// Row stage of a separable filter: any kernel along the rows, results through an array of row pointers.
//
// Odd: the forms end in three different arithmetics (taps.h), and in the Low form the one-channel kernel of length 5
// ends unlike all other lengths. A null row pointer is found only when the stage reaches it.
#include <algorithm>

#include "filter/edges.h"
#include "filter/taps.h"
#include "frame/frame.h"

template <class SrcType, class DstType, class TapType, int32_t channelCount>
struct RowForm {
  using Src = SrcType;
  using Dst = DstType;
  using Tap = TapType;
  static constexpr int32_t channels = channelCount;
};

using Row32fC1 = RowForm<float, float, float, 1>;
using Row32fC3 = RowForm<float, float, float, 3>;
using Row16sC1 = RowForm<int16_t, int16_t, int16_t, 1>;
using Row16sC3 = RowForm<int16_t, int16_t, int16_t, 3>;
using Row8u16sC1 = RowForm<uint8_t, int16_t, int16_t, 1>;
using Row8u16sC3 = RowForm<uint8_t, int16_t, int16_t, 3>;

template <class Form>
struct RowArguments {
  const typename Form::Src* src;
  int32_t srcStep;
  typename Form::Dst* const* dstRows;
  QoriSize roiSize;
  const typename Form::Tap* kernel;
  int32_t kernelSize;
  int32_t xAnchor;
  QoriBorderType borderType;
  const typename Form::Src* borderValue;  // one element a channel
  uint8_t* buffer;
};

namespace {

// Scratch of one thread in bytes, for a kernel of a given length. It has to hold a piece of extended row of up to
// 2 * (kernelSize - 1) pixels, at a 32-byte boundary.
struct RowScratch {
  int32_t eachTap, base;
  int32_t perThread(int32_t kernelSize) const { return eachTap * kernelSize + base; }
};

}  // namespace

static constexpr RowScratch scratch32fC1 = {128, 64}, scratch32fC3 = {192, 32};
static constexpr RowScratch scratch16sC1 = {48, 80}, scratch16sC3 = {28, 32};
static constexpr RowScratch scratch8u16sC1 = {4, 32}, scratch8u16sC3 = {12, 32};
static constexpr RowScratch scratchLow16sC1 = {24, 64}, scratchLow16sC3 = {208, 64};

// One row. Columns whose window crosses an edge read a copy of the pixels around that edge, all others the image
// itself.
template <class Sum, class Form, class Ending>
static void filterRow(const RowArguments<Form>& a, const typename Form::Src* src, typename Form::Dst* dst,
                      typename Form::Src* scratch, const Ending& ending) {
  using Src = typename Form::Src;
  constexpr int32_t channels = Form::channels;
  const int32_t width = a.roiSize.width;
  const int32_t before = a.xAnchor, after = a.kernelSize - 1 - a.xAnchor;

  const auto filter = [&](const Src* window, int32_t column, int32_t columns) {
    filterElements<Sum>(RowTaps<Src>{window, channels}, a.kernel, a.kernelSize, ending,
                        dst + ptrdiff_t(column) * channels, columns * channels);
  };
  const auto filterExtended = [&](int32_t column, int32_t columns) {
    extendRow<Src, channels>(src, width, column - before, columns + a.kernelSize - 1, a.borderType, a.borderValue,
                             scratch);
    filter(scratch, column, columns);
  };

  const int32_t left = std::min(before, width);
  const int32_t right = std::max(width - after, left);
  if (left > 0) filterExtended(0, left);
  if (right > left) filter(src, left, right - left);
  if (width > right) filterExtended(right, width - right);
}

// The stage of one form: checks, gate, stripes.
template <class Sum, class Form, class Ending>
static QorStatus filterRows(const RowArguments<Form>& a, const RowScratch& scratch, bool worthThreads,
                            const Ending& ending) {
  const int32_t mostThreads = owncvGetMaxNumThreads();
  const bool parallel = worthThreads && pixels(a.roiSize) >= mostThreads * 32768;
  const int32_t perThread = scratch.perThread(a.kernelSize);
  QorStatus status = qorStatusOk;
  // The scratch has room for as many threads as the size query knew of, whatever team the core services suggest.
  runTeam(a.roiSize.height, parallel ? std::min(ownGetNumThreads(), mostThreads) : serial, [&](const Stripe& stripe) {
    auto* piece = alignUp<typename Form::Src>(a.buffer + ptrdiff_t(stripe.thread) * perThread, 32);
    for (int32_t y = stripe.row; y < stripe.row + stripe.rows; ++y) {
      if (!a.dstRows[y]) {
#pragma omp atomic write
        status = qorStatusNullPtr;
        return;
      }
      filterRow<Sum>(a, rowAt(a.src, a.srcStep, y), a.dstRows[y], piece, ending);
    }
  });
  return status;
}

template <class Form>
static QorStatus checkRows(const RowArguments<Form>& a, int32_t divisor) {
  using Src = typename Form::Src;
  if (anyNull(a.src, a.dstRows, a.kernel, a.buffer)) return qorStatusNullPtr;
  if (emptySize(a.roiSize) || a.kernelSize < 1) return qorStatusBadSize;
  if (a.xAnchor < 0 || a.xAnchor >= a.kernelSize) return qorStatusBadAnchor;
  if (shortStep<Src, Form::channels>(a.srcStep, a.roiSize)) return qorStatusBadStep;
  if (misaligned<Src>(a.srcStep)) return qorStatusBadStepAlign;
  if (a.borderType < qorBorderConst || a.borderType > qorBorderMirrorEdge) return qorStatusBadArg;
  if (a.borderType == qorBorderConst && !a.borderValue) return qorStatusNullPtr;
  if (divisor == 0) return qorStatusBadArg;
  return qorStatusOk;
}

static QorStatus rowBufferSize(QoriSize roiSize, int32_t kernelSize, const RowScratch& scratch, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize) || kernelSize < 1) return qorStatusBadSize;
  // Room for a copy of the row pointers, too, which this implementation does without.
  *bufferSize = owncvGetMaxNumThreads() * (32 + 8 * (roiSize.height + kernelSize) + scratch.perThread(kernelSize));
  return qorStatusOk;
}

QorStatus qoriFilterRowBorderPipeline_32f_C1R(const float* src, int32_t srcStep, float* const* dstRows,
                                              QoriSize roiSize, const float* kernel, int32_t kernelSize,
                                              int32_t xAnchor, QoriBorderType borderType, float borderValue,
                                              uint8_t* buffer) {
  const RowArguments<Row32fC1> a = {src,        srcStep, dstRows,    roiSize,      kernel,
                                    kernelSize, xAnchor, borderType, &borderValue, buffer};
  if (const QorStatus status = checkRows(a, 1)) return status;
  return filterRows<float>(a, scratch32fC1, runsepomp(kernelSize) != 0, StoreFloat());
}

QorStatus qoriFilterRowBorderPipeline_32f_C3R(const float* src, int32_t srcStep, float* const* dstRows,
                                              QoriSize roiSize, const float* kernel, int32_t kernelSize,
                                              int32_t xAnchor, QoriBorderType borderType, const float* borderValue,
                                              uint8_t* buffer) {
  const RowArguments<Row32fC3> a = {src,        srcStep, dstRows,    roiSize,     kernel,
                                    kernelSize, xAnchor, borderType, borderValue, buffer};
  if (const QorStatus status = checkRows(a, 1)) return status;
  return filterRows<float>(a, scratch32fC3, true, StoreFloat());
}

QorStatus qoriFilterRowBorderPipeline_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* const* dstRows,
                                              QoriSize roiSize, const int16_t* kernel, int32_t kernelSize,
                                              int32_t xAnchor, QoriBorderType borderType, int16_t borderValue,
                                              int32_t divisor, uint8_t* buffer) {
  const RowArguments<Row16sC1> a = {src,        srcStep, dstRows,    roiSize,      kernel,
                                    kernelSize, xAnchor, borderType, &borderValue, buffer};
  if (const QorStatus status = checkRows(a, divisor)) return status;
  return filterRows<float>(a, scratch16sC1, kernelSize > 3, ScaleAndClamp<int16_t>(divisor));
}

QorStatus qoriFilterRowBorderPipeline_16s_C3R(const int16_t* src, int32_t srcStep, int16_t* const* dstRows,
                                              QoriSize roiSize, const int16_t* kernel, int32_t kernelSize,
                                              int32_t xAnchor, QoriBorderType borderType, const int16_t* borderValue,
                                              int32_t divisor, uint8_t* buffer) {
  const RowArguments<Row16sC3> a = {src,        srcStep, dstRows,    roiSize,     kernel,
                                    kernelSize, xAnchor, borderType, borderValue, buffer};
  if (const QorStatus status = checkRows(a, divisor)) return status;
  const ScaleAndClamp<int16_t> ending(divisor);
  // Odd: the two short lengths sum in float, like the one-channel form; all others in integers.
  if (kernelSize == 3 || kernelSize == 5) return filterRows<float>(a, scratch16sC3, true, ending);
  return filterRows<int32_t>(a, scratch16sC3, true, ending);
}

QorStatus qoriFilterRowBorderPipeline_8u16s_C1R(const uint8_t* src, int32_t srcStep, int16_t* const* dstRows,
                                                QoriSize roiSize, const int16_t* kernel, int32_t kernelSize,
                                                int32_t xAnchor, QoriBorderType borderType, uint8_t borderValue,
                                                int32_t divisor, uint8_t* buffer) {
  const RowArguments<Row8u16sC1> a = {src,        srcStep, dstRows,    roiSize,      kernel,
                                      kernelSize, xAnchor, borderType, &borderValue, buffer};
  if (const QorStatus status = checkRows(a, divisor)) return status;
  return filterRows<int32_t>(a, scratch8u16sC1, true, ScaleAndClamp<int16_t>(divisor));
}

QorStatus qoriFilterRowBorderPipeline_8u16s_C3R(const uint8_t* src, int32_t srcStep, int16_t* const* dstRows,
                                                QoriSize roiSize, const int16_t* kernel, int32_t kernelSize,
                                                int32_t xAnchor, QoriBorderType borderType, const uint8_t* borderValue,
                                                int32_t divisor, uint8_t* buffer) {
  const RowArguments<Row8u16sC3> a = {src,        srcStep, dstRows,    roiSize,     kernel,
                                      kernelSize, xAnchor, borderType, borderValue, buffer};
  if (const QorStatus status = checkRows(a, divisor)) return status;
  return filterRows<int32_t>(a, scratch8u16sC3, true, ScaleAndClamp<int16_t>(divisor));
}

QorStatus qoriFilterRowBorderPipeline_Low_16s_C1R(const int16_t* src, int32_t srcStep, int16_t* const* dstRows,
                                                  QoriSize roiSize, const int16_t* kernel, int32_t kernelSize,
                                                  int32_t xAnchor, QoriBorderType borderType, int16_t borderValue,
                                                  int32_t divisor, uint8_t* buffer) {
  const RowArguments<Row16sC1> a = {src,        srcStep, dstRows,    roiSize,      kernel,
                                    kernelSize, xAnchor, borderType, &borderValue, buffer};
  if (const QorStatus status = checkRows(a, divisor)) return status;
  // Odd: one channel and five taps end in float, everything else in fixed point.
  if (kernelSize == 5) return filterRows<int32_t>(a, scratchLow16sC1, true, ScaleAndWrap(divisor));
  return filterRows<int32_t>(a, scratchLow16sC1, true, ScaleByQ14(divisor));
}

QorStatus qoriFilterRowBorderPipeline_Low_16s_C3R(const int16_t* src, int32_t srcStep, int16_t* const* dstRows,
                                                  QoriSize roiSize, const int16_t* kernel, int32_t kernelSize,
                                                  int32_t xAnchor, QoriBorderType borderType,
                                                  const int16_t* borderValue, int32_t divisor, uint8_t* buffer) {
  const RowArguments<Row16sC3> a = {src,        srcStep, dstRows,    roiSize,     kernel,
                                    kernelSize, xAnchor, borderType, borderValue, buffer};
  if (const QorStatus status = checkRows(a, divisor)) return status;
  return filterRows<int32_t>(a, scratchLow16sC3, true, ScaleByQ14(divisor));
}

#define QOR_ROW_SIZE(form, scratch)                                                               \
  QorStatus qoriFilterRowBorderPipelineGetBufferSize_##form(QoriSize roiSize, int32_t kernelSize, \
                                                            int32_t* bufferSize) {                \
    return rowBufferSize(roiSize, kernelSize, scratch, bufferSize);                               \
  }
QOR_ROW_SIZE(32f_C1R, scratch32fC1)
QOR_ROW_SIZE(32f_C3R, scratch32fC3)
QOR_ROW_SIZE(16s_C1R, scratch16sC1)
QOR_ROW_SIZE(16s_C3R, scratch16sC3)
QOR_ROW_SIZE(8u16s_C1R, scratch8u16sC1)
QOR_ROW_SIZE(8u16s_C3R, scratch8u16sC3)
QOR_ROW_SIZE(Low_16s_C1R, scratchLow16sC1)
QOR_ROW_SIZE(Low_16s_C3R, scratchLow16sC3)
#undef QOR_ROW_SIZE
