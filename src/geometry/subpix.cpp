// Copies from positions between the pixels: regions moved by a fraction of a pixel, and windows about a point.
//
// A window is placed along each axis alone. It has three stretches, of which any may be empty: before the source,
// inside (where a pixel lies between two of the source), and after it. Outside, the nearest row or column stands for
// all.
//
// Odd: products of 14-bit weights are rounded by a whole unit, so each of the four weights is too large; what the sum
// has too much is taken from one of them. Two fractions of 0 are the exception.
#include "geometry/subpix.h"

#include <math.h>

#include "frame/frame.h"
#include "geometry/subpix_rows.h"

// --- weights ---

// Weights for pixels inside the source, and along one axis alone, where the other has no neighbour.
struct FixedForm {
  using Weights = FixedWeights;
  Weights inside;
  int32_t one, right, below;  // 1, and the fractions of the two axes, in fixed point
};

struct FloatForm {
  using Weights = FloatWeights;
  Weights inside;
  float right, below;
};

static inline int32_t fixedFraction(float fraction, int32_t one) {
  const float scaled = fraction * float(one) + 0.5f;
  // Far from the source there is no fraction, only an error of rounding.
  return scaled >= 0 && scaled < float(one + 1) ? int32_t(scaled) : 0;
}

template <class Src>
static FixedForm fixedForm(float right, float below, int32_t scaleFactor) {
  constexpr int32_t bits = sizeof(Src) == 1 ? 14 : 15, one = 1 << bits, rounding = 16384;
  // Nothing changes beyond 60 places.
  const int32_t shift = bits + (scaleFactor > 60 ? 60 : scaleFactor < -60 ? -60 : scaleFactor);
  const int32_t a = fixedFraction(right, one), b = fixedFraction(below, one);
  FixedForm form = {{one, 0, 0, 0, shift}, one, a, b};
  if (right == 0 && below == 0) return form;
  FixedWeights& w = form.inside;
  w.topLeft = ((one - a) * (one - b) + rounding) >> bits;
  w.topRight = (a * (one - b) + rounding) >> bits;
  w.bottomLeft = ((one - a) * b + rounding) >> bits;
  w.bottomRight = (a * b + rounding) >> bits;
  const int32_t residual = one - (w.topLeft + w.topRight + w.bottomLeft + w.bottomRight);
  if (residual >= 0) return form;
  const auto largest = [&w](int32_t value) {
    return value >= w.topLeft && value >= w.topRight && value >= w.bottomLeft && value >= w.bottomRight;
  };
  if (largest(w.topLeft)) {
    w.topLeft += residual;
  } else if (largest(w.bottomLeft)) {
    w.bottomLeft += residual;
  } else if (!largest(w.topRight)) {
    w.bottomRight += residual;
  } else {
    w.topRight += residual;
  }
  return form;
}

static FloatForm floatForm(float right, float below) {
  return {{(1 - right) * (1 - below), right * (1 - below), (1 - right) * below, right * below}, right, below};
}

template <class Src, class Dst>
static auto makeForm(float right, float below, int32_t scaleFactor) {
  if constexpr (std::is_same_v<Dst, float>) {
    return floatForm(right, below);
  } else {
    return fixedForm<Src>(right, below, scaleFactor);
  }
}

// --- where a pixel of the source is alone along one axis or both ---

template <class Dst>
static inline Dst alone(int32_t pixel, const FixedForm& form) {
  return shifted<Dst>(pixel * form.one, form.inside.shift);
}
template <class Dst>
static inline Dst alone(float pixel, const FloatForm&) {
  return pixel;
}

template <class Dst>
static inline Dst inColumn(int32_t top, int32_t bottom, const FixedForm& form) {
  return shifted<Dst>(top * (form.one - form.below) + bottom * form.below, form.inside.shift);
}
template <class Dst>
static inline Dst inColumn(float top, float bottom, const FloatForm& form) {
  return top * (1 - form.below) + bottom * form.below;
}

// A row of its own: dst[x] from src[x] and src[x + 1].
template <class Src, class Dst>
static void rowAlone(const Src* src, Dst* dst, ptrdiff_t count, const FixedForm& form) {
  interpolateRow(src, src, dst, count, {form.one - form.right, form.right, 0, 0, form.inside.shift});
}
template <class Src>
static void rowAlone(const Src* src, float* dst, ptrdiff_t count, const FloatForm& form) {
  for (ptrdiff_t x = 0; x < count; ++x) dst[x] = float(src[x]) * (1 - form.right) + float(src[x + 1]) * form.right;
}

