// Pyramid layers at any rate: every function against its definition, step by step: the kernel, whole intermediate
// images, pixels spread one by one.
#include <gtest/gtest.h>

#include <cmath>
#include <limits>
#include <type_traits>
#include <vector>

#include "qorcvmx.h"
#include "support/any_image.h"
#include "support/borders.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

using State = QoriPyramidLayerState;

template <class T>
using TapOf = std::conditional_t<std::is_floating_point_v<T>, float, int16_t>;

template <class T>
struct Direction {
  QorStatus (*init)(State**, QoriSize, const TapOf<T>*, int32_t, int32_t, float);
  QorStatus (*free)(State*);
  QorStatus (*run)(const T*, int32_t, QoriSize, T*, int32_t, QoriSize, State*);
  int32_t channels;
  bool down;
};

#define DIRECTION(way, form, channels)                                                                           \
  {                                                                                                              \
    qoriPyramidLayer##way##InitAlloc_##form, qoriPyramidLayer##way##Free_##form, qoriPyramidLayer##way##_##form, \
        channels, #way[0] == 'D'                                                                                 \
  }
#define DIRECTIONS(type)                                                                          \
  {                                                                                               \
    DIRECTION(Down, type##_C1R, 1), DIRECTION(Down, type##_C3R, 3), DIRECTION(Up, type##_C1R, 1), \
        DIRECTION(Up, type##_C3R, 3)                                                              \
  }

template <class T>
std::vector<Direction<T>> directions() {
  if constexpr (std::is_same_v<T, uint8_t>) return DIRECTIONS(8u);
  if constexpr (std::is_same_v<T, uint16_t>) return DIRECTIONS(16u);
  if constexpr (std::is_same_v<T, float>) return DIRECTIONS(32f);
}

constexpr double smallestNormal = 1.1754943508222875e-38;

// ---- The model. One channel at a time.

template <class V>
struct Plane {
  int32_t width, height;
  std::vector<V> values;
  Plane(int32_t w, int32_t h) : width(w), height(h), values(size_t(w) * size_t(h)) {}
  V& at(int32_t x, int32_t y) { return values[size_t(y) * size_t(width) + size_t(x)]; }
  V at(int32_t x, int32_t y) const { return values[size_t(y) * size_t(width) + size_t(x)]; }
};

std::vector<int16_t> normalised(const std::vector<int16_t>& kernel, bool down) {
  const size_t size = kernel.size(), half = size / 2;
  std::vector<int16_t> taps = kernel;
  int64_t sides = 0;
  for (size_t i = 0; i < half; ++i) sides += kernel[i];
  const int64_t sum = kernel[half] + 2 * sides;
  const float sum4 = float(4 * kernel[half] + 8 * sides);  // exact for the kernels here
  for (size_t i = 0; i <= half; ++i) {
    if (sum != 0 && down) taps[i] = int16_t((int64_t(kernel[i]) * 16384 / sum) >> 1);
    if (sum != 0 && !down) {
      const float quotient = float(4 * kernel[i]) / (sum4 * 0.5f);
      const float scaled = quotient * 8192.0f;
      taps[i] = int16_t(int16_t(int64_t(std::trunc(scaled + 0.5f))) >> 1);
    }
    taps[size - 1 - i] = taps[i];
  }
  return taps;
}

std::vector<float> normalised(const std::vector<float>& kernel, bool) {
  const size_t size = kernel.size(), half = size / 2;
  std::vector<float> taps = kernel;
  float sides = 0;
  for (size_t i = 0; i < half; ++i) sides += kernel[i];
  const float sum = kernel[half] + 2 * sides;
  const bool divide = std::fabs(double(sum)) > smallestNormal;
  uint8_t bytes[4096];
  memcpy(bytes, kernel.data(), size * sizeof(float));
  for (size_t i = 0; i < half; ++i) taps[i] = divide ? kernel[i] / sum : kernel[i];
  taps[half] = divide ? kernel[half] / sum : float(bytes[half]);
  for (size_t i = 0; i < half; ++i) taps[size - 1 - i] = taps[i];
  return taps;
}

int32_t mirrored(int32_t i, int32_t size) { return borderIndex(i, size, qorBorderMirror); }

int64_t held(int64_t value, int64_t lowest, int64_t highest) {
  return value < lowest ? lowest : value > highest ? highest : value;
}

// The smoothed image of integers, times 8.
template <class T>
Plane<int64_t> smoothed(const Plane<T>& image, const std::vector<int16_t>& taps) {
  const bool bytes = sizeof(T) == 1;
  const int32_t size = int32_t(taps.size()), half = size / 2;
  const int32_t rowShift = bytes ? 8 : 10, shift = bytes ? 15 : 13;
  const bool main = image.width > size && image.height > size;
  Plane<int64_t> rows(image.width, image.height), result(image.width, image.height);
  for (int32_t y = 0; y < image.height; ++y) {
    for (int32_t x = 0; x < image.width; ++x) {
      int64_t sum = 0;
      for (int32_t j = 0; j < size; ++j) {
        const int64_t product = int64_t(taps[size_t(j)]) * image.at(mirrored(x + j - half, image.width), y);
        sum += main ? product : product >> rowShift;
      }
      rows.at(x, y) = main ? sum >> rowShift : sum;
    }
  }
  for (int32_t y = 0; y < image.height; ++y) {
    for (int32_t x = 0; x < image.width; ++x) {
      int64_t sum = 0;
      for (int32_t i = 0; i < size; ++i) sum += taps[size_t(i)] * rows.at(x, mirrored(y + i - half, image.height));
      result.at(x, y) =
          held((sum + (1 << (shift - 1))) >> shift, bytes ? -32768 : INT32_MIN, bytes ? 32767 : INT32_MAX);
    }
  }
  return result;
}

Plane<float> smoothed(const Plane<float>& image, const std::vector<float>& taps) {
  const int32_t size = int32_t(taps.size()), half = size / 2;
  Plane<float> rows(image.width, image.height), result(image.width, image.height);
  for (int32_t y = 0; y < image.height; ++y) {
    for (int32_t x = 0; x < image.width; ++x) {
      float sum = 0;
      for (int32_t j = 0; j < size; ++j) {
        const float product = taps[size_t(j)] * image.at(mirrored(x + j - half, image.width), y);
        sum = j == 0 ? product : sum + product;
      }
      rows.at(x, y) = sum;
    }
  }
  for (int32_t y = 0; y < image.height; ++y) {
    for (int32_t x = 0; x < image.width; ++x) {
      float sum = 0;
      for (int32_t i = 0; i < size; ++i) {
        const float product = taps[size_t(i)] * rows.at(x, mirrored(y + i - half, image.height));
        sum = i == 0 ? product : sum + product;
      }
      result.at(x, y) = sum;
    }
  }
  return result;
}

// `count` values out of a line, resampled in place.
void resample(std::vector<int64_t>& line, int32_t count, float rate) {
  std::vector<int64_t> out(static_cast<size_t>(count));
  for (int32_t x = 0; x < count; ++x) {
    const float pos = float(x) * rate;
    const size_t i = size_t(pos);
    const float f = pos - float(i);
    if (x == count - 1 && i + 1 >= line.size()) {
      out[size_t(x)] = line[i];
      continue;
    }
    const float right = float(line[i + 1]) * f;
    const float left = (1 - f) * float(line[i]);
    out[size_t(x)] = int64_t(std::trunc(right + 0.5f + left));
  }
  for (int32_t x = 0; x < count; ++x) line[size_t(x)] = out[size_t(x)];
}

void resample(std::vector<float>& line, int32_t count, float rate) {
  std::vector<float> out(static_cast<size_t>(count));
  for (int32_t x = 0; x < count; ++x) {
    const float pos = float(x) * rate;
    const size_t i = size_t(pos);
    const float f = pos - float(i);
    const bool last = x == count - 1 && i + 1 >= line.size();
    out[size_t(x)] = last ? line[i] : line[i + 1] * f + (1 - f) * line[i];
  }
  for (int32_t x = 0; x < count; ++x) line[size_t(x)] = out[size_t(x)];
}

float finished(float value, float) { return value; }
template <class T>
T finished(int64_t value, T) {
  return T(held((value + 4) >> 3, 0, std::numeric_limits<T>::max()));
}

template <class T>
Plane<T> modelDown(const Plane<T>& image, QoriSize size, const std::vector<TapOf<T>>& kernel, float rate) {
  auto smooth = smoothed(image, normalised(kernel, true));
  Plane<T> result(size.width, size.height);
  const bool twice = double(rate) >= 1.99998 && double(rate) <= 2.00002;
  if (!twice) {
    for (int32_t y = 0; y < image.height; ++y) {
      auto line = decltype(smooth.values)(size_t(image.width));
      for (int32_t x = 0; x < image.width; ++x) line[size_t(x)] = smooth.at(x, y);
      resample(line, size.width, rate);
      for (int32_t x = 0; x < size.width; ++x) smooth.at(x, y) = line[size_t(x)];
    }
    for (int32_t x = 0; x < size.width; ++x) {
      auto line = decltype(smooth.values)(size_t(image.height));
      for (int32_t y = 0; y < image.height; ++y) line[size_t(y)] = smooth.at(x, y);
      resample(line, size.height, rate);
      for (int32_t y = 0; y < size.height; ++y) smooth.at(x, y) = line[size_t(y)];
    }
  }
  const int32_t step = twice ? 2 : 1;
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      const auto value = smooth.at(std::min(step * x, image.width - 1), std::min(step * y, image.height - 1));
      result.at(x, y) = finished(value, T());
    }
  }
  return result;
}

