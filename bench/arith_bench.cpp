// Image arithmetic.
#include <memory>

#include "support/bench.h"

using bench::Picture;

template <class T, class Function>
static void addAbsDiff(const char* name, Function function, int channels = 1) {
  bench::add(name, "", [=](QoriSize size) {
    auto a = std::make_shared<Picture<T>>(bench::noise<T>(size, channels));
    auto b = std::make_shared<Picture<T>>(bench::noise<T>(size, channels));
    auto dst = std::make_shared<Picture<T>>(size, channels);
    std::reverse(b->elements.begin(), b->elements.end());
    return [=] { CHECK_CALL(function(a->data(), a->step(), b->data(), b->step(), dst->data(), dst->step(), size)); };
  });
}

template <class T, class Function>
static void addAbsDiffC(const char* name, Function function) {
  bench::add(name, "", [=](QoriSize size) {
    auto a = std::make_shared<Picture<T>>(bench::noise<T>(size));
    auto dst = std::make_shared<Picture<T>>(size);
    return [=] { CHECK_CALL(function(a->data(), a->step(), dst->data(), dst->step(), size, 100)); };
  });
}

static const bool added = [] {
  addAbsDiff<uint8_t>("qoriAbsDiff_8u_C1R", qoriAbsDiff_8u_C1R);
  addAbsDiff<uint8_t>("qoriAbsDiff_8u_C3R", qoriAbsDiff_8u_C3R, 3);
  addAbsDiff<uint16_t>("qoriAbsDiff_16u_C1R", qoriAbsDiff_16u_C1R);
  addAbsDiff<float>("qoriAbsDiff_32f_C1R", qoriAbsDiff_32f_C1R);
  addAbsDiffC<uint8_t>("qoriAbsDiffC_8u_C1R", qoriAbsDiffC_8u_C1R);
  addAbsDiffC<uint16_t>("qoriAbsDiffC_16u_C1R", qoriAbsDiffC_16u_C1R);
  addAbsDiffC<float>("qoriAbsDiffC_32f_C1R", qoriAbsDiffC_32f_C1R);
  return true;
}();
