// Where an import puts its repository: built beside the place, moved there when it is complete.
#include "host/build/RepositoryPlace.h"

#include <algorithm>
#include <string>

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/common/ImportFolders.h"

namespace tarnhost {

namespace fs = std::filesystem;
namespace result = oocpc::result;

using oocpc::Failed;
using oocpc::detail::FileKind;
using oocpc::detail::GetFileKind;

namespace {

fs::path ParentOf(const fs::path& place) {
  return place.has_parent_path() ? place.parent_path() : fs::path(".");
}

/// Whether a file in a repository's folder is one that writers of repositories make.
bool IsOwnFile(const fs::path& path) {
  if (oocpc::detail::GetOwnKind(path) != FileKind::kFile) return false;
  const std::string name = path.filename().string();
  const std::string main = OOCPCFolderStreamStore::kMainFileName;
  const std::string copy = OOCPCFolderStreamStore::kMainCopyFileName;
  return name == main || name == copy || name == main + ".new" || name == copy + ".new" ||
         name.starts_with(main + ".before-repair") ||
         name == OOCPCFolderStreamStore::kLockFileName ||
         (name.starts_with("DEF_") && OOCPCIsStreamName(name));
}

}  // namespace

RepositoryPlace::RepositoryPlace(const fs::path& output)
    // Without a trailing separator, so that it has a name.
    : place_(output.has_filename() ? output : output.parent_path()),
      building_(BuildingFolderOf(place_)) {}

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
  std::vector<fs::path> paths;
  const HRESULT listed = oocpc::detail::ListFolder(place_, paths);
  if (Failed(listed)) return Outcome::FromCode(listed, place_.string());
  for (const fs::path& path : paths) {
    if (IsOwnFile(path)) continue;
    return Outcome::Failure(
        result::kAlreadyExists,
        "the folder of the repository holds something else, too, which would be "
        "lost: " +
            path.filename().string(),
        place_.string(), "move it elsewhere first");
  }
  return Outcome::Success();
}

Outcome RepositoryPlace::CheckInputs(const std::vector<fs::path>& inputs) const {
  fs::path place;
  // What is wrong with the place, or with an input, is told elsewhere.
  if (Failed(oocpc::detail::ResolvePath(place_, place))) return Outcome::Success();
  for (const fs::path& input : inputs) {
    fs::path resolved;
    if (Failed(oocpc::detail::ResolvePath(input, resolved))) continue;
    const fs::path inside = resolved.lexically_relative(place);
    if (inside.empty() || *inside.begin() == "..") continue;
    return Outcome::Failure(result::kAlreadyExists,
                            "a source lies in the place that the repository would take",
                            input.string(), "move it elsewhere, or choose another place");
  }
  return Outcome::Success();
}

/// A folder is left over when nobody holds its lock. One without a lock is one that is being made
/// right now, or, under the number of this very process, that of a process that is gone.
void RepositoryPlace::RemoveLeftovers() const {
  for (const fs::path& path : ListImportFolders(place_)) {
    const bool isLocked = oocpc::detail::IsNameTaken(path / OOCPCFolderStreamStore::kLockFileName);
    if (!isLocked && path.filename() != building_.filename()) continue;
    std::unique_ptr<OOCPCFolderStreamStore> leftover;
    if (Failed(OOCPCFolderStreamStore::Open(path, leftover))) continue;
    // What cannot be removed is in nobody's way.
    if (!oocpc::detail::kFoldersMoveWhileInUse) leftover.reset();
    static_cast<void>(oocpc::detail::RemoveFolder(path));
  }
}

Outcome RepositoryPlace::Create(bool overwrite, std::unique_ptr<OOCPCFolderStreamStore>& store) {
  if (Outcome outcome = PutBackSetAside(place_); !outcome.Ok()) return outcome;
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
