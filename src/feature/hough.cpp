// Hough lines: every non-zero pixel votes for the lines through it, of each angle one, and the peaks of the votes are
// the lines.
//
// Votes are never held whole: three rows of one angle each take turns, the one under test between its neighbours. The
// strongest peaks are kept in a list in the order of their votes.
//
// Pixels are gathered into a list of their own, and in an order of their own: 16 that are voted for together come from
// 16 places far apart in the image. Neighbours, which often meet in one counter, then do not wait for each other.
//
// Odd: pi is 3.14159, angles are summed up in float, and what does not fit 32 bits when a float is truncated becomes
// the least integer, so that an upper distance beyond all bins lets no vote count.
#include <math.h>
#include <string.h>

#include <algorithm>

#include "feature/hough_rows.h"
#include "frame/frame.h"

static constexpr double almostPi = 3.14159;

// Columns and rows below this have 16 bits, so that a pixel fits one word of the list.
static constexpr int32_t mostPaired = 32768;

namespace {

struct HoughPeak {
  int32_t bin, theta, votes, spare;
};

// The strongest peaks, descending by votes; of equal ones the older first.
struct PeakList {
  HoughPeak* peaks;
  int32_t count, room;
  int32_t minPeak;  // peaks of fewer votes are not looked at in the next row
};

struct Counts {
  int32_t theta, rho, rhoHalf;
};

struct Image {
  const uint8_t* src;
  int32_t srcStep;
  QoriSize size;
};

// Where votes count: from the first to the last angle, and from the lowest to the highest bin.
struct Search {
  float thetaLow, thetaHigh;
  int32_t binLow, binHigh;
};

// The gathered pixels: words of both coordinates in blocks of 16 and a rest; or, of an image too large for these, one
// record a row, of `width` + 1 words: the number of pixels and their columns.
struct Pixels {
  uint32_t* words;
  QoriSize size;
  bool paired;
  int64_t count;
};

}  // namespace

// Truncation as the processor does it: what does not fit gives INT32_MIN, by contract.
static int32_t truncated(double value) {
  return value > -2147483649.0 && value < 2147483648.0 ? int32_t(value) : INT32_MIN;
}

static Counts countsOf(QoriSize size, QoriPointPolar delta) {
  Counts n;
  n.theta = truncated(almostPi / double(delta.theta)) + 1;
  n.rho = truncated(float(2 * (size.width + size.height) + 1) / delta.rho);
  n.rhoHalf = (n.rho - 1) / 2;
  return n;
}

// --- pixels ---

// Calls take(x) for each non-zero pixel of a row, from left to right.
template <class Take>
static void forNonZero(const uint8_t* row, int32_t width, Take take) {
  constexpr uint64_t low7 = 0x7f7f7f7f7f7f7f7f;
  int32_t x = 0;
  for (uint64_t eight; x + 8 <= width; x += 8) {
    memcpy(&eight, row + x, sizeof eight);
    if (eight == 0) continue;
    // The top bit of each byte that is not zero.
    for (uint64_t tops = (((eight & low7) + low7) | eight) & ~low7; tops != 0; tops &= tops - 1) {
      take(x + (__builtin_ctzll(tops) >> 3));
    }
  }
  for (; x < width; ++x) {
    if (row[x] != 0) take(x);
  }
}

static int64_t countNonZero(const Image& image) {
  int64_t count = 0;
  for (int32_t y = 0; y < image.size.height; ++y) {
    const uint8_t* const row = rowAt(image.src, image.srcStep, y);
    int32_t inRow = 0;
    for (int32_t x = 0; x < image.size.width; ++x) inRow += row[x] != 0;
    count += inRow;
  }
  return count;
}

// Pixel k of the image becomes pixel k / blocks of block k % blocks; those that fill no block follow as they come.
static void packPairs(const Image& image, int64_t count, uint32_t* words) {
  const int64_t blocks = count / houghBlock;
  int64_t block = 0, place = 0, end = blocks * houghBlock;
  for (int32_t y = 0; y < image.size.height; ++y) {
    forNonZero(rowAt(image.src, image.srcStep, y), image.size.width, [&](int32_t x) {
      const uint32_t word = uint32_t(y) << 16 | uint32_t(x);
      if (place < houghBlock && blocks > 0) {
        words[block * houghBlock + place] = word;
        if (++block == blocks) {
          block = 0;
          ++place;
        }
      } else {
        words[end++] = word;
      }
    });
  }
}

