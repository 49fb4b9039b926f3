// The watershed's flood from a queue of pixels, a level a grey value.
//
// Labels and relief are copied into planes with a frame of one pixel: labels of the frame are those of borders, and
// stop the flood. All three planes have rows of the same length, so a pixel is one index.
//
// A pixel is labelled when it is pushed and never pushed again, so each passes the queue once at most.
#include <string.h>

#include <limits>

#include "frame/frame.h"
#include "frame/kit/images.h"
#include "segment/queue.h"
#include "segment/watershed.h"

static void copyRows(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize) {
  qoriCopy_8u_C1R(src, srcStep, dst, dstStep, roiSize);
}

static void copyRows(const uint16_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep, QoriSize roiSize) {
  qoriCopy_16u_C1R(src, srcStep, dst, dstStep, roiSize);
}

static void copyInFrame(const uint8_t* src, int32_t srcStep, uint8_t* dst, QoriSize roiSize, uint8_t frame) {
  const QoriSize framed = {roiSize.width + 2, roiSize.height + 2};
  qoriCopyConstBorder_8u_C1R(src, srcStep, roiSize, dst, framed.width, framed, 1, 1, frame);
}

static void copyInFrame(const uint16_t* src, int32_t srcStep, uint16_t* dst, QoriSize roiSize, uint16_t frame) {
  const QoriSize framed = {roiSize.width + 2, roiSize.height + 2};
  qoriCopyConstBorder_16u_C1R(src, srcStep, roiSize, dst, 2 * framed.width, framed, 1, 1, frame);
}

namespace {

enum class Borders { none, four, eight };

template <class T>
struct Flood {
  static constexpr T border = std::numeric_limits<T>::max();
  T* labels;
  const uint8_t* relief;
  ptrdiff_t stride;
  QoriSize roiSize;
  PixelQueue queue;
};

}  // namespace

// Offsets of the neighbours, in the order of the flood: left, right, up, down, then the diagonals.
struct Neighbours {
  ptrdiff_t offset[8];
};

static inline Neighbours neighboursOf(ptrdiff_t stride) {
  return {{-1, 1, -stride, stride, -stride - 1, -stride + 1, stride - 1, stride + 1}};
}

// Markers that have room to grow into the queue; markers that touch turn into borders, which later ones see.
template <class T, int32_t count, Borders borders>
static void pushMarkers(Flood<T>& flood) {
  const Neighbours around = neighboursOf(flood.stride);
  constexpr int32_t lookedAt = borders == Borders::eight ? 8 : 4, word = 8 / int32_t(sizeof(T));
  const int32_t width = flood.roiSize.width;
  for (int32_t y = 0; y < flood.roiSize.height; ++y) {
    T* row = flood.labels + (y + 1) * flood.stride + 1;
    for (int32_t x = 0; x < width; ++x) {
      if (row[x] == 0) {
        // Most pixels have no label: eight bytes at a time.
        uint64_t labels;
        while (x <= width - word && (memcpy(&labels, row + x, 8), labels == 0)) x += word;
        while (x < width && row[x] == 0) ++x;
        if (x >= width) break;
      }
      T* label = row + x;
      bool room = false;
      for (int32_t n = 0; n < count; ++n) room |= label[around.offset[n]] == 0;
      const ptrdiff_t pixel = label - flood.labels;
      if (room) push(flood.queue, flood.relief[pixel], int32_t(pixel));
      if (borders != Borders::none && *label != Flood<T>::border) {
        bool touches = false;
        for (int32_t n = 0; n < lookedAt; ++n) {
          const T other = label[around.offset[n]];
          touches |= (other != 0) & (other != Flood<T>::border) & (other != *label);
        }
        if (touches) *label = Flood<T>::border;
      }
    }
  }
}

