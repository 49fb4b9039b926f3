// Corner measures against their pipeline said literally: derivative masks as sums over a square, products, means, and
// the closed form of each pixel.
//
// Sources are whole numbers or quarters of them, so that the slopes are exact in any order of adding; everything after
// them rounds as it has to.
#include <gtest/gtest.h>
#include <math.h>

#include <array>
#include <limits>
#include <string>
#include <vector>

#include "qorcvmx.h"
#include "support/any_image.h"
#include "support/instrumented.h"
#include "support/memory.h"
#include "support/random.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

const int32_t thorough = instrumented() ? 1 : 6;

class Eigen : public ::testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

struct Settings {
  int32_t kernelType, apertureSize, avgWindow;
};
const std::vector<Settings> allSettings = {{0, 3, 3}, {0, 3, 5}, {0, 5, 3}, {0, 5, 5}, {1, 3, 3}, {1, 3, 5}};

std::string nameOf(const Settings& s, QoriSize size) {
  return std::string(s.kernelType ? "Scharr " : "Sobel ") + std::to_string(s.apertureSize) + ", window " +
         std::to_string(s.avgWindow) + ", " + std::to_string(size.width) + "x" + std::to_string(size.height);
}

// ---- The model

using Plane = std::vector<float>;

int32_t held(int32_t i, int32_t length) { return i < 0 ? 0 : i >= length ? length - 1 : i; }

template <class T>
double masked(const Image<T>& src, int32_t x, int32_t y, const std::vector<int>& across, const std::vector<int>& down) {
  const int32_t half = int32_t(across.size()) / 2;
  double sum = 0;
  for (int32_t v = -half; v <= half; ++v) {
    for (int32_t u = -half; u <= half; ++u) {
      const int weight = across[size_t(u + half)] * down[size_t(v + half)];
      if (weight) sum += weight * double(src.get(held(x + u, src.width()), held(y + v, src.height())));
    }
  }
  return sum;
}

Plane mean(const Plane& plane, QoriSize size, int32_t window) {
  const int32_t half = window / 2;
  Plane result(plane.size());
  const auto rowSum = [&](int32_t x, int32_t y) {
    const float* row = &plane[size_t(held(y, size.height)) * size.width];
    float sum = row[held(x - half, size.width)];
    for (int32_t u = 1 - half; u <= half; ++u) sum += row[held(x + u, size.width)];
    return sum;
  };
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      float sum = rowSum(x, y - half);
      for (int32_t v = 1 - half; v <= half; ++v) sum += rowSum(x, y + v);
      result[size_t(y) * size.width + x] = sum * (window == 3 ? 0.11111111f : 0.04f);
    }
  }
  return result;
}

struct Tensor {
  Plane a, b, c;
};

float product(double u, double v, uint8_t) { return float(int32_t(u) * int32_t(v)); }
float product(double u, double v, float) { return float(u) * float(v); }

template <class T>
Tensor tensorOf(const Image<T>& src, const Settings& s) {
  const bool scharr = s.kernelType == 1, five = s.apertureSize == 5;
  const std::vector<int> smooth = scharr ? std::vector<int>{3, 10, 3}
                                  : five ? std::vector<int>{1, 4, 6, 4, 1}
                                         : std::vector<int>{1, 2, 1};
  const std::vector<int> rising = five ? std::vector<int>{-1, -2, 0, 2, 1} : std::vector<int>{-1, 0, 1};
  const std::vector<int> falling = five ? std::vector<int>{1, 2, 0, -2, -1} : std::vector<int>{1, 0, -1};
  Tensor t;
  for (int32_t y = 0; y < src.height(); ++y) {
    for (int32_t x = 0; x < src.width(); ++x) {
      const double dx = masked(src, x, y, scharr ? rising : falling, smooth), dy = masked(src, x, y, smooth, rising);
      t.a.push_back(product(dx, dx, T()));
      t.b.push_back(product(dx, dy, T()));
      t.c.push_back(product(dy, dy, T()));
    }
  }
  const QoriSize size = src.size();
  return {mean(t.a, size, s.avgWindow), mean(t.b, size, s.avgWindow), mean(t.c, size, s.avgWindow)};
}

