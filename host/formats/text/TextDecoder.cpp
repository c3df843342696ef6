// The points of a text file: a line a point, a column a dimension.
#include "host/formats/text/TextDecoder.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <optional>
#include <unordered_set>

#include "host/formats/converted/ConvertedScan.h"
#include "host/formats/converted/FieldNames.h"
#include "host/formats/converted/NumberText.h"
#include "host/formats/converted/TableDecoder.h"
#include "host/formats/text/TextColumns.h"

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::ValueType;

namespace {

constexpr std::size_t kMostHeaderBytes = 1u << 20;

/// What the rows of a stretch hold.
struct StretchContent {
  std::vector<ColumnContent> columns;
  std::uint64_t oddLine = 0;  ///< the first one with another number of words; 0 for none
  std::size_t oddWords = 0;
};

/// Whether a word, in quotation marks, would be a number if it had a point for its comma.
bool HasDecimalComma(std::string word) {
  if (std::ranges::count(word, ',') != 1 || word.size() < 2) return false;
  std::ranges::replace(word, ',', '.');
  double ignored = 0;
  return ParseReal(std::string_view(word).substr(1, word.size() - 2), ignored);
}

class TextDecoder final : public PointDecoder {
 public:
  TextDecoder(std::span<const std::uint8_t> file, std::string where)
      : text_(reinterpret_cast<const char*>(file.data()), file.size()),
        header_(file),
        where_(std::move(where)) {}

  Outcome Load(const ScanOptions& options) {
    if (Outcome outcome = FindTextLayout(text_, options, where_, layout_); !outcome.Ok()) {
      return outcome;
    }
    header_ = header_.first(std::min(layout_.begin, kMostHeaderBytes));
    // The bytes are gone through twice, and once more where there are texts.
    std::uint64_t total = 2 * (text_.size() - layout_.begin);
    SharedProgress progress([&](std::uint64_t done) {
      return !options.progress || options.progress({"opening", done, total, "bytes"});
    });
    Outcome outcome = IndexLines(text_, layout_.begin, layout_.firstLine, progress, stretches_);
    StretchContent content;
    content.columns.resize(layout_.names.size());
    if (outcome.Ok()) outcome = Look(progress, content);
    if (outcome.Ok()) outcome = MakeTable(content);
    if (!outcome.Ok() || !HasTexts()) return outcome;
    total += text_.size() - layout_.begin;
    return CollectTexts(progress);
  }

  const std::vector<ScanField>& GetFields() const override { return table_.fields; }
  CoordinateKind GetCoordinateKind() const override { return CoordinateKind::kDouble; }
  std::array<int, 3> GetDecimals() const override { return decimals_; }
  std::span<const std::uint8_t> GetHeader() const override { return header_; }
  std::span<const std::string> GetStrings() const override { return table_.texts.GetTexts(); }
  std::uint64_t GetRowCount() const override { return table_.rowCount; }
  std::vector<std::string> GetNotices() const override { return notices_; }
  std::size_t GetPartCount() const override { return stretches_.size(); }
  Outcome Decode(std::size_t part, bool withFields, const RowSink& take) const override {
    return DecodeTextRows(table_, text_, stretches_[part], 0, where_, withFields, take);
  }

 private:
  [[nodiscard]] bool IsCoordinate(std::size_t column) const {
    const std::string& name = layout_.names[column];
    return name.size() == 1 && std::string_view("xyzXYZ").find(name[0]) != std::string_view::npos;
  }

  void LookAt(const LineStretch& stretch, StretchContent& content) const {
    std::vector<std::string_view> words;
    ForEachRow(text_, stretch, [&](const TextRow& row) {
      SplitWords(row.line, layout_.separator, words);
      if (words.size() != content.columns.size()) {
        content.oddLine = row.lineNumber;
        content.oddWords = words.size();
        return false;  // the first one says enough
      }
      for (std::size_t i = 0; i < words.size(); ++i) {
        if (layout_.names[i].empty()) continue;
        content.columns[i].Add(words[i], row.lineNumber, IsCoordinate(i));
      }
      return true;
    });
  }

  Outcome Look(SharedProgress& progress, StretchContent& content) const {
    std::vector<StretchContent> parts(stretches_.size(), content);
    tbb::parallel_for(std::size_t{0}, parts.size(), [&](std::size_t i) {
      if (!progress.GoesOn()) return;
      LookAt(stretches_[i], parts[i]);
      progress.Add(stretches_[i].end - stretches_[i].begin);
    });
    if (!progress.GoesOn()) return Outcome::FromCode(result::kStopped);
    for (const StretchContent& part : parts) {
      for (std::size_t i = 0; i < part.columns.size(); ++i)
        content.columns[i].Join(part.columns[i]);
      if (part.oddLine == 0) continue;
      return Outcome::Failure(result::kScanContradictory,
                              "the line has " + std::to_string(part.oddWords) +
                                  " values, those before it " +
                                  std::to_string(content.columns.size()),
                              where_ + ", line " + std::to_string(part.oddLine),
                              "correct the line, or leave out lines at the start with --skip");
    }
    return Outcome::Success();
  }

  /// Of a column that holds words: its name, unless that means numbers.
  Outcome TakeForTexts(std::size_t index, const ColumnContent& column, std::string& name) {
    // A guess that was wrong is none any more.
    if (layout_.areNamesGuessed && !IsCoordinate(index)) {
      name = "column_" + std::to_string(index + 1);
    }
    if (MeansNumbers(name)) {
      return Outcome::Failure(
          result::kScanContradictory,
          column.GetTextWord() + " in column " + Quoted(name) + " is no number",
          where_ + ", line " + std::to_string(column.GetTextLine()),
          HasDecimalComma(column.GetTextWord())
              ? "write decimals with a point, no comma"
              : "correct it, or give the column another name, or leave it out with - in its place: "
                "--columns x,y,z,-,…");
    }
    notices_.push_back("column " + Quoted(name) + " holds texts, as " + column.GetTextWord() +
                       " in line " + std::to_string(column.GetTextLine()));
    return Outcome::Success();
  }

