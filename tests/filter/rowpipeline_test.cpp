// Row stages of the separable filters, against a literal model: the sum over the taps of the row that the border mode
// extends. Odd and meant: the arithmetic depends on the number of taps, and a null row pointer is found only when its
// turn comes.
#include <gtest/gtest.h>
#include <omp.h>

#include "filter/pipeline.h"
#include "filter/pipeline_writers.h"
#include "support/borders.h"
#include "support/image.h"
#include "support/services.h"
#include "support/statuses.h"

using namespace pipeline;

// The eight forms: types, how their sums are formed and end, what a thread's scratch takes for each tap and beside, and
// when they go parallel.
#define ROW_FORM(form, source, result, tap, channelCount, sums, ends, tapBytes, fixedBytes, when) \
  struct Row_##form {                                                                             \
    using Source = source;                                                                        \
    using Result = result;                                                                        \
    using Tap = tap;                                                                              \
    static constexpr const char* name = #form;                                                    \
    static constexpr int32_t channels = channelCount;                                             \
    static constexpr int32_t perTap = tapBytes, perThread = fixedBytes;                           \
    static constexpr Gate gate = when;                                                            \
    static Arithmetic arithmetic([[maybe_unused]] int32_t taps) { return {sums, ends}; }          \
    template <class... Args>                                                                      \
    static QorStatus stage(Args... args) {                                                        \
      return qoriFilterRowBorderPipeline_##form(args...);                                         \
    }                                                                                             \
    static QorStatus bufferSize(QoriSize size, int32_t taps, int32_t* bytes) {                    \
      return qoriFilterRowBorderPipelineGetBufferSize_##form(size, taps, bytes);                  \
    }                                                                                             \
  }
ROW_FORM(32f_C1R, float, float, float, 1, Sum::real, Ending::none, 128, 64, Gate::separable);
ROW_FORM(32f_C3R, float, float, float, 3, Sum::real, Ending::none, 192, 32, Gate::open);
ROW_FORM(16s_C1R, int16_t, int16_t, int16_t, 1, Sum::real, Ending::clamp, 48, 80, Gate::overThree);
ROW_FORM(16s_C3R, int16_t, int16_t, int16_t, 3, (taps == 3 || taps == 5 ? Sum::real : Sum::integer), Ending::clamp, 28,
         32, Gate::open);
ROW_FORM(8u16s_C1R, uint8_t, int16_t, int16_t, 1, Sum::integer, Ending::clamp, 4, 32, Gate::open);
ROW_FORM(8u16s_C3R, uint8_t, int16_t, int16_t, 3, Sum::integer, Ending::clamp, 12, 32, Gate::open);
ROW_FORM(Low_16s_C1R, int16_t, int16_t, int16_t, 1, Sum::integer, (taps == 5 ? Ending::lowReal : Ending::lowQ14), 24,
         64, Gate::open);
ROW_FORM(Low_16s_C3R, int16_t, int16_t, int16_t, 3, Sum::integer, Ending::lowQ14, 208, 64, Gate::open);
#undef ROW_FORM

// The arguments of a stage, with its types left open.
struct RowArgs {
  const void* src;
  int32_t srcStep;
  void* const* dstRows;
  QoriSize roiSize;
  const void* kernel;
  int32_t kernelSize, xAnchor;
  QoriBorderType borderType;
  const void* borderValue;  // to one element a channel
  int32_t divisor;
  uint8_t* buffer;
};

template <class Form>
QOR_OUT_OF_LINE static QorStatus call(const RowArgs& a) {
  using Source = typename Form::Source;
  const auto src = static_cast<const Source*>(a.src);
  const auto dstRows = reinterpret_cast<typename Form::Result* const*>(a.dstRows);
  const auto kernel = static_cast<const typename Form::Tap*>(a.kernel);
  const auto borderValue = [&] {
    const auto values = static_cast<const Source*>(a.borderValue);
    if constexpr (Form::channels == 1) {
      return *values;
    } else {
      return values;
    }
  }();
  if constexpr (std::is_floating_point_v<Source>) {
    return Form::stage(src, a.srcStep, dstRows, a.roiSize, kernel, a.kernelSize, a.xAnchor, a.borderType, borderValue,
                       a.buffer);
  } else {
    return Form::stage(src, a.srcStep, dstRows, a.roiSize, kernel, a.kernelSize, a.xAnchor, a.borderType, borderValue,
                       a.divisor, a.buffer);
  }
}

// What a stage computes, without where its memory lies.
template <class Form>
struct RowWork {
  std::vector<typename Form::Tap> kernel;
  int32_t xAnchor = 0;
  QoriBorderType borderType = qorBorderReplicate;
  std::vector<typename Form::Source> borderValue = std::vector<typename Form::Source>(Form::channels);
  int32_t divisor = 1;

  int32_t kernelSize() const { return int32_t(kernel.size()); }
};

template <class Form>
static std::string text(const RowWork<Form>& work) {
  return std::to_string(work.kernelSize()) + " taps, anchor " + std::to_string(work.xAnchor) + ", border " +
         std::to_string(work.borderType) + ", divisor " + std::to_string(work.divisor);
}

template <class Form>
static typename Form::Result model(const RowWork<Form>& work, const Image<typename Form::Source>& src, int32_t x,
                                   int32_t y, int32_t c) {
  return modelResult<typename Form::Result>(
      Form::arithmetic(work.kernelSize()), work.kernel, work.divisor, [&](int32_t i) {
        const int32_t column = borderIndex(x + i - work.xAnchor, src.width(), work.borderType);
        return column == constantPixel ? work.borderValue[size_t(c)] : src.get(column, y, c);
      });
}