float scaleOf(const Settings& s) {
  const float scale = 1.0f / (s.apertureSize == 3 ? 4080.0f : 65280.0f);
  return s.kernelType == 1 ? scale * 0.6125f : scale;
}

float minEigenVal(float a, float b, float c, const Settings& s) {
  const float root = 4.0f * b * b + (a - c) * (a - c);
  return float((double(a + c) - sqrt(double(root))) * double(scaleOf(s) * 0.5f));
}

std::array<float, 6> valsVecs(float a, float b, float c, const Settings& s) {
  a *= scaleOf(s), b *= scaleOf(s), c *= scaleOf(s);
  const float root = float(sqrt(double(4.0f * b * b + (a - c) * (a - c))));
  const float l1 = (root + (a + c)) * 0.5f, l2 = (a + c - root) * 0.5f;
  const float t = (a > c ? a : c) * 0.01f;
  if (t > (a < c ? a : c) || t > a * c - b * b) return {0, 0, 0, 0, 0, 0};
  if (double(t) > fabs(double(b))) return {l1, l2, 1, 0, 0, 1};
  const float u = b * (s.kernelType == 1 ? 1.0f : -1.0f), p = 0.0f - (a - l1), q = 0.0f - (a - l2);
  const float norm1 = float(sqrt(double(p * p + u * u))), norm2 = float(sqrt(double(u * u + q * q)));
  const float i1 = 1.0f / (norm1 < 1.1920929e-7f ? 1.1920929e-7f : norm1);
  const float i2 = 1.0f / (norm2 < 1.1920929e-7f ? 1.1920929e-7f : norm2);
  return {l1, l2, u * i1, p * i1, u * i2, q * i2};
}

// ---- Calls

QorStatus querySize(bool vectors, uint8_t, QoriSize size, const Settings& s, int32_t* bytes) {
  return vectors ? qoriEigenValsVecsGetBufferSize_8u32f_C1R(size, s.apertureSize, s.avgWindow, bytes)
                 : qoriMinEigenValGetBufferSize_8u32f_C1R(size, s.apertureSize, s.avgWindow, bytes);
}

QorStatus querySize(bool vectors, float, QoriSize size, const Settings& s, int32_t* bytes) {
  return vectors ? qoriEigenValsVecsGetBufferSize_32f_C1R(size, s.apertureSize, s.avgWindow, bytes)
                 : qoriMinEigenValGetBufferSize_32f_C1R(size, s.apertureSize, s.avgWindow, bytes);
}

QorStatus measure(bool vectors, const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize size,
                  const Settings& s, uint8_t* buffer) {
  return (vectors ? qoriEigenValsVecs_8u32f_C1R : qoriMinEigenVal_8u32f_C1R)(
      src, srcStep, dst, dstStep, size, s.kernelType, s.apertureSize, s.avgWindow, buffer);
}

QorStatus measure(bool vectors, const float* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize size,
                  const Settings& s, uint8_t* buffer) {
  return (vectors ? qoriEigenValsVecs_32f_C1R : qoriMinEigenVal_32f_C1R)(src, srcStep, dst, dstStep, size, s.kernelType,
                                                                         s.apertureSize, s.avgWindow, buffer);
}

// Calls with a buffer of exactly the size due, at either page and any address, that first holds NaNs of all bits set.
template <class T>
QorStatus measureInExactBuffer(bool vectors, const T* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize size,
                               const Settings& s, Random& random) {
  int32_t bytes = -1;
  EXPECT_EQ(querySize(vectors, T(), size, s, &bytes), qorStatusOk);
  const Edge edge = random.chance(0.5) ? Edge::end : Edge::begin;
  const size_t shift = random.chance(0.5) ? size_t(random.number(1, 31)) : 0;
  GuardedMemory scratch(size_t(bytes) + shift, edge);
  memset(scratch.data(), 0xff, scratch.size());
  uint8_t* const buffer = scratch.data() + (edge == Edge::begin ? shift : 0);
  const QorStatus status = measure(vectors, src, srcStep, dst, dstStep, size, s, buffer);
  EXPECT_TRUE(scratch.patternIntact());
  const uint8_t* outside = edge == Edge::begin ? scratch.data() : scratch.data() + bytes;
  for (size_t i = 0; i < shift; ++i) EXPECT_EQ(outside[i], 0xff) << "outside the buffer";
  return status;
}

