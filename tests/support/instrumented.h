// Whether the library under test is watched by sanitizers. They make it ten times as slow, and need an eighth of every
// large block in real memory.
#pragma once

extern "C" {
[[gnu::weak]] void __asan_init();
[[gnu::weak]] void __tsan_init();
}

inline bool instrumented() { return __asan_init != nullptr || __tsan_init != nullptr; }