// --- regions ---

// What is left of a whole number, raised into 0 .. 1.
static inline float fractionOf(float value) {
  const float fraction = value - truncf(value);
  return fraction < 0 ? fraction + 1 : fraction;
}

// Odd: from integers to float each column is weighed once, as the right neighbour of the pixel before it; for its own
// pixel it is scaled from there. The fraction is raised a little so that it can be a divisor.
template <class Src>
static void copyByColumns(const Src* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize, float right,
                          float below) {
  right = right > 1e-6f ? right : 1e-6f;
  const float top = right * (1 - below), bottom = right * below, ratio = (1 - right) / right;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const Src *p = rowAt(src, srcStep, y), *q = rowAt(src, srcStep, ptrdiff_t(y) + 1);
    float* __restrict row = rowAt(dst, dstStep, y);
    const auto column = [=](ptrdiff_t x) { return float(p[x]) * top + float(q[x]) * bottom; };
    for (ptrdiff_t x = 0; x < roiSize.width; ++x) row[x] = column(x) * ratio + column(x + 1);
  }
}

template <class Src, class Dst>
static QorStatus copySubpix(const Src* src, int32_t srcStep, Dst* dst, int32_t dstStep, QoriSize roiSize, float dx,
                            float dy, int32_t scaleFactor = 0) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<Src>(srcStep, roiSize) || shortStep<Dst>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<Src>(srcStep) || misaligned<Dst>(dstStep)) return qorStatusBadStepAlign;
  const float right = fractionOf(dx), below = fractionOf(dy);
  if constexpr (std::is_same_v<Dst, float> && !std::is_same_v<Src, float>) {
    copyByColumns(src, srcStep, dst, dstStep, roiSize, right, below);
  } else {
    const auto form = makeForm<Src, Dst>(right, below, scaleFactor);
    interpolateRows(src, srcStep, dst, dstStep, roiSize.width, roiSize.height, form.inside);
  }
  return qorStatusOk;
}

// --- windows ---

template <class Src, class Dst>
struct Window {
  const Src* src;
  int32_t srcStep;
  QoriSize srcRoiSize;
  Dst* dst;
  int32_t dstStep;
  QoriSize dstRoiSize;
  QoriPoint_32f point;
  QoriPoint *minPoint, *maxPoint;
  int32_t scaleFactor = 0;
};

template <class Src, class Dst>
static QorStatus checkWindow(const Window<Src, Dst>& w) {
  if (anyNull(w.src, w.dst, w.minPoint, w.maxPoint)) return qorStatusNullPtr;
  if (emptySize(w.srcRoiSize) || emptySize(w.dstRoiSize)) return qorStatusBadSize;
  if (shortStep<Src>(w.srcStep, w.srcRoiSize) || shortStep<Dst>(w.dstStep, w.dstRoiSize)) return qorStatusBadStep;
  if (misaligned<Src>(w.srcStep) || misaligned<Dst>(w.dstStep)) return qorStatusBadStepAlign;
  return qorStatusOk;
}

// `filled`: all of the window is written, and not only what lies inside the source.
template <bool filled, class Src, class Dst>
static QorStatus copyWindow(const Window<Src, Dst>& w) {
  if (const QorStatus status = checkWindow(w)) return status;
  const SubpixPlacement columns = placeSubpix(w.point.x, w.dstRoiSize.width, w.srcRoiSize.width);
  const SubpixPlacement rows = placeSubpix(w.point.y, w.dstRoiSize.height, w.srcRoiSize.height);
  *w.minPoint = {columns.first, rows.first};
  *w.maxPoint = {columns.last, rows.last};
  const auto form = makeForm<Src, Dst>(columns.fraction, rows.fraction, w.scaleFactor);
  const ptrdiff_t inside = ptrdiff_t(columns.last) - columns.first + 1;
  const ptrdiff_t start = inside > 0 ? columns.start + columns.first : 0, lastColumn = w.srcRoiSize.width - 1;

  if (inside > 0 && rows.first <= rows.last) {
    interpolateRows(rowAt(w.src, w.srcStep, rows.start + rows.first) + start, w.srcStep,
                    rowAt(w.dst, w.dstStep, rows.first) + columns.first, w.dstStep, inside, rows.last - rows.first + 1,
                    form.inside);
  }
  if constexpr (filled) {
    for (int32_t y = rows.first; y <= rows.last; ++y) {
      const Src *top = rowAt(w.src, w.srcStep, rows.start + y), *bottom = rowAt(w.src, w.srcStep, rows.start + y + 1);
      Dst* dst = rowAt(w.dst, w.dstStep, y);
      for (int32_t x = 0; x < columns.first; ++x) dst[x] = inColumn<Dst>(top[0], bottom[0], form);
      for (int32_t x = columns.last + 1; x < w.dstRoiSize.width; ++x) {
        dst[x] = inColumn<Dst>(top[lastColumn], bottom[lastColumn], form);
      }
    }
    // All rows before the source are equal, and all after it.
    const auto fill = [&](int32_t from, int32_t to, const Src* src) {
      for (int32_t y = from; y < to; ++y) {
        Dst* dst = rowAt(w.dst, w.dstStep, y);
        if (inside > 0) rowAlone(src + start, dst + columns.first, inside, form);
        for (int32_t x = 0; x < columns.first; ++x) dst[x] = alone<Dst>(src[0], form);
        for (int32_t x = columns.last + 1; x < w.dstRoiSize.width; ++x) dst[x] = alone<Dst>(src[lastColumn], form);
      }
    };
    fill(0, rows.first, w.src);
    fill(rows.last + 1, w.dstRoiSize.height, rowAt(w.src, w.srcStep, w.srcRoiSize.height - 1));
  }
  return qorStatusOk;
}

