// Rows of bilinear interpolation, each between two rows of the source.
//
// Weights of 8-bit pixels have 14 fraction bits, so two neighbours and their weights go through the machine's product
// of 16-bit pairs.
#pragma once

#include <immintrin.h>

#include <type_traits>

#include "frame/loops.h"
#include "frame/rows.h"

namespace {

// Weights of the pixel at the left and above, its right neighbour, the one below, and the one below the neighbour; the
// sum is divided by 2^shift and rounded to nearest.
struct FixedWeights {
  int32_t topLeft, topRight, bottomLeft, bottomRight;
  int32_t shift;
};

struct FloatWeights {
  float topLeft, topRight, bottomLeft, bottomRight;
};

inline int32_t weighed(int32_t topLeft, int32_t topRight, int32_t bottomLeft, int32_t bottomRight,
                       const FixedWeights& w) {
  return w.topLeft * topLeft + w.topRight * topRight + w.bottomLeft * bottomLeft + w.bottomRight * bottomRight;
}

inline float weighed(float topLeft, float topRight, float bottomLeft, float bottomRight, const FloatWeights& w) {
  return topLeft * w.topLeft + topRight * w.topRight + bottomLeft * w.bottomLeft + bottomRight * w.bottomRight;
}

// A sum of weighed pixels (not negative) as a result. Shifts of 1 to 30 leave room for the rounding term.
inline bool plainShift(int32_t shift) { return shift >= 1 && shift <= 30; }

template <class Dst>
inline Dst shifted(int32_t sum, int32_t shift) {
  constexpr int64_t most = Dst(-1);
  int64_t value;
  if (shift > 40) {
    value = 0;
  } else if (shift >= 1) {
    value = (int64_t(sum) + (int64_t(1) << (shift - 1))) >> shift;
  } else {
    value = int64_t(sum) << (shift < -20 ? 20 : -shift);
  }
  return Dst(value > most ? most : value);
}

// Vectors of 16-bit pixels, and of pairs of neighbours as 32 bits.
#if defined(__AVX512BW__)
#define QOR_PAIR_PRODUCTS
constexpr ptrdiff_t pixelLanes = 32;
using PixelMask = __mmask32;
using Pairs = __m512i;

inline PixelMask maskOf(ptrdiff_t pixels) { return pixels >= 32 ? ~PixelMask(0) : (PixelMask(1) << pixels) - 1; }
inline Pairs pixelsAt(const uint8_t* src, PixelMask mask) {
  return _mm512_maskz_cvtepu8_epi16(mask, _mm256_maskz_loadu_epi8(mask, src));
}
inline Pairs pairsOf(int32_t first, int32_t second) { return _mm512_set1_epi32(first | (second << 16)); }
inline Pairs lowPairs(Pairs a, Pairs b) { return _mm512_unpacklo_epi16(a, b); }
inline Pairs highPairs(Pairs a, Pairs b) { return _mm512_unpackhi_epi16(a, b); }
inline Pairs products(Pairs a, Pairs b) { return _mm512_madd_epi16(a, b); }
inline Pairs plus(Pairs a, Pairs b) { return _mm512_add_epi32(a, b); }
inline Pairs shiftedRight(Pairs a, __m128i shift) { return _mm512_maskz_sra_epi32(0xffff, a, shift); }
inline Pairs packed(Pairs low, Pairs high) { return _mm512_packus_epi32(low, high); }
inline void put(uint8_t* dst, Pairs values, PixelMask mask) { _mm512_mask_cvtepi16_storeu_epi8(dst, mask, values); }
inline void put(uint16_t* dst, Pairs values, PixelMask mask) { _mm512_mask_storeu_epi16(dst, mask, values); }

#elif defined(__AVX2__)
#define QOR_PAIR_PRODUCTS
constexpr ptrdiff_t pixelLanes = 16;
struct PixelMask {};
using Pairs = __m256i;

inline PixelMask maskOf(ptrdiff_t) { return {}; }
inline Pairs pixelsAt(const uint8_t* src, PixelMask) {
  return _mm256_cvtepu8_epi16(_mm_loadu_si128(reinterpret_cast<const __m128i*>(src)));
}
inline Pairs pairsOf(int32_t first, int32_t second) { return _mm256_set1_epi32(first | (second << 16)); }
inline Pairs lowPairs(Pairs a, Pairs b) { return _mm256_unpacklo_epi16(a, b); }
inline Pairs highPairs(Pairs a, Pairs b) { return _mm256_unpackhi_epi16(a, b); }
inline Pairs products(Pairs a, Pairs b) { return _mm256_madd_epi16(a, b); }
inline Pairs plus(Pairs a, Pairs b) { return _mm256_add_epi32(a, b); }
inline Pairs shiftedRight(Pairs a, __m128i shift) { return _mm256_sra_epi32(a, shift); }
inline Pairs packed(Pairs low, Pairs high) { return _mm256_packus_epi32(low, high); }
inline void put(uint8_t* dst, Pairs values, PixelMask) {
  _mm_storeu_si128(reinterpret_cast<__m128i*>(dst),
                   _mm_packus_epi16(_mm256_castsi256_si128(values), _mm256_extracti128_si256(values, 1)));
}
inline void put(uint16_t* dst, Pairs values, PixelMask) {
  _mm256_storeu_si256(reinterpret_cast<__m256i*>(dst), values);
}
#endif

#ifdef QOR_PAIR_PRODUCTS
// With masks any number of pixels goes; without, at least a vector's, and the last one overlaps the one before.
#ifdef __AVX512BW__
constexpr bool masked = true;
#else
constexpr bool masked = false;
#endif

// Column by column of vectors, since a row's lower neighbours are the next one's upper ones.
template <class Dst>
inline void interpolatePairs(const uint8_t* src, int32_t srcStep, Dst* dst, int32_t dstStep, ptrdiff_t count,
                             int32_t rows, const FixedWeights& w) {
  const Pairs topWeights = pairsOf(w.topLeft, w.topRight), bottomWeights = pairsOf(w.bottomLeft, w.bottomRight);
  const int32_t half = 1 << (w.shift - 1);
  const Pairs rounding = pairsOf(half & 0xffff, half >> 16);
  const __m128i shift = _mm_cvtsi32_si128(w.shift);
  for (ptrdiff_t block = 0; block < count; block += pixelLanes) {
    const ptrdiff_t x = masked || block <= count - pixelLanes ? block : count - pixelLanes;
    const PixelMask mask = maskOf(count - x);
    Pairs left = pixelsAt(src + x, mask), right = pixelsAt(src + x + 1, mask);
    Pairs low = lowPairs(left, right), high = highPairs(left, right);
    for (int32_t y = 0; y < rows; ++y) {
      const Pairs lowTop = products(low, topWeights), highTop = products(high, topWeights);
      const uint8_t* below = rowAt(src, srcStep, ptrdiff_t(y) + 1) + x;
      left = pixelsAt(below, mask);
      right = pixelsAt(below + 1, mask);
      low = lowPairs(left, right);
      high = highPairs(left, right);
      // Packing undoes the interleaving.
      const Pairs lowSums = plus(plus(lowTop, rounding), products(low, bottomWeights));
      const Pairs highSums = plus(plus(highTop, rounding), products(high, bottomWeights));
      put(rowAt(dst, dstStep, y) + x, packed(shiftedRight(lowSums, shift), shiftedRight(highSums, shift)), mask);
    }
  }
}
#endif

// dst[x] from top[x], top[x + 1], bottom[x] and bottom[x + 1].
template <class Src, class Dst>
inline void interpolateRow(const Src* top, const Src* bottom, Dst* dst, ptrdiff_t count, const FixedWeights& w) {
  if (plainShift(w.shift)) {
    constexpr int32_t most = Dst(-1);
    const int32_t half = 1 << (w.shift - 1);
    for (ptrdiff_t x = 0; x < count; ++x) {
      const int32_t value = (weighed(top[x], top[x + 1], bottom[x], bottom[x + 1], w) + half) >> w.shift;
      dst[x] = Dst(value > most ? most : value);
    }
    return;
  }
  for (ptrdiff_t x = 0; x < count; ++x) {
    dst[x] = shifted<Dst>(weighed(top[x], top[x + 1], bottom[x], bottom[x + 1], w), w.shift);
  }
}

template <class Src>
inline void interpolateRow(const Src* top, const Src* bottom, float* dst, ptrdiff_t count, const FloatWeights& w) {
  for (ptrdiff_t x = 0; x < count; ++x) {
    dst[x] = weighed(float(top[x]), float(top[x + 1]), float(bottom[x]), float(bottom[x + 1]), w);
  }
}

// `rows` such rows.
template <class Src, class Dst, class Weights>
inline void interpolateRows(const Src* src, int32_t srcStep, Dst* dst, int32_t dstStep, ptrdiff_t count, int32_t rows,
                            const Weights& w) {
#ifdef QOR_PAIR_PRODUCTS
  if constexpr (sizeof(Src) == 1 && !std::is_same_v<Dst, float>) {
    if (plainShift(w.shift) && (masked || count >= pixelLanes)) {
      // Broad images go row by row, as the memory lies.
      const int32_t atOnce = count <= 4 * pixelLanes ? rows : 1;
      for (int32_t y = 0; y < rows; y += atOnce) {
        interpolatePairs(rowAt(src, srcStep, y), srcStep, rowAt(dst, dstStep, y), dstStep, count, atOnce, w);
      }
      return;
    }
  }
#endif
  for (int32_t y = 0; y < rows; ++y) {
    interpolateRow(rowAt(src, srcStep, y), rowAt(src, srcStep, ptrdiff_t(y) + 1), rowAt(dst, dstStep, y), count, w);
  }
}

}  // namespace
