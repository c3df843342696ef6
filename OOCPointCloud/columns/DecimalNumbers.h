// Floating-point numbers that were decimal numbers once: whole multiples of a power of ten.
#pragma once

#include <array>
#include <bit>
#include <cmath>
#include <cstdint>
#include <optional>

namespace oocpc {

inline constexpr unsigned kMostDecimals = 9;
inline constexpr std::array<double, kMostDecimals + 1> kPowersOfTen{1,   1e1, 1e2, 1e3, 1e4,
                                                                    1e5, 1e6, 1e7, 1e8, 1e9};
/// Multiples from here on are not all doubles.
inline constexpr double kMultiplesEnd = 9007199254740992.0;  // 2^53

/// The number that `multiple` stands for: divided in double precision, then rounded to T.
template <typename T>
[[nodiscard]] T FromDecimal(std::int64_t multiple, unsigned decimals) {
  return static_cast<T>(static_cast<double>(multiple) / kPowersOfTen[decimals]);
}

/// The multiple that stands for `number`, bit for bit, or nothing when there is none.
template <typename T>
[[nodiscard]] std::optional<std::int64_t> ToDecimal(T number, unsigned decimals) {
  const double scaled = static_cast<double>(number) * kPowersOfTen[decimals];
  if (!(std::abs(scaled) < kMultiplesEnd)) return std::nullopt;
  const auto multiple = static_cast<std::int64_t>(std::nearbyint(scaled));
  const T again = FromDecimal<T>(multiple, decimals);
  if (again != number || std::signbit(again) != std::signbit(number)) return std::nullopt;
  return multiple;
}

}  // namespace oocpc
