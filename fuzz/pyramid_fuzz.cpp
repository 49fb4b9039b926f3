// Image pyramids.
#include "support/fuzz.h"

using fuzz::Arguments;

template <class T, class Function>
static void addLevel(const char* name, Function function, bool up, QorDataType type, int32_t channels) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<T>(size, channels);
    const auto dst = a.image<T>(
        up ? QoriSize{size.width * 2, size.height * 2} : QoriSize{(size.width + 1) / 2, (size.height + 1) / 2},
        channels);
    const auto query = up ? qoriPyrUpGetBufSize_Gauss5x5 : qoriPyrDownGetBufSize_Gauss5x5;
    int32_t bytes = 0;
    query(size.width, type, channels, &bytes);
    const auto buffer = a.guarded(bytes);
    function(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.orNull(buffer->data()));
    query(a.value<int32_t>(), a.orAnything(type), a.orAnything(channels), a.orNull(&bytes));
  });
}

static bool addGaussLevels() {
  addLevel<uint8_t>("qoriPyrDown_Gauss5x5_8u_C1R", qoriPyrDown_Gauss5x5_8u_C1R, false, qor8u, 1);
  addLevel<uint8_t>("qoriPyrDown_Gauss5x5_8u_C3R", qoriPyrDown_Gauss5x5_8u_C3R, false, qor8u, 3);
  addLevel<int8_t>("qoriPyrDown_Gauss5x5_8s_C1R", qoriPyrDown_Gauss5x5_8s_C1R, false, qor8s, 1);
  addLevel<int8_t>("qoriPyrDown_Gauss5x5_8s_C3R", qoriPyrDown_Gauss5x5_8s_C3R, false, qor8s, 3);
  addLevel<float>("qoriPyrDown_Gauss5x5_32f_C1R", qoriPyrDown_Gauss5x5_32f_C1R, false, qor32f, 1);
  addLevel<float>("qoriPyrDown_Gauss5x5_32f_C3R", qoriPyrDown_Gauss5x5_32f_C3R, false, qor32f, 3);
  addLevel<uint8_t>("qoriPyrUp_Gauss5x5_8u_C1R", qoriPyrUp_Gauss5x5_8u_C1R, true, qor8u, 1);
  addLevel<uint8_t>("qoriPyrUp_Gauss5x5_8u_C3R", qoriPyrUp_Gauss5x5_8u_C3R, true, qor8u, 3);
  addLevel<int8_t>("qoriPyrUp_Gauss5x5_8s_C1R", qoriPyrUp_Gauss5x5_8s_C1R, true, qor8s, 1);
  addLevel<int8_t>("qoriPyrUp_Gauss5x5_8s_C3R", qoriPyrUp_Gauss5x5_8s_C3R, true, qor8s, 3);
  addLevel<float>("qoriPyrUp_Gauss5x5_32f_C1R", qoriPyrUp_Gauss5x5_32f_C1R, true, qor32f, 1);
  addLevel<float>("qoriPyrUp_Gauss5x5_32f_C3R", qoriPyrUp_Gauss5x5_32f_C3R, true, qor32f, 3);
  return true;
}

static float anyRate(Arguments& a) {
  if (a.chance(5)) return a.value<float>();
  return a.chance(30) ? 2.0f : float(a.number(100001, 1000000)) / 100000.0f;
}

// Two images with one state: one as large as it allows, one that may be smaller.
template <class T, class Tap, class Init, class Run, class Free>
static void addLayer(const char* name, Init init, Run run, Free release, bool up, int32_t channels) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize most = a.size(1024);
    const float rate = anyRate(a);
    const int32_t taps = a.chance(80) ? 3 + 2 * a.number(0, 3) : a.number(1, 60);
    const auto kernel = a.array<Tap>(size_t(taps));
    QoriPyramidLayerState* state = nullptr;
    init(a.chance(3) ? nullptr : &state, a.spoiled(most), a.orNull(reinterpret_cast<const Tap*>(kernel->data())), taps,
         a.orAnything(2), rate);
    for (int32_t i = 0; i < 2; ++i) {
      const QoriSize size = i == 0 ? most : QoriSize{a.number(1, most.width), a.number(1, most.height)};
      QoriSize smallest = size, largest = size;
      if (up) {
        qoriGetPyramidUpROI(size, &smallest, &largest, rate);
      } else {
        qoriGetPyramidDownROI(size, &smallest, rate);
        largest = smallest;
      }
      const int32_t off = a.chance(4) ? 1 : 0;
      const QoriSize result = {a.number(smallest.width, largest.width) + off,
                               a.number(smallest.height, largest.height) + (a.chance(4) ? 1 : 0)};
      const auto src = a.image<T>(size, channels), dst = a.image<T>(result, channels);
      run(src.data, src.step, a.spoiled(size), dst.data, dst.step, result, state);
    }
    release(state);
  });
}

