#include "drawing.h"

#include <cmath>

namespace tour {

Image8u dimmed(const Image8u& gray, int32_t percent) {
  Image8u colour(gray.width, gray.height, 3);
  for (int32_t y = 0; y < gray.height; ++y) {
    for (int32_t x = 0; x < colour.rowLength(); ++x) {
      colour.row(y)[x] = static_cast<uint8_t>(gray.row(y)[x / 3] * percent / 100);
    }
  }
  return colour;
}

void dot(Image8u& picture, int32_t x, int32_t y, const Colour& colour) {
  if (x < 0 || y < 0 || x >= picture.width || y >= picture.height) return;
  std::copy_n(colour, 3, picture.row(y) + ptrdiff_t{3} * x);
}

void circle(Image8u& picture, int32_t x, int32_t y, int32_t radius, const Colour& colour) {
  for (int32_t v = -radius - 1; v <= radius + 1; ++v) {
    for (int32_t u = -radius - 1; u <= radius + 1; ++u) {
      if (std::abs(std::hypot(u, v) - radius) <= 0.5) dot(picture, x + u, y + v, colour);
    }
  }
}

void line(Image8u& picture, double fromX, double fromY, double toX, double toY, const Colour& colour) {
  const double length = std::hypot(toX - fromX, toY - fromY);
  const int32_t steps = static_cast<int32_t>(std::ceil(2 * length));
  for (int32_t i = 0; i <= steps; ++i) {
    const double t = steps > 0 ? static_cast<double>(i) / steps : 0;
    dot(picture, static_cast<int32_t>(std::lround(fromX + t * (toX - fromX))),
        static_cast<int32_t>(std::lround(fromY + t * (toY - fromY))), colour);
  }
}

void arrow(Image8u& picture, double fromX, double fromY, double toX, double toY, const Colour& colour) {
  line(picture, fromX, fromY, toX, toY, colour);
  const double dx = toX - fromX, dy = toY - fromY, length = std::hypot(dx, dy);
  if (length < 2) return;
  const double barb = std::min(5.0, length / 2) / length;
  for (const double side : {-0.6, 0.6}) {
    line(picture, toX, toY, toX - barb * (dx + side * dy), toY - barb * (dy - side * dx), colour);
  }
}

}  // namespace tour
