// Labels for connected regions, against a model that walks through each region pixel by pixel.
#include <gtest/gtest.h>

#include <vector>

#include "support/any_image.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
struct Member {
  using Type = T;
  QorStatus (*bufferSize)(QoriSize, int32_t*);
  QorStatus (*label)(T*, int32_t, QoriSize, int32_t, int32_t, int32_t, int32_t*, uint8_t*);
};

template <class Body>
void forMembers(Body body) {
  body(Member<uint8_t>{qoriLabelMarkersGetBufferSize_8u_C1R, qoriLabelMarkers_8u_C1IR});
  body(Member<uint16_t>{qoriLabelMarkersGetBufferSize_16u_C1R, qoriLabelMarkers_16u_C1IR});
}

template <class T>
GuardedMemory bufferFor(const Member<T>& member, QoriSize size) {
  int32_t bytes = 0;
  EXPECT_EQ(member.bufferSize(size, &bytes), qorStatusOk);
  return GuardedMemory(size_t(bytes));
}

// Numbers of the regions, 0 for none, and how many there are.
template <class T>
int32_t regionsOf(const Image<T>& image, int32_t norm, std::vector<int32_t>& regions) {
  const int32_t w = image.width(), h = image.height();
  regions.assign(size_t(w) * h, 0);
  int32_t count = 0;
  for (int32_t start = 0; start < w * h; ++start) {
    if (image.get(start % w, start / w) == 0 || regions[size_t(start)] != 0) continue;
    std::vector<int32_t> open = {start};
    regions[size_t(start)] = ++count;
    while (!open.empty()) {
      const int32_t x = open.back() % w, y = open.back() / w;
      open.pop_back();
      for (int32_t dy = -1; dy <= 1; ++dy) {
        for (int32_t dx = -1; dx <= 1; ++dx) {
          if (norm == qorNormL1 && dx != 0 && dy != 0) continue;
          const int32_t u = x + dx, v = y + dy;
          if (u < 0 || u >= w || v < 0 || v >= h) continue;
          if (image.get(u, v) == 0 || regions[size_t(v * w + u)] != 0) continue;
          regions[size_t(v * w + u)] = count;
          open.push_back(v * w + u);
        }
      }
    }
  }
  return count;
}

class Labels : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

}  // namespace

TEST_F(Labels, AreThoseOfTheRegions) {
  Random random(1);
  forMembers([&](auto member) {
    using T = typename decltype(member)::Type;
    constexpr int32_t top = std::numeric_limits<T>::max();
    for (int round = 0; round < 400; ++round) {
      const QoriSize size = {random.width(round % 20 == 0 ? 300 : 40), int32_t(random.number(1, 24))};
      AnyImage<T> image(random, size);
      const double density = random.pick(std::vector<double>{0.05, 0.3, 0.5, 0.6, 0.9, 1.0});
      image.fill([&] { return random.chance(density) ? T(random.chance(0.5) ? 1 : random.value<T>()) : T(0); });
      const int32_t norm = int32_t(random.number(0, 1));
      const int32_t minLabel = int32_t(random.chance(0.5) ? 1 : random.number(1, top - 1));
      const int32_t maxLabel = int32_t(random.chance(0.5) ? top - 1 : random.number(minLabel, top - 1));
      std::vector<int32_t> regions;
      const int32_t count = regionsOf(image, norm, regions);
      GuardedMemory buffer = bufferFor(member, size);
      int32_t markersNum = -1;
      ASSERT_EQ(member.label(image.data(), image.step(), size, minLabel, maxLabel, norm, &markersNum, buffer.data()),
                qorStatusOk);
      ASSERT_EQ(markersNum, count);
      ASSERT_EQ(difference(image,
                           [&](int32_t x, int32_t y, int32_t) {
                             const int32_t region = regions[size_t(y * size.width + x)];
                             return T(region == 0 ? 0 : minLabel + (region - 1) % (maxLabel - minLabel + 1));
                           }),
                "");
      ASSERT_TRUE(image.gapsIntact());
      ASSERT_TRUE(buffer.patternIntact());
    }
  });
}

TEST_F(Labels, OfAnEmptyImageAreNone) {
  Image<uint8_t> image(9, 5);
  GuardedMemory buffer(24 * 45);
  int32_t markersNum = -1;
  EXPECT_EQ(
      qoriLabelMarkers_8u_C1IR(image.data(), image.step(), image.size(), 1, 254, qorNormL1, &markersNum, buffer.data()),
      qorStatusOk);
  EXPECT_EQ(markersNum, 0);
  EXPECT_EQ(difference(image, [](int32_t, int32_t, int32_t) { return uint8_t(0); }), "");
}

