#include "support/memory.h"

#include <stdio.h>
#include <stdlib.h>
#include <string.h>
#include <sys/mman.h>
#include <unistd.h>

#include "support/instrumented.h"

static constexpr uint8_t pattern = 0xa5;

GuardedMemory::GuardedMemory(size_t size, Edge edge) : size_(size) {
  const size_t page = size_t(sysconf(_SC_PAGESIZE));
  usableSize_ = (size + page - 1) / page * page;
  if (usableSize_ == 0) usableSize_ = page;
  mappingSize_ = usableSize_ + 2 * page;
  void* mapping = mmap(nullptr, mappingSize_, PROT_NONE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  if (mapping == MAP_FAILED) {
    perror("mmap");
    abort();
  }
  mapping_ = static_cast<uint8_t*>(mapping);
  usable_ = mapping_ + page;
  if (mprotect(usable_, usableSize_, PROT_READ | PROT_WRITE)) {
    perror("mprotect");
    abort();
  }
  memset(usable_, pattern, usableSize_);
  data_ = edge == Edge::end ? usable_ + usableSize_ - size : usable_;
  VALGRIND_MAKE_MEM_UNDEFINED(data_, size);
}

GuardedMemory::~GuardedMemory() { munmap(mapping_, mappingSize_); }

bool GuardedMemory::patternIntact() const {
  for (uint8_t* p = usable_; p < usable_ + usableSize_; ++p) {
    if ((p < data_ || p >= data_ + size_) && *p != pattern) return false;
  }
  return true;
}
