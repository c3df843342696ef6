// From a query text to a tree that fits a cloud.
#pragma once

#include <OOCPointCloudTarn/TarnOOCStringQueryExpression.h>

#include <string>
#include <vector>

#include "host/cloud/Cloud.h"
#include "host/select/QueryTyping.h"

namespace tarnhost {

/// Reads a text, fits it to the columns of a cloud and makes its tree, with the constants in the
/// local frame; `local`: they are there already. kQueryRejected with the place in the text as
/// `where`; codes of reading.
Outcome ReadQuery(Cloud& cloud, const std::string& text, bool local, NameTypes types,
                  std::vector<RecordField>& fields, TarnOOCStringQueryExpression& expression);

}  // namespace tarnhost
