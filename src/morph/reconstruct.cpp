// Morphological reconstruction: a marker grows under a mask, or shrinks over it, until it stops changing.
//
// Raster scans down and up carry values along rows and from row to row; then checking scans go over the rows that may
// still change, as one byte a row tells, until one of them changes nothing. Whatever the order of the scans, the result
// is the one fixed point. `mode` is what the checking scans do: above 0 one sweep a row, in the scan's own sense, at 0
// and below two; it only goes down. Its lowest bit says that a scan's first row is an ordinary one.
//
// Odd: two threads share the rows and never more, with the row between their halves left to the first one; where `mode`
// is 0 they let it fall to -2 after one turn whatever they found, which the calling thread alone does not. A NaN counts
// as a change each time it is met, so with one among the floats the scans never end.
#include <string.h>

#include "frame/frame.h"
#include "morph/reconstruct_rows.h"

namespace {

template <class T>
struct Images {
  const T* mask;
  int32_t maskStep;
  T* marker;
  int32_t markerStep;
  QoriSize size;
  T* temp[2];      // a temporary row for each thread
  uint8_t* flags;  // a byte for each row, not zero if the row may still change
};

enum class Way { down, up };

}  // namespace

// The sweeps of a row. The first one goes from left to right, but in the checking scans upward.
template <class T, Extreme extreme, bool backward, bool asked>
static bool sweepRow(const Images<T>& images, const T* t, int32_t y) {
  T* const marker = rowAt(images.marker, images.markerStep, y);
  return sweep<T, extreme, backward, asked>(t ? t : marker, rowAt(images.mask, images.maskStep, y), marker,
                                            images.size.width);
}

template <class T, Extreme extreme, bool inf>
static void mergeRow(const Images<T>& images, int32_t y, int32_t before, T* out) {
  merge<T, extreme, inf>(rowAt(images.marker, images.markerStep, y), rowAt(images.marker, images.markerStep, before),
                         out, images.size.width);
}

// A plain scan of the rows from `start` up to and without `end`.
template <class T, Extreme extreme, bool inf, Way way>
static void ownScan(const Images<T>& images, int32_t start, int32_t end, bool first) {
  constexpr int32_t next = way == Way::down ? 1 : -1;
  for (int32_t y = start; y != end; y += next) {
    if (y != start || !first) {
      mergeRow<T, extreme, inf>(images, y, y - next, rowAt(images.marker, images.markerStep, y));
    }
    sweepRow<T, extreme, false, false>(images, nullptr, y);
    sweepRow<T, extreme, true, false>(images, nullptr, y);
  }
}

// A checking scan; returns how many rows have changed.
template <class T, Extreme extreme, bool inf, Way way>
static int32_t ownScanCheck(const Images<T>& images, int32_t start, int32_t end, int32_t mode, T* temp) {
  constexpr int32_t next = way == Way::down ? 1 : -1;
  constexpr bool backward = way == Way::up;
  uint8_t* const flags = images.flags;
  int32_t y = start, count = 0;
  bool changed = false;
  if ((mode & 1) == 0) {
    if (mode > 0 && flags[y]) {
      changed = sweepRow<T, extreme, backward, true>(images, nullptr, y);
      flags[y] = changed;
      count += changed;
    } else if (mode == 0) {
      flags[y] |= uint8_t(sweepRow<T, extreme, backward, true>(images, nullptr, y));
    }
    y += next;
  }
  for (; y != end; y += next) {
    if (!changed && !flags[y]) continue;
    mergeRow<T, extreme, inf>(images, y, y - next, temp);
    changed = sweepRow<T, extreme, backward, true>(images, temp, y);
    if (mode <= 0) changed |= sweepRow<T, extreme, !backward, true>(images, nullptr, y);
    flags[y] = changed;
    if (!changed) continue;
    ++count;
    // Both threads may do so at the row between their halves, whose flag nobody reads before it is set anew.
    __atomic_store_n(&flags[y - next], uint8_t(1), __ATOMIC_RELAXED);
  }
  return count;
}

// Where a scan changes nearly as many rows as the one before it, single sweeps no longer pay off.
static bool hardlyFewer(int32_t rows, int32_t rowsBefore) { return double(rows) > 0.9 * double(rowsBefore); }

template <class T, Extreme extreme, bool inf>
static void reconstructAlone(const Images<T>& images) {
  const int32_t height = images.size.height;
  T* const temp = images.temp[0];
  memset(images.flags, 1, size_t(height));
  int32_t mode = 2;
  ownScan<T, extreme, inf, Way::down>(images, 0, height, true);
  ownScan<T, extreme, inf, Way::up>(images, height - 2, -1, false);
  for (;;) {
    const int32_t down = ownScanCheck<T, extreme, inf, Way::down>(images, 0, height, mode, temp);
    if (down == 0) return;
    const int32_t up = ownScanCheck<T, extreme, inf, Way::up>(images, height - 1, -1, mode, temp);
    if (hardlyFewer(up, down)) mode -= 2;
    if (up == 0) return;
  }
}

// The row between the halves, with both its neighbours; returns whether it has changed.
template <class T, Extreme extreme, bool inf>
static bool reconstructSeam(const Images<T>& images, int32_t y) {
  T* const temp = images.temp[0];
  mergeRow<T, extreme, inf>(images, y, y - 1, temp);
  merge<T, extreme, inf>(temp, rowAt(images.marker, images.markerStep, y + 1), temp, images.size.width);
  const bool changed = sweepRow<T, extreme, false, true>(images, temp, y);
  return sweepRow<T, extreme, true, true>(images, nullptr, y) || changed;
}

