// What the folder store asks of the operating system, for Windows.
#if defined(_WIN32)

#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <utility>

#include "OOCPointCloud/repository/FileChanges.h"
#include "OOCPointCloud/repository/FileSystem.h"
#include "OOCPointCloud/support/WindowsFiles.h"
// The macros of the system's header would rename what is declared after it.
#include "OOCPointCloud/support/WindowsApi.h"

namespace oocpc::detail {
namespace {

using windows::Handle;
using windows::IsMissing;
using windows::ResultFromLastError;
using windows::ResultFromWindowsError;
using windows::SystemPath;
using Kind = FileChange::Kind;

// The length of one write is 32 bits.
constexpr std::size_t kLargestWrite = std::size_t{1} << 30;

HRESULT Check(BOOL done) { return done != 0 ? result::kOk : ResultFromLastError(); }

HANDLE HandleOf(std::intptr_t value) { return reinterpret_cast<HANDLE>(value); }

// Takes a handle out of its owner.
std::intptr_t Release(Handle& handle) {
  const auto value = reinterpret_cast<std::intptr_t>(handle.Get());
  handle.Release();
  return value;
}

DWORD AttributesOf(const std::filesystem::path& path) {
  return ::GetFileAttributesW(SystemPath(path).c_str());
}

bool IsFolder(DWORD attributes) {
  return attributes != INVALID_FILE_ATTRIBUTES && (attributes & FILE_ATTRIBUTE_DIRECTORY) != 0;
}

// Locks a byte that no file reaches: locked bytes cannot be read either.
BOOL LockWithoutWaiting(HANDLE file) {
  OVERLAPPED place{};
  place.OffsetHigh = 0x7FFFFFFF;
  return ::LockFileEx(file, LOCKFILE_EXCLUSIVE_LOCK | LOCKFILE_FAIL_IMMEDIATELY, 0, 1, 0, &place);
}

bool IsSameFile(const Handle& a, const Handle& b) {
  BY_HANDLE_FILE_INFORMATION first;
  BY_HANDLE_FILE_INFORMATION second;
  return ::GetFileInformationByHandle(a.Get(), &first) != 0 &&
         ::GetFileInformationByHandle(b.Get(), &second) != 0 &&
         first.dwVolumeSerialNumber == second.dwVolumeSerialNumber &&
         first.nFileIndexHigh == second.nFileIndexHigh &&
         first.nFileIndexLow == second.nFileIndexLow;
}

// Without the prefix that long paths have.
std::wstring PlainPath(const std::wstring& path) {
  if (path.starts_with(L"\\\\?\\UNC\\")) return L"\\\\" + path.substr(8);
  return path.starts_with(L"\\\\?\\") ? path.substr(4) : path;
}

// The system's own name for what is open; not every file system tells it.
std::wstring FinalPath(const Handle& file, const std::wstring& path) {
  std::wstring name(1u << 15, L'\0');  // the longest that there are
  const DWORD length = ::GetFinalPathNameByHandleW(
      file.Get(), name.data(), static_cast<DWORD>(name.size()), FILE_NAME_NORMALIZED);
  if (length == 0 || length >= name.size()) return PlainPath(path);
  name.resize(length);
  return PlainPath(name);
}

// Renames as other systems do: also what is open, and over what is open. Not every file system can.
bool RenameOpen(const Handle& file, const std::wstring& target) {
  // Of an API level above the one that is built for, hence the numbers: FileRenameInfoEx, and
  // replace if exists with POSIX semantics.
  constexpr auto kRenameInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(22);
  constexpr DWORD kReplaceAsPosix = 1 | 2;
  const std::size_t nameBytes = target.size() * sizeof(wchar_t);
  std::vector<std::uint64_t> room((sizeof(FILE_RENAME_INFO) + nameBytes) / 8 + 1);
  auto* info = new (room.data()) FILE_RENAME_INFO{};
  std::copy_n(reinterpret_cast<const std::uint8_t*>(&kReplaceAsPosix), sizeof(kReplaceAsPosix),
              reinterpret_cast<std::uint8_t*>(info));
  info->FileNameLength = static_cast<DWORD>(nameBytes);
  std::copy(target.begin(), target.end(), info->FileName);
  return ::SetFileInformationByHandle(file.Get(), kRenameInfoEx, info,
                                      static_cast<DWORD>(room.size() * 8)) != 0;
}

// Takes the name away at once, also from a file that is open. Not every file system can.
bool RemoveOpen(const Handle& file) {
  constexpr auto kDispositionInfoEx = static_cast<FILE_INFO_BY_HANDLE_CLASS>(21);
  DWORD deleteAsPosix = 1 | 2;
  return ::SetFileInformationByHandle(file.Get(), kDispositionInfoEx, &deleteAsPosix,
                                      sizeof(deleteAsPosix)) != 0;
}

}  // namespace

// What matters has been synced by now, so that the answer of closing tells nothing more.
void AppendFile::Close() {
  if (handle_ != kClosed) ::CloseHandle(HandleOf(std::exchange(handle_, kClosed)));
}

HRESULT AppendFile::Open(const std::filesystem::path& path, AppendFile& file) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kOpen, path, {}, {}}, answer)) return answer;
  Handle opened =
      windows::Open(path, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL);
  if (!opened.IsOpen()) {
    const DWORD error = ::GetLastError();
    return IsFolder(AttributesOf(path)) ? result::kIoError : ResultFromWindowsError(error);
  }
  file.Close();
  file.handle_ = Release(opened);
  file.path_ = path;
  return result::kOk;
}

