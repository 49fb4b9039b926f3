// Differences of images, float and scaled.
#include <gtest/gtest.h>

#include "frame/kit/image_cases.h"
#include "frame/kit/images.h"

namespace {

using Float = QorStatus (*)(const float*, int32_t, const float*, int32_t, float*, int32_t, QoriSize);
using FloatInPlace = QorStatus (*)(const float*, int32_t, float*, int32_t, QoriSize);
using Scaled = QorStatus (*)(const uint8_t*, int32_t, const uint8_t*, int32_t, uint8_t*, int32_t, QoriSize, int32_t);
using ScaledInPlace = QorStatus (*)(const uint8_t*, int32_t, uint8_t*, int32_t, QoriSize, int32_t);

struct Form {
  int32_t channels;
  Float plain;
  FloatInPlace plainInPlace;
  Scaled scaled;
  ScaledInPlace scaledInPlace;
};

const Form forms[] = {
    {1, qoriSub_32f_C1R, qoriSub_32f_C1IR, qoriSub_8u_C1RSfs, qoriSub_8u_C1IRSfs},
    {3, qoriSub_32f_C3R, qoriSub_32f_C3IR, qoriSub_8u_C3RSfs, qoriSub_8u_C3IRSfs},
    {4, qoriSub_32f_C4R, qoriSub_32f_C4IR, qoriSub_8u_C4RSfs, qoriSub_8u_C4IRSfs},
};

std::vector<int32_t> scaleFactors() {
  std::vector<int32_t> factors = {std::numeric_limits<int32_t>::min(), std::numeric_limits<int32_t>::min() + 1, -256,
                                  256, std::numeric_limits<int32_t>::max()};
  for (int32_t s = -40; s <= 40; ++s) factors.push_back(s);
  return factors;
}

uint8_t model(int32_t src1, int32_t src2, int32_t scaleFactor) {
  const int32_t d = std::max(src2 - src1, 0);
  if (scaleFactor == 0) return uint8_t(d);
  if (scaleFactor > 8) return 0;
  if (scaleFactor >= 1) {
    const int32_t unit = 1 << scaleFactor, quotient = d / unit, rest = d % unit;
    const bool up = 2 * rest > unit || (2 * rest == unit && quotient % 2 == 1);
    return uint8_t(quotient + (up ? 1 : 0));
  }
  if (scaleFactor <= -8) return src2 > src1 ? 255 : 0;
  return uint8_t(std::min(d << -scaleFactor, 255));
}

TEST(KitSub8u, AllPairsAtAllScales) {
  Image<uint8_t> src1(256, 256), src2(256, 256);
  for (int32_t y = 0; y < 256; ++y) {
    for (int32_t x = 0; x < 256; ++x) {
      src1.set(x, y, uint8_t(x));
      src2.set(x, y, uint8_t(y));
    }
  }
  for (const int32_t scaleFactor : scaleFactors()) {
    Image<uint8_t> dst(256, 256), inPlace(256, 256);
    for (int32_t y = 0; y < 256; ++y) memset(inPlace.data() + y * inPlace.step(), y, 256);
    ASSERT_EQ(qoriSub_8u_C1RSfs(src1.data(), src1.step(), src2.data(), src2.step(), dst.data(), dst.step(), dst.size(),
                                scaleFactor),
              qorStatusOk);
    ASSERT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t) { return model(x, y, scaleFactor); }), "")
        << scaleFactor;
    ASSERT_EQ(qoriSub_8u_C1IRSfs(src1.data(), src1.step(), inPlace.data(), inPlace.step(), dst.size(), scaleFactor),
              qorStatusOk);
    ASSERT_TRUE(inPlace.bytes() == dst.bytes()) << scaleFactor;
  }
}

TEST(KitSub8u, RandomImages) {
  Random random(1);
  for (const Form& form : forms) {
    for (int32_t round = 0; round < 400; ++round) {
      const Geometry g(random);
      const int32_t scaleFactor = int32_t(random.number(-10, 10));
      Image<uint8_t> src1 = g.image<uint8_t>(0, form.channels), src2 = g.image<uint8_t>(1, form.channels),
                     dst = g.image<uint8_t>(2, form.channels);
      src1.fill([&] { return random.value<uint8_t>(); });
      src2.fill([&] { return random.value<uint8_t>(); });
      std::vector<uint8_t> expected;
      for (int32_t y = 0; y < g.height; ++y) {
        for (int32_t i = 0; i < g.width * form.channels; ++i) {
          expected.push_back(model(src1.get(i / form.channels, y, i % form.channels),
                                   src2.get(i / form.channels, y, i % form.channels), scaleFactor));
        }
      }
      const auto right = [&](int32_t x, int32_t y, int32_t c) {
        return expected[(size_t(y) * g.width + x) * form.channels + c];
      };
      ASSERT_EQ(form.scaled(src1.data(), src1.step(), src2.data(), src2.step(), dst.data(), dst.step(), dst.size(),
                            scaleFactor),
                qorStatusOk);
      ASSERT_EQ(difference(dst, right), "") << scaleFactor;
      ASSERT_TRUE(dst.gapsIntact());
      if (round % 2) {  // dst is the subtrahend
        ASSERT_EQ(form.scaled(src1.data(), src1.step(), src2.data(), src2.step(), src1.data(), src1.step(), dst.size(),
                              scaleFactor),
                  qorStatusOk);
        ASSERT_EQ(difference(src1, right), "") << scaleFactor;
        ASSERT_TRUE(src1.gapsIntact());
      } else {
        ASSERT_EQ(form.scaledInPlace(src1.data(), src1.step(), src2.data(), src2.step(), dst.size(), scaleFactor),
                  qorStatusOk);
        ASSERT_EQ(difference(src2, right), "") << scaleFactor;
        ASSERT_TRUE(src2.gapsIntact());
      }
    }
  }
}

