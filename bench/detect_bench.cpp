// Object detection: integral images of a photograph, and window deviations read from them.
#include <memory>
#include <random>

#include "support/bench.h"

using bench::Picture;

static QoriSize larger(QoriSize size, int32_t by) { return {size.width + by, size.height + by}; }

// `border` is the number of columns and rows that a plane has more than the source: 1 upright, 2 tilted.
template <class Cell, class Function>
static void addIntegral(const char* name, Function function, int32_t border) {
  bench::add(name, "", [=](QoriSize size) {
    auto src = std::make_shared<Picture<uint8_t>>(bench::naturalScene(size));
    auto dst = std::make_shared<Picture<Cell>>(larger(size, border));
    return [=] { CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), size, 0)); };
  });
}

template <class Cell, class Square, class Function>
static void addSqrIntegral(const char* name, Function function, int32_t border) {
  bench::add(name, "", [=](QoriSize size) {
    // The 8u32s tilted form reads one byte past the region.
    auto src = std::make_shared<Picture<uint8_t>>(bench::naturalScene({size.width, size.height + 1}));
    auto dst = std::make_shared<Picture<Cell>>(larger(size, border));
    auto sqr = std::make_shared<Picture<Square>>(larger(size, border));
    return [=] {
      CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), sqr->data(), sqr->step(), size, 0, 0));
    };
  });
}

// Windows of 20x20, or tilted ones of 10x10, at all places of a picture; `scale` is empty or the scale factor.
template <class Cell, class Square, class Result, class Function, class Planes, class... Scale>
static void addDeviation(const char* name, Function function, Planes planes, int32_t border, Scale... scale) {
  bench::add(name, "", [=](QoriSize size) {
    auto src = bench::naturalScene({size.width, size.height + 1});
    auto sums = std::make_shared<Picture<Cell>>(larger(size, border));
    auto squares = std::make_shared<Picture<Square>>(larger(size, border));
    CHECK_CALL(
        planes(src.data(), src.step(), sums->data(), sums->step(), squares->data(), squares->step(), size, 0, 0));
    const QoriSize windows = larger(size, border == 1 ? -20 : -30);
    const QoriRect rect = border == 1 ? QoriRect{0, 0, 20, 20} : QoriRect{10, 0, 10, 10};
    auto dst = std::make_shared<Picture<Result>>(windows);
    return [=] {
      CHECK_CALL(function(sums->data(), sums->step(), squares->data(), squares->step(), dst->data(), dst->step(),
                          windows, rect, scale...));
    };
  });
}

// A stage of 20 classifiers with two features each, in windows of 24x24.
template <class T, class State, class Init>
static std::shared_ptr<State> stageOf(Init init, QorStatus (*release)(State*)) {
  constexpr int32_t length = 20;
  std::mt19937 engine(1);
  const auto number = [&](int32_t first, int32_t last) {
    return first + int32_t(engine() % uint32_t(last - first + 1));
  };
  std::vector<QoriRect> feature;
  std::vector<T> weight, threshold, val1, val2;
  for (int32_t i = 0; i < length; ++i) {
    for (const T w : {T(-1), T(2)}) {
      // Tilted, they stay inside the window too.
      const int32_t x = number(6, 12), y = number(0, 8), width = number(1, 6), height = number(1, 6);
      feature.push_back({x, y, width, height});
      weight.push_back(w);
    }
    threshold.push_back(T(number(-20, 20)));
    val1.push_back(T(number(-9, 9)));
    val2.push_back(T(number(-9, 9)));
  }
  const std::vector<int32_t> num(length, 2);
  State* state = nullptr;
  CHECK_CALL(
      init(&state, feature.data(), weight.data(), threshold.data(), val1.data(), val2.data(), num.data(), length));
  return {state, release};
}

