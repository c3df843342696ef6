// What a real number of a query text is and which value it has, for all who read such texts.
#pragma once

#include <algorithm>
#include <boost/spirit/include/qi_numeric.hpp>
#include <charconv>
#include <limits>
#include <string_view>
#include <system_error>

namespace tarn {

/// Spirit's default real numbers, mended where these go wrong:
///
/// - "nan" is three letters. Spirit goes on with any bytes in parentheses, quotes and further
///   parentheses among them, which nobody who looks for the text's structure expects in a number.
/// - A fraction of more digits than Spirit can scale by is zero; Spirit would stop half-way.
/// - An exponent can be added to the number of digits without overflow.
template <typename T>
struct RealNumberPolicies : boost::spirit::qi::real_policies<T> {
  using Default = boost::spirit::qi::real_policies<T>;

  template <typename Iterator, typename Attribute>
  static bool parse_nan(Iterator& first, const Iterator& last, Attribute& value) {
    namespace spirit = boost::spirit;
    if (!spirit::qi::detail::string_parse("nan", "NAN", first, last, spirit::unused)) return false;
    value = std::numeric_limits<T>::quiet_NaN();
    return true;
  }

  template <typename Iterator, typename Attribute>
  static bool parse_frac_n(Iterator& first, const Iterator& last, Attribute& digits, int& count) {
    if (!Default::parse_frac_n(first, last, digits, count)) return false;
    // All but the last few of so many digits are zeros, and there is nothing before the point.
    constexpr int kMostDigits = -2 * std::numeric_limits<T>::min_exponent10;
    if (count > kMostDigits && !HasExponent(first, last)) {
      digits = 0;
      count = kMostDigits;
    }
    return true;
  }

  template <typename Iterator>
  static bool parse_exp_n(Iterator& first, const Iterator& last, int& exponent) {
    if (!Default::parse_exp_n(first, last, exponent)) return false;
    constexpr int kFarOutOfRange = 1 << 30;
    exponent = std::clamp(exponent, -kFarOutOfRange, kFarOutOfRange);
    return true;
  }

 private:
  template <typename Iterator>
  static bool HasExponent(Iterator first, const Iterator& last) {
    int exponent = 0;
    return Default::parse_exp(first, last) && Default::parse_exp_n(first, last, exponent);
  }
};

template <typename T>
using RealNumberParser = boost::spirit::qi::real_parser<T, RealNumberPolicies<T>>;

/// The number nearest to `text`, which RealNumberParser has accepted and read as `approximate`.
/// That value stays where the text is outside the range of normal numbers, or spelled as only the
/// parser knows it.
template <typename T>
[[nodiscard]] T NearestNumber(std::string_view text, T approximate) {
  if (!text.empty() && text.front() == '+') text.remove_prefix(1);
  const char* const end = text.data() + text.size();
  T value{};
  const auto [stop, error] = std::from_chars(text.data(), end, value);
  return error == std::errc{} && stop == end ? value : approximate;
}

}  // namespace tarn
