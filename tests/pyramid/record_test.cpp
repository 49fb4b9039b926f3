// Sizes of pyramid layers and the pyramid record.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <vector>

#include "qorcvmx.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

class PyramidRecord : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

int64_t smallestAbove(int32_t n, float rate) {
  if (n == 1) return 1;
  return std::max(int64_t(n) + 1, int64_t(std::trunc(float(n - 1) * rate)) + 1);
}

int64_t largestAbove(int32_t n, float rate) { return std::max(int64_t(n) + 1, int64_t(std::trunc(float(n) * rate))); }

// One step after the other, as the size is defined.
int32_t sizeBelow(int32_t n, float rate) {
  int64_t m = std::max<int64_t>(1, int64_t(std::trunc(float(n) / rate + 0.5)));
  for (;;) {
    if (n < smallestAbove(int32_t(m), rate)) {
      m = m - 1;
    } else if (n > largestAbove(int32_t(m), rate)) {
      m = m + 1;
    } else {
      return int32_t(m);
    }
  }
}

const std::vector<float> rates = {std::nextafter(1.0f, 2.0f),
                                  1.0001f,
                                  1.1f,
                                  1.25f,
                                  4 / 3.0f,
                                  1.5f,
                                  1.75f,
                                  1.99f,
                                  1.9999f,
                                  2.0f,
                                  2.01f,
                                  2.5f,
                                  2.71828f,
                                  3.0f,
                                  3.3f,
                                  5.0f,
                                  7.77f,
                                  9.99f,
                                  10.0f};

std::vector<float> badRates() {
  return {1.0f,
          std::nextafter(10.0f, 11.0f),
          0.0f,
          -2.0f,
          std::numeric_limits<float>::quiet_NaN(),
          std::numeric_limits<float>::infinity(),
          -std::numeric_limits<float>::infinity()};
}

TEST_F(PyramidRecord, SizesOfLayers) {
  Random random(1);
  for (int32_t i = 0; i < 20000; ++i) {
    const float rate = i % 2 ? random.pick(rates) : float(random.number(100001, 1000000)) / 100000.0f;
    const int32_t limit = random.pick(std::vector<int32_t>{9, 100, 5000, 1000000});
    const QoriSize size = {int32_t(random.number(1, limit)), int32_t(random.number(1, limit))};
    QoriSize smallest, largest, below;
    ASSERT_EQ(qoriGetPyramidUpROI(size, &smallest, &largest, rate), qorStatusOk);
    EXPECT_EQ(smallest.width, smallestAbove(size.width, rate));
    EXPECT_EQ(smallest.height, smallestAbove(size.height, rate));
    EXPECT_EQ(largest.width, largestAbove(size.width, rate));
    EXPECT_EQ(largest.height, largestAbove(size.height, rate));
    ASSERT_EQ(qoriGetPyramidDownROI(size, &below, rate), qorStatusOk);
    EXPECT_EQ(below.width, sizeBelow(size.width, rate)) << size.width << " at " << rate;
    EXPECT_EQ(below.height, sizeBelow(size.height, rate)) << size.height << " at " << rate;
    ASSERT_EQ(qoriGetPyramidUpROI(below, &smallest, &largest, rate), qorStatusOk);
    EXPECT_TRUE(smallest.width <= size.width && size.width <= largest.width) << size.width << " at " << rate;
    EXPECT_TRUE(smallest.height <= size.height && size.height <= largest.height) << size.height << " at " << rate;
  }
}

TEST_F(PyramidRecord, SizesByHand) {
  QoriSize below, smallest, largest;
  ASSERT_EQ(qoriGetPyramidDownROI({4, 4}, &below, 2.0f), qorStatusOk);
  EXPECT_TRUE(below.width == 2 && below.height == 2);
  ASSERT_EQ(qoriGetPyramidDownROI({1, 1}, &below, 2.0f), qorStatusOk);
  EXPECT_TRUE(below.width == 1 && below.height == 1);
  ASSERT_EQ(qoriGetPyramidDownROI({640, 5}, &below, 10.0f), qorStatusOk);
  EXPECT_TRUE(below.width == 64 && below.height == 1);
  ASSERT_EQ(qoriGetPyramidUpROI({1, 3}, &smallest, &largest, 1.5f), qorStatusOk);
  EXPECT_TRUE(smallest.width == 1 && largest.width == 2);
  EXPECT_TRUE(smallest.height == 4 && largest.height == 4);
  ASSERT_EQ(qoriGetPyramidUpROI({10, 320}, &smallest, &largest, 2.0f), qorStatusOk);
  EXPECT_TRUE(smallest.width == 19 && largest.width == 20);
  EXPECT_TRUE(smallest.height == 639 && largest.height == 640);
}

