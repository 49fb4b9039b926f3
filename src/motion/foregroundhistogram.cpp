// Background model of learnt tables: each pixel keeps the values that it had while it stood still and the pairs of
// values (before, after) that it had while it moved, both with probabilities.
//
// Odd: the decision of the one-channel form compares the three bytes of an entry, of which it never writes the last
// two, with a pixel and the two that follow it, past the end of a row too. In the one-channel form the first live entry
// that does not match ends learning for all entries, so its tables fill with entries of equal values and lose their
// order. A renewal at stillBackground 1 divides by 0 and leaves infinite values, which no loop and no address depends
// on: the order of a table and its end follow from `probability`, which is always finite.
#include <limits.h>
#include <math.h>
#include <string.h>

#include "frame/frame.h"
#include "frame/kit/images.h"

struct QoriFGValueEntry {
  float probability, backgroundProbability;
  uint8_t value[3];
};

struct QoriFGPairEntry {
  float probability, backgroundProbability;
  uint8_t before[3], after[3];
};

struct QoriFGHistogramPixel {
  float stillBackground, changedBackground;
  QoriFGValueEntry* valueTable;
  QoriFGPairEntry* pairTable;
  uint8_t valueTrained, pairTrained;
};

struct QoriFGHistogramState_8u {
  uint8_t* reference;
  int32_t referenceStep;
  uint8_t* frameChange;
  int32_t frameChangeStep;
  uint8_t* referenceChange;
  int32_t referenceChangeStep;
  uint8_t* previous;
  int32_t previousStep;
  QoriFGHistogramPixel* pixels;
  int32_t valueLevels, valueTested, valueEntries;
  int32_t pairLevels, pairTested, pairEntries;
  int32_t reserved[2];  // hold 1, and nobody reads them
  float referenceRate, slowRate, fastRate;
  float levelScale, trainedLevel;
  float reservedLevel;  // holds 15, and nobody reads it
  // What the model was made for; not to be exceeded.
  QoriSize size;
  int32_t channels;
};

namespace {

// A pixel of the frame that is learnt, and of the one before it.
struct Sight {
  const uint8_t *before, *now;
  bool background;
};

// What the two kinds of tables differ in.
struct Rule {
  int32_t entries, tested, tolerance;
};

}  // namespace

static Rule valueRule(const QoriFGHistogramState_8u* state) {
  return {state->valueEntries, state->valueTested, int32_t(state->levelScale * 256.0f / float(state->valueLevels))};
}

static Rule pairRule(const QoriFGHistogramState_8u* state) {
  return {state->pairEntries, state->pairTested, int32_t(state->levelScale * 256.0f / float(state->pairLevels))};
}

// --- change masks ---

template <int32_t channels>
static void differencesRow(const uint8_t* src1, const uint8_t* src2, uint8_t* dst, int32_t width) {
  forElements(width, [=](ptrdiff_t x) {
    const uint8_t a = src1[x * channels], b = src2[x * channels];
    dst[x] = a > b ? uint8_t(a - b) : uint8_t(b - a);
  });
}

// Four tables, so that equal neighbours need not wait for each other; eight zeros are counted at once.
static void countRow(const uint8_t* src, uint64_t counts[4][256], int32_t width) {
  int32_t x = 0;
  for (; x <= width - 8; x += 8) {
    uint64_t eight;
    memcpy(&eight, src + x, 8);
    if (eight == 0) {
      counts[0][0] += 8;
      continue;
    }
    for (int32_t i = 0; i < 8; ++i, eight >>= 8) ++counts[i % 4][eight & 255];
  }
  for (; x < width; ++x) ++counts[0][src[x]];
}

