// Accumulators: every function against a literal model.
//
// All members are called through one record of arguments, those of one source with src1 alone.
#include <gtest/gtest.h>
#include <math.h>
#include <stdlib.h>
#include <sys/mman.h>
#include <unistd.h>

#include <limits>

#include "support/any_image.h"
#include "support/instrumented.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

enum class Formula { add, square, product, weighted };

template <class T>
struct Arguments {
  const T* src1;
  int32_t src1Step;
  const T* src2;
  int32_t src2Step;
  const uint8_t* mask;
  int32_t maskStep;
  float* srcDst;
  int32_t srcDstStep;
  QoriSize size;
  float alpha;
};

template <class T>
struct Member {
  using Pixel = T;
  const char* name;
  Formula formula;
  bool masked;
  QorStatus (*call)(const Arguments<T>&);
};

#define CALL(...) [](const auto& a) { return __VA_ARGS__; }
#define ONE_SOURCE(operation, formula, types)                                                      \
  {                                                                                                \
#operation "_" #types "_C1IR", Formula::formula, false,                                        \
        CALL(qori##operation##_##types##_C1IR(a.src1, a.src1Step, a.srcDst, a.srcDstStep, a.size)) \
  }
#define ONE_SOURCE_MASKED(operation, formula, types)                                                                   \
  {                                                                                                                    \
#operation "_" #types "_C1IMR", Formula::formula, true,                                                            \
        CALL(                                                                                                          \
            qori##operation##_##types##_C1IMR(a.src1, a.src1Step, a.mask, a.maskStep, a.srcDst, a.srcDstStep, a.size)) \
  }
#define ALL_BUT_PLAIN_ADD(types)                                                                                     \
  ONE_SOURCE_MASKED(Add, add, types), ONE_SOURCE(AddSquare, square, types),                                          \
      ONE_SOURCE_MASKED(AddSquare, square, types),                                                                   \
      {"AddProduct_" #types "_C1IR", Formula::product, false,                                                        \
       CALL(qoriAddProduct_##types##_C1IR(a.src1, a.src1Step, a.src2, a.src2Step, a.srcDst, a.srcDstStep, a.size))}, \
      {"AddProduct_" #types "_C1IMR", Formula::product, true,                                                        \
       CALL(qoriAddProduct_##types##_C1IMR(a.src1, a.src1Step, a.src2, a.src2Step, a.mask, a.maskStep, a.srcDst,     \
                                           a.srcDstStep, a.size))},                                                  \
      {"AddWeighted_" #types "_C1IR", Formula::weighted, false,                                                      \
       CALL(qoriAddWeighted_##types##_C1IR(a.src1, a.src1Step, a.srcDst, a.srcDstStep, a.size, a.alpha))},           \
  {                                                                                                                  \
    "AddWeighted_" #types "_C1IMR", Formula::weighted, true,                                                         \
        CALL(qoriAddWeighted_##types##_C1IMR(a.src1, a.src1Step, a.mask, a.maskStep, a.srcDst, a.srcDstStep, a.size, \
                                             a.alpha))                                                               \
  }

const std::vector<Member<uint8_t>> members8u = {ONE_SOURCE(Add, add, 8u32f), ALL_BUT_PLAIN_ADD(8u32f)};
const std::vector<Member<int8_t>> members8s = {ONE_SOURCE(Add, add, 8s32f), ALL_BUT_PLAIN_ADD(8s32f)};
const std::vector<Member<uint16_t>> members16u = {ONE_SOURCE(Add, add, 16u32f), ALL_BUT_PLAIN_ADD(16u32f)};
const std::vector<Member<float>> members32f = {ALL_BUT_PLAIN_ADD(32f)};

// Calls body(member) for all functions that work in place.
template <class Body>
void forMembers(Body body) {
  for (const auto& member : members8u) body(member);
  for (const auto& member : members8s) body(member);
  for (const auto& member : members16u) body(member);
  for (const auto& member : members32f) body(member);
}

// The largest magnitude of a product of two 16u values is 4294836225, above the signed range.
float ofIntegers(int8_t value, bool selected) { return float(selected ? int32_t(value) : 0); }
float ofIntegers(uint8_t value, bool selected) { return float(selected ? uint32_t(value) : 0u); }
float ofIntegers(uint16_t value, bool selected) { return float(selected ? uint32_t(value) : 0u); }
float ofProduct(int8_t s1, int8_t s2, bool selected) { return float(selected ? int32_t(s1) * int32_t(s2) : 0); }
float ofProduct(uint8_t s1, uint8_t s2, bool selected) { return float(selected ? uint32_t(s1) * uint32_t(s2) : 0u); }
float ofProduct(uint16_t s1, uint16_t s2, bool selected) { return float(selected ? uint32_t(s1) * uint32_t(s2) : 0u); }

template <class T>
float plainModel(Formula formula, float a, T src1, T src2, float alpha) {
  const float s = float(src1), s1 = s, s2 = float(src2);
  switch (formula) {
    case Formula::add: return a + s;
    case Formula::square: return a + s * s;
    case Formula::product: return a + s1 * s2;
    case Formula::weighted: break;
  }
  return a + (s - a) * alpha;
}

template <class T>
float maskedModel(Formula formula, float a, T src1, T src2, uint8_t m, float alpha) {
  const float t[2] = {0.0f, 1.0f}, w[2] = {0.0f, alpha};
  const float s = float(src1);
  if (formula == Formula::weighted) return a + (s - a) * w[m != 0];
  if constexpr (std::is_same_v<T, float>) {
    switch (formula) {
      case Formula::add: return s * t[m != 0] + a;
      case Formula::square: return s * s * t[m != 0] + a;
      default: return src1 * src2 * t[m != 0] + a;
    }
  } else {
    switch (formula) {
      case Formula::add: return a + ofIntegers(src1, m != 0);
      case Formula::square: return a + ofProduct(src1, src1, m != 0);
      default: return a + ofProduct(src1, src2, m != 0);
    }
  }
}

template <class T>
T anyPixel(Random& random) {
  if constexpr (std::is_same_v<T, float>) {
    return random.chance(0.5) ? random.anyFloat() : random.value<float>();
  } else {
    return random.chance(0.1) ? T(0) : random.value<T>();
  }
}

float anyAlpha(Random& random) {
  static const std::vector<float> telling = {0.0f, -0.0f,  1.0f,  0.5f,     0.3f,      -0.75f,
                                             2.5f, 1e-40f, 3e38f, INFINITY, -INFINITY, NAN};
  return random.chance(0.6)   ? random.pick(telling)
         : random.chance(0.5) ? random.value<float>() / 1000
                              : random.anyFloat();
}

uint8_t anyMask(Random& random) {
  static const std::vector<uint8_t> telling = {0, 0, 0, 1, 255, 128, 2};
  return random.pick(telling);
}

template <class T>
struct NoisyImage : AnyImage<T> {
  NoisyImage(Random& random, QoriSize size) : AnyImage<T>(random, size) {
    this->fill([&] { return anyPixel<T>(random); });
  }
};

struct AnyMask : NoisyImage<uint8_t> {
  AnyMask(Random& random, QoriSize size) : NoisyImage<uint8_t>(random, size) {
    fill([&] { return anyMask(random); });
  }
};

template <class T>
Arguments<T> argumentsOf(const Image<T>& src1, const Image<T>& src2, const Image<uint8_t>& mask,
                         const Image<float>& srcDst, float alpha) {
  return {src1.data(), src1.step(),   src2.data(),   src2.step(),   mask.data(),
          mask.step(), srcDst.data(), srcDst.step(), srcDst.size(), alpha};
}

// What the accumulator must be after a call, row by row.
template <class T>
std::vector<float> expectedOf(const Member<T>& member, const Image<T>& src1, const Image<T>& src2,
                              const Image<uint8_t>& mask, const Image<float>& srcDst, float alpha) {
  std::vector<float> expected;
  for (int32_t y = 0; y < srcDst.height(); ++y) {
    for (int32_t x = 0; x < srcDst.width(); ++x) {
      const float a = srcDst.get(x, y);
      const T s1 = src1.get(x, y), s2 = src2.get(x, y);
      expected.push_back(member.masked ? maskedModel(member.formula, a, s1, s2, mask.get(x, y), alpha)
                                       : plainModel(member.formula, a, s1, s2, alpha));
    }
  }
  return expected;
}

std::string wrongPixel(const Image<float>& image, const std::vector<float>& expected) {
  if (!image.gapsIntact()) return "wrote outside the region";
  return difference(image,
                    [&](int32_t x, int32_t y, int32_t) { return expected[size_t(y) * size_t(image.width()) + x]; });
}

template <class T>
std::string wrong(const Member<T>& member, const Image<T>& src1, const Image<T>& src2, const Image<uint8_t>& mask,
                  Image<float>& srcDst, float alpha) {
  const std::vector<float> expected = expectedOf(member, src1, src2, mask, srcDst, alpha);
  const std::vector<uint8_t> bytes1 = src1.bytes(), bytes2 = src2.bytes(), maskBytes = mask.bytes();
  const std::string where = std::string(member.name) + " with alpha " + std::to_string(alpha) + ": ";
  Arguments<T> arguments = argumentsOf(src1, src2, mask, srcDst, alpha);
  if (member.call(arguments) != qorStatusOk) return where + "status";
  if (src1.bytes() != bytes1 || src2.bytes() != bytes2 || mask.bytes() != maskBytes) return where + "changed an input";
  const std::string what = wrongPixel(srcDst, expected);
  return what.empty() ? "" : where + what;
}

template <class T>
std::string wrongOnAny(const Member<T>& member, Random& random, QoriSize size) {
  const NoisyImage<T> src1(random, size), src2(random, size);
  const AnyMask mask(random, size);
  NoisyImage<float> srcDst(random, size);
  return wrong<T>(member, src1, src2, mask, srcDst, anyAlpha(random));
}

// A row of one value, long enough for every part of a loop over vectors.
constexpr int32_t rowWidth = 37;
// The accumulator's pixel after a call on rows of one pixel each; fails if the row is not all the same.
template <class T>
float after(QorStatus (*call)(const Arguments<T>&), float a, T s1, T s2, uint8_t m, float alpha = 0) {
  Image<T> src1(rowWidth, 1), src2(rowWidth, 1);
  Image<uint8_t> mask(rowWidth, 1);
  Image<float> srcDst(rowWidth, 1);
  src1.fill([&] { return s1; });
  src2.fill([&] { return s2; });
  mask.fill([&] { return m; });
  srcDst.fill([&] { return a; });
  EXPECT_EQ(call(argumentsOf(src1, src2, mask, srcDst, alpha)), qorStatusOk);
  const float first = srcDst.get(0, 0);
  EXPECT_EQ(difference(srcDst, [&](int32_t, int32_t, int32_t) { return first; }), "");
  return first;
}

template <class T>
float after(const std::vector<Member<T>>& members, Formula formula, bool masked, float a, T s1, T s2, uint8_t m,
            float alpha = 0) {
  for (const Member<T>& member : members) {
    if (member.formula == formula && member.masked == masked) return after(member.call, a, s1, s2, m, alpha);
  }
  ADD_FAILURE() << "no such member";
  return 0;
}

bool isPlusZero(float f) { return f == 0 && !signbit(f); }
bool isMinusZero(float f) { return f == 0 && signbit(f); }

// Whether the call opens a parallel region where two threads may be used.
template <class Call>
bool forks(Call call) {
  services::threads(2);
  return requestedTeam(call) != 0;
}

template <class T>
bool forksOn(const Member<T>& member, QoriSize size) {
  const size_t pixels = size_t(size.width) * size_t(size.height);
  std::vector<T> src(pixels);
  std::vector<uint8_t> mask(pixels);
  std::vector<float> srcDst(pixels);
  const int32_t step = size.width * int32_t(sizeof(T));
  const Arguments<T> arguments = {src.data(), step,          src.data(),     step, mask.data(),
                                  size.width, srcDst.data(), size.width * 4, size, 0.5f};
  return forks([&] { EXPECT_EQ(member.call(arguments), qorStatusOk); });
}

constexpr int32_t statusWidth = 9, statusHeight = 3, statusGap = 2;

// The faults in the order of the checks. Sources of 16u are tested for alignment before all other steps, those of 32f
// together with the accumulator at the end.
template <class T>
std::vector<Fault<Arguments<T>>> faultsOf(const Member<T>& member) {
  using A = Arguments<T>;
  const bool two = member.formula == Formula::product;
  std::vector<Fault<A>> faults;
  faults.push_back({"src1", qorStatusNullPtr, [](A& a) { a.src1 = nullptr; }});
  if (two) faults.push_back({"src2", qorStatusNullPtr, [](A& a) { a.src2 = nullptr; }});
  if (member.masked) faults.push_back({"mask", qorStatusNullPtr, [](A& a) { a.mask = nullptr; }});
  faults.push_back({"srcDst", qorStatusNullPtr, [](A& a) { a.srcDst = nullptr; }});
  for (int32_t bad : {0, -1, INT32_MIN}) {
    faults.push_back({"width", qorStatusBadSize, [=](A& a) { a.size.width = bad; }});
    faults.push_back({"height", qorStatusBadSize, [=](A& a) { a.size.height = bad; }});
  }
  const int32_t row = statusWidth * int32_t(sizeof(T)), wideRow = statusWidth * 4;
  const auto badSource = [&](QorStatus status, int32_t bad) {
    faults.push_back({"src1Step", status, [=](A& a) { a.src1Step = bad; }});
    if (two) faults.push_back({"src2Step", status, [=](A& a) { a.src2Step = bad; }});
  };
  const auto misalignedSource = [&] {
    for (int32_t more = 1; more < int32_t(sizeof(T)); ++more) badSource(qorStatusBadStepAlign, row + more);
  };
  for (int32_t bad : {row - 1, row - int32_t(sizeof(T)), 0, -row, INT32_MIN}) badSource(qorStatusBadStep, bad);
  if (sizeof(T) == 2) misalignedSource();
  if (member.masked) {
    for (int32_t bad : {statusWidth - 1, 0, -statusWidth, INT32_MIN}) {
      faults.push_back({"maskStep", qorStatusBadStep, [=](A& a) { a.maskStep = bad; }});
    }
  }
  for (int32_t bad : {wideRow - 1, wideRow - 4, 0, -wideRow, INT32_MIN}) {
    faults.push_back({"srcDstStep", qorStatusBadStep, [=](A& a) { a.srcDstStep = bad; }});
  }
  if (sizeof(T) == 4) misalignedSource();
  for (int32_t more = 1; more < 4; ++more) {
    faults.push_back({"srcDstStep", qorStatusBadStepAlign, [=](A& a) { a.srcDstStep = wideRow + more; }});
  }
  return faults;
}

// qoriAddWeighted_32f_C1R in the same dress: srcDst is its dst.
QorStatus blend(const Arguments<float>& a) {
  return qoriAddWeighted_32f_C1R(a.src1, a.src1Step, a.src2, a.src2Step, a.srcDst, a.srcDstStep, a.size, a.alpha);
}

std::vector<float> expectedBlend(const Image<float>& src1, const Image<float>& src2, float alpha) {
  std::vector<float> expected;
  for (int32_t y = 0; y < src1.height(); ++y) {
    for (int32_t x = 0; x < src1.width(); ++x) {
      expected.push_back(src2.get(x, y) + (src1.get(x, y) - src2.get(x, y)) * alpha);
    }
  }
  return expected;
}

}  // namespace

class Accumulate : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::allocations(), 0);
    services::reset();
  }
};

