// Laplacian filters. The 3x3 one is a single pass; the 5x5 one is the sum of two separable kernels, each a pass of the
// engine: the first stores into the result, the second adds to it.
//
// Odd: the 5x5 form from 8u to 8s works in 16 bits, in an intermediate image inside the scratch, and threads take
// stripes of a quarter of the usual height.
#include "filter/fixedfilter.h"
#include "filter/taps.h"

static constexpr FilterScratch scratch32f = {168, 720, 200, 816};
static constexpr FilterScratch scratch8Bits = {84, 720, 100, 816};

static constexpr KernelPair kernels3x3 = {rowLaplacian3, columnLaplacian3};
static constexpr KernelPair storing5x5 = {rowSobel5, columnDx2_5};
static constexpr KernelPair adding5x5 = {rowDx2_5, columnLaplacian5};

template <class Call>
static void laplacian5x5(const Call& stripe, const Call& whole) {
  convolve(stripe, storing5x5, whole);
  convolve(stripe, adding5x5, whole);
}

template <class Call>
static QorStatus laplacian(const Call& c, const FilterScratch& scratch) {
  if (const QorStatus status = checkFilter(c)) return status;
  const int32_t total = filterScratch<typename Call::Src, typename Call::Dst>(c.roiSize, c.maskSize, scratch);
  runFilter(c, total, [&](const Call& stripe) {
    if (c.taps() == 5) {
      laplacian5x5(stripe, c);
    } else {
      convolve(stripe, kernels3x3, c);
    }
  });
  return qorStatusOk;
}

// Scratch of each thread beside the engine's: the intermediate image.
static int32_t extraOf8u8s(QoriSize roiSize, QoriMaskSelector maskSize) {
  return maskSize == qorMaskSize5x5 ? 2 * roundedUpTo16(roiSize.width) * roiSize.height + 64 : 32;
}

static void laplacian5x5Through16Bits(const FilterCall<uint8_t, int8_t>& stripe,
                                      const FilterCall<uint8_t, int8_t>& whole) {
  const ptrdiff_t rowLength = roundedUpTo16(stripe.roiSize.width);
  int16_t* const sums = alignUp<int16_t>(stripe.buffer, 16);
  const int32_t sumsStep = int32_t(rowLength * sizeof(int16_t));
  using Wide = FilterCall<uint8_t, int16_t>;
  const Wide wideStripe = {stripe.src,
                           stripe.srcStep,
                           sums,
                           sumsStep,
                           stripe.roiSize,
                           stripe.maskSize,
                           stripe.borderType,
                           stripe.borderValue,
                           1,
                           reinterpret_cast<uint8_t*>(sums + rowLength * stripe.roiSize.height)};
  Wide wideWhole = wideStripe;
  wideWhole.src = whole.src;
  wideWhole.roiSize = whole.roiSize;
  laplacian5x5(wideStripe, wideWhole);

  const ScaleAndClamp<int8_t> ending(stripe.divisor);
  for (int32_t y = 0; y < stripe.roiSize.height; ++y) {
    const int16_t* sumsRow = sums + y * rowLength;
    int8_t* row = rowAt(stripe.dst, stripe.dstStep, y);
    forElements(stripe.roiSize.width, [=](ptrdiff_t x) { row[x] = ending(sumsRow[x]); });
  }
}

QorStatus qoriFilterLaplacianBorder_32f_C1R(const float* src, int32_t srcStep, float* dst, int32_t dstStep,
                                            QoriSize roiSize, QoriMaskSelector maskSize, QoriBorderType borderType,
                                            float borderValue, uint8_t* buffer) {
  const FilterCall<float, float> call = {src,      srcStep,    dst,         dstStep, roiSize,
                                         maskSize, borderType, borderValue, 1,       buffer};
  return laplacian(call, scratch32f);
}

QorStatus qoriFilterLaplacianBorder_8u16s_C1R(const uint8_t* src, int32_t srcStep, int16_t* dst, int32_t dstStep,
                                              QoriSize roiSize, QoriMaskSelector maskSize, QoriBorderType borderType,
                                              uint8_t borderValue, uint8_t* buffer) {
  const FilterCall<uint8_t, int16_t> call = {src,      srcStep,    dst,         dstStep, roiSize,
                                             maskSize, borderType, borderValue, 1,       buffer};
  return laplacian(call, scratch8Bits);
}

QorStatus qoriFilterLaplacianBorder_8u8s_C1R(const uint8_t* src, int32_t srcStep, int8_t* dst, int32_t dstStep,
                                             QoriSize roiSize, QoriMaskSelector maskSize, QoriBorderType borderType,
                                             uint8_t borderValue, int32_t divisor, uint8_t* buffer) {
  using Call = FilterCall<uint8_t, int8_t>;
  const Call call = {src, srcStep, dst, dstStep, roiSize, maskSize, borderType, borderValue, divisor, buffer};
  if (const QorStatus status = checkFilter(call)) return status;
  const int32_t total = filterScratch<uint8_t, int8_t>(roiSize, maskSize, scratch8Bits, extraOf8u8s(roiSize, maskSize));
  constexpr int32_t rowsPerThread = 32;
  runFilter(
      call, total,
      [&](const Call& stripe) {
        if (maskSize == qorMaskSize5x5) {
          laplacian5x5Through16Bits(stripe, call);
        } else {
          convolve(stripe, kernels3x3, call);
        }
      },
      rowsPerThread);
  return qorStatusOk;
}

QorStatus qoriFilterLaplacianGetBufferSize_32f_C1R(QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize) {
  return filterBufferSize<float, float>(roiSize, maskSize, scratch32f, bufferSize);
}

QorStatus qoriFilterLaplacianGetBufferSize_8u16s_C1R(QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize) {
  return filterBufferSize<uint8_t, int16_t>(roiSize, maskSize, scratch8Bits, bufferSize);
}

QorStatus qoriFilterLaplacianGetBufferSize_8u8s_C1R(QoriSize roiSize, QoriMaskSelector maskSize, int32_t* bufferSize) {
  return filterBufferSize<uint8_t, int8_t>(roiSize, maskSize, scratch8Bits, bufferSize, extraOf8u8s(roiSize, maskSize));
}