  Outcome MakeTable(const StretchContent& content) {
    table_.separator = layout_.separator;
    table_.areLinesCounted = true;
    table_.rowCount = stretches_.empty() ? 0 : stretches_.back().firstRow + stretches_.back().rows;
    for (std::size_t i = 0; i < content.columns.size(); ++i) {
      const ColumnContent& column = content.columns[i];
      std::string name = layout_.names[i];
      if (column.GetTextLine() != 0) {
        if (Outcome outcome = TakeForTexts(i, column, name); !outcome.Ok()) return outcome;
      }
      if (name.empty() || (column.IsEmpty() && table_.rowCount > 0 && !IsCoordinate(i))) {
        table_.AddSkipped(ValueType::kDouble);
        continue;
      }
      table_.Add(name, IsCoordinate(i) ? ValueType::kDouble : column.ChooseType(name));
      const int role = table_.columns.back().role;
      if (role < TableColumn::kField) {
        decimals_[static_cast<std::size_t>(role)] = column.GetDecimals();
      }
    }
    (void)table_.HasCoordinates();
    WidenColor();
    return Outcome::Success();
  }

  [[nodiscard]] bool HasTexts() const {
    return std::ranges::find(table_.columns, ValueType::kString, &TableColumn::type) !=
           table_.columns.end();
  }

  /// The texts of a stretch, each one once, in their order.
  [[nodiscard]] std::vector<std::string_view> TextsOf(const LineStretch& stretch) const {
    std::unordered_set<std::string_view> seen;
    std::vector<std::string_view> texts;
    std::vector<std::string_view> words;
    ForEachRow(text_, stretch, [&](const TextRow& row) {
      SplitWords(row.line, layout_.separator, words);
      for (std::size_t i = 0; i < table_.columns.size(); ++i) {
        if (table_.columns[i].type != ValueType::kString) continue;
        if (seen.insert(words[i]).second) texts.push_back(words[i]);
      }
      return true;
    });
    return texts;
  }

  Outcome CollectTexts(SharedProgress& progress) {
    constexpr std::size_t kAtOnce = 64;
    std::vector<std::vector<std::string_view>> found(kAtOnce);
    for (std::size_t first = 0; first < stretches_.size(); first += kAtOnce) {
      const std::size_t count = std::min(kAtOnce, stretches_.size() - first);
      tbb::parallel_for(std::size_t{0}, count, [&](std::size_t i) {
        found[i] = TextsOf(stretches_[first + i]);
        progress.Add(stretches_[first + i].end - stretches_[first + i].begin);
      });
      if (!progress.GoesOn()) return Outcome::FromCode(result::kStopped);
      for (std::size_t i = 0; i < count; ++i) {
        for (const std::string_view word : found[i]) {
          const bool isKept =
              layout_.separator == 0 ? table_.texts.Add(word) : table_.texts.Add(Unquoted(word));
          if (!isKept) return TooManyTexts();
        }
      }
    }
    return Outcome::Success();
  }

  [[nodiscard]] Outcome TooManyTexts() const {
    return Outcome::Failure(result::kScanUnsupported,
                            "its columns hold more different texts than can be kept (" +
                                std::to_string(TextDictionary::kMostTexts) + ", or " +
                                std::to_string(TextDictionary::kMostBytes) + " bytes together)",
                            where_,
                            "leave such columns out with - in their place: --columns x,y,z,-,…");
  }

  /// Gives red, green and blue the type of the widest of them.
  void WidenColor() {
    for (const auto& names : {std::array{"red", "green", "blue"}, std::array{"r", "g", "b"}}) {
      std::vector<TableColumn*> found;
      for (TableColumn& column : table_.columns) {
        if (column.role != TableColumn::kField) continue;
        const std::string name = LowerCase(table_.fields[column.field].name);
        if (std::ranges::any_of(names, [&](const char* one) { return name == one; })) {
          found.push_back(&column);
        }
      }
      if (found.size() != names.size()) continue;
      // The numbers of the types ascend with their widths, but for 64-bit integers beside floats.
      const auto widest = std::ranges::max(found, {}, &TableColumn::type);
      const ValueType type = widest->type;
      for (TableColumn* column : found) column->type = table_.fields[column->field].type = type;
    }
  }

  std::string_view text_;
  std::span<const std::uint8_t> header_;
  std::string where_;
  TextLayout layout_;
  std::vector<LineStretch> stretches_;
  Table table_;
  std::array<int, 3> decimals_{};
  std::vector<std::string> notices_;
};

}  // namespace

bool HasTextEnding(const std::filesystem::path& path) {
  constexpr std::array<const char*, 5> kEndings{".xyz", ".txt", ".csv", ".asc", ".pts"};
  const std::string ending = LowerCase(path.extension().string());
  return std::ranges::any_of(kEndings, [&](const char* one) { return ending == one; });
}

Outcome OpenText(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource> bytes,
                 const ScanOptions& options, std::unique_ptr<ScanFile>& scan) {
  auto decoder = std::make_unique<TextDecoder>(bytes->GetBytes(), path.string());
  if (Outcome outcome = decoder->Load(options); !outcome.Ok()) return outcome;
  return ConvertedScan::Open(path, std::move(bytes), options, std::move(decoder), scan);
}

}  // namespace tarnhost
