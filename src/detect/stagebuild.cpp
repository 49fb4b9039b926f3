// Detection stages: made from rectangles, measured, tilted, released.
//
// Upright stages are grouped: first the classifiers of two features, then those of three, then all others, so that most
// are evaluated without a loop. Stages that are made tilted keep the caller's order.
//
// Odd: the box mixes absolute and relative columns. Only the upright 32f form looks at the rectangles before it
// allocates. Tilting in place ignores the heights in the 32s form.
#include <limits>
#include <type_traits>

#include "detect/stage.h"
#include "frame/frame.h"

namespace {

// A stage on its way, and where the next classifier and feature go.
template <class T>
struct Filling {
  Stage<T>* stage;
  QoriHaarWeakClassifier<T>* classifier;
  QoriHaarFeature<T>* feature;
  bool bad;  // a bad rectangle has been met
};

// The caller's arrays.
template <class T>
struct Description {
  const QoriRect* feature;
  const T *weight, *threshold, *val1, *val2;
  const int32_t* num;
  int32_t length;
};

}  // namespace

template <bool tilted>
static bool badRect(const QoriRect& r) {
  return r.x < 0 || r.y < 0 || r.width < 1 || r.height < 1 || (tilted && r.x + 1 < r.height);
}

// --- making ---

template <class T, bool tilted>
static QoriHaarFeature<T> featureOf(const QoriRect& r, T weight) {
  const int32_t x = r.x, y = r.y, w = r.width, h = r.height;
  if constexpr (tilted) {
    return {x + w - h, y + w + h, x - h, y + h, x + w, y + w, x, y, weight};
  } else {
    return {x + w, y + h, x, y + h, x + w, y, x, y, weight};
  }
}

template <class T>
static void extendBox(Stage<T>& stage, const QoriRect& rect, const QoriHaarFeature<T>& feature) {
  if (rect.x < stage.boxX) stage.boxX = rect.x;
  if (rect.y < stage.boxY) stage.boxY = rect.y;
  if (feature.ax > stage.boxWidth + stage.boxX) stage.boxWidth = feature.ax;
  if (feature.ay > stage.boxHeight + stage.boxY) stage.boxHeight = feature.ay;
}

// Appends the classifiers that `taken` picks by their number of features.
template <bool tilted, class T, class Taken>
static void append(Filling<T>& filling, const Description<T>& from, Taken taken) {
  const QoriRect* rect = from.feature;
  const T* weight = from.weight;
  for (int32_t i = 0; i < from.length; ++i) {
    const int32_t num = from.num[i];
    if (taken(num)) {
      *filling.classifier++ = {num,          filling.feature, from.threshold[i],
                               from.val1[i], from.val2[i],    i * 256 + int32_t(tilted)};
      if constexpr (std::is_same_v<T, float>) {
        if (!(*weight <= -1.0f && *weight > -2.0f)) filling.stage->firstWeightsAreMinusOne = 0;
      }
      for (int32_t f = 0; f < num; ++f) {
        filling.bad |= badRect<tilted>(rect[f]);
        *filling.feature = featureOf<T, tilted>(rect[f], weight[f]);
        extendBox<T>(*filling.stage, rect[f], *filling.feature++);
      }
    }
    rect += num;
    weight += num;
  }
}

template <bool tilted, class T>
static void fill(Filling<T>& filling, const Description<T>& from, int32_t featureCount) {
  Stage<T>& stage = *filling.stage;
  const QoriRect& first = *from.feature;
  stage = {};
  stage.classifierCount = from.length;
  stage.featureCount = stage.storedFeatureCount = featureCount;
  stage.classifiers = filling.classifier;
  stage.boxX = first.x;
  stage.boxY = first.y;
  stage.boxWidth = tilted ? first.width - first.height : first.width;
  stage.boxHeight = tilted ? first.width + first.height : first.height;
  stage.tiltFlags = tilted;
  stage.firstWeightsAreMinusOne = std::is_same_v<T, float>;
  if constexpr (tilted) {
    append<tilted>(filling, from, [](int32_t) { return true; });
  } else {
    append<tilted>(filling, from, [](int32_t num) { return num == 2; });
    stage.pairCount = int32_t(filling.classifier - stage.classifiers);
    append<tilted>(filling, from, [](int32_t num) { return num == 3; });
    stage.pairOrTripleCount = int32_t(filling.classifier - stage.classifiers);
    append<tilted>(filling, from, [](int32_t num) { return num != 2 && num != 3; });
  }
  stage.boxWidth -= stage.boxX;
  stage.boxHeight -= stage.boxY;
}

