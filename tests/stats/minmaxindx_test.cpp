// Extrema with location: every function against a literal model, for every team.
//
// Which sign a zero among the extrema has is left open: the test takes either.
#include "stats/stats.h"

namespace {

// Calls body(member) for each function.
template <class Body>
void forMembers(Body body) {
#define MEMBER(name) body(member(#name, Gate::at16384, name))
  MEMBER(qoriMinMaxIndx_8u_C1R);
  MEMBER(qoriMinMaxIndx_8u_C3CR);
  MEMBER(qoriMinMaxIndx_8u_C1MR);
  MEMBER(qoriMinMaxIndx_8u_C3CMR);
  MEMBER(qoriMinMaxIndx_8s_C1R);
  MEMBER(qoriMinMaxIndx_8s_C3CR);
  MEMBER(qoriMinMaxIndx_8s_C1MR);
  MEMBER(qoriMinMaxIndx_8s_C3CMR);
  MEMBER(qoriMinMaxIndx_16u_C1R);
  MEMBER(qoriMinMaxIndx_16u_C3CR);
  MEMBER(qoriMinMaxIndx_16u_C1MR);
  MEMBER(qoriMinMaxIndx_16u_C3CMR);
  MEMBER(qoriMinMaxIndx_32f_C1R);
  MEMBER(qoriMinMaxIndx_32f_C3CR);
  MEMBER(qoriMinMaxIndx_32f_C1MR);
  MEMBER(qoriMinMaxIndx_32f_C3CMR);
#undef MEMBER
}

// One thread's part, and in the end the whole image's.
template <class T>
struct Slot {
  T min, max;
  int32_t minRow, maxRow;
  bool found;
};

// The first pass over one stripe; rows count from its first.
template <class T>
Slot<T> slotOf(const Plane<T>& plane, Rows rows, bool masked) {
  Slot<T> slot = {std::numeric_limits<T>::max(), std::numeric_limits<T>::lowest(), 0, 0, true};
  if (masked) slot = {T(0), T(0), 0, 0, false};
  for (int32_t y = 0; y < rows.count; ++y) {
    const size_t first = size_t(rows.first + y) * plane.size.width;
    for (int32_t column = 0; column < plane.size.width && !slot.found; ++column) {
      if (plane.selected[first + column]) slot = {plane.x[first + column], plane.x[first + column], y, y, true};
    }
    if (!slot.found) continue;
    T rowMin = slot.min, rowMax = slot.max;
    for (int32_t column = 0; column < plane.size.width; ++column) {
      if (!plane.selected[first + column]) continue;
      const T x = plane.x[first + column];
      if (x < rowMin) rowMin = x;
      if (x > rowMax) rowMax = x;
    }
    if (rowMin < slot.min) {
      slot.min = rowMin;
      slot.minRow = y;
    }
    if (rowMax > slot.max) {
      slot.max = rowMax;
      slot.maxRow = y;
    }
  }
  return slot;
}

// The second pass: the first pixel of a row that is neither less nor greater than the extreme, or column 0.
template <class T>
QoriPoint locate(const Plane<T>& plane, int32_t row, T value) {
  for (int32_t column = 0; column < plane.size.width; ++column) {
    const size_t i = size_t(row) * plane.size.width + column;
    if (plane.selected[i] && !(plane.x[i] < value) && !(plane.x[i] > value)) return {column, row};
  }
  return {0, row};
}

struct Result {
  float minVal, maxVal;
  QoriPoint minIndex, maxIndex;
};

template <class T>
Result model(const Plane<T>& plane, int32_t team, bool masked) {
  Slot<T> all = {};
  const std::vector<Rows> shares = stripes(plane.size.height, team);
  for (size_t t = 0; t < shares.size(); ++t) {
    const Slot<T> slot = slotOf(plane, shares[t], masked);
    if (t == 0) {
      all = slot;
      continue;
    }
    if (slot.min < all.min) {
      all.min = slot.min;
      all.minRow = shares[t].first + slot.minRow;
    }
    if (slot.max > all.max) {
      all.max = slot.max;
      all.maxRow = shares[t].first + slot.maxRow;
    }
    all.found = all.found || slot.found;
  }
  if (!all.found) return {0, 0, {0, 0}, {0, 0}};
  return {float(all.min), float(all.max), locate(plane, all.minRow, all.min), locate(plane, all.maxRow, all.max)};
}

constexpr float untouched = -12345.5f;

// Calls the member with all results, or without those whose bit is set in `nulls`.
template <class M>
QorStatus run(const M& m, const Input<typename M::Element>& input, Result& result, int nulls = 0) {
  result = {untouched, untouched, {-7, -8}, {-9, -10}};
  return m.call(input, {nulls & 1 ? nullptr : &result.minVal, nulls & 2 ? nullptr : &result.maxVal,
                        nulls & 4 ? nullptr : &result.minIndex, nulls & 8 ? nullptr : &result.maxIndex});
}

bool same(float a, float b) { return a == b || (a != a && b != b); }
bool same(QoriPoint a, QoriPoint b) { return a.x == b.x && a.y == b.y; }
bool same(const Result& a, const Result& b) {
  return same(a.minVal, b.minVal) && same(a.maxVal, b.maxVal) && same(a.minIndex, b.minIndex) &&
         same(a.maxIndex, b.maxIndex);
}

std::string text(const Result& r) {
  char buffer[160];
  snprintf(buffer, sizeof buffer, "%g at (%d, %d), %g at (%d, %d)", double(r.minVal), r.minIndex.x, r.minIndex.y,
           double(r.maxVal), r.maxIndex.x, r.maxIndex.y);
  return buffer;
}

template <class M>
std::string wrong(const M& m, const Input<typename M::Element>& input, Result expected, int nulls = 0) {
  Result result;
  const int32_t team = teamOf(m.gate, input.size);
  const int64_t before = services::allocations();
  const QorStatus status = run(m, input, result, nulls);
  const std::string where = std::string(m.name) + " on " + std::to_string(input.size.width) + "x" +
                            std::to_string(input.size.height) + ", coi " + std::to_string(input.coi) + ", team " +
                            std::to_string(team) + ": ";
  if (status != qorStatusOk) return where + "status " + std::to_string(status);
  if (services::allocations() != before && team <= 32) return where + "allocated";
  if (nulls & 1) expected.minVal = untouched;
  if (nulls & 2) expected.maxVal = untouched;
  if (nulls & 4) expected.minIndex = {-7, -8};
  if (nulls & 8) expected.maxIndex = {-9, -10};
  return same(result, expected) ? "" : where + text(result) + " instead of " + text(expected);
}
template <class M>
Result modelOf(const M& m, const Input<typename M::Element>& input) {
  return model(planeOf(m, input), teamOf(m.gate, input.size), m.masked);
}
template <class M>
std::string wrong(const M& m, const Input<typename M::Element>& input) {
  return wrong(m, input, modelOf(m, input));
}

// The members of one element type.
template <class T, class Body>
void forMembersOf(Body body) {
  forMembers([&](const auto& m) {
    if constexpr (std::is_same_v<T, typename std::decay_t<decltype(m)>::Element>) body(m);
  });
}

}  // namespace

