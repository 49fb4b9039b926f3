// Minimum and maximum filters: every function against a literal model, between unmapped pages, with scratch of exactly
// the reported size.
//
// Which sign a zero has is left open, so floats are compared by value. What comes out of NaN is not defined: images
// with NaN are only there for the memory around them.
#include <dirent.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <functional>
#include <limits>
#include <string>
#include <vector>

#include "support/image.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

constexpr int32_t greatest = std::numeric_limits<int32_t>::max();

template <class T>
struct Member {
  using Element = T;
  const char* name;
  bool isMax;
  int32_t channels;
  QorStatus (*filter)(const T*, int32_t, T*, int32_t, QoriSize, QoriSize, QoriPoint, uint8_t*);
  QorStatus (*bufferSize)(int32_t, QoriSize, int32_t*);
};

// Calls body(member) for each function.
template <class Body>
void forMembers(Body body) {
#define MEMBER(T, form, channels)                                      \
  body(Member<T>{"Max_" #form "_C" #channels "R", true, channels,      \
                 qoriFilterMaxBorderReplicate_##form##_C##channels##R, \
                 qoriFilterMaxGetBufferSize_##form##_C##channels##R}); \
  body(Member<T>{"Min_" #form "_C" #channels "R", false, channels,     \
                 qoriFilterMinBorderReplicate_##form##_C##channels##R, \
                 qoriFilterMinGetBufferSize_##form##_C##channels##R});
  MEMBER(uint8_t, 8u, 1)
  MEMBER(uint8_t, 8u, 3)
  MEMBER(uint8_t, 8u, 4)
  MEMBER(float, 32f, 1)
  MEMBER(float, 32f, 3)
  MEMBER(float, 32f, 4)
#undef MEMBER
}

// The extreme over the window, as far as it lies in the image.
template <class T>
T model(const Image<T>& src, bool isMax, QoriSize mask, QoriPoint anchor, int32_t x, int32_t y, int32_t c) {
  const int64_t left = std::max<int64_t>(0, int64_t(x) - anchor.x), top = std::max<int64_t>(0, int64_t(y) - anchor.y);
  const int64_t right = std::min<int64_t>(src.width() - 1, int64_t(x) - anchor.x + mask.width - 1);
  const int64_t bottom = std::min<int64_t>(src.height() - 1, int64_t(y) - anchor.y + mask.height - 1);
  T result = src.get(x, y, c);
  for (int64_t row = top; row <= bottom; ++row) {
    for (int64_t column = left; column <= right; ++column) {
      const T value = src.get(int32_t(column), int32_t(row), c);
      if (isMax ? value > result : value < result) result = value;
    }
  }
  return result;
}

std::string text(QoriSize size) { return std::to_string(size.width) + "x" + std::to_string(size.height); }
std::string text(QoriPoint p) { return "(" + std::to_string(p.x) + ", " + std::to_string(p.y) + ")"; }

// Where images lie and how they are filled.
struct Place {
  int32_t srcGap = 0, dstGap = 0;
  Edge edge = Edge::end;
  size_t shift = 0, bufferShift = 0;
};

Place anyPlace(Random& random) {
  Place place;
  place.srcGap = random.chance(0.5) ? 0 : int32_t(random.number(1, 9));
  place.dstGap = random.chance(0.5) ? 0 : int32_t(random.number(1, 9));
  place.edge = random.chance(0.5) ? Edge::end : Edge::begin;
  place.shift = random.chance(0.3) ? size_t(random.number(1, 3)) : 0;
  place.bufferShift = size_t(random.number(0, 9));
  return place;
}

template <class T>
T anyValue(Random& random) {
  if (random.chance(0.2)) return T(random.number(0, 3));
  if (std::is_floating_point_v<T> && random.chance(0.02)) {
    return random.chance(0.5) ? std::numeric_limits<T>::infinity() : T(-std::numeric_limits<T>::infinity());
  }
  if (std::is_floating_point_v<T> && random.chance(0.02)) return T(-0.0);
  return random.value<T>();
}

// Runs a filter with `scratch` bytes of buffer and compares.
template <class T>
void check(const Member<T>& m, Random& random, QoriSize size, QoriSize mask, QoriPoint anchor, Place place,
           int32_t scratch) {
  Image<T> src(size.width, size.height, m.channels, place.srcGap, place.edge, place.shift);
  Image<T> dst(size.width, size.height, m.channels, place.dstGap, place.edge, place.shift);
  src.fill([&] { return anyValue<T>(random); });
  const std::vector<uint8_t> before = src.bytes();
  GuardedMemory buffer(size_t(scratch) + place.bufferShift, place.edge);
  uint8_t* first = buffer.data() + (place.edge == Edge::begin ? place.bufferShift : 0);
  const std::string what = std::string(m.name) + " " + text(size) + " mask " + text(mask) + " anchor " + text(anchor);
  ASSERT_EQ(m.filter(src.data(), src.step(), dst.data(), dst.step(), size, mask, anchor, first), qorStatusOk) << what;
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      for (int32_t c = 0; c < m.channels; ++c) {
        ASSERT_EQ(dst.get(x, y, c), model(src, m.isMax, mask, anchor, x, y, c))
            << what << " at " << text(QoriPoint{x, y}) << ", channel " << c;
      }
    }
  }
  ASSERT_TRUE(dst.gapsIntact()) << what;
  ASSERT_TRUE(src.bytes() == before) << what;
  ASSERT_TRUE(buffer.patternIntact()) << what;
  ASSERT_EQ(services::allocations(), 0) << what;
}

template <class T>
int32_t sizeOf(const Member<T>& m, int32_t width, QoriSize mask) {
  int32_t bytes = -1;
  EXPECT_EQ(m.bufferSize(width, mask, &bytes), qorStatusOk);
  return bytes;
}

template <class T>
void check(const Member<T>& m, Random& random, QoriSize size, QoriSize mask, QoriPoint anchor) {
  check(m, random, size, mask, anchor, anyPlace(random), sizeOf(m, size.width, mask));
}

QoriPoint centre(QoriSize mask) { return {mask.width / 2, mask.height / 2}; }

// Any anchor, corners more often.
int32_t anyAnchor(Random& random, int32_t length) {
  if (random.chance(0.2)) return 0;
  if (random.chance(0.2)) return length - 1;
  return int32_t(random.number(0, length - 1));
}

class MinMax : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

TEST_F(MinMax, RandomImagesMasksAndAnchors) {
  Random random(1);
  forMembers([&](const auto& m) {
    for (int i = 0; i < 150; ++i) {
      const QoriSize size = {random.width(160), int32_t(random.number(1, random.chance(0.8) ? 12 : 60))};
      const auto length = [&] { return int32_t(random.number(1, random.chance(0.7) ? 9 : 45)); };
      const QoriSize mask = {length(), length()};
      check(m, random, size, mask, {anyAnchor(random, mask.width), anyAnchor(random, mask.height)});
      if (HasFatalFailure()) return;
    }
  });
}

TEST_F(MinMax, EveryWidthUpToSeventy) {
  Random random(2);
  forMembers([&](const auto& m) {
    for (int32_t width = 1; width <= 70; ++width) {
      for (const QoriSize mask : {QoriSize{3, 3}, QoriSize{6, 2}}) {
        check(m, random, {width, 4}, mask, {anyAnchor(random, mask.width), anyAnchor(random, mask.height)});
        if (HasFatalFailure()) return;
      }
    }
  });
}

// Bands of rows are shared by neighbours: every count of rows with every height of the mask.
TEST_F(MinMax, EveryHeightWithEveryMaskHeight) {
  Random random(3);
  forMembers([&](const auto& m) {
    for (int32_t height = 1; height <= 20; ++height) {
      for (int32_t maskHeight = 1; maskHeight <= 20; ++maskHeight) {
        check(m, random, {5, height}, {2, maskHeight}, {1, anyAnchor(random, maskHeight)});
        if (HasFatalFailure()) return;
      }
    }
  });
}

TEST_F(MinMax, EveryAnchor) {
  Random random(4);
  const QoriSize mask = {7, 5};
  forMembers([&](const auto& m) {
    for (int32_t ay = 0; ay < mask.height; ++ay) {
      for (int32_t ax = 0; ax < mask.width; ++ax) {
        check(m, random, {33, 11}, mask, {ax, ay});
        check(m, random, {4, 3}, mask, {ax, ay});
        if (HasFatalFailure()) return;
      }
    }
  });
}

// A single row of mask is the horizontal pass alone: all widths, on rows shorter and longer than the mask.
TEST_F(MinMax, RowsAlone) {
  Random random(5);
  forMembers([&](const auto& m) {
    for (int32_t maskWidth = 1; maskWidth <= 70; ++maskWidth) {
      for (const int32_t width : {1, maskWidth - 1, maskWidth, 2 * maskWidth - 1, 2 * maskWidth, 200}) {
        if (width < 1) continue;
        check(m, random, {width, 2}, {maskWidth, 1}, {anyAnchor(random, maskWidth), 0});
        if (HasFatalFailure()) return;
      }
    }
  });
}

TEST_F(MinMax, RowsOfManyTiles) {
  Random random(6);
  forMembers([&](const auto& m) {
    const auto most = int32_t(4096 / sizeof(typename std::decay_t<decltype(m)>::Element) / m.channels);
    for (const int32_t width : {most - 1, most, most + 1, 2 * most + 3, 3 * most - 50}) {
      check(m, random, {width, 3}, {3, 3}, {1, 1});
      check(m, random, {width, 2}, {12, 1}, {4, 0});
      check(m, random, {width, 9}, {41, 2}, {anyAnchor(random, 41), anyAnchor(random, 2)});
      if (HasFatalFailure()) return;
    }
  });
}

// Around the widest mask that half a tile holds, and beyond it.
TEST_F(MinMax, VeryWideMasks) {
  Random random(7);
  forMembers([&](const auto& m) {
    const auto half = int32_t(2048 / sizeof(typename std::decay_t<decltype(m)>::Element) / m.channels);
    for (const int32_t maskWidth : {half, half + 1, half + 2, half + half / 3, 3 * half}) {
      const int32_t width = half + half / 2 + 7;
      check(m, random, {width, 1}, {maskWidth, 1}, {anyAnchor(random, maskWidth), 0});
      check(m, random, {width, 2}, {maskWidth, 3}, {maskWidth / 3, anyAnchor(random, 3)});
      if (HasFatalFailure()) return;
    }
  });
}

TEST_F(MinMax, VeryHighMasks) {
  Random random(8);
  forMembers([&](const auto& m) {
    for (const int32_t maskHeight : {100, 255, 256, 257, 300, 519, 700}) {
      check(m, random, {3, 270}, {2, maskHeight}, {1, anyAnchor(random, maskHeight)});
      check(m, random, {2, 270}, {1, maskHeight}, {0, maskHeight / 3});
      if (HasFatalFailure()) return;
    }
    check(m, random, {130, 264}, {1, 260}, {0, 200});
  });
}

// The sums and differences of such masks and anchors do not fit 32 bits. The reported size has wrapped, so the scratch
// is that of the largest mask that still makes a difference.
TEST_F(MinMax, GreatestMasks) {
  Random random(9);
  forMembers([&](const auto& m) {
    const QoriSize size = {13, 9};
    const int32_t scratch = sizeOf(m, size.width, {2 * size.width - 1, 2 * size.height - 1});
    for (const int32_t length : {greatest, greatest - 1, 1 << 30, 3}) {
      for (const int32_t anchor : {0, 1, 5, 12, 13, length / 2, length - 14, length - 9, length - 2, length - 1}) {
        if (anchor < 0 || anchor >= length) continue;
        check(m, random, size, {length, length}, {anchor, anchor}, anyPlace(random), scratch);
        check(m, random, size, {length, 3}, {anchor, 1});  // the size does not depend on the mask's width
        check(m, random, size, {4, length}, {3, length - 1 - anchor}, anyPlace(random), scratch);
        if (HasFatalFailure()) return;
      }
    }
  });
}

TEST_F(MinMax, MaskOfOnePixelCopies) {
  Random random(10);
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    for (const QoriSize size : {QoriSize{1, 1}, QoriSize{37, 5}, QoriSize{300, 3}}) {
      Image<T> src(size.width, size.height, m.channels), dst(size.width, size.height, m.channels);
      src.fill([&] { return random.value<T>(); });
      GuardedMemory buffer(size_t(sizeOf(m, size.width, {1, 1})));
      ASSERT_EQ(m.filter(src.data(), src.step(), dst.data(), dst.step(), size, {1, 1}, {0, 0}, buffer.data()),
                qorStatusOk);
      EXPECT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t c) { return src.get(x, y, c); }), "") << m.name;
    }
  });
}

