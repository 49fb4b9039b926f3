// Correction of lens distortion: resampling through the radial model, and the map of a model with tangential terms.
//
// Float arithmetic is in the order that the contract fixes, to the last bit; odd: the radial sum is formed in another
// order where the caller lends a buffer for the terms of the columns. Positions outside the source, and what is not a
// number, leave the destination alone.
#include "geometry/undistort_rows.h"

namespace {

struct Camera {
  float fx, fy, cx, cy, k1, k2;
};

// The terms that depend on the column only: u, u (k2 u + k1), and x.
struct Columns {
  const float* u;
  const float* radial;
  const float* x;
};

}  // namespace

static inline float squaredReciprocal(float focalLength) { return 1 / (focalLength * focalLength); }

static Columns columnsOf(const Camera& camera, int32_t width, uint8_t* buffer) {
  const ptrdiff_t stride = (ptrdiff_t(width) + 7) & ~ptrdiff_t(7);
  float* const u = alignUp<float>(buffer, 32);
  float* const radial = u + stride;
  float* const x = radial + stride;
  const float perFx2 = squaredReciprocal(camera.fx), cx = camera.cx, k1 = camera.k1, k2 = camera.k2;
  int32_t i = 0;
  QOR_INDEPENDENT
  for (ptrdiff_t n = 0; n < width; ++n, ++i) {
    x[n] = float(i) - cx;
    u[n] = x[n] * x[n] * perFx2;
    radial[n] = u[n] * (k2 * u[n] + k1);
  }
  return {u, radial, x};
}

// Source positions of `count` pixels of row j from column `first` on.
static void radialPositions(const Camera& camera, int32_t j, int32_t first, int32_t count, float* __restrict sx,
                            float* __restrict sy) {
  const float perFx2 = squaredReciprocal(camera.fx), cx = camera.cx, k1 = camera.k1, k2 = camera.k2;
  const float y = float(j) - camera.cy, v = y * y * squaredReciprocal(camera.fy);
  const float twice = 2 * (k2 * v), ofRow = v * (k1 + k2 * v), row = float(j);
  int32_t i = first;
  for (ptrdiff_t n = 0; n < count; ++n, ++i) {
    const float x = float(i) - cx, u = x * x * perFx2;
    const float f = (k2 * u + k1 + twice) * u + ofRow;
    sx[n] = float(i) + x * f;
    sy[n] = row + y * f;
  }
}

// The same from the terms of the columns, in the other order.
static void radialPositions(const Camera& camera, const Columns& columns, int32_t j, int32_t first, int32_t count,
                            float* __restrict sx, float* __restrict sy) {
  const float* const us = columns.u + first;
  const float* const radial = columns.radial + first;
  const float* const xs = columns.x + first;
  const float k1 = camera.k1, k2 = camera.k2;
  const float y = float(j) - camera.cy, v = y * y * squaredReciprocal(camera.fy);
  const float twice = 2 * k2 * v, ofRow = v * (k1 + k2 * v), row = float(j);
  int32_t i = first;
  for (ptrdiff_t n = 0; n < count; ++n, ++i) {
    const float f = us[n] * twice + ofRow + radial[n];
    sx[n] = float(i) + xs[n] * f;
    sy[n] = row + y * f;
  }
}

static void tangentialPositions(const Camera& camera, float p1, float p2, int32_t j, int32_t count,
                                float* __restrict sx, float* __restrict sy) {
  const float perFx = 1 / camera.fx, cx = camera.cx, k1 = camera.k1, k2 = camera.k2, twiceP2 = 2 * p2;
  const float y = float(j) - camera.cy, t = y * (1 / camera.fy), t2 = t * t, ofRow = t * (2 * p1), row = float(j);
  // Odd: each plane has the tangential coefficient of the other's axis.
  const float shiftX = camera.fx * p2, shiftY = camera.fy * p1;
  int32_t i = 0;
  for (ptrdiff_t n = 0; n < count; ++n, ++i) {
    const float x = float(i) - cx, s = x * perFx, r = s * s + t2;
    const float g = s * twiceP2 + ofRow + (k2 * r + k1) * r;
    sx[n] = shiftX * r + x * g + float(i);
    sy[n] = shiftY * r + y * g + row;
  }
}

