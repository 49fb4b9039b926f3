// Halving and doubling of an image with the kernel 1 4 6 4 1 in both directions.
//
// A row is filtered once, into a ring that holds as many rows as an output row needs. Integers are summed in 16 bits,
// in which all sums fit (256 * 255 + 128 unsigned, 256 * 127 + 128 and 256 * -128 signed), so the ring needs less than
// the reported scratch. Odd: halving mirrors at both ends, doubling mirrors at the start and repeats at the end; the
// merged taps at the ends of a row, which in floats round differently from the inner ones, are the contract's.
#include <string.h>

#include "frame/frame.h"
#include "pyramid/gausslevels_rows.h"

// Type of a sum in the ring, and of a single sum on its way.
template <class T>
struct Sums;
template <>
struct Sums<uint8_t> {
  using Ring = uint16_t;
  using Single = int32_t;
};
template <>
struct Sums<int8_t> {
  using Ring = int16_t;
  using Single = int32_t;
};
template <>
struct Sums<float> {
  using Ring = float;
  using Single = float;
};
template <class T>
using Ring = typename Sums<T>::Ring;
template <class T>
using Single = typename Sums<T>::Single;

static inline int32_t half(int32_t length) { return length / 2 + (length & 1); }

// The final sum, with the weight 256 or 64, as a pixel.
template <class T>
static inline T halved(Ring<T> sum) {
  if constexpr (sizeof(T) == 4) {
    return sum * 0.00390625f;
  } else {
    return T(Ring<T>(sum + 128) >> 8);
  }
}
template <class T>
static inline T doubled(Ring<T> sum) {
  if constexpr (sizeof(T) == 4) {
    return sum * 0.015625f;
  } else {
    return T(Ring<T>(sum + 32) >> 6);
  }
}

// Five values with the weights 1 4 6 4 1. In this order, which counts in floats.
template <class Sum, class T>
static inline Sum fiveTaps(T a, T b, T c, T d, T e) {
  return Sum(Sum(6) * Sum(c) + Sum(4) * Sum(Sum(b) + Sum(d)) + Sum(a) + Sum(e));
}

// --- halving ---

// Sum of the row at output column i, of a row of three or more pixels. `p` points to a channel of the first pixel.
template <class T, int32_t channels>
static inline Single<T> halfRowSum(const T* p, int32_t width, int32_t i) {
  using Sum = Single<T>;
  const auto at = [p](ptrdiff_t x) { return Sum(p[x * channels]); };
  const ptrdiff_t x = 2 * ptrdiff_t(i);
  if (i == 0) return Sum(6) * at(0) + Sum(8) * at(1) + Sum(2) * at(2);
  if (x == width - 2) return Sum(4) * (at(x - 1) + at(x + 1)) + at(x - 2) + Sum(7) * at(x);
  if (x == width - 1) return Sum(8) * at(x - 1) + Sum(6) * at(x) + Sum(2) * at(x - 2);
  return fiveTaps<Sum>(at(x - 2), at(x - 1), at(x), at(x + 1), at(x + 2));
}

// The sums between the first and the last pixel of a row. May write the last pixel, too, which comes later.
template <class T, int32_t channels>
static void halveInner(const T* src, Ring<T>* sums, ptrdiff_t last) {
  ptrdiff_t i = 1;
#ifdef QOR_HALVING_VECTORS
  if constexpr (sizeof(T) == 1) {
    if (halveBytes<T, channels>(src + 2 * channels, sums + channels, last - 1)) return;
  }
#endif
  if constexpr (sizeof(T) == 4 && channels == 3) {
    // Three channels and one of the next pixel at a time; the outermost column read has to have one.
    typedef float Four __attribute__((vector_size(16)));
    const auto four = [](const float* from) {
      Four v;
      memcpy(&v, from, sizeof v);
      return v;
    };
    for (; i < last - 1; ++i) {
      const float* const p = src + 6 * i;
      const Four v = 6.0f * four(p) + 4.0f * (four(p - 3) + four(p + 3)) + four(p - 6) + four(p + 6);
      memcpy(sums + 3 * i, &v, sizeof v);
    }
  }
  for (; i < last; ++i) {
    for (int32_t c = 0; c < channels; ++c) {
      const T* const p = src + 2 * i * channels + c;
      sums[i * channels + c] =
          Ring<T>(fiveTaps<Single<T>>(p[-2 * channels], p[-channels], p[0], p[channels], p[2 * channels]));
    }
  }
}

