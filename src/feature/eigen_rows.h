// Finishing rows of the corner measures: from the smoothed products of the slopes to eigenvalues and eigenvectors.
//
// A square root that is taken in double and rounded to float is the square root in float: the rounding to double never
// decides the one to float. So the eigenvalues and vectors need floats alone.
#pragma once

#include <string.h>

#include "frame/frame.h"

// The smaller eigenvalue. The root enters a difference in double here, so it stays double.
static inline void minEigenValueRow(const float* a, const float* b, const float* c, float* dst, ptrdiff_t width,
                                    double halfScale) {
  forElements(width, [=](ptrdiff_t x) {
    const float s = 4.0f * b[x] * b[x] + (a[x] - c[x]) * (a[x] - c[x]);
    dst[x] = float((double(a[x] + c[x]) - __builtin_sqrt(double(s))) * halfScale);
  });
}

namespace {

// Both eigenvalues and eigenvectors of some pixels, value by value.
constexpr ptrdiff_t eigenBlock = 64;
struct EigenPlanes {
  float value[6][eigenBlock];
};

}  // namespace

// `count` pixels from x on. A matrix that is nearly singular gives zeros, one that is nearly diagonal the axes.
static inline void calcValues(const float* a, const float* b, const float* c, ptrdiff_t count, float scale, float sign,
                              EigenPlanes& planes) {
  constexpr float least = 1.1920929e-7f;
  float(&value)[6][eigenBlock] = planes.value;
  QOR_INDEPENDENT
  for (ptrdiff_t i = 0; i < count; ++i) {
    const float xx = a[i] * scale, xy = b[i] * scale, yy = c[i] * scale;
    const float root = __builtin_sqrtf(4.0f * xy * xy + (xx - yy) * (xx - yy));
    const float l1 = (root + (xx + yy)) * 0.5f, l2 = (xx + yy - root) * 0.5f;
    const float t = (xx > yy ? xx : yy) * 0.01f;
    const bool degenerate = (t > (xx < yy ? xx : yy)) | (t > xx * yy - xy * xy);
    const bool diagonal = t > __builtin_fabsf(xy);
    const float u = xy * sign, p = 0.0f - (xx - l1), q = 0.0f - (xx - l2);
    const float norm1 = __builtin_sqrtf(p * p + u * u), norm2 = __builtin_sqrtf(u * u + q * q);
    const float i1 = 1.0f / (least > norm1 ? least : norm1), i2 = 1.0f / (least > norm2 ? least : norm2);
    value[0][i] = degenerate ? 0.0f : l1;
    value[1][i] = degenerate ? 0.0f : l2;
    value[2][i] = degenerate ? 0.0f : diagonal ? 1.0f : u * i1;
    value[3][i] = degenerate ? 0.0f : diagonal ? 0.0f : p * i1;
    value[4][i] = degenerate ? 0.0f : diagonal ? 0.0f : u * i2;
    value[5][i] = degenerate ? 0.0f : diagonal ? 1.0f : q * i2;
  }
}

#ifdef __AVX512F__
constexpr ptrdiff_t weaveBlock = 16;
#else
constexpr ptrdiff_t weaveBlock = 4;
#endif

// The six values of each of `weaveBlock` pixels from i on, side by side.
static inline void weaveValues(const EigenPlanes& planes, ptrdiff_t i, float* dst) {
  typedef float Floats __attribute__((vector_size(weaveBlock * sizeof(float))));
  Floats v[6], woven[6];
  for (int32_t k = 0; k < 6; ++k) memcpy(&v[k], &planes.value[k][i], sizeof v[k]);
#ifdef __AVX512F__
  typedef double Pairs __attribute__((vector_size(64)));
  Pairs low[3], high[3], *out = reinterpret_cast<Pairs*>(woven);
  for (int32_t k = 0; k < 3; ++k) {
    const Floats x = v[2 * k], y = v[2 * k + 1];
    low[k] = Pairs(__builtin_shufflevector(x, y, 0, 16, 1, 17, 2, 18, 3, 19, 4, 20, 5, 21, 6, 22, 7, 23));
    high[k] = Pairs(__builtin_shufflevector(x, y, 8, 24, 9, 25, 10, 26, 11, 27, 12, 28, 13, 29, 14, 30, 15, 31));
  }
  for (int32_t half = 0; half < 2; ++half, out += 3) {
    const Pairs p = half ? high[0] : low[0], q = half ? high[1] : low[1], r = half ? high[2] : low[2];
    // p0 q0 r0 p1 q1 r1 p2 q2 | r2 p3 q3 r3 p4 q4 r4 p5 | q5 r5 p6 q6 r6 p7 q7 r7
    out[0] = __builtin_shufflevector(__builtin_shufflevector(p, q, 0, 8, 0, 1, 9, 1, 2, 10), r, 0, 1, 8, 3, 4, 9, 6, 7);
    out[1] =
        __builtin_shufflevector(__builtin_shufflevector(p, q, 3, 3, 11, 4, 4, 12, 5, 5), r, 10, 1, 2, 11, 4, 5, 12, 7);
    out[2] =
        __builtin_shufflevector(__builtin_shufflevector(p, q, 13, 6, 6, 14, 7, 7, 15, 7), r, 0, 13, 2, 3, 14, 5, 6, 15);
  }
#else
  for (int32_t half = 0; half < 2; ++half) {
    Floats pair[3];
    for (int32_t k = 0; k < 3; ++k) {
      pair[k] = half ? __builtin_shufflevector(v[2 * k], v[2 * k + 1], 2, 6, 3, 7)
                     : __builtin_shufflevector(v[2 * k], v[2 * k + 1], 0, 4, 1, 5);
    }
    woven[3 * half] = __builtin_shufflevector(pair[0], pair[1], 0, 1, 4, 5);
    woven[3 * half + 1] = __builtin_shufflevector(pair[2], pair[0], 0, 1, 6, 7);
    woven[3 * half + 2] = __builtin_shufflevector(pair[1], pair[2], 2, 3, 6, 7);
  }
#endif
  memcpy(dst, woven, sizeof woven);
}

static inline void eigenValuesRow(const float* a, const float* b, const float* c, float* dst, ptrdiff_t width,
                                  float scale, float sign) {
  EigenPlanes planes;
  for (ptrdiff_t x = 0; x < width; x += eigenBlock) {
    const ptrdiff_t count = width - x < eigenBlock ? width - x : eigenBlock;
    if (count == eigenBlock) {
      calcValues(a + x, b + x, c + x, eigenBlock, scale, sign, planes);
    } else {
      calcValues(a + x, b + x, c + x, count, scale, sign, planes);
    }
    float* to = dst + 6 * x;
    ptrdiff_t i = 0;
    for (; i + weaveBlock <= count; i += weaveBlock) weaveValues(planes, i, to + 6 * i);
    for (; i < count; ++i) {
      for (int32_t k = 0; k < 6; ++k) to[6 * i + k] = planes.value[k][i];
    }
  }
}