// The search for a size ends and finds the only one, where floats no longer hold every integer too.
TEST_F(PyramidRecord, LargestSizesEnd) {
  Random random(2);
  for (const float rate : rates) {
    for (int32_t i = 0; i < 60; ++i) {
      const int32_t n = i < 3 ? INT32_MAX - i : int32_t(random.number(1 << (i / 2), INT32_MAX));
      QoriSize below;
      ASSERT_EQ(qoriGetPyramidDownROI({n, 1}, &below, rate), qorStatusOk);
      EXPECT_EQ(below.height, 1);
      EXPECT_GE(n, smallestAbove(below.width, rate)) << n << " at " << rate;
      EXPECT_LE(n, largestAbove(below.width, rate)) << n << " at " << rate;
      EXPECT_LT(below.width, n);
    }
  }
  QoriSize smallest, largest;
  ASSERT_EQ(qoriGetPyramidUpROI({INT32_MAX, 1 << 30}, &smallest, &largest, 10.0f), qorStatusOk);
  EXPECT_TRUE(smallest.width == INT32_MAX && largest.width == INT32_MAX);
  EXPECT_TRUE(smallest.height == INT32_MAX && largest.height == INT32_MAX);
}

TEST_F(PyramidRecord, Levels) {
  Random random(3);
  for (int32_t i = 0; i < 500; ++i) {
    const float rate = random.pick(rates);
    const QoriSize size = {int32_t(random.number(1, i % 5 ? 700 : 2)), int32_t(random.number(1, i % 7 ? 700 : 2))};
    const int32_t level = i % 3 ? int32_t(random.number(1, 12)) : INT32_MAX;
    std::vector<QoriSize> sizes = {size};
    while (sizes.back().width >= 2 || sizes.back().height > 1) {
      sizes.push_back({sizeBelow(sizes.back().width, rate), sizeBelow(sizes.back().height, rate)});
    }
    QoriPyramid* pyramid = nullptr;
    ASSERT_EQ(qoriPyramidInitAlloc(&pyramid, level, size, rate), qorStatusOk);
    EXPECT_EQ(services::liveBlocks(), 1);
    ASSERT_EQ(pyramid->topLevel, std::min(level, int32_t(sizes.size()) - 1));
    EXPECT_EQ(pyramid->layerState, nullptr);
    double levelRate = 1.0;
    const uint8_t* first = reinterpret_cast<const uint8_t*>(pyramid) + sizeof *pyramid;
    const uint8_t* last = reinterpret_cast<const uint8_t*>(pyramid) + pyramid->topLevel * 52 + 152;
    const auto inBlock = [&](const void* array, size_t bytes) {
      const uint8_t* p = static_cast<const uint8_t*>(array);
      return p > first && p + bytes <= last && (p - first) % 8 == 0;
    };
    const size_t count = size_t(pyramid->topLevel) + 1;
    EXPECT_TRUE(inBlock(pyramid->levelImages, count * 8));
    EXPECT_TRUE(inBlock(pyramid->levelSizes, count * 8));
    EXPECT_TRUE(inBlock(pyramid->levelRates, count * 8));
    EXPECT_TRUE(inBlock(pyramid->levelSteps, count * 4));
    for (int32_t k = 0; k <= pyramid->topLevel; ++k) {
      EXPECT_EQ(pyramid->levelImages[k], nullptr);
      EXPECT_EQ(pyramid->levelSteps[k], 0);
      EXPECT_EQ(pyramid->levelSizes[k].width, sizes[size_t(k)].width);
      EXPECT_EQ(pyramid->levelSizes[k].height, sizes[size_t(k)].height);
      EXPECT_EQ(pyramid->levelRates[k], levelRate);
      levelRate *= 1.0 / double(rate);
    }
    // The arrays do not share memory.
    for (int32_t k = 0; k <= pyramid->topLevel; ++k) {
      pyramid->levelImages[k] = &levelRate;
      pyramid->levelSteps[k] = -1;
    }
    EXPECT_EQ(pyramid->levelRates[0], 1.0);
    EXPECT_EQ(pyramid->levelSizes[pyramid->topLevel].width, sizes[count - 1].width);
    EXPECT_EQ(pyramid->levelImages[0], &levelRate);
    EXPECT_EQ(qoriPyramidFree(pyramid), qorStatusOk);
    EXPECT_EQ(services::liveBlocks(), 0);
  }
}

