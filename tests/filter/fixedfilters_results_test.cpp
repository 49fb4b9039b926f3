// Fixed-kernel border filters: every function, mask, mode and flag against the model, and the edge cases by name.
#include "filter/fixedfilters.h"

using namespace fixedfilters;

namespace {

const std::vector<QoriBorderType> modes = {qorBorderConst, qorBorderReplicate, qorBorderWrap, qorBorderMirror,
                                           qorBorderMirrorEdge};
const std::vector<QoriBorderType> flags = {0, qorBorderRowsAbove, qorBorderRowsBelow,
                                           qorBorderRowsAbove | qorBorderRowsBelow};
// Around the first block (16 rows and what it filters ahead) and the ones after it.
const std::vector<int32_t> heights = {1,  2,  3,  4,  5,  6,  15, 16, 17, 18, 19, 20,
                                      21, 22, 31, 32, 33, 34, 35, 36, 37, 38, 45};
const std::vector<int32_t> divisors = {1, -1, 3, -7, 2, 16, 1000, INT32_MIN, INT32_MAX};
const std::vector<int32_t> cacheSizes = {1 << 20, 0, 1, 1000, -1, INT32_MAX};

// Runs a filter on an image that is the same in both directions of memory: pixel(x, y) for any x, y, real rows too.
template <class D, class Pixel>
std::vector<D> filtered(const std::string& name, QoriSize size, QoriMaskSelector mask, QoriBorderType borderType,
                        float borderValue, Pixel pixel, int32_t divisor = 1) {
  const Filter& f = filter(name);
  return withTypes(f.types, [&](auto s, auto) {
    using S = decltype(s);
    constexpr int32_t around = 2;
    Image<S> src(size.width, size.height + 2 * around);
    for (int32_t y = 0; y < src.height(); ++y) {
      for (int32_t x = 0; x < size.width; ++x) src.set(x, y, S(pixel(x, y - around)));
    }
    int32_t bytes = 0;
    EXPECT_EQ(f.bufferSize(size, mask, &bytes), qorStatusOk);
    const Scratch scratch(bytes);
    std::vector<D> dst(size_t(size.width) * size_t(size.height));
    EXPECT_EQ(f.run({src.data() + around * size.width, src.step(), dst.data(), size.width * int32_t(sizeof(D)), size,
                     mask, borderType, borderValue, divisor, scratch.data()}),
              qorStatusOk)
        << name;
    return dst;
  });
}

}  // namespace

TEST_F(FixedFilters, theTableIsComplete) {
  EXPECT_EQ(filters().size(), 29u);
  int32_t pairs = 0;
  forEachFilter([&](const Filter&, QoriMaskSelector) { ++pairs; });
  EXPECT_EQ(pairs, 29 + 23);
}

TEST_F(FixedFilters, everyModeAndFlag) {
  Random random(1);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (QoriBorderType mode : modes) {
      for (QoriBorderType flag : flags) {
        for (int round = 0; round < 6; ++round) {
          Case given;
          given.size = {random.width(150), random.chance(0.6) ? random.pick(heights) : int32_t(random.number(1, 60))};
          given.mask = mask;
          given.borderType = mode | flag;
          given.divisor = random.pick(divisors);
          services::cacheSize = random.pick(cacheSizes);
          ASSERT_EQ(check(f, given, random), "");
        }
      }
    }
  });
}

TEST_F(FixedFilters, everySmallHeight) {
  Random random(2);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (int32_t height = 1; height <= 45; ++height) {
      for (QoriBorderType mode : modes) {
        Case given;
        given.size = {int32_t(random.number(1, 20)), height};
        given.mask = mask;
        given.borderType = mode | random.pick(flags);
        given.divisor = 16;
        ASSERT_EQ(check(f, given, random), "");
      }
    }
  });
}

TEST_F(FixedFilters, everyTinySize) {
  Random random(3);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (int32_t height = 1; height <= 4; ++height) {
      for (int32_t width = 1; width <= 5; ++width) {
        for (QoriBorderType mode : modes) {
          for (QoriBorderType flag : flags) {
            Case given;
            given.size = {width, height};
            given.mask = mask;
            given.borderType = mode | flag;
            given.divisor = 9;
            ASSERT_EQ(check(f, given, random), "");
          }
        }
      }
    }
  });
}

TEST_F(FixedFilters, everyWidthAroundVectors) {
  Random random(4);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (int32_t width = 1; width <= 70; ++width) {
      Case given;
      given.size = {width, int32_t(random.number(1, 5))};
      given.mask = mask;
      given.borderType = random.pick(modes) | random.pick(flags);
      given.divisor = random.pick(divisors);
      ASSERT_EQ(check(f, given, random), "");
    }
  });
}

