// How the program tells what is wrong with a repository.
#pragma once

#include <nlohmann/json.hpp>
#include <span>

#include "host/cloud/Verify.h"

namespace tarnapp {

/// One line a fault, on standard error.
void PrintFaultLines(std::span<const tarnhost::Fault> faults);
nlohmann::json FaultsJson(std::span<const tarnhost::Fault> faults);

}  // namespace tarnapp