static void packRecords(const Image& image, uint32_t* words) {
  for (int32_t y = 0; y < image.size.height; ++y, words += ptrdiff_t(image.size.width) + 1) {
    uint32_t count = 0;
    forNonZero(rowAt(image.src, image.srcStep, y), image.size.width, [&](int32_t x) { words[++count] = uint32_t(x); });
    words[0] = count;
  }
}

static Pixels ownHoughLineImgPack(const Image& image, uint32_t* words) {
  const bool paired = image.size.width <= mostPaired && image.size.height <= mostPaired;
  const Pixels pixels = {words, image.size, paired, countNonZero(image)};
  if (paired) {
    packPairs(image, pixels.count, words);
  } else {
    packRecords(image, words);
  }
  return pixels;
}

// --- votes ---

static void voteIfCounting(const HoughAngle& angle, int32_t x, int32_t y, int32_t* votes) {
  const int32_t bin = binOf(angle, x, y);
  if (bin >= angle.binLow && bin <= angle.binHigh) ++votes[bin];
}

// Votes of one theta row into `votes`, whose element 0 is bin 0. Sets binLow and binHigh of `angle` to bounds of the
// bins that have votes.
static void ownHoughLineDoLine(const Pixels& pixels, HoughAngle& angle, int32_t* votes) {
  if (!pixels.paired) {
    const uint32_t* record = pixels.words;
    for (int32_t y = 0; y < pixels.size.height; ++y, record += ptrdiff_t(pixels.size.width) + 1) {
      for (ptrdiff_t i = 1; i <= ptrdiff_t(record[0]); ++i) voteIfCounting(angle, int32_t(record[i]), y, votes);
    }
    return;
  }
  const ptrdiff_t blocks = ptrdiff_t(pixels.count / houghBlock);
  for (int64_t i = blocks * houghBlock; i < pixels.count; ++i) {
    voteIfCounting(angle, int32_t(pixels.words[i] & 0xffff), int32_t(pixels.words[i] >> 16), votes);
  }
  if (!isNarrow(angle)) {
    voteBlocks<false, false>(angle, pixels.words, blocks, votes);
    return;
  }
  // The extreme bins lie at corners of the image.
  const int32_t right = pixels.size.width - 1, bottom = pixels.size.height - 1;
  const int32_t least = binOf(angle, angle.cosine < 0 ? right : 0, angle.sine < 0 ? bottom : 0);
  const int32_t greatest = binOf(angle, angle.cosine < 0 ? 0 : right, angle.sine < 0 ? 0 : bottom);
  if (least >= angle.binLow && greatest <= angle.binHigh) {
    voteBlocks<true, true>(angle, pixels.words, blocks, votes);
  } else {
    voteBlocks<true, false>(angle, pixels.words, blocks, votes);
  }
  angle.binLow = std::max(angle.binLow, least);
  angle.binHigh = std::min(angle.binHigh, greatest);
}

// --- peaks ---

static void insertPeak(PeakList& list, const HoughPeak& peak) {
  if (list.count == list.room) list.minPeak = list.peaks[list.count - 1].votes;
  const HoughPeak* const place =
      std::upper_bound(list.peaks, list.peaks + list.count, peak.votes,
                       [](int32_t votes, const HoughPeak& older) { return older.votes < votes; });
  const ptrdiff_t j = place - list.peaks;
  if (list.count < list.room) ++list.count;
  if (j == list.count) return;
  memmove(list.peaks + j + 1, list.peaks + j, size_t(list.count - 1 - j) * sizeof(HoughPeak));
  list.peaks[j] = peak;
}

