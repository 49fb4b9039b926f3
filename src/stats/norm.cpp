// Norms of an image, of the difference of two images, and of that difference relative to the second image, all under a
// mask: the greatest magnitude, the sum of the magnitudes, the root of the sum of the squares.
//
// Integer sums are exact whatever their order, and are taken where the sum of doubles that they stand for is exact too;
// all other sums run in row-major order. Odd: the magnitudes of a row of 8-bit pixels are summed in signed 32 bits,
// which wrap; a relative result over a denominator of 0 is a NaN only if the numerator is 0 and -infinity if it is NaN;
// each function has its own gate, and some have none.
#include <cmath>
#include <type_traits>

#include "stats/gate.h"
#include "stats/orderedsum.h"
#include "stats/sums.h"

namespace {

enum class Norm { greatest, sum, rootOfSquares };
enum class Of { image, difference, relativeDifference };

// What is known of the pixels so far, as the norm and the element type want it.
struct Measure {
  int64_t whole = 0;  // sum or maximum of integers
  float greatest = 0.0f;
  OrderedSum ordered;
};

struct Ratio {
  double num, den;
};

}  // namespace

static inline const float* zeros(float) { return nullptr; }

template <Norm norm, class T>
static void addBlock(Measure& measure, int32_t& rowSum, const T* a, const T* b, int32_t count) {
  if constexpr (norm == Norm::greatest) {
    const int32_t greatest = greatestDistance(a, b, count);
    measure.whole = greatest > measure.whole ? greatest : measure.whole;
  } else if constexpr (norm == Norm::sum && sizeof(T) == 1) {
    rowSum += sumOfDistances(a, b, count);
  } else if constexpr (norm == Norm::sum) {
    measure.whole += sumOfDistances(a, b, count);
  } else if constexpr (sizeof(T) == 1) {
    measure.whole += sumOfSquaredDistances(a, b, count);
  } else {
    // As long as no double on the way is rounded, the order does not matter.
    const double sum = double(sumOfSquaredDistances(a, b, count));
    if (measure.ordered.total + sum <= 0x1p53) {
      measure.ordered.total += sum;
    } else {
      float distances[blockPixels];
      for (ptrdiff_t x = 0; x < count; ++x) distances[x] = distance(a[x], b[x]);
      addInOrder<Terms::neverNegative>(measure.ordered, distances, count, [](auto d) { return d * d; });
    }
  }
}

static void widenToMagnitudes(float& greatest, const float* values, int32_t count) {
  const Floats noSign = Floats(Bits{} + INT64_C(0x7fffffff7fffffff));
  Floats lanes = {};
  ptrdiff_t x = 0;
  for (; x + floatsAtOnce <= count; x += floatsAtOnce) {
    lanes = greater(Floats(Bits(loaded(values + x)) & Bits(noSign)), lanes);
  }
  for (ptrdiff_t l = 0; l < floatsAtOnce; ++l) greatest = lanes[l] > greatest ? lanes[l] : greatest;
  for (; x < count; ++x) {
    const float magnitude = __builtin_fabsf(values[x]);
    greatest = magnitude > greatest ? magnitude : greatest;
  }
}

// Of floats, the second block may be missing. In line, for GCC 12 to see that the blocks are never empty.
template <Norm norm>
__attribute__((always_inline)) static inline void addBlock(Measure& measure, int32_t&, const float* a, const float* b,
                                                           int32_t count) {
  float differences[blockPixels];
  if (b) {
    for (ptrdiff_t x = 0; x < count; ++x) differences[x] = a[x] - b[x];
    a = differences;
  }
  if constexpr (norm == Norm::greatest) {
    widenToMagnitudes(measure.greatest, a, count);
  } else if constexpr (norm == Norm::sum) {
    addInOrder<Terms::neverNegative>(measure.ordered, a, count, [](auto x) { return magnitudeOf(x); });
  } else {
    addInOrder<Terms::neverNegative>(measure.ordered, a, count, [](auto x) { return x * x; });
  }
}

