// Random trees of the query language over the points of a cloud, each with a plain reading of what
// it means.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "tests/host/select/HandMadeCloud.h"
#include "tests/support/CompareByCode.h"

namespace oocpctest {

using Random = std::mt19937_64;

/// A number of a type: often an extreme or a neighbour of zero, and of a few common ones.
template <typename T>
T AnyNumber(Random& random) {
  using Limits = std::numeric_limits<T>;
  if constexpr (std::is_floating_point_v<T>) {
    const T special[] = {0,
                         static_cast<T>(-0.0),
                         Limits::quiet_NaN(),
                         Limits::infinity(),
                         -Limits::infinity(),
                         Limits::max(),
                         Limits::lowest(),
                         Limits::denorm_min(),
                         Limits::min(),
                         1,
                         static_cast<T>(0.1),
                         static_cast<T>(16777217.0)};
    if (random() % 2 == 0) return special[random() % std::size(special)];
    return static_cast<T>(static_cast<double>(random() % 64) * 0.5 - 16);
  } else {
    if (random() % 8 == 0) return Limits::max();
    if (random() % 8 == 0) return Limits::min();
    if (random() % 8 == 0) return static_cast<T>(random());
    return static_cast<T>(random() % 40);
  }
}

/// A text, and what it means of each point by its number.
struct RandomTree {
  std::string text;
  std::function<bool(std::size_t)> holds;
};

/// A name that numbers are asked by, and the types that hold all of them.
struct AskedName {
  std::string name;
  const HandMadeColumn* column = nullptr;  ///< null for a coordinate
  std::size_t component = 0;               ///< of the column, or the axis
  std::vector<const char*> types;

  /// Calls `visit` with a point's value in the type in which it is stored.
  template <typename Visitor>
  auto Visit(const HandMadeRecipe& recipe, std::size_t point, const Visitor& visit) const {
    if (column == nullptr) return visit(recipe.GetSource(point, component));
    return oocpc::VisitComponentType(column->type.value, [&](auto tag) {
      using T = typename decltype(tag)::Type;
      const std::size_t at = point * column->type.components + component;
      return visit(oocpc::LoadLittleEndian<T>(column->values.data() + at * sizeof(T)));
    });
  }
};

/// The types that hold every value from `least` to `greatest`.
inline std::vector<const char*> TypesOfIntegers(double least, double greatest) {
  const double most = std::max(-least, greatest);
  std::vector<const char*> types;
  if (least >= 0 && greatest <= 255) types.push_back("uint8_t");
  if (most <= 2147483647.0) types.insert(types.end(), {"int", "int64"});
  if (most <= 16777216.0) types.push_back("float");
  if (most <= 9007199254740992.0) types.push_back("double");
  return types;
}

inline std::vector<const char*> TypesOf(const AskedName& name, const HandMadeRecipe& recipe) {
  const auto type = name.column == nullptr ? oocpc::ValueType::kDouble : name.column->type.value;
  if (type == oocpc::ValueType::kDouble) return {"double"};
  if (type == oocpc::ValueType::kFloat) return {"float", "double"};
  double least = 0;
  double greatest = 0;
  for (std::size_t i = 0; i < recipe.GetCount(); ++i) {
    const double value =
        name.Visit(recipe, i, [](auto stored) { return static_cast<double>(stored); });
    least = std::min(least, value);
    greatest = std::max(greatest, value);
  }
  // Of 32 bits the least has no counterpart, and is held all the same.
  if (type == oocpc::ValueType::kInt32) least = std::max(least, -2147483647.0);
  return TypesOfIntegers(least, greatest);
}

/// All names of a recipe that some type can be asked by.
inline std::vector<AskedName> NamesOf(const HandMadeRecipe& recipe) {
  std::vector<AskedName> names;
  for (const std::size_t axis : {0, 1, 2})
    names.push_back({std::string(1, "xyz"[axis]), nullptr, axis, {}});
  for (const HandMadeColumn& column : recipe.columns) {
    if (column.type.value == oocpc::ValueType::kString) continue;
    if (column.type.components == 1) names.push_back({column.name, &column, 0, {}});
    if (column.name != "DEF_COLOR") continue;
    names.push_back({"red", &column, 0, {}});
    names.push_back({"green", &column, 1, {}});
    names.push_back({"blue", &column, 2, {}});
  }
  for (AskedName& name : names) name.types = TypesOf(name, recipe);
  std::erase_if(names, [](const AskedName& name) { return name.types.empty(); });
  return names;
}

/// Makes random trees over a recipe's points: all clauses, all names with all types that hold their
/// values, eight levels deep at most. Trees stay usable as long as their maker and the recipe.
class RandomTrees {
 public:
  RandomTrees(const HandMadeRecipe& recipe, Random& random)
      : recipe_(recipe), random_(random), names_(NamesOf(recipe)) {
    for (const HandMadeColumn& column : recipe.columns) {
      if (column.type.value == oocpc::ValueType::kString) strings_.push_back(&column);
    }
  }

