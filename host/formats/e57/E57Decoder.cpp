// The points of an E57 file: of all its scans, in one frame.
#include "host/formats/e57/E57Decoder.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstring>

#include "host/common/SharedProgress.h"
#include "host/formats/converted/ConvertedScan.h"
#include "host/formats/converted/NumberText.h"
#include "host/formats/converted/TextDictionary.h"
#include "host/formats/e57/E57Packets.h"
#include "host/formats/e57/E57Pages.h"
#include "host/formats/e57/E57Schema.h"

namespace tarnhost {

namespace result = oocpc::result;
using oocpc::ValueType;

namespace {

constexpr std::uint64_t kMostXmlBytes = 1u << 28;
/// Records that take no bits at all are bounded by this alone.
constexpr std::uint64_t kMostEmptyRecords = 1u << 20;
constexpr std::uint64_t kRows = 1u << 14;

using Role = E57Target::Role;

/// Values of one field as they are decoded.
struct Values {
  std::vector<std::uint64_t> bits;
  std::vector<double> numbers;
  std::vector<std::string> texts;

  void Convert(const E57Field& field) {
    numbers.resize(bits.size());
    for (std::size_t i = 0; i < bits.size(); ++i) {
      switch (field.kind) {
        case E57Field::Kind::kFloat:
          numbers[i] = std::bit_cast<float>(static_cast<std::uint32_t>(bits[i]));
          break;
        case E57Field::Kind::kDouble:
          numbers[i] = std::bit_cast<double>(bits[i]);
          break;
        case E57Field::Kind::kText:
          break;
        case E57Field::Kind::kInteger:
        case E57Field::Kind::kScaledInteger:
          numbers[i] =
              static_cast<double>(static_cast<std::int64_t>(IntegerBits(field, i))) * field.scale +
              field.offset;
          break;
      }
    }
  }
  /// An integer in two's complement.
  [[nodiscard]] std::uint64_t IntegerBits(const E57Field& field, std::size_t i) const {
    return static_cast<std::uint64_t>(field.minimum) + bits[i];
  }
};

bool IsReal(ValueType type) { return type == ValueType::kFloat || type == ValueType::kDouble; }

/// Decodes one scan.
class ScanReader {
 public:
  ScanReader(const E57Pages& pages, const E57Scan& scan, const E57Schema& schema,
             const TextDictionary& texts, std::size_t number, const std::string& where)
      : pages_(pages), scan_(scan), schema_(schema), texts_(texts), number_(number), where_(where) {
    for (const E57Field& field : scan.fields) {
      streams_.emplace_back(field.kind == E57Field::Kind::kText, field.GetBits());
    }
    values_.resize(scan.fields.size());
  }

  Outcome Run(bool withFields, const PointDecoder::RowSink& take) {
    return ForEachRun([&](std::size_t count) {
      rows_.Resize(count, withFields ? std::span(schema_.fields) : std::span<const ScanField>());
      PlacePoints(count);
      if (withFields) FillFields(count);
      return take(rows_);
    });
  }

  /// Adds the texts of all points to a dictionary; `isFull` when there was no room.
  Outcome CollectTexts(TextDictionary& dictionary, bool& isFull) {
    return ForEachRun([&](std::size_t /*count*/) {
      for (const Values& values : values_) {
        for (const std::string& text : values.texts) isFull = isFull || !dictionary.Add(text);
      }
      return isFull ? Outcome::FromCode(result::kStopped) : Outcome::Success();
    });
  }

