// What every sealed, versioned chunk payload has to keep to.
#pragma once

#include <OOCPointCloud/ResultCodes.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "OOCPointCloud/support/Bytes.h"

namespace oocpctest {

/// The payload with `bytes` written at `at`, sealed anew.
inline std::vector<std::uint8_t> Resealed(const std::vector<std::uint8_t>& payload, std::size_t at,
                                          const std::vector<std::uint8_t>& bytes) {
  constexpr std::ptrdiff_t kSealBytes = 4;
  std::vector<std::uint8_t> content(payload.begin(), payload.end() - kSealBytes);
  std::copy(bytes.begin(), bytes.end(), content.begin() + static_cast<std::ptrdiff_t>(at));
  oocpc::AppendChecksum(content);
  return content;
}

/// The payload cut or zero-filled to `contentBytes` in front of its checksum, sealed anew.
inline std::vector<std::uint8_t> Resized(const std::vector<std::uint8_t>& payload,
                                         std::size_t contentBytes) {
  std::vector<std::uint8_t> content(contentBytes);
  std::copy_n(payload.begin(), std::min(contentBytes, payload.size() - 4), content.begin());
  oocpc::AppendChecksum(content);
  return content;
}

/// Calls `decode(payload)`, which gives a result code, with all sorts of damage.
template <typename Decode>
void ExpectPayloadIsGuarded(const std::vector<std::uint8_t>& good, Decode decode) {
  namespace result = oocpc::result;
  EXPECT_EQ(decode(good), result::kOk);
  for (std::size_t bit = 0; bit < good.size() * 8; ++bit) {
    std::vector<std::uint8_t> bad = good;
    bad[bit / 8] ^= static_cast<std::uint8_t>(1u << (bit % 8));
    EXPECT_EQ(decode(bad), result::kChecksumMismatch) << "bit " << bit;
  }
  for (std::size_t size = 0; size < good.size(); ++size) {
    const std::vector<std::uint8_t> cut(good.begin(),
                                        good.begin() + static_cast<std::ptrdiff_t>(size));
    EXPECT_TRUE(oocpc::Failed(decode(cut))) << "cut to " << size;
  }
  for (std::size_t size = 0; size + sizeof(std::uint32_t) < good.size(); ++size) {
    EXPECT_EQ(decode(Resized(good, size)), result::kBadRecord) << "sealed content of " << size;
  }
  EXPECT_EQ(decode(Resized(good, good.size() - 3)), result::kBadRecord) << "a byte too many";
  EXPECT_EQ(decode(Resealed(good, 0, {0, 0})), result::kBadRecord) << "version 0";
  EXPECT_EQ(decode(Resealed(good, 0, {2, 0})), result::kUnknownVersion);
  EXPECT_EQ(decode(Resealed(good, 0, {0, 1})), result::kUnknownVersion);
}

/// What competing chunk kinds answer before they are loaded.
template <typename Container>
void ExpectEligibility(const std::vector<std::uint8_t>& good, oocpc::ContainerChunkType type) {
  namespace result = oocpc::result;
  const auto answer = [type](const std::vector<std::uint8_t>& payload) {
    return Container::IsEligibleChunk(
        {payload.data(), static_cast<std::uint32_t>(payload.size()), type});
  };
  EXPECT_EQ(answer(good), result::kOk);
  EXPECT_EQ(answer(Resealed(good, 0, {2, 0})), result::kNothingDone) << "a newer version";
  EXPECT_EQ(answer(Resealed(good, 0, {0, 0})), result::kBadRecord) << "version 0";
  std::vector<std::uint8_t> altered = good;
  altered[4] ^= 1;
  EXPECT_EQ(answer(altered), result::kChecksumMismatch);
  EXPECT_EQ(answer({}), result::kBadRecord);
  EXPECT_EQ(Container::IsEligibleChunk({nullptr, 0, type}), result::kBadRecord);
}

/// Which of two chunks is preferred.
template <typename Container>
void ExpectNewerThenLaterWins(const std::vector<std::uint8_t>& good,
                              oocpc::ContainerChunkType type) {
  const std::vector<std::uint8_t> newer = Resealed(good, 0, {2, 0});
  const auto size = static_cast<std::uint32_t>(good.size());
  const oocpc::ChunkDescriptor old{good.data(), size, type};
  const oocpc::ChunkDescriptor fresh{newer.data(), size, type};
  EXPECT_TRUE(Container::CompareChunks(old, old)) << "the later of two equal ones";
  EXPECT_TRUE(Container::CompareChunks(old, fresh));
  EXPECT_FALSE(Container::CompareChunks(fresh, old));
  EXPECT_FALSE(Container::CompareChunks(old, {nullptr, 0, type})) << "nothing is no version";
}

}  // namespace oocpctest
