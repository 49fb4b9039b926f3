// The next smaller layer of a pyramid at any rate: smoothing, then resampling.
//
// The source is smoothed and resampled row by row as the output needs it; rows that no output pixel takes from are
// never formed. Integer images have 3 fractional bits between the two steps.
//
// Odd: an image that does not exceed the kernel in both dimensions has the products of its horizontal pass shifted one
// by one, not their sum. Resampled integers are rounded up from the half towards 0, so negative values between the
// steps rise. Without a right neighbour the last pixel is taken as it is.
#include <string.h>

#include <algorithm>
#include <type_traits>

#include "frame/clamp.h"
#include "pyramid/layerstate.h"

// A window's sum in the order of the taps: element x of all `size` rows. n is 0 for any size.
template <int32_t n, class Sum, class Load, class Store>
static inline void sumWindows(ptrdiff_t count, int32_t size, Load product, Store store) {
  if constexpr (n > 0) {
    for (ptrdiff_t x = 0; x < count; ++x) {
      Sum sum = product(0, x);
      for (int32_t j = 1; j < n; ++j) sum += product(j, x);
      store(x, sum);
    }
  } else {
    constexpr ptrdiff_t block = 128;
    Sum sums[block];
    for (ptrdiff_t first = 0; first < count; first += block) {
      const ptrdiff_t length = std::min(block, count - first);
      for (ptrdiff_t i = 0; i < length; ++i) sums[i] = product(0, first + i);
      for (int32_t j = 1; j < size; ++j) {
        for (ptrdiff_t i = 0; i < length; ++i) sums[i] += product(j, first + i);
      }
      for (ptrdiff_t i = 0; i < length; ++i) store(first + i, sums[i]);
    }
  }
}

// The horizontal pass over a row with its frame.
template <int32_t n, int32_t channels, bool small, class T, class Sum>
static void smoothAlong(const T* __restrict extended, const typename Layer<T>::Tap* kernel, int32_t kernelSize,
                        Sum* __restrict row, ptrdiff_t count) {
  if constexpr (std::is_floating_point_v<T>) {
    sumWindows<n, float>(
        count, kernelSize, [=](ptrdiff_t j, ptrdiff_t x) { return kernel[j] * extended[x + j * channels]; },
        [=](ptrdiff_t x, float sum) { row[x] = sum; });
  } else {
    constexpr int32_t shift = Layer<T>::rowShift;
    sumWindows<n, Sum>(
        count, kernelSize,
        [=](ptrdiff_t j, ptrdiff_t x) {
          const Sum product = Sum(kernel[j]) * Sum(extended[x + j * channels]);
          return small ? Sum(product >> shift) : product;
        },
        [=](ptrdiff_t x, Sum sum) { row[x] = small ? sum : Sum(sum >> shift); });
  }
}

// The vertical pass over the rows of a window.
template <int32_t n, class T, class Sum>
static void smoothAcross(const Sum* const* window, const typename Layer<T>::Tap* kernel, int32_t kernelSize,
                         typename Layer<T>::Row* __restrict row, ptrdiff_t count) {
  // Of a fixed size the rows and taps are copied: no write to the row can change them.
  const Sum* rows[n > 0 ? n : 1];
  Sum taps[n > 0 ? n : 1];
  for (int32_t j = 0; j < n; ++j) {
    rows[j] = window[j];
    taps[j] = Sum(kernel[j]);
  }
  const auto product = [&](ptrdiff_t j, ptrdiff_t x) {
    return n > 0 ? taps[j] * rows[j][x] : Sum(kernel[j]) * window[j][x];
  };
  if constexpr (std::is_floating_point_v<T>) {
    sumWindows<n, float>(count, kernelSize, product, [=](ptrdiff_t x, float sum) { row[x] = sum; });
  } else {
    constexpr int32_t shift = Layer<T>::columnShift;
    sumWindows<n, Sum>(count, kernelSize, product, [=](ptrdiff_t x, Sum sum) {
      const Sum value = (sum + (Sum(1) << (shift - 1))) >> shift;
      if constexpr (std::is_same_v<Sum, uint32_t>) {
        row[x] = int32_t(value);
      } else {
        row[x] = int32_t(std::clamp<Sum>(value, Layer<T>::lowestSmooth, Layer<T>::highestSmooth));
      }
    });
  }
}