// The largest standard deviation of the differences from t on, over all t. All sums are integers below 2^53, so their
// order does not matter. A negative radicand would take more than 2^35 pixels; its NaN is not the largest.
static double changeThreshold(const uint64_t counts[4][256]) {
  double threshold = 0, count = 0, sum = 0, squares = 0;
  for (int32_t t = 255; t >= 0; --t) {
    const double bin = double(counts[0][t] + counts[1][t] + counts[2][t] + counts[3][t]);
    count += bin;
    sum += t * bin;
    squares += t * t * bin;
    if (t == 255) continue;  // its deviation is 0, by definition
    const double n = count == 0 ? 1 : count, mean = sum / n, meanSquare = squares / n;
    const double deviation = sqrt(meanSquare - mean * mean);
    if (deviation > threshold) threshold = deviation;
  }
  return threshold;
}

// 255 where the first channels of two images differ by more than a threshold that their differences give. The mask
// holds the differences until the threshold is known.
template <int32_t channels>
static void changeMask(const uint8_t* src, int32_t srcStep, const uint8_t* other, int32_t otherStep, uint8_t* mask,
                       int32_t maskStep, QoriSize size) {
  uint64_t counts[4][256] = {};
  for (int32_t y = 0; y < size.height; ++y) {
    uint8_t* const row = rowAt(mask, maskStep, y);
    differencesRow<channels>(rowAt(src, srcStep, y), rowAt(other, otherStep, y), row, size.width);
    countRow(row, counts, size.width);
  }
  // An integer is above the threshold if it is above its integer part.
  const uint8_t bound = uint8_t(changeThreshold(counts));
  for (int32_t y = 0; y < size.height; ++y) {
    uint8_t* const row = rowAt(mask, maskStep, y);
    for (int32_t x = 0; x < size.width; ++x) row[x] = row[x] > bound ? 255 : 0;
  }
}

// --- decision ---

static inline bool within(int32_t a, int32_t b, int32_t tolerance) {
  return uint32_t(a - b + tolerance) <= 2u * uint32_t(tolerance);
}

static inline const uint8_t* comparedBytes(const QoriFGValueEntry& entry) { return entry.value; }
static inline const uint8_t* comparedBytes(const QoriFGPairEntry& entry) { return entry.before; }

// `pixel` is followed by two more bytes: channels, or in the one-channel form the neighbours to the right.
template <class Entry>
static bool decidedForeground(const Entry* table, Rule rule, float slowRate, float background, const uint8_t* pixel) {
  float probability = 0, backgroundProbability = 0;
  for (int32_t i = 0; i < rule.tested && table[i].probability > slowRate; ++i) {
    const uint8_t* const bytes = comparedBytes(table[i]);
    if (within(bytes[0], pixel[0], rule.tolerance) && within(bytes[1], pixel[1], rule.tolerance) &&
        within(bytes[2], pixel[2], rule.tolerance)) {
      probability += table[i].probability;
      backgroundProbability += table[i].backgroundProbability;
    }
  }
  return probability >= 2.0f * backgroundProbability * background;
}

// No entry of the one-channel form counts where the two pixels that follow are too bright, and a sum of none is not
// below another: the pixel is foreground, whatever the table holds.
template <int32_t channels>
static inline bool noneCounts(const uint8_t* pixel, int32_t tolerance) {
  return channels == 1 && (pixel[1] > tolerance || pixel[2] > tolerance);
}

// Tables of the next pixels are asked for while those of this one are worked on.
static constexpr int32_t pixelsAhead = 12;

static inline void prefetchTable(const QoriFGHistogramPixel* pixel, bool changed) {
  const auto* const table = changed ? reinterpret_cast<const uint8_t*>(pixel->pairTable)
                                    : reinterpret_cast<const uint8_t*>(pixel->valueTable);
  __builtin_prefetch(table, 1);
  __builtin_prefetch(table + 48, 1);
}

