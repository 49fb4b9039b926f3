// Inpainting against a model that keeps everything in plain arrays and looks at one pixel at a time.
#include <gtest/gtest.h>
#include <math.h>

#include <algorithm>
#include <array>
#include <map>

#include "support/image.h"
#include "support/random.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <int channels>
struct Member {
  static constexpr int32_t count = channels;
  using State = QoriInpaintState_8u_C1R;
  QorStatus (*init)(State**, const float*, int32_t, const uint8_t*, int32_t, QoriSize, float, int32_t);
  QorStatus (*run)(const uint8_t*, int32_t, uint8_t*, int32_t, QoriSize, State*);
  QorStatus (*release)(State*);
};

template <class Body>
void forMembers(Body body) {
  body(Member<1>{qoriInpaintInitAlloc_8u_C1R, qoriInpaint_8u_C1R, qoriInpaintFree_8u_C1R});
  body(Member<3>{qoriInpaintInitAlloc_8u_C3R, qoriInpaint_8u_C3R, qoriInpaintFree_8u_C3R});
}

// --- model ---

struct Model {
  int32_t width, height, channels, flags, R, left, top;
  float r;
  std::vector<float> T;
  std::vector<bool> hole, unknown, band, ring;
  std::vector<int32_t> image;
  std::vector<std::array<int32_t, 2>> imageGradient, distanceGradient;  // x, y
  std::vector<size_t> order;

  size_t at(int32_t x, int32_t y) const { return size_t(y) * size_t(width) + size_t(x); }
  bool inside(int32_t x, int32_t y) const { return x >= 0 && x < width && y >= 0 && y < height; }

