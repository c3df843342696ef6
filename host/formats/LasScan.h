// A LAS file opened as a scan.
#pragma once

#include "host/formats/LasBasedScan.h"

namespace tarnhost {

/// A memory-mapped, checked LAS file. Const operations are safe from several threads at once.
class LasScan final : public LasBasedScan {
 public:
  static Outcome Open(const std::filesystem::path& path, std::unique_ptr<LasScan>& scan);
  /// The same of a file that is mapped already.
  static Outcome Open(const std::filesystem::path& path,
                      std::shared_ptr<const OOCPCByteSource> bytes, std::unique_ptr<LasScan>& scan);

  void ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const override;
  void ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const override;
  [[nodiscard]] std::span<const std::uint8_t> GetMappedRecords() const override;
  [[nodiscard]] std::span<const std::uint8_t> GetLeadingBytes() const override;
  [[nodiscard]] std::span<const std::uint8_t> GetTrailingBytes() const override;

 private:
  LasScan(std::filesystem::path path, std::shared_ptr<const OOCPCByteSource> bytes,
          LasHeader header);

  const std::uint8_t* records_ = nullptr;
};

}  // namespace tarnhost
