// Feeds arbitrary bytes to the E57 reader as a whole file: it opens and reads, or is refused. The
// checksums of pages are not looked at: hardly any altered file would get past them.
#include "fuzz/FuzzedScan.h"
#include "host/formats/e57/E57Decoder.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > (1u << 16)) return 0;
  std::unique_ptr<tarnhost::ScanFile> scan;
  const tarnhost::Outcome outcome = tarnhost::OpenE57(
      "scan.e57", std::make_shared<oocpcfuzz::MappedBytes>(data, size), {}, scan, false);
  oocpcfuzz::CheckScan(outcome, scan.get());
  return 0;
}
