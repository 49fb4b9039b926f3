// Lens undistortion: positions and pixels against the formulas, operation by operation in float, with and without a
// buffer; positions outside the image, and numbers that are none.
#include <gtest/gtest.h>
#include <sys/mman.h>

#include <cmath>
#include <memory>

#include "support/any_image.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

struct Camera {
  float fx, fy, cx, cy, k1, k2, p1, p2;
};

struct Position {
  float x, y;
};

Position radialPosition(const Camera& c, int32_t i, int32_t j, bool buffered) {
  const float x = float(i) - c.cx, y = float(j) - c.cy;
  const float u = (x * x) * (1.0f / (c.fx * c.fx));
  const float v = (y * y) * (1.0f / (c.fy * c.fy));
  float f;
  if (buffered) {
    f = (u * ((2.0f * c.k2) * v) + v * (c.k1 + c.k2 * v)) + u * (c.k2 * u + c.k1);
  } else {
    f = ((c.k2 * u + c.k1) + 2.0f * (c.k2 * v)) * u + v * (c.k1 + c.k2 * v);
  }
  return {float(i) + x * f, float(j) + y * f};
}

Position tangentialPosition(const Camera& c, int32_t i, int32_t j) {
  const float x = float(i) - c.cx, y = float(j) - c.cy;
  const float s = x * (1.0f / c.fx), t = y * (1.0f / c.fy);
  const float r = s * s + t * t;
  const float g = (s * (2.0f * c.p2) + t * (2.0f * c.p1)) + (c.k2 * r + c.k1) * r;
  return {((c.fx * c.p2) * r + x * g) + float(i), ((c.fy * c.p1) * r + y * g) + float(j)};
}

bool isInside(Position p, QoriSize size) {
  return p.x >= 0 && p.y >= 0 && p.x < float(size.width - 1) && p.y < float(size.height - 1);
}

float stored(float value, float) { return value; }
template <class T>
T stored(float value, T) {
  return T(std::trunc(value + 0.5f));
}

template <class T>
T interpolated(const Image<T>& src, Position p, int32_t c) {
  const int32_t column = int32_t(p.x), row = int32_t(p.y);
  const float a = p.x - float(column), b = p.y - float(row);
  const float tl = float(src.get(column, row, c)), tr = float(src.get(column + 1, row, c));
  const float bl = float(src.get(column, row + 1, c)), br = float(src.get(column + 1, row + 1, c));
  return stored((br * b + tr * (1.0f - b)) * a + (bl * b + tl * (1.0f - b)) * (1.0f - a), T());
}

template <class T>
using Radial = QorStatus (*)(const T*, int32_t, T*, int32_t, QoriSize, uint8_t*, float, float, float, float, float,
                             float);

template <class T>
struct Form {
  using Element = T;
  Radial<T> function;
  int32_t channels;
};

template <class Body>
void forRadials(Body body) {
  body(Form<uint8_t>{qoriUndistortRadial_8u_C1R, 1});
  body(Form<uint8_t>{qoriUndistortRadial_8u_C3R, 3});
  body(Form<uint16_t>{qoriUndistortRadial_16u_C1R, 1});
  body(Form<uint16_t>{qoriUndistortRadial_16u_C3R, 3});
  body(Form<float>{qoriUndistortRadial_32f_C1R, 1});
  body(Form<float>{qoriUndistortRadial_32f_C3R, 3});
}

template <class T>
QorStatus undistort(Radial<T> function, const Image<T>& src, const Image<T>& dst, const Camera& c, uint8_t* buffer) {
  return function(src.data(), src.step(), dst.data(), dst.step(), src.size(), buffer, c.fx, c.fy, c.cx, c.cy, c.k1,
                  c.k2);
}

// A buffer of exactly the reported size, at any address, or none.
struct Buffer {
  Buffer(Random& random, QoriSize size) : given(random.chance(0.5)), shift(size_t(random.number(0, 31))) {
    int32_t bytes = 0;
    EXPECT_EQ(qoriUndistortGetSize(size, &bytes), qorStatusOk);
    const bool atEnd = random.chance(0.5);
    memory.reset(new GuardedMemory(size_t(bytes) + shift, atEnd ? Edge::end : Edge::begin));
    if (!atEnd) shift = 0;
  }
  uint8_t* data() const { return given ? memory->data() + shift : nullptr; }

  bool given;
  size_t shift;
  std::unique_ptr<GuardedMemory> memory;
};

