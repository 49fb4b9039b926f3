// Standard deviation of a sliding window, upright or turned by 45 degrees, from integral images.
//
// Each form has its own widths: what is float and what is double, and where it is rounded, is part of the contract.
// Odd: the upright 32f mean is a float computation and the tilted one a double one; the upright Sfs variance is float
// with an unrounded root, the tilted one double with the root rounded to float. The Sfs results do not saturate. Only
// qoriRectStdDev_32f_C1R has threads.
#include <algorithm>

#include "frame/frame.h"

// The four corner cells of a window, for window 0 of a row of windows. The sum over the window is
// first - second - third + fourth: A, C, B, D of an upright window, P0, P2, P1, P3 of a tilted one.
template <class T>
struct Corners {
  const T *first, *second, *third, *fourth;
};

// The sum over window x: doubles and floats from left to right, integers with wrap-around.
template <class T>
static inline T sumOver(const Corners<T>& c, ptrdiff_t x) {
  return c.first[x] - c.second[x] - c.third[x] + c.fourth[x];
}

// A NaN and a zero of either sign stay.
template <class T>
static inline T heldToZero(T variance) {
  return variance < T(0) ? T(0) : variance;
}

// The double root of a float, rounded to float, is the float root: a root has no use for more than twice the bits.
static inline float floatRoot(double variance) { return __builtin_sqrtf(float(heldToZero(variance))); }

// Truncation as the processor does it: what does not fit gives INT32_MIN, by contract.
static inline int32_t truncated(double value) {
  return value > -2147483649.0 && value < 2147483648.0 ? int32_t(value) : INT32_MIN;
}

// 2 to the power of -scaleFactor. By contract only five bits count and the power is a signed integer, so that the
// power of 31 is negative.
static float scaleOf(int32_t scaleFactor) {
  const uint32_t magnitude = scaleFactor < 0 ? 0u - uint32_t(scaleFactor) : uint32_t(scaleFactor);
  const float power = float(int32_t(1u << (magnitude & 31)));
  return scaleFactor < 0 ? power : 1.0f / power;
}

// ---- Rows of windows

static void ownRectStdDev_32f_C1R_PX(Corners<float> src, Corners<double> sqr, float* dst, int32_t width, int32_t area) {
  const float norm = float(area);
  const double wideNorm = double(norm);
  forElements(width, [=](ptrdiff_t x) {
    const double mean = double(sumOver(src, x) / norm);
    dst[x] = floatRoot(sumOver(sqr, x) / wideNorm - mean * mean);
  });
}

static void tiltedRow32f(Corners<float> src, Corners<double> sqr, float* dst, int32_t width, int32_t area) {
  const double norm = double(area);
  forElements(width, [=](ptrdiff_t x) {
    const double sum = double(src.first[x]) - double(src.second[x]) - double(src.third[x]) + double(src.fourth[x]);
    const double mean = sum / norm;
    dst[x] = floatRoot(sumOver(sqr, x) / norm - mean * mean);
  });
}

static void row32s32f(Corners<int32_t> src, Corners<double> sqr, float* dst, int32_t width, int32_t area) {
  const float norm = float(area);
  const double wideNorm = double(norm);
  forElements(width, [=](ptrdiff_t x) {
    const double mean = double(float(sumOver(src, x)) / norm);
    dst[x] = floatRoot(sumOver(sqr, x) / wideNorm - mean * mean);
  });
}

static void uprightRow32s(Corners<int32_t> src, Corners<int32_t> sqr, int32_t* dst, int32_t width, int32_t area,
                          float scale) {
  const float norm = float(area);
  const double wideScale = double(scale);
  forElements(width, [=](ptrdiff_t x) {
    const float mean = float(sumOver(src, x)) / norm;
    const float variance = heldToZero(float(sumOver(sqr, x)) / norm - mean * mean);
    dst[x] = truncated(__builtin_sqrt(double(variance)) * wideScale + 0.5);
  });
}

static void tiltedRow32s(Corners<int32_t> src, Corners<int32_t> sqr, int32_t* dst, int32_t width, int32_t area,
                         float scale) {
  const float norm = float(area);
  const double wideScale = double(scale);
  forElements(width, [=](ptrdiff_t x) {
    const double mean = double(float(sumOver(src, x)) / norm);
    const float root = floatRoot(double(float(sumOver(sqr, x)) / norm) - mean * mean);
    dst[x] = truncated(double(root) * wideScale + 0.5);
  });
}

// ---- Windows

// Where the corners of window (0, 0) lie, how many cells a plane's row must have, and the area, in 32 bits that wrap.
struct Window {
  ptrdiff_t column[4], row[4];
  int32_t reach, area;
};

static Window uprightWindow(QoriSize roiSize, QoriRect rect) {
  const ptrdiff_t left = rect.x, top = rect.y, right = left + rect.width, bottom = top + rect.height;
  return {{right, right, left, left},
          {bottom, top, bottom, top},
          roiSize.width + rect.x + rect.width,
          rect.width * rect.height};
}

static Window tiltedWindow(QoriSize roiSize, QoriRect rect) {
  const ptrdiff_t w = rect.width, h = rect.height;
  const ptrdiff_t column = ptrdiff_t(rect.x) - rect.y, row = ptrdiff_t(rect.x) + rect.y;
  return {{column, column - h, column + w, column + w - h},
          {row, row + h, row + w, row + w + h},
          roiSize.width + rect.width + (rect.x + rect.y) + rect.height - 1,
          2 * rect.width * rect.height};
}

