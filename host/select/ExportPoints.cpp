// Writes a whole cloud into a file of a format that is not LAS.
#include "host/select/ExportPoints.h"

#include "host/select/Sinks.h"

namespace tarnhost {

bool IsPointFileName(const std::filesystem::path& output) {
  return MakeTableSink(output) != nullptr;
}

Outcome ExportPoints(Cloud& cloud, const ExportOptions& options,
                     const std::filesystem::path& output, std::uint64_t& pointCount) {
  const std::unique_ptr<TableSink> sink = MakeTableSink(output);
  if (sink == nullptr) return Outcome::FromCode(oocpc::result::kScanUnsupported, output.string());
  sink->KeepSourceOrder(options.memoryBytes, options.progress);
  SelectOptions all;
  all.text = "#true()";
  all.iteration = options.iteration;
  all.progress = options.progress;
  SelectReport report;
  Outcome outcome = Select(cloud, all, sink.get(), report);
  pointCount = report.selected;
  return outcome;
}

}  // namespace tarnhost
