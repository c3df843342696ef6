// Selected points as binary PCD.
#include "host/select/Sinks.h"

namespace tarnhost {

using oocpc::ValueType;

namespace {

char PcdType(ValueType type) {
  switch (type) {
    case ValueType::kFloat:
    case ValueType::kDouble:
      return 'F';
    case ValueType::kInt8:
    case ValueType::kInt16:
    case ValueType::kInt32:
    case ValueType::kInt64:
      return 'I';
    default:
      return 'U';
  }
}

}  // namespace

// The number of points, which stands there twice, is known at the end: a comment keeps the length
// the same.
std::string PcdSink::Header(std::uint64_t count) const {
  constexpr std::size_t kMostDigits = 20;
  const std::string digits = std::to_string(count);
  std::string fields = "FIELDS";
  std::string sizes = "SIZE";
  std::string types = "TYPE";
  std::string counts = "COUNT";
  for (const RowValue& value : GetPacker().GetValues()) {
    fields += " " + value.name;
    sizes += " " + std::to_string(oocpc::ComponentBytes(value.type));
    types += std::string(" ") + PcdType(value.type);
    counts += " 1";
  }
  std::string text = "# .PCD v0.7 - Point Cloud Data file format\n# ";
  text.append(2 * (kMostDigits - digits.size()), '-');
  text += "\nVERSION 0.7\n" + fields + "\n" + sizes + "\n" + types + "\n" + counts + "\n";
  text += "WIDTH " + digits + "\nHEIGHT 1\nVIEWPOINT 0 0 0 1 0 0 0\nPOINTS " + digits + "\n";
  return text + "DATA binary\n";
}

}  // namespace tarnhost
