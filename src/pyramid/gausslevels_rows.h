// Rows of bytes for the halving Gaussian level: every other column of the kernel 1 4 6 4 1, in 16 bits.
//
// Neighbouring bytes make a pair that one instruction multiplies and adds, so a vector of bytes gives half as many
// sums: the pairs at columns 2i - 2 and 2i, and the second half of the pair at 2i + 1, which reads nothing past column
// 2i + 2. Pixels of three channels are first brought side by side, two outputs to a lane of 16 bytes.
#pragma once

#include <immintrin.h>

#include <type_traits>

#include "frame/level.h"

namespace {

#if defined(__AVX512BW__)
#define QOR_HALVING_VECTORS
using Bytes = __m512i;

inline Bytes weights(int32_t even, int32_t odd) { return _mm512_set1_epi16(int16_t(even | odd << 8)); }
inline Bytes load(const void* from) { return _mm512_loadu_si512(from); }
inline void store(void* to, Bytes v) { _mm512_storeu_si512(to, v); }
inline Bytes plus(Bytes a, Bytes b) { return _mm512_add_epi16(a, b); }
// Pixels are signed only where the second operand of the instruction, which is signed, holds them.
template <class T>
inline Bytes pairs(Bytes pixels, Bytes weight) {
  return std::is_signed_v<T> ? _mm512_maddubs_epi16(weight, pixels) : _mm512_maddubs_epi16(pixels, weight);
}
// 12 bytes a lane; what is between them and the end of the vector is not touched.
inline Bytes loadTriples(const void* from) {
  const Bytes spread = _mm512_setr_epi32(0, 1, 2, 2, 3, 4, 5, 5, 6, 7, 8, 8, 9, 10, 11, 11);
  const Bytes pairUp =
      _mm512_maskz_broadcast_i32x4(0xffff, _mm_setr_epi8(0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1));
  const Bytes v = _mm512_maskz_loadu_epi32(0x0fff, from);
  return _mm512_shuffle_epi8(_mm512_maskz_permutexvar_epi32(0xffff, spread, v), pairUp);
}
inline void storeTriples(void* to, Bytes v) {
  const Bytes gather = _mm512_setr_epi32(0, 1, 2, 4, 5, 6, 8, 9, 10, 12, 13, 14, 15, 15, 15, 15);
  _mm512_mask_storeu_epi32(to, 0x0fff, _mm512_maskz_permutexvar_epi32(0xffff, gather, v));
}

#elif defined(__AVX2__)
#define QOR_HALVING_VECTORS
using Bytes = __m256i;

inline Bytes weights(int32_t even, int32_t odd) { return _mm256_set1_epi16(int16_t(even | odd << 8)); }
inline Bytes load(const void* from) { return _mm256_loadu_si256(static_cast<const Bytes*>(from)); }
inline void store(void* to, Bytes v) { _mm256_storeu_si256(static_cast<Bytes*>(to), v); }
inline Bytes plus(Bytes a, Bytes b) { return _mm256_add_epi16(a, b); }
template <class T>
inline Bytes pairs(Bytes pixels, Bytes weight) {
  return std::is_signed_v<T> ? _mm256_maddubs_epi16(weight, pixels) : _mm256_maddubs_epi16(pixels, weight);
}
inline Bytes firstSix() { return _mm256_setr_epi32(-1, -1, -1, -1, -1, -1, 0, 0); }
inline Bytes loadTriples(const void* from) {
  const Bytes pairUp = _mm256_broadcastsi128_si256(_mm_setr_epi8(0, 3, 1, 4, 2, 5, 6, 9, 7, 10, 8, 11, -1, -1, -1, -1));
  const Bytes v = _mm256_maskload_epi32(static_cast<const int*>(from), firstSix());
  return _mm256_shuffle_epi8(_mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 2, 2, 3, 4, 5, 5)), pairUp);
}
inline void storeTriples(void* to, Bytes v) {
  _mm256_maskstore_epi32(static_cast<int*>(to), firstSix(),
                         _mm256_permutevar8x32_epi32(v, _mm256_setr_epi32(0, 1, 2, 4, 5, 6, 7, 7)));
}
#endif

