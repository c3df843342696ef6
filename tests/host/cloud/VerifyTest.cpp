// Everything that verification has to find, and that it finds nothing where all is well.
#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>

#include "host/cloud/Verify.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/TableEntries.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using oocpctest::IsOk;
using oocpctest::LasBuilder;
using oocpctest::ScanFolder;
using oocpctest::ScanOf;
using Bytes = std::vector<std::uint8_t>;
using Node = OOCPCOctreeAcceleratorNode;

VerifyReport Verified(const std::filesystem::path& repository) {
  VerifyReport report;
  EXPECT_TRUE(IsOk(VerifyRepository(repository, {}, report)));
  return report;
}

std::string Told(const VerifyReport& report) {
  std::string text;
  for (const Fault& fault : report.faults) {
    text += fault.stream + " " + std::to_string(fault.record) + ": " + fault.what + "\n";
  }
  return text;
}

TEST(Verify, FindsNothingInASoundRepositoryAndSaysWhatItRead) {
  const ScanFolder folder;
  const ImportReport made = folder.ImportBytes(ScanOf(30000));
  const VerifyReport report = Verified(folder.Repository());
  EXPECT_EQ(report.faultCount, 0u) << Told(report);
  EXPECT_EQ(report.points, 30000u);
  EXPECT_EQ(report.nodes, made.nodeCount);
  EXPECT_EQ(report.blocks, made.blockCount * 15);
  EXPECT_EQ(report.bytes, made.storedBytes);
}

TEST(Verify, FailsWhereThereIsNoRepository) {
  const ScanFolder folder;
  VerifyReport report;
  EXPECT_EQ(VerifyRepository(folder.Path(), {}, report).code, result::kNotARepository);
}

TEST(Verify, StopsWhenAsked) {
  const ScanFolder folder;
  folder.ImportBytes(ScanOf(10));
  VerifyReport report;
  const auto stop = [](const ProgressReport&) { return false; };
  EXPECT_EQ(VerifyRepository(folder.Repository(), stop, report).code, result::kStopped);
}

/// True when the damage is told: by the report, or by the outcome.
bool IsTold(const std::filesystem::path& repository) {
  VerifyReport report;
  const Outcome outcome = VerifyRepository(repository, {}, report);
  if (!outcome.Ok()) return !outcome.what.empty();
  return report.faultCount > 0 && !report.faults.at(0).what.empty();
}

class DamagedStreams : public ::testing::Test {
 protected:
  DamagedStreams() {
    LasBuilder builder;
    builder.format = 7;
    builder.pointCount = 60;
    builder.extendedRecords.push_back({"LASF_Spec", 99, Bytes(30, 7)});
    auto file = builder.Build();
    oocpctest::PlacePoints(file, oocpctest::RandomPositions(60, 1000000));
    folder_.ImportBytes(file);
    for (const std::string& name : ScanFolder::ListOf(folder_.Repository())) {
      if (name == OOCPCFolderStreamStore::kLockFileName) continue;
      streams_.emplace_back(name, oocpctest::ReadFile(Place(name)));
    }
  }
  [[nodiscard]] std::filesystem::path Place(const std::string& name) const {
    return folder_.Repository() / name;
  }
  void ExpectTold(const std::string& name, const Bytes& altered, const std::string& how) const {
    oocpctest::WriteFile(Place(name), altered);
    EXPECT_TRUE(IsTold(folder_.Repository())) << name << " " << how;
  }

  ScanFolder folder_;
  std::vector<std::pair<std::string, Bytes>> streams_;
};

TEST_F(DamagedStreams, AreToldWhenMissing) {
  for (const auto& [name, bytes] : streams_) {
    std::filesystem::remove(Place(name));
    EXPECT_TRUE(IsTold(folder_.Repository())) << name;
    oocpctest::WriteFile(Place(name), bytes);
  }
  EXPECT_EQ(Verified(folder_.Repository()).faultCount, 0u);
}

TEST_F(DamagedStreams, AreToldWhenCut) {
  for (const auto& [name, bytes] : streams_) {
    for (const std::size_t length :
         {std::size_t{0}, std::size_t{1}, bytes.size() / 2, bytes.size() - 1}) {
      if (length >= bytes.size()) continue;
      const Bytes cut(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(length));
      ExpectTold(name, cut, "cut to " + std::to_string(length));
    }
    oocpctest::WriteFile(Place(name), bytes);
  }
}

#if defined(_WIN32)
constexpr std::size_t kMainStep = 37;  // wine takes its time
constexpr std::size_t kStepsOfOthers = 3;
#else
constexpr std::size_t kMainStep = 5;
constexpr std::size_t kStepsOfOthers = 12;
#endif

