// Geometry and restoration.
#include <memory>

#include "support/bench.h"

using bench::Picture;

template <class S, class D, class Function>
static void addSubpix(const char* name, Function function) {
  bench::add(name, "", [=](QoriSize size) {
    auto src = std::make_shared<Picture<S>>(bench::noise<S>({size.width + 1, size.height + 1}));
    auto dst = std::make_shared<Picture<D>>(size);
    return [=] { CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), size, 0.3f, 0.6f)); };
  });
}

// The whole picture moved by a fraction of a pixel, its edges filled in.
template <class S, class D, class Function>
static void addSubpixIntersect(const char* name, Function function) {
  bench::add(name, "", [=](QoriSize size) {
    auto src = std::make_shared<Picture<S>>(bench::noise<S>(size));
    auto dst = std::make_shared<Picture<D>>(size);
    const QoriPoint_32f centre = {float(size.width) * 0.5f + 0.3f, float(size.height) * 0.5f + 0.6f};
    return [=] {
      QoriPoint min, max;
      CHECK_CALL(function(src->data(), src->step(), size, dst->data(), dst->step(), size, centre, &min, &max));
    };
  });
}

static bool addSubpixelCopies() {
  addSubpix<uint8_t, uint8_t>("qoriCopySubpix_8u_C1R", qoriCopySubpix_8u_C1R);
  addSubpix<uint8_t, uint16_t>("qoriCopySubpix_8u16u_C1R_Sfs", [](const uint8_t* src, int32_t srcStep, uint16_t* dst,
                                                                  int32_t dstStep, QoriSize size, float dx, float dy) {
    return qoriCopySubpix_8u16u_C1R_Sfs(src, srcStep, dst, dstStep, size, -7, dx, dy);
  });
  addSubpix<uint8_t, float>("qoriCopySubpix_8u32f_C1R", qoriCopySubpix_8u32f_C1R);
  addSubpix<uint16_t, uint16_t>("qoriCopySubpix_16u_C1R", qoriCopySubpix_16u_C1R);
  addSubpix<uint16_t, float>("qoriCopySubpix_16u32f_C1R", qoriCopySubpix_16u32f_C1R);
  addSubpix<float, float>("qoriCopySubpix_32f_C1R", qoriCopySubpix_32f_C1R);
  addSubpixIntersect<uint8_t, uint8_t>("qoriCopySubpixIntersect_8u_C1R", qoriCopySubpixIntersect_8u_C1R);
  addSubpixIntersect<uint8_t, uint16_t>(
      "qoriCopySubpixIntersect_8u16u_C1R_Sfs",
      [](const uint8_t* src, int32_t srcStep, QoriSize srcSize, uint16_t* dst, int32_t dstStep, QoriSize dstSize,
         QoriPoint_32f point, QoriPoint* min, QoriPoint* max) {
        return qoriCopySubpixIntersect_8u16u_C1R_Sfs(src, srcStep, srcSize, dst, dstStep, dstSize, point, min, max, -7);
      });
  addSubpixIntersect<uint8_t, float>("qoriCopySubpixIntersect_8u32f_C1R", qoriCopySubpixIntersect_8u32f_C1R);
  addSubpixIntersect<uint16_t, uint16_t>("qoriCopySubpixIntersect_16u_C1R", qoriCopySubpixIntersect_16u_C1R);
  addSubpixIntersect<uint16_t, float>("qoriCopySubpixIntersect_16u32f_C1R", qoriCopySubpixIntersect_16u32f_C1R);
  addSubpixIntersect<float, float>("qoriCopySubpixIntersect_32f_C1R", qoriCopySubpixIntersect_32f_C1R);
  return true;
}

// A lens that bends the corners by a tenth of their distance.
struct Lens {
  float f, cx, cy, k1, k2;

  explicit Lens(QoriSize size)
      : f(0.8f * float(size.width)),
        cx(0.49f * float(size.width)),
        cy(0.51f * float(size.height)),
        k1(-0.1f),
        k2(0.01f) {}
};

static std::vector<uint8_t> undistortionBuffer(QoriSize size, bool given) {
  if (!given) return {};
  return bench::scratch([=](int32_t* bytes) { return qoriUndistortGetSize(size, bytes); });
}

template <class T, class Function>
static void addRadial(const char* name, Function function, int32_t channels) {
  for (const bool given : {true, false}) {
    bench::add(name, given ? "" : "no buffer", [=](QoriSize size) {
      auto src = std::make_shared<Picture<T>>(bench::noise<T>(size, channels));
      auto dst = std::make_shared<Picture<T>>(size, channels);
      auto buffer = std::make_shared<std::vector<uint8_t>>(undistortionBuffer(size, given));
      const Lens lens(size);
      return [=] {
        CHECK_CALL(function(src->data(), src->step(), dst->data(), dst->step(), size, given ? buffer->data() : nullptr,
                            lens.f, lens.f, lens.cx, lens.cy, lens.k1, lens.k2));
      };
    });
  }
}

static void addCameraMap(const char* variant, bool given, float tangential) {
  bench::add("qoriCreateMapCameraUndistort_32f_C1R", variant, [=](QoriSize size) {
    auto xMap = std::make_shared<Picture<float>>(size);
    auto yMap = std::make_shared<Picture<float>>(size);
    auto buffer = std::make_shared<std::vector<uint8_t>>(undistortionBuffer(size, given));
    const Lens lens(size);
    return [=] {
      CHECK_CALL(qoriCreateMapCameraUndistort_32f_C1R(xMap->data(), xMap->step(), yMap->data(), yMap->step(), size,
                                                      given ? buffer->data() : nullptr, lens.f, lens.f, lens.cx,
                                                      lens.cy, lens.k1, lens.k2, tangential, tangential));
    };
  });
}