#ifdef QOR_HALVING_VECTORS
// The sums of `count` pixels; the first is centred on the pixel at `centre`, and all that they reach are in the row.
// False, with nothing written, where the row is shorter than a vector.
template <class T, int32_t channels, class Sum>
inline bool halveBytes(const T* centre, Sum* sums, ptrdiff_t count) {
  constexpr ptrdiff_t atOnce = channels == 1 ? sizeof(Bytes) / 2 : sizeof(Bytes) / 8;
  if (count < atOnce) return false;
  const Bytes outer = weights(1, 4), inner = weights(6, 4), last = weights(0, 1);
  for (ptrdiff_t i = 0;; i += atOnce) {
    if (i > count - atOnce) i = count - atOnce;  // the last vector ends with the row
    const T* const p = centre + 2 * i * channels;
    Sum* const to = sums + i * channels;
    if constexpr (channels == 1) {
      store(to, plus(plus(pairs<T>(load(p - 2), outer), pairs<T>(load(p), inner)), pairs<T>(load(p + 1), last)));
    } else {
      storeTriples(to, plus(plus(pairs<T>(loadTriples(p - 6), outer), pairs<T>(loadTriples(p), inner)),
                            pairs<T>(loadTriples(p + 3), last)));
    }
    if (i == count - atOnce) return true;
  }
}
#endif

#if defined(__AVX512BW__)
#define QOR_DOUBLING_VECTORS
// The sums of ten pixels of three channels, 30 even ones and 30 odd ones, to their places in the row: by threes in
// turn.
inline void storeInTurn(void* to, Bytes even, Bytes odd) {
  constexpr __mmask32 thirty = 0x3fffffff;
  alignas(64) static constexpr int16_t first[32] = {0,  1,  2,  32, 33, 34, 3,  4,  5,  35, 36, 37, 6,  7,  8,
                                                    38, 39, 40, 9,  10, 11, 41, 42, 43, 12, 13, 14, 44, 45, 46};
  int16_t* const sums = static_cast<int16_t*>(to);
  const Bytes order = _mm512_load_si512(first);
  // The second half takes the same turns from the sixteenth sum on.
  const Bytes later = plus(order, _mm512_set1_epi16(15));
  _mm512_mask_storeu_epi16(sums, thirty, _mm512_maskz_permutex2var_epi16(thirty, even, order, odd));
  _mm512_mask_storeu_epi16(sums + 30, thirty, _mm512_maskz_permutex2var_epi16(thirty, even, later, odd));
}

// The sums of `count` pixels of three channels from `src` on, which have a neighbour on both sides. False, with nothing
// written, for fewer than ten.
template <class T, class Sum>
inline bool doubleTriples(const T* src, Sum* sums, ptrdiff_t count) {
  constexpr ptrdiff_t atOnce = 10;
  if (count < atOnce) return false;
  const auto thirtyAt = [](const T* from) {
    const __m256i bytes = _mm256_maskz_loadu_epi8(0x3fffffff, from);
    return std::is_signed_v<T> ? _mm512_cvtepi8_epi16(bytes) : _mm512_cvtepu8_epi16(bytes);
  };
  for (ptrdiff_t i = 0;; i += atOnce) {
    if (i > count - atOnce) i = count - atOnce;
    const Bytes left = thirtyAt(src + 3 * i - 3), here = thirtyAt(src + 3 * i), right = thirtyAt(src + 3 * i + 3);
    const Bytes twice = plus(here, here), even = plus(plus(left, right), plus(twice, plus(twice, twice)));
    storeInTurn(sums + 6 * i, even, _mm512_slli_epi16(plus(here, right), 2));
    if (i == count - atOnce) return true;
  }
}
#endif

}  // namespace
