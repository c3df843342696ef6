// Reads the blocks of one column from its two streams.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/ResultCodes.h>

#include "OOCPointCloud/streams/StreamAccess.h"

namespace oocpc {

std::string ColumnDataStreamName(std::uint32_t columnId) {
  return "DEF_COLUMN_" + std::to_string(columnId);
}

std::string ColumnTableStreamName(std::uint32_t columnId) {
  return ColumnDataStreamName(columnId) + "_BLOCKS";
}

ColumnReader::ColumnReader(OOCPCIDataRepository* repository, std::uint32_t columnId,
                           ColumnType type)
    : repository_(repository), columnId_(columnId), type_(type) {}

ColumnReader::~ColumnReader() = default;

HRESULT ColumnReader::Open() {
  const HRESULT code = OpenNamedStream(repository_, ColumnTableStreamName(columnId_), table_);
  if (Failed(code)) return code;
  return OpenNamedStream(repository_, ColumnDataStreamName(columnId_), data_);
}

HRESULT ColumnReader::GetBlockCount(std::uint64_t& count) {
  const HRESULT code = Open();
  if (Failed(code)) return code;
  const std::uint64_t bytes = table_->GetLength();
  if (bytes % BlockEntry::kBytes != 0) return result::kBadRecord;
  count = bytes / BlockEntry::kBytes;
  return result::kOk;
}

HRESULT ColumnReader::ReadEntry(std::uint64_t blockId, BlockEntry& entry) {
  std::uint64_t count = 0;
  HRESULT code = GetBlockCount(count);
  if (Failed(code)) return code;
  if (blockId >= count) return result::kIndexOutOfRange;
  std::uint8_t record[BlockEntry::kBytes];
  code = ReadExactly(*table_, blockId * BlockEntry::kBytes, record);
  if (Failed(code)) return code;
  return BlockEntry::Decode(record, entry);
}

HRESULT ColumnReader::ReadBlock(std::uint64_t blockId, std::vector<std::uint8_t>& values) {
  BlockEntry entry;
  HRESULT code = ReadEntry(blockId, entry);
  if (Failed(code)) return code;
  std::span<const std::uint8_t> stored;
  code = ViewOrRead(*data_, entry.offsetBytes, entry.storedBytes, scratch_, stored);
  if (Failed(code)) return code;
  return DecodeBlock(type_, entry, stored, values);
}

}  // namespace oocpc
