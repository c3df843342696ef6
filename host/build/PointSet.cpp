// Several scans seen as one numbered set of points.
#include "host/build/PointSet.h"

#include <algorithm>

#include "host/build/PointLayout.h"

namespace tarnhost {

Outcome PointSet::Join(std::vector<std::unique_ptr<ScanFile>> scans, PointSet& set) {
  for (std::size_t i = 1; i < scans.size(); ++i) {
    if (HaveOneLayout(*scans[0], *scans[i])) continue;
    return Outcome::Failure(
        oocpc::result::kScansDiffer,
        "its points are laid out in another way than those of " + scans[0]->GetPath().string(),
        scans[i]->GetPath().string());
  }
  set.scans_ = std::move(scans);
  set.firstPoints_ = {0};
  for (const auto& scan : set.scans_) {
    set.firstPoints_.push_back(set.firstPoints_.back() + scan->GetPointCount());
  }
  return Outcome::Success();
}

Outcome PointSet::Prepare(ScanWorkspace& workspace) {
  const std::function<bool(std::uint64_t)> progress = workspace.progress;
  Outcome outcome;
  for (std::size_t i = 0; i < scans_.size() && outcome.Ok(); ++i) {
    workspace.progress = [&](std::uint64_t points) {
      return !progress || progress(firstPoints_[i] + points);
    };
    outcome = scans_[i]->Prepare(workspace);
  }
  workspace.progress = progress;
  if (!outcome.Ok()) Release();
  return outcome;
}

void PointSet::Release() {
  for (const auto& scan : scans_) scan->Release();
}

std::size_t PointSet::ScanOf(std::uint64_t point) const {
  const auto next = std::upper_bound(firstPoints_.begin(), firstPoints_.end(), point);
  return static_cast<std::size_t>(next - firstPoints_.begin()) - 1;
}

/// Calls `read` for each scan's part of the points: its number, the first point in it, how many.
template <typename Read>
void PointSet::ForEachScan(std::uint64_t first, std::uint64_t count, const Read& read) const {
  while (count > 0) {
    const std::size_t scan = ScanOf(first);
    const std::uint64_t here = std::min(count, firstPoints_[scan + 1] - first);
    read(*scans_[scan], first - firstPoints_[scan], here);
    first += here;
    count -= here;
  }
}

void PointSet::ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const {
  ForEachScan(first, count, [&](const ScanFile& scan, std::uint64_t begin, std::uint64_t points) {
    scan.ReadPositions(begin, points, xyz);
    xyz += 3 * points;
  });
}

bool PointSet::GetMappedRecords(RecordView& records) const {
  records = {};
  for (const auto& scan : scans_) {
    const std::span<const std::uint8_t> mapped = scan->GetMappedRecords();
    if (mapped.size() != scan->GetPointCount() * GetRecordBytes()) return false;
    if (!mapped.empty()) records.AddRun(mapped.data(), GetRecordBytes(), scan->GetPointCount());
  }
  return true;
}

bool PointSet::GetStatedBox(StoredBox& box) const {
  box = {};
  for (const auto& scan : scans_) {
    if (scan->GetPointCount() == 0) continue;
    StoredBox stated;
    if (!scan->GetStatedBox(stated)) return false;
    box.Extend(stated);
  }
  return true;
}

void PointSet::ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const {
  ForEachScan(first, count, [&](const ScanFile& scan, std::uint64_t begin, std::uint64_t points) {
    scan.ReadRecords(begin, points, out);
    out += points * scan.GetRecordBytes();
  });
}

}  // namespace tarnhost
