// The subcommands of tarn: each adds itself to the command line and leaves behind what to run.
#pragma once

#include <CLI/CLI.hpp>
#include <functional>

namespace tarnapp {

/// Runs the subcommand that was chosen and gives the exit code.
using Action = std::function<int()>;

/// Refuses an empty name on the command line.
CLI::Validator IsNamed();
/// Refuses what is no natural number of 64 bits, a sign included.
CLI::Validator IsWholeNumber();

void AddImport(CLI::App& app, Action& action);
void AddInfo(CLI::App& app, Action& action);
void AddQuery(CLI::App& app, Action& action);
void AddExport(CLI::App& app, Action& action);
void AddIterations(CLI::App& app, Action& action);
void AddVerify(CLI::App& app, Action& action);
void AddSynthesize(CLI::App& app, Action& action);

}  // namespace tarnapp
