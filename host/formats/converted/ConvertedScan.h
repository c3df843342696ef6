// A file of a format that is not LAS, opened as a scan: positions become integers, once.
#pragma once

#include <array>
#include <memory>
#include <vector>

#include "host/common/ScratchBytes.h"
#include "host/formats/ScanFile.h"
#include "host/formats/converted/CoordinateFit.h"
#include "host/formats/converted/DecimalTransform.h"
#include "host/formats/converted/FieldNames.h"
#include "host/formats/converted/PointDecoder.h"

namespace tarnhost {

/// The points of a decoder as records.
///
/// Opening reads all coordinates to choose a scale and an offset that give each of them back
/// exactly. Where no 32-bit integers do, the finest step is taken that holds them, and the
/// coordinates themselves stay as dimensions "x_exact", "y_exact", "z_exact" of their own type.
/// Points without a place (a coordinate missing, not a number or beyond kFarthestCoordinate) are
/// left out; a notice says how many. Records are made in Prepare(), on all cores. Const operations
/// are safe from several threads at once.
class ConvertedScan final : public ScanFile {
 public:
  /// Failures of the decoder; kStopped. Of the options, what may be used and who is told.
  static Outcome Open(std::filesystem::path path, std::shared_ptr<const OOCPCByteSource> bytes,
                      const ScanOptions& options, std::unique_ptr<PointDecoder> decoder,
                      std::unique_ptr<ScanFile>& scan);

  [[nodiscard]] const std::filesystem::path& GetPath() const override { return path_; }
  [[nodiscard]] std::uint64_t GetPointCount() const override { return pointCount_; }
  [[nodiscard]] const PositionTransform& GetTransform() const override { return transform_; }
  [[nodiscard]] const std::vector<Dimension>& GetDimensions() const override {
    return layout_.dimensions;
  }
  [[nodiscard]] std::vector<std::string> GetNotices() const override;
  [[nodiscard]] std::span<const std::string> GetStrings() const override {
    return decoder_->GetStrings();
  }
  void NumberStrings(const std::vector<std::uint32_t>& numbers) override {
    stringNumbers_ = numbers;
  }
  /// Failures of the decoder, and those of ScratchBytes; kStopped; kScanContradictory when the file
  /// changes meanwhile.
  Outcome Prepare(ScanWorkspace& workspace) override;
  [[nodiscard]] std::uint64_t GetScratchBytes() const override {
    return pointCount_ * layout_.recordBytes;
  }
  void Release() override { records_.reset(); }
  void ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const override;
  [[nodiscard]] std::size_t GetRecordBytes() const override { return layout_.recordBytes; }
  void ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const override;
  [[nodiscard]] std::span<const std::uint8_t> GetMappedRecords() const override;
  void ExtractDimension(std::size_t dimension, const std::uint8_t* records, std::size_t count,
                        std::uint8_t* out) const override;
  [[nodiscard]] bool GetStatedBox(StoredBox& box) const override;
  [[nodiscard]] std::span<const std::uint8_t> GetLeadingBytes() const override {
    return decoder_->GetHeader();
  }
  [[nodiscard]] std::span<const std::uint8_t> GetTrailingBytes() const override { return {}; }

 private:
  struct PartFacts;
  class RecordWriter;

  ConvertedScan(std::filesystem::path path, std::shared_ptr<const OOCPCByteSource> bytes,
                std::unique_ptr<PointDecoder> decoder)
      : path_(std::move(path)), bytes_(std::move(bytes)), decoder_(std::move(decoder)) {}
  Outcome Measure(const ScanOptions& options);
  void ChooseLayout();
  [[nodiscard]] std::array<AxisFit, 3> NewFits() const;
  Outcome WriteParts(ScanWorkspace& workspace);
  void MakeRecords(const PointRows& rows, std::span<const std::uint32_t> kept,
                   std::uint8_t* records) const;

  std::filesystem::path path_;
  std::shared_ptr<const OOCPCByteSource> bytes_;
  std::unique_ptr<PointDecoder> decoder_;
  std::array<AxisFit, 3> fits_;
  PositionTransform transform_;
  DecimalTransform decimal_;
  FieldLayout layout_;
  std::array<bool, 3> keepsExact_{};
  std::vector<std::uint64_t> firstPoints_;  ///< of each part
  std::uint64_t pointCount_ = 0;
  std::uint64_t placelessCount_ = 0;
  std::vector<std::uint32_t> stringNumbers_;  ///< in the cloud; empty: as the decoder numbers them
  std::unique_ptr<ScratchBytes> records_;
};

}  // namespace tarnhost
