// The level of the machine: which of the library's copies it can run.
#pragma once

#include <cpuid.h>
#include <stdint.h>

namespace {

enum CpuLevel { cpuV1 = 1, cpuV3 = 3, cpuV4 = 4 };

struct CpuidLeaf {
  uint32_t eax, ebx, ecx, edx;
};

inline CpuidLeaf cpuidLeaf(uint32_t leaf) {
  CpuidLeaf r = {0, 0, 0, 0};
  if (!__get_cpuid_count(leaf, 0, &r.eax, &r.ebx, &r.ecx, &r.edx)) return {0, 0, 0, 0};
  return r;
}

constexpr bool hasAll(uint32_t flags, uint32_t wanted) { return (flags & wanted) == wanted; }

// Asks the processor itself, since resolvers run before the C library and its tables can be relied on.
inline CpuLevel detectCpuLevel() {
  const CpuidLeaf basic = cpuidLeaf(1);
  const CpuidLeaf wide = cpuidLeaf(7);
  const CpuidLeaf extended = cpuidLeaf(0x80000001);
  constexpr uint32_t fma = 1u << 12, movbe = 1u << 22, osxsave = 1u << 27, avx = 1u << 28, f16c = 1u << 29;
  constexpr uint32_t bmi1 = 1u << 3, avx2 = 1u << 5, bmi2 = 1u << 8;
  constexpr uint32_t avx512f = 1u << 16, avx512dq = 1u << 17, avx512cd = 1u << 28, avx512bw = 1u << 30,
                     avx512vl = 1u << 31;
  constexpr uint32_t lzcnt = 1u << 5;
  if (!hasAll(basic.ecx, fma | movbe | osxsave | avx | f16c)) return cpuV1;
  if (!hasAll(wide.ebx, bmi1 | avx2 | bmi2) || !hasAll(extended.ecx, lzcnt)) return cpuV1;
  uint32_t saved, high;
  __asm__("xgetbv" : "=a"(saved), "=d"(high) : "c"(0));
  if (!hasAll(saved, 0x6)) return cpuV1;  // the system saves xmm and ymm registers
  if (!hasAll(wide.ebx, avx512f | avx512dq | avx512cd | avx512bw | avx512vl)) return cpuV3;
  return hasAll(saved, 0xe6) ? cpuV4 : cpuV3;  // and mask and zmm registers
}

// Detection costs several microseconds on a virtual machine and hundreds of names are resolved, so it is done once.
inline CpuLevel cpuLevel() {
  static CpuLevel known;
  if (!known) known = detectCpuLevel();
  return known;
}

}  // namespace
