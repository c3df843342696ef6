// Maps files read-only, on Windows.
#if defined(_WIN32)

#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>

#include <limits>
#include <vector>

#include "OOCPointCloud/support/WindowsApi.h"
#include "OOCPointCloud/support/WindowsFiles.h"

namespace {

using oocpc::windows::Handle;

// Windows replaces no file that someone has mapped. Small files, and a repository's main stream
// above all, are read instead, so that readers keep no writer from committing.
constexpr std::uint64_t kLargestCopy = std::uint64_t{1} << 20;

class CopiedFile final : public OOCPCByteSource {
 public:
  explicit CopiedFile(std::vector<std::uint8_t> bytes) : bytes_(std::move(bytes)) {}
  [[nodiscard]] std::span<const std::uint8_t> GetBytes() const override { return bytes_; }

 private:
  std::vector<std::uint8_t> bytes_;
};

class MappedFile final : public OOCPCByteSource {
 public:
  explicit MappedFile(std::span<const std::uint8_t> bytes) : bytes_(bytes) {}
  ~MappedFile() override { ::UnmapViewOfFile(bytes_.data()); }
  [[nodiscard]] std::span<const std::uint8_t> GetBytes() const override { return bytes_; }

 private:
  std::span<const std::uint8_t> bytes_;
};

HRESULT OpenForReading(const std::filesystem::path& path, Handle& file) {
  // Folders are opened, too, to tell them from files that may not be read.
  file = oocpc::windows::Open(path, GENERIC_READ, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
  if (!file.IsOpen()) {
    const DWORD error = ::GetLastError();
    if (oocpc::windows::IsMissing(error)) return oocpc::result::kStreamMissing;
    return oocpc::windows::ResultFromWindowsError(error);
  }
  BY_HANDLE_FILE_INFORMATION facts;
  if (::GetFileType(file.Get()) != FILE_TYPE_DISK ||
      ::GetFileInformationByHandle(file.Get(), &facts) == 0 ||
      (facts.dwFileAttributes & FILE_ATTRIBUTE_DIRECTORY) != 0) {
    return oocpc::result::kIoError;
  }
  return oocpc::result::kOk;
}

HRESULT ReadFileWhole(const Handle& file, std::size_t length,
                      std::shared_ptr<const OOCPCByteSource>& bytes) {
  std::vector<std::uint8_t> copy(length);
  DWORD read = 0;
  for (std::size_t done = 0; done < length; done += read) {
    if (::ReadFile(file.Get(), copy.data() + done, static_cast<DWORD>(length - done), &read,
                   nullptr) == 0) {
      return oocpc::windows::ResultFromLastError();
    }
    if (read == 0) {  // cut meanwhile
      copy.resize(done);
      break;
    }
  }
  bytes = std::make_shared<CopiedFile>(std::move(copy));
  return oocpc::result::kOk;
}

HRESULT Map(const Handle& file, std::uint64_t length,
            std::shared_ptr<const OOCPCByteSource>& bytes) {
  const Handle section(::CreateFileMappingW(file.Get(), nullptr, PAGE_READONLY, 0, 0, nullptr));
  if (!section.IsOpen()) return oocpc::windows::ResultFromLastError();
  const auto size = static_cast<std::size_t>(length);
  const void* begin = ::MapViewOfFile(section.Get(), FILE_MAP_READ, 0, 0, size);
  if (begin == nullptr) return oocpc::windows::ResultFromLastError();
  bytes = std::make_shared<MappedFile>(std::span(static_cast<const std::uint8_t*>(begin), size));
  return oocpc::result::kOk;
}

}  // namespace

void OOCPCForgetPages(std::span<const std::uint8_t> mapped, OOCPCNextUse /*next*/) {
  constexpr std::uintptr_t kPage = 4096;
  // Pages that reach beyond the part may be in use elsewhere.
  const auto begin = (reinterpret_cast<std::uintptr_t>(mapped.data()) + kPage - 1) / kPage * kPage;
  const auto end = reinterpret_cast<std::uintptr_t>(mapped.data() + mapped.size()) / kPage * kPage;
  // Unlocking pages that are not locked takes them out of the working set; the documented way.
  if (begin < end) ::VirtualUnlock(reinterpret_cast<void*>(begin), end - begin);
}

HRESULT OOCPCMapFile(const std::filesystem::path& file,
                     std::shared_ptr<const OOCPCByteSource>& bytes) {
  bytes.reset();
  Handle opened;
  const HRESULT code = OpenForReading(file, opened);
  if (oocpc::Failed(code)) return code;
  LARGE_INTEGER size;
  if (::GetFileSizeEx(opened.Get(), &size) == 0) return oocpc::windows::ResultFromLastError();
  const auto length = static_cast<std::uint64_t>(size.QuadPart);
  if (length > std::numeric_limits<std::size_t>::max()) return oocpc::result::kIoError;
  return length <= kLargestCopy ? ReadFileWhole(opened, static_cast<std::size_t>(length), bytes)
                                : Map(opened, length, bytes);
}

#endif
