// Builds the subtree of one piece: from its records to encoded blocks.
#include "host/build/PieceBuilder.h"

#include <tbb/parallel_for.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <unordered_set>

namespace tarnhost {

namespace {

constexpr unsigned kDigitBits = 11;

/// Sorts by code, in rounds of eleven bits from the lowest on; equal codes keep their order.
void SortByCode(std::vector<CodedPoint>& points) {
  constexpr std::size_t kDigits = std::size_t{1} << kDigitBits;
  std::vector<CodedPoint> other(points.size());
  for (unsigned shift = 0; shift < 3 * kMortonBits; shift += kDigitBits) {
    std::array<std::size_t, kDigits> places{};
    for (const CodedPoint& point : points) ++places[(point.code >> shift) & (kDigits - 1)];
    if (std::ranges::any_of(places, [&](std::size_t count) { return count == points.size(); })) {
      continue;  // all the same here
    }
    std::size_t place = 0;
    for (std::size_t& count : places) place += std::exchange(count, place);
    for (const CodedPoint& point : points) {
      other[places[(point.code >> shift) & (kDigits - 1)]++] = point;
    }
    points.swap(other);
  }
}

}  // namespace

std::vector<CodedPoint> SortRecords(std::span<const std::uint8_t> records, std::size_t recordBytes,
                                    const PositionTransform& transform,
                                    const oocpc::Vector3d& frameOffset, const MortonCube& cube) {
  std::vector<CodedPoint> points(records.size() / recordBytes);
  for (std::size_t row = 0; row < points.size(); ++row) {
    std::int32_t xyz[3];
    std::memcpy(xyz, records.data() + row * recordBytes, sizeof(xyz));
    points[row] = {cube.CodeOf(LocalPosition(xyz, transform, frameOffset)), row};
  }
  SortByCode(points);
  return points;
}

BuiltPiece PieceBuilder::Build(const Piece& piece, std::span<const std::uint8_t> records,
                               std::vector<CodedPoint> points,
                               std::span<const TakenPoint> taken) const {
  BuiltPiece built;
  built.takenRecords.resize(piece.level);
  SubtreeRoot root{piece.level, piece.indexInLevel, {}};
  std::unordered_set<std::uint64_t> rows;
  for (const TakenPoint& point : taken) {
    rows.insert(point.row);
    root.above.push_back(point.code);
    const auto record = records.subspan(point.row * recordBytes_, recordBytes_);
    auto& out = built.takenRecords[point.level];
    out.insert(out.end(), record.begin(), record.end());
  }
  std::erase_if(points, [&](const CodedPoint& point) { return rows.contains(point.point); });
  if (points.empty() && piece.level > 0) return built;
  built.plan = PlanSubtree(std::move(points), std::move(root), grid_);
  built.blocks.resize(built.plan.nodes.size());
  tbb::parallel_for(std::size_t{0}, built.plan.nodes.size(), [&](std::size_t i) {
    const PlannedNode& node = built.plan.nodes[i];
    if (node.ownPointCount == 0) return;
    blocks_.Build(records.data(),
                  std::span(built.plan.order).subspan(node.firstPoint, node.ownPointCount),
                  built.plan.PartsOf(node), built.blocks[i]);
  });
  return built;
}

}  // namespace tarnhost
