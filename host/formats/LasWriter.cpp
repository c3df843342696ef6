// Writes a LAS file with the header, records and layout of a source.
#include "host/formats/LasWriter.h"

#include <algorithm>
#include <cstring>
#include <limits>

namespace tarnhost {

namespace {

constexpr std::uint64_t kLegacyMaximum = std::numeric_limits<std::uint32_t>::max();

/// Spreads values of constant width over records of `stride` bytes.
template <std::size_t kBytes>
void ScatterBytes(const std::uint8_t* values, std::uint64_t count, std::size_t stride,
                  std::uint8_t* field) {
  for (std::uint64_t i = 0; i < count; ++i, values += kBytes, field += stride) {
    std::memcpy(field, values, kBytes);
  }
}

void ScatterField(const LasField& field, const std::uint8_t* values, std::uint64_t count,
                  std::size_t stride, std::uint8_t* records) {
  std::uint8_t* to = records + field.offsetBytes;
  const std::uint32_t bytes = oocpc::ValueBytes(field.dimension.type);
  if (field.bits == 0) {
    switch (bytes) {
      case 1:
        return ScatterBytes<1>(values, count, stride, to);
      case 2:
        return ScatterBytes<2>(values, count, stride, to);
      case 4:
        return ScatterBytes<4>(values, count, stride, to);
      case 6:
        return ScatterBytes<6>(values, count, stride, to);
      case 8:
        return ScatterBytes<8>(values, count, stride, to);
      default:
        break;
    }
  }
  for (std::uint64_t i = 0; i < count; ++i, values += bytes, records += stride) {
    LasRecordLayout::Scatter(field, values, records);
  }
}

}  // namespace

Outcome LasWriter::Create(const std::filesystem::path& path, const LasFrame& frame,
                          std::unique_ptr<LasWriter>& writer) {
  LasHeader header;
  Outcome outcome = ParseLasFrame(frame.leadingBytes, frame.sourcePointCount, frame.trailingBytes,
                                  path.string(), header);
  if (!outcome.Ok()) return outcome;
  std::unique_ptr<OutputFile> file;
  if (outcome = OutputFile::Create(path, file); !outcome.Ok()) return outcome;
  const auto leading = frame.leadingBytes.first(header.pointsOffset);
  if (outcome = file->Write(leading); !outcome.Ok()) return outcome;
  writer.reset(new LasWriter(frame, std::move(header), std::move(file)));
  return outcome;
}

LasWriter::LasWriter(const LasFrame& frame, LasHeader header, std::unique_ptr<OutputFile> file)
    : frame_(frame),
      header_(std::move(header)),
      layout_(LasRecordLayout::Of(header_)),
      file_(std::move(file)) {
  least_.fill(std::numeric_limits<std::int32_t>::max());
  greatest_.fill(std::numeric_limits<std::int32_t>::min());
  const auto& fields = layout_.GetFields();
  while (fields[returnNumberField_].dimension.name != "return_number") ++returnNumberField_;
}

Outcome LasWriter::WriteBlock(std::uint64_t count, const std::int32_t* xyz,
                              std::span<const std::span<const std::uint8_t>> columns) {
  Outcome outcome = FormatBlock(count, xyz, columns, records_);
  return outcome.Ok() ? Write(records_) : outcome;
}

Outcome LasWriter::FormatBlock(std::uint64_t count, const std::int32_t* xyz,
                               std::span<const std::span<const std::uint8_t>> columns,
                               LasRecords& records) const {
  const std::size_t stride = layout_.GetRecordBytes();
  const auto& fields = layout_.GetFields();
  if (columns.size() != fields.size()) return Outcome::FromCode(oocpc::result::kBadRecord);
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (columns[i].size() != count * oocpc::ValueBytes(fields[i].dimension.type)) {
      return Outcome::FromCode(oocpc::result::kBadRecord, fields[i].dimension.name);
    }
  }
  records.pointCount = count;
  records.returnCounts = {};
  records.least.fill(std::numeric_limits<std::int32_t>::max());
  records.greatest.fill(std::numeric_limits<std::int32_t>::min());
  records.bytes.assign(count * stride, 0);
  for (std::uint64_t i = 0; i < count; ++i) {
    std::memcpy(records.bytes.data() + i * stride, xyz + 3 * i, 12);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      records.least[axis] = std::min(records.least[axis], xyz[3 * i + axis]);
      records.greatest[axis] = std::max(records.greatest[axis], xyz[3 * i + axis]);
    }
    ++records.returnCounts[columns[returnNumberField_][i] & 15u];
  }
  for (std::size_t i = 0; i < fields.size(); ++i) {
    ScatterField(fields[i], columns[i].data(), count, stride, records.bytes.data());
  }
  return Outcome::Success();
}