class MinMaxIndx : public Stats {};

TEST_F(MinMaxIndx, matchesTheModel) {
  Random random(1);
  for (int round = 0; round < 400; ++round) {
    const Scenes scenes(random, {random.width(300), int32_t(random.number(1, 8))});
    forMembers([&](const auto& m) { ASSERT_EQ(wrong(m, scenes.of(m).input(int32_t(random.number(1, 3)))), ""); });
  }
}

TEST_F(MinMaxIndx, everyTeam) {
  Random random(2);
  for (QoriSize size : {QoriSize{65, 253}, QoriSize{410, 40}, QoriSize{1000, 17}, QoriSize{16384, 1}, QoriSize{5461, 4},
                        QoriSize{1, 16384}}) {
    const Scenes scenes(random, size), others(random, size);
    for (int32_t team = -1; team <= 40; ++team) {
      services::teamSize = team;
      const int32_t coi = (team + 3) % 3 + 1;
      forMembers([&](const auto& m) { ASSERT_EQ(wrong(m, (team % 2 ? scenes : others).of(m).input(coi)), ""); });
    }
  }
}

// Single extremes everywhere: each place of a vector, of a row, of a stripe.
TEST_F(MinMaxIndx, everyPlace) {
  Random random(3);
  const auto expect = [&](auto zero) {
    using T = decltype(zero);
    for (int32_t width : {1, 3, 31, 70, 140, 300}) {
      for (int32_t x = 0; x < width; ++x) {
        const int32_t other = int32_t(random.number(0, width - 1));
        for (int32_t n : {1, 3}) {
          Flat<T> image({width, 2}, T(7), n);
          image.set(x, 1, T(3));
          image.set(other, 0, T(9));
          const Result expected = {3, 9, {x, 1}, {other, 0}};
          forMembersOf<T>([&](const auto& m) {
            if (m.channels != n) return;
            ASSERT_EQ(wrong(m, image.input(), expected), "");
          });
        }
      }
    }
  };
  expect(uint8_t(0));
  expect(int8_t(0));
  expect(uint16_t(0));
  expect(0.0f);
}

