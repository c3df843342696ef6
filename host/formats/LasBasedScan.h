// What LAS and LAZ scans have in common: a header, and records laid out as it says.
#pragma once

#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <memory>
#include <utility>
#include <vector>

#include "host/formats/LasHeader.h"
#include "host/formats/LasRecordLayout.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

class LasBasedScan : public ScanFile {
 public:
  /// Of the uncompressed file: of a LAZ file, what it would be without compression.
  [[nodiscard]] const LasHeader& GetHeader() const { return header_; }
  [[nodiscard]] const LasRecordLayout& GetLayout() const { return layout_; }

  [[nodiscard]] const std::filesystem::path& GetPath() const override { return path_; }
  [[nodiscard]] std::uint64_t GetPointCount() const override { return header_.pointCount; }
  [[nodiscard]] const PositionTransform& GetTransform() const override { return transform_; }
  [[nodiscard]] const std::vector<Dimension>& GetDimensions() const override { return dimensions_; }
  [[nodiscard]] std::size_t GetRecordBytes() const override { return layout_.GetRecordBytes(); }
  void ExtractDimension(std::size_t dimension, const std::uint8_t* records, std::size_t count,
                        std::uint8_t* out) const override;
  void ExtractStrided(std::size_t dimension, const std::uint8_t* records, std::size_t stride,
                      std::size_t count, std::uint8_t* out) const override;
  [[nodiscard]] bool GetStatedBox(StoredBox& box) const override;

 protected:
  LasBasedScan(std::filesystem::path path, std::shared_ptr<const OOCPCByteSource> bytes)
      : path_(std::move(path)), bytes_(std::move(bytes)) {}
  /// Takes the header over, and what follows from it.
  void SetHeader(LasHeader header);
  /// The mapped file.
  [[nodiscard]] std::span<const std::uint8_t> GetFile() const { return bytes_->GetBytes(); }
  /// Copies the positions of `count` records: three integers each.
  void CopyPositions(const std::uint8_t* records, std::uint64_t count, std::int32_t* xyz) const;

 private:
  std::filesystem::path path_;
  std::shared_ptr<const OOCPCByteSource> bytes_;
  LasHeader header_;
  LasRecordLayout layout_;
  PositionTransform transform_;
  std::vector<Dimension> dimensions_;
};

}  // namespace tarnhost
