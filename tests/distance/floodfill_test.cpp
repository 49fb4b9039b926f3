// Flood fills: every member against a model that goes pixel by pixel, on images made to be awkward.
#include <gtest/gtest.h>
#include <math.h>

#include <array>
#include <vector>

#include "support/any_image.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

enum class Kind { plain, range, grad };

template <class T>
struct Member {
  using Type = T;
  Kind kind;
  int32_t channels, connectivity;
  // newValue, minDelta and maxDelta are arrays of `channels` elements.
  QorStatus (*call)(T*, int32_t, QoriSize, QoriPoint, const T*, const T*, const T*, QoriConnectedComp*, uint8_t*);

  std::string name() const {
    return std::string(kind == Kind::plain   ? ""
                       : kind == Kind::range ? "Range"
                                             : "Grad") +
           std::to_string(connectivity) + "Con C" + std::to_string(channels) + " of " + std::to_string(sizeof(T)) +
           " bytes";
  }
  int32_t bufferSize(QoriSize size) const {
    int32_t bytes = -1;
    EXPECT_EQ(kind == Kind::grad ? qoriFloodFillGetSize_Grad(size, &bytes) : qoriFloodFillGetSize(size, &bytes),
              qorStatusOk);
    return bytes;
  }
};

#define ARGS                                                                                          \
  T *image, int32_t step, QoriSize size, QoriPoint seed, const T *value, const T *low, const T *high, \
      QoriConnectedComp *region, uint8_t *buffer
