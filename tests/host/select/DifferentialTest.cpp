// The engine, the evaluator and a plain reading of the language, asked the same random queries of
// the same points. TARN_SELECT_TREES says how many trees a cloud is asked (for hours, say a
// million), TARN_SELECT_SEED where the random numbers begin.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <map>
#include <random>

#include "tests/host/select/HandMadeCloud.h"

namespace {

using oocpc::ColumnType;
using oocpc::ValueType;
using oocpctest::ByteVector;
using oocpctest::HandMadeCloud;
using oocpctest::HandMadeColumn;
using oocpctest::HandMadeRecipe;
using oocpctest::MarkingSink;
using oocpctest::Succeeded;
using Random = std::mt19937_64;

std::uint64_t FromEnvironment(const char* name, std::uint64_t otherwise) {
  const char* const text = std::getenv(name);
  return text == nullptr ? otherwise : std::strtoull(text, nullptr, 10);
}

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

/// Values of a column, in runs of one kind so that blocks differ: anything, all the same, narrow.
template <typename T>
ByteVector AnyValues(Random& random, std::size_t count) {
  ByteVector values;
  T fixed = AnyNumber<T>(random);
  std::uint64_t kind = random() % 4;
  for (std::size_t i = 0; i < count; ++i) {
    if (random() % 100 == 0) {
      kind = random() % 4;
      fixed = AnyNumber<T>(random);
    }
    T value = AnyNumber<T>(random);
    if (kind == 0) value = fixed;
    if (kind == 1) value = static_cast<T>(random() % 4);
    oocpc::AppendLittleEndian(values, value);
  }
  return values;
}

const std::vector<std::string> kStrings{"a", "ab", "b", "abc", "zz", "\xC3\xA9", "A"};

HandMadeRecipe AnyRecipe(Random& random, std::vector<std::uint32_t> nodes) {
  HandMadeRecipe recipe;
  recipe.nodes = std::move(nodes);
  std::size_t count = 0;
  for (const std::uint32_t node : recipe.nodes) count += node;
  static constexpr double kScales[] = {0.01, 0.25, 1, -0.5, 0.001, 1e-7};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    recipe.scale[axis] = kScales[random() % std::size(kScales)];
    recipe.offset[axis] = random() % 2 == 0 ? 0 : 637290.75;
    recipe.frameOffset[axis] = recipe.offset[axis] == 0 ? 0 : 637000;
  }
  for (std::size_t i = 0; i < 3 * count; ++i) {
    const bool isFar = random() % 500 == 0;
    recipe.xyz.push_back(isFar ? static_cast<std::int32_t>(random())
                               : static_cast<std::int32_t>(random() % 200) - 100);
  }
  const auto add = [&](const char* name, ValueType type, ByteVector values) {
    recipe.columns.push_back({name, {type, 1}, std::move(values)});
  };
  add("u8", ValueType::kUInt8, AnyValues<std::uint8_t>(random, count));
  add("i8", ValueType::kInt8, AnyValues<std::int8_t>(random, count));
  add("u16", ValueType::kUInt16, AnyValues<std::uint16_t>(random, count));
  add("i16", ValueType::kInt16, AnyValues<std::int16_t>(random, count));
  add("u32", ValueType::kUInt32, AnyValues<std::uint32_t>(random, count));
  add("i32", ValueType::kInt32, AnyValues<std::int32_t>(random, count));
  add("f32", ValueType::kFloat, AnyValues<float>(random, count));
  add("f64", ValueType::kDouble, AnyValues<double>(random, count));
  ByteVector wide;
  ByteVector signedWide;
  ByteVector texts;
  ByteVector colors;
  for (std::size_t i = 0; i < count; ++i) {
    oocpc::AppendLittleEndian(wide, std::uint64_t{random() % 3 << 52});
    oocpc::AppendLittleEndian(signedWide, static_cast<std::int64_t>(random() % 9) - 4);
    oocpc::AppendLittleEndian(texts, static_cast<std::uint32_t>(random() % kStrings.size()));
    for (int k = 0; k < 3; ++k) {
      oocpc::AppendLittleEndian(colors, static_cast<std::uint16_t>(random() % 300));
    }
  }
  add("u64", ValueType::kUInt64, std::move(wide));
  add("i64", ValueType::kInt64, std::move(signedWide));
  add("text", ValueType::kString, std::move(texts));
  recipe.columns.push_back({"DEF_COLOR", {ValueType::kUInt16, 3}, std::move(colors)});
  recipe.strings = kStrings;
  return recipe;
}

