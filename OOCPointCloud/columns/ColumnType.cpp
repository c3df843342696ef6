// Sizes and names of the value types.
#include <OOCPointCloud/ColumnType.h>

namespace oocpc {

bool IsValueType(std::uint8_t number) {
  return number >= static_cast<std::uint8_t>(ValueType::kUInt8) &&
         number <= static_cast<std::uint8_t>(ValueType::kString);
}

std::uint32_t ComponentBytes(ValueType type) {
  switch (type) {
    case ValueType::kUInt8:
    case ValueType::kInt8:
      return 1;
    case ValueType::kUInt16:
    case ValueType::kInt16:
      return 2;
    case ValueType::kUInt32:
    case ValueType::kInt32:
    case ValueType::kFloat:
    case ValueType::kString:
      return 4;
    case ValueType::kUInt64:
    case ValueType::kInt64:
    case ValueType::kDouble:
      return 8;
  }
  return 1;
}

std::uint32_t ValueBytes(ColumnType type) { return ComponentBytes(type.value) * type.components; }

const char* ValueTypeName(ValueType type) {
  switch (type) {
    case ValueType::kUInt8:
      return "uint8_t";
    case ValueType::kInt8:
      return "int8_t";
    case ValueType::kUInt16:
      return "uint16_t";
    case ValueType::kInt16:
      return "int16_t";
    case ValueType::kUInt32:
      return "uint32_t";
    case ValueType::kInt32:
      return "int32_t";
    case ValueType::kUInt64:
      return "uint64_t";
    case ValueType::kInt64:
      return "int64_t";
    case ValueType::kFloat:
      return "float";
    case ValueType::kDouble:
      return "double";
    case ValueType::kString:
      return "string";
  }
  return "unknown";
}

}  // namespace oocpc
