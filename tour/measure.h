// Runs library calls and takes their time, with one thread and with all that the process may use.
#ifndef QOR_TOUR_MEASURE_H
#define QOR_TOUR_MEASURE_H

#include <qorcore.h>

#include <functional>
#include <string>
#include <vector>

#include "image.h"

namespace tour {

// One library call, with the C text of the call. `scratch` asks for the size of its buffer; calls without a buffer have
// none. The size depends on the number of threads, so it is asked for again whenever that changes.
struct Step {
  std::string code;
  std::function<QorStatus(uint8_t* buffer)> call;
  std::string scratchCode;
  std::function<QorStatus(int32_t& bufferSize)> scratch;
};

// The texts are those of the very expressions that run, so that the page cannot show a call that was not made. The
// variables `buffer` and `bufferSize` are given; everything else is captured by value.
#define TOUR_STEP(expression)                                                                            \
  tour::Step {                                                                                           \
#expression, [=]([[maybe_unused]] uint8_t * buffer) -> QorStatus { return expression; }, "", nullptr \
  }
#define TOUR_STEP_WITH_BUFFER(query, expression)                                    \
  tour::Step {                                                                      \
#expression, [=](uint8_t * buffer) -> QorStatus { return expression; }, #query, \
                                                                         [=         \
    ](int32_t & bufferSize) -> QorStatus { return query; }                          \
  }

// The steps, one after the other, `times` times; its code is a loop.
Step repeat(int32_t times, const std::vector<Step>& steps);

// What it took, in microseconds: the best of several runs of all steps in a row, the library calls only.
struct Times {
  double oneThread = 0;
  double allThreads = 0;
};

// The number of threads that "all" stands for.
int32_t allThreads();

// Runs the steps; `result` and `size` are the bytes they leave behind. Throws a Failure where a call fails, or where
// the result with all threads is not that with one.
Times measure(const std::vector<Step>& steps, const void* result, size_t size);

template <class T>
Times measure(const std::vector<Step>& steps, const Image<T>& result) {
  return measure(steps, result.data(), static_cast<size_t>(result.step()) * static_cast<size_t>(result.height));
}

// Runs the steps once, for what a station needs but does not show.
void run(const std::vector<Step>& steps);

}  // namespace tour

#endif
