// Hough lines against a model that holds all votes of all angles at once.
#include <gtest/gtest.h>
#include <math.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "support/any_image.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

const float nan32 = std::numeric_limits<float>::quiet_NaN();
const float infinite32 = std::numeric_limits<float>::infinity();
constexpr double almostPi = 3.14159;

class Hough : public ::testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

using Region = std::array<float, 4>;
const Region everywhere = {-1e5f, 0, 1e5f, 4};

// ---- The model

// What a processor makes of a float that has to become 32 bits.
int32_t toInteger(double v) {
  if (!(v >= -2147483648.0 && v < 2147483648.0)) return INT32_MIN;
  return int32_t(v);
}

int32_t rhoCountOf(QoriSize size, QoriPointPolar delta) {
  return toInteger(float(2 * (size.width + size.height) + 1) / delta.rho);
}

int32_t thetaCountOf(QoriPointPolar delta) { return toInteger(almostPi / double(delta.theta)) + 1; }

int32_t wrapped(int64_t v) { return int32_t(uint32_t(uint64_t(v))); }

struct Peak {
  int32_t bin, theta, votes;
};

// A row of votes with an empty bin on both sides.
using Row = std::vector<int32_t>;

std::vector<QoriPointPolar> model(const uint8_t* src, int32_t srcStep, QoriSize size, QoriPointPolar delta,
                                  int32_t threshold, int32_t maxLineCount, const Region* region) {
  const int32_t rhoCount = rhoCountOf(size, delta), thetaCount = thetaCountOf(delta), rhoHalf = (rhoCount - 1) / 2;
  const float inverse = 1.0f / delta.rho;
  const auto sought = [&](int32_t t) {
    const float theta = float(t) * delta.theta;
    return !region || (theta >= (*region)[1] && theta <= (*region)[3]);
  };
  std::vector<Row> votes(size_t(thetaCount) + 2, Row(size_t(rhoCount) + 2));  // an empty row on both sides, too
  float angle = 0;
  for (int32_t t = 0; t < thetaCount; ++t, angle += delta.theta) {
    const int32_t s = toInteger(1024.0 * sin(double(angle)) * double(inverse));
    const int32_t c = toInteger(1024.0 * cos(double(angle)) * double(inverse));
    if (!sought(t)) continue;
    for (int32_t y = 0; y < size.height; ++y) {
      for (int32_t x = 0; x < size.width; ++x) {
        if (src[ptrdiff_t(y) * srcStep + x] == 0) continue;
        const int32_t bin = (wrapped(int64_t(c) * x + int64_t(s) * y + 512) >> 10) + rhoHalf;
        if (region) {
          const int32_t low = toInteger((*region)[0] / delta.rho + float(rhoHalf));
          const int32_t high = toInteger((*region)[2] / delta.rho + float(rhoHalf));
          if (bin < low || bin > high) continue;
        }
        if (bin >= 0 && bin < rhoCount) ++votes[size_t(t) + 1][size_t(bin) + 1];
      }
    }
  }
  std::vector<Peak> list;
  int32_t minPeak = 0;
  for (int32_t t = 0; t < thetaCount; ++t) {
    if (!sought(t)) continue;
    const Row &before = votes[size_t(t)], &row = votes[size_t(t) + 1], &after = votes[size_t(t) + 2];
    const int32_t bar = minPeak;
    for (size_t i = 1; i <= size_t(rhoCount); ++i) {
      const int32_t a = row[i];
      if (!(a > threshold && a >= bar && a > row[i - 1] && a >= row[i + 1] && a > before[i] && a >= after[i])) continue;
      if (int32_t(list.size()) == maxLineCount) minPeak = list.back().votes;
      size_t j = 0;
      while (j < list.size() && list[j].votes >= a) ++j;
      list.insert(list.begin() + ptrdiff_t(j), {int32_t(i) - 1, t, a});
      if (int32_t(list.size()) > maxLineCount) list.pop_back();
    }
  }
  std::vector<QoriPointPolar> lines;
  for (const Peak& p : list) lines.push_back({float(p.bin - rhoHalf) * delta.rho, float(p.theta) * delta.theta});
  return lines;
}

// ---- Calls

int32_t reportedSize(QoriSize size, QoriPointPolar delta, int32_t maxLineCount) {
  int32_t bytes = -1;
  EXPECT_EQ(qoriHoughLineGetSize_8u_C1R(size, delta, maxLineCount, &bytes), qorStatusOk);
  return bytes;
}

// Calls with scratch of exactly the reported size, filled with rubbish, at any address against an unmapped page, and
// expects the lines of the model.
struct Caller {
  Random random{1};

