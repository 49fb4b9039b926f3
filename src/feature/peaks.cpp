// Local extrema among eight or four neighbours.
//
// For eight neighbours each row is reduced once to the extremes of three elements; three rows of those are kept in a
// ring. Odd: of a plateau every pixel counts; floats are equal within the smallest normal one, so no infinite pixel is
// a peak, as its difference to itself is NaN.
#include "feature/peaks_rows.h"

// Elements of a row in the scratch memory, which has room for eight.
static int32_t ringRow(int32_t width) { return (width + 5) / 4 * 4; }

static QorStatus bufferSizeOf(int32_t width, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (width < 1) return qorStatusBadSize;
  *bufferSize = ringRow(width) * 32 + 32;
  return qorStatusOk;
}

// The columns border .. width - border - 1 of the rows border .. height - border - 1 are looked at.
template <class T>
static void peaksOfEight(const T* src, int32_t srcStep, QoriSize size, T threshold, int32_t border, uint8_t* buffer,
                         Peaks& peaks) {
  const int32_t limitX = size.width - border, limitY = size.height - border;
  const ptrdiff_t count = ptrdiff_t(limitX) - border;
  if (count < 1) return;
  // Six of the eight rows that there is room for; in long rows the rest goes into their alignment.
  const bool aligned = size.width >= 64;
  const ptrdiff_t stride = aligned ? (ptrdiff_t(size.width) + 15) / 16 * 16 : ringRow(size.width);
  T* const rows = alignUp<T>(buffer, aligned ? 64 : 32);
  T* greatest[3] = {rows, rows + stride, rows + 2 * stride};
  T* least[3] = {rows + 3 * stride, rows + 4 * stride, rows + 5 * stride};
  const auto reduce = [&](int32_t y, int32_t slot) {
    extremesOfRow(rowAt(src, srcStep, y) + border, greatest[slot], least[slot], count);
  };
  if (limitY > border) {
    reduce(border - 1, 1);
    reduce(border, 2);
  }
  for (int32_t y = border; y < limitY; ++y) {
    T *const oldGreatest = greatest[0], *const oldLeast = least[0];
    greatest[0] = greatest[1], greatest[1] = greatest[2], greatest[2] = oldGreatest;
    least[0] = least[1], least[1] = least[2], least[2] = oldLeast;
    reduce(y + 1, 2);
    const auto extremes = [&, border](ptrdiff_t x, auto& localMax, auto& localMin) {
      using V = std::remove_reference_t<decltype(localMax)>;
      const ptrdiff_t i = x - border;
      localMax = greater(greater(taken<V>(greatest[0] + i), taken<V>(greatest[1] + i)), taken<V>(greatest[2] + i));
      localMin = lesser(lesser(taken<V>(least[0] + i), taken<V>(least[1] + i)), taken<V>(least[2] + i));
    };
    if (!peaksOfRow(rowAt(src, srcStep, y), y, border, limitX, threshold, peaks, extremes)) return;
  }
}

template <class T>
static void peaksOfFour(const T* src, int32_t srcStep, QoriSize size, T threshold, int32_t border, Peaks& peaks) {
  const int32_t limitX = size.width - border, limitY = size.height - border;
  for (int32_t y = border; y < limitY; ++y) {
    const T* const row = rowAt(src, srcStep, y);
    const T *const above = rowAt(src, srcStep, y - 1), *const below = rowAt(src, srcStep, y + 1);
    const auto extremes = [=](ptrdiff_t x, auto& localMax, auto& localMin) {
      using V = std::remove_reference_t<decltype(localMax)>;
      localMax = greater(taken<V>(below + x), greater(taken<V>(above + x), ownSiftFilterMaxRow03<V>(row + x - 1)));
      localMin = lesser(taken<V>(below + x), lesser(taken<V>(above + x), ownSiftFilterMinRow03<V>(row + x - 1)));
    };
    if (!peaksOfRow(row, y, border, limitX, threshold, peaks, extremes)) return;
  }
}

template <class T>
static QorStatus findPeaks(const T* src, int32_t srcStep, QoriSize roiSize, T threshold, QoriPoint* peak,
                           int32_t maxPeakCount, int32_t* peakCount, int32_t normType, int32_t border,
                           uint8_t* buffer) {
  if (anyNull(src, peak, peakCount, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize) || maxPeakCount < 1 || border < 1) return qorStatusBadSize;
  const auto beyondHalf = [=](int32_t size) { return float(border) > float(size) * 0.5f; };
  if (beyondHalf(roiSize.width) || beyondHalf(roiSize.height)) return qorStatusBadSize;
  if (srcStep / 4 < roiSize.width) return qorStatusBadStep;
  if (misaligned<T>(srcStep)) return qorStatusBadStepAlign;
  if (normType != 0 && normType != 1) return qorStatusBadArg;
  // Every magnitude is above -1 already.
  if (std::is_same_v<T, int32_t> && threshold < -1) threshold = -1;
  Peaks peaks = {peak, 0, maxPeakCount};
  if (normType == 0) {
    peaksOfEight(src, srcStep, roiSize, threshold, border, buffer, peaks);
  } else {
    peaksOfFour(src, srcStep, roiSize, threshold, border, peaks);
  }
  *peakCount = peaks.count;
  return qorStatusOk;
}

QorStatus qoriFindPeaks3x3GetBufferSize_32f_C1R(int32_t width, int32_t* bufferSize) {
  return bufferSizeOf(width, bufferSize);
}
QorStatus qoriFindPeaks3x3GetBufferSize_32s_C1R(int32_t width, int32_t* bufferSize) {
  return bufferSizeOf(width, bufferSize);
}

QorStatus qoriFindPeaks3x3_32f_C1R(const float* src, int32_t srcStep, QoriSize roiSize, float threshold,
                                   QoriPoint* peak, int32_t maxPeakCount, int32_t* peakCount, int32_t normType,
                                   int32_t border, uint8_t* buffer) {
  return findPeaks(src, srcStep, roiSize, threshold, peak, maxPeakCount, peakCount, normType, border, buffer);
}
QorStatus qoriFindPeaks3x3_32s_C1R(const int32_t* src, int32_t srcStep, QoriSize roiSize, int32_t threshold,
                                   QoriPoint* peak, int32_t maxPeakCount, int32_t* peakCount, int32_t normType,
                                   int32_t border, uint8_t* buffer) {
  return findPeaks(src, srcStep, roiSize, threshold, peak, maxPeakCount, peakCount, normType, border, buffer);
}