 private:
  /// Decodes all values, some points at a time, and calls `take` with their number.
  template <typename Take>
  Outcome ForEachRun(const Take& take) {
    E57Packets packets;
    Outcome outcome = E57Packets::Open(pages_, scan_.fileOffset, where_, packets);
    std::uint64_t left = scan_.recordCount;
    while (outcome.Ok() && left > 0) {
      const std::uint64_t there = std::min(CountThere(), left);
      if (there >= kRows || there == left) {
        const auto count = static_cast<std::size_t>(std::min(there, kRows));
        TakeValues(count);
        outcome = take(count);
        left -= std::min(there, kRows);
        continue;
      }
      bool isEnd = false;
      outcome = packets.ReadNext(streams_, isEnd);
      if (outcome.Ok()) outcome = CheckTexts();
      if (outcome.Ok() && isEnd) return Missing(left - there);
    }
    return outcome;
  }

  [[nodiscard]] std::uint64_t CountThere() const {
    std::uint64_t count = ~std::uint64_t{0};
    for (const FieldQueue& stream : streams_) count = std::min(count, stream.GetCount());
    return count;
  }

  [[nodiscard]] Outcome Missing(std::uint64_t count) const {
    return Outcome::Failure(
        result::kScanTruncated,
        std::to_string(count) + " of " + std::to_string(scan_.recordCount) + " points are missing",
        where_, "copy or download the file again");
  }

  [[nodiscard]] Outcome CheckTexts() {
    for (std::size_t i = 0; i < streams_.size(); ++i) {
      if (!streams_[i].GetTexts().IsDamaged()) continue;
      return Outcome::Failure(result::kScanContradictory,
                              "a text of field " + Quoted(scan_.fields[i].name) +
                                  " is longer than " + std::to_string(TextQueue::kMostTextBytes) +
                                  " bytes",
                              where_, "write the scan again with the program that made it");
    }
    return Outcome::Success();
  }

  void TakeValues(std::size_t count) {
    for (std::size_t i = 0; i < streams_.size(); ++i) {
      if (streams_[i].IsText()) {
        streams_[i].GetTexts().Take(count, values_[i].texts);
        continue;
      }
      values_[i].bits.resize(count);
      streams_[i].GetNumbers().Take(count, values_[i].bits.data());
      values_[i].Convert(scan_.fields[i]);
    }
  }

  /// The numbers of a coordinate or a state; null where the scan has none.
  [[nodiscard]] const double* Find(Role role, std::size_t axis) const {
    const auto& targets = schema_.targets[number_];
    for (std::size_t i = 0; i < targets.size(); ++i) {
      if (targets[i].role == role && targets[i].axis == axis) return values_[i].numbers.data();
    }
    return nullptr;
  }

  void PlacePoints(std::size_t count) {
    std::array<const double*, 3> cartesian{};
    std::array<const double*, 3> spherical{};
    for (std::size_t axis = 0; axis < 3; ++axis) {
      cartesian[axis] = Find(Role::kCartesian, axis);
      spherical[axis] = Find(Role::kSpherical, axis);
    }
    const double* const cartesianState = Find(Role::kCartesianState, 0);
    const double* const sphericalState = Find(Role::kSphericalState, 0);
    const bool hasCartesian = cartesian[0] && cartesian[1] && cartesian[2];
    const bool hasSpherical = spherical[0] && spherical[1] && spherical[2];
    const bool moves = !scan_.pose.IsIdentity();
    for (std::size_t i = 0; i < count; ++i) {
      std::array<double, 3> point{kNoCoordinate, kNoCoordinate, kNoCoordinate};
      if (hasCartesian && (!cartesianState || cartesianState[i] == 0)) {
        for (std::size_t axis = 0; axis < 3; ++axis) point[axis] = cartesian[axis][i];
      } else if (hasSpherical && (!sphericalState || sphericalState[i] == 0)) {
        point = FromSphere(spherical[0][i], spherical[1][i], spherical[2][i]);
      }
      if (moves) scan_.pose.Apply(point);
      for (std::size_t axis = 0; axis < 3; ++axis) rows_.coordinates[axis][i] = point[axis];
    }
  }

  static std::array<double, 3> FromSphere(double range, double azimuth, double elevation) {
    return {range * std::cos(elevation) * std::cos(azimuth),
            range * std::cos(elevation) * std::sin(azimuth), range * std::sin(elevation)};
  }

