// What the processor has: cores on its die and its largest cache.
#include <sched.h>
#include <unistd.h>

#include "core/common.h"
#include "core/topology.h"
#include "qorcore.h"

namespace core {

static int32_t detectCores() {
  const int32_t cores = coresOnDie("", sched_getcpu());
  return cores > 0 ? cores : static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN));
}

static int32_t detectCache() {
  int32_t largest = largestCache("");
  if (largest > 0) return largest;
#ifdef _SC_LEVEL4_CACHE_SIZE
  const int names[] = {_SC_LEVEL1_DCACHE_SIZE, _SC_LEVEL2_CACHE_SIZE, _SC_LEVEL3_CACHE_SIZE, _SC_LEVEL4_CACHE_SIZE};
  for (const int name : names) {
    const long size = sysconf(name);
    if (size > largest) largest = size < INT32_MAX ? static_cast<int32_t>(size) : INT32_MAX;
  }
#endif
  const int32_t usualCache = 1 << 20;
  return largest > 0 ? largest : usualCache;
}

static int32_t coresSlot;
static int32_t cacheSlot;

}  // namespace core

int32_t qorGetNumCoresOnDie(void) { return core::detectOnce(&core::coresSlot, core::detectCores); }

int32_t qorGetMaxCacheSizeB(int32_t* sizeB) {
  if (!sizeB) return core::statusNullPtr;
  *sizeB = core::detectOnce(&core::cacheSlot, core::detectCache);
  return core::statusOk;
}
