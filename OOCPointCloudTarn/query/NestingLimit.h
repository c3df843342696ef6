// Where the parentheses of a query text nest deeper than the parser's recursion may follow.
#pragma once

#include <cstddef>
#include <string>

namespace tarn {

/// The first opening parenthesis that nests deeper than `limit`, or the end of the text.
///
/// Quoted texts are stepped over. The parser consumes nothing behind a closing parenthesis without
/// a partner, so the search ends there too.
[[nodiscard]] inline std::string::const_iterator FindTooDeepNesting(const std::string& text,
                                                                    std::size_t limit) {
  std::size_t depth = 0;
  bool quoted = false;
  for (auto at = text.begin(); at != text.end(); ++at) {
    if (*at == '"') {
      quoted = !quoted;
    } else if (!quoted && *at == '(') {
      if (depth == limit) return at;
      ++depth;
    } else if (!quoted && *at == ')') {
      if (depth == 0) break;
      --depth;
    }
  }
  return text.end();
}

}  // namespace tarn
