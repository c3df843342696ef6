// The repository-information chunk: its bytes, and every way in which it can be wrong.
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <cmath>
#include <limits>

#include "OOCPointCloud/support/Bytes.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

OOCPCRepositoryInformation Example() {
  OOCPCRepositoryInformation information;
  information.catalogueBytes = 0x0102030405060708;
  information.catalogueChecksum = 0xA1B2C3D4;
  information.creationTime = 1'700'000'000'000'000;
  information.localFrameOffset = {500'000, -2.5, 0};
  information.generator = "tarn 1";
  information.streams = {{"DEF_LOD", 0}, {"DEF_OCTREE", 160}};
  return information;
}

// clang-format off
const Bytes kGolden{
    0x01, 0x00, 0x08, 0x07, 0x06, 0x05, 0x04, 0x03, 0x02, 0x01, 0xD4, 0xC3,
    0xB2, 0xA1, 0x00, 0x40, 0x1E, 0x18, 0x24, 0x0A, 0x06, 0x00, 0x00, 0x00,
    0x00, 0x00, 0x80, 0x84, 0x1E, 0x41, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00,
    0x04, 0xC0, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x06, 0x00,
    0x00, 0x00, 0x74, 0x61, 0x72, 0x6E, 0x20, 0x31, 0x02, 0x00, 0x00, 0x00,
    0x07, 0x00, 0x00, 0x00, 0x44, 0x45, 0x46, 0x5F, 0x4C, 0x4F, 0x44, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x00, 0x0A, 0x00, 0x00, 0x00, 0x44,
    0x45, 0x46, 0x5F, 0x4F, 0x43, 0x54, 0x52, 0x45, 0x45, 0xA0, 0x00, 0x00,
    0x00, 0x00, 0x00, 0x00, 0x00, 0x66, 0x2F, 0x84, 0xFB,
};
// clang-format on

constexpr std::size_t kVersionOffset = 0;
constexpr std::size_t kFrameOffset = 22;
constexpr std::size_t kGeneratorLengthOffset = 46;
constexpr std::size_t kStreamCountOffset = 56;
constexpr std::size_t kFirstNameLengthOffset = 60;
constexpr std::size_t kFirstNameOffset = 64;

HRESULT Load(const Bytes& payload, OOCPCRepositoryInformation& information) {
  return information.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
}

// The golden bytes, altered and sealed anew: what a faulty writer would leave.
class Forged {
 public:
  template <typename T>
  Forged& Put(std::size_t offset, T value) {
    std::memcpy(bytes_.data() + offset, &value, sizeof(T));
    return *this;
  }
  Forged& Insert(std::size_t offset, std::string_view text) {
    bytes_.insert(bytes_.begin() + static_cast<std::ptrdiff_t>(offset), text.begin(), text.end());
    return *this;
  }
  [[nodiscard]] HRESULT Load() const {
    Bytes sealed = bytes_;
    oocpc::AppendChecksum(sealed);
    OOCPCRepositoryInformation information;
    return ::Load(sealed, information);
  }

 private:
  Bytes bytes_{kGolden.begin(), kGolden.end() - 4};
};

TEST(RepositoryInformation, HasTheseBytes) { EXPECT_EQ(Example().EncodeChunk(), kGolden); }

TEST(RepositoryInformation, ComesBackFromItsBytes) {
  OOCPCRepositoryInformation information;
  EXPECT_FALSE(information.IsLoaded());
  ASSERT_EQ(Load(kGolden, information), oocpc::result::kOk);
  EXPECT_TRUE(information.IsLoaded());
  EXPECT_EQ(information.catalogueBytes, 0x0102030405060708u);
  EXPECT_EQ(information.catalogueChecksum, 0xA1B2C3D4u);
  EXPECT_EQ(information.creationTime, 1'700'000'000'000'000u);
  EXPECT_EQ(information.localFrameOffset, (oocpc::Vector3d{500'000, -2.5, 0}));
  EXPECT_EQ(information.generator, "tarn 1");
  ASSERT_EQ(information.streams.size(), 2u);
  EXPECT_EQ(information.streams[0].name, "DEF_LOD");
  EXPECT_EQ(information.streams[1].committedBytes, 160u);
  EXPECT_EQ(information.EncodeChunk(), kGolden);
}

TEST(RepositoryInformation, FindsStreamsByName) {
  const OOCPCRepositoryInformation information = Example();
  ASSERT_NE(information.FindStream("DEF_OCTREE"), nullptr);
  EXPECT_EQ(information.FindStream("DEF_OCTREE")->committedBytes, 160u);
  EXPECT_EQ(information.FindStream("DEF_OCT"), nullptr);
  EXPECT_EQ(information.FindStream(""), nullptr);
}

TEST(RepositoryInformation, RefusesEveryAlteredBit) {
  for (std::size_t bit = 0; bit < 8 * kGolden.size(); ++bit) {
    Bytes altered = kGolden;
    altered[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
    OOCPCRepositoryInformation information;
    EXPECT_EQ(Load(altered, information), oocpc::result::kChecksumMismatch) << bit;
  }
}

TEST(RepositoryInformation, RefusesEveryCut) {
  for (std::size_t length = 0; length < kGolden.size(); ++length) {
    OOCPCRepositoryInformation information;
    const HRESULT code = Load(Bytes(kGolden.begin(), kGolden.begin() + length), information);
    EXPECT_EQ(code, length < 4 ? oocpc::result::kBadRecord : oocpc::result::kChecksumMismatch);
  }
}

TEST(RepositoryInformation, RefusesEveryCutThatIsSealedAnew) {
  for (std::size_t length = 0; length + 4 < kGolden.size(); ++length) {
    Bytes cut(kGolden.begin(), kGolden.begin() + length);
    oocpc::AppendChecksum(cut);
    OOCPCRepositoryInformation information;
    EXPECT_EQ(Load(cut, information), oocpc::result::kBadRecord) << length;
  }
}

TEST(RepositoryInformation, RefusesANewerVersion) {
  EXPECT_EQ(Forged().Put(kVersionOffset, std::uint16_t{2}).Load(), oocpc::result::kUnknownVersion);
  EXPECT_EQ(Forged().Put(kVersionOffset, std::uint16_t{0}).Load(), oocpc::result::kUnknownVersion);
  EXPECT_EQ(Forged().Load(), oocpc::result::kOk);
}

TEST(RepositoryInformation, RefusesLengthsAndCountsThatDoNotFit) {
  constexpr std::uint32_t kHuge = 0xFFFFFFFF;
  EXPECT_EQ(Forged().Put(kGeneratorLengthOffset, kHuge).Load(), oocpc::result::kBadRecord);
  EXPECT_EQ(Forged().Put(kStreamCountOffset, kHuge).Load(), oocpc::result::kBadRecord);
  EXPECT_EQ(Forged().Put(kStreamCountOffset, std::uint32_t{3}).Load(), oocpc::result::kBadRecord);
  EXPECT_EQ(Forged().Put(kFirstNameLengthOffset, kHuge).Load(), oocpc::result::kBadRecord);
}

TEST(RepositoryInformation, RefusesBytesBehindItsLastField) {
  EXPECT_EQ(Forged().Put(kStreamCountOffset, std::uint32_t{1}).Load(), oocpc::result::kBadRecord);
  EXPECT_EQ(Forged().Insert(kGolden.size() - 4, "x").Load(), oocpc::result::kBadRecord);
}

TEST(RepositoryInformation, RefusesNamesThatNoStreamHas) {
  EXPECT_EQ(Forged().Put(kFirstNameOffset, '.').Load(), oocpc::result::kBadRecord);
  EXPECT_EQ(Forged().Put(kFirstNameOffset, '/').Load(), oocpc::result::kBadRecord);
  EXPECT_EQ(Forged().Put(kFirstNameOffset, '\0').Load(), oocpc::result::kBadRecord);
}

TEST(RepositoryInformation, RefusesANameThatIsListedTwice) {
  OOCPCRepositoryInformation twice = Example();
  twice.streams.push_back({"DEF_LOD", 1});
  OOCPCRepositoryInformation information;
  EXPECT_EQ(Load(twice.EncodeChunk(), information), oocpc::result::kBadRecord);
}

TEST(RepositoryInformation, RefusesAFrameThatIsNoPlace) {
  for (const double axis : {std::numeric_limits<double>::infinity(), std::nan("")}) {
    EXPECT_EQ(Forged().Put(kFrameOffset + 8, axis).Load(), oocpc::result::kBadRecord);
  }
}

TEST(RepositoryInformation, KeepsWhatItHadWhenLoadingFails) {
  OOCPCRepositoryInformation information;
  ASSERT_EQ(Load(kGolden, information), oocpc::result::kOk);
  EXPECT_TRUE(oocpc::Failed(Load(Bytes(20, 1), information)));
  EXPECT_TRUE(information.IsLoaded());
  EXPECT_EQ(information.EncodeChunk(), kGolden);
}

TEST(RepositoryInformation, MayListNoStreamsAndNameNoGenerator) {
  const Bytes payload = OOCPCRepositoryInformation().EncodeChunk();
  OOCPCRepositoryInformation information;
  ASSERT_EQ(Load(payload, information), oocpc::result::kOk);
  EXPECT_TRUE(information.streams.empty());
  EXPECT_TRUE(information.generator.empty());
}

}  // namespace