// Calls add(entry, tap or weight, whole tap?) for what source pixel j spreads over `length` entries.
template <class Tap, class Add>
void spread(int32_t j, const std::vector<Tap>& taps, float rate, int32_t length, Add add) {
  const int32_t half = int32_t(taps.size() / 2), z = taps[0] == Tap(0) ? 1 : 0;
  const auto k = [&](int32_t t) { return taps[size_t(half + t)]; };
  const float pos = float(j) * rate;
  const float shifted = 100 + pos;
  const int32_t i = int32_t(std::trunc(shifted)) - 100;
  const float f = pos - float(i);
  if (double(f) <= smallestNormal) {
    for (int32_t t = -(half - z); t <= half - z; ++t) {
      if (i + t >= 0 && i + t < length) add(i + t, float(k(t)), true);
    }
  } else {
    for (int32_t t = 1 - half; t <= half; ++t) {
      const float before = float(k(t - 1)) * f;
      const float after = float(k(t)) * (1 - f);
      if (i + t >= 0 && i + t < length) add(i + t, before + after, false);
    }
  }
}

template <class T>
using Between = std::conditional_t<std::is_floating_point_v<T>, float, int64_t>;

// Where weights cancel out values grow beyond any size; so far they are held before they become integers.
int64_t truncated(float value) { return int64_t(std::trunc(std::min(std::max(value, -0x1p62f), 0x1p62f))); }
constexpr int64_t mostBetween = 2147483520;