template <class T, int32_t channels>
static QorStatus undistortRadial(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize,
                                 uint8_t* buffer, const Camera& camera) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T, channels>(srcStep, roiSize) || shortStep<T, channels>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep | dstStep)) return qorStatusBadStepAlign;
  if (camera.fx == 0 || camera.fy == 0) return qorStatusBadArg;

  const Source<T> source = {src, srcStep, roiSize};
  const Columns columns = buffer ? columnsOf(camera, roiSize.width, buffer) : Columns{};
  // Offsets in an image are mostly 32-bit numbers. Where a width of rows wrapped, a step may be negative.
  const int64_t lastByte =
      int64_t(srcStep) * (roiSize.height - 1) + int64_t(roiSize.width) * channels * int64_t(sizeof(T));
  const bool narrow = srcStep >= 0 && lastByte <= INT32_MAX;
  const auto resampleRun = narrow ? resample<T, channels, int32_t> : resample<T, channels, int64_t>;
  for (int32_t j = 0; j < roiSize.height; ++j) {
    T* const row = rowAt(dst, dstStep, j);
    for (int32_t first = 0, count; first < roiSize.width; first += count) {
      float sx[longestRun], sy[longestRun];
      count = roiSize.width - first < longestRun ? roiSize.width - first : longestRun;
      if (buffer) {
        radialPositions(camera, columns, j, first, count, sx, sy);
      } else {
        radialPositions(camera, j, first, count, sx, sy);
      }
      resampleRun(source, sx, sy, row + ptrdiff_t(first) * channels, count);
    }
  }
  return qorStatusOk;
}

QorStatus qoriUndistortGetSize(QoriSize roiSize, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  *bufferSize = ((roiSize.width + 3) & ~3) * 24 + 32;
  return qorStatusOk;
}

#define QOR_UNDISTORT(TYPE, T, CHANNELS)                                                                        \
  QorStatus qoriUndistortRadial_##TYPE##_C##CHANNELS##R(const T* src, int32_t srcStep, T* dst, int32_t dstStep, \
                                                        QoriSize roiSize, uint8_t* buffer, float fx, float fy,  \
                                                        float cx, float cy, float k1, float k2) {               \
    return undistortRadial<T, CHANNELS>(src, srcStep, dst, dstStep, roiSize, buffer, {fx, fy, cx, cy, k1, k2}); \
  }
QOR_UNDISTORT(8u, uint8_t, 1)
QOR_UNDISTORT(8u, uint8_t, 3)
QOR_UNDISTORT(16u, uint16_t, 1)
QOR_UNDISTORT(16u, uint16_t, 3)
QOR_UNDISTORT(32f, float, 1)
QOR_UNDISTORT(32f, float, 3)
#undef QOR_UNDISTORT

QorStatus qoriCreateMapCameraUndistort_32f_C1R(float* xMap, int32_t xStep, float* yMap, int32_t yStep, QoriSize roiSize,
                                               uint8_t* buffer, float fx, float fy, float cx, float cy, float k1,
                                               float k2, float p1, float p2) {
  if (anyNull(xMap, yMap)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<float>(xStep, roiSize) || shortStep<float>(yStep, roiSize)) return qorStatusBadStep;
  if (misaligned<float>(xStep | yStep)) return qorStatusBadStepAlign;
  if (fx == 0 || fy == 0) return qorStatusBadArg;

  const Camera camera = {fx, fy, cx, cy, k1, k2};
  const bool radial = p1 == 0 && p2 == 0;
  const Columns columns = radial && buffer ? columnsOf(camera, roiSize.width, buffer) : Columns{};
  for (int32_t j = 0; j < roiSize.height; ++j) {
    float* const x = rowAt(xMap, xStep, j);
    float* const y = rowAt(yMap, yStep, j);
    if (!radial) {
      tangentialPositions(camera, p1, p2, j, roiSize.width, x, y);
    } else if (buffer) {
      radialPositions(camera, columns, j, 0, roiSize.width, x, y);
    } else {
      radialPositions(camera, j, 0, roiSize.width, x, y);
    }
  }
  return qorStatusOk;
}