Outcome LasWriter::Write(const LasRecords& records) {
  pointCount_ += records.pointCount;
  for (std::size_t i = 0; i < returnCounts_.size(); ++i) {
    returnCounts_[i] += records.returnCounts[i];
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    least_[axis] = std::min(least_[axis], records.least[axis]);
    greatest_[axis] = std::max(greatest_[axis], records.greatest[axis]);
  }
  return file_->Write(records.bytes);
}

Outcome LasWriter::Finish(bool wholeSource) {
  if (!wholeSource || pointCount_ != frame_.sourcePointCount) {
    if (Outcome outcome = DescribeWhatWasWritten(); !outcome.Ok()) return outcome;
  }
  if (Outcome outcome = file_->Write(frame_.trailingBytes); !outcome.Ok()) return outcome;
  return file_->Commit();
}

Outcome LasWriter::DescribeWhatWasWritten() {
  if (header_.versionMinor < 4 && pointCount_ > kLegacyMaximum) {
    return Outcome::Failure(oocpc::result::kScanUnsupported,
                            "LAS 1." + std::to_string(header_.versionMinor) +
                                " holds no more than 4,294,967,295 points",
                            file_->GetTarget().string(), "select fewer points");
  }
  SetCounts();
  SetBounds();
  MoveTrailingRecords();
  const auto head = frame_.leadingBytes.first(LasHeaderBytes(header_.versionMinor));
  std::vector<std::uint8_t> patched(head.begin(), head.end());
  PatchLasHeader(header_, patched);
  return file_->Overwrite(0, patched);
}

void LasWriter::SetCounts() {
  header_.pointCount = pointCount_;
  // From 1.4 on, the old counts stay zero where they cannot tell the truth.
  const bool legacy =
      header_.versionMinor < 4 || (header_.pointFormat < 6 && pointCount_ <= kLegacyMaximum);
  header_.legacyPointCount = legacy ? static_cast<std::uint32_t>(pointCount_) : 0;
  for (std::size_t i = 0; i < header_.returnCounts.size(); ++i) {
    header_.returnCounts[i] = returnCounts_[i + 1];
  }
  for (std::size_t i = 0; i < header_.legacyReturnCounts.size(); ++i) {
    header_.legacyReturnCounts[i] = legacy ? static_cast<std::uint32_t>(returnCounts_[i + 1]) : 0;
  }
}

void LasWriter::SetBounds() {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    header_.min[axis] = header_.max[axis] = 0;
    if (pointCount_ == 0) continue;
    const double a = least_[axis] * header_.scale[axis] + header_.offset[axis];
    const double b = greatest_[axis] * header_.scale[axis] + header_.offset[axis];
    header_.min[axis] = std::min(a, b);  // a scale may be negative
    header_.max[axis] = std::max(a, b);
  }
}

void LasWriter::MoveTrailingRecords() {
  const std::uint64_t oldEnd =
      header_.pointsOffset + frame_.sourcePointCount * std::uint64_t{header_.pointBytes};
  const std::uint64_t newEnd =
      header_.pointsOffset + pointCount_ * std::uint64_t{header_.pointBytes};
  // Unsigned, so that a move towards the start wraps around and comes out right.
  if (header_.waveformOffset >= oldEnd) header_.waveformOffset += newEnd - oldEnd;
  if (header_.extendedOffset >= oldEnd) header_.extendedOffset += newEnd - oldEnd;
}

}  // namespace tarnhost