TEST_F(PyramidRecord, OnePixelHasNoFurtherLevel) {
  QoriPyramid* pyramid = nullptr;
  ASSERT_EQ(qoriPyramidInitAlloc(&pyramid, 1, {1, 1}, 2.0f), qorStatusOk);
  EXPECT_EQ(pyramid->topLevel, 0);
  EXPECT_EQ(pyramid->levelRates[0], 1.0);
  qoriPyramidFree(pyramid);
}

TEST_F(PyramidRecord, FailingAllocations) {
  for (int32_t successes = 0; successes < 2; ++successes) {
    services::reset();
    services::failAfter(successes);
    QoriPyramid* pyramid = nullptr;
    EXPECT_EQ(qoriPyramidInitAlloc(&pyramid, 3, {100, 80}, 1.5f), qorStatusNoMemory);
    EXPECT_EQ(pyramid, nullptr);
    EXPECT_EQ(services::liveBlocks(), 0);
  }
}

struct Arguments {
  bool withFirst = true, withSecond = true;
  QoriSize size = {100, 80};
  float rate = 1.5f;
  int32_t level = 3;
};

std::vector<Fault<Arguments>> sizeFaults() {
  return {{"size", qorStatusBadSize, [](Arguments& a) { a.size.width = 0; }},
          {"size", qorStatusBadSize, [](Arguments& a) { a.size.height = -1; }}};
}

std::vector<Fault<Arguments>> rateFaults() {
  std::vector<Fault<Arguments>> faults;
  for (const float rate : badRates()) {
    faults.push_back({"rate", qorStatusBadArg, [rate](Arguments& a) { a.rate = rate; }});
  }
  return faults;
}

TEST_F(PyramidRecord, Statuses) {
  const Fault<Arguments> noFirst = {"first", qorStatusNullPtr, [](Arguments& a) { a.withFirst = false; }};
  const Fault<Arguments> noSecond = {"second", qorStatusNullPtr, [](Arguments& a) { a.withSecond = false; }};
  std::vector<Fault<Arguments>> common = sizeFaults();
  for (const auto& fault : rateFaults()) common.push_back(fault);
  QoriSize first, second;
  const auto sizes = [&] {
    std::vector<uint8_t> bytes(2 * sizeof first);
    memcpy(bytes.data(), &first, sizeof first);
    memcpy(bytes.data() + sizeof first, &second, sizeof second);
    return bytes;
  };
  memset(&first, 0x5a, sizeof first);
  memset(&second, 0x5a, sizeof second);
  std::vector<Fault<Arguments>> faults = common;
  faults.insert(faults.begin(), {noFirst, noSecond});
  expectStatuses<Arguments>(
      {}, faults,
      [&](const Arguments& a) {
        return qoriGetPyramidUpROI(a.size, a.withFirst ? &first : nullptr, a.withSecond ? &second : nullptr, a.rate);
      },
      sizes);
  faults = common;
  faults.insert(faults.begin(), noFirst);
  memset(&first, 0x5a, sizeof first);
  expectStatuses<Arguments>(
      {}, faults,
      [&](const Arguments& a) { return qoriGetPyramidDownROI(a.size, a.withFirst ? &first : nullptr, a.rate); }, sizes);
  faults.push_back({"level", qorStatusBadArg, [](Arguments& a) { a.level = 0; }});
  faults.push_back({"level", qorStatusBadArg, [](Arguments& a) { a.level = INT32_MIN; }});
  QoriPyramid* pyramid = nullptr;
  expectStatuses<Arguments>(
      {}, faults,
      [&](const Arguments& a) {
        return qoriPyramidInitAlloc(a.withFirst ? &pyramid : nullptr, a.level, a.size, a.rate);
      },
      [&] {
        std::vector<uint8_t> bytes(sizeof pyramid);
        memcpy(bytes.data(), &pyramid, sizeof pyramid);
        return bytes;
      });
  EXPECT_EQ(qoriPyramidFree(pyramid), qorStatusOk);
  EXPECT_EQ(qoriPyramidFree(nullptr), qorStatusNullPtr);
  EXPECT_EQ(services::liveBlocks(), 0);
}

}  // namespace
