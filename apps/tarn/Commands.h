// The subcommands of tarn: each adds itself to the command line and leaves behind what to run.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

#include "apps/tarn/Arguments.h"

namespace tarnapp {

/// Runs the subcommand that was chosen and gives the exit code.
using Action = std::function<int()>;

void AddImport(CLI::App& app, Action& action);
void AddAppend(CLI::App& app, Action& action);
void AddInfo(CLI::App& app, Action& action);
void AddQuery(CLI::App& app, Action& action);
void AddExport(CLI::App& app, Action& action);
void AddThin(CLI::App& app, Action& action);
void AddRender(CLI::App& app, Action& action);
void AddIterations(CLI::App& app, Action& action);
void AddVerify(CLI::App& app, Action& action);
void AddRepair(CLI::App& app, Action& action);
void AddSynthesize(CLI::App& app, Action& action);

}  // namespace tarnapp
