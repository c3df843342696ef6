// A LAS file opened as a scan.
#include "host/formats/LasScan.h"

#include <algorithm>

namespace tarnhost {

Outcome LasScan::Open(const std::filesystem::path& path, std::unique_ptr<LasScan>& scan) {
  std::shared_ptr<const OOCPCByteSource> bytes;
  if (Outcome outcome = MapScan(path, bytes); !outcome.Ok()) return outcome;
  return Open(path, std::move(bytes), scan);
}

Outcome LasScan::Open(const std::filesystem::path& path,
                      std::shared_ptr<const OOCPCByteSource> bytes,
                      std::unique_ptr<LasScan>& scan) {
  LasHeader header;
  Outcome outcome = ParseLasHeader(bytes->GetBytes(), path.string(), header);
  if (!outcome.Ok()) return outcome;
  scan.reset(new LasScan(path, std::move(bytes), std::move(header)));
  return outcome;
}

LasScan::LasScan(std::filesystem::path path, std::shared_ptr<const OOCPCByteSource> bytes,
                 LasHeader header)
    : LasBasedScan(std::move(path), std::move(bytes)) {
  SetHeader(std::move(header));
  records_ = GetFile().data() + GetHeader().pointsOffset;
}

void LasScan::ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const {
  const std::size_t stride = GetRecordBytes();
  const std::uint8_t* const records = records_ + first * stride;
  CopyPositions(records, count, xyz);
  OOCPCForgetPages({records, count * stride});
}

void LasScan::ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const {
  const std::size_t stride = GetRecordBytes();
  const std::span<const std::uint8_t> records(records_ + first * stride, count * stride);
  std::copy(records.begin(), records.end(), out);
  // Whole records are read last, and by whoever keeps them.
  OOCPCForgetPages(records, OOCPCNextUse::kUnlikely);
}

std::span<const std::uint8_t> LasScan::GetMappedRecords() const {
  return {records_, static_cast<std::size_t>(GetHeader().pointCount) * GetRecordBytes()};
}

std::span<const std::uint8_t> LasScan::GetLeadingBytes() const {
  return GetFile().first(GetHeader().pointsOffset);
}

std::span<const std::uint8_t> LasScan::GetTrailingBytes() const {
  const std::uint64_t end =
      GetHeader().pointsOffset + GetHeader().pointCount * std::uint64_t{GetHeader().pointBytes};
  return GetFile().subspan(static_cast<std::size_t>(end));
}

}  // namespace tarnhost