float between(Random& random, float first, float last) {
  return first + (last - first) * float(random.number(0, 1000000)) / 1000000;
}

Camera anyCamera(Random& random, QoriSize size) {
  const float scale = float(std::max(size.width, size.height));
  Camera c = {between(random, 0.3f, 3) * scale,
              between(random, 0.3f, 3) * scale,
              between(random, -0.2f, 1.2f) * float(size.width),
              between(random, -0.2f, 1.2f) * float(size.height),
              between(random, -0.4f, 0.4f),
              between(random, -0.2f, 0.2f),
              between(random, -0.1f, 0.1f),
              between(random, -0.1f, 0.1f)};
  if (random.chance(0.1)) c.k2 = 0;
  if (random.chance(0.05)) c.k1 = c.k2 = 0;
  if (random.chance(0.1)) c.fx = -c.fx;
  return c;
}

// Any bits anywhere: overflow, infinities, numbers that are none.
Camera wildCamera(Random& random, QoriSize size) {
  Camera c = anyCamera(random, size);
  for (float* value : {&c.fx, &c.fy, &c.cx, &c.cy, &c.k1, &c.k2, &c.p1, &c.p2}) {
    if (random.chance(0.2)) *value = random.anyFloat();
  }
  if (c.fx == 0) c.fx = std::numeric_limits<float>::denorm_min();
  if (c.fy == 0) c.fy = 1e30f;
  return c;
}

QoriSize anySize(Random& random) {
  const int32_t width = random.width(600);
  return {width, int32_t(random.number(1, width > 100 ? 9 : 40))};
}

template <class T>
std::string wrongUndistortion(Form<T> form, Random& random, QoriSize size, const Camera& c, int64_t& insiders) {
  const int32_t channels = form.channels;
  AnyImage<T> src(random, size, channels), dst(random, size, channels);
  const bool special = random.chance(0.2);
  const auto anything = [&]() -> T {
    if constexpr (std::is_floating_point_v<T>) {
      if (special) return random.anyFloat();
    }
    return random.value<T>();
  };
  src.fill(anything);
  dst.fill(anything);
  const std::vector<uint8_t> before = src.bytes();
  Image<T> old(size.width, size.height, channels);
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      for (int32_t ch = 0; ch < channels; ++ch) old.set(x, y, ch, dst.get(x, y, ch));
    }
  }
  const Buffer buffer(random, size);
  if (undistort(form.function, src, dst, c, buffer.data()) != qorStatusOk) return "status";
  if (src.bytes() != before) return "wrote into the source";
  if (!dst.gapsIntact()) return "wrote beside the destination";
  if (!buffer.memory->patternIntact()) return "wrote beside the buffer";
  return difference(dst, [&](int32_t x, int32_t y, int32_t ch) {
    const Position p = radialPosition(c, x, y, buffer.given);
    if (!isInside(p, size)) return old.get(x, y, ch);
    ++insiders;
    return interpolated(src, p, ch);
  });
}

class Undistortion : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

}  // namespace

TEST_F(Undistortion, radial) {
  Random random(1);
  forRadials([&](auto form) {
    int64_t insiders = 0;
    for (int32_t run = 0; run < 400; ++run) {
      const QoriSize size = anySize(random);
      const Camera c = run % 4 == 3 ? wildCamera(random, size) : anyCamera(random, size);
      ASSERT_EQ(wrongUndistortion(form, random, size, c, insiders), "")
          << "channels " << form.channels << ", run " << run;
    }
    EXPECT_GT(insiders, 100000);
  });
}

// A copy, but for what has no neighbours to the right and below.
TEST_F(Undistortion, withoutDistortion) {
  Random random(2);
  forRadials([&](auto form) {
    for (const QoriSize size : {QoriSize{1, 1}, {1, 9}, {9, 1}, {2, 2}, {3, 3}, {4, 2}, {5, 4}, {257, 3}, {640, 5}}) {
      using T = typename decltype(form)::Element;
      AnyImage<T> src(random, size, form.channels), dst(random, size, form.channels);
      src.fill([&] { return random.value<T>(); });
      const Buffer buffer(random, size);
      ASSERT_EQ(undistort(form.function, src, dst, {300, 200, 3.5f, 1, 0, 0, 0, 0}, buffer.data()), qorStatusOk);
      EXPECT_EQ(difference(dst,
                           [&](int32_t x, int32_t y, int32_t c) {
                             return x < size.width - 1 && y < size.height - 1 ? src.get(x, y, c) : T(0);
                           }),
                "");
    }
  });
}

