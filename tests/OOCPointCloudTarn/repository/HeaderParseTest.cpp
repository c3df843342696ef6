// The main stream: what is accepted as a header, and which chunk ends up where.
#include <gtest/gtest.h>

#include <algorithm>
#include <limits>

#include "tests/support/CloudStreams.h"
#include "tests/support/FrameworkAccess.h"

namespace {

using namespace oocpctest;
namespace result = oocpc::result;

using Types = std::vector<oocpc::ContainerChunkType>;

Types TypesOf(const std::vector<OOCIndexChunk>& chunks) {
  Types types;
  for (const OOCIndexChunk& chunk : chunks) types.push_back(chunk.type);
  return types;
}

/// Everything that a parse hands back, filled with what must not survive.
struct Parse {
  explicit Parse(Bytes main) : Parse(FakeRepository(std::move(main))) {}
  explicit Parse(FakeRepository&& repository) : Parse(repository) {}
  explicit Parse(FakeRepository& repository)
      : Parse(static_cast<OOCPCIDataRepository&>(repository)) {
    EXPECT_TRUE(repository.GetLog()->AllStreamsDestroyed());
  }
  explicit Parse(OOCPCIDataRepository& repository) {
    value16.fill(0xEE);
    seed.fill(7);
    TarnOOCPointCloud cloud;
    TarnFrameworkAccess access(cloud);
    access.Lend(repository);
    code = access.ParseHeader(&header, &information, &value16, &selected, &other, &seed);
  }

  [[nodiscard]] bool HasZeroValues() const {
    return value16 == std::array<std::uint8_t, 16>{} && seed == std::array<double, 6>{};
  }

  HRESULT code = 0;
  OOCPointCloudFileHeader header;
  OOCPCRepositoryInformation information;
  std::array<std::uint8_t, 16> value16{};
  std::array<double, 6> seed{};
  std::vector<OOCIndexChunk> selected;
  std::vector<OOCIndexChunk> other;
};

/// A repository of one stream, which is wrong about its length and notes what is asked of it.
class WrongLengthRepository final : public OOCPCIDataRepository {
 public:
  WrongLengthRepository(Bytes main, std::uint64_t length)
      : repository_(std::move(main)), length_(length) {}

  /// Most bytes that one Read call asked for.
  [[nodiscard]] std::uint64_t GetLargestRead() const { return largestRead_; }

  [[nodiscard]] OOCPCIInputStream* CreateInputStream() override {
    return new Stream(*this, repository_.CreateInputStream());
  }
  [[nodiscard]] OOCPCIInputStream* CreateInputStream(std::string_view) override { return nullptr; }
  [[nodiscard]] HRESULT SetRepositoryInformation(const OOCPCRepositoryInformation*) override {
    return result::kOk;
  }
  [[nodiscard]] const OOCPCRepositoryInformation& GetRepositoryInformation() const override {
    return repository_.GetRepositoryInformation();
  }

 private:
  class Stream final : public OOCPCIInputStream {
   public:
    Stream(WrongLengthRepository& owner, OOCPCIInputStream* stream)
        : owner_(owner), stream_(stream) {}
    std::uint64_t Read(void* destination, const std::uint64_t& length) override {
      owner_.largestRead_ = std::max(owner_.largestRead_, length);
      return stream_->Read(destination, length);
    }
    [[nodiscard]] std::uint64_t GetPosition() const override { return stream_->GetPosition(); }
    [[nodiscard]] HRESULT SetPosition(const std::uint64_t& position) override {
      return stream_->SetPosition(position);
    }
    [[nodiscard]] std::uint64_t GetLength() const override { return owner_.length_; }
    [[nodiscard]] bool IsUsable() const override { return true; }

   private:
    WrongLengthRepository& owner_;
    std::unique_ptr<OOCPCIInputStream> stream_;
  };

