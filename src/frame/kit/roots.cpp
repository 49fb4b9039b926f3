// Square roots of vectors. A negative element is no error but a warning, given once the whole vector is done.
#include "frame/checks.h"
#include "frame/kit/vectors.h"

// The root through double, rounded to float, has the bits of the correctly rounded float root: double holds more than
// twice the digits of float. NaN elements keep their bits, signalling ones too, and the zeros their signs.
QorStatus qorsSqrt_32f_I(float* srcDst, int32_t len) {
  if (anyNull(srcDst)) return qorStatusNullPtr;
  if (len < 1) return qorStatusBadSize;
  int32_t negative = 0;
  for (int32_t i = 0; i < len; ++i) {
    const float x = srcDst[i];
    negative |= x < 0 ? 1 : 0;
    srcDst[i] = x != x ? x : __builtin_sqrtf(x);
  }
  return negative ? kitStatusNegativeRoot : qorStatusOk;
}

constexpr int32_t largestRoot = 32767;

// Roots scaled up by 2^doublings. The root of a whole number is never half a whole number, so rounding meets no ties:
// the scaled number is held to the square of the largest root, its root taken in float and cut off, which gives the
// rounded root r or the one below it, and put right in whole numbers, where x > (r + 0.5)^2 reads x > r * (r + 1).
static void scaledUpRoots(const int32_t* src, int16_t* dst, int32_t len, int32_t doublings) {
  const int32_t largestSquare = largestRoot * largestRoot;
  const int32_t limit = largestSquare >> (2 * doublings);
  for (int32_t i = 0; i < len; ++i) {
    const int32_t x = src[i] < 0 ? 0 : src[i];
    const int32_t scaled = x > limit ? largestSquare : x << (2 * doublings);
    const int32_t root = int32_t(__builtin_sqrtf(float(scaled)));
    dst[i] = int16_t(root + (scaled > root * (root + 1) ? 1 : 0));
  }
}

// Roots scaled down by 2^-halvings. A tie is a root that the added half makes a whole number: it goes to the even one.
static void scaledDownRoots(const int32_t* src, int16_t* dst, int32_t len, int32_t halvings) {
  const double scale = 1 / double(1 << halvings);
  for (int32_t i = 0; i < len; ++i) {
    const double raised = __builtin_sqrt(double(src[i] < 0 ? 0 : src[i])) * scale + 0.5;
    const int32_t whole = int32_t(raised);
    const int32_t tie = double(whole) == raised ? 1 : 0;
    dst[i] = int16_t(whole - (whole & tie));
  }
}

QorStatus qorsSqrt_32s16s_Sfs(const int32_t* src, int16_t* dst, int32_t len, int32_t scaleFactor) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (len < 1) return qorStatusBadSize;
  // A separate pass, which keeps the loops below on one type.
  int32_t signs = 0;
  for (int32_t i = 0; i < len; ++i) signs |= src[i];
  if (scaleFactor > 16) {
    qorsZero_16s(dst, len);
  } else if (scaleFactor > 0) {
    scaledDownRoots(src, dst, len, scaleFactor);
  } else {
    // From -15 on every root but 0 is held to the largest.
    scaledUpRoots(src, dst, len, scaleFactor < -15 ? 15 : -scaleFactor);
  }
  return signs < 0 ? kitStatusNegativeRoot : qorStatusOk;
}
