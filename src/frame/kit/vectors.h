// The kit's vector routines. Internal, though they bear the names of exported ones.
//
// `len` counts elements. Unless told otherwise a routine returns qorStatusNullPtr for a null pointer, then
// qorStatusBadSize for len < 1, with nothing written. None uses threads.
#pragma once

#include "frame/level.h"

// Warning of the two roots for a negative element. Their callers ignore it, and no exported function returns it.
constexpr QorStatus kitStatusNegativeRoot = 3;

// Room for `len` elements from qorMalloc, to be given back by qorsFree; null if len < 1 (qorMalloc is not asked then)
// or if there is no memory.
QORLOCAL(uint8_t*, qorsMalloc_8u, (int32_t len));
QORLOCAL(uint16_t*, qorsMalloc_16u, (int32_t len));
QORLOCAL(int32_t*, qorsMalloc_32s, (int32_t len));
QORLOCAL(float*, qorsMalloc_32f, (int32_t len));
QORLOCAL(double*, qorsMalloc_64f, (int32_t len));
QORLOCAL(void, qorsFree, (void* block));

QORLOCAL(QorStatus, qorsCopy_8u, (const uint8_t* src, uint8_t* dst, int32_t len));
QORLOCAL(QorStatus, qorsCopy_32f, (const float* src, float* dst, int32_t len));
QORLOCAL(QorStatus, qorsSet_8u, (uint8_t value, uint8_t* dst, int32_t len));
QORLOCAL(QorStatus, qorsSet_32s, (int32_t value, int32_t* dst, int32_t len));
QORLOCAL(QorStatus, qorsSet_32f, (float value, float* dst, int32_t len));
QORLOCAL(QorStatus, qorsZero_8u, (uint8_t * dst, int32_t len));
QORLOCAL(QorStatus, qorsZero_16s, (int16_t * dst, int32_t len));
QORLOCAL(QorStatus, qorsZero_32s, (int32_t * dst, int32_t len));
QORLOCAL(QorStatus, qorsZero_32f, (float* dst, int32_t len));
QORLOCAL(QorStatus, qorsConvert_16u32f, (const uint16_t* src, float* dst, int32_t len));

// The bare loops under the routines of the same stem: no tests.
QORLOCAL(void, ownsCopy_8u, (const uint8_t* src, uint8_t* dst, int32_t len));
QORLOCAL(void, ownsSet_8u, (uint8_t value, uint8_t* dst, int32_t len));
QORLOCAL(void, ownsSet_32s, (int32_t value, int32_t* dst, int32_t len));
QORLOCAL(void, ownsZero_8u, (uint8_t * dst, int32_t len));

// Extremes of two vectors, element by element: a > b ? a : b and a < b ? a : b. No checks. dst may be a source.
QORLOCAL(QorStatus, qorsMaxEvery_8u, (const uint8_t* src1, const uint8_t* src2, uint8_t* dst, int32_t len));
QORLOCAL(QorStatus, qorsMaxEvery_32f, (const float* src1, const float* src2, float* dst, int32_t len));
QORLOCAL(QorStatus, qorsMinEvery_8u, (const uint8_t* src1, const uint8_t* src2, uint8_t* dst, int32_t len));
QORLOCAL(QorStatus, qorsMinEvery_32f, (const float* src1, const float* src2, float* dst, int32_t len));

// The same in place. The source wins only if strictly greater (smaller), so a NaN in the source is dropped.
QORLOCAL(QorStatus, qorsMaxEvery_8u_I, (const uint8_t* src, uint8_t* srcDst, int32_t len));
QORLOCAL(QorStatus, qorsMaxEvery_32f_I, (const float* src, float* srcDst, int32_t len));
QORLOCAL(QorStatus, qorsMinEvery_8u_I, (const uint8_t* src, uint8_t* srcDst, int32_t len));
QORLOCAL(QorStatus, qorsMinEvery_32f_I, (const float* src, float* srcDst, int32_t len));

// Product with a constant. A value of 1 leaves the data untouched; 0 fills with zero bits, even over a NaN.
QORLOCAL(QorStatus, qorsMulC_32f_I, (float value, float* srcDst, int32_t len));
// Product with a constant, scaled by 2^-scaleFactor, rounded to nearest with ties to even, saturated.
QORLOCAL(QorStatus, qorsMulC_16s_ISfs, (int16_t value, int16_t* srcDst, int32_t len, int32_t scaleFactor));

// Square root of each positive element, through double; 0 and NaN stay. A negative element becomes a NaN and gives
// kitStatusNegativeRoot.
QORLOCAL(QorStatus, qorsSqrt_32f_I, (float* srcDst, int32_t len));
// Square root of each element, scaled by 2^-scaleFactor, rounded and held to 32767. A negative element becomes 0 and
// gives kitStatusNegativeRoot.
QORLOCAL(QorStatus, qorsSqrt_32s16s_Sfs, (const int32_t* src, int16_t* dst, int32_t len, int32_t scaleFactor));

// Sorts in ascending order, in place, not stable; NaN is not handled.
QORLOCAL(QorStatus, qorsSortAscend_64f_I, (double* srcDst, int32_t len));
