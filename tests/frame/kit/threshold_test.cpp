// Thresholds of all three element types; the float one compares bit patterns.
#include <gtest/gtest.h>

#include <functional>

#include "frame/kit/image_cases.h"
#include "frame/kit/images.h"

namespace {

constexpr int32_t below = 0, above = 4;

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

template <class T>
using Val = QorStatus (*)(const T*, int32_t, T*, int32_t, QoriSize, T, T, int32_t);

template <class T>
T model(T pixel, T threshold, T value, int32_t op) {
  const bool replaced = op == above ? pixel > threshold : pixel < threshold;
  return replaced ? value : pixel;
}

TEST(KitThreshold8u, AllPixelsAtAllThresholds) {
  Image<uint8_t> src(256, 1), dst(256, 1), inPlace(256, 1);
  for (int32_t x = 0; x < 256; ++x) src.set(x, 0, uint8_t(x));
  for (int32_t threshold = 0; threshold < 256; ++threshold) {
    const uint8_t t = uint8_t(threshold), value = uint8_t(threshold * 77 + 3);
    for (const int32_t op : {below, above}) {
      ASSERT_EQ(qoriThreshold_Val_8u_C1R(src.data(), 256, dst.data(), 256, {256, 1}, t, value, op), qorStatusOk);
      ASSERT_EQ(difference(dst, [&](int32_t x, int32_t, int32_t) { return model(uint8_t(x), t, value, op); }), "");
    }
    const auto right = [&](int32_t x, int32_t, int32_t) { return model(uint8_t(x), t, value, above); };
    ASSERT_EQ(qoriThreshold_GTVal_8u_C1R(src.data(), 256, dst.data(), 256, {256, 1}, t, value), qorStatusOk);
    ASSERT_EQ(difference(dst, right), "");
    for (int32_t x = 0; x < 256; ++x) inPlace.set(x, 0, uint8_t(x));
    ASSERT_EQ(qoriThreshold_GTVal_8u_C1IR(inPlace.data(), 256, {256, 1}, t, value), qorStatusOk);
    ASSERT_EQ(difference(inPlace, right), "");
  }
}

TEST(KitThreshold16u, AllPixelsAtTellingThresholds) {
  Image<uint16_t> src(256, 256), dst(256, 256), inPlace(256, 256);
  for (int32_t i = 0; i < 65536; ++i) src.set(i % 256, i / 256, uint16_t(i));
  for (const int32_t threshold : {0, 1, 255, 256, 32766, 32767, 32768, 32769, 65534, 65535}) {
    const uint16_t t = uint16_t(threshold), value = 40000;
    for (const int32_t op : {below, above}) {
      ASSERT_EQ(qoriThreshold_Val_16u_C1R(src.data(), 512, dst.data(), 512, {256, 256}, t, value, op), qorStatusOk);
      ASSERT_EQ(
          difference(dst, [&](int32_t x, int32_t y, int32_t) { return model(uint16_t(y * 256 + x), t, value, op); }),
          "");
    }
    const auto right = [&](int32_t x, int32_t y, int32_t) { return model(uint16_t(y * 256 + x), t, value, above); };
    ASSERT_EQ(qoriThreshold_GTVal_16u_C1R(src.data(), 512, dst.data(), 512, {256, 256}, t, value), qorStatusOk);
    ASSERT_EQ(difference(dst, right), "");
    for (int32_t i = 0; i < 65536; ++i) inPlace.set(i % 256, i / 256, uint16_t(i));
    ASSERT_EQ(qoriThreshold_GTVal_16u_C1IR(inPlace.data(), 512, {256, 256}, t, value), qorStatusOk);
    ASSERT_EQ(difference(inPlace, right), "");
  }
}

template <class T>
void expectRandomImages(Val<T> threshold) {
  Random random(1);
  for (int32_t round = 0; round < 500; ++round) {
    const Geometry g(random);
    Image<T> src = g.image<T>(0, 1), dst = g.image<T>(1, 1);
    src.fill([&] { return random.value<T>(); });
    const T t = random.value<T>(), value = random.value<T>();
    const int32_t op = random.chance(0.5) ? below : above;
    const auto before = src.bytes();
    ASSERT_EQ(threshold(src.data(), src.step(), dst.data(), dst.step(), dst.size(), t, value, op), qorStatusOk);
    ASSERT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t) { return model(src.get(x, y), t, value, op); }), "");
    ASSERT_TRUE(dst.gapsIntact());
    ASSERT_TRUE(src.bytes() == before);
    ASSERT_EQ(threshold(src.data(), src.step(), src.data(), src.step(), dst.size(), t, value, op), qorStatusOk);
    ASSERT_EQ(difference(src, [&](int32_t x, int32_t y, int32_t) { return dst.get(x, y); }), "");
    ASSERT_TRUE(src.gapsIntact());
  }
}

