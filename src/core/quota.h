// The CPU quota of the process's control groups, in processors.
//
// A root directory stands before every path, "" for the running system.
#ifndef QOR_CORE_QUOTA_H
#define QOR_CORE_QUOTA_H

#include <stdint.h>

namespace core {

const int32_t noQuota = INT32_MAX;

// Processors that a quota of so many microseconds in each period keeps busy, rounded up; noQuota unless both numbers
// are positive.
int32_t processorsOfQuota(int64_t quota, int64_t period);

// Reads a line of a cpu.max file, "50000 100000" or "max 100000". Anything else is noQuota.
int32_t parseCpuMax(const char* text);

// Path of a control group below the point where its hierarchy is mounted: "" for the mount point itself, otherwise with
// a slash in front. mountRoot is the group that the mount shows at its top. Null if the group is not inside the mount.
const char* pathInMount(const char* group, const char* mountRoot);

// The tightest quota of all control groups that the process is in, from its own ones up to the roots that it can see,
// of both versions; noQuota if there is none.
int32_t quotaProcessors(const char* root);

}  // namespace core

#endif