  void FillFields(std::size_t count) {
    for (std::size_t field = 0; field < schema_.fields.size(); ++field) {
      const ValueType type = schema_.fields[field].type;
      const std::size_t bytes = oocpc::ComponentBytes(type);
      std::uint8_t* out = rows_.fields[field].data();
      const std::optional<std::size_t> source = SourceOf(field);
      for (std::size_t i = 0; i < count; ++i, out += bytes) {
        if (type == ValueType::kString) {
          const std::string_view text = source ? values_[*source].texts[i] : std::string_view();
          const std::uint32_t number = texts_.Find(text).value_or(0);
          std::memcpy(out, &number, sizeof(number));
          continue;
        }
        if (IsReal(type)) {
          (void)StoreNumber(source ? values_[*source].numbers[i] : kNoCoordinate, type, out);
          continue;
        }
        std::uint64_t number = field == 0 ? number_ : 0;
        if (source) number = values_[*source].IntegerBits(scan_.fields[*source], i);
        std::memcpy(out, &number, bytes);  // of two's complement, the low bytes
      }
    }
  }

  [[nodiscard]] std::optional<std::size_t> SourceOf(std::size_t field) const {
    const auto& targets = schema_.targets[number_];
    for (std::size_t i = 0; i < targets.size(); ++i) {
      if (targets[i].field == field) return i;
    }
    return {};
  }

  const E57Pages& pages_;
  const E57Scan& scan_;
  const E57Schema& schema_;
  const TextDictionary& texts_;
  std::size_t number_;
  const std::string& where_;
  std::vector<FieldQueue> streams_;
  std::vector<Values> values_;
  PointRows rows_;
};

class E57Decoder final : public PointDecoder {
 public:
  E57Decoder(std::span<const std::uint8_t> file, std::string where)
      : file_(file), where_(std::move(where)) {}

  Outcome Load(const ScanOptions& options, bool verify) {
    if (Outcome outcome = E57Pages::Open(file_, where_, pages_); !outcome.Ok()) return outcome;
    if (verify) {
      SharedProgress progress([&](std::uint64_t done) {
        return !options.progress || options.progress({"opening", done, file_.size(), "bytes"});
      });
      if (Outcome outcome = pages_.Verify(where_, progress); !outcome.Ok()) return outcome;
    }
    if (pages_.GetXmlBytes() > kMostXmlBytes) {
      return Outcome::Failure(result::kScanUnsupported, "the XML section is too long", where_,
                              "write the scan again with the program that made it");
    }
    xml_.resize(static_cast<std::size_t>(pages_.GetXmlBytes()));
    (void)pages_.Read(pages_.GetXmlOffset(), xml_.size(), xml_.data());
    const std::string_view text(reinterpret_cast<const char*>(xml_.data()), xml_.size());
    if (Outcome outcome = ParseE57Xml(text, where_, scans_); !outcome.Ok()) return outcome;
    for (std::size_t i = 0; i < scans_.size(); ++i) {
      if (Outcome outcome = CheckScan(i); !outcome.Ok()) return outcome;
    }
    schema_ = E57Schema::Of(scans_);
    return schema_.HasTexts() ? CollectTexts(options) : Outcome::Success();
  }

  const std::vector<ScanField>& GetFields() const override { return schema_.fields; }
  CoordinateKind GetCoordinateKind() const override { return schema_.kind; }
  std::optional<PositionTransform> GetOwnTransform() const override { return schema_.transform; }
  std::span<const std::uint8_t> GetHeader() const override { return xml_; }
  std::span<const std::string> GetStrings() const override { return texts_.GetTexts(); }
  std::uint64_t GetRowCount() const override {
    std::uint64_t count = 0;  // which makes no sense where the file does not: for progress alone
    for (const E57Scan& scan : scans_) count += scan.hasPoints ? scan.recordCount : 0;
    return count;
  }
  std::size_t GetPartCount() const override { return scans_.size(); }
  Outcome Decode(std::size_t part, bool withFields, const RowSink& take) const override {
    if (!scans_[part].hasPoints) return Outcome::Success();
    const std::string where = WhereOf(part);
    return ScanReader(pages_, scans_[part], schema_, texts_, part, where).Run(withFields, take);
  }

