// Masked statistics: mean and deviation, extrema, norms.
#include <memory>
#include <random>

#include "support/bench.h"

using bench::Picture;

// Half of the pixels, at random.
static Picture<uint8_t> randomMask(QoriSize size) {
  Picture<uint8_t> mask(size);
  std::mt19937 engine(2);
  for (uint8_t& byte : mask.elements) byte = engine() & 1 ? 255 : 0;
  return mask;
}

// One overload a form; the results are of the types R.
template <class T, class... R>
static void addStats(const char* name, QorStatus (*f)(const T*, int32_t, QoriSize, R*...)) {
  bench::add(name, "", [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(bench::noise<T>(size));
    return [=] {
      std::tuple<R...> results;
      std::apply([&](R&... r) { CHECK_CALL(f(src->data(), src->step(), size, &r...)); }, results);
    };
  });
}
template <class T, class... R>
static void addStats(const char* name, QorStatus (*f)(const T*, int32_t, QoriSize, int32_t, R*...)) {
  bench::add(name, "", [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(bench::noise<T>(size, 3));
    return [=] {
      std::tuple<R...> results;
      std::apply([&](R&... r) { CHECK_CALL(f(src->data(), src->step(), size, 2, &r...)); }, results);
    };
  });
}
template <class T, class... R>
static void addStats(const char* name, QorStatus (*f)(const T*, int32_t, const uint8_t*, int32_t, QoriSize, R*...)) {
  bench::add(name, "random mask", [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(bench::noise<T>(size));
    auto mask = std::make_shared<Picture<uint8_t>>(randomMask(size));
    return [=] {
      std::tuple<R...> results;
      std::apply([&](R&... r) { CHECK_CALL(f(src->data(), src->step(), mask->data(), mask->step(), size, &r...)); },
                 results);
    };
  });
}
template <class T, class... R>
static void addStats(const char* name,
                     QorStatus (*f)(const T*, int32_t, const uint8_t*, int32_t, QoriSize, int32_t, R*...)) {
  bench::add(name, "random mask", [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(bench::noise<T>(size, 3));
    auto mask = std::make_shared<Picture<uint8_t>>(randomMask(size));
    return [=] {
      std::tuple<R...> results;
      std::apply([&](R&... r) { CHECK_CALL(f(src->data(), src->step(), mask->data(), mask->step(), size, 2, &r...)); },
                 results);
    };
  });
}
template <class T>
static void addStats(const char* name,
                     QorStatus (*f)(const T*, int32_t, const T*, int32_t, const uint8_t*, int32_t, QoriSize, double*)) {
  bench::add(name, "random mask", [=](QoriSize size) {
    auto a = std::make_shared<Picture<T>>(bench::noise<T>(size)), b = std::make_shared<Picture<T>>(*a);
    auto mask = std::make_shared<Picture<uint8_t>>(randomMask(size));
    std::reverse(b->elements.begin(), b->elements.end());
    return [=] {
      double value;
      CHECK_CALL(f(a->data(), a->step(), b->data(), b->step(), mask->data(), mask->step(), size, &value));
    };
  });
}
template <class T>
static void addStats(const char* name, QorStatus (*f)(const T*, int32_t, const T*, int32_t, const uint8_t*, int32_t,
                                                      QoriSize, int32_t, double*)) {
  bench::add(name, "random mask", [=](QoriSize size) {
    auto a = std::make_shared<Picture<T>>(bench::noise<T>(size, 3)), b = std::make_shared<Picture<T>>(*a);
    auto mask = std::make_shared<Picture<uint8_t>>(randomMask(size));
    std::reverse(b->elements.begin(), b->elements.end());
    return [=] {
      double value;
      CHECK_CALL(f(a->data(), a->step(), b->data(), b->step(), mask->data(), mask->step(), size, 2, &value));
    };
  });
}

#define ADD(name) addStats(#name, name)
#define ADD_TYPES(operation, form) \
  ADD(operation##_8u_##form);      \
  ADD(operation##_8s_##form);      \
  ADD(operation##_16u_##form);     \
  ADD(operation##_32f_##form)
#define ADD_MASKED(operation) \
  ADD_TYPES(operation, C1MR); \
  ADD_TYPES(operation, C3CMR)
#define ADD_UNMASKED(operation) \
  ADD_TYPES(operation, C1R);    \
  ADD_TYPES(operation, C3CR)

static const bool added = [] {
  ADD_MASKED(qoriMean);
  ADD_UNMASKED(qoriMean_StdDev);
  ADD_MASKED(qoriMean_StdDev);
  ADD_UNMASKED(qoriMinMaxIndx);
  ADD_MASKED(qoriMinMaxIndx);
  ADD_MASKED(qoriNorm_Inf);
  ADD_MASKED(qoriNorm_L1);
  ADD_MASKED(qoriNorm_L2);
  ADD_MASKED(qoriNormDiff_Inf);
  ADD_MASKED(qoriNormDiff_L1);
  ADD_MASKED(qoriNormDiff_L2);
  ADD_MASKED(qoriNormRel_Inf);
  ADD_MASKED(qoriNormRel_L1);
  ADD_MASKED(qoriNormRel_L2);
  return true;
}();
