// Accumulators: a 32f image collects an image, its square, the product of two images, or a weighted blend.
//
// Odd: a pixel that the mask leaves out is not skipped but gets a term of zero, which turns -0.0 into +0.0 and, in
// float sources, infinities into NaN. qoriAddWeighted_32f_C1R, the one form that does not work in place, never threads.
#include <algorithm>
#include <type_traits>

#include "frame/frame.h"

static constexpr int32_t parallelPixels = 0x40000;

namespace {

// A square is the product of an image with itself.
enum Formula { sum, square, product, weighted };

template <class T>
constexpr bool isFloat = std::is_same_v<T, float>;

}  // namespace

// The accumulator `a` after one pixel; `selected` is true in forms without a mask. Each operation rounds to float.
template <Formula formula, bool masked, class T>
static inline float accumulated(float a, T s1, T s2, bool selected, float alpha) {
  if constexpr (formula == weighted) {
    return a + (float(s1) - a) * (selected ? alpha : 0.0f);
  } else if constexpr (isFloat<T>) {
    const float term = formula == sum ? s1 : s1 * s2;
    return masked ? term * (selected ? 1.0f : 0.0f) + a : a + term;
  } else {
    // Under a mask the term is the exact integer product converted once, as here: both factors are exact floats, so
    // their float product is the exact one rounded once. (An unsigned 32-bit product has no fast conversion.) Leaving a
    // pixel out in its own type costs least.
    const T chosen = selected ? s1 : T(0);
    const float term = formula == sum ? float(chosen) : float(chosen) * float(s2);
    // Only the sign of zero differs: there is no integer -0, but -3.0f * 0.0f is one.
    constexpr bool negativeZeros = masked && std::is_signed_v<T> && formula != sum;
    return a + (negativeZeros ? term + 0.0f : term);
  }
}

template <Formula formula, bool masked, class T>
static inline void accumulateBlock(const T* src1, const T* src2, const uint8_t* mask, float* srcDst, int32_t count,
                                   float alpha) {
  QOR_INDEPENDENT
  for (int32_t x = 0; x < count; ++x) {
    const T s1 = src1[x], s2 = formula == product ? src2[x] : s1;
    srcDst[x] = accumulated<formula, masked>(srcDst[x], s1, s2, !masked || mask[x] != 0, alpha);
  }
}

