// Images in random places.
#pragma once

#include "support/image.h"
#include "support/random.h"

// An image of zeros with a random gap of at least `leastGap` elements, against an unmapped page on a random side, often
// at an odd address.
template <class T>
struct AnyImage : Image<T> {
  AnyImage(Random& random, QoriSize size, int32_t channels = 1, int32_t leastGap = 0)
      : Image<T>(size.width, size.height, channels, leastGap + int32_t(random.number(0, 3)),
                 random.chance(0.5) ? Edge::begin : Edge::end, random.chance(0.5) ? size_t(random.number(1, 7)) : 0) {}
};
