// Inpainting: a hole in an image is filled from its edge inward, in the order of given distances, each pixel from the
// known ones around it.
//
// A state holds what depends on the hole only, for the crop that the hole and its surroundings occupy. It is one block:
// the record, the two dilation states, then the planes, the keys of the fill order and the table of neighbours, all of
// these at multiples of 64 bytes.
//
// Odd: pixels outside the hole whose distance is above 0 are filled too, and since there are as many keys as hole
// pixels, those last in the crop's rows then get none. Hole pixels without a distance above 0 stay as they are. Near
// the edge of the crop a whole radius counts: 5 where it is 5.9.
#include <math.h>
#include <string.h>

#include "distance/inpaint_gradient.h"
#include "frame/frame.h"
#include "frame/kit/images.h"

static constexpr int32_t indexBits = 28;  // of a key: where in the crop its pixel lies

// Where it lies in an image follows from dx and dy: rows of the caller's may be so far apart that no offset in 32 bits
// reaches it.
struct inpaintNeighbour {
  int32_t dx, dy;  // from the neighbour to the pixel
  float weight;
  int32_t maskOffset;      // bytes
  int32_t distanceOffset;  // elements
  int32_t gradientOffset;  // elements
};

struct QoriInpaintState {
  uint8_t* maskPlane;  // 255 in the hole
  uint8_t* workMask;   // what is unknown as yet; bands around the hole before
  int16_t* imageGradient;
  int16_t* distanceGradient;
  float* distanceCopy;
  double* fillOrder;  // distances whose low bits are replaced by the pixel's index in the crop
  inpaintNeighbour* neighbourTable;
  QoriMorphState *wideDilateState, *crossDilateState;
  QoriSize roiSize, cropSize;
  int32_t channels, flags, pixelCount, cropX, cropY, cropWidth, cropHeight;
  float radius;
  int32_t tableCount, maskStep, distanceStep, gradientStep, distanceGradientStep;
  int32_t keyCount;
};
static_assert(sizeof(QoriInpaintState) == 144 && sizeof(inpaintNeighbour) == 24, "as laid out");

// --- creation ---

struct Box {
  int32_t left, top, right, bottom;  // all inclusive
};

// Counts the hole's pixels and finds their box.
static int32_t owncvNoZero_8u(const uint8_t* mask, ptrdiff_t step, QoriSize size, Box* box) {
  int32_t count = 0;
  *box = {size.width, size.height, -1, -1};
  for (int32_t y = 0; y < size.height; ++y) {
    const uint8_t* row = rowAt(mask, step, y);
    int32_t inRow = 0;
    for (int32_t x = 0; x < size.width; ++x) inRow += row[x] != 0;
    if (inRow == 0) continue;
    count += inRow;
    int32_t first = 0, last = size.width - 1;
    while (!row[first]) ++first;
    while (!row[last]) --last;
    if (first < box->left) box->left = first;
    if (last > box->right) box->right = last;
    if (y < box->top) box->top = y;
    box->bottom = y;
  }
  return count;
}

// One axis of the crop: the box and `margin` pixels to both sides, as far as the image goes.
static void cropAxis(int32_t first, int32_t last, int32_t margin, int32_t length, int32_t* start, int32_t* count) {
  const int64_t low = int64_t(first) - margin, high = int64_t(last) + margin;
  *start = low > 0 ? int32_t(low) : 0;
  *count = (high < length ? int32_t(high) + 1 : length) - *start;
}

static float tableWeight(float d2, int32_t flags) {
  if (flags == qorInpaintExtrapolate) return 1.0f / (d2 * sqrtf(d2));
  return 1.0f / ((d2 * d2 + 1.0f) * sqrtf(d2));
}

// Calls entry(dx, dy, d2) for each neighbour in the disc, row by row.
template <class Entry>
static void forDisc(float radius, Entry entry) {
  const int32_t r = int32_t(radius);
  for (int32_t dy = -r; dy <= r; ++dy) {
    for (int32_t dx = -r; dx <= r; ++dx) {
      const float d2 = float(dx * dx + dy * dy);
      if (!(d2 > radius * radius) && d2 != 0) entry(dx, dy, d2);
    }
  }
}

