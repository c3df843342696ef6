// Checks of what stands on the command line.
#include "apps/tarn/Arguments.h"

#include <algorithm>
#include <cctype>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdint>
#include <filesystem>

#include "apps/tarn/Messages.h"

namespace tarnapp {

CLI::Validator IsNotEmpty() {
  return {[](const std::string& text) {
            return text.empty() ? std::string("the text is empty") : std::string();
          },
          ""};
}

CLI::Validator IsNamed() {
  return {[](const std::string& text) {
            return text.empty() ? std::string("the name is empty") : std::string();
          },
          ""};
}

CLI::Validator IsWholeNumber() {
  return {[](const std::string& text) {
            std::uint64_t number = 0;
            const char* end = text.data() + text.size();
            const auto [stop, error] = std::from_chars(text.data(), end, number);
            return error == std::errc() && stop == end
                       ? std::string()
                       : "\"" + text + "\" is not a whole number from 0 on";
          },
          ""};
}

namespace {

bool ParseCount(std::string_view text, std::uint64_t& count) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, count);
  if (error != std::errc() || end - stop > 1) return false;
  if (stop == end) return true;
  std::uint64_t unit = 1;
  for (const char letter : std::string_view("kmg")) {
    unit *= 1000;
    if (std::tolower(static_cast<unsigned char>(*stop)) != letter) continue;
    if (count > ~std::uint64_t{0} / unit) return false;
    count *= unit;
    return true;
  }
  return false;
}

}  // namespace

CLI::Validator IsCount(std::uint64_t least) {
  return {[least](std::string& text) {
            std::uint64_t count = 0;
            if (!ParseCount(text, count) || count < least) {
              return "\"" + text + "\" is no number such as 500000, 800k or 3M, from " +
                     std::to_string(least) + " on";
            }
            text = std::to_string(count);
            return std::string();
          },
          ""};
}

CLI::Validator IsAboveZero() {
  return {[](const std::string& text) {
            double number = 0;
            const char* end = text.data() + text.size();
            const auto [stop, error] = std::from_chars(text.data(), end, number);
            return error == std::errc() && stop == end && number > 0 && std::isfinite(number)
                       ? std::string()
                       : "\"" + text + "\" is not a number above 0";
          },
          ""};
}

CLI::Option* AddOverwriteOption(CLI::App& command, bool& overwrite) {
  return command.add_flag("--overwrite", overwrite, "Replace a file that is there");
}

CLI::Validator IsSeparator() {
  return {[](const std::string& text) {
            const bool isOne = text.size() == 1 && text != "\n" && text != "\r" && text != "\"";
            return isOne || text == "tab" || text == "space"
                       ? std::string()
                       : "\"" + text + "\" is no separator: one character, tab or space";
          },
          ""};
}

char SeparatorOf(std::string_view text) {
  return text == "tab" ? '\t' : text == "space" ? ' ' : text.front();
}

bool ParseSize(std::string_view text, std::uint64_t& bytes) {
  const char* end = text.data() + text.size();
  const auto [stop, error] = std::from_chars(text.data(), end, bytes);
  if (error != std::errc() || bytes == 0 || end - stop > 1) return false;
  if (stop == end) return true;
  const std::string_view units = "KMGT";
  const auto unit = units.find(static_cast<char>(std::toupper(static_cast<unsigned char>(*stop))));
  if (unit == std::string_view::npos) return false;
  const auto shift = static_cast<unsigned>(10 * (unit + 1));
  if (bytes > ~std::uint64_t{0} >> shift) return false;
  bytes <<= shift;
  return true;
}

CLI::Validator IsSize() {
  return {[](const std::string& text) {
            std::uint64_t bytes = 0;
            return ParseSize(text, bytes)
                       ? std::string()
                       : "\"" + text + "\" is no number of bytes such as 512M or 4G";
          },
          ""};
}

CLI::Validator EndsIn(const std::vector<std::string>& endings) {
  return {[endings](const std::string& text) {
            std::string found = std::filesystem::path(text).extension().string();
            std::transform(found.begin(), found.end(), found.begin(), [](unsigned char letter) {
              return static_cast<char>(std::tolower(letter));
            });
            std::string wanted;
            for (const std::string& ending : endings) {
              if (found == ending) return std::string();
              wanted.append(wanted.empty() ? "" : " or ").append(ending);
            }
            return "\"" + text + "\" does not end in " + wanted;
          },
          ""};
}

bool ParseTime(std::string_view text, std::uint64_t& microseconds) {
  const char* const end = text.data() + text.size();
  const auto whole = std::from_chars(text.data(), end, microseconds);
  if (!text.empty() && whole.ec == std::errc() && whole.ptr == end) return true;
  // YYYY-MM-DD, with or without Thh:mm:ss and Z.
  constexpr std::string_view kPattern = "0000-00-00T00:00:00";
  if (text.ends_with('Z')) text.remove_suffix(1);
  if (text.size() != kPattern.size() && text.size() != 10) return false;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const bool digit = text[i] >= '0' && text[i] <= '9';
    const bool separates = text[i] == kPattern[i] || (kPattern[i] == 'T' && text[i] == ' ');
    if (kPattern[i] == '0' ? !digit : !separates) return false;
  }
  const auto number = [&](std::size_t at, std::size_t digits) {
    unsigned value = 0;
    if (at < text.size()) std::from_chars(text.data() + at, text.data() + at + digits, value);
    return value;
  };
  using std::chrono::day, std::chrono::month, std::chrono::year;
  const std::chrono::year_month_day date(year(static_cast<int>(number(0, 4))), month(number(5, 2)),
                                         day(number(8, 2)));
  const unsigned hour = number(11, 2);
  const unsigned minute = number(14, 2);
  const unsigned second = number(17, 2);
  if (!date.ok() || hour > 23 || minute > 59 || second > 59) return false;
  const auto days = std::chrono::sys_days(date).time_since_epoch().count();
  if (days < 0) return false;
  const std::uint64_t seconds =
      static_cast<std::uint64_t>(days) * 86400 + hour * 3600u + minute * 60u + second;
  microseconds = seconds * 1000000;
  return true;
}

CLI::Validator IsTime() {
  return {[](const std::string& text) {
            std::uint64_t time = 0;
            return ParseTime(text, time)
                       ? std::string()
                       : "\"" + text +
                             "\" is no time such as 2026-11-21, 2026-11-21T08:40:00, or "
                             "microseconds since 1970";
          },
          ""};
}

void AddMemoryOption(CLI::App& command, std::string& memory) {
  command
      .add_option("--memory", memory,
                  "About the most memory to use, such as 512M or 4G, at least 256M; default a "
                  "quarter of the\n"
                  "machine's")
      ->check(IsSize());
}

std::uint64_t MemoryToUse(const std::string& memory, bool quiet) {
  // With less, what is kept of the pieces would take more than the pieces.
  constexpr std::uint64_t kLeastMemory = 256u << 20;
  std::uint64_t bytes = 0;
  if (!ParseSize(memory, bytes)) return 0;
  if (bytes >= kLeastMemory) return bytes;
  if (!quiet) ReportNote("--memory " + memory + " is less than is needed: up to 256M are used");
  return kLeastMemory;
}

}  // namespace tarnapp