// One pass over a line: the sums before the weights.
template <class T>
std::vector<Between<T>> spreadLine(const std::vector<Between<T>>& line, const std::vector<TapOf<T>>& taps, float rate,
                                   int32_t length, int32_t m) {
  const int32_t half = int32_t(taps.size() / 2), size = int32_t(line.size());
  std::vector<Between<T>> sums(static_cast<size_t>(length));
  for (int32_t j = -m; j < size + half; ++j) {  // up to the end of the frame
    const Between<T> pixel = line[size_t(mirrored(j, size))];
    spread(j, taps, rate, length, [&](int32_t e, float weight, bool whole) {
      if constexpr (std::is_floating_point_v<T>) {
        sums[size_t(e)] += weight * pixel;
      } else if (whole) {
        sums[size_t(e)] += int64_t(weight) * pixel;
      } else {
        const float product = weight * float(pixel);
        sums[size_t(e)] += int64_t(std::trunc(product + 0.5f));
      }
    });
  }
  return sums;
}

template <class T>
Plane<T> modelUp(const Plane<T>& image, QoriSize size, const std::vector<TapOf<T>>& kernel, float rate) {
  constexpr bool isFloat = std::is_floating_point_v<T>;
  const std::vector<TapOf<T>> taps = normalised(kernel, false);
  const int32_t half = int32_t(taps.size() / 2);
  const int32_t N = std::max(size.width, size.height);
  const int32_t m = int32_t(std::trunc(float(half) / rate + 0.5f));
  std::vector<float> weights(size_t(N), 0.0f);
  for (int32_t j = -m; j <= N + m - 1; ++j) {
    spread(j, taps, rate, N, [&](int32_t e, float weight, bool) { weights[size_t(e)] += weight; });
  }
  for (float& w : weights) {
    if (std::fabs(double(w)) > smallestNormal) w = 32768.0f / w;
  }
  Plane<Between<T>> rows(size.width, image.height);
  for (int32_t y = 0; y < image.height; ++y) {
    std::vector<Between<T>> line(size_t(image.width));
    for (int32_t x = 0; x < image.width; ++x) line[size_t(x)] = image.at(x, y);
    const auto sums = spreadLine<T>(line, taps, rate, size.width, m);
    for (int32_t x = 0; x < size.width; ++x) {
      const float value = float(sums[size_t(x)]) * weights[size_t(x)];
      if constexpr (isFloat) {
        rows.at(x, y) = value / 32768.0f;
      } else {
        rows.at(x, y) = held(truncated(value + 128.0f) >> 8, -mostBetween, mostBetween);
      }
    }
  }
  Plane<T> result(size.width, size.height);
  for (int32_t x = 0; x < size.width; ++x) {
    std::vector<Between<T>> line(size_t(image.height));
    for (int32_t y = 0; y < image.height; ++y) line[size_t(y)] = rows.at(x, y);
    const auto sums = spreadLine<T>(line, taps, rate, size.height, m);
    for (int32_t y = 0; y < size.height; ++y) {
      const float value = float(sums[size_t(y)]) * weights[size_t(y)];
      if constexpr (isFloat) {
        result.at(x, y) = value / 32768.0f;
      } else if constexpr (sizeof(T) == 1) {
        result.at(x, y) = T(held(truncated(value + 2097152.0f) >> 22, 0, 255));
      } else {
        // At the scale that leaves a constant image as it is.
        result.at(x, y) = T(held((truncated(value) + 0x200000) >> 22, 0, 65535));
      }
    }
  }
  return result;
}

