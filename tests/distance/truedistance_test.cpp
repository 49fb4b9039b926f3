// True distances: against the nearest of all zeros, against the envelope step by step, and in every team.
#include <gtest/gtest.h>

#include <cmath>

#include "support/any_image.h"
#include "support/memory.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

struct Source : AnyImage<uint8_t> {
  Source(Random& random, QoriSize size, double zeros) : AnyImage(random, size) {
    fill([&] { return random.chance(zeros) ? uint8_t(0) : uint8_t(random.number(1, 255)); });
  }
  bool anyZero() const {
    for (int32_t y = 0; y < height(); ++y) {
      for (int32_t x = 0; x < width(); ++x) {
        if (get(x, y) == 0) return true;
      }
    }
    return false;
  }
};

template <class Query>
int32_t sizeFrom(Query query, QoriSize size) {
  int32_t bytes = 0;
  EXPECT_EQ(query(size, &bytes), qorStatusOk);
  return bytes;
}

// A buffer of exactly the reported size.
void integers(const Image<uint8_t>& src, const Image<uint16_t>& dst, int32_t scaleFactor, Edge edge = Edge::end) {
  const GuardedMemory buffer(size_t(sizeFrom(qoriTrueDistanceTransformGetBufferSize_8u16u_C1RSfs, src.size())), edge);
  ASSERT_EQ(qoriTrueDistanceTransform_8u16u_C1RSfs(src.data(), src.step(), dst.data(), dst.step(), src.size(),
                                                   scaleFactor, buffer.data()),
            qorStatusOk);
  ASSERT_TRUE(buffer.patternIntact());
  ASSERT_TRUE(dst.gapsIntact());
}
void floats(const Image<uint8_t>& src, const Image<float>& dst, Edge edge = Edge::end) {
  const GuardedMemory buffer(size_t(sizeFrom(qoriTrueDistanceTransformGetBufferSize_8u32f_C1R, src.size())), edge);
  ASSERT_EQ(
      qoriTrueDistanceTransform_8u32f_C1R(src.data(), src.step(), dst.data(), dst.step(), src.size(), buffer.data()),
      qorStatusOk);
  ASSERT_TRUE(buffer.patternIntact());
  ASSERT_TRUE(dst.gapsIntact());
}

// --- models ---

// Squared distance to the nearest zero, of all.
std::vector<int64_t> nearest(const Image<uint8_t>& src) {
  std::vector<QoriPoint> zeros;
  std::vector<int64_t> squares;
  for (int32_t y = 0; y < src.height(); ++y) {
    for (int32_t x = 0; x < src.width(); ++x) {
      if (src.get(x, y) == 0) zeros.push_back({x, y});
    }
  }
  for (int32_t y = 0; y < src.height(); ++y) {
    for (int32_t x = 0; x < src.width(); ++x) {
      int64_t least = INT64_MAX;
      for (const QoriPoint& zero : zeros) {
        const int64_t dx = x - zero.x, dy = y - zero.y;
        least = std::min(least, dx * dx + dy * dy);
      }
      squares.push_back(least);
    }
  }
  return squares;
}

uint16_t scaledRoot(int64_t square, int32_t scaleFactor) {
  const double root = sqrt(double(square)) * pow(2.0, -scaleFactor);
  // Up to a scale of 1 halves are rounded up, beyond it to even.
  const double rounded = scaleFactor <= 0 ? floor(root + 0.5) : nearbyint(root);
  return uint16_t(std::min(32767.0, rounded));
}

