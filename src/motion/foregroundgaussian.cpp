// Background model of a fixed view: for each pixel a few Gaussian components, learnt from all frames seen so far and
// kept in descending order of weight over deviation. The components of all pixels lie in one block; a table has a
// pointer to those of each pixel.
//
// Odd: the update by the length of the history is made in one frame only, the one in which the counter reaches it. A
// place keeps its match flag while the sort moves the components, so the mask may read the flag against another
// component than the one that matched. Empty components have a mean of 0 and match dark pixels.
#include <math.h>

#include "frame/frame.h"
#include "frame/kit/images.h"

struct QoriFGGaussianState_8u {
  uint8_t* background;
  int32_t backgroundStep;
  uint8_t* foreground;
  int32_t foregroundStep;
  int32_t historyLength;
  int32_t componentCount;
  double backgroundFraction;
  double matchDeviation;
  double deviationLimit;  // nobody reads it
  double weightLimit;     // nobody reads it
  double newVariance;
  void** models;  // of each pixel, row by row, its components; the first points to the block of all
  int32_t frameCount;
  // What the model was made for: no call may walk further.
  QoriSize size;
  int32_t channels;
};

namespace {

template <int32_t channels>
struct QoriFGGaussianComponent {
  int32_t count;
  double weight;
  double variance[channels];
  double mean[channels];
};

}  // namespace

template <int32_t channels>
using Component = QoriFGGaussianComponent<channels>;

// The number of components of each pixel, known to the compiler.
static constexpr int32_t componentCount = 5;

template <int32_t channels>
static inline double varianceOf(const Component<channels>& c) {
  double sum = c.variance[0];
  for (int32_t i = 1; i < channels; ++i) sum += c.variance[i];
  return sum;
}

template <int32_t channels>
static inline bool matches(const Component<channels>& c, const double* pixel, double squareDeviation) {
  double distance = 0;
  for (int32_t i = 0; i < channels; ++i) {
    const double d = c.mean[i] - pixel[i];
    distance = i == 0 ? d * d : distance + d * d;
  }
  return varianceOf(c) * squareDeviation > distance;
}

template <int32_t channels>
static inline void learn(Component<channels>& c, const double* pixel, double rate) {
  for (int32_t i = 0; i < channels; ++i) {
    const double d = pixel[i] - c.mean[i];
    c.mean[i] += d * rate;
    c.variance[i] += (d * d - c.variance[i]) * rate;
  }
}

template <int32_t channels>
static inline void begin(Component<channels>& c, const double* pixel, double variance) {
  c.count = 1;
  for (int32_t i = 0; i < channels; ++i) {
    c.variance[i] = variance;
    c.mean[i] = pixel[i];
  }
}

template <int32_t channels>
static inline void fade(Component<channels>* c, int32_t used, int32_t match, double rate) {
  for (int32_t k = 0; k < used; ++k) c[k].weight += ((k == match ? 1.0 : 0.0) - c[k].weight) * rate;
}

// Whether the key of `after` is certainly not greater than that of `before`: told by the squares of the keys, without a
// root or a division, where they differ by more than any rounding of the keys could.
template <int32_t channels>
static inline bool clearlyInOrder(const Component<channels>& before, const Component<channels>& after) {
  if (after.count <= 0) return true;
  if (before.count <= 0) return false;
  return before.weight * before.weight * varianceOf(after) >
         after.weight * after.weight * varianceOf(before) * 1.000001;
}

template <int32_t channels>
static __attribute__((noinline)) void sortByKeys(Component<channels>* c, int32_t used) {
  double keys[componentCount];
  for (int32_t k = 0; k < used; ++k) keys[k] = c[k].count > 0 ? c[k].weight / sqrt(varianceOf(c[k])) : 0;
  for (int32_t i = 1; i < used; ++i) {
    const double key = keys[i];
    int32_t place = i;
    while (place > 0 && key > keys[place - 1]) --place;
    if (place == i) continue;
    const Component<channels> moved = c[i];
    for (int32_t k = i; k > place; --k) {
      c[k] = c[k - 1];
      keys[k] = keys[k - 1];
    }
    c[place] = moved;
    keys[place] = key;
  }
}

