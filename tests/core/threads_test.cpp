// Thread counts and what the processor has, as a program sees them; most tests need to be the first user of the
// library, and therefore run in a process of their own.
#include <gtest/gtest.h>
#include <pthread.h>
#include <sched.h>
#include <stdint.h>
#include <stdio.h>
#include <stdlib.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <string>
#include <thread>
#include <vector>

#include "core/common.h"
#include "core/quota.h"
#include "qorcore.h"

namespace {

const int32_t badSize = -6;
const int32_t nullPtr = -8;

int32_t reportedThreads() {
  int32_t threads = -1;
  return qorGetNumThreads(&threads) == 0 ? threads : -2;
}

cpu_set_t maskOfProcess() {
  cpu_set_t mask;
  CPU_ZERO(&mask);
  if (sched_getaffinity(getpid(), sizeof mask, &mask) != 0) abort();
  return mask;
}

// Leaves only the first `count` processors of the calling thread's mask; returns how many it has then.
int32_t keepProcessors(int count) {
  cpu_set_t mask = maskOfProcess();
  int kept = 0;
  for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu) {
    if (!CPU_ISSET(cpu, &mask)) continue;
    if (kept == count) {
      CPU_CLR(cpu, &mask);
    } else {
      ++kept;
    }
  }
  if (sched_setaffinity(0, sizeof mask, &mask) != 0) abort();
  return kept;
}

[[noreturn]] void leaveWith(const std::string& complaint) {
  fprintf(stderr, "complaint: <%s>", complaint.c_str());
  _exit(0);
}

// Runs body in a new process in which nothing was called before, and expects it to return an empty string.
#define EXPECT_IN_NEW_PROCESS(body)                                                  \
  do {                                                                               \
    ::testing::FLAGS_gtest_death_test_style = "threadsafe";                          \
    EXPECT_EXIT(leaveWith((body)()), ::testing::ExitedWithCode(0), "complaint: <>"); \
  } while (false)

std::string mismatch(const char* what, int64_t expected, int64_t actual) {
  if (expected == actual) return "";
  return std::string(what) + ": expected " + std::to_string(expected) + ", got " + std::to_string(actual) + "; ";
}

class CoreThreads : public ::testing::Test {
 protected:
  void TearDown() override { qorSetNumThreads(0); }
};

TEST_F(CoreThreads, NullPointersAreRefused) {
  EXPECT_EQ(qorGetNumThreads(nullptr), nullPtr);
  EXPECT_EQ(qorGetMaxCacheSizeB(nullptr), nullPtr);
}

TEST_F(CoreThreads, DefaultIsWhatMaskAndQuotaLeave) {
  const cpu_set_t mask = maskOfProcess();
  const int32_t expected = std::min(CPU_COUNT(&mask), core::quotaProcessors(""));
  EXPECT_EQ(reportedThreads(), expected);
  EXPECT_EQ(ownGetNumThreads(), expected);
}

TEST_F(CoreThreads, ChosenNumberIsReportedByBothUntilReset) {
  const int32_t normal = ownGetNumThreads();
  EXPECT_GE(normal, 1);
  for (const int32_t threads : {1, 2, 3, 40, 1000, INT32_MAX}) {
    EXPECT_EQ(qorSetNumThreads(threads), 0);
    EXPECT_EQ(reportedThreads(), threads);
    EXPECT_EQ(ownGetNumThreads(), threads);
  }
  EXPECT_EQ(qorSetNumThreads(0), 0);
  EXPECT_EQ(reportedThreads(), normal);
  EXPECT_EQ(ownGetNumThreads(), normal);
}

TEST_F(CoreThreads, NegativeNumberIsRefusedAndChangesNothing) {
  const int32_t normal = ownGetNumThreads();
  EXPECT_EQ(qorSetNumThreads(-1), badSize);
  EXPECT_EQ(ownGetNumThreads(), normal);
  ASSERT_EQ(qorSetNumThreads(normal + 5), 0);
  EXPECT_EQ(qorSetNumThreads(-1), badSize);
  EXPECT_EQ(qorSetNumThreads(INT32_MIN), badSize);
  EXPECT_EQ(ownGetNumThreads(), normal + 5);
  EXPECT_EQ(reportedThreads(), normal + 5);
}

TEST_F(CoreThreads, NumberChosenByOneThreadHoldsForOthers) {
  ASSERT_EQ(qorSetNumThreads(17), 0);
  int32_t seen = 0;
  std::thread([&] { seen = ownGetNumThreads(); }).join();
  EXPECT_EQ(seen, 17);
}

TEST_F(CoreThreads, ProcessTiedToOneProcessorGetsOneThread) {
  EXPECT_IN_NEW_PROCESS([] {
    keepProcessors(1);
    return mismatch("reported", 1, reportedThreads()) + mismatch("own", 1, ownGetNumThreads());
  });
}

