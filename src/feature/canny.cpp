// Canny edge detector on two derivative images.
//
// Odd: the tie-break among equal magnitudes is one-sided (along the axes the first pixel of a plateau stays, along the
// diagonals none does), gap bytes of dst are cleared too, and a NaN passes the tests of the thresholds.
#include "feature/canny_rows.h"
#include "frame/frame.h"

// Rows of magnitudes that are kept: the row being thinned and its neighbours, and one more to lay out the buffer by.
static constexpr int32_t ringRows = 4;

// Where both are smaller, a position fits two 16-bit numbers.
static constexpr int32_t wideStackFrom = 65533;

static bool needsWideStack(QoriSize size) { return size.width >= wideStackFrom || size.height >= wideStackFrom; }

// ---- The stack: pairs of row and column, in one word each

static inline void push(uint16_t*& top, int32_t row, int32_t column) {
  const uint32_t pair = uint32_t(row) | uint32_t(column) << 16;
  memcpy(top, &pair, sizeof pair);
  top += 2;
}

static inline void push(int32_t*& top, int32_t row, int32_t column) {
  const uint64_t pair = uint64_t(row) | uint64_t(column) << 32;
  memcpy(top, &pair, sizeof pair);
  top += 2;
}

// Adds all candidates to the edges in dst that an 8-connected path of candidates joins to one on the stack. edgeMap
// holds the candidates that are no edges yet, and loses those that become edges.
template <class Element>
static void ownHysteresisThresholding(uint8_t* edgeMap, int32_t width, Element* edgeStack, ptrdiff_t entries,
                                      uint8_t* dst, int32_t dstStep) {
  const ptrdiff_t mapStep = ptrdiff_t(width) + 2;
  Element* top = edgeStack + entries;
  while (top > edgeStack) {
    top -= 2;
    const int32_t row = top[0], column = top[1];
    uint8_t* corner = edgeMap + mapStep * row + column;  // the upper left neighbour
    for (int32_t dy = -1; dy <= 1; ++dy, corner += mapStep) {
      // Three neighbours, and one byte more that is left out.
      uint32_t three;
      memcpy(&three, corner, sizeof three);
      three &= 0x808080;
      while (three) {
        const int32_t dx = __builtin_ctz(three) >> 3;
        three &= three - 1;
        corner[dx] = 0;
        rowAt(dst, dstStep, row + dy)[column + dx - 1] = 255;
        push(top, row + dy, column + dx - 1);
      }
    }
  }
}

// One row of the image as bits, a block of pixels a word.
struct RowBits {
  uint64_t* edges;  // known to be edges
  uint64_t* weak;   // other candidates
};

// What the thinning of a row needs, and what it leaves: candidates in the map, edges in dst, and on the stack the edges
// whose neighbours have to be looked at again.
template <class Element>
struct Tracing {
  uint8_t* edgeMap;
  ptrdiff_t mapStep;
  uint8_t* dst;
  int32_t dstStep;
  int32_t words;  // a row
  RowBits previous, current;
  Element* top;
};

template <class Element>
static inline void takeOver(Tracing<Element>& t, int32_t row, int32_t column) {
  t.edgeMap[t.mapStep * (row + 1) + column + 1] = 0;
  rowAt(t.dst, t.dstStep, row)[column] = 255;
  push(t.top, row, column);
}

// The pixels of a row at which `bits` has one in or next to their column.
static inline uint64_t spread(const uint64_t* bits, int32_t k, int32_t words) {
  uint64_t wide = bits[k] | bits[k] << 1 | bits[k] >> 1;
  if (k > 0) wide |= bits[k - 1] >> 63;
  if (k + 1 < words) wide |= bits[k + 1] << 63;
  return wide;
}

static inline void writeBytes(uint64_t bits, uint8_t value, uint8_t* p, int32_t count) {
  if (count >= blockSize) {
    expand(bits, value, p);
  } else {
    uint8_t bytes[blockSize];
    expand(bits, value, bytes);
    memcpy(p, bytes, count);
  }
}

template <class Element>
static inline void traceBlock(Tracing<Element>& t, int32_t row, int32_t k, int32_t width, Survivors survivors) {
  if (!survivors.all) {
    t.current.edges[k] = t.current.weak[k] = 0;
    return;
  }
  const int32_t x = k * blockSize;
  uint64_t edges = survivors.strong | (survivors.all & spread(t.previous.edges, k, t.words));
  if (k > 0) edges |= survivors.all & t.current.edges[k - 1] >> 63;
  uint64_t weak = survivors.all & ~edges;
  while (const uint64_t joined = weak & (edges << 1 | edges >> 1)) {
    edges |= joined;
    weak &= ~joined;
  }
  t.current.edges[k] = edges;
  t.current.weak[k] = weak;
  if (edges) writeBytes(edges, 255, rowAt(t.dst, t.dstStep, row) + x, width - x);
  if (weak) writeBytes(weak, 128, t.edgeMap + t.mapStep * (row + 1) + 1 + x, width - x);
  if (k > 0 && (edges & t.current.weak[k - 1] >> 63)) {
    t.current.edges[k - 1] |= uint64_t(1) << 63;
    t.current.weak[k - 1] &= ~(uint64_t(1) << 63);
    takeOver(t, row, x - 1);
  }
}

