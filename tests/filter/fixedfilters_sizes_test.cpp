// Scratch of the fixed-kernel border filters: every size to the byte, and that it suffices.
#include "filter/fixedfilters.h"

using namespace fixedfilters;

namespace {

// The reported size most literally, in arithmetic that wraps at 32 bits.
int32_t expectedSize(const Filter& f, QoriMaskSelector mask, QoriSize size, int32_t threads) {
  const bool is5x5 = mask == qorMaskSize5x5;
  const uint32_t width = uint32_t(size.width), height = uint32_t(size.height), n = uint32_t(threads);
  const uint32_t w16 = (width + 15) & ~15u, k = is5x5 ? 5 : 3;
  const bool from32f = f.types == Types::t32f;

  const uint32_t row = 32 * n + 8 * n * (height + k) + n * (from32f ? 128 * k + 64 : 4 * k + 32);
  const uint32_t column = from32f ? 32 : 32 * n + 8 * n * (height + k) + n * (4 * k + 32);

  struct Base {
    uint32_t perWidth5, plus5, perWidth3, plus3;
  };
  const Base sobel[] = {{100, 488, 84, 440}, {50, 488, 42, 440}, {50, 424, 42, 376}};  // 32f, 8u16s, 8u8s
  const Base lowpass[] = {{100, 424, 84, 376}, {}, {}, {50, 488, 42, 440}};            // 32f, -, -, 8u
  const Base laplacian[] = {{200, 816, 168, 720}, {100, 816, 84, 720}, {100, 816, 84, 720}};
  const Base scharr[] = {{0, 0, 84, 440}, {0, 0, 42, 376}, {0, 0, 42, 376}};
  const auto type = size_t(f.types);
  const Base b = f.is("Lowpass")                             ? lowpass[type]
                 : f.is("Laplacian")                         ? laplacian[type]
                 : f.is("ScharrHoriz") || f.is("ScharrVert") ? scharr[type]
                                                             : sobel[type];
  uint32_t base = is5x5 ? b.perWidth5 * w16 + b.plus5 : b.perWidth3 * w16 + b.plus3;
  uint32_t tail = 32;
  // Three members differ.
  if (f.name() == "SobelHoriz_8u16s") tail = 64;
  if (f.name() == "SobelVert_8u16s") base = is5x5 ? 50 * w16 + 456 : 42 * w16 + 408;
  if (f.name() == "ScharrVert_8u16s") base = 42 * w16 + 440;
  // The intermediate image.
  if (f.name() == "Laplacian_8u8s" && is5x5) base += 2 * w16 * height + 32;
  return int32_t(n * (base + row + column + tail));
}

}  // namespace

class FixedFilterSizes : public FixedFilters {};

TEST_F(FixedFilterSizes, areExactForAnyThreadCount) {
  Random random(1);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (int32_t n = 1; n <= 40; ++n) {
      services::maxThreads = n;
      for (int round = 0; round < 20; ++round) {
        const QoriSize size = {random.width(5000), int32_t(random.number(1, 3000))};
        int32_t bytes = -1;
        ASSERT_EQ(f.bufferSize(size, mask, &bytes), qorStatusOk);
        ASSERT_EQ(bytes, expectedSize(f, mask, size, n))
            << f.name() << " " << mask << " " << size.width << "x" << size.height << ", " << n << " threads";
      }
    }
  });
}

// Only the greatest number of threads counts.
TEST_F(FixedFilterSizes, dependOnNeitherTeamNorCores) {
  services::maxThreads = 3;
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (int32_t other : {1, 2, 7, 40, 0}) {
      services::teamSize = services::cores = other;
      int32_t bytes = -1;
      ASSERT_EQ(f.bufferSize({100, 300}, mask, &bytes), qorStatusOk);
      ASSERT_EQ(bytes, expectedSize(f, mask, {100, 300}, 3)) << f.name();
    }
  });
}

TEST_F(FixedFilterSizes, wrapWithoutAStatus) {
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (int32_t n : {1, 2, 5, 40}) {
      services::maxThreads = n;
      for (QoriSize size : {QoriSize{INT32_MAX, 1}, QoriSize{INT32_MAX - 15, INT32_MAX}, QoriSize{1, INT32_MAX},
                            QoriSize{1 << 30, 1 << 30}, QoriSize{46341, 46341}, QoriSize{50000000, 3}}) {
        int32_t bytes = -1;
        ASSERT_EQ(f.bufferSize(size, mask, &bytes), qorStatusOk);
        ASSERT_EQ(bytes, expectedSize(f, mask, size, n)) << f.name() << " " << size.width << "x" << size.height;
      }
    }
  });
}

