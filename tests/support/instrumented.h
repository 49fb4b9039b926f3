// Whether the library under test is watched by sanitizers or Valgrind. They make it ten times as slow or more, and need
// an eighth of every large block in real memory.
#pragma once

#include <stdint.h>

#include <vector>

#ifdef QOR_VALGRIND_HEADERS
#include <valgrind/memcheck.h>
#else
#define RUNNING_ON_VALGRIND 0
#define VALGRIND_MAKE_MEM_UNDEFINED(address, size) (void)(address)
#define VALGRIND_MAKE_MEM_DEFINED(address, size) (void)(address)
#endif

extern "C" {
[[gnu::weak]] void __asan_init();
[[gnu::weak]] void __tsan_init();
}

// Whether two blocks hold the same bytes, some of which may never have been set.
inline bool sameBytes(const std::vector<uint8_t>& a, const std::vector<uint8_t>& b) {
  VALGRIND_MAKE_MEM_DEFINED(a.data(), a.size());
  VALGRIND_MAKE_MEM_DEFINED(b.data(), b.size());
  return a == b;
}

inline bool instrumented() { return __asan_init != nullptr || __tsan_init != nullptr || RUNNING_ON_VALGRIND; }
