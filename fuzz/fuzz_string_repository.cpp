// Feeds arbitrary bytes to the string dictionary: the first 16 as its chunk, the rest as its
// stream.
#include <OOCPointCloud/OOCPCMetaDataContainer.h>

#include "FuzzSupport.h"

using namespace oocpcfuzz;

namespace {

constexpr std::size_t kChunkBytes = 16;

void Load(OOCPCIDataRepository& repository, const Bytes& stream, const Bytes& payload) {
  OOCPCStringRepositoryContainer strings(&repository);
  const HRESULT code =
      strings.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
  Require(IsOneOf(code,
                  {oocpc::result::kOk, oocpc::result::kBadRecord, oocpc::result::kChecksumMismatch,
                   oocpc::result::kUnknownVersion, oocpc::result::kStreamShort}));
  if (code != oocpc::result::kOk) return Require(strings.GetCount() == 0);
  Bytes again;
  for (std::uint64_t i = 0; i < strings.GetCount(); ++i) {
    std::string text;
    Require(strings.GetString(i, text) == oocpc::result::kOk);
    OOCPCStringRepositoryContainer::EncodeString(text, again);
  }
  Require(again == stream);
  Require(OOCPCStringRepositoryContainer::EncodeChunk(strings.GetCount()) == payload);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const std::size_t chunkBytes = std::min(size, kChunkBytes);
  const Bytes payload(data, data + chunkBytes);
  const Bytes stream(data + chunkBytes, data + size);
  OneStreamRepository repository(stream);
  Load(repository, stream, payload);
  Load(repository, stream, SealedAnew(payload));
  // As a stream of one string with a checksum that agrees.
  const Bytes sealed = SealedAnew(stream);
  OneStreamRepository single(sealed);
  Load(single, sealed, OOCPCStringRepositoryContainer::EncodeChunk(1));
  return 0;
}
