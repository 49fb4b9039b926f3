// Column stage of a separable filter: any kernel down the columns of rows that are given by pointers.
//
// Odd: the scratch buffer must be there but is not needed; it is tested after the steps. All row pointers are verified
// before anything is written. The float forms are never threaded.
#include <algorithm>

#include "filter/taps.h"
#include "frame/frame.h"

template <class Src, class Dst, class Tap>
struct ColumnArguments {
  const Src* const* srcRows;
  Dst* dst;
  int32_t dstStep;
  QoriSize roiSize;
  const Tap* kernel;
  int32_t kernelSize;
  uint8_t* buffer;
};

template <int32_t channels, class Src, class Dst, class Tap>
static QorStatus checkColumns(const ColumnArguments<Src, Dst, Tap>& a, int32_t divisor) {
  if (anyNull(a.srcRows, a.dst, a.kernel)) return qorStatusNullPtr;
  if (emptySize(a.roiSize) || a.kernelSize < 1) return qorStatusBadSize;
  if (shortStep<Dst, channels>(a.dstStep, a.roiSize)) return qorStatusBadStep;
  if (misaligned<Dst>(a.dstStep)) return qorStatusBadStepAlign;
  if (anyNull(a.buffer)) return qorStatusNullPtr;
  if (divisor == 0) return qorStatusBadArg;
  for (ptrdiff_t r = 0; r < ptrdiff_t(a.roiSize.height) + a.kernelSize - 1; ++r) {
    if (!a.srcRows[r]) return qorStatusNullPtr;
  }
  return qorStatusOk;
}

// Channels do not meet in a column, so a row of pixels is a row of `width` * channels elements.
template <int32_t channels, class Sum, class Src, class Dst, class Tap, class Ending>
static void filterColumns(const ColumnArguments<Src, Dst, Tap>& a, bool mayThread, const Ending& ending) {
  const int32_t mostThreads = owncvGetMaxNumThreads();
  const bool parallel = mayThread && pixels(a.roiSize) >= mostThreads * 32768 && runsepomp(a.kernelSize);
  // A team is never larger than the scratch was sized for, as in the row stages.
  runStripes(a.roiSize.height, parallel ? std::min(ownGetNumThreads(), mostThreads) : serial,
             [&](int32_t row, int32_t rows) {
               for (int32_t y = row; y < row + rows; ++y) {
                 filterElements<Sum>(ColumnTaps<Src>{a.srcRows + y}, a.kernel, a.kernelSize, ending,
                                     rowAt(a.dst, a.dstStep, y), a.roiSize.width * channels);
               }
             });
}

template <int32_t channels>
static QorStatus columnsOfFloat(const ColumnArguments<float, float, float>& a) {
  if (const QorStatus status = checkColumns<channels>(a, 1)) return status;
  filterColumns<channels, float>(a, false, StoreFloat());
  return qorStatusOk;
}

template <int32_t channels, class Dst>
static QorStatus columnsOf16s(const ColumnArguments<int16_t, Dst, int16_t>& a, int32_t divisor) {
  if (const QorStatus status = checkColumns<channels>(a, divisor)) return status;
  filterColumns<channels, float>(a, true, ScaleAndClamp<Dst>(divisor));
  return qorStatusOk;
}

template <int32_t channels, class Dst>
static QorStatus columnsOfLow16s(const ColumnArguments<int16_t, Dst, int16_t>& a, int32_t divisor) {
  if (const QorStatus status = checkColumns<channels>(a, divisor)) return status;
  filterColumns<channels, int32_t>(a, true, ScaleAndWrap(divisor));
  return qorStatusOk;
}

// Scratch for a thread's row pointers and, but for the Low forms, for the taps in float. This implementation needs none
// of it.
static QorStatus columnBufferSize(QoriSize roiSize, int32_t kernelSize, int32_t perThread, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize) || kernelSize < 1) return qorStatusBadSize;
  *bufferSize = owncvGetMaxNumThreads() * (32 + 8 * (roiSize.height + kernelSize) + perThread);
  return qorStatusOk;
}

static QorStatus constantBufferSize(QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize) || kernelSize < 1) return qorStatusBadSize;
  *bufferSize = 32;
  return qorStatusOk;
}

#define QOR_COLUMN_32F(channels)                                                                                   \
  QorStatus qoriFilterColumnPipeline_32f_C##channels##R(const float* const* srcRows, float* dst, int32_t dstStep,  \
                                                        QoriSize roiSize, const float* kernel, int32_t kernelSize, \
                                                        uint8_t* buffer) {                                         \
    return columnsOfFloat<channels>({srcRows, dst, dstStep, roiSize, kernel, kernelSize, buffer});                 \
  }                                                                                                                \
  QorStatus qoriFilterColumnPipelineGetBufferSize_32f_C##channels##R(QoriSize roiSize, int32_t kernelSize,         \
                                                                     int32_t* bufferSize) {                        \
    return constantBufferSize(roiSize, kernelSize, bufferSize);                                                    \
  }
QOR_COLUMN_32F(1)
QOR_COLUMN_32F(3)
#undef QOR_COLUMN_32F

#define QOR_COLUMN_16S(form, channels, Dst, stage, perThread)                                                          \
  QorStatus qoriFilterColumnPipeline_##form##_C##channels##R(const int16_t* const* srcRows, Dst* dst, int32_t dstStep, \
                                                             QoriSize roiSize, const int16_t* kernel,                  \
                                                             int32_t kernelSize, int32_t divisor, uint8_t* buffer) {   \
    return stage<channels, Dst>({srcRows, dst, dstStep, roiSize, kernel, kernelSize, buffer}, divisor);                \
  }                                                                                                                    \
  QorStatus qoriFilterColumnPipelineGetBufferSize_##form##_C##channels##R(QoriSize roiSize, int32_t kernelSize,        \
                                                                          int32_t* bufferSize) {                       \
    return columnBufferSize(roiSize, kernelSize, perThread, bufferSize);                                               \
  }
QOR_COLUMN_16S(16s, 1, int16_t, columnsOf16s, 4 * kernelSize + 32)
QOR_COLUMN_16S(16s, 3, int16_t, columnsOf16s, 4 * kernelSize + 32)
QOR_COLUMN_16S(16s8s, 1, int8_t, columnsOf16s, 4 * kernelSize + 32)
QOR_COLUMN_16S(16s8s, 3, int8_t, columnsOf16s, 4 * kernelSize + 32)
QOR_COLUMN_16S(16s8u, 1, uint8_t, columnsOf16s, 4 * kernelSize + 32)
QOR_COLUMN_16S(16s8u, 3, uint8_t, columnsOf16s, 4 * kernelSize + 32)
QOR_COLUMN_16S(Low_16s, 1, int16_t, columnsOfLow16s, 32)
QOR_COLUMN_16S(Low_16s, 3, int16_t, columnsOfLow16s, 32)
#undef QOR_COLUMN_16S
