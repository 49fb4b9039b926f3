// Mean, and mean with deviation: every function against a literal model, bit for bit and for every team.
#include <sys/mman.h>
#include <unistd.h>

#include "stats/stats.h"
#include "support/instrumented.h"

namespace {

// Calls body(member) for each function.
template <class Body>
void forMembers(Body body) {
#define MEMBER(name, gate) body(member(#name, Gate::gate, name))
  MEMBER(qoriMean_8u_C1MR, never);
  MEMBER(qoriMean_8u_C3CMR, m17);
  MEMBER(qoriMean_8s_C1MR, m17);
  MEMBER(qoriMean_8s_C3CMR, m17);
  MEMBER(qoriMean_16u_C1MR, m17);
  MEMBER(qoriMean_16u_C3CMR, m17);
  MEMBER(qoriMean_32f_C1MR, m17);
  MEMBER(qoriMean_32f_C3CMR, m17);
  MEMBER(qoriMean_StdDev_8u_C1R, m17Cores);
  MEMBER(qoriMean_StdDev_8u_C3CR, m17);
  MEMBER(qoriMean_StdDev_8u_C1MR, m17);
  MEMBER(qoriMean_StdDev_8u_C3CMR, m17);
  MEMBER(qoriMean_StdDev_8s_C1R, m17);
  MEMBER(qoriMean_StdDev_8s_C3CR, m17);
  MEMBER(qoriMean_StdDev_8s_C1MR, m17);
  MEMBER(qoriMean_StdDev_8s_C3CMR, m17);
  MEMBER(qoriMean_StdDev_16u_C1R, m17);
  MEMBER(qoriMean_StdDev_16u_C3CR, m17);
  MEMBER(qoriMean_StdDev_16u_C1MR, m17);
  MEMBER(qoriMean_StdDev_16u_C3CMR, m17);
  MEMBER(qoriMean_StdDev_32f_C1R, m16);
  MEMBER(qoriMean_StdDev_32f_C3CR, never);
  MEMBER(qoriMean_StdDev_32f_C1MR, m17);
  MEMBER(qoriMean_StdDev_32f_C3CMR, m17);
#undef MEMBER
}

struct Result {
  double mean, stdDev;
};

// One thread's parts.
struct Parts {
  double sum = 0, squares = 0;
  uint32_t count = 0;
};

template <class T>
Parts partsOf(const Plane<T>& plane, Rows rows, bool signExtended) {
  Parts parts;
  int64_t total = 0;
  for (int32_t y = rows.first; y < rows.first + rows.count; ++y) {
    uint32_t rowSum = 0;
    int64_t rowSquares = 0;
    for (int32_t column = 0; column < plane.size.width; ++column) {
      const size_t i = size_t(y) * plane.size.width + column;
      const bool selected = plane.selected[i];
      parts.count += selected;
      if constexpr (std::is_same_v<T, float>) {
        if (!selected) continue;
        const double x = double(plane.x[i]);
        parts.sum += x;
        parts.squares += x * x;
      } else {
        const int32_t x = selected ? int32_t(plane.x[i]) : 0;
        const int32_t offset = sizeof(T) == 2 ? x - 32768 : x;
        rowSum += uint32_t(x);
        rowSquares += offset * offset;
      }
    }
    if constexpr (!std::is_same_v<T, float>) {
      total += std::is_signed_v<T> || signExtended ? int64_t(int32_t(rowSum)) : int64_t(rowSum);
      parts.squares += double(rowSquares);
    }
  }
  if constexpr (!std::is_same_v<T, float>) parts.sum = double(total);
  return parts;
}

template <class M>
Result model(const M& m, const Plane<typename M::Element>& plane) {
  using T = typename M::Element;
  const int32_t team = teamOf(m.gate, plane.size);
  const bool signExtended = team == 0 && (m.is("qoriMean_16u_C1MR") || m.is("qoriMean_StdDev_16u_C1R"));
  Parts all;
  for (Rows rows : stripes(plane.size.height, team)) {
    const Parts parts = partsOf(plane, rows, signExtended);
    all.sum += parts.sum;
    all.squares += parts.squares;
    all.count += parts.count;
  }
  const int32_t pixels = int32_t(uint32_t(plane.size.width) * uint32_t(plane.size.height));
  const double count = m.masked ? double(all.count) : double(pixels);
  if (count == 0) return {0, 0};
  double squares = all.squares;
  if (sizeof(T) == 2) {
    squares = double(int64_t((uint64_t(int64_t(all.sum)) << 16) - (uint64_t(int64_t(pixels)) << 30))) + all.squares;
  }
  const double mean = all.sum / count, meanSquare = squares / count;
  double stdDev = sqrt(fabs(meanSquare - mean * mean));
  if (std::is_same_v<T, float> && 0.05 * mean * mean > stdDev * stdDev) {
    double sum = 0;
    for (size_t i = 0; i < plane.x.size(); ++i) {
      if (!plane.selected[i]) continue;
      const double distance = double(plane.x[i]) - mean;
      sum += distance * distance;
    }
    stdDev = sqrt(sum / count);
  }
  return {mean, stdDev};
}

constexpr double untouched = -12345.5;

// Calls the member with all results, or without those whose bit is set in `nulls`.
template <class M>
QorStatus run(const M& m, const Input<typename M::Element>& input, Result& result, int nulls = 0) {
  result = {untouched, untouched};
  double* mean = nulls & 1 ? nullptr : &result.mean;
  if constexpr (std::tuple_size_v<typename M::Values> == 2) {
    return m.call(input, {mean, nulls & 2 ? nullptr : &result.stdDev});
  } else {
    return m.call(input, {mean});
  }
}
template <class M>
constexpr bool hasDeviation = std::tuple_size_v<typename M::Values> == 2;

std::string text(double d) {
  char buffer[40];
  snprintf(buffer, sizeof buffer, "%a", d);
  return buffer;
}

template <class M>
std::string wrong(const M& m, const Input<typename M::Element>& input, const Result& expected, int nulls = 0) {
  Result result;
  const int64_t before = services::allocations();
  const QorStatus status = run(m, input, result, nulls);
  const std::string where = std::string(m.name) + " on " + std::to_string(input.size.width) + "x" +
                            std::to_string(input.size.height) + ", coi " + std::to_string(input.coi) + ", team " +
                            std::to_string(teamOf(m.gate, input.size)) + ": ";
  if (status != qorStatusOk) return where + "status " + std::to_string(status);
  if (services::allocations() != before && teamOf(m.gate, input.size) <= 32) return where + "allocated";
  if (!sameValue(result.mean, nulls & 1 ? untouched : expected.mean)) {
    return where + "mean " + text(result.mean) + " instead of " + text(expected.mean);
  }
  if (!sameValue(result.stdDev, nulls & 2 || !hasDeviation<M> ? untouched : expected.stdDev)) {
    return where + "deviation " + text(result.stdDev) + " instead of " + text(expected.stdDev);
  }
  return "";
}
template <class M>
std::string wrong(const M& m, const Input<typename M::Element>& input) {
  return wrong(m, input, model(m, planeOf(m, input)));
}

}  // namespace

