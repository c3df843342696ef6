// Two hundred random queries of every real scan, answered by the program and by brute force over
// the bytes of the LAS file.
#include <gtest/gtest.h>

#include "host/build/Import.h"
#include "host/cloud/Cloud.h"
#include "host/select/Select.h"
#include "tests/support/BruteForceLas.h"
#include "tests/support/TemporaryFolder.h"
#include "tests/support/TestData.h"

namespace {

namespace brute = oocpctest::brute;

constexpr std::size_t kQueriesPerScan = 200;

/// Counts points and sums up their stored integers.
class SummingSink final : public tarnhost::SelectionSink {
 public:
  tarnhost::Outcome Begin(tarnhost::Cloud& cloud) override {
    return tarnhost::BlockReader::Open(cloud, {}, reader_);
  }
  tarnhost::Outcome Consume(const OOCPCOctreeAcceleratorNode& node,
                            std::span<const std::uint32_t> points,
                            tarnhost::SinkPart* /*part*/) override {
    tarnhost::Outcome outcome = reader_.ReadPositions(node, xyz_);
    if (!outcome.Ok()) return outcome;
    count += points.size();
    for (const std::uint32_t point : points) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        sums[axis] += xyz_[3 * std::size_t{point} + axis];
      }
    }
    return outcome;
  }
  tarnhost::Outcome End(const tarnhost::SelectReport& /*report*/) override { return {}; }

  std::uint64_t count = 0;
  std::array<std::int64_t, 3> sums{};

 private:
  tarnhost::BlockReader reader_;
  std::vector<std::int32_t> xyz_;
};

void CompareAllQueries(tarnhost::Cloud& cloud, const brute::LasFile& file) {
  const auto& frame = cloud.GetFrameOffset();
  const brute::Evaluator evaluator(file, {frame[0], frame[1], frame[2]});
  brute::QueryMaker maker(file, 42);
  for (const auto& query : maker.Make(kQueriesPerScan)) {
    SCOPED_TRACE(query.text);
    const auto expected = evaluator.Select(query.expression);
    tarnhost::SelectOptions options;
    options.text = query.text;
    SummingSink sink;
    tarnhost::SelectReport report;
    const tarnhost::Outcome outcome = tarnhost::Select(cloud, options, &sink, report);
    ASSERT_TRUE(outcome.Ok()) << outcome.what << "\n" << outcome.where;
    ASSERT_EQ(sink.count, expected.count);
    ASSERT_EQ(sink.sums, expected.sums);
    ASSERT_TRUE(tarnhost::Select(cloud, options, nullptr, report).Ok());
    ASSERT_EQ(report.selected, expected.count) << "counting alone";
  }
}

TEST(AllScans, AnswerTwoHundredRandomQueriesAsBruteForceDoes) {
  const auto scans = oocpctest::TestScans();
  if (scans.empty()) GTEST_SKIP() << "no real scans are here; TARN_TEST_DATA names their folder";
  for (const auto& scan : scans) {
    SCOPED_TRACE(scan.string());
    const oocpctest::TemporaryFolder folder;
    tarnhost::ImportOptions options;
    options.inputs = {scan};
    options.output = folder / "scan.tarn";
    tarnhost::ImportReport report;
    ASSERT_TRUE(tarnhost::ImportScans(options, report).Ok());
    std::unique_ptr<tarnhost::Cloud> cloud;
    ASSERT_TRUE(tarnhost::Cloud::Open(options.output, cloud).Ok());
    brute::LasFile file;
    ASSERT_TRUE(file.Load(scan));
    ASSERT_NO_FATAL_FAILURE(CompareAllQueries(*cloud, file));
  }
}

}  // namespace