TEST_F(MinMaxIndx, gates) {
  forMembers([&](const auto& m) { expectGate(m); });
}

TEST_F(MinMaxIndx, statuses) {
  forMembers([&](const auto& m) { expectMemberStatuses(m, false, false); });
}

TEST_F(MinMaxIndx, resultsMayBeNull) {
  Random random(4);
  for (QoriSize size : {QoriSize{33, 9}, QoriSize{200, 83}}) {
    services::teamSize = 3;
    const Scenes scenes(random, size);
    for (int nulls = 0; nulls < 16; ++nulls) {
      forMembers([&](const auto& m) {
        const auto input = scenes.of(m).input(3);
        ASSERT_EQ(wrong(m, input, modelOf(m, input), nulls), "") << nulls;
      });
    }
  }
}

TEST_F(MinMaxIndx, constantImages) {
  const auto expect = [&](auto value) {
    using T = decltype(value);
    for (QoriSize size : {QoriSize{1, 1}, QoriSize{130, 3}, QoriSize{150, 120}}) {
      for (int32_t team : {1, 4, 40}) {
        // A team without enough rows leaves zeros under masks.
        services::teamSize = std::min(team, size.height);
        for (int32_t n : {1, 3}) {
          const Flat<T> image(size, value, n);
          forMembersOf<T>([&](const auto& m) {
            if (m.channels != n) return;
            EXPECT_EQ(wrong(m, image.input(), {float(value), float(value), {0, 0}, {0, 0}}), "");
          });
        }
      }
    }
  };
  expect(uint8_t(0));
  expect(uint8_t(255));
  expect(uint8_t(200));
  expect(int8_t(-128));
  expect(int8_t(127));
  expect(uint16_t(65535));
  expect(uint16_t(0));
  expect(FLT_MAX);
  expect(-FLT_MAX);
  expect(FLT_TRUE_MIN);
  expect(-0.0f);
}

TEST_F(MinMaxIndx, ofEqualExtremaTheRowDecidesFirst) {
  const auto expect = [&](auto zero) {
    using T = decltype(zero);
    for (int32_t n : {1, 3}) {
      Flat<T> image({9, 6}, T(50), n);
      image.set(5, 2, T(10));
      image.set(1, 3, T(10));
      image.set(7, 2, T(10));
      image.set(8, 4, T(99));
      image.set(3, 4, T(99));
      image.set(0, 5, T(99));
      forMembersOf<T>([&](const auto& m) {
        if (m.channels != n) return;
        EXPECT_EQ(wrong(m, image.input(), {10, 99, {5, 2}, {3, 4}}), "");
      });
    }
  };
  expect(uint8_t(0));
  expect(int8_t(0));
  expect(uint16_t(0));
  expect(0.0f);
}

