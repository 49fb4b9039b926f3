// The watershed by sweeps: costs are relaxed in alternate passes over the rows until nothing changes.
//
// A cost is a key: the level of the flood in the upper bits, the length of the path at that level in the lower 23. Each
// pixel also knows the neighbour that its label came from, so that it follows when that one is labelled anew.
//
// One thread does the passes in the order that the contract states. With several, ties are free, and the order is
// simpler: rows between stripes are settled while all stripes rest, the stripes while those rows rest, each pixel
// against all its neighbours, until the rows between stripes are quiet.
//
// Odd: in the first pass costs and labels are written without a comparison, "no label" included, so the costs of pixels
// that no label reaches grow along the rows. Sums of costs wrap in images of more than 65536 columns.
#include <string.h>

#include <algorithm>
#include <limits>

#include "frame/frame.h"
#include "segment/bounds.h"
#include "segment/watershed.h"

namespace {

constexpr int32_t levelShift = 23, unlabelled = 0x7fc00000, fastMarchingStep = 63, mostThreads = 32;

// Where a label came from.
enum Direction : uint8_t { seed, right, aboveRight, above, aboveLeft, left, belowLeft, below, belowRight, notReached };

enum class Shape { four, eight, fastMarching };

constexpr int32_t FMM_SUB[65] = {19, 18, 18, 17, 17, 16, 16, 15, 15, 14, 14, 14, 13, 13, 12, 12, 11, 11, 11, 10, 10, 9,
                                 9,  9,  8,  8,  8,  7,  7,  7,  6,  6,  6,  5,  5,  5,  4,  4,  4,  4,  3,  3,  3,  3,
                                 2,  2,  2,  2,  2,  1,  1,  1,  1,  1,  1,  1,  0,  0,  0,  0,  0,  0,  0,  0,  0};

template <class T>
struct Sweeps {
  const uint8_t* src;
  int32_t srcStep;
  T* labels;
  int32_t labelStep;
  QoriSize size;
  int32_t straight, diagonal;  // steps
  ptrdiff_t stride;            // elements of a row of each plane
  int32_t* cost;
  uint8_t *direction, *change, *rowFlag;  // change and rowFlag point to row 0; there is one more row at either end
  ptrdiff_t source[10];                   // bytes from a label to the one it came from
};

// Key is int32_t where sums wrap as signed numbers do, uint32_t where they must not.
template <class Key>
struct Offer {
  Key cost;
  uint8_t direction;
};

}  // namespace

template <class Key>
static inline void consider(Offer<Key>& best, int32_t cost, int32_t step, uint8_t direction) {
  const Key offered = Key(Key(cost) + Key(step));
  if (offered < best.cost) best = {offered, direction};
}

template <class Key>
static inline Offer<Key> offerOf(int32_t cost, int32_t step, uint8_t direction) {
  return {Key(Key(cost) + Key(step)), direction};
}

// Two neighbours at a right angle: the closer they are to each other, the shorter is the way across.
template <class Key>
static inline Offer<Key> pairOffer(Offer<Key> horizontal, Offer<Key> vertical) {
  Offer<Key> lower = horizontal.cost <= vertical.cost ? horizontal : vertical;
  const Key higher = horizontal.cost <= vertical.cost ? vertical.cost : horizontal.cost;
  const uint32_t difference = uint32_t(higher) - uint32_t(lower.cost);
  if (difference <= 63) lower.cost = Key(lower.cost - Key(FMM_SUB[difference]));
  return lower;
}

// What a pixel of grey value v would cost.
template <class Key>
static inline Key costOf(uint8_t v, Key offered) {
  return std::max(Key(Key(v) << levelShift), Key(offered + 1));
}

template <class T>
static inline T sourceLabel(const Sweeps<T>& s, const T* label, uint8_t direction) {
  return *reinterpret_cast<const T*>(reinterpret_cast<uintptr_t>(label) + uintptr_t(s.source[direction]));
}

