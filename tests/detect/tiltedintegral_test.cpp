// Tilted integral images: every function against the recurrence, step by step.
#include "detect/planes.h"

namespace {

template <class Body>
void forSums(Body body) {
  body(qoriTiltedIntegral_8u32s_C1R);
  body(qoriTiltedIntegral_8u32f_C1R);
}
template <class Body>
void forSquares(Body body) {
  body(qoriTiltedSqrIntegral_8u32s_C1R);
  body(qoriTiltedSqrIntegral_8u32s64f_C1R);
  body(qoriTiltedSqrIntegral_8u32f64f_C1R);
}

enum class Form {
  int32,           // 32s
  int32ReadsPast,  // 32s of the 8u32s pair: step 2 up to column W
  float32,         // 32f, computed in double, column W added to the old cell
  double64         // 64f squares
};

// `plane` holds what the destination held before; on return it holds what must be there. Source pixels are read up to
// column W where the form does.
template <Form form, class T>
void build(Plane<T>& plane, const Image<uint8_t>& src, bool squares, T start) {
  const int32_t W = plane.width - 2, H = plane.height - 2;
  for (int32_t x = 0; x < W + 2; ++x) plane.at(x, 0) = plane.at(x, 1) = start;
  for (int32_t y = 0; y < H; ++y) {
    const auto s = [&](int32_t x) {
      const int32_t pixel = src.get(x, y);
      return squares ? pixel * pixel : pixel;
    };
    const auto prev = [&](int32_t x) { return plane.at(x, y); };
    const auto cur = [&](int32_t x) { return plane.at(x, y + 1); };
    const auto next = [&](int32_t x) -> T& { return plane.at(x, y + 2); };
    next(0) = cur(1);
    const int32_t lastInner = form == Form::int32ReadsPast ? W : W - 1;
    for (int32_t i = 1; i <= lastInner; ++i) {
      if constexpr (std::is_same_v<T, int32_t>) {
        next(i) = wrapped(bitsOf(s(i - 1)) + bitsOf(s(i)) + bitsOf(cur(i - 1)) + bitsOf(cur(i + 1)) - bitsOf(prev(i)));
      } else if constexpr (std::is_same_v<T, float>) {
        double sum = double(cur(i - 1)) - double(prev(i));
        sum = sum + double(cur(i + 1));
        sum = sum + double(s(i - 1));
        sum = sum + double(s(i));
        next(i) = float(sum);
      } else {
        double sum = double(s(i - 1) + s(i));
        sum = sum + cur(i - 1);
        sum = sum - prev(i);
        sum = sum + cur(i + 1);
        next(i) = sum;
      }
    }
    if constexpr (form == Form::int32) {
      next(W) = wrapped(bitsOf(s(W - 1)) + bitsOf(cur(W - 1)) + bitsOf(cur(W + 1)) - bitsOf(prev(W)));
    } else if constexpr (form == Form::float32) {
      double sum = double(s(W - 1)) + double(cur(W - 1));
      sum = sum + double(cur(W + 1));
      sum = sum - double(prev(W));
      next(W) = next(W) + float(sum);
    } else if constexpr (form == Form::double64) {
      double sum = double(s(W - 1));
      sum = sum + cur(W - 1);
      sum = sum - prev(W);
      sum = sum + cur(W + 1);
      next(W) = sum;
    }
    next(W + 1) = cur(W);
  }
}

void buildPlane(Plane<int32_t>& plane, const Image<uint8_t>& src, bool squares, int32_t start, bool readsPast) {
  readsPast ? build<Form::int32ReadsPast>(plane, src, squares, start) : build<Form::int32>(plane, src, squares, start);
}
void buildPlane(Plane<float>& plane, const Image<uint8_t>& src, bool squares, float start, bool) {
  build<Form::float32>(plane, src, squares, start);
}
void buildPlane(Plane<double>& plane, const Image<uint8_t>& src, bool squares, double start, bool) {
  build<Form::double64>(plane, src, squares, start);
}

template <class T>
Plane<T> contents(const Image<T>& image) {
  Plane<T> plane(image.width(), image.height());
  for (int32_t y = 0; y < image.height(); ++y) {
    for (int32_t x = 0; x < image.width(); ++x) plane.at(x, y) = image.get(x, y);
  }
  return plane;
}

// What the destination holds before the call: zeros, numbers, or anything.
template <class T>
void fillBefore(Image<T>& image, Random& random) {
  const int64_t kind = random.number(0, 2);
  if (kind == 1) image.fill([&] { return T(random.number(-1000, 1000)); });
  if (kind == 2) image.fill([&] { return anyCell<T>(random); });
}

template <class Cell>
std::string wrongSums(Integral<Cell> function, Random& random, QoriSize size, Cell val) {
  AnyImage<uint8_t> src(random, size);
  AnyImage<Cell> dst(random, {size.width + 2, size.height + 2});
  src.fill([&] { return random.value<uint8_t>(); });
  fillBefore(dst, random);
  Plane<Cell> model = contents(dst);
  for (int32_t call = 0; call < 2; ++call) {  // the second one on what the first has left
    buildPlane(model, src, false, val, false);
    if (function(src.data(), src.step(), dst.data(), dst.step(), size, val) != qorStatusOk) return "status";
    const std::string wrong = wrongPlane(dst, model);
    if (!wrong.empty()) return wrong;
  }
  return "";
}

template <class Cell, class Square>
std::string wrongSums(SqrIntegral<Cell, Square> function, Random& random, QoriSize size, Cell val, Square valSqr) {
  // The 8u32s pair reads one pixel past each row, which is the last before the unmapped page.
  constexpr bool readsPast = std::is_same_v<Cell, int32_t> && std::is_same_v<Square, int32_t>;
  AnyImage<uint8_t> src(random, {size.width + readsPast, size.height});
  AnyImage<Cell> dst(random, {size.width + 2, size.height + 2});
  AnyImage<Square> sqr(random, {size.width + 2, size.height + 2});
  src.fill([&] { return random.value<uint8_t>(); });
  fillBefore(dst, random);
  fillBefore(sqr, random);
  const std::vector<uint8_t> before = src.bytes();
  Plane<Cell> model = contents(dst);
  Plane<Square> sqrModel = contents(sqr);
  for (int32_t call = 0; call < 2; ++call) {
    buildPlane(model, src, false, val, readsPast);
    buildPlane(sqrModel, src, true, valSqr, readsPast);
    if (function(src.data(), src.step(), dst.data(), dst.step(), sqr.data(), sqr.step(), size, val, valSqr) !=
        qorStatusOk) {
      return "status";
    }
    if (src.bytes() != before) return "wrote into the source";
    std::string wrong = wrongPlane(dst, model);
    if (wrong.empty()) wrong = wrongPlane(sqr, sqrModel);
    if (!wrong.empty()) return wrong;
  }
  return "";
}

template <class Cell>
std::string wrongWithAnyStart(Integral<Cell> function, Random& random, QoriSize size) {
  return wrongSums(function, random, size, anyStart<Cell>(random));
}
template <class Cell, class Square>
std::string wrongWithAnyStart(SqrIntegral<Cell, Square> function, Random& random, QoriSize size) {
  return wrongSums(function, random, size, anyStart<Cell>(random), anyStart<Square>(random));
}

class TiltedIntegrals : public ::testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

}  // namespace

