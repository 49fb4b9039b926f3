// Column stages of the separable filters, against a literal model: the sum over the taps of rows that lie anywhere. Odd
// and meant: a null buffer is found after the steps, and all row pointers are tested before anything is written.
#include <gtest/gtest.h>
#include <omp.h>

#include <algorithm>

#include "filter/pipeline.h"
#include "filter/pipeline_writers.h"
#include "support/image.h"
#include "support/services.h"
#include "support/statuses.h"

using namespace pipeline;

// The ten forms: types, how their sums are formed and end, what a thread's scratch takes for each tap and beside, and
// when they go parallel.
#define COLUMN_FORM(form, source, result, tap, channelCount, sums, ends, tapBytes, fixedBytes, when) \
  struct Column_##form {                                                                             \
    using Source = source;                                                                           \
    using Result = result;                                                                           \
    using Tap = tap;                                                                                 \
    static constexpr const char* name = #form;                                                       \
    static constexpr int32_t channels = channelCount;                                                \
    static constexpr int32_t perTap = tapBytes, perThread = fixedBytes;                              \
    static constexpr Gate gate = when;                                                               \
    static constexpr Arithmetic arithmetic = {sums, ends};                                           \
    template <class... Args>                                                                         \
    static QorStatus stage(Args... args) {                                                           \
      return qoriFilterColumnPipeline_##form(args...);                                               \
    }                                                                                                \
    static QorStatus bufferSize(QoriSize size, int32_t taps, int32_t* bytes) {                       \
      return qoriFilterColumnPipelineGetBufferSize_##form(size, taps, bytes);                        \
    }                                                                                                \
  }
COLUMN_FORM(32f_C1R, float, float, float, 1, Sum::real, Ending::none, 0, 0, Gate::never);
COLUMN_FORM(32f_C3R, float, float, float, 3, Sum::real, Ending::none, 0, 0, Gate::never);
COLUMN_FORM(16s_C1R, int16_t, int16_t, int16_t, 1, Sum::real, Ending::clamp, 4, 32, Gate::separable);
COLUMN_FORM(16s_C3R, int16_t, int16_t, int16_t, 3, Sum::real, Ending::clamp, 4, 32, Gate::separable);
COLUMN_FORM(16s8s_C1R, int16_t, int8_t, int16_t, 1, Sum::real, Ending::clamp, 4, 32, Gate::separable);
COLUMN_FORM(16s8s_C3R, int16_t, int8_t, int16_t, 3, Sum::real, Ending::clamp, 4, 32, Gate::separable);
COLUMN_FORM(16s8u_C1R, int16_t, uint8_t, int16_t, 1, Sum::real, Ending::clamp, 4, 32, Gate::separable);
COLUMN_FORM(16s8u_C3R, int16_t, uint8_t, int16_t, 3, Sum::real, Ending::clamp, 4, 32, Gate::separable);
COLUMN_FORM(Low_16s_C1R, int16_t, int16_t, int16_t, 1, Sum::integer, Ending::lowReal, 0, 32, Gate::separable);
COLUMN_FORM(Low_16s_C3R, int16_t, int16_t, int16_t, 3, Sum::integer, Ending::lowReal, 0, 32, Gate::separable);
#undef COLUMN_FORM

// The arguments of a stage, with its types left open.
struct ColumnArgs {
  const void* const* srcRows;
  void* dst;
  int32_t dstStep;
  QoriSize roiSize;
  const void* kernel;
  int32_t kernelSize, divisor;
  uint8_t* buffer;
};

template <class Form>
QOR_OUT_OF_LINE static QorStatus call(const ColumnArgs& a) {
  const auto srcRows = reinterpret_cast<const typename Form::Source* const*>(a.srcRows);
  const auto dst = static_cast<typename Form::Result*>(a.dst);
  const auto kernel = static_cast<const typename Form::Tap*>(a.kernel);
  if constexpr (std::is_floating_point_v<typename Form::Source>) {
    return Form::stage(srcRows, dst, a.dstStep, a.roiSize, kernel, a.kernelSize, a.buffer);
  } else {
    return Form::stage(srcRows, dst, a.dstStep, a.roiSize, kernel, a.kernelSize, a.divisor, a.buffer);
  }
}

// What a stage computes: the taps, and the number of the row that each pointer is aimed at.
template <class Form>
struct ColumnWork {
  std::vector<typename Form::Tap> kernel;
  int32_t divisor = 1;
  std::vector<int32_t> aims;

  int32_t kernelSize() const { return int32_t(kernel.size()); }
};

template <class Form>
static std::string text(const ColumnWork<Form>& work) {
  return std::to_string(work.kernelSize()) + " taps, divisor " + std::to_string(work.divisor);
}

