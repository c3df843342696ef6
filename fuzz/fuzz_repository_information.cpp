// Feeds arbitrary bytes to the repository-information chunk. Two ways in: as a whole payload, and
// sealed anew, because hardly any altered payload gets past its checksum.
#include <OOCPointCloud/OOCPCRepositoryInformation.h>
#include <OOCPointCloud/ResultCodes.h>
#include <OOCPointCloud/StreamStore.h>

#include <vector>

#include "OOCPointCloud/support/Bytes.h"

namespace {

void Require(bool ok) {
  if (!ok) __builtin_trap();
}

bool IsDocumented(HRESULT code) {
  return code == oocpc::result::kOk || code == oocpc::result::kBadRecord ||
         code == oocpc::result::kChecksumMismatch || code == oocpc::result::kUnknownVersion;
}

void LoadAndEncode(const std::vector<std::uint8_t>& payload) {
  OOCPCRepositoryInformation information;
  const HRESULT code =
      information.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size()));
  Require(IsDocumented(code));
  Require(information.IsLoaded() == (code == oocpc::result::kOk));
  if (!information.IsLoaded()) {
    Require(information.EncodeChunk() == OOCPCRepositoryInformation().EncodeChunk());
    return;
  }
  Require(information.EncodeChunk() == payload);
  for (const OOCPCStreamLength& stream : information.streams) {
    Require(OOCPCIsStreamName(stream.name));
    Require(information.FindStream(stream.name) == &stream);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  std::vector<std::uint8_t> payload(data, data + size);
  LoadAndEncode(payload);
  constexpr std::size_t kSealBytes = 4;
  if (size >= kSealBytes) payload.resize(size - kSealBytes);
  oocpc::AppendChecksum(payload);
  LoadAndEncode(payload);
  return 0;
}