  // The hole grown by the square from (-before, -before) to (after, after) or by a cross; edges continue.
  std::vector<bool> around(int32_t before, int32_t after, bool cross) const {
    std::vector<bool> found(hole.size());
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        bool any = false;
        for (int32_t dy = -before; dy <= after; ++dy) {
          for (int32_t dx = -before; dx <= after; ++dx) {
            if (cross && dx != 0 && dy != 0) continue;
            any = any || hole[at(std::clamp(x + dx, 0, width - 1), std::clamp(y + dy, 0, height - 1))];
          }
        }
        found[at(x, y)] = any && !hole[at(x, y)];
      }
    }
    return found;
  }

  // One component of the gradient: towards (dx, dy). `masked` leaves out unknown neighbours.
  int32_t component(int32_t x, int32_t y, int32_t dx, int32_t dy, int32_t c, bool masked) const {
    const auto value = [&](int32_t u, int32_t v) { return image[at(u, v) * channels + c]; };
    const bool hasNext = inside(x + dx, y + dy), hasLast = inside(x - dx, y - dy);
    const bool nextUnknown = hasNext && masked && unknown[at(x + dx, y + dy)];
    const bool lastUnknown = hasLast && masked && unknown[at(x - dx, y - dy)];
    const bool absolute = flags == qorInpaintIsophote;
    const auto oneSided = [&](int32_t d) { return absolute ? 2 * abs(d) : d; };
    if (!hasNext && !hasLast) return 0;
    if (!hasNext) return lastUnknown ? 0 : oneSided(value(x, y) - value(x - dx, y - dy));
    if (!hasLast) return nextUnknown ? 0 : oneSided(value(x + dx, y + dy) - value(x, y));
    if (nextUnknown && lastUnknown) return 0;
    if (nextUnknown) return oneSided(value(x, y) - value(x - dx, y - dy));
    if (lastUnknown) return oneSided(value(x + dx, y + dy) - value(x, y));
    if (!absolute) return 2 * (value(x + dx, y + dy) - value(x - dx, y - dy));
    return abs(value(x + dx, y + dy) - value(x, y)) + abs(value(x, y) - value(x - dx, y - dy));
  }

  void setGradient(int32_t x, int32_t y, bool masked) {
    if (!inside(x, y)) return;
    for (int32_t c = 0; c < channels; ++c) {
      imageGradient[at(x, y) * channels + c] = {component(x, y, 1, 0, c, masked), component(x, y, 0, 1, c, masked)};
    }
  }

  int32_t distanceComponent(int32_t x, int32_t y, int32_t dx, int32_t dy) const {
    const bool hasNext = inside(x + dx, y + dy), hasLast = inside(x - dx, y - dy);
    float v = 0;
    if (hasNext && hasLast) v = (T[at(x + dx, y + dy)] - T[at(x - dx, y - dy)]) * 0.5f * 4096.0f;
    if (hasNext && !hasLast) v = (T[at(x + dx, y + dy)] - T[at(x, y)]) * 4096.0f;
    if (!hasNext && hasLast) v = (T[at(x, y)] - T[at(x - dx, y - dy)]) * 4096.0f;
    return v != v ? 0 : int32_t(truncf(std::clamp(v, -32768.0f, 32767.0f)));
  }

  static int32_t toByte(double v) { return v != v ? 0 : int32_t(std::clamp(trunc(v), 0.0, 255.0)); }

  void fillPixel(int32_t x, int32_t y) {
    const bool extrapolate = flags == qorInpaintExtrapolate;
    const bool table = x >= R && y >= R && x + R < width && y + R < height;
    const std::array<int32_t, 2> t = distanceGradient[at(x, y)];
    std::vector<float> weightSum(channels, 1e-30f), sum(channels), sumX(channels), sumY(channels);
    for (int32_t v = y - R; v <= y + R; ++v) {
      for (int32_t u = x - R; u <= x + R; ++u) {
        const int32_t dx = x - u, dy = y - v;
        const float d2 = float(dx * dx + dy * dy);
        if (!inside(u, v) || unknown[at(u, v)] || (dx == 0 && dy == 0)) continue;
        if (table ? d2 > r * r : d2 > float(R * R)) continue;
        for (int32_t c = 0; c < channels; ++c) {
          const std::array<int32_t, 2> g = imageGradient[at(u, v) * channels + c];
          const float value = float(image[at(u, v) * channels + c]);
          if (extrapolate) {
            const float weight = 1.0f / (d2 * float(sqrt(double(d2))));
            float direction = float(t[0] * dx + t[1] * dy);
            if (float(fabs(double(direction))) < 2.5e-25f) direction = 2.5e-25f;
            const float level = 0.000244140625f / (1.0f + float(fabs(double(T[at(u, v)] - T[at(x, y)]))));
            const float w = float(fabs(double(weight * level * direction)));
            sum[c] += value * w;
            sumX[c] -= float(g[0]) * w * float(dx);
            sumY[c] -= float(g[1]) * w * float(dy);
            weightSum[c] += w;
          } else {
            const float cross = float(abs(dx * -g[1] + dy * g[0])), g2 = float(g[0] * g[0] + g[1] * g[1]);
            float weight = 1.0f / (d2 * d2 + 1.0f), alignment = cross / float(sqrt(double(d2 * g2)));
            if (table) {
              weight = 1.0f / ((d2 * d2 + 1.0f) * float(sqrt(double(d2))));
              alignment = cross / float(sqrt(double(g2)));
            }
            if (cross == 0) alignment = 1e-6f;
            const float w = weight * alignment;
            sum[c] += value * w;
            weightSum[c] += w;
          }
        }
      }
    }
    for (int32_t c = 0; c < channels; ++c) {
      if (weightSum[c] < 1e-4f) {
        sum[c] = sumX[c] = sumY[c] = 0;
        for (const auto& [u, v] : std::vector<std::array<int32_t, 2>>{{x - 1, y}, {x + 1, y}, {x, y - 1}, {x, y + 1}}) {
          if (!inside(u, v) || unknown[at(u, v)]) continue;
          sum[c] += float(255 * image[at(u, v) * channels + c]);
          weightSum[c] += 255.0f;
        }
      }
      double value = double(sum[c] / weightSum[c] + 0.5f);
      if (extrapolate) {
        const double length = double(float(sqrt(double(sumX[c]) * sumX[c] + double(sumY[c]) * sumY[c])));
        value = double(sum[c] / weightSum[c]) + 0.5 + double(sumX[c] + sumY[c]) / (length + 1e-20);
      }
      image[at(x, y) * channels + c] = toByte(value);
    }
  }

  Model(const Image<uint8_t>& src, const Image<float>& distance, const Image<uint8_t>& mask, float radius,
        int32_t method)
      : width(0), height(0), channels(src.channels()), flags(method), R(int32_t(radius)), left(0), top(0), r(radius) {
    int32_t minX = mask.width(), minY = mask.height(), maxX = -1, maxY = -1;
    size_t pixelCount = 0;
    for (int32_t y = 0; y < mask.height(); ++y) {
      for (int32_t x = 0; x < mask.width(); ++x) {
        if (mask.get(x, y) == 0) continue;
        ++pixelCount;
        minX = std::min(minX, x), maxX = std::max(maxX, x), minY = std::min(minY, y), maxY = std::max(maxY, y);
      }
    }
    if (pixelCount == 0) return;
    left = minX - R - 1, top = minY - R - 1;
    width = maxX - minX + 1 + 2 * R + 2, height = maxY - minY + 1 + 2 * R + 2;
    if (left < 0) width += left, left = 0;
    if (top < 0) height += top, top = 0;
    width = std::min(width, mask.width() - left), height = std::min(height, mask.height() - top);
    std::vector<std::pair<float, size_t>> keys;
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        hole.push_back(mask.get(left + x, top + y) != 0);
        T.push_back(distance.get(left + x, top + y));
        for (int32_t c = 0; c < channels; ++c) image.push_back(src.get(left + x, top + y, c));
        if (T.back() > 0 && keys.size() < pixelCount) keys.push_back({T.back(), at(x, y)});
      }
    }
    std::sort(keys.begin(), keys.end());
    imageGradient.resize(image.size());
    distanceGradient.resize(hole.size());
    unknown = hole;
    band = around(R, int32_t(1 + 2 * r) - 1 - R, false);
    ring = around(1, 1, true);
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        if (band[at(x, y)]) setGradient(x, y, false);
        if (ring[at(x, y)]) setGradient(x, y, true);
        if (hole[at(x, y)] && flags == qorInpaintExtrapolate) {
          distanceGradient[at(x, y)] = {distanceComponent(x, y, 1, 0), distanceComponent(x, y, 0, 1)};
        }
      }
    }
    for (const auto& key : keys) {
      const int32_t x = int32_t(key.second) % width, y = int32_t(key.second) / width;
      fillPixel(x, y);
      unknown[at(x, y)] = false;
      setGradient(x, y, true);
      setGradient(x - 1, y, true);
      setGradient(x + 1, y, true);
      setGradient(x, y - 1, true);
      setGradient(x, y + 1, true);
    }
  }

  uint8_t value(const Image<uint8_t>& src, int32_t x, int32_t y, int32_t c) const {
    if (!inside(x - left, y - top)) return src.get(x, y, c);
    return uint8_t(image[at(x - left, y - top) * channels + c]);
  }
};