// First difference of the rows from `firstRow` to before `limitRow`, as text. The sign of a zero is free in vectors.
std::string differenceOf(bool vectors, const Image<float>& dst, const Tensor& t, const Settings& s, int32_t firstRow,
                         int32_t limitRow) {
  for (int32_t y = firstRow; y < limitRow; ++y) {
    for (int32_t x = 0; x < dst.width(); ++x) {
      const size_t i = size_t(y) * dst.width() + x;
      const auto should =
          vectors ? valsVecs(t.a[i], t.b[i], t.c[i], s) : std::array<float, 6>{minEigenVal(t.a[i], t.b[i], t.c[i], s)};
      for (int32_t k = 0; k < dst.channels(); ++k) {
        const float is = dst.get(x, y, k);
        if (sameValue(is, should[size_t(k)]) || (vectors && is == 0 && should[size_t(k)] == 0)) continue;
        return "value " + std::to_string(k) + " at column " + std::to_string(x) + ", row " + std::to_string(y) + ": " +
               std::to_string(is) + " instead of " + std::to_string(should[size_t(k)]);
      }
    }
  }
  return "";
}

template <class T>
void expectModel(const Image<T>& src, const Settings& s, Random& random) {
  const Tensor tensor = tensorOf(src, s);
  for (const bool vectors : {false, true}) {
    AnyImage<float> dst(random, src.size(), vectors ? 6 : 1);
    ASSERT_EQ(measureInExactBuffer(vectors, src.data(), src.step(), dst.data(), dst.step(), src.size(), s, random),
              qorStatusOk);
    ASSERT_EQ(differenceOf(vectors, dst, tensor, s, 0, src.height()), "") << nameOf(s, src.size());
    ASSERT_TRUE(dst.gapsIntact()) << nameOf(s, src.size());
  }
}

// Pictures of several kinds: noise, little of it, slopes and steps.
template <class T>
T pixel(Random& random, int32_t kind, int32_t x, int32_t y) {
  int32_t value;
  switch (kind) {
    case 0: value = int32_t(random.number(0, 255)); break;
    case 1: value = 100 + int32_t(random.number(0, 2)); break;
    case 2: value = (3 * x + 5 * y + int32_t(random.number(0, 9))) & 255; break;
    case 3: value = x / 5 % 2 == y / 7 % 2 ? 20 : 230; break;
    default: value = random.chance(0.5) ? 0 : 255; break;
  }
  if (sizeof(T) == 1) return T(value);
  return T(float(value) + (kind == 3 ? 0.0f : float(random.number(-400, 400)) * 0.25f));
}

template <class T>
void fillAny(Image<T>& image, Random& random) {
  const int32_t kind = int32_t(random.number(0, 4));
  int32_t i = 0;
  image.fill([&] {
    const int32_t x = i % image.width(), y = i / image.width();
    ++i;
    return pixel<T>(random, kind, x, y);
  });
}

template <class T>
class EigenOf : public Eigen {};
using Elements = ::testing::Types<uint8_t, float>;
TYPED_TEST_SUITE(EigenOf, Elements);

// ---- Results

TYPED_TEST(EigenOf, SmallImagesAreAsTheModelHasThem) {
  Random random(1);
  for (const Settings& s : allSettings) {
    for (int32_t height = 1; height <= 6; ++height) {
      for (int32_t width = 1; width <= 6; ++width) {
        AnyImage<TypeParam> src(random, {width, height});
        fillAny(src, random);
        expectModel(src, s, random);
      }
    }
  }
}

