// The Canny detectors against a model that keeps the whole magnitude image and floods a list of pixels.
#include <gtest/gtest.h>
#include <math.h>
#include <sys/mman.h>
#include <unistd.h>

#include <algorithm>
#include <limits>
#include <string>
#include <vector>

#include "qorcvmx.h"
#include "support/image.h"
#include "support/instrumented.h"
#include "support/memory.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

const int32_t thorough = instrumented() ? 1 : 8;

const float nan32 = std::numeric_limits<float>::quiet_NaN();
const float infinite32 = std::numeric_limits<float>::infinity();

class Canny : public ::testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

// ---- The model

bool keeps(int32_t m, float low) {
  // As the processor truncates: what fits no int32_t, a NaN too, becomes the least one.
  const bool fits = low >= -2147483648.0f && low < 2147483648.0f;
  return m > (fits ? int32_t(low) : INT32_MIN);
}

bool keeps(float m, float low) { return m > low; }

int32_t magnitude(int16_t dx, int16_t dy) { return abs(int32_t(dx)) + abs(int32_t(dy)); }
float magnitude(float dx, float dy) { return float(fabs(double(dx)) + fabs(double(dy))); }

bool isNegative(int16_t v) { return v < 0; }
bool isNegative(float v) { return signbit(v); }

template <class T>
int32_t directionCode(T dx, T dy) {
  const float ax = fabsf(float(dx)), ay = fabsf(float(dy));
  if (ay > float(double(ax) * 2.414213562373095)) return 3;
  if (float(double(ax) * 0.41421356237309503) > ay) return 1;
  return isNegative(dx) == isNegative(dy) ? 4 : 2;
}

// Edges as bytes, width * height of them.
template <class T>
std::vector<uint8_t> model(const Image<T>& dx, const Image<T>& dy, float low, float high) {
  const int32_t width = dx.width(), height = dx.height();
  using Magnitude = decltype(magnitude(T(), T()));
  std::vector<Magnitude> stored(size_t(width) * height);
  const auto at = [&](int32_t x, int32_t y) -> Magnitude {
    if (x < 0 || y < 0 || x >= width || y >= height) return 0;
    return stored[size_t(y) * width + x];
  };
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const Magnitude m = magnitude(dx.get(x, y), dy.get(x, y));
      stored[size_t(y) * width + x] = keeps(m, low) ? m : Magnitude(0);
    }
  }
  std::vector<uint8_t> candidates(stored.size()), edges(stored.size());
  std::vector<std::pair<int32_t, int32_t>> open;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const Magnitude m = at(x, y);
      if (m == 0) continue;
      const int32_t code = directionCode(dx.get(x, y), dy.get(x, y));
      const int32_t nextX = code == 2 ? -1 : code == 3 ? 0 : 1, nextY = code == 1 ? 0 : 1;
      const Magnitude prev = at(x - nextX, y - nextY), next = at(x + nextX, y + nextY);
      if (!(m > prev) || !(m > next || (m == next && code % 2 == 1))) continue;
      candidates[size_t(y) * width + x] = 1;
      if (float(m) > high) {
        edges[size_t(y) * width + x] = 255;
        open.push_back({x, y});
      }
    }
  }
  while (!open.empty()) {
    const auto [x, y] = open.back();
    open.pop_back();
    for (int32_t v = std::max(y - 1, 0); v <= std::min(y + 1, height - 1); ++v) {
      for (int32_t u = std::max(x - 1, 0); u <= std::min(x + 1, width - 1); ++u) {
        if (!candidates[size_t(v) * width + u] || edges[size_t(v) * width + u]) continue;
        edges[size_t(v) * width + u] = 255;
        open.push_back({u, v});
      }
    }
  }
  return edges;
}

// ---- Calls

QorStatus canny(const int16_t* dx, int32_t dxStep, const int16_t* dy, int32_t dyStep, uint8_t* dst, int32_t dstStep,
                QoriSize size, float low, float high, uint8_t* buffer) {
  return qoriCanny_16s8u_C1R(dx, dxStep, dy, dyStep, dst, dstStep, size, low, high, buffer);
}

QorStatus canny(const float* dx, int32_t dxStep, const float* dy, int32_t dyStep, uint8_t* dst, int32_t dstStep,
                QoriSize size, float low, float high, uint8_t* buffer) {
  return qoriCanny_32f8u_C1R(dx, dxStep, dy, dyStep, dst, dstStep, size, low, high, buffer);
}

size_t bufferSize(QoriSize size) {
  int32_t bytes = -1;
  EXPECT_EQ(qoriCannyGetSize(size, &bytes), qorStatusOk);
  return size_t(bytes);
}