/// What a text means, of each point by its number.
struct PlainQuery {
  std::string text;
  std::function<bool(std::size_t)> holds;
};

template <typename T>
bool Compare(int code, T value, T constant) {
  switch (code) {
    case 0:
      return value == constant;
    case 1:
      return value > constant;
    case 2:
      return value >= constant;
    case 3:
      return value < constant;
    case 4:
      return value <= constant;
    default:
      return value != constant;
  }
}

/// Makes random trees over a recipe's points.
class Trees {
 public:
  /// `oneType`: ask every name with one type throughout a tree, as the evaluator has to be asked.
  Trees(const HandMadeRecipe& recipe, Random& random, bool oneType)
      : recipe_(recipe), random_(random), oneType_(oneType) {}

  PlainQuery Next() {
    types_.clear();
    return Tree(1 + Below(8));
  }

 private:
  static constexpr const char* kOperators[] = {"==", ">", ">=", "<", "<=", "!="};
  std::uint64_t Below(std::uint64_t bound) { return random_() % bound; }

  PlainQuery Tree(std::uint64_t depth) {
    if (depth == 0 || Below(5) == 0) return Leaf();
    if (Below(5) == 0) {
      const PlainQuery a = Tree(depth - 1);
      return {"#not((" + a.text + "))", [a](std::size_t i) { return !a.holds(i); }};
    }
    static constexpr const char* kWords[] = {"#and(", "#or(", "#xor("};
    const std::uint64_t word = Below(3);
    const PlainQuery a = Tree(depth - 1);
    const PlainQuery b = depth > 4 ? Leaf() : Tree(depth - 1);
    const PlainQuery c = Leaf();
    return {kWords[word] + ("(" + a.text + "), (" + b.text + "), (" + c.text + "))"),
            [=](std::size_t i) {
              const bool answers[] = {a.holds(i), b.holds(i), c.holds(i)};
              if (word == 0) return answers[0] && answers[1] && answers[2];
              if (word == 1) return answers[0] || answers[1] || answers[2];
              return (answers[0] != answers[1]) != answers[2];
            }};
  }

