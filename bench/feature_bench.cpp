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

// The edges of a photograph.
static Picture<uint8_t> edgeMap(QoriSize size) {
  const auto d = sobel16s(size);
  Picture<uint8_t> edges(size);
  auto buffer = bench::scratch([=](int32_t* bytes) { return qoriCannyGetSize(size, bytes); });
  CHECK_CALL(qoriCanny_16s8u_C1R(d->dx.data(), d->dx.step(), d->dy.data(), d->dy.step(), edges.data(), edges.step(),
                                 size, 60, 120, buffer.data()));
  return edges;
}

// search(src, srcStep, size, delta, threshold, lines, maxLineCount, lineCount, buffer)
template <class Search>
static void addHough(const char* name, const char* variant, QoriPointPolar delta, int32_t threshold, Search search) {
  bench::add(name, variant, [=](QoriSize size) {
    constexpr int32_t maxLineCount = 100;
    auto edges = std::make_shared<Picture<uint8_t>>(edgeMap(size));
    auto lines = std::make_shared<std::vector<QoriPointPolar>>(maxLineCount);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return qoriHoughLineGetSize_8u_C1R(size, delta, maxLineCount, bytes); }));
    return [=] {
      int32_t lineCount;
      CHECK_CALL(search(edges->data(), edges->step(), size, delta, threshold, lines->data(), maxLineCount, &lineCount,
                        buffer->data()));
    };
  });
}

// The same of the lines with distances from `rhoLow` to `rhoHigh` and angles from `thetaLow` to `thetaHigh`.
static void addHoughRegion(const char* variant, float rhoLow, float thetaLow, float rhoHigh, float thetaHigh) {
  addHough("qoriHoughLine_Region_8u32f_C1R", variant, {1, 0.0174532925f}, 150,
           [=](const uint8_t* src, int32_t srcStep, QoriSize size, QoriPointPolar delta, int32_t threshold,
               QoriPointPolar* lines, int32_t maxLineCount, int32_t* lineCount, uint8_t* buffer) {
             float region[4] = {rhoLow, thetaLow, rhoHigh, thetaHigh};
             return qoriHoughLine_Region_8u32f_C1R(src, srcStep, size, lines, region, maxLineCount, lineCount, delta,
                                                   threshold, buffer);
           });
}

static void addLines() {
  const char* const plain = "qoriHoughLine_8u32f_C1R";
  addHough(plain, "edge map of a natural scene, rho 1, theta 1 degree, threshold 150", {1, 0.0174532925f}, 150,
           qoriHoughLine_8u32f_C1R);
  addHough(plain, "edge map of a natural scene, rho 0.02, theta 1 degree, threshold 20", {0.02f, 0.0174532925f}, 20,
           qoriHoughLine_8u32f_C1R);
  addHoughRegion("edge map of a natural scene, rho 1, theta 1 degree, threshold 150, everywhere", -1e5f, 0, 1e5f, 4);
  addHoughRegion("edge map of a natural scene, rho 1, theta 1 degree, threshold 150, rho 100 to 300", 100, 0, 300, 4);
  addHoughRegion("edge map of a natural scene, rho 1, theta 1 degree, threshold 150, theta 1.4 to 1.7", -1e5f, 1.4f,
                 1e5f, 1.7f);
}

// The photograph in three channels, each moved by some pixels.
template <class T>
static std::shared_ptr<Picture<T>> threeChannels(QoriSize size) {
  Picture<uint8_t> from = bench::naturalScene(size);
  auto picture = std::make_shared<Picture<T>>(size, 3);
  const size_t count = from.elements.size();
  for (size_t i = 0; i < 3 * count; ++i) picture->elements[i] = T(from.elements[(i / 3 + 5 * (i % 3)) % count]);
  return picture;
}

template <class T, class Function>
static void addGradientGray(const char* name, Function function) {
  const char* const rules[] = {"largest channel", "mean", "root mean square"};
  for (int32_t rule = 0; rule < 3; ++rule) {
    bench::add(name, rules[rule], [=](QoriSize size) {
      auto src = threeChannels<T>(size);
      auto dst = std::make_shared<Picture<T>>(size);
      return [=] { CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), size, rule)); };
    });
  }
}

// Peaks of the slope across the photograph.
template <class T, class Function, class Query>
static void addPeaks(const char* name, Function function, Query query) {
  const char* const neighbours[] = {"8 neighbours", "4 neighbours"};
  for (int32_t rule = 0; rule < 2; ++rule) {
    bench::add(
        name, std::string("3x3 Sobel of a natural scene, threshold 60, ") + neighbours[rule], [=](QoriSize size) {
          auto src = std::make_shared<Picture<T>>(size);
          const auto d = sobel16s(size);
          std::copy(d->dx.elements.begin(), d->dx.elements.end(), src->elements.begin());
          const int32_t room = size.width * size.height;
          auto peaks = std::make_shared<std::vector<QoriPoint>>(size_t(room));
          auto buffer = std::make_shared<std::vector<uint8_t>>(
              bench::scratch([=](int32_t* bytes) { return query(size.width, bytes); }));
          return [=] {
            int32_t count;
            CHECK_CALL(
                function(src->data(), src->step(), size, T(60), peaks->data(), room, &count, rule, 1, buffer->data()));
          };
        });
  }
}

template <class T, class Function>
static void addSampleLine(const char* name, Function function, int32_t channels) {
  bench::add(name, "corner to corner", [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(size, channels);
    auto dst = std::make_shared<Picture<T>>(QoriSize{size.width + size.height, 1}, channels);
    return [=] {
      CHECK_CALL(function(src->data(), src->step(), size, dst->data(), {0, 0}, {size.width - 1, size.height - 1}));
    };
  });
}

static void addSmallMeasures() {
  bench::add("qoribFastArctan_32f", "width x height values", [](QoriSize size) {
    const auto d = sobel32f(size);
    auto dst = std::make_shared<Picture<float>>(size);
    return [=] { CHECK_CALL(qoribFastArctan_32f(d->dy.data(), d->dx.data(), dst->data(), size.width * size.height)); };
  });
  addGradientGray<uint8_t>("qoriGradientColorToGray_8u_C3C1R", qoriGradientColorToGray_8u_C3C1R);
  addGradientGray<uint16_t>("qoriGradientColorToGray_16u_C3C1R", qoriGradientColorToGray_16u_C3C1R);
  addGradientGray<float>("qoriGradientColorToGray_32f_C3C1R", qoriGradientColorToGray_32f_C3C1R);
  addPeaks<float>("qoriFindPeaks3x3_32f_C1R", qoriFindPeaks3x3_32f_C1R, qoriFindPeaks3x3GetBufferSize_32f_C1R);
  addPeaks<int32_t>("qoriFindPeaks3x3_32s_C1R", qoriFindPeaks3x3_32s_C1R, qoriFindPeaks3x3GetBufferSize_32s_C1R);
  addSampleLine<uint8_t>("qoriSampleLine_8u_C1R", qoriSampleLine_8u_C1R, 1);
  addSampleLine<uint8_t>("qoriSampleLine_8u_C3R", qoriSampleLine_8u_C3R, 3);
  addSampleLine<uint16_t>("qoriSampleLine_16u_C1R", qoriSampleLine_16u_C1R, 1);
  addSampleLine<uint16_t>("qoriSampleLine_16u_C3R", qoriSampleLine_16u_C3R, 3);
  addSampleLine<float>("qoriSampleLine_32f_C1R", qoriSampleLine_32f_C1R, 1);
  addSampleLine<float>("qoriSampleLine_32f_C3R", qoriSampleLine_32f_C3R, 3);
}

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