TEST_F(MinMax, MaskLargerThanTheImage) {
  Random random(11);
  forMembers([&](const auto& m) {
    for (const QoriSize size : {QoriSize{1, 1}, QoriSize{2, 7}, QoriSize{9, 2}, QoriSize{30, 20}}) {
      for (const QoriSize mask : {QoriSize{31, 21}, QoriSize{45, 45}, QoriSize{100, 64}}) {
        check(m, random, size, mask, centre(mask));
        check(m, random, size, mask, {0, 0});
        check(m, random, size, mask, {mask.width - 1, mask.height - 1});
        if (HasFatalFailure()) return;
      }
    }
  });
}

// All of the image lies under every window: the result is one value, however large the mask.
TEST_F(MinMax, MaskThatAlwaysHoldsTheImageGivesItsExtreme) {
  Random random(12);
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    Image<T> src(6, 5, m.channels), dst(6, 5, m.channels);
    src.fill([&] { return T(random.number(50, 200)); });
    for (int32_t c = 0; c < m.channels; ++c) src.set(4, 1, c, T(m.isMax ? 201 + c : 1 + c));
    for (const int32_t reach : {6, 50, 1000}) {
      const QoriSize mask = {2 * reach + 1, 2 * reach + 1};
      GuardedMemory buffer(size_t(sizeOf(m, 6, mask)));
      ASSERT_EQ(
          m.filter(src.data(), src.step(), dst.data(), dst.step(), src.size(), mask, {reach, reach}, buffer.data()),
          qorStatusOk);
      EXPECT_EQ(difference(dst, [&](int32_t, int32_t, int32_t c) { return T(m.isMax ? 201 + c : 1 + c); }), "");
    }
  });
}