template <int32_t channels>
static void decideRow(const QoriFGHistogramState_8u* state, const uint8_t* src, const uint8_t* frameChange,
                      const uint8_t* referenceChange, const QoriFGHistogramPixel* pixels, uint8_t* dst, int32_t width) {
  const Rule values = valueRule(state), pairs = pairRule(state);
  const float slowRate = state->slowRate;
  for (int32_t x = 0; x < width; ++x) {
    if (x <= width - 8) {
      uint64_t eight, eightMore;
      memcpy(&eight, frameChange + x, 8);
      memcpy(&eightMore, referenceChange + x, 8);
      if ((eight | eightMore) == 0) {
        x += 7;
        continue;
      }
    }
    if (!(frameChange[x] | referenceChange[x])) continue;
    const QoriFGHistogramPixel& pixel = pixels[x];
    const uint8_t* const bytes = src + ptrdiff_t(x) * channels;
    if (x < width - pixelsAhead - 2 && !noneCounts<channels>(bytes + pixelsAhead * channels, pairs.tolerance)) {
      prefetchTable(pixels + x + pixelsAhead, frameChange[x + pixelsAhead] != 0);
    }
    bool foreground;
    if (frameChange[x]) {
      foreground = !pixel.pairTrained || noneCounts<channels>(bytes, pairs.tolerance) ||
                   decidedForeground(pixel.pairTable, pairs, slowRate, pixel.changedBackground, bytes);
    } else {
      foreground =
          pixel.valueTrained && (noneCounts<channels>(bytes, values.tolerance) ||
                                 decidedForeground(pixel.valueTable, values, slowRate, pixel.stillBackground, bytes));
    }
    if (foreground) dst[x] = 255;
  }
}

// --- learning ---

// Adds the distance of two pixels to `sum`; false if a channel is beyond the tolerance.
template <int32_t channels>
static inline bool addDistance(const uint8_t* a, const uint8_t* b, int32_t tolerance, int32_t* sum) {
  for (int32_t c = 0; c < channels; ++c) {
    const int32_t difference = a[c] > b[c] ? a[c] - b[c] : b[c] - a[c];
    if (difference > tolerance) return false;
    *sum += difference;
  }
  return true;
}

template <int32_t channels>
static inline bool matches(const QoriFGValueEntry& entry, const Sight& sight, int32_t tolerance, int32_t* sum) {
  return addDistance<channels>(entry.value, sight.now, tolerance, sum);
}
template <int32_t channels>
static inline bool matches(const QoriFGPairEntry& entry, const Sight& sight, int32_t tolerance, int32_t* sum) {
  return addDistance<channels>(entry.before, sight.before, tolerance, sum) &&
         addDistance<channels>(entry.after, sight.now, tolerance, sum);
}

template <int32_t channels>
static inline void remember(QoriFGValueEntry* entry, const Sight& sight) {
  memcpy(entry->value, sight.now, channels);
}
template <int32_t channels>
static inline void remember(QoriFGPairEntry* entry, const Sight& sight) {
  memcpy(entry->before, sight.before, channels);
  memcpy(entry->after, sight.now, channels);
}

// Teaches a table what the pixel is now; true if its background was renewed. What lies behind the first entry of
// probability 0 is never seen again, and is kept at 0 as well: so only the live part has to be moved.
template <int32_t channels, class Entry>
static bool learn(Entry* table, const Rule& rule, const QoriFGHistogramState_8u* state, const Sight& sight,
                  uint8_t* trained, float* background) {
  const float rate = *trained ? state->slowRate : state->fastRate, kept = 1.0f - rate;
  *background *= kept;
  if (sight.background) *background += rate;

  int32_t nearest = -1, smallest = INT_MAX, last = rule.entries - 1;
  bool cleared = false;
  for (int32_t i = 0; i <= last && table[i].probability != 0; ++i) {
    table[i].probability *= kept;
    table[i].backgroundProbability *= kept;
    if (double(table[i].probability) < 1e-10) {
      table[i].probability = table[i].backgroundProbability = 0;
      cleared = true;
      continue;
    }
    int32_t sum = 0;
    if (matches<channels>(table[i], sight, rule.tolerance, &sum)) {
      if (sum < smallest) {
        smallest = sum;
        nearest = i;
      }
    } else if (channels == 1) {
      nearest = -1;  // required: matches before this entry do not count
      break;
    }
  }

  Entry changed = {};
  if (nearest >= 0) {
    changed = table[nearest];
    changed.probability += rate;
    if (sight.background) changed.backgroundProbability += rate;
  } else {
    changed.probability = changed.backgroundProbability = rate;
    remember<channels>(&changed, sight);
  }
  int32_t to = 0, from = nearest >= 0 ? nearest : last;
  while (to < from && table[to].probability > changed.probability) ++to;
  if (nearest < 0 && !cleared) {
    // The last entry is overwritten, but if there is a free one the live part ends there.
    for (from = to; from < last && table[from].probability != 0;) ++from;
  }
  if (from > to) memmove(table + to + 1, table + to, size_t(from - to) * sizeof(Entry));
  table[to] = changed;
  if (cleared) {
    int32_t end = 0;
    while (end <= last && table[end].probability != 0) ++end;
    for (; end <= last; ++end) table[end].probability = 0;
  }

  float probability = 0, backgroundProbability = 0;
  int32_t count = 0;
  for (; count < rule.tested && table[count].probability != 0; ++count) {
    probability += table[count].probability;
    backgroundProbability += table[count].backgroundProbability;
  }
  if (probability > state->trainedLevel) *trained = 1;
  const bool renewed = probability - backgroundProbability * *background > state->trainedLevel;
  if (renewed) {
    for (int32_t i = 0; i < count; ++i) {
      table[i].backgroundProbability =
          (table[i].probability - table[i].backgroundProbability * *background) / (1.0f - *background);
    }
  }
  return renewed;
}

