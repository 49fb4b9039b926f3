// Fast marching: distances by the equation |grad u| = 1 from the edge of a mask, inside it and, with a radius, as
// negative values outside it too.
//
// There is no queue. Rows are swept down and up, each from left to right and back, until a sweep changes nothing. After
// two sweeps over all pixels, only those are visited whose neighbours have changed: four bits a pixel tell which passes
// have to, one flag a row tells where any does. Two threads work from the two ends of the image toward a row where they
// meet, each with its own bits and flags of that row.
#include <math.h>
#include <string.h>

#include "frame/frame.h"

static constexpr float farValue = 999999.0f;  // of a mask pixel of which nothing is known
// Of a pixel beside the mask: below 0 as all outside, and as good as 0 in sums.
static constexpr float outsideEdgeValue = -1e-10f;

enum : uint8_t { passDownRight = 1, passDownLeft = 2, passUpRight = 4, passUpLeft = 8 };
static constexpr uint8_t passRight = passDownRight | passUpRight, passLeft = passDownLeft | passUpLeft;
static constexpr uint8_t passDown = passDownRight | passDownLeft, passUp = passUpRight | passUpLeft;

struct Marching {
  const uint8_t* src;
  ptrdiff_t srcStep;
  float* dst;
  ptrdiff_t dstStep;
  int32_t width, height;
  float lowest;      // limit of the values outside
  uint8_t* pending;  // row 0; there is room for rows -1 to height + 1
  ptrdiff_t stateStep;
  uint8_t* rowFlags;  // the same
};

static int32_t stateStepOf(int32_t width) { return (width + 31) & ~31; }

// --- pixels ---

static inline float smaller(float a, float b) { return a < b ? a : b; }
static inline float larger(float a, float b) { return a > b ? a : b; }

static inline float candidateInside(float a, float b) {
  const float d = a - b;
  if (fabsf(d) >= 1.0f) return smaller(a, b) + 1.0f;
  return (a + b + sqrtf(2.0f - d * d)) * 0.5f;
}

static inline float candidateOutside(float a, float b) {
  if (a == 0 || b == 0) return smaller(a, b) - 1.0f;
  const double d = double(a - b);
  if (fabs(d) >= 1.0) return larger(a, b) - 1.0f;
  return (a + b - float(sqrt(2.0 - d * d))) * 0.5f;
}

// Values inside only fall. All these tell whether the value has changed.
static inline bool lower(float candidate, float* value) {
  if (!(candidate < *value)) return false;
  *value = candidate;
  return true;
}

// Values outside rise toward 0, once they have left it.
static inline bool raise(float a, float b, float lowest, float* value) {
  float raised = outsideEdgeValue;
  if (!(a > 0 || b > 0)) {
    if (a == 0 && b == 0) return false;
    raised = candidateOutside(a, b);
    if (!(raised >= lowest) || !(*value == 0 || raised > *value)) return false;
  }
  if (raised == *value) return false;
  *value = raised;
  return true;
}

// From the neighbours `a` above or below and `b` to the side.
template <bool outside>
static inline bool update(const Marching& m, uint8_t inside, float a, float b, float* value) {
  if (!inside) return outside && raise(a, b, m.lowest, value);
  if (outside) {
    a = larger(a, 0.0f);
    b = larger(b, 0.0f);
  }
  // No candidate is below both neighbours, rounding included.
  if (!(smaller(a, b) < *value)) return false;
  return lower(candidateInside(a, b), value);
}

// From one neighbour only.
template <bool outside>
static inline bool updateAlone(const Marching& m, uint8_t inside, float a, float* value) {
  if (!inside) return outside && raise(a, 0.0f, m.lowest, value);
  return lower((outside ? larger(a, 0.0f) : a) + 1.0f, value);
}

// The first pixel of a row has no neighbour to its left.
template <bool outside>
static inline bool updateAt(const Marching& m, const uint8_t* mask, const float* line, float* value, int32_t x,
                            int32_t side) {
  if (side < 0) return updateAlone<outside>(m, mask[x], line[x], value + x);
  return update<outside>(m, mask[x], line[x], value[side], value + x);
}

// --- rows ---

static inline const uint8_t* maskRow(const Marching& m, int32_t y) { return rowAt(m.src, m.srcStep, y); }
static inline float* valueRow(const Marching& m, int32_t y) { return rowAt(m.dst, m.dstStep, y); }
static inline uint8_t* pendingRow(const Marching& m, int32_t y) { return m.pending + m.stateStep * y; }

static inline uint64_t eightBytes(const uint8_t* bytes) {
  uint64_t word;
  memcpy(&word, bytes, sizeof word);
  return word;
}

