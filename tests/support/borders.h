// The border modes, said most literally: which pixel of 0 .. length - 1 stands at index j.
#pragma once

#include "qorcvmx.h"

constexpr int32_t constantPixel = -1;

inline int32_t borderIndex(int32_t j, int32_t length, QoriBorderType mode) {
  if (j >= 0 && j < length) return j;
  switch (mode) {
    case qorBorderReplicate: return j < 0 ? 0 : length - 1;
    case qorBorderWrap:
      while (j < 0) j += length;
      while (j >= length) j -= length;
      return j;
    case qorBorderMirror:
      if (length == 1) return 0;
      while (j < 0 || j >= length) j = j < 0 ? -j : 2 * (length - 1) - j;
      return j;
    case qorBorderMirrorEdge:
      while (j < 0 || j >= length) j = j < 0 ? -1 - j : 2 * length - 1 - j;
      return j;
    default: return constantPixel;
  }
}
