// Fixed-kernel border filters with threads: the seams do not show, and the gate, the team and the lone thread are as
// they have to be.
//
// A lone thread of a parallel run reads the rows above and below the region. That tells the serial and the parallel way
// apart from outside: with a team of one the two give different results.
#include <omp.h>

#include "filter/fixedfilters.h"

using namespace fixedfilters;

namespace {

constexpr QoriBorderType bothFlags = qorBorderRowsAbove | qorBorderRowsBelow;

bool isLaplacian8u8s(const Filter& f) { return f.name() == "Laplacian_8u8s"; }
int32_t leastHeight(const Filter& f) { return isLaplacian8u8s(f) ? 64 : 256; }
int32_t rowsPerThread(const Filter& f) { return isLaplacian8u8s(f) ? 32 : 128; }

Case large(const Filter& f, QoriMaskSelector mask, Random& random) {
  Case given;
  given.size = {256, leastHeight(f)};
  given.mask = mask;
  given.borderType = QoriBorderType(random.number(qorBorderConst, qorBorderMirrorEdge));
  given.divisor = 8;
  return given;
}

}  // namespace

class FixedFilterThreads : public FixedFilters {};

TEST_F(FixedFilterThreads, seamsDoNotShow) {
  Random random(1);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (QoriBorderType mode = qorBorderConst; mode <= qorBorderMirrorEdge; ++mode) {
      services::threads(int32_t(random.number(2, 8)));
      services::cacheSize = random.chance(0.5) ? 1000 : 1 << 24;
      Case given = large(f, mask, random);
      const int32_t stripes = random.chance(0.7) ? 2 : int32_t(random.number(3, isLaplacian8u8s(f) ? 9 : 4));
      given.size = {256 + int32_t(random.number(0, 20)),
                    stripes * rowsPerThread(f) + int32_t(random.number(0, rowsPerThread(f) - 1))};
      given.borderType = mode | (random.chance(0.5) ? 0 : 16 * int32_t(random.number(1, 3)));
      ASSERT_EQ(check(f, given, random), "") << services::maxThreads << " threads";
    }
  });
}

TEST_F(FixedFilterThreads, eightStripes) {
  Random random(2);
  for (const Filter& f : filters()) {
    services::threads(8);
    Case given = large(f, random.pick(f.masks()), random);
    given.size.height = 8 * rowsPerThread(f) + 7;
    ASSERT_EQ(check(f, given, random), "");
  }
}

TEST_F(FixedFilterThreads, aLoneThreadReadsTheRowsAboveAndBelow) {
  Random random(3);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (QoriBorderType mode = qorBorderConst; mode <= qorBorderMirrorEdge; ++mode) {
      services::maxThreads = services::cores = 2;
      services::teamSize = 1;
      Case given = large(f, mask, random);
      given.borderType = mode;
      given.treatedAs = mode | bothFlags;
      given.unlike = mode;
      ASSERT_EQ(check(f, given, random), "");
    }
    // One flag is as good as none.
    for (QoriBorderType flag : {qorBorderRowsAbove, qorBorderRowsBelow}) {
      Case given = large(f, mask, random);
      given.treatedAs = given.borderType | bothFlags;
      given.borderType |= flag;
      given.unlike = given.borderType;
      ASSERT_EQ(check(f, given, random), "");
    }
  });
}

TEST_F(FixedFilterThreads, aTeamOfNoneIsALoneThread) {
  Random random(4);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    services::maxThreads = services::cores = 2;
    services::teamSize = random.pick(std::vector<int32_t>{0, -1, INT32_MIN});
    Case given = large(f, mask, random);
    given.treatedAs = given.borderType | bothFlags;
    ASSERT_EQ(check(f, given, random), "") << "team of " << services::teamSize;
  });
}

// Inside a region of the caller's the runtime gives one thread.
TEST_F(FixedFilterThreads, aNestedCallIsALoneThread) {
  services::threads(2);
  const int levels = omp_get_max_active_levels();
  omp_set_max_active_levels(1);
  const std::vector<Filter>& all = filters();
  std::vector<std::string> wrong(all.size());
#pragma omp parallel for num_threads(2)
  for (size_t i = 0; i < all.size(); ++i) {
    Random random{uint32_t(i)};
    Case given = large(all[i], qorMaskSize3x3, random);
    given.treatedAs = given.borderType | bothFlags;
    wrong[i] = check(all[i], given, random);
  }
  omp_set_max_active_levels(levels);
  for (const std::string& w : wrong) EXPECT_EQ(w, "");
}

// The runtime may give fewer threads than it is asked for; with both flags it does not matter how many.
TEST_F(FixedFilterThreads, aSmallerTeamThanRequestedGivesTheSamePixels) {
  Random random(5);
  services::threads(8);
  omp_set_dynamic(1);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    Case given = large(f, mask, random);
    given.size.height = 5 * rowsPerThread(f) + 3;
    given.borderType |= bothFlags;
    ASSERT_EQ(check(f, given, random), "");
  });
  omp_set_dynamic(0);
}

