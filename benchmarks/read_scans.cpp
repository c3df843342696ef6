// How fast scans of any format are opened and read into records, in million points a second: of one
// core in the processor's time of the whole program, and in time that passes. The best of some runs
// counts.
//   bench_read_scans FILE … [--runs N]
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "host/formats/ScanFile.h"

namespace {

double SecondsOf(clockid_t clock) {
  timespec time{};
  ::clock_gettime(clock, &time);
  return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

void Check(const tarnhost::Outcome& outcome) {
  if (outcome.Ok()) return;
  std::fprintf(stderr, "bench_read_scans: %s (%s)\n", outcome.what.c_str(), outcome.where.c_str());
  std::exit(1);
}

/// Opens a scan and makes its records, or reads them where the file has them already.
std::uint64_t Read(const char* path) {
  std::unique_ptr<tarnhost::ScanFile> scan;
  Check(tarnhost::OpenScan(path, scan));
  tarnhost::ScanWorkspace workspace{~std::uint64_t{0}, std::filesystem::temp_directory_path(), {}};
  Check(scan->Prepare(workspace));
  return scan->GetPointCount();
}

void Run(const char* path, int runs) {
  double core = 1e300;
  double wall = 1e300;
  std::uint64_t points = 0;
  for (int run = 0; run < runs; ++run) {
    const double cpuBegin = SecondsOf(CLOCK_PROCESS_CPUTIME_ID);
    const double wallBegin = SecondsOf(CLOCK_MONOTONIC);
    points = Read(path);
    core = std::min(core, SecondsOf(CLOCK_PROCESS_CPUTIME_ID) - cpuBegin);
    wall = std::min(wall, SecondsOf(CLOCK_MONOTONIC) - wallBegin);
  }
  const double millions = static_cast<double>(points) / 1e6;
  std::printf("| %s | %llu | %.1f | %.1f |\n",
              std::filesystem::path(path).filename().string().c_str(),
              static_cast<unsigned long long>(points), millions / core, millions / wall);
}

}  // namespace

int main(int argc, char** argv) {
  int runs = 3;
  int files = argc;
  if (argc > 3 && std::strcmp(argv[argc - 2], "--runs") == 0) {
    runs = std::atoi(argv[argc - 1]);
    files = argc - 2;
  }
  if (files < 2 || runs < 1) {
    std::fprintf(stderr, "usage: bench_read_scans FILE ... [--runs N]\n");
    return 2;
  }
  std::printf(
      "| file | points | million a second and core | million a second |\n|---|---|---|---|\n");
  for (int i = 1; i < files; ++i) Run(argv[i], runs);
  return 0;
}