template <class T>
static void startRow(const Sweeps<T>& s, int32_t y, int32_t costUnlabelled) {
  const T* labels = rowAt(s.labels, s.labelStep, y);
  const uint8_t* src = rowAt(s.src, s.srcStep, y);
  int32_t* cost = s.cost + y * s.stride;
  uint8_t* direction = s.direction + y * s.stride;
  for (int32_t x = 0; x < s.size.width; ++x) {
    cost[x] = labels[x] != 0 ? int32_t(src[x]) << levelShift : costUnlabelled;
    direction[x] = labels[x] != 0 ? seed : notReached;
  }
}

// A changed pixel: all its neighbours in rows first .. last have to be tried.
template <class T, Shape shape>
static inline void raiseFlags(const Sweeps<T>& s, int32_t x, int32_t y, int32_t first, int32_t last) {
  uint8_t* own = s.change + y * s.stride + x;
  const bool onLeft = x > 0, onRight = x < s.size.width - 1;
  if (onLeft) own[-1] = 1;
  if (onRight) own[1] = 1;
  for (int32_t dy = -1; dy <= 1; dy += 2) {
    if (y + dy < first || y + dy > last) continue;
    uint8_t* other = own + dy * s.stride;
    *other = 1;
    if (shape == Shape::eight && onLeft) other[-1] = 1;
    if (shape == Shape::eight && onRight) other[1] = 1;
  }
  *own = 0;
}

// Takes an offer that is better, or else the label that the pixel's source has by now. True if anything changed.
template <class T, Shape shape, class Key>
static inline bool tryPixel(const Sweeps<T>& s, int32_t x, int32_t y, Offer<Key> offer, int32_t first, int32_t last,
                            bool& lowered) {
  const ptrdiff_t at = y * s.stride + x;
  T* label = rowAt(s.labels, s.labelStep, y) + x;
  const Key cost = costOf<Key>(rowAt(s.src, s.srcStep, y)[x], offer.cost);
  if (cost < Key(s.cost[at])) {
    s.cost[at] = int32_t(cost);
    s.direction[at] = offer.direction;
    *label = sourceLabel(s, label, offer.direction);
    lowered = true;
  } else {
    const uint8_t direction = s.direction[at];
    const T now = direction == notReached ? *label : sourceLabel(s, label, direction);
    if (now == *label) {
      s.change[at] = 0;
      return false;
    }
    *label = now;
  }
  raiseFlags<T, shape>(s, x, y, first, last);
  return true;
}

// --- one thread ---

// Candidates of the run to the right: those on the left and in the row that the pass comes from, dy away.
template <class T, Shape shape, int32_t dy>
static inline Offer<int32_t> fromLeft(const Sweeps<T>& s, const int32_t* cost, int32_t x) {
  const int32_t* there = cost + dy * s.stride;
  const Offer<int32_t> vertical = offerOf<int32_t>(there[x], s.straight, dy < 0 ? above : below);
  if (x == 0) return vertical;
  Offer<int32_t> best = offerOf<int32_t>(cost[x - 1], s.straight, left);
  if (shape == Shape::fastMarching) return pairOffer(best, vertical);
  if (shape == Shape::eight) consider(best, there[x - 1], s.diagonal, dy < 0 ? aboveLeft : belowLeft);
  if (vertical.cost < best.cost) best = vertical;
  if (shape == Shape::eight && x < s.size.width - 1) {
    consider(best, there[x + 1], s.diagonal, dy < 0 ? aboveRight : belowRight);
  }
  return best;
}

template <class T, Shape shape, int32_t dy, bool firstPass>
static inline Offer<int32_t> fromRight(const Sweeps<T>& s, const int32_t* cost, int32_t x) {
  const int32_t* there = cost + dy * s.stride;
  Offer<int32_t> best = offerOf<int32_t>(cost[x + 1], s.straight, right);
  if (shape == Shape::fastMarching) {
    return pairOffer(best, offerOf<int32_t>(there[x], s.straight, dy < 0 ? above : below));
  }
  // Odd: of all passes only the first looks up again on its way back, and only with eight neighbours.
  if (shape == Shape::eight && firstPass) consider(best, there[x], s.straight, above);
  return best;
}

