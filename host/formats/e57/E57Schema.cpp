// The fields of all scans of an E57 file as those of one cloud.
#include "host/formats/e57/E57Schema.h"

#include <algorithm>
#include <array>
#include <map>
#include <utility>

namespace tarnhost {

using oocpc::ValueType;

namespace {

constexpr std::array<const char*, 3> kCartesian{"cartesianX", "cartesianY", "cartesianZ"};
constexpr std::array<const char*, 3> kSpherical{"sphericalRange", "sphericalAzimuth",
                                                "sphericalElevation"};

template <std::size_t kCount>
std::size_t IndexIn(const std::array<const char*, kCount>& names, const std::string& name) {
  return static_cast<std::size_t>(
      std::ranges::find_if(names, [&](const char* one) { return name == one; }) - names.begin());
}

bool HasAll(const std::vector<E57Target>& targets, E57Target::Role role) {
  std::array<bool, 3> found{};
  for (const E57Target& target : targets) {
    if (target.role == role) found[target.axis] = true;
  }
  return found[0] && found[1] && found[2];
}

/// The values that fields of one name can have.
struct Range {
  bool isText = false;
  bool isReal = false;
  bool isWide = false;  ///< 64-bit floats, or integers beside floats
  std::int64_t least = 0;
  std::int64_t greatest = 0;

  static Range Of(const E57Field& field) {
    Range range;
    range.isText = field.kind == E57Field::Kind::kText;
    range.isReal = field.kind != E57Field::Kind::kInteger;
    range.isWide = range.isReal && field.kind != E57Field::Kind::kFloat;
    range.least = field.minimum;
    // What the bits can hold, which may be more than the limits stated.
    const unsigned bits = field.GetBits();
    const std::uint64_t most = bits == 64 ? ~std::uint64_t{0} : (std::uint64_t{1} << bits) - 1;
    const auto top = static_cast<std::int64_t>(static_cast<std::uint64_t>(field.minimum) + most);
    range.greatest = top < field.minimum ? std::numeric_limits<std::int64_t>::max() : top;
    return range;
  }
  void Join(const Range& other) {
    isWide = isWide || other.isWide || isReal != other.isReal;
    isReal = isReal || other.isReal;
    least = std::min(least, other.least);
    greatest = std::max(greatest, other.greatest);
  }
  [[nodiscard]] ValueType Type() const {
    if (isText) return ValueType::kString;
    if (isReal) return isWide ? ValueType::kDouble : ValueType::kFloat;
    constexpr std::array kSigned{ValueType::kInt8, ValueType::kInt16, ValueType::kInt32};
    constexpr std::array kUnsigned{ValueType::kUInt8, ValueType::kUInt16, ValueType::kUInt32};
    for (std::size_t i = 0; i < 3; ++i) {
      const std::int64_t half = std::int64_t{1} << (8 * (std::size_t{1} << i) - 1);
      if (least >= 0 && greatest < 2 * half) return kUnsigned[i];
      if (least >= -half && greatest < half) return kSigned[i];
    }
    return ValueType::kInt64;
  }
};

class Builder {
 public:
  explicit Builder(const std::vector<E57Scan>& scans) : scans_(scans) {}

  E57Schema Build() {
    schema_.fields.push_back({"scan_index", ValueType::kUInt32, "number of the scan, from 0"});
    for (const E57Scan& scan : scans_) {
      auto& targets = schema_.targets.emplace_back();
      for (const E57Field& field : scan.fields) targets.push_back(TargetOf(field));
    }
    ChooseKind();
    for (std::size_t i = 0; i < scans_.size(); ++i) AddFields(i);
    for (const auto& [field, range] : ranges_) schema_.fields[field].type = range.Type();
    FindTransform();
    return std::move(schema_);
  }