// First difference between row r and the model; empty if there is none.
template <class Form>
QOR_OUT_OF_LINE static std::string rowDifference(const RowWork<Form>& work, const Image<typename Form::Source>& src,
                                                 const Rows<typename Form::Result>& rows, int32_t r) {
  for (int32_t x = 0; x < src.width(); ++x) {
    for (int32_t c = 0; c < Form::channels; ++c) {
      const auto is = rows.get(r, x * Form::channels + c);
      const auto should = model(work, src, x, r, c);
      if (!sameValue(is, should)) {
        return "at column " + std::to_string(x) + ", row " + std::to_string(r) + ", channel " + std::to_string(c) +
               " of " + std::to_string(src.width()) + "x" + std::to_string(src.height()) + ": " + std::to_string(is) +
               " instead of " + std::to_string(should) + " with " + text(work);
      }
    }
  }
  return "";
}

// Runs the stage with scratch of the exact size, and all constant arrays against unmapped pages.
template <class Form>
QOR_OUT_OF_LINE static QorStatus run(const RowWork<Form>& work, const Image<typename Form::Source>& src,
                                     const std::vector<typename Form::Result*>& dstRows, const Scratch& scratch) {
  const Exact<typename Form::Tap> kernel(work.kernel);
  const Exact<typename Form::Source> borderValue(work.borderValue);
  const Exact<typename Form::Result*> pointers(dstRows);
  return call<Form>({src.data(), src.step(), reinterpret_cast<void* const*>(pointers.data()), src.size(), kernel.data(),
                     work.kernelSize(), work.xAnchor, work.borderType, borderValue.data(), work.divisor,
                     scratch.data()});
}

template <class Form>
QOR_OUT_OF_LINE static QorStatus run(const RowWork<Form>& work, const Image<typename Form::Source>& src,
                                     const Rows<typename Form::Result>& rows) {
  const Scratch scratch = scratchFor<Form>(src.size(), work.kernelSize());
  const QorStatus status = run(work, src, rows.pointers(), scratch);
  EXPECT_TRUE(scratch.intact());
  return status;
}

template <class Form>
QOR_OUT_OF_LINE static RowWork<Form> anyWork(Random& random, int32_t kernelSize) {
  RowWork<Form> work;
  work.kernel = kernelOf<typename Form::Tap>(random, kernelSize);
  work.xAnchor = int32_t(random.number(0, kernelSize - 1));
  work.borderType = int32_t(random.number(qorBorderConst, qorBorderMirrorEdge));
  const Kind kind = anyKind(random);
  for (auto& value : work.borderValue) value = number<typename Form::Source>(random, kind);
  work.divisor = random.pick(divisors());
  return work;
}

// The stage on a random image anywhere in memory; the text says what is wrong.
template <class Form>
QOR_OUT_OF_LINE static std::string anyImageDifference(const RowWork<Form>& work, int32_t width, int32_t height,
                                                      Random& random) {
  using Source = typename Form::Source;
  const size_t shift = random.chance(0.5) ? size_t(random.number(1, 7)) : 0;
  const int32_t gap = random.chance(0.5) ? int32_t(random.number(1, 9)) : 0;
  Image<Source> src(width, height, Form::channels, gap, random.chance(0.5) ? Edge::end : Edge::begin, shift);
  const Kind kind = anyKind(random);
  src.fill([&] { return number<Source>(random, kind); });
  const std::vector<uint8_t> before = src.bytes();
  Rows<typename Form::Result> rows(width * Form::channels, height, anyPlace(random), random);
  const QorStatus status = run(work, src, rows);
  if (status != qorStatusOk) return "status " + std::to_string(status) + " with " + text(work);
  for (int32_t r = 0; r < height; ++r) {
    const std::string difference = rowDifference(work, src, rows, r);
    if (!difference.empty()) return difference;
  }
  if (!rows.gapsIntact()) return "wrote outside the rows with " + text(work);
  if (src.bytes() != before) return "changed the source with " + text(work);
  return "";
}

template <class Form>
class RowPipeline : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};
using RowForms = testing::Types<Row_32f_C1R, Row_32f_C3R, Row_16s_C1R, Row_16s_C3R, Row_8u16s_C1R, Row_8u16s_C3R,
                                Row_Low_16s_C1R, Row_Low_16s_C3R>;
TYPED_TEST_SUITE(RowPipeline, RowForms, FormNames);

TYPED_TEST(RowPipeline, EveryLengthAnchorAndBorder) {
  Random random(41);
  for (const int32_t kernelSize : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 31, 64}) {
    for (int32_t xAnchor = 0; xAnchor < kernelSize; ++xAnchor) {
      for (QoriBorderType borderType = qorBorderConst; borderType <= qorBorderMirrorEdge; ++borderType) {
        // Rows shorter than the kernel, and some longer ones.
        std::vector<int32_t> widths;
        if (kernelSize <= 9) {
          for (int32_t width = 1; width <= kernelSize + 2; ++width) widths.push_back(width);
        } else {
          widths.push_back(int32_t(random.number(1, kernelSize)));
        }
        widths.push_back(random.width(kernelSize <= 9 ? 130 : 70));
        for (const int32_t width : widths) {
          RowWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize);
          work.xAnchor = xAnchor;
          work.borderType = borderType;
          const int32_t height = random.chance(0.8) ? 1 : 3;
          ASSERT_EQ(anyImageDifference(work, width, height, random), "");
        }
      }
    }
  }
}

TYPED_TEST(RowPipeline, EveryWidth) {
  Random random(42);
  for (int32_t width = 1; width <= 150; ++width) {
    for (const int32_t kernelSize : {3, 5, int32_t(random.number(1, 15))}) {
      ASSERT_EQ(anyImageDifference(anyWork<TypeParam>(random, kernelSize), width, 1, random), "");
    }
  }
}

