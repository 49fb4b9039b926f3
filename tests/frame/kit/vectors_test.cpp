// Copies, fills, conversion, extremes and products of vectors.
#include "frame/kit/vectors.h"

#include <gtest/gtest.h>

#include "frame/kit/vector_cases.h"
#include "support/random.h"

namespace {

const float nan = std::numeric_limits<float>::quiet_NaN();
const float infinity = std::numeric_limits<float>::infinity();

uint32_t bitsOf(float value) {
  uint32_t bits;
  memcpy(&bits, &value, sizeof bits);
  return bits;
}

template <class T>
T anyValue(Random& random) {
  if constexpr (std::is_same_v<T, float>) {
    return random.anyFloat();
  } else {
    return random.value<T>();
  }
}

template <class T>
void expectCopy(QorStatus (*copy)(const T*, T*, int32_t)) {
  Random random(1);
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    Vector<T> src(len, edge, shift), dst(len, edge, shift);
    src.fill([&] { return anyValue<T>(random); });
    const auto before = src.bytes();
    ASSERT_EQ(copy(src.data(), dst.data(), len), qorStatusOk);
    ASSERT_TRUE(src.bytes() == before);
    ASSERT_TRUE(dst.bytes() == before) << len;
    ASSERT_TRUE(dst.gapsIntact());
  });
  Vector<T> src(9), dst(9);
  src.fill([&] { return anyValue<T>(random); });
  expectVectorStatuses(
      2, 9, [&](const VectorArgs& a) { return copy(a.pointer(0, src.data()), a.pointer(1, dst.data()), a.len); },
      [&] { return dst.bytes(); });
}

TEST(KitVectors, Copy) {
  expectCopy(qorsCopy_8u);
  expectCopy(qorsCopy_32f);
}

// A float copy must not go through arithmetic: signalling NaN stay signalling.
TEST(KitVectors, CopyKeepsSignallingNan) {
  Vector<uint32_t> src(37), dst(37);
  for (int32_t i = 0; i < 37; ++i) src.set(i, 0, 0x7f800001u + uint32_t(i));
  ASSERT_EQ(qorsCopy_32f(reinterpret_cast<float*>(src.data()), reinterpret_cast<float*>(dst.data()), 37), qorStatusOk);
  EXPECT_TRUE(src.bytes() == dst.bytes());
}

template <class T>
void expectSet(QorStatus (*set)(T, T*, int32_t)) {
  Random random(2);
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    Vector<T> dst(len, edge, shift);
    const T value = anyValue<T>(random);
    ASSERT_EQ(set(value, dst.data(), len), qorStatusOk);
    ASSERT_EQ(difference(dst, [&](int32_t, int32_t, int32_t) { return value; }), "");
    ASSERT_TRUE(dst.gapsIntact());
  });
  Vector<T> dst(9);
  expectVectorStatuses(
      1, 9, [&](const VectorArgs& a) { return set(T(7), a.pointer(0, dst.data()), a.len); },
      [&] { return dst.bytes(); });
}

TEST(KitVectors, Set) {
  expectSet(qorsSet_8u);
  expectSet(qorsSet_32s);
  expectSet(qorsSet_32f);
}

template <class T>
void expectZero(QorStatus (*zero)(T*, int32_t)) {
  Random random(3);
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    Vector<T> dst(len, edge, shift);
    dst.fill([&] { return anyValue<T>(random); });
    ASSERT_EQ(zero(dst.data(), len), qorStatusOk);
    ASSERT_EQ(difference(dst, [&](int32_t, int32_t, int32_t) { return T(0); }), "");
    ASSERT_TRUE(dst.gapsIntact());
  });
  Vector<T> dst(9);
  dst.fill([] { return T(1); });
  expectVectorStatuses(
      1, 9, [&](const VectorArgs& a) { return zero(a.pointer(0, dst.data()), a.len); }, [&] { return dst.bytes(); });
}

TEST(KitVectors, Zero) {
  expectZero(qorsZero_8u);
  expectZero(qorsZero_16s);
  expectZero(qorsZero_32s);
  expectZero(qorsZero_32f);
}

TEST(KitVectors, BareLoops) {
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    Vector<uint8_t> src(len, edge, shift), dst(len, edge, shift);
    for (int32_t i = 0; i < len; ++i) src.set(i, 0, uint8_t(i * 7 + 1));
    ownsCopy_8u(src.data(), dst.data(), len);
    ASSERT_TRUE(src.bytes() == dst.bytes());
    ownsSet_8u(0x93, dst.data(), len);
    ASSERT_EQ(difference(dst, [](int32_t, int32_t, int32_t) { return uint8_t(0x93); }), "");
    ownsZero_8u(dst.data(), len);
    ASSERT_EQ(difference(dst, [](int32_t, int32_t, int32_t) { return uint8_t(0); }), "");
    ASSERT_TRUE(dst.gapsIntact());
    Vector<int32_t> words(len, edge, shift);
    ownsSet_32s(-1234567, words.data(), len);
    ASSERT_EQ(difference(words, [](int32_t, int32_t, int32_t) { return -1234567; }), "");
    ASSERT_TRUE(words.gapsIntact());
  });
  // An empty loop touches nothing.
  ownsCopy_8u(nullptr, nullptr, 0);
  ownsSet_8u(1, nullptr, 0);
  ownsSet_32s(1, nullptr, 0);
  ownsZero_8u(nullptr, 0);
}