template <Norm norm, class T>
static double valueOf(const Measure& measure) {
  if constexpr (std::is_same_v<T, float>) {
    return norm == Norm::greatest ? double(measure.greatest) : measure.ordered.total;
  } else if constexpr (std::is_same_v<T, uint16_t> && norm == Norm::rootOfSquares) {
    return measure.ordered.total;
  } else {
    return double(measure.whole);
  }
}

// Numerator and denominator of some rows; the latter for relative norms only.
template <Norm norm, Of of, class T, int32_t channels>
static Ratio measureRows(const Region<T>& region, int32_t row, int32_t rows) {
  Measure num, den;
  for (int32_t y = row; y < row + rows; ++y) {
    const T* const src1 = rowAt(region.src1, region.src1Step, y);
    const T* const src2 = of == Of::image ? nullptr : rowAt(region.src2, region.src2Step, y);
    const uint8_t* const mask = rowAt(region.mask, region.maskStep, y);
    int32_t numOfRow = 0, denOfRow = 0;
    forBlocks(region.size.width, [&](ptrdiff_t x, int32_t count) {
      Gathered<T> room1, room2;
      const T* const a = gather<T, channels, true>(src1 + x * channels, mask + x, count, 0, room1);
      const T* b = zeros(T());
      if constexpr (of != Of::image) b = gather<T, channels, true>(src2 + x * channels, mask + x, count, 0, room2);
      addBlock<norm>(num, numOfRow, a, b, count);
      if constexpr (of == Of::relativeDifference) addBlock<norm>(den, denOfRow, b, zeros(T()), count);
    });
    num.whole += numOfRow;
    den.whole += denOfRow;
  }
  return {valueOf<norm, T>(num), valueOf<norm, T>(den)};
}

template <Norm norm, Of of, class T, int32_t channels>
static QorStatus normOf(Gate gate, const Region<T>& all, int32_t coi, double* value) {
  if (anyNull(all.src1) || (of != Of::image && anyNull(all.src2)) || anyNull(all.mask, value)) return qorStatusNullPtr;
  if (emptySize(all.size)) return qorStatusBadSize;
  if (shortStep<T, channels>(all.src1Step, all.size)) return qorStatusBadStep;
  if (of == Of::image && misaligned<T>(all.src1Step)) return qorStatusBadStepAlign;
  if (of != Of::image && shortStep<T, channels>(all.src2Step, all.size)) return qorStatusBadStep;
  if (shortStep<uint8_t>(all.maskStep, all.size)) return qorStatusBadStep;
  if (of != Of::image && misaligned<T>(all.src1Step | all.src2Step)) return qorStatusBadStepAlign;
  if (badCoi(coi)) return qorStatusBadCoi;

  Region<T> region = all;
  region.src1 += coi - 1;
  if (of != Of::image) region.src2 += coi - 1;
  const Ratio result = reduceStripes<Ratio>(
      region.size.height, threadsFor(gate, region.size),
      [=](int32_t row, int32_t rows) { return measureRows<norm, of, T, channels>(region, row, rows); },
      [](Ratio& total, const Ratio& slot) {
        if (norm == Norm::greatest) {
          total.num = slot.num > total.num ? slot.num : total.num;
          total.den = slot.den > total.den ? slot.den : total.den;
        } else {
          total.num += slot.num;
          total.den += slot.den;
        }
      });

  if (of == Of::relativeDifference && result.den == 0.0) {
    *value = result.num == 0.0  ? qorConstantOfNAN_64f
             : result.num > 0.0 ? qorConstantOfINF_64f
                                : qorConstantOfINF_NEG_64f;
    return qorStatusZeroDenominator;
  }
  const double quotient = of == Of::relativeDifference ? result.num / result.den : result.num;
  *value = norm == Norm::rootOfSquares ? std::sqrt(quotient) : quotient;
  return qorStatusOk;
}

