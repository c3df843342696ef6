// A LAS file opened as a scan.
#include "host/formats/LasScan.h"

#include <algorithm>
#include <cstring>

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
    : path_(std::move(path)),
      bytes_(std::move(bytes)),
      header_(std::move(header)),
      layout_(LasRecordLayout::Of(header_)),
      transform_{header_.scale, header_.offset},
      records_(bytes_->GetBytes().data() + header_.pointsOffset) {
  for (const LasField& field : layout_.GetFields()) dimensions_.push_back(field.dimension);
}

void LasScan::ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const {
  const std::size_t stride = layout_.GetRecordBytes();
  const std::uint8_t* record = records_ + first * stride;
  for (std::uint64_t i = 0; i < count; ++i, record += stride, xyz += 3) {
    std::memcpy(xyz, record, 12);
  }
  OOCPCForgetPages({records_ + first * stride, count * stride});
}

void LasScan::ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const {
  const std::size_t stride = layout_.GetRecordBytes();
  const std::span<const std::uint8_t> records(records_ + first * stride, count * stride);
  std::copy(records.begin(), records.end(), out);
  OOCPCForgetPages(records);
}

std::span<const std::uint8_t> LasScan::GetMappedRecords() const {
  return {records_, static_cast<std::size_t>(header_.pointCount) * layout_.GetRecordBytes()};
}

void LasScan::ExtractDimension(std::size_t dimension, const std::uint8_t* records,
                               std::size_t count, std::uint8_t* out) const {
  layout_.ExtractRows(dimension, records, count, out);
}

bool LasScan::GetStatedBox(StoredBox& box) const { return tarnhost::GetStatedBox(header_, box); }

std::span<const std::uint8_t> LasScan::GetLeadingBytes() const {
  return bytes_->GetBytes().first(header_.pointsOffset);
}

std::span<const std::uint8_t> LasScan::GetTrailingBytes() const {
  const std::uint64_t end =
      header_.pointsOffset + header_.pointCount * std::uint64_t{header_.pointBytes};
  return bytes_->GetBytes().subspan(static_cast<std::size_t>(end));
}

}  // namespace tarnhost
