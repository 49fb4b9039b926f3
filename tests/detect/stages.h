// What the tests of detection stages share: descriptions, the stages that the library makes of them, and a model that
// keeps the corners as points.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "support/any_image.h"
#include "support/regions.h"
#include "support/services.h"
#include "support/statuses.h"

// A test leaves no block of memory behind.
class Stages : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
  void TearDown() override {
    EXPECT_EQ(services::liveBlocks(), 0);
    services::reset();
  }
};

// The functions of one kind of stage.
template <class T>
struct Functions;
template <>
struct Functions<float> {
  using State = QoriHaarClassifier_32f;
  static constexpr auto upright = qoriHaarClassifierInitAlloc_32f;
  static constexpr auto tilted = qoriTiltedHaarClassifierInitAlloc_32f;
  static constexpr auto free = qoriHaarClassifierFree_32f;
  static constexpr auto size = qoriGetHaarClassifierSize_32f;
  static constexpr auto tilt = qoriTiltHaarFeatures_32f;
};
template <>
struct Functions<int32_t> {
  using State = QoriHaarClassifier_32s;
  static constexpr auto upright = qoriHaarClassifierInitAlloc_32s;
  static constexpr auto tilted = qoriTiltedHaarClassifierInitAlloc_32s;
  static constexpr auto free = qoriHaarClassifierFree_32s;
  static constexpr auto size = qoriGetHaarClassifierSize_32s;
  static constexpr auto tilt = qoriTiltHaarFeatures_32s;
};

// An array of exactly its length, against an unmapped page.
template <class T>
struct Guarded {
  GuardedMemory memory;
  explicit Guarded(const std::vector<T>& values) : memory(values.size() * sizeof(T)) {
    if (!values.empty()) memcpy(memory.data(), values.data(), values.size() * sizeof(T));
  }
  T* data() const { return reinterpret_cast<T*>(memory.data()); }
};

// How a stage is made: the caller's arrays, and what is tilted afterwards.
template <class T>
struct Description {
  std::vector<QoriRect> feature;
  std::vector<T> weight, threshold, val1, val2;
  std::vector<int32_t> num;
  bool tilted = false;
  std::vector<uint8_t> tiltMask;  // empty: no tilting in place
  int32_t anchorAtTop = 0;

  void add(const std::vector<QoriRect>& rects, const std::vector<T>& weights, T threshold_, T low, T high) {
    feature.insert(feature.end(), rects.begin(), rects.end());
    weight.insert(weight.end(), weights.begin(), weights.end());
    threshold.push_back(threshold_);
    val1.push_back(low);
    val2.push_back(high);
    num.push_back(int32_t(rects.size()));
  }
};

template <class T>
QorStatus make(const Description<T>& from, typename Functions<T>::State** state) {
  // A stage of no classifiers reads one rectangle.
  const Guarded<QoriRect> feature(from.feature.empty() ? std::vector<QoriRect>(1) : from.feature);
  const Guarded<T> weight(from.weight), threshold(from.threshold), val1(from.val1), val2(from.val2);
  const Guarded<int32_t> num(from.num);
  const auto init = from.tilted ? Functions<T>::tilted : Functions<T>::upright;
  return init(state, feature.data(), weight.data(), threshold.data(), val1.data(), val2.data(), num.data(),
              int32_t(from.num.size()));
}

template <class T>
struct FreeStage {
  void operator()(typename Functions<T>::State* state) const { EXPECT_EQ(Functions<T>::free(state), qorStatusOk); }
};
template <class T>
using StageOwner = std::unique_ptr<typename Functions<T>::State, FreeStage<T>>;

// The library's stage, tilted where the description says so.
template <class T>
StageOwner<T> made(const Description<T>& from) {
  typename Functions<T>::State* state = nullptr;
  EXPECT_EQ(make(from, &state), qorStatusOk);
  if (!from.tiltMask.empty()) {
    const Guarded<uint8_t> mask(from.tiltMask);
    EXPECT_EQ(Functions<T>::tilt(mask.data(), from.anchorAtTop, state), qorStatusOk);
  }
  return StageOwner<T>(state);
}

// --- model ---

template <class T>
struct ModelFeature {
  QoriPoint a, b, c, d;
  T weight;
};

template <class T>
struct ModelClassifier {
  std::vector<ModelFeature<T>> features;
  T threshold, val1, val2;
  int32_t index;   // in the caller's arrays
  int32_t group;   // 2, 3, or 0 for all others
  int32_t packed;  // index and tilt, as the record has them
  bool tilted;
};