// Returns false, with nothing done, if there is no second thread.
template <class T, Extreme extreme, bool inf>
static bool reconstructByTwo(const Images<T>& images) {
  const int32_t height = images.size.height, half = height / 2;
  memset(images.flags, 1, size_t(height));
  bool done = false;
  // Rows changed by each thread's scan towards the middle row, by its scan away from it, and by the former with it.
  int32_t towards[2], away[2], total = 0;
#pragma omp parallel num_threads(2)
  if (owncvGetNumThreads() >= 2) {
    const int32_t thread = owncvGetIdThreads();
    const bool upper = thread == 0;
    T* const temp = images.temp[thread];
    if (upper) {
      ownScan<T, extreme, inf, Way::down>(images, 0, half, true);
    } else {
      ownScan<T, extreme, inf, Way::up>(images, height - 1, half, true);
    }
#pragma omp barrier
    if (upper) reconstructSeam<T, extreme, inf>(images, half);
#pragma omp barrier
    if (upper) {
      ownScan<T, extreme, inf, Way::up>(images, half - 1, -1, false);
    } else {
      ownScan<T, extreme, inf, Way::down>(images, half + 1, height, false);
    }
#pragma omp barrier
    // Both threads have their own `mode`, and come to the same one.
    for (int32_t mode = 2;;) {
      if (upper) {
        towards[0] = ownScanCheck<T, extreme, inf, Way::down>(images, 0, half, mode, temp);
      } else {
        towards[1] = ownScanCheck<T, extreme, inf, Way::up>(images, height - 1, half, mode, temp);
      }
#pragma omp barrier
      if (upper) {
        const uint8_t changed = reconstructSeam<T, extreme, inf>(images, half);
        images.flags[half] = changed;
        images.flags[half - 1] |= changed;
        images.flags[half + 1] |= changed;
        total = towards[0] + towards[1] + changed;
      }
#pragma omp barrier
      if (total == 0) break;
      if (upper) {
        away[0] = ownScanCheck<T, extreme, inf, Way::up>(images, half - 1, -1, mode - 1, temp);
      } else {
        away[1] = ownScanCheck<T, extreme, inf, Way::down>(images, half + 1, height, mode - 1, temp);
      }
#pragma omp barrier
      // Until the next barrier but one nobody writes what is read here.
      const int32_t last = away[0] + away[1];
      if (last == 0) break;
      // Odd: from 0 it falls in any case, unlike where one thread works alone.
      if (hardlyFewer(last, total) || mode == 0) mode -= 2;
    }
    if (upper) done = true;
  }
  return done;
}

template <class T, Extreme extreme, bool inf>
static void reconstructAll(const Images<T>& images) {
  const bool large = images.size.width >= 11 && images.size.height >= 11;
  if (large && ownGetNumThreads() >= 2 && reconstructByTwo<T, extreme, inf>(images)) return;
  reconstructAlone<T, extreme, inf>(images);
}

template <class T, Extreme extreme>
static QorStatus reconstruct(const T* src, int32_t srcStep, T* srcDst, int32_t srcDstStep, QoriSize roiSize,
                             uint8_t* buffer, int32_t norm) {
  if (anyNull(src, srcDst, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<T>(srcStep, roiSize) || shortStep<T>(srcDstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep | srcDstStep)) return qorStatusBadStepAlign;
  if (norm != qorNormInf && norm != qorNormL1) return qorStatusBadArg;
  // Room for four rows, of which two are used, and then the flags behind a guard byte.
  const size_t rowBytes = (size_t(roiSize.width) * sizeof(T) + 31) & ~size_t(31);
  uint8_t* const rows = alignUp<uint8_t>(buffer, 32);
  const Images<T> images = {src,
                            srcStep,
                            srcDst,
                            srcDstStep,
                            roiSize,
                            {reinterpret_cast<T*>(rows), reinterpret_cast<T*>(rows + rowBytes)},
                            rows + 4 * rowBytes + 1};
  if (norm == qorNormInf) {
    reconstructAll<T, extreme, true>(images);
  } else {
    reconstructAll<T, extreme, false>(images);
  }
  return qorStatusOk;
}

static QorStatus reconstructGetBufferSize(QoriSize roiSize, int32_t* bufferSize, int32_t bytesAColumn, int32_t more) {
  if (!bufferSize) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  *bufferSize = bytesAColumn * roiSize.width + roiSize.height + more;
  return qorStatusOk;
}

QorStatus qoriMorphReconstructGetBufferSize_8u_C1(QoriSize roiSize, int32_t* bufferSize) {
  return reconstructGetBufferSize(roiSize, bufferSize, 4, 161);
}
QorStatus qoriMorphReconstructGetBufferSize_32f_C1(QoriSize roiSize, int32_t* bufferSize) {
  return reconstructGetBufferSize(roiSize, bufferSize, 16, 164);
}

#define QOR_RECONSTRUCT(NAME, T, EXTREME)                                                                         \
  QorStatus NAME(const T* src, int32_t srcStep, T* srcDst, int32_t srcDstStep, QoriSize roiSize, uint8_t* buffer, \
                 int32_t norm) {                                                                                  \
    return reconstruct<T, EXTREME>(src, srcStep, srcDst, srcDstStep, roiSize, buffer, norm);                      \
  }
QOR_RECONSTRUCT(qoriMorphReconstructDilate_8u_C1IR, uint8_t, Extreme::max)
QOR_RECONSTRUCT(qoriMorphReconstructErode_8u_C1IR, uint8_t, Extreme::min)
QOR_RECONSTRUCT(qoriMorphReconstructDilate_32f_C1IR, float, Extreme::max)
QOR_RECONSTRUCT(qoriMorphReconstructErode_32f_C1IR, float, Extreme::min)
#undef QOR_RECONSTRUCT
