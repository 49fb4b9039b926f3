// Chamfer distance: the least sum of step costs on a way to a pixel of 0, in a forward and a backward pass.
//
// In each pass the steps from other rows do not depend on each other and go first, for a whole row; the steps along the
// row follow. A step that leaves the image is none.
//
// Odd: with diagonal steps cheaper than straight ones the last row, and only that one, knows ways through a row below
// the image. Sums of integers are those of 32 bits: costs near 2^31 wrap.
#include <type_traits>

#include "distance/chamfer_rows.h"
#include "frame/frame.h"

namespace {

template <class T>
using Metric = std::conditional_t<std::is_floating_point_v<T>, float, int32_t>;

// Which steps there are; each has those before it too.
enum Mask { straight, diagonal, knights, square };

// Costs of the steps that the mask has. `bottomPair` is the cost of two pixels along the last row; 0 without such
// steps.
template <class M>
struct Costs {
  M axial, diagonal, knight, twoAxial, twoDiagonal, bottomPair, skip;
};

template <class M>
struct Term {
  int32_t dx, dy;
  M cost;
};

template <class M>
struct Terms {
  Term<M> term[13];
  int32_t count;
};

template <class T>
struct Plane {
  T* data;
  ptrdiff_t step;
  QoriSize size;
  T& at(int32_t x, int32_t y) const { return rowAt(data, step, y)[x]; }
};

}  // namespace

template <class M>
static inline M lesser(M a, M b) {
  return a < b ? a : b;
}

template <class T>
static void init_distances_8uC1(const uint8_t* src, int32_t srcStep, const Plane<T>& dst) {
  for (int32_t y = 0; y < dst.size.height; ++y) {
    const uint8_t* const srcRow = rowAt(src, srcStep, y);
    T* const row = rowAt(dst.data, dst.step, y);
    for (ptrdiff_t x = 0; x < dst.size.width; ++x) row[x] = srcRow[x] ? cap<T> : T(0);
  }
}

// The forward terms as a list.
template <class M>
static Terms<M> termsOf(Mask mask, const Costs<M>& c) {
  const M one = c.axial, two = c.twoAxial, slant = c.diagonal, jump = c.knight, corner = c.twoDiagonal;
  return {{{-1, 0, one},
           {0, -1, one},
           {-1, -1, slant},
           {1, -1, slant},
           {-2, -1, jump},
           {2, -1, jump},
           {-1, -2, jump},
           {1, -2, jump},
           {-2, 0, two},
           {0, -2, two},
           {-2, -2, corner},
           {2, -2, corner},
           {}},
          mask == straight   ? 2
          : mask == diagonal ? 4
          : mask == knights  ? 8
                             : 12};
}

// The least of `start` and the terms inside the image; direction -1 is the backward pass.
template <class T, class M>
static M leastOf(const Plane<T>& dst, int32_t x, int32_t y, const Terms<M>& terms, int32_t direction, M start) {
  M least = start;
  for (int32_t i = 0; i < terms.count; ++i) {
    const int32_t u = x + direction * terms.term[i].dx, v = y + direction * terms.term[i].dy;
    if (u < 0 || u >= dst.size.width || v < 0 || v >= dst.size.height) continue;
    const M sum = M(dst.at(u, v)) + terms.term[i].cost;
    least = lesser(sum, least);
  }
  return least;
}

// Both passes, pixel by pixel, for costs with which sums wrap: they may fall below 0 and then keep their low bits.
template <class T>
static void wrappingPasses(const uint8_t* src, int32_t srcStep, const Plane<T>& dst, Mask mask,
                           const Costs<int32_t>& costs) {
  const Terms<int32_t> terms = termsOf(mask, costs);
  Terms<int32_t> bottom = terms;
  if (costs.bottomPair != 0) bottom.term[bottom.count++] = {-2, 0, costs.bottomPair};
  const int32_t width = dst.size.width, height = dst.size.height;
  for (int32_t y = 0; y < height; ++y) {
    for (int32_t x = 0; x < width; ++x) {
      const bool zero = rowAt(src, srcStep, y)[x] == 0;
      dst.at(x, y) = zero ? T(0) : T(leastOf<T, int32_t>(dst, x, y, y < height - 1 ? terms : bottom, 1, cap<T>));
    }
  }
  for (int32_t y = height - 1; y >= 0; --y) {
    for (int32_t x = width - 1; x >= 0; --x) {
      T& value = dst.at(x, y);
      if (value > costs.skip) value = T(leastOf<T, int32_t>(dst, x, y, y < height - 1 ? terms : bottom, -1, value));
    }
  }
}

