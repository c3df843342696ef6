// Writes a LAS or LAZ file with the header, records and layout of a source.
#include "host/formats/LasWriter.h"

#include <algorithm>
#include <cstring>
#include <limits>

#include "host/formats/laz/CopcWriter.h"

namespace tarnhost {

namespace {

constexpr std::uint64_t kLegacyMaximum = std::numeric_limits<std::uint32_t>::max();
constexpr std::size_t kWaveformAt = 227;
constexpr std::size_t kExtendedAt = 235;

bool EndsInLaz(const std::filesystem::path& path) {
  std::string ending = path.extension().string();
  std::ranges::transform(ending, ending.begin(), [](char letter) {
    return letter >= 'A' && letter <= 'Z' ? static_cast<char>(letter - 'A' + 'a') : letter;
  });
  return ending == ".laz";
}

}  // namespace

void LasRecords::Clear() {
  bytes.clear();
  pointCount = 0;
  returnCounts = {};
  least.fill(std::numeric_limits<std::int32_t>::max());
  greatest.fill(std::numeric_limits<std::int32_t>::min());
}

void LasRecords::Count(const LasRecords& others) {
  for (std::size_t i = 0; i < returnCounts.size(); ++i) returnCounts[i] += others.returnCounts[i];
  for (std::size_t axis = 0; axis < 3; ++axis) {
    least[axis] = std::min(least[axis], others.least[axis]);
    greatest[axis] = std::max(greatest[axis], others.greatest[axis]);
  }
}

Outcome LasWriter::Create(const std::filesystem::path& path, const LasFrame& frame,
                          std::unique_ptr<LasWriter>& writer) {
  LasHeader header;
  Outcome outcome = ParseLasFrame(frame.leadingBytes, frame.sourcePointCount, frame.trailingBytes,
                                  path.string(), header);
  if (!outcome.Ok()) return outcome;
  if (IsCopcName(path)) {
    return Outcome::Failure(oocpc::result::kScanUnsupported,
                            "a COPC file holds an octree, not just any points", path.string(),
                            "let the name end in .laz, or write a whole cloud with tarn export");
  }
  std::unique_ptr<OutputFile> file;
  if (outcome = OutputFile::Create(path, file); !outcome.Ok()) return outcome;
  std::unique_ptr<LasWriter> begun(new LasWriter(frame, std::move(header), std::move(file)));
  outcome = begun->Begin(EndsInLaz(path));
  if (outcome.Ok()) writer = std::move(begun);
  return outcome;
}

Outcome LasWriter::Begin(bool compressed) {
  const auto leading = frame_.leadingBytes.first(header_.pointsOffset);
  const std::size_t headBytes = LasHeaderBytes(header_.versionMinor);
  if (!compressed) {
    head_.assign(leading.begin(), leading.begin() + static_cast<std::ptrdiff_t>(headBytes));
    return file_->Write(leading);
  }
  const laz::LazLayout layout =
      laz::LazLayoutFor(header_.pointFormat, header_.pointBytes, laz::kUsualChunkPoints);
  const std::vector<std::uint8_t> changed = CompressLeadingBytes(leading, header_, layout);
  head_.assign(changed.begin(), changed.begin() + static_cast<std::ptrdiff_t>(headBytes));
  if (Outcome outcome = file_->Write(changed); !outcome.Ok()) return outcome;
  compressor_ = std::make_unique<laz::LazPointWriter>(*file_, layout);
  return compressor_->Begin();
}

LasWriter::LasWriter(const LasFrame& frame, LasHeader header, std::unique_ptr<OutputFile> file)
    : frame_(frame),
      header_(std::move(header)),
      layout_(LasRecordLayout::Of(header_)),
      file_(std::move(file)) {
  layout_.JoinColor(frame.colorOffset);
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
                               std::span<const std::span<const std::uint8_t>> given,
                               LasRecords& records) const {
  const std::size_t stride = layout_.GetRecordBytes();
  const auto& fields = layout_.GetFields();
  if (given.size() != fields.size()) return Outcome::FromCode(oocpc::result::kBadRecord);
  std::vector<std::span<const std::uint8_t>> columns(given.begin(), given.end());
  // Of each field, as the values of several may have been widened.
  std::vector<std::vector<std::uint8_t>> widened(fields.size());
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (columns[i].empty()) continue;
    if (!FitToField(fields[i], count, columns[i], widened[i])) {
      return Outcome::FromCode(oocpc::result::kBadRecord, fields[i].dimension.name);
    }
    if (Outcome outcome = CheckBits(fields[i], columns[i]); !outcome.Ok()) return outcome;
  }
  const std::span<const std::uint8_t> returns = columns[returnNumberField_];
  records.Clear();
  records.pointCount = count;
  records.bytes.assign(count * stride, 0);
  for (std::uint64_t i = 0; i < count; ++i) {
    std::memcpy(records.bytes.data() + i * stride, xyz + 3 * i, 12);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      records.least[axis] = std::min(records.least[axis], xyz[3 * i + axis]);
      records.greatest[axis] = std::max(records.greatest[axis], xyz[3 * i + axis]);
    }
    ++records.returnCounts[returns.empty() ? 0 : returns[i] & 15u];
  }
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (columns[i].empty()) continue;
    layout_.ScatterRows(i, columns[i].data(), count, records.bytes.data());
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
  return compressor_ ? compressor_->Append(records.bytes) : file_->Write(records.bytes);
}

