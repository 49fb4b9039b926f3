// Canny edge detector on two derivative images.
//
// Each row is thinned as soon as the magnitudes of the next one are known, and traced at once: what a pixel's edges in
// the row above and in its own row can join, they join, as operations on whole words of bits. Only candidates that an
// edge reaches from below, or from the next word on the right, go on the stack, from which the rest is flooded.
//
// Odd: the tie-break among equal magnitudes is one-sided, the gaps of dst are cleared with it, and a NaN passes the
// tests of the thresholds.
#include "feature/canny_rows.h"
#include "frame/frame.h"

// From this width or height on, a position does not fit two 16-bit numbers.
static constexpr int32_t wideStackFrom = 65533;

static bool needsWideStack(QoriSize size) { return size.width >= wideStackFrom || size.height >= wideStackFrom; }

// ---- The stack of positions: pairs of row and column, written in one go

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

template <class Element>
static inline void pop(Element*& top, int32_t& row, int32_t& column) {
  Element pair[2];
  top -= 2;
  memcpy(pair, top, sizeof pair);
  row = pair[0];
  column = pair[1];
}

// ---- The buffer

struct Scratch {
  uint8_t* edgeMap;    // 128 where a candidate is no edge yet, else 0; with a frame of one pixel that is always 0
  uint8_t* magRing;    // room for four rows, of which three are used
  uint8_t* edgeStack;  // room for a pair a pixel: no pixel is pushed twice
  uint64_t* rowBits;   // four rows of words
};

// The reported size leaves at least 8 * (width + height) + 70 bytes behind the stack, wherever the buffer starts. That
// is enough for the row bits, which need width / 2 + 32 and 7 to align them.
template <class Element>
static Scratch layOut(uint8_t* buffer, QoriSize size) {
  const ptrdiff_t columns = ptrdiff_t(size.width) + 2, rows = ptrdiff_t(size.height) + 2;
  const ptrdiff_t pixelCount = ptrdiff_t(size.width) * size.height;
  Scratch scratch;
  scratch.edgeMap = alignUp<uint8_t>(buffer, 32);
  scratch.magRing = alignUp<uint8_t>(scratch.edgeMap + rows * columns, 32) + 12;
  scratch.edgeStack = scratch.magRing + 4 * columns * 4;
  scratch.rowBits = alignUp<uint64_t>(scratch.edgeStack + pixelCount * ptrdiff_t(2 * sizeof(Element)), 8);
  return scratch;
}

// ---- Tracing

// A row of pixels, 64 a word.
struct RowBits {
  uint64_t* edges;
  uint64_t* weak;  // candidates that are no edges yet
};

template <class Element>
struct Tracing {
  uint8_t* edgeMap;
  ptrdiff_t mapStep;
  uint8_t* dst;
  int32_t dstStep;
  int32_t width;
  int32_t words;     // in a row of bits
  RowBits previous;  // the row above
  RowBits current;
  Element* top;
};

// Makes an edge of a candidate whose neighbours are to be looked at later.
template <class Element>
static inline void join(Tracing<Element>& t, int32_t row, int32_t column) {
  rowAt(t.edgeMap, t.mapStep, row + 1)[column + 1] = 0;
  rowAt(t.dst, t.dstStep, row)[column] = 255;
  push(t.top, row, column);
}

// Word k of a row, spread by one pixel to both sides.
static inline uint64_t spread(const uint64_t* row, int32_t k, int32_t words) {
  uint64_t wide = row[k] | row[k] << 1 | row[k] >> 1;
  if (k > 0) wide |= row[k - 1] >> 63;
  if (k + 1 < words) wide |= row[k + 1] << 63;
  return wide;
}

static inline void writeBlock(uint64_t bits, uint8_t value, uint8_t* p, int32_t count) {
  if (count >= blockSize) {
    writeBits(bits, value, p);
  } else {
    uint8_t bytes[blockSize];
    writeBits(bits, value, bytes);
    memcpy(p, bytes, count);
  }
}

// Takes up word k of a row. Its edges are the strong pixels and all candidates that have a path to these, or to edges
// of the row above or of the word on the left, inside the word.
template <class Element>
static inline void traceBlock(Tracing<Element>& t, int32_t row, int32_t k, Survivors found) {
  if (found.all == 0) {
    t.current.edges[k] = 0;
    t.current.weak[k] = 0;
    return;
  }
  uint64_t edges = found.strong | (found.all & spread(t.previous.edges, k, t.words));
  if (k > 0) edges |= found.all & t.current.edges[k - 1] >> 63;
  uint64_t weak = found.all & ~edges;
  while (const uint64_t joined = weak & (edges << 1 | edges >> 1)) {
    edges |= joined;
    weak &= ~joined;
  }
  t.current.edges[k] = edges;
  t.current.weak[k] = weak;
  const int32_t x = k * blockSize;
  if (edges) writeBlock(edges, 255, rowAt(t.dst, t.dstStep, row) + x, t.width - x);
  if (weak) writeBlock(weak, 128, rowAt(t.edgeMap, t.mapStep, row + 1) + 1 + x, t.width - x);
  if (k > 0 && (edges & t.current.weak[k - 1] >> 63)) {
    t.current.weak[k - 1] ^= uint64_t(1) << 63;
    t.current.edges[k - 1] |= uint64_t(1) << 63;
    join(t, row, x - 1);
  }
}

