// How many processors the process may keep busy.
#ifndef QOR_CORE_ALLOWED_H
#define QOR_CORE_ALLOWED_H

#include <sched.h>
#include <stddef.h>
#include <stdint.h>
#include <sys/types.h>

namespace core {

// Has the parameters and results of sched_getaffinity.
using GetAffinity = int (*)(pid_t, size_t, cpu_set_t*);

// Number of processors in the affinity mask of the process's main thread; if that is not to be had, all those online.
int32_t processorsInAffinity(GetAffinity getAffinity);

// The processors in the affinity mask, but no more than the CPU quota pays for. The quota is read below the root
// directory, "" for the running system.
int32_t allowedProcessors(const char* root);

}  // namespace core

#endif
