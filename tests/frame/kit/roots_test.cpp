// The two square roots and their warning.
#include <gtest/gtest.h>
#include <math.h>

#include "frame/kit/vector_cases.h"
#include "frame/kit/vectors.h"
#include "support/random.h"

namespace {

constexpr QorStatus warning = 3;

float floatOf(uint32_t bits) {
  float f;
  memcpy(&f, &bits, sizeof f);
  return f;
}

uint32_t bitsOf(float f) {
  uint32_t bits;
  memcpy(&bits, &f, sizeof bits);
  return bits;
}

bool isNan(uint32_t bits) { return (bits & 0x7fffffff) > 0x7f800000; }
bool isNegative(uint32_t bits) { return !isNan(bits) && bits > 0x80000000; }

// Whether `is` may stand where `was` stood.
bool rightRoot(uint32_t was, uint32_t is) {
  if (isNan(was) || (was & 0x7fffffff) == 0) return is == was;
  if (isNegative(was)) return isNan(is);
  volatile double root = sqrt(double(floatOf(was)));
  return is == bitsOf(float(root));
}

QorStatus rootsInPlace(Vector<uint32_t>& data, int32_t len) {
  return qorsSqrt_32f_I(reinterpret_cast<float*>(data.data()), len);
}

TEST(KitSqrt32f, BitPatternsOfAllKinds) {
  const uint32_t stride = 1009;
  const int32_t len = 65536;
  Vector<uint32_t> data(len);
  for (uint64_t first = 0; first < uint64_t(1) << 32; first += uint64_t(len) * stride) {
    const auto was = [&](int32_t i) { return uint32_t(first + uint64_t(i) * stride); };
    bool negative = false;
    for (int32_t i = 0; i < len; ++i) {
      data.set(i, 0, was(i));
      negative = negative || isNegative(was(i));
    }
    ASSERT_EQ(rootsInPlace(data, len), negative ? warning : qorStatusOk);
    for (int32_t i = 0; i < len; ++i) ASSERT_TRUE(rightRoot(was(i), data[i])) << std::hex << was(i) << " " << data[i];
  }
}

TEST(KitSqrt32f, SpecialValues) {
  const uint32_t special[] = {0x00000000, 0x80000000, 0x3f800000, 0x7f800000, 0x00000001, 0x007fffff, 0x7f7fffff,
                              0x7fc00000, 0xffc00000, 0x7f800001, 0xff800001, 0x40000000, 0x00800000};
  for (const uint32_t bits : special) {
    for (const int32_t len : {1, 3, 16, 37}) {
      Vector<uint32_t> data(len);
      data.fill([&] { return bits; });
      EXPECT_EQ(rootsInPlace(data, len), qorStatusOk) << std::hex << bits;
      for (int32_t i = 0; i < len; ++i) EXPECT_TRUE(rightRoot(bits, data[i])) << std::hex << bits << " " << data[i];
    }
  }
  for (const uint32_t bits : {0x80000001u, 0xbf800000u, 0xff800000u, 0xff7fffffu}) {
    Vector<uint32_t> data(5);
    data.fill([&] { return bits; });
    EXPECT_EQ(rootsInPlace(data, 5), warning) << std::hex << bits;
    for (int32_t i = 0; i < 5; ++i) EXPECT_TRUE(isNan(data[i]));
  }
}

TEST(KitSqrt32f, OneNegativeElementAnywhereWarns) {
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    for (const int32_t place : {-1, 0, len / 2, len - 1}) {
      Vector<uint32_t> data(len, edge, shift);
      for (int32_t i = 0; i < len; ++i) data.set(i, 0, bitsOf(float(i)));
      if (place >= 0) data.set(place, 0, bitsOf(-4.0f));
      ASSERT_EQ(rootsInPlace(data, len), place >= 0 ? warning : qorStatusOk);
      for (int32_t i = 0; i < len; ++i) {
        if (i == place) {
          ASSERT_TRUE(isNan(data[i]));
        } else {
          ASSERT_TRUE(rightRoot(bitsOf(float(i)), data[i])) << i;
        }
      }
      ASSERT_TRUE(data.gapsIntact());
    }
  });
}

TEST(KitSqrt32f, Statuses) {
  Vector<float> data(9);
  data.fill([] { return 2.0f; });
  expectVectorStatuses(
      1, 9, [&](const VectorArgs& a) { return qorsSqrt_32f_I(a.pointer(0, data.data()), a.len); },
      [&] { return data.bytes(); });
}

int32_t model(int32_t x, int32_t scaleFactor) {
  if (x < 0) return 0;
  if (scaleFactor >= 17) return 0;
  if (scaleFactor <= -15) return x != 0 ? 32767 : 0;
  if (scaleFactor == 0) return x >= 1073676290 ? 32767 : int32_t(trunc(sqrt(double(x)) + 0.5));
  if (scaleFactor < 0) {
    const double s = ldexp(1.0, -scaleFactor);
    return double(x) * s * s > 1073676289.0 ? 32767 : int32_t(trunc(sqrt(double(x) * s * s) + 0.5));
  }
  const double t = sqrt(double(x)) / ldexp(1.0, scaleFactor) + 0.5;
  int32_t result = int32_t(trunc(t));
  if (result % 2 == 1 && double(result) == t) result -= 1;
  return result;
}

