// tarn import
#include "apps/tarn/BuildArguments.h"
#include "apps/tarn/Commands.h"
#include "apps/tarn/Messages.h"

namespace tarnapp {

namespace {

int RunImport(BuildArguments& arguments) {
  FillOptions(arguments);
  tarnhost::ImportReport report;
  const tarnhost::Outcome outcome = tarnhost::ImportScans(arguments.options, report);
  arguments.options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (!arguments.quiet) {
    std::printf("%s from %s in %s (%s, %s)\n", Counted(report.pointCount, "point").c_str(),
                ScansText(report).c_str(), arguments.repository.c_str(),
                Bytes(report.storedBytes).c_str(), Counted(report.nodeCount, "node").c_str());
  }
  return kDone;
}

}  // namespace

void AddImport(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<BuildArguments>();
  CLI::App* command = app.add_subcommand("import", "Make a repository out of scans");
  command->footer(
      "Examples:\n"
      "  tarn import street.las -o street.tarn\n"
      "  tarn import tiles/ extra.laz -o town.tarn\n"
      "  tarn import points.txt -o points.tarn --skip 1 --columns x,y,z,-,intensity");
  AddScans(*command, *arguments);
  command->add_option("-o,--output", arguments->repository, "The repository to make")
      ->required()
      ->check(IsNamed());
  command->add_flag("--overwrite", arguments->options.overwrite,
                    "Replace a repository that is there");
  command->add_flag("--keep-order", arguments->options.keepOrder,
                    "Keep each point's place in its source (source_index), so that tarn export\n"
                    "restores the order");
  command->add_flag(
      "--source", arguments->options.nameSources,
      "Keep the name of each point's file (source) of a single scan, too, for what is\n"
      "appended later; of several scans it always is kept");
  AddBuildOptions(*command, *arguments);
  command->callback(
      [arguments, &action] { action = [arguments] { return RunImport(*arguments); }; });
}

}  // namespace tarnapp