TYPED_TEST(EigenOf, ImagesOfAnySizeAreAsTheModelHasThem) {
  Random random(2);
  for (int32_t i = 0; i < 20 * thorough; ++i) {
    AnyImage<TypeParam> src(random, {random.width(150), int32_t(random.number(1, 70))});
    fillAny(src, random);
    expectModel(src, allSettings[size_t(i) % allSettings.size()], random);
  }
}

// Tall and wide enough for several bands, with ends of every length.
TYPED_TEST(EigenOf, BandsDoNotShow) {
  Random random(3);
  for (const Settings& s : allSettings) {
    for (const int32_t height : {127, 128, 129, 130, 143, 144, 145, 255, 272, 290}) {
      if (thorough == 1 && height % 2) continue;
      AnyImage<TypeParam> src(random, {int32_t(random.number(1, 20)), height});
      fillAny(src, random);
      expectModel(src, s, random);
    }
    AnyImage<TypeParam> wide(random, {1300, int32_t(random.number(45, 60))});
    fillAny(wide, random);
    expectModel(wide, s, random);
  }
}

TYPED_TEST(EigenOf, AConstantImageGivesZeros) {
  Random random(4);
  for (const Settings& s : allSettings) {
    Image<TypeParam> src(37, 9);
    src.fill([] { return TypeParam(77); });
    for (const bool vectors : {false, true}) {
      Image<float> dst(37, 9, vectors ? 6 : 1);
      dst.fill([] { return 5.0f; });
      ASSERT_EQ(measureInExactBuffer(vectors, src.data(), src.step(), dst.data(), dst.step(), src.size(), s, random),
                qorStatusOk);
      for (int32_t y = 0; y < 9; ++y) {
        for (int32_t x = 0; x < 37; ++x) {
          for (int32_t k = 0; k < dst.channels(); ++k) ASSERT_EQ(dst.get(x, y, k), 0.0f);
        }
      }
    }
  }
}

TYPED_TEST(EigenOf, AStraightEdgeGivesZeros) {
  Random random(5);
  for (const Settings& s : allSettings) {
    for (const bool upright : {false, true}) {
      Image<TypeParam> src(24, 24);
      for (int32_t y = 0; y < 24; ++y) {
        for (int32_t x = 0; x < 24; ++x) src.set(x, y, TypeParam((upright ? x : y) < 12 ? 10 : 200));
      }
      for (const bool vectors : {false, true}) {
        Image<float> dst(24, 24, vectors ? 6 : 1);
        dst.fill([] { return 5.0f; });
        ASSERT_EQ(measureInExactBuffer(vectors, src.data(), src.step(), dst.data(), dst.step(), src.size(), s, random),
                  qorStatusOk);
        for (int32_t y = 0; y < 24; ++y) {
          for (int32_t x = 0; x < 24; ++x) {
            for (int32_t k = 0; k < dst.channels(); ++k) {
              // Of the smaller value alone the rounding is left.
              ASSERT_NEAR(dst.get(x, y, k), 0.0f, vectors ? 0.0f : 1e-5f);
            }
          }
        }
      }
    }
  }
}

// One bright pixel on black, by hand: Sobel 3, window 3, the pixel itself. Of the nine slopes dx around it the four
// corners have +-v, left and right +-2 v, so a = c = (4 + 8) v^2 / 9; b is the corners' sum, signs alternating: 0. So
// both eigenvalues are a * scale, and the vectors the axes.
TEST_F(Eigen, ASpotByHand) {
  Image<uint8_t> src(9, 9);
  src.set(4, 4, 90);
  Random random(6);
  Image<float> values(9, 9, 6), least(9, 9);
  const Settings s = {0, 3, 3};
  ASSERT_EQ(measureInExactBuffer(true, src.data(), 9, values.data(), values.step(), src.size(), s, random),
            qorStatusOk);
  ASSERT_EQ(measureInExactBuffer(false, src.data(), 9, least.data(), least.step(), src.size(), s, random), qorStatusOk);
  const float expected = 12.0f * 8100.0f / 9.0f / 4080.0f;
  EXPECT_NEAR(values.get(4, 4, 0), expected, 1e-4f);
  EXPECT_NEAR(values.get(4, 4, 1), expected, 1e-4f);
  EXPECT_NEAR(least.get(4, 4), expected, 1e-4f);
  const float axes[] = {1, 0, 0, 1};
  for (int32_t k = 0; k < 4; ++k) EXPECT_EQ(values.get(4, 4, 2 + k), axes[k]);
  for (int32_t k = 0; k < 6; ++k) EXPECT_EQ(values.get(0, 0, k), 0.0f);
}

