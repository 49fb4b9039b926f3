// Structuring elements: their analysis, the sizes of their states, and the states.
//
// A state is one block: the record, a copy of the element's bytes rounded up to 16, the shape with its arrays, and
// scratch memory. A block may begin at any address. What is aligned inside it is aligned within the few bytes that the
// size has to spare; the rest is not.
//
// Odd: a size is that of the kind which the element has with its anchor in the centre, although it may be of another
// kind with the anchor of its state. The block of an empty element has no room for a shape, and that of a rectangle
// only for the shape's numbers.
#include "morph/element.h"

#include "frame/frame.h"

constexpr int32_t recordBytes = 96, shapeNumbersBytes = 32;
static_assert(sizeof(QoriMorphState) == recordBytes && sizeof(QoriMorphShape) == 56, "block sizes count on it");

// The run of set taps in one row, from `first` up to but without `end`; 0 and 0 where there is none.
struct RowRun {
  int32_t first, end;
};

// A length that one or more rows have in common, and where the anchor's column lies in such a row.
struct RunClass {
  int32_t length, anchor;
};

struct Analysis {
  int32_t kind;
  QoriMorphShape shape;  // without its arrays
  int32_t firstRow;
};

static bool allZero(const uint8_t* mask, ptrdiff_t count) {
  for (ptrdiff_t i = 0; i < count; ++i) {
    if (mask[i]) return false;
  }
  return true;
}

// False if the set taps of a row are not one run.
static bool findRun(const uint8_t* row, int32_t width, RowRun* run) {
  int32_t first = 0, end, rest;
  while (first < width && !row[first]) ++first;
  for (end = first; end < width && row[end];) ++end;
  for (rest = end; rest < width && !row[rest];) ++rest;
  *run = first < width ? RowRun{first, end} : RowRun{0, 0};
  return rest == width;
}

// Index of a run's class among `count` ones.
static int32_t classOf(const RunClass* classes, int32_t count, int32_t length) {
  int32_t i = 0;
  while (i < count && classes[i].length > length) ++i;
  return i;
}

// `rows` and `classes` have room for one entry a row.
static Analysis ownCheckKernel(const uint8_t* mask, QoriSize size, QoriPoint anchor, int32_t noEllipse, RowRun* rows,
                               RunClass* classes) {
  const Analysis general = {qorMorphGeneral, {}, 0};
  if (allZero(mask, ptrdiff_t(size.width) * size.height)) {
    return {qorMorphEmpty, {1, 1, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr}, 0};
  }
  int32_t outside = noEllipse, firstRow = -1, lastRow = -1, rowCount = 0, minFirst = size.width, maxEnd = 0;
  bool alike = true;
  for (int32_t r = 0; r < size.height; ++r) {
    if (!findRun(mask + ptrdiff_t(r) * size.width, size.width, &rows[r])) return general;
    const RowRun run = rows[r];
    if (run.end == 0) continue;
    if (anchor.x < run.first || anchor.x >= run.end) outside = 1;
    if (firstRow < 0) firstRow = r;
    alike = alike && run.first == rows[firstRow].first && run.end == rows[firstRow].end;
    lastRow = r;
    ++rowCount;
    if (run.first < minFirst) minFirst = run.first;
    if (run.end > maxEnd) maxEnd = run.end;
  }
  if (anchor.y < firstRow || anchor.y > lastRow) outside = 1;
  Analysis found = {qorMorphRectangle, {}, firstRow};
  found.shape.width = maxEnd - minFirst;
  found.shape.height = lastRow - firstRow + 1;
  found.shape.anchorX = anchor.x - minFirst;
  found.shape.anchorY = anchor.y - firstRow;
  // Wherever its anchor is, a rectangle is one.
  if (alike && rowCount == found.shape.height) return found;
  if (outside) return general;
  int32_t runCount = 0;
  for (int32_t r = firstRow; r <= lastRow; ++r) {
    if (rows[r].end == 0) continue;
    const RunClass run = {rows[r].end - rows[r].first, anchor.x - rows[r].first};
    const int32_t i = classOf(classes, runCount, run.length);
    if (i < runCount && classes[i].length == run.length) {
      if (classes[i].anchor != run.anchor) return general;
      continue;
    }
    memmove(classes + i + 1, classes + i, size_t(runCount - i) * sizeof(RunClass));
    classes[i] = run;
    ++runCount;
  }
  found.kind = qorMorphEllipse;
  found.shape.rowCount = rowCount;
  found.shape.runCount = runCount;
  return found;
}

