// The runtime's entries through which a region is opened, GCC's and Clang's, stand in the test program, so the library
// calls these; they note the team size on the way to the runtime.
#include "support/regions.h"

#include <dlfcn.h>

static int32_t lastTeam;

extern "C" {
void GOMP_parallel(void (*body)(void*), void* data, unsigned threads, unsigned flags) {
  lastTeam = int32_t(threads);
  reinterpret_cast<void (*)(void (*)(void*), void*, unsigned, unsigned)>(dlsym(RTLD_NEXT, "GOMP_parallel"))(
      body, data, threads, flags);
}
void __kmpc_push_num_threads(void* location, int32_t thread, int32_t threads) {
  lastTeam = threads;
  reinterpret_cast<void (*)(void*, int32_t, int32_t)>(dlsym(RTLD_NEXT, "__kmpc_push_num_threads"))(location, thread,
                                                                                                   threads);
}
}

int32_t requestedTeam(const std::function<void()>& call) {
  lastTeam = 0;
  call();
  return lastTeam;
}