template <class T, bool tilted>
static QorStatus initAlloc(Stage<T>** state, const QoriRect* feature, const T* weight, const T* threshold,
                           const T* val1, const T* val2, const int32_t* num, int32_t length) {
  if (anyNull(state, feature, weight, threshold, val1, val2, num)) return qorStatusNullPtr;
  if (length < 0) return qorStatusBadSize;
  int64_t featureCount = 0;
  for (int32_t i = 0; i < length; ++i) {
    if (num[i] < 1) return qorStatusBadSize;
    featureCount += num[i];
  }
  // More than the record can count, and more rectangles than anybody has.
  if (featureCount > std::numeric_limits<int32_t>::max()) return qorStatusNoMemory;
  if constexpr (std::is_same_v<T, float> && !tilted) {
    for (int64_t f = 0; f < featureCount; ++f) {
      if (badRect<tilted>(feature[f])) return qorStatusBadArg;
    }
  }
  using Classifier = QoriHaarWeakClassifier<T>;
  const int64_t classifierBytes = int64_t(sizeof(Classifier)) * length;
  const int64_t featureBytes = int64_t(sizeof(QoriHaarFeature<T>)) * featureCount;
  auto* made = static_cast<uint8_t*>(qorMalloc(sizeof(Stage<T>) + size_t(classifierBytes + featureBytes)));
  if (!made) return qorStatusNoMemory;
  uint8_t* classifiers = made + sizeof(Stage<T>);
  Filling<T> filling = {reinterpret_cast<Stage<T>*>(made), reinterpret_cast<Classifier*>(classifiers),
                        reinterpret_cast<QoriHaarFeature<T>*>(classifiers + classifierBytes), false};
  fill<tilted, T>(filling, {feature, weight, threshold, val1, val2, num, length}, int32_t(featureCount));
  if (filling.bad) {
    qorFree(made);
    *state = nullptr;
    return qorStatusBadArg;
  }
  *state = filling.stage;
  return qorStatusOk;
}

template <class State>
static QorStatus freeStage(State* state) {
  if (anyNull(state)) return qorStatusNullPtr;
  qorFree(state);
  return qorStatusOk;
}

// --- size ---

template <class State>
static QorStatus sizeOf(const State* state, QoriSize* size) {
  if (anyNull(state, size)) return qorStatusNullPtr;
  QoriSize most = {0, 0};
  for (int32_t k = 0; k < state->classifierCount; ++k) {
    const auto& classifier = state->classifiers[k];
    for (int32_t f = 0; f < classifier.featureCount; ++f) {
      if (classifier.features[f].cx > most.width) most.width = classifier.features[f].cx;
      if (classifier.features[f].ay > most.height) most.height = classifier.features[f].ay;
    }
  }
  *size = most;
  return qorStatusOk;
}

// --- tilting in place ---

static void tilt(QoriHaarFeature<float>& feature, bool anchorAtTop) {
  const int32_t x = feature.dx, y = feature.dy, w = feature.ax - x, h = feature.ay - y;
  if (anchorAtTop) {
    feature = {x + w - h, y + w + h, x - h, y + h, x + w, y + w, x, y, feature.weight};
  } else {
    feature = {x, y + h, x - h, y, x + w, y + h - w, x + w - h, y - w, feature.weight};
  }
}

