// tarn synthesize
#include "apps/tarn/Arguments.h"
#include "apps/tarn/Commands.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/common/OutputFile.h"
#include "host/common/System.h"
#include "host/synthesize/SynthesizeScan.h"

namespace tarnapp {

namespace {

struct SynthesizeArguments {
  tarnhost::SynthesizeOptions options;
  std::string output;
  bool overwrite = false;
  bool quiet = false;
};

int Run(SynthesizeArguments& arguments) {
  arguments.options.output = tarnhost::PathOf(arguments.output);
  tarnhost::Outcome outcome = tarnhost::CheckOutput(arguments.options.output, arguments.overwrite);
  if (!outcome.Ok()) return ReportFailure(outcome);
  arguments.options.progress = ShowProgress(arguments.quiet);
  outcome = tarnhost::SynthesizeScan(arguments.options);
  arguments.options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (!arguments.quiet) {
    std::printf("%s written to %s\n", Counted(arguments.options.pointCount, "point").c_str(),
                arguments.output.c_str());
  }
  return kDone;
}

}  // namespace

void AddSynthesize(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<SynthesizeArguments>();
  CLI::App* command =
      app.add_subcommand("synthesize", "Scan a made-up street by ray casting, as a LAS file");
  command->footer("Example:\n  tarn synthesize -o street.las --points 2M");
  command->add_option("-o,--output", arguments->output, "The file to write: .las or .laz")
      ->required()
      ->check(EndsIn({".las", ".laz"}));
  AddOverwriteOption(*command, arguments->overwrite);
  command
      ->add_option("--points", arguments->options.pointCount,
                   "Number of points, such as 800k or 3M")
      ->transform(IsCount())
      ->capture_default_str();
  command->add_option("--seed", arguments->options.seed, "Another seed, another street")
      ->check(IsWholeNumber())
      ->capture_default_str();
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
