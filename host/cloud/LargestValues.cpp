// How many bits the values of a column take, where LAS files may have but a few for them.
#include "host/cloud/LargestValues.h"

#include <algorithm>
#include <limits>
#include <optional>

#include "host/cloud/CloudFacts.h"

namespace tarnhost {

namespace {

constexpr std::uint64_t kAnyByte = std::numeric_limits<std::uint8_t>::max();

bool IsByteColumn(const Cloud& cloud, const std::string& name) {
  const auto found = std::ranges::find(cloud.GetColumns(), name, &CloudColumn::name);
  return found != cloud.GetColumns().end() &&
         found->type == oocpc::ColumnType{oocpc::ValueType::kUInt8, 1};
}

}  // namespace

LargestValues::LargestValues(Cloud& cloud)
    : cloud_(cloud), areAllLas_(!cloud.GetSources().empty()) {
  for (const SourceRecord& source : cloud.GetSources()) {
    const std::optional<LasHeader> header = ReadSourceHeader(source);
    if (header) layouts_.push_back(LasRecordLayout::Of(*header));
    areAllLas_ = areAllLas_ && header;
  }
}

bool LargestValues::Exceed(const LasField& field) {
  const std::string& name = field.dimension.name;
  if (field.bits == 0 || !IsByteColumn(cloud_, name)) return false;
  if (FindBound(name) >> field.bits == 0) return false;
  const auto [at, isNew] = largest_.try_emplace(name, 0);
  if (isNew) at->second = ReadLargest(name);
  return at->second >> field.bits != 0;
}

/// The largest value that the sources can hold.
std::uint64_t LargestValues::FindBound(const std::string& name) const {
  if (!areAllLas_) return kAnyByte;
  std::uint64_t bound = 0;
  for (const LasRecordLayout& layout : layouts_) {
    for (const LasField& field : layout.GetFields()) {
      if (field.dimension.name != name) continue;
      const std::uint64_t most = (std::uint64_t{1} << field.bits) - 1;
      bound = std::max(bound, field.bits == 0 ? kAnyByte : most);
    }
  }
  return bound;
}

std::uint64_t LargestValues::ReadLargest(const std::string& name) {
  BlockReader reader;
  std::uint64_t blocks = 0;
  if (!BlockReader::Open(cloud_, {name}, reader).Ok()) return 0;
  OOCPCMetaDataContainer& column = reader.GetContainer(0);
  if (oocpc::Failed(column.GetBlockCount(blocks))) return 0;
  std::uint64_t largest = 0;
  for (std::uint64_t i = 0; i < blocks; ++i) {
    oocpc::BlockEntry entry;
    if (oocpc::Failed(column.ReadBlockEntry(i, entry))) continue;
    largest = std::max(largest, entry.maximumBits[0]);
  }
  return largest;
}

}  // namespace tarnhost
