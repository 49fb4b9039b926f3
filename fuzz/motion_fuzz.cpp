// Motion in sequences of images.
#include <math.h>

#include "support/fuzz.h"

using fuzz::Arguments;

template <class T, class Function>
static void addUpdate(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto silhouette = a.image<T>(size);
    auto mhi = a.image<float>(size);
    if constexpr (std::is_same_v<T, float>) {
      if (a.chance(20)) mhi = silhouette;
    }
    const float timestamp = a.value<float>(), duration = a.value<float>();
    function(silhouette.data, silhouette.step, mhi.data, mhi.step, a.spoiled(size), timestamp,
             a.chance(80) ? fabsf(duration) : duration);
  });
}

// Two pyramids of a few levels, whose records may lie about the images.
template <class T, class Init, class Free, class Function>
static void addFlow(const char* name, Init init, Free release, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const int32_t levels = a.number(1, 4), numPoints = a.number(1, 6), winSize = a.number(1, 40);
    std::vector<fuzz::ImageArgument<T>> images;
    std::vector<void*> data[2];
    std::vector<QoriSize> sizes[2];
    std::vector<double> rates[2];
    std::vector<int32_t> steps[2];
    QoriPyramid records[2];
    for (int p = 0; p < 2; ++p) {
      QoriSize size = a.size(2048);
      double rate = 1;
      for (int32_t l = 0; l < levels; ++l) {
        images.push_back(a.image<T>(size));
        data[p].push_back(images.back().data);
        sizes[p].push_back(a.spoiled(size));
        rates[p].push_back(a.chance(3) ? a.value<double>() : rate);
        steps[p].push_back(images.back().step);
        size = {(size.width + 1) / 2, (size.height + 1) / 2};
        rate /= 2;
      }
      records[p] = {data[p].data(), sizes[p].data(), rates[p].data(), steps[p].data(), nullptr, levels - 1};
    }
    std::vector<QoriPoint_32f> prev, next;
    for (int32_t i = 0; i < numPoints; ++i) {
      prev.push_back({float(a.number(-80, 800)) / 8, a.chance(95) ? float(a.number(-80, 800)) / 8 : a.value<float>()});
      next.push_back(a.chance(95) ? prev.back() : QoriPoint_32f{a.value<float>(), a.value<float>()});
    }
    std::vector<uint8_t> status(size_t(numPoints), 0);
    std::vector<float> error(size_t(numPoints), 0);
    QoriOptFlowState* state = nullptr;
    const QoriSize planes = a.chance(50) ? a.size(2048) : QoriSize{a.number(1, 3000), a.number(1, 300)};
    init(a.chance(3) ? nullptr : &state, planes, a.orAnything(winSize), a.value<int32_t>());
    function(a.orNull(&records[0]), a.orNull(&records[1]), a.orNull(prev.data()), a.orNull(next.data()),
             a.orNull(status.data()), a.orNull(error.data()), a.chance(3) ? 0 : numPoints, winSize,
             a.orAnything(a.number(0, levels - 1)), a.number(0, 12), a.chance(80) ? 0.01f : a.value<float>(), state);
    if (state) release(state);
  });
}

// Some frames, now and then beyond the one of the other rule, some of them in a region of another size. The steps of
// the results are right, since nobody tests them.
template <class Init, class Free, class Function>
static void addGaussian(const char* name, int32_t channels, Init init, Free release, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size(512);
    const auto first = a.image<uint8_t>(size, channels);
    const char model = 0;
    QoriFGGaussianState_8u* state = nullptr;
    init(first.data, first.step, a.spoiled(size), a.orNull(&model), a.chance(3) ? nullptr : &state);
    const int32_t frames = a.chance(5) ? 205 : a.number(1, 8);
    const auto second = a.image<uint8_t>(size, channels), third = a.image<uint8_t>(size, channels);
    auto ref = a.image<uint8_t>(size, channels);
    const auto dst = a.image<uint8_t>(size);
    if (a.chance(10)) ref = third;
    for (int32_t i = 0; i < frames; ++i) {
      const auto& src = i % 3 == 0 ? second : i % 3 == 1 ? third : first;
      QoriSize called = size;
      if (i < 8) called = a.spoiled(size);
      if (i < 8 && a.chance(5)) called = {a.number(1, size.width + 2), a.number(1, size.height + 2)};
      function(src.data, src.step, ref.data, ref.image->step(), dst.data, dst.image->step(), called,
               i < 8 ? a.orNull(state) : state);
    }
    if (state) release(state);
  });
}

