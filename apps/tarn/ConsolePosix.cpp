// The console on POSIX systems.
#if !defined(_WIN32)

#include <poll.h>
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

// Asked of the system, as the error of the write that failed may be long past.
bool IsOutputAbandoned() {
  pollfd output{STDOUT_FILENO, POLLOUT, 0};
  return ::poll(&output, 1, 0) == 1 && (output.revents & (POLLERR | POLLHUP)) != 0;
}

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
