// Numbers and words in lines of text.
#include "host/formats/converted/NumberText.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>

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
  T value = 0;
  if (ParseNumber(word, value)) {
    Put(value, out);
    return true;
  }
  double number = 0;
  return ParseReal(word, number) && StoreInteger<T>(number, out);
}

}  // namespace

bool ParseReal(std::string_view word, double& value) {
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
      if (ParseNumber(word, value)) {
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

void SplitWords(std::string_view line, std::vector<std::string_view>& words) {
  words.clear();
  for (std::size_t at = 0; at < line.size();) {
    while (at < line.size() && IsBlank(line[at])) ++at;
    const std::size_t begin = at;
    while (at < line.size() && !IsBlank(line[at])) ++at;
    if (at > begin) words.push_back(line.substr(begin, at - begin));
  }
}

void SplitWords(std::string_view line, char separator, std::vector<std::string_view>& words) {
  if (separator == 0) return SplitWords(line, words);
  words.clear();
  for (std::size_t at = 0; at <= line.size();) {
    while (at < line.size() && IsBlank(line[at]) && line[at] != separator) ++at;
    const bool isQuoted = at < line.size() && line[at] == '"';
    const std::size_t begin = isQuoted ? at + 1 : at;
    std::size_t end = std::min(line.find(isQuoted ? '"' : separator, begin), line.size());
    at = std::min(line.find(separator, end), line.size());
    if (!isQuoted) {
      while (end > begin && IsBlank(line[end - 1])) --end;
    }
    words.push_back(line.substr(begin, end - begin));
    ++at;
  }
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
