// A header of words in lines, with which PLY and PCD files begin.
#include "host/formats/converted/HeaderLines.h"

#include "host/formats/converted/NumberText.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

constexpr std::size_t kMostBytes = 1u << 20;

}  // namespace

HeaderLines::HeaderLines(std::span<const std::uint8_t> file, std::string where)
    : text_(reinterpret_cast<const char*>(file.data()), file.size()), where_(std::move(where)) {}

bool HeaderLines::Next() {
  while (at_ < text_.size() && at_ <= kMostBytes) {
    const std::string_view line = TakeLine(text_, at_);
    ++line_;
    SplitWords(line, words_);
    if (!words_.empty()) return true;
  }
  return false;
}

Outcome HeaderLines::Fail(HRESULT code, const std::string& what) const {
  return Outcome::Failure(code, what, where_ + ", line " + std::to_string(line_),
                          "write the scan again with the program that made it");
}

Outcome HeaderLines::FailAtEnd(const std::string& what) const {
  return Outcome::Failure(result::kScanTruncated, what, where_, "copy or download the file again");
}

}  // namespace tarnhost
