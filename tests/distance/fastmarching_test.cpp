// Fast marching: one thread against a model that follows the order of the sweeps pixel by pixel, two threads against
// the solution that no pass changes any more.
#include <gtest/gtest.h>
#include <math.h>

#include "support/image.h"
#include "support/random.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

constexpr float farValue = 999999.0f, edgeValue = -1e-10f;

enum { downRight = 1, downLeft = 2, upRight = 4, upLeft = 8 };

// --- model ---

struct Model {
  int32_t width, height;
  std::vector<uint8_t> mask;
  bool ext;
  float limit;
  std::vector<float> u;
  std::vector<int> bits;   // a ring of one pixel around
  std::vector<int> flags;  // one more at both ends

  Model(const Image<uint8_t>& src, float radius)
      : width(src.width()),
        height(src.height()),
        ext(radius > 0),
        limit(0.0f - (1e-5f + radius)),
        u(size_t(width) * height),
        bits(size_t(width + 2) * (height + 2)),
        flags(size_t(height) + 2) {
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) mask.push_back(src.get(x, y));
    }
  }

  bool in(int32_t x, int32_t y) const { return mask[size_t(y) * width + x] != 0; }
  float& at(int32_t x, int32_t y) { return u[size_t(y) * width + x]; }
  int& bitsOf(int32_t x, int32_t y) { return bits[size_t(y + 1) * (width + 2) + x + 1]; }
  int& flag(int32_t y) { return flags[size_t(y) + 1]; }

  static float inside(float a, float b) {
    const float d = a - b;
    if (float(fabs(double(d))) >= 1.0f) return std::min(a, b) + 1.0f;
    return (a + b + float(sqrt(double(2.0f - d * d)))) * 0.5f;
  }

  // What the pixel would become; its value where nothing happens. `none`: there is no value yet.
  float candidate(int32_t x, int32_t y, float a, const float* side, bool none) {
    const float held = none ? 0.0f : at(x, y);
    if (in(x, y)) {
      if (ext) a = std::max(a, 0.0f);
      if (!side) return none ? a + 1.0f : std::min(held, a + 1.0f);
      const float b = ext ? std::max(*side, 0.0f) : *side;
      return none ? inside(a, b) : std::min(held, inside(a, b));
    }
    if (!ext) return 0.0f;
    const float b = side ? *side : 0.0f;
    if (a > 0 || b > 0) return edgeValue;
    if (a == 0 && b == 0) return held;
    float value;
    if (a == 0 || b == 0) {
      value = std::min(a, b) - 1.0f;
    } else {
      const double d = double(a - b);
      if (fabs(d) >= 1.0) {
        value = std::max(a, b) - 1.0f;
      } else {
        value = (a + b - float(sqrt(2.0 - d * d))) * 0.5f;
      }
    }
    return value >= limit && (held == 0 || value > held) ? value : held;
  }

  // Visits (x, y), coming from the row y - way and the column `side` (none if it is outside).
  bool visit(int32_t x, int32_t y, int32_t way, int32_t side, bool none = false) {
    const float* b = side < 0 || side >= width ? nullptr : &at(side, y);
    const float value = candidate(x, y, at(x, y - way), b, none);
    const bool changed = value != at(x, y);
    at(x, y) = value;
    return changed;
  }

  void rowZero() {
    at(0, 0) = in(0, 0) ? farValue : 0.0f;
    for (int32_t x = 1; x < width; ++x) at(x, 0) = candidate(x, 0, at(x - 1, 0), nullptr, true);
    for (int32_t x = width - 2; x >= 0; --x) at(x, 0) = candidate(x, 0, at(x + 1, 0), nullptr, false);
  }

  void endOfRow(int32_t y, bool changed) {
    flag(y) = changed;
    if (!changed) return;
    flag(y - 1) = 1;
    flag(y + 1) = 1;
  }

  bool secondUp() {
    bool any = false;
    for (int32_t y = height - 2; y >= 0; --y) {
      if (!flag(y)) continue;
      bool changed = false;
      const auto mark = [&](int32_t x) {
        changed = true;
        bitsOf(x - 1, y) |= downLeft;
        bitsOf(x + 1, y) |= downRight;
        bitsOf(x, y + 1) |= downRight | downLeft;
      };
      for (int32_t x = 0; x < width; ++x) {
        if (visit(x, y, -1, x - 1)) mark(x);
      }
      for (int32_t x = width - 2; x >= 0; --x) {
        if (visit(x, y, -1, x + 1)) mark(x);
      }
      endOfRow(y, changed);
      any = any || changed;
    }
    return any;
  }

  bool third(int32_t start, int32_t end) {
    const int32_t way = start <= end ? 1 : -1;
    const int right = way > 0 ? downRight : upRight, left = way > 0 ? downLeft : upLeft;
    const int backRight = way > 0 ? upRight : downRight, backLeft = way > 0 ? upLeft : downLeft;
    bool any = false, carry = end != 0;
    for (int32_t y = start; y != end; y += way) {
      if (!flag(y)) continue;
      bool changed = false;
      const auto look = [&](int32_t x, int32_t side, int bit) {
        if (!(bitsOf(x, y) & bit) && !carry) return;
        bitsOf(x, y) &= ~bit;
        carry = false;
        if (!visit(x, y, way, side)) return;
        carry = changed = true;
        bitsOf(x - 1, y) |= backLeft;
        bitsOf(x + 1, y) |= backRight;
        bitsOf(x, y - way) |= backRight | backLeft;
        bitsOf(x, y + way) |= right | left;
      };
      for (int32_t x = 0; x < width; ++x) look(x, x - 1, right);
      for (int32_t x = width - 2; x >= 0; --x) look(x, x + 1, left);
      endOfRow(y, changed);
      any = any || changed;
    }
    return any;
  }

  void first() {
    rowZero();
    flag(0) = flag(1) = 1;
    for (int32_t y = 1; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) visit(x, y, 1, x - 1, true);
      for (int32_t x = width - 2; x >= 0; --x) visit(x, y, 1, x + 1);
      flag(y) = flag(y - 1) = flag(y + 1) = 1;
    }
    flag(height - 1) = 0;
  }

  // The sweeps in their order.
  void serial() {
    first();
    if (!secondUp()) return;
    for (;;) {
      flag(0) = 0;
      if (!third(1, height)) return;
      flag(height - 1) = 0;
      if (!third(height - 2, -1)) return;
    }
  }

  // All four passes over all pixels until none changes anything.
  void converge() {
    first();
    for (bool changed = true; changed;) {
      changed = false;
      for (const int32_t way : {1, -1}) {
        for (int32_t i = 1; i < height; ++i) {
          const int32_t y = way > 0 ? i : height - 1 - i;
          for (int32_t x = 0; x < width; ++x) changed |= visit(x, y, way, x - 1);
          for (int32_t x = width - 2; x >= 0; --x) changed |= visit(x, y, way, x + 1);
        }
      }
    }
  }
};

