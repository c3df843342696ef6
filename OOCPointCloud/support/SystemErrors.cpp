// How the operating system's error numbers become result codes.
#include "OOCPointCloud/support/SystemErrors.h"

#include <OOCPointCloud/ResultCodes.h>

#include <cerrno>

namespace oocpc {

HRESULT ResultFromErrno(int error) {
  switch (error) {
    case ENOSPC:
    case EFBIG:  // the file system, or a limit of the process, holds no larger file
#if defined(EDQUOT)
    case EDQUOT:
#endif
      return result::kNoSpace;
    case EACCES:
    case EPERM:
    case EROFS:
      return result::kAccessDenied;
    default:
      return result::kIoError;
  }
}

}  // namespace oocpc
