// Gaussian border filter, against sums over an extended image in the order of the taps.
#include <gtest/gtest.h>
#include <math.h>

#include <limits>
#include <string>
#include <vector>

#include "qorcvmx.h"
#include "support/borders.h"
#include "support/image.h"
#include "support/memory.h"
#include "support/random.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

std::vector<float> gaussTaps(int32_t kernelSize, float sigma) {
  std::vector<float> taps;
  float sum = 0;
  for (int32_t i = 0; i < kernelSize; ++i) {
    const float d = float(i - kernelSize / 2);
    const float exponent = (0.0f - d * d) / ((sigma + sigma) * sigma);
    taps.push_back(float(exp(double(exponent))));
    sum = sum + taps.back();
  }
  for (float& tap : taps) tap = tap / sum;
  return taps;
}

constexpr int32_t constantRow = std::numeric_limits<int32_t>::min();

// The image row that stands at row j of the extended image: 0 .. height - 1, a real one outside, or the constant row.
int32_t rowOf(int32_t j, int32_t height, QoriBorderType border) {
  if (j >= 0 && j < height) return j;
  if (border & (j < 0 ? qorBorderRowsAbove : qorBorderRowsBelow)) return j;
  QoriBorderType mode = border & 15;
  if (mode == qorBorderConst) return constantRow;
  if (height == 1) mode = qorBorderReplicate;
  if (mode != qorBorderMirrorEdge || j < 0) return borderIndex(j, height, mode);
  // Below, the first row stands twice where the order turns, the last row only at the first turn.
  std::vector<int32_t> order;
  for (int32_t r = height - 1; r >= 0; --r) order.push_back(r);
  while (int32_t(order.size()) <= j - height) {
    for (int32_t r = 0; r < height; ++r) order.push_back(r);
    for (int32_t r = height - 2; r >= 0; --r) order.push_back(r);
  }
  return order[size_t(j - height)];
}

struct Case {
  QoriSize size;
  int32_t kernelSize;
  float sigma;
  QoriBorderType border;
  float value;
};

// `all` has as many real rows above and below the region as the kernel may read.
std::vector<float> model(const Image<float>& all, const Case& k) {
  const int32_t half = k.kernelSize / 2, width = k.size.width, height = k.size.height;
  const QoriBorderType mode = k.border & 15;
  const std::vector<float> taps = gaussTaps(k.kernelSize, k.sigma);
  const auto filteredRow = [&](int32_t row) {
    std::vector<float> result(size_t(width), k.value);
    for (int32_t x = 0; x < width && row != constantRow; ++x) {
      float sum = 0;
      for (int32_t i = 0; i < k.kernelSize; ++i) {
        const int32_t column = borderIndex(x + i - half, width, mode != 0 && width == 1 ? qorBorderReplicate : mode);
        const float product = taps[size_t(i)] * (column == constantPixel ? k.value : all.get(column, half + row));
        sum = i == 0 ? product : sum + product;
      }
      result[size_t(x)] = sum;
    }
    return result;
  };
  std::vector<std::vector<float>> rows;
  for (int32_t j = -half; j < height + half; ++j) rows.push_back(filteredRow(rowOf(j, height, k.border)));
  std::vector<float> result;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      float sum = taps[0] * rows[size_t(y)][size_t(x)];
      for (int32_t i = 1; i < k.kernelSize; ++i) sum = sum + taps[size_t(i)] * rows[size_t(y + i)][size_t(x)];
      result.push_back(sum);
    }
  }
  return result;
}

int32_t bufferSize(QoriSize size, int32_t kernelSize) {
  int32_t bytes = -1;
  EXPECT_EQ(qoriFilterGaussGetBufferSize_32f_C1R(size, kernelSize, &bytes), qorStatusOk);
  return bytes;
}