  void expectModel(const uint8_t* src, int32_t srcStep, QoriSize size, QoriPointPolar delta, int32_t threshold,
                   int32_t maxLineCount, const Region* region, size_t* found = nullptr) {
    SCOPED_TRACE(std::to_string(size.width) + "x" + std::to_string(size.height) + ", rho " + std::to_string(delta.rho) +
                 ", theta " + std::to_string(delta.theta) + ", threshold " + std::to_string(threshold) + ", " +
                 std::to_string(maxLineCount) + " lines at most" + (region ? ", region" : ""));
    const size_t bytes = size_t(reportedSize(size, delta, maxLineCount)), spare = size_t(random.number(0, 33));
    const Edge edge = random.chance(0.5) ? Edge::end : Edge::begin;
    GuardedMemory memory(bytes + spare, edge);
    memset(memory.data(), random.chance(0.5) ? 0xff : 0x2b, memory.size());
    // The spare bytes move the scratch off the page's edge on one side, and to it on the other.
    uint8_t* const buffer = memory.data() + (edge == Edge::end ? spare : 0);
    uint8_t* const spareBytes = edge == Edge::end ? memory.data() : memory.data() + bytes;
    memset(spareBytes, 0x77, spare);

    AnyImage<float> lines(random, {2 * maxLineCount, 1});
    lines.fill([] { return -77.0f; });
    int32_t lineCount = -1;
    Region clamped = everywhere;
    QorStatus status;
    const auto room = reinterpret_cast<QoriPointPolar*>(lines.data());
    if (region) {
      clamped = *region;
      status = qoriHoughLine_Region_8u32f_C1R(src, srcStep, size, room, clamped.data(), maxLineCount, &lineCount, delta,
                                              threshold, buffer);
    } else {
      status = qoriHoughLine_8u32f_C1R(src, srcStep, size, delta, threshold, room, maxLineCount, &lineCount, buffer);
    }
    ASSERT_EQ(status, qorStatusOk);
    const auto should = model(src, srcStep, size, delta, threshold, maxLineCount, region ? &clamped : nullptr);
    ASSERT_EQ(lineCount, int32_t(should.size()));
    EXPECT_EQ(difference(lines,
                         [&](int32_t x, int32_t, int32_t) {
                           if (x >= 2 * lineCount) return -77.0f;
                           return x % 2 ? should[size_t(x) / 2].theta : should[size_t(x) / 2].rho;
                         }),
              "");
    EXPECT_TRUE(lines.gapsIntact());
    EXPECT_TRUE(memory.patternIntact());
    for (size_t i = 0; i < spare; ++i) ASSERT_EQ(spareBytes[i], 0x77);
    if (found) *found += should.size();
  }
  void expectModel(const Image<uint8_t>& image, QoriPointPolar delta, int32_t threshold, int32_t maxLineCount,
                   const Region* region, size_t* found = nullptr) {
    const std::vector<uint8_t> before = image.bytes();
    expectModel(image.data(), image.step(), image.size(), delta, threshold, maxLineCount, region, found);
    EXPECT_TRUE(before == image.bytes());
  }

  std::vector<QoriPointPolar> lines(const Image<uint8_t>& image, QoriPointPolar delta, int32_t threshold,
                                    int32_t maxLineCount) {
    GuardedMemory buffer(size_t(reportedSize(image.size(), delta, maxLineCount)));
    std::vector<QoriPointPolar> found(static_cast<size_t>(maxLineCount));
    int32_t lineCount = -1;
    EXPECT_EQ(qoriHoughLine_8u32f_C1R(image.data(), image.step(), image.size(), delta, threshold, found.data(),
                                      maxLineCount, &lineCount, buffer.data()),
              qorStatusOk);
    found.resize(size_t(lineCount));
    return found;
  }
};

void scatter(Random& random, Image<uint8_t>& image, double density) {
  image.fill([&] { return uint8_t(random.chance(density) ? random.number(1, 255) : 0); });
}

const QoriPointPolar fine = {1, 0.1f};

// ---- Against the model

