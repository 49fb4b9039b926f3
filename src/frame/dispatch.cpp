// The exported names. Each is bound by the loader to the best level that the machine can run.
//
// QOR_PIN fixes the choice to one level; the tests use such builds to prove every level on one machine.
#include "frame/cpu.h"

#ifdef QOR_PIN
#define QOR_BEST (CpuLevel(QOR_PIN))
#else
#define QOR_BEST cpuLevel()
#endif

#define QORAPI(type, name, args)                                                                    \
  type name##_v1 args;                                                                              \
  type name##_v3 args;                                                                              \
  type name##_v4 args;                                                                              \
  void* name##_resolve(void) {                                                                      \
    const CpuLevel best = QOR_BEST;                                                                 \
    if (best == cpuV4) return reinterpret_cast<void*>(name##_v4);                                   \
    return best == cpuV3 ? reinterpret_cast<void*>(name##_v3) : reinterpret_cast<void*>(name##_v1); \
  }                                                                                                 \
  __attribute__((visibility("default"), ifunc(#name "_resolve"))) type name args

#include "qorcvmx.h"
