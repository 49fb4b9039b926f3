// Exact Euclidean distance: squared distances along the columns, the lower envelope of the parabolas that they give
// along each row, and the root.
//
// All columns go together, row by row: the distance to the nearest 0 below, then the lesser of that and of one more
// than in the row above. A column without any 0 stands at a far value. The plane of squares is the destination itself
// for floats, and part of the buffer otherwise.
//
// Odd: in the 16u form squares are integers of 32 bits, which wrap from 46341 on.
#include <string.h>

#include <algorithm>
#include <limits>
#include <type_traits>

#include "frame/frame.h"
#include "frame/kit/vectors.h"

namespace {

constexpr float farthest = std::numeric_limits<float>::max();

template <class T>
constexpr T farValue = std::numeric_limits<T>::max();

// One thread's lower envelope: parabola k, at column parabolas[k], holds from breakPoints[k] to breakPoints[k + 1]. Its
// value at its column and the square of the column lie beside it.
struct Envelope {
  int32_t* parabolas;
  float* values;
  float* squares;
  float* breakPoints;
};

}  // namespace

static int32_t roundedUp(int32_t value, int32_t multiple) { return (value + multiple - 1) & -multiple; }

static inline int32_t squareOf(int32_t distance, int32_t) { return distance * distance; }
static inline float squareOf(int32_t distance, float) { return float(distance) * float(distance); }

// Distances share the words of the plane with the squares that replace them.
static inline int32_t* distancesIn(int32_t* row) { return row; }
static inline int32_t* distancesIn(float* row) { return reinterpret_cast<int32_t*>(row); }

static inline int32_t loaded(const int32_t* p) {
  int32_t value;
  memcpy(&value, p, sizeof value);
  return value;
}

template <class P>
static void squareRow(P* row, int32_t width, int32_t height) {
  QOR_INDEPENDENT
  for (ptrdiff_t x = 0; x < width; ++x) {
    const int32_t distance = loaded(distancesIn(row) + x);
    const P square = distance < height ? squareOf(distance, P()) : farValue<P>;
    memcpy(row + x, &square, sizeof square);
  }
}

template <class P>
static void columnStage(const uint8_t* src, int32_t srcStep, P* plane, ptrdiff_t planeStep, QoriSize size) {
  const auto store = [](int32_t* to, int32_t value) { memcpy(to, &value, sizeof value); };
  for (int32_t y = size.height - 1; y >= 0; --y) {
    const uint8_t* const srcRow = rowAt(src, srcStep, y);
    int32_t* const row = distancesIn(rowAt(plane, planeStep, y));
    const int32_t* const below = distancesIn(rowAt(plane, planeStep, y + 1));
    if (y == size.height - 1) {
      QOR_INDEPENDENT
      for (ptrdiff_t x = 0; x < size.width; ++x) store(row + x, srcRow[x] ? size.height : 0);
    } else {
      QOR_INDEPENDENT
      for (ptrdiff_t x = 0; x < size.width; ++x) store(row + x, srcRow[x] ? loaded(below + x) + 1 : 0);
    }
  }
  for (int32_t y = 0; y < size.height; ++y) {
    P* const row = rowAt(plane, planeStep, y);
    if (y == 0) continue;
    P* const above = rowAt(plane, planeStep, y - 1);
    QOR_INDEPENDENT
    for (ptrdiff_t x = 0; x < size.width; ++x) {
      const int32_t down = loaded(distancesIn(above) + x) + 1, up = loaded(distancesIn(row) + x);
      store(distancesIn(row) + x, down < up ? down : up);
    }
    squareRow(above, size.width, size.height);
  }
  squareRow(rowAt(plane, planeStep, size.height - 1), size.width, size.height);
}

template <class P>
static inline P asElement(float square) {
  // The far value as a float lies beyond the largest integer.
  if constexpr (std::is_same_v<P, int32_t>) return square < 2147483648.0f ? int32_t(square) : farValue<int32_t>;
  return P(square);
}

