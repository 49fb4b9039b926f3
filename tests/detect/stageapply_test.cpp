// Detection stages applied: against a model that looks at one window at a time, on planes that hold only the cells that
// live windows read.
#include <math.h>

#include "detect/stages.h"

namespace {

class StageApply : public Stages {};

template <class T>
struct Call {
  int32_t srcStep, tiltStep, normStep, maskStep;
  QoriSize size;
  T threshold;
  int32_t scaleFactor;
};

int32_t wrapped(int64_t value) { return int32_t(uint32_t(uint64_t(value))); }

// --- members: how they are called, and what they say of one classifier ---

struct Plain32f {
  using Cell = float;
  using Norm = float;
  using Value = float;
  static constexpr bool mixed = false;
  static QorStatus call(const Cell* src, const Cell*, const Norm* norm, uint8_t* mask, const Call<Value>& c,
                        int32_t* positive, const QoriHaarClassifier_32f* state) {
    return qoriApplyHaarClassifier_32f_C1R(src, c.srcStep, norm, c.normStep, mask, c.maskStep, c.size, positive,
                                           c.threshold, state);
  }
  static float product(float a, float b, float c, float d, float weight) { return (((a - b) - c) + d) * weight; }
  static float sum(const std::vector<float>& p, int32_t group) {
    if (group == 2) return p[0] + p[1];
    if (group == 3) return (p[1] + p[2]) + p[0];
    float s = 0;
    for (float product : p) s += product;
    return s;
  }
  static bool below(float s, float threshold, float n, int32_t) { return threshold * n > s; }
};

struct Plain32s32f {
  using Cell = int32_t;
  using Norm = float;
  using Value = float;
  static constexpr bool mixed = false;
  static QorStatus call(const Cell* src, const Cell*, const Norm* norm, uint8_t* mask, const Call<Value>& c,
                        int32_t* positive, const QoriHaarClassifier_32f* state) {
    return qoriApplyHaarClassifier_32s32f_C1R(src, c.srcStep, norm, c.normStep, mask, c.maskStep, c.size, positive,
                                              c.threshold, state);
  }
  static float product(int64_t a, int64_t b, int64_t c, int64_t d, float weight) {
    return float(wrapped((a - b) + (d - c))) * weight;
  }
  static float sum(const std::vector<float>& p, int32_t) { return Plain32f::sum(p, 0); }
  static bool below(float s, float threshold, float n, int32_t) { return threshold * n > s; }
};

struct Plain32s {
  using Cell = int32_t;
  using Norm = int32_t;
  using Value = int32_t;
  static constexpr bool mixed = false;
  static QorStatus call(const Cell* src, const Cell*, const Norm* norm, uint8_t* mask, const Call<Value>& c,
                        int32_t* positive, const QoriHaarClassifier_32s* state) {
    return qoriApplyHaarClassifier_32s_C1RSfs(src, c.srcStep, norm, c.normStep, mask, c.maskStep, c.size, positive,
                                              c.threshold, state);
  }
  static int32_t product(int64_t a, int64_t b, int64_t c, int64_t d, int64_t weight) {
    return wrapped(wrapped((a - b) - (c - d)) * weight);
  }
  static int32_t sum(const std::vector<int32_t>& p, int32_t) {
    int32_t s = 0;
    for (int32_t product : p) s = wrapped(int64_t(s) + product);
    return s;
  }
  static bool below(int32_t s, int64_t threshold, int64_t n, int32_t) { return s < wrapped(threshold * n); }
};

struct Mixed32f : Plain32f {
  static constexpr bool mixed = true;
  static QorStatus call(const Cell* src, const Cell* tilt, const Norm* norm, uint8_t* mask, const Call<Value>& c,
                        int32_t* positive, const QoriHaarClassifier_32f* state) {
    return qoriApplyMixedHaarClassifier_32f_C1R(src, c.srcStep, tilt, c.tiltStep, norm, c.normStep, mask, c.maskStep,
                                                c.size, positive, c.threshold, state);
  }
  static float sum(const std::vector<float>& p, int32_t) { return Plain32f::sum(p, 0); }
};

struct Mixed32s32f : Plain32s32f {
  static constexpr bool mixed = true;
  static QorStatus call(const Cell* src, const Cell* tilt, const Norm* norm, uint8_t* mask, const Call<Value>& c,
                        int32_t* positive, const QoriHaarClassifier_32f* state) {
    return qoriApplyMixedHaarClassifier_32s32f_C1R(src, c.srcStep, tilt, c.tiltStep, norm, c.normStep, mask, c.maskStep,
                                                   c.size, positive, c.threshold, state);
  }
};

struct Mixed32s : Plain32s {
  static constexpr bool mixed = true;
  static QorStatus call(const Cell* src, const Cell* tilt, const Norm* norm, uint8_t* mask, const Call<Value>& c,
                        int32_t* positive, const QoriHaarClassifier_32s* state) {
    return qoriApplyMixedHaarClassifier_32s_C1RSfs(src, c.srcStep, tilt, c.tiltStep, norm, c.normStep, mask, c.maskStep,
                                                   c.size, positive, c.threshold, state, c.scaleFactor);
  }
  static int64_t sum(const std::vector<int32_t>& p, int32_t) {
    int64_t s = 0;
    for (int32_t product : p) s += product;
    return s;
  }
  static bool below(int64_t s, int64_t threshold, int64_t n, int32_t scaleFactor) {
    const int64_t shift = -int64_t(scaleFactor);
    return int64_t(uint64_t(s) << (shift % 64)) < threshold * n;
  }
};

template <class Body>
void forMembers(Body body) {
  body(Plain32f());
  body(Plain32s32f());
  body(Plain32s());
  body(Mixed32f());
  body(Mixed32s32f());
  body(Mixed32s());
}

float added(float a, float b) { return a + b; }
int32_t added(int32_t a, int32_t b) { return wrapped(int64_t(a) + b); }

// --- planes ---

// The cells from the first to the last one that is read, numbered from the cell of window (0, 0), and no others.
template <class Cell>
struct ReadCells {
  int64_t first;
  std::vector<Cell> cells;
  std::unique_ptr<GuardedMemory> memory;
  Cell* origin;  // of window (0, 0), which may lie outside

