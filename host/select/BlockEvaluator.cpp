// Asks a plan of the points of one node after the other.
#include "host/select/BlockEvaluator.h"

#include <algorithm>
#include <chrono>

#include "host/select/IntervalTest.h"
#include "host/select/MaskKernels.h"
#include "host/select/StringTest.h"

namespace tarnhost {

namespace {

bool HasBits(std::span<const std::uint64_t> mask) {
  return std::ranges::any_of(mask, [](std::uint64_t word) { return word != 0; });
}

void JoinMasks(PlanNodeKind kind, std::span<std::uint64_t> mask,
               std::span<const std::uint64_t> other) {
  for (std::size_t i = 0; i < mask.size(); ++i) {
    if (kind == PlanNodeKind::kAnd) {
      mask[i] &= other[i];
    } else if (kind == PlanNodeKind::kOr) {
      mask[i] |= other[i];
    } else {
      mask[i] ^= other[i];
    }
  }
}

std::array<std::int32_t, 3> BoundsOf(const std::array<StoredRange, 3>& box, bool greatest) {
  std::array<std::int32_t, 3> bounds{};
  for (std::size_t axis = 0; axis < 3; ++axis) {
    bounds[axis] = static_cast<std::int32_t>(greatest ? box[axis].greatest : box[axis].least);
  }
  return bounds;
}

}  // namespace

BlockEvaluator::BlockEvaluator(Cloud& cloud, const SelectionPlan& plan, bool timed)
    : plan_(plan), timed_(timed), leafCounts_(plan.leaves.size()) {
  for (const PlanColumn& column : plan.columns) columns_.emplace_back(cloud, column);
}

Outcome BlockEvaluator::Evaluate(const OOCPCOctreeAcceleratorNode& node, ClassifyResult& result) {
  count_ = node.ownPointCount;
  for (BlockColumn& column : columns_) {
    if (Outcome outcome = column.Enter(node); !outcome.Ok()) return outcome;
  }
  result = Classify();
  if (result != ClassifyResult::kSome) return Outcome::Success();
  mask_.resize(MaskWords(count_));
  return Fill(plan_.root, mask_, 0);
}

ClassifyResult BlockEvaluator::Classify() {
  leafResults_.resize(plan_.leaves.size());
  for (std::size_t i = 0; i < plan_.leaves.size(); ++i) {
    const PlanLeaf& leaf = plan_.leaves[i];
    leafResults_[i] = ClassifyBlock(plan_, leaf, columns_[leaf.column].GetEntry());
    leafCounts_[i].blocksSkipped += leafResults_[i] == ClassifyResult::kNone ? 1 : 0;
    leafCounts_[i].blocksAccepted += leafResults_[i] == ClassifyResult::kAll ? 1 : 0;
  }
  return CombineAnswers(plan_, leafResults_, nodeResults_);
}

BlockEvaluator::Mask BlockEvaluator::ScratchMask(std::size_t depth) {
  if (scratchMasks_.size() <= depth) scratchMasks_.resize(depth + 1);
  scratchMasks_[depth].resize(MaskWords(count_));
  return scratchMasks_[depth];
}

Outcome BlockEvaluator::Fill(std::uint32_t node, Mask mask, std::size_t depth) {
  const PlanNode& described = plan_.nodes[node];
  return described.kind == PlanNodeKind::kLeaf ? FillLeaf(described.leaf, mask)
                                               : FillCall(described, mask, depth);
}

// Children that are decided have no part here, but for those of an exclusive or: its node would be
// decided, too, if they decided it.
Outcome BlockEvaluator::FillCall(const PlanNode& node, Mask mask, std::size_t depth) {
  bool odd = node.value;
  bool isFirst = true;
  for (const std::uint32_t child : node.children) {
    if (nodeResults_[child] != ClassifyResult::kSome) {
      odd ^= nodeResults_[child] == ClassifyResult::kAll;
      continue;
    }
    const Mask own = isFirst ? mask : ScratchMask(depth);
    if (Outcome outcome = Fill(child, own, depth + 1); !outcome.Ok()) return outcome;
    if (!isFirst) JoinMasks(node.kind, mask, own);
    isFirst = false;
    if (node.kind == PlanNodeKind::kAnd && !HasBits(mask)) break;
    if (node.kind == PlanNodeKind::kOr && CountBits(mask) == count_) break;
  }
  if (node.kind == PlanNodeKind::kXor && odd) InvertMask(mask, count_);
  return Outcome::Success();
}

Outcome BlockEvaluator::FillLeaf(std::uint32_t leaf, Mask mask) {
  using Clock = std::chrono::steady_clock;
  const PlanLeaf& described = plan_.leaves[leaf];
  LeafCounts& counts = leafCounts_[leaf];
  ++counts.blocksTested;
  const Clock::time_point begin = timed_ ? Clock::now() : Clock::time_point();
  const ColumnCounts before = columns_[described.column].GetCounts();
  Outcome outcome = TestLeaf(described, mask);
  counts.reading += columns_[described.column].GetCounts() - before;
  if (described.negated) InvertMask(mask, count_);
  if (timed_) {
    const auto taken = Clock::now() - begin;
    counts.nanoseconds += static_cast<std::uint64_t>(
        std::chrono::duration_cast<std::chrono::nanoseconds>(taken).count());
  }
  return outcome;
}

Outcome BlockEvaluator::TestLeaf(const PlanLeaf& leaf, Mask mask) {
  switch (leaf.kind) {
    case LeafKind::kInterval:
      return TestInterval(columns_[leaf.column], leaf.interval, leaf.component, scratch_, mask);
    case LeafKind::kString:
      return TestStrings(columns_[leaf.column], leaf.strings, stringScratch_, mask);
    case LeafKind::kBox:
    case LeafKind::kSphere:
    case LeafKind::kFrustum:
      return TestPositions(leaf, mask);
  }
  return Outcome::Success();
}

Outcome BlockEvaluator::TestPositions(const PlanLeaf& leaf, Mask mask) {
  std::span<const std::uint8_t> xyz;
  if (Outcome outcome = columns_[leaf.column].ReadValues(xyz); !outcome.Ok()) return outcome;
  if (leaf.kind == LeafKind::kBox) {
    TestBox(xyz.data(), count_, BoundsOf(leaf.box, false), BoundsOf(leaf.box, true), mask.data());
  } else if (leaf.kind == LeafKind::kSphere) {
    const auto& sphere = static_cast<const OOCPCInsideSphereQuery&>(*leaf.query);
    TestSphere(xyz.data(), count_, plan_.positions, sphere.GetCentre(), sphere.GetRadius(),
               mask.data());
  } else {
    const auto& frustum = static_cast<const OOCPCInsideFrustumQuery&>(*leaf.query);
    TestFrustum(xyz.data(), count_, plan_.positions, frustum.GetPlanes(), mask.data());
  }
  return Outcome::Success();
}

}  // namespace tarnhost
