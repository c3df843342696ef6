// A plan in words.
#include <bit>
#include <limits>

#include "host/select/NumberWord.h"
#include "host/select/SelectionPlan.h"
#include "host/select/Sinks.h"

namespace tarnhost {

namespace {

std::string Bound(std::uint64_t bits, oocpc::ValueType type) {
  if (type == oocpc::ValueType::kFloat) {
    return NumberWord(static_cast<float>(std::bit_cast<double>(bits)));
  }
  if (IsRealType(type)) return NumberWord(std::bit_cast<double>(bits));
  return IsSignedType(type) ? NumberWord(static_cast<std::int64_t>(bits)) : NumberWord(bits);
}

/// A range in words; a side without a bound is left out.
std::string DescribeRange(const std::string& name, const std::string& low,
                          const std::string& high) {
  if (low.empty()) return name + " at most " + high;
  if (high.empty()) return name + " at least " + low;
  return low == high ? name + " = " + low : name + " in " + low + " ... " + high;
}

std::string DescribeInterval(const PlanColumn& column, const PlanLeaf& leaf) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  const oocpc::ValueType type = column.type.value;
  const ValueInterval every = ValuesIn({-kInfinity, kInfinity, false}, type);
  const bool hasLow = leaf.interval.lowBits != every.lowBits;
  const bool hasHigh = leaf.interval.highBits != every.highBits;
  const std::string name = ComponentNames({column.name, column.type, "", 0})[leaf.component];
  if (!hasLow && !hasHigh) return name + " is a number";
  return DescribeRange(name, hasLow ? Bound(leaf.interval.lowBits, type) : "",
                       hasHigh ? Bound(leaf.interval.highBits, type) : "");
}

std::string DescribeBox(const SelectionPlan& plan, const PlanLeaf& leaf) {
  static constexpr const char* kNames[] = {"x", "y", "z"};
  std::string text;
  for (std::size_t axis = 0; axis < 3; ++axis) {
    const StoredRange& range = leaf.box[axis];
    const auto bound = [&](std::int64_t stored, std::int64_t none) {
      return stored == none
                 ? std::string()
                 : NumberWord(plan.positions.GetSource(static_cast<std::int32_t>(stored), axis));
    };
    std::string low = bound(range.least, kAllStored.least);
    std::string high = bound(range.greatest, kAllStored.greatest);
    if (plan.positions.transform.scale[axis] < 0) std::swap(low, high);
    if (low.empty() && high.empty()) continue;
    text += (text.empty() ? "" : ", ") + DescribeRange(kNames[axis], low, high);
  }
  return text;
}

void AppendNode(const SelectionPlan& plan, std::uint32_t index, std::size_t depth,
                std::string& text) {
  const PlanNode& node = plan.nodes[index];
  text.append(2 * depth, ' ');
  switch (node.kind) {
    case PlanNodeKind::kConstant:
      text += node.value ? "every point" : "no point";
      break;
    case PlanNodeKind::kLeaf:
      text += DescribeLeaf(plan, plan.leaves[node.leaf]);
      break;
    case PlanNodeKind::kAnd:
      text += "all of";
      break;
    case PlanNodeKind::kOr:
      text += "any of";
      break;
    case PlanNodeKind::kXor:
      text += node.value ? "an even number of" : "an odd number of";
      break;
  }
  text += "\n";
  for (const std::uint32_t child : node.children) AppendNode(plan, child, depth + 1, text);
}

}  // namespace

std::string DescribeLeaf(const SelectionPlan& plan, const PlanLeaf& leaf) {
  const PlanColumn& column = plan.columns[leaf.column];
  std::string text;
  switch (leaf.kind) {
    case LeafKind::kInterval:
      text = DescribeInterval(column, leaf);
      break;
    case LeafKind::kString:
      text = column.name + " is one of " + NumberWord(leaf.strings.countBefore.back()) + " strings";
      break;
    case LeafKind::kBox:
      text = DescribeBox(plan, leaf);
      break;
    case LeafKind::kSphere: {
      const auto& sphere = static_cast<const OOCPCInsideSphereQuery&>(*leaf.query);
      text = "within " + NumberWord(sphere.GetRadius()) + " of";
      for (std::size_t axis = 0; axis < 3; ++axis) {
        text += (axis == 0 ? " " : ", ") +
                NumberWord(sphere.GetCentre()[axis] + plan.positions.frameOffset[axis]);
      }
      break;
    }
    case LeafKind::kFrustum:
      text = "in front of six planes";
      break;
  }
  return leaf.negated ? "not (" + text + ")" : text;
}

std::string DescribePlan(const SelectionPlan& plan) {
  std::string text;
  AppendNode(plan, plan.root, 0, text);
  return text;
}

}  // namespace tarnhost
