// Corner measures: eigenvalues and eigenvectors of the averaged 2x2 matrix of slopes around each pixel.
//
// Two derivative filters, three products of the slopes, three low-pass filters, and a closed form for each pixel. All
// this goes band by band of rows, so that what lies between the steps stays in the cache; with the flags for rows above
// and below, a band's filters give what they give on the whole image. Where the filters would use threads, each thread
// takes the bands of one of their stripes.
//
// Odd: the scratch query asks the Scharr filters by the averaging window, although they depend on the aperture;
// qoriEigenValsVecs_32f_C1R takes a dstStep for one float a pixel although it writes six, so its rows may overlap, and
// are written from the first to the last.
#include <algorithm>

#include "feature/eigen_rows.h"
#include "filter/fixedfilter.h"
#include "frame/frame.h"

enum { sobelKernel = 0, scharrKernel = 1 };

namespace {

// The derivative filters of a source type.
template <class T>
struct SlopeFilters;

#define QOR_SLOPES(T, SlopeType, form)                                                                                \
  template <>                                                                                                         \
  struct SlopeFilters<T> {                                                                                            \
    using Slope = SlopeType;                                                                                          \
    static QorStatus vertical(const T* src, int32_t srcStep, Slope* dst, int32_t dstStep, QoriSize size, bool scharr, \
                              QoriMaskSelector mask, QoriBorderType border, uint8_t* buffer) {                        \
      return scharr ? qoriFilterScharrVertBorder_##form(src, srcStep, dst, dstStep, size, border, 0, buffer)          \
                    : qoriFilterSobelVertBorder_##form(src, srcStep, dst, dstStep, size, mask, border, 0, buffer);    \
    }                                                                                                                 \
    static QorStatus horizontal(const T* src, int32_t srcStep, Slope* dst, int32_t dstStep, QoriSize size,            \
                                bool scharr, QoriMaskSelector mask, QoriBorderType border, uint8_t* buffer) {         \
      return scharr ? qoriFilterScharrHorizBorder_##form(src, srcStep, dst, dstStep, size, border, 0, buffer)         \
                    : qoriFilterSobelHorizBorder_##form(src, srcStep, dst, dstStep, size, mask, border, 0, buffer);   \
    }                                                                                                                 \
    static QorStatus sobelScratch(QoriSize size, QoriMaskSelector mask, int32_t* vertical, int32_t* horizontal) {     \
      const QorStatus status = qoriFilterSobelVertGetBufferSize_##form(size, mask, vertical);                         \
      return status < 0 ? status : qoriFilterSobelHorizGetBufferSize_##form(size, mask, horizontal);                  \
    }                                                                                                                 \
    static QorStatus scharrScratch(QoriSize size, int32_t* vertical, int32_t* horizontal) {                           \
      const QorStatus status = qoriFilterScharrVertGetBufferSize_##form(size, vertical);                              \
      return status < 0 ? status : qoriFilterScharrHorizGetBufferSize_##form(size, horizontal);                       \
    }                                                                                                                 \
  };
QOR_SLOPES(uint8_t, int16_t, 8u16s_C1R)
QOR_SLOPES(float, float, 32f_C1R)
#undef QOR_SLOPES

template <class T>
struct EigenCall {
  const T* src;
  int32_t srcStep;
  float* dst;
  int32_t dstStep;
  QoriSize roiSize;
  int32_t kernelType, apertureSize, avgWindow;
  uint8_t* buffer;
  QoriBorderType borderType;  // what of the image lies beyond a stripe
};

// Where a call works. The planes of the products follow each other at a distance of `plane` floats.
template <class Slope>
struct EigenScratch {
  Slope *dx, *dy;
  float* products;
  ptrdiff_t stride, plane;  // in elements
  uint8_t* filterBuffer;
};

}  // namespace

static bool isWindow(int32_t size) { return size == 3 || size == 5; }

