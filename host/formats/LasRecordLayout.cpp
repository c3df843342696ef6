// How the bytes of a LAS point record divide into dimensions, and back.
#include "host/formats/LasRecordLayout.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstring>
#include <limits>
#include <utility>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

using oocpc::ColumnType;
using oocpc::ValueType;

namespace {

constexpr std::size_t kDescriptorNameAt = 4;
constexpr std::size_t kDescriptorNameBytes = 32;
constexpr std::size_t kDescriptorTextAt = 160;
constexpr std::size_t kDescriptorTextBytes = 32;

/// Units of the scan angle of point formats from 6 on, in degrees.
constexpr double kAngleUnit = 0.006;

/// Value types of the extra-bytes data types 1 to 10 (LAS 1.4 R15, table 24).
constexpr std::array<ValueType, 10> kExtraTypes{
    ValueType::kUInt8,  ValueType::kInt8,   ValueType::kUInt16, ValueType::kInt16,
    ValueType::kUInt32, ValueType::kInt32,  ValueType::kUInt64, ValueType::kInt64,
    ValueType::kFloat,  ValueType::kDouble,
};

std::string TextAt(const std::uint8_t* bytes, std::size_t length) {
  return {bytes, std::find(bytes, bytes + length, std::uint8_t{0})};
}

/// Copies one field of constant width out of many records.
template <std::size_t kBytes>
void ExtractBytes(const std::uint8_t* field, std::size_t stride, std::size_t count,
                  std::uint8_t* out) {
  for (std::size_t i = 0; i < count; ++i, field += stride, out += kBytes) {
    std::memcpy(out, field, kBytes);
  }
}

/// A stated coordinate as the stored integer that it has to be.
bool ToStored(double coordinate, double scale, double offset, std::int32_t& stored) {
  const double integer = std::nearbyint((coordinate - offset) / scale);
  // Written so that it holds for no NaN.
  if (!(integer >= std::numeric_limits<std::int32_t>::min() &&
        integer <= std::numeric_limits<std::int32_t>::max())) {
    return false;
  }
  stored = static_cast<std::int32_t>(integer);
  return true;
}

/// Spreads values of constant width over records of `stride` bytes.
template <std::size_t kBytes>
void ScatterBytes(const std::uint8_t* values, std::uint64_t count, std::size_t stride,
                  std::uint8_t* field) {
  for (std::uint64_t i = 0; i < count; ++i, values += kBytes, field += stride) {
    std::memcpy(field, values, kBytes);
  }
}

bool HasColor(std::uint8_t format) {
  return format == 2 || format == 3 || format == 5 || format == 7 || format == 8 || format == 10;
}
bool HasNir(std::uint8_t format) { return format == 8 || format == 10; }
bool HasWavePacket(std::uint8_t format) {
  return format == 4 || format == 5 || format == 9 || format == 10;
}

}  // namespace

bool HasGpsTime(std::uint8_t format) { return format >= 3 || format == 1; }

LasRecordLayout LasRecordLayout::Of(const LasHeader& header) {
  LasRecordLayout layout;
  layout.recordBytes_ = header.pointBytes;
  layout.AddStandardFields(header.pointFormat);
  // From here on these names are taken: what extra bytes call so is something else.
  for (const char* reserved : {"DEF_POSITION", "DEF_COLOR", "x", "y", "z", "red", "green", "blue",
                               "source", "source_index"}) {
    layout.names_.insert(reserved);
  }
  layout.AddExtraBytes(header);
  return layout;
}

void LasRecordLayout::JoinColor(std::size_t offsetBytes) {
  if (offsetBytes == 0) return;
  const auto red = std::ranges::find(fields_, offsetBytes, &LasField::offsetBytes);
  if (fields_.end() - red < 3) return;
  red->dimension.name = "DEF_COLOR";
  red->dimension.type.components = 3;
  fields_.erase(red + 1, red + 3);
}

