// How a level-of-detail node cache is filled from the streams of its repository.
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <limits>
#include <new>

#include "OOCPointCloud/support/Bytes.h"
#include "OOCPointCloudTarn/repository/LodBusyLock.h"
#include "OOCPointCloudTarn/repository/TarnOOCLODNodeCache.h"
#include "OOCPointCloudTarn/repository/TarnOOCLODNodeWorker.h"

namespace {

bool ReadAll(OOCPCIInputStream& stream, void* destination, std::uint64_t length) {
  return stream.Read(destination, length) == length;
}

}  // namespace

HRESULT TarnOOCLODNodeCache::LoadLODPayload(OOCPCUpdItrLODPayload payload, bool background) {
  if (owner == nullptr) return oocpc::result::kLodNoOwner;
  if (payload.endBytes - payload.beginBytes > std::numeric_limits<std::uint32_t>::max()) {
    return oocpc::result::kLodPayloadTooLong;
  }
  BusyLock lock(busy, mutex);
  return LoadLocked(payload, background, lock.stream);
}

HRESULT TarnOOCLODNodeCache::LoadLocked(OOCPCUpdItrLODPayload payload, bool background,
                                        std::unique_ptr<OOCPCIInputStream>& stream) {
  HRESULT code = OpenLodStream(payload.beginBytes, stream);
  if (oocpc::Failed(code)) return code;
  // Opening a stream may run the host's code, which may have detached the container.
  if (lodContainer == nullptr) return oocpc::result::kLodContainerMissing;
  Reset();
  BlockHead head;
  code = ReadHead(*stream, head);
  header = head.header;
  scale = head.scale;
  centre = head.centre;
  if (oocpc::Failed(code)) return code;
  nodeStreamId = head.nodeStreamId;
  if (lodContainer == nullptr) return oocpc::result::kLodContainerMissing;  // As above.
  lodContainer->SetExtendedData(head.extension.data(), header.extensionBytes);
  if (payload.endBytes - payload.beginBytes != header.GetBlockBytes()) {
    return oocpc::result::kLodLengthMismatch;
  }
  OOCPCLODSeal seal;
  isSealed = OOCPCLODSeal::Decode(head.extension, seal);
  if (isSealed) {
    const std::uint64_t entries =
        payload.endBytes - OOCPCLODHeader::kEntryBytes * std::uint64_t{header.nodeEntryCount};
    code = CheckSeal(*stream, payload.beginBytes, head);
    // Whoever gets the stream finds it where it stands without a seal.
    if (!oocpc::Failed(code)) code = stream->SetPosition(entries);
    if (oocpc::Failed(code)) return code;
  }
  code = FillContainerMap();
  if (oocpc::Failed(code)) return code;
  return StartLocked(std::move(stream), background);
}

HRESULT TarnOOCLODNodeCache::OpenLodStream(std::uint64_t position,
                                           std::unique_ptr<OOCPCIInputStream>& stream) const {
  if (lodContainer == nullptr) return oocpc::result::kNoLodStream;
  // After a detach the cloud's containers refer to a repository that is gone.
  if (owner->ownership.Owns(lodContainer) && !owner->IsReadable(*lodContainer)) {
    return oocpc::result::kNoLodStream;
  }
  stream.reset(lodContainer->CreateLODInputStream());
  if (stream == nullptr) return oocpc::result::kNoLodStream;
  if (!stream->IsUsable()) return oocpc::result::kLodStreamUnusable;
  return stream->SetPosition(position);
}

HRESULT TarnOOCLODNodeCache::ReadHead(OOCPCIInputStream& stream, BlockHead& head) {
  std::uint8_t bytes[OOCPCLODHeader::kBytes];
  if (!ReadAll(stream, bytes, sizeof(bytes))) return oocpc::result::kLodShortRead;
  head.header = OOCPCLODHeader::Decode(bytes);
  if (!head.header.HasKnownVersion()) return oocpc::result::kLodBadVersion;
  head.extension.resize(head.header.extensionBytes);
  if (!head.extension.empty() && !ReadAll(stream, head.extension.data(), head.extension.size())) {
    return oocpc::result::kLodShortRead;
  }
  double numbers[4];
  if (!ReadAll(stream, numbers, sizeof(numbers))) return oocpc::result::kLodShortRead;
  head.scale = numbers[0];
  std::copy_n(numbers + 1, head.centre.size(), head.centre.begin());
  if (!ReadAll(stream, &head.nodeStreamId, sizeof(head.nodeStreamId))) {
    return oocpc::result::kLodShortRead;
  }
  return oocpc::result::kOk;
}

