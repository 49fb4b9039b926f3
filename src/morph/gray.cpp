// Dilation and erosion by an element with a value for each tap, which is added to the pixel under it.
//
// Odd: the erosion adds the taps too, and neither operation reflects the element. The 8u forms begin at 0 (dilation)
// and at 255 (erosion), so a dilation whose sums are all negative gives 0; the 32f forms begin at the largest floats.
#include <string.h>

#include <algorithm>
#include <limits>

#include "filter/extremes.h"
#include "frame/frame.h"

static_assert(sizeof(QoriMorphGrayState) == 32, "the taps follow at byte 32");

// All taps go over a block of pixels before the next block begins, of a row of the element so many at once.
static constexpr int32_t blockPixels = 128, tapsAtOnce = 128;

namespace {

// A tap of an 8u element. The result is held to 0 .. 255, and that can as well be done to each sum, which is then taken
// in bytes: `added` wraps, and the pixel is first held to what does not overflow by it.
struct ByteTap {
  uint8_t least, most, added;
};

struct FloatTap {
  float added;
};

}  // namespace

static ByteTap tapOf(int32_t value) {
  const uint8_t least = uint8_t(value >= 0 ? 0 : value < -255 ? 255 : -value);
  const uint8_t most = uint8_t(value <= 0 ? 255 : value > 255 ? 0 : 255 - value);
  return {least, most, uint8_t(255 - least - most)};
}
static FloatTap tapOf(float value) { return {value}; }

static inline uint8_t sumOf(uint8_t pixel, ByteTap tap) {
  return uint8_t(std::max(std::min(pixel, tap.most), tap.least) + tap.added);
}
static inline float sumOf(float pixel, FloatTap tap) { return pixel + tap.added; }

// `length` pixels of a row from column `first` on, in place if they are all inside, else copied to `line`.
template <class T>
static const T* columnsFrom(const T* row, int32_t width, ptrdiff_t first, int32_t length, T* line) {
  if (first >= 0 && first + length <= width) return row + first;
  const auto held = [=](ptrdiff_t x) { return x < 0 ? 0 : x > length ? length : x; };
  const ptrdiff_t left = held(-first), right = held(width - first);
  for (ptrdiff_t x = 0; x < left; ++x) line[x] = row[0];
  if (right > left) memcpy(line + left, row + first + left, size_t(right - left) * sizeof(T));
  for (ptrdiff_t x = right; x < length; ++x) line[x] = row[width - 1];
  return line;
}

// Folds `count` taps of a row of the element into a block, of which the first tap stands on pixels[0] and so on.
template <class T, class Value, Extreme extreme>
static void foldTaps(const T* pixels, const char* taps, int32_t count, T* __restrict block) {
  for (int32_t i = 0; i < count; ++i) {
    Value value;
    memcpy(&value, taps + i * sizeof value, sizeof value);
    const auto tap = tapOf(value);
    QOR_INDEPENDENT
    for (ptrdiff_t x = 0; x < blockPixels; ++x) block[x] = extremeOf<extreme>(sumOf(pixels[i + x], tap), block[x]);
  }
}

// Always whole blocks: what is beyond the row's end is worked out too, from its last pixel, but not stored.
template <class T, class Value, Extreme extreme>
static void grayRow(const T* src, int32_t srcStep, T* dst, int32_t y, QoriSize size, const QoriMorphGrayState& state) {
  constexpr T start = extreme == Extreme::max ? std::numeric_limits<T>::lowest() : std::numeric_limits<T>::max();
  for (int32_t x = 0; x < size.width; x += blockPixels) {
    const int32_t count = size.width - x < blockPixels ? size.width - x : blockPixels;
    T block[blockPixels], line[blockPixels + tapsAtOnce];
    for (int32_t i = 0; i < blockPixels; ++i) block[i] = start;
    const char* taps = static_cast<const char*>(state.kernel);
    for (int32_t j = 0; j < state.maskHeight; ++j) {
      const ptrdiff_t v = ptrdiff_t(y) + j - state.anchorY;
      const T* const row = rowAt(src, srcStep, v < 0 ? 0 : v < size.height ? v : size.height - 1);
      for (int32_t i = 0, most; i < state.maskWidth; i += most) {
        most = state.maskWidth - i < tapsAtOnce ? state.maskWidth - i : tapsAtOnce;
        const T* const pixels =
            columnsFrom(row, size.width, ptrdiff_t(x) + i - state.anchorX, blockPixels + most - 1, line);
        foldTaps<T, Value, extreme>(pixels, taps, most, block);
        taps += most * sizeof(Value);
      }
    }
    memcpy(dst + x, block, size_t(count) * sizeof(T));
  }
}

template <class T, class Value, Extreme extreme>
static QorStatus grayBorder(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize,
                            QoriBorderType borderType, const QoriMorphGrayState* record) {
  if (anyNull(src, dst, record)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T>(srcStep, roiSize) || shortStep<T>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep | dstStep)) return qorStatusBadStepAlign;
  if (borderType != qorBorderReplicate) return qorStatusBadArg;
  QoriMorphGrayState state;
  memcpy(&state, record, sizeof state);
  if (roiSize.width > state.roiWidth || roiSize.height > state.roiHeight) return qorStatusBadSize;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    grayRow<T, Value, extreme>(src, srcStep, rowAt(dst, dstStep, y), y, roiSize, state);
  }
  return qorStatusOk;
}