// Takes an offer without asking what the pixel had.
template <class T>
static inline void takeOffer(const Sweeps<T>& s, int32_t x, int32_t y, Offer<int32_t> offer, int32_t cost) {
  const ptrdiff_t at = y * s.stride + x;
  T* label = rowAt(s.labels, s.labelStep, y) + x;
  *label = sourceLabel(s, label, offer.direction);
  s.cost[at] = cost;
  s.direction[at] = offer.direction;
}

template <class T>
static void ownWSTopRow(const Sweeps<T>& s) {
  startRow(s, 0, unlabelled);
  const uint8_t* src = s.src;
  for (int32_t x = 1; x < s.size.width; ++x) {
    if (s.direction[x] == seed) continue;
    const Offer<int32_t> offer = offerOf<int32_t>(s.cost[x - 1], s.straight, left);
    takeOffer(s, x, 0, offer, costOf(src[x], offer.cost));
  }
  for (int32_t x = s.size.width - 2; x >= 0; --x) {
    if (s.direction[x] == seed) continue;
    const Offer<int32_t> offer = offerOf<int32_t>(s.cost[x + 1], s.straight, right);
    const int32_t cost = costOf(src[x], offer.cost);
    if (cost < s.cost[x]) takeOffer(s, x, 0, offer, cost);
  }
}

template <class T, Shape shape>
static void ownWSNextFirst(const Sweeps<T>& s) {
  for (int32_t y = 1; y < s.size.height; ++y) {
    startRow(s, y, unlabelled);
    const uint8_t* src = rowAt(s.src, s.srcStep, y);
    const int32_t* cost = s.cost + y * s.stride;
    const uint8_t* direction = s.direction + y * s.stride;
    for (int32_t x = 0; x < s.size.width; ++x) {
      if (direction[x] == seed) continue;
      const Offer<int32_t> offer = fromLeft<T, shape, -1>(s, cost, x);
      takeOffer(s, x, y, offer, costOf(src[x], offer.cost));
    }
    for (int32_t x = s.size.width - 2; x >= 0; --x) {
      if (direction[x] == seed) continue;
      const Offer<int32_t> offer = fromRight<T, shape, -1, true>(s, cost, x);
      const int32_t offered = costOf(src[x], offer.cost);
      if (offered < cost[x]) takeOffer(s, x, y, offer, offered);
    }
  }
}

// One row of a later pass; `check`: only pixels whose change flag is up. Returns 1 if any pixel changed.
template <class T, Shape shape, int32_t dy, bool check>
static int32_t laterRow(const Sweeps<T>& s, int32_t y, bool& lowered) {
  uint8_t* flag = s.rowFlag + y;
  if (check && !*flag) return 0;
  const int32_t* cost = s.cost + y * s.stride;
  const uint8_t *direction = s.direction + y * s.stride, *change = s.change + y * s.stride;
  const int32_t width = s.size.width, last = s.size.height - 1;
  bool changed = false;
  for (int32_t x = 0; x < width; ++x) {
    if (direction[x] == seed || (check && !change[x])) continue;
    changed |= tryPixel<T, shape>(s, x, y, fromLeft<T, shape, dy>(s, cost, x), 0, last, lowered);
  }
  for (int32_t x = width - 2; x >= 0; --x) {
    if (direction[x] == seed || (check && !change[x])) continue;
    changed |= tryPixel<T, shape>(s, x, y, fromRight<T, shape, dy, false>(s, cost, x), 0, last, lowered);
  }
  *flag = 0;
  if (changed) flag[-1] = flag[1] = 1;
  return changed;
}