// Forms with one source pass it twice, those without a mask pass none.
template <Formula formula, bool masked, class T>
static QorStatus accumulate(const T* src1, int32_t src1Step, const T* src2, int32_t src2Step, const uint8_t* mask,
                            int32_t maskStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize, float alpha = 0) {
  const int32_t sourceSteps = src1Step | src2Step;
  if (anyNull(src1, src2, srcDst) || (masked && !mask)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T>(src1Step, roiSize) || shortStep<T>(src2Step, roiSize)) return qorStatusBadStep;
  if (!isFloat<T> && misaligned<T>(sourceSteps)) return qorStatusBadStepAlign;
  if (masked && shortStep<uint8_t>(maskStep, roiSize)) return qorStatusBadStep;
  if (shortStep<float>(srcDstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<float>(isFloat<T> ? sourceSteps | srcDstStep : srcDstStep)) return qorStatusBadStepAlign;
  const auto accumulateRow = [=](int32_t y) {
    const T *s1 = rowAt(src1, src1Step, y), *s2 = rowAt(src2, src2Step, y);
    const uint8_t* m = masked ? rowAt(mask, maskStep, y) : nullptr;
    float* d = rowAt(srcDst, srcDstStep, y);
    for (int32_t x = 0; x < roiSize.width;) {
      const int32_t count = std::min(prefetchBlock, roiSize.width - x);
      prefetchElements(rowAt(d + x, srcDstStep, 1), count);
      prefetchElements(rowAt(s1 + x, src1Step, 1), count);
      if (formula == product) prefetchElements(rowAt(s2 + x, src2Step, 1), count);
      if (masked) prefetchElements(rowAt(m + x, maskStep, 1), count);
      accumulateBlock<formula, masked>(s1 + x, s2 + x, masked ? m + x : nullptr, d + x, count, alpha);
      x += count;
    }
  };
  runStripes(roiSize.height, pixels(roiSize) >= parallelPixels ? ownGetNumThreads() : serial,
             [=](int32_t row, int32_t rows) {
               for (int32_t y = row; y < row + rows; ++y) accumulateRow(y);
             });
  return qorStatusOk;
}

#define PLAIN(name, formula, T)                                                                             \
  QorStatus name(const T* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize) {      \
    return accumulate<formula, false>(src, srcStep, src, srcStep, nullptr, 0, srcDst, srcDstStep, roiSize); \
  }
#define MASKED(name, formula, T)                                                                               \
  QorStatus name(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst,          \
                 int32_t srcDstStep, QoriSize roiSize) {                                                       \
    return accumulate<formula, true>(src, srcStep, src, srcStep, mask, maskStep, srcDst, srcDstStep, roiSize); \
  }
#define PLAIN_PRODUCT(name, T)                                                                                        \
  QorStatus name(const T* src1, int32_t src1Step, const T* src2, int32_t src2Step, float* srcDst, int32_t srcDstStep, \
                 QoriSize roiSize) {                                                                                  \
    return accumulate<product, false>(src1, src1Step, src2, src2Step, nullptr, 0, srcDst, srcDstStep, roiSize);       \
  }
#define MASKED_PRODUCT(name, T)                                                                                    \
  QorStatus name(const T* src1, int32_t src1Step, const T* src2, int32_t src2Step, const uint8_t* mask,            \
                 int32_t maskStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize) {                          \
    return accumulate<product, true>(src1, src1Step, src2, src2Step, mask, maskStep, srcDst, srcDstStep, roiSize); \
  }
#define PLAIN_WEIGHTED(name, T)                                                                                     \
  QorStatus name(const T* src, int32_t srcStep, float* srcDst, int32_t srcDstStep, QoriSize roiSize, float alpha) { \
    return accumulate<weighted, false>(src, srcStep, src, srcStep, nullptr, 0, srcDst, srcDstStep, roiSize, alpha); \
  }
#define MASKED_WEIGHTED(name, T)                                                                                       \
  QorStatus name(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, float* srcDst,                  \
                 int32_t srcDstStep, QoriSize roiSize, float alpha) {                                                  \
    return accumulate<weighted, true>(src, srcStep, src, srcStep, mask, maskStep, srcDst, srcDstStep, roiSize, alpha); \
  }

PLAIN(qoriAdd_8u32f_C1IR, sum, uint8_t)
PLAIN(qoriAdd_8s32f_C1IR, sum, int8_t)
PLAIN(qoriAdd_16u32f_C1IR, sum, uint16_t)
MASKED(qoriAdd_8u32f_C1IMR, sum, uint8_t)
MASKED(qoriAdd_8s32f_C1IMR, sum, int8_t)
MASKED(qoriAdd_16u32f_C1IMR, sum, uint16_t)
MASKED(qoriAdd_32f_C1IMR, sum, float)
PLAIN(qoriAddSquare_8u32f_C1IR, square, uint8_t)
PLAIN(qoriAddSquare_8s32f_C1IR, square, int8_t)
PLAIN(qoriAddSquare_16u32f_C1IR, square, uint16_t)
PLAIN(qoriAddSquare_32f_C1IR, square, float)
MASKED(qoriAddSquare_8u32f_C1IMR, square, uint8_t)
MASKED(qoriAddSquare_8s32f_C1IMR, square, int8_t)
MASKED(qoriAddSquare_16u32f_C1IMR, square, uint16_t)
MASKED(qoriAddSquare_32f_C1IMR, square, float)
PLAIN_PRODUCT(qoriAddProduct_8u32f_C1IR, uint8_t)
PLAIN_PRODUCT(qoriAddProduct_8s32f_C1IR, int8_t)
PLAIN_PRODUCT(qoriAddProduct_16u32f_C1IR, uint16_t)
PLAIN_PRODUCT(qoriAddProduct_32f_C1IR, float)
MASKED_PRODUCT(qoriAddProduct_8u32f_C1IMR, uint8_t)
MASKED_PRODUCT(qoriAddProduct_8s32f_C1IMR, int8_t)
MASKED_PRODUCT(qoriAddProduct_16u32f_C1IMR, uint16_t)
MASKED_PRODUCT(qoriAddProduct_32f_C1IMR, float)
PLAIN_WEIGHTED(qoriAddWeighted_8u32f_C1IR, uint8_t)
PLAIN_WEIGHTED(qoriAddWeighted_8s32f_C1IR, int8_t)
PLAIN_WEIGHTED(qoriAddWeighted_16u32f_C1IR, uint16_t)
PLAIN_WEIGHTED(qoriAddWeighted_32f_C1IR, float)
MASKED_WEIGHTED(qoriAddWeighted_8u32f_C1IMR, uint8_t)
MASKED_WEIGHTED(qoriAddWeighted_8s32f_C1IMR, int8_t)
MASKED_WEIGHTED(qoriAddWeighted_16u32f_C1IMR, uint16_t)
MASKED_WEIGHTED(qoriAddWeighted_32f_C1IMR, float)

#undef PLAIN
#undef MASKED
#undef PLAIN_PRODUCT
#undef MASKED_PRODUCT
#undef PLAIN_WEIGHTED
#undef MASKED_WEIGHTED

// No threads, whatever the size, unlike all the others.
QorStatus qoriAddWeighted_32f_C1R(const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, float* dst,
                                  int32_t dstStep, QoriSize roiSize, float alpha) {
  if (anyNull(src1, src2, dst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<float>(src1Step, roiSize) || shortStep<float>(src2Step, roiSize) ||
      shortStep<float>(dstStep, roiSize)) {
    return qorStatusBadStep;
  }
  if (misaligned<float>(src1Step | src2Step | dstStep)) return qorStatusBadStepAlign;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const float *s1 = rowAt(src1, src1Step, y), *s2 = rowAt(src2, src2Step, y);
    float* d = rowAt(dst, dstStep, y);
    for (int32_t x = 0; x < roiSize.width;) {
      const int32_t count = std::min(prefetchBlock, roiSize.width - x);
      prefetchElements(rowAt(s1 + x, src1Step, 1), count);
      prefetchElements(rowAt(s2 + x, src2Step, 1), count);
      prefetchElements(rowAt(d + x, dstStep, 1), count);
      QOR_INDEPENDENT
      for (int32_t i = x; i < x + count; ++i) d[i] = accumulated<weighted, false>(s2[i], s1[i], s1[i], true, alpha);
      x += count;
    }
  }
  return qorStatusOk;
}
