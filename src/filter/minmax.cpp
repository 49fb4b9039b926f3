// Minimum and maximum filters over a rectangle that is cut off at the image's edges.
//
// Odd: mask and anchor are tested before the steps, and the 32f forms test each step's length and alignment together.
// The reported scratch has room for two rings of rows, but stays untouched: tiles on the stack are enough, and dst
// itself for the largest masks. So a size that has wrapped does no harm.
#include <algorithm>

#include "filter/minmax_rows.h"
#include "frame/frame.h"
#include "frame/kit/vectors.h"

// How far a window reaches before and behind its pixel. More than the image has is cut off: the result stays the same.
struct Reach {
  int32_t before, behind;
};

static inline Reach reachOf(int32_t maskLength, int32_t anchor, int32_t length) {
  return {std::min(anchor, length - 1), std::min(maskLength - 1 - anchor, length - 1)};
}

static inline int64_t lengthOf(Reach reach) { return int64_t(reach.before) + reach.behind + 1; }

// Columns in elements, split into tiles that hold what their windows reach too.
struct Tiles {
  ptrdiff_t before, behind, length;
};

template <class T>
static bool fitsTiles(Reach reach, int32_t channels) {
  return (lengthOf(reach) - 1) * channels * int64_t(sizeof(T)) <= tileBytes / 2;
}

template <class T>
static Tiles tilesOf(Reach reach, int32_t channels, ptrdiff_t count) {
  const ptrdiff_t before = ptrdiff_t(reach.before) * channels, behind = ptrdiff_t(reach.behind) * channels;
  ptrdiff_t most = tileBytes / ptrdiff_t(sizeof(T)) - before - behind;
  most -= most % channels;
  const ptrdiff_t tiles = (count + most - 1) / most, unit = 64 * channels;
  return {before, behind, std::min(most, ((count + tiles - 1) / tiles + unit - 1) / unit * unit)};
}

// The part of a tile that comes from the image; the rest repeats the edge pixels.
struct Filled {
  ptrdiff_t begin, end;  // in the tile
};

static inline Filled filledOf(const Tiles& tiles, ptrdiff_t first, ptrdiff_t length, ptrdiff_t count) {
  const ptrdiff_t origin = first - tiles.before;
  return {std::max<ptrdiff_t>(0, -origin), std::min(count, first + length + tiles.behind) - origin};
}

template <class T>
static inline void fillEdges(T* tile, Filled filled, ptrdiff_t length, int32_t channels) {
  fillPixels(tile, tile + filled.begin, filled.begin, channels);
  fillPixels(tile + filled.end, tile + filled.end - channels, length - filled.end, channels);
}

// A mask of a few pixels needs no tile but at the row's ends.
template <Extreme extreme, class T>
static void narrowRow(const T* src, T* dst, int32_t width, int32_t channels, Reach reach) {
  const auto maskWidth = int32_t(lengthOf(reach));
  const auto edge = [=](int32_t x) {
    const int32_t first = std::max(0, x - reach.before);
    const auto last = int32_t(std::min<int64_t>(width - 1, int64_t(x) + reach.behind));
    for (int32_t c = 0; c < channels; ++c) {
      Lone<T> result, more;
      load(result, src + ptrdiff_t(first) * channels + c);
      for (int32_t i = first + 1; i <= last; ++i) {
        load(more, src + ptrdiff_t(i) * channels + c);
        result = extremeOf<extreme>(result, more);
      }
      store(dst + ptrdiff_t(x) * channels + c, result);
    }
  };
  const int32_t begin = std::min(reach.before, width), end = std::max(begin, width - reach.behind);
  for (int32_t x = 0; x < begin; ++x) edge(x);
  if (end > begin) {
    termsRow<extreme>(src, maskWidth, channels, ptrdiff_t(maskWidth - 1) * channels, dst + ptrdiff_t(begin) * channels,
                      ptrdiff_t(end - begin) * channels);
  }
  for (int32_t x = end; x < width; ++x) edge(x);
}

// For masks that no tile holds: the window grows to the right, then to the left, within dst.
template <Extreme extreme, class T>
static void widestRow(const T* src, T* dst, int32_t width, int32_t channels, Reach reach) {
  const ptrdiff_t count = ptrdiff_t(width) * channels;
  memcpy(dst, src, size_t(count) * sizeof(T));
  for (ptrdiff_t span = 0, more; span < reach.behind; span += more) {
    more = std::min(span + 1, reach.behind - span);
    widenRight<extreme>(dst, count, more * channels);
  }
  for (ptrdiff_t span = 0, more; span < reach.before; span += more) {
    more = std::min(span + 1, reach.before - span);
    widenLeft<extreme>(dst, count, more * channels);
  }
}