// A filter's scratch for a rectangle; the maximum's and the minimum's, whichever is more.
static int32_t rectangleBufferSize(QorDataType dataType, int32_t channels, int32_t roiWidth, QoriSize size) {
  using Query = QorStatus (*)(int32_t, QoriSize, int32_t*);
  static const Query queries[2][3][2] = {{{qoriFilterMaxGetBufferSize_8u_C1R, qoriFilterMinGetBufferSize_8u_C1R},
                                          {qoriFilterMaxGetBufferSize_8u_C3R, qoriFilterMinGetBufferSize_8u_C3R},
                                          {qoriFilterMaxGetBufferSize_8u_C4R, qoriFilterMinGetBufferSize_8u_C4R}},
                                         {{qoriFilterMaxGetBufferSize_32f_C1R, qoriFilterMinGetBufferSize_32f_C1R},
                                          {qoriFilterMaxGetBufferSize_32f_C3R, qoriFilterMinGetBufferSize_32f_C3R},
                                          {qoriFilterMaxGetBufferSize_32f_C4R, qoriFilterMinGetBufferSize_32f_C4R}}};
  const Query* pair = queries[dataType == qor32f][channels == 1 ? 0 : channels - 2];
  int32_t ofMax = 0, ofMin = 0;
  pair[0](roiWidth, size, &ofMax);
  pair[1](roiWidth, size, &ofMin);
  return ofMax > ofMin ? ofMax : ofMin;
}

static int32_t ownMorphEllipseGetBufferSize(const QoriMorphShape& shape, int32_t rowBytes) {
  return (shape.height * shape.runCount + 1) * (rowBytes + 32) + 40 * shape.height + 40;
}

// All sizes are taken in 32 bits and wrap.
static int32_t stateSizeOf(const Analysis& found, QorDataType dataType, int32_t channels, int32_t roiWidth,
                           int32_t maskBytes, int32_t maskHeight, int32_t pixelBytes, int32_t paddedStride) {
  const QoriMorphShape& shape = found.shape;
  switch (found.kind) {
    case qorMorphEmpty: return maskBytes + 96;
    case qorMorphRectangle:
      return maskBytes + 128 + rectangleBufferSize(dataType, channels, roiWidth, {shape.width, shape.height});
    case qorMorphEllipse:
      return maskBytes + 160 + 8 * (shape.rowCount + shape.runCount) +
             ownMorphEllipseGetBufferSize(shape, roiWidth * pixelBytes);
    default: {
      const int32_t row = pixelBytes * maskHeight, bands = 2 * maskHeight * paddedStride;
      return maskBytes + 112 + (row > bands ? row : bands);
    }
  }
}

// Bytes of a state that are written when it is built.
static int64_t fixedBytes(const Analysis& found, QoriSize maskSize) {
  const int64_t recordAndMask = recordBytes + int64_t(maskSize.width) * maskSize.height;
  if (found.kind == qorMorphRectangle) return recordAndMask + shapeNumbersBytes;
  if (found.kind != qorMorphEllipse) return recordAndMask;
  return recordAndMask + int64_t(sizeof(QoriMorphShape)) + 8 * (int64_t(found.shape.rowCount) + found.shape.runCount);
}

// Writes the arrays of an ellipse from `place` on and returns what follows them.
static uint8_t* storeArrays(QoriMorphShape* shape, uint8_t* place, const Analysis& found, const RowRun* rows,
                            const RunClass* classes) {
  int32_t* numbers = reinterpret_cast<int32_t*>(place);
  shape->rowIndex = numbers;
  shape->rowRun = numbers + shape->rowCount;
  shape->runLength = shape->rowRun + shape->rowCount;
  shape->runAnchor = shape->runLength + shape->runCount;
  for (int32_t r = 0, i = 0; r < shape->height; ++r) {
    const RowRun run = rows[found.firstRow + r];
    if (run.end == 0) continue;
    shape->rowIndex[i] = r;
    shape->rowRun[i] = classOf(classes, shape->runCount, run.end - run.first);
    ++i;
  }
  for (int32_t i = 0; i < shape->runCount; ++i) {
    shape->runLength[i] = classes[i].length;
    shape->runAnchor[i] = classes[i].anchor;
  }
  return place + 8 * ptrdiff_t(shape->rowCount + shape->runCount);
}