// Runs a detector with a dst and a buffer of exactly the bytes that are due; `shift` bytes lie between the buffer and
// the unmapped page. Returns dst without its gaps, after a look at these.
template <class T>
std::vector<uint8_t> detect(const Image<T>& dx, const Image<T>& dy, float low, float high, int32_t dstGap = 0,
                            Edge edge = Edge::end, size_t shift = 0) {
  const int32_t width = dx.width(), height = dx.height(), dstStep = width + dstGap;
  GuardedMemory dst(size_t(height) * dstStep, edge);
  memset(dst.data(), 0x5a, dst.size());
  const size_t bytes = bufferSize(dx.size());
  GuardedMemory scratch(bytes + shift, edge);
  memset(scratch.data(), 0xa5, scratch.size());
  uint8_t* buffer = scratch.data() + (edge == Edge::begin ? shift : 0);
  EXPECT_EQ(canny(dx.data(), dx.step(), dy.data(), dy.step(), dst.data(), dstStep, dx.size(), low, high, buffer),
            qorStatusOk);
  EXPECT_TRUE(dst.patternIntact() && scratch.patternIntact());
  const uint8_t* outside = edge == Edge::begin ? scratch.data() : scratch.data() + bytes;
  for (size_t i = 0; i < shift; ++i) EXPECT_EQ(outside[i], 0xa5) << "outside the buffer";
  std::vector<uint8_t> pixels;
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t* row = dst.data() + ptrdiff_t(y) * dstStep;
    pixels.insert(pixels.end(), row, row + width);
    for (int32_t x = width; x < dstStep; ++x) EXPECT_EQ(row[x], 0) << "a gap that was not cleared";
  }
  return pixels;
}

template <class T>
void copyInto(Image<T>& image, const std::vector<T>& pixels) {
  size_t i = 0;
  image.fill([&] { return pixels[i++]; });
}

// Edges of two small images, row after row, as a text of dots and hashes.
template <class T>
std::string edgesOf(int32_t width, const std::vector<T>& dx, const std::vector<T>& dy, float low, float high) {
  Image<T> xImage(width, int32_t(dx.size()) / width), yImage(width, int32_t(dy.size()) / width);
  copyInto(xImage, dx);
  copyInto(yImage, dy);
  std::string text;
  for (const uint8_t pixel : detect(xImage, yImage, low, high)) {
    text += pixel == 0 ? '.' : pixel == 255 ? '#' : '?';
  }
  return text;
}

template <class T>
void expectModel(const Image<T>& dx, const Image<T>& dy, float low, float high) {
  EXPECT_TRUE(detect(dx, dy, low, high) == model(dx, dy, low, high))
      << dx.width() << "x" << dx.height() << ", thresholds " << low << " and " << high;
}

// ---- Small images by hand

// Magnitudes above 20 (first row: 100 between two of 40; second: two of 50; third: 30 at both ends, vertical
// gradients):
//     dx    5  40 100  40   5      dy   0   0   0   0   0      stored   0  40 100  40   0
//           5  50  50  20   5           0   0   0   0   0               0  50  50   0   0
//           0   0   0   0   0          30   0   0   0 -30              30   0   0   0  30
// 100 is a maximum and strong (above 90). The first 50 stays, the second has an equal on its left. Both 30 stay. The
// left ones hang together over corners, the one on the right touches nothing.
TEST_F(Canny, ThinsAndLinksAsByHand) {
  const std::vector<int16_t> dx = {5, 40, 100, 40, 5, 5, 50, 50, 20, 5, 0, 0, 0, 0, 0};
  const std::vector<int16_t> dy = {0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 30, 0, 0, 0, -30};
  const char* edges =
      "..#.."
      ".#..."
      "#....";
  EXPECT_EQ(edgesOf(5, dx, dy, 20, 90), edges);
  EXPECT_EQ(edgesOf<float>(5, {dx.begin(), dx.end()}, {dy.begin(), dy.end()}, 20, 90), edges);
  EXPECT_EQ(edgesOf(5, dx, dy, 20, 100), "...............");
  EXPECT_EQ(edgesOf(5, dx, dy, 20, 20), "..#...#...#...#");
}

TEST_F(Canny, ZeroGradientsGiveNoEdge) {
  EXPECT_EQ(edgesOf<int16_t>(3, {0, 0, 0, 0, 0, 0}, {0, 0, 0, 0, 0, 0}, 0, 0), "......");
  EXPECT_EQ(edgesOf<float>(3, {0, 0, 0, 0, 0, 0}, {0, 0, -0.0f, 0, 0, 0}, 0, 0), "......");
}

TEST_F(Canny, ASinglePixelIsAnEdgeInAnyDirection) {
  for (const int16_t dx : {-7, 0, 7}) {
    for (const int16_t dy : {-7, -1, 1, 7}) {
      EXPECT_EQ(edgesOf<int16_t>(1, {dx}, {dy}, 0, 0.5f), "#");
      EXPECT_EQ(edgesOf<float>(1, {float(dx)}, {float(dy)}, 0, 0.5f), "#");
    }
  }
}

// Above and below a single row there is nothing: codes 2, 3 and 4 keep every pixel, code 1 compares.
TEST_F(Canny, OneRowComparesOnlyAlongItself) {
  EXPECT_EQ(edgesOf<int16_t>(6, {0, 0, 0, 0, 0, 0}, {9, 9, 8, 9, -9, 9}, 5, 5), "######");
  EXPECT_EQ(edgesOf<int16_t>(6, {9, 9, -9, 8, 9, 9}, {9, -9, 9, 8, -9, 9}, 5, 5), "######");
  EXPECT_EQ(edgesOf<int16_t>(6, {9, 9, 8, 9, 9, 7}, {0, 0, 0, 0, 0, 0}, 5, 5), "#..#..");
  EXPECT_EQ(edgesOf<float>(6, {9, 9, 8, 9, 9, 7}, {0, 0, 0, 0, 0, 0}, 5, 5), "#..#..");
}

