// What is left of the sources where their records are damaged, and to whom the points belong.
#include <gtest/gtest.h>

#include "host/cloud/SourceRecord.h"
#include "host/repair/MendSources.h"

namespace tarnhost {
namespace {

using Bytes = std::vector<std::uint8_t>;

const Bytes kLeading(300, 'L');
const Bytes kTrailing(20, 'T');
constexpr std::size_t kRecordBytes = 42 + 5 + 300 + 20;

void Append(const SourceRecord& record, Bytes& stream) {
  const Bytes head = record.EncodeHead();
  stream.insert(stream.end(), head.begin(), head.end());
  stream.insert(stream.end(), record.leadingBytes.begin(), record.leadingBytes.end());
  stream.insert(stream.end(), record.trailingBytes.begin(), record.trailingBytes.end());
}

/// Sources a to d of 10, 20, 30 and 40 points.
Bytes FourSources() {
  Bytes stream;
  for (const char letter : {'a', 'b', 'c', 'd'}) {
    const std::string name = std::string(1, letter) + ".las";
    Append({name, 10u * static_cast<unsigned>(letter - 'a' + 1), kLeading, kTrailing}, stream);
  }
  EXPECT_EQ(stream.size(), 4 * kRecordBytes);
  return stream;
}

/// "a.las 10+, ? 20, …": a plus where the bytes beside the points are there.
std::string TextOf(const Bytes& stream) {
  std::vector<SourceRecord> records;
  EXPECT_EQ(DecodeSourceRecords(stream, records), oocpc::result::kOk);
  std::string text;
  for (const SourceRecord& record : records) {
    const bool isWhole = std::ranges::equal(record.leadingBytes, kLeading) &&
                         std::ranges::equal(record.trailingBytes, kTrailing);
    EXPECT_TRUE(isWhole || (record.leadingBytes.empty() && record.trailingBytes.empty()));
    text += (text.empty() ? "" : ", ") + (record.fileName.empty() ? "?" : record.fileName) + " " +
            std::to_string(record.pointCount) + (isWhole ? "+" : "");
  }
  return text;
}

std::string TextOf(const std::vector<LostSource>& lost) {
  std::string text;
  for (const LostSource& source : lost) {
    text += (text.empty() ? "" : ", ") + (source.fileName.empty() ? "?" : source.fileName) + " " +
            std::to_string(source.pointCount);
  }
  return text;
}

class MendingSources : public ::testing::Test {
 protected:
  void DamageHead(std::size_t record) { stream_.at(record * kRecordBytes + 20) ^= 1; }
  void DamageLeading(std::size_t record) { stream_.at(record * kRecordBytes + 100) ^= 1; }
  [[nodiscard]] MendedSources Mend(std::uint64_t points,
                                   std::optional<std::uint64_t> all = 100) const {
    return MendSources(stream_, 4 * kRecordBytes, points, all);
  }

