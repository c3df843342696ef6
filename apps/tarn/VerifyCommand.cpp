// tarn verify
#include "apps/tarn/Commands.h"
#include "apps/tarn/Faults.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/cloud/Verify.h"
#include "host/common/System.h"

namespace tarnapp {

namespace {

struct VerifyArguments {
  std::string repository;
  bool json = false;
  bool quiet = false;
};

void PrintAsJson(const tarnhost::VerifyReport& report) {
  PrintJson({{"sound", report.faultCount == 0},
             {"fault_count", report.faultCount},
             {"faults", FaultsJson(report.faults)},
             {"nodes", report.nodes},
             {"blocks", report.blocks},
             {"iterations", report.iterations},
             {"points", report.points},
             {"bytes", report.bytes}});
}

void PrintAsText(const VerifyArguments& arguments, const tarnhost::VerifyReport& report) {
  PrintFaultLines(report.faults);
  if (report.faultCount > 0) {
    const bool newestIsIntact = !report.intactIterations.empty() && report.intactIterations.back();
    std::fprintf(stderr, "tarn: %s found (%s)\n  %s\n", Counted(report.faultCount, "fault").c_str(),
                 arguments.repository.c_str(),
                 newestIsIntact
                     ? "the newest iteration is intact; tarn repair renews the main stream "
                       "and its copy, the rest only a backup has"
                     : "tarn repair brings back the newest intact iteration");
  } else if (!arguments.quiet) {
    const std::string iterations =
        report.iterations > 1 ? " of " + Grouped(report.iterations) + " iterations" : "";
    std::printf("sound: %s%s, %s%s, %s, %s\n", Counted(report.points, "point").c_str(),
                iterations.empty() ? "" : " in the newest", Counted(report.nodes, "node").c_str(),
                iterations.c_str(), Counted(report.blocks, "block").c_str(),
                Bytes(report.bytes).c_str());
  }
}

int Run(const VerifyArguments& arguments) {
  tarnhost::VerifyReport report;
  const tarnhost::Outcome outcome =
      tarnhost::VerifyRepository(tarnhost::PathOf(arguments.repository),
                                 ShowProgress(arguments.quiet || arguments.json), report);
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.json) {
    PrintAsJson(report);
  } else {
    PrintAsText(arguments, report);
  }
  return report.faultCount == 0 ? kDone : kFailed;
}

}  // namespace

void AddVerify(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<VerifyArguments>();
  CLI::App* command = app.add_subcommand(
      "verify", "Read a repository whole and check every checksum and every invariant");
  command->footer("Example:\n  tarn verify street.tarn");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  command->add_flag("--json", arguments->json, "Print the facts as JSON");
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