template <class T>
ModelFeature<T> modelFeature(const QoriRect& r, bool tilted, T weight) {
  const int32_t x = r.x, y = r.y, w = r.width, h = r.height;
  if (tilted) return {{x + w - h, y + w + h}, {x - h, y + h}, {x + w, y + w}, {x, y}, weight};
  return {{x + w, y + h}, {x, y + h}, {x + w, y}, {x, y}, weight};
}

template <class T>
void tiltInModel(ModelFeature<T>& f, int32_t anchorAtTop, const QoriRect& r) {
  const int32_t x = r.x, y = r.y, w = r.width, h = r.height;
  if (std::is_same_v<T, float>) {
    if (anchorAtTop) {
      f.d = {x, y}, f.c = {x + w, y + w}, f.b = {x - h, y + h}, f.a = {x + w - h, y + w + h};
    } else {
      f.a = {x, y + h}, f.c = {x + w, y + h - w}, f.b = {x - h, y}, f.d = {x + w - h, y - w};
    }
  } else {
    if (anchorAtTop) {
      f.d = {x, y}, f.c = {x + w, y + w}, f.b = {x - w, y + w}, f.a = {x, y + 2 * w};
    } else {
      f.a = {x, y + h}, f.c = {x + w, y + h - w}, f.b = {x - w, y + h - w}, f.d = {x, y + h - 2 * w};
    }
  }
}

// The classifiers in stored order.
template <class T>
std::vector<ModelClassifier<T>> model(const Description<T>& from) {
  std::vector<ModelClassifier<T>> stage;
  size_t next = 0;
  for (size_t i = 0; i < from.num.size(); ++i) {
    const int32_t num = from.num[i], index = int32_t(i);
    const bool turned = !from.tiltMask.empty() && from.tiltMask[i] != 0;
    const int32_t group = !from.tilted && (num == 2 || num == 3) ? num : 0;
    const int32_t packed = turned ? 1 : index * 256 + (from.tilted ? 1 : 0);
    ModelClassifier<T> classifier = {{},     from.threshold[i],    from.val1[i], from.val2[i], index, group,
                                     packed, from.tilted || turned};
    for (int32_t f = 0; f < num; ++f, ++next) {
      classifier.features.push_back(modelFeature<T>(from.feature[next], from.tilted, from.weight[next]));
      if (turned) tiltInModel<T>(classifier.features.back(), from.anchorAtTop, from.feature[next]);
    }
    stage.push_back(classifier);
  }
  std::stable_sort(stage.begin(), stage.end(), [](const ModelClassifier<T>& p, const ModelClassifier<T>& q) {
    const auto rank = [](int32_t group) { return group == 0 ? 4 : group; };
    return rank(p.group) < rank(q.group);
  });
  return stage;
}

// --- random descriptions ---

template <class T>
T anyWeight(Random& random) {
  if constexpr (std::is_same_v<T, float>) {
    return random.chance(0.5) ? float(random.number(-3, 3)) : random.value<float>() / 300;
  } else {
    return random.chance(0.9) ? int32_t(random.number(-3, 3)) : random.value<int32_t>();
  }
}

inline QoriRect anyRect(Random& random, bool tilted) {
  QoriRect r;
  r.x = int32_t(random.number(0, 12));
  r.y = int32_t(random.number(0, 12));
  r.width = int32_t(random.number(1, 9));
  r.height = int32_t(random.number(1, tilted ? std::min(9, r.x + 1) : 9));
  return r;
}

template <class T>
Description<T> anyDescription(Random& random, int32_t mostClassifiers) {
  Description<T> made;
  made.tilted = random.chance(0.2);
  const int32_t length = int32_t(random.number(0, mostClassifiers));
  for (int32_t i = 0; i < length; ++i) {
    const int32_t num = random.chance(0.7) ? int32_t(random.number(2, 3)) : int32_t(random.number(1, 6));
    std::vector<QoriRect> rects;
    std::vector<T> weights;
    for (int32_t f = 0; f < num; ++f) {
      rects.push_back(anyRect(random, made.tilted));
      weights.push_back(anyWeight<T>(random));
    }
    made.add(rects, weights, anyWeight<T>(random), anyWeight<T>(random), anyWeight<T>(random));
  }
  if (!made.tilted && random.chance(0.5)) {
    for (int32_t i = 0; i < length; ++i)
      made.tiltMask.push_back(random.chance(0.5) ? uint8_t(random.number(1, 255)) : 0);
    made.anchorAtTop = random.chance(0.5) ? 0 : int32_t(random.pick(std::vector<int32_t>{1, -7, INT32_MIN}));
  }
  return made;
}