TEST_F(FixedFilters, specialFloats) {
  Random random(5);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    if (f.types != Types::t32f) return;
    for (int round = 0; round < 100; ++round) {
      Case given;
      given.size = {random.width(70), int32_t(random.number(1, 20))};
      given.mask = mask;
      given.borderType = random.pick(modes) | random.pick(flags);
      given.anyFloats = true;
      ASSERT_EQ(check(f, given, random), "");
    }
  });
}

TEST_F(FixedFilters, extremeBorderValues) {
  Random random(6);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (float value : {0.0f, 1.0f, 127.0f, 128.0f, 255.0f}) {
      for (QoriBorderType flag : flags) {
        Case given;
        given.size = {random.width(40), int32_t(random.number(1, 20))};
        given.mask = mask;
        given.borderType = qorBorderConst | flag;
        given.borderValue = value;
        given.divisor = 8;
        ASSERT_EQ(check(f, given, random), "");
      }
    }
  });
}

TEST_F(FixedFilters, everyDivisor) {
  Random random(7);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    if (!f.hasDivisor()) return;
    std::vector<int32_t> all = divisors;
    for (int32_t divisor = -40; divisor <= 40; ++divisor) {
      if (divisor != 0) all.push_back(divisor);
    }
    for (int32_t divisor : all) {
      Case given;
      given.size = {40, 12};
      given.mask = mask;
      given.borderType = random.pick(modes);
      given.divisor = divisor;
      ASSERT_EQ(check(f, given, random), "");
    }
  });
}

TEST_F(FixedFilters, highBitsOfTheBorderTypeAreIgnored) {
  Random random(8);
  const std::vector<QoriBorderType> ignored = {0x40 | 0x10, 0x80 | 0x20, 0xffc0 | 0x30,    0x8000 | 0x10, 0x10000,
                                               0x7fff0000,  INT32_MIN,   INT32_MIN | 0x20, -65536};
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (QoriBorderType high : ignored) {
      for (QoriBorderType mode : modes) {
        Case given;
        given.size = {9, 7};
        given.mask = mask;
        given.borderType = mode | high;
        given.divisor = 4;
        ASSERT_EQ(check(f, given, random), "");
      }
    }
  });
}

// A single pixel of 1 comes out as the kernel, seen from the pixel: turned by half a turn.
TEST_F(FixedFilters, aSinglePixelShowsTheKernel) {
  struct {
    const char* operation;
    std::vector<int32_t> row3, column3, row5, column5;
  } const products[] = {
      {"SobelHoriz", {1, 2, 1}, {-1, 0, 1}, {1, 4, 6, 4, 1}, {-1, -2, 0, 2, 1}},
      {"SobelVert", {1, 0, -1}, {1, 2, 1}, {1, 2, 0, -2, -1}, {1, 4, 6, 4, 1}},
      {"SobelNegVert", {1, 0, -1}, {-1, -2, -1}, {1, 2, 0, -2, -1}, {-1, -4, -6, -4, -1}},
      {"SobelHorizSecond", {1, 2, 1}, {1, -2, 1}, {1, 4, 6, 4, 1}, {1, 0, -2, 0, 1}},
      {"SobelVertSecond", {1, -2, 1}, {1, 2, 1}, {1, 0, -2, 0, 1}, {1, 4, 6, 4, 1}},
      {"SobelCross", {1, 0, -1}, {-1, 0, 1}, {1, 2, 0, -2, -1}, {-1, -2, 0, 2, 1}},
      {"ScharrHoriz", {3, 10, 3}, {-1, 0, 1}, {}, {}},
      {"ScharrVert", {-1, 0, 1}, {3, 10, 3}, {}, {}},
  };
  const int32_t laplacian3[3][3] = {{2, 0, 2}, {0, -8, 0}, {2, 0, 2}};
  const int32_t laplacian5[5][5] = {
      {2, 4, 4, 4, 2}, {4, 0, -8, 0, 4}, {4, -8, -24, -8, 4}, {4, 0, -8, 0, 4}, {2, 4, 4, 4, 2}};
  const auto expectKernel = [](const std::string& operation, QoriMaskSelector mask, auto tap) {
    const int32_t taps = mask == qorMaskSize5x5 ? 5 : 3, half = taps / 2, size = 15, middle = 7;
    const auto pixel = [=](int32_t x, int32_t y) { return x == middle && y == middle; };
    const auto expected = [=](int32_t x, int32_t y) {
      const int32_t i = middle - x + half, j = middle - y + half;
      return i < 0 || i >= taps || j < 0 || j >= taps ? 0 : tap(i, j);
    };
    const auto as32f = filtered<float>(operation + "_32f", {size, size}, mask, qorBorderReplicate, 0, pixel);
    const auto as16s = filtered<int16_t>(operation + "_8u16s", {size, size}, mask, qorBorderReplicate, 0, pixel);
    const auto as8s = filtered<int8_t>(operation + "_8u8s", {size, size}, mask, qorBorderReplicate, 0, pixel);
    for (int32_t y = 0; y < size; ++y) {
      for (int32_t x = 0; x < size; ++x) {
        const size_t at = size_t(y * size + x);
        EXPECT_EQ(as32f[at], float(expected(x, y))) << operation << " " << mask << " at " << x << ", " << y;
        EXPECT_EQ(as16s[at], expected(x, y)) << operation << " " << mask << " at " << x << ", " << y;
        EXPECT_EQ(as8s[at], expected(x, y)) << operation << " " << mask << " at " << x << ", " << y;
      }
    }
  };
  for (const auto& p : products) {
    expectKernel(p.operation, qorMaskSize3x3,
                 [&](int32_t i, int32_t j) { return p.row3[size_t(i)] * p.column3[size_t(j)]; });
    if (p.row5.empty()) continue;
    expectKernel(p.operation, qorMaskSize5x5,
                 [&](int32_t i, int32_t j) { return p.row5[size_t(i)] * p.column5[size_t(j)]; });
  }
  expectKernel("Laplacian", qorMaskSize3x3, [&](int32_t i, int32_t j) { return laplacian3[j][i]; });
  expectKernel("Laplacian", qorMaskSize5x5, [&](int32_t i, int32_t j) { return laplacian5[j][i]; });
}