// Whatever the sign of the derivative filters: the vectors belong to the matrix of the slopes to the right and down.
TYPED_TEST(EigenOf, VectorsAreEigenvectorsOfTheSlopes) {
  Random random(7);
  for (const Settings& s : allSettings) {
    Image<TypeParam> src(40, 40);
    int32_t i = 0;
    src.fill([&] {
      const double x = i % 40, y = i / 40;
      ++i;
      return TypeParam(lround(128 + 50 * sin(x * 0.5 + y * 0.3) + 50 * sin(x * 0.2 - y * 0.6)));
    });
    Image<float> dst(40, 40, 6);
    ASSERT_EQ(measureInExactBuffer(true, src.data(), src.step(), dst.data(), dst.step(), src.size(), s, random),
              qorStatusOk);
    const Tensor t = tensorOf(src, s);
    int32_t seen = 0;
    for (int32_t y = 0; y < 40; ++y) {
      for (int32_t x = 0; x < 40; ++x) {
        const size_t at = size_t(y) * 40 + x;
        const double scale = scaleOf(s), a = t.a[at] * scale, c = t.c[at] * scale;
        const double b = t.b[at] * scale * (s.kernelType == 1 ? 1 : -1);
        for (int32_t k = 0; k < 2; ++k) {
          const double l = dst.get(x, y, k), u = dst.get(x, y, 2 + 2 * k), v = dst.get(x, y, 3 + 2 * k);
          if (u == 0 || v == 0) continue;
          ++seen;
          ASSERT_NEAR(u * u + v * v, 1, 1e-4);
          ASSERT_NEAR(a * u + b * v, l * u, 1e-3 * (a + c));
          ASSERT_NEAR(b * u + c * v, l * v, 1e-3 * (a + c));
        }
      }
    }
    EXPECT_GT(seen, 500) << nameOf(s, src.size());
  }
}

TEST_F(Eigen, FloatsThatAreNoNumbers) {
  Random random(8);
  const float infinite = std::numeric_limits<float>::infinity(), nan = std::numeric_limits<float>::quiet_NaN();
  for (int32_t i = 0; i < 10 * thorough; ++i) {
    AnyImage<float> src(random, {random.width(70), int32_t(random.number(1, 30))});
    const std::vector<float> special = {infinite, -infinite, nan, -0.0f};
    src.fill([&] { return random.chance(0.03) ? random.pick(special) : float(random.number(-9, 9)); });
    expectModel(src, allSettings[size_t(i) % allSettings.size()], random);
  }
}

// Tiny and huge slopes: denormal products, squares that overflow.
TEST_F(Eigen, FloatsOfAllSizes) {
  Random random(9);
  for (int32_t i = 0; i < 12 * thorough; ++i) {
    AnyImage<float> src(random, {random.width(70), int32_t(random.number(1, 30))});
    const int32_t exponent = int32_t(random.number(-80, 62));
    src.fill([&] { return ldexpf(float(random.number(-100, 100)), exponent); });
    expectModel(src, allSettings[size_t(i) % allSettings.size()], random);
  }
}