// --- calls ---

template <class M>
void fill(const M& member, const Image<uint8_t>& src, const Image<float>& distance, const Image<uint8_t>& mask,
          float radius, int32_t flags, Image<uint8_t>& dst) {
  typename M::State* state = nullptr;
  ASSERT_EQ(member.init(&state, distance.data(), distance.step(), mask.data(), mask.step(), mask.size(), radius, flags),
            qorStatusOk);
  ASSERT_EQ(services::liveBlocks(), 1);
  ASSERT_EQ(member.run(src.data(), src.step(), dst.data(), dst.step(), src.size(), state), qorStatusOk);
  ASSERT_EQ(member.release(state), qorStatusOk);
  ASSERT_EQ(services::liveBlocks(), 0);
  ASSERT_TRUE(dst.gapsIntact());
}

// The distance of each hole pixel from the nearest pixel outside the hole.
void fillDistance(const Image<uint8_t>& mask, Image<float>& distance) {
  for (int32_t y = 0; y < mask.height(); ++y) {
    for (int32_t x = 0; x < mask.width(); ++x) {
      double nearest = mask.get(x, y) ? 1e4 : 0;
      for (int32_t v = 0; v < mask.height() && nearest > 0; ++v) {
        for (int32_t u = 0; u < mask.width(); ++u) {
          if (mask.get(u, v) == 0) nearest = std::min(nearest, hypot(x - u, y - v));
        }
      }
      distance.set(x, y, float(nearest));
    }
  }
}