  /// `oneType`: ask every name with one type throughout the tree, as the evaluator has to be asked.
  RandomTree Next(bool oneType) {
    oneType_ = oneType;
    types_.clear();
    return Tree(1 + Below(8));
  }

 private:
  static constexpr const char* kOperators[] = {"==", ">", ">=", "<", "<=", "!="};
  std::uint64_t Below(std::uint64_t bound) { return random_() % bound; }

  RandomTree Tree(std::uint64_t depth) {
    if (depth == 0 || Below(5) == 0) return Leaf();
    if (Below(5) == 0) {
      const RandomTree a = Tree(depth - 1);
      return {"#not((" + a.text + "))", [a](std::size_t i) { return !a.holds(i); }};
    }
    static constexpr const char* kWords[] = {"#and(", "#or(", "#xor("};
    const std::uint64_t word = Below(3);
    const RandomTree a = Tree(depth - 1);
    const RandomTree b = depth > 4 ? Leaf() : Tree(depth - 1);
    const RandomTree c = Leaf();
    return {kWords[word] + ("(" + a.text + "), (" + b.text + "), (" + c.text + "))"),
            [=](std::size_t i) {
              const bool answers[] = {a.holds(i), b.holds(i), c.holds(i)};
              if (word == 0) return answers[0] && answers[1] && answers[2];
              if (word == 1) return answers[0] || answers[1] || answers[2];
              return (answers[0] != answers[1]) != answers[2];
            }};
  }

  RandomTree Leaf() {
    switch (Below(12)) {
      case 0:
        return {"#true()", [](std::size_t) { return true; }};
      case 1:
        return {"#false()", [](std::size_t) { return false; }};
      case 2:
        return {"#within{type=closedMesh}(\"m\")", [](std::size_t) { return true; }};
      case 3:
        return Sphere();
      case 4:
        return Box();
      case 5:
        return Rectangle();
      case 6:
        return Frustum();
      case 7:
        return String();
      default:
        return Number();
    }
  }

  static std::string Text(double value, int digits = 17) {
    if (std::isnan(value)) return "nan";
    if (std::isinf(value)) return value > 0 ? "inf" : "-inf";
    char text[48];
    std::snprintf(text, sizeof text, "%.*g", digits, value);
    return text;
  }

  /// A constant near a point, often its very coordinate; now and then an outlandish one.
  double Constant(std::size_t axis) {
    if (Below(20) == 0) return AnyNumber<float>(random_);
    if (recipe_.GetCount() == 0) return 0;
    return recipe_.GetLocal(Below(recipe_.GetCount()), axis) + (Below(3) == 0 ? 0.5 : 0);
  }
  float Single(std::size_t axis) { return static_cast<float>(Constant(axis)); }