static void fillTable(QoriInpaintState* s) {
  inpaintNeighbour* n = s->neighbourTable;
  forDisc(s->radius, [&](ptrdiff_t dx, ptrdiff_t dy, float d2) {
    // Offsets that pass 32 bits are those of neighbours outside the crop; nobody uses them.
    *n++ = {int32_t(-dx),
            int32_t(-dy),
            tableWeight(d2, s->flags),
            int32_t(dy * s->maskStep + dx),
            int32_t(dy * (s->distanceStep / 4) + dx),
            int32_t(dy * (s->gradientStep / 2) + dx * 2 * s->channels)};
  });
}

// One key for each distance above 0, at most `most`. Returns their number.
static int32_t owncvFillNoZero_32f(const float* distance, ptrdiff_t step, QoriSize size, double* keys, int32_t most) {
  int32_t count = 0;
  for (int32_t y = 0; y < size.height; ++y) {
    const float* row = rowAt(distance, step, y);
    for (int32_t x = 0; x < size.width; ++x) {
      if (!(row[x] > 0)) continue;
      if (count == most) return count;
      const double value = row[x];
      uint64_t bits;
      memcpy(&bits, &value, sizeof bits);
      bits = (bits >> indexBits << indexBits) | uint64_t(ptrdiff_t(y) * size.width + x);
      memcpy(keys + count, &bits, sizeof bits);
      ++count;
    }
  }
  return count;
}

// Bytes of a block so far; each part begins at a multiple of 64.
static int64_t addPart(int64_t* end, int64_t bytes) {
  const int64_t start = *end;
  *end += (bytes + 63) & ~int64_t(63);
  return start;
}

struct Hole {
  const float* distance;
  ptrdiff_t distanceStep;
  const uint8_t* mask;
  ptrdiff_t maskStep;
};

// Builds a state from a record that has all but its pointers, its steps and its counts of keys and neighbours.
static QorStatus buildState(QoriInpaintState record, const Hole& hole, int32_t wideSide, const uint8_t* wideMask,
                            const uint8_t* crossMask, QoriInpaintState** state) {
  int32_t wideBytes = 0, crossBytes = 0;
  const QoriSize wideSize = {wideSide, wideSide}, crossSize = {3, 3};
  QorStatus status = qoriMorphologyGetSize_8u_C1R(record.cropWidth, wideMask, wideSize, &wideBytes);
  if (status == qorStatusOk) {
    status = qoriMorphologyGetSize_8u_C1R(record.cropWidth, crossMask, crossSize, &crossBytes);
  }
  if (status != qorStatusOk) return status;
  forDisc(record.radius, [&](int32_t, int32_t, float) { ++record.tableCount; });

  // In 64 bits: what has more than a block can have is refused.
  const int64_t width = record.cropWidth, height = record.cropHeight;
  const int64_t maskStep = (width + 63) & ~int64_t(63), distanceStep = (4 * width + 63) & ~int64_t(63);
  const int64_t gradientStep = (4 * width * record.channels + 63) & ~int64_t(63);
  const int64_t distanceGradientStep = record.flags == qorInpaintExtrapolate ? distanceStep : 0;
  int64_t bytes = 0;
  const int64_t maskPlane = addPart(&bytes, maskStep * height), workMask = addPart(&bytes, maskStep * height);
  const int64_t imageGradient = addPart(&bytes, gradientStep * height);
  const int64_t distanceGradient = addPart(&bytes, distanceGradientStep * height);
  const int64_t distanceCopy = addPart(&bytes, distanceStep * height);
  const int64_t fillOrder = addPart(&bytes, int64_t(record.pixelCount) * 8);
  const int64_t neighbourTable = addPart(&bytes, int64_t(record.tableCount) * int64_t(sizeof(inpaintNeighbour)));
  const int64_t wideState = sizeof record, crossState = wideState + ((int64_t(wideBytes) + 15) & ~int64_t(15));
  const int64_t planes = crossState + ((int64_t(crossBytes) + 15) & ~int64_t(15));
  if (planes + 63 + bytes > INT32_MAX) return qorStatusNoMemory;
  uint8_t* const block = qorsMalloc_8u(int32_t(planes + 63 + bytes));
  if (!block) return qorStatusNoMemory;

  record.wideDilateState = reinterpret_cast<QoriMorphState*>(block + wideState);
  record.crossDilateState = reinterpret_cast<QoriMorphState*>(block + crossState);
  const int32_t r = int32_t(record.radius);
  status = qoriMorphologyInit_8u_C1R(record.cropWidth, wideMask, wideSize, {r, r}, record.wideDilateState);
  if (status == qorStatusOk) {
    status = qoriMorphologyInit_8u_C1R(record.cropWidth, crossMask, crossSize, {1, 1}, record.crossDilateState);
  }
  if (status != qorStatusOk) {
    qorsFree(block);
    return status;
  }
  uint8_t* const base = alignUp<uint8_t>(block + planes, 64);
  record.maskPlane = base + maskPlane;
  record.workMask = base + workMask;
  record.imageGradient = reinterpret_cast<int16_t*>(base + imageGradient);
  record.distanceGradient = reinterpret_cast<int16_t*>(base + distanceGradient);
  record.distanceCopy = reinterpret_cast<float*>(base + distanceCopy);
  record.fillOrder = reinterpret_cast<double*>(base + fillOrder);
  record.neighbourTable = reinterpret_cast<inpaintNeighbour*>(base + neighbourTable);
  record.maskStep = int32_t(maskStep);
  record.distanceStep = int32_t(distanceStep);
  record.gradientStep = int32_t(gradientStep);
  record.distanceGradientStep = int32_t(distanceGradientStep);
  qoriThreshold_GTVal_8u_C1R(rowAt(hole.mask, hole.maskStep, record.cropY) + record.cropX, int32_t(hole.maskStep),
                             record.maskPlane, record.maskStep, record.cropSize, 0, 255);
  qoriCopy_32f_C1R(rowAt(hole.distance, hole.distanceStep, record.cropY) + record.cropX, int32_t(hole.distanceStep),
                   record.distanceCopy, record.distanceStep, record.cropSize);
  fillTable(&record);
  record.keyCount = owncvFillNoZero_32f(record.distanceCopy, record.distanceStep, record.cropSize, record.fillOrder,
                                        record.pixelCount);
  if (record.keyCount > 0) status = qorsSortAscend_64f_I(record.fillOrder, record.keyCount);
  auto* made = reinterpret_cast<QoriInpaintState*>(block);
  *made = record;
  *state = made;
  return status;
}

