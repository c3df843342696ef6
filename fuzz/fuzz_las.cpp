// Feeds arbitrary bytes to the LAS reader as a whole file: it opens and its points can be read, or
// it is refused.
#include "fuzz/FuzzedScan.h"
#include "host/formats/LasScan.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size > (1u << 16)) return 0;
  std::unique_ptr<tarnhost::LasScan> scan;
  const tarnhost::Outcome outcome = tarnhost::LasScan::Open(
      "scan.las", std::make_shared<oocpcfuzz::MappedBytes>(data, size), scan);
  oocpcfuzz::CheckScan(outcome, scan.get(), oocpcfuzz::StatedBox::kMayBeWrong);
  return 0;
}
