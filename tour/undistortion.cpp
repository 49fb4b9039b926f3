// Lens distortion: a chessboard as a camera with a barrel lens sees it, put right; the picture through two lenses; and
// the coordinates of a lens that also sits askew.
//
// A call takes each pixel of its result from the place that the lens put it. So coefficients that describe a barrel
// lens correct what it made, and the opposite ones show how a barrel lens would draw the picture.
#include <cmath>

#include "station.h"

namespace tour {

namespace {

// A lens in front of the middle of a picture; with this focal length the corners are 1 away from the middle.
struct Lens {
  float f, cx, cy;

  explicit Lens(QoriSize size)
      : f(0.5f * std::hypot(static_cast<float>(size.width), static_cast<float>(size.height))),
        cx(0.5f * static_cast<float>(size.width - 1)),
        cy(0.5f * static_cast<float>(size.height - 1)) {}
};

}  // namespace

static constexpr float boardK1 = -0.3f, boardK2 = 0.08f;

// The distance from the middle, without a lens, of what the lens puts at `distance`: Newton's method.
static float withoutLens(float distance) {
  float r = distance;
  for (int32_t i = 0; i < 8; ++i) {
    const float r2 = r * r;
    const float error = r * (1 + r2 * (boardK1 + boardK2 * r2)) - distance;
    r -= error / (1 + r2 * (3 * boardK1 + 5 * boardK2 * r2));
  }
  return r;
}

// A chessboard through the barrel lens, each pixel the mean of 3 x 3 points.
static Image8u boardThroughLens(QoriSize size) {
  constexpr int32_t points = 3;
  const Lens lens(size);
  const float square = std::max(4.0f, lens.f / 7);
  Image8u board(size.width, size.height);
  for (int32_t y = 0; y < size.height; ++y) {
    for (int32_t x = 0; x < size.width; ++x) {
      int32_t sum = 0;
      for (int32_t p = 0; p < points * points; ++p) {
        const float dx = static_cast<float>(x) + static_cast<float>(p % points - 1) / points - lens.cx;
        const float dy = static_cast<float>(y) + static_cast<float>(p / points - 1) / points - lens.cy;
        const float distance = std::hypot(dx, dy) / lens.f;
        const float scale = distance > 0 ? withoutLens(distance) / distance : 1;
        const auto column = static_cast<int32_t>(std::floor(dx * scale / square));
        const auto row = static_cast<int32_t>(std::floor(dy * scale / square));
        sum += (column + row) % 2 == 0 ? 225 : 45;
      }
      board.row(y)[x] = static_cast<uint8_t>(sum / (points * points));
    }
  }
  return board;
}

// Two pictures in one: of one the left half, of the other the right one, and a line between them.
static Visible halfAndHalf(const Image8u& left, const Image8u& right) {
  Image8u both = right;
  const int32_t middle = both.width / 2;
  for (int32_t y = 0; y < both.height; ++y) {
    std::copy_n(left.row(y), middle, both.row(y));
    both.row(y)[middle] = 128;
  }
  return {both, ""};
}

// Where the coordinates in two planes, one below the other, are those of every 32nd column and row: white lines.
static Visible asGrid(const Image32f& planes) {
  constexpr float spacing = 32;
  Visible visible{Image8u(planes.width, planes.height / 2), "Lines are every 32nd column and row of the source."};
  Image8u& grid = visible.image;
  const auto nearLine = [](float coordinate, float slope) {
    const float away = std::abs(coordinate / spacing - std::round(coordinate / spacing)) * spacing;
    return std::clamp(1.5f - away / std::max(slope, 0.01f), 0.0f, 1.0f);
  };
  for (int32_t y = 0; y < grid.height; ++y) {
    const float* const across = planes.row(y);
    const float* const down = planes.row(y + grid.height);
    const float* const downNext = planes.row(std::min(y + 1, grid.height - 1) + grid.height);
    for (int32_t x = 0; x < grid.width; ++x) {
      const float slopeX = x + 1 < grid.width ? across[x + 1] - across[x] : 1;
      const float slopeY = y + 1 < grid.height ? downNext[x] - down[x] : 1;
      const float line = std::max(nearLine(across[x], slopeX), nearLine(down[x], slopeY));
      grid.row(y)[x] = static_cast<uint8_t>(20 + std::lround(225 * line));
    }
  }
  return visible;
}

// How far and where to each pixel is moved, in sixteenths of a pixel as far as 16 bits go.
static Visible asDisplacement(const Image32f& planes) {
  const int32_t height = planes.height / 2;
  Image16s dx(planes.width, height), dy(planes.width, height);
  const auto sixteenths = [](float pixels) {
    return static_cast<int16_t>(std::clamp(std::round(16 * pixels), -32768.0f, 32767.0f));
  };
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < planes.width; ++x) {
      dx.row(y)[x] = sixteenths(planes.row(y)[x] - static_cast<float>(x));
      dy.row(y)[x] = sixteenths(planes.row(y + height)[x] - static_cast<float>(y));
    }
  }
  return {directionAsHue(dx, dy).image, "Hue is the direction to the source pixel, brightness the way there."};
}

