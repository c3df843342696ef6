// What a repository keeps of a source file besides its points.
#pragma once

#include <OOCPointCloud/OOCPCRepositoryInformation.h>

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// The stream of the sources: "DEF_SOURCES", or where a repair has put another one in its place,
/// "DEF_SOURCES_<number>".
[[nodiscard]] std::string FindSourceStream(const OOCPCRepositoryInformation& information);

/// One source file: everything before and behind its point records. In the stream "DEF_SOURCES" the
/// head of each record is followed by the leading and the trailing bytes; see docs/format.md.
struct SourceRecord {
  static constexpr const char* kStreamName = "DEF_SOURCES";
  static constexpr std::uint16_t kVersion = 1;

  std::string fileName;  ///< without folders, bytes as the system gave them; empty when it was lost
  std::uint64_t pointCount = 0;
  std::span<const std::uint8_t> leadingBytes;   ///< borrowed
  std::span<const std::uint8_t> trailingBytes;  ///< borrowed

  /// The head, sealed; it states lengths and checksums of the two runs of bytes that follow it.
  [[nodiscard]] std::vector<std::uint8_t> EncodeHead() const;
};

/// What the head of a record says.
struct SourceHead {
  std::string fileName;
  std::uint64_t pointCount = 0;
  std::uint64_t leadingBytes = 0;
  std::uint64_t trailingBytes = 0;
  std::uint32_t leadingChecksum = 0;
  std::uint32_t trailingChecksum = 0;
  std::size_t headBytes = 0;  ///< its own length
};

/// The head of the first record of a stream, whatever is behind it.
[[nodiscard]] HRESULT DecodeSourceHead(std::span<const std::uint8_t> stream, SourceHead& head);
/// Takes the first record off a stream; the record borrows from it. On failure `rest` stands
/// anywhere in that record.
[[nodiscard]] HRESULT DecodeSourceRecord(std::span<const std::uint8_t>& rest, SourceRecord& record);
/// Takes a whole stream apart; the records borrow from it. kBadRecord, kChecksumMismatch and
/// kUnknownVersion leave `records` as it was.
[[nodiscard]] HRESULT DecodeSourceRecords(std::span<const std::uint8_t> stream,
                                          std::vector<SourceRecord>& records);

}  // namespace tarnhost