TYPED_TEST(RowPipeline, EveryDivisor) {
  Random random(43);
  for (const int32_t divisor : divisors()) {
    for (const int32_t kernelSize : {1, 2, 3, 4, 5, 6, 7, 31, 64}) {
      RowWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize);
      work.divisor = divisor;
      ASSERT_EQ(anyImageDifference(work, 75, 4, random), "");
    }
  }
}

TYPED_TEST(RowPipeline, ManyRows) {
  Random random(44);
  for (int32_t i = 0; i < 30; ++i) {
    const RowWork<TypeParam> work = anyWork<TypeParam>(random, int32_t(random.number(1, 9)));
    ASSERT_EQ(anyImageDifference(work, random.width(70), int32_t(random.number(10, 60)), random), "");
  }
}

TYPED_TEST(RowPipeline, LargestAndSmallestTapsAndPixels) {
  using Source = typename TypeParam::Source;
  Random random(45);
  for (const Kind pixels : {Kind::lowest, Kind::highest, Kind::extreme}) {
    for (const Kind taps : {Kind::lowest, Kind::highest, Kind::extreme}) {
      for (const int32_t kernelSize : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 64}) {
        for (const int32_t divisor : {1, -1, 2, 3, -5, 65536}) {
          RowWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize);
          for (auto& tap : work.kernel) tap = number<typename TypeParam::Tap>(random, taps);
          // The three-tap kernels whose outer taps are equal may take a way of their own.
          if (kernelSize == 3 && random.chance(0.5)) work.kernel[2] = work.kernel[0];
          for (auto& value : work.borderValue) value = number<Source>(random, pixels);
          work.divisor = divisor;
          Image<Source> src(37, 1, TypeParam::channels);
          src.fill([&] { return number<Source>(random, pixels); });
          Rows<typename TypeParam::Result> rows(37 * TypeParam::channels, 1, Place::lastBytes, random);
          ASSERT_EQ(run(work, src, rows), qorStatusOk);
          ASSERT_EQ(rowDifference(work, src, rows, 0), "");
        }
      }
    }
  }
}

TYPED_TEST(RowPipeline, EndsAsComputedByHand) {
  using Source = typename TypeParam::Source;
  using Tap = typename TypeParam::Tap;
  Random random(46);
  for (const EndingCase& ending : endingCases()) {
    for (const int32_t kernelSize : {1, 2, 3, 4, 5, 7}) {
      RowWork<TypeParam> work;
      work.kernel.assign(size_t(kernelSize), Tap(0));
      work.xAnchor = kernelSize / 2;
      work.kernel[size_t(work.xAnchor)] = Tap(ending.tap);
      work.divisor = ending.divisor;
      Image<Source> src(50, 1, TypeParam::channels);
      src.fill([&] { return Source(ending.pixel); });
      Rows<typename TypeParam::Result> rows(50 * TypeParam::channels, 1, Place::lastBytes, random);
      ASSERT_EQ(run(work, src, rows), qorStatusOk);
      double expected = 0;
      switch (TypeParam::arithmetic(kernelSize).ending) {
        case Ending::none: expected = double(ending.pixel) * ending.tap; break;
        case Ending::clamp: expected = ending.clamped16; break;
        case Ending::lowReal: expected = ending.lowReal; break;
        case Ending::lowQ14: expected = ending.lowQ14; break;
      }
      for (int32_t i = 0; i < rows.length(); ++i) {
        ASSERT_EQ(double(rows.get(0, i)), expected) << ending.pixel << " * " << ending.tap << ", " << text(work);
      }
    }
  }
}

// Row 0 is `pixels` in every channel; the anchor is 0, so that column 0 sees them all. Returns column 0, channel 0.
template <class Form>
QOR_OUT_OF_LINE static typename Form::Result firstColumn(const std::vector<int32_t>& pixels,
                                                         const std::vector<int32_t>& taps) {
  Random random(47);
  RowWork<Form> work;
  work.kernel.assign(taps.begin(), taps.end());
  Image<typename Form::Source> src(int32_t(pixels.size()), 1, Form::channels);
  for (int32_t x = 0; x < src.width(); ++x) {
    for (int32_t c = 0; c < Form::channels; ++c) src.set(x, 0, c, typename Form::Source(pixels[size_t(x)]));
  }
  Rows<typename Form::Result> rows(src.width() * Form::channels, 1, Place::lastBytes, random);
  EXPECT_EQ(run(work, src, rows), qorStatusOk);
  for (int32_t c = 1; c < Form::channels; ++c) EXPECT_EQ(rows.get(0, c), rows.get(0, 0));
  return rows.get(0, 0);
}

