// Lines between areas of different labels: plain, and on the side of the higher cost.
//
// Plain, every pixel looks at neighbours that were visited before it, marks included. Bands of several threads must not
// depend on who comes first: all do their first row while the rows above still are as they were, then the others.
//
// Odd: by cost, the tests between a pixel and the next one do not care whether one of them is marked already, those
// between rows do; a pixel that was marked from its left is not tested at all, neither against the next one nor, even
// in the last column, against the one above.
#include "segment/bounds.h"

#include <string.h>

#include <algorithm>

#include "frame/frame.h"

// --- plain ---

template <class T>
static inline int32_t parts(T neighbour, T pixel, T borderValue) {
  return (neighbour != borderValue) & (neighbour != pixel);
}

template <class T>
static void boundFirstRow(T* row, int32_t width, T borderValue) {
  for (int32_t x = 1; x < width; ++x) {
    if (parts(row[x - 1], row[x], borderValue)) row[x] = borderValue;
  }
}

// Pixels of one word, whose neighbours all have their values, part nothing.
template <class T, bool eight>
static inline bool uniform(const T* above, const T* row) {
  uint64_t pixel, left, up;
  memcpy(&pixel, row, 8);
  memcpy(&left, row - 1, 8);
  memcpy(&up, above, 8);
  uint64_t differences = (pixel ^ left) | (pixel ^ up);
  if (eight) {
    uint64_t upLeft, upRight;
    memcpy(&upLeft, above - 1, 8);
    memcpy(&upRight, above + 1, 8);
    differences |= (pixel ^ upLeft) | (pixel ^ upRight);
  }
  return differences == 0;
}

template <class T, bool eight>
static void boundRow(const T* above, T* row, int32_t width, T borderValue) {
  constexpr int32_t word = 8 / int32_t(sizeof(T));
  if (parts(above[0], row[0], borderValue) || (eight && width > 1 && parts(above[1], row[0], borderValue))) {
    row[0] = borderValue;
  }
  for (int32_t x = 1; x < width;) {
    // A word may not reach the last column, which has no neighbour above on the right.
    if (x < width - word && uniform<T, eight>(above + x, row + x)) {
      x += word;
      continue;
    }
    for (const int32_t end = std::min(x + word, width); x < end; ++x) {
      const T pixel = row[x];
      int32_t mark = parts(above[x], pixel, borderValue) | parts(row[x - 1], pixel, borderValue);
      if (eight) {
        mark |= parts(above[x - 1], pixel, borderValue);
        if (x < width - 1) mark |= parts(above[x + 1], pixel, borderValue);
      }
      row[x] = mark ? borderValue : pixel;
    }
  }
}

template <class T, bool eight>
static void boundBand(T* image, int32_t step, int32_t width, T borderValue, int32_t row, int32_t limit) {
  for (int32_t y = row; y < limit; ++y) {
    T* pixels = rowAt(image, step, y);
    if (y == 0) {
      boundFirstRow(pixels, width, borderValue);
    } else {
      boundRow<T, eight>(rowAt(image, step, y - 1), pixels, width, borderValue);
    }
  }
}

template <class T>
static void ownBound4(T* image, int32_t step, int32_t width, T borderValue, int32_t row, int32_t limit) {
  boundBand<T, false>(image, step, width, borderValue, row, limit);
}

template <class T>
static void ownBound8(T* image, int32_t step, int32_t width, T borderValue, int32_t row, int32_t limit) {
  boundBand<T, true>(image, step, width, borderValue, row, limit);
}

template <class T>
static QorStatus boundSegments(T* srcDst, int32_t srcDstStep, QoriSize roiSize, T borderValue, int32_t norm) {
  if (anyNull(srcDst)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T>(srcDstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcDstStep)) return qorStatusBadStepAlign;
  if (norm != qorNormL1 && norm != qorNormInf) return qorStatusBadArg;

  const bool four = norm == qorNormL1 || roiSize.width == 1;
  const auto band = [=](int32_t row, int32_t limit) {
    (four ? ownBound4<T> : ownBound8<T>)(srcDst, srcDstStep, roiSize.width, borderValue, row, limit);
  };
  // Odd: it is the current team that decides, so calls from serial code are serial.
  int32_t bands = std::min({owncvGetNumThreads(), roiSize.height >> 4, pixels(roiSize) >> 10});
  if (bands >= 2) bands = std::min(bands, ownGetNumThreads());
  if (bands < 2) {
    band(0, roiSize.height);
    return qorStatusOk;
  }
  const float rowsPerBand = float(roiSize.height) / float(bands);
  const auto firstRow = [=](int32_t b) {
    return b == bands ? roiSize.height : std::min(roiSize.height, int32_t(float(b) * rowsPerBand + 0.5f));
  };
#pragma omp parallel num_threads(bands)
  {
    const int32_t thread = owncvGetIdThreads(), threads = owncvGetNumThreads();
    if (threads == 1) {
      band(0, roiSize.height);
    } else {
      for (int32_t b = thread; b < bands; b += threads) band(firstRow(b), std::min(firstRow(b) + 1, firstRow(b + 1)));
#pragma omp barrier
      for (int32_t b = thread; b < bands; b += threads) band(firstRow(b) + 1, firstRow(b + 1));
    }
  }
  return qorStatusOk;
}