template <class T, class Row>
static inline Row between(Row left, Row right, float fraction) {
  if constexpr (std::is_floating_point_v<T>) {
    return right * fraction + (1.0f - fraction) * left;
  } else {
    const float value = float(right) * fraction + 0.5f + (1.0f - fraction) * float(left);
    // Only 32-bit values can leave the range, by the rounding of large floats.
    return int32_t(sizeof(T) == 1 ? value : clamped(value, -2147483648.0f, 2147483520.0f));
  }
}

static inline void finish(float value, float* dst) { *dst = value; }

template <class T>
static inline void finish(int32_t value, T* dst) {
  // Far above what is held; only to add without a wrap.
  const int32_t rounded = (std::min(value, 1 << 28) + 4) >> 3;
  *dst = T(std::clamp<int32_t>(rounded, 0, Layer<T>::highest));
}

// What a call works on.
template <class T, class Sum>
struct Down {
  const T* src;
  int32_t srcStep;
  QoriSize size;
  const QoriPyramidLayerState* state;
  bool small;
  int32_t filledRows;     // rows of the source up to here have been through the horizontal pass, or skipped
  int32_t smoothed;       // the row that smoothRow holds
  int32_t resampled[2];   // the rows that resampledRows hold
  int32_t resampledEdge;  // elements of a resampled row that have a right neighbour
  int32_t resampledCount;
};

template <class T, int32_t channels, class Sum>
static Sum* ringRow(const Down<T, Sum>& down, int32_t y) {
  return static_cast<Sum*>(down.state->ring) + ptrdiff_t(y % down.state->ringRows) * down.size.width * channels;
}

template <class T, int32_t channels, class Sum>
static void fillRow(const Down<T, Sum>& down, int32_t y) {
  const QoriPyramidLayerState& state = *down.state;
  const ptrdiff_t half = state.kernelSize / 2;
  const ptrdiff_t count = ptrdiff_t(down.size.width) * channels;
  T* extended = static_cast<T*>(state.extendedRow);
  memcpy(extended + half * channels, rowAt(down.src, down.srcStep, y), size_t(count) * sizeof(T));
  extendRow<channels>(extended + half * channels, down.size.width, half);
  const auto* kernel = static_cast<const typename Layer<T>::Tap*>(state.kernel);
  Sum* row = ringRow<T, channels>(down, y);
  if (down.small) {
    smoothAlong<0, channels, true>(extended, kernel, state.kernelSize, row, count);
  } else if (state.kernelSize == 3) {
    smoothAlong<3, channels, false>(extended, kernel, 3, row, count);
  } else if (state.kernelSize == 5) {
    smoothAlong<5, channels, false>(extended, kernel, 5, row, count);
  } else {
    smoothAlong<0, channels, false>(extended, kernel, state.kernelSize, row, count);
  }
}

// Row y of the smoothed image. Rows are asked for in ascending order.
template <class T, int32_t channels, class Sum>
static const typename Layer<T>::Row* smoothRow(Down<T, Sum>* down, int32_t y) {
  const QoriPyramidLayerState& state = *down->state;
  auto* row = static_cast<typename Layer<T>::Row*>(state.smoothRow);
  if (down->smoothed == y) return row;
  const int32_t half = state.kernelSize / 2;
  const int32_t height = down->size.height;
  // A low image is in the ring as a whole, whatever way the reflection goes. In a high one reflected rows are within
  // the window.
  const bool low = height <= state.kernelSize;
  const int32_t top = low ? 0 : std::max(0, y - half);
  const int32_t bottom = low ? height - 1 : int32_t(std::min(int64_t(height) - 1, int64_t(y) + half));
  for (int32_t i = std::max(top, down->filledRows); i <= bottom; ++i) fillRow<T, channels>(*down, i);
  down->filledRows = std::max(down->filledRows, bottom + 1);
  for (int32_t j = 0; j < state.kernelSize; ++j) {
    state.window[j] = ringRow<T, channels>(*down, int32_t(bounced(ptrdiff_t(y) + j - half, height)));
  }
  const Sum* const* window = reinterpret_cast<const Sum* const*>(state.window);
  const auto* kernel = static_cast<const typename Layer<T>::Tap*>(state.kernel);
  const ptrdiff_t count = ptrdiff_t(down->size.width) * channels;
  if (state.kernelSize == 3) {
    smoothAcross<3, T>(window, kernel, 3, row, count);
  } else if (state.kernelSize == 5) {
    smoothAcross<5, T>(window, kernel, 5, row, count);
  } else {
    smoothAcross<0, T>(window, kernel, state.kernelSize, row, count);
  }
  down->smoothed = y;
  return row;
}

