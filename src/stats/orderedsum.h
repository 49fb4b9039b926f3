// Sums of doubles in a fixed order, faster than one addition after the other and with the same bits.
//
// A chain of additions total = round(total + term) waits for each addition to end. But while the total stays between
// two powers of 2 its last bit has a fixed weight, `unit`, and adding a term adds the multiple of `unit` nearest to it,
// whatever the total is. So for a block of terms:
//
//   1. round each term to a multiple of `unit`, by adding and subtracting 1.5 times the power of 2;
//   2. sum the rounded terms and bound their magnitudes: multiples of `unit`, so the sum is exact in any order;
//   3. where the magnitudes cannot take the total out of its interval, that sum is what the chain adds, but for ties:
//      terms halfway between two multiples go to the one that makes the total even, which needs to know whether it was
//      odd. Step 1 took it for even; where it was odd, the tie goes the other way.
//
// The sum is right too where no term had to be rounded, the total is a multiple of `unit`, and everything stays below
// the upper power of 2: then every sum on the way is exact.
//
// Otherwise the block goes through the chain. That happens while a sum is young and where it passes a power of 2, in
// sums with a NaN or an infinity, and where a sum of mixed signs stays small.
#pragma once

#include <float.h>
#include <stddef.h>
#include <string.h>

#include "frame/level.h"
#include "stats/lanes.h"

typedef int64_t Bits __attribute__((vector_size(sizeof(Doubles))));

static inline double magnitudeOf(double x) { return __builtin_fabs(x); }
static inline Doubles magnitudeOf(Doubles x) { return Doubles(Bits(x) & INT64_MAX); }

static inline double sumOfLanes(Doubles x) {
  if constexpr (doublesAtOnce > 4) x += rotated<4>(x);
  if constexpr (doublesAtOnce > 2) x += rotated<2>(x);
  x += rotated<1>(x);
  return x[0];
}

struct OrderedSum {
  double total = 0.0;
  double reach = 0.0;   // sum of the last block's magnitudes, a guess at the next one's
  int32_t length = 0;   // values to try next at once
  int32_t detour = 0;   // blocks to send through the chain before the next try
  int32_t penalty = 0;  // length of the last detour
};

enum class Terms { ofBothSigns, neverNegative };

// Largest power of 2 not above x, for a positive x that is not denormal.
static inline double powerBelow(double x) {
  uint64_t bits;
  memcpy(&bits, &x, sizeof bits);
  bits &= 0x7ff0000000000000;
  memcpy(&x, &bits, sizeof x);
  return x;
}

// A block is as many values as `streams` additions at a time take, or several times as many.
constexpr ptrdiff_t streams = 4, stride = doublesAtOnce * streams;
constexpr int32_t shortBlock = 64, longBlock = 1024;

static inline double largestMagnitude(const Doubles* streamsOfIt) {
  Doubles x =
      largerMagnitude(largerMagnitude(streamsOfIt[0], streamsOfIt[1]), largerMagnitude(streamsOfIt[2], streamsOfIt[3]));
  if constexpr (doublesAtOnce > 4) x = largerMagnitude(x, rotated<4>(x));
  if constexpr (doublesAtOnce > 2) x = largerMagnitude(x, rotated<2>(x));
  return largerMagnitude(x, rotated<1>(x))[0];
}

// What the ties of a block add to the sum of the rounded terms.
template <class Term>
static inline double correctionOfTies(double total, const float* values, ptrdiff_t count, Term term, double shifter,
                                      double halfUnit) {
  uint64_t odd;  // in the lowest bit, whether the total is an odd multiple of `unit`
  memcpy(&odd, &total, sizeof odd);
  double correction = 0.0;
  Bits untied = {};  // lowest bits: whether the terms since the last tie make the total odd or even
  for (ptrdiff_t i = 0; i < count; i += doublesAtOnce) {
    const Doubles exact = term(widened(values + i)), shifted = exact + shifter, error = exact - (shifted - shifter);
    uint32_t ties = signsOf(Doubles(Bits(magnitudeOf(error)) == Bits(Doubles{} + halfUnit)));
    if (ties == 0) {
      untied ^= Bits(shifted);
      continue;
    }
    odd += uint32_t(__builtin_popcount(signsOf(Doubles(untied << 63))));
    untied = Bits{};
    uint32_t odds = signsOf(Doubles(Bits(shifted) << 63));
    const uint32_t negatives = signsOf(error);
    for (; ties != 0; ties &= ties - 1) {
      const uint32_t tie = ties & -ties, before = tie - 1;
      odd += uint32_t(__builtin_popcount(odds & before));
      if (odd & 1) correction += negatives & tie ? -2 * halfUnit : 2 * halfUnit;
      odd = 0;  // a tie leaves the total even
      odds &= ~(before | tie);
    }
    odd += uint32_t(__builtin_popcount(odds));
  }
  return correction;
}