class Mean : public Stats {};

TEST_F(Mean, matchesTheModel) {
  Random random(1);
  for (int round = 0; round < 250; ++round) {
    const QoriSize size = {random.width(300), int32_t(random.number(1, 6))};
    const Scenes scenes(random, size);
    forMembers([&](const auto& m) { ASSERT_EQ(wrong(m, scenes.of(m).input(int32_t(random.number(1, 3)))), ""); });
  }
}

TEST_F(Mean, eachTeamHasItsOwnRounding) {
  Random random(2);
  forTeams(2, [&](const Scenes& scenes) {
    forMembers([&](const auto& m) { ASSERT_EQ(wrong(m, scenes.of(m).input(int32_t(random.number(1, 3)))), ""); });
  });
}

TEST_F(Mean, theOrderOfAdditionsShows) {
  // The data of these tests would be worth nothing if any order gave the same bits.
  Random random(4);
  Flat<float> image(large);
  for (float& x : image.src) x = pixel<float>(random, 0);
  const auto m = member("qoriMean_32f_C1MR", Gate::m17, qoriMean_32f_C1MR);
  services::maxThreads = 1;
  const Plane<float> plane = planeOf(m, image.input());
  std::vector<double> means;
  for (int32_t team : {1, 2, 3, 4, 5, 6, 7, 8}) {
    services::teamSize = team;
    means.push_back(model(m, plane).mean);
  }
  std::sort(means.begin(), means.end());
  EXPECT_GE(std::unique(means.begin(), means.end()) - means.begin(), 4);
}

