// What the competing chunk kinds have in common: a payload that is sealed, begins with its format
// version, and is weighed against another of its kind.
#pragma once

#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/Types.h>

#include "OOCPointCloud/support/Bytes.h"

namespace oocpc {

/// Takes a sealed payload apart: `reader` then stands behind the version, which is `known`.
/// kBadRecord (also for version 0), kChecksumMismatch, kUnknownVersion for a newer version.
[[nodiscard]] inline HRESULT OpenVersionedPayload(const std::uint8_t* payload, std::uint32_t size,
                                                  std::uint16_t known, ByteReader& reader) {
  std::span<const std::uint8_t> content;
  const HRESULT code = CheckSealedPayload(payload, size, content);
  if (Failed(code)) return code;
  reader = ByteReader(content);
  std::uint16_t version = 0;
  if (!reader.Read(version) || version == 0) return result::kBadRecord;
  return version > known ? result::kUnknownVersion : result::kOk;
}

/// Whether a chunk takes part: 0 yes, 1 no (a newer version), negative when it is broken.
template <typename Description>
[[nodiscard]] HRESULT CheckEligibility(const ChunkDescriptor& chunk) {
  Description description;
  const HRESULT code = description.DecodeChunk(std::get<0>(chunk), std::get<1>(chunk));
  return code == result::kUnknownVersion ? result::kNothingDone : code;
}

/// Format version of a payload, 0 when it is too short to have one.
[[nodiscard]] inline std::uint16_t VersionOf(const ChunkDescriptor& chunk) {
  const auto& [payload, size, type] = chunk;
  if (payload == nullptr || size < sizeof(std::uint16_t)) return 0;
  return LoadLittleEndian<std::uint16_t>(payload);
}

/// True when the later chunk is preferred: its version is at least as new.
[[nodiscard]] inline bool PrefersLater(const ChunkDescriptor& kept,
                                       const ChunkDescriptor& candidate) {
  return VersionOf(candidate) >= VersionOf(kept);
}

}  // namespace oocpc
