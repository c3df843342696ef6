// A file of a format that is not LAS, opened as a scan: positions become integers, once.
#include "host/formats/converted/ConvertedScan.h"

#include <tbb/parallel_for.h>

#include <atomic>
#include <cmath>
#include <cstring>
#include <mutex>

#include "host/common/SharedProgress.h"
#include "host/common/System.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

/// Keeps the size of all records far below what wraps.
constexpr std::uint64_t kMostPoints = std::uint64_t{1} << 40;

bool HasPlace(const PointRows& rows, std::size_t row) {
  for (const auto& axis : rows.coordinates) {
    if (!(std::abs(axis[row]) <= kFarthestCoordinate)) return false;  // nor for a NaN
  }
  return true;
}

/// Values of one width into records.
template <std::size_t kBytes>
void Scatter(const std::uint8_t* values, std::span<const std::uint32_t> rows, std::size_t stride,
             std::uint8_t* place) {
  for (const std::uint32_t row : rows) {
    std::memcpy(place, values + std::size_t{row} * kBytes, kBytes);
    place += stride;
  }
}

void ScatterAny(const std::uint8_t* values, std::size_t bytes, std::span<const std::uint32_t> rows,
                std::size_t stride, std::uint8_t* place) {
  switch (bytes) {
    case 1:
      return Scatter<1>(values, rows, stride, place);
    case 2:
      return Scatter<2>(values, rows, stride, place);
    case 4:
      return Scatter<4>(values, rows, stride, place);
    default:
      return Scatter<8>(values, rows, stride, place);
  }
}

/// Texts by their numbers in the cloud.
void ScatterStrings(const std::uint8_t* values, std::span<const std::uint32_t> numbers,
                    std::span<const std::uint32_t> rows, std::size_t stride, std::uint8_t* place) {
  for (const std::uint32_t row : rows) {
    std::uint32_t own = 0;
    std::memcpy(&own, values + row * sizeof(own), sizeof(own));
    const std::uint32_t number = own < numbers.size() ? numbers[own] : own;
    std::memcpy(place, &number, sizeof(number));
    place += stride;
  }
}

/// What may be used to open a file.
ScanWorkspace WorkspaceFor(const ScanOptions& options, std::uint64_t points) {
  ScanWorkspace workspace;
  workspace.progress = [&options, points](std::uint64_t done) {
    return !options.progress || options.progress({"opening", done, points});
  };
  workspace.memoryBytes =
      options.memoryBytes == 0 ? GetMachineMemoryBytes() / 4 : options.memoryBytes;
  workspace.temporaryFolder = options.temporaryFolder;
  if (workspace.temporaryFolder.empty()) {
    std::error_code ignored;
    workspace.temporaryFolder = std::filesystem::temp_directory_path(ignored);
  }
  return workspace;
}

/// Runs all parts of a decoder at once and keeps the failure of the first part that has one.
template <typename Run>
Outcome ForEachPart(std::size_t count, const Run& run) {
  std::mutex mutex;
  Outcome failure;
  std::atomic<std::size_t> failedPart = count;
  tbb::parallel_for(std::size_t{0}, count, [&](std::size_t part) {
    if (part > failedPart.load(std::memory_order_relaxed)) return;
    Outcome outcome = run(part);
    if (outcome.Ok()) return;
    const std::lock_guard<std::mutex> lock(mutex);
    if (part >= failedPart) return;
    failedPart = part;
    failure = std::move(outcome);
  });
  return failure;
}

}  // namespace

struct ConvertedScan::PartFacts {
  std::array<AxisFit, 3> fits;
  std::uint64_t kept = 0;
  std::uint64_t placeless = 0;
};

Outcome ConvertedScan::Open(std::filesystem::path path,
                            std::shared_ptr<const OOCPCByteSource> bytes,
                            const ScanOptions& options, std::unique_ptr<PointDecoder> decoder,
                            std::unique_ptr<ScanFile>& scan) {
  std::unique_ptr<ConvertedScan> opened(
      new ConvertedScan(std::move(path), std::move(bytes), std::move(decoder)));
  Outcome outcome = opened->decoder_->Begin(WorkspaceFor(options, opened->decoder_->GetRowCount()));
  if (outcome.Ok()) outcome = opened->Measure(options);
  opened->decoder_->End();
  if (!outcome.Ok()) return outcome;
  opened->ChooseLayout();
  scan = std::move(opened);
  return outcome;
}

std::array<AxisFit, 3> ConvertedScan::NewFits() const {
  const bool narrow = decoder_->GetCoordinateKind() == CoordinateKind::kFloat;
  const auto own = decoder_->GetOwnTransform();
  std::array<AxisFit, 3> fits;
  for (std::size_t i = 0; i < 3; ++i) {
    fits[i] = own ? AxisFit(narrow, own->scale[i], own->offset[i]) : AxisFit(narrow);
  }
  return fits;
}

