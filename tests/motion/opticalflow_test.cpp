// Pyramidal optical flow: against a tracker that looks at one pixel at a time, and on textures of known motion.
#include <gtest/gtest.h>
#include <math.h>

#include <memory>

#include "support/any_image.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
struct Member {
  using Pixel = T;
  QorStatus (*init)(QoriOptFlowState**, QoriSize, int32_t, int32_t);
  QorStatus (*free)(QoriOptFlowState*);
  QorStatus (*track)(const QoriPyramid*, const QoriPyramid*, const QoriPoint_32f*, QoriPoint_32f*, uint8_t*, float*,
                     int32_t, int32_t, int32_t, int32_t, float, QoriOptFlowState*);
};

template <class Body>
void forMembers(Body body) {
  body(Member<uint8_t>{qoriOpticalFlowPyrLKInitAlloc_8u_C1R, qoriOpticalFlowPyrLKFree_8u_C1R,
                       qoriOpticalFlowPyrLK_8u_C1R});
  body(Member<uint16_t>{qoriOpticalFlowPyrLKInitAlloc_16u_C1R, qoriOpticalFlowPyrLKFree_16u_C1R,
                        qoriOpticalFlowPyrLK_16u_C1R});
  body(Member<float>{qoriOpticalFlowPyrLKInitAlloc_32f_C1R, qoriOpticalFlowPyrLKFree_32f_C1R,
                     qoriOpticalFlowPyrLK_32f_C1R});
}

// A scene of waves, as bright at (x, y) as it was before the motion at (x - moved.x, y - moved.y).
struct Scene {
  QoriPoint_32f moved = {0, 0};
  double contrast = 1;

  double at(double x, double y) const {
    x -= moved.x;
    y -= moved.y;
    return 128 + contrast * (40 * sin(x * 0.23 + 0.4 * sin(y * 0.11)) + 35 * cos(y * 0.27 + x * 0.05) +
                             25 * sin(x * 0.061 - y * 0.083));
  }
};

// A pyramid of halves, every level sampled from the scene itself, its record filled in by hand.
template <class T>
struct Pyramid {
  std::vector<std::unique_ptr<Image<T>>> levels;
  std::vector<void*> images;
  std::vector<QoriSize> sizes;
  std::vector<double> rates;
  std::vector<int32_t> steps;
  QoriPyramid record;

  template <class Value>
  Pyramid(Random& random, QoriSize size, int32_t topLevel, Value value) {
    double rate = 1;
    for (int32_t l = 0; l <= topLevel; ++l, rate /= 2) {
      levels.push_back(std::make_unique<AnyImage<T>>(random, size));
      Image<T>& level = *levels.back();
      for (int32_t y = 0; y < size.height; ++y) {
        for (int32_t x = 0; x < size.width; ++x) level.set(x, y, pixel(value(x / rate, y / rate)));
      }
      images.push_back(level.data());
      sizes.push_back(size);
      rates.push_back(rate);
      steps.push_back(level.step());
      size = {std::max(1, (size.width + 1) / 2), std::max(1, (size.height + 1) / 2)};
    }
    record = {images.data(), sizes.data(), rates.data(), steps.data(), nullptr, topLevel};
  }
  Pyramid(Random& random, QoriSize size, int32_t topLevel, const Scene& scene)
      : Pyramid(random, size, topLevel, [&](double x, double y) { return scene.at(x, y); }) {}

  static T pixel(double value) {
    if constexpr (std::is_same_v<T, float>) {
      return float(value);
    } else if constexpr (sizeof(T) == 2) {
      return T(lround(std::max(0.0, std::min(255.0, value)) * 200));
    } else {
      return T(lround(std::max(0.0, std::min(255.0, value))));
    }
  }
};

struct Tracked {
  std::vector<QoriPoint_32f> next;
  std::vector<uint8_t> status;
  std::vector<float> error;
};

struct Settings {
  int32_t winSize, maxLevel, maxIter;
  float threshold;
  QoriSize planes;  // levels below this size are handled as planes
};

// --- model ---

// A window of pixels as doubles; which of them lie inside the image.
struct Window {
  int32_t side, startX, startY, minX, minY, maxX, maxY;
  float fx, fy;
  std::vector<double> values;
  double at(int32_t x, int32_t y) const { return values[size_t(y) * size_t(side) + size_t(x)]; }
};

void place(float centre, int32_t window, int32_t source, int32_t& start, int32_t& min, int32_t& max, float& fraction) {
  const float t = centre - float(window - 1) * 0.5f;
  start = int32_t(float(window) + t) - window;
  fraction = t - float(start);
  min = start < 0 ? std::min(-start, window) : 0;
  max = start + window - 1 > source - 2 ? source - start - 2 : window - 1;
  if (start >= source) min = 0, max = -1;
}

