// Steps along a row: every pixel becomes the minimum of itself and of what the pixels before it, plus the costs of the
// way, would give it.
#pragma once

#include <immintrin.h>

#include <algorithm>
#include <limits>

#include "frame/loops.h"

namespace {

template <class T>
constexpr T cap = std::numeric_limits<T>::max();

// Costs of a step to the next pixel and, where a mask has such steps (`two` below), to the one after it.
template <class T>
struct RowSteps {
  T one, two;
};

}  // namespace

static inline float lesserOf(float a, float b) { return a < b ? a : b; }
static inline uint8_t lesserOf(uint8_t a, uint8_t b) { return a < b ? a : b; }
static inline uint16_t lesserOf(uint16_t a, uint16_t b) { return a < b ? a : b; }

// Integers stay at the cap. Costs must not exceed it.
static inline float plusCost(float value, float cost) { return value + cost; }
template <class T>
static inline T plusCost(T value, T cost) {
  return T(lesserOf(value, T(cap<T> - cost)) + cost);
}

// Pixels first .. limit - 1 in the order of the pass, one by one.
template <bool forward, bool two, class T>
static void chainOneByOne(T* row, ptrdiff_t first, ptrdiff_t limit, ptrdiff_t width, const RowSteps<T>& steps) {
  const auto at = [=](ptrdiff_t i) -> T& { return row[forward ? i : width - 1 - i]; };
  const T one = steps.one, twice = steps.two;
  T last = first > 0 ? at(first - 1) : cap<T>, lastButOne = first > 1 ? at(first - 2) : cap<T>;
  for (ptrdiff_t i = first; i < limit; ++i) {
    T value = at(i);
    if (two) value = lesserOf(plusCost(lastButOne, twice), value);
    value = lesserOf(plusCost(last, one), value);
    at(i) = value;
    lastButOne = last;
    last = value;
  }
}

namespace {

// Vectors of 16 bytes with the few operations of a saturating prefix. They hold complements, cap - value: the minimum
// is then a maximum, and the zeros that a shift brings in are no candidates.
template <class T>
struct Complements;

template <>
struct Complements<uint8_t> {
  static __m128i filled(uint8_t v) { return _mm_set1_epi8(char(v)); }
  static __m128i minus(__m128i v, __m128i cost) { return _mm_subs_epu8(v, cost); }
  static __m128i greater(__m128i a, __m128i b) { return _mm_max_epu8(a, b); }
  // The end that the next block follows: the last pixel, or the one before it.
  template <bool forward, bool lastButOne>
  static __m128i end(__m128i v) {
    constexpr int high = lastButOne ? 0xaa : 0xff, low = lastButOne ? 0x55 : 0x00;
    return forward ? _mm_shuffle_epi32(_mm_shufflehi_epi16(_mm_unpackhi_epi8(v, v), high), 0xff)
                   : _mm_shuffle_epi32(_mm_shufflelo_epi16(_mm_unpacklo_epi8(v, v), low), 0x00);
  }
};

template <>
struct Complements<uint16_t> {
  static __m128i filled(uint16_t v) { return _mm_set1_epi16(short(v)); }
  static __m128i minus(__m128i v, __m128i cost) { return _mm_subs_epu16(v, cost); }
  static __m128i greater(__m128i a, __m128i b) { return _mm_adds_epu16(_mm_subs_epu16(a, b), b); }
  template <bool forward, bool lastButOne>
  static __m128i end(__m128i v) {
    constexpr int high = lastButOne ? 0xaa : 0xff, low = lastButOne ? 0x55 : 0x00;
    return forward ? _mm_shuffle_epi32(_mm_shufflehi_epi16(v, high), 0xff)
                   : _mm_shuffle_epi32(_mm_shufflelo_epi16(v, low), 0x00);
  }
};

}  // namespace

