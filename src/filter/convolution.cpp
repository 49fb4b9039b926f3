// The engine of the fixed-kernel filters. The row stage writes intermediate rows into a ring of kernel length + 15
// rows, the column stage combines them into 16 rows of the result at a time, so that the working set stays in the cache
// whatever the height of the image.
//
// Rows are always reached through pointers. The array lists the ring twice over, so that a window of rows can be read
// in order wherever it starts; rows above and below the image have a few rows of their own, or are pointers to rows of
// the ring.
//
// Odd: with one of the flags, rows beyond that edge are read from memory, and the mirror modes no longer turn round at
// the opposite edge. Wrapping takes its rows from the whole image, mirroring from the stripe.
#include "filter/convolution.h"

#include "filter/convolution_rows.h"
#include "filter/edges.h"
#include "frame/frame.h"

static constexpr int32_t blockRows = 16;
static constexpr int32_t mostTaps = 5;

namespace {

// How the row stage sees the image: a row's width, and the pixels beyond its ends as columns of the row.
template <class Src>
struct RowEdges {
  int32_t width;
  int32_t before[mostTaps / 2], after[mostTaps / 2];
  Src constant;

  Src pixel(const Src* row, int32_t column) const { return column == constantPixel ? constant : row[column]; }
};

}  // namespace

template <class Src>
static RowEdges<Src> rowEdges(int32_t width, int32_t half, QoriBorderType mode, Src constant) {
  RowEdges<Src> edges = {width, {}, {}, constant};
  for (int32_t i = 0; i < half; ++i) {
    edges.before[i] = borderIndex(i - half, width, mode);
    edges.after[i] = borderIndex(width + i, width, mode);
  }
  return edges;
}

// The row stage of one kernel: `rows` rows from `src` on, into dstRows. The second plane of a row, if the kernel has
// one, lies `plane` elements behind the first.
template <class Src, class Mid>
using RowStage = void (*)(const Src* src, ptrdiff_t srcStep, Mid* const* dstRows, int32_t rows,
                          const RowEdges<Src>& edges, ptrdiff_t plane);

template <class Wide, class Kernel, class Src, class Mid>
static inline void filterWindows(const Src* src, Mid* dst, int32_t count) {
  forElements(count, [=](ptrdiff_t x) { dst[x] = Mid(Kernel::template at<Wide>(src + x)); });
}

template <class Wide, class Kernel, class Src, class Mid>
static void filterRows(const Src* src, ptrdiff_t srcStep, Mid* const* dstRows, int32_t rows, const RowEdges<Src>& edges,
                       ptrdiff_t plane) {
  constexpr int32_t taps = Kernel::taps, half = taps / 2;
  const int32_t width = edges.width;
  for (int32_t y = 0; y < rows; ++y) {
    const Src* row = rowAt(src, srcStep, y);
    Mid* dst = dstRows[y];
    Src piece[2 * half + taps] = {};
    if (width < taps) {
      for (int32_t i = 0; i < half; ++i) piece[i] = edges.pixel(row, edges.before[i]);
      for (int32_t x = 0; x < width; ++x) piece[half + x] = row[x];
      for (int32_t i = 0; i < half; ++i) piece[half + width + i] = edges.pixel(row, edges.after[i]);
      filterWindows<Wide, Kernel>(piece, dst, width);
    } else {
      for (int32_t i = 0; i < half; ++i) piece[i] = edges.pixel(row, edges.before[i]);
      for (int32_t i = 0; i < taps - 1; ++i) piece[half + i] = row[i];
      for (int32_t x = 0; x < half; ++x) dst[x] = Mid(Kernel::template at<Wide>(piece + x));
      filterWindows<Wide, Kernel>(row, dst + half, width - 2 * half);
      for (int32_t i = 0; i < taps - 1; ++i) piece[i] = row[width - taps + 1 + i];
      for (int32_t i = 0; i < half; ++i) piece[taps - 1 + i] = edges.pixel(row, edges.after[i]);
      for (int32_t x = 0; x < half; ++x) dst[width - half + x] = Mid(Kernel::template at<Wide>(piece + x));
    }
    if (plane) {
      forElements(width, [=](ptrdiff_t x) { dst[plane + x] = Mid(8 * Wide(row[x])); });
    }
  }
}

