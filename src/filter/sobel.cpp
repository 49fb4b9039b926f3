// Sobel filters: first derivatives, second derivatives and the cross derivative, 3x3 and 5x5.
//
// Odd: the vertical filter is left minus right, so it falls where the image rises to the right; SobelNegVert is its
// negative.
#include "filter/fixedfilter.h"

using Call32f = FilterCall<float, float>;
using Call8u16s = FilterCall<uint8_t, int16_t>;
using Call8u8s = FilterCall<uint8_t, int8_t>;

static constexpr FilterScratch scratch32f = {84, 440, 100, 488};
static constexpr FilterScratch scratch8u16s = {42, 440, 50, 488};
static constexpr FilterScratch scratch8u8s = {42, 376, 50, 424};

// Two sizes differ from all others by 32 bytes.
static constexpr FilterScratch scratchVert8u16s = {42, 408, 50, 456};
static constexpr int32_t extraOfHoriz8u16s = 64;

#define QOR_SOBEL(name, kernels3x3, kernels5x5, scratchOf8u16s, extraOf8u16s)                                          \
  QorStatus qoriFilter##name##Border_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,           \
                                             QoriSize roiSize, QoriMaskSelector maskSize, QoriBorderType borderType,   \
                                             float borderValue, uint8_t* buffer) {                                     \
    const Call32f call = {src, srcStep, dst, dstStep, roiSize, maskSize, borderType, borderValue, 1, buffer};          \
    return filterInOnePass(call, kernels3x3, kernels5x5, scratch32f);                                                  \
  }                                                                                                                    \
  QorStatus qoriFilter##name##Border_8u16s_C1R(const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep,     \
                                               QoriSize roiSize, QoriMaskSelector maskSize, QoriBorderType borderType, \
                                               uint8_t borderValue, uint8_t* buffer) {                                 \
    const Call8u16s call = {src, srcStep, dst, dstStep, roiSize, maskSize, borderType, borderValue, 1, buffer};        \
    return filterInOnePass(call, kernels3x3, kernels5x5, scratchOf8u16s, extraOf8u16s);                                \
  }                                                                                                                    \
  QorStatus qoriFilter##name##Border_8u8s_C1R(const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep,       \
                                              QoriSize roiSize, QoriMaskSelector maskSize, QoriBorderType borderType,  \
                                              uint8_t borderValue, int32_t divisor, uint8_t* buffer) {                 \
    const Call8u8s call = {src, srcStep, dst, dstStep, roiSize, maskSize, borderType, borderValue, divisor, buffer};   \
    return filterInOnePass(call, kernels3x3, kernels5x5, scratch8u8s);                                                 \
  }                                                                                                                    \
  QorStatus qoriFilter##name##GetBufferSize_32f_C1R(QoriSize roiSize, QoriMaskSelector maskSize,                       \
                                                    int32_t* bufferSize) {                                             \
    return filterBufferSize<float, float>(roiSize, maskSize, scratch32f, bufferSize);                                  \
  }                                                                                                                    \
  QorStatus qoriFilter##name##GetBufferSize_8u16s_C1R(QoriSize roiSize, QoriMaskSelector maskSize,                     \
                                                      int32_t* bufferSize) {                                           \
    return filterBufferSize<uint8_t, int16_t>(roiSize, maskSize, scratchOf8u16s, bufferSize, extraOf8u16s);            \
  }                                                                                                                    \
  QorStatus qoriFilter##name##GetBufferSize_8u8s_C1R(QoriSize roiSize, QoriMaskSelector maskSize,                      \
                                                     int32_t* bufferSize) {                                            \
    return filterBufferSize<uint8_t, int8_t>(roiSize, maskSize, scratch8u8s, bufferSize);                              \
  }

QOR_SOBEL(SobelHoriz, (KernelPair{rowSobel3, columnDx3}), (KernelPair{rowSobel5, columnDx5}), scratch8u16s,
          extraOfHoriz8u16s)
QOR_SOBEL(SobelVert, (KernelPair{rowDxNeg3, columnSobel3}), (KernelPair{rowDxNeg5, columnSobel5}), scratchVert8u16s, 32)
QOR_SOBEL(SobelNegVert, (KernelPair{rowDxNeg3, columnSobelNeg3}), (KernelPair{rowDxNeg5, columnSobelNeg5}),
          scratch8u16s, 32)
QOR_SOBEL(SobelHorizSecond, (KernelPair{rowSobel3, columnDx2_3}), (KernelPair{rowSobel5, columnDx2_5}), scratch8u16s,
          32)
QOR_SOBEL(SobelVertSecond, (KernelPair{rowDx2_3, columnSobel3}), (KernelPair{rowDx2_5, columnSobel5}), scratch8u16s, 32)
QOR_SOBEL(SobelCross, (KernelPair{rowDxNeg3, columnDx3}), (KernelPair{rowDxNeg5, columnDx5}), scratch8u16s, 32)
#undef QOR_SOBEL
