// Copying and deleting boolean trees of any depth without recursion: a call with a hundred thousand
// operands makes a tree that is as deep.
#pragma once

#include <OOCPointCloud/OOCPCBooleanAST.h>

namespace oocpc {

/// Deletes a tree, null allowed. Needs no memory.
void DeleteTree(OOCPCBooleanAST* root);

/// A deep copy without bindings; weights and kinds are copied as they stand.
[[nodiscard]] OOCPCBooleanAST* CloneTree(const OOCPCBooleanAST& root);

}  // namespace oocpc
