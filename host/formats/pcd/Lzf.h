// LZF, the compression inside PCD files.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

namespace tarnhost {

/// The most that a byte of LZF can stand for: three bytes name 264.
inline constexpr std::uint64_t kMostLzfGrowth = 88;
/// How far back LZF repeats bytes.
inline constexpr std::size_t kLzfWindow = 8192;

/// Decompresses bytes a run at a time. Borrows them; one thread at a time.
class LzfReader {
 public:
  explicit LzfReader(std::span<const std::uint8_t> packed) : packed_(packed) {}

  /// Fills `out` with what comes next. What came before has to stand right before it: all of it, or
  /// at least kLzfWindow bytes; `before` says how many. False for bytes that are no LZF, or that
  /// end.
  [[nodiscard]] bool Read(std::span<std::uint8_t> out, std::size_t before);
  /// Whether everything was read.
  [[nodiscard]] bool IsAtEnd() const {
    return in_ == packed_.size() && literals_ == 0 && repeats_ == 0;
  }

 private:
  bool Start();

  std::span<const std::uint8_t> packed_;
  std::size_t in_ = 0;
  std::size_t literals_ = 0;  ///< bytes that still stand there
  std::size_t repeats_ = 0;   ///< bytes to repeat still
  std::size_t distance_ = 0;  ///< from how far back
};

/// Decompresses `packed`, which has to give exactly as many bytes as `out` has. False for bytes
/// that are no such thing.
[[nodiscard]] bool DecompressLzf(std::span<const std::uint8_t> packed, std::span<std::uint8_t> out);

}  // namespace tarnhost