TEST_F(FixedFilters, flatImagesHaveNoGradientButAtAConstantBorder) {
  const int32_t width = 21, height = 20, flat = 200, border = 50;
  const auto pixel = [](int32_t, int32_t) { return flat; };
  for (QoriMaskSelector mask : {qorMaskSize3x3, qorMaskSize5x5}) {
    for (QoriBorderType mode : {1, 2, 3, 4}) {
      for (int16_t v : filtered<int16_t>("SobelHoriz_8u16s", {width, height}, mask, mode, border, pixel)) {
        ASSERT_EQ(v, 0) << mode;
      }
    }
  }
  const auto stepped =
      filtered<int16_t>("SobelHoriz_8u16s", {width, height}, qorMaskSize3x3, qorBorderConst, border, pixel);
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      // A row of the image sums to 4 * flat, next to the sides to 3 * flat + border; the border row to 4 * border.
      const int32_t step = (x == 0 || x == width - 1 ? 3 : 4) * (flat - border);
      EXPECT_EQ(stepped[size_t(y * width + x)], y == 0 ? step : y == height - 1 ? -step : 0) << x << ", " << y;
    }
  }
}

TEST_F(FixedFilters, aSingleRowIsItsOwnMirrorImage) {
  Random random(9);
  std::vector<uint8_t> row(33);
  for (uint8_t& v : row) v = random.value<uint8_t>();
  for (QoriBorderType mode : {qorBorderMirror, qorBorderMirrorEdge}) {
    for (QoriMaskSelector mask : {qorMaskSize3x3, qorMaskSize5x5}) {
      // The rows around are there, and different; without flags they do not matter.
      const auto pixel = [&](int32_t x, int32_t y) { return y == 0 ? int32_t(row[size_t(x)]) : 255 - 100 * (y & 1); };
      for (int16_t v : filtered<int16_t>("SobelHoriz_8u16s", {33, 1}, mask, mode, 0, pixel)) ASSERT_EQ(v, 0);
      for (int16_t v : filtered<int16_t>("SobelHorizSecond_8u16s", {33, 1}, mask, mode, 0, pixel)) ASSERT_EQ(v, 0);
      const auto vertical = filtered<int16_t>("SobelVert_8u16s", {33, 1}, mask, mode, 0, pixel);
      const auto rows = filtered<int16_t>("SobelVert_8u16s", {33, 1}, mask, mode | 48, 0,
                                          [&](int32_t x, int32_t) { return row[size_t(x)]; });
      EXPECT_EQ(vertical, rows);
    }
  }
}

