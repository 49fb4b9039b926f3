// Sub-pixel copies: every function against a model that looks at one pixel at a time.
#include <gtest/gtest.h>
#include <math.h>

#include <array>

#include "support/any_image.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class S, class D>
struct Member {
  using Src = S;
  using Dst = D;
  QorStatus (*copy)(const S*, int32_t, D*, int32_t, QoriSize, int32_t, float, float);
  QorStatus (*intersect)(const S*, int32_t, QoriSize, D*, int32_t, QoriSize, QoriPoint_32f, QoriPoint*, QoriPoint*,
                         int32_t);
  bool scaled;
};

// The members without a scale factor, called as if they had one.
template <class S, class D, QorStatus (*copy)(const S*, int32_t, D*, int32_t, QoriSize, float, float),
          QorStatus (*intersect)(const S*, int32_t, QoriSize, D*, int32_t, QoriSize, QoriPoint_32f, QoriPoint*,
                                 QoriPoint*)>
Member<S, D> unscaled() {
  return {[](const S* src, int32_t srcStep, D* dst, int32_t dstStep, QoriSize size, int32_t, float dx, float dy) {
            return copy(src, srcStep, dst, dstStep, size, dx, dy);
          },
          [](const S* src, int32_t srcStep, QoriSize srcSize, D* dst, int32_t dstStep, QoriSize dstSize,
             QoriPoint_32f point, QoriPoint* min, QoriPoint* max,
             int32_t) { return intersect(src, srcStep, srcSize, dst, dstStep, dstSize, point, min, max); },
          false};
}

template <class Body>
void forMembers(Body body) {
  body(unscaled<uint8_t, uint8_t, qoriCopySubpix_8u_C1R, qoriCopySubpixIntersect_8u_C1R>());
  body(Member<uint8_t, uint16_t>{qoriCopySubpix_8u16u_C1R_Sfs, qoriCopySubpixIntersect_8u16u_C1R_Sfs, true});
  body(unscaled<uint8_t, float, qoriCopySubpix_8u32f_C1R, qoriCopySubpixIntersect_8u32f_C1R>());
  body(unscaled<uint16_t, uint16_t, qoriCopySubpix_16u_C1R, qoriCopySubpixIntersect_16u_C1R>());
  body(unscaled<uint16_t, float, qoriCopySubpix_16u32f_C1R, qoriCopySubpixIntersect_16u32f_C1R>());
  body(unscaled<float, float, qoriCopySubpix_32f_C1R, qoriCopySubpixIntersect_32f_C1R>());
}

// --- model ---

// Top left, top right, bottom left, bottom right.
using Four = std::array<int64_t, 4>;

Four fourWeights(float f, float g, int64_t one) {
  if (f == 0 && g == 0) return {one, 0, 0, 0};
  const int64_t a = int64_t(f * float(one) + 0.5f), b = int64_t(g * float(one) + 0.5f);
  const int64_t bits = one == 16384 ? 14 : 15;
  const auto product = [&](int64_t u, int64_t v) { return (u * v + 16384) >> bits; };
  Four w = {product(one - a, one - b), product(a, one - b), product(one - a, b), product(a, b)};
  const int64_t residual = one - (w[0] + w[1] + w[2] + w[3]);
  if (residual < 0) {
    const auto smallerThanAnother = [&](int i) {
      for (const int64_t other : w) {
        if (w[size_t(i)] < other) return true;
      }
      return false;
    };
    const size_t taker = !smallerThanAnother(0) ? 0 : !smallerThanAnother(2) ? 2 : smallerThanAnother(1) ? 3 : 1;
    w[taker] += residual;
  }
  return w;
}

template <class S, class D>
D fixedResult(const Four& weights, const std::array<S, 4>& pixels, int32_t scaleFactor) {
  const int32_t shift = scaleFactor + (sizeof(S) == 1 ? 14 : 15);
  double sum = 0;
  for (size_t i = 0; i < 4; ++i) sum += double(weights[i]) * double(pixels[i]);
  // A shift to the right of a sum that half a unit was added to.
  const double value = shift > 0 ? floor(ldexp(sum, -shift) + 0.5) : ldexp(sum, -shift);
  return D(std::min(value, double(std::numeric_limits<D>::max())));
}

float floatResult(float f, float g, const std::array<float, 4>& p) {
  return p[0] * ((1 - f) * (1 - g)) + p[1] * (f * (1 - g)) + p[2] * ((1 - f) * g) + p[3] * (f * g);
}

