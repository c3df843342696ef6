// Reads the blocks of one column from its two streams.
#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>

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
  const std::size_t recordBytes = BlockEntry::RecordBytes(type_);
  if (bytes % recordBytes != 0) return result::kBadRecord;
  count = bytes / recordBytes;
  return result::kOk;
}

HRESULT ColumnReader::ReadEntry(std::uint64_t blockId, BlockEntry& entry) {
  std::uint64_t count = 0;
  HRESULT code = GetBlockCount(count);
  if (Failed(code)) return code;
  if (blockId >= count) return result::kIndexOutOfRange;
  std::uint8_t bytes[BlockEntry::kMostBytes];
  const auto record = std::span(bytes).first(BlockEntry::RecordBytes(type_));
  code = ReadExactly(*table_, blockId * record.size(), record);
  if (Failed(code)) return code;
  BlockEntry read;
  code = BlockEntry::Decode(record, read);
  if (Failed(code)) return code;
  if (read.type != type_) return result::kBadRecord;
  entry = read;
  return result::kOk;
}

HRESULT ColumnReader::ReadBlock(std::uint64_t blockId, std::vector<std::uint8_t>& values) {
  BlockEntry entry;
  const HRESULT code = ReadEntry(blockId, entry);
  return Failed(code) ? code : ReadBlock(entry, values);
}

HRESULT ColumnReader::ReadStored(const BlockEntry& entry, std::span<const std::uint8_t>& stored) {
  const HRESULT code = Open();
  if (Failed(code)) return code;
  return ViewOrRead(*data_, entry.offsetBytes, entry.storedBytes, scratch_, stored);
}

HRESULT ColumnReader::ReadBlock(const BlockEntry& entry, std::vector<std::uint8_t>& values) {
  std::span<const std::uint8_t> stored;
  const HRESULT code = ReadStored(entry, stored);
  if (Failed(code)) return code;
  return DecodeBlock(entry, stored, values);
}

HRESULT ColumnReader::FindBlock(std::uint64_t value, std::uint64_t& blockId, BlockEntry& entry) {
  std::uint64_t end = 0;
  HRESULT code = GetBlockCount(end);
  if (Failed(code)) return code;
  // The last block that begins at or before the value; blocks without values share their number
  // with the next one and stand before it.
  std::uint64_t begin = 0;
  while (begin < end) {
    const std::uint64_t middle = begin + (end - begin) / 2;
    code = ReadEntry(middle, entry);
    if (Failed(code)) return code;
    if (entry.firstValue <= value) {
      begin = middle + 1;
    } else {
      end = middle;
    }
  }
  if (begin == 0) return result::kIndexOutOfRange;
  blockId = begin - 1;
  code = ReadEntry(blockId, entry);
  if (Failed(code)) return code;
  return value - entry.firstValue < entry.valueCount ? result::kOk : result::kIndexOutOfRange;
}

HRESULT ColumnReader::ReadValues(std::uint64_t first, std::uint64_t count,
                                 std::vector<std::uint8_t>& values) {
  values.clear();
  if (count == 0) return Open();
  std::uint64_t blockId = 0;
  BlockEntry entry;
  HRESULT code = FindBlock(first, blockId, entry);
  if (Failed(code)) return code;
  if (entry.firstValue == first && entry.valueCount == count) return ReadBlock(entry, values);
  const std::size_t valueBytes = ValueBytes(type_);
  while (true) {
    code = ReadBlock(entry, block_);
    if (Failed(code)) return code;
    const std::uint64_t skipped = first - entry.firstValue;
    const std::uint64_t taken = std::min(count, entry.valueCount - skipped);
    const auto from = block_.begin() + static_cast<std::ptrdiff_t>(skipped * valueBytes);
    values.insert(values.end(), from, from + static_cast<std::ptrdiff_t>(taken * valueBytes));
    first += taken;
    count -= taken;
    if (count == 0) return result::kOk;
    code = ReadEntry(++blockId, entry);
    if (Failed(code)) return code;
    if (entry.firstValue != first) return result::kBadRecord;
  }
}

}  // namespace oocpc
