// Border copies, out of place and in place.
#include "support/borders.h"

#include <gtest/gtest.h>

#include "frame/kit/image_cases.h"
#include "frame/kit/images.h"

namespace {

template <class T>
using Replicate = QorStatus (*)(const T*, int32_t, QoriSize, T*, int32_t, QoriSize, int32_t, int32_t);
template <class T>
using ReplicateInPlace = QorStatus (*)(T*, int32_t, QoriSize, QoriSize, int32_t, int32_t);
template <class T>
using Constant = QorStatus (*)(const T*, int32_t, QoriSize, T*, int32_t, QoriSize, int32_t, int32_t, T);

// A random source size and random borders, none often.
struct Borders {
  int32_t width, height, top, left, bottom, right;

  explicit Borders(Random& random)
      : width(random.width(70)),
        height(int32_t(random.number(1, 6))),
        top(border(random)),
        left(border(random)),
        bottom(border(random)),
        right(border(random)) {}

  QoriSize dst() const { return {left + width + right, top + height + bottom}; }

 private:
  static int32_t border(Random& random) { return random.chance(0.3) ? 0 : int32_t(random.number(0, 20)); }
};

Edge anyEdge(Random& random) { return random.chance(0.5) ? Edge::begin : Edge::end; }

template <class T>
void expectReplicate(Replicate<T> replicate, int32_t channels) {
  Random random(1);
  for (int32_t round = 0; round < 400; ++round) {
    const Borders b(random);
    const QoriSize size = b.dst();
    Image<T> src(b.width, b.height, channels, int32_t(random.number(0, 3)), anyEdge(random), round % 2);
    Image<T> dst(size.width, size.height, channels, int32_t(random.number(0, 3)), anyEdge(random), round % 2);
    src.fill([&] { return random.value<T>(); });
    const auto before = src.bytes();
    ASSERT_EQ(replicate(src.data(), src.step(), src.size(), dst.data(), dst.step(), size, b.top, b.left), qorStatusOk);
    ASSERT_EQ(difference(dst,
                         [&](int32_t x, int32_t y, int32_t c) {
                           return src.get(borderIndex(x - b.left, b.width, qorBorderReplicate),
                                          borderIndex(y - b.top, b.height, qorBorderReplicate), c);
                         }),
              "");
    ASSERT_TRUE(dst.gapsIntact());
    ASSERT_TRUE(src.bytes() == before);
  }
}

// The source is a part of the destination's image and stays as it is.
template <class T>
void expectReplicateInPlace(ReplicateInPlace<T> replicate, int32_t channels) {
  Random random(2);
  for (int32_t round = 0; round < 400; ++round) {
    const Borders b(random);
    const QoriSize size = b.dst();
    Image<T> image(size.width, size.height, channels, int32_t(random.number(0, 3)), anyEdge(random), round % 2);
    Image<T> before(size.width, size.height, channels);
    for (int32_t y = 0; y < size.height; ++y) {
      for (int32_t x = 0; x < size.width; ++x) {
        for (int32_t c = 0; c < channels; ++c) {
          const T value = random.value<T>();
          image.set(x, y, c, value);
          before.set(x, y, c, value);
        }
      }
    }
    uint8_t* src = reinterpret_cast<uint8_t*>(image.data()) + b.top * image.step() + b.left * channels * sizeof(T);
    ASSERT_EQ(replicate(reinterpret_cast<T*>(src), image.step(), {b.width, b.height}, size, b.top, b.left),
              qorStatusOk);
    ASSERT_EQ(difference(image,
                         [&](int32_t x, int32_t y, int32_t c) {
                           return before.get(b.left + borderIndex(x - b.left, b.width, qorBorderReplicate),
                                             b.top + borderIndex(y - b.top, b.height, qorBorderReplicate), c);
                         }),
              "");
    ASSERT_TRUE(image.gapsIntact());
  }
}

TEST(KitReplicateBorder, RandomGeometry) {
  expectReplicate<uint8_t>(qoriCopyReplicateBorder_8u_C1R, 1);
  expectReplicate<uint8_t>(qoriCopyReplicateBorder_8u_C3R, 3);
  expectReplicate<uint8_t>(qoriCopyReplicateBorder_8u_C4R, 4);
  expectReplicate<int32_t>(qoriCopyReplicateBorder_32s_C1R, 1);
  expectReplicate<int32_t>(qoriCopyReplicateBorder_32s_C3R, 3);
  expectReplicate<int32_t>(qoriCopyReplicateBorder_32s_C4R, 4);
}

TEST(KitReplicateBorder, RandomGeometryInPlace) {
  expectReplicateInPlace<uint8_t>(qoriCopyReplicateBorder_8u_C1IR, 1);
  expectReplicateInPlace<uint8_t>(qoriCopyReplicateBorder_8u_C3IR, 3);
  expectReplicateInPlace<uint8_t>(qoriCopyReplicateBorder_8u_C4IR, 4);
  expectReplicateInPlace<int32_t>(qoriCopyReplicateBorder_32s_C1IR, 1);
  expectReplicateInPlace<int32_t>(qoriCopyReplicateBorder_32s_C3IR, 3);
  expectReplicateInPlace<int32_t>(qoriCopyReplicateBorder_32s_C4IR, 4);
}

TEST(KitReplicateBorder, NoBorderIsAPlainCopy) {
  Image<uint8_t> src(9, 4, 1, 2), dst(9, 4, 1, 3);
  for (int32_t y = 0; y < 4; ++y) {
    for (int32_t x = 0; x < 9; ++x) src.set(x, y, uint8_t(y * 20 + x));
  }
  ASSERT_EQ(
      qoriCopyReplicateBorder_8u_C1R(src.data(), src.step(), src.size(), dst.data(), dst.step(), dst.size(), 0, 0),
      qorStatusOk);
  EXPECT_EQ(difference(dst, [](int32_t x, int32_t y, int32_t) { return uint8_t(y * 20 + x); }), "");
  EXPECT_TRUE(dst.gapsIntact());
}

TEST(KitReplicateBorder, OnePixelFillsTheDestination) {
  const uint8_t pixel = 0xc3;
  Image<uint8_t> dst(40, 7, 1, 2);
  ASSERT_EQ(qoriCopyReplicateBorder_8u_C1R(&pixel, 1, {1, 1}, dst.data(), dst.step(), dst.size(), 2, 11), qorStatusOk);
  EXPECT_EQ(difference(dst, [](int32_t, int32_t, int32_t) { return uint8_t(0xc3); }), "");
  EXPECT_TRUE(dst.gapsIntact());
}

// Float images go through the 32s forms, which keep all bits.
TEST(KitReplicateBorder, KeepsBitsOfNan) {
  Image<int32_t> src(3, 2), dst(9, 6);
  src.fill([] { return 0x7f800001; });
  ASSERT_EQ(
      qoriCopyReplicateBorder_32s_C1R(src.data(), src.step(), src.size(), dst.data(), dst.step(), dst.size(), 2, 3),
      qorStatusOk);
  EXPECT_EQ(difference(dst, [](int32_t, int32_t, int32_t) { return 0x7f800001; }), "");
}

template <class T>
void expectConstant(Constant<T> constant) {
  Random random(3);
  for (int32_t round = 0; round < 600; ++round) {
    const Borders b(random);
    const QoriSize size = b.dst();
    const T value = random.value<T>();
    Image<T> src(b.width, b.height, 1, int32_t(random.number(0, 3)), anyEdge(random), round % 2);
    Image<T> dst(size.width, size.height, 1, int32_t(random.number(0, 3)), anyEdge(random), round % 2);
    src.fill([&] { return random.value<T>(); });
    const auto before = src.bytes();
    ASSERT_EQ(constant(src.data(), src.step(), src.size(), dst.data(), dst.step(), size, b.top, b.left, value),
              qorStatusOk);
    ASSERT_EQ(difference(dst,
                         [&](int32_t x, int32_t y, int32_t) {
                           const bool inside =
                               x >= b.left && x < b.left + b.width && y >= b.top && y < b.top + b.height;
                           return inside ? src.get(x - b.left, y - b.top) : value;
                         }),
              "");
    ASSERT_TRUE(dst.gapsIntact());
    ASSERT_TRUE(src.bytes() == before);
  }
}

TEST(KitConstBorder, RandomGeometry) {
  expectConstant<uint8_t>(qoriCopyConstBorder_8u_C1R);
  expectConstant<int16_t>(qoriCopyConstBorder_16s_C1R);
  expectConstant<uint16_t>(qoriCopyConstBorder_16u_C1R);
}

TEST(KitConstBorder, DestinationOneColumnShort) {
  uint8_t src[20] = {}, dst[100] = {};
  EXPECT_EQ(qoriCopyConstBorder_8u_C1R(src, 5, {5, 4}, dst, 10, {6, 4}, 0, 2, 1), qorStatusBadSize);
  EXPECT_EQ(qoriCopyConstBorder_8u_C1R(src, 5, {5, 4}, dst, 10, {7, 4}, 0, 2, 1), qorStatusOk);
}

struct BorderArgs {
  bool null[2];
  int32_t steps[2];
  QoriSize src, dst;
  int32_t top, left;
};

// Pointers, steps, then everything about sizes at once. The good call has a 5 x 3 source in a 9 x 8 destination.
std::vector<Fault<BorderArgs>> borderFaults(int32_t images) {
  constexpr int32_t least = std::numeric_limits<int32_t>::min(), most = std::numeric_limits<int32_t>::max();
  std::vector<Fault<BorderArgs>> faults;
  for (int32_t i = 0; i < images; ++i) {
    faults.push_back({"pointer " + std::to_string(i), qorStatusNullPtr, [i](BorderArgs& a) { a.null[i] = true; }});
  }
  for (int32_t i = 0; i < images; ++i) {
    for (const int32_t bad : {0, -1, least}) {
      faults.push_back({"step " + std::to_string(i), qorStatusBadStep, [i, bad](BorderArgs& a) { a.steps[i] = bad; }});
    }
  }
  const auto size = [&](const char* name, auto apply, std::vector<int32_t> values) {
    for (const int32_t bad : values) {
      faults.push_back({name, qorStatusBadSize, [=](BorderArgs& a) { apply(a, bad); }});
    }
  };
  size("src width", [](BorderArgs& a, int32_t v) { a.src.width = v; }, {0, -1, least, 8, most});
  size("src height", [](BorderArgs& a, int32_t v) { a.src.height = v; }, {0, -1, least, 7, most});
  size("dst width", [](BorderArgs& a, int32_t v) { a.dst.width = v; }, {0, -1, least, 6});
  size("dst height", [](BorderArgs& a, int32_t v) { a.dst.height = v; }, {0, -1, least, 4});
  // A sum with the largest border would wrap to a negative one.
  size("top", [](BorderArgs& a, int32_t v) { a.top = v; }, {-1, least, 6, most});
  size("left", [](BorderArgs& a, int32_t v) { a.left = v; }, {-1, least, 5, most});
  return faults;
}

template <class T, class Call>
void expectBorderStatuses(int32_t images, int32_t channels, Call call) {
  Image<T> src(5, 3, channels), dst(9, 8, channels);
  src.fill([] { return T(3); });
  const BorderArgs good = {{false, false}, {images == 1 ? dst.step() : src.step(), dst.step()}, {5, 3}, {9, 8}, 2, 2};
  expectStatuses<BorderArgs>(
      good, borderFaults(images), [&](const BorderArgs& a) { return call(a, src, dst); }, [&] { return dst.bytes(); });
}

template <class T>
void expectReplicateStatuses(Replicate<T> replicate, ReplicateInPlace<T> inPlace, int32_t channels) {
  expectBorderStatuses<T>(2, channels, [&](const BorderArgs& a, Image<T>& src, Image<T>& dst) {
    return replicate(a.null[0] ? nullptr : src.data(), a.steps[0], a.src, a.null[1] ? nullptr : dst.data(), a.steps[1],
                     a.dst, a.top, a.left);
  });
  expectBorderStatuses<T>(1, channels, [&](const BorderArgs& a, Image<T>&, Image<T>& dst) {
    T* first = dst.data() + 2 * dst.step() / int32_t(sizeof(T)) + 2 * channels;
    return inPlace(a.null[0] ? nullptr : first, a.steps[0], a.src, a.dst, a.top, a.left);
  });
}

template <class T>
void expectConstantStatuses(Constant<T> constant) {
  expectBorderStatuses<T>(2, 1, [&](const BorderArgs& a, Image<T>& src, Image<T>& dst) {
    return constant(a.null[0] ? nullptr : src.data(), a.steps[0], a.src, a.null[1] ? nullptr : dst.data(), a.steps[1],
                    a.dst, a.top, a.left, 77);
  });
}

TEST(KitBorders, Statuses) {
  expectReplicateStatuses<uint8_t>(qoriCopyReplicateBorder_8u_C1R, qoriCopyReplicateBorder_8u_C1IR, 1);
  expectReplicateStatuses<uint8_t>(qoriCopyReplicateBorder_8u_C3R, qoriCopyReplicateBorder_8u_C3IR, 3);
  expectReplicateStatuses<uint8_t>(qoriCopyReplicateBorder_8u_C4R, qoriCopyReplicateBorder_8u_C4IR, 4);
  expectReplicateStatuses<int32_t>(qoriCopyReplicateBorder_32s_C1R, qoriCopyReplicateBorder_32s_C1IR, 1);
  expectReplicateStatuses<int32_t>(qoriCopyReplicateBorder_32s_C3R, qoriCopyReplicateBorder_32s_C3IR, 3);
  expectReplicateStatuses<int32_t>(qoriCopyReplicateBorder_32s_C4R, qoriCopyReplicateBorder_32s_C4IR, 4);
  expectConstantStatuses<uint8_t>(qoriCopyConstBorder_8u_C1R);
  expectConstantStatuses<int16_t>(qoriCopyConstBorder_16s_C1R);
  expectConstantStatuses<uint16_t>(qoriCopyConstBorder_16u_C1R);
}

}  // namespace
