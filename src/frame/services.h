// What the frames ask the core services and the OpenMP runtime.
#pragma once

#include <omp.h>

#include "frame/level.h"
#include "qorcore.h"

// Size of the current team; 1 outside any parallel region.
static inline int32_t owncvGetNumThreads() { return omp_get_num_threads(); }

// Number of the current thread in its team, from 0.
static inline int32_t owncvGetIdThreads() { return omp_get_thread_num(); }

// The most threads that the library may use. Gates ask this, and scratch is sized by it; how many threads a frame
// requests is a different question (ownGetNumThreads), and the two answers may differ. At least 1, since scratch for no
// thread at all would be no scratch.
static inline int32_t owncvGetMaxNumThreads() {
  int32_t numThreads = 1;
  qorGetNumThreads(&numThreads);
  return numThreads < 1 ? 1 : numThreads;
}

// Bytes of the largest cache.
static inline int32_t owncvGetCacheSize() {
  int32_t size = 0;
  qorGetMaxCacheSizeB(&size);
  return size;
}

// Non-zero on a die with several cores. Reads the die, not the thread setting.
static inline int32_t runomp() {
  const int32_t cores = qorGetNumCoresOnDie();
  return cores == 1 ? 0 : cores;
}

// The test of the separable pipelines: small kernels are split only on a die with several cores, others in any case.
static inline int32_t runsepomp(int32_t kernelSize) {
  return kernelSize == 3 || kernelSize == 5 ? runomp() : runomp() | 1;
}

// What a relative result is whose denominator is 0.
constexpr double qorConstantOfNAN_64f = __builtin_nan("");
constexpr double qorConstantOfINF_64f = __builtin_inf();
constexpr double qorConstantOfINF_NEG_64f = -__builtin_inf();
