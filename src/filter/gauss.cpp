// Gaussian blur of a float image: both stages of the separable pipeline, with room for a whole intermediate image.
//
// The borders above and below are formed by row pointers alone. Odd: what the two stages return is not looked at, so a
// step that is long enough in pixels but not in bytes leaves dst unwritten and the result is a success; and in
// qorBorderMirrorEdge the rows below bounce off row 0 with a repetition, but off the last row without one.
#include <math.h>

#include <algorithm>

#include "frame/frame.h"
#include "frame/kit/vectors.h"

static void gaussTaps(float* taps, int32_t kernelSize, float sigma) {
  const int32_t half = kernelSize / 2;
  float sum = 0;
  for (ptrdiff_t i = 0; i < kernelSize; ++i) {
    const float d = float(i - half);
    const float argument = (0.0f - d * d) / ((sigma + sigma) * sigma);
    taps[i] = float(exp(double(argument)));
    sum += taps[i];
  }
  for (ptrdiff_t i = 0; i < kernelSize; ++i) taps[i] = taps[i] / sum;
}

namespace {

// Row indices that bounce between two ends, `first` below `last`.
struct Bounce {
  ptrdiff_t row, step, first, last;
  bool repeatsFirst, repeatsLast;
  ptrdiff_t next() {
    const ptrdiff_t now = row;
    if (row == (step < 0 ? first : last)) {
      step = -step;
      if (!(row == first ? repeatsFirst : repeatsLast)) row += step;
    } else {
      row += step;
    }
    return now;
  }
};

}  // namespace

// Sets the pointers of the `half` border rows above entry `top`, going up.
static void setRowsAbove(float** rows, ptrdiff_t half, ptrdiff_t top, ptrdiff_t last, QoriBorderType mode,
                         float* constantRow) {
  Bounce bounce = {top, 1, top, last, true, true};
  if (mode == qorBorderMirror) bounce = {top + 1, 1, top, last, false, false};
  for (ptrdiff_t i = 0; i < half; ++i) {
    float*& row = rows[top - 1 - i];
    switch (mode) {
      case qorBorderConst: row = constantRow; break;
      case qorBorderReplicate: row = rows[top]; break;
      case qorBorderWrap: row = rows[last - i % (last - top + 1)]; break;
      default: row = rows[bounce.next()];
    }
  }
}

// The same below entry `last`, going down.
static void setRowsBelow(float** rows, ptrdiff_t half, ptrdiff_t top, ptrdiff_t last, QoriBorderType mode,
                         float* constantRow) {
  Bounce bounce = {last, -1, top, last, true, false};
  if (mode == qorBorderMirror) bounce = {last - 1, -1, top, last, false, false};
  for (ptrdiff_t i = 0; i < half; ++i) {
    float*& row = rows[last + 1 + i];
    switch (mode) {
      case qorBorderConst: row = constantRow; break;
      case qorBorderReplicate: row = rows[last]; break;
      case qorBorderWrap: row = rows[top + i % (last - top + 1)]; break;
      default: row = rows[bounce.next()];
    }
  }
}

// Whether the row stage will work in several threads.
static inline bool rowsAreThreaded(QoriSize size, int32_t kernelSize) {
  return ownGetNumThreads() > 1 && runsepomp(kernelSize) && pixels(size) >= owncvGetMaxNumThreads() * 32768;
}

static inline bool badKernelSize(int32_t kernelSize) { return kernelSize < 3 || kernelSize % 2 == 0; }

// Elements of the areas in the buffer.
static inline int32_t constantLength(int32_t width, int32_t kernelSize) { return (width + kernelSize + 7) & ~7; }
static inline int32_t tapsLength(int32_t kernelSize) { return (kernelSize + 3) & ~3; }
static inline int32_t rowLength(int32_t width, int32_t kernelSize) { return (width + kernelSize + 3) & ~3; }

QorStatus qoriFilterGaussGetBufferSize_32f_C1R(QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (badKernelSize(kernelSize)) return qorStatusBadArg;
  int32_t ofRows = 0, ofColumns = 0;
  qoriFilterRowBorderPipelineGetBufferSize_32f_C1R(roiSize, kernelSize, &ofRows);
  qoriFilterColumnPipelineGetBufferSize_32f_C1R(roiSize, kernelSize, &ofColumns);
  const int32_t rows = roiSize.height + kernelSize;
  *bufferSize = rowLength(roiSize.width, kernelSize) * rows * 4 +
                (tapsLength(kernelSize) + constantLength(roiSize.width, kernelSize)) * 4 + 32 + 64 + ofRows + 32 +
                ofColumns + 32 + rows * 8 + 32;
  return qorStatusOk;
}

