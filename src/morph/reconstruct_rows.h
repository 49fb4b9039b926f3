// The two row steps of morphological reconstruction, for dilation (Extreme::max) and erosion (Extreme::min). Below,
// "up" is the extreme that grows the marker, "clip" the other one, which holds it to the mask.
//
// A sweep is v = clip(up(t[x], v), m[x]) along a row: two dependent operations a pixel. But each pixel is a function
// v -> up(value, clip(v, limit)), with value = clip(t, m) and limit = m, and functions of that form compose:
//   value = up(value2, clip(value1, limit2)), limit = clip(limit1, limit2).
// So a vector of pixels is composed in steps of 1, 2, 4, ... lanes, and only the last lane's result goes on to the next
// vector. Extremes do not round, so the result is the same.
//
// 0.0 and -0.0 are equal to all comparisons here; which of them a result holds is not defined.
#pragma once

#include <limits>

#include "filter/extremes.h"
#include "frame/loops.h"

// moved<n, backward>: lane i gets lane i - n, or i + n where the sweep goes backward, and `fill` where there is none.
// For bytes that is so within groups of 16 lanes only; `groups` says how many of them there are. lastOfGroup,
// lastOfAll: the last lane, of its group or of all, in each lane. differing: not zero if any lane differs; a NaN
// differs from everything.
#if defined(__AVX512BW__)

static inline uint64_t differing(Bytes a, Bytes b) { return _mm512_cmpneq_epu8_mask(__m512i(a), __m512i(b)); }
static inline uint64_t differing(Floats a, Floats b) { return _mm512_cmp_ps_mask(__m512(a), __m512(b), _CMP_NEQ_UQ); }

template <int n, bool backward>
static inline Bytes moved(Bytes x, Bytes fill) {
  const __m512i lanesOfX = __m512i(x), fills = __m512i(fill);
  return Bytes(backward ? _mm512_alignr_epi8(fills, lanesOfX, n) : _mm512_alignr_epi8(lanesOfX, fills, 16 - n));
}
template <int n, bool backward>
static inline Floats moved(Floats x, Floats fill) {
  const __m512i lanesOfX = __m512i(x), fills = __m512i(fill);
  return Floats(backward ? _mm512_maskz_alignr_epi32(0xffff, fills, lanesOfX, n)
                         : _mm512_maskz_alignr_epi32(0xffff, lanesOfX, fills, 16 - n));
}
constexpr int groups = 4;
template <int n, bool backward>
static inline Bytes movedGroups(Bytes x, Bytes fill) {
  const __m512i lanesOfX = __m512i(x), fills = __m512i(fill);
  return Bytes(backward ? _mm512_maskz_alignr_epi64(0xff, fills, lanesOfX, 2 * n)
                        : _mm512_maskz_alignr_epi64(0xff, lanesOfX, fills, 8 - 2 * n));
}
template <bool backward>
static inline Bytes lastOfGroup(Bytes x) {
  return Bytes(_mm512_shuffle_epi8(__m512i(x), _mm512_set1_epi8(backward ? 0 : 15)));
}
template <bool backward>
static inline Bytes lastOfAll(Bytes x) {
  const __m512i last = __m512i(lastOfGroup<backward>(x));
  return Bytes(_mm512_maskz_shuffle_i64x2(0xff, last, last, backward ? 0 : 0xff));
}
template <bool backward>
static inline Floats lastOfAll(Floats x) {
  return Floats(_mm512_maskz_permutexvar_ps(0xffff, _mm512_set1_epi32(backward ? 0 : 15), __m512(x)));
}

#elif defined(__AVX2__)

static inline uint64_t differing(Bytes a, Bytes b) {
  return uint32_t(~_mm256_movemask_epi8(_mm256_cmpeq_epi8(__m256i(a), __m256i(b))));
}
static inline uint64_t differing(Floats a, Floats b) {
  return uint32_t(_mm256_movemask_ps(_mm256_cmp_ps(__m256(a), __m256(b), _CMP_NEQ_UQ)));
}

