// Reads LAS files and answers queries in the plainest way, to check everything else against. It has
// its own code for every step and uses nothing of the libraries or the host.
//
// What it computes:
// - A point's source coordinate on an axis is (double)X * scale + offset; its local one is that
//   minus the frame offset of the axis. Both in double precision, each operation rounded once.
// - Constants of geometric clauses are written in source coordinates. Moved into the local frame in
//   double precision they are: centre - frame; corner - frame; for a plane
//   d' = ((d + a * frameX) + b * frameY) + c * frameZ, while a, b and c stay. Then sphere, box and
//   frustum constants (and the radius) are narrowed to float; those of the 2D box stay double.
// - Sphere: dx*dx + dy*dy + dz*dz <= r*r, summed from left to right, r >= 0. Boxes: closed, corners
//   in any order. Frustum: a*x + b*y + c*z + d >= 0, summed from left to right, for all six planes.
// - Comparisons convert the point's value to the clause's type, which is only ever one that holds
//   all of the dimension's values without loss, and the constant to that type as well.
// - A selection is told by its number of points and the sums of their stored integers, which do not
//   depend on the order of the points.
#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <string>
#include <utility>
#include <vector>

namespace oocpctest::brute {

/// A value, exact: integers in `integer` (and `number`, rounded, where they are large).
struct Value {
  bool isInteger = true;
  std::int64_t integer = 0;
  double number = 0;
};

/// One dimension and where it lies in a point record.
struct Field {
  enum class Kind { kUnsigned, kSigned, kReal, kCoordinate };
  std::string name;
  Kind kind = Kind::kUnsigned;
  std::size_t at = 0;
  std::size_t bytes = 1;
  unsigned shift = 0;
  unsigned bits = 0;  ///< 0: whole bytes
};

using Triple = std::array<double, 3>;

class LasFile {
 public:
  /// False when it is not an uncompressed LAS file whose points are all there.
  bool Load(const std::filesystem::path& path) {
    std::ifstream in(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    return Parse();
  }

  std::uint64_t GetPointCount() const { return pointCount_; }
  std::size_t GetRecordBytes() const { return recordBytes_; }
  const std::uint8_t* GetRecord(std::uint64_t point) const {
    return bytes_.data() + pointsAt_ + point * recordBytes_;
  }
  const std::vector<std::uint8_t>& GetBytes() const { return bytes_; }
  std::uint64_t GetPointsEnd() const { return pointsAt_ + pointCount_ * recordBytes_; }
  std::uint64_t GetPointsBegin() const { return pointsAt_; }
  const Triple& GetScale() const { return scale_; }
  const Triple& GetOffset() const { return offset_; }
  /// Every scalar dimension, colours one by one, and the coordinates x, y, z.
  const std::vector<Field>& GetFields() const { return fields_; }

  const Field* FindField(const std::string& name) const {
    for (const Field& field : fields_) {
      if (field.name == name) return &field;
    }
    return nullptr;
  }

  std::int32_t GetStored(std::uint64_t point, std::size_t axis) const {
    return Number<std::int32_t>(GetRecord(point) + 4 * axis);
  }
  double GetSource(std::uint64_t point, std::size_t axis) const {
    return static_cast<double>(GetStored(point, axis)) * scale_[axis] + offset_[axis];
  }

  Value GetValue(const Field& field, std::uint64_t point) const {
    const std::uint8_t* from = GetRecord(point) + field.at;
    switch (field.kind) {
      case Field::Kind::kCoordinate:
        return Real(GetSource(point, field.at));
      case Field::Kind::kReal:
        return Real(field.bytes == 4 ? Number<float>(from) : Number<double>(from));
      case Field::Kind::kSigned: {
        std::uint64_t word = 0;
        for (std::size_t i = 0; i < field.bytes; ++i) word |= std::uint64_t{from[i]} << (8 * i);
        const unsigned unused = static_cast<unsigned>(64 - 8 * field.bytes);
        return Integer(static_cast<std::int64_t>(word << unused) >> unused);
      }
      case Field::Kind::kUnsigned:
        break;
    }
    if (field.bits != 0) return Integer((from[0] >> field.shift) % (1 << field.bits));
    std::uint64_t word = 0;
    for (std::size_t i = 0; i < field.bytes; ++i) word |= std::uint64_t{from[i]} << (8 * i);
    if (word >> 63 == 0) return Integer(static_cast<std::int64_t>(word));
    return Real(static_cast<double>(word));  // beyond what is ever asked for
  }

 private:
  template <typename T>
  static T Number(const std::uint8_t* from) {
    T value;
    std::memcpy(&value, from, sizeof(T));
    return value;
  }
  static Value Integer(std::int64_t value) { return {true, value, static_cast<double>(value)}; }
  static Value Real(double value) { return {false, 0, value}; }

  bool Parse() {
    if (bytes_.size() < 227 || std::memcmp(bytes_.data(), "LASF", 4) != 0) return false;
    const int minor = bytes_[25];
    if (minor > 4 || bytes_[104] > 10 || (minor == 4 && bytes_.size() < 375)) return false;
    format_ = bytes_[104];
    pointsAt_ = Number<std::uint32_t>(&bytes_[96]);
    recordBytes_ = Number<std::uint16_t>(&bytes_[105]);
    pointCount_ = Number<std::uint32_t>(&bytes_[107]);
    if (minor == 4 && Number<std::uint64_t>(&bytes_[247]) != 0) {
      pointCount_ = Number<std::uint64_t>(&bytes_[247]);
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
      scale_[axis] = Number<double>(&bytes_[131 + 8 * axis]);
      offset_[axis] = Number<double>(&bytes_[155 + 8 * axis]);
    }
    if (recordBytes_ < 20 || GetPointsEnd() > bytes_.size()) return false;
    ListFields();
    return true;
  }

  void AddField(std::string name, Field::Kind kind, std::size_t at, std::size_t bytes) {
    fields_.push_back({std::move(name), kind, at, bytes, 0, 0});
  }
  void AddBits(std::string name, std::size_t at, unsigned shift, unsigned bits) {
    fields_.push_back({std::move(name), Field::Kind::kUnsigned, at, 1, shift, bits});
  }

  void ListFields() {
    using Kind = Field::Kind;
    AddField("intensity", Kind::kUnsigned, 12, 2);
    if (format_ <= 5) {
      AddBits("return_number", 14, 0, 3);
      AddBits("number_of_returns", 14, 3, 3);
      AddBits("scan_direction_flag", 14, 6, 1);
      AddBits("edge_of_flight_line", 14, 7, 1);
      AddBits("classification", 15, 0, 5);
      AddBits("synthetic", 15, 5, 1);
      AddBits("key_point", 15, 6, 1);
      AddBits("withheld", 15, 7, 1);
      AddField("scan_angle", Kind::kSigned, 16, 1);
      AddField("user_data", Kind::kUnsigned, 17, 1);
      AddField("point_source_id", Kind::kUnsigned, 18, 2);
    } else {
      AddBits("return_number", 14, 0, 4);
      AddBits("number_of_returns", 14, 4, 4);
      AddBits("synthetic", 15, 0, 1);
      AddBits("key_point", 15, 1, 1);
      AddBits("withheld", 15, 2, 1);
      AddBits("overlap", 15, 3, 1);
      AddBits("scanner_channel", 15, 4, 2);
      AddBits("scan_direction_flag", 15, 6, 1);
      AddBits("edge_of_flight_line", 15, 7, 1);
      AddField("classification", Kind::kUnsigned, 16, 1);
      AddField("user_data", Kind::kUnsigned, 17, 1);
      AddField("scan_angle", Kind::kSigned, 18, 2);
      AddField("point_source_id", Kind::kUnsigned, 20, 2);
    }
    std::size_t at = format_ <= 5 ? 20 : 22;
    if (format_ != 0 && format_ != 2) {
      AddField("gps_time", Kind::kReal, at, 8);
      at += 8;
    }
    const bool color = format_ == 2 || format_ == 3 || format_ == 5 || format_ == 7 ||
                       format_ == 8 || format_ == 10;
    if (color) {
      AddField("red", Kind::kUnsigned, at, 2);
      AddField("green", Kind::kUnsigned, at + 2, 2);
      AddField("blue", Kind::kUnsigned, at + 4, 2);
      at += 6;
    }
    if (format_ == 8 || format_ == 10) {
      AddField("nir", Kind::kUnsigned, at, 2);
      at += 2;
    }
    if (format_ == 4 || format_ == 5 || format_ == 9 || format_ == 10) {
      AddField("wave_packet_index", Kind::kUnsigned, at, 1);
      AddField("wave_packet_offset", Kind::kUnsigned, at + 1, 8);
      AddField("wave_packet_size", Kind::kUnsigned, at + 9, 4);
      AddField("wave_packet_return_location", Kind::kReal, at + 13, 4);
      AddField("wave_packet_x", Kind::kReal, at + 17, 4);
      AddField("wave_packet_y", Kind::kReal, at + 21, 4);
      AddField("wave_packet_z", Kind::kReal, at + 25, 4);
      at += 29;
    }
    ListExtraFields(at);
    for (std::size_t axis = 0; axis < 3; ++axis) {
      fields_.push_back({std::string(1, "xyz"[axis]), Kind::kCoordinate, axis, 0, 0, 0});
    }
  }

  /// A name that no other field has, and none of the reserved ones.
  std::string FreeName(const std::string& wanted) const {
    const auto taken = [this](const std::string& name) {
      static const std::array<const char*, 8> kReserved{
          "x", "y", "z", "red", "green", "blue", "DEF_POSITION", "DEF_COLOR"};
      return FindField(name) != nullptr ||
             std::find(kReserved.begin(), kReserved.end(), name) != kReserved.end();
    };
    std::string name = wanted;
    for (int i = 2; taken(name); ++i) name = wanted + "_" + std::to_string(i);
    return name;
  }

  void ListExtraFields(std::size_t at) {
    std::size_t nameless = 0;
    const auto addByte = [&] {
      AddField(FreeName("extra_" + std::to_string(nameless++)), Field::Kind::kUnsigned, at++, 1);
    };
    for (const std::uint8_t* descriptor : FindDescriptors()) {
      if (at >= recordBytes_) break;
      const unsigned type = descriptor[2];
      constexpr std::array<std::size_t, 10> kBytes{1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
      const std::size_t parts = type == 0 ? 0 : type <= 10 ? 1 : type <= 20 ? 2 : 3;
      const unsigned scalar = type == 0 ? 0 : (type - 1) % 10;
      std::size_t length = type == 0 ? descriptor[3] : parts * kBytes[scalar];
      if (type > 30) length = recordBytes_;
      if (type == 0 || type > 30 || length > recordBytes_ - at) {
        for (std::size_t i = 0; i < length && at < recordBytes_; ++i) addByte();
        continue;
      }
      std::string name;
      for (std::size_t i = 4; i < 36 && descriptor[i] != 0; ++i) {
        name += static_cast<char>(descriptor[i]);
      }
      if (name.empty()) name = "extra";
      for (std::size_t part = 0; part < parts; ++part) {
        const std::string full = parts == 1 ? name : name + "_" + std::to_string(part);
        const Field::Kind kind = scalar >= 8       ? Field::Kind::kReal
                                 : scalar % 2 == 1 ? Field::Kind::kSigned
                                                   : Field::Kind::kUnsigned;
        AddField(FreeName(full), kind, at, kBytes[scalar]);
        at += kBytes[scalar];
      }
    }
    while (at < recordBytes_) addByte();
  }

  std::vector<const std::uint8_t*> FindDescriptors() const {
    std::vector<const std::uint8_t*> found;
    const auto visit = [&](std::size_t head, std::size_t payload, std::size_t length) {
      const bool extraBytes =
          std::strncmp(reinterpret_cast<const char*>(&bytes_[head + 2]), "LASF_Spec", 16) == 0 &&
          Number<std::uint16_t>(&bytes_[head + 18]) == 4;
      if (!extraBytes || payload + length > bytes_.size()) return;
      for (std::size_t i = 0; i + 192 <= length; i += 192) found.push_back(&bytes_[payload + i]);
    };
    std::size_t at = Number<std::uint16_t>(&bytes_[94]);
    for (std::uint32_t i = 0; i < Number<std::uint32_t>(&bytes_[100]); ++i) {
      if (at + 54 > pointsAt_) return found;
      const std::size_t length = Number<std::uint16_t>(&bytes_[at + 20]);
      visit(at, at + 54, length);
      at += 54 + length;
    }
    if (bytes_[25] != 4) return found;
    std::uint64_t extended = Number<std::uint64_t>(&bytes_[235]);
    for (std::uint32_t i = 0; i < Number<std::uint32_t>(&bytes_[243]); ++i) {
      if (extended + 60 > bytes_.size()) return found;
      const auto length = Number<std::uint64_t>(&bytes_[extended + 20]);
      visit(extended, extended + 60, length);
      extended += 60 + length;
    }
    return found;
  }

  std::vector<std::uint8_t> bytes_;
  int format_ = 0;
  std::uint64_t pointsAt_ = 0;
  std::size_t recordBytes_ = 0;
  std::uint64_t pointCount_ = 0;
  Triple scale_{};
  Triple offset_{};
  std::vector<Field> fields_;
};

/// A query as a tree; constants in source coordinates.
struct Expression {
  enum class Kind { kAll, kNone, kSphere, kBox, kBox2d, kFrustum, kCompare, kAnd, kOr, kXor, kNot };
  Kind kind = Kind::kAll;
  std::vector<double> numbers;  ///< of a geometric clause, in the order of the text
  // A comparison.
  std::string name;
  std::string type;  ///< "int", "int64", "uint8_t", "float", "double"
  std::string op;    ///< "==", ">", ">=", "<", "<=", "!=", "<>", "<=>"
  double first = 0;
  double second = 0;
  std::vector<Expression> children;
};

/// Answers expressions over one file, in a frame.
class Evaluator {
 public:
  Evaluator(const LasFile& file, const Triple& frame) : file_(file), frame_(frame) {}

  struct Selection {
    std::uint64_t count = 0;
    std::array<std::int64_t, 3> sums{};  ///< of the stored integers X, Y and Z
    friend bool operator==(const Selection&, const Selection&) = default;
  };

  Selection Select(const Expression& expression) const {
    Selection selection;
    for (std::uint64_t point = 0; point < file_.GetPointCount(); ++point) {
      if (!Holds(expression, point)) continue;
      ++selection.count;
      for (std::size_t axis = 0; axis < 3; ++axis) {
        selection.sums[axis] += file_.GetStored(point, axis);
      }
    }
    return selection;
  }

  bool Holds(const Expression& e, std::uint64_t point) const {
    using Kind = Expression::Kind;
    switch (e.kind) {
      case Kind::kAll:
        return true;
      case Kind::kNone:
        return false;
      case Kind::kSphere:
        return InSphere(e.numbers, point);
      case Kind::kBox:
        return InBox(e.numbers, point);
      case Kind::kBox2d:
        return InBox2d(e.numbers, point);
      case Kind::kFrustum:
        return InFrustum(e.numbers, point);
      case Kind::kCompare:
        return Compares(e, point);
      case Kind::kNot:
        return !Holds(e.children[0], point);
      case Kind::kAnd:
      case Kind::kOr:
      case Kind::kXor:
        break;
    }
    bool result = Holds(e.children[0], point);
    for (std::size_t i = 1; i < e.children.size(); ++i) {
      const bool next = Holds(e.children[i], point);
      if (e.kind == Kind::kAnd) result = result && next;
      if (e.kind == Kind::kOr) result = result || next;
      if (e.kind == Kind::kXor) result = result != next;
    }
    return result;
  }

 private:
  double Local(std::uint64_t point, std::size_t axis) const {
    return file_.GetSource(point, axis) - frame_[axis];
  }
  float Moved(const std::vector<double>& numbers, std::size_t i) const {
    return static_cast<float>(numbers[i] - frame_[i % 3]);
  }
  static bool Between(double value, double a, double b) {
    return (a <= value && value <= b) || (b <= value && value <= a);
  }

  bool InSphere(const std::vector<double>& n, std::uint64_t point) const {
    const double radius = static_cast<float>(n[3]);
    if (!(radius >= 0)) return false;
    const double dx = Local(point, 0) - static_cast<double>(Moved(n, 0));
    const double dy = Local(point, 1) - static_cast<double>(Moved(n, 1));
    const double dz = Local(point, 2) - static_cast<double>(Moved(n, 2));
    const double sum = dx * dx + dy * dy + dz * dz;
    return sum <= radius * radius;
  }
  bool InBox(const std::vector<double>& n, std::uint64_t point) const {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      if (!Between(Local(point, axis), Moved(n, axis), Moved(n, axis + 3))) return false;
    }
    return true;
  }
  bool InBox2d(const std::vector<double>& n, std::uint64_t point) const {
    for (std::size_t axis = 0; axis < 2; ++axis) {
      const double a = n[axis] - frame_[axis];
      const double b = n[axis + 2] - frame_[axis];
      if (!Between(Local(point, axis), a, b)) return false;
    }
    return true;
  }
  bool InFrustum(const std::vector<double>& n, std::uint64_t point) const {
    for (std::size_t i = 0; i < 24; i += 4) {
      double moved = n[i + 3] + n[i] * frame_[0];
      moved = moved + n[i + 1] * frame_[1];
      moved = moved + n[i + 2] * frame_[2];
      const double a = static_cast<float>(n[i]);
      const double b = static_cast<float>(n[i + 1]);
      const double c = static_cast<float>(n[i + 2]);
      const double d = static_cast<float>(moved);
      const double sum = a * Local(point, 0) + b * Local(point, 1) + c * Local(point, 2) + d;
      if (!(sum >= 0)) return false;
    }
    return true;
  }

  template <typename T>
  static bool Test(const std::string& op, T value, T first, T second) {
    if (op == "==") return value == first;
    if (op == ">") return value > first;
    if (op == ">=") return value >= first;
    if (op == "<") return value < first;
    if (op == "<=") return value <= first;
    if (op == "!=") return value != first;
    if (op == "<>") return value > first && value < second;
    return value >= first && value <= second;
  }
  bool Compares(const Expression& e, std::uint64_t point) const {
    const Value value = file_.GetValue(*file_.FindField(e.name), point);
    if (e.type == "double") return Test<double>(e.op, value.number, e.first, e.second);
    if (e.type == "float") {
      return Test<float>(e.op, static_cast<float>(value.number), static_cast<float>(e.first),
                         static_cast<float>(e.second));
    }
    return Test<std::int64_t>(e.op, value.integer, static_cast<std::int64_t>(e.first),
                              static_cast<std::int64_t>(e.second));
  }

  const LasFile& file_;
  Triple frame_;
};

/// A query as text, in the scan's own coordinates, and as a tree.
struct Query {
  std::string text;
  Expression expression;
};

/// Makes queries that go with a file. Comparisons take turns over every form of every dimension, so
/// enough queries ask them all.
class QueryMaker {
 public:
  QueryMaker(const LasFile& file, std::uint64_t seed) : file_(file), random_(seed) {
    for (const Field& field : file.GetFields()) {
      const std::vector<std::string> types = TypesOf(field);
      if (types.empty() || field.name.find('"') != std::string::npos) continue;
      for (const char* op : {"==", ">", ">=", "<", "<=", "!=", "<>", "<=>"}) {
        forms_.push_back({&field, types, op});
      }
    }
    std::shuffle(forms_.begin(), forms_.end(), random_);
  }

