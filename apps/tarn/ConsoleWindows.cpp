// The console on Windows.
#if defined(_WIN32)

#include <fcntl.h>
#include <io.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <filesystem>

#include "apps/tarn/Console.h"
// The macros of the system's header would rename what is declared after it.
#include "OOCPointCloud/support/WindowsApi.h"
// Needs the header above.
#include <shellapi.h>

namespace tarnapp {

namespace {

std::atomic<void (*)()> onInterrupt{nullptr};

// Called on a thread of its own. What it does not handle ends the process.
BOOL WINAPI HandleControl(DWORD event) {
  if (event != CTRL_C_EVENT && event != CTRL_BREAK_EVENT) return FALSE;
  void (*const function)() = onInterrupt.exchange(nullptr);
  if (function == nullptr) return FALSE;
  function();
  return TRUE;
}

}  // namespace

// The narrow arguments are in the code page of the system, which lacks most of the world's letters.
std::vector<std::string> GetArguments(int argc, const char* const* argv) {
  int count = 0;
  wchar_t** const wide = ::CommandLineToArgvW(::GetCommandLineW(), &count);
  if (wide == nullptr) return {argv + std::min(argc, 1), argv + argc};
  std::vector<std::string> arguments;
  for (int i = 1; i < count; ++i) {
    const std::u8string text = std::filesystem::path(wide[i]).u8string();
    arguments.emplace_back(text.begin(), text.end());
  }
  ::LocalFree(wide);
  return arguments;
}

void PrepareConsole() {
  ::_setmode(::_fileno(stdout), _O_BINARY);
  ::_setmode(::_fileno(stderr), _O_BINARY);
  ::SetConsoleOutputCP(CP_UTF8);
  const HANDLE console = ::GetStdHandle(STD_ERROR_HANDLE);
  DWORD mode = 0;
  // Lines are rewritten with escape sequences.
  if (::GetConsoleMode(console, &mode) != 0) {
    ::SetConsoleMode(console, mode | ENABLE_VIRTUAL_TERMINAL_PROCESSING);
  }
}

// A pipe is never full: nothing else than that can be wrong with it.
bool IsOutputAbandoned() {
  return ::GetFileType(::GetStdHandle(STD_OUTPUT_HANDLE)) == FILE_TYPE_PIPE;
}

bool IsTerminal() { return ::_isatty(::_fileno(stderr)) != 0; }

void CallOnInterrupt(void (*function)()) {
  onInterrupt = function;
  ::SetConsoleCtrlHandler(HandleControl, TRUE);
}

}  // namespace tarnapp

#endif
