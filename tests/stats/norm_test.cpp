// Norms of an image, of a difference, and relative norms: every function against a literal model, bit for bit and for
// every team.
#include "stats/stats.h"

namespace {

// Calls body(member) for each function.
template <class Body>
void forMembers(Body body) {
#define MEMBER(name, gate) body(member(#name, Gate::gate, name))
  MEMBER(qoriNorm_Inf_8u_C1MR, m19);
  MEMBER(qoriNorm_Inf_8s_C1MR, m19);
  MEMBER(qoriNorm_Inf_16u_C1MR, m19);
  MEMBER(qoriNorm_Inf_32f_C1MR, m17);
  MEMBER(qoriNorm_Inf_8u_C3CMR, m17);
  MEMBER(qoriNorm_Inf_8s_C3CMR, m17);
  MEMBER(qoriNorm_Inf_16u_C3CMR, m17);
  MEMBER(qoriNorm_Inf_32f_C3CMR, m15);
  MEMBER(qoriNorm_L1_8u_C1MR, m17Cores);
  MEMBER(qoriNorm_L1_8s_C1MR, m17Cores);
  MEMBER(qoriNorm_L1_16u_C1MR, m17);
  MEMBER(qoriNorm_L1_32f_C1MR, m17);
  MEMBER(qoriNorm_L1_8u_C3CMR, m17);
  MEMBER(qoriNorm_L1_8s_C3CMR, m17);
  MEMBER(qoriNorm_L1_16u_C3CMR, m17);
  MEMBER(qoriNorm_L1_32f_C3CMR, m17);
  MEMBER(qoriNorm_L2_8u_C1MR, m17Cores);
  MEMBER(qoriNorm_L2_8s_C1MR, m17Cores);
  MEMBER(qoriNorm_L2_16u_C1MR, m17);
  MEMBER(qoriNorm_L2_32f_C1MR, m17);
  MEMBER(qoriNorm_L2_8u_C3CMR, m15CoresOrM17);
  MEMBER(qoriNorm_L2_8s_C3CMR, m15CoresOrM17);
  MEMBER(qoriNorm_L2_16u_C3CMR, m15CoresOrM17);
  MEMBER(qoriNorm_L2_32f_C3CMR, m15CoresOrM17);

  MEMBER(qoriNormDiff_Inf_8u_C1MR, never);
  MEMBER(qoriNormDiff_Inf_8s_C1MR, never);
  MEMBER(qoriNormDiff_Inf_16u_C1MR, never);
  MEMBER(qoriNormDiff_Inf_32f_C1MR, never);
  MEMBER(qoriNormDiff_Inf_8u_C3CMR, never);
  MEMBER(qoriNormDiff_Inf_8s_C3CMR, never);
  MEMBER(qoriNormDiff_Inf_16u_C3CMR, never);
  MEMBER(qoriNormDiff_Inf_32f_C3CMR, never);
  MEMBER(qoriNormDiff_L1_8u_C1MR, m17Cores);
  MEMBER(qoriNormDiff_L1_8s_C1MR, m17Cores);
  MEMBER(qoriNormDiff_L1_16u_C1MR, m17);
  MEMBER(qoriNormDiff_L1_32f_C1MR, never);
  MEMBER(qoriNormDiff_L1_8u_C3CMR, m17);
  MEMBER(qoriNormDiff_L1_8s_C3CMR, m15Cores);
  MEMBER(qoriNormDiff_L1_16u_C3CMR, m15Cores);
  MEMBER(qoriNormDiff_L1_32f_C3CMR, never);
  MEMBER(qoriNormDiff_L2_8u_C1MR, m17Cores);
  MEMBER(qoriNormDiff_L2_8s_C1MR, m17Cores);
  MEMBER(qoriNormDiff_L2_16u_C1MR, m17);
  MEMBER(qoriNormDiff_L2_32f_C1MR, never);
  MEMBER(qoriNormDiff_L2_8u_C3CMR, m17);
  MEMBER(qoriNormDiff_L2_8s_C3CMR, m17);
  MEMBER(qoriNormDiff_L2_16u_C3CMR, m15CoresOrM17);
  MEMBER(qoriNormDiff_L2_32f_C3CMR, never);

  MEMBER(qoriNormRel_Inf_8u_C1MR, m17Cores);
  MEMBER(qoriNormRel_Inf_8s_C1MR, m17Cores);
  MEMBER(qoriNormRel_Inf_16u_C1MR, m17Cores);
  MEMBER(qoriNormRel_Inf_32f_C1MR, m15);
  MEMBER(qoriNormRel_Inf_8u_C3CMR, m15CoresOrM17);
  MEMBER(qoriNormRel_Inf_8s_C3CMR, m15CoresOrM17);
  MEMBER(qoriNormRel_Inf_16u_C3CMR, m15);
  MEMBER(qoriNormRel_Inf_32f_C3CMR, m15);
  MEMBER(qoriNormRel_L1_8u_C1MR, never);
  MEMBER(qoriNormRel_L1_8s_C1MR, m17Cores);
  MEMBER(qoriNormRel_L1_16u_C1MR, m15CoresOrM17);
  MEMBER(qoriNormRel_L1_32f_C1MR, never);
  MEMBER(qoriNormRel_L1_8u_C3CMR, m15CoresOrM17);
  MEMBER(qoriNormRel_L1_8s_C3CMR, m15CoresOrM17);
  MEMBER(qoriNormRel_L1_16u_C3CMR, m15);
  MEMBER(qoriNormRel_L1_32f_C3CMR, never);
  MEMBER(qoriNormRel_L2_8u_C1MR, m17);
  MEMBER(qoriNormRel_L2_8s_C1MR, m17);
  MEMBER(qoriNormRel_L2_16u_C1MR, m15CoresOrM17);
  MEMBER(qoriNormRel_L2_32f_C1MR, never);
  MEMBER(qoriNormRel_L2_8u_C3CMR, m15CoresOrM17);
  MEMBER(qoriNormRel_L2_8s_C3CMR, m15CoresOrM17);
  MEMBER(qoriNormRel_L2_16u_C3CMR, m15);
  MEMBER(qoriNormRel_L2_32f_C3CMR, never);
#undef MEMBER
}

enum class Norm { inf, l1, l2 };
template <class M>
Norm normOf(const M& m) {
  return m.is("_Inf_") ? Norm::inf : m.is("_L1_") ? Norm::l1 : Norm::l2;
}

// The sum (or greatest magnitude) over some rows of value(i), int32_t or float.
template <class T, class Value>
double norm(Norm n, const Plane<T>& plane, Rows rows, Value value) {
  int64_t total = 0;
  double running = 0;
  for (int32_t y = rows.first; y < rows.first + rows.count; ++y) {
    uint32_t rowSum = 0;
    for (int32_t column = 0; column < plane.size.width; ++column) {
      const size_t i = size_t(y) * plane.size.width + column;
      if (!plane.selected[i]) continue;
      const auto x = value(i);
      const double magnitude = fabs(double(x));
      if (n == Norm::inf) {
        if (magnitude > running) running = magnitude;
      } else if (sizeof(T) > 1) {
        running += n == Norm::l1 ? magnitude : double(x) * double(x);
      } else {
        rowSum += n == Norm::l1 ? uint32_t(magnitude) : 0;
        total += n == Norm::l2 ? int64_t(x) * int64_t(x) : 0;
      }
    }
    total += int32_t(rowSum);
  }
  return sizeof(T) > 1 || n == Norm::inf ? running : double(total);
}

struct Result {
  QorStatus status;
  double value;
};

template <class M>
Result model(const M& m, const Plane<typename M::Element>& plane) {
  using T = typename M::Element;
  using Difference = std::conditional_t<std::is_same_v<T, float>, float, int32_t>;
  const Norm n = normOf(m);
  double num = 0, den = 0;
  for (Rows rows : stripes(plane.size.height, teamOf(m.gate, plane.size))) {
    const double a = norm(n, plane, rows, [&](size_t i) {
      return m.twoImages ? Difference(Difference(plane.x[i]) - Difference(plane.y[i])) : Difference(plane.x[i]);
    });
    const double b = m.is("NormRel") ? norm(n, plane, rows, [&](size_t i) { return Difference(plane.y[i]); }) : 0;
    num = n == Norm::inf ? std::max(num, a) : num + a;
    den = n == Norm::inf ? std::max(den, b) : den + b;
  }
  if (!m.is("NormRel")) return {qorStatusOk, n == Norm::l2 ? sqrt(num) : num};
  if (den == 0) return {qorStatusZeroDenominator, num == 0 ? NAN : num > 0 ? INFINITY : -INFINITY};
  return {qorStatusOk, n == Norm::l2 ? sqrt(num / den) : num / den};
}

template <class M>
std::string wrong(const M& m, const Input<typename M::Element>& input, const Result& expected) {
  double value = -12345.5;
  const int32_t team = teamOf(m.gate, input.size);
  const int64_t before = services::allocations();
  const QorStatus status = m.call(input, {&value});
  if (status == expected.status && sameValue(value, expected.value) &&
      (services::allocations() == before || team > 32)) {
    return "";
  }
  char buffer[300];
  snprintf(buffer, sizeof buffer, "%s on %dx%d, coi %d, team %d: status %d, %a instead of status %d, %a; %d blocks",
           m.name, input.size.width, input.size.height, input.coi, team, status, value, expected.status, expected.value,
           int(services::allocations() - before));
  return buffer;
}
template <class M>
std::string wrong(const M& m, const Input<typename M::Element>& input) {
  return wrong(m, input, model(m, planeOf(m, input)));
}

// The members of one element type.
template <class T, class Body>
void forMembersOf(Body body) {
  forMembers([&](const auto& m) {
    if constexpr (std::is_same_v<T, typename std::decay_t<decltype(m)>::Element>) body(m);
  });
}

// Expects what the model says of an image of `a`, or of `a` and `b` everywhere, and, computed here again from the
// numbers alone, the same: all pixels are alike and their sums exact.
template <class T>
void expectConstants(QoriSize size, T a, T b) {
  for (int32_t channels : {1, 3}) {
    Flat<T> image(size, a, channels);
    std::fill(image.src2.begin(), image.src2.end(), b);
    forMembersOf<T>([&](const auto& m) {
      if (m.channels != channels) return;
      const double pixels = double(size.width) * size.height;
      const double x = fabs(m.twoImages ? double(a) - double(b) : double(a)), y = fabs(double(b));
      const Norm n = normOf(m);
      const double num = n == Norm::inf ? x : n == Norm::l1 ? pixels * x : pixels * (x * x);
      const double den = n == Norm::inf ? y : n == Norm::l1 ? pixels * y : pixels * (y * y);
      Result expected = {qorStatusOk, n == Norm::l2 ? sqrt(num) : num};
      if (m.is("NormRel")) {
        expected = {qorStatusOk, n == Norm::l2 ? sqrt(num / den) : num / den};
        if (den == 0) expected = {qorStatusZeroDenominator, num == 0 ? NAN : INFINITY};
      }
      EXPECT_EQ(wrong(m, image.input(), expected), "") << double(a) << ", " << double(b);
    });
  }
}

}  // namespace

