// Records in the order of their places, in memory and through a file.
#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <numeric>
#include <random>

#include "host/cloud/OrderedRecords.h"
#include "tests/support/TemporaryFolder.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using Bytes = std::vector<std::uint8_t>;
using Places = std::vector<std::uint64_t>;

constexpr std::size_t kBytes = 5;

/// A record that tells its place.
Bytes RecordOf(std::uint64_t place) {
  Bytes record(kBytes);
  std::memcpy(record.data(), &place, 4);
  record[4] = 77;
  return record;
}

Bytes RecordsOf(const Places& places) {
  Bytes records;
  for (const std::uint64_t place : places) {
    const Bytes record = RecordOf(place);
    records.insert(records.end(), record.begin(), record.end());
  }
  return records;
}

class Ordering {
 public:
  Ordering(std::uint64_t places, std::uint64_t memory) {
    EXPECT_TRUE(OrderedRecords::Create(places, kBytes, memory, folder_.Path(), records).Ok());
  }

  Outcome Put(const Places& places) { return records->Put(places, RecordsOf(places)); }
  Outcome Give(Bytes& all) {
    return records->Give([&](std::span<const std::uint8_t> run) {
      all.insert(all.end(), run.begin(), run.end());
      ++runs;
      return Outcome::Success();
    });
  }

  std::unique_ptr<OrderedRecords> records;
  std::size_t runs = 0;

 private:
  oocpctest::TemporaryFolder folder_;
};

Places Shuffled(std::uint64_t count) {
  Places places(count);
  std::iota(places.begin(), places.end(), 0);
  std::shuffle(places.begin(), places.end(), std::mt19937(4));
  return places;
}

class OrderedWith : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(OrderedWith, SoMuchMemoryTheyComeInTheOrderOfTheirPlaces) {
  Ordering ordering(20000, GetParam());
  const Places places = Shuffled(20000);
  for (std::size_t at = 0; at < places.size(); at += 700) {
    const std::size_t end = std::min(at + 700, places.size());
    ASSERT_TRUE(ordering
                    .Put({places.begin() + static_cast<std::ptrdiff_t>(at),
                          places.begin() + static_cast<std::ptrdiff_t>(end)})
                    .Ok());
  }
  Bytes all;
  ASSERT_TRUE(ordering.Give(all).Ok());
  Places ascending(20000);
  std::iota(ascending.begin(), ascending.end(), 0);
  EXPECT_TRUE(all == RecordsOf(ascending));
  EXPECT_EQ(ordering.runs > 1, GetParam() < 100000) << "more than one share";
}

INSTANTIATE_TEST_SUITE_P(Memory, OrderedWith, ::testing::Values(300, 20000, 99999, 1u << 30));

TEST(OrderedRecords, LeaveOutPlacesWithoutARecord) {
  for (const std::uint64_t memory : {100u, 1u << 20}) {
    Ordering ordering(1000, memory);
    ASSERT_TRUE(ordering.Put({999, 3, 500, 4}).Ok());
    Bytes all;
    ASSERT_TRUE(ordering.Give(all).Ok());
    EXPECT_TRUE(all == RecordsOf({3, 4, 500, 999}));
  }
}

TEST(OrderedRecords, RefuseAPlaceThatIsNotThere) {
  Ordering ordering(10, 1u << 20);
  EXPECT_EQ(ordering.Put({10}).code, result::kBadRecord);
}

TEST(OrderedRecords, RefuseTwoRecordsOfOnePlace) {
  Ordering small(10, 1u << 20);
  EXPECT_EQ(small.Put({4, 5, 4}).code, result::kBadRecord);
  Ordering large(1000, 100);
  ASSERT_TRUE(large.Put({4, 500, 4}).Ok()) << "it is found when the share is put into order";
  Bytes all;
  EXPECT_EQ(large.Give(all).code, result::kBadRecord);
}

TEST(OrderedRecords, RefuseRecordsThatAreNotAsManyAsTheirPlaces) {
  Ordering ordering(10, 1u << 20);
  const Places places{1, 2};
  EXPECT_EQ(ordering.records->Put(places, RecordOf(1)).code, result::kBadRecord);
}

TEST(OrderedRecords, MayBeNone) {
  Ordering ordering(0, 1u << 20);
  Bytes all;
  EXPECT_TRUE(ordering.Give(all).Ok());
  EXPECT_TRUE(all.empty());
}

TEST(OrderedRecords, StopWhereTheVisitorFails) {
  Ordering ordering(10, 1u << 20);
  ASSERT_TRUE(ordering.Put({1}).Ok());
  const Outcome outcome = ordering.records->Give(
      [](std::span<const std::uint8_t>) { return Outcome::FromCode(result::kStopped); });
  EXPECT_EQ(outcome.code, result::kStopped);
}

TEST(OrderedRecords, TellWhereNoFileCanBeMade) {
  std::unique_ptr<OrderedRecords> records;
  EXPECT_FALSE(OrderedRecords::Create(100000, kBytes, 100, "/nonexistent/folder", records).Ok());
}

}  // namespace
}  // namespace tarnhost
