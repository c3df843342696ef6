// Small things in the way of POSIX systems.
#if !defined(_WIN32)

#include <unistd.h>

#include <algorithm>

#include "host/common/System.h"

namespace tarnhost {

std::filesystem::path PathOf(std::string_view text) { return text; }

std::uint64_t GetProcessNumber() { return static_cast<std::uint64_t>(::getpid()); }

std::uint64_t GetMachineMemoryBytes() {
  const auto pages = static_cast<std::uint64_t>(std::max(0L, ::sysconf(_SC_PHYS_PAGES)));
  return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

std::FILE* OpenForWriting(const std::filesystem::path& path) {
  return std::fopen(path.c_str(), "wb");
}

bool SeekTo(std::FILE* file, std::uint64_t offsetBytes) {
  return ::fseeko(file, static_cast<off_t>(offsetBytes), SEEK_SET) == 0;
}

}  // namespace tarnhost

#endif
