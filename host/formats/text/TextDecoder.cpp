// The points of a text file: a line a point, a column a dimension.
#include "host/formats/text/TextDecoder.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <optional>

#include "host/formats/converted/ConvertedScan.h"
#include "host/formats/converted/FieldNames.h"
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
    stretches_ = IndexLines(text_, layout_.begin, layout_.firstLine);
    StretchContent content;
    content.columns.resize(layout_.names.size());
    if (Outcome outcome = Look(content); !outcome.Ok()) return outcome;
    return MakeTable(content);
  }

  const std::vector<ScanField>& GetFields() const override { return table_.fields; }
  CoordinateKind GetCoordinateKind() const override { return CoordinateKind::kDouble; }
  std::array<int, 3> GetDecimals() const override { return decimals_; }
  std::span<const std::uint8_t> GetHeader() const override { return header_; }
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
    (void)ForEachRow(text_, stretch, [&](const TextRow& row) {
      SplitWords(row.line, layout_.separator, words);
      if (words.size() != content.columns.size()) {
        content.oddLine = row.lineNumber;
        content.oddWords = words.size();
        return Outcome::FromCode(result::kStopped);  // the first one says enough
      }
      for (std::size_t i = 0; i < words.size(); ++i) {
        if (layout_.names[i].empty()) continue;
        content.columns[i].Add(words[i], row.lineNumber, IsCoordinate(i));
      }
      return Outcome::Success();
    });
  }

  Outcome Look(StretchContent& content) const {
    std::vector<StretchContent> parts(stretches_.size(), content);
    tbb::parallel_for(std::size_t{0}, parts.size(),
                      [&](std::size_t i) { LookAt(stretches_[i], parts[i]); });
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

  Outcome MakeTable(const StretchContent& content) {
    table_.separator = layout_.separator;
    table_.rowCount = stretches_.empty() ? 0 : stretches_.back().firstRow + stretches_.back().rows;
    for (std::size_t i = 0; i < content.columns.size(); ++i) {
      const ColumnContent& column = content.columns[i];
      const std::string& name = layout_.names[i];
      if (column.GetBadLine() != 0) {
        return Outcome::Failure(
            result::kScanContradictory,
            column.GetBadWord() + " in column " + Quoted(name) + " is no number",
            where_ + ", line " + std::to_string(column.GetBadLine()),
            "leave the column out with - in its place: --columns x,y,z,-,…");
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
  return ConvertedScan::Open(path, std::move(bytes), std::move(decoder), scan);
}

}  // namespace tarnhost
