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

/// Reads a sign and up to 18 digits, as most whole numbers are written; false for anything else.
[[nodiscard]] inline bool ParseShortInteger(std::string_view word, std::int64_t& value) {
  const bool isNegative = !word.empty() && word.front() == '-';
  if (isNegative) word.remove_prefix(1);
  if (word.empty() || word.size() > 18) return false;
  std::int64_t digits = 0;
  for (const char letter : word) {
    const auto digit = static_cast<unsigned>(letter - '0');
    if (digit > 9) return false;
    digits = 10 * digits + digit;
  }
  value = isNegative ? -digits : digits;
  return true;
}

/// Reads a word as a 64-bit float; numbers too large or too small for one become infinite or zero.
[[nodiscard]] bool ParseReal(std::string_view word, double& value);

/// Reads a word as a 32-bit float; false also for what is out of range of one.
[[nodiscard]] bool ParseFloat(std::string_view word, float& value);

/// Reads a word as a value of a type, which has to hold it: "7" and "7.0" are integers, "7.5" is
/// none. Writes the value, little-endian. Not for strings.
[[nodiscard]] bool ParseValue(std::string_view word, oocpc::ValueType type, std::uint8_t* out);

/// Writes the value of a type that a number is; false when the type cannot hold it.
[[nodiscard]] bool StoreNumber(double number, oocpc::ValueType type, std::uint8_t* out);

/// True for a word that ParseReal reads.
[[nodiscard]] bool IsReal(std::string_view word);

/// Digits behind the point of a word that is a decimal number; 0 for one with an exponent.
[[nodiscard]] int DecimalsOfWord(std::string_view word);

/// True for the blanks that separate words.
[[nodiscard]] inline bool IsBlank(char letter) {
  // Most letters are none, which one comparison tells.
  return static_cast<unsigned char>(letter) <= ' ' &&
         (letter == ' ' || letter == '\t' || letter == '\r' || letter == '\v' || letter == '\f');
}

inline constexpr std::size_t kAllWords = ~std::size_t{0};

/// The words of a line between blanks, no more than the first `most`.
void SplitWords(std::string_view line, std::vector<std::string_view>& words,
                std::size_t most = kAllWords);

/// The words of a line between separators, less blanks and quotation marks around them; between
/// blanks for the separator 0. Within quotation marks, two of them stay two: see Unquoted.
void SplitWords(std::string_view line, char separator, std::vector<std::string_view>& words,
                std::size_t most = kAllWords);

/// What a word between separators means: of two quotation marks, one.
[[nodiscard]] std::string Unquoted(std::string_view word);

/// The line that begins at `at`, without its end; `at` moves behind it. A line ends with LF, CR LF
/// or the text.
[[nodiscard]] std::string_view TakeLine(std::string_view text, std::size_t& at);

/// A word for a message: short, and without what no terminal should see.
[[nodiscard]] std::string Quoted(std::string_view word);

}  // namespace tarnhost
