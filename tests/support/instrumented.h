// Whether the library under test is watched by sanitizers or Valgrind. They make it ten times as slow or more, and need
// an eighth of every large block in real memory.
#pragma once

#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#else
#define RUNNING_ON_VALGRIND 0
#define VALGRIND_MAKE_MEM_UNDEFINED(address, size) (void)(address)
#endif

extern "C" {
[[gnu::weak]] void __asan_init();
[[gnu::weak]] void __tsan_init();
}

inline bool instrumented() { return __asan_init != nullptr || __tsan_init != nullptr || RUNNING_ON_VALGRIND; }
