// Windows of the tracking loop: what qoriCopySubpixIntersect_* gives, and nothing outside the rectangle.
#include "geometry/subpix.h"

#include <gtest/gtest.h>

#include "support/any_image.h"

namespace {

template <class S, class D, class Whole, class Rect>
void expectSameInside(Whole whole, Rect rect, uint32_t seed) {
  Random random(seed);
  for (int i = 0; i < 400; ++i) {
    AnyImage<S> src(random, {int32_t(random.number(1, 40)), int32_t(random.number(1, 40))});
    const QoriSize size = {int32_t(random.number(1, 40)), int32_t(random.number(1, 40))};
    AnyImage<D> filled(random, size), dst(random, size);
    src.fill([&] { return random.value<S>(); });
    dst.fill([] { return D(77); });
    const QoriPoint_32f point = {float(random.number(-300, 600)) / 10, float(random.number(-300, 600)) / 10};
    QoriPoint min, max, wholeMin, wholeMax;
    ASSERT_EQ(whole(src, filled, point, &wholeMin, &wholeMax), qorStatusOk);
    ASSERT_EQ(rect(src, dst, point, &min, &max), qorStatusOk);
    ASSERT_TRUE(min.x == wholeMin.x && min.y == wholeMin.y && max.x == wholeMax.x && max.y == wholeMax.y);
    ASSERT_TRUE(dst.gapsIntact());
    ASSERT_EQ(difference(dst,
                         [&](int32_t x, int32_t y, int32_t) {
                           const bool inside = x >= min.x && x <= max.x && y >= min.y && y <= max.y;
                           return inside ? filled.get(x, y) : D(77);
                         }),
              "");
  }
}

}  // namespace

#define QOR_CALL(function, ...)                                                                         \
  [](const auto& src, const auto& dst, QoriPoint_32f point, QoriPoint* min, QoriPoint* max) {           \
    return function(src.data(), src.step(), src.size(), dst.data(), dst.step(), dst.size(), point, min, \
                    max __VA_ARGS__);                                                                   \
  }
#define QOR_SCALE , -7

TEST(SubpixRectangle, isThePartInsideTheSource) {
  expectSameInside<uint8_t, uint16_t>(QOR_CALL(qoriCopySubpixIntersect_8u16u_C1R_Sfs, QOR_SCALE),
                                      QOR_CALL(ownGetRectSubpix_8u16u_C1R_Sfs, QOR_SCALE), 1);
  expectSameInside<uint16_t, float>(QOR_CALL(qoriCopySubpixIntersect_16u32f_C1R, ),
                                    QOR_CALL(ownGetRectSubpix_16u32f_C1R, ), 2);
  expectSameInside<float, float>(QOR_CALL(qoriCopySubpixIntersect_32f_C1R, ), QOR_CALL(ownGetRectSubpix_32f_C1R, ), 3);
}

TEST(SubpixRectangle, refusesWhatTheCopyRefuses) {
  Image<float> image(4, 4);
  QoriPoint min, max;
  const auto rect = [&](const float* src, int32_t step, QoriSize size) {
    return ownGetRectSubpix_32f_C1R(src, step, size, image.data(), image.step(), {4, 4}, {1, 1}, &min, &max);
  };
  EXPECT_EQ(rect(nullptr, 16, {4, 4}), qorStatusNullPtr);
  EXPECT_EQ(rect(image.data(), 16, {0, 4}), qorStatusBadSize);
  EXPECT_EQ(rect(image.data(), 12, {4, 4}), qorStatusBadStep);
  EXPECT_EQ(rect(image.data(), 18, {4, 4}), qorStatusBadStepAlign);
}