// Adds the terms of a block of `count` values if their sum can be had without the chain.
template <Terms signs, class Term>
static inline bool addAtOnce(OrderedSum& sum, const float* values, ptrdiff_t count, Term term) {
  // Far from the ends of the exponents, so that neither `unit` nor the sums leave the range of doubles.
  constexpr double lowest = 0x1p-900, highest = 0x1p+900;
  const double size = magnitudeOf(sum.total);
  double guide = size > 4 * sum.reach ? size : 4 * sum.reach;
  guide = guide > lowest ? guide : lowest;
  if (!(guide < highest)) return false;
  const double power = powerBelow(guide), halfUnit = power * (DBL_EPSILON / 2), shifter = 1.5 * power;

  Doubles sums[streams] = {}, largest[streams] = {}, errors[streams] = {};
  for (ptrdiff_t i = 0; i < count; i += stride) {
#pragma GCC unroll 4
    for (ptrdiff_t s = 0; s < streams; ++s) {
      const Doubles exact = term(widened(values + i + s * doublesAtOnce));
      const Doubles rounded = (exact + shifter) - shifter;
      sums[s] += rounded;
      if constexpr (signs == Terms::ofBothSigns) largest[s] = largerMagnitude(largest[s], rounded);
      errors[s] = largerMagnitude(errors[s], exact - rounded);
    }
  }
  const double blockSum = sumOfLanes((sums[0] + sums[1]) + (sums[2] + sums[3]));
  const double error = largestMagnitude(errors);
  // One more than all, to stay an upper bound when it has been rounded.
  const double magnitudes = signs == Terms::neverNegative ? blockSum : largestMagnitude(largest) * double(count + 1);

  // A NaN fails each of these comparisons: it reaches the sums, if not the errors.
  sum.reach = magnitudes < highest ? magnitudes : 0.0;
  if (!(magnitudes < power / 2)) return false;  // the rounding of step 1 held
  // Ties move the total by up to one unit each.
  const double slack = error == halfUnit ? 2 * halfUnit * double(count) : 0.0;
  const bool below = size + magnitudes + slack < 2 * power;
  const bool aboveToo = signs == Terms::neverNegative ? size >= power : size - magnitudes - slack > power;
  if (below && error == 0.0 && (size >= power || (power + size) - power == size)) {
    sum.total += blockSum;
  } else if (below && aboveToo && error < halfUnit) {
    sum.total += blockSum;
  } else if (below && aboveToo && error == halfUnit) {
    sum.total += blockSum + correctionOfTies(sum.total, values, count, term, shifter, halfUnit);
  } else {
    return false;
  }
  return true;
}

// total = total + term(double(values[i])) for i = 0 .. count - 1. `term` is applied to a double or to lanes of them,
// and rounds each of its operations.
template <Terms signs, class Term>
static inline void addInOrder(OrderedSum& sum, const float* values, ptrdiff_t count, Term term) {
  if (sum.total != sum.total) return;  // NaN plus anything is that NaN
  const auto chain = [&](ptrdiff_t first, ptrdiff_t last) {
    double total = sum.total;
    for (ptrdiff_t i = first; i < last; ++i) total += term(double(values[i]));
    sum.total = total;
  };
  // Two lanes are not worth the detour.
  ptrdiff_t i = 0;
  while (doublesAtOnce > 2 && count - i >= stride) {
    const ptrdiff_t limit = sum.length > shortBlock ? sum.length : shortBlock;
    ptrdiff_t block = count - i < limit ? (count - i) / stride * stride : limit;
    if (sum.detour == 0 && addAtOnce<signs>(sum, values + i, block, term)) {
      sum.length = block < longBlock ? 2 * int32_t(block) : longBlock;
      sum.penalty = 0;
    } else if (sum.detour == 0 && block > shortBlock) {
      sum.length = 0;
      continue;
    } else {
      // Where the tries keep failing they get rarer.
      if (sum.detour > 0) {
        --sum.detour;
      } else {
        sum.detour = sum.penalty;
        sum.penalty = sum.penalty < 60 ? 2 * sum.penalty + 1 : sum.penalty;
      }
      sum.length = 0;
      block = block < shortBlock ? block : shortBlock;
      chain(i, i + block);
    }
    i += block;
  }
  chain(i, count);
}
