// The adaptive models of the arithmetic coder: how likely each outcome is, learnt as it goes.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <type_traits>

namespace tarnhost::laz {

inline constexpr std::uint32_t kLeastLength = 1u << 24;  ///< the coder renormalises below it
inline constexpr unsigned kBitShift = 13;                ///< bit probabilities are 13-bit numbers
inline constexpr unsigned kSymbolShift = 15;             ///< cumulative frequencies 15-bit ones

/// Two outcomes.
class BitModel {
 public:
  BitModel() { Start(); }
  void Start() { *this = BitModel(Fresh{}); }

  [[nodiscard]] std::uint32_t GetProbabilityOfZero() const { return probabilityOfZero_; }
  void Count(std::uint32_t bit) {
    zeros_ += 1 - bit;
    if (--left_ == 0) Update();
  }

 private:
  struct Fresh {};
  explicit BitModel(Fresh /*tag*/)
      : zeros_(1), bits_(2), probabilityOfZero_(1u << (kBitShift - 1)), cycle_(4), left_(4) {}
  void Update();

  std::uint32_t zeros_;
  std::uint32_t bits_;
  std::uint32_t probabilityOfZero_;
  std::uint32_t cycle_;
  std::uint32_t left_;
};

/// Up to kMost outcomes, numbered from 0. The state is made by Start(); a model whose memory was
/// set to zero, or on which Forget() was called, says so, and is started on first use.
template <unsigned kMost>
class SymbolModel {
 public:
  /// Units of cumulative frequency that one entry of the decoder's table spans.
  static constexpr unsigned kTableShift = kMost <= 16 ? 9 : kMost <= 64 ? 7 : 6;
  /// One more entry than 2^15 needs: a quotient may come out slightly above.
  static constexpr unsigned kTableEntries = (1u << (kSymbolShift - kTableShift)) + 1;
  using TableEntry = std::conditional_t<(kMost > 256), std::uint16_t, std::uint8_t>;

  void Forget() { total_ = 0; }
  [[nodiscard]] bool IsStarted() const { return total_ != 0; }

  /// All of `symbols` outcomes are equally likely.
  template <bool kDecodes>
  void Start(unsigned symbols) {
    last_ = static_cast<std::uint16_t>(symbols - 1);
    for (unsigned i = 0; i < symbols; ++i) counts_[i] = 1;
    total_ = 0;
    cycle_ = symbols;
    Update<kDecodes>();
    cycle_ = left_ = (symbols + 6) >> 1;
  }

  [[nodiscard]] std::uint32_t GetLast() const { return last_; }
  /// Cumulative frequency below a symbol, which may be one beyond the last.
  [[nodiscard]] std::uint32_t GetBelow(std::uint32_t symbol) const { return below_[symbol]; }

  /// The symbol in whose interval a quotient lies.
  [[nodiscard]] std::uint32_t Find(std::uint32_t quotient) const {
    std::uint32_t symbol = table_[quotient >> kTableShift];
    while (below_[symbol + 1] <= quotient) ++symbol;
    return symbol;
  }

  template <bool kDecodes>
  void Count(std::uint32_t symbol) {
    ++counts_[symbol];
    if (--left_ == 0) [[unlikely]] {
      Update<kDecodes>();
    }
  }

 private:
  template <bool kDecodes>
#if defined(__GNUC__)
  __attribute__((noinline))
#endif
  void
  Update();
  void Halve();
  void FillTable();

  static constexpr std::uint32_t kMostCounted = 1u << kSymbolShift;

  std::uint32_t total_ = 0;
  std::uint32_t left_ = 0;
  std::uint32_t cycle_ = 0;
  std::uint16_t last_ = 0;
  std::array<std::uint16_t, kMost + 1> below_;
  std::array<std::uint16_t, kMost> counts_;
  std::array<TableEntry, kTableEntries> table_;
};

inline void BitModel::Update() {
  bits_ += cycle_;
  if (bits_ > (1u << kBitShift)) {
    bits_ = (bits_ + 1) >> 1;
    zeros_ = (zeros_ + 1) >> 1;
    if (zeros_ == bits_) ++bits_;
  }
  probabilityOfZero_ = (zeros_ * (0x80000000u / bits_)) >> (31 - kBitShift);
  cycle_ = (5 * cycle_) >> 2;
  if (cycle_ > 64) cycle_ = 64;
  left_ = cycle_;
}

template <unsigned kMost>
template <bool kDecodes>
void SymbolModel<kMost>::Update() {
  total_ += cycle_;
  if (total_ > kMostCounted) Halve();
  const std::uint32_t scale = 0x80000000u / total_;
  std::uint32_t sum = 0;
  for (unsigned i = 0; i <= last_; ++i) {
    below_[i] = static_cast<std::uint16_t>((scale * sum) >> (31 - kSymbolShift));
    sum += counts_[i];
  }
  below_[last_ + 1u] = 0xFFFF;  // stops every search
  if constexpr (kDecodes) FillTable();
  const std::uint32_t slowest = (last_ + 7u) * 8;
  cycle_ = (5 * cycle_) >> 2;
  if (cycle_ > slowest) cycle_ = slowest;
  left_ = cycle_;
}

template <unsigned kMost>
void SymbolModel<kMost>::Halve() {
  total_ = 0;
  for (unsigned i = 0; i <= last_; ++i) {
    counts_[i] = static_cast<std::uint16_t>((counts_[i] + 1u) >> 1);
    total_ += counts_[i];
  }
}

/// The entry of a stretch is the symbol in which the stretch begins.
template <unsigned kMost>
void SymbolModel<kMost>::FillTable() {
  constexpr std::uint32_t kRound = (1u << kTableShift) - 1;
  std::uint32_t entry = 0;
  for (unsigned i = 0; i < last_; ++i) {
    const std::uint32_t end = (below_[i + 1] + kRound) >> kTableShift;
    for (; entry < end; ++entry) table_[entry] = static_cast<TableEntry>(i);
  }
  for (; entry < kTableEntries; ++entry) table_[entry] = static_cast<TableEntry>(last_);
}

}  // namespace tarnhost::laz
