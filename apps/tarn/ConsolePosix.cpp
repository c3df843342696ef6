// The console on POSIX systems.
#if !defined(_WIN32)

#include <unistd.h>

#include <algorithm>
#include <csignal>

#include "apps/tarn/Console.h"

namespace tarnapp {

namespace {

void (*onInterrupt)() = nullptr;

extern "C" void HandleInterrupt(int /*signal*/) { onInterrupt(); }

}  // namespace

std::vector<std::string> GetArguments(int argc, const char* const* argv) {
  return {argv + std::min(argc, 1), argv + argc};
}

void PrepareConsole() { std::signal(SIGPIPE, SIG_IGN); }

bool IsTerminal() { return ::isatty(STDERR_FILENO) != 0; }

void CallOnInterrupt(void (*function)()) {
  onInterrupt = function;
  struct sigaction action {};
  action.sa_handler = HandleInterrupt;
  action.sa_flags = static_cast<int>(SA_RESETHAND);
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

}  // namespace tarnapp

#endif