#define MEMBERS(CON, NUMBER, TYPE)                                                                               \
  body(Member<T>{Kind::plain, 1, NUMBER, [](ARGS) {                                                              \
                   (void)low, (void)high;                                                                        \
                   return qoriFloodFill_##CON##_##TYPE##_C1IR(image, step, size, seed, *value, region, buffer);  \
                 }});                                                                                            \
  body(Member<T>{Kind::plain, 3, NUMBER, [](ARGS) {                                                              \
                   (void)low, (void)high;                                                                        \
                   return qoriFloodFill_##CON##_##TYPE##_C3IR(image, step, size, seed, value, region, buffer);   \
                 }});                                                                                            \
  body(Member<T>{Kind::range, 1, NUMBER, [](ARGS) {                                                              \
                   return qoriFloodFill_Range##CON##_##TYPE##_C1IR(image, step, size, seed, *value, *low, *high, \
                                                                   region, buffer);                              \
                 }});                                                                                            \
  body(Member<T>{Kind::range, 3, NUMBER, qoriFloodFill_Range##CON##_##TYPE##_C3IR});                             \
  body(Member<T>{Kind::grad, 1, NUMBER, [](ARGS) {                                                               \
                   return qoriFloodFill_Grad##CON##_##TYPE##_C1IR(image, step, size, seed, *value, *low, *high,  \
                                                                  region, buffer);                               \
                 }});                                                                                            \
  body(Member<T>{Kind::grad, 3, NUMBER, qoriFloodFill_Grad##CON##_##TYPE##_C3IR})

template <class Body>
void forMembers(Body body) {
  {
    using T = uint8_t;
    MEMBERS(4Con, 4, 8u);
    MEMBERS(8Con, 8, 8u);
  }
  {
    using T = uint16_t;
    MEMBERS(4Con, 4, 16u);
    MEMBERS(8Con, 8, 16u);
  }
  {
    using T = float;
    MEMBERS(4Con, 4, 32f);
    MEMBERS(8Con, 8, 32f);
  }
}
#undef MEMBERS
#undef ARGS

// --- model ---

template <class T>
using Pixel = std::array<T, 3>;  // what lies beyond the channels is 0

template <class T>
struct Model {
  int32_t width, height;
  std::vector<Pixel<T>> pixels;
  Pixel<T>& at(int32_t x, int32_t y) { return pixels[size_t(y) * width + x]; }
  bool inImage(int32_t x, int32_t y) const { return x >= 0 && x < width && y >= 0 && y < height; }
};

struct Span {
  int32_t row, left, right, parentLeft, parentRight, direction;
};

struct Outcome {
  bool regionWritten = true;
  double area = 0;
  int32_t left = INT32_MAX, right = INT32_MIN, top = INT32_MAX, bottom = INT32_MIN;
  int64_t mostOpen = 0, dropped = 0, pops = 0;
  void widen(const Span& s) {
    left = std::min(left, s.left);
    right = std::max(right, s.right);
    top = std::min(top, s.row);
    bottom = std::max(bottom, s.row);
  }
};

// The forward row, then the backward row on the left and on the right of the parent.
template <class Scan>
void scanAround(const Span& s, int32_t connectivity, int32_t width, Scan scan) {
  const bool eight = connectivity == 8;
  const int32_t first = eight ? std::max(s.left - 1, 0) : s.left;
  const int32_t end = eight ? std::min(s.right + 2, width) : s.right + 1;
  scan(s.row - s.direction, first, end, s.direction);
  scan(s.row + s.direction, first, s.parentLeft, -s.direction);
  scan(s.row + s.direction, s.parentRight + 1, end, -s.direction);
}

template <class T, class Matches>
Outcome modelOfValues(Model<T>& image, QoriPoint seed, const Pixel<T>& newValue, int32_t connectivity, bool ranged,
                      Matches matches) {
  Outcome outcome;
  const auto spanFrom = [&](int32_t x, int32_t y) {
    Span s = {y, x, x, 0, 0, 0};
    image.at(x, y) = newValue;
    while (s.left > 0 && matches(image.at(s.left - 1, y))) image.at(--s.left, y) = newValue;
    while (s.right + 1 < image.width && matches(image.at(s.right + 1, y))) image.at(++s.right, y) = newValue;
    outcome.area += s.right - s.left + 1;
    return s;
  };
  Span start = spanFrom(seed.x, seed.y);
  outcome.widen(start);
  if (image.height == 1) return outcome;
  const int64_t pixels = int64_t(image.width) * image.height, capacity = pixels / 4;
  std::vector<Span> stack;
  const auto push = [&](const Span& s) {
    stack.push_back(s);
    outcome.mostOpen = std::max(outcome.mostOpen, int64_t(stack.size()));
    if (ranged && int64_t(stack.size()) == capacity) {
      outcome.dropped += int64_t(stack.size());
      stack.clear();
    }
  };
  start.direction = seed.y == image.height - 1 ? -1 : 1;
  start.parentLeft = start.right + 1;
  start.parentRight = start.right;
  push(start);
  while (!stack.empty() && outcome.pops < 64 * pixels) {
    const Span s = stack.back();
    stack.pop_back();
    ++outcome.pops;
    outcome.widen(s);
    scanAround(s, connectivity, image.width, [&](int32_t y, int32_t first, int32_t end, int32_t direction) {
      if (y < 0 || y >= image.height) return;
      for (int32_t x = first; x < end;) {
        if (!matches(image.at(x, y))) {
          ++x;
          continue;
        }
        Span child = spanFrom(x, y);
        child.parentLeft = s.left;
        child.parentRight = s.right;
        child.direction = direction;
        push(child);
        x = child.right + 2;
      }
    });
  }
  return outcome;
}

template <class T, class Allowed>
Outcome modelOfSteps(Model<T>& image, QoriPoint seed, const Pixel<T>& newValue, int32_t connectivity, Allowed allowed) {
  Outcome outcome;
  std::vector<bool> map(size_t(image.width) * image.height);
  const auto unvisited = [&](int32_t x, int32_t y) { return image.inImage(x, y) && !map[size_t(y) * image.width + x]; };
  const auto mark = [&](int32_t x, int32_t y) { map[size_t(y) * image.width + x] = true; };
  std::vector<Span> stack;
  Span start = {seed.y, seed.x, seed.x, 0, 0, 1};
  mark(seed.x, seed.y);
  const auto along = [&](int32_t y, int32_t from, int32_t to) {
    return unvisited(to, y) && allowed(image.at(from, y), image.at(to, y));
  };
  while (along(seed.y, start.right, start.right + 1)) mark(++start.right, seed.y);
  while (along(seed.y, start.left, start.left - 1)) mark(--start.left, seed.y);
  start.parentLeft = start.right + 1;
  start.parentRight = start.right;
  stack.push_back(start);
  while (!stack.empty()) {
    const Span s = stack.back();
    stack.pop_back();
    outcome.widen(s);
    scanAround(s, connectivity, image.width, [&](int32_t y, int32_t first, int32_t end, int32_t direction) {
      const auto fromSpan = [&](int32_t x) {
        const int32_t reach = connectivity == 8 ? 1 : 0;
        for (int32_t p = x - reach; p <= x + reach; ++p) {
          if (p >= s.left && p <= s.right && allowed(image.at(p, s.row), image.at(x, y))) return true;
        }
        return false;
      };
      for (int32_t x = first; x < end;) {
        if (!unvisited(x, y) || !fromSpan(x)) {
          ++x;
          continue;
        }
        Span child = {y, x, x, s.left, s.right, direction};
        mark(x, y);
        while (along(y, child.left, child.left - 1)) mark(--child.left, y);
        while (unvisited(child.right + 1, y) &&
               (allowed(image.at(child.right, y), image.at(child.right + 1, y)) || fromSpan(child.right + 1))) {
          mark(++child.right, y);
        }
        stack.push_back(child);
        x = child.right + 2;
      }
    });
    for (int32_t x = s.left; x <= s.right; ++x) image.at(x, s.row) = newValue;
    outcome.area += s.right - s.left + 1;
  }
  return outcome;
}

template <class T>
Outcome modelOf(const Member<T>& member, Model<T>& image, QoriPoint seed, const Pixel<T>& newValue,
                const Pixel<T>& minDelta, const Pixel<T>& maxDelta) {
  constexpr bool isFloat = std::is_same_v<T, float>;
  const int32_t channels = member.channels;
  const auto every = [=](auto holds) {
    for (size_t c = 0; c < size_t(channels); ++c) {
      if (!holds(c)) return false;
    }
    return true;
  };
  if (member.kind == Kind::grad) {
    return modelOfSteps(image, seed, newValue, member.connectivity, [=](const Pixel<T>& p, const Pixel<T>& q) {
      return every([&](size_t c) {
        if constexpr (isFloat) {
          const float shift = (minDelta[c] - maxDelta[c]) * 0.5f, limit = (minDelta[c] + maxDelta[c]) * 0.5f;
          const float moved = q[c] + shift - p[c];
          return fabs(double(moved)) <= double(limit);
        } else {
          return -int32_t(minDelta[c]) <= q[c] - p[c] && q[c] - p[c] <= int32_t(maxDelta[c]);
        }
      });
    });
  }
  const Pixel<T> s = image.at(seed.x, seed.y);
  if (every([&](size_t c) { return s[c] == newValue[c]; })) {
    Outcome outcome;
    outcome.regionWritten = false;
    return outcome;
  }
  return modelOfValues(image, seed, newValue, member.connectivity, member.kind == Kind::range, [=](const Pixel<T>& p) {
    return every([&](size_t c) {
      if (member.kind == Kind::plain) return p[c] == s[c];
      if constexpr (isFloat) {
        return p[c] >= s[c] - minDelta[c] && p[c] <= s[c] + maxDelta[c];
      } else {
        return p[c] >= int32_t(s[c]) - minDelta[c] && p[c] <= int32_t(s[c]) + maxDelta[c];
      }
    });
  });
}

// --- comparison ---

template <class T>
struct Case {
  QoriPoint seed;
  Pixel<T> newValue, minDelta, maxDelta;
};

template <class T>
Outcome expectAsModel(const Member<T>& member, const Image<T>& image, const Case<T>& c, Random& random) {
  const int32_t channels = member.channels;
  Model<T> model = {image.width(), image.height(), {}};
  for (int32_t y = 0; y < image.height(); ++y) {
    for (int32_t x = 0; x < image.width(); ++x) {
      Pixel<T> p = {};
      for (int32_t k = 0; k < channels; ++k) p[size_t(k)] = image.get(x, y, k);
      model.pixels.push_back(p);
    }
  }
  const Outcome should = modelOf(member, model, c.seed, c.newValue, c.minDelta, c.maxDelta);

  GuardedMemory buffer(size_t(member.bufferSize(image.size())), random.chance(0.5) ? Edge::end : Edge::begin);
  memset(buffer.data(), int(random.number(0, 255)), buffer.size());
  QoriConnectedComp region;
  memset(&region, 0x33, sizeof region);
  const QoriConnectedComp before = region;
  EXPECT_EQ(member.call(image.data(), image.step(), image.size(), c.seed, c.newValue.data(), c.minDelta.data(),
                        c.maxDelta.data(), &region, buffer.data()),
            qorStatusOk);
  const std::string where = member.name() + " " + std::to_string(image.width()) + "x" + std::to_string(image.height()) +
                            " from " + std::to_string(c.seed.x) + ", " + std::to_string(c.seed.y);
  EXPECT_EQ(difference(image, [&](int32_t x, int32_t y, int32_t k) { return model.at(x, y)[size_t(k)]; }), "") << where;
  EXPECT_TRUE(image.gapsIntact()) << where;
  EXPECT_TRUE(buffer.patternIntact()) << where;
  if (!should.regionWritten) {
    EXPECT_EQ(memcmp(&region, &before, sizeof region), 0) << where;
    return should;
  }
  EXPECT_EQ(region.area, should.area) << where;
  EXPECT_EQ(region.rect.x, should.left) << where;
  EXPECT_EQ(region.rect.y, should.top) << where;
  EXPECT_EQ(region.rect.width, should.right - should.left + 1) << where;
  EXPECT_EQ(region.rect.height, should.bottom - should.top + 1) << where;
  for (size_t k = 0; k < 3; ++k) {
    EXPECT_TRUE(sameValue(region.value[k], k < size_t(channels) ? double(c.newValue[k]) : 0.0)) << where;
  }
  return should;
}

// Base values in patterns of connected, nearly closed and thinly linked regions.
template <class T>
void drawPattern(Image<T>& image, int32_t pattern, Random& random, T on, T off) {
  const int32_t density = int32_t(random.number(1, 99));
  for (int32_t y = 0; y < image.height(); ++y) {
    for (int32_t x = 0; x < image.width(); ++x) {
      const int32_t ring = std::min(std::min(x, y), std::min(image.width() - 1 - x, image.height() - 1 - y));
      bool set = true;
      switch (pattern) {
        case 0: set = true; break;                                                                 // flat
        case 1: set = (x + y) % 2 == 0; break;                                                     // checkerboard
        case 2: set = y == image.height() / 2 || x % 2 == 0; break;                                // comb
        case 3: set = ring % 2 == 0 || (x == image.width() / 2 && y < image.height() / 2); break;  // rings with a gate
        case 4: set = y % 2 == 0 || x == (y % 4 == 1 ? 0 : image.width() - 1); break;              // meander
        case 5: set = ring % 2 == 0 || (y == ring + 1 && x == ring); break;                        // spiral
        case 6: set = (x % 2 == 0 && y % 2 == 0) || (x % 2 == 1 && y % 2 == 1 && random.chance(0.8)); break;  // mesh
        case 7: set = x % 2 == 0 || y % 3 == 0; break;                                                        // grid
        default: set = random.number(0, 99) < density;
      }
      for (int32_t c = 0; c < image.channels(); ++c) image.set(x, y, c, set ? on : off);
    }
  }
}
constexpr int32_t patterns = 12;

QoriSize anySize(Random& random) {
  if (random.chance(0.3)) return {int32_t(random.number(1, 10)), int32_t(random.number(1, 10))};
  return {random.width(200), int32_t(random.chance(0.2) ? random.number(1, 3) : random.number(1, 40))};
}

QoriPoint anySeed(Random& random, QoriSize size) {
  const auto place = [&](int32_t n) {
    return random.chance(0.2) ? 0 : random.chance(0.2) ? n - 1 : int32_t(random.number(0, n - 1));
  };
  return {place(size.width), place(size.height)};
}

template <class T>
Pixel<T> pixel(int32_t channels, T value) {
  Pixel<T> p = {};
  for (size_t c = 0; c < size_t(channels); ++c) p[c] = value;
  return p;
}

template <class T>
Pixel<T> anyPixel(Random& random, int32_t channels, int64_t first, int64_t last) {
  Pixel<T> p = {};
  for (size_t c = 0; c < size_t(channels); ++c) p[c] = T(random.number(first, last));
  return p;
}

struct FloodFill : ::testing::Test {
  void SetUp() override { services::reset(); }
};

}  // namespace

TEST_F(FloodFill, FillsPatterns) {
  Random random(1);
  int64_t mostDropped = 0;
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    for (int round = 0; round < 60; ++round) {
      const QoriSize size = anySize(random);
      AnyImage<T> image(random, size, member.channels);
      drawPattern<T>(image, int32_t(random.number(0, patterns - 1)), random, 100, 50);
      const Case<T> c = {anySeed(random, size), pixel<T>(member.channels, random.chance(0.1) ? T(100) : T(200)),
                         pixel<T>(member.channels, T(random.number(0, 49))),
                         pixel<T>(member.channels, T(random.number(0, 49)))};
      mostDropped = std::max(mostDropped, expectAsModel(member, image, c, random).dropped);
    }
  });
  EXPECT_GT(mostDropped, 0);
}