class Norms : public Stats {};

TEST_F(Norms, matchTheModel) {
  Random random(1);
  for (int round = 0; round < 200; ++round) {
    const Scenes scenes(random, {random.width(300), int32_t(random.number(1, 6))});
    forMembers([&](const auto& m) { ASSERT_EQ(wrong(m, scenes.of(m).input(int32_t(random.number(1, 3)))), ""); });
  }
}

TEST_F(Norms, eachTeamHasItsOwnRounding) {
  Random random(2);
  forTeams(2, [&](const Scenes& scenes) {
    forMembers([&](const auto& m) {
      const int32_t team = services::teamSize;
      if (team > 3 && m.gate == Gate::never) return;
      if (team > 8 && m.channels != (team % 2 ? 1 : 3)) return;  // half the time
      ASSERT_EQ(wrong(m, scenes.of(m).input(int32_t(random.number(1, 3)))), "");
    });
  });
}

// The three that take threads last.
TEST_F(Norms, theLargestGate) {
  Random random(3);
  const QoriSize size = {1031, 509};
  const Scene<uint8_t> u8(random, size, 1);
  const Scene<int8_t> s8(random, size, 1);
  const Scene<uint16_t> u16(random, size, 1);
  for (int32_t team : {1, 2, 5, 33}) {
    services::teamSize = team;
    EXPECT_EQ(wrong(member("qoriNorm_Inf_8u_C1MR", Gate::m19, qoriNorm_Inf_8u_C1MR), u8.input(1)), "");
    EXPECT_EQ(wrong(member("qoriNorm_Inf_8s_C1MR", Gate::m19, qoriNorm_Inf_8s_C1MR), s8.input(1)), "");
    EXPECT_EQ(wrong(member("qoriNorm_Inf_16u_C1MR", Gate::m19, qoriNorm_Inf_16u_C1MR), u16.input(1)), "");
  }
  // The greatest at each place of a stripe.
  Flat<uint8_t> flat({1024, 512}, 1);
  services::teamSize = 3;
  for (int round = 0; round < 30; ++round) {
    const int32_t x = int32_t(random.number(0, 1023)), y = int32_t(random.number(0, 511));
    flat.set(x, y, 200);
    EXPECT_EQ(wrong(member("qoriNorm_Inf_8u_C1MR", Gate::m19, qoriNorm_Inf_8u_C1MR), flat.input(), {qorStatusOk, 200}),
              "");
    flat.set(x, y, 1);
  }
}

