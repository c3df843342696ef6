// Compiles a boolean tree into a plan.
#pragma once

#include <OOCPointCloud/OOCPCBooleanAST.h>

#include <vector>

#include "host/cloud/Cloud.h"
#include "host/select/QueryTyping.h"
#include "host/select/SelectionPlan.h"

namespace tarnhost {

/// Compiles `tree`, whose queries the plan borrows, with the fields that the text was fitted to:
/// folds constants, pushes negations into the leaves, joins nested calls of one operator,
/// intersects intervals of one column and boxes, and puts the cheap operands first.
/// kStringNotFound, kBadRecord (a leaf that no field stands for).
Outcome CompilePlan(Cloud& cloud, const OOCPCBooleanAST& tree,
                    const std::vector<RecordField>& fields, SelectionPlan& plan);

}  // namespace tarnhost
