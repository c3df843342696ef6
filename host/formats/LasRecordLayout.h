// How the bytes of a LAS point record divide into dimensions, and back.
#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <set>
#include <span>
#include <string>
#include <vector>

#include "host/formats/LasHeader.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Where one dimension lies in a point record.
struct LasField {
  Dimension dimension;
  std::size_t offsetBytes = 0;
  std::uint8_t shift = 0;  ///< lowest bit within the byte, for fields of bits
  std::uint8_t bits = 0;   ///< 0: whole bytes, else the number of bits of an unsigned 8-bit value
};

/// Whether points of a format have GPS times.
[[nodiscard]] bool HasGpsTime(std::uint8_t format);

/// The fields of a point record, less X, Y and Z, which are its first twelve bytes. Together they
/// cover every bit of the record, so taking a record apart and putting it together again gives the
/// same bytes. Value semantics.
class LasRecordLayout {
 public:
  LasRecordLayout() = default;
  /// The layout that a checked header and its extra-bytes descriptors state. Names are unique, and
  /// none is one that positions, colours or derived values go by.
  static LasRecordLayout Of(const LasHeader& header);

  /// Makes one field "DEF_COLOR" out of the three of one type that follow each other from a place
  /// in the record on; a place of 0 is none. For records of colours that no point format has.
  void JoinColor(std::size_t offsetBytes);

  [[nodiscard]] const std::vector<LasField>& GetFields() const { return fields_; }
  [[nodiscard]] std::size_t GetRecordBytes() const { return recordBytes_; }

  /// Value of a field of one record: ValueBytes(type) bytes at `value`.
  static void Gather(const LasField& field, const std::uint8_t* record, std::uint8_t* value);
  /// Values of the field that stands at `dimension`, of records that stand `stride` bytes apart: as
  /// ScanFile says.
  void ExtractRows(std::size_t dimension, const std::uint8_t* records, std::size_t stride,
                   std::size_t count, std::uint8_t* out) const;
  /// Puts the values of the field that stands at `dimension` into `count` records in a row, whose
  /// bits of this field are zero.
  void ScatterRows(std::size_t dimension, const std::uint8_t* values, std::uint64_t count,
                   std::uint8_t* records) const;
  /// Puts a value into a record whose bits of this field are zero.
  static void Scatter(const LasField& field, const std::uint8_t* value, std::uint8_t* record);

 private:
  void AddStandardFields(std::uint8_t pointFormat);
  void AddLegacyFields();
  void AddExtendedFields();
  void AddWavePacket(std::size_t at);
  void AddExtraBytes(const LasHeader& header);
  std::size_t AddDescribedField(const std::uint8_t* descriptor, std::size_t at);
  void Add(std::string name, oocpc::ColumnType type, std::size_t offset, std::string description);
  void AddBits(std::string name, std::size_t offset, std::uint8_t shift, std::uint8_t bits,
               std::string description);
  void AddRawByte(std::size_t offset);
  [[nodiscard]] std::string UniqueName(std::string name);

  std::vector<LasField> fields_;
  std::set<std::string> names_;                    ///< taken or reserved
  std::map<std::string, std::size_t> nextSuffix_;  ///< of names that came up more than once
  std::size_t recordBytes_ = 0;
  std::size_t rawBytes_ = 0;  ///< extra bytes without a description so far
};

/// Whether values of type `given` are colours of 8 bits for one of 16.
[[nodiscard]] bool IsByteColor(const oocpc::ColumnType& given, const Dimension& color);
/// Spreads 8 bits over 16, so that the brightest stays the brightest (times 257).
void SpreadColors(std::span<const std::uint8_t> values, std::uint8_t* out);

/// Whether values of type `given` are scan angles in whole degrees, as point formats 0 to 5 have
/// them, for one in units of 0.006 degrees.
[[nodiscard]] bool IsCoarseAngle(const oocpc::ColumnType& given, const Dimension& angle);
/// Whole degrees, each one int8_t, in the nearest units of 0.006 degrees, each one int16_t.
void RefineAngles(std::span<const std::uint8_t> degrees, std::uint8_t* out);

/// True when values of `given` can be written to a field for `field`: they are of its type, or
/// colours or scan angles that have a wider one there.
[[nodiscard]] bool CanWrite(const oocpc::ColumnType& given, const Dimension& field);
/// Values of a field as records take them, where CanWrite allows them. `widened` holds what had to
/// be made. False for values of another length.
[[nodiscard]] bool FitToField(const LasField& field, std::uint64_t count,
                              std::span<const std::uint8_t>& values,
                              std::vector<std::uint8_t>& widened);

/// Refuses values of a field that have more bits than it has room for: kScanUnsupported.
Outcome CheckBits(const LasField& field, std::span<const std::uint8_t> values);

/// The stored integers of a header's bounds: see ScanFile.
[[nodiscard]] bool GetStatedBox(const LasHeader& header, StoredBox& box);

}  // namespace tarnhost
