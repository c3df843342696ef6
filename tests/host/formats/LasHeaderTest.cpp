// The public header block of LAS: what is read, what is refused and with which words.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "host/formats/LasHeader.h"
#include "tests/support/ByteText.h"
#include "tests/support/LasBuilder.h"

namespace {

namespace result = oocpc::result;
using oocpctest::LasBuilder;
using tarnhost::LasHeader;
using tarnhost::Outcome;
using testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

Outcome Parse(const Bytes& file, LasHeader& header) {
  return tarnhost::ParseLasHeader(file, "scan.las", header);
}
Outcome Parse(const Bytes& file) {
  LasHeader header;
  return Parse(file, header);
}

/// A refusal with a code and words in its message, naming the file and a remedy.
void ExpectRefused(const Bytes& file, HRESULT code, const char* words) {
  const Outcome outcome = Parse(file);
  EXPECT_EQ(outcome.code, code) << outcome.what;
  EXPECT_THAT(outcome.what, HasSubstr(words));
  EXPECT_EQ(outcome.where, "scan.las");
  EXPECT_FALSE(outcome.remedy.empty());
}

/// A small file of LAS 1.4 with one record and one extended record.
LasBuilder Small() {
  LasBuilder builder;
  builder.records.push_back({"user", 7, Bytes(10, 1)});
  builder.extendedRecords.push_back({"late", 9, Bytes(20, 2)});
  return builder;
}

template <typename T>
Bytes With(Bytes file, std::size_t at, T value) {
  LasBuilder::Put(file, at, value);
  return file;
}

TEST(LasHeaderParse, ReadsEveryVersion) {
  for (unsigned minor = 0; minor <= 4; ++minor) {
    LasBuilder builder;
    builder.minor = minor;
    builder.records.push_back({"user", 7, Bytes(10, 1)});
    LasHeader header;
    const Outcome outcome = Parse(builder.Build(), header);
    ASSERT_TRUE(outcome.Ok()) << minor << outcome.what;
    EXPECT_EQ(header.versionMinor, minor);
    EXPECT_EQ(header.headerBytes, tarnhost::LasHeaderBytes(static_cast<std::uint8_t>(minor)));
    EXPECT_EQ(header.pointCount, 5u);
    EXPECT_EQ(header.pointsOffset, header.headerBytes + 64u);
    EXPECT_EQ(header.systemIdentifier, "TEST");
    EXPECT_EQ(header.generatingSoftware, "LasBuilder");
    EXPECT_EQ(header.creationDay, 200);
    EXPECT_EQ(header.creationYear, 2024);
    EXPECT_EQ(header.scale, (std::array<double, 3>{0.01, 0.02, 0.001}));
    EXPECT_EQ(header.offset, (std::array<double, 3>{1000, -2000, 3}));
    EXPECT_LT(header.min[0], header.max[0]);
    ASSERT_EQ(header.records.size(), 1u);
    EXPECT_EQ(header.records[0].userId, "user");
    EXPECT_EQ(header.records[0].recordId, 7);
    EXPECT_EQ(header.records[0].payloadBytes, 10u);
    EXPECT_EQ(header.records[0].payloadOffset, header.headerBytes + 54u);
    EXPECT_FALSE(header.records[0].extended);
  }
}

TEST(LasHeaderParse, ReadsExtendedRecords) {
  LasHeader header;
  const Bytes file = Small().Build();
  ASSERT_TRUE(Parse(file, header).Ok());
  ASSERT_EQ(header.records.size(), 2u);
  EXPECT_EQ(header.records[1].userId, "late");
  EXPECT_EQ(header.records[1].recordId, 9);
  EXPECT_TRUE(header.records[1].extended);
  EXPECT_EQ(header.records[1].payloadOffset, file.size() - 20);
}

TEST(LasHeaderParse, CollectsWholeDescriptorsFromAllExtraBytesRecords) {
  LasBuilder builder = Small();
  builder.Describe({LasBuilder::Descriptor(1, "a"), Bytes(100, 3)});  // one and a half
  builder.extendedRecords.push_back({"LASF_Spec", 4, LasBuilder::Descriptor(2, "b")});
  builder.records.push_back({"Other", 4, LasBuilder::Descriptor(2, "c")});
  LasHeader header;
  ASSERT_TRUE(Parse(builder.Build(), header).Ok());
  EXPECT_EQ(header.extraByteDescriptors,
            LasBuilder::Joined({LasBuilder::Descriptor(1, "a"), LasBuilder::Descriptor(2, "b")}));
}

TEST(LasHeaderParse, RefusesWhatIsNoLasFile) {
  ExpectRefused({}, result::kScanNotRecognised, "not a LAS file");
  ExpectRefused({'L', 'A', 'S'}, result::kScanNotRecognised, "not a LAS file");
  ExpectRefused(With(Small().Build(), 0, 'P'), result::kScanNotRecognised, "not a LAS file");
}

TEST(LasHeaderParse, RefusesUnknownVersions) {
  ExpectRefused(With(Small().Build(), 24, std::uint8_t{2}), result::kScanUnsupported,
                "LAS version 2.4 is not known");
  ExpectRefused(With(Small().Build(), 25, std::uint8_t{5}), result::kScanUnsupported,
                "LAS version 1.5 is not known");
}

TEST(LasHeaderParse, RefusesUnknownPointFormats) {
  ExpectRefused(With(Small().Build(), 104, std::uint8_t{11}), result::kScanUnsupported,
                "point format 11 is not known");
}

TEST(LasHeaderParse, RefusesCompressionByBitAndByRecord) {
  for (const unsigned bit : {0x80u, 0x40u}) {
    ExpectRefused(With(Small().Build(), 104, static_cast<std::uint8_t>(bit)),
                  result::kScanUnsupported, "the points are compressed");
  }
  LasBuilder builder = Small();
  builder.records.push_back({"laszip encoded", 22204, Bytes(34, 0)});
  Bytes file = builder.Build();
  ExpectRefused(file, result::kScanContradictory, "tells how the points are compressed");
  // Compressed points take less room than the header promises.
  file.resize(file.size() - 100);
  ExpectRefused(file, result::kScanContradictory, "tells how the points are compressed");
}

TEST(LasHeaderParse, SaysHowManyPointsAreMissing) {
  LasBuilder builder;
  builder.minor = 2;
  builder.pointCount = 10;
  Bytes file = builder.Build();
  file.resize(file.size() - 45);
  ExpectRefused(file, result::kScanTruncated,
                "states 10 points, but the file has 7 (3 are missing)");
}

TEST(LasHeaderParse, RefusesCountsThatNoFileHolds) {
  const Bytes file = Small().Build();
  ExpectRefused(With(file, 247, std::numeric_limits<std::uint64_t>::max()), result::kScanTruncated,
                "are missing");
  ExpectRefused(With(file, 247, std::numeric_limits<std::uint64_t>::max() / 20 + 2),
                result::kScanTruncated, "are missing");
}

TEST(LasHeaderParse, RefusesPointsWithinTheHeader) {
  ExpectRefused(With(Small().Build(), 96, std::uint32_t{374}), result::kScanContradictory,
                "begin within the header");
}

TEST(LasHeaderParse, RefusesPointsBehindTheEndOfTheFile) {
  const Bytes file = Small().Build();
  ExpectRefused(With(file, 96, static_cast<std::uint32_t>(file.size() + 3)), result::kScanTruncated,
                "before its points begin, 3 bytes too early");
}

TEST(LasHeaderParse, RefusesHeadersShorterThanTheirVersion) {
  ExpectRefused(With(Small().Build(), 94, std::uint16_t{227}), result::kScanContradictory,
                "LAS 1.4 needs 375");
}

TEST(LasHeaderParse, RefusesRecordsShorterThanTheirFormat) {
  ExpectRefused(With(Small().Build(), 105, std::uint16_t{19}), result::kScanContradictory,
                "point records of 19 bytes, but point format 0 needs 20");
  ExpectRefused(With(Small().Build(), 105, std::uint16_t{0}), result::kScanContradictory,
                "point records of 0 bytes");
}

TEST(LasHeaderParse, RefusesVariableRecordsThatRunIntoThePoints) {
  const Bytes file = Small().Build();
  ExpectRefused(With(file, 100, std::uint32_t{2}), result::kScanContradictory,
                "record 2 of 2 runs into the points");
  ExpectRefused(With(file, 100, std::numeric_limits<std::uint32_t>::max()),
                result::kScanContradictory, "runs into the points");
  ExpectRefused(With(file, 375 + 20, std::uint16_t{11}), result::kScanContradictory,
                "record 1 of 1 runs into the points");
}

TEST(LasHeaderParse, RefusesExtendedRecordsOutsideTheFile) {
  const Bytes file = Small().Build();
  const auto at = LasBuilder::Get<std::uint64_t>(file, 235);
  ExpectRefused(With(file, 235, at + 21), result::kScanTruncated, "lies outside the file");
  ExpectRefused(With(file, 235, std::numeric_limits<std::uint64_t>::max()), result::kScanTruncated,
                "lies outside the file");
  ExpectRefused(With(file, at + 20, std::uint64_t{21}), result::kScanTruncated,
                "extended variable-length record 1 of 1 lies outside the file");
  ExpectRefused(With(file, at + 20, std::numeric_limits<std::uint64_t>::max()),
                result::kScanTruncated, "lies outside the file");
  ExpectRefused(With(file, 243, std::uint32_t{2}), result::kScanTruncated, "record 2 of 2");
}

TEST(LasHeaderParse, RefusesExtendedRecordsWithinThePoints) {
  const Bytes file = Small().Build();
  const auto at = LasBuilder::Get<std::uint64_t>(file, 235);
  ExpectRefused(With(file, 235, at - 1), result::kScanContradictory, "before the points end");
  ExpectRefused(With(file, 235, std::uint64_t{0}), result::kScanContradictory,
                "before the points end");
}

TEST(LasHeaderParse, RefusesScalesThatGiveNoCoordinates) {
  const Bytes file = Small().Build();
  for (const double bad : {0.0, std::nan(""), std::numeric_limits<double>::infinity(), 1e300}) {
    ExpectRefused(With(file, 139, bad), result::kScanContradictory, "no finite coordinates");
  }
  ExpectRefused(With(file, 163, std::nan("")), result::kScanContradictory, "no finite coordinates");
}

TEST(LasHeaderParse, LeavesTheHeaderAloneWhenItRefuses) {
  LasHeader header;
  header.systemIdentifier = "as before";
  ASSERT_FALSE(Parse({}, header).Ok());
  ASSERT_FALSE(Parse(With(Small().Build(), 94, std::uint16_t{227}), header).Ok());
  EXPECT_EQ(header.systemIdentifier, "as before");
}

TEST(LasHeaderParse, RefusesASmallFileCutAtEveryLength) {
  for (unsigned minor = 0; minor <= 4; ++minor) {
    LasBuilder builder;
    builder.minor = minor;
    builder.records.push_back({"user", 7, Bytes(10, 1)});
    if (minor == 4) builder.extendedRecords.push_back({"late", 9, Bytes(20, 2)});
    const Bytes file = builder.Build();
    for (std::size_t length = 0; length < file.size(); ++length) {
      const Bytes cut(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(length));
      const Outcome outcome = Parse(cut);
      EXPECT_EQ(outcome.code, length < 4 ? result::kScanNotRecognised : result::kScanTruncated)
          << minor << ' ' << length << ' ' << outcome.what;
    }
    EXPECT_TRUE(Parse(file).Ok());
  }
}

// Odd, but nothing is lost by opening it.

TEST(LasHeaderOddities, UsesTheLegacyCountWhereTheNewOneIsZero) {
  LasHeader header;
  ASSERT_TRUE(Parse(With(Small().Build(), 247, std::uint64_t{0}), header).Ok());
  EXPECT_EQ(header.pointCount, 5u);
  EXPECT_EQ(header.returnCounts[0], header.legacyReturnCounts[0]);
}

TEST(LasHeaderOddities, OpensWithLegacyCountsZero) {
  LasHeader header;
  ASSERT_TRUE(Parse(With(Small().Build(), 107, std::uint32_t{0}), header).Ok());
  EXPECT_EQ(header.pointCount, 5u);
}

TEST(LasHeaderOddities, OpensWithoutPoints) {
  for (unsigned minor = 0; minor <= 4; ++minor) {
    LasBuilder builder;
    builder.minor = minor;
    builder.pointCount = 0;
    LasHeader header;
    ASSERT_TRUE(Parse(builder.Build(), header).Ok());
    EXPECT_EQ(header.pointCount, 0u);
  }
}

TEST(LasHeaderOddities, OpensWithPaddingLongHeadersAndBytesBehindThePoints) {
  LasBuilder builder = Small();
  builder.padding = 13;
  builder.headerPadding = 5;
  Bytes file = builder.Build();
  file.insert(file.end(), 100, 0);
  LasHeader header;
  ASSERT_TRUE(Parse(file, header).Ok());
  EXPECT_EQ(header.pointsOffset, 375u + 5 + 64 + 13);
}

TEST(LasHeaderOddities, OpensWithWrongOrMeaninglessBounds) {
  Bytes file = With(Small().Build(), 179, std::nan(""));
  file = With(file, 187, 1e300);
  EXPECT_TRUE(Parse(file).Ok());
}

TEST(LasHeaderOddities, OpensWithANegativeScale) {
  EXPECT_TRUE(Parse(With(Small().Build(), 131, -0.01)).Ok());
}

TEST(LasFrame, ReadsWhatTheWholeFileSays) {
  LasBuilder builder = Small();
  builder.extendedRecords.push_back({"LASF_Spec", 4, LasBuilder::Descriptor(2, "b")});
  const Bytes file = builder.Build();
  LasHeader whole;
  ASSERT_TRUE(Parse(file, whole).Ok());
  const std::span<const std::uint8_t> bytes(file);
  LasHeader frame;
  const Outcome outcome =
      tarnhost::ParseLasFrame(bytes.first(whole.pointsOffset), 5,
                              bytes.subspan(whole.pointsOffset + 5 * 20), "scan.las", frame);
  ASSERT_TRUE(outcome.Ok()) << outcome.what;
  EXPECT_EQ(tarnhost::EncodeLasHeader(frame), tarnhost::EncodeLasHeader(whole));
  EXPECT_EQ(frame.extraByteDescriptors, whole.extraByteDescriptors);
  ASSERT_EQ(frame.records.size(), whole.records.size());
  EXPECT_EQ(frame.records[1].payloadOffset, whole.records[1].payloadOffset);
}

TEST(LasFrame, RefusesCountsBeyondAllFiles) {
  LasHeader header;
  const Bytes file = Small().Build();
  EXPECT_EQ(
      tarnhost::ParseLasFrame(file, std::numeric_limits<std::uint64_t>::max(), {}, "x", header)
          .code,
      result::kScanContradictory);
  EXPECT_EQ(tarnhost::ParseLasFrame({}, 1, {}, "x", header).code, result::kScanNotRecognised);
}

TEST(LasHeaderEncode, GivesBackTheBlockThatWasRead) {
  for (unsigned minor = 0; minor <= 4; ++minor) {
    LasBuilder builder;
    builder.minor = minor;
    builder.records.push_back({"user", 7, Bytes(10, 1)});
    const Bytes file = builder.Build();
    LasHeader header;
    ASSERT_TRUE(Parse(file, header).Ok());
    const Bytes encoded = tarnhost::EncodeLasHeader(header);
    ASSERT_EQ(encoded.size(), LasBuilder::HeaderBytes(minor));
    EXPECT_EQ(encoded,
              Bytes(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(encoded.size())));
  }
}

TEST(LasHeaderEncode, PatchTouchesCountsBoundsAndOffsetsOnly) {
  LasHeader header;
  header.pointCount = 1;
  header.legacyPointCount = 2;
  header.min = {1, 2, 3};
  Bytes block(375, 0xEE);
  tarnhost::PatchLasHeader(header, block);
  for (std::size_t i = 0; i < block.size(); ++i) {
    const bool patched = (i >= 107 && i < 131) || (i >= 179 && i < 243) || i >= 247;
    EXPECT_EQ(block[i] == 0xEE, !patched) << i;
  }
}

LasHeader Golden() {
  LasHeader header;
  header.fileSourceId = 0x0102;
  header.globalEncoding = 0x0011;
  for (std::uint8_t i = 0; i < 16; ++i) header.guid[i] = i;
  header.systemIdentifier = "SYS";
  header.generatingSoftware = "GEN";
  header.creationDay = 131;
  header.creationYear = 2024;
  header.pointsOffset = 0x1000;
  header.recordCount = 3;
  header.pointFormat = 7;
  header.pointBytes = 36;
  header.legacyPointCount = 5;
  header.legacyReturnCounts = {1, 2, 3, 4, 5};
  header.scale = {1, 2, 0.5};
  header.offset = {4, 8, 16};
  header.min = {-1, -2, -4};
  header.max = {1, 2, 4};
  header.waveformOffset = 0x0807060504030201;
  header.extendedOffset = 0x2000;
  header.extendedCount = 6;
  header.pointCount = 0x100000005;
  for (std::size_t i = 0; i < 15; ++i) header.returnCounts[i] = i + 1;
  return header;
}

// The part that all versions share, up to byte 94 and from byte 96 on.
constexpr const char* kBeforeVersion = "4C415346 0201 1100 000102030405060708090A0B0C0D0E0F 01";
constexpr const char* kTexts =
    "5359530000000000000000000000000000000000000000000000000000000000"
    "47454E0000000000000000000000000000000000000000000000000000000000 8300 E807";
constexpr const char* kCommon =
    "00100000 03000000 07 2400 05000000 0100000002000000030000000400000005000000"
    "000000000000F03F 0000000000000040 000000000000E03F"
    "0000000000001040 0000000000002040 0000000000003040"
    "000000000000F03F 000000000000F0BF 0000000000000040 00000000000000C0"
    "0000000000001040 00000000000010C0";

TEST(LasHeaderEncode, GoldenBytesOfVersion12) {
  LasHeader header = Golden();
  header.versionMinor = 2;
  header.headerBytes = 227;
  EXPECT_EQ(tarnhost::EncodeLasHeader(header),
            oocpctest::BytesOf(std::string(kBeforeVersion) + "02" + kTexts + "E300" + kCommon));
}

TEST(LasHeaderEncode, GoldenBytesOfVersion13) {
  LasHeader header = Golden();
  header.versionMinor = 3;
  header.headerBytes = 235;
  EXPECT_EQ(tarnhost::EncodeLasHeader(header),
            oocpctest::BytesOf(std::string(kBeforeVersion) + "03" + kTexts + "EB00" + kCommon +
                               "0102030405060708"));
}

TEST(LasHeaderEncode, GoldenBytesOfVersion14) {
  std::string returns;
  for (int i = 1; i <= 15; ++i)
    returns += std::string("0") + "0123456789ABCDEF"[i] + "00000000000000";
  EXPECT_EQ(
      tarnhost::EncodeLasHeader(Golden()),
      oocpctest::BytesOf(std::string(kBeforeVersion) + "04" + kTexts + "7701" + kCommon +
                         "0102030405060708 0020000000000000 06000000 0500000001000000" + returns));
}

}  // namespace
