// Makes a repository out of scans.
#include "host/build/Import.h"

#include <new>

#include "host/build/RepositoryBuilder.h"
#include "host/build/RepositoryPlace.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

namespace fs = std::filesystem;
namespace result = oocpc::result;

namespace {

Outcome OpenScans(const ImportOptions& options, PointSet& points, ImportReport& report) {
  std::vector<std::unique_ptr<ScanFile>> scans;
  for (const fs::path& input : options.inputs) {
    std::unique_ptr<ScanFile> scan;
    if (Outcome outcome = OpenScan(input, scan); !outcome.Ok()) return outcome;
    std::error_code ignored;
    report.sourceBytes += fs::file_size(input, ignored);
    scans.push_back(std::move(scan));
  }
  if (scans.empty()) {
    return Outcome::Failure(result::kScanNotRecognised, "no scan was named", {},
                            "name at least one LAS file");
  }
  return PointSet::Join(std::move(scans), points);
}

Outcome ImportChecked(const ImportOptions& options, ImportReport& report) {
  RepositoryPlace place(options.output);
  std::unique_ptr<OOCPCFolderStreamStore> store;
  if (Outcome outcome = place.Create(options.overwrite, store); !outcome.Ok()) return outcome;
  if (Outcome outcome =
          ImportIntoStore(options, std::move(store), place.GetBuildingFolder(), report);
      !outcome.Ok()) {
    return outcome;
  }
  return place.Publish();
}

}  // namespace

Outcome ImportIntoStore(const ImportOptions& options, std::unique_ptr<OOCPCIStreamStore> store,
                        const std::filesystem::path& temporaryFolder, ImportReport& report) {
  report = {};
  PointSet points;
  if (Outcome outcome = OpenScans(options, points, report); !outcome.Ok()) return outcome;
  OOCPCRepositoryWriter writer(std::move(store));
  return RepositoryBuilder(points, options, temporaryFolder, writer).Run(report);
}

Outcome ImportScans(const ImportOptions& options, ImportReport& report) {
  try {
    return ImportChecked(options, report);
  } catch (const std::bad_alloc&) {
    return Outcome::FromCode(result::kOutOfMemory);
  } catch (const std::exception& error) {
    return Outcome::Failure(result::kIoError, error.what(), options.output.string());
  }
}

}  // namespace tarnhost
