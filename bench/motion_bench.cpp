// Motion in sequences of images.
#include <algorithm>
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

// A steady scene with grain and a square that crosses it: frames for a background model, seen one after the other.
static std::vector<Picture<uint8_t>> street(QoriSize size, int32_t channels, int32_t count) {
  const Picture<uint8_t> scene = bench::naturalScene(size);
  const Picture<uint8_t> noise = bench::noise<uint8_t>(size);
  const size_t length = size_t(size.width) * size.height;
  const int32_t side = size.height / 4;
  std::vector<Picture<uint8_t>> frames;
  for (int32_t f = 0; f < count; ++f) {
    Picture<uint8_t>& frame = frames.emplace_back(size, channels);
    const int32_t left = (size.width - side) * f / count;
    for (size_t i = 0; i < length; ++i) {
      const int32_t x = int32_t(i % size.width) - left, y = int32_t(i / size.width) - size.height / 3;
      const bool square = x >= 0 && x < side && y >= 0 && y < side;
      for (int32_t c = 0; c < channels; ++c) {
        const int32_t grain = noise.elements[(i + size_t(f * 7919 + c * 104729)) % length] % 9 - 4;
        const int32_t value = square ? 230 - 40 * c : scene.elements[i];
        frame.elements[i * channels + c] = uint8_t(std::clamp(value + grain, 0, 255));
      }
    }
  }
  return frames;
}

template <class Init, class Free, class Function>
static void addGaussian(const char* name, int32_t channels, Init init, Free release, Function function) {
  bench::add(name, "steady scene with grain and a moving square, after 8 frames", [=](QoriSize size) {
    struct Run {
      std::vector<Picture<uint8_t>> frames;
      Picture<uint8_t> ref, dst;
      QoriFGGaussianState_8u* state = nullptr;
      size_t next = 1;
    };
    constexpr int32_t count = 16;
    std::shared_ptr<Run> run(
        new Run{street(size, channels, count), Picture<uint8_t>(size, channels), Picture<uint8_t>(size)}, [=](Run* r) {
          release(r->state);
          delete r;
        });
    Picture<uint8_t>& first = run->frames[0];
    CHECK_CALL(init(first.data(), first.step(), size, first.data(), &run->state));
    const auto frame = [=] {
      Picture<uint8_t>& src = run->frames[run->next++ % count];
      CHECK_CALL(function(src.data(), src.step(), run->ref.data(), run->ref.step(), run->dst.data(), run->dst.step(),
                          size, run->state));
    };
    for (int i = 0; i < 8; ++i) frame();
    return frame;
  });
}

static void addGaussianBackground() {
  addGaussian("qoriForegroundGaussian_8u_C1R", 1, qoriForegroundGaussianInitAlloc_8u_C1R,
              qoriForegroundGaussianFree_8u_C1R, qoriForegroundGaussian_8u_C1R);
  addGaussian("qoriForegroundGaussian_8u_C3R", 3, qoriForegroundGaussianInitAlloc_8u_C3R,
              qoriForegroundGaussianFree_8u_C3R, qoriForegroundGaussian_8u_C3R);
}

// A photograph with the noise of a sensor, frame after frame, and a model that has learnt it.
struct LearntScene {
  using State = QoriFGHistogramState_8u;
  using Frame = QorStatus (*)(const uint8_t*, int32_t, uint8_t*, int32_t, QoriSize, State*);
  using Update = QorStatus (*)(const uint8_t*, int32_t, const uint8_t*, int32_t, uint8_t*, int32_t, QoriSize, State*);
  static constexpr int frameCount = 8, learntFrames = 40;
  QoriSize size;
  Frame frame;
  Update update;
  QorStatus (*release)(State*);
  State* state = nullptr;
  std::vector<Picture<uint8_t>> frames;
  Picture<uint8_t> mask, reference;
  size_t next = 0;

  template <class Init>
  LearntScene(QoriSize size_, int channels, Init init, Frame frame_, Update update_, QorStatus (*release_)(State*))
      : size(size_), frame(frame_), update(update_), release(release_), mask(size_), reference(size_, channels) {
    const Picture<uint8_t> scene = bench::naturalScene(size);
    uint32_t random = 1;
    for (int i = 0; i < frameCount; ++i) {
      Picture<uint8_t>& noisy = frames.emplace_back(size, channels);
      for (size_t k = 0; k < noisy.elements.size(); ++k) {
        random = random * 1664525 + 1013904223;
        const int value = scene.elements[k / size_t(channels)] + int(random >> 24) % 5 - 2;
        noisy.elements[k] = uint8_t(value < 0 ? 0 : value > 255 ? 255 : value);
      }
      // One channel is compared with the two pixels behind the last, too.
      noisy.elements.reserve(noisy.elements.size() + 2);
    }
    CHECK_CALL(init(frames[0].data(), frames[0].step(), size, this, &state));
    for (int i = 0; i < learntFrames; ++i) decideAndLearn();
  }
  ~LearntScene() { release(state); }
  void decideAndLearn() {
    Picture<uint8_t>& src = frames[next++ % frameCount];
    CHECK_CALL(frame(src.data(), src.step(), mask.data(), mask.step(), size, state));
    CHECK_CALL(
        update(src.data(), src.step(), mask.data(), mask.step(), reference.data(), reference.step(), size, state));
  }
};

template <class Init, class Frame, class Update, class Free>
static void addLearntScene(const char* name, int channels, Init init, Frame frame, Update update, Free release) {
  bench::add(name, "a frame and its update, still scene with noise", [=](QoriSize size) {
    // Learning takes seconds and up to 2 GB, so the last scene is kept for the next repetition.
    static std::shared_ptr<LearntScene> scene;
    static Frame learntBy;
    if (!scene || learntBy != frame || scene->size.width != size.width || scene->size.height != size.height) {
      scene.reset();
      scene = std::make_shared<LearntScene>(size, channels, init, frame, update, release);
      learntBy = frame;
    }
    return [] { scene->decideAndLearn(); };
  });
}

static void addHistogramBackground() {
  addLearntScene("qoriForegroundHistogram_8u_C1R", 1, qoriForegroundHistogramInitAlloc_8u_C1R,
                 qoriForegroundHistogram_8u_C1R, qoriForegroundHistogramUpdate_8u_C1R,
                 qoriForegroundHistogramFree_8u_C1R);
  addLearntScene("qoriForegroundHistogram_8u_C3R", 3, qoriForegroundHistogramInitAlloc_8u_C3R,
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