// A diamond of the width, whatever the height.
static void tilt(QoriHaarFeature<int32_t>& feature, bool anchorAtTop) {
  const int32_t x = feature.dx, y = feature.dy, w = feature.ax - x, h = feature.ay - y;
  if (anchorAtTop) {
    feature = {x, y + 2 * w, x - w, y + w, x + w, y + w, x, y, feature.weight};
  } else {
    feature = {x, y + h, x - w, y + h - w, x + w, y + h - w, x, y + h - 2 * w, feature.weight};
  }
}

template <class State>
static QorStatus tiltFeatures(const uint8_t* tiltMask, int32_t anchorAtTop, State* state) {
  if (anyNull(tiltMask, state)) return qorStatusNullPtr;
  if (state->tiltFlags & 1) return qorStatusBadArg;
  bool any = false;
  for (int32_t i = 0; i < state->classifierCount; ++i) {
    if (!tiltMask[i]) continue;
    any = true;
    int32_t k = 0;
    while (k < state->classifierCount && state->classifiers[k].indexAndTilt >> 8 != i) ++k;
    if (k == state->classifierCount) continue;
    auto& classifier = state->classifiers[k];
    classifier.indexAndTilt = 1;  // the index is lost
    for (int32_t f = 0; f < classifier.featureCount; ++f) tilt(classifier.features[f], anchorAtTop != 0);
  }
  if (any) state->tiltFlags |= 1;
  return qorStatusOk;
}

QorStatus qoriHaarClassifierInitAlloc_32f(QoriHaarClassifier_32f** state, const QoriRect* feature, const float* weight,
                                          const float* threshold, const float* val1, const float* val2,
                                          const int32_t* num, int32_t length) {
  return initAlloc<float, false>(state, feature, weight, threshold, val1, val2, num, length);
}

QorStatus qoriHaarClassifierInitAlloc_32s(QoriHaarClassifier_32s** state, const QoriRect* feature,
                                          const int32_t* weight, const int32_t* threshold, const int32_t* val1,
                                          const int32_t* val2, const int32_t* num, int32_t length) {
  return initAlloc<int32_t, false>(state, feature, weight, threshold, val1, val2, num, length);
}

QorStatus qoriTiltedHaarClassifierInitAlloc_32f(QoriHaarClassifier_32f** state, const QoriRect* feature,
                                                const float* weight, const float* threshold, const float* val1,
                                                const float* val2, const int32_t* num, int32_t length) {
  return initAlloc<float, true>(state, feature, weight, threshold, val1, val2, num, length);
}

QorStatus qoriTiltedHaarClassifierInitAlloc_32s(QoriHaarClassifier_32s** state, const QoriRect* feature,
                                                const int32_t* weight, const int32_t* threshold, const int32_t* val1,
                                                const int32_t* val2, const int32_t* num, int32_t length) {
  return initAlloc<int32_t, true>(state, feature, weight, threshold, val1, val2, num, length);
}

QorStatus qoriHaarClassifierFree_32f(QoriHaarClassifier_32f* state) { return freeStage(state); }
QorStatus qoriHaarClassifierFree_32s(QoriHaarClassifier_32s* state) { return freeStage(state); }

QorStatus qoriGetHaarClassifierSize_32f(const QoriHaarClassifier_32f* state, QoriSize* size) {
  return sizeOf(state, size);
}
QorStatus qoriGetHaarClassifierSize_32s(const QoriHaarClassifier_32s* state, QoriSize* size) {
  return sizeOf(state, size);
}

QorStatus qoriTiltHaarFeatures_32f(const uint8_t* tiltMask, int32_t anchorAtTop, QoriHaarClassifier_32f* state) {
  return tiltFeatures(tiltMask, anchorAtTop, state);
}
QorStatus qoriTiltHaarFeatures_32s(const uint8_t* tiltMask, int32_t anchorAtTop, QoriHaarClassifier_32s* state) {
  return tiltFeatures(tiltMask, anchorAtTop, state);
}
