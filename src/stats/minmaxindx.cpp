// Smallest and largest pixel and their places, of all pixels or of those that a mask selects.
//
// A first pass over all rows finds the extrema and their rows, a second one looks for each in its row. Odd: 32f
// comparisons pass over NaN in the first pass, but in the second a NaN, being neither less nor greater, counts as
// equal; under a mask a stripe without a selected pixel takes part in the merge with the value 0 at its first row.
#include <limits>

#include "stats/lanes.h"
#include "stats/selection.h"

namespace {

// What one stripe found; zeros, but for the row, where no pixel is selected.
template <class T>
struct Extrema {
  T min, max;
  QoriPoint minIndex, maxIndex;
  bool found;
};

}  // namespace

static constexpr int32_t parallelPixels = 16384;

// Widens the range min .. max to the pixels of a block. A NaN among them changes nothing.
template <class T>
static void extremaOfBlock(const T* block, int32_t count, T& min, T& max) {
  T least = min, greatest = max;
  for (ptrdiff_t x = 0; x < count; ++x) {
    least = block[x] < least ? block[x] : least;
    greatest = block[x] > greatest ? block[x] : greatest;
  }
  min = least;
  max = greatest;
}

static void extremaOfBlock(const float* block, int32_t count, float& min, float& max) {
  constexpr ptrdiff_t streams = 4, stride = streams * floatsAtOnce;
  ptrdiff_t x = 0;
  if (count >= stride) {
    Floats least[streams], greatest[streams];
    for (ptrdiff_t s = 0; s < streams; ++s) {
      least[s] = Floats{} + min;
      greatest[s] = Floats{} + max;
    }
    for (; x + stride <= count; x += stride) {
#pragma GCC unroll 4
      for (ptrdiff_t s = 0; s < streams; ++s) {
        const Floats pixels = loaded(block + x + s * floatsAtOnce);
        least[s] = lesser(pixels, least[s]);
        greatest[s] = greater(pixels, greatest[s]);
      }
    }
    const Floats leastOfAll = lesser(lesser(least[0], least[1]), lesser(least[2], least[3]));
    const Floats greatestOfAll = greater(greater(greatest[0], greatest[1]), greater(greatest[2], greatest[3]));
    for (ptrdiff_t l = 0; l < floatsAtOnce; ++l) {
      min = leastOfAll[l] < min ? leastOfAll[l] : min;
      max = greatestOfAll[l] > max ? greatestOfAll[l] : max;
    }
  }
  for (; x < count; ++x) {
    min = block[x] < min ? block[x] : min;
    max = block[x] > max ? block[x] : max;
  }
}

// The first pass over the rows from `extrema` on, which holds what is known already.
template <class T, int32_t channels, bool masked>
static void ownMinMaxIndx_1(const Region<T>& region, int32_t row, int32_t rows, T filling, Extrema<T>& extrema) {
  for (int32_t y = row; y < row + rows; ++y) {
    const T* const src = rowAt(region.src1, region.src1Step, y);
    const uint8_t* const mask = masked ? rowAt(region.mask, region.maskStep, y) : nullptr;
    T min = extrema.min, max = extrema.max;
    forBlocks(region.size.width, [&](ptrdiff_t x, int32_t count) {
      Gathered<T> room;
      const T* const block =
          gather<T, channels, masked>(src + x * channels, mask + (masked ? x : 0), count, filling, room);
      extremaOfBlock(block, count, min, max);
    });
    if (min < extrema.min) {
      extrema.min = min;
      extrema.minIndex.y = y;
    }
    if (max > extrema.max) {
      extrema.max = max;
      extrema.maxIndex.y = y;
    }
  }
}

// The second pass: the first column of a row with that value (or with a NaN), `otherwise` if there is none.
template <class T, int32_t channels, bool masked>
static int32_t ownMinMaxIndx_2(const Region<T>& region, int32_t row, T value, int32_t otherwise) {
  const T* const src = rowAt(region.src1, region.src1Step, row);
  const uint8_t* const mask = masked ? rowAt(region.mask, region.maskStep, row) : nullptr;
  const auto matches = [=](ptrdiff_t x) {
    const T pixel = src[x * channels];
    return !(pixel < value) & !(pixel > value) & (!masked || mask[x] != 0);
  };
  constexpr ptrdiff_t atOnce = 64;
  ptrdiff_t x = 0;
  for (; x + atOnce <= region.size.width; x += atOnce) {
    int32_t any = 0;
    for (ptrdiff_t i = 0; i < atOnce; ++i) any |= matches(x + i);
    if (any) break;
  }
  for (; x < region.size.width; ++x) {
    if (matches(x)) return int32_t(x);
  }
  return otherwise;
}

template <class T, int32_t channels>
static Extrema<T> extremaOfAll(const Region<T>& region, int32_t row, int32_t rows) {
  constexpr T lowest = std::numeric_limits<T>::lowest(), highest = std::numeric_limits<T>::max();
  Extrema<T> extrema = {highest, lowest, {0, row}, {0, row}, true};
  ownMinMaxIndx_1<T, channels, false>(region, row, rows, 0, extrema);
  return extrema;
}

// Column of the first selected pixel of a row, or its width.
static int32_t firstSelected(const uint8_t* mask, int32_t width) {
  int32_t x = 0;
  for (uint64_t eight; x + 8 <= width; x += 8) {
    memcpy(&eight, mask + x, sizeof eight);
    if (eight != 0) break;
  }
  while (x < width && mask[x] == 0) ++x;
  return x;
}

