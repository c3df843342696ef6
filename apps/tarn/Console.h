// The console that the program was started from: arguments, streams, interrupts.
#pragma once

#include <string>
#include <vector>

namespace tarnapp {

/// The arguments of this process in UTF-8, without the program's name.
std::vector<std::string> GetArguments(int argc, const char* const* argv);

/// Lets standard output take bytes as they are, texts be UTF-8, and a reader that goes away be an
/// error like any other.
void PrepareConsole();

/// Whether standard output is a pipe whose reader is gone, to be asked after a failed write.
bool IsOutputAbandoned();

/// True when standard error is a terminal, on which a line can be rewritten.
bool IsTerminal();

/// Has a function called, perhaps in the middle of any other, when the user asks to stop. When he
/// asks again, the program ends at once.
void CallOnInterrupt(void (*function)());

}  // namespace tarnapp
