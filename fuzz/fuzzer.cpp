// The fuzzer's entry: picks a function and the answers of the core services, then calls it.
#include <stdio.h>
#include <stdlib.h>

#include "support/fuzz.h"
#include "support/services.h"

// The runtime keeps its threads' records until the end of the program.
extern "C" const char* __lsan_default_suppressions() { return "leak:libomp\n"; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* bytes, size_t size) {
  fuzz::Arguments arguments(bytes, size);
  services::reset();
  if (arguments.chance(40)) {
    services::maxThreads = arguments.number(1, 6);
    services::teamSize = arguments.number(-1, 8);
    services::cores = arguments.number(1, 8);
  }
  if (arguments.chance(10)) services::failAfter(arguments.number(0, 3));
  const auto& list = fuzz::targets();
  list[size_t(arguments.number(0, int32_t(list.size()) - 1))].call(arguments);
  if (services::liveBlocks() != 0) {
    fprintf(stderr, "a call left %lld blocks of memory\n", (long long)services::liveBlocks());
    abort();
  }
  return 0;
}
