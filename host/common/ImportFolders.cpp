// The hidden folders in which an import works beside its place, and what a killed one left in them.
#include "host/common/ImportFolders.h"

#include <algorithm>
#include <string>
#include <string_view>

#include "OOCPointCloud/repository/FileSystem.h"
#include "host/common/System.h"

namespace tarnhost {

namespace fs = std::filesystem;

namespace {

/// Without a trailing separator, so that it has a name.
fs::path Named(const fs::path& place) { return place.has_filename() ? place : place.parent_path(); }

fs::path ParentOf(const fs::path& place) {
  const fs::path parent = Named(place).parent_path();
  return parent.empty() ? fs::path(".") : parent;
}

/// What the names of all folders of a place begin with.
fs::path PrefixOf(const fs::path& place) {
  fs::path prefix = ".";
  prefix += Named(place).filename();
  prefix += ".importing-";
  return prefix;
}

bool IsNumber(std::string_view text) {
  return !text.empty() && std::ranges::all_of(text, [](char c) { return c >= '0' && c <= '9'; });
}

bool IsSetAside(std::string_view name) { return name.ends_with(oocpc::detail::kAsideEnding); }

}  // namespace

fs::path BuildingFolderOf(const fs::path& place) {
  fs::path name = PrefixOf(place);
  name += std::to_string(GetProcessNumber());
  return ParentOf(place) / name;
}

std::vector<fs::path> ListImportFolders(const fs::path& place) {
  const std::string prefix = PrefixOf(place).string();
  std::vector<fs::path> paths;
  // What cannot be listed is in nobody's way either.
  static_cast<void>(oocpc::detail::ListFolder(ParentOf(place), paths));
  std::erase_if(paths, [&](const fs::path& path) {
    const std::string name = path.filename().string();
    std::string_view rest = name;
    if (!rest.starts_with(prefix)) return true;
    rest.remove_prefix(prefix.size());
    if (IsSetAside(rest)) rest.remove_suffix(oocpc::detail::kAsideEnding.size());
    return !IsNumber(rest);
  });
  return paths;
}

fs::path FindSetAside(const fs::path& place) {
  if (oocpc::detail::IsNameTaken(place)) return {};
  const std::vector<fs::path> folders = ListImportFolders(place);
  const auto found = std::ranges::find_if(
      folders, [](const fs::path& folder) { return IsSetAside(folder.filename().string()); });
  return found == folders.end() ? fs::path() : *found;
}

Outcome PutBackSetAside(const fs::path& place) {
  const fs::path found = FindSetAside(place);
  if (found.empty()) return Outcome::Success();
  const HRESULT code = oocpc::detail::MoveFolder(found, place);
  return oocpc::Failed(code) ? Outcome::FromCode(code, found.string()) : Outcome::Success();
}

}  // namespace tarnhost