// Real rows are there only on the sides that a flag names; elsewhere the image ends at an unmapped page.
void expectCase(const Case& k, Random& random, bool special = false) {
  const int32_t half = k.kernelSize / 2;
  const int32_t above = k.border & qorBorderRowsAbove ? half : 0, below = k.border & qorBorderRowsBelow ? half : 0;
  const Edge edge = above ? Edge::end : Edge::begin;
  const int32_t gap = int32_t(random.number(0, 3));
  const size_t shift = random.chance(0.3) ? 1 : 0, bufferShift = size_t(random.number(0, 33));
  Image<float> src(k.size.width, k.size.height + above + below, 1, gap, edge, shift);
  src.fill([&] { return special ? random.anyFloat() : random.value<float>(); });
  Image<float> all(k.size.width, k.size.height + 2 * half);
  for (int32_t y = -above; y < k.size.height + below; ++y) {
    for (int32_t x = 0; x < k.size.width; ++x) all.set(x, half + y, src.get(x, above + y));
  }
  const Image<float> dst(k.size.width, k.size.height, 1, gap, Edge::end, shift);
  const size_t bytes = size_t(bufferSize(k.size, k.kernelSize));
  const GuardedMemory buffer(bytes + bufferShift);
  for (size_t i = 0; i < bytes + bufferShift; ++i) buffer.data()[i] = 0xc3;
  const float* const first =
      reinterpret_cast<const float*>(reinterpret_cast<const uint8_t*>(src.data()) + above * src.step());
  ASSERT_EQ(qoriFilterGaussBorder_32f_C1R(first, src.step(), dst.data(), dst.step(), k.size, k.kernelSize, k.sigma,
                                          k.border, k.value, buffer.data()),
            qorStatusOk);
  const std::vector<float> expected = model(all, k);
  EXPECT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t) { return expected[size_t(y * k.size.width + x)]; }), "")
      << "kernel " << k.kernelSize << ", border " << k.border << ", sigma " << k.sigma;
  EXPECT_TRUE(src.gapsIntact() && dst.gapsIntact() && buffer.patternIntact());
  for (size_t i = 0; i < bufferShift; ++i) ASSERT_EQ(buffer.data()[bytes + i], 0xc3) << "outside the scratch";
}

class FilterGauss : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::allocations(), 0);
    services::reset();
  }
};

constexpr QoriBorderType flagSets[] = {0, qorBorderRowsAbove, qorBorderRowsBelow,
                                       qorBorderRowsAbove | qorBorderRowsBelow};

}  // namespace

TEST_F(FilterGauss, EverySmallSizeAndBorder) {
  Random random(71);
  for (const int32_t kernelSize : {3, 5, 7, 13}) {
    for (int32_t width = 1; width <= 9; ++width) {
      for (int32_t height = 1; height <= 9; ++height) {
        for (QoriBorderType mode = 0; mode <= 4; ++mode) {
          for (const QoriBorderType flags : flagSets) {
            expectCase({{width, height}, kernelSize, 1.4f, mode | flags, random.value<float>()}, random);
          }
        }
      }
    }
  }
}

TEST_F(FilterGauss, LargerSizes) {
  Random random(72);
  for (int32_t i = 0; i < 120; ++i) {
    const QoriSize size = {random.width(200), int32_t(random.number(1, 40))};
    const int32_t kernelSize = int32_t(random.number(1, 40)) * 2 + 1;
    const QoriBorderType border = QoriBorderType(random.number(0, 4)) | flagSets[random.number(0, 3)];
    expectCase({size, kernelSize, random.chance(0.5) ? 5.0f : 1.1f, border, random.value<float>()}, random);
  }
  expectCase({{1100, 9}, 31, 5, qorBorderReplicate, 0}, random);
}

// Heights around those at which intermediate rows begin to take the places of others.
TEST_F(FilterGauss, TallImages) {
  Random random(75);
  for (const int32_t kernelSize : {3, 9, 31}) {
    for (const int32_t height : {15, 16, 17, 31, 32, 33, 47, 48, 49, 63, 65, 79, 100}) {
      for (QoriBorderType mode = 0; mode <= 4; ++mode) {
        expectCase({{5, height}, kernelSize, 3, mode | random.pick(std::vector<int32_t>{0, 16, 32, 48}), 7}, random);
        expectCase({{20, height}, kernelSize, 3, mode, 7}, random);
      }
    }
  }
}

TEST_F(FilterGauss, AnySigmaAndAnyPixels) {
  constexpr float infinity = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  Random random(73);
  for (const float sigma : {0.0f, -0.0f, -1.4f, 1e-30f, 1e-3f, 0.3f, 1e30f, infinity, -infinity, nan}) {
    for (const int32_t kernelSize : {3, 7, 9}) {
      for (QoriBorderType mode = 0; mode <= 4; ++mode) {
        expectCase({{20, 6}, kernelSize, sigma, mode, 3}, random);
        expectCase({{20, 6}, kernelSize, sigma, mode, infinity}, random, true);
      }
    }
  }
}

