// Blocks of memory: where they start, how much of them can be used, and which sizes are refused.
#include <gtest/gtest.h>
#include <stdint.h>
#include <string.h>

#include <vector>

#include "qorcore.h"

// By default these tools end the process at an allocation that can only fail, where malloc returns null.
// Other builds never call these.
extern "C" const char* __asan_default_options() { return "allocator_may_return_null=1"; }
extern "C" const char* __tsan_default_options() { return "allocator_may_return_null=1"; }

namespace {

TEST(CoreMemory, BlocksAreAlignedWritableAndApart) {
  std::vector<unsigned char*> blocks;
  for (size_t size = 1; size <= 1000; ++size) {
    auto* block = static_cast<unsigned char*>(qorMalloc(size));
    ASSERT_NE(block, nullptr) << size;
    EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u) << size;
    memset(block, static_cast<int>(size % 251), size);
    blocks.push_back(block);
  }
  for (size_t size = 1; size <= 1000; ++size) {
    for (size_t i = 0; i < size; ++i) ASSERT_EQ(blocks[size - 1][i], size % 251) << size;
    qorFree(blocks[size - 1]);
  }
}

TEST(CoreMemory, LargeBlockIsAlignedAndWritableToItsEnd) {
  const size_t size = (size_t{1} << 26) + 3;
  auto* block = static_cast<unsigned char*>(qorMalloc(size));
  ASSERT_NE(block, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(block) % 64, 0u);
  memset(block, 7, size);
  EXPECT_EQ(block[size - 1], 7);
  qorFree(block);
}

TEST(CoreMemory, SizeZeroGivesNull) { EXPECT_EQ(qorMalloc(0), nullptr); }

// Each of these is more than an address space holds; rounding some of them up to the alignment wraps to a small size.
TEST(CoreMemory, ImpossibleSizesGiveNull) {
  const size_t largest = static_cast<size_t>(PTRDIFF_MAX);
  for (const size_t distance : {0, 1, 10, 62, 63, 64, 65, 127, 128, 4096}) {
    EXPECT_EQ(qorMalloc(SIZE_MAX - distance), nullptr) << distance;
    EXPECT_EQ(qorMalloc(largest - distance), nullptr) << distance;
    EXPECT_EQ(qorMalloc(largest + 1 + distance), nullptr) << distance;
  }
}

TEST(CoreMemory, FreeOfNullDoesNothing) { qorFree(nullptr); }

}  // namespace
