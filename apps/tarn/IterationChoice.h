// Which iteration of a cloud a command reads: --iteration or --at.
#pragma once

#include <CLI/CLI.hpp>
#include <cstdint>
#include <optional>
#include <string>

#include "host/cloud/Cloud.h"

namespace tarnapp {

/// What the command line says of it; nothing means the newest one.
struct IterationChoice {
  std::optional<std::uint64_t> iteration;
  std::string at;

  [[nodiscard]] bool IsGiven() const { return iteration.has_value() || !at.empty(); }
};

/// Adds the two options, which exclude each other. `choice` has to outlive the parsing.
void AddIterationOptions(CLI::App& command, IterationChoice& choice);

/// Finds the iteration that was chosen, and leaves the cloud the sources of its points only.
tarnhost::Outcome ChooseIteration(tarnhost::Cloud& cloud, const IterationChoice& choice,
                                  std::uint64_t& iteration);

}  // namespace tarnapp
