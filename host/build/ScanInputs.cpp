// Opens the scans that an import or an append names.
#include "host/build/ScanInputs.h"

#include <filesystem>
#include <utility>

namespace tarnhost {

Outcome OpenScans(const ImportOptions& options, std::vector<std::unique_ptr<ScanFile>>& scans,
                  ImportReport& report) {
  for (const std::filesystem::path& input : options.inputs) {
    std::unique_ptr<ScanFile> scan;
    if (Outcome outcome = OpenScan(input, options.scanOptions, scan); !outcome.Ok()) return outcome;
    std::error_code ignored;
    report.sourceBytes += std::filesystem::file_size(input, ignored);
    for (const std::string& notice : scan->GetNotices()) {
      report.notices.push_back(input.string() + ": " + notice);
    }
    scans.push_back(std::move(scan));
  }
  if (!scans.empty()) return Outcome::Success();
  return Outcome::Failure(oocpc::result::kScanNotRecognised, "no scan was named", {},
                          "name at least one scan file");
}

}  // namespace tarnhost
