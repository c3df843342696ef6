// The records of source files: golden bytes, and everything that makes one unsound.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include "OOCPointCloud/support/Bytes.h"
#include "host/cloud/SourceRecord.h"

namespace tarnhost {
namespace {

namespace result = oocpc::result;
using Bytes = std::vector<std::uint8_t>;

const Bytes kLeading{'L', 'A', 'S', 'F'};
const Bytes kTrailing{'1', '2', '3', '4', '5', '6', '7', '8', '9'};

Bytes Stream(const SourceRecord& record) {
  Bytes stream = record.EncodeHead();
  stream.insert(stream.end(), record.leadingBytes.begin(), record.leadingBytes.end());
  stream.insert(stream.end(), record.trailingBytes.begin(), record.trailingBytes.end());
  return stream;
}

SourceRecord Sample() { return {"a.las", 258, kLeading, kTrailing}; }

/// Seals the head of a stream that holds Sample() anew.
Bytes Resealed(Bytes stream) {
  constexpr std::size_t kContent = 2 + 4 + 5 + 3 * 8 + 2 * 4;
  Bytes head(stream.begin(), stream.begin() + kContent);
  oocpc::AppendChecksum(head);
  std::copy(head.begin(), head.end(), stream.begin());
  return stream;
}

HRESULT Decode(const Bytes& stream) {
  std::vector<SourceRecord> records(1);
  records[0].fileName = "untouched";
  const HRESULT code = DecodeSourceRecords(stream, records);
  if (oocpc::Failed(code)) {
    EXPECT_EQ(records.size(), 1u);
    EXPECT_EQ(records.at(0).fileName, "untouched");
  }
  return code;
}

TEST(SourceRecord, HasTheseBytes) {
  const Bytes head = Sample().EncodeHead();
  const Bytes expected{1,    0,                                          // version
                       5,    0,    0,    0,    'a', '.', 'l', 'a', 's',  // file name
                       2,    1,    0,    0,    0,   0,   0,   0,         // points
                       4,    0,    0,    0,    0,   0,   0,   0,         // leading bytes
                       9,    0,    0,    0,    0,   0,   0,   0,         // trailing bytes
                       0xDA, 0x31, 0x6C, 0x9F,   // checksum of the leading bytes
                       0x83, 0x92, 0x06, 0xE3,   // checksum of the trailing bytes
                       0x82, 0x84, 0xE7, 0xDD};  // checksum of the head
  EXPECT_EQ(head, expected);
}

TEST(SourceRecord, ComesBackAsItWas) {
  Bytes stream = Stream(Sample());
  const Bytes second = Stream({"", 0, {}, {}});
  stream.insert(stream.end(), second.begin(), second.end());
  std::vector<SourceRecord> records;
  ASSERT_EQ(DecodeSourceRecords(stream, records), result::kOk);
  ASSERT_EQ(records.size(), 2u);
  EXPECT_EQ(records[0].fileName, "a.las");
  EXPECT_EQ(records[0].pointCount, 258u);
  EXPECT_EQ(Bytes(records[0].leadingBytes.begin(), records[0].leadingBytes.end()), kLeading);
  EXPECT_EQ(Bytes(records[0].trailingBytes.begin(), records[0].trailingBytes.end()), kTrailing);
  EXPECT_EQ(records[1].fileName, "");
  EXPECT_EQ(records[1].pointCount, 0u);
  EXPECT_TRUE(records[1].leadingBytes.empty());
}

TEST(SourceRecord, TakesAnEmptyStreamForNoSources) {
  std::vector<SourceRecord> records(1);
  EXPECT_EQ(DecodeSourceRecords({}, records), result::kOk);
  EXPECT_TRUE(records.empty());
}

TEST(SourceRecord, RefusesAStreamCutAnywhere) {
  const Bytes stream = Stream(Sample());
  for (std::size_t length = 1; length < stream.size(); ++length) {
    EXPECT_EQ(Decode(Bytes(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(length))),
              result::kBadRecord)
        << length;
  }
}

TEST(SourceRecord, RefusesAnyAlteredByte) {
  const Bytes stream = Stream(Sample());
  for (std::size_t at = 0; at < stream.size(); ++at) {
    Bytes altered = stream;
    altered[at] ^= 0x10;
    EXPECT_TRUE(oocpc::Failed(Decode(altered))) << at;
  }
  Bytes altered = stream;
  altered.back() ^= 1;
  EXPECT_EQ(Decode(altered), result::kChecksumMismatch);
  altered = stream;
  altered[7] ^= 1;  // in the file name
  EXPECT_EQ(Decode(altered), result::kChecksumMismatch);
}

TEST(SourceRecord, RefusesANewerVersionAndVersionZero) {
  Bytes stream = Stream(Sample());
  stream[0] = 2;
  EXPECT_EQ(Decode(Resealed(stream)), result::kUnknownVersion);
  stream[0] = 0;
  EXPECT_EQ(Decode(Resealed(stream)), result::kBadRecord);
}

TEST(SourceRecord, RefusesLengthsBeyondTheStreamThatWouldWrapWhenAdded) {
  Bytes stream = Stream(Sample());
  for (std::size_t i = 0; i < 8; ++i) stream[19 + i] = 0xFF;  // leading bytes: 2^64 - 1
  EXPECT_EQ(Decode(Resealed(stream)), result::kBadRecord);
  stream = Stream(Sample());
  for (std::size_t i = 0; i < 8; ++i) stream[27 + i] = 0xFF;  // trailing bytes
  EXPECT_EQ(Decode(Resealed(stream)), result::kBadRecord);
  stream = Stream(Sample());
  for (std::size_t i = 0; i < 4; ++i) stream[2 + i] = 0xFF;  // length of the file name
  EXPECT_EQ(Decode(stream), result::kBadRecord);
}

}  // namespace
}  // namespace tarnhost
