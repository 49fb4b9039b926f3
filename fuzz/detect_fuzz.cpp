// Object detection.
#include "support/fuzz.h"

using fuzz::Arguments;

static QoriSize larger(QoriSize size, int32_t by) { return {size.width + by, size.height + by}; }

// A call may be told a smaller size than its images have, never a larger one. `border` is the number of columns and
// rows that a plane has more than the source.
template <class Cell, class Function>
static void addIntegral(const char* name, Function function, int32_t border) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<uint8_t>(size);
    const auto dst = a.image<Cell>(larger(size, border));
    function(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.value<Cell>());
  });
}

// `past` is the number of pixels that the function reads beyond each row.
template <class Cell, class Square, class Function>
static void addSqrIntegral(const char* name, Function function, int32_t border, int32_t past = 0) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<uint8_t>({size.width + past, size.height});
    const auto dst = a.image<Cell>(larger(size, border));
    const auto sqr = a.image<Square>(larger(size, border));
    const Cell val = a.value<Cell>();
    const Square valSqr = a.value<Square>();
    function(src.data, src.step, dst.data, dst.step, sqr.data, sqr.step, a.spoiled(size), val, valSqr);
  });
}

static QoriRect anyRect(Arguments& a) {
  const int32_t x = a.number(0, 9), y = a.number(0, 9), width = a.number(1, 9), height = a.number(1, 9);
  return {x, y, width, height};
}

// What the call is told of the rectangle: as it is, or refused.
static QoriRect spoiled(Arguments& a, QoriRect rect) {
  if (a.chance(2)) rect.x = -1 - rect.x;
  if (a.chance(2)) rect.y = -1 - rect.y;
  if (a.chance(2)) rect.width = 0;
  if (a.chance(2)) rect.height = -rect.height;
  return rect;
}

// Planes have just the cells that are read, and the pointers point at the cell of window origin (0, 0).
template <class Cell, class Square, class Result, bool tilted, bool scaled, class Function>
static void addDeviation(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize windows = a.chance(2) ? QoriSize{64, 65} : a.size(1024);
    const QoriRect rect = anyRect(a);
    const int32_t left = !tilted || rect.x - rect.y >= rect.height ? 0 : rect.height - (rect.x - rect.y);
    const int32_t reach =
        tilted ? windows.width + rect.width + rect.x + rect.y + rect.height - 1 : windows.width + rect.x + rect.width;
    const int32_t below = tilted ? rect.x + rect.y + rect.width + rect.height : rect.y + rect.height;
    const QoriSize plane = {left + reach + 1, windows.height + below};
    const auto src = a.image<Cell>(plane);
    const auto sqr = a.image<Square>(plane);
    const auto dst = a.image<Result>(windows);
    const Cell* srcOrigin = src.data ? src.data + left : nullptr;
    const Square* sqrOrigin = sqr.data ? sqr.data + left : nullptr;
    const QoriRect told = spoiled(a, rect);
    const QoriSize size = a.spoiled(windows);
    if constexpr (scaled) {
      function(srcOrigin, src.step, sqrOrigin, sqr.step, dst.data, dst.step, size, told, a.value<int32_t>());
    } else {
      function(srcOrigin, src.step, sqrOrigin, sqr.step, dst.data, dst.step, size, told);
    }
  });
}

// Rectangles, weights and the other arrays of a stage, each exactly as long as needed.
template <class T>
struct StageArrays {
  std::vector<QoriRect> rects;
  std::vector<int32_t> counts;
  std::shared_ptr<GuardedMemory> feature, weight, threshold, val1, val2, num;

  explicit StageArrays(Arguments& a) {
    const int32_t length = a.number(0, 5);
    int32_t features = 0;
    for (int32_t i = 0; i < length; ++i) features += counts.emplace_back(a.number(1, 4));
    // Of no classifiers one rectangle is read too.
    for (int32_t f = 0; f < (features ? features : 1); ++f) {
      QoriRect rect = anyRect(a);
      if (rect.height > rect.x + 1) rect.height = rect.x + 1;
      rects.push_back(a.chance(95) ? rect : spoiled(a, rect));
    }
    feature = a.guarded(int64_t(rects.size() * sizeof(QoriRect)));
    memcpy(feature->data(), rects.data(), feature->size());
    num = a.guarded(int64_t(counts.size() * sizeof(int32_t)));
    if (!counts.empty()) memcpy(num->data(), counts.data(), num->size());
    weight = a.array<T>(size_t(features));
    threshold = a.array<T>(counts.size());
    val1 = a.array<T>(counts.size());
    val2 = a.array<T>(counts.size());
  }
};

template <class T, class State, class Init>
static State* anyStage(Arguments& a, Init init) {
  const StageArrays<T> of(a);
  const auto values = [&](const std::shared_ptr<GuardedMemory>& m) {
    return a.orNull(reinterpret_cast<T*>(m->data()));
  };
  const T *weight = values(of.weight), *threshold = values(of.threshold), *val1 = values(of.val1),
          *val2 = values(of.val2);
  State* state = nullptr;
  init(a.chance(3) ? nullptr : &state, a.orNull(reinterpret_cast<QoriRect*>(of.feature->data())), weight, threshold,
       val1, val2, a.orNull(reinterpret_cast<int32_t*>(of.num->data())), a.chance(3) ? -1 : int32_t(of.counts.size()));
  return state;
}

