// Lines of a large text, in stretches that can be read one beside the other.
#include "host/formats/converted/LineIndex.h"

#include <OOCPointCloud/Repositories.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstring>

namespace tarnhost {

namespace {

constexpr std::size_t kStretchBytes = 1u << 20;

void Forget(std::string_view text, const LineStretch& stretch) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  OOCPCForgetPages({bytes + stretch.begin, stretch.end - stretch.begin});
}

/// Counts the lines and the rows of a stretch.
void Count(std::string_view text, const LineStretch& stretch, std::uint64_t& lines,
           std::uint64_t& rows) {
  const std::string_view own = text.substr(0, stretch.end);
  for (std::size_t at = stretch.begin; at < stretch.end;) {
    rows += IsRow(TakeLine(own, at)) ? 1 : 0;
    ++lines;
  }
  Forget(text, stretch);
}

}  // namespace

bool IsRow(std::string_view line) {
  std::size_t at = 0;
  while (at < line.size() && IsBlank(line[at])) ++at;
  return at < line.size() && line[at] != '#' && !line.substr(at).starts_with("//");
}

std::vector<LineStretch> IndexLines(std::string_view text, std::size_t begin,
                                    std::uint64_t firstLine) {
  std::vector<LineStretch> stretches;
  while (begin < text.size()) {
    std::size_t end = text.size();
    if (text.size() - begin > kStretchBytes) {
      const auto found = text.find('\n', begin + kStretchBytes);
      if (found != std::string_view::npos) end = found + 1;
    }
    stretches.push_back({begin, end, 0, 0, 0});
    begin = end;
  }
  std::vector<std::uint64_t> lines(stretches.size());
  tbb::parallel_for(std::size_t{0}, stretches.size(),
                    [&](std::size_t i) { Count(text, stretches[i], lines[i], stretches[i].rows); });
  std::uint64_t row = 0;
  for (std::size_t i = 0; i < stretches.size(); ++i) {
    stretches[i].firstLine = firstLine;
    stretches[i].firstRow = row;
    firstLine += lines[i];
    row += stretches[i].rows;
  }
  return stretches;
}

Outcome ForEachRow(std::string_view text, const LineStretch& stretch,
                   const std::function<Outcome(const TextRow&)>& visit) {
  const std::string_view own = text.substr(0, stretch.end);
  TextRow row{{}, stretch.firstLine, stretch.firstRow};
  for (std::size_t at = stretch.begin; at < stretch.end; ++row.lineNumber) {
    row.line = TakeLine(own, at);
    if (!IsRow(row.line)) continue;
    if (Outcome outcome = visit(row); !outcome.Ok()) return outcome;
    ++row.row;
  }
  Forget(text, stretch);
  return Outcome::Success();
}

}  // namespace tarnhost