template <class S, class D>
D between(float f, float g, const std::array<S, 4>& p, int32_t scaleFactor) {
  if constexpr (std::is_same_v<D, float>) {
    return floatResult(f, g, {float(p[0]), float(p[1]), float(p[2]), float(p[3])});
  } else {
    return fixedResult<S, D>(fourWeights(f, g, sizeof(S) == 1 ? 16384 : 32768), p, scaleFactor);
  }
}

template <class S, class D>
D betweenTwo(float f, S p, S q, int32_t scaleFactor) {
  if constexpr (std::is_same_v<D, float>) {
    return float(p) * (1 - f) + float(q) * f;
  } else {
    const int64_t one = sizeof(S) == 1 ? 16384 : 32768, a = int64_t(f * float(one) + 0.5f);
    return fixedResult<S, D>({one - a, a, 0, 0}, {p, q, 0, 0}, scaleFactor);
  }
}

template <class S, class D>
D single(S p, int32_t scaleFactor) {
  return betweenTwo<S, D>(0.0f, p, S(0), scaleFactor);
}

float fractionOf(float v) {
  const float f = v - truncf(v);
  return f < 0 ? f + 1 : f;
}

// Where a window lies along one axis.
struct Axis {
  int32_t start, min, max;
  float fraction;
};

Axis axisOf(float centre, int32_t window, int32_t source) {
  const float t = centre - float(window - 1) * 0.5f;
  Axis a;
  a.start = int32_t(float(window) + t) - window;
  a.fraction = t - float(a.start);
  a.min = a.start < 0 ? std::min(-a.start, window) : 0;
  a.max = window - 1;
  if (a.start + window - 1 > source - 2) a.max = source - a.start - 2;
  if (a.start >= source) {
    a.min = 0;
    a.max = -1;
  }
  return a;
}

template <class S, class D>
D windowPixel(const Image<S>& src, const Axis& h, const Axis& v, int32_t x, int32_t y, int32_t scaleFactor) {
  const bool alongX = x >= h.min && x <= h.max, alongY = y >= v.min && y <= v.max;
  const int32_t left = alongX ? h.start + x : x < h.min ? 0 : src.width() - 1;
  const int32_t top = alongY ? v.start + y : y < v.min ? 0 : src.height() - 1;
  if (alongX && alongY) {
    return between<S, D>(
        h.fraction, v.fraction,
        {src.get(left, top), src.get(left + 1, top), src.get(left, top + 1), src.get(left + 1, top + 1)}, scaleFactor);
  }
  if (alongX) return betweenTwo<S, D>(h.fraction, src.get(left, top), src.get(left + 1, top), scaleFactor);
  if (alongY) return betweenTwo<S, D>(v.fraction, src.get(left, top), src.get(left, top + 1), scaleFactor);
  return single<S, D>(src.get(left, top), scaleFactor);
}

// --- calls ---

int32_t anyScale(Random& random) {
  return random.chance(0.4)   ? -7
         : random.chance(0.1) ? int32_t(random.value<int32_t>())
                              : int32_t(random.number(-25, 30));
}

float anyShift(Random& random) {
  static const std::vector<float> telling = {0.0f,  -0.0f, 0.25f,  -0.25f,      2.25f,         0.5f,  0.75f,
                                             1.0f,  -3.0f, -1e-9f, 0.99999994f, 1e-9f,         1e-5f, 3e9f,
                                             -0.5f, 0.3f,  0.7f,   0.99997f,    3.0517578e-05f};
  return random.chance(0.6) ? random.pick(telling) : float(random.number(-3000, 3000)) / 997;
}

// A centre about an image of so many columns, far off now and then.
float anyCentre(Random& random, int32_t size) {
  if (random.chance(0.2)) return float(random.number(-200, 200));
  const float centre = float(random.number(-6, size + 6));
  return random.chance(0.3) ? centre + (random.chance(0.5) ? 0.5f : 0.0f)
                            : centre + float(random.number(0, 999)) / 1000;
}

