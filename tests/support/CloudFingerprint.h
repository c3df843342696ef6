// What a cloud holds, in a form that two states of a repository can be compared by.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/cloud/Verify.h"

namespace oocpctest {

/// 64-bit FNV-1a.
inline std::uint64_t HashBytes(std::uint64_t hash, const std::uint8_t* bytes, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) hash = (hash ^ bytes[i]) * 0x100000001B3u;
  return hash;
}

/// The number of points of an iteration and the sum of their hashes, which depends on every value
/// of every point but not on their order; or the error that reading them gave.
inline std::string FingerprintOf(tarnhost::Cloud& cloud, std::uint64_t iteration) {
  std::vector<std::string> names;
  for (const tarnhost::CloudColumn& column : cloud.GetColumns()) names.push_back(column.name);
  tarnhost::BlockReader reader;
  tarnhost::Outcome outcome = tarnhost::BlockReader::Open(cloud, names, reader);
  std::uint64_t count = 0;
  std::uint64_t sum = 0;
  const auto add = [&](const OOCPCOctreeAcceleratorNode& node) {
    std::vector<std::int32_t> xyz;
    outcome = reader.ReadPositions(node, xyz);
    std::vector<std::uint64_t> hashes(node.ownPointCount, 0xCBF29CE484222325u);
    for (std::size_t i = 0; i < hashes.size() && outcome.Ok(); ++i) {
      const std::int32_t* at = xyz.data() + 3 * i;
      for (std::size_t axis = 0; axis < 3; ++axis) {
        hashes[i] = (hashes[i] ^ static_cast<std::uint32_t>(at[axis])) * 0x100000001B3u;
      }
    }
    std::vector<std::uint8_t> values;
    for (std::size_t column = 0; column < names.size() && outcome.Ok(); ++column) {
      outcome = reader.ReadColumn(column, node, values);
      if (!outcome.Ok() || hashes.empty()) break;
      const std::size_t width = values.size() / hashes.size();
      for (std::size_t i = 0; i < hashes.size(); ++i) {
        hashes[i] = HashBytes(hashes[i], values.data() + width * i, width);
      }
    }
    for (const std::uint64_t hash : hashes) sum += hash;
    count += hashes.size();
    return outcome.Ok() ? tarnhost::Descend::kIntoChildren : tarnhost::Descend::kStop;
  };
  if (outcome.Ok()) {
    const tarnhost::Outcome walked = cloud.WalkNodes(iteration, add);
    if (!walked.Ok()) outcome = walked;
  }
  if (!outcome.Ok()) return "error: " + outcome.what;
  return std::to_string(count) + " points " + std::to_string(sum);
}

/// All iterations of a cloud.
inline std::string FingerprintOf(tarnhost::Cloud& cloud) {
  std::string text;
  for (std::uint64_t i = 0; i < cloud.GetIterationCount(); ++i) {
    text += "[" + FingerprintOf(cloud, i) + "]";
  }
  return text;
}

/// What stands at a place: "nothing", an error, or a cloud with all its iterations and the faults
/// that verification finds.
inline std::string StateOf(const std::filesystem::path& repository) {
  std::error_code ignored;
  if (!std::filesystem::exists(repository, ignored)) return "nothing";
  std::unique_ptr<tarnhost::Cloud> cloud;
  const tarnhost::Outcome opened = tarnhost::Cloud::Open(repository, cloud);
  if (!opened.Ok()) return "error: " + opened.what;
  std::string text = FingerprintOf(*cloud);
  tarnhost::VerifyReport report;
  const tarnhost::Outcome verified = tarnhost::VerifyRepository(repository, {}, report);
  if (!verified.Ok()) text += " not verified: " + verified.what;
  for (const tarnhost::Fault& fault : report.faults) {
    // What was committed is whole without the copy, which the next commit makes again.
    if (fault.stream == "main.copy") continue;
    text += " " + fault.stream + ": " + fault.what;
  }
  return text;
}

}  // namespace oocpctest