TEST_F(Accumulate, matchesTheModel) {
  Random random(1);
  for (int round = 0; round < 150; ++round) {
    const QoriSize size = {random.width(300), int32_t(random.number(1, 4))};
    forMembers([&](const auto& member) { ASSERT_EQ(wrongOnAny(member, random, size), ""); });
  }
}

TEST_F(Accumulate, everyWidth) {
  Random random(2);
  for (int32_t width = 1; width <= 200; ++width) {
    forMembers([&](const auto& member) { ASSERT_EQ(wrongOnAny(member, random, {width, 1}), ""); });
  }
}

TEST_F(Accumulate, aFloatSourceMayBeTheAccumulator) {
  Random random(3);
  for (int round = 0; round < 60; ++round) {
    const QoriSize size = {random.width(300), int32_t(random.number(1, 4))};
    for (const Member<float>& member : members32f) {
      for (const int place : {1, 2, 3}) {
        const NoisyImage<float> src(random, size);
        const AnyMask mask(random, size);
        NoisyImage<float> srcDst(random, size);
        const Image<float>& src1 = place & 1 ? srcDst : src;
        const Image<float>& src2 = place & 2 ? srcDst : src;
        const float alpha = anyAlpha(random);
        const std::vector<float> expected = expectedOf<float>(member, src1, src2, mask, srcDst, alpha);
        ASSERT_EQ(member.call(argumentsOf<float>(src1, src2, mask, srcDst, alpha)), qorStatusOk);
        ASSERT_EQ(wrongPixel(srcDst, expected), "") << member.name << " in place " << place;
      }
    }
  }
}

