// Shared libraries that a test loads itself, and what they could leave in this process.
#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <ostream>
#include <set>
#include <string>
#include <vector>

#if defined(_WIN32)
// The macros of the system's header would rename what is declared after it.
#include "OOCPointCloud/support/WindowsApi.h"
// Needs the header above.
#include <tlhelp32.h>
#else
#include <dlfcn.h>
#include <pthread.h>
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

/// Handles are multiples of four, and low ones are given away first.
inline std::size_t CountHandles() {
  std::size_t count = 0;
  DWORD ignored = 0;
  for (std::uintptr_t value = 4; value < 8192; value += 4) {
    if (::GetHandleInformation(reinterpret_cast<HANDLE>(value), &ignored) != 0) ++count;
  }
  return count;
}

/// Of thread-local storage, and of what the system calls when a thread ends.
inline std::size_t CountFreeThreadSlots() {
  std::vector<DWORD> slots;
  for (DWORD slot = ::TlsAlloc(); slot != TLS_OUT_OF_INDEXES; slot = ::TlsAlloc()) {
    slots.push_back(slot);
  }
  for (const DWORD slot : slots) ::TlsFree(slot);
  std::size_t count = slots.size();
  slots.clear();
  for (DWORD slot = ::FlsAlloc(nullptr); slot != FLS_OUT_OF_INDEXES; slot = ::FlsAlloc(nullptr)) {
    slots.push_back(slot);
  }
  for (const DWORD slot : slots) ::FlsFree(slot);
  return count + slots.size();
}

/// Of files, modules included.
inline std::size_t CountMappings() {
  std::size_t count = 0;
  MEMORY_BASIC_INFORMATION region;
  const char* at = nullptr;
  while (::VirtualQuery(at, &region, sizeof(region)) != 0) {
    const bool isFirst = region.BaseAddress == region.AllocationBase;
    if (isFirst && (region.Type == MEM_MAPPED || region.Type == MEM_IMAGE)) ++count;
    at = static_cast<const char*>(region.BaseAddress) + region.RegionSize;
  }
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

inline std::size_t CountHandles() {
  const std::filesystem::directory_iterator files("/proc/self/fd");
  return static_cast<std::size_t>(std::distance(files, {}));
}

/// Of thread-local storage.
inline std::size_t CountFreeThreadSlots() {
  std::vector<pthread_key_t> slots;
  pthread_key_t slot{};
  while (::pthread_key_create(&slot, nullptr) == 0) slots.push_back(slot);
  for (const pthread_key_t taken : slots) ::pthread_key_delete(taken);
  return slots.size();
}

/// Of files, modules included.
inline std::size_t CountMappings() {
  std::ifstream maps("/proc/self/maps");
  std::set<std::string> files;
  for (std::string line; std::getline(maps, line);) {
    const std::size_t name = line.find('/');
    if (name != std::string::npos) files.insert(line.substr(name));
  }
  return files.size();
}

#endif

/// What a library could leave behind in a process.
struct ProcessState {
  std::size_t threads = CountThreads();
  std::size_t handles = CountHandles();
  std::size_t freeThreadSlots = CountFreeThreadSlots();
  std::size_t mappings = CountMappings();

  bool operator==(const ProcessState&) const = default;
};

inline std::ostream& operator<<(std::ostream& out, const ProcessState& state) {
  return out << state.threads << " threads, " << state.handles << " handles, "
             << state.freeThreadSlots << " free slots of threads, " << state.mappings
             << " mappings";
}

}  // namespace oocpctest