TEST(KitThreshold, RandomImages) {
  expectRandomImages<uint8_t>(qoriThreshold_Val_8u_C1R);
  expectRandomImages<uint16_t>(qoriThreshold_Val_16u_C1R);
}

// Float pixels are handled here by their bits, so that copied NaN must keep theirs.
uint32_t modelOfBits(uint32_t pixel, float threshold, uint32_t value, int32_t op) {
  bool replaced;
  if (threshold >= 0 && bitsOf(threshold) != 0x80000000) {
    const int32_t a = int32_t(pixel), b = int32_t(bitsOf(threshold));
    replaced = op == above ? a > b : a < b;
  } else {
    const float a = floatOf(pixel);
    replaced = op == above ? a > threshold : a < threshold;
  }
  return replaced ? value : pixel;
}

const std::vector<uint32_t> specialBits = {0x00000000, 0x80000000, 0x00000001, 0x80000001, 0x3f800000, 0xbf800000,
                                           0x3f800001, 0x3f7fffff, 0xbf800001, 0xbf7fffff, 0x7f800000, 0xff800000,
                                           0x7fc00000, 0xffc00000, 0x7f800001, 0xff800001, 0x7f7fffff, 0xff7fffff,
                                           0x7fffffff, 0xffffffff, 0x42c80000, 0xc2c80000};

float* floats(const Image<uint32_t>& image) { return reinterpret_cast<float*>(image.data()); }

TEST(KitThreshold32f, SpecialPixelsAtSpecialThresholds) {
  for (const uint32_t thresholdBits : specialBits) {
    const float t = floatOf(thresholdBits);
    for (const uint32_t pixel : specialBits) {
      for (const int32_t op : {below, above}) {
        Image<uint32_t> src(37, 1), dst(37, 1);
        src.fill([&] { return pixel; });
        ASSERT_EQ(qoriThreshold_Val_32f_C1R(floats(src), 148, floats(dst), 148, {37, 1}, t, 8.0f, op), qorStatusOk);
        ASSERT_EQ(difference(dst, [&](int32_t, int32_t, int32_t) { return modelOfBits(pixel, t, bitsOf(8.0f), op); }),
                  "")
            << std::hex << pixel << " at " << thresholdBits << " op " << op;
      }
    }
  }
}

TEST(KitThreshold32f, RandomImages) {
  Random random(2);
  for (int32_t round = 0; round < 800; ++round) {
    const Geometry g(random);
    Image<uint32_t> src = g.image<uint32_t>(0, 1), dst = g.image<uint32_t>(1, 1);
    src.fill([&] { return random.chance(0.2) ? random.pick(specialBits) : uint32_t(random.number(0, 0xffffffff)); });
    float t = floatOf(uint32_t(random.number(0, 0xffffffff)));
    if (t != t) t = random.chance(0.5) ? 0.0f : -1.0f;
    const float value = random.anyFloat();
    const int32_t op = random.chance(0.5) ? below : above;
    const auto right = [&](float becomes, int32_t code) {
      return [&, becomes, code](int32_t x, int32_t y, int32_t) {
        return modelOfBits(src.get(x, y), t, bitsOf(becomes), code);
      };
    };
    ASSERT_EQ(qoriThreshold_Val_32f_C1R(floats(src), src.step(), floats(dst), dst.step(), dst.size(), t, value, op),
              qorStatusOk);
    ASSERT_EQ(difference(dst, right(value, op)), "");
    ASSERT_TRUE(dst.gapsIntact());
    ASSERT_EQ(qoriThreshold_32f_C1R(floats(src), src.step(), floats(dst), dst.step(), dst.size(), t, op), qorStatusOk);
    ASSERT_EQ(difference(dst, right(t, op)), "");
    ASSERT_EQ(qoriThreshold_LT_32f_C1R(floats(src), src.step(), floats(dst), dst.step(), dst.size(), t), qorStatusOk);
    ASSERT_EQ(difference(dst, right(t, below)), "");
    ASSERT_EQ(qoriThreshold_LT_32f_C1IR(floats(src), src.step(), src.size(), t), qorStatusOk);
    ASSERT_EQ(difference(src, [&](int32_t x, int32_t y, int32_t) { return dst.get(x, y); }), "");
    ASSERT_TRUE(src.gapsIntact());
  }
}

