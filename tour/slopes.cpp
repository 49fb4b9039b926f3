// Sobel and Scharr: first derivatives, and the gradient that two of them make.
#include "station.h"

namespace tour {

void visitSlopes(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();

  Image16s result(roiSize.width, roiSize.height);
  int16_t* dst = result.data();
  const int32_t dstStep = result.step();
  const auto show = [&](const Label& label, const Step& step) { hang(wall, label, {step}, result, signedAsGray); };

  show({"sobel-horiz-3x3", "Sobel, horizontal edges, 3×3",
        "Bottom minus top: light where the picture gets brighter downwards, dark where it gets darker."},
       TOUR_STEP_WITH_BUFFER(qoriFilterSobelHorizGetBufferSize_8u16s_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                             qoriFilterSobelHorizBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize3x3,
                                                                  qorBorderReplicate, 0, buffer)));
  show({"sobel-vert-3x3", "Sobel, vertical edges, 3×3",
        "Left minus right: light where the picture gets darker to the right, dark where it gets brighter."},
       TOUR_STEP_WITH_BUFFER(qoriFilterSobelVertGetBufferSize_8u16s_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                             qoriFilterSobelVertBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize3x3,
                                                                 qorBorderReplicate, 0, buffer)));
  show({"sobel-horiz-5x5", "Sobel, horizontal edges, 5×5",
        "The wider kernel smooths more: edges are broader and softer, and noise matters less."},
       TOUR_STEP_WITH_BUFFER(qoriFilterSobelHorizGetBufferSize_8u16s_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                             qoriFilterSobelHorizBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize5x5,
                                                                  qorBorderReplicate, 0, buffer)));
  show({"sobel-vert-5x5", "Sobel, vertical edges, 5×5", "The same across the columns, left minus right."},
       TOUR_STEP_WITH_BUFFER(qoriFilterSobelVertGetBufferSize_8u16s_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                             qoriFilterSobelVertBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize5x5,
                                                                 qorBorderReplicate, 0, buffer)));
  show({"scharr-horiz", "Scharr, horizontal edges",
        "Bottom minus top with weights 3, 10, 3, which measure slanted edges more evenly than Sobel's 1, 2, 1."},
       TOUR_STEP_WITH_BUFFER(
           qoriFilterScharrHorizGetBufferSize_8u16s_C1R(roiSize, &bufferSize),
           qoriFilterScharrHorizBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorBorderReplicate, 0, buffer)));
  show({"scharr-vert", "Scharr, vertical edges",
        "Right minus left, the other way round than Sobel's: light where the picture gets brighter to the right."},
       TOUR_STEP_WITH_BUFFER(
           qoriFilterScharrVertGetBufferSize_8u16s_C1R(roiSize, &bufferSize),
           qoriFilterScharrVertBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorBorderReplicate, 0, buffer)));

  Image16s across(roiSize.width, roiSize.height);
  Image16s down(roiSize.width, roiSize.height);
  int16_t* dx = across.data();
  int16_t* dy = down.data();
  const int32_t dxStep = across.step();
  const int32_t dyStep = down.step();
  hang(wall,
       {"gradient-length", "Length of the gradient",
        "The root of dx² + dy², put together by the tour from the two slopes: every edge is light, whatever its "
        "direction. The times are those of the two calls."},
       {TOUR_STEP_WITH_BUFFER(qoriFilterSobelNegVertGetBufferSize_8u16s_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                              qoriFilterSobelNegVertBorder_8u16s_C1R(src, srcStep, dx, dxStep, roiSize, qorMaskSize3x3,
                                                                     qorBorderReplicate, 0, buffer)),
        TOUR_STEP_WITH_BUFFER(qoriFilterSobelHorizGetBufferSize_8u16s_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                              qoriFilterSobelHorizBorder_8u16s_C1R(src, srcStep, dy, dyStep, roiSize, qorMaskSize3x3,
                                                                   qorBorderReplicate, 0, buffer))},
       down, [&](const Image16s&) { return lengthAsGray(across, down); });
  hang(
      wall,
      {"gradient-direction", "Direction of the gradient",
       "The hue, put together by the tour, tells which way it gets brighter: red to the right, green-yellow down, cyan "
       "to the left, violet up."},
      {TOUR_STEP_WITH_BUFFER(
           qoriFilterScharrVertGetBufferSize_8u16s_C1R(roiSize, &bufferSize),
           qoriFilterScharrVertBorder_8u16s_C1R(src, srcStep, dx, dxStep, roiSize, qorBorderReplicate, 0, buffer)),
       TOUR_STEP_WITH_BUFFER(
           qoriFilterScharrHorizGetBufferSize_8u16s_C1R(roiSize, &bufferSize),
           qoriFilterScharrHorizBorder_8u16s_C1R(src, srcStep, dy, dyStep, roiSize, qorBorderReplicate, 0, buffer))},
      down, [&](const Image16s&) { return directionAsHue(across, down); });
}

}  // namespace tour
