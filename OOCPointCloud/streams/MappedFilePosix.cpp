// Maps files read-only, on systems with mmap.
#if !defined(_WIN32)

#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <limits>

#include "OOCPointCloud/support/SystemErrors.h"

namespace {

class MappedFile final : public OOCPCByteSource {
 public:
  explicit MappedFile(std::span<std::uint8_t> bytes) : bytes_(bytes) {}
  ~MappedFile() override {
    if (!bytes_.empty()) ::munmap(bytes_.data(), bytes_.size());
  }
  [[nodiscard]] std::span<const std::uint8_t> GetBytes() const override { return bytes_; }

 private:
  std::span<std::uint8_t> bytes_;
};

HRESULT OpenForReading(const std::filesystem::path& file, int& descriptor) {
  do {
    // Without O_NONBLOCK, a pipe of that name would hold the caller up for ever.
    descriptor = ::open(file.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  } while (descriptor < 0 && errno == EINTR);
  if (descriptor >= 0) return oocpc::result::kOk;
  if (errno == ENOENT || errno == ENOTDIR) return oocpc::result::kStreamMissing;
  return oocpc::ResultFromErrno(errno);
}

HRESULT MapDescriptor(int descriptor, std::shared_ptr<const OOCPCByteSource>& bytes) {
  struct stat status {};
  if (::fstat(descriptor, &status) != 0) return oocpc::ResultFromErrno(errno);
  if (!S_ISREG(status.st_mode)) return oocpc::result::kIoError;
  const auto length = static_cast<std::uint64_t>(status.st_size);
  if (length > std::numeric_limits<std::size_t>::max()) return oocpc::result::kIoError;
  if (length == 0) {  // mmap refuses empty ranges
    bytes = std::make_shared<MappedFile>(std::span<std::uint8_t>());
    return oocpc::result::kOk;
  }
  void* begin = ::mmap(nullptr, length, PROT_READ, MAP_SHARED, descriptor, 0);
  if (begin == MAP_FAILED) return oocpc::ResultFromErrno(errno);
  bytes = std::make_shared<MappedFile>(std::span(static_cast<std::uint8_t*>(begin), length));
  return oocpc::result::kOk;
}

}  // namespace

void OOCPCForgetPages(std::span<const std::uint8_t> mapped, OOCPCNextUse next) {
  const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
  // Pages that reach beyond the part may be in use elsewhere.
  const auto begin = (reinterpret_cast<std::uintptr_t>(mapped.data()) + page - 1) / page * page;
  const auto end = reinterpret_cast<std::uintptr_t>(mapped.data() + mapped.size()) / page * page;
  if (begin >= end) return;
  void* const pages = reinterpret_cast<void*>(begin);
#if defined(MADV_COLD)
  if (next == OOCPCNextUse::kUnlikely) ::madvise(pages, end - begin, MADV_COLD);
#else
  static_cast<void>(next);
#endif
  ::madvise(pages, end - begin, MADV_DONTNEED);
}

HRESULT OOCPCMapFile(const std::filesystem::path& file,
                     std::shared_ptr<const OOCPCByteSource>& bytes) {
  bytes.reset();
  int descriptor = -1;
  const HRESULT opened = OpenForReading(file, descriptor);
  if (oocpc::Failed(opened)) return opened;
  const HRESULT mapped = MapDescriptor(descriptor, bytes);
  ::close(descriptor);  // the mapping keeps the file
  return mapped;
}

#endif
