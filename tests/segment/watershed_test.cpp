// Watershed: both engines with one thread against models that do what is stated, pixel by pixel; the sweeps of several
// threads against the lowest cost of every pixel and the labels that reach it at that cost.
#include <gtest/gtest.h>

#include <deque>
#include <set>
#include <vector>

#include "support/any_image.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

namespace {

template <class T>
struct Member {
  using Type = T;
  QorStatus (*bufferSize)(QoriSize, int32_t*);
  QorStatus (*segment)(const uint8_t*, int32_t, T*, int32_t, QoriSize, int32_t, int32_t, uint8_t*);
};

template <class Body>
void forMembers(Body body) {
  body(Member<uint8_t>{qoriSegmentWatershedGetBufferSize_8u_C1R, qoriSegmentWatershed_8u_C1IR});
  body(Member<uint16_t>{qoriSegmentWatershedGetBufferSize_8u16u_C1R, qoriSegmentWatershed_8u16u_C1IR});
}

using Plane = std::vector<std::vector<int32_t>>;

template <class T>
Plane planeOf(const Image<T>& image) {
  Plane plane(size_t(image.height()), std::vector<int32_t>(size_t(image.width())));
  for (int32_t y = 0; y < image.height(); ++y) {
    for (int32_t x = 0; x < image.width(); ++x) plane[y][x] = image.get(x, y);
  }
  return plane;
}

struct Position {
  int32_t x, y;
};

const Position around[8] = {{-1, 0}, {1, 0}, {0, -1}, {0, 1}, {-1, -1}, {1, -1}, {-1, 1}, {1, 1}};

// --- model of the queue ---

Plane queueModel(const Plane& src, Plane labels, int32_t border, int32_t norm, int32_t flag) {
  const int32_t h = int32_t(src.size()), w = int32_t(src[0].size()), count = norm == qorNormL1 ? 4 : 8;
  const auto labelAt = [&](Position p) {
    return p.x < 0 || p.y < 0 || p.x >= w || p.y >= h ? border : labels[p.y][p.x];
  };
  std::deque<Position> buckets[256];
  for (int32_t y = 0; y < h; ++y) {
    for (int32_t x = 0; x < w; ++x) {
      if (labels[y][x] == 0) continue;
      bool room = false;
      for (int32_t n = 0; n < count; ++n) room |= labelAt({x + around[n].x, y + around[n].y}) == 0;
      if (room) buckets[src[y][x]].push_back({x, y});
      if (!(flag & (64 | 128)) || labels[y][x] == border) continue;
      const int32_t own = labels[y][x];
      for (int32_t n = 0; n < (flag & 128 ? 8 : 4); ++n) {
        const int32_t other = labelAt({x + around[n].x, y + around[n].y});
        if (other != 0 && other != border && other != own) labels[y][x] = border;
      }
    }
  }
  for (int32_t level = 0; level < 256;) {
    if (buckets[level].empty()) {
      ++level;
      continue;
    }
    const Position p = buckets[level].front();
    buckets[level].pop_front();
    for (int32_t n = 0; n < count; ++n) {
      const Position q = {p.x + around[n].x, p.y + around[n].y};
      if (labelAt(q) != 0) continue;
      buckets[std::max(level, src[q.y][q.x])].push_back(q);
      int32_t l = labels[p.y][p.x];
      const int32_t lookedAt = flag & 64 ? 4 : flag & 128 ? 8 : 0;
      for (int32_t m = 0; m < lookedAt; ++m) {
        const Position r = {q.x + around[m].x, q.y + around[m].y};
        if (r.x == p.x && r.y == p.y) continue;
        const int32_t other = labelAt(r);
        if (other == 0 || other == border || other == l) continue;
        if (l != border) {
          l = border;
          break;
        }
        l = other;
      }
      labels[q.y][q.x] = l;
    }
  }
  return labels;
}

// --- model of the sweeps ---

const std::vector<int32_t> subtractions = {19, 18, 18, 17, 17, 16, 16, 15, 15, 14, 14, 14, 13, 13, 12, 12, 11,
                                           11, 11, 10, 10, 9,  9,  9,  8,  8,  8,  7,  7,  7,  6,  6,  6,  5,
                                           5,  5,  4,  4,  4,  4,  3,  3,  3,  3,  2,  2,  2,  2,  2,  1,  1,
                                           1,  1,  1,  1,  1,  0,  0,  0,  0,  0,  0,  0,  0,  0};

int32_t sum(int32_t a, int32_t b) { return int32_t(uint32_t(a) + uint32_t(b)); }  // wraps

// From direction codes to neighbours: seed, right, above right, and so on against the clock.
const Position sources[10] = {{0, 0}, {1, 0}, {1, -1}, {0, -1}, {-1, -1}, {-1, 0}, {-1, 1}, {0, 1}, {1, 1}, {0, 0}};

struct SweepModel {
  const Plane& src;
  Plane labels, cost, direction, change;
  std::vector<bool> rowFlag;
  int32_t norm, w, h;

