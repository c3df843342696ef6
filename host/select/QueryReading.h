// From a query text to a tree that fits a cloud.
#pragma once

#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>

#include <vector>

#include "host/cloud/Cloud.h"
#include "host/select/QueryTyping.h"

namespace tarnhost {

/// Reads a text, fits it to the columns of a cloud and makes its tree, with the constants in the
/// local frame. kQueryRejected with the place in the text as `where`; codes of reading.
Outcome ReadQuery(Cloud& cloud, const QueryRequest& request, NameTypes types,
                  std::vector<RecordField>& fields, TarnOOCStringQueryExpression& expression);

}  // namespace tarnhost