QorStatus qoriFilterGaussBorder_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                        QoriSize roiSize, int32_t kernelSize, float sigma, QoriBorderType borderType,
                                        float borderValue, uint8_t* buffer) {
  constexpr QoriBorderType flags = qorBorderRowsAbove | qorBorderRowsBelow;
  const int32_t width = roiSize.width, height = roiSize.height;
  const QoriBorderType mode = borderType & ~flags;
  if (anyNull(src, dst, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  // Odd: in pixels, not in bytes.
  if (srcStep < width || dstStep < width) return qorStatusBadStep;
  if (badKernelSize(kernelSize)) return qorStatusBadArg;
  if (mode < qorBorderConst || mode > qorBorderMirrorEdge) return qorStatusBadArg;

  const ptrdiff_t half = kernelSize / 2;
  const ptrdiff_t above = borderType & qorBorderRowsAbove ? half : 0,
                  below = borderType & qorBorderRowsBelow ? half : 0;
  const ptrdiff_t allRows = ptrdiff_t(height) + kernelSize;
  const ptrdiff_t storeStep = rowLength(width, kernelSize);

  // The pointers, of which there are most after the rows, stand first, where they are aligned without a gap.
  float** const rows = alignUp<float*>(buffer, 32);
  float* const constantRow = alignUp<float>(rows + allRows, 16);
  float* const taps = constantRow + constantLength(width, kernelSize);
  float* const store = taps + tapsLength(kernelSize);
  uint8_t* const ofRows = reinterpret_cast<uint8_t*>(store + storeStep * allRows) + 64;

  gaussTaps(taps, kernelSize, sigma);
  const ptrdiff_t top = half, last = half + height - 1;
  const ptrdiff_t firstReal = top - above, endReal = last + 1 + below, realRows = endReal - firstReal;

  // One thread filters a few rows at a time, so that they are still in the cache when the column stage reads them, and
  // puts them in the place of others that it has read. Threads take all rows at once, and so does qorBorderWrap, which
  // needs the last ones first and the first ones last.
  const bool atOnce = mode == qorBorderWrap || rowsAreThreaded(QoriSize{width, int32_t(realRows)}, kernelSize);
  const ptrdiff_t band = atOnce ? height : 16;
  const ptrdiff_t storedRows = atOnce ? realRows : std::min(realRows, band + 2 * half);
  for (ptrdiff_t r = 0; r < realRows; ++r) rows[firstReal + r] = store + r % storedRows * storeStep;
  if (mode == qorBorderConst) qorsSet_32f(borderValue, constantRow, width);
  const QoriBorderType rowMode = mode != qorBorderConst && width == 1 ? qorBorderReplicate : mode;
  const QoriBorderType columnMode = mode != qorBorderConst && height == 1 ? qorBorderReplicate : mode;
  if (!above) setRowsAbove(rows, half, top, last, columnMode, constantRow);
  if (!below) setRowsBelow(rows, half, top, last, columnMode, constantRow);

  ptrdiff_t ready = firstReal;  // the entry behind the last one that is filtered
  for (ptrdiff_t y = 0; y < height; y += band) {
    const ptrdiff_t outputs = std::min(band, height - y);
    const ptrdiff_t needed = std::min(endReal, y + outputs + 2 * half);
    if (needed > ready) {
      const QorStatus filtered = qoriFilterRowBorderPipeline_32f_C1R(
          rowAt(src, srcStep, ready - top), srcStep, rows + ready, QoriSize{width, int32_t(needed - ready)}, taps,
          kernelSize, int32_t(half), rowMode, borderValue, ofRows);
      if (filtered != qorStatusOk) break;  // rows that were not filtered make no image
      ready = needed;
    }
    // The column stage needs no scratch but something that is not null.
    qoriFilterColumnPipeline_32f_C1R(rows + y, rowAt(dst, dstStep, y), dstStep, QoriSize{width, int32_t(outputs)}, taps,
                                     kernelSize, ofRows);
  }
  return qorStatusOk;
}