// Peaks of the row `votes` between the rows of the angles before and after it; element 0 of each is bin 0.
static void ownHoughLineFindPeak(const int32_t* before, const int32_t* votes, const int32_t* after, int32_t first,
                                 int32_t last, int32_t threshold, int32_t theta, PeakList& list) {
  // Of a plateau the bin with the lowest angle and distance is the peak. A peak found here does not raise the bar for
  // others of its row.
  const int32_t least = std::max(threshold, list.minPeak - 1);
  const auto testOne = [&](ptrdiff_t i) {
    const int32_t a = votes[i];
    if (a > least && a > votes[i - 1] && a >= votes[i + 1] && a > before[i] && a >= after[i]) {
      insertPeak(list, {int32_t(i), theta, a, 0});
    }
  };
  constexpr ptrdiff_t atOnce = 64;
  ptrdiff_t i = first;
  for (; i + atOnce <= ptrdiff_t(last) + 1; i += atOnce) {
    int32_t any = 0;
    for (ptrdiff_t k = 0; k < atOnce; ++k) any |= votes[i + k] > least;
    if (!any) continue;
    for (ptrdiff_t k = 0; k < atOnce; ++k) testOne(i + k);
  }
  for (; i <= last; ++i) testOne(i);
}

// --- angles ---

// The lists have room for what qoriHoughLineGetSize_8u_C1R() reports: each part of the sum below is at least what is
// used of it, with what alignment takes.
static void ownHoughLineKernel_8u32s_C1R(const Pixels& pixels, const Counts& counts, QoriPointPolar delta,
                                         const Search& search, int32_t threshold, int32_t* rows, ptrdiff_t stride,
                                         PeakList& list) {
  const size_t rowBytes = size_t(stride) * sizeof(int32_t);
  memset(rows, 0, 3 * rowBytes);
  const float inverse = 1.0f / delta.rho;
  const auto isSought = [&](int64_t t) {
    const float theta = float(t) * delta.theta;
    return theta >= search.thetaLow && theta <= search.thetaHigh;
  };
  float angle = 0;
  int32_t first = 0, last = -1;  // bins with votes in the row before
  // One row more than there are angles: it stays empty, as does the one before the first. Nothing lies beyond the
  // last angle that is sought but the test of its row.
  for (int64_t t = 0; t <= counts.theta; ++t, angle += delta.theta) {
    if (t > 0 && float(t - 1) * delta.theta > search.thetaHigh) break;
    const auto binZero = [=](int64_t r) { return rows + r % 3 * stride + 1; };
    memset(binZero(t) - 1, 0, rowBytes);
    HoughAngle row = {0, 0, counts.rhoHalf, search.binLow, search.binHigh};
    const bool votes = t < counts.theta && isSought(t);
    if (votes) {
      row.sine = truncated(1024.0 * sin(double(angle)) * double(inverse));
      row.cosine = truncated(1024.0 * cos(double(angle)) * double(inverse));
      ownHoughLineDoLine(pixels, row, binZero(t));
    }
    if (t > 0 && isSought(t - 1)) {
      ownHoughLineFindPeak(binZero(t + 1), binZero(t + 2), binZero(t), first, last, threshold, int32_t(t - 1), list);
    }
    first = row.binLow;
    last = votes ? row.binHigh : -1;
  }
}

static QorStatus ownHoughLine_8u32f_C1R(const Image& image, QoriPointPolar delta, int32_t threshold,
                                        QoriPointPolar* lines, int32_t maxLineCount, int32_t* lineCount,
                                        const Search& search, uint8_t* buffer) {
  const Counts counts = countsOf(image.size, delta);
  PeakList list = {nullptr, 0, maxLineCount, 0};
  // Counts that do not fit 32 bits leave no bins or no angles.
  if (counts.rho > 0 && counts.theta > 0 && search.binLow <= search.binHigh) {
    // A guard before bin 0, the bins, a guard behind them; whole blocks of 32 bytes.
    const ptrdiff_t stride = (ptrdiff_t(counts.rho) + 2 + 7) & ~ptrdiff_t(7);
    int32_t* const rows = alignUp<int32_t>(buffer, 32);
    list.peaks = reinterpret_cast<HoughPeak*>(rows + 3 * stride);
    const Pixels pixels = ownHoughLineImgPack(image, reinterpret_cast<uint32_t*>(list.peaks + maxLineCount));
    if (pixels.count > threshold) {
      ownHoughLineKernel_8u32s_C1R(pixels, counts, delta, search, threshold, rows, stride, list);
    }
  }
  const int32_t n = std::min(list.count, maxLineCount);
  for (ptrdiff_t i = 0; i < n; ++i) {
    lines[i] = {float(list.peaks[i].bin - counts.rhoHalf) * delta.rho, float(list.peaks[i].theta) * delta.theta};
  }
  *lineCount = n;
  return list.count > maxLineCount ? qorStatusWarnLinesTruncated : qorStatusOk;
}

