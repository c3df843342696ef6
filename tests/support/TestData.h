// Real scans that tests read where they are at hand.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

namespace oocpctest {

/// The folder of real scans: TARN_TEST_DATA, or `shared/data` beside the project. Tests that need
/// it skip themselves where it is missing.
inline std::filesystem::path TestDataFolder() {
  if (const char* named = std::getenv("TARN_TEST_DATA"); named != nullptr) return named;
  return std::filesystem::path(TESTS_SOURCE_DIR).parent_path().parent_path() / "shared" / "data";
}

/// Every file with this ending, or with any, in it and below, in the order of their names.
inline std::vector<std::filesystem::path> TestFiles(const std::string& ending = {}) {
  std::vector<std::filesystem::path> scans;
  std::error_code error;
  std::filesystem::recursive_directory_iterator entry(TestDataFolder(), error);
  if (error) return scans;
  for (const auto& file : entry) {
    if (!file.is_regular_file() || file.path().filename().string().starts_with('.')) continue;
    if (ending.empty() || file.path().extension() == ending) scans.push_back(file.path());
  }
  std::sort(scans.begin(), scans.end());
  return scans;
}

/// Every uncompressed LAS file.
inline std::vector<std::filesystem::path> TestScans() { return TestFiles(".las"); }

/// Every LAZ file; those of many million points in optimised builds alone.
inline std::vector<std::filesystem::path> TestLazScans() {
  std::vector<std::filesystem::path> scans = TestFiles(".laz");
#ifndef NDEBUG
  std::erase_if(scans,
                [](const auto& scan) { return file_size(scan) > (std::uintmax_t{10} << 20); });
#endif
  return scans;
}

/// Every PLY, PCD and E57 file but those that are broken by intent.
inline std::vector<std::filesystem::path> TestScansOfOtherFormats() {
  std::vector<std::filesystem::path> scans;
  for (const char* const ending : {".ply", ".pcd", ".e57"}) {
    for (const std::filesystem::path& scan : TestFiles(ending)) {
      const std::filesystem::path name = scan.filename();
      if (name != "corrupt_crc.e57" && name != "InvalidCVHeader.e57") scans.push_back(scan);
    }
  }
  return scans;
}

}  // namespace oocpctest
