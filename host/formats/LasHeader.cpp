// The public header block of LAS 1.0 to 1.4 and its variable-length records.
#include "host/formats/LasHeader.h"

#include <algorithm>
#include <cmath>
#include <cstring>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::LoadLittleEndian;

namespace {

constexpr std::size_t kRecordHeadBytes = 54;
constexpr std::size_t kExtendedHeadBytes = 60;

// Where the fields stand; see LAS 1.4 R15, table 3.
constexpr std::size_t kPointsOffsetAt = 96;
constexpr std::size_t kLegacyCountAt = 107;
constexpr std::size_t kLegacyReturnsAt = 111;
constexpr std::size_t kScaleAt = 131;
constexpr std::size_t kOffsetAt = 155;
constexpr std::size_t kBoundsAt = 179;
constexpr std::size_t kWaveformAt = 227;
constexpr std::size_t kExtendedAt = 235;
constexpr std::size_t kExtendedCountAt = 243;
constexpr std::size_t kCountAt = 247;
constexpr std::size_t kReturnsAt = 255;

/// More descriptors than a record can have bytes describe nothing.
constexpr std::size_t kMostDescriptorBytes = 65535 * kExtraByteDescriptorBytes;

/// A LAS file, or what is at hand of it.
struct LasBytes {
  std::span<const std::uint8_t> leading;  ///< from the start of the file, up to the points at least
  std::span<const std::uint8_t> rest;     ///< from `restOffset` up to the end of the file
  std::uint64_t restOffset = 0;
  bool compressed = false;  ///< the points are LAZ chunks

  [[nodiscard]] std::uint64_t FileBytes() const { return restOffset + rest.size(); }
};

std::string TextAt(const std::uint8_t* bytes, std::size_t length) {
  const auto* end = std::find(bytes, bytes + length, std::uint8_t{0});
  return {bytes, end};
}

void PutText(std::uint8_t* bytes, std::size_t length, const std::string& text) {
  std::copy_n(text.begin(), std::min(length, text.size()), bytes);
}

template <typename T>
void Put(std::span<std::uint8_t> bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof(T));
}

/// True when `length` bytes at `offset` lie within `total`, without wrapping.
bool Within(std::uint64_t offset, std::uint64_t length, std::uint64_t total) {
  return offset <= total && length <= total - offset;
}

Outcome Contradiction(std::string what, const std::string& where) {
  return Outcome::Failure(result::kScanContradictory, std::move(what), where,
                          "write the scan again with the program that made it");
}

Outcome Truncated(std::string what, const std::string& where) {
  return Outcome::Failure(result::kScanTruncated, std::move(what), where,
                          "copy or download it again");
}

void ReadFixedPart(const std::uint8_t* file, LasHeader& header) {
  header.fileSourceId = LoadLittleEndian<std::uint16_t>(file + 4);
  header.globalEncoding = LoadLittleEndian<std::uint16_t>(file + 6);
  std::copy_n(file + 8, header.guid.size(), header.guid.begin());
  header.systemIdentifier = TextAt(file + 26, 32);
  header.generatingSoftware = TextAt(file + 58, 32);
  header.creationDay = LoadLittleEndian<std::uint16_t>(file + 90);
  header.creationYear = LoadLittleEndian<std::uint16_t>(file + 92);
  header.headerBytes = LoadLittleEndian<std::uint16_t>(file + 94);
  header.pointsOffset = LoadLittleEndian<std::uint32_t>(file + kPointsOffsetAt);
  header.recordCount = LoadLittleEndian<std::uint32_t>(file + 100);
  header.pointFormat = file[104];
  header.pointBytes = LoadLittleEndian<std::uint16_t>(file + 105);
  header.legacyPointCount = LoadLittleEndian<std::uint32_t>(file + kLegacyCountAt);
  for (std::size_t i = 0; i < 5; ++i) {
    header.legacyReturnCounts[i] = LoadLittleEndian<std::uint32_t>(file + kLegacyReturnsAt + 4 * i);
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    header.scale[axis] = LoadLittleEndian<double>(file + kScaleAt + 8 * axis);
    header.offset[axis] = LoadLittleEndian<double>(file + kOffsetAt + 8 * axis);
    header.max[axis] = LoadLittleEndian<double>(file + kBoundsAt + 16 * axis);
    header.min[axis] = LoadLittleEndian<double>(file + kBoundsAt + 16 * axis + 8);
  }
}

