// A stream of bytes that a repository opens for reading.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

/// Random-access reading of one named byte stream. Positions and lengths are in bytes.
///
/// Ownership: whoever opened the stream deletes it. A stream keeps what it reads from alive, so it
/// may outlive its repository. Thread safety: one thread at a time per stream; different streams
/// over the same bytes are independent.
class OOCPOINTCLOUD_API OOCPCIInputStream {
 public:
  OOCPCIInputStream() = default;
  OOCPCIInputStream(const OOCPCIInputStream&) = delete;
  OOCPCIInputStream& operator=(const OOCPCIInputStream&) = delete;
  virtual ~OOCPCIInputStream();

  /// Reads up to `length` bytes at the position and advances by what was read.
  /// Returns the number of bytes read: less than `length` only at the end or on a failed read.
  virtual std::uint64_t Read(void* destination, const std::uint64_t& length) = 0;
  [[nodiscard]] virtual std::uint64_t GetPosition() const = 0;
  /// Moves the position; oocpc::result::kSeekOutOfRange behind the end (the end itself is fine).
  [[nodiscard]] virtual HRESULT SetPosition(const std::uint64_t& position) = 0;
  [[nodiscard]] virtual std::uint64_t GetLength() const = 0;
  /// False when the stream was opened but nothing can be read from it.
  [[nodiscard]] virtual bool IsUsable() const = 0;
  /// The bytes [offset, offset + length) without a copy where the stream is held in memory or
  /// mapped; null otherwise or when the range is not wholly inside. Valid while the stream lives.
  [[nodiscard]] virtual const std::uint8_t* View(std::uint64_t offset, std::uint64_t length) const;
};
