// Dilation and erosion: the extreme of the pixels under an element's set taps.
//
// A rectangle is a filter's, an ellipse takes the extremes of each source row once for each length of run and then
// those of the shape's rows, and a general element goes through all taps, on copies of a few rows at a time with the
// borders continued. Reading the image's middle in place and copying its borders alone was measured: the narrow strips
// at both sides cost twice what they save at 640 columns, and gain nothing at 1920.
//
// Odd: an element without taps copies; with the general kind a float result never goes beyond the largest finite float,
// also where all pixels are infinite. Only a rectangle's anchor can lie outside it. The image then moves by what lies
// between, and the pixels at the edge which it leaves are those of the result's own edge.
#include <float.h>

#include "frame/frame.h"
#include "frame/kit/images.h"
#include "morph/dilate_rows.h"
#include "morph/element.h"

namespace {

template <class T>
struct ImageOf {
  T* first;
  ptrdiff_t step;  // in bytes
};

template <class T>
inline ImageOf<T> movedBy(ImageOf<T> image, ptrdiff_t columns, ptrdiff_t rows, int32_t channels) {
  return {rowAt(image.first, image.step, rows) + columns * channels, image.step};
}

// ---- What is called by element type and channels

template <class T, int32_t channels>
struct Kit;
#define KIT(T, type, layout, channels, border, BorderT)                                                               \
  template <>                                                                                                         \
  struct Kit<T, channels> {                                                                                           \
    static constexpr auto copy = qoriCopy_##type##_##layout##R;                                                       \
    static constexpr auto filterMax = qoriFilterMaxBorderReplicate_##type##_##layout##R;                              \
    static constexpr auto filterMin = qoriFilterMinBorderReplicate_##type##_##layout##R;                              \
    static QorStatus replicate(const T* src, int32_t srcStep, QoriSize srcSize, T* dst, int32_t dstStep,              \
                               QoriSize dstSize, int32_t top, int32_t left) {                                         \
      return qoriCopyReplicateBorder_##border##_##layout##R(reinterpret_cast<const BorderT*>(src), srcStep, srcSize,  \
                                                            reinterpret_cast<BorderT*>(dst), dstStep, dstSize, top,   \
                                                            left);                                                    \
    }                                                                                                                 \
    static QorStatus replicateInPlace(T* image, int32_t step, QoriSize size, QoriSize fullSize, int32_t top,          \
                                      int32_t left) {                                                                 \
      return qoriCopyReplicateBorder_##border##_##layout##IR(reinterpret_cast<BorderT*>(image), step, size, fullSize, \
                                                             top, left);                                              \
    }                                                                                                                 \
  };
KIT(uint8_t, 8u, C1, 1, 8u, uint8_t)
KIT(uint8_t, 8u, C3, 3, 8u, uint8_t)
KIT(uint8_t, 8u, C4, 4, 8u, uint8_t)
KIT(float, 32f, C1, 1, 32s, int32_t)
KIT(float, 32f, C3, 3, 32s, int32_t)
KIT(float, 32f, C4, 4, 32s, int32_t)
#undef KIT

template <Extreme extreme>
inline void extremeRow(const uint8_t* src, uint8_t* dst, int32_t width, int32_t channels, int32_t length,
                       int32_t anchor) {
  (extreme == Extreme::max ? ownFilterMaxRow_8u : ownFilterMinRow_8u)(src, dst, width, channels, length, anchor);
}
template <Extreme extreme>
inline void extremeRow(const float* src, float* dst, int32_t width, int32_t channels, int32_t length, int32_t anchor) {
  (extreme == Extreme::max ? ownFilterMaxRow_32f : ownFilterMinRow_32f)(src, dst, width, channels, length, anchor);
}

// ---- Ellipse

// The value that the first pixel always takes the place of.
template <Extreme extreme, class T>
constexpr T neutral() {
  if constexpr (sizeof(T) == 1)
    return extreme == Extreme::max ? 0 : 255;
  else
    return extreme == Extreme::max ? -__builtin_inff() : __builtin_inff();
}