// All windows live, or every twentieth. A stage clears most of them, so each call gets the mask anew: one copy.
template <class Norm, class Function>
static void addStage(const char* name, Function apply) {
  for (const int32_t every : {1, 20}) {
    bench::add(name, every == 1 ? "all windows" : "5 % of the windows", [=](QoriSize size) {
      const QoriSize windows = larger(size, -24);
      auto norm = std::make_shared<Picture<Norm>>(windows);
      for (Norm& n : norm->elements) n = Norm(50);
      auto live = std::make_shared<Picture<uint8_t>>(windows), mask = std::make_shared<Picture<uint8_t>>(windows);
      std::mt19937 engine(1);
      for (uint8_t& byte : live->elements) byte = engine() % uint32_t(every) == 0 ? 255 : 0;
      const std::function<QorStatus()> call = apply(size, norm, mask, windows);
      return [=] {
        mask->elements = live->elements;
        CHECK_CALL(call());
      };
    });
  }
}

template <class Cell, class Norm, class T, class State, class Function, class Planes, class Init>
static void addPlainStage(const char* name, Function function, Planes planes, Init init, QorStatus (*release)(State*)) {
  addStage<Norm>(name, [=](QoriSize size, std::shared_ptr<Picture<Norm>> norm, std::shared_ptr<Picture<uint8_t>> mask,
                           QoriSize windows) {
    auto src = bench::naturalScene(size);
    auto plane = std::make_shared<Picture<Cell>>(larger(size, 1));
    CHECK_CALL(planes(src.data(), src.step(), plane->data(), plane->step(), size, 0));
    const auto state = stageOf<T>(init, release);
    return [=] {
      int32_t positive;
      return function(plane->data(), plane->step(), norm->data(), norm->step(), mask->data(), mask->step(), windows,
                      &positive, T(0), state.get());
    };
  });
}

// Every other classifier is tilted.
template <class Cell, class Norm, class T, class State, class Function, class Upright, class Tilted, class Init,
          class Tilt, class... Scale>
static void addMixedStage(const char* name, Function function, Upright upright, Tilted tilted, Init init, Tilt tilt,
                          QorStatus (*release)(State*), Scale... scale) {
  addStage<Norm>(name, [=](QoriSize size, std::shared_ptr<Picture<Norm>> norm, std::shared_ptr<Picture<uint8_t>> mask,
                           QoriSize windows) {
    auto src = bench::naturalScene(size);
    auto plane = std::make_shared<Picture<Cell>>(larger(size, 1));
    auto turned = std::make_shared<Picture<Cell>>(larger(size, 2));
    CHECK_CALL(upright(src.data(), src.step(), plane->data(), plane->step(), size, 0));
    CHECK_CALL(tilted(src.data(), src.step(), turned->data(), turned->step(), size, 0));
    const auto state = stageOf<T>(init, release);
    std::vector<uint8_t> tiltMask(20);
    for (size_t i = 0; i < tiltMask.size(); i += 2) tiltMask[i] = 1;
    CHECK_CALL(tilt(tiltMask.data(), 1, state.get()));
    return [=] {
      int32_t positive;
      return function(plane->data(), plane->step(), turned->data(), turned->step(), norm->data(), norm->step(),
                      mask->data(), mask->step(), windows, &positive, T(0), state.get(), scale...);
    };
  });
}

static void addStages() {
  addPlainStage<float, float, float>("qoriApplyHaarClassifier_32f_C1R", qoriApplyHaarClassifier_32f_C1R,
                                     qoriIntegral_8u32f_C1R, qoriHaarClassifierInitAlloc_32f,
                                     qoriHaarClassifierFree_32f);
  addPlainStage<int32_t, float, float>("qoriApplyHaarClassifier_32s32f_C1R", qoriApplyHaarClassifier_32s32f_C1R,
                                       qoriIntegral_8u32s_C1R, qoriHaarClassifierInitAlloc_32f,
                                       qoriHaarClassifierFree_32f);
  addPlainStage<int32_t, int32_t, int32_t>("qoriApplyHaarClassifier_32s_C1RSfs", qoriApplyHaarClassifier_32s_C1RSfs,
                                           qoriIntegral_8u32s_C1R, qoriHaarClassifierInitAlloc_32s,
                                           qoriHaarClassifierFree_32s);
  addMixedStage<float, float, float>("qoriApplyMixedHaarClassifier_32f_C1R", qoriApplyMixedHaarClassifier_32f_C1R,
                                     qoriIntegral_8u32f_C1R, qoriTiltedIntegral_8u32f_C1R,
                                     qoriHaarClassifierInitAlloc_32f, qoriTiltHaarFeatures_32f,
                                     qoriHaarClassifierFree_32f);
  addMixedStage<int32_t, float, float>("qoriApplyMixedHaarClassifier_32s32f_C1R",
                                       qoriApplyMixedHaarClassifier_32s32f_C1R, qoriIntegral_8u32s_C1R,
                                       qoriTiltedIntegral_8u32s_C1R, qoriHaarClassifierInitAlloc_32f,
                                       qoriTiltHaarFeatures_32f, qoriHaarClassifierFree_32f);
  addMixedStage<int32_t, int32_t, int32_t>("qoriApplyMixedHaarClassifier_32s_C1RSfs",
                                           qoriApplyMixedHaarClassifier_32s_C1RSfs, qoriIntegral_8u32s_C1R,
                                           qoriTiltedIntegral_8u32s_C1R, qoriHaarClassifierInitAlloc_32s,
                                           qoriTiltHaarFeatures_32s, qoriHaarClassifierFree_32s, 0);
}