// New values inside the range among them, which the Range members meet again.
TEST_F(FloodFill, FillsNoiseOfFewValues) {
  Random random(2);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    for (int round = 0; round < 60; ++round) {
      const QoriSize size = anySize(random);
      AnyImage<T> image(random, size, member.channels);
      const int64_t values = random.number(1, 12);
      image.fill([&] { return T(random.number(0, values)); });
      if (member.channels == 3 && random.chance(0.5)) {
        for (int32_t y = 0; y < size.height; ++y) {
          for (int32_t x = 0; x < size.width; ++x) image.set(x, y, 1, T(3)), image.set(x, y, 2, image.get(x, y, 0));
        }
      }
      const Case<T> c = {anySeed(random, size), anyPixel<T>(random, member.channels, 0, 2 * values),
                         anyPixel<T>(random, member.channels, 0, values),
                         anyPixel<T>(random, member.channels, 0, values)};
      expectAsModel(member, image, c, random);
    }
  });
}

TEST_F(FloodFill, FillsWholeRangesOfValues) {
  Random random(3);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    for (int round = 0; round < 30; ++round) {
      const QoriSize size = anySize(random);
      AnyImage<T> image(random, size, member.channels);
      image.fill([&] { return random.value<T>(); });
      Case<T> c = {anySeed(random, size), {}, {}, {}};
      for (size_t k = 0; k < size_t(member.channels); ++k) {
        c.newValue[k] = random.value<T>();
        c.minDelta[k] = T(fabs(double(random.value<T>())));
        c.maxDelta[k] = T(fabs(double(random.value<T>())));
      }
      expectAsModel(member, image, c, random);
    }
  });
}

