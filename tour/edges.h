// Edges as other stations start from them.
#ifndef QOR_TOUR_EDGES_H
#define QOR_TOUR_EDGES_H

#include "image.h"

namespace tour {

// 255 on the edges that the Canny detector finds in the smoothed picture, 0 elsewhere.
Image8u edgesOf(const Image8u& picture, float low, float high);

}  // namespace tour

#endif
