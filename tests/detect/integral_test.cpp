// Upright integral images: every function against the definition, and the float forms against the row-by-row rule that
// fixes their rounding.
#include "detect/planes.h"

namespace {

template <class Body>
void forSums(Body body) {
  body(qoriIntegral_8u32s_C1R);
  body(qoriIntegral_8u32f_C1R);
}
template <class Body>
void forSquares(Body body) {
  body(qoriSqrIntegral_8u32s_C1R);
  body(qoriSqrIntegral_8u32s64f_C1R);
  body(qoriSqrIntegral_8u32f64f_C1R);
}

int32_t termOf(const Image<uint8_t>& src, int32_t x, int32_t y, bool squares) {
  const int32_t pixel = src.get(x, y);
  return squares ? pixel * pixel : pixel;
}

// Integer planes: the starting value and all pixels above and to the left.
void build(Plane<int32_t>& plane, const Image<uint8_t>& src, bool squares, int32_t start) {
  for (int32_t j = 0; j < plane.height; ++j) {
    uint32_t rows = 0;
    for (int32_t i = 0; i < plane.width; ++i) {
      if (i > 0) {
        for (int32_t y = 0; y < j; ++y) rows += bitsOf(termOf(src, i - 1, y, squares));
      }
      plane.at(i, j) = wrapped(bitsOf(start) + rows);
    }
  }
}

// Float planes: the exact sum of the row so far, made a float, plus the cell above.
template <class T>
void build(Plane<T>& plane, const Image<uint8_t>& src, bool squares, T start) {
  for (int32_t j = 0; j < plane.height; ++j) {
    int64_t row = 0;
    for (int32_t i = 0; i < plane.width; ++i) {
      if (i == 0 || j == 0) {
        plane.at(i, j) = start;
      } else {
        row += termOf(src, i - 1, j - 1, squares);
        const T converted = T(row);
        plane.at(i, j) = converted + plane.at(i, j - 1);
      }
    }
  }
}

void fillPixels(Image<uint8_t>& src, Random& random) {
  const bool bright = random.chance(0.3);
  src.fill([&] { return bright ? uint8_t(255) : random.value<uint8_t>(); });
}

template <class Cell>
std::string wrongSums(Integral<Cell> function, Random& random, QoriSize size, Cell val) {
  AnyImage<uint8_t> src(random, size);
  AnyImage<Cell> dst(random, {size.width + 1, size.height + 1});
  fillPixels(src, random);
  dst.fill([&] { return anyCell<Cell>(random); });
  const std::vector<uint8_t> before = src.bytes();
  Plane<Cell> model(size.width + 1, size.height + 1);
  build(model, src, false, val);
  if (function(src.data(), src.step(), dst.data(), dst.step(), size, val) != qorStatusOk) return "status";
  if (src.bytes() != before) return "wrote into the source";
  return wrongPlane(dst, model);
}

template <class Cell, class Square>
std::string wrongSums(SqrIntegral<Cell, Square> function, Random& random, QoriSize size, Cell val, Square valSqr) {
  AnyImage<uint8_t> src(random, size);
  AnyImage<Cell> dst(random, {size.width + 1, size.height + 1});
  AnyImage<Square> sqr(random, {size.width + 1, size.height + 1});
  fillPixels(src, random);
  dst.fill([&] { return anyCell<Cell>(random); });
  sqr.fill([&] { return anyCell<Square>(random); });
  const std::vector<uint8_t> before = src.bytes();
  Plane<Cell> model(size.width + 1, size.height + 1);
  Plane<Square> sqrModel(size.width + 1, size.height + 1);
  build(model, src, false, val);
  build(sqrModel, src, true, valSqr);
  if (function(src.data(), src.step(), dst.data(), dst.step(), sqr.data(), sqr.step(), size, val, valSqr) !=
      qorStatusOk) {
    return "status";
  }
  if (src.bytes() != before) return "wrote into the source";
  const std::string wrong = wrongPlane(dst, model);
  return wrong.empty() ? wrongPlane(sqr, sqrModel) : wrong;
}

template <class Cell>
std::string wrongWithAnyStart(Integral<Cell> function, Random& random, QoriSize size) {
  return wrongSums(function, random, size, anyStart<Cell>(random));
}
template <class Cell, class Square>
std::string wrongWithAnyStart(SqrIntegral<Cell, Square> function, Random& random, QoriSize size) {
  return wrongSums(function, random, size, anyStart<Cell>(random), anyStart<Square>(random));
}

class Integrals : public ::testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

}  // namespace

