// What all files that call Windows about files share: long paths, open handles, errors.
#include "OOCPointCloud/support/WindowsFiles.h"

#if defined(_WIN32)

#include <OOCPointCloud/ResultCodes.h>

#include "OOCPointCloud/support/WindowsApi.h"

namespace oocpc::windows {
namespace {

// A folder's path must leave room for a file name of the old form (8.3) below it.
constexpr std::size_t kLongestPlainPath = MAX_PATH - 13;

// The compiler's headers do not know it.
constexpr std::uint32_t kDiskQuotaExceeded = 1295;

// Absolute, with the system's separators and without "." and "..".
std::wstring FullPath(const std::wstring& path) {
  std::wstring full(path.size() + MAX_PATH, L'\0');
  DWORD length =
      ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  if (length > full.size()) {
    full.resize(length);
    length =
        ::GetFullPathNameW(path.c_str(), static_cast<DWORD>(full.size()), full.data(), nullptr);
  }
  if (length == 0 || length > full.size()) return path;
  full.resize(length);
  return full;
}

}  // namespace

std::wstring SystemPath(const std::filesystem::path& path) {
  const std::wstring full = FullSystemPath(path);
  return full.starts_with(L"\\\\?\\") ? full : path.native();
}

std::wstring FullSystemPath(const std::filesystem::path& path) {
  const std::wstring& plain = path.native();
  if (plain.starts_with(L"\\\\?\\") || plain.starts_with(L"\\\\.\\")) return plain;
  const std::wstring full = FullPath(plain);
  if (full.size() < kLongestPlainPath) return full;
  if (full.starts_with(L"\\\\")) return L"\\\\?\\UNC" + full.substr(1);
  return L"\\\\?\\" + full;
}

HRESULT ResultFromLastError() { return ResultFromWindowsError(::GetLastError()); }

HRESULT ResultFromWindowsError(std::uint32_t error) {
  switch (error) {
    case ERROR_DISK_FULL:
    case ERROR_HANDLE_DISK_FULL:
    case kDiskQuotaExceeded:
    case ERROR_FILE_TOO_LARGE:
      return result::kNoSpace;
    case ERROR_ACCESS_DENIED:
    case ERROR_WRITE_PROTECT:
    case ERROR_SHARING_VIOLATION:  // another program has the file open and does not share it
    case ERROR_LOCK_VIOLATION:
    case ERROR_USER_MAPPED_FILE:  // a reader's mapping keeps the file as it is
      return result::kAccessDenied;
    case ERROR_NOT_ENOUGH_MEMORY:
    case ERROR_OUTOFMEMORY:
    case ERROR_COMMITMENT_LIMIT:
      return result::kOutOfMemory;
    default:
      return result::kIoError;
  }
}

bool IsMissing(std::uint32_t error) {
  return error == ERROR_FILE_NOT_FOUND || error == ERROR_PATH_NOT_FOUND ||
         error == ERROR_INVALID_NAME || error == ERROR_BAD_NETPATH || error == ERROR_BAD_NET_NAME ||
         error == ERROR_INVALID_DRIVE || error == ERROR_NOT_READY;
}

Handle::~Handle() {
  if (IsOpen()) ::CloseHandle(handle_);
}

bool Handle::IsOpen() const { return handle_ != nullptr && handle_ != INVALID_HANDLE_VALUE; }

Handle Open(const std::filesystem::path& path, std::uint32_t access, std::uint32_t disposition,
            std::uint32_t flags) {
  constexpr DWORD kShareAll = FILE_SHARE_READ | FILE_SHARE_WRITE | FILE_SHARE_DELETE;
  return Handle(::CreateFileW(SystemPath(path).c_str(), access, kShareAll, nullptr, disposition,
                              flags, nullptr));
}

}  // namespace oocpc::windows

#endif
