// Encodes bits, symbols and plain numbers into one stream; the decoder's mirror image.
#pragma once

#include <bit>
#include <cstdint>
#include <vector>

#include "host/formats/laz/ArithmeticModels.h"

namespace tarnhost::laz {

/// Keeps its stream in memory, as a carry may run back through what was written.
class ArithmeticEncoder {
 public:
  static constexpr bool kDecodes = false;

  void Start() {
    base_ = 0;
    length_ = 0xFFFFFFFFu;
    bytes_.clear();
  }

  template <unsigned kMost>
  std::uint32_t Symbol(SymbolModel<kMost>& model, std::uint32_t symbol) {
    const std::uint32_t unit = length_ >> kSymbolShift;
    const std::uint32_t low = model.GetBelow(symbol) * unit;
    const std::uint32_t high =
        symbol == model.GetLast() ? length_ : model.GetBelow(symbol + 1) * unit;
    Narrow(low, high - low);
    model.template Count<false>(symbol);
    return symbol;
  }

  std::uint32_t Bit(BitModel& model, std::uint32_t bit) {
    const std::uint32_t zero = model.GetProbabilityOfZero() * (length_ >> kBitShift);
    if (bit != 0) {
      Narrow(zero, length_ - zero);
    } else {
      Narrow(0, zero);
    }
    model.Count(bit);
    return bit;
  }

  std::uint32_t Raw(unsigned bits, std::uint32_t value) {
    if (bits <= 19) {
      ShortRaw(bits, value);
    } else {
      ShortRaw(16, value & 0xFFFFu);
      ShortRaw(bits - 16, value >> 16);
    }
    return value;
  }

  /// Ends the stream so that a decoder, which reads four bytes ahead, uses exactly its bytes.
  void Finish() {
    const bool wide = length_ > 2 * kLeastLength;
    Narrow(wide ? kLeastLength : kLeastLength >> 1, wide ? kLeastLength >> 1 : kLeastLength >> 9);
    bytes_.insert(bytes_.end(), wide ? 3 : 2, 0);
  }

  [[nodiscard]] const std::vector<std::uint8_t>& GetBytes() const { return bytes_; }

 private:
  void ShortRaw(unsigned bits, std::uint32_t value) {
    const std::uint32_t unit = length_ >> bits;
    Narrow(value * unit, unit);
  }

  void Narrow(std::uint32_t low, std::uint32_t length) {
    base_ += low;
    if (base_ < low) Carry();
    length_ = length;
    while (length_ < kLeastLength) {
      bytes_.push_back(static_cast<std::uint8_t>(base_ >> 24));
      base_ <<= 8;
      length_ <<= 8;
    }
  }

  void Carry() {
    std::size_t at = bytes_.size();
    while (++bytes_[--at] == 0) {
    }
  }

  std::uint32_t base_ = 0;
  std::uint32_t length_ = 0xFFFFFFFFu;
  std::vector<std::uint8_t> bytes_;
};

}  // namespace tarnhost::laz
