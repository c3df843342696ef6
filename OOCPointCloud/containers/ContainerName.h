// Which names a chunk may give a container.
#pragma once

#include <string_view>

namespace oocpc {

/// Names are handed out NUL-terminated, so a NUL inside would cut them; an empty one names nothing.
[[nodiscard]] inline bool IsContainerName(std::string_view name) {
  return !name.empty() && name.find('\0') == std::string_view::npos;
}

}  // namespace oocpc
