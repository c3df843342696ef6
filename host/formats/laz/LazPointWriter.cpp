// Compresses records into the chunks of a LAZ file, several chunks at once.
#include "host/formats/laz/LazPointWriter.h"

#include <tbb/task_arena.h>

#include <algorithm>
#include <exception>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost::laz {

LazPointWriter::LazPointWriter(OutputFile& file, const LazLayout& layout)
    : file_(file),
      layout_(layout),
      mostJobs_(2 * static_cast<std::size_t>(tbb::this_task_arena::max_concurrency())),
      encoders_([layout] { return ChunkEncoder(layout); }) {}

LazPointWriter::~LazPointWriter() {
  tasks_.cancel();
  tasks_.wait();
}

Outcome LazPointWriter::Begin() {
  tableOffsetAt_ = file_.GetLength();
  std::vector<std::uint8_t> place;
  // Whoever finds this in an unfinished file knows that there is no table.
  oocpc::AppendLittleEndian(place, tableOffsetAt_);
  return file_.Write(place);
}

Outcome LazPointWriter::Append(std::span<const std::uint8_t> records) {
  while (!records.empty()) {
    std::size_t bytes = records.size();
    if (!layout_.HasVariableChunks()) {
      const std::size_t full = layout_.chunkPoints * layout_.recordBytes;
      bytes = std::min(bytes, full - records_.size());
    }
    records_.insert(records_.end(), records.begin(),
                    records.begin() + static_cast<std::ptrdiff_t>(bytes));
    records = records.subspan(bytes);
    if (!layout_.HasVariableChunks() &&
        records_.size() == layout_.chunkPoints * layout_.recordBytes) {
      if (Outcome outcome = Submit(); !outcome.Ok()) return outcome;
    }
  }
  return Outcome::Success();
}

Outcome LazPointWriter::EndChunk() { return Submit(); }

Outcome LazPointWriter::Submit() {
  if (records_.empty()) return Outcome::Success();
  auto job = std::make_shared<Job>();
  job->records.swap(records_);
  jobs_.push_back(job);
  tasks_.run([this, job] { Encode(*job); });
  while (jobs_.size() > mostJobs_) {
    if (Outcome outcome = WriteFront(); !outcome.Ok()) return outcome;
  }
  return Outcome::Success();
}

void LazPointWriter::Encode(Job& job) {
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    if (job.state != Job::kWaiting) return;
    job.state = Job::kRunning;
  }
  Job::State state = Job::kDone;
  try {
    encoders_.local().Encode(job.records, job.chunk);
  } catch (const std::exception&) {  // for want of memory; there is nothing else to fail
    state = Job::kFailed;            // whoever waits for the chunk has to hear of it
  }
  const std::lock_guard<std::mutex> lock(mutex_);
  job.state = state;
  done_.notify_all();
}

Outcome LazPointWriter::WriteFront() {
  const std::shared_ptr<Job> job = jobs_.front();
  Encode(*job);  // unless another thread has begun
  {
    std::unique_lock<std::mutex> lock(mutex_);
    done_.wait(lock, [&] { return job->state == Job::kDone || job->state == Job::kFailed; });
  }
  // Stays in front, so that no later chunk is written in its place.
  if (job->state == Job::kFailed) {
    return Outcome::FromCode(oocpc::result::kOutOfMemory, file_.GetTarget().string());
  }
  jobs_.pop_front();
  const auto points = static_cast<std::uint32_t>(job->records.size() / layout_.recordBytes);
  chunks_.push_back({file_.GetLength(), job->chunk.size(), pointCount_, points});
  pointCount_ += points;
  return file_.Write(job->chunk);
}

Outcome LazPointWriter::Finish() {
  if (Outcome outcome = Submit(); !outcome.Ok()) return outcome;
  while (!jobs_.empty()) {
    if (Outcome outcome = WriteFront(); !outcome.Ok()) return outcome;
  }
  tasks_.wait();
  std::vector<std::uint8_t> place;
  oocpc::AppendLittleEndian(place, file_.GetLength());
  if (Outcome outcome = file_.Write(EncodeChunkTable(layout_, chunks_)); !outcome.Ok()) {
    return outcome;
  }
  return file_.Overwrite(tableOffsetAt_, place);
}

}  // namespace tarnhost::laz
