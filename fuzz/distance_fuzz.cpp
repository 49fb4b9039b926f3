// Distance maps, inpainting and flood fills.
#include <utility>

#include "support/fuzz.h"

using fuzz::Arguments;

template <class M>
static std::shared_ptr<GuardedMemory> anyMetrics(Arguments& a) {
  auto memory = a.array<M>(3);
  if (a.chance(70)) {
    for (size_t i = 0; i < 3; ++i) {
      const M cost = M(a.number(1, 40)) / M(std::is_floating_point_v<M> ? 10 : 1);
      memcpy(memory->data() + i * sizeof(M), &cost, sizeof cost);
    }
  }
  return memory;
}

template <class T, class M, class Function>
static void addDistance(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<uint8_t>(size);
    auto dst = a.image<T>(size);
    if constexpr (sizeof(T) == 1) {
      if (a.chance(20)) dst = src;
    }
    const auto metrics = anyMetrics<M>(a);
    function(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.orNull(reinterpret_cast<M*>(metrics->data())));
  });
}

template <class Function>
static void addDistanceInPlace(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto image = a.image<uint8_t>(size);
    const auto metrics = anyMetrics<int32_t>(a);
    function(image.data, image.step, a.spoiled(size), a.orNull(reinterpret_cast<int32_t*>(metrics->data())));
  });
}

template <class M, class Function>
static void addMask(const char* name, Function function) {
  fuzz::add(name, [=](Arguments& a) {
    const auto metrics = a.array<M>(3);
    function(a, a.orNull(reinterpret_cast<M*>(metrics->data())));
  });
}

static bool addChamfer() {
  addDistance<uint8_t, int32_t>("qoriDistanceTransform_3x3_8u_C1R", qoriDistanceTransform_3x3_8u_C1R);
  addDistance<uint16_t, int32_t>("qoriDistanceTransform_3x3_8u16u_C1R", qoriDistanceTransform_3x3_8u16u_C1R);
  addDistance<float, float>("qoriDistanceTransform_3x3_8u32f_C1R", qoriDistanceTransform_3x3_8u32f_C1R);
  addDistance<uint8_t, int32_t>("qoriDistanceTransform_5x5_8u_C1R", qoriDistanceTransform_5x5_8u_C1R);
  addDistance<uint16_t, int32_t>("qoriDistanceTransform_5x5_8u16u_C1R", qoriDistanceTransform_5x5_8u16u_C1R);
  addDistance<float, float>("qoriDistanceTransform_5x5_8u32f_C1R", qoriDistanceTransform_5x5_8u32f_C1R);
  addDistanceInPlace("qoriDistanceTransform_3x3_8u_C1IR", qoriDistanceTransform_3x3_8u_C1IR);
  addDistanceInPlace("qoriDistanceTransform_5x5_8u_C1IR", qoriDistanceTransform_5x5_8u_C1IR);
  addMask<float>("qoriGetDistanceTransformMask_32f", [](Arguments& a, float* metrics) {
    qoriGetDistanceTransformMask_32f(a.orAnything(a.number(3, 5)), a.orAnything(a.number(0, 3)), metrics);
  });
  addMask<int32_t>("qoriGetDistanceTransformMask_32s", [](Arguments& a, int32_t* metrics) {
    qoriGetDistanceTransformMask_32s(a.orAnything(a.number(3, 5)), a.orAnything(a.number(0, 3)), metrics);
  });
  addMask<float>("qoriGetDistanceTransformMask", [](Arguments& a, float* metrics) {
    qoriGetDistanceTransformMask(a.orAnything(a.number(29, 54)), metrics);
  });
  return true;
}

// `call` gets the right arguments, or sometimes wrong ones, with a buffer for `size`.
template <class T, class Query, class Call>
static void addTrue(const char* name, Query query, Call call) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<uint8_t>(size);
    const auto dst = a.image<T>(size);
    int32_t bufferSize = 0;
    query(a.spoiled(size), a.chance(3) ? nullptr : &bufferSize);
    query(size, &bufferSize);
    const auto buffer = a.guarded(bufferSize);
    call(a, src, dst, a.spoiled(size), a.orNull(buffer->data()));
  });
}

