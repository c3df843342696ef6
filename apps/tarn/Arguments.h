// Checks of what stands on the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <string>

namespace tarnapp {

/// Refuses an empty name on the command line.
CLI::Validator IsNamed();
/// Refuses what is no natural number of 64 bits, a sign included.
CLI::Validator IsWholeNumber();
/// Refuses a file name with another ending: a slip, at worst the name of a repository's own file.
/// `ending` is lower case; letter case does not matter.
CLI::Validator EndsIn(const std::string& ending);

}  // namespace tarnapp
