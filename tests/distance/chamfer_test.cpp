// Chamfer distances: against passes that look at one pixel and one step at a time.
#include <gtest/gtest.h>

#include <cmath>

#include "support/any_image.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
using MetricOf = std::conditional_t<std::is_same_v<T, float>, float, int32_t>;

template <class T>
struct Member {
  using Element = T;
  using Metric = MetricOf<T>;
  int side;
  QorStatus (*function)(const uint8_t*, int32_t, T*, int32_t, QoriSize, const Metric*);
};

template <class Body>
void forMembers(Body body) {
  body(Member<uint8_t>{3, qoriDistanceTransform_3x3_8u_C1R});
  body(Member<uint16_t>{3, qoriDistanceTransform_3x3_8u16u_C1R});
  body(Member<float>{3, qoriDistanceTransform_3x3_8u32f_C1R});
  body(Member<uint8_t>{5, qoriDistanceTransform_5x5_8u_C1R});
  body(Member<uint16_t>{5, qoriDistanceTransform_5x5_8u16u_C1R});
  body(Member<float>{5, qoriDistanceTransform_5x5_8u32f_C1R});
}

// --- model ---

template <class T>
constexpr T largest = std::numeric_limits<T>::max();

int32_t sum(int32_t a, int32_t b) { return int32_t(uint32_t(a) + uint32_t(b)); }
float sum(float a, float b) { return a + b; }
int32_t times(int32_t n, int32_t a) { return int32_t(uint32_t(n) * uint32_t(a)); }
float times(int32_t n, float a) { return float(n) * a; }

// Below eps a difference counts as none, for floats.
bool notBelow(int32_t x, int32_t y) { return x >= y; }
bool notBelow(float x, float y) {
  const float difference = x - y;
  return double(difference) > -1e-7 * fabs(double(y));
}

template <class M>
struct Step {
  int dx, dy;
  M cost;
};

template <class T>
struct Map {
  QoriSize size;
  std::vector<T> values;
  explicit Map(QoriSize s) : size(s), values(size_t(s.width) * size_t(s.height)) {}
  bool inside(int x, int y) const { return x >= 0 && y >= 0 && x < size.width && y < size.height; }
  T& at(int x, int y) { return values[size_t(y) * size_t(size.width) + size_t(x)]; }
};

// The two passes over the forward steps; `bottom` is the extra step of the last row.
template <class T, class M>
Map<T> twoPasses(const Image<uint8_t>& src, std::vector<Step<M>> steps, M skip, const std::vector<Step<M>>& bottom) {
  Map<T> map(src.size());
  const int width = src.width(), height = src.height();
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      M value = M(largest<T>);
      for (const auto& s : steps) {
        if (map.inside(x + s.dx, y + s.dy)) value = std::min(value, sum(M(map.at(x + s.dx, y + s.dy)), s.cost));
      }
      for (const auto& s : bottom) {
        if (y == height - 1 && x >= 2) value = std::min(value, sum(M(map.at(x + s.dx, y)), s.cost));
      }
      map.at(x, y) = src.get(x, y) == 0 ? T(0) : T(value);
    }
  }
  for (int y = height - 1; y >= 0; --y) {
    for (int x = width - 1; x >= 0; --x) {
      M value = M(map.at(x, y));
      if (!(value > skip)) continue;
      for (const auto& s : steps) {
        if (map.inside(x - s.dx, y - s.dy)) value = std::min(value, sum(M(map.at(x - s.dx, y - s.dy)), s.cost));
      }
      for (const auto& s : bottom) {
        if (y == height - 1 && x <= width - 3) value = std::min(value, sum(M(map.at(x - s.dx, y)), s.cost));
      }
      map.at(x, y) = T(value);
    }
  }
  return map;
}

