// The checksums of a scan's points.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <filesystem>
#include <memory>

#include "host/cloud/Checksums.h"
#include "tests/support/ScanFolder.h"

namespace oocpctest {

inline tarnhost::Checksums SumsOf(const std::filesystem::path& file) {
  tarnhost::Checksums sums;
  std::unique_ptr<tarnhost::ScanFile> scan;
  EXPECT_TRUE(IsOk(tarnhost::OpenScan(file, scan)));
  if (scan == nullptr) return sums;
  tarnhost::ScanWorkspace workspace{
      std::uint64_t{1} << 32, std::filesystem::temp_directory_path(), {}};
  EXPECT_TRUE(IsOk(tarnhost::SumScan(*scan, workspace, {}, sums)));
  return sums;
}

}  // namespace oocpctest
