// How much memory the machine has.
#include "host/common/MachineMemory.h"

#include <unistd.h>

#include <algorithm>

namespace tarnhost {

std::uint64_t QuarterOfMachineMemory() {
  const auto pages = static_cast<std::uint64_t>(std::max(0L, ::sysconf(_SC_PHYS_PAGES)));
  return pages * static_cast<std::uint64_t>(::sysconf(_SC_PAGESIZE)) / 4;
}

}  // namespace tarnhost
