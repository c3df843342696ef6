// How the fields of a source become dimensions: names that are free, and colours as one dimension.
#include "host/formats/converted/FieldNames.h"

#include <algorithm>
#include <array>
#include <optional>

namespace tarnhost {

namespace {

constexpr std::size_t kPositionBytes = 3 * sizeof(std::int32_t);
using ColorFields = std::array<std::size_t, 3>;

/// The names under which formats have red, green and blue.
constexpr std::array<std::array<const char*, 3>, 4> kColorNames{{
    {"red", "green", "blue"},
    {"r", "g", "b"},
    {"diffuse_red", "diffuse_green", "diffuse_blue"},
    {"colorred", "colorgreen", "colorblue"},
}};

std::optional<ColorFields> FindColor(std::span<const ScanField> fields) {
  for (const auto& names : kColorNames) {
    ColorFields color{};
    bool found = true;
    for (std::size_t i = 0; i < 3 && found; ++i) {
      const auto field = std::ranges::find_if(
          fields, [&](const ScanField& one) { return LowerCase(one.name) == names[i]; });
      found = field != fields.end();
      color[i] = static_cast<std::size_t>(field - fields.begin());
    }
    if (found && fields[color[0]].type != oocpc::ValueType::kString &&
        fields[color[0]].type == fields[color[1]].type &&
        fields[color[0]].type == fields[color[2]].type) {
      return color;
    }
  }
  return {};
}

/// Puts a dimension behind the record so far.
FieldPlace Append(FieldLayout& layout, Dimension dimension) {
  const FieldPlace place{layout.recordBytes, oocpc::ValueBytes(dimension.type)};
  layout.recordBytes += place.bytes;
  layout.dimensions.push_back(std::move(dimension));
  layout.dimensionPlaces.push_back(place);
  return place;
}

}  // namespace

std::string LowerCase(std::string_view text) {
  std::string lower(text);
  for (char& letter : lower) {
    if (letter >= 'A' && letter <= 'Z') letter = static_cast<char>(letter - 'A' + 'a');
  }
  return lower;
}

FreeNames::FreeNames()
    : taken_{"DEF_POSITION", "DEF_COLOR", "x",    "y",      "z",
             "red",          "green",     "blue", "source", "source_index"} {}

std::string FreeNames::Take(std::string name) {
  if (name.empty()) name = "field";
  if (taken_.insert(name).second) return name;
  for (std::size_t i = 2;; ++i) {
    std::string numbered = name + "_" + std::to_string(i);
    if (taken_.insert(numbered).second) return numbered;
  }
}

FieldLayout LayOutFields(std::vector<Dimension> before, std::span<const ScanField> fields) {
  FieldLayout layout;
  layout.recordBytes = kPositionBytes;
  FreeNames names;
  for (Dimension& dimension : before) {
    dimension.name = names.Take(std::move(dimension.name));
    Append(layout, std::move(dimension));
  }
  const std::optional<ColorFields> color = FindColor(fields);
  std::optional<FieldPlace> colorPlace;
  for (std::size_t i = 0; i < fields.size(); ++i) {
    const std::size_t bytes = oocpc::ComponentBytes(fields[i].type);
    const auto component = color ? std::ranges::find(*color, i) - color->begin() : 3;
    if (component == 3) {
      layout.fieldPlaces.push_back(
          Append(layout, {names.Take(fields[i].name), {fields[i].type, 1}, fields[i].description}));
      continue;
    }
    if (!colorPlace) {
      colorPlace = Append(layout, {"DEF_COLOR", {fields[i].type, 3}, "red, green and blue"});
    }
    layout.fieldPlaces.push_back(
        {colorPlace->offset + static_cast<std::size_t>(component) * bytes, bytes});
  }
  return layout;
}

}  // namespace tarnhost
