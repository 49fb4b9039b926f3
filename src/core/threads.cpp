// Thread counts: the number that the application chose, or the processors that the process may keep busy.
#include "core/allowed.h"
#include "core/common.h"
#include "qorcore.h"

namespace core {

static int32_t detectThreads() { return allowedProcessors(""); }

static int32_t defaultSlot;
static int32_t chosenThreads;  // 0: the default

static int32_t numThreads() {
  const int32_t chosen = __atomic_load_n(&chosenThreads, __ATOMIC_RELAXED);
  return chosen > 0 ? chosen : detectOnce(&defaultSlot, detectThreads);
}

}  // namespace core

int32_t qorGetNumThreads(int32_t* numThreads) {
  if (!numThreads) return core::statusNullPtr;
  *numThreads = core::numThreads();
  return core::statusOk;
}

int32_t ownGetNumThreads(void) { return core::numThreads(); }

int32_t qorSetNumThreads(int32_t numThreads) {
  if (numThreads < 0) return core::statusBadSize;
  __atomic_store_n(&core::chosenThreads, numThreads, __ATOMIC_RELAXED);
  return core::statusOk;
}
