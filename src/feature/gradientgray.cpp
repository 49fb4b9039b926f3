// Gradients of three channels to gray: by the largest channel, by the mean, or by the root of the mean square.
//
// Odd: the integer forms average the channels, the float form adds them up. Where the call comes from inside a parallel
// region of the caller's, and only there, the rows are counted out to threads, but each thread begins at the first row:
// the rows past the longest stripe stay as they were.
#include <algorithm>

#include "feature/gradientgray_rows.h"

// Rows of the longest stripe of a team, in float and truncated. Each thread has the stripe of its number, so a team
// that comes out smaller than the number of stripes knows only its own.
static int32_t longestStripe(int32_t height, int32_t stripes, int32_t teamSize) {
  const float rowsPerThread = float(height) / float(stripes);
  const auto limitOf = [=](int32_t thread) { return int64_t(float(thread) * rowsPerThread + 0.5f); };
  int64_t longest = 0;
  for (int32_t thread = 0; thread < teamSize; ++thread) {
    longest = std::max(longest, limitOf(thread + 1) - limitOf(thread));
  }
  return int32_t(std::min<int64_t>(longest, height));
}

// All threads of a team would walk from the first row on and write the same values; the rows that they reach together
// are shared out instead, so that no two write the same one.
template <class Body>
static void runFirstStripes(QoriSize size, Body body) {
  const int32_t stripes = std::min({pixels(size) >> 10, size.height >> 4, owncvGetNumThreads()});
  if (stripes < 2) {
    body(0, size.height);
    return;
  }
  const int32_t most = std::min(stripes, ownGetNumThreads());
#pragma omp parallel num_threads(most < 1 ? 1 : most)
  {
    const int32_t teamSize = owncvGetNumThreads();
    const Stripe share = mainStripe(longestStripe(size.height, stripes, teamSize), owncvGetIdThreads(), teamSize);
    body(share.row, share.rows);
  }
}

template <class T>
static QorStatus gradientColorToGray(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize,
                                     int32_t normType) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T, 3>(srcStep, roiSize) || shortStep<T>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep | dstStep)) return qorStatusBadStepAlign;
  if (normType < 0 || normType > 2) return qorStatusBadArg;
  const auto run = [=](auto gray) {
    runFirstStripes(roiSize, [=](int32_t row, int32_t rows) {
      for (int32_t y = row; y < row + rows; ++y) {
        grayRow(rowAt(src, srcStep, y), rowAt(dst, dstStep, y), roiSize.width, gray);
      }
    });
  };
  if (normType == 0) run([](auto c0, auto c1, auto c2) { return ownGradInf(c0, c1, c2); });
  if (normType == 1) run([](auto c0, auto c1, auto c2) { return ownGradL1(c0, c1, c2); });
  if (normType == 2) run([](auto c0, auto c1, auto c2) { return ownGradL2(c0, c1, c2); });
  return qorStatusOk;
}

QorStatus qoriGradientColorToGray_8u_C3C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                           QoriSize roiSize, int32_t normType) {
  return gradientColorToGray(src, srcStep, dst, dstStep, roiSize, normType);
}
QorStatus qoriGradientColorToGray_16u_C3C1R(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                                            QoriSize roiSize, int32_t normType) {
  return gradientColorToGray(src, srcStep, dst, dstStep, roiSize, normType);
}
QorStatus qoriGradientColorToGray_32f_C3C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                            QoriSize roiSize, int32_t normType) {
  return gradientColorToGray(src, srcStep, dst, dstStep, roiSize, normType);
}
