// Writing a repository that is a folder of files.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>

#include <utility>

#include "OOCPointCloud/repository/FileSystem.h"

using oocpc::Failed;
using oocpc::detail::AppendFile;
using oocpc::detail::FileLock;

namespace {

// Far above the streams of a usual repository, far below what a process may open.
constexpr std::size_t kMaximumOpenFiles = 128;

}  // namespace

struct OOCPCFolderStreamStore::OpenFiles {
  /// The open file of a stream, valid until the next call.
  [[nodiscard]] HRESULT Get(const std::filesystem::path& folder, const std::string& name,
                            AppendFile*& file) {
    auto found = byName.find(name);
    if (found == byName.end()) {
      // Syncing a file that is opened again later covers what was written before it was closed.
      if (byName.size() >= kMaximumOpenFiles) byName.clear();
      AppendFile opened;
      const HRESULT code = AppendFile::Open(folder / name, opened);
      if (Failed(code)) return code;
      found = byName.emplace(name, std::move(opened)).first;
    }
    file = &found->second;
    return oocpc::result::kOk;
  }

  std::map<std::string, AppendFile> byName;
  std::shared_ptr<FileLock> lock = std::make_shared<FileLock>();
};

OOCPCFolderStreamStore::OOCPCFolderStreamStore(std::filesystem::path folder)
    : folder_(std::move(folder)), files_(std::make_unique<OpenFiles>()) {}

OOCPCFolderStreamStore::~OOCPCFolderStreamStore() = default;

std::shared_ptr<const void> OOCPCFolderStreamStore::ShareLock() const { return files_->lock; }

HRESULT OOCPCFolderStreamStore::Create(const std::filesystem::path& folder,
                                       std::unique_ptr<OOCPCFolderStreamStore>& store) {
  store.reset();
  const HRESULT made = oocpc::detail::MakeFolder(folder);
  if (Failed(made)) return made;
  std::unique_ptr<OOCPCFolderStreamStore> created(new OOCPCFolderStreamStore(folder));
  HRESULT code = FileLock::Take(folder / kLockFileName, *created->files_->lock);
  // Both names must be durable, the folder's last: who finds the folder finds the lock. A parent
  // that may be written but not read cannot be synced.
  if (!Failed(code)) code = oocpc::detail::SyncFolder(folder);
  if (!Failed(code)) {
    code = oocpc::detail::SyncFolder(folder / "..");
    if (code == oocpc::result::kAccessDenied) code = oocpc::result::kOk;
  }
  if (Failed(code)) {
    // The failure to report is the first one.
    static_cast<void>(oocpc::detail::RemoveFolder(folder));
    return code;
  }
  store = std::move(created);
  return oocpc::result::kOk;
}

HRESULT OOCPCFolderStreamStore::Open(const std::filesystem::path& folder,
                                     std::unique_ptr<OOCPCFolderStreamStore>& store) {
  store.reset();
  const HRESULT found = oocpc::detail::CheckFolder(folder);
  if (Failed(found)) return found;
  std::unique_ptr<OOCPCFolderStreamStore> opened(new OOCPCFolderStreamStore(folder));
  const HRESULT locked = FileLock::Take(folder / kLockFileName, *opened->files_->lock);
  if (!Failed(locked)) store = std::move(opened);
  return locked;
}

HRESULT OOCPCFolderStreamStore::ReadMain(std::vector<std::uint8_t>& bytes) {
  const HRESULT read = oocpc::detail::ReadWholeFile(folder_ / kMainFileName, bytes);
  return read == oocpc::result::kStreamMissing ? oocpc::result::kNotARepository : read;
}

HRESULT OOCPCFolderStreamStore::GetLength(const std::string& name, std::uint64_t& length) {
  if (!OOCPCIsStreamName(name)) return oocpc::result::kBadStreamName;
  const auto open = files_->byName.find(name);
  if (open != files_->byName.end()) return open->second.GetLength(length);
  return oocpc::detail::GetFileLength(folder_ / name, length);
}

HRESULT OOCPCFolderStreamStore::Append(const std::string& name,
                                       std::span<const std::uint8_t> bytes) {
  if (!OOCPCIsStreamName(name)) return oocpc::result::kBadStreamName;
  AppendFile* file = nullptr;
  const HRESULT opened = files_->Get(folder_, name, file);
  return Failed(opened) ? opened : file->Append(bytes);
}

HRESULT OOCPCFolderStreamStore::Truncate(const std::string& name, std::uint64_t length) {
  std::uint64_t present = 0;
  const HRESULT measured = GetLength(name, present);
  if (Failed(measured)) return measured;
  if (length > present) return oocpc::result::kSeekOutOfRange;
  if (length == present) return oocpc::result::kOk;
  AppendFile* file = nullptr;
  const HRESULT opened = files_->Get(folder_, name, file);
  return Failed(opened) ? opened : file->Truncate(length);
}

HRESULT OOCPCFolderStreamStore::Sync(const std::string& name) {
  if (!OOCPCIsStreamName(name)) return oocpc::result::kBadStreamName;
  AppendFile* file = nullptr;
  const HRESULT opened = files_->Get(folder_, name, file);
  return Failed(opened) ? opened : file->Sync();
}

HRESULT OOCPCFolderStreamStore::ReplaceFileOf(const char* name,
                                              std::span<const std::uint8_t> bytes) {
  const std::filesystem::path next = folder_ / (std::string(name) + ".new");
  const auto write = [&]() -> HRESULT {
    AppendFile file;
    HRESULT code = AppendFile::Open(next, file);
    if (!Failed(code)) code = file.Truncate(0);  // an interrupted writer may have left one
    if (!Failed(code)) code = file.Append(bytes);
    if (!Failed(code)) code = file.Sync();
    // The names of new streams must be durable before a main stream that relies on them is.
    if (!Failed(code)) code = oocpc::detail::SyncFolder(folder_);
    return code;
  };
  HRESULT code = write();
  if (!Failed(code)) code = oocpc::detail::ReplaceFile(next, folder_ / name);
  if (Failed(code)) {
    // The failure to report is the first one.
    static_cast<void>(oocpc::detail::RemoveFile(next));
    return code;
  }
  return oocpc::detail::SyncFolder(folder_);
}

HRESULT OOCPCFolderStreamStore::ReplaceMain(std::span<const std::uint8_t> bytes) {
  const HRESULT replaced = ReplaceFileOf(kMainFileName, bytes);
  if (Failed(replaced)) return replaced;
  // By now the commit has happened. Without a new copy there is still the one before, to which the
  // streams can go back as well, so that a failure here is none of the commit.
  static_cast<void>(ReplaceFileOf(kMainCopyFileName, bytes));
  return oocpc::result::kOk;
}
