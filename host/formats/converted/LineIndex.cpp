// Lines of a large text, in stretches that can be read one beside the other.
#include "host/formats/converted/LineIndex.h"

#include <OOCPointCloud/Repositories.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <cstring>

namespace tarnhost {

namespace {

constexpr std::size_t kStretchBytes = 1u << 20;

/// Counts the lines and the rows of a stretch.
void Count(std::string_view text, const LineStretch& stretch, std::uint64_t& lines,
           std::uint64_t& rows) {
  const std::string_view own = text.substr(0, stretch.end);
  for (std::size_t at = stretch.begin; at < stretch.end;) {
    rows += IsRow(TakeLine(own, at)) ? 1 : 0;
    ++lines;
  }
  ForgetStretch(text, stretch);
}

}  // namespace

void ForgetStretch(std::string_view text, const LineStretch& stretch) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(text.data());
  OOCPCForgetPages({bytes + stretch.begin, stretch.end - stretch.begin});
}

bool IsRow(std::string_view line) {
  std::size_t at = 0;
  while (at < line.size() && IsBlank(line[at])) ++at;
  return at < line.size() && line[at] != '#' && !line.substr(at).starts_with("//");
}

Outcome IndexLines(std::string_view text, std::size_t begin, std::uint64_t firstLine,
                   SharedProgress& progress, std::vector<LineStretch>& stretches) {
  stretches.clear();
  while (begin < text.size()) {
    std::size_t end = text.size();
    if (text.size() - begin > kStretchBytes) {
      const auto found = text.find('\n', begin + kStretchBytes);
      if (found != std::string_view::npos) end = found + 1;
    }
    stretches.push_back({begin, end, 0, 0, 0});
    ForgetStretch(text, stretches.back());  // a look at one page may map many of them
    begin = end;
  }
  std::vector<std::uint64_t> lines(stretches.size());
  tbb::parallel_for(std::size_t{0}, stretches.size(), [&](std::size_t i) {
    if (!progress.GoesOn()) return;
    Count(text, stretches[i], lines[i], stretches[i].rows);
    progress.Add(stretches[i].end - stretches[i].begin);
  });
  if (!progress.GoesOn()) return Outcome::FromCode(oocpc::result::kStopped);
  std::uint64_t row = 0;
  for (std::size_t i = 0; i < stretches.size(); ++i) {
    stretches[i].firstLine = firstLine;
    stretches[i].firstRow = row;
    firstLine += lines[i];
    row += stretches[i].rows;
  }
  return Outcome::Success();
}

}  // namespace tarnhost