template <class T>
double interpolated(const Image<T>& image, int32_t x, int32_t y, bool pairX, bool pairY, float f, float g) {
  const int32_t right = x + (pairX ? 1 : 0), below = y + (pairY ? 1 : 0);
  const T p = image.get(x, y), q = image.get(right, y), r = image.get(x, below), s = image.get(right, below);
  if (!pairX) f = 0;
  if (!pairY) g = 0;
  if constexpr (sizeof(T) == 1) {
    // Weights of 14 bits, rounded up, what is too much taken from the largest; 7 bits of fraction remain.
    const int32_t one = 16384, a = int32_t(f * 16384 + 0.5f), b = int32_t(g * 16384 + 0.5f);
    int32_t w[4] = {(one - a) * (one - b), a * (one - b), (one - a) * b, a * b};
    if (pairX && pairY && !(f == 0 && g == 0)) {
      for (int32_t& weight : w) weight = weight / one + 1;
      const int32_t order[4] = {0, 2, 1, 3}, most = std::max(std::max(w[0], w[1]), std::max(w[2], w[3]));
      for (const int32_t i : order) {
        if (w[i] == most) {
          w[i] += one - (w[0] + w[1] + w[2] + w[3]);
          break;
        }
      }
    } else {
      for (int32_t& weight : w) weight /= one;
    }
    return (w[0] * p + w[1] * q + w[2] * r + w[3] * s + 64) >> 7;
  } else {
    return (double(p) * (1 - f) + double(q) * f) * (1 - g) + (double(r) * (1 - f) + double(s) * f) * g;
  }
}

template <class T>
Window windowAbout(const Image<T>& image, QoriPoint_32f point, int32_t side) {
  Window w;
  w.side = side;
  place(point.x, side, image.width(), w.startX, w.minX, w.maxX, w.fx);
  place(point.y, side, image.height(), w.startY, w.minY, w.maxY, w.fy);
  for (int32_t y = 0; y < side; ++y) {
    for (int32_t x = 0; x < side; ++x) {
      const bool pairX = x >= w.minX && x <= w.maxX, pairY = y >= w.minY && y <= w.maxY;
      const int32_t column = pairX ? w.startX + x : x < w.minX ? 0 : image.width() - 1;
      const int32_t row = pairY ? w.startY + y : y < w.minY ? 0 : image.height() - 1;
      w.values.push_back(interpolated(image, column, row, pairX, pairY, w.fx, w.fy));
    }
  }
  return w;
}

// Gradient of 3x3 values, scaled so that a ramp of 1 has a gradient of 1; of integers rounded.
template <class T, class Value>
void gradient(Value v, double& gx, double& gy) {
  gx = 3 * (v(2, 0) - v(0, 0)) + 10 * (v(2, 1) - v(0, 1)) + 3 * (v(2, 2) - v(0, 2));
  gy = 3 * (v(0, 2) - v(0, 0)) + 10 * (v(1, 2) - v(1, 0)) + 3 * (v(2, 2) - v(2, 0));
  if constexpr (sizeof(T) == 1) {
    gx = floor((gx + 16) / 32);
    gy = floor((gy + 16) / 32);
  } else {
    gx /= 32;
    gy /= 32;
  }
}

// One pixel of a gradient plane; the image's edges repeat.
template <class T>
void planeGradient(const Image<T>& image, int32_t x, int32_t y, double& gx, double& gy) {
  const auto v = [&](int32_t i, int32_t j) {
    return double(image.get(std::max(0, std::min(image.width() - 1, x + i - 1)),
                            std::max(0, std::min(image.height() - 1, y + j - 1))));
  };
  gx = 3 * (v(2, 0) - v(0, 0)) + 10 * (v(2, 1) - v(0, 1)) + 3 * (v(2, 2) - v(0, 2));
  gy = 3 * (v(0, 2) - v(0, 0)) + 10 * (v(1, 2) - v(1, 0)) + 3 * (v(2, 2) - v(2, 0));
  const double scale = sizeof(T) == 1 ? 4 : 1.0 / 32;
  gx *= scale;
  gy *= scale;
}

// Between four pixels of a plane; integers with weights of 15 bits.
template <class T>
double sampled(const double (&p)[4], float f, float g) {
  if constexpr (sizeof(T) == 1) {
    const int64_t one = 32768, a = lround(f * 32768.0), b = lround(g * 32768.0);
    const int64_t weights[4] = {(one - a) * (one - b), a * (one - b), (one - a) * b, a * b};
    int64_t sum = 0;
    for (int i = 0; i < 4; ++i) sum += ((weights[i] + 16384) >> 15) * int64_t(p[i]);
    return double((sum + 16384) >> 15);
  } else {
    return (p[0] * (1 - f) + p[1] * f) * (1 - g) + (p[2] * (1 - f) + p[3] * f) * g;
  }
}

int32_t wrapped(int64_t sum) { return int32_t(uint32_t(uint64_t(sum))); }

