// Shows how far a long operation is, and stops it when the user asks to.
#pragma once

#include <chrono>
#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>

#include "host/common/Outcome.h"

namespace tarnapp {

/// Installs the handler of the interrupt signal; the first one asks the running operation to stop.
void StopOnInterrupt();

/// A progress callback for an operation: on a terminal a line that is rewritten, with points a
/// second and time left; elsewhere a line a stage; nothing when quiet.
std::function<bool(const tarnhost::ProgressReport&)> ShowProgress(bool quiet);
/// Says how much temporary disk an import is going to take, and where.
std::function<void(std::uint64_t, const std::filesystem::path&)> ShowTemporaryDisk(bool quiet);

}  // namespace tarnapp
