// The hidden folders in which an import works beside its place, and what a killed one left in them.
#pragma once

#include <filesystem>
#include <vector>

#include "host/common/Outcome.h"

namespace tarnhost {

/// The folder in which this process builds a repository for a place: ".NAME.importing-PID".
[[nodiscard]] std::filesystem::path BuildingFolderOf(const std::filesystem::path& place);

/// The folders of that kind that are there, of whichever process; and, where the system lets two
/// folders change their names in steps only, those that what is replaced bears in between.
[[nodiscard]] std::vector<std::filesystem::path> ListImportFolders(
    const std::filesystem::path& place);

/// The repository that an import was about to replace when it was killed in between two such steps;
/// empty when something is at the place, or there is none.
[[nodiscard]] std::filesystem::path FindSetAside(const std::filesystem::path& place);

/// Puts such a repository back, if there is one.
[[nodiscard]] Outcome PutBackSetAside(const std::filesystem::path& place);

}  // namespace tarnhost