template <class T, Shape shape>
static void ownWSNextSet(const Sweeps<T>& s) {
  bool lowered = false;
  for (int32_t y = s.size.height - 2; y >= 0; --y) laterRow<T, shape, 1, false>(s, y, lowered);
}

template <class T, Shape shape>
static void ownWSNextCheck(const Sweeps<T>& s) {
  // Labels travel along chains of sources, which are no longer than there are pixels, unless wrapped costs made a chain
  // bite its tail: then it would turn forever.
  const int64_t longest = int64_t(s.size.width) * s.size.height;
  int64_t passesWithoutLowering = 0;
  for (int32_t changed = 1; changed && passesWithoutLowering <= longest;) {
    bool lowered = false;
    for (int32_t y = 1; y < s.size.height; ++y) laterRow<T, shape, -1, true>(s, y, lowered);
    changed = 0;
    for (int32_t y = s.size.height - 2; y >= 0; --y) changed += laterRow<T, shape, 1, true>(s, y, lowered);
    passesWithoutLowering = lowered ? 0 : passesWithoutLowering + 1;
  }
}

template <class T, Shape shape>
static void sweepAlone(const Sweeps<T>& s) {
  memset(s.change - s.stride, 0, size_t(s.size.height + 2) * size_t(s.stride));
  memset(s.rowFlag - 1, 1, size_t(s.size.height) + 2);
  ownWSTopRow(s);
  if (s.size.height == 1) return;
  ownWSNextFirst<T, shape>(s);
  ownWSNextSet<T, shape>(s);
  ownWSNextCheck<T, shape>(s);
}

// --- several threads ---

// Costs of pixels without a label: no offer from them is ever better, since sums do not wrap here.
static constexpr int32_t nothingYet = std::numeric_limits<int32_t>::max();

struct StripeChanges {
  bool any, first, last;  // in any row, in the first, in the last
};

// The best offer of all neighbours; `inside`: there are eight.
template <class T, Shape shape, bool inside>
static inline Offer<uint32_t> fromAll(const Sweeps<T>& s, int32_t x, int32_t y) {
  const int32_t* cost = s.cost + y * s.stride + x;
  const bool onLeft = inside || x > 0, onRight = inside || x < s.size.width - 1;
  const bool onTop = inside || y > 0, onBottom = inside || y < s.size.height - 1;
  Offer<uint32_t> best = {0xffff0000u, notReached};
  if (shape == Shape::fastMarching) {
    const Offer<uint32_t> sides[2] = {offerOf<uint32_t>(onLeft ? cost[-1] : nothingYet, s.straight, left),
                                      offerOf<uint32_t>(onRight ? cost[1] : nothingYet, s.straight, right)};
    const Offer<uint32_t> ends[2] = {offerOf<uint32_t>(onTop ? cost[-s.stride] : nothingYet, s.straight, above),
                                     offerOf<uint32_t>(onBottom ? cost[s.stride] : nothingYet, s.straight, below)};
    for (const Offer<uint32_t>& side : sides) {
      for (const Offer<uint32_t>& end : ends) {
        const Offer<uint32_t> offer = pairOffer(side, end);
        if (offer.cost < best.cost) best = offer;
      }
    }
    return best;
  }
  if (onLeft) consider(best, cost[-1], s.straight, left);
  if (onRight) consider(best, cost[1], s.straight, right);
  for (int32_t dy = -1; dy <= 1; dy += 2) {
    if (!(dy < 0 ? onTop : onBottom)) continue;
    const int32_t* there = cost + dy * s.stride;
    if (shape == Shape::eight && onLeft) consider(best, there[-1], s.diagonal, dy < 0 ? aboveLeft : belowLeft);
    consider(best, there[0], s.straight, dy < 0 ? above : below);
    if (shape == Shape::eight && onRight) consider(best, there[1], s.diagonal, dy < 0 ? aboveRight : belowRight);
  }
  return best;
}

