// What all files that call Windows about files share: long paths, open handles, errors.
#pragma once

#if defined(_WIN32)

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <utility>

namespace oocpc::windows {

/// The path as the system takes it, whatever its length: one that is too long for the old limit of
/// 260 characters is made absolute and gets the prefix that lifts it.
[[nodiscard]] OOCPOINTCLOUD_API std::wstring SystemPath(const std::filesystem::path& path);

/// The same, absolute in any case.
[[nodiscard]] OOCPOINTCLOUD_API std::wstring FullSystemPath(const std::filesystem::path& path);

/// kNoSpace, kAccessDenied, kOutOfMemory, or kIoError for everything that has no code of its own;
/// of GetLastError().
[[nodiscard]] OOCPOINTCLOUD_API HRESULT ResultFromLastError();
[[nodiscard]] OOCPOINTCLOUD_API HRESULT ResultFromWindowsError(std::uint32_t error);
/// True of the errors that say that a file, or a folder on the way to it, is not there.
[[nodiscard]] OOCPOINTCLOUD_API bool IsMissing(std::uint32_t error);

/// An open handle of the system. Moved, not copied; closes itself.
class OOCPOINTCLOUD_API Handle {
 public:
  Handle() = default;
  explicit Handle(void* handle) : handle_(handle) {}
  Handle(Handle&& other) noexcept : handle_(std::exchange(other.handle_, nullptr)) {}
  Handle& operator=(Handle&& other) noexcept {
    std::swap(handle_, other.handle_);
    return *this;
  }
  Handle(const Handle&) = delete;
  Handle& operator=(const Handle&) = delete;
  ~Handle();

  /// Both values that the system's functions answer in place of a handle count as none.
  [[nodiscard]] bool IsOpen() const;
  [[nodiscard]] void* Get() const { return handle_; }
  /// Leaves it to the caller to close the handle.
  void Release() { handle_ = nullptr; }

 private:
  void* handle_ = nullptr;
};

/// Opens what is there under the path, or makes it, by the arguments of CreateFileW. Others may
/// read, write, rename and remove it meanwhile, as on other systems.
[[nodiscard]] OOCPOINTCLOUD_API Handle Open(const std::filesystem::path& path, std::uint32_t access,
                                            std::uint32_t disposition, std::uint32_t flags);

}  // namespace oocpc::windows

#endif
