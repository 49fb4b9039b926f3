// Marks on pictures of three channels. What lies outside the picture is left out.
#ifndef QOR_TOUR_DRAWING_H
#define QOR_TOUR_DRAWING_H

#include "image.h"

namespace tour {

using Colour = uint8_t[3];
constexpr Colour yellow = {255, 210, 0}, cyan = {60, 220, 255}, orange = {255, 140, 30}, green = {90, 230, 90},
                 red = {255, 70, 60};

// A grey picture in three channels, darkened so that marks stand out.
Image8u dimmed(const Image8u& gray, int32_t percent);

void dot(Image8u& picture, int32_t x, int32_t y, const Colour& colour);
void circle(Image8u& picture, int32_t x, int32_t y, int32_t radius, const Colour& colour);
void line(Image8u& picture, double fromX, double fromY, double toX, double toY, const Colour& colour);
void arrow(Image8u& picture, double fromX, double fromY, double toX, double toY, const Colour& colour);

}  // namespace tour

#endif
