// Coordinate systems of scans that come into one cloud.
#include "host/build/CoordinateSystems.h"

#include <string_view>

#include "host/cloud/CloudFacts.h"

namespace tarnhost {

namespace {

constexpr std::string_view kByNumber = "EPSG:";

/// Whether a text other than "EPSG:n" names the number of one that is.
bool NamesNumberOf(std::string_view text, std::string_view byNumber) {
  return byNumber.starts_with(kByNumber) && !text.starts_with(kByNumber) &&
         text.find(byNumber.substr(kByNumber.size())) != std::string_view::npos;
}

bool MayBeSame(std::string_view a, std::string_view b) {
  return a == b || NamesNumberOf(a, b) || NamesNumberOf(b, a);
}

std::string SystemOf(const SourceRecord& source) {
  const std::optional<LasHeader> las = ReadSourceHeader(source);
  return las ? FindCoordinateSystem(*las, source) : std::string();
}

}  // namespace

std::string CoordinateSystemOf(std::span<const SourceRecord> sources) {
  for (const SourceRecord& source : sources) {
    if (std::string system = SystemOf(source); !system.empty()) return system;
  }
  return {};
}

void TellOfOtherSystems(const ImportOptions& options, std::string system,
                        std::span<const std::unique_ptr<ScanFile>> scans) {
  if (!options.notice) return;
  for (const auto& scan : scans) {
    SourceRecord source;
    source.pointCount = scan->GetPointCount();
    source.leadingBytes = scan->GetLeadingBytes();
    source.trailingBytes = scan->GetTrailingBytes();
    const std::string own = SystemOf(source);
    if (system.empty()) system = own;
    if (own.empty() || MayBeSame(own, system)) continue;
    options.notice(scan->GetPath().string() + ": its coordinate system is " +
                   NameCoordinateSystem(own) + ", that of the cloud " +
                   NameCoordinateSystem(system) + "; its coordinates are taken as they are");
  }
}

}  // namespace tarnhost
