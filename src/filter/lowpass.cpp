// Box lowpass: the mean of 9 or 25 pixels.
//
// Odd: the two means of 8-bit images round differently, see convolution_rows.h.
#include "filter/fixedfilter.h"

static constexpr FilterScratch scratch32f = {84, 376, 100, 424};
static constexpr FilterScratch scratch8u = {42, 440, 50, 488};

static constexpr KernelPair kernels3x3 = {rowAverage3, columnAverage3};
static constexpr KernelPair kernels5x5 = {rowAverage5, columnAverage5};

QorStatus qoriFilterLowpassBorder_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                          QoriSize roiSize, QoriMaskSelector maskSize, QoriBorderType borderType,
                                          float borderValue, uint8_t* buffer) {
  const FilterCall<float, float> call = {src,      srcStep,    dst,         dstStep, roiSize,
                                         maskSize, borderType, borderValue, 1,       buffer};
  return filterInOnePass(call, kernels3x3, kernels5x5, scratch32f);
}

QorStatus qoriFilterLowpassBorder_8u_C1R(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,
                                         QoriSize roiSize, QoriMaskSelector maskSize, QoriBorderType borderType,
                                         uint8_t borderValue, uint8_t* buffer) {
  const FilterCall<uint8_t, uint8_t> call = {src,      srcStep,    dst,         dstStep, roiSize,
                                             maskSize, borderType, borderValue, 1,       buffer};
  return filterInOnePass(call, kernels3x3, kernels5x5, scratch8u);
}

QorStatus qoriFilterLowpassGetBufferSize_32f_C1R(QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize) {
  return filterBufferSize<float, float>(roiSize, maskSize, scratch32f, bufferSize);
}

QorStatus qoriFilterLowpassGetBufferSize_8u_C1R(QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize) {
  return filterBufferSize<uint8_t, uint8_t>(roiSize, maskSize, scratch8u, bufferSize);
}