// Column by column and row by row as the text of the algorithm goes, with its tables.
std::vector<float> envelopes(const Image<uint8_t>& src) {
  const int32_t w = src.width(), h = src.height();
  std::vector<float> plane(size_t(w) * size_t(h)), squareTable(size_t(2 * h)), inverse(size_t(w), 0.0f);
  for (int32_t i = 0; i < 2 * h; ++i) squareTable[size_t(i)] = i < h ? float(int64_t(i) * i) : 3.4028235e38f;
  for (int32_t x = 0; x < w; ++x) {
    std::vector<int32_t> column(static_cast<size_t>(h));
    int32_t d = h - 1;
    for (int32_t y = h - 1; y >= 0; --y) column[size_t(y)] = d = src.get(x, y) != 0 ? d + 1 : 0;
    d = h - 1;
    for (int32_t y = 0; y < h; ++y) {
      d = std::min(d + 1, column[size_t(y)]);
      plane[size_t(y) * size_t(w) + size_t(x)] = squareTable[size_t(d)];
    }
  }
  for (int32_t i = 1; i < w; ++i) inverse[size_t(i)] = 0.5f / float(i);
  const auto sq = [](int32_t i) { return float(int64_t(i) * i); };
  for (int32_t y = 0; y < h; ++y) {
    float* const f = &plane[size_t(y) * size_t(w)];
    const std::vector<float> values(f, f + w);
    struct Parabola {
      int32_t column;
      float left;
    };
    std::vector<Parabola> envelope = {{0, -3.4028235e38f}};
    for (int32_t q = 1; q < w; ++q) {
      const float s0 = values[size_t(q)] + sq(q);
      float s;
      for (;;) {
        const int32_t p = envelope.back().column;
        const float difference = s0 - values[size_t(p)], rest = difference - sq(p);
        s = rest * inverse[size_t(q - p)];
        if (s > envelope.back().left) break;
        envelope.pop_back();
      }
      envelope.push_back({q, s});
    }
    size_t k = 0;
    for (int32_t x = 0; x < w; ++x) {
      while (k + 1 < envelope.size() && float(x) > envelope[k + 1].left) ++k;
      const int32_t p = envelope[k].column;
      const float square = sq(abs(x - p)) + values[size_t(p)];
      f[x] = float(sqrt(double(square)));
    }
  }
  return plane;
}

}  // namespace

class TrueDistance : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::allocations(), 0);
    services::reset();
  }
};

TEST_F(TrueDistance, isTheDistanceToTheNearestZero) {
  Random random(1);
  for (int i = 0; i < 250; ++i) {
    const QoriSize size = {random.width(80), int32_t(random.number(1, 60))};
    const Source src(random, size, random.pick(std::vector<double>{0.002, 0.015, 0.1, 0.7}));
    if (!src.anyZero()) continue;
    const Edge edge = random.chance(0.5) ? Edge::begin : Edge::end;
    const std::vector<int64_t> squares = nearest(src);
    const auto squareAt = [&](int32_t x, int32_t y) { return squares[size_t(y) * size_t(size.width) + size_t(x)]; };
    AnyImage<float> real(random, size);
    floats(src, real, edge);
    ASSERT_EQ(difference(real, [&](int32_t x, int32_t y, int32_t) { return float(sqrt(double(squareAt(x, y)))); }), "");
    const int32_t scaleFactor = int32_t(random.number(-16, 5));
    AnyImage<uint16_t> whole(random, size);
    integers(src, whole, scaleFactor, edge);
    ASSERT_EQ(difference(whole, [&](int32_t x, int32_t y, int32_t) { return scaledRoot(squareAt(x, y), scaleFactor); }),
              "")
        << "scale factor " << scaleFactor;
  }
}

// Distances whose squares are beyond the exact range of floats, where rounding and the choice of parabolas show; and
// sizes on both sides of the limits up to which everything is exact, with distances near and far.
TEST_F(TrueDistance, roundsAsTheEnvelopeDoes) {
  Random random(2);
  std::vector<QoriSize> sizes = {{9000, 3},  {4, 9000},  {7001, 5},  {700, 300},
                                 {2048, 30}, {2049, 30}, {64, 2896}, {64, 2897}};
  for (int i = 0; i < 8; ++i) sizes.push_back({int32_t(random.number(60, 2100)), int32_t(random.number(1, 60))});
  for (const QoriSize size : sizes) {
    for (const double zeros : {0.0002, 0.001, 0.004, 0.02}) {
      const Source src(random, size, zeros);
      if (!src.anyZero()) continue;
      const std::vector<float> should = envelopes(src);
      AnyImage<float> dst(random, size);
      floats(src, dst);
      ASSERT_EQ(difference(dst, [&](int32_t x, int32_t y,
                                    int32_t) { return should[size_t(y) * size_t(size.width) + size_t(x)]; }),
                "");
    }
  }
}

TEST_F(TrueDistance, fromACorner) {
  for (const QoriPoint corner : {QoriPoint{0, 0}, {299, 0}, {0, 199}, {299, 199}}) {
    Image<uint8_t> src(300, 200);
    src.fill([] { return 255; });
    src.set(corner.x, corner.y, 0);
    Image<float> dst(300, 200);
    floats(src, dst);
    EXPECT_EQ(difference(dst,
                         [=](int32_t x, int32_t y, int32_t) {
                           const int32_t dx = x - corner.x, dy = y - corner.y;
                           return float(sqrt(double(dx * dx + dy * dy)));
                         }),
              "");
  }
}