TEST_F(Norms, theOrderOfAdditionsShows) {
  // The data of these tests would be worth nothing if any order gave the same bits.
  Random random(4);
  Flat<float> image(large);
  for (float& x : image.src) x = pixel<float>(random, 0);
  const auto m = member("qoriNorm_L1_32f_C1MR", Gate::m17, qoriNorm_L1_32f_C1MR);
  services::maxThreads = 1;
  const Plane<float> plane = planeOf(m, image.input());
  std::vector<double> values;
  for (int32_t team : {1, 2, 3, 4, 5, 6, 7, 8}) {
    services::teamSize = team;
    values.push_back(model(m, plane).value);
  }
  std::sort(values.begin(), values.end());
  EXPECT_GE(std::unique(values.begin(), values.end()) - values.begin(), 4);
}

TEST_F(Norms, gates) {
  int members = 0;
  forMembers([&](const auto& m) {
    expectGate(m);
    ++members;
  });
  EXPECT_EQ(members, 72);
}

// Seen by the region itself, not by memory.
TEST_F(Norms, theGreatestDifferenceRunsInOneThread) {
  const Flat<float> image({1024, 1024}, 1.5f);
  services::threads(2);
  double value = 0;
  EXPECT_EQ(0, requestedTeam([&] {
              EXPECT_EQ(qoriNormDiff_Inf_32f_C1MR(image.src.data(), 4096, image.src2.data(), 4096, image.mask.data(),
                                                  1024, {1024, 1024}, &value),
                        qorStatusOk);
            }));
  EXPECT_EQ(value, 1.5);
  EXPECT_EQ(2, requestedTeam([&] {
              EXPECT_EQ(qoriNorm_Inf_32f_C1MR(image.src.data(), 4096, image.mask.data(), 1024, {1024, 1024}, &value),
                        qorStatusOk);
            }));
  EXPECT_EQ(value, 1.5);
}