// ---- The comparison.

template <class T>
std::string compare(const Direction<T>& d, const Image<T>& src, const Image<T>& dst,
                    const std::vector<TapOf<T>>& kernel, float rate) {
  std::vector<Plane<T>> results;
  for (int32_t c = 0; c < d.channels; ++c) {
    Plane<T> plane(src.width(), src.height());
    for (int32_t y = 0; y < src.height(); ++y) {
      for (int32_t x = 0; x < src.width(); ++x) plane.at(x, y) = src.get(x, y, c);
    }
    results.push_back(d.down ? modelDown(plane, dst.size(), kernel, rate) : modelUp(plane, dst.size(), kernel, rate));
  }
  return difference(dst, [&](int32_t x, int32_t y, int32_t c) { return results[size_t(c)].at(x, y); });
}

QoriSize resultSize(bool down, QoriSize src, float rate, Random& random) {
  QoriSize smallest, largest;
  if (down) {
    qoriGetPyramidDownROI(src, &smallest, rate);
    return smallest;
  }
  qoriGetPyramidUpROI(src, &smallest, &largest, rate);
  return {int32_t(random.number(smallest.width, largest.width)),
          int32_t(random.number(smallest.height, largest.height))};
}

// The function on an image of a size with a state that is already there.
template <class T>
void expectLayer(Random& random, const Direction<T>& d, State* state, QoriSize size,
                 const std::vector<TapOf<T>>& kernel, float rate) {
  AnyImage<T> src(random, size, d.channels);
  src.fill([&] { return random.value<T>(); });
  const QoriSize dstSize = resultSize(d.down, size, rate, random);
  const AnyImage<T> dst(random, dstSize, d.channels);
  const auto before = src.bytes();
  ASSERT_EQ(d.run(src.data(), src.step(), size, dst.data(), dst.step(), dstSize, state), qorStatusOk);
  EXPECT_EQ(compare(d, src, dst, kernel, rate), "")
      << (d.down ? "down " : "up ") << sizeof(T) << "x" << d.channels << " from " << size.width << "x" << size.height
      << " at " << rate << ", kernel of " << kernel.size();
  EXPECT_TRUE(dst.gapsIntact());
  EXPECT_TRUE(before == src.bytes());
}

bool symmetric(const std::vector<int16_t>& kernel) {
  return std::vector<int16_t>(kernel.rbegin(), kernel.rend()) == kernel;
}
bool symmetric(const std::vector<float>& kernel) {
  return std::vector<float>(kernel.rbegin(), kernel.rend()) == kernel;
}

template <class T>
State* newState(const Direction<T>& d, QoriSize size, const std::vector<TapOf<T>>& kernel, float rate) {
  State* state = nullptr;
  const QorStatus status = d.init(&state, size, kernel.data(), int32_t(kernel.size()), 2, rate);
  EXPECT_EQ(status, symmetric(kernel) ? qorStatusOk : qorStatusKernelNotSymmetric);
  return state;
}

template <class Tap>
std::vector<Tap> anyKernel(Random& random) {
  const int32_t half = int32_t(random.chance(0.8) ? random.number(1, 4) : random.number(5, 20));
  std::vector<Tap> kernel(size_t(2 * half + 1));
  const int32_t kind = int32_t(random.number(0, 4));
  for (int32_t i = 0; i <= half; ++i) {
    // Smooth, negative at the ends, any, of sum 0.
    Tap tap = Tap(kind == 0 ? i + 1 : kind == 1 ? 3 * i - 2 : random.number(kind == 2 ? 0 : -90, 100));
    if (kind == 3 && i == half) {
      Tap sides = 0;
      for (int32_t j = 0; j < half; ++j) sides = Tap(sides + kernel[size_t(j)]);
      tap = Tap(-2 * sides);
    }
    if (i == 0 && random.chance(0.2)) tap = 0;
    kernel[size_t(i)] = kernel[size_t(2 * half - i)] = tap;
  }
  if (random.chance(0.1)) kernel[size_t(2 * half)] = Tap(kernel[size_t(2 * half)] + 1);
  return kernel;
}

const std::vector<float> rates = {1.5f, 2.0f,     1.99999f, 2.00001f, 1.99997f, 2.00003f, std::nextafter(1.0f, 2.0f),
                                  1.1f, 4 / 3.0f, 1.7f,     2.5f,     3.0f,     3.7f,     7.3f,
                                  10.0f};