TEST_F(Accumulate, specialFloats) {
  const float tiny = std::numeric_limits<float>::denorm_min(), huge = std::numeric_limits<float>::max();
  const std::vector<float> special = {0.0f, -0.0f, 1.0f,     -1.0f,     tiny, -tiny, 1.17549435e-38f, 0.1f,
                                      huge, -huge, INFINITY, -INFINITY, NAN,  3e20f, 16777216.0f};
  const int32_t count = int32_t(special.size());
  // A column for each pair of an accumulator and a second source, a row for each first source and mask byte.
  const QoriSize size = {count * count, count * 3};
  const auto at = [&](int32_t index) { return special[size_t(index % count)]; };
  Image<uint8_t> mask(size.width, size.height);
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) mask.set(x, y, y < count ? 0 : y < 2 * count ? 1 : 255);
  }
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    Image<T> src1(size.width, size.height), src2(size.width, size.height);
    for (int32_t y = 0; y < size.height; ++y) {
      for (int32_t x = 0; x < size.width; ++x) {
        if constexpr (std::is_same_v<T, float>) {
          src1.set(x, y, at(y));
          src2.set(x, y, at(x));
        } else {
          src1.set(x, y, T(y % count - 1));
          src2.set(x, y, T(x % count * 17 - 17));
        }
      }
    }
    for (const float alpha : {0.0f, -0.0f, 1.0f, 0.25f, -2.0f, 3.0f, huge, tiny, float(INFINITY), float(NAN)}) {
      if (member.formula != Formula::weighted && alpha != 1) continue;
      Image<float> srcDst(size.width, size.height);
      for (int32_t y = 0; y < size.height; ++y) {
        for (int32_t x = 0; x < size.width; ++x) srcDst.set(x, y, at(x / count));
      }
      ASSERT_EQ(wrong(member, src1, src2, mask, srcDst, alpha), "");
    }
  });
}

