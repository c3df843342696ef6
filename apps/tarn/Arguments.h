// Checks of what stands on the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnapp {

/// Refuses an empty text.
CLI::Validator IsNotEmpty();
/// Refuses an empty name on the command line.
CLI::Validator IsNamed();
/// Refuses what is no natural number of 64 bits, a sign included.
CLI::Validator IsWholeNumber();
/// Refuses a file name with another ending: a slip, at worst the name of a repository's own file.
/// `endings` are lower case; letter case does not matter.
CLI::Validator EndsIn(const std::vector<std::string>& endings);
/// Refuses what is no number of bytes such as 800K, 512M or 4G.
CLI::Validator IsSize();
/// The bytes of such a number: units are powers of 1024. False when it is none.
bool ParseSize(std::string_view text, std::uint64_t& bytes);

}  // namespace tarnapp