// Smooth slopes: steps that are allowed one way only, and diagonals.
TEST_F(FloodFill, FollowsSlopes) {
  Random random(4);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    if (member.kind != Kind::grad) return;
    for (int round = 0; round < 60; ++round) {
      const QoriSize size = anySize(random);
      AnyImage<T> image(random, size, member.channels);
      const int64_t across = random.number(-1, 1), down = random.number(-2, 2), rough = random.number(0, 3);
      for (int32_t y = 0; y < size.height; ++y) {
        for (int32_t x = 0; x < size.width; ++x) {
          for (int32_t k = 0; k < member.channels; ++k) {
            image.set(x, y, k, T(std::max<int64_t>(0, 100 + across * x / 2 + down * y + random.number(0, rough))));
          }
        }
      }
      const Case<T> c = {anySeed(random, size), anyPixel<T>(random, member.channels, 0, 255),
                         anyPixel<T>(random, member.channels, 0, 3), anyPixel<T>(random, member.channels, 0, 3)};
      expectAsModel(member, image, c, random);
    }
  });
}

TEST_F(FloodFill, EndsWithAnyFloats) {
  Random random(5);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    if constexpr (std::is_same_v<T, float>) {
      for (int round = 0; round < 80; ++round) {
        const QoriSize size = anySize(random);
        AnyImage<T> image(random, size, member.channels);
        std::vector<float> palette;
        for (int i = 0; i < 4; ++i) palette.push_back(random.anyFloat());
        image.fill([&] { return random.pick(palette); });
        Case<T> c = {anySeed(random, size), {}, {}, {}};
        for (size_t k = 0; k < size_t(member.channels); ++k) {
          const auto delta = [&] {
            const float d = random.anyFloat();
            return member.kind == Kind::grad && d < 0 ? -d : d;
          };
          c.newValue[k] = random.chance(0.5) ? random.pick(palette) : random.anyFloat();
          c.minDelta[k] = delta();
          c.maxDelta[k] = delta();
        }
        expectAsModel(member, image, c, random);
      }
    }
  });
}

