// Local extrema: against a look at every pixel's neighbours.
#include <gtest/gtest.h>
#include <math.h>

#include "support/any_image.h"
#include "support/statuses.h"

namespace {

template <class T>
struct Member {
  using Pixel = T;
  QorStatus (*find)(const T*, int32_t, QoriSize, T, QoriPoint*, int32_t, int32_t*, int32_t, int32_t, uint8_t*);
  QorStatus (*query)(int32_t, int32_t*);
};

template <class Body>
void forMembers(Body body) {
  body(Member<float>{qoriFindPeaks3x3_32f_C1R, qoriFindPeaks3x3GetBufferSize_32f_C1R});
  body(Member<int32_t>{qoriFindPeaks3x3_32s_C1R, qoriFindPeaks3x3GetBufferSize_32s_C1R});
}

bool equal(int32_t v, int32_t extreme) { return v == extreme; }
bool equal(float v, float extreme) { return fabs(double(v - extreme)) <= 1.1754943508222875e-38; }

// NaN neighbours are passed over.
template <class T>
bool isPeak(const Image<T>& image, int32_t x, int32_t y, T threshold, int32_t norm) {
  const T v = image.get(x, y);
  if (!(fabs(double(v)) > double(threshold))) return false;
  T localMax = v, localMin = v;
  for (int32_t j = -1; j <= 1; ++j) {
    for (int32_t i = -1; i <= 1; ++i) {
      if (norm == 1 && i != 0 && j != 0) continue;
      const T n = image.get(x + i, y + j);
      if (n > localMax) localMax = n;
      if (n < localMin) localMin = n;
    }
  }
  return v > 0 ? equal(v, localMax) : equal(v, localMin);
}

template <class T>
std::vector<QoriPoint> model(const Image<T>& image, T threshold, int32_t norm, int32_t border, int32_t most) {
  std::vector<QoriPoint> peaks;
  for (int32_t y = border; y <= image.height() - border - 1; ++y) {
    for (int32_t x = border; x <= image.width() - border - 1; ++x) {
      if (isPeak(image, x, y, threshold, norm)) peaks.push_back({x, y});
      if (int32_t(peaks.size()) == most) return peaks;
    }
  }
  return peaks;
}

template <class T>
void expectModel(const Member<T>& member, const Image<T>& image, T threshold, int32_t norm, int32_t border,
                 int32_t most) {
  int32_t bytes = 0, count = -1;
  ASSERT_EQ(member.query(image.width(), &bytes), qorStatusOk);
  const GuardedMemory buffer{size_t(bytes)};
  const GuardedMemory room(size_t(most) * sizeof(QoriPoint));
  memset(room.data(), 0x77, room.size());
  ASSERT_EQ(member.find(image.data(), image.step(), image.size(), threshold, reinterpret_cast<QoriPoint*>(room.data()),
                        most, &count, norm, border, buffer.data()),
            qorStatusOk);
  ASSERT_TRUE(room.patternIntact());
  ASSERT_TRUE(buffer.patternIntact());
  const std::vector<QoriPoint> should = model(image, threshold, norm, border, most);
  ASSERT_EQ(count, int32_t(should.size())) << image.width() << "x" << image.height() << " border " << border;
  for (size_t i = 0; i < should.size(); ++i) {
    QoriPoint is;
    memcpy(&is, room.data() + i * sizeof is, sizeof is);
    ASSERT_TRUE(is.x == should[i].x && is.y == should[i].y)
        << "peak " << i << ": " << is.x << ", " << is.y << " instead of " << should[i].x << ", " << should[i].y;
  }
  for (size_t i = should.size() * sizeof(QoriPoint); i < room.size(); ++i) ASSERT_EQ(room.data()[i], 0x77) << i;
}

template <class T>
T anyValue(Random& random, int32_t kind) {
  if (kind == 0) return random.value<T>();
  if (kind == 1) return T(random.number(-2, 2));  // plateaus
  if (kind == 2) return T(random.number(0, 1000));
  if constexpr (std::is_same_v<T, float>) return random.anyFloat();
  return random.pick(std::vector<T>{std::numeric_limits<T>::lowest(), std::numeric_limits<T>::max(), 0, -1, 1});
}

TEST(FindPeaks, RandomImages) {
  Random random(10);
  forMembers([&](auto member) {
    using T = typename decltype(member)::Pixel;
    for (int32_t round = 0; round < 300; ++round) {
      const QoriSize size = {random.width(150) + 1, int32_t(random.number(2, 24))};
      AnyImage<T> image(random, size);
      const int32_t kind = round % 4;
      image.fill([&] { return anyValue<T>(random, kind); });
      const int32_t half = std::min(size.width, size.height) / 2;
      for (int32_t norm = 0; norm < 2; ++norm) {
        const int32_t border = random.chance(0.6) ? 1 : int32_t(random.number(1, half));
        const T threshold =
            random.chance(0.2) ? anyValue<T>(random, 3) : T(kind == 0 ? random.number(0, 900) : random.number(-1, 1));
        const int32_t most = random.chance(0.7) ? size.width * size.height : int32_t(random.number(1, 40));
        expectModel<T>(member, image, threshold, norm, border, most);
      }
    }
  });
}

// Sizes up to a few vectors, every border that is allowed; where twice the border is the size, nothing is scanned.
TEST(FindPeaks, EveryWidth) {
  Random random(11);
  forMembers([&](auto member) {
    using T = typename decltype(member)::Pixel;
    for (int32_t width = 2; width <= 70; ++width) {
      AnyImage<T> image(random, {width, 6});
      image.fill([&] { return T(random.number(-9, 9)); });
      for (int32_t border = 1; border <= std::min(3, width / 2); ++border) {
        for (int32_t norm = 0; norm < 2; ++norm) expectModel<T>(member, image, T(2), norm, border, width * 6);
      }
    }
  });
}

TEST(FindPeaks, EveryInnerPixelOfAFlatImage) {
  forMembers([&](auto member) {
    using T = typename decltype(member)::Pixel;
    for (const T value : {T(5), T(-5)}) {
      Image<T> image(90, 7);
      image.fill([&] { return value; });
      std::vector<QoriPoint> peaks(90 * 7);
      int32_t bytes = 0, count = 0;
      ASSERT_EQ(member.query(90, &bytes), qorStatusOk);
      std::vector<uint8_t> buffer(size_t(bytes) + 1);
      for (int32_t norm = 0; norm < 2; ++norm) {
        for (const int32_t most : {630, 440, 439, 16, 17, 1}) {
          EXPECT_EQ(member.find(image.data(), image.step(), {90, 7}, T(4), peaks.data(), most, &count, norm, 1,
                                buffer.data() + 1),
                    qorStatusOk);
          EXPECT_EQ(count, std::min(most, 88 * 5));
        }
        // Not above the threshold.
        EXPECT_EQ(
            member.find(image.data(), image.step(), {90, 7}, T(5), peaks.data(), 630, &count, norm, 1, buffer.data()),
            qorStatusOk);
        EXPECT_EQ(count, 0);
      }
    }
  });
}

TEST(FindPeaks, DiagonalNeighboursCountOfEightOnly) {
  Image<float> image(3, 3);
  image.set(1, 1, 5);
  image.set(2, 2, 6);
  uint8_t buffer[2048];
  QoriPoint peak;
  int32_t count;
  EXPECT_EQ(qoriFindPeaks3x3_32f_C1R(image.data(), 12, {3, 3}, 1, &peak, 1, &count, 0, 1, buffer), qorStatusOk);
  EXPECT_EQ(count, 0);
  EXPECT_EQ(qoriFindPeaks3x3_32f_C1R(image.data(), 12, {3, 3}, 1, &peak, 1, &count, 1, 1, buffer), qorStatusOk);
  EXPECT_EQ(count, 1);
}

// Floats that differ by no more than the smallest normal one are equal, infinities are not; NaN neighbours are passed
// over.
TEST(FindPeaks, EqualFloats) {
  uint8_t buffer[2048];
  QoriPoint peak;
  const auto found = [&](float v, float neighbour, float threshold) {
    int32_t all = 0;
    for (int32_t place = 0; place < 9; ++place) {
      if (place == 4) continue;
      Image<float> image(3, 3);
      image.set(1, 1, v);
      image.set(place % 3, place / 3, neighbour);
      int32_t count = 7;
      EXPECT_EQ(qoriFindPeaks3x3_32f_C1R(image.data(), 12, {3, 3}, threshold, &peak, 1, &count, 0, 1, buffer),
                qorStatusOk);
      all += count;
    }
    return all;
  };
  const float tiny = 1.1754943508222875e-38f, infinite = INFINITY, nan = NAN;
  EXPECT_EQ(found(tiny, 2 * tiny, 0), 8);
  EXPECT_EQ(found(tiny, 2.0001f * tiny, 0), 0);
  EXPECT_EQ(found(-tiny, -2 * tiny, 0), 8);
  EXPECT_EQ(found(-tiny, -2.0001f * tiny, 0), 0);
  EXPECT_EQ(found(infinite, 1, 0), 0);
  EXPECT_EQ(found(-infinite, 1, 0), 0);
  EXPECT_EQ(found(1, infinite, 0), 0);
  EXPECT_EQ(found(1, -infinite, 0), 8);
  EXPECT_EQ(found(1, nan, 0), 8);
  EXPECT_EQ(found(-1, nan, 0), 8);
  EXPECT_EQ(found(nan, 1, 0), 0);
  EXPECT_EQ(found(1, 0, nan), 0);
  EXPECT_EQ(found(0, 0, -1), 8);  // of zeros too, where the threshold lets them
  EXPECT_EQ(found(0, 0, 0), 0);
}

// The magnitude of the least integer is above every threshold, although no integer holds it.
TEST(FindPeaks, LeastInteger) {
  Image<int32_t> image(3, 3);
  uint8_t buffer[2048];
  QoriPoint peak;
  int32_t count;
  for (const int32_t threshold : {INT32_MAX, 0, -1, INT32_MIN}) {
    image.set(1, 1, INT32_MIN);
    EXPECT_EQ(qoriFindPeaks3x3_32s_C1R(image.data(), 12, {3, 3}, threshold, &peak, 1, &count, 0, 1, buffer),
              qorStatusOk);
    EXPECT_EQ(count, 1);
    image.set(1, 1, -INT32_MAX);
    EXPECT_EQ(qoriFindPeaks3x3_32s_C1R(image.data(), 12, {3, 3}, threshold, &peak, 1, &count, 1, 1, buffer),
              qorStatusOk);
    EXPECT_EQ(count, threshold == INT32_MAX ? 0 : 1);
  }
}

TEST(FindPeaks, BufferSizes) {
  forMembers([](auto member) {
    int32_t bytes = -1;
    EXPECT_EQ(member.query(1, nullptr), qorStatusNullPtr);
    EXPECT_EQ(member.query(0, nullptr), qorStatusNullPtr);
    EXPECT_EQ(member.query(0, &bytes), qorStatusBadSize);
    EXPECT_EQ(member.query(INT32_MIN, &bytes), qorStatusBadSize);
    EXPECT_EQ(bytes, -1);
    const int32_t widths[] = {1, 2, 3, 4, 6, 7, 640}, sizes[] = {160, 160, 288, 288, 288, 416, 20640};
    for (size_t i = 0; i < 7; ++i) {
      EXPECT_EQ(member.query(widths[i], &bytes), qorStatusOk);
      EXPECT_EQ(bytes, sizes[i]) << widths[i];
    }
  });
}

template <class T>
struct Args {
  const T* src;
  int32_t srcStep;
  QoriSize roiSize;
  QoriPoint* peak;
  int32_t maxPeakCount;
  int32_t* peakCount;
  int32_t normType, border;
  uint8_t* buffer;
};

TEST(FindPeaks, Statuses) {
  forMembers([](auto member) {
    using T = typename decltype(member)::Pixel;
    Image<T> src(9, 6, 1, 2);
    src.fill([] { return T(3); });
    std::vector<uint8_t> buffer(1024, 1);
    std::vector<QoriPoint> peaks(40, QoriPoint{-1, -1});
    int32_t count = -7;
    const std::vector<Fault<Args<T>>> faults = {
        {"src", qorStatusNullPtr, [](Args<T>& a) { a.src = nullptr; }},
        {"peak", qorStatusNullPtr, [](Args<T>& a) { a.peak = nullptr; }},
        {"peakCount", qorStatusNullPtr, [](Args<T>& a) { a.peakCount = nullptr; }},
        {"buffer", qorStatusNullPtr, [](Args<T>& a) { a.buffer = nullptr; }},
        {"width", qorStatusBadSize, [](Args<T>& a) { a.roiSize.width = 0; }},
        {"height", qorStatusBadSize, [](Args<T>& a) { a.roiSize.height = -1; }},
        {"maxPeakCount", qorStatusBadSize, [](Args<T>& a) { a.maxPeakCount = 0; }},
        {"border", qorStatusBadSize, [](Args<T>& a) { a.border = 0; }},
        {"border", qorStatusBadSize, [](Args<T>& a) { a.border = 4; }},
        {"border", qorStatusBadSize, [](Args<T>& a) { a.border = INT32_MAX; }},
        {"narrow", qorStatusBadSize, [](Args<T>& a) { a.roiSize.width = 1; }},
        {"srcStep", qorStatusBadStep, [](Args<T>& a) { a.srcStep = 35; }},
        {"srcStep", qorStatusBadStep, [](Args<T>& a) { a.srcStep = -36; }},
        {"srcStep", qorStatusBadStepAlign, [](Args<T>& a) { a.srcStep = 37; }},
        {"srcStep", qorStatusBadStepAlign, [](Args<T>& a) { a.srcStep = 42; }},
        {"normType", qorStatusBadArg, [](Args<T>& a) { a.normType = -1; }},
        {"normType", qorStatusBadArg, [](Args<T>& a) { a.normType = 2; }},
    };
    expectStatuses<Args<T>>(
        {src.data(), src.step(), {9, 6}, peaks.data(), 40, &count, 0, 1, buffer.data()}, faults,
        [&](const Args<T>& a) {
          return member.find(a.src, a.srcStep, a.roiSize, T(1), a.peak, a.maxPeakCount, a.peakCount, a.normType,
                             a.border, a.buffer);
        },
        [&] {
          std::vector<uint8_t> all = buffer;
          const uint8_t* p = reinterpret_cast<const uint8_t*>(peaks.data());
          all.insert(all.end(), p, p + peaks.size() * sizeof(QoriPoint));
          p = reinterpret_cast<const uint8_t*>(&count);
          all.insert(all.end(), p, p + sizeof count);
          return all;
        });
    EXPECT_EQ(count, 28);
    // Half of the size and no more.
    EXPECT_EQ(member.find(src.data(), src.step(), {9, 6}, T(1), peaks.data(), 40, &count, 0, 3, buffer.data()),
              qorStatusOk);
    EXPECT_EQ(count, 0);
  });
}

}  // namespace
