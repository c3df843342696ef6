// Lines of a large text, in stretches that can be read one beside the other.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

#include "host/common/SharedProgress.h"
#include "host/formats/converted/NumberText.h"

namespace tarnhost {

/// True for a line that holds a point: not blank, and no comment (# or //).
[[nodiscard]] bool IsRow(std::string_view line);

/// Some lines, as long as about a megabyte.
struct LineStretch {
  std::size_t begin = 0;        ///< bytes from the start of the text
  std::size_t end = 0;          ///< behind the end of its last line
  std::uint64_t firstLine = 0;  ///< number of its first line, from 1
  std::uint64_t firstRow = 0;   ///< number of its first row, from 0
  std::uint64_t rows = 0;
};

/// Cuts a text from `begin` on, which starts line `firstLine`, into stretches. On all cores; told
/// how many bytes are done. kStopped.
Outcome IndexLines(std::string_view text, std::size_t begin, std::uint64_t firstLine,
                   SharedProgress& progress, std::vector<LineStretch>& stretches);

/// One row of a stretch.
struct TextRow {
  std::string_view line;
  std::uint64_t lineNumber = 0;  ///< from 1
  std::uint64_t row = 0;         ///< from 0
};

/// Lets go of the pages of a stretch that was read.
void ForgetStretch(std::string_view text, const LineStretch& stretch);

/// Calls `visit` for each row of a stretch until it answers false. Pages that were read are let go
/// of.
template <typename Visit>
void ForEachRow(std::string_view text, const LineStretch& stretch, const Visit& visit) {
  const std::string_view own = text.substr(0, stretch.end);
  TextRow row{{}, stretch.firstLine, stretch.firstRow};
  for (std::size_t at = stretch.begin; at < stretch.end; ++row.lineNumber) {
    row.line = TakeLine(own, at);
    if (!IsRow(row.line)) continue;
    if (!visit(row)) return;
    ++row.row;
  }
  ForgetStretch(text, stretch);
}

}  // namespace tarnhost
