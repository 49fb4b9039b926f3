// Object detection: integral images of a photograph, and window deviations read from them.
#include <memory>

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

static void addStages() {}

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
