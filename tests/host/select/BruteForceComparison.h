// Compares selections with brute force: random queries, point by point from the LAS file itself.
#pragma once

#include <gtest/gtest.h>

#include <string>

#include "tests/host/select/RandomQueries.h"
#include "tests/host/select/SelectFixture.h"

namespace oocpctest {

/// Asked with "or", no node can be skipped, and nothing else is selected.
inline constexpr const char* kNeverTrue = "#num{type=double}(\"x\", <, -1e300)";
/// Asked with "and", no node can be accepted, and nothing is lost.
inline constexpr const char* kAlwaysTrue = "#num{type=double}(\"x\", >=, -1e300)";

inline Digest BruteForce(const LasPoints& points, const PlainQuery& query) {
  Digest digest;
  for (std::uint64_t i = 0; i < points.GetCount(); ++i) {
    if (!query.holds(i)) continue;
    ++digest.count;
    for (std::size_t axis = 0; axis < 3; ++axis) digest.sums[axis] += points.GetStored(i, axis);
  }
  return digest;
}

struct Tally {
  std::uint64_t none = 0;
  std::uint64_t all = 0;
  std::uint64_t some = 0;
  std::uint64_t nodesSkipped = 0;
  std::uint64_t nodesAccepted = 0;
  std::uint64_t nodesTested = 0;
};

inline void CompareWithBruteForce(tarnhost::Cloud& cloud, const LasPoints& points, int queries,
                                  std::uint64_t seed, Tally& tally,
                                  std::optional<std::uint64_t> iteration = {}) {
  RandomQueries random(points, cloud.GetFrameOffset(), seed);
  for (int i = 0; i < queries && !::testing::Test::HasFailure(); ++i) {
    const PlainQuery query = random.Next(i % 4);
    SCOPED_TRACE(query.text);
    const Digest expected = BruteForce(points, query);
    tarnhost::SelectReport report;
    EXPECT_EQ(Selected(cloud, query.text, &report, iteration), expected);
    EXPECT_EQ(report.selected, expected.count);
    EXPECT_EQ(report.pointCount, points.GetCount());
    tarnhost::SelectReport counted;
    EXPECT_TRUE(Succeeded(tarnhost::Select(cloud, Query(query.text, iteration), nullptr, counted)));
    EXPECT_EQ(counted.selected, expected.count) << "counting alone";
    if (i % 5 == 0) {
      const std::string undecided =
          "#and((#or((" + query.text + ")," + kNeverTrue + "))," + kAlwaysTrue + ")";
      DigestSink records;
      EXPECT_TRUE(Succeeded(
          tarnhost::SelectByRecords(cloud, Query(undecided, iteration), &records, counted)));
      EXPECT_EQ(records.digest, expected) << "record by record, without classification";
      EXPECT_EQ(counted.nodesSkipped + counted.nodesAccepted, 0u);
    }
    ++(expected.count == 0                   ? tally.none
       : expected.count == points.GetCount() ? tally.all
                                             : tally.some);
    tally.nodesSkipped += report.nodesSkipped;
    tally.nodesAccepted += report.nodesAccepted;
    tally.nodesTested += report.nodesTested;
  }
}

}  // namespace oocpctest