// With rows on the other side of a single row, the one edge that is mirrored still uses row 0.
TEST_F(FixedFilters, aSingleRowIsMirroredToItselfWhateverTheOtherEdge) {
  const auto pixel = [](int32_t, int32_t y) { return 10 + y; };
  for (QoriBorderType mode : {qorBorderMirror, qorBorderMirrorEdge}) {
    const auto below = filtered<int16_t>("SobelHoriz_8u16s", {3, 1}, 33, mode | qorBorderRowsBelow, 0, pixel);
    EXPECT_EQ(below, std::vector<int16_t>(3, 4 * (11 - 10)));
    const auto above = filtered<int16_t>("SobelHoriz_8u16s", {3, 1}, 33, mode | qorBorderRowsAbove, 0, pixel);
    EXPECT_EQ(above, std::vector<int16_t>(3, 4 * (10 - 9)));
    const auto below5 = filtered<int16_t>("SobelHoriz_8u16s", {3, 1}, 55, mode | qorBorderRowsBelow, 0, pixel);
    EXPECT_EQ(below5, std::vector<int16_t>(3, 16 * (12 - 10 + 2 * (11 - 10))));
  }
}

// Two rows mirrored under a 5x5 mask: the second row beyond the edge is row 0 again, but where the rows behind the
// other edge are real, the count runs on into them.
TEST_F(FixedFilters, aReflectionRunsOnIntoRealRows) {
  const auto pixel = [](int32_t, int32_t y) { return 10 * (y + 3); };  // 10, 20 | 30, 40 | 50, 60
  const auto first = [&](QoriBorderType borderType) {
    return filtered<int16_t>("SobelHorizSecond_8u16s", {1, 2}, 55, borderType, 0, pixel);
  };
  // Rows -2, 0 and 2 around row 0; rows -1, 1 and 3 around row 1.
  EXPECT_EQ(first(qorBorderMirror), (std::vector<int16_t>{16 * (30 - 2 * 30 + 30), 16 * (40 - 2 * 40 + 40)}));
  EXPECT_EQ(first(qorBorderMirror | qorBorderRowsBelow),
            (std::vector<int16_t>{16 * (50 - 2 * 30 + 50), 16 * (40 - 2 * 40 + 60)}));
  EXPECT_EQ(first(qorBorderMirror | qorBorderRowsAbove),
            (std::vector<int16_t>{16 * (10 - 2 * 30 + 30), 16 * (20 - 2 * 40 + 20)}));
  EXPECT_EQ(first(qorBorderMirrorEdge), (std::vector<int16_t>{16 * (40 - 2 * 30 + 40), 16 * (30 - 2 * 40 + 30)}));
}

// Fewer rows than the first block takes.
TEST_F(FixedFilters, fewRowsComeOutThroughTheBottomEdgeAlone) {
  Random random(10);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (int32_t height : {1, 2, 3, 14, 15, 16, 17}) {
      Case given;
      given.size = {30, height};
      given.mask = mask;
      given.borderType = qorBorderReplicate;
      given.divisor = 16;
      ASSERT_EQ(check(f, given, random), "");
    }
  });
}

TEST_F(FixedFilters, rowsAboveWithAConstantAtTheSides) {
  const auto pixel = [](int32_t, int32_t y) { return y < 0 ? 7 : 100; };
  const auto result = filtered<int16_t>("SobelHoriz_8u16s", {4, 3}, 33, qorBorderConst | qorBorderRowsAbove, 40, pixel);
  const std::vector<int16_t> expected = {3 * (100 - 7),   4 * (100 - 7),   4 * (100 - 7),   3 * (100 - 7),  0, 0, 0, 0,
                                         -3 * (100 - 40), -4 * (100 - 40), -4 * (100 - 40), -3 * (100 - 40)};
  EXPECT_EQ(result, expected);
}

TEST_F(FixedFilters, aFlat255StaysUnderThe3x3MeanAndLosesOneUnderThe5x5Mean) {
  const auto pixel = [](int32_t, int32_t) { return 255; };
  for (QoriBorderType mode : modes) {
    for (int32_t width : {1, 40, 64}) {
      for (uint8_t v : filtered<uint8_t>("Lowpass_8u", {width, 20}, 33, mode, 255, pixel)) ASSERT_EQ(v, 255);
      for (uint8_t v : filtered<uint8_t>("Lowpass_8u", {width, 20}, 55, mode, 255, pixel)) ASSERT_EQ(v, 254);
    }
  }
}

