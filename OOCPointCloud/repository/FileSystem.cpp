// What changing the disk is on every system: asking the watcher, and what is made of smaller steps.
#include "OOCPointCloud/repository/FileSystem.h"

#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <atomic>
#include <utility>

#include "OOCPointCloud/repository/FileChanges.h"

namespace oocpc::detail {
namespace {

std::atomic<FileWatcher*> watcher{nullptr};

}  // namespace

FileWatcher::~FileWatcher() = default;

void WatchFiles(FileWatcher* asked) { watcher.store(asked, std::memory_order_relaxed); }

HRESULT AskFileWatcher(const FileChange& change, std::size_t& written) {
  FileWatcher* asked = watcher.load(std::memory_order_relaxed);
  return asked == nullptr ? result::kOk : asked->Ask(change, written);
}

bool IsAllowed(const FileChange& change, HRESULT& answer, std::size_t* written) {
  std::size_t ignored = 0;
  const HRESULT code = AskFileWatcher(change, written == nullptr ? ignored : *written);
  if (code == result::kOk) return true;
  answer = code == result::kNothingDone ? result::kOk : code;
  return false;
}

AppendFile::AppendFile(AppendFile&& other) noexcept
    : handle_(std::exchange(other.handle_, kClosed)), path_(std::move(other.path_)) {}

AppendFile& AppendFile::operator=(AppendFile&& other) noexcept {
  if (this != &other) {
    Close();
    handle_ = std::exchange(other.handle_, kClosed);
    path_ = std::move(other.path_);
  }
  return *this;
}

AppendFile::~AppendFile() { Close(); }

HRESULT AppendFile::Append(std::span<const std::uint8_t> bytes) {
  HRESULT answer = result::kOk;
  std::size_t torn = 0;
  if (!IsAllowed({FileChange::Kind::kAppend, path_, {}, bytes}, answer, &torn)) {
    bytes = bytes.first(std::min(torn, bytes.size()));
  }
  const HRESULT written = Write(bytes);
  return Failed(written) ? written : answer;
}

HRESULT AppendFile::Truncate(std::uint64_t length) {
  HRESULT answer = result::kOk;
  const bool isAllowed = IsAllowed({FileChange::Kind::kTruncate, path_, {}, {}, length}, answer);
  return isAllowed ? SetLength(length) : answer;
}

HRESULT AppendFile::Sync() {
  HRESULT answer = result::kOk;
  return IsAllowed({FileChange::Kind::kSync, path_, {}, {}}, answer) ? Flush() : answer;
}

FileLock::FileLock(FileLock&& other) noexcept : handle_(std::exchange(other.handle_, kClosed)) {}

FileLock& FileLock::operator=(FileLock&& other) noexcept {
  if (this != &other) std::swap(handle_, other.handle_);
  return *this;
}

HRESULT MoveFolder(const std::filesystem::path& from, const std::filesystem::path& to) {
  // An empty folder, too, would be replaced without a word.
  if (IsNameTaken(to)) return result::kAlreadyExists;
  const HRESULT moved = ReplaceFile(from, to);
  if (!Failed(moved)) return moved;
  return IsNameTaken(to) ? result::kAlreadyExists : moved;
}

HRESULT ExchangeInSteps(const std::filesystem::path& a, const std::filesystem::path& b) {
  std::filesystem::path aside = a;
  aside += kAsideEnding;
  HRESULT code = ReplaceFile(b, aside);
  if (Failed(code)) return code;
  code = ReplaceFile(a, b);
  if (!Failed(code)) return ReplaceFile(aside, a);
  // What was there goes back, where that can be done; the failure to tell is the first one.
  static_cast<void>(ReplaceFile(aside, b));
  return code;
}

HRESULT RemoveFolder(const std::filesystem::path& folder) {
  if (!IsNameTaken(folder)) return result::kOk;
  if (GetOwnKind(folder) == FileKind::kFolder) {
    std::vector<std::filesystem::path> paths;
    const HRESULT listed = ListFolder(folder, paths);
    if (Failed(listed)) return listed;
    for (const std::filesystem::path& path : paths) {
      const HRESULT removed = RemoveFolder(path);
      if (Failed(removed)) return removed;
    }
  }
  return RemoveFile(folder);
}

}  // namespace oocpc::detail
