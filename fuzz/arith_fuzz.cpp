// Image arithmetic.
#include "support/fuzz.h"

using fuzz::Arguments;

// Threads start at 262144 pixels.
static QoriSize sizeForThreads(Arguments& a) { return a.chance(1) ? QoriSize{512, 513} : a.size(); }

template <class T, class Function>
static void addAbsDiff(const char* name, Function function, int32_t channels = 1) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto src1 = a.image<T>(size, channels), src2 = a.image<T>(size, channels);
    const auto dst = a.chance(20) ? src1 : a.image<T>(size, channels);
    function(src1.data, src1.step, src2.data, src2.step, dst.data, dst.step, a.spoiled(size));
  });
}

template <class T, class Value, class Function>
static void addAbsDiffC(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto src = a.image<T>(size), dst = a.chance(20) ? src : a.image<T>(size);
    function(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.value<Value>());
  });
}

static const bool added = [] {
  addAbsDiff<uint8_t>("qoriAbsDiff_8u_C1R", qoriAbsDiff_8u_C1R);
  addAbsDiff<uint8_t>("qoriAbsDiff_8u_C3R", qoriAbsDiff_8u_C3R, 3);
  addAbsDiff<uint16_t>("qoriAbsDiff_16u_C1R", qoriAbsDiff_16u_C1R);
  addAbsDiff<float>("qoriAbsDiff_32f_C1R", qoriAbsDiff_32f_C1R);
  addAbsDiffC<uint8_t, int32_t>("qoriAbsDiffC_8u_C1R", qoriAbsDiffC_8u_C1R);
  addAbsDiffC<uint16_t, int32_t>("qoriAbsDiffC_16u_C1R", qoriAbsDiffC_16u_C1R);
  addAbsDiffC<float, float>("qoriAbsDiffC_32f_C1R", qoriAbsDiffC_32f_C1R);
  return true;
}();
