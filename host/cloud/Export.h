// Writes a cloud back into a scan file.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>

#include "host/cloud/Cloud.h"
#include "host/cloud/OrderedRecords.h"
#include "host/formats/LasWriter.h"

namespace tarnhost {

/// What a LAS file made out of the cloud looks like besides its points: that of the first source,
/// less what was true of that file's order of points alone, with the records that only others have
/// behind its own (see ChooseRecords), or, where it has no place for all columns or their largest
/// values, what MakeMergedFrame makes. The sources are those that the cloud keeps: see
/// Cloud::KeepSourcesOf. The columns that tell the source are left out. kScanUnsupported when the
/// cloud has a column that no LAS file can hold.
Outcome FrameForLas(Cloud& cloud, LasFrame& frame);

/// The columns of the cloud in the order in which a LAS writer of this layout takes them; no name
/// where the cloud has none. kScanUnsupported when one has another type.
Outcome ColumnsForLas(const Cloud& cloud, const LasRecordLayout& layout,
                      std::vector<std::string>& columns);

/// kBadRecord when an iteration's nodes do not hold the points that it states.
Outcome CheckPointCount(const Cloud& cloud, std::uint64_t written, std::uint64_t stated);

/// Whether the points written, of an iteration that states `stated`, are those of the first source
/// and no others: iterations hold whole sources, in their order.
[[nodiscard]] bool IsFirstSource(const Cloud& cloud, std::uint64_t written, std::uint64_t stated);

/// Whether the cloud knows the place of each point in its source.
[[nodiscard]] bool HasSourceOrder(const Cloud& cloud);

/// Makes what puts records of the points of such a cloud into the order of their sources. A
/// temporary file that it may need lies beside `output`. About `memoryBytes` at most; 0: a quarter
/// of the machine's.
Outcome MakeSourceOrder(const Cloud& cloud, std::size_t recordBytes, std::uint64_t memoryBytes,
                        const std::filesystem::path& output,
                        std::unique_ptr<OrderedRecords>& ordered);

struct ExportOptions {
  std::uint64_t iteration = 0;
  /// About the most memory to take for putting points into order; 0: a quarter of the
  /// machine's.
  std::uint64_t memoryBytes = 0;
  std::function<bool(const ProgressReport&)> progress;  ///< may be empty; false stops
  /// Points of which a value cannot be read are left out; else they are a failure.
  bool leavesOutDamaged = false;
};

struct ExportReport {
  std::uint64_t pointCount = 0;
  std::uint64_t damagedPoints = 0;  ///< left out
};

/// Writes all points of an iteration into a LAS or LAZ file, as its name says: source by source in
/// the order of the points there, where the cloud knows it, or else in the order of storage. With
/// the points of the first source alone, and no records of others (see FrameForLas), the header
/// comes out byte for byte. The file appears only when it is complete. What does not fit into
/// memory is kept in a temporary file beside it.
Outcome ExportLas(Cloud& cloud, const ExportOptions& options, const std::filesystem::path& output,
                  ExportReport& report);
/// The same with usual options.
Outcome ExportLas(Cloud& cloud, std::uint64_t iteration, const std::filesystem::path& output,
                  const std::function<bool(const ProgressReport&)>& progress,
                  std::uint64_t& pointCount);

}  // namespace tarnhost