struct Place {
  int32_t index;
  float fraction;
};

// Where output `number` lies in a dimension of `size`.
static Place placeOf(int32_t number, float rate, int32_t size) {
  const float position = float(number) * rate;
  const int64_t index = int64_t(position);
  return Place{int32_t(std::min<int64_t>(index, size - 1)), position - float(index)};
}

// The places of all elements of a resampled row.
template <class T, int32_t channels, class Sum>
static void placeElements(Down<T, Sum>* down, int32_t width) {
  const QoriPyramidLayerState& state = *down->state;
  down->resampledCount = width * channels;
  down->resampledEdge = down->resampledCount;
  for (int32_t x = 0; x < width; ++x) {
    const Place place = placeOf(x, state.rate, down->size.width);
    if (place.index + 1 >= down->size.width) down->resampledEdge = std::min(down->resampledEdge, x * channels);
    for (int32_t c = 0; c < channels; ++c) {
      state.places[x * channels + c] = place.index * channels + c;
      state.fractions[x * channels + c] = place.fraction;
    }
  }
}

template <class T, class Row>
static void resampleAlong(const Row* left, const Row* right, const int32_t* places, const float* fractions,
                          Row* __restrict row, ptrdiff_t count) {
  for (ptrdiff_t x = 0; x < count; ++x) {
    const ptrdiff_t place = places[x];
    row[x] = between<T>(left[place], right[place], fractions[x]);
  }
}

// Row y of the smoothed image after the horizontal resampling. The last two are kept.
template <class T, int32_t channels, class Sum>
static const typename Layer<T>::Row* resampledRow(Down<T, Sum>* down, int32_t y) {
  using Row = typename Layer<T>::Row;
  const QoriPyramidLayerState& state = *down->state;
  Row* row = static_cast<Row*>(state.resampledRows) + ptrdiff_t(y & 1) * down->resampledCount;
  if (down->resampled[y & 1] == y) return row;
  const Row* smooth = smoothRow<T, channels>(down, y);
  const ptrdiff_t edge = down->resampledEdge;
  resampleAlong<T>(smooth, smooth + channels, state.places, state.fractions, row, edge);
  for (ptrdiff_t x = edge; x < down->resampledCount; ++x) row[x] = smooth[state.places[x]];
  down->resampled[y & 1] = y;
  return row;
}

