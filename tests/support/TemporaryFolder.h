// A folder that is gone, with everything in it, when the test is over.
#pragma once

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <string>
#include <system_error>
#include <vector>

#include "tests/support/System.h"

namespace oocpctest {

class TemporaryFolder {
 public:
  TemporaryFolder() : path_(MakeTemporaryFolder()) {}
  TemporaryFolder(const TemporaryFolder&) = delete;
  TemporaryFolder& operator=(const TemporaryFolder&) = delete;
  ~TemporaryFolder() {
    std::error_code ignored;
    if (!path_.empty()) std::filesystem::remove_all(path_, ignored);
  }

  [[nodiscard]] const std::filesystem::path& Path() const { return path_; }
  [[nodiscard]] std::filesystem::path operator/(const std::string& name) const {
    return path_ / name;
  }

 private:
  std::filesystem::path path_;
};

inline void WriteFile(const std::filesystem::path& file, std::span<const std::uint8_t> bytes) {
  std::ofstream out(file, std::ios::binary | std::ios::trunc);
  for (const std::uint8_t byte : bytes) out.put(static_cast<char>(byte));
}

/// The bytes of a file; none when it cannot be read.
inline std::vector<std::uint8_t> ReadFile(const std::filesystem::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
}

}  // namespace oocpctest
