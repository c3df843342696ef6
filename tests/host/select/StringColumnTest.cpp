// Selections by strings, in a cloud put together by hand: no scan format brings strings yet.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "OOCPointCloud/support/Bytes.h"
#include "host/select/Sinks.h"
#include "tests/host/select/SelectFixture.h"
#include "tests/support/SmallRepository.h"

namespace {

namespace chunk_type = oocpc::chunk_type;
using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::ByteVector;
using oocpctest::Query;
using oocpctest::Succeeded;
using tarnhost::SelectReport;

constexpr ColumnType kStrings{ValueType::kString, 1};

/// A cloud of one node: a point on the x axis for each index, which names a string of `strings`.
class StringCloud {
 public:
  StringCloud(const std::vector<std::string>& strings, const std::vector<std::uint32_t>& indices) {
    const auto streams = std::make_shared<OOCPCMemoryStreams>();
    OOCPCRepositoryWriter writer(std::make_unique<OOCPCMemoryStreamStore>(streams));
    ByteVector positions;
    ByteVector values;
    for (std::uint32_t i = 0; i < indices.size(); ++i) {
      for (const std::uint32_t number : {i, 0u, 0u}) oocpc::AppendLittleEndian(positions, number);
      oocpc::AppendLittleEndian(values, indices[i]);
    }
    EXPECT_EQ(writer.AppendBlock(0, oocpc::EncodeBlock({ValueType::kInt32, 3}, positions), 0), 0);
    EXPECT_EQ(writer.AppendBlock(1, oocpc::EncodeBlock(kStrings, values), 0), 0);
    ByteVector dictionary;
    for (const std::string& text : strings) {
      OOCPCStringRepositoryContainer::EncodeString(text, dictionary);
    }
    Append(writer, OOCPCStringRepositoryContainer::kStreamName, dictionary);
    Append(writer, tarnhost::SourceRecord::kStreamName, {});
    WriteTree(writer, static_cast<std::uint32_t>(indices.size()));
    EXPECT_EQ(writer.Commit(Catalogue(strings.size())), 0);
    EXPECT_TRUE(Succeeded(tarnhost::Cloud::Attach(std::make_unique<OOCPCMemoryRepository>(streams),
                                                  "memory", cloud)));
  }

  std::unique_ptr<tarnhost::Cloud> cloud;

 private:
  static void Append(OOCPCRepositoryWriter& writer, const char* stream, const ByteVector& bytes) {
    std::uint64_t position = 0;
    EXPECT_EQ(writer.Append(stream, bytes, position), 0);
  }

  static void WriteTree(OOCPCRepositoryWriter& writer, std::uint32_t count) {
    OOCPCOctreeAcceleratorNode root;
    root.blockId = 0;
    root.ownPointCount = count;
    root.subtreePointCount = count;
    root.corner2 = {static_cast<double>(count - 1), 0, 0};
    ByteVector node;
    root.Encode(node);
    Append(writer, OOCPCAcceleratorContainer::kStreamName, node);
    OOCPCUpdateIteration iteration;
    iteration.acceleratorPayload = {0, node.size()};
    iteration.pointCount = count;
    iteration.addedPointCount = count;
    iteration.blockCount = 1;
    ByteVector record;
    iteration.Stream(record);
    Append(writer, OOCPCUpdateIterationContainer::kStreamName, record);
  }

