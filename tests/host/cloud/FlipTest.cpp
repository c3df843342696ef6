// Flips every byte of a small repository in turn: none goes unnoticed, none gives a wrong answer.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <map>
#include <set>

#include "OOCPointCloud/support/Bytes.h"
#include "host/cloud/Verify.h"
#include "host/lod/LodTree.h"
#include "host/select/Select.h"
#include "tests/support/CloudFingerprint.h"
#include "tests/support/ScanFolder.h"
#include "tests/support/SecondIteration.h"
#include "tests/support/TableEntries.h"

namespace tarnhost {
namespace {

namespace chunk_type = oocpc::chunk_type;
namespace result = oocpc::result;
using Bytes = std::vector<std::uint8_t>;
using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::LasBuilder;

#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__) || defined(_WIN32)
constexpr std::size_t kStride = 31;  // sanitizers take their time, and so does wine
#else
constexpr std::size_t kStride = 1;
#endif

constexpr std::uint32_t kPoints = 70;

/// A repository in memory with every type of values, a dictionary, and two update iterations.
class SmallCloud {
 public:
  SmallCloud() {
    Import();
    AddColumns();
    EXPECT_TRUE(oocpctest::IsOk(oocpctest::IterationAppender::AppendToMemory(streams_)));
  }

  [[nodiscard]] OOCPCMemoryStreams& Streams() { return *streams_; }
  [[nodiscard]] std::unique_ptr<OOCPCStreamRepository> Open() const {
    return std::make_unique<OOCPCMemoryRepository>(streams_);
  }
  /// Calls `use` while one byte is altered.
  template <typename Use>
  void WithFlip(Bytes& stream, std::size_t at, const Use& use) {
    const auto mask = static_cast<std::uint8_t>(1u << at % 8);
    stream[at] ^= mask;
    use();
    stream[at] ^= mask;
  }

 private:
  void Import() {
    LasBuilder builder;
    builder.format = 3;
    builder.pointCount = kPoints;
    auto file = builder.Build();
    // Most on a plane, so that leaves have several levels.
    auto positions = oocpctest::RandomPositions(kPoints, 1000000);
    for (auto& position : positions) position[2] = 5;
    oocpctest::PlacePoints(file, positions);
    ImportOptions options;
    options.inputs = {folder_.Add("scan.las", file)};
    options.timePoint = 7;
    ImportReport report;
    EXPECT_TRUE(oocpctest::IsOk(ImportIntoStore(
        options, std::make_unique<OOCPCMemoryStreamStore>(streams_), folder_.Path(), report)));
    EXPECT_EQ(report.blockCount, 1u);
  }

  /// Columns of all types, with values that the several encodings are good for.
  void AddColumns() {
    OOCPCCatalogue catalogue;
    std::unique_ptr<OOCPCRepositoryWriter> writer;
    ASSERT_EQ(OOCPCRepositoryWriter::OpenExisting(
                  std::make_unique<OOCPCMemoryStreamStore>(streams_), catalogue, writer),
              result::kOk);
    // Column ids are consecutive, the positions' being 0.
    auto id = static_cast<std::uint32_t>(
        std::ranges::count(catalogue.chunks, chunk_type::kStaticMetaData, &OOCIndexChunk::type));
    for (std::uint8_t type = 1; type <= 11; ++type) {
      const ColumnType column{static_cast<ValueType>(type), std::uint8_t(type == 11 ? 1 : 2)};
      Bytes values;
      for (std::uint32_t i = 0; i < kPoints * column.components; ++i)
        AppendValue(column, i, values);
      const oocpc::EncodedBlock block = oocpc::EncodeBlock(column, values);
      encodings_.insert(static_cast<int>(block.entry.encoding));
      ASSERT_EQ(writer->AppendBlock(++id, block, 0), result::kOk);
      const std::string name = "type_" + std::to_string(type);
      catalogue.chunks.emplace_back(
          chunk_type::kStaticMetaData,
          OOCPCMetaDataDescription{name, column, id, "of a type"}.EncodeChunk());
    }
    Bytes dictionary;
    for (const char* text : {"north", "south"}) {
      OOCPCStringRepositoryContainer::EncodeString(text, dictionary);
    }
    std::uint64_t position = 0;
    ASSERT_EQ(writer->Append(OOCPCStringRepositoryContainer::kStreamName, dictionary, position),
              result::kOk);
    catalogue.chunks.emplace_back(chunk_type::kStringRepository,
                                  OOCPCStringRepositoryContainer::EncodeChunk(2));
    ASSERT_EQ(writer->Commit(catalogue), result::kOk);
  }

