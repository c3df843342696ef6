// A scan that shows another one, which it owns; what is shown differently is overridden.
#pragma once

#include <memory>
#include <utility>

#include "host/formats/ScanFile.h"

namespace tarnhost {

class ScanDecorator : public ScanFile {
 public:
  [[nodiscard]] const std::filesystem::path& GetPath() const override { return scan_->GetPath(); }
  [[nodiscard]] std::uint64_t GetPointCount() const override { return scan_->GetPointCount(); }
  [[nodiscard]] const PositionTransform& GetTransform() const override {
    return scan_->GetTransform();
  }
  Outcome Prepare(ScanWorkspace& workspace) override { return scan_->Prepare(workspace); }
  [[nodiscard]] std::uint64_t GetScratchBytes() const override { return scan_->GetScratchBytes(); }
  void Release() override { scan_->Release(); }
  void ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const override {
    scan_->ReadPositions(first, count, xyz);
  }
  [[nodiscard]] bool GetStatedBox(StoredBox& box) const override {
    return scan_->GetStatedBox(box);
  }
  [[nodiscard]] std::span<const std::uint8_t> GetLeadingBytes() const override {
    return scan_->GetLeadingBytes();
  }
  [[nodiscard]] std::span<const std::uint8_t> GetTrailingBytes() const override {
    return scan_->GetTrailingBytes();
  }

 protected:
  explicit ScanDecorator(std::unique_ptr<ScanFile> scan) : scan_(std::move(scan)) {}
  [[nodiscard]] const ScanFile& Scan() const { return *scan_; }

 private:
  std::unique_ptr<ScanFile> scan_;
};

}  // namespace tarnhost