template <class T>
class PyramidLayers : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override { EXPECT_EQ(services::liveBlocks(), 0); }
};

using Types = testing::Types<uint8_t, uint16_t, float>;
TYPED_TEST_SUITE(PyramidLayers, Types);

TYPED_TEST(PyramidLayers, AnyImage) {
  Random random(11);
  for (int32_t i = 0; i < 1200; ++i) {
    const auto d = directions<TypeParam>()[size_t(i % 4)];
    const auto kernel = anyKernel<TapOf<TypeParam>>(random);
    const float rate = random.chance(0.7) ? random.pick(rates) : float(random.number(10001, 100000)) / 10000.0f;
    const int32_t limit = i % 20 == 7 ? 150 : 40;
    const QoriSize size = {random.width(limit), random.width(limit)};
    State* state = newState(d, size, kernel, rate);
    expectLayer(random, d, state, size, kernel, rate);
    EXPECT_EQ(d.free(state), qorStatusOk);
  }
}

// Narrow and low images: fewer pixels than taps, one pixel, and the sizes around the kernel's.
TYPED_TEST(PyramidLayers, SmallImages) {
  Random random(12);
  for (const auto& d : directions<TypeParam>()) {
    for (const size_t taps : {3, 5, 7, 31}) {
      std::vector<TapOf<TypeParam>> kernel(taps);
      for (size_t i = 0; i < taps; ++i) kernel[i] = TapOf<TypeParam>(1 + std::min(i, taps - 1 - i));
      for (const float rate : {1.5f, 2.0f, 10.0f}) {
        const int32_t n = int32_t(taps);
        for (const QoriSize size :
             {QoriSize{1, 1}, {1, 40}, {40, 1}, {2, 2}, {n, 40}, {40, n}, {n + 1, n + 1}, {n + 1, n}, {n - 1, n - 1}}) {
          State* state = newState(d, size, kernel, rate);
          expectLayer(random, d, state, size, kernel, rate);
          d.free(state);
        }
      }
    }
  }
}

// The kernel is so long that places lie beyond -100, where they are truncated towards 0.
TYPED_TEST(PyramidLayers, LongKernels) {
  Random random(13);
  for (const auto& d : directions<TypeParam>()) {
    std::vector<TapOf<TypeParam>> kernel(301);
    for (size_t i = 0; i < 301; ++i) kernel[i] = TapOf<TypeParam>(1 + std::min(i, 300 - i) / 10);
    for (const float rate : {1.3f, 2.0f, 3.1f}) {
      const QoriSize size = {23, 9};
      State* state = newState(d, size, kernel, rate);
      expectLayer(random, d, state, size, kernel, rate);
      d.free(state);
    }
  }
}

// At a rate just below 2 that still takes every second pixel, the last of them lies behind the edge of a long image.
// The edge pixel is taken.
TYPED_TEST(PyramidLayers, LastPixelOfLongImages) {
  Random random(18);
  const float rate = 1.99999f;
  int32_t length = 199000;
  for (QoriSize below = {0, 0}; 2 * (below.width - 1) < length;) {
    ASSERT_LT(++length, 210000);
    ASSERT_EQ(qoriGetPyramidDownROI({length, 1}, &below, rate), qorStatusOk);
  }
  const std::vector<TapOf<TypeParam>> kernel = {1, 2, 1};
  for (const auto& d : directions<TypeParam>()) {
    if (!d.down) continue;
    for (const QoriSize size : {QoriSize{length, 1}, {1, length}, {length, 4}}) {
      State* state = newState(d, size, kernel, rate);
      expectLayer(random, d, state, size, kernel, rate);
      d.free(state);
    }
  }
}

TYPED_TEST(PyramidLayers, LargestTaps) {
  if constexpr (!std::is_floating_point_v<TypeParam>) {
    Random random(14);
    const std::vector<std::vector<int16_t>> kernels = {{32767, 32767, 32767},
                                                       {-32768, 32767, -32768},
                                                       {-32768, -32768, -32768},
                                                       {16384, -32768, 16384},
                                                       {32767, -32768, 1, -32768, 32767}};
    for (const auto& d : directions<TypeParam>()) {
      for (const auto& kernel : kernels) {
        for (const float rate : {1.5f, 2.0f}) {
          State* state = newState(d, {33, 21}, kernel, rate);
          expectLayer(random, d, state, {33, 21}, kernel, rate);
          d.free(state);
        }
      }
    }
  }
}

