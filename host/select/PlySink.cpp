// Selected points as binary little-endian PLY.
#include <cstring>

#include "OOCPointCloud/support/Bytes.h"
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

/// A name as a word: PLY separates words by white space.
std::string Word(std::string name) {
  for (char& letter : name) {
    if (static_cast<unsigned char>(letter) <= ' ') letter = '_';
  }
  return name;
}

void StoreDouble(double value, char* place) { std::memcpy(place, &value, sizeof(value)); }

/// A column's values into records of `stride` bytes.
void Scatter(std::span<const std::uint8_t> values, oocpc::ColumnType type, std::size_t stride,
             char* place) {
  const std::size_t bytes = oocpc::ValueBytes(type);
  const bool isWide = type.value == ValueType::kInt64 || type.value == ValueType::kUInt64;
  for (std::size_t at = 0; at < values.size(); at += bytes, place += stride) {
    if (!isWide) {
      std::memcpy(place, values.data() + at, bytes);
      continue;
    }
    for (std::size_t i = 0; i < bytes; i += 8) {
      const auto number = oocpc::LoadLittleEndian<std::uint64_t>(values.data() + at + i);
      const bool isSigned = type.value == ValueType::kInt64;
      StoreDouble(isSigned ? static_cast<double>(static_cast<std::int64_t>(number))
                           : static_cast<double>(number),
                  place + i);
    }
  }
}

}  // namespace

Outcome PlySink::Begin(Cloud& cloud) {
  cloud_ = &cloud;
  if (Outcome outcome = OutputFile::Create(output_, file_); !outcome.Ok()) return outcome;
  std::vector<std::string> names;
  for (const CloudColumn& column : cloud.GetColumns()) names.push_back(column.name);
  if (Outcome outcome = file_->Write(Header(0)); !outcome.Ok()) return outcome;
  return values_.Open(cloud, std::move(names));
}

// The number of points is known at the end: a comment beside it keeps the length the same.
std::string PlySink::Header(std::uint64_t count) const {
  constexpr std::size_t kMostDigits = 20;
  const std::string digits = std::to_string(count);
  std::string text = "ply\nformat binary_little_endian 1.0\ncomment ";
  text.append(kMostDigits - digits.size(), '-');
  text += "\nelement vertex " + digits + "\n";
  for (const char* axis : {"x", "y", "z"}) text += std::string("property double ") + axis + "\n";
  for (const CloudColumn& column : cloud_->GetColumns()) {
    for (const std::string& name : ComponentNames(column)) {
      text += std::string("property ") + PlyType(column.type.value) + " " + Word(name) + "\n";
    }
  }
  return text + "end_header\n";
}

Outcome PlySink::Prepare(const OOCPCOctreeAcceleratorNode& node,
                         std::span<const std::uint32_t> points, std::unique_ptr<SinkPart>& part) {
  const SelectedValues* values = nullptr;
  if (Outcome outcome = values_.Read(node, points, values); !outcome.Ok()) return outcome;
  std::size_t stride = 3 * sizeof(double);
  for (const CloudColumn& column : cloud_->GetColumns()) stride += oocpc::ValueBytes(column.type);
  auto made = std::make_unique<BytesPart>();
  made->bytes.resize(points.size() * stride);
  const PositionTransform& transform = cloud_->GetTransform();
  char* place = made->bytes.data();
  for (std::size_t i = 0; i < points.size(); ++i, place += stride) {
    for (std::size_t axis = 0; axis < 3; ++axis) {
      const double scaled =
          static_cast<double>(values->GetPositions()[3 * i + axis]) * transform.scale[axis];
      StoreDouble(scaled + transform.offset[axis], place + axis * sizeof(double));
    }
  }
  std::size_t offset = 3 * sizeof(double);
  for (std::size_t i = 0; i < values->GetColumnCount(); ++i) {
    const oocpc::ColumnType type = cloud_->GetColumns()[i].type;
    Scatter(values->GetColumn(i), type, stride, made->bytes.data() + offset);
    offset += oocpc::ValueBytes(type);
  }
  part = std::move(made);
  return Outcome::Success();
}

Outcome PlySink::Consume(const OOCPCOctreeAcceleratorNode& /*node*/,
                         std::span<const std::uint32_t> /*points*/, SinkPart* part) {
  return file_->Write(static_cast<BytesPart&>(*part).bytes);
}

Outcome PlySink::End(const SelectReport& report) {
  const std::string header = Header(report.selected);
  const std::vector<std::uint8_t> bytes(header.begin(), header.end());
  if (Outcome outcome = file_->Overwrite(0, bytes); !outcome.Ok()) return outcome;
  return file_->Commit();
}

}  // namespace tarnhost