template <class Form>
QOR_OUT_OF_LINE static std::string imageDifference(const ColumnWork<Form>& work,
                                                   const Rows<typename Form::Source>& rows,
                                                   const Image<typename Form::Result>& dst) {
  const std::string found = difference(dst, [&](int32_t x, int32_t y, int32_t c) {
    return modelResult<typename Form::Result>(Form::arithmetic, work.kernel, work.divisor, [&](int32_t i) {
      return rows.get(work.aims[size_t(y + i)], x * Form::channels + c);
    });
  });
  return found.empty() ? found : found + " with " + text(work);
}

template <class Form>
static std::vector<const typename Form::Source*> pointersOf(const ColumnWork<Form>& work,
                                                            const Rows<typename Form::Source>& rows) {
  std::vector<const typename Form::Source*> pointers;
  for (const int32_t aim : work.aims) pointers.push_back(rows.row(aim));
  return pointers;
}

// Runs the stage with all constant arrays against unmapped pages.
template <class Form>
QOR_OUT_OF_LINE static QorStatus run(const ColumnWork<Form>& work,
                                     const std::vector<const typename Form::Source*>& srcRows,
                                     const Image<typename Form::Result>& dst, const Scratch& scratch) {
  const Exact<typename Form::Tap> kernel(work.kernel);
  const Exact<const typename Form::Source*> pointers(srcRows);
  return call<Form>({reinterpret_cast<const void* const*>(pointers.data()), dst.data(), dst.step(), dst.size(),
                     kernel.data(), work.kernelSize(), work.divisor, scratch.data()});
}

template <class Form>
QOR_OUT_OF_LINE static QorStatus run(const ColumnWork<Form>& work, const Rows<typename Form::Source>& rows,
                                     const Image<typename Form::Result>& dst) {
  const Scratch scratch = scratchFor<Form>(dst.size(), work.kernelSize());
  const QorStatus status = run(work, pointersOf(work, rows), dst, scratch);
  EXPECT_TRUE(scratch.intact());
  return status;
}

// A work for `height` rows, aimed at one row after the other.
template <class Form>
QOR_OUT_OF_LINE static ColumnWork<Form> anyWork(Random& random, int32_t kernelSize, int32_t height) {
  ColumnWork<Form> work;
  work.kernel = kernelOf<typename Form::Tap>(random, kernelSize);
  work.divisor = random.pick(divisors());
  for (int32_t r = 0; r < height + kernelSize - 1; ++r) work.aims.push_back(r);
  return work;
}

// The stage on random rows anywhere in memory, many of them aimed at more than once; the text says what is wrong.
template <class Form>
QOR_OUT_OF_LINE static std::string anyImageDifference(ColumnWork<Form> work, int32_t width, int32_t height,
                                                      Random& random) {
  using Source = typename Form::Source;
  const int32_t pointers = height + work.kernelSize() - 1;
  Rows<Source> rows(width * Form::channels, int32_t(random.number(1, pointers)), anyPlace(random), random);
  const Kind kind = anyKind(random);
  rows.fill([&] { return number<Source>(random, kind); });
  work.aims.clear();
  for (int32_t r = 0; r < pointers; ++r) work.aims.push_back(int32_t(random.number(0, rows.count() - 1)));
  const std::vector<uint8_t> before = rows.bytes();

  const size_t shift = random.chance(0.5) ? size_t(random.number(1, 7)) : 0;
  const int32_t gap = random.chance(0.5) ? int32_t(random.number(1, 9)) : 0;
  Image<typename Form::Result> dst(width, height, Form::channels, gap, random.chance(0.5) ? Edge::end : Edge::begin,
                                   shift);
  const QorStatus status = run(work, rows, dst);
  if (status != qorStatusOk) return "status " + std::to_string(status) + " with " + text(work);
  if (!dst.gapsIntact()) return "wrote outside the image with " + text(work);
  if (rows.bytes() != before) return "changed the source with " + text(work);
  return imageDifference(work, rows, dst);
}

template <class Form>
class ColumnPipeline : public testing::Test {
 protected:
  void SetUp() override { services::reset(); }
};
using ColumnForms =
    testing::Types<Column_32f_C1R, Column_32f_C3R, Column_16s_C1R, Column_16s_C3R, Column_16s8s_C1R, Column_16s8s_C3R,
                   Column_16s8u_C1R, Column_16s8u_C3R, Column_Low_16s_C1R, Column_Low_16s_C3R>;
TYPED_TEST_SUITE(ColumnPipeline, ColumnForms, FormNames);

