// What the program says to people.
#include "apps/tarn/Messages.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <chrono>
#include <cmath>
#include <cstdio>

#include "host/select/Sinks.h"

namespace tarnapp {

int ReportFailure(const tarnhost::Outcome& outcome) {
  std::string text = "tarn: " + outcome.what;
  // A place in a query text is shown as it is; it takes lines of its own.
  const bool caret = outcome.where.find('\n') != std::string::npos;
  if (caret) {
    text += "\n" + outcome.where;
  } else if (!outcome.where.empty()) {
    text += " (" + outcome.where + ")";
  }
  if (!outcome.remedy.empty()) text += "\n  " + outcome.remedy;
  const oocpc::ResultCodeInfo* info = oocpc::FindResultCode(outcome.code);
  std::array<char, 16> number;
  std::snprintf(number.data(), number.size(), "0x%08X", static_cast<unsigned>(outcome.code));
  text += "\n  code " + std::string(number.data());
  if (info != nullptr) text += std::string(" ") + info->name + ": " + info->meaning;
  std::fprintf(stderr, "%s\n", text.c_str());
  return kFailed;
}

void ReportNote(const std::string& text) {
  std::fprintf(stderr, "tarn: note: %s\n", Shown(text).c_str());
}

std::string Shown(std::string text) {
  std::ranges::replace_if(
      text, [](unsigned char letter) { return letter < 0x20 || letter == 0x7F; }, '?');
  return text;
}

std::string Grouped(std::uint64_t number) {
  std::string digits = std::to_string(number);
  for (std::size_t at = digits.size(); at > 3;) {
    at -= 3;
    digits.insert(at, ",");
  }
  return digits;
}

std::string Counted(std::uint64_t number, const char* thing) {
  return Grouped(number) + " " + thing + (number == 1 ? "" : "s");
}

std::string Bytes(std::uint64_t bytes) {
  if (bytes == 1) return "1 byte";
  constexpr std::array<const char*, 5> kUnits{"bytes", "kB", "MB", "GB", "TB"};
  auto amount = static_cast<double>(bytes);
  std::size_t unit = 0;
  for (; amount >= 1000 && unit + 1 < kUnits.size(); ++unit) amount /= 1000;
  std::array<char, 32> text;
  std::snprintf(text.data(), text.size(), unit == 0 ? "%.0f %s" : "%.1f %s", amount, kUnits[unit]);
  return text.data();
}

std::string TimeText(std::uint64_t microseconds) {
  const std::uint64_t seconds = microseconds / 1000000;
  const std::chrono::sys_days days{std::chrono::days(seconds / 86400)};
  const std::chrono::year_month_day date(days);
  if (!date.year().ok()) return std::to_string(microseconds) + " us";
  std::array<char, 64> text;
  std::snprintf(text.data(), text.size(), "%04d-%02u-%02u %02u:%02u:%02u UTC",
                static_cast<int>(date.year()), static_cast<unsigned>(date.month()),
                static_cast<unsigned>(date.day()), static_cast<unsigned>(seconds / 3600 % 24),
                static_cast<unsigned>(seconds / 60 % 60), static_cast<unsigned>(seconds % 60));
  return text.data();
}

std::string NumberText(double number) {
  std::array<char, 64> digits;
  const double magnitude = std::abs(number);
  const bool plain = magnitude == 0 || (magnitude >= 1e-6 && magnitude < 1e15);
  const auto end =
      plain ? std::to_chars(digits.begin(), digits.end(), number, std::chars_format::fixed).ptr
            : std::to_chars(digits.begin(), digits.end(), number).ptr;
  return {digits.begin(), end};
}

std::string CoordinateText(double coordinate, double scale) {
  const int decimals = tarnhost::DecimalsOf(scale);
  if (decimals < 0) return NumberText(coordinate);
  std::array<char, 400> digits;
  const auto end =
      std::to_chars(digits.begin(), digits.end(), coordinate, std::chars_format::fixed, decimals)
          .ptr;
  return {digits.begin(), end};
}

std::string NumberText(const tarnhost::Number& number) {
  if (const auto* natural = std::get_if<std::uint64_t>(&number)) return std::to_string(*natural);
  if (const auto* whole = std::get_if<std::int64_t>(&number)) return std::to_string(*whole);
  return NumberText(std::get<double>(number));
}

std::string MeanText(double mean) {
  std::array<char, 40> digits;
  std::snprintf(digits.data(), digits.size(), "%.12g", mean);
  return digits.data();
}

nlohmann::json NumberJson(const tarnhost::Number& number) {
  if (const auto* natural = std::get_if<std::uint64_t>(&number)) return *natural;
  if (const auto* whole = std::get_if<std::int64_t>(&number)) return *whole;
  const double real = std::get<double>(number);
  if (std::isfinite(real)) return real;
  return NumberText(real);
}

void PrintJson(const nlohmann::json& json) {
  std::printf("%s\n", json.dump(2, ' ', false, nlohmann::json::error_handler_t::replace).c_str());
}

}  // namespace tarnapp
