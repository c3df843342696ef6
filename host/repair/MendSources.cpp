// Puts together anew what a repository keeps of its sources, where a part of it is lost.
#include "host/repair/MendSources.h"

#include <OOCPointCloud/ResultCodes.h>

#include <algorithm>
#include <cstddef>
#include <iterator>
#include <limits>

#include "OOCPointCloud/support/Bytes.h"
#include "host/cloud/SourceRecord.h"

namespace tarnhost {

namespace {

using StoredBytes = std::span<const std::uint8_t>;

/// A record, or a run of bytes without a sound head.
struct Part {
  SourceRecord record;
  bool isGap = false;  ///< the number of points is not known, nor is anything else
  bool isSound = false;
  std::size_t end = 0;
  std::uint64_t statedEnd = 0;  ///< where it would end, if the stream were not cut short
};

Part GapUntil(std::size_t end) {
  Part gap;
  gap.isGap = true;
  gap.end = end;
  gap.statedEnd = end;
  return gap;
}

bool BeginsSoundHead(StoredBytes bytes) {
  // So that no long run is summed up at every byte. No system has names of this length.
  constexpr std::uint32_t kLongestName = 4096;
  constexpr std::size_t kNameAt = sizeof(SourceRecord::kVersion) + sizeof(kLongestName);
  if (bytes.size() < kNameAt ||
      oocpc::LoadLittleEndian<std::uint16_t>(bytes.data()) != SourceRecord::kVersion ||
      oocpc::LoadLittleEndian<std::uint32_t>(bytes.data() + 2) > kLongestName) {
    return false;
  }
  SourceHead head;
  return !oocpc::Failed(DecodeSourceHead(bytes, head));
}

/// Where the next sound head begins; the end of the bytes when there is none.
std::size_t FindHead(StoredBytes bytes, std::size_t at) {
  while (at < bytes.size() && !BeginsSoundHead(bytes.subspan(at))) ++at;
  return at;
}

Part TakePart(StoredBytes bytes, std::size_t at) {
  StoredBytes rest = bytes.subspan(at);
  Part part;
  part.isSound = !oocpc::Failed(DecodeSourceRecord(rest, part.record));
  part.end = bytes.size() - rest.size();
  part.statedEnd = part.end;
  if (part.isSound) return part;
  SourceHead head;
  if (oocpc::Failed(DecodeSourceHead(bytes.subspan(at), head))) {
    return GapUntil(FindHead(bytes, at + 1));
  }
  part.record = {head.fileName, head.pointCount, {}, {}};
  const std::uint64_t left = bytes.size() - at - head.headBytes;
  const bool isWhole = head.leadingBytes <= left && head.trailingBytes <= left - head.leadingBytes;
  part.end = isWhole ? at + head.headBytes +
                           static_cast<std::size_t>(head.leadingBytes + head.trailingBytes)
                     : bytes.size();
  part.statedEnd = part.end;
  if (!isWhole) {
    // Sums that leave 64 bits end behind everything.
    constexpr std::uint64_t kMost = std::numeric_limits<std::uint64_t>::max();
    const std::uint64_t begin = at + head.headBytes;
    const bool fits = head.leadingBytes <= kMost - begin &&
                      head.trailingBytes <= kMost - begin - head.leadingBytes;
    part.statedEnd = fits ? begin + head.leadingBytes + head.trailingBytes : kMost;
  }
  return part;
}

std::vector<Part> TakeApart(StoredBytes bytes, std::uint64_t statedBytes) {
  std::vector<Part> parts;
  for (std::size_t at = 0; at < bytes.size(); at = parts.back().end) {
    parts.push_back(TakePart(bytes, at));
  }
  const std::uint64_t known = parts.empty() ? 0 : parts.back().statedEnd;
  if (known < statedBytes) parts.push_back(GapUntil(bytes.size()));  // records that were cut off
  return parts;
}

/// Makes all gaps one, and gives it the points that the others do not have.
void JoinGaps(std::vector<Part>& parts, std::optional<std::uint64_t> allPoints) {
  const auto first = std::ranges::find(parts, true, &Part::isGap);
  if (first == parts.end()) return;
  const auto behind = std::ranges::find(parts.rbegin(), parts.rend(), true, &Part::isGap).base();
  first->end = std::prev(behind)->end;
  parts.erase(std::next(first), behind);
  std::uint64_t known = 0;
  for (const Part& part : parts) known += part.record.pointCount;
  if (allPoints && *allPoints >= known) {
    first->record.pointCount = *allPoints - known;
  } else {
    parts.erase(first, parts.end());
  }
}

void AppendRecord(const SourceRecord& record, std::vector<std::uint8_t>& stream) {
  const std::vector<std::uint8_t> head = record.EncodeHead();
  stream.insert(stream.end(), head.begin(), head.end());
  stream.insert(stream.end(), record.leadingBytes.begin(), record.leadingBytes.end());
  stream.insert(stream.end(), record.trailingBytes.begin(), record.trailingBytes.end());
}

/// The parts of the first points, which the last of them may share with later ones. Where points
/// are left that no part has, a part without a name has them.
void CutTo(std::uint64_t pointCount, std::vector<Part>& parts) {
  std::uint64_t points = 0;
  std::size_t count = 0;
  while (count < parts.size() && parts[count].record.pointCount <= pointCount - points) {
    points += parts[count++].record.pointCount;
  }
  const std::size_t end = count == 0 ? 0 : parts[count - 1].end;
  parts.resize(count);
  if (points == pointCount) return;
  parts.push_back(GapUntil(end));
  parts.back().record.pointCount = pointCount - points;
}

bool AreSound(const std::vector<Part>& parts) { return std::ranges::all_of(parts, &Part::isSound); }

}  // namespace

MendedSources MendSources(StoredBytes bytes, std::uint64_t statedBytes, std::uint64_t pointCount,
                          std::optional<std::uint64_t> allPoints) {
  MendedSources mended;
  std::vector<Part> parts = TakeApart(bytes, statedBytes);
  const bool isWhole = AreSound(parts);  // of what there is
  JoinGaps(parts, allPoints);
  CutTo(pointCount, parts);
  if (AreSound(parts)) {
    mended.wholeBytes = parts.empty() ? 0 : parts.back().end;
    return mended;
  }
  // Whole ones of a cloud that was not made of scans need not have its points.
  if (isWhole) {
    mended.wholeBytes = bytes.size();
    return mended;
  }
  for (const Part& part : parts) {
    AppendRecord(part.record, mended.stream);
    if (!part.isSound) mended.lost.push_back({part.record.fileName, part.record.pointCount});
  }
  return mended;
}

}  // namespace tarnhost
