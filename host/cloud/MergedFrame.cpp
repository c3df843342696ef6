// A LAS header for the points of a cloud whose sources differ.
#include "host/cloud/MergedFrame.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <tuple>
#include <utility>

#include "host/cloud/LasSources.h"
#include "host/cloud/SourceColumns.h"
#include "host/formats/LasRecordLayout.h"

namespace tarnhost {

namespace {

using Bytes = std::vector<std::uint8_t>;
using oocpc::ValueType;

constexpr std::uint8_t kFormatCount = 11;

// Within a descriptor of extra bytes.
constexpr std::size_t kNameAt = 4;
constexpr std::size_t kNameBytes = 32;
constexpr std::size_t kTextAt = 160;
constexpr std::size_t kTextBytes = 32;
constexpr std::uint8_t kScaleAndOffset = 8 | 16;  ///< options that any type keeps

const CloudColumn* FindAlike(const Cloud& cloud, const Dimension& dimension) {
  const auto found = std::ranges::find(cloud.GetColumns(), dimension.name, &CloudColumn::name);
  return found != cloud.GetColumns().end() && CanWrite(found->type, dimension) ? &*found : nullptr;
}

LasHeader PlainHeader(std::uint8_t format) {
  LasHeader header;
  header.pointFormat = format;
  header.pointBytes = LasPointBytes(format);
  return header;
}

/// Of two point formats, the one whose fields have bits for more columns is better; then the one
/// with a place for more of them, then the one with shorter records.
auto Judge(const Cloud& cloud, std::uint8_t format, LargestValues& largest) {
  const LasRecordLayout layout = LasRecordLayout::Of(PlainHeader(format));
  int tooNarrow = 0;
  int held = 0;
  for (const LasField& field : layout.GetFields()) {
    if (FindAlike(cloud, field.dimension) == nullptr) continue;
    ++held;
    if (largest.Exceed(field)) ++tooNarrow;
  }
  return std::tuple(-tooNarrow, held, -static_cast<int>(layout.GetRecordBytes()));
}

std::uint8_t ChooseFormat(const Cloud& cloud, LargestValues& largest) {
  std::uint8_t chosen = 0;
  auto best = Judge(cloud, chosen, largest);
  for (std::uint8_t format = 1; format < kFormatCount; ++format) {
    const auto worth = Judge(cloud, format, largest);
    if (worth <= best) continue;
    best = worth;
    chosen = format;
  }
  return chosen;
}

/// Puts the frame together.
class Merger {
 public:
  Merger(const Cloud& cloud, std::vector<LasSource> sources, LargestValues& largest)
      : cloud_(cloud), sources_(std::move(sources)), largest_(largest) {
    if (!sources_.empty()) header_ = sources_.front().header;
  }

  Outcome Run(LasFrame& frame) {
    header_.pointFormat = ChooseFormat(cloud_, largest_);
    if (Outcome outcome = DescribeExtraBytes(); !outcome.Ok()) return outcome;
    SetVersion();
    TakeRecords();
    header_.scale = cloud_.GetTransform().scale;
    header_.offset = cloud_.GetTransform().offset;
    header_.min = header_.max = {};
    header_.pointCount = header_.legacyPointCount = 0;
    header_.returnCounts = {};
    header_.legacyReturnCounts = {};
    header_.headerBytes = LasHeaderBytes(header_.versionMinor);
    header_.pointsOffset = static_cast<std::uint32_t>(header_.headerBytes + records_.size());
    header_.extendedOffset = header_.extendedCount == 0 ? 0 : header_.pointsOffset;
    header_.waveformOffset = waveformAt_ ? header_.pointsOffset + *waveformAt_ : 0;
    Bytes leading = EncodeLasHeader(header_);
    leading.insert(leading.end(), records_.begin(), records_.end());
    const auto owner =
        std::make_shared<const std::pair<Bytes, Bytes>>(std::move(leading), std::move(trailing_));
    frame = {owner->first, owner->second, 0, owner, colorOffset_};
    return CheckColumns(frame);
  }