TEST_F(CoreThreads, DefaultStaysAsItWasAtFirstUse) {
  EXPECT_IN_NEW_PROCESS([] {
    const int32_t before = ownGetNumThreads();
    keepProcessors(1);
    qorSetNumThreads(9);
    qorSetNumThreads(0);
    return mismatch("own", before, ownGetNumThreads()) + mismatch("reported", before, reportedThreads());
  });
}

TEST_F(CoreThreads, DefaultIsTheProcessesEvenIfATiedWorkerAsksFirst) {
  EXPECT_IN_NEW_PROCESS([] {
    const cpu_set_t mask = maskOfProcess();
    const int32_t expected = std::min(CPU_COUNT(&mask), core::quotaProcessors(""));
    int32_t seen = 0;
    std::thread([&] {
      keepProcessors(1);
      seen = ownGetNumThreads();
    }).join();
    return mismatch("worker", expected, seen) + mismatch("main", expected, ownGetNumThreads());
  });
}

TEST_F(CoreThreads, CoresOnDieArePlausible) {
  const int32_t cores = qorGetNumCoresOnDie();
  EXPECT_GE(cores, 1);
  EXPECT_LE(cores, sysconf(_SC_NPROCESSORS_CONF));
  EXPECT_EQ(qorGetNumCoresOnDie(), cores);
}

TEST_F(CoreThreads, CacheSizeIsPlausible) {
  int32_t size = 0;
  EXPECT_EQ(qorGetMaxCacheSizeB(&size), 0);
  EXPECT_GE(size, 16 * 1024);
  int32_t again = 0;
  EXPECT_EQ(qorGetMaxCacheSizeB(&again), 0);
  EXPECT_EQ(again, size);
}

struct Answers {
  int32_t own = 0, reported = 0, cores = 0, cache = 0;
};

TEST_F(CoreThreads, RacingFirstCallsGetTheSameAnswers) {
  EXPECT_IN_NEW_PROCESS([] {
    const size_t callers = 32;
    std::vector<Answers> answers(callers);
    std::vector<std::thread> threads;
    std::atomic<size_t> waiting{0};
    for (size_t i = 0; i < callers; ++i) {
      threads.emplace_back([&, i] {
        ++waiting;
        while (waiting < callers) sched_yield();
        Answers& mine = answers[i];
        mine.own = ownGetNumThreads();
        mine.reported = reportedThreads();
        mine.cores = qorGetNumCoresOnDie();
        if (qorGetMaxCacheSizeB(&mine.cache) != 0) mine.cache = -1;
      });
    }
    for (std::thread& thread : threads) thread.join();
    std::string complaint;
    for (const Answers& mine : answers) {
      complaint += mismatch("own", answers[0].own, mine.own) + mismatch("reported", answers[0].own, mine.reported) +
                   mismatch("cores", answers[0].cores, mine.cores) + mismatch("cache", answers[0].cache, mine.cache);
      if (mine.own < 1 || mine.cores < 1 || mine.cache < 1) complaint += "an answer below 1; ";
    }
    return complaint;
  });
}

std::atomic<int32_t> detections{0};

int32_t differsEveryTime() {
  const int32_t mine = ++detections;
  usleep(1000);  // long enough for other callers to start their own
  return mine;
}

// The machine gives the same answers to everybody; this detection does not, so that disagreement would show.
TEST(CoreDetectOnce, AllCallersGetTheSameResultWhateverTheyDetect) {
  for (int round = 0; round < 20; ++round) {
    const size_t callers = 16;
    int32_t slot = 0;
    detections = 0;
    std::vector<int32_t> seen(callers);
    std::vector<std::thread> threads;
    std::atomic<size_t> waiting{0};
    for (size_t i = 0; i < callers; ++i) {
      threads.emplace_back([&, i] {
        ++waiting;
        while (waiting < callers) sched_yield();
        seen[i] = core::detectOnce(&slot, differsEveryTime);
      });
    }
    for (std::thread& thread : threads) thread.join();
    for (size_t i = 0; i < callers; ++i) ASSERT_EQ(seen[i], seen[0]);
    const int32_t before = detections;
    EXPECT_EQ(core::detectOnce(&slot, differsEveryTime), seen[0]);
    EXPECT_EQ(detections, before) << "a known value was detected again";
  }
}

TEST(CoreDetectOnce, ResultIsAtLeastOne) {
  int32_t slot = 0;
  EXPECT_EQ(core::detectOnce(&slot, [] { return int32_t{0}; }), 1);
  slot = 0;
  EXPECT_EQ(core::detectOnce(&slot, [] { return int32_t{-1}; }), 1);
}

}  // namespace