// The squared distances of a row, in place.
template <class P>
static void rowStage(P* row, int32_t width, const float* inverseTable, const Envelope& envelope) {
  const auto square = [](int32_t distance) { return float(squareOf(distance, P())); };
  ptrdiff_t k = 0;
  // The last parabola.
  int32_t p = 0;
  float valueAtP = float(row[0]), squareOfP = 0, left = -farthest;
  for (int32_t q = 1; q < width; ++q) {
    const float valueAtQ = float(row[q]), squareOfQ = square(q), s0 = valueAtQ + squareOfQ;
    float s = (s0 - valueAtP - squareOfP) * inverseTable[q - p];
    // Half of the largest float is the most that s can be below 0, so the first parabola stays.
    while (!(s > left) && k > 0) {
      --k;
      p = envelope.parabolas[k];
      valueAtP = envelope.values[k];
      squareOfP = envelope.squares[k];
      left = envelope.breakPoints[k];
      s = (s0 - valueAtP - squareOfP) * inverseTable[q - p];
    }
    envelope.parabolas[k] = p;
    envelope.values[k] = valueAtP;
    envelope.squares[k] = squareOfP;
    envelope.breakPoints[k] = left;
    ++k;
    p = q;
    valueAtP = valueAtQ;
    squareOfP = squareOfQ;
    left = s;
  }
  envelope.parabolas[k] = p;
  envelope.values[k] = valueAtP;
  envelope.breakPoints[k] = left;
  envelope.breakPoints[k + 1] = farthest;

  k = 0;
  for (int32_t x = 0; x < width; ++k) {
    const float right = envelope.breakPoints[k + 1], value = envelope.values[k];
    const int32_t column = envelope.parabolas[k];
    // The first pixel that lies beyond, as floats.
    int32_t end = right < 0 ? 0 : right < float(width) ? int32_t(right) : width;
    end = std::max(x, std::min(end, width));
    while (end < width && !(float(end) > right)) ++end;
    while (end > x && float(end - 1) > right) --end;
    const auto result = [=](int32_t at) { return asElement<P>(square(at - column) + value); };
    // What a whole block writes too much is written again.
    constexpr int32_t block = 8;
    for (; x < end && x <= width - block; x += block) {
      QOR_INDEPENDENT
      for (ptrdiff_t i = 0; i < block; ++i) row[x + i] = result(x + int32_t(i));
    }
    for (; x < end; ++x) row[x] = result(x);
    x = end;
  }
}

// Where squares and their sums are exact as floats, and where an envelope's break points are too exact to fall on the
// wrong side of a pixel, the envelope gives the least sum of a square and a value of the row, so that any other way to
// it is as good: break points of parabolas d apart lie 1 / 2d or more from every pixel that is not a tie, and their
// error is below width / 2^23.
static bool exactAsFloats(QoriSize size) { return size.width <= 2048 && size.height <= 2896; }

// The same by comparing each pixel with its neighbours further and further away, until no square can be less. Leaves
// the row as it was and gives false where that takes too long. `room` is for width + 2 * reach floats.
constexpr int32_t nearBlock = 64, reach = 32;

template <class P>
static bool nearDistances(P* row, int32_t width, float* room) {
  float* const values = room + reach;
  for (ptrdiff_t i = 0; i < reach; ++i) room[i] = values[width + i] = farthest;
  for (ptrdiff_t x = 0; x < width; ++x) values[x] = float(row[x]);
  for (int32_t first = 0;; first += nearBlock) {
    first = std::min(first, width - nearBlock);
    const float* const middle = values + first;
    float least[nearBlock];
    for (ptrdiff_t i = 0; i < nearBlock; ++i) least[i] = middle[i];
    for (int32_t distance = 1;; ++distance) {
      const float square = float(distance * distance);
      int32_t greater = 0;
      for (ptrdiff_t i = 0; i < nearBlock; ++i) greater |= least[i] > square;
      if (!greater) break;
      if (distance > reach) {
        for (ptrdiff_t x = 0; x < width; ++x) row[x] = asElement<P>(values[x]);
        return false;
      }
      for (ptrdiff_t i = 0; i < nearBlock; ++i) {
        const float before = middle[i - distance], after = middle[i + distance];
        const float sum = (before < after ? before : after) + square;
        least[i] = sum < least[i] ? sum : least[i];
      }
    }
    for (ptrdiff_t i = 0; i < nearBlock; ++i) row[first + i] = asElement<P>(least[i]);
    if (first == width - nearBlock) return true;
  }
}

// Threads of the row stage: no more than `buffer` has room for.
static int32_t teamFor(QoriSize size) {
  const int32_t most = owncvGetMaxNumThreads();
  if (most <= 1 || !(runomp() > 1 || (most * size.height >= 256 && size.width >= 256))) return serial;
  return std::max(1, std::min(ownGetNumThreads(), most));
}