template <class M>
std::string wrongCopy(const M& member, Random& random, QoriSize size) {
  using S = typename M::Src;
  using D = typename M::Dst;
  AnyImage<S> src(random, {size.width + 1, size.height + 1});
  AnyImage<D> dst(random, size);
  src.fill([&] { return random.value<S>(); });
  const float dx = anyShift(random), dy = anyShift(random), f = fractionOf(dx), g = fractionOf(dy);
  const int32_t scaleFactor = member.scaled ? anyScale(random) : 0;
  if (member.copy(src.data(), src.step(), dst.data(), dst.step(), size, scaleFactor, dx, dy) != qorStatusOk) {
    return "status";
  }
  if (!dst.gapsIntact()) return "wrote outside the region";
  const std::string what = difference(dst, [&](int32_t x, int32_t y, int32_t) -> D {
    if constexpr (std::is_same_v<D, float> && !std::is_same_v<S, float>) {
      // A column's sum, weighed as a right neighbour; for its own pixel scaled from there.
      const float right = f > 1e-6f ? f : 1e-6f;
      const auto column = [&](int32_t c) {
        return float(src.get(c, y)) * (right * (1 - g)) + float(src.get(c, y + 1)) * (right * g);
      };
      const float value = column(x) * ((1 - right) / right) + column(x + 1);
      const float plain =
          between<S, float>(f, g, {src.get(x, y), src.get(x + 1, y), src.get(x, y + 1), src.get(x + 1, y + 1)}, 0);
      EXPECT_NEAR(value, plain, (sizeof(S) == 1 ? 255 : 65535) * 3e-6);
      return value;
    } else {
      return between<S, D>(f, g, {src.get(x, y), src.get(x + 1, y), src.get(x, y + 1), src.get(x + 1, y + 1)},
                           std::max(-60, std::min(60, scaleFactor)));
    }
  });
  return what.empty()
             ? ""
             : what + " at " + std::to_string(dx) + ", " + std::to_string(dy) + " scale " + std::to_string(scaleFactor);
}

template <class M>
std::string wrongWindow(const M& member, Random& random, QoriSize srcSize, QoriSize dstSize, QoriPoint_32f point) {
  using S = typename M::Src;
  using D = typename M::Dst;
  AnyImage<S> src(random, srcSize);
  AnyImage<D> dst(random, dstSize);
  src.fill([&] { return random.value<S>(); });
  const int32_t scaleFactor = member.scaled ? anyScale(random) : 0;
  QoriPoint min = {-99, -99}, max = {-99, -99};
  if (member.intersect(src.data(), src.step(), srcSize, dst.data(), dst.step(), dstSize, point, &min, &max,
                       scaleFactor) != qorStatusOk) {
    return "status";
  }
  if (!dst.gapsIntact()) return "wrote outside the region";
  const Axis h = axisOf(point.x, dstSize.width, srcSize.width), v = axisOf(point.y, dstSize.height, srcSize.height);
  std::string what;
  if (min.x != h.min || min.y != v.min || max.x != h.max || max.y != v.max) what = "rectangle";
  if (what.empty()) {
    what = difference(dst, [&](int32_t x, int32_t y, int32_t) {
      return windowPixel<S, D>(src, h, v, x, y, std::max(-60, std::min(60, scaleFactor)));
    });
  }
  return what.empty() ? ""
                      : what + " about " + std::to_string(point.x) + ", " + std::to_string(point.y) + " in " +
                            std::to_string(srcSize.width) + "x" + std::to_string(srcSize.height) + " scale " +
                            std::to_string(scaleFactor);
}

// A window of 5 by 3 about a point of an 8-bit image of 4 by 4 pixels that hold 10 * row + column.
struct Small {
  Image<uint8_t> src{4, 4}, dst{5, 3};
  QoriPoint min, max;
  explicit Small(QoriPoint_32f point) {
    for (int32_t y = 0; y < 4; ++y) {
      for (int32_t x = 0; x < 4; ++x) src.set(x, y, uint8_t(10 * y + x));
    }
    EXPECT_EQ(qoriCopySubpixIntersect_8u_C1R(src.data(), src.step(), {4, 4}, dst.data(), dst.step(), {5, 3}, point,
                                             &min, &max),
              qorStatusOk);
  }
  std::vector<int> row(int32_t y) const {
    std::vector<int> values;
    for (int32_t x = 0; x < 5; ++x) values.push_back(dst.get(x, y));
    return values;
  }
};

}  // namespace

class Subpix : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::allocations(), 0);
    services::reset();
  }
};

TEST_F(Subpix, regionsMatchTheModel) {
  Random random(1);
  forMembers([&](const auto& member) {
    for (int i = 0; i < 250; ++i) {
      ASSERT_EQ(wrongCopy(member, random, {random.width(140), int32_t(random.number(1, 6))}), "");
    }
    ASSERT_EQ(wrongCopy(member, random, {701, 33}), "");
  });
}

