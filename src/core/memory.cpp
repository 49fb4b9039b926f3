// Memory: blocks that start on a cache line, from the C library's heap.
#include <stdint.h>
#include <stdlib.h>

#include "qorcore.h"

void* qorMalloc(size_t size) {
  const size_t alignment = 64;
  // No object can be larger than PTRDIFF_MAX; stopping here leaves the allocator room to round up without overflow.
  if (size == 0 || size > static_cast<size_t>(PTRDIFF_MAX) - alignment) return nullptr;
  void* block = nullptr;
  return posix_memalign(&block, alignment, size) == 0 ? block : nullptr;
}

void qorFree(void* block) { free(block); }
