// Makes a repository out of scans.
#include "host/build/Import.h"

#include <unistd.h>

#include <new>

#include "host/build/RepositoryBuilder.h"
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

/// A folder that is removed again unless it was kept.
class TemporaryFolderOwner {
 public:
  explicit TemporaryFolderOwner(fs::path folder) : folder_(std::move(folder)) {}
  TemporaryFolderOwner(const TemporaryFolderOwner&) = delete;
  TemporaryFolderOwner& operator=(const TemporaryFolderOwner&) = delete;
  ~TemporaryFolderOwner() {
    std::error_code ignored;
    if (!folder_.empty()) fs::remove_all(folder_, ignored);
  }
  void Keep() { folder_.clear(); }

 private:
  fs::path folder_;
};

/// The output's path without a trailing separator, so that it has a name.
fs::path PlaceOf(const fs::path& output) {
  return output.has_filename() ? output : output.parent_path();
}

fs::path Beside(const fs::path& place, const char* purpose) {
  fs::path beside = place;
  beside.replace_filename("." + place.filename().string() + "." + purpose + "-" +
                          std::to_string(::getpid()));
  return beside;
}

Outcome CheckPlace(const fs::path& place, bool overwrite) {
  std::error_code ignored;
  if (!fs::exists(fs::symlink_status(place, ignored))) return Outcome::Success();
  if (!overwrite) {
    return Outcome::Failure(result::kAlreadyExists, "there already is something at that place",
                            place.string(),
                            "choose another name, or replace a repository with --overwrite");
  }
  if (!fs::is_regular_file(place / OOCPCFolderStreamStore::kMainFileName, ignored)) {
    return Outcome::Failure(result::kAlreadyExists,
                            "what is there is no repository and is not replaced", place.string(),
                            "choose another name");
  }
  return Outcome::Success();
}

Outcome MoveIntoPlace(const fs::path& built, const fs::path& place) {
  std::error_code error;
  const fs::path former = Beside(place, "replaced");
  const bool replaces = fs::exists(place, error);
  if (replaces) fs::rename(place, former, error);
  if (!error) fs::rename(built, place, error);
  if (error) {
    Outcome outcome = Outcome::Failure(
        result::kIoError,
        "the finished repository cannot be moved into its place: " + error.message(),
        place.string(), "check the permissions of the folder");
    if (replaces && !fs::exists(place, error)) fs::rename(former, place, error);
    return outcome;
  }
  if (replaces) fs::remove_all(former, error);
  return Outcome::Success();
}

Outcome ImportChecked(const ImportOptions& options, ImportReport& report) {
  const fs::path place = PlaceOf(options.output);
  if (Outcome outcome = CheckPlace(place, options.overwrite); !outcome.Ok()) return outcome;
  const fs::path building = Beside(place, "importing");
  std::unique_ptr<OOCPCFolderStreamStore> store;
  const HRESULT code = OOCPCFolderStreamStore::Create(building, store);
  if (oocpc::Failed(code)) {
    std::error_code ignored;
    const fs::path parent = place.has_parent_path() ? place.parent_path() : fs::path(".");
    if (!fs::is_directory(parent, ignored)) {
      return Outcome::Failure(code, "there is no folder to make the repository in", parent.string(),
                              "make the folder first, or choose another place");
    }
    return Outcome::FromCode(code, place.string());
  }
  TemporaryFolderOwner owner(building);
  if (Outcome outcome = ImportIntoStore(options, std::move(store), building, report);
      !outcome.Ok()) {
    return outcome;
  }
  if (Outcome outcome = MoveIntoPlace(building, place); !outcome.Ok()) return outcome;
  owner.Keep();
  return Outcome::Success();
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
