// What verification has to find in the levels of detail.
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <functional>
#include <limits>

#include "host/cloud/Verify.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/TableEntries.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::ScanFolder;
using Bytes = std::vector<std::uint8_t>;
using Record = OOCPCLODNodeRecord;

constexpr const char* kBlocks = "DEF_LOD";
constexpr const char* kNodes = "DEF_OCTREE_LOD_NODES_0";

/// A sound repository with a root and leaves of several levels, to be altered in such a way that
/// checksums stay right, as a faulty writer would leave it.
class ContradictoryLod : public ::testing::Test {
 protected:
  ContradictoryLod() {
    auto file = oocpctest::ScanOf(30000);
    auto positions = oocpctest::RandomPositions(30000, 1000000);
    for (auto& position : positions) position[2] = 0;  // surfaces have several levels in a leaf
    oocpctest::PlacePoints(file, positions);
    folder_.ImportBytes(file);
    EXPECT_EQ(block_.Decode(oocpctest::ReadFile(Place(kBlocks))), result::kOk);
    const Bytes bytes = oocpctest::ReadFile(Place(kNodes));
    for (std::size_t at = 0; at + Record::kBytes <= bytes.size(); at += Record::kBytes) {
      std::uint8_t stored[Record::kBytes];
      std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), sizeof(stored), stored);
      records_.emplace_back();
      EXPECT_EQ(Record::Decode(stored, records_.back()), result::kOk);
    }
    EXPECT_EQ(records_.size(), block_.entries.size());
    for (finer_ = 0; finer_ < records_.size() && records_[finer_].levelsInLeaf == 0;) ++finer_;
    EXPECT_LT(finer_, records_.size()) << "a leaf has a finer level";
  }

  [[nodiscard]] std::filesystem::path Place(const std::string& name) const {
    return folder_.Repository() / name;
  }
  /// Writes the block and the records as they are now.
  void Write() const {
    Bytes block;
    block_.Encode(block);
    oocpctest::WriteFile(Place(kBlocks), block);
    Bytes records;
    for (const Record& record : records_) record.Encode(records);
    oocpctest::WriteFile(Place(kNodes), records);
  }
  void ChangeIteration(const std::function<void(OOCPCUpdateIteration&)>& change) const {
    const Bytes bytes = oocpctest::ReadFile(Place("DEF_UPDATE_ITERATIONS"));
    OOCPCUpdateIteration record;
    ASSERT_EQ(record.Unstream(1, bytes.data(), static_cast<std::uint16_t>(bytes.size())),
              result::kOk);
    change(record);
    Bytes again;
    record.Stream(again);
    oocpctest::WriteFile(Place("DEF_UPDATE_ITERATIONS"), again);
  }
  /// Verifies and gives the first fault of the stream that says so.
  Fault FaultOf(const std::string& stream, const std::string& what) const {
    VerifyReport report;
    EXPECT_TRUE(IsOk(VerifyRepository(folder_.Repository(), {}, report)));
    EXPECT_GT(report.faultCount, 0u);
    std::string told;
    for (const Fault& fault : report.faults) {
      if (fault.stream == stream && fault.what.find(what) != std::string::npos) return fault;
      told += fault.stream + " " + std::to_string(fault.record) + ": " + fault.what + "\n";
    }
    ADD_FAILURE() << "expected of " << stream << ": " << what << "\nfound:\n" << told;
    return {};
  }
  /// Writes and expects a fault of one record.
  void ExpectRecordFault(std::size_t number, const std::string& what) const {
    Write();
    const Fault fault = FaultOf(kNodes, what);
    EXPECT_EQ(fault.record, number);
    EXPECT_EQ(fault.offsetBytes, number * Record::kBytes);
    EXPECT_TRUE(oocpc::Failed(fault.code));
  }

  ScanFolder folder_;
  OOCPCLODBlock block_;
  std::vector<Record> records_;
  std::size_t finer_ = 0;  ///< number of a record of a leaf's finer level
};

TEST_F(ContradictoryLod, IsSoundAsItIsWritten) {
  Write();
  VerifyReport report;
  ASSERT_TRUE(IsOk(VerifyRepository(folder_.Repository(), {}, report)));
  EXPECT_EQ(report.faultCount, 0u);
}

