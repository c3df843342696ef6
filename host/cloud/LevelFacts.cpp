// The levels of detail of a repository, as its streams state them.
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODRecords.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <span>

#include "host/cloud/CloudFacts.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

Outcome ReadBlock(const Cloud& cloud, const OOCPCUpdItrLODPayload& payload, OOCPCLODBlock& block) {
  const char* const name = OOCPCLODContainer::kStreamName;
  std::vector<std::uint8_t> bytes;
  if (Outcome outcome = cloud.ReadStream(name, bytes); !outcome.Ok()) return outcome;
  if (payload.beginBytes > payload.endBytes || payload.endBytes > bytes.size()) {
    return Outcome::FromCode(result::kStreamShort, name);
  }
  const HRESULT code = block.Decode(
      std::span(bytes).subspan(static_cast<std::size_t>(payload.beginBytes),
                               static_cast<std::size_t>(payload.endBytes - payload.beginBytes)));
  return oocpc::Failed(code) ? Outcome::FromCode(code, name) : Outcome::Success();
}

}  // namespace

Outcome ReadLevelRecords(Cloud& cloud, std::uint64_t iteration, OOCPCLODBlock& block,
                         std::vector<OOCPCLODNodeRecord>& records) {
  block = {};
  records.clear();
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(iteration, record); !outcome.Ok()) return outcome;
  if (record.lodPayload.beginBytes == record.lodPayload.endBytes) return Outcome::Success();
  if (Outcome outcome = ReadBlock(cloud, record.lodPayload, block); !outcome.Ok()) return outcome;
  const std::string name = OOCPCLODNodeStreamName(block.nodeStreamId);
  std::vector<std::uint8_t> bytes;
  if (Outcome outcome = cloud.ReadStream(name, bytes); !outcome.Ok()) return outcome;
  if (bytes.size() / OOCPCLODNodeRecord::kBytes < block.entries.size()) {
    return Outcome::FromCode(result::kStreamShort, name);
  }
  records.resize(block.entries.size());
  for (std::size_t i = 0; i < records.size(); ++i) {
    std::uint8_t stored[OOCPCLODNodeRecord::kBytes];
    const std::size_t at = i * sizeof(stored);
    std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(at), sizeof(stored), stored);
    const HRESULT code = OOCPCLODNodeRecord::Decode(stored, records[i]);
    if (oocpc::Failed(code)) {
      return Outcome::FromCode(code, name + ", record " + std::to_string(i));
    }
  }
  return Outcome::Success();
}

Outcome CollectLevels(Cloud& cloud, std::uint64_t iteration, std::vector<LevelFacts>& levels) {
  levels.clear();
  OOCPCLODBlock block;
  std::vector<OOCPCLODNodeRecord> records;
  Outcome outcome = ReadLevelRecords(cloud, iteration, block, records);
  if (!outcome.Ok()) return outcome;
  std::map<std::uint32_t, LevelFacts> found;
  for (const OOCPCLODNodeRecord& node : records) {
    LevelFacts& level = found[node.level];
    level.level = node.level;
    level.spacing = std::ldexp(block.scale, -static_cast<int>(std::min(node.level, 1000u)));
    level.pointCount += node.pointCount;
    ++level.nodeCount;
  }
  for (const auto& [number, level] : found) levels.push_back(level);
  return Outcome::Success();
}

}  // namespace tarnhost