#define QOR_NORM_OF_IMAGE(NAME, NORM, TYPE, T, GATE_C1, GATE_C3)                                                   \
  QorStatus qoriNorm_##NAME##_##TYPE##_C1MR(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep,  \
                                            QoriSize roiSize, double* value) {                                     \
    return normOf<NORM, Of::image, T, 1>(Gate::GATE_C1, {src, srcStep, nullptr, 0, mask, maskStep, roiSize}, 1,    \
                                         value);                                                                   \
  }                                                                                                                \
  QorStatus qoriNorm_##NAME##_##TYPE##_C3CMR(const T* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, \
                                             QoriSize roiSize, int32_t coi, double* value) {                       \
    return normOf<NORM, Of::image, T, 3>(Gate::GATE_C3, {src, srcStep, nullptr, 0, mask, maskStep, roiSize}, coi,  \
                                         value);                                                                   \
  }

#define QOR_NORM_OF_TWO(FAMILY, OF, NAME, NORM, TYPE, T, GATE_C1, GATE_C3)                                             \
  QorStatus qori##FAMILY##_##NAME##_##TYPE##_C1MR(const T* src1, int32_t src1Step, const T* src2, int32_t src2Step,    \
                                                  const uint8_t* mask, int32_t maskStep, QoriSize roiSize,             \
                                                  double* value) {                                                     \
    return normOf<NORM, OF, T, 1>(Gate::GATE_C1, {src1, src1Step, src2, src2Step, mask, maskStep, roiSize}, 1, value); \
  }                                                                                                                    \
  QorStatus qori##FAMILY##_##NAME##_##TYPE##_C3CMR(const T* src1, int32_t src1Step, const T* src2, int32_t src2Step,   \
                                                   const uint8_t* mask, int32_t maskStep, QoriSize roiSize,            \
                                                   int32_t coi, double* value) {                                       \
    return normOf<NORM, OF, T, 3>(Gate::GATE_C3, {src1, src1Step, src2, src2Step, mask, maskStep, roiSize}, coi,       \
                                  value);                                                                              \
  }

#define QOR_NORM_INF(...) QOR_NORM_OF_IMAGE(Inf, Norm::greatest, __VA_ARGS__)
#define QOR_NORM_L1(...) QOR_NORM_OF_IMAGE(L1, Norm::sum, __VA_ARGS__)
#define QOR_NORM_L2(...) QOR_NORM_OF_IMAGE(L2, Norm::rootOfSquares, __VA_ARGS__)
#define QOR_NORM_DIFF_INF(...) QOR_NORM_OF_TWO(NormDiff, Of::difference, Inf, Norm::greatest, __VA_ARGS__)
#define QOR_NORM_DIFF_L1(...) QOR_NORM_OF_TWO(NormDiff, Of::difference, L1, Norm::sum, __VA_ARGS__)
#define QOR_NORM_DIFF_L2(...) QOR_NORM_OF_TWO(NormDiff, Of::difference, L2, Norm::rootOfSquares, __VA_ARGS__)
#define QOR_NORM_REL_INF(...) QOR_NORM_OF_TWO(NormRel, Of::relativeDifference, Inf, Norm::greatest, __VA_ARGS__)
#define QOR_NORM_REL_L1(...) QOR_NORM_OF_TWO(NormRel, Of::relativeDifference, L1, Norm::sum, __VA_ARGS__)
#define QOR_NORM_REL_L2(...) QOR_NORM_OF_TWO(NormRel, Of::relativeDifference, L2, Norm::rootOfSquares, __VA_ARGS__)