static bool addTrueDistance() {
  addTrue<uint16_t>("qoriTrueDistanceTransform_8u16u_C1RSfs", qoriTrueDistanceTransformGetBufferSize_8u16u_C1RSfs,
                    [](Arguments& a, const auto& src, const auto& dst, QoriSize size, uint8_t* buffer) {
                      qoriTrueDistanceTransform_8u16u_C1RSfs(src.data, src.step, dst.data, dst.step, size,
                                                             a.orAnything(a.number(-17, 18)), buffer);
                    });
  addTrue<float>("qoriTrueDistanceTransform_8u32f_C1R", qoriTrueDistanceTransformGetBufferSize_8u32f_C1R,
                 [](Arguments&, const auto& src, const auto& dst, QoriSize size, uint8_t* buffer) {
                   qoriTrueDistanceTransform_8u32f_C1R(src.data, src.step, dst.data, dst.step, size, buffer);
                 });
  return true;
}

static bool addFastMarching() {
  fuzz::add("qoriFastMarching_8u32f_C1R", [](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<uint8_t>(size);
    const auto dst = a.image<float>(size);
    // Masks of any values are nearly full; half of the others are mostly empty.
    if (a.chance(70)) {
      uint32_t next = uint32_t(a.value<int32_t>());
      const uint32_t one = uint32_t(a.number(1, 20));
      src.image->fill([&] { return uint8_t((next = next * 1664525u + 1013904223u) >> 16 & 255) % one == 0 ? 1 : 0; });
    }
    int32_t bufferSize = 0;
    qoriFastMarchingGetBufferSize_8u32f_C1R(size, &bufferSize);
    const auto buffer = a.guarded(bufferSize);
    const float radius = a.chance(90) ? float(a.number(0, 60)) / 2 : a.value<float>();
    qoriFastMarching_8u32f_C1R(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.chance(40) ? 0.0f : radius,
                               a.orNull(buffer->data()));
  });
  return true;
}

template <class Init, class Run, class Free>
static void addHole(const char* name, int32_t channels, Init init, Run run, Free release) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto mask = a.image<uint8_t>(size);
    const auto distance = a.image<float>(size);
    if (a.chance(80)) {
      const int32_t left = a.number(0, size.width - 1), top = a.number(0, size.height - 1), side = a.number(0, 20);
      for (int32_t y = 0; y < size.height; ++y) {
        for (int32_t x = 0; x < size.width; ++x) {
          mask.image->set(x, y, uint8_t(x >= left && x < left + side && y >= top && y < top + side));
          if (a.chance(80)) distance.image->set(x, y, mask.image->get(x, y) ? float(x - left + y - top + 1) : 0.0f);
        }
      }
    }
    const float radius = a.chance(90) ? float(a.number(4, 40)) / 4 : a.value<float>();
    QoriInpaintState_8u_C1R* state = nullptr;
    const QoriSize told = a.spoiled(size);
    init(a.chance(3) ? nullptr : &state, distance.data, distance.step, mask.data, mask.step, told, radius,
         a.orAnything(a.number(0, 1)));
    for (int32_t i = a.number(1, 2); i > 0; --i) {
      const auto src = a.image<uint8_t>(size, channels);
      const auto dst = a.chance(20) ? src : a.image<uint8_t>(size, channels);
      run(src.data, src.step, dst.data, dst.step, a.chance(80) ? told : a.spoiled(size), state);
    }
    if (state) release(state);
  });
}

static bool addInpainting() {
  addHole("qoriInpaint_8u_C1R", 1, qoriInpaintInitAlloc_8u_C1R, qoriInpaint_8u_C1R, qoriInpaintFree_8u_C1R);
  addHole("qoriInpaint_8u_C3R", 3, qoriInpaintInitAlloc_8u_C3R, qoriInpaint_8u_C3R, qoriInpaintFree_8u_C3R);
  return true;
}