  SweepModel(const Plane& src_, const Plane& markers, int32_t norm_)
      : src(src_), labels(markers), norm(norm_), w(int32_t(src[0].size())), h(int32_t(src.size())) {
    if (w == 1) norm = qorNormL1;
    cost = direction = change = Plane(size_t(h), std::vector<int32_t>(size_t(w), 0));
    rowFlag.assign(size_t(h), true);
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        cost[y][x] = labels[y][x] ? src[y][x] << 23 : 0x7fc00000;
        direction[y][x] = labels[y][x] ? 0 : 9;
      }
    }
  }
  int32_t step(int32_t code) const {
    const bool diagonal = code % 2 == 0;
    return norm == qorNormL2 ? (diagonal ? 14 : 10) : norm == qorNormFM ? 63 : 0;
  }
  // The best of some candidates, as direction codes; the first of equals.
  void best(int32_t x, int32_t y, const std::vector<int32_t>& codes, int32_t& code, int32_t& offered) const {
    code = 0;
    for (const int32_t c : codes) {
      const int32_t candidate = sum(cost[y + sources[c].y][x + sources[c].x], step(c));
      if (code == 0 || candidate < offered) code = c, offered = candidate;
    }
    if (norm == qorNormFM && codes.size() == 2) {
      const int32_t other = codes[0] == code ? codes[1] : codes[0];
      const int64_t d = int64_t(sum(cost[y + sources[other].y][x + sources[other].x], 63)) - offered;
      if (d <= 63) offered = sum(offered, -subtractions[size_t(d)]);
    }
    offered = std::max(src[y][x] << 23, sum(offered, 1));
  }
  std::vector<int32_t> rightward(int32_t x, bool down) const {
    const int32_t vertical = down ? 3 : 7;
    if (x == 0) return {vertical};
    if (norm == qorNormL1 || norm == qorNormFM) return {5, vertical};
    std::vector<int32_t> codes = {5, down ? 4 : 6, vertical};
    if (x < w - 1) codes.push_back(down ? 2 : 8);
    return codes;
  }
  std::vector<int32_t> leftward(bool down, bool firstPass) const {
    if (norm == qorNormFM) return {1, down ? 3 : 7};
    if (firstPass && norm != qorNormL1) return {1, 3};
    return {1};
  }
  void take(int32_t x, int32_t y, int32_t code, int32_t offered) {
    labels[y][x] = labels[y + sources[code].y][x + sources[code].x];
    cost[y][x] = offered;
    direction[y][x] = code;
  }
  bool attempt(int32_t x, int32_t y, const std::vector<int32_t>& codes) {
    int32_t code, offered = 0;
    best(x, y, codes, code, offered);
    if (offered < cost[y][x]) {
      take(x, y, code, offered);
    } else {
      const Position source = sources[direction[y][x]];
      const int32_t label = labels[y + source.y][x + source.x];
      change[y][x] = 0;
      if (label == labels[y][x]) return false;
      labels[y][x] = label;
    }
    for (int32_t n = 0; n < (norm == qorNormL1 || norm == qorNormFM ? 4 : 8); ++n) {
      const int32_t u = x + around[n].x, v = y + around[n].y;
      if (u >= 0 && v >= 0 && u < w && v < h) change[v][u] = 1;
    }
    change[y][x] = 0;
    return true;
  }
  bool laterRow(int32_t y, bool down, bool check) {
    if (check && !rowFlag[y]) return false;
    bool changed = false;
    for (int32_t x = 0; x < w; ++x) {
      if (direction[y][x] != 0 && (!check || change[y][x])) changed |= attempt(x, y, rightward(x, down));
    }
    for (int32_t x = w - 2; x >= 0; --x) {
      if (direction[y][x] != 0 && (!check || change[y][x])) changed |= attempt(x, y, leftward(down, false));
    }
    rowFlag[y] = false;
    if (changed && y > 0) rowFlag[y - 1] = true;
    if (changed && y < h - 1) rowFlag[y + 1] = true;
    return changed;
  }
  void run() {
    int32_t code, offered = 0;
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = y == 0 ? 1 : 0; x < w; ++x) {
        if (direction[y][x] == 0) continue;
        best(x, y, y == 0 ? std::vector<int32_t>{5} : rightward(x, true), code, offered);
        take(x, y, code, offered);
      }
      for (int32_t x = w - 2; x >= 0; --x) {
        if (direction[y][x] == 0) continue;
        best(x, y, y == 0 ? std::vector<int32_t>{1} : leftward(true, true), code, offered);
        if (offered < cost[y][x]) take(x, y, code, offered);
      }
    }
    if (h == 1) return;
    for (int32_t y = h - 2; y >= 0; --y) laterRow(y, false, false);
    for (bool changed = true; changed;) {
      changed = false;
      for (int32_t y = 1; y < h; ++y) laterRow(y, true, true);
      for (int32_t y = h - 2; y >= 0; --y) changed |= laterRow(y, false, true);
    }
  }
};