// --- by cost ---

template <class T>
static void boundFirstRowByCost(T* row, const int32_t* cost, int32_t width, T borderValue) {
  for (int32_t x = 0; x < width - 1; ++x) {
    if (row[x] == row[x + 1]) continue;
    if (cost[x] <= cost[x + 1]) {
      row[++x] = borderValue;
    } else {
      row[x] = borderValue;
    }
  }
}

// A row against the one above it and against itself.
template <class T>
static void boundRowByCost(T* above, T* row, const int32_t* costAbove, const int32_t* cost, int32_t width,
                           T borderValue) {
  int32_t x = 0;
  for (; x < width - 1; ++x) {
    if (parts(above[x], row[x], borderValue)) {
      if (costAbove[x] <= cost[x]) {
        row[x] = borderValue;
        continue;
      }
      above[x] = borderValue;
    }
    if (row[x] != row[x + 1]) {
      if (cost[x] <= cost[x + 1]) {
        row[++x] = borderValue;
      } else {
        row[x] = borderValue;
      }
    }
  }
  if (x == width - 1 && parts(above[x], row[x], borderValue)) {
    (costAbove[x] > cost[x] ? above : row)[x] = borderValue;
  }
}

template <class T>
static void boundDiagonalsByCost(T* above, T* row, const int32_t* costAbove, const int32_t* cost, int32_t width,
                                 T borderValue) {
  for (int32_t x = 0; x < width; ++x) {
    if (row[x] == borderValue) continue;
    for (int32_t u = x - 1; u <= x + 1; u += 2) {
      if (u < 0 || u >= width || !parts(above[u], row[x], borderValue)) continue;
      if (costAbove[u] > cost[x]) {
        above[u] = borderValue;
      } else {
        row[x] = borderValue;
        break;
      }
    }
  }
}

template <class T, bool eight>
static void boundBandByCost(T* markers, int32_t markerStep, const int32_t* cost, ptrdiff_t costStep, int32_t width,
                            T borderValue, int32_t row, int32_t limit) {
  for (int32_t y = row; y < limit; ++y) {
    T* labels = rowAt(markers, markerStep, y);
    const int32_t* costs = rowAt(cost, costStep, y);
    if (y == 0) {
      boundFirstRowByCost(labels, costs, width, borderValue);
      continue;
    }
    T* labelsAbove = rowAt(markers, markerStep, y - 1);
    const int32_t* costsAbove = rowAt(cost, costStep, y - 1);
    boundRowByCost(labelsAbove, labels, costsAbove, costs, width, borderValue);
    if (eight) boundDiagonalsByCost(labelsAbove, labels, costsAbove, costs, width, borderValue);
  }
}

template <class T>
static void ownBoundP4(T* markers, int32_t markerStep, const int32_t* cost, ptrdiff_t costStep, int32_t width,
                       T borderValue, int32_t row, int32_t limit) {
  boundBandByCost<T, false>(markers, markerStep, cost, costStep, width, borderValue, row, limit);
}

template <class T>
static void ownBoundP8(T* markers, int32_t markerStep, const int32_t* cost, ptrdiff_t costStep, int32_t width,
                       T borderValue, int32_t row, int32_t limit) {
  boundBandByCost<T, true>(markers, markerStep, cost, costStep, width, borderValue, row, limit);
}

// One band, always: a row here marks the row above too, and bands would get in each other's way.
template <class T>
static void boundSegmentsByCost(T* markers, int32_t markerStep, const int32_t* cost, ptrdiff_t costStep,
                                QoriSize roiSize, T borderValue, int32_t fourNeighbours) {
  const auto band = fourNeighbours ? ownBoundP4<T> : ownBoundP8<T>;
  band(markers, markerStep, cost, costStep, roiSize.width, borderValue, 0, roiSize.height);
}

void ownBoundSegments_8u_C1IR(uint8_t* markers, int32_t markerStep, const int32_t* cost, ptrdiff_t costStep,
                              QoriSize roiSize, uint8_t borderValue, int32_t fourNeighbours) {
  boundSegmentsByCost(markers, markerStep, cost, costStep, roiSize, borderValue, fourNeighbours);
}

void ownBoundSegments_16u_C1IR(uint16_t* markers, int32_t markerStep, const int32_t* cost, ptrdiff_t costStep,
                               QoriSize roiSize, uint16_t borderValue, int32_t fourNeighbours) {
  boundSegmentsByCost(markers, markerStep, cost, costStep, roiSize, borderValue, fourNeighbours);
}

QorStatus qoriBoundSegments_8u_C1IR(uint8_t* srcDst, int32_t srcDstStep, QoriSize roiSize, uint8_t borderValue,
                                    int32_t norm) {
  return boundSegments(srcDst, srcDstStep, roiSize, borderValue, norm);
}

QorStatus qoriBoundSegments_16u_C1IR(uint16_t* srcDst, int32_t srcDstStep, QoriSize roiSize, uint16_t borderValue,
                                     int32_t norm) {
  return boundSegments(srcDst, srcDstStep, roiSize, borderValue, norm);
}