  static void AppendValue(ColumnType column, std::uint32_t number, Bytes& out) {
    switch (column.value) {
      case ValueType::kUInt8:
        return oocpc::AppendLittleEndian(out, std::uint8_t{5});
      case ValueType::kFloat:
        return oocpc::AppendLittleEndian(out, 0.25F * static_cast<float>(number));
      case ValueType::kDouble:
        return oocpc::AppendLittleEndian(out, 1e9 + 0.001 * number * number);
      case ValueType::kString:
        return oocpc::AppendLittleEndian(out, std::uint32_t{number / 40});
      default:
        break;
    }
    const std::size_t width = oocpc::ValueBytes(column) / column.components;
    const std::uint64_t value = number * 0x9E3779B97F4A7C15u >> (number % 3 * 20);
    for (std::size_t i = 0; i < width; ++i) out.push_back(std::uint8_t(value >> (8 * i)));
  }

  oocpctest::ScanFolder folder_;
  std::shared_ptr<OOCPCMemoryStreams> streams_ = std::make_shared<OOCPCMemoryStreams>();

 public:
  std::set<int> encodings_;
};

/// What a cloud answers, part by part: facts, or the errors instead of them.
using Answers = std::map<std::string, std::string>;

std::string LevelsOf(Cloud& cloud, std::uint64_t iteration) {
  std::unique_ptr<LodTree> tree;
  LodNode root;
  Outcome outcome = LodTree::Open(cloud, iteration, tree);
  if (outcome.Ok()) outcome = tree->ReadRoot(root);
  std::string text;
  std::vector<LodNode> waiting{root};
  while (outcome.Ok() && !waiting.empty()) {
    const LodNode node = waiting.back();
    waiting.pop_back();
    text += std::to_string(node.level) + ":" + std::to_string(node.points.first) + "+" +
            std::to_string(node.points.count) + " ";
    std::vector<LodNode> children;
    outcome = tree->ReadChildren(node, children);
    waiting.insert(waiting.end(), children.begin(), children.end());
  }
  if (!outcome.Ok()) return "error";
  return text + std::to_string(tree->GetSpacing(0));
}

std::string CountOf(Cloud& cloud, const std::string& text) {
  SelectOptions options;
  options.text = text;
  SelectReport report;
  const Outcome outcome = Select(cloud, options, nullptr, report);
  return outcome.Ok() ? std::to_string(report.selected) : "error";
}

Answers Ask(const SmallCloud& small) {
  std::unique_ptr<Cloud> cloud;
  if (!Cloud::Attach(small.Open(), "memory", cloud).Ok()) return {{"opened", "error"}};
  Answers answers{{"opened", std::to_string(cloud->GetIterationCount())}};
  for (std::uint64_t i = 0; i < cloud->GetIterationCount(); ++i) {
    std::string points = oocpctest::FingerprintOf(*cloud, i);
    if (points.starts_with("error")) points = "error";
    answers["points " + std::to_string(i)] = points;
    answers["levels " + std::to_string(i)] = LevelsOf(*cloud, i);
    OOCPCUpdateIteration record;
    answers["record " + std::to_string(i)] =
        cloud->ReadIteration(i, record).Ok()
            ? std::to_string(record.timePoint) + " " + std::to_string(record.pointCount)
            : "error";
  }
  const std::string number = "#num{type=double}(\"x\", <, 5000)";
  const std::string text = "#num{type=string}(\"type_11\", ==, \"north\")";
  answers["number"] = CountOf(*cloud, number);
  answers["string"] = CountOf(*cloud, text);
  answers["both"] = CountOf(*cloud, "#and(" + number + ", " + text + ")");
  for (const SourceRecord& source : cloud->GetSources()) {
    answers["source"] += source.fileName + std::to_string(oocpc::Crc32c(source.leadingBytes)) +
                         std::to_string(oocpc::Crc32c(source.trailingBytes));
  }
  return answers;
}

VerifyReport Verified(const SmallCloud& small) {
  VerifyReport report;
  const auto open = [&](std::unique_ptr<OOCPCStreamRepository>& repository) {
    repository = small.Open();
    return result::kOk;
  };
  EXPECT_TRUE(oocpctest::IsOk(VerifyStreams(open, "memory", {}, report)));
  return report;
}

/// Bytes of the record of a stream that begins at `fault.offsetBytes`, at most.
std::uint64_t LengthOfRecord(const std::string& stream, const Bytes& bytes) {
  if (stream.ends_with("_BLOCKS")) return oocpctest::EntryBytes(bytes);
  if (stream == OOCPCAcceleratorContainer::kStreamName) return OOCPCOctreeAcceleratorNode::kBytes;
  if (stream == OOCPCUpdateIterationContainer::kStreamName) {
    return OOCPCUpdateIteration::kRecordBytes;
  }
  if (stream.starts_with("DEF_OCTREE_LOD_NODES_")) return OOCPCLODNodeRecord::kBytes;
  return bytes.size();
}

class EveryByte : public ::testing::Test {
 protected:
  void Check(const std::string& name, Bytes& bytes, std::uint64_t recordBytes, std::size_t at) {
    small_.WithFlip(bytes, at, [&] {
      const std::string told = name + " byte " + std::to_string(at);
      const VerifyReport report = Verified(small_);
      ASSERT_EQ(report.faultCount, 1u) << told << Told(report);
      const Fault& fault = report.faults[0];
      EXPECT_EQ(fault.stream, name) << told << Told(report);
      EXPECT_TRUE(oocpc::Failed(fault.code)) << told;
      EXPECT_LE(fault.offsetBytes, at) << told;
      EXPECT_LT(at, fault.offsetBytes + recordBytes) << told;
      for (const auto& [question, answer] : Ask(small_)) {
        EXPECT_TRUE(answer == "error" || answer == right_.at(question))
            << told << ": " << question << " gives " << answer;
      }
    });
  }

