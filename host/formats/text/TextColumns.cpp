// Finds the types of a text's columns by what stands in them.
#include "host/formats/text/TextColumns.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "host/formats/converted/FieldNames.h"
#include "host/formats/converted/NumberText.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

/// More digits than a step of positions can have say nothing about it.
constexpr int kMostDecimalsStated = 9;

/// Columns for which LAS files have types of 8 and 16 bits.
constexpr std::array<const char*, 14> kBytes{"classification",
                                             "return_number",
                                             "number_of_returns",
                                             "user_data",
                                             "scanner_channel",
                                             "synthetic",
                                             "key_point",
                                             "withheld",
                                             "overlap",
                                             "alpha",
                                             "scan_direction_flag",
                                             "edge_of_flight_line",
                                             "cartesian_invalid_state",
                                             "return_count"};
constexpr std::array<const char*, 3> kWords{"intensity", "point_source_id", "nir"};
constexpr std::array<const char*, 6> kColors{"red", "green", "blue", "r", "g", "b"};
constexpr std::array<const char*, 5> kOthers{"x", "y", "z", "gps_time", "scan_angle"};

template <std::size_t kCount>
bool IsOneOf(const std::array<const char*, kCount>& names, const std::string& name) {
  return std::ranges::any_of(names, [&](const char* one) { return name == one; });
}

}  // namespace

bool MeansNumbers(const std::string& name) {
  const std::string lower = LowerCase(name);
  return IsOneOf(kBytes, lower) || IsOneOf(kWords, lower) || IsOneOf(kColors, lower) ||
         IsOneOf(kOthers, lower);
}

void ColumnContent::Add(std::string_view word, std::uint64_t line, bool isCoordinate) {
  ++count_;
  if (word.empty()) {
    ++emptyCount_;
    return;
  }
  if (isCoordinate) {
    const int decimals = DecimalsOfWord(word);
    if (decimals <= kMostDecimalsStated) decimals_ = std::max(decimals_, decimals);
  }
  if (areIntegers_) {
    std::int64_t number = 0;
    std::uint64_t large = 0;
    if (ParseShortInteger(word, number) || ParseNumber(word, number)) {
      least_ = std::min(least_, number);
      if (number > 0) greatest_ = std::max(greatest_, static_cast<std::uint64_t>(number));
      return;
    }
    if (ParseNumber(word, large)) {
      greatest_ = std::max(greatest_, large);
      return;
    }
  }
  if (IsReal(word)) {
    areIntegers_ = false;
  } else if (textLine_ == 0) {
    textLine_ = line;
    textWord_ = Quoted(word);
  }
}

void ColumnContent::Join(const ColumnContent& later) {
  count_ += later.count_;
  emptyCount_ += later.emptyCount_;
  areIntegers_ = areIntegers_ && later.areIntegers_;
  least_ = std::min(least_, later.least_);
  greatest_ = std::max(greatest_, later.greatest_);
  decimals_ = std::max(decimals_, later.decimals_);
  if (textLine_ != 0) return;
  textLine_ = later.textLine_;
  textWord_ = later.textWord_;
}

bool ColumnContent::AreWithin(std::int64_t least, std::uint64_t greatest) const {
  return least_ >= least && greatest_ <= greatest;
}

ValueType ColumnContent::ChooseType(const std::string& name) const {
  using Int32 = std::numeric_limits<std::int32_t>;
  using Int64 = std::numeric_limits<std::int64_t>;
  if (textLine_ != 0) return ValueType::kString;
  if (!areIntegers_ || emptyCount_ > 0 || name == "gps_time") return ValueType::kDouble;
  const std::string lower = LowerCase(name);
  const bool isColor = IsOneOf(kColors, lower);
  if ((isColor || IsOneOf(kBytes, lower)) && AreWithin(0, 255)) return ValueType::kUInt8;
  if ((isColor || IsOneOf(kWords, lower)) && AreWithin(0, 65535)) return ValueType::kUInt16;
  if (AreWithin(Int32::min(), Int32::max())) return ValueType::kInt32;
  if (AreWithin(Int64::min(), static_cast<std::uint64_t>(Int64::max()))) return ValueType::kInt64;
  return least_ >= 0 ? ValueType::kUInt64 : ValueType::kDouble;
}

}  // namespace tarnhost
