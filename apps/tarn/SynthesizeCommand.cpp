// tarn synthesize
#include "apps/tarn/Commands.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/common/System.h"
#include "host/synthesize/SynthesizeScan.h"

namespace tarnapp {

namespace {

struct Arguments {
  tarnhost::SynthesizeOptions options;
  std::string output;
  bool quiet = false;
};

int Run(Arguments& arguments) {
  arguments.options.output = tarnhost::PathOf(arguments.output);
  arguments.options.progress = ShowProgress(arguments.quiet);
  const tarnhost::Outcome outcome = tarnhost::SynthesizeScan(arguments.options);
  arguments.options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (!arguments.quiet) {
    std::printf("%s points written to %s\n", Grouped(arguments.options.pointCount).c_str(),
                arguments.output.c_str());
  }
  return kDone;
}

}  // namespace

void AddSynthesize(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command =
      app.add_subcommand("synthesize", "Scan a made-up street by ray casting, as a LAS file");
  command->footer("Example:\n  tarn synthesize -o street.las --points 2000000");
  command->add_option("-o,--output", arguments->output, "The LAS file to write")->required();
  command->add_option("--points", arguments->options.pointCount, "Number of points")
      ->check(IsWholeNumber())
      ->capture_default_str();
  command->add_option("--seed", arguments->options.seed, "Another seed, another street")
      ->check(IsWholeNumber())
      ->capture_default_str();
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
