// tarn append
#include "apps/tarn/BuildArguments.h"
#include "apps/tarn/Commands.h"
#include "apps/tarn/Messages.h"
#include "host/build/Append.h"

namespace tarnapp {

namespace {

int RunAppend(BuildArguments& arguments) {
  FillOptions(arguments);
  tarnhost::ImportReport report;
  const tarnhost::Outcome outcome = tarnhost::AppendScans(arguments.options, report);
  arguments.options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.quiet) return kDone;
  if (report.pointCount == 0) {
    std::printf("no points to append: %s is as it was\n", arguments.repository.c_str());
    return kDone;
  }
  std::printf("%s from %s appended to %s as iteration %llu (%s, %s)\n",
              Counted(report.pointCount, "point").c_str(), ScansText(report).c_str(),
              arguments.repository.c_str(), static_cast<unsigned long long>(report.iteration),
              Bytes(report.storedBytes).c_str(), Counted(report.nodeCount, "node").c_str());
  return kDone;
}

}  // namespace

void AddAppend(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<BuildArguments>();
  CLI::App* command =
      app.add_subcommand("append", "Add scans to a repository, as its next iteration");
  command->footer(
      "Examples:\n"
      "  tarn append street.tarn monday.las tuesday.las\n"
      "  tarn append street.tarn wednesday/\n"
      "The scans may lack dimensions of the cloud, but have no others, and their scales have to "
      "be\n"
      "whole multiples of the cloud's; they may lie outside its bounds.\n"
      "Former iterations stay as they are: see tarn iterations, and --iteration and --at of the\n"
      "commands that read.");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  AddScans(*command, *arguments);
  AddBuildOptions(*command, *arguments);
  command->callback(
      [arguments, &action] { action = [arguments] { return RunAppend(*arguments); }; });
}

}  // namespace tarnapp