template <class T, class M>
Map<T> model3x3(const Image<uint8_t>& src, M a, M b) {
  std::vector<Step<M>> steps = {{-1, 0, a}, {0, -1, a}}, bottom;
  const bool both = src.width() >= 2 && src.height() >= 2;
  if (!(src.width() == 1 || b >= times(2, a))) {
    steps.push_back({-1, -1, b});
    steps.push_back({1, -1, b});
    if (a > b && both) bottom.push_back({-2, 0, times(2, b)});
  }
  return twoPasses<T, M>(src, steps, a > b && both ? b : a, bottom);
}

// All steps of the square with a side of 5, forward and backward.
template <class M>
std::vector<Step<M>> wholeSquare(M a, M b1, M c) {
  std::vector<Step<M>> steps;
  for (int dy = -2; dy <= 2; ++dy) {
    for (int dx = -2; dx <= 2; ++dx) {
      const int least = std::min(abs(dx), abs(dy)), most = std::max(abs(dx), abs(dy));
      if (most == 0) continue;
      steps.push_back({dx, dy,
                       least == 0   ? (most == 1 ? a : times(2, a))
                       : most == 1  ? b1
                       : least == 1 ? c
                                    : times(2, b1)});
    }
  }
  return steps;
}

template <class T, class M>
Map<T> modelSmall(const Image<uint8_t>& src, M a, M b1, M c, bool classic) {
  Map<T> map(src.size());
  const auto steps = wholeSquare(a, b1, c);
  for (int y = 0; y < src.height(); ++y) {
    for (int x = 0; x < src.width(); ++x) map.at(x, y) = src.get(x, y) ? largest<T> : T(0);
  }
  bool changed = true;
  const auto improve = [&](int x, int y, int half) {
    M value = M(map.at(x, y));
    for (const auto& s : steps) {
      const bool before = s.dy < 0 || (s.dy == 0 && s.dx < 0);
      if (half != 0 && before != (half < 0)) continue;
      if (map.inside(x + s.dx, y + s.dy)) value = std::min(value, sum(M(map.at(x + s.dx, y + s.dy)), s.cost));
    }
    if (T(value) != map.at(x, y)) changed = true;
    map.at(x, y) = T(value);
  };
  if (classic) {
    for (int y = 0; y < src.height(); ++y) {
      for (int x = 0; x < src.width(); ++x) improve(x, y, -1);
    }
    for (int y = src.height() - 1; y >= 0; --y) {
      for (int x = src.width() - 1; x >= 0; --x) improve(x, y, 1);
    }
    return map;
  }
  // Least costs of all ways, in any order, until none gets cheaper.
  while (changed) {
    changed = false;
    for (int y = 0; y < src.height(); ++y) {
      for (int x = 0; x < src.width(); ++x) improve(x, y, 0);
    }
  }
  return map;
}

bool isClassic(int32_t a, int32_t b1, int32_t c) { return b1 > a && c > times(2, a) && times(2, c) > times(3, b1); }
bool isClassic(float a, float b1, float c) {
  return !(notBelow(a, b1) || notBelow(2 * a, c) || notBelow(1.5f * b1, c));
}

template <class T, class M>
Map<T> model5x5(const Image<uint8_t>& src, M a, M b, M c) {
  const M b1 = std::min(times(2, a), b);
  if (notBelow(c, sum(a, b1))) return model3x3<T, M>(src, a, b);
  const bool classic = isClassic(a, b1, c);
  if (src.width() < 4 || src.height() < 4) return modelSmall<T, M>(src, a, b1, c, classic);
  if (classic) {
    return twoPasses<T, M>(
        src, {{-1, 0, a}, {-1, -1, b1}, {1, -1, b1}, {0, -1, a}, {-2, -1, c}, {2, -1, c}, {-1, -2, c}, {1, -2, c}}, a,
        {});
  }
  const M a1 = std::min(a, times(3, c)), b2 = std::min(b1, times(2, c));
  const M e = std::min({times(2, a1), times(2, b2), times(2, c)}), d = std::min(sum(c, a1), times(2, b2));
  return twoPasses<T, M>(src,
                         {{-1, 0, a1},
                          {-2, 0, e},
                          {0, -1, a1},
                          {-1, -1, b2},
                          {1, -1, b2},
                          {-2, -1, c},
                          {2, -1, c},
                          {0, -2, e},
                          {-1, -2, c},
                          {1, -2, c},
                          {-2, -2, d},
                          {2, -2, d}},
                         std::min({a, b2, c}), {});
}

