// Sizes of pyramid layers at any rate, and the public pyramid record.
//
// The ranges of sizes above the layer sizes 1, 2, 3, ... follow each other without gap or overlap: the range of d
// begins one behind the end of that of d - 1. So each size lies above exactly one layer size, and the search for it,
// one up or down at a time, ends. Products are taken in float and no longer exact from 2^24 on, which moves the limits
// of the ranges but leaves them without gap.
#include <algorithm>

#include "frame/frame.h"
#include "frame/kit/vectors.h"
#include "pyramid/rate.h"

struct SizeRange {
  int64_t lowest;
  int64_t highest;
};

static SizeRange rangeAbove(int32_t size, float rate) {
  const int64_t next = int64_t(size) + 1;
  const int64_t lowest = size == 1 ? 1 : std::max(next, int64_t(float(size - 1) * rate) + 1);
  return SizeRange{lowest, std::max(next, int64_t(float(size) * rate))};
}

static int32_t sizeBelow(int32_t size, float rate) {
  int32_t below = std::max(1, int32_t(double(float(size) / rate) + 0.5));
  for (;;) {
    const SizeRange range = rangeAbove(below, rate);
    if (size < range.lowest) {
      --below;
    } else if (size > range.highest) {
      ++below;
    } else {
      return below;
    }
  }
}

static int32_t held(int64_t size) { return int32_t(std::min<int64_t>(size, INT32_MAX)); }

QorStatus qoriGetPyramidUpROI(QoriSize srcRoi, QoriSize* dstRoiMin, QoriSize* dstRoiMax, float rate) {
  if (anyNull(dstRoiMin, dstRoiMax)) return qorStatusNullPtr;
  if (emptySize(srcRoi)) return qorStatusBadSize;
  if (badRate(rate)) return qorStatusBadArg;
  const SizeRange widths = rangeAbove(srcRoi.width, rate);
  const SizeRange heights = rangeAbove(srcRoi.height, rate);
  *dstRoiMin = QoriSize{held(widths.lowest), held(heights.lowest)};
  *dstRoiMax = QoriSize{held(widths.highest), held(heights.highest)};
  return qorStatusOk;
}

QorStatus qoriGetPyramidDownROI(QoriSize srcRoi, QoriSize* dstRoi, float rate) {
  if (anyNull(dstRoi)) return qorStatusNullPtr;
  if (emptySize(srcRoi)) return qorStatusBadSize;
  if (badRate(rate)) return qorStatusBadArg;
  *dstRoi = QoriSize{sizeBelow(srcRoi.width, rate), sizeBelow(srcRoi.height, rate)};
  return qorStatusOk;
}

// The next array of a record's block: behind a gap, aligned at 8 bytes.
template <class T>
static T* nextArray(uint8_t** end, int32_t count) {
  T* array = alignUp<T>(*end + 8, 8);
  *end = reinterpret_cast<uint8_t*>(array + count);
  return array;
}

static QoriPyramid* newPyramid(const QoriSize* sizes, int32_t topLevel, float rate) {
  const int64_t bytes = int64_t(topLevel) * 52 + 152;
  uint8_t* block = bytes > INT32_MAX ? nullptr : qorsMalloc_8u(int32_t(bytes));
  if (block == nullptr) return nullptr;
  QoriPyramid* pyramid = reinterpret_cast<QoriPyramid*>(block);
  uint8_t* end = block + sizeof(QoriPyramid);
  const int32_t count = topLevel + 1;
  pyramid->levelImages = nextArray<void*>(&end, count);
  pyramid->levelSizes = nextArray<QoriSize>(&end, count);
  pyramid->levelRates = nextArray<double>(&end, count);
  pyramid->levelSteps = nextArray<int32_t>(&end, count);
  pyramid->layerState = nullptr;
  pyramid->topLevel = topLevel;
  double levelRate = 1.0;
  for (int32_t level = 0; level < count; ++level) {
    pyramid->levelImages[level] = nullptr;
    pyramid->levelSizes[level] = sizes[level];
    pyramid->levelRates[level] = levelRate;
    pyramid->levelSteps[level] = 0;
    levelRate *= 1.0 / double(rate);
  }
  return pyramid;
}

QorStatus qoriPyramidInitAlloc(QoriPyramid** pyramid, int32_t level, QoriSize roiSize, float rate) {
  if (anyNull(pyramid)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (badRate(rate) || level < 1) return qorStatusBadArg;
  // A dimension above 1 shrinks with every level, so that there is room for all levels down to 1 by 1.
  static_assert(sizeof(QoriSize) == sizeof(double));
  QoriSize* sizes = reinterpret_cast<QoriSize*>(qorsMalloc_64f(std::max(roiSize.width, roiSize.height)));
  if (sizes == nullptr) return qorStatusNoMemory;
  int32_t topLevel = 0;
  sizes[0] = roiSize;
  while (topLevel < level && (sizes[topLevel].width > 1 || sizes[topLevel].height > 1)) {
    qoriGetPyramidDownROI(sizes[topLevel], &sizes[topLevel + 1], rate);
    ++topLevel;
  }
  QoriPyramid* made = newPyramid(sizes, topLevel, rate);
  qorsFree(sizes);
  if (made == nullptr) return qorStatusNoMemory;
  *pyramid = made;
  return qorStatusOk;
}

QorStatus qoriPyramidFree(QoriPyramid* pyramid) {
  if (anyNull(pyramid)) return qorStatusNullPtr;
  qorsFree(pyramid);
  return qorStatusOk;
}
