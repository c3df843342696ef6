// The header of a PCD file.
#include "host/formats/pcd/PcdHeader.h"

#include <algorithm>
#include <optional>
#include <string_view>

#include "host/formats/converted/HeaderLines.h"
#include "host/formats/converted/NumberText.h"

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::ValueType;

namespace {

/// Values of a point: more than histograms of features have, and few enough for a record.
constexpr std::size_t kMostValues = 1024;

std::optional<ValueType> TypeOf(std::string_view letter, std::uint32_t bytes) {
  if (letter == "F" && bytes == 4) return ValueType::kFloat;
  if (letter == "F" && bytes == 8) return ValueType::kDouble;
  const bool isSigned = letter == "I";
  if (!isSigned && letter != "U") return {};
  switch (bytes) {
    case 1:
      return isSigned ? ValueType::kInt8 : ValueType::kUInt8;
    case 2:
      return isSigned ? ValueType::kInt16 : ValueType::kUInt16;
    case 4:
      return isSigned ? ValueType::kInt32 : ValueType::kUInt32;
    case 8:
      return isSigned ? ValueType::kInt64 : ValueType::kUInt64;
    default:
      return {};
  }
}

/// Reads a header line by line.
class Reader {
 public:
  Reader(std::span<const std::uint8_t> file, const std::string& where, PcdHeader& header)
      : lines_(file, where), words_(lines_.GetWords()), header_(header) {}

  Outcome Run() {
    while (lines_.Next()) {
      if (words_[0].starts_with('#')) continue;
      if (Outcome outcome = Read(); !outcome.Ok()) return outcome;
      if (words_[0] == "DATA") return Finish();
    }
    return lines_.FailAtEnd("the PCD header has no line DATA");
  }

 private:
  [[nodiscard]] Outcome Fail(HRESULT code, const std::string& what) const {
    return lines_.Fail(code, what);
  }

  Outcome Read() {
    const std::string_view what = words_[0];
    if (what == "VERSION" || what == "VIEWPOINT") return Outcome::Success();
    if (what == "FIELDS" || what == "COLUMNS") return ReadNames();
    if (what == "SIZE") return ReadNumbers(sizes_);
    if (what == "COUNT") return ReadNumbers(counts_);
    if (what == "TYPE") {
      types_.assign(words_.begin() + 1, words_.end());
      return Outcome::Success();
    }
    if (what == "WIDTH") return ReadNumber(width_);
    if (what == "HEIGHT") return ReadNumber(height_);
    if (what == "POINTS") return ReadNumber(points_);
    if (what == "DATA") return ReadData();
    return Fail(result::kScanContradictory, Quoted(what) + " is no word of a PCD header");
  }

  Outcome ReadNames() {
    header_.fields.clear();
    if (words_.size() - 1 > kMostValues) return TooMany();
    for (std::size_t i = 1; i < words_.size(); ++i) {
      header_.fields.push_back({std::string(words_[i]), ValueType::kFloat, 1});
    }
    return Outcome::Success();
  }
  Outcome TooMany() const {
    return Fail(result::kScanUnsupported,
                "a point has more than " + std::to_string(kMostValues) + " values");
  }

  Outcome ReadNumbers(std::vector<std::uint32_t>& numbers) {
    numbers.clear();
    for (std::size_t i = 1; i < words_.size(); ++i) {
      std::uint32_t number = 0;
      if (!ParseNumber(words_[i], number)) {
        return Fail(result::kScanContradictory, Quoted(words_[i]) + " is no whole number");
      }
      numbers.push_back(number);
    }
    return Outcome::Success();
  }

  Outcome ReadNumber(std::optional<std::uint64_t>& number) {
    std::uint64_t value = 0;
    if (words_.size() != 2 || !ParseNumber(words_[1], value)) {
      return Fail(result::kScanContradictory, "the line needs one whole number");
    }
    number = value;
    return Outcome::Success();
  }

  Outcome ReadData() {
    const std::string_view name = words_.size() < 2 ? std::string_view() : words_[1];
    if (name == "ascii") {
      header_.data = PcdData::kText;
    } else if (name == "binary") {
      header_.data = PcdData::kBinary;
    } else if (name == "binary_compressed") {
      header_.data = PcdData::kCompressed;
    } else {
      return Fail(result::kScanUnsupported, "PCD data of kind " + Quoted(name) + " is not read");
    }
    return Outcome::Success();
  }

  Outcome Finish() {
    header_.bytes = lines_.GetEnd();
    header_.lines = lines_.GetLine();
    const std::size_t count = header_.fields.size();
    if (counts_.empty()) counts_.assign(count, 1);
    if (count == 0 || sizes_.size() != count || types_.size() != count || counts_.size() != count) {
      return Fail(result::kScanContradictory,
                  "FIELDS, SIZE, TYPE and COUNT do not name the same number of fields");
    }
    std::uint64_t values = 0;
    for (std::size_t i = 0; i < count; ++i) {
      const std::optional<ValueType> type = TypeOf(types_[i], sizes_[i]);
      if (!type) {
        return Fail(result::kScanUnsupported, "field " + Quoted(header_.fields[i].name) +
                                                  " has type " + Quoted(types_[i]) + " of " +
                                                  std::to_string(sizes_[i]) + " bytes");
      }
      header_.fields[i].type = *type;
      header_.fields[i].count = counts_[i];
      values += counts_[i];
      if (values > kMostValues) return TooMany();
    }
    return CountPoints();
  }

  Outcome CountPoints() {
    if (!points_ && !width_) {
      return Fail(result::kScanContradictory, "neither POINTS nor WIDTH is stated");
    }
    const std::uint64_t width = width_.value_or(0);
    const std::uint64_t height = height_.value_or(1);
    const bool wraps = height != 0 && width > ~std::uint64_t{0} / height;
    header_.pointCount = points_ ? *points_ : width * height;
    if ((width_ && wraps) || (width_ && points_ && *points_ != width * height)) {
      return Fail(result::kScanContradictory, "POINTS is not WIDTH times HEIGHT");
    }
    return Outcome::Success();
  }

  HeaderLines lines_;
  const std::vector<std::string_view>& words_;  ///< of the line
  PcdHeader& header_;
  std::vector<std::uint32_t> sizes_;
  std::vector<std::uint32_t> counts_;
  std::vector<std::string_view> types_;
  std::optional<std::uint64_t> width_;
  std::optional<std::uint64_t> height_;
  std::optional<std::uint64_t> points_;
};

}  // namespace

bool IsPcd(std::span<const std::uint8_t> file) {
  constexpr std::size_t kLooked = 4096;
  const std::string_view text(reinterpret_cast<const char*>(file.data()),
                              std::min(file.size(), kLooked));
  if (text.starts_with("# .PCD")) return true;
  // Comments aside, the version and the fields stand first.
  bool hasVersion = false;
  for (std::size_t at = 0; at < text.size();) {
    const std::string_view line = TakeLine(text, at);
    if (line.empty() || line.starts_with('#')) continue;
    if (line.starts_with("FIELDS ") || line.starts_with("COLUMNS ")) return hasVersion;
    if (!line.starts_with("VERSION ")) return false;
    hasVersion = true;
  }
  return false;
}

Outcome ParsePcdHeader(std::span<const std::uint8_t> file, const std::string& where,
                       PcdHeader& header) {
  header = {};
  return Reader(file, where, header).Run();
}

}  // namespace tarnhost