// --- images and metrics ---

struct Source : AnyImage<uint8_t> {
  Source(Random& random, QoriSize size, double zeros) : AnyImage(random, size) {
    fill([&] { return random.chance(zeros) ? uint8_t(0) : uint8_t(random.number(1, 255)); });
  }
};

template <class M>
std::vector<M> anyMetrics(Random& random) {
  std::vector<M> metrics;
  if constexpr (std::is_same_v<M, float>) {
    const std::vector<std::vector<float>> telling = {{0.955f, 1.3693f, 2.1969f},
                                                     {1, 1.4f, 2.1969f},
                                                     {1, 1, 2},
                                                     {1, 2, 3},  // a knight's step that gains nothing, but for rounding
                                                     {0.1f, 0.2f, 0.3f},
                                                     {0.3f, 0.45f, 0.675f},
                                                     {1e38f, 1.5e38f, 2.2e38f},
                                                     {INFINITY, INFINITY, INFINITY},
                                                     {1e-45f, 1e-45f, 1e-45f},
                                                     {1, 0.6f, 1.1f}};
    if (random.chance(0.4)) return random.pick(telling);
    for (int i = 0; i < 3; ++i) metrics.push_back(float(random.number(1, 3000)) / 1000);
  } else {
    const std::vector<std::vector<int32_t>> telling = {
        {5, 7, 11}, {2, 3, 5}, {2, 1, 1}, {3, 2, 4}, {200, 230, 250},      {255, 256, 257},
        {9, 4, 1},  {7, 8, 6}, {3, 5, 7}, {1, 1, 1}, {20000, 30000, 45000}};
    if (random.chance(0.4)) return random.pick(telling);
    const int32_t most = random.pick(std::vector<int32_t>{8, 30, 300, 70000});
    for (int i = 0; i < 3; ++i) metrics.push_back(int32_t(random.number(1, most)));
  }
  return metrics;
}

template <class T>
Map<T> model(int side, const Image<uint8_t>& src, const std::vector<MetricOf<T>>& m) {
  using M = MetricOf<T>;
  return side == 3 ? model3x3<T, M>(src, m[0], m[1]) : model5x5<T, M>(src, m[0], m[1], m[2]);
}

template <class T>
std::string differenceToModel(Random& random, const Member<T>& member, const Image<uint8_t>& src,
                              const std::vector<MetricOf<T>>& metrics) {
  AnyImage<T> dst(random, src.size());
  EXPECT_EQ(member.function(src.data(), src.step(), dst.data(), dst.step(), src.size(), metrics.data()), qorStatusOk);
  EXPECT_TRUE(dst.gapsIntact());
  Map<T> should = model<T>(member.side, src, metrics);
  std::string text = difference(dst, [&](int32_t x, int32_t y, int32_t) { return should.at(x, y); });
  if (text.empty()) return text;
  text += "; " + std::to_string(member.side) + "x, " + std::to_string(sizeof(T)) + " bytes, metrics";
  for (const auto m : metrics) text += " " + std::to_string(m);
  return text;
}

struct Filled : Image<uint8_t> {
  Filled(QoriSize size, uint8_t value) : Image(size.width, size.height) {
    fill([=] { return value; });
  }
};

}  // namespace

class Chamfer : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::allocations(), 0);
    services::reset();
  }
};

TEST_F(Chamfer, matchesTheModel) {
  Random random(1);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Element;
    for (int i = 0; i < 700; ++i) {
      const QoriSize size = {random.width(150), int32_t(random.number(1, 24))};
      const Source src(random, size, random.pick(std::vector<double>{0, 0.003, 0.02, 0.2, 0.9}));
      ASSERT_EQ(differenceToModel<T>(random, member, src, anyMetrics<MetricOf<T>>(random)), "") << "case " << i;
    }
  });
}