TEST(KitVectors, ConvertAll16u) {
  const int32_t len = 65536;
  for (const size_t shift : {size_t(0), size_t(1)}) {
    Vector<uint16_t> src(len, Edge::end, shift);
    Vector<float> dst(len, Edge::end, shift);
    for (int32_t i = 0; i < len; ++i) src.set(i, 0, uint16_t(i));
    ASSERT_EQ(qorsConvert_16u32f(src.data(), dst.data(), len), qorStatusOk);
    ASSERT_EQ(difference(dst, [](int32_t x, int32_t, int32_t) { return float(x); }), "");
  }
}

TEST(KitVectors, ConvertLengths) {
  Random random(4);
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    Vector<uint16_t> src(len, edge, shift);
    Vector<float> dst(len, edge, shift);
    src.fill([&] { return random.value<uint16_t>(); });
    ASSERT_EQ(qorsConvert_16u32f(src.data(), dst.data(), len), qorStatusOk);
    ASSERT_EQ(difference(dst, [&](int32_t x, int32_t, int32_t) { return float(src[x]); }), "");
    ASSERT_TRUE(dst.gapsIntact());
  });
  Vector<uint16_t> src(9);
  Vector<float> dst(9);
  src.fill([] { return uint16_t(5); });
  expectVectorStatuses(
      2, 9,
      [&](const VectorArgs& a) {
        return qorsConvert_16u32f(a.pointer(0, src.data()), a.pointer(1, dst.data()), a.len);
      },
      [&] { return dst.bytes(); });
}

template <class T>
T greater(T a, T b) {
  return a > b ? a : b;
}
template <class T>
T smaller(T a, T b) {
  return a < b ? a : b;
}

// The three-pointer form, also with dst as either source.
template <class T>
void expectExtremes(QorStatus (*extremes)(const T*, const T*, T*, int32_t), T (*model)(T, T)) {
  Random random(5);
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    for (int32_t into = 0; into < 3; ++into) {
      Vector<T> a(len, edge, shift), b(len, edge, shift), c(len, edge, shift);
      a.fill([&] { return anyValue<T>(random); });
      b.fill([&] { return random.chance(0.2) ? T(1) : anyValue<T>(random); });
      std::vector<T> expected;
      for (int32_t i = 0; i < len; ++i) expected.push_back(model(a[i], b[i]));
      Vector<T>& dst = into == 0 ? a : into == 1 ? b : c;
      ASSERT_EQ(extremes(a.data(), b.data(), dst.data(), len), qorStatusOk);
      ASSERT_EQ(difference(dst, [&](int32_t x, int32_t, int32_t) { return expected[size_t(x)]; }), "") << into;
      ASSERT_TRUE(dst.gapsIntact());
    }
  });
  // Nothing is checked: no length, no pointer.
  EXPECT_EQ(extremes(nullptr, nullptr, nullptr, 0), qorStatusOk);
  EXPECT_EQ(extremes(nullptr, nullptr, nullptr, -3), qorStatusOk);
}

TEST(KitVectors, MaxAndMinEvery) {
  expectExtremes<uint8_t>(qorsMaxEvery_8u, greater);
  expectExtremes<float>(qorsMaxEvery_32f, greater);
  expectExtremes<uint8_t>(qorsMinEvery_8u, smaller);
  expectExtremes<float>(qorsMinEvery_32f, smaller);
}

// srcDst[i] stays unless the source is strictly beyond it.
template <class T>
void expectExtremesInPlace(QorStatus (*extremes)(const T*, T*, int32_t), T (*model)(T, T)) {
  Random random(6);
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    Vector<T> src(len, edge, shift), srcDst(len, edge, shift);
    src.fill([&] { return anyValue<T>(random); });
    srcDst.fill([&] { return random.chance(0.2) ? T(1) : anyValue<T>(random); });
    std::vector<T> expected;
    for (int32_t i = 0; i < len; ++i) expected.push_back(model(src[i], srcDst[i]));
    const auto before = src.bytes();
    ASSERT_EQ(extremes(src.data(), srcDst.data(), len), qorStatusOk);
    ASSERT_EQ(difference(srcDst, [&](int32_t x, int32_t, int32_t) { return expected[size_t(x)]; }), "");
    ASSERT_TRUE(src.bytes() == before);
    ASSERT_TRUE(srcDst.gapsIntact());
  });
  Vector<T> src(9), srcDst(9);
  src.fill([&] { return random.value<T>(); });
  srcDst.fill([&] { return random.value<T>(); });
  expectVectorStatuses(
      2, 9, [&](const VectorArgs& a) { return extremes(a.pointer(0, src.data()), a.pointer(1, srcDst.data()), a.len); },
      [&] { return srcDst.bytes(); });
}

