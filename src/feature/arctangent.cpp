// Directions of vectors in degrees: a fast arctangent.
//
// The eight octants are told by the two signs and by which coordinate is the greater one; their number picks an offset
// and, by the parity of its bits, the sign of the quotient. Elements come in fours that share one division.
//
// Odd: since four denominators are multiplied, one that is very large or very small spoils its three neighbours; NaN
// and infinity are ordered by their bits; directions reach a little below 0 and above 360.
#include <string.h>

#include "frame/frame.h"
#include "frame/lanes.h"

static constexpr double cubic = -15.813189506530762, linear = 61.09419631958008;
alignas(64) static const
    float offsets[8] = {-0.14050041139125824f, 90.1405029296875f,  180.1405029296875f, 89.8594970703125f,
                        360.1405029296875f,    269.8594970703125f, 179.8594970703125f, 270.1405029296875f};

typedef int32_t NarrowIntegers __attribute__((vector_size(16)));
typedef double Pair __attribute__((vector_size(16)));

// One group of four, with what every processor has.
static void arctanOfFour(const float* srcY, const float* srcX, float* dst) {
  const NarrowIntegers y = NarrowIntegers(loadedAs<NarrowFloats>(srcY));
  const NarrowIntegers x = NarrowIntegers(loadedAs<NarrowFloats>(srcX));
  const NarrowIntegers ay = y & 0x7fffffff, ax = x & 0x7fffffff;
  const NarrowIntegers swap = NarrowIntegers(ay > ax);  // of bits, all of them positive numbers
  const NarrowIntegers larger = (ay & swap) | (ax & ~swap), smaller = (ax & swap) | (ay & ~swap);
  const NarrowIntegers zero = NarrowIntegers(larger == 0);
  const NarrowIntegers index = (((y >> 31) & 4) | ((x >> 31) & 2) | (swap & 1)) & ~zero;
  const NarrowIntegers sign = ((y ^ x) & INT32_MIN) ^ (swap & INT32_MIN);
  const NarrowFloats numerator = NarrowFloats(smaller | (sign & ~zero));
  const NarrowFloats denominator = NarrowFloats(larger | (zero & 0x3f800000));

  const __m128 n = __m128(numerator), d = __m128(denominator);
  const __m128 pair = _mm_mul_ps(d, _mm_shuffle_ps(d, d, _MM_SHUFFLE(2, 3, 0, 1)));
  const __m128 crossed = _mm_mul_ps(n, _mm_shuffle_ps(d, d, _MM_SHUFFLE(2, 3, 0, 1)));
  const Pair first = Pair(_mm_cvtps_pd(pair)), second = Pair(_mm_cvtps_pd(_mm_movehl_ps(pair, pair)));
  const Pair inverse = 1.0 / (first * second);
  const Pair low = Pair(_mm_cvtps_pd(crossed)) * second * inverse;
  const Pair high = Pair(_mm_cvtps_pd(_mm_movehl_ps(crossed, crossed))) * first * inverse;
  const __m128 t = _mm_movelh_ps(_mm_cvtpd_ps(__m128d(low)), _mm_cvtpd_ps(__m128d(high)));
  const __m128 magnitude = _mm_andnot_ps(_mm_set1_ps(-0.0f), t);
  const auto degrees = [](__m128 quotient, __m128 size, double offset0, double offset1) {
    const Pair q = Pair(_mm_cvtps_pd(quotient)), m = Pair(_mm_cvtps_pd(size));
    return _mm_cvtpd_ps(__m128d((m * cubic + linear) * q + Pair{offset0, offset1}));
  };
  const __m128 below = degrees(t, magnitude, offsets[index[0]], offsets[index[1]]);
  const __m128 above =
      degrees(_mm_movehl_ps(t, t), _mm_movehl_ps(magnitude, magnitude), offsets[index[2]], offsets[index[3]]);
  store(dst, NarrowFloats(_mm_movelh_ps(below, above)));
}

#ifdef __AVX512F__

// Many groups: first what is done in float, then what is done in double. The steps meet in memory, since values are
// widened for less on their way from there than between registers.
static constexpr ptrdiff_t block = 128;

namespace {

struct Quotients {
  alignas(64) float crossed[block];  // numerator times the other denominator of its pair
  alignas(64) float pairs[block];    // products of two denominators: of four groups all second pairs, all first ones
  alignas(64) int32_t index[block];  // of the offset, in the lowest three bits
  alignas(64) float quotient[block];
};

}  // namespace

static inline __m512d widened(const float* eight) { return _mm512_maskz_cvtps_pd(0xff, _mm256_load_ps(eight)); }