TEST_F(Mean, gates) {
  forMembers([&](const auto& m) { expectGate(m); });
}

TEST_F(Mean, statuses) {
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    expectMemberStatuses(m, sizeof(T) == 2, !hasDeviation<std::decay_t<decltype(m)>>);
  });
}

TEST_F(Mean, resultsMayBeNull) {
  Random random(5);
  for (int32_t allowed : {farTooMany, 1}) {
    services::maxThreads = allowed;
    services::cores = services::teamSize = 3;
    const Scenes scenes(random, large);
    forMembers([&](const auto& m) {
      if constexpr (hasDeviation<std::decay_t<decltype(m)>>) {
        for (int nulls = 0; nulls < 4; ++nulls) {
          const auto input = scenes.of(m).input(2);
          ASSERT_EQ(wrong(m, input, model(m, planeOf(m, input)), nulls), "") << nulls;
        }
      }
    });
  }
  Flat<uint8_t> image({5, 5}, 9);
  EXPECT_EQ(qoriMean_StdDev_8u_C1R(image.src.data(), 5, {5, 5}, nullptr, nullptr), qorStatusOk);
  // A second pass without anywhere to put its result.
  Flat<float> flat({5, 5}, 0.1f);
  double mean = -1;
  EXPECT_EQ(qoriMean_StdDev_32f_C1R(flat.src.data(), 20, {5, 5}, &mean, nullptr), qorStatusOk);
  EXPECT_EQ(mean, double(0.1f));
}

TEST_F(Mean, anEmptyMaskGivesZeros) {
  for (int32_t allowed : {farTooMany, 1}) {
    services::maxThreads = allowed;
    services::teamSize = 4;
    forMembers([&](const auto& m) {
      if (!m.masked) return;
      using T = typename std::decay_t<decltype(m)>::Element;
      Flat<T> image(large, std::numeric_limits<T>::max(), m.channels);
      image.maskRows(0, large.height, 0);
      EXPECT_EQ(wrong(m, image.input(), Result{0, 0}), "");
      Result result;
      ASSERT_EQ(run(m, image.input(), result), qorStatusOk);
      EXPECT_FALSE(signbit(result.mean));
    });
  }
}

TEST_F(Mean, extremeImages) {
  const auto expect = [&](auto value, double mean) {
    using T = decltype(value);
    for (QoriSize size : {QoriSize{1, 1}, QoriSize{1023, 5}, QoriSize{8, 300}, QoriSize{512, 512}}) {
      for (int32_t team : {1, 3, 33}) {
        services::threads(team);
        services::maxThreads = 1;
        forMembers([&](const auto& m) {
          if constexpr (std::is_same_v<T, typename std::decay_t<decltype(m)>::Element>) {
            Flat<T> image(size, value, m.channels);
            EXPECT_EQ(wrong(m, image.input(), Result{mean, 0}), "");
          }
        });
      }
    }
  };
  expect(uint8_t(255), 255);
  expect(uint8_t(0), 0);
  expect(int8_t(-128), -128);
  expect(int8_t(127), 127);
  expect(uint16_t(65535), 65535);
  expect(uint16_t(0), 0);
  expect(uint16_t(32768), 32768);
  expect(FLT_TRUE_MIN, double(FLT_TRUE_MIN));
  expect(FLT_MAX, double(FLT_MAX));
  expect(-FLT_MAX, -double(FLT_MAX));
}

// Long rows of 8-bit pixels: groups that are summed in 16 or 32 bits would overflow.
TEST_F(Mean, longRowsOf8BitPixels) {
  const auto expect = [&](auto value) {
    using T = decltype(value);
    for (int32_t width : {257, 65537, 131073, 400003}) {
      Flat<T> one({width, 2}, value), three({width, 2}, value, 3);
      forMembers([&](const auto& m) {
        if constexpr (std::is_same_v<T, typename std::decay_t<decltype(m)>::Element>) {
          EXPECT_EQ(wrong(m, (m.channels == 3 ? three : one).input(), Result{double(value), 0}), "");
        }
      });
    }
  };
  expect(uint8_t(255));
  expect(int8_t(-128));
}

