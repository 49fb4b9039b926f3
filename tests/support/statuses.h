// Status matrices: every single fault and every pair of faults in the arguments of a call.
#pragma once

#include <gtest/gtest.h>

#include <functional>
#include <string>
#include <vector>

#include "qorcvmx.h"
#include "support/instrumented.h"

// One wrong argument. `argument` names it: two faults in one argument are not combined.
template <class Args>
struct Fault {
  std::string argument;
  QorStatus status;
  std::function<void(Args&)> apply;
};

// Expects call(good) to be a success, call with each fault to give its status, and call with each pair of faults (in
// different arguments) to give the status of the one that stands first in `faults`, which is in the order of the
// checks. `written` returns all bytes that a call could write; a failing call must leave them as they are.
template <class Args>
void expectStatuses(const Args& good, const std::vector<Fault<Args>>& faults,
                    const std::function<QorStatus(const Args&)>& call,
                    const std::function<std::vector<uint8_t>()>& written) {
  const auto expectFailure = [&](const Args& args, QorStatus status, const std::string& what) {
    const std::vector<uint8_t> before = written();
    EXPECT_EQ(call(args), status) << what;
    EXPECT_TRUE(sameBytes(before, written())) << what << ": a failing call wrote";
  };
  for (size_t i = 0; i < faults.size(); ++i) {
    Args single = good;
    faults[i].apply(single);
    expectFailure(single, faults[i].status, faults[i].argument);
    for (size_t j = i + 1; j < faults.size(); ++j) {
      if (faults[i].argument == faults[j].argument) continue;
      Args pair = good;
      faults[j].apply(pair);
      faults[i].apply(pair);
      expectFailure(pair, faults[i].status, faults[i].argument + " and " + faults[j].argument);
    }
  }
  EXPECT_EQ(call(good), qorStatusOk) << "without a fault";
}
