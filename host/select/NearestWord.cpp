// Finds the word that somebody probably meant.
#include <algorithm>
#include <cctype>

#include "host/select/QueryText.h"

namespace tarnhost {

namespace {

int Lower(char letter) { return std::tolower(static_cast<unsigned char>(letter)); }

/// Edit distance (Levenshtein), doubled; letters that differ in case alone count half an edit.
std::size_t Distance(const std::string& a, const std::string& b) {
  std::vector<std::size_t> row(b.size() + 1);
  for (std::size_t j = 0; j < row.size(); ++j) row[j] = 2 * j;
  for (std::size_t i = 1; i <= a.size(); ++i) {
    std::size_t diagonal = row[0];
    row[0] = 2 * i;
    for (std::size_t j = 1; j <= b.size(); ++j) {
      const std::size_t replace = a[i - 1] == b[j - 1]                 ? 0u
                                  : Lower(a[i - 1]) == Lower(b[j - 1]) ? 1u
                                                                       : 2u;
      const std::size_t best = std::min({diagonal + replace, row[j] + 2, row[j - 1] + 2});
      diagonal = row[j];
      row[j] = best;
    }
  }
  return row[b.size()];
}

bool SameButForCase(const std::string& a, const std::string& b) {
  return std::ranges::equal(a, b, [](char x, char y) { return Lower(x) == Lower(y); });
}

}  // namespace

std::string FindNearest(const std::string& word, const std::vector<std::string>& known) {
  std::string nearest;
  std::size_t least = ~std::size_t{0};
  for (const std::string& candidate : known) {
    if (SameButForCase(word, candidate)) return candidate;
    const std::size_t distance = Distance(word, candidate);
    if (distance < least) {
      least = distance;
      nearest = candidate;
    }
  }
  // Half of the letters may be wrong, no more.
  return least <= std::max<std::size_t>(2, word.size()) ? nearest : std::string();
}

}  // namespace tarnhost
