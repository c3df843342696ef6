// How stored integers of scans with different scales and offsets become those of one scale and
// offset, exactly.
#include "host/build/StoredSteps.h"

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <string_view>

namespace tarnhost {

namespace {

constexpr std::array<const char*, 3> kAxes{"x", "y", "z"};
/// Whole numbers stay below this, so that their sums, and products with 32-bit integers that are
/// checked against it, can't overflow.
constexpr std::int64_t kLargest = std::int64_t{1} << 61;

/// mantissa * 10^exponent, the mantissa without zeros at its end.
struct Decimal {
  std::int64_t mantissa = 0;
  int exponent = 0;
};

/// The shortest decimal number that denotes `value`: up to 17 digits. One too large for anything
/// when it is no number.
Decimal DecimalOf(double value) {
  if (!std::isfinite(value)) return {1, std::numeric_limits<double>::max_exponent10 + 1};
  std::array<char, 32> text;
  const auto end =
      std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::scientific)
          .ptr;
  Decimal decimal;
  const std::string_view written(text.data(), static_cast<std::size_t>(end - text.data()));
  const std::size_t power = written.find('e');
  bool isFraction = false;
  for (const char digit : written.substr(0, power)) {
    if (digit == '.') isFraction = true;
    if (digit < '0' || digit > '9') continue;
    decimal.mantissa = decimal.mantissa * 10 + (digit - '0');
    if (isFraction) --decimal.exponent;
  }
  // from_chars takes no plus sign.
  const std::size_t first = power + (written[power + 1] == '+' ? 2 : 1);
  int exponent = 0;
  std::from_chars(written.data() + first, written.data() + written.size(), exponent);
  decimal.exponent += exponent;
  if (written[0] == '-') decimal.mantissa = -decimal.mantissa;
  while (decimal.mantissa != 0 && decimal.mantissa % 10 == 0) {
    decimal.mantissa /= 10;
    ++decimal.exponent;
  }
  if (decimal.mantissa == 0) decimal.exponent = 0;
  return decimal;
}

/// Decimal numbers as whole numbers of one unit, 10^exponent.
class WholeNumbers {
 public:
  void Take(double value) { exponent_ = std::min(exponent_, DecimalOf(value).exponent); }

  /// After all have been taken; false when it is too large.
  bool Give(double value, std::int64_t& whole) const {
    const Decimal decimal = DecimalOf(value);
    whole = decimal.mantissa;
    for (int exponent = decimal.exponent; exponent > exponent_ && whole != 0; --exponent) {
      if (std::abs(whole) > kLargest / 10) return false;
      whole *= 10;
    }
    return std::abs(whole) <= kLargest;
  }

  /// The number that such a whole number stands for; false when no double is that very number.
  bool Denote(std::int64_t whole, double& value) const {
    const std::string text = std::to_string(whole) + "e" + std::to_string(exponent_);
    const auto read = std::from_chars(text.data(), text.data() + text.size(), value);
    std::int64_t again = 0;
    return read.ec == std::errc() && Give(value, again) && again == whole;
  }

 private:
  int exponent_ = std::numeric_limits<int>::max();
};

bool Fits(const StoredStep& step, std::int32_t least, std::int32_t greatest) {
  for (const std::int64_t stored : {std::int64_t{least}, std::int64_t{greatest}}) {
    if (stored != 0 && std::abs(step.factor) > kLargest / std::abs(stored)) return false;
    const std::int64_t converted = stored * step.factor + step.shift;
    if (converted < std::numeric_limits<std::int32_t>::min() ||
        converted > std::numeric_limits<std::int32_t>::max()) {
      return false;
    }
  }
  return true;
}

bool FindStep(double fromScale, double fromOffset, double toScale, double toOffset,
              StoredStep& step) {
  if (fromScale == toScale && fromOffset == toOffset) {
    step = {};
    return true;
  }
  WholeNumbers numbers;
  for (const double value : {fromScale, fromOffset, toScale, toOffset}) numbers.Take(value);
  std::int64_t scale = 0;
  std::int64_t offset = 0;
  std::int64_t unit = 0;
  std::int64_t origin = 0;
  if (!numbers.Give(fromScale, scale) || !numbers.Give(fromOffset, offset) ||
      !numbers.Give(toScale, unit) || !numbers.Give(toOffset, origin)) {
    return false;
  }
  if (unit == 0 || scale % unit != 0 || (offset - origin) % unit != 0) return false;
  step = {scale / unit, (offset - origin) / unit};
  return true;
}

/// One axis of several transforms.
class CommonAxis {
 public:
  CommonAxis(const std::vector<TransformUse>& uses, std::size_t axis) : uses_(uses), axis_(axis) {}

  /// Finds the greatest common step.
  bool FindScale() {
    for (const TransformUse& use : uses_) {
      numbers_.Take(use.transform.scale[axis_]);
      numbers_.Take(use.transform.offset[axis_]);
    }
    for (const TransformUse& use : uses_) {
      std::int64_t scale = 0;
      std::int64_t offset = 0;
      if (!numbers_.Give(use.transform.scale[axis_], scale) ||
          !numbers_.Give(use.transform.offset[axis_], offset)) {
        return false;
      }
      offsets_.push_back(offset);
      unit_ = std::gcd(std::gcd(unit_, scale), offset - offsets_.front());
    }
    return unit_ != 0 && numbers_.Denote(unit_, scale_);
  }