  /// Within one query a name is always asked as the same type: a record holds one representation.
  Query Make() {
    typeOf_.clear();
    return MakeQuery(static_cast<int>(random_() % 4));
  }

  std::vector<Query> Make(std::size_t count) {
    std::vector<Query> queries;
    for (std::size_t i = 0; i < count; ++i) queries.push_back(Make());
    return queries;
  }

  /// Number of pairs of a dimension and a comparison or range; so many Make*() cover them all.
  std::size_t GetFormCount() const { return forms_.size(); }

 private:
  struct Form {
    const Field* field;
    std::vector<std::string> types;
    const char* op;
  };
  using Kind = Expression::Kind;

  double Unit() { return std::uniform_real_distribution<double>(0, 1)(random_); }
  std::uint64_t AnyPoint() {
    return file_.GetPointCount() == 0 ? 0 : random_() % file_.GetPointCount();
  }
  double Coordinate(std::uint64_t point, std::size_t axis) const {
    return file_.GetPointCount() == 0 ? 0 : file_.GetSource(point, axis);
  }
  /// Roughly how far the points reach.
  double Extent() {
    if (extent_ > 0) return extent_;
    for (std::uint64_t point = 0; point < file_.GetPointCount(); ++point) {
      for (std::size_t axis = 0; axis < 3; ++axis) {
        extent_ = std::max(extent_, std::abs(Coordinate(point, axis) - Coordinate(0, axis)));
      }
    }
    return extent_ = extent_ > 0 ? extent_ : 1;
  }