uint32_t one(uint32_t pixel, float threshold, float value, int32_t op) {
  uint32_t result = 0x12345678;
  EXPECT_EQ(qoriThreshold_Val_32f_C1R(reinterpret_cast<const float*>(&pixel), 4, reinterpret_cast<float*>(&result), 4,
                                      {1, 1}, threshold, value, op),
            qorStatusOk);
  return result;
}

// The outcomes one by one, without a model.
TEST(KitThreshold32f, NanWithClearSignIsAboveAnyThreshold) {
  const uint32_t seven = bitsOf(7.0f), infinity = 0x7f800000;
  EXPECT_EQ(one(0x7fc00000, 1.0f, 7.0f, above), seven);
  EXPECT_EQ(one(0x7fc00000, floatOf(infinity), 7.0f, above), seven);
  EXPECT_EQ(one(infinity, floatOf(infinity), 7.0f, above), infinity);
  EXPECT_EQ(one(0x7fc00000, 1.0f, 7.0f, below), 0x7fc00000u);
}

TEST(KitThreshold32f, NanWithSignIsBelowThresholdsFromZeroOn) {
  EXPECT_EQ(one(0xffc00000, 1.0f, 7.0f, above), 0xffc00000u);
  EXPECT_EQ(one(0xffc00000, 1.0f, 7.0f, below), bitsOf(7.0f));
  EXPECT_EQ(one(0xffc00000, 0.0f, 7.0f, below), bitsOf(7.0f));
}

TEST(KitThreshold32f, NegativeZeroIsBelowZero) {
  EXPECT_EQ(one(0x80000000, 0.0f, 7.0f, below), bitsOf(7.0f));
  EXPECT_EQ(one(0x80000000, 0.0f, 7.0f, above), 0x80000000u);
  float pixel = -0.0f;
  ASSERT_EQ(qoriThreshold_LT_32f_C1IR(&pixel, 4, {1, 1}, 0.0f), qorStatusOk);
  EXPECT_EQ(bitsOf(pixel), 0u);
}

TEST(KitThreshold32f, NegativePixelsAreBelowThresholdsFromZeroOn) {
  EXPECT_EQ(one(bitsOf(-5.0f), 0.0f, 7.0f, below), bitsOf(7.0f));
  EXPECT_EQ(one(bitsOf(-5.0f), 0.0f, 7.0f, above), bitsOf(-5.0f));
  EXPECT_EQ(one(0xff800000, 3.0f, 7.0f, below), bitsOf(7.0f));
}

TEST(KitThreshold32f, NegativeThresholdComparesNumbers) {
  EXPECT_EQ(one(bitsOf(-5.0f), -3.0f, 7.0f, below), bitsOf(7.0f));
  EXPECT_EQ(one(bitsOf(-2.0f), -3.0f, 7.0f, below), bitsOf(-2.0f));
  EXPECT_EQ(one(bitsOf(-2.0f), -3.0f, 7.0f, above), bitsOf(7.0f));
  EXPECT_EQ(one(bitsOf(-3.0f), -3.0f, 7.0f, above), bitsOf(-3.0f));
  for (const uint32_t nan : {0x7fc00000u, 0xffc00000u, 0x7f800001u, 0xff800001u}) {
    EXPECT_EQ(one(nan, -3.0f, 7.0f, above), nan);
    EXPECT_EQ(one(nan, -3.0f, 7.0f, below), nan);
  }
}

// -0.0 is the number 0, but its pattern is the least of all: it is compared as a number.
TEST(KitThreshold32f, NegativeZeroAsThresholdIsZero) {
  EXPECT_EQ(one(bitsOf(-5.0f), -0.0f, 7.0f, below), bitsOf(7.0f));
  EXPECT_EQ(one(bitsOf(-5.0f), -0.0f, 7.0f, above), bitsOf(-5.0f));
  EXPECT_EQ(one(bitsOf(5.0f), -0.0f, 7.0f, above), bitsOf(7.0f));
  EXPECT_EQ(one(bitsOf(0.0f), -0.0f, 7.0f, above), 0u);
}