void ReadNewerPart(const std::uint8_t* file, LasHeader& header) {
  if (header.versionMinor >= 3) {
    header.waveformOffset = LoadLittleEndian<std::uint64_t>(file + kWaveformAt);
  }
  if (header.versionMinor >= 4) {
    header.extendedOffset = LoadLittleEndian<std::uint64_t>(file + kExtendedAt);
    header.extendedCount = LoadLittleEndian<std::uint32_t>(file + kExtendedCountAt);
    header.pointCount = LoadLittleEndian<std::uint64_t>(file + kCountAt);
    for (std::size_t i = 0; i < 15; ++i) {
      header.returnCounts[i] = LoadLittleEndian<std::uint64_t>(file + kReturnsAt + 8 * i);
    }
  }
  // Some writers of 1.4 fill in the legacy count alone.
  if (header.pointCount == 0) {
    header.pointCount = header.legacyPointCount;
    std::copy(header.legacyReturnCounts.begin(), header.legacyReturnCounts.end(),
              header.returnCounts.begin());
  }
}

Outcome CheckVersion(std::span<const std::uint8_t> file, const std::string& where,
                     LasHeader& header) {
  if (file.size() < 4 || std::memcmp(file.data(), "LASF", 4) != 0) {
    return Outcome::Failure(result::kScanNotRecognised,
                            "this is not a LAS file, nor of another kind that is known", where,
                            "give LAS, LAZ, PLY, PCD or E57, or say what the columns of a text "
                            "are: --columns x,y,z,…");
  }
  if (file.size() < LasHeaderBytes(0)) {
    return Truncated("the file ends within its header", where);
  }
  header.versionMajor = file[24];
  header.versionMinor = file[25];
  if (header.versionMajor != 1 || header.versionMinor > 4) {
    return Outcome::Failure(result::kScanUnsupported,
                            "LAS version " + std::to_string(header.versionMajor) + "." +
                                std::to_string(header.versionMinor) + " is not known",
                            where, "versions 1.0 to 1.4 can be read; convert the file first");
  }
  if (file.size() < LasHeaderBytes(header.versionMinor)) {
    return Truncated("the file ends within its header", where);
  }
  return Outcome::Success();
}

/// The two highest bits of the point format tell compression.
Outcome CheckCompression(bool compressed, const std::string& where, LasHeader& header) {
  const unsigned bits = header.pointFormat >> 6;
  if (compressed) header.pointFormat &= 0x3Fu;
  if (bits == 3 || (bits != 0 && !compressed)) {
    return Outcome::Failure(result::kScanUnsupported,
                            bits == 3 ? "the points are compressed by a scheme that is not known"
                                      : "the points are compressed, those of a LAS file are not",
                            where, "write the file again as LAS, or with a newer LAZ writer");
  }
  return Outcome::Success();
}

Outcome CheckPointFormat(const LasHeader& header, const std::string& where) {
  const std::uint16_t least = LasPointBytes(header.pointFormat);
  if (least == 0) {
    return Outcome::Failure(result::kScanUnsupported,
                            "point format " + std::to_string(header.pointFormat) + " is not known",
                            where, "point formats 0 to 10 can be read; convert the file first");
  }
  if (header.pointBytes < least) {
    return Contradiction("the header states point records of " + std::to_string(header.pointBytes) +
                             " bytes, but point format " + std::to_string(header.pointFormat) +
                             " needs " + std::to_string(least),
                         where);
  }
  return Outcome::Success();
}

Outcome CheckTransform(const LasHeader& header, const std::string& where) {
  constexpr double kGreatestStored = 2147483648.0;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double farthest =
        std::abs(header.scale[axis]) * kGreatestStored + std::abs(header.offset[axis]);
    if (header.scale[axis] == 0 || !std::isfinite(farthest)) {
      return Contradiction(
          "the header's scale is zero, or its scale and offset give no finite coordinates", where);
    }
  }
  return Outcome::Success();
}

Outcome CheckOffsets(const LasHeader& header, std::size_t leadingBytes, const std::string& where) {
  const std::uint16_t least = LasHeaderBytes(header.versionMinor);
  if (header.headerBytes < least) {
    return Contradiction("the header states its own size as " + std::to_string(header.headerBytes) +
                             " bytes, but LAS 1." + std::to_string(header.versionMinor) +
                             " needs " + std::to_string(least),
                         where);
  }
  if (header.pointsOffset < header.headerBytes) {
    return Contradiction("the header states that the points begin within the header", where);
  }
  if (header.pointsOffset > leadingBytes) {
    return Truncated("the file ends before its points begin, " +
                         std::to_string(header.pointsOffset - leadingBytes) + " bytes too early",
                     where);
  }
  return Outcome::Success();
}

Outcome CheckPoints(const LasHeader& header, std::uint64_t fileBytes, const std::string& where) {
  const std::uint64_t available = (fileBytes - header.pointsOffset) / header.pointBytes;
  if (header.pointCount <= available) return Outcome::Success();
  return Truncated("the header states " + std::to_string(header.pointCount) +
                       " points, but the file has " + std::to_string(available) + " (" +
                       std::to_string(header.pointCount - available) + " are missing)",
                   where);
}

