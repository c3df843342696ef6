// The main stream that a repository had, or would have had, after an earlier update iteration.
#include "host/repair/EarlierState.h"

#include <OOCPointCloud/ColumnBlocks.h>
#include <OOCPointCloud/OOCPCAcceleratorContainer.h>
#include <OOCPointCloud/OOCPCLODContainer.h>
#include <OOCPointCloud/OOCPCLODRecords.h>
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include <algorithm>
#include <iterator>
#include <optional>
#include <utility>

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/cloud/SourceRecord.h"
#include "host/cloud/VerifyOpening.h"

namespace tarnhost {

namespace chunk_type = oocpc::chunk_type;

using oocpc::detail::IsNameTaken;

namespace {

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

std::vector<OOCPCStreamLength> ListOf(const std::map<std::string, std::uint64_t>& lengths) {
  std::vector<OOCPCStreamLength> streams;
  streams.reserve(lengths.size());
  for (const auto& [name, bytes] : lengths) streams.push_back({name, bytes});
  return streams;
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

HRESULT EarlierState::Open(const std::string& name,
                           std::shared_ptr<const OOCPCByteSource>& source) {
  auto& known = sources_[name];
  const HRESULT code = known == nullptr ? OOCPCMapFile(folder_ / name, known) : oocpc::result::kOk;
  source = known;
  return code;
}

std::span<const std::uint8_t> EarlierState::GetBytes(const std::string& name) {
  const OOCPCStreamLength* listed = catalogue_.information.FindStream(name);
  if (listed == nullptr) return {};
  std::shared_ptr<const OOCPCByteSource> source;
  if (oocpc::Failed(Open(name, source))) return {};
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
  constexpr oocpc::ColumnType kStoredPosition{oocpc::ValueType::kInt32, 3};
  return std::ranges::all_of(catalogue_.chunks, [&](const OOCIndexChunk& chunk) {
    const std::uint8_t* const payload = chunk.payload.data();
    if (chunk.type == chunk_type::kStaticPositions) {
      OOCPCPositionsDescription positions;
      return !oocpc::Failed(positions.DecodeChunk(payload, chunk.size)) &&
             CutColumn(positions.columnId, kStoredPosition, blockCount, lengths);
    }
    if (chunk.type == chunk_type::kStaticMetaData) {
      OOCPCMetaDataDescription values;
      return !oocpc::Failed(values.DecodeChunk(payload, chunk.size)) &&
             CutColumn(values.columnId, values.type, blockCount, lengths);
    }
    return true;
  });
}

bool EarlierState::CutColumn(std::uint32_t id, oocpc::ColumnType type, std::uint64_t blockCount,
                             Lengths& lengths) {
  const auto table = lengths.find(oocpc::ColumnTableStreamName(id));
  const auto data = lengths.find(oocpc::ColumnDataStreamName(id));
  if (table == lengths.end() || data == lengths.end()) return false;
  const auto entries = GetBytes(table->first);
  const std::size_t entryBytes = oocpc::BlockEntry::RecordBytes(type);
  if (blockCount > entries.size() / entryBytes) return false;
  table->second = blockCount * entryBytes;
  oocpc::BlockEntry last;
  if (blockCount > 0) {
    const auto record = entries.subspan((blockCount - 1) * entryBytes, entryBytes);
    if (oocpc::Failed(oocpc::BlockEntry::Decode(record, last))) return false;
  }
  if (last.offsetBytes > data->second || last.storedBytes > data->second - last.offsetBytes) {
    return false;
  }
  data->second = last.offsetBytes + last.storedBytes;
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

/// The sources of the points that the state has. Where some are lost, a further stream takes their
/// place: what was committed stays as it is.
void EarlierState::CutSources(std::uint64_t pointCount, Lengths& lengths, RepositoryState& state) {
  const std::string name = FindSourceStream(catalogue_.information);
  const auto found = lengths.find(name);
  std::shared_ptr<const OOCPCByteSource> source;
  if (found == lengths.end()) return;
  const HRESULT code = Open(name, source);
  if (oocpc::Failed(code) && code != oocpc::result::kStreamMissing) return;
  std::optional<std::uint64_t> allPoints;
  OOCPCUpdateIteration newest;
  if (ReadIteration(CountIterations() - 1, newest)) allPoints = newest.pointCount;
  MendedSources mended = MendSources(GetBytes(name), found->second, pointCount, allPoints);
  if (mended.lost.empty()) {
    found->second = mended.wholeBytes;
    return;
  }
  lengths.erase(found);
  std::string other;
  for (unsigned number = 2; other.empty() || IsNameTaken(folder_ / other); ++number) {
    other = SourceRecord::kStreamName + ("_" + std::to_string(number));
  }
  lengths[other] = mended.stream.size();
  state.added[other] = {0, std::move(mended.stream)};
  state.lostSources = std::move(mended.lost);
}

/// A main stream that names more than there is cannot be opened. Iterations that need what is gone
/// are damaged, the others are not. A stream that is there, but cannot be read now, stays named.
void EarlierState::CutToWhatIsThere(Lengths& lengths, RepositoryState& state) {
  for (auto at = lengths.begin(); at != lengths.end();) {
    auto& [name, length] = *at;
    std::shared_ptr<const OOCPCByteSource> source;
    const HRESULT code = Open(name, source);
    const bool isGone = code == oocpc::result::kStreamMissing && !state.added.contains(name);
    if (!oocpc::Failed(code)) length = std::min<std::uint64_t>(length, source->GetBytes().size());
    if (isGone && length == 0) state.added[name] = {};
    at = isGone && length > 0 ? lengths.erase(at) : std::next(at);
  }
}

bool EarlierState::Find(std::uint64_t last, RepositoryState& state) {
  state = {};
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
  CutSources(record.pointCount, lengths, state);

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
  CutToWhatIsThere(lengths, state);
  state.main = OOCPCEncodeMainStream(catalogue, ListOf(lengths));
  return true;
}

bool EarlierState::AddLevels(const BuiltLod& lod, RepositoryState& state) {
  OOCPCCatalogue catalogue;
  OOCPCUpdateIteration record;
  const std::uint64_t iteration = CountIterations();
  const std::string lodName = OOCPCLODContainer::kStreamName;
  const std::string records = OOCPCUpdateIterationContainer::kStreamName;
  const OOCPCStreamLength* const blocks = catalogue_.information.FindStream(lodName);
  if (iteration == 0 || blocks == nullptr || !ReadIteration(iteration - 1, record)) return false;
  if (oocpc::Failed(OOCPCDecodeMainStream(state.main, catalogue))) return false;
  // What is gone of the blocks stays in its place as zeros: the records of older iterations must
  // not lead to blocks of other ones.
  AddedBytes& added = state.added[lodName];
  added.position = GetBytes(lodName).size();
  added.bytes.assign(static_cast<std::size_t>(blocks->committedBytes - added.position), 0);
  lod.block.Encode(added.bytes);
  state.added[OOCPCLODNodeStreamName(iteration)] = {0, lod.records};
  record.timePoint += 1;
  record.acceleratorPayload.beginBytes = record.acceleratorPayload.sizeBytes;
  record.lodPayload = {blocks->committedBytes, added.position + added.bytes.size()};
  record.addedPointCount = 0;
  record.addedBytes = added.bytes.size() + lod.records.size() + OOCPCUpdateIteration::kRecordBytes;
  AddedBytes& last = state.added[records];
  last.position = iteration * OOCPCUpdateIteration::kRecordBytes;
  record.Stream(last.bytes);

  Lengths lengths;
  for (const OOCPCStreamLength& stream : catalogue.information.streams) {
    lengths[stream.name] = stream.committedBytes;
  }
  for (const auto& [name, bytes] : state.added) lengths[name] = bytes.position + bytes.bytes.size();
  OOCPCUpdateIterationDescription iterations;
  iterations.iterationCount = iteration + 1;
  catalogue.SetChunk(chunk_type::kUpdateIterations, iterations.EncodeChunk());
  OOCPCLODDescription levels;
  levels.blockCount = iteration + 1;
  catalogue.SetChunk(chunk_type::kLevelOfDetail, levels.EncodeChunk());
  state.main = OOCPCEncodeMainStream(catalogue, ListOf(lengths));
  return true;
}

}  // namespace tarnhost