  FakeRepository repository_;
  std::uint64_t length_;
  std::uint64_t largestRead_ = 0;
};

OOCPointCloudFileHeader WithVersion(std::uint8_t version) {
  OOCPointCloudFileHeader header;
  header.version = static_cast<std::int8_t>(version);
  return header;
}

TEST(HeaderParse, NeedsARepository) {
  TarnOOCPointCloud cloud;
  std::array<std::uint8_t, 16> value16;
  value16.fill(0xEE);
  EXPECT_EQ(
      TarnFrameworkAccess(cloud).ParseHeader(nullptr, nullptr, &value16, nullptr, nullptr, nullptr),
      result::kNoRepository);
  EXPECT_EQ(value16[0], 0xEE);
}

TEST(HeaderParse, DoesNothingWithoutAStream) {
  FakeRepository repository(HeaderBytes());
  repository.Behaviour().absent = true;
  const Parse parse(repository);
  EXPECT_EQ(parse.code, result::kNothingDone);
  EXPECT_EQ(parse.value16[0], 0xEE);
  EXPECT_EQ(parse.seed[0], 7.0);
}

TEST(HeaderParse, DoesNothingWithAShortHeader) {
  for (std::size_t length = 0; length < OOCPointCloudFileHeader::kBytes; ++length) {
    Bytes bytes = HeaderBytes();
    bytes.resize(length);
    const Parse parse(bytes);
    EXPECT_EQ(parse.code, result::kNothingDone) << length;
    EXPECT_TRUE(parse.selected.empty());
    EXPECT_TRUE(parse.HasZeroValues()) << length;
  }
}

TEST(HeaderParse, RefusesEveryWrongLetterOfTheMagic) {
  for (std::size_t at = 0; at < 4; ++at) {
    Bytes bytes = HeaderBytes();
    bytes[at] ^= 0x20;
    const Parse parse(bytes);
    EXPECT_EQ(parse.code, result::kBadHeader) << at;
    EXPECT_TRUE(parse.HasZeroValues()) << at;
  }
}

TEST(HeaderParse, TestsTheVersionAsASignedByte) {
  for (unsigned version = 0; version < 256; ++version) {
    const Parse parse(HeaderBytes(WithVersion(static_cast<std::uint8_t>(version))));
    const bool known = version <= 1 || version >= 0x80;
    EXPECT_EQ(parse.code, known ? result::kNoAccelerator : result::kBadHeader) << version;
    EXPECT_TRUE(parse.HasZeroValues()) << version;
  }
}

TEST(HeaderParse, CarriesTheHeaderDataUnread) {
  OOCPointCloudFileHeader header;
  header.data5.fill(5);
  header.data13.fill(13);
  header.data61.fill(61);
  const Parse parse(HeaderBytes(header));
  EXPECT_EQ(HeaderBytes(parse.header), HeaderBytes(header));
}

TEST(HeaderParse, FindsNoAcceleratorInABareHeader) {
  const Parse parse(HeaderBytes());
  EXPECT_EQ(parse.code, result::kNoAccelerator);
  ASSERT_EQ(parse.selected.size(), 1u);
  EXPECT_EQ(parse.selected[0].type, 0u);
  EXPECT_EQ(parse.selected[0].size, 0u);
  EXPECT_TRUE(parse.selected[0].IsEmpty());
  EXPECT_TRUE(parse.other.empty());
  EXPECT_EQ(parse.value16, (std::array<std::uint8_t, 16>{}));
  EXPECT_EQ(parse.seed, (std::array<double, 6>{}));
}

TEST(HeaderParse, StartsWhereTheStreamStands) {
  Bytes bytes{9, 9, 9};
  const Bytes main = CompleteMainStream().Bytes();
  bytes.insert(bytes.end(), main.begin(), main.end());
  FakeRepository repository(bytes);
  repository.Behaviour().startPosition = 3;
  EXPECT_EQ(Parse(repository).code, result::kOk);
}

TEST(HeaderParse, SortsSelectedChunksDirectOnesFirst) {
  const Parse parse(CompleteMainStream().Bytes());
  EXPECT_EQ(parse.code, result::kOk);
  EXPECT_EQ(TypesOf(parse.selected), (Types{1, 2, 1, 0x10000, 0x20000000, 0x30000000, 0x50000000}));
  EXPECT_TRUE(parse.other.empty());
  EXPECT_TRUE(parse.information.IsLoaded());
  EXPECT_EQ(parse.information.generator, "test");
  EXPECT_EQ(parse.value16[15], 16);
  EXPECT_EQ(parse.seed, (std::array<double, 6>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(parse.selected[0].payload, MetaDataPayload("intensity"));
  EXPECT_EQ(parse.selected[2].size, parse.selected[2].payload.size());
}

TEST(HeaderParse, IgnoresAFinalFragmentOfAChunkHead) {
  for (std::size_t length = 1; length < OOCIndexChunk::kHeadBytes; ++length) {
    const Parse parse(CompleteMainStream().Raw(Bytes(length, 0xAB)).Bytes());
    EXPECT_EQ(parse.code, result::kOk) << length;
  }
}

TEST(HeaderParse, RefusesAChunkThatEndsBehindTheStream) {
  for (const std::uint32_t announced : {4u, 5u, 0x7FFFFFFFu, 0xFFFFFFFFu}) {
    const Parse parse(MainStreamBuilder()
                          .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                          .ChunkHead(chunk_type::kStaticMetaData, announced)
                          .Raw({1, 2, 3})
                          .Bytes());
    EXPECT_EQ(parse.code, result::kChunkPayloadShort) << announced;
    EXPECT_EQ(TypesOf(parse.selected), Types{0x10000}) << "the cut chunk is gone, the winner stays";
    EXPECT_EQ(parse.value16, (std::array<std::uint8_t, 16>{}));
  }
}

TEST(HeaderParse, RefusesAPayloadThatCannotBeReadInFull) {
  FakeRepository repository(CompleteMainStream().Bytes());
  repository.Behaviour().shortRead = 2;  // header, first head, first payload
  EXPECT_EQ(Parse(repository).code, result::kChunkPayloadShort);
}

TEST(HeaderParse, DoesNotTrustTheLengthThatTheStreamTells) {
  const Bytes main = CompleteMainStream().Bytes();
  for (const std::uint64_t length :
       {std::uint64_t{0}, std::uint64_t{67}, std::uint64_t{main.size() - 1},
        std::numeric_limits<std::uint64_t>::max()}) {
    WrongLengthRepository repository(main, length);
    const Parse parse(repository);
    EXPECT_EQ(parse.code, result::kOk) << length;
    EXPECT_EQ(TypesOf(parse.selected),
              (Types{1, 2, 1, 0x10000, 0x20000000, 0x30000000, 0x50000000}));
    EXPECT_EQ(parse.selected[0].payload, MetaDataPayload("intensity"));
  }
}

constexpr std::uint32_t kMiB = 1u << 20;

/// Bytes that tell where they stand.
Bytes Numbered(std::size_t size) {
  Bytes bytes(size);
  for (std::size_t i = 0; i < size; ++i) bytes[i] = static_cast<std::uint8_t>(i * 31 + (i >> 13));
  return bytes;
}

TEST(HeaderParse, ReadsLargePayloadsWholeThoughInPieces) {
  for (const std::uint32_t size : {kMiB - 1, kMiB, kMiB + 1, 2 * kMiB, 5 * kMiB / 2}) {
    const Bytes payload = Numbered(size);
    WrongLengthRepository repository(MainStreamBuilder()
                                         .Chunk(0x77, payload)
                                         .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                                         .Bytes(),
                                     0);
    const Parse parse(repository);
    EXPECT_EQ(parse.code, result::kOk) << size;
    ASSERT_EQ(parse.other.size(), 1u) << size;
    EXPECT_EQ(parse.other[0].size, size);
    EXPECT_TRUE(parse.other[0].payload == payload) << size;
    EXPECT_LE(repository.GetLargestRead(), kMiB);
  }
}

TEST(HeaderParse, RefusesALargePayloadThatIsCutInALaterPiece) {
  for (const std::uint32_t announced : {2 * kMiB + 1, 3 * kMiB, 0xFFFFFFFFu}) {
    for (const std::uint64_t length : {std::uint64_t{0}, std::uint64_t{1} << 40}) {
      WrongLengthRepository repository(
          MainStreamBuilder().ChunkHead(0x77, announced).Raw(Numbered(2 * kMiB)).Bytes(), length);
      const Parse parse(repository);
      EXPECT_EQ(parse.code, result::kChunkPayloadShort) << announced;
      EXPECT_TRUE(parse.other.empty()) << announced;
      EXPECT_LE(repository.GetLargestRead(), kMiB) << "no more memory than there are bytes for";
    }
  }
}

TEST(HeaderParse, KeepsHigherAcceleratorTypeWhateverComparisonSays) {
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator2, AcceleratorPayload(2))
                        .Chunk(chunk_type::kAccelerator4, AcceleratorPayload(4))
                        .Bytes());
  EXPECT_EQ(parse.code, result::kOk);
  EXPECT_EQ(TypesOf(parse.selected), Types{0x40000});
  EXPECT_EQ(TypesOf(parse.other), Types{0x20000});
}

TEST(HeaderParse, LetsComparisonSettleALowerAcceleratorType) {
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator4, AcceleratorPayload(4))
                        .Chunk(chunk_type::kAccelerator2, AcceleratorPayload(2))
                        .Bytes());
  // The later chunk of an equal version is preferred.
  EXPECT_EQ(TypesOf(parse.selected), Types{0x20000});
  EXPECT_EQ(TypesOf(parse.other), Types{0x40000});
}