// Joins what the finished row reaches in the one above.
template <class Element>
static inline void finishRow(Tracing<Element>& t, int32_t row) {
  for (int32_t k = 0; k < t.words; ++k) {
    if (t.previous.weak[k] == 0) continue;
    uint64_t joined = t.previous.weak[k] & spread(t.current.edges, k, t.words);
    for (; joined; joined &= joined - 1) join(t, row - 1, k * blockSize + __builtin_ctzll(joined));
  }
  const RowBits oldest = t.previous;
  t.previous = t.current;
  t.current = oldest;
}

// Makes edges of all candidates in the map to which a path of candidates leads from a position on the stack.
template <class Element>
static void ownHysteresisThresholding(uint8_t* edgeMap, int32_t width, Element* edgeStack, ptrdiff_t entries,
                                      uint8_t* dst, int32_t dstStep) {
  const ptrdiff_t mapStep = ptrdiff_t(width) + 2;
  Element* top = edgeStack + entries;
  while (top != edgeStack) {
    int32_t row, column;
    pop(top, row, column);
    uint8_t* neighbours = rowAt(edgeMap, mapStep, row) + column;
    for (int32_t y = row - 1; y <= row + 1; ++y, neighbours += mapStep) {
      // Three neighbours, and a byte that is left out; behind the last one of the map is the ring.
      uint32_t candidates;
      memcpy(&candidates, neighbours, sizeof candidates);
      for (candidates &= 0x808080; candidates; candidates &= candidates - 1) {
        const int32_t i = __builtin_ctz(candidates) / 8;
        const int32_t x = column - 1 + i;
        neighbours[i] = 0;
        rowAt(dst, dstStep, y)[x] = 255;
        push(top, y, x);
      }
    }
  }
}

// ---- The detectors

template <class T>
struct Gradients {
  const T* dx;
  int32_t dxStep;
  const T* dy;
  int32_t dyStep;
};

template <class T, class Magnitude, class Low>
static inline void magnitudesOfRow(const Gradients<T>& src, int32_t y, Magnitude* magnitudes, int32_t width, Low low) {
  magnitudeRow(rowAt(src.dx, src.dxStep, y), rowAt(src.dy, src.dyStep, y), magnitudes, width, low);
}

template <class Element, class Magnitude, class T, class Low>
static void detectWith(const Gradients<T>& src, uint8_t* dst, int32_t dstStep, QoriSize roiSize, Low low,
                       Magnitude high, uint8_t* buffer) {
  const int32_t width = roiSize.width, height = roiSize.height;
  const ptrdiff_t columns = ptrdiff_t(width) + 2;
  const Scratch scratch = layOut<Element>(buffer, roiSize);
  Magnitude* above = reinterpret_cast<Magnitude*>(scratch.magRing) + 1;
  Magnitude* at = above + columns;
  Magnitude* below = at + columns;
  Element* const edgeStack = reinterpret_cast<Element*>(scratch.edgeStack);
  const int32_t words = (width - 1) / blockSize + 1;
  uint64_t* const bits = scratch.rowBits;
  Tracing<Element> tracing = {scratch.edgeMap,      columns, dst,      dstStep, width, words,
                              {bits, bits + words}, {},      edgeStack};
  tracing.current = {bits + ptrdiff_t(words) * 2, bits + ptrdiff_t(words) * 3};

  memset(scratch.edgeMap, 0, columns * (ptrdiff_t(height) + 2));
  memset(above - 1, 0, 3 * columns * sizeof *above);
  memset(bits, 0, 2 * words * sizeof *bits);
  magnitudesOfRow(src, 0, at, width, low);
  for (int32_t y = 0; y < height; ++y) {
    if (y + 1 < height) {
      magnitudesOfRow(src, y + 1, below, width, low);
    } else {
      memset(below, 0, width * sizeof *below);
    }
    const T* const dx = rowAt(src.dx, src.dxStep, y);
    const T* const dy = rowAt(src.dy, src.dyStep, y);
    for (int32_t k = 0; k < words; ++k) {
      traceBlock(tracing, y, k, thinAt(k * blockSize, dx, dy, above, at, below, high, width));
    }
    finishRow(tracing, y);
    Magnitude* const oldest = above;
    above = at;
    at = below;
    below = oldest;
  }
  ownHysteresisThresholding(scratch.edgeMap, width, edgeStack, tracing.top - edgeStack, dst, dstStep);
}