HRESULT AppendFile::Write(std::span<const std::uint8_t> bytes) {
  while (!bytes.empty()) {
    OVERLAPPED end{};  // this offset stands for the end of the file
    end.Offset = end.OffsetHigh = 0xFFFFFFFF;
    DWORD written = 0;
    if (::WriteFile(HandleOf(handle_), bytes.data(),
                    static_cast<DWORD>(std::min(bytes.size(), kLargestWrite)), &written,
                    &end) == 0) {
      return ResultFromLastError();
    }
    if (written == 0) return result::kIoError;  // otherwise this would go on for ever
    bytes = bytes.subspan(written);
  }
  return result::kOk;
}

HRESULT AppendFile::GetLength(std::uint64_t& length) const {
  LARGE_INTEGER size;
  if (::GetFileSizeEx(HandleOf(handle_), &size) == 0) return ResultFromLastError();
  length = static_cast<std::uint64_t>(size.QuadPart);
  return result::kOk;
}

HRESULT AppendFile::SetLength(std::uint64_t length) {
  FILE_END_OF_FILE_INFO end;
  end.EndOfFile.QuadPart = static_cast<LONGLONG>(length);
  return Check(
      ::SetFileInformationByHandle(HandleOf(handle_), FileEndOfFileInfo, &end, sizeof(end)));
}

HRESULT AppendFile::Flush() { return Check(::FlushFileBuffers(HandleOf(handle_))); }

FileLock::~FileLock() {
  if (handle_ != kClosed) ::CloseHandle(HandleOf(handle_));
}

HRESULT FileLock::Take(const std::filesystem::path& file, FileLock& lock) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kOpen, file, {}, {}}, answer)) return answer;
  while (true) {
    Handle taken =
        windows::Open(file, GENERIC_READ | GENERIC_WRITE, OPEN_ALWAYS, FILE_ATTRIBUTE_NORMAL);
    if (!taken.IsOpen()) return ResultFromLastError();
    if (LockWithoutWaiting(taken.Get()) == 0) {
      const DWORD error = ::GetLastError();
      const bool held = error == ERROR_LOCK_VIOLATION || error == ERROR_IO_PENDING;
      return held ? result::kBeingWritten : ResultFromWindowsError(error);
    }
    // Meanwhile the file may have been replaced, with its folder: then it locks nobody out.
    const Handle named = windows::Open(file, FILE_READ_ATTRIBUTES, OPEN_EXISTING, 0);
    if (!named.IsOpen()) {
      if (IsMissing(::GetLastError())) continue;
      return ResultFromLastError();
    }
    if (!IsSameFile(taken, named)) continue;
    FileLock held;
    held.handle_ = Release(taken);
    lock = std::move(held);
    return result::kOk;
  }
}