template <class T, int32_t channels, class Sum>
static void layerDown(const T* src, int32_t srcStep, QoriSize size, T* dst, int32_t dstStep, QoriSize dstSize,
                      const QoriPyramidLayerState* state) {
  using Row = typename Layer<T>::Row;
  const bool small = size.width <= state->kernelSize || size.height <= state->kernelSize;
  Down<T, Sum> down = {src, srcStep, size, state, small, 0, -1, {-1, -1}, 0, 0};
  const double rate = double(state->rate);
  if (rate >= 1.99998 && rate <= 2.00002) {
    for (int32_t y = 0; y < dstSize.height; ++y) {
      // A rate just below 2 may place the last pixel behind the edge.
      const Row* row = smoothRow<T, channels>(&down, int32_t(std::min(2 * int64_t(y), int64_t(size.height) - 1)));
      T* out = rowAt(dst, dstStep, y);
      const ptrdiff_t inside = std::min(dstSize.width, (size.width + 1) / 2);
      for (ptrdiff_t x = 0; x < inside; ++x) {
        for (ptrdiff_t c = 0; c < channels; ++c) finish(row[2 * x * channels + c], out + x * channels + c);
      }
      for (ptrdiff_t x = inside; x < dstSize.width; ++x) {
        for (ptrdiff_t c = 0; c < channels; ++c) finish(row[(size.width - 1) * channels + c], out + x * channels + c);
      }
    }
    return;
  }
  placeElements<T, channels>(&down, dstSize.width);
  const ptrdiff_t count = down.resampledCount;
  for (int32_t y = 0; y < dstSize.height; ++y) {
    const Place place = placeOf(y, state->rate, size.height);
    T* __restrict out = rowAt(dst, dstStep, y);
    const Row* upper = resampledRow<T, channels>(&down, place.index);
    if (place.index + 1 >= size.height) {
      for (ptrdiff_t x = 0; x < count; ++x) finish(upper[x], out + x);
      continue;
    }
    const Row* lower = resampledRow<T, channels>(&down, place.index + 1);
    const float fraction = place.fraction;
    for (ptrdiff_t x = 0; x < count; ++x) {
      finish(between<T>(upper[x], lower[x], fraction), out + x);
    }
  }
}

// Whether the sums of both passes fit the narrow type.
template <class T>
static bool fitsNarrow(const QoriPyramidLayerState* state) {
  if constexpr (std::is_floating_point_v<T>) {
    return true;
  } else {
    const int16_t* kernel = static_cast<const int16_t*>(state->kernel);
    double magnitude = 0;
    for (int32_t j = 0; j < state->kernelSize; ++j) {
      if (std::is_unsigned_v<typename Layer<T>::Sum> && kernel[j] < 0) return false;
      magnitude += kernel[j] < 0 ? -kernel[j] : kernel[j];
    }
    constexpr double limit = double(std::is_unsigned_v<typename Layer<T>::Sum> ? UINT32_MAX : INT32_MAX);
    const double row = magnitude * Layer<T>::highest;
    // Negative products may each be shifted to one below. Non-negative ones lose their fraction.
    const double shifted = std::is_unsigned_v<typename Layer<T>::Sum>
                               ? row / (1 << Layer<T>::rowShift)
                               : row / (1 << Layer<T>::rowShift) + state->kernelSize;
    return row <= limit && magnitude * shifted + (1 << (Layer<T>::columnShift - 1)) <= limit;
  }
}

template <class T, int32_t channels>
static QorStatus down(const T* src, int32_t srcStep, QoriSize srcRoiSize, T* dst, int32_t dstStep, QoriSize dstRoiSize,
                      QoriPyramidLayerState* state) {
  const QorStatus status = checkLayer<T, channels>(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, state);
  if (status != qorStatusOk) return status;
  QoriSize expected;
  qoriGetPyramidDownROI(srcRoiSize, &expected, state->rate);
  if (dstRoiSize.width != expected.width || dstRoiSize.height != expected.height) return qorStatusBadArg;
  if (exceeds(srcRoiSize, state->roiSize)) return qorStatusBadArg;
  if (fitsNarrow<T>(state)) {
    layerDown<T, channels, typename Layer<T>::Sum>(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, state);
  } else {
    layerDown<T, channels, typename Layer<T>::Wide>(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, state);
  }
  return qorStatusOk;
}

#define LAYER_DOWN(form, T, channels)                                                                                \
  QorStatus qoriPyramidLayerDown_##form(const T* src, int32_t srcStep, QoriSize srcRoiSize, T* dst, int32_t dstStep, \
                                        QoriSize dstRoiSize, QoriPyramidLayerState* state) {                         \
    return down<T, channels>(src, srcStep, srcRoiSize, dst, dstStep, dstRoiSize, state);                             \
  }
LAYER_DOWN(8u_C1R, uint8_t, 1)
LAYER_DOWN(8u_C3R, uint8_t, 3)
LAYER_DOWN(16u_C1R, uint16_t, 1)
LAYER_DOWN(16u_C3R, uint16_t, 3)
LAYER_DOWN(32f_C1R, float, 1)
LAYER_DOWN(32f_C3R, float, 3)
#undef LAYER_DOWN