// ---- The state

static int32_t stateSize(QoriSize maskSize) {
  return maskSize.width * maskSize.height * 4 + int32_t(sizeof(QoriMorphGrayState));
}

static QorStatus grayGetSize(QoriSize roiSize, const void* kernel, QoriSize maskSize, int32_t* size) {
  if (anyNull(kernel, size)) return qorStatusNullPtr;
  if (emptySize(roiSize) || emptySize(maskSize)) return qorStatusBadSize;
  *size = stateSize(maskSize);
  return qorStatusOk;
}

// What the two Init forms check; `room` is where the state, or the pointer to it, is to go.
static QorStatus checkInit(const void* room, QoriSize roiSize, const void* kernel, QoriSize maskSize,
                           QoriPoint anchor) {
  if (anyNull(room, kernel)) return qorStatusNullPtr;
  if (emptySize(roiSize) || emptySize(maskSize)) return qorStatusBadSize;
  if (anchor.x < 0 || anchor.x >= maskSize.width || anchor.y < 0 || anchor.y >= maskSize.height) {
    return qorStatusBadAnchor;
  }
  return qorStatusOk;
}

static QorStatus grayInit(QoriMorphGrayState* record, QoriSize roiSize, const void* kernel, QoriSize maskSize,
                          QoriPoint anchor) {
  const QorStatus status = checkInit(record, roiSize, kernel, maskSize, anchor);
  if (status != qorStatusOk) return status;
  char* const taps = reinterpret_cast<char*>(record) + sizeof *record;
  const QoriMorphGrayState state = {taps,     maskSize.width, maskSize.height, anchor.x,
                                    anchor.y, roiSize.width,  roiSize.height};
  memcpy(record, &state, sizeof state);
  memcpy(taps, kernel, size_t(maskSize.width) * size_t(maskSize.height) * 4);
  return qorStatusOk;
}

static QorStatus grayInitAlloc(QoriMorphGrayState** state, QoriSize roiSize, const void* kernel, QoriSize maskSize,
                               QoriPoint anchor) {
  const QorStatus status = checkInit(state, roiSize, kernel, maskSize, anchor);
  if (status != qorStatusOk) return status;
  QoriMorphGrayState* const block = reinterpret_cast<QoriMorphGrayState*>(qorsMalloc_8u(stateSize(maskSize)));
  if (!block) return qorStatusNoMemory;
  *state = block;
  return grayInit(block, roiSize, kernel, maskSize, anchor);
}

static QorStatus grayFree(QoriMorphGrayState* state) {
  if (!state) return qorStatusNullPtr;
  qorsFree(state);
  return qorStatusOk;
}

#define QOR_MORPH_GRAY(TYPE, T, VALUE)                                                                                 \
  QorStatus qoriMorphGrayGetSize_##TYPE##_C1R(QoriSize roiSize, const VALUE* kernel, QoriSize maskSize,                \
                                              int32_t* size) {                                                         \
    return grayGetSize(roiSize, kernel, maskSize, size);                                                               \
  }                                                                                                                    \
  QorStatus qoriMorphGrayInit_##TYPE##_C1R(QoriMorphGrayState* state, QoriSize roiSize, const VALUE* kernel,           \
                                           QoriSize maskSize, QoriPoint anchor) {                                      \
    return grayInit(state, roiSize, kernel, maskSize, anchor);                                                         \
  }                                                                                                                    \
  QorStatus qoriMorphGrayInitAlloc_##TYPE##_C1R(QoriMorphGrayState** state, QoriSize roiSize, const VALUE* kernel,     \
                                                QoriSize maskSize, QoriPoint anchor) {                                 \
    return grayInitAlloc(state, roiSize, kernel, maskSize, anchor);                                                    \
  }                                                                                                                    \
  QorStatus qoriMorphGrayFree_##TYPE##_C1R(QoriMorphGrayState* state) { return grayFree(state); }                      \
  QorStatus qoriGrayDilateBorder_##TYPE##_C1R(const T* src, int32_t srcStep, T* dst, int32_t dstStep,                  \
                                              QoriSize roiSize, QoriBorderType borderType,                             \
                                              const QoriMorphGrayState* state) {                                       \
    return grayBorder<T, VALUE, Extreme::max>(src, srcStep, dst, dstStep, roiSize, borderType, state);                 \
  }                                                                                                                    \
  QorStatus qoriGrayErodeBorder_##TYPE##_C1R(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, \
                                             QoriBorderType borderType, const QoriMorphGrayState* state) {             \
    return grayBorder<T, VALUE, Extreme::min>(src, srcStep, dst, dstStep, roiSize, borderType, state);                 \
  }
QOR_MORPH_GRAY(8u, uint8_t, int32_t)
QOR_MORPH_GRAY(32f, float, float)
#undef QOR_MORPH_GRAY