  /// The types that hold every value of a field without loss.
  std::vector<std::string> TypesOf(const Field& field) const {
    if (field.kind == Field::Kind::kCoordinate) return {"double"};
    if (field.kind == Field::Kind::kReal) {
      if (field.bytes == 8) return {"double"};
      return {"float", "double"};
    }
    if (field.bytes == 1 && field.kind == Field::Kind::kUnsigned) {
      return {"uint8_t", "int", "int64", "float", "double"};
    }
    if (field.bytes <= 2) return {"int", "int64", "float", "double"};
    bool fitsInt = true;
    bool fitsDouble = true;
    for (std::uint64_t point = 0; point < file_.GetPointCount(); ++point) {
      const Value value = file_.GetValue(field, point);
      fitsInt =
          fitsInt && value.isInteger && value.integer >= INT32_MIN && value.integer <= INT32_MAX;
      fitsDouble = fitsDouble && value.isInteger && std::abs(value.number) <= 0x1p53;
    }
    if (field.bytes == 4 && fitsInt) return {"int", "int64", "double"};
    if (fitsDouble) return {"double"};
    return {};
  }

  static std::string Text(double number) {
    std::array<char, 40> text{};
    std::snprintf(text.data(), text.size(), "%.17g", number);
    return text.data();
  }
  static std::string Texts(const std::vector<double>& numbers) {
    std::string text;
    for (const double number : numbers) text += (text.empty() ? "" : ", ") + Text(number);
    return text;
  }

