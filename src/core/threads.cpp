// Thread counts: the number that the application chose, or the processors that the process may use.
#include <errno.h>
#include <sched.h>
#include <unistd.h>

#include "core/common.h"
#include "core/quota.h"
#include "qorcore.h"

namespace core {

// The mask is the main thread's: the caller may be a worker that somebody tied to one processor, and racing callers
// with masks of their own would disagree. The kernel rejects a mask that is smaller than its own with EINVAL.
static int32_t processorsInAffinity() {
  const size_t mostCpus = size_t{1} << 20;
  for (size_t cpus = 1024; cpus <= mostCpus; cpus *= 2) {
    cpu_set_t* mask = CPU_ALLOC(cpus);
    if (!mask) break;
    const size_t bytes = CPU_ALLOC_SIZE(cpus);
    const int failure = sched_getaffinity(getpid(), bytes, mask) == 0 ? 0 : errno;
    const int32_t count = failure == 0 ? CPU_COUNT_S(bytes, mask) : 0;
    CPU_FREE(mask);
    if (failure == 0) return count;
    if (failure != EINVAL) break;
  }
  return static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN));
}

static int32_t detectThreads() {
  const int32_t processors = processorsInAffinity();
  const int32_t quota = quotaProcessors("");
  return processors < quota ? processors : quota;
}

static int32_t defaultSlot;
static int32_t chosenThreads;  // 0: the default

static int32_t numThreads() {
  const int32_t chosen = __atomic_load_n(&chosenThreads, __ATOMIC_RELAXED);
  return chosen > 0 ? chosen : detectOnce(&defaultSlot, detectThreads);
}

}  // namespace core

int32_t qorGetNumThreads(int32_t* numThreads) {
  if (!numThreads) return core::statusNullPtr;
  *numThreads = core::numThreads();
  return core::statusOk;
}

int32_t ownGetNumThreads(void) { return core::numThreads(); }

int32_t qorSetNumThreads(int32_t numThreads) {
  if (numThreads < 0) return core::statusBadSize;
  __atomic_store_n(&core::chosenThreads, numThreads, __ATOMIC_RELAXED);
  return core::statusOk;
}