static bool addUndistortion() {
  addRadial<uint8_t>("qoriUndistortRadial_8u_C1R", qoriUndistortRadial_8u_C1R, 1);
  addRadial<uint8_t>("qoriUndistortRadial_8u_C3R", qoriUndistortRadial_8u_C3R, 3);
  addRadial<uint16_t>("qoriUndistortRadial_16u_C1R", qoriUndistortRadial_16u_C1R, 1);
  addRadial<uint16_t>("qoriUndistortRadial_16u_C3R", qoriUndistortRadial_16u_C3R, 3);
  addRadial<float>("qoriUndistortRadial_32f_C1R", qoriUndistortRadial_32f_C1R, 1);
  addRadial<float>("qoriUndistortRadial_32f_C3R", qoriUndistortRadial_32f_C3R, 3);
  addCameraMap("radial", true, 0);
  addCameraMap("radial, no buffer", false, 0);
  addCameraMap("tangential", false, 0.01f);
  return true;
}

// Kernels of the super-resolution loops under common names.
struct Psf2x2 {
  static constexpr int32_t taps = 2;
  using Spec = QoriSRHNSpec_PSF2x2;
  static constexpr auto init = qoriSRHNInitAlloc_PSF2x2;
  static constexpr auto release = qoriSRHNFree_PSF2x2;
};

struct Psf3x3 {
  static constexpr int32_t taps = 3;
  using Spec = QoriSRHNSpec_PSF3x3;
  static constexpr auto init = qoriSRHNInitAlloc_PSF3x3;
  static constexpr auto release = qoriSRHNFree_PSF3x3;
};

// A quarter as many samples as the estimate has pixels, row by row, each at its place with a shift of up to a pixel.
template <class Psf>
struct Samples {
  Picture<float> image;
  std::vector<int32_t> offset;
  std::vector<uint16_t> phase;
  std::vector<float> residual, weights;
  std::vector<uint8_t> weightIndex;
  std::shared_ptr<typename Psf::Spec> spec;

  explicit Samples(QoriSize size) : image(bench::noise<float>(size)), weights(256, 1e-3f) {
    for (int32_t y = 0; y + 4 <= size.height; y += 2) {
      for (int32_t x = 0; x + 4 <= size.width; x += 2) {
        const int32_t shift = int32_t(offset.size()) % 4;
        offset.push_back((y + shift / 2) * size.width + x + shift % 2);
        phase.push_back(uint16_t(offset.size() % 7));
        residual.push_back(float(offset.size() % 11) - 5);
        weightIndex.push_back(uint8_t(offset.size()));
      }
    }
    const std::vector<float> psf(size_t(7 * Psf::taps * Psf::taps), 0.125f);
    typename Psf::Spec* record = nullptr;
    CHECK_CALL(Psf::init(&record, psf.data(), 7));
    spec.reset(record, Psf::release);
  }
  int32_t length() const { return int32_t(offset.size()); }
};

template <class Psf, class T, class Function>
static void addResidual(const char* name, Function function) {
  bench::add(name, "a sample for 4 pixels", [=](QoriSize size) {
    auto s = std::make_shared<Samples<Psf>>(size);
    auto low = std::make_shared<std::vector<T>>(s->offset.size(), T(100));
    return [=] {
      CHECK_CALL(function(s->image.data(), s->image.step(), low->data(), s->offset.data(), s->phase.data(),
                          s->residual.data(), s->length(), s->spec.get()));
    };
  });
}

template <class Psf, class Function>
static void addGradient(const char* name, Function function) {
  bench::add(name, "a sample for 4 pixels", [=](QoriSize size) {
    auto s = std::make_shared<Samples<Psf>>(size);
    return [=] {
      CHECK_CALL(function(s->image.data(), s->image.step(), s->offset.data(), s->phase.data(), s->residual.data(),
                          s->weightIndex.data(), s->length(), s->weights.data(), s->spec.get()));
    };
  });
}

static bool addSuperResolution() {
  addResidual<Psf2x2, uint8_t>("qoriSRHNCalcResidual_PSF2x2_8u32f_C1R", qoriSRHNCalcResidual_PSF2x2_8u32f_C1R);
  addResidual<Psf2x2, uint16_t>("qoriSRHNCalcResidual_PSF2x2_16u32f_C1R", qoriSRHNCalcResidual_PSF2x2_16u32f_C1R);
  addResidual<Psf3x3, uint8_t>("qoriSRHNCalcResidual_PSF3x3_8u32f_C1R", qoriSRHNCalcResidual_PSF3x3_8u32f_C1R);
  addResidual<Psf3x3, uint16_t>("qoriSRHNCalcResidual_PSF3x3_16u32f_C1R", qoriSRHNCalcResidual_PSF3x3_16u32f_C1R);
  addGradient<Psf2x2>("qoriSRHNUpdateGradient_PSF2x2_32f_C1R", qoriSRHNUpdateGradient_PSF2x2_32f_C1R);
  addGradient<Psf3x3>("qoriSRHNUpdateGradient_PSF3x3_32f_C1R", qoriSRHNUpdateGradient_PSF3x3_32f_C1R);
  return true;
}

static const bool added = addSubpixelCopies() && addUndistortion() && addSuperResolution();