// A dstStep of one float a pixel is taken by the 32f form, whose rows of six then overlap.
TEST_F(Eigen, RowsOfVectorsMayOverlapIn32f) {
  Random random(10);
  for (const QoriSize size :
       {QoriSize{1, 1}, QoriSize{5, 9}, QoriSize{70, 40}, QoriSize{17, 200}, QoriSize{256, 270}}) {
    // The largest would take threads.
    services::threads(size.height > 256 ? 2 : 1);
    AnyImage<float> src(random, size);
    fillAny(src, random);
    for (const int32_t step : {4 * size.width, 4 * size.width + 4, 20 * size.width}) {
      const Settings s = random.pick(allSettings);
      const Tensor t = tensorOf(src, s);
      GuardedMemory dst(size_t(step) * (size.height - 1) + size_t(24) * size.width);
      std::vector<float> expected(dst.size() / 4);
      for (int32_t y = 0; y < size.height; ++y) {
        for (int32_t x = 0; x < size.width; ++x) {
          const size_t i = size_t(y) * size.width + x;
          const auto six = valsVecs(t.a[i], t.b[i], t.c[i], s);
          for (size_t k = 0; k < 6; ++k) expected[size_t(y) * size_t(step) / 4 + size_t(x) * 6 + k] = six[k];
        }
      }
      float* const out = reinterpret_cast<float*>(dst.data());
      memset(out, 0, dst.size());
      ASSERT_EQ(measureInExactBuffer(true, src.data(), src.step(), out, step, size, s, random), qorStatusOk);
      for (size_t i = 0; i < expected.size(); ++i) ASSERT_EQ(out[i], expected[i]) << i;
    }
  }
}

// ---- Threads

TYPED_TEST(EigenOf, ThreadsDoNotShow) {
  Random random(11);
  for (int32_t i = 0; i < 3 * thorough; ++i) {
    const int32_t threads = i % 3 == 0 ? 2 : int32_t(random.number(3, 12));
    AnyImage<TypeParam> src(random, {256 + int32_t(random.number(0, 20)), int32_t(random.number(256, 400))});
    fillAny(src, random);
    services::threads(threads);
    expectModel(src, allSettings[size_t(i) % allSettings.size()], random);
  }
}

// More than one thread may be allowed although no filter uses it: the planes move, the results stay.
TYPED_TEST(EigenOf, SeveralThreadsAndSmallImages) {
  Random random(12);
  for (int32_t i = 0; i < 10 * thorough; ++i) {
    services::threads(int32_t(random.number(2, 40)));
    if (random.chance(0.3)) services::teamSize = int32_t(random.number(-1, 50));
    if (random.chance(0.3)) services::cores = int32_t(random.number(1, 50));
    AnyImage<TypeParam> src(random, {random.width(150), int32_t(random.number(1, 60))});
    fillAny(src, random);
    expectModel(src, allSettings[size_t(i) % allSettings.size()], random);
  }
}

TYPED_TEST(EigenOf, TheFiltersUseTheirThreads) {
  const Settings s = {0, 3, 3};
  for (const int32_t width : {255, 256}) {
    services::reset();
    Image<TypeParam> src(width, 300);
    for (const int32_t threads : {1, 2}) {
      services::threads(threads);
      for (const bool vectors : {false, true}) {
        Image<float> dst(width, 300, vectors ? 6 : 1);
        int32_t bytes = 0;
        ASSERT_EQ(querySize(vectors, TypeParam(), src.size(), s, &bytes), qorStatusOk);
        GuardedMemory buffer{size_t(bytes)};
        const int32_t team = requestedTeam([&] {
          ASSERT_EQ(measure(vectors, src.data(), src.step(), dst.data(), dst.step(), src.size(), s, buffer.data()),
                    qorStatusOk);
        });
        EXPECT_EQ(team, threads == 2 && width == 256 ? 2 : 0);
      }
    }
  }
}

// Where a team is asked for and the runtime gives one thread, a filter of its own would read the rows above and below
// the region. Here nothing is read beyond it, and the results are the usual ones.
TYPED_TEST(EigenOf, ALoneThreadStaysInsideTheImages) {
  Random random(13);
  const QoriSize size = {260, 260};
  for (const Settings& s : allSettings) {
    AnyImage<TypeParam> src(random, size);
    fillAny(src, random);
    const Tensor tensor = tensorOf(src, s);
    services::maxThreads = services::cores = 2;
    services::teamSize = int32_t(random.number(0, 1));
    for (const bool vectors : {false, true}) {
      Image<float> dst(size.width, size.height, vectors ? 6 : 1);
      ASSERT_EQ(measureInExactBuffer(vectors, src.data(), src.step(), dst.data(), dst.step(), size, s, random),
                qorStatusOk);
      ASSERT_EQ(differenceOf(vectors, dst, tensor, s, 0, size.height), "") << nameOf(s, size);
    }
  }
}