TEST_F(Hough, FindsTheLinesOfTheModel) {
  Caller call;
  Random& random = call.random;
  const std::vector<float> densities = {0, 0.03f, 0.2f, 0.7f, 1};
  size_t found = 0;
  for (int32_t round = 0; round < 800; ++round) {
    const QoriSize size = {random.width(90), random.chance(0.2) ? 1 : random.width(70)};
    AnyImage<uint8_t> image(random, size);
    scatter(random, image, random.pick(densities));
    const float most = float(size.width + size.height);
    // Of fine distances the sines need more than 16 bits.
    const float rho = random.chance(0.15)   ? most
                      : random.chance(0.15) ? std::min(most, 0.01f * float(random.number(1, 5)))
                                            : std::min(most, 0.25f * float(random.number(1, 60)));
    const QoriPointPolar delta = {rho, random.chance(0.1) ? 3.1415f : 0.01f * float(random.number(3, 90))};
    const int32_t threshold = int32_t(random.number(1, random.chance(0.5) ? 3 : 20));
    const int32_t maxLineCount = int32_t(random.number(1, random.chance(0.5) ? 4 : 300));
    call.expectModel(image, delta, threshold, maxLineCount, nullptr, &found);
    if (HasFatalFailure()) return;
    Region region = everywhere;
    for (const size_t low : {0, 1}) {
      if (random.chance(0.2)) continue;
      const float unit = low == 0 ? most : 3.3f;
      region[low] = unit * 0.01f * float(random.number(-110, 110));
      region[low + 2] = region[low] + (random.chance(0.1) ? 0 : unit * 0.01f * float(random.number(0, 150)));
    }
    call.expectModel(image, delta, threshold, maxLineCount, &region, &found);
    if (HasFatalFailure()) return;
  }
  EXPECT_GT(found, 5000u);
}

TEST_F(Hough, FindsTheLinesOfTheModelInLargerImages) {
  Caller call;
  size_t found = 0;
  for (const QoriSize size : {QoriSize{333, 211}, QoriSize{64, 500}}) {
    AnyImage<uint8_t> image(call.random, size, 1, 5);
    scatter(call.random, image, 0.1);
    for (const float rho : {1.0f, 0.4f, 3.0f}) {
      const QoriPointPolar delta = {rho, 0.07f};
      call.expectModel(image, delta, 12, 40, nullptr, &found);
      const Region region = {20, 0.3f, 60, 2.0f};
      call.expectModel(image, delta, 12, 40, &region, &found);
    }
  }
  EXPECT_GT(found, 200u);
}

// Coordinates beyond 15 bits.
TEST_F(Hough, FindsTheLinesOfTheModelInVeryLongImages) {
  Caller call;
  size_t found = 0;
  for (const QoriSize size : {QoriSize{32768, 3}, QoriSize{32769, 3}, QoriSize{40001, 2}, QoriSize{2, 32768},
                              QoriSize{3, 32769}, QoriSize{1, 70000}}) {
    AnyImage<uint8_t> image(call.random, size);
    scatter(call.random, image, 0.3);
    image.set(size.width - 1, size.height - 1, 1);
    for (const float rho : {1.0f, 40.0f}) {
      const QoriPointPolar delta = {rho, 0.5f};
      call.expectModel(image, delta, 2, 25, nullptr, &found);
      const Region region = {-100, 0.4f, 30000, 2.1f};
      call.expectModel(image, delta, 2, 25, &region, &found);
    }
  }
  EXPECT_GT(found, 200u);
}

TEST_F(Hough, CountsEveryPixelOfAFullLongRow) {
  // More votes in one bin than 16 bits hold.
  Caller call;
  Image<uint8_t> image(1, 70000);
  image.fill([] { return uint8_t(9); });
  const auto lines = call.lines(image, {1, 0.5f}, 69999, 3);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rho, 0);
  EXPECT_EQ(lines[0].theta, 0);
}

// The products wrap: bins come out anywhere, in the row or not.
TEST_F(Hough, VotesOfProductsThatWrapStayInTheRow) {
  Caller call;
  size_t found = 0;
  for (const float rho : {0.0001f}) {
    for (const QoriSize size : {QoriSize{300, 9}, QoriSize{7, 310}}) {
      AnyImage<uint8_t> image(call.random, size);
      scatter(call.random, image, 0.5);
      for (const float theta : {1.1f}) {
        call.expectModel(image, {rho, theta}, 1, 200, nullptr, &found);
        const Region region = {-200, 0.5f, 200, 3.0f};
        call.expectModel(image, {rho, theta}, 1, 200, &region, &found);
      }
    }
  }
  EXPECT_GT(found, 100u);
}

TEST_F(Hough, RowsMayOverlap) {
  Caller call;
  std::vector<uint8_t> bytes(300);
  for (uint8_t& byte : bytes) byte = uint8_t(call.random.chance(0.3));
  GuardedMemory memory(20 + 7 * 3);
  for (size_t i = 0; i < memory.size(); ++i) memory.data()[i] = bytes[i];
  size_t found = 0;
  call.expectModel(memory.data(), 3, {20, 8}, fine, 2, 30, nullptr, &found);
  EXPECT_GT(found, 3u);
}

