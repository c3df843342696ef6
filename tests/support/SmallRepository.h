// A repository as the writer makes it, with a few streams and no points: enough to test what keeps
// a repository together.
#pragma once

#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/OOCPCRepositoryWriter.h>
#include <OOCPointCloud/Repositories.h>
#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace oocpctest {

/// A catalogue with one accelerator chunk of three bytes.
inline OOCPCCatalogue SmallCatalogue() {
  OOCPCCatalogue catalogue;
  catalogue.identity.fill(0x1D);
  catalogue.mortonSeed = {-1, -1, -1, 1, 1, 1};
  catalogue.chunks.emplace_back(oocpc::chunk_type::kAccelerator1,
                                std::vector<std::uint8_t>{7, 8, 9});
  catalogue.information.creationTime = 5;
  catalogue.information.localFrameOffset = {1000, 2000, 0};
  catalogue.information.generator = "test";
  return catalogue;
}

/// Finds the information chunk of a main stream and loads it, as attachment does; the object stays
/// not loaded when there is none. Negative: what attachment would refuse the stream with.
inline HRESULT LoadInformation(std::span<const std::uint8_t> main,
                               OOCPCRepositoryInformation& information) {
  const auto number = [&](std::size_t at) {
    return main[at] | main[at + 1] << 8 | main[at + 2] << 16 | std::uint32_t{main[at + 3]} << 24;
  };
  const std::vector<std::uint8_t> magic{'V', 'q', 'P', 'C'};
  std::size_t at = OOCPointCloudFileHeader::kBytes;
  if (main.size() < at || !std::equal(magic.begin(), magic.end(), main.begin())) {
    return oocpc::result::kBadHeader;
  }
  for (; main.size() - at >= OOCIndexChunk::kHeadBytes;) {
    const std::uint32_t type = number(at);
    const std::uint32_t size = number(at + 4);
    at += OOCIndexChunk::kHeadBytes;
    if (main.size() - at < size) return oocpc::result::kChunkPayloadShort;
    if (type == oocpc::chunk_type::kRepositoryInformation) {
      const HRESULT loaded = information.LoadFromChunk(main.data() + at, size);
      if (oocpc::Failed(loaded)) return loaded;
    }
    at += size;
  }
  return oocpc::result::kOk;
}

/// Reads a stream to its end; deletes it. Nothing for a null stream.
inline std::vector<std::uint8_t> ReadAndDelete(OOCPCIInputStream* opened) {
  const std::unique_ptr<OOCPCIInputStream> stream(opened);
  if (stream == nullptr) return {};
  std::vector<std::uint8_t> bytes(stream->GetLength());
  bytes.resize(stream->Read(bytes.data(), bytes.size()));
  return bytes;
}

/// What attachment does as far as the seal and the streams are concerned.
inline HRESULT CheckRepository(OOCPCIDataRepository& repository) {
  OOCPCRepositoryInformation information;
  const HRESULT loaded =
      LoadInformation(ReadAndDelete(repository.CreateInputStream()), information);
  return oocpc::Failed(loaded) ? loaded : repository.SetRepositoryInformation(&information);
}

}  // namespace oocpctest
