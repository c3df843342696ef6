// The dimensions and the transform that all points of a cloud share, whatever scan they come from.
#pragma once

#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "host/cloud/SourceColumns.h"
#include "host/common/Outcome.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

struct PointLayout {
  PositionTransform transform;
  std::vector<Dimension> dimensions;
};

/// What an import adds to the points of one scan.
struct ScanTags {
  std::optional<std::uint32_t> source;      ///< number of its name in the dictionary
  std::optional<std::uint64_t> firstIndex;  ///< place of its first point
  /// Number of the empty text, for dimensions of texts that the scan lacks.
  std::uint32_t emptyText = 0;
};

/// Whether a scan lacks one of the dimensions of texts, but for the one that names its file.
[[nodiscard]] bool LacksTexts(const ScanFile& scan, std::span<const Dimension> dimensions);

/// The dimensions that tags add.
[[nodiscard]] std::vector<Dimension> DimensionsOf(const ScanTags& tags);

/// The box of all points of a scan that is ready to be read; reads them on all cores.
[[nodiscard]] StoredBox FindStoredBox(const ScanFile& scan);

/// Whether two scans have records that are laid out alike, scale and offset included.
[[nodiscard]] bool HaveOneLayout(const ScanFile& a, const ScanFile& b);

/// The layout that holds the points of all scans, at least one, without loss: every dimension that
/// one of them has, in the widest of its types, and a common step of the positions. kScansDiffer
/// when there is none.
Outcome FindCommonLayout(std::span<const std::unique_ptr<ScanFile>> scans, PointLayout& layout);

/// True when values of a dimension can be taken into a column of that name without loss; see
/// ConvertValues.
[[nodiscard]] bool CanConvert(const Dimension& from, const Dimension& to);
/// Converts values. Scan angles of LAS point formats below 6, in whole degrees, become those of the
/// others, in units of 0.006 degrees, which tell them apart. Colours of 8 bits are spread over 16.
void ConvertValues(const Dimension& from, const Dimension& to, const std::uint8_t* values,
                   std::size_t count, std::uint8_t* out);

}  // namespace tarnhost