void visitUndistortion(const Picture& picture, Wall& wall) {
  const QoriSize roiSize = picture.gray.size();
  const Lens lens(roiSize);
  const float f = lens.f, cx = lens.cx, cy = lens.cy;

  const Image8u board = boardThroughLens(roiSize);
  Image8u corrected(roiSize.width, roiSize.height);
  const uint8_t* src = board.data();
  int32_t srcStep = board.step();
  uint8_t* dst = corrected.data();
  int32_t dstStep = corrected.step();
  hang(
      wall,
      {"board-corrected", "A chessboard put right",
       "Left of the middle is what a barrel lens makes of a chessboard, right of it the same view corrected: its lines "
       "are straight again."},
      {TOUR_STEP_WITH_BUFFER(
          qoriUndistortGetSize(roiSize, &bufferSize),
          qoriUndistortRadial_8u_C1R(src, srcStep, dst, dstStep, roiSize, buffer, f, f, cx, cy, boardK1, boardK2))},
      corrected, [&](const Image8u& result) { return halfAndHalf(board, result); });

  const bool inColour = !picture.colour.empty();
  const Image8u& photograph = inColour ? picture.colour : picture.gray;
  Image8u barrel(roiSize.width, roiSize.height, photograph.channels);
  src = photograph.data();
  srcStep = photograph.step();
  dst = barrel.data();
  dstStep = barrel.step();
  hang(wall,
       {"barrel", "Through a barrel lens",
        "Positive coefficients take pixels from further out, so everything shrinks towards the rim. What lies outside "
        "the picture is left as it was, here black."},
       {inColour ? TOUR_STEP_WITH_BUFFER(qoriUndistortGetSize(roiSize, &bufferSize),
                                         qoriUndistortRadial_8u_C3R(src, srcStep, dst, dstStep, roiSize, buffer, f, f,
                                                                    cx, cy, 0.35f, 0.1f))
                 : TOUR_STEP_WITH_BUFFER(qoriUndistortGetSize(roiSize, &bufferSize),
                                         qoriUndistortRadial_8u_C1R(src, srcStep, dst, dstStep, roiSize, buffer, f, f,
                                                                    cx, cy, 0.35f, 0.1f))},
       barrel, asItIs);

  Image8u pincushion(roiSize.width, roiSize.height, photograph.channels);
  dst = pincushion.data();
  dstStep = pincushion.step();
  hang(
      wall,
      {"pincushion", "Through a pincushion lens",
       "Negative coefficients take pixels from further in: the rim grows, and straight lines bend towards the middle."},
      {inColour ? TOUR_STEP_WITH_BUFFER(qoriUndistortGetSize(roiSize, &bufferSize),
                                        qoriUndistortRadial_8u_C3R(src, srcStep, dst, dstStep, roiSize, buffer, f, f,
                                                                   cx, cy, -0.4f, 0.05f))
                : TOUR_STEP_WITH_BUFFER(qoriUndistortGetSize(roiSize, &bufferSize),
                                        qoriUndistortRadial_8u_C1R(src, srcStep, dst, dstStep, roiSize, buffer, f, f,
                                                                   cx, cy, -0.4f, 0.05f))},
      pincushion, asItIs);

  // One plane below the other.
  Image32f planes(roiSize.width, 2 * roiSize.height);
  float* xMap = planes.data();
  float* yMap = planes.row(roiSize.height);
  const int32_t step = planes.step();
  const std::vector<Step> map = {TOUR_STEP(qoriCreateMapCameraUndistort_32f_C1R(
      xMap, step, yMap, step, roiSize, nullptr, f, f, cx, cy, -0.25f, 0.05f, 0.05f, -0.03f))};
  hang(wall,
       {"map-grid", "The map of a lens that sits askew",
        "Two planes tell for each pixel where to take it from, ready for any remapping. With two tangential "
        "coefficients the grid is no longer the same on all sides."},
       map, planes, asGrid);
  hang(wall,
       {"map-displacement", "How far the map moves pixels",
        "The same two planes, less each pixel's own coordinates: hardly anything moves near the middle."},
       map, planes, asDisplacement);
}

}  // namespace tour
