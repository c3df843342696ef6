// What the XML section of an E57 file says of its scans.
#include "host/formats/e57/E57Xml.h"

#include <bit>
#include <cmath>
#include <pugixml.hpp>

#include "host/formats/converted/NumberText.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

constexpr std::size_t kMostScans = 1u << 20;
constexpr std::size_t kMostFields = 1024;
constexpr int kMostDepth = 8;
constexpr const char* kRemedy = "write the scan again with the program that made it";

std::string_view Trimmed(std::string_view text) {
  const auto isSpace = [](char letter) { return letter == '\n' || IsBlank(letter); };
  while (!text.empty() && isSpace(text.front())) text.remove_prefix(1);
  while (!text.empty() && isSpace(text.back())) text.remove_suffix(1);
  return text;
}

/// Reads the scans out of the tree.
class Reader {
 public:
  Reader(std::string where, std::vector<E57Scan>& scans)
      : where_(std::move(where)), scans_(scans) {}

  Outcome Run(const pugi::xml_node& root) {
    for (const pugi::xml_node& child : root.child("data3D").children()) {
      if (child.type() != pugi::node_element) continue;
      if (scans_.size() == kMostScans) return Fail("there are too many scans");
      scans_.emplace_back();
      if (Outcome outcome = ReadScan(child, scans_.back()); !outcome.Ok()) return outcome;
    }
    return Outcome::Success();
  }

 private:
  Outcome Fail(const std::string& what, HRESULT code = result::kScanContradictory) const {
    const std::string place = scans_.empty() ? "" : ", scan " + std::to_string(scans_.size() - 1);
    return Outcome::Failure(code, what, where_ + ", XML section" + place, kRemedy);
  }

  template <typename T>
  Outcome ReadAttribute(const pugi::xml_node& node, const char* name, T& value) const {
    const pugi::xml_attribute attribute = node.attribute(name);
    if (!attribute) return Outcome::Success();
    const std::string_view text = Trimmed(attribute.value());
    bool isRead = false;
    if constexpr (std::is_same_v<T, double>) {
      isRead = ParseReal(text, value) && std::isfinite(value);
    } else {
      isRead = ParseNumber(text, value);
    }
    if (isRead) return Outcome::Success();
    return Fail(std::string(name) + " of " + Quoted(node.name()) + " is " + Quoted(text) +
                ", which is no number");
  }

  /// The number that an element holds; `value` stays for one that is missing, an empty one is zero.
  Outcome ReadElement(const pugi::xml_node& parent, const char* name, double& value) const {
    const pugi::xml_node node = parent.child(name);
    if (!node) return Outcome::Success();
    const std::string_view text = Trimmed(node.child_value());
    value = 0;
    if (text.empty() || (ParseReal(text, value) && std::isfinite(value))) return Outcome::Success();
    return Fail(std::string(name) + " of " + Quoted(parent.name()) + " is " + Quoted(text) +
                ", which is no number");
  }

  Outcome ReadScan(const pugi::xml_node& node, E57Scan& scan) {
    if (Outcome outcome = ReadPose(node.child("pose"), scan.pose); !outcome.Ok()) return outcome;
    const pugi::xml_node points = node.child("points");
    if (!points) return Outcome::Success();
    scan.hasPoints = true;
    for (const char* needed : {"fileOffset", "recordCount"}) {
      if (!points.attribute(needed)) return Fail(std::string("the points have no ") + needed);
    }
    Outcome outcome = ReadAttribute(points, "fileOffset", scan.fileOffset);
    if (outcome.Ok()) outcome = ReadAttribute(points, "recordCount", scan.recordCount);
    if (outcome.Ok()) outcome = ReadFields(points.child("prototype"), "", 0, scan);
    return outcome;
  }

  Outcome ReadPose(const pugi::xml_node& node, E57Pose& pose) const {
    const pugi::xml_node rotation = node.child("rotation");
    const pugi::xml_node translation = node.child("translation");
    constexpr std::array<const char*, 4> kNames{"w", "x", "y", "z"};
    for (std::size_t i = 0; i < kNames.size(); ++i) {
      if (Outcome outcome = ReadElement(rotation, kNames[i], pose.rotation[i]); !outcome.Ok()) {
        return outcome;
      }
      if (i == 0) continue;
      Outcome outcome = ReadElement(translation, kNames[i], pose.translation[i - 1]);
      if (!outcome.Ok()) return outcome;
    }
    double length = 0;
    for (const double part : pose.rotation) length = std::hypot(length, part);
    if (length > 0 && std::isfinite(length)) return Outcome::Success();
    return Fail("the rotation of the pose is none");
  }