void LasRecordLayout::AddStandardFields(std::uint8_t format) {
  const ColumnType u16{ValueType::kUInt16, 1};
  Add("intensity", u16, 12, "strength of the returned pulse, scaled by the sensor's maker");
  if (format < 6) {
    AddLegacyFields();
  } else {
    AddExtendedFields();
  }
  std::size_t at = format < 6 ? 20 : 22;
  if (HasGpsTime(format)) {
    Add("gps_time", {ValueType::kDouble, 1}, at, "time of the pulse, seconds");
    at += 8;
  }
  if (HasColor(format)) {
    Add("DEF_COLOR", {ValueType::kUInt16, 3}, at, "red, green and blue");
    at += 6;
  }
  if (HasNir(format)) {
    Add("nir", u16, at, "near infrared");
    at += 2;
  }
  if (HasWavePacket(format)) AddWavePacket(at);
}

void LasRecordLayout::AddLegacyFields() {
  AddBits("return_number", 14, 0, 3, "number of this return within its pulse, from 1");
  AddBits("number_of_returns", 14, 3, 3, "returns that the pulse gave");
  AddBits("scan_direction_flag", 14, 6, 1, "1 while the mirror moves in positive direction");
  AddBits("edge_of_flight_line", 14, 7, 1, "1 for the last point before the scan turns");
  AddBits("classification", 15, 0, 5, "class, ASPRS codes (2 is ground)");
  AddBits("synthetic", 15, 5, 1, "1 for a point not measured by the scanner");
  AddBits("key_point", 15, 6, 1, "1 for a point not to be thinned away");
  AddBits("withheld", 15, 7, 1, "1 for a point to be left out of processing");
  Add("scan_angle", {ValueType::kInt8, 1}, 16, "scan angle rank, whole degrees");
  Add("user_data", {ValueType::kUInt8, 1}, 17, "at the user's discretion");
  Add("point_source_id", {ValueType::kUInt16, 1}, 18, "flight line or file of the point");
}

void LasRecordLayout::AddExtendedFields() {
  AddBits("return_number", 14, 0, 4, "number of this return within its pulse, from 1");
  AddBits("number_of_returns", 14, 4, 4, "returns that the pulse gave");
  AddBits("synthetic", 15, 0, 1, "1 for a point not measured by the scanner");
  AddBits("key_point", 15, 1, 1, "1 for a point not to be thinned away");
  AddBits("withheld", 15, 2, 1, "1 for a point to be left out of processing");
  AddBits("overlap", 15, 3, 1, "1 for a point where flight lines overlap");
  AddBits("scanner_channel", 15, 4, 2, "channel of a scanner with several");
  AddBits("scan_direction_flag", 15, 6, 1, "1 while the mirror moves in positive direction");
  AddBits("edge_of_flight_line", 15, 7, 1, "1 for the last point before the scan turns");
  Add("classification", {ValueType::kUInt8, 1}, 16, "class, ASPRS codes (2 is ground)");
  Add("user_data", {ValueType::kUInt8, 1}, 17, "at the user's discretion");
  Add("scan_angle", {ValueType::kInt16, 1}, 18, "scan angle, units of 0.006 degrees");
  Add("point_source_id", {ValueType::kUInt16, 1}, 20, "flight line or file of the point");
}

void LasRecordLayout::AddWavePacket(std::size_t at) {
  const ColumnType f32{ValueType::kFloat, 1};
  Add("wave_packet_index", {ValueType::kUInt8, 1}, at, "wave packet descriptor, 0 for none");
  Add("wave_packet_offset", {ValueType::kUInt64, 1}, at + 1, "bytes to the waveform data");
  Add("wave_packet_size", {ValueType::kUInt32, 1}, at + 9, "bytes of the waveform data");
  Add("wave_packet_return_location", f32, at + 13, "picoseconds from the first sample");
  Add("wave_packet_x", f32, at + 17, "x of the pulse direction, units a picosecond");
  Add("wave_packet_y", f32, at + 21, "y of the pulse direction, units a picosecond");
  Add("wave_packet_z", f32, at + 25, "z of the pulse direction, units a picosecond");
}

void LasRecordLayout::AddExtraBytes(const LasHeader& header) {
  std::size_t at = LasPointBytes(header.pointFormat);
  const std::vector<std::uint8_t>& descriptors = header.extraByteDescriptors;
  for (std::size_t i = 0; i + kExtraByteDescriptorBytes <= descriptors.size() && at < recordBytes_;
       i += kExtraByteDescriptorBytes) {
    at = AddDescribedField(descriptors.data() + i, at);
  }
  while (at < recordBytes_) AddRawByte(at++);
}

