// What the tests of structuring elements, of dilation and erosion, and of the compound operations share.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "support/image.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

// ---- Elements

struct Element {
  int32_t width, height;
  std::vector<uint8_t> taps;
  QoriPoint anchor;

  Element(int32_t width_, int32_t height_, QoriPoint anchor_)
      : width(width_), height(height_), taps(size_t(width_) * height_), anchor(anchor_) {}
  // From rows of text, where '.' is a tap that is not set.
  Element(const std::vector<std::string>& rows, QoriPoint anchor_)
      : Element(int32_t(rows[0].size()), int32_t(rows.size()), anchor_) {
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) at(x, y) = rows[size_t(y)][size_t(x)] == '.' ? 0 : 1;
    }
  }
  uint8_t& at(int32_t x, int32_t y) { return taps[size_t(y) * width + x]; }
  uint8_t at(int32_t x, int32_t y) const { return taps[size_t(y) * width + x]; }
  QoriSize size() const { return {width, height}; }
  QoriPoint centre() const { return {width / 2, height / 2}; }

  Element turned() const {
    Element e(width, height, {width - anchor.x - 1, height - anchor.y - 1});
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) e.at(width - 1 - x, height - 1 - y) = at(x, y);
    }
    return e;
  }
  std::string text() const {
    std::string t = "anchor " + std::to_string(anchor.x) + "," + std::to_string(anchor.y) + "\n";
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) t += at(x, y) ? '#' : '.';
      t += '\n';
    }
    return t;
  }
};

// Elements of all kinds, with any anchor or the centre.
inline Element anyElement(Random& random, int32_t most = 9) {
  const int32_t width = int32_t(random.number(1, most)), height = int32_t(random.number(1, most));
  Element e(width, height, {int32_t(random.number(0, width - 1)), int32_t(random.number(0, height - 1))});
  if (random.chance(0.3)) e.anchor = e.centre();
  const auto set = [&] { return uint8_t(random.number(1, 255)); };
  const int64_t form = random.number(0, 9);
  if (form == 0) {  // empty
  } else if (form <= 3) {
    const int32_t left = int32_t(random.number(0, width - 1)), top = int32_t(random.number(0, height - 1));
    const int32_t right = int32_t(random.number(left, width - 1)), bottom = int32_t(random.number(top, height - 1));
    for (int32_t y = top; y <= bottom; ++y) {
      for (int32_t x = left; x <= right; ++x) e.at(x, y) = set();
    }
    if (random.chance(0.1)) e.at(int32_t(random.number(left, right)), int32_t(random.number(top, bottom))) = 0;
  } else if (form <= 6) {
    // Rows of one run with the anchor's column, the same for the same length; some rows are left out.
    std::map<int32_t, int32_t> firstOf;
    for (int32_t y = 0; y < height; ++y) {
      if (random.chance(0.2) && y != e.anchor.y) continue;
      const int32_t length = int32_t(random.number(1, width));
      const int32_t least = std::max(0, e.anchor.x - length + 1), last = std::min(e.anchor.x, width - length);
      const int32_t first = firstOf.emplace(length, int32_t(random.number(least, last))).first->second;
      for (int32_t x = 0; x < length; ++x) e.at(first + x, y) = set();
    }
    // One that equal lengths move apart, or that gets a second run.
    if (random.chance(0.1)) e.at(int32_t(random.number(0, width - 1)), int32_t(random.number(0, height - 1))) = set();
  } else {
    const double share = random.chance(0.3) ? 0.1 : 0.5;
    for (uint8_t& tap : e.taps) tap = random.chance(share) ? set() : 0;
  }
  return e;
}

// ---- The analysis, rule by rule

constexpr int32_t general = 0, rectangle = 1, ellipse = 2, empty = 3;

struct Analysis {
  int32_t kind = general;
  int32_t left = 0, top = 0, width = 1, height = 1;  // bounding box of the set taps
  std::vector<int32_t> rowIndex;                     // rows with taps, counted from `top`
  std::vector<int32_t> rowLength;
  std::map<int32_t, int32_t, std::greater<int32_t>> anchorOfLength;
};