Outcome LasWriter::Finish(bool wholeSource) {
  const bool same = wholeSource && pointCount_ == frame_.sourcePointCount;
  if (!same) {
    if (Outcome outcome = CheckPointCount(); !outcome.Ok()) return outcome;
  }
  if (compressor_) {
    if (Outcome outcome = compressor_->Finish(); !outcome.Ok()) return outcome;
  }
  if (!same || compressor_) {
    if (Outcome outcome = RewriteHeader(same); !outcome.Ok()) return outcome;
  }
  if (Outcome outcome = file_->Write(frame_.trailingBytes); !outcome.Ok()) return outcome;
  return file_->Commit();
}

Outcome LasWriter::CheckPointCount() const {
  if (header_.versionMinor >= 4 || pointCount_ <= kLegacyMaximum) return Outcome::Success();
  return Outcome::Failure(
      oocpc::result::kScanUnsupported,
      "LAS 1." + std::to_string(header_.versionMinor) + " holds no more than 4,294,967,295 points",
      file_->GetTarget().string(), "select fewer points");
}

/// Called when all points are written and nothing behind them.
Outcome LasWriter::RewriteHeader(bool wholeSource) {
  MoveTrailingRecords(file_->GetLength());
  if (!wholeSource) {
    SetCounts();
    SetBounds();
    PatchLasHeader(header_, head_);
  } else {
    if (header_.versionMinor >= 3) {
      std::memcpy(head_.data() + kWaveformAt, &header_.waveformOffset, sizeof(std::uint64_t));
    }
    if (header_.versionMinor >= 4) {
      std::memcpy(head_.data() + kExtendedAt, &header_.extendedOffset, sizeof(std::uint64_t));
    }
  }
  return file_->Overwrite(0, head_);
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

void LasWriter::MoveTrailingRecords(std::uint64_t newEnd) {
  const std::uint64_t oldEnd =
      header_.pointsOffset + frame_.sourcePointCount * std::uint64_t{header_.pointBytes};
  // Unsigned, so that a move towards the start wraps around and comes out right.
  if (header_.waveformOffset >= oldEnd) header_.waveformOffset += newEnd - oldEnd;
  if (header_.extendedOffset >= oldEnd) header_.extendedOffset += newEnd - oldEnd;
}

}  // namespace tarnhost
