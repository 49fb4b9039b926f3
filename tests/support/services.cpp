#include "support/services.h"

#include <stdlib.h>

#include <atomic>

#include "qorcore.h"

namespace services {

int32_t maxThreads = 1, teamSize = 1, cores = 1, cacheSize = 1 << 20;
static std::atomic<int64_t> allocationCount, liveCount, remaining{-1};

void threads(int32_t number) { maxThreads = teamSize = cores = number; }
void failAfter(int64_t successes) { remaining = successes; }
int64_t allocations() { return allocationCount; }
int64_t liveBlocks() { return liveCount; }

void reset() {
  threads(1);
  cacheSize = 1 << 20;
  remaining = -1;
  allocationCount = 0;
  liveCount = 0;
}

}  // namespace services

void* qorMalloc(size_t size) {
  ++services::allocationCount;
  if (services::remaining >= 0 && services::remaining-- == 0) {
    services::remaining = 0;
    return nullptr;
  }
  void* block = nullptr;
  if (posix_memalign(&block, 64, size)) return nullptr;
  ++services::liveCount;
  return block;
}

void qorFree(void* block) {
  if (block) --services::liveCount;
  free(block);
}

int32_t qorGetNumCoresOnDie(void) { return services::cores; }
int32_t ownGetNumThreads(void) { return services::teamSize; }

int32_t qorGetNumThreads(int32_t* numThreads) {
  *numThreads = services::maxThreads;
  return 0;
}

int32_t qorGetMaxCacheSizeB(int32_t* size) {
  *size = services::cacheSize;
  return 0;
}