TYPED_TEST(PyramidLayers, SpecialFloats) {
  if constexpr (std::is_floating_point_v<TypeParam>) {
    Random random(15);
    for (int32_t i = 0; i < 80; ++i) {
      const auto d = directions<float>()[size_t(i % 4)];
      const std::vector<float> kernel = i % 3 ? std::vector<float>{1, 4, 6, 4, 1} : std::vector<float>{0, 1, 0};
      const float rate = random.pick(rates);
      const QoriSize size = {random.width(30), random.width(30)};
      State* state = newState(d, size, kernel, rate);
      Image<float> src(size.width, size.height, d.channels);
      src.fill([&] { return random.anyFloat(); });
      const QoriSize dstSize = resultSize(d.down, size, rate, random);
      Image<float> dst(dstSize.width, dstSize.height, d.channels);
      ASSERT_EQ(d.run(src.data(), src.step(), size, dst.data(), dst.step(), dstSize, state), qorStatusOk);
      EXPECT_EQ(compare(d, src, dst, kernel, rate), "");
      d.free(state);
    }
  }
}

// One state for many images, none larger than it was made for.
TYPED_TEST(PyramidLayers, StatesServeAgain) {
  Random random(16);
  for (const auto& d : directions<TypeParam>()) {
    for (const float rate : {1.6f, 2.0f}) {
      const std::vector<TapOf<TypeParam>> kernel = {1, 4, 6, 4, 1};
      State* state = newState(d, {70, 50}, kernel, rate);
      for (int32_t i = 0; i < 25; ++i) {
        const QoriSize size = i % 5 == 0 ? QoriSize{70, 50} : QoriSize{random.width(70), int32_t(random.number(1, 50))};
        expectLayer(random, d, state, size, kernel, rate);
      }
      for (const QoriSize size : {QoriSize{71, 50}, QoriSize{70, 51}}) {
        const QoriSize dstSize = resultSize(d.down, size, rate, random);
        const AnyImage<TypeParam> src(random, size, d.channels);
        const AnyImage<TypeParam> dst(random, dstSize, d.channels);
        const auto before = dst.bytes();
        EXPECT_EQ(d.run(src.data(), src.step(), size, dst.data(), dst.step(), dstSize, state), qorStatusBadArg);
        EXPECT_TRUE(before == dst.bytes());
      }
      d.free(state);
    }
  }
}

// A constant image keeps its value in both directions, the brightest 16-bit one too.
TYPED_TEST(PyramidLayers, ConstantImagesStay) {
  Random random(17);
  for (const auto& d : directions<TypeParam>()) {
    for (const float rate : {1.5f, 2.0f, 3.0f}) {
      for (const double value : {0.0, 1.0, 77.0, 255.0, sizeof(TypeParam) == 1 ? 128.0 : 65535.0}) {
        const std::vector<TapOf<TypeParam>> kernel = {1, 4, 6, 4, 1};
        const QoriSize size = {24, 17};
        State* state = newState(d, size, kernel, rate);
        Image<TypeParam> src(size.width, size.height, d.channels);
        src.fill([&] { return TypeParam(value); });
        const QoriSize dstSize = resultSize(d.down, size, rate, random);
        Image<TypeParam> dst(dstSize.width, dstSize.height, d.channels);
        ASSERT_EQ(d.run(src.data(), src.step(), size, dst.data(), dst.step(), dstSize, state), qorStatusOk);
        // The truncated products of split places may lose one in 65536.
        const double tolerance = std::is_floating_point_v<TypeParam> ? value * 1e-6 : sizeof(TypeParam) == 2 ? 1 : 0;
        for (int32_t y = 0; y < dstSize.height; ++y) {
          for (int32_t x = 0; x < dstSize.width; ++x) {
            ASSERT_NEAR(double(dst.get(x, y, d.channels - 1)), value,
                        rate == 2.0f && sizeof(TypeParam) < 4 ? 0 : tolerance)
                << (d.down ? "down " : "up ") << rate << " at " << x << ", " << y;
          }
        }
        d.free(state);
      }
    }
  }
}

// A kernel of 1, 2, 1 is held as 2048, 4096, 2048: what one bright pixel leaves around it shows the taps.
TYPED_TEST(PyramidLayers, ByHand) {
  for (const auto& d : directions<TypeParam>()) {
    if (d.channels != 1) continue;
    for (const TapOf<TypeParam> last : {1, 3}) {  // the second half of the kernel is not used
      State* state = newState<TypeParam>(d, {9, 9}, {1, 2, last}, 2.0f);
      Image<TypeParam> src(9, 9);
      src.set(4, 4, TypeParam(160));
      src.set(0, 0, TypeParam(80));
      Image<TypeParam> dst(d.down ? 5 : 18, d.down ? 5 : 18);
      ASSERT_EQ(d.run(src.data(), src.step(), src.size(), dst.data(), dst.step(), dst.size(), state), qorStatusOk);
      if (d.down) {
        EXPECT_EQ(dst.get(2, 2), TypeParam(40));
        EXPECT_EQ(dst.get(0, 0), TypeParam(20));
        EXPECT_EQ(dst.get(1, 2), TypeParam(0));
      } else {
        EXPECT_EQ(dst.get(8, 8), TypeParam(160));
        EXPECT_EQ(dst.get(7, 8), TypeParam(80));
        EXPECT_EQ(dst.get(9, 7), TypeParam(40));
        EXPECT_EQ(dst.get(0, 0), TypeParam(80));
        EXPECT_EQ(dst.get(1, 1), TypeParam(20));
        EXPECT_EQ(dst.get(6, 8), TypeParam(0));
      }
      d.free(state);
    }
  }
}

