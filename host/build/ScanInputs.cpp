// Finds and opens the scans that an import or an append names.
#include "host/build/ScanInputs.h"

#include <OOCPointCloud/StreamStore.h>

#include <algorithm>
#include <utility>

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/build/AdaptedScan.h"
#include "host/build/NewStrings.h"
#include "host/build/PointLayout.h"
#include "host/build/RepositoryBuilder.h"

namespace tarnhost {

namespace fs = std::filesystem;
namespace result = oocpc::result;
using oocpc::detail::FileKind;
using oocpc::detail::GetFileKind;

namespace {

Outcome NoScansIn(const fs::path& folder) {
  if (GetFileKind(folder / OOCPCFolderStreamStore::kMainFileName) == FileKind::kFile) {
    return Outcome::Failure(result::kScanNotRecognised,
                            "this is a repository, not a folder of scans", folder.string(),
                            "write it into a scan with tarn export first");
  }
  return Outcome::Failure(result::kScanNotRecognised, "the folder holds no scan", folder.string(),
                          "name the files themselves, or a folder right below it that holds them");
}

/// Appends the scans of a folder.
Outcome ListFolder(const fs::path& folder, std::vector<fs::path>& files) {
  std::vector<fs::path> found;
  const HRESULT listed = oocpc::detail::ListFolder(folder, found);
  if (oocpc::Failed(listed)) return Outcome::FromCode(listed, folder.string());
  std::erase_if(found, [](const fs::path& path) {
    const std::string name = path.filename().string();
    return name.starts_with('.') || !HasScanEnding(name) || GetFileKind(path) == FileKind::kFolder;
  });
  if (found.empty()) return NoScansIn(folder);
  std::ranges::sort(found, {}, [](const fs::path& path) { return path.filename().string(); });
  files.insert(files.end(), found.begin(), found.end());
  return Outcome::Success();
}

/// Readers keep these names free where a file could state them.
Outcome CheckTagNames(const ScanFile& scan, const ScanTags& tags) {
  for (const Dimension& dimension : DimensionsOf(tags)) {
    if (std::ranges::find(scan.GetDimensions(), dimension.name, &Dimension::name) ==
        scan.GetDimensions().end()) {
      continue;
    }
    return Outcome::Failure(
        result::kScansDiffer,
        "it has a dimension of the name that its file is kept under, " + dimension.name,
        scan.GetPath().string(), "import it into a repository of its own");
  }
  return Outcome::Success();
}

/// Gives scans of several layouts the one that holds them all.
Outcome AdaptScans(std::vector<ScanTags>& tags, NewStrings& strings,
                   std::vector<std::unique_ptr<ScanFile>>& scans) {
  PointLayout layout;
  if (Outcome outcome = FindCommonLayout(scans, layout); !outcome.Ok()) return outcome;
  for (Dimension& dimension : DimensionsOf(tags.front())) {
    layout.dimensions.push_back(std::move(dimension));
  }
  for (std::size_t i = 0; i < scans.size(); ++i) {
    if (LacksTexts(*scans[i], layout.dimensions)) tags[i].emptyText = strings.NumberOf({});
    std::unique_ptr<ScanFile> adapted;
    Outcome outcome = AdaptScan(std::move(scans[i]), layout, tags[i], adapted);
    if (!outcome.Ok()) return outcome;
    scans[i] = std::move(adapted);
  }
  return Outcome::Success();
}

/// Tells of files that are named more than once.
void WarnOfRepeats(const ImportOptions& options, const std::vector<fs::path>& files) {
  if (!options.notice) return;
  std::set<fs::path> seen;
  for (const fs::path& file : files) {
    fs::path place;
    if (!oocpc::Failed(oocpc::detail::ResolvePath(file, place)) && !seen.insert(place).second) {
      options.notice(file.string() + " is named more than once; its points are, too");
    }
  }
}

}  // namespace

Outcome ListScans(const std::vector<fs::path>& inputs, std::vector<fs::path>& files) {
  for (const fs::path& input : inputs) {
    if (GetFileKind(input) != FileKind::kFolder) {
      files.push_back(input);
    } else if (Outcome outcome = ListFolder(input, files); !outcome.Ok()) {
      return outcome;
    }
  }
  if (!files.empty()) return Outcome::Success();
  return Outcome::Failure(result::kScanNotRecognised, "no scan was named", {},
                          "name at least one scan file");
}

std::string NameSource(const fs::path& path, std::set<std::string>& taken) {
  std::string name = path.filename().string();
  if (taken.insert(name).second) return name;
  std::error_code ignored;
  const std::string folder = fs::absolute(path, ignored).parent_path().filename().string();
  if (!folder.empty() && taken.insert(folder + "/" + name).second) return folder + "/" + name;
  for (std::size_t i = 2;; ++i) {
    std::string numbered = name + " (" + std::to_string(i) + ")";
    if (taken.insert(numbered).second) return numbered;
  }
}

Outcome JoinScans(const ImportOptions& options, std::vector<std::unique_ptr<ScanFile>> scans,
                  PointSet& set) {
  const bool namesSources = options.nameSources || scans.size() > 1;
  std::vector<ScanTags> tags;
  NewStrings strings;
  std::set<std::string> taken;
  std::uint64_t points = 0;
  for (const auto& scan : scans) {
    ScanTags& tag = tags.emplace_back();
    if (namesSources) tag.source = strings.NumberOf(NameSource(scan->GetPath(), taken));
    if (options.keepOrder) tag.firstIndex = points;
    points += scan->GetPointCount();
    if (Outcome outcome = CheckTagNames(*scan, tag); !outcome.Ok()) return outcome;
  }
  for (const auto& scan : scans) strings.NumberThoseOf(*scan);
  if (std::ranges::all_of(scans, [&](const auto& s) { return HaveOneLayout(*scans[0], *s); })) {
    for (std::size_t i = 0; i < scans.size(); ++i) scans[i] = TagScan(std::move(scans[i]), tags[i]);
  } else if (Outcome outcome = AdaptScans(tags, strings, scans); !outcome.Ok()) {
    return outcome;
  }
  set.SetNewStrings(strings.Take());
  return PointSet::Join(std::move(scans), set);
}

Outcome OpenScans(const ImportOptions& options, const std::filesystem::path& temporaryFolder,
                  std::vector<std::unique_ptr<ScanFile>>& scans, ImportReport& report) {
  ScanOptions scanOptions = options.scanOptions;
  scanOptions.progress = options.progress;
  scanOptions.memoryBytes = MemoryFor(options) / 2;
  scanOptions.temporaryFolder = temporaryFolder;
  std::vector<fs::path> files;
  if (Outcome outcome = ListScans(options.inputs, files); !outcome.Ok()) return outcome;
  for (const fs::path& file : files) {
    std::unique_ptr<ScanFile> scan;
    if (Outcome outcome = OpenScan(file, scanOptions, scan); !outcome.Ok()) return outcome;
    std::uint64_t bytes = 0;
    const HRESULT measured = oocpc::detail::GetFileLength(file, bytes);
    if (oocpc::Failed(measured)) return Outcome::FromCode(measured, file.string());
    report.sourceBytes += bytes;
    for (const std::string& notice : scan->GetNotices()) {
      if (options.notice) options.notice(file.string() + ": " + notice);
    }
    scans.push_back(std::move(scan));
  }
  WarnOfRepeats(options, files);
  report.scanCount = scans.size();
  return Outcome::Success();
}

}  // namespace tarnhost
