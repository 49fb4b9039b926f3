// Pyramidal optical flow: points are tracked from one image to the next by steps after Lucas and Kanade, from the
// coarsest level of two pyramids to the finest.
//
// Small levels get their gradients as whole planes ("plane mode"), since many windows overlap there; in large ones each
// window gets its own from its patch ("patch mode"). In plane mode the threads meet after every level; in patch mode
// each carries its points down to level 0.
//
// Odd: the status of a point is a byte, so levels beyond 254 are told modulo 256.
#include <float.h>
#include <math.h>
#include <string.h>

#include <algorithm>

#include "frame/frame.h"
#include "geometry/subpix.h"
#include "motion/opticalflow_rows.h"

struct QoriOptFlowState {
  QoriSize maxSize;     // levels of fewer columns and rows are handled in plane mode
  int32_t threadCount;  // the library's at creation: scratch is there for so many
  int32_t reserved;     // holds 1, and nobody reads it
  int32_t hint;         // nobody reads it
  int32_t winSize;
  uint8_t* buffer;
};

namespace {

// What depends on the type of the pixels: patches and gradients have elements of one type.
template <class Pixel>
struct PatchOf {
  using Type = float;
};
template <>
struct PatchOf<uint8_t> {
  using Type = int16_t;
};
template <class Pixel>
using Patch = typename PatchOf<Pixel>::Type;

struct Rectangle {
  int32_t left, top, right, bottom;  // all inclusive
};

// The scratch block: bytes of a plane and of a patch, and where the patches of the first thread and the filters' memory
// begin.
struct Layout {
  int64_t plane, patchStride, patch, patches, filters;
};

// A level of the first pyramid, with its gradients in plane mode.
template <class Pixel>
struct Level {
  int32_t index;
  const Patch<Pixel>*across, *down;  // null in patch mode
  int64_t stride;
};

template <class Pixel>
struct FlowCall {
  const QoriPyramid *pyr1, *pyr2;
  const QoriPoint_32f* prevPts;
  QoriPoint_32f* nextPts;
  uint8_t* status;
  float* error;
  int32_t numPoints, winSize, maxLevel, maxIter;
  float threshold;  // squared
  QoriOptFlowState* state;
};

// One thread's patches: the first image with a ring of one pixel, the second one, and the gradients of the first.
template <class P>
struct Patches {
  P *first, *second, *across, *down;
  int64_t stride;  // of all, in bytes
};

}  // namespace

static bool isEmpty(const Rectangle& r) { return r.left > r.right || r.top > r.bottom; }

// --- scratch ---

static int64_t upTo64(int64_t bytes) { return (bytes + 63) & ~int64_t(63); }

// Work memory of the larger of the two filters, for the threads that the library may use now.
template <class Pixel>
static int32_t filterBytes(QoriSize size) {
  int32_t horizontal = 0, vertical = 0;
  if constexpr (sizeof(Pixel) == 1) {
    qoriFilterScharrHorizGetBufferSize_8u16s_C1R(size, &horizontal);
    qoriFilterScharrVertGetBufferSize_8u16s_C1R(size, &vertical);
  } else {
    qoriFilterScharrHorizGetBufferSize_32f_C1R(size, &horizontal);
    qoriFilterScharrVertGetBufferSize_32f_C1R(size, &vertical);
  }
  return horizontal > vertical ? horizontal : vertical;
}

template <class Pixel>
static Layout layoutOf(QoriSize maxSize, int32_t winSize, int32_t threadCount) {
  constexpr int64_t element = sizeof(Patch<Pixel>);
  // 16-bit levels are converted first, into a plane of their own.
  constexpr int64_t planes = sizeof(Pixel) == 2 ? 3 : 2;
  Layout l;
  l.plane = upTo64((int64_t(maxSize.width) + 5) * element) * (int64_t(maxSize.height) + 5);
  l.patchStride = upTo64((int64_t(winSize) + 2 + patchBlock) * element);
  l.patch = l.patchStride * (int64_t(winSize) + 2);
  l.patches = planes * l.plane;
  l.filters = l.patches + 4 * l.patch * threadCount;
  return l;
}