TEST_F(TiltedIntegrals, likeTheModelOnRandomSizes) {
  Random random(1);
  const auto check = [&](auto function) {
    for (int32_t run = 0; run < 250; ++run) {
      ASSERT_EQ(wrongWithAnyStart(function, random, {random.width(300), int32_t(random.number(1, 9))}), "");
    }
    for (const QoriSize size : {QoriSize{1, 1}, QoriSize{1, 40}, QoriSize{200, 1}, QoriSize{640, 7}}) {
      ASSERT_EQ(wrongWithAnyStart(function, random, size), "");
    }
  };
  forSums(check);
  forSquares(check);
}

TEST_F(TiltedIntegrals, everyWidthUpTo150) {
  Random random(2);
  const auto check = [&](auto function) {
    for (int32_t width = 1; width <= 150; ++width) ASSERT_EQ(wrongWithAnyStart(function, random, {width, 2}), "");
  };
  forSums(check);
  forSquares(check);
}

// Away from the edges a cell holds the start and the 45-degree cone above it: rows above are two pixels wider each.
TEST_F(TiltedIntegrals, sumsTheConeAbove) {
  Random random(3);
  constexpr int32_t width = 40, height = 12;
  Image<uint8_t> src(width, height);
  src.fill([&] { return random.value<uint8_t>(); });
  const Image<int32_t> dst(width + 2, height + 2);
  ASSERT_EQ(qoriTiltedIntegral_8u32s_C1R(src.data(), src.step(), dst.data(), dst.step(), src.size(), 1000),
            qorStatusOk);
  for (int32_t column = 14; column <= 26; ++column) {
    for (int32_t row = 2; row < height + 2; ++row) {
      int32_t cone = 1000;
      for (int32_t y = row - 2, half = 1; y >= 0; --y, ++half) {
        for (int32_t x = column - half; x < column + half; ++x) cone += src.get(x, y);
      }
      EXPECT_EQ(dst.get(column, row), cone) << column << ", " << row;
    }
  }
}

