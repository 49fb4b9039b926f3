// Sorting in place: a quicksort on an explicit stack, with selection for short segments.
#include <stddef.h>

#include "frame/checks.h"
#include "frame/kit/vectors.h"

static constexpr ptrdiff_t longestSelection = 9;

struct Segment {
  ptrdiff_t first, last;
};

static inline ptrdiff_t length(Segment s) { return s.last - s.first + 1; }

static inline void exchange(double& a, double& b) {
  const double t = a;
  a = b;
  b = t;
}

static inline void ordered(double& a, double& b) {
  if (b < a) exchange(a, b);
}

// The largest so far is kept in a register, chosen without a branch: which it is cannot be predicted.
static void selectionSort(double* a, Segment s) {
  for (ptrdiff_t end = s.last; end > s.first; --end) {
    double largest = a[s.first];
    ptrdiff_t place = s.first;
    for (ptrdiff_t i = s.first + 1; i <= end; ++i) {
      const bool larger = a[i] > largest;
      place = larger ? i : place;
      largest = larger ? a[i] : largest;
    }
    exchange(a[place], a[end]);
  }
}

// Parts the segment at the median of three and returns the last place of its lower part. Both parts have elements. The
// ends, ordered about the median, stop the scans, which also stop at equal elements: many equal ones part evenly.
static ptrdiff_t partition(double* a, Segment s) {
  const ptrdiff_t middle = s.first + (s.last - s.first) / 2;
  ordered(a[s.first], a[middle]);
  ordered(a[middle], a[s.last]);
  ordered(a[s.first], a[middle]);
  const double median = a[middle];
  ptrdiff_t low = s.first, high = s.last;
  for (;;) {
    do ++low;
    while (a[low] < median);
    do --high;
    while (median < a[high]);
    if (low >= high) return high;
    exchange(a[low], a[high]);
  }
}

QorStatus qorsSortAscend_64f_I(double* srcDst, int32_t len) {
  if (anyNull(srcDst)) return qorStatusNullPtr;
  if (len < 1) return qorStatusBadSize;
  if (len < 2) return qorStatusOk;
  // Going on with the smaller part halves the segment at least, so the stack holds no more than log2(len) others.
  Segment stack[32];
  int32_t waiting = 0;
  Segment segment = {0, len - 1};
  for (;;) {
    while (length(segment) > longestSelection) {
      const ptrdiff_t parting = partition(srcDst, segment);
      Segment larger = {segment.first, parting}, smaller = {parting + 1, segment.last};
      if (length(larger) < length(smaller)) {
        const Segment t = larger;
        larger = smaller;
        smaller = t;
      }
      stack[waiting++] = larger;
      segment = smaller;
    }
    selectionSort(srcDst, segment);
    if (waiting == 0) return qorStatusOk;
    segment = stack[--waiting];
  }
}
