// Records of a detection stage. One allocation holds the stage, its classifiers and their features.
#pragma once

#include "frame/level.h"

// A feature's sum is the plane's cell at corner a, less those at b and c, plus that at d, relative to the window.
template <class T>
struct QoriHaarFeature {
  int32_t ax, ay, bx, by, cx, cy, dx, dy;
  T weight;
};

template <class T>
struct QoriHaarWeakClassifier {
  int32_t featureCount;
  QoriHaarFeature<T>* features;
  T threshold, val1, val2;
  int32_t indexAndTilt;  // place in the caller's arrays, times 256; bit 0: reads the tilted plane
};

// Odd: the counters stand in different orders in the two records.
struct QoriHaarClassifier_32f {
  int32_t classifierCount, featureCount;
  QoriHaarWeakClassifier<float>* classifiers;
  int32_t boxX, boxY, boxWidth, boxHeight;  // nobody reads the box
  int32_t tiltFlags;                        // bit 0: holds tilted features
  int32_t pairCount, pairOrTripleCount;     // the first classifiers have two features, the next ones three
  int32_t storedFeatureCount;
  int32_t firstWeightsAreMinusOne;  // nobody reads it
};

struct QoriHaarClassifier_32s {
  int32_t classifierCount, featureCount;
  QoriHaarWeakClassifier<int32_t>* classifiers;
  int32_t boxX, boxY, boxWidth, boxHeight;
  int32_t tiltFlags;
  int32_t storedFeatureCount;
  int32_t pairCount, pairOrTripleCount;
  int32_t firstWeightsAreMinusOne;  // always 0
};

template <class T>
struct StageOf;
template <>
struct StageOf<float> {
  using Type = QoriHaarClassifier_32f;
};
template <>
struct StageOf<int32_t> {
  using Type = QoriHaarClassifier_32s;
};
template <class T>
using Stage = typename StageOf<T>::Type;