template <int n, bool backward>
static inline Bytes moved(Bytes x, Bytes fill) {
  const __m256i lanesOfX = __m256i(x), fills = __m256i(fill);
  return Bytes(backward ? _mm256_alignr_epi8(fills, lanesOfX, n) : _mm256_alignr_epi8(lanesOfX, fills, 16 - n));
}
template <int n, bool backward>
static inline Floats moved(Floats x, Floats fill) {
  const __m256i from = _mm256_setr_epi32(0, 1, 2, 3, 4, 5, 6, 7);
  const __m256 turned =
      _mm256_permutevar8x32_ps(__m256(x), _mm256_add_epi32(from, _mm256_set1_epi32(backward ? n : 8 - n)));
  return Floats(_mm256_blend_ps(turned, __m256(fill), backward ? 0xff & (0xff00 >> n) : 0xff >> (8 - n)));
}
constexpr int groups = 2;
template <int n, bool backward>
static inline Bytes movedGroups(Bytes x, Bytes fill) {
  return Bytes(_mm256_permute2x128_si256(__m256i(x), __m256i(fill), backward ? 0x21 : 0x02));
}
template <bool backward>
static inline Bytes lastOfGroup(Bytes x) {
  return Bytes(_mm256_shuffle_epi8(__m256i(x), _mm256_set1_epi8(backward ? 0 : 15)));
}
template <bool backward>
static inline Bytes lastOfAll(Bytes x) {
  return Bytes(_mm256_permute4x64_epi64(__m256i(lastOfGroup<backward>(x)), backward ? 0 : 0xff));
}
template <bool backward>
static inline Floats lastOfAll(Floats x) {
  return Floats(_mm256_permutevar8x32_ps(__m256(x), _mm256_set1_epi32(backward ? 0 : 7)));
}

#else

static inline uint64_t differing(Bytes a, Bytes b) {
  return 0xffff ^ uint32_t(_mm_movemask_epi8(_mm_cmpeq_epi8(__m128i(a), __m128i(b))));
}
static inline uint64_t differing(Floats a, Floats b) {
  return uint32_t(_mm_movemask_ps(_mm_cmpneq_ps(__m128(a), __m128(b))));
}

template <int n, bool backward>
static inline Bytes moved(Bytes x, Bytes fill) {
  const __m128i lanesOfX = __m128i(x), fills = __m128i(fill);
  return Bytes(backward ? _mm_or_si128(_mm_srli_si128(lanesOfX, n), _mm_slli_si128(fills, 16 - n))
                        : _mm_or_si128(_mm_slli_si128(lanesOfX, n), _mm_srli_si128(fills, 16 - n)));
}
template <int n, bool backward>
static inline Floats moved(Floats x, Floats fill) {
  return Floats(moved<4 * n, backward>(Bytes(x), Bytes(fill)));
}
constexpr int groups = 1;
template <int n, bool backward>
static inline Bytes movedGroups(Bytes x, Bytes) {
  return x;
}
template <bool backward>
static inline Bytes lastOfAll(Bytes x) {
  const __m128i bytes = __m128i(x);
  const __m128i pairs = backward ? _mm_unpacklo_epi8(bytes, bytes) : _mm_unpackhi_epi8(bytes, bytes);
  const __m128i words = backward ? _mm_shufflelo_epi16(pairs, 0) : _mm_shufflehi_epi16(pairs, 0xff);
  return Bytes(_mm_shuffle_epi32(words, backward ? 0 : 0xff));
}
template <bool backward>
static inline Bytes lastOfGroup(Bytes x) {
  return lastOfAll<backward>(x);
}
template <bool backward>
static inline Floats lastOfAll(Floats x) {
  return Floats(_mm_shuffle_ps(__m128(x), __m128(x), backward ? 0 : 0xff));
}

#endif

template <Extreme extreme, class V>
static inline V up(V a, V b) {
  return extreme == Extreme::max ? greater(a, b) : lesser(a, b);
}
template <Extreme extreme, class V>
static inline V clip(V a, V b) {
  return extreme == Extreme::max ? lesser(a, b) : greater(a, b);
}

// The functions of the lanes: each lane's is composed with those of `value1`, `limit1`, which come before it.
template <Extreme extreme, class V>
static inline void compose(V& value, V& limit, V value1, V limit1) {
  value = up<extreme>(value, clip<extreme>(value1, limit));
  limit = clip<extreme>(limit, limit1);
}

template <int n, Extreme extreme, bool backward, class V>
static inline void composeLanes(V& value, V& limit, V nothing, V everything) {
  compose<extreme>(value, limit, moved<n, backward>(value, nothing), moved<n, backward>(limit, everything));
}

template <int n, Extreme extreme, bool backward>
static inline void composeGroups(Bytes& value, Bytes& limit, Bytes nothing, Bytes everything) {
  compose<extreme>(value, limit, movedGroups<n, backward>(value, nothing), movedGroups<n, backward>(limit, everything));
}