TEST_F(ContradictoryLod, IsNotMissedInARepositoryWithoutLevels) {
  ChangeIteration([](OOCPCUpdateIteration& iteration) { iteration.lodPayload = {0, 0}; });
  VerifyReport report;
  ASSERT_TRUE(IsOk(VerifyRepository(folder_.Repository(), {}, report)));
  EXPECT_EQ(report.faultCount, 0u);
}

TEST_F(ContradictoryLod, IsToldWhenThePayloadLiesOutsideTheStream) {
  ChangeIteration([](OOCPCUpdateIteration& iteration) { ++iteration.lodPayload.endBytes; });
  EXPECT_EQ(FaultOf(kBlocks, "outside the stream").code, result::kStreamShort);
}

TEST_F(ContradictoryLod, IsToldWhenThePayloadIsNotTheBlock) {
  ChangeIteration([](OOCPCUpdateIteration& iteration) { --iteration.lodPayload.endBytes; });
  EXPECT_EQ(FaultOf(kBlocks, "its block is not sound").code, result::kLodLengthMismatch);
}

TEST_F(ContradictoryLod, IsToldWhenTheBlockIsAltered) {
  Bytes block = oocpctest::ReadFile(Place(kBlocks));
  block[40] ^= 1;
  oocpctest::WriteFile(Place(kBlocks), block);
  EXPECT_EQ(FaultOf(kBlocks, "its block is not sound").code, result::kChecksumMismatch);
}

TEST_F(ContradictoryLod, IsToldWhenARecordIsAltered) {
  Bytes records = oocpctest::ReadFile(Place(kNodes));
  records[Record::kBytes + 60] ^= 1;
  oocpctest::WriteFile(Place(kNodes), records);
  const Fault fault = FaultOf(kNodes, "the record is not sound");
  EXPECT_EQ(fault.code, result::kChecksumMismatch);
  EXPECT_EQ(fault.record, 1u);
  EXPECT_EQ(fault.offsetBytes, Record::kBytes);
}

TEST_F(ContradictoryLod, IsToldWhenTheBlockNamesAnotherNodeStream) {
  block_.nodeStreamId = 5;
  Write();
  EXPECT_EQ(FaultOf(kBlocks, "of another iteration").offsetBytes, 0u);
  EXPECT_EQ(FaultOf("DEF_OCTREE_LOD_NODES_5", "not listed").code, result::kStreamMissing);
}

TEST_F(ContradictoryLod, IsToldWhenTheBlockStatesNoSpacing) {
  for (const double scale : {0.0, -1.0, std::numeric_limits<double>::infinity()}) {
    block_.scale = scale;
    Write();
    FaultOf(kBlocks, "states no spacing");
  }
}

TEST_F(ContradictoryLod, IsToldWhenTheBlockStatesOtherLevels) {
  ++block_.levelCount;
  Write();
  FaultOf(kBlocks, "another number of levels");
}

TEST_F(ContradictoryLod, IsToldWhenTheBlockHasFewerNodes) {
  block_.entries.pop_back();
  Write();
  // The block is shorter now, and the iteration has to say so.
  ChangeIteration([](OOCPCUpdateIteration& iteration) { iteration.lodPayload.endBytes -= 9; });
  Bytes padded = oocpctest::ReadFile(Place(kBlocks));
  padded.resize(padded.size() + 9);
  oocpctest::WriteFile(Place(kBlocks), padded);
  EXPECT_EQ(FaultOf(kNodes, "another length").code, result::kLodLengthMismatch);
  FaultOf(kNodes, "do not together have each of its points once");
}

TEST_F(ContradictoryLod, IsToldWhenAnEntryDiffersFromItsRecord) {
  ++block_.entries[2].nodeIndex;
  ExpectRecordFault(2, "its entry in the block says something else");
  --block_.entries[2].nodeIndex;
  block_.entries[3].childMask ^= 0x80;
  ExpectRecordFault(3, "its entry in the block says something else");
}

TEST_F(ContradictoryLod, IsToldWhenTwoNodesOfALevelHaveOneIndex) {
  ASSERT_EQ(records_[1].level, records_[2].level);
  records_[2].indexInLevel = records_[1].indexInLevel;
  ExpectRecordFault(2, "has another node of its index");
}

