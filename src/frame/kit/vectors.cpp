// Copies, fills, conversion, extremes and products of vectors.
//
// Odd: the plain extremes test nothing. The extremes in place keep the old value unless the source is strictly beyond
// it, so a NaN in the source is dropped and one in srcDst stays, while the plain ones give the second source where the
// comparison fails. A factor of 0 clears even infinities and NaN.
#include "frame/kit/vectors.h"

#include <string.h>

#include "frame/checks.h"
#include "frame/loops.h"

template <class... Pointers>
static inline QorStatus vectorStatus(int32_t len, const Pointers*... pointers) {
  if (anyNull(pointers...)) return qorStatusNullPtr;
  if (len < 1) return qorStatusBadSize;
  return qorStatusOk;
}

template <class T>
static void copyLoop(const T* src, T* dst, int32_t len) {
  if (len > 0) memcpy(dst, src, size_t(len) * sizeof(T));
}

template <class T>
static void setLoop(T value, T* dst, int32_t len) {
  for (int32_t i = 0; i < len; ++i) dst[i] = value;
}

template <class T>
static void zeroLoop(T* dst, int32_t len) {
  if (len > 0) memset(dst, 0, size_t(len) * sizeof(T));
}

template <class T>
static QorStatus copy(const T* src, T* dst, int32_t len) {
  if (const QorStatus status = vectorStatus(len, src, dst)) return status;
  copyLoop(src, dst, len);
  return qorStatusOk;
}

template <class T>
static QorStatus set(T value, T* dst, int32_t len) {
  if (const QorStatus status = vectorStatus(len, dst)) return status;
  setLoop(value, dst, len);
  return qorStatusOk;
}

template <class T>
static QorStatus zero(T* dst, int32_t len) {
  if (const QorStatus status = vectorStatus(len, dst)) return status;
  zeroLoop(dst, len);
  return qorStatusOk;
}

namespace {

// The order of the operands decides ties and NaN: a wins only if it is strictly beyond b.
struct Greater {
  template <class T>
  T operator()(T a, T b) const {
    return a > b ? a : b;
  }
};

struct Smaller {
  template <class T>
  T operator()(T a, T b) const {
    return a < b ? a : b;
  }
};

}  // namespace

template <class Pick, class T>
static QorStatus extremes(const T* src1, const T* src2, T* dst, int32_t len) {
  QOR_INDEPENDENT
  for (int32_t i = 0; i < len; ++i) dst[i] = Pick()(src1[i], src2[i]);
  return qorStatusOk;
}

template <class Pick, class T>
static QorStatus extremesInPlace(const T* src, T* srcDst, int32_t len) {
  if (const QorStatus status = vectorStatus(len, src, srcDst)) return status;
  return extremes<Pick>(src, srcDst, srcDst, len);
}

void ownsCopy_8u(const uint8_t* src, uint8_t* dst, int32_t len) { copyLoop(src, dst, len); }
void ownsSet_8u(uint8_t value, uint8_t* dst, int32_t len) { setLoop(value, dst, len); }
void ownsSet_32s(int32_t value, int32_t* dst, int32_t len) { setLoop(value, dst, len); }
void ownsZero_8u(uint8_t* dst, int32_t len) { zeroLoop(dst, len); }

QorStatus qorsCopy_8u(const uint8_t* src, uint8_t* dst, int32_t len) { return copy(src, dst, len); }
QorStatus qorsCopy_32f(const float* src, float* dst, int32_t len) { return copy(src, dst, len); }
QorStatus qorsSet_8u(uint8_t value, uint8_t* dst, int32_t len) { return set(value, dst, len); }
QorStatus qorsSet_32s(int32_t value, int32_t* dst, int32_t len) { return set(value, dst, len); }
QorStatus qorsSet_32f(float value, float* dst, int32_t len) { return set(value, dst, len); }
QorStatus qorsZero_8u(uint8_t* dst, int32_t len) { return zero(dst, len); }
QorStatus qorsZero_16s(int16_t* dst, int32_t len) { return zero(dst, len); }
QorStatus qorsZero_32s(int32_t* dst, int32_t len) { return zero(dst, len); }
QorStatus qorsZero_32f(float* dst, int32_t len) { return zero(dst, len); }

QorStatus qorsConvert_16u32f(const uint16_t* src, float* dst, int32_t len) {
  if (const QorStatus status = vectorStatus(len, src, dst)) return status;
  QOR_INDEPENDENT
  for (int32_t i = 0; i < len; ++i) dst[i] = float(src[i]);
  return qorStatusOk;
}

QorStatus qorsMaxEvery_8u(const uint8_t* src1, const uint8_t* src2, uint8_t* dst, int32_t len) {
  return extremes<Greater>(src1, src2, dst, len);
}

QorStatus qorsMaxEvery_32f(const float* src1, const float* src2, float* dst, int32_t len) {
  return extremes<Greater>(src1, src2, dst, len);
}

QorStatus qorsMinEvery_8u(const uint8_t* src1, const uint8_t* src2, uint8_t* dst, int32_t len) {
  return extremes<Smaller>(src1, src2, dst, len);
}

QorStatus qorsMinEvery_32f(const float* src1, const float* src2, float* dst, int32_t len) {
  return extremes<Smaller>(src1, src2, dst, len);
}

QorStatus qorsMaxEvery_8u_I(const uint8_t* src, uint8_t* srcDst, int32_t len) {
  return extremesInPlace<Greater>(src, srcDst, len);
}

QorStatus qorsMaxEvery_32f_I(const float* src, float* srcDst, int32_t len) {
  return extremesInPlace<Greater>(src, srcDst, len);
}

QorStatus qorsMinEvery_8u_I(const uint8_t* src, uint8_t* srcDst, int32_t len) {
  return extremesInPlace<Smaller>(src, srcDst, len);
}

QorStatus qorsMinEvery_32f_I(const float* src, float* srcDst, int32_t len) {
  return extremesInPlace<Smaller>(src, srcDst, len);
}

QorStatus qorsMulC_32f_I(float value, float* srcDst, int32_t len) {
  if (const QorStatus status = vectorStatus(len, srcDst)) return status;
  if (value == 1.0f) return qorStatusOk;
  if (value == 0.0f) return qorsZero_32f(srcDst, len);
  for (int32_t i = 0; i < len; ++i) srcDst[i] *= value;
  return qorStatusOk;
}