TEST_F(TrueDistance, columnsWithoutZerosTakeTheirDistanceAlongTheRows) {
  Image<uint8_t> src(50, 20);
  src.fill([] { return 1; });
  for (int32_t y = 0; y < 20; ++y) src.set(30, y, 0);
  Image<uint16_t> dst(50, 20);
  integers(src, dst, -2);
  EXPECT_EQ(difference(dst, [](int32_t x, int32_t, int32_t) { return uint16_t(4 * abs(x - 30)); }), "");
}

TEST_F(TrueDistance, aWidthOf1HasColumnsOnly) {
  Image<uint8_t> src(1, 5000, 1, 3);
  src.fill([] { return 1; });
  src.set(0, 1234, 0);
  Image<float> real(1, 5000);
  Image<uint16_t> whole(1, 5000);
  floats(src, real);
  integers(src, whole, 0);
  EXPECT_EQ(difference(real, [](int32_t, int32_t y, int32_t) { return float(abs(y - 1234)); }), "");
  EXPECT_EQ(difference(whole, [](int32_t, int32_t y, int32_t) { return uint16_t(abs(y - 1234)); }), "");
}

// No meaning attaches to the results, but they are there, large, and nothing else is touched.
TEST_F(TrueDistance, imagesWithoutZero) {
  Random random(3);
  for (const QoriSize size : {QoriSize{1, 1}, {1, 70}, {70, 1}, {130, 90}}) {
    const Source src(random, size, 0);
    AnyImage<float> real(random, size);
    AnyImage<uint16_t> whole(random, size);
    floats(src, real);
    integers(src, whole, 0);
    for (int32_t y = 0; y < size.height; ++y) {
      for (int32_t x = 0; x < size.width; ++x) {
        ASSERT_GT(real.get(x, y), 1e18f);
        ASSERT_EQ(whole.get(x, y), 32767);
      }
    }
  }
}

TEST_F(TrueDistance, scaleAndHold) {
  Image<uint8_t> src(3000, 1);
  src.fill([] { return 1; });
  src.set(0, 0, 0);
  Image<uint16_t> dst(3000, 1);
  integers(src, dst, -4);
  EXPECT_EQ(difference(dst, [](int32_t x, int32_t, int32_t) { return uint16_t(std::min(16 * x, 32767)); }), "");
  integers(src, dst, 1);  // ties to even
  EXPECT_EQ(difference(dst, [](int32_t x, int32_t, int32_t) { return uint16_t(nearbyint(x * 0.5)); }), "");
}

// Squares of 32 bits: at 46341 they wrap below 0, which has no root.
TEST_F(TrueDistance, integerSquaresWrap) {
  Image<uint8_t> src(1, 46400);
  src.fill([] { return 1; });
  src.set(0, 0, 0);
  Image<uint16_t> dst(1, 46400);
  integers(src, dst, 1);
  EXPECT_EQ(dst.get(0, 46340), 23170);
  EXPECT_EQ(dst.get(0, 46341), 0);
}

TEST_F(TrueDistance, anyTeamGivesTheSame) {
  Random random(4);
  for (const QoriSize size : {QoriSize{300, 270}, {256, 7}, {40, 3}, {1, 50}}) {
    const Source src(random, size, 0.02);
    services::reset();
    Image<float> real(size.width, size.height), again(size.width, size.height);
    Image<uint16_t> whole(size.width, size.height), wholeAgain(size.width, size.height);
    floats(src, real);
    integers(src, whole, -3);
    for (const int32_t threads : {2, 3, 8, 40}) {
      for (const int32_t team : {1, threads, threads + 5, 0}) {
        services::threads(threads);
        services::teamSize = team;
        // The scratch has room for as many threads as the query knew of, whatever is asked for later.
        EXPECT_EQ(requestedTeam([&] { floats(src, again); }), std::max(1, std::min(team, threads)));
        EXPECT_EQ(requestedTeam([&] { integers(src, wholeAgain, -3); }), std::max(1, std::min(team, threads)));
        ASSERT_EQ(difference(again, [&](int32_t x, int32_t y, int32_t) { return real.get(x, y); }), "");
        ASSERT_EQ(difference(wholeAgain, [&](int32_t x, int32_t y, int32_t) { return whole.get(x, y); }), "");
      }
    }
  }
}

TEST_F(TrueDistance, gate) {
  Random random(5);
  const auto team = [&](QoriSize size, int32_t threads, int32_t cores) {
    const Source src(random, size, 0.02);
    Image<float> dst(size.width, size.height);
    services::threads(threads);
    services::cores = cores;
    return requestedTeam([&] { floats(src, dst); });
  };
  EXPECT_EQ(team({300, 300}, 1, 8), 0);  // one thread
  EXPECT_EQ(team({5, 5}, 4, 2), 4);      // several cores: any size
  EXPECT_EQ(team({256, 64}, 4, 1), 4);   // one core: threads * height and width from 256 on
  EXPECT_EQ(team({256, 63}, 4, 1), 0);
  EXPECT_EQ(team({255, 64}, 4, 1), 0);
}

