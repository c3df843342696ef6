// Lets tests make changes to files without a name fail, as they do with those of repositories.
#pragma once

#include <filesystem>
#include <span>

#include "OOCPointCloud/repository/FileSystem.h"

namespace tarnhost {

using FileChangeKind = oocpc::detail::FileChange::Kind;

/// Asks before a change to a temporary file, which `path` stands for; a failure is one of the
/// change. What of it would be done all the same does not matter: nobody sees the file then.
[[nodiscard]] inline HRESULT AskBefore(FileChangeKind kind, const std::filesystem::path& path,
                                       std::span<const std::uint8_t> bytes = {}) {
  std::size_t written = 0;
  return oocpc::detail::AskFileWatcher({kind, path, {}, bytes}, written);
}

}  // namespace tarnhost