// clang-format off
//                type  element   gate of C1MR            gate of C3CMR
QOR_NORM_INF(     8u,   uint8_t,  pixels19,               pixels17)
QOR_NORM_INF(     8s,   int8_t,   pixels19,               pixels17)
QOR_NORM_INF(     16u,  uint16_t, pixels19,               pixels17)
QOR_NORM_INF(     32f,  float,    pixels17,               pixels15)
QOR_NORM_L1(      8u,   uint8_t,  pixels17OnSeveralCores, pixels17)
QOR_NORM_L1(      8s,   int8_t,   pixels17OnSeveralCores, pixels17)
QOR_NORM_L1(      16u,  uint16_t, pixels17,               pixels17)
QOR_NORM_L1(      32f,  float,    pixels17,               pixels17)
QOR_NORM_L2(      8u,   uint8_t,  pixels17OnSeveralCores, pixels15OnSeveralCoresOr17)
QOR_NORM_L2(      8s,   int8_t,   pixels17OnSeveralCores, pixels15OnSeveralCoresOr17)
QOR_NORM_L2(      16u,  uint16_t, pixels17,               pixels15OnSeveralCoresOr17)
QOR_NORM_L2(      32f,  float,    pixels17,               pixels15OnSeveralCoresOr17)
QOR_NORM_DIFF_INF(8u,   uint8_t,  none,                   none)
QOR_NORM_DIFF_INF(8s,   int8_t,   none,                   none)
QOR_NORM_DIFF_INF(16u,  uint16_t, none,                   none)
QOR_NORM_DIFF_INF(32f,  float,    none,                   none)
QOR_NORM_DIFF_L1( 8u,   uint8_t,  pixels17OnSeveralCores, pixels17)
QOR_NORM_DIFF_L1( 8s,   int8_t,   pixels17OnSeveralCores, pixels15OnSeveralCores)
QOR_NORM_DIFF_L1( 16u,  uint16_t, pixels17,               pixels15OnSeveralCores)
QOR_NORM_DIFF_L1( 32f,  float,    none,                   none)
QOR_NORM_DIFF_L2( 8u,   uint8_t,  pixels17OnSeveralCores, pixels17)
QOR_NORM_DIFF_L2( 8s,   int8_t,   pixels17OnSeveralCores, pixels17)
QOR_NORM_DIFF_L2( 16u,  uint16_t, pixels17,               pixels15OnSeveralCoresOr17)
QOR_NORM_DIFF_L2( 32f,  float,    none,                   none)
QOR_NORM_REL_INF( 8u,   uint8_t,  pixels17OnSeveralCores, pixels15OnSeveralCoresOr17)
QOR_NORM_REL_INF( 8s,   int8_t,   pixels17OnSeveralCores, pixels15OnSeveralCoresOr17)
QOR_NORM_REL_INF( 16u,  uint16_t, pixels17OnSeveralCores, pixels15)
QOR_NORM_REL_INF( 32f,  float,    pixels15,               pixels15)
QOR_NORM_REL_L1(  8u,   uint8_t,  none,                   pixels15OnSeveralCoresOr17)
QOR_NORM_REL_L1(  8s,   int8_t,   pixels17OnSeveralCores, pixels15OnSeveralCoresOr17)
QOR_NORM_REL_L1(  16u,  uint16_t, pixels15OnSeveralCoresOr17, pixels15)
QOR_NORM_REL_L1(  32f,  float,    none,                   none)
QOR_NORM_REL_L2(  8u,   uint8_t,  pixels17,               pixels15OnSeveralCoresOr17)
QOR_NORM_REL_L2(  8s,   int8_t,   pixels17,               pixels15OnSeveralCoresOr17)
QOR_NORM_REL_L2(  16u,  uint16_t, pixels15OnSeveralCoresOr17, pixels15)
QOR_NORM_REL_L2(  32f,  float,    none,                   none)
// clang-format on
#undef QOR_NORM_OF_IMAGE
#undef QOR_NORM_OF_TWO
#undef QOR_NORM_INF
#undef QOR_NORM_L1
#undef QOR_NORM_L2
#undef QOR_NORM_DIFF_INF
#undef QOR_NORM_DIFF_L1
#undef QOR_NORM_DIFF_L2
#undef QOR_NORM_REL_INF
#undef QOR_NORM_REL_L1
#undef QOR_NORM_REL_L2