// The column stage of one kernel and ending: `rows` rows of the result from the rows of the window that starts at
// srcRows.
template <class Mid, class Dst>
using ColumnStage = void (*)(const Mid* const* srcRows, Dst* dst, ptrdiff_t dstStep, int32_t width, int32_t rows,
                             int32_t divisor, ptrdiff_t plane);

template <class Wide, class Kernel, class Mid, class Dst, class Ending>
static inline void filterColumns(const Mid* const* srcRows, Dst* dst, ptrdiff_t dstStep, int32_t width, int32_t rows,
                                 ptrdiff_t middlePlane, const Ending& ending) {
  constexpr int32_t taps = Kernel::taps;
  for (int32_t y = 0; y < rows; ++y) {
    const Mid* t[taps];
    for (int32_t i = 0; i < taps; ++i) t[i] = srcRows[y + i];
    t[taps / 2] += middlePlane;
    Dst* row = rowAt(dst, dstStep, y);
    forElements(width, [&](ptrdiff_t x) { row[x] = ending(Kernel::template at<Wide>(t, x)); });
  }
}

template <class Kernel>
static void columns32f(const float* const* srcRows, float* dst, ptrdiff_t dstStep, int32_t width, int32_t rows, int32_t,
                       ptrdiff_t) {
  filterColumns<float, Kernel>(srcRows, dst, dstStep, width, rows, 0, StoreFloat());
}

template <class Kernel>
static void columns16s(const int16_t* const* srcRows, int16_t* dst, ptrdiff_t dstStep, int32_t width, int32_t rows,
                       int32_t, ptrdiff_t) {
  filterColumns<int32_t, Kernel>(srcRows, dst, dstStep, width, rows, 0, StoreLow16());
}

template <class Kernel>
static void columns16s8s(const int16_t* const* srcRows, int8_t* dst, ptrdiff_t dstStep, int32_t width, int32_t rows,
                         int32_t divisor, ptrdiff_t) {
  filterColumns<int32_t, Kernel>(srcRows, dst, dstStep, width, rows, 0, ScaleAndClamp<int8_t>(divisor));
}

static void laplacian3Columns32f(const float* const* srcRows, float* dst, ptrdiff_t dstStep, int32_t width,
                                 int32_t rows, int32_t, ptrdiff_t plane) {
  filterColumns<float, ColumnOfLaplacian3>(srcRows, dst, dstStep, width, rows, plane, StoreFloat());
}

static void laplacian3Columns16s(const int16_t* const* srcRows, int16_t* dst, ptrdiff_t dstStep, int32_t width,
                                 int32_t rows, int32_t, ptrdiff_t plane) {
  filterColumns<int32_t, ColumnOfLaplacian3>(srcRows, dst, dstStep, width, rows, plane, StoreLow16());
}

static void laplacian3Columns16s8s(const int16_t* const* srcRows, int8_t* dst, ptrdiff_t dstStep, int32_t width,
                                   int32_t rows, int32_t divisor, ptrdiff_t plane) {
  filterColumns<int32_t, ColumnOfLaplacian3>(srcRows, dst, dstStep, width, rows, plane, ScaleAndClamp<int8_t>(divisor));
}

// Adds 1 4 6 4 1 to what dst holds, dst first.
template <class Wide, class T>
static void addingSobel5Columns(const T* const* srcRows, T* dst, ptrdiff_t dstStep, int32_t width, int32_t rows,
                                int32_t, ptrdiff_t) {
  for (int32_t y = 0; y < rows; ++y) {
    const T* const* t = srcRows + y;
    const T *t0 = t[0], *t1 = t[1], *t2 = t[2], *t3 = t[3], *t4 = t[4];
    T* __restrict row = rowAt(dst, dstStep, y);
    for (int32_t x = 0; x < width; ++x) {
      row[x] = T(Wide(row[x]) + Wide(t0[x]) + 4 * (Wide(t1[x]) + Wide(t3[x])) + 6 * Wide(t2[x]) + Wide(t4[x]));
    }
  }
}

static void average3Columns32f(const float* const* srcRows, float* dst, ptrdiff_t dstStep, int32_t width, int32_t rows,
                               int32_t, ptrdiff_t) {
  filterColumns<float, ColumnOfSum3>(srcRows, dst, dstStep, width, rows, 0, ScaleFloat{0.11111111f});
}

static void average5Columns32f(const float* const* srcRows, float* dst, ptrdiff_t dstStep, int32_t width, int32_t rows,
                               int32_t, ptrdiff_t) {
  filterColumns<float, ColumnOfSum5>(srcRows, dst, dstStep, width, rows, 0, ScaleFloat{0.04f});
}

