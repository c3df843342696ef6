// tarn append
#include <algorithm>

#include "apps/tarn/Commands.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/build/Append.h"

namespace tarnapp {

namespace {

struct Arguments {
  tarnhost::ImportOptions options;
  std::string repository;
  std::vector<std::string> scans;
  std::string time;
  std::string memory;
  bool quiet = false;
};

int Run(Arguments& arguments) {
  arguments.options.inputs.assign(arguments.scans.begin(), arguments.scans.end());
  arguments.options.output = arguments.repository;
  arguments.options.memoryBytes = MemoryToUse(arguments.memory);
  std::uint64_t time = 0;
  if (ParseTime(arguments.time, time)) arguments.options.timePoint = time;
  arguments.options.progress = ShowProgress(arguments.quiet);
  arguments.options.temporaryNotice = ShowTemporaryDisk(arguments.quiet);
  tarnhost::ImportReport report;
  const tarnhost::Outcome outcome = tarnhost::AppendScans(arguments.options, report);
  arguments.options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.quiet) return kDone;
  if (report.pointCount == 0) {
    std::printf("no points to append: %s is as it was\n", arguments.repository.c_str());
    return kDone;
  }
  std::printf("%s points from %zu scan%s (%s) appended to %s as iteration %llu (%s, %s nodes)\n",
              Grouped(report.pointCount).c_str(), arguments.scans.size(),
              arguments.scans.size() == 1 ? "" : "s", Bytes(report.sourceBytes).c_str(),
              arguments.repository.c_str(), static_cast<unsigned long long>(report.iteration),
              Bytes(report.storedBytes).c_str(), Grouped(report.nodeCount).c_str());
  return kDone;
}

}  // namespace

void AddAppend(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command =
      app.add_subcommand("append", "Add scans to a repository, as its next iteration");
  command->footer(
      "Example:\n"
      "  tarn append street.tarn monday.las tuesday.las\n"
      "The scans need the dimensions, scale and offset of the cloud; they may lie outside its "
      "bounds.\n"
      "Former iterations stay as they are: see tarn iterations, and --iteration and --at of the\n"
      "commands that read.");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  command->add_option("SCANS", arguments->scans, "LAS or LAZ files (1.0 to 1.4)")->required();
  command
      ->add_option("--time", arguments->time,
                   "Time point of the iteration, as for --at; default now")
      ->check(IsTime());
  AddMemoryOption(*command, arguments->memory);
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