HRESULT ReadWholeFile(const std::filesystem::path& path, std::vector<std::uint8_t>& bytes) {
  const Handle file = windows::Open(path, GENERIC_READ, OPEN_EXISTING, FILE_ATTRIBUTE_NORMAL);
  if (!file.IsOpen()) {
    const DWORD error = ::GetLastError();
    if (IsMissing(error)) return result::kStreamMissing;
    return IsFolder(AttributesOf(path)) ? result::kIoError : ResultFromWindowsError(error);
  }
  bytes.clear();
  std::uint8_t buffer[1u << 16];
  DWORD count = 0;
  do {
    if (::ReadFile(file.Get(), buffer, sizeof(buffer), &count, nullptr) == 0) {
      return ResultFromLastError();
    }
    bytes.insert(bytes.end(), buffer, buffer + count);
  } while (count > 0);
  return result::kOk;
}

HRESULT GetFileLength(const std::filesystem::path& path, std::uint64_t& length) {
  length = 0;
  WIN32_FILE_ATTRIBUTE_DATA facts;
  if (::GetFileAttributesExW(SystemPath(path).c_str(), GetFileExInfoStandard, &facts) == 0) {
    const DWORD error = ::GetLastError();
    return IsMissing(error) ? result::kOk : ResultFromWindowsError(error);
  }
  if (IsFolder(facts.dwFileAttributes)) return result::kIoError;
  length = (std::uint64_t{facts.nFileSizeHigh} << 32) | facts.nFileSizeLow;
  return result::kOk;
}

HRESULT MakeFolder(const std::filesystem::path& folder) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kMakeFolder, folder, {}, {}}, answer)) return answer;
  if (::CreateDirectoryW(SystemPath(folder).c_str(), nullptr) != 0) return result::kOk;
  const DWORD error = ::GetLastError();
  const bool exists = error == ERROR_ALREADY_EXISTS || error == ERROR_FILE_EXISTS;
  return exists ? result::kAlreadyExists : ResultFromWindowsError(error);
}

HRESULT CheckFolder(const std::filesystem::path& folder) {
  const DWORD attributes = AttributesOf(folder);
  if (IsFolder(attributes)) return result::kOk;
  if (attributes != INVALID_FILE_ATTRIBUTES) return result::kNotARepository;
  const DWORD error = ::GetLastError();
  return IsMissing(error) ? result::kNotARepository : ResultFromWindowsError(error);
}

// The journal of the file system keeps names in the order in which they were made. Where the system
// flushes a folder, that is asked for as well; where it does not, there is nothing more to ask.
HRESULT SyncFolder(const std::filesystem::path& folder) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kSyncFolder, folder, {}, {}}, answer)) return answer;
  if (!IsFolder(AttributesOf(folder))) return result::kIoError;
  const Handle opened =
      windows::Open(folder, GENERIC_WRITE, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
  if (opened.IsOpen()) static_cast<void>(::FlushFileBuffers(opened.Get()));
  return result::kOk;
}

HRESULT ReplaceFile(const std::filesystem::path& from, const std::filesystem::path& to) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kReplace, from, to, {}}, answer)) return answer;
  const std::wstring source = SystemPath(from);
  const std::wstring target = SystemPath(to);
  if (IsFolder(AttributesOf(to)) && !IsFolder(AttributesOf(from))) return result::kIoError;
  if (::MoveFileExW(source.c_str(), target.c_str(),
                    MOVEFILE_REPLACE_EXISTING | MOVEFILE_WRITE_THROUGH) != 0) {
    return result::kOk;
  }
  const DWORD error = ::GetLastError();
  // Refused, perhaps, because someone has the target open.
  const Handle file =
      windows::Open(from, DELETE | SYNCHRONIZE, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
  if (file.IsOpen() && RenameOpen(file, windows::FullSystemPath(to))) return result::kOk;
  return ResultFromWindowsError(error);
}