template <class T, int32_t channels>
static Extrema<T> extremaOfSelected(const Region<T>& region, int32_t row, int32_t rows) {
  for (int32_t y = row; y < row + rows; ++y) {
    const int32_t x = firstSelected(rowAt(region.mask, region.maskStep, y), region.size.width);
    if (x == region.size.width) continue;
    const T first = rowAt(region.src1, region.src1Step, y)[ptrdiff_t(x) * channels];
    Extrema<T> extrema = {first, first, {x, y}, {x, y}, true};
    // No comparison changes a NaN. Pixels that are not selected are taken for the first one, which changes nothing.
    if (first == first) ownMinMaxIndx_1<T, channels, true>(region, y, row + rows - y, first, extrema);
    return extrema;
  }
  return {0, 0, {0, row}, {0, row}, false};
}

template <class T, int32_t channels, bool masked>
static QorStatus minMaxIndx(const Region<T>& all, int32_t coi, float* minVal, float* maxVal, QoriPoint* minIndex,
                            QoriPoint* maxIndex) {
  if (anyNull(all.src1) || (masked && anyNull(all.mask))) return qorStatusNullPtr;
  if (emptySize(all.size)) return qorStatusBadSize;
  if (shortStep<T, channels>(all.src1Step, all.size)) return qorStatusBadStep;
  if (masked && shortStep<uint8_t>(all.maskStep, all.size)) return qorStatusBadStep;
  if (misaligned<T>(all.src1Step)) return qorStatusBadStepAlign;
  if (badCoi(coi)) return qorStatusBadCoi;

  Region<T> region = all;
  region.src1 += coi - 1;
  Extrema<T> extrema = reduceStripes<Extrema<T>>(
      region.size.height, pixels(region.size) >= parallelPixels ? ownGetNumThreads() : serial,
      [=](int32_t row, int32_t rows) {
        if constexpr (masked) {
          return extremaOfSelected<T, channels>(region, row, rows);
        } else {
          return extremaOfAll<T, channels>(region, row, rows);
        }
      },
      // Odd: slots in which nothing was found take part with their zeros.
      [](Extrema<T>& total, const Extrema<T>& slot) {
        if (slot.min < total.min) {
          total.min = slot.min;
          total.minIndex = slot.minIndex;
        }
        if (slot.max > total.max) {
          total.max = slot.max;
          total.maxIndex = slot.maxIndex;
        }
        total.found |= slot.found;
      });
  if (extrema.found) {
    extrema.minIndex.x =
        ownMinMaxIndx_2<T, channels, masked>(region, extrema.minIndex.y, extrema.min, extrema.minIndex.x);
    extrema.maxIndex.x =
        ownMinMaxIndx_2<T, channels, masked>(region, extrema.maxIndex.y, extrema.max, extrema.maxIndex.x);
  }
  if (minIndex) *minIndex = extrema.minIndex;
  if (maxIndex) *maxIndex = extrema.maxIndex;
  if (minVal) *minVal = float(extrema.min);
  if (maxVal) *maxVal = float(extrema.max);
  return qorStatusOk;
}

#define QOR_MIN_MAX_INDX(TYPE, T)                                                                                      \
  QorStatus qoriMinMaxIndx_##TYPE##_C1R(const T* src, int32_t srcStep, QoriSize roiSize, float* minVal, float* maxVal, \
                                        QoriPoint* minIndex, QoriPoint* maxIndex) {                                    \
    return minMaxIndx<T, 1, false>({src, srcStep, nullptr, 0, nullptr, 0, roiSize}, 1, minVal, maxVal, minIndex,       \
                                   maxIndex);                                                                          \
  }                                                                                                                    \
  QorStatus qoriMinMaxIndx_##TYPE##_C3CR(const T* src, int32_t srcStep, QoriSize roiSize, int32_t coi, float* minVal,  \
                                         float* maxVal, QoriPoint* minIndex, QoriPoint* maxIndex) {                    \
    return minMaxIndx<T, 3, false>({src, srcStep, nullptr, 0, nullptr, 0, roiSize}, coi, minVal, maxVal, minIndex,     \
                                   maxIndex);                                                                          \
  }                                                                                                                    \
  QorStatus qoriMinMaxIndx_##TYPE##_C1MR(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep,         \
                                         QoriSize roiSize, float* minVal, float* maxVal, QoriPoint* minIndex,          \
                                         QoriPoint* maxIndex) {                                                        \
    return minMaxIndx<T, 1, true>({src, srcStep, nullptr, 0, mask, maskStep, roiSize}, 1, minVal, maxVal, minIndex,    \
                                  maxIndex);                                                                           \
  }                                                                                                                    \
  QorStatus qoriMinMaxIndx_##TYPE##_C3CMR(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep,        \
                                          QoriSize roiSize, int32_t coi, float* minVal, float* maxVal,                 \
                                          QoriPoint* minIndex, QoriPoint* maxIndex) {                                  \
    return minMaxIndx<T, 3, true>({src, srcStep, nullptr, 0, mask, maskStep, roiSize}, coi, minVal, maxVal, minIndex,  \
                                  maxIndex);                                                                           \
  }
QOR_MIN_MAX_INDX(8u, uint8_t)
QOR_MIN_MAX_INDX(8s, int8_t)
QOR_MIN_MAX_INDX(16u, uint16_t)
QOR_MIN_MAX_INDX(32f, float)
#undef QOR_MIN_MAX_INDX