// ---- Lines that are there

TEST_F(Hough, TellsDistanceAndAngleOfALine) {
  Caller call;
  const float degree = float(M_PI / 180);
  const auto only = [&](int32_t degrees, double rho) {
    Image<uint8_t> image(200, 150);
    const double c = cos(degrees * M_PI / 180), s = sin(degrees * M_PI / 180);
    for (int32_t y = 0; y < 150; ++y) {
      for (int32_t x = 0; x < 200; ++x) image.set(x, y, uint8_t(fabs(x * c + y * s - rho) < 0.5));
    }
    const auto lines = call.lines(image, {1, degree}, 60, 50);
    ASSERT_FALSE(lines.empty()) << degrees;
    EXPECT_NEAR(lines[0].rho, rho, 1.5) << degrees;
    EXPECT_NEAR(lines[0].theta, degrees * M_PI / 180, 0.03) << degrees;
  };
  only(0, 40);
  only(90, 100);
  only(45, 120);
  only(135, -20);
  only(30, 90);
  only(170, -60);
}

TEST_F(Hough, NoPixelNoLine) {
  Caller call;
  EXPECT_TRUE(call.lines(Image<uint8_t>(30, 20), fine, 1, 5).empty());
}

TEST_F(Hough, AsManyVotesAsTheThresholdAreNotEnough) {
  Caller call;
  Image<uint8_t> image(30, 20);
  for (int32_t y = 0; y < 20; ++y) image.set(11, y, 200);
  EXPECT_TRUE(call.lines(image, fine, 20, 5).empty());
  // Angle 0 has no row before it: an empty one.
  const auto lines = call.lines(image, fine, 19, 5);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rho, 11);
  EXPECT_EQ(lines[0].theta, 0);
}

TEST_F(Hough, TheLastAngleHasAnEmptyRowAfterIt) {
  Caller call;
  Image<uint8_t> image(60, 60);
  for (int32_t x = 0; x < 60; ++x) image.set(x, 20, 1);
  // Angles 0 and 1.57.
  const auto lines = call.lines(image, {1, 1.5707f}, 59, 5);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].theta, 1.5707f);
  EXPECT_EQ(lines[0].rho, 20);
}

TEST_F(Hough, OfAPlateauTheLowestAngleAndDistanceWins) {
  Caller call;
  // Two columns side by side; the tiny angle step lets several rows have the same votes.
  Image<uint8_t> image(30, 20);
  for (int32_t y = 0; y < 20; ++y) image.set(11, y, 1), image.set(12, y, 1);
  const QoriPointPolar delta = {1, 0.005f};
  const Region region = {0, 0, 50, 0.02f};
  std::vector<QoriPointPolar> lines(10);
  int32_t lineCount = -1;
  Region clamped = region;
  GuardedMemory buffer(size_t(reportedSize(image.size(), delta, 10)));
  ASSERT_EQ(qoriHoughLine_Region_8u32f_C1R(image.data(), image.step(), image.size(), lines.data(), clamped.data(), 10,
                                           &lineCount, delta, 19, buffer.data()),
            qorStatusOk);
  ASSERT_EQ(lineCount, 1);
  EXPECT_EQ(lines[0].rho, 11);
  EXPECT_EQ(lines[0].theta, 0);
}

TEST_F(Hough, AFullListKeepsTheStrongestAndOfEqualOnesTheFirst) {
  Caller call;
  Image<uint8_t> image(80, 40);
  const auto column = [&](int32_t x, int32_t length) {
    for (int32_t y = 0; y < length; ++y) image.set(x, y, 1);
  };
  column(10, 30);
  column(20, 40);
  column(30, 30);
  column(40, 35);
  column(50, 40);
  column(60, 30);
  // One angle only, so columns are the only lines.
  const QoriPointPolar delta = {1, 3.14159f - 0.001f};
  const auto rhos = [&](int32_t maxLineCount) {
    GuardedMemory buffer(size_t(reportedSize(image.size(), delta, maxLineCount)));
    std::vector<QoriPointPolar> lines(static_cast<size_t>(maxLineCount));
    int32_t lineCount = -1;
    Region region = {-1000, 0, 1000, 1};
    EXPECT_EQ(qoriHoughLine_Region_8u32f_C1R(image.data(), image.step(), image.size(), lines.data(), region.data(),
                                             maxLineCount, &lineCount, delta, 10, buffer.data()),
              qorStatusOk);
    std::vector<float> found;
    for (int32_t i = 0; i < lineCount; ++i) found.push_back(lines[size_t(i)].rho);
    return found;
  };
  EXPECT_EQ(rhos(10), (std::vector<float>{20, 50, 40, 10, 30, 60}));
  EXPECT_EQ(rhos(6), (std::vector<float>{20, 50, 40, 10, 30, 60}));
  EXPECT_EQ(rhos(5), (std::vector<float>{20, 50, 40, 10, 30}));
  EXPECT_EQ(rhos(4), (std::vector<float>{20, 50, 40, 10}));
  EXPECT_EQ(rhos(2), (std::vector<float>{20, 50}));
  EXPECT_EQ(rhos(1), (std::vector<float>{20}));
}

