// Makes a repository out of scans.
#include "host/build/Import.h"

#include <new>

#include "host/build/CoordinateSystems.h"
#include "host/build/GpsTimes.h"
#include "host/build/RepositoryBuilder.h"
#include "host/build/RepositoryPlace.h"
#include "host/build/ScanInputs.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

Outcome ImportChecked(const ImportOptions& options, ImportReport& report) {
  RepositoryPlace place(options.output);
  if (Outcome outcome = place.CheckInputs(options.inputs); !outcome.Ok()) return outcome;
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
  std::vector<std::unique_ptr<ScanFile>> scans;
  if (Outcome outcome = OpenScans(options, temporaryFolder, scans, report); !outcome.Ok())
    return outcome;
  TellOfOtherSystems(options, {}, scans);
  TellOfOtherTimes(options, {}, scans);
  PointSet points;
  if (Outcome outcome = JoinScans(options, std::move(scans), points); !outcome.Ok()) return outcome;
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