TEST_F(Canny, OneColumnComparesOnlyAlongItself) {
  EXPECT_EQ(edgesOf<int16_t>(1, {9, 9, 8, 9, -9, 9}, {0, 0, 0, 0, 0, 0}, 5, 5), "######");
  EXPECT_EQ(edgesOf<int16_t>(1, {0, 0, 0, 0, 0, 0}, {9, 9, 8, 9, 9, 7}, 5, 5), "#..#..");
  EXPECT_EQ(edgesOf<float>(1, {0, 0, 0, 0, 0, 0}, {9, 9, 8, 9, 9, 7}, 5, 5), "#..#..");
}

// Along the axes the first pixel of a plateau stays, if nothing is higher at its ends.
TEST_F(Canny, APlateauAlongAnAxisKeepsItsFirstPixel) {
  const std::vector<int16_t> none(5, 0);
  for (const auto& [run, edges] :
       std::vector<std::pair<std::vector<int16_t>, const char*>>{{{0, 9, 9, 9, 0}, ".#..."},
                                                                 {{9, 9, 9, 9, 9}, "#...."},
                                                                 {{6, 9, 9, 6, 6}, ".#..."},
                                                                 {{0, 9, 9, 10, 0}, ".#.#."},
                                                                 {{0, 9, 10, 10, 0}, "..#.."},
                                                                 {{10, 9, 9, 0, 0}, "#...."}}) {
    EXPECT_EQ(edgesOf(5, run, none, 5, 5), edges);
    EXPECT_EQ(edgesOf(1, none, run, 5, 5), edges);
    EXPECT_EQ(edgesOf<float>(5, {run.begin(), run.end()}, {0, 0, 0, 0, 0}, 5, 5), edges);
    EXPECT_EQ(edgesOf<float>(1, {0, 0, 0, 0, 0}, {run.begin(), run.end()}, 5, 5), edges);
  }
}

// A pixel compared along a diagonal needs to be higher than both neighbours: two equal ones both go.
TEST_F(Canny, ADiagonalPlateauKeepsNoPixel) {
  const std::vector<int16_t> falling = {9, 0, 0, 0, 9, 0, 0, 0, 0}, rising = {0, 0, 9, 0, 9, 0, 0, 0, 0};
  const std::vector<int16_t> minusRising = {0, 0, -9, 0, -9, 0, 0, 0, 0};
  EXPECT_EQ(edgesOf(3, falling, falling, 5, 5), ".........");
  // The middle one compares along the other diagonal, where there is nothing, but ends the plateau of the first.
  EXPECT_EQ(edgesOf<int16_t>(3, falling, {9, 0, 0, 0, -9, 0, 0, 0, 0}, 5, 5), "....#....");
  EXPECT_EQ(edgesOf(3, rising, minusRising, 5, 5), ".........");
  EXPECT_EQ(edgesOf(3, rising, rising, 5, 5), "..#.#....");
  EXPECT_EQ(edgesOf<float>(3, {9, 0, 0, 0, 9, 0, 0, 0, 0}, {9, 0, 0, 0, 9, 0, 0, 0, 0}, 5, 5), ".........");
  EXPECT_EQ(edgesOf<float>(3, {0, 0, 9, 0, 9, 0, 0, 0, 0}, {0, 0, -9, 0, -9, 0, 0, 0, 0}, 5, 5), ".........");
}

// The diagonal is chosen by the sign bits. For floats -0.0 counts as negative; it meets the diagonals because the least
// float of all, times the smaller tangent, rounds to 0.
TEST_F(Canny, SignBitsChooseTheDiagonal) {
  // The centre of 3x3, with a higher pixel at the upper left only.
  const auto survives = [](float dx, float dy) {
    std::vector<float> x(9), y(9);
    x[0] = 100;
    x[4] = dx;
    y[4] = dy;
    return edgesOf(3, x, y, 0, 0)[4] == '#';
  };
  const float least = std::numeric_limits<float>::denorm_min();
  for (const float one : {1.0f, least}) {
    EXPECT_FALSE(survives(one, one));
    EXPECT_FALSE(survives(-one, -one));
    EXPECT_TRUE(survives(one, -one));
    EXPECT_TRUE(survives(-one, one));
  }
  EXPECT_FALSE(survives(least, 0.0f));
  EXPECT_TRUE(survives(least, -0.0f));
  EXPECT_TRUE(survives(-least, 0.0f));
  EXPECT_FALSE(survives(-least, -0.0f));
  // Two infinities are in no order, so they lie on a diagonal too; here they are each other's neighbours.
  const std::vector<float> infinities = {infinite32, 0, 0, infinite32};
  EXPECT_EQ(edgesOf(2, infinities, infinities, 0, 0), "....");
  EXPECT_EQ(edgesOf(2, infinities, {infinite32, 0, 0, -infinite32}, 0, 0), "...#");
}

// 16-bit thresholds: the low one is cut to an integer, the high one is not.
TEST_F(Canny, FractionsOfThresholds) {
  EXPECT_EQ(edgesOf<int16_t>(5, {10, 0, 11, 0, 12}, {0, 0, 0, 0, 0}, 10.7f, 10.7f), "..#.#");
  EXPECT_EQ(edgesOf<int16_t>(3, {10, 0, 11}, {0, 0, 0}, 9.7f, 10.7f), "..#");
  // 10 and 11 side by side in a column (code 1 both): 10 is a candidate and joined by 11.
  EXPECT_EQ(edgesOf<int16_t>(1, {10, 11}, {0, 0}, 9.7f, 10.7f), "##");
  EXPECT_EQ(edgesOf<int16_t>(1, {10, 11}, {0, 0}, 10.7f, 10.7f), ".#");
  EXPECT_EQ(edgesOf<float>(1, {10, 11}, {0, 0}, 9.7f, 10.7f), "##");
  EXPECT_EQ(edgesOf<float>(1, {10.5f, 11}, {0, 0}, 10.7f, 10.7f), ".#");
  EXPECT_EQ(edgesOf<int16_t>(1, {1, 2}, {0, 0}, 0.9f, 1), "##");
  EXPECT_EQ(edgesOf<int16_t>(1, {1, 2}, {0, 0}, 1, 1), ".#");
}