// All images of 3 x 3 pixels of two values, from all seeds: the capacity of two spans among them.
TEST_F(FloodFill, FillsAllTinyImages) {
  Random random(6);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    if (member.channels == 3 || sizeof(T) != 1) return;
    for (int32_t bits = 0; bits < 512; ++bits) {
      const QoriPoint seed = {bits * 7 % 3, bits * 5 / 3 % 3};
      Image<T> image(3, 3);
      for (int32_t i = 0; i < 9; ++i) image.set(i % 3, i / 3, T(bits >> i & 1 ? 10 : 20));
      expectAsModel(member, image, {seed, pixel<T>(1, T(bits % 2 ? 12 : 90)), pixel<T>(1, T(3)), pixel<T>(1, T(3))},
                    random);
    }
  });
}

// Trees of spans with as many open at once as can be, in narrow images too.
TEST_F(FloodFill, FitsIntoTheReportedSize) {
  Random random(7);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    for (int32_t width = 1; width <= 9; ++width) {
      for (const int32_t height : {1, 2, 3, 64, 301}) {
        for (const int32_t pattern : {0, 1, 2, 6, 7, 8}) {
          Image<T> image(width, height, member.channels);
          drawPattern<T>(image, pattern, random, 100, 50);
          expectAsModel(member, image,
                        {anySeed(random, image.size()), pixel<T>(member.channels, T(7)),
                         pixel<T>(member.channels, T(9)), pixel<T>(member.channels, T(9))},
                        random);
        }
      }
    }
  });
}

