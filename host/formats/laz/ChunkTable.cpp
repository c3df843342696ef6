// Where the chunks of a LAZ file lie and how many points each has.
#include "host/formats/laz/ChunkTable.h"

#include <algorithm>

#include "host/formats/laz/ArithmeticEncoder.h"
#include "host/formats/laz/ChunkCoder.h"
#include "host/formats/laz/IntegerCoder.h"

namespace tarnhost::laz {

namespace result = oocpc::result;
using oocpc::AppendLittleEndian;
using oocpc::LoadLittleEndian;

namespace {

constexpr std::size_t kHeadBytes = 8;
/// More chunks in a byte of the table are beyond what any model can say.
constexpr std::uint64_t kMostChunksOfByte = 8192;

Outcome Damaged(std::string what, const std::string& where) {
  return Outcome::Failure(result::kScanContradictory, std::move(what), where,
                          "copy or download it again, or write it again from its source");
}

Outcome Truncated(std::string what, const std::string& where) {
  return Outcome::Failure(result::kScanTruncated, std::move(what), where,
                          "copy or download it again");
}

class Reader {
 public:
  Reader(const LazLayout& layout, const ChunkedPoints& points, const std::string& where,
         ChunkTable& table)
      : layout_(layout), points_(points), where_(where), table_(table) {}

  Outcome Read() {
    const std::uint64_t fileBytes = points_.file.size();
    table_.pointsEnd = points_.pointsOffset;
    if (!layout_.chunked) return TakeOneChunk();
    if (fileBytes - points_.pointsOffset < 8) {
      if (points_.pointCount == 0) return EndAt(fileBytes);
      return Truncated("the file ends where its points begin", where_);
    }
    table_.pointsEnd += 8;
    std::uint64_t at = LoadTableOffset(points_.pointsOffset);
    const bool atEnd = at == ~std::uint64_t{0};
    if (atEnd) at = LoadTableOffset(fileBytes - 8);
    if (at < table_.pointsEnd || at > fileBytes - kHeadBytes) return Walk();
    table_.tableBegin = at;
    if (Outcome outcome = Decode(points_.file.subspan(static_cast<std::size_t>(at)));
        !outcome.Ok()) {
      return outcome;
    }
    if (atEnd) table_.tableEnd = fileBytes;
    return Check();
  }

 private:
  [[nodiscard]] std::uint64_t LoadTableOffset(std::uint64_t at) const {
    return LoadLittleEndian<std::uint64_t>(points_.file.data() + at);
  }

  Outcome EndAt(std::uint64_t end) {
    table_.pointsEnd = table_.tableBegin = table_.tableEnd = end;
    return Outcome::Success();
  }

  Outcome TakeOneChunk() {
    if (points_.pointCount == 0) return EndAt(points_.pointsOffset);
    return Walk();
  }

  Outcome Decode(std::span<const std::uint8_t> bytes) {
    const auto version = LoadLittleEndian<std::uint32_t>(bytes.data());
    const std::uint64_t count = LoadLittleEndian<std::uint32_t>(bytes.data() + 4);
    if (version != 0) {
      return Damaged("version " + std::to_string(version) + " of the chunk table is not known",
                     where_);
    }
    table_.tableEnd = table_.tableBegin + kHeadBytes;
    if (count == 0) return Outcome::Success();
    const auto coded = bytes.subspan(kHeadBytes);
    if (count > coded.size() * kMostChunksOfByte || count > points_.file.size()) {
      return Damaged("the chunk table states " + std::to_string(count) +
                         " chunks, more than the file can hold",
                     where_);
    }
    return DecodeEntries(coded, count);
  }

  Outcome DecodeEntries(std::span<const std::uint8_t> coded, std::uint64_t count) {
    ArithmeticDecoder decoder(coded);
    IntegerCoder<32, 2> sizes;
    sizes.Start<true>();
    std::int32_t lastPoints = 0;
    std::int32_t lastBytes = 0;
    std::uint64_t offset = table_.pointsEnd;
    std::uint64_t firstPoint = 0;
    for (std::uint64_t i = 0; i < count; ++i) {
      std::uint64_t points = layout_.chunkPoints;
      if (layout_.HasVariableChunks()) {
        lastPoints = sizes.Code(decoder, lastPoints, 0, 0);
        points = static_cast<std::uint32_t>(lastPoints);
      } else {
        // The last one has what is left; a table that goes on behind it is seen by its places.
        points = std::min(points, points_.pointCount - std::min(firstPoint, points_.pointCount));
      }
      lastBytes = sizes.Code(decoder, lastBytes, 0, 1);
      const std::uint64_t bytes = static_cast<std::uint32_t>(lastBytes);
      if (offset > table_.tableBegin || bytes > table_.tableBegin - offset) {
        return Damaged("chunk " + std::to_string(i + 1) + " of " + std::to_string(count) +
                           " would lie outside the points",
                       where_);
      }
      // At once: then each chunk that is kept takes some of the file.
      if (points != 0 && !CanHold(layout_, bytes, points)) {
        return Damaged("the chunk table states a chunk of " + std::to_string(points) +
                           " points in " + std::to_string(bytes) + " bytes",
                       where_);
      }
      if (points != 0) {
        table_.chunks.push_back({offset, bytes, firstPoint, static_cast<std::uint32_t>(points)});
      }
      offset += bytes;
      firstPoint += points;
    }
    if (!decoder.IsSound()) return Damaged("the chunk table is cut short or damaged", where_);
    table_.pointsEnd = offset;
    table_.tableEnd = table_.tableBegin + kHeadBytes +
                      static_cast<std::uint64_t>(decoder.GetNext() - coded.data());
    return Outcome::Success();
  }

