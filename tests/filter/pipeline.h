// What the tests of the row and the column stages share: how a sum is formed and ends, said most literally; kernels and
// pixels at which arithmetic goes wrong; rows anywhere in memory; and scratch of exactly the reported size.
#pragma once

#include <gtest/gtest.h>
#include <stdint.h>
#include <stdlib.h>
#include <string.h>

#include <array>
#include <functional>
#include <limits>
#include <memory>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include "qorcvmx.h"
#include "support/memory.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

// The tests are compiled once a form; what they share is kept out of line, or compiling takes minutes.
#define QOR_OUT_OF_LINE __attribute__((noinline))

namespace pipeline {

enum class Sum {
  real,    // each pixel and each tap converted to float, summed in tap order, every operation rounded
  integer  // in 32 bits that wrap
};

enum class Ending {
  none,     // the float sum itself
  clamp,    // times the reciprocal in float, clamped to the result's range, truncated toward zero
  lowReal,  // times the reciprocal in float, truncated toward zero, low 16 bits
  lowQ14    // times the factor with 14 fractional bits in 32 bits that wrap, shifted right by 14, low 16 bits
};

struct Arithmetic {
  Sum sum;
  Ending ending;
};

// When a stage goes parallel, beside its size.
enum class Gate {
  open,       // always
  overThree,  // more than 3 taps
  separable,  // neither 3 nor 5 taps, or more than one core on the die
  never
};

inline bool gateOpen(Gate gate, int32_t kernelSize, int32_t cores) {
  switch (gate) {
    case Gate::open: return true;
    case Gate::overThree: return kernelSize > 3;
    case Gate::separable: return (kernelSize != 3 && kernelSize != 5) || cores > 1;
    default: return false;
  }
}

inline int32_t wrapped(int64_t value) { return int32_t(uint32_t(uint64_t(value))); }
inline int16_t low16(int32_t value) { return int16_t(uint16_t(uint32_t(value))); }

// As the processor converts: what does not fit becomes 0x80000000.
inline int32_t truncated(float value) {
  return value >= -2147483648.0f && value < 2147483648.0f ? int32_t(value) : INT32_MIN;
}

// One result: taps[i] times pixel(i), summed and ended.
template <class Result, class Tap, class Pixel>
Result modelResult(Arithmetic arithmetic, const std::vector<Tap>& taps, int32_t divisor, Pixel pixel) {
  float realSum = 0;
  int32_t integerSum = 0;
  if (arithmetic.sum == Sum::real) {
    realSum = float(pixel(0)) * float(taps[0]);
    for (size_t i = 1; i < taps.size(); ++i) {
      const float product = float(pixel(int32_t(i))) * float(taps[i]);
      realSum = realSum + product;
    }
  } else if constexpr (std::is_integral_v<Tap>) {
    int64_t sum = 0;
    for (size_t i = 0; i < taps.size(); ++i) sum += int64_t(pixel(int32_t(i))) * taps[i];
    integerSum = wrapped(sum);
    realSum = float(integerSum);
  }
  if constexpr (std::is_floating_point_v<Result>) {
    return realSum;
  } else {
    const float reciprocal = 1.0f / float(divisor);
    const float scaled = realSum * reciprocal;
    if (arithmetic.ending == Ending::lowReal) return Result(low16(truncated(scaled)));
    if (arithmetic.ending == Ending::lowQ14) {
      const int16_t factor = int16_t(16384.0f / float(divisor));
      return Result(low16(wrapped(int64_t(integerSum) * factor) >> 14));
    }
    const float lowest = float(std::numeric_limits<Result>::lowest());
    const float highest = float(std::numeric_limits<Result>::max());
    return Result(scaled < lowest ? lowest : scaled > highest ? highest : scaled);
  }
}

// Results computed by hand, of a sum that is one pixel times one tap.
struct EndingCase {
  int16_t pixel, tap;
  int32_t divisor;
  int16_t clamped16;
  int8_t clamped8s;
  uint8_t clamped8u;
  int16_t lowReal, lowQ14;
};

inline std::vector<EndingCase> endingCases() {
  return {
      {7, 1, 1, 7, 7, 7, 7, 7},
      {7, 1, 2, 3, 3, 3, 3, 3},
      {7, -1, 2, -3, -3, 0, -3, -4},  // a shift goes down, a conversion toward zero
      {7, 1, -2, -3, -3, 0, -3, -4},
      {7, -1, -2, 3, 3, 3, 3, 3},
      {1, 1, 2, 0, 0, 0, 0, 0},
      {1, -1, 2, 0, 0, 0, 0, -1},
      {100, 1, 7, 14, 14, 14, 14, 14},
      {100, -1, 7, -14, -14, 0, -14, -15},
      {100, 1000, 1, 32767, 127, 255, -31072, -31072},
      {100, -1000, 1, -32768, -128, 0, 31072, 31072},
      {100, 1000, -1, -32768, -128, 0, 31072, 31072},
      {200, 3000, 3, 32767, 127, 255, 3392, 3379},  // 600000 * 5461 wraps to -1018367296
      {3, 1, 3, 1, 1, 1, 1, 0},                     // 3 * 5461 is one short of 16384
      {41, 1, 41, 0, 0, 0, 0, 0},                   // 41 * (1.0f / 41.0f) is 0.99999994f: no true division
      {128, 256, 1, 32767, 127, 255, -32768, -32768},
      {255, 257, 2, 32767, 127, 255, 32767, 32767},
      {128, 512, 2, 32767, 127, 255, -32768, -32768},
      {127, 1, 1, 127, 127, 127, 127, 127},
      {128, 1, 1, 128, 127, 128, 128, 128},
      {128, -1, 1, -128, -128, 0, -128, -128},
      {129, -1, 1, -129, -128, 0, -129, -129},
      {255, 1, 1, 255, 127, 255, 255, 255},
      {128, 2, 1, 256, 127, 255, 256, 256},
      {7, 1, INT32_MIN, 0, 0, 0, 0, 0},  // the factor is 0
      {7, 1, INT32_MAX, 0, 0, 0, 0, 0},
      {100, 1000, 16384, 6, 6, 6, 6, 6},  // the factor is 1
      {100, -1000, 16384, -6, -6, 0, -6, -7},
      {100, 1000, 16385, 6, 6, 6, 6, 0},  // the factor is 0
  };
}

inline const std::vector<int32_t>& divisors() {
  static const std::vector<int32_t> list = {1,  -1,  2,     3,     7,     9,         16,       -5,
                                            41, 255, 16384, 16385, 65536, INT32_MAX, INT32_MIN};
  return list;
}

// A way to draw numbers: any, the lowest, the highest, one of both, or small ones.
enum class Kind { any, lowest, highest, extreme, small };
inline Kind anyKind(Random& random) {
  return random.pick(std::array<Kind, 8>{Kind::any, Kind::any, Kind::any, Kind::lowest, Kind::highest, Kind::extreme,
                                         Kind::small, Kind::small});
}

template <class T>
QOR_OUT_OF_LINE T number(Random& random, Kind kind) {
  if constexpr (std::is_floating_point_v<T>) {
    // Infinities and NaNs hide what is summed with them, so most images have none.
    if (kind == Kind::extreme) return random.anyFloat();
    if (kind == Kind::small) return T(random.number(-3, 3)) * -0.5f;
    return random.value<T>();
  } else {
    if (kind == Kind::lowest) return std::numeric_limits<T>::lowest();
    if (kind == Kind::highest) return std::numeric_limits<T>::max();
    if (kind == Kind::extreme) {
      return random.chance(0.5) ? std::numeric_limits<T>::lowest() : std::numeric_limits<T>::max();
    }
    if (kind == Kind::small) return T(random.number(std::is_signed_v<T> ? -20 : 0, 20));
    return random.value<T>();
  }
}

template <class Tap>
QOR_OUT_OF_LINE std::vector<Tap> kernelOf(Random& random, int32_t size) {
  const Kind kind = anyKind(random);
  std::vector<Tap> taps;
  for (int32_t i = 0; i < size; ++i) taps.push_back(number<Tap>(random, kind));
  if (random.chance(0.4)) {
    for (int32_t i = 0; i < size / 2; ++i) taps[size - 1 - i] = taps[i];
  }
  return taps;
}

// Numbers for large images: cheap, all different enough, without anything special.
template <class T>
auto quickNumbers(uint32_t seed) {
  return [state = seed]() mutable {
    state = state * 1664525u + 1013904223u;
    const int16_t value = int16_t(uint16_t(state >> 16));
    if constexpr (std::is_floating_point_v<T>) {
      return T(value) * 0.37f;
    } else {
      return T(value);
    }
  };
}

// Thread settings for parallel runs, each with a region that reaches the gate.
struct ParallelSetting {
  int32_t maxThreads, teamSize, cores;
  QoriSize size;
};
inline std::vector<ParallelSetting> parallelSettings() {
  return {
      {1, 1, 1, {256, 128}},  {2, 2, 2, {512, 128}},  {2, 2, 1, {512, 128}}, {2, 40, 1, {257, 257}},
      {3, 3, 2, {300, 329}},  {3, 2, 1, {512, 192}},  {3, 1, 1, {98304, 1}}, {3, 3, 1, {98304, 1}},
      {4, 40, 2, {43691, 3}}, {2, 2, 1, {1, 65536}},  {2, 2, 2, {3, 21846}}, {1, 40, 1, {32768, 1}},
      {2, 0, 1, {512, 128}},  {2, -1, 2, {512, 128}},
  };
}
inline std::string text(const ParallelSetting& setting) {
  return std::to_string(setting.maxThreads) + " threads, team " + std::to_string(setting.teamSize) + ", cores " +
         std::to_string(setting.cores);
}

// A region right at the gate of `threads` threads, and the taps of its test: wide, square or tall.
struct WorkAtGate {
  int32_t threads;
  QoriSize size;
  int32_t kernelSize;
};
inline std::vector<WorkAtGate> worksAtGate() {
  return {
      {1, {32, 1024}, 5}, {2, {32768, 2}, 4}, {3, {256, 384}, 6},  {4, {32, 4096}, 9},   {5, {32768, 5}, 4},
      {6, {256, 768}, 5}, {7, {32, 7168}, 9}, {8, {32768, 8}, 31}, {40, {512, 2560}, 4},
  };
}

// A constant array whose last element lies directly at an unmapped page.
template <class T>
class Exact {
 public:
  QOR_OUT_OF_LINE explicit Exact(const std::vector<T>& values)
      : memory_(values.size() * sizeof(T) > blockSize ? nullptr : take()) {
    const size_t bytes = values.size() * sizeof(T);
    if (!memory_) memory_ = std::make_unique<GuardedMemory>(bytes);
    data_ = memory_->data() + memory_->size() - bytes;
    memcpy(data_, values.data(), bytes);
  }
  QOR_OUT_OF_LINE ~Exact() {
    if (memory_->size() == blockSize) unused().push_back(std::move(memory_));
  }
  Exact(const Exact&) = delete;
  Exact& operator=(const Exact&) = delete;
  T* data() const { return reinterpret_cast<T*>(data_); }

