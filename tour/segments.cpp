// Segments: connected regions get numbers, touching objects are separated by a watershed of their distance map, and
// markers on a grid grow into a mosaic of the picture.
//
// The tour picks the level that splits the picture, the peaks of the distance map and the markers; the library does the
// rest.
#include <algorithm>
#include <cmath>
#include <memory>
#include <string>

#include "drawing.h"
#include "station.h"

namespace tour {

using Image16u = Image<uint16_t>;

static constexpr uint16_t background = 65534;

// The level that splits the grey values into two groups that vary least within themselves.
static int32_t splitLevel(const Image8u& picture) {
  double count[256] = {}, all = 0, sum = 0;
  for (int32_t y = 0; y < picture.height; ++y) {
    for (int32_t x = 0; x < picture.width; ++x) count[picture.row(y)[x]] += 1;
  }
  for (int32_t v = 0; v < 256; ++v) {
    all += count[v];
    sum += v * count[v];
  }
  int32_t best = 0;
  double most = -1, below = 0, sumBelow = 0;
  for (int32_t v = 0; v < 255; ++v) {
    below += count[v];
    sumBelow += v * count[v];
    if (below == 0 || below == all) continue;
    const double apart = sumBelow / below - (sum - sumBelow) / (all - below);
    if (below * (all - below) * apart * apart > most) {
      most = below * (all - below) * apart * apart;
      best = v;
    }
  }
  return best;
}

// 255 where the picture, averaged over a few pixels, is above the level.
static Image8u brighterThan(const Image8u& picture, int32_t level) {
  Image8u mask(picture.width, picture.height);
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) {
      int32_t sum = 0, count = 0;
      for (int32_t v = std::max(0, y - 2); v <= std::min(mask.height - 1, y + 2); ++v) {
        for (int32_t u = std::max(0, x - 2); u <= std::min(mask.width - 1, x + 2); ++u) {
          sum += picture.row(v)[u];
          ++count;
        }
      }
      mask.row(y)[x] = sum > level * count ? 255 : 0;
    }
  }
  return mask;
}

// Colours that are easy to tell apart, by number.
static void colourOf(int32_t label, uint8_t* colour) {
  const double hue = label * 137.508;
  for (int32_t c = 0; c < 3; ++c) {
    const double wave = std::cos((hue - 120 * c) * 3.14159265358979323846 / 180);
    colour[c] = static_cast<uint8_t>(std::lround(150 + 95 * wave));
  }
}

// The picture, with a colour for each label: 0 and the background's left grey and dark, borders white.
template <class T>
static Image8u falseColours(const Image8u& gray, const Image<T>& labels, T dark, T border) {
  Image8u shown = dimmed(gray, 40);
  for (int32_t y = 0; y < shown.height; ++y) {
    for (int32_t x = 0; x < shown.width; ++x) {
      const T label = labels.row(y)[x];
      if (label == 0 || label == dark) continue;
      uint8_t colour[3] = {255, 255, 255};
      if (label != border) {
        colourOf(label, colour);
        for (uint8_t& channel : colour) channel = static_cast<uint8_t>(channel * (64 + gray.row(y)[x]) / 320);
      }
      dot(shown, x, y, colour);
    }
  }
  return shown;
}

// Every segment in its mean grey or colour, borders dark.
template <class T>
static Image8u mosaic(const Image8u& picture, const Image<T>& labels, T border) {
  std::vector<double> sums(size_t{65536} * 4);
  const auto sumsOf = [&](int32_t x, int32_t y) { return sums.data() + size_t{4} * labels.row(y)[x]; };
  for (int32_t y = 0; y < picture.height; ++y) {
    for (int32_t x = 0; x < picture.width; ++x) {
      sumsOf(x, y)[3] += 1;
      for (int32_t c = 0; c < 3; ++c) sumsOf(x, y)[c] += picture.row(y)[picture.channels == 3 ? 3 * x + c : x];
    }
  }
  Image8u shown(picture.width, picture.height, 3);
  for (int32_t y = 0; y < picture.height; ++y) {
    for (int32_t x = 0; x < picture.width; ++x) {
      if (labels.row(y)[x] >= border) continue;
      for (int32_t c = 0; c < 3; ++c) {
        shown.row(y)[3 * x + c] = static_cast<uint8_t>(std::lround(sumsOf(x, y)[c] / sumsOf(x, y)[3]));
      }
    }
  }
  return shown;
}

