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
  std::string stream;             ///< its name; "main" for the main stream
  std::uint64_t record = 0;       ///< number of the block, node or iteration
  std::uint64_t offsetBytes = 0;  ///< where it begins in the stream
  std::string what;
};

struct VerifyReport {
  std::uint64_t nodes = 0;
  std::uint64_t blocks = 0;  ///< of all columns together
  std::uint64_t iterations = 0;
  std::uint64_t points = 0;      ///< of the newest iteration
  std::uint64_t bytes = 0;       ///< read
  std::vector<Fault> faults;     ///< causes before what they bring about, at most kMaximumFaults
  std::uint64_t faultCount = 0;  ///< all
  /// Among them are some of levels of detail, or what a later version of this program wrote.
  bool hasLevelFaults = false;
  bool needsLaterVersion = false;
  /// For each iteration whether everything that it needs is sound: its record, its nodes, their
  /// blocks in all columns, and its levels of detail. Empty when the repository cannot be opened.
  std::vector<bool> intactIterations;

  static constexpr std::size_t kMaximumFaults = 1000;
};

/// Checks every checksum of every committed stream, and of each iteration: every node once in its
/// tree, cells that follow from their parents' cells, counts that add up, boxes that hold their
/// points and are tight, every block in every column with a value per point and values numbered
/// through, strings that exist, and levels of detail that fit the octree and together hold every
/// point once.
/// What follows from a fault that was told is not told again: a node whose block cannot be read is
/// not said to have a wrong box. The outcome fails only when the check itself could not run; faults
/// are in the report.
Outcome VerifyRepository(const std::filesystem::path& folder,
                         const std::function<bool(const ProgressReport&)>& progress,
                         VerifyReport& report);

/// For people: why a copy of the main stream does not do.
[[nodiscard]] const char* WhatIsWrongWithCopy(HRESULT code);

/// Opens a repository that is to be verified, anew at each call.
using RepositoryOpener = std::function<HRESULT(std::unique_ptr<OOCPCStreamRepository>&)>;

/// The same for any repository; `place` names it in messages.
Outcome VerifyStreams(const RepositoryOpener& open, const std::filesystem::path& place,
                      const std::function<bool(const ProgressReport&)>& progress,
                      VerifyReport& report);

}  // namespace tarnhost
