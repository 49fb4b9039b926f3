// Motion in sequences of images.
#include <math.h>

#include "support/fuzz.h"

using fuzz::Arguments;

template <class T, class Function>
static void addUpdate(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto silhouette = a.image<T>(size);
    auto mhi = a.image<float>(size);
    if constexpr (std::is_same_v<T, float>) {
      if (a.chance(20)) mhi = silhouette;
    }
    const float timestamp = a.value<float>(), duration = a.value<float>();
    function(silhouette.data, silhouette.step, mhi.data, mhi.step, a.spoiled(size), timestamp,
             a.chance(80) ? fabsf(duration) : duration);
  });
}

static const bool added = [] {
  addUpdate<uint8_t>("qoriUpdateMotionHistory_8u32f_C1IR", qoriUpdateMotionHistory_8u32f_C1IR);
  addUpdate<uint16_t>("qoriUpdateMotionHistory_16u32f_C1IR", qoriUpdateMotionHistory_16u32f_C1IR);
  addUpdate<float>("qoriUpdateMotionHistory_32f_C1IR", qoriUpdateMotionHistory_32f_C1IR);
  return true;
}();