  Query MakeQuery(int depth) {
    if (depth == 0) return random_() % 2 == 0 ? MakeComparison() : MakeGeometry();
    if (random_() % 6 == 0) {
      Query inner = MakeOperand(depth - 1);
      return {"#not(" + inner.text + ")", {Kind::kNot, {}, {}, {}, {}, 0, 0, {inner.expression}}};
    }
    constexpr std::array<const char*, 3> kNames{"#and", "#or", "#xor"};
    constexpr std::array<Kind, 3> kKinds{Kind::kAnd, Kind::kOr, Kind::kXor};
    const std::size_t which = random_() % 3;
    Query query{std::string(kNames[which]) + "(", {}};
    query.expression.kind = kKinds[which];
    const std::size_t operands = 2 + random_() % 2;
    for (std::size_t i = 0; i < operands; ++i) {
      Query operand = MakeOperand(depth - 1);
      query.text += (i == 0 ? "" : ", ") + operand.text;
      query.expression.children.push_back(std::move(operand.expression));
    }
    query.text += ")";
    return query;
  }

  /// A query that may stand as an operand: calls of and, or and xor in parentheses.
  Query MakeOperand(int depth) {
    Query query = MakeQuery(depth);
    const Kind kind = query.expression.kind;
    if (kind == Kind::kAnd || kind == Kind::kOr || kind == Kind::kXor) {
      query.text.insert(0, "(").append(")");
    }
    return query;
  }

