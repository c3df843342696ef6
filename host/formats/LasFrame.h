// What a LAS file holds besides its points, and how that is changed for another file.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <string>
#include <vector>

#include "host/formats/LasHeader.h"
#include "host/formats/laz/LazLayout.h"

namespace tarnhost {

/// What a LAS file holds besides its points, as a ScanFile gave it.
struct LasFrame {
  std::span<const std::uint8_t> leadingBytes;   ///< header and variable-length records
  std::span<const std::uint8_t> trailingBytes;  ///< everything behind the points
  std::uint64_t sourcePointCount = 0;           ///< points between the two in the source
  /// Holds the bytes, if anything does here; else they are borrowed.
  std::shared_ptr<const void> owner{};
  /// Where in a point record the first of three extra bytes stands that are one colour together:
  /// see LasRecordLayout::JoinColor. 0: there are none.
  std::size_t colorOffset = 0;
};

/// The flag of a header that GPS times are adjusted standard seconds, not seconds of the week.
inline constexpr std::uint16_t kLasAdjustedTime = 1u;
/// The flag of a header that its coordinate system is well-known text; LAS 1.4.
inline constexpr std::uint16_t kLasWktEncoding = 1u << 4;

/// A record of user "copc" describes the order of the points of one file. It is true of no other.
[[nodiscard]] bool IsCopcRecord(const LasVariableRecord& record);

[[nodiscard]] bool IsProjectionRecord(const LasVariableRecord& record);
/// True for the coordinate system as well-known text.
[[nodiscard]] bool IsWktRecord(const LasVariableRecord& record);
/// True for the coordinate system as a list of GeoTIFF keys that is not empty.
[[nodiscard]] bool HasGeoKeys(const LasVariableRecord& record);

/// The frame without the records that `isUnwanted` names; the same one, when it has none. Failures
/// of ParseLasFrame.
Outcome DropRecords(LasFrame& frame,
                    const std::function<bool(const LasVariableRecord&)>& isUnwanted,
                    const std::string& where);

/// Record heads with their payloads, one after the other, as they stand in a file.
struct LasRecordBytes {
  std::vector<std::uint8_t> plain;
  std::uint32_t plainCount = 0;
  std::vector<std::uint8_t> extended;
  std::uint32_t extendedCount = 0;
};

/// The frame with these records behind its own, and with such flags in its header. It becomes one
/// of LAS 1.4 where extended records or the flag of well-known text ask for that. Failures of
/// ParseLasFrame.
Outcome AddRecords(LasFrame& frame, const LasRecordBytes& added, std::uint16_t globalEncoding,
                   const std::string& where);

/// Leading bytes for a LAZ file: those of a LAS file with the checked `header`, with the record
/// that tells how points are compressed behind the others. What the header says of places behind
/// the points stays wrong until the file is finished.
[[nodiscard]] std::vector<std::uint8_t> CompressLeadingBytes(std::span<const std::uint8_t> leading,
                                                             const LasHeader& header,
                                                             const laz::LazLayout& layout);

/// A variable-length record: 54 bytes and the payload, which is below 64 KiB.
void AppendLasRecord(std::vector<std::uint8_t>& out, const std::string& userId,
                     std::uint16_t recordId, const std::string& description,
                     std::span<const std::uint8_t> payload);

/// An extended variable-length record: 60 bytes and the payload.
void AppendExtendedLasRecord(std::vector<std::uint8_t>& out, const std::string& userId,
                             std::uint16_t recordId, const std::string& description,
                             std::span<const std::uint8_t> payload);

}  // namespace tarnhost