// ---- Sizes

int32_t largest(std::initializer_list<int32_t> sizes) { return *std::max_element(sizes.begin(), sizes.end()); }

TEST_F(Eigen, BufferSizes) {
  Random random(14);
  for (int32_t i = 0; i < 200; ++i) {
    services::threads(random.chance(0.5) ? 1 : int32_t(random.number(2, 40)));
    const QoriSize size = {int32_t(random.number(1, 3000)), int32_t(random.number(1, 2000))};
    for (const Settings& s : allSettings) {
      const int32_t aperture = s.apertureSize * 11, window = s.avgWindow * 11;
      int32_t v8 = 0, h8 = 0, v32 = 0, h32 = 0, sv8 = 0, sh8 = 0, sv32 = 0, sh32 = 0, mean = 0;
      qoriFilterSobelVertGetBufferSize_8u16s_C1R(size, aperture, &v8);
      qoriFilterSobelHorizGetBufferSize_8u16s_C1R(size, aperture, &h8);
      qoriFilterSobelVertGetBufferSize_32f_C1R(size, aperture, &v32);
      qoriFilterSobelHorizGetBufferSize_32f_C1R(size, aperture, &h32);
      if (s.avgWindow == 3) {
        qoriFilterScharrVertGetBufferSize_8u16s_C1R(size, &sv8);
        qoriFilterScharrHorizGetBufferSize_8u16s_C1R(size, &sh8);
        qoriFilterScharrVertGetBufferSize_32f_C1R(size, &sv32);
        qoriFilterScharrHorizGetBufferSize_32f_C1R(size, &sh32);
      }
      qoriFilterLowpassGetBufferSize_32f_C1R(size, window, &mean);
      const int32_t pixels = (size.width + 15) / 16 * 16 * size.height;
      for (const bool vectors : {false, true}) {
        int32_t bytes = -1;
        EXPECT_EQ(querySize(vectors, uint8_t(), size, s, &bytes), qorStatusOk);
        EXPECT_EQ(bytes, 16 * pixels + largest({v8, h8, sv8, sh8, mean}) + 224);
        EXPECT_EQ(querySize(vectors, float(), size, s, &bytes), qorStatusOk);
        EXPECT_EQ(bytes, 20 * pixels + largest({v32, h32, sv32, sh32, mean}) + 224);
      }
    }
  }
}

struct SizeArgs {
  QoriSize size = {9, 9};
  Settings s = {0, 3, 3};
  bool null = false;
};

TYPED_TEST(EigenOf, StatusesOfSizeQueries) {
  for (const bool vectors : {false, true}) {
    int32_t bytes = 12345;
    std::vector<Fault<SizeArgs>> faults = {{"bufferSize", qorStatusNullPtr, [](SizeArgs& a) { a.null = true; }}};
    for (const int32_t bad : {0, -1, INT32_MIN}) {
      faults.push_back({"width", qorStatusBadSize, [=](SizeArgs& a) { a.size.width = bad; }});
      faults.push_back({"height", qorStatusBadSize, [=](SizeArgs& a) { a.size.height = bad; }});
    }
    for (const int32_t bad : {0, 1, 2, 4, 6, 7, 33, 55, -3}) {
      faults.push_back({"apertureSize", qorStatusBadSize, [=](SizeArgs& a) { a.s.apertureSize = bad; }});
      faults.push_back({"avgWindow", qorStatusBadSize, [=](SizeArgs& a) { a.s.avgWindow = bad; }});
    }
    expectStatuses<SizeArgs>(
        SizeArgs(), faults,
        [&](const SizeArgs& a) { return querySize(vectors, TypeParam(), a.size, a.s, a.null ? nullptr : &bytes); },
        [&] {
          const uint8_t* b = reinterpret_cast<const uint8_t*>(&bytes);
          return std::vector<uint8_t>(b, b + 4);
        });
  }
}