TEST_F(FloodFill, EndsARangeFillThatCircles) {
  Random random(8);
  int64_t mostPops = INT64_MIN;  // against the limit
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    if (member.kind != Kind::range) return;
    for (int round = 0; round < 20; ++round) {
      const QoriSize size = {int32_t(random.number(3, 14)), int32_t(random.number(3, 14))};
      AnyImage<T> image(random, size, member.channels);
      drawPattern<T>(image, round % patterns, random, 100, 50);
      const Outcome outcome = expectAsModel(member, image,
                                            {anySeed(random, size), pixel<T>(member.channels, T(101)),
                                             pixel<T>(member.channels, T(3)), pixel<T>(member.channels, T(3))},
                                            random);
      mostPops = std::max(mostPops, outcome.pops - 64 * int64_t(size.width) * size.height);
    }
  });
  EXPECT_EQ(mostPops, 0) << "a fill should meet the limit";
}

// Sides beyond 16 bits.
TEST_F(FloodFill, FillsLongImages) {
  Random random(9);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    if (sizeof(T) != 1) return;
    for (const QoriSize size : {QoriSize{65537, 3}, QoriSize{65535, 3}, QoriSize{3, 65537}}) {
      Image<T> image(size.width, size.height, member.channels);
      drawPattern<T>(image, 2, random, 100, 50);  // the comb opens as many spans at once as can be
      expectAsModel(member, image,
                    {{size.width - 1, size.height / 2},
                     pixel<T>(member.channels, T(7)),
                     pixel<T>(member.channels, T(9)),
                     pixel<T>(member.channels, T(9))},
                    random);
    }
  });
}

// Three channels of 8u and 32f with rows that lie over each other: nothing but an end inside the memory is asked for.
TEST_F(FloodFill, EndsWithOverlappingRows) {
  Random random(10);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    if (member.channels == 1 || sizeof(T) == 2) return;
    for (int round = 0; round < 60; ++round) {
      const QoriSize size = {int32_t(random.number(1, 30)), int32_t(random.number(1, 30))};
      const int32_t step = int32_t(size.width * sizeof(T));
      GuardedMemory image(size_t(step) * (size.height - 1) + size_t(step) * 3);
      Image<T> values(int32_t(image.size() / sizeof(T)), 1);
      values.fill([&] { return T(random.number(0, 2)); });
      memcpy(image.data(), values.data(), image.size());
      GuardedMemory buffer{size_t(member.bufferSize(size))};
      QoriConnectedComp region;
      const Pixel<T> value = anyPixel<T>(random, 3, 0, 2), low = anyPixel<T>(random, 3, 0, 2),
                     high = anyPixel<T>(random, 3, 0, 2);
      EXPECT_EQ(member.call(reinterpret_cast<T*>(image.data()), step, size, anySeed(random, size), value.data(),
                            low.data(), high.data(), &region, buffer.data()),
                qorStatusOk);
      EXPECT_TRUE(image.patternIntact() && buffer.patternIntact());
    }
  });
}