template <class T>
void modelLevel(const Pyramid<T>& first, const Pyramid<T>& second, int32_t l, bool plane, const Settings& s,
                QoriPoint_32f prev, QoriPoint_32f& next, uint8_t& status, float& error) {
  if (status != l + 1) return;
  status = uint8_t(l);
  const Image<T>&i = *first.levels[size_t(l)], &j = *second.levels[size_t(l)];
  const double rate = first.rates[size_t(l)];
  const QoriPoint_32f p = {float(prev.x * rate), float(prev.y * rate)};
  QoriPoint_32f q = {float(next.x * rate), float(next.y * rate)};
  const int32_t side = s.winSize;
  const Window a = windowAbout(i, p, side + 2);
  // Inside the image, in coordinates without the ring.
  const int32_t minX = std::max(a.minX, 1) - 1, minY = std::max(a.minY, 1) - 1;
  const int32_t maxX = std::min(a.maxX, side) - 1, maxY = std::min(a.maxY, side) - 1;
  std::vector<double> gradientX(size_t(side) * size_t(side)), gradientY = gradientX;
  for (int32_t y = minY; y <= maxY; ++y) {
    for (int32_t x = minX; x <= maxX; ++x) {
      double &gx = gradientX[size_t(y) * size_t(side) + size_t(x)],
             &gy = gradientY[size_t(y) * size_t(side) + size_t(x)];
      if (plane) {
        double px[4], py[4];
        for (int k = 0; k < 4; ++k) planeGradient(i, a.startX + 1 + x + k % 2, a.startY + 1 + y + k / 2, px[k], py[k]);
        gx = sampled<T>(px, a.fx, a.fy);
        gy = sampled<T>(py, a.fx, a.fy);
      } else {
        gradient<T>([&](int32_t dx, int32_t dy) { return a.at(x + dx, y + dy); }, gx, gy);
      }
    }
  }
  int32_t left = 0, top = 0, right = -1, bottom = -1;
  bool lost = false;
  float previousX = 1e30f, previousY = 1e30f;
  Window b;
  for (int32_t iteration = 1; iteration <= s.maxIter; ++iteration) {
    b = windowAbout(j, q, side);
    left = std::max(minX, b.minX), right = std::min(maxX, b.maxX);
    top = std::max(minY, b.minY), bottom = std::min(maxY, b.maxY);
    if (left > right || top > bottom) {
      next = {float(q.x / rate), float(q.y / rate)};
      lost = true;
      break;
    }
    double gxx = 0, gxy = 0, gyy = 0, bx = 0, by = 0;
    for (int32_t y = top; y <= bottom; ++y) {
      double row[5] = {};
      for (int32_t x = left; x <= right; ++x) {
        const double gx = gradientX[size_t(y) * size_t(side) + size_t(x)];
        const double gy = gradientY[size_t(y) * size_t(side) + size_t(x)];
        const double d = a.at(x + 1, y + 1) - b.at(x, y);
        row[0] += gx * gx, row[1] += gx * gy, row[2] += gy * gy, row[3] += gx * d, row[4] += gy * d;
      }
      if (sizeof(T) == 1) {
        for (double& sum : row) sum = wrapped(int64_t(sum));
      }
      gxx += row[0], gxy += row[1], gyy += row[2], bx += row[3], by += row[4];
    }
    const double determinant = gxx * gyy - gxy * gxy;
    if (determinant < 2.220446049250313e-16) {
      lost = true;
      break;
    }
    const float dx = float((gyy * bx - gxy * by) / determinant), dy = float((gxx * by - gxy * bx) / determinant);
    q.x += dx;
    q.y += dy;
    if (dx * dx + dy * dy < s.threshold * s.threshold) break;
    const float still = sqrtf(1.1920928955078125e-7f);
    if (fabsf(previousX + dx) < still && fabsf(previousY + dy) < still) {
      q.x -= dx / 2;
      q.y -= dy / 2;
      break;
    }
    previousX = dx;
    previousY = dy;
  }
  if (lost) {
    status = uint8_t(l + 1);
  } else {
    next = l > 0 ? QoriPoint_32f{float(q.x / rate), float(q.y / rate)} : q;
  }
  double sum = 0;
  int64_t count = 0;
  for (int32_t y = top; y < bottom; ++y) {
    for (int32_t x = left; x < right; ++x, ++count) {
      const double d = b.at(x, y) - a.at(x + 1, y + 1);
      sum += d * d;
    }
  }
  error = sum > 0 ? float(sqrt(sum / double(count)) * (sizeof(T) == 1 ? 0.0078125 : 1)) : 0;
}

template <class T>
Tracked model(const Pyramid<T>& first, const Pyramid<T>& second, const std::vector<QoriPoint_32f>& prev,
              const std::vector<QoriPoint_32f>& guess, const Settings& s) {
  Tracked t = {guess, std::vector<uint8_t>(prev.size(), uint8_t(s.maxLevel + 1)), std::vector<float>(prev.size(), -1)};
  bool plane = true;
  for (int32_t l = s.maxLevel; l >= 0; --l) {
    const QoriSize size = first.sizes[size_t(l)];
    if (size.width >= s.planes.width || size.height >= s.planes.height) plane = false;
    for (size_t i = 0; i < prev.size(); ++i) {
      modelLevel(first, second, l, plane, s, prev[i], t.next[i], t.status[i], t.error[i]);
    }
  }
  return t;
}

