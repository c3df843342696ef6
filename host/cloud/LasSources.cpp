// The LAS files that a cloud came from, and what of their records stands in one file made of them.
#include "host/cloud/LasSources.h"

#include <algorithm>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include "host/cloud/CloudFacts.h"
#include "host/formats/LasFrame.h"
#include "host/formats/LasRecordLayout.h"

namespace tarnhost {

namespace {

constexpr std::size_t kRecordHeadBytes = 54;
constexpr std::size_t kExtendedHeadBytes = 60;
constexpr std::uint16_t kWaveformRecord = 65535;

/// Records are there that say nothing: a text of zeros, or a list of no keys.
bool StatesSystem(const LasSource& source, const LasVariableRecord& record) {
  if (IsWktRecord(record)) {
    const auto payload = source.GetPayload(record);
    return !payload.empty() && payload.front() != 0;
  }
  return HasGeoKeys(record);
}

}  // namespace

std::span<const std::uint8_t> LasSource::GetBytes(const LasVariableRecord& variable) const {
  const std::size_t head = variable.extended ? kExtendedHeadBytes : kRecordHeadBytes;
  const auto bytes = static_cast<std::size_t>(head + variable.payloadBytes);
  const std::uint64_t at = variable.payloadOffset - head;
  return variable.extended
             ? record->trailingBytes.subspan(static_cast<std::size_t>(at - GetPointsEnd()), bytes)
             : record->leadingBytes.subspan(static_cast<std::size_t>(at), bytes);
}

std::span<const std::uint8_t> LasSource::GetPayload(const LasVariableRecord& variable) const {
  return GetBytes(variable).last(static_cast<std::size_t>(variable.payloadBytes));
}

std::vector<LasSource> ListLasSources(const Cloud& cloud) {
  std::vector<LasSource> sources;
  for (const SourceRecord& source : cloud.GetSources()) {
    std::optional<LasHeader> header = ReadSourceHeader(source);
    if (header) sources.push_back({std::move(*header), &source});
  }
  return sources;
}

bool IsExtraBytesRecord(const LasVariableRecord& record) {
  return record.userId == kSpecUser && record.recordId == kExtraBytesRecord;
}

bool IsWaveformRecord(const LasVariableRecord& record) {
  return record.userId == kSpecUser && record.recordId == kWaveformRecord;
}

const LasSource* FindSystemSource(std::span<const LasSource> sources) {
  const auto found = std::ranges::find_if(sources, [](const LasSource& source) {
    return std::ranges::any_of(source.header.records, [&](const LasVariableRecord& record) {
      return StatesSystem(source, record);
    });
  });
  return found == sources.end() ? nullptr : &*found;
}

std::vector<ChosenRecord> ChooseRecords(std::span<const LasSource> sources) {
  const LasSource* const stated = FindSystemSource(sources);
  const LasSource* const system = stated != nullptr ? stated : sources.data();
  std::map<std::pair<std::string, std::uint16_t>, std::vector<std::span<const std::uint8_t>>> taken;
  std::vector<ChosenRecord> chosen;
  for (const LasSource& source : sources) {
    for (const LasVariableRecord& record : source.header.records) {
      if (IsExtraBytesRecord(record) || IsCopcRecord(record) || record.IsCompression() ||
          (IsWaveformRecord(record) && &source != &sources.front()) ||
          (IsProjectionRecord(record) && &source != system)) {
        continue;
      }
      const auto payload = source.GetPayload(record);
      auto& alike = taken[{record.userId, record.recordId}];
      if (std::ranges::any_of(alike,
                              [&](const auto& one) { return std::ranges::equal(one, payload); })) {
        continue;
      }
      alike.push_back(payload);
      chosen.push_back({&source, &record});
    }
  }
  return chosen;
}

std::uint16_t ChooseEncoding(std::span<const LasSource> sources) {
  if (sources.empty()) return 0;
  unsigned encoding = sources.front().header.globalEncoding;
  const auto takeFlag = [&](unsigned flag, const LasSource& source) {
    encoding = (encoding & ~flag) | (source.header.globalEncoding & flag);
  };
  if (const LasSource* system = FindSystemSource(sources)) takeFlag(kLasWktEncoding, *system);
  const auto timed = std::ranges::find_if(sources, [](const LasSource& source) {
    return source.record->pointCount > 0 && HasGpsTime(source.header.pointFormat);
  });
  if (timed != sources.end()) takeFlag(kLasAdjustedTime, *timed);
  return static_cast<std::uint16_t>(encoding);
}

}  // namespace tarnhost
