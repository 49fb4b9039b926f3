// Fills of the region around a seed: of pixels equal to it, of pixels in a range about it, or along small steps between
// neighbours (Grad).
//
// The first two keep spans of a row on a stack. Odd: the Range form compares with the image as it becomes, so filled
// pixels may match again; what it does then is settled by the exact order of its scans, and the only thing that ends
// such a fill is that all open spans are dropped when there is a quarter as many as pixels, or a limit of steps. Step
// tests are laxer than the rows of three channels need, so rows may lie over each other; pushes are checked for that.
//
// What a Grad fill reaches depends on no order: a step is allowed or not by the values before the call. It marks pixels
// in words of bits, follows whole words at a time, and fills what is marked at the end.
#include "distance/floodfill_rows.h"

namespace {

template <class T, int32_t channels>
struct Target {
  T* image;
  ptrdiff_t step;
  int32_t width, height;
};

// A span of filled pixels, columns left .. right, that came from columns parentLeft .. parentRight of row
// row + direction.
template <class Side, class Direction>
struct SpanOf {
  Side row, left, right, parentLeft, parentRight;
  Direction direction;
};

using Span = SpanOf<int32_t, int32_t>;

// Spans as the stack holds them. A buffer has room for a quarter as many of the first kind as there are pixels, and one
// more: that is enough for Range fills of any size but the smallest. A plain fill can have more open at once, but no
// more than half the pixels and one, and for that many of the other two kinds there is room. (Spans of a row do not
// touch, so it has at most (width + 1) / 2 of them; rows in which some have left the stack lie together and have at
// most (width - 1) / 2 others; and only the two rows next to those have open ones beside.) The second kind needs short
// sides; the third forgets where a span came from, which makes a plain fill look again at what it has filled.
using LongEntry = Span;
using ShortEntry = SpanOf<uint16_t, int16_t>;
struct BareEntry {
  int32_t row, left, right;
};

template <class Entry>
struct Stack {
  Entry* entries;
  int64_t count, room;
  int64_t capacity;  // dropped when this many; 0 for never
};

struct Found {
  double area;
  int32_t left, right, top, bottom;
};

}  // namespace

// Fills that circle are ended after this many spans for each pixel.
static constexpr int64_t spansAPixel = 64;

// Bytes that a size query of the caller's reported, without what is lost by aligning the buffer.
static int64_t roomOf(int32_t bufferSize) { return int64_t(uint32_t(bufferSize)) - 7; }

static int64_t plainSize(QoriSize size) { return (int64_t(24) * size.height * size.width >> 2) + 32; }
static int64_t gradSize(QoriSize size) {
  return plainSize(size) + (int64_t(size.width) + 2) * (int64_t(size.height) + 2);
}

template <class Size>
static QorStatus getSize(QoriSize roiSize, int32_t* bufferSize, Size size) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  *bufferSize = int32_t(uint32_t(size(roiSize)));
  return qorStatusOk;
}

static inline Span spanOf(const LongEntry& entry) { return entry; }
static inline Span spanOf(const ShortEntry& entry) {
  return {entry.row, entry.left, entry.right, entry.parentLeft, entry.parentRight, entry.direction};
}
// As the seed's span: nothing of the rows about it counts as covered.
static inline Span spanOf(const BareEntry& entry) {
  return {entry.row, entry.left, entry.right, entry.right + 1, entry.right, 1};
}

static inline void assign(LongEntry& entry, const Span& span) { entry = span; }
static inline void assign(ShortEntry& entry, const Span& span) {
  entry = {uint16_t(span.row),        uint16_t(span.left),        uint16_t(span.right),
           uint16_t(span.parentLeft), uint16_t(span.parentRight), int16_t(span.direction)};
}
static inline void assign(BareEntry& entry, const Span& span) { entry = {span.row, span.left, span.right}; }

// Only rows that lie over each other, or a size that lost its high bits, can leave no room for a span.
template <class Entry>
static inline void push(Stack<Entry>& stack, const Span& span) {
  if (stack.count == stack.room) return;
  assign(stack.entries[stack.count++], span);
  if (stack.count == stack.capacity) stack.count = 0;
}

