// The vocabulary of argument checks. All products are taken in 32 bits and wrap: a width near 2^31 divided by the
// element size is not caught, by contract.
#pragma once

#include "frame/level.h"

template <class... Pointers>
static inline bool anyNull(const Pointers*... pointers) {
  return ((pointers == nullptr) || ...);
}

static inline bool emptySize(QoriSize size) { return size.width < 1 || size.height < 1; }

static inline int32_t pixels(QoriSize size) { return size.width * size.height; }

// A step shorter than a row of `channels` elements a pixel.
template <class T, int32_t channels = 1>
static inline bool shortStep(int32_t step, QoriSize size) {
  return step < size.width * channels * int32_t(sizeof(T));
}

// Steps of elements of one size are tested together, by their bitwise OR.
template <class T>
static inline bool misaligned(int32_t steps) {
  return (steps & int32_t(sizeof(T) - 1)) != 0;
}