TYPED_TEST(ColumnPipeline, EveryLength) {
  Random random(71);
  for (const int32_t kernelSize : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 31, 64}) {
    for (int32_t i = 0; i < (kernelSize > 9 ? 15 : 40); ++i) {
      const int32_t height = int32_t(random.number(1, 7));
      ASSERT_EQ(anyImageDifference(anyWork<TypeParam>(random, kernelSize, height), random.width(140), height, random),
                "");
    }
  }
}

TYPED_TEST(ColumnPipeline, EveryWidth) {
  Random random(72);
  for (int32_t width = 1; width <= 150; ++width) {
    for (const int32_t kernelSize : {3, 5, int32_t(random.number(1, 15))}) {
      ASSERT_EQ(anyImageDifference(anyWork<TypeParam>(random, kernelSize, 1), width, 1, random), "");
    }
  }
}

TYPED_TEST(ColumnPipeline, EveryDivisor) {
  Random random(73);
  for (const int32_t divisor : divisors()) {
    for (const int32_t kernelSize : {1, 2, 3, 4, 5, 6, 7, 31, 64}) {
      ColumnWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize, 4);
      work.divisor = divisor;
      ASSERT_EQ(anyImageDifference(work, 75, 4, random), "");
    }
  }
}

TYPED_TEST(ColumnPipeline, ManyRows) {
  Random random(74);
  for (int32_t i = 0; i < 30; ++i) {
    const int32_t height = int32_t(random.number(10, 60));
    const ColumnWork<TypeParam> work = anyWork<TypeParam>(random, int32_t(random.number(1, 9)), height);
    ASSERT_EQ(anyImageDifference(work, random.width(70), height, random), "");
  }
}

TYPED_TEST(ColumnPipeline, LargestAndSmallestTapsAndPixels) {
  using Source = typename TypeParam::Source;
  Random random(75);
  for (const Kind pixels : {Kind::lowest, Kind::highest, Kind::extreme}) {
    for (const Kind taps : {Kind::lowest, Kind::highest, Kind::extreme}) {
      for (const int32_t kernelSize : {1, 2, 3, 4, 5, 6, 7, 8, 9, 15, 64}) {
        for (const int32_t divisor : {1, -1, 2, 3, -5, 65536, INT32_MAX}) {
          ColumnWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize, 1);
          for (auto& tap : work.kernel) tap = number<typename TypeParam::Tap>(random, taps);
          work.divisor = divisor;
          Rows<Source> rows(37 * TypeParam::channels, kernelSize, Place::scattered, random);
          rows.fill([&] { return number<Source>(random, pixels); });
          const Image<typename TypeParam::Result> dst(37, 1, TypeParam::channels);
          ASSERT_EQ(run(work, rows, dst), qorStatusOk);
          ASSERT_EQ(imageDifference(work, rows, dst), "");
        }
      }
    }
  }
}

TYPED_TEST(ColumnPipeline, EndsAsComputedByHand) {
  using Result = typename TypeParam::Result;
  Random random(76);
  for (const EndingCase& ending : endingCases()) {
    for (const int32_t kernelSize : {1, 2, 3, 4, 5, 7}) {
      ColumnWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize, 1);
      work.kernel.assign(size_t(kernelSize), 0);
      work.kernel[size_t(kernelSize / 2)] = ending.tap;
      work.divisor = ending.divisor;
      Rows<typename TypeParam::Source> rows(50 * TypeParam::channels, kernelSize, Place::scattered, random);
      rows.fill([&] { return typename TypeParam::Source(ending.pixel); });
      const Image<Result> dst(50, 1, TypeParam::channels);
      ASSERT_EQ(run(work, rows, dst), qorStatusOk);
      Result expected;
      if (std::is_floating_point_v<Result>) {
        expected = Result(float(ending.pixel) * ending.tap);
      } else if (TypeParam::arithmetic.ending == Ending::lowReal) {
        expected = Result(ending.lowReal);
      } else if (std::is_same_v<Result, int8_t>) {
        expected = Result(ending.clamped8s);
      } else if (std::is_same_v<Result, uint8_t>) {
        expected = Result(ending.clamped8u);
      } else {
        expected = Result(ending.clamped16);
      }
      ASSERT_EQ(difference(dst, [=](int32_t, int32_t, int32_t) { return expected; }), "")
          << ending.pixel << " * " << ending.tap << ", " << text(work);
    }
  }
}