void fillMask(Image<uint8_t>& mask, Random& random) {
  const int64_t kind = random.number(0, 3);
  const int32_t x0 = int32_t(random.number(-5, mask.width())), y0 = int32_t(random.number(-5, mask.height()));
  const int32_t side = int32_t(random.number(1, 14));
  for (int32_t y = 0; y < mask.height(); ++y) {
    for (int32_t x = 0; x < mask.width(); ++x) {
      bool in = x >= x0 && x < x0 + side && y >= y0 && y < y0 + side;
      if (kind == 1) in = random.chance(0.1);
      if (kind == 2) in = in || random.chance(0.02);
      if (kind == 3) in = abs(x + y - x0 - y0) < side / 4;
      mask.set(x, y, in ? uint8_t(random.number(1, 255)) : uint8_t(0));
    }
  }
}

// Smooth, noisy or flat, so that weights of every size occur.
void fillImage(Image<uint8_t>& image, Random& random) {
  const int64_t kind = random.number(0, 3), flat = random.number(0, 255);
  int64_t i = 0;
  image.fill([&] {
    ++i;
    if (kind == 0) return random.value<uint8_t>();
    if (kind == 1) return uint8_t(flat);
    return uint8_t(kind == 2 ? i * 7 / 16 : (i / 9) % 2 * 200);
  });
}

class Inpaint : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

TEST_F(Inpaint, AgreesWithTheModel) {
  Random random(1);
  for (int i = 0; i < 250; ++i) {
    const int32_t width = i % 4 == 0 ? random.width(40) : int32_t(random.number(20, 70));
    const int32_t height = int32_t(i % 4 == 0 ? random.number(1, 30) : random.number(20, 40));
    const int32_t gap = int32_t(random.number(0, 3));
    const Edge edge = random.chance(0.5) ? Edge::end : Edge::begin;
    Image<uint8_t> mask(width, height, 1, gap, edge);
    Image<float> distance(width, height, 1, gap, edge, random.chance(0.3) ? 1 : 0);
    fillMask(mask, random);
    fillDistance(mask, distance);
    const float radius = random.pick(std::vector<float>{1.0f, 1.5f, 2.0f, 2.9f, 3.0f, 5.0f, 6.7f, 12.0f});
    // Distances with ties, and of any kind, also outside the hole.
    const int64_t kind = random.number(0, 5);
    if (kind == 0) distance.fill([&] { return float(random.number(-2, 4)); });
    if (kind == 1) distance.fill([&] { return random.chance(0.1) ? NAN : random.value<float>() * 0.02f; });
    forMembers([&](auto member) {
      Image<uint8_t> src(width, height, member.count, gap, edge), dst(width, height, member.count, gap, edge);
      fillImage(src, random);
      for (const int32_t flags : {qorInpaintExtrapolate, qorInpaintIsophote}) {
        dst.fill([] { return uint8_t(77); });
        fill(member, src, distance, mask, radius, flags, dst);
        const Model model(src, distance, mask, radius, flags);
        ASSERT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t c) { return model.value(src, x, y, c); }), "")
            << i << ", flags " << flags << ", radius " << radius << ", kind " << kind;
      }
    });
  }
}