TEST(HeaderParse, TakesExactlyFiveAcceleratorTypes) {
  for (const std::uint32_t type : {0x10000u, 0x20000u, 0x30000u, 0x40000u, 0x50000u}) {
    const Parse parse(MainStreamBuilder().Chunk(type, AcceleratorPayload()).Bytes());
    EXPECT_EQ(parse.code, result::kOk);
    EXPECT_EQ(TypesOf(parse.selected), Types{type});
  }
  for (const std::uint32_t type : {0x18000u, 0x60000u, 0x10001u, 3u, 0u, 0x70000000u}) {
    const Parse parse(MainStreamBuilder().Chunk(type, AcceleratorPayload()).Bytes());
    EXPECT_EQ(parse.code, result::kNoAccelerator);
    EXPECT_EQ(TypesOf(parse.other), Types{type});
  }
}

TEST(HeaderParse, KeepsThePreferredUpdateIterationChunk) {
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                        .Chunk(chunk_type::kUpdateIterations, UpdateIterationsPayload(1))
                        .Chunk(chunk_type::kUpdateIterations, UpdateIterationsPayload(2))
                        .Bytes());
  EXPECT_EQ(parse.code, result::kOk);
  ASSERT_EQ(parse.selected.size(), 2u);
  EXPECT_EQ(parse.selected[1].payload, UpdateIterationsPayload(2));
  ASSERT_EQ(parse.other.size(), 1u);
  EXPECT_EQ(parse.other[0].payload, UpdateIterationsPayload(1));
}

