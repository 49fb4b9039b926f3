// What the core services share: their statuses, and values that are found out once.
//
// The compiler's atomic builtins stand in for std::atomic, whose members an unoptimized build would emit as weak,
// exported functions of this library.
#ifndef QOR_CORE_COMMON_H
#define QOR_CORE_COMMON_H

#include <stdint.h>

namespace core {

// The values of qorStatusOk, qorStatusBadSize and qorStatusNullPtr; the header that names them belongs to the library
// above this one.
enum Status : int32_t { statusOk = 0, statusBadSize = -6, statusNullPtr = -8 };

// Returns the value in *slot, where 0 stands for "not known yet"; then it is what detect() returns, at least 1.
// Several threads may get to run detect(), but the first result to arrive is the one that all of them return.
static inline int32_t detectOnce(int32_t* slot, int32_t (*detect)()) {
  int32_t known = __atomic_load_n(slot, __ATOMIC_ACQUIRE);
  if (known > 0) return known;
  int32_t found = detect();
  if (found < 1) found = 1;
  if (__atomic_compare_exchange_n(slot, &known, found, false, __ATOMIC_ACQ_REL, __ATOMIC_ACQUIRE)) return found;
  return known;
}

}  // namespace core

#endif
