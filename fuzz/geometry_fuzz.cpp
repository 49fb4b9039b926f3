// Geometry and restoration.
#include "support/fuzz.h"

using fuzz::Arguments;

// A centre inside or about an image, or any float.
static float anyCentre(Arguments& a, int32_t size) {
  return a.chance(70) ? float(a.number(-64, 8 * size + 64)) / 8 : a.value<float>();
}

// call(..., scaleFactor) of the two functions of one form.
template <class S, class D, class Copy, class Intersect>
static void addSubpix(const std::string& form, Copy copy, Intersect intersect) {
  fuzz::add("qoriCopySubpix_" + form, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<S>({size.width + 1, size.height + 1});
    const auto dst = a.image<D>(size);
    const float dx = a.value<float>(), dy = a.chance(50) ? 0.5f : a.value<float>();
    copy(src.data, src.step, dst.data, dst.step, a.spoiled(size), a.chance(50) ? -7 : a.value<int32_t>(), dx, dy);
  });
  fuzz::add("qoriCopySubpixIntersect_" + form, [=](Arguments& a) {
    const QoriSize srcSize = a.size(), dstSize = a.size();
    const auto src = a.image<S>(srcSize);
    const auto dst = a.image<D>(dstSize);
    const QoriPoint_32f point = {anyCentre(a, srcSize.width), anyCentre(a, srcSize.height)};
    QoriPoint min, max;
    intersect(src.data, src.step, a.spoiled(srcSize), dst.data, dst.step, a.spoiled(dstSize), point, a.orNull(&min),
              a.orNull(&max), a.chance(50) ? -7 : a.value<int32_t>());
  });
}

// The same for a form without a scale factor.
template <class S, class D, class Copy, class Intersect>
static void addUnscaledSubpix(const std::string& form, Copy copy, Intersect intersect) {
  addSubpix<S, D>(
      form,
      [=](const S* src, int32_t srcStep, D* dst, int32_t dstStep, QoriSize size, int32_t, float dx, float dy) {
        copy(src, srcStep, dst, dstStep, size, dx, dy);
      },
      [=](const S* src, int32_t srcStep, QoriSize srcSize, D* dst, int32_t dstStep, QoriSize dstSize,
          QoriPoint_32f point, QoriPoint* min, QoriPoint* max,
          int32_t) { intersect(src, srcStep, srcSize, dst, dstStep, dstSize, point, min, max); });
}

static bool addSubpixelCopies() {
  addUnscaledSubpix<uint8_t, uint8_t>("8u_C1R", qoriCopySubpix_8u_C1R, qoriCopySubpixIntersect_8u_C1R);
  addSubpix<uint8_t, uint16_t>("8u16u_C1R_Sfs", qoriCopySubpix_8u16u_C1R_Sfs, qoriCopySubpixIntersect_8u16u_C1R_Sfs);
  addUnscaledSubpix<uint8_t, float>("8u32f_C1R", qoriCopySubpix_8u32f_C1R, qoriCopySubpixIntersect_8u32f_C1R);
  addUnscaledSubpix<uint16_t, uint16_t>("16u_C1R", qoriCopySubpix_16u_C1R, qoriCopySubpixIntersect_16u_C1R);
  addUnscaledSubpix<uint16_t, float>("16u32f_C1R", qoriCopySubpix_16u32f_C1R, qoriCopySubpixIntersect_16u32f_C1R);
  addUnscaledSubpix<float, float>("32f_C1R", qoriCopySubpix_32f_C1R, qoriCopySubpixIntersect_32f_C1R);
  return true;
}

// Numbers as cameras have them, or any.
static float lensNumber(Arguments& a, float usual) { return a.chance(15) ? a.value<float>() : usual; }

// Memory of the reported size, or none.
static uint8_t* undistortionBuffer(Arguments& a, QoriSize size, std::shared_ptr<GuardedMemory>& memory) {
  int32_t bytes = 0;
  if (qoriUndistortGetSize(size, &bytes) != qorStatusOk || a.chance(50)) return nullptr;
  const int32_t shift = a.number(0, 31);
  memory = a.guarded(int64_t(bytes) + shift);
  return memory->data() + shift;
}

