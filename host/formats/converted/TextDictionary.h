// The texts that occur in the points of a file, each one once.
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace tarnhost {

/// Numbers texts from 0 in the order in which they are added. Const operations are safe from
/// several threads at once.
class TextDictionary {
 public:
  /// Most texts, and bytes of all of them together: a dictionary is held in memory.
  static constexpr std::size_t kMostTexts = std::size_t{1} << 20;
  static constexpr std::size_t kMostBytes = std::size_t{1} << 26;

  /// Adds a text unless it is there; false when there is no room for it.
  [[nodiscard]] bool Add(std::string_view text) {
    if (numbers_.contains(text)) return true;
    if (texts_.size() == kMostTexts || text.size() > kMostBytes - bytes_) return false;
    bytes_ += text.size();
    numbers_.emplace(text, static_cast<std::uint32_t>(texts_.size()));
    texts_.emplace_back(text);
    return true;
  }
  [[nodiscard]] std::optional<std::uint32_t> Find(std::string_view text) const {
    const auto found = numbers_.find(text);
    return found == numbers_.end() ? std::nullopt : std::optional(found->second);
  }
  [[nodiscard]] std::span<const std::string> GetTexts() const { return texts_; }

 private:
  struct Hash {
    using is_transparent = void;
    std::size_t operator()(std::string_view text) const {
      return std::hash<std::string_view>()(text);
    }
  };
  std::vector<std::string> texts_;
  std::unordered_map<std::string, std::uint32_t, Hash, std::equal_to<>> numbers_;
  std::size_t bytes_ = 0;
};

}  // namespace tarnhost