TEST_F(MinMaxIndx, aTieBetweenStripesGoesToTheLowerThread) {
  const auto expect = [&](auto zero) {
    using T = decltype(zero);
    for (int32_t team = 1; team <= 8; ++team) {
      services::teamSize = team;
      for (int32_t n : {1, 3}) {
        Flat<T> image({128, 160}, T(50), n);
        for (int32_t y : {23, 70, 110, 159}) {
          image.set(200 % (y + 1) % 128, y, T(10));
          image.set(150 % (y + 1) % 128, y, T(99));
        }
        forMembersOf<T>([&](const auto& m) {
          if (m.channels != n) return;
          EXPECT_EQ(wrong(m, image.input(), {10, 99, {200 % 24, 23}, {150 % 24, 23}}), "");
        });
      }
    }
  };
  expect(uint8_t(0));
  expect(int8_t(0));
  expect(uint16_t(0));
  expect(0.0f);
}

TEST_F(MinMaxIndx, anEmptyMaskGivesZeros) {
  for (QoriSize size : {QoriSize{5, 3}, QoriSize{160, 160}}) {
    for (int32_t team : {1, 3, 40}) {
      services::teamSize = team;
      forMembers([&](const auto& m) {
        if (!m.masked) return;
        using T = typename std::decay_t<decltype(m)>::Element;
        Flat<T> image(size, T(77), m.channels);
        image.maskRows(0, size.height, 0);
        EXPECT_EQ(wrong(m, image.input(), {0, 0, {0, 0}, {0, 0}}), "");
      });
    }
  }
}

TEST_F(MinMaxIndx, masksOfOnePixel) {
  forMembers([&](const auto& m) {
    if (!m.masked) return;
    using T = typename std::decay_t<decltype(m)>::Element;
    for (int32_t width : {1, 17, 64, 129}) {
      Flat<T> image({width, 3}, T(5), m.channels);
      for (int32_t x = 0; x < width; ++x) {
        image.maskRows(0, 3, 0);
        image.mask[size_t(width + x)] = uint8_t(1 + x % 255);
        ASSERT_EQ(wrong(m, image.input(), {5, 5, {x, 1}, {x, 1}}), "");
      }
    }
  });
}

// A stripe without a selected pixel takes part in the merge with zeros.
TEST_F(MinMaxIndx, threadsWithoutSelectedPixelsReportZero) {
  services::teamSize = 4;
  Flat<uint8_t> image({100, 200}, 200);
  image.maskRows(100, 200, 0);
  Result result;
  const auto m = member("qoriMinMaxIndx_8u_C1MR", Gate::at16384, qoriMinMaxIndx_8u_C1MR);
  ASSERT_EQ(run(m, image.input(), result), qorStatusOk);
  EXPECT_EQ(text(result), "0 at (0, 100), 200 at (0, 0)");
  Flat<uint8_t> small({100, 160}, 200);  // the same in one thread
  small.maskRows(80, 160, 0);
  ASSERT_EQ(run(m, small.input(), result), qorStatusOk);
  EXPECT_EQ(text(result), "200 at (0, 0), 200 at (0, 0)");
  // A first stripe without one: nothing is below its 0.
  image.maskRows(0, 100, 0);
  image.maskRows(120, 130, 9);
  ASSERT_EQ(run(m, image.input(), result), qorStatusOk);
  EXPECT_EQ(text(result), "0 at (0, 0), 200 at (0, 120)");

  const auto expect = [&](auto zero) {
    using T = decltype(zero);
    for (int32_t n : {1, 3}) {
      Flat<T> negative({100, 200}, T(-5), n);
      negative.maskRows(100, 200, 0);
      negative.set(30, 20, T(-9));
      forMembersOf<T>([&](const auto& f) {
        if (!f.masked || f.channels != n) return;
        EXPECT_EQ(wrong(f, negative.input(), {-9, 0, {30, 20}, {0, 100}}), "");
      });
      negative.maskRows(0, 10, 0);
      negative.maskRows(10, 100, 255);
      forMembersOf<T>([&](const auto& f) {
        if (!f.masked || f.channels != n) return;
        EXPECT_EQ(wrong(f, negative.input(), {-9, 0, {30, 20}, {0, 100}}), "");
      });
    }
  };
  expect(int8_t(0));
  expect(0.0f);
}