// --- frames ---

static QorStatus checkedHough(const Image& image, QoriPointPolar delta, int32_t threshold, int32_t maxLineCount) {
  if (image.srcStep < 1) return qorStatusBadStep;
  if (emptySize(image.size) || maxLineCount < 1) return qorStatusBadSize;
  if (!(delta.rho > 0)) return qorStatusBadArg;
  if (delta.rho > float(image.size.width + image.size.height) || !(delta.theta > 0)) return qorStatusBadArg;
  if (double(delta.theta) > almostPi) return qorStatusBadArg;
  if (threshold < 1) return qorStatusBadArg;
  return qorStatusOk;
}

static float clampedAngle(float theta) {
  double value = theta;
  if (value > almostPi) value = almostPi;
  if (value < 0) value = 0;
  return float(value);
}

QorStatus qoriHoughLineGetSize_8u_C1R(QoriSize roiSize, QoriPointPolar delta, int32_t maxLineCount,
                                      int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (!(delta.rho > 0) || !(delta.theta > 0)) return qorStatusBadArg;
  const Counts counts = countsOf(roiSize, delta);
  const int64_t rowBytes = (int64_t(counts.rho) + 1) * 4;
  const int64_t rows = 3 * (rowBytes + 32) + 4;
  const int64_t list = 16 * int64_t(maxLineCount) + 32;
  const int64_t tables = 8 * int64_t(counts.theta);
  const int64_t peakRow = rowBytes + 36;
  const int64_t packed = int64_t(roiSize.height) * (4 * (int64_t(roiSize.width) + 4) + 16);
  const int64_t sum = rows + list + tables + peakRow + packed;
  *bufferSize = int32_t(sum);
  return sum > INT32_MAX ? qorStatusWarnSizeOverflow : qorStatusOk;
}

QorStatus qoriHoughLine_8u32f_C1R(const uint8_t* src, int32_t srcStep, QoriSize roiSize, QoriPointPolar delta,
                                  int32_t threshold, QoriPointPolar* lines, int32_t maxLineCount, int32_t* lineCount,
                                  uint8_t* buffer) {
  if (anyNull(src, lines, lineCount, buffer)) return qorStatusNullPtr;
  const Image image = {src, srcStep, roiSize};
  if (const QorStatus status = checkedHough(image, delta, threshold, maxLineCount)) return status;
  const Search search = {0.0f, INFINITY, 0, countsOf(roiSize, delta).rho - 1};
  return ownHoughLine_8u32f_C1R(image, delta, threshold, lines, maxLineCount, lineCount, search, buffer);
}

QorStatus qoriHoughLine_Region_8u32f_C1R(const uint8_t* src, int32_t srcStep, QoriSize roiSize, QoriPointPolar* lines,
                                         float* region, int32_t maxLineCount, int32_t* lineCount, QoriPointPolar delta,
                                         int32_t threshold, uint8_t* buffer) {
  if (anyNull(src, lines, region, lineCount, buffer)) return qorStatusNullPtr;
  const Image image = {src, srcStep, roiSize};
  if (const QorStatus status = checkedHough(image, delta, threshold, maxLineCount)) return status;
  if (!(region[3] >= region[1]) || !(region[2] >= region[0])) {
    *lineCount = 0;
    return qorStatusBadRange;
  }
  region[1] = clampedAngle(region[1]);
  region[3] = clampedAngle(region[3]);
  const Counts counts = countsOf(roiSize, delta);
  const int32_t binLow = truncated(region[0] / delta.rho + float(counts.rhoHalf));
  const int32_t binHigh = truncated(region[2] / delta.rho + float(counts.rhoHalf));
  const Search search = {region[1], region[3], std::max(binLow, 0), std::min(binHigh, counts.rho - 1)};
  return ownHoughLine_8u32f_C1R(image, delta, threshold, lines, maxLineCount, lineCount, search, buffer);
}