static void average3Columns16s8u(const int16_t* const* srcRows, uint8_t* dst, ptrdiff_t dstStep, int32_t width,
                                 int32_t rows, int32_t, ptrdiff_t) {
  filterColumns<int32_t, ColumnOfSum3>(srcRows, dst, dstStep, width, rows, 0, MeanOf9());
}

static void average5Columns16s8u(const int16_t* const* srcRows, uint8_t* dst, ptrdiff_t dstStep, int32_t width,
                                 int32_t rows, int32_t, ptrdiff_t) {
  filterColumns<int32_t, ColumnOfSum5>(srcRows, dst, dstStep, width, rows, 0, MeanOf25());
}

// The tables of stages, by RowKernel and ColumnKernel.

template <class Wide, class Src, class Mid>
static constexpr RowStage<Src, Mid> owntabRow[] = {
    filterRows<Wide, RowOfDx3, Src, Mid>,       filterRows<Wide, RowOfScharr3, Src, Mid>,
    filterRows<Wide, RowOfDxNeg3, Src, Mid>,    filterRows<Wide, RowOfDxNeg5, Src, Mid>,
    filterRows<Wide, RowOfDx2_3, Src, Mid>,     filterRows<Wide, RowOfDx2_5, Src, Mid>,
    filterRows<Wide, RowOfSobel3, Src, Mid>,    filterRows<Wide, RowOfSobel5, Src, Mid>,
    filterRows<Wide, RowOfAverage3, Src, Mid>,  filterRows<Wide, RowOfAverage5, Src, Mid>,
    filterRows<Wide, RowOfLaplacian3, Src, Mid>};

static constexpr int32_t rowTapSum[] = {RowOfDx3::sum,      RowOfScharr3::sum,  RowOfDxNeg3::sum,    RowOfDxNeg5::sum,
                                        RowOfDx2_3::sum,    RowOfDx2_5::sum,    RowOfSobel3::sum,    RowOfSobel5::sum,
                                        RowOfAverage3::sum, RowOfAverage5::sum, RowOfLaplacian3::sum};

static bool hasFiveTaps(RowKernel kernel) {
  return kernel == rowDxNeg5 || kernel == rowDx2_5 || kernel == rowSobel5 || kernel == rowAverage5;
}

static constexpr ColumnStage<float, float> owntabColumn_32f[] = {
    columns32f<ColumnOfScharr3>,  columns32f<ColumnOfDx3>, columns32f<ColumnOfSobel3>,
    columns32f<ColumnOfSobel5>,   columns32f<ColumnOfDx5>, columns32f<ColumnOfDx2_3>,
    columns32f<ColumnOfDx2_5>,    laplacian3Columns32f,    addingSobel5Columns<float, float>,
    average3Columns32f,           average5Columns32f,      columns32f<ColumnOfSobelNeg3>,
    columns32f<ColumnOfSobelNeg5>};

// The averages are not formed in 16 bits.
static constexpr ColumnStage<int16_t, int16_t> owntabColumn_8u16s[] = {
    columns16s<ColumnOfScharr3>,   columns16s<ColumnOfDx3>,       columns16s<ColumnOfSobel3>,
    columns16s<ColumnOfSobel5>,    columns16s<ColumnOfDx5>,       columns16s<ColumnOfDx2_3>,
    columns16s<ColumnOfDx2_5>,     laplacian3Columns16s,          addingSobel5Columns<int32_t, int16_t>,
    columns16s<ColumnOfSobelNeg3>, columns16s<ColumnOfSobelNeg5>, columns16s<ColumnOfSobelNeg3>,
    columns16s<ColumnOfSobelNeg5>};

// The 5x5 Laplacian goes through 16 bits, so its entry is never reached.
static constexpr ColumnStage<int16_t, int8_t> owntabColumn_8u8s[] = {
    columns16s8s<ColumnOfScharr3>,   columns16s8s<ColumnOfDx3>,       columns16s8s<ColumnOfSobel3>,
    columns16s8s<ColumnOfSobel5>,    columns16s8s<ColumnOfDx5>,       columns16s8s<ColumnOfDx2_3>,
    columns16s8s<ColumnOfDx2_5>,     laplacian3Columns16s8s,          laplacian3Columns16s8s,
    columns16s8s<ColumnOfSobelNeg3>, columns16s8s<ColumnOfSobelNeg5>, columns16s8s<ColumnOfSobelNeg3>,
    columns16s8s<ColumnOfSobelNeg5>};