// First column from x on that does not match, or the width.
template <class T, int32_t channels>
static int32_t endOfRun(const Bounds<T, channels>& bounds, const T* row, int32_t x, int32_t width) {
  constexpr int32_t block = fillBlock<T, channels>;
  while (x < width) {
    const int32_t count = std::min(block, width - x);
    const int32_t run = onesFromZero(matches(bounds, row + ptrdiff_t(x) * channels, lowBits(count)));
    x += run;
    if (run < count) break;
  }
  return x;
}

// First column of the matching pixels that lead up to x, x itself if there are none.
template <class T, int32_t channels>
static int32_t startOfRun(const Bounds<T, channels>& bounds, const T* row, int32_t x) {
  constexpr int32_t block = fillBlock<T, channels>;
  while (x > 0) {
    const int32_t count = std::min(block, x);
    const uint64_t bits = matches(bounds, row + ptrdiff_t(x - count) * channels, lowBits(count));
    const uint64_t others = ~bits & lowBits(count);
    if (others != 0) return x - count + highestBit(others) + 1;
    x -= count;
  }
  return x;
}

// Fills and reports, by use(left, right), the runs of matching pixels that begin in columns from .. to - 1 or reach
// into them from the left.
template <class T, int32_t channels, class Use>
static inline void scanRow(const Target<T, channels>& target, const Bounds<T, channels>& bounds,
                           const Repeated<T, channels>& newValue, int32_t y, int32_t from, int32_t to, Use use) {
  constexpr int32_t block = fillBlock<T, channels>;
  T* const row = rowAt(target.image, target.step, y);
  const int32_t width = target.width;
  for (int32_t x = from; x < to;) {
    const int32_t count = std::min(block, width - x);
    const uint64_t bits = matches(bounds, row + ptrdiff_t(x) * channels, lowBits(count));
    uint64_t starts = bits & lowBits(std::min(count, to - x));
    int32_t next = x + count;
    while (starts != 0) {
      const int32_t start = lowestBit(starts);
      int32_t left = x + start, end = left + onesFromZero(bits >> start);
      if (end == x + count) end = endOfRun(bounds, row, end, width);
      // Left of any later start lies a pixel that was seen not to match.
      if (left == from) left = startOfRun(bounds, row, left);
      fillPixels(row + ptrdiff_t(left) * channels, end - left, newValue);
      use(left, end - 1);
      if (end >= x + count) {
        next = end + 1;
        break;
      }
      starts &= ~lowBits(end + 1 - x);
    }
    x = next;
  }
}

template <class T, int32_t channels, class Entry>
static Found spread(const Target<T, channels>& target, const Bounds<T, channels>& bounds,
                    const Repeated<T, channels>& newValue, QoriPoint seed, int32_t reach, Stack<Entry> stack) {
  T* const seedRow = rowAt(target.image, target.step, seed.y);
  fillPixels(seedRow + ptrdiff_t(seed.x) * channels, 1, newValue);
  const int32_t seedLeft = startOfRun(bounds, seedRow, seed.x);
  fillPixels(seedRow + ptrdiff_t(seedLeft) * channels, seed.x - seedLeft, newValue);
  const int32_t seedEnd = endOfRun(bounds, seedRow, seed.x + 1, target.width);
  fillPixels(seedRow + ptrdiff_t(seed.x) * channels, seedEnd - seed.x, newValue);
  Found all = {double(seedEnd - seedLeft), seedLeft, seedEnd - 1, seed.y, seed.y};
  if (target.height == 1) return all;

  push(stack, {seed.y, seedLeft, seedEnd - 1, seedEnd, seedEnd - 1, seed.y == target.height - 1 ? -1 : 1});
  int64_t filled = 0;
  for (int64_t rest = spansAPixel * target.width * target.height; stack.count > 0 && rest > 0; --rest) {
    const Span span = spanOf(stack.entries[--stack.count]);
    all.left = std::min(all.left, span.left);
    all.right = std::max(all.right, span.right);
    all.top = std::min(all.top, span.row);
    all.bottom = std::max(all.bottom, span.row);
    const int32_t from = std::max(span.left - reach, 0), to = std::min(span.right + 1 + reach, target.width);
    const auto scan = [&](int32_t direction, int32_t first, int32_t last) {
      const int32_t y = span.row - direction;
      if (y < 0 || y >= target.height) return;
      scanRow(target, bounds, newValue, y, first, last, [&](int32_t begin, int32_t end) {
        push(stack, {y, begin, end, span.left, span.right, direction});
        filled += end - begin + 1;
      });
    };
    scan(span.direction, from, to);
    scan(-span.direction, from, span.parentLeft);
    scan(-span.direction, span.parentRight + 1, to);
  }
  all.area += double(filled);
  return all;
}