TEST_F(Mean, rowsOf16uThatReach2To31AreNegativeInTwoSerialForms) {
  const QoriSize size = {33000, 4};
  Flat<uint16_t> one(size, 65535), three(size, 65535, 3);
  const double wrapped = (33000.0 * 65535 - 4294967296.0) / 33000;
  for (int32_t allowed : {2, 1}) {  // serial, then threaded
    services::maxThreads = allowed;
    for (int32_t team : {1, 2}) {
      services::teamSize = team;
      forMembers([&](const auto& m) {
        if constexpr (std::is_same_v<uint16_t, typename std::decay_t<decltype(m)>::Element>) {
          const auto input = (m.channels == 3 ? three : one).input();
          ASSERT_EQ(wrong(m, input), "");
          const bool negative = allowed == 2 && (m.is("qoriMean_16u_C1MR") || m.is("qoriMean_StdDev_16u_C1R"));
          Result result;
          ASSERT_EQ(run(m, input, result), qorStatusOk);
          EXPECT_EQ(result.mean, negative ? wrapped : 65535) << m.name;
        }
      });
    }
  }
}

TEST_F(Mean, rowsOf16uThatReach2To32Wrap) {
  Random random(6);
  for (QoriSize size : {QoriSize{65538, 2}, QoriSize{65540, 3}, QoriSize{140001, 2}}) {
    Flat<uint16_t> one(size, 65535), three(size, 65535, 3);
    for (int k = 0; k < 20; ++k) one.src[size_t(random.number(0, size.width - 1))] = 7;
    for (int32_t allowed : {farTooMany, 1}) {
      services::maxThreads = allowed;
      services::teamSize = 2;
      forMembers([&](const auto& m) {
        if constexpr (std::is_same_v<uint16_t, typename std::decay_t<decltype(m)>::Element>) {
          EXPECT_EQ(wrong(m, (m.channels == 3 ? three : one).input()), "");
        }
      });
    }
  }
}

// 2^30 a pixel: the running total of the squares passes 2^53 after 2^23 pixels, and each row is then rounded.
TEST_F(Mean, squaresOf16uBeyond2To53) {
  const QoriSize size = {9001, 1100};
  Flat<uint16_t> image(size);
  uint32_t state = 1;
  for (uint16_t& x : image.src) {
    state = state * 1664525 + 1013904223;
    x = uint16_t(state >> 30);
  }
  for (uint8_t& byte : image.mask) {
    state = state * 1664525 + 1013904223;
    byte = uint8_t(state >> 31);
  }
  const auto plain = member("qoriMean_StdDev_16u_C1R", Gate::m17, qoriMean_StdDev_16u_C1R);
  const auto masked = member("qoriMean_StdDev_16u_C1MR", Gate::m17, qoriMean_StdDev_16u_C1MR);
  for (int32_t allowed : {farTooMany, 1}) {
    services::maxThreads = allowed;
    services::teamSize = 3;
    EXPECT_EQ(wrong(plain, image.input()), "");
    EXPECT_EQ(wrong(masked, image.input()), "");
  }
}

TEST_F(Mean, aSmallVarianceTakesTheSecondPass) {
  for (int32_t allowed : {farTooMany, 1}) {
    services::maxThreads = allowed;
    services::teamSize = 3;
    forMembers([&](const auto& m) {
      using M = std::decay_t<decltype(m)>;
      if constexpr (std::is_same_v<float, typename M::Element> && hasDeviation<M>) {
        const QoriSize size = {400, 400};
        Flat<float> image(size, 1e6f, m.channels);
        image.set(71, 13, 1e6f + 1);
        ASSERT_EQ(wrong(m, image.input()), "");
        Result result;
        ASSERT_EQ(run(m, image.input(), result), qorStatusOk);
        EXPECT_EQ(result.mean, 1e6 + 1 / 160000.0);
        EXPECT_NEAR(result.stdDev, sqrt((1 - 1 / 160000.0) / 160000), 1e-9);  // the first pass is wrong by 1e-2
      }
    });
  }
}

