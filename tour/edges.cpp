// Canny at several thresholds, and what separates two of them.
//
// The detector tells diagonals by the signs of dx and dy together, so both have to point the same way: right minus left
// (the negative vertical Sobel filter) goes with bottom minus top (the horizontal one).
#include "edges.h"

#include "station.h"

namespace tour {

static Image16s slope(const Image8u& image, bool across) {
  const uint8_t* src = image.data();
  const int32_t srcStep = image.step();
  const QoriSize roiSize = image.size();
  Image16s result(roiSize.width, roiSize.height);
  int16_t* dst = result.data();
  const int32_t dstStep = result.step();
  run({across ? TOUR_STEP_WITH_BUFFER(
                    qoriFilterSobelNegVertGetBufferSize_8u16s_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                    qoriFilterSobelNegVertBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize3x3,
                                                           qorBorderReplicate, 0, buffer))
              : TOUR_STEP_WITH_BUFFER(
                    qoriFilterSobelHorizGetBufferSize_8u16s_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                    qoriFilterSobelHorizBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize3x3,
                                                         qorBorderReplicate, 0, buffer))});
  return result;
}

static Image8u smoothed(const Image8u& image) {
  const uint8_t* src = image.data();
  const int32_t srcStep = image.step();
  const QoriSize roiSize = image.size();
  Image8u result(roiSize.width, roiSize.height);
  uint8_t* dst = result.data();
  const int32_t dstStep = result.step();
  run({TOUR_STEP_WITH_BUFFER(qoriFilterLowpassGetBufferSize_8u_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                             qoriFilterLowpassBorder_8u_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize5x5,
                                                            qorBorderReplicate, 0, buffer))});
  result.extendEdges();
  return result;
}

Image8u edgesOf(const Image8u& picture, float low, float high) {
  Image8u gray = picture;
  gray.extendEdges();
  const Image8u calm = smoothed(gray);
  const Image16s across = slope(calm, true), down = slope(calm, false);
  const int16_t *dx = across.data(), *dy = down.data();
  const int32_t dxStep = across.step(), dyStep = down.step();
  const QoriSize roiSize = picture.size();
  Image8u result(roiSize.width, roiSize.height);
  uint8_t* dst = result.data();
  const int32_t dstStep = result.step();
  run({TOUR_STEP_WITH_BUFFER(qoriCannyGetSize(roiSize, &bufferSize),
                             qoriCanny_16s8u_C1R(dx, dxStep, dy, dyStep, dst, dstStep, roiSize, low, high, buffer))});
  return result;
}

void visitEdges(const Picture& picture, Wall& wall) {
  const QoriSize roiSize = picture.gray.size();
  const Image16s across = slope(picture.gray, true);
  const Image16s down = slope(picture.gray, false);
  const int16_t* dx = across.data();
  const int16_t* dy = down.data();
  const int32_t dxStep = across.step();
  const int32_t dyStep = down.step();

  Image8u strict(roiSize.width, roiSize.height);
  Image8u eager(roiSize.width, roiSize.height);
  Image8u result(roiSize.width, roiSize.height);
  uint8_t* dst = strict.data();
  const int32_t dstStep = strict.step();
  hang(wall, {"canny-strict", "Canny, 120 and 320", "High thresholds: the outlines of the main shapes."},
       {TOUR_STEP_WITH_BUFFER(qoriCannyGetSize(roiSize, &bufferSize),
                              qoriCanny_16s8u_C1R(dx, dxStep, dy, dyStep, dst, dstStep, roiSize, 120, 320, buffer))},
       strict, asItIs);
  dst = eager.data();
  hang(wall, {"canny-eager", "Canny, 60 and 160", "Low thresholds: texture and weak edges come in."},
       {TOUR_STEP_WITH_BUFFER(qoriCannyGetSize(roiSize, &bufferSize),
                              qoriCanny_16s8u_C1R(dx, dxStep, dy, dyStep, dst, dstStep, roiSize, 60, 160, buffer))},
       eager, asItIs);

  const uint8_t* edges1 = strict.data();
  const uint8_t* edges2 = eager.data();
  const int32_t step1 = strict.step();
  const int32_t step2 = eager.step();
  dst = result.data();
  hang(wall,
       {"canny-difference", "What the low thresholds added",
        "The absolute difference of the two edge pictures: the edges that only the low thresholds find."},
       {TOUR_STEP(qoriAbsDiff_8u_C1R(edges1, step1, edges2, step2, dst, dstStep, roiSize))}, result, asItIs);

  const Image8u calm = smoothed(picture.gray);
  const Image16s calmAcross = slope(calm, true);
  const Image16s calmDown = slope(calm, false);
  dx = calmAcross.data();
  dy = calmDown.data();
  hang(wall,
       {"canny-smoothed", "Canny, 60 and 160, after a 5×5 lowpass",
        "The same low thresholds on a smoothed picture: longer, calmer lines and hardly any texture."},
       {TOUR_STEP_WITH_BUFFER(qoriCannyGetSize(roiSize, &bufferSize),
                              qoriCanny_16s8u_C1R(dx, dxStep, dy, dyStep, dst, dstStep, roiSize, 60, 160, buffer))},
       result, asItIs);
}

}  // namespace tour