// First place at or after `x` of a byte with any of the bits; `end` if there is none.
static inline int32_t nextWith(uint8_t bits, const uint8_t* bytes, int32_t x, int32_t end) {
  const uint64_t word = bits * UINT64_C(0x0101010101010101);
  while (x + 8 <= end && (eightBytes(bytes + x) & word) == 0) x += 8;
  while (x < end && (bytes[x] & bits) == 0) ++x;
  return x;
}

// Last place at or before `x`; -1 if there is none.
static inline int32_t lastWith(uint8_t bits, const uint8_t* bytes, int32_t x) {
  const uint64_t word = bits * UINT64_C(0x0101010101010101);
  while (x >= 7 && (eightBytes(bytes + x - 7) & word) == 0) x -= 8;
  while (x >= 0 && (bytes[x] & bits) == 0) --x;
  return x;
}

// Both passes over all pixels of row y, with the values of the row `from`. changed(x) is called for each change.
template <bool outside, class Changed>
static inline void bothPasses(const Marching& m, int32_t y, int32_t from, Changed changed) {
  const uint8_t* mask = maskRow(m, y);
  float* value = valueRow(m, y);
  const float* line = valueRow(m, from);
  const auto visit = [&](int32_t x, int32_t side) {
    if (updateAt<outside>(m, mask, line, value, x, side)) changed(x);
  };
  for (int32_t x = 0; x < m.width; ++x) {
    if (!outside && !mask[x] && (x = nextWith(0xff, mask, x, m.width)) == m.width) break;
    visit(x, x - 1);
  }
  for (int32_t x = m.width - 2; x >= 0; --x) {
    if (!outside && !mask[x] && (x = lastWith(0xff, mask, x)) < 0) break;
    visit(x, x + 1);
  }
}

// Values that the first candidate replaces.
static void startRow(const Marching& m, int32_t y) {
  const uint8_t* mask = maskRow(m, y);
  float* value = valueRow(m, y);
  for (int32_t x = 0; x < m.width; ++x) value[x] = mask[x] ? HUGE_VALF : 0.0f;
}

// Stores whether a row has changed; if so, its neighbours must be looked at too.
static inline void setFlags(const Marching& m, int32_t y, bool changed) {
  m.rowFlags[y] = changed;
  m.rowFlags[y - 1] |= changed;
  m.rowFlags[y + 1] |= changed;
}

// A border row, before any other.
template <bool outside>
static void ownFMMZeroLine(const Marching& m, int32_t y) {
  const uint8_t* mask = maskRow(m, y);
  float* value = valueRow(m, y);
  startRow(m, y);
  if (mask[0]) value[0] = farValue;
  for (int32_t x = 1; x < m.width; ++x) updateAlone<outside>(m, mask[x], value[x - 1], value + x);
  for (int32_t x = m.width - 2; x >= 0; --x) updateAlone<outside>(m, mask[x], value[x + 1], value + x);
}

// Rows from `start` up to but without `end`, in either direction.
template <bool outside>
static void ownFMMFirst(const Marching& m, int32_t start, int32_t end) {
  const int32_t way = start <= end ? 1 : -1;
  for (int32_t y = start; y != end; y += way) {
    startRow(m, y);
    bothPasses<outside>(m, y, y - way, [](int32_t) {});
    setFlags(m, y, true);
  }
}

// All pixels of the flagged rows. Marks for the sweep that comes back.
template <bool outside>
static bool ownFMMSecond(const Marching& m, int32_t start, int32_t end) {
  const bool down = start <= end;
  const int32_t way = down ? 1 : -1;
  bool any = false;
  for (int32_t y = start; y != end; y += way) {
    if (!m.rowFlags[y]) continue;
    bool changed = false;
    uint8_t *pending = pendingRow(m, y), *behind = pendingRow(m, y - way);
    bothPasses<outside>(m, y, y - way, [&](int32_t x) {
      const uint8_t back = down ? passUp : passDown;
      changed = true;
      if (x > 0) pending[x - 1] |= back & passLeft;
      if (x + 1 < m.width) pending[x + 1] |= back & passRight;
      behind[x] |= back;
    });
    setFlags(m, y, changed);
    any |= changed;
  }
  return any;
}