std::size_t LasRecordLayout::AddDescribedField(const std::uint8_t* descriptor, std::size_t at) {
  const std::uint8_t dataType = descriptor[2];
  const std::size_t left = recordBytes_ - at;
  if (dataType == 0 || dataType > 30) {
    // Undocumented bytes: type 0 states their number in the options byte.
    const std::size_t count = dataType == 0 ? descriptor[3] : left;
    for (std::size_t i = 0; i < std::min(count, left); ++i) AddRawByte(at + i);
    return at + std::min(count, left);
  }
  const ValueType type = kExtraTypes[(dataType - 1u) % 10u];
  const std::size_t components = 1u + (dataType - 1u) / 10u;
  const std::size_t bytes = oocpc::ComponentBytes(type);
  if (components * bytes > left) {  // describes more than the record holds
    for (std::size_t i = 0; i < left; ++i) AddRawByte(at + i);
    return recordBytes_;
  }
  const std::string name = TextAt(descriptor + kDescriptorNameAt, kDescriptorNameBytes);
  const std::string text = TextAt(descriptor + kDescriptorTextAt, kDescriptorTextBytes);
  for (std::size_t i = 0; i < components; ++i) {
    std::string part = name.empty() ? "extra" : name;
    if (components > 1) part.append("_").append(std::to_string(i));
    Add(std::move(part), {type, 1}, at + i * bytes, text);
  }
  return at + components * bytes;
}

void LasRecordLayout::Add(std::string name, ColumnType type, std::size_t offset,
                          std::string description) {
  fields_.push_back({{UniqueName(std::move(name)), type, std::move(description)}, offset, 0, 0});
}

void LasRecordLayout::AddBits(std::string name, std::size_t offset, std::uint8_t shift,
                              std::uint8_t bits, std::string description) {
  fields_.push_back({{UniqueName(std::move(name)), {ValueType::kUInt8, 1}, std::move(description)},
                     offset,
                     shift,
                     bits});
}

void LasRecordLayout::AddRawByte(std::size_t offset) {
  Add("extra_" + std::to_string(rawBytes_++), {ValueType::kUInt8, 1}, offset,
      "byte without a description");
}

std::string LasRecordLayout::UniqueName(std::string name) {
  if (names_.insert(name).second) return name;
  for (std::size_t& i = nextSuffix_.try_emplace(name, 2).first->second;; ++i) {
    std::string numbered = name + "_" + std::to_string(i);
    if (names_.insert(numbered).second) return numbered;
  }
}

void LasRecordLayout::Gather(const LasField& field, const std::uint8_t* record,
                             std::uint8_t* value) {
  const std::uint8_t* from = record + field.offsetBytes;
  if (field.bits != 0) {
    *value = static_cast<std::uint8_t>((*from >> field.shift) & ((1u << field.bits) - 1u));
    return;
  }
  std::memcpy(value, from, oocpc::ValueBytes(field.dimension.type));
}

void LasRecordLayout::ExtractRows(std::size_t dimension, const std::uint8_t* records,
                                  std::size_t stride, std::size_t count, std::uint8_t* out) const {
  if (count == 0) return;  // there may be nothing at `records`
  const LasField& field = fields_[dimension];
  const std::uint8_t* from = records + field.offsetBytes;
  if (field.bits != 0) {
    const unsigned mask = (1u << field.bits) - 1u;
    for (std::size_t i = 0; i < count; ++i, from += stride) {
      out[i] = static_cast<std::uint8_t>((*from >> field.shift) & mask);
    }
    return;
  }
  const std::uint32_t bytes = oocpc::ValueBytes(field.dimension.type);
  switch (bytes) {
    case 1:
      return ExtractBytes<1>(from, stride, count, out);
    case 2:
      return ExtractBytes<2>(from, stride, count, out);
    case 4:
      return ExtractBytes<4>(from, stride, count, out);
    case 6:
      return ExtractBytes<6>(from, stride, count, out);
    case 8:
      return ExtractBytes<8>(from, stride, count, out);
    default:
      break;
  }
  for (std::size_t i = 0; i < count; ++i, from += stride, out += bytes) {
    std::memcpy(out, from, bytes);
  }
}