// Column 1 is the last column, with cur[0], cur[2] and prev[1].
TEST_F(TiltedIntegrals, aWidthOf1HasTheLastColumnStepAlone) {
  const uint8_t src[2] = {10, 20};
  int32_t dst[12];
  ASSERT_EQ(qoriTiltedIntegral_8u32s_C1R(src, 1, dst, 12, {1, 2}, 100), qorStatusOk);
  const int32_t expected[12] = {100, 100, 100, 100, 100, 100, 100, 110, 100, 110, 120, 110};
  for (int k = 0; k < 12; ++k) EXPECT_EQ(dst[k], expected[k]) << k;
  float floats[12] = {};
  ASSERT_EQ(qoriTiltedIntegral_8u32f_C1R(src, 1, floats, 12, {1, 2}, 100), qorStatusOk);
  for (int k = 0; k < 12; ++k) EXPECT_EQ(floats[k], float(expected[k])) << k;
}

TEST_F(TiltedIntegrals, the32fFormsAddToTheirOldColumnW) {
  const uint8_t src[4] = {1, 2, 3, 4};
  float dst[16] = {};
  double sqr[16];
  for (double& cell : sqr) cell = 12345;
  ASSERT_EQ(qoriTiltedIntegral_8u32f_C1R(src, 2, dst, 16, {2, 2}, 0), qorStatusOk);
  EXPECT_EQ(dst[8 + 2], 2.0f);
  EXPECT_EQ(dst[12 + 2], 4.0f + 3.0f);
  // Again, on what is there: row 2 doubles, and row 3 takes its own old cell besides.
  ASSERT_EQ(qoriTiltedIntegral_8u32f_C1R(src, 2, dst, 16, {2, 2}, 0), qorStatusOk);
  EXPECT_EQ(dst[8 + 1], 3.0f);
  EXPECT_EQ(dst[8 + 2], 4.0f);
  EXPECT_EQ(dst[12 + 2], 7.0f + 7.0f);
  // The 32f plane of the pair does the same, its square plane does not.
  ASSERT_EQ(qoriTiltedSqrIntegral_8u32f64f_C1R(src, 2, dst, 16, sqr, 32, {2, 2}, 0, 0), qorStatusOk);
  EXPECT_EQ(dst[8 + 2], 6.0f);
  EXPECT_EQ(dst[12 + 2], 14.0f + 7.0f);
  EXPECT_EQ(sqr[8 + 2], 4.0);
  // Cleared beforehand, it is the plain recurrence.
  memset(dst, 0, sizeof dst);
  ASSERT_EQ(qoriTiltedIntegral_8u32f_C1R(src, 2, dst, 16, {2, 2}, 0), qorStatusOk);
  EXPECT_EQ(dst[12 + 2], 7.0f);
}

// The other two members do not take the pixel past the region.
TEST_F(TiltedIntegrals, the8u32sPairReadsOneBytePastEachRow) {
  for (int32_t past : {0, 9}) {
    const uint8_t src[6] = {1, 2, uint8_t(past), 3, 4, uint8_t(past)};
    int32_t dst[16], sqr[16];
    ASSERT_EQ(qoriTiltedSqrIntegral_8u32s_C1R(src, 3, dst, 16, sqr, 16, {2, 2}, 0, 0), qorStatusOk);
    EXPECT_EQ(dst[8 + 2], 2 + past);
    EXPECT_EQ(sqr[8 + 2], 4 + past * past);
    EXPECT_EQ(dst[12 + 2], 4 + past + 3 + 0);
    EXPECT_EQ(dst[12 + 3], 2 + past);
    double sqr64[16];
    ASSERT_EQ(qoriTiltedSqrIntegral_8u32s64f_C1R(src, 3, dst, 16, sqr64, 32, {2, 2}, 0, 0), qorStatusOk);
    EXPECT_EQ(dst[8 + 2], 2);
    EXPECT_EQ(sqr64[8 + 2], 4.0);
  }
}

