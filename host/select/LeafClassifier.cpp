// What is known of the points of a subtree or a block before any of them is read.
#include "host/select/LeafClassifier.h"

#include <algorithm>
#include <bit>

namespace tarnhost {

namespace {

ClassifyResult Turned(ClassifyResult result, bool negated) {
  return negated ? static_cast<ClassifyResult>(2u - static_cast<std::uint32_t>(result)) : result;
}

ClassifyResult FromBool(bool all) { return all ? ClassifyResult::kAll : ClassifyResult::kNone; }

ClassifyResult ClassifyBox(const std::array<StoredRange, 3>& box,
                           const std::array<StoredRange, 3>& points) {
  ClassifyResult result = ClassifyResult::kAll;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const StoredRange& wanted = box[axis];
    const StoredRange& there = points[axis];
    if (there.greatest < wanted.least || there.least > wanted.greatest) {
      return ClassifyResult::kNone;
    }
    const bool inside = wanted.least <= there.least && there.greatest <= wanted.greatest;
    if (!inside) result = ClassifyResult::kSome;
  }
  return result;
}

ClassifyResult ClassifyInterval(const ValueInterval& interval, oocpc::ValueType type,
                                const oocpc::BlockEntry& entry, std::size_t component) {
  const std::uint64_t least = entry.minimumBits[component];
  const std::uint64_t greatest = entry.maximumBits[component];
  // Of NaNs alone, least is above greatest.
  if (IsLess(greatest, least, type) || IsLess(greatest, interval.lowBits, type) ||
      IsLess(interval.highBits, least, type)) {
    return ClassifyResult::kNone;
  }
  const bool inside =
      !IsLess(least, interval.lowBits, type) && !IsLess(interval.highBits, greatest, type);
  return inside && !entry.hasNan ? ClassifyResult::kAll : ClassifyResult::kSome;
}

ClassifyResult ClassifyStrings(const StringSet& strings, const oocpc::BlockEntry& entry) {
  const std::uint64_t first = entry.minimumBits[0];
  const std::uint64_t last = entry.maximumBits[0];
  // Indices without a string are found when the block is tested.
  if (last < first || last >= strings.selected.size()) return ClassifyResult::kSome;
  const std::uint64_t selected = strings.countBefore[last + 1] - strings.countBefore[first];
  if (selected == 0) return ClassifyResult::kNone;
  return selected == last - first + 1 ? ClassifyResult::kAll : ClassifyResult::kSome;
}

std::array<StoredRange, 3> StoredBoxOf(const oocpc::BlockEntry& entry) {
  std::array<StoredRange, 3> box;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    box[axis] = {static_cast<std::int64_t>(entry.minimumBits[axis]),
                 static_cast<std::int64_t>(entry.maximumBits[axis])};
  }
  return box;
}

/// The box in the local frame that a block's positions span.
oocpc::Box3d LocalBoxOf(const StoredPositions& positions, const oocpc::BlockEntry& entry) {
  oocpc::Box3d box;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const double a = positions.GetLocal(static_cast<std::int32_t>(entry.minimumBits[axis]), axis);
    const double b = positions.GetLocal(static_cast<std::int32_t>(entry.maximumBits[axis]), axis);
    box.min[axis] = std::min(a, b);  // a scale may be negative
    box.max[axis] = std::max(a, b);
  }
  return box;
}

ClassifyResult Combine(const PlanNode& node, const std::vector<ClassifyResult>& nodes) {
  if (node.kind == PlanNodeKind::kXor) {
    bool odd = node.value;
    for (const std::uint32_t child : node.children) {
      if (nodes[child] == ClassifyResult::kSome) return ClassifyResult::kSome;
      odd ^= nodes[child] == ClassifyResult::kAll;
    }
    return FromBool(odd);
  }
  const bool isAnd = node.kind == PlanNodeKind::kAnd;
  ClassifyResult result = FromBool(isAnd);
  for (const std::uint32_t child : node.children) {
    result = isAnd ? std::min(result, nodes[child]) : std::max(result, nodes[child]);
  }
  return result;
}

}  // namespace

std::array<StoredRange, 3> StoredBoxOf(const StoredPositions& positions,
                                       const oocpc::Box3d& local) {
  std::array<StoredRange, 3> box;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const bool spans = local.min[axis] <= local.max[axis];
    box[axis] = spans ? positions.FindLocal(local.min[axis], local.max[axis], axis) : kAllStored;
  }
  return box;
}

ClassifyResult ClassifySubtree(const PlanLeaf& leaf, const OOCPointCloudNode& node,
                               const std::array<StoredRange, 3>& stored) {
  switch (leaf.kind) {
    case LeafKind::kBox:
      return Turned(ClassifyBox(leaf.box, stored), leaf.negated);
    case LeafKind::kSphere:
    case LeafKind::kFrustum:
      return Turned(leaf.query->ClassifyNode(node), leaf.negated);
    case LeafKind::kInterval:
    case LeafKind::kString:
      break;
  }
  return ClassifyResult::kSome;
}

ClassifyResult ClassifyBlock(const SelectionPlan& plan, const PlanLeaf& leaf,
                             const oocpc::BlockEntry& entry) {
  switch (leaf.kind) {
    case LeafKind::kInterval: {
      const oocpc::ValueType type = plan.columns[leaf.column].type.value;
      return Turned(ClassifyInterval(leaf.interval, type, entry, leaf.component), leaf.negated);
    }
    case LeafKind::kString:
      return Turned(ClassifyStrings(leaf.strings, entry), leaf.negated);
    case LeafKind::kBox:
      return Turned(ClassifyBox(leaf.box, StoredBoxOf(entry)), leaf.negated);
    case LeafKind::kSphere:
    case LeafKind::kFrustum: {
      const oocpc::Box3d box = LocalBoxOf(plan.positions, entry);
      return Turned(leaf.query->ClassifyNode(box.min.data(), box.max.data()), leaf.negated);
    }
  }
  return ClassifyResult::kSome;
}

ClassifyResult CombineAnswers(const SelectionPlan& plan, std::span<const ClassifyResult> leaves,
                              std::vector<ClassifyResult>& nodes) {
  nodes.resize(plan.nodes.size());
  for (std::size_t i = 0; i < plan.nodes.size(); ++i) {
    const PlanNode& node = plan.nodes[i];
    if (node.kind == PlanNodeKind::kConstant) {
      nodes[i] = FromBool(node.value);
    } else if (node.kind == PlanNodeKind::kLeaf) {
      nodes[i] = leaves[node.leaf];
    } else {
      nodes[i] = Combine(node, nodes);
    }
  }
  return nodes[plan.root];
}

}  // namespace tarnhost
