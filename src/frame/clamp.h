// Clamping floats that are not NaN.
#pragma once

// GCC turns a comparison and a choice into the machine's minimum and maximum only where it need not tell NaN and the
// two zeros apart; in all other code it must, so the permission ends with these functions.
#ifdef __clang__
#define QOR_NO_SPECIAL_FLOATS
#else
#define QOR_NO_SPECIAL_FLOATS __attribute__((optimize("finite-math-only", "no-signed-zeros")))
#endif

__attribute__((always_inline)) QOR_NO_SPECIAL_FLOATS static inline float clamped(float value, float lowest,
                                                                                 float highest) {
  const float atLeast = value > lowest ? value : lowest;
  return atLeast < highest ? atLeast : highest;
}

#undef QOR_NO_SPECIAL_FLOATS