template <class T>
static Corners<T> cornersAt(const T* plane, ptrdiff_t step, const Window& window, ptrdiff_t y) {
  const auto corner = [&](int32_t k) { return rowAt(plane, step, window.row[k] + y) + window.column[k]; };
  return {corner(0), corner(1), corner(2), corner(3)};
}

// ---- Frames

// Checks, then row(src corners, sqr corners, dst row) for each row of windows, in teamOf() threads.
template <class Src, class Sqr, class Dst, class Team, class Row>
static QorStatus deviations(const Src* src, int32_t srcStep, const Sqr* sqr, int32_t sqrStep, Dst* dst, int32_t dstStep,
                            QoriSize roiSize, QoriRect rect, const Window& window, Team teamOf, Row row) {
  if (anyNull(src, dst, sqr)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  const QoriSize reach = {window.reach, roiSize.height};
  if (shortStep<Src>(srcStep, reach) || shortStep<Dst>(dstStep, roiSize) || shortStep<Sqr>(sqrStep, reach)) {
    return qorStatusBadStep;
  }
  if (misaligned<Src>(srcStep) || misaligned<Dst>(dstStep) || misaligned<Sqr>(sqrStep)) return qorStatusBadStepAlign;
  if (rect.x < 0 || rect.y < 0 || rect.width < 1 || rect.height < 1) return qorStatusBadSize;
  runStripes(roiSize.height, teamOf(), [=, &window](int32_t first, int32_t rows) {
    for (int32_t y = first; y < first + rows; ++y) {
      row(cornersAt(src, srcStep, window, y), cornersAt(sqr, sqrStep, window, y), rowAt(dst, dstStep, y));
    }
  });
  return qorStatusOk;
}

static int32_t noTeam() { return serial; }

QorStatus qoriRectStdDev_32s_C1RSfs(const int32_t* src, int32_t srcStep, const int32_t* sqr, int32_t sqrStep,
                                    int32_t* dst, int32_t dstStep, QoriSize roiSize, QoriRect rect,
                                    int32_t scaleFactor) {
  const Window window = uprightWindow(roiSize, rect);
  const float scale = scaleOf(scaleFactor);
  return deviations(src, srcStep, sqr, sqrStep, dst, dstStep, roiSize, rect, window, noTeam,
                    [=, &window](Corners<int32_t> sums, Corners<int32_t> squares, int32_t* row) {
                      uprightRow32s(sums, squares, row, roiSize.width, window.area, scale);
                    });
}

QorStatus qoriRectStdDev_32s32f_C1R(const int32_t* src, int32_t srcStep, const double* sqr, int32_t sqrStep, float* dst,
                                    int32_t dstStep, QoriSize roiSize, QoriRect rect) {
  const Window window = uprightWindow(roiSize, rect);
  return deviations(src, srcStep, sqr, sqrStep, dst, dstStep, roiSize, rect, window, noTeam,
                    [=, &window](Corners<int32_t> sums, Corners<double> squares, float* row) {
                      row32s32f(sums, squares, row, roiSize.width, window.area);
                    });
}

QorStatus qoriRectStdDev_32f_C1R(const float* src, int32_t srcStep, const double* sqr, int32_t sqrStep, float* dst,
                                 int32_t dstStep, QoriSize roiSize, QoriRect rect) {
  const Window window = uprightWindow(roiSize, rect);
  const auto teamOf = [=]() -> int32_t {
    const int32_t team = std::min(owncvGetMaxNumThreads(), pixels(roiSize) >> 10);
    return team < 2 ? serial : std::min(std::min(team, 32), ownGetNumThreads());
  };
  return deviations(src, srcStep, sqr, sqrStep, dst, dstStep, roiSize, rect, window, teamOf,
                    [=, &window](Corners<float> sums, Corners<double> squares, float* row) {
                      ownRectStdDev_32f_C1R_PX(sums, squares, row, roiSize.width, window.area);
                    });
}

QorStatus qoriTiltedRectStdDev_32s_C1RSfs(const int32_t* src, int32_t srcStep, const int32_t* sqr, int32_t sqrStep,
                                          int32_t* dst, int32_t dstStep, QoriSize roiSize, QoriRect rect,
                                          int32_t scaleFactor) {
  const Window window = tiltedWindow(roiSize, rect);
  const float scale = scaleOf(scaleFactor);
  return deviations(src, srcStep, sqr, sqrStep, dst, dstStep, roiSize, rect, window, noTeam,
                    [=, &window](Corners<int32_t> sums, Corners<int32_t> squares, int32_t* row) {
                      tiltedRow32s(sums, squares, row, roiSize.width, window.area, scale);
                    });
}

QorStatus qoriTiltedRectStdDev_32s32f_C1R(const int32_t* src, int32_t srcStep, const double* sqr, int32_t sqrStep,
                                          float* dst, int32_t dstStep, QoriSize roiSize, QoriRect rect) {
  const Window window = tiltedWindow(roiSize, rect);
  return deviations(src, srcStep, sqr, sqrStep, dst, dstStep, roiSize, rect, window, noTeam,
                    [=, &window](Corners<int32_t> sums, Corners<double> squares, float* row) {
                      row32s32f(sums, squares, row, roiSize.width, window.area);
                    });
}

QorStatus qoriTiltedRectStdDev_32f_C1R(const float* src, int32_t srcStep, const double* sqr, int32_t sqrStep,
                                       float* dst, int32_t dstStep, QoriSize roiSize, QoriRect rect) {
  const Window window = tiltedWindow(roiSize, rect);
  return deviations(src, srcStep, sqr, sqrStep, dst, dstStep, roiSize, rect, window, noTeam,
                    [=, &window](Corners<float> sums, Corners<double> squares, float* row) {
                      tiltedRow32f(sums, squares, row, roiSize.width, window.area);
                    });
}
