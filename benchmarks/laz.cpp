// Decoding and encoding of LAZ files, in million points a second: from the mapped file into memory,
// on one core in its own time, whatever else the machine does, and on all cores in time that
// passes. The best of several runs counts.
//   bench_laz FILE.laz … [--runs N]
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/formats/laz/LazScan.h"

namespace {

using tarnhost::LazScan;
using tarnhost::Outcome;
namespace laz = tarnhost::laz;

double SecondsOf(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

/// Million points a second of the fastest of some runs.
template <typename Work>
double Measure(const LazScan& scan, int runs, clockid_t clock, const Work& work) {
  double best = 1e300;
  for (int run = 0; run < runs; ++run) {
    const double begin = SecondsOf(clock);
    work();
    best = std::min(best, SecondsOf(clock) - begin);
  }
  return static_cast<double>(scan.GetPointCount()) / best / 1e6;
}

void Check(const Outcome& outcome) {
  if (outcome.Ok()) return;
  std::fprintf(stderr, "bench_laz: %s (%s)\n", outcome.what.c_str(), outcome.where.c_str());
  std::exit(1);
}

void DecodeAll(const LazScan& scan, std::uint32_t parts, std::vector<std::uint8_t>& records) {
  laz::ChunkDecoder decoder(scan.GetLazLayout());
  for (std::size_t i = 0; i < scan.GetChunks().size(); ++i) {
    const std::uint64_t at = scan.GetChunks()[i].firstPoint * scan.GetRecordBytes();
    Check(scan.DecodeChunk(i, decoder, records.data() + at, parts));
  }
}

void EncodeAll(const LazScan& scan, const std::vector<std::uint8_t>& records) {
  laz::ChunkEncoder encoder(scan.GetLazLayout());
  std::vector<std::uint8_t> chunk;
  for (const laz::Chunk& part : scan.GetChunks()) {
    encoder.Encode(std::span(records).subspan(part.firstPoint * scan.GetRecordBytes(),
                                              part.points * scan.GetRecordBytes()),
                   chunk);
  }
}

void Run(const char* path, int runs) {
  std::unique_ptr<LazScan> scan;
  Check(LazScan::Open(path, scan));
  std::vector<std::uint8_t> records(scan->GetPointCount() * scan->GetRecordBytes());
  const double decode = Measure(*scan, runs, CLOCK_THREAD_CPUTIME_ID,
                                [&] { DecodeAll(*scan, laz::kAllParts, records); });
  const double encode =
      Measure(*scan, runs, CLOCK_THREAD_CPUTIME_ID, [&] { EncodeAll(*scan, records); });
  const double positions = Measure(*scan, runs, CLOCK_THREAD_CPUTIME_ID,
                                   [&] { DecodeAll(*scan, laz::kPartZ, records); });
  const double all = Measure(*scan, runs, CLOCK_MONOTONIC, [&] {
    tarnhost::ScanWorkspace workspace{~std::uint64_t{0}, {}, {}};
    Check(scan->Prepare(workspace));
    scan->Release();
  });
  std::printf("| %s | %d | %llu | %.1f | %.1f | %.1f | %.1f |\n",
              scan->GetPath().filename().c_str(), scan->GetHeader().pointFormat,
              static_cast<unsigned long long>(scan->GetPointCount()), decode, all, positions,
              encode);
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 5;
  std::printf("| file | format | points | decode | all cores | positions | encode |\n");
  std::printf("|---|---|---|---|---|---|---|\n");
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
      runs = std::max(1, std::atoi(argv[++i]));
    } else {
      Run(argv[i], runs);
    }
  }
  return 0;
}
