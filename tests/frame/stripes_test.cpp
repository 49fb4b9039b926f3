// How rows are shared out: the main rule, the float rule, reductions, and teams of any size.
#include "frame/stripes.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "support/services.h"

namespace {

struct Stripes : testing::Test {
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

struct Rows {
  int32_t row = -1, rows = -1;
};

// How often each row was taken.
class RowCounts {
 public:
  explicit RowCounts(int32_t height) : counts_(size_t(height)) {}
  void take(int32_t row, int32_t rows) {
    for (int32_t y = row; y < row + rows; ++y) ++counts_.at(size_t(y));
  }
  bool eachOnce() const {
    for (const auto& count : counts_) {
      if (count != 1) return false;
    }
    return true;
  }
  int32_t times(int32_t row) const { return counts_.at(size_t(row)); }

 private:
  std::vector<std::atomic<int32_t>> counts_;
};

// Runs test() where a parallel region gets a team of one, whatever it requests.
template <class Test>
void insideARegion(Test test) {
  const int levels = omp_get_max_active_levels();
  omp_set_max_active_levels(1);
  std::atomic<int32_t> members{0};
#pragma omp parallel num_threads(3)
  {
    ++members;
#pragma omp barrier
#pragma omp critical
    test();
  }
  omp_set_max_active_levels(levels);
  ASSERT_EQ(members, 3) << "the runtime gave no outer team";
}

TEST_F(Stripes, LastThreadTakesTheRemainder) {
  std::vector<Rows> taken(4);
  runTeam(10, 4, [&](const Stripe& s) {
    EXPECT_EQ(s.teamSize, 4);
    taken.at(size_t(s.thread)) = {s.row, s.rows};
  });
  const Rows expected[] = {{0, 2}, {2, 2}, {4, 2}, {6, 4}};
  for (int32_t t = 0; t < 4; ++t) {
    EXPECT_EQ(taken[t].row, expected[t].row) << t;
    EXPECT_EQ(taken[t].rows, expected[t].rows) << t;
  }
}

TEST_F(Stripes, FewerRowsThanThreadsAllGoToTheLast) {
  std::vector<Rows> taken(8);
  runTeam(3, 8, [&](const Stripe& s) { taken.at(size_t(s.thread)) = {s.row, s.rows}; });
  for (int32_t t = 0; t < 7; ++t) EXPECT_EQ(taken[t].rows, 0) << t;
  EXPECT_EQ(taken[7].row, 0);
  EXPECT_EQ(taken[7].rows, 3);
  std::atomic<int32_t> calls{0};
  runStripes(3, 8, [&](int32_t row, int32_t rows) {
    ++calls;
    EXPECT_EQ(row, 0);
    EXPECT_EQ(rows, 3);
  });
  EXPECT_EQ(calls, 1);
}

TEST_F(Stripes, SerialPathOpensNoRegion) {
  int32_t calls = 0;
  runTeam(10, serial, [&](const Stripe& s) {
    EXPECT_EQ(omp_get_level(), 0);
    EXPECT_EQ(s.row, 0);
    EXPECT_EQ(s.rows, 10);
    EXPECT_EQ(s.thread, 0);
    EXPECT_EQ(s.teamSize, 1);
    ++calls;
  });
  runStripes(10, serial, [&](int32_t row, int32_t rows) {
    EXPECT_EQ(omp_get_level(), 0);
    EXPECT_EQ(row, 0);
    EXPECT_EQ(rows, 10);
    ++calls;
  });
  runFloatStripes(10, serial, [&](int32_t row, int32_t rows) {
    EXPECT_EQ(omp_get_level(), 0);
    EXPECT_EQ(row, 0);
    EXPECT_EQ(rows, 10);
    ++calls;
  });
  const int32_t sum = reduceStripes<int32_t>(
      10, serial,
      [&](int32_t row, int32_t rows) {
        EXPECT_EQ(omp_get_level(), 0);
        EXPECT_EQ(row, 0);
        ++calls;
        return rows;
      },
      [](int32_t&, int32_t) { ADD_FAILURE() << "nothing to merge"; });
  EXPECT_EQ(sum, 10);
  EXPECT_EQ(calls, 4);
}

TEST_F(Stripes, ParallelPathOpensOneRegion) {
  for (const int32_t threads : {1, 2, 5}) {
    std::atomic<int32_t> members{0};
    runTeam(10, threads, [&](const Stripe&) {
      EXPECT_EQ(omp_get_level(), 1);
      ++members;
    });
    EXPECT_EQ(members, threads);
  }
}

// A frame asks for a team of less than one as for one of one.
TEST_F(Stripes, NegativeTeamSize) {
  RowCounts counts(10), floatCounts(10);
  runStripes(10, -4, [&](int32_t row, int32_t rows) { counts.take(row, rows); });
  EXPECT_TRUE(counts.eachOnce());
  runFloatStripes(10, -4, [&](int32_t row, int32_t rows) { floatCounts.take(row, rows); });
  EXPECT_TRUE(floatCounts.eachOnce());
}

TEST_F(Stripes, EachRowOnceInTeamsOfAnySize) {
  for (int32_t threads = 0; threads <= 40; ++threads) {
    for (const int32_t height : {1, 2, 3, 7, 10, 31, 39, 40, 41, 100, 479}) {
      RowCounts counts(height), floatCounts(height);
      runStripes(height, threads, [&](int32_t row, int32_t rows) {
        EXPECT_GE(rows, 1);
        counts.take(row, rows);
      });
      ASSERT_TRUE(counts.eachOnce()) << threads << " threads, " << height << " rows";
      services::teamSize = threads;
      runFloatStripes(height, threads, [&](int32_t row, int32_t rows) {
        EXPECT_GE(rows, 1);
        floatCounts.take(row, rows);
      });
      ASSERT_TRUE(floatCounts.eachOnce()) << threads << " threads, " << height << " rows";
    }
  }
}

TEST_F(Stripes, TeamSmallerThanRequestedInsideARegion) {
  insideARegion([] {
    for (const int32_t threads : {2, 7, 40}) {
      RowCounts counts(50);
      runTeam(50, threads, [&](const Stripe& s) {
        EXPECT_EQ(s.teamSize, 1);
        counts.take(s.row, s.rows);
      });
      EXPECT_TRUE(counts.eachOnce());
      const int32_t sum = reduceStripes<int32_t>(
          50, threads, [](int32_t, int32_t rows) { return rows; }, [](int32_t& total, int32_t part) { total += part; });
      EXPECT_EQ(sum, 50);
    }
  });
  EXPECT_EQ(services::allocations(), 0);
}

// The runtime adjusts the team to the processors at hand.
TEST_F(Stripes, TeamSmallerThanRequestedByTheRuntime) {
  const int dynamic = omp_get_dynamic();
  omp_set_dynamic(1);
  RowCounts counts(500);
  runStripes(500, 40, [&](int32_t row, int32_t rows) { counts.take(row, rows); });
  const int32_t sum = reduceStripes<int32_t>(
      500, 40, [](int32_t, int32_t rows) { return rows; }, [](int32_t& total, int32_t part) { total += part; });
  omp_set_dynamic(dynamic);
  EXPECT_TRUE(counts.eachOnce());
  EXPECT_EQ(sum, 500);
  EXPECT_EQ(services::liveBlocks(), 0);
}

TEST_F(Stripes, RuntimeSettingsStayAsTheyWere) {
  const int threads = omp_get_max_threads(), levels = omp_get_max_active_levels();
  runStripes(10, 7, [](int32_t, int32_t) {});
  runFloatStripes(10, 7, [](int32_t, int32_t) {});
  EXPECT_EQ(omp_get_max_threads(), threads);
  EXPECT_EQ(omp_get_max_active_levels(), levels);
}

TEST_F(Stripes, FloatRuleSpreadsTheRemainder) {
  services::teamSize = 4;
  std::vector<Rows> taken(4);
  runFloatStripes(10, 4, [&](int32_t row, int32_t rows) { taken.at(size_t(owncvGetIdThreads())) = {row, rows}; });
  const Rows expected[] = {{0, 3}, {3, 2}, {5, 3}, {8, 2}};  // bounds at 2.5, 5, 7.5 and 10, rounded
  for (int32_t t = 0; t < 4; ++t) {
    EXPECT_EQ(taken[t].row, expected[t].row) << t;
    EXPECT_EQ(taken[t].rows, expected[t].rows) << t;
  }
}

// In float the last bound of so many rows may pass the last row.
TEST_F(Stripes, FloatRuleStaysInsideAHugeImage) {
  for (const int32_t height : {7344040, 16777217, 33554435, INT32_MAX - 63, INT32_MAX}) {
    for (const int32_t threads : {2, 3, 7, 40}) {
      std::vector<Rows> taken(static_cast<size_t>(threads));
      services::teamSize = threads;
      runFloatStripes(height, threads, [&](int32_t row, int32_t rows) {
        taken.at(size_t(owncvGetIdThreads())) = {row, rows};
      });
      int64_t next = 0;
      for (const Rows& t : taken) {
        ASSERT_EQ(t.row, next) << height << " rows, " << threads << " threads";
        next += t.rows;
      }
      ASSERT_LE(next, height) << threads;
      ASSERT_GT(next, height - 256) << threads;
    }
  }
}

// Required: a stripe whose number no thread has is left undone.
TEST_F(Stripes, FloatRuleLeavesStripesWithoutAThread) {
  RowCounts held(10);
  services::teamSize = 2;
  runFloatStripes(10, 4, [&](int32_t row, int32_t rows) { held.take(row, rows); });
  services::teamSize = 4;
  insideARegion([] {
    RowCounts nested(10);
    runFloatStripes(10, 4, [&](int32_t row, int32_t rows) { nested.take(row, rows); });
    for (int32_t row = 0; row < 10; ++row) EXPECT_EQ(nested.times(row), row < 3 ? 1 : 0) << row;
  });
  for (int32_t row = 0; row < 10; ++row) EXPECT_EQ(held.times(row), row < 5 ? 1 : 0) << row;
}

// A slot that shows which rows it was made of, and by its odd size whether a block is large enough.
struct Slot {
  int32_t row, rows, merged;
};

// An order of merging that any other order would spoil.
struct Sum {
  uint64_t value = 0;
  void add(const Slot& s) { value = value * 1000003 + uint64_t(s.row) * 4096 + uint64_t(s.rows) + 7; }
};

uint64_t modelOfReduction(int32_t height, int32_t teamSize) {
  Sum sum;
  for (int32_t t = 0; t < teamSize; ++t) {
    const int32_t each = height / teamSize;
    sum.add({t * each, t == teamSize - 1 ? each + height % teamSize : each, 0});
  }
  return sum.value;
}

struct Reduction {
  uint64_t value;
  int32_t merges, kernels, emptyKernels;
};

Reduction reduce(int32_t height, int32_t threads) {
  Sum sum;
  int32_t merges = 0;
  std::atomic<int32_t> kernels{0}, emptyKernels{0};
  const Slot total = reduceStripes<Slot>(
      height, threads,
      [&](int32_t row, int32_t rows) {
        ++kernels;
        if (rows < 1) ++emptyKernels;
        return Slot{row, rows, 0};
      },
      [&](Slot& first, const Slot& next) {
        EXPECT_EQ(omp_get_level(), 0) << "merged in the region";
        if (merges == 0) sum.add(first);
        EXPECT_EQ(first.merged, merges) << "the total is carried on";
        first.merged = ++merges;
        sum.add(next);
      });
  EXPECT_EQ(total.row, 0);
  EXPECT_EQ(total.merged, merges);
  if (merges == 0) sum.add(total);
  return {sum.value, merges, kernels, emptyKernels};
}

TEST_F(Stripes, ReductionMergesInSlotOrder) {
  for (int32_t threads = 1; threads <= 40; ++threads) {
    for (const int32_t height : {1, 3, 10, 32, 33, 40, 41, 100, 479}) {
      services::reset();
      const Reduction r = reduce(height, threads);
      ASSERT_EQ(r.value, modelOfReduction(height, threads)) << threads << " threads, " << height << " rows";
      ASSERT_EQ(r.merges, threads - 1);
      ASSERT_EQ(r.kernels, threads);
      ASSERT_EQ(r.emptyKernels, height < threads ? threads - 1 : 0) << "a thread without rows writes its slot too";
      ASSERT_EQ(services::allocations(), threads > 32 ? 1 : 0) << threads;
      ASSERT_EQ(services::liveBlocks(), 0);
    }
  }
}

TEST_F(Stripes, ReductionWithoutMemoryGivesTheSame) {
  for (int32_t threads = 1; threads <= 40; ++threads) {
    for (const int32_t height : {3, 33, 100}) {
      services::reset();
      services::failAfter(0);
      ASSERT_EQ(reduce(height, threads).value, modelOfReduction(height, threads)) << threads;
      ASSERT_EQ(services::allocations(), threads > 32 ? 1 : 0);
      ASSERT_EQ(services::liveBlocks(), 0);
    }
  }
}

// The rounding of a float sum depends on the size of the team, but never on its timing.
TEST_F(Stripes, FloatReductionRepeats) {
  for (const int32_t threads : {2, 3, 8, 33, 40}) {
    const auto sum = [&] {
      return reduceStripes<float>(
          479, threads,
          [](int32_t row, int32_t rows) {
            float part = 0;
            for (int32_t y = row; y < row + rows; ++y) part += 1.0f / float(y + 1);
            return part;
          },
          [](float& total, float part) { total += part; });
    };
    const float first = sum();
    for (int32_t round = 0; round < 20; ++round) ASSERT_EQ(sum(), first);
  }
}

}  // namespace
