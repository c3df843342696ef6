// A large run of bytes that is filled once and read often: in memory, or in a temporary file.
#include "host/common/ScratchBytes.h"

#include <OOCPointCloud/Repositories.h>
#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>

#include "OOCPointCloud/support/SystemErrors.h"
#include "host/common/NamelessFile.h"
#include "host/common/WatchedChange.h"

namespace tarnhost {

namespace {

Outcome FailureOf(int error, const std::filesystem::path& path) {
  if (error == ENOMEM) return Outcome::FromCode(oocpc::result::kOutOfMemory, path.string());
  return Outcome::FromCode(oocpc::ResultFromErrno(error), path.string());
}

/// Opens a nameless file of a length.
int OpenOfLength(const std::filesystem::path& folder, std::uint64_t bytes) {
  const int file = OpenNamelessFile(folder);
  if (file < 0 || ::ftruncate(file, static_cast<off_t>(bytes)) == 0) return file;
  const int error = errno;
  ::close(file);
  errno = error;
  return -1;
}

}  // namespace

Outcome ScratchBytes::Create(std::uint64_t bytes, std::uint64_t memoryBytes,
                             const std::filesystem::path& folder,
                             std::unique_ptr<ScratchBytes>& scratch) {
  const std::filesystem::path path = folder / "scratch";
  int file = -1;
  if (bytes > memoryBytes) {
    if (const HRESULT asked = AskBefore(FileChangeKind::kOpen, path); oocpc::Failed(asked)) {
      return Outcome::FromCode(asked, path.string());
    }
    file = OpenOfLength(folder, bytes);
    if (file < 0) return FailureOf(errno, path);
  }
  void* mapped = nullptr;
  if (bytes > 0) {
    mapped = file < 0 ? ::mmap(nullptr, bytes, PROT_READ | PROT_WRITE,
                               MAP_PRIVATE | MAP_ANONYMOUS | MAP_NORESERVE, -1, 0)
                      : ::mmap(nullptr, bytes, PROT_READ, MAP_SHARED, file, 0);
    if (mapped == MAP_FAILED) {
      const int error = errno;
      if (file >= 0) ::close(file);
      return FailureOf(error, path);
    }
  }
  scratch.reset(new ScratchBytes(static_cast<std::uint8_t*>(mapped), bytes, file, path));
  return Outcome::Success();
}

ScratchBytes::~ScratchBytes() {
  if (mapped_ != nullptr) ::munmap(mapped_, bytes_);
  if (file_ >= 0) ::close(file_);
}

Outcome ScratchBytes::Write(std::uint64_t at, std::span<const std::uint8_t> bytes) {
  if (at > bytes_ || bytes.size() > bytes_ - at) {
    return Outcome::FromCode(oocpc::result::kIndexOutOfRange, path_.string());
  }
  if (file_ < 0) {
    std::copy(bytes.begin(), bytes.end(), mapped_ + at);
    return Outcome::Success();
  }
  if (const HRESULT asked = AskBefore(FileChangeKind::kAppend, path_, bytes);
      oocpc::Failed(asked)) {
    return Outcome::FromCode(asked, path_.string());
  }
  for (std::size_t done = 0; done < bytes.size();) {
    const ssize_t written =
        ::pwrite(file_, bytes.data() + done, bytes.size() - done, static_cast<off_t>(at + done));
    if (written < 0 && errno == EINTR) continue;
    if (written <= 0) return FailureOf(written < 0 ? errno : EIO, path_);
    done += static_cast<std::size_t>(written);
  }
  return Outcome::Success();
}

void ScratchBytes::Forget(std::uint64_t at, std::uint64_t count) const {
  // Memory would be lost; a file keeps what its pages drop.
  if (file_ >= 0) OOCPCForgetPages({mapped_ + at, static_cast<std::size_t>(count)});
}

}  // namespace tarnhost
