// Codes GPS times along up to four sequences, each with a usual step.
#pragma once

#include "host/formats/laz/IntegerCoder.h"

namespace tarnhost::laz {

/// Times are the 64-bit patterns of doubles and stay integers throughout. In the layered scheme
/// "unchanged" has no code of its own: it is said elsewhere.
template <bool kLayered>
class GpsTimeCoder {
 public:
  template <bool kDecodes>
  void Start(std::uint64_t firstTime) {
    whenStill_.template Start<kDecodes>(kLayered ? 5 : 6);
    whenMoving_.template Start<kDecodes>(kLayered ? 515 : 516);
    errors_.template Start<kDecodes>();
    sequences_ = {};
    sequences_[0].time = firstTime;
    current_ = newest_ = 0;
  }

  /// Returns the time read, or given. False in `sound` for codes that lead nowhere.
  template <typename Coder>
  TARNHOST_LAZ_INLINE std::uint64_t Code(Coder& coder, std::uint64_t time, bool& sound) {
    for (unsigned attempt = 0; attempt < kMostAttempts; ++attempt) {
      const bool done =
          sequences_[current_].step == 0 ? CodeStill(coder, time) : CodeMoving(coder, time);
      if (done) return sequences_[current_].time;
    }
    sound = false;
    return sequences_[current_].time;
  }

  [[nodiscard]] std::uint64_t GetTime() const { return sequences_[current_].time; }

 private:
  static constexpr unsigned kMostAttempts = 8;
  static constexpr std::uint32_t kMostMultiple = 500;
  static constexpr std::uint32_t kLeastMultiple = 510;  ///< 501 is -1, 510 is -10
  static constexpr std::uint32_t kMovingUnchanged = 511;
  static constexpr std::uint32_t kMovingNew = 512;
  static constexpr std::uint32_t kStillNew = 2;
  // Codes above count as the pointwise scheme does.
  static constexpr std::uint32_t kWithout = kLayered ? 1 : 0;

  struct Sequence {
    std::uint64_t time = 0;
    std::int32_t step = 0;
    std::uint32_t extremes = 0;
  };

  static std::int32_t Times(std::int32_t factor, std::int32_t step) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(factor) *
                                     static_cast<std::uint32_t>(step));
  }
  void Advance(std::int32_t difference) {
    sequences_[current_].time += static_cast<std::uint64_t>(std::int64_t{difference});
  }
  static std::int64_t Difference(std::uint64_t to, std::uint64_t from) {
    return static_cast<std::int64_t>(to - from);
  }
  static bool Fits(std::int64_t value) { return value == static_cast<std::int32_t>(value); }

  template <typename Coder>
  TARNHOST_LAZ_INLINE bool CodeStill(Coder& coder, std::uint64_t time) {
    std::uint32_t code = 0;
    if constexpr (!Coder::kDecodes) code = ChooseStill(time) - kWithout;
    code = coder.Symbol(whenStill_, code) + kWithout;
    if (code > kStillNew) {
      current_ = (current_ + code - kStillNew) & 3u;
      return false;
    }
    if (code == kStillNew) {
      BeginSequence(coder, time);
    } else if (code == 1) {
      Sequence& sequence = sequences_[current_];
      const auto given = static_cast<std::int32_t>(time - sequence.time);
      sequence.step = errors_.Code(coder, 0, given, 0);
      sequence.extremes = 0;
      Advance(sequence.step);
    }
    return true;
  }

  template <typename Coder>
  TARNHOST_LAZ_INLINE bool CodeMoving(Coder& coder, std::uint64_t time) {
    std::uint32_t code = 0;
    if constexpr (!Coder::kDecodes) {
      code = ChooseMoving(time);
      if (code >= kMovingUnchanged) code -= kWithout;
    }
    code = coder.Symbol(whenMoving_, code);
    if (code >= kMovingUnchanged) {
      code += kWithout;
      if (code == kMovingUnchanged) return true;
      if (code == kMovingNew) {
        BeginSequence(coder, time);
        return true;
      }
      current_ = (current_ + code - kMovingNew) & 3u;
      return false;
    }
    CodeMultiple(coder, code, time);
    return true;
  }

  template <typename Coder>
  TARNHOST_LAZ_INLINE void CodeMultiple(Coder& coder, std::uint32_t code, std::uint64_t time) {
    Sequence& sequence = sequences_[current_];
    const auto signedCode = static_cast<std::int32_t>(code);
    const std::int32_t multiple =
        code <= kMostMultiple ? signedCode : static_cast<std::int32_t>(kMostMultiple) - signedCode;
    const unsigned context = code == 0               ? 7
                             : code == 1             ? 1
                             : code < 10             ? 2
                             : code < kMostMultiple  ? 3
                             : code == kMostMultiple ? 4
                             : code < kLeastMultiple ? 5
                                                     : 6;
    const auto given = static_cast<std::int32_t>(time - sequence.time);
    const std::int32_t step = errors_.Code(coder, Times(multiple, sequence.step), given, context);
    Advance(step);
    if (code == 1) {
      sequence.extremes = 0;
    } else if (code == 0 || code == kMostMultiple || code == kLeastMultiple) {
      if (++sequence.extremes > 3) {
        sequence.step = step;
        sequence.extremes = 0;
      }
    }
  }

  template <typename Coder>
  TARNHOST_LAZ_INLINE void BeginSequence(Coder& coder, std::uint64_t time) {
    const auto last = static_cast<std::int32_t>(sequences_[current_].time >> 32);
    newest_ = (newest_ + 1) & 3u;
    const std::int32_t high = errors_.Code(coder, last, static_cast<std::int32_t>(time >> 32), 8);
    const std::uint32_t low = coder.Raw(32, static_cast<std::uint32_t>(time));
    current_ = newest_;
    sequences_[current_] = {std::uint64_t{static_cast<std::uint32_t>(high)} << 32 | low, 0, 0};
  }

  /// 1, 2 or 3 to go to a sequence from which the time is near; 0 when there is none.
  [[nodiscard]] std::uint32_t FindNear(std::uint64_t time) const {
    for (std::uint32_t i = 1; i < 4; ++i) {
      if (Fits(Difference(time, sequences_[(current_ + i) & 3u].time))) return i;
    }
    return 0;
  }

  [[nodiscard]] std::uint32_t ChooseStill(std::uint64_t time) const {
    const std::int64_t difference = Difference(time, sequences_[current_].time);
    if (!kLayered && difference == 0) return 0;
    return Fits(difference) ? 1 : kStillNew + FindNear(time);
  }

  [[nodiscard]] std::uint32_t ChooseMoving(std::uint64_t time) const {
    const std::int64_t difference = Difference(time, sequences_[current_].time);
    if (!kLayered && difference == 0) return kMovingUnchanged;
    if (!Fits(difference)) return kMovingNew + FindNear(time);
    const float quotient =
        static_cast<float>(difference) / static_cast<float>(sequences_[current_].step);
    if (quotient >= 499.5f) return kMostMultiple;
    if (quotient <= -9.5f) return kLeastMultiple;
    const auto multiple = static_cast<std::int32_t>(quotient + (quotient < 0 ? -0.5f : 0.5f));
    return multiple >= 0 ? static_cast<std::uint32_t>(multiple)
                         : kMostMultiple + static_cast<std::uint32_t>(-multiple);
  }

  SymbolModel<6> whenStill_;
  SymbolModel<516> whenMoving_;
  IntegerCoder<32, 9> errors_;
  std::array<Sequence, 4> sequences_{};
  std::uint32_t current_ = 0;
  std::uint32_t newest_ = 0;
};

}  // namespace tarnhost::laz