// From columnAverage3 on.
static constexpr ColumnStage<int16_t, uint8_t> owntabColumn_8u[] = {average3Columns16s8u, average5Columns16s8u};

// The element of a row of filtered constants.
static float constantRow(float value, int32_t tapSum) { return float(tapSum) * value; }
static int16_t constantRow(uint8_t value, int32_t tapSum) {
  return int16_t(std::clamp<int32_t>(tapSum * value, INT16_MIN, INT16_MAX));
}

namespace {

// A walk over the rows beyond an edge in the mirror modes: `row`, then one further from the edge with each next().
struct MirroredRows {
  int32_t row, step;
  int32_t height;
  bool repeatsEdge;  // the mode is qorBorderMirrorEdge
  bool turns;        // at the ends of the stripe

  void next() {
    if (height == 1) return;
    row += step;
    if (!turns || (row >= 0 && row < height)) return;
    step = -step;
    row += repeatsEdge ? step : 2 * step;
  }
};

}  // namespace

template <class Wide, class Src, class Mid, class Dst>
static void filterConvolution(const Src* src, int32_t srcStep, Dst* dst, int32_t dstStep, QoriSize roiSize,
                              KernelPair kernels, ColumnStage<Mid, Dst> columnStage, QoriBorderType borderType,
                              Src borderValue, int32_t divisor, uint8_t* buffer, const Src* image, QoriSize imageSize) {
  const int32_t width = roiSize.width, height = roiSize.height;
  const int32_t taps = hasFiveTaps(kernels.row) ? 5 : 3, half = taps / 2;
  const int32_t ringRows = taps + blockRows - 1;
  const QoriBorderType mode = borderType & 15;
  const bool rowsAbove = borderType & qorBorderRowsAbove, rowsBelow = borderType & qorBorderRowsBelow;

  // Scratch: row pointers, then the rows of the edges, then the ring.
  constexpr int32_t rowUnit = 32 / int32_t(sizeof(Mid)) / 2;
  const ptrdiff_t planeStride = (ptrdiff_t(width) + rowUnit - 1) / rowUnit * rowUnit;
  const ptrdiff_t plane = kernels.row == rowLaplacian3 ? planeStride : 0;
  const ptrdiff_t rowStride = planeStride + plane;
  Mid** rows = alignUp<Mid*>(buffer, 32);
  Mid* edgeRows = alignUp<Mid>(rows + taps + 2 * ringRows, 64);
  Mid* ring = edgeRows + taps * rowStride;
  for (int32_t i = 0; i < ringRows; ++i) rows[taps + i] = rows[taps + ringRows + i] = ring + i * rowStride;

  const RowStage<Src, Mid> rowStageOf = owntabRow<Wide, Src, Mid>[kernels.row];
  const RowEdges<Src> edges = rowEdges(width, half, mode, borderValue);
  const auto filterRowsFrom = [&](const Src* from, Mid* const* to, int32_t count) {
    rowStageOf(from, srcStep, to, count, edges, plane);
  };
  // One row beyond an edge: filters `from` into the edge row `index` and aims `row` at it.
  const auto filterEdgeRow = [&](const Src* from, int32_t index, Mid*& row) {
    row = edgeRows + index * rowStride;
    filterRowsFrom(from, &row, 1);
  };
  const auto fillConstantRow = [&](int32_t index) {
    Mid* row = edgeRows + index * rowStride;
    std::fill(row, row + width, constantRow(borderValue, rowTapSum[kernels.row]));
    return row;
  };
  const bool mirrorsEdge = mode == qorBorderMirrorEdge;

  // The rows above, nearest first: row i stands i + 1 pointers before the ring.
  Mid** const top = rows + taps;
  if (rowsAbove) {
    for (int32_t i = 0; i < half; ++i) filterEdgeRow(rowAt(src, srcStep, -1 - i), i, top[-1 - i]);
  } else if (mode == qorBorderConst) {
    std::fill(top - half, top, fillConstantRow(0));
  } else if (mode == qorBorderReplicate) {
    std::fill(top - half, top, top[0]);
  } else if (mode == qorBorderWrap) {
    int32_t y = imageSize.height;
    for (int32_t i = 0; i < half; ++i) {
      y = y == 0 ? imageSize.height - 1 : y - 1;
      filterEdgeRow(rowAt(image, srcStep, y), i, top[-1 - i]);
    }
  } else {
    MirroredRows mirrored = {mirrorsEdge || height == 1 ? 0 : 1, 1, height, mirrorsEdge, !rowsBelow};
    for (int32_t i = 0; i < half; ++i, mirrored.next()) {
      filterEdgeRow(rowAt(src, srcStep, mirrored.row), i, top[-1 - i]);
    }
  }

  // Blocks: `ready` rows stand from the pointer `read` on, from the top of the next row's window downward.
  Mid** read = top - half;
  int32_t ready = half, filtered = 0, written = 0;
  while (filtered < height) {
    const int32_t count = std::min(ringRows - ready, height - filtered);
    filterRowsFrom(rowAt(src, srcStep, filtered), read + ready, count);
    filtered += count;
    ready += count;
    const int32_t complete = ready - (taps - 1);
    if (complete < 1) break;  // an image of very few rows: the edge below completes its windows
    columnStage(read, rowAt(dst, dstStep, written), dstStep, width, complete, divisor, plane);
    written += complete;
    ready -= complete;
    read += complete;
    if (read >= top + ringRows) read -= ringRows;
  }

  // The rows below, behind the last row of the image.
  Mid** const bottom = read + ready;
  if (rowsBelow) {
    for (int32_t i = 0; i < half; ++i) filterEdgeRow(rowAt(src, srcStep, height + i), half + i, bottom[i]);
  } else if (mode == qorBorderConst) {
    std::fill(bottom, bottom + half, fillConstantRow(half));
  } else if (mode == qorBorderReplicate) {
    std::fill(bottom, bottom + half, bottom[-1]);
  } else if (mode == qorBorderWrap) {
    for (int32_t i = 0; i < half; ++i) {
      filterEdgeRow(rowAt(image, srcStep, i % imageSize.height), half + i, bottom[i]);
    }
  } else {
    MirroredRows mirrored = {mirrorsEdge || height == 1 ? height - 1 : height - 2, -1, height, mirrorsEdge, !rowsAbove};
    for (int32_t i = 0; i < half; ++i, mirrored.next()) {
      filterEdgeRow(rowAt(src, srcStep, mirrored.row), half + i, bottom[i]);
    }
  }
  columnStage(read, rowAt(dst, dstStep, written), dstStep, width, height - written, divisor, plane);
}