// One state serves several images, and in place.
TEST_F(Inpaint, StatesServeManyImages) {
  Random random(2);
  Image<uint8_t> mask(40, 30);
  Image<float> distance(40, 30);
  for (int32_t y = 10; y < 18; ++y) {
    for (int32_t x = 12; x < 30; ++x) mask.set(x, y, uint8_t(1));
  }
  fillDistance(mask, distance);
  forMembers([&](auto member) {
    for (const int32_t flags : {qorInpaintExtrapolate, qorInpaintIsophote}) {
      typename decltype(member)::State* state = nullptr;
      ASSERT_EQ(member.init(&state, distance.data(), distance.step(), mask.data(), mask.step(), mask.size(), 4, flags),
                qorStatusOk);
      for (int i = 0; i < 4; ++i) {
        Image<uint8_t> src(40, 30, member.count, i), dst(40, 30, member.count, 3 * i);
        fillImage(src, random);
        const Model model(src, distance, mask, 4, flags);
        ASSERT_EQ(member.run(src.data(), src.step(), dst.data(), dst.step(), src.size(), state), qorStatusOk);
        EXPECT_EQ(difference(dst, [&](int32_t x, int32_t y, int32_t c) { return model.value(src, x, y, c); }), "");
        ASSERT_EQ(member.run(src.data(), src.step(), src.data(), src.step(), src.size(), state), qorStatusOk);
        EXPECT_EQ(difference(src, [&](int32_t x, int32_t y, int32_t c) { return dst.get(x, y, c); }), "");
      }
      member.release(state);
    }
  });
}

TEST_F(Inpaint, EmptyMaskCopies) {
  Random random(3);
  Image<uint8_t> mask(9, 7);
  Image<float> distance(9, 7);
  distance.fill([] { return 1.0f; });
  forMembers([&](auto member) {
    Image<uint8_t> src(9, 7, member.count, 2), dst(9, 7, member.count, 2);
    src.fill([&] { return random.value<uint8_t>(); });
    // Whatever the radius: there is nothing that depends on it.
    for (const float radius : {1.0f, 5.0f, 1e30f}) {
      fill(member, src, distance, mask, radius, qorInpaintIsophote, dst);
      EXPECT_EQ(dst.bytes(), src.bytes());
    }
  });
}

// Nothing is known, so everything becomes 0.
TEST_F(Inpaint, FullMaskGivesZero) {
  Image<uint8_t> mask(12, 10);
  Image<float> distance(12, 10);
  mask.fill([] { return uint8_t(255); });
  float next = 0;
  distance.fill([&] { return next += 1; });
  forMembers([&](auto member) {
    Image<uint8_t> src(12, 10, member.count), dst(12, 10, member.count);
    src.fill([] { return uint8_t(200); });
    for (const int32_t flags : {qorInpaintExtrapolate, qorInpaintIsophote}) {
      fill(member, src, distance, mask, 2.0f, flags, dst);
      EXPECT_EQ(difference(dst, [](int32_t, int32_t, int32_t) { return uint8_t(0); }), "");
    }
  });
}

TEST_F(Inpaint, PixelsWithoutDistanceStay) {
  Image<uint8_t> mask(20, 20), src(20, 20), dst(20, 20);
  Image<float> distance(20, 20);
  for (int32_t x = 5; x < 15; ++x) mask.set(x, 9, uint8_t(1));
  src.fill([] { return uint8_t(10); });
  for (int32_t x = 5; x < 15; ++x) src.set(x, 9, uint8_t(99));
  const Member<1> member = {qoriInpaintInitAlloc_8u_C1R, qoriInpaint_8u_C1R, qoriInpaintFree_8u_C1R};
  // No key at all, then one.
  fill(member, src, distance, mask, 3.0f, qorInpaintExtrapolate, dst);
  EXPECT_EQ(dst.bytes(), src.bytes());
  distance.set(7, 9, 0.5f);
  fill(member, src, distance, mask, 3.0f, qorInpaintIsophote, dst);
  EXPECT_EQ(difference(dst, [](int32_t x, int32_t y,
                               int32_t) { return uint8_t(y == 9 && x >= 5 && x < 15 && x != 7 ? 99 : 10); }),
            "");
}

