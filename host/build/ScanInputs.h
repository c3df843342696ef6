// Opens the scans that an import or an append names.
#pragma once

#include <memory>
#include <vector>

#include "host/build/Import.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Opens all inputs; adds the sizes of their files to the report. kScanNotRecognised when none is
/// named, and the errors of opening.
Outcome OpenScans(const ImportOptions& options, std::vector<std::unique_ptr<ScanFile>>& scans,
                  ImportReport& report);

}  // namespace tarnhost