// An empty element's shape, for which its block has no room.
static const QoriMorphShape emptyShape = {1, 1, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr};

// Builds the state in `block`; `record` holds what does not depend on the kind.
static void buildState(uint8_t* block, QoriMorphState record, const uint8_t* mask, QoriSize maskSize, QoriPoint anchor,
                       int32_t maskBytes, const Analysis& found, const RowRun* rows, const RunClass* classes) {
  uint8_t* const afterMask = block + recordBytes + maskBytes;
  QoriMorphShape shape = found.shape;
  record.maskData = block + recordBytes;
  record.maskErode = record.maskDilate = nullptr;
  record.maskWidth = maskSize.width;
  record.maskHeight = maskSize.height;
  record.anchorX = anchor.x;
  record.anchorY = anchor.y;
  memcpy(record.maskData, mask, size_t(ptrdiff_t(maskSize.width) * maskSize.height));
  if (found.kind == qorMorphGeneral) {
    record.maskErode = record.maskDilate = record.maskData;
    record.shape = nullptr;
    record.work = alignUp<void>(afterMask, 16);
    record.rightExtent = maskSize.width - anchor.x - 1;
    record.bottomExtent = maskSize.height - anchor.y - 1;
  } else {
    record.rightExtent = record.bottomExtent = record.paddedStride = 0;
    record.work = nullptr;
    record.shape = const_cast<QoriMorphShape*>(&emptyShape);
  }
  if (found.kind == qorMorphRectangle || found.kind == qorMorphEllipse) {
    record.maskWidth = shape.width;
    record.maskHeight = shape.height;
    record.anchorX = shape.anchorX;
    record.anchorY = shape.anchorY;
  }
  if (found.kind == qorMorphRectangle) {
    record.shape = reinterpret_cast<QoriMorphShape*>(afterMask);
    memcpy(afterMask, &shape, shapeNumbersBytes);
    record.work = afterMask + shapeNumbersBytes;
  }
  if (found.kind == qorMorphEllipse) {
    record.shape = alignUp<QoriMorphShape>(afterMask, 8);
    record.work = storeArrays(&shape, reinterpret_cast<uint8_t*>(record.shape + 1), found, rows, classes);
    *record.shape = shape;
  }
  stored(reinterpret_cast<QoriMorphState*>(block), record);
}

// What follows the argument checks: everything that needs the scratch.
static QorStatus sizeOrBuild(QorDataType dataType, int32_t channels, int32_t roiWidth, const uint8_t* mask,
                             QoriSize maskSize, QoriPoint anchor, QoriMorphState** state, int32_t* size, StateMode mode,
                             int32_t noEllipse, RowRun* rows, RunClass* classes) {
  if (mode == StateMode::size ? !size : !state) return qorStatusNullPtr;
  if (mode == StateMode::callersBlock && !*state) return qorStatusNullPtr;
  const Analysis found = ownCheckKernel(mask, maskSize, anchor, noEllipse, rows, classes);
  const int32_t maskBytes = (maskSize.width * maskSize.height + 15) & ~15;
  const int32_t pixelBytes = channels * (dataType == qor32f ? 4 : 1);
  QoriMorphState record = {};
  record.paddedStride = ((roiWidth + maskSize.width) * pixelBytes + 15) & ~15;
  record.stateSize =
      stateSizeOf(found, dataType, channels, roiWidth, maskBytes, maskSize.height, pixelBytes, record.paddedStride);
  record.dataType = dataType;
  record.channels = channels;
  record.roiWidth = roiWidth;
  record.reserved = -1;
  record.kind = found.kind;
  if (mode == StateMode::size) {
    *size = record.stateSize;
    return qorStatusOk;
  }
  uint8_t* block = reinterpret_cast<uint8_t*>(*state);
  if (mode == StateMode::newBlock) {
    // A size that has wrapped to less than the state's fixed part is no block to write to.
    block = record.stateSize >= fixedBytes(found, maskSize) ? qorsMalloc_8u(record.stateSize) : nullptr;
    if (!block) return qorStatusNoMemory;
  }
  buildState(block, record, mask, maskSize, anchor, maskBytes, found, rows, classes);
  if (mode == StateMode::newBlock) *state = reinterpret_cast<QoriMorphState*>(block);
  return qorStatusOk;
}

