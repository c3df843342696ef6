// Numbers as short as they can be read back without loss.
#pragma once

#include <array>
#include <charconv>
#include <string>

namespace tarnhost {

template <typename T>
[[nodiscard]] std::string NumberWord(T value) {
  std::array<char, 40> digits;
  const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value);
  return {digits.data(), end.ptr};
}

}  // namespace tarnhost
