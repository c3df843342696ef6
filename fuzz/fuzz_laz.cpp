// Feeds arbitrary bytes to the LAZ reader as a whole file: whatever it accepts decodes, or is
// called damaged, without leaving its bytes; what decodes is compressed and decoded again to the
// same.
#include <OOCPointCloud/Repositories.h>

#include "fuzz/FuzzSupport.h"
#include "host/formats/laz/LazScan.h"

namespace {

namespace result = oocpc::result;
namespace laz = tarnhost::laz;
using oocpcfuzz::Bytes;
using oocpcfuzz::Require;

/// A chunk may hold some thousand points in a byte; more than this would only take time.
constexpr std::uint64_t kMostBytes = 1u << 20;

class FuzzedBytes final : public OOCPCByteSource {
 public:
  explicit FuzzedBytes(std::span<const std::uint8_t> bytes) : bytes_(bytes.begin(), bytes.end()) {}
  [[nodiscard]] std::span<const std::uint8_t> GetBytes() const override { return bytes_; }

 private:
  Bytes bytes_;
};

void CheckEncoding(const laz::LazLayout& layout, const Bytes& records, std::uint32_t points) {
  laz::ChunkEncoder encoder(layout);
  laz::ChunkDecoder decoder(layout);
  Bytes chunk;
  encoder.Encode(records, chunk);
  Bytes again(records.size());
  Require(decoder.Decode({chunk, chunk.size()}, points, again.data()));
  Require(again == records);
}

void CheckChunk(const tarnhost::LazScan& scan, std::size_t index) {
  const laz::Chunk& chunk = scan.GetChunks()[index];
  if (chunk.points * std::uint64_t{scan.GetRecordBytes()} > kMostBytes) return;
  Bytes records(chunk.points * scan.GetRecordBytes());
  laz::ChunkDecoder decoder(scan.GetLazLayout());
  const tarnhost::Outcome outcome = scan.DecodeChunk(index, decoder, records.data());
  if (outcome.Ok()) {
    CheckEncoding(scan.GetLazLayout(), records, chunk.points);
  } else {
    Require(outcome.code == result::kScanContradictory && !outcome.what.empty());
  }
  static_cast<void>(scan.DecodeChunk(index, decoder, records.data(), laz::kPartZ));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > (1u << 16)) return 0;
  const auto bytes = std::make_shared<FuzzedBytes>(std::span(data, size));
  std::unique_ptr<tarnhost::LazScan> scan;
  const tarnhost::Outcome outcome = tarnhost::LazScan::Open("scan.laz", bytes, scan);
  if (!outcome.Ok()) {
    Require(
        oocpcfuzz::IsOneOf(outcome.code, {result::kScanNotRecognised, result::kScanTruncated,
                                          result::kScanContradictory, result::kScanUnsupported}));
    Require(!outcome.what.empty() && outcome.where == "scan.laz");
    return 0;
  }
  std::uint64_t points = 0;
  for (std::size_t i = 0; i < scan->GetChunks().size(); ++i) {
    Require(scan->GetChunks()[i].firstPoint == points);
    points += scan->GetChunks()[i].points;
    if (i < 4) CheckChunk(*scan, i);
  }
  Require(points == scan->GetPointCount());
  return 0;
}