// Every pair of 8-bit values, every 16u value beside values whose products round up, down and to even.
TEST_F(Accumulate, everyIntegerProduct) {
  const auto expectRight = [](const auto& members, auto second, int32_t columns, int32_t rows) {
    using T = typename std::decay_t<decltype(members[0])>::Pixel;
    Image<T> src1(columns, rows), src2(columns, rows);
    Image<uint8_t> mask(columns, rows);
    mask.fill([] { return uint8_t(1); });
    for (int32_t y = 0; y < rows; ++y) {
      for (int32_t x = 0; x < columns; ++x) {
        src1.set(x, y, T(x));
        src2.set(x, y, T(second(x, y)));
      }
    }
    for (const auto& member : members) {
      if (member.formula == Formula::weighted) continue;
      Image<float> srcDst(columns, rows);
      ASSERT_EQ(wrong(member, src1, src2, mask, srcDst, 0), "");
    }
  };
  const auto row = [](int32_t, int32_t y) { return y; };
  expectRight(members8u, row, 256, 256);
  expectRight(members8s, row, 256, 256);
  const auto telling = [](int32_t x, int32_t y) {
    const int32_t values[] = {x, 65535 - x, 65535, 65534, 65521, 257, 32769, 32767, 43691};
    return values[y];
  };
  expectRight(members16u, telling, 65536, 9);
}

