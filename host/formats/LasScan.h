// A LAS file opened as a scan.
#pragma once

#include <OOCPointCloud/Repositories.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "host/formats/LasHeader.h"
#include "host/formats/LasRecordLayout.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// A memory-mapped, checked LAS file. Const operations are safe from several threads at once.
class LasScan final : public ScanFile {
 public:
  static Outcome Open(const std::filesystem::path& path, std::unique_ptr<LasScan>& scan);
  /// The same of a file that is mapped already.
  static Outcome Open(const std::filesystem::path& path,
                      std::shared_ptr<const OOCPCByteSource> bytes, std::unique_ptr<LasScan>& scan);

  [[nodiscard]] const LasHeader& GetHeader() const { return header_; }
  [[nodiscard]] const LasRecordLayout& GetLayout() const { return layout_; }

  [[nodiscard]] const std::filesystem::path& GetPath() const override { return path_; }
  [[nodiscard]] std::uint64_t GetPointCount() const override { return header_.pointCount; }
  [[nodiscard]] const PositionTransform& GetTransform() const override { return transform_; }
  [[nodiscard]] const std::vector<Dimension>& GetDimensions() const override { return dimensions_; }
  void ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const override;
  [[nodiscard]] std::size_t GetRecordBytes() const override { return layout_.GetRecordBytes(); }
  void ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const override;
  [[nodiscard]] std::span<const std::uint8_t> GetMappedRecords() const override;
  void ExtractDimension(std::size_t dimension, const std::uint8_t* records, std::size_t count,
                        std::uint8_t* out) const override;
  [[nodiscard]] bool GetStatedBox(StoredBox& box) const override;
  [[nodiscard]] std::span<const std::uint8_t> GetLeadingBytes() const override;
  [[nodiscard]] std::span<const std::uint8_t> GetTrailingBytes() const override;

 private:
  LasScan(std::filesystem::path path, std::shared_ptr<const OOCPCByteSource> bytes,
          LasHeader header);

  std::filesystem::path path_;
  std::shared_ptr<const OOCPCByteSource> bytes_;
  LasHeader header_;
  LasRecordLayout layout_;
  PositionTransform transform_;
  std::vector<Dimension> dimensions_;
  const std::uint8_t* records_ = nullptr;
};

}  // namespace tarnhost
