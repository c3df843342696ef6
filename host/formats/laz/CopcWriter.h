// Writes COPC files: LAZ whose chunks are the nodes of an octree, which a record tells.
#pragma once

#include <array>
#include <cstdint>
#include <filesystem>
#include <limits>
#include <memory>
#include <optional>
#include <span>
#include <vector>

#include "host/common/OutputFile.h"
#include "host/formats/LasFrame.h"
#include "host/formats/LasRecordLayout.h"
#include "host/formats/laz/LazPointWriter.h"

namespace tarnhost {

/// The cube that the octree divides, source coordinates.
struct CopcCube {
  std::array<double, 3> min{};
  double edge = 1;
  double spacing = 1;  ///< between neighbouring points of the root node
};

/// A node's place: its level, and its cell counted along the axes from the cube's least corner.
struct CopcKey {
  std::int32_t level = 0;
  std::array<std::int32_t, 3> cell{};
};

/// Point formats 0 to 3 become 6 or 7, with a GPS time of 0 where they had none; all their values
/// have a place there. The file appears under its name at Finish(); destroyed before, the writer
/// leaves nothing. One thread at a time.
class CopcWriter {
 public:
  /// Checks the frame, which must stay as it is until the writer is finished, and begins the file.
  /// kScanUnsupported for points with wave packets, which have no place in such files; failures of
  /// ParseLasFrame and of OutputFile.
  static Outcome Create(const std::filesystem::path& path, const LasFrame& frame,
                        const CopcCube& cube, std::unique_ptr<CopcWriter>& writer);

  /// The fields that a node has to bring, in this order: those of the source.
  [[nodiscard]] const LasRecordLayout& GetLayout() const { return layout_; }
  [[nodiscard]] std::uint8_t GetSourceFormat() const { return sourceFormat_; }
  [[nodiscard]] std::uint8_t GetFormat() const { return header_.pointFormat; }
  /// Whether the coordinate system is there as GeoTIFF keys alone, as sources of older formats have
  /// it; those of the file ask for well-known text.
  [[nodiscard]] bool LacksWkt() const { return lacksWkt_; }
  /// Writes a node with `count` points of its own, maybe none, as LasWriter::WriteBlock does. Each
  /// key comes once.
  Outcome WriteNode(const CopcKey& key, std::uint32_t count, const std::int32_t* xyz,
                    std::span<const std::span<const std::uint8_t>> columns);
  Outcome Finish();
  [[nodiscard]] std::uint64_t GetPointCount() const { return header_.pointCount; }

 private:
  CopcWriter(const CopcCube& cube, const LasHeader& source, std::unique_ptr<OutputFile> file);
  Outcome Begin(const LasFrame& frame, const LasHeader& source);
  void Convert(std::uint32_t count);
  void CountPoint(const std::uint8_t* record);
  [[nodiscard]] Outcome ListNodes(std::vector<std::uint8_t>& hierarchy) const;
  [[nodiscard]] std::vector<std::uint8_t> EncodeInformation(std::uint64_t hierarchyAt,
                                                            std::uint64_t hierarchyBytes) const;
  void SetBounds();

  struct Node {
    CopcKey key;
    std::uint32_t points;
  };

  CopcCube cube_;
  LasHeader header_;  ///< of the file
  LasRecordLayout layout_;
  std::uint8_t sourceFormat_;
  bool lacksWkt_;
  std::unique_ptr<OutputFile> file_;
  std::unique_ptr<laz::LazPointWriter> points_;
  std::vector<std::uint8_t> head_;
  std::vector<std::uint8_t> extendedRecords_;  ///< of the source
  std::vector<std::uint8_t> assembled_;
  std::vector<std::uint8_t> records_;
  std::vector<Node> nodes_;
  std::array<std::int32_t, 3> least_;
  std::array<std::int32_t, 3> greatest_;
  double leastTime_ = std::numeric_limits<double>::infinity();
  double greatestTime_ = -std::numeric_limits<double>::infinity();
};

/// True for a file name that ends in ".copc.laz", whatever the case of its letters.
[[nodiscard]] bool IsCopcName(const std::filesystem::path& path);

/// The point format of 6 to 8 that holds all that a format holds, or none.
[[nodiscard]] std::optional<std::uint8_t> CopcFormatFor(std::uint8_t pointFormat);

}  // namespace tarnhost
