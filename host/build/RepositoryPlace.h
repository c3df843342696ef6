// Where an import puts its repository: built beside the place, moved there when it is complete.
#pragma once

#include <OOCPointCloud/StreamStore.h>

#include <filesystem>
#include <memory>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// The place of a repository to be made. Whatever happens before Publish ends, what was there
/// before is there still. Used by one thread.
///
/// The repository is built in a hidden folder beside its place, ".NAME.importing-PID", and appears
/// in one step. An import that was killed leaves such a folder; the next one into the same place
/// removes it. Where the system exchanges folders in steps only, an import that was killed between
/// them leaves the repository that it was to replace aside: the next one puts it back first.
class RepositoryPlace {
 public:
  explicit RepositoryPlace(const std::filesystem::path& output);
  RepositoryPlace(const RepositoryPlace&) = delete;
  RepositoryPlace& operator=(const RepositoryPlace&) = delete;
  /// Removes what was built and not published.
  ~RepositoryPlace();

  /// Makes the folder to build in and opens its store. kAlreadyExists when there is something at
  /// the place, unless `overwrite` is set and it is a repository and nothing else; kBeingWritten
  /// when a writer is at work in that one.
  Outcome Create(bool overwrite, std::unique_ptr<OOCPCFolderStreamStore>& store);
  /// kAlreadyExists when an input lies at the place or below it: it would be replaced.
  [[nodiscard]] Outcome CheckInputs(const std::vector<std::filesystem::path>& inputs) const;
  [[nodiscard]] const std::filesystem::path& GetBuildingFolder() const { return building_; }
  /// Moves the repository into its place, durably. The store must be gone.
  Outcome Publish();

 private:
  Outcome CheckPlace(bool overwrite);
  [[nodiscard]] Outcome CheckForForeignFiles() const;
  void RemoveLeftovers() const;
  void LetGo();
  [[nodiscard]] Outcome FailureToMove(HRESULT code) const;

  std::filesystem::path place_;
  std::filesystem::path building_;
  bool isCreated_ = false;
  bool replaces_ = false;
  std::shared_ptr<const void> lock_;                  ///< of the folder that is built
  std::unique_ptr<OOCPCFolderStreamStore> replaced_;  ///< keeps writers off what is replaced
};

}  // namespace tarnhost
