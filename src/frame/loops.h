// Hints to the compiler about loops.
#pragma once

// Before a loop whose iterations are independent although the compiler cannot see it, as where dst may be src: equal
// indices are all that can overlap. Without it such a loop falls back to scalar code at run time.
#ifdef __clang__
#define QOR_INDEPENDENT _Pragma("clang loop vectorize(assume_safety)")
#else
#define QOR_INDEPENDENT _Pragma("GCC ivdep")
#endif
