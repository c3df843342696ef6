// What the XML section of an E57 file says of its scans.
#pragma once

#include <array>
#include <cstdint>
#include <limits>
#include <string>
#include <string_view>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// One field of a scan's records.
struct E57Field {
  enum class Kind { kInteger, kScaledInteger, kFloat, kDouble, kText };

  std::string name;  ///< as the file has it, for instance "cartesianX" or "nor:normalX"
  Kind kind = Kind::kDouble;
  std::int64_t minimum = std::numeric_limits<std::int64_t>::min();  ///< of integers
  std::int64_t maximum = std::numeric_limits<std::int64_t>::max();
  double scale = 1;  ///< of scaled integers
  double offset = 0;

  [[nodiscard]] bool IsInteger() const {
    return kind == Kind::kInteger || kind == Kind::kScaledInteger;
  }
  /// Bits of a value in the file; of a text, the fewest.
  [[nodiscard]] unsigned GetBits() const;
};

/// Where a scan stood: its points are turned, then moved.
struct E57Pose {
  std::array<double, 4> rotation{1, 0, 0,
                                 0};  ///< a quaternion: w, x, y, z; its length does not matter
  std::array<double, 3> translation{};

  [[nodiscard]] bool IsIdentity() const;
  void Apply(std::array<double, 3>& point) const;
};

struct E57Scan {
  std::uint64_t recordCount = 0;
  std::uint64_t fileOffset = 0;  ///< physical, of its compressed vector
  bool hasPoints = false;        ///< false for a scan without any
  std::vector<E57Field> fields;
  E57Pose pose;
};

/// Reads the XML section. kScanContradictory, kScanUnsupported; `where` names the file.
Outcome ParseE57Xml(std::string_view xml, const std::string& where, std::vector<E57Scan>& scans);

}  // namespace tarnhost