// --- exported functions ---

#define QOR_SUBPIX(form, Src, Dst)                                                                              \
  QorStatus qoriCopySubpix_##form(const Src* src, int32_t srcStep, Dst* dst, int32_t dstStep, QoriSize roiSize, \
                                  float dx, float dy) {                                                         \
    return copySubpix(src, srcStep, dst, dstStep, roiSize, dx, dy);                                             \
  }                                                                                                             \
  QorStatus qoriCopySubpixIntersect_##form(const Src* src, int32_t srcStep, QoriSize srcRoiSize, Dst* dst,      \
                                           int32_t dstStep, QoriSize dstRoiSize, QoriPoint_32f point,           \
                                           QoriPoint* minPoint, QoriPoint* maxPoint) {                          \
    return copyWindow<true>(                                                                                    \
        Window<Src, Dst>{src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, point, minPoint, maxPoint});       \
  }

QOR_SUBPIX(8u_C1R, uint8_t, uint8_t)
QOR_SUBPIX(8u32f_C1R, uint8_t, float)
QOR_SUBPIX(16u_C1R, uint16_t, uint16_t)
QOR_SUBPIX(16u32f_C1R, uint16_t, float)
QOR_SUBPIX(32f_C1R, float, float)
#undef QOR_SUBPIX

QorStatus qoriCopySubpix_8u16u_C1R_Sfs(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                                       QoriSize roiSize, int32_t scaleFactor, float dx, float dy) {
  return copySubpix(src, srcStep, dst, dstStep, roiSize, dx, dy, scaleFactor);
}

QorStatus qoriCopySubpixIntersect_8u16u_C1R_Sfs(const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, uint16_t* dst,
                                                int32_t dstStep, QoriSize dstRoiSize, QoriPoint_32f point,
                                                QoriPoint* minPoint, QoriPoint* maxPoint, int32_t scaleFactor) {
  return copyWindow<true>(Window<uint8_t, uint16_t>{src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, point, minPoint,
                                                    maxPoint, scaleFactor});
}

QorStatus ownGetRectSubpix_8u16u_C1R_Sfs(const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, uint16_t* dst,
                                         int32_t dstStep, QoriSize dstRoiSize, QoriPoint_32f point, QoriPoint* minPoint,
                                         QoriPoint* maxPoint, int32_t scaleFactor) {
  return copyWindow<false>(Window<uint8_t, uint16_t>{src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, point,
                                                     minPoint, maxPoint, scaleFactor});
}

QorStatus ownGetRectSubpix_16u32f_C1R(const uint16_t* src, int32_t srcStep, QoriSize srcRoiSize, float* dst,
                                      int32_t dstStep, QoriSize dstRoiSize, QoriPoint_32f point, QoriPoint* minPoint,
                                      QoriPoint* maxPoint) {
  return copyWindow<false>(
      Window<uint16_t, float>{src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, point, minPoint, maxPoint});
}

QorStatus ownGetRectSubpix_32f_C1R(const float* src, int32_t srcStep, QoriSize srcRoiSize, float* dst, int32_t dstStep,
                                   QoriSize dstRoiSize, QoriPoint_32f point, QoriPoint* minPoint, QoriPoint* maxPoint) {
  return copyWindow<false>(
      Window<float, float>{src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, point, minPoint, maxPoint});
}