// Threads without rows leave zeros too: 16384 pixels in 2 rows for a team of 3.
TEST_F(MinMaxIndx, threadsWithoutRowsReportZero) {
  forMembers([&](const auto& m) {
    using T = typename std::decay_t<decltype(m)>::Element;
    Flat<T> image({8192, 2}, T(100), m.channels);
    services::teamSize = 3;
    EXPECT_EQ(wrong(m, image.input(), {m.masked ? 0.0f : 100.0f, 100, {0, 0}, {0, 0}}), "");
    services::teamSize = 2;
    EXPECT_EQ(wrong(m, image.input(), {100, 100, {0, 0}, {0, 0}}), "");
  });
}

TEST_F(MinMaxIndx, specialFloats) {
  const float inf = INFINITY;
  struct {
    std::vector<float> row;
    Result plain, masked;
  } const cases[] = {
      {{1, NAN, 2}, {1, 2, {0, 0}, {1, 0}}, {1, 2, {0, 0}, {1, 0}}},
      {{NAN, 1, 2}, {1, 2, {0, 0}, {0, 0}}, {NAN, NAN, {0, 0}, {0, 0}}},
      {{NAN, NAN, NAN}, {FLT_MAX, -FLT_MAX, {0, 0}, {0, 0}}, {NAN, NAN, {0, 0}, {0, 0}}},
      {{inf, inf, inf}, {FLT_MAX, inf, {0, 0}, {0, 0}}, {inf, inf, {0, 0}, {0, 0}}},
      {{-inf, -inf, -inf}, {-inf, -FLT_MAX, {0, 0}, {0, 0}}, {-inf, -inf, {0, 0}, {0, 0}}},
      {{inf, NAN, inf}, {FLT_MAX, inf, {1, 0}, {0, 0}}, {inf, inf, {0, 0}, {0, 0}}},
      {{inf, inf, NAN}, {FLT_MAX, inf, {2, 0}, {0, 0}}, {inf, inf, {0, 0}, {0, 0}}},
      {{-inf, NAN, inf}, {-inf, inf, {0, 0}, {1, 0}}, {-inf, inf, {0, 0}, {1, 0}}},
      {{5, FLT_TRUE_MIN, -FLT_TRUE_MIN}, {-FLT_TRUE_MIN, 5, {2, 0}, {0, 0}}, {-FLT_TRUE_MIN, 5, {2, 0}, {0, 0}}},
      {{0.0f, -0.0f, 0.0f}, {0, 0, {0, 0}, {0, 0}}, {0, 0, {0, 0}, {0, 0}}},
      {{-0.0f, 0.0f, 1}, {0, 1, {0, 0}, {2, 0}}, {0, 1, {0, 0}, {2, 0}}},
      {{FLT_MAX, FLT_MAX, inf}, {FLT_MAX, inf, {0, 0}, {2, 0}}, {FLT_MAX, inf, {0, 0}, {2, 0}}},
  };
  for (const auto& c : cases) {
    forMembersOf<float>([&](const auto& m) {
      Flat<float> image({3, 1}, 0, m.channels);
      for (int32_t x = 0; x < 3; ++x) image.set(x, 0, c.row[size_t(x)]);
      EXPECT_EQ(wrong(m, image.input(), m.masked ? c.masked : c.plain), "");
      // The same as the middle of a long row whose other pixels are left out by a mask.
      if (!m.masked) return;
      Flat<float> longer({203, 3}, NAN, m.channels);
      longer.maskRows(0, 3, 0);
      for (int32_t x = 0; x < 3; ++x) {
        longer.set(100 + x, 1, c.row[size_t(x)]);
        longer.mask[size_t(203 + 100 + x)] = 1;
      }
      Result expected = c.masked;
      for (QoriPoint* p : {&expected.minIndex, &expected.maxIndex}) *p = {100 + p->x, 1};
      EXPECT_EQ(wrong(m, longer.input(), expected), "");
    });
  }
}

