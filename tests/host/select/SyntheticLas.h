// Small LAS files made from a seed, and a reader of LAS points that shares no code with the one
// that it checks: offsets and bit positions stand here once more, as the format states them.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <random>
#include <string>
#include <vector>

namespace oocpctest {

struct LasRecipe {
  std::uint8_t format = 0;
  std::uint32_t pointCount = 1000;
  std::uint64_t seed = 1;
  std::array<double, 3> scale{0.01, 0.01, 0.01};
  std::array<double, 3> offset{637000, 849000, 0};
  bool extraBytes = false;  ///< one dimension of each type: "u8", "i8", … "f32", "f64"
  bool wideExtra = false;   ///< its values take the whole range of the type, else 0 to 100
};

inline constexpr std::array<const char*, 10> kExtraNames{"u8",  "i8",  "u16", "i16", "u32",
                                                         "i32", "u64", "i64", "f32", "f64"};
inline constexpr std::array<std::size_t, 10> kExtraBytes{1, 1, 2, 2, 4, 4, 8, 8, 4, 8};
inline constexpr std::size_t kAllExtraBytes = 42;
inline constexpr std::array<std::uint16_t, 11> kPointBytes{20, 28, 26, 34, 57, 63,
                                                           30, 36, 38, 59, 67};
/// Where GPS time and red lie in the record of a format; 0 where it has none.
inline constexpr std::array<std::size_t, 11> kTimeAt{0, 20, 0, 20, 20, 20, 22, 22, 22, 22, 22};
inline constexpr std::array<std::size_t, 11> kRedAt{0, 0, 20, 28, 0, 28, 0, 30, 30, 0, 30};

using ByteVector = std::vector<std::uint8_t>;

template <typename T>
void PutAt(ByteVector& bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof value);
}

template <typename T>
T GetAt(const ByteVector& bytes, std::size_t at) {
  T value;
  std::memcpy(&value, bytes.data() + at, sizeof value);
  return value;
}

inline ByteVector ExtraBytesRecord() {
  ByteVector record(54 + 192 * kExtraNames.size());
  std::memcpy(record.data() + 2, "LASF_Spec", 9);
  PutAt<std::uint16_t>(record, 18, 4);
  PutAt<std::uint16_t>(record, 20, static_cast<std::uint16_t>(record.size() - 54));
  for (std::size_t i = 0; i < kExtraNames.size(); ++i) {
    const std::size_t at = 54 + 192 * i;
    record[at + 2] = static_cast<std::uint8_t>(i + 1);
    std::memcpy(record.data() + at + 4, kExtraNames[i], std::strlen(kExtraNames[i]));
  }
  return record;
}

inline void FillExtraBytes(ByteVector& file, std::size_t at, bool wide, std::mt19937_64& random) {
  for (std::size_t i = 0; i < kExtraNames.size(); at += kExtraBytes[i], ++i) {
    const std::uint64_t bits = wide ? random() : random() % 101;
    if (i < 8) {
      std::memcpy(file.data() + at, &bits, kExtraBytes[i]);
    } else if (i == 8) {
      PutAt(file, at, wide ? static_cast<float>(bits) * 0.37F : static_cast<float>(bits));
    } else {
      PutAt(file, at, wide ? static_cast<double>(bits) * 0.37 : static_cast<double>(bits));
    }
  }
}

/// The bytes of a LAS file. Points stand in clumps; every other byte of the records is random, but
/// for GPS times, which rise in runs, repeat, and now and then are no number.
inline ByteVector MakeLas(const LasRecipe& recipe) {
  std::mt19937_64 random(recipe.seed);
  const std::uint8_t minor = recipe.format < 4 ? 2 : recipe.format < 6 ? 3 : 4;
  const std::size_t headerBytes = minor == 2 ? 227 : minor == 3 ? 235 : 375;
  const ByteVector record = recipe.extraBytes ? ExtraBytesRecord() : ByteVector();
  const std::size_t pointsAt = headerBytes + record.size();
  const std::size_t pointBytes =
      kPointBytes[recipe.format] + (recipe.extraBytes ? kAllExtraBytes : 0);
  ByteVector file(pointsAt + pointBytes * recipe.pointCount);
  std::copy(record.begin(), record.end(), file.begin() + static_cast<std::ptrdiff_t>(headerBytes));
  std::array<std::int32_t, 3> least{INT32_MAX, INT32_MAX, INT32_MAX};
  std::array<std::int32_t, 3> most{INT32_MIN, INT32_MIN, INT32_MIN};
  std::array<std::int32_t, 3> clump{};
  for (std::uint32_t i = 0; i < recipe.pointCount; ++i) {
    const std::size_t at = pointsAt + pointBytes * i;
    for (std::size_t byte = 12; byte < kPointBytes[recipe.format]; ++byte) {
      file[at + byte] = static_cast<std::uint8_t>(random() >> 56);
    }
    if (random() % 50 == 0) {
      for (auto& c : clump) c = static_cast<std::int32_t>(random() % 200000);
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const auto value = clump[axis] + static_cast<std::int32_t>(random() % 2000);
      PutAt(file, at + 4 * axis, value);
      least[axis] = std::min(least[axis], value);
      most[axis] = std::max(most[axis], value);
    }
    if (kTimeAt[recipe.format] != 0) {
      const double time = random() % 100 == 0 ? std::nan("") : static_cast<double>(i / 3) * 0.125;
      PutAt(file, at + kTimeAt[recipe.format], time);
    }
    if (recipe.extraBytes) {
      FillExtraBytes(file, at + kPointBytes[recipe.format], recipe.wideExtra, random);
    }
  }
  std::memcpy(file.data(), "LASF", 4);
  file[24] = 1;
  file[25] = minor;
  PutAt(file, 94, static_cast<std::uint16_t>(headerBytes));
  PutAt(file, 96, static_cast<std::uint32_t>(pointsAt));
  PutAt<std::uint32_t>(file, 100, recipe.extraBytes ? 1 : 0);
  file[104] = recipe.format;
  PutAt(file, 105, static_cast<std::uint16_t>(pointBytes));
  if (recipe.format < 6) PutAt(file, 107, recipe.pointCount);
  if (minor == 4) PutAt<std::uint64_t>(file, 247, recipe.pointCount);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    PutAt(file, 131 + 8 * axis, recipe.scale[axis]);
    PutAt(file, 155 + 8 * axis, recipe.offset[axis]);
    if (recipe.pointCount == 0) continue;
    PutAt(file, 179 + 16 * axis, most[axis] * recipe.scale[axis] + recipe.offset[axis]);
    PutAt(file, 187 + 16 * axis, least[axis] * recipe.scale[axis] + recipe.offset[axis]);
  }
  return file;
}