// Borders on the side of the higher cost.
void drawBounds(Plane& p, const Plane& cost, int32_t border, bool eight) {
  const int32_t h = int32_t(p.size()), w = int32_t(p[0].size());
  for (int32_t x = 0; x <= w - 2; ++x) {
    if (p[0][x] == p[0][x + 1]) continue;
    if (cost[0][x] <= cost[0][x + 1]) {
      p[0][x + 1] = border;
      ++x;
    } else {
      p[0][x] = border;
    }
  }
  for (int32_t y = 1; y < h; ++y) {
    std::vector<int32_t>&u = p[y - 1], &c = p[y];
    const std::vector<int32_t>&costU = cost[y - 1], &costC = cost[y];
    int32_t x = 0;
    while (x <= w - 1) {
      if (u[x] != border && u[x] != c[x]) {
        if (costU[x] <= costC[x]) {
          c[x] = border;
          x += 1;
          continue;
        }
        u[x] = border;
      }
      if (x == w - 1) break;
      if (c[x] != c[x + 1]) {
        if (costC[x] <= costC[x + 1]) {
          c[x + 1] = border;
          x += 2;
          continue;
        }
        c[x] = border;
      }
      x += 1;
    }
    for (x = 0; eight && x < w; ++x) {
      for (const int32_t dx : {-1, 1}) {
        if (c[x] == border) break;
        if (x + dx < 0 || x + dx >= w || u[x + dx] == border || u[x + dx] == c[x]) continue;
        (costU[x + dx] > costC[x] ? u[x + dx] : c[x]) = border;
      }
    }
  }
}

// The lowest costs, and all labels that reach a pixel at that cost.
struct LowestCosts {
  static constexpr int32_t none = std::numeric_limits<int32_t>::max();
  Plane cost;
  std::vector<std::vector<std::set<int32_t>>> labels;

