// What the program was started with, as paths and as text in UTF-8, whatever letters it has.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#if defined(_WIN32)
#include <windows.h>
// After windows.h.
#include <shellapi.h>
#endif

/// A file that the arguments name.
inline std::filesystem::path PathOf(const std::string& utf8) {
  return std::u8string(utf8.begin(), utf8.end());
}

#if defined(_WIN32)
/// Windows gives `main` arguments in which letters that its code page does not have are lost. They
/// are taken from the command line instead.
inline std::vector<std::string> ArgumentsOf(int /*argc*/, char** /*argv*/) {
  int count = 0;
  wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  std::vector<std::string> arguments;
  for (int i = 0; wide != nullptr && i < count; ++i) {
    const std::u8string utf8 = std::filesystem::path(wide[i]).u8string();
    arguments.emplace_back(utf8.begin(), utf8.end());
  }
  ::LocalFree(wide);
  return arguments;
}
#else
inline std::vector<std::string> ArgumentsOf(int argc, char** argv) { return {argv, argv + argc}; }
#endif