// A side below 4 goes other ways with the 5x5 masks.
TEST_F(Chamfer, smallImagesMatchTheModel) {
  Random random(2);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Element;
    for (int i = 0; i < 700; ++i) {
      QoriSize size = {int32_t(random.number(1, 5)), int32_t(random.number(1, 40))};
      if (random.chance(0.5)) std::swap(size.width, size.height);
      const Source src(random, size, random.pick(std::vector<double>{0.02, 0.1, 0.5}));
      ASSERT_EQ(differenceToModel<T>(random, member, src, anyMetrics<MetricOf<T>>(random)), "") << "case " << i;
    }
  });
}

// Sums are those of 32 bits, so costs near the limit wrap. With a side below 4 such sums are passed over.
TEST_F(Chamfer, hugeCostsWrap) {
  Random random(3);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Element;
    using M = MetricOf<T>;
    for (int i = 0; i < 200; ++i) {
      const QoriSize size = {int32_t(random.number(4, 40)), int32_t(random.number(4, 12))};
      const Source src(random, size, 0.1);
      std::vector<M> metrics;
      for (int k = 0; k < 3; ++k) {
        metrics.push_back(random.chance(0.3)   ? M(random.number(1, 20))
                          : random.chance(0.5) ? M(INT32_MAX - random.number(0, 70000))
                                               : M(random.number(1, INT32_MAX)));
      }
      ASSERT_EQ(differenceToModel<T>(random, member, src, metrics), "") << "case " << i;
      const Source small(random, {random.chance(0.5) ? 3 : 30, 3}, 0.1);
      AnyImage<T> dst(random, small.size());
      ASSERT_EQ(member.function(small.data(), small.step(), dst.data(), dst.step(), small.size(), metrics.data()),
                qorStatusOk);
    }
  });
}

TEST_F(Chamfer, imagesWithoutZeroStayAtTheCap) {
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Element;
    for (const QoriSize size : {QoriSize{1, 1}, {1, 20}, {20, 1}, {3, 20}, {40, 33}}) {
      for (const std::vector<MetricOf<T>>& metrics :
           {std::vector<MetricOf<T>>{2, 3, 4}, {2, 1, 1}, {5, 7, 11}, {1, 2, 3}}) {
        const Filled src(size, 1);
        Image<T> dst(size.width, size.height);
        ASSERT_EQ(member.function(src.data(), src.step(), dst.data(), dst.step(), size, metrics.data()), qorStatusOk);
        ASSERT_EQ(difference(dst, [](int32_t, int32_t, int32_t) { return largest<T>; }), "");
      }
    }
  });
}

TEST_F(Chamfer, aWidthOf1KnowsNoDiagonalsAndAHeightOf1OnlyTheRow) {
  for (const int32_t b : {1, 2, 5}) {
    const int32_t metrics[] = {3, b};
    Filled column({1, 30}, 9), row({30, 1}, 9);
    column.set(0, 10, 0);
    row.set(10, 0, 0);
    Image<uint8_t> down(1, 30), across(30, 1);
    ASSERT_EQ(qoriDistanceTransform_3x3_8u_C1R(column.data(), 1, down.data(), 1, {1, 30}, metrics), qorStatusOk);
    ASSERT_EQ(qoriDistanceTransform_3x3_8u_C1R(row.data(), 30, across.data(), 30, {30, 1}, metrics), qorStatusOk);
    EXPECT_EQ(difference(down, [](int32_t, int32_t y, int32_t) { return uint8_t(3 * abs(y - 10)); }), "");
    EXPECT_EQ(difference(across, [](int32_t x, int32_t, int32_t) { return uint8_t(3 * abs(x - 10)); }), "");
  }
}

