// Product of a 16-bit vector with a constant, scaled by a power of 2.
#include "frame/checks.h"
#include "frame/kit/vectors.h"

static inline int32_t heldTo16s(int32_t value) {
  value = value > 32767 ? 32767 : value;
  return value < -32768 ? -32768 : value;
}

// To nearest, ties to even: bit `shift` of the value tells whether half is to be rounded up.
static void mulShiftRight(int16_t value, int16_t* srcDst, int32_t len, int32_t shift) {
  const int32_t belowHalf = (1 << (shift - 1)) - 1;
  for (int32_t i = 0; i < len; ++i) {
    const int32_t product = value * srcDst[i];
    srcDst[i] = int16_t(heldTo16s((product + belowHalf + ((product >> shift) & 1)) >> shift));
  }
}

static void mulShiftLeft(int16_t value, int16_t* srcDst, int32_t len, int32_t shift) {
  for (int32_t i = 0; i < len; ++i) {
    srcDst[i] = int16_t(heldTo16s(heldTo16s(value * srcDst[i]) << shift));
  }
}

QorStatus qorsMulC_16s_ISfs(int16_t value, int16_t* srcDst, int32_t len, int32_t scaleFactor) {
  if (anyNull(srcDst)) return qorStatusNullPtr;
  if (len < 1) return qorStatusBadSize;
  if (value == 0 || scaleFactor > 30) return qorsZero_16s(srcDst, len);
  if (scaleFactor > 0) {
    mulShiftRight(value, srcDst, len, scaleFactor);
  } else {
    // A shift by 15 already drives every product but 0 to the limit of its sign.
    mulShiftLeft(value, srcDst, len, scaleFactor < -15 ? 15 : -scaleFactor);
  }
  return qorStatusOk;
}
