// Results of any type as 8-bit pictures. Each function picks its scale from the picture, so that structures show, and
// says in words what it picked.
#ifndef QOR_TOUR_VISIBLE_H
#define QOR_TOUR_VISIBLE_H

#include <string>

#include "image.h"

namespace tour {

struct Visible {
  Image8u image;
  std::string scale;
};

// Luma, for a picture of three channels; a copy for one.
Image8u toGray(const Image8u& picture);

// Already visible: nothing is changed.
Visible asItIs(const Image8u& image);

// Zero as mid-grey, negative values darker, positive ones lighter.
Visible signedAsGray(const Image16s& image);

// Zero as black, made lighter so that small values show.
Visible amplified(const Image8u& image);

// The same of floats.
Visible fromZeroAsGray(const Image32f& image);

// Floats from 0 to 255 as they are, rounded.
Visible asGray(const Image32f& image);

// The length of the vector (dx, dy), zero as black.
Visible lengthAsGray(const Image16s& dx, const Image16s& dy);

// The direction of the vector (dx, dy) as hue, the root of its length as brightness.
Visible directionAsHue(const Image16s& dx, const Image16s& dy);

}  // namespace tour

#endif
