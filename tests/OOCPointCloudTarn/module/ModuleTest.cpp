// Loading and unloading the library while a program runs that is not linked to it.
#include <gtest/gtest.h>

#include "tests/support/Modules.h"

namespace {

using oocpctest::CountThreads;
using oocpctest::IsLoaded;
using oocpctest::LoadedModule;

constexpr const char* kMarker = "VELMORA_WORKS_QXB2_INTERNAL_OOCPointCloudTarn";

TEST(Module, IsKnownByItsMarker) {
  const LoadedModule module(TARN_LIBRARY);
  ASSERT_TRUE(module.IsLoaded());
  const auto marker = reinterpret_cast<void (*)()>(module.Find(kMarker));
  ASSERT_NE(marker, nullptr);
  marker();
  EXPECT_EQ(module.Find("VELMORA_WORKS_QXB2_INTERNAL"), nullptr);
}

TEST(Module, StartsNothingWhenItIsLoadedAndLeavesNothingWhenItIsUnloaded) {
  ASSERT_FALSE(IsLoaded(TARN_LIBRARY));
  const std::size_t threads = CountThreads();
  ASSERT_GE(threads, 1u);
  for (int round = 0; round < 3; ++round) {
    {
      const LoadedModule module(TARN_LIBRARY);
      ASSERT_TRUE(module.IsLoaded());
      EXPECT_TRUE(IsLoaded(TARN_LIBRARY));
      EXPECT_EQ(CountThreads(), threads);
    }
    EXPECT_FALSE(IsLoaded(TARN_LIBRARY));
    EXPECT_EQ(CountThreads(), threads);
  }
}

}  // namespace