HRESULT TarnOOCLODNodeCache::CheckSeal(OOCPCIInputStream& stream, std::uint64_t position,
                                       const BlockHead& head) {
  OOCPCLODSeal seal;
  if (!OOCPCLODSeal::Decode(head.extension, seal)) return oocpc::result::kOk;
  std::vector<std::uint8_t> buffer;
  head.header.Encode(buffer);
  std::uint32_t sum = oocpc::Crc32c(buffer);
  const std::uint64_t skipped = OOCPCLODHeader::kBytes + head.extension.size();
  const HRESULT code = stream.SetPosition(position + skipped);
  if (oocpc::Failed(code)) return code;
  constexpr std::uint64_t kBufferBytes = 1u << 16;
  for (std::uint64_t left = head.header.GetBlockBytes() - skipped; left > 0;) {
    buffer.resize(static_cast<std::size_t>(std::min(left, kBufferBytes)));
    if (!ReadAll(stream, buffer.data(), buffer.size())) return oocpc::result::kLodShortRead;
    sum = oocpc::Crc32c(buffer, sum);
    left -= buffer.size();
  }
  return sum == seal.checksum ? oocpc::result::kOk : oocpc::result::kChecksumMismatch;
}

HRESULT TarnOOCLODNodeCache::MakeLevelContainer(
    const char* name, std::uint64_t level, std::unique_ptr<OOCPCMetaDataContainer>& made) const {
  if (owner == nullptr) return oocpc::result::kLodNoOwner;
  const OOCPCContainer* const container = owner->GetContainer(name);
  if (container == nullptr || !container->HasLevelOfDetail()) {
    return oocpc::result::kLodNoContainerForName;
  }
  made.reset(container->CreateLevelContainer(level));
  return made == nullptr ? oocpc::result::kLodNoLevelContainer : oocpc::result::kOk;
}

HRESULT TarnOOCLODNodeCache::FillContainerMap() {
  if (owner == nullptr) return oocpc::result::kLodNoOwner;
  for (const std::string& name : owner->GetMetaDataNames()) {
    std::unique_ptr<OOCPCMetaDataContainer> made;
    const HRESULT code = MakeLevelContainer(name.c_str(), nodeStreamId, made);
    if (oocpc::Failed(code)) return code;
    containerMap.emplace(name, std::move(made));
  }
  return oocpc::result::kOk;
}

HRESULT TarnOOCLODNodeCache::WalkUpdateIterations(std::string_view name, std::uint64_t value) {
  if (header.nodeEntryCount == 0) return oocpc::result::kNothingDone;
  if (owner == nullptr) return oocpc::result::kLodNoOwner;
  if (owner->GetDataRepository() == nullptr) return oocpc::result::kLodNoRepository;
  std::unique_ptr<OOCPCIInputStream> stream;
  HRESULT code = OpenLodStream(0, stream);
  std::uint64_t position = 0;
  for (std::uint64_t i = 0; !oocpc::Failed(code); ++i) {
    // The host's streams and containers may end the cloud's life while they are walked.
    if (owner == nullptr) return oocpc::result::kLodNoOwner;
    if (i >= owner->GetUpdateIterationCount()) return oocpc::result::kOk;
    code = WalkBlock(*stream, name, value, i, position);
  }
  return code;
}

HRESULT TarnOOCLODNodeCache::WalkBlock(OOCPCIInputStream& stream, std::string_view name,
                                       std::uint64_t value, std::uint64_t iteration,
                                       std::uint64_t& position) {
  const std::string text(name);
  std::unique_ptr<OOCPCMetaDataContainer> level;
  HRESULT code = MakeLevelContainer(text.c_str(), iteration, level);
  if (!oocpc::Failed(code)) code = stream.SetPosition(position);
  if (oocpc::Failed(code)) return code;
  BlockHead head;
  code = ReadHead(stream, head);
  if (!oocpc::Failed(code)) code = CheckSeal(stream, position, head);
  if (!oocpc::Failed(code)) code = level->SetLevelExtent(head.header.nodeEntryCount, value);
  if (oocpc::Failed(code)) return code;
  if (iteration == nodeStreamId && containerMap.find(text) == containerMap.end()) {
    containerMap.emplace(text, std::move(level));
  }
  // The length of a block is a 32-bit number, which wraps.
  position += static_cast<std::uint32_t>(head.header.GetBlockBytes());
  return code;
}