template <bool forward, int32_t bytes>
static inline __m128i moved(__m128i v) {
  return forward ? _mm_slli_si128(v, bytes) : _mm_srli_si128(v, bytes);
}

// A prefix of each block by doubling, then what the end of the block before gives.
template <bool forward, bool two, class T>
static void chain(T* row, ptrdiff_t width, const RowSteps<T>& steps) {
  using V = Complements<T>;
  constexpr int32_t size = sizeof(T), lanes = 16 / size;
  const int32_t one = steps.one, pair = two ? std::min<int32_t>(steps.two, 2 * one) : 2 * one;
  const auto way = [=](int32_t length) {
    const int32_t cost = length / 2 * pair + length % 2 * one;
    return T(std::min<int32_t>(cost, cap<T>));
  };
  const __m128i cost1 = V::filled(way(1)), cost2 = V::filled(way(2)), cost4 = V::filled(way(4)),
                cost8 = V::filled(way(8));
  T fromLast[lanes], fromLastButOne[lanes];
  for (int32_t l = 0; l < lanes; ++l) {
    fromLast[forward ? l : lanes - 1 - l] = way(l + 1);
    fromLastButOne[forward ? l : lanes - 1 - l] = way(l + 2);
  }
  const __m128i costs1 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(fromLast));
  const __m128i costs2 = _mm_loadu_si128(reinterpret_cast<const __m128i*>(fromLastButOne));
  const __m128i ones = _mm_set1_epi8(-1);
  __m128i last = _mm_setzero_si128(), lastButOne = last;
  ptrdiff_t done = 0;
  for (; done + lanes <= width; done += lanes) {
    __m128i* const block = reinterpret_cast<__m128i*>(row + (forward ? done : width - done - lanes));
    __m128i v = _mm_xor_si128(_mm_loadu_si128(block), ones);
    v = V::greater(v, V::minus(moved<forward, size>(v), cost1));
    v = V::greater(v, V::minus(moved<forward, 2 * size>(v), cost2));
    v = V::greater(v, V::minus(moved<forward, 4 * size>(v), cost4));
    if (lanes > 8) v = V::greater(v, V::minus(moved<forward, 8 * size % 16>(v), cost8));
    if (two) v = V::greater(v, V::minus(lastButOne, costs2));
    v = V::greater(v, V::minus(last, costs1));
    last = V::template end<forward, false>(v);
    if (two) lastButOne = V::template end<forward, true>(v);
    _mm_storeu_si128(block, _mm_xor_si128(v, ones));
  }
  chainOneByOne<forward, two>(row, done, width, width, steps);
}

// Sums of floats round, so i steps are not i times the cost: no doubling.
template <bool forward, bool two>
static void chain(float* row, ptrdiff_t width, const RowSteps<float>& steps) {
  chainOneByOne<forward, two>(row, 0, width, width, steps);
}

// But each step waits for the one before, so several rows go side by side: blocks[r] is the first pixel of row r's
// block, in the order of the pass, with two pixels before it.
constexpr int32_t chainRows = 4, chainBlock = 32;

template <bool forward, bool two>
static void chainBlocks(float* const (&blocks)[chainRows], const RowSteps<float>& steps) {
  constexpr ptrdiff_t next = forward ? 1 : -1;
  const float one = steps.one, twice = steps.two;
  float last[chainRows], lastButOne[chainRows];
  for (int32_t r = 0; r < chainRows; ++r) {
    last[r] = blocks[r][-next];
    lastButOne[r] = blocks[r][-2 * next];
  }
  for (ptrdiff_t i = 0; i < chainBlock; ++i) {
#pragma GCC unroll 4
    for (int32_t r = 0; r < chainRows; ++r) {
      float value = blocks[r][i * next];
      if (two) value = lesserOf(lastButOne[r] + twice, value);
      value = lesserOf(last[r] + one, value);
      blocks[r][i * next] = value;
      lastButOne[r] = last[r];
      last[r] = value;
    }
  }
}