template <class T, int32_t channels>
static void halveRow(const T* src, int32_t width, Ring<T>* sums) {
  const int32_t last = half(width) - 1;
  halveInner<T, channels>(src, sums, last);
  for (ptrdiff_t c = 0; c < channels; ++c) {
    sums[c] = Ring<T>(halfRowSum<T, channels>(src + c, width, 0));
    sums[ptrdiff_t(last) * channels + c] = Ring<T>(halfRowSum<T, channels>(src + c, width, last));
  }
}

template <class T>
static void halveColumns(const Ring<T>* const rows[5], T* dst, ptrdiff_t count) {
  const Ring<T>*const a = rows[0], *const b = rows[1], *const c = rows[2], *const d = rows[3], *const e = rows[4];
  forElements(count, [=](ptrdiff_t x) { dst[x] = halved<T>(fiveTaps<Ring<T>>(a[x], b[x], c[x], d[x], e[x])); });
}

// An image of one or two rows: the two rows' sums, or twice the one's.
template <class T, int32_t channels>
static void ownPyrDownG5x5_H2(const T* src, int32_t srcStep, T* dst, QoriSize roiSize) {
  using Sum = Single<T>;
  const T* const rows[2] = {src, rowAt(src, srcStep, roiSize.height - 1)};
  for (int32_t i = 0; i < half(roiSize.width); ++i) {
    for (int32_t c = 0; c < channels; ++c) {
      Sum sums[2];
      for (int32_t r = 0; r < 2; ++r) {
        const T* const p = rows[r] + c;
        sums[r] = roiSize.width < 3 ? Sum(8) * (Sum(p[0]) + Sum(p[(roiSize.width - 1) * channels]))
                                    : halfRowSum<T, channels>(p, roiSize.width, i);
      }
      dst[ptrdiff_t(i) * channels + c] = halved<T>(Ring<T>((sums[0] + sums[1]) * Sum(8)));
    }
  }
}

static inline int32_t mirrored(int32_t y, int32_t height) { return y < 0 ? -y : y < height ? y : 2 * height - 2 - y; }

// An image of one or two columns and more than two rows.
template <class T, int32_t channels>
static void ownPyrDownG5x5_W2(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize) {
  using Sum = Single<T>;
  for (int32_t j = 0; j < half(roiSize.height); ++j) {
    for (int32_t c = 0; c < channels; ++c) {
      Sum sums[2];
      for (int32_t column = 0; column < 2; ++column) {
        const T* const p = src + (roiSize.width - 1) * column * channels + c;
        const auto at = [=](int32_t y) { return Sum(*rowAt(p, srcStep, mirrored(y, roiSize.height))); };
        const int32_t y = 2 * j;
        sums[column] = fiveTaps<Sum>(at(y - 2), at(y - 1), at(y), at(y + 1), at(y + 2));
      }
      rowAt(dst, dstStep, j)[c] = halved<T>(Ring<T>((sums[0] + sums[1]) * Sum(8)));
    }
  }
}

// Bytes of a row of the ring.
template <class T>
static inline ptrdiff_t ringStep(ptrdiff_t elements) {
  return (elements * ptrdiff_t(sizeof(Ring<T>)) + 15) & ~ptrdiff_t(15);
}

