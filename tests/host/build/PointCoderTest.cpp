// Codes of many points at once are those of each.
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "host/build/PointCoder.h"

namespace tarnhost {
namespace {

PointCoder RandomCoder(std::mt19937_64& random) {
  std::uniform_real_distribution<double> offset(-1e6, 1e6);
  PointCoder coder;
  coder.transform = {{0.01, 0.001, 0.1}, {offset(random), offset(random), offset(random)}};
  coder.frameOffset = {1000, -3000, 0};
  coder.cube.min = {-2e6, -2e6, -2e6};
  coder.cube.edge = 4e6;
  return coder;
}

TEST(PointCoder, CodesManyPointsAsItCodesEach) {
  std::mt19937_64 random(4);
  for (const std::size_t count : {0u, 1u, 7u, 255u, 256u, 257u, 3000u}) {
    const PointCoder coder = RandomCoder(random);
    std::vector<std::int32_t> xyz(3 * count);
    for (std::int32_t& value : xyz) value = static_cast<std::int32_t>(random());
    std::vector<std::uint64_t> codes(count, 1);
    coder.CodesOf(xyz.data(), codes);
    constexpr std::size_t kRecordBytes = 31;
    std::vector<std::uint8_t> records(count * kRecordBytes);
    for (std::size_t i = 0; i < count; ++i) {
      EXPECT_EQ(codes[i], coder.CodeOf(xyz.data() + 3 * i)) << i;
      std::memcpy(records.data() + i * kRecordBytes, xyz.data() + 3 * i, 12);
    }
    std::vector<std::uint64_t> again(count, 2);
    coder.CodesOfRecords(records, kRecordBytes, again);
    EXPECT_EQ(again, codes);
  }
}

TEST(PointCoder, PutsPositionsOutsideTheCubeIntoTheNearestCells) {
  PointCoder coder;
  coder.cube = {{0, 0, 0}, 10};
  const std::int32_t outside[] = {-5, 20, 3};
  const std::int32_t inside[] = {0, 9, 3};
  std::uint64_t code = 0;
  coder.CodesOf(outside, std::span(&code, 1));
  EXPECT_EQ(CollectBits(code), 0u);
  EXPECT_EQ(CollectBits(code >> 1), (1u << kMortonBits) - 1);
  EXPECT_EQ(CollectBits(code >> 2), CollectBits(coder.CodeOf(inside) >> 2));
}

}  // namespace
}  // namespace tarnhost