template <Extreme extreme, class T>
static void filterRow(const T* src, T* dst, int32_t width, int32_t channels, Reach reach) {
  const ptrdiff_t count = ptrdiff_t(width) * channels;
  if (lengthOf(reach) <= mostTerms) return narrowRow<extreme>(src, dst, width, channels, reach);
  if (!fitsTiles<T>(reach, channels)) return widestRow<extreme>(src, dst, width, channels, reach);
  const Tiles tiles = tilesOf<T>(reach, channels, count);
  alignas(64) T tile[(tileBytes + tileRoom) / sizeof(T)];
  for (ptrdiff_t first = 0; first < count; first += tiles.length) {
    const ptrdiff_t length = std::min(tiles.length, count - first);
    const Filled filled = filledOf(tiles, first, length, count);
    memcpy(tile + filled.begin, src + first - tiles.before + filled.begin,
           size_t(filled.end - filled.begin) * sizeof(T));
    fillEdges(tile, filled, length + tiles.before + tiles.behind, channels);
    windowRow<extreme>(tile, int32_t(lengthOf(reach)), channels, dst + first, length);
  }
}

void ownFilterMaxRow_8u(const uint8_t* src, uint8_t* dst, int32_t width, int32_t channels, int32_t maskWidth,
                        int32_t anchorX) {
  filterRow<Extreme::max>(src, dst, width, channels, reachOf(maskWidth, anchorX, width));
}

void ownFilterMinRow_8u(const uint8_t* src, uint8_t* dst, int32_t width, int32_t channels, int32_t maskWidth,
                        int32_t anchorX) {
  filterRow<Extreme::min>(src, dst, width, channels, reachOf(maskWidth, anchorX, width));
}

void ownFilterMaxRow_32f(const float* src, float* dst, int32_t width, int32_t channels, int32_t maskWidth,
                         int32_t anchorX) {
  filterRow<Extreme::max>(src, dst, width, channels, reachOf(maskWidth, anchorX, width));
}

void ownFilterMinRow_32f(const float* src, float* dst, int32_t width, int32_t channels, int32_t maskWidth,
                         int32_t anchorX) {
  filterRow<Extreme::min>(src, dst, width, channels, reachOf(maskWidth, anchorX, width));
}

template <class T>
struct Images {
  const T* src;
  int32_t srcStep;
  T* dst;
  int32_t dstStep;
  QoriSize size;
};

template <class T>
static Band<T> bandOf(const Images<T>& images, int32_t y, int32_t count, Reach reach) {
  const int32_t last = images.size.height - 1;
  const auto row = [&](int32_t at) { return rowAt(images.src, images.srcStep, at); };
  const int32_t first = std::max(0, y + count - 1 - reach.before);
  const int32_t end = y + int32_t(std::min<int64_t>(reach.behind, last - y)) + 1;
  Band<T> band = {count, row(first), images.srcStep, end - first, {}, {}};
  for (int32_t i = 0; i < count - 1; ++i) {
    band.above[i] = row(std::max(0, y + i - reach.before));
    band.below[i] = row(int32_t(std::min<int64_t>(last, int64_t(end) + i)));
  }
  return band;
}

// Bands of rows: first over the rows, from src into tiles, then along each tile, into dst. The last band is moved up to
// end with the image.
template <Extreme extreme, class T>
static void filterBands(const Images<T>& images, int32_t channels, Reach reachX, Reach reachY) {
  constexpr ptrdiff_t stride = (tileBytes + tileRoom) / ptrdiff_t(sizeof(T));
  alignas(64) T tile[mostBandRows * stride];
  const ptrdiff_t count = ptrdiff_t(images.size.width) * channels;
  const Tiles tiles = tilesOf<T>(reachX, channels, count);
  const auto most = std::min<int64_t>(lengthOf(reachY), images.size.height);
  const int32_t rows = most >= 8 ? 8 : most >= 4 ? 4 : 2;
  for (ptrdiff_t first = 0; first < count; first += tiles.length) {
    const ptrdiff_t length = std::min(tiles.length, count - first);
    const Filled filled = filledOf(tiles, first, length, count);
    forBlocks(images.size.height, rows, [&](ptrdiff_t y) {
      const Band<T> band = bandOf(images, int32_t(y), rows, reachY);
      bandColumns<extreme>(band, first - tiles.before + filled.begin, filled.end - filled.begin, tile + filled.begin,
                           stride);
      for (int32_t i = 0; i < rows; ++i) {
        fillEdges(tile + i * stride, filled, length + tiles.before + tiles.behind, channels);
        windowRow<extreme>(tile + i * stride, int32_t(lengthOf(reachX)), channels,
                           rowAt(images.dst, images.dstStep, y + i) + first, length);
      }
    });
  }
}

static inline void foldRow(const uint8_t* src, uint8_t* srcDst, int32_t count, Extreme extreme) {
  extreme == Extreme::max ? qorsMaxEvery_8u_I(src, srcDst, count) : qorsMinEvery_8u_I(src, srcDst, count);
}
static inline void foldRow(const float* src, float* srcDst, int32_t count, Extreme extreme) {
  extreme == Extreme::max ? qorsMaxEvery_32f_I(src, srcDst, count) : qorsMinEvery_32f_I(src, srcDst, count);
}