constexpr int32_t mostPieces = 256;  // at once, so that their offsets need no memory of their own

// What a run reaches further than a shorter one, if both have the anchor's column in the same place of the row.
struct Reach {
  int32_t left, right;
};

inline Reach reachBeyond(const QoriMorphShape& shape, int32_t longer, int32_t shorter) {
  const int32_t left = shape.runAnchor[longer] - shape.runAnchor[shorter];
  return {left, shape.runLength[longer] - shape.runLength[shorter] - left};
}

// The extremes for a longer run from those for a shorter one, if two of the shorter meet in the longer one: those of
// the pixels at both ends of the reach, or of the row's ends where it goes beyond them.
template <Extreme extreme, class T, int32_t channels>
void widened(const T* src, T* dst, int32_t width, Reach reach) {
  const auto clamped = [=](int32_t first, int32_t end) {
    for (int32_t x = first; x < end; ++x) {
      const T* left = src + ptrdiff_t(x < reach.left ? 0 : x - reach.left) * channels;
      const T* right = src + ptrdiff_t(x < width - reach.right ? x + reach.right : width - 1) * channels;
      for (int32_t c = 0; c < channels; ++c) dst[ptrdiff_t(x) * channels + c] = extremeOf<extreme>(left[c], right[c]);
    }
  };
  const int32_t middle = width - reach.left - reach.right;
  if (middle <= 0) return clamped(0, width);
  clamped(0, reach.left);
  const ptrdiff_t offsets[2] = {0, ptrdiff_t(reach.left + reach.right) * channels};
  extremeOfPieces<extreme, T>({src, offsets, 2}, dst + ptrdiff_t(reach.left) * channels, ptrdiff_t(middle) * channels,
                              neutral<extreme, T>(), false);
  clamped(width - reach.right, width);
}

// The extremes of a row for all run lengths. A long run's come from those of the next shorter one where they can, else
// from the row itself.
template <Extreme extreme, class T, int32_t channels>
void extremesOfRow(const T* src, T* dst, ptrdiff_t stride, int32_t width, const QoriMorphShape& shape) {
  for (int32_t run = shape.runCount - 1; run >= 0; --run) {
    T* extremes = dst + run * stride;
    if (run + 1 < shape.runCount) {
      const Reach reach = reachBeyond(shape, run, run + 1);
      if (reach.left >= 0 && reach.right >= 0 && reach.left + reach.right <= shape.runLength[run + 1]) {
        widened<extreme, T, channels>(extremes + stride, extremes, width, reach);
        continue;
      }
    }
    extremeRow<extreme>(src, extremes, width, channels, shape.runLength[run], shape.runAnchor[run]);
  }
}

// Work holds a ring of shape.height groups, each with the extremes of one source row for all run lengths.
template <Extreme extreme, class T, int32_t channels>
void ellipse(ImageOf<const T> src, ImageOf<T> dst, QoriSize size, const QoriMorphState& state) {
  const QoriMorphShape shape = loaded(state.shape);
  const ptrdiff_t length = ptrdiff_t(size.width) * channels;
  const ptrdiff_t stride = ((length * ptrdiff_t(sizeof(T)) + 31) & ~ptrdiff_t(31)) / ptrdiff_t(sizeof(T));
  const ptrdiff_t group = stride * shape.runCount;
  T* const ring = alignUp<T>(static_cast<uint8_t*>(state.work), 32);
  // Source row r is in place r % shape.height of the ring; topPlace is that of the shape's first row, in the image or
  // above it.
  int32_t filtered = 0, place = 0, topPlace = state.anchorY == 0 ? 0 : shape.height - state.anchorY;
  for (int32_t y = 0; y < size.height; ++y) {
    const int32_t top = y - state.anchorY;
    for (; filtered < size.height && filtered - top < shape.height; ++filtered) {
      extremesOfRow<extreme, T, channels>(rowAt(src.first, src.step, filtered), ring + place * group, stride,
                                          size.width, shape);
      if (++place == shape.height) place = 0;
    }
    ptrdiff_t offsets[mostPieces];
    for (int32_t first = 0; first < shape.rowCount; first += mostPieces) {
      const int32_t rest = shape.rowCount - first, count = rest < mostPieces ? rest : mostPieces;
      for (int32_t i = 0; i < count; ++i) {
        const int32_t row = top + shape.rowIndex[first + i];
        const int32_t inside = row < 0 ? 0 : row < size.height ? row : size.height - 1;
        const int32_t at = topPlace + (inside - top), wrapped = at < shape.height ? at : at - shape.height;
        offsets[i] = wrapped * group + shape.rowRun[first + i] * stride;
      }
      extremeOfPieces<extreme, T>({ring, offsets, count}, rowAt(dst.first, dst.step, y), length, neutral<extreme, T>(),
                                  first > 0);
    }
    if (++topPlace == shape.height) topPlace = 0;
  }
}

