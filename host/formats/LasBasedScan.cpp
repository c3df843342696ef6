// What LAS and LAZ scans have in common: a header, and records laid out as it says.
#include "host/formats/LasBasedScan.h"

#include <cstring>

namespace tarnhost {

void LasBasedScan::SetHeader(LasHeader header) {
  header_ = std::move(header);
  layout_ = LasRecordLayout::Of(header_);
  transform_ = {header_.scale, header_.offset};
  for (const LasField& field : layout_.GetFields()) dimensions_.push_back(field.dimension);
}

void LasBasedScan::ExtractDimension(std::size_t dimension, const std::uint8_t* records,
                                    std::size_t count, std::uint8_t* out) const {
  layout_.ExtractRows(dimension, records, layout_.GetRecordBytes(), count, out);
}

void LasBasedScan::ExtractStrided(std::size_t dimension, const std::uint8_t* records,
                                  std::size_t stride, std::size_t count, std::uint8_t* out) const {
  layout_.ExtractRows(dimension, records, stride, count, out);
}

bool LasBasedScan::GetStatedBox(StoredBox& box) const {
  return tarnhost::GetStatedBox(header_, box);
}

void LasBasedScan::CopyPositions(const std::uint8_t* records, std::uint64_t count,
                                 std::int32_t* xyz) const {
  const std::size_t stride = layout_.GetRecordBytes();
  for (std::uint64_t i = 0; i < count; ++i, records += stride, xyz += 3) {
    std::memcpy(xyz, records, 3 * sizeof(std::int32_t));
  }
}

}  // namespace tarnhost
