// Lowpass, once and many times, and the absolute difference that shows its work.
#include "station.h"

namespace tour {

// The step, and then the spare rows of the image that it wrote, since another filter reads it next.
static Step extending(const Step& step, Image8u& image) {
  Step result = step;
  result.call = [=, &image](uint8_t* buffer) -> QorStatus {
    const QorStatus status = step.call(buffer);
    image.extendEdges();
    return status;
  };
  return result;
}

void visitSmoothing(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();

  Image8u result(roiSize.width, roiSize.height);
  uint8_t* dst = result.data();
  const int32_t dstStep = result.step();

  hang(wall, {"lowpass-3x3", "Lowpass, 3×3", "The mean of nine pixels: grain goes, and edges stay nearly sharp."},
       {TOUR_STEP_WITH_BUFFER(qoriFilterLowpassGetBufferSize_8u_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                              qoriFilterLowpassBorder_8u_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize3x3,
                                                             qorBorderReplicate, 0, buffer))},
       result, asItIs);
  hang(wall, {"lowpass-5x5", "Lowpass, 5×5", "The mean of 25 pixels: fine texture is gone as well."},
       {TOUR_STEP_WITH_BUFFER(qoriFilterLowpassGetBufferSize_8u_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                              qoriFilterLowpassBorder_8u_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize5x5,
                                                             qorBorderReplicate, 0, buffer))},
       result, asItIs);

  Image8u smoothed = result;
  smoothed.extendEdges();
  const uint8_t* smooth = smoothed.data();
  const int32_t smoothStep = smoothed.step();
  hang(wall,
       {"difference-5x5", "What the 5×5 lowpass took away",
        "The absolute difference of the picture and its 5×5 lowpass: light where there was detail."},
       {TOUR_STEP(qoriAbsDiff_8u_C1R(src, srcStep, smooth, smoothStep, dst, dstStep, roiSize))}, result, amplified);

  // Eight further means on the first, to and fro between two images.
  Image8u image1(roiSize.width, roiSize.height);
  Image8u image2(roiSize.width, roiSize.height);
  uint8_t* even = image1.data();
  uint8_t* odd = image2.data();
  const int32_t evenStep = image1.step();
  const int32_t oddStep = image2.step();
  const Step first =
      TOUR_STEP_WITH_BUFFER(qoriFilterLowpassGetBufferSize_8u_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                            qoriFilterLowpassBorder_8u_C1R(src, srcStep, even, evenStep, roiSize, qorMaskSize5x5,
                                                           qorBorderReplicate, 0, buffer));
  const Step there =
      TOUR_STEP_WITH_BUFFER(qoriFilterLowpassGetBufferSize_8u_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                            qoriFilterLowpassBorder_8u_C1R(even, evenStep, odd, oddStep, roiSize, qorMaskSize5x5,
                                                           qorBorderReplicate, 0, buffer));
  const Step back =
      TOUR_STEP_WITH_BUFFER(qoriFilterLowpassGetBufferSize_8u_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                            qoriFilterLowpassBorder_8u_C1R(odd, oddStep, even, evenStep, roiSize, qorMaskSize5x5,
                                                           qorBorderReplicate, 0, buffer));
  hang(wall,
       {"lowpass-5x5-nine", "Lowpass, 5×5, nine times",
        "Means of means come close to a Gaussian bell: a soft picture without the square look of one large mean."},
       {extending(first, image1), repeat(4, {extending(there, image2), extending(back, image1)})}, image1, asItIs);

  hang(wall,
       {"difference-mid-grey", "Distance from mid-grey",
        "The absolute difference of the picture and the constant 128: black where the picture is mid-grey, light where "
        "it is very dark or very bright."},
       {TOUR_STEP(qoriAbsDiffC_8u_C1R(src, srcStep, dst, dstStep, roiSize, 128))}, result, amplified);
}

}  // namespace tour
