// Sums of floats in row-major order, on pixels that tell one order from another: terms halfway between two doubles,
// long runs of small terms on a large total, totals that cross powers of 2, change their sign, or leave the exact
// integers.
#include <gtest/gtest.h>
#include <math.h>

#include "support/image.h"
#include "support/random.h"
#include "support/services.h"

namespace {

enum PixelKind {
  integers,
  integersOfBothSigns,
  mantissas,
  manySizes,
  minusOneToOne,
  fewBits,
  rareGiants,
  odd,
  halves,
  kinds
};

float pixel(Random& random, int32_t kind, int32_t exponent) {
  const auto number = [&](int64_t first, int64_t last) { return float(random.number(first, last)); };
  switch (kind) {
    case integers: return number(0, 65535);
    case integersOfBothSigns: return number(-32768, 32767);
    case mantissas: return ldexpf(number(0, 16777215), exponent);
    case manySizes: return ldexpf(number(-2048, 2047), int(random.number(0, 19)));
    case minusOneToOne: return number(-1, 1);
    case fewBits: return ldexpf(1 + number(0, 7) / 8, int(random.number(-15, 14))) * (random.chance(0.5) ? 1 : -1);
    case rareGiants: return random.chance(0.99) ? ldexpf(number(0, 255), exponent) : 0x1p60f;
    case odd: return ldexpf(2 * number(0, 511) + 1, exponent);
    default:  // units and halves of units of a total near 2^53
      return number(0, 5) / 2;
  }
}

// The first pixels make a total of any size, the others are of one kind.
void fillAny(Random& random, Image<float>& image) {
  const int32_t kind = int32_t(random.number(0, kinds - 1)), exponent = int32_t(random.number(-20, 20));
  image.fill([&] { return pixel(random, kind, exponent); });
  const int32_t size = int32_t(random.number(-30, 60));
  if (random.chance(0.7)) image.set(0, 0, ldexpf(float(random.number(0, 16777215)), size));
  if (random.chance(0.5)) image.set(image.width() - 1, 0, ldexpf(float(random.number(-16777215, 16777215)), size - 24));
  if (kind == halves && random.chance(0.8)) image.set(0, 0, random.chance(0.5) ? 0x1p53f : -0x1p52f);
}

template <class Term>
double chain(const Image<float>& image, Term term) {
  double total = 0;
  for (int32_t y = 0; y < image.height(); ++y) {
    for (int32_t x = 0; x < image.width(); ++x) total += term(double(image.get(x, y)));
  }
  return total;
}

struct SumsInOrder : testing::Test {
  void SetUp() override { services::reset(); }
};

TEST_F(SumsInOrder, AreThoseOfOneAdditionAfterTheOther) {
  Random random(71);
  for (int i = 0; i < 4000; ++i) {
    Image<float> image(int32_t(random.number(1, 2600)), int32_t(random.number(1, 3)), 1, int32_t(random.number(0, 2)),
                       Edge::end, random.chance(0.3) ? 3 : 0);
    fillAny(random, image);
    Image<uint8_t> mask(image.width(), image.height());
    mask.fill([] { return uint8_t(1); });
    const double count = double(image.width()) * image.height();
    const double sum = chain(image, [](double x) { return x; });
    const double squares = chain(image, [](double x) { return x * x; });
    const double magnitudes = chain(image, [](double x) { return fabs(x); });
    const double average = sum / count;
    const double around = chain(image, [&](double x) { return (x - average) * (x - average); });
    double deviation = sqrt(fabs(squares / count - average * average));
    if (0.05 * average * average > deviation * deviation) deviation = sqrt(around / count);

    double mean = -1, mean2 = -1, stdDev = -1, l1 = -1, l2 = -1;
    ASSERT_EQ(qoriMean_32f_C1MR(image.data(), image.step(), mask.data(), mask.step(), image.size(), &mean),
              qorStatusOk);
    ASSERT_EQ(qoriMean_StdDev_32f_C1R(image.data(), image.step(), image.size(), &mean2, &stdDev), qorStatusOk);
    ASSERT_EQ(qoriNorm_L1_32f_C1MR(image.data(), image.step(), mask.data(), mask.step(), image.size(), &l1),
              qorStatusOk);
    ASSERT_EQ(qoriNorm_L2_32f_C1MR(image.data(), image.step(), mask.data(), mask.step(), image.size(), &l2),
              qorStatusOk);
    ASSERT_TRUE(sameValue(mean, average)) << "image " << i;
    ASSERT_TRUE(sameValue(mean2, average)) << "image " << i;
    ASSERT_TRUE(sameValue(stdDev, deviation)) << "image " << i;
    ASSERT_TRUE(sameValue(l1, magnitudes)) << "image " << i;
    ASSERT_TRUE(sameValue(l2, sqrt(squares))) << "image " << i;
  }
}

}  // namespace