// 16 vectors.
static inline void crossPairs(const float* srcY, const float* srcX, Quotients& q, ptrdiff_t at) {
  const __m512i y = _mm512_loadu_si512(srcY), x = _mm512_loadu_si512(srcX);
  const __m512i sign = _mm512_set1_epi32(INT32_MIN);
  const __m512i ay = y & ~sign, ax = x & ~sign;
  const __m512i larger = _mm512_maskz_max_epi32(0xffff, ay, ax), smaller = _mm512_maskz_min_epi32(0xffff, ay, ax);
  const __m512i swap = _mm512_maskz_sub_epi32(0xffff, ax, ay);  // negative where ay > ax
  const __mmask16 any = _mm512_test_epi32_mask(larger, larger);
  // Bit 2 from y, bit 1 from x, bit 0 from `swap`.
  constexpr int32_t choose = 0xca, differ = 0x96;
  const __m512i signs = _mm512_ternarylogic_epi32(_mm512_set1_epi32(4), _mm512_maskz_srli_epi32(0xffff, y, 29),
                                                  _mm512_maskz_srli_epi32(0xffff, x, 30), choose);
  const __m512i index = _mm512_maskz_ternarylogic_epi32(any, _mm512_set1_epi32(6), signs,
                                                        _mm512_maskz_srli_epi32(0xffff, swap, 31), choose);
  // The sign of a zero over a zero goes into a sum that is not zero.
  const __m512i parity = _mm512_ternarylogic_epi32(y, x, swap, differ);
  const __m512 n = _mm512_castsi512_ps(_mm512_ternarylogic_epi32(sign, parity, smaller, choose));
  const __m512 d = _mm512_castsi512_ps(_mm512_mask_mov_epi32(_mm512_set1_epi32(0x3f800000), any, larger));
  const __m512 other = _mm512_maskz_permute_ps(0xffff, d, _MM_SHUFFLE(2, 3, 0, 1));
  const __m512i pairs = _mm512_setr_epi32(2, 6, 10, 14, 0, 4, 8, 12, 0, 0, 0, 0, 0, 0, 0, 0);
  _mm512_store_ps(q.crossed + at, n * other);
  _mm512_store_ps(q.pairs + at, _mm512_maskz_permutexvar_ps(0xffff, pairs, d * other));
  _mm512_store_si512(q.index + at, index);
}

static inline void divide(Quotients& q, ptrdiff_t at) {
  const __m512d pairs = widened(q.pairs + at);
  const __m256d product = _mm512_maskz_extractf64x4_pd(0xff, pairs, 0) * _mm512_maskz_extractf64x4_pd(0xff, pairs, 1);
  const __m512d inverse = _mm512_castpd256_pd512(_mm256_div_pd(_mm256_set1_pd(1.0), product));
  for (int32_t half = 0; half < 2; ++half) {
    const int64_t g = 2 * half, h = g + 1;
    // Numerators of the first pair of a group meet the second pair, and the other way round.
    const __m512d partner =
        _mm512_maskz_permutexvar_pd(0xff, _mm512_setr_epi64(g, g, g + 4, g + 4, h, h, h + 4, h + 4), pairs);
    const __m512d all = _mm512_maskz_permutexvar_pd(0xff, _mm512_setr_epi64(g, g, g, g, h, h, h, h), inverse);
    float* const to = q.quotient + at + 8 * half;
    _mm256_store_ps(to, _mm512_maskz_cvtpd_ps(0xff, widened(q.crossed + at + 8 * half) * partner * all));
  }
}

static inline void toDegrees(const Quotients& q, ptrdiff_t at, float* dst) {
  const __m512d t = widened(q.quotient + at);
  const __m512d magnitude = _mm512_castsi512_pd(_mm512_castpd_si512(t) & INT64_MAX);
  const __m512d table = _mm512_maskz_cvtps_pd(0xff, _mm256_load_ps(offsets));
  const __m512i index =
      _mm512_maskz_cvtepu32_epi64(0xff, _mm256_load_si256(reinterpret_cast<const __m256i*>(q.index + at)));
  const __m512d offset = _mm512_maskz_permutexvar_pd(0xff, index, table);
  _mm256_storeu_ps(dst, _mm512_maskz_cvtpd_ps(0xff, (magnitude * cubic + linear) * t + offset));
}

// A block, or what is left of vectors in sixteens.
static inline void arctanOfBlock(const float* srcY, const float* srcX, float* dst, ptrdiff_t count) {
  Quotients q;
  prefetchElements(srcY + count, int32_t(count));
  prefetchElements(srcX + count, int32_t(count));
  for (ptrdiff_t i = 0; i < count; i += 16) crossPairs(srcY + i, srcX + i, q, i);
  for (ptrdiff_t i = 0; i < count; i += 16) divide(q, i);
  for (ptrdiff_t i = 0; i < count; i += 8) toDegrees(q, i, dst + i);
}

static ptrdiff_t arctanOfBlocks(const float* srcY, const float* srcX, float* dst, ptrdiff_t length) {
  ptrdiff_t i = 0;
  for (; i + block <= length; i += block) arctanOfBlock(srcY + i, srcX + i, dst + i, block);
  const ptrdiff_t rest = (length - i) & ~ptrdiff_t{15};
  arctanOfBlock(srcY + i, srcX + i, dst + i, rest);
  return i + rest;
}

#else

static ptrdiff_t arctanOfBlocks(const float*, const float*, float*, ptrdiff_t) { return 0; }

#endif

QorStatus qoribFastArctan_32f(const float* srcY, const float* srcX, float* dst, int32_t length) {
  if (anyNull(srcY, srcX, dst)) return qorStatusNullPtr;
  if (length < 1) return qorStatusBadSize;
  ptrdiff_t i = arctanOfBlocks(srcY, srcX, dst, length);
  for (; i + 4 <= length; i += 4) arctanOfFour(srcY + i, srcX + i, dst + i);
  if (i < length) {
    // The last ones share their division with vectors (1, 1).
    float y[4] = {1, 1, 1, 1}, x[4] = {1, 1, 1, 1}, degrees[4];
    const size_t bytes = size_t(length - i) * sizeof(float);
    memcpy(y, srcY + i, bytes);
    memcpy(x, srcX + i, bytes);
    arctanOfFour(y, x, degrees);
    memcpy(dst + i, degrees, bytes);
  }
  return qorStatusOk;
}
