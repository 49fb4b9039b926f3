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

template <class T, class Measure, class Query>
static void addCorners(const char* name, Measure measure, Query query, int32_t values) {
  fuzz::add(name, [=](Arguments& a) {
    // Large enough for threads, now and then; a lone one reads two rows above and below the region.
    const QoriSize size = a.chance(3) ? QoriSize{256, a.number(256, 300)} : a.size();
    const auto src = a.image<T>({size.width, size.height + 4});
    const T* const first =
        src.data ? reinterpret_cast<const T*>(reinterpret_cast<const uint8_t*>(src.data) + 2 * src.image->step())
                 : nullptr;
    auto dst = a.image<float>(size, values);
    // The 32f form takes steps of one float a pixel and writes rows of six: here such a step has to be too short even
    // so.
    if (values == 6 && sizeof(T) == 4 && dst.step < 24 * size.width) dst.step = std::min(dst.step, 4 * size.width - 1);
    const bool scharr = a.chance(50);
    const int32_t kernelType = a.orAnything(scharr ? 1 : 0);
    const int32_t apertureSize = a.orAnything(scharr || a.chance(50) ? 3 : 5);
    const int32_t avgWindow = a.orAnything(a.chance(50) ? 3 : 5);
    int32_t bytes = 0;
    query(size, apertureSize, avgWindow, &bytes);
    const auto buffer = a.guarded(bytes);
    measure(first, src.step, dst.data, dst.step, a.spoiled(size), kernelType, apertureSize, avgWindow,
            a.orNull(buffer->data()));
  });
}

template <class Query>
static void addCornerSize(const char* name, Query query) {
  fuzz::add(name, [=](Arguments& a) {
    int32_t bytes;
    const QoriSize size = {a.value<int32_t>(), a.value<int32_t>()};
    query(size, a.orAnything(3), a.orAnything(5), a.orNull(&bytes));
  });
}

static void addLines() {}

static void addSmallMeasures() {}

static const bool added = [] {
  addLines();
  addSmallMeasures();
  addCorners<uint8_t>("qoriEigenValsVecs_8u32f_C1R", qoriEigenValsVecs_8u32f_C1R,
                      qoriEigenValsVecsGetBufferSize_8u32f_C1R, 6);
  addCorners<float>("qoriEigenValsVecs_32f_C1R", qoriEigenValsVecs_32f_C1R, qoriEigenValsVecsGetBufferSize_32f_C1R, 6);
  addCorners<uint8_t>("qoriMinEigenVal_8u32f_C1R", qoriMinEigenVal_8u32f_C1R, qoriMinEigenValGetBufferSize_8u32f_C1R,
                      1);
  addCorners<float>("qoriMinEigenVal_32f_C1R", qoriMinEigenVal_32f_C1R, qoriMinEigenValGetBufferSize_32f_C1R, 1);
  addCornerSize("qoriEigenValsVecsGetBufferSize_8u32f_C1R", qoriEigenValsVecsGetBufferSize_8u32f_C1R);
  addCornerSize("qoriEigenValsVecsGetBufferSize_32f_C1R", qoriEigenValsVecsGetBufferSize_32f_C1R);
  addCornerSize("qoriMinEigenValGetBufferSize_8u32f_C1R", qoriMinEigenValGetBufferSize_8u32f_C1R);
  addCornerSize("qoriMinEigenValGetBufferSize_32f_C1R", qoriMinEigenValGetBufferSize_32f_C1R);
  addCanny<int16_t>("qoriCanny_16s8u_C1R", qoriCanny_16s8u_C1R);
  addCanny<float>("qoriCanny_32f8u_C1R", qoriCanny_32f8u_C1R);
  fuzz::add("qoriCannyGetSize", [](Arguments& a) {
    int32_t bytes;
    qoriCannyGetSize({a.value<int32_t>(), a.value<int32_t>()}, a.orNull(&bytes));
  });
  return true;
}();