 private:
  [[nodiscard]] Outcome NoPlace(const CloudColumn& column, const char* why) const {
    return Outcome::Failure(oocpc::result::kScanUnsupported,
                            "the column " + column.name + " has no place in a LAS file: " + why,
                            cloud_.GetPath().string(), "write a CSV file instead");
  }

  /// Whether readers of the file know each column by its name.
  [[nodiscard]] Outcome CheckColumns(const LasFrame& frame) const {
    LasHeader header;
    Outcome outcome = ParseLasFrame(frame.leadingBytes, 0, frame.trailingBytes,
                                    cloud_.GetPath().string(), header);
    if (!outcome.Ok()) return outcome;
    LasRecordLayout layout = LasRecordLayout::Of(header);
    layout.JoinColor(frame.colorOffset);
    for (const CloudColumn& column : cloud_.GetColumns()) {
      const auto isColumn = [&](const LasField& field) {
        // Extra bytes of a name that LAS has for something else are numbered: see ColumnsForLas.
        const std::string& name = field.dimension.name;
        return (name == column.name || name == column.name + "_2") &&
               CanWrite(column.type, field.dimension);
      };
      if (!IsSourceColumn(column) && std::ranges::none_of(layout.GetFields(), isColumn)) {
        return NoPlace(column, "its name means something else there");
      }
    }
    return outcome;
  }

  /// A descriptor for each column that the point format has no place for.
  Outcome DescribeExtraBytes() {
    const LasRecordLayout layout = LasRecordLayout::Of(PlainHeader(header_.pointFormat));
    header_.pointBytes = LasPointBytes(header_.pointFormat);
    for (const CloudColumn& column : cloud_.GetColumns()) {
      const auto isField = [&](const LasField& field) {
        return field.dimension.name == column.name && CanWrite(column.type, field.dimension);
      };
      if (IsSourceColumn(column) || std::ranges::any_of(layout.GetFields(), isField)) continue;
      if (column.type.value == ValueType::kString) return NoPlace(column, "it holds texts");
      const bool isColor = column.name == "DEF_COLOR" && column.type.components == 3;
      if (column.type.components > 1 && !isColor) return NoPlace(column, "it holds vectors");
      if (column.name.size() > kNameBytes) return NoPlace(column, "its name is too long");
      if (isColor) {
        colorOffset_ = header_.pointBytes;
        for (const char* name : {"red", "green", "blue"}) Describe(column, name);
      } else {
        Describe(column, column.name);
      }
      header_.pointBytes =
          static_cast<std::uint16_t>(header_.pointBytes + oocpc::ValueBytes(column.type));
    }
    return CheckDescriptors();
  }

  /// The length of the record that holds all descriptors has 16 bits.
  [[nodiscard]] Outcome CheckDescriptors() const {
    constexpr std::size_t kMost =
        std::numeric_limits<std::uint16_t>::max() / kExtraByteDescriptorBytes;
    const std::size_t count = descriptors_.size() / kExtraByteDescriptorBytes;
    if (count <= kMost) return Outcome::Success();
    return Outcome::Failure(oocpc::result::kScanUnsupported,
                            "its columns need " + std::to_string(count) +
                                " extra bytes dimensions, of which a LAS file describes no more "
                                "than " +
                                std::to_string(kMost),
                            cloud_.GetPath().string(), "write a CSV file instead");
  }

  void Describe(const CloudColumn& column, const std::string& name) {
    Bytes descriptor = FindDescriptor(name);
    const auto dataType = static_cast<std::uint8_t>(column.type.value);
    if (descriptor.empty()) {
      descriptor.resize(kExtraByteDescriptorBytes);
      std::copy(name.begin(), name.end(), descriptor.begin() + kNameAt);
      std::copy_n(column.description.begin(), std::min(column.description.size(), kTextBytes),
                  descriptor.begin() + kTextAt);
    } else if (descriptor[2] != dataType) {
      descriptor[3] &= kScaleAndOffset;  // the others state values of the former type
    }
    descriptor[2] = dataType;
    descriptors_.insert(descriptors_.end(), descriptor.begin(), descriptor.end());
  }

