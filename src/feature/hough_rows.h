// Votes of one theta row: the bins of 16 pixels at a time.
//
// A pixel is one word, its column in the low half and its row in the high half, so that one multiply-and-add forms
// cosine * x + sine * y.
#pragma once

#include <string.h>

#include "frame/lanes.h"
#include "frame/level.h"

namespace {

typedef int32_t Lanes32 __attribute__((vector_size(vectorBytes)));
typedef uint32_t UnsignedLanes32 __attribute__((vector_size(vectorBytes)));

constexpr ptrdiff_t houghBlock = 16, houghLanes = lanes<Lanes32, int32_t>;

// A theta row: cosine and sine as multiples of 1/1024 bin, and the bins that count.
struct HoughAngle {
  int32_t cosine, sine, rhoHalf, binLow, binHigh;
};

// Whether cosine and sine have 16 bits. Then no sum of products leaves 32 bits, and bins ascend or descend with x and
// y.
inline bool isNarrow(const HoughAngle& angle) {
  return angle.cosine == int16_t(angle.cosine) && angle.sine == int16_t(angle.sine);
}

// The bin of a pixel, in 32 bits that may wrap.
inline int32_t binOf(const HoughAngle& angle, int32_t x, int32_t y) {
  return ((angle.cosine * x + angle.sine * y + 512) >> 10) + angle.rhoHalf;
}

inline Lanes32 pairedProducts(Lanes32 pixels, Lanes32 weights) {
#if defined(__AVX512BW__)
  return Lanes32(_mm512_madd_epi16(__m512i(pixels), __m512i(weights)));
#elif defined(__AVX2__)
  return Lanes32(_mm256_madd_epi16(__m256i(pixels), __m256i(weights)));
#else
  return Lanes32(_mm_madd_epi16(__m128i(pixels), __m128i(weights)));
#endif
}

template <bool narrow>
inline Lanes32 binsOf(const HoughAngle& angle, const uint32_t* pixels) {
  Lanes32 p;
  memcpy(&p, pixels, sizeof p);
  Lanes32 sums;
  if constexpr (narrow) {
    const int32_t weights = int32_t(uint32_t(angle.sine) << 16 | uint16_t(angle.cosine));
    sums = pairedProducts(p, Lanes32{} + weights);
  } else {
    sums = (p & 0xffff) * angle.cosine + Lanes32(UnsignedLanes32(p) >> 16) * angle.sine;
  }
  return ((sums + 512) >> 10) + angle.rhoHalf;
}

// Appends the bins of a block of pixels that count to `bins`, which has room for a whole block; how many they are.
template <bool narrow>
inline ptrdiff_t countingBins(const HoughAngle& angle, const uint32_t* pixels, uint32_t* bins) {
  const uint32_t range = uint32_t(angle.binHigh) - uint32_t(angle.binLow);
#if defined(__AVX512BW__)
  const __m512i all = __m512i(binsOf<narrow>(angle, pixels));
  const __mmask16 count = _mm512_cmple_epu32_mask(_mm512_sub_epi32(all, _mm512_set1_epi32(angle.binLow)),
                                                  _mm512_set1_epi32(int32_t(range)));
  _mm512_storeu_si512(bins, _mm512_maskz_compress_epi32(count, all));
  return __builtin_popcount(count);
#else
  ptrdiff_t count = 0;
  for (ptrdiff_t i = 0; i < houghBlock; i += houghLanes) {
    const Lanes32 some = binsOf<narrow>(angle, pixels + i);
    for (ptrdiff_t l = 0; l < houghLanes; ++l) {
      bins[count] = uint32_t(some[l]);
      count += uint32_t(some[l]) - uint32_t(angle.binLow) <= range;
    }
  }
  return count;
#endif
}

// Votes of `blocks` times 16 pixels. Without `all`, bins outside binLow .. binHigh do not count; with it there must be
// none. Bins go through memory, many at a time: taking them out of vectors one by one is slower.
template <bool narrow, bool all>
inline void voteBlocks(const HoughAngle& angle, const uint32_t* pixels, ptrdiff_t blocks, int32_t* votes) {
  constexpr ptrdiff_t mostBlocks = 32;
  uint32_t bins[mostBlocks * houghBlock] __attribute__((aligned(64)));
  while (blocks > 0) {
    const ptrdiff_t now = blocks < mostBlocks ? blocks : mostBlocks;
    ptrdiff_t count = 0;
    if constexpr (all) {
      for (; count < now * houghBlock; count += houghLanes) {
        const Lanes32 some = binsOf<narrow>(angle, pixels + count);
        memcpy(bins + count, &some, sizeof some);
      }
    } else {
      for (ptrdiff_t b = 0; b < now; ++b) count += countingBins<narrow>(angle, pixels + b * houghBlock, bins + count);
    }
    ptrdiff_t i = 0;
    for (; i + 8 <= count; i += 8) {
#pragma GCC unroll 8
      for (ptrdiff_t j = 0; j < 8; ++j) ++votes[bins[i + j]];
    }
    for (; i < count; ++i) ++votes[bins[i]];
    pixels += now * houghBlock;
    blocks -= now;
  }
}

}  // namespace
