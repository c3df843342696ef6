// Tells sets of point records apart, whatever their order.
#pragma once

#include <cstdint>
#include <vector>

#include "host/formats/ScanFile.h"

namespace oocpctest {

/// How many records there are, and the sum of a 64-bit hash over all of them.
struct RecordSums {
  std::uint64_t count = 0;
  std::uint64_t hashes = 0;
  bool operator==(const RecordSums&) const = default;

  void Add(const std::uint8_t* record, std::size_t bytes) {
    std::uint64_t hash = 0xCBF29CE484222325u;  // FNV-1a, its bits mixed in the end
    for (std::size_t i = 0; i < bytes; ++i) hash = (hash ^ record[i]) * 0x100000001B3u;
    hash = (hash ^ hash >> 31) * 0x9E3779B97F4A7C15u;
    hashes += hash ^ hash >> 29;
    ++count;
  }
};

/// Of a scan that is prepared.
inline RecordSums SumRecords(const tarnhost::ScanFile& scan) {
  constexpr std::uint64_t kRun = 10000;
  RecordSums sums;
  std::vector<std::uint8_t> records(kRun * scan.GetRecordBytes());
  for (std::uint64_t first = 0; first < scan.GetPointCount(); first += kRun) {
    const std::uint64_t count = std::min(kRun, scan.GetPointCount() - first);
    scan.ReadRecords(first, count, records.data());
    for (std::uint64_t i = 0; i < count; ++i) {
      sums.Add(records.data() + i * scan.GetRecordBytes(), scan.GetRecordBytes());
    }
  }
  return sums;
}

}  // namespace oocpctest