  ReadCells(Random& random, int64_t first_, int64_t last, bool special) : first(first_) {
    for (int64_t i = first; i <= last; ++i) {
      if constexpr (std::is_same_v<Cell, float>) {
        cells.push_back(special && random.chance(0.02) ? random.anyFloat() : random.value<float>() * 100);
      } else {
        cells.push_back(special && random.chance(0.2) ? random.value<int32_t>()
                                                      : int32_t(random.number(-30000, 30000)));
      }
    }
    const bool atEnd = random.chance(0.5);
    const size_t shift = random.chance(0.5) ? 0 : size_t(random.number(1, 7)), bytes = cells.size() * sizeof(Cell);
    memory = std::make_unique<GuardedMemory>(bytes + shift, atEnd ? Edge::end : Edge::begin);
    uint8_t* data = memory->data() + (atEnd ? 0 : shift);
    if (bytes) memcpy(data, cells.data(), bytes);
    origin = reinterpret_cast<Cell*>(uintptr_t(data) - uintptr_t(first * int64_t(sizeof(Cell))));
  }
  Cell at(int64_t i) const { return cells.at(size_t(i - first)); }
};

// One call with everything that it needs.
template <class Member>
struct Scene {
  using Cell = typename Member::Cell;
  using Norm = typename Member::Norm;
  using Value = typename Member::Value;
  Call<Value> call;
  std::vector<ModelClassifier<Value>> stage;
  std::unique_ptr<AnyImage<uint8_t>> mask;
  std::unique_ptr<AnyImage<Norm>> norm;
  std::unique_ptr<ReadCells<Cell>> src, tilt;

  bool readsTilt(const ModelClassifier<Value>& c) const { return Member::mixed && c.tilted; }

  // Where a feature's corner lies in its plane, for a window.
  int64_t place(const ModelClassifier<Value>& c, QoriPoint corner, int32_t x, int32_t y) const {
    if (readsTilt(c)) {
      return (int64_t(y) + 1 + corner.y) * (call.tiltStep / 4) + x + 1 + corner.x;
    }
    const int64_t offset = int64_t(corner.y) * (call.srcStep / 4) + corner.x;
    return int64_t(y) * (call.srcStep / 4) + x + (Member::mixed ? offset : wrapped(offset));
  }