TEST(HeaderParse, KeepsThePreferredLevelOfDetailChunk) {
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                        .Chunk(chunk_type::kLevelOfDetail, LodPayload(1))
                        .Chunk(chunk_type::kLevelOfDetail, LodPayload(2))
                        .Bytes());
  ASSERT_EQ(parse.selected.size(), 2u);
  EXPECT_EQ(parse.selected[1].payload, LodPayload(2));
  EXPECT_EQ(TypesOf(parse.other), Types{0x50000000});
}

TEST(HeaderParse, TakesTheFirstSixteenByteValueAlone) {
  const Bytes first(20, 1);
  const Bytes second(16, 2);
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                        .Chunk(chunk_type::kValue16, first)
                        .Chunk(chunk_type::kValue16, second)
                        .Bytes());
  std::array<std::uint8_t, 16> expected;
  expected.fill(1);
  EXPECT_EQ(parse.value16, expected);
  EXPECT_EQ(TypesOf(parse.selected), Types{0x10000});
  EXPECT_TRUE(parse.other.empty());
}

TEST(HeaderParse, TakesTheFirstMortonSeedAlone) {
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                        .Chunk(chunk_type::kMortonSeed, SeedPayload({1, 2, 3, 4, 5, 6}))
                        .Chunk(chunk_type::kMortonSeed, SeedPayload({9, 9, 9, 9, 9, 9}))
                        .Bytes());
  EXPECT_EQ(parse.seed, (std::array<double, 6>{1, 2, 3, 4, 5, 6}));
  EXPECT_EQ(parse.selected.size(), 1u);
  EXPECT_TRUE(parse.other.empty());
}

TEST(HeaderParse, TakesTheFirstValueEvenWhereItIsEmpty) {
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                        .Chunk(chunk_type::kValue16)
                        .Chunk(chunk_type::kMortonSeed)
                        .Chunk(chunk_type::kValue16, Bytes(16, 1))
                        .Chunk(chunk_type::kMortonSeed, SeedPayload({1, 2, 3, 4, 5, 6}))
                        .Bytes());
  EXPECT_EQ(parse.code, result::kOk);
  EXPECT_TRUE(parse.HasZeroValues());
  EXPECT_EQ(TypesOf(parse.selected), Types{0x10000});
  EXPECT_TRUE(parse.other.empty());
}

TEST(HeaderParse, FillsShortValuesUpWithZeros) {
  Bytes seed = SeedPayload({1, 2, 0, 0, 0, 0});
  seed.resize(16);
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kValue16, {1, 2})
                        .Chunk(chunk_type::kMortonSeed, seed)
                        .Bytes());
  EXPECT_EQ(parse.value16, (std::array<std::uint8_t, 16>{1, 2}));
  EXPECT_EQ(parse.seed, (std::array<double, 6>{1, 2}));
}

TEST(HeaderParse, ListsEmptyDirectAndUnknownChunks) {
  const Parse parse(
      MainStreamBuilder().Chunk(chunk_type::kStaticPositions).Chunk(0x77).Chunk(0x200).Bytes());
  EXPECT_EQ(parse.code, result::kNoAccelerator);
  EXPECT_EQ(TypesOf(parse.selected), (Types{2, 0x200, 0}));
  EXPECT_EQ(TypesOf(parse.other), Types{0x77});
}