// Both kinds of turn below the image, seen through a kernel that is all but flat.
TEST_F(FilterGauss, RowsBelowTurnOnceWithAndOnceWithoutARepetition) {
  const int32_t kernelSize = 15;
  const float src[2] = {0, 1};
  float dst[2] = {};
  std::vector<uint8_t> buffer(size_t(bufferSize({1, 2}, kernelSize)));
  ASSERT_EQ(
      qoriFilterGaussBorder_32f_C1R(src, 4, dst, 4, {1, 2}, kernelSize, 1e6f, qorBorderMirrorEdge, 0, buffer.data()),
      qorStatusOk);
  // Above row 0 lie 0 1 1 0 0 1 1, below row 1 lie 1 0 0 1 0 0 1. Row 0 sees the first six of those, row 1 all seven.
  EXPECT_NEAR(dst[0], (4 + 1 + 2) / 15.0, 1e-5);
  EXPECT_NEAR(dst[1], (3 + 1 + 3) / 15.0, 1e-5);
}

TEST_F(FilterGauss, AFlatImageInItsOwnColourStays) {
  Image<float> src(31, 17);
  src.fill([] { return 8.0f; });
  const Image<float> dst(31, 17);
  std::vector<uint8_t> buffer(size_t(bufferSize(src.size(), 9)));
  ASSERT_EQ(qoriFilterGaussBorder_32f_C1R(src.data(), src.step(), dst.data(), dst.step(), src.size(), 9, 2,
                                          qorBorderConst, 8, buffer.data()),
            qorStatusOk);
  for (int32_t y = 0; y < 17; ++y) {
    for (int32_t x = 0; x < 31; ++x) ASSERT_NEAR(dst.get(x, y), 8, 1e-5);
  }
}

TEST_F(FilterGauss, ThreadsInTheRowStage) {
  Random random(74);
  for (const int32_t team : {1, 2, 5, 12}) {
    services::threads(team);
    for (const QoriBorderType flags : flagSets) {
      for (const int32_t kernelSize : {5, 9}) {
        const Case k = {{1500, 270}, kernelSize, 2, qorBorderMirrorEdge | flags, 0};
        const int32_t requested = requestedTeam([&] { expectCase(k, random); });
        if (team == 1) {
          EXPECT_LE(requested, 1);
        } else {
          EXPECT_EQ(requested, team);
        }
      }
    }
  }
  // The rows that the flags add count at the gate.
  services::threads(2);
  const Case flat = {{1024, 60}, 9, 2, qorBorderReplicate, 0};
  EXPECT_EQ(requestedTeam([&] { expectCase(flat, random); }), 0);
  Case tall = flat;
  tall.border |= qorBorderRowsAbove;
  EXPECT_EQ(requestedTeam([&] { expectCase(tall, random); }), 2);
}

TEST_F(FilterGauss, StepsTooShortInBytesLeaveTheResultUnwritten) {
  const QoriSize size = {12, 5};
  Image<float> src(12, 5, 1, 2);
  src.fill([] { return 1.0f; });
  const Image<float> dst(12, 5, 1, 2);
  std::vector<uint8_t> buffer(size_t(bufferSize(size, 5)));
  const auto before = dst.bytes();
  const auto filter = [&](int32_t srcStep, int32_t dstStep) {
    return qoriFilterGaussBorder_32f_C1R(src.data(), srcStep, dst.data(), dstStep, size, 5, 1, qorBorderMirror, 0,
                                         buffer.data());
  };
  for (const int32_t wrong : {12, 13, 44, 47, 49, 50, 51}) {
    EXPECT_EQ(filter(wrong, dst.step()), qorStatusOk) << wrong;
    EXPECT_EQ(filter(src.step(), wrong), qorStatusOk) << wrong;
    EXPECT_EQ(filter(wrong, wrong), qorStatusOk) << wrong;
    ASSERT_TRUE(dst.bytes() == before) << wrong;
  }
  EXPECT_EQ(filter(48, 48), qorStatusOk);
  EXPECT_FALSE(dst.bytes() == before);
}