static QoriMaskSelector maskOf(int32_t size) { return size * 11; }

// The most that any of the filters asks for.
template <class T>
static QorStatus mostFilterScratch(QoriSize roiSize, int32_t apertureSize, int32_t avgWindow, int32_t* bytes) {
  int32_t sizes[5] = {};
  QorStatus status = SlopeFilters<T>::sobelScratch(roiSize, maskOf(apertureSize), &sizes[0], &sizes[1]);
  if (status < 0) return status;
  if (avgWindow == 3) {
    status = SlopeFilters<T>::scharrScratch(roiSize, &sizes[2], &sizes[3]);
    if (status < 0) return status;
  }
  status = qoriFilterLowpassGetBufferSize_32f_C1R(roiSize, maskOf(avgWindow), &sizes[4]);
  if (status < 0) return status;
  *bytes = *std::max_element(sizes, sizes + 5);
  return qorStatusOk;
}

template <class T>
static QorStatus eigenBufferSize(QoriSize roiSize, int32_t apertureSize, int32_t avgWindow, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize) || !isWindow(apertureSize) || !isWindow(avgWindow)) return qorStatusBadSize;
  int32_t filterBytes;
  const QorStatus status = mostFilterScratch<T>(roiSize, apertureSize, avgWindow, &filterBytes);
  if (status < 0) return status;
  const int32_t bytesPerPixel = 3 * sizeof(float) + 2 * sizeof(typename SlopeFilters<T>::Slope);
  *bufferSize = bytesPerPixel * roundedUpTo16(roiSize.width) * roiSize.height + filterBytes + 224;
  return qorStatusOk;
}

// `dstValues` are the floats a pixel that dstStep must have room for.
template <class T, int32_t dstValues>
static QorStatus checkEigen(const EigenCall<T>& c) {
  if (anyNull(c.src, c.dst, c.buffer)) return qorStatusNullPtr;
  if (emptySize(c.roiSize)) return qorStatusBadSize;
  if (shortStep<T>(c.srcStep, c.roiSize) || shortStep<float, dstValues>(c.dstStep, c.roiSize)) return qorStatusBadStep;
  if (misaligned<T>(c.srcStep) || misaligned<float>(c.dstStep)) return qorStatusBadStepAlign;
  if (c.kernelType != sobelKernel && c.kernelType != scharrKernel) return qorStatusBadArg;
  if (c.kernelType == scharrKernel ? c.apertureSize != 3 : !isWindow(c.apertureSize)) return qorStatusBadSize;
  if (!isWindow(c.avgWindow)) return qorStatusBadSize;
  return qorStatusOk;
}

// Products of 16-bit slopes are exact integers before they become floats.
static float product(int16_t a, int16_t b) { return float(int32_t(a) * int32_t(b)); }
static float product(float a, float b) { return a * b; }

template <class Slope>
static void multiplySlopes(const Slope* dx, const Slope* dy, float* a, float* b, float* c, ptrdiff_t count) {
  QOR_INDEPENDENT
  for (ptrdiff_t i = 0; i < count; ++i) {
    a[i] = product(dx[i], dx[i]);
    b[i] = product(dx[i], dy[i]);
    c[i] = product(dy[i], dy[i]);
  }
}

// Rows of a band: what the planes hold for so many fits the second-level cache. A band has at least so many that every
// filter finds its real rows beyond it, and with its neighbours' rows no more than the least stripe of a thread.
static constexpr int32_t bandBytes = 384 << 10, fewestBandRows = 16, mostBandRows = 96, leastStripe = 128;
static_assert(mostBandRows + fewestBandRows + 4 <= leastStripe, "a band fits its thread's share of the planes");