TEST_F(Hough, DistancesAsCoarseAsTheImage) {
  // Two bins, for the distances 0 and 1 times width + height. At obtuse angles votes fall below them.
  Caller call;
  Image<uint8_t> image(40, 20);
  image.fill([] { return uint8_t(1); });
  const QoriPointPolar delta = {60, 0.3f};
  EXPECT_EQ(rhoCountOf(image.size(), delta), 2);
  size_t found = 0;
  call.expectModel(image, delta, 1, 20, nullptr, &found);
  EXPECT_GT(found, 0u);
  // All votes of the right half fall on bin -1 at the last angle, and are dropped.
  Image<uint8_t> dot(40, 20);
  for (int32_t y = 0; y < 20; ++y) dot.set(39, y, 1);
  call.expectModel(dot, {60, 3.1f}, 1, 20, nullptr);
  const auto lines = call.lines(dot, {60, 3.1f}, 19, 20);
  ASSERT_EQ(lines.size(), 1u);
  EXPECT_EQ(lines[0].rho, 60);
  EXPECT_EQ(lines[0].theta, 0);
}

// ---- Regions

struct RegionArgs {
  const uint8_t* src;
  int32_t srcStep;
  QoriSize size;
  QoriPointPolar* lines;
  float* region;
  int32_t maxLineCount;
  int32_t* lineCount;
  QoriPointPolar delta;
  int32_t threshold;
  uint8_t* buffer;
};

QorStatus callRegion(const RegionArgs& a) {
  return qoriHoughLine_Region_8u32f_C1R(a.src, a.srcStep, a.size, a.lines, a.region, a.maxLineCount, a.lineCount,
                                        a.delta, a.threshold, a.buffer);
}

QorStatus callPlain(const RegionArgs& a) {
  return qoriHoughLine_8u32f_C1R(a.src, a.srcStep, a.size, a.delta, a.threshold, a.lines, a.maxLineCount, a.lineCount,
                                 a.buffer);
}

// An image with a column, and all that a call needs.
struct Scene {
  Image<uint8_t> image{40, 30};
  Region region;
  std::vector<QoriPointPolar> lines = std::vector<QoriPointPolar>(8, QoriPointPolar{-5, -5});
  int32_t lineCount = -1;
  GuardedMemory buffer{size_t(reportedSize({40, 30}, fine, 8))};
  RegionArgs args;

  explicit Scene(const Region& r = everywhere) : region(r) {
    for (int32_t y = 0; y < 30; ++y) image.set(12, y, 1);
    args = {image.data(), image.step(), image.size(), lines.data(), region.data(), 8,
            &lineCount,   fine,         15,           buffer.data()};
  }
  std::vector<uint8_t> written() const {
    std::vector<uint8_t> bytes(8 * sizeof(QoriPointPolar) + sizeof(Region) + sizeof lineCount + buffer.size());
    memcpy(bytes.data(), lines.data(), 8 * sizeof(QoriPointPolar));
    memcpy(bytes.data() + 64, region.data(), sizeof(Region));
    memcpy(bytes.data() + 80, &lineCount, sizeof lineCount);
    memcpy(bytes.data() + 84, buffer.data(), buffer.size());
    return bytes;
  }
};

TEST_F(Hough, ARegionSaysWhereToLook) {
  const auto found = [](const Region& region) {
    Scene scene(region);
    EXPECT_EQ(callRegion(scene.args), qorStatusOk);
    return scene.lineCount;
  };
  EXPECT_EQ(found(everywhere), 2);  // angle 0, and once more at 3.1
  EXPECT_EQ(found({-100, 0, 100, 1}), 1);
  EXPECT_EQ(found({0, 0, 100, 3}), 1);
  EXPECT_EQ(found({12, 0, 12, 0}), 1);
  EXPECT_EQ(found({13, 0, 100, 1}), 0);
  EXPECT_EQ(found({0, 0, 11, 1}), 0);
  EXPECT_EQ(found({0, 2.0f, 11, 2.05f}), 0);
  EXPECT_EQ(found({1000, 0, 2000, 4}), 0);
  EXPECT_EQ(found({-2000, 0, -1000, 4}), 0);
  EXPECT_EQ(found({0, 4, 100, 5}), 0);  // both held to 3.14159, beyond the last angle of 3.1
}

