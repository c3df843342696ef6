// The texts that an import adds to the dictionary of a cloud.
#pragma once

#include <cstdint>
#include <string>
#include <unordered_map>
#include <utility>
#include <vector>

#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Numbers texts on from those that the dictionary has already, each one once.
class NewStrings {
 public:
  /// A text that is there, in the order of their numbers.
  void AddFormer(std::string text) { numbers_.try_emplace(std::move(text), formerCount_++); }

  /// The number of a text, which is added where it is new.
  [[nodiscard]] std::uint32_t NumberOf(const std::string& text) {
    const auto next = static_cast<std::uint32_t>(formerCount_ + strings_.size());
    const auto [place, isNew] = numbers_.try_emplace(text, next);
    if (isNew) strings_.push_back(text);
    return place->second;
  }
  /// Lets a scan number its texts as the dictionary does.
  void NumberThoseOf(ScanFile& scan) {
    std::vector<std::uint32_t> numbers;
    numbers.reserve(scan.GetStrings().size());
    for (const std::string& text : scan.GetStrings()) numbers.push_back(NumberOf(text));
    if (!numbers.empty()) scan.NumberStrings(numbers);
  }

  [[nodiscard]] std::uint64_t GetFormerCount() const { return formerCount_; }
  /// The new ones, in the order of their numbers.
  [[nodiscard]] std::vector<std::string> Take() { return std::move(strings_); }

 private:
  std::unordered_map<std::string, std::uint32_t> numbers_;
  std::uint32_t formerCount_ = 0;
  std::vector<std::string> strings_;
};

}  // namespace tarnhost
