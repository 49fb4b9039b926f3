// Tilted integral images of 8-bit pixels and of their squares: each cell sums the cone above it, by a recurrence over
// the two rows before.
//
// Odd: the 32f sum planes add column W to what the cell held before the call; the 8u32s pair has no separate column W
// and so reads one byte past each source row. Float cells are formed in double, in an order of their own for each type.
#include "frame/frame.h"

// Cell i from the terms of pixels i-1 and i, cur[i-1], cur[i+1] and prev[i].
static inline int32_t innerCell(int32_t term1, int32_t term2, int32_t left, int32_t right, int32_t above) {
  return term1 + term2 + left + right - above;
}
static inline float innerCell(int32_t term1, int32_t term2, float left, float right, float above) {
  return float(double(left) - double(above) + double(right) + double(term1) + double(term2));
}
static inline double innerCell(int32_t term1, int32_t term2, double left, double right, double above) {
  return double(term1 + term2) + left - above + right;
}

// Column W, of which only the left pixel exists. `old` is what the cell held before the call.
static inline int32_t lastCell(int32_t term, int32_t left, int32_t right, int32_t above, const int32_t*) {
  return term + left + right - above;
}
static inline float lastCell(int32_t term, float left, float right, float above, const float* old) {
  // By contract the result is added to the old cell, uncleared: only column W of 32f planes does that.
  return float(double(term) + double(left) + double(right) - double(above)) + *old;
}
static inline double lastCell(int32_t term, double left, double right, double above, const double*) {
  return double(term) + left - above + right;
}

// What a pixel adds to a sum plane or a square plane.
enum class Term { pixel, square };

template <Term term>
static inline int32_t termOf(uint8_t pixel) {
  return term == Term::square ? pixel * pixel : pixel;
}

// How column W comes about: by itself, or as the columns before it, from the pixel past the region too.
enum class LastColumn { apart, fromPixelPastRegion };

template <Term term, LastColumn lastColumn, class Cell>
static void tiltedRow(const uint8_t* src, const Cell* prev, const Cell* cur, Cell* next, int32_t width) {
  next[0] = cur[1];
  forElements(lastColumn == LastColumn::apart ? width - 1 : width, [=](ptrdiff_t x) {
    next[x + 1] = innerCell(termOf<term>(src[x]), termOf<term>(src[x + 1]), cur[x], cur[x + 2], prev[x + 1]);
  });
  if (lastColumn == LastColumn::apart) {
    next[width] = lastCell(termOf<term>(src[width - 1]), cur[width - 1], cur[width + 1], prev[width], next + width);
  }
  next[width + 1] = cur[width];
}

template <Term term, LastColumn lastColumn, class Cell>
static void tiltedRowOfPlane(const uint8_t* srcRow, Cell* plane, int32_t step, int32_t y, int32_t width) {
  tiltedRow<term, lastColumn>(srcRow, static_cast<const Cell*>(rowAt(plane, step, y)),
                              static_cast<const Cell*>(rowAt(plane, step, ptrdiff_t(y) + 1)),
                              rowAt(plane, step, ptrdiff_t(y) + 2), width);
}

template <class Cell>
static void fillFirstRows(Cell* plane, int32_t step, int32_t width, Cell value) {
  for (int32_t y = 0; y < 2; ++y) {
    Cell* row = rowAt(plane, step, y);
    for (int32_t x = 0; x < width; ++x) row[x] = value;
  }
}

// The size of a plane.
static inline QoriSize planeSize(QoriSize roiSize) { return {roiSize.width + 2, roiSize.height + 2}; }

template <class Cell>
static QorStatus tiltedIntegral(const uint8_t* src, int32_t srcStep, Cell* dst, int32_t dstStep, QoriSize roiSize,
                                Cell val) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t>(srcStep, roiSize) || shortStep<Cell>(dstStep, planeSize(roiSize))) return qorStatusBadStep;
  if (misaligned<Cell>(dstStep)) return qorStatusBadStepAlign;
  fillFirstRows(dst, dstStep, roiSize.width + 2, val);
  for (int32_t y = 0; y < roiSize.height; ++y) {
    tiltedRowOfPlane<Term::pixel, LastColumn::apart>(rowAt(src, srcStep, y), dst, dstStep, y, roiSize.width);
  }
  return qorStatusOk;
}

template <LastColumn lastColumn, class Cell, class Square>
static QorStatus tiltedSqrIntegral(const uint8_t* src, int32_t srcStep, Cell* dst, int32_t dstStep, Square* sqr,
                                   int32_t sqrStep, QoriSize roiSize, Cell val, Square valSqr) {
  if (anyNull(src, dst, sqr)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t>(srcStep, roiSize) || shortStep<Cell>(dstStep, planeSize(roiSize)) ||
      shortStep<Square>(sqrStep, planeSize(roiSize))) {
    return qorStatusBadStep;
  }
  if (misaligned<Cell>(dstStep) || misaligned<Square>(sqrStep)) return qorStatusBadStepAlign;
  fillFirstRows(dst, dstStep, roiSize.width + 2, val);
  fillFirstRows(sqr, sqrStep, roiSize.width + 2, valSqr);
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const uint8_t* srcRow = rowAt(src, srcStep, y);
    tiltedRowOfPlane<Term::pixel, lastColumn>(srcRow, dst, dstStep, y, roiSize.width);
    tiltedRowOfPlane<Term::square, lastColumn>(srcRow, sqr, sqrStep, y, roiSize.width);
  }
  return qorStatusOk;
}

QorStatus qoriTiltedIntegral_8u32s_C1R(const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep,
                                       QoriSize roiSize, int32_t val) {
  return tiltedIntegral(src, srcStep, dst, dstStep, roiSize, val);
}

QorStatus qoriTiltedIntegral_8u32f_C1R(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep,
                                       QoriSize roiSize, float val) {
  return tiltedIntegral(src, srcStep, dst, dstStep, roiSize, val);
}

// By contract this form alone takes the pixel past the region into column W of both planes.
QorStatus qoriTiltedSqrIntegral_8u32s_C1R(const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep,
                                          int32_t* sqr, int32_t sqrStep, QoriSize roiSize, int32_t val,
                                          int32_t valSqr) {
  return tiltedSqrIntegral<LastColumn::fromPixelPastRegion>(src, srcStep, dst, dstStep, sqr, sqrStep, roiSize, val,
                                                            valSqr);
}

QorStatus qoriTiltedSqrIntegral_8u32s64f_C1R(const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep,
                                             double* sqr, int32_t sqrStep, QoriSize roiSize, int32_t val,
                                             double valSqr) {
  return tiltedSqrIntegral<LastColumn::apart>(src, srcStep, dst, dstStep, sqr, sqrStep, roiSize, val, valSqr);
}

QorStatus qoriTiltedSqrIntegral_8u32f64f_C1R(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep,
                                             double* sqr, int32_t sqrStep, QoriSize roiSize, float val, double valSqr) {
  return tiltedSqrIntegral<LastColumn::apart>(src, srcStep, dst, dstStep, sqr, sqrStep, roiSize, val, valSqr);
}
