// Segmentation.
#include <memory>

#include "support/bench.h"

using bench::Picture;

// Blobs: what is brighter than the middle in a photograph.
template <class T>
static Picture<T> blobs(QoriSize size) {
  const Picture<uint8_t> scene = bench::naturalScene(size);
  Picture<T> picture(size);
  for (size_t i = 0; i < picture.elements.size(); ++i) picture.elements[i] = T(scene.elements[i] > 128);
  return picture;
}

template <class T, class Query, class Function>
static void addLabel(const char* name, Query query, Function function) {
  for (const bool four : {true, false}) {
    bench::add(name, four ? "four neighbours" : "eight neighbours", [=](QoriSize size) {
      auto original = std::make_shared<Picture<T>>(blobs<T>(size)), image = std::make_shared<Picture<T>>(size);
      auto buffer =
          std::make_shared<std::vector<uint8_t>>(bench::scratch([&](int32_t* bytes) { return query(size, bytes); }));
      return [=] {
        int32_t markersNum;
        image->elements = original->elements;
        CHECK_CALL(function(image->data(), image->step(), size, 1, 254, four ? qorNormL1 : qorNormInf, &markersNum,
                            buffer->data()));
      };
    });
  }
}

template <class T, class Function>
static void addBounds(const char* name, Function function) {
  for (const bool four : {true, false}) {
    bench::add(name, four ? "four neighbours" : "eight neighbours", [=](QoriSize size) {
      auto original = std::make_shared<Picture<T>>(blobs<T>(size)), image = std::make_shared<Picture<T>>(size);
      return [=] {
        image->elements = original->elements;
        CHECK_CALL(function(image->data(), image->step(), size, 255, four ? qorNormL1 : qorNormInf));
      };
    });
  }
}

static bool addLabels() {
  addLabel<uint8_t>("qoriLabelMarkers_8u_C1IR", qoriLabelMarkersGetBufferSize_8u_C1R, qoriLabelMarkers_8u_C1IR);
  addLabel<uint16_t>("qoriLabelMarkers_16u_C1IR", qoriLabelMarkersGetBufferSize_16u_C1R, qoriLabelMarkers_16u_C1IR);
  addBounds<uint8_t>("qoriBoundSegments_8u_C1IR", qoriBoundSegments_8u_C1IR);
  addBounds<uint16_t>("qoriBoundSegments_16u_C1IR", qoriBoundSegments_16u_C1IR);
  return true;
}

// A point marker in the middle of each cell of a grid of 10 by 10.
template <class T>
static Picture<T> pointMarkers(QoriSize size) {
  Picture<T> markers(size);
  for (int32_t i = 0; i < 100; ++i) {
    const int32_t x = (2 * (i % 10) + 1) * size.width / 20, y = (2 * (i / 10) + 1) * size.height / 20;
    markers.elements[size_t(y) * size.width + x] = T(i + 1);
  }
  return markers;
}

// Growth over a photograph, or one of three times its width taken as colours.
template <class T, class Query, class Function>
static void addGrowth(const char* name, const char* variant, int32_t channels, int32_t norm, int32_t flag, Query query,
                      Function function) {
  bench::add(name, variant, [=](QoriSize size) {
    auto src = std::make_shared<Picture<uint8_t>>(bench::naturalScene({size.width * channels, size.height}));
    auto original = std::make_shared<Picture<T>>(pointMarkers<T>(size)), markers = std::make_shared<Picture<T>>(size);
    auto buffer =
        std::make_shared<std::vector<uint8_t>>(bench::scratch([&](int32_t* bytes) { return query(size, bytes); }));
    return [=] {
      markers->elements = original->elements;
      CHECK_CALL(
          function(src->data(), src->step(), markers->data(), markers->step(), size, norm, flag, buffer->data()));
    };
  });
}

template <class T, class Query, class Function>
static void addWatershedOf(const char* name, Query query, Function function) {
  const auto add = [=](const char* variant, int32_t norm, int32_t flag) {
    addGrowth<T>(name, variant, 1, norm, flag, query, function);
  };
  add("queue engine, four neighbours, border 4, 100 point markers on a grid", qorNormL1,
      qorSegmentQueue | qorSegmentBorder4);
  add("queue engine, eight neighbours, 100 point markers on a grid", qorNormInf, qorSegmentQueue);
  add("sweeps, four neighbours, border 4, 100 point markers on a grid", qorNormL1,
      qorSegmentDistance | qorSegmentBorder4);
  add("sweeps, distance 2, border 8, 100 point markers on a grid", qorNormL2, qorSegmentDistance | qorSegmentBorder8);
  add("sweeps, distance FM, 100 point markers on a grid", qorNormFM, qorSegmentDistance);
}

static bool addWatershed() {
  addWatershedOf<uint8_t>("qoriSegmentWatershed_8u_C1IR", qoriSegmentWatershedGetBufferSize_8u_C1R,
                          qoriSegmentWatershed_8u_C1IR);
  addWatershedOf<uint16_t>("qoriSegmentWatershed_8u16u_C1IR", qoriSegmentWatershedGetBufferSize_8u16u_C1R,
                           qoriSegmentWatershed_8u16u_C1IR);
  return true;
}

static bool addGradientSegmentation() {
  const char* variant = "four neighbours, border 4, 100 point markers on a grid";
  addGrowth<uint8_t>("qoriSegmentGradient_8u_C1IR", variant, 1, qorNormL1, qorSegmentBorder4,
                     qoriSegmentGradientGetBufferSize_8u_C1R, qoriSegmentGradient_8u_C1IR);
  addGrowth<uint8_t>("qoriSegmentGradient_8u_C3IR", variant, 3, qorNormL1, qorSegmentBorder4,
                     qoriSegmentGradientGetBufferSize_8u_C3R, qoriSegmentGradient_8u_C3IR);
  return true;
}

static const bool added = addLabels() && addWatershed() && addGradientSegmentation();
