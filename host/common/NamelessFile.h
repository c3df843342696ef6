// Opens files that no name leads to.
#pragma once

#include <filesystem>

namespace tarnhost {

/// A file below `folder` for reading and writing, which is gone when it is closed, however the
/// process ends. Gives its descriptor, which the caller closes, or -1 with `errno` set.
[[nodiscard]] int OpenNamelessFile(const std::filesystem::path& folder);

}  // namespace tarnhost
