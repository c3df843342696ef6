// Entries of a column's block table, taken from its bytes.
#pragma once

#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/ResultCodes.h>

#include <cstdint>
#include <span>
#include <vector>

namespace oocpctest {

/// Bytes of each entry of a table, as its first one says, which must be sound.
inline std::size_t EntryBytes(const std::vector<std::uint8_t>& table) {
  constexpr std::size_t kTypeAt = 18;
  return oocpc::BlockEntry::RecordBytes(
      {static_cast<oocpc::ValueType>(table.at(kTypeAt)), table.at(kTypeAt + 1)});
}

/// False when the table has no such entry that is sound.
inline bool DecodeEntry(const std::vector<std::uint8_t>& table, std::size_t block,
                        oocpc::BlockEntry& entry) {
  const std::size_t bytes = EntryBytes(table);
  if (table.size() / bytes <= block) return false;
  const auto record = std::span(table).subspan(block * bytes, bytes);
  return oocpc::BlockEntry::Decode(record, entry) == oocpc::result::kOk;
}

}  // namespace oocpctest
