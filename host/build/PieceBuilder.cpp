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
                               std::span<const TakenPoint> taken,
                               std::vector<std::uint64_t> above) const {
  BuiltPiece built;
  built.takenRecords.resize(piece.level);
  std::vector<std::uint32_t> places;
  const std::size_t recordBytes = loaded.records.GetRecordBytes();
  for (const TakenPoint& point : taken) {
    places.push_back(point.index);
    const std::uint8_t* record = loaded.records.At(loaded.points[point.index].point);
    auto& out = built.takenRecords[point.level];
    out.insert(out.end(), record, record + recordBytes);
  }
  if (existing_ != nullptr && piece.level > existing_->GetGrowth()) {
    HoldPoints(piece, loaded, places, built, above);
  }
  const std::span<CodedPoint> points =
      places.empty() ? loaded.points : Without(loaded.points, std::move(places));
  // Where a former root holds on to everything, its nodes below stay as they are.
  const bool isSettled =
      existing_ == nullptr || existing_->StaysAsItIs(piece.level, piece.indexInLevel);
  if (points.empty() && piece.level > 0 && isSettled) return built;
  built.plan =
      PlanSubtree(points, {piece.level, piece.indexInLevel, std::move(above)}, grid_, existing_);
  built.blocks.resize(built.plan.nodes.size());
  tbb::parallel_for(std::size_t{0}, built.plan.nodes.size(), [&](std::size_t i) {
    BuildBlock(loaded, built, built.plan.nodes[i], built.blocks[i]);
  });
  return built;
}

/// Gives the former root of an existing tree, when it lies above the piece, the points that it
/// holds on to. `places` are those of the points that were taken.
void PieceBuilder::HoldPoints(const Piece& piece, const LoadedPiece& loaded,
                              std::vector<std::uint32_t>& places, BuiltPiece& built,
                              std::vector<std::uint64_t>& above) const {
  std::vector<bool> isTaken(loaded.points.size());
  for (const std::uint32_t place : places) isTaken[place] = true;
  auto& out = built.takenRecords[existing_->GetGrowth()];
  HeldPoints held(*existing_, piece.level, piece.indexInLevel);
  for (std::uint32_t i = 0; i < loaded.points.size(); ++i) {
    const std::uint64_t code = loaded.points[i].code;
    if (isTaken[i] || !held.Holds(code)) continue;
    places.push_back(i);
    above.push_back(code);
    const std::uint8_t* record = loaded.records.At(loaded.points[i].point);
    out.insert(out.end(), record, record + loaded.records.GetRecordBytes());
  }
}

void PieceBuilder::BuildBlock(const LoadedPiece& loaded, const BuiltPiece& built,
                              const PlannedNode& node, BuiltBlock& block) const {
  const auto rows = std::span(built.plan.order).subspan(node.firstPoint, node.ownPointCount);
  if (node.existing != ExistingTree::kNone) {
    std::vector<std::uint8_t> records(rows.size() * loaded.records.GetRecordBytes());
    loaded.records.Gather(rows, records.data());
    blocks_.BuildMerged(std::move(records), *existing_, node.existing, block);
  } else if (!rows.empty()) {
    blocks_.Build(loaded.records, rows, built.plan.PartsOf(node), block);
  }
}

}  // namespace tarnhost
