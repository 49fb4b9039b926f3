#include "support/fuzz.h"

#include <stdio.h>
#include <stdlib.h>

namespace fuzz {

bool alone = true;

static std::vector<Target>& list() {
  static std::vector<Target> targets;
  return targets;
}

const std::vector<Target>& targets() { return list(); }

bool add(const std::string& name, std::function<void(Arguments&)> target) {
  list().push_back({name, std::move(target)});
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

uint64_t Arguments::digest() const {
  uint64_t digest = 0xcbf29ce484222325;
  for (const auto& content : contents_) {
    for (const uint8_t byte : content()) digest = (digest ^ byte) * 0x100000001b3;
  }
  return digest;
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