// --- calls ---

template <class T>
Tracked tracked(const Member<T>& member, const QoriPyramid& first, const QoriPyramid& second,
                const std::vector<QoriPoint_32f>& prev, const std::vector<QoriPoint_32f>& guess, const Settings& s) {
  Tracked t = {guess, std::vector<uint8_t>(prev.size(), 99), std::vector<float>(prev.size(), -1)};
  QoriOptFlowState* state = nullptr;
  EXPECT_EQ(member.init(&state, s.planes, s.winSize, 0), qorStatusOk);
  const int64_t allocations = services::allocations();
  EXPECT_EQ(member.track(&first, &second, prev.data(), t.next.data(), t.status.data(), t.error.data(),
                         int32_t(prev.size()), s.winSize, s.maxLevel, s.maxIter, s.threshold, state),
            qorStatusOk);
  EXPECT_EQ(services::allocations(), allocations) << "a call allocates";
  EXPECT_EQ(member.free(state), qorStatusOk);
  return t;
}

std::string text(QoriPoint_32f p) { return std::to_string(p.x) + ", " + std::to_string(p.y); }

// Integers are summed exactly, so that 8-bit results are the model's to the last bit. Sums of floats depend on their
// order a little.
template <class T>
std::string difference(const Tracked& is, const Tracked& should) {
  const float tolerance = sizeof(T) == 1 ? 0.0f : 2e-3f;
  for (size_t i = 0; i < is.next.size(); ++i) {
    const std::string at = " of point " + std::to_string(i);
    if (is.status[i] != should.status[i]) {
      return "status" + at + ": " + std::to_string(is.status[i]) + " instead of " + std::to_string(should.status[i]);
    }
    if (!(fabsf(is.next[i].x - should.next[i].x) <= tolerance && fabsf(is.next[i].y - should.next[i].y) <= tolerance)) {
      return "position" + at + ": " + text(is.next[i]) + " instead of " + text(should.next[i]);
    }
    if (!(fabsf(is.error[i] - should.error[i]) <= tolerance * (1 + should.error[i]) + 1e-6f * should.error[i])) {
      return "error" + at + ": " + std::to_string(is.error[i]) + " instead of " + std::to_string(should.error[i]);
    }
  }
  return "";
}

std::vector<QoriPoint_32f> anyPoints(Random& random, QoriSize size, int32_t count, int32_t outside) {
  std::vector<QoriPoint_32f> points;
  for (int32_t i = 0; i < count; ++i) {
    points.push_back({float(random.number(-outside * 10, (size.width + outside) * 10)) / 10,
                      float(random.number(-outside * 10, (size.height + outside) * 10)) / 10});
  }
  return points;
}

// A grid that stays away from the edges by `margin`.
std::vector<QoriPoint_32f> grid(QoriSize size, int32_t margin, int32_t step) {
  std::vector<QoriPoint_32f> points;
  for (int32_t y = margin; y < size.height - margin; y += step) {
    for (int32_t x = margin; x < size.width - margin; x += step) points.push_back({float(x) + 0.3f, float(y) + 0.6f});
  }
  return points;
}

constexpr QoriSize everyLevelInPatches = {1, 1}, everyLevelInPlanes = {4000, 4000};

}  // namespace

class OpticalFlow : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::liveBlocks(), 0);
    services::reset();
  }
};

// Points inside, on the edges and outside; all window sizes; both modes and the change between them.
TEST_F(OpticalFlow, matchesTheModel) {
  Random random(1);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    for (int i = 0; i < 60; ++i) {
      const QoriSize size = {int32_t(random.number(20, 110)), int32_t(random.number(20, 90))};
      const int32_t top = int32_t(random.number(0, 3));
      const float contrast = random.chance(0.5) ? 1 : 0.1f;
      const Scene still = {{0, 0}, contrast};
      const Scene moved = {{float(random.number(-30, 30)) / 10, float(random.number(-30, 30)) / 10}, contrast};
      const Pyramid<T> first(random, size, top, still), second(random, size, top, moved);
      Settings s = {int32_t(random.number(1, 36)), int32_t(random.number(0, top)), int32_t(random.number(1, 8)),
                    float(random.number(1, 30)) / 1000,
                    random.pick(std::vector<QoriSize>{everyLevelInPatches, everyLevelInPlanes, {40, 30}, size})};
      // Windows of little texture have steps that magnify every difference of rounding.
      if (sizeof(T) > 1) s.winSize = std::max(s.winSize, 9);
      const auto prev = anyPoints(random, size, 12, sizeof(T) > 1 ? 0 : 12);
      const Tracked is = tracked(member, first.record, second.record, prev, prev, s);
      const Tracked should = model(first, second, prev, prev, s);
      ASSERT_EQ(difference<T>(is, should), "") << sizeof(T) << " bytes, case " << i << ", window " << s.winSize << ", "
                                               << size.width << "x" << size.height << ", level " << s.maxLevel;
    }
  });
}

