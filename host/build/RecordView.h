// Point records that lie in memory, by their numbers.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <span>
#include <utility>
#include <vector>

namespace tarnhost {

/// Copies a record. Records are short: moves of sixteen bytes, the last of which may overlap the
/// one before, take less time than to ask for the best way.
inline void CopyRecord(std::uint8_t* to, const std::uint8_t* from, std::size_t bytes) {
  constexpr std::size_t kMove = 16;
  if (bytes < kMove) {
    std::memcpy(to, from, bytes);
    return;
  }
  for (std::size_t done = 0; done + kMove <= bytes; done += kMove) {
    std::memcpy(to + done, from + done, kMove);
  }
  std::memcpy(to + bytes - kMove, from + bytes - kMove, kMove);
}

/// Records of one size in one or more runs, numbered through. Does not own them. Const operations
/// are safe from several threads at once.
class RecordView {
 public:
  RecordView() = default;
  /// One run.
  RecordView(const std::uint8_t* records, std::size_t recordBytes)
      : recordBytes_(recordBytes), first_(records) {}

  /// Adds a run of `count` records behind those that are there.
  void AddRun(const std::uint8_t* records, std::size_t recordBytes, std::uint64_t count) {
    recordBytes_ = recordBytes;
    if (runs_.empty()) first_ = records;
    runs_.push_back({end_, records});
    end_ += count;
  }

  [[nodiscard]] const std::uint8_t* At(std::uint64_t row) const {
    if (runs_.size() < 2) return first_ + row * recordBytes_;
    const auto next = std::ranges::upper_bound(runs_, row, {}, &Run::firstRow);
    return std::prev(next)->records + (row - std::prev(next)->firstRow) * recordBytes_;
  }

  /// Copies the records named, one after the other.
  void Gather(std::span<const std::uint64_t> rows, std::uint8_t* out) const {
    // They may lie anywhere: ask for each some time before it is needed.
    constexpr std::size_t kAhead = 16;
    for (std::size_t i = 0; i < rows.size(); ++i, out += recordBytes_) {
      if (i + kAhead < rows.size()) {
        const std::uint8_t* const soon = At(rows[i + kAhead]);
        __builtin_prefetch(soon);
        __builtin_prefetch(soon + recordBytes_ - 1);
      }
      CopyRecord(out, At(rows[i]), recordBytes_);
    }
  }

  [[nodiscard]] std::size_t GetRecordBytes() const { return recordBytes_; }

 private:
  struct Run {
    std::uint64_t firstRow;
    const std::uint8_t* records;
  };

  std::size_t recordBytes_ = 0;
  const std::uint8_t* first_ = nullptr;
  std::vector<Run> runs_;
  std::uint64_t end_ = 0;
};

}  // namespace tarnhost