template <int32_t channels>
static QorStatus initAlloc(QoriInpaintState** state, const float* distance, int32_t distanceImageStep,
                           const uint8_t* mask, int32_t maskImageStep, QoriSize roiSize, float radius, int32_t flags) {
  if (anyNull(mask, distance, state)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t>(maskImageStep, roiSize) || shortStep<float>(distanceImageStep, roiSize)) {
    return qorStatusBadStep;
  }
  if (misaligned<float>(distanceImageStep)) return qorStatusBadStepAlign;
  if (flags != qorInpaintExtrapolate && flags != qorInpaintIsophote) return qorStatusBadArg;
  if (!(radius >= 1.0f)) return qorStatusBadArg;

  QoriInpaintState record = {};
  record.roiSize = roiSize;
  record.channels = channels;
  record.flags = flags;
  record.radius = radius;
  Box box;
  record.pixelCount = owncvNoZero_8u(mask, maskImageStep, roiSize, &box);
  if (record.pixelCount == 0) {
    auto* empty = reinterpret_cast<QoriInpaintState*>(qorsMalloc_8u(sizeof record));
    if (!empty) return qorStatusNoMemory;
    *empty = record;
    *state = empty;
    return qorStatusOk;
  }
  // From here on the table alone, of more than 2 R^2 neighbours, has no room in a block.
  constexpr float largestRadius = 6200;
  if (radius > largestRadius) return qorStatusNoMemory;
  const int32_t r = int32_t(radius), wideSide = int32_t(1 + 2 * radius);
  cropAxis(box.left, box.right, r + 1, roiSize.width, &record.cropX, &record.cropWidth);
  cropAxis(box.top, box.bottom, r + 1, roiSize.height, &record.cropY, &record.cropHeight);
  record.cropSize = {record.cropWidth, record.cropHeight};
  // A dilation state has two rows for each one of its mask, and its size wraps.
  const int64_t stateBytes = int64_t(wideSide) * (wideSide + 2 * (int64_t(record.cropWidth) + 128));
  if (stateBytes > INT32_MAX) return qorStatusNoMemory;

  static const uint8_t cross[9] = {0, 1, 0, 1, 1, 1, 0, 1, 0};
  uint8_t *wideMask = qorsMalloc_8u(wideSide * wideSide), *crossMask = qorsMalloc_8u(9);
  QorStatus status = qorStatusNoMemory;
  if (wideMask && crossMask) {
    qorsSet_8u(1, wideMask, wideSide * wideSide);
    memcpy(crossMask, cross, sizeof cross);
    const Hole hole = {distance, distanceImageStep, mask, maskImageStep};
    status = buildState(record, hole, wideSide, wideMask, crossMask, state);
  }
  if (crossMask) qorsFree(crossMask);
  if (wideMask) qorsFree(wideMask);
  return status;
}