Outcome ConvertedScan::Measure(const ScanOptions& options) {
  fits_ = NewFits();
  SharedProgress progress([&, total = decoder_->GetRowCount()](std::uint64_t done) {
    return !options.progress || options.progress({"opening", std::min(done, total), total});
  });
  std::vector<PartFacts> parts(decoder_->GetPartCount(), PartFacts{fits_});
  Outcome outcome = ForEachPart(parts.size(), [&](std::size_t part) {
    PartFacts facts{fits_};
    Outcome decoded = decoder_->Decode(part, false, [&](PointRows& rows) {
      for (std::size_t row = 0; row < rows.count; ++row) {
        if (!HasPlace(rows, row)) {
          ++facts.placeless;
          continue;
        }
        ++facts.kept;
        for (std::size_t i = 0; i < 3; ++i) facts.fits[i].Add(rows.coordinates[i][row]);
      }
      progress.Add(rows.count);
      return progress.GoesOn() ? Outcome::Success() : Outcome::FromCode(result::kStopped);
    });
    parts[part] = facts;
    return decoded;
  });
  for (const PartFacts& facts : parts) {
    firstPoints_.push_back(pointCount_);
    pointCount_ += facts.kept;
    placelessCount_ += facts.placeless;
    for (std::size_t i = 0; i < 3; ++i) fits_[i].Join(facts.fits[i]);
  }
  if (outcome.Ok() && pointCount_ > kMostPoints) {
    return Outcome::Failure(result::kScanUnsupported, "the file has more points than can be held",
                            path_.string(), "divide it");
  }
  return outcome;
}

void ConvertedScan::ChooseLayout() {
  const CoordinateKind kind = decoder_->GetCoordinateKind();
  const std::array<int, 3> decimals = decoder_->GetDecimals();
  std::vector<Dimension> exact;
  for (std::size_t i = 0; i < 3; ++i) {
    const AxisFit::Choice choice = fits_[i].Choose(decimals[i]);
    transform_.scale[i] = choice.scale;
    transform_.offset[i] = choice.offset;
    keepsExact_[i] = !choice.exact && kind != CoordinateKind::kComputed;
    if (!keepsExact_[i]) continue;
    const std::string axis(1, "xyz"[i]);
    exact.push_back(
        {axis + "_exact",
         {kind == CoordinateKind::kFloat ? oocpc::ValueType::kFloat : oocpc::ValueType::kDouble, 1},
         axis + " as the source has it, which the stored integers round"});
  }
  decimal_ = DecimalTransform(transform_);
  layout_ = LayOutFields(std::move(exact), decoder_->GetFields());
}

std::vector<std::string> ConvertedScan::GetNotices() const {
  std::vector<std::string> notices = decoder_->GetNotices();
  if (placelessCount_ > 0) {
    notices.push_back(std::to_string(placelessCount_) +
                      (placelessCount_ == 1 ? " point has" : " points have") +
                      " no place (a coordinate is missing, invalid or no number) and " +
                      (placelessCount_ == 1 ? "is" : "are") + " left out");
  }
  return notices;
}

Outcome ConvertedScan::Prepare(ScanWorkspace& workspace) {
  if (records_ != nullptr) return Outcome::Success();  // once is enough
  const std::uint64_t bytes = GetScratchBytes();
  Outcome outcome =
      ScratchBytes::Create(bytes, workspace.memoryBytes, workspace.temporaryFolder, records_);
  if (!outcome.Ok()) return outcome;
  const std::uint64_t taken = bytes <= workspace.memoryBytes ? bytes : 0;
  workspace.memoryBytes -= taken;
  outcome = decoder_->Begin(workspace);
  if (outcome.Ok()) outcome = WriteParts(workspace);
  decoder_->End();
  if (outcome.Ok()) {
    records_->EndWriting();
    return outcome;
  }
  records_.reset();
  workspace.memoryBytes += taken;
  return outcome;
}

/// Writes the records of one part where they belong.
class ConvertedScan::RecordWriter {
 public:
  RecordWriter(const ConvertedScan& scan, std::size_t part)
      : scan_(scan), next_(scan.firstPoints_[part]) {
    const auto& first = scan.firstPoints_;
    end_ = part + 1 < first.size() ? first[part + 1] : scan.pointCount_;
  }

  Outcome Write(const PointRows& rows) {
    kept_.clear();
    for (std::size_t row = 0; row < rows.count; ++row) {
      if (HasPlace(rows, row)) kept_.push_back(static_cast<std::uint32_t>(row));
    }
    if (kept_.size() > end_ - next_) return Changed();
    const std::size_t stride = scan_.layout_.recordBytes;
    const std::uint64_t at = next_ * stride;
    next_ += kept_.size();
    if (kept_.empty()) return Outcome::Success();
    if (std::uint8_t* memory = scan_.records_->GetMemory(at); memory != nullptr) {
      scan_.MakeRecords(rows, kept_, memory);
      return Outcome::Success();
    }
    buffer_.resize(kept_.size() * stride);
    scan_.MakeRecords(rows, kept_, buffer_.data());
    return scan_.records_->Write(at, buffer_);
  }

