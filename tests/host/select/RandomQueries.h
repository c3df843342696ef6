// Random queries over the points of a LAS file, each as a text and as a plain function of a point.
#pragma once

#include <cstdio>
#include <functional>
#include <random>
#include <string>

#include "tests/host/select/SyntheticLas.h"

namespace oocpctest {

/// What a query text means, point by point, told without the code under test: geometry in the local
/// frame in double precision from constants rounded to float, comparisons of values as doubles.
struct PlainQuery {
  std::string text;
  std::function<bool(std::uint64_t)> holds;
};

class RandomQueries {
 public:
  RandomQueries(const LasPoints& points, const std::array<double, 3>& frameOffset,
                std::uint64_t seed)
      : points_(points), frame_(frameOffset), random_(seed) {}

  /// A tree of the depth given at most.
  PlainQuery Next(int depth) { return depth == 0 || Below(4) == 0 ? Leaf() : Call(depth); }

 private:
  std::uint64_t Below(std::uint64_t bound) { return random_() % bound; }
  std::uint64_t AnyPoint() { return Below(points_.GetCount()); }

  static std::string Text(double value) {
    char digits[40];
    std::snprintf(digits, sizeof digits, "%.17g", value);
    return digits;
  }

  [[nodiscard]] double Local(std::uint64_t point, std::size_t axis) const {
    return points_.GetCoordinate(point, axis) - frame_[axis];
  }
  /// A constant given in source coordinates, as a geometric query holds it.
  [[nodiscard]] double Held(double source, std::size_t axis) const {
    return static_cast<double>(static_cast<float>(source - frame_[axis]));
  }

  PlainQuery Call(int depth) {
    if (Below(4) == 0) {
      const PlainQuery a = Operand(depth);
      return {"#not(" + a.text + ")", [a](std::uint64_t i) { return !a.holds(i); }};
    }
    static constexpr const char* kWords[] = {"#and(", "#or(", "#xor("};
    const std::uint64_t word = Below(3);
    PlainQuery call = Operand(depth);
    call.text = kWords[word] + call.text;
    for (std::uint64_t more = 1 + Below(2); more > 0; --more) {
      const PlainQuery b = Operand(depth);
      call.text += ", " + b.text;
      const auto a = call.holds;
      if (word == 0) call.holds = [a, b](std::uint64_t i) { return a(i) && b.holds(i); };
      if (word == 1) call.holds = [a, b](std::uint64_t i) { return a(i) || b.holds(i); };
      if (word == 2) call.holds = [a, b](std::uint64_t i) { return a(i) != b.holds(i); };
    }
    call.text += ")";
    return call;
  }

  PlainQuery Operand(int depth) {
    PlainQuery query = Next(depth - 1);
    query.text = "(" + query.text + ")";
    return query;
  }

  PlainQuery Leaf() {
    switch (Below(9)) {
      case 0:
        return {"#true()", [](std::uint64_t) { return true; }};
      case 1:
        return {"#false()", [](std::uint64_t) { return false; }};
      case 2:
        return Sphere();
      case 3:
        return Box();
      case 4:
        return Box2D();
      case 5:
        return Frustum();
      default:
        return Comparison();
    }
  }

  PlainQuery Sphere() {
    const std::uint64_t centre = AnyPoint();
    const double radius = Below(4) == 0 ? 0 : static_cast<double>(Below(60000)) * 0.01;
    std::array<double, 3> c{};
    std::string text = Below(2) == 0 ? "#distance(" : "#within{type=sphere}(";
    for (std::size_t axis = 0; axis < 3; ++axis) {
      c[axis] = Held(points_.GetCoordinate(centre, axis), axis);
      text += Text(points_.GetCoordinate(centre, axis)) + ",";
    }
    const auto r = static_cast<double>(static_cast<float>(radius));
    return {text + Text(radius) + ")", [this, c, r](std::uint64_t i) {
              const double x = Local(i, 0) - c[0];
              const double y = Local(i, 1) - c[1];
              const double z = Local(i, 2) - c[2];
              return x * x + y * y + z * z <= r * r;
            }};
  }