template <class Element>
static inline void finishRow(Tracing<Element>& t, int32_t row) {
  for (int32_t k = 0; k < t.words; ++k) {
    if (!t.previous.weak[k]) continue;
    uint64_t joined = t.previous.weak[k] & spread(t.current.edges, k, t.words);
    for (; joined; joined &= joined - 1) takeOver(t, row - 1, k * blockSize + __builtin_ctzll(joined));
  }
  std::swap(t.previous, t.current);
}

template <class Gradient, class Magnitude>
static inline Survivors thinAt(const Gradient* dx, const Gradient* dy, const Magnitude* above, const Magnitude* at,
                        const Magnitude* below, Magnitude high, int32_t width, int32_t x) {
  if (x <= width - blockSize) {
    if (!anyCandidate(at + x, blockSize * int32_t(sizeof *at))) return {0, 0};
    return thinBlock(dx + x, dy + x, above + x, at + x, below + x, high);
  }
  if (width > blockSize) {
    // The last full block once more, of which only the end is new.
    const int32_t last = width - blockSize;
    Survivors survivors = thinBlock(dx + last, dy + last, above + last, at + last, below + last, high);
    survivors.all >>= x - last;
    survivors.strong >>= x - last;
    return survivors;
  }
  // A narrow image is continued by zeros to a block.
  Gradient blockDx[blockSize] = {}, blockDy[blockSize] = {};
  Magnitude rows[3][blockSize + 2] = {};
  memcpy(blockDx, dx, width * sizeof *dx);
  memcpy(blockDy, dy, width * sizeof *dy);
  memcpy(rows[0], above - 1, (width + 2) * sizeof *above);
  memcpy(rows[1], at - 1, (width + 2) * sizeof *at);
  memcpy(rows[2], below - 1, (width + 2) * sizeof *below);
  return thinBlock(blockDx, blockDy, rows[0] + 1, rows[1] + 1, rows[2] + 1, high);
}

// The parts of the caller's buffer.
struct Scratch {
  uint8_t* edgeMap;
  uint8_t* magRing;
  uint8_t* edgeStack;
};

static Scratch layOut(uint8_t* buffer, QoriSize size) {
  const ptrdiff_t columns = ptrdiff_t(size.width) + 2, rows = ptrdiff_t(size.height) + 2;
  Scratch scratch;
  scratch.edgeMap = alignUp<uint8_t>(buffer, 32);
  scratch.magRing = alignUp<uint8_t>(scratch.edgeMap + rows * columns, 32) + 12;
  scratch.edgeStack = scratch.magRing + ringRows * columns * ptrdiff_t(sizeof(int32_t));
  return scratch;
}

template <class Element, class Magnitude, class Gradient, class Low>
static void detect(const Gradient* srcDx, int32_t srcDxStep, const Gradient* srcDy, int32_t srcDyStep, uint8_t* dst,
                   int32_t dstStep, QoriSize roiSize, Low low, Magnitude high, uint8_t* buffer) {
  const int32_t width = roiSize.width, height = roiSize.height;
  const ptrdiff_t columns = ptrdiff_t(width) + 2;
  const Scratch scratch = layOut(buffer, roiSize);
  memset(scratch.edgeMap, 0, columns * (ptrdiff_t(height) + 2));
  Magnitude* above = reinterpret_cast<Magnitude*>(scratch.magRing) + 1;
  Magnitude* at = above + columns;
  Magnitude* below = at + columns;
  memset(above - 1, 0, 3 * columns * sizeof *above);
  Element* const stack = reinterpret_cast<Element*>(scratch.edgeStack);
  const int32_t words = (width - 1) / blockSize + 1;
  uint64_t* const bits = alignUp<uint64_t>(stack + ptrdiff_t(width) * height * 2, 8);
  Tracing<Element> tracing = {scratch.edgeMap, columns, dst, dstStep, words, {bits, bits + words}, {bits + words * 2, bits + words * 3}, stack};
  memset(bits, 0, words * 2 * sizeof *bits);
  magnitudeRow(srcDx, srcDy, at, width, low);
  for (int32_t y = 0; y < height; ++y) {
    if (y + 1 < height) {
      magnitudeRow(rowAt(srcDx, srcDxStep, y + 1), rowAt(srcDy, srcDyStep, y + 1), below, width, low);
    } else {
      memset(below, 0, width * sizeof *below);
    }
    for (int32_t k = 0; k < words; ++k) {
      traceBlock(tracing, y, k, width, thinAt(rowAt(srcDx, srcDxStep, y), rowAt(srcDy, srcDyStep, y), above, at, below, high, width, k * blockSize));
    }
    finishRow(tracing, y);
    Magnitude* const oldest = above;
    above = at;
    at = below;
    below = oldest;
  }
  ownHysteresisThresholding(scratch.edgeMap, width, stack, tracing.top - stack, dst, dstStep);
}