// What the rows next to a pixel's and after that give it; at(row, x) reads row 1 or 2.
template <Mask mask, class T, class At>
static inline T fromRows(const Costs<T>& c, ptrdiff_t x, At at) {
  T least = plusCost(at(1, x), c.axial);
  if constexpr (mask >= diagonal) {
    least = lesserOf(least, plusCost(lesserOf(at(1, x - 1), at(1, x + 1)), c.diagonal));
  }
  if constexpr (mask >= knights) {
    const T beside = lesserOf(at(1, x - 2), at(1, x + 2)), beyond = lesserOf(at(2, x - 1), at(2, x + 1));
    least = lesserOf(least, plusCost(lesserOf(beside, beyond), c.knight));
  }
  if constexpr (mask >= square) {
    least = lesserOf(least, plusCost(at(2, x), c.twoAxial));
    least = lesserOf(least, plusCost(lesserOf(at(2, x - 2), at(2, x + 2)), c.twoDiagonal));
  }
  return least;
}

// Pixels begin .. end - 1 of a row from the two rows before it in the pass (null where there are none): keep(x, value)
// is what becomes of pixel x.
template <Mask mask, class T, class Keep>
static void rowFromRows(const T* near, const T* far, T* row, ptrdiff_t begin, ptrdiff_t end, ptrdiff_t width,
                        const Costs<T>& costs, Keep keep) {
  constexpr ptrdiff_t reach = mask >= knights ? 2 : mask >= diagonal ? 1 : 0;
  const auto anywhere = [=](int32_t which, ptrdiff_t x) {
    const T* const from = which == 1 ? near : far;
    return from && x >= 0 && x < width ? from[x] : cap<T>;
  };
  const auto inside = [=](int32_t which, ptrdiff_t x) { return (which == 1 ? near : far)[x]; };
  const bool whole = near && (far || mask < knights);
  const ptrdiff_t limit = std::min(end, width - reach), first = whole ? std::max(begin, reach) : end;
  ptrdiff_t x = begin;
  for (; x < std::min(first, end); ++x) row[x] = keep(x, fromRows<mask>(costs, x, anywhere));
  if (first < limit) {
    QOR_INDEPENDENT
    for (ptrdiff_t i = first; i < limit; ++i) row[i] = keep(i, fromRows<mask>(costs, i, inside));
    x = limit;
  }
  for (; x < end; ++x) row[x] = keep(x, fromRows<mask>(costs, x, anywhere));
}

// Rows first .. first + rows - 1 of a pass block by block, each two blocks behind the row before it, whose pixels
// beyond the block it needs.
template <bool forward, bool two, class RowOf, class Prepare>
static void sideBySide(RowOf rowOf, int32_t first, int32_t rows, ptrdiff_t width, const RowSteps<float>& steps,
                       Prepare prepare) {
  constexpr ptrdiff_t behind = 2;
  float idle[2 * chainBlock + 4] = {};  // in place of a row that has nothing to do
  const ptrdiff_t count = (width + chainBlock - 1) / chainBlock;
  for (ptrdiff_t turn = 0; turn < count + behind * (rows - 1); ++turn) {
    float* blocks[chainRows];
    for (int32_t r = 0; r < chainRows; ++r) {
      blocks[r] = idle + chainBlock + 2;
      const ptrdiff_t begin = (turn - behind * r) * chainBlock, end = std::min(begin + chainBlock, width);
      if (r >= rows || begin < 0 || begin >= width) continue;
      prepare(first + r, begin, end);
      float* const row = rowOf(first + r);
      if (begin > 0 && end - begin == chainBlock) {
        blocks[r] = row + (forward ? begin : width - 1 - begin);
      } else {
        chainOneByOne<forward, two>(row, begin, end, width, steps);
      }
    }
    chainBlocks<forward, two>(blocks, steps);
  }
}