// The pending pixels of one row, with the values of the row behind the sweep. `carry` asks for a visit of the next
// pixel of the sweep, wherever that is: the one behind a change is always visited.
template <bool outside, bool down>
static inline bool pendingPasses(const Marching& m, int32_t y, bool* carry) {
  constexpr int32_t way = down ? 1 : -1;
  constexpr uint8_t forth = down ? passDown : passUp, back = down ? passUp : passDown;
  const uint8_t* mask = maskRow(m, y);
  float* value = valueRow(m, y);
  const float* line = valueRow(m, y - way);
  uint8_t *pending = pendingRow(m, y), *behind = pendingRow(m, y - way), *ahead = pendingRow(m, y + way);
  bool any = false;
  const auto visit = [&](int32_t x, int32_t side, uint8_t bit) {
    pending[x] &= uint8_t(~bit);
    *carry = (outside || mask[x]) && updateAt<outside>(m, mask, line, value, x, side);
    if (!*carry) return;
    any = true;
    if (x > 0) pending[x - 1] |= back & passLeft;
    if (x + 1 < m.width) pending[x + 1] |= back & passRight;
    behind[x] |= back;
    ahead[x] |= forth;
  };
  for (int32_t x = 0; x < m.width; ++x) {
    if (!*carry && (x = nextWith(forth & passRight, pending, x, m.width)) == m.width) break;
    visit(x, x - 1, forth & passRight);
  }
  for (int32_t x = m.width - 2; x >= 0; --x) {
    if (!*carry && (x = lastWith(forth & passLeft, pending, x)) < 0) break;
    visit(x, x + 1, forth & passLeft);
  }
  return any;
}

template <bool outside>
static bool ownFMMThird(const Marching& m, int32_t start, int32_t end) {
  const bool down = start <= end;
  bool any = false, carry = end != 0;
  for (int32_t y = start; y != end; y += down ? 1 : -1) {
    if (!m.rowFlags[y]) continue;
    const bool changed =
        down ? pendingPasses<outside, true>(m, y, &carry) : pendingPasses<outside, false>(m, y, &carry);
    setFlags(m, y, changed);
    any |= changed;
  }
  return any;
}

// --- one thread ---

template <bool outside>
static void marchAlone(const Marching& m) {
  ownFMMZeroLine<outside>(m, 0);
  setFlags(m, 0, true);
  ownFMMFirst<outside>(m, 1, m.height);
  m.rowFlags[m.height - 1] = 0;
  if (!ownFMMSecond<outside>(m, m.height - 2, -1)) return;
  for (;;) {
    m.rowFlags[0] = 0;
    if (!ownFMMThird<outside>(m, 1, m.height)) return;
    m.rowFlags[m.height - 1] = 0;
    if (!ownFMMThird<outside>(m, m.height - 2, -1)) return;
  }
}

// --- two threads ---

// The row where the threads meet: about half of the mask's pixels lie above it.
static int32_t splitRow(const Marching& m, int32_t* rowCounts) {
  int32_t total = 0;
  for (int32_t y = 0; y < m.height; ++y) {
    const uint8_t* mask = maskRow(m, y);
    int32_t count = 0;
    for (int32_t x = 0; x < m.width; ++x) count += mask[x] != 0;
    rowCounts[y] = count;
    total += count;
  }
  int32_t split = 1;
  for (int32_t count = rowCounts[0]; split < m.height; ++split) {
    count += rowCounts[split];
    if (count > total >> 1) break;
  }
  split = split > 3 ? split : 3;
  return split < m.height - 3 ? split : m.height - 3;
}

template <bool outside>
static inline bool updateFromBoth(const Marching& m, int32_t y, int32_t x, int32_t side) {
  const bool above = updateAt<outside>(m, maskRow(m, y), valueRow(m, y - 1), valueRow(m, y), x, side);
  const bool below = updateAt<outside>(m, maskRow(m, y), valueRow(m, y + 1), valueRow(m, y), x, side);
  return above || below;
}

template <bool outside>
static void ownFMMFirstLine(const Marching& m, int32_t y) {
  startRow(m, y);
  for (int32_t x = 0; x < m.width; ++x) updateFromBoth<outside>(m, y, x, x - 1);
  for (int32_t x = m.width - 2; x >= 0; --x) updateFromBoth<outside>(m, y, x, x + 1);
}

// The pending pixels of the row where the threads meet, until none is left: a change may be all that there is to a
// round, and then nobody comes back.
template <bool outside>
static bool ownFMMThirdLine(const Marching& top, const Marching& bottom, int32_t y) {
  uint8_t *pending = pendingRow(top, y), *others = pendingRow(bottom, y);
  uint8_t *above = pendingRow(top, y - 1), *below = pendingRow(bottom, y + 1);
  for (int32_t x = 0; x < top.width; ++x) {
    pending[x] |= others[x];
    others[x] = 0;
  }
  if (!top.rowFlags[y] && !bottom.rowFlags[y]) return false;
  bool changed = false;
  const auto visit = [&](int32_t x, int32_t side, uint8_t bits) {
    pending[x] &= uint8_t(~bits);
    if (!updateFromBoth<outside>(top, y, x, side)) return;
    changed = true;
    if (x > 0) pending[x - 1] |= passLeft;
    if (x + 1 < top.width) pending[x + 1] |= passRight;
    above[x] |= passUp;
    below[x] |= passDown;
  };
  while (nextWith(passRight, pending, 0, top.width) < top.width || lastWith(passLeft, pending, top.width - 2) >= 0) {
    for (int32_t x = 0; x < top.width; ++x) {
      if ((x = nextWith(passRight, pending, x, top.width)) == top.width) break;
      visit(x, x - 1, passRight);
    }
    for (int32_t x = top.width - 2; x >= 0; --x) {
      if ((x = lastWith(passLeft, pending, x)) < 0) break;
      visit(x, x + 1, passLeft);
    }
  }
  setFlags(top, y, changed);
  setFlags(bottom, y, changed);
  return changed;
}