TEST_F(Accumulate, aFullMaskIsNoMask) {
  Random random(4);
  forMembers([&](const auto& masked) {
    if (!masked.masked) return;
    using T = typename std::decay_t<decltype(masked)>::Pixel;
    forMembers([&](const auto& plain) {
      if constexpr (std::is_same_v<typename std::decay_t<decltype(plain)>::Pixel, T>) {
        if (plain.masked || plain.formula != masked.formula) return;
        const QoriSize size = {300, 20};
        const NoisyImage<T> src1(random, size), src2(random, size);
        AnyMask mask(random, size);
        mask.fill([&] { return uint8_t(random.number(1, 255)); });
        NoisyImage<float> srcDst(random, size);
        // Save for the sign of zero, which a product of integers does not have.
        srcDst.fill([&] { return random.value<float>(); });
        Image<float> other(size.width, size.height);
        for (int32_t y = 0; y < size.height; ++y) {
          for (int32_t x = 0; x < size.width; ++x) other.set(x, y, srcDst.get(x, y));
        }
        ASSERT_EQ(masked.call(argumentsOf<T>(src1, src2, mask, srcDst, 0.3f)), qorStatusOk);
        ASSERT_EQ(plain.call(argumentsOf<T>(src1, src2, mask, other, 0.3f)), qorStatusOk);
        EXPECT_EQ(difference(srcDst, [&](int32_t x, int32_t y, int32_t) { return other.get(x, y); }), "")
            << masked.name;
      }
    });
  });
}

TEST_F(Accumulate, aZeroMaskOnIntegersOnlyTurnsMinusZeroToPlusZero) {
  const auto check = [](const auto& members) {
    using T = typename std::decay_t<decltype(members[0])>::Pixel;
    for (const Formula formula : {Formula::add, Formula::square, Formula::product}) {
      for (const float a : {1.5f, -3e38f, 1e-45f, float(INFINITY), -float(INFINITY)}) {
        EXPECT_EQ(after(members, formula, true, a, T(-3), T(7), 0), a);
      }
      EXPECT_TRUE(isPlusZero(after(members, formula, true, -0.0f, T(-3), T(7), 0)));
      EXPECT_TRUE(isPlusZero(after(members, formula, true, 0.0f, T(-3), T(7), 0)));
      EXPECT_TRUE(isnan(after(members, formula, true, NAN, T(-3), T(7), 0)));
    }
  };
  check(members8u);
  check(members8s);
  check(members16u);
}

TEST_F(Accumulate, aMaskedProductOfIntegersIsNeverMinusZero) {
  EXPECT_TRUE(isPlusZero(after(members8s, Formula::product, true, -0.0f, int8_t(-3), int8_t(0), 1)));
  EXPECT_TRUE(isPlusZero(after(members8s, Formula::product, true, -0.0f, int8_t(0), int8_t(-3), 1)));
  EXPECT_TRUE(isPlusZero(after(members8s, Formula::product, true, -0.0f, int8_t(5), int8_t(-3), 0)));
  // The plain form multiplies floats.
  EXPECT_TRUE(isMinusZero(after(members8s, Formula::product, false, -0.0f, int8_t(-3), int8_t(0), 0)));
}

