// TBB goes on without a word, but slowly, where it does not find its allocator.
#if defined(_WIN32)  // where it is a library of its own beside the program

#include <gtest/gtest.h>
#include <tbb/cache_aligned_allocator.h>
#include <tbb/parallel_for.h>

#include <atomic>
#include <vector>

#include "tests/support/Modules.h"

namespace {

TEST(ParallelWork, FindsItsAllocatorByTheNameUnderWhichItIsLoaded) {
  std::atomic<int> calls = 0;
  tbb::parallel_for(0, 1000, [&](int) { ++calls; });
  const std::vector<int, tbb::cache_aligned_allocator<int>> values(1000, 1);
  EXPECT_EQ(calls.load(), static_cast<int>(values.size()));
  EXPECT_TRUE(oocpctest::IsLoaded("tbbmalloc.dll"));
}

}  // namespace

#endif
