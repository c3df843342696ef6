// Opening named streams and reading exact ranges of them, with every range checked.
#include "OOCPointCloud/streams/StreamAccess.h"

#include <OOCPointCloud/OOCPCIDataRepository.h>
#include <OOCPointCloud/OOCPCIInputStream.h>
#include <OOCPointCloud/ResultCodes.h>

namespace oocpc {
namespace {

bool HasRange(const OOCPCIInputStream& stream, std::uint64_t offset, std::uint64_t length) {
  const std::uint64_t available = stream.GetLength();
  return offset <= available && length <= available - offset;
}

}  // namespace

HRESULT OpenNamedStream(OOCPCIDataRepository* repository, std::string_view name,
                        std::unique_ptr<OOCPCIInputStream>& stream) {
  if (stream != nullptr) return result::kOk;
  if (repository == nullptr) return result::kNoRepository;
  std::unique_ptr<OOCPCIInputStream> opened(repository->CreateInputStream(name));
  if (opened == nullptr) return result::kStreamMissing;
  if (!opened->IsUsable()) return result::kIoError;
  stream = std::move(opened);
  return result::kOk;
}

HRESULT ReadExactly(OOCPCIInputStream& stream, std::uint64_t offset,
                    std::span<std::uint8_t> destination) {
  if (!HasRange(stream, offset, destination.size())) return result::kStreamShort;
  if (Failed(stream.SetPosition(offset))) return result::kStreamShort;
  const std::uint64_t read = stream.Read(destination.data(), destination.size());
  return read == destination.size() ? result::kOk : result::kStreamShort;
}

HRESULT ViewOrRead(OOCPCIInputStream& stream, std::uint64_t offset, std::uint64_t length,
                   std::vector<std::uint8_t>& scratch, std::span<const std::uint8_t>& bytes) {
  if (!HasRange(stream, offset, length)) return result::kStreamShort;
  if (const std::uint8_t* const view = stream.View(offset, length); view != nullptr) {
    bytes = {view, static_cast<std::size_t>(length)};
    return result::kOk;
  }
  scratch.resize(length);
  const HRESULT code = ReadExactly(stream, offset, scratch);
  if (!Failed(code)) bytes = scratch;
  return code;
}

}  // namespace oocpc
