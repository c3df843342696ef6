// Where an import puts its repository: built beside the place, moved there when it is complete.
#include "host/build/RepositoryPlace.h"

#include <algorithm>
#include <string>

#include "OOCPointCloud/repository/FileSystem.h"
#include "OOCPointCloud/support/SystemErrors.h"
#include "host/common/System.h"

namespace tarnhost {

namespace fs = std::filesystem;
namespace result = oocpc::result;

using oocpc::Failed;
using oocpc::detail::FileKind;
using oocpc::detail::GetFileKind;

namespace {

/// What the names of all folders begin with in which a repository is built for a place.
fs::path BuildingPrefix(const fs::path& place) {
  fs::path prefix = ".";
  prefix += place.filename();
  prefix += ".importing-";
  return prefix;
}

fs::path BuildingName(const fs::path& place) {
  fs::path name = BuildingPrefix(place);
  name += std::to_string(GetProcessNumber());
  return name;
}

fs::path ParentOf(const fs::path& place) {
  return place.has_parent_path() ? place.parent_path() : fs::path(".");
}

/// Whether a file in a repository's folder is one that writers of repositories make.
bool IsOwnFile(const fs::directory_entry& entry) {
  std::error_code ignored;
  if (!fs::is_regular_file(entry.symlink_status(ignored))) return false;
  const std::string name = entry.path().filename().string();
  const std::string main = OOCPCFolderStreamStore::kMainFileName;
  const std::string copy = OOCPCFolderStreamStore::kMainCopyFileName;
  return name == main || name == copy || name == main + ".new" || name == copy + ".new" ||
         name.starts_with(main + ".before-repair") ||
         name == OOCPCFolderStreamStore::kLockFileName ||
         (name.starts_with("DEF_") && OOCPCIsStreamName(name));
}

bool IsNumber(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

RepositoryPlace::RepositoryPlace(const fs::path& output)
    // Without a trailing separator, so that it has a name.
    : place_(output.has_filename() ? output : output.parent_path()),
      building_(ParentOf(place_) / BuildingName(place_)) {}

RepositoryPlace::~RepositoryPlace() {
  // What cannot be removed is left for the next import.
  if (!isCreated_) return;
  if (!oocpc::detail::kFoldersMoveWhileInUse) LetGo();
  static_cast<void>(oocpc::detail::RemoveFolder(building_));
}

void RepositoryPlace::LetGo() {
  lock_.reset();
  replaced_.reset();
}

Outcome RepositoryPlace::CheckPlace(bool overwrite) {
  if (!oocpc::detail::IsNameTaken(place_)) return Outcome::Success();
  if (!overwrite) {
    return Outcome::Failure(result::kAlreadyExists, "there already is something at that place",
                            place_.string(),
                            "choose another name, or replace a repository with --overwrite");
  }
  if (GetFileKind(place_ / OOCPCFolderStreamStore::kMainFileName) != FileKind::kFile) {
    return Outcome::Failure(result::kAlreadyExists,
                            "what is there is no repository and is not replaced", place_.string(),
                            "choose another name");
  }
  if (Outcome outcome = CheckForForeignFiles(); !outcome.Ok()) return outcome;
  replaces_ = true;
  const HRESULT locked = OOCPCFolderStreamStore::Open(place_, replaced_);
  return Failed(locked) ? Outcome::FromCode(locked, place_.string()) : Outcome::Success();
}

/// What lies in a repository's folder goes with it: nothing may that is not its own.
Outcome RepositoryPlace::CheckForForeignFiles() const {
  std::error_code error;
  for (fs::directory_iterator entry(place_, error); !error && entry != fs::directory_iterator();
       entry.increment(error)) {
    if (IsOwnFile(*entry)) continue;
    return Outcome::Failure(
        result::kAlreadyExists,
        "the folder of the repository holds something else, too, which would be "
        "lost: " +
            entry->path().filename().string(),
        place_.string(), "move it elsewhere first");
  }
  return error ? Outcome::FromCode(oocpc::ResultFromErrno(error.value()), place_.string())
               : Outcome::Success();
}

Outcome RepositoryPlace::CheckInputs(const std::vector<fs::path>& inputs) const {
  std::error_code error;
  const fs::path place = fs::weakly_canonical(place_, error);
  if (error) return Outcome::Success();  // what is wrong with the place is told elsewhere
  for (const fs::path& input : inputs) {
    const fs::path inside = fs::weakly_canonical(input, error).lexically_relative(place);
    if (error || inside.empty() || *inside.begin() == "..") continue;
    return Outcome::Failure(result::kAlreadyExists,
                            "a source lies in the place that the repository would take",
                            input.string(), "move it elsewhere, or choose another place");
  }
  return Outcome::Success();
}

/// A folder is left over when nobody holds its lock. One without a lock is one that is being made
/// right now, or, under the number of this very process, that of a process that is gone.
void RepositoryPlace::RemoveLeftovers() const {
  const std::string prefix = BuildingPrefix(place_).string();
  std::vector<fs::path> paths;
  // What cannot be listed is in nobody's way either.
  static_cast<void>(oocpc::detail::ListFolder(ParentOf(place_), paths));
  for (const fs::path& path : paths) {
    const std::string name = path.filename().string();
    if (!name.starts_with(prefix) || !IsNumber(std::string_view(name).substr(prefix.size()))) {
      continue;
    }
    const bool isLocked = oocpc::detail::IsNameTaken(path / OOCPCFolderStreamStore::kLockFileName);
    if (!isLocked && name != building_.filename()) continue;
    std::unique_ptr<OOCPCFolderStreamStore> leftover;
    if (Failed(OOCPCFolderStreamStore::Open(path, leftover))) continue;
    // What cannot be removed is in nobody's way.
    if (!oocpc::detail::kFoldersMoveWhileInUse) leftover.reset();
    static_cast<void>(oocpc::detail::RemoveFolder(path));
  }
}

Outcome RepositoryPlace::Create(bool overwrite, std::unique_ptr<OOCPCFolderStreamStore>& store) {
  if (Outcome outcome = CheckPlace(overwrite); !outcome.Ok()) return outcome;
  RemoveLeftovers();
  const HRESULT code = OOCPCFolderStreamStore::Create(building_, store);
  if (!Failed(code)) {
    isCreated_ = true;
    lock_ = store->ShareLock();
    return Outcome::Success();
  }
  if (GetFileKind(ParentOf(place_)) != FileKind::kFolder) {
    return Outcome::Failure(code, "there is no folder to make the repository in",
                            ParentOf(place_).string(),
                            "make the folder first, or choose another place");
  }
  return Outcome::FromCode(code, place_.string());
}

Outcome RepositoryPlace::FailureToMove(HRESULT code) const {
  if (code == result::kAlreadyExists) return Outcome::FromCode(code, place_.string());
  return Outcome::Failure(code, "the finished repository cannot be moved into its place",
                          place_.string(), "check the permissions of the folder");
}

Outcome RepositoryPlace::Publish() {
  // A writer that takes a lock now keeps the folder where it is: then moving it fails, and nothing
  // is lost.
  if (!oocpc::detail::kFoldersMoveWhileInUse) LetGo();
  const HRESULT moved = replaces_ ? oocpc::detail::ExchangeFolders(building_, place_)
                                  : oocpc::detail::MoveFolder(building_, place_);
  if (Failed(moved)) return FailureToMove(moved);
  // A parent that may be written but not read cannot be synced.
  const HRESULT synced = oocpc::detail::SyncFolder(ParentOf(place_));
  isCreated_ = replaces_;  // what was replaced is now where the repository was built
  if (Failed(synced) && synced != result::kAccessDenied) {
    return Outcome::Failure(synced, "the repository is complete, but not known to be durable",
                            place_.string(), "check the disk");
  }
  return Outcome::Success();
}

}  // namespace tarnhost
