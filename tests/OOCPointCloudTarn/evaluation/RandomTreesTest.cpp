// The evaluator against a plain recursive one, on random trees from random query texts and random
// records.
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCBooleanExpressionEvaluator.h>
#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <functional>
#include <limits>
#include <random>
#include <sstream>
#include <type_traits>

#include "tests/support/AnyPointCloud.h"
#include "tests/support/CompareByCode.h"
#include "tests/support/QueryBuilders.h"

namespace {

/// A point of the tests, and where each of its values lies in a record.
struct Point {
  std::array<double, 3> position;
  std::int32_t integer;
  std::uint8_t byte;
  float single;
  double wide;
  std::string text;
};

constexpr unsigned kRecordBytes = 64;

std::string RecordOf(const Point& point) {
  std::string record = oocpctest::BytesOfValues(point.position, point.integer, point.byte,
                                                point.single, point.wide) +
                       point.text;
  record.resize(kRecordBytes, '\0');
  return record;
}

/// What a query text means, worked out beside the library.
struct Meaning {
  std::string text;
  std::function<bool(const Point&)> holds;
};

class Generator {
 public:
  explicit Generator(unsigned seed) : random_(seed) {}

  int Pick(int count) { return static_cast<int>(random_() % static_cast<unsigned>(count)); }

  Meaning Query(int depth) {
    if (depth == 0 || Pick(5) == 0) return Leaf();
    switch (Pick(4)) {
      case 0:
        return Negation(depth);
      case 1:
        return Call("#and(", depth, [](bool a, bool b) { return a && b; });
      case 2:
        return Call("#or(", depth, [](bool a, bool b) { return a || b; });
      default:
        return Call("#xor(", depth, [](bool a, bool b) { return a != b; });
    }
  }

  Point AnyPoint() {
    Point point{};
    for (double& coordinate : point.position) coordinate = Number();
    if (Pick(20) == 0) point.position[static_cast<std::size_t>(Pick(3))] = Odd();
    point.integer = Pick(9) - 4;
    point.byte = static_cast<std::uint8_t>(Pick(2) == 0 ? Pick(5) : 250 + Pick(6));
    point.single = static_cast<float>(Pick(8) == 0 ? Odd() : Number());
    point.wide = Pick(8) == 0 ? Odd() : Number();
    point.text = Text();
    return point;
  }

 private:
  double Number() { return (Pick(17) - 8) * 0.5; }
  double Odd() {
    return std::array{std::numeric_limits<double>::quiet_NaN(),
                      std::numeric_limits<double>::infinity(),
                      -std::numeric_limits<double>::infinity()}[static_cast<std::size_t>(Pick(3))];
  }
  std::string Text() {
    std::string text;
    for (int length = Pick(4); length >= 0; --length) text += "ab\x80"[Pick(3)];
    return text;
  }
  static std::string Written(double number) {
    std::ostringstream out;
    out.precision(17);
    out << number;
    return out.str();
  }

  Meaning Negation(int depth) {
    Meaning operand = Query(depth - 1);
    return {"#not((" + operand.text + "))",
            [holds = operand.holds](const Point& point) { return !holds(point); }};
  }

  Meaning Call(const std::string& keyword, int depth, bool (*join)(bool, bool)) {
    Meaning all = Query(depth - 1);
    all.text = keyword + "(" + all.text + ")";
    for (int more = Pick(3); more >= 0; --more) {
      const Meaning next = Query(Pick(depth));  // one branch goes deep
      all.text += ", (" + next.text + ")";
      all.holds = [first = all.holds, second = next.holds, join](const Point& point) {
        return join(first(point), second(point));
      };
    }
    all.text += ")";
    return all;
  }

  Meaning Leaf() {
    switch (Pick(11)) {
      case 0:
        return {"#true()", [](const Point&) { return true; }};
      case 1:
        return {"#false()", [](const Point&) { return false; }};
      case 2:
        return {"#within{type=closedMesh}(\"m\")", [](const Point&) { return true; }};
      case 3:
        return Sphere();
      case 4:
        return Box();
      case 5:
        return Box2D();
      case 6:
        return Frustum();
      case 7:
        return Comparison("int", "i", Pick(9) - 4, [](const Point& p) { return p.integer; });
      case 8:
        return Comparison<std::uint8_t>("uint8_t", "b", static_cast<std::uint8_t>(Pick(256)),
                                        [](const Point& p) { return p.byte; });
      case 9:
        return Pick(2) == 0
                   ? Comparison("float", "f", static_cast<float>(Value()),
                                [](const Point& p) { return p.single; })
                   : Comparison("double", "d", Value(), [](const Point& p) { return p.wide; });
      default:
        return TextComparison();
    }
  }

  double Value() { return Pick(10) == 0 ? Odd() : Number(); }

  std::string List(const std::vector<double>& numbers) {
    std::string text;
    for (const double number : numbers) text += (text.empty() ? "" : ",") + Written(number);
    return "(" + text + ")";
  }