// Black and white noise: products of a row leave 32 bits.
TEST_F(OpticalFlow, sumsOfRowsWrapIn8Bits) {
  Random random(2);
  const auto noise = [&](double, double) { return random.chance(0.5) ? 255.0 : 0.0; };
  for (const QoriSize planes : {everyLevelInPatches, everyLevelInPlanes}) {
    for (int i = 0; i < 30; ++i) {
      const Pyramid<uint8_t> first(random, {90, 80}, 1, noise), second(random, {90, 80}, 1, noise);
      const Settings s = {int32_t(random.number(15, 60)), 1, 6, 0.01f, planes};
      const auto prev = anyPoints(random, {90, 80}, 10, 5);
      const Member<uint8_t> member = {qoriOpticalFlowPyrLKInitAlloc_8u_C1R, qoriOpticalFlowPyrLKFree_8u_C1R,
                                      qoriOpticalFlowPyrLK_8u_C1R};
      ASSERT_EQ(difference<uint8_t>(tracked(member, first.record, second.record, prev, prev, s),
                                    model(first, second, prev, prev, s)),
                "");
    }
  }
}

TEST_F(OpticalFlow, findsAShiftBetweenPixels) {
  Random random(3);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    constexpr QoriSize size = {160, 120};
    for (const QoriPoint_32f shift : {QoriPoint_32f{0.4f, -0.3f}, QoriPoint_32f{-6.7f, 5.2f}}) {
      const Pyramid<T> first(random, size, 2, Scene{{0, 0}, 1}), second(random, size, 2, Scene{shift, 1});
      for (const QoriSize planes : {everyLevelInPatches, everyLevelInPlanes}) {
        const Settings s = {21, 2, 20, 0.001f, planes};
        const auto prev = grid(size, 24, 12);
        const Tracked is = tracked(member, first.record, second.record, prev, prev, s);
        for (size_t i = 0; i < prev.size(); ++i) {
          EXPECT_EQ(is.status[i], 0);
          EXPECT_NEAR(is.next[i].x, prev[i].x + shift.x, 0.03);
          EXPECT_NEAR(is.next[i].y, prev[i].y + shift.y, 0.03);
          EXPECT_LT(is.error[i], sizeof(T) == 2 ? 200 : 1);
        }
      }
    }
  });
}

TEST_F(OpticalFlow, aGuessReplacesTheLevels) {
  Random random(4);
  const Pyramid<float> first(random, {100, 100}, 0, Scene{{0, 0}, 1}), second(random, {100, 100}, 0, Scene{{21, 0}, 1});
  const std::vector<QoriPoint_32f> prev = {{40, 50}}, guess = {{59.5f, 50.5f}};
  const Member<float> member = {qoriOpticalFlowPyrLKInitAlloc_32f_C1R, qoriOpticalFlowPyrLKFree_32f_C1R,
                                qoriOpticalFlowPyrLK_32f_C1R};
  const Tracked is = tracked(member, first.record, second.record, prev, guess, {15, 0, 20, 0.001f, {50, 50}});
  EXPECT_EQ(is.status[0], 0);
  EXPECT_NEAR(is.next[0].x, 61, 0.01);
  EXPECT_NEAR(is.next[0].y, 50, 0.01);
}

TEST_F(OpticalFlow, aFlatWindowLosesThePoint) {
  Random random(5);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    const auto flat = [](double, double) { return 77.0; };
    const Pyramid<T> first(random, {64, 64}, 2, flat), second(random, {64, 64}, 2, flat);
    for (const QoriSize planes : {everyLevelInPatches, everyLevelInPlanes}) {
      const std::vector<QoriPoint_32f> prev = {{30.25f, 31.5f}};
      const Tracked is =
          tracked(member, first.record, second.record, prev, {{31.25f, 32.75f}}, {9, 2, 5, 0.01f, planes});
      EXPECT_EQ(is.status[0], 3) << "lost at level 2";
      EXPECT_EQ(is.next[0].x, 31.25f);
      EXPECT_EQ(is.next[0].y, 32.75f);
      EXPECT_EQ(is.error[0], 0);
    }
  });
}