TEST_F(Labels, StartAgainAfterTheLast) {
  Image<uint8_t> image(9, 1);
  for (int32_t x = 0; x < 9; x += 2) image.set(x, 0, uint8_t(7 + x));
  GuardedMemory buffer(24 * 9);
  int32_t markersNum = 0;
  EXPECT_EQ(
      qoriLabelMarkers_8u_C1IR(image.data(), image.step(), image.size(), 1, 2, qorNormInf, &markersNum, buffer.data()),
      qorStatusOk);
  EXPECT_EQ(markersNum, 5);
  const std::vector<uint8_t> expected = {1, 0, 2, 0, 1, 0, 2, 0, 1};
  EXPECT_EQ(difference(image, [&](int32_t x, int32_t, int32_t) { return expected[size_t(x)]; }), "");
}

TEST_F(Labels, NeedTheScratchOfAFloodFill) {
  forMembers([](auto member) {
    for (const QoriSize size : {QoriSize{1, 1}, QoriSize{640, 480}, QoriSize{30000, 20000}}) {
      int32_t bytes = -1, fill = -2;
      EXPECT_EQ(member.bufferSize(size, &bytes), qorStatusOk);
      EXPECT_EQ(qoriFloodFillGetSize(size, &fill), qorStatusOk);
      EXPECT_EQ(bytes, fill);
    }
    int32_t bytes = 5;
    EXPECT_EQ(member.bufferSize({0, 1}, nullptr), qorStatusNullPtr);
    EXPECT_EQ(member.bufferSize({0, 1}, &bytes), qorStatusBadSize);
    EXPECT_EQ(member.bufferSize({1, 0}, &bytes), qorStatusBadSize);
    EXPECT_EQ(bytes, 5);
  });
}

TEST_F(Labels, RefuseBadArguments) {
  forMembers([](auto member) {
    using T = typename decltype(member)::Type;
    constexpr int32_t top = std::numeric_limits<T>::max();
    struct Args {
      T* srcDst;
      int32_t step;
      QoriSize size;
      int32_t minLabel, maxLabel, norm;
      int32_t* markersNum;
      uint8_t* buffer;
    };
    Image<T> image(6, 4, 1, 1);
    for (int32_t i = 0; i < 24; ++i) image.set(i % 6, i / 6, T(i % 3));
    GuardedMemory buffer(24 * 24 + 64);
    int32_t markersNum = 77;
    const auto set = [](auto member_, auto value) { return [=](Args& a) { a.*member_ = value; }; };
    std::vector<Fault<Args>> faults = {
        {"srcDst", qorStatusNullPtr, set(&Args::srcDst, nullptr)},
        {"buffer", qorStatusNullPtr, set(&Args::buffer, nullptr)},
        {"markersNum", qorStatusNullPtr, set(&Args::markersNum, nullptr)},
        {"size", qorStatusBadSize, set(&Args::size, QoriSize{0, 4})},
        {"size", qorStatusBadSize, set(&Args::size, QoriSize{6, 0})},
        {"step", qorStatusBadStep, set(&Args::step, int32_t(6 * sizeof(T) - 1))},
    };
    if (sizeof(T) == 2) faults.push_back({"step", qorStatusBadStepAlign, set(&Args::step, 13)});
    faults.push_back({"minLabel", qorStatusBadArg, set(&Args::minLabel, 0)});
    faults.push_back({"minLabel", qorStatusBadArg, set(&Args::minLabel, 9)});
    faults.push_back({"maxLabel", qorStatusBadArg, set(&Args::maxLabel, top)});
    faults.push_back({"maxLabel", qorStatusBadArg, set(&Args::maxLabel, 2)});
    faults.push_back({"norm", qorStatusBadArg, set(&Args::norm, 2)});
    faults.push_back({"norm", qorStatusBadArg, set(&Args::norm, -1)});
    expectStatuses<Args>(
        {image.data(), image.step(), image.size(), 3, 8, 0, &markersNum, buffer.data()}, faults,
        [&](const Args& a) {
          return member.label(a.srcDst, a.step, a.size, a.minLabel, a.maxLabel, a.norm, a.markersNum, a.buffer);
        },
        [&] {
          std::vector<uint8_t> all = image.bytes();
          all.push_back(uint8_t(markersNum));
          return all;
        });
  });
}
