// Corners: the smaller eigenvalue of the matrix of slopes around each pixel, its highest peaks, and the directions that
// the matrix has.
//
// The peaks are searched and drawn by the tour; the library gives the measures.
#include <cmath>
#include <string>

#include "drawing.h"
#include "station.h"

namespace tour {

namespace {

struct Corner {
  int32_t x, y;
  float strength;
};

}  // namespace

// Pixels above `share` of the greatest value that are the highest of all within `reach`, strongest first, and of those
// with equal strength the first.
static std::vector<Corner> peaksOf(const Image32f& measure, float share, int32_t reach) {
  float greatest = 0;
  for (int32_t y = 0; y < measure.height; ++y) {
    for (int32_t x = 0; x < measure.width; ++x) greatest = std::max(greatest, measure.row(y)[x]);
  }
  const auto isPeak = [&](int32_t x, int32_t y) {
    const float strength = measure.row(y)[x];
    for (int32_t v = std::max(0, y - reach); v <= std::min(measure.height - 1, y + reach); ++v) {
      for (int32_t u = std::max(0, x - reach); u <= std::min(measure.width - 1, x + reach); ++u) {
        const float other = measure.row(v)[u];
        const bool earlier = v < y || (v == y && u < x);
        if (other > strength || (other == strength && earlier)) return false;
      }
    }
    return true;
  };
  std::vector<Corner> peaks;
  for (int32_t y = 0; y < measure.height; ++y) {
    for (int32_t x = 0; x < measure.width; ++x) {
      const float strength = measure.row(y)[x];
      if (strength > share * greatest && strength > 0 && isPeak(x, y)) peaks.push_back({x, y, strength});
    }
  }
  std::stable_sort(peaks.begin(), peaks.end(),
                   [](const Corner& a, const Corner& b) { return a.strength > b.strength; });
  return peaks;
}

void visitCorners(const Picture& picture, Wall& wall) {
  Image8u gray = picture.gray;
  gray.extendEdges();
  const uint8_t* src = gray.data();
  const int32_t srcStep = gray.step();
  const QoriSize roiSize = gray.size();

  Image32f measured(roiSize.width, roiSize.height);
  float* dst = measured.data();
  int32_t dstStep = measured.step();
  hang(wall,
       {"smaller-eigenvalue", "Smaller eigenvalue, Sobel 3×3, mean over 5×5",
        "How strongly the brightness changes in the direction in which it changes least. Flat areas and straight edges "
        "are dark; what changes in all directions is bright. Shown is its square root."},
       {TOUR_STEP_WITH_BUFFER(qoriMinEigenValGetBufferSize_8u32f_C1R(roiSize, 3, 5, &bufferSize),
                              qoriMinEigenVal_8u32f_C1R(src, srcStep, dst, dstStep, roiSize, 0, 3, 5, buffer))},
       measured, [](const Image32f& values) {
         Image32f roots(values.width, values.height);
         for (int32_t y = 0; y < values.height; ++y) {
           for (int32_t x = 0; x < values.width; ++x) {
             roots.row(y)[x] = std::sqrt(std::max(0.0f, values.row(y)[x])) * 16;
           }
         }
         Visible visible = fromZeroAsGray(roots);
         visible.scale = "Black is 0; the upper end is chosen from the picture.";
         return visible;
       });

  const int32_t reach = std::max(3, std::min(roiSize.width, roiSize.height) / 60);
  const auto drawPeaks = [&](const Image32f& values, float share, const uint8_t(&colour)[3]) {
    Image8u drawn = dimmed(gray, 70);
    const std::vector<Corner> peaks = peaksOf(values, share, reach);
    for (const Corner& corner : peaks) {
      circle(drawn, corner.x, corner.y, 4, colour);
      circle(drawn, corner.x, corner.y, 5, colour);
    }
    return Visible{drawn, std::to_string(peaks.size()) + " corners."};
  };
  hang(wall,
       {"corners", "Corners",
        "Its peaks above an eighth of the highest one, drawn by the tour: points that can be found again in the next "
        "picture of a sequence."},
       {TOUR_STEP_WITH_BUFFER(qoriMinEigenValGetBufferSize_8u32f_C1R(roiSize, 3, 5, &bufferSize),
                              qoriMinEigenVal_8u32f_C1R(src, srcStep, dst, dstStep, roiSize, 0, 3, 5, buffer))},
       measured, [&](const Image32f& values) { return drawPeaks(values, 0.125f, yellow); });
  hang(wall,
       {"corners-scharr", "Corners, Scharr, mean over 3×3",
        "With the Scharr filters and a small window finer corners come up; again those above an eighth of the "
        "highest."},
       {TOUR_STEP_WITH_BUFFER(qoriMinEigenValGetBufferSize_8u32f_C1R(roiSize, 3, 3, &bufferSize),
                              qoriMinEigenVal_8u32f_C1R(src, srcStep, dst, dstStep, roiSize, 1, 3, 3, buffer))},
       measured, [&](const Image32f& values) { return drawPeaks(values, 0.125f, orange); });

  Image32f six(roiSize.width, roiSize.height, 6);
  dst = six.data();
  dstStep = six.step();
  hang(wall,
       {"directions", "Directions",
        "Both eigenvalues and eigenvectors. Each stroke runs along the second eigenvector, the direction in which the "
        "brightness changes least: along hair, rims and edges. Where the matrix is nearly singular, or hardly anything "
        "changes, there is none."},
       {TOUR_STEP_WITH_BUFFER(qoriEigenValsVecsGetBufferSize_8u32f_C1R(roiSize, 5, 5, &bufferSize),
                              qoriEigenValsVecs_8u32f_C1R(src, srcStep, dst, dstStep, roiSize, 0, 5, 5, buffer))},
       six, [&](const Image32f& values) {
         Image8u drawn = dimmed(gray, 45);
         constexpr int32_t cell = 8;
         for (int32_t y0 = 0; y0 < roiSize.height; y0 += cell) {
           for (int32_t x0 = 0; x0 < roiSize.width; x0 += cell) {
             // The pixel of the cell that changes most.
             const float* best = nullptr;
             int32_t bestX = 0, bestY = 0;
             for (int32_t y = y0; y < std::min(y0 + cell, roiSize.height); ++y) {
               for (int32_t x = x0; x < std::min(x0 + cell, roiSize.width); ++x) {
                 const float* pixel = values.row(y) + ptrdiff_t{6} * x;
                 if (!best || pixel[0] > best[0]) best = pixel, bestX = x, bestY = y;
               }
             }
             if (best[0] < 1.0f) continue;
             const double dx = best[4] * (cell + 1) / 2, dy = best[5] * (cell + 1) / 2;
             line(drawn, bestX - dx, bestY - dy, bestX + dx, bestY + dy, cyan);
           }
         }
         return Visible{drawn, "One stroke in each square of 8 by 8 pixels, at its strongest pixel."};
       });
}

}  // namespace tour