template <class T, int32_t channels>
static void report(const Found& found, const T* newValue, QoriConnectedComp* region) {
  region->area = found.area;
  for (int32_t c = 0; c < 3; ++c) region->value[c] = c < channels ? double(newValue[c]) : 0.0;
  region->rect = {found.left, found.top, found.right - found.left + 1, found.bottom - found.top + 1};
}

static bool seedOutside(QoriPoint seed, QoriSize size) {
  return seed.x < 0 || seed.y < 0 || seed.x >= size.width || seed.y >= size.height;
}

// The plain and the Range forms. `minDelta` and `maxDelta` are null in plain forms.
template <class T, int32_t channels>
static QorStatus fill(T* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const T* newValue, bool ranged,
                      const T* minDelta, const T* maxDelta, int32_t reach, QoriConnectedComp* region, uint8_t* buffer) {
  if (anyNull(srcDst, newValue, region, buffer) || (ranged && anyNull(minDelta, maxDelta))) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  // Odd: of three channels of 8u and 32f a row of one is compared with, and steps of 32f only have to be even.
  if (shortStep < T, sizeof(T) == 2 ? channels : 1 > (srcDstStep, roiSize)) return qorStatusBadStep;
  if (sizeof(T) > 1 && misaligned<uint16_t>(srcDstStep)) return qorStatusBadStepAlign;
  if (seedOutside(seed, roiSize)) return qorStatusOutOfRange;

  const T* const start = rowAt(srcDst, srcDstStep, seed.y) + ptrdiff_t(seed.x) * channels;
  bool same = true;
  T value[channels], low[channels], high[channels];
  for (int32_t c = 0; c < channels; ++c) {
    const T s = start[c];
    value[c] = newValue[c];
    same &= s == value[c];
    if (!ranged) {
      low[c] = high[c] = s;
    } else if constexpr (std::is_same_v<T, float>) {
      low[c] = s - minDelta[c];
      high[c] = s + maxDelta[c];
    } else {
      low[c] = T(std::max(s - minDelta[c], 0));
      high[c] = T(std::min(s + maxDelta[c], sizeof(T) == 1 ? 255 : 65535));
    }
  }
  if (same) return qorStatusOk;

  const Target<T, channels> target = {srcDst, srcDstStep, roiSize.width, roiSize.height};
  const int64_t room = roomOf(int32_t(uint32_t(plainSize(roiSize))));
  const int64_t capacity = ranged ? pixels(roiSize) / 4 : 0;
  const Bounds<T, channels> bounds = {repeated<T, channels>(low), repeated<T, channels>(high)};
  const Repeated<T, channels> filling = repeated<T, channels>(value);
  const auto spreadOn = [&](auto* entries) {
    using Entry = std::remove_reference_t<decltype(*entries)>;
    const int64_t entriesRoom = std::max(room / int64_t(sizeof(Entry)), int64_t(0));
    return spread(target, bounds, filling, seed, reach, Stack<Entry>{entries, 0, entriesRoom, capacity});
  };
  const bool shortSides = roiSize.width <= UINT16_MAX && roiSize.height <= UINT16_MAX;
  const Found found = shortSides ? spreadOn(alignUp<ShortEntry>(buffer, 8))
                      : ranged   ? spreadOn(alignUp<LongEntry>(buffer, 8))
                                 : spreadOn(alignUp<BareEntry>(buffer, 8));
  report<T, channels>(found, value, region);
  return qorStatusOk;
}

