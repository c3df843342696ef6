// Shared libraries that a test loads itself, and the threads of this process.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iterator>

#if defined(_WIN32)
// The macros of the system's header would rename what is declared after it.
#include "OOCPointCloud/support/WindowsApi.h"
// Needs the header above.
#include <tlhelp32.h>
#else
#include <dlfcn.h>
#endif

namespace oocpctest {

#if defined(_WIN32)

class LoadedModule {
 public:
  explicit LoadedModule(const char* file) : handle_(::LoadLibraryA(file)) {}
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;
  ~LoadedModule() {
    if (IsLoaded()) ::FreeLibrary(handle_);
  }
  [[nodiscard]] bool IsLoaded() const { return handle_ != nullptr; }
  [[nodiscard]] void* Find(const char* name) const {
    return reinterpret_cast<void*>(::GetProcAddress(handle_, name));
  }

 private:
  HMODULE handle_;
};

inline bool IsLoaded(const char* file) { return ::GetModuleHandleA(file) != nullptr; }

inline std::size_t CountThreads() {
  const HANDLE snapshot = ::CreateToolhelp32Snapshot(TH32CS_SNAPTHREAD, 0);
  THREADENTRY32 entry{};
  entry.dwSize = sizeof(entry);
  std::size_t count = 0;
  for (BOOL more = ::Thread32First(snapshot, &entry); more != 0;
       more = ::Thread32Next(snapshot, &entry)) {
    if (entry.th32OwnerProcessID == ::GetCurrentProcessId()) ++count;
  }
  ::CloseHandle(snapshot);
  return count;
}

#else

class LoadedModule {
 public:
  explicit LoadedModule(const char* file) : handle_(::dlopen(file, RTLD_NOW | RTLD_LOCAL)) {}
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;
  ~LoadedModule() {
    if (IsLoaded()) ::dlclose(handle_);
  }
  [[nodiscard]] bool IsLoaded() const { return handle_ != nullptr; }
  [[nodiscard]] void* Find(const char* name) const { return ::dlsym(handle_, name); }

 private:
  void* handle_;
};

inline bool IsLoaded(const char* file) {
  void* const handle = ::dlopen(file, RTLD_NOW | RTLD_NOLOAD);
  if (handle != nullptr) ::dlclose(handle);
  return handle != nullptr;
}

inline std::size_t CountThreads() {
  const std::filesystem::directory_iterator threads("/proc/self/task");
  return static_cast<std::size_t>(std::distance(threads, {}));
}

#endif

}  // namespace oocpctest
