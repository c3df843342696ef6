// Files that no name leads to, and large memory, on POSIX systems.
#if !defined(_WIN32)

#include <OOCPointCloud/ResultCodes.h>
#include <fcntl.h>
#include <sys/mman.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <string>

#include "OOCPointCloud/support/SystemErrors.h"
#include "host/common/NamelessFile.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

HRESULT ResultOf(int error) {
  return error == ENOMEM ? result::kOutOfMemory : oocpc::ResultFromErrno(error);
}

int OpenNamelessFile(const std::filesystem::path& folder) {
#if defined(O_TMPFILE)
  const int file = ::open(folder.c_str(), O_RDWR | O_TMPFILE | O_CLOEXEC, 0600);
  if (file >= 0 || (errno != EOPNOTSUPP && errno != EISDIR)) return file;
#endif
  // A file system that makes none without a name.
  static std::atomic<unsigned> made = 0;
  const std::filesystem::path named =
      folder / (".temporary-" + std::to_string(::getpid()) + "-" + std::to_string(made++));
  const int opened = ::open(named.c_str(), O_RDWR | O_CREAT | O_EXCL | O_CLOEXEC, 0600);
  if (opened >= 0) ::unlink(named.c_str());
  return opened;
}

}  // namespace

HRESULT NamelessFile::Create(const std::filesystem::path& folder,
                             std::unique_ptr<NamelessFile>& file) {
  const int opened = OpenNamelessFile(folder);
  if (opened < 0) return ResultOf(errno);
  file.reset(new NamelessFile(opened));
  return result::kOk;
}

NamelessFile::~NamelessFile() {
  if (!mapped_.empty()) ::munmap(mapped_.data(), mapped_.size());
  if (handle_ >= 0) ::close(static_cast<int>(handle_));
}

void NamelessFile::EndWriting() {
  if (mapped_.empty() || handle_ < 0) return;
  ::close(static_cast<int>(handle_));
  handle_ = -1;
}

HRESULT NamelessFile::Map(std::uint64_t bytes) {
  const int file = static_cast<int>(handle_);
  if (::ftruncate(file, static_cast<off_t>(bytes)) != 0) return ResultOf(errno);
  if (bytes == 0) return result::kOk;
  void* begin = ::mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file, 0);
  if (begin == MAP_FAILED) return ResultOf(errno);
  mapped_ = {static_cast<std::uint8_t*>(begin), static_cast<std::size_t>(bytes)};
  return result::kOk;
}

// Not through the mapping: a full disk would end the process then.
HRESULT NamelessFile::Write(std::uint64_t offset, std::span<const std::uint8_t> bytes) {
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written = ::pwrite(static_cast<int>(handle_), bytes.data() + done,
                                     bytes.size() - done, static_cast<off_t>(offset + done));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return written < 0 ? ResultOf(errno) : result::kIoError;
    done += static_cast<std::size_t>(written);
  }
  return result::kOk;
}

HRESULT NamelessFile::Read(std::uint64_t offset, std::span<std::uint8_t> out) const {
  for (std::size_t done = 0; done < out.size();) {
    const ssize_t read = ::pread(static_cast<int>(handle_), out.data() + done, out.size() - done,
                                 static_cast<off_t>(offset + done));
    if (read < 0 && errno == EINTR) continue;
    if (read <= 0) return read < 0 ? ResultOf(errno) : result::kIoError;
    done += static_cast<std::size_t>(read);
  }
  return result::kOk;
}

void NamelessFile::ReadAhead(std::uint64_t offset, std::uint64_t bytes) const {
#if defined(POSIX_FADV_WILLNEED)
  ::posix_fadvise(static_cast<int>(handle_), static_cast<off_t>(offset), static_cast<off_t>(bytes),
                  POSIX_FADV_WILLNEED);
#endif
}

HRESULT ZeroedMemory::Take(std::uint64_t bytes, std::unique_ptr<ZeroedMemory>& memory) {
  void* begin = nullptr;
  if (bytes > 0) {
    begin = ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                   MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0);
    if (begin == MAP_FAILED) return result::kOutOfMemory;
  }
  memory.reset(
      new ZeroedMemory({static_cast<std::uint8_t*>(begin), static_cast<std::size_t>(bytes)}));
  return result::kOk;
}

ZeroedMemory::~ZeroedMemory() {
  if (!bytes_.empty()) ::munmap(bytes_.data(), bytes_.size());
}

}  // namespace tarnhost

#endif
