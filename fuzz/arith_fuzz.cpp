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

// A float source may be the accumulator.
template <class T>
static fuzz::ImageArgument<T> sourceOf(Arguments& a, QoriSize size, const fuzz::ImageArgument<float>& srcDst) {
  if constexpr (std::is_same_v<T, float>) {
    if (a.chance(20)) return srcDst;
  }
  return a.image<T>(size);
}

// `Alpha` is float in the weighted forms, and nothing in the others.
template <class T, class... Alpha, class Function>
static void addPlain(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto srcDst = a.image<float>(size);
    const auto src = sourceOf<T>(a, size, srcDst);
    function(src.data, src.step, srcDst.data, srcDst.step, a.spoiled(size), a.value<Alpha>()...);
  });
}

template <class T, class... Alpha, class Function>
static void addMasked(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto srcDst = a.image<float>(size);
    const auto src = sourceOf<T>(a, size, srcDst);
    const auto mask = a.image<uint8_t>(size);
    function(src.data, src.step, mask.data, mask.step, srcDst.data, srcDst.step, a.spoiled(size), a.value<Alpha>()...);
  });
}

template <class T, class... Alpha, class Function>
static void addPlainOfTwo(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto srcDst = a.image<float>(size);
    const auto src1 = sourceOf<T>(a, size, srcDst), src2 = sourceOf<T>(a, size, srcDst);
    function(src1.data, src1.step, src2.data, src2.step, srcDst.data, srcDst.step, a.spoiled(size),
             a.value<Alpha>()...);
  });
}

template <class T, class Function>
static void addMaskedOfTwo(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto srcDst = a.image<float>(size);
    const auto src1 = sourceOf<T>(a, size, srcDst), src2 = sourceOf<T>(a, size, srcDst);
    const auto mask = a.image<uint8_t>(size);
    function(src1.data, src1.step, src2.data, src2.step, mask.data, mask.step, srcDst.data, srcDst.step,
             a.spoiled(size));
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
#define ADD_ALL_BUT_PLAIN_ADD(T, types)                                                  \
  addMasked<T>("qoriAdd_" #types "_C1IMR", qoriAdd_##types##_C1IMR);                     \
  addPlain<T>("qoriAddSquare_" #types "_C1IR", qoriAddSquare_##types##_C1IR);            \
  addMasked<T>("qoriAddSquare_" #types "_C1IMR", qoriAddSquare_##types##_C1IMR);         \
  addPlainOfTwo<T>("qoriAddProduct_" #types "_C1IR", qoriAddProduct_##types##_C1IR);     \
  addMaskedOfTwo<T>("qoriAddProduct_" #types "_C1IMR", qoriAddProduct_##types##_C1IMR);  \
  addPlain<T, float>("qoriAddWeighted_" #types "_C1IR", qoriAddWeighted_##types##_C1IR); \
  addMasked<T, float>("qoriAddWeighted_" #types "_C1IMR", qoriAddWeighted_##types##_C1IMR);
#define ADD_ALL(T, types)                                         \
  addPlain<T>("qoriAdd_" #types "_C1IR", qoriAdd_##types##_C1IR); \
  ADD_ALL_BUT_PLAIN_ADD(T, types)
  ADD_ALL(uint8_t, 8u32f)
  ADD_ALL(int8_t, 8s32f)
  ADD_ALL(uint16_t, 16u32f)
  ADD_ALL_BUT_PLAIN_ADD(float, 32f)
#undef ADD_ALL
#undef ADD_ALL_BUT_PLAIN_ADD
  addPlainOfTwo<float, float>("qoriAddWeighted_32f_C1R", qoriAddWeighted_32f_C1R);
  return true;
}();