static void addGaussianBackground() {
  addGaussian("qoriForegroundGaussian_8u_C1R", 1, qoriForegroundGaussianInitAlloc_8u_C1R,
              qoriForegroundGaussianFree_8u_C1R, qoriForegroundGaussian_8u_C1R);
  addGaussian("qoriForegroundGaussian_8u_C3R", 3, qoriForegroundGaussianInitAlloc_8u_C3R,
              qoriForegroundGaussianFree_8u_C3R, qoriForegroundGaussian_8u_C3R);
}

// Some frames of few values, so that entries are met again, with any masks between.
template <class Init, class Frame, class Update, class Free>
static void addHistogramModel(const char* name, int32_t channels, Init init, Frame frame, Update update, Free release) {
  fuzz::add(name, [=](Arguments& a) {
    // One channel may be compared with the two pixels behind a row.
    const QoriSize size = a.size(100), wide = {size.width + (channels == 1 ? 2 : 0), size.height};
    const auto first = a.image<uint8_t>(size, channels);
    int model = 0;
    QoriFGHistogramState_8u* state = nullptr;
    init(first.data, first.step, a.spoiled(size), a.orNull(&model), a.chance(3) ? nullptr : &state);
    if (!state) return;
    std::vector<fuzz::ImageArgument<uint8_t>> frames;
    for (int32_t i = a.number(1, 4); i > 0; --i) frames.push_back(a.image<uint8_t>(wide, channels));
    const auto dst = a.image<uint8_t>(size), mask = a.image<uint8_t>(size), ref = a.image<uint8_t>(size, channels);
    const bool decided = a.chance(50);
    for (int32_t i = a.number(1, 40); i > 0; --i) {
      const auto& src = frames[size_t(i) % frames.size()];
      const auto& told = decided ? dst : mask;
      QoriSize region = a.spoiled(size);
      if (region.width > 1 && a.chance(5)) region.width = a.number(1, region.width);
      if (a.chance(3)) {
        // More than the model was made for.
        const QoriSize larger = {size.width + a.number(0, 1000), size.height + a.number(1, 1000)};
        if (frame(src.data, src.step, dst.data, dst.image->step(), larger, state) == qorStatusOk) __builtin_trap();
        if (update(src.data, src.step, told.data, told.image->step(), ref.data, ref.image->step(), larger, state) ==
            qorStatusOk) {
          __builtin_trap();
        }
      }
      // A step that the call does not test has to be true.
      if (a.chance(90)) frame(src.data, src.step, dst.data, dst.image->step(), region, state);
      update(src.data, src.step, told.data, told.image->step(), ref.data, ref.image->step(), region, state);
    }
    release(state);
  });
}

static void addHistogramBackground() {
  addHistogramModel("qoriForegroundHistogram_8u_C1R", 1, qoriForegroundHistogramInitAlloc_8u_C1R,
                    qoriForegroundHistogram_8u_C1R, qoriForegroundHistogramUpdate_8u_C1R,
                    qoriForegroundHistogramFree_8u_C1R);
  addHistogramModel("qoriForegroundHistogram_8u_C3R", 3, qoriForegroundHistogramInitAlloc_8u_C3R,
                    qoriForegroundHistogram_8u_C3R, qoriForegroundHistogramUpdate_8u_C3R,
                    qoriForegroundHistogramFree_8u_C3R);
}

static const bool added = [] {
  addGaussianBackground();
  addHistogramBackground();
  addFlow<uint8_t>("qoriOpticalFlowPyrLK_8u_C1R", qoriOpticalFlowPyrLKInitAlloc_8u_C1R, qoriOpticalFlowPyrLKFree_8u_C1R,
                   qoriOpticalFlowPyrLK_8u_C1R);
  addFlow<uint16_t>("qoriOpticalFlowPyrLK_16u_C1R", qoriOpticalFlowPyrLKInitAlloc_16u_C1R,
                    qoriOpticalFlowPyrLKFree_16u_C1R, qoriOpticalFlowPyrLK_16u_C1R);
  addFlow<float>("qoriOpticalFlowPyrLK_32f_C1R", qoriOpticalFlowPyrLKInitAlloc_32f_C1R,
                 qoriOpticalFlowPyrLKFree_32f_C1R, qoriOpticalFlowPyrLK_32f_C1R);
  addUpdate<uint8_t>("qoriUpdateMotionHistory_8u32f_C1IR", qoriUpdateMotionHistory_8u32f_C1IR);
  addUpdate<uint16_t>("qoriUpdateMotionHistory_16u32f_C1IR", qoriUpdateMotionHistory_16u32f_C1IR);
  addUpdate<float>("qoriUpdateMotionHistory_32f_C1IR", qoriUpdateMotionHistory_32f_C1IR);
  return true;
}();
