// Writes COPC files: LAZ whose chunks are the nodes of an octree, which a record tells.
#include "host/formats/laz/CopcWriter.h"

#include <algorithm>
#include <cstring>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::AppendLittleEndian;
using oocpc::LoadLittleEndian;

namespace {

constexpr std::size_t kInformationBytes = 160;
constexpr std::size_t kInformationAt = 375 + 54;  ///< it is the first record
constexpr std::size_t kExtendedHeadBytes = 60;
constexpr std::size_t kRecordHeadBytes = 54;
constexpr std::uint16_t kInformationId = 1;
constexpr std::uint16_t kHierarchyId = 1000;
constexpr std::size_t kTimeAt = 22;

/// Bytes of a format up to where its colours, or else its extra bytes, begin.
std::size_t LegacyTimeEnd(std::uint8_t format) { return format == 1 || format == 3 ? 28 : 20; }

/// One record of the formats 0 to 3 as 6 or 7.
void ConvertRecord(const std::uint8_t* from, std::uint8_t format, std::size_t fromBytes,
                   std::uint8_t* to) {
  std::memcpy(to, from, 14);
  const unsigned returnBits = from[14];
  to[14] = static_cast<std::uint8_t>((returnBits & 7u) | (returnBits >> 3 & 7u) << 4);
  to[15] = static_cast<std::uint8_t>(from[15] >> 5 | (returnBits & 0xC0u));
  to[16] = from[15] & 31u;
  to[17] = from[17];
  RefineAngles({from + 16, 1}, to + 18);
  std::memcpy(to + 20, from + 18, 2);
  const std::size_t timeEnd = LegacyTimeEnd(format);
  if (timeEnd == 28) {
    std::memcpy(to + kTimeAt, from + 20, 8);
  } else {
    std::memset(to + kTimeAt, 0, 8);
  }
  // Colours and extra bytes follow in both.
  std::memcpy(to + 30, from + timeEnd, fromBytes - timeEnd);
}

LasHeader HeaderFor(const LasHeader& source) {
  LasHeader header = source;
  header.versionMinor = 4;
  header.headerBytes = LasHeaderBytes(4);
  header.pointFormat = CopcFormatFor(source.pointFormat).value_or(source.pointFormat);
  header.pointBytes = static_cast<std::uint16_t>(
      source.pointBytes - LasPointBytes(source.pointFormat) + LasPointBytes(header.pointFormat));
  header.legacyPointCount = 0;
  header.legacyReturnCounts = {};
  header.waveformOffset = 0;
  header.pointCount = 0;
  header.returnCounts = {};
  header.recordCount = 0;
  header.extendedCount = 0;
  header.records.clear();
  return header;
}

Outcome TooLarge(const OutputFile& file) {
  return Outcome::Failure(result::kScanUnsupported,
                          "a node takes more bytes than a COPC file can state",
                          file.GetTarget().string(), "write a LAZ file instead");
}

}  // namespace

bool IsCopcName(const std::filesystem::path& path) {
  constexpr std::string_view kEnding = ".copc.laz";
  const std::string name = path.filename().string();
  if (name.size() < kEnding.size()) return false;
  return std::ranges::equal(name.substr(name.size() - kEnding.size()), kEnding, [](char a, char b) {
    return a == b || (a >= 'A' && a <= 'Z' && a + 32 == b);
  });
}

std::optional<std::uint8_t> CopcFormatFor(std::uint8_t format) {
  constexpr std::array<std::uint8_t, 4> kNewer{6, 6, 7, 7};
  if (format < kNewer.size()) return kNewer[format];
  if (format >= 6 && format <= 8) return format;
  return std::nullopt;
}

Outcome CopcWriter::Create(const std::filesystem::path& path, const LasFrame& frame,
                           const CopcCube& cube, std::unique_ptr<CopcWriter>& writer) {
  LasHeader source;
  Outcome outcome = ParseLasFrame(frame.leadingBytes, frame.sourcePointCount, frame.trailingBytes,
                                  path.string(), source);
  if (!outcome.Ok()) return outcome;
  const std::optional<std::uint8_t> format = CopcFormatFor(source.pointFormat);
  if (!format ||
      source.pointBytes - LasPointBytes(source.pointFormat) + LasPointBytes(*format) > 0xFFFF) {
    return Outcome::Failure(
        result::kScanUnsupported,
        "points of format " + std::to_string(source.pointFormat) +
            (format ? " with so many extra bytes" : " have wave packets, which") +
            (format ? " do not fit into a COPC file" : " COPC files cannot hold"),
        path.string(), "write a LAZ file instead");
  }
  std::unique_ptr<OutputFile> file;
  if (outcome = OutputFile::Create(path, file); !outcome.Ok()) return outcome;
  std::unique_ptr<CopcWriter> begun(new CopcWriter(cube, source, std::move(file)));
  begun->layout_.JoinColor(frame.colorOffset);
  outcome = begun->Begin(frame, source);
  if (outcome.Ok()) writer = std::move(begun);
  return outcome;
}

