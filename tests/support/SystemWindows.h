// What tests ask of Windows. The class that tests permissions finds itself not bound: what POSIX
// permissions say means nothing there.
#pragma once

#include <process.h>
#include <stdlib.h>

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <optional>
#include <string>

// The macros of the system's header would rename what is declared after it.
#include "OOCPointCloud/support/WindowsApi.h"
// Needs the header above.
#include <winioctl.h>

namespace oocpctest {

/// A new empty folder; an empty path on failure.
inline std::filesystem::path MakeTemporaryFolder() {
  static int made = 0;
  const std::filesystem::path parent = std::filesystem::temp_directory_path();
  while (made < 1'000'000) {
    const std::filesystem::path folder =
        parent / ("oocpc-test-" + std::to_string(::_getpid()) + "-" + std::to_string(made++));
    std::error_code error;
    if (std::filesystem::create_directory(folder, error)) return folder;
    if (error) return {};
  }
  return {};
}

/// Null takes the variable away.
inline void SetVariable(const char* name, const char* value) {
  ::_putenv_s(name, value == nullptr ? "" : value);
}

/// Makes a named pipe; false where files are no pipes.
inline bool MakePipe(const std::filesystem::path& /*path*/) { return false; }

/// Makes an empty file whose holes take up no room; false when it cannot be made.
inline bool MakeSparse(const std::filesystem::path& path) {
  const HANDLE file =
      ::CreateFileW(path.c_str(), GENERIC_WRITE, 0, nullptr, CREATE_NEW, 0, nullptr);
  if (file == INVALID_HANDLE_VALUE) return false;
  DWORD ignored = 0;
  ::DeviceIoControl(file, FSCTL_SET_SPARSE, nullptr, 0, nullptr, 0, &ignored, nullptr);
  return ::CloseHandle(file) != 0;
}

/// Files that this process has open, where that can be told.
inline std::optional<std::ptrdiff_t> CountOpenFiles() { return std::nullopt; }

/// A folder whose files are in memory; an empty path where there is none.
inline std::filesystem::path FolderInMemory() { return {}; }

/// This test program, run once more for one test; killed at the latest when the object is gone.
class OtherProcess {
 public:
  explicit OtherProcess(const std::string& test) {
    wchar_t program[4096];
    ::GetModuleFileNameW(nullptr, program, 4096);
    std::wstring line = L"test --gtest_also_run_disabled_tests --gtest_filter=";
    line.append(test.begin(), test.end());
    STARTUPINFOW start{};
    start.cb = sizeof(start);
    PROCESS_INFORMATION made{};
    if (::CreateProcessW(program, line.data(), nullptr, nullptr, FALSE, 0, nullptr, nullptr, &start,
                         &made) == 0) {
      return;
    }
    ::CloseHandle(made.hThread);
    process_ = made.hProcess;
  }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;
  ~OtherProcess() { Kill(); }

  [[nodiscard]] bool IsStarted() const { return process_ != nullptr; }
  /// Ends it without giving it a chance to tidy up; it is gone on return.
  void Kill() {
    if (process_ == nullptr) return;
    ::TerminateProcess(process_, 1);
    ::WaitForSingleObject(process_, INFINITE);
    ::CloseHandle(process_);
    process_ = nullptr;
  }

 private:
  void* process_ = nullptr;
};

class FileSizeLimit {
 public:
  explicit FileSizeLimit(std::uint64_t /*bytes*/) {}
  /// False where the system has no such limit.
  [[nodiscard]] bool IsBound() const { return false; }
};

class WithoutPrivileges {
 public:
  WithoutPrivileges() {}
  [[nodiscard]] bool IsBound() const { return false; }
};

}  // namespace oocpctest