TEST_F(ContradictoryLod, IsToldWhenAnIndexIsWrong) {
  records_[1].indexInLevel += 100;
  ExpectRecordFault(1, "its index is not that of its octree node");
}

TEST_F(ContradictoryLod, IsToldWhenALevelIsWrong) {
  ++records_.back().level;
  ExpectRecordFault(records_.size() - 1, "its level is not one of its octree node");
  --records_.back().level;
  ++records_[0].levelsInLeaf;
  ExpectRecordFault(0, "its level is not one of its octree node");
}

TEST_F(ContradictoryLod, IsToldWhenAParentIsWrong) {
  records_[1].parentIndex = 3;
  ExpectRecordFault(1, "its parent is not that of its octree node");
  records_[1].parentIndex = 0;
  ++records_[finer_].parentIndex;
  ExpectRecordFault(finer_, "its parent is not that of its octree node");
}

TEST_F(ContradictoryLod, IsToldWhenABoxIsWrong) {
  records_[1].corner1[2] -= 1;
  ExpectRecordFault(1, "its box");
  records_[1].corner1[2] += 1;
  records_[2].corner2[0] += 1;
  ExpectRecordFault(2, "its box");
}

TEST_F(ContradictoryLod, IsToldWhenABlockIsWrong) {
  ++records_[1].blockId;
  ExpectRecordFault(1, "its block is not that of its octree node");
}

TEST_F(ContradictoryLod, IsToldWhenAFirstPointIsWrong) {
  ++records_[1].firstPoint;
  ExpectRecordFault(1, "its first point");
}

TEST_F(ContradictoryLod, IsToldWhenAChildMaskIsWrong) {
  records_[0].childMask ^= 2;
  ExpectRecordFault(0, "its children");
}

TEST_F(ContradictoryLod, IsToldWhenPointsAreMissingOrThereTwice) {
  --records_[finer_].pointCount;
  Write();
  FaultOf(kNodes, "do not together have each of its points once");
  ++records_[finer_].pointCount;
  --records_[finer_].firstInBlock;
  --records_[finer_].firstPoint;
  Write();
  FaultOf(kNodes, "do not together have each of its points once");
}

TEST_F(ContradictoryLod, IsToldWhenLevelsAreOutOfOrder) {
  std::swap(records_[0], records_[1]);
  std::swap(block_.entries[0], block_.entries[1]);
  ExpectRecordFault(1, "behind a finer level");
}

TEST_F(ContradictoryLod, IsToldWhenAnOctreeNodeHasNoRecord) {
  const std::uint64_t left = records_[1].nodeIndex;
  records_[1].nodeIndex = records_[2].nodeIndex;
  for (std::size_t i = 2; i < records_.size(); ++i) {
    if (records_[i].nodeIndex == left) records_[i].nodeIndex = records_[2].nodeIndex;
  }
  Write();
  FaultOf(kNodes, "octree node " + std::to_string(left) + " has no level of detail");
}

TEST_F(ContradictoryLod, IsToldWhenARecordNamesNoOctreeNode) {
  records_[1].nodeIndex = 1000;
  ExpectRecordFault(1, "no such octree node");
}

TEST_F(ContradictoryLod, IsToldWhenAColumnIsNumberedAnew) {
  Bytes table = oocpctest::ReadFile(Place("DEF_COLUMN_2_BLOCKS"));
  oocpc::BlockEntry entry;
  ASSERT_TRUE(oocpctest::DecodeEntry(table, 1, entry));
  --entry.firstValue;
  Bytes again;
  entry.Encode(again);
  std::copy(again.begin(), again.end(), table.begin() + static_cast<std::ptrdiff_t>(again.size()));
  oocpctest::WriteFile(Place("DEF_COLUMN_2_BLOCKS"), table);
  VerifyReport report;
  ASSERT_TRUE(IsOk(VerifyRepository(folder_.Repository(), {}, report)));
  ASSERT_GE(report.faultCount, 1u);
  EXPECT_EQ(report.faults[0].what,
            "column return_number: the block's first value does not follow the blocks before");
  EXPECT_EQ(report.faults[0].record, 1u);
}

}  // namespace
}  // namespace tarnhost