// Where results change: around the squares and around the squares of halves, and at the ends.
std::vector<int32_t> tellingNumbers() {
  std::vector<int32_t> numbers;
  for (int64_t k = 0; k <= 46341; ++k) {
    for (int64_t x : {k * k - 1, k * k, k * k + 1, k * k + k, k * k + k + 1}) {
      if (x >= 0 && x <= std::numeric_limits<int32_t>::max()) numbers.push_back(int32_t(x));
    }
  }
  Random random(8);
  for (int32_t i = 0; i < 20000; ++i) {
    numbers.push_back(int32_t(random.number(0, std::numeric_limits<int32_t>::max())));
    numbers.push_back(i);
  }
  for (int32_t near = -3; near <= 3; ++near) numbers.push_back(1073676289 + near);
  for (int32_t below = 0; below < 4; ++below) numbers.push_back(std::numeric_limits<int32_t>::max() - below);
  for (int32_t doublings = 1; doublings <= 15; ++doublings) {  // where scaled-up roots reach the limit
    for (int32_t near = -1; near <= 1; ++near) numbers.push_back(std::max(0, (1073676289 >> (2 * doublings)) + near));
  }
  return numbers;
}

std::vector<int32_t> scaleFactors() {
  std::vector<int32_t> factors = {std::numeric_limits<int32_t>::min(), -1000, 1000,
                                  std::numeric_limits<int32_t>::max()};
  for (int32_t s = -40; s <= 40; ++s) factors.push_back(s);
  return factors;
}

TEST(KitSqrt32s16s, TellingNumbersAtAllScales) {
  const std::vector<int32_t> src = tellingNumbers();
  std::vector<int16_t> dst(src.size());
  for (const int32_t scaleFactor : scaleFactors()) {
    ASSERT_EQ(qorsSqrt_32s16s_Sfs(src.data(), dst.data(), int32_t(src.size()), scaleFactor), qorStatusOk);
    for (size_t i = 0; i < src.size(); ++i) {
      ASSERT_EQ(dst[i], model(src[i], scaleFactor)) << src[i] << " at scale " << scaleFactor;
    }
  }
}

TEST(KitSqrt32s16s, Boundaries) {
  const int32_t src[] = {1073676288, 1073676289, 1073676290, 2147483647, 0, 1, 2, 3, 6, 7};
  const int16_t expected[] = {32767, 32767, 32767, 32767, 0, 1, 1, 2, 2, 3};
  int16_t dst[10];
  ASSERT_EQ(qorsSqrt_32s16s_Sfs(src, dst, 10, 0), qorStatusOk);
  for (int32_t i = 0; i < 10; ++i) EXPECT_EQ(dst[i], expected[i]) << src[i];
}

// Roots 1, 3, 5 and 7, halved: a tie goes to the even neighbour.
TEST(KitSqrt32s16s, TiesGoToEven) {
  const int32_t src[] = {1, 9, 25, 49};
  const int16_t expected[] = {0, 2, 2, 4};
  int16_t dst[4];
  ASSERT_EQ(qorsSqrt_32s16s_Sfs(src, dst, 4, 1), qorStatusOk);
  for (int32_t i = 0; i < 4; ++i) EXPECT_EQ(dst[i], expected[i]) << src[i];
}

TEST(KitSqrt32s16s, OneNegativeElementAnywhereWarnsAtAnyScale) {
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    for (const int32_t scaleFactor : {0, -1, -14, -15, -16, 1, 16, 17, 40}) {
      for (const int32_t place : {-1, 0, len / 2, len - 1}) {
        Vector<int32_t> src(len, edge, shift);
        Vector<int16_t> dst(len, edge, shift);
        for (int32_t i = 0; i < len; ++i) src.set(i, 0, i * 977);
        if (place >= 0) src.set(place, 0, place % 2 ? -1 : std::numeric_limits<int32_t>::min());
        const auto before = src.bytes();
        ASSERT_EQ(qorsSqrt_32s16s_Sfs(src.data(), dst.data(), len, scaleFactor), place >= 0 ? warning : qorStatusOk);
        ASSERT_EQ(difference(dst, [&](int32_t x, int32_t, int32_t) { return int16_t(model(src[x], scaleFactor)); }),
                  "");
        ASSERT_TRUE(dst.gapsIntact());
        ASSERT_TRUE(src.bytes() == before);
      }
    }
  });
}

TEST(KitSqrt32s16s, Statuses) {
  Vector<int32_t> src(9);
  Vector<int16_t> dst(9);
  src.fill([] { return 100; });
  for (const int32_t scaleFactor : {0, -20, 2, 17}) {
    expectVectorStatuses(
        2, 9,
        [&](const VectorArgs& a) {
          return qorsSqrt_32s16s_Sfs(a.pointer(0, src.data()), a.pointer(1, dst.data()), a.len, scaleFactor);
        },
        [&] { return dst.bytes(); });
  }
}

}  // namespace