namespace {

// The pixels of a row go in words of stepBlock pixels. A word whose pixels have been reached, but not all followed to
// their neighbours, waits in a ring, once.
template <class T, int32_t channels, class Word>
struct Marks {
  Target<T, channels> target;
  Deltas<T, channels> deltas;
  int32_t wordsARow;
  uint32_t words;  // of the image, and places in the ring
  Word* visited;
  Word* waiting;
  uint32_t* ring;
  uint32_t head, count;
};

}  // namespace

// Marks the unvisited pixels `starts` of a word and what is reached from them inside it.
template <class T, int32_t channels, class Word>
static inline void arrive(Marks<T, channels, Word>& marks, int32_t y, int32_t k, uint64_t starts) {
  constexpr int32_t block = stepBlock<T, channels>;
  const int32_t x = k * block, count = std::min(block, marks.target.width - x);
  const uint32_t index = uint32_t(y) * uint32_t(marks.wordsARow) + uint32_t(k);
  const T* const row = rowAt(marks.target.image, marks.target.step, y) + ptrdiff_t(x) * channels;
  const uint64_t open = ~uint64_t(marks.visited[index]) & lowBits(count);
  const uint64_t reached = reachedAlong(marks.deltas, row, starts, open);
  marks.visited[index] = Word(marks.visited[index] | reached);
  if (marks.waiting[index] == 0) {
    const uint32_t place = marks.head + marks.count++;
    marks.ring[place < marks.words ? place : place - marks.words] = index;
  }
  marks.waiting[index] = Word(marks.waiting[index] | reached);
}

// A step from the pixel p into a column of row y, which lies in another word.
template <class T, int32_t channels, class Word>
static inline void cross(Marks<T, channels, Word>& marks, int32_t y, int32_t column, const T* p) {
  constexpr int32_t block = stepBlock<T, channels>;
  const int32_t k = column / block;
  const uint64_t bit = uint64_t(1) << (column - k * block);
  const uint32_t index = uint32_t(y) * uint32_t(marks.wordsARow) + uint32_t(k);
  if (marks.visited[index] & bit) return;
  const T* const q = rowAt(marks.target.image, marks.target.step, y) + ptrdiff_t(column) * channels;
  if (allowed(marks.deltas, q, p, 1)) arrive(marks, y, k, bit);
}

// Follows the pixels `bits` of a word to all their neighbours.
template <class T, int32_t channels, class Word>
static inline void follow(Marks<T, channels, Word>& marks, int32_t y, int32_t k, uint64_t bits, int32_t reach) {
  constexpr int32_t block = stepBlock<T, channels>;
  const int32_t x = k * block, count = std::min(block, marks.target.width - x);
  const T* const p = rowAt(marks.target.image, marks.target.step, y) + ptrdiff_t(x) * channels;
  const T* const last = p + ptrdiff_t(count - 1) * channels;
  const bool left = x > 0 && (bits & 1) != 0, right = x + count < marks.target.width && (bits >> (count - 1) & 1) != 0;
  if (left) cross(marks, y, x - 1, p);
  if (right) cross(marks, y, x + count, last);
  for (int32_t row = std::max(y - 1, 0); row <= std::min(y + 1, marks.target.height - 1); ++row) {
    if (row == y) continue;
    const T* const q = rowAt(marks.target.image, marks.target.step, row) + ptrdiff_t(x) * channels;
    const uint64_t open =
        ~uint64_t(marks.visited[uint32_t(row) * uint32_t(marks.wordsARow) + uint32_t(k)]) & lowBits(count);
    uint64_t starts = (bits & open) ? allowed(marks.deltas, q, p, bits & open) : 0;
    if (reach) {
      const uint64_t fromLeft = bits << 1 & open & ~starts;
      if (fromLeft) starts |= allowed(marks.deltas, q, p - channels, fromLeft);
      const uint64_t fromRight = bits >> 1 & open & ~starts;
      if (fromRight) starts |= allowed(marks.deltas, q, p + channels, fromRight);
    }
    if (starts) arrive(marks, row, k, starts);
    if (reach && left) cross(marks, row, x - 1, p);
    if (reach && right) cross(marks, row, x + count, last);
  }
}

