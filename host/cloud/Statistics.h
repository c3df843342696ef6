// Ranges, means and contradictions of the values of a cloud or a scan.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "host/cloud/CloudFacts.h"
#include "host/formats/ScanFile.h"

namespace tarnhost {

/// Widens the range of a dimension by that of a block.
void Widen(DimensionFacts& facts, const oocpc::BlockEntry& entry);

/// Adds values up, block by block. One thread at a time.
class ValueSums {
 public:
  /// The values of a block in the dimension of that number. Those of one block come together, in
  /// the order of the dimensions; dimensions of texts are left out.
  void Add(std::size_t number, const DimensionFacts& dimension,
           const std::vector<std::uint8_t>& values);
  /// Adds the means, and what contradicts itself, to what is known of these dimensions.
  void GiveTo(CloudFacts& facts) const;

 private:
  void CountBadReturns(const DimensionFacts& dimension, const std::vector<std::uint8_t>& values);

  std::vector<std::vector<double>> sums_;
  std::vector<std::uint8_t> returns_;  ///< of the block at hand
  std::uint64_t badReturns_ = 0;
};

/// Reads all points of a scan whose other facts are collected, and adds ranges, means and what
/// contradicts itself. Failures of ScanFile::Prepare; kStopped.
Outcome AddScanStatistics(ScanFile& scan, ScanWorkspace& workspace,
                          const std::function<bool(const ProgressReport&)>& progress,
                          CloudFacts& facts);

}  // namespace tarnhost
