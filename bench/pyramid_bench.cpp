// Image pyramids.
#include <memory>

#include "support/bench.h"

using bench::Picture;

template <class T, class Function>
static void addLevel(const char* name, Function function, bool up, QorDataType type, int32_t channels) {
  bench::add(name, "", [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(bench::noise<T>(size, channels));
    const QoriSize result =
        up ? QoriSize{size.width * 2, size.height * 2} : QoriSize{(size.width + 1) / 2, (size.height + 1) / 2};
    auto dst = std::make_shared<Picture<T>>(result, channels);
    const auto query = up ? qoriPyrUpGetBufSize_Gauss5x5 : qoriPyrDownGetBufSize_Gauss5x5;
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return query(size.width, type, channels, bytes); }));
    return [=] { CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), size, buffer->data())); };
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

// A layer by kernel 1 4 6 4 1 from `size` downward, or up to `size`. Making and freeing the state is a function of its
// own, as is the call.
template <class T, class Tap, class Init, class Run, class Free>
static void addLayer(const std::string& form, Init init, Run run, Free release, bool up, int32_t channels) {
  static const Tap kernel[] = {1, 4, 6, 4, 1};
  const std::string stem = up ? "qoriPyramidLayerUp" : "qoriPyramidLayerDown";
  const auto source = [=](QoriSize size, float rate) {
    if (up) CHECK_CALL(qoriGetPyramidDownROI(size, &size, rate));
    return size;
  };
  for (const float rate : {2.0f, 1.5f}) {
    bench::add(stem + "_" + form, rate == 2.0f ? "rate 2, 5 taps" : "rate 1.5, 5 taps", [=](QoriSize size) {
      const QoriSize srcSize = source(size, rate);
      QoriSize dstSize = size;
      if (!up) CHECK_CALL(qoriGetPyramidDownROI(size, &dstSize, rate));
      auto src = std::make_shared<Picture<T>>(bench::noise<T>(srcSize, channels));
      auto dst = std::make_shared<Picture<T>>(dstSize, channels);
      QoriPyramidLayerState* made = nullptr;
      CHECK_CALL(init(&made, srcSize, kernel, 5, 2, rate));
      std::shared_ptr<QoriPyramidLayerState> state(made, release);
      return
          [=] { CHECK_CALL(run(src->data(), src->step(), srcSize, dst->data(), dst->step(), dstSize, state.get())); };
    });
  }
  const auto makeAndFree = [=](QoriSize size) {
    const QoriSize srcSize = source(size, 2.0f);
    return [=] {
      QoriPyramidLayerState* state = nullptr;
      CHECK_CALL(init(&state, srcSize, kernel, 5, 2, 2.0f));
      CHECK_CALL(release(state));
    };
  };
  bench::add(stem + "InitAlloc_" + form, "with Free, rate 2, 5 taps", makeAndFree);
  bench::add(stem + "Free_" + form, "with InitAlloc, rate 2, 5 taps", makeAndFree);
}

static void addRecord() {
  bench::add("qoriGetPyramidUpROI", "", [](QoriSize size) {
    return [=] {
      QoriSize smallest, largest;
      CHECK_CALL(qoriGetPyramidUpROI(size, &smallest, &largest, 1.5f));
    };
  });
  bench::add("qoriGetPyramidDownROI", "", [](QoriSize size) {
    return [=] {
      QoriSize below;
      CHECK_CALL(qoriGetPyramidDownROI(size, &below, 1.5f));
    };
  });
  const auto makeAndFree = [](QoriSize size) {
    return [=] {
      QoriPyramid* pyramid = nullptr;
      CHECK_CALL(qoriPyramidInitAlloc(&pyramid, 8, size, 1.5f));
      CHECK_CALL(qoriPyramidFree(pyramid));
    };
  };
  bench::add("qoriPyramidInitAlloc", "with Free", makeAndFree);
  bench::add("qoriPyramidFree", "with InitAlloc", makeAndFree);
}

static bool addLayers() {
  addRecord();
  addLayer<uint8_t, int16_t>("8u_C1R", qoriPyramidLayerDownInitAlloc_8u_C1R, qoriPyramidLayerDown_8u_C1R,
                             qoriPyramidLayerDownFree_8u_C1R, false, 1);
  addLayer<uint8_t, int16_t>("8u_C3R", qoriPyramidLayerDownInitAlloc_8u_C3R, qoriPyramidLayerDown_8u_C3R,
                             qoriPyramidLayerDownFree_8u_C3R, false, 3);
  addLayer<uint16_t, int16_t>("16u_C1R", qoriPyramidLayerDownInitAlloc_16u_C1R, qoriPyramidLayerDown_16u_C1R,
                              qoriPyramidLayerDownFree_16u_C1R, false, 1);
  addLayer<uint16_t, int16_t>("16u_C3R", qoriPyramidLayerDownInitAlloc_16u_C3R, qoriPyramidLayerDown_16u_C3R,
                              qoriPyramidLayerDownFree_16u_C3R, false, 3);
  addLayer<float, float>("32f_C1R", qoriPyramidLayerDownInitAlloc_32f_C1R, qoriPyramidLayerDown_32f_C1R,
                         qoriPyramidLayerDownFree_32f_C1R, false, 1);
  addLayer<float, float>("32f_C3R", qoriPyramidLayerDownInitAlloc_32f_C3R, qoriPyramidLayerDown_32f_C3R,
                         qoriPyramidLayerDownFree_32f_C3R, false, 3);
  addLayer<uint8_t, int16_t>("8u_C1R", qoriPyramidLayerUpInitAlloc_8u_C1R, qoriPyramidLayerUp_8u_C1R,
                             qoriPyramidLayerUpFree_8u_C1R, true, 1);
  addLayer<uint8_t, int16_t>("8u_C3R", qoriPyramidLayerUpInitAlloc_8u_C3R, qoriPyramidLayerUp_8u_C3R,
                             qoriPyramidLayerUpFree_8u_C3R, true, 3);
  addLayer<uint16_t, int16_t>("16u_C1R", qoriPyramidLayerUpInitAlloc_16u_C1R, qoriPyramidLayerUp_16u_C1R,
                              qoriPyramidLayerUpFree_16u_C1R, true, 1);
  addLayer<uint16_t, int16_t>("16u_C3R", qoriPyramidLayerUpInitAlloc_16u_C3R, qoriPyramidLayerUp_16u_C3R,
                              qoriPyramidLayerUpFree_16u_C3R, true, 3);
  addLayer<float, float>("32f_C1R", qoriPyramidLayerUpInitAlloc_32f_C1R, qoriPyramidLayerUp_32f_C1R,
                         qoriPyramidLayerUpFree_32f_C1R, true, 1);
  addLayer<float, float>("32f_C3R", qoriPyramidLayerUpInitAlloc_32f_C3R, qoriPyramidLayerUp_32f_C3R,
                         qoriPyramidLayerUpFree_32f_C3R, true, 3);
  return true;
}

static const bool added = addGaussLevels() && addLayers();