  void makePlanes(Random& random, bool special) {
    int64_t first[2] = {INT64_MAX, INT64_MAX}, last[2] = {INT64_MIN, INT64_MIN};
    for (int32_t y = 0; y < call.size.height; ++y) {
      for (int32_t x = 0; x < call.size.width; ++x) {
        if (!mask->get(x, y)) continue;
        for (const auto& c : stage) {
          for (const auto& f : c.features) {
            for (const QoriPoint corner : {f.a, f.b, f.c, f.d}) {
              const int64_t i = place(c, corner, x, y);
              int64_t& low = first[readsTilt(c)];
              int64_t& high = last[readsTilt(c)];
              low = std::min(low, i);
              high = std::max(high, i);
            }
          }
        }
      }
    }
    for (int p = 0; p < 2; ++p) {
      if (first[p] > last[p]) first[p] = 0, last[p] = -1;
      (p ? tilt : src) = std::make_unique<ReadCells<Cell>>(random, first[p], last[p], special);
    }
  }

  auto sumOf(const ModelClassifier<Value>& c, int32_t x, int32_t y) const {
    const ReadCells<Cell>& plane = readsTilt(c) ? *tilt : *src;
    std::vector<Value> products;
    for (const auto& f : c.features) {
      products.push_back(Member::product(plane.at(place(c, f.a, x, y)), plane.at(place(c, f.b, x, y)),
                                         plane.at(place(c, f.c, x, y)), plane.at(place(c, f.d, x, y)), f.weight));
    }
    return Member::sum(products, c.group);
  }

  Value totalOf(int32_t x, int32_t y) const {
    Value total = 0;
    for (const auto& c : stage) {
      const bool low = Member::below(sumOf(c, x, y), c.threshold, norm->get(x, y), call.scaleFactor);
      total = added(total, low ? c.val1 : c.val2);
    }
    return total;
  }

