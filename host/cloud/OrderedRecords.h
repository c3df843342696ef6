// Records that come in any order and are given back in that of their places.
#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <span>
#include <vector>

#include "host/common/Outcome.h"
#include "host/common/TemporaryFile.h"

namespace tarnhost {

/// Sorts records of one size by place, in memory where they fit, or else in two passes over a
/// temporary file, which are sequential: places are cut into shares that fit, a record goes to its
/// share, and each share is put into order when it is given back. One thread at a time.
class OrderedRecords {
 public:
  /// For places below `placeCount`. Takes about `memoryBytes` at most; the file lies in
  /// `temporaryFolder`.
  static Outcome Create(std::uint64_t placeCount, std::size_t recordBytes,
                        std::uint64_t memoryBytes, const std::filesystem::path& temporaryFolder,
                        std::unique_ptr<OrderedRecords>& records);

  /// Takes records that stand in a row, one for each place. kBadRecord for a place that there is
  /// not.
  Outcome Put(std::span<const std::uint64_t> places, std::span<const std::uint8_t> records);
  /// Calls `visit` for runs of records in the order of their places, until it fails; places without
  /// a record are left out. Once, after the last Put. Here or there, kBadRecord when a place has
  /// two records.
  Outcome Give(const std::function<Outcome(std::span<const std::uint8_t>)>& visit);

 private:
  /// Records of the places of one share, each at its own.
  struct Ordered {
    std::uint64_t firstPlace = 0;
    std::vector<std::uint8_t> records;
    std::vector<std::uint8_t> isTaken;  ///< of each place
  };
  struct Share {
    std::vector<std::uint8_t> buffer;  ///< a place and a record, one after the other
    std::vector<std::pair<std::uint64_t, std::size_t>> chunks;  ///< in the file: offset, bytes
  };

  OrderedRecords(std::uint64_t placeCount, std::size_t recordBytes, std::uint64_t sharePlaces);
  Outcome PutAside(std::uint64_t place, const std::uint8_t* record);
  Outcome Flush(Share& share);
  Outcome Load(const Share& share, std::vector<std::uint8_t>& entries) const;
  void Clear(std::size_t share, Ordered& ordered) const;
  Outcome PutInOrder(std::uint64_t place, const std::uint8_t* record, Ordered& ordered) const;
  void CloseGaps(Ordered& ordered) const;
  Outcome VisitRuns(const Ordered& ordered,
                    const std::function<Outcome(std::span<const std::uint8_t>)>& visit) const;

  std::uint64_t placeCount_;
  std::size_t recordBytes_;
  std::uint64_t sharePlaces_;  ///< places in a share
  std::size_t bufferBytes_ = 0;
  std::vector<Share> shares_;
  std::unique_ptr<TemporaryFile> file_;  ///< none when one share holds everything
  Ordered all_;                          ///< that share
};

}  // namespace tarnhost