// ---- Statuses

template <class T>
struct Args {
  const T* src;
  int32_t srcStep;
  float* dst;
  int32_t dstStep;
  QoriSize size;
  Settings s;
  uint8_t* buffer;
};

TYPED_TEST(EigenOf, StatusesInTheirOrder) {
  using A = Args<TypeParam>;
  constexpr int32_t element = sizeof(TypeParam);
  for (const bool vectors : {false, true}) {
    Image<TypeParam> src(12, 6);
    Image<float> dst(12, 6, vectors ? 6 : 1);
    Image<uint8_t> buffer(20000, 1);
    const A good = {src.data(), src.step(), dst.data(), dst.step(), src.size(), {0, 3, 3}, buffer.data()};
    const int32_t dstRow = vectors && element == 1 ? 24 * 12 : 4 * 12;
    std::vector<Fault<A>> faults = {
        {"src", qorStatusNullPtr, [](A& a) { a.src = nullptr; }},
        {"dst", qorStatusNullPtr, [](A& a) { a.dst = nullptr; }},
        {"buffer", qorStatusNullPtr, [](A& a) { a.buffer = nullptr; }},
        {"size", qorStatusBadSize, [](A& a) { a.size.width = 0; }},
        {"size", qorStatusBadSize, [](A& a) { a.size.height = -1; }},
        {"srcStep", qorStatusBadStep, [](A& a) { a.srcStep = 12 * element - 1; }},
        {"srcStep", qorStatusBadStep, [](A& a) { a.srcStep = -12 * element; }},
        {"dstStep", qorStatusBadStep, [=](A& a) { a.dstStep = dstRow - 1; }},
        {"dstStep", qorStatusBadStep, [=](A& a) { a.dstStep = dstRow - 4; }},
    };
    if (element == 4) {
      faults.push_back({"srcStep", qorStatusBadStepAlign, [](A& a) { a.srcStep = 4 * 12 + 1; }});
      faults.push_back({"srcStep", qorStatusBadStepAlign, [](A& a) { a.srcStep = 4 * 12 + 2; }});
    }
    for (const int32_t extra : {1, 2, 3}) {
      faults.push_back({"dstStep", qorStatusBadStepAlign, [=](A& a) { a.dstStep = dstRow + extra; }});
    }
    for (const int32_t kernelType : {-1, 2, 3, INT32_MAX}) {
      faults.push_back({"kernelType", qorStatusBadArg, [=](A& a) { a.s.kernelType = kernelType; }});
    }
    for (const int32_t aperture : {0, 1, 2, 4, 6, 7, 33, -3}) {
      faults.push_back({"apertureSize", qorStatusBadSize, [=](A& a) { a.s.apertureSize = aperture; }});
    }
    for (const int32_t window : {0, 1, 2, 4, 6, 7, 55, -5}) {
      faults.push_back({"avgWindow", qorStatusBadSize, [=](A& a) { a.s.avgWindow = window; }});
    }
    const std::function<QorStatus(const A&)> call = [=](const A& a) {
      return measure(vectors, a.src, a.srcStep, a.dst, a.dstStep, a.size, a.s, a.buffer);
    };
    const auto written = [&] {
      std::vector<uint8_t> bytes = dst.bytes();
      const std::vector<uint8_t> scratch = buffer.bytes();
      bytes.insert(bytes.end(), scratch.begin(), scratch.end());
      return bytes;
    };
    expectStatuses<A>(good, faults, call, written);
    // A Scharr filter has one aperture only.
    for (const int32_t aperture : {1, 5, 7}) {
      A scharr = good;
      scharr.s = {1, aperture, 3};
      EXPECT_EQ(call(scharr), qorStatusBadSize);
    }
    A scharr = good;
    scharr.s = {1, 3, 5};
    EXPECT_EQ(call(scharr), qorStatusOk);
  }
}

}  // namespace