  Query MakeGeometry() {
    switch (random_() % 9) {
      case 0:
        return random_() % 2 == 0 ? Query{"#true()", {}}
                                  : Query{"#false()", {Kind::kNone, {}, {}, {}, {}, 0, 0, {}}};
      case 1:
      case 2:
        return MakeSphere();
      case 3:
      case 4:
        return MakeBox();
      case 5:
      case 6:
        return MakeBox2d();
      default:
        return MakeFrustum();
    }
  }

  Query Geometry(Kind kind, const std::string& before, std::vector<double> numbers) {
    Query query{before + "(" + Texts(numbers) + ")", {}};
    query.expression.kind = kind;
    query.expression.numbers = std::move(numbers);
    return query;
  }
  Query MakeSphere() {
    const std::uint64_t point = AnyPoint();
    const double radius = Extent() * std::pow(10, -3 * Unit());
    const char* before = random_() % 2 == 0 ? "#within{type=sphere}" : "#distance";
    return Geometry(Kind::kSphere, before,
                    {Coordinate(point, 0), Coordinate(point, 1), Coordinate(point, 2), radius});
  }
  Query MakeBox() {
    const std::uint64_t a = AnyPoint();
    const std::uint64_t b = AnyPoint();
    const char* before = random_() % 2 == 0 ? "#within{type=box}" : "#within{type=oobb}";
    return Geometry(Kind::kBox, before,
                    {Coordinate(a, 0), Coordinate(a, 1), Coordinate(a, 2), Coordinate(b, 0),
                     Coordinate(b, 1), Coordinate(b, 2) + Extent() * (Unit() - 0.5)});
  }
  Query MakeBox2d() {
    const std::uint64_t a = AnyPoint();
    const std::uint64_t b = AnyPoint();
    return Geometry(Kind::kBox2d, "#within{type=2dbox}",
                    {Coordinate(a, 0), Coordinate(a, 1), Coordinate(b, 0), Coordinate(b, 1)});
  }
  /// Six planes around a point, turned at random and leaning inwards.
  Query MakeFrustum() {
    const std::uint64_t point = AnyPoint();
    std::vector<double> numbers;
    const double size = Extent() * (0.05 + 0.5 * Unit());
    const double turn = 6.28 * Unit();
    const double lean = 0.4 * Unit();
    for (int side = 0; side < 6; ++side) {
      const double angle = turn + side * 1.5707963267948966;
      Triple normal{std::cos(angle), std::sin(angle), side % 2 == 0 ? lean : -lean};
      if (side >= 4) normal = {0.1 * Unit(), 0.1 * Unit(), side == 4 ? 1.0 : -1.0};
      double distance = size * (0.3 + Unit());
      for (std::size_t axis = 0; axis < 3; ++axis) {
        distance -= normal[axis] * Coordinate(point, axis);
        numbers.push_back(normal[axis]);
      }
      numbers.push_back(distance);
    }
    return Geometry(Kind::kFrustum, "#within{type=frustum}", std::move(numbers));
  }

