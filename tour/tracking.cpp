// Points tracked from a picture to a warped copy of it.
//
// The tour makes the copy (turned, enlarged and moved a little), so it knows where every point must be found. Points
// are the best corner of each cell of a grid.
#include <algorithm>
#include <cmath>
#include <cstdio>
#include <memory>

#include "drawing.h"
#include "failure.h"
#include "station.h"

namespace tour {

namespace {

constexpr int32_t winSize = 21, mostLevels = 3, maxIter = 20;
constexpr float threshold = 0.01f;

// From a position in the picture to the same in the copy, about the picture's middle, and back.
struct Warp {
  double middleX, middleY, cosine, sine, shiftX, shiftY;

  Warp(QoriSize size, double degrees, double scale, double x, double y)
      : middleX((size.width - 1) * 0.5), middleY((size.height - 1) * 0.5), shiftX(x), shiftY(y) {
    const double angle = degrees * 3.14159265358979323846 / 180;
    cosine = scale * std::cos(angle);
    sine = scale * std::sin(angle);
  }
  void there(double x, double y, double& u, double& v) const {
    u = middleX + shiftX + cosine * (x - middleX) - sine * (y - middleY);
    v = middleY + shiftY + sine * (x - middleX) + cosine * (y - middleY);
  }
  void back(double u, double v, double& x, double& y) const {
    const double a = u - middleX - shiftX, b = v - middleY - shiftY, square = cosine * cosine + sine * sine;
    x = middleX + (cosine * a + sine * b) / square;
    y = middleY + (cosine * b - sine * a) / square;
  }
};

struct FreePyramid {
  void operator()(QoriPyramid* pyramid) const { qoriPyramidFree(pyramid); }
};
struct FreeState {
  void operator()(QoriOptFlowState* state) const { qoriOpticalFlowPyrLKFree_8u_C1R(state); }
};

// Levels of half the size each, and their record.
struct Levels {
  std::vector<Image8u> images;
  std::unique_ptr<QoriPyramid, FreePyramid> pyramid;
};

}  // namespace

static Image8u warped(const Image8u& picture, const Warp& warp) {
  Image8u copy(picture.width, picture.height);
  for (int32_t v = 0; v < copy.height; ++v) {
    for (int32_t u = 0; u < copy.width; ++u) {
      double x, y;
      warp.back(u, v, x, y);
      x = std::max(0.0, std::min(picture.width - 1.0, x));
      y = std::max(0.0, std::min(picture.height - 1.0, y));
      const int32_t left = static_cast<int32_t>(x), top = static_cast<int32_t>(y);
      const int32_t right = std::min(left + 1, picture.width - 1), below = std::min(top + 1, picture.height - 1);
      const double a = x - left, b = y - top;
      const double value = (picture.row(top)[left] * (1 - a) + picture.row(top)[right] * a) * (1 - b) +
                           (picture.row(below)[left] * (1 - a) + picture.row(below)[right] * a) * b;
      copy.row(v)[u] = static_cast<uint8_t>(std::lround(value));
    }
  }
  return copy;
}

static Levels levelsOf(const Image8u& picture) {
  Levels levels;
  QoriPyramid* pyramid = nullptr;
  require("qoriPyramidInitAlloc", qoriPyramidInitAlloc(&pyramid, mostLevels, picture.size(), 2.0f));
  levels.pyramid.reset(pyramid);
  levels.images.push_back(picture);
  for (int32_t l = 1; l <= pyramid->topLevel; ++l) {
    const Image8u& larger = levels.images.back();
    const QoriSize size = larger.size();
    Image8u image(pyramid->levelSizes[l].width, pyramid->levelSizes[l].height);
    const uint8_t* src = larger.data();
    uint8_t* dst = image.data();
    const int32_t srcStep = larger.step(), dstStep = image.step();
    run({TOUR_STEP_WITH_BUFFER(qoriPyrDownGetBufSize_Gauss5x5(size.width, qor8u, 1, &bufferSize),
                               qoriPyrDown_Gauss5x5_8u_C1R(src, srcStep, dst, dstStep, size, buffer))});
    levels.images.push_back(std::move(image));
  }
  for (int32_t l = 0; l <= pyramid->topLevel; ++l) {
    pyramid->levelImages[l] = levels.images[static_cast<size_t>(l)].data();
    pyramid->levelSteps[l] = levels.images[static_cast<size_t>(l)].step();
  }
  return levels;
}

// The pixel of the largest smaller eigenvalue in each cell.
static std::vector<QoriPoint_32f> cornersOf(Image8u picture, int32_t cell) {
  picture.extendEdges();
  const QoriSize roiSize = picture.size();
  Image32f measure(roiSize.width, roiSize.height);
  const uint8_t* src = picture.data();
  float* dst = measure.data();
  const int32_t srcStep = picture.step(), dstStep = measure.step();
  run({TOUR_STEP_WITH_BUFFER(qoriMinEigenValGetBufferSize_8u32f_C1R(roiSize, 3, 3, &bufferSize),
                             qoriMinEigenVal_8u32f_C1R(src, srcStep, dst, dstStep, roiSize, 0, 3, 3, buffer))});
  std::vector<QoriPoint_32f> corners;
  for (int32_t top = 0; top < roiSize.height; top += cell) {
    for (int32_t left = 0; left < roiSize.width; left += cell) {
      int32_t bestX = left, bestY = top;
      for (int32_t y = top; y < std::min(top + cell, roiSize.height); ++y) {
        for (int32_t x = left; x < std::min(left + cell, roiSize.width); ++x) {
          if (measure.row(y)[x] > measure.row(bestY)[bestX]) bestX = x, bestY = y;
        }
      }
      corners.push_back({static_cast<float>(bestX), static_cast<float>(bestY)});
    }
  }
  return corners;
}

void visitTracking(const Picture& picture, Wall& wall) {
  const QoriSize roiSize = picture.gray.size();
  const Warp warp(roiSize, 2, 1.015, 6.3, -4.4);
  const Image8u moved = warped(picture.gray, warp);
  const Levels first = levelsOf(picture.gray), second = levelsOf(moved);
  const std::vector<QoriPoint_32f> points = cornersOf(picture.gray, std::max(8, roiSize.width / 24));
  const int32_t numPoints = static_cast<int32_t>(points.size());

  // Results as rows of pixels, so that they can be compared like a picture.
  Image32f found(2 * numPoints, 1);
  std::vector<uint8_t> lost(points.size());
  std::vector<float> errors(points.size());
  const QoriPyramid *pyr1 = first.pyramid.get(), *pyr2 = second.pyramid.get();
  const QoriPoint_32f* prevPts = points.data();
  auto* nextPts = reinterpret_cast<QoriPoint_32f*>(found.data());
  uint8_t* status = lost.data();
  float* error = errors.data();
  const int32_t maxLevel = pyr1->topLevel;
  QoriOptFlowState* state = nullptr;
  require("qoriOpticalFlowPyrLKInitAlloc_8u_C1R", qoriOpticalFlowPyrLKInitAlloc_8u_C1R(&state, roiSize, winSize, 0));
  const std::unique_ptr<QoriOptFlowState, FreeState> owner(state);
  Step track = TOUR_STEP(qoriOpticalFlowPyrLK_8u_C1R(pyr1, pyr2, prevPts, nextPts, status, error, numPoints, winSize,
                                                     maxLevel, maxIter, threshold, state));
  // Every run starts from the same guesses: nothing has moved.
  track.call = [prevPts, nextPts, numPoints, call = track.call](uint8_t* buffer) {
    std::copy_n(prevPts, numPoints, nextPts);
    return call(buffer);
  };
  const Times times = measure({track}, found);

  Image8u arrows = dimmed(picture.gray, 55);
  std::vector<double> distances;
  for (size_t i = 0; i < points.size(); ++i) {
    const double x = points[i].x, y = points[i].y;
    if (status[i] != 0) {
      circle(arrows, static_cast<int32_t>(points[i].x), static_cast<int32_t>(points[i].y), 3, red);
      continue;
    }
    double u, v;
    warp.there(x, y, u, v);
    distances.push_back(std::hypot(nextPts[i].x - u, nextPts[i].y - v));
    arrow(arrows, x, y, nextPts[i].x, nextPts[i].y, distances.back() < 0.5 ? green : orange);
  }
  std::sort(distances.begin(), distances.end());
  const size_t close =
      static_cast<size_t>(std::lower_bound(distances.begin(), distances.end(), 0.5) - distances.begin());
  char found50[32];
  snprintf(found50, sizeof found50, "%.2f", distances.empty() ? 0.0 : distances[distances.size() / 2]);
  wall.push_back(
      {{"arrows", "From the picture to its copy",
        "The copy is turned by 2 degrees, enlarged by 1.5 percent and moved. Each arrow leads from a point to "
        "where it was found; " +
            std::to_string(close) + " of " + std::to_string(numPoints) +
            " within half a pixel of the truth (green), others further off (orange), " +
            std::to_string(points.size() - distances.size()) +
            " reported as lost (red circles). Half of the points are found to within " + found50 + " pixels."},
       codeOf({track}),
       times,
       asItIs(arrows)});

  Image8u there = dimmed(moved, 80);
  for (size_t i = 0; i < points.size(); ++i) {
    if (status[i] != 0) continue;
    circle(there, static_cast<int32_t>(std::lround(nextPts[i].x)), static_cast<int32_t>(std::lround(nextPts[i].y)), 2,
           cyan);
  }
  wall.push_back({{"found", "The same points in the copy", "Every point that was tracked, where it was found."},
                  codeOf({track}),
                  times,
                  asItIs(there)});
}

}  // namespace tour
