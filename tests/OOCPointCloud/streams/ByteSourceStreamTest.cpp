// Reading a stream over bytes in memory, up to and behind its end.
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <array>
#include <limits>
#include <memory>
#include <vector>

#include "OOCPointCloud/streams/OOCPCByteSourceStream.h"

namespace {

constexpr std::uint64_t kHuge = std::numeric_limits<std::uint64_t>::max();

class VectorSource final : public OOCPCByteSource {
 public:
  explicit VectorSource(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] std::span<const std::uint8_t> GetBytes() const override { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

std::shared_ptr<const OOCPCByteSource> TenBytes() {
  return std::make_shared<VectorSource>(std::vector<std::uint8_t>{0, 1, 2, 3, 4, 5, 6, 7, 8, 9});
}

TEST(ByteSourceStream, ReadsFromTheStartAndAdvances) {
  OOCPCByteSourceStream stream(TenBytes(), 10);
  std::array<std::uint8_t, 4> bytes{};
  EXPECT_TRUE(stream.IsUsable());
  EXPECT_EQ(stream.GetPosition(), 0u);
  EXPECT_EQ(stream.Read(bytes.data(), 4), 4u);
  EXPECT_EQ(bytes, (std::array<std::uint8_t, 4>{0, 1, 2, 3}));
  EXPECT_EQ(stream.Read(bytes.data(), 2), 2u);
  EXPECT_EQ(bytes[0], 4);
  EXPECT_EQ(stream.GetPosition(), 6u);
}

TEST(ByteSourceStream, ReadsWhatIsLeftAndThenNothing) {
  OOCPCByteSourceStream stream(TenBytes(), 10);
  std::array<std::uint8_t, 16> bytes{};
  ASSERT_EQ(stream.SetPosition(7), oocpc::result::kOk);
  EXPECT_EQ(stream.Read(bytes.data(), kHuge), 3u);
  EXPECT_EQ(bytes[2], 9);
  EXPECT_EQ(stream.Read(bytes.data(), 1), 0u);
  EXPECT_EQ(stream.GetPosition(), 10u);
}

TEST(ByteSourceStream, SeeksUpToItsEndAndNoFurther) {
  OOCPCByteSourceStream stream(TenBytes(), 10);
  EXPECT_EQ(stream.SetPosition(10), oocpc::result::kOk);
  ASSERT_EQ(stream.SetPosition(3), oocpc::result::kOk);
  EXPECT_EQ(stream.SetPosition(11), oocpc::result::kSeekOutOfRange);
  EXPECT_EQ(stream.SetPosition(kHuge), oocpc::result::kSeekOutOfRange);
  EXPECT_EQ(stream.GetPosition(), 3u);
}

TEST(ByteSourceStream, EndsAtTheLengthItWasGiven) {
  OOCPCByteSourceStream stream(TenBytes(), 4);
  std::array<std::uint8_t, 16> bytes{};
  EXPECT_EQ(stream.GetLength(), 4u);
  EXPECT_EQ(stream.Read(bytes.data(), 10), 4u);
  EXPECT_EQ(stream.View(0, 5), nullptr);
  EXPECT_EQ(stream.SetPosition(5), oocpc::result::kSeekOutOfRange);
}

TEST(ByteSourceStream, IsNeverLongerThanItsSource) {
  const OOCPCByteSourceStream stream(TenBytes(), kHuge);
  EXPECT_EQ(stream.GetLength(), 10u);
}

TEST(ByteSourceStream, GivesViewsThatLieWhollyInside) {
  const OOCPCByteSourceStream stream(TenBytes(), 10);
  ASSERT_NE(stream.View(3, 7), nullptr);
  EXPECT_EQ(*stream.View(3, 7), 3);
  EXPECT_EQ(stream.View(3, 8), nullptr);
  EXPECT_EQ(stream.View(11, 0), nullptr);
  EXPECT_EQ(stream.View(3, kHuge), nullptr);
  EXPECT_EQ(stream.View(kHuge, 2), nullptr);
}

TEST(ByteSourceStream, KeepsItsSourceAlive) {
  std::shared_ptr<const OOCPCByteSource> source = TenBytes();
  const std::weak_ptr<const OOCPCByteSource> watch = source;
  auto stream = std::make_unique<OOCPCByteSourceStream>(std::move(source), 10);
  EXPECT_FALSE(watch.expired());
  stream.reset();
  EXPECT_TRUE(watch.expired());
}

TEST(ByteSourceStream, WithoutASourceIsNotUsableAndReadsNothing) {
  OOCPCByteSourceStream stream(nullptr, 10);
  std::uint8_t byte = 77;
  EXPECT_FALSE(stream.IsUsable());
  EXPECT_EQ(stream.GetLength(), 0u);
  EXPECT_EQ(stream.Read(&byte, 1), 0u);
  EXPECT_EQ(byte, 77);
}

// The plainest stream there can be.
class EmptyStream final : public OOCPCIInputStream {
 public:
  std::uint64_t Read(void*, const std::uint64_t&) override { return 0; }
  [[nodiscard]] std::uint64_t GetPosition() const override { return 0; }
  [[nodiscard]] HRESULT SetPosition(const std::uint64_t&) override { return 0; }
  [[nodiscard]] std::uint64_t GetLength() const override { return 0; }
  [[nodiscard]] bool IsUsable() const override { return true; }
};

TEST(InputStream, GivesNoViewsUnlessItKnowsHowTo) { EXPECT_EQ(EmptyStream().View(0, 0), nullptr); }

}  // namespace
