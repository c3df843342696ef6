// Finds out how a text file is laid out before its points.
#include <algorithm>
#include <array>
#include <cctype>

#include "host/formats/converted/FieldNames.h"
#include "host/formats/converted/LineIndex.h"
#include "host/formats/text/TextColumns.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

constexpr std::size_t kSampleRows = 50;
constexpr std::size_t kMostColumns = 1024;
constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

/// The encoding that a byte order mark tells of, when it is one that is not read; else empty.
std::string ForeignEncoding(std::string_view text) {
  using namespace std::string_view_literals;
  // In this order, as one mark begins with another.
  if (text.starts_with("\xFF\xFE\0\0"sv) || text.starts_with("\0\0\xFE\xFF"sv)) return "UTF-32";
  if (text.starts_with("\xFF\xFE"sv) || text.starts_with("\xFE\xFF"sv)) return "UTF-16";
  return {};
}

bool IsNumber(std::string_view word) {
  double value = 0;
  return ParseReal(word, value);
}

bool HasLetter(std::string_view word) {
  return std::ranges::any_of(word, [](unsigned char letter) {
    return letter == '_' || letter >= 0x80 || std::isalpha(letter) != 0;
  });
}

/// A line that names columns: none of its words is a number, and one at least may be a name.
bool IsHeading(const std::vector<std::string_view>& words) {
  return std::ranges::none_of(words, IsNumber) && std::ranges::any_of(words, HasLetter);
}

/// Reads the first lines of a text.
class Reader {
 public:
  Reader(std::string_view text, const ScanOptions& options, std::string where, TextLayout& layout)
      : text_(text), options_(options), where_(std::move(where)), layout_(layout) {}

  Outcome Run() {
    if (const std::string encoding = ForeignEncoding(text_); !encoding.empty()) {
      return Outcome::Failure(result::kScanNotRecognised, "the text is encoded in " + encoding,
                              where_, "save it as UTF-8, as text editors can");
    }
    if (text_.starts_with(kByteOrderMark)) layout_.begin = kByteOrderMark.size();
    for (std::uint64_t i = 0; i < options_.skipLines && layout_.begin < text_.size(); ++i)
      PassLine();
    if (EndsLinesOddly()) {
      return Outcome::Failure(result::kScanNotRecognised,
                              "the lines end with a carriage return alone", where_,
                              "write them with line feeds, as text editors can");
    }
    Sample();
    if (rows_.empty()) return NameColumns(options_.columns.size());
    ChooseSeparator();
    if (IsHeading(Words(0))) {
      heading_ = Words(0);
      PassRows(1);
    } else if (IsCount()) {
      PassRows(1);
    } else {
      heading_ = CommentedHeading();
    }
    Sample();
    return NameColumns(rows_.empty() ? heading_.size() : Words(0).size());
  }

 private:
  /// A carriage return within what seems to be one line would be taken for a blank.
  [[nodiscard]] bool EndsLinesOddly() const {
    std::size_t at = layout_.begin;
    const std::string_view line = TakeLine(text_, at);
    const auto found = line.find('\r');
    return found != std::string_view::npos && found + 1 < line.size();
  }
  void PassLine() {
    (void)TakeLine(text_, layout_.begin);
    ++layout_.firstLine;
  }
  /// Passes over so many rows, and the lines between them.
  void PassRows(std::size_t rows) {
    while (rows > 0) {
      std::size_t at = layout_.begin;
      if (IsRow(TakeLine(text_, at))) --rows;
      PassLine();
    }
  }

  /// The first rows, and the last comment before them.
  void Sample() {
    rows_.clear();
    for (std::size_t at = layout_.begin; at < text_.size() && rows_.size() < kSampleRows;) {
      const std::string_view line = TakeLine(text_, at);
      if (IsRow(line)) {
        rows_.push_back(line);
      } else if (rows_.empty() && line.find_first_not_of("#/ \t") != std::string_view::npos) {
        comment_ = line.substr(line.find_first_not_of("#/ \t"));
      }
    }
  }

