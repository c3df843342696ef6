// How fast a picture is made. Usage: bench_render REPOSITORY [options of the benchmark library]
#include "host/render/Render.h"

#include <benchmark/benchmark.h>

#include <cstdio>
#include <memory>

#include "host/cloud/Cloud.h"

namespace {

std::unique_ptr<tarnhost::Cloud> cloud;

void Render(benchmark::State& state) {
  tarnhost::RenderOptions options;
  options.pointBudget = static_cast<std::uint64_t>(state.range(0)) * 1000000;
  tarnhost::Picture picture;
  tarnhost::RenderReport report;
  for (auto _ : state) {
    const tarnhost::Outcome outcome = tarnhost::RenderPicture(*cloud, options, picture, report);
    if (!outcome.Ok()) return state.SkipWithError(outcome.what.c_str());
  }
  state.SetItemsProcessed(state.iterations() * static_cast<std::int64_t>(report.drawnPoints));
}
BENCHMARK(Render)
    ->Arg(1)
    ->Arg(3)
    ->Arg(10)
    ->ArgName("million")
    ->Unit(benchmark::kMillisecond)
    ->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: bench_render REPOSITORY\n");
    return 2;
  }
  const tarnhost::Outcome outcome = tarnhost::Cloud::Open(argv[1], cloud);
  if (!outcome.Ok()) {
    std::fprintf(stderr, "%s\n", outcome.what.c_str());
    return 1;
  }
  benchmark::RunSpecifiedBenchmarks();
  cloud.reset();
  return 0;
}
