// Differences of images: plain in float, held at 0 and scaled by a power of 2 in bytes.
//
// Odd: the first source is subtracted from the second. Several channels are one channel on a multiple of the width.
#include "frame/checks.h"
#include "frame/kit/images.h"
#include "frame/kit/runs.h"
#include "frame/loops.h"
#include "frame/rows.h"

static inline QoriSize widened(QoriSize size, int32_t channels) { return {size.width * channels, size.height}; }

static QorStatus subtract(const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, float* dst,
                          int32_t dstStep, QoriSize size) {
  if (anyNull(src1, src2, dst)) return qorStatusNullPtr;
  if (emptySize(size)) return qorStatusBadSize;
  const Runs runs = runsOf<float>(size, 1, src1Step, src2Step, dstStep);
  for (int32_t y = 0; y < runs.count; ++y) {
    const float* row1 = rowAt(src1, src1Step, y);
    const float* row2 = rowAt(src2, src2Step, y);
    float* dstRow = rowAt(dst, dstStep, y);
    QOR_INDEPENDENT
    for (ptrdiff_t x = 0; x < runs.length; ++x) dstRow[x] = row2[x] - row1[x];
  }
  return qorStatusOk;
}

namespace {

struct Unscaled {
  uint8_t operator()(uint8_t d) const { return d; }
};

// To nearest, ties to even: bit `shift` of the difference tells whether half is to be rounded up.
struct ShiftedRight {
  int32_t shift;

  uint8_t operator()(uint8_t d) const {
    const uint16_t belowHalf = uint16_t((1 << (shift - 1)) - 1);
    const uint16_t sum = uint16_t(d + belowHalf + ((d >> shift) & 1));
    return uint8_t(sum >> shift);
  }
};

struct ShiftedLeft {
  uint16_t factor;

  uint8_t operator()(uint8_t d) const {
    const uint16_t product = uint16_t(d * factor);
    return uint8_t(product < 255 ? product : 255);
  }
};

}  // namespace

template <class Scaled>
static void subtractScaled(const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, uint8_t* dst,
                           int32_t dstStep, QoriSize size, Scaled scaled) {
  const Runs runs = runsOf<uint8_t>(size, 1, src1Step, src2Step, dstStep);
  for (int32_t y = 0; y < runs.count; ++y) {
    const uint8_t* row1 = rowAt(src1, src1Step, y);
    const uint8_t* row2 = rowAt(src2, src2Step, y);
    uint8_t* dstRow = rowAt(dst, dstStep, y);
    QOR_INDEPENDENT
    for (ptrdiff_t x = 0; x < runs.length; ++x) {
      const uint8_t greater = row2[x] > row1[x] ? row2[x] : row1[x];
      dstRow[x] = scaled(uint8_t(greater - row1[x]));
    }
  }
}

static QorStatus subtract(const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, uint8_t* dst,
                          int32_t dstStep, QoriSize size, int32_t scaleFactor) {
  if (anyNull(src1, src2, dst)) return qorStatusNullPtr;
  if (emptySize(size)) return qorStatusBadSize;
  if (scaleFactor > 8) return qoriSet_8u_C1R(0, dst, dstStep, size);
  if (scaleFactor > 0) {
    subtractScaled(src1, src1Step, src2, src2Step, dst, dstStep, size, ShiftedRight{scaleFactor});
  } else if (scaleFactor == 0) {
    subtractScaled(src1, src1Step, src2, src2Step, dst, dstStep, size, Unscaled{});
  } else {
    // A factor of 2^8 already drives every difference but 0 to 255.
    const uint16_t factor = uint16_t(1 << (scaleFactor < -8 ? 8 : -scaleFactor));
    subtractScaled(src1, src1Step, src2, src2Step, dst, dstStep, size, ShiftedLeft{factor});
  }
  return qorStatusOk;
}

#define SUBTRACT_32F(layout, channels)                                                                        \
  QorStatus qoriSub_32f_##layout##R(const float* src1, int32_t src1Step, const float* src2, int32_t src2Step, \
                                    float* dst, int32_t dstStep, QoriSize roiSize) {                          \
    return subtract(src1, src1Step, src2, src2Step, dst, dstStep, widened(roiSize, channels));                \
  }                                                                                                           \
  QorStatus qoriSub_32f_##layout##IR(const float* src, int32_t srcStep, float* srcDst, int32_t srcDstStep,    \
                                     QoriSize roiSize) {                                                      \
    return subtract(src, srcStep, srcDst, srcDstStep, srcDst, srcDstStep, widened(roiSize, channels));        \
  }
SUBTRACT_32F(C1, 1)
SUBTRACT_32F(C3, 3)
SUBTRACT_32F(C4, 4)
#undef SUBTRACT_32F

#define SUBTRACT_8U(layout, channels)                                                                               \
  QorStatus qoriSub_8u_##layout##RSfs(const uint8_t* src1, int32_t src1Step, const uint8_t* src2, int32_t src2Step, \
                                      uint8_t* dst, int32_t dstStep, QoriSize roiSize, int32_t scaleFactor) {       \
    return subtract(src1, src1Step, src2, src2Step, dst, dstStep, widened(roiSize, channels), scaleFactor);         \
  }                                                                                                                 \
  QorStatus qoriSub_8u_##layout##IRSfs(const uint8_t* src, int32_t srcStep, uint8_t* srcDst, int32_t srcDstStep,    \
                                       QoriSize roiSize, int32_t scaleFactor) {                                     \
    return subtract(src, srcStep, srcDst, srcDstStep, srcDst, srcDstStep, widened(roiSize, channels), scaleFactor); \
  }
SUBTRACT_8U(C1, 1)
SUBTRACT_8U(C3, 3)
SUBTRACT_8U(C4, 4)
#undef SUBTRACT_8U