 private:
  // Mapping pages is slow, so each thread keeps its small blocks.
  static constexpr size_t blockSize = 4096;
  static std::vector<std::unique_ptr<GuardedMemory>>& unused() {
    static thread_local std::vector<std::unique_ptr<GuardedMemory>> blocks;
    return blocks;
  }
  static std::unique_ptr<GuardedMemory> take() {
    if (unused().empty()) return std::make_unique<GuardedMemory>(blockSize);
    std::unique_ptr<GuardedMemory> block = std::move(unused().back());
    unused().pop_back();
    return block;
  }

  std::unique_ptr<GuardedMemory> memory_;
  uint8_t* data_;
};

// Scratch of `size` bytes that ends `slack` bytes before an unmapped page.
class Scratch {
 public:
  Scratch(int32_t size, size_t slack) : memory_(size_t(size) + slack), size_(size_t(size)) {}
  uint8_t* data() const { return memory_.data(); }
  bool intact() const {
    for (size_t i = size_; i < memory_.size(); ++i) {
      if (memory_.data()[i] != 0xa5) return false;
    }
    return memory_.patternIntact();
  }

 private:
  GuardedMemory memory_;
  size_t size_;
};

// Scratch of the size that the stage reports for this region and kernel.
template <class Form>
QOR_OUT_OF_LINE Scratch scratchFor(QoriSize roiSize, int32_t kernelSize, size_t slack = 0) {
  int32_t size = -1;
  if (Form::bufferSize(roiSize, kernelSize, &size) != qorStatusOk || size < 1) abort();
  return Scratch(size, slack);
}

enum class Place {
  scattered,  // in any order, at any distance, at odd addresses
  lastBytes,  // each with its end at an unmapped page
  firstBytes  // each with its start at one
};

inline Place anyPlace(Random& random) {
  return random.pick(std::array<Place, 3>{Place::scattered, Place::lastBytes, Place::firstBytes});
}

// `count` rows of `length` elements, zero at first, that have nothing in common but their length.
template <class T>
class Rows {
 public:
  QOR_OUT_OF_LINE Rows(int32_t length, int32_t count, Place place, Random& random)
      : length_(length), rowSize_(length * sizeof(T)) {
    if (place == Place::scattered) {
      scatter(count, random);
    } else {
      for (int32_t r = 0; r < count; ++r) {
        blocks_.push_back(
            std::make_unique<GuardedMemory>(rowSize_, place == Place::lastBytes ? Edge::end : Edge::begin));
        starts_.push_back(blocks_.back()->data());
      }
    }
    for (uint8_t* start : starts_) memset(start, 0, rowSize_);
  }

