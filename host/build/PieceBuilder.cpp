// Builds the subtree of one piece: from its records to encoded blocks.
#include "host/build/PieceBuilder.h"

#include <tbb/parallel_for.h>

#include <algorithm>

namespace tarnhost {

namespace {

/// Takes the points at some places out; gives those that are left, still in order.
std::span<CodedPoint> Without(std::span<CodedPoint> points, std::vector<std::uint32_t> places) {
  std::ranges::sort(places);
  std::size_t left = 0;
  auto next = places.begin();
  for (std::size_t i = 0; i < points.size(); ++i) {
    if (next != places.end() && *next == i) {
      ++next;
    } else {
      points[left++] = points[i];
    }
  }
  return points.first(left);
}

}  // namespace

BuiltPiece PieceBuilder::Build(const Piece& piece, LoadedPiece& loaded,
                               std::span<const TakenPoint> taken) const {
  BuiltPiece built;
  built.takenRecords.resize(piece.level);
  SubtreeRoot root{piece.level, piece.indexInLevel, {}};
  std::vector<std::uint32_t> places;
  const std::size_t recordBytes = loaded.records.GetRecordBytes();
  for (const TakenPoint& point : taken) {
    places.push_back(point.index);
    root.above.push_back(point.code);
    const std::uint8_t* record = loaded.records.At(loaded.points[point.index].point);
    auto& out = built.takenRecords[point.level];
    out.insert(out.end(), record, record + recordBytes);
  }
  const std::span<CodedPoint> points =
      places.empty() ? loaded.points : Without(loaded.points, std::move(places));
  if (points.empty() && piece.level > 0) return built;
  built.plan = PlanSubtree(points, std::move(root), grid_);
  built.blocks.resize(built.plan.nodes.size());
  tbb::parallel_for(std::size_t{0}, built.plan.nodes.size(), [&](std::size_t i) {
    const PlannedNode& node = built.plan.nodes[i];
    if (node.ownPointCount == 0) return;
    blocks_.Build(loaded.records,
                  std::span(built.plan.order).subspan(node.firstPoint, node.ownPointCount),
                  built.plan.PartsOf(node), built.blocks[i]);
  });
  return built;
}

}  // namespace tarnhost