  Outcome ReadFields(const pugi::xml_node& prototype, const std::string& prefix, int depth,
                     E57Scan& scan) {
    for (const pugi::xml_node& node : prototype.children()) {
      if (node.type() != pugi::node_element) continue;
      const std::string type = node.attribute("type").value();
      if (type == "Structure" && depth < kMostDepth) {
        Outcome outcome = ReadFields(node, prefix + node.name() + ".", depth + 1, scan);
        if (!outcome.Ok()) return outcome;
        continue;
      }
      if (scan.fields.size() == kMostFields) {
        return Fail("a point has more than " + std::to_string(kMostFields) + " values",
                    result::kScanUnsupported);
      }
      E57Field field;
      field.name = prefix + node.name();
      if (Outcome outcome = ReadField(node, type, field); !outcome.Ok()) return outcome;
      scan.fields.push_back(std::move(field));
    }
    return Outcome::Success();
  }

  Outcome ReadField(const pugi::xml_node& node, const std::string& type, E57Field& field) const {
    if (type == "Float") {
      const bool isSingle = std::string_view(node.attribute("precision").value()) == "single";
      field.kind = isSingle ? E57Field::Kind::kFloat : E57Field::Kind::kDouble;
      return Outcome::Success();
    }
    if (type == "String") {
      field.kind = E57Field::Kind::kText;
      return Outcome::Success();
    }
    if (type != "Integer" && type != "ScaledInteger") {
      return Fail(
          "values of type " + Quoted(type) + " (field " + Quoted(field.name) + ") are not read",
          result::kScanUnsupported);
    }
    field.kind = type == "Integer" ? E57Field::Kind::kInteger : E57Field::Kind::kScaledInteger;
    Outcome outcome = ReadAttribute(node, "minimum", field.minimum);
    if (outcome.Ok()) outcome = ReadAttribute(node, "maximum", field.maximum);
    if (outcome.Ok() && type == "ScaledInteger") {
      outcome = ReadAttribute(node, "scale", field.scale);
      if (outcome.Ok()) outcome = ReadAttribute(node, "offset", field.offset);
    }
    if (!outcome.Ok()) return outcome;
    if (field.minimum > field.maximum || field.scale == 0) {
      return Fail("the limits or the scale of field " + Quoted(field.name) + " make no sense");
    }
    return outcome;
  }

  std::string where_;
  std::vector<E57Scan>& scans_;
};

}  // namespace

unsigned E57Field::GetBits() const {
  if (kind == Kind::kFloat) return 32;
  if (kind == Kind::kDouble) return 64;
  if (kind == Kind::kText) return 8;
  return static_cast<unsigned>(
      std::bit_width(static_cast<std::uint64_t>(maximum) - static_cast<std::uint64_t>(minimum)));
}

bool E57Pose::IsIdentity() const {
  return rotation[1] == 0 && rotation[2] == 0 && rotation[3] == 0 &&
         translation == std::array<double, 3>{};
}

void E57Pose::Apply(std::array<double, 3>& point) const {
  const auto [w, x, y, z] = rotation;
  const auto [px, py, pz] = point;
  const double n = w * w + x * x + y * y + z * z;
  // The rotation matrix of a quaternion, divided by its squared length.
  point = {
      ((w * w + x * x - y * y - z * z) * px + 2 * (x * y - w * z) * py + 2 * (x * z + w * y) * pz) /
          n,
      (2 * (x * y + w * z) * px + (w * w - x * x + y * y - z * z) * py + 2 * (y * z - w * x) * pz) /
          n,
      (2 * (x * z - w * y) * px + 2 * (y * z + w * x) * py + (w * w - x * x - y * y + z * z) * pz) /
          n};
  for (std::size_t i = 0; i < 3; ++i) point[i] += translation[i];
}

Outcome ParseE57Xml(std::string_view xml, const std::string& where, std::vector<E57Scan>& scans) {
  scans.clear();
  pugi::xml_document document;
  // Some writers fill the section up with zeros.
  while (!xml.empty() && xml.back() == '\0') xml.remove_suffix(1);
  const pugi::xml_parse_result parsed =
      document.load_buffer(xml.data(), xml.size(), pugi::parse_default, pugi::encoding_utf8);
  const pugi::xml_node root = document.child("e57Root");
  if (!parsed || !root) {
    const std::string what = parsed ? "it has no element e57Root" : parsed.description();
    return Outcome::Failure(result::kScanContradictory, "the XML section cannot be read: " + what,
                            where + ", XML section, byte " + std::to_string(parsed.offset),
                            kRemedy);
  }
  return Reader(where, scans).Run(root);
}

}  // namespace tarnhost