TEST_F(Canny, TheGreatestMagnitude) {
  const int16_t least = -32768;
  EXPECT_EQ(edgesOf<int16_t>(1, {least}, {least}, 65535, 65535), "#");
  EXPECT_EQ(edgesOf<int16_t>(1, {least}, {least}, 0, 65535.5f), "#");
  EXPECT_EQ(edgesOf<int16_t>(1, {least}, {least}, 1, 65535.5f), "#");
  EXPECT_EQ(edgesOf<int16_t>(1, {least}, {least}, 1, 65536), ".");
  EXPECT_EQ(edgesOf<int16_t>(1, {least}, {32767}, 65534, 65534.5f), "#");
  EXPECT_EQ(edgesOf<int16_t>(1, {least}, {32767}, 65535, 65535), ".");
  EXPECT_EQ(edgesOf<int16_t>(1, {least, least}, {0, 1}, 32768, 32768), ".#");
}

// A NaN passes the tests. The low one lets every 16-bit magnitude pass and no float; above a high one there is nothing.
TEST_F(Canny, ThresholdsThatAreNoNumbers) {
  EXPECT_EQ(edgesOf<int16_t>(1, {1, 2, 0}, {0, 0, 0}, nan32, 1), "##.");
  EXPECT_EQ(edgesOf<int16_t>(1, {1, 2, 0}, {0, 0, 0}, nan32, -5), "##.");
  EXPECT_EQ(edgesOf<int16_t>(1, {1, 2, 0}, {0, 0, 0}, 1, nan32), "...");
  EXPECT_EQ(edgesOf<int16_t>(1, {1, 2, 0}, {0, 0, 0}, nan32, nan32), "...");
  EXPECT_EQ(edgesOf<float>(1, {1, 2, 0}, {0, 0, 0}, nan32, 1), "...");
  EXPECT_EQ(edgesOf<float>(1, {1, 2, 0}, {0, 0, 0}, nan32, -5), "...");
  EXPECT_EQ(edgesOf<float>(1, {1, 2, 0}, {0, 0, 0}, 1, nan32), "...");
  EXPECT_EQ(edgesOf<float>(1, {1, 2, 0}, {0, 0, 0}, nan32, nan32), "...");
  EXPECT_EQ(edgesOf<float>(1, {1, infinite32, nan32}, {0, 0, 0}, 0, 1), "##.");
  EXPECT_EQ(edgesOf<float>(1, {1, infinite32, nan32}, {0, 0, 0}, 0, infinite32), "...");
  EXPECT_EQ(edgesOf<float>(1, {3e38f, infinite32}, {3e38f, 0}, 0, std::numeric_limits<float>::max()), "##");
  EXPECT_EQ(edgesOf<float>(1, {1, 2, 0}, {0, 0, 0}, -0.0f, -0.0f), "##.");
  EXPECT_EQ(edgesOf<int16_t>(1, {1, 2, 0}, {0, 0, 0}, -0.0f, -0.0f), "##.");
}

// ---- Against the model

template <class T>
class CannyOf : public Canny {};
using Elements = ::testing::Types<int16_t, float>;
TYPED_TEST_SUITE(CannyOf, Elements);

// Gradients of one kind an image: few values, so that plateaus are common; smooth ones; any.
template <class T>
T gradient(Random& random, int32_t kind) {
  switch (kind) {
    case 0: return T(random.number(-2, 2));
    case 1: return random.chance(0.8) ? T(0) : T(random.number(-100, 100));
    case 2: return T(random.number(-20, 20) * 6);
    case 3:
      if constexpr (std::is_same_v<T, float>) return random.anyFloat();
      return random.value<int16_t>();
    default:
      if constexpr (std::is_same_v<T, float>) return float(random.number(-8, 8)) * (1 / 3.0f);
      return random.pick(std::vector<int16_t>{-32768, -32767, 32767, 0, 1, -1, 13572, 13573});
  }
}

