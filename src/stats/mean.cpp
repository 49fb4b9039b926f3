// Mean and standard deviation, of all pixels or of those that a mask selects.
//
// Integers are summed exactly within a row and 32f values in their row-major order, so what a stripe adds up to is
// fixed to the last bit. Odd: 16u rows are summed in 32 bits, which wrap, and count as signed in two of the serial
// forms only; 16u squares are those of the distance to 32768, of pixels that are not selected too, and what brings the
// true ones back uses the number of all pixels; each function has its own gate, and two have none.
#include <cmath>
#include <type_traits>

#include "stats/gate.h"
#include "stats/orderedsum.h"
#include "stats/sums.h"

namespace {

struct Moments {
  double sum;
  double squares;
  uint32_t count;  // selected pixels
};

enum class Pixels { all, selected };
enum class Results { mean, meanAndDeviation };
enum class SerialRows { unsignedSums, signedSums };

}  // namespace

static uint32_t countSelected(const uint8_t* mask, int32_t count) {
  Gathered<uint8_t> ones;
  for (ptrdiff_t x = 0; x < count; ++x) ones.pixels[x] = mask[x] != 0;
  return uint32_t(sumOfPixels(ones.pixels, count));
}

static int64_t sumOfSquares(const uint8_t* block, int32_t count) {
  return sumOfSquaredDistances(block, zeros8u.pixels, count);
}
static int64_t sumOfSquares(const int8_t* block, int32_t count) {
  return sumOfSquaredDistances(block, zeros8s.pixels, count);
}
static int64_t sumOfSquares(const uint16_t* block, int32_t count) { return sumOfSquaresAroundMiddle(block, count); }

// Sums of some rows of integers: exact ones of each row, converted.
template <class T, int32_t channels, Pixels which, Results results>
static Moments sumRows(const Region<T>& region, int32_t row, int32_t rows, bool signedRows) {
  constexpr bool masked = which == Pixels::selected;
  int64_t sum = 0;
  Moments moments = {0.0, 0.0, 0};
  for (int32_t y = row; y < row + rows; ++y) {
    const T* const src = rowAt(region.src1, region.src1Step, y);
    const uint8_t* const mask = masked ? rowAt(region.mask, region.maskStep, y) : nullptr;
    int64_t rowSum = 0, rowSquares = 0;
    forBlocks(region.size.width, [&](ptrdiff_t x, int32_t count) {
      Gathered<T> room;
      const T* const block = gather<T, channels, masked>(src + x * channels, mask + (masked ? x : 0), count, 0, room);
      rowSum += sumOfPixels(block, count);
      if constexpr (results == Results::meanAndDeviation) {
        rowSquares += sumOfSquares(block, count);
      }
      if constexpr (masked) moments.count += countSelected(mask + x, count);
    });
    if constexpr (std::is_same_v<T, uint16_t>)
      rowSum = signedRows ? int64_t(int32_t(rowSum)) : int64_t(uint32_t(rowSum));
    sum += rowSum;
    moments.squares += double(rowSquares);
  }
  moments.sum = double(sum);
  return moments;
}

// Sums of some rows of floats, in order.
template <int32_t channels, Pixels which, Results results>
static Moments sumRows(const Region<float>& region, int32_t row, int32_t rows) {
  constexpr bool masked = which == Pixels::selected;
  OrderedSum sum, squares;
  Moments moments = {0.0, 0.0, 0};
  for (int32_t y = row; y < row + rows; ++y) {
    const float* const src = rowAt(region.src1, region.src1Step, y);
    const uint8_t* const mask = masked ? rowAt(region.mask, region.maskStep, y) : nullptr;
    forBlocks(region.size.width, [&](ptrdiff_t x, int32_t count) {
      Gathered<float> room;
      const float* const block =
          gather<float, channels, masked>(src + x * channels, mask + (masked ? x : 0), count, 0.0f, room);
      addInOrder<Terms::ofBothSigns>(sum, block, count, [](auto value) { return value; });
      if constexpr (results == Results::meanAndDeviation) {
        addInOrder<Terms::neverNegative>(squares, block, count, [](auto value) { return value * value; });
      }
      if constexpr (masked) moments.count += countSelected(mask + x, count);
    });
  }
  moments.sum = sum.total;
  moments.squares = squares.total;
  return moments;
}