TEST_F(OpticalFlow, aPointOutsideIsLostAtTheTopLevel) {
  Random random(6);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    const Pyramid<T> first(random, {64, 64}, 1, Scene{}), second(random, {64, 64}, 1, Scene{});
    const std::vector<QoriPoint_32f> prev = {{-200, 20}, {20, 300}, {1e30f, 3}, {NAN, 4}, {-1e30f, INFINITY}};
    for (const QoriSize planes : {everyLevelInPatches, everyLevelInPlanes}) {
      const Tracked is = tracked(member, first.record, second.record, prev, prev, {7, 1, 5, 0.01f, planes});
      for (size_t i = 0; i < prev.size(); ++i) {
        EXPECT_EQ(is.status[i], 2);
        EXPECT_EQ(is.error[i], 0);
      }
      EXPECT_EQ(is.next[0].x, -200);
      // A guess outside loses a point that lies inside.
      const Tracked away =
          tracked(member, first.record, second.record, {{30, 30}}, {{500, 30}}, {7, 1, 5, 0.01f, planes});
      EXPECT_EQ(away.status[0], 2);
      EXPECT_EQ(away.next[0].x, 500);
    }
  });
}

TEST_F(OpticalFlow, aPointOnTheEdgeUsesThePartInside) {
  Random random(7);
  const Pyramid<float> first(random, {90, 80}, 0, Scene{}), second(random, {90, 80}, 0, Scene{{0.5f, 0.25f}, 1});
  const Member<float> member = {qoriOpticalFlowPyrLKInitAlloc_32f_C1R, qoriOpticalFlowPyrLKFree_32f_C1R,
                                qoriOpticalFlowPyrLK_32f_C1R};
  const std::vector<QoriPoint_32f> prev = {{1, 40}, {88, 40}, {45, 1}, {45, 78}, {1, 1}, {88, 78}};
  const Tracked is = tracked(member, first.record, second.record, prev, prev, {21, 0, 20, 0.001f, {200, 200}});
  for (size_t i = 0; i < prev.size(); ++i) {
    EXPECT_EQ(is.status[i], 0);
    EXPECT_NEAR(is.next[i].x, prev[i].x + 0.5f, 0.05);
    EXPECT_NEAR(is.next[i].y, prev[i].y + 0.25f, 0.05);
  }
}

// The level that loses a point stays in its status, and what the levels above had found is kept.
TEST_F(OpticalFlow, aLostPointStaysLost) {
  Random random(8);
  const Scene still, moved = {{2, 1}, 1};
  const auto flatAtLevel1 = [&](double x, double y) { return still.at(x, y); };
  Pyramid<uint8_t> first(random, {128, 128}, 2, flatAtLevel1), second(random, {128, 128}, 2, moved);
  first.levels[1]->fill([] { return uint8_t(9); });
  const Member<uint8_t> member = {qoriOpticalFlowPyrLKInitAlloc_8u_C1R, qoriOpticalFlowPyrLKFree_8u_C1R,
                                  qoriOpticalFlowPyrLK_8u_C1R};
  for (const QoriSize planes : {everyLevelInPatches, everyLevelInPlanes}) {
    const Tracked is = tracked(member, first.record, second.record, {{64, 60}}, {{64, 60}}, {11, 2, 10, 0.01f, planes});
    EXPECT_EQ(is.status[0], 2) << "lost at level 1";
    EXPECT_NEAR(is.next[0].x, 66, 0.6) << "found at level 2";
    EXPECT_NEAR(is.next[0].y, 61, 0.6);
    EXPECT_GT(is.error[0], 1) << "of level 1";
  }
}

TEST_F(OpticalFlow, aLevelThatCannotBeReadLosesItsPoints) {
  Random random(9);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    const Pyramid<T> good(random, {64, 64}, 1, Scene{});
    const auto expectLost = [&](const Pyramid<T>& first, const Pyramid<T>& second) {
      for (const QoriSize planes : {everyLevelInPatches, everyLevelInPlanes}) {
        const Tracked is =
            tracked(member, first.record, second.record, {{30, 30}}, {{31, 30}}, {9, 1, 5, 0.01f, planes});
        EXPECT_EQ(is.status[0], 2);
        EXPECT_EQ(is.next[0].x, 31);
        EXPECT_EQ(is.error[0], 0);
      }
    };
    for (int fault = 0; fault < 3; ++fault) {
      Pyramid<T> bad(random, {64, 64}, 1, Scene{});
      if (fault == 0) bad.images[1] = nullptr;
      if (fault == 1) bad.steps[1] = 5;
      if (fault == 2) bad.sizes[1].height = 0;
      expectLost(bad, good);
      expectLost(good, bad);
    }
  });
}

// With a threshold of 0 only the number of iterations or the test for going to and fro ends a level.
TEST_F(OpticalFlow, aThresholdOfZeroGoesOn) {
  Random random(10);
  const Pyramid<uint8_t> first(random, {80, 80}, 0, Scene{}), second(random, {80, 80}, 0, Scene{{1.3f, 0.8f}, 1});
  const Member<uint8_t> member = {qoriOpticalFlowPyrLKInitAlloc_8u_C1R, qoriOpticalFlowPyrLKFree_8u_C1R,
                                  qoriOpticalFlowPyrLK_8u_C1R};
  const auto prev = grid({80, 80}, 15, 9);
  for (const int32_t maxIter : {1, 2, 3, 50}) {
    const Settings s = {13, 0, maxIter, 0, {100, 100}};
    ASSERT_EQ(difference<uint8_t>(tracked(member, first.record, second.record, prev, prev, s),
                                  model(first, second, prev, prev, s)),
              "");
  }
}