// With diagonal steps cheaper than straight ones.
TEST_F(Chamfer, onlyTheLastRowGoesThroughARowOutside) {
  const int32_t metrics[] = {2, 1};
  for (const QoriSize size : {QoriSize{3, 2}, {40, 2}, {41, 5}}) {
    for (const int32_t zeroRow : {0, size.height - 1}) {
      Filled src(size, 1);
      src.set(0, zeroRow, 0);
      Image<uint8_t> dst(size.width, size.height);
      ASSERT_EQ(qoriDistanceTransform_3x3_8u_C1R(src.data(), src.step(), dst.data(), dst.step(), size, metrics),
                qorStatusOk);
      EXPECT_EQ(dst.get(2, zeroRow), 2);
    }
  }
  // With one row only there is no such way.
  Filled src({3, 1}, 1);
  src.set(0, 0, 0);
  Image<uint8_t> dst(3, 1);
  ASSERT_EQ(qoriDistanceTransform_3x3_8u_C1R(src.data(), 3, dst.data(), 3, {3, 1}, metrics), qorStatusOk);
  EXPECT_EQ(dst.get(2, 0), 4);
}

TEST_F(Chamfer, bytesSaturate) {
  Filled src({40, 30}, 1);
  src.set(20, 15, 0);
  for (const int32_t a : {200, 254, 255, 256, 100000}) {
    const int32_t metrics[] = {a, 2 * a, 3 * a};
    for (const auto function : {qoriDistanceTransform_3x3_8u_C1R, qoriDistanceTransform_5x5_8u_C1R}) {
      Image<uint8_t> dst(40, 30);
      ASSERT_EQ(function(src.data(), src.step(), dst.data(), dst.step(), src.size(), metrics), qorStatusOk);
      EXPECT_EQ(difference(dst, [=](int32_t x, int32_t y,
                                    int32_t) { return uint8_t(std::min(255, a * (abs(x - 20) + abs(y - 15)))); }),
                "");
    }
  }
}

TEST_F(Chamfer, aKnightStepThatGainsNothingLeavesTheSmallMask) {
  Random random(4);
  for (int i = 0; i < 100; ++i) {
    const Source src(random, {random.width(70), int32_t(random.number(1, 12))}, 0.05);
    const int32_t a = int32_t(random.number(1, 9)), b = int32_t(random.number(1, 20));
    const int32_t metrics[] = {a, b, a + std::min(2 * a, b) + int32_t(random.number(0, 3))};
    Image<uint16_t> three(src.width(), src.height()), five(src.width(), src.height());
    ASSERT_EQ(
        qoriDistanceTransform_3x3_8u16u_C1R(src.data(), src.step(), three.data(), three.step(), src.size(), metrics),
        qorStatusOk);
    ASSERT_EQ(
        qoriDistanceTransform_5x5_8u16u_C1R(src.data(), src.step(), five.data(), five.step(), src.size(), metrics),
        qorStatusOk);
    ASSERT_EQ(difference(five, [&](int32_t x, int32_t y, int32_t) { return three.get(x, y); }), "");
  }
}

TEST_F(Chamfer, worksInPlace) {
  Random random(5);
  for (int i = 0; i < 300; ++i) {
    const QoriSize size = {random.width(100), int32_t(random.number(1, 12))};
    Source image(random, size, 0.05);
    Image<uint8_t> copy(size.width, size.height);
    for (int32_t y = 0; y < size.height; ++y) {
      for (int32_t x = 0; x < size.width; ++x) copy.set(x, y, image.get(x, y));
    }
    const auto metrics = anyMetrics<int32_t>(random);
    const int side = random.pick(std::vector<int>{3, 5});
    const auto function = side == 3 ? qoriDistanceTransform_3x3_8u_C1IR : qoriDistanceTransform_5x5_8u_C1IR;
    ASSERT_EQ(function(image.data(), image.step(), size, metrics.data()), qorStatusOk);
    Map<uint8_t> should = model<uint8_t>(side, copy, metrics);
    ASSERT_EQ(difference(image, [&](int32_t x, int32_t y, int32_t) { return should.at(x, y); }), "") << side;
    ASSERT_TRUE(image.gapsIntact());
  }
}