  LowestCosts(const Plane& src, const Plane& markers, int32_t norm) {
    const int32_t h = int32_t(src.size()), w = int32_t(src[0].size()),
                  count = norm == qorNormL1 || norm == qorNormFM ? 4 : 8;
    cost.assign(size_t(h), std::vector<int32_t>(size_t(w), none));
    labels.assign(size_t(h), std::vector<std::set<int32_t>>(size_t(w)));
    for (int32_t y = 0; y < h; ++y) {
      for (int32_t x = 0; x < w; ++x) {
        if (markers[y][x] == 0) continue;
        cost[y][x] = src[y][x] << 23;
        labels[y][x] = {markers[y][x]};
      }
    }
    const auto costAt = [&](int32_t x, int32_t y) { return x < 0 || y < 0 || x >= w || y >= h ? none : cost[y][x]; };
    const auto priceOf = [&](int32_t x, int32_t y, int64_t offer) {
      return std::max(int64_t(src[y][x]) << 23, offer + 1);
    };
    bool forth = true;
    for (bool changed = true; changed; forth = !forth) {
      changed = false;
      for (int32_t turn = 0; turn < w * h; ++turn) {
        const int32_t x = (forth ? turn : w * h - 1 - turn) % w, y = (forth ? turn : w * h - 1 - turn) / w;
        if (markers[y][x] != 0) continue;
        int64_t lowest = cost[y][x];
        for (int32_t n = 0; n < count; ++n) {
          const int64_t c = costAt(x + around[n].x, y + around[n].y);
          if (c == none) continue;
          if (norm != qorNormFM) {
            lowest = std::min(lowest, priceOf(x, y, c + (norm == qorNormL2 ? (n < 4 ? 10 : 14) : 0)));
            continue;
          }
          // With either of the two neighbours across.
          for (int32_t m = n < 2 ? 2 : 0; m < (n < 2 ? 4 : 2); ++m) {
            const int64_t d = int64_t(costAt(x + around[m].x, y + around[m].y)) - c;
            if (d >= 0) lowest = std::min(lowest, priceOf(x, y, c + 63 - (d <= 63 ? subtractions[size_t(d)] : 0)));
          }
        }
        changed |= lowest < cost[y][x];
        cost[y][x] = int32_t(lowest);
      }
    }
    // A pixel costs more than the one it has its label from.
    std::vector<std::pair<int32_t, int32_t>> order;
    for (int32_t i = 0; i < w * h; ++i) order.push_back({cost[i / w][i % w], i});
    std::sort(order.begin(), order.end());
    for (const auto& [c, i] : order) {
      const int32_t x = i % w, y = i / w;
      if (markers[y][x] != 0 || c == none) continue;
      for (int32_t n = 0; n < count; ++n) {
        const int32_t u = x + around[n].x, v = y + around[n].y;
        if (costAt(u, v) == none) continue;
        // A pixel stays with a neighbour that was the lower one of two when it offered the cost, so any subtraction.
        bool reaches = false;
        for (const int32_t subtraction : norm == qorNormFM ? subtractions : std::vector<int32_t>{0}) {
          const int32_t step = norm == qorNormFM ? 63 - subtraction : norm == qorNormL2 ? (n < 4 ? 10 : 14) : 0;
          reaches |= priceOf(x, y, int64_t(costAt(u, v)) + step) == c;
        }
        if (reaches) labels[y][x].insert(labels[v][u].begin(), labels[v][u].end());
      }
    }
  }
};

// --- calls ---

template <class T>
QorStatus segment(const Member<T>& member, const Image<uint8_t>& src, Image<T>& markers, int32_t norm, int32_t flag) {
  int32_t bytes = 0;
  EXPECT_EQ(member.bufferSize(src.size(), &bytes), qorStatusOk);
  GuardedMemory buffer(static_cast<size_t>(bytes));
  memset(buffer.data(), 0xa5, buffer.size());
  const std::vector<uint8_t> before = src.bytes();
  const QorStatus status =
      member.segment(src.data(), src.step(), markers.data(), markers.step(), src.size(), norm, flag, buffer.data());
  EXPECT_TRUE(src.bytes() == before);
  EXPECT_TRUE(buffer.patternIntact());
  EXPECT_TRUE(markers.gapsIntact());
  return status;
}

