// A header of words in lines, with which PLY and PCD files begin.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// Goes through the lines that have words, one after the other, and tells faults with their lines.
/// Borrows the file's bytes.
class HeaderLines {
 public:
  /// `where` names the file.
  HeaderLines(std::span<const std::uint8_t> file, std::string where);

  /// Goes to the next line that has words; false at the end of the file, and where a header is
  /// longer than any is.
  [[nodiscard]] bool Next();
  /// Of the line; at least one.
  [[nodiscard]] const std::vector<std::string_view>& GetWords() const { return words_; }
  /// Counted from 1.
  [[nodiscard]] std::uint64_t GetLine() const { return line_; }
  /// Bytes up to the end of the line.
  [[nodiscard]] std::size_t GetEnd() const { return at_; }

  /// A fault of the line.
  [[nodiscard]] Outcome Fail(HRESULT code, const std::string& what) const;
  /// The header stops before it is complete. kScanTruncated.
  [[nodiscard]] Outcome FailAtEnd(const std::string& what) const;

 private:
  std::string_view text_;
  std::string where_;
  std::size_t at_ = 0;
  std::uint64_t line_ = 0;
  std::vector<std::string_view> words_;
};

}  // namespace tarnhost