TEST_F(Hough, AnglesOfTheRegionAreHeldInTheCallersArray) {
  const auto expectClamped = [](const Region& region, const Region& clamped) {
    Scene scene(region);
    EXPECT_EQ(callRegion(scene.args), qorStatusOk);
    for (size_t i = 0; i < 4; ++i) EXPECT_TRUE(sameValue(scene.region[i], clamped[i])) << i;
  };
  const float end = float(almostPi);
  expectClamped({-9e9f, -1, 9e9f, 7}, {-9e9f, 0, 9e9f, end});
  expectClamped({-infinite32, -infinite32, infinite32, infinite32}, {-infinite32, 0, infinite32, end});
  expectClamped({5, 0.5f, 6, 0.75f}, {5, 0.5f, 6, 0.75f});
  expectClamped({5, -3, 5, -2}, {5, 0, 5, 0});
  expectClamped({5, 8, 5, 9}, {5, end, 5, end});
  expectClamped({5, nextafterf(end, 0), 5, end}, {5, nextafterf(end, 0), 5, end});
  Scene scene({-100, -1, 100, 9});
  EXPECT_EQ(callRegion(scene.args), qorStatusOk);
  EXPECT_EQ(scene.lineCount, 2);
}

TEST_F(Hough, ADistanceBeyondAllIntegersLetsNoVoteCountAsTheUpperEnd) {
  const auto found = [](float low, float high) {
    Scene scene({low, 0, high, 4});
    EXPECT_EQ(callRegion(scene.args), qorStatusOk);
    return scene.lineCount;
  };
  EXPECT_EQ(found(-infinite32, 100), 2);
  EXPECT_EQ(found(-1e30f, 2e9f), 2);
  EXPECT_EQ(found(0, infinite32), 0);
  EXPECT_EQ(found(0, 1e30f), 0);
  EXPECT_EQ(found(infinite32, infinite32), 0);
  EXPECT_EQ(found(-infinite32, -infinite32), 0);
}

TEST_F(Hough, AnInvertedRegionIsRefusedWithNoLines) {
  for (const Region& region :
       {Region{0, 1, 10, 0.9f}, Region{10, 0, 9, 1}, Region{0, nan32, 10, 1}, Region{0, 0, 10, nan32},
        Region{nan32, 0, 10, 1}, Region{0, 0, nan32, 1}, Region{5, 9, 4, 8}, Region{infinite32, 0, -infinite32, 1}}) {
    Scene scene(region);
    const std::vector<uint8_t> before = scene.written();
    EXPECT_EQ(callRegion(scene.args), qorStatusBadRange);
    EXPECT_EQ(scene.lineCount, 0);
    scene.lineCount = -1;
    EXPECT_TRUE(sameBytes(before, scene.written())) << "something but the count was written";
  }
}

// ---- Statuses

std::vector<Fault<RegionArgs>> faultsOfSearch() {
  using A = RegionArgs;
  return {
      {"src", qorStatusNullPtr, [](A& a) { a.src = nullptr; }},
      {"lines", qorStatusNullPtr, [](A& a) { a.lines = nullptr; }},
      {"lineCount", qorStatusNullPtr, [](A& a) { a.lineCount = nullptr; }},
      {"buffer", qorStatusNullPtr, [](A& a) { a.buffer = nullptr; }},
      {"srcStep", qorStatusBadStep, [](A& a) { a.srcStep = 0; }},
      {"srcStep", qorStatusBadStep, [](A& a) { a.srcStep = -40; }},
      {"width", qorStatusBadSize, [](A& a) { a.size.width = 0; }},
      {"height", qorStatusBadSize, [](A& a) { a.size.height = -3; }},
      {"maxLineCount", qorStatusBadSize, [](A& a) { a.maxLineCount = 0; }},
      {"rho", qorStatusBadArg, [](A& a) { a.delta.rho = 0; }},
      {"rho", qorStatusBadArg, [](A& a) { a.delta.rho = nan32; }},
      {"rho", qorStatusBadArg, [](A& a) { a.delta.rho = nextafterf(70, 80); }},
      {"rho", qorStatusBadArg, [](A& a) { a.delta.rho = infinite32; }},
      {"theta", qorStatusBadArg, [](A& a) { a.delta.theta = -1; }},
      {"theta", qorStatusBadArg, [](A& a) { a.delta.theta = nan32; }},
      {"theta", qorStatusBadArg, [](A& a) { a.delta.theta = 3.14159f; }},
      {"theta", qorStatusBadArg, [](A& a) { a.delta.theta = infinite32; }},
      {"threshold", qorStatusBadArg, [](A& a) { a.threshold = 0; }},
  };
}

