// The fuzzer's entry: picks a function and the answers of the core services, then calls it.
#include "support/fuzz.h"

#include <stdio.h>
#include <stdlib.h>

#include "support/services.h"

namespace fuzz {

struct Target {
  std::string name;
  std::function<void(Arguments&)> call;
};

static std::vector<Target>& targets() {
  static std::vector<Target> list;
  return list;
}

bool add(const std::string& name, std::function<void(Arguments&)> target) {
  targets().push_back({name, std::move(target)});
  return true;
}

Arguments::~Arguments() {
  for (const auto& intact : checks_) {
    if (!intact()) {
      fprintf(stderr, "a call wrote outside its images\n");
      abort();
    }
  }
}

QoriSize Arguments::size(int32_t mostPixels) {
  const int32_t width = number(1, chance(50) ? 40 : 600);
  const int32_t most = mostPixels / width;
  return {width, number(1, most < 1 ? 1 : most)};
}

QoriSize Arguments::spoiled(QoriSize right) {
  if (chance(3)) right.width = -number(0, std::numeric_limits<int32_t>::max());
  if (chance(3)) right.height = -number(0, std::numeric_limits<int32_t>::max());
  return right;
}

int32_t Arguments::shortStep(int32_t rowBytes) {
  return chance(50) ? rowBytes - 1 : number(std::numeric_limits<int32_t>::min(), rowBytes - 1);
}

std::shared_ptr<GuardedMemory> Arguments::guarded(int64_t bytes) {
  auto memory = std::make_shared<GuardedMemory>(bytes < 0 ? 0 : size_t(bytes), chance(50) ? Edge::end : Edge::begin);
  checks_.push_back([memory] { return memory->patternIntact(); });
  return memory;
}

}  // namespace fuzz

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
