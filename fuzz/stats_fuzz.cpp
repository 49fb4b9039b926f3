// Masked statistics: mean and deviation, extrema, norms.
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#include <tuple>

#include "support/fuzz.h"
#include "support/services.h"

using fuzz::Arguments;

// Extrema take threads from 16384 pixels on, the others from 32768, 65536 or 131072 for each thread allowed; three from
// 524288, which is too much here.
static QoriSize sizeForThreads(Arguments& a) {
  if (fuzz::alone && a.chance(25)) services::maxThreads = 1;
  if (fuzz::alone && a.chance(10)) services::teamSize = a.number(30, 36);
  if (a.chance(97)) return a.size();
  return a.chance(70) ? QoriSize{a.number(160, 190), 205} : QoriSize{a.number(361, 380), 364};
}

// The value of a pointer that is sometimes null. What a refused call writes, or what is not asked for, is seen.
template <class... R>
struct Results {
  std::tuple<R...> values;
  std::tuple<R*...> pointers;
  unsigned char before[sizeof(std::tuple<R...>)];

  explicit Results(Arguments& a) {
    memset(static_cast<void*>(&values), 0x77, sizeof values);
    memcpy(before, &values, sizeof values);
    pointers = std::apply([&](R&... r) { return std::tuple<R*...>(a.orNull(&r)...); }, values);
  }
  void check(QorStatus status) const {
    if (status < 0 && memcmp(before, &values, sizeof values) != 0) {
      fprintf(stderr, "a refused call wrote results\n");
      abort();
    }
  }
};

static int32_t channelOfInterest(Arguments& a) { return a.orAnything(a.number(1, 3)); }

// One overload a form; the results are of the types R.
template <class T, class... R>
static void addStats(const char* name, QorStatus (*f)(const T*, int32_t, QoriSize, R*...)) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto src = a.image<T>(size);
    Results<R...> results(a);
    results.check(std::apply([&](R*... r) { return f(src.data, src.step, a.spoiled(size), r...); }, results.pointers));
  });
}
template <class T, class... R>
static void addStats(const char* name, QorStatus (*f)(const T*, int32_t, QoriSize, int32_t, R*...)) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto src = a.image<T>(size, 3);
    const int32_t coi = channelOfInterest(a);
    Results<R...> results(a);
    results.check(
        std::apply([&](R*... r) { return f(src.data, src.step, a.spoiled(size), coi, r...); }, results.pointers));
  });
}
template <class T, class... R>
static void addStats(const char* name, QorStatus (*f)(const T*, int32_t, const uint8_t*, int32_t, QoriSize, R*...)) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto src = a.image<T>(size);
    const auto mask = a.image<uint8_t>(size);
    Results<R...> results(a);
    results.check(std::apply(
        [&](R*... r) { return f(src.data, src.step, mask.data, mask.step, a.spoiled(size), r...); }, results.pointers));
  });
}
template <class T, class... R>
static void addStats(const char* name,
                     QorStatus (*f)(const T*, int32_t, const uint8_t*, int32_t, QoriSize, int32_t, R*...)) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto src = a.image<T>(size, 3);
    const auto mask = a.image<uint8_t>(size);
    const int32_t coi = channelOfInterest(a);
    Results<R...> results(a);
    results.check(
        std::apply([&](R*... r) { return f(src.data, src.step, mask.data, mask.step, a.spoiled(size), coi, r...); },
                   results.pointers));
  });
}
template <class T>
static void addStats(const char* name,
                     QorStatus (*f)(const T*, int32_t, const T*, int32_t, const uint8_t*, int32_t, QoriSize, double*)) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto src1 = a.image<T>(size), src2 = a.chance(10) ? src1 : a.image<T>(size);
    const auto mask = a.image<uint8_t>(size);
    Results<double> results(a);
    results.check(f(src1.data, src1.step, src2.data, src2.step, mask.data, mask.step, a.spoiled(size),
                    std::get<0>(results.pointers)));
  });
}
template <class T>
static void addStats(const char* name, QorStatus (*f)(const T*, int32_t, const T*, int32_t, const uint8_t*, int32_t,
                                                      QoriSize, int32_t, double*)) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = sizeForThreads(a);
    const auto src1 = a.image<T>(size, 3), src2 = a.chance(10) ? src1 : a.image<T>(size, 3);
    const auto mask = a.image<uint8_t>(size);
    const int32_t coi = channelOfInterest(a);
    Results<double> results(a);
    results.check(f(src1.data, src1.step, src2.data, src2.step, mask.data, mask.step, a.spoiled(size), coi,
                    std::get<0>(results.pointers)));
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
