// How the operating system's error numbers become result codes.
#pragma once

#include <OOCPointCloud/Export.h>
#include <OOCPointCloud/Types.h>

namespace oocpc {

/// kNoSpace, kAccessDenied, or kIoError for everything that has no code of its own. Callers that
/// expect a missing or an existing file ask for ENOENT and EEXIST themselves.
[[nodiscard]] OOCPOINTCLOUD_API HRESULT ResultFromErrno(int error);

}  // namespace oocpc