TEST_F(Integrals, likeTheModelOnRandomSizes) {
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

TEST_F(Integrals, everyWidthUpTo150) {
  Random random(2);
  const auto check = [&](auto function) {
    for (int32_t width = 1; width <= 150; ++width) ASSERT_EQ(wrongWithAnyStart(function, random, {width, 2}), "");
  };
  forSums(check);
  forSquares(check);
}

// Row 0 and column 0 hold the starting value, every other cell holds it once.
TEST_F(Integrals, theStartIsAddedOnce) {
  const uint8_t src[6] = {1, 2, 3, 4, 5, 6};
  int32_t dst[12], sqr[12];
  ASSERT_EQ(qoriSqrIntegral_8u32s_C1R(src, 3, dst, 16, sqr, 16, {3, 2}, 100, 1000), qorStatusOk);
  const int32_t sums[12] = {100, 100, 100, 100, 100, 101, 103, 106, 100, 105, 112, 121};
  const int32_t squares[12] = {1000, 1000, 1000, 1000, 1000, 1001, 1005, 1014, 1000, 1017, 1046, 1091};
  for (int k = 0; k < 12; ++k) {
    EXPECT_EQ(dst[k], sums[k]) << k;
    EXPECT_EQ(sqr[k], squares[k]) << k;
  }
}

TEST_F(Integrals, specialFloatsAsStart) {
  Random random(3);
  for (float val : {NAN, INFINITY, -INFINITY, -0.0f, 3e38f, 1e-45f, 16777216.0f}) {
    EXPECT_EQ(wrongSums(qoriIntegral_8u32f_C1R, random, {70, 5}, val), "");
    for (double valSqr : {double(NAN), double(INFINITY), -double(INFINITY), -0.0, 1e308, 9007199254740992.0}) {
      EXPECT_EQ(wrongSums(qoriSqrIntegral_8u32f64f_C1R, random, {70, 5}, val, valSqr), "");
      EXPECT_EQ(wrongSums(qoriSqrIntegral_8u32s64f_C1R, random, {70, 5}, 7, valSqr), "");
    }
  }
}

TEST_F(Integrals, sumsOf32BitsWrap) {
  Random random(4);
  for (int32_t val : {INT32_MAX, INT32_MAX - 1000, INT32_MIN, -1}) {
    EXPECT_EQ(wrongSums(qoriIntegral_8u32s_C1R, random, {90, 12}, val), "");
    EXPECT_EQ(wrongSums(qoriSqrIntegral_8u32s_C1R, random, {90, 12}, val, val), "");
    EXPECT_EQ(wrongSums(qoriSqrIntegral_8u32s64f_C1R, random, {90, 12}, val, 0.5), "");
  }
}

TEST_F(Integrals, exactOn200By200PixelsOf255) {
  Image<uint8_t> src(200, 200);
  src.fill([] { return uint8_t(255); });
  const Image<int32_t> dst(201, 201), sqr(201, 201);
  ASSERT_EQ(qoriSqrIntegral_8u32s_C1R(src.data(), 200, dst.data(), 804, sqr.data(), 804, src.size(), 0, 0),
            qorStatusOk);
  EXPECT_EQ(dst.get(200, 200), 10200000);
  EXPECT_EQ(sqr.get(200, 200), wrapped(2601000000u));  // past 2^31: negative
  ASSERT_EQ(qoriIntegral_8u32s_C1R(src.data(), 200, dst.data(), 804, src.size(), INT32_MAX), qorStatusOk);
  EXPECT_EQ(dst.get(200, 200), INT32_MIN + 10199999);
}

// Each row is summed exactly and rounded once: 2^24 + 1 + 1 + 1 in single steps would stay at 2^24.
TEST_F(Integrals, floatCellsAreRoundedOnce) {
  const uint8_t src[3] = {1, 1, 1};
  float dst[8];
  ASSERT_EQ(qoriIntegral_8u32f_C1R(src, 3, dst, 16, {3, 1}, 16777216.0f), qorStatusOk);
  EXPECT_EQ(dst[5], 16777216.0f);
  EXPECT_EQ(dst[6], 16777218.0f);
  EXPECT_EQ(dst[7], 16777220.0f);
}

// Rows whose sum of squares needs more than 32 bits.
TEST_F(Integrals, squaresOfLongRows) {
  const int32_t width = 70001;
  Image<uint8_t> src(width, 1);
  src.fill([] { return uint8_t(255); });
  const Image<int32_t> sums(width + 1, 2), sqr32(width + 1, 2);
  const Image<double> sqr64(width + 1, 2);
  ASSERT_EQ(qoriSqrIntegral_8u32s64f_C1R(src.data(), width, sums.data(), sums.step(), sqr64.data(), sqr64.step(),
                                         {width, 1}, 0, 0.25),
            qorStatusOk);
  for (int32_t i : {1, 33026, 66051, 66052, 66053, 69999, 70000, 70001}) {
    EXPECT_EQ(sqr64.get(i, 1), 65025.0 * i + 0.25) << i;
  }
  ASSERT_EQ(qoriSqrIntegral_8u32s_C1R(src.data(), width, sums.data(), sums.step(), sqr32.data(), sqr32.step(),
                                      {width, 1}, 0, 0),
            qorStatusOk);
  for (int32_t i : {1, 33026, 66051, 66052, 66053, 69999, 70000, 70001}) {
    EXPECT_EQ(sqr32.get(i, 1), wrapped(65025u * uint32_t(i))) << i;
  }
}

// The running sum of a row is a 32-bit integer.
TEST_F(Integrals, rowsOfMoreThan8MillionPixelsWrap) {
  const int32_t width = 8421600;  // 2147508000
  const std::vector<uint8_t> src(size_t(width), 255);
  std::vector<int32_t> ints(2 * (size_t(width) + 1));
  std::vector<float> floats(ints.size());
  const int32_t step = 4 * (width + 1);
  ASSERT_EQ(qoriIntegral_8u32s_C1R(src.data(), width, ints.data(), step, {width, 1}, 0), qorStatusOk);
  EXPECT_EQ(ints.back(), wrapped(2147508000u));
  ASSERT_EQ(qoriIntegral_8u32f_C1R(src.data(), width, floats.data(), step, {width, 1}, 0), qorStatusOk);
  EXPECT_EQ(floats.back(), float(wrapped(2147508000u)));
  EXPECT_EQ(floats[size_t(width) + 1 + 8421504], 2147483520.0f);
}

TEST_F(Integrals, statuses) {
  const auto check = [](auto function) { expectStatusesOf(function, 1); };
  forSums(check);
  forSquares(check);
}

// Sizes of rows in bytes are 32-bit numbers that wrap.
TEST_F(Integrals, theSizeOfARowWraps) {
  const uint8_t src[1] = {0};
  int32_t dst[1];
  double sqr[1];
  const QoriSize size = {0x3fffffff, 1};
  EXPECT_EQ(qoriIntegral_8u32s_C1R(src, INT32_MAX, dst, 2, size, 0), qorStatusBadStepAlign);
  EXPECT_EQ(qoriIntegral_8u32s_C1R(src, INT32_MAX, dst, 2, {0x3ffffffe - 0x20000000, 1}, 0), qorStatusBadStep);
  EXPECT_EQ(qoriSqrIntegral_8u32s64f_C1R(src, INT32_MAX, dst, 0, sqr, 4, size, 0, 0), qorStatusBadStepAlign);
}

TEST_F(Integrals, serialAtAnySize) {
  const auto check = [](auto function) { EXPECT_EQ(builderTeam(function), 0); };
  forSums(check);
  forSquares(check);
}