// One output row over rows that are each of one value. Returns column 0, channel 0; all others are the same.
template <class Form>
QOR_OUT_OF_LINE static typename Form::Result flatRows(const std::vector<int32_t>& pixels,
                                                      const std::vector<int32_t>& taps) {
  Random random(77);
  ColumnWork<Form> work = anyWork<Form>(random, int32_t(taps.size()), 1);
  work.kernel.assign(taps.begin(), taps.end());
  work.divisor = 1;
  Rows<typename Form::Source> rows(40 * Form::channels, int32_t(pixels.size()), Place::scattered, random);
  for (int32_t r = 0; r < rows.count(); ++r) {
    for (int32_t i = 0; i < rows.length(); ++i) rows.set(r, i, typename Form::Source(pixels[size_t(r)]));
  }
  const Image<typename Form::Result> dst(40, 1, Form::channels);
  EXPECT_EQ(run(work, rows, dst), qorStatusOk);
  EXPECT_EQ(difference(dst, [&](int32_t, int32_t, int32_t) { return dst.get(0, 0); }), "");
  return dst.get(0, 0);
}

// 2^24 + 1 is no float: a float sum loses the 1, an integer sum keeps it.
TYPED_TEST(ColumnPipeline, RoundsAtEachTapOrNever) {
  const int32_t expected = TypeParam::arithmetic.sum == Sum::real ? 0 : 1;
  EXPECT_EQ((flatRows<TypeParam>({4096, 1, 4096}, {4096, 1, -4096})), expected);
  EXPECT_EQ((flatRows<TypeParam>({4096, 1, 0, 4096}, {4096, 1, 0, -4096})), expected);
  EXPECT_EQ((flatRows<TypeParam>({4096, 1, 0, 0, 4096}, {4096, 1, 0, 0, -4096})), expected);
  EXPECT_EQ((flatRows<TypeParam>({4096, 1, 0, 0, 0, 4096}, {4096, 1, 0, 0, 0, -4096})), expected);
}

// (1 + 2^24) - 2^24 is 0 in floats, and 1 in any other order.
TYPED_TEST(ColumnPipeline, SumsInTheOrderOfTheTaps) {
  const int32_t expected = TypeParam::arithmetic.sum == Sum::real ? 0 : 1;
  EXPECT_EQ((flatRows<TypeParam>({1, 4096, 4096}, {1, 4096, -4096})), expected);
  EXPECT_EQ((flatRows<TypeParam>({1, 0, 4096, 4096}, {1, 0, 4096, -4096})), expected);
  EXPECT_EQ((flatRows<TypeParam>({1, 0, 4096, 0, 4096}, {1, 0, 4096, 0, -4096})), expected);
  EXPECT_EQ((flatRows<TypeParam>({1, 0, 0, 0, 4096, 4096}, {1, 0, 0, 0, 4096, -4096})), expected);
}

// Tap 0 is of the window's first row.
TYPED_TEST(ColumnPipeline, KernelIsNotReversed) {
  EXPECT_EQ((flatRows<TypeParam>({11, 12, 13}, {1, 0, 0})), 11);
  EXPECT_EQ((flatRows<TypeParam>({11, 12, 13, 14, 15}, {0, 0, 0, 1, 0})), 14);
  EXPECT_EQ((flatRows<TypeParam>({11, 12}, {0, 1})), 12);
}

// A sum of negative zeros stays one: nothing is added before the first product.
TEST(ColumnPipelineFloat, KeepsNegativeZero) {
  Random random(78);
  for (const int32_t kernelSize : {1, 2, 3, 4, 5, 7}) {
    ColumnWork<Column_32f_C1R> work = anyWork<Column_32f_C1R>(random, kernelSize, 1);
    work.kernel.assign(size_t(kernelSize), 2.0f);
    Rows<float> rows(40, kernelSize, Place::scattered, random);
    rows.fill([] { return -0.0f; });
    const Image<float> dst(40, 1);
    ASSERT_EQ(run(work, rows, dst), qorStatusOk);
    ASSERT_EQ(difference(dst, [](int32_t, int32_t, int32_t) { return -0.0f; }), "") << kernelSize;
  }
}

TYPED_TEST(ColumnPipeline, NullRowAnywhereWritesNothing) {
  Random random(79);
  for (const int32_t kernelSize : {1, 3, 5, 6}) {
    const int32_t height = 4;
    const ColumnWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize, height);
    Rows<typename TypeParam::Source> rows(20 * TypeParam::channels, height + kernelSize - 1, Place::scattered, random);
    rows.fill([&] { return number<typename TypeParam::Source>(random, Kind::highest); });
    for (size_t null = 0; null < work.aims.size(); ++null) {
      auto pointers = pointersOf(work, rows);
      pointers[null] = nullptr;
      const Image<typename TypeParam::Result> dst(20, height, TypeParam::channels, 2);
      const std::vector<uint8_t> before = dst.bytes();
      const Scratch scratch = scratchFor<TypeParam>(dst.size(), kernelSize);
      EXPECT_EQ(run(work, pointers, dst, scratch), qorStatusNullPtr) << "pointer " << null;
      EXPECT_TRUE(dst.bytes() == before) << "pointer " << null;
    }
  }
}

// Threads