  Outcome Check() {
    std::uint64_t total = 0;
    for (const Chunk& chunk : table_.chunks) total += chunk.points;
    if (total == points_.pointCount) return Outcome::Success();
    return Damaged("the chunks hold " + std::to_string(total) + " points, but the header states " +
                       std::to_string(points_.pointCount),
                   where_);
  }

  /// Finds the chunks without a table.
  Outcome Walk() {
    if (points_.pointCount == 0) return EndAt(table_.pointsEnd);
    if (layout_.HasVariableChunks() && layout_.chunked && !layout_.layered) {
      return Truncated(
          "the chunk table is missing, and chunks of varying size cannot be told apart", where_);
    }
    ChunkDecoder decoder(layout_);
    std::uint64_t offset = table_.pointsEnd;
    for (std::uint64_t first = 0; first < points_.pointCount;) {
      const auto left = points_.file.subspan(static_cast<std::size_t>(offset));
      Chunk chunk{offset, left.size(), first, 0};
      if (!Measure(left, decoder, chunk)) return Cut(first);
      table_.chunks.push_back(chunk);
      offset += chunk.bytes;
      first += chunk.points;
    }
    return EndAt(offset);
  }

  bool Measure(std::span<const std::uint8_t> bytes, ChunkDecoder& decoder, Chunk& chunk) const {
    const std::uint64_t left = points_.pointCount - chunk.firstPoint;
    if (layout_.layered) {
      return MeasureLayeredChunk(layout_, bytes, chunk.points, chunk.bytes) && chunk.points != 0 &&
             chunk.points <= left && CanHold(layout_, chunk.bytes, chunk.points);
    }
    const std::uint64_t most = layout_.chunked ? layout_.chunkPoints : ~std::uint32_t{0};
    const std::uint64_t points = std::min(left, most);
    if ((!layout_.chunked && points != left) || !CanHold(layout_, bytes.size(), points)) {
      return false;
    }
    chunk.points = static_cast<std::uint32_t>(points);
    return decoder.MeasurePointwise(bytes, chunk.points, chunk.bytes);
  }

  Outcome Cut(std::uint64_t found) const {
    return Truncated("the chunk table is missing, and of the " +
                         std::to_string(points_.pointCount) + " points only the first " +
                         std::to_string(found) + " could be found",
                     where_);
  }

  const LazLayout& layout_;
  const ChunkedPoints& points_;
  const std::string& where_;
  ChunkTable& table_;
};

}  // namespace

Outcome ReadChunkTable(const LazLayout& layout, const ChunkedPoints& points,
                       const std::string& where, ChunkTable& table) {
  ChunkTable read;
  Outcome outcome = Reader(layout, points, where, read).Read();
  if (outcome.Ok()) table = std::move(read);
  return outcome;
}

std::vector<std::uint8_t> EncodeChunkTable(const LazLayout& layout, std::span<const Chunk> chunks) {
  std::vector<std::uint8_t> bytes;
  AppendLittleEndian<std::uint32_t>(bytes, 0);
  AppendLittleEndian(bytes, static_cast<std::uint32_t>(chunks.size()));
  if (chunks.empty()) return bytes;
  ArithmeticEncoder encoder;
  encoder.Start();
  IntegerCoder<32, 2> sizes;
  sizes.Start<false>();
  std::int32_t lastPoints = 0;
  std::int32_t lastBytes = 0;
  for (const Chunk& chunk : chunks) {
    if (layout.HasVariableChunks()) {
      lastPoints = sizes.Code(encoder, lastPoints, static_cast<std::int32_t>(chunk.points), 0);
    }
    lastBytes = sizes.Code(encoder, lastBytes, static_cast<std::int32_t>(chunk.bytes), 1);
  }
  encoder.Finish();
  bytes.insert(bytes.end(), encoder.GetBytes().begin(), encoder.GetBytes().end());
  return bytes;
}

}  // namespace tarnhost::laz
