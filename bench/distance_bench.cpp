// Distance maps, inpainting and flood fills.
#include <memory>
#include <utility>
#include <vector>

#include "support/bench.h"

using bench::Picture;

// 15 of 1000 pixels are 0, at random places.
static std::shared_ptr<Picture<uint8_t>> fewZeros(QoriSize size) {
  auto picture = std::make_shared<Picture<uint8_t>>(size);
  const Picture<uint16_t> noise = bench::noise<uint16_t>(size);
  for (size_t i = 0; i < noise.elements.size(); ++i) picture->elements[i] = noise.elements[i] % 1000 < 15 ? 0 : 255;
  return picture;
}

template <class T, class M, class Function>
static void addDistance(const char* name, const char* variant, Function function, std::vector<M> metrics) {
  bench::add(name, variant, [=](QoriSize size) {
    auto src = fewZeros(size);
    auto dst = std::make_shared<Picture<T>>(size);
    return [=] { CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), size, metrics.data())); };
  });
}

static bool addChamfer() {
  addDistance<uint8_t, int32_t>("qoriDistanceTransform_3x3_8u_C1R", "metrics 1, 2; 1.5 % zeros",
                                qoriDistanceTransform_3x3_8u_C1R, {1, 2});
  addDistance<uint16_t, int32_t>("qoriDistanceTransform_3x3_8u16u_C1R", "metrics 2, 3; 1.5 % zeros",
                                 qoriDistanceTransform_3x3_8u16u_C1R, {2, 3});
  addDistance<float, float>("qoriDistanceTransform_3x3_8u32f_C1R", "metrics 0.955, 1.3693; 1.5 % zeros",
                            qoriDistanceTransform_3x3_8u32f_C1R, {0.955f, 1.3693f});
  addDistance<uint8_t, int32_t>("qoriDistanceTransform_5x5_8u_C1R", "metrics 5, 7, 11; 1.5 % zeros",
                                qoriDistanceTransform_5x5_8u_C1R, {5, 7, 11});
  addDistance<uint16_t, int32_t>("qoriDistanceTransform_5x5_8u16u_C1R", "metrics 5, 7, 11; 1.5 % zeros",
                                 qoriDistanceTransform_5x5_8u16u_C1R, {5, 7, 11});
  addDistance<float, float>("qoriDistanceTransform_5x5_8u32f_C1R", "metrics 1, 1.4, 2.1969; 1.5 % zeros",
                            qoriDistanceTransform_5x5_8u32f_C1R, {1, 1.4f, 2.1969f});
  return true;
}

static bool addTrueDistance() {
  bench::add("qoriTrueDistanceTransform_8u16u_C1RSfs", "1.5 % zeros", [](QoriSize size) {
    auto src = fewZeros(size);
    auto dst = std::make_shared<Picture<uint16_t>>(size);
    auto buffer = std::make_shared<std::vector<uint8_t>>(bench::scratch(
        [&](int32_t* bytes) { return qoriTrueDistanceTransformGetBufferSize_8u16u_C1RSfs(size, bytes); }));
    return [=] {
      CHECK_CALL(qoriTrueDistanceTransform_8u16u_C1RSfs(src->data(), src->step(), dst->data(), dst->step(), size, -4,
                                                        buffer->data()));
    };
  });
  bench::add("qoriTrueDistanceTransform_8u32f_C1R", "1.5 % zeros", [](QoriSize size) {
    auto src = fewZeros(size);
    auto dst = std::make_shared<Picture<float>>(size);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([&](int32_t* bytes) { return qoriTrueDistanceTransformGetBufferSize_8u32f_C1R(size, bytes); }));
    return [=] {
      CHECK_CALL(qoriTrueDistanceTransform_8u32f_C1R(src->data(), src->step(), dst->data(), dst->step(), size,
                                                     buffer->data()));
    };
  });
  return true;
}

// One thing in the middle of an otherwise empty mask.
template <class Inside>
static std::shared_ptr<Picture<uint8_t>> maskOf(QoriSize size, Inside inside) {
  auto mask = std::make_shared<Picture<uint8_t>>(size);
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      mask->elements[size_t(y) * size.width + x] = inside(x - size.width / 2, y - size.height / 2) ? 255 : 0;
    }
  }
  return mask;
}

static void march(Picture<uint8_t>& mask, Picture<float>& distance, float radius, std::vector<uint8_t>& buffer) {
  CHECK_CALL(qoriFastMarching_8u32f_C1R(mask.data(), mask.step(), distance.data(), distance.step(), mask.size, radius,
                                        buffer.data()));
}

static void addMarching(const char* variant, float radius) {
  bench::add("qoriFastMarching_8u32f_C1R", variant, [=](QoriSize size) {
    const auto mask = maskOf(size, [](int32_t x, int32_t y) { return x * x + y * y < 150 * 150; });
    auto distance = std::make_shared<Picture<float>>(size);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([=](int32_t* bytes) { return qoriFastMarchingGetBufferSize_8u32f_C1R(size, bytes); }));
    return [=] { march(*mask, *distance, radius, *buffer); };
  });
}