  RandomTree Sphere() {
    static constexpr float kRadii[] = {0,
                                       -1,
                                       0.5F,
                                       2,
                                       40,
                                       std::numeric_limits<float>::infinity(),
                                       std::numeric_limits<float>::quiet_NaN()};
    const std::array<float, 3> centre{Single(0), Single(1), Single(2)};
    float radius = kRadii[Below(std::size(kRadii))];
    if (recipe_.GetCount() > 0 && Below(2) == 0) {
      radius = static_cast<float>(std::sqrt(SquaredDistance(Below(recipe_.GetCount()), centre)));
    }
    const std::string arguments = "(" + Text(centre[0], 9) + "," + Text(centre[1], 9) + "," +
                                  Text(centre[2], 9) + "," + Text(radius, 9) + ")";
    return {(Below(2) == 0 ? "#distance" : "#within{type=sphere}") + arguments,
            [this, centre, radius](std::size_t i) {
              if (!(radius >= 0)) return false;
              const double r = radius;
              return SquaredDistance(i, centre) <= r * r;
            }};
  }

  [[nodiscard]] double SquaredDistance(std::size_t i, const std::array<float, 3>& centre) const {
    const double dx = recipe_.GetLocal(i, 0) - centre[0];
    const double dy = recipe_.GetLocal(i, 1) - centre[1];
    const double dz = recipe_.GetLocal(i, 2) - centre[2];
    return dx * dx + dy * dy + dz * dz;
  }

  [[nodiscard]] bool IsBetween(std::size_t i, std::size_t axis, double a, double b) const {
    if (std::isnan(a) || std::isnan(b)) return false;
    const double value = recipe_.GetLocal(i, axis);
    return (a <= value && value <= b) || (b <= value && value <= a);
  }

  RandomTree Box() {
    std::array<float, 6> corners{};
    std::string text = Below(2) == 0 ? "#within{type=box}(" : "#within{type=oobb}(";
    for (std::size_t k = 0; k < corners.size(); ++k) {
      corners[k] = Single(k % 3);
      text += (k == 0 ? "" : ",") + Text(corners[k], 9);
    }
    return {text + ")", [this, corners](std::size_t i) {
              return IsBetween(i, 0, corners[0], corners[3]) &&
                     IsBetween(i, 1, corners[1], corners[4]) &&
                     IsBetween(i, 2, corners[2], corners[5]);
            }};
  }

  RandomTree Rectangle() {
    std::array<double, 4> corners{};
    std::string text = "#within{type=2dbox}(";
    for (std::size_t k = 0; k < corners.size(); ++k) {
      corners[k] = Constant(k % 2);
      text += (k == 0 ? "" : ",") + Text(corners[k]);
    }
    return {text + ")", [this, corners](std::size_t i) {
              return IsBetween(i, 0, corners[0], corners[2]) &&
                     IsBetween(i, 1, corners[1], corners[3]);
            }};
  }

  /// Of a plane that leaves most points inside, or that goes through one of them.
  float PlaneOffset(const float* normal) {
    if (recipe_.GetCount() == 0 || Below(2) == 0) return static_cast<float>(Below(400));
    const std::size_t point = Below(recipe_.GetCount());
    double sum = 0;
    for (std::size_t axis = 0; axis < 3; ++axis) {
      sum += double{normal[axis]} * recipe_.GetLocal(point, axis);
    }
    return static_cast<float>(-sum);
  }

  RandomTree Frustum() {
    std::array<float, 24> planes{};
    std::string text = "#within{type=frustum}(";
    for (std::size_t k = 0; k < planes.size(); ++k) {
      planes[k] = static_cast<float>(Below(5)) - 2;
      if (k % 4 == 3) planes[k] = PlaneOffset(planes.data() + k - 3);
      if (Below(300) == 0) planes[k] = AnyNumber<float>(random_);
      text += (k == 0 ? "" : ",") + Text(planes[k], 9);
    }
    return {text + ")", [this, planes](std::size_t i) {
              for (std::size_t p = 0; p < 24; p += 4) {
                const double a = planes[p];
                const double b = planes[p + 1];
                const double c = planes[p + 2];
                const double d = planes[p + 3];
                const double distance = a * recipe_.GetLocal(i, 0) + b * recipe_.GetLocal(i, 1) +
                                        c * recipe_.GetLocal(i, 2) + d;
                if (!(distance >= 0)) return false;
              }
              return true;
            }};
  }