  Outcome Finish() { return next_ == end_ ? Outcome::Success() : Changed(); }

 private:
  Outcome Changed() const {
    return Outcome::Failure(result::kScanContradictory, "the file changed while it was read",
                            scan_.path_.string(), "wait until it is complete");
  }

  const ConvertedScan& scan_;
  std::uint64_t next_;
  std::uint64_t end_;
  std::vector<std::uint32_t> kept_;
  std::vector<std::uint8_t> buffer_;
};

Outcome ConvertedScan::WriteParts(ScanWorkspace& workspace) {
  std::mutex mutex;
  std::uint64_t done = 0;
  return ForEachPart(decoder_->GetPartCount(), [&](std::size_t part) {
    RecordWriter writer(*this, part);
    Outcome outcome = decoder_->Decode(part, true, [&](PointRows& rows) {
      if (Outcome written = writer.Write(rows); !written.Ok()) return written;
      const std::lock_guard<std::mutex> lock(mutex);
      done += rows.count;
      return workspace.progress && !workspace.progress(std::min(done, pointCount_))
                 ? Outcome::FromCode(result::kStopped)
                 : Outcome::Success();
    });
    return outcome.Ok() ? writer.Finish() : outcome;
  });
}

void ConvertedScan::MakeRecords(const PointRows& rows, std::span<const std::uint32_t> kept,
                                std::uint8_t* records) const {
  const std::size_t stride = layout_.recordBytes;
  std::size_t exact = 0;
  for (std::size_t i = 0; i < 3; ++i) {
    std::uint8_t* place = records + i * sizeof(std::int32_t);
    for (const std::uint32_t row : kept) {
      const std::int32_t stored = decimal_.Store(i, rows.coordinates[i][row]);
      std::memcpy(place, &stored, sizeof(stored));
      place += stride;
    }
    if (!keepsExact_[i]) continue;
    const FieldPlace& field = layout_.dimensionPlaces[exact++];
    place = records + field.offset;
    for (const std::uint32_t row : kept) {
      const double value = rows.coordinates[i][row];
      const auto narrow = static_cast<float>(value);
      if (field.bytes == sizeof(float)) {
        std::memcpy(place, &narrow, sizeof(narrow));
      } else {
        std::memcpy(place, &value, sizeof(value));
      }
      place += stride;
    }
  }
  for (std::size_t i = 0; i < layout_.fieldPlaces.size(); ++i) {
    const FieldPlace& field = layout_.fieldPlaces[i];
    if (decoder_->GetFields()[i].type == oocpc::ValueType::kString) {
      ScatterStrings(rows.fields[i].data(), stringNumbers_, kept, stride, records + field.offset);
      continue;
    }
    ScatterAny(rows.fields[i].data(), field.bytes, kept, stride, records + field.offset);
  }
}

void ConvertedScan::ReadPositions(std::uint64_t first, std::uint64_t count,
                                  std::int32_t* xyz) const {
  if (count == 0) return;
  const std::size_t stride = layout_.recordBytes;
  const std::uint8_t* record = records_->Get(first * stride);
  for (std::uint64_t i = 0; i < count; ++i, record += stride, xyz += 3) {
    std::memcpy(xyz, record, 3 * sizeof(std::int32_t));
  }
  records_->Forget(first * stride, count * stride);
}

void ConvertedScan::ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const {
  if (count == 0) return;
  const std::size_t stride = layout_.recordBytes;
  std::memcpy(out, records_->Get(first * stride), count * stride);
  records_->Forget(first * stride, count * stride);
}

std::span<const std::uint8_t> ConvertedScan::GetMappedRecords() const {
  if (records_ == nullptr || pointCount_ == 0) return {};
  return {records_->Get(0), static_cast<std::size_t>(pointCount_) * layout_.recordBytes};
}

void ConvertedScan::ExtractDimension(std::size_t dimension, const std::uint8_t* records,
                                     std::size_t count, std::uint8_t* out) const {
  if (count == 0) return;
  const FieldPlace& place = layout_.dimensionPlaces[dimension];
  const std::uint8_t* from = records + place.offset;
  for (std::size_t i = 0; i < count; ++i, from += layout_.recordBytes, out += place.bytes) {
    std::memcpy(out, from, place.bytes);
  }
}

bool ConvertedScan::GetStatedBox(StoredBox& box) const {
  if (pointCount_ == 0) return false;
  for (std::size_t i = 0; i < 3; ++i) {
    box.least[i] = decimal_.Store(i, fits_[i].GetLeast());
    box.greatest[i] = decimal_.Store(i, fits_[i].GetGreatest());
    if (box.least[i] > box.greatest[i]) std::swap(box.least[i], box.greatest[i]);
  }
  return true;
}

}  // namespace tarnhost