// ---- General element

template <Extreme extreme, class T>
constexpr T startOfTaps() {
  if constexpr (sizeof(T) == 1)
    return neutral<extreme, T>();
  else
    return extreme == Extreme::max ? -FLT_MAX : FLT_MAX;
}

// Row kernel over `rows` rows: src has the window's top left for the first pixel of dst, and all pixels under the taps.
template <Extreme extreme, class T, int32_t channels>
void extremeOfTaps(ImageOf<const T> src, ImageOf<T> dst, int32_t width, int32_t rows, const QoriMorphState& state) {
  const uint8_t* mask = extreme == Extreme::max ? state.maskDilate : state.maskErode;
  ptrdiff_t offsets[mostPieces];
  int32_t count = 0;
  bool more = false;
  const auto takeTaps = [&] {
    for (int32_t y = 0; y < rows; ++y) {
      extremeOfPieces<extreme, T>({rowAt(src.first, src.step, y), offsets, count}, rowAt(dst.first, dst.step, y),
                                  ptrdiff_t(width) * channels, startOfTaps<extreme, T>(), more);
    }
    more = true;
    count = 0;
  };
  for (int32_t y = 0; y < state.maskHeight; ++y) {
    for (int32_t x = 0; x < state.maskWidth; ++x) {
      if (!mask[ptrdiff_t(y) * state.maskWidth + x]) continue;
      if (count == mostPieces) takeTaps();
      offsets[count++] = y * (src.step / ptrdiff_t(sizeof(T))) + ptrdiff_t(x) * channels;
    }
  }
  takeTaps();
}

// Works on bands of at most maskHeight rows, each from a copy of what is under the element there, with the image's
// borders continued: work has room for twice as many rows.
template <Extreme extreme, class T, int32_t channels>
void general(ImageOf<const T> src, ImageOf<T> dst, QoriSize size, const QoriMorphState& state) {
  T* const work = static_cast<T*>(state.work);
  for (int32_t y = 0; y < size.height; y += state.maskHeight) {
    const int32_t rest = size.height - y, rows = rest < state.maskHeight ? rest : state.maskHeight;
    // Rows under the element, and those of them that the image has.
    const int32_t top = y - state.anchorY, bottom = y + rows + state.bottomExtent;
    const int32_t first = top < 0 ? 0 : top, end = bottom < size.height ? bottom : size.height;
    const QoriSize padded = {size.width + state.maskWidth - 1, bottom - top};
    Kit<T, channels>::replicate(rowAt(src.first, src.step, first), int32_t(src.step), {size.width, end - first}, work,
                                state.paddedStride, padded, first - top, state.anchorX);
    extremeOfTaps<extreme, T, channels>({work, state.paddedStride}, {rowAt(dst.first, dst.step, y), dst.step},
                                        size.width, rows, state);
  }
}

// ---- The frame

// What an anchor outside the element leaves to do on one axis.
struct Reduced {
  int32_t length, srcOffset, dstOffset, anchor;
};