template <int32_t channels>
static void learnRow(const QoriFGHistogramState_8u* state, const uint8_t* src, const uint8_t* previous,
                     const uint8_t* frameChange, const uint8_t* mask, QoriFGHistogramPixel* pixels, int32_t width) {
  const Rule values = valueRule(state), pairs = pairRule(state);
  for (int32_t x = 0; x < width; ++x) {
    if (x < width - pixelsAhead) prefetchTable(pixels + x + pixelsAhead, frameChange[x + pixelsAhead] != 0);
    QoriFGHistogramPixel& pixel = pixels[x];
    const Sight sight = {previous + ptrdiff_t(x) * channels, src + ptrdiff_t(x) * channels, mask[x] == 0};
    if (frameChange[x] || !pixel.pairTrained) {
      learn<channels>(pixel.pairTable, pairs, state, sight, &pixel.pairTrained, &pixel.changedBackground);
    }
    if (!frameChange[x] &&
        learn<channels>(pixel.valueTable, values, state, sight, &pixel.valueTrained, &pixel.stillBackground)) {
      pixel.stillBackground = 1.0f - pixel.stillBackground;
    }
  }
}

// The background image: foreground stays, a changed pixel is taken over, others follow slowly.
template <int32_t channels>
static void referenceRow(const uint8_t* src, const uint8_t* mask, const uint8_t* frameChange,
                         const uint8_t* referenceChange, uint8_t* reference, float rate, int32_t width) {
  constexpr int32_t block = 256;
  const float kept = 1.0f - rate;
  uint8_t stays[block * channels], taken[block * channels];
  for (int32_t first = 0; first < width; first += block) {
    const int32_t count = width - first < block ? width - first : block;
    for (int32_t x = 0; x < count; ++x) {
      const uint8_t foreground = mask[first + x] ? 255 : 0;
      const uint8_t changed = frameChange[first + x] | referenceChange[first + x];
      for (int32_t c = 0; c < channels; ++c) {
        stays[x * channels + c] = foreground;
        taken[x * channels + c] = changed;
      }
    }
    const uint8_t* const from = src + ptrdiff_t(first) * channels;
    uint8_t* const to = reference + ptrdiff_t(first) * channels;
    QOR_INDEPENDENT
    for (int32_t i = 0; i < count * channels; ++i) {
      const uint8_t blended = uint8_t(int32_t(float(to[i]) * kept + rate * float(from[i])));
      const uint8_t renewed = taken[i] ? from[i] : blended;
      to[i] = stays[i] ? to[i] : renewed;
    }
  }
}

// --- frames ---