// Images of few values, so that there are regions; the fill may be of any member. The plain members pass over the
// deltas.
template <class T, int32_t channels, bool grad, class Fill>
static void addFill(const char* name, Fill fill) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    auto image = a.image<T>(size, channels);
    // Steps that are too short for three channels may be accepted: rows then lie over each other, and over the gaps.
    if (image.step < size.width * channels * int32_t(sizeof(T))) image.step = -1;
    const QoriPoint seed = {a.orAnything(a.number(0, size.width - 1)), a.orAnything(a.number(0, size.height - 1))};
    // Values of the image, and values about them.
    const auto near = [&] {
      const T v = image.image->get(a.number(0, size.width - 1), a.number(0, size.height - 1));
      return a.chance(60) ? v : a.chance(60) ? T(v + T(a.number(-2, 2))) : a.value<T>();
    };
    T newValue[channels], minDelta[channels], maxDelta[channels];
    for (int32_t c = 0; c < channels; ++c) {
      newValue[c] = near();
      minDelta[c] = a.chance(60) ? T(a.number(0, 200)) : a.value<T>();
      maxDelta[c] = a.chance(60) ? T(a.number(0, 200)) : a.value<T>();
    }
    int32_t bytes = -1;
    (grad ? qoriFloodFillGetSize_Grad : qoriFloodFillGetSize)(size, &bytes);
    const auto buffer = a.guarded(bytes);
    const QoriSize told = a.chance(97) ? size : QoriSize{a.number(-1, size.width), a.number(-1, size.height)};
    QoriConnectedComp region;
    fill(image.data, image.step, told, seed, newValue, minDelta, maxDelta, a.orNull(&region), a.orNull(buffer->data()));
  });
}

template <class T, class Fill>
static void addPlainFill(const char* name, Fill fill) {
  addFill<T, 1, false>(
      name, [=](T* image, int32_t step, QoriSize size, QoriPoint seed, const T* v, const T*, const T*,
                QoriConnectedComp* region, uint8_t* buffer) { fill(image, step, size, seed, *v, region, buffer); });
}

template <class T, class Fill>
static void addPlainFill3(const char* name, Fill fill) {
  addFill<T, 3, false>(
      name, [=](T* image, int32_t step, QoriSize size, QoriPoint seed, const T* v, const T*, const T*,
                QoriConnectedComp* region, uint8_t* buffer) { fill(image, step, size, seed, v, region, buffer); });
}

template <class T, bool grad, class Fill>
static void addFillByDeltas(const char* name, Fill fill) {
  addFill<T, 1, grad>(name, [=](T* image, int32_t step, QoriSize size, QoriPoint seed, const T* v, const T* low,
                                const T* high, QoriConnectedComp* region,
                                uint8_t* buffer) { fill(image, step, size, seed, *v, *low, *high, region, buffer); });
}

static bool addFloodFill() {
#define EACH_TYPE(CON, TYPE, T)                                                                                      \
  addPlainFill<T>("qoriFloodFill_" #CON "_" #TYPE "_C1IR", qoriFloodFill_##CON##_##TYPE##_C1IR);                     \
  addPlainFill3<T>("qoriFloodFill_" #CON "_" #TYPE "_C3IR", qoriFloodFill_##CON##_##TYPE##_C3IR);                    \
  addFillByDeltas<T, false>("qoriFloodFill_Range" #CON "_" #TYPE "_C1IR", qoriFloodFill_Range##CON##_##TYPE##_C1IR); \
  addFill<T, 3, false>("qoriFloodFill_Range" #CON "_" #TYPE "_C3IR", qoriFloodFill_Range##CON##_##TYPE##_C3IR);      \
  addFillByDeltas<T, true>("qoriFloodFill_Grad" #CON "_" #TYPE "_C1IR", qoriFloodFill_Grad##CON##_##TYPE##_C1IR);    \
  addFill<T, 3, true>("qoriFloodFill_Grad" #CON "_" #TYPE "_C3IR", qoriFloodFill_Grad##CON##_##TYPE##_C3IR)
  EACH_TYPE(4Con, 8u, uint8_t);
  EACH_TYPE(4Con, 16u, uint16_t);
  EACH_TYPE(4Con, 32f, float);
  EACH_TYPE(8Con, 8u, uint8_t);
  EACH_TYPE(8Con, 16u, uint16_t);
  EACH_TYPE(8Con, 32f, float);
#undef EACH_TYPE
  for (const auto& [name, query] : {std::pair{"qoriFloodFillGetSize", &qoriFloodFillGetSize},
                                    std::pair{"qoriFloodFillGetSize_Grad", &qoriFloodFillGetSize_Grad}}) {
    const auto call = query;
    fuzz::add(name, [=](Arguments& a) {
      int32_t bytes;
      call({a.value<int32_t>(), a.value<int32_t>()}, a.orNull(&bytes));
    });
  }
  return true;
}

static const bool added = addChamfer() && addTrueDistance() && addFastMarching() && addInpainting() && addFloodFill();