TEST_F(FilterGauss, Statuses) {
  struct Args {
    const float* src;
    int32_t srcStep;
    float* dst;
    int32_t dstStep;
    QoriSize size;
    int32_t kernelSize;
    QoriBorderType border;
    uint8_t* buffer;
  };
  const Image<float> src(6, 5), dst(6, 5, 1, 1);
  std::vector<uint8_t> buffer(size_t(bufferSize({6, 5}, 7)));
  std::vector<Fault<Args>> faults = {
      {"src", qorStatusNullPtr, [](Args& a) { a.src = nullptr; }},
      {"dst", qorStatusNullPtr, [](Args& a) { a.dst = nullptr; }},
      {"buffer", qorStatusNullPtr, [](Args& a) { a.buffer = nullptr; }},
      {"size", qorStatusBadSize, [](Args& a) { a.size.width = 0; }},
      {"size", qorStatusBadSize, [](Args& a) { a.size.height = -1; }},
      {"srcStep", qorStatusBadStep, [](Args& a) { a.srcStep = 5; }},
      {"srcStep", qorStatusBadStep, [](Args& a) { a.srcStep = -24; }},
      {"dstStep", qorStatusBadStep, [](Args& a) { a.dstStep = 5; }},
  };
  for (const int32_t wrong : {-7, -1, 0, 1, 2, 4, 8}) {
    faults.push_back({"kernelSize", qorStatusBadArg, [=](Args& a) { a.kernelSize = wrong; }});
  }
  for (const int32_t wrong : {-1, 5, 7, 16 + 5, 32 + 15, 64, 64 + 16 + 1}) {
    faults.push_back({"borderType", qorStatusBadArg, [=](Args& a) { a.border = wrong; }});
  }
  expectStatuses<Args>(
      {src.data(), src.step(), dst.data(), dst.step(), {6, 5}, 7, qorBorderReplicate, buffer.data()}, faults,
      [](const Args& a) {
        return qoriFilterGaussBorder_32f_C1R(a.src, a.srcStep, a.dst, a.dstStep, a.size, a.kernelSize, 1.4f, a.border,
                                             0, a.buffer);
      },
      [&] { return dst.bytes(); });
}

TEST_F(FilterGauss, BufferSizes) {
  for (const int32_t threads : {1, 3}) {
    services::threads(threads);
    for (const int32_t kernelSize : {3, 7, 31}) {
      for (int32_t width = 1; width < 40; ++width) {
        for (const int32_t height : {1, 2, 77}) {
          const int32_t k = kernelSize;
          const int32_t ofRows = threads * 32 + 8 * threads * (height + k) + threads * (128 * k + 64);
          EXPECT_EQ(bufferSize({width, height}, k), ((width + k + 3) & ~3) * (height + k) * 4 +
                                                        (((k + 3) & ~3) + ((width + k + 7) & ~7)) * 4 + 32 + 64 +
                                                        ofRows + 32 + 32 + 32 + (height + k) * 8 + 32);
        }
      }
    }
  }
  struct Args {
    QoriSize size;
    int32_t kernelSize;
    bool null;
  };
  int32_t bytes = 4711;
  expectStatuses<Args>(
      {{6, 5}, 7, false},
      {{"bufferSize", qorStatusNullPtr, [](Args& a) { a.null = true; }},
       {"size", qorStatusBadSize, [](Args& a) { a.size.width = 0; }},
       {"size", qorStatusBadSize, [](Args& a) { a.size.height = 0; }},
       {"kernelSize", qorStatusBadArg, [](Args& a) { a.kernelSize = 1; }},
       {"kernelSize", qorStatusBadArg, [](Args& a) { a.kernelSize = 6; }},
       {"kernelSize", qorStatusBadArg, [](Args& a) { a.kernelSize = -3; }}},
      [&](const Args& a) {
        return qoriFilterGaussGetBufferSize_32f_C1R(a.size, a.kernelSize, a.null ? nullptr : &bytes);
      },
      [&] {
        const uint8_t* const first = reinterpret_cast<const uint8_t*>(&bytes);
        return std::vector<uint8_t>(first, first + sizeof bytes);
      });
}