TEST_F(MinMax, AnchorBeyondTheImage) {
  Random random(13);
  forMembers([&](const auto& m) {
    for (const int32_t anchor : {6, 7, 8, 20, 29}) {
      check(m, random, {7, 6}, {30, 30}, {anchor, anchor});
      check(m, random, {7, 6}, {30, 3}, {anchor, 0});
      check(m, random, {7, 6}, {3, 30}, {2, anchor});
      if (HasFatalFailure()) return;
    }
  });
}

TEST_F(MinMax, MaskOfWidthEightOnSmallAndLargeImages) {
  Random random(14);
  forMembers([&](const auto& m) {
    for (const QoriSize size : {QoriSize{20, 10}, QoriSize{64, 64}, QoriSize{128, 33}, QoriSize{16, 3}}) {
      for (const int32_t anchor : {0, 4, 7}) check(m, random, size, {8, 1}, {anchor, 0});
      check(m, random, size, {8, 8}, {4, 4});
      if (HasFatalFailure()) return;
    }
  });
}

TEST_F(MinMax, MaskOfWidthHundred) {
  Random random(15);
  forMembers([&](const auto& m) {
    for (const int32_t width : {40, 100, 199, 200, 333}) {
      for (const int32_t anchor : {0, 50, 62, 63, 99}) check(m, random, {width, 2}, {100, 2}, {anchor, 1});
      if (HasFatalFailure()) return;
    }
  });
}

