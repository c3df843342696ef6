// An input stream over bytes in memory: a mapped file or a vector.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/Repositories.h>

#include <memory>

/// Reads the first `length` bytes of a source that it shares; opens at position 0.
class OOCPOINTCLOUD_API OOCPCByteSourceStream final : public OOCPCIInputStream {
 public:
  /// `length` is cut to what the source has. A stream without a source is not usable.
  OOCPCByteSourceStream(std::shared_ptr<const OOCPCByteSource> source, std::uint64_t length);
  ~OOCPCByteSourceStream() override;

  std::uint64_t Read(void* destination, const std::uint64_t& length) override;
  [[nodiscard]] std::uint64_t GetPosition() const override { return position_; }
  [[nodiscard]] HRESULT SetPosition(const std::uint64_t& position) override;
  [[nodiscard]] std::uint64_t GetLength() const override { return bytes_.size(); }
  [[nodiscard]] bool IsUsable() const override { return source_ != nullptr; }
  [[nodiscard]] const std::uint8_t* View(std::uint64_t offset, std::uint64_t length) const override;

 private:
  std::shared_ptr<const OOCPCByteSource> source_;
  std::span<const std::uint8_t> bytes_;
  std::uint64_t position_ = 0;
};