template <class T>
std::string differenceTo(const Image<T>& image, const Plane& expected) {
  return difference(image, [&](int32_t x, int32_t y, int32_t) { return T(expected[y][x]); });
}

template <class T>
void copyMarkers(Image<T>& to, const Image<T>& from) {
  for (int32_t y = 0; y < from.height(); ++y) {
    for (int32_t x = 0; x < from.width(); ++x) to.set(x, y, from.get(x, y));
  }
}

template <class T>
void fillAtRandom(Image<uint8_t>& src, Image<T>& markers, Random& random, bool borderLabels) {
  const int32_t range = random.pick(std::vector<int32_t>{0, 2, 20, 255});
  src.fill([&] { return uint8_t(range == 20 ? 235 + random.number(0, 20) : random.number(0, range)); });
  const double density = random.pick(std::vector<double>{0, 0.01, 0.05, 0.3, 0.9});
  const int32_t labels = random.pick(std::vector<int32_t>{1, 2, 254, std::numeric_limits<T>::max() - 1});
  markers.fill([&] {
    if (!random.chance(density)) return T(0);
    return borderLabels && random.chance(0.1) ? std::numeric_limits<T>::max() : T(random.number(1, labels));
  });
}

class Watershed : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};

const std::vector<int32_t> borderFlags = {0, 64, 128, 192};

}  // namespace

TEST_F(Watershed, FloodsFromAQueue) {
  Random random(1);
  services::threads(4);  // no matter
  forMembers([&](auto member) {
    using T = typename decltype(member)::Type;
    for (int round = 0; round < 900; ++round) {
      const QoriSize size = {random.width(round % 10 == 0 ? 130 : 30), int32_t(random.number(1, 25))};
      AnyImage<uint8_t> src(random, size);
      AnyImage<T> markers(random, size);
      fillAtRandom(src, markers, random, true);
      const int32_t norm = int32_t(random.number(0, 1));
      const int32_t flag = qorSegmentQueue | random.pick(borderFlags) | random.pick(std::vector<int32_t>{0, 2, 0x3c});
      const Plane expected = queueModel(planeOf(src), planeOf(markers), std::numeric_limits<T>::max(), norm, flag);
      EXPECT_EQ(requestedTeam([&] { ASSERT_EQ(segment(member, src, markers, norm, flag), qorStatusOk); }), 0);
      ASSERT_EQ(differenceTo(markers, expected), "") << norm << " " << flag;
    }
  });
}

TEST_F(Watershed, SweepsWithOneThread) {
  Random random(2);
  forMembers([&](auto member) {
    using T = typename decltype(member)::Type;
    for (int round = 0; round < 900; ++round) {
      const QoriSize size = {random.width(round % 10 == 0 ? 130 : 30), int32_t(random.number(1, 25))};
      AnyImage<uint8_t> src(random, size);
      AnyImage<T> markers(random, size);
      fillAtRandom(src, markers, random, true);
      const int32_t norm = int32_t(random.number(0, 3)), flag = qorSegmentDistance | random.pick(borderFlags);
      const Plane relief = planeOf(src);
      SweepModel model(relief, planeOf(markers), norm);
      model.run();
      if (flag & 192) drawBounds(model.labels, model.cost, std::numeric_limits<T>::max(), !(flag & 64));
      ASSERT_EQ(segment(member, src, markers, norm, flag), qorStatusOk);
      ASSERT_EQ(differenceTo(markers, model.labels), "") << norm << " " << flag;
    }
  });
}