CopcWriter::CopcWriter(const CopcCube& cube, const LasHeader& source,
                       std::unique_ptr<OutputFile> file)
    : cube_(cube),
      header_(HeaderFor(source)),
      layout_(LasRecordLayout::Of(source)),
      sourceFormat_(source.pointFormat),
      lacksWkt_(std::ranges::any_of(source.records, HasGeoKeys) &&
                std::ranges::none_of(source.records, IsWktRecord)),
      file_(std::move(file)) {
  least_.fill(std::numeric_limits<std::int32_t>::max());
  greatest_.fill(std::numeric_limits<std::int32_t>::min());
}

Outcome CopcWriter::Begin(const LasFrame& frame, const LasHeader& source) {
  const std::uint64_t pointsEnd =
      source.pointsOffset + frame.sourcePointCount * std::uint64_t{source.pointBytes};
  std::vector<std::uint8_t> records;
  AppendLasRecord(records, "copc", kInformationId, "COPC info",
                  std::vector<std::uint8_t>(kInformationBytes));
  header_.recordCount = 1;
  for (const LasVariableRecord& record : source.records) {
    if (IsCopcRecord(record)) continue;
    if (record.extended) {
      const auto bytes = frame.trailingBytes.subspan(
          static_cast<std::size_t>(record.payloadOffset - kExtendedHeadBytes - pointsEnd),
          static_cast<std::size_t>(kExtendedHeadBytes + record.payloadBytes));
      extendedRecords_.insert(extendedRecords_.end(), bytes.begin(), bytes.end());
      ++header_.extendedCount;
    } else {
      const auto bytes = frame.leadingBytes.subspan(
          static_cast<std::size_t>(record.payloadOffset - kRecordHeadBytes),
          static_cast<std::size_t>(kRecordHeadBytes + record.payloadBytes));
      records.insert(records.end(), bytes.begin(), bytes.end());
      ++header_.recordCount;
    }
  }
  const laz::LazLayout layout =
      laz::LazLayoutFor(header_.pointFormat, header_.pointBytes, laz::kVariableChunks);
  AppendLasRecord(records, laz::kLazUserId, laz::kLazRecordId, "how the points are compressed",
                  laz::EncodeLazLayout(layout));
  ++header_.recordCount;
  ++header_.extendedCount;  // the hierarchy
  header_.pointsOffset = static_cast<std::uint32_t>(header_.headerBytes + records.size());
  head_ = EncodeLasHeader(header_);
  head_[104] |= 0x80u;
  if (Outcome outcome = file_->Write(head_); !outcome.Ok()) return outcome;
  if (Outcome outcome = file_->Write(records); !outcome.Ok()) return outcome;
  points_ = std::make_unique<laz::LazPointWriter>(*file_, layout);
  return points_->Begin();
}

Outcome CopcWriter::WriteNode(const CopcKey& key, std::uint32_t count, const std::int32_t* xyz,
                              std::span<const std::span<const std::uint8_t>> columns) {
  const auto& fields = layout_.GetFields();
  nodes_.push_back({key, count});
  if (count == 0) return Outcome::Success();
  const std::size_t stride = layout_.GetRecordBytes();
  if (columns.size() != fields.size()) return Outcome::FromCode(result::kBadRecord);
  assembled_.assign(count * stride, 0);
  for (std::size_t i = 0; i < count; ++i) {
    std::memcpy(assembled_.data() + i * stride, xyz + 3 * i, 12);
  }
  for (std::size_t i = 0; i < fields.size(); ++i) {
    if (columns[i].empty()) continue;  // zeros
    std::span<const std::uint8_t> values = columns[i];
    std::vector<std::uint8_t> widened;
    if (!FitToField(fields[i], count, values, widened)) {
      return Outcome::FromCode(result::kBadRecord, fields[i].dimension.name);
    }
    if (Outcome outcome = CheckBits(fields[i], values); !outcome.Ok()) return outcome;
    layout_.ScatterRows(i, values.data(), count, assembled_.data());
  }
  Convert(count);
  for (std::size_t i = 0; i < count; ++i) CountPoint(records_.data() + i * header_.pointBytes);
  if (Outcome outcome = points_->Append(records_); !outcome.Ok()) return outcome;
  return points_->EndChunk();
}