 private:
  [[nodiscard]] std::string WhereOf(std::size_t scan) const {
    return where_ + ", scan " + std::to_string(scan);
  }

  /// Texts are numbered scan by scan; the empty one, which scans without them have, comes first.
  Outcome CollectTexts(const ScanOptions& options) {
    bool isFull = !texts_.Add({});
    for (std::size_t i = 0; i < scans_.size(); ++i) {
      const bool hasTexts = std::ranges::find(scans_[i].fields, E57Field::Kind::kText,
                                              &E57Field::kind) != scans_[i].fields.end();
      if (!scans_[i].hasPoints || !hasTexts) continue;
      if (options.progress && !options.progress({"opening", i, scans_.size(), "scans"})) {
        return Outcome::FromCode(result::kStopped);
      }
      const std::string where = WhereOf(i);
      Outcome outcome =
          ScanReader(pages_, scans_[i], schema_, texts_, i, where).CollectTexts(texts_, isFull);
      if (isFull) {
        return Outcome::Failure(result::kScanUnsupported,
                                "the points have more different texts than can be kept (" +
                                    std::to_string(TextDictionary::kMostTexts) + ")",
                                where, "write the scan without them");
      }
      if (!outcome.Ok()) return outcome;
    }
    return Outcome::Success();
  }

  [[nodiscard]] Outcome CheckScan(std::size_t number) const {
    const E57Scan& scan = scans_[number];
    if (!scan.hasPoints) return Outcome::Success();
    const auto has = [&](const char* name) {
      return std::ranges::find(scan.fields, name, &E57Field::name) != scan.fields.end();
    };
    for (const E57Field& field : scan.fields) {
      if (field.kind != E57Field::Kind::kText || TargetOf(field).role == Role::kField) continue;
      return Outcome::Failure(result::kScanContradictory,
                              "field " + Quoted(field.name) + " holds texts in place of numbers",
                              WhereOf(number),
                              "write the scan again with the program that made it");
    }
    const bool isPlaced =
        (has("cartesianX") && has("cartesianY") && has("cartesianZ")) ||
        (has("sphericalRange") && has("sphericalAzimuth") && has("sphericalElevation"));
    if (!isPlaced) {
      return Outcome::Failure(result::kScanUnsupported, "the points have no coordinates",
                              WhereOf(number), "write the scan with coordinates");
    }
    const bool isBare = std::ranges::all_of(
        scan.fields, [](const E57Field& field) { return field.GetBits() == 0; });
    if (isBare && scan.recordCount > kMostEmptyRecords) {
      return Outcome::Failure(result::kScanContradictory,
                              "the points are many and take no space at all", WhereOf(number),
                              "write the scan again with the program that made it");
    }
    return Outcome::Success();
  }

  std::span<const std::uint8_t> file_;
  std::string where_;
  E57Pages pages_;
  std::vector<std::uint8_t> xml_;
  std::vector<E57Scan> scans_;
  E57Schema schema_;
  TextDictionary texts_;
};

}  // namespace

Outcome OpenE57(const std::filesystem::path& path, std::shared_ptr<const OOCPCByteSource> bytes,
                const ScanOptions& options, std::unique_ptr<ScanFile>& scan, bool verify) {
  auto decoder = std::make_unique<E57Decoder>(bytes->GetBytes(), path.string());
  if (Outcome outcome = decoder->Load(options, verify); !outcome.Ok()) return outcome;
  return ConvertedScan::Open(path, std::move(bytes), options, std::move(decoder), scan);
}

}  // namespace tarnhost