  static std::string Told(const VerifyReport& report) {
    std::string text;
    for (const Fault& fault : report.faults) {
      text += "\n" + fault.stream + " " + std::to_string(fault.record) + " at " +
              std::to_string(fault.offsetBytes) + ": " + fault.what;
    }
    return text;
  }

  void CheckAll(const std::string& name, Bytes& bytes) {
    const std::uint64_t recordBytes = LengthOfRecord(name, bytes);
    for (std::size_t at = 0; at < bytes.size() && !HasFailure(); at += kStride) {
      Check(name, bytes, recordBytes, at);
    }
  }

  SmallCloud small_;
  Answers right_ = Ask(small_);
};

TEST_F(EveryByte, IsOneOfASoundRepositoryWithEverything) {
  EXPECT_EQ(Verified(small_).faultCount, 0u) << Told(Verified(small_));
  for (const auto& [question, answer] : right_) EXPECT_NE(answer, "error") << question;
  EXPECT_EQ(right_.at("string"), "40");
  EXPECT_NE(right_.at("number"), "0");
  EXPECT_GE(small_.encodings_.size(), 4u);
}

TEST_F(EveryByte, OfTheMainStreamIsGuarded) { CheckAll("main", *small_.Streams().main); }

TEST_F(EveryByte, OfAllOtherStreamsIsGuarded) {
  std::size_t total = 0;
  for (auto& [name, bytes] : small_.Streams().named) {
    total += bytes->size();
    CheckAll(name, *bytes);
  }
  EXPECT_GT(total, 15000u);
  EXPECT_EQ(Verified(small_).faultCount, 0u) << "every byte was put back";
}

}  // namespace
}  // namespace tarnhost
