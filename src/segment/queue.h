// A queue of pixels with 256 levels, first in, first out on each. A pixel is its index in some plane and waits at most
// once, so one link a pixel is all the memory that is needed.
#pragma once

#include "frame/level.h"

namespace {

struct PixelQueue {
  static constexpr int32_t levels = 256, none = -1;
  int32_t* link;  // of each pixel that waits and is not the last on its level, the next one
  int32_t first[levels], last[levels];
  uint64_t occupied[levels / 64];  // a bit a level
};

static inline void clearQueue(PixelQueue& queue, int32_t* link) {
  queue.link = link;
  for (int32_t& pixel : queue.first) pixel = PixelQueue::none;
  for (uint64_t& word : queue.occupied) word = 0;
}

static inline void push(PixelQueue& queue, int32_t level, int32_t pixel) {
  if (queue.first[level] == PixelQueue::none) {
    queue.first[level] = pixel;
    queue.occupied[level >> 6] |= uint64_t(1) << (level & 63);
  } else {
    queue.link[queue.last[level]] = pixel;
  }
  queue.last[level] = pixel;
}

// The level must not be empty.
static inline int32_t pop(PixelQueue& queue, int32_t level) {
  const int32_t pixel = queue.first[level];
  if (pixel == queue.last[level]) {
    queue.first[level] = PixelQueue::none;
    queue.occupied[level >> 6] &= ~(uint64_t(1) << (level & 63));
  } else {
    queue.first[level] = queue.link[pixel];
  }
  return pixel;
}

// The lowest level that is not empty, or 256.
static inline int32_t lowestLevel(const PixelQueue& queue) {
  for (int32_t word = 0; word < PixelQueue::levels / 64; ++word) {
    if (queue.occupied[word]) return word * 64 + __builtin_ctzll(queue.occupied[word]);
  }
  return PixelQueue::levels;
}

}  // namespace