// A step that works in place gets what it starts from before every run.
template <class T>
static Step startingFrom(const Image<T>& original, Image<T>& image, Step step) {
  const auto start = std::make_shared<const Image<T>>(original);
  step.call = [start, data = image.data(), call = step.call](uint8_t* buffer) {
    for (int32_t y = 0; y < start->height; ++y)
      std::copy_n(start->row(y), start->width, data + ptrdiff_t{y} * start->pitch);
    return call(buffer);
  };
  return step;
}

// Small dark regions become part of what surrounds them.
static void fillHoles(Image8u& mask) {
  Image16u holes(mask.width, mask.height);
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) holes.row(y)[x] = mask.row(y)[x] == 0;
  }
  uint16_t* srcDst = holes.data();
  const int32_t srcDstStep = holes.step();
  const QoriSize roiSize = holes.size();
  int32_t count = 0;
  int32_t* markersNum = &count;
  run({TOUR_STEP_WITH_BUFFER(
      qoriLabelMarkersGetBufferSize_16u_C1R(roiSize, &bufferSize),
      qoriLabelMarkers_16u_C1IR(srcDst, srcDstStep, roiSize, 1, 65534, qorNormL1, markersNum, buffer))});
  std::vector<int32_t> area(65536);
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) ++area[holes.row(y)[x]];
  }
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) {
      if (area[holes.row(y)[x]] < mask.width * mask.height / 400) mask.row(y)[x] = 255;
    }
  }
}

// Peaks of the distance map that are the highest within half of their own height, or one of several such.
static Image16u peaksOf(const Image32f& distance, const Image8u& mask) {
  Image16u peaks(distance.width, distance.height);
  for (int32_t y = 0; y < distance.height; ++y) {
    for (int32_t x = 0; x < distance.width; ++x) {
      const float height = distance.row(y)[x];
      if (mask.row(y)[x] == 0 || height < 2) continue;
      const int32_t reach = static_cast<int32_t>(std::min(40.0f, std::max(3.0f, 0.5f * height)));
      bool highest = true;
      for (int32_t v = std::max(0, y - reach); highest && v <= std::min(distance.height - 1, y + reach); ++v) {
        for (int32_t u = std::max(0, x - reach); highest && u <= std::min(distance.width - 1, x + reach); ++u) {
          highest = distance.row(v)[u] <= height;
        }
      }
      if (highest) peaks.row(y)[x] = 1;
    }
  }
  return peaks;
}

// A frame of steepness: how much a pixel differs from its neighbours, amplified.
static Image8u steepness(const Image8u& gray) {
  Image8u relief(gray.width, gray.height);
  for (int32_t y = 0; y < gray.height; ++y) {
    const uint8_t *above = gray.row(std::max(0, y - 1)), *below = gray.row(std::min(gray.height - 1, y + 1));
    for (int32_t x = 0; x < gray.width; ++x) {
      const int32_t left = std::max(0, x - 1), right = std::min(gray.width - 1, x + 1);
      const double dx = gray.row(y)[right] - gray.row(y)[left], dy = below[x] - above[x];
      relief.row(y)[x] = static_cast<uint8_t>(std::min(255.0, 2 * std::hypot(dx, dy)));
    }
  }
  return relief;
}

// One marker in each cell of a grid, on the flattest pixel near its middle.
template <class T>
static Image<T> gridMarkers(const Image8u& relief, int32_t& count) {
  const int32_t width = relief.width, height = relief.height;
  Image<T> markers(width, height);
  const int32_t cell =
      std::max(3, static_cast<int32_t>(std::ceil(std::sqrt(width * static_cast<double>(height) / 180))));
  const int32_t columns = std::min(15, std::max(1, width / cell)), rows = std::min(15, std::max(1, height / cell));
  count = 0;
  for (int32_t row = 0; row < rows; ++row) {
    for (int32_t column = 0; column < columns; ++column) {
      const int32_t middleX = (2 * column + 1) * width / (2 * columns), middleY = (2 * row + 1) * height / (2 * rows);
      int32_t x = middleX, y = middleY;
      for (int32_t v = std::max(0, middleY - cell / 4); v <= std::min(height - 1, middleY + cell / 4); ++v) {
        for (int32_t u = std::max(0, middleX - cell / 4); u <= std::min(width - 1, middleX + cell / 4); ++u) {
          if (relief.row(v)[u] < relief.row(y)[x]) x = u, y = v;
        }
      }
      markers.row(y)[x] = static_cast<T>(++count);
    }
  }
  return markers;
}

