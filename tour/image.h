// An image in the tour's own memory, laid out as the library takes it: interleaved channels, a step in bytes.
//
// Odd: every image has two spare rows above and below. A fixed-kernel filter that asks for several threads and is given
// only one reads that far beyond the region; where the rows repeat the edge (extendEdges), that is the replicated
// border.
#ifndef QOR_TOUR_IMAGE_H
#define QOR_TOUR_IMAGE_H

#include <qorcvmx.h>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <vector>

namespace tour {

template <class T>
struct Image {
  static constexpr int32_t spareRows = 2;

  int32_t width = 0;
  int32_t height = 0;
  int32_t channels = 1;
  int32_t pitch = 0;  // elements from row to row, whole cache lines
  std::vector<T> store;

  Image() = default;
  Image(int32_t theWidth, int32_t theHeight, int32_t theChannels = 1)
      : width(theWidth), height(theHeight), channels(theChannels) {
    const int32_t line = 64 / static_cast<int32_t>(sizeof(T));
    pitch = (width * channels + line - 1) / line * line;
    store.resize(static_cast<size_t>(pitch) * static_cast<size_t>(height + 2 * spareRows));
  }

  bool empty() const { return store.empty(); }
  T* row(int32_t y) { return store.data() + static_cast<ptrdiff_t>(pitch) * (y + spareRows); }
  const T* row(int32_t y) const { return store.data() + static_cast<ptrdiff_t>(pitch) * (y + spareRows); }
  T* data() { return row(0); }
  const T* data() const { return row(0); }
  int32_t step() const { return pitch * static_cast<int32_t>(sizeof(T)); }
  int32_t rowLength() const { return width * channels; }
  QoriSize size() const { return {width, height}; }

  void extendEdges() {
    for (int32_t i = 1; i <= spareRows; ++i) {
      std::copy_n(row(0), pitch, row(-i));
      std::copy_n(row(height - 1), pitch, row(height - 1 + i));
    }
  }
};

using Image8u = Image<uint8_t>;
using Image16s = Image<int16_t>;
using Image32s = Image<int32_t>;
using Image32f = Image<float>;
using Image64f = Image<double>;

}  // namespace tour

#endif