TYPED_TEST(CannyOf, AgreesWithTheModelOnRandomImages) {
  using T = TypeParam;
  Random random(71);
  const std::vector<float> thresholds = {0,     0.5f,  1,        1.5f,  2,    3,    10.7f,      30,    60,   100,
                                         120.5, 32768, 65534.5f, 65535, 7e4f, 3e9f, infinite32, nan32, -0.0f};
  size_t edgePixels = 0;
  for (int32_t i = 0; i < 400 * thorough; ++i) {
    int32_t width = random.width(200), height = int32_t(random.number(1, 40));
    if (random.chance(0.1)) height = 1;
    if (random.chance(0.05)) width = int32_t(random.number(200, 700));
    if (random.chance(0.1)) std::swap(width, height);
    const Edge edge = random.chance(0.5) ? Edge::begin : Edge::end;
    const size_t shift = random.chance(0.5) ? size_t(random.number(0, 3)) : 0;
    Image<T> dx(width, height, 1, int32_t(random.number(0, 3)), edge, shift);
    Image<T> dy(width, height, 1, int32_t(random.number(0, 3)), edge, random.chance(0.5) ? 1 : 0);
    const int32_t kind = int32_t(random.number(0, 4));
    dx.fill([&] { return gradient<T>(random, kind); });
    dy.fill([&] { return gradient<T>(random, kind); });
    float low = random.pick(thresholds), high = random.pick(thresholds);
    if (random.chance(0.7)) low = thresholds[size_t(random.number(0, 6))];
    if (low > high) std::swap(low, high);
    const std::vector<uint8_t> edges =
        detect(dx, dy, low, high, int32_t(random.number(0, 9)), edge, size_t(random.number(0, 33)));
    ASSERT_TRUE(edges == model(dx, dy, low, high))
        << width << "x" << height << ", kind " << kind << ", thresholds " << low << " and " << high;
    EXPECT_TRUE(dx.gapsIntact() && dy.gapsIntact());
    edgePixels += size_t(std::count(edges.begin(), edges.end(), 255));
    ASSERT_FALSE(this->HasFailure());
  }
  EXPECT_GT(edgePixels, 10000u);
  EXPECT_EQ(services::allocations(), 0);
}

// A single line that winds inward, so that linking has to follow it in every direction. Pixels of horizontal parts have
// vertical gradients and the other way round, so that none is compared with its neighbours on the line, except for the
// corners, which are a little higher.
template <class T>
void expectSpiral(int32_t width, int32_t height, bool fromOutside, int32_t spacing) {
  std::vector<std::pair<int32_t, int32_t>> line = {{0, 0}};
  Image<T> dx(width, height), dy(width, height);
  int32_t left = 0, top = 0, right = width - 1, bottom = height - 1, turns = 0;
  const auto go = [&](int32_t toX, int32_t toY) {
    auto [x, y] = line.back();
    const int32_t stepX = (toX > x) - (toX < x), stepY = (toY > y) - (toY < y);
    dy.set(x, y, T(60));
    dx.set(x, y, T(0));
    while (x != toX || y != toY) {
      x += stepX;
      y += stepY;
      line.push_back({x, y});
      dx.set(x, y, T(stepY != 0 ? 50 : 0));
      dy.set(x, y, T(stepX != 0 ? 50 : 0));
    }
    ++turns;
  };
  while (right - left > 2 * spacing && bottom - top > 2 * spacing) {
    go(right, line.back().second);
    top += spacing;
    go(line.back().first, bottom);
    right -= spacing;
    go(left, line.back().second);
    bottom -= spacing;
    go(line.back().first, top);
    left += spacing;
  }
  EXPECT_GT(turns, 20);
  const auto [strongX, strongY] = fromOutside ? line.front() : line.back();
  Image<T>& image = dx.get(strongX, strongY) != 0 ? dx : dy;
  image.set(strongX, strongY, T(200));
  const std::vector<uint8_t> edges = detect(dx, dy, 20, 100);
  size_t joined = 0;
  for (const auto& [x, y] : line) joined += edges[size_t(y) * width + x] == 255;
  EXPECT_EQ(joined, line.size()) << width << "x" << height << (fromOutside ? " from outside" : " from inside");
  EXPECT_TRUE(edges == model(dx, dy, 20, 100));
}

TYPED_TEST(CannyOf, FollowsALineInEveryDirection) {
  for (const bool fromOutside : {false, true}) {
    for (const int32_t spacing : {2, 3}) {
      expectSpiral<TypeParam>(151, 97, fromOutside, spacing);
      expectSpiral<TypeParam>(128, 130, fromOutside, spacing);
      expectSpiral<TypeParam>(61, 200, fromOutside, spacing);
    }
  }
}

// On both sides of the width and height from which on positions take two 32-bit numbers, and beyond what 16 bits hold.
TYPED_TEST(CannyOf, LongImagesTakeTheWideStack) {
  using T = TypeParam;
  Random random(72);
  for (const int32_t length : {65532, 65533, 65536, 70001}) {
    for (const bool tall : {false, true}) {
      const int32_t width = tall ? 3 : length, height = tall ? length : 3;
      Image<T> dx(width, height), dy(width, height);
      dx.fill([&] { return gradient<T>(random, 2); });
      dy.fill([&] { return gradient<T>(random, 2); });
      expectModel(dx, dy, 30, 200);
      // One line from end to end, with its strong pixel last: all of it comes off the stack.
      for (const bool firstStrong : {false, true}) {
        int32_t i = 0;
        dx.fill([&] { return T(tall && i++ % 3 == 1 ? 50 : 0); });
        i = 0;
        dy.fill([&] { return T(!tall && i++ / width == 1 ? 50 : 0); });
        Image<T>& across = tall ? dx : dy;
        const int32_t end = firstStrong ? 0 : length - 1;
        across.set(tall ? 1 : end, tall ? end : 1, T(100));
        const std::vector<uint8_t> edges = detect(dx, dy, 20, 80);
        EXPECT_EQ(std::count(edges.begin(), edges.end(), 255), length);
        EXPECT_TRUE(edges == model(dx, dy, 20, 80));
      }
    }
  }
}