// --- values ---

template <int32_t channels>
struct Sums {
  float weight[channels];  // of all channels together in the first place for qorInpaintExtrapolate
  float value[channels], x[channels], y[channels];
};

// The pixel that is filled.
struct Pixel {
  float distance;
  int32_t tx, ty;  // distance gradient
};

// A known neighbour. `weight` lacks the division by the square root of `rootOf` for qorInpaintIsophote.
struct Neighbour {
  int32_t dx, dy;
  float weight, rootOf, distance;
  const int16_t* gradient;
  const uint8_t* image;
};

template <int32_t flags, int32_t channels>
static inline void addNeighbour(Sums<channels>& sums, const Pixel& p, const Neighbour& q) {
  if constexpr (flags == qorInpaintExtrapolate) {
    float direction = float(p.tx * q.dx + p.ty * q.dy);
    if (fabsf(direction) < 2.5e-25f) direction = 2.5e-25f;
    const float level = 0.000244140625f / (1.0f + fabsf(q.distance - p.distance));
    const float w = fabsf(q.weight * level * direction);
    for (int32_t c = 0; c < channels; ++c) {
      sums.value[c] += float(q.image[c]) * w;
      sums.x[c] -= float(q.gradient[2 * c]) * w * float(q.dx);
      sums.y[c] -= float(q.gradient[2 * c + 1]) * w * float(q.dy);
    }
    sums.weight[0] += w;
  } else {
    for (int32_t c = 0; c < channels; ++c) {
      const int32_t gx = q.gradient[2 * c], gy = q.gradient[2 * c + 1];
      const int32_t cross = abs(q.dx * -gy + q.dy * gx);
      const float alignment = cross == 0 ? 1e-6f : float(cross) / sqrtf(q.rootOf * float(gx * gx + gy * gy));
      const float w = q.weight * alignment;
      sums.value[c] += float(q.image[c]) * w;
      sums.weight[c] += w;
    }
  }
}

// The value becomes 0 where there is none.
static inline uint8_t heldToByte(double v) { return v >= 255 ? 255 : v > 0 ? uint8_t(v) : uint8_t(0); }

template <int32_t flags, int32_t channels>
static inline uint8_t result(const Sums<channels>& sums, int32_t c) {
  if constexpr (flags == qorInpaintExtrapolate) {
    const double x = sums.x[c], y = sums.y[c];
    return heldToByte(double(sums.value[c] / sums.weight[0]) + 0.5 +
                      double(sums.x[c] + sums.y[c]) / (double(float(sqrt(x * x + y * y))) + 1e-20));
  } else {
    return heldToByte(sums.value[c] / sums.weight[c] + 0.5f);
  }
}

// --- filling ---

// The image's part in the crop.
struct Canvas {
  uint8_t* image;
  ptrdiff_t step;
};

static inline bool known(const QoriInpaintState& s, int32_t x, int32_t y) {
  return x >= 0 && x < s.cropWidth && y >= 0 && y < s.cropHeight && !rowAt(s.workMask, s.maskStep, y)[x];
}