TEST_F(Accumulate, negativeProductsOf8sStayNegative) {
  EXPECT_EQ(after(members8s, Formula::product, true, 1.0f, int8_t(-128), int8_t(127), 255), -16255.0f);
  EXPECT_EQ(after(members8s, Formula::product, false, 1.0f, int8_t(-128), int8_t(127), 0), -16255.0f);
  EXPECT_EQ(after(members8s, Formula::add, true, 1.0f, int8_t(-128), int8_t(0), 2), -127.0f);
  EXPECT_EQ(after(members8s, Formula::square, true, 1.0f, int8_t(-128), int8_t(0), 2), 16385.0f);
}

TEST_F(Accumulate, aMaskedOutInfinityOfAFloatSourceGivesNaN) {
  for (const float source : {float(INFINITY), -float(INFINITY), float(NAN)}) {
    for (const Formula formula : {Formula::add, Formula::square, Formula::product}) {
      EXPECT_TRUE(isnan(after(members32f, formula, true, 5.0f, source, 1.0f, 0)));
    }
  }
  EXPECT_EQ(after(members32f, Formula::add, true, 5.0f, float(INFINITY), 0.0f, 1), INFINITY);
  // Squares and products that overflow are infinite before they are left out.
  EXPECT_EQ(after(members32f, Formula::add, true, 5.0f, 3e38f, 0.0f, 0), 5.0f);
  EXPECT_TRUE(isnan(after(members32f, Formula::square, true, 5.0f, 3e38f, 0.0f, 0)));
  EXPECT_TRUE(isnan(after(members32f, Formula::product, true, 5.0f, 3e38f, -1e5f, 0)));
  // The zero that is added has the sign of the source.
  EXPECT_TRUE(isMinusZero(after(members32f, Formula::add, true, -0.0f, -2.0f, 0.0f, 0)));
  EXPECT_TRUE(isPlusZero(after(members32f, Formula::add, true, -0.0f, 2.0f, 0.0f, 0)));
}

TEST_F(Accumulate, aMaskedOutInfinityInAWeightedFormGivesNaN) {
  EXPECT_TRUE(isnan(after(members8u, Formula::weighted, true, float(INFINITY), uint8_t(3), uint8_t(0), 0, 0.5f)));
  EXPECT_TRUE(isnan(after(members32f, Formula::weighted, true, -float(INFINITY), 3.0f, 0.0f, 0, 0.5f)));
  EXPECT_TRUE(isnan(after(members32f, Formula::weighted, true, 3.0f, float(INFINITY), 0.0f, 0, 0.5f)));
  EXPECT_EQ(after(members32f, Formula::weighted, true, 3.0f, 7.0f, 0.0f, 0, NAN), 3.0f);
  EXPECT_EQ(after(members32f, Formula::weighted, true, 3.0f, 7.0f, 0.0f, 255, 0.5f), 5.0f);
}

TEST_F(Accumulate, theSquareOf65535IsRounded) {
  EXPECT_EQ(after(members16u, Formula::square, false, 0.0f, uint16_t(65535), uint16_t(0), 0), 4294836224.0f);
  EXPECT_EQ(after(members16u, Formula::square, true, 0.0f, uint16_t(65535), uint16_t(0), 1), 4294836224.0f);
  EXPECT_EQ(after(members16u, Formula::product, true, 0.0f, uint16_t(65535), uint16_t(65535), 1), 4294836224.0f);
}

TEST_F(Accumulate, alphaOfOneAndZero) {
  EXPECT_EQ(after(members8u, Formula::weighted, false, 100.5f, uint8_t(7), uint8_t(0), 0, 1), 7.0f);
  // a + (s - a) is not s where the difference is rounded.
  EXPECT_EQ(after(members8u, Formula::weighted, false, 33554432.0f, uint8_t(7), uint8_t(0), 0, 1), 8.0f);
  EXPECT_EQ(after(members8u, Formula::weighted, false, 1e30f, uint8_t(7), uint8_t(0), 0, 1), 0.0f);
  for (const float a : {100.5f, -3e38f, 0.0f, 1e-45f}) {
    EXPECT_EQ(after(members8u, Formula::weighted, false, a, uint8_t(7), uint8_t(0), 0, 0), a);
  }
  EXPECT_TRUE(isnan(after(members8u, Formula::weighted, false, float(INFINITY), uint8_t(7), uint8_t(0), 0, 0)));
  EXPECT_TRUE(isPlusZero(after(members8u, Formula::weighted, false, -0.0f, uint8_t(7), uint8_t(0), 0, 0)));
}

TEST_F(Accumulate, alphaMayLieOutside0To1) {
  EXPECT_EQ(after(members16u, Formula::weighted, false, 10.0f, uint16_t(14), uint16_t(0), 0, 3), 22.0f);
  EXPECT_EQ(after(members16u, Formula::weighted, false, 10.0f, uint16_t(14), uint16_t(0), 0, -0.5f), 8.0f);
}

