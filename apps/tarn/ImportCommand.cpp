// tarn import
#include <algorithm>

#include "apps/tarn/Commands.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/build/Import.h"

namespace tarnapp {

namespace {

struct Arguments {
  tarnhost::ImportOptions options;
  std::vector<std::string> scans;
  std::string output;
  std::string time;
  std::string memory;
  bool quiet = false;
};

int Run(Arguments& arguments) {
  arguments.options.inputs.assign(arguments.scans.begin(), arguments.scans.end());
  arguments.options.output = arguments.output;
  arguments.options.memoryBytes = MemoryToUse(arguments.memory);
  std::uint64_t time = 0;
  if (ParseTime(arguments.time, time)) arguments.options.timePoint = time;
  arguments.options.progress = ShowProgress(arguments.quiet);
  arguments.options.temporaryNotice = ShowTemporaryDisk(arguments.quiet);
  tarnhost::ImportReport report;
  const tarnhost::Outcome outcome = tarnhost::ImportScans(arguments.options, report);
  arguments.options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (!arguments.quiet) {
    std::printf("%s points from %zu scan%s (%s) in %s (%s, %s nodes)\n",
                Grouped(report.pointCount).c_str(), arguments.scans.size(),
                arguments.scans.size() == 1 ? "" : "s", Bytes(report.sourceBytes).c_str(),
                arguments.output.c_str(), Bytes(report.storedBytes).c_str(),
                Grouped(report.nodeCount).c_str());
  }
  return kDone;
}

}  // namespace

void AddImport(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("import", "Make a repository out of scans");
  command->footer("Example:\n  tarn import street.las -o street.tarn");
  command->add_option("SCANS", arguments->scans, "LAS or LAZ files of one cloud (1.0 to 1.4)")
      ->required();
  command->add_option("-o,--output", arguments->output, "The repository to make")
      ->required()
      ->check(IsNamed());
  command->add_flag("--overwrite", arguments->options.overwrite,
                    "Replace a repository that is there");
  AddMemoryOption(*command, arguments->memory);
  command
      ->add_option("--time", arguments->time,
                   "Time point of the cloud: 2026-11-21, 2026-11-21T08:40:00 (UTC), or "
                   "microseconds\nsince 1970 UTC; default now")
      ->check(IsTime());
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
