// What the folder store asks of the operating system, for POSIX systems.
#if !defined(_WIN32)

#include <OOCPointCloud/ResultCodes.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <utility>

#include "OOCPointCloud/repository/FileChanges.h"
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

FileKind KindOf(const struct stat& status) {
  if (S_ISDIR(status.st_mode)) return FileKind::kFolder;
  return S_ISREG(status.st_mode) ? FileKind::kFile : FileKind::kOther;
}

HRESULT Check(int answer) { return answer < 0 ? ResultFromErrno(errno) : result::kOk; }

int Descriptor(std::intptr_t handle) { return static_cast<int>(handle); }

using Kind = FileChange::Kind;

}  // namespace

// What matters has been synced by now, so that the answer of close tells nothing more.
void AppendFile::Close() {
  if (handle_ != kClosed) ::close(Descriptor(std::exchange(handle_, kClosed)));
}

HRESULT AppendFile::Open(const std::filesystem::path& path, AppendFile& file) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kOpen, path, {}, {}}, answer)) return answer;
  const int descriptor =
      Retry([&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0666); });
  if (descriptor < 0) return ResultFromErrno(errno);
  file.Close();
  file.handle_ = descriptor;
  file.path_ = path;
  return result::kOk;
}

HRESULT AppendFile::Write(std::span<const std::uint8_t> bytes) {
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

HRESULT AppendFile::SetLength(std::uint64_t length) {
  return Check(Retry([&] { return ::ftruncate(Descriptor(handle_), static_cast<off_t>(length)); }));
}

HRESULT AppendFile::Flush() {
  return Check(Retry([&] { return ::fsync(Descriptor(handle_)); }));
}

FileLock::~FileLock() {
  if (handle_ != kClosed) ::close(Descriptor(handle_));
}

HRESULT FileLock::Take(const std::filesystem::path& file, FileLock& lock) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kOpen, file, {}, {}}, answer)) return answer;
  while (true) {
    FileLock taken;
    taken.handle_ = Retry([&] { return ::open(file.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666); });
    if (taken.handle_ < 0) return ResultFromErrno(errno);
    if (Retry([&] { return ::flock(Descriptor(taken.handle_), LOCK_EX | LOCK_NB); }) != 0) {
      return errno == EWOULDBLOCK ? result::kBeingWritten : ResultFromErrno(errno);
    }
    // Meanwhile the file may have been replaced, with its folder: then it locks nobody out.
    struct stat held {};
    struct stat named {};
    if (::fstat(Descriptor(taken.handle_), &held) != 0) return ResultFromErrno(errno);
    if (::stat(file.c_str(), &named) != 0) {
      if (errno == ENOENT) continue;
      return ResultFromErrno(errno);
    }
    if (held.st_dev != named.st_dev || held.st_ino != named.st_ino) continue;
    lock = std::move(taken);
    return result::kOk;
  }
}

HRESULT ReadWholeFile(const std::filesystem::path& path, std::vector<std::uint8_t>& bytes) {
  const int descriptor = Retry([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC); });
  if (descriptor < 0) return errno == ENOENT ? result::kStreamMissing : ResultFromErrno(errno);
  bytes.clear();
  std::uint8_t buffer[1u << 16];
  ssize_t count = 0;
  while ((count = Retry([&] { return ::read(descriptor, buffer, sizeof(buffer)); })) > 0) {
    bytes.insert(bytes.end(), buffer, buffer + count);
  }
  const HRESULT code = count < 0 ? ResultFromErrno(errno) : result::kOk;
  ::close(descriptor);
  return code;
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
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kMakeFolder, folder, {}, {}}, answer)) return answer;
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
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kSyncFolder, folder, {}, {}}, answer)) return answer;
  const int descriptor =
      Retry([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); });
  if (descriptor < 0) return ResultFromErrno(errno);
  const HRESULT synced = Check(Retry([&] { return ::fsync(descriptor); }));
  ::close(descriptor);
  return synced;
}

HRESULT ReplaceFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kReplace, from, to, {}}, answer)) return answer;
  return Check(std::rename(from.c_str(), to.c_str()));
}

HRESULT ExchangeFolders(const std::filesystem::path& a, const std::filesystem::path& b) {
#if defined(RENAME_EXCHANGE)
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kExchange, a, b, {}}, answer)) return answer;
  if (::renameat2(AT_FDCWD, a.c_str(), AT_FDCWD, b.c_str(), RENAME_EXCHANGE) == 0) {
    return result::kOk;
  }
  if (errno != EINVAL && errno != ENOSYS) return ResultFromErrno(errno);
#endif
  return ExchangeInSteps(a, b);
}

HRESULT RemoveFile(const std::filesystem::path& path) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kRemove, path, {}, {}}, answer)) return answer;
  return std::remove(path.c_str()) == 0 || errno == ENOENT ? result::kOk : ResultFromErrno(errno);
}

FileKind GetFileKind(const std::filesystem::path& path) {
  struct stat status {};
  return ::stat(path.c_str(), &status) == 0 ? KindOf(status) : FileKind::kNone;
}

FileKind GetOwnKind(const std::filesystem::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0 ? KindOf(status) : FileKind::kNone;
}

HRESULT ResolvePath(const std::filesystem::path& path, std::filesystem::path& resolved) {
  std::error_code error;
  const std::filesystem::path full = std::filesystem::absolute(path, error);
  if (!error) resolved = std::filesystem::weakly_canonical(full, error);
  return error ? ResultFromErrno(error.value()) : result::kOk;
}

bool IsNameTaken(const std::filesystem::path& path) {
  struct stat status {};
  return ::lstat(path.c_str(), &status) == 0;
}

HRESULT ListFolder(const std::filesystem::path& folder, std::vector<std::filesystem::path>& paths) {
  paths.clear();
  std::error_code error;
  std::filesystem::directory_iterator entry(folder, error);
  for (; !error && entry != std::filesystem::directory_iterator(); entry.increment(error)) {
    paths.push_back(entry->path());
  }
  return error ? ResultFromErrno(error.value()) : result::kOk;
}

HRESULT GetFreeBytes(const std::filesystem::path& folder, std::uint64_t& bytes) {
  std::error_code error;
  bytes = std::filesystem::space(folder, error).available;
  return error ? ResultFromErrno(error.value()) : result::kOk;
}

}  // namespace oocpc::detail

#endif
