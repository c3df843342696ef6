// The 80-byte record of an update iteration.
#include <OOCPointCloud/OOCPCUpdateIteration.h>
#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include "tests/support/ByteText.h"
#include "tests/support/ChunkCases.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
namespace result = oocpc::result;

OOCPCUpdateIteration Sample() {
  OOCPCUpdateIteration iteration;
  iteration.timePoint = 1700000000123456;
  iteration.acceleratorPayload = {320, 800};
  iteration.lodPayload = {66, 150};
  iteration.pointCount = 10000000000;
  iteration.addedPointCount = 5;
  iteration.blockCount = 42;
  iteration.addedBytes = 4096;
  return iteration;
}

const char* const kGolden =
    "40 22 20 18 24 0A 06 00 40 01 00 00 00 00 00 00 20 03 00 00 00 00 00 00 "
    "42 00 00 00 00 00 00 00 96 00 00 00 00 00 00 00 00 E4 0B 54 02 00 00 00 "
    "05 00 00 00 00 00 00 00 2A 00 00 00 00 00 00 00 00 10 00 00 00 00 00 00 "
    "00 00 00 00 E2 2B 86 4C ";

HRESULT Unstream(const Bytes& record, OOCPCUpdateIteration& iteration) {
  return iteration.Unstream(1, record.data(), static_cast<std::uint16_t>(record.size()));
}

TEST(UpdateIterationRecord, IsByteForByteAsDocumented) {
  Bytes bytes{7};
  Sample().Stream(bytes);
  EXPECT_EQ(Bytes(bytes.begin() + 1, bytes.end()), oocpctest::BytesOf(kGolden));
}

TEST(UpdateIterationRecord, ComesBackAsItWasWritten) {
  OOCPCUpdateIteration iteration;
  ASSERT_EQ(Unstream(oocpctest::BytesOf(kGolden), iteration), result::kOk);
  EXPECT_EQ(iteration.timePoint, 1700000000123456u);
  EXPECT_EQ(iteration.pointCount, 10000000000u);
  EXPECT_EQ(iteration.addedPointCount, 5u);
  EXPECT_EQ(iteration.blockCount, 42u);
  EXPECT_EQ(iteration.addedBytes, 4096u);
  OOCPCUpdItrAcceleratorPayload accelerator;
  iteration.GetAcceleratorPayload(accelerator);
  EXPECT_EQ(accelerator.beginBytes, 320u);
  EXPECT_EQ(accelerator.sizeBytes, 800u);
  OOCPCUpdItrLODPayload lod;
  iteration.GetLODPayload(lod);
  EXPECT_EQ(lod.beginBytes, 66u);
  EXPECT_EQ(lod.endBytes, 150u);
}

TEST(UpdateIterationRecord, IsRefusedWhenAnyBitIsFlipped) {
  const Bytes good = oocpctest::BytesOf(kGolden);
  for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
    Bytes bad = good;
    bad[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
    OOCPCUpdateIteration iteration;
    ASSERT_EQ(Unstream(bad, iteration), result::kChecksumMismatch) << "bit " << bit;
    ASSERT_EQ(iteration.timePoint, 0u) << "a refused record must leave the object as it was";
  }
}

TEST(UpdateIterationRecord, IsRefusedInAnyOtherSize) {
  const Bytes good = oocpctest::BytesOf(kGolden);
  OOCPCUpdateIteration iteration;
  for (const std::uint16_t size : {0, 1, 4, 79, 81, 160}) {
    Bytes bytes = good;
    bytes.resize(160);
    EXPECT_EQ(iteration.Unstream(1, bytes.data(), size), result::kBadRecord) << size;
  }
  EXPECT_EQ(iteration.Unstream(1, nullptr, 80), result::kBadRecord);
}

TEST(UpdateIterationRecord, IsRefusedInAnyOtherVersion) {
  const Bytes good = oocpctest::BytesOf(kGolden);
  OOCPCUpdateIteration iteration;
  EXPECT_EQ(iteration.Unstream(0, good.data(), 80), result::kBadRecord);
  EXPECT_EQ(iteration.Unstream(2, good.data(), 80), result::kUnknownVersion);
  EXPECT_EQ(iteration.Unstream(~0u, good.data(), 80), result::kUnknownVersion);
}

TEST(UpdateIterationRecord, IsRefusedWhenReservedBytesAreSet) {
  OOCPCUpdateIteration iteration;
  for (std::size_t at = 72; at < 76; ++at) {
    const Bytes bad = oocpctest::Resealed(oocpctest::BytesOf(kGolden), at, {1});
    EXPECT_EQ(Unstream(bad, iteration), result::kBadRecord) << at;
  }
}

TEST(UpdateIterationRecord, IsRefusedWhenAPayloadEndsBeforeItBegins) {
  OOCPCUpdateIteration iteration;
  for (const std::size_t at : {8u, 24u}) {
    const Bytes bad = oocpctest::Resealed(oocpctest::BytesOf(kGolden), at + 2, {1});
    EXPECT_EQ(Unstream(bad, iteration), result::kBadRecord) << at;
  }
}

TEST(UpdateIterationRecord, HoldsTheLargestNumbers) {
  OOCPCUpdateIteration written;
  written.timePoint = written.pointCount = written.addedPointCount = ~std::uint64_t{0};
  written.blockCount = written.addedBytes = ~std::uint64_t{0};
  written.acceleratorPayload = {~std::uint64_t{0}, ~std::uint64_t{0}};
  written.lodPayload = {0, ~std::uint64_t{0}};
  Bytes bytes;
  written.Stream(bytes);
  OOCPCUpdateIteration read;
  ASSERT_EQ(Unstream(bytes, read), result::kOk);
  Bytes again;
  read.Stream(again);
  EXPECT_EQ(again, bytes);
}

}  // namespace