  Query MakeComparison() {
    const Form& form = forms_[nextForm_++ % forms_.size()];
    Expression e;
    e.kind = Kind::kCompare;
    e.name = form.field->name;
    e.type = typeOf_.try_emplace(e.name, form.types[random_() % form.types.size()]).first->second;
    e.op = form.op;
    e.first = Constant(*form.field, e.type);
    e.second = Constant(*form.field, e.type);
    const bool range = e.op == "<>" || e.op == "<=>";
    if (range && e.second < e.first && random_() % 8 != 0) std::swap(e.first, e.second);
    std::string text =
        "#num{type=" + e.type + "}(\"" + e.name + "\", " + e.op + ", " + Text(e.first);
    if (range) text += ", " + Text(e.second);
    return {text + ")", e};
  }

  /// A constant near a value that occurs, as `type` holds it. Numbers whose text strains a reader
  /// (NaN, subnormal, next to overflow) are not what is tested here.
  double Constant(const Field& field, const std::string& type) {
    double value = file_.GetPointCount() == 0 ? 1 : file_.GetValue(field, AnyPoint()).number;
    const bool real = field.kind == Field::Kind::kReal || field.kind == Field::Kind::kCoordinate;
    if (real) {
      if (random_() % 3 == 0) value *= 1 + 0.001 * (Unit() - 0.5);
    } else if (random_() % 3 == 0) {
      value += static_cast<double>(random_() % 3) - 1;
    }
    if (type == "float") value = static_cast<float>(value);
    const double magnitude = std::abs(value);
    const bool plain = magnitude == 0 || (magnitude > 1e-30 && magnitude < 1e30);
    if (!plain) value = 0;
    if (type == "uint8_t") value = std::clamp(value, 0.0, 255.0);
    if (type == "int" || type == "int64") value = std::clamp(value, -2147483648.0, 2147483647.0);
    return value;
  }

  const LasFile& file_;
  std::mt19937_64 random_;
  std::vector<Form> forms_;
  std::map<std::string, std::string> typeOf_;  ///< of the query in the making
  std::size_t nextForm_ = 0;
  double extent_ = 0;
};

}  // namespace oocpctest::brute
