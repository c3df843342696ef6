// The main stream as bytes: header, identity, seed, catalogue chunks, and the chunk that seals
// them.
#include <OOCPointCloud/OOCPCRepositoryWriter.h>

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

}  // namespace

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
