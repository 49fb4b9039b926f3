// Times are the best of several runs: what disturbs a run only ever makes it longer.
#include "measure.h"

#include <chrono>
#include <cstring>
#include <limits>

#include "failure.h"

namespace tour {

using Clock = std::chrono::steady_clock;
using Microseconds = std::chrono::duration<double, std::micro>;
using Buffers = std::vector<std::vector<uint8_t>>;

static Buffers makeBuffers(const std::vector<Step>& steps) {
  Buffers buffers;
  for (const Step& step : steps) {
    int32_t bufferSize = 0;
    if (step.scratch) require(step.scratchCode, step.scratch(bufferSize));
    buffers.emplace_back(static_cast<size_t>(bufferSize));
  }
  return buffers;
}

static void runAll(const std::vector<Step>& steps, Buffers& buffers) {
  for (size_t i = 0; i < steps.size(); ++i) require(steps[i].code, steps[i].call(buffers[i].data()));
}

// In microseconds.
static double best(const std::vector<Step>& steps) {
  constexpr int leastRuns = 3;
  constexpr int mostRuns = 200;
  constexpr Microseconds enough(20000);
  Buffers buffers = makeBuffers(steps);
  runAll(steps, buffers);  // pages touched, threads started
  double shortest = std::numeric_limits<double>::max();
  const Clock::time_point begin = Clock::now();
  for (int i = 0; i < mostRuns; ++i) {
    const Clock::time_point start = Clock::now();
    if (i >= leastRuns && start - begin >= enough) break;
    runAll(steps, buffers);
    shortest = std::min(shortest, Microseconds(Clock::now() - start).count());
  }
  return shortest;
}

// One buffer of the largest size serves all steps, since it holds nothing between calls.
Step repeat(int32_t times, const std::vector<Step>& steps) {
  Step loop;
  loop.code = "for (int i = 0; i < " + std::to_string(times) + "; ++i) {";
  for (const Step& step : steps) loop.code += "\n  " + step.code + ";";
  loop.code += "\n}";
  loop.call = [=](uint8_t* buffer) -> QorStatus {
    for (int32_t i = 0; i < times; ++i) {
      for (const Step& step : steps) {
        const QorStatus status = step.call(buffer);
        if (status != qorStatusOk) return status;
      }
    }
    return qorStatusOk;
  };
  loop.scratchCode = steps.front().scratchCode;
  loop.scratch = [=](int32_t& bufferSize) -> QorStatus {
    for (const Step& step : steps) {
      int32_t size = 0;
      const QorStatus status = step.scratch ? step.scratch(size) : qorStatusOk;
      if (status != qorStatusOk) return status;
      bufferSize = std::max(bufferSize, size);
    }
    return qorStatusOk;
  };
  return loop;
}

int32_t allThreads() {
  int32_t threads = 1;
  require("qorGetNumThreads", qorGetNumThreads(&threads));
  return threads;
}

Times measure(const std::vector<Step>& steps, const void* result, size_t size) {
  Times times;
  require("qorSetNumThreads", qorSetNumThreads(1));
  times.oneThread = best(steps);
  const auto* bytes = static_cast<const uint8_t*>(result);
  const std::vector<uint8_t> serial(bytes, bytes + size);
  require("qorSetNumThreads", qorSetNumThreads(0));
  times.allThreads = best(steps);
  if (std::memcmp(serial.data(), bytes, size) != 0) {
    throw Failure(nameIn(steps.back().code) + ": the result with all threads differs from that with one");
  }
  return times;
}

void run(const std::vector<Step>& steps) {
  Buffers buffers = makeBuffers(steps);
  runAll(steps, buffers);
}

}  // namespace tour