// 2^24 + 1 is no float: a float sum loses the 1, an integer sum keeps it.
TEST(RowPipelineRounding, AtEachTapOrNever) {
  EXPECT_EQ((firstColumn<Row_32f_C1R>({4096, 1, 4096}, {4096, 1, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_32f_C3R>({4096, 1, 4096}, {4096, 1, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C1R>({4096, 1, 4096}, {4096, 1, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C1R>({4096, 1, 0, 4096}, {4096, 1, 0, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C1R>({4096, 1, 0, 0, 4096}, {4096, 1, 0, 0, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C3R>({4096, 1, 4096}, {4096, 1, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C3R>({4096, 1, 0, 4096}, {4096, 1, 0, -4096})), 1);
  EXPECT_EQ((firstColumn<Row_16s_C3R>({4096, 1, 0, 0, 4096}, {4096, 1, 0, 0, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C3R>({4096, 1, 0, 0, 0, 4096}, {4096, 1, 0, 0, 0, -4096})), 1);
  EXPECT_EQ((firstColumn<Row_Low_16s_C1R>({4096, 1, 4096}, {4096, 1, -4096})), 1);
  EXPECT_EQ((firstColumn<Row_Low_16s_C1R>({4096, 1, 0, 0, 4096}, {4096, 1, 0, 0, -4096})), 1);
  EXPECT_EQ((firstColumn<Row_Low_16s_C3R>({4096, 1, 4096}, {4096, 1, -4096})), 1);

  // The same from bytes: 8 times 2^21, then 1, then 8 times -2^21.
  std::vector<int32_t> pixels(17, 128), taps(17, 16384);
  pixels[8] = taps[8] = 1;
  for (size_t i = 9; i < 17; ++i) taps[i] = -16384;
  EXPECT_EQ(firstColumn<Row_8u16s_C1R>(pixels, taps), 1);
  EXPECT_EQ(firstColumn<Row_8u16s_C3R>(pixels, taps), 1);
  EXPECT_EQ(firstColumn<Row_16s_C3R>(pixels, taps), 1);
  EXPECT_EQ(firstColumn<Row_16s_C1R>(pixels, taps), 0);
}

// (1 + 2^24) - 2^24 is 0 in floats, and 1 in any other order.
TEST(RowPipelineRounding, InTheOrderOfTheTaps) {
  EXPECT_EQ((firstColumn<Row_32f_C1R>({1, 4096, 4096}, {1, 4096, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_32f_C3R>({1, 4096, 4096}, {1, 4096, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C1R>({1, 4096, 4096}, {1, 4096, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C3R>({1, 4096, 4096}, {1, 4096, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C1R>({1, 0, 4096, 0, 4096}, {1, 0, 4096, 0, -4096})), 0);
  EXPECT_EQ((firstColumn<Row_16s_C3R>({1, 0, 4096, 0, 4096}, {1, 0, 4096, 0, -4096})), 0);
}

// The kernel is not reversed, and the anchor is the tap on the output pixel.
TYPED_TEST(RowPipeline, TapsStandInReadingOrder) {
  Random random(48);
  RowWork<TypeParam> work;
  work.kernel = {1, 0, 0, 0};
  work.xAnchor = 1;
  Image<typename TypeParam::Source> src(6, 1, TypeParam::channels);
  typename TypeParam::Source value = 0;
  src.fill([&] { return ++value; });
  Rows<typename TypeParam::Result> rows(6 * TypeParam::channels, 1, Place::lastBytes, random);
  ASSERT_EQ(run(work, src, rows), qorStatusOk);
  for (int32_t x = 0; x < 6; ++x) {
    for (int32_t c = 0; c < TypeParam::channels; ++c) {
      EXPECT_EQ(rows.get(0, x * TypeParam::channels + c), src.get(x == 0 ? 0 : x - 1, 0, c));
    }
  }
}

// A sum of negative zeros stays one: nothing is added before the first product.
TEST(RowPipelineFloat, KeepsNegativeZero) {
  Random random(49);
  for (const int32_t kernelSize : {1, 2, 3, 4, 5, 7}) {
    RowWork<Row_32f_C1R> work;
    work.kernel.assign(size_t(kernelSize), 2.0f);
    Image<float> src(40, 1);
    src.fill([] { return -0.0f; });
    Rows<float> rows(40, 1, Place::lastBytes, random);
    ASSERT_EQ(run(work, src, rows), qorStatusOk);
    for (int32_t x = 0; x < 40; ++x) ASSERT_TRUE(sameValue(rows.get(0, x), -0.0f)) << kernelSize;
  }
}

TYPED_TEST(RowPipeline, WidthOneMirrorsItself) {
  Random random(50);
  for (const QoriBorderType borderType : {qorBorderReplicate, qorBorderWrap, qorBorderMirror, qorBorderMirrorEdge}) {
    for (const int32_t kernelSize : {2, 3, 5, 9}) {
      RowWork<TypeParam> work;
      work.kernel.assign(size_t(kernelSize), 1);
      work.xAnchor = kernelSize / 2;
      work.borderType = borderType;
      Image<typename TypeParam::Source> src(1, 1, TypeParam::channels);
      for (int32_t c = 0; c < TypeParam::channels; ++c) src.set(0, 0, c, typename TypeParam::Source(10 + c));
      Rows<typename TypeParam::Result> rows(TypeParam::channels, 1, Place::lastBytes, random);
      ASSERT_EQ(run(work, src, rows), qorStatusOk);
      for (int32_t c = 0; c < TypeParam::channels; ++c) EXPECT_EQ(rows.get(0, c), kernelSize * (10 + c));
    }
  }
}

// A ring of a few rows: each pointer appears many times, and the last row written stays.
TYPED_TEST(RowPipeline, WritesThroughRepeatedPointers) {
  Random random(51);
  for (const int32_t kernelSize : {1, 3, 5, 6}) {
    const RowWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize);
    Image<typename TypeParam::Source> src(33, 11, TypeParam::channels);
    src.fill([&] { return number<typename TypeParam::Source>(random, Kind::any); });
    Rows<typename TypeParam::Result> ring(33 * TypeParam::channels, 11, Place::scattered, random);
    std::vector<typename TypeParam::Result*> pointers;
    for (int32_t r = 0; r < 11; ++r) pointers.push_back(ring.row(8 + r % 3));
    const Scratch scratch = scratchFor<TypeParam>(src.size(), kernelSize);
    ASSERT_EQ(run(work, src, pointers, scratch), qorStatusOk);
    for (int32_t r = 0; r < 8; ++r) EXPECT_TRUE(ring.untouched(r));
    // Rows 8, 9 and 10 went to ring rows 10, 8 and 9.
    for (int32_t r = 8; r < 11; ++r) {
      for (int32_t x = 0; x < 33; ++x) {
        for (int32_t c = 0; c < TypeParam::channels; ++c) {
          ASSERT_TRUE(
              sameValue(ring.get(8 + r % 3, x * TypeParam::channels + c), model<TypeParam>(work, src, x, r, c)));
        }
      }
    }
  }
}

TYPED_TEST(RowPipeline, ConstantOfEachChannel) {
  Random random(52);
  for (const int32_t kernelSize : {2, 3, 5, 8}) {
    RowWork<TypeParam> work;
    work.kernel.assign(size_t(kernelSize), 0);
    work.kernel[0] = 1;
    work.xAnchor = kernelSize - 1;
    work.borderType = qorBorderConst;
    for (size_t c = 0; c < work.borderValue.size(); ++c) work.borderValue[c] = typename TypeParam::Source(71 + c);
    Image<typename TypeParam::Source> src(1, 1, TypeParam::channels);
    Rows<typename TypeParam::Result> rows(TypeParam::channels, 1, Place::lastBytes, random);
    ASSERT_EQ(run(work, src, rows), qorStatusOk);
    for (int32_t c = 0; c < TypeParam::channels; ++c) EXPECT_EQ(rows.get(0, c), 71 + c);
  }
}

TYPED_TEST(RowPipeline, NullConstantInTheOtherModes) {
  if (TypeParam::channels == 1) return;
  Random random(53);
  for (QoriBorderType borderType = qorBorderReplicate; borderType <= qorBorderMirrorEdge; ++borderType) {
    for (const int32_t kernelSize : {1, 2, 3, 4, 5, 7}) {
      for (const int32_t width : {1, 2, 5, 40}) {
        RowWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize);
        work.borderType = borderType;
        Image<typename TypeParam::Source> src(width, 1, TypeParam::channels);
        src.fill([&] { return number<typename TypeParam::Source>(random, Kind::any); });
        Rows<typename TypeParam::Result> rows(width * TypeParam::channels, 1, Place::lastBytes, random);
        const auto pointers = rows.pointers();
        const Scratch scratch = scratchFor<TypeParam>(src.size(), kernelSize);
        ASSERT_EQ(call<TypeParam>({src.data(), src.step(), reinterpret_cast<void* const*>(pointers.data()), src.size(),
                                   work.kernel.data(), kernelSize, work.xAnchor, borderType, nullptr, work.divisor,
                                   scratch.data()}),
                  qorStatusOk);
        ASSERT_EQ(rowDifference(work, src, rows, 0), "");
      }
    }
  }
}

TYPED_TEST(RowPipeline, StopsAtANullRow) {
  Random random(54);
  for (const int32_t kernelSize : {1, 3, 5, 6}) {
    for (const int32_t null : {0, 2, 5}) {
      const RowWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize);
      Image<typename TypeParam::Source> src(20, 6, TypeParam::channels);
      src.fill([&] { return number<typename TypeParam::Source>(random, Kind::any); });
      Rows<typename TypeParam::Result> rows(20 * TypeParam::channels, 6, Place::scattered, random);
      auto pointers = rows.pointers();
      pointers[size_t(null)] = nullptr;
      const Scratch scratch = scratchFor<TypeParam>(src.size(), kernelSize);
      EXPECT_EQ(run(work, src, pointers, scratch), qorStatusNullPtr);
      for (int32_t r = 0; r < null; ++r) EXPECT_EQ(rowDifference(work, src, rows, r), "");
      for (int32_t r = null; r < 6; ++r) EXPECT_TRUE(rows.untouched(r)) << "row " << r << " after " << null;
      EXPECT_TRUE(rows.gapsIntact());
    }
  }
}

// Threads

template <class Form>
QOR_OUT_OF_LINE static void expectModel(const RowWork<Form>& work, QoriSize size, Random& random, uint32_t seed) {
  Image<typename Form::Source> src(size.width, size.height, Form::channels, 3);
  src.fill(quickNumbers<typename Form::Source>(seed));
  Rows<typename Form::Result> rows(size.width * Form::channels, size.height, Place::scattered, random);
  ASSERT_EQ(run(work, src, rows), qorStatusOk);
  for (int32_t r = 0; r < size.height; ++r) ASSERT_EQ(rowDifference(work, src, rows, r), "");
  ASSERT_TRUE(rows.gapsIntact());
}

TYPED_TEST(RowPipeline, ParallelGivesTheModel) {
  Random random(55);
  int32_t kernelSize = 0;
  for (const ParallelSetting& setting : parallelSettings()) {
    services::maxThreads = setting.maxThreads;
    services::teamSize = setting.teamSize;
    services::cores = setting.cores;
    kernelSize = kernelSize % 5 + 1;
    expectModel(anyWork<TypeParam>(random, kernelSize), setting.size, random, uint32_t(kernelSize));
    if (this->HasFatalFailure()) FAIL() << text(setting);
  }
}

TYPED_TEST(RowPipeline, ExactScratchForAnyNumberOfThreads) {
  using Result = typename TypeParam::Result;
  Random random(56);
  for (const auto& [threads, size, kernelSize] : worksAtGate()) {
    RowWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize);
    for (auto& tap : work.kernel) tap = number<typename TypeParam::Tap>(random, Kind::any);
    Image<typename TypeParam::Source> src(size.width, size.height, TypeParam::channels);
    src.fill(quickNumbers<typename TypeParam::Source>(uint32_t(threads)));
    Rows<Result> serial(size.width * TypeParam::channels, size.height, Place::scattered, random);
    // So many threads that the region is a small one.
    services::threads(60);
    ASSERT_EQ(run(work, src, serial), qorStatusOk);
    // More than are allowed every other time: the team is held to what there is scratch for.
    const int32_t team = threads % 2 ? INT32_MAX : threads;
    services::maxThreads = threads;
    services::teamSize = team;
    services::cores = 2;
    Rows<Result> rows(size.width * TypeParam::channels, size.height, Place::scattered, random);
    const Scratch scratch =
        scratchFor<TypeParam>(size, kernelSize, random.chance(0.5) ? size_t(random.number(1, 63)) : 0);
    ASSERT_EQ(run(work, src, rows.pointers(), scratch), qorStatusOk);
    ASSERT_TRUE(scratch.intact()) << threads << " threads, team " << team;
    ASSERT_TRUE(rows.gapsIntact());
    for (int32_t r = 0; r < size.height; ++r) {
      ASSERT_TRUE(rows.sameBytes(r, serial))
          << threads << " threads, team " << team << ", row " << r << ", " << text(work);
    }
  }
}

TYPED_TEST(RowPipeline, ExactScratchAtAnyAddress) {
  Random random(57);
  for (const int32_t threads : {1, 3, 40}) {
    services::threads(threads);
    for (size_t slack = 0; slack < 64; ++slack) {
      for (const int32_t kernelSize : {3, 5, random.chance(0.2) ? 31 : int32_t(random.number(1, 9))}) {
        const RowWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize);
        Image<typename TypeParam::Source> src(random.width(40), int32_t(random.number(1, 4)), TypeParam::channels);
        src.fill([&] { return number<typename TypeParam::Source>(random, Kind::any); });
        Rows<typename TypeParam::Result> rows(src.width() * TypeParam::channels, src.height(), Place::scattered,
                                              random);
        const Scratch scratch = scratchFor<TypeParam>(src.size(), kernelSize, slack);
        ASSERT_EQ(run(work, src, rows.pointers(), scratch), qorStatusOk);
        ASSERT_TRUE(scratch.intact()) << "slack " << slack;
        for (int32_t r = 0; r < src.height(); ++r) ASSERT_EQ(rowDifference(work, src, rows, r), "");
      }
    }
  }
}

// Scratch that was sized for a higher image and a longer kernel serves a smaller work too.
TYPED_TEST(RowPipeline, ScratchOfALargerWork) {
  Random random(58);
  for (const int32_t threads : {1, 3}) {
    services::threads(threads);
    for (const int32_t kernelSize : {3, 5, 6}) {
      const RowWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize);
      Image<typename TypeParam::Source> src(512, 64 * threads, TypeParam::channels);
      src.fill(quickNumbers<typename TypeParam::Source>(uint32_t(threads)));
      Rows<typename TypeParam::Result> rows(512 * TypeParam::channels, src.height(), Place::scattered, random);
      const Scratch scratch = scratchFor<TypeParam>({512, 64 * threads + 37}, kernelSize + 2);
      ASSERT_EQ(run(work, src, rows.pointers(), scratch), qorStatusOk);
      ASSERT_TRUE(scratch.intact());
      for (int32_t r = 0; r < src.height(); ++r) ASSERT_EQ(rowDifference(work, src, rows, r), "");
    }
  }
}

// Runs the stage on a blank region with each row on a page of its own.
template <class Form>
QOR_OUT_OF_LINE static void runWatched(const WatchedRows& watched, QoriSize size, int32_t kernelSize) {
  RowWork<Form> work;
  work.kernel.assign(size_t(kernelSize), 1);
  const Image<typename Form::Source> src(size.width, size.height, Form::channels);
  std::vector<typename Form::Result*> pointers;
  for (int32_t r = 0; r < size.height; ++r) {
    pointers.push_back(reinterpret_cast<typename Form::Result*>(watched.row(r)));
  }
  const Scratch scratch = scratchFor<Form>(size, kernelSize);
  ASSERT_EQ(run(work, src, pointers, scratch), qorStatusOk);
}

TYPED_TEST(RowPipeline, GoesParallelAtItsGate) {
  for (const int32_t kernelSize : {1, 3, 4, 5}) {
    for (const int32_t cores : {1, 2}) {
      const bool open = gateOpen(TypeParam::gate, kernelSize, cores);
      // 2 * 32768 pixels, and one less.
      for (const QoriSize size : {QoriSize{256, 256}, QoriSize{257, 255}}) {
        services::threads(2);
        services::cores = cores;
        const int32_t team = open && size.width == 256 ? 2 : 1;
        const WatchedRows watched(size.height);
        runWatched<TypeParam>(watched, size, kernelSize);
        EXPECT_EQ(stripesDifference(watched, size.height, team), "")
            << kernelSize << " taps, " << cores << " cores, " << size.width << "x" << size.height;
      }
    }
  }
}

TYPED_TEST(RowPipeline, TeamTakesStripes) {
  struct Setting {
    int32_t maxThreads, requested, team;
  };
  for (const Setting& setting : {Setting{1, 1, 1}, {1, 8, 1}, {2, 1, 1}, {2, 2, 2}, {2, 7, 2}, {3, 3, 3}, {3, 2, 2}}) {
    services::maxThreads = setting.maxThreads;
    services::teamSize = setting.requested;
    const QoriSize size = {300, 331};
    const WatchedRows watched(size.height);
    runWatched<TypeParam>(watched, size, 4);
    EXPECT_EQ(stripesDifference(watched, size.height, setting.team), "")
        << setting.maxThreads << " threads, " << setting.requested << " requested";
  }
}

// Each thread stops at a null row of its own; the status is that of the thread that came last.
TYPED_TEST(RowPipeline, NullRowUnderThreads) {
  Random random(59);
  services::threads(2);
  for (const int32_t null : {0, 10, 63, 64, 100, 127}) {
    const RowWork<TypeParam> work = anyWork<TypeParam>(random, 4);
    Image<typename TypeParam::Source> src(512, 128, TypeParam::channels);
    src.fill(quickNumbers<typename TypeParam::Source>(uint32_t(null)));
    Rows<typename TypeParam::Result> rows(512 * TypeParam::channels, 128, Place::scattered, random);
    auto pointers = rows.pointers();
    pointers[size_t(null)] = nullptr;
    const Scratch scratch = scratchFor<TypeParam>(src.size(), 4);
    const QorStatus status = run(work, src, pointers, scratch);
    EXPECT_TRUE(status == qorStatusNullPtr || status == qorStatusOk) << status;
    const int32_t stripeEnd = null < 64 ? 64 : 128;
    for (int32_t r = 0; r < 128; ++r) {
      if (r >= null && r < stripeEnd) {
        EXPECT_TRUE(rows.untouched(r)) << "row " << r << " after " << null;
      } else {
        ASSERT_EQ(rowDifference(work, src, rows, r), "");
      }
    }
    EXPECT_TRUE(rows.gapsIntact());
    EXPECT_TRUE(scratch.intact());
  }
}

TYPED_TEST(RowPipeline, AllNullRowsUnderThreads) {
  services::threads(2);
  RowWork<TypeParam> work;
  work.kernel.assign(4, 1);
  const Image<typename TypeParam::Source> src(512, 128, TypeParam::channels);
  const Scratch scratch = scratchFor<TypeParam>(src.size(), 4);
  const std::vector<typename TypeParam::Result*> pointers(128, nullptr);
  EXPECT_EQ(run(work, src, pointers, scratch), qorStatusNullPtr);
  EXPECT_TRUE(scratch.intact());
}

TYPED_TEST(RowPipeline, InsideAParallelRegionOfTheCaller) {
  services::threads(2);
  std::string differences[2];
#pragma omp parallel num_threads(2)
  {
    const int32_t caller = omp_get_thread_num();
    Random random(60 + uint32_t(caller));
    const RowWork<TypeParam> work = anyWork<TypeParam>(random, 4 + caller);
    Image<typename TypeParam::Source> src(512, 128, TypeParam::channels);
    src.fill(quickNumbers<typename TypeParam::Source>(uint32_t(caller)));
    Rows<typename TypeParam::Result> rows(512 * TypeParam::channels, 128, Place::scattered, random);
    run(work, src, rows);
    for (int32_t r = 0; r < 128; ++r) differences[caller] += rowDifference(work, src, rows, r);
  }
  EXPECT_EQ(differences[0], "");
  EXPECT_EQ(differences[1], "");
}

TYPED_TEST(RowPipeline, NeedsNoMemoryAndKeepsTheRuntimesSettings) {
  Random random(61);
  const int32_t threadsBefore = omp_get_max_threads();
  services::failAfter(0);
  services::threads(3);
  for (const int32_t width : {30, 600}) {
    for (const int32_t kernelSize : {1, 3, 5, 9}) {
      expectModel(anyWork<TypeParam>(random, kernelSize), {width, 170}, random, 5);
    }
  }
  EXPECT_EQ(services::allocations(), 0);
  EXPECT_EQ(omp_get_max_threads(), threadsBefore);
}

// Statuses

// All faults in the order of the checks, in an image of rows of `rowBytes` bytes and with a kernel of 5 taps.
static std::vector<Fault<RowArgs>> rowFaults(int32_t rowBytes, size_t elementSize, int32_t channels, bool hasDivisor) {
  using Args = RowArgs;
  std::vector<Fault<Args>> faults = {
      {"src", qorStatusNullPtr, [](Args& a) { a.src = nullptr; }},
      {"dstRows", qorStatusNullPtr, [](Args& a) { a.dstRows = nullptr; }},
      {"kernel", qorStatusNullPtr, [](Args& a) { a.kernel = nullptr; }},
      {"buffer", qorStatusNullPtr, [](Args& a) { a.buffer = nullptr; }},
      {"height", qorStatusBadSize, [](Args& a) { a.roiSize.height = 0; }},
      {"height", qorStatusBadSize, [](Args& a) { a.roiSize.height = INT32_MIN; }},
      {"width", qorStatusBadSize, [](Args& a) { a.roiSize.width = 0; }},
      {"width", qorStatusBadSize, [](Args& a) { a.roiSize.width = -1; }},
      {"kernelSize", qorStatusBadSize, [](Args& a) { a.kernelSize = 0; }},
      {"kernelSize", qorStatusBadSize, [](Args& a) { a.kernelSize = INT32_MIN; }},
  };
  for (const int32_t xAnchor : {-1, 5, INT32_MIN, INT32_MAX}) {
    faults.push_back({"xAnchor", qorStatusBadAnchor, [=](Args& a) { a.xAnchor = xAnchor; }});
  }
  for (const int32_t step : {rowBytes - 1, 0, -rowBytes}) {
    faults.push_back({"srcStep", qorStatusBadStep, [=](Args& a) { a.srcStep = step; }});
  }
  for (int32_t rest = 1; rest < int32_t(elementSize); ++rest) {
    faults.push_back({"srcStep", qorStatusBadStepAlign, [=](Args& a) { a.srcStep = rowBytes + rest; }});
  }
  for (const QoriBorderType borderType : {-1, 5, 16, 17, 32, 48, INT32_MIN, INT32_MAX}) {
    faults.push_back({"borderType", qorStatusBadArg, [=](Args& a) { a.borderType = borderType; }});
  }
  if (channels == 3) faults.push_back({"borderValue", qorStatusNullPtr, [](Args& a) { a.borderValue = nullptr; }});
  if (hasDivisor) faults.push_back({"divisor", qorStatusBadArg, [](Args& a) { a.divisor = 0; }});
  return faults;
}

TYPED_TEST(RowPipeline, Statuses) {
  using Source = typename TypeParam::Source;
  Random random(62);
  const Image<Source> src(8, 3, TypeParam::channels, 4);
  const Rows<typename TypeParam::Result> rows(8 * TypeParam::channels, 3, Place::scattered, random);
  const auto pointers = rows.pointers();
  const std::vector<typename TypeParam::Tap> kernel(5, 1);
  const std::vector<Source> borderValue(TypeParam::channels);
  const Scratch scratch = scratchFor<TypeParam>(src.size(), 5);
  const int32_t rowBytes = 8 * TypeParam::channels * int32_t(sizeof(Source));
  const RowArgs good = {src.data(), src.step(),     reinterpret_cast<void* const*>(pointers.data()),
                        src.size(), kernel.data(),  5,
                        2,          qorBorderConst, borderValue.data(),
                        1,          scratch.data()};
  expectStatuses<RowArgs>(good, rowFaults(rowBytes, sizeof(Source), TypeParam::channels, std::is_integral_v<Source>),
                          call<TypeParam>, [&] { return rows.bytes(); });

  // Every mode and anchor passes, and steps of just the row.
  const Image<Source> dense(8, 3, TypeParam::channels);
  for (QoriBorderType borderType = qorBorderConst; borderType <= qorBorderMirrorEdge; ++borderType) {
    for (int32_t xAnchor = 0; xAnchor < 5; ++xAnchor) {
      RowArgs args = good;
      args.src = dense.data();
      args.srcStep = rowBytes;
      args.borderType = borderType;
      args.xAnchor = xAnchor;
      EXPECT_EQ(call<TypeParam>(args), qorStatusOk);
    }
  }
  // A kernel of one tap has one anchor.
  RowArgs one = good;
  one.kernelSize = 1;
  one.xAnchor = 1;
  EXPECT_EQ(call<TypeParam>(one), qorStatusBadAnchor);
  one.xAnchor = 0;
  EXPECT_EQ(call<TypeParam>(one), qorStatusOk);
}

// The row length in bytes wraps in 32 bits, so that a step may look long enough; later checks still run.
TYPED_TEST(RowPipeline, RowLengthWrapsInTheStepCheck) {
  const int32_t pixelBytes = TypeParam::channels * int32_t(sizeof(typename TypeParam::Source));
  if (pixelBytes == 1) return;
  const int32_t width = int32_t((int64_t(1) << 31) / pixelBytes + 1);  // a negative row length
  ASSERT_LT(wrapped(int64_t(width) * pixelBytes), 0);
  typename TypeParam::Source pixel = 0;
  typename TypeParam::Source borderValue[3] = {};
  void* row = nullptr;
  typename TypeParam::Tap tap = 1;
  uint8_t buffer[64];
  EXPECT_EQ(call<TypeParam>({&pixel, 4, &row, {width, 1}, &tap, 1, 0, 5, borderValue, 1, buffer}), qorStatusBadArg);
}

// Scratch sizes

TYPED_TEST(RowPipeline, BufferSizes) {
  expectBufferSizes(TypeParam::bufferSize, [](int32_t threads, int32_t height, int32_t kernelSize) {
    return modelBufferSize(threads, height, kernelSize, TypeParam::perTap, TypeParam::perThread);
  });
}

TYPED_TEST(RowPipeline, BufferSizeStatuses) { expectBufferSizeStatuses(TypeParam::bufferSize); }

TEST(RowPipelineBufferSize, ComputedByHand) {
  services::reset();
  services::maxThreads = 2;
  int32_t size;
  // 32 * 2 + 8 * 2 * (480 + 5) = 7824, and twice the thread's part.
  EXPECT_EQ(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C1R({640, 480}, 5, &size), qorStatusOk);
  EXPECT_EQ(size, 7824 + 2 * 52);
  EXPECT_EQ(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C3R({640, 480}, 5, &size), qorStatusOk);
  EXPECT_EQ(size, 7824 + 2 * 92);
  EXPECT_EQ(qoriFilterRowBorderPipelineGetBufferSize_16s_C1R({640, 480}, 5, &size), qorStatusOk);
  EXPECT_EQ(size, 7824 + 2 * 320);
  EXPECT_EQ(qoriFilterRowBorderPipelineGetBufferSize_16s_C3R({640, 480}, 5, &size), qorStatusOk);
  EXPECT_EQ(size, 7824 + 2 * 172);
  EXPECT_EQ(qoriFilterRowBorderPipelineGetBufferSize_32f_C1R({640, 480}, 5, &size), qorStatusOk);
  EXPECT_EQ(size, 7824 + 2 * 704);
  EXPECT_EQ(qoriFilterRowBorderPipelineGetBufferSize_32f_C3R({640, 480}, 5, &size), qorStatusOk);
  EXPECT_EQ(size, 7824 + 2 * 992);
  EXPECT_EQ(qoriFilterRowBorderPipelineGetBufferSize_Low_16s_C1R({640, 480}, 5, &size), qorStatusOk);
  EXPECT_EQ(size, 7824 + 2 * 184);
  EXPECT_EQ(qoriFilterRowBorderPipelineGetBufferSize_Low_16s_C3R({640, 480}, 5, &size), qorStatusOk);
  EXPECT_EQ(size, 7824 + 2 * 1104);
}