  bool FindOffset() {
    for (const std::int64_t candidate : offsets_) {
      if (AllFit(candidate)) return true;
    }
    std::int64_t middle = 0;
    return FindMiddle(middle) && AllFit(middle);
  }

  [[nodiscard]] double GetScale() const { return scale_; }
  [[nodiscard]] double GetOffset() const { return offset_; }

 private:
  bool AllFit(std::int64_t origin) {
    if (!numbers_.Denote(origin, offset_)) return false;
    return std::ranges::all_of(uses_, [&](const TransformUse& use) {
      StoredStep step;
      if (!FindStep(use.transform.scale[axis_], use.transform.offset[axis_], scale_, offset_,
                    step)) {
        return false;
      }
      return !use.box || Fits(step, use.box->least[axis_], use.box->greatest[axis_]);
    });
  }

  /// An offset in the middle of all boxes, as round as their extent lets it be.
  bool FindMiddle(std::int64_t& origin) {
    double least = std::numeric_limits<double>::infinity();
    double greatest = -least;
    for (std::size_t i = 0; i < uses_.size(); ++i) {
      if (!uses_[i].box) continue;
      std::int64_t scale = 0;
      if (!numbers_.Give(uses_[i].transform.scale[axis_], scale)) return false;
      for (const std::int32_t stored :
           {uses_[i].box->least[axis_], uses_[i].box->greatest[axis_]}) {
        const double steps = (static_cast<double>(stored) * static_cast<double>(scale) +
                              static_cast<double>(offsets_[i] - offsets_[0])) /
                             static_cast<double>(unit_);
        least = std::min(least, steps);
        greatest = std::max(greatest, steps);
      }
    }
    const double middle = std::round((least + greatest) / 2 / 1000) * 1000;
    const std::int64_t farthest = kLargest / unit_;
    if (!(std::abs(middle) < static_cast<double>(farthest))) return false;
    origin = offsets_[0] + static_cast<std::int64_t>(middle) * unit_;
    return std::abs(origin) <= kLargest;
  }

  const std::vector<TransformUse>& uses_;
  std::size_t axis_;
  WholeNumbers numbers_;
  std::vector<std::int64_t> offsets_;  ///< of each
  std::int64_t unit_ = 0;
  double scale_ = 1;
  double offset_ = 0;
};

Outcome Differ(const std::string& what) {
  return Outcome::Failure(oocpc::result::kScansDiffer, what, {},
                          "import the scans into repositories of their own, or convert them to one "
                          "scale and offset");
}

}  // namespace

bool IsIdentity(const StoredSteps& steps) {
  return std::ranges::all_of(
      steps, [](const StoredStep& step) { return step.factor == 1 && step.shift == 0; });
}

std::optional<StoredBox> Convert(const StoredSteps& steps, const StoredBox& box) {
  StoredBox converted;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (box.least[axis] > box.greatest[axis]) return StoredBox();
    if (!Fits(steps[axis], box.least[axis], box.greatest[axis])) return std::nullopt;
    const auto map = [&](std::int32_t stored) {
      return static_cast<std::int32_t>(stored * steps[axis].factor + steps[axis].shift);
    };
    const auto ends = std::minmax({map(box.least[axis]), map(box.greatest[axis])});
    converted.least[axis] = ends.first;
    converted.greatest[axis] = ends.second;
  }
  return converted;
}

void Convert(const StoredSteps& steps, std::uint64_t count, std::int32_t* xyz) {
  for (const std::int32_t* const end = xyz + 3 * count; xyz < end; xyz += 3) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      // What was not checked to fit may be anything, but must not overflow.
      xyz[axis] = static_cast<std::int32_t>(static_cast<std::uint64_t>(xyz[axis]) *
                                                static_cast<std::uint64_t>(steps[axis].factor) +
                                            static_cast<std::uint64_t>(steps[axis].shift));
    }
  }
}

Outcome FindSteps(const PositionTransform& from, const PositionTransform& to, StoredSteps& steps) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    if (!FindStep(from.scale[axis], from.offset[axis], to.scale[axis], to.offset[axis],
                  steps[axis])) {
      return Differ(std::string("its scale and offset of ") + kAxes[axis] +
                    " put points between the steps of the cloud");
    }
  }
  return Outcome::Success();
}

Outcome FindCommonTransform(const std::vector<TransformUse>& uses, PositionTransform& common) {
  common = uses.front().transform;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const bool isOne = std::ranges::all_of(uses, [&](const TransformUse& use) {
      return use.transform.scale[axis] == common.scale[axis] &&
             use.transform.offset[axis] == common.offset[axis];
    });
    if (isOne) continue;
    CommonAxis found(uses, axis);
    if (!found.FindScale()) {
      return Differ(std::string("the scales and offsets of ") + kAxes[axis] +
                    " are no whole multiples of a common step");
    }
    if (!found.FindOffset()) {
      std::array<char, 32> step;
      const auto end = std::to_chars(step.data(), step.data() + step.size(), found.GetScale()).ptr;
      return Differ(std::string("counted in the common step ") + std::string(step.data(), end) +
                    " of their scales and offsets, coordinates of " + kAxes[axis] +
                    " do not fit into 32 bits");
    }
    common.scale[axis] = found.GetScale();
    common.offset[axis] = found.GetOffset();
  }
  return Outcome::Success();
}

}  // namespace tarnhost
