// What the commands that write a repository have in common.
#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "host/build/Import.h"

namespace tarnapp {

struct BuildArguments {
  tarnhost::ImportOptions options;
  std::vector<std::string> scans;
  std::string repository;
  std::string time;
  std::string memory;
  bool quiet = false;
};

/// Adds the scans. `arguments` has to outlive the parsing.
void AddScans(CLI::App& command, BuildArguments& arguments);
/// Adds --columns, --separator and --skip.
void AddScanOptions(CLI::App& command, tarnhost::ScanOptions& options);
/// Adds --memory, --time and --quiet.
void AddBuildOptions(CLI::App& command, BuildArguments& arguments);
/// Puts what was parsed into the options.
void FillOptions(BuildArguments& arguments);
/// "3 scans (1.2 GB)".
std::string ScansText(const tarnhost::ImportReport& report);

}  // namespace tarnapp
