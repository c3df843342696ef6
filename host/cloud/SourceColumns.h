// The columns that an import adds to tell where points come from.
#pragma once

#include "host/cloud/Cloud.h"

namespace tarnhost {

/// The file of each point, a text.
inline constexpr const char* kSourceDimension = "source";
inline constexpr oocpc::ColumnType kSourceType{oocpc::ValueType::kString, 1};
/// The place of each point in its source, counted through all sources in their order, from 0.
inline constexpr const char* kSourceIndexDimension = "source_index";
inline constexpr oocpc::ColumnType kSourceIndexType{oocpc::ValueType::kUInt64, 1};

/// True for these columns; readers of scans give the names to nothing else.
[[nodiscard]] inline bool IsSourceName(const std::string& name, oocpc::ColumnType type) {
  return name == kSourceDimension && type == kSourceType;
}
[[nodiscard]] inline bool IsSourceIndex(const std::string& name, oocpc::ColumnType type) {
  return name == kSourceIndexDimension && type == kSourceIndexType;
}
[[nodiscard]] inline bool IsSourceColumn(const CloudColumn& column) {
  return IsSourceName(column.name, column.type) || IsSourceIndex(column.name, column.type);
}

}  // namespace tarnhost
