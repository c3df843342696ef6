// Several scans seen as one numbered set of points.
#include "host/build/PointSet.h"

#include <algorithm>
#include <array>
#include <charconv>

namespace tarnhost {

namespace {

std::string Text(const oocpc::Vector3d& vector) {
  std::string text;
  for (const double value : vector) {
    std::array<char, 32> digits;
    const auto end = std::to_chars(digits.data(), digits.data() + digits.size(), value).ptr;
    text += (text.empty() ? "" : ", ") + std::string(digits.data(), end);
  }
  return text;
}

Outcome Differ(const std::string& what, const ScanFile& scan) {
  return Outcome::Failure(oocpc::result::kScansDiffer, what, scan.GetPath().string(),
                          "import it into a repository of its own, or convert the scans to one "
                          "point format, scale and offset");
}

Outcome CheckJoin(const ScanFile& first, const ScanFile& other) {
  const PositionTransform& a = first.GetTransform();
  const PositionTransform& b = other.GetTransform();
  if (a.scale != b.scale) {
    return Differ("its scale (" + Text(b.scale) + ") is not that of " + first.GetPath().string() +
                      " (" + Text(a.scale) + ")",
                  other);
  }
  if (a.offset != b.offset) {
    return Differ("its offset (" + Text(b.offset) + ") is not that of " + first.GetPath().string() +
                      " (" + Text(a.offset) + ")",
                  other);
  }
  const bool same = first.GetRecordBytes() == other.GetRecordBytes() &&
                    std::ranges::equal(first.GetDimensions(), other.GetDimensions(),
                                       [](const Dimension& x, const Dimension& y) {
                                         return x.name == y.name && x.type == y.type;
                                       });
  if (!same) {
    return Differ("its points have other dimensions than those of " + first.GetPath().string(),
                  other);
  }
  return Outcome::Success();
}

}  // namespace

Outcome PointSet::Join(std::vector<std::unique_ptr<ScanFile>> scans, PointSet& set) {
  for (std::size_t i = 1; i < scans.size(); ++i) {
    if (Outcome outcome = CheckJoin(*scans[0], *scans[i]); !outcome.Ok()) return outcome;
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