// Against all ways: with these metrics two passes are enough everywhere inside.
TEST_F(Chamfer, leastCostsOfAllWays) {
  Filled src({25, 25}, 1);
  src.set(12, 12, 0);
  const int32_t metrics[] = {5, 7, 11};
  Image<uint16_t> dst(25, 25);
  ASSERT_EQ(qoriDistanceTransform_5x5_8u16u_C1R(src.data(), src.step(), dst.data(), dst.step(), src.size(), metrics),
            qorStatusOk);
  EXPECT_EQ(difference(dst,
                       [](int32_t x, int32_t y, int32_t) {
                         const int32_t longer = std::max(abs(x - 12), abs(y - 12)),
                                       shorter = std::min(abs(x - 12), abs(y - 12));
                         // Knight's and straight steps below half a diagonal, knight's and diagonal ones above.
                         return uint16_t(2 * shorter <= longer ? 11 * shorter + 5 * (longer - 2 * shorter)
                                                               : 11 * (longer - shorter) + 7 * (2 * shorter - longer));
                       }),
            "");
}

TEST_F(Chamfer, statuses) {
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Element;
    using M = MetricOf<T>;
    struct Args {
      const uint8_t* src;
      int32_t srcStep;
      T* dst;
      int32_t dstStep;
      QoriSize size;
      const M* metrics;
    };
    const Filled src({9, 7}, 3);
    Image<T> dst(9, 7, 1, 4);
    static const M good[] = {2, 3, 4}, noStep[] = {0, 3, 4}, noDiagonal[] = {2, -1, 4}, noKnight[] = {2, 3, 0};
    std::vector<Fault<Args>> faults = {
        {"src", qorStatusNullPtr, [](Args& a) { a.src = nullptr; }},
        {"dst", qorStatusNullPtr, [](Args& a) { a.dst = nullptr; }},
        {"metrics", qorStatusNullPtr, [](Args& a) { a.metrics = nullptr; }},
        {"size", qorStatusBadSize, [](Args& a) { a.size.width = 0; }},
        {"size", qorStatusBadSize, [](Args& a) { a.size.height = -1; }},
        {"srcStep", qorStatusBadStep, [](Args& a) { a.srcStep = 8; }},
        {"dstStep", qorStatusBadStep, [](Args& a) { a.dstStep = 9 * int32_t(sizeof(T)) - 1; }},
        {"dstStep", qorStatusBadStep, [](Args& a) { a.dstStep = -a.dstStep; }},
    };
    if (sizeof(T) > 1) faults.push_back({"dstStep", qorStatusBadStepAlign, [](Args& a) { a.dstStep += 1; }});
    if (sizeof(T) > 2) faults.push_back({"dstStep", qorStatusBadStepAlign, [](Args& a) { a.dstStep += 2; }});
    faults.push_back({"metrics", qorStatusBadMetric, [](Args& a) { a.metrics = noStep; }});
    faults.push_back({"metrics", qorStatusBadMetric, [](Args& a) { a.metrics = noDiagonal; }});
    if (member.side == 5) faults.push_back({"metrics", qorStatusBadMetric, [](Args& a) { a.metrics = noKnight; }});
    if constexpr (std::is_same_v<T, float>) {
      static const float notANumber[] = {2, NAN, 4};
      faults.push_back({"metrics", qorStatusBadMetric, [](Args& a) { a.metrics = notANumber; }});
    }
    expectStatuses<Args>(
        {src.data(), src.step(), dst.data(), dst.step(), dst.size(), good}, faults,
        [&](const Args& a) { return member.function(a.src, a.srcStep, a.dst, a.dstStep, a.size, a.metrics); },
        [&] { return dst.bytes(); });
  });
}