// The centre of a float kernel of sum 0 is the byte at offset `half` of its memory: here 0x80 of the first tap, -0.5.
TEST(PyramidLayersOfFloats, CentreOfZeroSum) {
  services::reset();
  const std::vector<float> kernel = {-0.5f, 0.25f, 0.5f, 0.25f, -0.5f};  // 00 00 00 bf, so the byte at 2 is 0
  const std::vector<float> other = {1.00390625f, -1, -0.0078125f, -1, 1.00390625f};  // 00 80 80 3f: 128
  for (const auto& d : directions<float>()) {
    if (d.channels != 1 || !d.down) continue;
    for (const auto& [taps, centre] : {std::pair{kernel, 0.0f}, std::pair{other, 128.0f}}) {
      State* state = newState(d, {9, 9}, taps, 2.0f);
      Image<float> src(9, 9), dst(5, 5);
      src.set(4, 4, 1.0f);
      ASSERT_EQ(d.run(src.data(), src.step(), {9, 9}, dst.data(), dst.step(), {5, 5}, state), qorStatusOk);
      EXPECT_EQ(dst.get(2, 2), centre * centre);
      EXPECT_EQ(dst.get(1, 2), taps[0] * centre);
      d.free(state);
    }
  }
}

// ---- Statuses.

template <class T>
struct Making {
  bool withState = true, withKernel = true;
  QoriSize size = {40, 30};
  std::vector<TapOf<T>> kernel = {1, 2, 3, 2, 1};
  int32_t kernelSize = 5, mode = 2;
  float rate = 1.5f;
};

TYPED_TEST(PyramidLayers, StatusesOfStates) {
  using M = Making<TypeParam>;
  const std::vector<Fault<M>> faults = {
      {"state", qorStatusNullPtr, [](M& m) { m.withState = false; }},
      {"kernel", qorStatusNullPtr, [](M& m) { m.withKernel = false; }},
      {"size", qorStatusBadSize, [](M& m) { m.size.width = 0; }},
      {"size", qorStatusBadSize, [](M& m) { m.size.height = -3; }},
      {"mode", qorStatusBadArg, [](M& m) { m.mode = 1; }},
      {"mode", qorStatusBadArg, [](M& m) { m.mode = 3; }},
      {"rate", qorStatusBadArg, [](M& m) { m.rate = 1.0f; }},
      {"rate", qorStatusBadArg, [](M& m) { m.rate = std::nextafter(10.0f, 11.0f); }},
      {"rate", qorStatusBadArg, [](M& m) { m.rate = std::numeric_limits<float>::quiet_NaN(); }},
      {"kernelSize", qorStatusBadArg, [](M& m) { m.kernelSize = 4; }},
      {"kernelSize", qorStatusBadArg, [](M& m) { m.kernelSize = 1; }},
      {"kernelSize", qorStatusBadArg, [](M& m) { m.kernelSize = -5; }},
      {"memory", qorStatusNoMemory,
       [](M& m) {
         m.size = {INT32_MAX, INT32_MAX};
       }},
  };
  for (const auto& d : directions<TypeParam>()) {
    State* state = nullptr;
    expectStatuses<M>(
        M(), faults,
        [&](const M& m) {
          return d.init(m.withState ? &state : nullptr, m.size, m.withKernel ? m.kernel.data() : nullptr, m.kernelSize,
                        m.mode, m.rate);
        },
        [&] {
          std::vector<uint8_t> bytes(sizeof state);
          memcpy(bytes.data(), &state, sizeof state);
          return bytes;
        });
    EXPECT_EQ(d.free(state), qorStatusOk);
    EXPECT_EQ(d.free(nullptr), qorStatusNullPtr);
  }
}

