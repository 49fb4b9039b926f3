// Gradient segmentation, against a model with a list of waiting pixels for each difference.
#include <gtest/gtest.h>

#include <deque>
#include <vector>

#include "support/any_image.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

using Call = QorStatus (*)(const uint8_t*, int32_t, uint8_t*, int32_t, QoriSize, int32_t, int32_t, uint8_t*);

struct Member {
  int32_t channels;
  QorStatus (*bufferSize)(QoriSize, int32_t*);
  Call segment;
};

const std::vector<Member> members = {
    {1, qoriSegmentGradientGetBufferSize_8u_C1R, qoriSegmentGradient_8u_C1IR},
    {3, qoriSegmentGradientGetBufferSize_8u_C3R, qoriSegmentGradient_8u_C3IR},
};

using Plane = std::vector<std::vector<int32_t>>;
struct Position {
  int32_t x, y;
};

const Position around[8] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}, {-1, -1}, {1, -1}, {-1, 1}, {1, 1}};

// `highest` gets the greatest fall of the level between pixels served one after the other.
Plane model(const Image<uint8_t>& src, const Plane& markers, int32_t norm, int32_t flag, int32_t* highest = nullptr) {
  const int32_t w = src.width(), h = src.height(), count = norm == qorNormL1 ? 4 : 8;
  Plane labels = markers;
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      if (x == 0 || y == 0 || x == w - 1 || y == h - 1) labels[y][x] = 255;
    }
  }
  const auto d = [&](Position p, Position q) {
    int32_t largest = 0;
    for (int32_t c = 0; c < src.channels(); ++c) {
      largest = std::max(largest, std::abs(int32_t(src.get(p.x, p.y, c)) - int32_t(src.get(q.x, q.y, c))));
    }
    return largest;
  };
  std::deque<Position> buckets[256];
  bool pushed = false;
  for (int32_t y = 1; y < h - 1; ++y) {
    for (int32_t x = 1; x < w - 1; ++x) {
      if (labels[y][x] != 0) continue;
      int32_t k = 256;
      for (int32_t n = 0; n < count; ++n) {
        const Position q = {x + around[n].x, y + around[n].y};
        if (labels[q.y][q.x] >= 1 && labels[q.y][q.x] <= 254) k = std::min(k, d({x, y}, q));
      }
      if (k == 256) continue;
      buckets[k].push_back({x, y});
      labels[y][x] = 255;
      pushed = true;
    }
  }
  if (!pushed) return markers;
  int32_t level = 0, before = 0;
  for (;;) {
    while (level < 256 && buckets[level].empty()) ++level;
    if (level == 256) return labels;
    if (highest) *highest = std::max(*highest, before - level);
    before = level;
    const Position p = buckets[level].front();
    buckets[level].pop_front();
    int32_t own = 255, b = 256;
    for (int32_t n = 0; n < count; ++n) {
      const Position q = {p.x + around[n].x, p.y + around[n].y};
      const int32_t label = labels[q.y][q.x];
      if (label < 1 || label > 254) continue;
      const int32_t e = d(p, q);
      if (e < b || (e == b && label < 254)) {
        own = label;
        b = e;
      }
    }
    labels[p.y][p.x] = own;
    const int32_t lookedAt = flag & qorSegmentBorder8 ? 8 : flag & qorSegmentBorder4 ? 4 : 0;
    for (int32_t n = 0; n < lookedAt; ++n) {
      const int32_t label = labels[p.y + around[n].y][p.x + around[n].x];
      if (label >= 1 && label <= 253 && label != own) labels[p.y][p.x] = 254;
    }
    for (int32_t n = 0; n < count; ++n) {
      const Position q = {p.x + around[n].x, p.y + around[n].y};
      if (labels[q.y][q.x] != 0) continue;
      const int32_t k = d(p, q);
      buckets[k].push_back(q);
      labels[q.y][q.x] = 255;
      level = std::min(level, k);
    }
  }
}

Plane planeOf(const Image<uint8_t>& image) {
  Plane plane(size_t(image.height()), std::vector<int32_t>(size_t(image.width())));
  for (int32_t y = 0; y < image.height(); ++y) {
    for (int32_t x = 0; x < image.width(); ++x) plane[y][x] = image.get(x, y);
  }
  return plane;
}

QorStatus segment(const Member& member, const Image<uint8_t>& src, Image<uint8_t>& markers, int32_t norm,
                  int32_t flag) {
  int32_t bytes = 0;
  EXPECT_EQ(member.bufferSize(src.size(), &bytes), qorStatusOk);
  const int32_t pixels = src.width() * src.height();
  EXPECT_EQ(bytes, (pixels + 3) * 16 + pixels + 67);
  GuardedMemory buffer(static_cast<size_t>(bytes));
  memset(buffer.data(), 0xa5, buffer.size());
  const QorStatus status =
      member.segment(src.data(), src.step(), markers.data(), markers.step(), src.size(), norm, flag, buffer.data());
  EXPECT_TRUE(buffer.patternIntact());
  return status;
}

std::string differenceTo(const Image<uint8_t>& image, const Plane& expected) {
  return difference(image, [&](int32_t x, int32_t y, int32_t) { return uint8_t(expected[y][x]); });
}

class Gradient : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

}  // namespace