// A flat surrounding is continued.
TEST_F(Inpaint, RadiusOfOneUsesDirectNeighbours) {
  Image<uint8_t> mask(7, 7), src(7, 7), dst(7, 7);
  Image<float> distance(7, 7);
  mask.set(3, 3, 1);
  distance.set(3, 3, 0.5f);
  src.fill([] { return uint8_t(255); });
  src.set(2, 3, 10), src.set(4, 3, 20), src.set(3, 2, 30), src.set(3, 4, 40);
  const Member<1> member = {qoriInpaintInitAlloc_8u_C1R, qoriInpaint_8u_C1R, qoriInpaintFree_8u_C1R};
  fill(member, src, distance, mask, 1.0f, qorInpaintExtrapolate, dst);
  const Model model(src, distance, mask, 1.0f, qorInpaintExtrapolate);
  EXPECT_EQ(dst.get(3, 3), model.value(src, 3, 3, 0));
  // All at one distance on a symmetric hill: weights are equal, or all but none.
  EXPECT_GE(dst.get(3, 3), 23);
  EXPECT_LE(dst.get(3, 3), 27);
}

// Infinite and absurd distances, radii larger than the image: no order is promised, but everything ends in its bounds.
TEST_F(Inpaint, AnyDistances) {
  Random random(4);
  for (int i = 0; i < 60; ++i) {
    const int32_t width = random.width(50), height = int32_t(random.number(1, 20));
    Image<uint8_t> mask(width, height);
    Image<float> distance(width, height);
    fillMask(mask, random);
    distance.fill([&] { return random.chance(0.3) ? HUGE_VALF : random.anyFloat(); });
    forMembers([&](auto member) {
      Image<uint8_t> src(width, height, member.count, 1), dst(width, height, member.count, 1);
      fillImage(src, random);
      for (const int32_t flags : {qorInpaintExtrapolate, qorInpaintIsophote}) {
        fill(member, src, distance, mask, random.pick(std::vector<float>{1.0f, 3.3f, 70.0f, 300.0f}), flags, dst);
      }
    });
  }
}

TEST_F(Inpaint, RadiusBeyondAnyBlock) {
  Image<uint8_t> mask(5, 5);
  Image<float> distance(5, 5);
  mask.set(2, 2, 1);
  forMembers([&](auto member) {
    typename decltype(member)::State* state = nullptr;
    for (const float radius : {6300.0f, 1e9f, 3e38f, HUGE_VALF}) {
      EXPECT_EQ(member.init(&state, distance.data(), distance.step(), mask.data(), mask.step(), mask.size(), radius, 0),
                qorStatusNoMemory);
    }
    EXPECT_EQ(state, nullptr);
    EXPECT_EQ(services::liveBlocks(), 0);
  });
}

TEST_F(Inpaint, FailingAllocations) {
  Image<uint8_t> mask(15, 11);
  Image<float> distance(15, 11);
  for (const bool empty : {true, false}) {
    if (!empty) mask.set(7, 5, 1);
    forMembers([&](auto member) {
      typename decltype(member)::State* state = nullptr;
      const auto init = [&] {
        return member.init(&state, distance.data(), distance.step(), mask.data(), mask.step(), mask.size(), 2.0f, 0);
      };
      services::reset();
      ASSERT_EQ(init(), qorStatusOk);
      member.release(state);
      const int64_t allocations = services::allocations();
      EXPECT_GE(allocations, empty ? 1 : 3);
      for (int64_t successes = 0; successes < allocations; ++successes) {
        services::reset();
        services::failAfter(successes);
        state = nullptr;
        EXPECT_EQ(init(), qorStatusNoMemory) << successes;
        EXPECT_EQ(state, nullptr);
        EXPECT_EQ(services::liveBlocks(), 0);
      }
      services::reset();
    });
  }
}

