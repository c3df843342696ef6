// Turns one query of a tree into a test of stored values.
#pragma once

#include <map>
#include <string>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/select/QueryTyping.h"
#include "host/select/SelectionPlan.h"

namespace tarnhost {

/// A query compiled: a constant, or a leaf.
struct CompiledLeaf {
  bool isConstant = false;
  bool value = false;
  PlanLeaf leaf;
};

/// Compiles leaves for one plan and gathers the columns that they read in it.
class LeafCompiler {
 public:
  LeafCompiler(Cloud& cloud, const std::vector<RecordField>& fields, SelectionPlan& plan)
      : cloud_(cloud), fields_(fields), plan_(plan) {}

  /// A null query is false, as everywhere.
  Outcome Compile(const OOCPCIQuery* query, CompiledLeaf& compiled);

 private:
  Outcome CompileComparison(const OOCPCIQuery& query, CompiledLeaf& compiled);
  Outcome CompileString(const OOCPCIQuery& query, const RecordField& field, CompiledLeaf& compiled);
  void CompileSphere(const OOCPCInsideSphereQuery& query, CompiledLeaf& compiled);
  void CompileFrustum(const OOCPCInsideFrustumQuery& query, CompiledLeaf& compiled);
  std::size_t FindColumn(const std::string& name);
  std::size_t FindPositions();

  Cloud& cloud_;
  const std::vector<RecordField>& fields_;
  SelectionPlan& plan_;
};

/// Makes `kept` hold what both leaves hold; they are of one kind, column and component and negated
/// alike. False when nothing is left.
[[nodiscard]] bool IntersectLeaves(const SelectionPlan& plan, PlanLeaf& kept,
                                   const PlanLeaf& other);

/// What a test of a point costs, roughly, with decoding its column.
[[nodiscard]] std::uint32_t CostOf(const SelectionPlan& plan, const PlanLeaf& leaf);

}  // namespace tarnhost
