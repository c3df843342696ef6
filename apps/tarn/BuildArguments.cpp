// What the commands that write a repository have in common.
#include "apps/tarn/BuildArguments.h"

#include "apps/tarn/Arguments.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/common/System.h"

namespace tarnapp {

void AddScans(CLI::App& command, BuildArguments& arguments) {
  command.add_option("SCANS", arguments.scans, "LAS or LAZ files of one cloud (1.0 to 1.4)")
      ->required();
}

void AddBuildOptions(CLI::App& command, BuildArguments& arguments) {
  AddMemoryOption(command, arguments.memory);
  command
      .add_option("--time", arguments.time,
                  "Time point of the iteration: 2026-11-21, 2026-11-21T08:40:00 (UTC), or "
                  "microseconds\nsince 1970 UTC; default now")
      ->check(IsTime());
  command.add_flag("-q,--quiet", arguments.quiet, "Say nothing but errors");
}

void FillOptions(BuildArguments& arguments) {
  tarnhost::ImportOptions& options = arguments.options;
  for (const std::string& scan : arguments.scans) options.inputs.push_back(tarnhost::PathOf(scan));
  options.output = tarnhost::PathOf(arguments.repository);
  options.memoryBytes = MemoryToUse(arguments.memory);
  std::uint64_t time = 0;
  if (ParseTime(arguments.time, time)) options.timePoint = time;
  options.progress = ShowProgress(arguments.quiet);
  options.temporaryNotice = ShowTemporaryDisk(arguments.quiet);
}

std::string ScansText(const BuildArguments& arguments, const tarnhost::ImportReport& report) {
  const std::size_t count = arguments.scans.size();
  return std::to_string(count) + (count == 1 ? " scan (" : " scans (") + Bytes(report.sourceBytes) +
         ")";
}

}  // namespace tarnapp