QorStatus ownMorphologyInitAlloc(QorDataType dataType, int32_t channels, int32_t roiWidth, const uint8_t* mask,
                                 QoriSize maskSize, QoriPoint anchor, QoriMorphState** state, int32_t* size,
                                 StateMode mode, int32_t noEllipse) {
  if (!mask) return qorStatusNullPtr;
  if (roiWidth < 1 || emptySize(maskSize)) return qorStatusBadSize;
  if (anchor.x < 0 || anchor.x >= maskSize.width || anchor.y < 0 || anchor.y >= maskSize.height) {
    return qorStatusBadAnchor;
  }
  static_assert(sizeof(RowRun) == sizeof(double) && sizeof(RunClass) == sizeof(double), "one entry a row");
  RowRun* rows = reinterpret_cast<RowRun*>(qorsMalloc_64f(maskSize.height));
  RunClass* classes = reinterpret_cast<RunClass*>(qorsMalloc_64f(maskSize.height));
  QorStatus status = qorStatusNoMemory;
  if (rows && classes) {
    status =
        sizeOrBuild(dataType, channels, roiWidth, mask, maskSize, anchor, state, size, mode, noEllipse, rows, classes);
  }
  qorsFree(rows);
  qorsFree(classes);
  return status;
}

static QorStatus sizeWithCentredAnchor(QorDataType dataType, int32_t channels, int32_t roiWidth, const uint8_t* mask,
                                       QoriSize maskSize, int32_t* size) {
  return ownMorphologyInitAlloc(dataType, channels, roiWidth, mask, maskSize, {maskSize.width / 2, maskSize.height / 2},
                                nullptr, size, StateMode::size, 0);
}

#define STATE(T, type, layout, channels)                                                                        \
  QorStatus qoriMorphologyGetSize_##type##_##layout(int32_t roiWidth, const uint8_t* mask, QoriSize maskSize,   \
                                                    int32_t* size) {                                            \
    return sizeWithCentredAnchor(dataTypeOf<T>, channels, roiWidth, mask, maskSize, size);                      \
  }                                                                                                             \
  QorStatus qoriMorphologyInit_##type##_##layout(int32_t roiWidth, const uint8_t* mask, QoriSize maskSize,      \
                                                 QoriPoint anchor, QoriMorphState* state) {                     \
    return ownMorphologyInitAlloc(dataTypeOf<T>, channels, roiWidth, mask, maskSize, anchor, &state, nullptr,   \
                                  StateMode::callersBlock, 0);                                                  \
  }                                                                                                             \
  QorStatus qoriMorphologyInitAlloc_##type##_##layout(int32_t roiWidth, const uint8_t* mask, QoriSize maskSize, \
                                                      QoriPoint anchor, QoriMorphState** state) {               \
    return ownMorphologyInitAlloc(dataTypeOf<T>, channels, roiWidth, mask, maskSize, anchor, state, nullptr,    \
                                  StateMode::newBlock, 0);                                                      \
  }
STATE(uint8_t, 8u, C1R, 1)
STATE(uint8_t, 8u, C3R, 3)
STATE(uint8_t, 8u, C4R, 4)
STATE(float, 32f, C1R, 1)
STATE(float, 32f, C3R, 3)
STATE(float, 32f, C4R, 4)
#undef STATE

QorStatus qoriMorphologyFree(QoriMorphState* state) {
  if (!state) return qorStatusNullPtr;
  qorsFree(state);
  return qorStatusOk;
}