  // Calls and compares.
  void expectExact(const typename Functions<Value>::State* state) {
    std::vector<uint8_t> should;
    int32_t survivors = 0;
    for (int32_t y = 0; y < call.size.height; ++y) {
      for (int32_t x = 0; x < call.size.width; ++x) {
        uint8_t byte = mask->get(x, y);
        if (byte && call.threshold > totalOf(x, y)) byte = 0;
        survivors += byte != 0;
        should.push_back(byte);
      }
    }
    int32_t positive = -1;
    ASSERT_EQ(Member::call(src->origin, tilt->origin, norm->data(), mask->data(), call, &positive, state), qorStatusOk);
    EXPECT_EQ(positive, survivors);
    EXPECT_EQ(difference(*mask, [&](int32_t x, int32_t y,
                                    int32_t) { return should[size_t(y) * size_t(call.size.width) + size_t(x)]; }),
              "");
    EXPECT_TRUE(mask->gapsIntact());
    EXPECT_TRUE(norm->gapsIntact());
  }
};

template <class Value>
Value justAbove(Value value) {
  if constexpr (std::is_same_v<Value, float>) {
    return nextafterf(value, INFINITY);
  } else {
    return value < INT32_MAX ? value + 1 : value;
  }
}

// Images of a random scene, without planes and without a stage.
template <class Member>
Scene<Member> anyScene(Random& random, QoriSize size, double alive) {
  using Norm = typename Member::Norm;
  Scene<Member> s;
  s.mask = std::make_unique<AnyImage<uint8_t>>(random, size);
  s.norm = std::make_unique<AnyImage<Norm>>(random, size);
  s.mask->fill([&] { return random.chance(alive) ? uint8_t(random.number(1, 255)) : uint8_t(0); });
  s.norm->fill([&] {
    if constexpr (std::is_same_v<Norm, float>) {
      return random.chance(0.02) ? random.anyFloat() : random.value<float>();
    } else {
      return random.chance(0.1) ? random.value<int32_t>() : int32_t(random.number(0, 999));
    }
  });
  const auto step = [&] { return (size.width + int32_t(random.number(0, 40))) * 4; };
  s.call = {step(), step(), s.norm->step(), s.mask->step(), size, 0, 0};
  return s;
}

template <class Member>
void compare(Random& random, QoriSize size, double alive) {
  using Value = typename Member::Value;
  Description<Value> from = anyDescription<Value>(random, 6);
  const bool special = random.chance(0.5);
  if (random.chance(0.3) && !from.num.empty()) {
    // One classifier alone shows how it decided.
    Description<Value> one = from;
    one.num.resize(1);
    if (!one.tiltMask.empty()) one.tiltMask.resize(1);
    from = one;
  }
  Scene<Member> s = anyScene<Member>(random, size, alive);
  if (random.chance(0.5)) s.call.scaleFactor = -int32_t(random.number(0, random.chance(0.5) ? 3 : 70));
  s.stage = model(from);
  s.makePlanes(random, special);
  // Thresholds that some window just meets, or just misses: what a sum in another order would get wrong.
  std::vector<QoriPoint> living;
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      if (s.mask->get(x, y)) living.push_back({x, y});
    }
  }
  s.call.threshold = anyWeight<Value>(random);
  if (!living.empty()) {
    for (auto& c : s.stage) {
      if (random.chance(0.3)) continue;
      const QoriPoint window = random.pick(living);
      s.norm->set(window.x, window.y, typename Member::Norm(1));
      const auto sum = s.sumOf(c, window.x, window.y);
      Value threshold = Value(sum);
      if constexpr (std::is_same_v<Value, int32_t>) threshold = wrapped(sum);
      if (random.chance(0.5)) threshold = justAbove(threshold);
      c.threshold = from.threshold[size_t(c.index)] = threshold;
    }
    if (random.chance(0.8)) {
      const QoriPoint window = random.pick(living);
      s.call.threshold = s.totalOf(window.x, window.y);
      if (random.chance(0.3)) s.call.threshold = justAbove(s.call.threshold);
    }
  }
  const StageOwner<Value> stage = made(from);
  const int64_t before = services::allocations();
  s.expectExact(stage.get());
  EXPECT_EQ(services::allocations() - before, Member::mixed || from.num.empty() ? 0 : 1);
}

TEST_F(StageApply, DecidesAsEachWindowAlone) {
  Random random(72);
  for (int trial = 0; trial < 500 && !HasFailure(); ++trial) {
    const QoriSize size = {random.width(70), int32_t(random.number(1, 7))};
    const double alive = random.pick(std::vector<double>{0.02, 0.1, 0.5, 0.95, 1});
    forMembers([&](auto member) { compare<decltype(member)>(random, size, alive); });
  }
  for (int trial = 0; trial < 3 && !HasFailure(); ++trial) {
    forMembers([&](auto member) { compare<decltype(member)>(random, {187, 41}, trial ? 0.5 : 1); });
  }
}

TEST_F(StageApply, HasNoThreads) {
  services::threads(8);
  Random random(73);
  forMembers([&](auto member) {
    using Member = decltype(member);
    using Value = typename Member::Value;
    Scene<Member> s = anyScene<Member>(random, {600, 500}, 0.01);
    Description<Value> from;
    from.add({{0, 0, 1, 1}, {1, 1, 2, 2}}, {Value(1), Value(-1)}, Value(1), Value(0), Value(1));
    s.stage = model(from);
    s.makePlanes(random, false);
    const StageOwner<Value> stage = made(from);
    int32_t positive;
    EXPECT_EQ(requestedTeam([&] {
                EXPECT_EQ(Member::call(s.src->origin, s.tilt->origin, s.norm->data(), s.mask->data(), s.call, &positive,
                                       stage.get()),
                          qorStatusOk);
              }),
              0);
  });
}