// --- calls ---

// Runs on a buffer of exactly the reported size, at an odd address.
void march(const Image<uint8_t>& src, Image<float>& dst, float radius) {
  int32_t size = 0;
  ASSERT_EQ(qoriFastMarchingGetBufferSize_8u32f_C1R(src.size(), &size), qorStatusOk);
  GuardedMemory buffer{size_t(size)};
  memset(buffer.data(), 0xff, buffer.size());
  ASSERT_EQ(
      qoriFastMarching_8u32f_C1R(src.data(), src.step(), dst.data(), dst.step(), src.size(), radius, buffer.data()),
      qorStatusOk);
  EXPECT_TRUE(buffer.patternIntact());
}

// Masks of many kinds: dots, holes, discs, mazes that need many sweeps, none, all.
void fillMask(Image<uint8_t>& mask, Random& random) {
  const int64_t kind = random.number(0, 6);
  const double density = random.pick(std::vector<double>{0.02, 0.1, 0.5, 0.9, 0.98});
  const int32_t spacing = int32_t(random.number(2, 9));
  const double x0 = double(random.number(0, mask.width())), y0 = double(random.number(0, mask.height())),
               r = double(random.number(1, 40));
  for (int32_t y = 0; y < mask.height(); ++y) {
    for (int32_t x = 0; x < mask.width(); ++x) {
      bool in = random.chance(density);
      if (kind == 1) in = hypot(x - x0, y - y0) < r;
      if (kind == 2) in = hypot(x - x0, y - y0) >= r;
      if (kind == 3) in = y % spacing != 0 || (y / spacing % 2 == 0 ? x == 0 : x == mask.width() - 1);
      if (kind == 4) in = x % spacing != 0 || (x / spacing % 2 == 0 ? y == 0 : y == mask.height() - 1);
      mask.set(x, y, in ? uint8_t(random.number(1, 255)) : uint8_t(0));
    }
  }
  // A maze whose walls are mask pixels in reach of few zero pixels.
  if (kind == 3 || kind == 4) mask.set(int32_t(x0) % mask.width(), int32_t(y0) % mask.height(), uint8_t(0));
}

class FastMarching : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