template <class Pixel>
static QorStatus initAlloc(QoriOptFlowState** state, QoriSize roiSize, int32_t winSize, int32_t hint) {
  if (anyNull(state)) return qorStatusNullPtr;
  if (winSize < 1 || emptySize(roiSize)) return qorStatusBadSize;
  const int32_t threadCount = owncvGetMaxNumThreads();
  // Far more than memory is had: the sums below, and the filters' own in 32 bits, stay in range.
  constexpr int64_t mostThreadColumns = INT32_MAX / 256, mostPixels = int64_t(1) << 40;
  if ((int64_t(roiSize.width) + 5) * threadCount > mostThreadColumns ||
      (int64_t(roiSize.width) + 5) * (int64_t(roiSize.height) + 5) > mostPixels ||
      (int64_t(winSize) + 64) * (int64_t(winSize) + 64) * threadCount > mostPixels) {
    return qorStatusNoMemory;
  }
  const Layout layout = layoutOf<Pixel>(roiSize, winSize, threadCount);
  const int64_t size = layout.filters + filterBytes<Pixel>({roiSize.width + 5, roiSize.height}) + 64;
  auto* made = static_cast<QoriOptFlowState*>(qorMalloc(sizeof(QoriOptFlowState)));
  if (!made) return qorStatusNoMemory;
  *made = {roiSize, threadCount, 1, hint, winSize, static_cast<uint8_t*>(qorMalloc(size_t(size)))};
  if (!made->buffer) {
    qorFree(made);
    return qorStatusNoMemory;
  }
  // Vectors compute with what stands behind the rows of the patches, and are slow on some floats.
  memset(alignUp<uint8_t>(made->buffer, 64) + layout.patches, 0, size_t(layout.filters - layout.patches));
  *state = made;
  return qorStatusOk;
}

static QorStatus freeState(QoriOptFlowState* state) {
  if (anyNull(state)) return qorStatusNullPtr;
  if (state->buffer) qorFree(state->buffer);
  qorFree(state);
  return qorStatusOk;
}

// --- gradient planes ---

template <class Pixel>
static const Pixel* imageOf(const QoriPyramid* pyramid, int32_t level) {
  return static_cast<const Pixel*>(pyramid->levelImages[level]);
}

static void scharr(const uint8_t* src, int32_t srcStep, int16_t* across, int16_t* down, int32_t stride, QoriSize size,
                   QoriBorderType border, uint8_t* buffer) {
  qoriFilterScharrVertBorder_8u16s_C1R(src, srcStep, across, stride, size, border, 0, buffer);
  qoriFilterScharrHorizBorder_8u16s_C1R(src, srcStep, down, stride, size, border, 0, buffer);
}

static void scharr(const float* src, int32_t srcStep, float* across, float* down, int32_t stride, QoriSize size,
                   QoriBorderType border, uint8_t* buffer) {
  qoriFilterScharrVertBorder_32f_C1R(src, srcStep, across, stride, size, border, 0, buffer);
  qoriFilterScharrHorizBorder_32f_C1R(src, srcStep, down, stride, size, border, 0, buffer);
}

// In bands too low for the filters to be shared out: their memory is that of the threads at the state's creation, and a
// filter that asks for several threads but is given one reads beyond the image.
template <class Source, class P>
static void gradientPlanes(const Source* src, int32_t srcStep, P* across, P* down, int64_t stride, QoriSize size,
                           uint8_t* buffer) {
  constexpr int32_t band = 255;
  for (int32_t y = 0; y < size.height; y += band) {
    const int32_t rows = std::min(size.height - y, band);
    QoriBorderType border = qorBorderReplicate;
    if (y > 0) border |= qorBorderRowsAbove;
    if (y + rows < size.height) border |= qorBorderRowsBelow;
    scharr(rowAt(src, srcStep, y), srcStep, rowAt(across, stride, y), rowAt(down, stride, y), int32_t(stride),
           {size.width, rows}, border, buffer);
  }
}