/// The points of an uncompressed LAS file.
class LasPoints {
 public:
  explicit LasPoints(ByteVector file) : file_(std::move(file)) {
    format_ = file_[104];
    pointsAt_ = GetAt<std::uint32_t>(file_, 96);
    pointBytes_ = GetAt<std::uint16_t>(file_, 105);
    count_ = GetAt<std::uint32_t>(file_, 107);
    if (count_ == 0 && file_[25] >= 4) count_ = GetAt<std::uint64_t>(file_, 247);
  }

  [[nodiscard]] std::uint8_t GetFormat() const { return format_; }
  [[nodiscard]] std::uint64_t GetCount() const { return count_; }
  [[nodiscard]] std::array<double, 3> GetScale() const { return Three(131); }
  [[nodiscard]] std::array<double, 3> GetOffset() const { return Three(155); }
  [[nodiscard]] std::string GetRecord(std::uint64_t point) const {
    const auto begin = file_.begin() + static_cast<std::ptrdiff_t>(At(point));
    return {begin, begin + static_cast<std::ptrdiff_t>(pointBytes_)};
  }
  [[nodiscard]] std::int32_t GetStored(std::uint64_t point, std::size_t axis) const {
    return GetAt<std::int32_t>(file_, At(point) + 4 * axis);
  }
  [[nodiscard]] double GetCoordinate(std::uint64_t point, std::size_t axis) const {
    return GetStored(point, axis) * GetScale()[axis] + GetOffset()[axis];
  }

  /// Names of some dimensions that a point of this file has, each of which a double holds.
  [[nodiscard]] std::vector<std::string> ListNames() const {
    std::vector<std::string> names{"intensity",
                                   "return_number",
                                   "number_of_returns",
                                   "classification",
                                   "scan_angle",
                                   "user_data",
                                   "withheld",
                                   "synthetic",
                                   "point_source_id",
                                   "x",
                                   "y",
                                   "z"};
    if (kTimeAt[format_] != 0) names.emplace_back("gps_time");
    if (kRedAt[format_] != 0) names.insert(names.end(), {"red", "green", "blue"});
    return names;
  }

  [[nodiscard]] double GetValue(std::uint64_t point, const std::string& name) const {
    const bool legacy = format_ < 6;
    const std::size_t at = At(point);
    const unsigned returns = file_[at + 14];
    const unsigned flags = file_[at + 15];
    if (name == "x") return GetCoordinate(point, 0);
    if (name == "y") return GetCoordinate(point, 1);
    if (name == "z") return GetCoordinate(point, 2);
    if (name == "intensity") return GetAt<std::uint16_t>(file_, at + 12);
    if (name == "return_number") return legacy ? returns & 7u : returns & 15u;
    if (name == "number_of_returns") return legacy ? (returns >> 3) & 7u : returns >> 4;
    if (name == "classification") return legacy ? flags & 31u : file_[at + 16];
    if (name == "synthetic") return legacy ? (flags >> 5) & 1u : flags & 1u;
    if (name == "withheld") return legacy ? flags >> 7 : (flags >> 2) & 1u;
    if (name == "user_data") return file_[at + 17];
    if (name == "scan_angle") {
      return legacy ? static_cast<double>(static_cast<std::int8_t>(file_[at + 16]))
                    : GetAt<std::int16_t>(file_, at + 18);
    }
    if (name == "point_source_id") return GetAt<std::uint16_t>(file_, at + (legacy ? 18 : 20));
    if (name == "gps_time") return GetAt<double>(file_, at + kTimeAt[format_]);
    const std::size_t color = name == "red" ? 0 : name == "green" ? 2 : 4;
    return GetAt<std::uint16_t>(file_, at + kRedAt[format_] + color);
  }

 private:
  [[nodiscard]] std::size_t At(std::uint64_t point) const {
    return pointsAt_ + pointBytes_ * point;
  }
  [[nodiscard]] std::array<double, 3> Three(std::size_t at) const {
    return {GetAt<double>(file_, at), GetAt<double>(file_, at + 8), GetAt<double>(file_, at + 16)};
  }

  ByteVector file_;
  std::uint8_t format_ = 0;
  std::size_t pointsAt_ = 0;
  std::size_t pointBytes_ = 0;
  std::uint64_t count_ = 0;
};

}  // namespace oocpctest