// Sizes whose scratch does not fit 32 bits, or would after a wrap.
TYPED_TEST(PyramidLayers, ScratchBeyondMemory) {
  const std::vector<TapOf<TypeParam>> kernel = {1, 2, 1};
  for (const auto& d : directions<TypeParam>()) {
    for (const QoriSize size :
         {QoriSize{INT32_MAX, 1}, {1 << 30, 1}, {1 << 29, 4}, {715827883, 1}, {1 << 28, 1 << 28}, {89478486, 9}}) {
      State* state = nullptr;
      EXPECT_EQ(d.init(&state, size, kernel.data(), 3, 2, 1.5f), qorStatusNoMemory) << size.width;
      EXPECT_EQ(state, nullptr);
    }
  }
  EXPECT_EQ(services::allocations(), 0);
}

TYPED_TEST(PyramidLayers, FailingAllocations) {
  const std::vector<TapOf<TypeParam>> kernel = {1, 2, 1};
  for (const auto& d : directions<TypeParam>()) {
    services::reset();
    services::failAfter(0);
    State* state = nullptr;
    EXPECT_EQ(d.init(&state, {40, 30}, kernel.data(), 3, 2, 2.0f), qorStatusNoMemory);
    EXPECT_EQ(state, nullptr);
    services::failAfter(1);
    ASSERT_EQ(d.init(&state, {40, 30}, kernel.data(), 3, 2, 2.0f), qorStatusOk);
    Image<TypeParam> src(40, 30, d.channels), dst(d.down ? 20 : 80, d.down ? 15 : 60, d.channels);
    const auto before = dst.bytes();
    EXPECT_EQ(d.run(src.data(), src.step(), src.size(), dst.data(), dst.step(), dst.size(), state),
              d.down ? qorStatusOk : qorStatusNoMemory);
    EXPECT_TRUE(d.down || before == dst.bytes());
    services::failAfter(-1);
    EXPECT_EQ(d.run(src.data(), src.step(), src.size(), dst.data(), dst.step(), dst.size(), state), qorStatusOk);
    EXPECT_EQ(services::liveBlocks(), 1);
    d.free(state);
    EXPECT_EQ(services::liveBlocks(), 0);
  }
}

template <class T>
struct Call {
  const T* src;
  int32_t srcStep;
  QoriSize srcSize;
  T* dst;
  int32_t dstStep;
  QoriSize dstSize;
  State* state;
};

TYPED_TEST(PyramidLayers, StatusesOfCalls) {
  using T = TypeParam;
  using C = Call<T>;
  for (const auto& d : directions<T>()) {
    const std::vector<TapOf<T>> kernel = {1, 2, 1};
    State* state = newState(d, {40, 30}, kernel, 2.0f);
    Image<T> src(40, 30, d.channels, 2), dst(d.down ? 20 : 80, d.down ? 15 : 60, d.channels, 2);
    const int32_t pixel = d.channels * int32_t(sizeof(T));
    std::vector<Fault<C>> faults = {
        {"src", qorStatusNullPtr, [](C& c) { c.src = nullptr; }},
        {"dst", qorStatusNullPtr, [](C& c) { c.dst = nullptr; }},
        {"state", qorStatusNullPtr, [](C& c) { c.state = nullptr; }},
        {"srcSize", qorStatusBadSize, [](C& c) { c.srcSize.width = 0; }},
        {"srcSize", qorStatusBadSize, [](C& c) { c.srcSize.height = -1; }},
        {"srcStep", qorStatusBadStep, [=](C& c) { c.srcStep = 40 * pixel - 1; }},
        {"dstStep", qorStatusBadStep, [=](C& c) { c.dstStep = c.dstSize.width * pixel - 1; }},
    };
    if (sizeof(T) > 1) {
      faults.push_back({"srcStep", qorStatusBadStepAlign, [](C& c) { c.srcStep += 1; }});
      faults.push_back({"dstStep", qorStatusBadStepAlign, [](C& c) { c.dstStep += 1; }});
      if (sizeof(T) == 4) faults.push_back({"dstStep", qorStatusBadStepAlign, [](C& c) { c.dstStep += 2; }});
    }
    // Below the range and above it; up accepts the size below the largest.
    faults.push_back({"dstSize", qorStatusBadArg, [](C& c) { c.dstSize.width -= 2; }});
    faults.push_back({"dstSize", qorStatusBadArg, [](C& c) { c.dstSize.height -= 2; }});
    faults.push_back({"dstSize", qorStatusBadArg, [](C& c) { c.dstSize.height += 1; }});
    faults.push_back({"dstSize", qorStatusBadArg, [](C& c) { c.dstSize = {0, 0}; }});
    expectStatuses<C>(
        {src.data(), src.step(), src.size(), dst.data(), dst.step(), dst.size(), state}, faults,
        [&](const C& c) { return d.run(c.src, c.srcStep, c.srcSize, c.dst, c.dstStep, c.dstSize, c.state); },
        [&] { return dst.bytes(); });
    d.free(state);
  }
}

}  // namespace