TEST_F(MinMax, ImageJustNarrowerThanTwoMasks) {
  Random random(16);
  forMembers([&](const auto& m) {
    for (const int32_t maskWidth : {2, 3, 5, 15}) {
      for (int32_t width = 2 * maskWidth - 2; width <= 2 * maskWidth + 1; ++width) {
        check(m, random, {width, 2 * maskWidth - 1}, {maskWidth, maskWidth}, {maskWidth / 2, maskWidth / 2});
        if (HasFatalFailure()) return;
      }
    }
  });
}

TEST_F(MinMax, OneColumnAndOneRow) {
  Random random(17);
  forMembers([&](const auto& m) {
    for (const QoriSize mask : {QoriSize{1, 1}, QoriSize{2, 2}, QoriSize{3, 3}, QoriSize{16, 16}, QoriSize{41, 41}}) {
      check(m, random, {1, 50}, mask, centre(mask));
      check(m, random, {150, 1}, mask, centre(mask));
      check(m, random, {1, 1}, mask, centre(mask));
      if (HasFatalFailure()) return;
    }
  });
}

TEST_F(MinMax, FlatChannelBesideNoisyOnes) {
  Random random(18);
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    for (int32_t flat = 0; flat < m.channels; ++flat) {
      Image<T> src(90, 12, m.channels), dst(90, 12, m.channels);
      src.fill([&] { return random.value<T>(); });
      for (int32_t y = 0; y < 12; ++y) {
        for (int32_t x = 0; x < 90; ++x) src.set(x, y, flat, T(77));
      }
      GuardedMemory buffer(size_t(sizeOf(m, 90, {6, 5})));
      ASSERT_EQ(m.filter(src.data(), src.step(), dst.data(), dst.step(), src.size(), {6, 5}, {2, 2}, buffer.data()),
                qorStatusOk);
      for (int32_t y = 0; y < 12; ++y) {
        for (int32_t x = 0; x < 90; ++x) ASSERT_EQ(dst.get(x, y, flat), T(77)) << m.name;
      }
    }
  });
}

