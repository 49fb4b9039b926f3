// The fixed-kernel border filters as their tests see them: one table of all 29 with their size queries, a literal
// model, and check(), which runs a filter on random images between unmapped pages and compares.
//
// The model: a row kernel over each row of the extended image, a column kernel over the results, an ending.
#pragma once

#include <gtest/gtest.h>
#include <string.h>

#include <algorithm>
#include <limits>
#include <optional>
#include <string>
#include <vector>

#include "support/borders.h"
#include "support/image.h"
#include "support/random.h"
#include "support/services.h"

namespace fixedfilters {

// ---- The table of the functions ----

enum class Types { t32f, t8u16s, t8u8s, t8u };

// Arguments of any of the functions; a function takes those that it has.
struct Call {
  const void* src;
  int32_t srcStep;
  void* dst;
  int32_t dstStep;
  QoriSize roiSize;
  QoriMaskSelector maskSize;
  QoriBorderType borderType;
  float borderValue;
  int32_t divisor;
  uint8_t* buffer;
};

struct Filter {
  const char* operation;
  Types types;
  bool hasMask;
  QorStatus (*run)(const Call&);
  QorStatus (*bufferSize)(QoriSize, QoriMaskSelector, int32_t*);

  bool is(const char* name) const { return !strcmp(operation, name); }
  bool hasDivisor() const { return types == Types::t8u8s; }
  std::vector<QoriMaskSelector> masks() const {
    return hasMask ? std::vector<QoriMaskSelector>{qorMaskSize3x3, qorMaskSize5x5}
                   : std::vector<QoriMaskSelector>{qorMaskSize3x3};
  }
  std::string name() const {
    static const char* const names[] = {"32f", "8u16s", "8u8s", "8u"};
    return std::string(operation) + "_" + names[int(types)];
  }
};

template <class S, class D>
QorStatus call(QorStatus (*f)(const S*, int32_t, D*, int32_t, QoriSize, QoriMaskSelector, QoriBorderType, S, uint8_t*),
               const Call& c) {
  return f(static_cast<const S*>(c.src), c.srcStep, static_cast<D*>(c.dst), c.dstStep, c.roiSize, c.maskSize,
           c.borderType, S(c.borderValue), c.buffer);
}
template <class S, class D>
QorStatus call(QorStatus (*f)(const S*, int32_t, D*, int32_t, QoriSize, QoriMaskSelector, QoriBorderType, S, int32_t,
                              uint8_t*),
               const Call& c) {
  return f(static_cast<const S*>(c.src), c.srcStep, static_cast<D*>(c.dst), c.dstStep, c.roiSize, c.maskSize,
           c.borderType, S(c.borderValue), c.divisor, c.buffer);
}
template <class S, class D>
QorStatus call(QorStatus (*f)(const S*, int32_t, D*, int32_t, QoriSize, QoriBorderType, S, uint8_t*), const Call& c) {
  return f(static_cast<const S*>(c.src), c.srcStep, static_cast<D*>(c.dst), c.dstStep, c.roiSize, c.borderType,
           S(c.borderValue), c.buffer);
}
template <class S, class D>
QorStatus call(QorStatus (*f)(const S*, int32_t, D*, int32_t, QoriSize, QoriBorderType, S, int32_t, uint8_t*),
               const Call& c) {
  return f(static_cast<const S*>(c.src), c.srcStep, static_cast<D*>(c.dst), c.dstStep, c.roiSize, c.borderType,
           S(c.borderValue), c.divisor, c.buffer);
}

inline QorStatus query(QorStatus (*f)(QoriSize, QoriMaskSelector, int32_t*), QoriSize size, QoriMaskSelector mask,
                       int32_t* bytes) {
  return f(size, mask, bytes);
}
inline QorStatus query(QorStatus (*f)(QoriSize, int32_t*), QoriSize size, QoriMaskSelector, int32_t* bytes) {
  return f(size, bytes);
}

inline const std::vector<Filter>& filters() {
#define FILTER(operation, types, hasMask)                                             \
  Filter {                                                                            \
#operation, Types::t##types, hasMask,                                               \
        [](const Call& c) { return call(qoriFilter##operation##Border_##types##_C1R, c); }, \
        [](QoriSize size, QoriMaskSelector mask, int32_t* bytes) {                      \
          return query(qoriFilter##operation##GetBufferSize_##types##_C1R, size, mask, bytes); \
        } \
  }
#define THREE_TYPES(operation, hasMask) \
  FILTER(operation, 32f, hasMask), FILTER(operation, 8u16s, hasMask), FILTER(operation, 8u8s, hasMask)
  static const std::vector<Filter> all = {
      THREE_TYPES(SobelHoriz, true),       THREE_TYPES(SobelVert, true),       THREE_TYPES(SobelNegVert, true),
      THREE_TYPES(SobelHorizSecond, true), THREE_TYPES(SobelVertSecond, true), THREE_TYPES(SobelCross, true),
      THREE_TYPES(ScharrHoriz, false),     THREE_TYPES(ScharrVert, false),     THREE_TYPES(Laplacian, true),
      FILTER(Lowpass, 32f, true),          FILTER(Lowpass, 8u, true)};
#undef THREE_TYPES
#undef FILTER
  return all;
}

inline const Filter& filter(const std::string& name) {
  for (const Filter& f : filters()) {
    if (f.name() == name) return f;
  }
  abort();
}

// Calls body(filter, mask) for each function and each of its masks.
template <class Body>
void forEachFilter(Body body) {
  for (const Filter& f : filters()) {
    for (QoriMaskSelector mask : f.masks()) body(f, mask);
  }
}

// Calls body(S(), D()) with values of the source and the result type.
template <class Body>
auto withTypes(Types types, Body body) {
  switch (types) {
    case Types::t32f: return body(float(), float());
    case Types::t8u16s: return body(uint8_t(), int16_t());
    case Types::t8u8s: return body(uint8_t(), int8_t());
    default: return body(uint8_t(), uint8_t());
  }
}

// ---- The model ----

enum class Kernel {
  dx3,
  dx5,
  dxNeg3,
  dxNeg5,
  dx2of3,
  dx2of5,
  sobel3,
  sobel5,
  sobelNeg3,
  sobelNeg5,
  scharr3,
  average3,
  average5,
  laplacian3,
  laplacian5
};

struct Stages {
  Kernel row, column;
};

inline Stages stagesOf(const Filter& f, QoriMaskSelector mask) {
  struct Entry {
    const char* operation;
    Stages of3x3, of5x5;
  };
  static const Entry entries[] = {
      {"SobelHoriz", {Kernel::sobel3, Kernel::dx3}, {Kernel::sobel5, Kernel::dx5}},
      {"SobelVert", {Kernel::dxNeg3, Kernel::sobel3}, {Kernel::dxNeg5, Kernel::sobel5}},
      {"SobelNegVert", {Kernel::dxNeg3, Kernel::sobelNeg3}, {Kernel::dxNeg5, Kernel::sobelNeg5}},
      {"SobelHorizSecond", {Kernel::sobel3, Kernel::dx2of3}, {Kernel::sobel5, Kernel::dx2of5}},
      {"SobelVertSecond", {Kernel::dx2of3, Kernel::sobel3}, {Kernel::dx2of5, Kernel::sobel5}},
      {"SobelCross", {Kernel::dxNeg3, Kernel::dx3}, {Kernel::dxNeg5, Kernel::dx5}},
      {"ScharrHoriz", {Kernel::scharr3, Kernel::dx3}, {}},
      {"ScharrVert", {Kernel::dx3, Kernel::scharr3}, {}},
      {"Lowpass", {Kernel::average3, Kernel::average3}, {Kernel::average5, Kernel::average5}},
      {"Laplacian", {Kernel::laplacian3, Kernel::laplacian3}, {}},  // 5x5: two passes, see model()
  };
  for (const Entry& entry : entries) {
    if (f.is(entry.operation)) return mask == qorMaskSize5x5 ? entry.of5x5 : entry.of3x3;
  }
  abort();
}

// p[i] is the pixel i - half columns to the right.
template <class T>
T rowResult(Kernel kernel, const T* p) {
  switch (kernel) {
    case Kernel::dx3: return p[2] - p[0];
    case Kernel::dxNeg3: return p[0] - p[2];
    case Kernel::dxNeg5: return p[0] - p[4] + 2 * (p[1] - p[3]);
    case Kernel::dx2of3: return p[0] - 2 * p[1] + p[2];
    case Kernel::dx2of5: return p[0] - 2 * p[2] + p[4];
    case Kernel::sobel3: return p[0] + 2 * p[1] + p[2];
    case Kernel::sobel5: return p[0] + 4 * (p[1] + p[3]) + 6 * p[2] + p[4];
    case Kernel::scharr3: return 3 * (p[0] + p[2]) + 10 * p[1];
    case Kernel::average3: return p[0] + p[1] + p[2];
    case Kernel::average5: return p[0] + p[1] + p[2] + p[3] + p[4];
    case Kernel::laplacian3: return p[0] + p[2];
    default: abort();
  }
}

// What a row kernel makes of a row of ones.
inline int32_t sumOfTaps(Kernel kernel) {
  switch (kernel) {
    case Kernel::sobel3: return 1 + 2 + 1;
    case Kernel::sobel5: return 1 + 4 + 6 + 4 + 1;
    case Kernel::scharr3: return 3 + 10 + 3;
    case Kernel::average3: return 3;
    case Kernel::average5: return 5;
    case Kernel::laplacian3: return 1 + 0 + 1;
    default: return 0;  // derivatives
  }
}

// t[i] is the row result i - half rows below. `centre` is the second row result of laplacian3; `stored` is what the
// destination holds, for laplacian5.
template <class T>
T columnResult(Kernel kernel, const T* t, T centre, T stored) {
  switch (kernel) {
    case Kernel::dx3: return t[2] - t[0];
    case Kernel::dx5: return t[4] - t[0] + 2 * (t[3] - t[1]);
    case Kernel::dx2of3: return t[0] - 2 * t[1] + t[2];
    case Kernel::dx2of5: return t[0] - 2 * t[2] + t[4];
    case Kernel::sobel3: return t[0] + 2 * t[1] + t[2];
    case Kernel::sobel5: return t[0] + 4 * (t[1] + t[3]) + 6 * t[2] + t[4];
    case Kernel::sobelNeg3: return -(t[0] + 2 * t[1] + t[2]);
    case Kernel::sobelNeg5: return -(t[0] + 4 * (t[1] + t[3]) + 6 * t[2] + t[4]);
    case Kernel::scharr3: return 3 * (t[0] + t[2]) + 10 * t[1];
    case Kernel::average3: return t[0] + t[1] + t[2];
    case Kernel::average5: return t[0] + t[1] + t[2] + t[3] + t[4];
    case Kernel::laplacian3: return 2 * (t[0] + t[2]) - centre;
    case Kernel::laplacian5: return stored + t[0] + 4 * (t[1] + t[3]) + 6 * t[2] + t[4];
    default: abort();
  }
}

// Which row of the memory stands at row y of the extended image; nothing for a row of the constant.
inline std::optional<int32_t> rowAt(int32_t y, int32_t height, QoriBorderType borderType) {
  const bool above = borderType & qorBorderRowsAbove, below = borderType & qorBorderRowsBelow;
  const QoriBorderType mode = borderType & 15;
  if (y >= 0 && y < height) return y;
  if (y < 0 ? above : below) return y;
  if (mode == qorBorderConst) return {};
  if (mode == qorBorderMirror || mode == qorBorderMirrorEdge) {
    if (height == 1) return 0;
    // Where the rows beyond the other edge are real, a reflection runs on into them.
    if (y < 0 && below) return mode == qorBorderMirror ? -y : -1 - y;
    if (y >= height && above) return mode == qorBorderMirror ? 2 * (height - 1) - y : 2 * height - 1 - y;
  }
  return borderIndex(y, height, mode);
}

// One pass of a row and a column kernel over source(x, y), in 32-bit integers or in floats.
template <class T, class Source>
std::vector<T> pass(Stages stages, int32_t taps, QoriSize size, QoriBorderType borderType, T borderValue,
                    const Source& source, const std::vector<T>& stored = {}) {
  const int32_t half = taps / 2, width = size.width, height = size.height;
  std::vector<int32_t> columns;
  for (int32_t x = -half; x < width + half; ++x) columns.push_back(borderIndex(x, width, borderType & 15));
  std::vector<std::vector<T>> rows, centres;
  for (int32_t y = -half; y < height + half; ++y) {
    std::vector<T> row(size_t(width), T(sumOfTaps(stages.row)) * borderValue), centre(size_t(width), T(0));
    if (const std::optional<int32_t> sourceRow = rowAt(y, height, borderType)) {
      for (int32_t x = 0; x < width; ++x) {
        T p[5];
        for (int32_t i = 0; i < taps; ++i) {
          const int32_t column = columns[size_t(x + i)];
          p[i] = column == constantPixel ? borderValue : T(source(column, *sourceRow));
        }
        row[size_t(x)] = rowResult(stages.row, p);
        centre[size_t(x)] = 8 * p[half];
      }
    }
    rows.push_back(row);
    centres.push_back(centre);
  }
  std::vector<T> result;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      T t[5];
      for (int32_t i = 0; i < taps; ++i) t[i] = rows[size_t(y + i)][size_t(x)];
      result.push_back(columnResult(stages.column, t, centres[size_t(y + half)][size_t(x)],
                                    stored.empty() ? T(0) : stored[result.size()]));
    }
  }
  return result;
}

template <class T, class Source>
std::vector<T> sums(const Filter& f, QoriMaskSelector mask, QoriSize size, QoriBorderType borderType, T borderValue,
                    const Source& source) {
  if (f.is("Laplacian") && mask == qorMaskSize5x5) {
    const std::vector<T> first = pass<T>({Kernel::sobel5, Kernel::dx2of5}, 5, size, borderType, borderValue, source);
    return pass<T>({Kernel::dx2of5, Kernel::laplacian5}, 5, size, borderType, borderValue, source, first);
  }
  return pass<T>(stagesOf(f, mask), mask == qorMaskSize5x5 ? 5 : 3, size, borderType, borderValue, source);
}

inline int8_t scaledTo8s(int32_t sum, int32_t divisor) {
  const float reciprocal = 1.0f / float(divisor);
  const float scaled = float(sum) * reciprocal;
  return int8_t(scaled < -128.0f ? -128.0f : scaled > 127.0f ? 127.0f : scaled);
}

// All results of a filter, row by row. source(x, y) is asked for rows outside the region only where they are real.
template <class D, class Source>
std::vector<D> model(const Filter& f, QoriMaskSelector mask, QoriSize size, QoriBorderType borderType,
                     float borderValue, int32_t divisor, const Source& source) {
  std::vector<D> results;
  if constexpr (std::is_same_v<D, float>) {
    for (float sum : sums<float>(f, mask, size, borderType, borderValue, source)) {
      if (f.is("Lowpass")) sum = sum * (mask == qorMaskSize5x5 ? 0.04f : 0.11111111f);
      results.push_back(sum);
    }
  } else {
    for (int32_t sum : sums<int32_t>(f, mask, size, borderType, int32_t(borderValue), source)) {
      if constexpr (std::is_same_v<D, int8_t>) {
        results.push_back(scaledTo8s(sum, divisor));
      } else if constexpr (std::is_same_v<D, int16_t>) {
        results.push_back(int16_t(uint16_t(sum)));
      } else {
        const int32_t average = mask == qorMaskSize5x5 ? (sum * 2621) >> 16 : (sum * 7280 + 36400) >> 16;
        results.push_back(uint8_t(std::clamp(average, 0, 255)));
      }
    }
  }
  return results;
}

// ---- Running a filter against the model ----

// Scratch of exactly `size` bytes, `distance` bytes away from an unmapped page. The bytes around it must not change.
class Scratch {
 public:
  Scratch(int32_t size, Edge edge = Edge::end, size_t distance = 0)
      : size_(size_t(size)),
        before_(edge == Edge::begin ? distance : beyond),
        after_(edge == Edge::begin ? beyond : distance),
        memory_(before_ + size_ + after_, edge) {
    memset(memory_.data(), pattern, memory_.size());
  }
  uint8_t* data() const { return memory_.data() + before_; }
  bool surroundingsIntact() const { return !written(memory_.data(), before_) && !written(data() + size_, after_); }
  // Whether anything was written into a part.
  bool written(size_t offset, size_t length) const { return written(data() + offset, length); }

 private:
  static constexpr uint8_t pattern = 0xc3;
  static constexpr size_t beyond = 256;  // watched on the side without the page
  static bool written(const uint8_t* p, size_t length) {
    return std::any_of(p, p + length, [](uint8_t byte) { return byte != pattern; });
  }

  size_t size_, before_, after_;
  GuardedMemory memory_;
};

struct Case {
  QoriSize size = {1, 1};
  QoriMaskSelector mask = qorMaskSize3x3;
  QoriBorderType borderType = qorBorderConst;
  int32_t divisor = 1;
  std::optional<float> borderValue = {};         // by default a random one
  std::optional<QoriBorderType> treatedAs = {};  // the border type of the expected result, where it differs
  std::optional<QoriBorderType> unlike = {};     // a border type that must give another result
  bool surrounded = false;                       // real rows on both sides, whatever the flags
  bool anyFloats = false;                        // special values too
};

template <class T>
T anyPixel(Random& random, bool anyFloats) {
  if constexpr (std::is_same_v<T, float>) {
    return anyFloats ? random.anyFloat() : random.value<float>();
  } else {
    return random.value<T>();
  }
}

// Large images repeat a stretch of random pixels, to save time.
template <class T>
void fillAny(Image<T>& image, Random& random, bool anyFloats) {
  std::vector<T> stretch(10007);
  stretch.resize(std::min(stretch.size(), size_t(image.width()) * size_t(image.height())));
  for (T& pixel : stretch) pixel = anyPixel<T>(random, anyFloats);
  size_t next = 0;
  image.fill([&] { return stretch[next++ % stretch.size()]; });
}

// Runs a filter on a random image. Real rows are there only where a flag promises them, half a kernel of them, and the
// image ends at unmapped pages; so do the destination and the scratch, which has exactly the reported size. Empty if
// the result is that of the model, and nothing else was written.
inline std::string check(const Filter& f, const Case& given, Random& random) {
  return withTypes(f.types, [&](auto s, auto d) -> std::string {
    using S = decltype(s);
    using D = decltype(d);
    const QoriBorderType treatedAs = given.treatedAs.value_or(given.borderType);
    const int32_t half = given.mask == qorMaskSize5x5 ? 2 : 1;
    const int32_t above = given.surrounded || treatedAs & qorBorderRowsAbove ? half : 0;
    const int32_t below = given.surrounded || treatedAs & qorBorderRowsBelow ? half : 0;
    const auto anyEdge = [&] { return random.chance(0.5) ? Edge::begin : Edge::end; };
    const auto anyShift = [&] { return random.chance(0.5) ? size_t(random.number(1, 5)) : 0; };
    Image<S> src(given.size.width, above + given.size.height + below, 1, int32_t(random.number(0, 3)), anyEdge(),
                 anyShift());
    Image<D> dst(given.size.width, given.size.height, 1, int32_t(random.number(0, 3)), anyEdge(), anyShift());
    fillAny(src, random, given.anyFloats);
    const float borderValue = given.borderValue.value_or(float(anyPixel<S>(random, given.anyFloats)));

    std::string what = f.name() + ", mask " + std::to_string(given.mask) + ", " + std::to_string(given.size.width) +
                       "x" + std::to_string(given.size.height) + ", border " + std::to_string(given.borderType) +
                       " of " + std::to_string(borderValue) + ", divisor " + std::to_string(given.divisor) + ": ";
    int32_t bytes = 0;
    if (f.bufferSize(given.size, given.mask, &bytes) != qorStatusOk) return what + "no buffer size";
    const Scratch scratch(bytes, anyEdge(), random.chance(0.3) ? 0 : size_t(random.number(1, 63)));
    const std::vector<uint8_t> before = src.bytes(), blank = dst.bytes();
    const int64_t allocations = services::allocations();
    const uint8_t* region = reinterpret_cast<const uint8_t*>(src.data()) + ptrdiff_t(above) * src.step();
    const QorStatus status = f.run({region, src.step(), dst.data(), dst.step(), given.size, given.mask,
                                    given.borderType, borderValue, given.divisor, scratch.data()});
    if (status != qorStatusOk) return what + "status " + std::to_string(status);
    if (services::allocations() != allocations) return what + "allocates";
    if (src.bytes() != before) return what + "wrote into the source";
    if (!scratch.surroundingsIntact()) return what + "wrote outside the buffer";
    const auto source = [&](int32_t x, int32_t y) { return src.get(x, y + above); };
    const auto expected = [&](QoriBorderType type) {
      return model<D>(f, given.mask, given.size, type, borderValue, given.divisor, source);
    };
    const std::vector<D> right = expected(treatedAs);
    if (given.unlike && right == expected(*given.unlike)) return what + "this image tells nothing";
    const std::string wrong = difference(
        dst, [&](int32_t x, int32_t y, int32_t) { return right[size_t(y) * size_t(given.size.width) + size_t(x)]; });
    if (!wrong.empty()) return what + wrong;
    if (blank.size() < 50000 && !dst.gapsIntact()) return what + "wrote outside the region";  // slow for large ones
    dst.fill([] { return D(0); });
    if (dst.bytes() != blank) return what + "wrote into the gaps";
    return "";
  });
}

class FixedFilters : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::allocations(), 0);
    services::reset();
  }
};

}  // namespace fixedfilters