  Bytes stream_ = FourSources();
};

TEST_F(MendingSources, KeepsTheRecordsOfTheStatesPointsWhereAllAreSound) {
  EXPECT_EQ(Mend(100).wholeBytes, 4 * kRecordBytes);
  EXPECT_EQ(Mend(30).wholeBytes, 2 * kRecordBytes);
  EXPECT_EQ(Mend(30, std::nullopt).wholeBytes, 2 * kRecordBytes);
  EXPECT_TRUE(Mend(100).lost.empty());
  EXPECT_EQ(Mend(31).wholeBytes, 4 * kRecordBytes) << "of what was not made of scans";
}

TEST_F(MendingSources, KeepsThoseBeforeADamagedOneThatTheStateDoesNotHave) {
  DamageHead(2);
  EXPECT_EQ(Mend(30).wholeBytes, 2 * kRecordBytes);
  EXPECT_TRUE(Mend(30).lost.empty());
}

TEST_F(MendingSources, KeepsNameAndPointsOfARecordWithASoundHead) {
  DamageLeading(1);
  EXPECT_EQ(TextOf(Mend(100).stream), "a.las 10+, b.las 20, c.las 30+, d.las 40+");
  EXPECT_EQ(TextOf(Mend(100).lost), "b.las 20");
  EXPECT_EQ(TextOf(Mend(60).stream), "a.las 10+, b.las 20, c.las 30+");
  EXPECT_EQ(TextOf(Mend(60, std::nullopt).stream), "a.las 10+, b.las 20, c.las 30+");
}

TEST_F(MendingSources, GivesALostHeadThePointsThatNoOtherHas) {
  DamageHead(1);
  EXPECT_EQ(TextOf(Mend(100).stream), "a.las 10+, ? 20, c.las 30+, d.las 40+");
  EXPECT_EQ(TextOf(Mend(100).lost), "? 20");
  EXPECT_EQ(TextOf(Mend(60).stream), "a.las 10+, ? 20, c.las 30+");
}

TEST_F(MendingSources, GivesNothingBehindAGapToAnyoneWhereItsPointsAreNotKnown) {
  DamageHead(1);
  EXPECT_EQ(TextOf(Mend(60, std::nullopt).stream), "a.las 10+, ? 50");
  EXPECT_EQ(TextOf(Mend(60, 70).stream), "a.las 10+, ? 50") << "less than the others have";
}

TEST_F(MendingSources, TakesEverythingBetweenTwoGapsForOne) {
  DamageHead(0);
  DamageHead(2);
  EXPECT_EQ(TextOf(Mend(100).stream), "? 60, d.las 40+");
  EXPECT_EQ(TextOf(Mend(100).lost), "? 60");
  EXPECT_EQ(TextOf(Mend(30).stream), "? 30");
}

TEST_F(MendingSources, KeepsWhatIsThereOfAStreamThatIsCut) {
  stream_.resize(3 * kRecordBytes + 60);
  EXPECT_EQ(TextOf(Mend(100).stream), "a.las 10+, b.las 20+, c.las 30+, d.las 40");
  stream_.resize(3 * kRecordBytes);
  EXPECT_EQ(TextOf(Mend(100).stream), "a.las 10+, b.las 20+, c.las 30+, ? 40");
  EXPECT_EQ(Mend(60).wholeBytes, 3 * kRecordBytes);
  stream_.clear();
  EXPECT_EQ(TextOf(Mend(100).stream), "? 100");
  EXPECT_EQ(TextOf(Mend(100, std::nullopt).stream), "? 100");
}

TEST_F(MendingSources, KnowsThatRecordsBehindADamagedOneAreCutOff) {
  DamageHead(0);
  DamageLeading(1);
  stream_.resize(2 * kRecordBytes);
  EXPECT_EQ(TextOf(Mend(100).stream), "? 100") << "b.las may begin anywhere";
}

TEST_F(MendingSources, NeverMovesAPointToAnotherSource) {
  const Bytes sound = stream_;
  const std::string owners =
      std::string(10, 'a') + std::string(20, 'b') + std::string(30, 'c') + std::string(40, 'd');
  const std::size_t lengths[] = {4 * kRecordBytes,      3 * kRecordBytes + 60, 3 * kRecordBytes,
                                 2 * kRecordBytes + 30, 2 * kRecordBytes,      0};
  for (std::size_t i = 0; i < std::size(lengths) * sound.size() / 3; ++i) {
    const std::size_t at = i * 3 % sound.size();
    stream_ = sound;
    stream_[at] ^= 0x10;
    stream_.resize(lengths[i * 3 / sound.size()]);
    for (const std::uint64_t points : {10u, 30u, 60u, 100u}) {
      const MendedSources mended = Mend(points);
      const Bytes stream =
          mended.lost.empty()
              ? Bytes(stream_.begin(),
                      stream_.begin() + static_cast<std::ptrdiff_t>(mended.wholeBytes))
              : mended.stream;
      std::vector<SourceRecord> records;
      ASSERT_EQ(DecodeSourceRecords(stream, records), oocpc::result::kOk) << at;
      std::size_t place = 0;
      for (const SourceRecord& record : records) {
        for (std::uint64_t point = 0; point < record.pointCount; ++point, ++place) {
          ASSERT_TRUE(record.fileName.empty() || record.fileName[0] == owners.at(place)) << at;
        }
      }
      EXPECT_EQ(place, points) << at;
    }
  }
}

}  // namespace
}  // namespace tarnhost