TEST_F(Undistortion, farAwayPixelsKeepWhatTheyHeld) {
  Image<uint8_t> src(40, 30), dst(40, 30);
  dst.fill([] { return uint8_t(77); });
  const std::vector<uint8_t> before = dst.bytes();
  const float nan = std::numeric_limits<float>::quiet_NaN(), infinity = std::numeric_limits<float>::infinity();
  for (const Camera& c :
       {Camera{10, 10, -20, -10, 1e20f, 0, 0, 0}, Camera{10, 10, -20, -10, 1e38f, 1e38f, 0, 0},
        Camera{nan, 10, 0, 0, 1, 1, 0, 0}, Camera{10, nan, 0, 0, 1, 1, 0, 0}, Camera{10, 10, nan, 0, 1, 1, 0, 0},
        Camera{10, 10, infinity, 0, 1, 1, 0, 0}, Camera{10, 10, 0, -infinity, 1, 1, 0, 0},
        Camera{10, 10, 20, 10, nan, 1, 0, 0}, Camera{10, 10, 50, 40, 0, infinity, 0, 0}}) {
    int32_t bytes = 0;
    ASSERT_EQ(qoriUndistortGetSize(dst.size(), &bytes), qorStatusOk);
    std::vector<uint8_t> buffer(size_t(bytes), 0);
    EXPECT_EQ(undistort(qoriUndistortRadial_8u_C1R, src, dst, c, nullptr), qorStatusOk);
    EXPECT_EQ(undistort(qoriUndistortRadial_8u_C1R, src, dst, c, buffer.data()), qorStatusOk);
    EXPECT_TRUE(dst.bytes() == before);
  }
}