TEST_F(Accumulate, overflowReachesInfinity) {
  EXPECT_EQ(after(members32f, Formula::square, false, 0.0f, 3e38f, 0.0f, 0), INFINITY);
  EXPECT_EQ(after(members32f, Formula::product, false, 3e38f, 3e38f, 1.0f, 0), INFINITY);
}

TEST_F(Accumulate, anyTeamGivesTheSamePixels) {
  Random random(5);
  std::vector<int32_t> manyTeams = {0, -1, INT32_MIN}, fewTeams = {4, 8, 11, 40};
  for (int32_t team = 1; team <= 40; ++team) manyTeams.push_back(team);
  for (const QoriSize size : {QoriSize{87382, 3}, QoriSize{26215, 10}}) {
    forMembers([&](const auto& member) {
      using T = typename std::decay_t<decltype(member)>::Pixel;
      Image<T> src1(size.width, size.height, 1, 1), src2(size.width, size.height);
      Image<uint8_t> mask(size.width, size.height, 1, 3);
      Image<float> srcDst(size.width, size.height, 1, 2);
      uint32_t state = uint32_t(random.number(0, UINT32_MAX));
      const auto next = [&state] { return (state = state * 1664525u + 1013904223u) >> 12; };
      src1.fill([&] { return T(next()); });
      src2.fill([&] { return T(next()); });
      mask.fill([&] { return uint8_t(next() & 1); });
      srcDst.fill([&] { return float(next()) / 16; });
      const size_t count = size_t(srcDst.step()) / 4 * size_t(size.height - 1) + size_t(size.width);
      const std::vector<float> first(srcDst.data(), srcDst.data() + count);
      ASSERT_EQ(wrong<T>(member, src1, src2, mask, srcDst, 0.3f), "");
      const std::vector<float> right(srcDst.data(), srcDst.data() + count);
      for (const int32_t team : size.height == 3 ? manyTeams : fewTeams) {
        memcpy(srcDst.data(), first.data(), count * sizeof(float));
        services::teamSize = team;
        ASSERT_EQ(member.call(argumentsOf<T>(src1, src2, mask, srcDst, 0.3f)), qorStatusOk);
        ASSERT_EQ(memcmp(srcDst.data(), right.data(), count * sizeof(float)), 0)
            << member.name << " with a team of " << team;
      }
    });
  }
}

TEST_F(Accumulate, worksInsideAParallelRegion) {
  services::threads(4);
  std::string wrongs[3];
#pragma omp parallel for num_threads(3)
  for (int i = 0; i < 3; ++i) {
    Random random(uint32_t(10 + i));
    wrongs[i] = wrongOnAny(members16u[size_t(i)], random, {700, 400});
  }
  for (const std::string& w : wrongs) EXPECT_EQ(w, "");
}

TEST_F(Accumulate, exactly262144PixelsAreThreaded) {
  forMembers([&](const auto& member) {
    EXPECT_TRUE(forksOn(member, {262144, 1})) << member.name;
    EXPECT_FALSE(forksOn(member, {262143, 1})) << member.name;
  });
  EXPECT_TRUE(forksOn(members8u[0], {1, 262144}));
  EXPECT_TRUE(forksOn(members8u[0], {512, 512}));
  EXPECT_FALSE(forksOn(members8u[0], {511, 513}));
}

// 65536 x 32768 pixels. The accumulator is one chunk of memory mapped again and again, so each of its pixels collects
// the source as often as there are chunks.
TEST_F(Accumulate, aPixelCountThatWrapsGoesTheSerialWay) {
  if (instrumented()) GTEST_SKIP() << "the sanitizer would need an eighth of these images in real memory";
  constexpr size_t chunk = 1 << 21, pixelCount = size_t(1) << 31;
  const auto repeated = [&](size_t bytes) {
    const int file = memfd_create("image", 0);
    EXPECT_EQ(ftruncate(file, chunk), 0);
    void* space = mmap(nullptr, bytes, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    EXPECT_NE(space, MAP_FAILED);
    for (size_t offset = 0; offset < bytes; offset += chunk) {
      EXPECT_NE(
          mmap(static_cast<char*>(space) + offset, chunk, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0),
          MAP_FAILED);
    }
    close(file);
    return space;
  };
  uint8_t* src = static_cast<uint8_t*>(repeated(pixelCount));
  float* srcDst = static_cast<float*>(repeated(pixelCount * 4));
  memset(src, 5, chunk);
  QorStatus status = qorStatusNullPtr;
  EXPECT_FALSE(forks([&] { status = qoriAdd_8u32f_C1IR(src, 65536, srcDst, 262144, {65536, 32768}); }));
  EXPECT_EQ(status, qorStatusOk);
  size_t wrongs = 0;
  for (size_t k = 0; k < chunk / 4; ++k) wrongs += srcDst[k] != 5.0f * float(pixelCount * 4 / chunk);
  EXPECT_EQ(wrongs, 0u);
  munmap(src, pixelCount);
  munmap(srcDst, pixelCount * 4);
}

TEST_F(Accumulate, statuses) {
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    const Image<T> src(statusWidth, statusHeight, 1, statusGap);
    const Image<uint8_t> mask(statusWidth, statusHeight, 1, statusGap);
    Image<float> srcDst(statusWidth, statusHeight, 1, statusGap);
    srcDst.fill([] { return -0.0f; });  // any update shows
    Arguments<T> good = argumentsOf<T>(src, src, mask, srcDst, 0.5f);
    good.maskStep = statusWidth;
    good.src1Step = good.src2Step = statusWidth * int32_t(sizeof(T));
    expectStatuses<Arguments<T>>(good, faultsOf(member), member.call, [&] { return srcDst.bytes(); });
  });
}

