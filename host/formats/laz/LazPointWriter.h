// Compresses records into the chunks of a LAZ file, several chunks at once.
#pragma once

#include <tbb/enumerable_thread_specific.h>
#include <tbb/task_group.h>

#include <condition_variable>
#include <deque>
#include <memory>
#include <mutex>
#include <span>
#include <vector>

#include "host/common/OutputFile.h"
#include "host/formats/laz/ChunkCoder.h"
#include "host/formats/laz/ChunkTable.h"

namespace tarnhost::laz {

/// Writes the points of one file from the position that it has reached: what stands there is where
/// the header says that points begin. Chunks come in the order of the records; which thread
/// compressed them makes no difference. A few chunks for each core are kept in memory. One thread
/// at a time. Failures are those of the file; kOutOfMemory where a chunk could not be compressed,
/// after which nothing more is written.
class LazPointWriter {
 public:
  /// `file` must outlive the writer.
  LazPointWriter(OutputFile& file, const LazLayout& layout);
  LazPointWriter(const LazPointWriter&) = delete;
  LazPointWriter& operator=(const LazPointWriter&) = delete;
  ~LazPointWriter();

  /// Keeps the place of the chunk table's position. Before all else.
  Outcome Begin();
  /// Takes whole records over. Chunks of the layout's size end by themselves.
  Outcome Append(std::span<const std::uint8_t> records);
  /// Ends the chunk. Only for layouts whose chunks are of any size.
  Outcome EndChunk();
  /// Writes what is left, and the chunk table. Nothing may come after it.
  Outcome Finish();
  /// The chunks written; all of them after Finish().
  [[nodiscard]] std::span<const Chunk> GetChunks() const { return chunks_; }

 private:
  struct Job {
    enum State { kWaiting, kRunning, kDone, kFailed };
    std::vector<std::uint8_t> records;
    std::vector<std::uint8_t> chunk;
    State state = kWaiting;
  };

  Outcome Submit();
  Outcome WriteFront();
  void Encode(Job& job);

  OutputFile& file_;
  LazLayout layout_;
  std::uint64_t tableOffsetAt_ = 0;
  std::vector<std::uint8_t> records_;  ///< of the chunk being filled
  std::uint64_t pointCount_ = 0;       ///< of the chunks written
  std::vector<Chunk> chunks_;
  std::deque<std::shared_ptr<Job>> jobs_;
  std::size_t mostJobs_;
  // Not std::atomic's own way to wait, which misses wake-ups in GCC 12 for Windows.
  std::mutex mutex_;  ///< of all jobs' states
  std::condition_variable done_;
  tbb::enumerable_thread_specific<ChunkEncoder> encoders_;
  tbb::task_group tasks_;
};

}  // namespace tarnhost::laz
