// Records without the bytes that all of them share.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "host/build/RecordPacking.h"
#include "tests/support/InstructionSets.h"

namespace tarnhost {
namespace {

using Bytes = std::vector<std::uint8_t>;

/// Records whose bytes are random at `varying` places and the same elsewhere.
Bytes MakeRecords(std::size_t count, std::size_t recordBytes,
                  const std::vector<std::size_t>& varying, unsigned seed) {
  std::mt19937 random(seed);
  Bytes first(recordBytes);
  for (auto& byte : first) byte = static_cast<std::uint8_t>(random());
  Bytes records(count * recordBytes);
  for (auto record = records.begin(); record != records.end();) {
    for (const std::size_t place : varying) first[place] = static_cast<std::uint8_t>(random());
    record = std::ranges::copy(first, record).out;
  }
  return records;
}

/// Packs records, writes what is needed to unpack them, and unpacks them again. Gives the bytes
/// that are left of a record.
std::size_t ExpectRestored(const Bytes& records, std::size_t recordBytes) {
  const RecordPacking packing(records, recordBytes);
  const std::size_t count = records.size() / recordBytes;
  // Of exactly their lengths, so that a step beyond them is noticed.
  Bytes packed(count * packing.GetPackedBytes());
  packing.Pack(records, packed);
  Bytes head;
  packing.Encode(head);
  EXPECT_EQ(head.size(), RecordPacking::GetEncodedBytes(recordBytes));
  Bytes unpacked(records.size());
  const RecordPacking decoded = RecordPacking::Decode(head, recordBytes);
  EXPECT_EQ(decoded.GetPackedBytes(), packing.GetPackedBytes());
  decoded.Unpack(packed, unpacked);
  EXPECT_EQ(unpacked, records) << recordBytes << " bytes, " << count << " records";
  return packing.GetPackedBytes();
}

TEST(RecordPacking, KeepsWhatDiffersAndRestoresTheRestWithEveryInstructionSet) {
  oocpctest::WithEachInstructionSet([] {
    for (const std::size_t recordBytes : {1u, 12u, 15u, 16u, 17u, 34u, 67u, 300u}) {
      for (const std::size_t count : {2u, 3u, 7u, 500u}) {
        std::mt19937 random(static_cast<unsigned>(recordBytes * 1000 + count));
        std::vector<std::size_t> varying;
        for (std::size_t place = 0; place < recordBytes; ++place) {
          if (random() % 2 == 0) varying.push_back(place);
        }
        const Bytes records = MakeRecords(count, recordBytes, varying, 1);
        EXPECT_LE(ExpectRestored(records, recordBytes), varying.size());
      }
    }
  });
}

TEST(RecordPacking, LeavesNothingOfEqualRecords) {
  EXPECT_EQ(ExpectRestored(MakeRecords(1000, 34, {}, 2), 34), 0u);
}

TEST(RecordPacking, KeepsRecordsThatShareNothing) {
  std::vector<std::size_t> varying(34);
  for (std::size_t i = 0; i < varying.size(); ++i) varying[i] = i;
  EXPECT_EQ(ExpectRestored(MakeRecords(1000, 34, varying, 3), 34), 34u);
}

TEST(RecordPacking, NoticesAByteThatDiffersInTheLastRecordAlone) {
  Bytes records = MakeRecords(100, 20, {}, 4);
  records.back() ^= 0x80;
  EXPECT_EQ(ExpectRestored(records, 20), 1u);
}

TEST(RecordPacking, OfARecordAloneIsTheRecord) {
  EXPECT_EQ(ExpectRestored(MakeRecords(1, 30, {}, 5), 30), 0u);
}

TEST(RecordPacking, UnpacksAPartOfTheRecords) {
  const Bytes records = MakeRecords(100, 34, {3, 4, 20, 33}, 6);
  const RecordPacking packing(records, 34);
  Bytes packed(100 * packing.GetPackedBytes());
  packing.Pack(records, packed);
  for (const std::size_t first : {0u, 1u, 50u, 99u}) {
    Bytes part((100 - first) * 34);
    packing.Unpack(std::span(packed).subspan(first * packing.GetPackedBytes()), part);
    EXPECT_TRUE(std::ranges::equal(part, std::span(records).subspan(first * 34))) << first;
  }
}

}  // namespace
}  // namespace tarnhost