// Gates: the library's count held to 32, 8 rows and 256 pixels a thread, and the suggested team.
TEST_F(Watershed, SweepsWithATeam) {
  struct Case {
    int32_t most, suggested;
    QoriSize size;
    int32_t team;
  };
  for (const Case& c :
       {Case{4, 4, {64, 64}, 4}, Case{4, 3, {64, 64}, 3}, Case{4, 1, {64, 64}, 0}, Case{1, 4, {64, 64}, 0},
        Case{40, 40, {64, 512}, 32}, Case{8, 8, {300, 23}, 2}, Case{8, 8, {300, 15}, 0}, Case{8, 8, {32, 16}, 2},
        Case{8, 8, {31, 16}, 0}, Case{8, 8, {1, 700}, 2}, Case{-3, 5, {64, 64}, 0}, Case{4, -2, {64, 64}, 0}}) {
    services::maxThreads = c.most;
    services::teamSize = c.suggested;
    Image<uint8_t> src(c.size.width, c.size.height), markers(c.size.width, c.size.height);
    markers.set(0, 0, 5);
    EXPECT_EQ(requestedTeam([&] {
                segment(Member<uint8_t>{qoriSegmentWatershedGetBufferSize_8u_C1R, qoriSegmentWatershed_8u_C1IR}, src,
                        markers, qorNormL2, qorSegmentDistance);
              }),
              c.team)
        << c.most << " " << c.suggested;
    EXPECT_EQ(difference(markers, [](int32_t, int32_t, int32_t) { return uint8_t(5); }), "");
  }
}

TEST_F(Watershed, SweepsOfSeveralThreadsReachTheLowestCosts) {
  Random random(3);
  forMembers([&](auto member) {
    using T = typename decltype(member)::Type;
    for (int round = 0; round < 40; ++round) {
      const QoriSize size = {round % 10 == 9 ? 1 : int32_t(random.number(30, 70)),
                             round % 10 == 9 ? 600 : int32_t(random.number(18, 60))};
      AnyImage<uint8_t> src(random, size);
      AnyImage<T> markers(random, size), again(random, size);
      fillAtRandom(src, markers, random, true);
      if (round % 4 == 0) {
        // Long winding valleys, which the sweeps follow slowly.
        for (int32_t y = 0; y < size.height; ++y) {
          for (int32_t x = 0; x < size.width; ++x) {
            const bool wall = x % 4 == 3 && y != (x % 8 == 3 ? 0 : size.height - 1);
            src.set(x, y, wall ? 255 : uint8_t(x / 4));
            if (random.chance(0.99)) markers.set(x, y, T(0));
          }
        }
      }
      copyMarkers(again, markers);
      const int32_t norm = int32_t(random.number(0, 3)), threads = int32_t(random.number(2, 9));
      const LowestCosts lowest(planeOf(src), planeOf(markers), size.width == 1 ? int32_t(qorNormL1) : norm);
      services::threads(threads);
      EXPECT_GE(requestedTeam([&] { ASSERT_EQ(segment(member, src, markers, norm, qorSegmentDistance), qorStatusOk); }),
                2);
      for (int32_t y = 0; y < size.height; ++y) {
        for (int32_t x = 0; x < size.width; ++x) {
          const std::set<int32_t>& allowed = lowest.labels[y][x];
          ASSERT_TRUE(allowed.empty() ? markers.get(x, y) == 0 : allowed.count(markers.get(x, y)) == 1)
              << "at " << x << ", " << y << " of " << size.width << "x" << size.height << " norm " << norm;
        }
      }
      // The same again, with borders: the labels do not depend on who was faster.
      Plane expected = planeOf(markers);
      const int32_t borders = random.pick(std::vector<int32_t>{64, 128, 192});
      drawBounds(expected, lowest.cost, std::numeric_limits<T>::max(), borders == 128);
      ASSERT_EQ(segment(member, src, again, norm, qorSegmentDistance | borders), qorStatusOk);
      ASSERT_EQ(differenceTo(again, expected), "") << norm << " " << borders;
    }
  });
}

