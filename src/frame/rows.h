// Addresses inside images and buffers.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Row y of an image whose rows lie `step` bytes apart.
template <class T>
static inline T* rowAt(T* image, ptrdiff_t step, ptrdiff_t y) {
  return reinterpret_cast<T*>(reinterpret_cast<uintptr_t>(image) + uintptr_t(step * y));
}

// First address at or after `p` that is a multiple of `alignment`, a power of 2.
template <class T, class Pointer>
static inline T* alignUp(Pointer* p, uintptr_t alignment) {
  return reinterpret_cast<T*>((reinterpret_cast<uintptr_t>(p) + alignment - 1) & ~(alignment - 1));
}