// The rows of one pass, counted in its order, in groups; keepIn(y) makes the keep of a row.
template <Mask mask, bool forward, class T, class KeepIn>
static void pass(const Plane<T>& dst, const Costs<T>& costs, KeepIn keepIn) {
  const int32_t height = dst.size.height;
  const ptrdiff_t width = dst.size.width;
  const auto rowOf = [=](int32_t i) {
    return i < 0 ? nullptr : rowAt(dst.data, dst.step, forward ? i : height - 1 - i);
  };
  // Before the steps along the row: pixels begin .. end - 1 in the order of the pass.
  const auto prepare = [&](int32_t i, ptrdiff_t begin, ptrdiff_t end) {
    rowFromRows<mask>(rowOf(i - 1), rowOf(i - 2), rowOf(i), forward ? begin : width - end,
                      forward ? end : width - begin, width, costs, keepIn(forward ? i : height - 1 - i));
  };
  const RowSteps<T> usual = {costs.axial, costs.twoAxial}, bottom = {costs.axial, costs.bottomPair};
  for (int32_t i = 0; i < height;) {
    const bool isBottom = i == (forward ? height - 1 : 0);
    if (isBottom && costs.bottomPair != 0) {
      prepare(i, 0, width);
      chain<forward, true>(rowOf(i), width, bottom);
      ++i;
      continue;
    }
    if constexpr (std::is_floating_point_v<T>) {
      const int32_t rest = height - i - (forward && costs.bottomPair != 0 ? 1 : 0);
      const int32_t rows = std::min(rest, chainRows);
      sideBySide<forward, mask == square>(rowOf, i, rows, width, usual, prepare);
      i += rows;
    } else {
      prepare(i, 0, width);
      chain<forward, mask == square>(rowOf(i), width, usual);
      ++i;
    }
  }
}

// No pixel at or below the cheapest step can fall in the backward pass, so none needs to be left out.
template <Mask mask, class T>
static void passes(const uint8_t* src, int32_t srcStep, const Plane<T>& dst, const Costs<T>& costs) {
  pass<mask, true>(dst, costs, [=](int32_t y) {
    const uint8_t* const srcRow = rowAt(src, srcStep, y);
    return [=](ptrdiff_t x, T value) { return srcRow[x] ? lesserOf(value, cap<T>) : T(0); };
  });
  pass<mask, false>(dst, costs, [=](int32_t y) {
    const T* const row = rowAt(dst.data, dst.step, y);
    return [=](ptrdiff_t x, T value) { return lesserOf(value, row[x]); };
  });
}

template <class T>
static QorStatus bothPasses(const uint8_t* src, int32_t srcStep, const Plane<T>& dst, Mask mask,
                            const Costs<Metric<T>>& c) {
  if constexpr (!std::is_floating_point_v<T>) {
    constexpr int32_t most = std::numeric_limits<int32_t>::max() - cap<T>;
    const auto wraps = [](int32_t cost) { return cost < 1 || cost > most; };
    if (wraps(c.axial) || wraps(c.diagonal) || wraps(c.knight) || wraps(c.twoAxial) || wraps(c.twoDiagonal) ||
        (c.bottomPair != 0 && wraps(c.bottomPair))) {
      wrappingPasses(src, srcStep, dst, mask, c);
      return qorStatusOk;
    }
  }
  const auto held = [](Metric<T> cost) { return T(lesser(cost, Metric<T>(cap<T>))); };
  const Costs<T> costs = {held(c.axial),       held(c.diagonal),   held(c.knight), held(c.twoAxial),
                          held(c.twoDiagonal), held(c.bottomPair), held(c.skip)};
  if (mask == straight) passes<straight>(src, srcStep, dst, costs);
  if (mask == diagonal) passes<diagonal>(src, srcStep, dst, costs);
  if (mask == knights) passes<knights>(src, srcStep, dst, costs);
  if (mask == square) passes<square>(src, srcStep, dst, costs);
  return qorStatusOk;
}

