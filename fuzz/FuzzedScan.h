// What the fuzz targets of scan formats share: bytes as a mapped file, and what holds for every
// scan.
#pragma once

#include <OOCPointCloud/Repositories.h>
#include <sys/mman.h>
#include <unistd.h>

#include <memory>

#include "fuzz/FuzzSupport.h"
#include "host/formats/ScanFile.h"

namespace oocpcfuzz {

/// A file without a name, mapped: readers may drop its pages and read them again.
class MappedBytes final : public OOCPCByteSource {
 public:
  MappedBytes(const std::uint8_t* data, std::size_t size) : size_(size) {
    if (size == 0) return;
    const int file = ::memfd_create("scan", 0);
    Require(file >= 0 && ::write(file, data, size) == static_cast<ssize_t>(size));
    bytes_ = ::mmap(nullptr, size, PROT_READ, MAP_SHARED, file, 0);
    ::close(file);
    Require(bytes_ != MAP_FAILED);
  }
  ~MappedBytes() override {
    if (size_ > 0) ::munmap(bytes_, size_);
  }
  [[nodiscard]] std::span<const std::uint8_t> GetBytes() const override {
    return {static_cast<const std::uint8_t*>(bytes_), size_};
  }

 private:
  void* bytes_ = nullptr;
  std::size_t size_;
};

/// Texts are numbered among those that there are.
inline void CheckTexts(const Bytes& values, std::size_t count) {
  for (std::size_t at = 0; at < values.size(); at += sizeof(std::uint32_t)) {
    std::uint32_t number = 0;
    std::memcpy(&number, values.data() + at, sizeof(number));
    Require(number < count);
  }
}

/// Whether the box that a scan states is that of its points.
enum class StatedBox { kIsTrue, kMayBeWrong };

/// A refusal tells what is wrong and where; a scan that was opened can be read, and lies where it
/// says.
inline void CheckScan(const tarnhost::Outcome& opened, tarnhost::ScanFile* scan,
                      StatedBox box = StatedBox::kIsTrue) {
  namespace result = oocpc::result;
  constexpr std::uint64_t kMostBytes = 1u << 24;
  if (!opened.Ok()) {
    Require(IsOneOf(opened.code, {result::kScanNotRecognised, result::kScanTruncated,
                                  result::kScanContradictory, result::kScanUnsupported}));
    Require(!opened.what.empty() && opened.where.starts_with("scan"));
    Require(!opened.remedy.empty());
    return;
  }
  const std::uint64_t count = scan->GetPointCount();
  if (count > kMostBytes / scan->GetRecordBytes()) return;
  tarnhost::ScanWorkspace workspace{kMostBytes, "/", {}};
  // Opening looks at coordinates alone.
  if (const tarnhost::Outcome prepared = scan->Prepare(workspace); !prepared.Ok()) {
    Require(prepared.code == result::kScanContradictory && !prepared.what.empty());
    return;
  }
  Bytes records(count * scan->GetRecordBytes());
  scan->ReadRecords(0, count, records.data());
  tarnhost::StoredBox found;
  for (std::uint64_t i = 0; i < count; ++i) {
    std::int32_t xyz[3];
    std::memcpy(xyz, records.data() + i * scan->GetRecordBytes(), sizeof(xyz));
    found.Extend(xyz, 1);
  }
  tarnhost::StoredBox stated;
  const bool isStated = scan->GetStatedBox(stated);
  if (box == StatedBox::kIsTrue) {
    Require(isStated == (count > 0));
    if (count > 0) Require(stated == found);
  }
  Bytes values;
  for (std::size_t i = 0; i < scan->GetDimensions().size(); ++i) {
    values.resize(count * oocpc::ValueBytes(scan->GetDimensions()[i].type));
    scan->ExtractDimension(i, records.data(), count, values.data());
    if (scan->GetDimensions()[i].type.value == oocpc::ValueType::kString) {
      CheckTexts(values, scan->GetStrings().size());
    }
  }
  scan->Release();
}

}  // namespace oocpcfuzz