TEST_F(Mean, constantFloatsHaveNoDeviation) {
  for (float value : {0.1f, -0.1f, 1e6f + 0.25f, 16777215.0f, 1.1754944e-38f, 1e-20f, 3e38f, -1e30f, 1 / 3.0f}) {
    for (int32_t allowed : {farTooMany, 1}) {
      services::maxThreads = allowed;
      services::teamSize = 5;
      forMembers([&](const auto& m) {
        if constexpr (std::is_same_v<float, typename std::decay_t<decltype(m)>::Element>) {
          Flat<float> image(large, value, m.channels);
          for (size_t i = 0; i < image.mask.size(); i += 3) image.mask[i] = 0;
          EXPECT_EQ(wrong(m, image.input(), Result{double(value), 0}), "");
        }
      });
    }
  }
}

// The relation of mean and deviation from far below to far above that of the second pass.
TEST_F(Mean, bothSidesOfTheSecondPass) {
  Random random(7);
  for (int step = 0; step < 120; ++step) {
    const float spread = 0.05f + 0.005f * float(step);
    Flat<float> one({61, 4}), three({61, 4}, 0, 3);
    for (float& x : one.src) x = 1 + spread * (random.value<float>() / 1000);
    for (float& x : three.src) x = 1 + spread * (random.value<float>() / 1000);
    forMembers([&](const auto& m) {
      if constexpr (std::is_same_v<float, typename std::decay_t<decltype(m)>::Element>) {
        ASSERT_EQ(wrong(m, (m.channels == 3 ? three : one).input(step % 3 + 1)), "");
      }
    });
  }
}

TEST_F(Mean, specialFloatsFlowIntoTheResult) {
  for (float special : {INFINITY, -INFINITY, NAN}) {
    for (int32_t position : {0, 17, 63, 64, 99}) {
      forMembers([&](const auto& m) {
        if constexpr (std::is_same_v<float, typename std::decay_t<decltype(m)>::Element>) {
          Flat<float> image({100, 1}, 2, m.channels);
          image.set(position, 0, special);
          EXPECT_EQ(wrong(m, image.input(), Result{double(special), NAN}), "");
          if (!m.masked) return;
          image.mask[size_t(position)] = 0;
          EXPECT_EQ(wrong(m, image.input(), Result{2, 0}), "") << "masked out";
        }
      });
    }
  }
}

TEST_F(Mean, otherChannelsHaveNoEffect) {
  Random random(8);
  const auto expect = [&](auto zero) {
    using T = decltype(zero);
    Flat<T> image({67, 5}, 0, 3);
    for (int32_t coi = 1; coi <= 3; ++coi) {
      for (size_t i = 0; i < image.src.size(); ++i) {
        if constexpr (std::is_same_v<T, float>) {
          image.src[i] = i % 3 == size_t(coi - 1) ? float(random.number(0, 9)) : random.chance(0.5) ? NAN : INFINITY;
        } else {
          image.src[i] = i % 3 == size_t(coi - 1) ? T(random.number(0, 9)) : std::numeric_limits<T>::max();
        }
      }
      forMembers([&](const auto& m) {
        if constexpr (std::is_same_v<T, typename std::decay_t<decltype(m)>::Element>) {
          if (m.channels != 3) return;
          EXPECT_EQ(wrong(m, image.input(coi)), "");
        }
      });
    }
  };
  expect(uint8_t(0));
  expect(int8_t(0));
  expect(uint16_t(0));
  expect(0.0f);
}

TEST_F(Mean, oneThreadAtAnySize) {
  services::threads(33);
  services::maxThreads = 1;
  const Flat<uint8_t> image({2048, 2048}, 3);
  double mean;
  EXPECT_FALSE(forks([&] { qoriMean_8u_C1MR(image.src.data(), 2048, image.mask.data(), 2048, {2048, 2048}, &mean); }));
  EXPECT_TRUE(forks([&] {
    qoriMean_8s_C1MR(reinterpret_cast<const int8_t*>(image.src.data()), 2048, image.mask.data(), 2048, {2048, 2048},
                     &mean);
  }));
}

