// Motion in sequences of images.
#include <memory>
#include <vector>

#include "support/bench.h"

using bench::Picture;

// Half of the pixels move, the others are at 0.
template <class T, class Function>
static void addUpdate(const char* name, Function function) {
  bench::add(name, "", [=](QoriSize size) {
    auto silhouette = std::make_shared<Picture<T>>(size);
    const Picture<uint8_t> noise = bench::noise<uint8_t>(size);
    for (size_t i = 0; i < noise.elements.size(); ++i) silhouette->elements[i] = T(noise.elements[i] & 64);
    auto mhi = std::make_shared<Picture<float>>(size);
    return [=] {
      CHECK_CALL(function(silhouette->data(), silhouette->step(), mhi->data(), mhi->step(), size, 10.0f, 3.0f));
    };
  });
}

// A photograph and the same moved by a few pixels and a fraction, as pyramids of halved levels, with points on a grid.
template <class T>
struct Flow {
  static constexpr int32_t numPoints = 500, winSize = 21, maxLevel = 3;
  struct Pyramid {
    QoriPyramid* record = nullptr;
    std::vector<Picture<T>> levels;
  };
  Pyramid first, second;
  QoriOptFlowState* state = nullptr;
  std::vector<QoriPoint_32f> points, found;
  std::vector<uint8_t> status;
  std::vector<float> error;

  static Picture<uint8_t> halved(Picture<uint8_t>& src) {
    Picture<uint8_t> dst({(src.size.width + 1) / 2, (src.size.height + 1) / 2});
    std::vector<uint8_t> buffer =
        bench::scratch([&](int32_t* size) { return qoriPyrDownGetBufSize_Gauss5x5(src.size.width, qor8u, 1, size); });
    CHECK_CALL(qoriPyrDown_Gauss5x5_8u_C1R(src.data(), src.step(), dst.data(), dst.step(), src.size, buffer.data()));
    return dst;
  }

  static Pyramid pyramidOf(Picture<uint8_t> image) {
    Pyramid pyramid;
    CHECK_CALL(qoriPyramidInitAlloc(&pyramid.record, maxLevel, image.size, 2.0f));
    pyramid.levels.reserve(maxLevel + 1);
    for (int32_t l = 0; l <= maxLevel; ++l) {
      if (l > 0) image = halved(image);
      Picture<T>& level = pyramid.levels.emplace_back(image.size);
      // 16-bit images use their range.
      for (size_t i = 0; i < image.elements.size(); ++i)
        level.elements[i] = T(image.elements[i] * (sizeof(T) == 2 ? 257 : 1));
      pyramid.record->levelImages[l] = level.data();
      pyramid.record->levelSteps[l] = level.step();
    }
    return pyramid;
  }

  explicit Flow(QoriSize size) : points(numPoints), found(numPoints), status(numPoints), error(numPoints) {
    Picture<uint8_t> scene = bench::naturalScene({size.width + 8, size.height + 8}), still(size), moved(size);
    const auto window = [&](Picture<uint8_t>& dst, int32_t x, int32_t y, float dx, float dy) {
      CHECK_CALL(qoriCopySubpix_8u_C1R(scene.data() + y * scene.step() + x, scene.step(), dst.data(), dst.step(), size,
                                       dx, dy));
    };
    window(still, 0, 0, 0, 0);
    window(moved, 3, 2, 0.3f, 0.7f);
    first = pyramidOf(still);
    second = pyramidOf(moved);
    for (int32_t i = 0; i < numPoints; ++i) {
      points[i] = {float(size.width) * float(i % 25 + 1) / 26, float(size.height) * float(i / 25 + 1) / 21};
    }
  }
  ~Flow() {
    qoriPyramidFree(first.record);
    qoriPyramidFree(second.record);
  }
};

template <class T, class Init, class Free, class Function>
static void addFlow(const char* name, Init init, Free free, Function function) {
  bench::add(name, "500 points, window 21, 3 levels above the base, 20 iterations", [=](QoriSize size) {
    std::shared_ptr<Flow<T>> flow(new Flow<T>(size), [=](Flow<T>* f) {
      free(f->state);
      delete f;
    });
    CHECK_CALL(init(&flow->state, size, flow->winSize, 0));
    return [=] {
      flow->found = flow->points;
      CHECK_CALL(function(flow->first.record, flow->second.record, flow->points.data(), flow->found.data(),
                          flow->status.data(), flow->error.data(), flow->numPoints, flow->winSize, flow->maxLevel, 20,
                          0.01f, flow->state));
    };
  });
}

static void addGaussianBackground() {}

static void addHistogramBackground() {}

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
