// tarn iterations
#include "apps/tarn/Commands.h"
#include "apps/tarn/Messages.h"
#include "host/cloud/CloudFacts.h"
#include "host/common/System.h"

namespace tarnapp {

namespace {

struct IterationsArguments {
  std::string repository;
  bool json = false;
};

void PrintAsJson(const std::vector<tarnhost::IterationFacts>& iterations) {
  nlohmann::json list = nlohmann::json::array();
  for (const tarnhost::IterationFacts& iteration : iterations) {
    if (!iteration.damage.Ok()) {
      list.push_back({{"iteration", iteration.index}, {"damaged", true}});
      continue;
    }
    list.push_back({{"iteration", iteration.index},
                    {"damaged", false},
                    {"time_point", iteration.timePoint},
                    {"points", iteration.pointCount},
                    {"added_points", iteration.addedPointCount},
                    {"added_bytes", iteration.addedBytes}});
  }
  PrintJson(list);
}

int Run(const IterationsArguments& arguments) {
  std::unique_ptr<tarnhost::Cloud> cloud;
  tarnhost::Outcome outcome = tarnhost::Cloud::Open(tarnhost::PathOf(arguments.repository), cloud);
  if (!outcome.Ok()) return ReportFailure(outcome);
  std::vector<tarnhost::IterationFacts> iterations;
  outcome = tarnhost::CollectIterations(*cloud, iterations);
  if (!outcome.Ok()) return ReportFailure(outcome);
  if (arguments.json) {
    PrintAsJson(iterations);
    return kDone;
  }
  for (const tarnhost::IterationFacts& iteration : iterations) {
    if (!iteration.damage.Ok()) {
      std::printf("%llu  damaged: its record cannot be read; tarn verify tells more\n",
                  static_cast<unsigned long long>(iteration.index));
      continue;
    }
    std::printf("%llu  %s  %s points (%s added, %s)\n",
                static_cast<unsigned long long>(iteration.index),
                TimeText(iteration.timePoint).c_str(), Grouped(iteration.pointCount).c_str(),
                Grouped(iteration.addedPointCount).c_str(), Bytes(iteration.addedBytes).c_str());
  }
  return kDone;
}

}  // namespace

void AddIterations(CLI::App& app, Action& action) {
  auto arguments = std::make_shared<IterationsArguments>();
  CLI::App* command = app.add_subcommand("iterations", "List the update iterations of a cloud");
  command->footer("Example:\n  tarn iterations street.tarn");
  command->add_option("REPOSITORY", arguments->repository, "The repository")->required();
  command->add_flag("--json", arguments->json, "Print the facts as JSON");
  command->callback([arguments, &action] { action = [arguments] { return Run(*arguments); }; });
}

}  // namespace tarnapp
