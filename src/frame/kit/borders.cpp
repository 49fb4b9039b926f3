// Copies into a larger image, with a border of one value or of the continued edge pixels.
//
// Pixels move as blocks of bytes, so any bits pass: float images go through the 32s forms. Odd: here the steps are
// tested before the sizes. Whether the destination can hold the source is asked without sums that could wrap.
#include <string.h>

#include "frame/checks.h"
#include "frame/kit/images.h"
#include "frame/rows.h"

// Where the source lies in the destination. The border on the right and at the bottom is whatever remains.
struct Placement {
  QoriSize src, dst;
  int32_t top, left;
};

static inline bool fits(const Placement& p) {
  return !emptySize(p.src) && !emptySize(p.dst) && p.top >= 0 && p.left >= 0 && p.dst.width - p.src.width >= p.left &&
         p.dst.height - p.src.height >= p.top;
}

static inline int32_t rightBorder(const Placement& p) { return p.dst.width - p.src.width - p.left; }

template <size_t pixelBytes>
static void repeatPixel(const uint8_t* pixel, uint8_t* dst, int32_t count) {
  if constexpr (pixelBytes == 1) {
    memset(dst, *pixel, size_t(count));
  } else {
    uint8_t copy[pixelBytes];
    memcpy(copy, pixel, pixelBytes);
    for (int32_t x = 0; x < count; ++x) memcpy(dst + ptrdiff_t(x) * ptrdiff_t(pixelBytes), copy, pixelBytes);
  }
}

// src may be its own place in dst already. The source rows are then left alone.
template <size_t pixelBytes>
static void replicate(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, const Placement& place) {
  const size_t srcBytes = size_t(place.src.width) * pixelBytes, leftBytes = size_t(place.left) * pixelBytes;
  for (int32_t y = 0; y < place.src.height; ++y) {
    const uint8_t* srcRow = rowAt(src, srcStep, y);
    uint8_t* dstRow = rowAt(dst, dstStep, place.top + ptrdiff_t(y));
    repeatPixel<pixelBytes>(srcRow, dstRow, place.left);
    if (srcRow != dstRow + leftBytes) memcpy(dstRow + leftBytes, srcRow, srcBytes);
    repeatPixel<pixelBytes>(srcRow + srcBytes - pixelBytes, dstRow + leftBytes + srcBytes, rightBorder(place));
  }
  const size_t dstBytes = size_t(place.dst.width) * pixelBytes;
  const int32_t last = place.top + place.src.height - 1;
  for (int32_t y = 0; y < place.top; ++y) memcpy(rowAt(dst, dstStep, y), rowAt(dst, dstStep, place.top), dstBytes);
  for (int32_t y = last + 1; y < place.dst.height; ++y) {
    memcpy(rowAt(dst, dstStep, y), rowAt(dst, dstStep, last), dstBytes);
  }
}

template <size_t pixelBytes>
static void surround(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, const Placement& place,
                     const uint8_t* pixel) {
  const size_t srcBytes = size_t(place.src.width) * pixelBytes, leftBytes = size_t(place.left) * pixelBytes;
  const int32_t end = place.top + place.src.height;
  for (int32_t y = 0; y < place.top; ++y) repeatPixel<pixelBytes>(pixel, rowAt(dst, dstStep, y), place.dst.width);
  for (int32_t y = 0; y < place.src.height; ++y) {
    uint8_t* dstRow = rowAt(dst, dstStep, place.top + ptrdiff_t(y));
    repeatPixel<pixelBytes>(pixel, dstRow, place.left);
    memcpy(dstRow + leftBytes, rowAt(src, srcStep, y), srcBytes);
    repeatPixel<pixelBytes>(pixel, dstRow + leftBytes + srcBytes, rightBorder(place));
  }
  for (int32_t y = end; y < place.dst.height; ++y) {
    repeatPixel<pixelBytes>(pixel, rowAt(dst, dstStep, y), place.dst.width);
  }
}

static QorStatus bordersStatus(const void* src, int32_t srcStep, const void* dst, int32_t dstStep,
                               const Placement& place) {
  if (anyNull(src, dst)) return qorStatusNullPtr;
  if (srcStep < 1 || dstStep < 1) return qorStatusBadStep;
  return fits(place) ? qorStatusOk : qorStatusBadSize;
}