TEST_F(FloodFill, LeavesTheRegionWhereTheSeedHasTheNewValue) {
  Random random(11);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    Image<T> image(9, 5, member.channels);
    image.fill([] { return T(4); });
    Case<T> c = {
        {4, 2}, pixel<T>(member.channels, T(4)), pixel<T>(member.channels, T(1)), pixel<T>(member.channels, T(1))};
    EXPECT_EQ(expectAsModel(member, image, c, random).regionWritten, member.kind == Kind::grad);
    // One channel that differs is enough.
    if (member.channels == 3) {
      c.newValue[2] = T(5);
      EXPECT_TRUE(expectAsModel(member, image, c, random).regionWritten);
    }
  });
}

TEST_F(FloodFill, FillsASinglePixel) {
  Random random(12);
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    Image<T> image(5, 5, member.channels);
    drawPattern<T>(image, 1, random, 100, 50);
    for (int32_t c = 0; c < member.channels; ++c) image.set(2, 2, c, T(200));
    const Outcome outcome = expectAsModel(
        member, image,
        {{2, 2}, pixel<T>(member.channels, T(7)), pixel<T>(member.channels, T(9)), pixel<T>(member.channels, T(9))},
        random);
    EXPECT_EQ(outcome.area, 1);
    EXPECT_EQ(image.get(2, 2), T(7));
  });
}

TEST_F(FloodFill, ReportsSizes) {
  for (const QoriSize size : {QoriSize{1, 1}, QoriSize{640, 480}, QoriSize{3, 7}, QoriSize{65535, 65535}}) {
    const int64_t plain = int64_t(6) * size.width * size.height + 32;
    int32_t bytes = 0;
    EXPECT_EQ(qoriFloodFillGetSize(size, &bytes), qorStatusOk);
    EXPECT_EQ(bytes, int32_t(uint32_t(plain)));
    EXPECT_EQ(qoriFloodFillGetSize_Grad(size, &bytes), qorStatusOk);
    EXPECT_EQ(bytes, int32_t(uint32_t(plain + int64_t(size.width + 2) * (size.height + 2))));
  }
  int32_t bytes = 77;
  for (const auto query : {qoriFloodFillGetSize, qoriFloodFillGetSize_Grad}) {
    EXPECT_EQ(query({0, 0}, nullptr), qorStatusNullPtr);
    EXPECT_EQ(query({0, 5}, &bytes), qorStatusBadSize);
    EXPECT_EQ(query({5, 0}, &bytes), qorStatusBadSize);
    EXPECT_EQ(query({-1, 5}, &bytes), qorStatusBadSize);
  }
  EXPECT_EQ(bytes, 77);
}