// Neighbouring rows at the same place of the cache.
TEST_F(MinMax, StepOfAPage) {
  Random random(19);
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    Place place;
    place.srcGap = place.dstGap = int32_t(4096 / sizeof(T)) - 30 * m.channels;
    check(m, random, {30, 40}, {5, 15}, {2, 7}, place, sizeOf(m, 30, {5, 15}));
  });
}

TEST_F(MinMax, AnyFloatsStayInsideTheirImages) {
  Random random(20);
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    if constexpr (std::is_floating_point_v<T>) {
      for (int i = 0; i < 40; ++i) {
        const QoriSize size = {random.width(140), int32_t(random.number(1, 20))};
        const QoriSize mask = {int32_t(random.number(1, 20)), int32_t(random.number(1, 20))};
        Image<T> src(size.width, size.height, m.channels, 3), dst(size.width, size.height, m.channels, 5);
        src.fill([&] { return random.anyFloat(); });
        GuardedMemory buffer(size_t(sizeOf(m, size.width, mask)));
        EXPECT_EQ(m.filter(src.data(), src.step(), dst.data(), dst.step(), size, mask, centre(mask), buffer.data()),
                  qorStatusOk);
        EXPECT_TRUE(dst.gapsIntact()) << m.name;
      }
    }
  });
}

