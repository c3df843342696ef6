// What a LAZ file states of its compression: the record of user "laszip encoded", number 22204.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost::laz {

inline constexpr const char* kLazUserId = "laszip encoded";
inline constexpr std::uint16_t kLazRecordId = 22204;
/// The chunk size that stands for "each as the chunk table says".
inline constexpr std::uint32_t kVariableChunks = 0xFFFFFFFFu;
inline constexpr std::uint32_t kUsualChunkPoints = 50000;

/// Which parts lie where in a point record, and how they are coded.
struct LazLayout {
  bool layered = false;  ///< point formats 6 to 10
  bool chunked = true;   ///< false for one run of points without a chunk table
  unsigned version = 2;  ///< of the items; 3 or 4 when layered
  std::uint32_t chunkPoints = kUsualChunkPoints;  ///< or kVariableChunks
  std::size_t recordBytes = 0;
  // Offsets in the record; 0 for what it does not have.
  std::size_t timeAt = 0;  ///< of the formats 0 to 5; the others have it among the first 30 bytes
  std::size_t colorAt = 0;
  std::size_t nirAt = 0;
  std::size_t waveAt = 0;
  std::size_t extraAt = 0;
  std::size_t extraBytes = 0;

  [[nodiscard]] bool HasVariableChunks() const { return chunkPoints == kVariableChunks; }
  [[nodiscard]] std::size_t CountLayers() const;
};

/// Reads the payload of the record. `where` names the file in messages. kScanUnsupported for what
/// other compressors or older versions of this one wrote, kScanContradictory for nonsense.
Outcome ParseLazLayout(std::span<const std::uint8_t> payload, std::size_t pointBytes,
                       const std::string& where, LazLayout& layout);

/// The layout that a writer uses for an (existing) point format and a record length.
[[nodiscard]] LazLayout LazLayoutFor(std::uint8_t pointFormat, std::size_t pointBytes,
                                     std::uint32_t chunkPoints);

/// The payload for a layout.
[[nodiscard]] std::vector<std::uint8_t> EncodeLazLayout(const LazLayout& layout);

}  // namespace tarnhost::laz
