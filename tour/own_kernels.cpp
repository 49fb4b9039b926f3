// The separable pipelines with kernels that the library has no filter for, on grey and on colour.
#include <cstddef>

#include "station.h"

namespace tour {

static const int16_t binomial[11] = {1, 10, 45, 120, 210, 252, 210, 120, 45, 10, 1};
static const int16_t ones[31] = {1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1,
                                 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1, 1};
static const int16_t one[1] = {1};
static const int16_t sharpen[5] = {-1, -1, 8, -1, -1};

namespace {

// The intermediate rows: the row stage writes dstRows, the column stage reads srcRows, which repeat the first and the
// last row as often as the column kernel reaches beyond the picture.
struct Between {
  Image16s rows;
  std::vector<int16_t*> dstRows;
  std::vector<const int16_t*> srcRows;

  Between(QoriSize size, int32_t channels, int32_t kernelSize) : rows(size.width, size.height, channels) {
    for (int32_t y = 0; y < size.height; ++y) dstRows.push_back(rows.row(y));
    for (int32_t i = 0; i < size.height + kernelSize - 1; ++i) {
      srcRows.push_back(rows.row(std::clamp(i - kernelSize / 2, 0, size.height - 1)));
    }
  }
  Between(const Between&) = delete;
  Between& operator=(const Between&) = delete;
};

}  // namespace

static void showBlur(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();
  Image8u result(roiSize.width, roiSize.height);
  uint8_t* dst = result.data();
  const int32_t dstStep = result.step();
  Between between(roiSize, 1, 11);
  int16_t* const* dstRows = between.dstRows.data();
  const int16_t* const* srcRows = between.srcRows.data();
  hang(wall,
       {"binomial-11", "Binomial blur, 11×11",
        "Eleven binomial taps (1, 10, 45, … 252 … 45, 10, 1), close to a Gaussian bell, both ways. The row stage keeps "
        "four more bits than the picture had."},
       {TOUR_STEP_WITH_BUFFER(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C1R(roiSize, 11, &bufferSize),
                              qoriFilterRowBorderPipeline_8u16s_C1R(src, srcStep, dstRows, roiSize, binomial, 11, 5,
                                                                    qorBorderReplicate, 0, 16, buffer)),
        TOUR_STEP_WITH_BUFFER(
            qoriFilterColumnPipelineGetBufferSize_16s8u_C1R(roiSize, 11, &bufferSize),
            qoriFilterColumnPipeline_16s8u_C1R(srcRows, dst, dstStep, roiSize, binomial, 11, 65536, buffer))},
       result, asItIs);
}

static void showMotion(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();
  Image8u result(roiSize.width, roiSize.height);
  uint8_t* dst = result.data();
  const int32_t dstStep = result.step();
  Between between(roiSize, 1, 1);
  int16_t* const* dstRows = between.dstRows.data();
  const int16_t* const* srcRows = between.srcRows.data();
  hang(wall,
       {"motion-31", "A shaky hand",
        "A row kernel of 31 ones and a column kernel of a single one: each pixel smears along its row, and only "
        "upright edges suffer."},
       {TOUR_STEP_WITH_BUFFER(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C1R(roiSize, 31, &bufferSize),
                              qoriFilterRowBorderPipeline_8u16s_C1R(src, srcStep, dstRows, roiSize, ones, 31, 15,
                                                                    qorBorderReplicate, 0, 1, buffer)),
        TOUR_STEP_WITH_BUFFER(qoriFilterColumnPipelineGetBufferSize_16s8u_C1R(roiSize, 1, &bufferSize),
                              qoriFilterColumnPipeline_16s8u_C1R(srcRows, dst, dstStep, roiSize, one, 1, 31, buffer))},
       result, asItIs);
}

static void showSharpened(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();
  Image8u result(roiSize.width, roiSize.height);
  uint8_t* dst = result.data();
  const int32_t dstStep = result.step();
  Between between(roiSize, 1, 5);
  int16_t* const* dstRows = between.dstRows.data();
  const int16_t* const* srcRows = between.srcRows.data();
  hang(wall,
       {"sharpen-5", "Sharpened",
        "Taps −1, −1, 8, −1, −1 both ways: what a pixel has over its neighbours counts double. The column stage holds "
        "the result to 0 … 255."},
       {TOUR_STEP_WITH_BUFFER(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C1R(roiSize, 5, &bufferSize),
                              qoriFilterRowBorderPipeline_8u16s_C1R(src, srcStep, dstRows, roiSize, sharpen, 5, 2,
                                                                    qorBorderReplicate, 0, 1, buffer)),
        TOUR_STEP_WITH_BUFFER(
            qoriFilterColumnPipelineGetBufferSize_16s8u_C1R(roiSize, 5, &bufferSize),
            qoriFilterColumnPipeline_16s8u_C1R(srcRows, dst, dstStep, roiSize, sharpen, 5, 16, buffer))},
       result, asItIs);
}

static void showWideSobel(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();
  Image16s result(roiSize.width, roiSize.height);
  int16_t* dst = result.data();
  const int32_t dstStep = result.step();
  Between between(roiSize, 1, 9);
  int16_t* const* dstRows = between.dstRows.data();
  const int16_t* const* srcRows = between.srcRows.data();
  std::vector<int16_t> taps(18);
  int16_t* slope = taps.data();
  int16_t* smooth = slope + 9;
  run({TOUR_STEP(qoriGenSobelKernel_16s(slope, 9, 1, 1)), TOUR_STEP(qoriGenSobelKernel_16s(smooth, 9, 0, 1))});
  hang(
      wall,
      {"sobel-9", "Sobel, 9×9",
       "Kernels made by qoriGenSobelKernel_16s: a slope of nine taps along the rows, a bell of nine down the columns. "
       "Only large shapes are left. The times are those of the two stages."},
      {TOUR_STEP_WITH_BUFFER(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C1R(roiSize, 9, &bufferSize),
                             qoriFilterRowBorderPipeline_8u16s_C1R(src, srcStep, dstRows, roiSize, slope, 9, 4,
                                                                   qorBorderReplicate, 0, 1, buffer)),
       TOUR_STEP_WITH_BUFFER(qoriFilterColumnPipelineGetBufferSize_16s_C1R(roiSize, 9, &bufferSize),
                             qoriFilterColumnPipeline_16s_C1R(srcRows, dst, dstStep, roiSize, smooth, 9, 256, buffer))},
      result, signedAsGray);
}

void visitOwnKernels(const Picture& picture, Wall& wall) {
  showBlur(picture, wall);
  showMotion(picture, wall);
  showSharpened(picture, wall);
  showWideSobel(picture, wall);
}

void visitColour(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.colour.data();
  const int32_t srcStep = picture.colour.step();
  const QoriSize roiSize = picture.colour.size();
  Image8u result(roiSize.width, roiSize.height, 3);
  uint8_t* dst = result.data();
  const int32_t dstStep = result.step();

  Between between1(roiSize, 3, 1);
  Between between5(roiSize, 3, 5);
  Between between11(roiSize, 3, 11);
  int16_t* const* dstRows = between1.dstRows.data();
  const int16_t* const* srcRows = between1.srcRows.data();
  hang(wall, {"colour-motion-31", "A shaky hand", "31 ones along each row, for red, green and blue alike."},
       {TOUR_STEP_WITH_BUFFER(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C3R(roiSize, 31, &bufferSize),
                              qoriFilterRowBorderPipeline_8u16s_C3R(src, srcStep, dstRows, roiSize, ones, 31, 15,
                                                                    qorBorderReplicate, NULL, 1, buffer)),
        TOUR_STEP_WITH_BUFFER(qoriFilterColumnPipelineGetBufferSize_16s8u_C3R(roiSize, 1, &bufferSize),
                              qoriFilterColumnPipeline_16s8u_C3R(srcRows, dst, dstStep, roiSize, one, 1, 31, buffer))},
       result, asItIs);

  dstRows = between5.dstRows.data();
  srcRows = between5.srcRows.data();
  hang(wall, {"colour-sharpen-5", "Sharpened", "Taps −1, −1, 8, −1, −1 both ways; fine detail stands out."},
       {TOUR_STEP_WITH_BUFFER(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C3R(roiSize, 5, &bufferSize),
                              qoriFilterRowBorderPipeline_8u16s_C3R(src, srcStep, dstRows, roiSize, sharpen, 5, 2,
                                                                    qorBorderReplicate, NULL, 1, buffer)),
        TOUR_STEP_WITH_BUFFER(
            qoriFilterColumnPipelineGetBufferSize_16s8u_C3R(roiSize, 5, &bufferSize),
            qoriFilterColumnPipeline_16s8u_C3R(srcRows, dst, dstStep, roiSize, sharpen, 5, 16, buffer))},
       result, asItIs);

  dstRows = between11.dstRows.data();
  srcRows = between11.srcRows.data();
  hang(wall, {"colour-binomial-11", "Binomial blur, 11×11", "Eleven binomial taps both ways."},
       {TOUR_STEP_WITH_BUFFER(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C3R(roiSize, 11, &bufferSize),
                              qoriFilterRowBorderPipeline_8u16s_C3R(src, srcStep, dstRows, roiSize, binomial, 11, 5,
                                                                    qorBorderReplicate, NULL, 16, buffer)),
        TOUR_STEP_WITH_BUFFER(
            qoriFilterColumnPipelineGetBufferSize_16s8u_C3R(roiSize, 11, &bufferSize),
            qoriFilterColumnPipeline_16s8u_C3R(srcRows, dst, dstStep, roiSize, binomial, 11, 65536, buffer))},
       result, asItIs);

  const Image8u blurred = result;
  const uint8_t* blur = blurred.data();
  const int32_t blurStep = blurred.step();
  hang(
      wall,
      {"colour-difference", "What the blur took away",
       "The absolute difference of the picture and its blur, channel by channel: edges keep a trace of their colours."},
      {TOUR_STEP(qoriAbsDiff_8u_C3R(src, srcStep, blur, blurStep, dst, dstStep, roiSize))}, result, amplified);
}

}  // namespace tour