template <int32_t channels>
static QorStatus copyPixels(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize size) {
  return channels == 1 ? qoriCopy_8u_C1R(src, srcStep, dst, dstStep, size)
                       : qoriCopy_8u_C3R(src, srcStep, dst, dstStep, size);
}

template <int32_t channels>
static QorStatus initAlloc(const uint8_t* src, int32_t srcStep, QoriSize roiSize, const void* model,
                           QoriFGHistogramState_8u** state) {
  if (anyNull(src, model, state)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (shortStep<uint8_t, channels>(srcStep, roiSize)) return qorStatusBadStep;
  const size_t count = size_t(roiSize.width) * size_t(roiSize.height);
  constexpr int32_t valueEntries = 25, pairEntries = 40;
  if (count > SIZE_MAX / (pairEntries * sizeof(QoriFGPairEntry))) return qorStatusNoMemory;

  auto* const made = static_cast<QoriFGHistogramState_8u*>(qorMalloc(sizeof(QoriFGHistogramState_8u)));
  if (!made) return qorStatusNoMemory;
  // Each block, in the order in which they are allocated; with the first that fails the others are given back.
  void* blocks[7] = {};
  const size_t sizes[7] = {count * sizeof(QoriFGHistogramPixel),
                           count * valueEntries * sizeof(QoriFGValueEntry),
                           count * pairEntries * sizeof(QoriFGPairEntry),
                           count,
                           count,
                           count * channels,
                           count * channels};
  for (int32_t i = 0; i < 7; ++i) {
    blocks[i] = qorMalloc(sizes[i]);
    if (blocks[i]) continue;
    while (--i >= 0) qorFree(blocks[i]);
    qorFree(made);
    return qorStatusNoMemory;
  }
  auto* const pixels = static_cast<QoriFGHistogramPixel*>(blocks[0]);
  auto* const valueTables = static_cast<QoriFGValueEntry*>(blocks[1]);
  auto* const pairTables = static_cast<QoriFGPairEntry*>(blocks[2]);
  // The change masks too: then a first update without a frame before it finds nothing changed.
  for (int32_t i = 1; i < 5; ++i) memset(blocks[i], 0, sizes[i]);
  for (size_t i = 0; i < count; ++i)
    pixels[i] = {0, 0, valueTables + i * valueEntries, pairTables + i * pairEntries, 0, 0};

  const int32_t step = roiSize.width * channels;
  *made = {static_cast<uint8_t*>(blocks[5]),
           step,
           static_cast<uint8_t*>(blocks[3]),
           roiSize.width,
           static_cast<uint8_t*>(blocks[4]),
           roiSize.width,
           static_cast<uint8_t*>(blocks[6]),
           step,
           pixels,
           128,
           15,
           valueEntries,
           64,
           25,
           pairEntries,
           {1, 1},
           0.1f,
           0.005f,
           0.1f,
           2.0f,
           0.9f,
           15.0f,
           roiSize,
           channels};
  copyPixels<channels>(src, srcStep, made->reference, step, roiSize);
  copyPixels<channels>(src, srcStep, made->previous, step, roiSize);
  *state = made;
  return qorStatusOk;
}

static QorStatus freeState(QoriFGHistogramState_8u* state) {
  if (!state) return qorStatusNullPtr;
  if (state->pixels) {
    // The tables of the first pixel are where the blocks begin.
    qorFree(state->pixels->pairTable);
    qorFree(state->pixels->valueTable);
    qorFree(state->pixels);
  }
  qorFree(state->frameChange);
  qorFree(state->referenceChange);
  qorFree(state->reference);
  qorFree(state->previous);
  qorFree(state);
  return qorStatusOk;
}

// A region that the model has no memory for. A smaller one is its top left part.
template <int32_t channels>
static bool beyondModel(QoriSize size, const QoriFGHistogramState_8u* state) {
  return size.width > state->size.width || size.height > state->size.height || channels != state->channels;
}

template <int32_t channels>
static QorStatus foreground(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep, QoriSize roiSize,
                            QoriFGHistogramState_8u* state) {
  if (anyNull(src, dst, state)) return qorStatusNullPtr;
  if (emptySize(roiSize) || beyondModel<channels>(roiSize, state)) return qorStatusBadSize;
  if (shortStep<uint8_t, channels>(srcStep, roiSize)) return qorStatusBadStep;
  changeMask<channels>(src, srcStep, state->previous, state->previousStep, state->frameChange, state->frameChangeStep,
                       roiSize);
  changeMask<channels>(src, srcStep, state->reference, state->referenceStep, state->referenceChange,
                       state->referenceChangeStep, roiSize);
  qoriSet_8u_C1R(0, dst, dstStep, roiSize);
  for (int32_t y = 0; y < roiSize.height; ++y) {
    decideRow<channels>(state, rowAt(src, srcStep, y), rowAt(state->frameChange, state->frameChangeStep, y),
                        rowAt(state->referenceChange, state->referenceChangeStep, y),
                        state->pixels + ptrdiff_t(y) * state->size.width, rowAt(dst, dstStep, y), roiSize.width);
  }
  return qorStatusOk;
}

template <int32_t channels>
static QorStatus update(const uint8_t* src, int32_t srcStep, const uint8_t* mask, int32_t maskStep, uint8_t* ref,
                        int32_t refStep, QoriSize roiSize, QoriFGHistogramState_8u* state) {
  if (anyNull(src, mask, ref, state)) return qorStatusNullPtr;
  if (emptySize(roiSize) || beyondModel<channels>(roiSize, state)) return qorStatusBadSize;
  if (shortStep<uint8_t, channels>(srcStep, roiSize)) return qorStatusBadStep;
  for (int32_t y = 0; y < roiSize.height; ++y) {
    const uint8_t* const srcRow = rowAt(src, srcStep, y);
    const uint8_t* const maskRow = rowAt(mask, maskStep, y);
    const uint8_t* const frameChange = rowAt(state->frameChange, state->frameChangeStep, y);
    learnRow<channels>(state, srcRow, rowAt(state->previous, state->previousStep, y), frameChange, maskRow,
                       state->pixels + ptrdiff_t(y) * state->size.width, roiSize.width);
    referenceRow<channels>(srcRow, maskRow, frameChange, rowAt(state->referenceChange, state->referenceChangeStep, y),
                           rowAt(state->reference, state->referenceStep, y), state->referenceRate, roiSize.width);
  }
  copyPixels<channels>(src, srcStep, state->previous, state->previousStep, roiSize);
  copyPixels<channels>(state->reference, state->referenceStep, ref, refStep, roiSize);
  return qorStatusOk;
}

#define FOREGROUND(form, channels)                                                                                  \
  QorStatus qoriForegroundHistogramInitAlloc_##form(const uint8_t* src, int32_t srcStep, QoriSize roiSize,          \
                                                    const void* model, QoriFGHistogramState_8u** state) {           \
    return initAlloc<channels>(src, srcStep, roiSize, model, state);                                                \
  }                                                                                                                 \
  QorStatus qoriForegroundHistogramFree_##form(QoriFGHistogramState_8u* state) { return freeState(state); }         \
  QorStatus qoriForegroundHistogram_##form(const uint8_t* src, int32_t srcStep, uint8_t* dst, int32_t dstStep,      \
                                           QoriSize roiSize, QoriFGHistogramState_8u* state) {                      \
    return foreground<channels>(src, srcStep, dst, dstStep, roiSize, state);                                        \
  }                                                                                                                 \
  QorStatus qoriForegroundHistogramUpdate_##form(const uint8_t* src, int32_t srcStep, const uint8_t* mask,          \
                                                 int32_t maskStep, uint8_t* ref, int32_t refStep, QoriSize roiSize, \
                                                 QoriFGHistogramState_8u* state) {                                  \
    return update<channels>(src, srcStep, mask, maskStep, ref, refStep, roiSize, state);                            \
  }
FOREGROUND(8u_C1R, 1)
FOREGROUND(8u_C3R, 3)
#undef FOREGROUND
