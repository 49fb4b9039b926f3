// What the frames ask the core services and the OpenMP runtime.
#include "frame/services.h"

#include <gtest/gtest.h>

#include <atomic>
#include <vector>

#include "support/services.h"

namespace {

struct Services : testing::Test {
  void SetUp() override { services::reset(); }
  void TearDown() override { services::reset(); }
};

TEST_F(Services, TeamOfOneOutsideAnyRegion) {
  EXPECT_EQ(owncvGetNumThreads(), 1);
  EXPECT_EQ(owncvGetIdThreads(), 0);
}

TEST_F(Services, TeamInsideARegion) {
  std::vector<int32_t> sizes(5, -1);
  std::atomic<int32_t> members{0};
#pragma omp parallel num_threads(5)
  {
    sizes[size_t(owncvGetIdThreads())] = owncvGetNumThreads();
    ++members;
  }
  for (int32_t t = 0; t < members; ++t) EXPECT_EQ(sizes[size_t(t)], members) << t;
  for (size_t t = size_t(members); t < 5; ++t) EXPECT_EQ(sizes[t], -1) << t;
}

// How many threads are allowed and how many are requested are two questions with two answers.
TEST_F(Services, MaxNumThreadsIsNotTheTeamSize) {
  services::maxThreads = 11;
  services::teamSize = 3;
  services::cores = 5;
  EXPECT_EQ(owncvGetMaxNumThreads(), 11);
  EXPECT_EQ(ownGetNumThreads(), 3);
  EXPECT_EQ(runomp(), 5);
}

TEST_F(Services, CacheSize) {
  for (const int32_t size : {1, 32768, 1 << 20, INT32_MAX}) {
    services::cacheSize = size;
    EXPECT_EQ(owncvGetCacheSize(), size);
  }
}

TEST_F(Services, RunompReadsTheDieOnly) {
  services::threads(8);
  for (const int32_t cores : {2, 3, 4, 7, 64}) {
    services::cores = cores;
    EXPECT_EQ(runomp(), cores);
  }
  services::cores = 1;
  EXPECT_EQ(runomp(), 0);
  services::threads(1);
  services::cores = 6;
  EXPECT_EQ(runomp(), 6);
}

TEST_F(Services, RunsepompSplitsLargeKernelsInAnyCase) {
  for (const int32_t kernelSize : {3, 5}) {
    services::cores = 1;
    EXPECT_EQ(runsepomp(kernelSize), 0) << kernelSize;
    services::cores = 4;
    EXPECT_EQ(runsepomp(kernelSize), 4) << kernelSize;
    services::cores = 7;
    EXPECT_EQ(runsepomp(kernelSize), 7) << kernelSize;
  }
  for (const int32_t kernelSize : {1, 2, 4, 6, 7, 31, 33, 55}) {
    services::cores = 1;
    EXPECT_EQ(runsepomp(kernelSize), 1) << kernelSize;
    services::cores = 4;
    EXPECT_EQ(runsepomp(kernelSize), 5) << kernelSize;
    services::cores = 7;
    EXPECT_EQ(runsepomp(kernelSize), 7) << kernelSize;
  }
}

}  // namespace
