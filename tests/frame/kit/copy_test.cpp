// Copies and fills of images.
#include <gtest/gtest.h>

#include "frame/kit/image_cases.h"
#include "frame/kit/images.h"

namespace {

template <class T>
using Copy = QorStatus (*)(const T*, int32_t, T*, int32_t, QoriSize);

template <class T>
void expectCopy(Copy<T> copy, int32_t channels) {
  Random random(1);
  for (int32_t round = 0; round < 400; ++round) {
    const Geometry g(random);
    Image<T> src = g.image<T>(0, channels), dst = g.image<T>(1, channels);
    src.fill([&] { return anyElement<T>(random); });
    const auto before = src.bytes();
    ASSERT_EQ(copy(src.data(), src.step(), dst.data(), dst.step(), dst.size()), qorStatusOk);
    ASSERT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t c) { return src.get(x, y, c); }), "");
    ASSERT_TRUE(dst.gapsIntact());
    ASSERT_TRUE(src.bytes() == before);
  }
  Image<T> src(5, 3, channels), dst(5, 3, channels);
  src.fill([] { return T(1); });
  expectStatuses<ImageArgs>(
      {{false, false}, dst.size(), {src.step(), dst.step()}, 0}, joined(pointerFaults(2), sizeFaults()),
      [&](const ImageArgs& a) {
        return copy(a.pointer(0, src.data()), a.steps[0], a.pointer(1, dst.data()), a.steps[1], a.size);
      },
      [&] { return dst.bytes(); });
}

TEST(KitCopy, AllForms) {
  expectCopy<uint8_t>(qoriCopy_8u_C1R, 1);
  expectCopy<uint8_t>(qoriCopy_8u_C3R, 3);
  expectCopy<uint8_t>(qoriCopy_8u_C4R, 4);
  expectCopy<int16_t>(qoriCopy_16s_C1R, 1);
  expectCopy<uint16_t>(qoriCopy_16u_C1R, 1);
  expectCopy<float>(qoriCopy_32f_C1R, 1);
  expectCopy<float>(qoriCopy_32f_C3R, 3);
  expectCopy<float>(qoriCopy_32f_C4R, 4);
}

// Steps are not compared with the width: rows may stand upside down or be one and the same.
TEST(KitCopy, StepsAreTakenAsTheyCome) {
  Image<uint8_t> src(7, 4), dst(7, 4);
  for (int32_t y = 0; y < 4; ++y) {
    for (int32_t x = 0; x < 7; ++x) src.set(x, y, uint8_t(10 * y + x));
  }
  ASSERT_EQ(qoriCopy_8u_C1R(src.data() + 3 * src.step(), -src.step(), dst.data(), dst.step(), dst.size()), qorStatusOk);
  EXPECT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t) { return src.get(x, 3 - y); }), "");
  ASSERT_EQ(qoriCopy_8u_C1R(src.data() + src.step(), 0, dst.data(), dst.step(), dst.size()), qorStatusOk);
  EXPECT_EQ(difference(dst, [&](int32_t x, int32_t, int32_t) { return src.get(x, 1); }), "");
}

TEST(KitCopy, KeepsSignallingNan) {
  Image<uint32_t> src(19, 2), dst(19, 2);
  src.fill([] { return 0xff800123u; });
  ASSERT_EQ(qoriCopy_32f_C1R(reinterpret_cast<float*>(src.data()), src.step(), reinterpret_cast<float*>(dst.data()),
                             dst.step(), dst.size()),
            qorStatusOk);
  EXPECT_TRUE(src.bytes() == dst.bytes());
}

TEST(KitSet, FillsTheRegion) {
  Random random(2);
  for (int32_t round = 0; round < 400; ++round) {
    const Geometry g(random);
    Image<uint8_t> dst = g.image<uint8_t>(0, 1);
    const uint8_t value = random.value<uint8_t>();
    ASSERT_EQ(qoriSet_8u_C1R(value, dst.data(), dst.step(), dst.size()), qorStatusOk);
    ASSERT_EQ(difference(dst, [&](int32_t, int32_t, int32_t) { return value; }), "");
    ASSERT_TRUE(dst.gapsIntact());
  }
  Image<uint8_t> dst(5, 3);
  expectStatuses<ImageArgs>(
      {{false}, dst.size(), {dst.step()}, 0}, joined(pointerFaults(1), sizeFaults()),
      [&](const ImageArgs& a) { return qoriSet_8u_C1R(9, a.pointer(0, dst.data()), a.steps[0], a.size); },
      [&] { return dst.bytes(); });
}

}  // namespace
