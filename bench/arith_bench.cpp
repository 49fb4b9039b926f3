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

// Odd, so that no accumulator decays to denormal numbers, which take their own time, in a weighted form that is called
// thousands of times.
template <class T>
static std::shared_ptr<Picture<T>> source(QoriSize size) {
  auto picture = std::make_shared<Picture<T>>(bench::noise<T>(size));
  for (T& e : picture->elements) e = T(int(e) | 1);
  return picture;
}

static std::shared_ptr<Picture<uint8_t>> randomMask(QoriSize size) {
  auto mask = std::make_shared<Picture<uint8_t>>(bench::noise<uint8_t>(size));
  for (uint8_t& m : mask->elements) m = m & 64 ? 255 : 0;
  return mask;
}

// One source; `alpha` where there is one.
template <class T, class Plain, class... Alpha>
static void addPlain(const char* name, Plain function, Alpha... alpha) {
  bench::add(name, "", [=](QoriSize size) {
    auto src = source<T>(size);
    auto srcDst = std::make_shared<Picture<float>>(size);
    return [=] { CHECK_CALL(function(src->data(), src->step(), srcDst->data(), srcDst->step(), size, alpha...)); };
  });
}

template <class T, class Masked, class... Alpha>
static void addMasked(const char* name, Masked function, Alpha... alpha) {
  bench::add(name, "random mask", [=](QoriSize size) {
    auto src = source<T>(size);
    auto mask = randomMask(size);
    auto srcDst = std::make_shared<Picture<float>>(size);
    return [=] {
      CHECK_CALL(function(src->data(), src->step(), mask->data(), mask->step(), srcDst->data(), srcDst->step(), size,
                          alpha...));
    };
  });
}

template <class T, class Plain, class... Alpha>
static void addPlainOfTwo(const char* name, Plain function, Alpha... alpha) {
  bench::add(name, "", [=](QoriSize size) {
    auto src1 = source<T>(size), src2 = source<T>(size);
    std::reverse(src2->elements.begin(), src2->elements.end());
    auto srcDst = std::make_shared<Picture<float>>(size);
    return [=] {
      CHECK_CALL(function(src1->data(), src1->step(), src2->data(), src2->step(), srcDst->data(), srcDst->step(), size,
                          alpha...));
    };
  });
}

template <class T, class Masked>
static void addMaskedOfTwo(const char* name, Masked function) {
  bench::add(name, "random mask", [=](QoriSize size) {
    auto src1 = source<T>(size), src2 = source<T>(size);
    std::reverse(src2->elements.begin(), src2->elements.end());
    auto mask = randomMask(size);
    auto srcDst = std::make_shared<Picture<float>>(size);
    return [=] {
      CHECK_CALL(function(src1->data(), src1->step(), src2->data(), src2->step(), mask->data(), mask->step(),
                          srcDst->data(), srcDst->step(), size));
    };
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
#define ADD_ALL_BUT_PLAIN_ADD(T, types)                                                 \
  addMasked<T>("qoriAdd_" #types "_C1IMR", qoriAdd_##types##_C1IMR);                    \
  addPlain<T>("qoriAddSquare_" #types "_C1IR", qoriAddSquare_##types##_C1IR);           \
  addMasked<T>("qoriAddSquare_" #types "_C1IMR", qoriAddSquare_##types##_C1IMR);        \
  addPlainOfTwo<T>("qoriAddProduct_" #types "_C1IR", qoriAddProduct_##types##_C1IR);    \
  addMaskedOfTwo<T>("qoriAddProduct_" #types "_C1IMR", qoriAddProduct_##types##_C1IMR); \
  addPlain<T>("qoriAddWeighted_" #types "_C1IR", qoriAddWeighted_##types##_C1IR, 0.3f); \
  addMasked<T>("qoriAddWeighted_" #types "_C1IMR", qoriAddWeighted_##types##_C1IMR, 0.3f);
#define ADD_ALL(T, types)                                         \
  addPlain<T>("qoriAdd_" #types "_C1IR", qoriAdd_##types##_C1IR); \
  ADD_ALL_BUT_PLAIN_ADD(T, types)
  ADD_ALL(uint8_t, 8u32f)
  ADD_ALL(int8_t, 8s32f)
  ADD_ALL(uint16_t, 16u32f)
  ADD_ALL_BUT_PLAIN_ADD(float, 32f)
#undef ADD_ALL
#undef ADD_ALL_BUT_PLAIN_ADD
  addPlainOfTwo<float>("qoriAddWeighted_32f_C1R", qoriAddWeighted_32f_C1R, 0.3f);
  return true;
}();