// No component matches: the last one begins anew.
template <int32_t channels>
static __attribute__((noinline)) void replaceLast(Component<channels>* c, int32_t total, const double* pixel,
                                                  bool renewing, const QoriFGGaussianState_8u& state) {
  Component<channels>& last = c[componentCount - 1];
  const double rate = 1.0 / state.historyLength;
  // By contract these weights change twice in the frame of the other rule; without it they are replaced below.
  if (renewing) fade(c, componentCount, -1, rate);
  total += 1 - last.count;
  begin(last, pixel, state.newVariance);
  if (renewing) {
    last.weight = 1.0 / total;
    for (int32_t k = 0; k < componentCount - 1; ++k) c[k].weight *= 1 - rate;
  } else {
    for (int32_t k = 0; k < componentCount; ++k) c[k].weight = double(c[k].count) / total;
  }
}

// One pixel of a frame; returns its place in the mask. Components at the end that are empty and without weight take no
// part in anything but the search, and are not touched.
template <int32_t channels>
static inline uint8_t updatePixel(Component<channels>* c, const uint8_t* src, uint8_t* background, bool renewing,
                                  const QoriFGGaussianState_8u& state, double squareDeviation) {
  double pixel[channels];
  for (int32_t i = 0; i < channels; ++i) pixel[i] = src[i];

  int32_t total = 0;
  for (int32_t k = 0; k < componentCount; ++k) total += c[k].count;
  int32_t used = componentCount;
  while (used > 1 && c[used - 1].count == 0 && c[used - 1].weight == 0) --used;

  int32_t match = 0;
  while (match < componentCount && !matches(c[match], pixel, squareDeviation)) ++match;

  if (match == componentCount) {
    replaceLast(c, total, pixel, renewing, state);
    used = componentCount;
  } else {
    if (used <= match) used = match + 1;
    Component<channels>& matched = c[match];
    if (renewing) {
      fade(c, used, match, 1.0 / state.historyLength);
      learn(matched, pixel, 1.0 / (state.historyLength * matched.weight));
    } else {
      const double divisor = double(total) + 1, rate = 1.0 / divisor;
      matched.count += 1;
      fade(c, used, match, rate);
      // Alone, as it mostly is, it has all counts.
      learn(matched, pixel, matched.count == divisor ? rate : 1.0 / matched.count);
    }
  }

  for (int32_t k = 1; k < used; ++k) {
    if (clearlyInOrder(c[k - 1], c[k])) continue;
    sortByKeys(c, used);
    break;
  }

  for (int32_t i = 0; i < channels; ++i) background[i] = uint8_t(int32_t(c[0].mean[i] + 0.5));

  // The flag of a place is read before the sum is tested: the one that passes the fraction is still background.
  if (match == componentCount) return 255;
  double sum = 0;
  for (int32_t k = 0; k < match; ++k) {
    sum += c[k].weight;
    if (sum > state.backgroundFraction) return 255;
  }
  return 0;
}

// A region that the model has no memory for.
template <int32_t channels>
static bool beyondModel(QoriSize size, const QoriFGGaussianState_8u& state) {
  return size.width > state.size.width || size.height > state.size.height || channels != state.channels;
}

template <int32_t channels>
static QorStatus foregroundGaussian(const uint8_t* src, int32_t srcStep, uint8_t* ref, int32_t refStep, uint8_t* dst,
                                    int32_t dstStep, QoriSize roiSize, QoriFGGaussianState_8u* state) {
  if (anyNull(src, ref, dst, state)) return qorStatusNullPtr;
  if (emptySize(roiSize) || beyondModel<channels>(roiSize, *state)) return qorStatusBadSize;
  if (shortStep<uint8_t, channels>(srcStep, roiSize)) return qorStatusBadStep;

  state->frameCount += 1;
  // By contract not "at least": later frames go on as the earlier ones did.
  const bool renewing = state->frameCount == state->historyLength;
  const double squareDeviation = state->matchDeviation * state->matchDeviation;
  void* const* models = state->models;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const uint8_t* s = rowAt(src, srcStep, y);
    uint8_t* background = rowAt(state->background, state->backgroundStep, y);
    uint8_t* foreground = rowAt(state->foreground, state->foregroundStep, y);
    for (int32_t x = 0; x < roiSize.width; ++x) {
      foreground[x] =
          updatePixel(static_cast<Component<channels>*>(*models++), s, background, renewing, *state, squareDeviation);
      s += channels;
      background += channels;
    }
  }
  qoriCopy_8u_C1R(state->foreground, state->foregroundStep, dst, dstStep, roiSize);
  if constexpr (channels == 1) {
    qoriCopy_8u_C1R(state->background, state->backgroundStep, ref, refStep, roiSize);
  } else {
    qoriCopy_8u_C3R(state->background, state->backgroundStep, ref, refStep, roiSize);
  }
  return qorStatusOk;
}

