// Straight lines in the edges of the picture.
//
// A line is found as its distance from the upper left corner and the angle of its normal. Several often lie close
// together; the tour draws the strongest of these only.
#include <cmath>
#include <string>

#include "drawing.h"
#include "edges.h"
#include "station.h"

namespace tour {

namespace {

constexpr int32_t mostLines = 64;
constexpr float degree = 0.0174532925f;

// The lines found, as pixels, so that two runs can be compared: distances and angles, and their number at the end.
struct Lines {
  Image32f values{2 * mostLines + 1, 1};
  QoriPointPolar* data() { return reinterpret_cast<QoriPointPolar*>(values.data()); }
  int32_t* count() { return reinterpret_cast<int32_t*>(values.data() + ptrdiff_t{2} * mostLines); }
};

}  // namespace

// Strongest first, without those that nearly repeat a stronger one, and at most `most` of them.
static std::vector<QoriPointPolar> distinct(Lines& lines, size_t most) {
  std::vector<QoriPointPolar> kept;
  for (int32_t i = 0; i < *lines.count() && kept.size() < most; ++i) {
    const QoriPointPolar& found = lines.data()[i];
    const bool isCopy = std::any_of(kept.begin(), kept.end(), [&](const QoriPointPolar& other) {
      return std::abs(found.rho - other.rho) < 14 && std::abs(found.theta - other.theta) < 6 * degree;
    });
    if (!isCopy) kept.push_back(found);
  }
  return kept;
}

// The line across the picture: bright beside edges, faint elsewhere.
static void draw(Image8u& picture, const Image8u& edges, const QoriPointPolar& found, const Colour& colour) {
  const double c = std::cos(found.theta), s = std::sin(found.theta);
  const auto hasEdge = [&](int32_t x, int32_t y) {
    for (int32_t v = std::max(0, y - 1); v <= std::min(edges.height - 1, y + 1); ++v) {
      for (int32_t u = std::max(0, x - 1); u <= std::min(edges.width - 1, x + 1); ++u) {
        if (edges.row(v)[u] != 0) return true;
      }
    }
    return false;
  };
  const int32_t reach = picture.width + picture.height;
  for (int32_t i = -2 * reach; i <= 2 * reach; ++i) {
    const int32_t x = static_cast<int32_t>(std::lround(c * found.rho - s * i * 0.5));
    const int32_t y = static_cast<int32_t>(std::lround(s * found.rho + c * i * 0.5));
    if (x < 0 || y < 0 || x >= picture.width || y >= picture.height) continue;
    if (hasEdge(x, y)) {
      for (int32_t j = 0; j < 4; ++j) dot(picture, x + j % 2, y + j / 2, colour);
    } else {
      const Colour faint = {static_cast<uint8_t>(colour[0] / 2), static_cast<uint8_t>(colour[1] / 2),
                            static_cast<uint8_t>(colour[2] / 2)};
      dot(picture, x, y, faint);
    }
  }
}

// The strongest line is drawn last, in a colour of its own.
static void drawAll(Image8u& picture, const Image8u& edges, const std::vector<QoriPointPolar>& lines,
                    const Colour& colour, const Colour& strongest) {
  for (size_t i = lines.size(); i-- > 0;) draw(picture, edges, lines[i], i == 0 ? strongest : colour);
}

static std::string summary(int32_t found, size_t drawn, int32_t threshold) {
  return std::to_string(found) + (found == 1 ? " line" : " lines") + " with more than " + std::to_string(threshold) +
         " pixels each; " + std::to_string(drawn) + " drawn.";
}

void visitLines(const Picture& picture, Wall& wall) {
  const Image8u edges = edgesOf(picture.gray, 50, 130);
  const uint8_t* src = edges.data();
  const int32_t srcStep = edges.step();
  const QoriSize roiSize = edges.size();
  const QoriPointPolar delta = {1, degree};
  const int32_t maxLineCount = mostLines;
  const int32_t side = std::min(roiSize.width, roiSize.height);

  Lines found;
  QoriPointPolar* lines = found.data();
  int32_t* lineCount = found.count();

  int32_t threshold = std::max(1, side / 12);
  hang(wall,
       {"strongest", "The strongest lines",
        "The edges of the smoothed picture, and the strongest of the lines that they lie on: the first in yellow, then "
        "those that do not nearly repeat a stronger one. A line is bright where it runs along an edge. Steps of one "
        "pixel and one degree."},
       {TOUR_STEP_WITH_BUFFER(
           qoriHoughLineGetSize_8u_C1R(roiSize, delta, maxLineCount, &bufferSize),
           qoriHoughLine_8u32f_C1R(src, srcStep, roiSize, delta, threshold, lines, maxLineCount, lineCount, buffer))},
       found.values, [&](const Image32f&) {
         Image8u drawn = dimmed(edges, 60);
         const std::vector<QoriPointPolar> best = distinct(found, 10);
         drawAll(drawn, edges, best, cyan, yellow);
         return Visible{drawn, summary(*found.count(), best.size(), threshold)};
       });

  // Angles on both sides of an upright line: its normal points to the right, or, a little beyond half a turn, to the
  // left. One search covers one side.
  threshold = std::max(1, side / 15);
  std::vector<Step> steps;
  Image32f both(2 * (2 * mostLines + 1), 1);
  const float reach = static_cast<float>(roiSize.width + roiSize.height);
  const float sides[2][4] = {{-reach, 0, reach, 12 * degree}, {-reach, 168 * degree, reach, 180 * degree}};
  Image32f limits(8, 1);
  for (int32_t i = 0; i < 2; ++i) {
    std::copy_n(sides[i], 4, limits.data() + ptrdiff_t{4} * i);
    float* region = limits.data() + ptrdiff_t{4} * i;
    lines = reinterpret_cast<QoriPointPolar*>(both.data() + ptrdiff_t{2 * mostLines + 1} * i);
    lineCount = reinterpret_cast<int32_t*>(lines + mostLines);
    steps.push_back(
        TOUR_STEP_WITH_BUFFER(qoriHoughLineGetSize_8u_C1R(roiSize, delta, maxLineCount, &bufferSize),
                              qoriHoughLine_Region_8u32f_C1R(src, srcStep, roiSize, lines, region, maxLineCount,
                                                             lineCount, delta, threshold, buffer)));
  }
  hang(wall,
       {"upright", "Nearly upright lines only",
        "Searches of a region: angles of at most 12 degrees from upright, one call for each side. Weaker lines come up "
        "that others would crowd out. The strongest of each side in yellow and green."},
       steps, both, [&](const Image32f& values) {
         Image8u drawn = dimmed(picture.gray, 45);
         int32_t all = 0;
         size_t few = 0;
         for (int32_t i = 0; i < 2; ++i) {
           Lines half;
           std::copy_n(values.data() + ptrdiff_t{2 * mostLines + 1} * i, 2 * mostLines + 1, half.values.data());
           const std::vector<QoriPointPolar> best = distinct(half, 4);
           drawAll(drawn, edges, best, orange, i == 0 ? yellow : green);
           all += *half.count();
           few += best.size();
         }
         return Visible{drawn, summary(all, few, threshold)};
       });

  // Coarse distances: all lines that pass the same four pixels are one.
  const QoriPointPolar coarse = {std::min(4.0f, reach), 2 * degree};
  threshold = std::max(1, side / 6);
  lines = found.data();
  lineCount = found.count();
  hang(wall,
       {"coarse", "Coarse steps",
        "Steps of four pixels and two degrees: edges that are not quite straight count together, and the search takes "
        "a fraction of the time. The strongest line in yellow."},
       {TOUR_STEP_WITH_BUFFER(
           qoriHoughLineGetSize_8u_C1R(roiSize, coarse, maxLineCount, &bufferSize),
           qoriHoughLine_8u32f_C1R(src, srcStep, roiSize, coarse, threshold, lines, maxLineCount, lineCount, buffer))},
       found.values, [&](const Image32f&) {
         Image8u drawn = dimmed(picture.gray, 45);
         const std::vector<QoriPointPolar> best = distinct(found, 10);
         drawAll(drawn, edges, best, cyan, yellow);
         return Visible{drawn, summary(*found.count(), best.size(), threshold)};
       });
}

}  // namespace tour