template <int32_t channels, class T>
static QorStatus copyReplicate(const T* src, int32_t srcStep, T* dst, int32_t dstStep, const Placement& place) {
  if (const QorStatus status = bordersStatus(src, srcStep, dst, dstStep, place)) return status;
  replicate<sizeof(T) * channels>(reinterpret_cast<const uint8_t*>(src), srcStep, reinterpret_cast<uint8_t*>(dst),
                                  dstStep, place);
  return qorStatusOk;
}

// srcDst points to the first source pixel; the destination begins before it.
template <int32_t channels, class T>
static QorStatus copyReplicateInPlace(T* srcDst, int32_t step, const Placement& place) {
  if (const QorStatus status = bordersStatus(srcDst, step, srcDst, step, place)) return status;
  const ptrdiff_t before = ptrdiff_t(place.top) * step + ptrdiff_t(place.left) * channels * ptrdiff_t(sizeof(T));
  uint8_t* src = reinterpret_cast<uint8_t*>(srcDst);
  replicate<sizeof(T) * channels>(src, step, src - before, step, place);
  return qorStatusOk;
}

template <class T>
static QorStatus copyConst(const T* src, int32_t srcStep, T* dst, int32_t dstStep, const Placement& place, T value) {
  if (const QorStatus status = bordersStatus(src, srcStep, dst, dstStep, place)) return status;
  surround<sizeof(T)>(reinterpret_cast<const uint8_t*>(src), srcStep, reinterpret_cast<uint8_t*>(dst), dstStep, place,
                      reinterpret_cast<const uint8_t*>(&value));
  return qorStatusOk;
}

#define REPLICATE(T, type, layout, channels)                                                                         \
  QorStatus qoriCopyReplicateBorder_##type##_##layout##R(const T* src, int32_t srcStep, QoriSize srcRoiSize, T* dst, \
                                                         int32_t dstStep, QoriSize dstRoiSize,                       \
                                                         int32_t topBorderHeight, int32_t leftBorderWidth) {         \
    return copyReplicate<channels>(src, srcStep, dst, dstStep,                                                       \
                                   {srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth});                      \
  }                                                                                                                  \
  QorStatus qoriCopyReplicateBorder_##type##_##layout##IR(T* srcDst, int32_t srcDstStep, QoriSize srcRoiSize,        \
                                                          QoriSize dstRoiSize, int32_t topBorderHeight,              \
                                                          int32_t leftBorderWidth) {                                 \
    return copyReplicateInPlace<channels>(srcDst, srcDstStep,                                                        \
                                          {srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth});               \
  }
REPLICATE(uint8_t, 8u, C1, 1)
REPLICATE(uint8_t, 8u, C3, 3)
REPLICATE(uint8_t, 8u, C4, 4)
REPLICATE(int32_t, 32s, C1, 1)
REPLICATE(int32_t, 32s, C3, 3)
REPLICATE(int32_t, 32s, C4, 4)
#undef REPLICATE

QorStatus qoriCopyConstBorder_8u_C1R(const uint8_t* src, int32_t srcStep, QoriSize srcRoiSize, uint8_t* dst,
                                     int32_t dstStep, QoriSize dstRoiSize, int32_t topBorderHeight,
                                     int32_t leftBorderWidth, uint8_t value) {
  return copyConst(src, srcStep, dst, dstStep, {srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth}, value);
}

QorStatus qoriCopyConstBorder_16s_C1R(const int16_t* src, int32_t srcStep, QoriSize srcRoiSize, int16_t* dst,
                                      int32_t dstStep, QoriSize dstRoiSize, int32_t topBorderHeight,
                                      int32_t leftBorderWidth, int16_t value) {
  return copyConst(src, srcStep, dst, dstStep, {srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth}, value);
}

QorStatus qoriCopyConstBorder_16u_C1R(const uint16_t* src, int32_t srcStep, QoriSize srcRoiSize, uint16_t* dst,
                                      int32_t dstStep, QoriSize dstRoiSize, int32_t topBorderHeight,
                                      int32_t leftBorderWidth, uint16_t value) {
  return copyConst(src, srcStep, dst, dstStep, {srcRoiSize, dstRoiSize, topBorderHeight, leftBorderWidth}, value);
}
