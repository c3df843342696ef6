// What a LAS file holds besides its points, and how that is changed for another file.
#include "host/formats/LasFrame.h"

#include <algorithm>
#include <cstring>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace {

constexpr std::size_t kRecordHeadBytes = 54;
constexpr std::size_t kExtendedHeadBytes = 60;
constexpr std::size_t kEncodingAt = 6;
constexpr std::size_t kPointsOffsetAt = 96;
constexpr std::size_t kRecordCountAt = 100;
constexpr std::size_t kPointFormatAt = 104;
constexpr std::size_t kWaveformAt = 227;
constexpr std::size_t kExtendedAt = 235;
constexpr std::size_t kExtendedCountAt = 243;

using Bytes = std::vector<std::uint8_t>;

template <typename T>
void Put(Bytes& bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof(T));
}

void AppendFixedText(Bytes& out, const std::string& text, std::size_t length) {
  const std::size_t at = out.size();
  out.resize(at + length);
  std::copy_n(text.begin(), std::min(length, text.size()),
              out.begin() + static_cast<std::ptrdiff_t>(at));
}

void Erase(Bytes& bytes, std::uint64_t at, std::uint64_t count) {
  const auto begin = bytes.begin() + static_cast<std::ptrdiff_t>(at);
  bytes.erase(begin, begin + static_cast<std::ptrdiff_t>(count));
}

/// Where the last plain record ends.
std::uint64_t PlainRecordsEnd(const LasHeader& header) {
  std::uint64_t end = header.headerBytes;
  for (const LasVariableRecord& record : header.records) {
    if (!record.extended) end = record.payloadOffset + record.payloadBytes;
  }
  return end;
}

/// Takes records out of the bytes around the points, the last ones first.
class Remover {
 public:
  Remover(const LasFrame& frame, LasHeader header)
      : header_(std::move(header)),
        leading_(frame.leadingBytes.begin(), frame.leadingBytes.end()),
        trailing_(frame.trailingBytes.begin(), frame.trailingBytes.end()),
        pointsEnd_(header_.pointsOffset + frame.sourcePointCount * header_.pointBytes) {}

  void Remove(const LasVariableRecord& record) {
    const std::uint64_t head = record.extended ? kExtendedHeadBytes : kRecordHeadBytes;
    const std::uint64_t at = record.payloadOffset - head;
    const std::uint64_t bytes = head + record.payloadBytes;
    if (record.extended) {
      Erase(trailing_, at - pointsEnd_, bytes);
      if (header_.waveformOffset > at) header_.waveformOffset -= bytes;
      --header_.extendedCount;
    } else {
      Erase(leading_, at, bytes);
      if (header_.waveformOffset >= pointsEnd_) header_.waveformOffset -= bytes;
      if (header_.extendedOffset >= pointsEnd_) header_.extendedOffset -= bytes;
      pointsEnd_ -= bytes;
      --header_.recordCount;
    }
  }

  void Give(LasFrame& frame) {
    if (header_.extendedCount == 0) header_.extendedOffset = 0;
    Put(leading_, kPointsOffsetAt, static_cast<std::uint32_t>(leading_.size()));
    Put(leading_, kRecordCountAt, header_.recordCount);
    if (header_.versionMinor >= 3) Put(leading_, kWaveformAt, header_.waveformOffset);
    if (header_.versionMinor >= 4) {
      Put(leading_, kExtendedAt, header_.extendedOffset);
      Put(leading_, kExtendedCountAt, header_.extendedCount);
    }
    const auto owner =
        std::make_shared<const std::pair<Bytes, Bytes>>(std::move(leading_), std::move(trailing_));
    frame = {owner->first, owner->second, frame.sourcePointCount, owner};
  }

 private:
  LasHeader header_;
  Bytes leading_;
  Bytes trailing_;
  std::uint64_t pointsEnd_;
};

/// Puts records behind those that a frame has.
class Adder {
 public:
  Adder(const LasFrame& frame, LasHeader header)
      : header_(std::move(header)),
        old_(frame),
        pointsEnd_(header_.pointsOffset + frame.sourcePointCount * header_.pointBytes) {}

  void Add(const LasRecordBytes& added, std::uint16_t globalEncoding, LasFrame& frame) {
    const std::uint64_t recordsEnd = PlainRecordsEnd(header_);
    const std::uint64_t headEnd = header_.headerBytes;
    // Behind the last extended record, or where there is none, behind all.
    std::uint64_t at = old_.trailingBytes.size();
    for (const LasVariableRecord& record : header_.records) {
      if (record.extended) at = record.payloadOffset + record.payloadBytes - pointsEnd_;
    }
    header_.globalEncoding = globalEncoding;
    Bytes leading = MakeHead(added.extendedCount > 0 || (globalEncoding & kLasWktEncoding) != 0);
    Append(leading, old_.leadingBytes.subspan(headEnd, recordsEnd - headEnd));
    Append(leading, added.plain);
    Append(leading, old_.leadingBytes.subspan(recordsEnd, header_.pointsOffset - recordsEnd));
    Bytes trailing;
    Append(trailing, old_.trailingBytes.first(at));
    Append(trailing, added.extended);
    Append(trailing, old_.trailingBytes.subspan(at));
    MovePlaces(leading.size(), at, added);
    PutPlaces(leading);
    const auto owner =
        std::make_shared<const std::pair<Bytes, Bytes>>(std::move(leading), std::move(trailing));
    frame = {owner->first, owner->second, old_.sourcePointCount, owner};
  }

 private:
  static void Append(Bytes& out, std::span<const std::uint8_t> bytes) {
    out.insert(out.end(), bytes.begin(), bytes.end());
  }

