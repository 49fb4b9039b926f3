// Sums over a block of integer pixels: exact, so the compiler may choose the order. The loops have the shapes of the
// machine's sum of absolute differences and its dot product of 16-bit integers.
#pragma once

#include "stats/lanes.h"
#include "stats/selection.h"

// A block of one value, in the place of a second image.
template <class T>
struct Constant {
  T pixels[blockPixels];
};

template <class T>
static constexpr Constant<T> constantBlock(T value) {
  Constant<T> block = {};
  for (int32_t x = 0; x < blockPixels; ++x) block.pixels[x] = value;
  return block;
}

static constexpr Constant<uint8_t> zeros8u = constantBlock<uint8_t>(0);
static constexpr Constant<int8_t> zeros8s = constantBlock<int8_t>(0), lowest8s = constantBlock<int8_t>(-128);
static constexpr Constant<uint16_t> zeros16u = constantBlock<uint16_t>(0);

static inline const uint8_t* zeros(uint8_t) { return zeros8u.pixels; }
static inline const int8_t* zeros(int8_t) { return zeros8s.pixels; }
static inline const uint16_t* zeros(uint16_t) { return zeros16u.pixels; }

static inline uint8_t distance(uint8_t a, uint8_t b) { return a > b ? uint8_t(a - b) : uint8_t(b - a); }
static inline uint8_t distance(int8_t a, int8_t b) { return a > b ? uint8_t(a - b) : uint8_t(b - a); }
static inline uint16_t distance(uint16_t a, uint16_t b) { return a > b ? uint16_t(a - b) : uint16_t(b - a); }

// Sum of |a - b|.
static inline int32_t sumOfDistances(const uint8_t* a, const uint8_t* b, int32_t count) {
  int32_t sum = 0;
  for (ptrdiff_t x = 0; x < count; ++x) sum += __builtin_abs(int32_t(a[x]) - int32_t(b[x]));
  return sum;
}

static inline int32_t sumOfDistances(const int8_t* a, const int8_t* b, int32_t count) {
  int32_t sum = 0;
  for (ptrdiff_t x = 0; x < count; ++x) {
    // The same distance between unsigned bytes.
    sum += __builtin_abs(int32_t(uint8_t(a[x] ^ 0x80)) - int32_t(uint8_t(b[x] ^ 0x80)));
  }
  return sum;
}

static inline int32_t sumOfDistances(const uint16_t* a, const uint16_t* b, int32_t count) {
  int32_t sum = 0;
  for (ptrdiff_t x = 0; x < count; ++x) sum += distance(a[x], b[x]);
  return sum;
}

// Sum of (a - b)^2.
template <class T>
static inline int64_t sumOfSquaredDistances(const T* a, const T* b, int32_t count) {
  static_assert(sizeof(T) == 1);
  int32_t sum = 0;
  for (ptrdiff_t x = 0; x < count; ++x) {
    const int16_t d = int16_t(a[x] - b[x]);
    sum += d * d;
  }
  return sum;
}

static inline int64_t sumOfSquaredDistances(const uint16_t* a, const uint16_t* b, int32_t count) {
  // The two halves of the squares, made signed so that the machine can add neighbours.
  const Words ones = allWords(1), middle = allWords(-32768);
  Words low = {}, high = {};
  ptrdiff_t x = 0;
  for (; x + wordsAtOnce <= count; x += wordsAtOnce) {
    const Words d = distances(loaded(a + x), loaded(b + x));
    low = sums(low, pairs(either(productsLow(d, d), middle), ones));
    high = sums(high, pairs(either(productsHigh(d, d), middle), ones));
  }
  const int64_t offset = 32768 * int64_t(x);
  int64_t sum = ((sumOfSigned(high) + offset) << 16) + sumOfSigned(low) + offset;
  for (; x < count; ++x) {
    const int64_t d = distance(a[x], b[x]);
    sum += d * d;
  }
  return sum;
}

// Sum of (a - 32768)^2.
static inline int64_t sumOfSquaresAroundMiddle(const uint16_t* a, int32_t count) {
  const Words middle = allWords(-32768);
  Words low = {}, high = {};
  ptrdiff_t x = 0;
  for (; x + wordsAtOnce <= count; x += wordsAtOnce) {
    const Words d = either(loaded(a + x), middle);
    const Words squares = pairs(d, d);  // up to 2^31, as an unsigned number
    low = sums(low, lowerHalves(squares));
    high = sums(high, upperHalves(squares));
  }
  int64_t sum = (sumOfSigned(high) << 16) + sumOfSigned(low);
  for (; x < count; ++x) {
    const int64_t d = a[x] - 32768;
    sum += d * d;
  }
  return sum;
}

// Sum of the pixels themselves.
static inline int32_t sumOfPixels(const uint8_t* a, int32_t count) { return sumOfDistances(a, zeros8u.pixels, count); }
static inline int32_t sumOfPixels(const int8_t* a, int32_t count) {
  return sumOfDistances(a, lowest8s.pixels, count) - 128 * count;
}
static inline int32_t sumOfPixels(const uint16_t* a, int32_t count) {
  return sumOfDistances(a, zeros16u.pixels, count);
}

// Greatest |a - b|.
template <class T>
static inline int32_t greatestDistance(const T* a, const T* b, int32_t count) {
  decltype(distance(T(), T())) greatest = 0;
  for (ptrdiff_t x = 0; x < count; ++x) {
    const auto d = distance(a[x], b[x]);
    greatest = d > greatest ? d : greatest;
  }
  return greatest;
}