HRESULT TarnOOCLODNodeCache::StartNodeLoading(std::unique_ptr<OOCPCIInputStream> lodStream,
                                              bool background) {
  const BusyLock lock(busy, mutex);
  return StartLocked(std::move(lodStream), background);
}

HRESULT TarnOOCLODNodeCache::StartLocked(std::unique_ptr<OOCPCIInputStream> lodStream,
                                         bool background) {
  std::unique_ptr<OOCPCIInputStream> nodeStream;
  HRESULT code = OpenNodeStream(nodeStream);
  if (oocpc::Failed(code)) return code;
  auto positions = CloneLevelContainer("DEF_POSITION");
  auto colors = CloneLevelContainer("DEF_COLOR");
  worker.reset();  // a former load must not add nodes any more
  ReserveNodes(*nodeStream);
  if (!background) {
    for (std::uint32_t i = 0; i < header.recordCount; ++i) {
      code = ReadNodeRecord(*nodeStream, nullptr);
      if (oocpc::Failed(code)) return code;
    }
    return oocpc::result::kOk;
  }
  code = ReadNodeRecord(*nodeStream, nullptr);
  if (oocpc::Failed(code)) return code;
  std::unique_ptr<TarnOOCLODNodeWorker> created(new (std::nothrow) TarnOOCLODNodeWorker(
      *this, header, std::move(lodStream), std::move(nodeStream), std::move(positions),
      std::move(colors)));
  if (created == nullptr) return oocpc::result::kWorkerNotCreated;
  created->Start();
  worker = std::move(created);
  return oocpc::result::kOk;
}

HRESULT TarnOOCLODNodeCache::OpenNodeStream(std::unique_ptr<OOCPCIInputStream>& stream) const {
  OOCPCIDataRepository* const repository = owner == nullptr ? nullptr : owner->GetDataRepository();
  if (repository == nullptr) return oocpc::result::kLodNoRepository;
  stream.reset(repository->CreateInputStream(OOCPCLODNodeStreamName(nodeStreamId)));
  if (stream == nullptr) return oocpc::result::kNoLodStream;
  return stream->IsUsable() ? oocpc::result::kOk : oocpc::result::kLodStreamUnusable;
}

std::unique_ptr<OOCPCMetaDataContainer> TarnOOCLODNodeCache::CloneLevelContainer(
    const char* name) const {
  const auto found = containerMap.find(name);
  if (found == containerMap.end() || found->second == nullptr) return nullptr;
  return std::unique_ptr<OOCPCMetaDataContainer>(found->second->Clone());
}

void TarnOOCLODNodeCache::ReserveNodes(const OOCPCIInputStream& nodeStream) {
  // No more than the stream can hold, whatever the header states, and never so much that a stream
  // whose length is wrong could use the memory up.
  constexpr std::uint64_t kMost = 1u << 20;
  const std::uint64_t records = nodeStream.GetLength() / OOCPCLODNodeRecord::kBytes;
  const auto expected =
      static_cast<std::size_t>(std::min({std::uint64_t{header.recordCount}, records, kMost}));
  nodeEntries.reserve(nodeEntries.size() + expected);
  nodeIndex->reserve(nodeIndex->size() + expected);
}

HRESULT TarnOOCLODNodeCache::ReadNodeRecord(OOCPCIInputStream& nodeStream, std::mutex* guard) {
  std::uint8_t record[OOCPCLODNodeRecord::kBytes];
  if (!ReadAll(nodeStream, record, sizeof(record))) return oocpc::result::kLodShortRead;
  if (isSealed) {
    OOCPCLODNodeRecord sound;
    const HRESULT code = OOCPCLODNodeRecord::Decode(record, sound);
    if (oocpc::Failed(code)) return code;
  }
  const TarnOOCLODNodeEntry entry = TarnOOCLODNodeEntry::FromRecord(record);
  std::unique_lock<std::mutex> adding;
  if (guard != nullptr) adding = std::unique_lock<std::mutex>(*guard);
  const std::size_t place = nodeEntries.size();
  nodeEntries.push_back(entry);
  nodeIndex->try_emplace(NodeKey{entry.GetLevel(), entry.GetIndexInLevel()}, place);
  return oocpc::result::kOk;
}