// Tries the pixels of a row to the right and back; `check`: those whose change flag is up. Flags are raised in rows
// first .. last only: the others belong to somebody else.
template <class T, Shape shape, bool check>
static bool tryRow(const Sweeps<T>& s, int32_t y, int32_t first, int32_t last) {
  const uint8_t *direction = s.direction + y * s.stride, *change = s.change + y * s.stride;
  const int32_t width = s.size.width;
  const bool innerRow = y > 0 && y < s.size.height - 1;
  bool changed = false, lowered = false;
  const auto tryAt = [&](int32_t x) {
    if (direction[x] == seed || (check && !change[x])) return;
    const Offer<uint32_t> offer =
        innerRow && x > 0 && x < width - 1 ? fromAll<T, shape, true>(s, x, y) : fromAll<T, shape, false>(s, x, y);
    changed |= tryPixel<T, shape>(s, x, y, offer, first, last, lowered);
  };
  for (int32_t x = 0; x < width; ++x) tryAt(x);
  for (int32_t x = width - 1; x >= 0; --x) tryAt(x);
  // What the last run flagged is for the next time.
  s.rowFlag[y] = changed;
  if (changed) {
    if (y > first) s.rowFlag[y - 1] = 1;
    if (y < last) s.rowFlag[y + 1] = 1;
  }
  return changed;
}

// Once down a stripe and up again. More would be in vain before the rows between stripes have passed on what is new.
template <class T, Shape shape>
static StripeChanges sweepStripe(const Sweeps<T>& s, int32_t first, int32_t last) {
  StripeChanges changes = {false, false, false};
  const auto visit = [&](int32_t y) {
    if (!s.rowFlag[y] || !tryRow<T, shape, true>(s, y, first, last)) return;
    changes.any = true;
    changes.first |= y == first;
    changes.last |= y == last;
  };
  for (int32_t y = first; y <= last; ++y) visit(y);
  for (int32_t y = last; y >= first; --y) visit(y);
  return changes;
}

// A row between stripes, until it is quiet; it has no flags of its own. True if it changed at all.
template <class T, Shape shape>
static bool settleBoundary(const Sweeps<T>& s, int32_t y) {
  const int32_t first = std::max(y - 1, 0), last = std::min(y + 1, s.size.height - 1);
  bool changed = false;
  while (tryRow<T, shape, false>(s, y, first, last)) changed = true;
  return changed;
}

// Row number i of those that lie between stripes, above the first and below the last.
static inline int32_t boundaryRow(int32_t height, int32_t stripes, int32_t i) {
  if (i == stripes) return height - 1;
  const float rows = float(height - stripes - 1) / float(stripes);
  return std::min(int32_t(float(i) * (1 + rows) + 0.5f), height - 1);
}

template <class T, Shape shape>
static void sweepTogether(const Sweeps<T>& s, int32_t stripes) {
  const int32_t height = s.size.height;
  StripeChanges stripe[mostThreads];
  bool boundary[mostThreads + 1];
#pragma omp parallel num_threads(stripes)
  {
    const int32_t thread = owncvGetIdThreads(), threads = owncvGetNumThreads();
    for (int32_t i = thread; i < stripes; i += threads) {
      const int32_t first = boundaryRow(height, stripes, i);
      const int32_t limit = i == stripes - 1 ? height : boundaryRow(height, stripes, i + 1);
      for (int32_t y = first; y < limit; ++y) {
        startRow(s, y, nothingYet);
        memset(s.change + y * s.stride, 1, size_t(s.stride));
        s.rowFlag[y] = 1;
      }
    }
    for (bool quiet = false, atFirst = true; !quiet; atFirst = false) {
#pragma omp barrier
      for (int32_t i = thread; i < stripes; i += threads) {
        stripe[i] =
            sweepStripe<T, shape>(s, boundaryRow(height, stripes, i) + 1, boundaryRow(height, stripes, i + 1) - 1);
      }
#pragma omp barrier
      for (int32_t i = thread; i <= stripes; i += threads) {
        const bool touched = atFirst || (i > 0 && stripe[i - 1].last) || (i < stripes && stripe[i].first);
        boundary[i] = touched && settleBoundary<T, shape>(s, boundaryRow(height, stripes, i));
      }
#pragma omp barrier
      quiet = !boundary[stripes];
      for (int32_t i = 0; i < stripes; ++i) quiet &= !stripe[i].any && !boundary[i];
    }
  }
}

