// What tests ask of a POSIX system.
#pragma once

#include <stdlib.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <csignal>
#include <cstdio>
#include <filesystem>
#include <iterator>
#include <optional>
#include <string>

namespace oocpctest {

/// A new empty folder; an empty path on failure.
inline std::filesystem::path MakeTemporaryFolder() {
  std::string pattern = (std::filesystem::temp_directory_path() / "oocpc-test-XXXXXX").string();
  if (::mkdtemp(pattern.data()) == nullptr) return {};
  return pattern;
}

/// Null takes the variable away.
inline void SetVariable(const char* name, const char* value) {
  if (value == nullptr) {
    ::unsetenv(name);
  } else {
    ::setenv(name, value, 1);
  }
}

/// Makes a named pipe; false where files are no pipes.
inline bool MakePipe(const std::filesystem::path& path) {
  return ::mkfifo(path.c_str(), 0600) == 0;
}

/// Makes an empty file whose holes take up no room; false when it cannot be made.
inline bool MakeSparse(const std::filesystem::path& path) {
  std::FILE* const file = std::fopen(path.c_str(), "wb");
  return file != nullptr && std::fclose(file) == 0;
}

/// Files that this process has open, where that can be told.
inline std::optional<std::ptrdiff_t> CountOpenFiles() {
  std::error_code error;
  const std::filesystem::directory_iterator open("/proc/self/fd", error);
  if (error) return std::nullopt;
  return std::distance(open, {});
}

/// A folder whose files are in memory; an empty path where there is none.
inline std::filesystem::path FolderInMemory() {
  return ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : "";
}

/// This test program, run once more for one test; killed at the latest when the object is gone.
class OtherProcess {
 public:
  explicit OtherProcess(const std::string& test) : process_(::fork()) {
    if (process_ != 0) return;
    const std::string filter = "--gtest_filter=" + test;
    ::execl("/proc/self/exe", "test", "--gtest_also_run_disabled_tests", filter.c_str(), nullptr);
    ::_exit(127);
  }
  OtherProcess(const OtherProcess&) = delete;
  OtherProcess& operator=(const OtherProcess&) = delete;
  ~OtherProcess() { Kill(); }

  [[nodiscard]] bool IsStarted() const { return process_ > 0; }
  /// Ends it without giving it a chance to tidy up; it is gone on return.
  void Kill() {
    if (process_ <= 0) return;
    ::kill(process_, SIGKILL);
    ::waitpid(process_, nullptr, 0);
    process_ = -1;
  }

 private:
  pid_t process_;
};

/// While it lives, no file of this process grows beyond a number of bytes: what a full disk looks
/// like to a writer.
class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) : handler_(std::signal(SIGXFSZ, SIG_IGN)) {
    ::getrlimit(RLIMIT_FSIZE, &before_);
    const rlimit limit{bytes, before_.rlim_max};
    bound_ = ::setrlimit(RLIMIT_FSIZE, &limit) == 0;
  }
  FileSizeLimit(const FileSizeLimit&) = delete;
  FileSizeLimit& operator=(const FileSizeLimit&) = delete;
  ~FileSizeLimit() {
    ::setrlimit(RLIMIT_FSIZE, &before_);
    std::signal(SIGXFSZ, handler_);
  }
  /// False where the system has no such limit.
  [[nodiscard]] bool IsBound() const { return bound_; }

 private:
  void (*handler_)(int);
  rlimit before_{};
  bool bound_ = false;
};

/// While it lives, the process has no right to override permissions, also where the tests run as
/// root. Make what the test needs before; only what everyone may reach is reachable then.
class WithoutPrivileges {
 public:
  WithoutPrivileges() {
    if (!wasRoot_) return;
    constexpr uid_t kNobody = 65534;
    bound_ = ::seteuid(kNobody) == 0;
  }
  WithoutPrivileges(const WithoutPrivileges&) = delete;
  WithoutPrivileges& operator=(const WithoutPrivileges&) = delete;
  ~WithoutPrivileges() {
    if (wasRoot_ && ::seteuid(0) != 0) ::_exit(99);
  }

  /// False where the system does not let root step down; permissions can't be tested then.
  [[nodiscard]] bool IsBound() const { return bound_; }

 private:
  bool wasRoot_ = ::geteuid() == 0;
  bool bound_ = true;
};

}  // namespace oocpctest