// No promise is made for the pixels.
TEST_F(MinMax, InPlaceCallStaysInsideTheImage) {
  Random random(21);
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    for (const QoriSize mask : {QoriSize{3, 3}, QoriSize{9, 1}, QoriSize{20, 20}, QoriSize{3, 300}}) {
      Image<T> image(70, 300, m.channels, 3);
      image.fill([&] { return random.value<T>(); });
      GuardedMemory buffer(size_t(sizeOf(m, 70, mask)));
      EXPECT_EQ(m.filter(image.data(), image.step(), image.data(), image.step(), image.size(), mask, centre(mask),
                         buffer.data()),
                qorStatusOk);
      EXPECT_TRUE(image.gapsIntact()) << m.name;
    }
  });
}

int threadsAlive() {
  int count = 0;
  DIR* tasks = opendir("/proc/self/task");
  if (!tasks) return -1;
  while (const dirent* entry = readdir(tasks)) count += entry->d_name[0] != '.';
  closedir(tasks);
  return count;
}

TEST_F(MinMax, NoThreadsOnLargeImages) {
  Random random(22);
  services::threads(40);
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    Image<T> src(700, 500, m.channels), dst(700, 500, m.channels);
    GuardedMemory buffer(size_t(sizeOf(m, 700, {5, 5})));
    const int before = threadsAlive();
    EXPECT_EQ(m.filter(src.data(), src.step(), dst.data(), dst.step(), src.size(), {5, 5}, {2, 2}, buffer.data()),
              qorStatusOk);
    EXPECT_EQ(threadsAlive(), before) << m.name;
    EXPECT_EQ(services::allocations(), 0) << m.name;
  });
}

template <class T>
struct Args {
  const T* src;
  int32_t srcStep;
  T* dst;
  int32_t dstStep;
  QoriSize size, mask;
  QoriPoint anchor;
  uint8_t* buffer;
};

TEST_F(MinMax, Statuses) {
  forMembers([&](const auto& m) {
    SCOPED_TRACE(m.name);
    using T = typename std::decay_t<decltype(m)>::Element;
    using A = Args<T>;
    Image<T> src(10, 6, m.channels, 4), dst(10, 6, m.channels, 4);
    GuardedMemory buffer(size_t(sizeOf(m, 10, {5, 4})));
    const A good = {src.data(), src.step(), dst.data(), dst.step(), {10, 6}, {5, 4}, {2, 1}, buffer.data()};
    const auto row = int32_t(10 * m.channels * sizeof(T));
    std::vector<Fault<A>> faults = {
        {"src", qorStatusNullPtr, [](A& a) { a.src = nullptr; }},
        {"dst", qorStatusNullPtr, [](A& a) { a.dst = nullptr; }},
        {"buffer", qorStatusNullPtr, [](A& a) { a.buffer = nullptr; }},
        {"height", qorStatusBadSize, [](A& a) { a.size.height = 0; }},
        {"height", qorStatusBadSize, [](A& a) { a.size.height = -1; }},
        {"width", qorStatusBadSize, [](A& a) { a.size.width = 0; }},
        {"width", qorStatusBadSize, [](A& a) { a.size.width = std::numeric_limits<int32_t>::lowest(); }},
        {"mask height", qorStatusBadMask, [](A& a) { a.mask.height = 0; }},
        {"mask height", qorStatusBadMask, [](A& a) { a.mask.height = -4; }},
        {"mask width", qorStatusBadMask, [](A& a) { a.mask.width = 0; }},
        {"mask width", qorStatusBadMask, [](A& a) { a.mask.width = std::numeric_limits<int32_t>::lowest(); }},
        {"anchor x", qorStatusBadAnchor, [](A& a) { a.anchor.x = -1; }},
        {"anchor x", qorStatusBadAnchor, [](A& a) { a.anchor.x = 5; }},
        {"anchor x", qorStatusBadAnchor, [](A& a) { a.anchor.x = greatest; }},
        {"anchor y", qorStatusBadAnchor, [](A& a) { a.anchor.y = -1; }},
        {"anchor y", qorStatusBadAnchor, [](A& a) { a.anchor.y = 4; }},
        {"srcStep", qorStatusBadStep, [=](A& a) { a.srcStep = row - 1; }},
        {"srcStep", qorStatusBadStep, [=](A& a) { a.srcStep = row - int32_t(sizeof(T)); }},
        {"srcStep", qorStatusBadStep, [](A& a) { a.srcStep = -a.srcStep; }},
    };
    // The source's step is through with both its tests before the destination's is looked at.
    for (const int32_t odd : {1, 2, 3}) {
      if (sizeof(T) == 4) faults.push_back({"srcStep", qorStatusBadStepAlign, [=](A& a) { a.srcStep = row + odd; }});
    }
    faults.push_back({"dstStep", qorStatusBadStep, [=](A& a) { a.dstStep = row - 1; }});
    faults.push_back({"dstStep", qorStatusBadStep, [](A& a) { a.dstStep = 0; }});
    for (const int32_t odd : {1, 2, 3}) {
      if (sizeof(T) == 4) faults.push_back({"dstStep", qorStatusBadStepAlign, [=](A& a) { a.dstStep = row + odd; }});
    }
    expectStatuses<A>(
        good, faults,
        [&](const A& a) { return m.filter(a.src, a.srcStep, a.dst, a.dstStep, a.size, a.mask, a.anchor, a.buffer); },
        [&] { return dst.bytes(); });
  });
}

