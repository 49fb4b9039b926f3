// The processor as the kernel describes it below /sys/devices/system/cpu: cores of a die and sizes of caches.
//
// A root directory stands before every path, "" for the running system.
#ifndef QOR_CORE_TOPOLOGY_H
#define QOR_CORE_TOPOLOGY_H

#include <stdint.h>

namespace core {

// As many processors as a kernel can be built for.
const int32_t maxCpus = 8192;

struct CpuSet {
  uint64_t words[maxCpus / 64];
};

bool hasCpu(const CpuSet& cpus, int32_t cpu);

// Reads a list such as "0-3,8,10-11"; an empty text is an empty list. Returns false if the text is anything else, or
// names a processor that no kernel has.
bool parseCpuList(const char* text, CpuSet* cpus);

// Reads a size such as "48K", "35M", "1G" or "512". Returns the bytes, or 0 if the text is anything else.
int64_t parseCacheSize(const char* text);

// Number of cores on the die of a processor (on its package, where the kernel knows nothing smaller), or 0 if unknown.
int32_t coresOnDie(const char* root, int32_t cpu);

// Bytes of the largest cache of processor 0, INT32_MAX at most, or 0 if unknown.
int32_t largestCache(const char* root);

}  // namespace core

#endif