static const bool added = [] {
  addStages();
  addIntegral<int32_t>("qoriIntegral_8u32s_C1R", qoriIntegral_8u32s_C1R, 1);
  addIntegral<float>("qoriIntegral_8u32f_C1R", qoriIntegral_8u32f_C1R, 1);
  addSqrIntegral<int32_t, int32_t>("qoriSqrIntegral_8u32s_C1R", qoriSqrIntegral_8u32s_C1R, 1);
  addSqrIntegral<int32_t, double>("qoriSqrIntegral_8u32s64f_C1R", qoriSqrIntegral_8u32s64f_C1R, 1);
  addSqrIntegral<float, double>("qoriSqrIntegral_8u32f64f_C1R", qoriSqrIntegral_8u32f64f_C1R, 1);
  addIntegral<int32_t>("qoriTiltedIntegral_8u32s_C1R", qoriTiltedIntegral_8u32s_C1R, 2);
  addIntegral<float>("qoriTiltedIntegral_8u32f_C1R", qoriTiltedIntegral_8u32f_C1R, 2);
  addSqrIntegral<int32_t, int32_t>("qoriTiltedSqrIntegral_8u32s_C1R", qoriTiltedSqrIntegral_8u32s_C1R, 2);
  addSqrIntegral<int32_t, double>("qoriTiltedSqrIntegral_8u32s64f_C1R", qoriTiltedSqrIntegral_8u32s64f_C1R, 2);
  addSqrIntegral<float, double>("qoriTiltedSqrIntegral_8u32f64f_C1R", qoriTiltedSqrIntegral_8u32f64f_C1R, 2);
  addDeviation<int32_t, int32_t, int32_t>("qoriRectStdDev_32s_C1RSfs", qoriRectStdDev_32s_C1RSfs,
                                          qoriSqrIntegral_8u32s_C1R, 1, 0);
  addDeviation<int32_t, double, float>("qoriRectStdDev_32s32f_C1R", qoriRectStdDev_32s32f_C1R,
                                       qoriSqrIntegral_8u32s64f_C1R, 1);
  addDeviation<float, double, float>("qoriRectStdDev_32f_C1R", qoriRectStdDev_32f_C1R, qoriSqrIntegral_8u32f64f_C1R, 1);
  addDeviation<int32_t, int32_t, int32_t>("qoriTiltedRectStdDev_32s_C1RSfs", qoriTiltedRectStdDev_32s_C1RSfs,
                                          qoriTiltedSqrIntegral_8u32s_C1R, 2, 0);
  addDeviation<int32_t, double, float>("qoriTiltedRectStdDev_32s32f_C1R", qoriTiltedRectStdDev_32s32f_C1R,
                                       qoriTiltedSqrIntegral_8u32s64f_C1R, 2);
  addDeviation<float, double, float>("qoriTiltedRectStdDev_32f_C1R", qoriTiltedRectStdDev_32f_C1R,
                                     qoriTiltedSqrIntegral_8u32f64f_C1R, 2);
  return true;
}();
