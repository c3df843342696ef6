// Writes a LAS or LAZ file with the header, records and layout of a source.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <vector>

#include "host/common/OutputFile.h"
#include "host/formats/LasFrame.h"
#include "host/formats/LasHeader.h"
#include "host/formats/LasRecordLayout.h"
#include "host/formats/laz/LazPointWriter.h"

namespace tarnhost {

/// Point records made ready to be written, and what the header will say of them.
struct LasRecords {
  std::vector<std::uint8_t> bytes;
  std::uint64_t pointCount = 0;
  std::array<std::uint64_t, 16> returnCounts{};
  std::array<std::int32_t, 3> least{};
  std::array<std::int32_t, 3> greatest{};

  /// Makes it none.
  void Clear();
  /// Adds what the header will say of others, but neither their bytes nor their number.
  void Count(const LasRecords& others);
};

/// Writes points block by block. The file appears under its name at Finish(); destroyed before, the
/// writer leaves nothing. One thread at a time.
class LasWriter {
 public:
  /// Checks the frame and begins the file, which is compressed when its name ends in ".laz". The
  /// frame must stay as it is until the writer is finished. Refusals are those of ParseLasHeader
  /// and of OutputFile.
  static Outcome Create(const std::filesystem::path& path, const LasFrame& frame,
                        std::unique_ptr<LasWriter>& writer);

  /// The fields that a block has to bring, in this order.
  [[nodiscard]] const LasRecordLayout& GetLayout() const { return layout_; }
  /// Writes `count` points: three stored integers each, and for each field of the layout its values
  /// one after the other (count * ValueBytes(type) bytes), or none for zeros. kScanUnsupported when
  /// a value has more bits than its field.
  Outcome WriteBlock(std::uint64_t count, const std::int32_t* xyz,
                     std::span<const std::span<const std::uint8_t>> columns);
  /// The first half of WriteBlock: any thread may make records ready while another one writes.
  Outcome FormatBlock(std::uint64_t count, const std::int32_t* xyz,
                      std::span<const std::span<const std::uint8_t>> columns,
                      LasRecords& records) const;
  /// The second half.
  Outcome Write(const LasRecords& records);
  /// Writes the end and the header. With `wholeSource`, exactly the points of the source were
  /// written and the header comes out byte for byte as it was, but for what compression changes;
  /// else counts, bounds and the offsets of what stands behind the points are those of the points
  /// written. Nothing may be written after.
  Outcome Finish(bool wholeSource);
  [[nodiscard]] std::uint64_t GetPointCount() const { return pointCount_; }

 private:
  LasWriter(const LasFrame& frame, LasHeader header, std::unique_ptr<OutputFile> file);
  Outcome Begin(bool compressed);
  Outcome CheckPointCount() const;
  Outcome RewriteHeader(bool wholeSource);
  void SetCounts();
  void SetBounds();
  void MoveTrailingRecords(std::uint64_t newPointsEnd);

  LasFrame frame_;
  LasHeader header_;
  LasRecordLayout layout_;
  std::unique_ptr<OutputFile> file_;
  std::vector<std::uint8_t> head_;  ///< the public header block as it was written first
  std::unique_ptr<laz::LazPointWriter> compressor_;  ///< null for LAS
  std::size_t returnNumberField_ = 0;
  LasRecords records_;
  std::uint64_t pointCount_ = 0;
  std::array<std::uint64_t, 16> returnCounts_{};
  std::array<std::int32_t, 3> least_{};
  std::array<std::int32_t, 3> greatest_{};
};

}  // namespace tarnhost