TEST_F(FastMarching, OneThreadFollowsTheSweepsToTheBit) {
  Random random(1);
  for (int i = 0; i < 400; ++i) {
    const int32_t width = random.width(140), height = int32_t(random.number(1, i % 10 == 0 ? 120 : 30));
    const size_t shift = random.chance(0.3) ? 1 : 0;
    const int32_t gap = int32_t(random.number(0, 3));
    const Edge edge = random.chance(0.5) ? Edge::end : Edge::begin;
    Image<uint8_t> src(width, height, 1, gap, edge);
    Image<float> dst(width, height, 1, gap, edge, shift);
    fillMask(src, random);
    dst.fill([&] { return random.anyFloat(); });
    for (const float radius : {0.0f, random.pick(std::vector<float>{0.5f, 1.0f, 2.0f, 3.7f, 20.0f, 1e9f})}) {
      march(src, dst, radius);
      Model model(src, radius);
      model.serial();
      ASSERT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t) { return model.at(x, y); }), "") << i;
      ASSERT_TRUE(dst.gapsIntact());
    }
  }
}

TEST_F(FastMarching, TwoThreadsReachTheSameSolution) {
  Random random(2);
  for (int i = 0; i < 60; ++i) {
    const int32_t width = random.width(100), height = int32_t(random.number(6, i % 10 == 0 ? 120 : 40));
    Image<uint8_t> src(width, height, 1, 1);
    Image<float> dst(width, height, 1, 1), again(width, height, 1, 1);
    fillMask(src, random);
    src.set(int32_t(random.number(0, width - 1)), int32_t(random.number(0, height - 1)), uint8_t(0));
    const float radius = random.pick(std::vector<float>{0.0f, 2.0f, 20.5f});
    Model model(src, radius);
    model.converge();
    services::threads(2);
    march(src, dst, radius);
    services::threads(7);
    march(src, again, radius);
    EXPECT_EQ(dst.bytes(), again.bytes());
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        const float should = model.at(x, y), is = dst.get(x, y);
        ASSERT_NEAR(is, should, 1e-5 + 1e-6 * fabsf(should)) << i << ": " << x << ", " << y;
        ASSERT_EQ(is == 0, should == 0);
        ASSERT_EQ(is == edgeValue, should == edgeValue);
      }
    }
    ASSERT_TRUE(dst.gapsIntact());
  }
}

// Inside a parallel region the runtime gives one thread, which does the work of both.
TEST_F(FastMarching, TheWorkOfTwoByOne) {
  Random random(5);
  for (int i = 0; i < 10; ++i) {
    Image<uint8_t> src(50, 30);
    Image<float> dst(50, 30), nested(50, 30);
    fillMask(src, random);
    services::threads(2);
    for (const float radius : {0.0f, 3.0f}) {
      march(src, dst, radius);
#pragma omp parallel num_threads(2)
      {
#pragma omp single
        march(src, nested, radius);
      }
      EXPECT_EQ(dst.bytes(), nested.bytes());
    }
  }
}

TEST_F(FastMarching, TwoThreadsFromSixRowsOn) {
  for (const int32_t height : {1, 5, 6, 40}) {
    Image<uint8_t> src(3, height);
    Image<float> dst(3, height);
    for (const int32_t threads : {1, 2, 5}) {
      services::threads(1);
      services::teamSize = threads;
      EXPECT_EQ(requestedTeam([&] { march(src, dst, 1.0f); }), height > 5 && threads > 1 ? 2 : 0) << height;
    }
  }
}

TEST_F(FastMarching, NoZeroPixel) {
  Image<uint8_t> src(70, 40);
  Image<float> dst(70, 40);
  src.fill([] { return uint8_t(1); });
  march(src, dst, 0);
  for (int32_t x = 0; x < 70; ++x) EXPECT_EQ(dst.get(x, 0), farValue + float(x));
  EXPECT_EQ(dst.get(0, 39), farValue + 39);
  Model model(src, 0);
  model.serial();
  EXPECT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t) { return model.at(x, y); }), "");
  services::threads(2);
  for (const float radius : {0.0f, 5.0f}) {
    march(src, dst, radius);
    for (int32_t y = 0; y < 40; ++y) {
      for (int32_t x = 0; x < 70; ++x) {
        EXPECT_GE(dst.get(x, y), farValue);
        EXPECT_LE(dst.get(x, y), farValue + 110);
      }
    }
  }
}

TEST_F(FastMarching, SingleRow) {
  Image<uint8_t> src(8, 1);
  Image<float> dst(8, 1);
  const uint8_t mask[8] = {0, 0, 0, 0, 9, 9, 9, 0};
  for (int32_t x = 0; x < 8; ++x) src.set(x, 0, mask[x]);
  const std::vector<std::pair<float, std::vector<float>>> expected = {
      {0.0f, {0, 0, 0, 0, 1, 2, 1, 0}}, {2.0f, {0, -2, -1, edgeValue, 1, 2, 1, edgeValue}}};
  for (const auto& [radius, values] : expected) {
    march(src, dst, radius);
    EXPECT_EQ(difference(dst, [&, v = values](int32_t x, int32_t, int32_t) { return v[size_t(x)]; }), "");
  }
}

