// Finds out why a repository cannot be opened.
#pragma once

#include <span>
#include <vector>

#include "host/cloud/Verify.h"

namespace tarnhost {

/// What is wrong with a repository that gave `failure` when it was opened; at least one fault.
/// Looks at the main stream, at the streams it lists, the dictionary and the sources, and no
/// further.
std::vector<Fault> FindOpeningFaults(OOCPCStreamRepository& repository, const Outcome& failure);

/// Where the string behind the one at `at` begins in the bytes of a dictionary; `at` itself when
/// that one is not sound.
[[nodiscard]] std::size_t FindNextString(std::span<const std::uint8_t> bytes, std::size_t at);

}  // namespace tarnhost