// Three quarters of all pixels are candidates, and one in a corner is strong.
TYPED_TEST(CannyOf, AllThatCanBeCandidates) {
  using T = TypeParam;
  for (const int32_t width : {1, 2, 5, 63, 64, 65, 200}) {
    for (const int32_t height : {1, 2, 6, 33}) {
      // Every second row has vertical gradients and survives whole; the rows between are lower and have a horizontal
      // gradient at every second pixel.
      for (const bool last : {false, true}) {
        Image<T> dx(width, height), dy(width, height);
        for (int32_t y = 0; y < height; ++y) {
          for (int32_t x = 0; x < width; ++x) {
            if (y % 2 == 0) {
              dy.set(x, y, T(500));
            } else if (x % 2 == 0) {
              dx.set(x, y, T(400));
            }
          }
        }
        dy.set(last ? width - 1 : 0, last ? (height - 1) / 2 * 2 : 0, T(501));
        const std::vector<uint8_t> edges = detect(dx, dy, 20, 500);
        EXPECT_TRUE(edges == model(dx, dy, 20, 500)) << width << "x" << height;
        EXPECT_EQ(std::count(edges.begin(), edges.end(), 255),
                  (height + 1) / 2 * width + height / 2 * ((width + 1) / 2));
      }
    }
  }
}

// ---- Directions

// Expects the codes of pixels with |dx| = ax and |dy| from a list. Those between two higher pixels of the only row die
// if their code is 1; those below and above higher pixels, with nothing on the other sides, if it is 3.
void expectCodes(int32_t ax, const std::vector<int32_t>& ays, float low) {
  const int32_t n = int32_t(ays.size()), width = 2 * n + 1;
  const auto signedValue = [](int32_t magnitude, bool negative) {
    return int16_t(negative || magnitude == 32768 ? -magnitude : magnitude);
  };
  static std::vector<int16_t> dx, dy;
  static std::vector<uint8_t> flatRow, steepRows, buffer;
  dx.assign(size_t(width) * 3, -32768);
  dy.assign(size_t(width) * 3, -32768);
  flatRow.resize(size_t(width));
  steepRows.resize(size_t(width) * 3);
  buffer.resize(std::max(buffer.size(), bufferSize({width, 3})));
  for (int32_t i = 0; i < n; ++i) {
    dx[size_t(2 * i + 1)] = signedValue(ax, ays[size_t(i)] % 3 == 0);
    dy[size_t(2 * i + 1)] = signedValue(ays[size_t(i)], ays[size_t(i)] % 5 < 2);
  }
  ASSERT_EQ(qoriCanny_16s8u_C1R(dx.data(), width * 2, dy.data(), width * 2, flatRow.data(), width, {width, 1}, low, low,
                                buffer.data()),
            qorStatusOk);
  // Into the middle row, with the higher pixels of the row moved above and below.
  for (int32_t x = 0; x < width; ++x) {
    const bool pixel = x % 2 == 1;
    dx[size_t(width + x)] = pixel ? dx[size_t(x)] : int16_t(0);
    dy[size_t(width + x)] = pixel ? dy[size_t(x)] : int16_t(0);
    for (const int32_t row : {0, 2}) dx[size_t(width * row + x)] = dy[size_t(width * row + x)] = pixel ? -32768 : 0;
  }
  ASSERT_EQ(qoriCanny_16s8u_C1R(dx.data(), width * 2, dy.data(), width * 2, steepRows.data(), width, {width, 3}, low,
                                low, buffer.data()),
            qorStatusOk);
  for (int32_t i = 0; i < n; ++i) {
    const int32_t ay = ays[size_t(i)];
    const float steepFrom = float(double(float(ax)) * 2.414213562373095);
    const float flatBelow = float(double(float(ax)) * 0.41421356237309503);
    const bool steep = float(ay) > steepFrom, flat = !steep && flatBelow > float(ay),
               candidate = ax + ay > int32_t(low);
    ASSERT_EQ(flatRow[size_t(2 * i + 1)] == 255, candidate && !flat) << ax << ", " << ay;
    ASSERT_EQ(steepRows[size_t(width + 2 * i + 1)] == 255, candidate && !steep) << ax << ", " << ay;
  }
}

TEST_F(Canny, DirectionsOfIntegersFollowTheFloatRule) {
  std::vector<int32_t> ays;
  const auto addAround = [&](float limit) {
    const int32_t middle = int32_t(limit);
    for (int32_t ay = std::max(middle - 12, 0); ay <= std::min(middle + 12, 32768); ++ay) ays.push_back(ay);
  };
  const int32_t stride = thorough == 1 ? 29 : 1;
  for (int32_t ax = 0; ax <= 32768; ++ax) {
    const bool telling = ax % 2378 < 2 || ax % 5741 < 2 || ax == 8527 || ax == 20586 || ax == 26327 || ax >= 32767;
    if (ax % stride != 0 && !telling) continue;
    ays.clear();
    addAround(float(double(float(ax)) * 2.414213562373095));
    addAround(float(double(float(ax)) * 0.41421356237309503));
    for (const float low : {0.0f, 1.0f}) expectCodes(ax, ays, low);
    ASSERT_FALSE(HasFailure());
  }
}

TEST_F(Canny, DirectionsOfIntegersOverTheWholeRange) {
  std::vector<int32_t> ays;
  for (int32_t ay = 0; ay <= 32768; ++ay) ays.push_back(ay);
  for (int32_t ax = 0; ax <= 32768; ax += 4096 / thorough) expectCodes(ax, ays, 1);
  for (const int32_t ax : {1, 8527, 20586, 26327, 32767}) {
    for (const float low : {0.0f, 1.0f}) expectCodes(ax, ays, low);
  }
}