template <class T, int32_t channels, class Word>
static Found spreadBySteps(const Target<T, channels>& target, const Deltas<T, channels>& deltas,
                           const Repeated<T, channels>& newValue, QoriPoint seed, int32_t reach, uint8_t* buffer,
                           int64_t room) {
  constexpr int32_t block = stepBlock<T, channels>;
  Found all = {1, seed.x, seed.x, seed.y, seed.y};
  const int32_t wordsARow = (target.width - 1) / block + 1;
  const int64_t words = int64_t(wordsARow) * target.height;
  // Only a size that lost its high bits can have made a buffer too small: then the seed is filled alone.
  if (words * int64_t(2 * sizeof(Word) + sizeof(uint32_t)) + 3 > room) {
    fillPixels(rowAt(target.image, target.step, seed.y) + ptrdiff_t(seed.x) * channels, 1, newValue);
    return all;
  }
  Word* const visited = alignUp<Word>(buffer, 8);
  Marks<T, channels, Word> marks = {
      target, deltas, wordsARow, uint32_t(words), visited, visited + words, alignUp<uint32_t>(visited + 2 * words, 4),
      0,      0};
  memset(visited, 0, size_t(words) * 2 * sizeof(Word));
  arrive(marks, seed.y, seed.x / block, uint64_t(1) << seed.x % block);
  while (marks.count > 0) {
    const uint32_t index = marks.ring[marks.head];
    if (++marks.head == marks.words) marks.head = 0;
    --marks.count;
    const uint64_t bits = marks.waiting[index];
    marks.waiting[index] = 0;
    follow(marks, int32_t(index / uint32_t(wordsARow)), int32_t(index % uint32_t(wordsARow)), bits, reach);
  }

  int64_t area = 0;
  const Word* word = visited;
  for (int32_t y = 0; y < target.height; ++y) {
    T* const row = rowAt(target.image, target.step, y);
    for (int32_t k = 0; k < wordsARow; ++k, ++word) {
      const uint64_t bits = *word;
      if (bits == 0) continue;
      const int32_t x = k * block;
      area += __builtin_popcountll(bits);
      all.left = std::min(all.left, x + lowestBit(bits));
      all.right = std::max(all.right, x + highestBit(bits));
      all.top = std::min(all.top, y);
      all.bottom = y > all.bottom ? y : all.bottom;
      fillBits(row + ptrdiff_t(x) * channels, bits, newValue);
    }
  }
  all.area = double(area);
  return all;
}