void LasRecordLayout::ScatterRows(std::size_t dimension, const std::uint8_t* values,
                                  std::uint64_t count, std::uint8_t* records) const {
  const LasField& field = fields_[dimension];
  std::uint8_t* to = records + field.offsetBytes;
  const std::uint32_t bytes = oocpc::ValueBytes(field.dimension.type);
  if (field.bits == 0) {
    switch (bytes) {
      case 1:
        return ScatterBytes<1>(values, count, recordBytes_, to);
      case 2:
        return ScatterBytes<2>(values, count, recordBytes_, to);
      case 4:
        return ScatterBytes<4>(values, count, recordBytes_, to);
      case 6:
        return ScatterBytes<6>(values, count, recordBytes_, to);
      case 8:
        return ScatterBytes<8>(values, count, recordBytes_, to);
      default:
        break;
    }
  }
  for (std::uint64_t i = 0; i < count; ++i, values += bytes, records += recordBytes_) {
    Scatter(field, values, records);
  }
}

void LasRecordLayout::Scatter(const LasField& field, const std::uint8_t* value,
                              std::uint8_t* record) {
  std::uint8_t* to = record + field.offsetBytes;
  if (field.bits != 0) {
    *to = static_cast<std::uint8_t>(*to | ((*value & ((1u << field.bits) - 1u)) << field.shift));
    return;
  }
  std::memcpy(to, value, oocpc::ValueBytes(field.dimension.type));
}

bool IsByteColor(const ColumnType& given, const Dimension& color) {
  return color.name == "DEF_COLOR" && given == ColumnType{ValueType::kUInt8, 3} &&
         color.type == ColumnType{ValueType::kUInt16, 3};
}

void SpreadColors(std::span<const std::uint8_t> values, std::uint8_t* out) {
  for (std::size_t i = 0; i < values.size(); ++i) {  // both bytes are the same
    out[2 * i] = out[2 * i + 1] = values[i];
  }
}

bool IsCoarseAngle(const ColumnType& given, const Dimension& angle) {
  return angle.name == "scan_angle" && given == ColumnType{ValueType::kInt8, 1} &&
         angle.type == ColumnType{ValueType::kInt16, 1};
}

void RefineAngles(std::span<const std::uint8_t> degrees, std::uint8_t* out) {
  for (const std::uint8_t value : degrees) {
    const auto angle =
        static_cast<std::int16_t>(std::lround(static_cast<std::int8_t>(value) / kAngleUnit));
    std::memcpy(out, &angle, sizeof(angle));
    out += sizeof(angle);
  }
}

bool CanWrite(const ColumnType& given, const Dimension& field) {
  return given == field.type || IsByteColor(given, field) || IsCoarseAngle(given, field);
}

bool FitToField(const LasField& field, std::uint64_t count, std::span<const std::uint8_t>& values,
                std::vector<std::uint8_t>& widened) {
  const std::uint64_t bytes = oocpc::ValueBytes(field.dimension.type);
  if (values.size() == count * bytes) return true;
  if (2 * values.size() != count * bytes) return false;
  const bool isColor = IsByteColor({ValueType::kUInt8, 3}, field.dimension);
  const bool isAngle = IsCoarseAngle({ValueType::kInt8, 1}, field.dimension);
  if (!isColor && !isAngle) return false;
  widened.resize(2 * values.size());
  if (isColor) {
    SpreadColors(values, widened.data());
  } else {
    RefineAngles(values, widened.data());
  }
  values = widened;
  return true;
}

Outcome CheckBits(const LasField& field, std::span<const std::uint8_t> values) {
  if (field.bits == 0) return Outcome::Success();
  unsigned bits = 0;
  for (const std::uint8_t value : values) bits |= value;
  if (bits >> field.bits == 0) return Outcome::Success();
  return Outcome::Failure(oocpc::result::kScanUnsupported,
                          "a " + field.dimension.name + " is larger than the " +
                              std::to_string((1u << field.bits) - 1) +
                              " that this point format has room for",
                          {}, "write a CSV file instead");
}

bool GetStatedBox(const LasHeader& header, StoredBox& box) {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double scale = header.scale[axis];
    const double offset = header.offset[axis];
    if (!ToStored(header.min[axis], scale, offset, box.least[axis]) ||
        !ToStored(header.max[axis], scale, offset, box.greatest[axis])) {
      return false;
    }
    if (box.least[axis] > box.greatest[axis]) std::swap(box.least[axis], box.greatest[axis]);
  }
  return true;
}

}  // namespace tarnhost