TEST_F(OpticalFlow, doesNotDependOnThreads) {
  Random random(11);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    // Large enough for filters that share out their rows.
    constexpr QoriSize size = {300, 560};
    const Pyramid<T> first(random, size, 2, Scene{}), second(random, size, 2, Scene{{1.5f, -2.25f}, 1});
    for (const int32_t count : {1, 3, 7, 40}) {
      const auto prev = anyPoints(random, size, count, 4);
      for (const QoriSize planes : {QoriSize{310, 570}, QoriSize{200, 300}}) {
        const Settings s = {11, 2, 4, 0.01f, planes};
        services::reset();
        const Tracked alone = tracked(member, first.record, second.record, prev, prev, s);
        for (int32_t threads = 2; threads <= 9; ++threads) {
          services::threads(threads);
          const Tracked is = tracked(member, first.record, second.record, prev, prev, s);
          for (size_t i = 0; i < prev.size(); ++i) {
            ASSERT_EQ(is.status[i], alone.status[i]);
            ASSERT_TRUE(sameValue(is.next[i].x, alone.next[i].x) && sameValue(is.next[i].y, alone.next[i].y));
            ASSERT_TRUE(sameValue(is.error[i], alone.error[i]));
          }
        }
      }
    }
  });
}

// The scratch is for the threads of the time when the state was made, whatever holds later.
TEST_F(OpticalFlow, aStateServesItsThreadsOnly) {
  Random random(12);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    constexpr QoriSize size = {300, 600};
    const Pyramid<T> first(random, size, 0, Scene{}), second(random, size, 0, Scene{{0.5f, 0.5f}, 1});
    const auto prev = grid(size, 20, 40);
    const Settings s = {11, 0, 4, 0.01f, {310, 610}};
    const Tracked alone = tracked(member, first.record, second.record, prev, prev, s);
    for (const int32_t made : {1, 2, 5}) {
      services::threads(made);
      QoriOptFlowState* state = nullptr;
      ASSERT_EQ(member.init(&state, s.planes, s.winSize, 0), qorStatusOk);
      for (const int32_t now : {1, 2, 3, 8, 40}) {
        services::threads(now);
        Tracked is = {prev, std::vector<uint8_t>(prev.size()), std::vector<float>(prev.size())};
        EXPECT_EQ(requestedTeam([&] {
                    EXPECT_EQ(member.track(&first.record, &second.record, prev.data(), is.next.data(), is.status.data(),
                                           is.error.data(), int32_t(prev.size()), s.winSize, 0, s.maxIter, s.threshold,
                                           state),
                              qorStatusOk);
                  }),
                  std::min(made, now));
        for (size_t i = 0; i < prev.size(); ++i) {
          ASSERT_EQ(is.status[i], alone.status[i]);
          ASSERT_TRUE(sameValue(is.next[i].x, alone.next[i].x) && sameValue(is.error[i], alone.error[i]));
        }
      }
      ASSERT_EQ(member.free(state), qorStatusOk);
    }
  });
}

// From inside a parallel region the runtime gives teams of one thread, whatever is asked for.
TEST_F(OpticalFlow, staysInsideTheImagesWithoutATeam) {
  Random random(14);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    constexpr QoriSize size = {300, 600};
    const auto prev = grid(size, 20, 60);
    const Settings s = {11, 0, 4, 0.01f, {310, 610}};
    for (int i = 0; i < 4; ++i) {
      const Pyramid<T> first(random, size, 0, Scene{}), second(random, size, 0, Scene{{0.5f, 0.5f}, 1});
      services::reset();
      const Tracked alone = tracked(member, first.record, second.record, prev, prev, s);
      services::threads(4);
      Tracked is;
#pragma omp parallel num_threads(2)
      {
#pragma omp master
        is = tracked(member, first.record, second.record, prev, prev, s);
      }
      for (size_t p = 0; p < prev.size(); ++p) {
        ASSERT_EQ(is.status[p], alone.status[p]);
        ASSERT_TRUE(sameValue(is.next[p].x, alone.next[p].x) && sameValue(is.error[p], alone.error[p]));
      }
    }
  });
}

