// Feeds arbitrary bytes to the LAZ reader as a whole file: whatever it accepts decodes, or is
// called damaged, without leaving its bytes, and to the same in memory and in a temporary file;
// what decodes is compressed and decoded again to the same.
#include "fuzz/FuzzedScan.h"
#include "host/formats/laz/LazScan.h"

namespace {

namespace result = oocpc::result;
namespace laz = tarnhost::laz;
using oocpcfuzz::Bytes;
using oocpcfuzz::Require;

/// A chunk may hold some thousand points in a byte; more than this would only take time.
constexpr std::uint64_t kMostBytes = 1u << 20;
/// The same of a scan, which may be more than a run of points.
constexpr std::uint64_t kMostScanBytes = 3u << 19;

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

/// Makes the points ready with so much memory and gives all records; of a damaged scan, none.
tarnhost::Outcome ReadRecords(tarnhost::LazScan& scan, std::uint64_t memoryBytes, Bytes& records) {
  tarnhost::ScanWorkspace workspace{memoryBytes, std::filesystem::temp_directory_path(), {}};
  tarnhost::Outcome outcome = scan.Prepare(workspace);
  if (outcome.Ok()) {
    records.resize(scan.GetScratchBytes());
    scan.ReadRecords(0, scan.GetPointCount(), records.data());
  }
  scan.Release();
  return outcome;
}

void CheckPreparing(tarnhost::LazScan& scan) {
  if (scan.GetScratchBytes() > kMostScanBytes) return;
  Bytes inMemory;
  Bytes inFile;
  const tarnhost::Outcome outcome = ReadRecords(scan, kMostScanBytes, inMemory);
  const tarnhost::Outcome other = ReadRecords(scan, 0, inFile);
  Require(outcome.Ok() || (outcome.code == result::kScanContradictory && !outcome.what.empty()));
  Require(other.code == outcome.code && other.what == outcome.what);
  Require(inFile == inMemory);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > (1u << 16)) return 0;
  std::unique_ptr<tarnhost::LazScan> scan;
  const tarnhost::Outcome outcome = tarnhost::LazScan::Open(
      "scan.laz", std::make_shared<oocpcfuzz::MappedBytes>(data, size), scan);
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
  CheckPreparing(*scan);
  return 0;
}
