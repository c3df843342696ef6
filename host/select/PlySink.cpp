// Selected points as binary little-endian PLY.
#include "host/select/Sinks.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

const char* PlyType(ValueType type) {
  switch (type) {
    case ValueType::kUInt8:
      return "uchar";
    case ValueType::kInt8:
      return "char";
    case ValueType::kUInt16:
      return "ushort";
    case ValueType::kInt16:
      return "short";
    case ValueType::kUInt32:
    case ValueType::kString:
      return "uint";
    case ValueType::kInt32:
      return "int";
    case ValueType::kFloat:
      return "float";
    case ValueType::kUInt64:
    case ValueType::kInt64:
    case ValueType::kDouble:
      break;
  }
  return "double";
}

}  // namespace

// The number of points is known at the end: a comment beside it keeps the length the same.
std::string PlySink::Header(std::uint64_t count) const {
  constexpr std::size_t kMostDigits = 20;
  const std::string digits = std::to_string(count);
  std::string text = "ply\nformat binary_little_endian 1.0\ncomment ";
  text.append(kMostDigits - digits.size(), '-');
  text += "\nelement vertex " + digits + "\n";
  for (const RowValue& value : GetPacker().GetValues()) {
    text += std::string("property ") + PlyType(value.type) + " " + value.name + "\n";
  }
  return text + "end_header\n";
}

}  // namespace tarnhost
