// Blocks of a column: how values are encoded, described and read back.
#pragma once

#include <OOCPointCloud/ColumnType.h>
#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

#include <memory>
#include <span>
#include <string>
#include <vector>

class OOCPCIDataRepository;
class OOCPCIInputStream;

namespace oocpc {

/// How a block's values are stored; the numbers are part of the file format.
enum class BlockEncoding : std::uint8_t {
  kRaw = 0,               ///< the values as they are
  kConstant = 1,          ///< one value that all points share
  kBitPacked = 2,         ///< integers minus the block's minimum, in as few bits as needed
  kShuffleZstd = 3,       ///< bytes of equal significance together, then zstd
  kDeltaShuffleZstd = 4,  ///< zigzag differences of neighbours (bit patterns), then as above
  kRuns = 5,              ///< integers in runs of 128, each bit-packed from its own minimum
  kResiduals = 6,         ///< entropy-coded differences of integers or decimal numbers
};

/// One record of a column's block table, see docs/format.md: as long as its type of values needs.
/// Components not used are zero. Minimum and maximum are the component's value widened to 64 bits:
/// int64 for signed, uint64 for unsigned integers and string indices, double for floating point,
/// each as its bit pattern. For floating point they leave NaNs out, and `hasNan` says whether there
/// were any; a block of NaNs alone has minimum +inf and maximum -inf.
struct BlockEntry {
  static constexpr std::size_t kMostBytes = 84;
  /// Bytes of a record of such values; of all records in a column's table.
  [[nodiscard]] OOCPOINTCLOUD_API static std::size_t RecordBytes(ColumnType type);

  std::uint64_t offsetBytes = 0;  ///< of the stored bytes in the data stream
  std::uint32_t storedBytes = 0;
  std::uint32_t valueCount = 0;
  BlockEncoding encoding = BlockEncoding::kRaw;
  bool hasNan = false;
  ColumnType type;
  std::uint32_t dataChecksum = 0;  ///< CRC-32C of the stored bytes
  std::array<std::uint64_t, 3> minimumBits{};
  std::array<std::uint64_t, 3> maximumBits{};
  /// Number of the block's first value in storage order: the values of all blocks before it.
  std::uint64_t firstValue = 0;

  /// Appends the record, its own CRC-32C last.
  OOCPOINTCLOUD_API void Encode(std::vector<std::uint8_t>& out) const;
  /// Takes a whole record. kBadRecord (also for another length than its type's), kUnknownEncoding
  /// or kChecksumMismatch leave `out` as it was.
  [[nodiscard]] OOCPOINTCLOUD_API static HRESULT Decode(std::span<const std::uint8_t> record,
                                                        BlockEntry& out);
};

/// Which encodings EncodeBlock may choose.
enum class BlockEncodings : std::uint8_t {
  kAll,    ///< what is small
  kLight,  ///< what is quick to read: no zstd, no entropy coding
};

/// A block ready to be appended: its stored bytes, and its entry with offsetBytes and firstValue
/// still 0.
struct EncodedBlock {
  BlockEntry entry;
  std::vector<std::uint8_t> bytes;
};

/// Encodes `values` (value after value, components interleaved, little-endian; a whole number of
/// values, at most kMaximumBlockValues). Values that are all the same, bit for bit, become a
/// constant; else picks the smallest light encoding (raw, bit-packed, runs) unless a heavier one is
/// allowed and at least an eighth smaller. Pure: safe from any thread, the same input gives the
/// same bytes.
[[nodiscard]] OOCPOINTCLOUD_API EncodedBlock
EncodeBlock(ColumnType type, std::span<const std::uint8_t> values,
            BlockEncodings allowed = BlockEncodings::kAll);

/// Decodes stored bytes into `values` (resized); the entry's type is one that there is. Checks
/// every length before it is used and the checksum before anything is decoded. kBadRecord,
/// kChecksumMismatch, kUnknownEncoding; what `values` holds after a failure is not defined. Safe
/// from several threads at once.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT DecodeBlock(const BlockEntry& entry,
                                                    std::span<const std::uint8_t> stored,
                                                    std::vector<std::uint8_t>& values);

/// Checks of a stored block what DecodeBlock checks of it before it decodes, for readers that work
/// on the stored bytes themselves: the entry's range, the checksum, and for raw, constant and
/// bit-packed blocks the exact length. The same codes. Safe from several threads at once.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT CheckStoredBlock(const BlockEntry& entry,
                                                         std::span<const std::uint8_t> stored);

/// Largest number of values a block may state; larger counts from a file are refused.
inline constexpr std::uint32_t kMaximumBlockValues = 1u << 24;

/// "DEF_COLUMN_<id>" and "DEF_COLUMN_<id>_BLOCKS".
[[nodiscard]] OOCPOINTCLOUD_API std::string ColumnDataStreamName(std::uint32_t columnId);
[[nodiscard]] OOCPOINTCLOUD_API std::string ColumnTableStreamName(std::uint32_t columnId);

/// Reads one column block by block through streams of its own, which it opens when first needed.
/// One thread at a time per reader; the repository must outlive its use. Codes of all operations:
/// kNoRepository, kStreamMissing, kIoError, kStreamShort, kBadRecord, kChecksumMismatch,
/// kUnknownEncoding, kIndexOutOfRange.
class OOCPOINTCLOUD_API ColumnReader {
 public:
  ColumnReader(OOCPCIDataRepository* repository, std::uint32_t columnId, ColumnType type);
  ~ColumnReader();
  ColumnReader(const ColumnReader&) = delete;
  ColumnReader& operator=(const ColumnReader&) = delete;

  /// Blocks in the committed table; opens the streams when needed.
  [[nodiscard]] HRESULT GetBlockCount(std::uint64_t& count);
  [[nodiscard]] HRESULT ReadEntry(std::uint64_t blockId, BlockEntry& entry);
  [[nodiscard]] HRESULT ReadBlock(std::uint64_t blockId, std::vector<std::uint8_t>& values);
  /// Reads the values [first, first + count) in storage order, from as many blocks as hold them.
  /// kIndexOutOfRange when the column does not have all of them; also kBadRecord, when the table
  /// does not number them through. What `values` holds after a failure is not defined.
  [[nodiscard]] HRESULT ReadValues(std::uint64_t first, std::uint64_t count,
                                   std::vector<std::uint8_t>& values);
  /// A block's bytes as they are stored, neither checked nor decoded. Valid until the next call.
  [[nodiscard]] HRESULT ReadStored(const BlockEntry& entry, std::span<const std::uint8_t>& stored);
  /// Opens the column's streams unless they are open; what they read from then stays alive.
  [[nodiscard]] HRESULT Open();

 private:
  [[nodiscard]] HRESULT FindBlock(std::uint64_t value, std::uint64_t& blockId, BlockEntry& entry);
  [[nodiscard]] HRESULT ReadBlock(const BlockEntry& entry, std::vector<std::uint8_t>& values);

  OOCPCIDataRepository* repository_;
  std::uint32_t columnId_;
  ColumnType type_;
  std::unique_ptr<OOCPCIInputStream> data_;
  std::unique_ptr<OOCPCIInputStream> table_;
  std::vector<std::uint8_t> scratch_;
  std::vector<std::uint8_t> block_;
};

}  // namespace oocpc