  /// The header's own bytes as they are, or of LAS 1.4 where that is needed and they are older.
  [[nodiscard]] Bytes MakeHead(bool needsNewest) {
    if (!needsNewest || header_.versionMinor >= 4) {
      const auto head = old_.leadingBytes.first(header_.headerBytes);
      return {head.begin(), head.end()};
    }
    header_.versionMinor = 4;
    header_.headerBytes = LasHeaderBytes(4);
    return EncodeLasHeader(header_);
  }

  void MovePlaces(std::uint64_t pointsOffset, std::uint64_t at, const LasRecordBytes& added) {
    const std::uint64_t growth = pointsOffset - header_.pointsOffset;
    if (header_.waveformOffset >= pointsEnd_) {
      const bool isBehind = header_.waveformOffset - pointsEnd_ >= at;
      header_.waveformOffset += growth + (isBehind ? added.extended.size() : 0);
    }
    if (header_.extendedCount > 0) {
      header_.extendedOffset += growth;
    } else if (added.extendedCount > 0) {
      header_.extendedOffset = pointsEnd_ + growth + at;
    }
    header_.pointsOffset = static_cast<std::uint32_t>(pointsOffset);
    header_.recordCount += added.plainCount;
    header_.extendedCount += added.extendedCount;
  }

  void PutPlaces(Bytes& leading) const {
    Put(leading, kEncodingAt, header_.globalEncoding);
    Put(leading, kPointsOffsetAt, header_.pointsOffset);
    Put(leading, kRecordCountAt, header_.recordCount);
    if (header_.versionMinor >= 3) Put(leading, kWaveformAt, header_.waveformOffset);
    if (header_.versionMinor < 4) return;
    Put(leading, kExtendedAt, header_.extendedOffset);
    Put(leading, kExtendedCountAt, header_.extendedCount);
  }

  LasHeader header_;
  LasFrame old_;
  std::uint64_t pointsEnd_;  ///< before
};

}  // namespace

bool IsCopcRecord(const LasVariableRecord& record) { return record.userId == "copc"; }

bool IsProjectionRecord(const LasVariableRecord& record) {
  return record.userId == "LASF_Projection";
}

bool IsWktRecord(const LasVariableRecord& record) {
  return IsProjectionRecord(record) && record.recordId == 2112;
}

bool HasGeoKeys(const LasVariableRecord& record) {
  constexpr std::size_t kHeadBytes = 8;
  return IsProjectionRecord(record) && record.recordId == 34735 && record.payloadBytes > kHeadBytes;
}

Outcome DropRecords(LasFrame& frame,
                    const std::function<bool(const LasVariableRecord&)>& isUnwanted,
                    const std::string& where) {
  LasHeader header;
  Outcome outcome =
      ParseLasFrame(frame.leadingBytes, frame.sourcePointCount, frame.trailingBytes, where, header);
  if (!outcome.Ok() || std::ranges::none_of(header.records, isUnwanted)) return outcome;
  frame.leadingBytes = frame.leadingBytes.first(header.pointsOffset);
  Remover remover(frame, header);
  // Extended records, which stand last, have places that plain ones change.
  for (std::size_t i = header.records.size(); i-- > 0;) {
    if (isUnwanted(header.records[i])) remover.Remove(header.records[i]);
  }
  remover.Give(frame);
  return outcome;
}

Outcome AddRecords(LasFrame& frame, const LasRecordBytes& added, std::uint16_t globalEncoding,
                   const std::string& where) {
  LasHeader header;
  Outcome outcome =
      ParseLasFrame(frame.leadingBytes, frame.sourcePointCount, frame.trailingBytes, where, header);
  if (outcome.Ok()) Adder(frame, std::move(header)).Add(added, globalEncoding, frame);
  return outcome;
}

std::vector<std::uint8_t> CompressLeadingBytes(std::span<const std::uint8_t> leading,
                                               const LasHeader& header,
                                               const laz::LazLayout& layout) {
  const auto split = leading.begin() + static_cast<std::ptrdiff_t>(PlainRecordsEnd(header));
  Bytes bytes(leading.begin(), split);
  AppendLasRecord(bytes, laz::kLazUserId, laz::kLazRecordId, "how the points are compressed",
                  laz::EncodeLazLayout(layout));
  bytes.insert(bytes.end(), split, leading.begin() + header.pointsOffset);
  bytes[kPointFormatAt] |= 0x80u;
  Put(bytes, kPointsOffsetAt, static_cast<std::uint32_t>(bytes.size()));
  Put(bytes, kRecordCountAt, header.recordCount + 1);
  return bytes;
}

void AppendLasRecord(std::vector<std::uint8_t>& out, const std::string& userId,
                     std::uint16_t recordId, const std::string& description,
                     std::span<const std::uint8_t> payload) {
  oocpc::AppendLittleEndian<std::uint16_t>(out, 0);
  AppendFixedText(out, userId, 16);
  oocpc::AppendLittleEndian(out, recordId);
  oocpc::AppendLittleEndian(out, static_cast<std::uint16_t>(payload.size()));
  AppendFixedText(out, description, 32);
  out.insert(out.end(), payload.begin(), payload.end());
}

void AppendExtendedLasRecord(std::vector<std::uint8_t>& out, const std::string& userId,
                             std::uint16_t recordId, const std::string& description,
                             std::span<const std::uint8_t> payload) {
  oocpc::AppendLittleEndian<std::uint16_t>(out, 0);
  AppendFixedText(out, userId, 16);
  oocpc::AppendLittleEndian(out, recordId);
  oocpc::AppendLittleEndian(out, std::uint64_t{payload.size()});
  AppendFixedText(out, description, 32);
  out.insert(out.end(), payload.begin(), payload.end());
}

}  // namespace tarnhost
