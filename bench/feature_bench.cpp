// Edges and features.
#include <memory>

#include "support/bench.h"

using bench::Picture;

// The derivatives of the photograph, as a caller of the detector would form them.
template <class T>
struct Derivatives {
  Picture<T> dx, dy;
};

static std::shared_ptr<Derivatives<int16_t>> sobel16s(QoriSize size) {
  Picture<uint8_t> scene = bench::naturalScene(size);
  auto d = std::make_shared<Derivatives<int16_t>>(Derivatives<int16_t>{Picture<int16_t>(size), Picture<int16_t>(size)});
  auto buffer = bench::scratch(
      [=](int32_t* bytes) { return qoriFilterSobelHorizGetBufferSize_8u16s_C1R(size, qorMaskSize3x3, bytes); });
  CHECK_CALL(qoriFilterSobelNegVertBorder_8u16s_C1R(scene.data(), scene.step(), d->dx.data(), d->dx.step(), size,
                                                    qorMaskSize3x3, qorBorderReplicate, 0, buffer.data()));
  CHECK_CALL(qoriFilterSobelHorizBorder_8u16s_C1R(scene.data(), scene.step(), d->dy.data(), d->dy.step(), size,
                                                  qorMaskSize3x3, qorBorderReplicate, 0, buffer.data()));
  return d;
}

static std::shared_ptr<Derivatives<float>> sobel32f(QoriSize size) {
  const auto d = sobel16s(size);
  auto f = std::make_shared<Derivatives<float>>(Derivatives<float>{Picture<float>(size), Picture<float>(size)});
  std::copy(d->dx.elements.begin(), d->dx.elements.end(), f->dx.elements.begin());
  std::copy(d->dy.elements.begin(), d->dy.elements.end(), f->dy.elements.begin());
  return f;
}

template <class Detector, class MakeDerivatives>
static void addCanny(const char* name, Detector detector, MakeDerivatives makeDerivatives) {
  bench::add(name, "3x3 Sobel of a natural scene, thresholds 60 and 120", [=](QoriSize size) {
    auto d = makeDerivatives(size);
    auto dst = std::make_shared<Picture<uint8_t>>(size);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return qoriCannyGetSize(size, bytes); }));
    return [=] {
      CHECK_CALL(detector(d->dx.data(), d->dx.step(), d->dy.data(), d->dy.step(), dst->data(), dst->step(), size, 60,
                          120, buffer->data()));
    };
  });
}

static Picture<uint8_t> scene(QoriSize size, uint8_t) { return bench::naturalScene(size); }

static Picture<float> scene(QoriSize size, float) {
  const Picture<uint8_t> bytes = bench::naturalScene(size);
  Picture<float> floats(size);
  std::copy(bytes.elements.begin(), bytes.elements.end(), floats.elements.begin());
  return floats;
}

// A corner measure of a photograph with `values` floats a pixel.
template <class T, class Measure, class Query>
static void addCorners(const char* name, Measure measure, Query query, int32_t values, const char* variant,
                       int32_t kernelType, int32_t apertureSize, int32_t avgWindow) {
  bench::add(name, variant, [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(scene(size, T()));
    auto dst = std::make_shared<Picture<float>>(size, values);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return query(size, apertureSize, avgWindow, bytes); }));
    return [=] {
      CHECK_CALL(measure(src->data(), src->step(), dst->data(), dst->step(), size, kernelType, apertureSize, avgWindow,
                         buffer->data()));
    };
  });
}

template <class T, class Measure, class Query>
static void addCornerCases(const char* name, Measure measure, Query query, int32_t values) {
  addCorners<T>(name, measure, query, values, "Sobel 3, window 3", 0, 3, 3);
  addCorners<T>(name, measure, query, values, "Sobel 3, window 5", 0, 3, 5);
  addCorners<T>(name, measure, query, values, "Sobel 5, window 5", 0, 5, 5);
  addCorners<T>(name, measure, query, values, "Scharr, window 3", 1, 3, 3);
}

static void addLines() {}

static void addSmallMeasures() {}

static const bool added = [] {
  addLines();
  addSmallMeasures();
  addCornerCases<uint8_t>("qoriMinEigenVal_8u32f_C1R", qoriMinEigenVal_8u32f_C1R,
                          qoriMinEigenValGetBufferSize_8u32f_C1R, 1);
  addCornerCases<float>("qoriMinEigenVal_32f_C1R", qoriMinEigenVal_32f_C1R, qoriMinEigenValGetBufferSize_32f_C1R, 1);
  addCornerCases<uint8_t>("qoriEigenValsVecs_8u32f_C1R", qoriEigenValsVecs_8u32f_C1R,
                          qoriEigenValsVecsGetBufferSize_8u32f_C1R, 6);
  addCornerCases<float>("qoriEigenValsVecs_32f_C1R", qoriEigenValsVecs_32f_C1R, qoriEigenValsVecsGetBufferSize_32f_C1R,
                        6);
  addCanny("qoriCanny_16s8u_C1R", qoriCanny_16s8u_C1R, sobel16s);
  addCanny("qoriCanny_32f8u_C1R", qoriCanny_32f8u_C1R, sobel32f);
  return true;
}();