TEST_F(TrueDistance, bufferSizes) {
  const auto whole = [](QoriSize size) { return sizeFrom(qoriTrueDistanceTransformGetBufferSize_8u16u_C1RSfs, size); };
  const auto real = [](QoriSize size) { return sizeFrom(qoriTrueDistanceTransformGetBufferSize_8u32f_C1R, size); };
  EXPECT_EQ(whole({1, 1}), (8 * 24 + 24) + 1 * 8 * 4 + 32);
  EXPECT_EQ(real({1, 1}), 4 * 24 + 56);
  EXPECT_EQ(whole({17, 9}), (24 * 24 + 24) + 9 * 24 * 4 + 32);
  EXPECT_EQ(real({17, 9}), 20 * 24 + 56);
  services::maxThreads = 7;
  EXPECT_EQ(whole({9, 33}), (40 * 24 + 24) * 7 + 33 * 16 * 4 + 32);
  EXPECT_EQ(real({9, 33}), (36 * 24 + 56) * 7);
  // Wraps.
  EXPECT_EQ(whole({32768, 65536}), int32_t((65536u * 24 + 24) * 7 + 32));
}

TEST_F(TrueDistance, statusesOfBufferSizes) {
  for (const auto query :
       {qoriTrueDistanceTransformGetBufferSize_8u16u_C1RSfs, qoriTrueDistanceTransformGetBufferSize_8u32f_C1R}) {
    int32_t bytes = -7;
    EXPECT_EQ(query({0, 0}, nullptr), qorStatusNullPtr);
    EXPECT_EQ(query({0, 5}, &bytes), qorStatusBadSize);
    EXPECT_EQ(query({5, 0}, &bytes), qorStatusBadSize);
    EXPECT_EQ(query({-5, -5}, &bytes), qorStatusBadSize);
    EXPECT_EQ(bytes, -7);
  }
}

namespace {

template <class T>
struct Args {
  const uint8_t* src;
  int32_t srcStep;
  T* dst;
  int32_t dstStep;
  QoriSize size;
  uint8_t* buffer;
};

template <class T, class Call>
void expectAllStatuses(Call call) {
  Image<uint8_t> src(9, 7);
  Image<T> dst(9, 7, 1, 4);
  std::vector<uint8_t> buffer(8192);
  std::vector<Fault<Args<T>>> faults = {
      {"src", qorStatusNullPtr, [](Args<T>& a) { a.src = nullptr; }},
      {"dst", qorStatusNullPtr, [](Args<T>& a) { a.dst = nullptr; }},
      {"buffer", qorStatusNullPtr, [](Args<T>& a) { a.buffer = nullptr; }},
      {"size", qorStatusBadSize, [](Args<T>& a) { a.size.width = 0; }},
      {"size", qorStatusBadSize, [](Args<T>& a) { a.size.height = -1; }},
      {"srcStep", qorStatusBadStep, [](Args<T>& a) { a.srcStep = 8; }},
      {"dstStep", qorStatusBadStep, [](Args<T>& a) { a.dstStep = 9 * int32_t(sizeof(T)) - 1; }},
      {"dstStep", qorStatusBadStepAlign, [](Args<T>& a) { a.dstStep += 1; }},
  };
  if (sizeof(T) > 2) faults.push_back({"dstStep", qorStatusBadStepAlign, [](Args<T>& a) { a.dstStep += 2; }});
  expectStatuses<Args<T>>({src.data(), src.step(), dst.data(), dst.step(), dst.size(), buffer.data()}, faults, call,
                          [&] {
                            std::vector<uint8_t> bytes = dst.bytes();
                            bytes.insert(bytes.end(), buffer.begin(), buffer.end());
                            return bytes;
                          });
}

}  // namespace

TEST_F(TrueDistance, statuses) {
  expectAllStatuses<uint16_t>([](const Args<uint16_t>& a) {
    return qoriTrueDistanceTransform_8u16u_C1RSfs(a.src, a.srcStep, a.dst, a.dstStep, a.size, 0, a.buffer);
  });
  expectAllStatuses<float>([](const Args<float>& a) {
    return qoriTrueDistanceTransform_8u32f_C1R(a.src, a.srcStep, a.dst, a.dstStep, a.size, a.buffer);
  });
}