void CopcWriter::Convert(std::uint32_t count) {
  if (sourceFormat_ == header_.pointFormat) {
    records_.swap(assembled_);
    return;
  }
  const std::size_t stride = layout_.GetRecordBytes();
  records_.resize(std::size_t{count} * header_.pointBytes);
  for (std::size_t i = 0; i < count; ++i) {
    ConvertRecord(assembled_.data() + i * stride, sourceFormat_, stride,
                  records_.data() + i * header_.pointBytes);
  }
}

void CopcWriter::CountPoint(const std::uint8_t* record) {
  ++header_.pointCount;
  if (const unsigned number = record[14] & 15u; number != 0) ++header_.returnCounts[number - 1];
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const auto value = LoadLittleEndian<std::int32_t>(record + 4 * axis);
    least_[axis] = std::min(least_[axis], value);
    greatest_[axis] = std::max(greatest_[axis], value);
  }
  const auto time = LoadLittleEndian<double>(record + kTimeAt);
  leastTime_ = std::min(leastTime_, time);  // stays, where the time is no number
  greatestTime_ = std::max(greatestTime_, time);
}

Outcome CopcWriter::ListNodes(std::vector<std::uint8_t>& hierarchy) const {
  auto chunk = points_->GetChunks().begin();
  for (const Node& node : nodes_) {
    AppendLittleEndian(hierarchy, node.key.level);
    for (const std::int32_t cell : node.key.cell) AppendLittleEndian(hierarchy, cell);
    const bool empty = node.points == 0;
    if (!empty && chunk->bytes > 0x7FFFFFFFu) return TooLarge(*file_);
    AppendLittleEndian<std::uint64_t>(hierarchy, empty ? 0 : chunk->offset);
    AppendLittleEndian(hierarchy, static_cast<std::int32_t>(empty ? 0 : chunk->bytes));
    AppendLittleEndian(hierarchy, static_cast<std::int32_t>(node.points));
    if (!empty) ++chunk;
  }
  return Outcome::Success();
}

std::vector<std::uint8_t> CopcWriter::EncodeInformation(std::uint64_t hierarchyAt,
                                                        std::uint64_t hierarchyBytes) const {
  std::vector<std::uint8_t> bytes;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    AppendLittleEndian(bytes, cube_.min[axis] + cube_.edge / 2);
  }
  AppendLittleEndian(bytes, cube_.edge / 2);
  AppendLittleEndian(bytes, cube_.spacing);
  AppendLittleEndian(bytes, hierarchyAt);
  AppendLittleEndian(bytes, hierarchyBytes);
  const bool known = leastTime_ <= greatestTime_;
  AppendLittleEndian(bytes, known ? leastTime_ : 0.0);
  AppendLittleEndian(bytes, known ? greatestTime_ : 0.0);
  bytes.resize(kInformationBytes);
  return bytes;
}

void CopcWriter::SetBounds() {
  for (std::size_t axis = 0; axis < 3; ++axis) {
    header_.min[axis] = header_.max[axis] = 0;
    if (header_.pointCount == 0) continue;
    const double a = least_[axis] * header_.scale[axis] + header_.offset[axis];
    const double b = greatest_[axis] * header_.scale[axis] + header_.offset[axis];
    header_.min[axis] = std::min(a, b);  // a scale may be negative
    header_.max[axis] = std::max(a, b);
  }
}

Outcome CopcWriter::Finish() {
  if (Outcome outcome = points_->Finish(); !outcome.Ok()) return outcome;
  std::vector<std::uint8_t> hierarchy;
  if (Outcome outcome = ListNodes(hierarchy); !outcome.Ok()) return outcome;
  header_.extendedOffset = file_->GetLength();
  SetBounds();
  PatchLasHeader(header_, head_);
  std::vector<std::uint8_t> behind = extendedRecords_;
  AppendExtendedLasRecord(behind, "copc", kHierarchyId, "EPT hierarchy", hierarchy);
  if (Outcome outcome = file_->Write(behind); !outcome.Ok()) return outcome;
  const std::uint64_t hierarchyAt = file_->GetLength() - hierarchy.size();
  if (Outcome outcome = file_->Overwrite(0, head_); !outcome.Ok()) return outcome;
  const std::vector<std::uint8_t> information = EncodeInformation(hierarchyAt, hierarchy.size());
  if (Outcome outcome = file_->Overwrite(kInformationAt, information); !outcome.Ok()) {
    return outcome;
  }
  return file_->Commit();
}

}  // namespace tarnhost
