// Which iteration of a cloud a command reads: --iteration or --at.
#include "apps/tarn/IterationChoice.h"

#include "apps/tarn/Arguments.h"

namespace tarnapp {

void AddIterationOptions(CLI::App& command, IterationChoice& choice) {
  CLI::Option* iteration =
      command.add_option("--iteration", choice.iteration, "Iteration; default the newest")
          ->check(IsWholeNumber());
  command
      .add_option("--at", choice.at,
                  "The iteration that was the newest at this time: 2026-11-21, "
                  "2026-11-21T08:40:00 (UTC),\n"
                  "or microseconds since 1970 UTC")
      ->check(IsTime())
      ->excludes(iteration);
}

tarnhost::Outcome FindIteration(const tarnhost::Cloud& cloud, const IterationChoice& choice,
                                std::uint64_t& iteration) {
  if (choice.iteration) {
    iteration = *choice.iteration;
    OOCPCUpdateIteration record;
    return cloud.ReadIteration(iteration, record);
  }
  std::uint64_t time = 0;
  if (choice.at.empty() || !ParseTime(choice.at, time)) return cloud.FindNewestIteration(iteration);
  return cloud.FindIterationAt(time, iteration);
}

}  // namespace tarnapp
