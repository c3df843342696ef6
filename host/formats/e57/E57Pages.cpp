// The pages of an E57 file: content with a checksum behind each part of it.
//
// ASTM E2807: a file header of 48 bytes; pages, usually of 1024 bytes, whose last four hold the
// CRC-32C of the others, its highest byte first. Offsets in the file count all bytes ("physical"),
// lengths only those without checksums ("logical").
#include "host/formats/e57/E57Pages.h"

#include <OOCPointCloud/Repositories.h>
#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <cstring>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

constexpr std::size_t kHeaderBytes = 48;
constexpr std::size_t kChecksumBytes = 4;
constexpr std::uint64_t kFewestPageBytes = 64;
constexpr std::uint64_t kMostPageBytes = 1u << 20;
constexpr const char* kCopyAgain = "copy or download the file again";
constexpr const char* kWriteAgain = "write the scan again with the program that made it";

}  // namespace

bool E57Pages::IsE57(std::span<const std::uint8_t> file) {
  return file.size() >= 8 && std::memcmp(file.data(), "ASTM-E57", 8) == 0;
}

Outcome E57Pages::Open(std::span<const std::uint8_t> file, const std::string& where,
                       E57Pages& pages) {
  if (file.size() < kHeaderBytes) {
    return Outcome::Failure(result::kScanTruncated, "the E57 header is cut off", where, kCopyAgain);
  }
  const auto number = [&](std::size_t at) {
    return oocpc::LoadLittleEndian<std::uint64_t>(file.data() + at);
  };
  const auto major = oocpc::LoadLittleEndian<std::uint32_t>(file.data() + 8);
  if (major != 1) {
    return Outcome::Failure(result::kScanUnsupported,
                            "E57 files of version " + std::to_string(major) + " are not read",
                            where, "write the scan as E57 1.0");
  }
  const std::uint64_t stated = number(16);
  pages.pageBytes_ = number(40);
  if (pages.pageBytes_ < kFewestPageBytes || pages.pageBytes_ > kMostPageBytes ||
      stated % pages.pageBytes_ != 0) {
    return Outcome::Failure(result::kScanContradictory, "the E57 header states no sensible pages",
                            where + ", byte 40", kWriteAgain);
  }
  if (stated > file.size()) {
    return Outcome::Failure(result::kScanTruncated,
                            std::to_string(stated - file.size()) + " bytes of the file are missing",
                            where, kCopyAgain);
  }
  pages.file_ = file;
  pages.contentBytes_ = pages.pageBytes_ - kChecksumBytes;
  pages.pageCount_ = stated / pages.pageBytes_;
  pages.xmlBytes_ = number(32);
  if (!pages.ToLogical(number(24), pages.xmlOffset_) ||
      pages.xmlBytes_ > pages.GetLogicalBytes() - pages.xmlOffset_) {
    return Outcome::Failure(result::kScanContradictory,
                            "the E57 header places the XML section behind the end of the file",
                            where + ", byte 24", kWriteAgain);
  }
  return Outcome::Success();
}

Outcome E57Pages::Verify(const std::string& where, SharedProgress& progress) const {
  constexpr std::uint64_t kRun = 256;
  std::atomic<std::uint64_t> bad = pageCount_;
  const auto check = [&](std::uint64_t page) {
    const std::uint8_t* const bytes = file_.data() + page * pageBytes_;
    const std::uint8_t* const end = bytes + contentBytes_;
    const std::uint32_t stated = std::uint32_t{end[0]} << 24 | std::uint32_t{end[1]} << 16 |
                                 std::uint32_t{end[2]} << 8 | std::uint32_t{end[3]};
    if (oocpc::Crc32c({bytes, static_cast<std::size_t>(contentBytes_)}) == stated) return;
    std::uint64_t first = bad;
    while (page < first && !bad.compare_exchange_weak(first, page)) {
    }
  };
  using Pages = tbb::blocked_range<std::uint64_t>;
  tbb::parallel_for(Pages(0, pageCount_, kRun), [&](const Pages& pages) {
    if (!progress.GoesOn()) return;
    for (std::uint64_t page = pages.begin(); page != pages.end(); ++page) check(page);
    progress.Add(pages.size() * pageBytes_);
  });
  OOCPCForgetPages(file_);
  if (!progress.GoesOn()) return Outcome::FromCode(result::kStopped);
  if (bad == pageCount_) return Outcome::Success();
  return Outcome::Failure(result::kScanContradictory,
                          "page " + std::to_string(bad + 1) + " of " + std::to_string(pageCount_) +
                              " does not have the checksum that it states",
                          where + ", byte " + std::to_string(bad * pageBytes_), kCopyAgain);
}

bool E57Pages::ToLogical(std::uint64_t physical, std::uint64_t& logical) const {
  const std::uint64_t page = physical / pageBytes_;
  const std::uint64_t rest = physical % pageBytes_;
  if (page >= pageCount_ || rest >= contentBytes_) return false;
  logical = page * contentBytes_ + rest;
  return true;
}

bool E57Pages::Read(std::uint64_t logical, std::size_t count, std::uint8_t* out) const {
  const std::uint64_t all = GetLogicalBytes();
  if (logical > all || count > all - logical) return false;
  while (count > 0) {
    const std::uint64_t rest = logical % contentBytes_;
    const auto here = std::min(count, static_cast<std::size_t>(contentBytes_ - rest));
    std::memcpy(out, file_.data() + ToPhysical(logical), here);
    logical += here;
    out += here;
    count -= here;
  }
  return true;
}

void E57Pages::Forget(std::uint64_t begin, std::uint64_t end) const {
  const auto from = static_cast<std::size_t>(ToPhysical(begin));
  OOCPCForgetPages(file_.subspan(from, static_cast<std::size_t>(ToPhysical(end)) - from));
}

}  // namespace tarnhost
