// How many processors the process may keep busy.
//
// The affinity mask is the main thread's: the caller may be a worker that somebody tied to one processor, and racing
// callers with masks of their own would disagree.
#include "core/allowed.h"

#include <errno.h>
#include <unistd.h>

#include "core/quota.h"

namespace core {

int32_t processorsInAffinity(GetAffinity getAffinity) {
  // The kernel refuses a mask that is shorter than its own with EINVAL, and does not say how long that is.
  const size_t mostCpus = size_t{1} << 20;
  for (size_t cpus = 1024; cpus <= mostCpus; cpus *= 2) {
    cpu_set_t* mask = CPU_ALLOC(cpus);
    if (!mask) break;
    const size_t bytes = CPU_ALLOC_SIZE(cpus);
    CPU_ZERO_S(bytes, mask);
    const int failure = getAffinity(getpid(), bytes, mask) == 0 ? 0 : errno;
    const int32_t count = failure == 0 ? CPU_COUNT_S(bytes, mask) : 0;
    CPU_FREE(mask);
    if (failure == 0) return count;
    if (failure != EINVAL) break;
  }
  return static_cast<int32_t>(sysconf(_SC_NPROCESSORS_ONLN));
}

int32_t allowedProcessors(const char* root) {
  const int32_t processors = processorsInAffinity(sched_getaffinity);
  const int32_t quota = quotaProcessors(root);
  return processors < quota ? processors : quota;
}

}  // namespace core
