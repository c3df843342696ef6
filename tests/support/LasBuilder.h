// Makes the bytes of LAS files for tests, with code of its own.
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <vector>

namespace oocpctest {

/// A LAS file in the making. The points' bytes are random but for reproducible bounds: X, Y and Z
/// are whatever the random bytes say.
struct LasBuilder {
  struct Record {
    std::string user;
    std::uint16_t id = 0;
    std::vector<std::uint8_t> payload;
  };

  unsigned minor = 4;
  unsigned format = 0;
  std::size_t extraBytes = 0;  ///< at the end of each point record
  std::uint32_t pointCount = 5;
  std::size_t headerPadding = 0;  ///< bytes by which the header is longer than its version's
  std::size_t padding = 0;        ///< bytes between the last record and the points
  std::vector<Record> records;
  std::vector<Record> extendedRecords;
  std::array<double, 3> scale{0.01, 0.02, 0.001};
  std::array<double, 3> offset{1000, -2000, 3};
  unsigned seed = 1;

  static std::size_t HeaderBytes(unsigned minor) {
    return minor < 3 ? 227 : minor == 3 ? 235 : 375;
  }
  static std::size_t FormatBytes(unsigned format) {
    constexpr std::array<std::size_t, 11> kBytes{20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
    return kBytes[format];
  }
  std::size_t PointBytes() const { return FormatBytes(format) + extraBytes; }

  /// One descriptor of the extra-bytes record.
  static std::vector<std::uint8_t> Descriptor(unsigned type, const std::string& name,
                                              unsigned options = 0,
                                              const std::string& description = "") {
    std::vector<std::uint8_t> bytes(192);
    bytes[2] = static_cast<std::uint8_t>(type);
    bytes[3] = static_cast<std::uint8_t>(options);
    std::memcpy(&bytes[4], name.data(), std::min<std::size_t>(name.size(), 32));
    std::memcpy(&bytes[160], description.data(), std::min<std::size_t>(description.size(), 32));
    return bytes;
  }
  LasBuilder& Describe(const std::vector<std::vector<std::uint8_t>>& descriptors) {
    records.push_back({"LASF_Spec", 4, Joined(descriptors)});
    return *this;
  }
  static std::vector<std::uint8_t> Joined(const std::vector<std::vector<std::uint8_t>>& parts) {
    std::vector<std::uint8_t> joined;
    for (const auto& part : parts) joined.insert(joined.end(), part.begin(), part.end());
    return joined;
  }

  std::vector<std::uint8_t> Build() const {
    std::vector<std::uint8_t> file(HeaderBytes(minor) + headerPadding, 0xA5);
    std::fill(file.begin(), file.begin() + static_cast<std::ptrdiff_t>(HeaderBytes(minor)), 0);
    for (const Record& record : records) AppendRecord(file, record);
    file.insert(file.end(), padding, 0x5A);
    const std::size_t pointsAt = file.size();
    std::mt19937 random(seed);
    std::array<std::uint64_t, 16> returns{};
    for (std::uint32_t i = 0; i < pointCount; ++i) {
      const std::size_t at = file.size();
      for (std::size_t b = 0; b < PointBytes(); ++b) {
        file.push_back(static_cast<std::uint8_t>(random()));
      }
      ++returns[file[at + 14] & (format < 6 ? 7u : 15u)];
    }
    const std::size_t extendedAt = file.size();
    for (const Record& record : extendedRecords) AppendExtendedRecord(file, record);
    FillHeader(file, pointsAt, extendedAt, returns);
    return file;
  }

  template <typename T>
  static void Put(std::vector<std::uint8_t>& bytes, std::size_t at, T value) {
    std::memcpy(bytes.data() + at, &value, sizeof(T));
  }
  template <typename T>
  static T Get(const std::vector<std::uint8_t>& bytes, std::size_t at) {
    T value;
    std::memcpy(&value, bytes.data() + at, sizeof(T));
    return value;
  }

 private:
  static void AppendRecord(std::vector<std::uint8_t>& file, const Record& record) {
    const std::size_t at = file.size();
    file.resize(at + 54);
    std::memcpy(&file[at + 2], record.user.data(), std::min<std::size_t>(record.user.size(), 16));
    Put(file, at + 18, record.id);
    Put(file, at + 20, static_cast<std::uint16_t>(record.payload.size()));
    file.insert(file.end(), record.payload.begin(), record.payload.end());
  }
  static void AppendExtendedRecord(std::vector<std::uint8_t>& file, const Record& record) {
    const std::size_t at = file.size();
    file.resize(at + 60);
    std::memcpy(&file[at + 2], record.user.data(), std::min<std::size_t>(record.user.size(), 16));
    Put(file, at + 18, record.id);
    Put(file, at + 20, static_cast<std::uint64_t>(record.payload.size()));
    file.insert(file.end(), record.payload.begin(), record.payload.end());
  }

  void FillHeader(std::vector<std::uint8_t>& file, std::size_t pointsAt, std::size_t extendedAt,
                  const std::array<std::uint64_t, 16>& returns) const {
    std::memcpy(file.data(), "LASF", 4);
    file[24] = 1;
    file[25] = static_cast<std::uint8_t>(minor);
    std::memcpy(&file[26], "TEST", 4);
    std::memcpy(&file[58], "LasBuilder", 10);
    Put(file, 90, std::uint16_t{200});
    Put(file, 92, std::uint16_t{2024});
    Put(file, 94, static_cast<std::uint16_t>(HeaderBytes(minor) + headerPadding));
    Put(file, 96, static_cast<std::uint32_t>(pointsAt));
    Put(file, 100, static_cast<std::uint32_t>(records.size()));
    file[104] = static_cast<std::uint8_t>(format);
    Put(file, 105, static_cast<std::uint16_t>(PointBytes()));
    const bool legacy = minor < 4 || format < 6;
    if (legacy) Put(file, 107, pointCount);
    for (std::size_t i = 0; legacy && i < 5; ++i) {
      Put(file, 111 + 4 * i, static_cast<std::uint32_t>(returns[i + 1]));
    }
    for (std::size_t axis = 0; axis < 3; ++axis) {
      Put(file, 131 + 8 * axis, scale[axis]);
      Put(file, 155 + 8 * axis, offset[axis]);
    }
    FillBounds(file, pointsAt);
    if (minor < 4) return;
    Put(file, 235, std::uint64_t{extendedRecords.empty() ? 0 : extendedAt});
    Put(file, 243, static_cast<std::uint32_t>(extendedRecords.size()));
    Put(file, 247, std::uint64_t{pointCount});
    for (std::size_t i = 0; i < 15; ++i) Put(file, 255 + 8 * i, returns[i + 1]);
  }

  void FillBounds(std::vector<std::uint8_t>& file, std::size_t pointsAt) const {
    for (std::size_t axis = 0; axis < 3 && pointCount > 0; ++axis) {
      double least = 1e300;
      double greatest = -1e300;
      for (std::uint32_t i = 0; i < pointCount; ++i) {
        const auto stored = Get<std::int32_t>(file, pointsAt + i * PointBytes() + 4 * axis);
        least = std::min(least, stored * scale[axis] + offset[axis]);
        greatest = std::max(greatest, stored * scale[axis] + offset[axis]);
      }
      Put(file, 179 + 16 * axis, greatest);
      Put(file, 187 + 16 * axis, least);
    }
  }
};

}  // namespace oocpctest
