// Upright integral images of 8-bit pixels and of their squares.
//
// A plane has one row and one column more than the source, which hold the starting value. Integer planes wrap. In float
// planes the sum of a source row is exact and each cell is rounded once, when the cell above is added.
#include "detect/integral_rows.h"
#include "frame/frame.h"

template <class Cell>
static void fillRow(Cell* row, int32_t cells, Cell value) {
  for (int32_t x = 0; x < cells; ++x) row[x] = value;
}

// The size of a plane.
static inline QoriSize planeSize(QoriSize roiSize) { return {roiSize.width + 1, roiSize.height + 1}; }

template <class Cell>
static QorStatus integral(const uint8_t* src, int32_t srcStep, Cell* dst, int32_t dstStep, QoriSize roiSize, Cell val) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t>(srcStep, roiSize) || shortStep<Cell>(dstStep, planeSize(roiSize))) return qorStatusBadStep;
  if (misaligned<Cell>(dstStep)) return qorStatusBadStepAlign;
  fillRow(dst, roiSize.width + 1, val);
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const Cell* above = rowAt(dst, dstStep, y);
    Cell* cells = rowAt(dst, dstStep, ptrdiff_t(y) + 1);
    cells[0] = val;
    integralRow(rowAt(src, srcStep, y), above + 1, cells + 1, roiSize.width);
  }
  return qorStatusOk;
}

template <class Cell, class Square>
static QorStatus sqrIntegral(const uint8_t* src, int32_t srcStep, Cell* dst, int32_t dstStep, Square* sqr,
                             int32_t sqrStep, QoriSize roiSize, Cell val, Square valSqr) {
  if (anyNull(src, dst, sqr)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t>(srcStep, roiSize) || shortStep<Cell>(dstStep, planeSize(roiSize)) ||
      shortStep<Square>(sqrStep, planeSize(roiSize))) {
    return qorStatusBadStep;
  }
  if (misaligned<Cell>(dstStep) || misaligned<Square>(sqrStep)) return qorStatusBadStepAlign;
  fillRow(dst, roiSize.width + 1, val);
  fillRow(sqr, roiSize.width + 1, valSqr);
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const Cell* above = rowAt(dst, dstStep, y);
    Cell* cells = rowAt(dst, dstStep, ptrdiff_t(y) + 1);
    const Square* squaresAbove = rowAt(sqr, sqrStep, y);
    Square* squares = rowAt(sqr, sqrStep, ptrdiff_t(y) + 1);
    cells[0] = val;
    squares[0] = valSqr;
    sqrIntegralRow(rowAt(src, srcStep, y), above + 1, cells + 1, squaresAbove + 1, squares + 1, roiSize.width);
  }
  return qorStatusOk;
}

QorStatus qoriIntegral_8u32s_C1R(const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep, QoriSize roiSize,
                                 int32_t val) {
  return integral(src, srcStep, dst, dstStep, roiSize, val);
}

QorStatus qoriIntegral_8u32f_C1R(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize,
                                 float val) {
  return integral(src, srcStep, dst, dstStep, roiSize, val);
}

QorStatus qoriSqrIntegral_8u32s_C1R(const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep, int32_t* sqr,
                                    int32_t sqrStep, QoriSize roiSize, int32_t val, int32_t valSqr) {
  return sqrIntegral(src, srcStep, dst, dstStep, sqr, sqrStep, roiSize, val, valSqr);
}

QorStatus qoriSqrIntegral_8u32s64f_C1R(const uint8_t* src, int32_t srcStep, int32_t* dst, int32_t dstStep, double* sqr,
                                       int32_t sqrStep, QoriSize roiSize, int32_t val, double valSqr) {
  return sqrIntegral(src, srcStep, dst, dstStep, sqr, sqrStep, roiSize, val, valSqr);
}

QorStatus qoriSqrIntegral_8u32f64f_C1R(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, double* sqr,
                                       int32_t sqrStep, QoriSize roiSize, float val, double valSqr) {
  return sqrIntegral(src, srcStep, dst, dstStep, sqr, sqrStep, roiSize, val, valSqr);
}