  /// The first one that all rows have; blanks otherwise. The number of points alone on the first
  /// line, as some files have it, does not count.
  void ChooseSeparator() {
    const std::size_t first = rows_.size() > 1 ? 1 : 0;
    if (options_.separator) {
      layout_.separator = *options_.separator == ' ' ? '\0' : *options_.separator;
      return;
    }
    for (const char separator : {';', '\t', ',', '|'}) {
      const bool everywhere = std::all_of(
          rows_.begin() + static_cast<std::ptrdiff_t>(first), rows_.end(),
          [&](std::string_view row) { return row.find(separator) != std::string_view::npos; });
      if (!everywhere) continue;
      layout_.separator = separator;
      return;
    }
  }

  [[nodiscard]] std::vector<std::string_view> Words(std::size_t row) const {
    std::vector<std::string_view> words;
    SplitWords(rows_[row], layout_.separator, words);
    return words;
  }

  /// Whether the first row is the number of points.
  [[nodiscard]] bool IsCount() const {
    std::uint64_t count = 0;
    const auto words = Words(0);
    return rows_.size() > 1 && words.size() == 1 && ParseNumber(words[0], count) &&
           Words(1).size() >= 3;
  }

  /// Names in the comment before the points, if there are as many as columns.
  [[nodiscard]] std::vector<std::string_view> CommentedHeading() const {
    std::vector<std::string_view> words;
    SplitWords(comment_, layout_.separator, words);
    if (words.size() != Words(0).size() || !IsHeading(words)) words.clear();
    return words;
  }

  Outcome NameColumns(std::size_t count) {
    if (count > kMostColumns) {
      return Outcome::Failure(
          result::kScanUnsupported,
          "the lines have more than " + std::to_string(kMostColumns) + " columns", where_,
          "leave out some");
    }
    if (!options_.columns.empty() && options_.columns.size() != count) {
      return Outcome::Failure(result::kScanContradictory,
                              "the lines have " + std::to_string(count) + " columns, but " +
                                  std::to_string(options_.columns.size()) + " are named",
                              where_, "name as many, with - for each one to leave out");
    }
    layout_.areNamesGuessed = options_.columns.empty() && heading_.empty();
    for (std::size_t i = 0; i < count; ++i) layout_.names.push_back(NameOf(i, count));
    const auto has = [&](const char* axis) {
      return std::ranges::any_of(layout_.names,
                                 [&](const std::string& name) { return LowerCase(name) == axis; });
    };
    if (has("x") && has("y") && has("z")) return Outcome::Success();
    return Outcome::Failure(result::kScanNotRecognised, "no columns x, y and z are to be found",
                            where_,
                            "name the columns: --columns x,y,z,intensity,… with - for each "
                            "one to leave out; decimals have a point, no comma");
  }

  [[nodiscard]] std::string NameOf(std::size_t column, std::size_t count) const {
    if (!options_.columns.empty()) {
      const std::string& name = options_.columns[column];
      return name == "-" || name == "_" ? std::string() : name;
    }
    if (column < heading_.size() && !heading_[column].empty()) return std::string(heading_[column]);
    if (heading_.empty()) {
      constexpr std::array<const char*, 7> kUsual{"x",   "y",     "z",   "intensity",
                                                  "red", "green", "blue"};
      if (column < 3) return kUsual[column];
      if (count == 4 || count == 7) return kUsual[column];
      if (count == 6) return kUsual[column + 1];
    }
    return "column_" + std::to_string(column + 1);
  }

  std::string_view text_;
  const ScanOptions& options_;
  std::string where_;
  TextLayout& layout_;
  std::vector<std::string_view> rows_;
  std::string_view comment_;
  std::vector<std::string_view> heading_;
};

}  // namespace

Outcome FindTextLayout(std::string_view text, const ScanOptions& options, const std::string& where,
                       TextLayout& layout) {
  layout = {};
  return Reader(text, options, where, layout).Run();
}

}  // namespace tarnhost