TEST_F(StageApply, NeedsNoPlaneWithoutClassifiers) {
  Random random(74);
  forMembers([&](auto member) {
    using Member = decltype(member);
    using Value = typename Member::Value;
    for (const Value threshold : {Value(-1), Value(0), Value(1)}) {
      const Description<Value> from;
      Scene<Member> s = anyScene<Member>(random, {19, 3}, 0.6);
      s.makePlanes(random, false);
      s.call.threshold = threshold;
      const StageOwner<Value> stage = made(from);
      int32_t alive = 0, positive = -1;
      for (int32_t y = 0; y < 3; ++y) {
        for (int32_t x = 0; x < 19; ++x) alive += s.mask->get(x, y) != 0;
      }
      // It needs no table either.
      services::failAfter(0);
      ASSERT_EQ(
          Member::call(s.src->origin, s.tilt->origin, s.norm->data(), s.mask->data(), s.call, &positive, stage.get()),
          qorStatusOk);
      services::failAfter(-1);
      EXPECT_EQ(positive, threshold > 0 ? 0 : alive);
    }
  });
}

TEST_F(StageApply, LeavesTheMaskAloneWithoutMemory) {
  Random random(75);
  forMembers([&](auto member) {
    using Member = decltype(member);
    using Value = typename Member::Value;
    Description<Value> from;
    from.add({{0, 0, 1, 1}, {1, 1, 2, 2}}, {Value(1), Value(-1)}, Value(1), Value(0), Value(0));
    Scene<Member> s = anyScene<Member>(random, {19, 3}, 0.6);
    s.stage = model(from);
    s.makePlanes(random, false);
    s.call.threshold = 1;
    const StageOwner<Value> stage = made(from);
    const std::vector<uint8_t> before = s.mask->bytes();
    int32_t positive = -1;
    services::failAfter(0);
    const QorStatus status =
        Member::call(s.src->origin, s.tilt->origin, s.norm->data(), s.mask->data(), s.call, &positive, stage.get());
    services::failAfter(-1);
    EXPECT_EQ(status, Member::mixed ? qorStatusOk : qorStatusNoMemory);
    EXPECT_EQ(positive, Member::mixed ? 0 : -1);
    EXPECT_EQ(before == s.mask->bytes(), !Member::mixed);
  });
}

TEST_F(StageApply, WrapsTheOffsetsOfItsTable) {
  Random random(76);
  forMembers([&](auto member) {
    using Member = decltype(member);
    using Value = typename Member::Value;
    if (Member::mixed) return;
    // 2^15 rows of 2^17 cells are 2^32 cells, and so none.
    for (int trial = 0; trial < 4; ++trial) {
      Description<Value> from;
      from.add({{1, 1 << 15, 2, 1}, {0, 3 << 15, 1, 1}}, {Value(1), Value(-1)}, Value(0), Value(0), Value(1));
      Scene<Member> s = anyScene<Member>(random, {21, 2}, 0.7);
      s.call.srcStep = 1 << 19;
      s.call.threshold = 1;
      s.stage = model(from);
      s.makePlanes(random, false);
      EXPECT_LT(s.src->cells.size(), 1u << 19);
      s.expectExact(made(from).get());
    }
  });
}

TEST_F(StageApply, TakesTheSecondValueForNaN) {
  // Neither the classifier's product nor the stage's threshold is greater.
  const auto survives = [](auto apply, float threshold, float norm, float stageThreshold) {
    Description<float> from;
    from.add({{0, 0, 1, 1}}, {1}, threshold, -5, 5);
    const StageOwner<float> stage = made(from);
    float norms[17];
    std::fill_n(norms, 17, norm);
    uint8_t mask[17];
    std::fill_n(mask, 17, uint8_t(3));
    int32_t positive = -1;
    EXPECT_EQ(apply(norms, mask, &positive, stageThreshold, stage.get()), qorStatusOk);
    EXPECT_TRUE(positive == 0 || positive == 17);
    for (uint8_t byte : mask) EXPECT_EQ(byte, positive ? 3 : 0);
    return positive == 17;
  };
  static float cells[2 * 24] = {};
  static int32_t ints[3 * 24] = {};
  const auto plain = [](const float* norm, uint8_t* mask, int32_t* positive, float t, const QoriHaarClassifier_32f* s) {
    return qoriApplyHaarClassifier_32f_C1R(cells, 96, norm, 68, mask, 17, {17, 1}, positive, t, s);
  };
  const auto mixed = [](const float* norm, uint8_t* mask, int32_t* positive, float t, const QoriHaarClassifier_32f* s) {
    return qoriApplyMixedHaarClassifier_32s32f_C1R(ints, 96, ints, 96, norm, 68, mask, 17, {17, 1}, positive, t, s);
  };
  const auto check = [&](auto apply) {
    EXPECT_TRUE(survives(apply, 0, 1, 5));  // not below a threshold that it meets
    EXPECT_FALSE(survives(apply, 1e-30f, 1, 5));
    EXPECT_TRUE(survives(apply, NAN, 1, 5));
    EXPECT_TRUE(survives(apply, 1, NAN, 5));
    EXPECT_TRUE(survives(apply, INFINITY, 0, 5));
    EXPECT_FALSE(survives(apply, INFINITY, 1, 5));
    EXPECT_TRUE(survives(apply, 1, 1, NAN));
    EXPECT_FALSE(survives(apply, 0, 1, nextafterf(5, 6)));
  };
  check(plain);
  check(mixed);
}

