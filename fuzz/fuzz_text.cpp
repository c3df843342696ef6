// Feeds arbitrary bytes to the reader of text files. The first byte says what the options are: how
// many lines to skip, whether columns are named, and which separator there is.
#include <array>

#include "fuzz/FuzzedScan.h"
#include "host/formats/text/TextDecoder.h"

/// Those that files have, and those that mean something else there.
constexpr std::array<char, 15> kSeparators{' ', '\t', ',', ';', '|',  ':',  '"',   '.',
                                           '-', '0',  'e', '#', '\n', '\0', '\xFF'};

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0 || size > (1u << 16)) return 0;
  tarnhost::ScanOptions options;
  options.skipLines = data[0] & 3u;
  if ((data[0] & 4u) != 0) options.columns = {"x", "y", "z"};
  if ((data[0] & 8u) != 0) options.columns = {"z", "-", "intensity", "y", "x"};
  if (const unsigned number = data[0] >> 4; number != 0) {
    options.separator = kSeparators[number - 1];
  }
  std::unique_ptr<tarnhost::ScanFile> scan;
  const tarnhost::Outcome outcome = tarnhost::OpenText(
      "scan.txt", std::make_shared<oocpcfuzz::MappedBytes>(data + 1, size - 1), options, scan);
  oocpcfuzz::CheckScan(outcome, scan.get());
  return 0;
}