// Runs the pipeline on the rows from firstRow to before limitRow, in bands. finish(y, a, b, c) takes the smoothed
// products of each row.
template <class T, class Slope, class Finish>
static QorStatus runBands(const EigenCall<T>& c, int32_t firstRow, int32_t limitRow, int32_t bandRows,
                          const EigenScratch<Slope>& s, Finish finish) {
  using Filters = SlopeFilters<T>;
  const int32_t width = c.roiSize.width, height = c.roiSize.height;
  const int32_t slopeStep = int32_t(s.stride * sizeof(Slope)), planeStep = int32_t(s.stride * sizeof(float));
  const bool scharr = c.kernelType == scharrKernel;
  const QoriMaskSelector slopeMask = maskOf(c.apertureSize), meanMask = maskOf(c.avgWindow);
  const int32_t meanRows = c.avgWindow / 2;
  const auto borderOf = [=](int32_t first, int32_t limit) {
    return qorBorderReplicate | (first > 0 ? qorBorderRowsAbove : 0) | (limit < height ? qorBorderRowsBelow : 0);
  };
  for (int32_t first = firstRow, rows; first < limitRow; first += rows) {
    rows = limitRow - first < bandRows + fewestBandRows ? limitRow - first : bandRows;
    const int32_t above = std::min(meanRows, first), below = std::min(meanRows, height - first - rows);
    const QoriSize slopeSize = {width, rows + above + below};
    const T* src = rowAt(c.src, c.srcStep, first - above);
    const QoriBorderType slopeBorder = borderOf(first - above, first + rows + below);
    QorStatus status =
        Filters::vertical(src, c.srcStep, s.dx, slopeStep, slopeSize, scharr, slopeMask, slopeBorder, s.filterBuffer);
    if (status < 0) return status;
    status =
        Filters::horizontal(src, c.srcStep, s.dy, slopeStep, slopeSize, scharr, slopeMask, slopeBorder, s.filterBuffer);
    if (status < 0) return status;
    for (int32_t y = 0; y < slopeSize.height; ++y) {
      const ptrdiff_t row = s.stride * y;
      float* const a = s.products + row;
      multiplySlopes(s.dx + row, s.dy + row, a, a + s.plane, a + 2 * s.plane, width);
    }
    const ptrdiff_t skipped = s.stride * above;
    for (int32_t i = 0; i < 3; ++i) {
      float* const plane = s.products + i * s.plane + skipped;
      status = qoriFilterLowpassBorder_32f_C1R(plane, planeStep, plane, planeStep, {width, rows}, meanMask,
                                               borderOf(first, first + rows), 0, s.filterBuffer);
      if (status < 0) return status;
    }
    for (int32_t y = 0; y < rows; ++y) {
      const float* a = s.products + skipped + s.stride * y;
      finish(first + y, a, a + s.plane, a + 2 * s.plane);
    }
  }
  return qorStatusOk;
}