static void clear(uint8_t* dst, int32_t dstStep, QoriSize size) {
  const int64_t run = int64_t(size.height) * dstStep;
  if (run <= INT32_MAX) {
    memset(dst, 0, run);
  } else {
    for (int32_t y = 0; y < size.height; ++y) memset(rowAt(dst, dstStep, y), 0, size.width);
  }
}

template <class Magnitude, class Gradient, class Low>
static void detectWithStack(const Gradient* srcDx, int32_t srcDxStep, const Gradient* srcDy, int32_t srcDyStep, uint8_t* dst,
                   int32_t dstStep, QoriSize roiSize, Low low, Magnitude high, uint8_t* buffer) {
  if (needsWideStack(roiSize)) {
    detect<int32_t>(srcDx, srcDxStep, srcDy, srcDyStep, dst, dstStep, roiSize, low, high, buffer);
  } else {
    detect<uint16_t>(srcDx, srcDxStep, srcDy, srcDyStep, dst, dstStep, roiSize, low, high, buffer);
  }
}

template <class Gradient>
static QorStatus check(const Gradient* srcDx, int32_t srcDxStep, const Gradient* srcDy, int32_t srcDyStep, const uint8_t* dst,
                   int32_t dstStep, QoriSize roiSize, float lowThresh, float highThresh, const uint8_t* buffer) {
  if (anyNull(srcDx, srcDy, dst, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<Gradient>(srcDxStep, roiSize) || shortStep<Gradient>(srcDyStep, roiSize) || shortStep<uint8_t>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<Gradient>(srcDxStep | srcDyStep)) return qorStatusBadStepAlign;
  if (lowThresh < 0 || lowThresh > highThresh) return qorStatusBadArg;
  return qorStatusOk;
}

QorStatus qoriCannyGetSize(QoriSize roiSize, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  const int64_t framed = (roiSize.width + 2) * (roiSize.height + 2);
  *bufferSize = int32_t(framed * (needsWideStack(roiSize) ? 9 : 5) + int64_t(roiSize.width) * 16 + 160);
  return qorStatusOk;
}

QorStatus qoriCanny_16s8u_C1R(const int16_t* srcDx, int32_t srcDxStep, const int16_t* srcDy, int32_t srcDyStep,
                              uint8_t* dst, int32_t dstStep, QoriSize roiSize, float lowThresh, float highThresh,
                              uint8_t* buffer) {
  const QorStatus status =
      check(srcDx, srcDxStep, srcDy, srcDyStep, dst, dstStep, roiSize, lowThresh, highThresh, buffer);
  if (status != qorStatusOk) return status;
  clear(dst, dstStep, roiSize);
  // The greatest magnitude is 65536. No edge without a strong pixel.
  if (!(highThresh < 65536)) return qorStatusOk;
  const int32_t high = highThresh > 0 ? int32_t(highThresh) : 0;
  if (lowThresh >= 1) {
    detectWithStack(srcDx, srcDxStep, srcDy, srcDyStep, dst, dstStep, roiSize, int32_t(lowThresh), uint16_t(high - 1),
                    buffer);
  } else {
    // A NaN converts to the least integer.
    detectWithStack(srcDx, srcDxStep, srcDy, srcDyStep, dst, dstStep, roiSize, 0, high, buffer);
  }
  return qorStatusOk;
}

QorStatus qoriCanny_32f8u_C1R(const float* srcDx, int32_t srcDxStep, const float* srcDy, int32_t srcDyStep,
                              uint8_t* dst, int32_t dstStep, QoriSize roiSize, float lowThresh, float highThresh,
                              uint8_t* buffer) {
  const QorStatus status =
      check(srcDx, srcDxStep, srcDy, srcDyStep, dst, dstStep, roiSize, lowThresh, highThresh, buffer);
  if (status != qorStatusOk) return status;
  clear(dst, dstStep, roiSize);
  if (!(lowThresh <= highThresh)) return qorStatusOk;
  int32_t high;
  memcpy(&high, &highThresh, sizeof high);
  detectWithStack(srcDx, srcDxStep, srcDy, srcDyStep, dst, dstStep, roiSize, lowThresh, high & INT32_MAX, buffer);
  return qorStatusOk;
}
