// Leaves the bytes out that all records of a stretch share, which makes what is put aside in a
// temporary file smaller, faster than a disk takes it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace tarnhost {

/// Which bytes of a stretch's records differ, and the values of the others. Its operations are safe
/// from several threads at once.
class RecordPacking {
 public:
  /// Of `records`: at least one, of `recordBytes` each.
  RecordPacking(std::span<const std::uint8_t> records, std::size_t recordBytes);
  /// From what Encode gave: exactly GetEncodedBytes(recordBytes).
  static RecordPacking Decode(std::span<const std::uint8_t> bytes, std::size_t recordBytes);

  /// One bit for each byte of a record, set where they differ; then the first record.
  void Encode(std::vector<std::uint8_t>& out) const;
  [[nodiscard]] static std::size_t GetEncodedBytes(std::size_t recordBytes) {
    return (recordBytes + 7) / 8 + recordBytes;
  }

  /// What is left of a record.
  [[nodiscard]] std::size_t GetPackedBytes() const { return packedBytes_; }
  /// Of as many records as `records` holds; `packed` has GetPackedBytes() for each.
  void Pack(std::span<const std::uint8_t> records, std::span<std::uint8_t> packed) const;
  void Unpack(std::span<const std::uint8_t> packed, std::span<std::uint8_t> records) const;

  /// A part of a record that is moved at once.
  struct Part {
    static constexpr std::size_t kBytes = 16;
    /// In its own bytes that differ, those of the packed form; elsewhere, kNone.
    alignas(kBytes) std::uint8_t spread[kBytes];
    /// The reverse: of each packed byte, its place in the part.
    alignas(kBytes) std::uint8_t gather[kBytes];
    /// The bytes that do not differ; zero where they do.
    alignas(kBytes) std::uint8_t shared[kBytes];
    std::size_t packedBytes;
  };
  static constexpr std::uint8_t kNone = 0x80;

 private:
  RecordPacking(std::span<const std::uint8_t> mask, std::span<const std::uint8_t> first,
                std::size_t recordBytes);
  void MakeParts();
  [[nodiscard]] bool Differs(std::size_t byte) const {
    return (mask_[byte / 8] >> (byte % 8) & 1u) != 0;
  }

  std::size_t recordBytes_;
  std::size_t packedBytes_ = 0;
  std::vector<std::uint8_t> mask_;
  std::vector<std::uint8_t> first_;  ///< the first record
  std::vector<Part> parts_;
};

}  // namespace tarnhost