static void showRegions(const Picture& picture, const Image8u& mask, int32_t level, Wall& wall) {
  Image8u labels(mask.width, mask.height);
  uint8_t* srcDst = labels.data();
  const int32_t srcDstStep = labels.step(), minLabel = 1, maxLabel = 254;
  const QoriSize roiSize = labels.size();
  const auto count = std::make_shared<int32_t>(0);
  int32_t* markersNum = count.get();
  const Step step = startingFrom(
      mask, labels,
      TOUR_STEP_WITH_BUFFER(
          qoriLabelMarkersGetBufferSize_8u_C1R(roiSize, &bufferSize),
          qoriLabelMarkers_8u_C1IR(srcDst, srcDstStep, roiSize, minLabel, maxLabel, qorNormInf, markersNum, buffer)));
  const Times times = measure({step}, labels);
  wall.push_back({{"labels", "Connected regions",
                   "What is brighter than " + std::to_string(level) +
                       ", small holes filled: " + std::to_string(*count) + (*count == 1 ? " region" : " regions") +
                       ", each in a colour of its own. Objects that touch " + "are one region."},
                  codeOf({step}),
                  times,
                  asItIs(falseColours<uint8_t>(picture.gray, labels, 0, 255))});
}

static void showObjects(const Picture& picture, const Image8u& mask, Wall& wall) {
  const QoriSize roiSize = mask.size();
  Image32f distance(mask.width, mask.height);
  const uint8_t* src = mask.data();
  float* dst = distance.data();
  const int32_t srcStep = mask.step(), dstStep = distance.step();
  run({TOUR_STEP_WITH_BUFFER(qoriTrueDistanceTransformGetBufferSize_8u32f_C1R(roiSize, &bufferSize),
                             qoriTrueDistanceTransform_8u32f_C1R(src, srcStep, dst, dstStep, roiSize, buffer))});

  // Peaks get numbers; one more number for the ground.
  Image16u labels = peaksOf(distance, mask);
  uint16_t* srcDst = labels.data();
  const int32_t srcDstStep = labels.step();
  int32_t found = 0;
  int32_t* markersNum = &found;
  run({TOUR_STEP_WITH_BUFFER(
      qoriLabelMarkersGetBufferSize_16u_C1R(roiSize, &bufferSize),
      qoriLabelMarkers_16u_C1IR(srcDst, srcDstStep, roiSize, 1, 65533, qorNormInf, markersNum, buffer))});
  float highest = 1;
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) {
      if (mask.row(y)[x] != 0) highest = std::max(highest, std::min(distance.row(y)[x], 1000.0f));
    }
  }
  Image8u relief(mask.width, mask.height);
  for (int32_t y = 0; y < mask.height; ++y) {
    for (int32_t x = 0; x < mask.width; ++x) {
      if (mask.row(y)[x] == 0) labels.row(y)[x] = background;
      relief.row(y)[x] = static_cast<uint8_t>(255 - std::lround(255 * std::min(1.0f, distance.row(y)[x] / highest)));
    }
  }

  Image16u segments = labels;
  const uint8_t* heights = relief.data();
  uint16_t* markers = segments.data();
  const int32_t heightStep = relief.step(), markerStep = segments.step(), flag = qorSegmentQueue;
  const Step flood = startingFrom(
      labels, segments,
      TOUR_STEP_WITH_BUFFER(
          qoriSegmentWatershedGetBufferSize_8u16u_C1R(roiSize, &bufferSize),
          qoriSegmentWatershed_8u16u_C1IR(heights, heightStep, markers, markerStep, roiSize, qorNormL1, flag, buffer)));
  const Times floodTimes = measure({flood}, segments);
  wall.push_back({{"objects", "Objects that touch, separated",
                   "The same regions as a landscape: the further a pixel lies inside, the deeper. Each of the " +
                       std::to_string(found) +
                       " lowest points is a marker, and the watershed floods from all of them at once; where two "
                       "floods meet, an object ends."},
                  codeOf({flood}),
                  floodTimes,
                  asItIs(falseColours<uint16_t>(picture.gray, segments, background, 65535))});

  const Image16u before = segments;
  Image16u outlines = segments;
  uint16_t* lines = outlines.data();
  const int32_t lineStep = outlines.step();
  const Step bound =
      startingFrom(before, outlines, TOUR_STEP(qoriBoundSegments_16u_C1IR(lines, lineStep, roiSize, 65535, qorNormL1)));
  const Times boundTimes = measure({bound}, outlines);
  Image8u shown = dimmed(picture.gray, 75);
  for (int32_t y = 0; y < shown.height; ++y) {
    for (int32_t x = 0; x < shown.width; ++x) {
      if (outlines.row(y)[x] == 65535) dot(shown, x, y, yellow);
    }
  }
  wall.push_back({{"bounds", "Outlines", "Lines, one pixel wide, wherever two different labels meet."},
                  codeOf({bound}),
                  boundTimes,
                  asItIs(shown)});
}