TYPED_TEST(ColumnPipeline, NullRowUnderThreads) {
  Random random(80);
  services::threads(2);
  for (const int32_t null : {0, 1, 63, 64, 66, 67, 100, 127, 130}) {
    const ColumnWork<TypeParam> work = anyWork<TypeParam>(random, 4, 128);
    const Rows<typename TypeParam::Source> rows(512 * TypeParam::channels, 131, Place::scattered, random);
    auto pointers = pointersOf(work, rows);
    pointers[size_t(null)] = nullptr;
    const Image<typename TypeParam::Result> dst(512, 128, TypeParam::channels, 2);
    const std::vector<uint8_t> before = dst.bytes();
    const Scratch scratch = scratchFor<TypeParam>(dst.size(), 4);
    EXPECT_EQ(run(work, pointers, dst, scratch), qorStatusNullPtr) << "pointer " << null;
    EXPECT_TRUE(dst.bytes() == before) << "pointer " << null;
    EXPECT_TRUE(scratch.intact());
  }
}

template <class Form>
QOR_OUT_OF_LINE static void expectModel(const ColumnWork<Form>& work, QoriSize size, Random& random, uint32_t seed) {
  Rows<typename Form::Source> rows(size.width * Form::channels, size.height + work.kernelSize() - 1, Place::scattered,
                                   random);
  rows.fill(quickNumbers<typename Form::Source>(seed));
  const Image<typename Form::Result> dst(size.width, size.height, Form::channels, 3);
  ASSERT_EQ(run(work, rows, dst), qorStatusOk);
  ASSERT_EQ(imageDifference(work, rows, dst), "");
  ASSERT_TRUE(dst.gapsIntact());
}

TYPED_TEST(ColumnPipeline, ParallelGivesTheModel) {
  Random random(81);
  int32_t kernelSize = 0;
  for (const ParallelSetting& setting : parallelSettings()) {
    services::maxThreads = setting.maxThreads;
    services::teamSize = setting.teamSize;
    services::cores = setting.cores;
    kernelSize = kernelSize % 5 + 1;
    expectModel(anyWork<TypeParam>(random, kernelSize, setting.size.height), setting.size, random,
                uint32_t(kernelSize));
    if (this->HasFatalFailure()) FAIL() << text(setting);
  }
}

TYPED_TEST(ColumnPipeline, ExactScratchForAnyNumberOfThreads) {
  using Result = typename TypeParam::Result;
  Random random(82);
  for (const auto& [threads, size, kernelSize] : worksAtGate()) {
    ColumnWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize, size.height);
    for (auto& tap : work.kernel) tap = number<typename TypeParam::Tap>(random, Kind::any);
    Rows<typename TypeParam::Source> rows(size.width * TypeParam::channels, size.height + kernelSize - 1,
                                          Place::scattered, random);
    rows.fill(quickNumbers<typename TypeParam::Source>(uint32_t(threads)));
    // So many threads that the region is a small one.
    services::threads(60);
    const Image<Result> serial(size.width, size.height, TypeParam::channels);
    ASSERT_EQ(run(work, rows, serial), qorStatusOk);
    const std::vector<uint8_t> expected = serial.bytes();
    // More than are allowed every other time: the team is held to what there is scratch for.
    const int32_t team = threads % 2 ? INT32_MAX : threads;
    services::maxThreads = threads;
    services::teamSize = team;
    services::cores = 2;
    const Image<Result> dst(size.width, size.height, TypeParam::channels);
    const Scratch scratch =
        scratchFor<TypeParam>(size, kernelSize, random.chance(0.5) ? size_t(random.number(1, 63)) : 0);
    ASSERT_EQ(run(work, pointersOf(work, rows), dst, scratch), qorStatusOk);
    ASSERT_TRUE(scratch.intact()) << threads << " threads, team " << team;
    ASSERT_TRUE(dst.bytes() == expected) << threads << " threads, team " << team << ", " << text(work);
  }
}

TYPED_TEST(ColumnPipeline, ExactScratchAtAnyAddress) {
  Random random(83);
  for (const int32_t threads : {1, 3, 40}) {
    services::threads(threads);
    for (size_t slack = 0; slack < 64; ++slack) {
      for (const int32_t kernelSize : {3, 5, random.chance(0.2) ? 31 : int32_t(random.number(1, 9))}) {
        const QoriSize size = {random.width(40), int32_t(random.number(1, 4))};
        const ColumnWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize, size.height);
        Rows<typename TypeParam::Source> rows(size.width * TypeParam::channels, size.height + kernelSize - 1,
                                              Place::scattered, random);
        rows.fill([&] { return number<typename TypeParam::Source>(random, Kind::any); });
        const Image<typename TypeParam::Result> dst(size.width, size.height, TypeParam::channels);
        const Scratch scratch = scratchFor<TypeParam>(size, kernelSize, slack);
        ASSERT_EQ(run(work, pointersOf(work, rows), dst, scratch), qorStatusOk);
        ASSERT_TRUE(scratch.intact()) << "slack " << slack;
        ASSERT_EQ(imageDifference(work, rows, dst), "");
      }
    }
  }
}

