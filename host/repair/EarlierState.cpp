// The main stream that a repository had, or would have had, after an earlier update iteration.
#include "host/repair/EarlierState.h"

#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include <algorithm>

#include "host/cloud/SourceRecord.h"
#include "host/cloud/VerifyOpening.h"

namespace tarnhost {

namespace chunk_type = oocpc::chunk_type;

namespace {

constexpr std::string_view kTableEnding = "_BLOCKS";

/// Copies chunk for chunk, since chunks are moved but never copied by accident.
OOCPCCatalogue CopyOf(const OOCPCCatalogue& catalogue) {
  OOCPCCatalogue copy;
  copy.header = catalogue.header;
  copy.identity = catalogue.identity;
  copy.mortonSeed = catalogue.mortonSeed;
  copy.information = catalogue.information;
  for (const OOCIndexChunk& chunk : catalogue.chunks) {
    copy.chunks.emplace_back(chunk.type, chunk.payload);
  }
  return copy;
}

}  // namespace

std::uint64_t EarlierState::CountIterations() const {
  std::uint64_t count = 0;
  for (const OOCIndexChunk& chunk : catalogue_.chunks) {
    OOCPCUpdateIterationDescription description;
    if (chunk.type != chunk_type::kUpdateIterations) continue;
    if (oocpc::Failed(description.DecodeChunk(chunk.payload.data(), chunk.size))) continue;
    count = description.iterationCount;
  }
  return count;
}

std::span<const std::uint8_t> EarlierState::GetBytes(const std::string& name) {
  const OOCPCStreamLength* listed = catalogue_.information.FindStream(name);
  if (listed == nullptr) return {};
  auto& source = sources_[name];
  if (source == nullptr && oocpc::Failed(OOCPCMapFile(folder_ / name, source))) return {};
  const std::span<const std::uint8_t> bytes = source->GetBytes();
  return bytes.first(
      static_cast<std::size_t>(std::min<std::uint64_t>(bytes.size(), listed->committedBytes)));
}

bool EarlierState::ReadIteration(std::uint64_t iteration, OOCPCUpdateIteration& record) {
  const auto bytes = GetBytes(OOCPCUpdateIterationContainer::kStreamName);
  constexpr std::uint16_t kBytes = OOCPCUpdateIteration::kRecordBytes;
  if (iteration >= bytes.size() / kBytes) return false;
  const std::uint8_t* at = bytes.data() + static_cast<std::size_t>(iteration) * kBytes;
  return !oocpc::Failed(record.Unstream(OOCPCUpdateIteration::kStreamVersion, at, kBytes));
}

bool EarlierState::CutColumns(std::uint64_t blockCount, Lengths& lengths) {
  for (auto& [table, length] : lengths) {
    if (!table.ends_with(kTableEnding)) continue;
    const std::string data = table.substr(0, table.size() - kTableEnding.size());
    const auto bytes = GetBytes(table);
    std::uint8_t stored[oocpc::BlockEntry::kBytes];
    if (blockCount > bytes.size() / sizeof(stored)) return false;
    length = blockCount * sizeof(stored);
    oocpc::BlockEntry last;
    if (blockCount > 0) {
      std::copy_n(bytes.data() + length - sizeof(stored), sizeof(stored), stored);
      if (oocpc::Failed(oocpc::BlockEntry::Decode(stored, last))) return false;
    }
    const auto found = lengths.find(data);
    if (found == lengths.end() || last.offsetBytes > found->second ||
        last.storedBytes > found->second - last.offsetBytes) {
      return false;
    }
    found->second = last.offsetBytes + last.storedBytes;
  }
  return true;
}

/// Texts never change their places, so that an earlier state may keep those that came later, as far
/// as they are sound. Gives their number.
std::uint64_t EarlierState::CutDictionary(Lengths& lengths) {
  const auto found = lengths.find(OOCPCStringRepositoryContainer::kStreamName);
  if (found == lengths.end()) return 0;
  const auto bytes = GetBytes(found->first);
  std::uint64_t count = 0;
  std::size_t at = 0;
  while (at < bytes.size()) {
    const std::size_t next = FindNextString(bytes, at);
    if (next == at) break;
    at = next;
    ++count;
  }
  found->second = at;
  return count;
}

/// The sources of the points that the state has; all sound ones where their points do not tell.
void EarlierState::CutSources(std::uint64_t pointCount, Lengths& lengths) {
  const auto found = lengths.find(SourceRecord::kStreamName);
  if (found == lengths.end()) return;
  const auto bytes = GetBytes(found->first);
  std::span<const std::uint8_t> rest = bytes;
  std::uint64_t sound = 0;
  std::uint64_t fitting = 0;
  std::uint64_t points = 0;
  while (!rest.empty()) {
    SourceRecord record;
    if (oocpc::Failed(DecodeSourceRecord(rest, record))) break;
    points += record.pointCount;
    sound = bytes.size() - rest.size();
    if (points == pointCount) fitting = sound;
  }
  found->second = fitting > 0 ? fitting : sound;
}

bool EarlierState::EncodeMain(std::uint64_t last, std::vector<std::uint8_t>& main) {
  Lengths lengths;
  for (const OOCPCStreamLength& stream : catalogue_.information.streams) {
    lengths[stream.name] = stream.committedBytes;
  }
  OOCPCUpdateIteration record;
  std::uint64_t lodBytes = 0;
  std::uint64_t lodBlocks = 0;
  for (std::uint64_t i = 0; i <= last; ++i) {
    if (!ReadIteration(i, record)) {
      if (i == last) return false;
      continue;  // an older one that stays damaged
    }
    if (record.lodPayload.beginBytes == record.lodPayload.endBytes) continue;
    lodBytes = std::max(lodBytes, record.lodPayload.endBytes);
    lodBlocks = i + 1;
  }
  for (std::uint64_t i = last + 1; i < CountIterations(); ++i) {
    lengths.erase(OOCPCLODNodeStreamName(i));
  }
  const auto set = [&](const char* name, std::uint64_t bytes) {
    const auto found = lengths.find(name);
    if (found != lengths.end()) found->second = bytes;
  };
  set(OOCPCUpdateIterationContainer::kStreamName, (last + 1) * OOCPCUpdateIteration::kRecordBytes);
  set(OOCPCAcceleratorContainer::kStreamName, record.acceleratorPayload.sizeBytes);
  set(OOCPCLODContainer::kStreamName, lodBytes);
  if (!CutColumns(record.blockCount, lengths)) return false;
  CutSources(record.pointCount, lengths);

  OOCPCCatalogue catalogue = CopyOf(catalogue_);
  OOCPCUpdateIterationDescription iterations;
  iterations.iterationCount = last + 1;
  catalogue.SetChunk(chunk_type::kUpdateIterations, iterations.EncodeChunk());
  const auto has = [&](oocpc::ContainerChunkType type) {
    return std::ranges::find(catalogue.chunks, type, &OOCIndexChunk::type) !=
           catalogue.chunks.end();
  };
  if (has(chunk_type::kLevelOfDetail)) {
    OOCPCLODDescription levels;
    levels.blockCount = lodBlocks;
    catalogue.SetChunk(chunk_type::kLevelOfDetail, levels.EncodeChunk());
  }
  if (has(chunk_type::kStringRepository)) {
    catalogue.SetChunk(chunk_type::kStringRepository,
                       OOCPCStringRepositoryContainer::EncodeChunk(CutDictionary(lengths)));
  }
  std::vector<OOCPCStreamLength> streams;
  for (const auto& [name, bytes] : lengths) streams.push_back({name, bytes});
  main = OOCPCEncodeMainStream(catalogue, std::move(streams));
  return true;
}

}  // namespace tarnhost