  /// What the first source that has such extra bytes says of them; empty when none does.
  [[nodiscard]] Bytes FindDescriptor(const std::string& name) const {
    for (const LasSource& source : sources_) {
      const Bytes& all = source.header.extraByteDescriptors;
      for (std::size_t at = 0; at + kExtraByteDescriptorBytes <= all.size();
           at += kExtraByteDescriptorBytes) {
        const auto begin = all.begin() + static_cast<std::ptrdiff_t>(at);
        const std::uint8_t* const text = &all[at + kNameAt];
        const std::string described(text, std::find(text, text + kNameBytes, std::uint8_t{0}));
        if (described != name || begin[2] == 0 || begin[2] > 10) continue;
        return {begin, begin + static_cast<std::ptrdiff_t>(kExtraByteDescriptorBytes)};
      }
    }
    return {};
  }

  /// No older than any source's, and than what the point format takes.
  void SetVersion() {
    for (const LasSource& source : sources_) {
      header_.versionMinor = std::max(header_.versionMinor, source.header.versionMinor);
    }
    const std::uint8_t format = header_.pointFormat;
    const std::uint8_t least = format >= 6 ? 4 : format >= 4 ? 3 : format >= 2 ? 2 : 0;
    header_.versionMinor = std::max(header_.versionMinor, least);
  }

  void TakeRecords() {
    header_.recordCount = 0;
    header_.extendedCount = 0;
    if (!descriptors_.empty()) {
      AppendLasRecord(records_, kSpecUser, kExtraBytesRecord, "extra bytes", descriptors_);
      ++header_.recordCount;
    }
    header_.globalEncoding = ChooseEncoding(sources_);
    for (const ChosenRecord& chosen : ChooseRecords(sources_)) {
      if (!chosen.record->extended || header_.versionMinor >= 4) TakeRecord(chosen);
    }
  }

  void TakeRecord(const ChosenRecord& chosen) {
    const LasVariableRecord& record = *chosen.record;
    // The newer formats ask for this of a file that has such a record, the older ones allow both.
    if (IsWktRecord(record) && header_.pointFormat >= 6) header_.globalEncoding |= kLasWktEncoding;
    if (IsWaveformRecord(record) && record.extended) waveformAt_ = trailing_.size();
    const auto bytes = chosen.source->GetBytes(record);
    Bytes& to = record.extended ? trailing_ : records_;
    to.insert(to.end(), bytes.begin(), bytes.end());
    ++(record.extended ? header_.extendedCount : header_.recordCount);
  }

  const Cloud& cloud_;
  std::vector<LasSource> sources_;
  LargestValues& largest_;
  LasHeader header_;
  Bytes descriptors_;
  std::size_t colorOffset_ = 0;  ///< see LasFrame
  Bytes records_;
  Bytes trailing_;
  std::optional<std::uint64_t> waveformAt_;  ///< from the end of the points
};

}  // namespace

bool HoldsColumns(const Cloud& cloud, const LasHeader& header, LargestValues& largest) {
  if (header.scale != cloud.GetTransform().scale || header.offset != cloud.GetTransform().offset) {
    return false;
  }
  const LasRecordLayout layout = LasRecordLayout::Of(header);
  const auto columns = std::ranges::count_if(
      cloud.GetColumns(), [](const CloudColumn& column) { return !IsSourceColumn(column); });
  return static_cast<std::size_t>(columns) == layout.GetFields().size() &&
         std::ranges::all_of(layout.GetFields(), [&](const LasField& field) {
           return FindAlike(cloud, field.dimension) != nullptr && !largest.Exceed(field);
         });
}

Outcome MakeMergedFrame(const Cloud& cloud, LargestValues& largest, LasFrame& frame) {
  return Merger(cloud, ListLasSources(cloud), largest).Run(frame);
}

}  // namespace tarnhost
