// Reads everything in a repository and checks everything that can be checked.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <string>
#include <vector>

#include "host/cloud/Cloud.h"

namespace tarnhost {

/// One thing that is wrong.
struct Fault {
  HRESULT code = 0;
  std::string stream;             ///< or the file, where the repository could not be opened
  std::uint64_t record = 0;       ///< number of the block, node or iteration
  std::uint64_t offsetBytes = 0;  ///< where it begins in the stream
  std::string what;
};

struct VerifyReport {
  std::uint64_t nodes = 0;
  std::uint64_t blocks = 0;      ///< of all columns together
  std::uint64_t points = 0;      ///< of all iterations together
  std::uint64_t bytes = 0;       ///< read
  std::vector<Fault> faults;     ///< in the order found, at most kMaximumFaults
  std::uint64_t faultCount = 0;  ///< all

  static constexpr std::size_t kMaximumFaults = 1000;
};

/// Checks every checksum of every committed stream, and of each iteration: every node once in its
/// tree, cells that follow from their parents' cells, counts that add up, boxes that hold their
/// points and are tight, every block in every column with a value per point and values numbered
/// through, strings that exist, and levels of detail that fit the octree and together hold every
/// point once.
/// The outcome fails only when the check itself could not run; faults are in the report.
Outcome VerifyRepository(const std::filesystem::path& folder,
                         const std::function<bool(const ProgressReport&)>& progress,
                         VerifyReport& report);

}  // namespace tarnhost