TEST_F(FloodFill, ChecksArgumentsInOrder) {
  forMembers([&](const auto& member) {
    using T = typename std::decay_t<decltype(member)>::Type;
    struct Args {
      T* image;
      int32_t step;
      QoriSize size;
      QoriPoint seed;
      const T *value, *low, *high;
      QoriConnectedComp* region;
      uint8_t* buffer;
    };
    constexpr int32_t bytes = int32_t(sizeof(T));
    const bool three = member.channels == 3, deltas = member.kind != Kind::plain;
    Image<T> image(8, 6, member.channels, 2);
    std::vector<uint8_t> buffer(size_t(member.bufferSize(image.size())));
    QoriConnectedComp region = {};
    const Pixel<T> value = pixel<T>(3, T(9)), one = pixel<T>(3, T(1));
    const T negative[3] = {T(1), T(1), T(three ? -1 : 1)}, negativeFirst[3] = {T(-1), T(1), T(1)};
    const Args good = {image.data(), image.step(), image.size(), {1, 2},       value.data(),
                       one.data(),   one.data(),   &region,      buffer.data()};
    std::vector<Fault<Args>> faults = {{"image", qorStatusNullPtr, [](Args& a) { a.image = nullptr; }},
                                       {"region", qorStatusNullPtr, [](Args& a) { a.region = nullptr; }},
                                       {"buffer", qorStatusNullPtr, [](Args& a) { a.buffer = nullptr; }}};
    if (three) {
      faults.push_back({"value", qorStatusNullPtr, [](Args& a) { a.value = nullptr; }});
      if (deltas) {
        faults.push_back({"low", qorStatusNullPtr, [](Args& a) { a.low = nullptr; }});
        faults.push_back({"high", qorStatusNullPtr, [](Args& a) { a.high = nullptr; }});
      }
    }
    faults.push_back({"size", qorStatusBadSize, [](Args& a) { a.size.width = 0; }});
    faults.push_back({"size", qorStatusBadSize, [](Args& a) { a.size.height = -3; }});
    // Three channels of 8u and 32f are compared with a row of one.
    const int32_t least = 8 * bytes * (three && bytes == 2 ? 3 : 1);
    faults.push_back({"step", qorStatusBadStep, [=](Args& a) { a.step = least - 1; }});
    faults.push_back({"step", qorStatusBadStep, [=](Args& a) { a.step = -a.step; }});
    if (bytes > 1) faults.push_back({"step", qorStatusBadStepAlign, [=](Args& a) { a.step += 1; }});
    if (bytes == 4 && member.kind == Kind::grad) {
      faults.push_back({"step", qorStatusBadStepAlign, [=](Args& a) { a.step += 2; }});
    }
    faults.push_back({"seed", qorStatusOutOfRange, [](Args& a) { a.seed.x = -1; }});
    faults.push_back({"seed", qorStatusOutOfRange, [](Args& a) { a.seed.x = a.size.width; }});
    faults.push_back({"seed", qorStatusOutOfRange, [](Args& a) { a.seed.y = -1; }});
    faults.push_back({"seed", qorStatusOutOfRange, [](Args& a) { a.seed.y = a.size.height; }});
    if (bytes == 4 && member.kind == Kind::grad) {
      faults.push_back({"low", qorStatusOutOfRange, [&](Args& a) { a.low = negativeFirst; }});
      faults.push_back({"high", qorStatusOutOfRange, [&](Args& a) { a.high = negativeFirst; }});
      if (three) faults.push_back({"low", qorStatusOutOfRange, [&](Args& a) { a.low = negative; }});
      if (three) faults.push_back({"high", qorStatusOutOfRange, [&](Args& a) { a.high = negative; }});
    }
    expectStatuses<Args>(
        good, faults,
        [&](const Args& a) {
          // Members of one channel take values.
          const T none[3] = {};
          return member.call(a.image, a.step, a.size, a.seed,
                             a.value ? a.value
                             : three ? nullptr
                                     : none,
                             a.low   ? a.low
                             : three ? nullptr
                                     : none,
                             a.high  ? a.high
                             : three ? nullptr
                                     : none,
                             a.region, a.buffer);
        },
        [&] {
          std::vector<uint8_t> all = image.bytes();
          all.insert(all.end(), reinterpret_cast<uint8_t*>(&region), reinterpret_cast<uint8_t*>(&region + 1));
          all.insert(all.end(), buffer.begin(), buffer.end());
          return all;
        });

    // The smallest step that is accepted, and for 32f one that is only even (Grad members refuse it).
    image.fill([] { return T(0); });
    Args args = good;
    args.step = least;
    args.size.height = 2;
    args.seed = {0, 0};
    const auto call = [&](const Args& a) {
      return member.call(a.image, a.step, a.size, a.seed, a.value, a.low, a.high, a.region, a.buffer);
    };
    EXPECT_EQ(call(args), qorStatusOk);
    if (bytes == 4) {
      image.fill([] { return T(0); });
      args.step = least + 2;
      EXPECT_EQ(call(args), member.kind == Kind::grad ? qorStatusBadStepAlign : qorStatusOk);
    }
  });
}
