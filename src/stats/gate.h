// From how many pixels on a statistic is worth several threads. The figures are tuned per function and kept as they
// are.
#pragma once

#include "frame/frame.h"

// In units of 2^n pixels for each thread that may be used.
enum class Gate {
  none,  // never
  pixels15,
  pixels15OnSeveralCores,
  pixels15OnSeveralCoresOr17,
  pixels16,
  pixels17,
  pixels17OnSeveralCores,
  pixels19
};

// The size of the team to request, at least 1, or `serial`.
static inline int32_t threadsFor(Gate gate, QoriSize size) {
  const auto passes = [=] {
    switch (gate) {
      case Gate::none: return false;
      case Gate::pixels15: return enoughPixels(size, 1 << 15);
      case Gate::pixels15OnSeveralCores: return enoughPixels(size, 1 << 15) && runomp() != 0;
      case Gate::pixels15OnSeveralCoresOr17:
        return (enoughPixels(size, 1 << 15) && runomp() != 0) || enoughPixels(size, 1 << 17);
      case Gate::pixels16: return enoughPixels(size, 1 << 16);
      case Gate::pixels17: return enoughPixels(size, 1 << 17);
      case Gate::pixels17OnSeveralCores: return enoughPixels(size, 1 << 17) && runomp() != 0;
      case Gate::pixels19: return enoughPixels(size, 1 << 19);
    }
    return false;
  };
  if (!passes()) return serial;
  const int32_t team = ownGetNumThreads();
  return team < 1 ? 1 : team;
}