// Runs the pipeline. `rowBytes` is what finish() writes a row.
template <class T, class Finish>
static QorStatus eigenPipeline(const EigenCall<T>& c, int32_t rowBytes, Finish finish) {
  using Slope = typename SlopeFilters<T>::Slope;
  const int32_t height = c.roiSize.height, stride = roundedUpTo16(c.roiSize.width);
  EigenScratch<Slope> scratch;
  scratch.stride = stride;
  scratch.plane = ptrdiff_t(stride) * height;
  scratch.dx = alignUp<Slope>(c.buffer, 32);
  scratch.dy = scratch.dx + scratch.plane;
  scratch.products = reinterpret_cast<float*>(scratch.dy + scratch.plane);
  scratch.filterBuffer = reinterpret_cast<uint8_t*>(scratch.products + 3 * scratch.plane);
  const int32_t planeRow = stride * int32_t(3 * sizeof(float) + 2 * sizeof(Slope));
  const int32_t bandRows = std::clamp(bandBytes / planeRow, fewestBandRows, mostBandRows);

  int32_t filterBytes;
  QorStatus status = mostFilterScratch<T>(c.roiSize, c.apertureSize, c.avgWindow, &filterBytes);
  if (status < 0) return status;
  EigenCall<T> call = c;
  call.buffer = scratch.filterBuffer;
  bool inOrder = false;
  runFilter(call, filterBytes, [&](const EigenCall<T>& stripe) {
    // A stripe that is given a single thread, though it asked for more, would read rows beyond the image; and rows
    // that overlap need their order.
    const bool threaded = stripe.borderType != qorBorderReplicate, alone = stripe.roiSize.height == height;
    if (threaded && (alone || c.dstStep < rowBytes)) {
      if (stripe.src == c.src) inOrder = true;
      return;
    }
    const int32_t row =
        int32_t((reinterpret_cast<uintptr_t>(stripe.src) - reinterpret_cast<uintptr_t>(c.src)) / uintptr_t(c.srcStep));
    EigenScratch<Slope> own = scratch;
    own.dx += scratch.stride * row;
    own.dy += scratch.stride * row;
    own.products += scratch.stride * row;
    own.filterBuffer = stripe.buffer;
    // What a filter refuses it refuses for every stripe.
    const QorStatus ofStripe = runBands(c, row, row + stripe.roiSize.height, bandRows, own, finish);
    if (stripe.src == c.src) status = ofStripe;
  });
  // Bands are too low for the filters to be shared out themselves.
  return inOrder ? runBands(c, 0, height, bandRows, scratch, finish) : status;
}

template <class T>
static float scaleOf(const EigenCall<T>& c) {
  const float scale = 1.0f / float(255 << (2 * c.apertureSize - 2));
  return c.kernelType == scharrKernel ? scale * 0.6125f : scale;
}

template <class T, int32_t dstValues>
static QorStatus eigenValsVecs(const EigenCall<T>& c) {
  if (const QorStatus status = checkEigen<T, dstValues>(c)) return status;
  const float scale = scaleOf(c), sign = c.kernelType == scharrKernel ? 1.0f : -1.0f;
  return eigenPipeline(c, 24 * c.roiSize.width, [=](int32_t y, const float* xx, const float* xy, const float* yy) {
    eigenValuesRow(xx, xy, yy, rowAt(c.dst, c.dstStep, y), c.roiSize.width, scale, sign);
  });
}

template <class T>
static QorStatus minEigenVal(const EigenCall<T>& c) {
  if (const QorStatus status = checkEigen<T, 1>(c)) return status;
  const double halfScale = double(scaleOf(c) * 0.5f);
  return eigenPipeline(c, 4 * c.roiSize.width, [=](int32_t y, const float* xx, const float* xy, const float* yy) {
    minEigenValueRow(xx, xy, yy, rowAt(c.dst, c.dstStep, y), c.roiSize.width, halfScale);
  });
}

#define QOR_EIGEN(name, T, form, measure)                                                                             \
  QorStatus qori##name##_##form##_C1R(const T* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize,   \
                                      int32_t kernelType, int32_t apertureSize, int32_t avgWindow, uint8_t* buffer) { \
    return measure(EigenCall<T>{src, srcStep, dst, dstStep, roiSize, kernelType, apertureSize, avgWindow, buffer,     \
                                qorBorderReplicate});                                                                 \
  }                                                                                                                   \
  QorStatus qori##name##GetBufferSize_##form##_C1R(QoriSize roiSize, int32_t apertureSize, int32_t avgWindow,         \
                                                   int32_t* bufferSize) {                                             \
    return eigenBufferSize<T>(roiSize, apertureSize, avgWindow, bufferSize);                                          \
  }
QOR_EIGEN(EigenValsVecs, float, 32f, (eigenValsVecs<float, 1>))
QOR_EIGEN(EigenValsVecs, uint8_t, 8u32f, (eigenValsVecs<uint8_t, 6>))
QOR_EIGEN(MinEigenVal, float, 32f, minEigenVal)
QOR_EIGEN(MinEigenVal, uint8_t, 8u32f, minEigenVal)
#undef QOR_EIGEN
