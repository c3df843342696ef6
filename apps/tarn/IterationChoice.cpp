// Which iteration of a cloud a command reads: --iteration or --at.
#include "apps/tarn/IterationChoice.h"

#include "apps/tarn/Arguments.h"

namespace tarnapp {

namespace {

/// A day and a second last until their ends: whoever names the second that an iteration is listed
/// with means that iteration. Microseconds; 0 for a time that is a number of these.
std::uint64_t RestOf(const std::string& time) {
  constexpr std::uint64_t kSecond = 1'000'000;
  constexpr std::uint64_t kDay = 86'400 * kSecond;
  constexpr std::size_t kDateLength = 10;
  if (time.find('-') == std::string::npos) return 0;
  return (time.size() == kDateLength ? kDay : kSecond) - 1;
}

tarnhost::Outcome FindIteration(const tarnhost::Cloud& cloud, const IterationChoice& choice,
                                std::uint64_t& iteration) {
  std::uint64_t time = 0;
  if (choice.iteration) {
    iteration = *choice.iteration;
  } else if (choice.at.empty() || !ParseTime(choice.at, time)) {
    return cloud.FindNewestIteration(iteration);
  } else {
    return cloud.FindIterationAt(time + RestOf(choice.at), iteration);
  }
  OOCPCUpdateIteration record;
  return cloud.ReadIteration(iteration, record);
}

}  // namespace

void AddIterationOptions(CLI::App& command, IterationChoice& choice) {
  CLI::Option* iteration =
      command.add_option("--iteration", choice.iteration, "Iteration; default the newest")
          ->check(IsWholeNumber());
  command
      .add_option("--at", choice.at,
                  "The iteration that was the newest at the end of this day or second, such as "
                  "2026-11-21 or\n2026-11-21T08:40:00 (UTC), or at a number of microseconds since "
                  "1970 UTC")
      ->check(IsTime())
      ->excludes(iteration);
}

tarnhost::Outcome ChooseIteration(tarnhost::Cloud& cloud, const IterationChoice& choice,
                                  std::uint64_t& iteration) {
  tarnhost::Outcome outcome = FindIteration(cloud, choice, iteration);
  return outcome.Ok() ? cloud.KeepSourcesOf(iteration) : outcome;
}

}  // namespace tarnapp
