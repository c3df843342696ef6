// Writes a scan that nobody took.
#include "host/synthesize/SynthesizeScan.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <new>
#include <string>

#include "OOCPointCloud/repository/FileSystem.h"
#include "OOCPointCloud/support/Bytes.h"
#include "host/formats/LasWriter.h"
#include "host/synthesize/ScanPieces.h"

namespace tarnhost {

namespace {

namespace synth = synthesize;
using oocpc::detail::FileKind;

constexpr std::uint8_t kPointFormat = 7;
constexpr double kScale = 0.001;
// Where the scene stands in UTM 32N, and how it is turned; metres and radians.
constexpr double kEast = 500000;
constexpr double kNorth = 4500000;
constexpr double kSceneEast = 420.5;
constexpr double kSceneNorth = 310.25;
constexpr double kSceneHeight = 212.0;
constexpr double kTurn = 0.35;

/// Pieces made at once before they are written; bounds the memory.
constexpr std::size_t kBatchPieces = 32;
constexpr double kScenePoints = 4e6;
constexpr double kHalfLength = 120;
constexpr double kMostHalfLength = 20000;

constexpr std::string_view kCoordinateSystem =
    R"(PROJCS["WGS 84 / UTM zone 32N",GEOGCS["WGS 84",DATUM["WGS_1984",)"
    R"(SPHEROID["WGS 84",6378137,298.257223563,AUTHORITY["EPSG","7030"]],)"
    R"(AUTHORITY["EPSG","6326"]],PRIMEM["Greenwich",0],UNIT["degree",0.0174532925199433],)"
    R"(AUTHORITY["EPSG","4326"]],PROJECTION["Transverse_Mercator"],)"
    R"(PARAMETER["latitude_of_origin",0],PARAMETER["central_meridian",9],)"
    R"(PARAMETER["scale_factor",0.9996],PARAMETER["false_easting",500000],)"
    R"(PARAMETER["false_northing",0],UNIT["metre",1],AXIS["Easting",EAST],)"
    R"(AXIS["Northing",NORTH],AUTHORITY["EPSG","32632"]])";

void AppendPadded(std::vector<std::uint8_t>& bytes, std::string_view text, std::size_t length) {
  bytes.insert(bytes.end(), text.begin(), text.end());
  bytes.resize(bytes.size() + length - text.size());
}

/// Header and coordinate system of an empty scan.
std::vector<std::uint8_t> MakeLeadingBytes() {
  constexpr std::uint16_t kRecordHeadBytes = 54;
  constexpr std::uint16_t kWktRecord = 2112;
  const auto wktBytes = static_cast<std::uint16_t>(kCoordinateSystem.size() + 1);  // and a NUL
  LasHeader header;
  header.globalEncoding = 0x11;  // adjusted standard GPS time; coordinate system as WKT
  header.systemIdentifier = "SIMULATED";
  header.generatingSoftware = "tarn synthesize";
  header.creationDay = 131;
  header.creationYear = 2024;
  header.pointFormat = kPointFormat;
  header.pointBytes = LasPointBytes(header.pointFormat);
  header.recordCount = 1;
  header.pointsOffset = header.headerBytes + std::uint32_t{kRecordHeadBytes} + wktBytes;
  header.scale = {kScale, kScale, kScale};
  header.offset = {kEast, kNorth, 0};
  std::vector<std::uint8_t> bytes = EncodeLasHeader(header);
  oocpc::AppendLittleEndian<std::uint16_t>(bytes, 0);
  AppendPadded(bytes, "LASF_Projection", 16);
  oocpc::AppendLittleEndian(bytes, kWktRecord);
  oocpc::AppendLittleEndian(bytes, wktBytes);
  AppendPadded(bytes, "WKT coordinate system", 32);
  AppendPadded(bytes, kCoordinateSystem, wktBytes);
  return bytes;
}

/// Points column by column, as the writer takes them.
class Columns {
 public:
  explicit Columns(const LasRecordLayout& layout) : layout_(layout) {}

  Outcome Write(std::span<const synth::ScanPoint> points, LasWriter& writer) {
    xyz_.clear();
    for (const synth::ScanPoint& point : points) AppendPosition(point.place);
    values_.resize(layout_.GetFields().size());
    std::vector<std::span<const std::uint8_t>> columns;
    for (std::size_t i = 0; i < values_.size(); ++i) {
      values_[i].clear();
      Fill(layout_.GetFields()[i], points, values_[i]);
      columns.emplace_back(values_[i]);
    }
    return writer.WriteBlock(points.size(), xyz_.data(), columns);
  }

 private:
  void AppendPosition(synth::Vector at) {
    static const double kCos = std::cos(kTurn);
    static const double kSin = std::sin(kTurn);
    const double local[] = {kSceneEast + kCos * at.x - kSin * at.y,
                            kSceneNorth + kSin * at.x + kCos * at.y, kSceneHeight + at.z};
    for (const double value : local) {
      xyz_.push_back(static_cast<std::int32_t>(std::lround(value / kScale)));
    }
  }

