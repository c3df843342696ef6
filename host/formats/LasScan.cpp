// A LAS file opened as a scan.
#include "host/formats/LasScan.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace tarnhost {

namespace {

/// Copies one field of constant width out of many records.
template <std::size_t kBytes>
void ExtractBytes(const std::uint8_t* field, std::size_t stride, std::size_t count,
                  std::uint8_t* out) {
  for (std::size_t i = 0; i < count; ++i, field += stride, out += kBytes) {
    std::memcpy(out, field, kBytes);
  }
}

/// A stated coordinate as the stored integer that it has to be.
bool ToStored(double coordinate, double scale, double offset, std::int32_t& stored) {
  const double integer = std::nearbyint((coordinate - offset) / scale);
  // Written so that it holds for no NaN.
  if (!(integer >= std::numeric_limits<std::int32_t>::min() &&
        integer <= std::numeric_limits<std::int32_t>::max())) {
    return false;
  }
  stored = static_cast<std::int32_t>(integer);
  return true;
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

std::span<const std::uint8_t> LasScan::GetMappedRecords() const {
  return {records_, static_cast<std::size_t>(header_.pointCount) * layout_.GetRecordBytes()};
}

void LasScan::ExtractDimension(std::size_t dimension, const std::uint8_t* records,
                               std::size_t count, std::uint8_t* out) const {
  const LasField& field = layout_.GetFields()[dimension];
  const std::size_t stride = layout_.GetRecordBytes();
  const std::uint8_t* from = records + field.offsetBytes;
  if (field.bits != 0) {
    const unsigned mask = (1u << field.bits) - 1u;
    for (std::size_t i = 0; i < count; ++i, from += stride) {
      out[i] = static_cast<std::uint8_t>((*from >> field.shift) & mask);
    }
    return;
  }
  const std::uint32_t bytes = oocpc::ValueBytes(field.dimension.type);
  switch (bytes) {
    case 1:
      return ExtractBytes<1>(from, stride, count, out);
    case 2:
      return ExtractBytes<2>(from, stride, count, out);
    case 4:
      return ExtractBytes<4>(from, stride, count, out);
    case 6:
      return ExtractBytes<6>(from, stride, count, out);
    case 8:
      return ExtractBytes<8>(from, stride, count, out);
    default:
      break;
  }
  for (std::size_t i = 0; i < count; ++i, from += stride, out += bytes) {
    std::memcpy(out, from, bytes);
  }
}

bool LasScan::GetStatedBox(StoredBox& box) const {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double scale = transform_.scale[axis];
    const double offset = transform_.offset[axis];
    if (!ToStored(header_.min[axis], scale, offset, box.least[axis]) ||
        !ToStored(header_.max[axis], scale, offset, box.greatest[axis])) {
      return false;
    }
    if (box.least[axis] > box.greatest[axis]) std::swap(box.least[axis], box.greatest[axis]);
  }
  return true;
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
