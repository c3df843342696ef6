// Feeds arbitrary bytes to the PLY reader as a whole file: it opens and reads, or is refused.
#include "fuzz/FuzzedScan.h"
#include "host/formats/ply/PlyDecoder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > (1u << 16)) return 0;
  std::unique_ptr<tarnhost::ScanFile> scan;
  const tarnhost::Outcome outcome =
      tarnhost::OpenPly("scan.ply", std::make_shared<oocpcfuzz::MappedBytes>(data, size), {}, scan);
  oocpcfuzz::CheckScan(outcome, scan.get());
  return 0;
}