  RandomTree String() {
    if (strings_.empty() || recipe_.strings.empty()) return Number();
    const std::vector<std::string>& all = recipe_.strings;
    const int code = static_cast<int>(Below(6));
    const std::string constant = Below(4) == 0 ? "aa" : all[Below(all.size())];
    const HandMadeColumn& column = *strings_[Below(strings_.size())];
    return {"#num{type=string}(\"" + column.name + "\", " + kOperators[code] + ", \"" + constant +
                "\")",
            [&column, &all, code, constant](std::size_t i) {
              const auto at = oocpc::LoadLittleEndian<std::uint32_t>(column.values.data() + 4 * i);
              return oocpctest::CompareByCode<std::string>(code, all[at], constant);
            }};
  }

  template <typename T>
  RandomTree NumberOf(const AskedName& name, const char* type) {
    T constant = AnyNumber<T>(random_);
    if (recipe_.GetCount() > 0 && Below(3) != 0) {
      const double near = name.Visit(recipe_, Below(recipe_.GetCount()),
                                     [](auto value) { return static_cast<double>(value); });
      // Out of range, a conversion would not be defined.
      if (std::is_floating_point_v<T> ||
          (near >= static_cast<double>(std::numeric_limits<T>::min()) &&
           near <= static_cast<double>(std::numeric_limits<T>::max()))) {
        const bool fits = !std::is_same_v<T, float> || !(std::abs(near) > 3e38);
        if (fits) constant = static_cast<T>(near);
      }
    }
    std::string text = std::is_floating_point_v<T>
                           ? Text(static_cast<double>(constant), std::is_same_v<T, float> ? 9 : 17)
                           : std::to_string(constant);
    const auto holds = [this, &name](int code, T bound) {
      return [this, &name, code, bound](std::size_t i) {
        return name.Visit(recipe_, i, [&](auto value) {
          return oocpctest::CompareByCode<T>(code, static_cast<T>(value), bound);
        });
      };
    };
    const std::string head = std::string("#num{type=") + type + "}(\"" + name.name + "\", ";
    if (Below(4) == 0) {
      const bool closed = Below(2) == 0;
      const T second = AnyNumber<T>(random_);
      const std::string secondText =
          std::is_floating_point_v<T>
              ? Text(static_cast<double>(second), std::is_same_v<T, float> ? 9 : 17)
              : std::to_string(second);
      const auto lower = holds(closed ? 2 : 1, constant);
      const auto upper = holds(closed ? 4 : 3, second);
      return {head + (closed ? "<=>, " : "<>, ") + text + ", " + secondText + ")",
              [lower, upper](std::size_t i) { return lower(i) && upper(i); }};
    }
    const int code = static_cast<int>(Below(6));
    // Of larger constants the language keeps the low eight bits.
    if (std::is_same_v<T, std::uint8_t> && Below(4) == 0) {
      text = std::to_string(256 + static_cast<int>(constant));
    }
    return {head + kOperators[code] + ", " + text + ")", holds(code, constant)};
  }

  RandomTree Number() {
    const AskedName& name = names_[Below(names_.size())];
    std::string type = name.types[Below(name.types.size())];
    if (oneType_) type = types_.try_emplace(name.name, type).first->second;
    if (type == "uint8_t") return NumberOf<std::uint8_t>(name, "uint8_t");
    if (type == "int") return NumberOf<std::int32_t>(name, "int");
    if (type == "int64") return NumberOf<std::int32_t>(name, "int64");
    if (type == "float") return NumberOf<float>(name, "float");
    return NumberOf<double>(name, "double");
  }

  const HandMadeRecipe& recipe_;
  Random& random_;
  std::vector<AskedName> names_;
  std::vector<const HandMadeColumn*> strings_;
  bool oneType_ = false;
  std::map<std::string, std::string> types_;
};

}  // namespace oocpctest
