// Parallel regions of the library, seen from outside.
#pragma once

#include <stdint.h>

#include <functional>

// Runs a call and tells the team size that its last parallel region requested from the runtime; 0 if it opened none.
// What the runtime then gives is its own affair.
int32_t requestedTeam(const std::function<void()>& call);