// Every sum of 9 and of 25 pixels.
TEST_F(FixedFilters, everyMean) {
  for (QoriMaskSelector mask : {qorMaskSize3x3, qorMaskSize5x5}) {
    const int32_t taps = mask == qorMaskSize5x5 ? 5 : 3, count = taps * taps;
    for (int32_t sum = 0; sum <= 255 * count; sum += 1) {
      // Pixels that differ by at most one and sum up to `sum`; only the one in the middle sees all of them.
      const auto pixel = [=](int32_t x, int32_t y) { return sum / count + (y * taps + x < sum % count); };
      const auto result = filtered<uint8_t>("Lowpass_8u", {taps, taps}, mask, qorBorderConst, 0, pixel);
      const int32_t expected = mask == qorMaskSize5x5 ? sum * 2621 >> 16 : (sum * 7280 + 36400) >> 16;
      ASSERT_EQ(result[size_t(count / 2)], std::min(expected, 255)) << sum;
    }
  }
}

TEST_F(FixedFilters, sobelVertIsNegativeWhereTheImageRises) {
  const auto rising = [](int32_t x, int32_t) { return 5 * x; };
  for (QoriMaskSelector mask : {qorMaskSize3x3, qorMaskSize5x5}) {
    for (QoriBorderType mode : {qorBorderReplicate, qorBorderMirrorEdge}) {
      for (int16_t v : filtered<int16_t>("SobelVert_8u16s", {20, 9}, mask, mode, 0, rising)) EXPECT_LT(v, 0);
      for (int16_t v : filtered<int16_t>("SobelNegVert_8u16s", {20, 9}, mask, mode, 0, rising)) EXPECT_GT(v, 0);
    }
  }
}

TEST_F(FixedFilters, theLargest8u16sResultsFit) {
  const auto lowerHalf = [](int32_t, int32_t y) { return y >= 4 ? 255 : 0; };
  const auto result = filtered<int16_t>("SobelHoriz_8u16s", {9, 8}, 55, qorBorderReplicate, 0, lowerHalf);
  EXPECT_EQ(*std::max_element(result.begin(), result.end()), 255 * 16 * 3);
}

TEST_F(FixedFilters, results8sSaturateAfterTheDivision) {
  const auto lowerHalf = [](int32_t, int32_t y) { return y >= 4 ? 255 : 0; };
  for (int32_t divisor : {1, 2, 7, 8, 9, -1, -7, -8, -9, 1000, 1021, -1020, 2000}) {
    const auto result = filtered<int8_t>("SobelHoriz_8u8s", {9, 8}, 33, qorBorderReplicate, 0, lowerHalf, divisor);
    const int32_t quotient = int32_t(1020.0f * (1.0f / float(divisor)));
    EXPECT_EQ(result[size_t(4 * 9 + 4)], std::clamp(quotient, -128, 127)) << divisor;
    EXPECT_EQ(result[0], 0);
  }
}

// -7 / 2 is -3: truncated toward zero.
TEST_F(FixedFilters, results8sAreTruncated) {
  const auto pixel = [](int32_t x, int32_t y) { return x == 4 && y == 4 ? 7 : 0; };
  const auto result = filtered<int8_t>("SobelVert_8u8s", {9, 9}, 33, qorBorderReplicate, 0, pixel, 2);
  EXPECT_EQ(result[size_t(3 * 9 + 3)], -3);  // the pixel is to the right
  EXPECT_EQ(result[size_t(3 * 9 + 5)], 3);   // the pixel is to the left
}

// A product with the reciprocal can fall short of the quotient: 82 times 1.0f / 41.0f is below 2.
TEST_F(FixedFilters, results8sAreProductsWithTheReciprocal) {
  const auto pixel = [](int32_t x, int32_t y) { return y == 0 && x % 3 == 1 ? x / 3 : 0; };
  int32_t unlikeQuotients = 0;
  for (int32_t divisor = 1; divisor < 512; ++divisor) {
    const auto result = filtered<int8_t>("SobelVert_8u8s", {768, 1}, 33, qorBorderConst, 0, pixel, divisor);
    const float reciprocal = 1.0f / float(divisor);
    for (int32_t v = 0; v < 256; ++v) {
      const int32_t sum = 2 * v, expected = std::min(int32_t(float(sum) * reciprocal), 128);
      ASSERT_EQ(result[size_t(3 * v + 2)], std::min(expected, 127)) << sum << " / " << divisor;
      ASSERT_EQ(result[size_t(3 * v)], -expected) << -sum << " / " << divisor;
      unlikeQuotients += expected != std::min(sum / divisor, 128);
    }
  }
  EXPECT_GT(unlikeQuotients, 0);
}
