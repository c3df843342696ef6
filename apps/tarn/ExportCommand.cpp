// tarn export
#include "apps/tarn/Arguments.h"
#include "apps/tarn/Commands.h"
#include "apps/tarn/IterationChoice.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/cloud/Export.h"
#include "host/common/OutputFile.h"
#include "host/common/System.h"
#include "host/formats/laz/CopcWriter.h"
#include "host/lod/ExportCopc.h"
#include "host/select/ExportPoints.h"

namespace tarnapp {

namespace {

struct ExportArguments {
  std::string repository;
  std::string output;
  std::string memory;
  IterationChoice iteration;
  bool overwrite = false;
  bool skipDamaged = false;
  bool quiet = false;
};

int Run(const ExportArguments& arguments) {
  std::unique_ptr<tarnhost::Cloud> cloud;
  tarnhost::Outcome outcome =
      tarnhost::CheckOutput(tarnhost::PathOf(arguments.output), arguments.overwrite);
  if (outcome.Ok()) outcome = tarnhost::Cloud::Open(tarnhost::PathOf(arguments.repository), cloud);
  if (!outcome.Ok()) return ReportFailure(outcome);
  std::uint64_t iteration = 0;
  outcome = ChooseIteration(*cloud, arguments.iteration, iteration);
  if (!outcome.Ok()) return ReportFailure(outcome);
  tarnhost::ExportReport report;
  const auto progress = ShowProgress(arguments.quiet);
  tarnhost::CopcReport copc;
  const std::filesystem::path output = tarnhost::PathOf(arguments.output);
  if (tarnhost::IsCopcName(output)) {
    outcome = tarnhost::ExportCopc(*cloud, iteration, output, progress, copc);
    report.pointCount = copc.pointCount;
  } else {
    const tarnhost::ExportOptions options{iteration, MemoryToUse(arguments.memory, arguments.quiet),
                                          progress, arguments.skipDamaged};
    outcome = tarnhost::IsPointFileName(output)
                  ? tarnhost::ExportPoints(*cloud, options, output, report.pointCount)
                  : tarnhost::ExportLas(*cloud, options, output, report);
  }
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (report.damagedPoints > 0) {
    std::fprintf(stderr, "tarn: %s damaged, and left out\n",
                 Counted(report.damagedPoints, "point").c_str());
  }
  if (!arguments.quiet) {
    std::printf("%s written to %s\n", Counted(report.pointCount, "point").c_str(),
                arguments.output.c_str());
    if (copc.format != copc.sourceFormat) {
      std::printf("point format %d was written as %d, as COPC files have no lower ones\n",
                  copc.sourceFormat, copc.format);
    }
    if (copc.lacksWkt) {
      std::printf(
          "its coordinate system is given as GeoTIFF keys, as the source has it; readers that want "
          "well-known text find none\n");
    }
  }
  return kDone;
}

}  // namespace

void AddExport(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<ExportArguments>();
  CLI::App* command =
      app.add_subcommand("export", "Write a cloud into a LAS, LAZ, COPC, PLY, PCD or CSV file");
  command->footer(
      "Examples:\n  tarn export street.tarn -o street.laz\n  tarn export street.tarn -o "
      "street.copc.laz\nThe points come in the order of their sources where the cloud was imported "
      "with\n"
      "--keep-order; else, and in COPC files, in the order of the octree.");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  command
      ->add_option("-o,--output", arguments->output,
                   "The file to write: .las, .laz, .copc.laz, .ply, .pcd or .csv")
      ->required()
      ->check(EndsIn({".las", ".laz", ".ply", ".pcd", ".csv"}));
  AddOverwriteOption(*command, arguments->overwrite);
  AddIterationOptions(*command, arguments->iteration);
  AddMemoryOption(*command, arguments->memory);
  command->add_flag("--skip-damaged", arguments->skipDamaged,
                    "Leave out points that damage made unreadable, and say how many (.las, .laz)");
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &action] {
    const std::filesystem::path output = tarnhost::PathOf(arguments->output);
    if (arguments->skipDamaged &&
        (tarnhost::IsCopcName(output) || tarnhost::IsPointFileName(output))) {
      throw CLI::ValidationError("--skip-damaged", "is for .las and .laz files");
    }
    action = [arguments] { return Run(*arguments); };
  });
}

}  // namespace tarnapp
