// Codes an integer as what a prediction is wrong by.
#pragma once

#include <bit>

#include "host/formats/laz/ArithmeticDecoder.h"
#include "host/formats/laz/ArithmeticModels.h"

namespace tarnhost::laz {

/// kBits is 16 or 32; 16-bit values come out from 0 to 65535. The error's number of bits, `k`, is
/// coded with a model that the caller's context chooses; the error itself with one that k chooses.
template <unsigned kBits, unsigned kContexts>
class IntegerCoder {
 public:
  template <bool kDecodes>
  void Start() {
    for (auto& model : widths_) model.template Start<kDecodes>(kBits + 1);
    zeroOrOne_.Start();
    for (auto& model : errors_) model.Forget();
  }

  /// Returns the value: the one read, or the one given.
  template <typename Coder>
  TARNHOST_LAZ_INLINE std::int32_t Code(Coder& coder, std::int32_t prediction, std::int32_t value,
                                        unsigned context = 0) {
    std::uint32_t error = 0;
    std::uint32_t width = 0;
    if constexpr (!Coder::kDecodes) {
      error = ErrorOf(prediction, value);
      width = WidthOf(static_cast<std::int32_t>(error));
    }
    width_ = width = coder.Symbol(widths_[context], width);
    if (width == 0) {
      error = coder.Bit(zeroOrOne_, error);
    } else if (width < 32) {
      error = CodeError(coder, width, error);
    } else {
      error = 0x80000000u;
    }
    return Fold(static_cast<std::uint32_t>(prediction) + error);
  }

  /// Number of bits of the last error.
  [[nodiscard]] std::uint32_t GetWidth() const { return width_; }

 private:
  static std::uint32_t ErrorOf(std::int32_t prediction, std::int32_t value) {
    const auto error = static_cast<std::uint32_t>(value) - static_cast<std::uint32_t>(prediction);
    if constexpr (kBits == 16) {
      return static_cast<std::uint32_t>(
          static_cast<std::int32_t>(static_cast<std::int16_t>(error & 0xFFFFu)));
    }
    return error;
  }

  /// The least k with -(2^k - 1) <= error <= 2^k.
  static std::uint32_t WidthOf(std::int32_t error) {
    const std::uint32_t magnitude =
        error <= 0 ? 0u - static_cast<std::uint32_t>(error) : static_cast<std::uint32_t>(error) - 1;
    return static_cast<std::uint32_t>(std::bit_width(magnitude));
  }

  template <typename Coder>
  TARNHOST_LAZ_INLINE std::uint32_t CodeError(Coder& coder, std::uint32_t width,
                                              std::uint32_t error) {
    std::uint32_t code = 0;
    if constexpr (!Coder::kDecodes) {
      code = static_cast<std::int32_t>(error) < 0 ? error + (1u << width) - 1 : error - 1;
    }
    SymbolModel<256>& model = errors_[width - 1];
    if (!model.IsStarted()) [[unlikely]] {
      model.template Start<Coder::kDecodes>(width < 8 ? 1u << width : 256u);
    }
    if (width <= 8) {
      code = coder.Symbol(model, code);
    } else {
      const unsigned lower = width - 8;
      const std::uint32_t high = coder.Symbol(model, code >> lower);
      code = (high << lower) | coder.Raw(lower, code & ((1u << lower) - 1u));
    }
    const std::uint32_t half = 1u << (width - 1);
    return code >= half ? code + 1 : code - ((half << 1) - 1);
  }

  static std::int32_t Fold(std::uint32_t value) {
    if constexpr (kBits == 16) return static_cast<std::int32_t>(value & 0xFFFFu);
    return static_cast<std::int32_t>(value);
  }

  std::array<SymbolModel<kBits + 1>, kContexts> widths_;
  BitModel zeroOrOne_;
  std::array<SymbolModel<256>, (kBits < 32 ? kBits : 31)> errors_;
  std::uint32_t width_ = 0;
};

}  // namespace tarnhost::laz