TEST_F(Watershed, SweepsFromInsideATeamSettleToo) {
  services::threads(4);
  Random random(4);
  Image<uint8_t> src(64, 64), markers(64, 64), inside(64, 64);
  const Member<uint8_t> member = {qoriSegmentWatershedGetBufferSize_8u_C1R, qoriSegmentWatershed_8u_C1IR};
  src.fill([&] { return random.value<uint8_t>(); });
  markers.fill([&] { return uint8_t(random.chance(0.01) ? random.number(1, 200) : 0); });
  copyMarkers(inside, markers);
  segment(member, src, markers, qorNormFM, qorSegmentDistance);
  // The inner team is one thread; the stripes stay those of four.
#pragma omp parallel num_threads(2)
  {
#pragma omp master
    segment(member, src, inside, qorNormFM, qorSegmentDistance);
  }
  EXPECT_EQ(differenceTo(inside, planeOf(markers)), "");
}

// Costs of pixels that no label has reached yet pass 2^31 there.
TEST_F(Watershed, SweepsEndInVeryWideImages) {
  const Member<uint8_t> member = {qoriSegmentWatershedGetBufferSize_8u_C1R, qoriSegmentWatershed_8u_C1IR};
  Random random(5);
  for (const int32_t height : {1, 2, 5}) {
    for (const int32_t marked : {-1, 10, 69000, 70999}) {
      Image<uint8_t> src(71000, height), markers(71000, height);
      src.fill([&] { return uint8_t(height == 5 ? 255 : random.number(250, 255)); });
      if (marked >= 0) markers.set(marked, height / 2, 3);
      if (marked >= 0) markers.set(marked / 2, height - 1, 4);
      const Plane relief = planeOf(src);
      SweepModel model(relief, planeOf(markers), qorNormFM);
      model.run();
      EXPECT_EQ(segment(member, src, markers, qorNormFM, qorSegmentDistance), qorStatusOk);
      EXPECT_EQ(differenceTo(markers, model.labels), "") << height << " " << marked;
    }
  }
}

TEST_F(Watershed, WithoutMarkersLeavesAllAtZero) {
  forMembers([](auto member) {
    using T = typename decltype(member)::Type;
    Image<uint8_t> src(20, 20);
    for (const int32_t flag : {qorSegmentQueue | 64, qorSegmentDistance | 128}) {
      for (const int32_t threads : {1, 2}) {
        services::threads(threads);
        Image<T> markers(20, 20);
        EXPECT_EQ(segment(member, src, markers, qorNormInf, flag), qorStatusOk);
        EXPECT_EQ(difference(markers, [](int32_t, int32_t, int32_t) { return T(0); }), "");
      }
    }
  });
}

TEST_F(Watershed, FloodsTheLabelOfBordersToo) {
  Image<uint8_t> src(5, 1), markers(5, 1);
  markers.set(0, 0, 255);
  const Member<uint8_t> member = {qoriSegmentWatershedGetBufferSize_8u_C1R, qoriSegmentWatershed_8u_C1IR};
  EXPECT_EQ(segment(member, src, markers, qorNormL1, qorSegmentQueue), qorStatusOk);
  EXPECT_EQ(difference(markers, [](int32_t, int32_t, int32_t) { return uint8_t(255); }), "");
}

TEST_F(Watershed, TurnsMarkersThatTouchIntoBorders) {
  const Member<uint8_t> member = {qoriSegmentWatershedGetBufferSize_8u_C1R, qoriSegmentWatershed_8u_C1IR};
  Image<uint8_t> src(4, 1);
  for (const int32_t borders : borderFlags) {
    Image<uint8_t> markers(4, 1);
    for (int32_t x = 0; x < 4; ++x) markers.set(x, 0, uint8_t(1 + x / 2));
    EXPECT_EQ(segment(member, src, markers, qorNormL1, qorSegmentQueue | borders), qorStatusOk);
    // The first of the two is marked, and then the second has no other label beside it.
    const std::vector<uint8_t> apart = {1, 255, 2, 2}, touching = {1, 1, 2, 2};
    EXPECT_EQ(difference(markers, [&](int32_t x, int32_t, int32_t) { return (borders ? apart : touching)[size_t(x)]; }),
              "");
  }
}

