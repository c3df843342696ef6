// tarn import
#include <algorithm>

#include "apps/tarn/Commands.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/build/Import.h"

namespace tarnapp {

namespace {

/// With less, what is kept of the pieces would take more than the pieces.
constexpr std::uint64_t kLeastMemory = 256u << 20;

struct Arguments {
  tarnhost::ImportOptions options;
  std::vector<std::string> scans;
  std::string output;
  std::uint64_t time = 0;
  std::string memory;
  bool quiet = false;
};

int Run(Arguments& arguments, bool hasTime) {
  arguments.options.inputs.assign(arguments.scans.begin(), arguments.scans.end());
  arguments.options.output = arguments.output;
  if (!arguments.memory.empty()) {
    ParseSize(arguments.memory, arguments.options.memoryBytes);
    arguments.options.memoryBytes = std::max(arguments.options.memoryBytes, kLeastMemory);
  }
  if (hasTime) arguments.options.timePoint = arguments.time;
  arguments.options.progress = ShowProgress(arguments.quiet);
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
  command
      ->add_option("--memory", arguments->memory,
                   "About the most memory to use, such as 512M or 4G, at least 256M; default a "
                   "quarter of the\n"
                   "machine's")
      ->check(IsSize());
  CLI::Option* time =
      command
          ->add_option("--time", arguments->time,
                       "Time point of the cloud, microseconds since 1970 UTC; default now")
          ->check(IsWholeNumber());
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, time, &action] {
    action = [arguments, time] { return Run(*arguments, time->count() > 0); };
  });
}

}  // namespace tarnapp
