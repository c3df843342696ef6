// Checks of what stands on the command line.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <map>
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
/// Takes a count such as 500000, 800k or 3M and puts the plain number in its place: k, M and G, in
/// either letter case, are thousands, millions and billions. Refuses others, and less than
/// `least`.
CLI::Validator IsCount(std::uint64_t least = 0);
/// Refuses a file name with another ending: a slip, at worst the name of a repository's own file.
/// `endings` are lower case; letter case does not matter.
CLI::Validator EndsIn(const std::vector<std::string>& endings);
/// Refuses what is no number above 0.
CLI::Validator IsAboveZero();
/// Takes one of some words and puts the number of its value in its place; refuses others, and names
/// those that there are. Letter case matters.
template <typename Value>
CLI::Validator IsOneOf(const std::map<std::string, Value>& values) {
  return {[values](std::string& text) {
            if (const auto found = values.find(text); found != values.end()) {
              text = std::to_string(static_cast<int>(found->second));
              return std::string();
            }
            std::string words;
            for (const auto& [word, value] : values) {
              words.append(words.empty() ? "" : ", ").append(word);
            }
            return "\"" + text + "\" is none of " + words;
          },
          ""};
}
/// Refuses what is no number of bytes such as 800K, 512M or 4G.
CLI::Validator IsSize();
/// Refuses what is no time: microseconds since 1970 UTC, a date, or a date and a time of day (UTC).
CLI::Validator IsTime();
/// Such a time in microseconds since 1970 UTC. False when it is none, for instance empty.
bool ParseTime(std::string_view text, std::uint64_t& microseconds);
/// Adds --overwrite, for a file.
CLI::Option* AddOverwriteOption(CLI::App& command, bool& overwrite);
/// Refuses what is no separator: one character, or "tab" or "space".
CLI::Validator IsSeparator();
/// The character of such a separator.
char SeparatorOf(std::string_view text);
/// Adds --memory.
void AddMemoryOption(CLI::App& command, std::string& memory);
/// What --memory asks for in bytes; 0 when it was not given. What is too little becomes the least
/// that is needed, with a note unless `quiet`.
std::uint64_t MemoryToUse(const std::string& memory, bool quiet);
/// The bytes of such a number: units are powers of 1024. False when it is none.
bool ParseSize(std::string_view text, std::uint64_t& bytes);

}  // namespace tarnapp