TEST_F(Mean, theShortestSteps) {
  const Flat<uint16_t> image({8, 2}, 5, 3);
  double mean = 0;
  const auto run = [&](int32_t srcStep, int32_t maskStep) {
    return qoriMean_16u_C3CMR(image.src.data(), srcStep, image.mask.data(), maskStep, {8, 2}, 2, &mean);
  };
  EXPECT_EQ(run(48, 8), qorStatusOk);
  EXPECT_EQ(mean, 5);
  EXPECT_EQ(run(47, 8), qorStatusBadStep);
  EXPECT_EQ(run(16, 8), qorStatusBadStep);
  EXPECT_EQ(run(48, 7), qorStatusBadStep);
  EXPECT_EQ(run(49, 7), qorStatusBadStepAlign);
}

TEST_F(Mean, withoutMemoryForTheirPartsThreadsGiveTheSame) {
  Random random(9);
  services::maxThreads = 1;
  services::cores = 2;
  for (int32_t team : {33, 40}) {
    services::teamSize = team;
    const Scenes scenes(random, {140000 / team, team - 1 + team % 3});
    services::failAfter(0);
    forMembers([&](const auto& m) { ASSERT_EQ(wrong(m, scenes.of(m).input(team % 3 + 1)), ""); });
    services::failAfter(-1);
  }
}

TEST_F(Mean, repeatedCallsGiveTheSame) {
  Random random(10);
  services::maxThreads = 1;
  services::cores = services::teamSize = 7;
  const Scenes scenes(random, large);
  forMembers([&](const auto& m) {
    Result first, again;
    const auto input = scenes.of(m).input(1);
    ASSERT_EQ(run(m, input, first), qorStatusOk);
    for (int i = 0; i < 8; ++i) {
      ASSERT_EQ(run(m, input, again), qorStatusOk);
      ASSERT_TRUE(sameValue(first.mean, again.mean) && sameValue(first.stdDev, again.stdDev)) << m.name;
    }
  });
}

TEST_F(Mean, insideAParallelRegionTheTeamIsOne) {
  services::maxThreads = 1;
  services::cores = services::teamSize = 4;
  std::string results[3];
#pragma omp parallel for num_threads(3)
  for (int i = 0; i < 3; ++i) {
    Flat<float> image(large);
    Random random(uint32_t(20 + i));
    for (float& x : image.src) x = pixel<float>(random, 0);
    double sum = 0, mean = 0;
    for (float x : image.src) sum += double(x);
    qoriMean_32f_C1MR(image.src.data(), 4 * large.width, image.mask.data(), large.width, large, &mean);
    if (!sameValue(mean, sum / (large.width * large.height))) results[i] = text(mean);
  }
  for (const std::string& result : results) EXPECT_EQ(result, "");
}

// 65536 x 32768 pixels, all mapped to the same megabyte: their number is -2^31, and the mean is negative.
TEST_F(Mean, aPixelCountThatWrapsIsNegative) {
  if (instrumented()) GTEST_SKIP() << "the sanitizer would need an eighth of these images in real memory";
  constexpr size_t chunk = 1 << 20, chunks = 2048;
  const int file = memfd_create("image", 0);
  ASSERT_GE(file, 0);
  ASSERT_EQ(ftruncate(file, chunk), 0);
  void* space = mmap(nullptr, chunk * chunks, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
  ASSERT_NE(space, MAP_FAILED);
  uint8_t* image = static_cast<uint8_t*>(space);
  for (size_t c = 0; c < chunks; ++c) {
    ASSERT_NE(mmap(image + c * chunk, chunk, PROT_READ | PROT_WRITE, MAP_SHARED | MAP_FIXED, file, 0), MAP_FAILED);
  }
  close(file);
  memset(image, 3, chunk);
  services::cores = 2;
  double mean = 0, stdDev = 0;
  EXPECT_FALSE(forks([&] { qoriMean_StdDev_8u_C1R(image, 65536, {65536, 32768}, &mean, &stdDev); }));
  EXPECT_EQ(mean, -3);
  EXPECT_EQ(stdDev, sqrt(18.0));  // |-9 - 9|
  munmap(space, chunk * chunks);
}