static QorStatus freeState(QoriFGGaussianState_8u* state) {
  if (anyNull(state)) return qorStatusNullPtr;
  if (state->models) qorFree(state->models[0]);
  qorFree(state->background);
  qorFree(state->foreground);
  qorFree(state->models);
  qorFree(state);
  return qorStatusOk;
}

template <int32_t channels>
static QorStatus initAlloc(const uint8_t* src, int32_t srcStep, QoriSize roiSize, const void* model,
                           QoriFGGaussianState_8u** state) {
  if (anyNull(src, model, state)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t, channels>(srcStep, roiSize)) return qorStatusBadStep;
  // Far more than memory is had, and rows that no step could hold: the sums below stay in range.
  const int64_t numPixels = int64_t(roiSize.width) * roiSize.height, rowBytes = int64_t(roiSize.width) * channels;
  if (numPixels > int64_t(1) << 40 || rowBytes > INT32_MAX) return qorStatusNoMemory;

  const size_t modelBytes = componentCount * sizeof(Component<channels>);
  const size_t sizes[] = {sizeof(QoriFGGaussianState_8u), size_t(numPixels + 256) * sizeof(void*),
                          size_t(numPixels) * channels, size_t(numPixels), size_t(numPixels + 128) * modelBytes};
  constexpr int32_t blockCount = sizeof sizes / sizeof *sizes;
  void* blocks[blockCount];
  for (int32_t i = 0; i < blockCount; ++i) {
    blocks[i] = qorMalloc(sizes[i]);
    if (blocks[i]) continue;
    while (--i >= 0) qorFree(blocks[i]);
    return qorStatusNoMemory;
  }

  auto* made = static_cast<QoriFGGaussianState_8u*>(blocks[0]);
  auto* models = static_cast<void**>(blocks[1]);
  *made = {static_cast<uint8_t*>(blocks[2]),
           int32_t(rowBytes),
           static_cast<uint8_t*>(blocks[3]),
           roiSize.width,
           200,
           componentCount,
           0.7,
           2.5,
           15.0,
           0.05,
           900.0,
           models,
           0,
           roiSize,
           channels};
  auto* c = static_cast<Component<channels>*>(blocks[4]);
  constexpr double firstVariance = 12.5;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const uint8_t* s = rowAt(src, srcStep, y);
    for (int32_t x = 0; x < roiSize.width; ++x) {
      *models++ = c;
      for (int32_t k = 0; k < componentCount; ++k, ++c) {
        c->count = k == 0;
        c->weight = k == 0;
        for (int32_t i = 0; i < channels; ++i) {
          c->variance[i] = firstVariance;
          c->mean[i] = k == 0 ? s[i] : 0;
        }
      }
      s += channels;
    }
  }
  *state = made;
  return qorStatusOk;
}

#define QOR_GAUSSIAN(form, channels)                                                                             \
  QorStatus qoriForegroundGaussianInitAlloc_8u_##form(const uint8_t* src, int32_t srcStep, QoriSize roiSize,     \
                                                      const void* model, QoriFGGaussianState_8u** state) {       \
    return initAlloc<channels>(src, srcStep, roiSize, model, state);                                             \
  }                                                                                                              \
  QorStatus qoriForegroundGaussian_8u_##form(const uint8_t* src, int32_t srcStep, uint8_t* ref, int32_t refStep, \
                                             uint8_t* dst, int32_t dstStep, QoriSize roiSize,                    \
                                             QoriFGGaussianState_8u* state) {                                    \
    return foregroundGaussian<channels>(src, srcStep, ref, refStep, dst, dstStep, roiSize, state);               \
  }                                                                                                              \
  QorStatus qoriForegroundGaussianFree_8u_##form(QoriFGGaussianState_8u* state) { return freeState(state); }
QOR_GAUSSIAN(C1R, 1)
QOR_GAUSSIAN(C3R, 3)
#undef QOR_GAUSSIAN
