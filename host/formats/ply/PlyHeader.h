// The header of a PLY file: its elements and their properties.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

struct PlyProperty {
  std::string name;
  oocpc::ValueType type = oocpc::ValueType::kFloat;  ///< of a value; of a list, of its members
  bool isList = false;
  oocpc::ValueType countType = oocpc::ValueType::kUInt8;  ///< of a list's number of members
};

struct PlyElement {
  std::string name;
  std::uint64_t count = 0;
  std::vector<PlyProperty> properties;

  [[nodiscard]] bool HasLists() const;
  /// Bytes of one in a binary file; of its lists, only the count.
  [[nodiscard]] std::size_t GetFixedBytes() const;
};

enum class PlyFormat { kText, kLittleEndian, kBigEndian };

struct PlyHeader {
  PlyFormat format = PlyFormat::kText;
  std::vector<PlyElement> elements;
  std::size_t vertexElement = 0;  ///< which of them holds the points
  std::size_t bytes = 0;          ///< of the header; data follows
  std::uint64_t lines = 0;        ///< of the header
};

/// True for the start of a PLY file.
[[nodiscard]] bool IsPly(std::span<const std::uint8_t> file);

/// Reads the header. kScanTruncated, kScanContradictory, kScanUnsupported; `where` names the file.
Outcome ParsePlyHeader(std::span<const std::uint8_t> file, const std::string& where,
                       PlyHeader& header);

}  // namespace tarnhost
