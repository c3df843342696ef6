// Reads a repository's main stream: the file header, then chunk after chunk to the end.
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloudTarn/TarnOOCPointCloud.h>

#include <algorithm>

#include "OOCPointCloud/support/Bytes.h"
#include "OOCPointCloudTarn/repository/ChunkSorter.h"

namespace {

enum class ChunkRead { kWhole, kEnd, kShort };

// The version is tested as a signed byte: what is below zero counts as old.
bool IsKnownHeader(const OOCPointCloudFileHeader& header) {
  constexpr OOCPointCloudFileHeader kKnown;
  return header.magic == kKnown.magic && header.version <= OOCPointCloudFileHeader::kNewestVersion;
}

// In pieces: a broken chunk head may announce 4 GiB, and no more memory is to be taken than the
// stream has bytes for. What it says of its length is not asked for.
bool ReadPayload(OOCPCIInputStream& stream, OOCIndexChunk& chunk) {
  constexpr std::size_t kPieceBytes = std::size_t{1} << 20;
  while (chunk.payload.size() < chunk.size) {
    const std::size_t begin = chunk.payload.size();
    const std::uint64_t piece = std::min(kPieceBytes, chunk.size - begin);
    chunk.payload.resize(begin + piece);
    if (stream.Read(chunk.payload.data() + begin, piece) != piece) return false;
  }
  return true;
}

ChunkRead ReadChunk(OOCPCIInputStream& stream, OOCIndexChunk& chunk) {
  std::uint8_t head[OOCIndexChunk::kHeadBytes];
  if (stream.Read(head, sizeof(head)) != sizeof(head)) return ChunkRead::kEnd;
  chunk.type = oocpc::LoadLittleEndian<std::uint32_t>(head);
  chunk.size = oocpc::LoadLittleEndian<std::uint32_t>(head + sizeof(chunk.type));
  return ReadPayload(stream, chunk) ? ChunkRead::kWhole : ChunkRead::kShort;
}

void SortChunks(OOCPCIInputStream& stream, ChunkSorter& sorter) {
  while (!sorter.HasFailed()) {
    OOCIndexChunk chunk;
    switch (ReadChunk(stream, chunk)) {
      case ChunkRead::kEnd:
        return;
      case ChunkRead::kShort:
        return sorter.Fail(oocpc::result::kChunkPayloadShort);
      case ChunkRead::kWhole:
        sorter.Take(std::move(chunk));
    }
  }
}

}  // namespace

HRESULT TarnOOCPointCloud::ParseHeader(OOCPointCloudFileHeader* fileHeader,
                                       OOCPCRepositoryInformation* information,
                                       std::array<std::uint8_t, 16>* value16,
                                       std::vector<OOCIndexChunk>* selectedChunks,
                                       std::vector<OOCIndexChunk>* otherChunks,
                                       std::array<double, 6>* seed) {
  if (dataRepository == nullptr) return oocpc::result::kNoRepository;
  const std::unique_ptr<OOCPCIInputStream> stream(dataRepository->CreateInputStream());
  if (stream == nullptr) return oocpc::result::kNothingDone;
  ChunkSorter sorter({information, value16, selectedChunks, otherChunks, seed});

  // Reading starts where the stream says it starts; a stream that cannot go there shows in the
  // header.
  static_cast<void>(stream->SetPosition(stream->GetPosition()));
  OOCPointCloudFileHeader local;
  OOCPointCloudFileHeader& read = fileHeader == nullptr ? local : *fileHeader;
  if (stream->Read(&read, sizeof(read)) != sizeof(read)) return oocpc::result::kNothingDone;
  if (!IsKnownHeader(read)) return oocpc::result::kBadHeader;

  SortChunks(*stream, sorter);
  return sorter.Finish();
}