// There is no such step.
HRESULT ExchangeFolders(const std::filesystem::path& a, const std::filesystem::path& b) {
  return ExchangeInSteps(a, b);
}

HRESULT RemoveFile(const std::filesystem::path& path) {
  HRESULT answer = result::kOk;
  if (!IsAllowed({Kind::kRemove, path, {}, {}}, answer)) return answer;
  const DWORD attributes = AttributesOf(path);
  if (attributes == INVALID_FILE_ATTRIBUTES && IsMissing(::GetLastError())) return result::kOk;
  {
    const Handle file = windows::Open(path, DELETE, OPEN_EXISTING,
                                      FILE_FLAG_BACKUP_SEMANTICS | FILE_FLAG_OPEN_REPARSE_POINT);
    if (file.IsOpen() && RemoveOpen(file)) return result::kOk;
  }
  const std::wstring name = SystemPath(path);
  const BOOL removed =
      IsFolder(attributes) ? ::RemoveDirectoryW(name.c_str()) : ::DeleteFileW(name.c_str());
  if (removed != 0) return result::kOk;
  const DWORD error = ::GetLastError();
  return IsMissing(error) ? result::kOk : ResultFromWindowsError(error);
}

FileKind GetFileKind(const std::filesystem::path& path) {
  const DWORD attributes = AttributesOf(path);
  if (attributes == INVALID_FILE_ATTRIBUTES) return FileKind::kNone;
  if (IsFolder(attributes)) return FileKind::kFolder;
  return (attributes & FILE_ATTRIBUTE_DEVICE) == 0 ? FileKind::kFile : FileKind::kOther;
}

bool IsNameTaken(const std::filesystem::path& path) {
  return AttributesOf(path) != INVALID_FILE_ATTRIBUTES;
}

FileKind GetOwnKind(const std::filesystem::path& path) {
  const DWORD attributes = AttributesOf(path);
  return attributes == INVALID_FILE_ATTRIBUTES || (attributes & FILE_ATTRIBUTE_REPARSE_POINT) == 0
             ? GetFileKind(path)
             : FileKind::kOther;
}

HRESULT ResolvePath(const std::filesystem::path& path, std::filesystem::path& resolved) {
  std::wstring there = windows::FullSystemPath(path);
  std::wstring rest;
  while (true) {
    const Handle opened =
        windows::Open(there, FILE_READ_ATTRIBUTES, OPEN_EXISTING, FILE_FLAG_BACKUP_SEMANTICS);
    if (opened.IsOpen()) {
      resolved = std::filesystem::path(FinalPath(opened, there)) / rest;
      return result::kOk;
    }
    const DWORD error = ::GetLastError();
    const std::size_t separator = there.find_last_of(L'\\', there.size() - 2);
    if (!IsMissing(error) || separator == std::wstring::npos) return ResultFromWindowsError(error);
    rest.insert(0, there, separator + 1);
    there.resize(separator + 1);
  }
}

HRESULT ListFolder(const std::filesystem::path& folder, std::vector<std::filesystem::path>& paths) {
  paths.clear();
  WIN32_FIND_DATAW found;
  const HANDLE search = ::FindFirstFileW(SystemPath(folder / "*").c_str(), &found);
  if (search == INVALID_HANDLE_VALUE) return ResultFromLastError();
  do {
    const std::wstring_view name = found.cFileName;
    if (name != L"." && name != L"..") paths.push_back(folder / name);
  } while (::FindNextFileW(search, &found) != 0);
  const DWORD error = ::GetLastError();
  ::FindClose(search);
  return error == ERROR_NO_MORE_FILES ? result::kOk : ResultFromWindowsError(error);
}

HRESULT GetFreeBytes(const std::filesystem::path& folder, std::uint64_t& bytes) {
  ULARGE_INTEGER available;
  if (::GetDiskFreeSpaceExW(SystemPath(folder).c_str(), &available, nullptr, nullptr) == 0) {
    return ResultFromLastError();
  }
  bytes = available.QuadPart;
  return result::kOk;
}

}  // namespace oocpc::detail

#endif