TEST_F(Norms, statuses) {
  forMembers([&](const auto& m) { expectMemberStatuses(m, !m.twoImages, true); });
}

TEST_F(Norms, extremeImages) {
  for (QoriSize size : {QoriSize{1, 1}, QoriSize{1023, 5}, QoriSize{8, 300}, QoriSize{512, 512}}) {
    for (int32_t team : {1, 3, 33}) {
      services::teamSize = team;
      services::cores = 2;
      for (int a : {0, 1, 254, 255}) {
        for (int b : {0, 255}) expectConstants<uint8_t>(size, uint8_t(a), uint8_t(b));
      }
      for (int a : {-128, -127, 0, 127}) {
        for (int b : {-128, 0, 127}) expectConstants<int8_t>(size, int8_t(a), int8_t(b));
      }
      for (int a : {0, 1, 32767, 32768, 65535}) {
        for (int b : {0, 65535}) expectConstants<uint16_t>(size, uint16_t(a), uint16_t(b));
      }
      for (float a : {0.0f, -0.0f, 0.5f, -1024.0f}) {
        for (float b : {0.0f, 256.0f}) expectConstants<float>(size, a, b);
      }
    }
  }
}

// Long rows: groups that are summed in 16 or 32 bits would overflow.
TEST_F(Norms, longRows) {
  for (int32_t width : {257, 33031, 66051, 132105, 262151}) {
    expectConstants<uint8_t>({width, 2}, 255, 0);
    expectConstants<int8_t>({width, 2}, -128, 127);
    expectConstants<uint16_t>({width, 2}, 65535, 0);
  }
}

