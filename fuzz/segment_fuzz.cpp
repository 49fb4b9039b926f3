// Segmentation.
#include "support/fuzz.h"

using fuzz::Arguments;

// Few values, so that there are areas; 0 and the topmost often.
template <class T>
static void fillWithLabels(Arguments& a, Image<T>& image) {
  const int32_t zeros = a.number(0, 100), labels = a.number(1, 8);
  uint32_t state = a.value<uint32_t>();
  image.fill([&] {
    state = state * 1664525u + 1013904223u;
    const int32_t number = int32_t(state >> 16);
    if (number % 101 < zeros) return T(0);
    return number % 13 == 0 ? std::numeric_limits<T>::max() : T(1 + number % labels);
  });
}

// The scratch that a query asks for, with anything in it.
template <class Query>
static std::shared_ptr<GuardedMemory> scratchOf(Arguments& a, QoriSize size, Query query) {
  int32_t bytes = -1;
  query(size, a.orNull(&bytes));
  if (bytes < 0) query(size, &bytes);
  auto memory = a.guarded(bytes);
  memset(memory->data(), a.number(0, 255), memory->size());
  return memory;
}

template <class T, class Query, class Function>
static void addLabel(const char* name, Query query, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size(), told = a.spoiled(size);
    const auto image = a.image<T>(size);
    if (a.chance(80)) fillWithLabels(a, *image.image);
    const auto buffer = scratchOf(a, size, query);
    const int32_t top = std::numeric_limits<T>::max() - 1, minLabel = a.number(1, top);
    int32_t markersNum = 0;
    function(image.data, image.step, told, a.orAnything(minLabel), a.orAnything(a.number(minLabel, top)),
             a.orAnything(a.number(0, 1)), a.orNull(&markersNum), a.orNull(buffer->data()));
  });
}

template <class T, class Function>
static void addBounds(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size(), told = a.spoiled(size);
    const auto image = a.image<T>(size);
    if (a.chance(80)) fillWithLabels(a, *image.image);
    function(image.data, image.step, told, a.value<T>(), a.orAnything(a.number(0, 1)));
  });
}

// Labels that grow over a picture.
template <class T, class Query, class Function>
static void addGrowth(const char* name, int32_t channels, int32_t lastNorm, Query query, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size(), told = a.spoiled(size);
    const auto src = a.image<uint8_t>(size, channels);
    const auto markers = a.image<T>(size);
    if (a.chance(80)) fillWithLabels(a, *markers.image);
    const auto buffer = scratchOf(a, size, query);
    const int32_t flag = a.number(0, 3) | a.number(0, 3) << 6;
    function(src.data, src.step, markers.data, markers.step, told, a.orAnything(a.number(0, lastNorm)),
             a.orAnything(flag), a.orNull(buffer->data()));
  });
}

static bool addLabels() {
  addLabel<uint8_t>("qoriLabelMarkers_8u_C1IR", qoriLabelMarkersGetBufferSize_8u_C1R, qoriLabelMarkers_8u_C1IR);
  addLabel<uint16_t>("qoriLabelMarkers_16u_C1IR", qoriLabelMarkersGetBufferSize_16u_C1R, qoriLabelMarkers_16u_C1IR);
  addBounds<uint8_t>("qoriBoundSegments_8u_C1IR", qoriBoundSegments_8u_C1IR);
  addBounds<uint16_t>("qoriBoundSegments_16u_C1IR", qoriBoundSegments_16u_C1IR);
  return true;
}

static bool addWatershed() {
  addGrowth<uint8_t>("qoriSegmentWatershed_8u_C1IR", 1, 3, qoriSegmentWatershedGetBufferSize_8u_C1R,
                     qoriSegmentWatershed_8u_C1IR);
  addGrowth<uint16_t>("qoriSegmentWatershed_8u16u_C1IR", 1, 3, qoriSegmentWatershedGetBufferSize_8u16u_C1R,
                      qoriSegmentWatershed_8u16u_C1IR);
  return true;
}

static bool addGradientSegmentation() {
  addGrowth<uint8_t>("qoriSegmentGradient_8u_C1IR", 1, 1, qoriSegmentGradientGetBufferSize_8u_C1R,
                     qoriSegmentGradient_8u_C1IR);
  addGrowth<uint8_t>("qoriSegmentGradient_8u_C3IR", 3, 1, qoriSegmentGradientGetBufferSize_8u_C3R,
                     qoriSegmentGradient_8u_C3IR);
  return true;
}

static const bool added = addLabels() && addWatershed() && addGradientSegmentation();
