// Value types of columns.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

namespace oocpc {

/// Type of one component of a value; the numbers are part of the file format.
enum class ValueType : std::uint8_t {
  kUInt8 = 1,
  kInt8 = 2,
  kUInt16 = 3,
  kInt16 = 4,
  kUInt32 = 5,
  kInt32 = 6,
  kUInt64 = 7,
  kInt64 = 8,
  kFloat = 9,
  kDouble = 10,
  kString = 11,  ///< stored as a 32-bit index into the string dictionary
};

/// Type of one value of a column: one to three components of the same value type.
struct ColumnType {
  ValueType value = ValueType::kUInt8;
  std::uint8_t components = 1;

  friend bool operator==(const ColumnType&, const ColumnType&) = default;
};

/// True for the eleven value types; numbers from files are checked with it.
[[nodiscard]] OOCPOINTCLOUD_API bool IsValueType(std::uint8_t number);
/// Bytes of one stored component: 1, 2, 4 or 8.
[[nodiscard]] OOCPOINTCLOUD_API std::uint32_t ComponentBytes(ValueType type);
/// Bytes of one stored value.
[[nodiscard]] OOCPOINTCLOUD_API std::uint32_t ValueBytes(ColumnType type);
/// "uint8_t", "int16_t", "float", "double", "string", …
[[nodiscard]] OOCPOINTCLOUD_API const char* ValueTypeName(ValueType type);

}  // namespace oocpc
