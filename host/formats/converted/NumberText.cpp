// Numbers and words in lines of text.
#include "host/formats/converted/NumberText.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

namespace tarnhost {

using oocpc::ValueType;

namespace {

template <typename T>
void Put(T value, std::uint8_t* out) {
  std::memcpy(out, &value, sizeof(T));
}

template <typename T>
bool StoreInteger(double number, std::uint8_t* out) {
  // Both bounds are doubles: the lower one exactly, the upper one as the number above it.
  const auto least = static_cast<double>(std::numeric_limits<T>::min());
  const double above = std::ldexp(1.0, std::numeric_limits<T>::digits);
  if (!(number >= least && number < above) || number != std::trunc(number)) return false;
  Put(static_cast<T>(number), out);
  return true;
}

template <typename T>
bool ParseInteger(std::string_view word, std::uint8_t* out) {
  std::int64_t small = 0;
  if (ParseShortInteger(word, small) && std::in_range<T>(small)) {
    Put(static_cast<T>(small), out);
    return true;
  }
  T value = 0;
  if (ParseNumber(word, value)) {
    Put(value, out);
    return true;
  }
  double number = 0;
  return ParseReal(word, number) && StoreInteger<T>(number, out);
}

/// Reads what most numbers are, a sign, digits and a point; false for anything else and for more
/// digits than are read exactly so: the digits as a whole number and the power of ten are both
/// numbers of the type, and dividing them rounds correctly.
template <typename T>
bool ParsePlain(std::string_view word, T& value) {
  constexpr std::uint64_t kMostDigits = std::uint64_t{1} << std::numeric_limits<T>::digits;
  constexpr std::array<T, 11> kPowers{1e0, 1e1, 1e2, 1e3, 1e4, 1e5, 1e6, 1e7, 1e8, 1e9, 1e10};
  const bool isNegative = !word.empty() && word.front() == '-';
  if (isNegative) word.remove_prefix(1);
  std::uint64_t digits = 0;
  std::size_t count = 0;
  std::size_t point = word.size();
  for (std::size_t i = 0; i < word.size(); ++i) {
    const auto digit = static_cast<unsigned>(word[i] - '0');
    if (digit <= 9) {
      digits = 10 * digits + digit;
      ++count;
    } else if (word[i] == '.' && point == word.size()) {
      point = i;
    } else {
      return false;
    }
  }
  const std::size_t decimals = point == word.size() ? 0 : word.size() - point - 1;
  if (count == 0 || count > 18 || digits > kMostDigits || decimals >= kPowers.size()) return false;
  const T number = static_cast<T>(digits) / kPowers[decimals];
  value = isNegative ? -number : number;
  return true;
}

}  // namespace

bool ParseReal(std::string_view word, double& value) {
  if (ParsePlain(word, value)) return true;
  if (word.size() > 1 && word.front() == '+' && word[1] != '-') word.remove_prefix(1);
  const char* const end = word.data() + word.size();
  const auto [stop, error] = std::from_chars(word.data(), end, value);
  if (stop != end || error == std::errc::invalid_argument) return false;
  if (error == std::errc()) return true;
  // Out of range: which way, the sign of the exponent tells.
  const auto exponent = word.find_first_of("eE");
  const bool tiny = exponent == std::string_view::npos
                        ? word.find_first_of("123456789") > word.find('.')
                        : word.substr(exponent + 1).starts_with('-');
  value = tiny ? 0 : std::numeric_limits<double>::infinity();
  if (word.front() == '-') value = -value;
  return true;
}

bool ParseFloat(std::string_view word, float& value) {
  return ParsePlain(word, value) || ParseNumber(word, value);
}

bool IsReal(std::string_view word) {
  std::size_t at = !word.empty() && (word[0] == '-' || word[0] == '+') ? 1 : 0;
  std::size_t digits = 0;
  std::size_t points = 0;
  for (; at < word.size(); ++at) {
    const bool isDigit = word[at] >= '0' && word[at] <= '9';
    if (!isDigit && word[at] != '.') break;
    ++(isDigit ? digits : points);
  }
  if (at == word.size()) return digits > 0 && points <= 1;
  double value = 0;
  return ParseReal(word, value);
}

bool ParseValue(std::string_view word, ValueType type, std::uint8_t* out) {
  switch (type) {
    case ValueType::kUInt8:
      return ParseInteger<std::uint8_t>(word, out);
    case ValueType::kInt8:
      return ParseInteger<std::int8_t>(word, out);
    case ValueType::kUInt16:
      return ParseInteger<std::uint16_t>(word, out);
    case ValueType::kInt16:
      return ParseInteger<std::int16_t>(word, out);
    case ValueType::kUInt32:
      return ParseInteger<std::uint32_t>(word, out);
    case ValueType::kInt32:
      return ParseInteger<std::int32_t>(word, out);
    case ValueType::kUInt64:
      return ParseInteger<std::uint64_t>(word, out);
    case ValueType::kInt64:
      return ParseInteger<std::int64_t>(word, out);
    case ValueType::kFloat: {
      float value = 0;
      double number = 0;
      if (ParseFloat(word, value)) {
        Put(value, out);
      } else if (ParseReal(word, number)) {
        Put(static_cast<float>(number), out);  // out of the range of floats
      } else {
        return false;
      }
      return true;
    }
    case ValueType::kDouble: {
      double value = 0;
      if (!ParseReal(word, value)) return false;
      Put(value, out);
      return true;
    }
    case ValueType::kString:
      break;
  }
  return false;
}

bool StoreNumber(double number, ValueType type, std::uint8_t* out) {
  switch (type) {
    case ValueType::kUInt8:
      return StoreInteger<std::uint8_t>(number, out);
    case ValueType::kInt8:
      return StoreInteger<std::int8_t>(number, out);
    case ValueType::kUInt16:
      return StoreInteger<std::uint16_t>(number, out);
    case ValueType::kInt16:
      return StoreInteger<std::int16_t>(number, out);
    case ValueType::kUInt32:
      return StoreInteger<std::uint32_t>(number, out);
    case ValueType::kInt32:
      return StoreInteger<std::int32_t>(number, out);
    case ValueType::kUInt64:
      return StoreInteger<std::uint64_t>(number, out);
    case ValueType::kInt64:
      return StoreInteger<std::int64_t>(number, out);
    case ValueType::kFloat:
      Put(static_cast<float>(number), out);
      return true;
    case ValueType::kDouble:
      Put(number, out);
      return true;
    case ValueType::kString:
      break;
  }
  return false;
}

int DecimalsOfWord(std::string_view word) {
  const auto point = word.find('.');
  if (point == std::string_view::npos || word.find_first_of("eE") != std::string_view::npos) {
    return 0;
  }
  return static_cast<int>(std::min<std::size_t>(word.size() - point - 1, 1000));
}

void SplitWords(std::string_view line, std::vector<std::string_view>& words, std::size_t most) {
  words.clear();
  for (std::size_t at = 0; at < line.size() && words.size() < most;) {
    while (at < line.size() && IsBlank(line[at])) ++at;
    const std::size_t begin = at;
    while (at < line.size() && !IsBlank(line[at])) ++at;
    if (at > begin) words.push_back(line.substr(begin, at - begin));
  }
}

namespace {

/// Where the word ends that a quotation mark before `at` began: at the next single one.
std::size_t FindQuote(std::string_view line, std::size_t at) {
  for (; at < line.size(); ++at) {
    if (line[at] != '"') continue;
    if (at + 1 == line.size() || line[at + 1] != '"') return at;
    ++at;
  }
  return line.size();
}

}  // namespace

void SplitWords(std::string_view line, char separator, std::vector<std::string_view>& words,
                std::size_t most) {
  if (separator == 0) return SplitWords(line, words, most);
  words.clear();
  // Words are short: a loop over them finds their ends sooner than a call for each.
  const char* const letters = line.data();
  const std::size_t size = line.size();
  const auto findSeparator = [letters, size, separator](std::size_t at) {
    while (at < size && letters[at] != separator) ++at;
    return at;
  };
  for (std::size_t at = 0; at <= size && words.size() < most;) {
    while (at < size && IsBlank(letters[at]) && letters[at] != separator) ++at;
    const bool isQuoted = at < size && letters[at] == '"';
    const std::size_t begin = isQuoted ? at + 1 : at;
    std::size_t end = isQuoted ? FindQuote(line, begin) : findSeparator(begin);
    at = isQuoted ? findSeparator(end) : end;
    if (!isQuoted) {
      while (end > begin && IsBlank(letters[end - 1])) --end;
    }
    words.emplace_back(letters + begin, end - begin);
    ++at;
  }
}

std::string Unquoted(std::string_view word) {
  std::string text;
  text.reserve(word.size());
  for (std::size_t i = 0; i < word.size(); ++i) {
    text += word[i];
    if (word[i] == '"' && i + 1 < word.size() && word[i + 1] == '"') ++i;
  }
  return text;
}

std::string_view TakeLine(std::string_view text, std::size_t& at) {
  const char* const begin = text.data() + at;
  const std::size_t left = text.size() - at;
  const auto* end = left == 0 ? nullptr : static_cast<const char*>(std::memchr(begin, '\n', left));
  std::string_view line(begin, end == nullptr ? left : static_cast<std::size_t>(end - begin));
  at += line.size() + (end == nullptr ? 0 : 1);
  if (line.ends_with('\r')) line.remove_suffix(1);
  return line;
}

std::string Quoted(std::string_view word) {
  constexpr std::size_t kMost = 40;
  std::string text(word.substr(0, kMost));
  for (char& letter : text) {
    if (static_cast<unsigned char>(letter) < ' ' || letter == '\x7f') letter = '?';
  }
  return "\"" + text + (word.size() > kMost ? "…\"" : "\"");
}

}  // namespace tarnhost
