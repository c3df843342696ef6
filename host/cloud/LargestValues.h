// How many bits the values of a column take, where LAS files may have but a few for them.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/formats/LasRecordLayout.h"

namespace tarnhost {

/// Knows the largest values of 8-bit columns, of all iterations together. Reads no point: it asks
/// what the sources can hold, and where that is too much, the tables of blocks. Borrows the cloud.
/// One thread at a time.
class LargestValues {
 public:
  explicit LargestValues(Cloud& cloud);

  /// Whether the column of the field's name has a value that takes more bits than the field has.
  /// Blocks that cannot be read do not count.
  [[nodiscard]] bool Exceed(const LasField& field);

 private:
  [[nodiscard]] std::uint64_t FindBound(const std::string& name) const;
  std::uint64_t ReadLargest(const std::string& name);

  Cloud& cloud_;
  std::vector<LasRecordLayout> layouts_;  ///< of the sources
  bool areAllLas_;
  std::map<std::string, std::uint64_t> largest_;  ///< of the columns read so far
};

}  // namespace tarnhost
