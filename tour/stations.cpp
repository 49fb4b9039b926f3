// The tour's route.
#include "station.h"

namespace tour {

std::vector<std::string> codeOf(const std::vector<Step>& steps) {
  std::vector<std::string> code;
  for (const Step& step : steps) code.push_back(step.code.back() == '}' ? step.code : step.code + ";");
  return code;
}

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
      {"lines", "Lines",
       "Every edge pixel votes for all straight lines through it; where many votes meet, there is a line. The edges "
       "come "
       "from the Canny detector on the smoothed picture; the times are those of the search alone.",
       Input::gray, visitLines},
      {"pyramids", "Pyramids",
       "The same picture at smaller and smaller sizes, by halves or by any rate, and back up again; and the Gaussian "
       "blur that each level stands for.",
       Input::gray, visitPyramids},
      {"corners", "Corners",
       "The averaged matrix of slopes around each pixel tells flat areas, edges and corners apart: at a corner the "
       "brightness changes in every direction, so both eigenvalues are high.",
       Input::gray, visitCorners},
      {"tracking", "Tracking",
       "Points followed from the picture to a warped copy of it, through a pyramid of four levels: the coarse levels "
       "find the large motion, the fine ones its fractions of a pixel.",
       Input::gray, visitTracking},
      {"morphology", "Morphology",
       "Extremes over a neighbourhood of any shape, here a disc of 9 pixels, alone and in chains; and reconstruction, "
       "which "
       "lets a marker grow under a picture until nothing changes any more.",
       Input::gray, visitMorphology},
      {"distances", "Distances",
       "How far it is from every pixel to the nearest edge. Chamfer distances add up steps between neighbours in two "
       "passes over the picture; the more kinds of steps, the rounder the shapes. The true distance is exact. The "
       "edges "
       "come from the Canny detector; the times are those of the distances alone.",
       Input::gray, visitDistances},
      {"inpainting", "Inpainting",
       "A scratched photograph restored: each lost pixel is filled from the known ones around it, from the edge of the "
       "damage inward, in the order of its distance from that edge.",
       Input::gray, visitInpainting},
      {"floodfill", "Flood fill",
       "Fills that start at one pixel and spread to its neighbours: over equal pixels, over values in a range about "
       "the "
       "seed's, or along small steps wherever they lead. The grey picture stands in three equal channels, so that the "
       "fills show in colour; the times contain a copy of the picture.",
       Input::gray, visitFloodFill},
      {"segments", "Segments",
       "Connected regions get numbers; a watershed separates objects that touch, flooding from the deepest points of "
       "their distance map; and markers on a grid grow into mosaics of the picture, by steepness, by distance or by "
       "similarity.",
       Input::gray, visitSegments},
      {"measures", "Small measures",
       "Which way the brightness rises, three slopes made one, the pixels along a line, and the peaks of a corner "
       "measure: small functions that turn a picture into numbers.",
       Input::gray, visitMeasures},
      {"detection", "Detection",
       "Small marks pasted into the picture, found by stages of weak classifiers: each compares sums over a few "
       "rectangles, and a stage adds up their votes. A short stage clears most windows, so that a longer one has "
       "little "
       "left to look at; a third reads turned rectangles from a tilted plane.",
       Input::gray, visitDetection},
      {"street", "A street, watched",
       "A street made from the picture: two discs drive across it, leaves in its upper right corner sway by a pixel, "
       "and "
       "every frame has grain of its own. Two models learn what the background is and call the rest foreground. The "
       "times are those of one frame.",
       Input::gray, visitStreet},
      {"statistics", "Statistics",
       "What can be said of a picture in numbers, whole, under a mask, or channel by channel.", Input::gray,
       visitStatistics},
      {"contrast", "Local contrast",
       "Integral images hold the sum of all pixels above and to the left of each, so that the sum over any window "
       "takes "
       "four of them, whatever its size. With a second one, of the squares, each window tells how much its pixels "
       "deviate from their mean.",
       Input::gray, visitContrast},
      {"background", "Background and motion",
       "24 frames made from the picture: grain, different in each, and a bright disc that crosses from left to right. "
       "Running sums in float images tell what stays and what changes.",
       Input::gray, visitBackground},
      {"undistortion", "Lens distortion",
       "A lens bends straight lines, the more the further from the middle. Two coefficients describe it, and with them "
       "each pixel of a corrected picture is taken, between four pixels, from where the lens put it. A map of the same "
       "model, with two coefficients more for a lens that sits askew, serves any number of pictures.",
       Input::gray, visitUndistortion},
      {"superresolution", "Super-resolution",
       "Twelve small, noisy pictures of one detail, shifted by fractions of a pixel, know more than any of them: an "
       "iterative solver puts them together again.",
       Input::gray, visitSuperResolution},
  };
  return route;
}

}  // namespace tour
