// The rows of images as runs of elements: an image whose rows follow each other without a gap is one long run.
#pragma once

#include <stddef.h>

#include "frame/level.h"

struct Runs {
  ptrdiff_t length;  // elements of a run
  int32_t count;     // number of runs, one step apart
};

// Runs that the images of one call, given by their steps, have in common.
template <class T, class... Steps>
static inline Runs runsOf(QoriSize size, int32_t channels, Steps... steps) {
  const ptrdiff_t length = ptrdiff_t(size.width) * channels, bytes = length * ptrdiff_t(sizeof(T));
  if (((steps - bytes) | ...) == 0) return {length * size.height, 1};
  return {length, size.height};
}
