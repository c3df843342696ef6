// Codes colours byte by byte: green after red, blue after both.
#pragma once

#include <algorithm>

#include "host/formats/laz/ArithmeticDecoder.h"

namespace tarnhost::laz {

/// Red, green and blue, as the record holds them.
using Color = std::array<std::uint16_t, 3>;

class ColorCoder {
 public:
  template <bool kDecodes>
  void Start() {
    changes_.template Start<kDecodes>(128);
    for (auto& model : bytes_) model.template Start<kDecodes>(256);
  }

  /// Returns the colour read, or given; `last` is the one before.
  template <typename Coder>
  TARNHOST_LAZ_INLINE Color Code(Coder& coder, const Color& last, const Color& color) {
    std::uint32_t changes = 0;
    if constexpr (!Coder::kDecodes) changes = ChangesOf(last, color);
    changes = coder.Symbol(changes_, changes);
    const auto changed = [changes](unsigned bit)
                             TARNHOST_LAZ_INLINE_LAMBDA { return (changes >> bit & 1u) != 0; };
    // Low and high bytes, given and to be returned.
    const auto byte = [&](unsigned model, int prediction, int given) TARNHOST_LAZ_INLINE_LAMBDA {
      const auto code = static_cast<std::uint8_t>(given - prediction);
      return static_cast<std::uint8_t>(prediction +
                                       static_cast<int>(coder.Symbol(bytes_[model], code)));
    };
    const int red[2] = {last[0] & 255, last[0] >> 8};
    const int green[2] = {last[1] & 255, last[1] >> 8};
    const int blue[2] = {last[2] & 255, last[2] >> 8};
    int newRed[2] = {red[0], red[1]};
    int newGreen[2] = {green[0], green[1]};
    int newBlue[2] = {blue[0], blue[1]};
    if (changed(0)) newRed[0] = byte(0, red[0], color[0] & 255);
    if (changed(1)) newRed[1] = byte(1, red[1], color[0] >> 8);
    if (!changed(6)) {
      const auto grey = Join(newRed);
      return {grey, grey, grey};
    }
    for (unsigned part = 0; part < 2; ++part) {
      int difference = newRed[part] - red[part];
      if (changed(2 + part)) {
        newGreen[part] = byte(2 + part, Clamp(difference + green[part]), Part(color[1], part));
      }
      if (changed(4 + part)) {
        difference = (difference + newGreen[part] - green[part]) / 2;
        newBlue[part] = byte(4 + part, Clamp(difference + blue[part]), Part(color[2], part));
      }
    }
    return {Join(newRed), Join(newGreen), Join(newBlue)};
  }

 private:
  static int Clamp(int value) { return std::clamp(value, 0, 255); }
  static int Part(std::uint16_t value, unsigned part) { return value >> (8 * part) & 255; }
  static std::uint16_t Join(const int* parts) {
    return static_cast<std::uint16_t>(parts[0] | parts[1] << 8);
  }
  static std::uint32_t ChangesOf(const Color& last, const Color& color) {
    std::uint32_t changes = 0;
    for (unsigned i = 0; i < 3; ++i) {
      const auto difference = static_cast<std::uint32_t>(last[i] ^ color[i]);
      if ((difference & 0x00FFu) != 0) changes |= 1u << (2 * i);
      if ((difference & 0xFF00u) != 0) changes |= 2u << (2 * i);
    }
    if (color[0] != color[1] || color[0] != color[2]) changes |= 64;
    return changes;
  }

  SymbolModel<128> changes_;
  std::array<SymbolModel<256>, 6> bytes_;
};

}  // namespace tarnhost::laz