  int32_t length() const { return length_; }
  int32_t count() const { return int32_t(starts_.size()); }
  T* row(int32_t r) const { return reinterpret_cast<T*>(starts_[r]); }
  QOR_OUT_OF_LINE std::vector<T*> pointers() const {
    std::vector<T*> all;
    for (int32_t r = 0; r < count(); ++r) all.push_back(row(r));
    return all;
  }

  T get(int32_t r, int32_t i) const {
    T value;
    memcpy(&value, starts_[r] + i * sizeof(T), sizeof(T));
    return value;
  }
  void set(int32_t r, int32_t i, T value) { memcpy(starts_[r] + i * sizeof(T), &value, sizeof(T)); }

  template <class Value>
  void fill(Value value) {
    for (int32_t r = 0; r < count(); ++r) {
      for (int32_t i = 0; i < length_; ++i) set(r, i, value());
    }
  }

  bool sameBytes(int32_t r, const Rows& other) const { return memcmp(starts_[r], other.starts_[r], rowSize_) == 0; }
  QOR_OUT_OF_LINE bool untouched(int32_t r) const {
    for (size_t i = 0; i < rowSize_; ++i) {
      if (starts_[r][i] != 0) return false;
    }
    return true;
  }

  // Nothing between the rows has been written.
  QOR_OUT_OF_LINE bool gapsIntact() const {
    for (const auto& block : blocks_) {
      if (!block->patternIntact()) return false;
    }
    for (const auto& gap : gaps_) {
      for (const uint8_t* p = gap.first; p < gap.second; ++p) {
        if (*p != 0xa5) return false;
      }
    }
    return true;
  }

