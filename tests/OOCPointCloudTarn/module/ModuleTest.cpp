// Loading and unloading the library while a program runs that is not linked to it.
#include <gtest/gtest.h>

#include "tests/support/Modules.h"

namespace {

using oocpctest::CountMappings;
using oocpctest::CountThreads;
using oocpctest::IsLoaded;
using oocpctest::LoadedModule;
using oocpctest::ProcessState;

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
  // What a module brings along of the system's own stays once it has been loaded.
  { const LoadedModule first(TARN_LIBRARY); }
  const ProcessState before;
  ASSERT_GE(before.threads, 1u);
  ASSERT_GE(before.mappings, 1u);
  for (int round = 0; round < 3; ++round) {
    {
      const LoadedModule module(TARN_LIBRARY);
      ASSERT_TRUE(module.IsLoaded());
      EXPECT_TRUE(IsLoaded(TARN_LIBRARY));
      EXPECT_EQ(CountThreads(), before.threads);
      EXPECT_GT(CountMappings(), before.mappings);
    }
    EXPECT_FALSE(IsLoaded(TARN_LIBRARY));
    EXPECT_FALSE(IsLoaded(TARN_COMPANION));
    EXPECT_EQ(ProcessState(), before) << round;
  }
}

}  // namespace
