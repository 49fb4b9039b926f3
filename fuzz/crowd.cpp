// The library in the hands of many threads at once: random calls of all functions, first one after the other, then from
// several application threads in different orders. Each call has data of its own, and must leave in it what it left the
// first time. Usage: crowd [CALLS [THREADS [TEAM]]]: calls of each function, application threads, and the team that
// the library may use in each; with teams above 1 results are not compared, since some functions promise less there.
#include <stdio.h>
#include <stdlib.h>

#include <algorithm>
#include <atomic>
#include <random>
#include <thread>

#include "support/fuzz.h"
#include "support/services.h"

static uint64_t call(size_t target, uint32_t seed) {
  std::mt19937 random(uint32_t(target * 1000003 + seed));
  std::vector<uint8_t> bytes(600);
  for (uint8_t& byte : bytes) byte = uint8_t(random());
  fuzz::Arguments arguments(bytes.data(), bytes.size());
  fuzz::targets()[target].call(arguments);
  return arguments.digest();
}

int main(int argc, char** argv) {
  const int calls = argc > 1 ? atoi(argv[1]) : 20;
  const int threads = argc > 2 ? atoi(argv[2]) : 8;
  const int team = argc > 3 ? atoi(argv[3]) : 1;
  services::reset();
  services::threads(team);
  fuzz::alone = false;

  const size_t targets = fuzz::targets().size();
  struct Job {
    size_t target;
    uint32_t seed;
    uint64_t digest;
  };
  std::vector<Job> jobs;
  for (size_t t = 0; t < targets; ++t) {
    for (int i = 0; i < calls; ++i) jobs.push_back({t, uint32_t(i), call(t, uint32_t(i))});
  }
  std::atomic<int> differences{0};
  std::vector<std::thread> crowd;
  for (int i = 0; i < threads; ++i) {
    crowd.emplace_back([&, i] {
      std::vector<Job> mine = jobs;
      std::shuffle(mine.begin(), mine.end(), std::mt19937(uint32_t(i)));
      for (const Job& job : mine) {
        if (call(job.target, job.seed) == job.digest || team > 1) continue;
        ++differences;
        printf("%s, seed %u: another result\n", fuzz::targets()[job.target].name.c_str(), job.seed);
      }
    });
  }
  for (std::thread& thread : crowd) thread.join();
  printf("%zu targets, %zu calls one after the other and by each of %d threads, teams of %d: %d different results\n",
         targets, jobs.size(), threads, team, differences.load());
  if (services::liveBlocks() != 0) {
    printf("%lld blocks of memory were left\n", (long long)services::liveBlocks());
    return 1;
  }
  return differences != 0;
}