// Each lane's function composed with those of all lanes before it. `nothing` and `everything` are the value and the
// limit of the function that returns what it gets.
template <Extreme extreme, bool backward>
static inline void composeAll(Bytes& value, Bytes& limit, Bytes nothing, Bytes everything) {
  composeLanes<1, extreme, backward>(value, limit, nothing, everything);
  composeLanes<2, extreme, backward>(value, limit, nothing, everything);
  composeLanes<4, extreme, backward>(value, limit, nothing, everything);
  composeLanes<8, extreme, backward>(value, limit, nothing, everything);
  if (groups > 1) {
    // Of each group, the function of all groups before it.
    Bytes value1 = movedGroups<1, backward>(lastOfGroup<backward>(value), nothing);
    Bytes limit1 = movedGroups<1, backward>(lastOfGroup<backward>(limit), everything);
    if (groups > 2) {
      composeGroups<1, extreme, backward>(value1, limit1, nothing, everything);
      composeGroups<2, extreme, backward>(value1, limit1, nothing, everything);
    }
    compose<extreme>(value, limit, value1, limit1);
  }
}

template <Extreme extreme, bool backward>
static inline void composeAll(Floats& value, Floats& limit, Floats nothing, Floats everything) {
  composeLanes<1, extreme, backward>(value, limit, nothing, everything);
  composeLanes<2, extreme, backward>(value, limit, nothing, everything);
  if constexpr (lanes < Floats, float >> 4) composeLanes<4, extreme, backward>(value, limit, nothing, everything);
  if constexpr (lanes < Floats, float >> 8) composeLanes<8, extreme, backward>(value, limit, nothing, everything);
}

// One sweep of the row t under the mask row m, into the marker row, which may be t itself. Returns whether the marker
// row has changed, if that is asked for.
template <class T, Extreme extreme, bool backward, bool asked>
static inline bool sweep(const T* t, const T* m, T* marker, int32_t width) {
  using V = decltype(loaded(t));
  using Limits = std::numeric_limits<T>;
  constexpr int32_t count = lanes<V, T>;
  constexpr Extreme other = extreme == Extreme::max ? Extreme::min : Extreme::max;
  constexpr T least = Limits::has_infinity ? -Limits::infinity() : Limits::lowest();
  constexpr T most = Limits::has_infinity ? Limits::infinity() : Limits::max();
  constexpr T nothing = extreme == Extreme::max ? least : most, everything = extreme == Extreme::max ? most : least;
  if (width < count) {
    bool changed = false;
    T v = nothing;
    for (int32_t i = 0; i < width; ++i) {
      const int32_t x = backward ? width - 1 - i : i;
      v = extremeOf<other>(extremeOf<extreme>(t[x], v), m[x]);
      // Not !=, of which the negation would hide a NaN.
      if (asked) changed |= !(marker[x] == v);
      marker[x] = v;
    }
    return changed;
  }
  uint64_t changes = 0;
  V carried = inAllLanes(nothing);
  for (int32_t done = 0; done < width; done += count) {
    // The last vector begins among pixels that are done already: sweeping them again changes nothing.
    if (done > width - count) {
      done = width - count;
      carried = inAllLanes(marker[backward ? count : done - 1]);
    }
    const ptrdiff_t x = backward ? width - count - done : done;
    V limit = loaded(m + x);
    V value = clip<extreme>(loaded(t + x), limit);
    composeAll<extreme, backward>(value, limit, inAllLanes(nothing), inAllLanes(everything));
    const V result = up<extreme>(value, clip<extreme>(carried, limit));
    carried = lastOfAll<backward>(result);
    if (asked) changes |= differing(loaded(marker + x), result);
    store(marker + x, result);
  }
  return changes != 0;
}

// The neighbour merge: out[x] becomes the extreme of row[x] and of p[x], the row before it in the scan, for the eight
// neighbours also of p[x - 1] and p[x + 1]. `out` may be `row`.
template <class T, Extreme extreme, bool inf>
static inline void merge(const T* row, const T* p, T* out, int32_t width) {
  if (!inf || width < 2) {
    forElements(width, [=](ptrdiff_t x) { out[x] = extremeOf<extreme>(p[x], row[x]); });
    return;
  }
  const T first = extremeOf<extreme>(p[0], p[1]), last = extremeOf<extreme>(p[width - 2], p[width - 1]);
  out[0] = extremeOf<extreme>(first, row[0]);
  forElements(width - 2, [=](ptrdiff_t i) {
    const ptrdiff_t x = i + 1;
    out[x] = extremeOf<extreme>(extremeOf<extreme>(extremeOf<extreme>(p[x - 1], p[x]), p[x + 1]), row[x]);
  });
  out[width - 1] = extremeOf<extreme>(last, row[width - 1]);
}
