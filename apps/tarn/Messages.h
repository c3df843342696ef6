// What the program says to people: errors, numbers, times.
#pragma once

#include <cstdint>
#include <nlohmann/json.hpp>
#include <string>

#include "host/cloud/CloudFacts.h"
#include "host/common/Outcome.h"

namespace tarnapp {

inline constexpr int kDone = 0;
inline constexpr int kFailed = 1;
inline constexpr int kWrongUsage = 2;
/// What a shell says of a program that a closed pipe ended: 128 and the number of SIGPIPE.
inline constexpr int kReaderGone = 141;

/// Prints a failure on standard error: what, where, what to do, and the code. Gives kFailed.
int ReportFailure(const tarnhost::Outcome& outcome);

/// Prints on standard error what is no failure but should be known.
void ReportNote(const std::string& text);

/// Text out of a file as a terminal may get it: control characters become question marks.
std::string Shown(std::string text);
/// 12345678 as "12,345,678".
std::string Grouped(std::uint64_t number);
/// A number of things: "1 point", "12,345 points".
std::string Counted(std::uint64_t number, const char* thing);
/// Bytes in units that people read: "41.3 MB".
std::string Bytes(std::uint64_t bytes);
/// Microseconds since 1970 as "2026-11-21 08:40:00 UTC".
std::string TimeText(std::uint64_t microseconds);
/// A number as short as it can be read back without loss.
std::string NumberText(const tarnhost::Number& number);
std::string NumberText(double number);
/// A coordinate with as many decimals as its scale has.
std::string CoordinateText(double coordinate, double scale);
/// A mean to twelve digits: more may differ with the order in which values are added.
std::string MeanText(double mean);
/// As JSON: a number, or a text for what JSON has no number for.
nlohmann::json NumberJson(const tarnhost::Number& number);
/// Prints JSON, indented; bytes that are no UTF-8 become replacement characters.
void PrintJson(const nlohmann::json& json);

}  // namespace tarnapp
