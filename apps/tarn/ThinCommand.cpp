// tarn thin
#include <memory>

#include "apps/tarn/Arguments.h"
#include "apps/tarn/Commands.h"
#include "apps/tarn/IterationChoice.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/common/OutputFile.h"
#include "host/common/System.h"
#include "host/lod/Thin.h"

namespace tarnapp {

namespace {

struct ThinArguments {
  std::string repository;
  std::string output;
  tarnhost::ThinOptions options;
  IterationChoice iteration;
  bool overwrite = false;
  bool quiet = false;
};

/// Says so when the cloud has nothing as fine as what was asked for.
void TellOfFinestLevel(const tarnhost::ThinOptions& asked, const tarnhost::ThinReport& report) {
  const bool isFiner =
      asked.spacing > 0 ? report.spacing > asked.spacing : report.level < asked.level;
  if (!isFiner) return;
  ReportNote("the cloud has no finer level than " + std::to_string(report.level) +
             ": every point of it is written");
}

int Run(ThinArguments& arguments) {
  std::unique_ptr<tarnhost::Cloud> cloud;
  tarnhost::Outcome outcome =
      tarnhost::CheckOutput(tarnhost::PathOf(arguments.output), arguments.overwrite);
  if (outcome.Ok()) outcome = tarnhost::Cloud::Open(tarnhost::PathOf(arguments.repository), cloud);
  if (!outcome.Ok()) return ReportFailure(outcome);
  outcome = ChooseIteration(*cloud, arguments.iteration, arguments.options.iteration);
  if (!outcome.Ok()) return ReportFailure(outcome);
  arguments.options.progress = ShowProgress(arguments.quiet);
  tarnhost::ThinReport report;
  outcome =
      tarnhost::ThinLas(*cloud, arguments.options, tarnhost::PathOf(arguments.output), report);
  arguments.options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (!arguments.quiet) {
    std::printf("%s written to %s (levels 0 to %u, cells %.3g units wide)\n",
                Counted(report.pointCount, "point").c_str(), arguments.output.c_str(), report.level,
                report.spacing);
    TellOfFinestLevel(arguments.options, report);
  }
  return kDone;
}

}  // namespace

void AddThin(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<ThinArguments>();
  CLI::App* command = app.add_subcommand("thin", "Write an even sample of a cloud into a LAS file");
  command->footer(
      "Examples:\n"
      "  tarn thin street.tarn -o overview.las --level 2\n"
      "  tarn thin street.tarn -o half-metre.las --spacing 0.5\n"
      "Level 0 is the coarsest: at most one point in each cell of a grid; each level adds the "
      "points\n"
      "of a grid half as wide. Where the scan itself is sparser, it is not thinned. tarn info "
      "tells\n"
      "the levels of a cloud and the widths of their cells (spacing).");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  command->add_option("-o,--output", arguments->output, "The file to write: .las or .laz")
      ->required()
      ->check(EndsIn({".las", ".laz"}));
  AddOverwriteOption(*command, arguments->overwrite);
  CLI::Option* level =
      command
          ->add_option("--level", arguments->options.level, "Write the levels from 0 to this one")
          ->check(IsWholeNumber());
  CLI::Option* spacing =
      command
          ->add_option("--spacing", arguments->options.spacing,
                       "Write the fewest levels with cells of this width or less")
          ->check(IsAboveZero())
          ->excludes(level);
  AddIterationOptions(*command, arguments->iteration);
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, level, spacing, &action] {
    if (level->count() + spacing->count() == 0) {
      throw CLI::RequiredError("--level or --spacing");
    }
    action = [arguments] { return Run(*arguments); };
  });
}

}  // namespace tarnapp
