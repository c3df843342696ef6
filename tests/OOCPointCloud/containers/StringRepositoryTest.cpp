// The string dictionary: its chunk, its stream, and what is refused.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <memory>

#include "tests/support/ByteText.h"
#include "tests/support/ChunkCases.h"
#include "tests/support/TestRepositories.h"

namespace {

using oocpctest::Bytes;
using oocpctest::FakeRepository;
using Strings = OOCPCStringRepositoryContainer;
namespace result = oocpc::result;

Bytes StreamOf(const std::vector<std::string>& texts) {
  Bytes stream;
  for (const std::string& text : texts) Strings::EncodeString(text, stream);
  return stream;
}

HRESULT Load(Strings& strings, std::uint64_t count) {
  const Bytes payload = Strings::EncodeChunk(count);
  return strings.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
}

HRESULT LoadFrom(const Bytes& stream, std::uint64_t count) {
  FakeRepository repository(Bytes{}, {{Strings::kStreamName, stream}});
  Strings strings(&repository);
  return Load(strings, count);
}

TEST(StringRepositoryRecords, AreByteForByteAsDocumented) {
  EXPECT_EQ(Strings::EncodeChunk(3),
            oocpctest::BytesOf("01 00 00 00 03 00 00 00 00 00 00 00 04 E6 55 C1"));
  EXPECT_EQ(StreamOf({"pine"}), oocpctest::BytesOf("04 00 00 00 70 69 6E 65 32 2D 93 A3"));
}

TEST(StringRepository, GivesStringsByIndex) {
  const std::vector<std::string> texts{"pine", "", std::string("a\0b", 3), "Grüße"};
  FakeRepository repository(Bytes{}, {{Strings::kStreamName, StreamOf(texts)}});
  Strings strings(&repository);
  ASSERT_EQ(Load(strings, 4), result::kOk);
  EXPECT_EQ(strings.GetCount(), 4u);
  for (std::size_t i = 0; i < texts.size(); ++i) {
    std::string text = "before";
    EXPECT_EQ(strings.GetString(i, text), result::kOk);
    EXPECT_EQ(text, texts[i]);
  }
  EXPECT_TRUE(repository.GetLog()->AllStreamsDestroyed());
}

TEST(StringRepository, RefusesIndicesBehindTheEnd) {
  FakeRepository repository(Bytes{}, {{Strings::kStreamName, StreamOf({"x"})}});
  Strings strings(&repository);
  ASSERT_EQ(Load(strings, 1), result::kOk);
  std::string text = "before";
  EXPECT_EQ(strings.GetString(1, text), result::kStringNotFound);
  EXPECT_EQ(strings.GetString(~std::uint64_t{0}, text), result::kStringNotFound);
  EXPECT_EQ(text, "before");
}

TEST(StringRepository, ClonesHoldTheSameStrings) {
  FakeRepository repository(Bytes{}, {{Strings::kStreamName, StreamOf({"x", "y"})}});
  Strings strings(&repository);
  ASSERT_EQ(Load(strings, 2), result::kOk);
  const std::unique_ptr<Strings> clone(strings.Clone());
  std::string text;
  EXPECT_EQ(clone->GetString(1, text), result::kOk);
  EXPECT_EQ(text, "y");
  EXPECT_EQ(clone->GetChunkType(), oocpc::chunk_type::kStringRepository);
  EXPECT_FALSE(clone->IsMetaData());
}

TEST(StringRepository, NeedsNoStreamForNoStrings) {
  FakeRepository repository(Bytes{});
  Strings strings(&repository);
  EXPECT_EQ(Load(strings, 0), result::kOk);
  EXPECT_EQ(Load(strings, 1), result::kStreamMissing);
  Strings homeless(nullptr);
  EXPECT_EQ(Load(homeless, 0), result::kNoRepository);
}

TEST(StringRepository, KeepsItsStringsWhenALaterLoadIsRefused) {
  FakeRepository repository(Bytes{}, {{Strings::kStreamName, StreamOf({"x"})}});
  Strings strings(&repository);
  ASSERT_EQ(Load(strings, 1), result::kOk);
  EXPECT_EQ(Load(strings, 2), result::kStreamShort);
  EXPECT_EQ(strings.GetCount(), 1u);
}

TEST(StringRepository, RefusesCountsThatTheStreamDoesNotHold) {
  const Bytes stream = StreamOf({"one", "two"});
  EXPECT_EQ(LoadFrom(stream, 2), result::kOk);
  EXPECT_EQ(LoadFrom(stream, 3), result::kStreamShort);
  EXPECT_EQ(LoadFrom(stream, ~std::uint64_t{0}), result::kStreamShort);
  EXPECT_EQ(LoadFrom(stream, 1), result::kBadRecord) << "bytes that belong to no string";
}

TEST(StringRepository, RefusesEveryAlteredByteAndEveryCut) {
  const Bytes stream = StreamOf({"one", "", "three"});
  for (std::size_t at = 0; at < stream.size(); ++at) {
    Bytes altered = stream;
    altered[at] ^= 1;
    EXPECT_TRUE(oocpc::Failed(LoadFrom(altered, 3))) << at;
    const Bytes cut(stream.begin(), stream.begin() + static_cast<std::ptrdiff_t>(at));
    EXPECT_EQ(LoadFrom(cut, 3), result::kStreamShort) << at;
  }
  Bytes altered = stream;
  altered[5] ^= 1;
  EXPECT_EQ(LoadFrom(altered, 3), result::kChecksumMismatch);
}

TEST(StringRepository, RefusesALengthBehindTheEnd) {
  EXPECT_EQ(LoadFrom(oocpctest::BytesOf("FF FF FF FF 00 00 00 00"), 1), result::kStreamShort);
}

TEST(StringRepository, ReportsStreamsThatFail) {
  FakeRepository repository(Bytes{}, {{Strings::kStreamName, StreamOf({"x"})}});
  Strings strings(&repository);
  repository.Behaviour(Strings::kStreamName).shortRead = 0;
  EXPECT_EQ(Load(strings, 1), result::kStreamShort);
  repository.Behaviour(Strings::kStreamName).usable = false;
  EXPECT_EQ(Load(strings, 1), result::kIoError);
}

TEST(StringRepositoryChunk, IsRefusedWhenDamagedOrNewer) {
  FakeRepository repository(Bytes{}, {{Strings::kStreamName, StreamOf({"a", "b", "c"})}});
  oocpctest::ExpectPayloadIsGuarded(Strings::EncodeChunk(3), [&](const Bytes& payload) {
    Strings strings(&repository);
    return strings.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
  });
  Strings strings(&repository);
  const Bytes reserved = oocpctest::Resealed(Strings::EncodeChunk(3), 2, {1});
  EXPECT_EQ(strings.LoadFromChunk(reserved.data(), 16), result::kBadRecord);
}

}  // namespace