void ownFilterConvolution_32f(const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize,
                              KernelPair kernels, QoriBorderType borderType, float borderValue, int32_t divisor,
                              uint8_t* buffer, const float* image, QoriSize imageSize) {
  filterConvolution<float, float, float>(src, srcStep, dst, dstStep, roiSize, kernels, owntabColumn_32f[kernels.column],
                                         borderType, borderValue, divisor, buffer, image, imageSize);
}

void ownFilterConvolution_8u16s(const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep, QoriSize roiSize,
                                KernelPair kernels, QoriBorderType borderType, uint8_t borderValue, int32_t divisor,
                                uint8_t* buffer, const uint8_t* image, QoriSize imageSize) {
  filterConvolution<int32_t, uint8_t, int16_t>(src, srcStep, dst, dstStep, roiSize, kernels,
                                               owntabColumn_8u16s[kernels.column], borderType, borderValue, divisor,
                                               buffer, image, imageSize);
}

void ownFilterConvolution_8u8s(const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep, QoriSize roiSize,
                               KernelPair kernels, QoriBorderType borderType, uint8_t borderValue, int32_t divisor,
                               uint8_t* buffer, const uint8_t* image, QoriSize imageSize) {
  filterConvolution<int32_t, uint8_t, int16_t>(src, srcStep, dst, dstStep, roiSize, kernels,
                                               owntabColumn_8u8s[kernels.column], borderType, borderValue, divisor,
                                               buffer, image, imageSize);
}

void ownFilterConvolution_8u(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize,
                             KernelPair kernels, QoriBorderType borderType, uint8_t borderValue, int32_t divisor,
                             uint8_t* buffer, const uint8_t* image, QoriSize imageSize) {
  filterConvolution<int32_t, uint8_t, int16_t>(src, srcStep, dst, dstStep, roiSize, kernels,
                                               owntabColumn_8u[kernels.column - columnAverage3], borderType,
                                               borderValue, divisor, buffer, image, imageSize);
}
