// The 67-byte header that opens a repository's main stream, and the chunks that follow it.
#pragma once

#include <OOCPointCloud/Types.h>

#include <utility>
#include <vector>

/// The repository header, byte for byte; every member has alignment 1.
struct OOCPointCloudFileHeader {
  static constexpr std::size_t kBytes = 67;
  static constexpr std::int8_t kNewestVersion = 1;

  /// "VqPC"; the fourth letter is also the header's length.
  std::array<char, 4> magic{'V', 'q', 'P', 'C'};
  std::int8_t version = kNewestVersion;
  std::array<std::uint8_t, 8> data5{};
  std::array<std::uint8_t, 48> data13{};
  std::array<std::uint8_t, 6> data61{};
};
static_assert(sizeof(OOCPointCloudFileHeader) == OOCPointCloudFileHeader::kBytes);
static_assert(alignof(OOCPointCloudFileHeader) == 1);

/// One chunk of the main stream in memory: type, size, and a payload of exactly `size` bytes.
/// Moved, never copied; moving leaves the source empty.
struct OOCIndexChunk {
  static constexpr std::size_t kHeadBytes = 8;

  oocpc::ContainerChunkType type = 0;
  std::uint32_t size = 0;
  std::vector<std::uint8_t> payload;

  OOCIndexChunk() = default;
  OOCIndexChunk(oocpc::ContainerChunkType chunkType, std::vector<std::uint8_t> bytes)
      : type(chunkType),
        size(static_cast<std::uint32_t>(bytes.size())),
        payload(std::move(bytes)) {}
  OOCIndexChunk(const OOCIndexChunk&) = delete;
  OOCIndexChunk& operator=(const OOCIndexChunk&) = delete;
  OOCIndexChunk(OOCIndexChunk&& other) noexcept { *this = std::move(other); }
  OOCIndexChunk& operator=(OOCIndexChunk&& other) noexcept {
    if (this != &other) {
      type = std::exchange(other.type, 0);
      size = std::exchange(other.size, 0);
      payload = std::move(other.payload);
      other.payload.clear();
    }
    return *this;
  }
  ~OOCIndexChunk() = default;

  [[nodiscard]] bool IsEmpty() const { return payload.empty(); }
  [[nodiscard]] oocpc::ChunkDescriptor Describe() const { return {payload.data(), size, type}; }
};
