// Runs the independent readers of tests/node, where node and its packages are installed.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <string>

namespace oocpctest {

inline std::filesystem::path NodeFolder() {
  return std::filesystem::path(TESTS_SOURCE_DIR) / "node";
}

/// False where scripts/setup.sh --tests could not install them.
inline bool HasNodeReaders() {
  return std::filesystem::exists(NodeFolder() / "node_modules" / "copc") &&
         std::filesystem::exists(NodeFolder() / "node_modules" / "laz-perf") &&
         std::system("node --version >/dev/null 2>&1") == 0;
}

/// True when the script came to its end.
inline bool RunNodeReader(const std::string& script,
                          const std::vector<std::filesystem::path>& arguments) {
  std::string command = "timeout 300 node '" + (NodeFolder() / script).string() + "'";
  for (const auto& argument : arguments) command += " '" + argument.string() + "'";
  return std::system((command + " >/dev/null").c_str()) == 0;
}

}  // namespace oocpctest