TEST_F(Inpaint, Statuses) {
  Image<uint8_t> mask(10, 7, 1, 2);
  Image<float> distance(10, 7, 1, 1);
  mask.set(4, 4, 1);
  forMembers([&](auto member) {
    using State = typename decltype(member)::State;
    struct Init {
      State** state;
      const float* distance;
      int32_t distanceStep;
      const uint8_t* mask;
      int32_t maskStep;
      QoriSize size;
      float radius;
      int32_t flags;
    };
    State* state = nullptr;
    expectStatuses<Init>(
        {&state, distance.data(), distance.step(), mask.data(), mask.step(), mask.size(), 2.0f, 1},
        {{"mask", qorStatusNullPtr, [](Init& a) { a.mask = nullptr; }},
         {"distance", qorStatusNullPtr, [](Init& a) { a.distance = nullptr; }},
         {"state", qorStatusNullPtr, [](Init& a) { a.state = nullptr; }},
         {"width", qorStatusBadSize, [](Init& a) { a.size.width = 0; }},
         {"height", qorStatusBadSize, [](Init& a) { a.size.height = -3; }},
         {"maskStep", qorStatusBadStep, [](Init& a) { a.maskStep = 9; }},
         {"distanceStep", qorStatusBadStep, [](Init& a) { a.distanceStep = 39; }},
         {"distanceStep", qorStatusBadStepAlign, [](Init& a) { a.distanceStep = 42; }},
         {"flags", qorStatusBadArg, [](Init& a) { a.flags = 2; }},
         {"flags", qorStatusBadArg, [](Init& a) { a.flags = -1; }},
         {"radius", qorStatusBadArg, [](Init& a) { a.radius = 0.999f; }},
         {"radius", qorStatusBadArg, [](Init& a) { a.radius = NAN; }}},
        [&](const Init& a) {
          return member.init(a.state, a.distance, a.distanceStep, a.mask, a.maskStep, a.size, a.radius, a.flags);
        },
        [&] { return std::vector<uint8_t>(1, state != nullptr); });
    ASSERT_NE(state, nullptr);

    Image<uint8_t> src(10, 7, member.count, 2), dst(10, 7, member.count, 2);
    struct Run {
      const uint8_t* src;
      int32_t srcStep;
      uint8_t* dst;
      int32_t dstStep;
      QoriSize size;
      State* state;
    };
    expectStatuses<Run>(
        {src.data(), src.step(), dst.data(), dst.step(), src.size(), state},
        {{"src", qorStatusNullPtr, [](Run& a) { a.src = nullptr; }},
         {"dst", qorStatusNullPtr, [](Run& a) { a.dst = nullptr; }},
         {"state", qorStatusNullPtr, [](Run& a) { a.state = nullptr; }},
         {"width", qorStatusBadSize, [](Run& a) { a.size.width = 0; }},
         {"height", qorStatusBadSize, [](Run& a) { a.size.height = 0; }},
         {"width", qorStatusBadSize, [](Run& a) { a.size.width = 9; }},
         {"height", qorStatusBadSize, [](Run& a) { a.size.height = 6; }},
         {"srcStep", qorStatusBadStep, [&](Run& a) { a.srcStep = 10 * member.count - 1; }},
         {"dstStep", qorStatusBadStep, [&](Run& a) { a.dstStep = 10 * member.count - 1; }}},
        [&](const Run& a) { return member.run(a.src, a.srcStep, a.dst, a.dstStep, a.size, a.state); },
        [&] { return dst.bytes(); });
    EXPECT_EQ(member.release(state), qorStatusOk);
    EXPECT_EQ(member.release(nullptr), qorStatusNullPtr);
  });
}

// Planes for one channel are no room for three.
TEST_F(Inpaint, StateForAnotherNumberOfChannels) {
  Image<uint8_t> mask(6, 6), dst(6, 6, 3);
  Image<float> distance(6, 6);
  mask.set(3, 3, 1);
  QoriInpaintState_8u_C1R* state = nullptr;
  ASSERT_EQ(qoriInpaintInitAlloc_8u_C1R(&state, distance.data(), 24, mask.data(), 6, {6, 6}, 2, 0), qorStatusOk);
  EXPECT_EQ(qoriInpaint_8u_C3R(dst.data(), 18, dst.data(), 18, {6, 6}, state), qorStatusBadSize);
  qoriInpaintFree_8u_C1R(state);
}

}  // namespace
