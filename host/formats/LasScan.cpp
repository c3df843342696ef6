// A LAS file opened as a scan.
#include "host/formats/LasScan.h"

#include <algorithm>
#include <cstring>

namespace tarnhost {

namespace {

/// Copies one field of constant width out of many records.
template <std::size_t kBytes>
void GatherBytes(const std::uint8_t* field, std::size_t stride,
                 std::span<const std::uint64_t> points, std::uint8_t* out) {
  for (const std::uint64_t point : points) {
    std::memcpy(out, field + point * stride, kBytes);
    out += kBytes;
  }
}

}  // namespace

Outcome LasScan::Open(const std::filesystem::path& path, std::unique_ptr<LasScan>& scan) {
  // What the system will not say of a path it says again, as an error, when the file is mapped.
  std::error_code ignored;
  const std::filesystem::file_status status = std::filesystem::status(path, ignored);
  if (status.type() == std::filesystem::file_type::not_found) {
    return Outcome::Failure(oocpc::result::kIoError, "there is no such file", path.string(),
                            "check the path");
  }
  if (std::filesystem::is_directory(status)) {
    return Outcome::Failure(oocpc::result::kScanNotRecognised, "this is a folder, not a scan",
                            path.string(), "name the scan files themselves");
  }
  std::shared_ptr<const OOCPCByteSource> bytes;
  const HRESULT code = OOCPCMapFile(path, bytes);
  if (oocpc::Failed(code)) return Outcome::FromCode(code, path.string());
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

void LasScan::GatherDimension(std::size_t dimension, const std::uint8_t* records,
                              std::span<const std::uint64_t> points, std::uint8_t* out) const {
  const LasField& field = layout_.GetFields()[dimension];
  const std::size_t stride = layout_.GetRecordBytes();
  const std::uint8_t* from = records + field.offsetBytes;
  const std::uint32_t bytes = oocpc::ValueBytes(field.dimension.type);
  if (field.bits != 0) {
    const unsigned mask = (1u << field.bits) - 1u;
    for (const std::uint64_t point : points) {
      *out++ = static_cast<std::uint8_t>((from[point * stride] >> field.shift) & mask);
    }
    return;
  }
  switch (bytes) {
    case 1:
      return GatherBytes<1>(from, stride, points, out);
    case 2:
      return GatherBytes<2>(from, stride, points, out);
    case 4:
      return GatherBytes<4>(from, stride, points, out);
    case 6:
      return GatherBytes<6>(from, stride, points, out);
    case 8:
      return GatherBytes<8>(from, stride, points, out);
    default:
      break;
  }
  for (const std::uint64_t point : points) {
    std::memcpy(out, from + point * stride, bytes);
    out += bytes;
  }
}

std::span<const std::uint8_t> LasScan::GetLeadingBytes() const {
  return bytes_->GetBytes().first(header_.pointsOffset);
}

std::span<const std::uint8_t> LasScan::GetTrailingBytes() const {
  const std::uint64_t end =
      header_.pointsOffset + header_.pointCount * std::uint64_t{header_.pointBytes};
  return bytes_->GetBytes().subspan(static_cast<std::size_t>(end));
}

Outcome OpenLas(const std::filesystem::path& path, std::unique_ptr<ScanFile>& scan) {
  std::unique_ptr<LasScan> las;
  Outcome outcome = LasScan::Open(path, las);
  if (outcome.Ok()) scan = std::move(las);
  return outcome;
}

}  // namespace tarnhost