// NaN here and there, in stripes too, at the first selected pixel too.
TEST_F(MinMaxIndx, sprinkledNaN) {
  Random random(5);
  for (int round = 0; round < 60; ++round) {
    const QoriSize size = round % 2 ? QoriSize{150, 130} : QoriSize{random.width(200), int32_t(random.number(1, 9))};
    services::teamSize = int32_t(random.number(1, 9));
    const double density = random.chance(0.5) ? 0.02 : 0.6;
    for (int32_t n : {1, 3}) {
      Flat<float> image(size, 0, n);
      for (float& x : image.src) {
        x = random.chance(density) ? NAN : random.chance(0.02) ? INFINITY : float(random.number(-5, 5));
      }
      for (uint8_t& byte : image.mask) byte = uint8_t(random.chance(0.6));
      forMembersOf<float>([&](const auto& m) {
        if (m.channels != n) return;
        ASSERT_EQ(wrong(m, image.input(round % 3 + 1)), "");
      });
    }
  }
}

TEST_F(MinMaxIndx, otherChannelsHaveNoEffect) {
  forMembers([&](const auto& m) {
    if (m.channels != 3) return;
    using T = typename std::decay_t<decltype(m)>::Element;
    for (int32_t coi = 1; coi <= 3; ++coi) {
      Flat<T> image({77, 2}, std::numeric_limits<T>::lowest(), 3);
      for (size_t i = 0; i < image.src.size(); i += 2) image.src[i] = std::numeric_limits<T>::max();
      for (size_t i = size_t(coi - 1); i < image.src.size(); i += 3) image.src[i] = T(i % 50 + 1);
      ASSERT_EQ(wrong(m, image.input(coi)), "");
    }
  });
}

TEST_F(MinMaxIndx, withoutMemoryForTheirPartsThreadsGiveTheSame) {
  Random random(6);
  for (int32_t team : {33, 40}) {
    services::teamSize = team;
    const Scenes scenes(random, {int32_t(random.number(200, 500)), int32_t(random.number(83, 90))});
    services::failAfter(0);
    forMembers([&](const auto& m) { ASSERT_EQ(wrong(m, scenes.of(m).input(team % 3 + 1)), ""); });
    services::failAfter(-1);
  }
}

TEST_F(MinMaxIndx, repeatedCallsGiveTheSame) {
  Random random(7);
  services::teamSize = 7;
  const Scenes scenes(random, {157, 140});
  forMembers([&](const auto& m) {
    Result first, again;
    const auto input = scenes.of(m).input(1);
    ASSERT_EQ(run(m, input, first), qorStatusOk);
    for (int i = 0; i < 8; ++i) {
      ASSERT_EQ(run(m, input, again), qorStatusOk);
      ASSERT_TRUE(same(first, again)) << m.name;
    }
  });
}

// Inside a region of the caller's the team is one, whose merge is that of a serial call.
TEST_F(MinMaxIndx, insideAParallelRegionTheTeamIsOne) {
  services::teamSize = 4;
  std::string results[3];
#pragma omp parallel for num_threads(3)
  for (int i = 0; i < 3; ++i) {
    Flat<uint8_t> image({200, 100}, 200);
    image.maskRows(50, 100, 0);
    Result result;
    run(member("", Gate::at16384, qoriMinMaxIndx_8u_C1MR), image.input(), result);
    results[i] = text(result);
  }
  for (const std::string& result : results) EXPECT_EQ(result, "200 at (0, 0), 200 at (0, 0)");
}