template <class T, class Function>
static void addRadial(const char* name, Function function, int32_t channels) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = a.size();
    const auto src = a.image<T>(size, channels);
    const auto dst = a.image<T>(size, channels);
    const float width = float(size.width), strength = float(a.number(-100, 100)) / 100;
    const float fx = lensNumber(a, width), fy = lensNumber(a, width);
    const float cx = lensNumber(a, width / 2), cy = lensNumber(a, float(size.height) / 2);
    const float k1 = lensNumber(a, strength), k2 = lensNumber(a, strength / 3);
    const QoriSize told = a.spoiled(size);
    std::shared_ptr<GuardedMemory> memory;
    function(src.data, src.step, dst.data, dst.step, told, undistortionBuffer(a, told, memory), fx, fy, cx, cy, k1, k2);
  });
}

static bool addUndistortion() {
  addRadial<uint8_t>("qoriUndistortRadial_8u_C1R", qoriUndistortRadial_8u_C1R, 1);
  addRadial<uint8_t>("qoriUndistortRadial_8u_C3R", qoriUndistortRadial_8u_C3R, 3);
  addRadial<uint16_t>("qoriUndistortRadial_16u_C1R", qoriUndistortRadial_16u_C1R, 1);
  addRadial<uint16_t>("qoriUndistortRadial_16u_C3R", qoriUndistortRadial_16u_C3R, 3);
  addRadial<float>("qoriUndistortRadial_32f_C1R", qoriUndistortRadial_32f_C1R, 1);
  addRadial<float>("qoriUndistortRadial_32f_C3R", qoriUndistortRadial_32f_C3R, 3);
  fuzz::add("qoriCreateMapCameraUndistort_32f_C1R", [](Arguments& a) {
    const QoriSize size = a.size();
    const auto xMap = a.image<float>(size);
    const auto yMap = a.image<float>(size);
    float numbers[8];
    for (float& number : numbers) number = lensNumber(a, float(a.number(-100, 100)) / 100);
    const QoriSize told = a.spoiled(size);
    std::shared_ptr<GuardedMemory> memory;
    qoriCreateMapCameraUndistort_32f_C1R(xMap.data, xMap.step, yMap.data, yMap.step, told,
                                         undistortionBuffer(a, told, memory), numbers[0], numbers[1], numbers[2],
                                         numbers[3], numbers[4], numbers[5], numbers[6], numbers[7]);
  });
  return true;
}

// A loop of super-resolution over an image that its patches fill to the last pixel. call(a, image, step, offset, phase,
// residual, length, spec) does the rest.
template <int32_t taps, class Spec, class Init, class Free, class Call>
static void addLoop(const char* name, Init init, Free release, Call call) {
  fuzz::add(name, [=](Arguments& a) {
    const QoriSize size = {a.number(taps, 20), a.number(taps, 20)};
    const auto image = a.image<float>(size);
    const int32_t phases = a.number(1, 5), length = a.number(1, 12), step = image.image->step();
    const auto psf = a.array<float>(size_t(phases * taps * taps));
    Spec* spec = nullptr;
    init(&spec, reinterpret_cast<const float*>(psf->data()), phases);
    // Bottom-up, the first row of the call is the last one in memory.
    const bool bottomUp = a.chance(30);
    float* const first = !image.data ? nullptr : bottomUp ? image.data + (step / 4) * (size.height - 1) : image.data;
    std::vector<int32_t> offset;
    std::vector<uint16_t> phase;
    for (int32_t i = 0; i < length; ++i) {
      const int32_t row = a.number(0, size.height - taps);
      offset.push_back((bottomUp ? -row : row) * (step / 4) + a.number(0, size.width - taps));
      phase.push_back(uint16_t(a.number(0, phases - 1)));
    }
    // A spoiled step is one that is refused, whatever its sign.
    const int32_t rightStep = bottomUp ? -step : step;
    const int32_t calledStep = a.chance(5) ? rightStep | 1 : a.chance(5) ? a.number(0, taps * 4 - 1) : rightStep;
    const auto residual = a.array<float>(size_t(length));
    call(a, first, calledStep, a.orNull(offset.data()), a.orNull(phase.data()),
         a.orNull(reinterpret_cast<float*>(residual->data())), a.chance(5) ? a.number(-5, 0) : length, a.orNull(spec));
    release(spec);
  });
}

