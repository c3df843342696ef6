// Numbers and words in lines of text.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <charconv>
#include <cstdint>
#include <string>
#include <string_view>
#include <system_error>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// Reads a whole word as a number, a leading plus sign allowed. False for anything else.
template <typename T>
[[nodiscard]] bool ParseNumber(std::string_view word, T& value) {
  if (word.size() > 1 && word.front() == '+' && word[1] != '-') word.remove_prefix(1);
  const char* const end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, value);
  return error == std::errc() && stop == end;
}

/// Reads a word as a 64-bit float; numbers too large or too small for one become infinite or zero.
[[nodiscard]] bool ParseReal(std::string_view word, double& value);

/// Reads a word as a value of a type, which has to hold it: "7" and "7.0" are integers, "7.5" is
/// none. Writes the value, little-endian. Not for strings.
[[nodiscard]] bool ParseValue(std::string_view word, oocpc::ValueType type, std::uint8_t* out);

/// Writes the value of a type that a number is; false when the type cannot hold it.
[[nodiscard]] bool StoreNumber(double number, oocpc::ValueType type, std::uint8_t* out);

/// Digits behind the point of a word that is a decimal number; 0 for one with an exponent.
[[nodiscard]] int DecimalsOfWord(std::string_view word);

/// True for the blanks that separate words.
[[nodiscard]] inline bool IsBlank(char letter) {
  return letter == ' ' || letter == '\t' || letter == '\r' || letter == '\v' || letter == '\f';
}

/// The words of a line between blanks.
void SplitWords(std::string_view line, std::vector<std::string_view>& words);

/// The words of a line between separators, less blanks and quotation marks around them; between
/// blanks for the separator 0.
void SplitWords(std::string_view line, char separator, std::vector<std::string_view>& words);

/// The line that begins at `at`, without its end; `at` moves behind it. A line ends with LF, CR LF
/// or the text.
[[nodiscard]] std::string_view TakeLine(std::string_view text, std::size_t& at);

/// A word for a message: short, and without what no terminal should see.
[[nodiscard]] std::string Quoted(std::string_view word);

}  // namespace tarnhost