TEST(KitVectors, MaxAndMinEveryInPlace) {
  expectExtremesInPlace<uint8_t>(qorsMaxEvery_8u_I, greater);
  expectExtremesInPlace<float>(qorsMaxEvery_32f_I, greater);
  expectExtremesInPlace<uint8_t>(qorsMinEvery_8u_I, smaller);
  expectExtremesInPlace<float>(qorsMinEvery_32f_I, smaller);
}

struct ExtremeCase {
  float a, b, max, min;
};

// In the three-pointer form the second source is taken where the comparison fails: ties and NaN on either side.
const ExtremeCase extremeCases[] = {
    {nan, 1.0f, 1.0f, 1.0f},
    {1.0f, nan, nan, nan},
    {0.0f, -0.0f, -0.0f, -0.0f},
    {-0.0f, 0.0f, 0.0f, 0.0f},
    {2.0f, 1.0f, 2.0f, 1.0f},
    {1.0f, 2.0f, 2.0f, 1.0f},
    {infinity, nan, nan, nan},
    {nan, infinity, infinity, infinity},
    {-infinity, 5.0f, 5.0f, -infinity},
};

TEST(KitVectors, ExtremesOfNanAndZeros) {
  for (const ExtremeCase& c : extremeCases) {
    for (const int32_t len : {1, 4, 19, 64}) {
      Vector<float> a(len), b(len), dst(len), inPlace(len);
      a.fill([&] { return c.a; });
      b.fill([&] { return c.b; });
      ASSERT_EQ(qorsMaxEvery_32f(a.data(), b.data(), dst.data(), len), qorStatusOk);
      EXPECT_EQ(difference(dst, [&](int32_t, int32_t, int32_t) { return c.max; }), "") << c.a << " " << c.b;
      ASSERT_EQ(qorsMinEvery_32f(a.data(), b.data(), dst.data(), len), qorStatusOk);
      EXPECT_EQ(difference(dst, [&](int32_t, int32_t, int32_t) { return c.min; }), "") << c.a << " " << c.b;
      // In place the source is the first, srcDst the second.
      inPlace.fill([&] { return c.b; });
      ASSERT_EQ(qorsMaxEvery_32f_I(a.data(), inPlace.data(), len), qorStatusOk);
      EXPECT_EQ(difference(inPlace, [&](int32_t, int32_t, int32_t) { return c.max; }), "") << c.a << " " << c.b;
      inPlace.fill([&] { return c.b; });
      ASSERT_EQ(qorsMinEvery_32f_I(a.data(), inPlace.data(), len), qorStatusOk);
      EXPECT_EQ(difference(inPlace, [&](int32_t, int32_t, int32_t) { return c.min; }), "") << c.a << " " << c.b;
    }
  }
}

TEST(KitVectors, MulCFloat) {
  Random random(7);
  forEachVector([&](int32_t len, Edge edge, size_t shift) {
    for (const float value : {2.0f, -1.0f, 0.3f, 1.0f / 3, 1e30f, infinity, nan}) {
      Vector<float> srcDst(len, edge, shift);
      srcDst.fill([&] { return random.anyFloat(); });
      std::vector<float> expected;
      for (int32_t i = 0; i < len; ++i) expected.push_back(srcDst[i] * value);
      ASSERT_EQ(qorsMulC_32f_I(value, srcDst.data(), len), qorStatusOk);
      ASSERT_EQ(difference(srcDst, [&](int32_t x, int32_t, int32_t) { return expected[size_t(x)]; }), "") << value;
      ASSERT_TRUE(srcDst.gapsIntact());
    }
  });
  Vector<float> srcDst(9);
  srcDst.fill([] { return 3.0f; });
  for (const float value : {2.0f, 1.0f, 0.0f}) {
    expectVectorStatuses(
        1, 9, [&](const VectorArgs& a) { return qorsMulC_32f_I(value, a.pointer(0, srcDst.data()), a.len); },
        [&] { return srcDst.bytes(); });
  }
}

// A product with 1 would quieten a signalling NaN; the data are not touched.
TEST(KitVectors, MulCByOneTouchesNothing) {
  Vector<uint32_t> data(21);
  for (int32_t i = 0; i < 21; ++i) data.set(i, 0, 0x7fa00000u + uint32_t(i));
  const auto before = data.bytes();
  EXPECT_EQ(qorsMulC_32f_I(1.0f, reinterpret_cast<float*>(data.data()), 21), qorStatusOk);
  EXPECT_TRUE(data.bytes() == before);
}

TEST(KitVectors, MulCByZeroGivesZeroBitsEvenForNan) {
  for (const float value : {0.0f, -0.0f}) {
    Vector<float> data(7);
    const float values[] = {nan, -nan, infinity, -infinity, -5.0f, -0.0f, 3.0f};
    for (int32_t i = 0; i < 7; ++i) data.set(i, 0, values[i]);
    EXPECT_EQ(qorsMulC_32f_I(value, data.data(), 7), qorStatusOk);
    for (int32_t i = 0; i < 7; ++i) EXPECT_EQ(bitsOf(data[i]), 0u) << i;
  }
}

}  // namespace