// For masks that are too high for bands or too wide for tiles: along all rows, into dst; then the windows grow downward
// and upward within dst, in strips that stay in the cache.
template <Extreme extreme, class T>
static void filterWithinDst(const Images<T>& images, int32_t channels, Reach reachX, Reach reachY) {
  const ptrdiff_t count = ptrdiff_t(images.size.width) * channels, height = images.size.height;
  for (ptrdiff_t y = 0; y < height; ++y) {
    filterRow<extreme>(rowAt(images.src, images.srcStep, y), rowAt(images.dst, images.dstStep, y), images.size.width,
                       channels, reachX);
  }
  constexpr ptrdiff_t strip = 256 / ptrdiff_t(sizeof(T));
  for (ptrdiff_t x = 0; x < count; x += strip) {
    const auto length = int32_t(std::min(strip, count - x));
    const auto row = [&](ptrdiff_t y) { return rowAt(images.dst, images.dstStep, y) + x; };
    for (ptrdiff_t span = 0, more; span < reachY.behind; span += more) {
      more = std::min(span + 1, reachY.behind - span);
      for (ptrdiff_t y = 0; y < height - more; ++y) foldRow(row(y + more), row(y), length, extreme);
    }
    for (ptrdiff_t span = 0, more; span < reachY.before; span += more) {
      more = std::min(span + 1, reachY.before - span);
      for (ptrdiff_t y = height - 1; y >= more; --y) foldRow(row(y - more), row(y), length, extreme);
    }
  }
}

// Above this height, bands gain nothing any more.
constexpr int32_t mostBandMask = 256;

template <Extreme extreme, int32_t channels, class T>
static QorStatus filterExtreme(const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize,
                               QoriSize maskSize, QoriPoint anchor, const uint8_t* buffer) {
  if (anyNull(src, dst, buffer)) return qorStatusNullPtr;
  if (emptySize(roiSize)) return qorStatusBadSize;
  if (emptySize(maskSize)) return qorStatusBadMask;
  if (anchor.x < 0 || anchor.x >= maskSize.width || anchor.y < 0 || anchor.y >= maskSize.height) {
    return qorStatusBadAnchor;
  }
  if (shortStep<T, channels>(srcStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(srcStep)) return qorStatusBadStepAlign;
  if (shortStep<T, channels>(dstStep, roiSize)) return qorStatusBadStep;
  if (misaligned<T>(dstStep)) return qorStatusBadStepAlign;

  const Images<T> images = {src, srcStep, dst, dstStep, roiSize};
  const Reach reachX = reachOf(maskSize.width, anchor.x, roiSize.width);
  const Reach reachY = reachOf(maskSize.height, anchor.y, roiSize.height);
  const int64_t maskHeight = lengthOf(reachY);
  if (maskHeight > 1 && maskHeight <= mostBandMask && fitsTiles<T>(reachX, channels)) {
    filterBands<extreme>(images, channels, reachX, reachY);
  } else {
    filterWithinDst<extreme>(images, channels, reachX, reachY);
  }
  return qorStatusOk;
}

// Signed 32 bits, with the mask as given: it wraps without a status.
static QorStatus filterBufferSize(int32_t pixelBytes, int32_t width, QoriSize maskSize, int32_t* bufferSize) {
  if (anyNull(bufferSize)) return qorStatusNullPtr;
  if (width < 1) return qorStatusBadSize;
  if (emptySize(maskSize)) return qorStatusBadMask;
  *bufferSize = 2 * maskSize.height * (width * pixelBytes + 32) + 4 * maskSize.height * 8 + 32;
  return qorStatusOk;
}

#define QOR_FILTER(Name, extreme, type, T, channels)                                                                 \
  QorStatus qoriFilter##Name##BorderReplicate_##type##_C##channels##R(                                               \
      const T* src, int32_t srcStep, T* dst, int32_t dstStep, QoriSize roiSize, QoriSize maskSize, QoriPoint anchor, \
      uint8_t* buffer) {                                                                                             \
    return filterExtreme<Extreme::extreme, channels>(src, srcStep, dst, dstStep, roiSize, maskSize, anchor, buffer); \
  }                                                                                                                  \
  QorStatus qoriFilter##Name##GetBufferSize_##type##_C##channels##R(int32_t width, QoriSize maskSize,                \
                                                                    int32_t* bufferSize) {                           \
    return filterBufferSize(channels * int32_t(sizeof(T)), width, maskSize, bufferSize);                             \
  }
#define QOR_FILTERS(Name, extreme)          \
  QOR_FILTER(Name, extreme, 8u, uint8_t, 1) \
  QOR_FILTER(Name, extreme, 8u, uint8_t, 3) \
  QOR_FILTER(Name, extreme, 8u, uint8_t, 4) \
  QOR_FILTER(Name, extreme, 32f, float, 1)  \
  QOR_FILTER(Name, extreme, 32f, float, 3)  \
  QOR_FILTER(Name, extreme, 32f, float, 4)
QOR_FILTERS(Max, max)
QOR_FILTERS(Min, min)
#undef QOR_FILTERS
#undef QOR_FILTER
