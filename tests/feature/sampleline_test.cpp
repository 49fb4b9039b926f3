// Pixels along lines: against a walk after Bresenham.
#include <gtest/gtest.h>
#include <stdlib.h>

#include "support/any_image.h"
#include "support/statuses.h"

namespace {

template <class T>
struct Member {
  using Pixel = T;
  int32_t channels;
  QorStatus (*sample)(const T*, int32_t, QoriSize, T*, QoriPoint, QoriPoint);
};

template <class Body>
void forMembers(Body body) {
  body(Member<uint8_t>{1, qoriSampleLine_8u_C1R});
  body(Member<uint8_t>{3, qoriSampleLine_8u_C3R});
  body(Member<uint16_t>{1, qoriSampleLine_16u_C1R});
  body(Member<uint16_t>{3, qoriSampleLine_16u_C3R});
  body(Member<float>{1, qoriSampleLine_32f_C1R});
  body(Member<float>{3, qoriSampleLine_32f_C3R});
}

std::vector<QoriPoint> walk(QoriPoint p, QoriPoint q) {
  const int32_t dx = abs(q.x - p.x), dy = abs(q.y - p.y), stepX = q.x < p.x ? -1 : 1, stepY = q.y < p.y ? -1 : 1;
  const int32_t major = std::max(dx, dy), minor = std::min(dx, dy);
  std::vector<QoriPoint> points;
  int32_t error = major;
  for (int32_t i = 0; i <= major; ++i) {
    points.push_back(p);
    error -= 2 * minor;
    const bool both = error < 0;
    if (both) error += 2 * major;
    if (dx <= dy) {
      p.y += stepY;
      if (both) p.x += stepX;
    } else {
      p.x += stepX;
      if (both) p.y += stepY;
    }
  }
  return points;
}

template <class T>
void expectLine(const Member<T>& member, const Image<T>& image, QoriPoint p, QoriPoint q, Edge edge, size_t shift) {
  const std::vector<QoriPoint> points = walk(p, q);
  ASSERT_EQ(points.back().x, q.x);
  ASSERT_EQ(points.back().y, q.y);
  const Image<T> dst(int32_t(points.size()), 1, member.channels, 0, edge, shift);
  ASSERT_EQ(member.sample(image.data(), image.step(), image.size(), dst.data(), p, q), qorStatusOk);
  EXPECT_TRUE(dst.gapsIntact());
  ASSERT_EQ(difference(dst, [&](int32_t i, int32_t,
                                int32_t c) { return image.get(points[size_t(i)].x, points[size_t(i)].y, c); }),
            "")
      << "from " << p.x << ", " << p.y << " to " << q.x << ", " << q.y;
}

TEST(SampleLine, RandomLines) {
  Random random(3);
  forMembers([&](auto member) {
    using T = typename decltype(member)::Pixel;
    for (int32_t round = 0; round < 60; ++round) {
      const QoriSize size = {random.width(150), random.width(90)};
      AnyImage<T> image(random, size, member.channels);
      image.fill([&] { return random.value<T>(); });
      for (int32_t i = 0; i < 8; ++i) {
        const auto any = [&] {
          return QoriPoint{int32_t(random.number(0, size.width - 1)), int32_t(random.number(0, size.height - 1))};
        };
        expectLine<T>(member, image, any(), any(), i % 2 ? Edge::begin : Edge::end, size_t(i / 2 % 2));
      }
    }
  });
}

// All lines of a small image: every octant, both ways, ties, single pixels, rows, columns and diagonals.
TEST(SampleLine, AllLines) {
  Image<uint16_t> image(5, 4, 3);
  uint16_t next = 0;
  image.fill([&] { return ++next; });
  const Member<uint16_t> member = {3, qoriSampleLine_16u_C3R};
  for (int32_t a = 0; a < 20; ++a) {
    for (int32_t b = 0; b < 20; ++b) expectLine(member, image, {a % 5, a / 5}, {b % 5, b / 5}, Edge::end, 0);
  }
}

TEST(SampleLine, SinglePixel) {
  Image<uint8_t> image(3, 3);
  image.set(1, 2, 77);
  uint8_t dst[2] = {1, 2};
  EXPECT_EQ(qoriSampleLine_8u_C1R(image.data(), image.step(), {3, 3}, dst, {1, 2}, {1, 2}), qorStatusOk);
  EXPECT_EQ(dst[0], 77);
  EXPECT_EQ(dst[1], 2);
}

TEST(SampleLine, DiagonalMovesOnBothAxes) {
  Image<uint8_t> image(4, 4);
  for (int32_t i = 0; i < 4; ++i) image.set(i, 3 - i, uint8_t(10 + i));
  uint8_t dst[4];
  EXPECT_EQ(qoriSampleLine_8u_C1R(image.data(), image.step(), {4, 4}, dst, {3, 0}, {0, 3}), qorStatusOk);
  for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(dst[i], 13 - i);
}

// Where the exact line passes between two pixels the walk has taken a side, which differs between the two directions.
TEST(SampleLine, HalfwayStaysUntilTheErrorIsNegative) {
  Image<uint8_t> image(3, 2);
  uint8_t next = 0;
  image.fill([&] { return next++; });  // 0 1 2 over 3 4 5
  uint8_t dst[3];
  EXPECT_EQ(qoriSampleLine_8u_C1R(image.data(), image.step(), {3, 2}, dst, {0, 0}, {2, 1}), qorStatusOk);
  EXPECT_EQ(std::vector<uint8_t>(dst, dst + 3), (std::vector<uint8_t>{0, 1, 5}));
  EXPECT_EQ(qoriSampleLine_8u_C1R(image.data(), image.step(), {3, 2}, dst, {2, 1}, {0, 0}), qorStatusOk);
  EXPECT_EQ(std::vector<uint8_t>(dst, dst + 3), (std::vector<uint8_t>{5, 4, 0}));
}

template <class T>
struct Args {
  const T* src;
  int32_t srcStep;
  QoriSize roiSize;
  T* dst;
  QoriPoint pt1, pt2;
};

TEST(SampleLine, Statuses) {
  forMembers([](auto member) {
    using T = typename decltype(member)::Pixel;
    const Image<T> src(7, 5, member.channels, 3), dst(7, 1, member.channels);
    const int32_t row = 7 * member.channels * int32_t(sizeof(T));
    std::vector<Fault<Args<T>>> faults = {
        {"src", qorStatusNullPtr, [](Args<T>& a) { a.src = nullptr; }},
        {"dst", qorStatusNullPtr, [](Args<T>& a) { a.dst = nullptr; }},
        {"width", qorStatusBadSize, [](Args<T>& a) { a.roiSize.width = 0; }},
        {"height", qorStatusBadSize, [](Args<T>& a) { a.roiSize.height = -1; }},
        {"srcStep", qorStatusBadStep, [=](Args<T>& a) { a.srcStep = row - 1; }},
        {"srcStep", qorStatusBadStep, [=](Args<T>& a) { a.srcStep = -row; }},
    };
    if (sizeof(T) > 1) {
      faults.push_back({"srcStep", qorStatusBadStepAlign, [=](Args<T>& a) { a.srcStep = row + 1; }});
    }
    if (sizeof(T) > 2) {
      faults.push_back({"srcStep", qorStatusBadStepAlign, [=](Args<T>& a) { a.srcStep = row + 2; }});
    }
    faults.push_back({"pt1", qorStatusOutOfRange, [](Args<T>& a) { a.pt1.x = -1; }});
    faults.push_back({"pt1", qorStatusOutOfRange, [](Args<T>& a) { a.pt1.x = 7; }});
    faults.push_back({"pt1", qorStatusOutOfRange, [](Args<T>& a) { a.pt1.y = INT32_MIN; }});
    faults.push_back({"pt1", qorStatusOutOfRange, [](Args<T>& a) { a.pt1.y = 5; }});
    faults.push_back({"pt2", qorStatusOutOfRange, [](Args<T>& a) { a.pt2.x = -1; }});
    faults.push_back({"pt2", qorStatusOutOfRange, [](Args<T>& a) { a.pt2.x = INT32_MAX; }});
    faults.push_back({"pt2", qorStatusOutOfRange, [](Args<T>& a) { a.pt2.y = -1; }});
    faults.push_back({"pt2", qorStatusOutOfRange, [](Args<T>& a) { a.pt2.y = 5; }});
    expectStatuses<Args<T>>(
        {src.data(), src.step(), {7, 5}, dst.data(), {6, 4}, {0, 0}}, faults,
        [&](const Args<T>& a) { return member.sample(a.src, a.srcStep, a.roiSize, a.dst, a.pt1, a.pt2); },
        [&] { return dst.bytes(); });
  });
}

}  // namespace
