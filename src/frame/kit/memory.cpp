// Blocks of memory by element count. The byte count is taken in 64 bits: the largest length does not wrap.
#include "frame/kit/vectors.h"
#include "qorcore.h"

template <class T>
static T* allocate(int32_t len) {
  if (len < 1) return nullptr;
  return static_cast<T*>(qorMalloc(size_t(len) * sizeof(T)));
}

uint8_t* qorsMalloc_8u(int32_t len) { return allocate<uint8_t>(len); }
uint16_t* qorsMalloc_16u(int32_t len) { return allocate<uint16_t>(len); }
int32_t* qorsMalloc_32s(int32_t len) { return allocate<int32_t>(len); }
float* qorsMalloc_32f(int32_t len) { return allocate<float>(len); }
double* qorsMalloc_64f(int32_t len) { return allocate<double>(len); }

void qorsFree(void* block) { qorFree(block); }