  std::vector<double> Numbers(int count) {
    std::vector<double> numbers;
    for (int i = 0; i < count; ++i) numbers.push_back(Pick(60) == 0 ? Odd() : Number());
    return numbers;
  }

  Meaning Sphere() {
    const std::vector<double> n = Numbers(4);
    return {(Pick(2) == 0 ? "#distance" : "#within{type=sphere}") + List(n), [n](const Point& p) {
              const double x = p.position[0] - n[0];
              const double y = p.position[1] - n[1];
              const double z = p.position[2] - n[2];
              return n[3] >= 0 && x * x + y * y + z * z <= n[3] * n[3];
            }};
  }

  static bool Between(double value, double a, double b) {
    return a <= b ? a <= value && value <= b : b <= value && value <= a;
  }

  Meaning Box() {
    const std::vector<double> n = Numbers(6);
    return {(Pick(2) == 0 ? "#within{type=box}" : "#within{type=oobb}") + List(n),
            [n](const Point& p) {
              for (const double number : n) {
                if (std::isnan(number)) return false;
              }
              return Between(p.position[0], n[0], n[3]) && Between(p.position[1], n[1], n[4]) &&
                     Between(p.position[2], n[2], n[5]);
            }};
  }

  Meaning Box2D() {
    const std::vector<double> n = Numbers(4);
    return {"#within{type=2dbox}" + List(n), [n](const Point& p) {
              for (const double number : n) {
                if (std::isnan(number)) return false;
              }
              return !std::isnan(p.position[2]) && Between(p.position[0], n[0], n[2]) &&
                     Between(p.position[1], n[1], n[3]);
            }};
  }

  Meaning Frustum() {
    std::vector<double> n = Numbers(24);
    for (std::size_t row = 0; row < 6; ++row) n[4 * row + 3] += 10;
    return {"#within{type=frustum}" + List(n), [n](const Point& p) {
              bool inside = true;
              for (std::size_t i = 0; i < 24; i += 4) {
                inside = inside && n[i] * p.position[0] + n[i + 1] * p.position[1] +
                                           n[i + 2] * p.position[2] + n[i + 3] >=
                                       0;
              }
              return inside;
            }};
  }

  static constexpr const char* kSigns[] = {"==", ">", ">=", "<", "<=", "!="};

  template <typename T>
  Meaning Comparison(const std::string& type, const std::string& name, T value,
                     std::type_identity_t<T (*)(const Point&)> read) {
    const std::string start = "#num{type=" + type + "}(\"" + name + "\", ";
    if (Pick(3) != 0) {
      const int code = Pick(6);
      return {start + kSigns[code] + "," + Written(value) + ")",
              [=](const Point& p) { return oocpctest::CompareByCode(code, read(p), value); }};
    }
    const bool closed = Pick(2) == 0;
    const T second = static_cast<T>(std::isnan(value) || value > T{120} ? value : value + T{3});
    return {start + (closed ? "<=>," : "<>,") + Written(value) + "," + Written(second) + ")",
            [=](const Point& p) {
              return closed ? read(p) >= value && read(p) <= second
                            : read(p) > value && read(p) < second;
            }};
  }

  Meaning TextComparison() {
    const int code = Pick(6);
    const std::string value = Text();
    return {"#num{type=string}(\"s\", " + std::string(kSigns[code]) + ", \"" + value + "\")",
            [=](const Point& p) { return oocpctest::CompareByCode(code, p.text, value); }};
  }

  std::mt19937_64 random_;
};

TEST(RandomTrees, AnswerAsThePlainMeaningOfTheirText) {
  Generator generator(20240601);
  int held = 0;
  int tests = 0;
  for (int round = 0; round < 3000; ++round) {
    const Meaning meaning = generator.Query(generator.Pick(9) % 9);
    if (meaning.text.size() > 20000) continue;
    TarnOOCStringQueryExpression expression;
    expression.SetInputString(meaning.text);
    ASSERT_EQ(expression.ComputeBooleanAST(), oocpc::result::kOk) << meaning.text;
    TarnOOCBooleanExpressionEvaluator evaluator(oocpctest::AnyPointCloud(),
                                                expression.GetBooleanAST());
    ASSERT_EQ(evaluator.CompleteBufferMetaDatas({"DEF_POSITION", "i", "b", "f", "d", "s"},
                                                {24, 4, 1, 4, 8, 23}, {0, 24, 28, 29, 33, 41}),
              oocpc::result::kOk);
    ASSERT_EQ(evaluator.InitializeQueries(), oocpc::result::kOk);
    std::string records;
    std::vector<Point> points;
    for (int i = 0; i < 12; ++i) {
      points.push_back(generator.AnyPoint());
      records += RecordOf(points.back());
    }
    for (unsigned i = 0; i < points.size(); ++i) {
      const bool answer = evaluator.EvaluateExpression(records.data(), i, kRecordBytes);
      EXPECT_EQ(answer, meaning.holds(points[i])) << meaning.text << " point " << i;
      held += answer ? 1 : 0;
      ++tests;
    }
  }
  EXPECT_GT(held, tests / 5);
  EXPECT_LT(held, tests * 4 / 5);
}

}  // namespace