template <class Pixel>
static Level<Pixel> planeLevel(const FlowCall<Pixel>& c, int32_t index, const Layout& layout) {
  using P = Patch<Pixel>;
  const QoriSize size = c.pyr1->levelSizes[index];
  const Pixel* image = imageOf<Pixel>(c.pyr1, index);
  const int32_t step = c.pyr1->levelSteps[index];
  uint8_t* base = alignUp<uint8_t>(c.state->buffer, 64);
  P *across = reinterpret_cast<P*>(base), *down = reinterpret_cast<P*>(base + layout.plane);
  const int64_t stride = upTo64(int64_t(size.width) * int64_t(sizeof(P)));
  const Level<Pixel> level = {index, across, down, stride};
  // The windows of such a level fail, and their points are lost.
  if (anyNull(image) || emptySize(size) || shortStep<Pixel>(step, size) || misaligned<Pixel>(step)) return level;

  if constexpr (sizeof(Pixel) == 2) {
    auto* converted = reinterpret_cast<float*>(base + 2 * layout.plane);
    for (int32_t y = 0; y < size.height; ++y) {
      float* row = rowAt(converted, stride, y);
      qorsConvert_16u32f(rowAt(image, step, y), row, size.width);
      qorsMulC_32f_I(0.03125f, row, size.width);
    }
    gradientPlanes(converted, int32_t(stride), across, down, stride, size, base + layout.filters);
  } else {
    gradientPlanes(image, step, across, down, stride, size, base + layout.filters);
    for (int32_t y = 0; y < size.height; ++y) {
      P *acrossRow = rowAt(across, stride, y), *downRow = rowAt(down, stride, y);
      if constexpr (sizeof(Pixel) == 1) {
        qorsMulC_16s_ISfs(4, acrossRow, size.width, 0);
        qorsMulC_16s_ISfs(4, downRow, size.width, 0);
      } else {
        qorsMulC_32f_I(0.03125f, acrossRow, size.width);
        qorsMulC_32f_I(0.03125f, downRow, size.width);
      }
    }
  }
  return level;
}

// --- patches ---

// Pixels of 8 bits go into the patches times 128.
static constexpr int32_t patchScale = -7;

static QorStatus windowWithRing(const uint8_t* src, int32_t step, QoriSize size, int16_t* dst, int64_t stride,
                                int32_t side, QoriPoint_32f point, QoriPoint* min, QoriPoint* max) {
  return qoriCopySubpixIntersect_8u16u_C1R_Sfs(src, step, size, reinterpret_cast<uint16_t*>(dst), int32_t(stride),
                                               {side, side}, point, min, max, patchScale);
}
static QorStatus windowWithRing(const uint16_t* src, int32_t step, QoriSize size, float* dst, int64_t stride,
                                int32_t side, QoriPoint_32f point, QoriPoint* min, QoriPoint* max) {
  return qoriCopySubpixIntersect_16u32f_C1R(src, step, size, dst, int32_t(stride), {side, side}, point, min, max);
}
static QorStatus windowWithRing(const float* src, int32_t step, QoriSize size, float* dst, int64_t stride, int32_t side,
                                QoriPoint_32f point, QoriPoint* min, QoriPoint* max) {
  return qoriCopySubpixIntersect_32f_C1R(src, step, size, dst, int32_t(stride), {side, side}, point, min, max);
}

static QorStatus window(const uint8_t* src, int32_t step, QoriSize size, int16_t* dst, int64_t stride, int32_t side,
                        QoriPoint_32f point, QoriPoint* min, QoriPoint* max) {
  return ownGetRectSubpix_8u16u_C1R_Sfs(src, step, size, reinterpret_cast<uint16_t*>(dst), int32_t(stride),
                                        {side, side}, point, min, max, patchScale);
}
static QorStatus window(const uint16_t* src, int32_t step, QoriSize size, float* dst, int64_t stride, int32_t side,
                        QoriPoint_32f point, QoriPoint* min, QoriPoint* max) {
  return ownGetRectSubpix_16u32f_C1R(src, step, size, dst, int32_t(stride), {side, side}, point, min, max);
}
static QorStatus window(const float* src, int32_t step, QoriSize size, float* dst, int64_t stride, int32_t side,
                        QoriPoint_32f point, QoriPoint* min, QoriPoint* max) {
  return ownGetRectSubpix_32f_C1R(src, step, size, dst, int32_t(stride), {side, side}, point, min, max);
}