  PlainQuery Leaf() {
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

  PlainQuery Sphere() {
    static constexpr float kRadii[] = {0,
                                       -1,
                                       0.5F,
                                       2,
                                       40,
                                       std::numeric_limits<float>::infinity(),
                                       std::numeric_limits<float>::quiet_NaN()};
    const float centre[] = {Single(0), Single(1), Single(2)};
    const float radius = kRadii[Below(std::size(kRadii))];
    const std::string arguments = "(" + Text(centre[0], 9) + "," + Text(centre[1], 9) + "," +
                                  Text(centre[2], 9) + "," + Text(radius, 9) + ")";
    const std::array<float, 3> c{centre[0], centre[1], centre[2]};
    return {(Below(2) == 0 ? "#distance" : "#within{type=sphere}") + arguments,
            [this, c, radius](std::size_t i) {
              if (!(radius >= 0)) return false;
              const double dx = recipe_.GetLocal(i, 0) - c[0];
              const double dy = recipe_.GetLocal(i, 1) - c[1];
              const double dz = recipe_.GetLocal(i, 2) - c[2];
              const double r = radius;
              return dx * dx + dy * dy + dz * dz <= r * r;
            }};
  }

  [[nodiscard]] bool IsBetween(std::size_t i, std::size_t axis, double a, double b) const {
    if (std::isnan(a) || std::isnan(b)) return false;
    const double value = recipe_.GetLocal(i, axis);
    return (a <= value && value <= b) || (b <= value && value <= a);
  }

  PlainQuery Box() {
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

  PlainQuery Rectangle() {
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

  PlainQuery Frustum() {
    std::array<float, 24> planes{};
    std::string text = "#within{type=frustum}(";
    for (std::size_t k = 0; k < planes.size(); ++k) {
      planes[k] = static_cast<float>(Below(5)) - 2;
      if (k % 4 == 3) planes[k] = static_cast<float>(Below(400));
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

  [[nodiscard]] const HandMadeColumn& Column(const std::string& name) const {
    return *std::ranges::find(recipe_.columns, name, &HandMadeColumn::name);
  }

  PlainQuery String() {
    const int code = static_cast<int>(Below(6));
    const std::string constant = Below(4) == 0 ? "aa" : kStrings[Below(kStrings.size())];
    const HandMadeColumn& column = Column("text");
    return {
        std::string("#num{type=string}(\"text\", ") + kOperators[code] + ", \"" + constant + "\")",
        [&column, code, constant](std::size_t i) {
          const auto index = oocpc::LoadLittleEndian<std::uint32_t>(column.values.data() + 4 * i);
          return Compare<std::string>(code, kStrings[index], constant);
        }};
  }

  struct Name {
    const char* name;
    std::vector<const char*> types;
  };
  static const std::vector<Name>& Names() {
    static const std::vector<Name> names{{"u8", {"uint8_t", "int", "int64", "float", "double"}},
                                         {"i8", {"int", "float", "double"}},
                                         {"u16", {"int", "float", "double"}},
                                         {"i16", {"int", "float", "double"}},
                                         {"u32", {"double"}},
                                         {"i32", {"int", "double"}},
                                         {"f32", {"float", "double"}},
                                         {"f64", {"double"}},
                                         {"u64", {"double"}},
                                         {"i64", {"int", "float", "double"}},
                                         {"red", {"int", "float", "double"}},
                                         {"green", {"int", "double"}},
                                         {"blue", {"float", "double"}},
                                         {"x", {"double"}},
                                         {"y", {"double"}},
                                         {"z", {"double"}}};
    return names;
  }

  /// A point's value of a name, in the column's own type.
  template <typename Visit>
  auto Value(const std::string& name, std::size_t i, const Visit& visit) const {
    if (name.size() == 1)
      return visit(recipe_.GetSource(i, static_cast<std::size_t>(name[0] - 'x')));
    const std::size_t color = name == "red" ? 0 : name == "green" ? 1 : name == "blue" ? 2 : 3;
    const HandMadeColumn& column = Column(color < 3 ? "DEF_COLOR" : name);
    return oocpc::VisitComponentType(column.type.value, [&](auto tag) {
      using T = typename decltype(tag)::Type;
      const std::size_t at = i * column.type.components + (color < 3 ? color : 0);
      return visit(oocpc::LoadLittleEndian<T>(column.values.data() + at * sizeof(T)));
    });
  }

  template <typename T>
  PlainQuery NumberOf(const std::string& name, const char* type) {
    T constant = AnyNumber<T>(random_);
    if (recipe_.GetCount() > 0 && Below(3) != 0) {
      const double near = Value(name, Below(recipe_.GetCount()),
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
    const auto holds = [this, name](int code, T bound) {
      return [this, name, code, bound](std::size_t i) {
        return Value(name, i,
                     [&](auto value) { return Compare<T>(code, static_cast<T>(value), bound); });
      };
    };
    const std::string head = std::string("#num{type=") + type + "}(\"" + name + "\", ";
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

  PlainQuery Number() {
    const Name& name = Names()[Below(Names().size())];
    std::string type = name.types[Below(name.types.size())];
    if (oneType_) type = types_.try_emplace(name.name, type).first->second;
    if (type == "uint8_t") return NumberOf<std::uint8_t>(name.name, "uint8_t");
    if (type == "int") return NumberOf<std::int32_t>(name.name, "int");
    if (type == "int64") return NumberOf<std::int32_t>(name.name, "int64");
    if (type == "float") return NumberOf<float>(name.name, "float");
    return NumberOf<double>(name.name, "double");
  }

  const HandMadeRecipe& recipe_;
  Random& random_;
  bool oneType_;
  std::map<std::string, std::string> types_;
};

tarnhost::SelectOptions Local(const std::string& text) {
  tarnhost::SelectOptions options = oocpctest::Query(text);
  options.local = true;
  return options;
}

void CompareTrees(std::uint64_t seed, const std::vector<std::uint32_t>& nodes,
                  std::uint64_t treesHere) {
  Random random(seed);
  const HandMadeRecipe recipe = AnyRecipe(random, nodes);
  const HandMadeCloud made(recipe);
  ASSERT_NE(made.cloud, nullptr);
  const std::size_t count = recipe.GetCount();
  const std::uint64_t rounds = FromEnvironment("TARN_SELECT_TREES", treesHere);
  std::uint64_t partly = 0;
  for (std::uint64_t round = 0; round < rounds; ++round) {
    const bool oneType = round % 4 != 3;
    Trees trees(recipe, random, oneType);
    const PlainQuery query = trees.Next();
    SCOPED_TRACE("seed " + std::to_string(seed) + ", round " + std::to_string(round) + ": " +
                 query.text);
    std::vector<bool> expected(count);
    for (std::size_t i = 0; i < count; ++i) expected[i] = query.holds(i);
    MarkingSink engine;
    tarnhost::SelectReport report;
    ASSERT_TRUE(Succeeded(tarnhost::Select(*made.cloud, Local(query.text), &engine, report)));
    ASSERT_EQ(engine.Get(count), expected) << "engine";
    const auto selected =
        static_cast<std::uint64_t>(std::count(expected.begin(), expected.end(), true));
    ASSERT_EQ(report.selected, selected);
    partly += selected > 0 && selected < count ? 1 : 0;
    ASSERT_TRUE(Succeeded(tarnhost::Select(*made.cloud, Local(query.text), nullptr, report)));
    ASSERT_EQ(report.selected, selected) << "counting alone";
    if (!oneType) continue;
    MarkingSink records;
    ASSERT_TRUE(
        Succeeded(tarnhost::SelectByRecords(*made.cloud, Local(query.text), &records, report)));
    ASSERT_EQ(records.Get(count), expected) << "record by record";
  }
  if (count > 100) {
    EXPECT_GT(partly, rounds / 3) << "most trees should select some points";
  }
}

class RandomTrees : public ::testing::TestWithParam<std::uint64_t> {};

TEST_P(RandomTrees, AreAnsweredAlikeByEngineEvaluatorAndPlainReading) {
  const std::uint64_t seed = FromEnvironment("TARN_SELECT_SEED", 1) * 1000 + GetParam();
  CompareTrees(seed, {200, 130, 64, 1, 65, 300, 63, 127, 90}, 120);
}

INSTANTIATE_TEST_SUITE_P(Seeds, RandomTrees, ::testing::Range<std::uint64_t>(0, 5));

TEST(RandomTreesOverFewPoints, AreAnsweredAlikeForOnePoint) {
  for (std::uint64_t seed = 50; seed < 60; ++seed) CompareTrees(seed, {1}, 60);
}

TEST(RandomTreesOverFewPoints, AreAnsweredAlikeForARootWithoutPointsOfItsOwn) {
  CompareTrees(70, {0, 70, 128}, 100);
}

TEST(RandomTreesOverFewPoints, AreAnsweredAlikeForNoPoint) { CompareTrees(80, {0}, 100); }

}  // namespace
