// What the folder store asks of the operating system, for POSIX systems.
#if !defined(_WIN32)

#include <OOCPointCloud/ResultCodes.h>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "OOCPointCloud/repository/FileSystem.h"
#include "OOCPointCloud/support/SystemErrors.h"

namespace oocpc::detail {
namespace {

// Some systems refuse single writes of 2 GiB and more.
constexpr std::size_t kLargestWrite = std::size_t{1} << 30;

// Repeats a call that a signal interrupted.
template <typename Call>
auto Retry(Call call) {
  auto answer = call();
  while (answer < 0 && errno == EINTR) answer = call();
  return answer;
}

HRESULT Check(int answer) { return answer < 0 ? ResultFromErrno(errno) : result::kOk; }

int Descriptor(std::intptr_t handle) { return static_cast<int>(handle); }

}  // namespace

AppendFile::AppendFile(AppendFile&& other) noexcept
    : handle_(std::exchange(other.handle_, kClosed)) {}

AppendFile& AppendFile::operator=(AppendFile&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = std::exchange(other.handle_, kClosed);
  }
  return *this;
}

AppendFile::~AppendFile() { Close(); }

// What matters has been synced by now, so that the answer of close tells nothing more.
void AppendFile::Close() {
  if (handle_ != kClosed) ::close(Descriptor(std::exchange(handle_, kClosed)));
}

HRESULT AppendFile::Open(const std::filesystem::path& path, AppendFile& file) {
  const int descriptor =
      Retry([&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666); });
  if (descriptor < 0) return ResultFromErrno(errno);
  file.Close();
  file.handle_ = descriptor;
  return result::kOk;
}

HRESULT AppendFile::Append(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    const std::size_t length = std::min(bytes.size(), kLargestWrite);
    const ssize_t written =
        Retry([&] { return ::write(Descriptor(handle_), bytes.data(), length); });
    if (written < 0) return ResultFromErrno(errno);
    if (written == 0) return result::kIoError;  // otherwise this would go on for ever
    bytes = bytes.subspan(static_cast<std::size_t>(written));
  }
  return result::kOk;
}

HRESULT AppendFile::GetLength(std::uint64_t& length) const {
  struct stat status {};
  if (::fstat(Descriptor(handle_), &status) != 0) return ResultFromErrno(errno);
  length = static_cast<std::uint64_t>(status.st_size);
  return result::kOk;
}

HRESULT AppendFile::Truncate(std::uint64_t length) {
  return Check(Retry([&] { return ::ftruncate(Descriptor(handle_), static_cast<off_t>(length)); }));
}

HRESULT AppendFile::Sync() {
  return Check(Retry([&] { return ::fsync(Descriptor(handle_)); }));
}

HRESULT GetFileLength(const std::filesystem::path& path, std::uint64_t& length) {
  length = 0;
  struct stat status {};
  if (::stat(path.c_str(), &status) != 0) {
    return errno == ENOENT ? result::kOk : ResultFromErrno(errno);
  }
  if (S_ISDIR(status.st_mode)) return result::kIoError;
  length = static_cast<std::uint64_t>(status.st_size);
  return result::kOk;
}

HRESULT MakeFolder(const std::filesystem::path& folder) {
  if (::mkdir(folder.c_str(), 0777) == 0) return result::kOk;
  return errno == EEXIST ? result::kAlreadyExists : ResultFromErrno(errno);
}

HRESULT CheckFolder(const std::filesystem::path& folder) {
  struct stat status {};
  if (::stat(folder.c_str(), &status) != 0) {
    return errno == ENOENT || errno == ENOTDIR ? result::kNotARepository : ResultFromErrno(errno);
  }
  return S_ISDIR(status.st_mode) ? result::kOk : result::kNotARepository;
}

HRESULT SyncFolder(const std::filesystem::path& folder) {
  const int descriptor =
      Retry([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (descriptor < 0) return ResultFromErrno(errno);
  const HRESULT synced = Check(Retry([&] { return ::fsync(descriptor); }));
  ::close(descriptor);
  return synced;
}

HRESULT ReplaceFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  return Check(std::rename(from.c_str(), to.c_str()));
}

}  // namespace oocpc::detail

#endif