// Beside the mask the smallest negative value, beyond the radius 0.
TEST_F(FastMarching, Radius) {
  Image<uint8_t> src(21, 21);
  Image<float> dst(21, 21);
  src.set(10, 10, 255);
  for (const int32_t threads : {1, 2}) {
    services::threads(threads);
    march(src, dst, 0);
    EXPECT_EQ(difference(dst, [](int32_t x, int32_t y, int32_t) { return x == 10 && y == 10 ? sqrtf(0.5f) : 0.0f; }),
              "");
    march(src, dst, 4);
    EXPECT_EQ(dst.get(11, 10), edgeValue);
    EXPECT_EQ(dst.get(10, 9), edgeValue);
    for (int32_t d = 2; d <= 5; ++d) EXPECT_EQ(dst.get(10, 10 + d), float(1 - d));
    EXPECT_EQ(dst.get(10, 16), 0);
    EXPECT_EQ(dst.get(0, 0), 0);
    EXPECT_EQ(dst.get(10, 10), sqrtf(0.5f));
  }
}

// Not below 0, and not above it either.
TEST_F(FastMarching, RadiusThatIsNoNumber) {
  Random random(3);
  Image<uint8_t> src(30, 20);
  Image<float> dst(30, 20), plain(30, 20);
  fillMask(src, random);
  march(src, dst, NAN);
  march(src, plain, 0);
  EXPECT_EQ(dst.bytes(), plain.bytes());
  march(src, dst, HUGE_VALF);
  Model model(src, HUGE_VALF);
  model.serial();
  EXPECT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t) { return model.at(x, y); }), "");
}

TEST_F(FastMarching, BufferSize) {
  int32_t size = 7;
  EXPECT_EQ(qoriFastMarchingGetBufferSize_8u32f_C1R({1, 1}, nullptr), qorStatusNullPtr);
  EXPECT_EQ(qoriFastMarchingGetBufferSize_8u32f_C1R({0, 1}, nullptr), qorStatusNullPtr);
  EXPECT_EQ(qoriFastMarchingGetBufferSize_8u32f_C1R({0, 1}, &size), qorStatusBadSize);
  EXPECT_EQ(qoriFastMarchingGetBufferSize_8u32f_C1R({1, 0}, &size), qorStatusBadSize);
  EXPECT_EQ(size, 7);
  for (const auto& [width, rounded] :
       std::vector<std::pair<int32_t, int32_t>>{{1, 32}, {32, 32}, {33, 64}, {640, 640}}) {
    EXPECT_EQ(qoriFastMarchingGetBufferSize_8u32f_C1R({width, 480}, &size), qorStatusOk);
    EXPECT_EQ(size, 514 * (rounded + 5) + 40);
  }
}

TEST_F(FastMarching, Statuses) {
  struct Args {
    const uint8_t* src;
    int32_t srcStep;
    float* dst;
    int32_t dstStep;
    QoriSize size;
    float radius;
    uint8_t* buffer;
  };
  Image<uint8_t> src(10, 7, 1, 4);
  Image<float> dst(10, 7, 1, 1);
  GuardedMemory buffer(10000);
  for (const int32_t threads : {1, 2}) {
    services::threads(threads);
    expectStatuses<Args>(
        {src.data(), src.step(), dst.data(), dst.step(), src.size(), 2.0f, buffer.data()},
        {{"src", qorStatusNullPtr, [](Args& a) { a.src = nullptr; }},
         {"dst", qorStatusNullPtr, [](Args& a) { a.dst = nullptr; }},
         {"buffer", qorStatusNullPtr, [](Args& a) { a.buffer = nullptr; }},
         {"width", qorStatusBadSize, [](Args& a) { a.size.width = 0; }},
         {"height", qorStatusBadSize, [](Args& a) { a.size.height = -1; }},
         {"srcStep", qorStatusBadStep, [](Args& a) { a.srcStep = 9; }},
         {"dstStep", qorStatusBadStep, [](Args& a) { a.dstStep = 39; }},
         {"dstStep", qorStatusBadStepAlign, [](Args& a) { a.dstStep = 42; }},
         {"radius", qorStatusBadArg, [](Args& a) { a.radius = -0.001f; }}},
        [](const Args& a) {
          return qoriFastMarching_8u32f_C1R(a.src, a.srcStep, a.dst, a.dstStep, a.size, a.radius, a.buffer);
        },
        [&] {
          std::vector<uint8_t> bytes = dst.bytes();
          bytes.insert(bytes.end(), buffer.data(), buffer.data() + buffer.size());
          return bytes;
        });
  }
}

}  // namespace