static bool addFastMarching() {
  addMarching("one disc of 300 pixels", 0);
  addMarching("one disc of 300 pixels, 20 pixels outside too", 20);
  return true;
}

template <class Init, class Run, class Free>
static void addHole(const char* name, const char* variant, int32_t channels, int32_t flags, Init init, Run run,
                    Free release) {
  bench::add(name, variant, [=](QoriSize size) {
    const auto mask = maskOf(size, [](int32_t x, int32_t y) { return x >= -30 && x <= 30 && y >= -30 && y <= 30; });
    Picture<float> distance(size);
    std::vector<uint8_t> buffer =
        bench::scratch([=](int32_t* bytes) { return qoriFastMarchingGetBufferSize_8u32f_C1R(size, bytes); });
    march(*mask, distance, 0, buffer);
    QoriInpaintState_8u_C1R* state = nullptr;
    CHECK_CALL(init(&state, distance.data(), distance.step(), mask->data(), mask->step(), size, 5.0f, flags));
    const std::shared_ptr<QoriInpaintState_8u_C1R> owner(state, release);
    const Picture<uint8_t> scene = bench::naturalScene(size);
    auto src = std::make_shared<Picture<uint8_t>>(size, channels), dst = std::make_shared<Picture<uint8_t>>(*src);
    for (size_t i = 0; i < src->elements.size(); ++i) src->elements[i] = scene.elements[i / size_t(channels)];
    return [=] { CHECK_CALL(run(src->data(), src->step(), dst->data(), dst->step(), size, owner.get())); };
  });
}

static bool addInpainting() {
  constexpr const char* variants[2] = {"hole of 61x61, radius 5, extrapolate", "hole of 61x61, radius 5, isophote"};
  for (const int32_t flags : {qorInpaintExtrapolate, qorInpaintIsophote}) {
    addHole("qoriInpaint_8u_C1R", variants[flags], 1, flags, qoriInpaintInitAlloc_8u_C1R, qoriInpaint_8u_C1R,
            qoriInpaintFree_8u_C1R);
    addHole("qoriInpaint_8u_C3R", variants[flags], 3, flags, qoriInpaintInitAlloc_8u_C3R, qoriInpaint_8u_C3R,
            qoriInpaintFree_8u_C3R);
  }
  return true;
}

// A fill spoils the picture, so each call begins with a copy of it. The new value lies outside of the range: inside it
// a Range fill would go over its own pixels.
template <class T, int channels, class Fill>
static void addFill(const char* name, const char* variant, Fill fill) {
  bench::add(name, variant, [=](QoriSize size) {
    Picture<uint8_t> scene = bench::naturalScene(size);
    auto src = std::make_shared<Picture<T>>(size, channels), dst = std::make_shared<Picture<T>>(size, channels);
    for (size_t i = 0; i < src->elements.size(); ++i) src->elements[i] = T(scene.elements[i / channels]);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([&](int32_t* bytes) { return qoriFloodFillGetSize_Grad(size, bytes); }));
    const QoriPoint seed = {size.width / 2, size.height / 2};
    const T newValue = scene.elements[size_t(seed.y) * size_t(size.width) + size_t(seed.x)] < 128 ? T(255) : T(0);
    return [=] {
      dst->elements = src->elements;
      QoriConnectedComp region;
      CHECK_CALL(fill(dst->data(), dst->step(), size, seed, newValue, &region, buffer->data()));
    };
  });
}

template <class T, class Fill>
static void addFillByDeltas(const char* name, const char* variant, T deltas, Fill fill) {
  addFill<T, 1>(
      name, variant,
      [=](T* image, int32_t step, QoriSize size, QoriPoint seed, T newValue, QoriConnectedComp* region,
          uint8_t* buffer) { return fill(image, step, size, seed, newValue, deltas, deltas, region, buffer); });
}

template <class T, class Fill>
static void addFillByDeltas3(const char* name, const char* variant, T deltas, Fill fill) {
  addFill<T, 3>(name, variant,
                [=](T* image, int32_t step, QoriSize size, QoriPoint seed, T newValue, QoriConnectedComp* region,
                    uint8_t* buffer) {
                  const T values[3] = {newValue, newValue, newValue}, three[3] = {deltas, deltas, deltas};
                  return fill(image, step, size, seed, values, three, three, region, buffer);
                });
}

