// Little-endian reading and writing with every length checked, and CRC-32C.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

#include <bit>
#include <cstring>
#include <span>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace oocpc {

static_assert(std::endian::native == std::endian::little,
              "the helpers below copy native numbers; a big-endian port swaps here");

/// CRC-32C (Castagnoli, reflected polynomial 0x82F63B78, RFC 3720 appendix B.4) of `bytes`,
/// continuing from the CRC of what went before.
[[nodiscard]] OOCPOINTCLOUD_API std::uint32_t Crc32c(std::span<const std::uint8_t> bytes,
                                                     std::uint32_t before = 0);

/// The number at `from`, which must have sizeof(T) bytes.
template <typename T>
[[nodiscard]] T LoadLittleEndian(const void* from) {
  static_assert(std::is_trivially_copyable_v<T>);
  T value;
  std::memcpy(&value, from, sizeof(T));
  return value;
}

/// Appends a number.
template <typename T>
void AppendLittleEndian(std::vector<std::uint8_t>& out, T value) {
  static_assert(std::is_arithmetic_v<T> || std::is_enum_v<T>);
  const std::size_t at = out.size();
  out.resize(at + sizeof(T));
  std::memcpy(out.data() + at, &value, sizeof(T));
}

/// Appends a length in 32 bits and the bytes.
OOCPOINTCLOUD_API void AppendText(std::vector<std::uint8_t>& out, std::string_view text);

/// Appends the CRC-32C of everything from `begin` on.
OOCPOINTCLOUD_API void AppendChecksum(std::vector<std::uint8_t>& out, std::size_t begin = 0);

/// Reads numbers from a byte range; the first read behind the end fails and so do all after it.
class OOCPOINTCLOUD_API ByteReader {
 public:
  explicit ByteReader(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}

  template <typename T>
  [[nodiscard]] bool Read(T& value) {
    static_assert(std::is_arithmetic_v<T>);
    if (!Has(sizeof(T))) return false;
    std::memcpy(&value, bytes_.data() + at_, sizeof(T));
    at_ += sizeof(T);
    return true;
  }
  /// What AppendText wrote.
  [[nodiscard]] bool ReadText(std::string& text);
  [[nodiscard]] bool ReadBytes(std::size_t length, std::span<const std::uint8_t>& bytes);
  [[nodiscard]] std::size_t GetRemaining() const { return bytes_.size() - at_; }

 private:
  [[nodiscard]] bool Has(std::size_t length) {
    if (failed_ || bytes_.size() - at_ < length) failed_ = true;
    return !failed_;
  }

  std::span<const std::uint8_t> bytes_;
  std::size_t at_ = 0;
  bool failed_ = false;
};

/// Takes a payload apart that ends in the CRC-32C of everything before: gives what lies before.
/// kBadRecord when it is too short, kChecksumMismatch when it was altered.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT CheckSealedPayload(const std::uint8_t* payload,
                                                           std::uint32_t size,
                                                           std::span<const std::uint8_t>& content);

}  // namespace oocpc