// The sum of a row is taken in signed 32 bits.
TEST_F(Norms, rowsOf8BitSumsThatReach2To31AreNegative) {
  constexpr int32_t width = 8500000;
  const Flat<uint8_t> image({width, 1}, 255);
  double value = 0;
  services::maxThreads = farTooMany;
  ASSERT_EQ(qoriNorm_L1_8u_C1MR(image.src.data(), width, image.mask.data(), width, {width, 1}, &value), qorStatusOk);
  EXPECT_EQ(value, 255.0 * width - 4294967296.0);
  ASSERT_EQ(qoriNormDiff_L1_8u_C1MR(image.src2.data(), width, image.src.data(), width, image.mask.data(), width,
                                    {width, 1}, &value),
            qorStatusOk);
  EXPECT_EQ(value, 255.0 * width - 4294967296.0);
  // Just below it, and never in the sum of squares.
  constexpr int32_t most = 8421504;  // 255 * most is 2^31 - 128
  ASSERT_EQ(qoriNorm_L1_8u_C1MR(image.src.data(), width, image.mask.data(), width, {most, 1}, &value), qorStatusOk);
  EXPECT_EQ(value, 255.0 * most);
  ASSERT_EQ(qoriNorm_L2_8u_C1MR(image.src.data(), width, image.mask.data(), width, {width, 1}, &value), qorStatusOk);
  EXPECT_EQ(value, sqrt(65025.0 * width));
}

// Sums of 16u squares beyond 2^53 are rounded pixel by pixel.
TEST_F(Norms, squaresOf16uBeyond2To53) {
  Flat<uint16_t> image({2003, 1200});
  uint32_t state = 1;
  for (auto* plane : {&image.src, &image.src2}) {
    for (uint16_t& x : *plane) {
      state = state * 1664525 + 1013904223;
      x = plane == &image.src ? uint16_t(65535 - (state >> 29)) : uint16_t(state >> 28);
    }
  }
  for (int32_t allowed : {farTooMany, 1}) {
    services::maxThreads = allowed;
    services::cores = 2;
    services::teamSize = 3;
    forMembersOf<uint16_t>([&](const auto& m) {
      if (m.channels != 1 || normOf(m) != Norm::l2) return;
      EXPECT_EQ(wrong(m, image.input()), "");
    });
  }
}

TEST_F(Norms, aSinglePixelOfMinus128) {
  const int8_t pixel = -128;
  const uint8_t mask = 1;
  double value = 0;
  ASSERT_EQ(qoriNorm_Inf_8s_C1MR(&pixel, 1, &mask, 1, {1, 1}, &value), qorStatusOk);
  EXPECT_EQ(value, 128);
}

