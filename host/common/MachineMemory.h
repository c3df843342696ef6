// How much memory the machine has.
#pragma once

#include <cstdint>

namespace tarnhost {

/// A quarter of the machine's memory, in bytes: what work takes at most where nothing else is said.
[[nodiscard]] std::uint64_t QuarterOfMachineMemory();

}  // namespace tarnhost