// Where no neighbour has carried any weight: the mean of the direct neighbours, as far as they are known.
template <int32_t flags, int32_t channels>
static void fallBack(const QoriInpaintState& s, const Canvas& canvas, int32_t x, int32_t y, Sums<channels>& sums,
                     int32_t c) {
  static const int8_t direct[4][2] = {{0, -1}, {-1, 0}, {1, 0}, {0, 1}};
  constexpr bool common = flags == qorInpaintExtrapolate;
  int32_t sum = 0;
  float weight = sums.weight[common ? 0 : c];
  for (const auto& d : direct) {
    if (!known(s, x + d[0], y + d[1])) continue;
    sum += rowAt(canvas.image, canvas.step, y + d[1])[ptrdiff_t(x + d[0]) * channels + c];
    weight += 255.0f;
  }
  sums.value[c] = float(255 * sum);
  sums.x[c] = sums.y[c] = 0;
  if (!common || c == channels - 1) sums.weight[common ? 0 : c] = weight;
}

template <int32_t flags, int32_t channels>
static void fillPixel(const QoriInpaintState& s, const Canvas& canvas, int32_t x, int32_t y) {
  const int32_t r = int32_t(s.radius);
  uint8_t* const unknown = rowAt(s.workMask, s.maskStep, y) + x;
  uint8_t* const pixel = rowAt(canvas.image, canvas.step, y) + ptrdiff_t(x) * channels;
  const float* const distance = rowAt(s.distanceCopy, s.distanceStep, y) + x;
  const int16_t* const gradient = rowAt(s.imageGradient, s.gradientStep, y) + ptrdiff_t(x) * 2 * channels;
  Pixel p = {*distance, 0, 0};
  if (flags == qorInpaintExtrapolate) {
    const int16_t* pair = rowAt(s.distanceGradient, s.distanceGradientStep, y) + 2 * ptrdiff_t(x);
    p.tx = pair[0];
    p.ty = pair[1];
  }
  Sums<channels> sums = {};
  for (float& weight : sums.weight) weight = 1e-30f;
  if (x >= r && y >= r && x + r < s.cropWidth && y + r < s.cropHeight) {
    for (const inpaintNeighbour *n = s.neighbourTable, *end = n + s.tableCount; n != end; ++n) {
      if (unknown[n->maskOffset]) continue;
      addNeighbour<flags, channels>(
          sums, p,
          {n->dx, n->dy, n->weight, 1.0f, distance[n->distanceOffset], gradient + n->gradientOffset,
           rowAt(pixel, canvas.step, -n->dy) - ptrdiff_t(n->dx) * channels});
    }
  } else {
    const int32_t left = x > r ? x - r : 0, right = x + r < s.cropWidth ? x + r : s.cropWidth - 1;
    const int32_t top = y > r ? y - r : 0, bottom = y + r < s.cropHeight ? y + r : s.cropHeight - 1;
    for (int32_t v = top; v <= bottom; ++v) {
      for (int32_t u = left; u <= right; ++u) {
        const int32_t dx = x - u, dy = y - v;
        const float d2 = float(dx * dx + dy * dy);
        if (d2 > float(r * r) || d2 == 0 || !known(s, u, v)) continue;
        const float weight = flags == qorInpaintExtrapolate ? tableWeight(d2, flags) : 1.0f / (d2 * d2 + 1.0f);
        addNeighbour<flags, channels>(sums, p,
                                      {dx, dy, weight, d2, distance[ptrdiff_t(-dy) * (s.distanceStep / 4) - dx],
                                       rowAt(gradient, s.gradientStep, -dy) - ptrdiff_t(dx) * 2 * channels,
                                       rowAt(pixel, canvas.step, -dy) - ptrdiff_t(dx) * channels});
      }
    }
  }
  const Sums<channels> carried = sums;
  for (int32_t c = 0; c < channels; ++c) {
    if (carried.weight[flags == qorInpaintExtrapolate ? 0 : c] < 1e-4f) {
      fallBack<flags, channels>(s, canvas, x, y, sums, c);
    }
  }
  for (int32_t c = 0; c < channels; ++c) pixel[c] = result<flags, channels>(sums, c);
  *unknown = 0;
}