TEST_F(DamagedStreams, AreToldWhenABitIsFlipped) {
  for (const auto& [name, bytes] : streams_) {
    if (bytes.empty()) continue;
    const std::size_t step =
        name == "main" ? kMainStep : std::max<std::size_t>(bytes.size() / kStepsOfOthers, 1);
    for (std::size_t at = 0; at < bytes.size(); at += step) {
      Bytes altered = bytes;
      altered[at] ^= static_cast<std::uint8_t>(1u << at % 8);
      ExpectTold(name, altered, "flipped at " + std::to_string(at));
    }
    Bytes altered = bytes;
    altered.back() ^= 0x80;
    ExpectTold(name, altered, "flipped at the end");
    oocpctest::WriteFile(Place(name), bytes);
  }
}

/// Alters records whose checksums stay right, as a faulty writer would leave them.
class ContradictoryTree : public ::testing::Test {
 protected:
  ContradictoryTree() {
    LasBuilder builder;
    builder.pointCount = 30000;
    auto file = builder.Build();
    oocpctest::PlacePoints(file, oocpctest::RandomPositions(30000, 1000000));
    folder_.ImportBytes(file);
    nodes_ = oocpctest::ReadFile(Place("DEF_OCTREE"));
    root_ = nodes_.size() / Node::kBytes - 1;
  }

  [[nodiscard]] std::filesystem::path Place(const std::string& name) const {
    return folder_.Repository() / name;
  }
  template <typename Change>
  void ChangeNode(std::uint64_t index, const Change& change) {
    std::uint8_t bytes[Node::kBytes];
    const std::size_t at = index * Node::kBytes;
    std::copy_n(nodes_.begin() + static_cast<std::ptrdiff_t>(at), Node::kBytes, bytes);
    Node node;
    ASSERT_EQ(Node::Decode(bytes, node), result::kOk);
    change(node);
    Bytes again;
    node.Encode(again);
    std::copy(again.begin(), again.end(), nodes_.begin() + static_cast<std::ptrdiff_t>(at));
    oocpctest::WriteFile(Place("DEF_OCTREE"), nodes_);
  }
  void AppendNodes(const Bytes& nodes) const {
    std::unique_ptr<OOCPCFolderStreamStore> store;
    ASSERT_EQ(OOCPCFolderStreamStore::Open(folder_.Repository(), store), result::kOk);
    OOCPCCatalogue catalogue;
    std::unique_ptr<OOCPCRepositoryWriter> writer;
    ASSERT_EQ(OOCPCRepositoryWriter::OpenExisting(std::move(store), catalogue, writer),
              result::kOk);
    std::uint64_t position = 0;
    ASSERT_EQ(writer->Append("DEF_OCTREE", nodes, position), result::kOk);
    ASSERT_EQ(writer->Commit(catalogue), result::kOk);
  }
  template <typename Change>
  void ChangeEntry(const std::string& column, const Change& change) {
    Bytes table = oocpctest::ReadFile(Place(column + "_BLOCKS"));
    oocpc::BlockEntry entry;
    ASSERT_TRUE(oocpctest::DecodeEntry(table, 0, entry));
    change(entry);
    Bytes again;
    entry.Encode(again);
    std::copy(again.begin(), again.end(), table.begin());
    oocpctest::WriteFile(Place(column + "_BLOCKS"), table);
  }
  template <typename Change>
  void ChangeIteration(const Change& change) {
    const Bytes bytes = oocpctest::ReadFile(Place("DEF_UPDATE_ITERATIONS"));
    OOCPCUpdateIteration record;
    ASSERT_EQ(record.Unstream(1, bytes.data(), static_cast<std::uint16_t>(bytes.size())),
              result::kOk);
    change(record);
    Bytes again;
    record.Stream(again);
    oocpctest::WriteFile(Place("DEF_UPDATE_ITERATIONS"), again);
  }
  void ExpectFault(const std::string& stream, const std::string& what) const {
    const VerifyReport report = Verified(folder_.Repository());
    EXPECT_GT(report.faultCount, 0u);
    for (const Fault& fault : report.faults) {
      if (fault.stream == stream && fault.what.find(what) != std::string::npos) return;
    }
    ADD_FAILURE() << "expected of " << stream << ": " << what << "\nfound:\n" << Told(report);
  }

  ScanFolder folder_;
  Bytes nodes_;
  std::uint64_t root_ = 0;
};

TEST_F(ContradictoryTree, IsToldWhenALevelIsWrong) {
  ChangeNode(0, [](Node& node) { node.level = 2; });
  ExpectFault("DEF_OCTREE", "its level or its place");
}

TEST_F(ContradictoryTree, IsToldWhenItIsDeeperThanAnyTree) {
  constexpr std::uint64_t kLevels = 200'000;
  const std::uint64_t first = root_ + 1;
  Bytes chain;
  for (std::uint64_t i = 0; i < kLevels; ++i) {
    Node node;
    node.level = static_cast<std::uint32_t>(kLevels - 1 - i);
    if (i > 0) node.children[0] = first + i - 1;
    node.Encode(chain);
  }
  AppendNodes(chain);
  ChangeIteration([&](OOCPCUpdateIteration& record) {
    record.acceleratorPayload = {0, (first + kLevels) * Node::kBytes};
  });
  ExpectFault("DEF_OCTREE", "node " + std::to_string(first));
}

