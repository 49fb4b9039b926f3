// Integral images, and the deviation in a sliding window that is read from them.
#include "station.h"

namespace tour {

void visitContrast(const Picture& picture, Wall& wall) {
  const uint8_t* src = picture.gray.data();
  const int32_t srcStep = picture.gray.step();
  const QoriSize roiSize = picture.gray.size();

  // Tilted planes have two columns and rows more than the picture, upright ones one.
  Image32s sums(roiSize.width + 2, roiSize.height + 2);
  Image64f squares(roiSize.width + 2, roiSize.height + 2);
  int32_t* sum = sums.data();
  double* sqr = squares.data();
  const int32_t sumStep = sums.step();
  const int32_t sqrStep = squares.step();
  const Step integral =
      TOUR_STEP(qoriSqrIntegral_8u32s64f_C1R(src, srcStep, sum, sumStep, sqr, sqrStep, roiSize, 0, 0.0));

  const auto upright = [&](const Label& label, int32_t side) {
    // As many windows as fit, each shown at its middle.
    const QoriSize windows = {roiSize.width - side + 1, roiSize.height - side + 1};
    if (windows.width < 1 || windows.height < 1) return;
    Image32f result(roiSize.width, roiSize.height);
    float* dst = result.row(side / 2) + side / 2;
    const int32_t dstStep = result.step();
    const QoriRect rect = {0, 0, side, side};
    hang(wall, label,
         {integral, TOUR_STEP(qoriRectStdDev_32s32f_C1R(sum, sumStep, sqr, sqrStep, dst, dstStep, windows, rect))},
         result, fromZeroAsGray);
  };
  upright({"deviation-5", "Deviation in 5×5 windows", "Edges and fine texture are light, whatever their brightness."},
          5);
  upright({"deviation-25", "Deviation in 25×25 windows",
           "Areas with structure are light, and even ones dark. The window has 25 times the area, and the time is the "
           "same."},
          25);

  constexpr int32_t side = 9;
  const QoriSize windows = {roiSize.width - 2 * side, roiSize.height - 2 * side};
  if (windows.width < 1 || windows.height < 1) return;
  Image32f result(roiSize.width, roiSize.height);
  float* dst = result.row(side) + side;
  const int32_t dstStep = result.step();
  // The window opens to the left of its top corner, so the first one starts that far into the planes.
  const QoriRect rect = {0, 0, side, side};
  const int32_t* corner = sum + side;
  const double* sqrCorner = sqr + side;
  hang(wall,
       {"deviation-tilted", "Deviation in tilted windows",
        "Windows of 9×9 steps along the diagonals, standing on a corner, from sums over cones that open upwards."},
       {TOUR_STEP(qoriTiltedSqrIntegral_8u32s64f_C1R(src, srcStep, sum, sumStep, sqr, sqrStep, roiSize, 0, 0.0)),
        TOUR_STEP(qoriTiltedRectStdDev_32s32f_C1R(corner, sumStep, sqrCorner, sqrStep, dst, dstStep, windows, rect))},
       result, fromZeroAsGray);
}

}  // namespace tour