// Scratch that was sized for a higher image and a longer kernel serves a smaller work too.
TYPED_TEST(ColumnPipeline, ScratchOfALargerWork) {
  Random random(84);
  for (const int32_t threads : {1, 3}) {
    services::threads(threads);
    for (const int32_t kernelSize : {3, 5, 6}) {
      const QoriSize size = {512, 64 * threads};
      const ColumnWork<TypeParam> work = anyWork<TypeParam>(random, kernelSize, size.height);
      Rows<typename TypeParam::Source> rows(size.width * TypeParam::channels, size.height + kernelSize - 1,
                                            Place::scattered, random);
      rows.fill(quickNumbers<typename TypeParam::Source>(uint32_t(threads)));
      const Image<typename TypeParam::Result> dst(size.width, size.height, TypeParam::channels);
      const Scratch scratch = scratchFor<TypeParam>({512, size.height + 37}, kernelSize + 2);
      ASSERT_EQ(run(work, pointersOf(work, rows), dst, scratch), qorStatusOk);
      ASSERT_TRUE(scratch.intact());
      ASSERT_EQ(imageDifference(work, rows, dst), "");
    }
  }
}

// Runs the stage on blank rows, with each row of the result on a page of its own.
template <class Form>
QOR_OUT_OF_LINE static void runWatched(const WatchedRows& watched, QoriSize size, int32_t kernelSize) {
  const std::vector<typename Form::Tap> kernel(size_t(kernelSize), 1);
  const std::vector<typename Form::Source> blank(size_t(size.width) * Form::channels);
  const std::vector<const void*> pointers(size_t(size.height + kernelSize - 1), blank.data());
  const Scratch scratch = scratchFor<Form>(size, kernelSize);
  ASSERT_EQ(call<Form>({reinterpret_cast<const void* const*>(pointers.data()), watched.data(), WatchedRows::step, size,
                        kernel.data(), kernelSize, 1, scratch.data()}),
            qorStatusOk);
}

