// The exported names. Each is bound by the loader to the best level that the machine can run.
//
// QOR_PIN fixes the choice to one level; the tests use such builds to prove every level on one machine.
#include "frame/cpu.h"

#ifdef QOR_PIN
#define QOR_BEST (CpuLevel(QOR_PIN))
#else
#define QOR_BEST cpuLevel()
#endif

#define QORAPI(type, name, args)                                              \
  type name##_v1 args;                                                        \
  type name##_v3 args;                                                        \
  type name##_v4 args;                                                        \
  decltype(&name##_v1) name##_resolve(void) {                                 \
    const CpuLevel best = QOR_BEST;                                           \
    return best == cpuV4 ? name##_v4 : best == cpuV3 ? name##_v3 : name##_v1; \
  }                                                                           \
  __attribute__((visibility("default"), ifunc(#name "_resolve"))) type name args

#include "qorcvmx.h"
