// What every selection begins with.
#include "host/select/SelectionStart.h"

namespace tarnhost {

Outcome SelectionSink::Prepare(const OOCPCOctreeAcceleratorNode& /*node*/,
                               std::span<const std::uint32_t> /*points*/,
                               std::unique_ptr<SinkPart>& /*part*/) {
  return Outcome::Success();
}

Outcome StartSelection(const Cloud& cloud, const SelectOptions& options, SelectReport& report) {
  report = {};
  if (options.iteration) {
    report.iteration = *options.iteration;
  } else if (Outcome outcome = cloud.FindNewestIteration(report.iteration); !outcome.Ok()) {
    return outcome;
  }
  OOCPCUpdateIteration record;
  if (Outcome outcome = cloud.ReadIteration(report.iteration, record); !outcome.Ok()) {
    return outcome;
  }
  report.pointCount = record.pointCount;
  return Outcome::Success();
}

}  // namespace tarnhost
