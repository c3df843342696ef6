// The main stream as bytes: header, identity, seed, catalogue chunks, and the chunk that seals
// them.
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <utility>

#include "OOCPointCloud/support/Bytes.h"

namespace {

void AppendHeader(std::vector<std::uint8_t>& out, const OOCPointCloudFileHeader& header) {
  out.insert(out.end(), header.magic.begin(), header.magic.end());
  out.push_back(static_cast<std::uint8_t>(header.version));
  out.insert(out.end(), header.data5.begin(), header.data5.end());
  out.insert(out.end(), header.data13.begin(), header.data13.end());
  out.insert(out.end(), header.data61.begin(), header.data61.end());
}

void AppendChunk(std::vector<std::uint8_t>& out, oocpc::ContainerChunkType type,
                 std::span<const std::uint8_t> payload) {
  oocpc::AppendLittleEndian(out, type);
  oocpc::AppendLittleEndian(out, static_cast<std::uint32_t>(payload.size()));
  out.insert(out.end(), payload.begin(), payload.end());
}

// One after the other, to the end of the stream.
HRESULT ReadChunks(oocpc::ByteReader& reader, std::vector<OOCIndexChunk>& chunks) {
  while (reader.GetRemaining() > 0) {
    oocpc::ContainerChunkType type = 0;
    std::uint32_t size = 0;
    std::span<const std::uint8_t> payload;
    if (!reader.Read(type) || !reader.Read(size) || !reader.ReadBytes(size, payload)) {
      return oocpc::result::kChunkPayloadShort;
    }
    chunks.emplace_back(type, std::vector<std::uint8_t>(payload.begin(), payload.end()));
  }
  return oocpc::result::kOk;
}

bool ReadHeader(oocpc::ByteReader& reader, OOCPointCloudFileHeader& header) {
  std::span<const std::uint8_t> bytes;
  if (!reader.ReadBytes(OOCPointCloudFileHeader::kBytes, bytes)) return false;
  const OOCPointCloudFileHeader known;
  if (!std::equal(known.magic.begin(), known.magic.end(), bytes.begin())) return false;
  header.version = static_cast<std::int8_t>(bytes[4]);
  std::copy_n(bytes.begin() + 5, header.data5.size(), header.data5.begin());
  std::copy_n(bytes.begin() + 13, header.data13.size(), header.data13.begin());
  std::copy_n(bytes.begin() + 61, header.data61.size(), header.data61.begin());
  return header.version <= OOCPointCloudFileHeader::kNewestVersion;
}

// Identity and seed have fields of their own; false when they have not the size that they must
// have.
bool TakeOwnChunk(const OOCIndexChunk& chunk, OOCPCCatalogue& catalogue) {
  if (chunk.type == oocpc::chunk_type::kValue16) {
    if (chunk.size != catalogue.identity.size()) return false;
    std::ranges::copy(chunk.payload, catalogue.identity.begin());
    return true;
  }
  oocpc::ByteReader reader(chunk.payload);
  for (double& corner : catalogue.mortonSeed) {
    if (!reader.Read(corner)) return false;
  }
  return reader.GetRemaining() == 0;
}

}  // namespace

void OOCPCCatalogue::SetChunk(oocpc::ContainerChunkType type, std::vector<std::uint8_t> payload) {
  const auto found = std::ranges::find(chunks, type, &OOCIndexChunk::type);
  OOCIndexChunk chunk(type, std::move(payload));
  if (found == chunks.end()) {
    chunks.push_back(std::move(chunk));
  } else {
    *found = std::move(chunk);
  }
}

std::vector<std::uint8_t> OOCPCEncodeMainStream(const OOCPCCatalogue& catalogue,
                                                std::vector<OOCPCStreamLength> streams) {
  std::vector<std::uint8_t> seed;
  for (const double corner : catalogue.mortonSeed) oocpc::AppendLittleEndian(seed, corner);

  std::vector<std::uint8_t> out;
  AppendHeader(out, catalogue.header);
  AppendChunk(out, oocpc::chunk_type::kValue16, catalogue.identity);
  AppendChunk(out, oocpc::chunk_type::kMortonSeed, seed);
  for (const OOCIndexChunk& chunk : catalogue.chunks) AppendChunk(out, chunk.type, chunk.payload);

  OOCPCRepositoryInformation information = catalogue.information;
  information.streams = std::move(streams);
  information.catalogueBytes = out.size();
  information.catalogueChecksum = oocpc::Crc32c(out);
  AppendChunk(out, oocpc::chunk_type::kRepositoryInformation, information.EncodeChunk());
  return out;
}

HRESULT OOCPCDecodeMainStream(std::span<const std::uint8_t> bytes, OOCPCCatalogue& catalogue) {
  oocpc::ByteReader reader(bytes);
  OOCPCCatalogue decoded;
  if (!ReadHeader(reader, decoded.header)) return oocpc::result::kBadHeader;
  std::vector<OOCIndexChunk> chunks;
  const HRESULT read = ReadChunks(reader, chunks);
  if (oocpc::Failed(read)) return read;
  if (chunks.empty() || chunks.back().type != oocpc::chunk_type::kRepositoryInformation) {
    return oocpc::result::kNoRepositoryInformation;
  }
  const HRESULT loaded =
      decoded.information.LoadFromChunk(chunks.back().payload.data(), chunks.back().size);
  if (oocpc::Failed(loaded)) return loaded;
  if (!OOCPCIsSealedMainStream(bytes, decoded.information)) {
    return oocpc::result::kCatalogueMismatch;
  }
  chunks.pop_back();
  for (OOCIndexChunk& chunk : chunks) {
    if (chunk.type != oocpc::chunk_type::kValue16 && chunk.type != oocpc::chunk_type::kMortonSeed) {
      decoded.chunks.push_back(std::move(chunk));
    } else if (!TakeOwnChunk(chunk, decoded)) {
      return oocpc::result::kBadRecord;
    }
  }
  catalogue = std::move(decoded);
  return oocpc::result::kOk;
}

bool OOCPCIsSealedMainStream(std::span<const std::uint8_t> main,
                             const OOCPCRepositoryInformation& information) {
  std::vector<std::uint8_t> tail;
  AppendChunk(tail, oocpc::chunk_type::kRepositoryInformation, information.EncodeChunk());
  if (main.size() < tail.size()) return false;
  const auto catalogue = main.first(main.size() - tail.size());
  return catalogue.size() == information.catalogueBytes &&
         std::ranges::equal(main.subspan(catalogue.size()), tail) &&
         oocpc::Crc32c(catalogue) == information.catalogueChecksum;
}