// Images with a side below 4: with classic metrics one pair of passes by rows, otherwise pairs until nothing changes.
template <class T>
static QorStatus smallImage(const uint8_t* src, int32_t srcStep, const Plane<T>& dst, const Costs<Metric<T>>& costs,
                            bool classic) {
  using M = Metric<T>;
  init_distances_8uC1(src, srcStep, dst);
  const int32_t width = dst.size.width, height = dst.size.height;
  const bool byRows = classic || width < 4;
  Terms<M> terms = termsOf(square, costs);
  if (!byRows) {
    for (Term<M>& term : terms.term) term = {term.dy, term.dx, term.cost};
  }
  bool changed = false;
  const auto visit = [&](int32_t x, int32_t y, int32_t direction) {
    T& value = dst.at(x, y);
    const M least = leastOf<T, M>(dst, x, y, terms, direction, value);
    // A sum that wraps is none: values only fall, so the passes come to an end.
    if (least < M(0) || least == M(value)) return;
    value = T(least);
    changed = true;
  };
  const int32_t lines = byRows ? height : width, length = byRows ? width : height;
  do {
    changed = false;
    for (int32_t i = 0; i < lines; ++i) {
      for (int32_t j = 0; j < length; ++j) byRows ? visit(j, i, 1) : visit(i, j, 1);
    }
    for (int32_t i = lines - 1; i >= 0; --i) {
      for (int32_t j = length - 1; j >= 0; --j) byRows ? visit(j, i, -1) : visit(i, j, -1);
    }
  } while (changed && !classic);
  return qorStatusOk;
}

template <int32_t count, class T>
static QorStatus checked(const uint8_t* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize,
                         const Metric<T>* metrics) {
  if (anyNull(src, dst, metrics)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t>(srcStep, roiSize) || shortStep<T>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(dstStep)) return qorStatusBadStepAlign;
  for (int32_t i = 0; i < count; ++i) {
    if (!(metrics[i] > 0)) return qorStatusBadMetric;
  }
  return qorStatusOk;
}

template <class T>
static QorStatus distance3x3(const uint8_t* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize,
                             const Metric<T>* metrics) {
  const QorStatus status = checked<2>(src, srcStep, dst, dstStep, roiSize, metrics);
  if (status != qorStatusOk) return status;
  const Metric<T> a = metrics[0], b = metrics[1];
  const Mask mask = roiSize.width == 1 || b >= 2 * a ? straight : diagonal;
  const bool cheapDiagonals = a > b && roiSize.width >= 2 && roiSize.height >= 2;
  const Metric<T> slant = mask == straight ? a : b, bottomPair = mask == diagonal && cheapDiagonals ? 2 * b : 0;
  return bothPasses<T>(src, srcStep, {dst, dstStep, roiSize}, mask,
                       {a, slant, a, a, a, bottomPair, cheapDiagonals ? b : a});
}

// Floats that differ by rounding count as equal.
static bool atLeast(float x, float y) { return double(x - y) > -1e-7 * __builtin_fabs(double(y)); }
static bool atLeast(int32_t x, int32_t y) { return x >= y; }

static bool classicForm(float a, float b1, float c) {
  return !atLeast(a, b1) && !atLeast(2 * a, c) && !atLeast(1.5f * b1, c);
}
static bool classicForm(int32_t a, int32_t b1, int32_t c) { return b1 > a && c > 2 * a && 2 * c > 3 * b1; }

template <class T>
static QorStatus distance5x5(const uint8_t* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize,
                             const Metric<T>* metrics) {
  using M = Metric<T>;
  const QorStatus status = checked<3>(src, srcStep, dst, dstStep, roiSize, metrics);
  if (status != qorStatusOk) return status;
  const M a = metrics[0], c = metrics[2], b1 = lesser(M(2 * a), metrics[1]);
  if (atLeast(c, a + b1)) return distance3x3(src, srcStep, dst, dstStep, roiSize, metrics);
  const bool classic = classicForm(a, b1, c);
  const Plane<T> plane = {dst, dstStep, roiSize};
  if (roiSize.width < 4 || roiSize.height < 4) {
    return smallImage<T>(src, srcStep, plane, {a, b1, c, 2 * a, 2 * b1, 0, 0}, classic);
  }
  if (classic) return bothPasses<T>(src, srcStep, plane, knights, {a, b1, c, a, a, 0, a});
  // Costs that agree with each other: no step dearer than a way of other steps to the same pixel.
  const M a1 = lesser(a, M(3 * c)), b2 = lesser(b1, M(2 * c));
  const M e = lesser(lesser(M(2 * a1), M(2 * b2)), M(2 * c)), d = lesser(M(c + a1), M(2 * b2));
  return bothPasses<T>(src, srcStep, plane, square, {a1, b2, c, e, d, 0, lesser(lesser(a, b2), c)});
}