TEST_F(StageApply, WrapsAndWidensIntegersAsTold) {
  // A sum of products beyond 32 bits: it wraps in the plain form, and does not in the mixed one.
  Description<int32_t> from;
  from.add({{0, 0, 1, 1}, {0, 0, 1, 1}}, {1 << 30, 1 << 30}, 1, 0, 1);
  const StageOwner<int32_t> stage = made(from);
  const int32_t cells[4] = {1, 0, 0, 0}, norm = 1;  // the sum of each feature is 1
  int32_t positive = -1;
  uint8_t mask = 1;
  EXPECT_EQ(qoriApplyHaarClassifier_32s_C1RSfs(cells, 8, &norm, 4, &mask, 1, {1, 1}, &positive, 1, stage.get()),
            qorStatusOk);
  EXPECT_EQ(mask, 0);  // -2^31 < 1
  const auto mixed = [&](int32_t scaleFactor, int32_t threshold) {
    mask = 1;
    EXPECT_EQ(qoriApplyMixedHaarClassifier_32s_C1RSfs(cells, 8, cells, 8, &norm, 4, &mask, 1, {1, 1}, &positive,
                                                      threshold, stage.get(), scaleFactor),
              qorStatusOk);
    return mask;
  };
  EXPECT_EQ(mixed(0, 1), 1);    // 2^31 >= 1
  EXPECT_EQ(mixed(-31, 1), 1);  // 2^62
  EXPECT_EQ(mixed(-32, 1), 0);  // 2^63 is negative
  EXPECT_EQ(mixed(-33, 1), 0);  // 0 < 1
  EXPECT_EQ(mixed(-64, 1), 1);  // as 0
  EXPECT_EQ(mixed(INT32_MIN, 1), 1);
  EXPECT_EQ(mixed(0, 2), 0);
}

TEST_F(StageApply, AddsTheFirstOfThreeProductsLast) {
  // Cells one above the other at three places; 2^24 swallows a one, but not a two.
  Description<float> from;
  from.add({{0, 0, 1, 1}, {2, 0, 1, 1}, {4, 0, 1, 1}}, {1, 1, 1}, 16777218, 0, 1);
  const float cells[2][6] = {{16777216, 0, 1, 0, 1, 0}, {}};
  const float norm = 1;
  const auto survives = [&](bool tilted, bool mixed) {
    Description<float> d = from;
    if (tilted) d.tiltMask = {1};
    const StageOwner<float> stage = made(d);
    uint8_t mask = 1;
    int32_t positive;
    const float tilt[6 * 12] = {};
    EXPECT_EQ(
        mixed ? qoriApplyMixedHaarClassifier_32f_C1R(cells[0], 24, tilt, 24, &norm, 4, &mask, 1, {1, 1}, &positive, 1,
                                                     stage.get())
              : qoriApplyHaarClassifier_32f_C1R(cells[0], 24, &norm, 4, &mask, 1, {1, 1}, &positive, 1, stage.get()),
        qorStatusOk);
    return mask;
  };
  EXPECT_EQ(survives(false, false), 1);  // (1 + 1) + 2^24
  EXPECT_EQ(survives(false, true), 0);   // (2^24 + 1) + 1
}

