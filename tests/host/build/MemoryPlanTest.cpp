// However long points are and however many threads there are, a plan keeps to the memory.
#include <gtest/gtest.h>

#include "host/build/MemoryPlan.h"
#include "host/build/OctreePlan.h"

namespace tarnhost {
namespace {

constexpr std::uint64_t kMiB = 1u << 20;

TEST(MemoryPlan, KeepsToTheMemoryWithAnyNumberOfThreadsAndAnyLengthOfRecords) {
  for (const std::uint64_t memory : {64 * kMiB, 256 * kMiB, 1024 * kMiB, 65536 * kMiB}) {
    for (const std::size_t recordBytes : {12u, 34u, 67u, 234u, 2020u, 65535u}) {
      for (const std::size_t threads : {1u, 2u, 16u, 64u, 1024u}) {
        const MemoryPlan plan = MemoryPlan::Make(memory, recordBytes, threads);
        SCOPED_TRACE(testing::Message() << memory / kMiB << " MiB, " << recordBytes << " bytes, "
                                        << threads << " threads");
        ASSERT_GE(plan.piecesAtOnce, 1u);
        ASSERT_LE(plan.piecesAtOnce, threads + 1);
        ASSERT_GE(plan.threads, 1u);
        ASSERT_LE(plan.threads, threads);
        ASSERT_GE(plan.mostPiecePoints, OctreePlan::kNodeCapacity);
        ASSERT_GE(plan.rowPoints, 1u);
        if (memory < plan.leastMemoryBytes) continue;
        // Records and what they are encoded to; runs of records, dealt and undealt.
        EXPECT_LE(plan.piecesAtOnce * plan.mostPiecePoints * 2 * recordBytes, memory / 2);
        if (plan.rowPoints > 64) {
          EXPECT_LE(plan.rowPoints * plan.threads * 4 * recordBytes, memory / 8);
        }
      }
    }
  }
}

TEST(MemoryPlan, TellsWhatPointsThatAreTooLongNeed) {
  EXPECT_GT(MemoryPlan::Make(256 * kMiB, 65535, 2).leastMemoryBytes, 256 * kMiB);
  EXPECT_GT(MemoryPlan::Make(256 * kMiB, 2020, 64).leastMemoryBytes, 256 * kMiB);
  EXPECT_LE(MemoryPlan::Make(512 * kMiB, 2020, 64).leastMemoryBytes, 512 * kMiB);
  EXPECT_LE(MemoryPlan::Make(64 * kMiB, 234, 64).leastMemoryBytes, 64 * kMiB);
}

TEST(MemoryPlan, LeavesThreadsIdleThatTheMemoryIsTooLittleFor) {
  EXPECT_LT(MemoryPlan::Make(256 * kMiB, 34, 64).threads, 32u);
  EXPECT_GT(MemoryPlan::Make(256 * kMiB, 34, 64).threads, 8u);
  EXPECT_EQ(MemoryPlan::Make(256 * kMiB, 2020, 64).threads, 1u);
}

TEST(MemoryPlan, WorksOnAsManyPiecesAsThereAreThreadsWhereMemoryAllows) {
  const MemoryPlan plan = MemoryPlan::Make(65536 * kMiB, 34, 64);
  EXPECT_EQ(plan.threads, 64u);
  EXPECT_EQ(plan.piecesAtOnce, 65u);
  EXPECT_EQ(plan.mostPiecePoints, std::uint64_t{1} << 20);
}

}  // namespace
}  // namespace tarnhost
