// Gradients of an image and of a distance map whose pixels are not all known, in pairs (along x, along y) a pixel and
// channel.
//
// Odd: with both neighbours known a component is four times the slope, with one of them once the slope in the signed
// form and twice in the absolute one.
#pragma once

#include <stdlib.h>

#include "frame/rows.h"

// What the gradients are made of and where they go; all of one size. A pixel is unknown where `unknown` is not 0; none
// is where that is null.
struct GradientPlanes {
  const uint8_t* image;
  ptrdiff_t imageStep;
  int16_t* gradient;
  ptrdiff_t gradientStep;
  const uint8_t* unknown;
  ptrdiff_t unknownStep;
  int32_t width, height;
};

template <bool absolute>
static inline int32_t slope(bool beforeKnown, int32_t before, int32_t here, bool afterKnown, int32_t after) {
  if (beforeKnown && afterKnown) return absolute ? abs(after - here) + abs(here - before) : 2 * (after - before);
  if (!beforeKnown && !afterKnown) return 0;
  const int32_t difference = afterKnown ? after - here : here - before;
  return absolute ? 2 * abs(difference) : difference;
}

// The pair of one pixel. Neighbours outside the planes count as unknown.
template <bool absolute, int32_t channels>
static inline void gradientAt(const GradientPlanes& p, int32_t x, int32_t y) {
  const uint8_t *here = rowAt(p.image, p.imageStep, y) + ptrdiff_t(x) * channels, *none = here;
  const uint8_t* unknown = p.unknown ? rowAt(p.unknown, p.unknownStep, y) + x : nullptr;
  const bool left = x > 0 && !(unknown && unknown[-1]), right = x + 1 < p.width && !(unknown && unknown[1]);
  const bool above = y > 0 && !(unknown && unknown[-p.unknownStep]);
  const bool below = y + 1 < p.height && !(unknown && unknown[p.unknownStep]);
  const uint8_t *before = left ? here - channels : none, *after = right ? here + channels : none;
  const uint8_t *top = above ? here - p.imageStep : none, *bottom = below ? here + p.imageStep : none;
  int16_t* pair = rowAt(p.gradient, p.gradientStep, y) + ptrdiff_t(x) * 2 * channels;
  for (int32_t c = 0; c < channels; ++c) {
    pair[2 * c] = int16_t(slope<absolute>(left, before[c], here[c], right, after[c]));
    pair[2 * c + 1] = int16_t(slope<absolute>(above, top[c], here[c], below, bottom[c]));
  }
}

// The pairs of all pixels that `where`, laid out like the masks, selects.
template <bool absolute, int32_t channels>
static void owncvModGradient_8u16s_MR(const GradientPlanes& p, const uint8_t* where) {
  for (int32_t y = 0; y < p.height; ++y) {
    const uint8_t* selected = rowAt(where, p.unknownStep, y);
    for (int32_t x = 0; x < p.width; ++x) {
      if (selected[x]) gradientAt<absolute, channels>(p, x, y);
    }
  }
}

// The same with all pixels known.
template <bool absolute, int32_t channels>
static void owncvGradient_8u16s_MR(GradientPlanes p, const uint8_t* where) {
  p.unknown = nullptr;
  owncvModGradient_8u16s_MR<absolute, channels>(p, where);
}

// The pairs of a pixel that has a new value, and of its neighbours.
template <bool absolute, int32_t channels>
static inline void owncvModGradientPoint_8u16s_MR(const GradientPlanes& p, int32_t x, int32_t y) {
  gradientAt<absolute, channels>(p, x, y);
  if (x > 0) gradientAt<absolute, channels>(p, x - 1, y);
  if (x + 1 < p.width) gradientAt<absolute, channels>(p, x + 1, y);
  if (y > 0) gradientAt<absolute, channels>(p, x, y - 1);
  if (y + 1 < p.height) gradientAt<absolute, channels>(p, x, y + 1);
}

static inline int16_t truncatedTo16s(float v) {
  if (v >= 32767.0f) return 32767;
  if (v <= -32768.0f) return -32768;
  return v == v ? int16_t(v) : int16_t(0);
}

// One component, `scale` times the slope, from the values before, at and after a pixel; null where there is none.
static inline int16_t scaledSlope(const float* before, const float* here, const float* after, float scale) {
  if (before && after) return truncatedTo16s((*after - *before) * 0.5f * scale);
  if (!before && !after) return 0;
  return truncatedTo16s((after ? *after - *here : *here - *before) * scale);
}

// The pairs of the distance map at the pixels that `where` selects, times 2^-scaleFactor.
static void owncvGradient_32f16s_C1MR_Sfs(const float* distance, ptrdiff_t distanceStep, int16_t* gradient,
                                          ptrdiff_t gradientStep, const uint8_t* where, ptrdiff_t whereStep,
                                          int32_t width, int32_t height, int32_t scaleFactor) {
  const float scale = ldexpf(1.0f, -scaleFactor);
  for (int32_t y = 0; y < height; ++y) {
    const float* row = rowAt(distance, distanceStep, y);
    const float* above = y > 0 ? rowAt(distance, distanceStep, y - 1) : nullptr;
    const float* below = y + 1 < height ? rowAt(distance, distanceStep, y + 1) : nullptr;
    const uint8_t* selected = rowAt(where, whereStep, y);
    int16_t* pairs = rowAt(gradient, gradientStep, y);
    for (int32_t x = 0; x < width; ++x) {
      if (!selected[x]) continue;
      const float* here = row + x;
      pairs[2 * x] = scaledSlope(x > 0 ? here - 1 : nullptr, here, x + 1 < width ? here + 1 : nullptr, scale);
      pairs[2 * x + 1] = scaledSlope(above ? above + x : nullptr, here, below ? below + x : nullptr, scale);
    }
  }
}
