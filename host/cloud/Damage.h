// Tells failures that are due to what a repository holds from those that are not.
#pragma once

#include <OOCPointCloud/ResultCodes.h>

namespace tarnhost {

/// Whether reading failed for what the files hold. Otherwise it was the machine or the user, and
/// another try may not meet it again.
[[nodiscard]] inline bool IsDamage(HRESULT code) {
  namespace result = oocpc::result;
  return oocpc::Failed(code) && code != result::kOutOfMemory && code != result::kAccessDenied &&
         code != result::kIoError && code != result::kStopped;
}

}  // namespace tarnhost
