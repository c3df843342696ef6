// What a real number of a query text is and which value it has, for all who read such texts.
#pragma once

#include <boost/spirit/include/qi_numeric.hpp>
#include <charconv>
#include <limits>
#include <string_view>
#include <system_error>

namespace tarn {

/// Spirit's real numbers without what may follow a "nan" there: any bytes in parentheses, quotes
/// and further parentheses among them, which nobody looking for the text's structure would expect
/// within a number.
template <typename T>
struct RealNumberPolicies : boost::spirit::qi::real_policies<T> {
  template <typename Iterator, typename Attribute>
  static bool parse_nan(Iterator& first, const Iterator& last, Attribute& value) {
    namespace spirit = boost::spirit;
    if (!spirit::qi::detail::string_parse("nan", "NAN", first, last, spirit::unused)) return false;
    value = std::numeric_limits<T>::quiet_NaN();
    return true;
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
