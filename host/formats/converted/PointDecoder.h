// What a format that is not LAS brings: its fields, and its points in runs, field by field.
#pragma once

#include <OOCPointCloud/ColumnType.h>

#include <array>
#include <cstdint>
#include <functional>
#include <limits>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "host/common/Outcome.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// A field of a source's points that is no coordinate: one scalar.
struct ScanField {
  std::string name;  ///< as the source calls it
  oocpc::ValueType type = oocpc::ValueType::kDouble;
  std::string description;
};

/// A coordinate that a point lacks. A point that lacks one has no place in a cloud.
inline constexpr double kNoCoordinate = std::numeric_limits<double>::quiet_NaN();

/// Some points as a decoder gives them.
struct PointRows {
  std::size_t count = 0;
  /// Source coordinates, value after value; what is not finite means that the point has no place.
  std::array<std::vector<double>, 3> coordinates;
  /// For each field its values one after the other, little-endian. Empty when they were not asked
  /// for.
  std::vector<std::vector<std::uint8_t>> fields;

  /// Makes room for `points` points; with fields, when those are given.
  void Resize(std::size_t points, std::span<const ScanField> wanted) {
    count = points;
    for (auto& axis : coordinates) axis.resize(points);
    fields.resize(wanted.size());
    for (std::size_t i = 0; i < wanted.size(); ++i) {
      fields[i].resize(points * oocpc::ComponentBytes(wanted[i].type));
    }
  }
};

/// Most points that a decoder gives at once, so that memory stays bounded.
inline constexpr std::size_t kMostRows = 1u << 16;

/// What the source's coordinates are.
enum class CoordinateKind {
  kFloat,     ///< 32-bit floats
  kDouble,    ///< 64-bit floats, or decimal numbers that were read as such
  kComputed,  ///< made from fields that the source has and that are kept as they are
};

/// Decodes the points of one file. Const operations are safe from several threads at once.
class PointDecoder {
 public:
  using RowSink = std::function<Outcome(PointRows& rows)>;

  PointDecoder() = default;
  PointDecoder(const PointDecoder&) = delete;
  PointDecoder& operator=(const PointDecoder&) = delete;
  virtual ~PointDecoder() = default;

  [[nodiscard]] virtual const std::vector<ScanField>& GetFields() const = 0;
  [[nodiscard]] virtual CoordinateKind GetCoordinateKind() const = 0;
  /// Scale and offset that the source itself uses, if it does: taken where they reproduce every
  /// coordinate.
  [[nodiscard]] virtual std::optional<PositionTransform> GetOwnTransform() const { return {}; }
  /// Digits behind the point with which the source writes coordinates, per axis; 0 where it writes
  /// none.
  [[nodiscard]] virtual std::array<int, 3> GetDecimals() const { return {}; }
  /// The texts that the values of string fields number, from 0; complete once all parts were
  /// decoded without fields.
  [[nodiscard]] virtual std::span<const std::string> GetStrings() const { return {}; }
  /// About how many points there are, placeless ones included.
  [[nodiscard]] virtual std::uint64_t GetRowCount() const = 0;
  /// What the file says besides its points, as it stands there: it travels with the cloud.
  [[nodiscard]] virtual std::span<const std::uint8_t> GetHeader() const = 0;
  /// What to tell the user about how the file was read, sentences.
  [[nodiscard]] virtual std::vector<std::string> GetNotices() const { return {}; }

  /// Called before parts are decoded, as often as wanted, and after; may take memory and temporary
  /// room in between, as the workspace says.
  virtual Outcome Begin(const ScanWorkspace& /*workspace*/) { return Outcome::Success(); }
  virtual void End() {}
  /// Parts can be decoded one beside the other; the points stand in the order of the parts.
  [[nodiscard]] virtual std::size_t GetPartCount() const = 0;
  /// Gives the points of a part, in their order and no more than kMostRows at once, to `take`,
  /// whose failure is passed on. Without `withFields`, coordinates alone.
  virtual Outcome Decode(std::size_t part, bool withFields, const RowSink& take) const = 0;
};

}  // namespace tarnhost
