// Pixels beyond the left and right edges of a row.
#pragma once

#include <stddef.h>
#include <string.h>

#include <algorithm>

#include "frame/level.h"

// In place of an index: the constant of qorBorderConst.
constexpr int32_t constantPixel = -1;

// Which pixel of a row of `length` stands at index j of the extended row. Modes that repeat go on for ever, so a row
// may be shorter than the kernel.
static inline int32_t borderIndex(int32_t j, int32_t length, QoriBorderType mode) {
  if (j >= 0 && j < length) return j;
  if (mode == qorBorderReplicate) return j < 0 ? 0 : length - 1;
  if (mode == qorBorderConst) return constantPixel;
  if (mode == qorBorderMirror && length == 1) return 0;
  const int64_t period = mode == qorBorderWrap     ? length
                         : mode == qorBorderMirror ? 2 * (int64_t(length) - 1)
                                                   : 2 * int64_t(length);
  int64_t k = j % period;
  if (k < 0) k += period;
  if (k < length) return int32_t(k);
  return int32_t(mode == qorBorderMirror ? period - k : period - 1 - k);
}

// Copies `count` pixels of the extended row from index `first` on to `dst`. `constant` points to a pixel's channels and
// is read in qorBorderConst only.
template <class T, int32_t channels>
static void extendRow(const T* row, int32_t width, int32_t first, int32_t count, QoriBorderType mode, const T* constant,
                      T* dst) {
  int32_t i = 0;
  const auto outsidePixels = [&](int32_t end) {
    for (; i < end; ++i) {
      const int32_t j = borderIndex(first + i, width, mode);
      const T* pixel = j == constantPixel ? constant : row + ptrdiff_t(j) * channels;
      for (int32_t c = 0; c < channels; ++c) dst[ptrdiff_t(i) * channels + c] = pixel[c];
    }
  };
  outsidePixels(std::min(count, std::max(-first, 0)));
  const int32_t inside = std::min(count, width - first) - i;
  if (inside > 0) {
    memcpy(dst + ptrdiff_t(i) * channels, row + ptrdiff_t(first + i) * channels, inside * channels * sizeof(T));
    i += inside;
  }
  outsidePixels(count);
}
