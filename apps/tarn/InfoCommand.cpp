// tarn info
#include "OOCPointCloud/repository/FileSystem.h"
#include "apps/tarn/BuildArguments.h"
#include "apps/tarn/Commands.h"
#include "apps/tarn/Console.h"
#include "apps/tarn/InfoText.h"
#include "apps/tarn/IterationChoice.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/cloud/Checksums.h"
#include "host/cloud/CloudFacts.h"
#include "host/cloud/Statistics.h"
#include "host/common/System.h"

namespace tarnapp {

namespace {

struct InfoArguments {
  std::string repository;
  InfoParts parts;
  IterationChoice iteration;
  tarnhost::ScanOptions scanOptions;
  bool checksum = false;
  bool json = false;
};

int PrintSums(const InfoArguments& arguments, const tarnhost::Checksums& sums) {
  if (arguments.json) {
    PrintChecksumsJson(sums);
  } else {
    PrintChecksumsText(sums);
  }
  return kDone;
}

tarnhost::ScanWorkspace MakeWorkspace() {
  std::error_code ignored;
  return {tarnhost::GetMachineMemoryBytes() / 4, std::filesystem::temp_directory_path(ignored), {}};
}

int SumScanFile(const InfoArguments& arguments, tarnhost::ScanFile& scan) {
  tarnhost::ScanWorkspace workspace = MakeWorkspace();
  tarnhost::Checksums sums;
  tarnhost::Outcome outcome;
  {
    const auto progress = ShowProgress(false);
    outcome = tarnhost::SumScan(scan, workspace, progress, sums);
  }
  return outcome.Ok() ? PrintSums(arguments, sums) : ReportFailure(outcome);
}

int SumRepository(const InfoArguments& arguments, tarnhost::Cloud& cloud, std::uint64_t iteration) {
  tarnhost::Checksums sums;
  tarnhost::Outcome outcome;
  {
    const auto progress = ShowProgress(false);
    outcome = tarnhost::SumCloud(cloud, iteration, progress, sums);
  }
  return outcome.Ok() ? PrintSums(arguments, sums) : ReportFailure(outcome);
}

tarnhost::Outcome AddStatistics(tarnhost::ScanFile& scan, tarnhost::CloudFacts& facts) {
  tarnhost::ScanWorkspace workspace = MakeWorkspace();
  const auto progress = ShowProgress(false);
  return tarnhost::AddScanStatistics(scan, workspace, progress, facts);
}

int DescribeScan(const InfoArguments& arguments) {
  if (arguments.iteration.IsGiven()) {
    (void)ReportFailure(tarnhost::Outcome::Failure(
        oocpc::result::kNotARepository, "--iteration and --at are for a repository, this is a file",
        arguments.repository, "import it: tarn import FILE -o REPOSITORY"));
    return kWrongUsage;
  }
  std::unique_ptr<tarnhost::ScanFile> scan;
  tarnhost::ScanOptions options = arguments.scanOptions;
  options.progress = ShowProgress(!IsTerminal());
  tarnhost::Outcome outcome =
      tarnhost::OpenScan(tarnhost::PathOf(arguments.repository), options, scan);
  options.progress = {};
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.checksum) return SumScanFile(arguments, *scan);
  tarnhost::CloudFacts facts;
  tarnhost::CollectScanFacts(*scan, facts);
  if (arguments.parts.statistics) outcome = AddStatistics(*scan, facts);
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.json) {
    PrintScanJson(arguments.repository, facts);
  } else {
    PrintScanText(arguments.repository, facts, arguments.parts);
  }
  return kDone;
}

int Run(const InfoArguments& arguments) {
  const std::filesystem::path path = tarnhost::PathOf(arguments.repository);
  if (oocpc::detail::GetFileKind(path) == oocpc::detail::FileKind::kFile) {
    return DescribeScan(arguments);
  }
  std::unique_ptr<tarnhost::Cloud> cloud;
  tarnhost::Outcome outcome = tarnhost::Cloud::Open(path, cloud);
  if (oocpc::detail::GetFileKind(path) == oocpc::detail::FileKind::kNone) {
    outcome.remedy = "check the path: it may name a repository or a scan file";
  }
  if (!outcome.Ok()) return ReportFailure(outcome);
  std::uint64_t iteration = 0;
  outcome = ChooseIteration(*cloud, arguments.iteration, iteration);
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.checksum) return SumRepository(arguments, *cloud, iteration);
  tarnhost::CloudFacts facts;
  outcome = tarnhost::CollectFacts(*cloud, iteration, arguments.parts.statistics, facts);
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.json) {
    PrintInfoJson(arguments.repository, facts);
  } else {
    PrintInfoText(arguments.repository, facts, arguments.parts);
  }
  return kDone;
}

}  // namespace

void AddInfo(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<InfoArguments>();
  CLI::App* command = app.add_subcommand("info", "Tell what a repository or a scan file holds");
  command->footer(
      "Examples:\n  tarn info street.tarn --stats\n  tarn info street.laz\n  tarn info --checksum "
      "street.laz");
  command
      ->add_option("REPOSITORY", arguments->repository,
                   "The repository, or a scan file, of which its header is told")
      ->required();
  command->add_flag("--schema", arguments->parts.schema, "List the dimensions with their types");
  command->add_flag("--stats", arguments->parts.statistics,
                    "Minimum, maximum and mean of each dimension, and contradictions in the data");
  command->add_flag("--metadata", arguments->parts.metadata,
                    "List the sources' headers and variable-length records");
  AddScanOptions(*command, arguments->scanOptions);
  command->add_flag("--checksum", arguments->checksum,
                    "Read all points and print checksums that do not depend on their order, the\n"
                    "same for a scan and for its repository");
  AddIterationOptions(*command, arguments->iteration);
  command->add_flag("--json", arguments->json, "Print all facts as JSON");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