TEST_F(FixedFilterThreads, theGate) {
  Random random(6);
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    const int32_t least = leastHeight(f), many = least / 5 + 1;  // 5 * many is above the least height
    struct {
      int32_t width, height, maxThreads, cores;
      bool parallel;
    } const cases[] = {
        {256, least, 2, 2, true},        {256, least - 1, 2, 2, false},       {255, least, 2, 2, false},
        {256, least, 1, 2, false},       {256, least, 2, 1, false},           {256, least, 2, 0, false},
        {256, 5 * many, many, 2, true},  {256, 5 * many - 1, many, 2, false}, {257, least + 1, 2, 1000, true},
        {256, least + 60, 1, 40, false},
    };
    for (const auto& c : cases) {
      if (mask == qorMaskSize5x5 && &c >= cases + 4) break;  // the rest takes long
      services::maxThreads = c.maxThreads;
      services::cores = c.cores;
      services::teamSize = 1;
      Case given = large(f, mask, random);
      given.size = {c.width, c.height};
      given.surrounded = true;
      const QoriBorderType mode = given.borderType;
      given.treatedAs = c.parallel ? mode | bothFlags : mode;
      ASSERT_EQ(check(f, given, random), "") << c.maxThreads << " threads, " << c.cores << " cores";
    }
  });
}

// How many threads work shows in how many shares of the scratch are written. Where the team's size divides the greatest
// number of threads, every share begins at a multiple of what one thread needs.
TEST_F(FixedFilterThreads, theTeam) {
  struct Team {
    int32_t stripes, more, maxThreads, cores, teamSize, expected;
  } const teams[] = {
      {2, 0, 8, 8, 8, 2},    // height / 128, or height / 32
      {2, 31, 8, 8, 8, 2},   //
      {3, 0, 9, 9, 9, 3},    //
      {4, 0, 4, 4, 4, 4},    //
      {8, 0, 9, 3, 9, 3},    // the cores on the die
      {8, 0, 8, 8, 2, 2},    // the current setting
      {8, 0, 8, 8, 1, 1},    //
      {8, 0, 2, 40, 40, 2},  // never more than the scratch has room for
      {8, 0, 4, 40, 40, 4},  //
      {8, 5, 8, 40, 40, 8},  //
  };
  forEachFilter([&](const Filter& f, QoriMaskSelector mask) {
    for (const Team& team : teams) {
      services::maxThreads = team.maxThreads;
      services::cores = team.cores;
      services::teamSize = team.teamSize;
      const QoriSize size = {256, team.stripes * rowsPerThread(f) + team.more};
      int32_t bytes = 0;
      ASSERT_EQ(f.bufferSize(size, mask, &bytes), qorStatusOk);
      const Scratch scratch(bytes);
      withTypes(f.types, [&](auto s, auto d) {
        using S = decltype(s);
        using D = decltype(d);
        const Image<S> src(size.width, size.height + 4);  // a lone thread reads two rows more on each side
        const Image<D> dst(size.width, size.height);
        ASSERT_EQ(f.run({src.data() + 2 * size.width, src.step(), dst.data(), dst.step(), size, mask,
                         qorBorderReplicate, 0, 1, scratch.data()}),
                  qorStatusOk);
      });
      const size_t share = size_t(bytes) / size_t(team.maxThreads);
      int32_t working = 0;
      for (size_t i = 0; i < size_t(team.maxThreads); ++i) working += scratch.written(i * share, share);
      EXPECT_EQ(working, team.expected) << f.name() << " " << mask << ", height " << size.height << ", "
                                        << team.maxThreads << " threads, " << team.cores << " cores, team of "
                                        << team.teamSize;
    }
  });
}

TEST_F(FixedFilterThreads, aTeamAboveTheGreatestNumberOfThreadsStaysInItsScratch) {
  Random random(7);
  for (const Filter& f : filters()) {
    services::maxThreads = 2;
    services::cores = 64;
    services::teamSize = int32_t(random.number(3, 64));
    Case given = large(f, random.pick(f.masks()), random);
    given.size.height = 8 * rowsPerThread(f);
    ASSERT_EQ(check(f, given, random), "") << "team of " << services::teamSize;
  }
}

TEST_F(FixedFilterThreads, callsAtTheSameTimeDoNotDisturbEachOther) {
  const std::vector<Filter>& all = filters();
  std::vector<std::string> wrong(all.size());
#pragma omp parallel for num_threads(4)
  for (size_t i = 0; i < all.size(); ++i) {
    Random random{uint32_t(i)};
    for (int round = 0; round < 5; ++round) {
      Case given;
      given.size = {random.width(100), int32_t(random.number(1, 50))};
      given.borderType = QoriBorderType(random.number(qorBorderConst, qorBorderMirrorEdge));
      wrong[i] += check(all[i], given, random);
    }
  }
  for (const std::string& w : wrong) EXPECT_EQ(w, "");
}