static void showMosaics(const Picture& picture, Wall& wall) {
  const Image8u& seen = picture.colour.empty() ? picture.gray : picture.colour;
  const Image8u relief = steepness(picture.gray);
  const QoriSize roiSize = relief.size();
  int32_t count = 0;
  const Image8u grid = gridMarkers<uint8_t>(relief, count);
  const std::string markersOnGrid = count == 1 ? "One marker grows" : std::to_string(count) + " markers on a grid grow";

  Image8u segments = grid;
  const uint8_t* src = relief.data();
  uint8_t* markers = segments.data();
  const int32_t srcStep = relief.step(), markerStep = segments.step();
  const int32_t queue = qorSegmentQueue | qorSegmentBorder4, sweeps = qorSegmentDistance;
  const Step flood = startingFrom(
      grid, segments,
      TOUR_STEP_WITH_BUFFER(
          qoriSegmentWatershedGetBufferSize_8u_C1R(roiSize, &bufferSize),
          qoriSegmentWatershed_8u_C1IR(src, srcStep, markers, markerStep, roiSize, qorNormL1, queue, buffer)));
  const Times floodTimes = measure({flood}, segments);
  wall.push_back({{"mosaic", "A mosaic from a flood",
                   markersOnGrid + " over the steepness of the picture, with borders where two meet. Each segment is "
                                   "shown in its mean, borders in black."},
                  codeOf({flood}),
                  floodTimes,
                  asItIs(mosaic<uint8_t>(seen, segments, 255))});

  const Step sweep = startingFrom(
      grid, segments,
      TOUR_STEP_WITH_BUFFER(
          qoriSegmentWatershedGetBufferSize_8u_C1R(roiSize, &bufferSize),
          qoriSegmentWatershed_8u_C1IR(src, srcStep, markers, markerStep, roiSize, qorNormFM, sweeps, buffer)));
  // Not compared: where two labels cost the same, several threads may choose otherwise than one.
  const Times sweepTimes = measure({sweep}, &count, sizeof count);
  wall.push_back({{"sweeps", "A mosaic from sweeps",
                   "The same markers; of the paths to a pixel whose summit is equally low, the shortest counts, so "
                   "flat areas are shared out by distance."},
                  codeOf({sweep}),
                  sweepTimes,
                  asItIs(mosaic<uint8_t>(seen, segments, 255))});

  const uint8_t* pixels = seen.data();
  const int32_t pixelStep = seen.step(), flag = qorSegmentBorder4;
  const Step grow = startingFrom(
      grid, segments,
      seen.channels == 3 ? TOUR_STEP_WITH_BUFFER(qoriSegmentGradientGetBufferSize_8u_C3R(roiSize, &bufferSize),
                                                 qoriSegmentGradient_8u_C3IR(pixels, pixelStep, markers, markerStep,
                                                                             roiSize, qorNormL1, flag, buffer))
                         : TOUR_STEP_WITH_BUFFER(qoriSegmentGradientGetBufferSize_8u_C1R(roiSize, &bufferSize),
                                                 qoriSegmentGradient_8u_C1IR(pixels, pixelStep, markers, markerStep,
                                                                             roiSize, qorNormL1, flag, buffer)));
  const Times growTimes = measure({grow}, segments);
  wall.push_back({{"growth", "A mosaic from similar neighbours",
                   "The same markers; whichever pixel resembles a labelled neighbour most comes next. Even areas are "
                   "filled before any edge is crossed."},
                  codeOf({grow}),
                  growTimes,
                  asItIs(mosaic<uint8_t>(seen, segments, 254))});
}

void visitSegments(const Picture& picture, Wall& wall) {
  const int32_t level = splitLevel(picture.gray);
  Image8u mask = brighterThan(picture.gray, level);
  fillHoles(mask);
  showRegions(picture, mask, level, wall);
  showObjects(picture, mask, wall);
  showMosaics(picture, wall);
}

}  // namespace tour
