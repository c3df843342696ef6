// A shared library that is loaded while the program runs: dlopen, or LoadLibrary on Windows.
#pragma once

#include <cstddef>
#include <cstring>
#include <filesystem>

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#endif

class Library {
 public:
#if defined(_WIN32)
  explicit Library(const std::filesystem::path& file) : handle_(::LoadLibraryW(file.c_str())) {}
  ~Library() {
    if (handle_ != nullptr) ::FreeLibrary(handle_);
  }
#else
  explicit Library(const std::filesystem::path& file)
      : handle_(::dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL)) {}
  ~Library() {
    if (handle_ != nullptr) ::dlclose(handle_);
  }
#endif
  Library(const Library&) = delete;
  Library& operator=(const Library&) = delete;

  [[nodiscard]] bool IsLoaded() const { return handle_ != nullptr; }

  /// Whether the library exports this name, as the compiler writes it.
  [[nodiscard]] bool Has(const char* exportedName) const {
    return Address(exportedName) != nullptr;
  }

  /// A function or a member function by its exported name; null when there is none.
  ///
  /// A pointer to a member function that is not virtual holds the function's address and a zero:
  /// so do the ABIs of GCC and Clang on both systems.
  template <typename Function>
  [[nodiscard]] Function Find(const char* exportedName) const {
    void* const address = Address(exportedName);
    Function function{};
    static_assert(sizeof(function) >= sizeof(address));
    if (address != nullptr) std::memcpy(&function, &address, sizeof(address));
    return function;
  }

 private:
#if defined(_WIN32)
  [[nodiscard]] void* Address(const char* name) const {
    void* address = nullptr;
    const FARPROC found = ::GetProcAddress(handle_, name);
    std::memcpy(&address, &found, sizeof(address));
    return address;
  }
  HMODULE handle_;
#else
  [[nodiscard]] void* Address(const char* name) const { return ::dlsym(handle_, name); }
  void* handle_;
#endif
};