std::vector<Fault<ImageArgs>> operationFaults() {
  std::vector<Fault<ImageArgs>> faults;
  for (const int32_t bad : {1, 2, 3, 5, -1, -4, 260, std::numeric_limits<int32_t>::min()}) {
    faults.push_back({"op", qorStatusUnsupported, [bad](ImageArgs& a) { a.op = bad; }});
  }
  return faults;
}

// Operation code, pointers, sizes, steps. Forms without a code begin at the pointers.
void expectThresholdStatuses(bool hasOperation, int32_t images, const std::vector<int32_t>& steps,
                             const std::function<QorStatus(const ImageArgs&)>& call,
                             const std::function<std::vector<uint8_t>()>& written) {
  const auto checks = joined(pointerFaults(images), sizeFaults(), stepFaults(images));
  for (const int32_t op : {below, above}) {
    expectStatuses<ImageArgs>({{false, false}, {5, 3}, steps, op},
                              hasOperation ? joined(operationFaults(), checks) : checks, call, written);
  }
}

template <class T>
void expectIntegerStatuses(Val<T> val, QorStatus (*gtVal)(const T*, int32_t, T*, int32_t, QoriSize, T, T),
                           QorStatus (*gtValInPlace)(T*, int32_t, QoriSize, T, T)) {
  Image<T> src(5, 3), dst(5, 3);
  src.fill([] { return T(9); });
  const std::vector<int32_t> steps = {src.step(), dst.step()};
  const auto written = [&] { return dst.bytes(); };
  expectThresholdStatuses(
      true, 2, steps,
      [&](const ImageArgs& a) {
        return val(a.pointer(0, src.data()), a.steps[0], a.pointer(1, dst.data()), a.steps[1], a.size, 5, 7, a.op);
      },
      written);
  expectThresholdStatuses(
      false, 2, steps,
      [&](const ImageArgs& a) {
        return gtVal(a.pointer(0, src.data()), a.steps[0], a.pointer(1, dst.data()), a.steps[1], a.size, 5, 7);
      },
      written);
  expectThresholdStatuses(
      false, 1, steps,
      [&](const ImageArgs& a) { return gtValInPlace(a.pointer(0, dst.data()), a.steps[0], a.size, 5, 7); }, written);
}

TEST(KitThreshold, Statuses) {
  expectIntegerStatuses<uint8_t>(qoriThreshold_Val_8u_C1R, qoriThreshold_GTVal_8u_C1R, qoriThreshold_GTVal_8u_C1IR);
  expectIntegerStatuses<uint16_t>(qoriThreshold_Val_16u_C1R, qoriThreshold_GTVal_16u_C1R, qoriThreshold_GTVal_16u_C1IR);
  for (const float t : {5.0f, -5.0f}) {
    Image<float> src(5, 3), dst(5, 3);
    src.fill([] { return 9.0f; });
    const std::vector<int32_t> steps = {src.step(), dst.step()};
    const auto written = [&] { return dst.bytes(); };
    expectThresholdStatuses(
        true, 2, steps,
        [&](const ImageArgs& a) {
          return qoriThreshold_Val_32f_C1R(a.pointer(0, src.data()), a.steps[0], a.pointer(1, dst.data()), a.steps[1],
                                           a.size, t, 7, a.op);
        },
        written);
    expectThresholdStatuses(
        true, 2, steps,
        [&](const ImageArgs& a) {
          return qoriThreshold_32f_C1R(a.pointer(0, src.data()), a.steps[0], a.pointer(1, dst.data()), a.steps[1],
                                       a.size, t, a.op);
        },
        written);
    expectThresholdStatuses(
        false, 2, steps,
        [&](const ImageArgs& a) {
          return qoriThreshold_LT_32f_C1R(a.pointer(0, src.data()), a.steps[0], a.pointer(1, dst.data()), a.steps[1],
                                          a.size, t);
        },
        written);
    expectThresholdStatuses(
        false, 1, steps,
        [&](const ImageArgs& a) { return qoriThreshold_LT_32f_C1IR(a.pointer(0, dst.data()), a.steps[0], a.size, t); },
        written);
  }
}

TEST(KitThreshold, OperationCodeIsTestedBeforePointers) {
  EXPECT_EQ(qoriThreshold_Val_8u_C1R(nullptr, 0, nullptr, 0, {0, 0}, 1, 2, 2), qorStatusUnsupported);
}

}  // namespace
