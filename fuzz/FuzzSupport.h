// What the fuzz targets of records and chunks share.
#pragma once

#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <cstring>
#include <initializer_list>
#include <utility>
#include <vector>

#include "OOCPointCloud/support/Bytes.h"

namespace oocpcfuzz {

using Bytes = std::vector<std::uint8_t>;

inline void Require(bool ok) {
  if (!ok) __builtin_trap();
}

inline bool IsOneOf(HRESULT code, std::initializer_list<HRESULT> codes) {
  return std::find(codes.begin(), codes.end(), code) != codes.end();
}

/// The bytes with their last four replaced by the checksum of the others: hardly any altered record
/// gets past its checksum otherwise.
inline Bytes SealedAnew(const Bytes& bytes) {
  const std::size_t contentBytes = bytes.size() < 4 ? 0 : bytes.size() - 4;
  Bytes sealed(bytes.begin(), bytes.begin() + static_cast<std::ptrdiff_t>(contentBytes));
  oocpc::AppendChecksum(sealed);
  return sealed;
}

/// Decodes a chunk payload as it is and sealed anew: only documented codes, and what is accepted
/// encodes to the same bytes.
template <typename Description>
void DecodeAndEncodeChunk(const std::uint8_t* data, std::size_t size) {
  const Bytes given(data, data + size);
  for (const Bytes& payload : {given, SealedAnew(given)}) {
    Description description;
    const HRESULT code =
        description.DecodeChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
    Require(IsOneOf(code, {oocpc::result::kOk, oocpc::result::kBadRecord,
                           oocpc::result::kChecksumMismatch, oocpc::result::kUnknownVersion}));
    if (code == oocpc::result::kOk) Require(description.EncodeChunk() == payload);
    if (code != oocpc::result::kOk)
      Require(description.EncodeChunk() == Description().EncodeChunk());
  }
}

/// One stream of bytes; gives no views.
class OneStream final : public OOCPCIInputStream {
 public:
  explicit OneStream(Bytes bytes) : bytes_(std::move(bytes)) {}
  std::uint64_t Read(void* destination, const std::uint64_t& length) override {
    const std::uint64_t count = std::min<std::uint64_t>(length, bytes_.size() - position_);
    if (count > 0) std::memcpy(destination, bytes_.data() + position_, count);
    position_ += count;
    return count;
  }
  [[nodiscard]] std::uint64_t GetPosition() const override { return position_; }
  [[nodiscard]] HRESULT SetPosition(const std::uint64_t& position) override {
    if (position > bytes_.size()) return oocpc::result::kSeekOutOfRange;
    position_ = position;
    return oocpc::result::kOk;
  }
  [[nodiscard]] std::uint64_t GetLength() const override { return bytes_.size(); }
  [[nodiscard]] bool IsUsable() const override { return true; }

 private:
  Bytes bytes_;
  std::uint64_t position_ = 0;
};

/// A repository in which every named stream holds the same bytes.
class OneStreamRepository final : public OOCPCIDataRepository {
 public:
  explicit OneStreamRepository(Bytes bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] OOCPCIInputStream* CreateInputStream() override { return nullptr; }
  [[nodiscard]] OOCPCIInputStream* CreateInputStream(std::string_view /*name*/) override {
    return new OneStream(bytes_);
  }
  [[nodiscard]] HRESULT SetRepositoryInformation(
      const OOCPCRepositoryInformation* /*information*/) override {
    return oocpc::result::kOk;
  }
  [[nodiscard]] const OOCPCRepositoryInformation& GetRepositoryInformation() const override {
    return information_;
  }

 private:
  Bytes bytes_;
  OOCPCRepositoryInformation information_;
};

}  // namespace oocpcfuzz