TEST_F(Hough, Statuses) {
  Scene scene;
  expectStatuses<RegionArgs>(scene.args, faultsOfSearch(), callPlain, [&] { return scene.written(); });

  auto faults = faultsOfSearch();
  faults.insert(faults.begin() + 2, {"region", qorStatusNullPtr, [](RegionArgs& a) { a.region = nullptr; }});
  Scene other;
  expectStatuses<RegionArgs>(other.args, faults, callRegion, [&] { return other.written(); });

  // All else is looked at before the range, and leaves the count alone.
  for (const auto& fault : faults) {
    Scene inverted({0, 1, 10, 0.5f});
    fault.apply(inverted.args);
    const std::vector<uint8_t> before = inverted.written();
    EXPECT_EQ(callRegion(inverted.args), fault.status) << fault.argument;
    EXPECT_TRUE(sameBytes(before, inverted.written())) << fault.argument;
  }
}

TEST_F(Hough, TheLargestStepsAreTaken) {
  // The float next to 3.14159 is above it. The one below leaves two angles.
  const float below = nextafterf(3.14159f, 0);
  EXPECT_GT(double(3.14159f), almostPi);
  EXPECT_EQ(thetaCountOf({1, below}), 2);
  Caller call;
  Image<uint8_t> image(40, 30);
  for (int32_t y = 0; y < 30; ++y) image.set(12, y, 1);
  const auto lines = call.lines(image, {1, below}, 20, 8);
  ASSERT_EQ(lines.size(), 2u);
  EXPECT_EQ(lines[0].theta, 0);
  EXPECT_EQ(lines[1].theta, below);
  EXPECT_EQ(lines[1].rho, -12);
  call.expectModel(image, {70, below}, 1, 8, nullptr);
}

TEST_F(Hough, ASumOfTwoSidesThatWrapsRefusesAnyStep) {
  Scene scene;
  scene.args.size = {INT32_MAX, INT32_MAX};
  EXPECT_EQ(callPlain(scene.args), qorStatusBadArg);
}

TEST_F(Hough, StepsTooFineForIntegersFindNothingAndTouchNoScratch) {
  for (const QoriPointPolar delta : {QoriPointPolar{1e-30f, 0.1f}, QoriPointPolar{1, 1e-30f}, QoriPointPolar{1e-8f, 1},
                                     QoriPointPolar{1, std::numeric_limits<float>::denorm_min()},
                                     QoriPointPolar{std::numeric_limits<float>::denorm_min(), 1}}) {
    Scene scene;
    scene.args.delta = delta;
    GuardedMemory none(1);
    scene.args.buffer = none.data() + 1;
    for (const auto call : {callPlain, callRegion}) {
      scene.lineCount = -1;
      EXPECT_EQ(call(scene.args), qorStatusOk);
      EXPECT_EQ(scene.lineCount, 0);
    }
  }
}

TEST_F(Hough, ManyAnglesOfWhichFewAreSought) {
  // 31 million angles: done in no time, since those outside the region cost nothing and those beyond it end the search.
  const QoriPointPolar delta = {1, 1e-7f};
  Scene scene({0, 1e-6f, 100, 3e-6f});
  GuardedMemory buffer(size_t(reportedSize({40, 30}, delta, 8)));
  scene.args.delta = delta;
  scene.args.buffer = buffer.data();
  EXPECT_EQ(callRegion(scene.args), qorStatusOk);
  ASSERT_EQ(scene.lineCount, 1);
  EXPECT_EQ(scene.lines[0].rho, 12);
  EXPECT_GE(scene.lines[0].theta, 1e-6f);
  EXPECT_LE(scene.lines[0].theta, 1.2e-6f);
}

TEST_F(Hough, NoThreadsAndNoMemory) {
  services::threads(8);
  services::failAfter(0);
  Random random(3);
  Image<uint8_t> image(700, 500);
  scatter(random, image, 0.02);
  GuardedMemory buffer(size_t(reportedSize(image.size(), fine, 5)));
  std::vector<QoriPointPolar> lines(5);
  int32_t lineCount = -1;
  EXPECT_EQ(requestedTeam([&] {
              EXPECT_EQ(qoriHoughLine_8u32f_C1R(image.data(), image.step(), image.size(), fine, 5, lines.data(), 5,
                                                &lineCount, buffer.data()),
                        qorStatusOk);
            }),
            0);
  EXPECT_EQ(lineCount, 5);
  EXPECT_EQ(services::allocations(), 0);
}

