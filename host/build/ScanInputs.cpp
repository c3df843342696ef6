// Opens the scans that an import or an append names.
#include "host/build/ScanInputs.h"

#include <filesystem>
#include <utility>

#include "OOCPointCloud/repository/FileSystem.h"

namespace tarnhost {

Outcome OpenScans(const ImportOptions& options, std::vector<std::unique_ptr<ScanFile>>& scans,
                  ImportReport& report) {
  for (const std::filesystem::path& input : options.inputs) {
    std::unique_ptr<ScanFile> scan;
    if (Outcome outcome = OpenScan(input, scan); !outcome.Ok()) return outcome;
    std::uint64_t bytes = 0;
    const HRESULT measured = oocpc::detail::GetFileLength(input, bytes);
    if (oocpc::Failed(measured)) return Outcome::FromCode(measured, input.string());
    report.sourceBytes += bytes;
    scans.push_back(std::move(scan));
  }
  if (!scans.empty()) return Outcome::Success();
  return Outcome::Failure(oocpc::result::kScanNotRecognised, "no scan was named", {},
                          "name at least one LAS or LAZ file");
}

}  // namespace tarnhost