// A stage, upright, tilted or both, its size, and one application of each kind: the planes have 30 cells around the
// windows, which no corner leaves.
template <class T, class Cell, class Norm, class State, class Init, class Size, class Tilt, class Plain, class Mixed>
static void addStage(const char* name, Init upright, Init tilted, QorStatus (*release)(State*), Size sizeOf, Tilt tilt,
                     Plain plain, Mixed mixed) {
  fuzz::add(name, [=](Arguments& a) {
    State* const state = anyStage<T, State>(a, a.chance(70) ? upright : tilted);
    QoriSize window = {0, 0};
    sizeOf(state, a.orNull(&window));
    const auto tiltMask = a.array<uint8_t>(5);
    if (a.chance(50)) tilt(a.orNull(tiltMask->data()), a.number(0, 1), state);
    constexpr int32_t around = 30;
    const QoriSize windows = a.size(1024);
    const auto src = a.image<Cell>(larger(windows, 2 * around)), turned = a.image<Cell>(larger(windows, 2 * around));
    const auto norm = a.image<Norm>(windows);
    const auto mask = a.image<uint8_t>(windows);
    const auto origin = [](const fuzz::ImageArgument<Cell>& plane) -> const Cell* {
      // A shorter step than the image has is taken where it suffices for the windows.
      if (!plane.data || plane.step < 0) return plane.data;
      return plane.data + ptrdiff_t(around) * (plane.step / ptrdiff_t(sizeof(Cell))) + around;
    };
    int32_t count = 0;
    int32_t* positive = a.orNull(&count);
    const T threshold = a.value<T>();
    const QoriSize told = a.spoiled(windows);
    if (a.chance(50)) {
      plain(origin(src), src.step, norm.data, norm.step, mask.data, mask.step, told, positive, threshold, state);
    } else {
      mixed(origin(src), src.step, origin(turned), turned.step, norm.data, norm.step, mask.data, mask.step, told,
            positive, threshold, state, a.orAnything(-a.number(0, 40)));
    }
    if (state) release(state);
  });
}

static void addStages() {
  addStage<float, float, float>(
      "qoriApplyHaarClassifier_32f_C1R", qoriHaarClassifierInitAlloc_32f, qoriTiltedHaarClassifierInitAlloc_32f,
      qoriHaarClassifierFree_32f, qoriGetHaarClassifierSize_32f, qoriTiltHaarFeatures_32f,
      qoriApplyHaarClassifier_32f_C1R,
      [](const float* src, int32_t srcStep, const float* turned, int32_t tiltStep, const float* norm, int32_t normStep,
         uint8_t* mask, int32_t maskStep, QoriSize size, int32_t* positive, float threshold,
         const QoriHaarClassifier_32f* state, int32_t) {
        qoriApplyMixedHaarClassifier_32f_C1R(src, srcStep, turned, tiltStep, norm, normStep, mask, maskStep, size,
                                             positive, threshold, state);
      });
  addStage<float, int32_t, float>(
      "qoriApplyHaarClassifier_32s32f_C1R", qoriHaarClassifierInitAlloc_32f, qoriTiltedHaarClassifierInitAlloc_32f,
      qoriHaarClassifierFree_32f, qoriGetHaarClassifierSize_32f, qoriTiltHaarFeatures_32f,
      qoriApplyHaarClassifier_32s32f_C1R,
      [](const int32_t* src, int32_t srcStep, const int32_t* turned, int32_t tiltStep, const float* norm,
         int32_t normStep, uint8_t* mask, int32_t maskStep, QoriSize size, int32_t* positive, float threshold,
         const QoriHaarClassifier_32f* state, int32_t) {
        qoriApplyMixedHaarClassifier_32s32f_C1R(src, srcStep, turned, tiltStep, norm, normStep, mask, maskStep, size,
                                                positive, threshold, state);
      });
  addStage<int32_t, int32_t, int32_t>("qoriApplyHaarClassifier_32s_C1RSfs", qoriHaarClassifierInitAlloc_32s,
                                      qoriTiltedHaarClassifierInitAlloc_32s, qoriHaarClassifierFree_32s,
                                      qoriGetHaarClassifierSize_32s, qoriTiltHaarFeatures_32s,
                                      qoriApplyHaarClassifier_32s_C1RSfs, qoriApplyMixedHaarClassifier_32s_C1RSfs);
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
  addSqrIntegral<int32_t, int32_t>("qoriTiltedSqrIntegral_8u32s_C1R", qoriTiltedSqrIntegral_8u32s_C1R, 2, 1);
  addSqrIntegral<int32_t, double>("qoriTiltedSqrIntegral_8u32s64f_C1R", qoriTiltedSqrIntegral_8u32s64f_C1R, 2);
  addSqrIntegral<float, double>("qoriTiltedSqrIntegral_8u32f64f_C1R", qoriTiltedSqrIntegral_8u32f64f_C1R, 2);
  addDeviation<int32_t, int32_t, int32_t, false, true>("qoriRectStdDev_32s_C1RSfs", qoriRectStdDev_32s_C1RSfs);
  addDeviation<int32_t, double, float, false, false>("qoriRectStdDev_32s32f_C1R", qoriRectStdDev_32s32f_C1R);
  addDeviation<float, double, float, false, false>("qoriRectStdDev_32f_C1R", qoriRectStdDev_32f_C1R);
  addDeviation<int32_t, int32_t, int32_t, true, true>("qoriTiltedRectStdDev_32s_C1RSfs",
                                                      qoriTiltedRectStdDev_32s_C1RSfs);
  addDeviation<int32_t, double, float, true, false>("qoriTiltedRectStdDev_32s32f_C1R", qoriTiltedRectStdDev_32s32f_C1R);
  addDeviation<float, double, float, true, false>("qoriTiltedRectStdDev_32f_C1R", qoriTiltedRectStdDev_32f_C1R);
  return true;
}();