TEST_F(Subpix, windowsMatchTheModel) {
  Random random(2);
  forMembers([&](const auto& member) {
    for (int i = 0; i < 700; ++i) {
      const QoriSize srcSize = {int32_t(random.chance(0.3) ? random.number(1, 4) : random.number(1, 90)),
                                int32_t(random.chance(0.3) ? random.number(1, 4) : random.number(1, 40))};
      const QoriSize dstSize = {int32_t(random.chance(0.5) ? random.number(1, 25) : random.number(1, 90)),
                                int32_t(random.number(1, 25))};
      const QoriPoint_32f point = {anyCentre(random, srcSize.width), anyCentre(random, srcSize.height)};
      ASSERT_EQ(wrongWindow(member, random, srcSize, dstSize, point), "");
    }
  });
}

TEST_F(Subpix, aFractionOfZeroCopiesIntegers) {
  Random random(3);
  AnyImage<uint8_t> src(random, {40, 5}), dst(random, {39, 4});
  src.fill([&] { return random.value<uint8_t>(); });
  for (const float shift : {0.0f, -0.0f, 3.0f, -2.0f}) {
    ASSERT_EQ(qoriCopySubpix_8u_C1R(src.data(), src.step(), dst.data(), dst.step(), {39, 4}, shift, shift),
              qorStatusOk);
    ASSERT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t) { return src.get(x, y); }), "");
  }
}

TEST_F(Subpix, aNegativeFractionIsRaisedByOne) {
  Image<float> src(4, 2), dst(3, 1), other(3, 1);
  for (int32_t x = 0; x < 4; ++x) {
    src.set(x, 0, float(x * x));
    src.set(x, 1, float(x * x));
  }
  ASSERT_EQ(qoriCopySubpix_32f_C1R(src.data(), src.step(), dst.data(), dst.step(), {3, 1}, -0.25f, 0), qorStatusOk);
  for (int32_t x = 0; x < 3; ++x) EXPECT_EQ(dst.get(x, 0), 0.25f * float(x * x) + 0.75f * float((x + 1) * (x + 1)));
  ASSERT_EQ(qoriCopySubpix_32f_C1R(src.data(), src.step(), other.data(), other.step(), {3, 1}, 2.75f, 0), qorStatusOk);
  EXPECT_EQ(difference(other, [&](int32_t x, int32_t y, int32_t) { return dst.get(x, y); }), "");
}

TEST_F(Subpix, aWindowLeftOfTheImageRepeatsTheFirstColumn) {
  const Small window({-40, 1});
  EXPECT_EQ(window.min.x, 5);
  EXPECT_EQ(window.max.x, 4);
  EXPECT_EQ(window.row(0), std::vector<int>({0, 0, 0, 0, 0}));
  EXPECT_EQ(window.row(2), std::vector<int>({20, 20, 20, 20, 20}));
}

TEST_F(Subpix, aWindowRightOfTheImageRepeatsTheLastColumn) {
  const Small window({40, 1});
  EXPECT_EQ(window.min.x, 0);
  EXPECT_EQ(window.max.x, -1);
  EXPECT_EQ(window.row(1), std::vector<int>({13, 13, 13, 13, 13}));
}

TEST_F(Subpix, aWindowAboveOrBelowRepeatsARow) {
  const Small above({1.5f, -40}), below({1.5f, 40});
  EXPECT_EQ(above.min.y, 3);
  EXPECT_EQ(above.max.y, 2);
  EXPECT_EQ(below.min.y, 0);
  EXPECT_EQ(below.max.y, -1);
  // Columns -0.5 to 3.5: before the image, three between its columns, past it. Halves are rounded up.
  EXPECT_EQ(above.row(1), std::vector<int>({0, 1, 2, 3, 3}));
  EXPECT_EQ(below.row(1), std::vector<int>({30, 31, 32, 33, 33}));
}