TEST_F(FixedFilterSizes, someByHand) {
  int32_t bytes = 0;
  // 17 columns count as 32. 42 * 32 + 440, row 32 + 8 * 23 + 44, column the same, 64.
  ASSERT_EQ(qoriFilterSobelHorizGetBufferSize_8u16s_C1R({17, 20}, 33, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 1784 + 260 + 260 + 64);
  ASSERT_EQ(qoriFilterSobelVertGetBufferSize_8u16s_C1R({17, 20}, 33, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 1752 + 260 + 260 + 32);
  ASSERT_EQ(qoriFilterSobelNegVertGetBufferSize_8u16s_C1R({17, 20}, 33, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 1784 + 260 + 260 + 32);
  ASSERT_EQ(qoriFilterScharrVertGetBufferSize_8u16s_C1R({17, 20}, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 1784 + 260 + 260 + 32);
  ASSERT_EQ(qoriFilterScharrHorizGetBufferSize_8u16s_C1R({17, 20}, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 1720 + 260 + 260 + 32);
  // With two threads: 2 * (100 * 32 + 816 + 2 * 32 * 20 + 32 + row + column + 32).
  services::maxThreads = 2;
  ASSERT_EQ(qoriFilterLaplacianGetBufferSize_8u8s_C1R({17, 20}, 55, &bytes), qorStatusOk);
  EXPECT_EQ(bytes, 2 * (4016 + 1280 + 32 + 2 * (64 + 400 + 104) + 32));
}

// Every misalignment of the buffer, with the unmapped page at either end.
TEST_F(FixedFilterSizes, sufficeAtAnyAddress) {
  Random random(2);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (int32_t n : {1, 3}) {
      services::maxThreads = n;  // one core: serial
      const QoriSize size = {random.width(100), int32_t(random.number(1, 50))};
      int32_t bytes = 0;
      ASSERT_EQ(f.bufferSize(size, mask, &bytes), qorStatusOk);
      withTypes(f.types, [&](auto s, auto d) {
        using S = decltype(s);
        using D = decltype(d);
        const Image<S> src(size.width, size.height);
        const Image<D> dst(size.width, size.height);
        std::vector<uint8_t> first;
        for (Edge edge : {Edge::begin, Edge::end}) {
          for (size_t distance = 0; distance < 64; ++distance) {
            const Scratch scratch(bytes, edge, distance);
            ASSERT_EQ(f.run({src.data(), src.step(), dst.data(), dst.step(), size, mask, qorBorderWrap, 0, 1,
                             scratch.data()}),
                      qorStatusOk);
            ASSERT_TRUE(scratch.surroundingsIntact()) << f.name() << " " << mask << " at " << distance;
            if (first.empty()) first = dst.bytes();
            ASSERT_EQ(dst.bytes(), first) << f.name() << " " << mask << " at " << distance;
          }
        }
      });
    }
  });
}

TEST_F(FixedFilterSizes, sufficeForNarrowAndForWideImages) {
  Random random(3);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (QoriSize size : {QoriSize{1, 1}, QoriSize{1, 200}, QoriSize{16, 50}, QoriSize{17, 50}, QoriSize{15, 1},
                          QoriSize{2000, 1}, QoriSize{2001, 20}, QoriSize{1999, 3}}) {
      Case given;
      given.size = size;
      given.mask = mask;
      given.borderType = QoriBorderType(random.number(qorBorderConst, qorBorderMirrorEdge));
      given.divisor = 16;
      ASSERT_EQ(check(f, given, random), "");
    }
  });
}

TEST_F(FixedFilterSizes, statuses) {
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    int32_t bytes = -77;
    EXPECT_EQ(f.bufferSize({5, 5}, mask, nullptr), qorStatusNullPtr) << f.name();
    EXPECT_EQ(f.bufferSize({0, 5}, mask, nullptr), qorStatusNullPtr) << f.name();
    EXPECT_EQ(f.bufferSize({5, -1}, 0, nullptr), qorStatusNullPtr) << f.name();
    for (int32_t bad : {0, -1, INT32_MIN}) {
      EXPECT_EQ(f.bufferSize({bad, 5}, mask, &bytes), qorStatusBadSize) << f.name();
      EXPECT_EQ(f.bufferSize({5, bad}, mask, &bytes), qorStatusBadSize) << f.name();
      EXPECT_EQ(f.bufferSize({bad, 5}, 0, &bytes), qorStatusBadSize) << f.name();
      EXPECT_EQ(f.bufferSize({5, bad}, 44, &bytes), qorStatusBadSize) << f.name();
    }
    if (f.hasMask) {
      for (QoriMaskSelector bad : {0, 3, 5, 15, 32, 34, 35, 44, 53, 54, 56, 77, -33, INT32_MIN, INT32_MAX}) {
        EXPECT_EQ(f.bufferSize({5, 5}, bad, &bytes), qorStatusBadMask) << f.name() << " " << bad;
      }
    }
    EXPECT_EQ(bytes, -77) << f.name() << ": a failing query wrote";
    EXPECT_EQ(f.bufferSize({1, 1}, mask, &bytes), qorStatusOk) << f.name();
  });
}
