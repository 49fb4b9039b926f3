// The kernels of the fixed-kernel filters: one row of each stage. Sums of 8-bit images are integers and fit in 16 bits;
// sums of float images are formed in the order that stands here.
#pragma once

#include <algorithm>
#include <limits>

#include "filter/convolution.h"
#include "filter/taps.h"

namespace {

// Row kernels. at(p) is the result for the pixel whose window starts at p; `sum` is the sum of the taps. The form of
// the source is widened by Wide: int32_t for 8-bit pixels, float for floats.

struct RowOfDx3 {
  static constexpr int32_t taps = 3, sum = 0;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[2]) - Wide(p[0]);
  }
};

struct RowOfScharr3 {
  static constexpr int32_t taps = 3, sum = 16;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return 3 * (Wide(p[0]) + Wide(p[2])) + 10 * Wide(p[1]);
  }
};

struct RowOfDxNeg3 {
  static constexpr int32_t taps = 3, sum = 0;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[0]) - Wide(p[2]);
  }
};

struct RowOfDxNeg5 {
  static constexpr int32_t taps = 5, sum = 0;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[0]) - Wide(p[4]) + 2 * (Wide(p[1]) - Wide(p[3]));
  }
};

struct RowOfDx2_3 {
  static constexpr int32_t taps = 3, sum = 0;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[0]) - 2 * Wide(p[1]) + Wide(p[2]);
  }
};

struct RowOfDx2_5 {
  static constexpr int32_t taps = 5, sum = 0;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[0]) - 2 * Wide(p[2]) + Wide(p[4]);
  }
};

struct RowOfSobel3 {
  static constexpr int32_t taps = 3, sum = 4;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[0]) + 2 * Wide(p[1]) + Wide(p[2]);
  }
};

struct RowOfSobel5 {
  static constexpr int32_t taps = 5, sum = 16;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[0]) + 4 * (Wide(p[1]) + Wide(p[3])) + 6 * Wide(p[2]) + Wide(p[4]);
  }
};

struct RowOfAverage3 {
  static constexpr int32_t taps = 3, sum = 3;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[0]) + Wide(p[1]) + Wide(p[2]);
  }
};

struct RowOfAverage5 {
  static constexpr int32_t taps = 5, sum = 5;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[0]) + Wide(p[1]) + Wide(p[2]) + Wide(p[3]) + Wide(p[4]);
  }
};

// The only one with two planes: this is the first, the second holds 8 times the centre pixel.
struct RowOfLaplacian3 {
  static constexpr int32_t taps = 3, sum = 2;
  template <class Wide, class T>
  static Wide at(const T* p) {
    return Wide(p[0]) + Wide(p[2]);
  }
};

// Column kernels. at(t, x) combines the rows t[0] .. t[taps - 1] of the window at element x. Wide is int32_t for 16-bit
// rows and float for floats.

struct ColumnOfScharr3 {
  static constexpr int32_t taps = 3;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return 3 * (Wide(t[0][x]) + Wide(t[2][x])) + 10 * Wide(t[1][x]);
  }
};

struct ColumnOfDx3 {
  static constexpr int32_t taps = 3;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return Wide(t[2][x]) - Wide(t[0][x]);
  }
};

struct ColumnOfDx5 {
  static constexpr int32_t taps = 5;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return Wide(t[4][x]) - Wide(t[0][x]) + 2 * (Wide(t[3][x]) - Wide(t[1][x]));
  }
};

struct ColumnOfDx2_3 {
  static constexpr int32_t taps = 3;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return Wide(t[0][x]) - 2 * Wide(t[1][x]) + Wide(t[2][x]);
  }
};

struct ColumnOfDx2_5 {
  static constexpr int32_t taps = 5;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return Wide(t[0][x]) - 2 * Wide(t[2][x]) + Wide(t[4][x]);
  }
};

struct ColumnOfSobel3 {
  static constexpr int32_t taps = 3;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return Wide(t[0][x]) + 2 * Wide(t[1][x]) + Wide(t[2][x]);
  }
};

struct ColumnOfSobel5 {
  static constexpr int32_t taps = 5;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return Wide(t[0][x]) + 4 * (Wide(t[1][x]) + Wide(t[3][x])) + 6 * Wide(t[2][x]) + Wide(t[4][x]);
  }
};

struct ColumnOfSobelNeg3 {
  static constexpr int32_t taps = 3;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return -ColumnOfSobel3::at<Wide>(t, x);
  }
};

struct ColumnOfSobelNeg5 {
  static constexpr int32_t taps = 5;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return -ColumnOfSobel5::at<Wide>(t, x);
  }
};

struct ColumnOfSum3 {
  static constexpr int32_t taps = 3;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return Wide(t[0][x]) + Wide(t[1][x]) + Wide(t[2][x]);
  }
};

struct ColumnOfSum5 {
  static constexpr int32_t taps = 5;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return Wide(t[0][x]) + Wide(t[1][x]) + Wide(t[2][x]) + Wide(t[3][x]) + Wide(t[4][x]);
  }
};

// Takes the second plane of the middle row as t[1].
struct ColumnOfLaplacian3 {
  static constexpr int32_t taps = 3;
  template <class Wide, class T>
  static Wide at(const T* const* t, ptrdiff_t x) {
    return 2 * (Wide(t[0][x]) + Wide(t[2][x])) - Wide(t[1][x]);
  }
};

// Endings of a column beside those of taps.h. They take what dst holds too, for the one kernel that adds to it.

struct StoreLow16 {
  int16_t operator()(int32_t sum) const { return int16_t(sum); }
};

struct ScaleFloat {
  float factor;
  float operator()(float sum) const { return sum * factor; }
};

// The two means of 8-bit images differ on purpose: the 3x3 one adds about half a divisor (5 * 7280 = 36400), so that a
// flat 255 stays 255; the 5x5 one truncates, and makes it 254. Both fit in 8 bits without a clamp.
struct MeanOf9 {
  uint8_t operator()(int32_t sum) const { return uint8_t((uint16_t(sum + 5) * 7280u) >> 16); }
};

struct MeanOf25 {
  uint8_t operator()(int32_t sum) const { return uint8_t((uint16_t(sum) * 2621u) >> 16); }
};

}  // namespace