// Rows so far apart that offsets in the image need more than 32 bits.
TEST_F(Undistortion, rowsFarApart) {
  constexpr int32_t step = 1 << 30;
  constexpr QoriSize size = {300, 4};
  constexpr size_t bytes = size_t(step) * 3 + 4096;
  void* const mapping =
      mmap(nullptr, bytes, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  if (mapping == MAP_FAILED) GTEST_SKIP() << "no room for it";
  uint16_t* const far = static_cast<uint16_t*>(mapping);
  Random random(3);
  Image<uint16_t> near(size.width, size.height, 3), fromNear(size.width, size.height, 3),
      fromFar(size.width, size.height, 3);
  near.fill([&] { return random.value<uint16_t>(); });
  for (int32_t y = 0; y < size.height; ++y) {
    memcpy(far + size_t(y) * (step / 2), near.data() + size_t(y) * (near.step() / 2), size.width * 6);
  }
  const Camera c = {300, 300, 140, 1.5f, -0.3f, 0.1f, 0, 0};
  EXPECT_EQ(undistort(qoriUndistortRadial_16u_C3R, near, fromNear, c, nullptr), qorStatusOk);
  EXPECT_EQ(qoriUndistortRadial_16u_C3R(far, step, fromFar.data(), fromFar.step(), size, nullptr, c.fx, c.fy, c.cx,
                                        c.cy, c.k1, c.k2),
            qorStatusOk);
  EXPECT_TRUE(fromNear.bytes() == fromFar.bytes());
  EXPECT_NE(fromFar.get(150, 2, 1), 0);
  munmap(mapping, bytes);
}

// Columns that are no floats: the last ones are rounded, but nothing beyond the image is read.
TEST_F(Undistortion, wideImages) {
  for (const int32_t extra : {2, 4}) {  // the last column's float is below it, or above

    const QoriSize size = {(1 << 24) + extra, 2};
    Image<uint8_t> src(size.width, size.height), dst(size.width, size.height);
    for (int32_t x = size.width - 100; x < size.width; ++x) src.set(x, 0, uint8_t(x * 37 + 1));
    const Camera c = {1000, 1000, 0, 0, 0, 0, 0, 0};
    ASSERT_EQ(undistort(qoriUndistortRadial_8u_C1R, src, dst, c, nullptr), qorStatusOk);
    for (int32_t x = size.width - 90; x < size.width; ++x) {
      const Position p = radialPosition(c, x, 0, false);
      ASSERT_EQ(dst.get(x, 0), isInside(p, size) ? interpolated(src, p, 0) : 0) << extra << ": " << x - size.width;
    }
  }
}

TEST_F(Undistortion, map) {
  Random random(4);
  for (int32_t run = 0; run < 1500; ++run) {
    const QoriSize size = anySize(random);
    Camera c = run % 4 == 3 ? wildCamera(random, size) : anyCamera(random, size);
    if (random.chance(0.5)) c.p1 = random.chance(0.5) ? 0.0f : -0.0f;
    if (random.chance(0.5)) c.p2 = random.chance(0.5) ? 0.0f : -0.0f;
    AnyImage<float> xMap(random, size), yMap(random, size);
    const Buffer buffer(random, size);
    ASSERT_EQ(qoriCreateMapCameraUndistort_32f_C1R(xMap.data(), xMap.step(), yMap.data(), yMap.step(), size,
                                                   buffer.data(), c.fx, c.fy, c.cx, c.cy, c.k1, c.k2, c.p1, c.p2),
              qorStatusOk);
    const auto position = [&](int32_t x, int32_t y) {
      return c.p1 == 0 && c.p2 == 0 ? radialPosition(c, x, y, buffer.given) : tangentialPosition(c, x, y);
    };
    ASSERT_EQ(difference(xMap, [&](int32_t x, int32_t y, int32_t) { return position(x, y).x; }), "") << run;
    ASSERT_EQ(difference(yMap, [&](int32_t x, int32_t y, int32_t) { return position(x, y).y; }), "") << run;
    ASSERT_TRUE(xMap.gapsIntact() && yMap.gapsIntact() && buffer.memory->patternIntact()) << run;
  }
}

TEST_F(Undistortion, bufferChangesTheLastBit) {
  const QoriSize size = {640, 48};
  int32_t bytes = 0;
  ASSERT_EQ(qoriUndistortGetSize(size, &bytes), qorStatusOk);
  std::vector<uint8_t> buffer(size_t(bytes), 0);
  Image<float> x[2] = {{size.width, size.height}, {size.width, size.height}}, y(size.width, size.height);
  for (const int32_t buffered : {0, 1}) {
    ASSERT_EQ(qoriCreateMapCameraUndistort_32f_C1R(x[buffered].data(), x[buffered].step(), y.data(), y.step(), size,
                                                   buffered ? buffer.data() : nullptr, 500, 510, 320.3f, 90.7f, -0.21f,
                                                   0.07f, 0, 0),
              qorStatusOk);
  }
  int32_t differing = 0;
  for (int32_t j = 0; j < size.height; ++j) {
    for (int32_t i = 0; i < size.width; ++i) {
      differing += x[0].get(i, j) != x[1].get(i, j);
      EXPECT_NEAR(x[0].get(i, j), x[1].get(i, j), 2e-4f);
    }
  }
  EXPECT_GT(differing, 100);
}

TEST_F(Undistortion, getSize) {
  for (const auto& [width, bytes] : {std::pair<int32_t, int32_t>{1, 128},
                                     {4, 128},
                                     {5, 224},
                                     {640, 640 * 24 + 32},
                                     {641, 644 * 24 + 32},
                                     // What wraps, wraps.
                                     {1 << 28, int32_t(0x80000020u)}}) {
    int32_t size = -1;
    EXPECT_EQ(qoriUndistortGetSize({width, 7}, &size), qorStatusOk);
    EXPECT_EQ(size, bytes) << width;
  }
  EXPECT_EQ(qoriUndistortGetSize({0, 7}, nullptr), qorStatusNullPtr);
  for (const QoriSize size : {QoriSize{0, 7}, {7, 0}, {-1, 7}, {7, -1}}) {
    int32_t bytes = 5;
    EXPECT_EQ(qoriUndistortGetSize(size, &bytes), qorStatusBadSize);
    EXPECT_EQ(bytes, 5);
  }
}

TEST_F(Undistortion, radialStatuses) {
  forRadials([](auto form) {
    using T = typename decltype(form)::Element;
    const int32_t channels = form.channels;
    struct Args {
      T *src, *dst;
      int32_t srcStep, dstStep;
      QoriSize size;
      float fx, fy;
    };
    Image<T> src(12, 7, channels), dst(12, 7, channels, 3);
    const int32_t row = 12 * channels * int32_t(sizeof(T));
    std::vector<Fault<Args>> faults = {
        {"src", qorStatusNullPtr, [](Args& a) { a.src = nullptr; }},
        {"dst", qorStatusNullPtr, [](Args& a) { a.dst = nullptr; }},
        {"size", qorStatusBadSize, [](Args& a) { a.size.width = 0; }},
        {"size", qorStatusBadSize, [](Args& a) { a.size.height = -1; }},
        {"srcStep", qorStatusBadStep, [=](Args& a) { a.srcStep = row - 1; }},
        {"dstStep", qorStatusBadStep, [=](Args& a) { a.dstStep = row - 1; }},
    };
    if (sizeof(T) > 1) {
      faults.push_back({"srcStep", qorStatusBadStepAlign, [](Args& a) { a.srcStep += 1; }});
      faults.push_back({"dstStep", qorStatusBadStepAlign, [](Args& a) { a.dstStep += 1; }});
    }
    faults.push_back({"fx", qorStatusBadArg, [](Args& a) { a.fx = 0; }});
    faults.push_back({"fx", qorStatusBadArg, [](Args& a) { a.fx = -0.0f; }});
    faults.push_back({"fy", qorStatusBadArg, [](Args& a) { a.fy = 0; }});
    const Args good = {src.data(), dst.data(), src.step(), dst.step(), {12, 7}, 10, 10};
    const std::function<QorStatus(const Args&)> call = [&](const Args& a) {
      return form.function(a.src, a.srcStep, a.dst, a.dstStep, a.size, nullptr, a.fx, a.fy, 6, 3, -0.1f, 0);
    };
    expectStatuses<Args>(good, faults, call, [&] { return dst.bytes(); });
    // What is not a number passes, unless the other is 0.
    Args odd = good;
    odd.fx = std::numeric_limits<float>::quiet_NaN();
    EXPECT_EQ(call(odd), qorStatusOk);
    odd.fy = 0;
    EXPECT_EQ(call(odd), qorStatusBadArg);
  });
}

TEST_F(Undistortion, mapStatuses) {
  struct Args {
    float *xMap, *yMap;
    int32_t xStep, yStep;
    QoriSize size;
    float fx, fy, p1;
  };
  Image<float> xMap(12, 7), yMap(12, 7, 1, 3);
  const Args good = {xMap.data(), yMap.data(), xMap.step(), yMap.step(), {12, 7}, 10, 10, 0.1f};
  const std::function<QorStatus(const Args&)> call = [&](const Args& a) {
    return qoriCreateMapCameraUndistort_32f_C1R(a.xMap, a.xStep, a.yMap, a.yStep, a.size, nullptr, a.fx, a.fy, 6, 3,
                                                -0.1f, 0, a.p1, 0);
  };
  expectStatuses<Args>(good,
                       {{"xMap", qorStatusNullPtr, [](Args& a) { a.xMap = nullptr; }},
                        {"yMap", qorStatusNullPtr, [](Args& a) { a.yMap = nullptr; }},
                        {"size", qorStatusBadSize, [](Args& a) { a.size.width = 0; }},
                        {"size", qorStatusBadSize, [](Args& a) { a.size.height = 0; }},
                        {"xStep", qorStatusBadStep, [](Args& a) { a.xStep = 47; }},
                        {"yStep", qorStatusBadStep, [](Args& a) { a.yStep = 47; }},
                        {"xStep", qorStatusBadStepAlign, [](Args& a) { a.xStep += 2; }},
                        {"yStep", qorStatusBadStepAlign, [](Args& a) { a.yStep += 1; }},
                        {"fx", qorStatusBadArg, [](Args& a) { a.fx = 0; }},
                        {"fy", qorStatusBadArg, [](Args& a) { a.fy = -0.0f; }}},
                       call, [&] {
                         std::vector<uint8_t> bytes = xMap.bytes();
                         for (uint8_t byte : yMap.bytes()) bytes.push_back(byte);
                         return bytes;
                       });
  Args odd = good;
  odd.fy = std::numeric_limits<float>::quiet_NaN();
  EXPECT_EQ(call(odd), qorStatusOk);
  EXPECT_NE(yMap.get(3, 3), yMap.get(3, 3));
  odd.fx = 0;
  EXPECT_EQ(call(odd), qorStatusBadArg);
}

TEST_F(Undistortion, neitherThreadsNorAllocates) {
  services::threads(4);
  Image<uint8_t> src(1000, 700), dst(1000, 700);
  EXPECT_EQ(requestedTeam([&] {
              ASSERT_EQ(undistort(qoriUndistortRadial_8u_C1R, src, dst, {900, 900, 500, 350, -0.1f, 0, 0, 0}, nullptr),
                        qorStatusOk);
            }),
            0);
  EXPECT_EQ(services::allocations(), 0);
}
