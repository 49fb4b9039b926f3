// Fixed-kernel border filters: the statuses of every function, for every single fault and every pair.
#include "filter/fixedfilters.h"
#include "support/statuses.h"

using namespace fixedfilters;

namespace {

constexpr int32_t width = 11, height = 4;

// In the order of the checks.
std::vector<Fault<Call>> faultsOf(const Filter& f, int32_t sourceSize, int32_t resultSize) {
  std::vector<Fault<Call>> faults = {
      {"src", qorStatusNullPtr, [](Call& c) { c.src = nullptr; }},
      {"dst", qorStatusNullPtr, [](Call& c) { c.dst = nullptr; }},
      {"buffer", qorStatusNullPtr, [](Call& c) { c.buffer = nullptr; }},
  };
  for (int32_t bad : {0, -1, INT32_MIN}) {
    faults.push_back({"width", qorStatusBadSize, [=](Call& c) { c.roiSize.width = bad; }});
    faults.push_back({"height", qorStatusBadSize, [=](Call& c) { c.roiSize.height = bad; }});
  }
  const int32_t sourceRow = width * sourceSize, resultRow = width * resultSize;
  for (int32_t bad : {sourceRow - 1, sourceRow - sourceSize, 0, -sourceRow, INT32_MIN}) {
    faults.push_back({"srcStep", qorStatusBadStep, [=](Call& c) { c.srcStep = bad; }});
  }
  for (int32_t bad : {resultRow - 1, resultRow - resultSize, 0, -resultRow, INT32_MIN}) {
    faults.push_back({"dstStep", qorStatusBadStep, [=](Call& c) { c.dstStep = bad; }});
  }
  for (int32_t more = 1; more < 4 && f.types == Types::t32f; ++more) {
    faults.push_back({"srcStep", qorStatusBadStepAlign, [=](Call& c) { c.srcStep = sourceRow + more; }});
    faults.push_back({"dstStep", qorStatusBadStepAlign, [=](Call& c) { c.dstStep = resultRow + more; }});
  }
  if (f.types == Types::t8u16s) {
    faults.push_back({"dstStep", qorStatusBadStepAlign, [=](Call& c) { c.dstStep = resultRow + 1; }});
  }
  // A mode above 4; bits 4 to 15 without one of the two flags.
  for (int32_t bad : {5, 6, 15, 16 + 5, 32 + 7, 48 + 15, -1, 0x10005, 0x40, 0x80 + 1, 0x100 + 2, 0x8000 + 3, 0xffc0 + 4,
                      0x10040, INT32_MIN + 0x100}) {
    faults.push_back({"borderType", qorStatusBadArg, [=](Call& c) { c.borderType = bad; }});
  }
  if (f.hasDivisor()) faults.push_back({"divisor", qorStatusBadArg, [](Call& c) { c.divisor = 0; }});
  if (f.hasMask) {
    for (int32_t bad : {0, 3, 5, 15, 32, 34, 35, 44, 53, 54, 56, 77, -33, INT32_MIN, INT32_MAX}) {
      faults.push_back({"maskSize", qorStatusBadMask, [=](Call& c) { c.maskSize = bad; }});
    }
  }
  return faults;
}

}  // namespace

class FixedFilterStatuses : public FixedFilters {};

TEST_F(FixedFilterStatuses, everyFaultAndEveryPair) {
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    SCOPED_TRACE(f.name() + " " + std::to_string(mask));
    withTypes(f.types, [&](auto s, auto d) {
      using S = decltype(s);
      using D = decltype(d);
      // Room for steps that are a few bytes too long.
      const Image<S> src(width, height, 1, 3);
      const Image<D> dst(width, height, 1, 3);
      int32_t bytes = 0;
      ASSERT_EQ(f.bufferSize({width, height}, mask, &bytes), qorStatusOk);
      const GuardedMemory buffer(size_t(bytes), Edge::end);
      const Call good = {src.data(),
                         width * int32_t(sizeof(S)),
                         dst.data(),
                         width * int32_t(sizeof(D)),
                         {width, height},
                         mask,
                         0,
                         1.0f,
                         3,
                         buffer.data()};
      expectStatuses<Call>(good, faultsOf(f, int32_t(sizeof(S)), int32_t(sizeof(D))), f.run, [&] {
        std::vector<uint8_t> all = dst.bytes();
        all.insert(all.end(), buffer.data(), buffer.data() + buffer.size());
        return all;
      });
    });
  });
}

// Steps of 8-bit images may be odd, also beside 16-bit results.
TEST_F(FixedFilterStatuses, oddStepsOf8BitImagesAreFine) {
  std::vector<uint8_t> src(200, 9), scratch(20000);
  std::vector<int8_t> dst(400);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    if (f.types == Types::t32f) return;
    const int32_t dstStep = f.types == Types::t8u16s ? 26 : 13;
    EXPECT_EQ(f.run({src.data(), 13, dst.data(), dstStep, {11, 4}, mask, 1, 0, 1, scratch.data()}), qorStatusOk);
    EXPECT_EQ(f.run({src.data(), 11, dst.data(), dstStep, {11, 4}, mask, 1, 0, 1, scratch.data()}), qorStatusOk);
  });
}

// The parallel way has the same checks before it.
TEST_F(FixedFilterStatuses, areTheSameForLargeImages) {
  services::threads(2);
  const QoriSize size = {256, 256};
  std::vector<float> src(256 * 256), dst(256 * 256);
  std::vector<uint8_t> scratch(1 << 20);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    int32_t bytes = 0;
    ASSERT_EQ(f.bufferSize(size, mask, &bytes), qorStatusOk);
    scratch.resize(size_t(bytes));
    const Call good = {src.data(), 1024, dst.data(), 1024, size, mask, 1, 0, 3, scratch.data()};
    EXPECT_EQ(f.run(good), qorStatusOk);
    Call bad = good;
    bad.borderType = 5;
    EXPECT_EQ(f.run(bad), qorStatusBadArg) << f.name();
    if (f.hasDivisor()) {
      bad = good;
      bad.divisor = 0;
      EXPECT_EQ(f.run(bad), qorStatusBadArg) << f.name();
    }
    if (f.hasMask) {
      bad = good;
      bad.maskSize = 34;
      EXPECT_EQ(f.run(bad), qorStatusBadMask) << f.name();
    }
  });
}
