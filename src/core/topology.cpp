// The processor as the kernel describes it below /sys/devices/system/cpu: cores of a die and sizes of caches.
//
// Files have come and changed names over the years, and containers hide some; whatever is missing or odd counts as
// unknown.
#include "core/topology.h"

#include "core/textfile.h"

namespace core {

bool hasCpu(const CpuSet& cpus, int32_t cpu) {
  return cpu >= 0 && cpu < maxCpus && (cpus.words[cpu / 64] >> (cpu % 64) & 1) != 0;
}

bool parseCpuList(const char* text, CpuSet* cpus) {
  *cpus = {};
  if (*text == '\0') return true;
  for (;;) {
    int64_t first = 0;
    if (!parseDigits(&text, &first)) return false;
    int64_t last = first;
    if (*text == '-') {
      ++text;
      if (!parseDigits(&text, &last)) return false;
    }
    if (first > last || last >= maxCpus) return false;
    for (int64_t cpu = first; cpu <= last; ++cpu) cpus->words[cpu / 64] |= uint64_t{1} << (cpu % 64);
    if (*text == '\0') return true;
    if (*text++ != ',') return false;
  }
}

int64_t parseCacheSize(const char* text) {
  int64_t size = 0;
  if (!parseDigits(&text, &size)) return 0;
  int64_t unit = 1;
  if (*text == 'K') unit = int64_t{1} << 10;
  if (*text == 'M') unit = int64_t{1} << 20;
  if (*text == 'G') unit = int64_t{1} << 30;
  if (unit != 1) ++text;
  if (*text != '\0' || __builtin_mul_overflow(size, unit, &size)) return 0;
  return size;
}

// A list that lacks the processor it belongs to describes something else, so it is as good as none.
static bool readTopologyList(const char* root, int32_t cpu, const char* name, CpuSet* cpus) {
  char text[4096];
  return readText(text, sizeof text, "%s/sys/devices/system/cpu/cpu%d/topology/%s", root, cpu, name) &&
         parseCpuList(text, cpus) && hasCpu(*cpus, cpu);
}

// The newest name first. Kernels that know no dies call the package's list core_siblings_list.
static bool readDie(const char* root, int32_t cpu, CpuSet* die) {
  return readTopologyList(root, cpu, "die_cpus_list", die) || readTopologyList(root, cpu, "package_cpus_list", die) ||
         readTopologyList(root, cpu, "core_siblings_list", die);
}

static bool readCore(const char* root, int32_t cpu, CpuSet* core) {
  return readTopologyList(root, cpu, "core_cpus_list", core) ||
         readTopologyList(root, cpu, "thread_siblings_list", core);
}

// Counting just the first processor of each core counts every core once.
static bool isFirstOfCore(const char* root, int32_t cpu, const CpuSet& die) {
  CpuSet core;
  if (!readCore(root, cpu, &core)) return true;
  for (int32_t sibling = 0; sibling < cpu; ++sibling) {
    if (hasCpu(core, sibling) && hasCpu(die, sibling)) return false;
  }
  return true;
}

int32_t coresOnDie(const char* root, int32_t cpu) {
  CpuSet die;
  if (!readDie(root, cpu, &die)) return 0;
  int32_t cores = 0;
  for (int32_t other = 0; other < maxCpus; ++other) {
    if (hasCpu(die, other) && isFirstOfCore(root, other, die)) ++cores;
  }
  return cores;
}

int32_t largestCache(const char* root) {
  const int32_t maxCaches = 16;
  int64_t largest = 0;
  for (int32_t cache = 0; cache < maxCaches; ++cache) {
    char text[64];
    if (!readText(text, sizeof text, "%s/sys/devices/system/cpu/cpu0/cache/index%d/size", root, cache)) continue;
    const int64_t size = parseCacheSize(text);
    if (size > largest) largest = size;
  }
  return static_cast<int32_t>(largest < INT32_MAX ? largest : INT32_MAX);
}

}  // namespace core