  static OOCPCCatalogue Catalogue(std::size_t stringCount) {
    OOCPCCatalogue catalogue;
    OOCPCAcceleratorDescription accelerator;
    accelerator.cubeEdge = 1000000;
    catalogue.chunks.emplace_back(chunk_type::kAccelerator1, accelerator.EncodeChunk());
    catalogue.chunks.emplace_back(chunk_type::kStaticPositions,
                                  OOCPCPositionsDescription{}.EncodeChunk());
    catalogue.chunks.emplace_back(
        chunk_type::kStaticMetaData,
        OOCPCMetaDataDescription{"flight", kStrings, 1, ""}.EncodeChunk());
    catalogue.chunks.emplace_back(chunk_type::kStringRepository,
                                  OOCPCStringRepositoryContainer::EncodeChunk(stringCount));
    OOCPCUpdateIterationDescription iterations;
    iterations.iterationCount = 1;
    catalogue.chunks.emplace_back(chunk_type::kUpdateIterations, iterations.EncodeChunk());
    return catalogue;
  }
};

std::uint64_t Count(tarnhost::Cloud& cloud, const std::string& text) {
  SelectReport report;
  EXPECT_TRUE(Succeeded(tarnhost::Select(cloud, Query(text), nullptr, report))) << text;
  return report.selected;
}

const std::vector<std::string> kFlights{"north", "south", "northwest", "a, \"b\""};

TEST(SelectByString, ComparesByteByByteWithTheShorterFirst) {
  const StringCloud strings(kFlights, {0, 1, 2, 0, 1, 0, 3});
  ASSERT_NE(strings.cloud, nullptr);
  EXPECT_EQ(Count(*strings.cloud, "#num{type=string}(\"flight\", ==, \"north\")"), 3u);
  EXPECT_EQ(Count(*strings.cloud, "#num{type=string}(\"flight\", !=, \"north\")"), 4u);
  EXPECT_EQ(Count(*strings.cloud, "#num{type=string}(\"flight\", >, \"north\")"), 3u);
  EXPECT_EQ(Count(*strings.cloud, "#num{type=string}(\"flight\", <, \"northwest\")"), 4u);
  EXPECT_EQ(Count(*strings.cloud,
                  "#and(#num{type=string}(\"flight\", ==, \"south\"),"
                  " #num{type=double}(\"x\", <, 2))"),
            1u);
}

TEST(SelectByString, RefusesToAskForAStringAsANumber) {
  const StringCloud strings(kFlights, {0});
  ASSERT_NE(strings.cloud, nullptr);
  SelectReport report;
  const tarnhost::Outcome outcome =
      tarnhost::Select(*strings.cloud, Query("#num{type=int}(\"flight\", ==, 1)"), nullptr, report);
  EXPECT_EQ(outcome.code, oocpc::result::kQueryRejected);
  EXPECT_EQ(outcome.remedy, "ask for it with type=string");
}

/// More record bytes than 32 bits count would be laid out at once if records went by number alone.
TEST(SelectByString, StaysWithinBoundsWhereOneStringIsVeryLong) {
  const StringCloud strings({"short", std::string(2u << 20, 'x')},
                            std::vector<std::uint32_t>(5000, 0));
  ASSERT_NE(strings.cloud, nullptr);
  EXPECT_EQ(Count(*strings.cloud, "#num{type=string}(\"flight\", ==, \"short\")"), 5000u);
}

TEST(SelectByString, ReportsAnIndexWithoutAString) {
  const StringCloud strings(kFlights, {0, 4});
  ASSERT_NE(strings.cloud, nullptr);
  SelectReport report;
  const tarnhost::Outcome outcome = tarnhost::Select(
      *strings.cloud, Query("#num{type=string}(\"flight\", ==, \"north\")"), nullptr, report);
  EXPECT_EQ(outcome.code, oocpc::result::kStringNotFound);
  EXPECT_THAT(outcome.where, ::testing::HasSubstr("flight"));
}

TEST(SelectByString, WritesStringsIntoCsvQuotedWhereNeeded) {
  const std::vector<std::string> texts{"south", "a, \"b\"", " ahead", "behind\t", "two words", " "};
  const StringCloud strings(texts, {0, 1, 2, 3, 4, 5});
  ASSERT_NE(strings.cloud, nullptr);
  const oocpctest::TemporaryFolder folder;
  tarnhost::CsvSink sink(folder / "out.csv");
  SelectReport report;
  ASSERT_TRUE(Succeeded(tarnhost::Select(*strings.cloud, Query("#true()"), &sink, report)));
  const auto bytes = oocpctest::ReadFile(folder / "out.csv");
  EXPECT_EQ(std::string(bytes.begin(), bytes.end()),
            "x,y,z,flight\n0,0,0,south\n1,0,0,\"a, \"\"b\"\"\"\n2,0,0,\" ahead\"\n"
            "3,0,0,\"behind\t\"\n4,0,0,two words\n5,0,0,\" \"\n");
}

TEST(SelectByString, CannotBeWrittenAsLasWithoutASource) {
  const StringCloud strings(kFlights, {1});
  ASSERT_NE(strings.cloud, nullptr);
  const oocpctest::TemporaryFolder folder;
  tarnhost::LasSink sink(folder / "out.las");
  SelectReport report;
  EXPECT_EQ(tarnhost::Select(*strings.cloud, Query("#true()"), &sink, report).code,
            oocpc::result::kScanUnsupported);
  EXPECT_FALSE(std::filesystem::exists(folder / "out.las"));
}

}  // namespace
