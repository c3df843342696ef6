// Bytes written as hexadecimal text, for golden records.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

namespace oocpctest {

/// "01 AB ff" as three bytes; blanks are optional.
inline std::vector<std::uint8_t> BytesOf(std::string_view hexadecimal) {
  std::vector<std::uint8_t> bytes;
  bool secondDigit = false;
  for (const char c : hexadecimal) {
    if (c == ' ') continue;
    const int digit = c <= '9' ? c - '0' : (c | 0x20) - 'a' + 10;
    if (secondDigit) {
      bytes.back() = static_cast<std::uint8_t>(bytes.back() * 16 + digit);
    } else {
      bytes.push_back(static_cast<std::uint8_t>(digit));
    }
    secondDigit = !secondDigit;
  }
  return bytes;
}

}  // namespace oocpctest