TEST_F(Gradient, GrowsAsTheModelDoes) {
  Random random(1);
  const std::vector<int32_t> flags = {0, 64, 128, 192, 1 | 2, ~0, 64 | 3};
  int32_t highest = 0;
  for (const Member& member : members) {
    for (int round = 0; round < 700; ++round) {
      const QoriSize size = {random.width(round % 10 == 0 ? 130 : 30), int32_t(random.number(1, 25))};
      AnyImage<uint8_t> src(random, size, member.channels), markers(random, size);
      const int32_t range = random.pick(std::vector<int32_t>{0, 2, 20, 255});
      src.fill([&] { return uint8_t(random.number(0, range) + (range == 2 ? 100 : 0)); });
      const double density = random.pick(std::vector<double>{0, 0.01, 0.05, 0.3, 0.9});
      const int32_t labels = random.pick(std::vector<int32_t>{1, 2, 255});
      markers.fill([&] {
        if (!random.chance(density)) return uint8_t(0);
        return uint8_t(random.chance(0.2) ? random.number(253, 255) : random.number(1, labels));
      });
      const int32_t norm = int32_t(random.number(0, 1)), flag = random.pick(flags);
      const Plane expected = model(src, planeOf(markers), norm, flag, &highest);
      const std::vector<uint8_t> before = src.bytes();
      ASSERT_EQ(segment(member, src, markers, norm, flag), qorStatusOk);
      ASSERT_EQ(differenceTo(markers, expected), "") << norm << " " << flag;
      ASSERT_TRUE(markers.gapsIntact());
      ASSERT_TRUE(src.bytes() == before);
    }
  }
  // The level fell on the way: that is part of what was compared.
  EXPECT_GT(highest, 100);
}

TEST_F(Gradient, LeavesImagesWithoutInnerPixelsAsTheyAre) {
  for (const QoriSize size : {QoriSize{1, 1}, QoriSize{2, 9}, QoriSize{9, 2}, QoriSize{1, 7}}) {
    Image<uint8_t> src(size.width, size.height), markers(size.width, size.height);
    int32_t next = 0;
    markers.fill([&] { return uint8_t(next++); });
    const Plane before = planeOf(markers);
    EXPECT_EQ(segment(members[0], src, markers, qorNormInf, 64), qorStatusOk);
    EXPECT_EQ(differenceTo(markers, before), "");
  }
}

TEST_F(Gradient, WipesMarkersOnTheRing) {
  Image<uint8_t> src(5, 5), markers(5, 5);
  markers.set(0, 2, 7);
  const Plane before = planeOf(markers);
  // Alone, it seeds nothing and even stays.
  EXPECT_EQ(segment(members[0], src, markers, qorNormL1, 0), qorStatusOk);
  EXPECT_EQ(differenceTo(markers, before), "");
  markers.set(2, 2, 3);
  EXPECT_EQ(segment(members[0], src, markers, qorNormL1, 0), qorStatusOk);
  EXPECT_EQ(difference(markers, [](int32_t x, int32_t y,
                                   int32_t) { return uint8_t(x == 0 || y == 0 || x == 4 || y == 4 ? 255 : 3); }),
            "");
}

TEST_F(Gradient, PrefersTheLaterOfEqualNeighbours) {
  Image<uint8_t> src(5, 3), markers(5, 3);
  markers.set(1, 1, 4);
  markers.set(3, 1, 5);
  EXPECT_EQ(segment(members[0], src, markers, qorNormL1, 0), qorStatusOk);
  EXPECT_EQ(markers.get(2, 1), 5);
  // The label of borders wins no tie.
  markers.set(2, 1, 0);
  markers.set(3, 1, 254);
  EXPECT_EQ(segment(members[0], src, markers, qorNormL1, 0), qorStatusOk);
  EXPECT_EQ(markers.get(2, 1), 4);
}

TEST_F(Gradient, RefusesBadArguments) {
  for (const Member& member : members) {
    struct Args {
      uint8_t *src, *markers;
      int32_t srcStep, markerStep;
      QoriSize size;
      int32_t norm;
      uint8_t* buffer;
    };
    Image<uint8_t> src(7, 6, member.channels, 1), markers(7, 6, 1, 1);
    markers.set(3, 3, 1);
    GuardedMemory buffer(17 * 42 + 200);
    const auto set = [](auto member_, auto value) { return [=](Args& a) { a.*member_ = value; }; };
    const std::vector<Fault<Args>> faults = {
        {"src", qorStatusNullPtr, set(&Args::src, nullptr)},
        {"markers", qorStatusNullPtr, set(&Args::markers, nullptr)},
        {"buffer", qorStatusNullPtr, set(&Args::buffer, nullptr)},
        {"size", qorStatusBadSize, set(&Args::size, QoriSize{0, 6})},
        {"size", qorStatusBadSize, set(&Args::size, QoriSize{7, 0})},
        {"srcStep", qorStatusBadStep, set(&Args::srcStep, 7 * member.channels - 1)},
        {"markerStep", qorStatusBadStep, set(&Args::markerStep, 6)},
        {"norm", qorStatusBadArg, set(&Args::norm, 2)},
        {"norm", qorStatusBadArg, set(&Args::norm, -1)},
    };
    expectStatuses<Args>(
        {src.data(), markers.data(), src.step(), markers.step(), src.size(), 1, buffer.data()}, faults,
        [&](const Args& a) {
          return member.segment(a.src, a.srcStep, a.markers, a.markerStep, a.size, a.norm, 64, a.buffer);
        },
        [&] { return markers.bytes(); });
    int32_t bytes = 5;
    EXPECT_EQ(member.bufferSize({0, 1}, nullptr), qorStatusNullPtr);
    EXPECT_EQ(member.bufferSize({0, 1}, &bytes), qorStatusBadSize);
    EXPECT_EQ(member.bufferSize({1, 0}, &bytes), qorStatusBadSize);
    EXPECT_EQ(bytes, 5);
  }
}
