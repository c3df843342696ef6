// The competition of chunks, under rules that a test can choose.
#include <gtest/gtest.h>

#include "OOCPointCloudTarn/repository/ChunkCompetition.h"

namespace {

/// Rules that answer what the test says and note what they were asked.
struct Rules {
  static inline HRESULT eligible = 0;
  static inline bool candidatePreferred = false;
  static inline int comparisons = 0;
  static inline std::uint8_t firstAsked = 0;

  static HRESULT IsEligibleChunk(const oocpc::ChunkDescriptor&) { return eligible; }
  static bool CompareChunks(const oocpc::ChunkDescriptor& kept, const oocpc::ChunkDescriptor&) {
    ++comparisons;
    firstAsked = *std::get<0>(kept);
    return candidatePreferred;
  }
};

class ChunkCompetitions : public testing::Test {
 protected:
  ChunkCompetitions() {
    Rules::eligible = 0;
    Rules::candidatePreferred = false;
    Rules::comparisons = 0;
  }
  HRESULT Enter(oocpc::ContainerChunkType type, std::vector<std::uint8_t> payload) {
    return competition_.Enter<Rules>(OOCIndexChunk(type, std::move(payload)), &losers_);
  }
  [[nodiscard]] std::uint8_t Kept() const { return competition_.GetKept().payload.at(0); }

  ChunkCompetition competition_;
  std::vector<OOCIndexChunk> losers_;
};

TEST_F(ChunkCompetitions, KeepTheFirstWithoutComparing) {
  EXPECT_EQ(Enter(1, {1}), 0);
  EXPECT_EQ(Kept(), 1);
  EXPECT_EQ(Rules::comparisons, 0);
  EXPECT_TRUE(losers_.empty());
}

TEST_F(ChunkCompetitions, RejectACandidateThatComparisonDoesNotPrefer) {
  EXPECT_EQ(Enter(1, {1}), 0);
  EXPECT_EQ(Enter(1, {2}), 0);
  EXPECT_EQ(Kept(), 1);
  EXPECT_EQ(Rules::firstAsked, 1) << "the kept chunk comes first";
  ASSERT_EQ(losers_.size(), 1u);
  EXPECT_EQ(losers_[0].payload[0], 2);
}

TEST_F(ChunkCompetitions, DisplaceTheKeptChunkForAPreferredCandidate) {
  Rules::candidatePreferred = true;
  EXPECT_EQ(Enter(1, {1}), 0);
  EXPECT_EQ(Enter(1, {2}), 0);
  EXPECT_EQ(Kept(), 2);
  ASSERT_EQ(losers_.size(), 1u);
  EXPECT_EQ(losers_[0].payload[0], 1);
}

TEST_F(ChunkCompetitions, LetAHigherTypeWinWithoutComparing) {
  EXPECT_EQ(Enter(0x20000, {1}), 0);
  EXPECT_EQ(Enter(0x40000, {2}), 0);
  EXPECT_EQ(Kept(), 2);
  EXPECT_EQ(Rules::comparisons, 0);
  EXPECT_EQ(Enter(0x20000, {3}), 0);
  EXPECT_EQ(Kept(), 2);
  EXPECT_EQ(Rules::comparisons, 1);
}

TEST_F(ChunkCompetitions, RejectWhatIsNotEligibleAndSaySo) {
  for (const HRESULT code : {HRESULT{1}, HRESULT{7}, HRESULT{-5}}) {
    Rules::eligible = code;
    EXPECT_EQ(Enter(1, {1}), code);
    EXPECT_TRUE(competition_.GetKept().IsEmpty());
  }
  EXPECT_EQ(losers_.size(), 3u);
}

TEST_F(ChunkCompetitions, DropLosersWithoutAPayload) {
  EXPECT_EQ(Enter(1, {1}), 0);
  EXPECT_EQ(Enter(1, {}), 0);
  EXPECT_TRUE(losers_.empty());
}

TEST_F(ChunkCompetitions, TakeAnEmptyWinnerForNone) {
  EXPECT_EQ(Enter(5, {}), 0);
  EXPECT_EQ(Enter(1, {1}), 0);
  EXPECT_EQ(Kept(), 1);
  EXPECT_EQ(Rules::comparisons, 0);
  EXPECT_TRUE(losers_.empty());
}

TEST_F(ChunkCompetitions, NeedNoListOfLosers) {
  EXPECT_EQ(competition_.Enter<Rules>(OOCIndexChunk(1, {1}), nullptr), 0);
  EXPECT_EQ(competition_.Enter<Rules>(OOCIndexChunk(1, {2}), nullptr), 0);
  EXPECT_EQ(Kept(), 1);
}

}  // namespace