// A picture of one value, all of which is filled.
template <class T, int channels, class Fill>
static void addFlatFill(const char* name, Fill fill) {
  bench::add(name, "flat, copy of the image included", [=](QoriSize size) {
    auto src = std::make_shared<Picture<T>>(size, channels), dst = std::make_shared<Picture<T>>(size, channels);
    auto buffer = std::make_shared<std::vector<uint8_t>>(
        bench::scratch([&](int32_t* bytes) { return qoriFloodFillGetSize(size, bytes); }));
    return [=] {
      dst->elements = src->elements;
      const T values[3] = {T(1), T(1), T(1)};
      QoriConnectedComp region;
      const QoriPoint seed = {size.width / 2, size.height / 2};
      if constexpr (channels == 1) {
        CHECK_CALL(fill(dst->data(), dst->step(), size, seed, values[0], &region, buffer->data()));
      } else {
        CHECK_CALL(fill(dst->data(), dst->step(), size, seed, values, &region, buffer->data()));
      }
    };
  });
}

static bool addFloodFill() {
  const char* const range = "natural scene, seed in the centre, deltas 60, copy of the image included";
  const char* const grad = "natural scene, seed in the centre, deltas 12, copy of the image included";
  const char* const gradWide = "natural scene, seed in the centre, deltas 40, copy of the image included";
#define EACH_CONNECTIVITY(CON)                                                                                        \
  addFlatFill<uint8_t, 1>("qoriFloodFill_" #CON "_8u_C1IR", qoriFloodFill_##CON##_8u_C1IR);                           \
  addFlatFill<uint8_t, 3>("qoriFloodFill_" #CON "_8u_C3IR", qoriFloodFill_##CON##_8u_C3IR);                           \
  addFlatFill<uint16_t, 1>("qoriFloodFill_" #CON "_16u_C1IR", qoriFloodFill_##CON##_16u_C1IR);                        \
  addFlatFill<uint16_t, 3>("qoriFloodFill_" #CON "_16u_C3IR", qoriFloodFill_##CON##_16u_C3IR);                        \
  addFlatFill<float, 1>("qoriFloodFill_" #CON "_32f_C1IR", qoriFloodFill_##CON##_32f_C1IR);                           \
  addFlatFill<float, 3>("qoriFloodFill_" #CON "_32f_C3IR", qoriFloodFill_##CON##_32f_C3IR);                           \
  addFillByDeltas<uint8_t>("qoriFloodFill_Range" #CON "_8u_C1IR", range, 60, qoriFloodFill_Range##CON##_8u_C1IR);     \
  addFillByDeltas3<uint8_t>("qoriFloodFill_Range" #CON "_8u_C3IR", range, 60, qoriFloodFill_Range##CON##_8u_C3IR);    \
  addFillByDeltas<uint16_t>("qoriFloodFill_Range" #CON "_16u_C1IR", range, 60, qoriFloodFill_Range##CON##_16u_C1IR);  \
  addFillByDeltas3<uint16_t>("qoriFloodFill_Range" #CON "_16u_C3IR", range, 60, qoriFloodFill_Range##CON##_16u_C3IR); \
  addFillByDeltas<float>("qoriFloodFill_Range" #CON "_32f_C1IR", range, 60, qoriFloodFill_Range##CON##_32f_C1IR);     \
  addFillByDeltas3<float>("qoriFloodFill_Range" #CON "_32f_C3IR", range, 60, qoriFloodFill_Range##CON##_32f_C3IR);    \
  for (const auto& [variant, deltas] : {std::pair{grad, 12}, std::pair{gradWide, 40}}) {                              \
    addFillByDeltas("qoriFloodFill_Grad" #CON "_8u_C1IR", variant, uint8_t(deltas),                                   \
                    qoriFloodFill_Grad##CON##_8u_C1IR);                                                               \
    addFillByDeltas3("qoriFloodFill_Grad" #CON "_8u_C3IR", variant, uint8_t(deltas),                                  \
                     qoriFloodFill_Grad##CON##_8u_C3IR);                                                              \
    addFillByDeltas("qoriFloodFill_Grad" #CON "_16u_C1IR", variant, uint16_t(deltas),                                 \
                    qoriFloodFill_Grad##CON##_16u_C1IR);                                                              \
    addFillByDeltas3("qoriFloodFill_Grad" #CON "_16u_C3IR", variant, uint16_t(deltas),                                \
                     qoriFloodFill_Grad##CON##_16u_C3IR);                                                             \
    addFillByDeltas("qoriFloodFill_Grad" #CON "_32f_C1IR", variant, float(deltas),                                    \
                    qoriFloodFill_Grad##CON##_32f_C1IR);                                                              \
    addFillByDeltas3("qoriFloodFill_Grad" #CON "_32f_C3IR", variant, float(deltas),                                   \
                     qoriFloodFill_Grad##CON##_32f_C3IR);                                                             \
  }
  EACH_CONNECTIVITY(4Con)
  EACH_CONNECTIVITY(8Con)
#undef EACH_CONNECTIVITY
  return true;
}

static const bool added = addChamfer() && addTrueDistance() && addFastMarching() && addInpainting() && addFloodFill();