// finish(row, y) takes a row of squares to the destination. `area` has the tables and each thread's envelope, in parts
// of `stride` elements.
template <class P, class Finish>
static void distances(const uint8_t* src, int32_t srcStep, P* plane, ptrdiff_t planeStep, QoriSize size, float* area,
                      int32_t stride, Finish finish) {
  columnStage(src, srcStep, plane, planeStep, size);
  float* const inverseTable = area;
  inverseTable[0] = 0;
  for (int32_t i = 1; i < size.width; ++i) inverseTable[i] = 0.5f / float(i);
  const bool compare = exactAsFloats(size) && size.width >= nearBlock;
  runTeam(size.height, teamFor(size), [=](const Stripe& stripe) {
    const ptrdiff_t part = stride;
    float* const mine = area + part + (4 * part + 4) * stripe.thread;
    const Envelope envelope = {reinterpret_cast<int32_t*>(mine), mine + part, mine + 2 * part, mine + 3 * part};
    for (int32_t y = stripe.row; y < stripe.row + stripe.rows; ++y) {
      P* const row = rowAt(plane, planeStep, y);
      if (!compare || !nearDistances(row, size.width, mine)) rowStage(row, size.width, inverseTable, envelope);
      finish(row, y);
    }
  });
}

static QorStatus bufferSizeOf(QoriSize roiSize, int32_t multiple, int32_t rest, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  const int32_t longer = std::max(roundedUp(roiSize.width, multiple), roundedUp(roiSize.height, multiple));
  *bufferSize = (longer * 24 + rest) * owncvGetMaxNumThreads();
  return qorStatusOk;
}

template <class T>
static QorStatus checked(const uint8_t* src, int32_t srcStep, const T* dst, int32_t dstStep, QoriSize roiSize,
                         const uint8_t* buffer) {
  if (anyNull(src, dst, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t>(srcStep, roiSize) || shortStep<T>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(dstStep)) return qorStatusBadStepAlign;
  return qorStatusOk;
}

QorStatus qoriTrueDistanceTransformGetBufferSize_8u16u_C1RSfs(QoriSize roiSize, int32_t* bufferSize) {
  const QorStatus status = bufferSizeOf(roiSize, 8, 24, bufferSize);
  if (status == qorStatusOk) *bufferSize += roiSize.height * roundedUp(roiSize.width, 8) * 4 + 32;
  return status;
}

QorStatus qoriTrueDistanceTransformGetBufferSize_8u32f_C1R(QoriSize roiSize, int32_t* bufferSize) {
  return bufferSizeOf(roiSize, 4, 56, bufferSize);
}

QorStatus qoriTrueDistanceTransform_8u16u_C1RSfs(const uint8_t* src, int32_t srcStep, uint16_t* dst, int32_t dstStep,
                                                 QoriSize roiSize, int32_t scaleFactor, uint8_t* buffer) {
  const QorStatus status = checked(src, srcStep, dst, dstStep, roiSize, buffer);
  if (status != qorStatusOk) return status;
  const int32_t stride = roundedUp(roiSize.width, 8);
  int32_t* const plane = alignUp<int32_t>(buffer, 16);
  float* const area = reinterpret_cast<float*>(plane + ptrdiff_t(stride) * roiSize.height);
  distances(src, srcStep, plane, ptrdiff_t(stride) * 4, roiSize, area, stride, [=](const int32_t* row, int32_t y) {
    qorsSqrt_32s16s_Sfs(row, reinterpret_cast<int16_t*>(rowAt(dst, dstStep, y)), roiSize.width, scaleFactor);
  });
  return qorStatusOk;
}

QorStatus qoriTrueDistanceTransform_8u32f_C1R(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep,
                                              QoriSize roiSize, uint8_t* buffer) {
  const QorStatus status = checked(src, srcStep, dst, dstStep, roiSize, buffer);
  if (status != qorStatusOk) return status;
  distances(src, srcStep, dst, dstStep, roiSize, alignUp<float>(buffer, 16), roundedUp(roiSize.width, 4),
            [=](float* row, int32_t) { qorsSqrt_32f_I(row, roiSize.width); });
  return qorStatusOk;
}
