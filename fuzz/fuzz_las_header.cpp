// Feeds arbitrary bytes to the LAS header: what is accepted lies within the file, encodes to a
// header that reads the same, and its records come apart and together again without loss.
#include "fuzz/FuzzSupport.h"
#include "host/formats/LasHeader.h"
#include "host/formats/LasRecordLayout.h"

namespace {

namespace result = oocpc::result;
using oocpcfuzz::Bytes;
using oocpcfuzz::Require;
using tarnhost::LasHeader;

void CheckRecords(const LasHeader& header, const Bytes& file) {
  for (const tarnhost::LasVariableRecord& record : header.records) {
    Require(record.payloadOffset <= file.size());
    Require(record.payloadBytes <= file.size() - record.payloadOffset);
  }
}

void CheckEncoding(const LasHeader& header, Bytes file) {
  const Bytes encoded = tarnhost::EncodeLasHeader(header);
  std::copy(encoded.begin(), encoded.end(), file.begin());
  LasHeader again;
  Require(tarnhost::ParseLasHeader(file, "again", again).Ok());
  Require(tarnhost::EncodeLasHeader(again) == encoded);
  Require(again.records.size() == header.records.size());
}

void CheckPoints(const LasHeader& header, const Bytes& file) {
  constexpr std::uint64_t kTried = 16;
  const tarnhost::LasRecordLayout layout = tarnhost::LasRecordLayout::Of(header);
  for (std::uint64_t i = 0; i < std::min(header.pointCount, kTried); ++i) {
    const std::uint8_t* record = file.data() + header.pointsOffset + i * header.pointBytes;
    Bytes again(header.pointBytes);
    std::copy_n(record, 12, again.begin());
    for (const tarnhost::LasField& field : layout.GetFields()) {
      std::array<std::uint8_t, 8> value{};
      tarnhost::LasRecordLayout::Gather(field, record, value.data());
      tarnhost::LasRecordLayout::Scatter(field, value.data(), again.data());
    }
    Require(std::equal(again.begin(), again.end(), record));
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const Bytes file(data, data + size);
  LasHeader header;
  const tarnhost::Outcome outcome = tarnhost::ParseLasHeader(file, "scan.las", header);
  if (!outcome.Ok()) {
    Require(
        oocpcfuzz::IsOneOf(outcome.code, {result::kScanNotRecognised, result::kScanTruncated,
                                          result::kScanContradictory, result::kScanUnsupported}));
    Require(!outcome.what.empty() && outcome.where == "scan.las");
    return 0;
  }
  CheckRecords(header, file);
  CheckEncoding(header, file);
  CheckPoints(header, file);
  return 0;
}
