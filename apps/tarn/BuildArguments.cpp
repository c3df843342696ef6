// What the commands that write a repository have in common.
#include "apps/tarn/BuildArguments.h"

#include "apps/tarn/Arguments.h"
#include "apps/tarn/Messages.h"
#include "apps/tarn/Progress.h"
#include "host/common/System.h"

namespace tarnapp {

void AddScans(CLI::App& command, BuildArguments& arguments) {
  command
      .add_option(
          "SCANS", arguments.scans,
          "Scans of one cloud: LAS, LAZ or COPC files (1.0 to 1.4), PLY, PCD, E57 or text, and\n"
          "folders, of which every scan right in the folder is taken, in the order of the names")
      ->required();
  AddScanOptions(command, arguments.options.scanOptions);
}

void AddScanOptions(CLI::App& command, tarnhost::ScanOptions& options) {
  command
      .add_option("--columns", options.columns,
                  "Names of a text's columns: x,y,z,intensity,… with - for one to leave out; by\n"
                  "default, as its first line says")
      ->delimiter(',');
  command
      .add_option_function<std::string>(
          "--separator",
          [&options](const std::string& text) { options.separator = SeparatorOf(text); },
          "Between the words of a text: one character, or tab, or space for any blanks; by "
          "default\n"
          "a semicolon, tab, comma or | that all lines have, else blanks")
      ->check(IsSeparator());
  command.add_option("--skip", options.skipLines, "Lines to skip at the start of a text")
      ->transform(IsCount());
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
  options.memoryBytes = MemoryToUse(arguments.memory, arguments.quiet);
  if (options.memoryBytes != 0) tarnhost::KeepLittleFreedMemory();
  std::uint64_t time = 0;
  if (ParseTime(arguments.time, time)) options.timePoint = time;
  options.progress = ShowProgress(arguments.quiet);
  if (!arguments.quiet) {
    options.notice = [](const std::string& text) { ReportNote(text); };
  }
  options.temporaryNotice = ShowTemporaryDisk(arguments.quiet);
}

std::string ScansText(const tarnhost::ImportReport& report) {
  return Counted(report.scanCount, "scan") + " (" + Bytes(report.sourceBytes) + ")";
}

}  // namespace tarnapp