TEST_F(Chamfer, statusesInPlace) {
  struct Args {
    uint8_t* data;
    int32_t step;
    QoriSize size;
    const int32_t* metrics;
  };
  static const int32_t good[] = {2, 3, 4}, bad[] = {2, 0, 4};
  for (const auto function : {qoriDistanceTransform_3x3_8u_C1IR, qoriDistanceTransform_5x5_8u_C1IR}) {
    Filled image({9, 7}, 3);
    expectStatuses<Args>(
        {image.data(), image.step(), image.size(), good},
        {{"srcDst", qorStatusNullPtr, [](Args& a) { a.data = nullptr; }},
         {"metrics", qorStatusNullPtr, [](Args& a) { a.metrics = nullptr; }},
         {"size", qorStatusBadSize, [](Args& a) { a.size.width = 0; }},
         {"size", qorStatusBadSize, [](Args& a) { a.size.height = 0; }},
         {"step", qorStatusBadStep, [](Args& a) { a.step = 8; }},
         {"metrics", qorStatusBadMetric, [](Args& a) { a.metrics = bad; }}},
        [&](const Args& a) { return function(a.data, a.step, a.size, a.metrics); }, [&] { return image.bytes(); });
  }
}

TEST_F(Chamfer, standardMetrics) {
  struct Row {
    int32_t kernelSize, normType;
    std::vector<float> floats;
    std::vector<int32_t> integers;
  };
  const std::vector<Row> table = {
      {3, 0, {1, 1}, {1, 1}},       {3, 1, {1, 2}, {1, 2}},       {3, 2, {0.955f, 1.3693f}, {2, 3}},
      {5, 0, {1, 1, 2}, {1, 1, 2}}, {5, 1, {1, 2, 3}, {1, 2, 3}}, {5, 2, {1, 1.4f, 2.1969f}, {5, 7, 11}}};
  for (const Row& row : table) {
    std::vector<float> floats(3, -7), both(3, -7);
    std::vector<int32_t> integers(3, -7);
    EXPECT_EQ(qoriGetDistanceTransformMask_32f(row.kernelSize, row.normType, floats.data()), qorStatusOk);
    EXPECT_EQ(qoriGetDistanceTransformMask_32s(row.kernelSize, row.normType, integers.data()), qorStatusOk);
    EXPECT_EQ(qoriGetDistanceTransformMask(row.kernelSize * 10 + row.normType, both.data()), qorStatusOk);
    auto expectedFloats = row.floats;
    auto expectedIntegers = row.integers;
    expectedFloats.resize(3, -7);
    expectedIntegers.resize(3, -7);
    EXPECT_EQ(floats, expectedFloats);
    EXPECT_EQ(both, expectedFloats);
    EXPECT_EQ(integers, expectedIntegers);
  }
}

TEST_F(Chamfer, statusesOfStandardMetrics) {
  float f[3] = {-7, -7, -7};
  int32_t i[3] = {-7, -7, -7};
  const auto both = [&](int32_t kernelSize, int32_t normType, bool null) {
    const QorStatus status = qoriGetDistanceTransformMask_32f(kernelSize, normType, null ? nullptr : f);
    EXPECT_EQ(qoriGetDistanceTransformMask_32s(kernelSize, normType, null ? nullptr : i), status);
    return status;
  };
  EXPECT_EQ(both(4, 9, true), qorStatusNullPtr);
  EXPECT_EQ(both(3, 0, true), qorStatusNullPtr);
  for (const int32_t kernelSize : {-5, 0, 4, 7}) EXPECT_EQ(both(kernelSize, 9, false), qorStatusBadSize);
  for (const int32_t normType : {-1, 3, INT32_MIN, INT32_MAX}) EXPECT_EQ(both(5, normType, false), qorStatusBadArg);
  const auto single = [&](int32_t maskType, float* metrics) { return qoriGetDistanceTransformMask(maskType, metrics); };
  // The units come first, even before the pointer.
  EXPECT_EQ(single(33, nullptr), qorStatusBadArg);
  EXPECT_EQ(single(43, f), qorStatusBadArg);
  EXPECT_EQ(single(-31, f), qorStatusBadArg);
  EXPECT_EQ(single(31, nullptr), qorStatusNullPtr);
  EXPECT_EQ(single(41, nullptr), qorStatusNullPtr);
  for (const int32_t maskType : {0, 2, 41, 130, 300, -30, -50}) EXPECT_EQ(single(maskType, f), qorStatusBadSize);
  for (int k = 0; k < 3; ++k) {
    EXPECT_EQ(f[k], -7);
    EXPECT_EQ(i[k], -7);
  }
}