TEST_F(Norms, anEmptyMaskIsZeroOrZeroOverZero) {
  for (int32_t allowed : {farTooMany, 1}) {
    services::maxThreads = allowed;
    services::cores = services::teamSize = 3;
    forMembers([&](const auto& m) {
      using T = typename std::decay_t<decltype(m)>::Element;
      Flat<T> image(large, std::numeric_limits<T>::max(), m.channels);
      image.maskRows(0, large.height, 0);
      const bool relative = m.is("NormRel");
      EXPECT_EQ(wrong(m, image.input(), {relative ? qorStatusZeroDenominator : qorStatusOk, relative ? NAN : 0.0}), "");
    });
  }
}

TEST_F(Norms, aZeroDenominator) {
  for (int32_t allowed : {farTooMany, 1}) {
    services::maxThreads = allowed;
    services::cores = services::teamSize = 3;
    forMembers([&](const auto& m) {
      if (!m.is("NormRel")) return;
      using T = typename std::decay_t<decltype(m)>::Element;
      Flat<T> image(large, T(0), m.channels);
      EXPECT_EQ(wrong(m, image.input(), {qorStatusZeroDenominator, NAN}), "") << "0 / 0";
      image.set(large.width - 1, large.height - 1, T(3));
      EXPECT_EQ(wrong(m, image.input(), {qorStatusZeroDenominator, INFINITY}), "") << "3 / 0";
      image.mask.back() = 0;
      EXPECT_EQ(wrong(m, image.input(), {qorStatusZeroDenominator, NAN}), "") << "masked out";
      if constexpr (std::is_same_v<T, float>) {
        image.mask.back() = 1;
        const bool ignored = normOf(m) == Norm::inf;  // NaN loses every comparison
        image.set(large.width - 1, large.height - 1, NAN);
        EXPECT_EQ(wrong(m, image.input(), {qorStatusZeroDenominator, ignored ? NAN : -INFINITY}), "") << "NaN / 0";
        image.set(large.width - 1, large.height - 1, -INFINITY);
        EXPECT_EQ(wrong(m, image.input(), {qorStatusZeroDenominator, INFINITY}), "") << "infinity / 0";
        std::fill(image.src2.begin(), image.src2.end(), -0.0f);
        EXPECT_EQ(wrong(m, image.input(), {qorStatusZeroDenominator, INFINITY}), "") << "infinity / -0";
        // A NaN below the line is not 0; of its greatest magnitude nothing is left.
        std::fill(image.src.begin(), image.src.end(), 1.0f);
        std::fill(image.src2.begin(), image.src2.end(), NAN);
        EXPECT_EQ(wrong(m, image.input(), {ignored ? qorStatusZeroDenominator : qorStatusOk, NAN}), "") << "1 / NaN";
        // Denormal squares do not vanish in 64f.
        std::fill(image.src2.begin(), image.src2.end(), FLT_TRUE_MIN);
        EXPECT_EQ(wrong(m, image.input()), "");
        double value = 0;
        EXPECT_EQ(m.call(image.input(), {&value}), qorStatusOk);
      }
    });
  }
}