static void ownOptConvolution(const int16_t* top, const int16_t* middle, const int16_t* bottom, int16_t* across,
                              int16_t* down, int32_t width) {
  ownOptConvolution_16s_C1R(top, middle, bottom, across, down, width);
}
static void ownOptConvolution(const float* top, const float* middle, const float* bottom, float* across, float* down,
                              int32_t width) {
  ownOptConvolution_32f_C1R(top, middle, bottom, across, down, width);
}

template <class P>
static void gradientsOfPatch(const Patches<P>& patches, int32_t side) {
  for (int32_t y = 0; y < side; ++y) {
    ownOptConvolution(rowAt(patches.first, patches.stride, y), rowAt(patches.first, patches.stride, ptrdiff_t(y) + 1),
                      rowAt(patches.first, patches.stride, ptrdiff_t(y) + 2), rowAt(patches.across, patches.stride, y),
                      rowAt(patches.down, patches.stride, y), side);
  }
}

// The planes hold as many pixels as the level, so only what lies inside is taken from them.
template <class Pixel>
static void gradientsOfPlanes(const FlowCall<Pixel>& c, const Level<Pixel>& level, const Patches<Patch<Pixel>>& patches,
                              QoriPoint_32f point, const Rectangle& inside) {
  using P = Patch<Pixel>;
  if (isEmpty(inside)) return;
  const QoriSize size = c.pyr1->levelSizes[level.index];
  const SubpixPlacement columns = placeSubpix(point.x, c.winSize + 2, size.width);
  const SubpixPlacement rows = placeSubpix(point.y, c.winSize + 2, size.height);
  const ptrdiff_t x = columns.start + 1 + inside.left, y = rows.start + 1 + inside.top;
  const int32_t width = inside.right - inside.left + 1, height = inside.bottom - inside.top + 1;
  // Rounding may leave a little less than nothing.
  const float right = columns.fraction > 0 ? columns.fraction : 0, below = rows.fraction > 0 ? rows.fraction : 0;
  const auto sample = [&](const P* plane, P* patch) {
    const P* src = rowAt(plane, level.stride, y) + x;
    P* dst = rowAt(patch, patches.stride, inside.top) + inside.left;
    if constexpr (sizeof(Pixel) == 1) {
      const PlaneWeights weights = planeWeights(right, below);
      for (int32_t i = 0; i < height; ++i) {
        ownModifiedConvolution_16s_C1R(rowAt(src, level.stride, i), rowAt(src, level.stride, ptrdiff_t(i) + 1),
                                       rowAt(dst, patches.stride, i), width, weights);
      }
    } else {
      qoriCopySubpix_32f_C1R(src, int32_t(level.stride), dst, int32_t(patches.stride), {width, height}, right, below);
    }
  };
  sample(level.across, patches.across);
  sample(level.down, patches.down);
}

// Rectangles count in the columns and rows of the gradients, which lack the ring of the first image.
template <class P>
static PatchArea<P> areaOf(const Patches<P>& patches, const Rectangle& r) {
  const auto at = [&](const P* patch, ptrdiff_t x, ptrdiff_t y) { return rowAt(patch, patches.stride, y) + x; };
  return {at(patches.across, r.left, r.top),
          at(patches.down, r.left, r.top),
          at(patches.first, ptrdiff_t(r.left) + 1, ptrdiff_t(r.top) + 1),
          at(patches.second, r.left, r.top),
          patches.stride,
          r.right - r.left + 1,
          r.bottom - r.top + 1};
}

// --- tracking ---