TEST(HeaderParse, KeepsTheFirstDictionaryThatIsNotEmpty) {
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                        .Chunk(chunk_type::kStringRepository)
                        .Chunk(chunk_type::kStringRepository, {1})
                        .Chunk(chunk_type::kStringRepository, {2})
                        .Chunk(chunk_type::kStringRepository)
                        .Bytes());
  ASSERT_EQ(parse.selected.size(), 2u);
  EXPECT_EQ(parse.selected[1].payload, Bytes{1});
  ASSERT_EQ(parse.other.size(), 1u) << "losers without a payload are dropped";
  EXPECT_EQ(parse.other[0].payload, Bytes{2});
}

TEST(HeaderParse, RefusesASecondRepositoryInformation) {
  const Bytes main = MainStreamBuilder()
                         .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                         .Chunk(chunk_type::kRepositoryInformation, InformationPayload())
                         .Chunk(chunk_type::kRepositoryInformation, InformationPayload())
                         .Chunk(chunk_type::kStaticMetaData, {1})
                         .Bytes();
  const Parse parse(main);
  EXPECT_EQ(parse.code, result::kSecondRepositoryInformation);
  EXPECT_EQ(TypesOf(parse.selected), Types{0x10000}) << "what follows is not read";

  FakeRepository repository(main);
  TarnOOCPointCloud cloud;
  TarnFrameworkAccess access(cloud);
  access.Lend(repository);
  EXPECT_EQ(access.ParseHeader(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr),
            result::kSecondRepositoryInformation);
}

TEST(HeaderParse, PassesOnWhatTheRepositoryInformationSays) {
  Bytes broken = InformationPayload();
  broken[3] ^= 1;
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kRepositoryInformation, broken)
                        .Chunk(chunk_type::kStaticMetaData, {1})
                        .Bytes());
  EXPECT_EQ(parse.code, result::kChecksumMismatch);
  EXPECT_EQ(TypesOf(parse.selected), Types{0});
}

TEST(HeaderParse, StopsAtABrokenCompetitor) {
  for (const std::uint32_t type : {0x10000u, 0x30000000u, 0x50000000u}) {
    const Parse parse(
        MainStreamBuilder().Chunk(type, {1, 2, 3}).Chunk(chunk_type::kStaticMetaData, {1}).Bytes());
    EXPECT_EQ(parse.code, result::kBadRecord) << type;
    EXPECT_EQ(TypesOf(parse.selected), Types{0}) << type;
    EXPECT_EQ(TypesOf(parse.other), Types{type}) << "a rejected candidate is a loser";
  }
}

TEST(HeaderParse, EndsOnTheLastEligibilityTestWhenThatRejected) {
  const Bytes main = MainStreamBuilder()
                         .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                         .Chunk(chunk_type::kLevelOfDetail, OfNewerVersion(LodPayload()))
                         .Chunk(chunk_type::kStaticMetaData, {1})
                         .Bytes();
  const Parse parse(main);
  EXPECT_EQ(parse.code, result::kNothingDone);
  EXPECT_EQ(TypesOf(parse.selected), (Types{1, 0x10000}));
  EXPECT_EQ(TypesOf(parse.other), Types{0x50000000});
}

TEST(HeaderParse, ForgetsARejectionWhenALaterTestSucceeds) {
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator1, OfNewerVersion(AcceleratorPayload()))
                        .Chunk(chunk_type::kAccelerator1, AcceleratorPayload())
                        .Bytes());
  EXPECT_EQ(parse.code, result::kOk);
}

TEST(HeaderParse, FindsNoAcceleratorWhereTheOnlyOneIsNotEligible) {
  const Parse parse(MainStreamBuilder()
                        .Chunk(chunk_type::kAccelerator1, OfNewerVersion(AcceleratorPayload()))
                        .Bytes());
  EXPECT_EQ(parse.code, result::kNoAccelerator);
}

TEST(HeaderParse, TakesNullForEveryOutArgument) {
  FakeRepository repository(CompleteMainStream().Chunk(0x77, {1}).Bytes());
  TarnOOCPointCloud cloud;
  TarnFrameworkAccess access(cloud);
  access.Lend(repository);
  EXPECT_EQ(access.ParseHeader(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), result::kOk);
  EXPECT_TRUE(repository.GetLog()->AllStreamsDestroyed());
}

}  // namespace