// Floats next to the two limits, of any size.
TEST_F(Canny, DirectionsOfFloatsNextToTheLimits) {
  Random random(73);
  const int32_t width = 99;
  for (int32_t i = 0; i < 60 * thorough; ++i) {
    Image<float> dx(width, 5), dy(width, 5);
    for (int32_t y = 0; y < 5; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        const float ax = ldexpf(1 + float(random.number(0, 0x7fffff)) / 0x800000, int(random.number(-149, 126)));
        const double tangent = random.chance(0.5) ? 2.414213562373095 : 0.41421356237309503;
        float ay = float(double(ax) * tangent);
        for (int64_t k = random.number(0, 3); k > 0; --k) ay = nextafterf(ay, random.chance(0.5) ? 0.0f : infinite32);
        dx.set(x, y, random.chance(0.5) ? -ax : ax);
        dy.set(x, y, random.chance(0.5) ? -ay : ay);
      }
    }
    expectModel(dx, dy, 0, 0);
    // The same gradient everywhere, so that ties tell the codes apart.
    const float ax = fabsf(dx.get(0, 0)), ay = fabsf(dy.get(0, 0));
    dx.fill([&] { return random.chance(0.5) ? -ax : ax; });
    dy.fill([&] { return random.chance(0.5) ? -ay : ay; });
    expectModel(dx, dy, 0, 0);
    ASSERT_FALSE(HasFailure());
  }
}

// ---- Arguments

TEST_F(Canny, BufferSizes) {
  const auto size = [](int32_t width, int32_t height) {
    int32_t bytes = -1;
    EXPECT_EQ(qoriCannyGetSize({width, height}, &bytes), qorStatusOk);
    return bytes;
  };
  EXPECT_EQ(size(1, 1), 3 * 3 * 5 + 16 + 160);
  EXPECT_EQ(size(640, 480), 642 * 482 * 5 + 10240 + 160);
  EXPECT_EQ(size(65532, 1), 65534 * 3 * 5 + 1048512 + 160);
  EXPECT_EQ(size(65533, 1), 65535 * 3 * 9 + 1048528 + 160);
  EXPECT_EQ(size(1, 65532), 3 * 65534 * 5 + 16 + 160);
  EXPECT_EQ(size(1, 65533), 3 * 65535 * 9 + 16 + 160);
  // 46341 * 46341 is 2147488281, which wraps to -2147479015.
  EXPECT_EQ(size(46339, 46339), int32_t(uint32_t(-2147479015LL * 5 + 46339 * 16 + 160)));
  // 65538 * 65538 wraps to 262148.
  EXPECT_EQ(size(65536, 65536), 262148 * 9 + 65536 * 16 + 160);
  // A width of 2147483647 is far above 65533; the frame's -2147483647 columns times 3 make -2147483645 in 32 bits.
  EXPECT_EQ(size(2147483647, 1), int32_t(uint32_t(-2147483645LL * 9 + 2147483647LL * 16 + 160)));
}

TEST_F(Canny, BufferSizeStatuses) {
  int32_t bytes = 77;
  EXPECT_EQ(qoriCannyGetSize({0, 0}, nullptr), qorStatusNullPtr);
  EXPECT_EQ(qoriCannyGetSize({1, 1}, nullptr), qorStatusNullPtr);
  for (const QoriSize bad :
       {QoriSize{0, 1}, QoriSize{1, 0}, QoriSize{-1, 1}, QoriSize{1, -5}, QoriSize{INT32_MIN, 1}}) {
    EXPECT_EQ(qoriCannyGetSize(bad, &bytes), qorStatusBadSize);
  }
  EXPECT_EQ(bytes, 77);
}

template <class T>
struct Arguments {
  const T* srcDx;
  int32_t srcDxStep;
  const T* srcDy;
  int32_t srcDyStep;
  uint8_t* dst;
  int32_t dstStep;
  QoriSize size;
  float low, high;
  uint8_t* buffer;
};