  QOR_OUT_OF_LINE std::vector<uint8_t> bytes() const {
    std::vector<uint8_t> all;
    for (const auto& block : blocks_) all.insert(all.end(), block->data(), block->data() + block->size());
    return all;
  }

 private:
  void scatter(int32_t count, Random& random) {
    std::vector<int32_t> order(count);
    for (int32_t r = 0; r < count; ++r) {
      const auto other = size_t(random.number(0, r));
      order[r] = order[other];
      order[other] = r;
    }
    std::vector<size_t> offsets;
    size_t end = 0;
    for (int32_t r = 0; r < count; ++r) {
      offsets.push_back(end + size_t(random.number(0, 9)));
      end = offsets.back() + rowSize_;
    }
    blocks_.push_back(std::make_unique<GuardedMemory>(end));
    uint8_t* const block = blocks_.back()->data();
    memset(block, 0xa5, end);
    starts_.resize(count);
    const uint8_t* free = block;
    for (int32_t r = 0; r < count; ++r) {
      starts_[order[r]] = block + offsets[r];
      gaps_.emplace_back(free, block + offsets[r]);
      free = block + offsets[r] + rowSize_;
    }
  }

  int32_t length_;
  size_t rowSize_;
  std::vector<std::unique_ptr<GuardedMemory>> blocks_;
  std::vector<uint8_t*> starts_;
  std::vector<std::pair<const uint8_t*, const uint8_t*>> gaps_;
};

// 32 * n + 8 * n * (height + kernelSize) + n * per, in 32 bits that wrap.
inline int32_t modelBufferSize(int32_t threads, int32_t height, int32_t kernelSize, int32_t perTap, int32_t perThread) {
  const uint32_t n = uint32_t(threads), h = uint32_t(height), k = uint32_t(kernelSize);
  return int32_t(32 * n + 8 * n * (h + k) + n * (uint32_t(perTap) * k + uint32_t(perThread)));
}

using SizeQuery = QorStatus (*)(QoriSize roiSize, int32_t kernelSize, int32_t* bufferSize);

// Expects expected(threads, height, kernelSize) for all kinds of sizes, whatever the width, the team and the cores.
inline void expectBufferSizes(
    SizeQuery bufferSize, const std::function<int32_t(int32_t threads, int32_t height, int32_t kernelSize)>& expected) {
  for (const int32_t threads : {1, 2, 3, 4, 5, 6, 7, 8, 16, 40}) {
    for (const int32_t others : {1, 3, 50}) {
      services::maxThreads = threads;
      services::teamSize = services::cores = others;
      for (const int32_t kernelSize : {1, 2, 3, 5, 64, 1000, 100000000, INT32_MAX}) {
        for (const int32_t height : {1, 2, 480, 100000000, INT32_MAX}) {
          for (const int32_t width : {1, 640, INT32_MAX}) {
            int32_t size = -1;
            ASSERT_EQ(bufferSize({width, height}, kernelSize, &size), qorStatusOk);
            ASSERT_EQ(size, expected(threads, height, kernelSize));
          }
        }
      }
    }
  }
}

inline void expectBufferSizeStatuses(SizeQuery bufferSize) {
  struct Args {
    QoriSize roiSize;
    int32_t kernelSize;
    int32_t* bufferSize;
  };
  const std::vector<Fault<Args>> faults = {
      {"bufferSize", qorStatusNullPtr, [](Args& a) { a.bufferSize = nullptr; }},
      {"width", qorStatusBadSize, [](Args& a) { a.roiSize.width = 0; }},
      {"width", qorStatusBadSize, [](Args& a) { a.roiSize.width = INT32_MIN; }},
      {"height", qorStatusBadSize, [](Args& a) { a.roiSize.height = 0; }},
      {"height", qorStatusBadSize, [](Args& a) { a.roiSize.height = -1; }},
      {"kernelSize", qorStatusBadSize, [](Args& a) { a.kernelSize = 0; }},
      {"kernelSize", qorStatusBadSize, [](Args& a) { a.kernelSize = -3; }},
  };
  int32_t size = -1;
  expectStatuses<Args>(
      {{8, 3}, 5, &size}, faults, [=](const Args& a) { return bufferSize(a.roiSize, a.kernelSize, a.bufferSize); },
      [&] {
        std::vector<uint8_t> bytes(sizeof size);
        memcpy(bytes.data(), &size, sizeof size);
        return bytes;
      });
}

// Names of typed tests: those of the forms.
struct FormNames {
  template <class Form>
  static std::string GetName(int) {
    return Form::name;
  }
};

}  // namespace pipeline
