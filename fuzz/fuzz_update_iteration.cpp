// Feeds arbitrary bytes to the update-iteration chunk and record.
#include <OOCPointCloud/OOCPCUpdateIteration.h>

#include "FuzzSupport.h"

using namespace oocpcfuzz;

namespace {

void Unstream(const Bytes& record) {
  OOCPCUpdateIteration iteration;
  const HRESULT code =
      iteration.Unstream(1, record.data(), static_cast<std::uint16_t>(record.size()));
  Require(IsOneOf(
      code, {oocpc::result::kOk, oocpc::result::kBadRecord, oocpc::result::kChecksumMismatch}));
  if (code != oocpc::result::kOk) return;
  Require(iteration.lodPayload.beginBytes <= iteration.lodPayload.endBytes);
  Bytes again;
  iteration.Stream(again);
  Require(again == record);
}

void ReadAll(const Bytes& stream) {
  const std::uint64_t count = stream.size() / OOCPCUpdateIteration::kRecordBytes;
  OneStreamRepository repository(stream);
  OOCPCUpdateIterationContainer container(&repository, oocpc::chunk_type::kUpdateIterations);
  OOCPCUpdateIterationDescription description;
  description.iterationCount = count + 1;
  const Bytes payload = description.EncodeChunk();
  Require(container.LoadFromChunk(payload.data(), static_cast<std::uint32_t>(payload.size())) == 0);
  std::uint8_t record[OOCPCUpdateIteration::kRecordBytes];
  for (std::uint64_t i = 0; i < count; ++i) {
    const HRESULT code = container.ReadUpdateIterations(i, count, record);
    Require(IsOneOf(code, {oocpc::result::kOk, oocpc::result::kChecksumMismatch}));
    if (code == oocpc::result::kOk) Unstream(Bytes(record, record + sizeof(record)));
  }
  Require(container.ReadUpdateIterations(0, count + 1, record) == oocpc::result::kStreamShort);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  DecodeAndEncodeChunk<OOCPCUpdateIterationDescription>(data, size);
  Bytes record(data, data + size);
  ReadAll(record);
  record.resize(OOCPCUpdateIteration::kRecordBytes);
  Unstream(record);
  Unstream(SealedAnew(record));
  ReadAll(SealedAnew(record));
  return 0;
}