// Steps that only one order of checks tells apart.
TEST_F(Accumulate, theAlignmentOf16uSourcesIsTestedBeforeMaskAndAccumulator) {
  uint16_t words[16] = {0};
  uint8_t mask[16] = {0};
  float srcDst[16] = {0};
  EXPECT_EQ(qoriAdd_16u32f_C1IMR(words, 9, mask, 3, srcDst, 16, {4, 1}), qorStatusBadStepAlign);
  EXPECT_EQ(qoriAdd_16u32f_C1IMR(words, 8, mask, 3, srcDst, 18, {4, 1}), qorStatusBadStep);
  EXPECT_EQ(qoriAdd_16u32f_C1IR(words, 9, srcDst, 15, {4, 1}), qorStatusBadStepAlign);
  // Both source steps are tested for length before their alignment.
  EXPECT_EQ(qoriAddProduct_16u32f_C1IR(words, 9, words, 7, srcDst, 16, {4, 1}), qorStatusBadStep);
  float floats[16] = {0};
  EXPECT_EQ(qoriAdd_32f_C1IMR(floats, 17, mask, 3, srcDst, 16, {4, 1}), qorStatusBadStep);
  EXPECT_EQ(qoriAdd_32f_C1IMR(floats, 17, mask, 5, srcDst, 16, {4, 1}), qorStatusBadStepAlign);
  EXPECT_EQ(qoriAdd_32f_C1IMR(floats, 16, mask, 5, srcDst, 16, {4, 1}), qorStatusOk);
  // 8-bit sources have no alignment.
  uint8_t bytes[16] = {0};
  EXPECT_EQ(qoriAdd_8u32f_C1IR(bytes, 5, srcDst, 16, {4, 1}), qorStatusOk);
}

class AddWeightedOutOfPlace : public Accumulate {};

TEST_F(AddWeightedOutOfPlace, matchesTheModel) {
  Random random(6);
  for (int round = 0; round < 400; ++round) {
    const QoriSize size = {random.width(300), int32_t(random.number(1, 4))};
    const NoisyImage<float> src1(random, size), src2(random, size), own(random, size);
    const Image<uint8_t> noMask(1, 1);
    for (const Image<float>* dst : {static_cast<const Image<float>*>(&own), static_cast<const Image<float>*>(&src1)}) {
      const float alpha = anyAlpha(random);
      const std::vector<float> expected = expectedBlend(src1, src2, alpha);
      ASSERT_EQ(blend(argumentsOf<float>(src1, src2, noMask, *dst, alpha)), qorStatusOk);
      ASSERT_EQ(wrongPixel(*dst, expected), "");
    }
    const float alpha = anyAlpha(random);
    const std::vector<float> expected = expectedBlend(src1, src2, alpha);
    ASSERT_EQ(blend(argumentsOf<float>(src1, src2, noMask, src2, alpha)), qorStatusOk);
    ASSERT_EQ(wrongPixel(src2, expected), "");
  }
}

TEST_F(AddWeightedOutOfPlace, runsInOneThreadOnAnySize) {
  std::vector<float> src1(1024 * 1024, 3.0f), src2(1024 * 1024, 1.0f), dst(1024 * 1024);
  EXPECT_FALSE(forks([&] {
    EXPECT_EQ(qoriAddWeighted_32f_C1R(src1.data(), 4096, src2.data(), 4096, dst.data(), 4096, {1024, 1024}, 0.5f),
              qorStatusOk);
  }));
  for (const float pixel : dst) ASSERT_EQ(pixel, 2.0f);
}

TEST_F(AddWeightedOutOfPlace, statuses) {
  const Image<float> src(statusWidth, statusHeight, 1, statusGap), dst(statusWidth, statusHeight, 1, statusGap);
  const Member<float> like = {"", Formula::product, false, blend};
  Arguments<float> good = argumentsOf<float>(src, src, Image<uint8_t>(1, 1), dst, 0.5f);
  good.src1Step = good.src2Step = statusWidth * 4;
  expectStatuses<Arguments<float>>(good, faultsOf(like), blend, [&] { return dst.bytes(); });
}