TYPED_TEST(ColumnPipeline, GoesParallelAtItsGate) {
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

TYPED_TEST(ColumnPipeline, TeamTakesStripes) {
  struct Setting {
    int32_t maxThreads, requested, team;
  };
  for (const Setting& setting : {Setting{1, 1, 1}, {1, 8, 1}, {2, 1, 1}, {2, 2, 2}, {2, 7, 2}, {3, 3, 3}, {3, 2, 2}}) {
    services::maxThreads = setting.maxThreads;
    services::teamSize = setting.requested;
    const QoriSize size = {300, 331};
    const WatchedRows watched(size.height);
    runWatched<TypeParam>(watched, size, 4);
    EXPECT_EQ(stripesDifference(watched, size.height, TypeParam::gate == Gate::never ? 1 : setting.team), "")
        << setting.maxThreads << " threads, " << setting.requested << " requested";
  }
}

TYPED_TEST(ColumnPipeline, InsideAParallelRegionOfTheCaller) {
  services::threads(2);
  std::string differences[2];
#pragma omp parallel num_threads(2)
  {
    const int32_t caller = omp_get_thread_num();
    Random random(85 + uint32_t(caller));
    const ColumnWork<TypeParam> work = anyWork<TypeParam>(random, 4 + caller, 128);
    Rows<typename TypeParam::Source> rows(512 * TypeParam::channels, 131 + caller, Place::scattered, random);
    rows.fill(quickNumbers<typename TypeParam::Source>(uint32_t(caller)));
    const Image<typename TypeParam::Result> dst(512, 128, TypeParam::channels);
    run(work, rows, dst);
    differences[caller] = imageDifference(work, rows, dst);
  }
  EXPECT_EQ(differences[0], "");
  EXPECT_EQ(differences[1], "");
}

TYPED_TEST(ColumnPipeline, NeedsNoMemoryAndKeepsTheRuntimesSettings) {
  Random random(86);
  const int32_t threadsBefore = omp_get_max_threads();
  services::failAfter(0);
  services::threads(3);
  for (const int32_t width : {30, 600}) {
    for (const int32_t kernelSize : {1, 3, 5, 9}) {
      expectModel(anyWork<TypeParam>(random, kernelSize, 170), {width, 170}, random, 5);
    }
  }
  EXPECT_EQ(services::allocations(), 0);
  EXPECT_EQ(omp_get_max_threads(), threadsBefore);
}

// Statuses

// All faults in the order of the checks, in an image of rows of `rowBytes` bytes; the two pointer arrays each have one
// null.
static std::vector<Fault<ColumnArgs>> columnFaults(int32_t rowBytes, size_t elementSize, bool hasDivisor,
                                                   const void* const* firstIsNull, const void* const* lastIsNull) {
  using Args = ColumnArgs;
  std::vector<Fault<Args>> faults = {
      {"srcRows", qorStatusNullPtr, [](Args& a) { a.srcRows = nullptr; }},
      {"dst", qorStatusNullPtr, [](Args& a) { a.dst = nullptr; }},
      {"kernel", qorStatusNullPtr, [](Args& a) { a.kernel = nullptr; }},
      {"height", qorStatusBadSize, [](Args& a) { a.roiSize.height = 0; }},
      {"height", qorStatusBadSize, [](Args& a) { a.roiSize.height = INT32_MIN; }},
      {"width", qorStatusBadSize, [](Args& a) { a.roiSize.width = 0; }},
      {"width", qorStatusBadSize, [](Args& a) { a.roiSize.width = -1; }},
      {"kernelSize", qorStatusBadSize, [](Args& a) { a.kernelSize = 0; }},
      {"kernelSize", qorStatusBadSize, [](Args& a) { a.kernelSize = INT32_MIN; }},
  };
  for (const int32_t step : {rowBytes - 1, 0, -rowBytes}) {
    faults.push_back({"dstStep", qorStatusBadStep, [=](Args& a) { a.dstStep = step; }});
  }
  for (int32_t rest = 1; rest < int32_t(elementSize); ++rest) {
    faults.push_back({"dstStep", qorStatusBadStepAlign, [=](Args& a) { a.dstStep = rowBytes + rest; }});
  }
  faults.push_back({"buffer", qorStatusNullPtr, [](Args& a) { a.buffer = nullptr; }});
  if (hasDivisor) faults.push_back({"divisor", qorStatusBadArg, [](Args& a) { a.divisor = 0; }});
  for (const auto rows : {firstIsNull, lastIsNull}) {
    faults.push_back({"srcRows", qorStatusNullPtr, [=](Args& a) { a.srcRows = rows; }});
  }
  return faults;
}

TYPED_TEST(ColumnPipeline, Statuses) {
  using Result = typename TypeParam::Result;
  Random random(87);
  const ColumnWork<TypeParam> work = anyWork<TypeParam>(random, 5, 3);
  const Rows<typename TypeParam::Source> rows(8 * TypeParam::channels, 7, Place::scattered, random);
  std::vector<const void*> pointers;
  for (int32_t r = 0; r < 7; ++r) pointers.push_back(rows.row(r));
  auto firstIsNull = pointers, lastIsNull = pointers;
  firstIsNull.front() = nullptr;
  lastIsNull.back() = nullptr;
  const Image<Result> dst(8, 3, TypeParam::channels, 4);
  const Scratch scratch = scratchFor<TypeParam>(dst.size(), 5);
  const int32_t rowBytes = 8 * TypeParam::channels * int32_t(sizeof(Result));
  const ColumnArgs good = {pointers.data(),    dst.data(), dst.step(), dst.size(),
                           work.kernel.data(), 5,          1,          scratch.data()};
  expectStatuses<ColumnArgs>(
      good, columnFaults(rowBytes, sizeof(Result), std::is_integral_v<Result>, firstIsNull.data(), lastIsNull.data()),
      call<TypeParam>, [&] { return dst.bytes(); });

  // Steps of just the row, and of one byte more where elements are bytes.
  const Image<Result> dense(8, 3, TypeParam::channels);
  ColumnArgs args = good;
  args.dst = dense.data();
  args.dstStep = rowBytes;
  EXPECT_EQ(call<TypeParam>(args), qorStatusOk);
  if (sizeof(Result) == 1) {
    args = good;
    args.dstStep = rowBytes + 1;
    EXPECT_EQ(call<TypeParam>(args), qorStatusOk);
  }
}

// The row length in bytes wraps in 32 bits, so that a step may look long enough; later checks still run.
TYPED_TEST(ColumnPipeline, RowLengthWrapsInTheStepCheck) {
  const int32_t pixelBytes = TypeParam::channels * int32_t(sizeof(typename TypeParam::Result));
  if (pixelBytes == 1) return;
  const int32_t width = int32_t((int64_t(1) << 31) / pixelBytes + 1);  // a negative row length
  ASSERT_LT(wrapped(int64_t(width) * pixelBytes), 0);
  const void* row = nullptr;
  typename TypeParam::Result pixel = 0;
  typename TypeParam::Tap tap = 1;
  uint8_t buffer[64];
  EXPECT_EQ(call<TypeParam>({&row, &pixel, 4, {width, 1}, &tap, 1, 1, buffer}), qorStatusNullPtr);
}

// Scratch sizes

TYPED_TEST(ColumnPipeline, BufferSizes) {
  expectBufferSizes(TypeParam::bufferSize, [](int32_t threads, int32_t height, int32_t kernelSize) {
    // The stages that never thread need nothing, and say 32.
    if (TypeParam::gate == Gate::never) return 32;
    return modelBufferSize(threads, height, kernelSize, TypeParam::perTap, TypeParam::perThread);
  });
}

TYPED_TEST(ColumnPipeline, BufferSizeStatuses) { expectBufferSizeStatuses(TypeParam::bufferSize); }

TEST(ColumnPipelineBufferSize, ComputedByHand) {
  services::reset();
  services::maxThreads = 2;
  // 32 * 2 + 8 * 2 * (480 + 5) = 7824, and twice the thread's part.
  int32_t size;
  for (const auto query :
       {qoriFilterColumnPipelineGetBufferSize_16s_C1R, qoriFilterColumnPipelineGetBufferSize_16s_C3R,
        qoriFilterColumnPipelineGetBufferSize_16s8s_C1R, qoriFilterColumnPipelineGetBufferSize_16s8s_C3R,
        qoriFilterColumnPipelineGetBufferSize_16s8u_C1R, qoriFilterColumnPipelineGetBufferSize_16s8u_C3R}) {
    EXPECT_EQ(query({640, 480}, 5, &size), qorStatusOk);
    EXPECT_EQ(size, 7824 + 2 * 52);
  }
  for (const auto query :
       {qoriFilterColumnPipelineGetBufferSize_Low_16s_C1R, qoriFilterColumnPipelineGetBufferSize_Low_16s_C3R}) {
    EXPECT_EQ(query({640, 480}, 5, &size), qorStatusOk);
    EXPECT_EQ(size, 7824 + 2 * 32);
  }
  for (const auto query :
       {qoriFilterColumnPipelineGetBufferSize_32f_C1R, qoriFilterColumnPipelineGetBufferSize_32f_C3R}) {
    EXPECT_EQ(query({640, 480}, 5, &size), qorStatusOk);
    EXPECT_EQ(size, 32);
  }
}

// Both stages, a ring of three rows between them: an image is filtered one row at a time.
TEST(SeparablePipelines, FilterThroughARing) {
  services::reset();
  Random random(88);
  const int32_t width = 45, height = 20;
  Image<uint8_t> src(width, height);
  src.fill([&] { return random.value<uint8_t>(); });
  const Image<int16_t> dst(width, height);
  const int16_t smooth[] = {1, 2, 1}, derive[] = {-1, 0, 1};
  int32_t rowScratchSize = 0;
  ASSERT_EQ(qoriFilterRowBorderPipelineGetBufferSize_8u16s_C1R({width, 1}, 3, &rowScratchSize), qorStatusOk);
  const Scratch rowScratch(rowScratchSize, 0);
  const Scratch columnScratch = scratchFor<Column_16s_C1R>({width, 1}, 3);
  Rows<int16_t> ring(width, 3, Place::scattered, random);
  const auto filterRow = [&](int32_t y) {
    int16_t* const row = ring.row(y % 3);
    return qoriFilterRowBorderPipeline_8u16s_C1R(src.data() + y * src.step(), src.step(), &row, {width, 1}, smooth, 3,
                                                 1, qorBorderReplicate, 0, 1, rowScratch.data());
  };
  ASSERT_EQ(filterRow(0), qorStatusOk);
  for (int32_t y = 0; y < height; ++y) {
    if (y + 1 < height) {
      ASSERT_EQ(filterRow(y + 1), qorStatusOk);
    }
    const int16_t* const window[] = {ring.row(std::max(y - 1, 0) % 3), ring.row(y % 3),
                                     ring.row(std::min(y + 1, height - 1) % 3)};
    ASSERT_EQ(qoriFilterColumnPipeline_16s_C1R(window, dst.data() + y * width, dst.step(), {width, 1}, derive, 3, 1,
                                               columnScratch.data()),
              qorStatusOk);
  }
  const auto pixel = [&](int32_t x, int32_t y) {
    return int32_t(src.get(std::min(std::max(x, 0), width - 1), std::min(std::max(y, 0), height - 1)));
  };
  const auto smoothed = [&](int32_t x, int32_t y) { return pixel(x - 1, y) + 2 * pixel(x, y) + pixel(x + 1, y); };
  EXPECT_EQ(
      difference(dst, [&](int32_t x, int32_t y, int32_t) { return int16_t(smoothed(x, y + 1) - smoothed(x, y - 1)); }),
      "");
}