// The label of a pixel that is pushed from one of label `from`: the border's where it meets another label. From a
// border it takes the label of the only region that it meets, if there is just one.
template <class T, Borders borders>
static inline T labelFor(const T* label, T from, const Neighbours& around) {
  constexpr T border = Flood<T>::border;
  constexpr int32_t lookedAt = borders == Borders::eight ? 8 : 4;
  if (borders == Borders::none) return from;
  // The pixel that pushes is among them and does no harm: its label is `from`.
  if (from != border) {
    bool meets = false;
    for (int32_t n = 0; n < lookedAt; ++n) {
      const T other = label[around.offset[n]];
      meets |= (other != 0) & (other != border) & (other != from);
    }
    return meets ? border : from;
  }
  T found = border;
  for (int32_t n = 0; n < lookedAt; ++n) {
    const T other = label[around.offset[n]];
    if (other == 0 || other == border || other == found) continue;
    if (found != border) return border;
    found = other;
  }
  return found;
}

template <class T, int32_t count, Borders borders>
static void spread(Flood<T>& flood) {
  const Neighbours around = neighboursOf(flood.stride);
  T* const labels = flood.labels;
  for (int32_t level = 0; level < PixelQueue::levels; ++level) {
    while (flood.queue.first[level] != PixelQueue::none) {
      const ptrdiff_t pixel = pop(flood.queue, level);
      const T from = labels[pixel];
      for (int32_t n = 0; n < count; ++n) {
        const ptrdiff_t neighbour = pixel + around.offset[n];
        if (labels[neighbour] != 0) continue;
        const int32_t height = flood.relief[neighbour];
        push(flood.queue, height > level ? height : level, int32_t(neighbour));
        labels[neighbour] = labelFor<T, borders>(labels + neighbour, from, around);
      }
    }
  }
}

template <class T, int32_t count, Borders initial, Borders later>
static void run(Flood<T>& flood) {
  pushMarkers<T, count, initial>(flood);
  spread<T, count, later>(flood);
}

template <class T, int32_t count>
static void runWith(Flood<T>& flood, int32_t flag) {
  switch (flag & (qorSegmentBorder4 | qorSegmentBorder8)) {
    case 0: return run<T, count, Borders::none, Borders::none>(flood);
    case qorSegmentBorder4: return run<T, count, Borders::four, Borders::four>(flood);
    case qorSegmentBorder8: return run<T, count, Borders::eight, Borders::eight>(flood);
    // Odd: with both options the markers are tested among eight neighbours, the flood among four.
    default: return run<T, count, Borders::eight, Borders::four>(flood);
  }
}

template <class T>
static void ownSegmentWaterhedPQ(const uint8_t* src, int32_t srcStep, T* markers, int32_t markerStep, QoriSize roiSize,
                                 int32_t norm, int32_t flag, uint8_t* buffer) {
  Flood<T> flood;
  flood.stride = ptrdiff_t(roiSize.width) + 2;
  flood.roiSize = roiSize;
  const ptrdiff_t framed = flood.stride * (ptrdiff_t(roiSize.height) + 2);
  int32_t* link = alignUp<int32_t>(buffer, 4);
  flood.labels = reinterpret_cast<T*>(link + framed);
  uint8_t* relief = reinterpret_cast<uint8_t*>(flood.labels + framed);
  flood.relief = relief;
  clearQueue(flood.queue, link);
  copyInFrame(markers, markerStep, flood.labels, roiSize, Flood<T>::border);
  copyInFrame(src, srcStep, relief, roiSize, 0);
  if (norm == qorNormL1) {
    runWith<T, 4>(flood, flag);
  } else {
    runWith<T, 8>(flood, flag);
  }
  const T* inner = flood.labels + flood.stride + 1;
  copyRows(inner, int32_t(flood.stride * ptrdiff_t(sizeof(T))), markers, markerStep, roiSize);
}

void ownSegmentWaterhedPQ_8u_C1IR(const uint8_t* src, int32_t srcStep, uint8_t* markers, int32_t markerStep,
                                  QoriSize roiSize, int32_t norm, int32_t flag, uint8_t* buffer) {
  ownSegmentWaterhedPQ(src, srcStep, markers, markerStep, roiSize, norm, flag, buffer);
}

void ownSegmentWaterhedPQ_8u16u_C1IR(const uint8_t* src, int32_t srcStep, uint16_t* markers, int32_t markerStep,
                                     QoriSize roiSize, int32_t norm, int32_t flag, uint8_t* buffer) {
  ownSegmentWaterhedPQ(src, srcStep, markers, markerStep, roiSize, norm, flag, buffer);
}
