// The header of a PCD file.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <cstdint>
#include <span>
#include <string>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

struct PcdField {
  std::string name;
  oocpc::ValueType type = oocpc::ValueType::kFloat;
  std::uint32_t count = 1;  ///< values a point
};

enum class PcdData { kText, kBinary, kCompressed };

struct PcdHeader {
  std::vector<PcdField> fields;
  std::uint64_t pointCount = 0;
  PcdData data = PcdData::kText;
  std::size_t bytes = 0;    ///< of the header; data follows
  std::uint64_t lines = 0;  ///< of the header
};

/// True for the start of a PCD file.
[[nodiscard]] bool IsPcd(std::span<const std::uint8_t> file);

/// Reads the header. kScanTruncated, kScanContradictory, kScanUnsupported; `where` names the file.
Outcome ParsePcdHeader(std::span<const std::uint8_t> file, const std::string& where,
                       PcdHeader& header);

}  // namespace tarnhost
