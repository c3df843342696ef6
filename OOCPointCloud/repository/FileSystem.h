// What writing a repository asks of the operating system; one implementation per system. Every
// change to the disk goes through here, and a watcher can make each of them fail.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/Types.h>

#include <filesystem>
#include <span>
#include <string_view>
#include <vector>

namespace oocpc::detail {

/// A change to the disk that is about to be made.
struct FileChange {
  enum class Kind {
    kOpen,        ///< opens a file for appending, making it when it is not there
    kAppend,      ///< appends `bytes` to the file `path`
    kTruncate,    ///< cuts the file `path` to `length` bytes
    kSync,        ///< makes the file's bytes durable
    kSyncFolder,  ///< makes the names in the folder `path` durable
    kMakeFolder,
    kReplace,   ///< gives the file or folder `path` the name `target`, in one step
    kExchange,  ///< lets `path` and `target` change their names, in one step
    kRemove,    ///< removes a file or an empty folder
  };
  Kind kind;
  std::filesystem::path path;
  std::filesystem::path target;
  std::span<const std::uint8_t> bytes;
  std::uint64_t length = 0;
};

/// Asked before each change to the disk, by any thread that makes one. For tests of what a disk
/// that fails, or a process that ends, leaves behind.
class OOCPOINTCLOUD_API FileWatcher {
 public:
  FileWatcher() = default;
  FileWatcher(const FileWatcher&) = delete;
  FileWatcher& operator=(const FileWatcher&) = delete;
  virtual ~FileWatcher();
  /// kOk: the change is made. kNothingDone: it is left out and called done. A negative code: it
  /// fails with that code; of an append, the first `written` bytes are written first.
  [[nodiscard]] virtual HRESULT Ask(const FileChange& change, std::size_t& written) = 0;
};

/// Asks the watcher about a change that is made elsewhere, such as one to a file without a name:
/// kOk when there is none. `written` as for FileWatcher::Ask.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT AskFileWatcher(const FileChange& change,
                                                       std::size_t& written);

/// Sets the watcher of this process, null for none. Not while files are being changed.
OOCPOINTCLOUD_API void WatchFiles(FileWatcher* watcher);

/// An open file that is written at its end. Moved, not copied; closes itself.
class OOCPOINTCLOUD_API AppendFile {
 public:
  AppendFile() = default;
  AppendFile(AppendFile&& other) noexcept;
  AppendFile& operator=(AppendFile&& other) noexcept;
  AppendFile(const AppendFile&) = delete;
  AppendFile& operator=(const AppendFile&) = delete;
  ~AppendFile();

  /// Opens a file, making it when it is not there.
  [[nodiscard]] static HRESULT Open(const std::filesystem::path& path, AppendFile& file);
  [[nodiscard]] HRESULT Append(std::span<const std::uint8_t> bytes);
  [[nodiscard]] HRESULT GetLength(std::uint64_t& length) const;
  [[nodiscard]] HRESULT Truncate(std::uint64_t length);
  /// Returns when the file's bytes are on stable storage.
  [[nodiscard]] HRESULT Sync();

 private:
  // What the system does, when the watcher lets it.
  [[nodiscard]] HRESULT Write(std::span<const std::uint8_t> bytes);
  [[nodiscard]] HRESULT SetLength(std::uint64_t length);
  [[nodiscard]] HRESULT Flush();
  void Close();

  static constexpr std::intptr_t kClosed = -1;
  std::intptr_t handle_ = kClosed;
  std::filesystem::path path_;
};

/// A lock on a file, which one process at a time can hold. The system lets go of it when the
/// process ends, however it ends; a file that is left over locks nobody out.
class OOCPOINTCLOUD_API FileLock {
 public:
  FileLock() = default;
  FileLock(FileLock&& other) noexcept;
  FileLock& operator=(FileLock&& other) noexcept;
  FileLock(const FileLock&) = delete;
  FileLock& operator=(const FileLock&) = delete;
  ~FileLock();

  /// Takes the lock without waiting, making the file when it is not there; kBeingWritten when
  /// another holds it.
  [[nodiscard]] static HRESULT Take(const std::filesystem::path& file, FileLock& lock);

 private:
  static constexpr std::intptr_t kClosed = -1;
  std::intptr_t handle_ = kClosed;
};

/// Reads a file whole; kStreamMissing when there is none.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT ReadWholeFile(const std::filesystem::path& path,
                                                      std::vector<std::uint8_t>& bytes);
/// Bytes in a file, 0 when there is none.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT GetFileLength(const std::filesystem::path& path,
                                                      std::uint64_t& length);
/// kAlreadyExists when something of that name is there.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT MakeFolder(const std::filesystem::path& folder);
/// kNotARepository when it is not there or not a folder.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT CheckFolder(const std::filesystem::path& folder);
/// Returns when the names in a folder are on stable storage.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT SyncFolder(const std::filesystem::path& folder);
/// Puts `from` in the place of `to`, which may be there, in one step.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT ReplaceFile(const std::filesystem::path& from,
                                                    const std::filesystem::path& to);
/// Gives a folder another name, where nothing may be yet (kAlreadyExists).
[[nodiscard]] OOCPOINTCLOUD_API HRESULT MoveFolder(const std::filesystem::path& from,
                                                   const std::filesystem::path& to);
/// What the name of a folder ends in that lies aside while two change their names.
inline constexpr std::string_view kAsideEnding = ".aside";
/// Lets two folders change their names in one step, or, where the system cannot do that, in three:
/// `b` lies aside then, under the name of `a` with an ending, until `a` has taken its name.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT ExchangeFolders(const std::filesystem::path& a,
                                                        const std::filesystem::path& b);
/// False where a folder does not move as long as a file in it is open, a lock's included.
#if defined(_WIN32)
inline constexpr bool kFoldersMoveWhileInUse = false;
#else
inline constexpr bool kFoldersMoveWhileInUse = true;
#endif

/// What there is of a name; links lead on to what they name.
enum class FileKind { kNone, kFile, kFolder, kOther };
/// kNone also of what the system will not tell of.
[[nodiscard]] OOCPOINTCLOUD_API FileKind GetFileKind(const std::filesystem::path& path);
/// The same of the name itself: a link is kOther.
[[nodiscard]] OOCPOINTCLOUD_API FileKind GetOwnKind(const std::filesystem::path& path);
/// The one path that all paths of a file or folder become: absolute, without links, and in the case
/// in which the system keeps it. What is not there yet is taken as it is written.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT ResolvePath(const std::filesystem::path& path,
                                                    std::filesystem::path& resolved);
/// True of whatever bears that name, also of a link that leads nowhere.
[[nodiscard]] OOCPOINTCLOUD_API bool IsNameTaken(const std::filesystem::path& path);
/// Paths of everything in a folder, in no order.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT ListFolder(const std::filesystem::path& folder,
                                                   std::vector<std::filesystem::path>& paths);
/// Bytes that this user may still write below a folder.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT GetFreeBytes(const std::filesystem::path& folder,
                                                     std::uint64_t& bytes);

/// Removes a file; one that is not there is no failure.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT RemoveFile(const std::filesystem::path& path);
/// Removes a folder and all that is in it; one that is not there is no failure.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT RemoveFolder(const std::filesystem::path& folder);

}  // namespace oocpc::detail