void KeepDescriptors(const LasVariableRecord& record, std::span<const std::uint8_t> payload,
                     LasHeader& header) {
  if (record.userId != "LASF_Spec" || record.recordId != 4) return;
  std::vector<std::uint8_t>& kept = header.extraByteDescriptors;
  std::size_t bytes = std::min(payload.size(), kMostDescriptorBytes - kept.size());
  bytes -= bytes % kExtraByteDescriptorBytes;
  kept.insert(kept.end(), payload.begin(), payload.begin() + static_cast<std::ptrdiff_t>(bytes));
}

Outcome ReadRecords(std::span<const std::uint8_t> leading, const std::string& where,
                    LasHeader& header) {
  const auto failed = [&](std::uint32_t index) {
    return Contradiction("variable-length record " + std::to_string(index + 1) + " of " +
                             std::to_string(header.recordCount) + " runs into the points",
                         where);
  };
  std::size_t at = header.headerBytes;
  for (std::uint32_t i = 0; i < header.recordCount; ++i) {
    if (!Within(at, kRecordHeadBytes, header.pointsOffset)) return failed(i);
    const std::uint8_t* head = leading.data() + at;
    LasVariableRecord record;
    record.userId = TextAt(head + 2, 16);
    record.recordId = LoadLittleEndian<std::uint16_t>(head + 18);
    record.payloadBytes = LoadLittleEndian<std::uint16_t>(head + 20);
    record.description = TextAt(head + 22, 32);
    record.payloadOffset = at + kRecordHeadBytes;
    if (!Within(record.payloadOffset, record.payloadBytes, header.pointsOffset)) return failed(i);
    at += kRecordHeadBytes;
    KeepDescriptors(record, leading.subspan(at, record.payloadBytes), header);
    at += record.payloadBytes;
    header.records.push_back(std::move(record));
  }
  return Outcome::Success();
}

Outcome ReadExtendedRecords(const LasBytes& bytes, const std::string& where, LasHeader& header) {
  if (header.extendedCount == 0) return Outcome::Success();
  const std::uint64_t pointsEnd =
      bytes.compressed ? header.pointsOffset
                       : header.pointsOffset + header.pointCount * std::uint64_t{header.pointBytes};
  if (header.extendedOffset < pointsEnd || header.extendedOffset < bytes.restOffset) {
    return Contradiction("the extended variable-length records begin before the points end", where);
  }
  const auto outside = [&](std::uint32_t index) {
    return Truncated("extended variable-length record " + std::to_string(index + 1) + " of " +
                         std::to_string(header.extendedCount) + " lies outside the file",
                     where);
  };
  std::uint64_t at = header.extendedOffset - bytes.restOffset;
  for (std::uint32_t i = 0; i < header.extendedCount; ++i) {
    if (!Within(at, kExtendedHeadBytes, bytes.rest.size())) return outside(i);
    const std::uint8_t* head = bytes.rest.data() + at;
    at += kExtendedHeadBytes;
    LasVariableRecord record{
        TextAt(head + 2, 16),  LoadLittleEndian<std::uint16_t>(head + 18), TextAt(head + 28, 32),
        bytes.restOffset + at, LoadLittleEndian<std::uint64_t>(head + 20), true};
    if (!Within(at, record.payloadBytes, bytes.rest.size())) return outside(i);
    KeepDescriptors(record,
                    bytes.rest.subspan(static_cast<std::size_t>(at),
                                       static_cast<std::size_t>(record.payloadBytes)),
                    header);
    at += record.payloadBytes;
    header.records.push_back(std::move(record));
  }
  return Outcome::Success();
}

/// A record that says how points are compressed, in a file whose point format says they are not.
Outcome CheckNotCompressed(const LasHeader& header, const std::string& where) {
  for (const LasVariableRecord& record : header.records) {
    if (record.IsCompression()) {
      return Contradiction(
          "a variable-length record tells how the points are compressed, but the point format is "
          "one of uncompressed points",
          where);
    }
  }
  return Outcome::Success();
}

Outcome Parse(const LasBytes& bytes, const std::string& where, LasHeader& out) {
  LasHeader header;
  if (Outcome outcome = CheckVersion(bytes.leading, where, header); !outcome.Ok()) return outcome;
  ReadFixedPart(bytes.leading.data(), header);
  ReadNewerPart(bytes.leading.data(), header);
  if (Outcome outcome = CheckCompression(bytes.compressed, where, header); !outcome.Ok()) {
    return outcome;
  }
  if (Outcome outcome = CheckPointFormat(header, where); !outcome.Ok()) return outcome;
  if (Outcome outcome = CheckTransform(header, where); !outcome.Ok()) return outcome;
  if (Outcome outcome = CheckOffsets(header, bytes.leading.size(), where); !outcome.Ok()) {
    return outcome;
  }
  if (Outcome outcome = ReadRecords(bytes.leading, where, header); !outcome.Ok()) return outcome;
  if (!bytes.compressed) {
    if (Outcome outcome = CheckNotCompressed(header, where); !outcome.Ok()) return outcome;
    if (Outcome outcome = CheckPoints(header, bytes.FileBytes(), where); !outcome.Ok()) {
      return outcome;
    }
  }
  if (Outcome outcome = ReadExtendedRecords(bytes, where, header); !outcome.Ok()) return outcome;
  out = std::move(header);
  return Outcome::Success();
}

}  // namespace

