// What the folder store asks of the operating system; one implementation per system.
#pragma once

#include <OOCPointCloud/Types.h>

#include <filesystem>
#include <span>

namespace oocpc::detail {

/// An open file that is written at its end. Moved, not copied; closes itself.
class AppendFile {
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
  void Close();

  static constexpr std::intptr_t kClosed = -1;
  std::intptr_t handle_ = kClosed;
};

/// Bytes in a file, 0 when there is none.
[[nodiscard]] HRESULT GetFileLength(const std::filesystem::path& path, std::uint64_t& length);
/// kAlreadyExists when something of that name is there.
[[nodiscard]] HRESULT MakeFolder(const std::filesystem::path& folder);
/// kNotARepository when it is not there or not a folder.
[[nodiscard]] HRESULT CheckFolder(const std::filesystem::path& folder);
/// Returns when the names in a folder are on stable storage.
[[nodiscard]] HRESULT SyncFolder(const std::filesystem::path& folder);
/// Puts `from` in the place of `to` in one step.
[[nodiscard]] HRESULT ReplaceFile(const std::filesystem::path& from,
                                  const std::filesystem::path& to);

}  // namespace oocpc::detail
