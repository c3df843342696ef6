// The public header block of LAS 1.0 to 1.4 and its variable-length records, checked against the
// file before anything is believed.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// A variable-length record, plain or extended; its payload lies in the file at `payloadOffset`.
struct LasVariableRecord {
  std::string userId;
  std::uint16_t recordId = 0;
  std::string description;
  std::uint64_t payloadOffset = 0;  ///< bytes from the start of the file
  std::uint64_t payloadBytes = 0;
  bool extended = false;

  /// True for the record that tells how the points of a LAZ file are compressed.
  [[nodiscard]] bool IsCompression() const {
    return userId == "laszip encoded" && recordId == 22204 && !extended;
  }
};

/// The public header block (LAS 1.4 R15, section 2.4; older versions are shorter). Offsets are
/// bytes from the start of the file.
struct LasHeader {
  std::uint16_t fileSourceId = 0;
  std::uint16_t globalEncoding = 0;
  std::array<std::uint8_t, 16> guid{};
  std::uint8_t versionMajor = 1;
  std::uint8_t versionMinor = 4;
  std::string systemIdentifier;  ///< up to the first NUL
  std::string generatingSoftware;
  std::uint16_t creationDay = 0;  ///< day of the year
  std::uint16_t creationYear = 0;
  std::uint16_t headerBytes = 375;
  std::uint32_t pointsOffset = 375;
  std::uint32_t recordCount = 0;  ///< variable-length records
  std::uint8_t pointFormat = 0;
  std::uint16_t pointBytes = 0;
  std::uint32_t legacyPointCount = 0;
  std::array<std::uint32_t, 5> legacyReturnCounts{};
  std::array<double, 3> scale{1, 1, 1};
  std::array<double, 3> offset{};
  std::array<double, 3> min{};
  std::array<double, 3> max{};
  std::uint64_t waveformOffset = 0;  ///< 1.3 and later
  std::uint64_t extendedOffset = 0;  ///< 1.4
  std::uint32_t extendedCount = 0;
  std::uint64_t pointCount = 0;  ///< of the version's own field, or the legacy one where that is 0
  std::array<std::uint64_t, 15> returnCounts{};

  std::vector<LasVariableRecord> records;  ///< plain ones, then extended ones
  /// What the extra-bytes records (user "LASF_Spec", number 4) hold, one descriptor of
  /// kExtraByteDescriptorBytes after the other.
  std::vector<std::uint8_t> extraByteDescriptors;
};

/// Bytes of one descriptor of extra bytes (LAS 1.4 R15, table 24).
inline constexpr std::size_t kExtraByteDescriptorBytes = 192;

/// Bytes of the public header block of version 1.`minor`.
[[nodiscard]] std::uint16_t LasHeaderBytes(std::uint8_t minor);
/// Bytes of a record of a point format without extra bytes; 0 for a format that does not exist.
[[nodiscard]] std::uint16_t LasPointBytes(std::uint8_t pointFormat);

/// Reads and checks the header of a whole LAS file in memory. `where` names the file in messages.
/// kScanNotRecognised, kScanTruncated, kScanContradictory, kScanUnsupported.
Outcome ParseLasHeader(std::span<const std::uint8_t> file, const std::string& where,
                       LasHeader& header);

/// The same for a LAZ file, except for its points, of which only the format and the length of an
/// uncompressed record are checked. `header.pointFormat` is the one of uncompressed points.
Outcome ParseLazHeader(std::span<const std::uint8_t> file, const std::string& where,
                       LasHeader& header);

/// The same for a file whose `pointCount` point records are not at hand: `leading` is everything
/// before them, `trailing` everything behind them. The records' payload offsets are those of the
/// whole file.
Outcome ParseLasFrame(std::span<const std::uint8_t> leading, std::uint64_t pointCount,
                      std::span<const std::uint8_t> trailing, const std::string& where,
                      LasHeader& header);

/// The public header block of `header`'s version, without variable-length records.
[[nodiscard]] std::vector<std::uint8_t> EncodeLasHeader(const LasHeader& header);

/// Writes the counts, the bounding box and the offsets behind the points of `header` over an
/// encoded public header block of the same version; all other bytes stay as they are.
void PatchLasHeader(const LasHeader& header, std::span<std::uint8_t> encoded);

}  // namespace tarnhost
