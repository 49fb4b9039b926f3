// Small measures: directions of slopes by the fast arctangent, slopes in three channels made gray, the pixels along a
// line, and local extrema.
#include <cmath>
#include <cstdio>
#include <cstring>
#include <string>

#include "drawing.h"
#include "station.h"

namespace tour {

namespace {

// Slopes of a picture of one or three channels, along the rows and down the columns.
struct Slopes {
  Image16s across, down;
};

}  // namespace

static Image8u channelOf(const Image8u& picture, int32_t channel) {
  Image8u one(picture.width, picture.height);
  for (int32_t y = 0; y < one.height; ++y) {
    for (int32_t x = 0; x < one.width; ++x) one.row(y)[x] = picture.row(y)[ptrdiff_t{picture.channels} * x + channel];
  }
  one.extendEdges();
  return one;
}

static Slopes slopesOf(const Image8u& gray) {
  const QoriSize roiSize = gray.size();
  Slopes slopes = {Image16s(roiSize.width, roiSize.height), Image16s(roiSize.width, roiSize.height)};
  const uint8_t* src = gray.data();
  int16_t *dx = slopes.across.data(), *dy = slopes.down.data();
  const int32_t srcStep = gray.step(), dstStep = slopes.across.step();
  run({TOUR_STEP_WITH_BUFFER(qoriFilterSobelNegVertGetBufferSize_8u16s_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                             qoriFilterSobelNegVertBorder_8u16s_C1R(src, srcStep, dx, dstStep, roiSize, qorMaskSize3x3,
                                                                    qorBorderReplicate, 0, buffer)),
       TOUR_STEP_WITH_BUFFER(qoriFilterSobelHorizGetBufferSize_8u16s_C1R(roiSize, qorMaskSize3x3, &bufferSize),
                             qoriFilterSobelHorizBorder_8u16s_C1R(src, srcStep, dy, dstStep, roiSize, qorMaskSize3x3,
                                                                  qorBorderReplicate, 0, buffer))});
  return slopes;
}

static uint8_t level(double value) { return static_cast<uint8_t>(std::lround(std::min(255.0, std::max(0.0, value)))); }

// A direction as a colour of the wheel.
static void hueOf(double degrees, double brightness, uint8_t* pixel) {
  for (int32_t c = 0; c < 3; ++c) {
    const double from = std::fmod(degrees - 120 * c + 720, 360) / 60, away = std::min(from, 6 - from);
    pixel[c] = level(brightness * std::min(1.0, std::max(0.0, 2 - away)));
  }
}

static void visitDirections(const Slopes& slopes, Wall& wall) {
  const int32_t width = slopes.across.width, height = slopes.across.height, length = width * height;
  // One long row: directions know no lines.
  Image32f y(length, 1), x(length, 1), degrees(length, 1);
  for (int32_t i = 0; i < length; ++i) {
    y.row(0)[i] = slopes.down.row(i / width)[i % width];
    x.row(0)[i] = slopes.across.row(i / width)[i % width];
  }
  const float *srcY = y.data(), *srcX = x.data();
  float* dst = degrees.data();
  hang(wall,
       {"gradient-directions", "Directions of the slopes",
        "Which way the brightness rises, by an arctangent of two terms. Hue is the direction: red to the right, and on "
        "through yellow, green and blue around the wheel, clockwise. Brightness is the strength of the slope."},
       {TOUR_STEP(qoribFastArctan_32f(srcY, srcX, dst, length))}, degrees, [&](const Image32f& values) {
         Image8u hues(width, height, 3);
         double furthest = 0;
         for (int32_t i = 0; i < length; ++i) {
           const double strength = std::hypot(x.row(0)[i], y.row(0)[i]);
           hueOf(values.row(0)[i], 16 * std::sqrt(strength), hues.row(i / width) + ptrdiff_t{3} * (i % width));
           if (strength == 0) continue;
           const double exact = std::atan2(y.row(0)[i], x.row(0)[i]) * 180 / 3.14159265358979323846;
           furthest = std::max(furthest, std::abs(std::remainder(values.row(0)[i] - exact, 360)));
         }
         char text[96];
         snprintf(text, sizeof text, "No direction is further than %.2f degrees from the exact one.", furthest);
         return Visible{hues, text};
       });
}

static void visitGray(const Picture& picture, const Slopes& gray, Wall& wall) {
  const int32_t width = gray.across.width, height = gray.across.height;
  const QoriSize roiSize = {width, height};
  // The slopes of the three channels; without colour, the slopes across, down, and along the diagonal.
  const bool colour = !picture.colour.empty();
  Image8u strengths(width, height, 3);
  for (int32_t c = 0; c < 3; ++c) {
    const Slopes slopes = colour ? slopesOf(channelOf(picture.colour, c)) : gray;
    for (int32_t y = 0; y < height; ++y) {
      for (int32_t x = 0; x < width; ++x) {
        const double dx = slopes.across.row(y)[x], dy = slopes.down.row(y)[x];
        const double strength = colour   ? std::hypot(dx, dy)
                                : c == 0 ? std::abs(dx)
                                : c == 1 ? std::abs(dy)
                                         : std::abs(dx + dy) / std::sqrt(2.0);
        strengths.row(y)[ptrdiff_t{3} * x + c] = level(strength / 2);
      }
    }
  }
  const std::string from =
      colour ? "The slopes of the three channels as one: " : "The slopes across, down and along the diagonal as one: ";
  Image8u result(width, height);
  const uint8_t* src = strengths.data();
  const int32_t srcStep = strengths.step(), dstStep = result.step();
  uint8_t* dst = result.data();
  hang(wall, {"gray-largest", "The largest of three slopes", from + "the largest counts."},
       {TOUR_STEP(qoriGradientColorToGray_8u_C3C1R(src, srcStep, dst, dstStep, roiSize, 0))}, result, amplified);
  hang(wall, {"gray-mean", "The mean of three slopes", from + "their mean."},
       {TOUR_STEP(qoriGradientColorToGray_8u_C3C1R(src, srcStep, dst, dstStep, roiSize, 1))}, result, amplified);
  hang(wall,
       {"gray-root", "The root mean square of three slopes",
        from + "the root of the mean of their squares, between the other two."},
       {TOUR_STEP(qoriGradientColorToGray_8u_C3C1R(src, srcStep, dst, dstStep, roiSize, 2))}, result, amplified);
}

static void visitProfile(const Image8u& gray, Wall& wall) {
  const QoriSize roiSize = gray.size();
  const QoriPoint pt1 = {roiSize.width / 12, roiSize.height * 3 / 4};
  const QoriPoint pt2 = {roiSize.width - 1 - roiSize.width / 12, roiSize.height / 3};
  const int32_t count = std::max(std::abs(pt2.x - pt1.x), std::abs(pt2.y - pt1.y)) + 1;
  Image8u samples(count, 1);
  const uint8_t* src = gray.data();
  const int32_t srcStep = gray.step();
  uint8_t* dst = samples.data();
  hang(wall,
       {"profile", "Brightness along a line",
        "The pixels from the left end of the line to its right end, both included, one after the other. Below the "
        "picture they stand as a curve: the higher, the brighter."},
       {TOUR_STEP(qoriSampleLine_8u_C1R(src, srcStep, roiSize, dst, pt1, pt2))}, samples, [&](const Image8u& values) {
         constexpr int32_t plot = 128, margin = 8;
         Image8u drawn(roiSize.width, roiSize.height + plot + 2 * margin, 3);
         const Image8u photograph = dimmed(gray, 75);
         for (int32_t y = 0; y < roiSize.height; ++y) {
           std::copy_n(photograph.row(y), photograph.rowLength(), drawn.row(y));
         }
         for (int32_t i = -1; i <= 1; ++i) line(drawn, pt1.x, pt1.y + i, pt2.x, pt2.y + i, yellow);
         const int32_t bottom = drawn.height - 1 - margin;
         const auto heightOf = [&](int32_t i) { return bottom - values.row(0)[i] * (plot - 1) / 255; };
         const auto columnOf = [&](int32_t i) {
           return pt1.x + (count > 1 ? static_cast<double>(i) * (pt2.x - pt1.x) / (count - 1) : 0.0);
         };
         for (const double part : {0.0, 0.5, 1.0}) {
           const double y = bottom - part * (plot - 1);
           line(drawn, pt1.x, y, pt2.x, y, {70, 70, 70});
         }
         for (int32_t i = 0; i < count; ++i) {
           const int32_t before = std::max(0, i - 1);
           line(drawn, columnOf(before), heightOf(before), columnOf(i), heightOf(i), yellow);
         }
         return Visible{drawn, "The lines in the plot are black, mid-grey and white. " + std::to_string(count) +
                                   (count == 1 ? " pixel." : " pixels.")};
       });
}

static void visitPeaks(const Image8u& gray, Wall& wall) {
  const QoriSize roiSize = gray.size();
  Image32f measure(roiSize.width, roiSize.height);
  {
    const uint8_t* src = gray.data();
    float* dst = measure.data();
    const int32_t srcStep = gray.step(), dstStep = measure.step();
    run({TOUR_STEP_WITH_BUFFER(qoriMinEigenValGetBufferSize_8u32f_C1R(roiSize, 3, 5, &bufferSize),
                               qoriMinEigenVal_8u32f_C1R(src, srcStep, dst, dstStep, roiSize, 0, 3, 5, buffer))});
  }
  // Pictures with a side of one pixel have no inner pixels, and the search refuses them.
  if (std::min(roiSize.width, roiSize.height) < 2) return;
  float greatest = 0;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    for (int32_t x = 0; x < roiSize.width; ++x) greatest = std::max(greatest, measure.row(y)[x]);
  }
  const float threshold = greatest / 20;
  const int32_t maxPeakCount = 4096;
  std::vector<QoriPoint> positions(static_cast<size_t>(maxPeakCount));
  // The number of peaks, as an image of one value, so that it can be compared like one.
  Image32s number(1, 1);
  const float* src = measure.data();
  const int32_t srcStep = measure.step();
  QoriPoint* peak = positions.data();
  int32_t* peakCount = number.data();
  const auto draw = [&](const Image32s& found, const uint8_t(&colour)[3]) {
    Image8u drawn = dimmed(gray, 60);
    const int32_t count = found.row(0)[0];
    for (int32_t i = 0; i < count; ++i) {
      for (int32_t v = -1; v <= 1; ++v) {
        for (int32_t u = -1; u <= 1; ++u) dot(drawn, peak[i].x + u, peak[i].y + v, colour);
      }
    }
    return Visible{drawn, std::to_string(count) + (count == 1 ? " peak." : " peaks.")};
  };
  hang(wall,
       {"local-peaks", "Peaks among eight neighbours",
        "The corner measure of the picture, smoothed over 5×5, and its peaks: pixels above a twentieth of the highest "
        "that none of their eight neighbours exceeds."},
       {TOUR_STEP_WITH_BUFFER(
           qoriFindPeaks3x3GetBufferSize_32f_C1R(roiSize.width, &bufferSize),
           qoriFindPeaks3x3_32f_C1R(src, srcStep, roiSize, threshold, peak, maxPeakCount, peakCount, 0, 1, buffer))},
       number, [&](const Image32s& found) { return draw(found, cyan); });
  hang(wall,
       {"local-peaks-direct", "Peaks among four neighbours",
        "Only the pixels to the left, to the right, above and below are asked, so ridges that run diagonally leave "
        "some more."},
       {TOUR_STEP_WITH_BUFFER(
           qoriFindPeaks3x3GetBufferSize_32f_C1R(roiSize.width, &bufferSize),
           qoriFindPeaks3x3_32f_C1R(src, srcStep, roiSize, threshold, peak, maxPeakCount, peakCount, 1, 1, buffer))},
       number, [&](const Image32s& found) { return draw(found, orange); });
}

void visitMeasures(const Picture& picture, Wall& wall) {
  Image8u gray = picture.gray;
  gray.extendEdges();
  const Slopes slopes = slopesOf(gray);
  visitDirections(slopes, wall);
  visitGray(picture, slopes, wall);
  visitProfile(gray, wall);
  visitPeaks(gray, wall);
}

}  // namespace tour