template <int32_t flags, int32_t channels>
static void fillHole(const QoriInpaintState& s, const Canvas& canvas) {
  constexpr bool absolute = flags == qorInpaintIsophote;
  GradientPlanes planes = {canvas.image, canvas.step, s.imageGradient, s.gradientStep,
                           s.maskPlane,  s.maskStep,  s.cropWidth,     s.cropHeight};
  memset(s.imageGradient, 0, size_t(ptrdiff_t(s.gradientStep) * s.cropHeight));
  // A band of known pixels around the hole; the hole's own values do not count where they would be the neighbours'.
  const auto bandAround = [&](QoriMorphState* dilateState) {
    qoriDilateBorderReplicate_8u_C1R(s.maskPlane, s.maskStep, s.workMask, s.maskStep, s.cropSize, qorBorderReplicate,
                                     dilateState);
    qoriSub_8u_C1IRSfs(s.maskPlane, s.maskStep, s.workMask, s.maskStep, s.cropSize, 0);
  };
  bandAround(s.wideDilateState);
  owncvGradient_8u16s_MR<absolute, channels>(planes, s.workMask);
  bandAround(s.crossDilateState);
  owncvModGradient_8u16s_MR<absolute, channels>(planes, s.workMask);
  if (flags == qorInpaintExtrapolate) {
    memset(s.distanceGradient, 0, size_t(ptrdiff_t(s.distanceGradientStep) * s.cropHeight));
    owncvGradient_32f16s_C1MR_Sfs(s.distanceCopy, s.distanceStep, s.distanceGradient, s.distanceGradientStep,
                                  s.maskPlane, s.maskStep, s.cropWidth, s.cropHeight, -12);
  }
  qoriCopy_8u_C1R(s.maskPlane, s.maskStep, s.workMask, s.maskStep, s.cropSize);
  planes.unknown = s.workMask;
  for (int32_t i = 0; i < s.keyCount; ++i) {
    uint64_t key;
    memcpy(&key, s.fillOrder + i, sizeof key);
    const int32_t index = int32_t(key & ((1u << indexBits) - 1)), y = index / s.cropWidth, x = index - y * s.cropWidth;
    fillPixel<flags, channels>(s, canvas, x, y);
    owncvModGradientPoint_8u16s_MR<absolute, channels>(planes, x, y);
  }
}

template <int32_t channels>
static QorStatus inpaint(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize,
                         QoriInpaintState* state) {
  if (anyNull(src, dst, state)) return qorStatusNullPtr;
  const QoriInpaintState& s = *state;
  // A state for another number of channels has other planes.
  if (emptySize(roiSize) || roiSize.width != s.roiSize.width || roiSize.height != s.roiSize.height ||
      s.channels != channels) {
    return qorStatusBadSize;
  }
  if (shortStep<uint8_t, channels>(srcStep, roiSize) || shortStep<uint8_t, channels>(dstStep, roiSize)) {
    return qorStatusBadStep;
  }
  if (channels == 1) {
    qoriCopy_8u_C1R(src, srcStep, dst, dstStep, roiSize);
  } else {
    qoriCopy_8u_C3R(src, srcStep, dst, dstStep, roiSize);
  }
  if (s.pixelCount == 0) return qorStatusOk;
  const Canvas canvas = {rowAt(dst, dstStep, s.cropY) + ptrdiff_t(s.cropX) * channels, dstStep};
  if (s.flags == qorInpaintExtrapolate) {
    fillHole<qorInpaintExtrapolate, channels>(s, canvas);
  } else {
    fillHole<qorInpaintIsophote, channels>(s, canvas);
  }
  return qorStatusOk;
}

static QorStatus release(QoriInpaintState* state) {
  if (anyNull(state)) return qorStatusNullPtr;
  qorsFree(state);
  return qorStatusOk;
}

// --- exported functions ---

#define QOR_INPAINT(form, channels)                                                                                  \
  QorStatus qoriInpaintInitAlloc_##form(QoriInpaintState_##form** state, const float* distance,                      \
                                        int32_t distanceImageStep, const uint8_t* mask, int32_t maskImageStep,       \
                                        QoriSize roiSize, float radius, int32_t flags) {                             \
    return initAlloc<channels>(state, distance, distanceImageStep, mask, maskImageStep, roiSize, radius, flags);     \
  }                                                                                                                  \
  QorStatus qoriInpaint_##form(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize, \
                               QoriInpaintState_##form* state) {                                                     \
    return inpaint<channels>(src, srcStep, dst, dstStep, roiSize, state);                                            \
  }                                                                                                                  \
  QorStatus qoriInpaintFree_##form(QoriInpaintState_##form* state) { return release(state); }

QOR_INPAINT(8u_C1R, 1)
QOR_INPAINT(8u_C3R, 3)
#undef QOR_INPAINT
