// A query compiled for one cloud: its leaves as tests of stored values, and what joins them.
#pragma once

#include <OOCPointCloud/GeometricQueries.h>

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "host/select/StoredPositions.h"
#include "host/select/ValueInterval.h"

namespace tarnhost {

/// A column that leaves of a plan read.
struct PlanColumn {
  std::string name;
  std::uint32_t columnId = 0;
  oocpc::ColumnType type;
  bool isPositions = false;
};

/// Indices of neighbouring strings, both included.
struct StringRun {
  std::uint64_t first = 0;
  std::uint64_t last = 0;
};

/// Which strings of the dictionary satisfy a comparison.
struct StringSet {
  std::vector<std::uint8_t> selected;      ///< 1 where the string of this index satisfies it
  std::vector<std::uint64_t> countBefore;  ///< satisfying strings before an index; one entry more
  std::vector<StringRun> runs;             ///< the satisfying ones, ascending, as few as can be
};

enum class LeafKind : std::uint8_t {
  kInterval,  ///< a component of a column lies in an interval
  kString,    ///< a column's string is in a set
  kBox,       ///< the stored position lies in a box of integers
  kSphere,
  kFrustum,
};

/// One test of a point.
struct PlanLeaf {
  LeafKind kind = LeafKind::kInterval;
  bool negated = false;
  std::uint8_t component = 0;  ///< of the column, for intervals
  std::size_t column = 0;      ///< in the plan's list
  ValueInterval interval;
  StringSet strings;
  std::array<StoredRange, 3> box{kAllStored, kAllStored, kAllStored};
  const OOCPCPositionQuery* query = nullptr;  ///< of spheres and frusta; borrowed from the tree
};

enum class PlanNodeKind : std::uint8_t { kConstant, kLeaf, kAnd, kOr, kXor };

/// A node of the compiled tree. Negations are gone: they are in the leaves and in `value`.
struct PlanNode {
  PlanNodeKind kind = PlanNodeKind::kConstant;
  bool value = false;                   ///< of a constant; for kXor: the answer is turned round
  std::uint32_t leaf = 0;               ///< of kLeaf, in the plan's list
  std::uint32_t cost = 0;               ///< estimate of a test; the cheap ones are asked first
  std::vector<std::uint32_t> children;  ///< of the other kinds, at least two, cheapest first
};

/// Immutable once compiled; any number of threads may test with it.
struct SelectionPlan {
  std::vector<PlanColumn> columns;
  std::vector<PlanLeaf> leaves;
  std::vector<PlanNode> nodes;  ///< children before their parents
  std::uint32_t root = 0;
  StoredPositions positions;
  bool hasBoxes = false;

  [[nodiscard]] bool IsConstant() const { return nodes[root].kind == PlanNodeKind::kConstant; }
};

/// A leaf in words, as "intensity in 101 … 65535".
[[nodiscard]] std::string DescribeLeaf(const SelectionPlan& plan, const PlanLeaf& leaf);

/// The whole plan, a line a node, operands indented.
[[nodiscard]] std::string DescribePlan(const SelectionPlan& plan);

}  // namespace tarnhost
