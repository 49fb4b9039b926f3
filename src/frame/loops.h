// Loops over the elements of a row.
#pragma once

#include <stddef.h>
#include <stdint.h>

// Before a loop whose iterations are independent although the compiler cannot see it, as where dst may be src: equal
// indices are all that can overlap. Without it such a loop falls back to scalar code at run time.
#ifdef __clang__
#define QOR_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#else
#define QOR_INDEPENDENT _Pragma("GCC ivdep")
#endif

// Calls element(x) for all x in 0 .. count - 1, as loops of a length that is a multiple of every vector's. The last of
// them overlaps the one before, so some elements are done twice, and element(x) must do the same the second time: it
// may not read what it writes. So no scalar loop is left for the end of a row.
template <class Element>
static inline void forElements(ptrdiff_t count, Element element) {
  constexpr ptrdiff_t block = 64;
  if (count < block) {
    QOR_INDEPENDENT
    for (ptrdiff_t x = 0; x < count; ++x) element(x);
    return;
  }
  for (ptrdiff_t first = 0;; first += block) {
    if (first > count - block) first = count - block;
    QOR_INDEPENDENT
    for (ptrdiff_t i = 0; i < block; ++i) element(first + i);
    if (first == count - block) break;
  }
}

// A row that is read and written straight from memory goes through this many elements at a time and asks for those
// below them in the next row first: the processor's own prefetching stops at every page, and such loops gain up to a
// quarter.
constexpr int32_t prefetchBlock = 128;

template <class T>
static inline void prefetchElements(const T* first, int32_t count) {
  for (int32_t byte = 0; byte < count * int32_t(sizeof(T)); byte += 64) {
    __builtin_prefetch(reinterpret_cast<const char*>(first) + byte);
  }
}
