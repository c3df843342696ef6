// The header of a PLY file: its elements and their properties.
#include "host/formats/ply/PlyHeader.h"

#include <algorithm>
#include <array>
#include <optional>
#include <string_view>
#include <utility>

#include "host/formats/converted/HeaderLines.h"
#include "host/formats/converted/NumberText.h"

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::ValueType;

namespace {

constexpr std::size_t kMostProperties = 1024;

/// Both names that PLY has for each type.
constexpr std::array<std::pair<std::string_view, ValueType>, 16> kTypes{{
    {"char", ValueType::kInt8},
    {"int8", ValueType::kInt8},
    {"uchar", ValueType::kUInt8},
    {"uint8", ValueType::kUInt8},
    {"short", ValueType::kInt16},
    {"int16", ValueType::kInt16},
    {"ushort", ValueType::kUInt16},
    {"uint16", ValueType::kUInt16},
    {"int", ValueType::kInt32},
    {"int32", ValueType::kInt32},
    {"uint", ValueType::kUInt32},
    {"uint32", ValueType::kUInt32},
    {"float", ValueType::kFloat},
    {"float32", ValueType::kFloat},
    {"double", ValueType::kDouble},
    {"float64", ValueType::kDouble},
}};

std::optional<ValueType> TypeOf(std::string_view name) {
  const auto* const found =
      std::ranges::find(kTypes, name, &std::pair<std::string_view, ValueType>::first);
  if (found == kTypes.end()) return {};
  return found->second;
}

bool IsReal(ValueType type) { return type == ValueType::kFloat || type == ValueType::kDouble; }

/// Reads a header line by line.
class Reader {
 public:
  Reader(std::span<const std::uint8_t> file, const std::string& where, PlyHeader& header)
      : lines_(file, where), words_(lines_.GetWords()), header_(header) {}

  Outcome Run() {
    while (lines_.Next()) {
      if (words_[0] == "end_header") return Finish();
      if (Outcome outcome = Read(); !outcome.Ok()) return outcome;
    }
    return lines_.FailAtEnd("the PLY header has no end");
  }

 private:
  [[nodiscard]] Outcome Fail(HRESULT code, const std::string& what) const {
    return lines_.Fail(code, what);
  }

  Outcome Read() {
    const std::string_view what = words_[0];
    if (what == "comment" || what == "obj_info" || lines_.GetLine() == 1) return Outcome::Success();
    if (what == "format") return ReadFormat();
    if (what == "element") return ReadElement();
    if (what == "property") return ReadProperty();
    return Fail(result::kScanContradictory, Quoted(what) + " is no word of a PLY header");
  }

  Outcome ReadFormat() {
    const std::string_view name = words_.size() < 2 ? std::string_view() : words_[1];
    hasFormat_ = true;
    if (name == "ascii") {
      header_.format = PlyFormat::kText;
    } else if (name == "binary_little_endian") {
      header_.format = PlyFormat::kLittleEndian;
    } else if (name == "binary_big_endian") {
      header_.format = PlyFormat::kBigEndian;
    } else {
      return Fail(result::kScanUnsupported,
                  "PLY files of format " + Quoted(name) + " are not read");
    }
    return Outcome::Success();
  }

  Outcome ReadElement() {
    PlyElement element;
    if (words_.size() != 3 || !ParseNumber(words_[2], element.count)) {
      return Fail(result::kScanContradictory, "an element needs a name and a count");
    }
    element.name = words_[1];
    header_.elements.push_back(std::move(element));
    return Outcome::Success();
  }

  Outcome ReadProperty() {
    if (header_.elements.empty()) {
      return Fail(result::kScanContradictory, "a property stands before the first element");
    }
    PlyProperty property;
    property.isList = words_.size() == 5 && words_[1] == "list";
    if (!property.isList && words_.size() != 3) {
      return Fail(result::kScanContradictory, "a property needs a type and a name");
    }
    for (std::size_t i = property.isList ? 2 : 1; i + 1 < words_.size(); ++i) {
      const std::optional<ValueType> type = TypeOf(words_[i]);
      if (!type) return Fail(result::kScanUnsupported, Quoted(words_[i]) + " is no type of PLY");
      (property.isList && i == 2 ? property.countType : property.type) = *type;
    }
    if (property.isList && IsReal(property.countType)) {
      return Fail(result::kScanContradictory, "the length of a list is no integer");
    }
    property.name = words_.back();
    auto& properties = header_.elements.back().properties;
    if (properties.size() == kMostProperties) {
      return Fail(result::kScanUnsupported,
                  "an element has more than " + std::to_string(kMostProperties) + " properties");
    }
    properties.push_back(std::move(property));
    return Outcome::Success();
  }

  Outcome Finish() {
    header_.bytes = lines_.GetEnd();
    header_.lines = lines_.GetLine();
    if (!hasFormat_) return Fail(result::kScanContradictory, "the PLY header states no format");
    const auto vertex = std::ranges::find_if(header_.elements, [](const PlyElement& element) {
      return element.name == "vertex" || element.name == "point";
    });
    if (vertex == header_.elements.end()) {
      return Fail(result::kScanUnsupported, "the PLY file has no element \"vertex\"");
    }
    header_.vertexElement = static_cast<std::size_t>(vertex - header_.elements.begin());
    const auto list = std::ranges::find_if(vertex->properties, &PlyProperty::isList);
    if (list != vertex->properties.end()) {
      Outcome outcome =
          Fail(result::kScanUnsupported,
               "the vertices hold lists (" + Quoted(list->name) + "), a point has single values");
      outcome.remedy = "write the scan without the list";
      return outcome;
    }
    return Outcome::Success();
  }

  HeaderLines lines_;
  const std::vector<std::string_view>& words_;  ///< of the line
  PlyHeader& header_;
  bool hasFormat_ = false;
};

}  // namespace

bool PlyElement::HasLists() const { return std::ranges::any_of(properties, &PlyProperty::isList); }

std::size_t PlyElement::GetFixedBytes() const {
  std::size_t bytes = 0;
  for (const PlyProperty& property : properties) {
    bytes += oocpc::ComponentBytes(property.isList ? property.countType : property.type);
  }
  return bytes;
}

bool IsPly(std::span<const std::uint8_t> file) {
  return file.size() > 3 && file[0] == 'p' && file[1] == 'l' && file[2] == 'y' &&
         (file[3] == '\n' || IsBlank(static_cast<char>(file[3])));
}

Outcome ParsePlyHeader(std::span<const std::uint8_t> file, const std::string& where,
                       PlyHeader& header) {
  header = {};
  return Reader(file, where, header).Run();
}

}  // namespace tarnhost