template <class T, int32_t taps, class Spec, class Init, class Free, class Function>
static void addResidual(const char* name, Init init, Free release, Function function) {
  addLoop<taps, Spec>(name, init, release,
                      [=](Arguments& a, const float* image, int32_t step, const int32_t* offset, const uint16_t* phase,
                          float* residual, int32_t length, const Spec* spec) {
                        const auto low = a.array<T>(size_t(std::max(length, 1)));
                        function(image, step, a.orNull(reinterpret_cast<const T*>(low->data())), offset, phase,
                                 residual, length, spec);
                      });
}

template <int32_t taps, class Spec, class Init, class Free, class Function>
static void addGradient(const char* name, Init init, Free release, Function function) {
  addLoop<taps, Spec>(name, init, release,
                      [=](Arguments& a, float* image, int32_t step, const int32_t* offset, const uint16_t* phase,
                          const float* residual, int32_t length, const Spec* spec) {
                        const int32_t weightCount = a.number(1, 6);
                        const auto weights = a.array<float>(size_t(weightCount));
                        std::vector<uint8_t> weightIndex;
                        for (int32_t i = 0; i < std::max(length, 1); ++i) {
                          weightIndex.push_back(uint8_t(a.number(0, weightCount - 1)));
                        }
                        function(image, step, offset, phase, residual, a.orNull(weightIndex.data()), length,
                                 a.orNull(reinterpret_cast<const float*>(weights->data())), spec);
                      });
}

template <int32_t taps, class Spec, class Init, class Free>
static void addTable(const char* name, Init init, Free release) {
  fuzz::add(name, [=](Arguments& a) {
    const int32_t phases = a.number(1, 20);
    const auto psf = a.array<float>(size_t(phases * taps * taps));
    Spec* spec = nullptr;
    const int32_t told = a.chance(10) ? a.number(-5, 0) : phases;
    init(a.orNull(&spec), a.orNull(reinterpret_cast<const float*>(psf->data())), told);
    release(spec);
  });
}

static bool addSuperResolution() {
#define QOR_FUZZ_PSF(taps, psf)                                                                                     \
  using Spec##psf = QoriSRHNSpec_PSF##psf;                                                                          \
  addTable<taps, Spec##psf>("qoriSRHNInitAlloc_PSF" #psf, qoriSRHNInitAlloc_PSF##psf, qoriSRHNFree_PSF##psf);       \
  addResidual<uint8_t, taps, Spec##psf>("qoriSRHNCalcResidual_PSF" #psf "_8u32f_C1R", qoriSRHNInitAlloc_PSF##psf,   \
                                        qoriSRHNFree_PSF##psf, qoriSRHNCalcResidual_PSF##psf##_8u32f_C1R);          \
  addResidual<uint16_t, taps, Spec##psf>("qoriSRHNCalcResidual_PSF" #psf "_16u32f_C1R", qoriSRHNInitAlloc_PSF##psf, \
                                         qoriSRHNFree_PSF##psf, qoriSRHNCalcResidual_PSF##psf##_16u32f_C1R);        \
  addGradient<taps, Spec##psf>("qoriSRHNUpdateGradient_PSF" #psf "_32f_C1R", qoriSRHNInitAlloc_PSF##psf,            \
                               qoriSRHNFree_PSF##psf, qoriSRHNUpdateGradient_PSF##psf##_32f_C1R);
  QOR_FUZZ_PSF(2, 2x2)
  QOR_FUZZ_PSF(3, 3x3)
#undef QOR_FUZZ_PSF
  return true;
}

static const bool added = addSubpixelCopies() && addUndistortion() && addSuperResolution();