#define CHAMFER(name, transform, T)                                                              \
  QorStatus name(const uint8_t* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, \
                 const Metric<T>* metrics) {                                                     \
    return transform(src, srcStep, dst, dstStep, roiSize, metrics);                              \
  }
CHAMFER(qoriDistanceTransform_3x3_8u_C1R, distance3x3, uint8_t)
CHAMFER(qoriDistanceTransform_3x3_8u16u_C1R, distance3x3, uint16_t)
CHAMFER(qoriDistanceTransform_3x3_8u32f_C1R, distance3x3, float)
CHAMFER(qoriDistanceTransform_5x5_8u_C1R, distance5x5, uint8_t)
CHAMFER(qoriDistanceTransform_5x5_8u16u_C1R, distance5x5, uint16_t)
CHAMFER(qoriDistanceTransform_5x5_8u32f_C1R, distance5x5, float)
#undef CHAMFER

// A source pixel is read only when the same pixel is written.
QorStatus qoriDistanceTransform_3x3_8u_C1IR(uint8_t* srcDst, int32_t srcDstStep, QoriSize roiSize,
                                            const int32_t* metrics) {
  return qoriDistanceTransform_3x3_8u_C1R(srcDst, srcDstStep, srcDst, srcDstStep, roiSize, metrics);
}

QorStatus qoriDistanceTransform_5x5_8u_C1IR(uint8_t* srcDst, int32_t srcDstStep, QoriSize roiSize,
                                            const int32_t* metrics) {
  return qoriDistanceTransform_5x5_8u_C1R(srcDst, srcDstStep, srcDst, srcDstStep, roiSize, metrics);
}

template <class M>
static QorStatus standardMetrics(const M (&of3x3)[3][2], const M (&of5x5)[3][3], int32_t kernelSize, int32_t normType,
                                 M* metrics) {
  if (anyNull(metrics)) return qorStatusNullPtr;
  if (kernelSize != 3 && kernelSize != 5) return qorStatusBadSize;
  if (normType < 0 || normType > 2) return qorStatusBadArg;
  for (int32_t i = 0; i < 2; ++i) metrics[i] = kernelSize == 3 ? of3x3[normType][i] : of5x5[normType][i];
  if (kernelSize == 5) metrics[2] = of5x5[normType][2];
  return qorStatusOk;
}

QorStatus qoriGetDistanceTransformMask_32f(int32_t kernelSize, int32_t normType, float* metrics) {
  static const float of3x3[3][2] = {{1, 1}, {1, 2}, {0.955f, 1.3693f}};
  static const float of5x5[3][3] = {{1, 1, 2}, {1, 2, 3}, {1, 1.4f, 2.1969f}};
  return standardMetrics(of3x3, of5x5, kernelSize, normType, metrics);
}

QorStatus qoriGetDistanceTransformMask_32s(int32_t kernelSize, int32_t normType, int32_t* metrics) {
  static const int32_t of3x3[3][2] = {{1, 1}, {1, 2}, {2, 3}};
  static const int32_t of5x5[3][3] = {{1, 1, 2}, {1, 2, 3}, {5, 7, 11}};
  return standardMetrics(of3x3, of5x5, kernelSize, normType, metrics);
}

// Odd: the units are looked at even before the pointer.
QorStatus qoriGetDistanceTransformMask(int32_t maskType, float* metrics) {
  const int32_t normType = maskType % 10;
  if (normType < 0 || normType > 2) return qorStatusBadArg;
  return qoriGetDistanceTransformMask_32f(maskType / 10, normType, metrics);
}