TEST_F(Norms, specialFloats) {
  struct {
    float a, b;
  } const pairs[] = {{INFINITY, 1},     {1, INFINITY},     {INFINITY, INFINITY}, {INFINITY, -INFINITY}, {NAN, 1},
                     {1, NAN},          {-INFINITY, 0},    {FLT_MAX, -FLT_MAX},  {-FLT_MAX, FLT_MAX},   {0, FLT_MAX},
                     {FLT_TRUE_MIN, 0}, {0, FLT_TRUE_MIN}, {1e-30f, 1e30f},      {16777216, -1},        {-0.0f, 0.0f}};
  for (const auto& pair : pairs) {
    for (int32_t position : {0, 15, 64, 130}) {
      forMembersOf<float>([&](const auto& m) {
        Flat<float> image({131, 2}, 2, m.channels);
        std::fill(image.src2.begin(), image.src2.end(), 1.0f);
        const auto placed = [&](int32_t x) {
          image.set(x, 1, pair.a);
          for (int32_t c = 0; c < m.channels; ++c) image.src2[size_t(131 + x) * m.channels + c] = pair.b;
        };
        placed(position);
        EXPECT_EQ(wrong(m, image.input()), "") << pair.a << ", " << pair.b;
        for (int32_t x = 0; x < 131; ++x) placed(x);
        image.maskRows(0, 1, 0);
        EXPECT_EQ(wrong(m, image.input()), "") << pair.a << ", " << pair.b << " everywhere";
      });
    }
  }
  // A difference of floats is rounded to float, and overflows there.
  Flat<float> image({5, 1}, 16777216);
  double value = 0;
  std::fill(image.src2.begin(), image.src2.end(), -1.0f);
  const auto run = [&](auto f) {
    EXPECT_EQ(f(image.src.data(), 20, image.src2.data(), 20, image.mask.data(), 5, {5, 1}, &value), qorStatusOk);
    return value;
  };
  EXPECT_EQ(run(qoriNormDiff_Inf_32f_C1MR), 16777216);
  EXPECT_EQ(run(qoriNormDiff_L1_32f_C1MR), 5 * 16777216.0);
  std::fill(image.src.begin(), image.src.end(), FLT_MAX);
  std::fill(image.src2.begin(), image.src2.end(), -FLT_MAX);
  EXPECT_EQ(run(qoriNormDiff_Inf_32f_C1MR), INFINITY);
  EXPECT_EQ(run(qoriNormDiff_L2_32f_C1MR), INFINITY);
  EXPECT_EQ(run(qoriNormRel_L1_32f_C1MR), INFINITY);
}

TEST_F(Norms, pixelsThatAreMaskedOutHaveNoEffect) {
  Random random(5);
  for (int32_t channels : {1, 3}) {
    Flat<float> image({97, 9}, 0, channels);
    for (float& x : image.src) x = pixel<float>(random, 0);
    for (float& x : image.src2) x = pixel<float>(random, 0);
    for (uint8_t& byte : image.mask) byte = uint8_t(random.chance(0.5));
    Flat<float> spoiled = image;
    for (size_t i = 0; i < image.src.size(); ++i) {
      if (image.mask[i / size_t(channels)]) continue;
      spoiled.src[i] = random.chance(0.5) ? NAN : INFINITY;
      spoiled.src2[i] = random.chance(0.5) ? NAN : -INFINITY;
    }
    forMembersOf<float>([&](const auto& m) {
      if (m.channels != channels) return;
      double clean = 0;
      ASSERT_EQ(m.call(image.input(), {&clean}), qorStatusOk);
      ASSERT_TRUE(isfinite(clean));
      EXPECT_EQ(wrong(m, spoiled.input(), {qorStatusOk, clean}), "");
    });
  }
}

TEST_F(Norms, otherChannelsHaveNoEffect) {
  forMembers([&](const auto& m) {
    if (m.channels != 3) return;
    using T = typename std::decay_t<decltype(m)>::Element;
    using Limits = std::numeric_limits<T>;
    for (int32_t coi = 1; coi <= 3; ++coi) {
      Flat<T> image({67, 5}, Limits::has_infinity ? Limits::infinity() : Limits::max(), 3);
      std::fill(image.src2.begin(), image.src2.end(), Limits::has_infinity ? Limits::quiet_NaN() : Limits::lowest());
      for (size_t i = size_t(coi - 1); i < image.src.size(); i += 3) {
        image.src[i] = T(i % 7);
        image.src2[i] = T(i % 5 + 1);
      }
      ASSERT_EQ(wrong(m, image.input(coi)), "");
    }
  });
}

TEST_F(Norms, withoutMemoryForTheirPartsThreadsGiveTheSame) {
  Random random(6);
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

TEST_F(Norms, repeatedCallsGiveTheSame) {
  Random random(7);
  services::maxThreads = 1;
  services::cores = services::teamSize = 7;
  const Scenes scenes(random, large);
  forMembers([&](const auto& m) {
    double first = 0, again = 0;
    const auto input = scenes.of(m).input(1);
    ASSERT_GE(m.call(input, {&first}), 0);
    for (int i = 0; i < 8; ++i) {
      ASSERT_GE(m.call(input, {&again}), 0);
      ASSERT_TRUE(sameValue(first, again)) << m.name;
    }
  });
}
