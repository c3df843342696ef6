// Finds and opens the scans that an import or an append names.
#pragma once

#include <filesystem>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "host/build/Import.h"
#include "host/build/PointSet.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// The scan files that inputs name, in the order of the inputs: a file is itself; a folder stands
/// for the files right in it that have the ending of a scan, in the order of their names, less
/// hidden ones. kScanNotRecognised for no inputs and for a folder without scans; kAccessDenied,
/// kIoError.
Outcome ListScans(const std::vector<std::filesystem::path>& inputs,
                  std::vector<std::filesystem::path>& files);

/// Opens all scans that the inputs name; tells the report how many there are and the sizes of their
/// files. `temporaryFolder` is for what does not fit into memory meanwhile. The errors of ListScans
/// and of opening; kStopped.
Outcome OpenScans(const ImportOptions& options, const std::filesystem::path& temporaryFolder,
                  std::vector<std::unique_ptr<ScanFile>>& scans, ImportReport& report);

/// A name for a source: that of its file; if that is taken, with its folder; if that is taken, too,
/// with a number. It is taken then.
[[nodiscard]] std::string NameSource(const std::filesystem::path& path,
                                     std::set<std::string>& taken);

/// Makes one set of scans, which it takes over. Where their layouts differ it is the common one
/// (see FindCommonLayout). With the names of their files and their places as the options say.
/// kScansDiffer.
Outcome JoinScans(const ImportOptions& options, std::vector<std::unique_ptr<ScanFile>> scans,
                  PointSet& set);

}  // namespace tarnhost
