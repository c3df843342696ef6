// Small things in the way of POSIX systems.
#if !defined(_WIN32)

#include <unistd.h>

#include <algorithm>
#include <thread>
#if defined(__GLIBC__)
#include <malloc.h>
#endif

#include "host/common/System.h"

namespace tarnhost {

std::filesystem::path PathOf(std::string_view text) { return text; }

std::uint64_t GetProcessNumber() { return static_cast<std::uint64_t>(::getpid()); }

std::uint64_t GetMachineMemoryBytes() {
  const auto pages = static_cast<std::uint64_t>(std::max(0L, ::sysconf(_SC_PHYS_PAGES)));
  return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE));
}

void KeepLittleFreedMemory() {
#if defined(__GLIBC__)
  // By itself it raises these with use, to tens of megabytes for each of an arena per thread.
  constexpr int kKeptBytes = 1 << 20;
  constexpr int kMostArenas = 4;
  // With fewer threads it is not worth the fifth of an import's time that it costs.
  if (std::thread::hardware_concurrency() <= kMostArenas) return;
  ::mallopt(M_MMAP_THRESHOLD, kKeptBytes);
  ::mallopt(M_TRIM_THRESHOLD, kKeptBytes);
  ::mallopt(M_ARENA_MAX, kMostArenas);
#endif
}

std::FILE* OpenForWriting(const std::filesystem::path& path) {
  return std::fopen(path.c_str(), "wb");
}

bool SeekTo(std::FILE* file, std::uint64_t offsetBytes) {
  return ::fseeko(file, static_cast<off_t>(offsetBytes), SEEK_SET) == 0;
}

}  // namespace tarnhost

#endif
