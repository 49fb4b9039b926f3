// Gradient segmentation: labels grow from pixel to pixel, the most similar pair first.
//
// A pixel waits in the queue on the level of its difference to the neighbour that pushed it, and takes its label when
// it leaves, from the neighbour that is most similar then. Low differences that turn up late are served at once.
//
// Odd: the outermost pixels take no part and come out as 255, markers on them too, but only if anything grows at all.
// On equal differences the later neighbour wins, save with the label of borders.
#include <string.h>

#include <algorithm>

#include "frame/frame.h"
#include "frame/kit/images.h"
#include "segment/queue.h"

static constexpr uint8_t closedLabel = 255, borderLabel = 254;

static inline int32_t differenceOf(const uint8_t* p, const uint8_t* q, ptrdiff_t channels) {
  int32_t largest = 0;
  for (ptrdiff_t c = 0; c < channels; ++c) largest = std::max(largest, __builtin_abs(p[c] - q[c]));
  return largest;
}

static inline bool isRegion(uint8_t label) { return uint8_t(label - 1) < 254; }

namespace {

struct Growth {
  const uint8_t* pixels;  // a plane without gaps between the rows
  uint8_t* labels;
  QoriSize size;
  PixelQueue queue;
  ptrdiff_t around[8];  // left, right, up, down, then the diagonals
};

}  // namespace

static void closeRing(uint8_t* labels, QoriSize size) {
  const ptrdiff_t width = size.width;
  memset(labels, closedLabel, size_t(width));
  memset(labels + (size.height - 1) * width, closedLabel, size_t(width));
  for (ptrdiff_t y = 0; y < size.height; ++y) labels[y * width] = labels[y * width + width - 1] = closedLabel;
}

// Unlabelled neighbours of markers into the queue. False if there are none.
template <int32_t channels, int32_t count>
static bool pushNeighbours(Growth& growth) {
  bool any = false;
  for (int32_t y = 1; y < growth.size.height - 1; ++y) {
    const ptrdiff_t row = ptrdiff_t(y) * growth.size.width;
    for (ptrdiff_t pixel = row + 1; pixel < row + growth.size.width - 1; ++pixel) {
      if (growth.labels[pixel] != 0) continue;
      int32_t least = PixelQueue::levels;
      for (int32_t n = 0; n < count; ++n) {
        const ptrdiff_t neighbour = pixel + growth.around[n];
        if (!isRegion(growth.labels[neighbour])) continue;
        least = std::min(
            least, differenceOf(growth.pixels + pixel * channels, growth.pixels + neighbour * channels, channels));
      }
      if (least == PixelQueue::levels) continue;
      push(growth.queue, least, int32_t(pixel));
      growth.labels[pixel] = closedLabel;
      any = true;
    }
  }
  return any;
}

static inline bool meetsAnother(const Growth& growth, ptrdiff_t pixel, uint8_t own, int32_t lookedAt) {
  bool meets = false;
  for (int32_t n = 0; n < lookedAt; ++n) {
    const uint8_t label = growth.labels[pixel + growth.around[n]];
    meets |= isRegion(label) && label != borderLabel && label != own;
  }
  return meets;
}

template <int32_t channels, int32_t count>
static void grow(Growth& growth, int32_t flag) {
  const int32_t lookedAt = flag & qorSegmentBorder8 ? 8 : flag & qorSegmentBorder4 ? 4 : 0;
  for (int32_t level; (level = lowestLevel(growth.queue)) < PixelQueue::levels;) {
    const ptrdiff_t pixel = pop(growth.queue, level);
    uint8_t own = closedLabel;
    int32_t least = PixelQueue::levels;
    for (int32_t n = 0; n < count; ++n) {
      const ptrdiff_t neighbour = pixel + growth.around[n];
      const uint8_t label = growth.labels[neighbour];
      // What is closed, and waits or takes no part, is neither a source nor a target.
      if (label == closedLabel) continue;
      const int32_t difference =
          differenceOf(growth.pixels + pixel * channels, growth.pixels + neighbour * channels, channels);
      if (label == 0) {
        push(growth.queue, difference, int32_t(neighbour));
        growth.labels[neighbour] = closedLabel;
      } else if (difference < least || (difference == least && label < borderLabel)) {
        least = difference;
        own = label;
      }
    }
    if (lookedAt && meetsAnother(growth, pixel, own, lookedAt)) own = borderLabel;
    growth.labels[pixel] = own;
  }
}

template <int32_t channels, int32_t count>
static bool run(Growth& growth, int32_t flag) {
  if (!pushNeighbours<channels, count>(growth)) return false;
  grow<channels, count>(growth, flag);
  return true;
}

template <int32_t channels>
static QorStatus segmentGradient(const uint8_t* src, int32_t srcStep, uint8_t* markers, int32_t markerStep,
                                 QoriSize roiSize, int32_t watershedNorm, int32_t flag, uint8_t* buffer) {
  if (anyNull(src, markers, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t, channels>(srcStep, roiSize) || shortStep<uint8_t>(markerStep, roiSize)) {
    return qorStatusBadStep;
  }
  if (watershedNorm != qorNormInf && watershedNorm != qorNormL1) return qorStatusBadArg;

  // Links, labels and pixels together need 8 bytes a pixel; there are 17.
  const ptrdiff_t stride = roiSize.width, count = stride * roiSize.height;
  Growth growth;
  int32_t* link = alignUp<int32_t>(buffer, 16);
  growth.labels = reinterpret_cast<uint8_t*>(link + count);
  uint8_t* pixels = growth.labels + count;
  growth.pixels = pixels;
  growth.size = roiSize;
  const ptrdiff_t around[8] = {-1, 1, -stride, stride, -stride - 1, -stride + 1, stride - 1, stride + 1};
  memcpy(growth.around, around, sizeof around);
  clearQueue(growth.queue, link);
  qoriCopy_8u_C1R(markers, markerStep, growth.labels, roiSize.width, roiSize);
  qoriCopy_8u_C1R(src, srcStep, pixels, roiSize.width * channels, {roiSize.width * channels, roiSize.height});
  closeRing(growth.labels, roiSize);
  const bool grown = watershedNorm == qorNormL1 ? run<channels, 4>(growth, flag) : run<channels, 8>(growth, flag);
  if (grown) qoriCopy_8u_C1R(growth.labels, roiSize.width, markers, markerStep, roiSize);
  return qorStatusOk;
}

QorStatus qoriSegmentGradientGetBufferSize_8u_C1R(QoriSize roiSize, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  *bufferSize = (pixels(roiSize) + 3) * 16 + pixels(roiSize) + 67;
  return qorStatusOk;
}

QorStatus qoriSegmentGradientGetBufferSize_8u_C3R(QoriSize roiSize, int32_t* bufferSize) {
  return qoriSegmentGradientGetBufferSize_8u_C1R(roiSize, bufferSize);
}

QorStatus qoriSegmentGradient_8u_C1IR(const uint8_t* src, int32_t srcStep, uint8_t* markers, int32_t markerStep,
                                      QoriSize roiSize, int32_t watershedNorm, int32_t flag, uint8_t* buffer) {
  return segmentGradient<1>(src, srcStep, markers, markerStep, roiSize, watershedNorm, flag, buffer);
}

QorStatus qoriSegmentGradient_8u_C3IR(const uint8_t* src, int32_t srcStep, uint8_t* markers, int32_t markerStep,
                                      QoriSize roiSize, int32_t watershedNorm, int32_t flag, uint8_t* buffer) {
  return segmentGradient<3>(src, srcStep, markers, markerStep, roiSize, watershedNorm, flag, buffer);
}