static void addRecord() {
  fuzz::add("qoriGetPyramidUpROI", [](Arguments& a) {
    QoriSize smallest, largest;
    const QoriSize size = {a.value<int32_t>(), a.value<int32_t>()};
    qoriGetPyramidUpROI(size, a.orNull(&smallest), a.orNull(&largest), anyRate(a));
  });
  fuzz::add("qoriGetPyramidDownROI", [](Arguments& a) {
    QoriSize below;
    const QoriSize size = {a.value<int32_t>(), a.value<int32_t>()};
    qoriGetPyramidDownROI(size, a.orNull(&below), anyRate(a));
  });
  fuzz::add("qoriPyramidInitAlloc", [](Arguments& a) {
    QoriPyramid* pyramid = nullptr;
    const QoriSize size = a.spoiled({a.number(1, 1 << 16), a.number(1, 1 << 16)});
    qoriPyramidInitAlloc(a.chance(3) ? nullptr : &pyramid, a.orAnything(a.number(1, 20)), size, anyRate(a));
    qoriPyramidFree(pyramid);
  });
}

static bool addLayers() {
  addRecord();
  addLayer<uint8_t, int16_t>("qoriPyramidLayerDown_8u_C1R", qoriPyramidLayerDownInitAlloc_8u_C1R,
                             qoriPyramidLayerDown_8u_C1R, qoriPyramidLayerDownFree_8u_C1R, false, 1);
  addLayer<uint8_t, int16_t>("qoriPyramidLayerDown_8u_C3R", qoriPyramidLayerDownInitAlloc_8u_C3R,
                             qoriPyramidLayerDown_8u_C3R, qoriPyramidLayerDownFree_8u_C3R, false, 3);
  addLayer<uint16_t, int16_t>("qoriPyramidLayerDown_16u_C1R", qoriPyramidLayerDownInitAlloc_16u_C1R,
                              qoriPyramidLayerDown_16u_C1R, qoriPyramidLayerDownFree_16u_C1R, false, 1);
  addLayer<uint16_t, int16_t>("qoriPyramidLayerDown_16u_C3R", qoriPyramidLayerDownInitAlloc_16u_C3R,
                              qoriPyramidLayerDown_16u_C3R, qoriPyramidLayerDownFree_16u_C3R, false, 3);
  addLayer<float, float>("qoriPyramidLayerDown_32f_C1R", qoriPyramidLayerDownInitAlloc_32f_C1R,
                         qoriPyramidLayerDown_32f_C1R, qoriPyramidLayerDownFree_32f_C1R, false, 1);
  addLayer<float, float>("qoriPyramidLayerDown_32f_C3R", qoriPyramidLayerDownInitAlloc_32f_C3R,
                         qoriPyramidLayerDown_32f_C3R, qoriPyramidLayerDownFree_32f_C3R, false, 3);
  addLayer<uint8_t, int16_t>("qoriPyramidLayerUp_8u_C1R", qoriPyramidLayerUpInitAlloc_8u_C1R, qoriPyramidLayerUp_8u_C1R,
                             qoriPyramidLayerUpFree_8u_C1R, true, 1);
  addLayer<uint8_t, int16_t>("qoriPyramidLayerUp_8u_C3R", qoriPyramidLayerUpInitAlloc_8u_C3R, qoriPyramidLayerUp_8u_C3R,
                             qoriPyramidLayerUpFree_8u_C3R, true, 3);
  addLayer<uint16_t, int16_t>("qoriPyramidLayerUp_16u_C1R", qoriPyramidLayerUpInitAlloc_16u_C1R,
                              qoriPyramidLayerUp_16u_C1R, qoriPyramidLayerUpFree_16u_C1R, true, 1);
  addLayer<uint16_t, int16_t>("qoriPyramidLayerUp_16u_C3R", qoriPyramidLayerUpInitAlloc_16u_C3R,
                              qoriPyramidLayerUp_16u_C3R, qoriPyramidLayerUpFree_16u_C3R, true, 3);
  addLayer<float, float>("qoriPyramidLayerUp_32f_C1R", qoriPyramidLayerUpInitAlloc_32f_C1R, qoriPyramidLayerUp_32f_C1R,
                         qoriPyramidLayerUpFree_32f_C1R, true, 1);
  addLayer<float, float>("qoriPyramidLayerUp_32f_C3R", qoriPyramidLayerUpInitAlloc_32f_C3R, qoriPyramidLayerUp_32f_C3R,
                         qoriPyramidLayerUpFree_32f_C3R, true, 3);
  return true;
}

static const bool added = addGaussLevels() && addLayers();
