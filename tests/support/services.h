// The six core services as the tests want them. The library imports them, so a test program's own definitions win.
#pragma once

#include <stdint.h>

namespace services {

// What the services report. Tests change them at will; reset() brings the defaults back.
extern int32_t maxThreads;  // qorGetNumThreads: gates and scratch sizes
extern int32_t teamSize;    // ownGetNumThreads: what frames request
extern int32_t cores;       // qorGetNumCoresOnDie
extern int32_t cacheSize;   // qorGetMaxCacheSizeB

// Sets maxThreads, teamSize and cores to one number.
void threads(int32_t number);

// The allocation after the next `successes` ones fails, and all that follow; negative: none fails.
void failAfter(int64_t successes);

int64_t allocations();  // calls of qorMalloc since reset()
int64_t liveBlocks();   // blocks that have not been freed

// Defaults: one thread, one core, 1 MiB of cache, no failing allocations, counts at zero.
void reset();

}  // namespace services