TYPED_TEST(CannyOf, Statuses) {
  using T = TypeParam;
  using Args = Arguments<T>;
  const int32_t width = 7, height = 5, bytes = int32_t(sizeof(T));
  Image<T> dx(width, height, 1, 2), dy(width, height, 1, 4);
  dx.fill([] { return T(50); });
  GuardedMemory dst(size_t(height) * 10), buffer(bufferSize(dx.size()));
  memset(dst.data(), 0x11, dst.size());
  memset(buffer.data(), 0x22, buffer.size());
  const Args good = {dx.data(), dx.step(), dy.data(), dy.step(), dst.data(), 10, dx.size(), 10, 20, buffer.data()};
  std::vector<Fault<Args>> faults = {
      {"srcDx", qorStatusNullPtr, [](Args& a) { a.srcDx = nullptr; }},
      {"srcDy", qorStatusNullPtr, [](Args& a) { a.srcDy = nullptr; }},
      {"dst", qorStatusNullPtr, [](Args& a) { a.dst = nullptr; }},
      {"buffer", qorStatusNullPtr, [](Args& a) { a.buffer = nullptr; }},
      {"width", qorStatusBadSize, [](Args& a) { a.size.width = 0; }},
      {"width", qorStatusBadSize, [](Args& a) { a.size.width = -3; }},
      {"height", qorStatusBadSize, [](Args& a) { a.size.height = 0; }},
      {"height", qorStatusBadSize, [](Args& a) { a.size.height = -1; }},
      {"srcDxStep", qorStatusBadStep, [&](Args& a) { a.srcDxStep = width * bytes - 1; }},
      {"srcDxStep", qorStatusBadStep, [](Args& a) { a.srcDxStep = -64; }},
      {"srcDyStep", qorStatusBadStep, [&](Args& a) { a.srcDyStep = width * bytes - bytes; }},
      {"srcDyStep", qorStatusBadStep, [](Args& a) { a.srcDyStep = 0; }},
      {"dstStep", qorStatusBadStep, [&](Args& a) { a.dstStep = width - 1; }},
      {"dstStep", qorStatusBadStep, [](Args& a) { a.dstStep = -10; }},
  };
  for (int32_t off = 1; off < bytes; ++off) {
    faults.push_back({"srcDxStep", qorStatusBadStepAlign, [=](Args& a) { a.srcDxStep += off; }});
    faults.push_back({"srcDyStep", qorStatusBadStepAlign, [=](Args& a) { a.srcDyStep += off; }});
  }
  faults.push_back({"low", qorStatusBadArg, [](Args& a) { a.low = -0.001f; }});
  faults.push_back({"low", qorStatusBadArg, [](Args& a) { a.low = -infinite32; }});
  faults.push_back({"low", qorStatusBadArg, [](Args& a) { a.low = 20.001f; }});
  faults.push_back({"high", qorStatusBadArg, [](Args& a) { a.high = 9.999f; }});
  faults.push_back({"high", qorStatusBadArg, [](Args& a) { a.high = -1; }});
  expectStatuses<Args>(
      good, faults,
      [](const Args& a) {
        return canny(a.srcDx, a.srcDxStep, a.srcDy, a.srcDyStep, a.dst, a.dstStep, a.size, a.low, a.high, a.buffer);
      },
      [&] {
        std::vector<uint8_t> all(dst.data(), dst.data() + dst.size());
        all.insert(all.end(), buffer.data(), buffer.data() + buffer.size());
        const std::vector<uint8_t> x = dx.bytes(), y = dy.bytes();
        all.insert(all.end(), x.begin(), x.end());
        all.insert(all.end(), y.begin(), y.end());
        return all;
      });
}

TYPED_TEST(CannyOf, StepsOfExactlyARowAndOddDstSteps) {
  using T = TypeParam;
  Image<T> dx(7, 5), dy(7, 5);
  Random random(74);
  dx.fill([&] { return gradient<T>(random, 2); });
  dy.fill([&] { return gradient<T>(random, 2); });
  EXPECT_EQ(dx.step(), 7 * int32_t(sizeof(T)));
  for (const int32_t gap : {0, 1, 2, 100}) {
    EXPECT_TRUE(detect(dx, dy, 30, 60, gap) == model(dx, dy, 30, 60));
  }
}

// Rows a gigabyte apart: offsets need more than 32 bits, and of dst only the rows themselves can be meant.
TYPED_TEST(CannyOf, RowsFarApart) {
  using T = TypeParam;
  const int32_t width = 70, height = 4, step = 1 << 30;
  const size_t page = size_t(sysconf(_SC_PAGESIZE)), reserved = size_t(step) * height;
  const auto reserve = [&] {
    void* memory = mmap(nullptr, reserved, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (memory == MAP_FAILED) abort();
    for (int32_t y = 0; y < height; ++y) {
      uint8_t* row = static_cast<uint8_t*>(memory) + size_t(step) * y;
      if (mprotect(row, page, PROT_READ | PROT_WRITE)) abort();
      memset(row, 0x5a, page);
    }
    return static_cast<uint8_t*>(memory);
  };
  uint8_t* const dst = reserve();
  uint8_t* const far = reserve();
  Image<T> dx(width, height), dy(width, height);
  Random random(75);
  dx.fill([&] { return gradient<T>(random, 2); });
  dy.fill([&] { return gradient<T>(random, 2); });
  for (int32_t y = 0; y < height; ++y) memcpy(far + size_t(step) * y, dx.data() + width * y, width * sizeof(T));
  GuardedMemory buffer(bufferSize(dx.size()));
  EXPECT_EQ(canny(reinterpret_cast<T*>(far), step, dy.data(), dy.step(), dst, step, dx.size(), 30, 60, buffer.data()),
            qorStatusOk);
  const std::vector<uint8_t> edges = model(dx, dy, 30, 60);
  EXPECT_GT(std::count(edges.begin(), edges.end(), 255), 10);
  for (int32_t y = 0; y < height; ++y) {
    const uint8_t* row = dst + size_t(step) * y;
    EXPECT_EQ(memcmp(row, edges.data() + width * y, size_t(width)), 0) << "row " << y;
    for (size_t x = size_t(width); x < page; ++x) ASSERT_EQ(row[x], 0x5a) << "row " << y;
  }
  munmap(dst, reserved);
  munmap(far, reserved);
}

TYPED_TEST(CannyOf, UsesNoMemoryAndNoThreads) {
  using T = TypeParam;
  services::threads(8);
  services::failAfter(0);
  Image<T> dx(600, 500), dy(600, 500);
  Random random(76);
  dx.fill([&] { return gradient<T>(random, 1); });
  dy.fill([&] { return gradient<T>(random, 1); });
  expectModel(dx, dy, 30, 100);
  EXPECT_EQ(services::allocations(), 0);
}

}  // namespace