inline Analysis analysed(const Element& e, QoriPoint anchor, bool noEllipse = false) {
  Analysis a;
  struct Row {
    int32_t r, z, end;
  };
  std::vector<Row> rows;
  for (int32_t r = 0; r < e.height; ++r) {
    std::vector<int32_t> columns;
    for (int32_t x = 0; x < e.width; ++x) {
      if (e.at(x, r)) columns.push_back(x);
    }
    if (columns.empty()) continue;
    if (columns.back() - columns.front() + 1 != int32_t(columns.size())) return a;
    rows.push_back({r, columns.front(), columns.back() + 1});
  }
  if (rows.empty()) {
    a.kind = empty;
    return a;
  }
  bool outside = noEllipse || anchor.y < rows.front().r || anchor.y > rows.back().r, same = true;
  int32_t left = e.width, right = 0;
  for (const Row& row : rows) {
    outside = outside || anchor.x < row.z || anchor.x >= row.end;
    same = same && row.z == rows[0].z && row.end == rows[0].end;
    left = std::min(left, row.z);
    right = std::max(right, row.end);
  }
  a.left = left;
  a.top = rows[0].r;
  a.width = right - left;
  a.height = rows.back().r - rows[0].r + 1;
  if (same && a.height == int32_t(rows.size())) {
    a.kind = rectangle;
    return a;
  }
  if (outside) return a;
  for (const Row& row : rows) {
    const auto known = a.anchorOfLength.emplace(row.end - row.z, anchor.x - row.z).first;
    if (known->second != anchor.x - row.z) return a;
    a.rowIndex.push_back(row.r - a.top);
    a.rowLength.push_back(row.end - row.z);
  }
  a.kind = ellipse;
  return a;
}

inline int32_t stateSizeOf(const Element& e, const Analysis& a, int32_t roiWidth, int32_t channels,
                           int32_t elementSize) {
  const int32_t A = (e.width * e.height + 15) & ~15, row = roiWidth * channels * elementSize;
  if (a.kind == empty) return A + 96;
  if (a.kind == rectangle) return A + 128 + 2 * a.height * (row + 32) + 4 * a.height * 8 + 32;
  if (a.kind == ellipse) {
    const int32_t runCount = int32_t(a.anchorOfLength.size()), rowCount = int32_t(a.rowIndex.size());
    return A + 160 + 8 * (rowCount + runCount) + (a.height * runCount + 1) * (row + 32) + 40 * a.height + 40;
  }
  const int32_t padded = ((roiWidth + e.width) * channels * elementSize + 15) & ~15;
  return A + 112 + std::max(elementSize * channels * e.height, 2 * e.height * padded);
}

// ---- Functions by element type and channels

template <class T, int32_t channels_>
struct Form;
#define MORPH_FORM(T_, form, channels_)                                \
  template <>                                                          \
  struct Form<T_, channels_> {                                         \
    using T = T_;                                                      \
    static constexpr int32_t channels = channels_;                     \
    static constexpr auto getSize = qoriMorphologyGetSize_##form;      \
    static constexpr auto init = qoriMorphologyInit_##form;            \
    static constexpr auto initAlloc = qoriMorphologyInitAlloc_##form;  \
    static constexpr auto dilate = qoriDilateBorderReplicate_##form;   \
    static constexpr auto erode = qoriErodeBorderReplicate_##form;     \
    static constexpr auto advGetSize = qoriMorphAdvGetSize_##form;     \
    static constexpr auto advInit = qoriMorphAdvInit_##form;           \
    static constexpr auto advInitAlloc = qoriMorphAdvInitAlloc_##form; \
    static constexpr auto open = qoriMorphOpenBorder_##form;           \
    static constexpr auto close = qoriMorphCloseBorder_##form;         \
    static constexpr auto gradient = qoriMorphGradientBorder_##form;   \
    static constexpr auto tophat = qoriMorphTophatBorder_##form;       \
    static constexpr auto blackhat = qoriMorphBlackhatBorder_##form;   \
  };
MORPH_FORM(uint8_t, 8u_C1R, 1)
MORPH_FORM(uint8_t, 8u_C3R, 3)
MORPH_FORM(uint8_t, 8u_C4R, 4)
MORPH_FORM(float, 32f_C1R, 1)
MORPH_FORM(float, 32f_C3R, 3)
MORPH_FORM(float, 32f_C4R, 4)
#undef MORPH_FORM