TEST_F(Watershed, NeedsTheScratchOfTheLargerEngine) {
  int32_t bytes = 0;
  for (const QoriSize size : {QoriSize{1, 1}, QoriSize{33, 7}, QoriSize{640, 480}, QoriSize{1, 1000}}) {
    for (const int32_t element : {1, 2}) {
      const int32_t w = size.width, h = size.height, a = (element * w + 31) / 32 * 32;
      EXPECT_EQ((element == 1 ? qoriSegmentWatershedGetBufferSize_8u_C1R : qoriSegmentWatershedGetBufferSize_8u16u_C1R)(
                    size, &bytes),
                qorStatusOk);
      EXPECT_EQ(bytes, std::max(16 * w * h + element * (w + 2) * (h + 2) + 48, (2 * h + 2) * a + 4 * a * h + h + 66));
    }
  }
}

TEST_F(Watershed, RefusesBadArguments) {
  forMembers([](auto member) {
    using T = typename decltype(member)::Type;
    struct Args {
      uint8_t* src;
      T* markers;
      int32_t srcStep, markerStep;
      QoriSize size;
      int32_t norm, flag;
      uint8_t* buffer;
    };
    Image<uint8_t> src(7, 6, 1, 1);
    Image<T> markers(7, 6, 1, 1);
    markers.set(3, 3, 1);
    GuardedMemory buffer(4000);
    const auto set = [](auto member_, auto value) { return [=](Args& a) { a.*member_ = value; }; };
    for (const int32_t engine : {1, 2, 3}) {
      std::vector<Fault<Args>> faults = {
          {"src", qorStatusNullPtr, set(&Args::src, nullptr)},
          {"markers", qorStatusNullPtr, set(&Args::markers, nullptr)},
          {"buffer", qorStatusNullPtr, set(&Args::buffer, nullptr)},
          {"size", qorStatusBadSize, set(&Args::size, QoriSize{0, 6})},
          {"size", qorStatusBadSize, set(&Args::size, QoriSize{7, 0})},
          {"srcStep", qorStatusBadStep, set(&Args::srcStep, 6)},
          {"markerStep", qorStatusBadStep, set(&Args::markerStep, int32_t(7 * sizeof(T) - 1))},
      };
      if (sizeof(T) == 2) faults.push_back({"markerStep", qorStatusBadStepAlign, set(&Args::markerStep, 15)});
      faults.push_back({"flag", qorStatusBadArg, set(&Args::flag, 0)});
      faults.push_back({"flag", qorStatusBadArg, set(&Args::flag, ~3)});
      faults.push_back({"norm", qorStatusBadArg, set(&Args::norm, -1)});
      faults.push_back({"norm", qorStatusBadArg, set(&Args::norm, 4)});
      if (engine & qorSegmentQueue) faults.push_back({"norm", qorStatusBadArg, set(&Args::norm, int32_t(qorNormL2))});
      if (engine & qorSegmentQueue) faults.push_back({"norm", qorStatusBadArg, set(&Args::norm, int32_t(qorNormFM))});
      expectStatuses<Args>(
          {src.data(), markers.data(), src.step(), markers.step(), src.size(), 1, engine | 64, buffer.data()}, faults,
          [&](const Args& a) {
            return member.segment(a.src, a.srcStep, a.markers, a.markerStep, a.size, a.norm, a.flag, a.buffer);
          },
          [&] { return markers.bytes(); });
    }
    int32_t bytes = 5;
    EXPECT_EQ(member.bufferSize({0, 1}, nullptr), qorStatusNullPtr);
    EXPECT_EQ(member.bufferSize({0, 1}, &bytes), qorStatusBadSize);
    EXPECT_EQ(member.bufferSize({1, 0}, &bytes), qorStatusBadSize);
    EXPECT_EQ(bytes, 5);
  });
}