// One point at one level. Tells by its status whether it was lost.
template <class Pixel>
static void track(const FlowCall<Pixel>& c, const Level<Pixel>& level, const Patches<Patch<Pixel>>& patches,
                  int32_t point) {
  const int32_t l = level.index, side = c.winSize;
  uint8_t& status = c.status[point];
  if (status != uint8_t(l + 1)) return;
  status = uint8_t(l);

  const double rate = c.pyr1->levelRates[l];
  const QoriPoint_32f p = {float(c.prevPts[point].x * rate), float(c.prevPts[point].y * rate)};
  QoriPoint_32f q = {float(c.nextPts[point].x * rate), float(c.nextPts[point].y * rate)};
  const auto putNext = [&](double divisor) { c.nextPts[point] = {float(q.x / divisor), float(q.y / divisor)}; };

  bool lost = false;
  Rectangle sums = {0, 0, -1, -1};  // over which the sums run
  QoriPoint min, max;
  if (windowWithRing(imageOf<Pixel>(c.pyr1, l), c.pyr1->levelSteps[l], c.pyr1->levelSizes[l], patches.first,
                     patches.stride, side + 2, p, &min, &max) != qorStatusOk) {
    lost = true;
  } else {
    const Rectangle inside = {min.x > 0 ? min.x - 1 : 0, min.y > 0 ? min.y - 1 : 0, max.x > side ? side - 1 : max.x - 1,
                              max.y > side ? side - 1 : max.y - 1};
    if (level.across) {
      gradientsOfPlanes(c, level, patches, p, inside);
    } else {
      gradientsOfPatch(patches, side);
    }

    GradientSums g = {};
    float previousX = FLT_MAX / 4, previousY = FLT_MAX / 4;
    const float still = sqrtf(1.1920928955078125e-7f);
    for (int32_t iteration = 1; iteration <= c.maxIter; ++iteration) {
      if (window(imageOf<Pixel>(c.pyr2, l), c.pyr2->levelSteps[l], c.pyr2->levelSizes[l], patches.second,
                 patches.stride, side, q, &min, &max) != qorStatusOk) {
        lost = true;
        break;
      }
      const Rectangle now = {inside.left > min.x ? inside.left : min.x, inside.top > min.y ? inside.top : min.y,
                             inside.right < max.x ? inside.right : max.x,
                             inside.bottom < max.y ? inside.bottom : max.y};
      const bool moved = iteration == 1 || memcmp(&now, &sums, sizeof now) != 0;
      sums = now;
      if (isEmpty(now)) {
        putNext(rate);
        lost = true;
        break;
      }

      const PatchArea<Patch<Pixel>> area = areaOf(patches, now);
      if (moved) g = gradientSums(area);
      const MismatchSums b = mismatchSums(area);
      const double determinant = g.xx * g.yy - g.xy * g.xy;
      if (determinant < DBL_EPSILON) {
        lost = true;
        break;
      }
      const float dx = float((g.yy * b.xd - g.xy * b.yd) / determinant);
      const float dy = float((g.xx * b.yd - g.xy * b.xd) / determinant);
      q.x += dx;
      q.y += dy;
      if (dx * dx + dy * dy < c.threshold) break;
      if (fabsf(previousX + dx) < still && fabsf(previousY + dy) < still) {
        // To and fro: the middle is as good as either end.
        q.x -= dx * 0.5f;
        q.y -= dy * 0.5f;
        break;
      }
      previousX = dx;
      previousY = dy;
    }
  }

  if (lost) {
    status = uint8_t(l + 1);
  } else if (l > 0) {
    putNext(rate);
  } else {
    c.nextPts[point] = q;
  }

  const Rectangle withoutFarEdge = {sums.left, sums.top, sums.right - 1, sums.bottom - 1};
  double error = 0;
  if (!isEmpty(withoutFarEdge)) {
    const PatchArea<Patch<Pixel>> area = areaOf(patches, withoutFarEdge);
    error = squaredError(area);
    error = error > 0 ? sqrt(error / (double(area.width) * area.height)) : 0;
    if (sizeof(Pixel) == 1) error *= 0.0078125;
  }
  c.error[point] = float(error);
}

template <class Pixel>
static Patches<Patch<Pixel>> patchesOf(const FlowCall<Pixel>& c, const Layout& layout, int32_t thread) {
  using P = Patch<Pixel>;
  uint8_t* base = alignUp<uint8_t>(c.state->buffer, 64) + layout.patches + 4 * layout.patch * thread;
  const auto patch = [&](int32_t i) { return reinterpret_cast<P*>(base + i * layout.patch); };
  return {patch(0), patch(1), patch(2), patch(3), layout.patchStride};
}

