// Windows that a stage has to look at, in blocks of neighbours in a row: as many as the level has lanes, from one live
// window on. Lanes are independent, so that the results are those of a window alone, and cells are loaded under the
// mask of the live windows: what only a dead window would read may not exist.
#pragma once

#include <immintrin.h>
#include <string.h>

#include "frame/rows.h"

namespace {

#if defined(__AVX512BW__)

constexpr ptrdiff_t blockLanes = 16, blockHalves = 2;
typedef int32_t BlockInts __attribute__((vector_size(64)));
typedef float BlockFloats __attribute__((vector_size(64)));
typedef int64_t BlockLongs __attribute__((vector_size(64)));

struct Block {
  uint32_t live;
  explicit Block(uint32_t bits) : live(bits) {}
  BlockInts cells(const int32_t* from) const { return BlockInts(_mm512_maskz_loadu_epi32(__mmask16(live), from)); }
  BlockFloats cells(const float* from) const { return BlockFloats(_mm512_maskz_loadu_ps(__mmask16(live), from)); }
};

static inline BlockInts inBlock(int32_t value) { return BlockInts(_mm512_set1_epi32(value)); }
static inline BlockFloats inBlock(float value) { return BlockFloats(_mm512_set1_ps(value)); }
static inline BlockLongs inHalf(int64_t value) { return BlockLongs(_mm512_set1_epi64(value)); }
static inline BlockFloats toFloats(BlockInts a) { return __builtin_convertvector(a, BlockFloats); }
static inline uint32_t bitsOf(BlockInts lanes) { return _mm512_movepi32_mask(__m512i(lanes)); }
static inline BlockLongs lowHalf(BlockInts a) {
  return BlockLongs(_mm512_maskz_cvtepi32_epi64(0xff, _mm512_maskz_extracti64x4_epi64(0xff, __m512i(a), 0)));
}
static inline BlockLongs highHalf(BlockInts a) {
  return BlockLongs(_mm512_maskz_cvtepi32_epi64(0xff, _mm512_maskz_extracti64x4_epi64(0xff, __m512i(a), 1)));
}
static inline void storeHalf(int64_t* to, BlockLongs a) { _mm512_storeu_si512(to, __m512i(a)); }

#elif defined(__AVX2__)

constexpr ptrdiff_t blockLanes = 8, blockHalves = 2;
typedef int32_t BlockInts __attribute__((vector_size(32)));
typedef float BlockFloats __attribute__((vector_size(32)));
typedef int64_t BlockLongs __attribute__((vector_size(32)));

struct Block {
  uint32_t live;
  __m256i lanes;
  explicit Block(uint32_t bits) : live(bits) {
    const __m256i each = _mm256_setr_epi32(1, 2, 4, 8, 16, 32, 64, 128);
    lanes = _mm256_cmpeq_epi32(_mm256_and_si256(_mm256_set1_epi32(int32_t(bits)), each), each);
  }
  BlockInts cells(const int32_t* from) const { return BlockInts(_mm256_maskload_epi32(from, lanes)); }
  BlockFloats cells(const float* from) const { return BlockFloats(_mm256_maskload_ps(from, lanes)); }
};

static inline BlockInts inBlock(int32_t value) { return BlockInts(_mm256_set1_epi32(value)); }
static inline BlockFloats inBlock(float value) { return BlockFloats(_mm256_set1_ps(value)); }
static inline BlockLongs inHalf(int64_t value) { return BlockLongs(_mm256_set1_epi64x(value)); }
static inline BlockFloats toFloats(BlockInts a) { return __builtin_convertvector(a, BlockFloats); }
static inline uint32_t bitsOf(BlockInts lanes) { return uint32_t(_mm256_movemask_ps(__m256(lanes))); }
static inline BlockLongs lowHalf(BlockInts a) {
  return BlockLongs(_mm256_cvtepi32_epi64(_mm256_castsi256_si128(__m256i(a))));
}
static inline BlockLongs highHalf(BlockInts a) {
  return BlockLongs(_mm256_cvtepi32_epi64(_mm256_extracti128_si256(__m256i(a), 1)));
}
static inline void storeHalf(int64_t* to, BlockLongs a) {
  _mm256_storeu_si256(reinterpret_cast<__m256i_u*>(to), __m256i(a));
}

#else

// Without loads under a mask: one window at a time.
constexpr ptrdiff_t blockLanes = 1, blockHalves = 1;
typedef int32_t BlockInts;
typedef float BlockFloats;
typedef int64_t BlockLongs;

struct Block {
  uint32_t live;
  explicit Block(uint32_t bits) : live(bits) {}
  template <class T>
  T cells(const T* from) const {
    T cell;
    memcpy(&cell, from, sizeof cell);
    return cell;
  }
};

static inline int32_t inBlock(int32_t value) { return value; }
static inline float inBlock(float value) { return value; }
static inline int64_t inHalf(int64_t value) { return value; }
static inline float toFloats(int32_t a) { return float(a); }
static inline uint32_t bitsOf(bool lane) { return lane; }
static inline int64_t lowHalf(int32_t a) { return a; }
static inline int64_t highHalf(int32_t) { return 0; }
static inline void storeHalf(int64_t* to, int64_t a) { *to = a; }

#endif

template <class T>
struct BlockOf;
template <>
struct BlockOf<int32_t> {
  using Type = BlockInts;
};
template <>
struct BlockOf<float> {
  using Type = BlockFloats;
};

}  // namespace

// The first place from x on whose byte is not 0, or the width.
static inline ptrdiff_t nextLive(const uint8_t* mask, ptrdiff_t x, ptrdiff_t width) {
  for (; x + 8 <= width; x += 8) {
    uint64_t eight;
    memcpy(&eight, mask + x, sizeof eight);
    if (eight) return x + (__builtin_ctzll(eight) >> 3);
  }
  while (x < width && !mask[x]) ++x;
  return x;
}

// A bit for each of the next `count` places, at most a block, whose byte is not 0.
static inline uint32_t liveBits(const uint8_t* mask, ptrdiff_t count) {
  if constexpr (blockLanes == 1) return mask[0] != 0;
  uint8_t bytes[16] = {};
  if (count >= blockLanes) {
    memcpy(bytes, mask, blockLanes);
  } else {
    for (ptrdiff_t i = 0; i < count; ++i) bytes[i] = mask[i];
  }
  const __m128i dead = _mm_cmpeq_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes)), _mm_setzero_si128());
  return ~uint32_t(_mm_movemask_epi8(dead)) & ((1u << blockLanes) - 1);
}

// Clears the live windows of a row for which failing(block, x) has a bit; returns the number of the others.
template <class Failing>
static inline int32_t clearFailing(uint8_t* mask, ptrdiff_t width, Failing failing) {
  int32_t survivors = 0;
  for (ptrdiff_t x = nextLive(mask, 0, width); x < width; x = nextLive(mask, x, width)) {
    const Block block(liveBits(mask + x, width - x));
    const uint32_t cleared = block.live & failing(block, x), kept = block.live & ~cleared;
    for (uint32_t bits = cleared; bits; bits &= bits - 1) mask[x + __builtin_ctz(bits)] = 0;
    survivors += blockLanes == 1 ? int32_t(kept) : __builtin_popcount(kept);
    x += width - x < blockLanes ? width - x : blockLanes;
  }
  return survivors;
}
