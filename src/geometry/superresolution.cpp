// The two inner loops of a super-resolution solver: residuals of low-resolution samples, each seen through a small
// kernel at its place in the high-resolution image, and the way back of weighted residuals into a gradient image.
//
// Odd: sums of taps run from left to right whatever the kernel, and the gradient takes each tap of each sample in turn,
// since patches may overlap: with a negative step a patch may overlap itself. A step may be negative but not short.
#include "frame/frame.h"

struct QoriSRHNSpec_PSF2x2 {
  float* table;
};

struct QoriSRHNSpec_PSF3x3 {
  float* table;
};

namespace {

// A kernel of n x n taps. In the table a row of three taps is followed by a 0, which is never used.
template <class SpecType, int32_t n>
struct Psf {
  using Spec = SpecType;
  static constexpr int32_t taps = n, rowTaps = n == 3 ? 4 : n, entry = n * rowTaps;
};

using Psf2x2 = Psf<QoriSRHNSpec_PSF2x2, 2>;
using Psf3x3 = Psf<QoriSRHNSpec_PSF3x3, 3>;

}  // namespace

template <class P>
static QorStatus initAlloc(typename P::Spec** state, const float* psf, int32_t phaseCount) {
  if (anyNull(state, psf)) return qorStatusNullPtr;
  if (phaseCount < 1) return qorStatusBadSize;
  auto* const spec = static_cast<typename P::Spec*>(qorMalloc(sizeof(typename P::Spec)));
  if (!spec) return qorStatusNoMemory;
  spec->table = static_cast<float*>(qorMalloc(size_t(phaseCount) * P::entry * sizeof(float)));
  if (!spec->table) {
    qorFree(spec);
    return qorStatusNoMemory;
  }
  float* tap = spec->table;
  for (ptrdiff_t row = 0; row < ptrdiff_t(phaseCount) * P::taps; ++row) {
    for (int32_t i = 0; i < P::rowTaps; ++i) *tap++ = i < P::taps ? psf[row * P::taps + i] : 0.0f;
  }
  *state = spec;
  return qorStatusOk;
}

template <class Spec>
static QorStatus freeSpec(Spec* state) {
  if (!state) return qorStatusNullPtr;
  qorFree(state->table);
  qorFree(state);
  return qorStatusOk;
}

// A step that goes down must have room for a row of the kernel.
template <class P>
static bool badPatchStep(int32_t step) {
  return misaligned<float>(step) || (step >= 0 && step < P::taps * int32_t(sizeof(float)));
}

template <class P, class Sample>
static QorStatus calcResidual(const float* hiRes, int32_t hiResStep, const Sample* lowRes, const int32_t* offset,
                              const uint16_t* phase, float* residual, int32_t length, const typename P::Spec* state) {
  if (anyNull(hiRes, lowRes, offset, phase, residual, state)) return qorStatusNullPtr;
  if (length < 1) return qorStatusBadSize;
  if (badPatchStep<P>(hiResStep)) return qorStatusBadStep;
  const float* const table = state->table;
  for (int32_t i = 0; i < length; ++i) {
    const float* k = table + ptrdiff_t(phase[i]) * P::entry;
    const float* p = hiRes + offset[i];
    float sum = p[0] * k[0];
    for (int32_t x = 1; x < P::taps; ++x) sum += p[x] * k[x];
    for (int32_t y = 1; y < P::taps; ++y) {
      p = rowAt(p, hiResStep, 1);
      k += P::rowTaps;
      for (int32_t x = 0; x < P::taps; ++x) sum += p[x] * k[x];
    }
    residual[i] = sum - float(lowRes[i]);
  }
  return qorStatusOk;
}

template <class P>
static QorStatus updateGradient(float* gradient, int32_t gradientStep, const int32_t* offset, const uint16_t* phase,
                                const float* residual, const uint8_t* weightIndex, int32_t length, const float* weights,
                                const typename P::Spec* state) {
  if (anyNull(gradient, offset, phase, residual, weightIndex, weights, state)) return qorStatusNullPtr;
  if (length < 1) return qorStatusBadSize;
  if (badPatchStep<P>(gradientStep)) return qorStatusBadStep;
  const float* const table = state->table;
  for (int32_t i = 0; i < length; ++i) {
    const float* k = table + ptrdiff_t(phase[i]) * P::entry;
    float* p = gradient + offset[i];
    const float r = weights[weightIndex[i]] * residual[i];
    for (int32_t y = 0; y < P::taps; ++y) {
      for (int32_t x = 0; x < P::taps; ++x) p[x] += k[x] * r;
      p = rowAt(p, gradientStep, 1);
      k += P::rowTaps;
    }
  }
  return qorStatusOk;
}

#define QOR_RESIDUAL(psf, form, Sample)                                                                          \
  QorStatus qoriSRHNCalcResidual_PSF##psf##_##form##_C1R(                                                        \
      const float* hiRes, int32_t hiResStep, const Sample* lowRes, const int32_t* offset, const uint16_t* phase, \
      float* residual, int32_t length, const QoriSRHNSpec_PSF##psf* state) {                                     \
    return calcResidual<Psf##psf>(hiRes, hiResStep, lowRes, offset, phase, residual, length, state);             \
  }
#define QOR_SUPER_RESOLUTION(psf)                                                                                  \
  QorStatus qoriSRHNInitAlloc_PSF##psf(QoriSRHNSpec_PSF##psf** state, const float* taps, int32_t phaseCount) {     \
    return initAlloc<Psf##psf>(state, taps, phaseCount);                                                           \
  }                                                                                                                \
  QorStatus qoriSRHNFree_PSF##psf(QoriSRHNSpec_PSF##psf* state) { return freeSpec(state); }                        \
  QOR_RESIDUAL(psf, 8u32f, uint8_t)                                                                                \
  QOR_RESIDUAL(psf, 16u32f, uint16_t)                                                                              \
  QorStatus qoriSRHNUpdateGradient_PSF##psf##_32f_C1R(                                                             \
      float* gradient, int32_t gradientStep, const int32_t* offset, const uint16_t* phase, const float* residual,  \
      const uint8_t* weightIndex, int32_t length, const float* weights, const QoriSRHNSpec_PSF##psf* state) {      \
    return updateGradient<Psf##psf>(gradient, gradientStep, offset, phase, residual, weightIndex, length, weights, \
                                    state);                                                                        \
  }
QOR_SUPER_RESOLUTION(2x2)
QOR_SUPER_RESOLUTION(3x3)
#undef QOR_SUPER_RESOLUTION
#undef QOR_RESIDUAL