  PlainQuery Box() {
    const std::uint64_t first = AnyPoint();
    const std::uint64_t second = AnyPoint();
    std::string text = Below(2) == 0 ? "#within{type=box}(" : "#within{type=oobb}(";
    std::array<double, 3> low{};
    std::array<double, 3> high{};
    for (const std::uint64_t corner : {first, second}) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        text += Text(points_.GetCoordinate(corner, axis)) + ",";
      }
    }
    text.back() = ')';
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const double a = Held(points_.GetCoordinate(first, axis), axis);
      const double b = Held(points_.GetCoordinate(second, axis), axis);
      low[axis] = std::min(a, b);
      high[axis] = std::max(a, b);
    }
    return {text, [this, low, high](std::uint64_t i) {
              for (std::size_t axis = 0; axis < 3; ++axis) {
                if (Local(i, axis) < low[axis] || Local(i, axis) > high[axis]) return false;
              }
              return true;
            }};
  }

  /// Its constants stay doubles, so the corner points themselves are always inside.
  PlainQuery Box2D() {
    const std::uint64_t first = AnyPoint();
    const std::uint64_t second = AnyPoint();
    std::string text = "#within{type=2dbox}(";
    for (const std::uint64_t corner : {first, second}) {
      text += Text(points_.GetCoordinate(corner, 0)) + ",";
      text += Text(points_.GetCoordinate(corner, 1)) + ",";
    }
    text.back() = ')';
    return {text, [this, first, second](std::uint64_t i) {
              for (std::size_t axis = 0; axis < 2; ++axis) {
                const auto [low, high] = std::minmax({Local(first, axis), Local(second, axis)});
                if (Local(i, axis) < low || Local(i, axis) > high) return false;
              }
              return true;
            }};
  }

  PlainQuery Frustum() {
    std::array<std::array<double, 4>, 6> held{};
    std::string text = "#within{type=frustum}(";
    for (auto& plane : held) {
      const std::uint64_t through = AnyPoint();
      std::array<double, 4> p{};
      for (std::size_t axis = 0; axis < 3; ++axis) {
        p[axis] = static_cast<double>(Below(21)) - 10;
        p[3] -= p[axis] * points_.GetCoordinate(through, axis);
      }
      if (Below(2) == 0) p[3] += static_cast<double>(Below(1000000));
      for (const double number : p) text += Text(number) + ",";
      const double d = p[3] + p[0] * frame_[0] + p[1] * frame_[1] + p[2] * frame_[2];
      for (std::size_t i = 0; i < 4; ++i) plane[i] = static_cast<float>(i < 3 ? p[i] : d);
    }
    text.back() = ')';
    return {text, [this, held](std::uint64_t i) {
              for (const auto& p : held) {
                const double side =
                    p[0] * Local(i, 0) + p[1] * Local(i, 1) + p[2] * Local(i, 2) + p[3];
                if (!(side >= 0)) return false;
              }
              return true;
            }};
  }

  /// One type a name: what a double holds exactly is asked as double, the small ones as int.
  PlainQuery Comparison() {
    const std::vector<std::string> names = points_.ListNames();
    const std::string name = names[Below(names.size())];
    const bool real = name == "gps_time" || name.size() == 1;
    const double a = Number(points_.GetValue(AnyPoint(), name), real);
    const double b = Number(points_.GetValue(AnyPoint(), name), real);
    const std::string head =
        std::string("#num{type=") + (real ? "double" : "int") + "}(\"" + name + "\", ";
    const auto value = [this, name](std::uint64_t i) { return points_.GetValue(i, name); };
    switch (Below(8)) {
      case 0:
        return {head + "==, " + Text(a) + ")", [=](std::uint64_t i) { return value(i) == a; }};
      case 1:
        return {head + ">, " + Text(a) + ")", [=](std::uint64_t i) { return value(i) > a; }};
      case 2:
        return {head + ">=, " + Text(a) + ")", [=](std::uint64_t i) { return value(i) >= a; }};
      case 3:
        return {head + "<, " + Text(a) + ")", [=](std::uint64_t i) { return value(i) < a; }};
      case 4:
        return {head + "<=, " + Text(a) + ")", [=](std::uint64_t i) { return value(i) <= a; }};
      case 5:
        return {head + "!=, " + Text(a) + ")", [=](std::uint64_t i) { return value(i) != a; }};
      case 6:
        return {head + "<>, " + Text(a) + ", " + Text(b) + ")",
                [=](std::uint64_t i) { return value(i) > a && value(i) < b; }};
      default:
        return {head + "<=>, " + Text(a) + ", " + Text(b) + ")",
                [=](std::uint64_t i) { return value(i) >= a && value(i) <= b; }};
    }
  }

  double Number(double value, bool real) { return real || Below(3) > 0 ? value : value + 1; }

  const LasPoints& points_;
  std::array<double, 3> frame_;
  std::mt19937_64 random_;
};

}  // namespace oocpctest