template <class T, int32_t channels>
static QorStatus fillBySteps(T* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, const T* newValue,
                             const T* minDelta, const T* maxDelta, int32_t reach, QoriConnectedComp* region,
                             uint8_t* buffer) {
  if (anyNull(srcDst, newValue, minDelta, maxDelta, region, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  // Odd: as in the other forms.
  if (shortStep < T, sizeof(T) == 2 ? channels : 1 > (srcDstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcDstStep)) return qorStatusBadStepAlign;
  if (seedOutside(seed, roiSize)) return qorStatusOutOfRange;
  T value[channels], first[channels], second[channels];
  for (int32_t c = 0; c < channels; ++c) {
    value[c] = newValue[c];
    if constexpr (std::is_same_v<T, float>) {
      if (minDelta[c] < 0 || maxDelta[c] < 0) return qorStatusOutOfRange;
      first[c] = (minDelta[c] - maxDelta[c]) * 0.5f;
      second[c] = (minDelta[c] + maxDelta[c]) * 0.5f;
    } else {
      first[c] = minDelta[c];
      second[c] = maxDelta[c];
    }
  }

  constexpr int32_t block = stepBlock<T, channels>;
  using Word = std::conditional_t<
      (block > 32), uint64_t,
      std::conditional_t<(block > 16), uint32_t, std::conditional_t<(block > 8), uint16_t, uint8_t>>>;
  const Target<T, channels> target = {srcDst, srcDstStep, roiSize.width, roiSize.height};
  const Deltas<T, channels> deltas = {repeated<T, channels>(first), repeated<T, channels>(second)};
  const Repeated<T, channels> filling = repeated<T, channels>(value);
  const int64_t room = roomOf(int32_t(uint32_t(gradSize(roiSize))));
  // Wide words for narrow rows would not fit into the buffer.
  const Found found = roiSize.width <= 8
                          ? spreadBySteps<T, channels, uint8_t>(target, deltas, filling, seed, reach, buffer, room)
                          : spreadBySteps<T, channels, Word>(target, deltas, filling, seed, reach, buffer, room);
  report<T, channels>(found, value, region);
  return qorStatusOk;
}

QorStatus qoriFloodFillGetSize(QoriSize roiSize, int32_t* bufferSize) {
  return getSize(roiSize, bufferSize, plainSize);
}

QorStatus qoriFloodFillGetSize_Grad(QoriSize roiSize, int32_t* bufferSize) {
  return getSize(roiSize, bufferSize, gradSize);
}

#define QOR_FLOOD_FILL(CON, REACH, TYPE, T)                                                                           \
  QorStatus qoriFloodFill_##CON##_##TYPE##_C1IR(T* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed,      \
                                                T newValue, QoriConnectedComp* region, uint8_t* buffer) {             \
    return fill<T, 1>(srcDst, srcDstStep, roiSize, seed, &newValue, false, nullptr, nullptr, REACH, region, buffer);  \
  }                                                                                                                   \
  QorStatus qoriFloodFill_##CON##_##TYPE##_C3IR(T* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed,      \
                                                const T* newValue, QoriConnectedComp* region, uint8_t* buffer) {      \
    return fill<T, 3>(srcDst, srcDstStep, roiSize, seed, newValue, false, nullptr, nullptr, REACH, region, buffer);   \
  }                                                                                                                   \
  QorStatus qoriFloodFill_Range##CON##_##TYPE##_C1IR(T* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, \
                                                     T newValue, T minDelta, T maxDelta, QoriConnectedComp* region,   \
                                                     uint8_t* buffer) {                                               \
    return fill<T, 1>(srcDst, srcDstStep, roiSize, seed, &newValue, true, &minDelta, &maxDelta, REACH, region,        \
                      buffer);                                                                                        \
  }                                                                                                                   \
  QorStatus qoriFloodFill_Range##CON##_##TYPE##_C3IR(T* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed, \
                                                     const T* newValue, const T* minDelta, const T* maxDelta,         \
                                                     QoriConnectedComp* region, uint8_t* buffer) {                    \
    return fill<T, 3>(srcDst, srcDstStep, roiSize, seed, newValue, true, minDelta, maxDelta, REACH, region, buffer);  \
  }                                                                                                                   \
  QorStatus qoriFloodFill_Grad##CON##_##TYPE##_C1IR(T* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed,  \
                                                    T newValue, T minDelta, T maxDelta, QoriConnectedComp* region,    \
                                                    uint8_t* buffer) {                                                \
    return fillBySteps<T, 1>(srcDst, srcDstStep, roiSize, seed, &newValue, &minDelta, &maxDelta, REACH, region,       \
                             buffer);                                                                                 \
  }                                                                                                                   \
  QorStatus qoriFloodFill_Grad##CON##_##TYPE##_C3IR(T* srcDst, int32_t srcDstStep, QoriSize roiSize, QoriPoint seed,  \
                                                    const T* newValue, const T* minDelta, const T* maxDelta,          \
                                                    QoriConnectedComp* region, uint8_t* buffer) {                     \
    return fillBySteps<T, 3>(srcDst, srcDstStep, roiSize, seed, newValue, minDelta, maxDelta, REACH, region, buffer); \
  }
QOR_FLOOD_FILL(4Con, 0, 8u, uint8_t)
QOR_FLOOD_FILL(4Con, 0, 16u, uint16_t)
QOR_FLOOD_FILL(4Con, 0, 32f, float)
QOR_FLOOD_FILL(8Con, 1, 8u, uint8_t)
QOR_FLOOD_FILL(8Con, 1, 16u, uint16_t)
QOR_FLOOD_FILL(8Con, 1, 32f, float)
#undef QOR_FLOOD_FILL
