// The pages of an E57 file: content with a checksum behind each part of it.
#pragma once

#include <cstdint>
#include <span>
#include <string>

#include "host/common/Outcome.h"
#include "host/common/SharedProgress.h"

namespace tarnhost {

/// Reads an E57 file as if it had no checksums in it ("logical" bytes). Const operations are safe
/// from several threads at once. Borrows the file.
class E57Pages {
 public:
  /// True for the start of an E57 file.
  [[nodiscard]] static bool IsE57(std::span<const std::uint8_t> file);
  /// Reads and checks the header. kScanTruncated, kScanContradictory, kScanUnsupported; `where`
  /// names the file.
  static Outcome Open(std::span<const std::uint8_t> file, const std::string& where,
                      E57Pages& pages);

  /// Checks all checksums, on all cores; told how many bytes are done. kScanContradictory for the
  /// first page that was altered; kStopped.
  Outcome Verify(const std::string& where, SharedProgress& progress) const;

  [[nodiscard]] std::uint64_t GetXmlOffset() const { return xmlOffset_; }  ///< logical
  [[nodiscard]] std::uint64_t GetXmlBytes() const { return xmlBytes_; }
  [[nodiscard]] std::uint64_t GetLogicalBytes() const { return pageCount_ * contentBytes_; }
  /// The logical place of a physical one; false when that is behind the end or in a checksum.
  [[nodiscard]] bool ToLogical(std::uint64_t physical, std::uint64_t& logical) const;
  /// The physical place of a logical byte, for messages.
  [[nodiscard]] std::uint64_t ToPhysical(std::uint64_t logical) const {
    return logical / contentBytes_ * pageBytes_ + logical % contentBytes_;
  }
  /// Copies bytes; false when some of them lie behind the end.
  [[nodiscard]] bool Read(std::uint64_t logical, std::size_t count, std::uint8_t* out) const;
  /// Says that the logical bytes [begin, end) of the file are not needed soon.
  void Forget(std::uint64_t begin, std::uint64_t end) const;

 private:
  std::span<const std::uint8_t> file_;
  std::uint64_t pageBytes_ = 1024;
  std::uint64_t contentBytes_ = 1020;  ///< of a page
  std::uint64_t pageCount_ = 0;
  std::uint64_t xmlOffset_ = 0;
  std::uint64_t xmlBytes_ = 0;
};

}  // namespace tarnhost
