// Writes a whole cloud into a file of a format that is not LAS.
#include "host/select/ExportPoints.h"

#include "host/formats/converted/FieldNames.h"
#include "host/select/Sinks.h"

namespace tarnhost {

bool IsPointFileName(const std::filesystem::path& output) {
  const std::string ending = LowerCase(output.extension().string());
  return ending == ".ply" || ending == ".pcd" || ending == ".csv";
}

Outcome ExportPoints(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                     const std::function<bool(const ProgressReport&)>& progress,
                     std::uint64_t& pointCount) {
  std::unique_ptr<SelectionSink> sink;
  if (Outcome outcome = MakeFileSink(output, sink); !outcome.Ok()) return outcome;
  SelectOptions options;
  options.text = "#true()";
  options.iteration = iteration;
  options.progress = progress;
  SelectReport report;
  Outcome outcome = Select(cloud, options, sink.get(), report);
  pointCount = report.selected;
  return outcome;
}

}  // namespace tarnhost
