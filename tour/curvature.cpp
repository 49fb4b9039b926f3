// Laplacian and the second Sobel derivatives.
#include "station.h"

namespace tour {

void visitCurvature(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();

  Image16s result(roiSize.width, roiSize.height);
  int16_t* dst = result.data();
  const int32_t dstStep = result.step();
  const auto show = [&](const Label& label, const Step& step) { hang(wall, label, {step}, result, signedAsGray); };

  show({"laplacian-3x3", "Laplacian, 3×3",
        "Each pixel against its four diagonal neighbours: light in dark spots, dark in light ones, a light and a dark "
        "line along every edge. The grain of the picture shows most."},
       TOUR_STEP_WITH_BUFFER(qoriFilterLaplacianGetBufferSize_8u16s_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                             qoriFilterLaplacianBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize3x3,
                                                                 qorBorderReplicate, 0, buffer)));
  show({"laplacian-5x5", "Laplacian, 5×5",
        "The same over a wider neighbourhood: double lines along the edges, with much less grain."},
       TOUR_STEP_WITH_BUFFER(qoriFilterLaplacianGetBufferSize_8u16s_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                             qoriFilterLaplacianBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize5x5,
                                                                 qorBorderReplicate, 0, buffer)));
  show({"sobel-horiz-second-5x5", "Sobel, second derivative down the columns",
        "Dark on light lines that run along the rows, light on dark ones."},
       TOUR_STEP_WITH_BUFFER(qoriFilterSobelHorizSecondGetBufferSize_8u16s_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                             qoriFilterSobelHorizSecondBorder_8u16s_C1R(
                                 src, srcStep, dst, dstStep, roiSize, qorMaskSize5x5, qorBorderReplicate, 0, buffer)));
  show({"sobel-vert-second-5x5", "Sobel, second derivative along the rows",
        "The same for upright lines. The 5×5 Laplacian is the sum of these two."},
       TOUR_STEP_WITH_BUFFER(qoriFilterSobelVertSecondGetBufferSize_8u16s_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                             qoriFilterSobelVertSecondBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize,
                                                                       qorMaskSize5x5, qorBorderReplicate, 0, buffer)));
  show({"sobel-cross-5x5", "Sobel, mixed derivative",
        "Answers to corners and slanted edges; straight horizontal and vertical edges vanish."},
       TOUR_STEP_WITH_BUFFER(qoriFilterSobelCrossGetBufferSize_8u16s_C1R(roiSize, qorMaskSize5x5, &bufferSize),
                             qoriFilterSobelCrossBorder_8u16s_C1R(src, srcStep, dst, dstStep, roiSize, qorMaskSize5x5,
                                                                  qorBorderReplicate, 0, buffer)));
}

}  // namespace tour