 private:
  /// Coordinates are computed as soon as one scan was turned, moved, or is not Cartesian.
  void ChooseKind() {
    bool isFloat = true;
    for (std::size_t i = 0; i < scans_.size(); ++i) {
      const E57Scan& scan = scans_[i];
      if (!scan.hasPoints) continue;
      if (!scan.pose.IsIdentity() || !HasAll(schema_.targets[i], E57Target::Role::kCartesian)) {
        schema_.kind = CoordinateKind::kComputed;
        return;
      }
      for (std::size_t field = 0; field < scan.fields.size(); ++field) {
        const bool isNarrow = scan.fields[field].kind == E57Field::Kind::kFloat;
        if (schema_.targets[i][field].role == E57Target::Role::kCartesian && !isNarrow) {
          isFloat = false;
        }
      }
    }
    schema_.kind = isFloat ? CoordinateKind::kFloat : CoordinateKind::kDouble;
  }

  void AddFields(std::size_t scan) {
    using Role = E57Target::Role;
    for (std::size_t i = 0; i < scans_[scan].fields.size(); ++i) {
      E57Target& target = schema_.targets[scan][i];
      const E57Field& source = scans_[scan].fields[i];
      // A state is that of points left out; coordinates are kept where they are not the positions.
      const bool isKept =
          target.role == Role::kField || target.role == Role::kSpherical ||
          (target.role == Role::kCartesian && schema_.kind == CoordinateKind::kComputed);
      if (!isKept) continue;
      const std::string name = E57FieldName(source.name);
      const bool isText = source.kind == E57Field::Kind::kText;
      const auto [place, isNew] = places_.try_emplace({name, isText}, schema_.fields.size());
      if (isNew) schema_.fields.push_back({name, ValueType::kDouble, {}});
      target.field = place->second;
      const Range range = Range::Of(source);
      const auto known = ranges_.find(place->second);
      if (known == ranges_.end()) {
        ranges_.emplace(place->second, range);
      } else {
        known->second.Join(range);
      }
    }
  }

  void FindTransform() {
    if (schema_.kind == CoordinateKind::kComputed) return;
    std::optional<PositionTransform> common;
    for (std::size_t i = 0; i < scans_.size(); ++i) {
      PositionTransform own;
      for (std::size_t field = 0; field < scans_[i].fields.size(); ++field) {
        const E57Target& target = schema_.targets[i][field];
        if (target.role != E57Target::Role::kCartesian) continue;
        if (!scans_[i].fields[field].IsInteger()) return;
        own.scale[target.axis] = scans_[i].fields[field].scale;
        own.offset[target.axis] = scans_[i].fields[field].offset;
      }
      if (!scans_[i].hasPoints) continue;
      if (common && (common->scale != own.scale || common->offset != own.offset)) return;
      common = own;
    }
    schema_.transform = common;
  }

  const std::vector<E57Scan>& scans_;
  E57Schema schema_;
  std::map<std::pair<std::string, bool>, std::size_t> places_;  ///< by name, and whether texts
  std::map<std::size_t, Range> ranges_;
};

}  // namespace

E57Target TargetOf(const E57Field& field) {
  using Role = E57Target::Role;
  E57Target target;
  if (const std::size_t axis = IndexIn(kCartesian, field.name); axis < 3) {
    target.role = Role::kCartesian;
    target.axis = axis;
  } else if (const std::size_t part = IndexIn(kSpherical, field.name); part < 3) {
    target.role = Role::kSpherical;
    target.axis = part;
  } else if (field.name == "cartesianInvalidState") {
    target.role = Role::kCartesianState;
  } else if (field.name == "sphericalInvalidState") {
    target.role = Role::kSphericalState;
  }
  return target;
}

std::string E57FieldName(const std::string& name) {
  if (name == "colorRed") return "red";
  if (name == "colorGreen") return "green";
  if (name == "colorBlue") return "blue";
  if (name.find(':') != std::string::npos) return name;
  std::string snake;
  for (const char letter : name) {
    if (letter >= 'A' && letter <= 'Z') {
      if (!snake.empty()) snake += '_';
      snake += static_cast<char>(letter - 'A' + 'a');
    } else {
      snake += letter;
    }
  }
  return snake;
}

bool E57Schema::HasTexts() const {
  return std::ranges::find(fields, ValueType::kString, &ScanField::type) != fields.end();
}

E57Schema E57Schema::Of(const std::vector<E57Scan>& scans) { return Builder(scans).Build(); }

}  // namespace tarnhost
