// tarn export
#include "apps/tarn/Commands.h"
#include "apps/tarn/IterationChoice.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/cloud/Export.h"

namespace tarnapp {

namespace {

struct Arguments {
  std::string repository;
  std::string output;
  IterationChoice iteration;
  bool quiet = false;
};

int Run(const Arguments& arguments) {
  std::unique_ptr<tarnhost::Cloud> cloud;
  tarnhost::Outcome outcome = tarnhost::Cloud::Open(arguments.repository, cloud);
  if (!outcome.Ok()) return ReportFailure(outcome);
  std::uint64_t iteration = 0;
  outcome = FindIteration(*cloud, arguments.iteration, iteration);
  if (!outcome.Ok()) return ReportFailure(outcome);
  std::uint64_t points = 0;
  outcome = tarnhost::ExportLas(*cloud, iteration, arguments.output, ShowProgress(arguments.quiet),
                                points);
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (!arguments.quiet) {
    std::printf("%s points written to %s\n", Grouped(points).c_str(), arguments.output.c_str());
  }
  return kDone;
}

}  // namespace

void AddExport(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<Arguments>();
  CLI::App* command = app.add_subcommand("export", "Write a cloud back into a LAS file");
  command->footer("Example:\n  tarn export street.tarn -o street.las");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  command->add_option("-o,--output", arguments->output, "The LAS file to write")
      ->required()
      ->check(EndsIn(".las"));
  AddIterationOptions(*command, arguments->iteration);
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