// Sum of the squared distances to the mean.
template <int32_t channels, Pixels which>
static double sumOfSquaresAround(double mean, const Region<float>& region) {
  constexpr bool masked = which == Pixels::selected;
  OrderedSum squares;
  for (int32_t y = 0; y < region.size.height; ++y) {
    const float* const src = rowAt(region.src1, region.src1Step, y);
    const uint8_t* const mask = masked ? rowAt(region.mask, region.maskStep, y) : nullptr;
    forBlocks(region.size.width, [&](ptrdiff_t x, int32_t count) {
      Gathered<float> room;
      const float* const block = gather<float, channels, false>(src + x * channels, nullptr, count, 0.0f, room);
      const auto squaredDistance = [mean](auto value) {
        const auto distance = value - mean;
        return distance * distance;
      };
      if constexpr (masked) {
        // What is not selected has no term, and no filling could stand for it: close the gaps.
        Gathered<float> selected;
        ptrdiff_t size = 0;
        for (int32_t i = 0; i < count; ++i) {
          selected.pixels[size] = block[i];
          size += mask[x + i] != 0;
        }
        addInOrder<Terms::neverNegative>(squares, selected.pixels, size, squaredDistance);
      } else {
        addInOrder<Terms::neverNegative>(squares, block, count, squaredDistance);
      }
    });
  }
  return squares.total;
}

template <class T, int32_t channels, Pixels which, Results results>
static QorStatus meanAndDeviation(const Region<T>& all, int32_t coi, Gate gate, double* mean, double* stdDev,
                                  SerialRows serialRows = SerialRows::unsignedSums) {
  constexpr bool masked = which == Pixels::selected, floats = std::is_same_v<T, float>;
  if (anyNull(all.src1) || (masked && anyNull(all.mask)) || (results == Results::mean && anyNull(mean))) {
    return qorStatusNullPtr;
  }
  if (emptySize(all.size)) return qorStatusBadSize;
  if (shortStep<T, channels>(all.src1Step, all.size)) return qorStatusBadStep;
  if (!floats && misaligned<T>(all.src1Step)) return qorStatusBadStepAlign;
  if (masked && shortStep<uint8_t>(all.maskStep, all.size)) return qorStatusBadStep;
  if (floats && misaligned<T>(all.src1Step)) return qorStatusBadStepAlign;
  if (channels == 3 && badCoi(coi)) return qorStatusBadCoi;

  Region<T> region = all;
  region.src1 += coi - 1;
  const int32_t threads = threadsFor(gate, region.size);
  const Moments moments = reduceStripes<Moments>(
      region.size.height, threads,
      [=](int32_t row, int32_t rows) {
        if constexpr (floats) {
          return sumRows<channels, which, results>(region, row, rows);
        } else {
          return sumRows<T, channels, which, results>(region, row, rows,
                                                      threads == serial && serialRows == SerialRows::signedSums);
        }
      },
      [](Moments& total, const Moments& slot) {
        total.sum += slot.sum;
        total.squares += slot.squares;
        total.count += slot.count;
      });

  double squares = moments.squares;
  if constexpr (std::is_same_v<T, uint16_t>) {
    const int64_t sum = int64_t(moments.sum);
    squares += double((sum << 16) - (int64_t(pixels(region.size)) << 30));
  }
  const double count = masked ? double(moments.count) : double(pixels(region.size));
  const double meanValue = count == 0.0 ? 0.0 : moments.sum / count;
  if (mean) *mean = meanValue;
  if constexpr (results == Results::meanAndDeviation) {
    const double stdDevValue = count == 0.0 ? 0.0 : std::sqrt(std::fabs(squares / count - meanValue * meanValue));
    if (stdDev) *stdDev = stdDevValue;
    // Too few digits are left of a small deviation of large values. Nobody sees the second pass without a pointer.
    if (floats && stdDev && 0.05 * meanValue * meanValue > stdDevValue * stdDevValue) {
      if constexpr (floats) *stdDev = std::sqrt(sumOfSquaresAround<channels, which>(meanValue, region) / count);
    }
  }
  return qorStatusOk;
}