inline Reduced reduced(int32_t length, int32_t anchor, int32_t maskLength) {
  if (anchor < 0) {
    const int32_t d = 1 - length > anchor ? 1 - length : anchor;
    return {length + d, -d, 0, 0};
  }
  if (anchor >= maskLength) {
    const int32_t beyond = anchor - maskLength + 1, d = beyond < length - 1 ? beyond : length - 1;
    return {length - d, 0, d, maskLength - 1};
  }
  return {length, 0, 0, anchor};
}

template <Extreme extreme, class T, int32_t channels>
QorStatus runKind(ImageOf<const T> src, ImageOf<T> dst, QoriSize size, const QoriMorphState& state) {
  using Routines = Kit<T, channels>;
  switch (state.kind) {
    case qorMorphEmpty: return Routines::copy(src.first, int32_t(src.step), dst.first, int32_t(dst.step), size);
    case qorMorphRectangle:
      return (extreme == Extreme::max ? Routines::filterMax : Routines::filterMin)(
          src.first, int32_t(src.step), dst.first, int32_t(dst.step), size, {state.maskWidth, state.maskHeight},
          {state.anchorX, state.anchorY}, static_cast<uint8_t*>(state.work));
    case qorMorphEllipse: ellipse<extreme, T, channels>(src, dst, size, state); return qorStatusOk;
    default: general<extreme, T, channels>(src, dst, size, state); return qorStatusOk;
  }
}

template <Extreme extreme, class T, int32_t channels>
QorStatus morph(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, QoriBorderType borderType,
                const QoriMorphState* record) {
  if (anyNull(src, dst, record)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T, channels>(srcStep, roiSize) || shortStep<T, channels>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep | dstStep)) return qorStatusBadStepAlign;
  if (borderType != qorBorderReplicate) return qorStatusBadArg;
  QoriMorphState state = loaded(record);
  if (roiSize.width > state.roiWidth) return qorStatusBadSize;
  const Reduced x = reduced(roiSize.width, state.anchorX, state.maskWidth);
  const Reduced y = reduced(roiSize.height, state.anchorY, state.maskHeight);
  const QoriSize size = {x.length, y.length};
  state.anchorX = x.anchor;
  state.anchorY = y.anchor;
  const ImageOf<T> part = movedBy(ImageOf<T>{dst, dstStep}, x.dstOffset, y.dstOffset, channels);
  const QorStatus status = runKind<extreme, T, channels>(
      movedBy(ImageOf<const T>{src, srcStep}, x.srcOffset, y.srcOffset, channels), part, size, state);
  if (status != qorStatusOk || (size.width == roiSize.width && size.height == roiSize.height)) return status;
  return Kit<T, channels>::replicateInPlace(part.first, dstStep, size, roiSize, y.dstOffset, x.dstOffset);
}

}  // namespace

#define MORPH(T, type, layout, channels)                                                                        \
  QorStatus qoriDilateBorderReplicate_##type##_##layout(const T* src, int32_t srcStep, T* dst, int32_t dstStep, \
                                                        QoriSize roiSize, QoriBorderType borderType,            \
                                                        QoriMorphState* state) {                                \
    return morph<Extreme::max, T, channels>(src, srcStep, dst, dstStep, roiSize, borderType, state);            \
  }                                                                                                             \
  QorStatus qoriErodeBorderReplicate_##type##_##layout(const T* src, int32_t srcStep, T* dst, int32_t dstStep,  \
                                                       QoriSize roiSize, QoriBorderType borderType,             \
                                                       QoriMorphState* state) {                                 \
    return morph<Extreme::min, T, channels>(src, srcStep, dst, dstStep, roiSize, borderType, state);            \
  }
MORPH(uint8_t, 8u, C1R, 1)
MORPH(uint8_t, 8u, C3R, 3)
MORPH(uint8_t, 8u, C4R, 4)
MORPH(float, 32f, C1R, 1)
MORPH(float, 32f, C3R, 3)
MORPH(float, 32f, C4R, 4)
#undef MORPH
