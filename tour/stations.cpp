// The tour's route.
#include "station.h"

namespace tour {

const std::vector<Station>& stations() {
  static const std::vector<Station> route = {
      {"slopes", "Slopes",
       "First derivatives: how steeply the brightness rises, along the rows or down the columns. Flat areas give 0.",
       Input::gray, visitSlopes},
      {"curvature", "Curvature",
       "Second derivatives: they answer to lines, spots and the two sides of every edge, and ignore even slopes.",
       Input::gray, visitCurvature},
      {"smoothing", "Smoothing and differences",
       "The mean over a small square takes away noise and fine detail. The absolute difference of two pictures shows "
       "what went.",
       Input::gray, visitSmoothing},
      {"kernels", "Kernels of your own",
       "Any separable kernel, in two stages that meet through row pointers: the row stage along each row, the column "
       "stage across the rows it left.",
       Input::gray, visitOwnKernels},
      {"colour", "In colour", "The same two stages on three interleaved channels, each treated alone.", Input::colour,
       visitColour},
      {"edges", "Edges",
       "The Canny detector thins the slopes dx and dy to lines one pixel wide, keeps what is above the high threshold, "
       "and follows it as long as it stays above the low one. The slopes come from the negative vertical and the "
       "horizontal Sobel filters; the times are those of the detector alone.",
       Input::gray, visitEdges},
  };
  return route;
}

}  // namespace tour
