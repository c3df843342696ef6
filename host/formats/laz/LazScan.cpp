// A LAZ file opened as a scan; COPC files are LAZ files.
#include "host/formats/laz/LazScan.h"

#include <tbb/enumerable_thread_specific.h>
#include <tbb/parallel_for.h>

#include <algorithm>
#include <atomic>
#include <cstring>
#include <mutex>

#include "OOCPointCloud/support/Bytes.h"

namespace tarnhost {

namespace result = oocpc::result;

namespace {

constexpr std::size_t kPointFormatAt = 104;
constexpr std::size_t kRecordCountAt = 100;
constexpr std::size_t kRecordHeadBytes = 54;
constexpr std::size_t kPointsOffsetAt = 96;
constexpr std::size_t kWaveformAt = 227;
constexpr std::size_t kExtendedAt = 235;
/// Keeps the size of all records far below what wraps.
constexpr std::uint64_t kMostPoints = std::uint64_t{1} << 44;

template <typename T>
void Put(std::vector<std::uint8_t>& bytes, std::size_t at, T value) {
  std::memcpy(bytes.data() + at, &value, sizeof(T));
}

}  // namespace

bool LazScan::IsCompressed(std::span<const std::uint8_t> file) {
  return file.size() > kPointFormatAt && std::memcmp(file.data(), "LASF", 4) == 0 &&
         (file[kPointFormatAt] & 0xC0u) != 0;
}

Outcome LazScan::Open(const std::filesystem::path& path, std::unique_ptr<LazScan>& scan) {
  std::shared_ptr<const OOCPCByteSource> bytes;
  if (Outcome outcome = MapScan(path, bytes); !outcome.Ok()) return outcome;
  return Open(path, std::move(bytes), scan);
}

Outcome LazScan::Open(const std::filesystem::path& path,
                      std::shared_ptr<const OOCPCByteSource> bytes,
                      std::unique_ptr<LazScan>& scan) {
  std::unique_ptr<LazScan> opened(new LazScan(path, std::move(bytes)));
  Outcome outcome = opened->Load();
  if (outcome.Ok()) scan = std::move(opened);
  return outcome;
}

Outcome LazScan::Load() {
  const std::string where = GetPath().string();
  LasHeader compressed;
  if (Outcome outcome = ParseLazHeader(GetFile(), where, compressed); !outcome.Ok()) {
    return outcome;
  }
  if (compressed.pointCount > kMostPoints) {
    return Outcome::Failure(result::kScanContradictory, "the number of points is beyond all files",
                            where, "write the scan again with the program that made it");
  }
  if (Outcome outcome = LoadLayout(compressed); !outcome.Ok()) return outcome;
  Outcome outcome = laz::ReadChunkTable(
      lazLayout_, {GetFile(), compressed.pointsOffset, compressed.pointCount}, where, table_);
  if (!outcome.Ok()) return outcome;
  Uncompress(compressed);
  LasHeader header;
  outcome = ParseLasFrame(leading_, compressed.pointCount, trailing_, where, header);
  if (outcome.Ok()) SetHeader(std::move(header));
  return outcome;
}

Outcome LazScan::LoadLayout(const LasHeader& compressed) {
  const std::string where = GetPath().string();
  const auto record = std::ranges::find_if(compressed.records, &LasVariableRecord::IsCompression);
  if (record == compressed.records.end()) {
    return Outcome::Failure(result::kScanContradictory,
                            "the points are compressed, but no record tells how", where,
                            "write the scan again with the program that made it");
  }
  const auto payload = GetFile().subspan(static_cast<std::size_t>(record->payloadOffset),
                                         static_cast<std::size_t>(record->payloadBytes));
  Outcome outcome = laz::ParseLazLayout(payload, compressed.pointBytes, where, lazLayout_);
  if (!outcome.Ok()) return outcome;
  // The items must be those of the point format, whose layout the dimensions are taken from.
  const laz::LazLayout expected =
      laz::LazLayoutFor(compressed.pointFormat, compressed.pointBytes, lazLayout_.chunkPoints);
  const bool same =
      expected.layered == lazLayout_.layered && expected.timeAt == lazLayout_.timeAt &&
      expected.colorAt == lazLayout_.colorAt && expected.nirAt == lazLayout_.nirAt &&
      expected.waveAt == lazLayout_.waveAt && expected.extraBytes == lazLayout_.extraBytes;
  if (same) return outcome;
  return Outcome::Failure(result::kScanContradictory,
                          "the LAZ compression does not describe points of format " +
                              std::to_string(compressed.pointFormat),
                          where, "write the scan again with the program that made it");
}

/// Makes the bytes around the points what they would be in a LAS file.
void LazScan::Uncompress(const LasHeader& compressed) {
  const auto file = GetFile();
  const auto record = std::ranges::find_if(compressed.records, &LasVariableRecord::IsCompression);
  const auto begin = static_cast<std::ptrdiff_t>(record->payloadOffset - kRecordHeadBytes);
  const auto end = static_cast<std::ptrdiff_t>(record->payloadOffset + record->payloadBytes);
  leading_.assign(file.begin(), file.begin() + compressed.pointsOffset);
  leading_.erase(leading_.begin() + begin, leading_.begin() + end);
  leading_[kPointFormatAt] = compressed.pointFormat;
  Put(leading_, kRecordCountAt, compressed.recordCount - 1);
  Put(leading_, kPointsOffsetAt, static_cast<std::uint32_t>(leading_.size()));
  TakeTrailing();
  const std::uint64_t pointsEnd =
      leading_.size() + compressed.pointCount * std::uint64_t{compressed.pointBytes};
  // Offsets of what stands behind the points, which now begins there.
  const auto move = [&](std::size_t at, std::uint64_t offset) {
    if (offset >= table_.tableEnd) {
      offset += pointsEnd - table_.tableEnd + (table_.tableBegin - table_.pointsEnd);
    } else if (offset >= table_.pointsEnd && offset < table_.tableBegin) {
      offset += pointsEnd - table_.pointsEnd;
    }
    Put(leading_, at, offset);
  };
  if (compressed.versionMinor >= 3) move(kWaveformAt, compressed.waveformOffset);
  if (compressed.versionMinor >= 4) move(kExtendedAt, compressed.extendedOffset);
}

/// What is left of the file without the points and their table.
void LazScan::TakeTrailing() {
  const auto file = GetFile();
  trailing_ = file.subspan(static_cast<std::size_t>(table_.tableEnd));
  if (table_.pointsEnd == table_.tableBegin) return;
  ownTrailing_.assign(file.begin() + static_cast<std::ptrdiff_t>(table_.pointsEnd),
                      file.begin() + static_cast<std::ptrdiff_t>(table_.tableBegin));
  ownTrailing_.insert(ownTrailing_.end(), trailing_.begin(), trailing_.end());
  trailing_ = ownTrailing_;
}

laz::ChunkBytes LazScan::GetBytesOf(const laz::Chunk& chunk) const {
  return {GetFile().subspan(static_cast<std::size_t>(chunk.offset)),
          static_cast<std::size_t>(chunk.bytes)};
}

/// Ends the decoding of a chunk, which was found to be sound or not.
Outcome LazScan::EndChunk(std::size_t index, bool sound) const {
  const laz::Chunk& chunk = table_.chunks[index];
  const laz::ChunkBytes bytes = GetBytesOf(chunk);
  OOCPCForgetPages(bytes.bytes.first(bytes.chunkBytes));
  if (sound) return Outcome::Success();
  return Outcome::Failure(
      result::kScanContradictory,
      "chunk " + std::to_string(index + 1) + " of " + std::to_string(table_.chunks.size()) +
          " is damaged (points " + std::to_string(chunk.firstPoint + 1) + " to " +
          std::to_string(chunk.firstPoint + chunk.points) + ")",
      GetPath().string(), "copy or download it again, or write it again from its source");
}

Outcome LazScan::DecodeChunk(std::size_t index, laz::ChunkDecoder& decoder, std::uint8_t* records,
                             std::uint32_t parts) const {
  const laz::Chunk& chunk = table_.chunks[index];
  return EndChunk(index, decoder.Decode(GetBytesOf(chunk), chunk.points, records, parts));
}

Outcome LazScan::DecodeIntoScratch(std::size_t index, laz::ChunkDecoder& decoder,
                                   std::vector<std::uint8_t>& run) {
  const laz::Chunk& chunk = table_.chunks[index];
  const std::size_t stride = GetRecordBytes();
  const std::uint64_t at = chunk.firstPoint * stride;
  if (std::uint8_t* memory = records_->GetMemory(at); memory != nullptr) {
    return DecodeChunk(index, decoder, memory);
  }
  const std::uint32_t most = laz::CountRunPoints(lazLayout_);
  bool sound = decoder.Begin(GetBytesOf(chunk), chunk.points);
  for (std::uint32_t done = 0; sound && done < chunk.points;) {
    const std::uint32_t count = std::min(most, chunk.points - done);
    run.resize(count * stride);
    sound = decoder.DecodeRun(count, run.data());
    if (!sound) break;
    if (Outcome outcome = records_->Write(at + done * stride, run); !outcome.Ok()) return outcome;
    done += count;
  }
  return EndChunk(index, sound && decoder.IsComplete());
}

Outcome LazScan::Prepare(ScanWorkspace& workspace) {
  if (records_ != nullptr) return Outcome::Success();  // once is enough
  const std::uint64_t bytes = GetScratchBytes();
  Outcome outcome =
      ScratchBytes::Create(bytes, workspace.memoryBytes, workspace.temporaryFolder, records_);
  if (!outcome.Ok()) return outcome;
  struct Worker {
    laz::ChunkDecoder decoder;
    std::vector<std::uint8_t> run;
  };
  tbb::enumerable_thread_specific<Worker> workers([this] {
    return Worker{laz::ChunkDecoder(lazLayout_), {}};
  });
  const std::size_t count = table_.chunks.size();
  std::mutex mutex;
  std::uint64_t done = 0;
  std::size_t failedChunk = count;  // the first one, whichever thread met it
  std::atomic<bool> stopped{false};
  tbb::parallel_for(std::size_t{0}, count, [&](std::size_t i) {
    if (stopped.load(std::memory_order_relaxed)) return;
    Worker& worker = workers.local();
    Outcome decoded = DecodeIntoScratch(i, worker.decoder, worker.run);
    const std::lock_guard<std::mutex> lock(mutex);
    if (!decoded.Ok() && i < failedChunk) {
      failedChunk = i;
      outcome = std::move(decoded);
    }
    done += table_.chunks[i].points;
    if (workspace.progress && !workspace.progress(done)) stopped = true;
  });
  if (stopped && outcome.Ok()) outcome = Outcome::FromCode(result::kStopped);
  if (!outcome.Ok()) {
    records_.reset();
    return outcome;
  }
  records_->EndWriting();
  if (bytes <= workspace.memoryBytes) workspace.memoryBytes -= bytes;
  return outcome;
}

void LazScan::ReadPositions(std::uint64_t first, std::uint64_t count, std::int32_t* xyz) const {
  const std::size_t stride = GetRecordBytes();
  CopyPositions(records_->Get(first * stride), count, xyz);
  records_->Forget(first * stride, count * stride);
}

void LazScan::ReadRecords(std::uint64_t first, std::uint64_t count, std::uint8_t* out) const {
  const std::size_t stride = GetRecordBytes();
  if (count == 0) return;
  std::memcpy(out, records_->Get(first * stride), count * stride);
  records_->Forget(first * stride, count * stride);
}

std::span<const std::uint8_t> LazScan::GetMappedRecords() const {
  if (!records_ || GetPointCount() == 0) return {};
  return {records_->Get(0), static_cast<std::size_t>(GetPointCount()) * GetRecordBytes()};
}

}  // namespace tarnhost