TEST_F(ContradictoryTree, IsToldWhenACellIsWrong) {
  ChangeNode(0, [](Node& node) { node.indexInLevel ^= 1; });
  ExpectFault("DEF_OCTREE", "its level or its place");
}

TEST_F(ContradictoryTree, IsToldWhenTheRootIsNotTheWholeCube) {
  ChangeNode(root_, [](Node& node) { node.indexInLevel = 1; });
  ExpectFault("DEF_OCTREE", "the root is not the whole cube");
}

TEST_F(ContradictoryTree, IsToldWhenPointsDoNotAddUp) {
  ChangeNode(0, [](Node& node) { ++node.subtreePointCount; });
  ExpectFault("DEF_OCTREE", "do not add up");
}

TEST_F(ContradictoryTree, IsToldWhenABlockHasAnotherNumberOfPoints) {
  ChangeNode(0, [](Node& node) {
    --node.ownPointCount;
    --node.subtreePointCount;
  });
  ExpectFault("DEF_OCTREE", "its block has another number of points");
}

TEST_F(ContradictoryTree, IsToldWhenTwoNodesOwnABlock) {
  ChangeNode(0, [](Node& node) { node.blockId = 1; });
  ExpectFault("DEF_OCTREE", "own block 1");
}

TEST_F(ContradictoryTree, IsToldWhenABlockDoesNotExist) {
  ChangeNode(0, [](Node& node) { node.blockId = 1000; });
  ExpectFault("DEF_OCTREE", "its block does not exist");
}

TEST_F(ContradictoryTree, IsToldWhenANodeWithoutPointsOwnsABlock) {
  ChangeNode(0, [](Node& node) { node.ownPointCount = 0; });
  ExpectFault("DEF_OCTREE", "owns a block, but no points");
}

TEST_F(ContradictoryTree, IsToldWhenPointsAreNumberedAnew) {
  ChangeNode(root_, [](Node& node) { --node.firstPoint; });
  ExpectFault("DEF_OCTREE", "its first point");
}

TEST_F(ContradictoryTree, IsToldWhenABoxIsTooSmallOrTooLarge) {
  for (const double by : {0.5, -0.5}) {
    ChangeNode(0, [&](Node& node) { node.corner1[1] += by; });
    ExpectFault("DEF_OCTREE", "not the tight box");
    ChangeNode(0, [&](Node& node) { node.corner1[1] -= by; });
  }
  EXPECT_EQ(Verified(folder_.Repository()).faultCount, 0u);
}

TEST_F(ContradictoryTree, IsToldWhenANodeIsLeftOut) {
  ChangeNode(root_, [](Node& node) { node.children[0] = Node::kNoChild; });
  ExpectFault("DEF_OCTREE", "belong to no node");
}

TEST_F(ContradictoryTree, IsToldWhenANodeHasTwoParentLinks) {
  ChangeNode(root_, [](Node& node) { node.children[1] = node.children[0]; });
  ExpectFault("DEF_OCTREE", "several parents");
}

TEST_F(ContradictoryTree, IsToldWhenAChildComesAfterItsParent) {
  ChangeNode(0, [&](Node& node) { node.children[0] = root_; });
  const VerifyReport report = Verified(folder_.Repository());
  ASSERT_GT(report.faultCount, 0u);
  EXPECT_EQ(report.faults[0].code, result::kBadRecord);
  EXPECT_EQ(report.faults[0].stream, "DEF_OCTREE");
}

TEST_F(ContradictoryTree, IsToldWhenAnIterationStatesOtherPoints) {
  ChangeIteration([](OOCPCUpdateIteration& iteration) { ++iteration.pointCount; });
  ExpectFault("DEF_OCTREE", "another number of points than the iteration states");
}

TEST_F(ContradictoryTree, IsToldWhenAnIterationUsesBlocksBeyondItsOwn) {
  ChangeIteration([](OOCPCUpdateIteration& iteration) { --iteration.blockCount; });
  ExpectFault("DEF_UPDATE_ITERATIONS", "not one of its own");
}

TEST_F(ContradictoryTree, IsToldWhenAnIterationHasNoNodes) {
  ChangeIteration([](OOCPCUpdateIteration& iteration) { iteration.acceleratorPayload = {0, 0}; });
  EXPECT_GT(Verified(folder_.Repository()).faultCount, 0u);
}

TEST_F(ContradictoryTree, IsToldWhenATableStatesAnotherRange) {
  ChangeEntry("DEF_COLUMN_1", [](oocpc::BlockEntry& entry) { ++entry.minimumBits[0]; });
  ExpectFault("DEF_COLUMN_1_BLOCKS", "another range");
}

TEST_F(ContradictoryTree, IsToldWhenAColumnHasAnotherNumberOfValues) {
  ChangeEntry("DEF_COLUMN_7", [](oocpc::BlockEntry& entry) { --entry.valueCount; });
  EXPECT_GT(Verified(folder_.Repository()).faultCount, 0u);
}

}  // namespace
}  // namespace tarnhost