TEST(KitSub8u, Statuses) {
  for (const Form& form : forms) {
    for (const int32_t scaleFactor : {0, 3, -3, 9, -9}) {
      Image<uint8_t> src1(5, 3, form.channels), src2(5, 3, form.channels), dst(5, 3, form.channels);
      src2.fill([] { return uint8_t(200); });
      const ImageArgs good = {{false, false, false}, dst.size(), {src1.step(), src2.step(), dst.step()}, 0};
      expectStatuses<ImageArgs>(
          good, joined(pointerFaults(3), sizeFaults()),
          [&](const ImageArgs& a) {
            return form.scaled(a.pointer(0, src1.data()), a.steps[0], a.pointer(1, src2.data()), a.steps[1],
                               a.pointer(2, dst.data()), a.steps[2], a.size, scaleFactor);
          },
          [&] { return dst.bytes(); });
      expectStatuses<ImageArgs>(
          good, joined(pointerFaults(2), sizeFaults()),
          [&](const ImageArgs& a) {
            return form.scaledInPlace(a.pointer(0, src1.data()), a.steps[0], a.pointer(1, src2.data()), a.steps[1],
                                      a.size, scaleFactor);
          },
          [&] { return src2.bytes(); });
    }
  }
}

TEST(KitSub32f, FirstArgumentIsSubtractedFromSecond) {
  const float one = 1, three = 3;
  float difference = 0;
  ASSERT_EQ(qoriSub_32f_C1R(&one, 4, &three, 4, &difference, 4, {1, 1}), qorStatusOk);
  EXPECT_EQ(difference, 2.0f);
}

TEST(KitSub32f, RandomImages) {
  Random random(2);
  for (const Form& form : forms) {
    for (int32_t round = 0; round < 400; ++round) {
      const Geometry g(random);
      Image<float> src1 = g.image<float>(0, form.channels), src2 = g.image<float>(1, form.channels),
                   dst = g.image<float>(2, form.channels);
      src1.fill([&] { return random.anyFloat(); });
      src2.fill([&] { return random.anyFloat(); });
      std::vector<float> expected;
      for (int32_t y = 0; y < g.height; ++y) {
        for (int32_t i = 0; i < g.width * form.channels; ++i) {
          expected.push_back(src2.get(i / form.channels, y, i % form.channels) -
                             src1.get(i / form.channels, y, i % form.channels));
        }
      }
      const auto right = [&](int32_t x, int32_t y, int32_t c) {
        return expected[(size_t(y) * g.width + x) * form.channels + c];
      };
      ASSERT_EQ(form.plain(src1.data(), src1.step(), src2.data(), src2.step(), dst.data(), dst.step(), dst.size()),
                qorStatusOk);
      ASSERT_EQ(difference(dst, right), "");
      ASSERT_TRUE(dst.gapsIntact());
      if (round % 2) {
        ASSERT_EQ(form.plain(src1.data(), src1.step(), src2.data(), src2.step(), src1.data(), src1.step(), dst.size()),
                  qorStatusOk);
        ASSERT_EQ(difference(src1, right), "");
        ASSERT_TRUE(src1.gapsIntact());
      } else {
        ASSERT_EQ(form.plainInPlace(src1.data(), src1.step(), src2.data(), src2.step(), dst.size()), qorStatusOk);
        ASSERT_EQ(difference(src2, right), "");
        ASSERT_TRUE(src2.gapsIntact());
      }
    }
  }
}

TEST(KitSub32f, Statuses) {
  for (const Form& form : forms) {
    Image<float> src1(5, 3, form.channels), src2(5, 3, form.channels), dst(5, 3, form.channels);
    src1.fill([] { return 1.0f; });
    const ImageArgs good = {{false, false, false}, dst.size(), {src1.step(), src2.step(), dst.step()}, 0};
    expectStatuses<ImageArgs>(
        good, joined(pointerFaults(3), sizeFaults()),
        [&](const ImageArgs& a) {
          return form.plain(a.pointer(0, src1.data()), a.steps[0], a.pointer(1, src2.data()), a.steps[1],
                            a.pointer(2, dst.data()), a.steps[2], a.size);
        },
        [&] { return dst.bytes(); });
    expectStatuses<ImageArgs>(
        good, joined(pointerFaults(2), sizeFaults()),
        [&](const ImageArgs& a) {
          return form.plainInPlace(a.pointer(0, src1.data()), a.steps[0], a.pointer(1, src2.data()), a.steps[1],
                                   a.size);
        },
        [&] { return src2.bytes(); });
  }
}

// Three channels are one channel on a width times 3, and that product wraps: here to a negative one.
TEST(KitSub32f, WidthOfSeveralChannelsWraps) {
  float pixel[3] = {1, 2, 3};
  EXPECT_EQ(qoriSub_32f_C3IR(pixel, 12, pixel, 12, {0x2aaaaaab, 1}), qorStatusBadSize);
  EXPECT_EQ(qoriSub_32f_C4IR(pixel, 12, pixel, 12, {0x40000000, 1}), qorStatusBadSize);
}

}  // namespace