// Calls test(Form) for all six forms.
template <class Test>
void forAllForms(Test test) {
  test(Form<uint8_t, 1>{});
  test(Form<uint8_t, 3>{});
  test(Form<uint8_t, 4>{});
  test(Form<float, 1>{});
  test(Form<float, 3>{});
  test(Form<float, 4>{});
}

// ---- Memory

// A block of exactly `size` bytes which ends at an unmapped page, or a few bytes before it so that it may begin at any
// address. Those bytes, and the pages before the block, must not change.
class Block {
 public:
  Block(size_t size, Random& random)
      : size_(size), tail_(random.chance(0.5) ? size_t(random.number(1, 40)) : 0), memory_(size + tail_) {
    memset(memory_.data(), 0x77, memory_.size());
  }
  uint8_t* data() const { return memory_.data(); }
  bool intact() const {
    for (size_t i = 0; i < tail_; ++i) {
      if (memory_.data()[size_ + i] != 0x77) return false;
    }
    return memory_.patternIntact();
  }

 private:
  size_t size_, tail_;
  GuardedMemory memory_;
};

// The record at any address.
template <class Record>
Record recordAt(const void* address) {
  Record r;
  memcpy(&r, address, sizeof r);
  return r;
}

// ---- Images

template <class T>
Image<T> anyImage(Random& random, QoriSize size, int32_t channels) {
  return Image<T>(size.width, size.height, channels, int32_t(random.number(0, 3)),
                  random.chance(0.5) ? Edge::begin : Edge::end, random.chance(0.4) ? size_t(random.number(1, 7)) : 0);
}

inline QoriSize anySize(Random& random) {
  if (random.chance(0.2)) return {int32_t(random.number(1, 300)), int32_t(random.number(1, 4))};
  return {random.width(40), int32_t(random.number(1, 20))};
}

// The extreme under the set taps, most literally; the image itself if there are none.
template <class T>
struct Plane {
  int32_t width, height, channels;
  std::vector<T> values;

  Plane(QoriSize size, int32_t channels_)
      : width(size.width), height(size.height), channels(channels_), values(size_t(width) * height * channels_) {}
  explicit Plane(const Image<T>& image) : Plane(image.size(), image.channels()) {
    each([&](int32_t x, int32_t y, int32_t c) { at(x, y, c) = image.get(x, y, c); });
  }
  T& at(int32_t x, int32_t y, int32_t c) { return values[(size_t(y) * width + x) * channels + c]; }
  const T& at(int32_t x, int32_t y, int32_t c) const { return values[(size_t(y) * width + x) * channels + c]; }
  template <class Action>
  void each(Action action) const {
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        for (int32_t c = 0; c < channels; ++c) action(x, y, c);
      }
    }
  }
};

template <class T>
Plane<T> extremeModel(const Plane<T>& src, const Element& e, bool largest) {
  Plane<T> dst = src;
  src.each([&](int32_t x, int32_t y, int32_t c) {
    std::optional<T> extreme;
    for (int32_t ty = 0; ty < e.height; ++ty) {
      for (int32_t tx = 0; tx < e.width; ++tx) {
        if (!e.at(tx, ty)) continue;
        const int32_t sx = std::clamp(x + tx - e.anchor.x, 0, src.width - 1);
        const int32_t sy = std::clamp(y + ty - e.anchor.y, 0, src.height - 1);
        const T value = src.at(sx, sy, c);
        if (!extreme || (largest ? value > *extreme : value < *extreme)) extreme = value;
      }
    }
    if (extreme) dst.at(x, y, c) = *extreme;
  });
  return dst;
}

// First difference, as text; floats count as equal by ==.
template <class T>
std::string wrongImage(const Image<T>& image, const Plane<T>& model) {
  if (!image.gapsIntact()) return "wrote outside the region";
  std::string wrong;
  model.each([&](int32_t x, int32_t y, int32_t c) {
    if (!wrong.empty() || image.get(x, y, c) == model.at(x, y, c)) return;
    wrong = "at column " + std::to_string(x) + ", row " + std::to_string(y) + ", channel " + std::to_string(c) +
            " of " + std::to_string(model.width) + "x" + std::to_string(model.height) + ": " +
            std::to_string(image.get(x, y, c)) + " instead of " + std::to_string(model.at(x, y, c));
  });
  return wrong;
}
