// What the main stream says of the repository as a whole.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

#include <string>
#include <string_view>
#include <vector>

/// Committed length of one named stream, in bytes. What lies behind it does not exist.
struct OOCPCStreamLength {
  std::string name;
  std::uint64_t committedBytes = 0;
};

/// The repository-information chunk, always the last chunk of a main stream that this system
/// writes. It seals the main stream: `catalogueBytes` is the number of bytes in front of the
/// chunk's head and `catalogueChecksum` their CRC-32C. Value semantics.
class OOCPOINTCLOUD_API OOCPCRepositoryInformation {
 public:
  static constexpr std::uint16_t kVersion = 1;

  std::uint64_t catalogueBytes = 0;
  std::uint32_t catalogueChecksum = 0;
  /// Microseconds since 1970-01-01 UTC at which the repository was made.
  std::uint64_t creationTime = 0;
  /// Source coordinates = local coordinates + this offset (source units).
  oocpc::Vector3d localFrameOffset{};
  /// Name and version of the program that wrote the repository, UTF-8.
  std::string generator;
  std::vector<OOCPCStreamLength> streams;

  /// True after a successful LoadFromChunk.
  [[nodiscard]] bool IsLoaded() const { return loaded_; }
  /// Decodes a chunk payload. kBadRecord, kChecksumMismatch or kUnknownVersion leave the object
  /// as it was.
  [[nodiscard]] HRESULT LoadFromChunk(const std::uint8_t* payload, std::uint32_t size);
  /// The payload that LoadFromChunk reads.
  [[nodiscard]] std::vector<std::uint8_t> EncodeChunk() const;
  /// The committed length of a stream, or null when it is not listed.
  [[nodiscard]] const OOCPCStreamLength* FindStream(std::string_view name) const;

 private:
  bool loaded_ = false;
};
