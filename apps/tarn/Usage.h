// What the program says of a command line that it cannot take.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tarnapp {

/// Wrong usage in the form of every other failure, with the help that answers it.
std::string UsageMessage(const CLI::App* app, const CLI::Error& error);

/// Whether the first word is a command or an option. Else says which command it may have meant.
bool KnowsCommand(const CLI::App& app, const std::string& word);

}  // namespace tarnapp