// Runs body(patches, point) on all points. No more threads than there are patches for.
template <class Pixel, class Body>
static void forPoints(const FlowCall<Pixel>& c, const Layout& layout, Body body) {
  const int32_t suggested = ownGetNumThreads(), threads = std::min(suggested, c.state->threadCount);
  runTeam(c.numPoints, std::max(threads, 1), [&](const Stripe& stripe) {
    if (stripe.rows < 1) return;
    const auto patches = patchesOf(c, layout, stripe.thread);
    for (int32_t point = stripe.row; point < stripe.row + stripe.rows; ++point) body(patches, point);
  });
}

static bool noArrays(const QoriPyramid* pyramid) {
  return anyNull(pyramid->levelImages, pyramid->levelSizes, pyramid->levelRates, pyramid->levelSteps);
}

template <class Pixel>
static QorStatus opticalFlow(FlowCall<Pixel> c) {
  if (anyNull(c.pyr1, c.pyr2, c.state, c.prevPts, c.nextPts, c.status, c.error)) return qorStatusNullPtr;
  if (noArrays(c.pyr1) || noArrays(c.pyr2)) return qorStatusNullPtr;
  if (c.numPoints < 1 || c.winSize < 1 || c.winSize != c.state->winSize) return qorStatusBadSize;
  if (c.maxLevel < 0 || c.maxIter < 1) return qorStatusBadArg;
  if (c.threshold < 0) return qorStatusBadArg;
  if (c.maxLevel > c.pyr1->topLevel || c.maxLevel > c.pyr2->topLevel) return qorStatusBadArg;

  c.threshold *= c.threshold;
  memset(c.status, uint8_t(c.maxLevel + 1), size_t(c.numPoints));
  const Layout layout = layoutOf<Pixel>(c.state->maxSize, c.winSize, c.state->threadCount);
  int32_t l = c.maxLevel;
  for (; l >= 0; --l) {
    const QoriSize size = c.pyr1->levelSizes[l];
    if (size.width >= c.state->maxSize.width || size.height >= c.state->maxSize.height) break;
    const Level<Pixel> level = planeLevel(c, l, layout);
    forPoints(c, layout, [&](const auto& patches, int32_t point) { track(c, level, patches, point); });
  }
  if (l < 0) return qorStatusOk;
  forPoints(c, layout, [&](const auto& patches, int32_t point) {
    for (int32_t i = l; i >= 0; --i) track(c, Level<Pixel>{i, nullptr, nullptr, 0}, patches, point);
  });
  return qorStatusOk;
}

// --- exported functions ---

#define QOR_OPTICAL_FLOW(form, Pixel)                                                                            \
  QorStatus qoriOpticalFlowPyrLKInitAlloc_##form(QoriOptFlowState** state, QoriSize roiSize, int32_t winSize,    \
                                                 int32_t hint) {                                                 \
    return initAlloc<Pixel>(state, roiSize, winSize, hint);                                                      \
  }                                                                                                              \
  QorStatus qoriOpticalFlowPyrLKFree_##form(QoriOptFlowState* state) { return freeState(state); }                \
  QorStatus qoriOpticalFlowPyrLK_##form(const QoriPyramid* pyr1, const QoriPyramid* pyr2,                        \
                                        const QoriPoint_32f* prevPts, QoriPoint_32f* nextPts, uint8_t* status,   \
                                        float* error, int32_t numPoints, int32_t winSize, int32_t maxLevel,      \
                                        int32_t maxIter, float threshold, QoriOptFlowState* state) {             \
    return opticalFlow<Pixel>(                                                                                   \
        {pyr1, pyr2, prevPts, nextPts, status, error, numPoints, winSize, maxLevel, maxIter, threshold, state}); \
  }

QOR_OPTICAL_FLOW(8u_C1R, uint8_t)
QOR_OPTICAL_FLOW(16u_C1R, uint16_t)
QOR_OPTICAL_FLOW(32f_C1R, float)
#undef QOR_OPTICAL_FLOW
