// The query language: runs its grammar over a text and calls the accumulator's actions.
#pragma once

#include <string>

class TarOOCExpressionAccumulator;

namespace tarn {

/// Parentheses may nest this deep. The parser recurses with them, so a deeper text could exhaust
/// the caller's stack; it is taken as one that does not parse.
inline constexpr std::size_t kDeepestNesting = 1000;

/// Matches the longest prefix of `text` that is a query, white space before and after it included.
/// True: `position` is behind it. False: `position` is the start; what the actions appended before
/// the failure stays with the accumulator.
[[nodiscard]] bool ParseQuery(const std::string& text, TarOOCExpressionAccumulator& accumulator,
                              std::string::const_iterator& position);

}  // namespace tarn
