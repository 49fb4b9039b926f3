// The fast arctangent: against its formula in plain steps, and against the true direction.
#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>

#include "support/memory.h"
#include "support/random.h"
#include "support/statuses.h"

namespace {

bool same(float a, float b) { return (a != a && b != b) || memcmp(&a, &b, sizeof a) == 0; }

struct Reduced {
  float numerator, denominator;
  double offset;
};

uint32_t bitsOf(float f) {
  uint32_t bits;
  memcpy(&bits, &f, sizeof bits);
  return bits;
}

Reduced reduced(float y, float x) {
  static const double offsets[8] = {-0.14050041139125824, 90.1405029296875,  180.1405029296875, 89.8594970703125,
                                    360.1405029296875,    269.8594970703125, 179.8594970703125, 270.1405029296875};
  static const bool negative[8] = {false, true, true, false, true, false, false, true};
  const uint32_t ay = bitsOf(y) & 0x7fffffff, ax = bitsOf(x) & 0x7fffffff;
  const bool swap = ay > ax;
  const int index = ay == 0 && ax == 0 ? 0 : 4 * (bitsOf(y) >> 31) + 2 * (bitsOf(x) >> 31) + (swap ? 1 : 0);
  const uint32_t larger = swap ? ay : ax;
  uint32_t smaller = swap ? ax : ay;
  if (negative[index]) smaller |= 0x80000000;
  Reduced r;
  memcpy(&r.numerator, &smaller, 4);
  memcpy(&r.denominator, &larger, 4);
  if (larger == 0) r.denominator = 1.0f;
  r.offset = double(float(offsets[index]));
  return r;
}

float product(float a, float b) {
  const volatile float p = a * b;
  return p;
}

std::vector<float> model(const std::vector<float>& y, const std::vector<float>& x) {
  std::vector<float> degrees;
  for (size_t first = 0; first < y.size(); first += 4) {
    Reduced r[4];
    for (size_t i = 0; i < 4; ++i) {
      const bool inside = first + i < y.size();
      r[i] = reduced(inside ? y[first + i] : 1.0f, inside ? x[first + i] : 1.0f);
    }
    const float d01 = product(r[0].denominator, r[1].denominator), d23 = product(r[2].denominator, r[3].denominator);
    const double inverse = 1.0 / (double(d01) * double(d23));
    for (size_t i = 0; i < 4 && first + i < y.size(); ++i) {
      const float t =
          float(double(product(r[i].numerator, r[i ^ 1].denominator)) * double(i < 2 ? d23 : d01) * inverse);
      const double u = double(t);
      degrees.push_back(float((fabs(u) * -15.813189506530762 + 61.09419631958008) * u + r[i].offset));
    }
  }
  return degrees;
}

// Memory for n floats against an unmapped page; at an odd address where `shift` is 1.
struct Floats {
  GuardedMemory memory;
  float* data;
  Floats(size_t n, Edge edge, size_t shift)
      : memory(n * 4 + shift, edge), data(reinterpret_cast<float*>(memory.data() + (edge == Edge::begin ? shift : 0))) {
    memset(memory.data(), 0x5a, memory.size());
  }
  float get(size_t i) const {
    float f;
    memcpy(&f, reinterpret_cast<const uint8_t*>(data) + 4 * i, 4);
    return f;
  }
};

std::vector<float> computed(const std::vector<float>& y, const std::vector<float>& x, Edge edge, size_t shift) {
  Floats srcY(y.size(), edge, shift), srcX(x.size(), edge, shift), dst(y.size(), edge, shift);
  memcpy(srcY.data, y.data(), y.size() * 4);
  memcpy(srcX.data, x.data(), x.size() * 4);
  EXPECT_EQ(qoribFastArctan_32f(srcY.data, srcX.data, dst.data, int32_t(y.size())), qorStatusOk);
  EXPECT_TRUE(dst.memory.patternIntact());
  if (shift) {
    EXPECT_EQ(dst.memory.data()[edge == Edge::begin ? 0 : dst.memory.size() - 1], 0x5a);
  }
  std::vector<float> degrees;
  for (size_t i = 0; i < y.size(); ++i) degrees.push_back(dst.get(i));
  return degrees;
}

void expectModel(const std::vector<float>& y, const std::vector<float>& x, Edge edge = Edge::end, size_t shift = 0) {
  const std::vector<float> is = computed(y, x, edge, shift), should = model(y, x);
  for (size_t i = 0; i < y.size(); ++i) {
    ASSERT_TRUE(same(is[i], should[i])) << "element " << i << " of " << y.size() << ": " << is[i] << " instead of "
                                        << should[i] << " for y " << y[i] << ", x " << x[i];
  }
}

TEST(FastArctan, EveryLength) {
  Random random(1);
  for (int32_t n = 1; n <= 600; ++n) {
    std::vector<float> y, x;
    for (int32_t i = 0; i < n; ++i) {
      y.push_back(random.value<float>());
      x.push_back(random.value<float>());
    }
    expectModel(y, x, n % 2 ? Edge::begin : Edge::end, size_t(n) / 2 % 2);
  }
}

TEST(FastArctan, AnyBits) {
  Random random(2);
  for (int32_t round = 0; round < 200; ++round) {
    std::vector<float> y, x;
    for (int32_t n = int32_t(random.number(1, 700)); n > 0; --n) {
      // Small integers give ties and zeros; now and then a float of any bits spoils a group.
      const bool any = random.chance(round % 2 ? 0.02 : 0.5);
      y.push_back(any ? random.anyFloat() : float(random.number(-3, 3)));
      x.push_back(any && random.chance(0.5) ? random.anyFloat() : float(random.number(-3, 3)));
      if (random.chance(0.1)) y.back() = -y.back();  // zeros of both signs
    }
    expectModel(y, x);
  }
}

TEST(FastArctan, NearTheTrueDirection) {
  constexpr int32_t steps = 36000;
  std::vector<float> y, x;
  for (int32_t i = 0; i < steps; ++i) {
    const double angle = (i + 0.5) * 2 * 3.14159265358979323846 / steps;
    y.push_back(float(7 * sin(angle)));
    x.push_back(float(7 * cos(angle)));
  }
  const std::vector<float> is = computed(y, x, Edge::end, 0);
  double furthest = 0;
  for (int32_t i = 0; i < steps; ++i) {
    furthest = std::max(furthest, fabs(double(is[size_t(i)]) - (i + 0.5) * 360 / steps));
  }
  EXPECT_LT(furthest, 0.145);
  EXPECT_GT(furthest, 0.135);
}

TEST(FastArctan, EightOctantsAndAxes) {
  const std::vector<float> y = {0, 1, 2, 1, 0, -1, -2, -1, 1, 0, -1, 0}, x = {0, 2, 1, -2, -1, -2, 1, 2, 0, 1, 0, -1};
  const std::vector<float> is = computed(y, x, Edge::end, 0);
  const double right[12] = {0, 26.565, 63.435, 153.435, 180, 206.565, 296.565, 333.435, 90, 0, 270, 180};
  EXPECT_EQ(is[0], -0.14050041139125824f);
  for (size_t i = 0; i < 12; ++i) EXPECT_NEAR(is[i], right[i], 0.145) << i;
}

// Both coordinates zero count as the first octant, whatever their signs.
TEST(FastArctan, ZerosOfAllSigns) {
  const std::vector<float> is =
      computed({0.0f, -0.0f, 0.0f, -0.0f, -0.0f}, {0.0f, 0.0f, -0.0f, -0.0f, -0.0f}, Edge::end, 0);
  for (const float degrees : is) EXPECT_EQ(degrees, -0.14050041139125824f);
}

// Four denominators share a division: a huge one spoils its group and no other.
TEST(FastArctan, HugeValueSpoilsItsGroup) {
  std::vector<float> y(40, 1.0f), x(40, 2.0f);
  x[5] = x[6] = 1e30f;
  x[4] = x[7] = 1e30f;
  const std::vector<float> is = computed(y, x, Edge::end, 0);
  for (size_t i = 0; i < 40; ++i) EXPECT_EQ(is[i] != is[i], i / 4 == 1) << i;
}

struct Args {
  const float *srcY, *srcX;
  float* dst;
  int32_t length;
};

TEST(FastArctan, Statuses) {
  std::vector<float> y(9, 1), x(9, 2), dst(9, 3);
  expectStatuses<Args>(
      {y.data(), x.data(), dst.data(), 9},
      {{"srcY", qorStatusNullPtr, [](Args& a) { a.srcY = nullptr; }},
       {"srcX", qorStatusNullPtr, [](Args& a) { a.srcX = nullptr; }},
       {"dst", qorStatusNullPtr, [](Args& a) { a.dst = nullptr; }},
       {"length", qorStatusBadSize, [](Args& a) { a.length = 0; }},
       {"length", qorStatusBadSize, [](Args& a) { a.length = INT32_MIN; }}},
      [](const Args& a) { return qoribFastArctan_32f(a.srcY, a.srcX, a.dst, a.length); },
      [&] {
        const uint8_t* bytes = reinterpret_cast<const uint8_t*>(dst.data());
        return std::vector<uint8_t>(bytes, bytes + 36);
      });
}

}  // namespace