// --- frame ---

template <class T, Shape shape>
static void sweep(const Sweeps<T>& s, int32_t stripes) {
  if (stripes < 2) {
    sweepAlone<T, shape>(s);
  } else {
    sweepTogether<T, shape>(s, stripes);
  }
}

static void drawBounds(const Sweeps<uint8_t>& s, int32_t four) {
  ownBoundSegments_8u_C1IR(s.labels, s.labelStep, s.cost, 4 * s.stride, s.size, 255, four);
}

static void drawBounds(const Sweeps<uint16_t>& s, int32_t four) {
  ownBoundSegments_16u_C1IR(s.labels, s.labelStep, s.cost, 4 * s.stride, s.size, 65535, four);
}

template <class T>
static void segmentInSweeps(const uint8_t* src, int32_t srcStep, T* markers, int32_t markerStep, QoriSize roiSize,
                            int32_t norm, int32_t flag, uint8_t* buffer) {
  const ptrdiff_t stride = watershedRow<T>(roiSize.width), height = roiSize.height;
  Sweeps<T> s;
  s.src = src;
  s.srcStep = srcStep;
  s.labels = markers;
  s.labelStep = markerStep;
  s.size = roiSize;
  s.stride = stride;
  s.cost = alignUp<int32_t>(buffer, 32);
  s.direction = reinterpret_cast<uint8_t*>(s.cost + height * stride);
  s.change = s.direction + (height + 1) * stride;
  s.rowFlag = s.change + (height + 1) * stride + 1;
  const ptrdiff_t element = sizeof(T), row = markerStep;
  const ptrdiff_t source[10] = {0,        element,       element - row, -row,          -element - row,
                                -element, row - element, row,           row + element, 0};
  memcpy(s.source, source, sizeof source);

  // In one column there are no diagonals and no pairs, and distances are not measured either.
  if (roiSize.width == 1) norm = qorNormL1;
  s.straight = norm == qorNormL2 ? 10 : norm == qorNormFM ? fastMarchingStep : 0;
  s.diagonal = norm == qorNormL2 ? 14 : 0;
  int32_t stripes =
      std::min({std::min(owncvGetMaxNumThreads(), mostThreads), roiSize.height >> 3, pixels(roiSize) >> 8});
  if (stripes >= 2) stripes = std::min(stripes, ownGetNumThreads());
  if (norm == qorNormL1) {
    sweep<T, Shape::four>(s, stripes);
  } else if (norm == qorNormFM) {
    sweep<T, Shape::fastMarching>(s, stripes);
  } else {
    sweep<T, Shape::eight>(s, stripes);
  }
  if (flag & (qorSegmentBorder4 | qorSegmentBorder8)) drawBounds(s, (flag & qorSegmentBorder4) != 0);
}

void ownSegmentWatershedSweeps_8u_C1IR(const uint8_t* src, int32_t srcStep, uint8_t* markers, int32_t markerStep,
                                       QoriSize roiSize, int32_t norm, int32_t flag, uint8_t* buffer) {
  segmentInSweeps(src, srcStep, markers, markerStep, roiSize, norm, flag, buffer);
}

void ownSegmentWatershedSweeps_8u16u_C1IR(const uint8_t* src, int32_t srcStep, uint16_t* markers, int32_t markerStep,
                                          QoriSize roiSize, int32_t norm, int32_t flag, uint8_t* buffer) {
  segmentInSweeps(src, srcStep, markers, markerStep, roiSize, norm, flag, buffer);
}
