// Scharr filters: first derivatives with the weights 3 10 3, always 3x3.
//
// Odd: unlike Sobel's, the vertical filter is right minus left.
#include "filter/fixedfilter.h"

static constexpr FilterScratch scratch32f = {84, 440, 0, 0};
static constexpr FilterScratch scratch8Bits = {42, 376, 0, 0};

// One size differs from the others.
static constexpr FilterScratch scratchVert8u16s = {42, 440, 0, 0};

#define QOR_SCHARR(name, kernels, Src, Dst, form, scratch, DIVISOR_PARAMETER, divisor)                        \
  QorStatus qoriFilter##name##Border_##form##_C1R(const Src* src, int32_t srcStep, Dst* dst, int32_t dstStep, \
                                                  QoriSize roiSize, QoriBorderType borderType,                \
                                                  Src borderValue DIVISOR_PARAMETER, uint8_t* buffer) {       \
    const FilterCall<Src, Dst> call = {src,        srcStep,     dst,     dstStep, roiSize, qorMaskSize3x3,    \
                                       borderType, borderValue, divisor, buffer};                             \
    return filterInOnePass(call, kernels, kernels, scratch);                                                  \
  }                                                                                                           \
  QorStatus qoriFilter##name##GetBufferSize_##form##_C1R(QoriSize roiSize, int32_t* bufferSize) {             \
    return filterBufferSize<Src, Dst>(roiSize, qorMaskSize3x3, scratch, bufferSize);                          \
  }
#define QOR_NOTHING
#define QOR_DIVISOR , int32_t divisor

static constexpr KernelPair horizontal = {rowScharr3, columnDx3};
static constexpr KernelPair vertical = {rowDx3, columnScharr3};

QOR_SCHARR(ScharrHoriz, horizontal, float, float, 32f, scratch32f, QOR_NOTHING, 1)
QOR_SCHARR(ScharrHoriz, horizontal, uint8_t, int16_t, 8u16s, scratch8Bits, QOR_NOTHING, 1)
QOR_SCHARR(ScharrHoriz, horizontal, uint8_t, int8_t, 8u8s, scratch8Bits, QOR_DIVISOR, divisor)
QOR_SCHARR(ScharrVert, vertical, float, float, 32f, scratch32f, QOR_NOTHING, 1)
QOR_SCHARR(ScharrVert, vertical, uint8_t, int16_t, 8u16s, scratchVert8u16s, QOR_NOTHING, 1)
QOR_SCHARR(ScharrVert, vertical, uint8_t, int8_t, 8u8s, scratch8Bits, QOR_DIVISOR, divisor)
#undef QOR_DIVISOR
#undef QOR_NOTHING
#undef QOR_SCHARR
