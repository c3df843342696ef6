// The LAS files that a cloud came from, and what of their records stands in one file made of them.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/formats/LasHeader.h"

namespace tarnhost {

/// The user of the records that the LAS specification describes.
inline constexpr const char* kSpecUser = "LASF_Spec";
inline constexpr std::uint16_t kExtraBytesRecord = 4;

/// A source that is a LAS file. Borrows the bytes of its record.
struct LasSource {
  LasHeader header;
  const SourceRecord* record;

  [[nodiscard]] std::uint64_t GetPointsEnd() const {
    return header.pointsOffset + record->pointCount * std::uint64_t{header.pointBytes};
  }
  /// Head and payload.
  [[nodiscard]] std::span<const std::uint8_t> GetBytes(const LasVariableRecord& variable) const;
  [[nodiscard]] std::span<const std::uint8_t> GetPayload(const LasVariableRecord& variable) const;
};

/// Those of a cloud's sources that are LAS files. Their bytes stay valid while the cloud is open.
[[nodiscard]] std::vector<LasSource> ListLasSources(const Cloud& cloud);

[[nodiscard]] bool IsExtraBytesRecord(const LasVariableRecord& record);
/// True for the record whose payload is the wave packets themselves.
[[nodiscard]] bool IsWaveformRecord(const LasVariableRecord& record);

/// The first source that states a coordinate system, from which all records of one are taken; null
/// when there is none.
[[nodiscard]] const LasSource* FindSystemSource(std::span<const LasSource> sources);

struct ChosenRecord {
  const LasSource* source;
  const LasVariableRecord* record;
};

/// The records of a file with points of all sources, in their order: those of the first one, and
/// those that only others have. Of records of a coordinate system those of one source, of others
/// one of the same content. Left out are those that are true of one file's points alone: of extra
/// bytes, of compression, of an octree, and wave packets but the first source's.
[[nodiscard]] std::vector<ChosenRecord> ChooseRecords(std::span<const LasSource> sources);

/// The flags of such a file's header: those of the first source, but that of the coordinate system
/// as the source that states it has it, and that of GPS times as the first one with such has it.
[[nodiscard]] std::uint16_t ChooseEncoding(std::span<const LasSource> sources);

}  // namespace tarnhost
