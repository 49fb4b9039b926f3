// Images whose region ends at an unmapped page, with gaps between the rows that nobody may write.
#pragma once

#include <string.h>

#include <algorithm>
#include <string>
#include <vector>

#include "qorcvmx.h"
#include "support/memory.h"

// An image of `width` x `height` pixels of `channels` elements. Its rows are `gap` elements further apart than they are
// long; the gap bytes hold a pattern. The last element of the last row (or the first of the first row) lies directly at
// an unmapped page, so reads and writes beyond the region end the test. With an odd `shift` (bytes) the image starts at
// an address that is odd for its element type; the distance to the page is then `shift` bytes.
template <class T>
class Image {
 public:
  Image(int32_t width, int32_t height, int32_t channels = 1, int32_t gap = 0, Edge edge = Edge::end, size_t shift = 0)
      : width_(width),
        height_(height),
        channels_(channels),
        step_(int32_t((size_t(width) * channels + gap) * sizeof(T))),
        memory_(size_t(step_) * (height - 1) + size_t(width) * channels * sizeof(T) + shift, edge),
        data_(memory_.data() + (edge == Edge::begin ? shift : 0)) {
    memset(memory_.data(), gapPattern, memory_.size());
    std::vector<T> zeros(size_t(width) * channels, T(0));
    for (int32_t y = 0; y < height; ++y) memcpy(rowBytes(y), zeros.data(), zeros.size() * sizeof(T));
  }

  T* data() const { return reinterpret_cast<T*>(data_); }
  int32_t step() const { return step_; }
  int32_t width() const { return width_; }
  int32_t height() const { return height_; }
  int32_t channels() const { return channels_; }
  QoriSize size() const { return {width_, height_}; }

  T get(int32_t x, int32_t y, int32_t c = 0) const {
    T value;
    memcpy(&value, elementBytes(x, y, c), sizeof(T));
    return value;
  }
  void set(int32_t x, int32_t y, T value) { set(x, y, 0, value); }
  void set(int32_t x, int32_t y, int32_t c, T value) { memcpy(elementBytes(x, y, c), &value, sizeof(T)); }

  // Calls value() for each element, row by row.
  template <class Value>
  void fill(Value value) {
    for (int32_t y = 0; y < height_; ++y) {
      for (int32_t x = 0; x < width_; ++x) {
        for (int32_t c = 0; c < channels_; ++c) set(x, y, c, value());
      }
    }
  }

  // Nothing outside the region has been written.
  bool gapsIntact() const {
    if (!memory_.patternIntact()) return false;
    const auto isGap = [](const uint8_t* first, const uint8_t* last) {
      return std::all_of(first, last, [](uint8_t byte) { return byte == gapPattern; });
    };
    const size_t rowSize = size_t(width_) * channels_ * sizeof(T);
    const uint8_t* gap = memory_.data();
    for (int32_t y = 0; y < height_; ++y) {
      if (!isGap(gap, rowBytes(y))) return false;
      gap = rowBytes(y) + rowSize;
    }
    return isGap(gap, memory_.data() + memory_.size());
  }

  // All bytes, gaps included: to see that a failing call wrote nothing.
  std::vector<uint8_t> bytes() const { return {memory_.data(), memory_.data() + memory_.size()}; }

 private:
  static constexpr uint8_t gapPattern = 0x5a;
  uint8_t* rowBytes(int32_t y) const { return data_ + ptrdiff_t(y) * step_; }
  uint8_t* elementBytes(int32_t x, int32_t y, int32_t c) const {
    return rowBytes(y) + (size_t(x) * channels_ + c) * sizeof(T);
  }

  int32_t width_, height_, channels_, step_;
  GuardedMemory memory_;
  uint8_t* data_;
};

// Same bits, where any NaN is as good as any other.
inline bool sameValue(float a, float b) { return (a != a && b != b) || memcmp(&a, &b, sizeof a) == 0; }
inline bool sameValue(double a, double b) { return (a != a && b != b) || memcmp(&a, &b, sizeof a) == 0; }
template <class T>
bool sameValue(T a, T b) {
  return a == b;
}

// First difference between an image and model(x, y, c), as text; empty if there is none.
template <class T, class Model>
std::string difference(const Image<T>& image, Model model) {
  for (int32_t y = 0; y < image.height(); ++y) {
    for (int32_t x = 0; x < image.width(); ++x) {
      for (int32_t c = 0; c < image.channels(); ++c) {
        const T is = image.get(x, y, c);
        const T should = model(x, y, c);
        if (!sameValue(is, should)) {
          return "at column " + std::to_string(x) + ", row " + std::to_string(y) + ", channel " + std::to_string(c) +
                 " of " + std::to_string(image.width()) + "x" + std::to_string(image.height()) + ": " +
                 std::to_string(is) + " instead of " + std::to_string(should);
        }
      }
    }
  }
  return "";
}