template <class T, int32_t channels>
static QorStatus pyrDown(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer) {
  if (anyNull(src, dst, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  const int32_t height = roiSize.height;
  const QoriSize dstSize = {half(roiSize.width), half(height)};
  if (shortStep<T, channels>(srcStep, roiSize) || shortStep<T, channels>(dstStep, dstSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep | dstStep)) return qorStatusBadStepAlign;
  if (height < 3) {
    ownPyrDownG5x5_H2<T, channels>(src, srcStep, dst, roiSize);
    return qorStatusOk;
  }
  if (roiSize.width < 3) {
    ownPyrDownG5x5_W2<T, channels>(src, srcStep, dst, dstStep, roiSize);
    return qorStatusOk;
  }
  const ptrdiff_t count = ptrdiff_t(dstSize.width) * channels;
  Ring<T>* const ring = alignUp<Ring<T>>(buffer, 32);
  const auto slot = [=](int32_t y) { return rowAt(ring, ringStep<T>(count), y % 5); };
  int32_t filtered = 0;
  for (int32_t j = 0; j < dstSize.height; ++j) {
    const int32_t y = 2 * j;
    for (; filtered < height && filtered <= y + 2; ++filtered) {
      halveRow<T, channels>(rowAt(src, srcStep, filtered), roiSize.width, slot(filtered));
    }
    const Ring<T>* const rows[5] = {slot(mirrored(y - 2, height)), slot(mirrored(y - 1, height)), slot(y),
                                    slot(mirrored(y + 1, height)), slot(mirrored(y + 2, height))};
    halveColumns<T>(rows, rowAt(dst, dstStep, j), count);
  }
  return qorStatusOk;
}

// --- doubling ---

// Sums of the row at output columns 2i (even) and 2i + 1 (odd).
template <class T>
struct Two {
  Single<T> even, odd;
};
template <class T, int32_t channels>
static inline Two<T> doubleRowSums(const T* p, int32_t width, int32_t i) {
  using Sum = Single<T>;
  const auto at = [p](ptrdiff_t x) { return Sum(p[x * channels]); };
  if (width == 1) return {Sum(8) * at(0), Sum(8) * at(0)};
  if (i == 0) return {Sum(6) * at(0) + Sum(2) * at(1), Sum(4) * (at(0) + at(1))};
  if (i == width - 1) return {at(i - 1) + Sum(7) * at(i), Sum(8) * at(i)};
  return {at(i - 1) + Sum(6) * at(i) + at(i + 1), Sum(4) * (at(i) + at(i + 1))};
}

// A row of bytes of one channel has its even sums first and its odd ones behind them, as one 16-bit word then takes a
// pixel of each. All other rows are in the order of the destination.
template <class T, int32_t channels>
static constexpr bool parted = sizeof(T) == 1 && channels == 1;

// The inner sums of a row of three channels by vectors; false, with nothing written, where there are none for it.
template <class T>
static inline bool doubleInner(const T* src, Ring<T>* sums, ptrdiff_t count) {
#ifdef QOR_DOUBLING_VECTORS
  if constexpr (sizeof(T) == 1) return doubleTriples(src, sums, count);
#endif
  (void)src, (void)sums, (void)count;
  return false;
}

template <class T, int32_t channels>
static void doubleRow(const T* src, int32_t width, Ring<T>* sums) {
  using Sum = Ring<T>;
  const auto evenSum = [src](ptrdiff_t x) {
    return Sum(Sum(src[x - channels]) + Sum(6) * Sum(src[x]) + Sum(src[x + channels]));
  };
  const auto oddSum = [src](ptrdiff_t x) { return Sum(Sum(4) * Sum(Sum(src[x]) + Sum(src[x + channels]))); };
  const ptrdiff_t last = ptrdiff_t(width - 1) * channels;
  if constexpr (parted<T, channels>) {
    forElements(last - 1, [=](ptrdiff_t x) {
      sums[x + 1] = evenSum(x + 1);
      sums[width + x + 1] = oddSum(x + 1);
    });
  } else if constexpr (channels == 1) {
    QOR_INDEPENDENT
    for (ptrdiff_t x = 1; x < last; ++x) {
      sums[2 * x] = evenSum(x);
      sums[2 * x + 1] = oddSum(x);
    }
  } else if (!doubleInner<T>(src + channels, sums + 2 * channels, width - 2)) {
    // Blocks of sums side by side, then pixel by pixel to their places, an element too many at a time: the next pixel,
    // or the last one of the row, comes over it.
    constexpr ptrdiff_t block = 64 * channels;
    Sum even[block + 1], odd[block + 1];
    even[block] = odd[block] = 0;
    for (ptrdiff_t first = channels; first < last; first += block) {
      const ptrdiff_t count = last - first < block ? last - first : block;
      for (ptrdiff_t x = 0; x < count; ++x) {
        even[x] = evenSum(first + x);
        odd[x] = oddSum(first + x);
      }
      even[count] = odd[count] = 0;
      for (ptrdiff_t x = 0; x < count; x += channels) {
        memcpy(sums + 2 * (first + x), even + x, (channels + 1) * sizeof(Sum));
        memcpy(sums + 2 * (first + x) + channels, odd + x, (channels + 1) * sizeof(Sum));
      }
    }
  }
  for (int32_t end = 0; end < 2; ++end) {
    const int32_t i = end * (width - 1);
    for (int32_t c = 0; c < channels; ++c) {
      const Two<T> two = doubleRowSums<T, channels>(src + c, width, i);
      sums[parted<T, channels> ? ptrdiff_t(i) : 2 * ptrdiff_t(i) * channels + c] = Sum(two.even);
      sums[parted<T, channels> ? ptrdiff_t(width) + i : (2 * ptrdiff_t(i) + 1) * channels + c] = Sum(two.odd);
    }
  }
}

// The two output rows of a source row, out of the rows of sums above, at and below it.
template <class T>
static inline T evenRow(Ring<T> above, Ring<T> at, Ring<T> below) {
  return doubled<T>(Ring<T>(Ring<T>(6) * at + above + below));
}
template <class T>
static inline T oddRow(Ring<T> at, Ring<T> below) {
  return doubled<T>(Ring<T>(Ring<T>(at + below) * Ring<T>(4)));
}

template <class T, int32_t channels>
static void doubleColumns(const Ring<T>* above, const Ring<T>* at, const Ring<T>* below, T* even, T* odd,
                          int32_t width) {
  if constexpr (parted<T, channels>) {
    typedef uint16_t Word __attribute__((aligned(1), may_alias));
    Word* const evenWords = reinterpret_cast<Word*>(even);
    Word* const oddWords = reinterpret_cast<Word*>(odd);
    const auto word = [](T first, T second) { return uint16_t(uint8_t(first) | uint16_t(second) << 8); };
    forElements(width, [=](ptrdiff_t x) {
      const ptrdiff_t o = x + width;
      evenWords[x] = word(evenRow<T>(above[x], at[x], below[x]), evenRow<T>(above[o], at[o], below[o]));
      oddWords[x] = word(oddRow<T>(at[x], below[x]), oddRow<T>(at[o], below[o]));
    });
  } else {
    forElements(2 * ptrdiff_t(width) * channels, [=](ptrdiff_t x) {
      even[x] = evenRow<T>(above[x], at[x], below[x]);
      odd[x] = oddRow<T>(at[x], below[x]);
    });
  }
}

// An image of one row: both output rows are its sums, 8 times. A single pixel is copied, however large.
template <class T, int32_t channels>
static void ownPyrUpG5x5_H1(const T* src, T* dst, int32_t dstStep, int32_t width) {
  T* const second = rowAt(dst, dstStep, 1);
  if (width == 1) {
    for (int32_t c = 0; c < channels; ++c) dst[c] = dst[channels + c] = second[c] = second[channels + c] = src[c];
    return;
  }
  for (int32_t i = 0; i < width; ++i) {
    for (int32_t c = 0; c < channels; ++c) {
      const Two<T> two = doubleRowSums<T, channels>(src + c, width, i);
      const ptrdiff_t x = 2 * ptrdiff_t(i) * channels + c;
      dst[x] = second[x] = oddRow<T>(Ring<T>(two.even), Ring<T>(two.even));
      dst[x + channels] = second[x + channels] = oddRow<T>(Ring<T>(two.odd), Ring<T>(two.odd));
    }
  }
}

// An image of one column and several rows.
template <class T, int32_t channels>
static void ownPyrUpG5x5_W1(const T* src, int32_t srcStep, T* dst, int32_t dstStep, int32_t height) {
  for (int32_t y = 0; y < height; ++y) {
    T* const even = rowAt(dst, dstStep, 2 * ptrdiff_t(y));
    T* const odd = rowAt(dst, dstStep, 2 * ptrdiff_t(y) + 1);
    for (int32_t c = 0; c < channels; ++c) {
      const auto at = [=](int32_t row) { return Ring<T>(Ring<T>(8) * Ring<T>(rowAt(src, srcStep, row)[c])); };
      const Ring<T> above = at(y == 0 ? 1 : y - 1), here = at(y), below = at(y == height - 1 ? y : y + 1);
      even[c] = even[channels + c] = evenRow<T>(above, here, below);
      odd[c] = odd[channels + c] = oddRow<T>(here, below);
    }
  }
}

template <class T, int32_t channels>
static QorStatus pyrUp(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, uint8_t* buffer) {
  if (anyNull(src, dst, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  const int32_t width = roiSize.width, height = roiSize.height;
  if (shortStep<T, channels>(srcStep, roiSize)) return qorStatusBadStep;
  if (shortStep<T, channels>(dstStep, QoriSize{width * 2, height})) return qorStatusBadStep;
  if (misaligned<T>(srcStep | dstStep)) return qorStatusBadStepAlign;
  if (height == 1) {
    ownPyrUpG5x5_H1<T, channels>(src, dst, dstStep, width);
    return qorStatusOk;
  }
  if (width == 1) {
    ownPyrUpG5x5_W1<T, channels>(src, srcStep, dst, dstStep, height);
    return qorStatusOk;
  }
  Ring<T>* const ring = alignUp<Ring<T>>(buffer, 32);
  const auto slot = [=](int32_t y) { return rowAt(ring, ringStep<T>(2 * ptrdiff_t(width) * channels), y % 3); };
  doubleRow<T, channels>(src, width, slot(0));
  for (int32_t y = 0; y < height; ++y) {
    const int32_t below = y + 1 < height ? y + 1 : y;
    if (below > y) doubleRow<T, channels>(rowAt(src, srcStep, below), width, slot(below));
    doubleColumns<T, channels>(slot(y == 0 ? 1 : y - 1), slot(y), slot(below), rowAt(dst, dstStep, 2 * ptrdiff_t(y)),
                               rowAt(dst, dstStep, 2 * ptrdiff_t(y) + 1), width);
  }
  return qorStatusOk;
}

// --- exported functions ---

// `rows` of `width` * channels elements of 4 bytes, whatever the type.
static QorStatus bufferSizeOf(int32_t roiWidth, int32_t width, int32_t rows, QorDataType dataType, int32_t channels,
                              int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (roiWidth < 1) return qorStatusBadSize;
  if (channels != 1 && channels != 3) return qorStatusBadChannels;
  if (dataType != qor8u && dataType != qor8s && dataType != qor32f) return qorStatusBadDataType;
  *bufferSize = ((width * channels * 4 + 15) & ~15) * rows + 32;
  return qorStatusOk;
}

QorStatus qoriPyrDownGetBufSize_Gauss5x5(int32_t roiWidth, QorDataType dataType, int32_t channels,
                                         int32_t* bufferSize) {
  return bufferSizeOf(roiWidth, roiWidth, 6, dataType, channels, bufferSize);
}

QorStatus qoriPyrUpGetBufSize_Gauss5x5(int32_t roiWidth, QorDataType dataType, int32_t channels, int32_t* bufferSize) {
  return bufferSizeOf(roiWidth, roiWidth * 2, 3, dataType, channels, bufferSize);
}

#define QOR_LEVELS_OF(form, T, channels)                                                                          \
  QorStatus qoriPyrDown_Gauss5x5_##form(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, \
                                        uint8_t* buffer) {                                                        \
    return pyrDown<T, channels>(src, srcStep, dst, dstStep, roiSize, buffer);                                     \
  }                                                                                                               \
  QorStatus qoriPyrUp_Gauss5x5_##form(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize,   \
                                      uint8_t* buffer) {                                                          \
    return pyrUp<T, channels>(src, srcStep, dst, dstStep, roiSize, buffer);                                       \
  }
QOR_LEVELS_OF(8u_C1R, uint8_t, 1)
QOR_LEVELS_OF(8u_C3R, uint8_t, 3)
QOR_LEVELS_OF(8s_C1R, int8_t, 1)
QOR_LEVELS_OF(8s_C3R, int8_t, 3)
QOR_LEVELS_OF(32f_C1R, float, 1)
QOR_LEVELS_OF(32f_C3R, float, 3)
#undef QOR_LEVELS_OF
