// Edges and features.
#include "support/fuzz.h"

using fuzz::Arguments;

template <class T, class Function>
static void addCanny(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto dx = a.image<T>(size), dy = a.image<T>(size);
    // The gaps of dst are cleared too, so it gets an image without gaps; the rows of dst may not be spoiled to longer.
    const Image<uint8_t> dst(size.width, size.height, 1, 0, a.chance(50) ? Edge::end : Edge::begin);
    int32_t bytes = 0;
    qoriCannyGetSize(size, &bytes);
    const auto buffer = a.guarded(bytes);
    const float low = a.chance(80) ? float(a.number(0, 200)) : a.value<float>();
    const float high = a.chance(80) ? low + float(a.number(-5, 200)) : a.value<float>();
    function(dx.data, dx.step, dy.data, dy.step, a.orNull(dst.data()), dst.step() - (a.chance(3) ? 1 : 0),
             a.spoiled(size), low, high, a.orNull(buffer->data()));
  });
}

static const bool added = [] {
  addCanny<int16_t>("qoriCanny_16s8u_C1R", qoriCanny_16s8u_C1R);
  addCanny<float>("qoriCanny_32f8u_C1R", qoriCanny_32f8u_C1R);
  fuzz::add("qoriCannyGetSize", [](Arguments& a) {
    int32_t bytes;
    qoriCannyGetSize({a.value<int32_t>(), a.value<int32_t>()}, a.orNull(&bytes));
  });
  return true;
}();