template <bool outside>
static void marchFromBothEnds(const Marching& top, const Marching& bottom, int32_t split) {
  const int32_t last = top.height - 1;
  bool changed[2] = {false, false}, again = false;
#pragma omp parallel num_threads(2)
  {
    // Runs a stage, of which each thread does its part. A thread without another does both, one after the other.
    const auto stage = [&](auto part) {
      for (int32_t t = owncvGetIdThreads(); t < 2; t += owncvGetNumThreads()) part(t == 0, changed[t]);
#pragma omp barrier
    };
    const auto anyChange = [&] {
      stage([&](bool first, bool&) {
        if (first) again = changed[0] || changed[1];
      });
      return again;
    };
    stage([&](bool first, bool&) { ownFMMZeroLine<outside>(top, first ? 0 : last); });
    stage([&](bool first, bool&) {
      if (first) {
        ownFMMFirst<outside>(top, 1, split);
      } else {
        ownFMMFirst<outside>(bottom, last - 1, split);
      }
    });
    stage([&](bool first, bool&) {
      if (first) ownFMMFirstLine<outside>(top, split);
    });
    stage([&](bool first, bool& mine) {
      mine = first ? ownFMMSecond<outside>(top, split - 1, 0) : ownFMMSecond<outside>(bottom, split + 1, last);
    });
    // The border rows have one neighbour, and are further rows of the same sweeps.
    stage([&](bool first, bool& mine) {
      mine |= first ? ownFMMSecond<outside>(top, 0, -1) : ownFMMSecond<outside>(bottom, last, last + 1);
    });
    while (anyChange()) {
      stage([&](bool first, bool& mine) {
        mine = first ? ownFMMThird<outside>(top, 1, split) : ownFMMThird<outside>(bottom, last - 1, split);
      });
      stage([&](bool first, bool& mine) {
        if (first) mine |= ownFMMThirdLine<outside>(top, bottom, split);
      });
      if (!anyChange()) break;
      stage([&](bool first, bool& mine) {
        mine = first ? ownFMMThird<outside>(top, split - 1, 0) : ownFMMThird<outside>(bottom, split + 1, last);
      });
      stage([&](bool first, bool& mine) {
        mine |= first ? ownFMMThird<outside>(top, 0, -1) : ownFMMThird<outside>(bottom, last, last + 1);
      });
    }
  }
}

// --- exported functions ---

QorStatus qoriFastMarchingGetBufferSize_8u32f_C1R(QoriSize roiSize, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  *bufferSize = (roiSize.height + 34) * (stateStepOf(roiSize.width) + 5) + 40;
  return qorStatusOk;
}

QorStatus qoriFastMarching_8u32f_C1R(const uint8_t* src, int32_t srcStep, float* dst, int32_t dstStep, QoriSize roiSize,
                                     float radius, uint8_t* buffer) {
  if (anyNull(src, dst, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t>(srcStep, roiSize) || shortStep<float>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<float>(dstStep)) return qorStatusBadStepAlign;
  if (radius < 0) return qorStatusBadArg;
  const ptrdiff_t height = roiSize.height, stateStep = stateStepOf(roiSize.width);
  // Rows -1 to height + 1 of pending bits, then the counts of the rows, then flags like the pending rows.
  uint8_t* const block = alignUp<uint8_t>(buffer, 32);
  const ptrdiff_t pendingBytes = (height + 3) * stateStep;
  uint8_t *const counts = block + pendingBytes, *const flags = counts + 4 * height;
  memset(block, 0, size_t(pendingBytes));
  memset(flags, 0, size_t(height + 3));
  const Marching top = {
      src,       srcStep,  dst, dstStep, roiSize.width, roiSize.height, 0.0f - (1e-5f + radius), block + stateStep,
      stateStep, flags + 1};
  const bool outside = radius > 0;
  if (height > 5 && ownGetNumThreads() > 1) {
    Marching bottom = top;
    bottom.pending += stateStep;
    bottom.rowFlags += 1;
    const int32_t split = splitRow(top, reinterpret_cast<int32_t*>(counts));
    outside ? marchFromBothEnds<true>(top, bottom, split) : marchFromBothEnds<false>(top, bottom, split);
  } else {
    outside ? marchAlone<true>(top) : marchAlone<false>(top);
  }
  return qorStatusOk;
}