// Whatever the position: nothing outside the images is touched (they lie against unmapped pages).
TEST_F(Subpix, anyPositionIsSafe) {
  Random random(4);
  forMembers([&](const auto& member) {
    using S = typename std::decay_t<decltype(member)>::Src;
    using D = typename std::decay_t<decltype(member)>::Dst;
    for (int i = 0; i < 300; ++i) {
      AnyImage<S> src(random, {int32_t(random.number(1, 30)), int32_t(random.number(1, 30))});
      AnyImage<D> dst(random, {int32_t(random.number(1, 30)), int32_t(random.number(1, 30))});
      const QoriPoint_32f point = {random.anyFloat(), random.chance(0.5) ? random.anyFloat() : 5.5f};
      QoriPoint min, max;
      ASSERT_EQ(member.intersect(src.data(), src.step(), src.size(), dst.data(), dst.step(), dst.size(), point, &min,
                                 &max, -7),
                qorStatusOk);
      ASSERT_TRUE(dst.gapsIntact());
      ASSERT_TRUE(min.x >= 0 && min.x <= dst.width() && max.x >= -1 && max.x < dst.width());
      AnyImage<S> larger(random, {dst.width() + 1, dst.height() + 1});
      ASSERT_EQ(member.copy(larger.data(), larger.step(), dst.data(), dst.step(), dst.size(), random.value<int32_t>(),
                            random.anyFloat(), random.anyFloat()),
                qorStatusOk);
      ASSERT_TRUE(dst.gapsIntact());
    }
  });
}

TEST_F(Subpix, statuses) {
  forMembers([&](const auto& member) {
    using S = typename std::decay_t<decltype(member)>::Src;
    using D = typename std::decay_t<decltype(member)>::Dst;
    struct Arguments {
      const S* src;
      int32_t srcStep;
      QoriSize srcSize;
      D* dst;
      int32_t dstStep;
      QoriSize dstSize;
      QoriPoint *min, *max;
    };
    using F = Fault<Arguments>;
    Image<S> src(9, 9);
    Image<D> dst(8, 8);
    QoriPoint min = {7, 7}, max = {7, 7};
    const Arguments good = {src.data(), src.step(), src.size(), dst.data(), dst.step(), dst.size(), &min, &max};
    const F nullSrc = {"src", qorStatusNullPtr, [](Arguments& a) { a.src = nullptr; }};
    const F nullDst = {"dst", qorStatusNullPtr, [](Arguments& a) { a.dst = nullptr; }};
    const F narrow = {"dstSize", qorStatusBadSize, [](Arguments& a) { a.dstSize.width = 0; }};
    const F low = {"dstSize", qorStatusBadSize, [](Arguments& a) { a.dstSize.height = -1; }};
    const F shortDst = {"dstStep", qorStatusBadStep,
                        [](Arguments& a) { a.dstStep = a.dstSize.width * int32_t(sizeof(D)) - 1; }};
    std::vector<F> forCopy = {
        nullSrc,
        nullDst,
        narrow,
        low,
        {"srcStep", qorStatusBadStep, [](Arguments& a) { a.srcStep = a.dstSize.width * int32_t(sizeof(S)) - 1; }},
        shortDst};
    std::vector<F> forWindow = {
        nullSrc,
        nullDst,
        {"min", qorStatusNullPtr, [](Arguments& a) { a.min = nullptr; }},
        {"max", qorStatusNullPtr, [](Arguments& a) { a.max = nullptr; }},
        {"srcSize", qorStatusBadSize, [](Arguments& a) { a.srcSize.width = 0; }},
        {"srcSize", qorStatusBadSize, [](Arguments& a) { a.srcSize.height = 0; }},
        narrow,
        low,
        {"srcStep", qorStatusBadStep, [](Arguments& a) { a.srcStep = a.srcSize.width * int32_t(sizeof(S)) - 1; }},
        shortDst};
    for (auto* faults : {&forCopy, &forWindow}) {
      if (sizeof(S) > 1) faults->push_back({"srcStep", qorStatusBadStepAlign, [](Arguments& a) { a.srcStep += 1; }});
      if (sizeof(D) > 1) faults->push_back({"dstStep", qorStatusBadStepAlign, [](Arguments& a) { a.dstStep += 1; }});
    }
    const auto written = [&] {
      std::vector<uint8_t> bytes = dst.bytes();
      for (const QoriPoint& p : {min, max}) {
        const auto* first = reinterpret_cast<const uint8_t*>(&p);
        bytes.insert(bytes.end(), first, first + sizeof p);
      }
      return bytes;
    };
    expectStatuses<Arguments>(
        good, forCopy,
        [&](const Arguments& a) { return member.copy(a.src, a.srcStep, a.dst, a.dstStep, a.dstSize, 0, 0.5f, 0.5f); },
        written);
    expectStatuses<Arguments>(
        good, forWindow,
        [&](const Arguments& a) {
          return member.intersect(a.src, a.srcStep, a.srcSize, a.dst, a.dstStep, a.dstSize, {4.3f, 4.6f}, a.min, a.max,
                                  0);
        },
        written);
  });
}