// That byte may be the last one that can be read.
TEST_F(TiltedIntegrals, the8u32sPairReadsNothingBeyondThatByte) {
  Random random(4);
  for (int32_t width = 1; width <= 140; ++width) {
    const Image<uint8_t> src(width + 1, 1);
    const Image<int32_t> dst(width + 2, 3), sqr(width + 2, 3);
    ASSERT_EQ(qoriTiltedSqrIntegral_8u32s_C1R(src.data(), src.step(), dst.data(), dst.step(), sqr.data(), sqr.step(),
                                              {width, 1}, 1, 1),
              qorStatusOk);
  }
}

// A source step of exactly the width is enough: the byte past a row is then the first of the next.
TEST_F(TiltedIntegrals, aSourceStepOfTheWidthIsEnoughForThe8u32sPair) {
  const uint8_t src[5] = {1, 2, 3, 4, 5};
  int32_t dst[16], sqr[16];
  ASSERT_EQ(qoriTiltedSqrIntegral_8u32s_C1R(src, 2, dst, 16, sqr, 16, {2, 2}, 0, 0), qorStatusOk);
  EXPECT_EQ(dst[8 + 2], 2 + 3);
  EXPECT_EQ(sqr[12 + 2], 16 + 25 + (1 + 4));
}

TEST_F(TiltedIntegrals, theStartCarriesThroughAsAConstant) {
  Random random(5);
  Image<uint8_t> src(50, 20);
  src.fill([&] { return random.value<uint8_t>(); });
  const Image<int32_t> from0(52, 22), from77(52, 22);
  ASSERT_EQ(qoriTiltedIntegral_8u32s_C1R(src.data(), 50, from0.data(), 208, src.size(), 0), qorStatusOk);
  ASSERT_EQ(qoriTiltedIntegral_8u32s_C1R(src.data(), 50, from77.data(), 208, src.size(), 77), qorStatusOk);
  EXPECT_EQ(difference(from77, [&](int32_t x, int32_t y, int32_t) { return from0.get(x, y) + 77; }), "");
}

TEST_F(TiltedIntegrals, specialFloatsAsStart) {
  Random random(6);
  for (float val : {NAN, INFINITY, -INFINITY, -0.0f, 3e38f, 1e-45f, 16777216.0f}) {
    EXPECT_EQ(wrongSums(qoriTiltedIntegral_8u32f_C1R, random, {70, 5}, val), "");
    for (double valSqr : {double(NAN), double(INFINITY), -double(INFINITY), -0.0, 1e308, 9007199254740992.0}) {
      EXPECT_EQ(wrongSums(qoriTiltedSqrIntegral_8u32f64f_C1R, random, {70, 5}, val, valSqr), "");
      EXPECT_EQ(wrongSums(qoriTiltedSqrIntegral_8u32s64f_C1R, random, {70, 5}, 7, valSqr), "");
    }
  }
}

TEST_F(TiltedIntegrals, sumsOf32BitsWrap) {
  Random random(7);
  for (int32_t val : {INT32_MAX, INT32_MAX - 1000, INT32_MIN, -1}) {
    EXPECT_EQ(wrongSums(qoriTiltedIntegral_8u32s_C1R, random, {90, 12}, val), "");
    EXPECT_EQ(wrongSums(qoriTiltedSqrIntegral_8u32s_C1R, random, {90, 12}, val, val), "");
    EXPECT_EQ(wrongSums(qoriTiltedSqrIntegral_8u32s64f_C1R, random, {90, 12}, val, 0.5), "");
  }
}

TEST_F(TiltedIntegrals, statuses) {
  const auto check = [](auto function) { expectStatusesOf(function, 2); };
  forSums(check);
  forSquares(check);
}

// Sizes of rows in bytes are 32-bit numbers that wrap.
TEST_F(TiltedIntegrals, theSizeOfARowWraps) {
  const uint8_t src[1] = {0};
  int32_t dst[1];
  double sqr[1];
  const QoriSize size = {0x3ffffffe, 1};
  EXPECT_EQ(qoriTiltedIntegral_8u32s_C1R(src, INT32_MAX, dst, 2, size, 0), qorStatusBadStepAlign);
  EXPECT_EQ(qoriTiltedSqrIntegral_8u32s64f_C1R(src, INT32_MAX, dst, 0, sqr, 4, size, 0, 0), qorStatusBadStepAlign);
}

TEST_F(TiltedIntegrals, serialAtAnySize) {
  const auto check = [](auto function) { EXPECT_EQ(builderTeam(function), 0); };
  forSums(check);
  forSquares(check);
}