  template <typename Get>
  static void FillWith(std::span<const synth::ScanPoint> points, std::vector<std::uint8_t>& out,
                       Get get) {
    using T = decltype(get(points[0]));
    out.resize(points.size() * sizeof(T));
    std::uint8_t* to = out.data();
    for (const synth::ScanPoint& point : points) {
      const T value = get(point);
      std::memcpy(to, &value, sizeof(T));
      to += sizeof(T);
    }
  }

  static void Fill(const LasField& field, std::span<const synth::ScanPoint> points,
                   std::vector<std::uint8_t>& out) {
    using Point = synth::ScanPoint;
    const std::string& name = field.dimension.name;
    const auto is = [&](const char* wanted) { return name == wanted; };
    if (is("intensity")) return FillWith(points, out, [](const Point& p) { return p.intensity; });
    if (is("return_number")) {
      return FillWith(points, out, [](const Point& p) { return p.returnNumber; });
    }
    if (is("number_of_returns")) {
      return FillWith(points, out, [](const Point& p) { return p.returnCount; });
    }
    if (is("scan_direction_flag")) {
      return FillWith(points, out,
                      [](const Point& p) { return std::uint8_t{p.positiveDirection}; });
    }
    if (is("edge_of_flight_line")) {
      return FillWith(points, out, [](const Point& p) { return std::uint8_t{p.edge}; });
    }
    if (is("classification")) {
      return FillWith(points, out, [](const Point& p) { return p.pointClass; });
    }
    if (is("scan_angle")) return FillWith(points, out, [](const Point& p) { return p.scanAngle; });
    if (is("point_source_id")) {
      return FillWith(points, out, [](const Point& p) { return p.sourceId; });
    }
    if (is("gps_time")) return FillWith(points, out, [](const Point& p) { return p.gpsTime; });
    if (is("DEF_COLOR")) return FillWith(points, out, [](const Point& p) { return p.color; });
    out.resize(points.size() * oocpc::ValueBytes(field.dimension.type));
  }

  const LasRecordLayout& layout_;
  std::vector<std::int32_t> xyz_;
  std::vector<std::vector<std::uint8_t>> values_;
};

Outcome WriteScan(const SynthesizeOptions& options, LasWriter& writer) {
  const double enlarged =
      kHalfLength * std::max(1.0, static_cast<double>(options.pointCount) / kScenePoints);
  const synth::Scene scene(std::floor(std::min(enlarged, kMostHalfLength)), options.seed);
  const std::vector<synth::Strip> strips =
      synth::PlanStrips(scene.GetTerrain(), options.pointCount);
  const std::vector<synth::ScanPiece> pieces =
      synth::PlanPieces(scene, strips, options.pointCount, options.seed);
  Columns columns(writer.GetLayout());
  std::vector<std::vector<synth::ScanPoint>> made(kBatchPieces);
  for (std::size_t begin = 0; begin < pieces.size(); begin += kBatchPieces) {
    const std::size_t count = std::min(kBatchPieces, pieces.size() - begin);
    tbb::parallel_for(std::size_t{0}, count, [&](std::size_t i) {
      const synth::ScanPiece& piece = pieces[begin + i];
      synth::ScanThePiece(scene, strips[piece.strip], piece, options.seed, made[i]);
    });
    for (std::size_t i = 0; i < count; ++i) {
      if (Outcome outcome = columns.Write(made[i], writer); !outcome.Ok()) return outcome;
    }
    const ProgressReport report{"scanning", writer.GetPointCount(), options.pointCount};
    if (options.progress && !options.progress(report)) {
      return Outcome::FromCode(oocpc::result::kStopped);
    }
  }
  return writer.Finish(false);
}

/// Rather says at once than after hours that the disk is too small.
Outcome CheckSpace(const SynthesizeOptions& options) {
  const std::uint64_t recordBytes = LasPointBytes(kPointFormat);
  const FileKind kind = oocpc::detail::GetFileKind(options.output);
  const bool isDevice = kind != FileKind::kNone && kind != FileKind::kFile;
  const std::filesystem::path folder = options.output.parent_path();
  std::uint64_t freeBytes = 0;
  const HRESULT asked = oocpc::detail::GetFreeBytes(folder.empty() ? "." : folder, freeBytes);
  if (isDevice || oocpc::Failed(asked) || options.pointCount <= freeBytes / recordBytes) {
    return Outcome::Success();
  }
  return Outcome::Failure(oocpc::result::kNoSpace,
                          std::to_string(options.pointCount) + " points of " +
                              std::to_string(recordBytes) +
                              " bytes do not fit: " + std::to_string(freeBytes) + " bytes are free",
                          options.output.string(), "make room there, or ask for fewer points");
}

}  // namespace

Outcome SynthesizeScan(const SynthesizeOptions& options) {
  try {
    if (Outcome outcome = CheckSpace(options); !outcome.Ok()) return outcome;
    const std::vector<std::uint8_t> leading = MakeLeadingBytes();
    std::unique_ptr<LasWriter> writer;
    Outcome outcome = LasWriter::Create(options.output, {leading, {}, 0}, writer);
    if (!outcome.Ok()) return outcome;
    return WriteScan(options, *writer);
  } catch (const std::bad_alloc&) {
    return Outcome::FromCode(oocpc::result::kOutOfMemory);
  }
}

}  // namespace tarnhost
