// How scans that come into one cloud count their GPS times.
#include "host/build/GpsTimes.h"

#include <string>

#include "host/cloud/CloudFacts.h"
#include "host/formats/LasFrame.h"
#include "host/formats/LasRecordLayout.h"

namespace tarnhost {

namespace {

std::string NameOf(GpsTimes times) {
  return times == GpsTimes::kWeekSeconds ? "seconds of the week" : "adjusted standard seconds";
}

}  // namespace

std::optional<GpsTimes> GpsTimesOf(std::span<const SourceRecord> sources) {
  for (const SourceRecord& source : sources) {
    const std::optional<LasHeader> las = ReadSourceHeader(source);
    if (!las || source.pointCount == 0 || !HasGpsTime(las->pointFormat)) continue;
    return (las->globalEncoding & kLasAdjustedTime) != 0 ? GpsTimes::kAdjustedSeconds
                                                         : GpsTimes::kWeekSeconds;
  }
  return std::nullopt;
}

void TellOfOtherTimes(const ImportOptions& options, std::optional<GpsTimes> times,
                      std::span<const std::unique_ptr<ScanFile>> scans) {
  if (!options.notice) return;
  for (const auto& scan : scans) {
    SourceRecord source;
    source.pointCount = scan->GetPointCount();
    source.leadingBytes = scan->GetLeadingBytes();
    source.trailingBytes = scan->GetTrailingBytes();
    const std::optional<GpsTimes> own = GpsTimesOf({&source, 1});
    if (!times) times = own;
    if (!own || own == times) continue;
    options.notice(scan->GetPath().string() + ": its GPS times are " + NameOf(*own) +
                   ", those of the cloud " + NameOf(*times) + "; they are taken as they are");
  }
}

}  // namespace tarnhost