// ---- Size

int64_t sizeOf(QoriSize size, QoriPointPolar delta, int64_t maxLineCount) {
  const int64_t rowBytes = (int64_t(rhoCountOf(size, delta)) + 1) * 4;
  return 3 * (rowBytes + 32) + 4 + 16 * maxLineCount + 32 + 8 * int64_t(thetaCountOf(delta)) + rowBytes + 36 +
         int64_t(size.height) * (4 * (int64_t(size.width) + 4) + 16);
}

TEST_F(Hough, SizeIsTheSumOfItsParts) {
  Random random(5);
  for (int32_t round = 0; round < 2000; ++round) {
    const QoriSize size = {int32_t(random.number(1, 20000)), int32_t(random.number(1, 40000))};
    const QoriPointPolar delta = {
        random.chance(0.2) ? fabsf(random.anyFloat()) : 0.01f * float(random.number(1, 500)),
        random.chance(0.2) ? fabsf(random.anyFloat()) : 0.001f * float(random.number(1, 5000))};
    const int32_t maxLineCount = random.chance(0.2) ? random.value<int32_t>() : int32_t(random.number(-10, 10000));
    int32_t bytes = -1;
    const QorStatus status = qoriHoughLineGetSize_8u_C1R(size, delta, maxLineCount, &bytes);
    if (!(delta.rho > 0) || !(delta.theta > 0)) {
      EXPECT_EQ(status, qorStatusBadArg);
      EXPECT_EQ(bytes, -1);
      continue;
    }
    const int64_t sum = sizeOf(size, delta, maxLineCount);
    EXPECT_EQ(status, sum > 2147483647 ? qorStatusWarnSizeOverflow : qorStatusOk);
    EXPECT_EQ(bytes, wrapped(sum));
  }
}

TEST_F(Hough, SizesAboveTheLargestIntegerAreWarnedOf) {
  int32_t bytes = -1;
  const QoriPointPolar delta = {1, 0.5f};
  // Room for as many lines as is possible, then for one more.
  EXPECT_EQ(sizeOf({1, 1}, delta, 134217705), 2147483636);
  EXPECT_EQ(qoriHoughLineGetSize_8u_C1R({1, 1}, delta, 134217705, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 2147483636);
  EXPECT_EQ(qoriHoughLineGetSize_8u_C1R({1, 1}, delta, 134217706, &bytes), qorStatusWarnSizeOverflow);
  EXPECT_EQ(bytes, wrapped(2147483652));
  EXPECT_EQ(qoriHoughLineGetSize_8u_C1R({1, 1}, delta, INT32_MAX, &bytes), qorStatusWarnSizeOverflow);
  EXPECT_EQ(qoriHoughLineGetSize_8u_C1R({30000, 30000}, delta, 1, &bytes), qorStatusWarnSizeOverflow);
  EXPECT_EQ(bytes, wrapped(sizeOf({30000, 30000}, delta, 1)));
  // Nothing is tested of the greatest number of lines.
  EXPECT_EQ(qoriHoughLineGetSize_8u_C1R({1, 1}, delta, -5, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, wrapped(sizeOf({1, 1}, delta, -5)));
}

struct SizeArgs {
  QoriSize size;
  QoriPointPolar delta;
  int32_t maxLineCount;
  int32_t* bufferSize;
};

TEST_F(Hough, StatusesOfTheSize) {
  int32_t bytes = -1;
  using A = SizeArgs;
  expectStatuses<A>(
      {{40, 30}, fine, 3, &bytes},
      {
          {"bufferSize", qorStatusNullPtr, [](A& a) { a.bufferSize = nullptr; }},
          {"width", qorStatusBadSize, [](A& a) { a.size.width = 0; }},
          {"height", qorStatusBadSize, [](A& a) { a.size.height = 0; }},
          {"rho", qorStatusBadArg, [](A& a) { a.delta.rho = 0; }},
          {"rho", qorStatusBadArg, [](A& a) { a.delta.rho = nan32; }},
          {"theta", qorStatusBadArg, [](A& a) { a.delta.theta = -0.0f; }},
          {"theta", qorStatusBadArg, [](A& a) { a.delta.theta = nan32; }},
      },
      [](const A& a) { return qoriHoughLineGetSize_8u_C1R(a.size, a.delta, a.maxLineCount, a.bufferSize); },
      [&] { return std::vector<uint8_t>(reinterpret_cast<uint8_t*>(&bytes), reinterpret_cast<uint8_t*>(&bytes + 1)); });
}

}  // namespace
