// Decodes bits, symbols and plain numbers from one stream of an arithmetic coder.
#pragma once

#include <bit>
#include <cstddef>
#include <cstdint>
#include <span>

#include "OOCPointCloud/support/Bytes.h"
#include "host/formats/laz/ArithmeticModels.h"

namespace tarnhost::laz {

// What takes a coder is inlined into the loop over the points, all of it: a decoder whose address
// is never needed lives in registers, which makes up for a third of the speed.
#if defined(__GNUC__)
#define TARNHOST_LAZ_INLINE_LAMBDA __attribute__((always_inline))
#define TARNHOST_LAZ_INLINE __attribute__((always_inline)) inline
#else
#define TARNHOST_LAZ_INLINE_LAMBDA
#define TARNHOST_LAZ_INLINE inline
#endif

/// Reads whatever it is given without ever leaving it; whether that was sense is asked once, at the
/// end, by IsSound(). Copies are independent readers.
///
/// The functions take a value and return one because the encoder's do too: what both have to do in
/// the same order is written once, for either.
class ArithmeticDecoder {
 public:
  static constexpr bool kDecodes = true;

  ArithmeticDecoder() = default;
  /// `bytes` begin with the stream, which ends at `streamBytes` of them at most; what follows may
  /// be read ahead but is never used.
  explicit ArithmeticDecoder(std::span<const std::uint8_t> bytes)
      : next_(bytes.data()), end_(bytes.data() + bytes.size()) {
    value_ = static_cast<std::uint32_t>(ReadAhead(next_, end_, 4) >> 32);
    next_ += 4;
    // Sound data is always below the length. Steps keep that, so that nothing else needs a check.
    if (value_ == length_) {
      value_ = 0;
      damaged_ = true;
    }
  }

  template <unsigned kMost>
  TARNHOST_LAZ_INLINE std::uint32_t Symbol(SymbolModel<kMost>& model, std::uint32_t /*unused*/) {
    const std::uint32_t unit = length_ >> kSymbolShift;
    const std::uint32_t symbol = model.Find(value_ / unit);
    const std::uint32_t low = model.GetBelow(symbol) * unit;
    const std::uint32_t high =
        symbol == model.GetLast() ? length_ : model.GetBelow(symbol + 1) * unit;
    value_ -= low;
    length_ = high - low;
    Renormalise();
    model.template Count<true>(symbol);
    return symbol;
  }

  TARNHOST_LAZ_INLINE std::uint32_t Bit(BitModel& model, std::uint32_t /*unused*/) {
    const std::uint32_t zero = model.GetProbabilityOfZero() * (length_ >> kBitShift);
    const std::uint32_t bit = value_ >= zero ? 1 : 0;
    if (bit != 0) {
      value_ -= zero;
      length_ -= zero;
    } else {
      length_ = zero;
    }
    Renormalise();
    model.Count(bit);
    return bit;
  }

  /// A number of 1 to 32 bits.
  TARNHOST_LAZ_INLINE std::uint32_t Raw(unsigned bits, std::uint32_t /*unused*/) {
    if (bits <= 19) return ShortRaw(bits);
    const std::uint32_t low = ShortRaw(16);
    return low | ShortRaw(bits - 16) << 16;
  }

  [[nodiscard]] bool IsSound() const { return !damaged_ && next_ <= end_; }
  /// One beyond the last byte used.
  [[nodiscard]] const std::uint8_t* GetNext() const { return next_; }

 private:
  TARNHOST_LAZ_INLINE std::uint32_t ShortRaw(unsigned bits) {
    length_ >>= bits;
    const std::uint32_t value = value_ / length_;
    value_ -= value * length_;
    Renormalise();
    return value & ((1u << bits) - 1u);  // above only in damaged data
  }

  TARNHOST_LAZ_INLINE void Renormalise() {
    if (length_ >= kLeastLength) return;
    // Never zero; the lowest bit says so where it cannot be seen, and changes nothing.
    const unsigned bytes = static_cast<unsigned>(std::countl_zero(length_ | 1u)) >> 3;
    const std::uint64_t ahead =
        end_ - next_ >= 8 ? LoadBigEndian(next_) : ReadAhead(next_, end_, bytes);
    next_ += bytes;
    const unsigned bits = 8 * bytes;
    value_ = (value_ << bits) | static_cast<std::uint32_t>(ahead >> (64 - bits));
    length_ <<= bits;
  }

  TARNHOST_LAZ_INLINE static std::uint64_t LoadBigEndian(const std::uint8_t* bytes) {
    return __builtin_bswap64(oocpc::LoadLittleEndian<std::uint64_t>(bytes));
  }

  /// The next bytes, the first on top; those past the end are zero. Static, so that the decoder's
  /// state need not be in memory.
#if defined(__GNUC__)
  __attribute__((noinline))
#endif
  static std::uint64_t
  ReadAhead(const std::uint8_t* next, const std::uint8_t* end, unsigned bytes) {
    std::uint64_t ahead = 0;
    for (unsigned i = 0; i < bytes; ++i) {
      const std::uint64_t byte = end - next > static_cast<std::ptrdiff_t>(i) ? next[i] : 0;
      ahead |= byte << (56 - 8 * i);
    }
    return ahead;
  }

  std::uint32_t value_ = 0;
  std::uint32_t length_ = 0xFFFFFFFFu;
  const std::uint8_t* next_ = nullptr;
  const std::uint8_t* end_ = nullptr;
  bool damaged_ = false;
};

}  // namespace tarnhost::laz