std::uint16_t LasHeaderBytes(std::uint8_t minor) {
  if (minor >= 4) return 375;
  return minor == 3 ? 235 : 227;
}

std::uint16_t LasPointBytes(std::uint8_t pointFormat) {
  constexpr std::array<std::uint16_t, 11> kBytes{20, 28, 26, 34, 57, 63, 30, 36, 38, 59, 67};
  return pointFormat < kBytes.size() ? kBytes[pointFormat] : std::uint16_t{0};
}

Outcome ParseLasHeader(std::span<const std::uint8_t> file, const std::string& where,
                       LasHeader& header) {
  return Parse({file, file, 0, false}, where, header);
}

Outcome ParseLazHeader(std::span<const std::uint8_t> file, const std::string& where,
                       LasHeader& header) {
  return Parse({file, file, 0, true}, where, header);
}

Outcome ParseLasFrame(std::span<const std::uint8_t> leading, std::uint64_t pointCount,
                      std::span<const std::uint8_t> trailing, const std::string& where,
                      LasHeader& header) {
  LasHeader checked;
  if (Outcome outcome = CheckVersion(leading, where, checked); !outcome.Ok()) return outcome;
  ReadFixedPart(leading.data(), checked);
  // Far above any file, and low enough that adding offsets cannot wrap.
  constexpr std::uint64_t kMostBytes = std::uint64_t{1} << 62;
  if (pointCount > kMostBytes / 65536 || trailing.size() > kMostBytes) {
    return Contradiction("the number of points is beyond all files", where);
  }
  return Parse({leading, trailing, checked.pointsOffset + pointCount * checked.pointBytes, false},
               where, header);
}

std::vector<std::uint8_t> EncodeLasHeader(const LasHeader& header) {
  std::vector<std::uint8_t> bytes(LasHeaderBytes(header.versionMinor));
  const std::span<std::uint8_t> out(bytes);
  std::memcpy(bytes.data(), "LASF", 4);
  Put(out, 4, header.fileSourceId);
  Put(out, 6, header.globalEncoding);
  std::copy(header.guid.begin(), header.guid.end(), bytes.begin() + 8);
  bytes[24] = header.versionMajor;
  bytes[25] = header.versionMinor;
  PutText(bytes.data() + 26, 32, header.systemIdentifier);
  PutText(bytes.data() + 58, 32, header.generatingSoftware);
  Put(out, 90, header.creationDay);
  Put(out, 92, header.creationYear);
  Put(out, 94, header.headerBytes);
  Put(out, kPointsOffsetAt, header.pointsOffset);
  Put(out, 100, header.recordCount);
  bytes[104] = header.pointFormat;
  Put(out, 105, header.pointBytes);
  for (std::size_t axis = 0; axis < 3; ++axis) {
    Put(out, kScaleAt + 8 * axis, header.scale[axis]);
    Put(out, kOffsetAt + 8 * axis, header.offset[axis]);
  }
  if (header.versionMinor >= 4) Put(out, kExtendedCountAt, header.extendedCount);
  PatchLasHeader(header, out);
  return bytes;
}

void PatchLasHeader(const LasHeader& header, std::span<std::uint8_t> encoded) {
  Put(encoded, kLegacyCountAt, header.legacyPointCount);
  for (std::size_t i = 0; i < 5; ++i) {
    Put(encoded, kLegacyReturnsAt + 4 * i, header.legacyReturnCounts[i]);
  }
  for (std::size_t axis = 0; axis < 3; ++axis) {
    Put(encoded, kBoundsAt + 16 * axis, header.max[axis]);
    Put(encoded, kBoundsAt + 16 * axis + 8, header.min[axis]);
  }
  if (header.versionMinor >= 3) Put(encoded, kWaveformAt, header.waveformOffset);
  if (header.versionMinor < 4) return;
  Put(encoded, kExtendedAt, header.extendedOffset);
  Put(encoded, kCountAt, header.pointCount);
  for (std::size_t i = 0; i < 15; ++i) Put(encoded, kReturnsAt + 8 * i, header.returnCounts[i]);
}

}  // namespace tarnhost
