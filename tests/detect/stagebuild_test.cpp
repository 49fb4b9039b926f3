// Detection stages: what their records hold, their sizes, and tilting.
#include <math.h>

#include "detect/stages.h"

namespace {

class StageBuild : public Stages {};

// The records, field by field.
template <class T>
struct FeatureRecord {
  int32_t ax, ay, bx, by, cx, cy, dx, dy;
  T weight;
};
template <class T>
struct ClassifierRecord {
  int32_t featureCount;
  FeatureRecord<T>* features;
  T threshold, val1, val2;
  int32_t indexAndTilt;
};
struct Record32f {
  int32_t classifierCount, featureCount;
  ClassifierRecord<float>* classifiers;
  int32_t boxX, boxY, boxWidth, boxHeight, tiltFlags, pairCount, pairOrTripleCount, storedFeatureCount, minusOne;
};
struct Record32s {
  int32_t classifierCount, featureCount;
  ClassifierRecord<int32_t>* classifiers;
  int32_t boxX, boxY, boxWidth, boxHeight, tiltFlags, storedFeatureCount, pairCount, pairOrTripleCount, zero;
};
const Record32f& record(const QoriHaarClassifier_32f* state) { return *reinterpret_cast<const Record32f*>(state); }
const Record32s& record(const QoriHaarClassifier_32s* state) { return *reinterpret_cast<const Record32s*>(state); }
int32_t lastField(const Record32f& r) { return r.minusOne; }
int32_t lastField(const Record32s& r) { return r.zero; }

template <class Body>
void forTypes(Body body) {
  body(float());
  body(int32_t());
}

template <class T>
bool same(T a, T b) {
  return memcmp(&a, &b, sizeof a) == 0;
}

template <class T>
void expectRecord(const Description<T>& from, const typename Functions<T>::State* state) {
  const auto& r = record(state);
  const auto stage = model(from);
  ASSERT_EQ(r.classifierCount, int32_t(stage.size()));
  int32_t features = 0, pairs = 0, triples = 0, minusOne = std::is_same_v<T, float>;
  const FeatureRecord<T>* next = r.classifierCount ? r.classifiers[0].features : nullptr;
  for (size_t k = 0; k < stage.size(); ++k) {
    const ClassifierRecord<T>& c = r.classifiers[k];
    const ModelClassifier<T>& m = stage[k];
    ASSERT_EQ(c.featureCount, int32_t(m.features.size()));
    EXPECT_EQ(c.features, next) << "features follow one another";
    next += c.featureCount;
    EXPECT_TRUE(same(c.threshold, m.threshold) && same(c.val1, m.val1) && same(c.val2, m.val2));
    EXPECT_EQ(c.indexAndTilt, m.packed);
    for (size_t f = 0; f < m.features.size(); ++f) {
      const FeatureRecord<T>& is = c.features[f];
      const ModelFeature<T>& should = m.features[f];
      EXPECT_EQ(is.ax, should.a.x);
      EXPECT_EQ(is.ay, should.a.y);
      EXPECT_EQ(is.bx, should.b.x);
      EXPECT_EQ(is.by, should.b.y);
      EXPECT_EQ(is.cx, should.c.x);
      EXPECT_EQ(is.cy, should.c.y);
      EXPECT_EQ(is.dx, should.d.x);
      EXPECT_EQ(is.dy, should.d.y);
      EXPECT_TRUE(same(is.weight, should.weight));
    }
    features += c.featureCount;
    pairs += m.group == 2;
    triples += m.group == 3;
    if (double w = double(m.features[0].weight); trunc(w) != -1) minusOne = 0;
  }
  EXPECT_EQ(r.featureCount, features);
  EXPECT_EQ(r.storedFeatureCount, features);
  EXPECT_EQ(r.pairCount, pairs);
  EXPECT_EQ(r.pairOrTripleCount, pairs + triples);
  EXPECT_EQ(lastField(r), minusOne);
  const bool any = std::any_of(from.tiltMask.begin(), from.tiltMask.end(), [](uint8_t byte) { return byte != 0; });
  EXPECT_EQ(r.tiltFlags, from.tilted || any ? 1 : 0);
}

// The box, told step by step over the rectangles in stored order.
template <class T>
void expectBox(const Description<T>& from, const typename Functions<T>::State* state) {
  const QoriRect first = from.feature.empty() ? QoriRect{} : from.feature[0];
  int32_t x = first.x, y = first.y;
  int32_t width = from.tilted ? first.width - first.height : first.width;
  int32_t height = from.tilted ? first.width + first.height : first.height;
  Description<T> upright = from;
  upright.tiltMask.clear();
  for (const auto& classifier : model(upright)) {
    for (const auto& f : classifier.features) {
      x = std::min(x, f.d.x);
      y = std::min(y, f.d.y);
      if (f.a.x > width + x) width = f.a.x;
      if (f.a.y > height + y) height = f.a.y;
    }
  }
  const auto& r = record(state);
  EXPECT_EQ(r.boxX, x);
  EXPECT_EQ(r.boxY, y);
  EXPECT_EQ(r.boxWidth, width - x);
  EXPECT_EQ(r.boxHeight, height - y);
}

template <class T>
void expectSize(const Description<T>& from, const typename Functions<T>::State* state) {
  QoriSize should = {0, 0}, is = {-1, -1};
  for (const auto& classifier : model(from)) {
    for (const auto& f : classifier.features) {
      should.width = std::max(should.width, f.c.x);
      should.height = std::max(should.height, f.a.y);
    }
  }
  EXPECT_EQ(Functions<T>::size(state, &is), qorStatusOk);
  EXPECT_EQ(is.width, should.width);
  EXPECT_EQ(is.height, should.height);
}

TEST_F(StageBuild, HoldsWhatItWasMadeOf) {
  Random random(71);
  for (int trial = 0; trial < 400; ++trial) {
    forTypes([&](auto type) {
      using T = decltype(type);
      const Description<T> from = anyDescription<T>(random, 9);
      const StageOwner<T> stage = made(from);
      ASSERT_TRUE(stage);
      expectRecord(from, stage.get());
      expectBox(from, stage.get());
      expectSize(from, stage.get());
    });
    if (HasFailure()) break;
  }
}

TEST_F(StageBuild, GroupsClassifiersByTheirNumberOfFeatures) {
  forTypes([](auto type) {
    using T = decltype(type);
    Description<T> from;
    for (size_t num : {1, 2, 3, 2, 4}) {
      from.add(std::vector<QoriRect>(num, {1, 2, 3, 4}), std::vector<T>(num, T(-1)), T(1), T(2), T(3));
    }
    const StageOwner<T> grouped = made(from);
    const int32_t order[] = {1, 3, 2, 0, 4};
    for (int k = 0; k < 5; ++k) EXPECT_EQ(record(grouped.get()).classifiers[k].indexAndTilt, order[k] << 8);
    from.tilted = true;
    for (QoriRect& rect : from.feature) rect.height = 2;
    const StageOwner<T> kept = made(from);
    for (int k = 0; k < 5; ++k) EXPECT_EQ(record(kept.get()).classifiers[k].indexAndTilt, (k << 8) + 1);
    EXPECT_EQ(record(kept.get()).pairCount, 0);
    EXPECT_EQ(record(kept.get()).pairOrTripleCount, 0);
  });
}

TEST_F(StageBuild, ReadsOneRectangleOfNoClassifiers) {
  forTypes([](auto type) {
    using T = decltype(type);
    constexpr bool floats = std::is_same_v<T, float>;
    // Not even a bad one is refused.
    for (const bool tilted : {false, true}) {
      const Guarded<QoriRect> one({{-3, 5, 20, -6}});
      const Guarded<T> none({});
      const Guarded<int32_t> num({});
      typename Functions<T>::State* state = nullptr;
      const auto init = tilted ? Functions<T>::tilted : Functions<T>::upright;
      ASSERT_EQ(init(&state, one.data(), none.data(), none.data(), none.data(), none.data(), num.data(), 0),
                qorStatusOk);
      const StageOwner<T> owner(state);
      const auto& r = record(state);
      EXPECT_EQ(r.boxX, -3);
      EXPECT_EQ(r.boxY, 5);
      EXPECT_EQ(r.boxWidth, (tilted ? 26 : 20) + 3);
      EXPECT_EQ(r.boxHeight, (tilted ? 14 : -6) - 5);
      EXPECT_EQ(r.classifierCount, 0);
      EXPECT_EQ(r.featureCount, 0);
      EXPECT_EQ(lastField(r), floats ? 1 : 0);
      QoriSize size = {9, 9};
      EXPECT_EQ(Functions<T>::size(state, &size), qorStatusOk);
      EXPECT_EQ(size.width, 0);
      EXPECT_EQ(size.height, 0);
      const uint8_t byte = 1;
      EXPECT_EQ(Functions<T>::tilt(&byte, 1, state), tilted ? qorStatusBadArg : qorStatusOk);
    }
  });
}

TEST_F(StageBuild, TellsFirstWeightsThatTruncateToMinusOne) {
  const auto flag = [](std::vector<float> firstWeights, bool tilted) {
    Description<float> from;
    from.tilted = tilted;
    for (float w : firstWeights) from.add({{4, 0, 1, 1}, {4, 0, 2, 2}}, {w, 3}, 0, 0, 0);
    return record(made(from).get()).minusOne;
  };
  for (const bool tilted : {false, true}) {
    EXPECT_EQ(flag({-1, -1.99f, -1}, tilted), 1);
    for (float w : {-0.99f, -2.0f, 1.0f, 0.0f, NAN, INFINITY, -INFINITY}) EXPECT_EQ(flag({-1, w}, tilted), 0) << w;
  }
}

TEST_F(StageBuild, AllowsATiltedRectangleOneColumnToTheLeft) {
  forTypes([](auto type) {
    using T = decltype(type);
    Description<T> from;
    from.tilted = true;
    from.add({{3, 0, 1, 4}}, {T(1)}, T(0), T(0), T(0));
    const StageOwner<T> stage = made(from);
    EXPECT_EQ(record(stage.get()).classifiers[0].features[0].bx, -1);
    from.feature[0].height = 5;
    typename Functions<T>::State* state = nullptr;
    EXPECT_EQ(make(from, &state), qorStatusBadArg);
  });
}

TEST_F(StageBuild, RefusesBadRectangles) {
  forTypes([](auto type) {
    using T = decltype(type);
    for (const bool tilted : {false, true}) {
      for (const QoriRect bad : {QoriRect{-1, 0, 1, 1}, {0, -1, 1, 1}, {0, 0, 0, 1}, {0, 0, 1, 0}, {9, 9, -4, 1}}) {
        for (int32_t place = 0; place < 4; ++place) {
          Description<T> from;
          from.tilted = tilted;
          from.add({{1, 1, 1, 1}, {1, 1, 1, 1}}, {T(1), T(1)}, T(0), T(0), T(0));
          from.add({{1, 1, 1, 1}}, {T(1)}, T(0), T(0), T(0));
          from.add({{1, 1, 1, 1}}, {T(1)}, T(0), T(0), T(0));
          from.feature[size_t(place)] = bad;
          const bool early = std::is_same_v<T, float> && !tilted;
          services::reset();
          auto* const before = reinterpret_cast<typename Functions<T>::State*>(&from);
          auto* state = before;
          EXPECT_EQ(make(from, &state), qorStatusBadArg);
          EXPECT_EQ(services::allocations(), early ? 0 : 1);
          EXPECT_EQ(services::liveBlocks(), 0);
          EXPECT_EQ(state, early ? before : nullptr);
          // The allocation stands between the two.
          services::failAfter(0);
          state = before;
          EXPECT_EQ(make(from, &state), early ? qorStatusBadArg : qorStatusNoMemory);
          EXPECT_EQ(state, before);
        }
      }
    }
  });
}

TEST_F(StageBuild, LeavesTheStateAloneWithoutMemory) {
  forTypes([](auto type) {
    using T = decltype(type);
    for (const bool tilted : {false, true}) {
      services::reset();
      Description<T> from;
      from.tilted = tilted;
      from.add({{1, 1, 1, 1}}, {T(1)}, T(0), T(0), T(0));
      auto* const before = reinterpret_cast<typename Functions<T>::State*>(&from);
      auto* state = before;
      services::failAfter(0);
      EXPECT_EQ(make(from, &state), qorStatusNoMemory);
      EXPECT_EQ(state, before);
      services::failAfter(-1);
      // More features than can be counted: no rectangle is read, nothing is allocated.
      services::reset();
      from.add({{1, 1, 1, 1}}, {T(1)}, T(0), T(0), T(0));
      for (const std::vector<int32_t>& num : {std::vector<int32_t>{INT32_MAX, INT32_MAX}, {INT32_MAX, 1}}) {
        from.num = num;
        EXPECT_EQ(make(from, &state), qorStatusNoMemory);
        EXPECT_EQ(state, before);
      }
      EXPECT_EQ(services::allocations(), 0);
    }
  });
}

TEST_F(StageBuild, ChecksArgumentsInOrder) {
  forTypes([](auto type) {
    using T = decltype(type);
    using State = typename Functions<T>::State;
    for (const bool tilted : {false, true}) {
      struct A {
        State** state;
        const QoriRect* feature;
        const T *weight, *threshold, *val1, *val2;
        const int32_t* num;
        int32_t length;
      };
      State* state = nullptr;
      const QoriRect feature[2] = {{1, 1, 2, 1}, {2, 2, 1, 1}}, bad[2] = {{1, 1, 2, 1}, {2, 2, 0, 1}};
      const T values[2] = {};
      const int32_t num[2] = {1, 1}, badNum[2] = {1, 0}, negative[2] = {-1, 1};
      const A good = {&state, feature, values, values, values, values, num, 2};
      std::vector<Fault<A>> faults;
      faults.push_back({"state", qorStatusNullPtr, [](A& a) { a.state = nullptr; }});
      faults.push_back({"feature", qorStatusNullPtr, [](A& a) { a.feature = nullptr; }});
      faults.push_back({"weight", qorStatusNullPtr, [](A& a) { a.weight = nullptr; }});
      faults.push_back({"threshold", qorStatusNullPtr, [](A& a) { a.threshold = nullptr; }});
      faults.push_back({"val1", qorStatusNullPtr, [](A& a) { a.val1 = nullptr; }});
      faults.push_back({"val2", qorStatusNullPtr, [](A& a) { a.val2 = nullptr; }});
      faults.push_back({"num", qorStatusNullPtr, [](A& a) { a.num = nullptr; }});
      faults.push_back({"length", qorStatusBadSize, [](A& a) { a.length = -1; }});
      faults.push_back({"length", qorStatusBadSize, [](A& a) { a.length = INT32_MIN; }});
      faults.push_back({"num", qorStatusBadSize, [&](A& a) { a.num = badNum; }});
      faults.push_back({"num", qorStatusBadSize, [&](A& a) { a.num = negative; }});
      faults.push_back({"feature", qorStatusBadArg, [&](A& a) { a.feature = bad; }});
      const auto call = [&](const A& a) {
        return (tilted ? Functions<T>::tilted : Functions<T>::upright)(a.state, a.feature, a.weight, a.threshold,
                                                                       a.val1, a.val2, a.num, a.length);
      };
      expectStatuses<A>(good, faults, call, [&] {
        const auto* bytes = reinterpret_cast<const uint8_t*>(&state);
        return std::vector<uint8_t>(bytes, bytes + sizeof state);
      });
      ASSERT_TRUE(state);
      QoriSize size = {7, 7};
      EXPECT_EQ(Functions<T>::size(nullptr, &size), qorStatusNullPtr);
      EXPECT_EQ(Functions<T>::size(state, nullptr), qorStatusNullPtr);
      EXPECT_EQ(size.width, 7);
      const uint8_t mask[2] = {};
      EXPECT_EQ(Functions<T>::tilt(nullptr, 0, state), qorStatusNullPtr);
      EXPECT_EQ(Functions<T>::tilt(mask, 0, nullptr), qorStatusNullPtr);
      EXPECT_EQ(Functions<T>::tilt(mask, 0, state), tilted ? qorStatusBadArg : qorStatusOk);
      EXPECT_EQ(Functions<T>::free(nullptr), qorStatusNullPtr);
      EXPECT_EQ(Functions<T>::free(state), qorStatusOk);
    }
  });
}

TEST_F(StageBuild, TiltsOnce) {
  forTypes([](auto type) {
    using T = decltype(type);
    Description<T> from;
    for (size_t num : {1, 2, 3}) {
      from.add(std::vector<QoriRect>(num, {3, 4, 2, 5}), std::vector<T>(num, T(-1)), T(1), T(2), T(3));
    }
    const StageOwner<T> stage = made(from);
    const uint8_t none[3] = {}, second[3] = {0, 200, 0};
    EXPECT_EQ(Functions<T>::tilt(none, 1, stage.get()), qorStatusOk);
    expectRecord(from, stage.get());
    EXPECT_EQ(Functions<T>::tilt(second, 1, stage.get()), qorStatusOk);
    from.tiltMask = {0, 200, 0};
    from.anchorAtTop = 1;
    expectRecord(from, stage.get());
    EXPECT_EQ(Functions<T>::tilt(none, 1, stage.get()), qorStatusBadArg);
    EXPECT_EQ(Functions<T>::tilt(second, 0, stage.get()), qorStatusBadArg);
    expectRecord(from, stage.get());
    // The height counts in one form only.
    const auto& f = record(stage.get()).classifiers[0].features[0];
    constexpr bool floats = std::is_same_v<T, float>;
    EXPECT_EQ(f.bx, floats ? 3 - 5 : 3 - 2);
    EXPECT_EQ(f.ay, floats ? 4 + 2 + 5 : 4 + 4);
  });
}

}  // namespace
