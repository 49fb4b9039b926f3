// Motion in sequences of images.
#include <memory>

#include "support/bench.h"

using bench::Picture;

// Half of the pixels move, the others are at 0.
template <class T, class Function>
static void addUpdate(const char* name, Function function) {
  bench::add(name, "", [=](QoriSize size) {
    auto silhouette = std::make_shared<Picture<T>>(size);
    const Picture<uint8_t> noise = bench::noise<uint8_t>(size);
    for (size_t i = 0; i < noise.elements.size(); ++i) silhouette->elements[i] = T(noise.elements[i] & 64);
    auto mhi = std::make_shared<Picture<float>>(size);
    return [=] {
      CHECK_CALL(function(silhouette->data(), silhouette->step(), mhi->data(), mhi->step(), size, 10.0f, 3.0f));
    };
  });
}

static const bool added = [] {
  addUpdate<uint8_t>("qoriUpdateMotionHistory_8u32f_C1IR", qoriUpdateMotionHistory_8u32f_C1IR);
  addUpdate<uint16_t>("qoriUpdateMotionHistory_16u32f_C1IR", qoriUpdateMotionHistory_16u32f_C1IR);
  addUpdate<float>("qoriUpdateMotionHistory_32f_C1IR", qoriUpdateMotionHistory_32f_C1IR);
  return true;
}();