template <class Magnitude, class T, class Low>
static void detect(const Gradients<T>& src, uint8_t* dst, int32_t dstStep, QoriSize roiSize, Low low, Magnitude high,
                   uint8_t* buffer) {
  if (needsWideStack(roiSize)) {
    detectWith<int32_t>(src, dst, dstStep, roiSize, low, high, buffer);
  } else {
    detectWith<uint16_t>(src, dst, dstStep, roiSize, low, high, buffer);
  }
}

template <class T>
static QorStatus check(const Gradients<T>& src, const uint8_t* dst, int32_t dstStep, QoriSize roiSize, float lowThresh,
                       float highThresh, const uint8_t* buffer) {
  if (anyNull(src.dx, src.dy, dst, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T>(src.dxStep, roiSize) || shortStep<T>(src.dyStep, roiSize)) return qorStatusBadStep;
  if (shortStep<uint8_t>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(src.dxStep | src.dyStep)) return qorStatusBadStepAlign;
  // By contract these are comparisons, which a NaN does not fail.
  if (lowThresh < 0 || lowThresh > highThresh) return qorStatusBadArg;
  return qorStatusOk;
}

// One run of height * dstStep bytes, as the contract has it. Where that is more than an int32_t counts, the rows alone:
// nobody could have asked for the run.
static void clear(uint8_t* dst, int32_t dstStep, QoriSize roiSize) {
  const int64_t run = int64_t(roiSize.height) * dstStep;
  if (run <= INT32_MAX) {
    memset(dst, 0, run);
  } else {
    for (int32_t y = 0; y < roiSize.height; ++y) memset(rowAt(dst, dstStep, y), 0, roiSize.width);
  }
}

QorStatus qoriCannyGetSize(QoriSize roiSize, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  // The product wraps in 32 bits and keeps its sign; the sum is cut to 32 bits.
  const int64_t framePixels = (roiSize.width + 2) * (roiSize.height + 2);
  const int64_t bytesPerPixel = needsWideStack(roiSize) ? 9 : 5;
  *bufferSize = int32_t(framePixels * bytesPerPixel + int64_t(roiSize.width) * 16 + 160);
  return qorStatusOk;
}

QorStatus qoriCanny_16s8u_C1R(const int16_t* srcDx, int32_t srcDxStep, const int16_t* srcDy, int32_t srcDyStep,
                              uint8_t* dst, int32_t dstStep, QoriSize roiSize, float lowThresh, float highThresh,
                              uint8_t* buffer) {
  const Gradients<int16_t> src = {srcDx, srcDxStep, srcDy, srcDyStep};
  const QorStatus status = check(src, dst, dstStep, roiSize, lowThresh, highThresh, buffer);
  if (status != qorStatusOk) return status;
  clear(dst, dstStep, roiSize);
  // No magnitude is above 65536, none is above a NaN, and without a strong pixel there are no edges.
  if (!(highThresh < 65536)) return qorStatusOk;
  const int32_t high = highThresh > 0 ? int32_t(highThresh) : 0;
  if (lowThresh >= 1) {
    detect(src, dst, dstStep, roiSize, int32_t(lowThresh), uint16_t(high - 1), buffer);
  } else {
    // Below 1, or a NaN, which the conversion to an integer makes less than any magnitude.
    detect(src, dst, dstStep, roiSize, 0, high, buffer);
  }
  return qorStatusOk;
}

QorStatus qoriCanny_32f8u_C1R(const float* srcDx, int32_t srcDxStep, const float* srcDy, int32_t srcDyStep,
                              uint8_t* dst, int32_t dstStep, QoriSize roiSize, float lowThresh, float highThresh,
                              uint8_t* buffer) {
  const Gradients<float> src = {srcDx, srcDxStep, srcDy, srcDyStep};
  const QorStatus status = check(src, dst, dstStep, roiSize, lowThresh, highThresh, buffer);
  if (status != qorStatusOk) return status;
  clear(dst, dstStep, roiSize);
  // Nothing is above a NaN.
  if (!(lowThresh <= highThresh)) return qorStatusOk;
  const float positiveHigh = __builtin_fabsf(highThresh);  // -0.0 is the only one with a sign
  int32_t high;
  memcpy(&high, &positiveHigh, sizeof high);
  detect(src, dst, dstStep, roiSize, lowThresh, high, buffer);
  return qorStatusOk;
}