#define QOR_MEAN(TYPE, T, GATE_C1, GATE_C3, SERIAL_ROWS)                                                  \
  QorStatus qoriMean_##TYPE##_C1MR(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep,  \
                                   QoriSize roiSize, double* mean) {                                      \
    return meanAndDeviation<T, 1, Pixels::selected, Results::mean>(                                       \
        {src, srcStep, nullptr, 0, mask, maskStep, roiSize}, 1, Gate::GATE_C1, mean, nullptr,             \
        SerialRows::SERIAL_ROWS);                                                                         \
  }                                                                                                       \
  QorStatus qoriMean_##TYPE##_C3CMR(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, \
                                    QoriSize roiSize, int32_t coi, double* mean) {                        \
    return meanAndDeviation<T, 3, Pixels::selected, Results::mean>(                                       \
        {src, srcStep, nullptr, 0, mask, maskStep, roiSize}, coi, Gate::GATE_C3, mean, nullptr);          \
  }
QOR_MEAN(8u, uint8_t, none, pixels17, unsignedSums)
QOR_MEAN(8s, int8_t, pixels17, pixels17, unsignedSums)
QOR_MEAN(16u, uint16_t, pixels17, pixels17, signedSums)
QOR_MEAN(32f, float, pixels17, pixels17, unsignedSums)
#undef QOR_MEAN

#define QOR_MEAN_STDDEV(TYPE, T, GATE_C1R, GATE_C3CR, SERIAL_ROWS)                                                    \
  QorStatus qoriMean_StdDev_##TYPE##_C1R(const T* src, int32_t srcStep, QoriSize roiSize, double* mean,               \
                                         double* stdDev) {                                                            \
    return meanAndDeviation<T, 1, Pixels::all, Results::meanAndDeviation>(                                            \
        {src, srcStep, nullptr, 0, nullptr, 0, roiSize}, 1, Gate::GATE_C1R, mean, stdDev, SerialRows::SERIAL_ROWS);   \
  }                                                                                                                   \
  QorStatus qoriMean_StdDev_##TYPE##_C3CR(const T* src, int32_t srcStep, QoriSize roiSize, int32_t coi, double* mean, \
                                          double* stdDev) {                                                           \
    return meanAndDeviation<T, 3, Pixels::all, Results::meanAndDeviation>(                                            \
        {src, srcStep, nullptr, 0, nullptr, 0, roiSize}, coi, Gate::GATE_C3CR, mean, stdDev);                         \
  }                                                                                                                   \
  QorStatus qoriMean_StdDev_##TYPE##_C1MR(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep,       \
                                          QoriSize roiSize, double* mean, double* stdDev) {                           \
    return meanAndDeviation<T, 1, Pixels::selected, Results::meanAndDeviation>(                                       \
        {src, srcStep, nullptr, 0, mask, maskStep, roiSize}, 1, Gate::pixels17, mean, stdDev);                        \
  }                                                                                                                   \
  QorStatus qoriMean_StdDev_##TYPE##_C3CMR(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep,      \
                                           QoriSize roiSize, int32_t coi, double* mean, double* stdDev) {             \
    return meanAndDeviation<T, 3, Pixels::selected, Results::meanAndDeviation>(                                       \
        {src, srcStep, nullptr, 0, mask, maskStep, roiSize}, coi, Gate::pixels17, mean, stdDev);                      \
  }
QOR_MEAN_STDDEV(8u, uint8_t, pixels17OnSeveralCores, pixels17, unsignedSums)
QOR_MEAN_STDDEV(8s, int8_t, pixels17, pixels17, unsignedSums)
QOR_MEAN_STDDEV(16u, uint16_t, pixels17, pixels17, signedSums)
QOR_MEAN_STDDEV(32f, float, pixels16, none, unsignedSums)
#undef QOR_MEAN_STDDEV