// Sizes are compared with the formula in unsigned 32 bits, which wraps by definition.
TEST_F(MinMax, BufferSizes) {
  Random random(23);
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    const auto expectSize = [&](int32_t width, QoriSize mask) {
      const auto pixel = uint32_t(m.channels * sizeof(T)), h = uint32_t(mask.height);
      const uint32_t expected = 2 * h * (uint32_t(width) * pixel + 32) + 4 * h * 8 + 32;
      EXPECT_EQ(sizeOf(m, width, mask), int32_t(expected)) << m.name << " width " << width << " mask " << text(mask);
    };
    for (int i = 0; i < 200; ++i) {
      expectSize(int32_t(random.number(1, 4000)), {int32_t(random.number(1, 50)), int32_t(random.number(1, 50))});
      expectSize(int32_t(random.number(1, greatest)),
                 {int32_t(random.number(1, greatest)), int32_t(random.number(1, greatest))});
    }
    expectSize(greatest, {1, 1});
    expectSize(1, {greatest, greatest});
    expectSize(greatest, {greatest, greatest});
  });
  int32_t bytes = 0;
  EXPECT_EQ(qoriFilterMaxGetBufferSize_8u_C3R(100, {3, 5}, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 2 * 5 * 332 + 160 + 32);
  EXPECT_EQ(qoriFilterMinGetBufferSize_32f_C1R(100, {3, 5}, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 2 * 5 * 432 + 160 + 32);
}

TEST_F(MinMax, BufferSizeStatuses) {
  struct Query {
    int32_t width;
    QoriSize mask;
    int32_t* bytes;
  };
  forMembers([&](const auto& m) {
    SCOPED_TRACE(m.name);
    int32_t bytes = 0;
    expectStatuses<Query>(
        {10, {3, 4}, &bytes},
        {{"bytes", qorStatusNullPtr, [](Query& q) { q.bytes = nullptr; }},
         {"width", qorStatusBadSize, [](Query& q) { q.width = 0; }},
         {"width", qorStatusBadSize, [](Query& q) { q.width = -7; }},
         {"mask height", qorStatusBadMask, [](Query& q) { q.mask.height = 0; }},
         {"mask width", qorStatusBadMask, [](Query& q) { q.mask.width = -1; }}},
        [&](const Query& q) { return m.bufferSize(q.width, q.mask, q.bytes); },
        [&] {
          const auto* first = reinterpret_cast<const uint8_t*>(&bytes);
          return std::vector<uint8_t>(first, first + sizeof bytes);
        });
  });
}

}  // namespace
