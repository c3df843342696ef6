// tarn repair
#include <algorithm>

#include "apps/tarn/Commands.h"
#include "apps/tarn/Faults.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/common/System.h"
#include "host/repair/Repair.h"

namespace tarnapp {

namespace {

struct RepairArguments {
  tarnhost::RepairOptions options;
  bool json = false;
  bool quiet = false;
};

nlohmann::json LostSourcesJson(const std::vector<tarnhost::LostSource>& sources) {
  nlohmann::json list = nlohmann::json::array();
  for (const tarnhost::LostSource& source : sources) {
    list.push_back({{"file", source.fileName}, {"points", source.pointCount}});
  }
  return list;
}

void PrintAsJson(const RepairArguments& arguments, const tarnhost::RepairReport& report) {
  PrintJson({{"sound", report.faultCount == 0},
             {"fault_count", report.faultCount},
             {"faults", FaultsJson(report.faults)},
             {"dry_run", arguments.options.dryRun},
             {"main_replaced", report.changesMain && !arguments.options.dryRun},
             {"main_from_copy", report.fromCopy},
             {"iterations_before", report.iterationsBefore},
             {"iterations_after", report.iterationsAfter},
             {"points_before", report.pointsBefore},
             {"points_after", report.pointsAfter},
             {"levels_made_anew", report.hasOtherLevels},
             {"lost_sources", LostSourcesJson(report.lostSources)},
             {"damaged_iterations", report.damagedIterations},
             {"backup", report.backup.string()}});
}

std::string Iterations(std::uint64_t count) {
  return Grouped(count) + (count == 1 ? " iteration" : " iterations");
}

void PrintLoss(const tarnhost::RepairReport& report) {
  const std::uint64_t kept = std::min(report.iterationsBefore, report.iterationsAfter);
  const std::uint64_t lost = report.iterationsBefore - kept;
  if (report.hasOtherLevels) {
    std::printf("iteration %s has the points of iteration %s, and levels of detail made anew\n",
                Grouped(kept).c_str(), Grouped(kept - 1).c_str());
    std::printf("no point is lost: %s\n", Counted(report.pointsAfter, "point").c_str());
  }
  for (const tarnhost::LostSource& source : report.lostSources) {
    std::printf("lost: header, records and coordinate system of %s; all points are there (%s)\n",
                source.fileName.empty() ? "scans whose names are lost, too"
                                        : Shown(source.fileName).c_str(),
                Grouped(source.pointCount).c_str());
  }
  if (lost == 0 && (report.hasOtherLevels || !report.lostSources.empty())) return;
  if (lost == 0) {
    std::printf(report.damagedIterations.empty() ? "nothing is lost: %s, %s points in the last\n"
                                                 : "the newest of %s is intact, with %s points\n",
                Iterations(report.iterationsAfter).c_str(), Grouped(report.pointsAfter).c_str());
    return;
  }
  std::printf("lost: %s of %s\n", Iterations(lost).c_str(),
              Grouped(report.iterationsBefore).c_str());
  if (report.pointsBefore > report.pointsAfter) {
    std::printf("lost: %s of %s points\n",
                Grouped(report.pointsBefore - report.pointsAfter).c_str(),
                Grouped(report.pointsBefore).c_str());
  }
  std::printf("the last iteration is now %s, with %s points\n",
              Grouped(report.iterationsAfter - 1).c_str(), Grouped(report.pointsAfter).c_str());
}

void PrintAsText(const RepairArguments& arguments, const tarnhost::RepairReport& report) {
  if (arguments.quiet) return;
  PrintFaultLines(report.faults);
  if (report.faultCount == 0) {
    std::printf("sound: there is nothing to repair\n");
    return;
  }
  if (!report.changesMain) {
    std::printf("the newest iteration is intact; nothing was changed\n");
  } else {
    std::printf(arguments.options.dryRun ? "a repair would give this:\n" : "repaired\n");
    if (report.fromCopy) std::printf("the main stream is taken from its copy\n");
    PrintLoss(report);
  }
  for (const std::uint64_t iteration : report.damagedIterations) {
    std::printf("iteration %s is damaged and stays so\n", Grouped(iteration).c_str());
  }
  if (!report.backup.empty()) {
    std::printf("the former main stream is kept as %s\n", report.backup.string().c_str());
  }
}

int Run(RepairArguments& arguments) {
  arguments.options.progress = ShowProgress(arguments.quiet || arguments.json);
  tarnhost::RepairReport report;
  const tarnhost::Outcome outcome = tarnhost::RepairRepository(arguments.options, report);
  if (!outcome.Ok()) {
    if (!arguments.quiet && !arguments.json) PrintFaultLines(report.faults);
    return ReportFailure(outcome);
  }
  if (arguments.json) {
    PrintAsJson(arguments, report);
  } else {
    PrintAsText(arguments, report);
  }
  return kDone;
}

}  // namespace

void AddRepair(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<RepairArguments>();
  CLI::App* command = app.add_subcommand(
      "repair", "Bring a damaged repository back to its newest intact iteration");
  command->footer(
      "Nothing that was committed is changed but the main stream, and the former one is kept "
      "beside "
      "it.\n"
      "Example:\n  tarn repair --dry-run street.tarn\n  tarn repair street.tarn");
  command
      ->add_option_function<std::string>(
          "REPOSITORY",
          [arguments](const std::string& text) {
            arguments->options.repository = tarnhost::PathOf(text);
          },
          "The repository")
      ->required();
  command->add_flag("--dry-run", arguments->options.dryRun,
                    "Say what would be brought back and lost, and change nothing");
  command->add_flag("--json", arguments->json, "Print the facts as JSON");
  command->add_flag("-q,--quiet", arguments->quiet, "Say nothing but errors");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
