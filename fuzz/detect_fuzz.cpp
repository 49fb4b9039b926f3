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