TEST_F(StageApply, ChecksArgumentsInOrder) {
  forMembers([](auto member) {
    using Member = decltype(member);
    using Cell = typename Member::Cell;
    using Norm = typename Member::Norm;
    using Value = typename Member::Value;
    using State = typename Functions<Value>::State;
    constexpr int32_t width = 5, height = 2;
    struct A {
      const Cell *src, *tilt;
      const Norm* norm;
      uint8_t* mask;
      int32_t* positive;
      const State* state;
      Call<Value> call;
    };
    Description<Value> from;
    from.add({{0, 0, 1, 1}}, {Value(1)}, Value(1), Value(0), Value(0));
    const StageOwner<Value> stage = made(from);
    const Image<Cell> src(width + 2, height + 2), tilt(width + 3, height + 4);
    const Image<Norm> norm(width, height, 1, 2);
    Image<uint8_t> mask(width, height, 1, 2);
    mask.fill([] { return uint8_t(7); });
    Image<int32_t> positive(1, 1);
    const A good = {src.data(),
                    tilt.data(),
                    norm.data(),
                    mask.data(),
                    positive.data(),
                    stage.get(),
                    {src.step(), tilt.step(), norm.step(), mask.step(), {width, height}, 1, 0}};
    std::vector<Fault<A>> faults;
    faults.push_back({"src", qorStatusNullPtr, [](A& a) { a.src = nullptr; }});
    if (Member::mixed) faults.push_back({"tilt", qorStatusNullPtr, [](A& a) { a.tilt = nullptr; }});
    faults.push_back({"norm", qorStatusNullPtr, [](A& a) { a.norm = nullptr; }});
    faults.push_back({"mask", qorStatusNullPtr, [](A& a) { a.mask = nullptr; }});
    faults.push_back({"positive", qorStatusNullPtr, [](A& a) { a.positive = nullptr; }});
    faults.push_back({"state", qorStatusNullPtr, [](A& a) { a.state = nullptr; }});
    for (int32_t bad : {0, -1, INT32_MIN}) {
      faults.push_back({"width", qorStatusBadSize, [=](A& a) { a.call.size.width = bad; }});
      faults.push_back({"height", qorStatusBadSize, [=](A& a) { a.call.size.height = bad; }});
    }
    const auto shortStep = [&](const char* name, int32_t Call<Value>::*step, int32_t row) {
      for (int32_t bad : {row - 1, row - 4, 0, -row, INT32_MIN}) {
        faults.push_back({name, qorStatusBadStep, [=](A& a) { a.call.*step = bad; }});
      }
    };
    shortStep("srcStep", &Call<Value>::srcStep, 4 * width);
    if (Member::mixed) shortStep("tiltStep", &Call<Value>::tiltStep, 4 * width);
    shortStep("normStep", &Call<Value>::normStep, 4 * width);
    shortStep("maskStep", &Call<Value>::maskStep, width);
    const auto oddStep = [&](const char* name, int32_t Call<Value>::*step) {
      for (int32_t more = 1; more < 4; ++more) {
        faults.push_back({name, qorStatusBadStepAlign, [=](A& a) { a.call.*step = 4 * width + more; }});
      }
    };
    oddStep("srcStep", &Call<Value>::srcStep);
    if (Member::mixed) oddStep("tiltStep", &Call<Value>::tiltStep);
    oddStep("normStep", &Call<Value>::normStep);
    if (std::is_same_v<Member, Mixed32s>) {
      for (int32_t bad : {1, 31, INT32_MAX}) {
        faults.push_back({"scaleFactor", qorStatusBadArg, [=](A& a) { a.call.scaleFactor = bad; }});
      }
    }
    const auto call = [](const A& a) {
      return Member::call(a.src, a.tilt, a.norm, a.mask, a.call, a.positive, a.state);
    };
    expectStatuses<A>(good, faults, call, [&] {
      std::vector<uint8_t> bytes = mask.bytes();
      const std::vector<uint8_t> more = positive.bytes();
      bytes.insert(bytes.end(), more.begin(), more.end());
      return bytes;
    });
  });
}

}  // namespace