TEST_F(OpticalFlow, stateStatuses) {
  forMembers([&](const auto& member) {
    services::reset();
    QoriOptFlowState* state = nullptr;
    EXPECT_EQ(member.init(nullptr, {0, 0}, 0, 0), qorStatusNullPtr);
    EXPECT_EQ(member.init(&state, {10, 10}, 0, 0), qorStatusBadSize);
    EXPECT_EQ(member.init(&state, {0, 10}, 5, 0), qorStatusBadSize);
    EXPECT_EQ(member.init(&state, {10, -1}, 5, 0), qorStatusBadSize);
    EXPECT_EQ(services::allocations(), 0);
    for (const int64_t successes : {0, 1}) {
      services::failAfter(successes);
      EXPECT_EQ(member.init(&state, {10, 10}, 5, 0), qorStatusNoMemory);
      EXPECT_EQ(services::liveBlocks(), 0);
      services::reset();
    }
    // Sizes whose scratch nobody has.
    EXPECT_EQ(member.init(&state, {INT32_MAX, INT32_MAX}, 5, 0), qorStatusNoMemory);
    EXPECT_EQ(member.init(&state, {10, 10}, INT32_MAX, 0), qorStatusNoMemory);
    EXPECT_EQ(member.init(&state, {INT32_MAX, 1}, 5, 0), qorStatusNoMemory);
    EXPECT_EQ(services::liveBlocks(), 0);
    EXPECT_EQ(state, nullptr);
    EXPECT_EQ(member.free(nullptr), qorStatusNullPtr);
    ASSERT_EQ(member.init(&state, {10, 10}, 5, 0x7fffffff), qorStatusOk);
    EXPECT_EQ(services::allocations(), 2) << "the record and its scratch";
    EXPECT_EQ(member.free(state), qorStatusOk);
  });
}

TEST_F(OpticalFlow, statuses) {
  Random random(13);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Pixel;
    const Pyramid<T> first(random, {40, 40}, 1, Scene{}), second(random, {40, 40}, 1, Scene{});
    QoriPyramid lower = second.record, withoutSteps = first.record;
    lower.topLevel = 0;
    withoutSteps.levelSteps = nullptr;
    QoriOptFlowState* state = nullptr;
    ASSERT_EQ(member.init(&state, {30, 30}, 7, 0), qorStatusOk);
    const std::vector<QoriPoint_32f> prev = {{20, 20}, {10, 10}};
    Tracked t = {prev, {7, 7}, {7, 7}};
    struct Arguments {
      const QoriPyramid *first, *second;
      const QoriPoint_32f* prev;
      QoriPoint_32f* next;
      uint8_t* status;
      float* error;
      int32_t numPoints, winSize, maxLevel, maxIter;
      float threshold;
      QoriOptFlowState* state;
    };
    const Arguments good = {
        &first.record, &second.record, prev.data(), t.next.data(), t.status.data(), t.error.data(), 2, 7, 1, 5,
        0.01f,         state};
    using F = Fault<Arguments>;
    const std::vector<F> faults = {{"first", qorStatusNullPtr, [](Arguments& a) { a.first = nullptr; }},
                                   {"second", qorStatusNullPtr, [](Arguments& a) { a.second = nullptr; }},
                                   {"state", qorStatusNullPtr, [](Arguments& a) { a.state = nullptr; }},
                                   {"prev", qorStatusNullPtr, [](Arguments& a) { a.prev = nullptr; }},
                                   {"next", qorStatusNullPtr, [](Arguments& a) { a.next = nullptr; }},
                                   {"status", qorStatusNullPtr, [](Arguments& a) { a.status = nullptr; }},
                                   {"error", qorStatusNullPtr, [](Arguments& a) { a.error = nullptr; }},
                                   {"first", qorStatusNullPtr, [&](Arguments& a) { a.first = &withoutSteps; }},
                                   {"numPoints", qorStatusBadSize, [](Arguments& a) { a.numPoints = 0; }},
                                   {"winSize", qorStatusBadSize, [](Arguments& a) { a.winSize = 0; }},
                                   {"winSize", qorStatusBadSize, [](Arguments& a) { a.winSize = 6; }},
                                   {"winSize", qorStatusBadSize, [](Arguments& a) { a.winSize = 8; }},
                                   {"maxLevel", qorStatusBadArg, [](Arguments& a) { a.maxLevel = -1; }},
                                   {"maxIter", qorStatusBadArg, [](Arguments& a) { a.maxIter = 0; }},
                                   {"threshold", qorStatusBadArg, [](Arguments& a) { a.threshold = -0.001f; }},
                                   {"maxLevel", qorStatusBadArg, [](Arguments& a) { a.maxLevel = 2; }},
                                   {"second", qorStatusBadArg, [&](Arguments& a) { a.second = &lower; }}};
    expectStatuses<Arguments>(
        good, faults,
        [&](const Arguments& a) {
          return member.track(a.first, a.second, a.prev, a.next, a.status, a.error, a.numPoints, a.winSize, a.maxLevel,
                              a.maxIter, a.threshold, a.state);
        },
        [&] {
          std::vector<uint8_t> bytes = t.status;
          const auto add = [&](const void* p, size_t size) {
            const auto* first8 = static_cast<const uint8_t*>(p);
            bytes.insert(bytes.end(), first8, first8 + size);
          };
          add(t.next.data(), t.next.size() * sizeof t.next[0]);
          add(t.error.data(), t.error.size() * sizeof t.error[0]);
          return bytes;
        });
    EXPECT_EQ(member.free(state), qorStatusOk);
  });
}
